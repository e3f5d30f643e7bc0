#include "SoakClient.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "SoakLibrary.h"
#include "SoakReport.h"
#include "rvitunes/ae/AECodes.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/CZPlaylistCache.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/helper/RVITunesHelper.h"
#include "rvitunes/helper/RVITunesTrackItem.h"

namespace rvitunes::soak {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kMaxProblems = 20;
constexpr size_t kSearchSample = 6;  // results whose identity a search checks
constexpr OSType kSearchSongs = fourCharCode("kSrS");
constexpr OSType kTrackClass = fourCharCode("cTrk");
constexpr OSType kFailedEnum = 0xFFFFFFFF;

// What the framework logged on this thread: a timed-out request, or anything else.
thread_local uint64_t tTimeouts = 0;
thread_local uint64_t tDiagnostics = 0;
thread_local std::string tLastDiagnostic;

// The framework reports every failure it hides to the debug channel; this sink tells the
// time-outs (allowed) from everything else (a finding), on the thread that met them.
class ClientLogSink final : public LogSink {
 public:
  void write(std::string_view line) override {
    if (line.find("discarding a reply") != std::string_view::npos) {
      // Logged by whichever thread reads the socket, so counted for the process.
      late_.fetch_add(1);
      return;
    }
    if (line.ends_with(": -1712") || line.ends_with(" -1712)")) {
      ++tTimeouts;
      timeouts_.fetch_add(1);
      return;
    }
    ++tDiagnostics;
    tLastDiagnostic.assign(line);
  }
  uint64_t late() const { return late_.load(); }
  uint64_t timeouts() const { return timeouts_.load(); }

 private:
  std::atomic<uint64_t> late_{0};
  std::atomic<uint64_t> timeouts_{0};
};

// Collects the checks of one operation and books them when it ends: a check without an answer
// counts as a time-out when a request of this operation timed out, as an error otherwise; a
// wrong answer is always a mismatch.
class Operation {
 public:
  Operation(KindStats& stats, std::vector<std::string>& problems, Kind kind)
      : stats_(stats),
        problems_(problems),
        kind_(kind),
        timeoutsAtStart_(tTimeouts),
        diagnosticsAtStart_(tDiagnostics) {}
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  ~Operation() {
    ++stats_.operations;
    stats_.checked += checked_;
    const bool timedOut = tTimeouts != timeoutsAtStart_;
    if (timedOut) ++stats_.timeouts;
    if (!timedOut && (!missing_.empty() || tDiagnostics != diagnosticsAtStart_)) {
      ++stats_.errors;
      note(!missing_.empty() ? "no answer for " + missing_ : "logged: " + tLastDiagnostic);
    }
    if (!wrong_.empty()) {
      stats_.mismatches += wrongCount_;
      note(wrong_);
    }
  }

  // One answer: whether there was one, and whether it was the right one.
  void expect(bool answered, bool right, const std::string& what) {
    ++checked_;
    if (!answered) {
      if (missing_.empty()) missing_ = what;
    } else if (!right) {
      ++wrongCount_;
      if (wrong_.empty()) wrong_ = what;
    }
  }

  void text(const std::optional<std::string>& actual, const std::string& expected,
            const std::string& what) {
    expect(actual.has_value(), actual == expected,
           what + ": \"" + actual.value_or("") + "\", expected \"" + expected + "\"");
  }

  // An integer read, where -1 stands for a failed read.
  void integer(int64_t actual, int64_t expected, const std::string& what) {
    expect(actual != -1 || expected == -1, actual == expected,
           what + ": " + std::to_string(actual) + ", expected " + std::to_string(expected));
  }

  void range(int64_t actual, int64_t low, int64_t high, const std::string& what) {
    expect(actual != -1 || low == -1, actual >= low && actual <= high,
           what + ": " + std::to_string(actual) + ", expected " + std::to_string(low) + ".." +
               std::to_string(high));
  }

 private:
  void note(const std::string& problem) {
    if (problems_.size() < kMaxProblems) {
      problems_.push_back(std::string(kindName(kind_)) + ": " + problem);
    }
  }

  KindStats& stats_;
  std::vector<std::string>& problems_;
  Kind kind_;
  uint64_t timeoutsAtStart_;
  uint64_t diagnosticsAtStart_;
  uint64_t checked_ = 0;
  uint64_t wrongCount_ = 0;
  std::string missing_;
  std::string wrong_;
};

// Work per thousand operations. Artwork fetches and cache rebuilds cost dozens to hundreds of
// requests each, so they come rarely.
struct Weight {
  Kind kind;
  int perMille;
};
constexpr Weight kWeights[] = {
    {Kind::kTrack, 300},  {Kind::kPlaylist, 200}, {Kind::kSearch, 150},      {Kind::kWrite, 150},
    {Kind::kArtwork, 40}, {Kind::kCache, 5},      {Kind::kApplication, 155},
};

class Worker {
 public:
  Worker(const ClientOptions& options, const ExpectedLibrary& library, int thread,
         Clock::time_point deadline)
      : options_(options),
        library_(library),
        deadline_(deadline),
        random_(options.seed * 0x9E3779B97F4A7C15ULL ^
                (static_cast<uint64_t>(options.index) << 20) ^ static_cast<uint64_t>(thread)) {
    const auto everyone = static_cast<size_t>(options.clients * options.threads);
    const auto me = static_cast<size_t>(options.index * options.threads + thread);
    for (size_t i = me; i < library.tracks.size(); i += everyone)
      owned_.push_back(i);
    for (const ExpectedPlaylist& p : library.playlists) {
      for (const ExpectedPlaylist& child : library.playlists) {
        if (child.parentPersistentId == p.persistentId && p.folder) {
          children_[p.persistentId].push_back(child.persistentId);
        }
      }
    }
    for (auto& [folder, ids] : children_)
      std::sort(ids.begin(), ids.end());
  }

  void run() {
    while (Clock::now() < deadline_) {
      int pick = static_cast<int>(random_() % 1000);
      for (const Weight& w : kWeights) {
        if (pick < w.perMille) {
          runOne(w.kind);
          break;
        }
        pick -= w.perMille;
      }
    }
  }

  const std::array<KindStats, kKindCount>& stats() const { return stats_; }
  const std::vector<std::string>& problems() const { return problems_; }
  std::vector<WriteRecord> writes() const {
    std::vector<WriteRecord> out;
    for (const auto& [id, record] : writes_)
      out.push_back(record);
    return out;
  }

 private:
  void runOne(Kind kind) {
    Operation op(stats_[static_cast<size_t>(kind)], problems_, kind);
    switch (kind) {
      case Kind::kTrack:
        trackRead(op);
        break;
      case Kind::kPlaylist:
        playlistRead(op);
        break;
      case Kind::kSearch:
        search(op);
        break;
      case Kind::kWrite:
        write(op);
        break;
      case Kind::kArtwork:
        artwork(op);
        break;
      case Kind::kCache:
        cache(op);
        break;
      case Kind::kApplication:
        application(op);
        break;
      case Kind::kCount:
        break;
    }
  }

  size_t pick(size_t size) { return static_cast<size_t>(random_() % size); }

  static std::string trackLabel(const ExpectedTrack& t) { return "track " + std::to_string(t.id); }

  bool owns(const ExpectedTrack& t) const {
    const size_t index = library_.trackIndexById.at(t.id);
    return std::binary_search(owned_.begin(), owned_.end(), index);
  }

  // The rating and play count this thread knows for a track it owns.
  std::pair<int32_t, int32_t> known(const ExpectedTrack& t) const {
    const auto found = writes_.find(t.id);
    if (found != writes_.end()) return {found->second.rating, found->second.playCount};
    return {t.rating, t.playCount};
  }

  std::shared_ptr<CZPlaylist> libraryPlaylist() {
    if (!libraryPlaylist_) libraryPlaylist_ = Cadenza::sharedInstance()->libraryPlaylist();
    return libraryPlaylist_;
  }

  void trackRead(Operation& op) {
    const ExpectedTrack& t = library_.tracks[pick(library_.tracks.size())];
    const std::string label = trackLabel(t);
    const std::shared_ptr<CZTrack> track =
        Cadenza::sharedInstance()->trackWithPersistentId(static_cast<uint64_t>(t.persistentId));
    op.expect(track != nullptr, true, label + " by persistent ID");
    if (!track) return;
    op.text(track->name(), t.name, "name of " + label);
    op.text(track->artist(), t.artist, "artist of " + label);
    op.integer(track->databaseId(), t.id, "database ID of " + label);
    op.integer(track->persistentId(), t.persistentId, "persistent ID of " + label);
    if (owns(t)) {
      const auto [rating, playCount] = known(t);
      op.integer(track->rating(), rating, "rating of " + label);
      op.integer(track->playedCount(), playCount, "play count of " + label);
    } else {
      op.range(track->rating(), 0, 100, "rating of " + label);
      op.range(track->playedCount(), 0, INT32_MAX - 1, "play count of " + label);
    }
  }

  void playlistRead(Operation& op) {
    const ExpectedPlaylist& p = library_.playlists[pick(library_.playlists.size())];
    const std::string label = "playlist \"" + p.name + "\"";
    const std::shared_ptr<CZPlaylist> playlist =
        Cadenza::sharedInstance()->playlistWithPersistentId(static_cast<uint64_t>(p.persistentId));
    op.expect(playlist != nullptr, true, label + " by persistent ID");
    if (!playlist) return;
    op.text(playlist->name(), p.name, "name of " + label);
    op.integer(playlist->persistentId(), p.persistentId, "persistent ID of " + label);
    if (p.folder) return;  // a folder's tracks are its children's
    op.integer(playlist->trackCount(), static_cast<int64_t>(p.trackIds.size()),
               "track count of " + label);
    if (p.trackIds.empty()) return;
    const size_t position = pick(p.trackIds.size());
    const ExpectedTrack& t = *library_.track(p.trackIds[position]);
    const std::string where = "track " + std::to_string(position) + " of " + label;
    CZAppleEventObject::Reply reply =
        playlist->getElementOfClassAtIndex(kTrackClass, static_cast<int32_t>(position));
    ae::Descriptor specifier;
    const bool answered =
        reply && reply->getParamDesc(ae::keyDirectObject, ae::typeWildCard, &specifier) == noErr;
    op.expect(answered, true, where);
    if (!answered) return;
    CZTrack track(std::move(specifier));
    op.text(track.name(), t.name, "name of " + where);
    op.integer(track.databaseId(), t.id, "database ID of " + where);
  }

  void search(Operation& op) {
    const ExpectedTrack& t = library_.tracks[pick(library_.tracks.size())];
    std::string text = t.name;
    std::vector<std::string> words = asciiSearchWords(text);
    if (words.empty()) return;
    if (random_() % 4 == 0) {
      // One word of the name, which many tracks may share.
      text = words[pick(words.size())];
      words = {text};
    }
    const std::shared_ptr<CZPlaylist> library = libraryPlaylist();
    op.expect(library != nullptr, true, "the library playlist");
    if (!library) return;
    const CZTrackList found =
        Cadenza::sharedInstance()->searchForStringInField(*library, text, kSearchSongs);
    const std::string label = "search \"" + text + "\"";
    op.expect(found.has_value(), true, label);
    if (!found) return;
    if (library_.asciiNames) {
      size_t expected = 0;
      for (int32_t id : library_.master()->trackIds) {
        if (nameMatchesWords(library_.track(id)->name, words)) ++expected;
      }
      op.integer(static_cast<int64_t>(found->size()), static_cast<int64_t>(expected),
                 "answers of " + label);
    }
    bool sawTarget = false;
    for (size_t i = 0; i < found->size() && i < kSearchSample; ++i) {
      const int32_t id = (*found)[i]->databaseId();
      const ExpectedTrack* answer = library_.track(id);
      sawTarget = sawTarget || id == t.id;
      op.expect(id != -1, answer != nullptr && nameMatchesWords(answer->name, words),
                "answer " + std::to_string(i) + " of " + label + ": track " + std::to_string(id));
    }
    if (found->size() <= kSearchSample) {
      op.expect(true, sawTarget, label + " misses track " + std::to_string(t.id));
    }
  }

  void write(Operation& op) {
    if (owned_.empty()) return trackRead(op);
    const ExpectedTrack& t = library_.tracks[owned_[pick(owned_.size())]];
    const std::string label = trackLabel(t);
    const std::shared_ptr<CZTrack> track =
        Cadenza::sharedInstance()->trackWithPersistentId(static_cast<uint64_t>(t.persistentId));
    op.expect(track != nullptr, true, label + " by persistent ID");
    if (!track) return;
    const int32_t rating = static_cast<int32_t>(++writeCount_ % 6) * 20;
    const int32_t playCount = known(t).second + 1;
    track->setRating(rating);
    track->setPlayedCount(playCount);
    // The writes went out without waiting; requests from one client are handled in order, so
    // the reads below see them.
    writes_[t.id] = {t.id, rating, playCount};
    op.integer(track->rating(), rating, "rating written to " + label);
    op.integer(track->playedCount(), playCount, "play count written to " + label);
  }

  void artwork(Operation& op) {
    const ExpectedTrack& t = library_.tracks[pick(library_.tracks.size())];
    auto item = std::make_shared<RVITunesTrackItem>();
    item->setTrackId(t.id);
    item->setArtworkCount(t.artworkCount);
    const std::shared_ptr<const image::Image> picture = item->metaImage();
    const std::string label = "artwork of " + trackLabel(t);
    if (t.cover) {
      op.expect(picture != nullptr, picture && *picture == *t.cover, label);
    } else {
      op.expect(true, picture == nullptr, label + " where there is none");
    }
  }

  void cache(Operation& op) {
    const std::shared_ptr<Cadenza> controller = Cadenza::reSharedInstance();
    const std::shared_ptr<CZPlaylist> root = controller->rootPlaylist();
    op.expect(root != nullptr, true, "root of a new playlist cache");
    if (root) op.text(root->name(), "iTunes", "name of the root playlist");
    const std::shared_ptr<CZPlaylistCache> cache = CZPlaylistCache::sharedInstance();
    for (const ExpectedPlaylist& p : library_.playlists) {
      const std::shared_ptr<CZPlaylist> entry = cache->playlistForPersistentId(p.persistentId);
      op.expect(entry != nullptr, true, "cached playlist \"" + p.name + "\"");
      if (!p.special) {
        op.expect(cache->userPlaylistForPersistentId(p.persistentId) != nullptr, true,
                  "user tree's playlist \"" + p.name + "\"");
      }
    }
    for (int i = 0; i < 4; ++i) {
      const ExpectedPlaylist& p = library_.playlists[pick(library_.playlists.size())];
      if (const std::shared_ptr<CZPlaylist> entry =
              cache->playlistForPersistentId(p.persistentId)) {
        op.text(entry->name(), p.name, "name of cached playlist " + std::to_string(i));
      }
    }
    for (const auto& [folder, expected] : children_) {
      const std::shared_ptr<CZPlaylist> entry = cache->playlistForPersistentId(folder);
      if (!entry) continue;
      std::vector<int64_t> ids = entry->childPlaylistIds();
      std::sort(ids.begin(), ids.end());
      op.expect(true, ids == expected,
                "children of cached folder " + std::to_string(folder) + ": " +
                    std::to_string(ids.size()) + ", expected " + std::to_string(expected.size()));
    }
  }

  void application(Operation& op) {
    const std::shared_ptr<Cadenza> controller = Cadenza::sharedInstance();
    op.text(RVITunesHelper::versionString(), options_.playerVersion, "the player's version");
    op.integer(controller->playlistCount(), static_cast<int64_t>(library_.playlists.size()),
               "the playlist count");
    op.range(controller->soundVolume(), 0, 100, "the sound volume");
    const OSType state = controller->playerState();
    static constexpr OSType kStates[] = {fourCharCode("kPSS"), fourCharCode("kPSP"),
                                         fourCharCode("kPSp"), fourCharCode("kPSF"),
                                         fourCharCode("kPSR")};
    op.expect(state != kFailedEnum,
              std::find(std::begin(kStates), std::end(kStates), state) != std::end(kStates),
              "the player state " + std::to_string(state));
    const std::shared_ptr<CZPlaylist> library = RVITunesHelper::libraryPlaylist();
    op.expect(library != nullptr, true, "the library playlist through the helper");
    if (library) op.text(library->name(), library_.master()->name, "name of the library playlist");
  }

  const ClientOptions& options_;
  const ExpectedLibrary& library_;
  const Clock::time_point deadline_;
  std::mt19937_64 random_;
  std::vector<size_t> owned_;                         // indexes into library_.tracks, ascending
  std::map<int64_t, std::vector<int64_t>> children_;  // folder -> sorted child IDs
  std::map<int32_t, WriteRecord> writes_;
  uint64_t writeCount_ = 0;
  std::shared_ptr<CZPlaylist> libraryPlaylist_;
  std::array<KindStats, kKindCount> stats_{};
  std::vector<std::string> problems_;
};

}  // namespace

int runClient(const ClientOptions& options) {
  auto sink = std::make_shared<ClientLogSink>();
  setNullLogSink(sink);
  ae::EventManager::setDefaultTimeout(std::chrono::seconds(options.timeoutSeconds));

  ClientReport report;
  const auto fail = [&](const std::string& why) {
    report.problems.push_back("client " + std::to_string(options.index) + ": " + why);
    (void)report.writeFile(options.reportPath);
    std::fprintf(stderr, "rvitunes-soak client %d: %s\n", options.index, why.c_str());
    return 1;
  };
  Result<ExpectedLibrary> library = readExpectedLibrary(options.expectedLibrary);
  if (!library) return fail(library.status().toString());

  // The single instances are made here, on one thread, before any other thread exists.
  const std::shared_ptr<Cadenza> controller = Cadenza::sharedInstance();
  const std::optional<std::string> version = controller->versionString();
  if (version != options.playerVersion) {
    return fail("the player answers version \"" + version.value_or("(none)") + "\", not \"" +
                options.playerVersion + "\"");
  }
  if (!CZPlaylistCache::sharedInstance()->playlistForPersistentId(CZPlaylistCache::kRootId)) {
    return fail("the first playlist cache has no root");
  }
  (void)RVITunesHelper::sharediTunesHelper();

  const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                           std::chrono::duration<double>(options.seconds));
  std::vector<std::unique_ptr<Worker>> workers;
  for (int t = 0; t < options.threads; ++t)
    workers.push_back(std::make_unique<Worker>(options, *library, t, deadline));
  {
    std::vector<std::jthread> threads;
    for (auto& worker : workers)
      threads.emplace_back([&worker] { worker->run(); });
  }

  // A reply that came after its sender gave up is read (and discarded) by the next sender, so a
  // few more requests collect the late ones before they are counted.
  const auto drainUntil = Clock::now() + std::chrono::seconds(3);
  while (sink->timeouts() > sink->late() && Clock::now() < drainUntil) {
    (void)controller->playlistCount();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }

  for (auto& worker : workers) {
    for (size_t k = 0; k < kKindCount; ++k)
      report.kinds[k] += worker->stats()[k];
    for (const std::string& problem : worker->problems()) {
      if (report.problems.size() < kMaxProblems) report.problems.push_back(problem);
    }
    for (const WriteRecord& w : worker->writes())
      report.writes.push_back(w);
  }
  report.timeouts = sink->timeouts();
  report.lateReplies = sink->late();
  report.complete = true;
  if (Status written = report.writeFile(options.reportPath); !written.ok()) {
    std::fprintf(stderr, "rvitunes-soak client %d: %s\n", options.index,
                 written.toString().c_str());
    return 1;
  }
  return 0;
}

}  // namespace rvitunes::soak
