#include "SoakRun.h"

#include <signal.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <thread>
#include <vector>

#include "SoakProcess.h"
#include "SoakReport.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/player/PlayerVersion.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"

namespace rvitunes::soak {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr uint64_t kMemorySlackKiB = 8 * 1024;
constexpr double kMemorySlackShare = 0.20;
constexpr auto kStartupLimit = std::chrono::seconds(30);

// A private folder for one run: the library, the bus directory, the logs and reports. Removed
// when the run passed, unless asked to keep it.
class Scratch {
 public:
  static Result<Scratch> make() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/rvitunes-soak.XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
      return Status::error(ioErr, "cannot make a scratch folder from " + pattern);
    }
    return Scratch(pattern);
  }
  Scratch(Scratch&& other) noexcept : path_(std::move(other.path_)), keep_(other.keep_) {
    other.path_.clear();
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  Scratch& operator=(Scratch&&) = delete;
  ~Scratch() {
    std::error_code ignored;
    if (!path_.empty() && !keep_) fs::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  void keep() { keep_ = true; }

 private:
  explicit Scratch(std::string path) : path_(std::move(path)) {}
  std::string path_;
  bool keep_ = false;
};

std::string sizeText(uint64_t kib) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f MiB", static_cast<double>(kib) / 1024.0);
  return text;
}

std::string lastLines(const std::string& path, size_t count) {
  std::ifstream in(path);
  std::vector<std::string> lines;
  std::string line;
  while (std::getline(in, line)) {
    lines.push_back(line);
    if (lines.size() > count) lines.erase(lines.begin());
  }
  std::string out;
  for (const std::string& l : lines)
    out += "    " + l + "\n";
  return out;
}

// Waits until the player answers on the bus (its version), within kStartupLimit.
bool waitForPlayer(ChildProcess& daemon) {
  ae::EventManager::setDefaultTimeout(std::chrono::seconds(2));
  const auto until = Clock::now() + kStartupLimit;
  while (Clock::now() < until) {
    if (!daemon.running()) return false;
    Cadenza::resetCachedVersion();
    if (Cadenza().versionString()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return false;
}

// Asks the player to quit, as a host would ('aevt'/'quit'), and waits for it to end; SIGTERM
// when it does not. Answers its exit status.
int stopPlayer(ChildProcess& daemon) {
  ae::Descriptor quit;
  const OSType target = fourCharCode("hook");
  if (ae::buildAppleEvent(ae::kCoreEventClass, ae::kAEQuitApplication, ae::typeApplSignature,
                          std::span(reinterpret_cast<const uint8_t*>(&target), sizeof target),
                          ae::kAutoGenerateReturnID, ae::kAnyTransactionID, &quit, nullptr,
                          "") == noErr) {
    (void)ae::EventManager::shared().send(quit, nullptr, ae::kAENoReply, ae::kAEDefaultTimeout);
  }
  if (std::optional<int> status = daemon.exitStatus(true, std::chrono::seconds(20))) return *status;
  return daemon.stop(std::chrono::seconds(10));
}

// Compares the ratings and play counts the clients wrote last with the library file the
// daemon wrote back when it stopped; answers the number confirmed and the first differences.
std::pair<size_t, std::vector<std::string>> checkWriteBack(const std::string& path,
                                                           const std::vector<WriteRecord>& writes) {
  std::vector<std::string> problems;
  plist::ParseResult parsed = plist::PropertyList::readFile(path);
  const plist::Dictionary* top = parsed.ok() ? parsed.root.asDictionary() : nullptr;
  const plist::Value* tracks = top != nullptr ? top->find("Tracks") : nullptr;
  if (tracks == nullptr || !tracks->isDictionary()) {
    problems.push_back("the library file written back does not read: " + parsed.describe());
    return {0, problems};
  }
  size_t confirmed = 0;
  for (const WriteRecord& w : writes) {
    const plist::Value* record = tracks->asDictionary()->find(std::to_string(w.trackId));
    const plist::Dictionary* track = record != nullptr ? record->asDictionary() : nullptr;
    const auto integer = [&](std::string_view key) -> int64_t {
      const plist::Value* value = track != nullptr ? track->find(key) : nullptr;
      return value != nullptr && value->isInteger() ? value->longLongValue() : 0;
    };
    if (track != nullptr && integer("Rating") == w.rating && integer("Play Count") == w.playCount) {
      ++confirmed;
    } else if (problems.size() < 5) {
      problems.push_back("track " + std::to_string(w.trackId) + " in the written file: rating " +
                         std::to_string(integer("Rating")) + ", play count " +
                         std::to_string(integer("Play Count")) + "; last written " +
                         std::to_string(w.rating) + ", " + std::to_string(w.playCount));
    }
  }
  return {confirmed, problems};
}

struct Verdict {
  std::vector<std::string> failures;
  void fail(std::string why) { failures.push_back(std::move(why)); }
  bool passed() const { return failures.empty(); }
};

void printSampleRow(const char* label, const std::optional<ProcessSample>& sample) {
  if (!sample) {
    std::printf("  %-22s %9s %12s %12s\n", label, "-", "-", "-");
    return;
  }
  std::printf("  %-22s %9.1f %12llu %12zu\n", label, sample->seconds,
              static_cast<unsigned long long>(sample->rssKiB), sample->descriptors);
}

}  // namespace

int runSoak(const RunOptions& options) {
  const auto failStart = [](const std::string& why) {
    std::printf("soak: FAIL: %s\n", why.c_str());
    return 2;
  };
  Result<Scratch> made = Scratch::make();
  if (!made) return failStart(made.status().toString());
  Scratch scratch = std::move(*made);
  if (options.keep) scratch.keep();

  // 1. The library: generated, or a copy of the one named, since the daemon rewrites it.
  const std::string libraryFolder = scratch / "library";
  fs::create_directories(libraryFolder);
  std::string libraryPath;
  std::string librarySource;
  if (options.library.empty()) {
    Result<std::string> generated = generateLibrary(libraryFolder, options.generator);
    if (!generated) return failStart("cannot generate a library: " + generated.status().toString());
    libraryPath = *generated;
    librarySource = "generated, seed " + std::to_string(options.generator.seed);
  } else {
    libraryPath = libraryFolder + "/iTunes Music Library.xml";
    std::error_code error;
    fs::copy_file(options.library, libraryPath, error);
    if (error) return failStart("cannot copy " + options.library + ": " + error.message());
    librarySource = options.library;
  }
  const std::string expectedPath = scratch / "expected.xml";
  {
    std::error_code error;
    fs::copy_file(libraryPath, expectedPath, error);
    if (error) return failStart("cannot copy the library: " + error.message());
  }
  Result<ExpectedLibrary> library = readExpectedLibrary(expectedPath);
  if (!library) return failStart(library.status().toString());
  if (options.library.empty()) {
    // The checks are only as sharp as the library: a generated one must give the clients
    // pictures to compare, nested playlists and names they can count a search's answers by.
    const bool covers = std::any_of(library->tracks.begin(), library->tracks.end(),
                                    [](const ExpectedTrack& t) { return t.cover != nullptr; });
    const bool nested =
        std::any_of(library->playlists.begin(), library->playlists.end(),
                    [](const ExpectedPlaylist& p) { return p.parentPersistentId != 0; });
    if (!covers || !nested || !library->asciiNames) {
      return failStart("the generated library lacks covers, nested playlists or ASCII names");
    }
  }

  // 2. A private bus: every process of the run finds the player here and nowhere else.
  const std::string run = scratch / "run";
  fs::create_directories(run);
  fs::permissions(run, fs::perms::owner_all, fs::perm_options::replace);
  ::setenv("XDG_RUNTIME_DIR", run.c_str(), 1);

  const std::string playerVersion = options.playerVersion.empty()
                                        ? std::string(player::PlayerVersion::kDefaultText)
                                        : options.playerVersion;
  std::vector<std::string> daemonArgs = {options.player, "--library", libraryPath,
                                         "--player-version", playerVersion};
  const std::string daemonLog = scratch / "player.log";
  Result<ChildProcess> started = ChildProcess::start(daemonArgs, daemonLog);
  if (!started)
    return failStart("cannot start " + options.player + ": " + started.status().toString());
  ChildProcess daemon = std::move(*started);
  if (!waitForPlayer(daemon)) {
    scratch.keep();
    std::printf("%s", lastLines(daemonLog, 20).c_str());
    return failStart("the player did not answer within 30 s (log: " + daemonLog + ")");
  }

  std::printf(
      "rvitunes-soak: %.0f s, %d clients x %d threads, %zu tracks and %zu playlists (%s), "
      "player %s, pid %d\n",
      options.seconds, options.clients, options.threads, library->tracks.size(),
      library->playlists.size(), librarySource.c_str(), playerVersion.c_str(),
      static_cast<int>(daemon.pid()));
  std::fflush(stdout);

  Verdict verdict;
  const auto begin = Clock::now();
  const auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - begin).count(); };
  std::optional<ProcessSample> startSample = sampleProcess(daemon.pid());
  if (!startSample) return failStart("the player is gone before the clients started");

  // 3. The clients.
  const std::string self = selfExecutable();
  std::vector<ChildProcess> clients;
  for (int c = 0; c < options.clients; ++c) {
    std::vector<std::string> args = {self,
                                     "client",
                                     "--expected",
                                     expectedPath,
                                     "--report",
                                     scratch / ("client-" + std::to_string(c) + ".report"),
                                     "--index",
                                     std::to_string(c),
                                     "--clients",
                                     std::to_string(options.clients),
                                     "--threads",
                                     std::to_string(options.threads),
                                     "--seconds",
                                     std::to_string(options.seconds),
                                     "--seed",
                                     std::to_string(options.generator.seed),
                                     "--timeout",
                                     std::to_string(options.timeoutSeconds),
                                     "--player-version",
                                     playerVersion};
    Result<ChildProcess> client =
        ChildProcess::start(args, scratch / ("client-" + std::to_string(c) + ".log"));
    if (!client) {
      verdict.fail("cannot start client " + std::to_string(c) + ": " + client.status().toString());
      break;
    }
    clients.push_back(std::move(*client));
  }

  // 4. Watch the daemon while they work.
  const double warmup =
      options.warmup >= 0 ? options.warmup : std::clamp(options.seconds / 4, 15.0, 60.0);
  std::vector<ProcessSample> samples;  // taken while every client still ran
  const double hangLimit = options.seconds + 2.0 * options.timeoutSeconds + 30;
  double nextSample = options.sampleInterval;
  bool allRunning = true;
  for (;;) {
    size_t running = 0;
    for (ChildProcess& client : clients)
      running += client.running() ? 1 : 0;
    if (running == 0) break;
    allRunning = allRunning && running == clients.size();
    if (!daemon.running()) {
      verdict.fail("the player died during the run (status " +
                   std::to_string(daemon.exitStatus(false).value_or(-1)) + ")");
      break;
    }
    if (elapsed() > hangLimit) {
      verdict.fail("clients still running after " + std::to_string(static_cast<int>(hangLimit)) +
                   " s");
      break;
    }
    if (elapsed() >= nextSample) {
      nextSample += options.sampleInterval;
      if (std::optional<ProcessSample> sample = sampleProcess(daemon.pid()); sample && allRunning) {
        sample->seconds = elapsed();
        samples.push_back(*sample);
        if (options.progress) {
          std::printf("  %6.1f s  RSS %s  descriptors %zu\n", sample->seconds,
                      sizeText(sample->rssKiB).c_str(), sample->descriptors);
          std::fflush(stdout);
        }
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  for (ChildProcess& client : clients) {
    if (client.running()) client.stop(std::chrono::seconds(2));
  }
  startSample->seconds = 0;

  // 5. With the clients gone, their connections must be closed again.
  std::optional<ProcessSample> idle;
  for (const auto until = Clock::now() + std::chrono::seconds(5); Clock::now() < until;) {
    idle = sampleProcess(daemon.pid());
    if (!idle || idle->descriptors <= startSample->descriptors) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  if (idle) idle->seconds = elapsed();

  // 6. Stop the daemon; it writes the last changes back.
  const int daemonStatus = stopPlayer(daemon);
  if (daemonStatus != 0)
    verdict.fail("the player exited with status " + std::to_string(daemonStatus));

  // 7. The clients' findings.
  std::array<KindStats, kKindCount> totals{};
  uint64_t timeouts = 0;
  uint64_t late = 0;
  std::vector<WriteRecord> writes;
  std::vector<std::string> problems;
  for (int c = 0; c < static_cast<int>(clients.size()); ++c) {
    const int status = clients[static_cast<size_t>(c)].exitStatus(false).value_or(255);
    Result<ClientReport> report =
        ClientReport::readFile(scratch / ("client-" + std::to_string(c) + ".report"));
    if (status != 0 || !report || !report->complete) {
      verdict.fail("client " + std::to_string(c) + " ended with status " + std::to_string(status) +
                   (report && report->complete ? "" : " without a complete report"));
      problems.push_back("client " + std::to_string(c) + " log:\n" +
                         lastLines(scratch / ("client-" + std::to_string(c) + ".log"), 10));
    }
    if (!report) continue;
    for (size_t k = 0; k < kKindCount; ++k)
      totals[k] += report->kinds[k];
    timeouts += report->timeouts;
    late += report->lateReplies;
    writes.insert(writes.end(), report->writes.begin(), report->writes.end());
    for (const std::string& p : report->problems)
      problems.push_back("client " + std::to_string(c) + ": " + p);
  }
  const auto [confirmed, writeProblems] = checkWriteBack(libraryPath, writes);
  problems.insert(problems.end(), writeProblems.begin(), writeProblems.end());

  // 8. The table.
  KindStats all;
  std::printf("\n  %-12s %11s %11s %11s %8s %9s\n", "kind", "operations", "checked", "mismatched",
              "errors", "timeouts");
  for (size_t k = 0; k < kKindCount; ++k) {
    const KindStats& s = totals[k];
    all += s;
    std::printf(
        "  %-12s %11llu %11llu %11llu %8llu %9llu\n",
        std::string(kindName(static_cast<Kind>(k))).c_str(),
        static_cast<unsigned long long>(s.operations), static_cast<unsigned long long>(s.checked),
        static_cast<unsigned long long>(s.mismatches), static_cast<unsigned long long>(s.errors),
        static_cast<unsigned long long>(s.timeouts));
  }
  std::printf(
      "  %-12s %11llu %11llu %11llu %8llu %9llu\n", "total",
      static_cast<unsigned long long>(all.operations), static_cast<unsigned long long>(all.checked),
      static_cast<unsigned long long>(all.mismatches), static_cast<unsigned long long>(all.errors),
      static_cast<unsigned long long>(all.timeouts));
  const uint64_t lost = timeouts > late ? timeouts - late : 0;
  std::printf("\n  requests timed out %llu, replies arriving late %llu, replies lost %llu\n",
              static_cast<unsigned long long>(timeouts), static_cast<unsigned long long>(late),
              static_cast<unsigned long long>(lost));
  std::printf("  last writes found in the library file written back: %zu of %zu\n", confirmed,
              writes.size());

  // Descriptors have grown when a count above the warm one stays for two samples in a row, or
  // is the last one: a file the player writes at the moment of one sample is not a leak.
  std::optional<ProcessSample> warm;
  std::optional<ProcessSample> end;
  std::optional<ProcessSample> peak;
  std::optional<ProcessSample> grown;
  std::optional<ProcessSample> above;  // the previous sample, when it was above the warm count
  for (const ProcessSample& s : samples) {
    if (!warm && s.seconds >= warmup) warm = s;
    if (!warm) continue;
    end = s;
    if (!peak || s.rssKiB > peak->rssKiB) peak = s;
    const bool isAbove = s.descriptors > warm->descriptors;
    if (isAbove && above && !grown) grown = s;
    above = isAbove ? std::optional(s) : std::nullopt;
  }
  if (!grown && end && end->descriptors > warm->descriptors) grown = end;
  if (grown) {
    verdict.fail(
        "the player's descriptors grew after warm-up: " + std::to_string(warm->descriptors) +
        " at " + std::to_string(static_cast<int>(warm->seconds)) + " s, " +
        std::to_string(grown->descriptors) + " at " +
        std::to_string(static_cast<int>(grown->seconds)) + " s");
  }
  std::printf("\n  %-22s %9s %12s %12s\n", "player", "seconds", "RSS KiB", "descriptors");
  printSampleRow("start (no clients)", startSample);
  printSampleRow("warm", warm);
  printSampleRow("end", end);
  printSampleRow("peak RSS after warm", peak);
  printSampleRow("idle (clients gone)", idle);
  std::printf("  (%zu samples, every %.1f s, warm-up %.0f s)\n", samples.size(),
              options.sampleInterval, warmup);

  if (warm && peak) {
    const uint64_t bound =
        warm->rssKiB + std::max<uint64_t>(kMemorySlackKiB,
                                          static_cast<uint64_t>(kMemorySlackShare *
                                                                static_cast<double>(warm->rssKiB)));
    if (peak->rssKiB > bound) {
      verdict.fail("the player's memory grew after warm-up: " + sizeText(warm->rssKiB) + " to " +
                   sizeText(peak->rssKiB) + " (bound " + sizeText(bound) + ")");
    }
  } else {
    verdict.fail("no sample after the warm-up of " + std::to_string(static_cast<int>(warmup)) +
                 " s: run longer or warm up sooner");
  }
  if (idle && idle->descriptors > startSample->descriptors) {
    verdict.fail("the player kept " + std::to_string(idle->descriptors - startSample->descriptors) +
                 " descriptors after the clients left");
  }
  if (all.mismatches > 0) verdict.fail(std::to_string(all.mismatches) + " mismatched answers");
  if (all.errors > 0)
    verdict.fail(std::to_string(all.errors) + " operations failed without a time-out");
  if (lost > 0) verdict.fail(std::to_string(lost) + " replies never came");
  if (confirmed != writes.size()) {
    verdict.fail(std::to_string(writes.size() - confirmed) +
                 " last writes missing from the library file");
  }
  if (all.operations == 0) verdict.fail("no operation ran");

  if (!problems.empty()) {
    std::printf("\n  first problems:\n");
    for (size_t i = 0; i < problems.size() && i < 12; ++i)
      std::printf("    %s\n", problems[i].c_str());
  }
  if (!verdict.passed()) {
    scratch.keep();
    std::printf("\n  player log (last lines of %s):\n%s", daemonLog.c_str(),
                lastLines(daemonLog, 8).c_str());
  } else if (options.keep) {
    std::printf("\n  scratch folder kept: %s\n", scratch.path().c_str());
  }

  std::ostringstream line;
  if (verdict.passed()) {
    line << "soak: PASS: " << all.checked << " answers checked in " << all.operations
         << " operations over " << static_cast<int>(elapsed()) << " s; player RSS "
         << sizeText(startSample->rssKiB) << " -> " << sizeText(end ? end->rssKiB : 0)
         << ", descriptors " << (warm ? warm->descriptors : 0) << " -> "
         << (end ? end->descriptors : 0);
  } else {
    line << "soak: FAIL: ";
    for (size_t i = 0; i < verdict.failures.size(); ++i)
      line << (i > 0 ? "; " : "") << verdict.failures[i];
    line << " (kept " << scratch.path() << ")";
  }
  std::printf("\n%s\n", line.str().c_str());
  return verdict.passed() ? 0 : 1;
}

}  // namespace rvitunes::soak
