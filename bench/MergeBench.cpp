// The merge of a newer load of the library file into an older one
// (RVITunesInfo::updateListLibrary), at 10,000 and 100,000 tracks, to show that it grows
// linearly with the library.
//
// The older tree is the generated file as read. The newer tree is a second, independent read of
// the same file with 1% more tracks (copies of existing records under fresh track IDs) and 1%
// more playlists (fresh persistent IDs) added in memory. The generator cannot make that newer
// file itself: with the same seed and more tracks its random stream diverges early, so the two
// files would share almost no track or playlist.
//
// Each iteration merges into a fresh shallow copy of the older tree (its own "Tracks"
// dictionary and "Playlists" array, the records shared); making and dropping the copy is not
// timed.
//
// Inputs: library-merge-10000.xml and library-merge-100000.xml in RVITUNES_BENCH_MERGE_DIR
// (the build generates them), or RVITUNES_MERGE_LIBRARY_10K / RVITUNES_MERGE_LIBRARY_100K.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include "rvitunes/helper/RVITunesInfo.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"

namespace {

using rvitunes::RVITunesInfo;
using rvitunes::plist::Array;
using rvitunes::plist::Dictionary;
using rvitunes::plist::Ref;
using rvitunes::plist::Value;

struct Inputs {
  Ref<Dictionary> older;
  std::shared_ptr<RVITunesInfo> newer;
  size_t olderTracks = 0;
  size_t olderPlaylists = 0;
  size_t addedTracks = 0;
  size_t addedPlaylists = 0;
};

std::string inputPath(int tracks) {
  const char* variable =
      tracks >= 100000 ? "RVITUNES_MERGE_LIBRARY_100K" : "RVITUNES_MERGE_LIBRARY_10K";
  if (const char* set = std::getenv(variable)) return set;
  return std::string(RVITUNES_BENCH_MERGE_DIR) + "/library-merge-" + std::to_string(tracks) +
         ".xml";
}

Ref<Dictionary> read(const std::string& path) {
  rvitunes::plist::ParseResult r = rvitunes::plist::PropertyList::readFile(path);
  if (!r.ok() || !r.root.isDictionary()) {
    std::fprintf(stderr, "bench_merge: cannot read %s: %s\n", path.c_str(), r.describe().c_str());
    return nullptr;
  }
  return r.root.dictionaryRef();
}

// Adds ceil(1%) tracks and playlists to `root`, under IDs no record of it has.
void growByOnePercent(Dictionary& root, size_t& addedTracks, size_t& addedPlaylists) {
  Dictionary& tracks = *root.get("Tracks").asDictionary();
  Array& playlists = *root.get("Playlists").asArray();
  int64_t nextId = 0;
  for (const auto& entry : tracks) {
    nextId = std::max(nextId, entry.value.asDictionary()->get("Track ID").longLongValue());
  }
  const size_t trackCount = tracks.size();
  addedTracks = (trackCount + 99) / 100;
  for (size_t i = 0; i < addedTracks; ++i) {
    nextId += 2;
    Ref<Dictionary> copy = Dictionary::create();
    for (const auto& entry : *tracks.entryAt(i).value.asDictionary())
      copy->set(entry.key, entry.value);
    copy->set("Track ID", Value::integer(nextId));
    tracks.set(Value::string(std::to_string(nextId)), Value(copy));
  }
  const size_t playlistCount = playlists.size();
  addedPlaylists = (playlistCount + 99) / 100;
  for (size_t i = 0; i < addedPlaylists; ++i) {
    Ref<Dictionary> copy = Dictionary::create();
    for (const auto& entry : *playlists[playlistCount - 1 - i].asDictionary()) {
      copy->set(entry.key, entry.value);
    }
    char pid[17];
    std::snprintf(pid, sizeof pid, "%016zX", size_t{0xFEED0000} + i);
    copy->set("Playlist Persistent ID", Value::string(pid));
    playlists.push_back(Value(copy));
  }
}

const Inputs* inputsFor(int tracks) {
  static std::map<int, std::unique_ptr<Inputs>> cache;
  auto found = cache.find(tracks);
  if (found != cache.end()) return found->second.get();
  auto inputs = std::make_unique<Inputs>();
  std::string path = inputPath(tracks);
  inputs->older = read(path);
  Ref<Dictionary> newer = read(path);
  if (!inputs->older || !newer) return cache.emplace(tracks, nullptr).first->second.get();
  inputs->olderTracks = inputs->older->get("Tracks").asDictionary()->size();
  inputs->olderPlaylists = inputs->older->get("Playlists").asArray()->size();
  growByOnePercent(*newer, inputs->addedTracks, inputs->addedPlaylists);
  inputs->newer = RVITunesInfo::infoWithLibrary(newer);
  return cache.emplace(tracks, std::move(inputs)).first->second.get();
}

// A copy of `root` whose "Tracks" and "Playlists" containers are its own.
Ref<Dictionary> receiverCopy(const Dictionary& root) {
  Ref<Dictionary> copy = Dictionary::create();
  for (const auto& entry : root)
    copy->set(entry.key, entry.value);
  Ref<Dictionary> tracks = Dictionary::create();
  const Dictionary& oldTracks = *root.get("Tracks").asDictionary();
  tracks->reserve(oldTracks.size());
  for (const auto& entry : oldTracks)
    tracks->set(entry.key, entry.value);
  copy->set("Tracks", Value(tracks));
  copy->set("Playlists", Value(Array::create(root.get("Playlists").asArray()->items())));
  return copy;
}

void BM_MergeNewerLoad(benchmark::State& state) {
  const Inputs* inputs = inputsFor(static_cast<int>(state.range(0)));
  if (inputs == nullptr) {
    state.SkipWithError("no input library (see the comment at the top of MergeBench.cpp)");
    return;
  }
  for (auto _ : state) {
    state.PauseTiming();
    std::shared_ptr<RVITunesInfo> receiver =
        RVITunesInfo::infoWithLibrary(receiverCopy(*inputs->older));
    state.ResumeTiming();
    receiver->updateListLibrary(inputs->newer);
    state.PauseTiming();
    const size_t tracks = receiver->library()->get("Tracks").asDictionary()->size();
    const size_t playlists = receiver->library()->get("Playlists").asArray()->size();
    if (tracks != inputs->olderTracks + inputs->addedTracks ||
        playlists != inputs->olderPlaylists + inputs->addedPlaylists) {
      state.SkipWithError("the merge added the wrong number of records");
    }
    receiver.reset();
    state.ResumeTiming();
  }
  state.counters["tracks"] = static_cast<double>(inputs->olderTracks);
  state.counters["added"] = static_cast<double>(inputs->addedTracks);
  state.SetItemsProcessed(state.iterations() *
                          static_cast<int64_t>(inputs->olderTracks + inputs->addedTracks));
}
BENCHMARK(BM_MergeNewerLoad)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
