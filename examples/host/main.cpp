// rvitunes-host-example: the smallest host application of the RVITunesHelper framework.
//
// It goes through the start-up a desktop media application goes through: find the iTunes
// library file, load it, build the display items of its playlists and tracks, and show them;
// then look for a running player on the event bus and show what it plays. A real host would
// fill its playlist and track views where this prints lines.
//
//   rvitunes-host-example ["path/to/iTunes Music Library.xml"]
//
// Without an argument the framework looks the file up itself (the stored choice, the iApps
// list of recent libraries, the default location under ~/Music), and may ask the user.

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include <rvitunes/base/Date.h>
#include <rvitunes/cadenza/CZTrack.h>
#include <rvitunes/cadenza/Cadenza.h>
#include <rvitunes/helper/RVITunesHelper.h>
#include <rvitunes/helper/RVITunesIcons.h>
#include <rvitunes/helper/RVITunesInfo.h>
#include <rvitunes/helper/RVITunesPlaylist.h>
#include <rvitunes/helper/RVITunesTrackItem.h>

using namespace rvitunes;

namespace {

constexpr size_t kTracksShown = 5;

// What sort of playlist a record of the library file is, from the keys the player writes.
const char* kindOf(const plist::Dictionary& record) {
  const auto isTrue = [&](const char* key) {
    const plist::Value* value = record.find(key);
    return value != nullptr && value->boolValue();
  };
  if (isTrue("Master")) return "library";
  if (record.contains("Distinguished Kind")) return "special";
  if (isTrue("Folder")) return "folder";
  if (record.contains("Smart Info")) return "smart";
  return "playlist";
}

// Milliseconds, the library file's unit, as m:ss.
std::string playTime(int64_t milliseconds) {
  const int64_t seconds = milliseconds / 1000;
  char text[32];
  std::snprintf(text, sizeof text, "%lld:%02lld", static_cast<long long>(seconds / 60),
                static_cast<long long>(seconds % 60));
  return text;
}

// The player's state codes, as a host would show them.
std::string stateName(OSType state) {
  switch (state) {
    case fourCharCode("kPSP"):
      return "playing";
    case fourCharCode("kPSp"):
      return "paused";
    case fourCharCode("kPSS"):
      return "stopped";
    case 0xFFFFFFFF:
      return "unknown (the player did not answer)";
    default:
      return fourCharString(state);
  }
}

std::string text(const std::optional<std::string>& value) {
  return value.value_or("-");
}

// The playlists as a host's source list shows them, and the first tracks of the first one.
void showLibrary(RVITunesHelper& helper) {
  const RVITunesInfo& info = *helper.itunesInfo();
  std::printf("playlists:\n");
  for (const std::shared_ptr<RVITunesPlaylist>& item : helper.playlistsItems()) {
    const plist::Ref<plist::Dictionary>& record = item->playlistInfo();
    std::printf("  %-24s %-9s %4llu tracks\n", text(item->playlistName()).c_str(), kindOf(*record),
                static_cast<unsigned long long>(info.trackCountForPlaylist(record)));
  }
  if (helper.playlistsItems().empty()) return;

  // The track items of a playlist, in its order: what a host's track view shows once the user
  // selects that playlist.
  const std::shared_ptr<RVITunesPlaylist>& first = helper.playlistsItems().front();
  const auto tracks = helper.tracksItemsForPlaylistID(first->playlistId());
  if (!tracks) return;
  std::printf("tracks of \"%s\" (first %zu of %zu):\n", text(first->playlistName()).c_str(),
              std::min(kTracksShown, tracks->size()), tracks->size());
  for (size_t i = 0; i < tracks->size() && i < kTracksShown; ++i) {
    const RVITunesTrackItem& track = *(*tracks)[i];
    std::printf("  %-28s %-20s %6s  %s\n", text(track.trackName()).c_str(),
                text(track.artistName()).c_str(), playTime(track.totalTime()).c_str(),
                text(track.fileType()).c_str());
  }
}

// The player, reached through the framework's controller exactly as a real one would be.
void showPlayer() {
  const std::optional<ApplicationInfo> app = RVITunesHelper::applicationInfoByName("iTunes");
  if (!app) {
    std::printf("player: none runs on the event bus\n");
    return;
  }
  const std::shared_ptr<Cadenza> player = Cadenza::sharedInstance();
  std::printf("player: %s, pid %d, version %s\n", app->name.c_str(), app->processIdentifier,
              text(player->versionString()).c_str());
  std::printf("state: %s\n", stateName(player->playerState()).c_str());
  if (const std::shared_ptr<CZTrack> track = player->currentTrack()) {
    std::printf("current track: %s - %s\n", text(track->name()).c_str(),
                text(track->artist()).c_str());
  } else {
    std::printf("current track: none\n");
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 || (argc == 2 && argv[1][0] == '-')) {
    std::fprintf(stderr, "usage: %s [LIBRARY-FILE]\n", argv[0]);
    return 2;
  }
  // One main object per process; the host keeps it for its whole life.
  std::shared_ptr<RVITunesHelper> helper = RVITunesHelper::sharediTunesHelper();

  // 1. Which file. The framework's own look-up may show an alert and an open panel, so a
  //    host calls it on its user-interface thread.
  const std::optional<std::string> path =
      argc == 2 ? std::optional<std::string>(argv[1]) : helper->playlistLibraryFilePath();
  if (!path) {
    std::fprintf(stderr, "no library file was chosen\n");
    return 1;
  }

  // 2. The icon dictionary first, so that the playlist items made below find their icons.
  RVITunesInfo::playlistsDisplayIcons();

  // 3. Load the file. The object exists even when the load failed; loadResult() says why.
  auto info = std::make_shared<RVITunesInfo>(*path);
  if (!info->library()) {
    const auto& error = info->loadResult().error;
    std::fprintf(stderr, "%s: %s (at byte %llu)\n", path->c_str(),
                 error ? error->message.c_str() : "not loaded",
                 static_cast<unsigned long long>(error ? error->offset : 0));
    return 1;
  }

  // 4. Hand the load to the main object, remember when it was read (isiTunesLibraryFileUpdate
  //    compares against this later), choose which playlists to show, and build the items.
  helper->setShowFlags(kShowAllPlaylists);
  helper->setItunesInfo(info);
  helper->setXmlInfodate(Date::now());
  helper->updateiTunesPlaylistsItem(helper.get());
  // updateiTunesTracksItem keeps the track list empty, as the original framework's did;
  // updateTrackItemsFromRecords is the variant that fills it.
  if (plist::Ref<plist::Dictionary> tracks = helper->itunesTracksInfo()) {
    helper->updateTrackItemsFromRecords(plist::Value(tracks));
  }

  const plist::Ref<plist::Dictionary> icons = RVITunesIcons();
  std::printf("library: %s\n", path->c_str());
  std::printf("loaded: %zu playlists, %zu tracks, %zu icons\n", helper->playlistsItems().size(),
              helper->tracksItems().size(), icons ? icons->size() : size_t{0});
  showLibrary(*helper);
  showPlayer();
  return 0;
}
