// Test support for the live playlists and tracks: a small library with one track that carries
// every property, and the reference player started in this process behind a recording tap, so
// that a test sees the player's real answers and every event the framework sent (or that it
// sent none).
//
// The live library, persistent IDs in brackets:
//   Library (master, 0x100)       Aria, Bolero, coda
//   Music (special, 0x101)        Aria, Bolero, coda
//   Years (folder, 0x200)
//     Chill (0xABCDEF0000000210)  Aria, coda
//   focus (0x220)                 Bolero
//   Empty (0x230)
// Tracks: Aria 301 (0xF00000000000B301, every property set), Bolero 302 (0xB302),
// coda 303 (0xABCDE).
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CadenzaTestSupport.h"
#include "RecordingPlayer.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/player/PlayerServer.h"
#include "rvitunes/player/PlayerVersion.h"

namespace rvitunes::cadenza_testing {

inline constexpr int32_t kAriaId = 301;
inline constexpr int32_t kBoleroId = 302;
inline constexpr int32_t kCodaId = 303;
inline constexpr int64_t kAriaPid = static_cast<int64_t>(0xF00000000000B301ULL);
inline constexpr int64_t kBoleroPid = 0xB302;
inline constexpr int64_t kCodaPid = 0xABCDE;
inline constexpr int64_t kLiveLibraryPid = 0x100;
inline constexpr int64_t kLiveMusicPid = 0x101;
inline constexpr int64_t kYearsPid = 0x200;
inline constexpr int64_t kChillPid = static_cast<int64_t>(0xABCDEF0000000210ULL);
inline constexpr int64_t kFocusPid = 0x220;
inline constexpr int64_t kEmptyPid = 0x230;

// Writes the live library and Aria's file into `directory`; answers the library's path.
inline std::string writeLiveLibrary(const std::string& directory) {
  const std::string music = directory + "/music";
  std::filesystem::create_directories(music);
  const std::string ariaFile = music + "/aria.mp3";
  std::ofstream(ariaFile, std::ios::binary) << "ID3";
  const auto key = [](const char* name, const char* type, const std::string& value) {
    return std::string("<key>") + name + "</key><" + type + ">" + value + "</" + type + ">";
  };
  const auto flag = [](const char* name) { return std::string("<key>") + name + "</key><true/>"; };
  const std::string aria =
      key("Track ID", "integer", "301") + key("Name", "string", "Aria") +
      key("Artist", "string", "Ann") + key("Album Artist", "string", "Various") +
      key("Album", "string", "Arias") + key("Composer", "string", "Bach") + flag("Compilation") +
      key("Genre", "string", "Baroque") + key("Grouping", "string", "Suites") +
      key("Comments", "string", "note") + key("Description", "string", "short") +
      key("Long Description", "string", "a long text") + key("Lyrics", "string", "la la") +
      key("Category", "string", "Music") + key("Kind", "string", "MPEG audio file") +
      key("Equalizer", "string", "Rock") + key("Year", "integer", "1999") +
      key("BPM", "integer", "120") + key("Bit Rate", "integer", "192") +
      key("Sample Rate", "integer", "44100") + key("Size", "integer", "123456") +
      key("Disc Count", "integer", "2") + key("Disc Number", "integer", "1") +
      key("Track Count", "integer", "12") + key("Track Number", "integer", "3") +
      key("Play Count", "integer", "5") + key("Play Date UTC", "date", "2020-01-02T03:04:05Z") +
      key("Skip Count", "integer", "2") + key("Skip Date", "date", "2021-02-03T04:05:06Z") +
      key("Rating", "integer", "80") + key("Volume Adjustment", "integer", "-20") +
      key("Date Added", "date", "2019-05-06T07:08:09Z") +
      key("Date Modified", "date", "2019-06-07T08:09:10Z") + flag("Podcast") +
      flag("Part Of Gapless Album") + flag("Bookmarkable") + key("Series", "string", "Show") +
      key("Episode", "string", "E1") + key("Episode Order", "integer", "4") +
      key("Season", "integer", "2") + key("Total Time", "integer", "200000") +
      key("Start Time", "integer", "1000") + key("Stop Time", "integer", "150000") +
      key("Bookmark", "integer", "5000") + key("Persistent ID", "string", "F00000000000B301") +
      key("Track Type", "string", "File") +
      key("Location", "string", Url::fileUrlWithPath(ariaFile).string());
  const auto plain = [&](const char* id, const char* name, const char* pid) {
    return key("Track ID", "integer", id) + key("Name", "string", name) +
           key("Total Time", "integer", "180000") + key("Persistent ID", "string", pid) +
           key("Track Type", "string", "File") +
           key("Location", "string", "file://localhost/nonexistent/" + std::string(id) + ".mp3");
  };
  const auto items = [&](std::vector<int> ids) {
    std::string out = "<key>Playlist Items</key><array>";
    for (int id : ids)
      out += "<dict>" + key("Track ID", "integer", std::to_string(id)) + "</dict>";
    return out + "</array>";
  };
  const auto playlist = [&](const char* id, const char* name, const char* pid,
                            const std::string& extra, std::vector<int> ids) {
    return "<dict>" + key("Name", "string", name) + key("Playlist ID", "integer", id) +
           key("Playlist Persistent ID", "string", pid) + extra + items(std::move(ids)) +
           "</dict>\n";
  };
  const std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>" +
      key("Major Version", "integer", "1") + key("Minor Version", "integer", "1") +
      "<key>Tracks</key><dict>\n<key>301</key><dict>" + aria + "</dict>\n<key>302</key><dict>" +
      plain("302", "Bolero", "000000000000B302") + "</dict>\n<key>303</key><dict>" +
      plain("303", "coda", "00000000000ABCDE") + "</dict>\n</dict><key>Playlists</key><array>\n" +
      playlist("400", "Library", "0000000000000100", flag("Master"), {301, 302, 303}) +
      playlist("401", "Music", "0000000000000101", flag("Music"), {301, 302, 303}) +
      playlist("410", "Years", "0000000000000200", flag("Folder"), {301, 303}) +
      playlist("411", "Chill", "ABCDEF0000000210",
               key("Parent Persistent ID", "string", "0000000000000200"), {301, 303}) +
      playlist("420", "focus", "0000000000000220", "", {302}) +
      playlist("430", "Empty", "0000000000000230", "", {}) + "</array></dict>\n</plist>\n";
  const std::string path = directory + "/iTunes Music Library.xml";
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

// The reference player emulating `version`, registered in a private event manager, and a
// recording application under 'hook' in the shared one that hands every event to it and its
// answer back. The controller state is clean before and after.
class TappedPlayer {
 public:
  explicit TappedPlayer(const std::string& version) {
    CleanControllerState::reset();
    library_ = writeLiveLibrary(directory_.path());
    player::PlayerServerOptions options;
    const auto parsed = player::PlayerVersion::parse(version);
    EXPECT_TRUE(parsed.has_value()) << version;
    if (parsed) options.version = *parsed;
    options.eventManager = &manager_;
    options.writeBack = false;
    options.tickInterval = std::chrono::milliseconds(0);
    auto server = player::PlayerServer::startInProcess(library_, std::move(options));
    EXPECT_TRUE(server.ok()) << server.status().toString();
    if (server.ok()) server_ = std::move(*server);
    tap_.respondWith([this](const ae::Descriptor& event, ae::Descriptor& reply) {
      return forward(event, reply);
    });
  }
  ~TappedPlayer() { CleanControllerState::reset(); }
  TappedPlayer(const TappedPlayer&) = delete;
  TappedPlayer& operator=(const TappedPlayer&) = delete;

  // Where the next event will be recorded.
  size_t mark() const { return tap_.count(); }
  // The printed events recorded since `mark`, the version reads left out.
  std::vector<std::string> eventsSince(size_t mark) const {
    const std::vector<std::string> all = tap_.printed();
    return withoutVersionReads(
        std::vector<std::string>(all.begin() + static_cast<std::ptrdiff_t>(mark), all.end()));
  }
  player::PlayerServer& server() { return *server_; }
  const std::string& library() const { return library_; }

 private:
  OSStatus forward(const ae::Descriptor& event, ae::Descriptor& reply) {
    if (reply.isNull()) {
      return manager_.send(event, nullptr, ae::kAENoReply | ae::kAENeverInteract,
                           ae::kAEDefaultTimeout);
    }
    ae::Descriptor answer;
    const OSStatus sent = manager_.send(event, &answer, ae::kAEWaitReply | ae::kAENeverInteract,
                                        ae::kAEDefaultTimeout);
    if (sent != noErr) return sent;
    for (const ae::AEKeyword key : {ae::keyDirectObject, ae::keyErrorString}) {
      if (const ae::Descriptor* value = answer.findParam(key)) {
        (void)reply.putParamDesc(key, value->duplicate());
      }
    }
    int32_t error = noErr;
    (void)answer.getParamPtr(ae::keyErrorNumber, ae::typeSInt32, nullptr, &error, sizeof error,
                             nullptr);
    return error;
  }

  ScratchDirectory directory_;
  std::string library_;
  ae::EventManager manager_;
  std::unique_ptr<player::PlayerServer> server_;
  RecordingPlayer tap_;
};

// True when some printed event contains `text`.
inline bool anyContains(const std::vector<std::string>& events, std::string_view text) {
  for (const std::string& e : events) {
    if (e.find(text) != std::string::npos) return true;
  }
  return false;
}

}  // namespace rvitunes::cadenza_testing
