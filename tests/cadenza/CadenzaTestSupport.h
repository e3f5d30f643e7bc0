// Test support for the controller, the playlist cache and the enumerators: the reference
// player started in this process on the small tree library of data/, a clean slate of the
// process-wide state (shared controller, shared cache, cached version) around every test, and
// responders for the recording player.
//
// The tree library (data/PlaylistTree.xml), persistent IDs in brackets:
//   Library (master, 0x100)            tracks Anthem, Ballad, Canon, Dirge
//   Music 0x201, Movies 0x202, TV Shows 0x203, Podcasts 0x204, Audiobooks 0x205, Videos 0x206
//   Purchased Music 0x207, Party Shuffle 0x208
//   Genius 0x209                       kind 'kSpG' from 8.0, an ordinary playlist before
//   Rock (folder, 0x300)
//     Classics 0xABCDE
//     Deep (folder, 0x302)
//       Cuts 0x303
//   Zebra 0xF000000000000400 (negative as a signed ID), alpha 0x401
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "RecordingPlayer.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/ae/Printer.h"
#include "rvitunes/base/CapturingLogSink.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/CZPlaylistCache.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/player/PlayerServer.h"
#include "rvitunes/player/PlayerVersion.h"
#include "support/SystemLogCapture.h"

namespace rvitunes::cadenza_testing {

inline std::string treeLibraryPath() {
  return std::string(RVITUNES_CADENZA_TEST_DATA) + "/PlaylistTree.xml";
}

// Persistent IDs of the tree library.
inline constexpr int64_t kLibraryPid = 0x100;
inline constexpr int64_t kGeniusPid = 0x209;
inline constexpr int64_t kRockPid = 0x300;
inline constexpr int64_t kClassicsPid = 0xABCDE;
inline constexpr int64_t kDeepPid = 0x302;
inline constexpr int64_t kCutsPid = 0x303;
inline constexpr int64_t kZebraPid = static_cast<int64_t>(0xF000000000000400ULL);
inline constexpr int64_t kAlphaPid = 0x401;
inline constexpr int64_t kCanonPid = static_cast<int64_t>(0xF00000000000A003ULL);

// Forgets the shared controller, the shared cache and the cached version, now and when the
// object goes, so that every test meets the player of its own version.
struct CleanControllerState {
  CleanControllerState() { reset(); }
  ~CleanControllerState() { reset(); }
  CleanControllerState(const CleanControllerState&) = delete;
  CleanControllerState& operator=(const CleanControllerState&) = delete;
  static void reset() {
    Cadenza::unSharedInstance();
    CZPlaylistCache::releaseSharedInstance();
    Cadenza::resetCachedVersion();
  }
};

// The reference player in this process on the tree library, emulating `version`.
inline std::unique_ptr<player::PlayerServer> startTreePlayer(
    const std::string& version, const std::string& library = treeLibraryPath()) {
  player::PlayerServerOptions options;
  const auto parsed = player::PlayerVersion::parse(version);
  EXPECT_TRUE(parsed.has_value()) << version;
  if (parsed) options.version = *parsed;
  options.writeBack = false;
  options.tickInterval = std::chrono::milliseconds(0);
  auto server = player::PlayerServer::startInProcess(library, std::move(options));
  EXPECT_TRUE(server.ok()) << server.status().toString();
  return server.ok() ? std::move(*server) : nullptr;
}

using rvitunes::testing::support::SystemLogCapture;

inline ae::Descriptor built(std::string_view text) {
  ae::Descriptor out;
  EXPECT_EQ(ae::buildDesc(&out, nullptr, text), noErr) << text;
  return out;
}

// ---- Reading recorded events ------------------------------------------------------------------

// The code a specifier's field holds ('want', 'seld' of a property), 0 when there is none.
inline OSType codeOfField(const ae::Descriptor& specifier, const char (&key)[5]) {
  const ae::Descriptor* field = specifier.findParam(fourCharCode(key));
  if (field == nullptr) return 0;
  auto code = ae::codeValue(*field);
  return code ? *code : 0;
}

// The direct object of an event (the null descriptor when absent).
inline const ae::Descriptor& directOf(const ae::Descriptor& event) {
  const ae::Descriptor* direct = event.findParam(ae::keyDirectObject);
  return direct != nullptr ? *direct : ae::nullDescriptor();
}

inline bool isGetData(const ae::Descriptor& event) {
  return event.eventClass() == ae::kAECoreSuite && event.eventID() == ae::kAEGetData;
}

inline bool isCount(const ae::Descriptor& event) {
  return event.eventClass() == ae::kAECoreSuite && event.eventID() == ae::kAECountElements;
}

// A property read of `property` ('vers', 'pSpK', ...).
inline bool isPropertyRead(const ae::Descriptor& event, const char (&property)[5]) {
  return isGetData(event) && codeOfField(directOf(event), "form") == fourCharCode("prop") &&
         codeOfField(directOf(event), "seld") == fourCharCode(property);
}

// The 1-based position an element read asks for; 0 when it is no such read.
inline int64_t elementPosition(const ae::Descriptor& event) {
  if (!isGetData(event) || codeOfField(directOf(event), "form") != fourCharCode("indx")) return 0;
  const ae::Descriptor* seld = directOf(event).findParam(fourCharCode("seld"));
  if (seld == nullptr) return 0;
  auto value = ae::integerValue(*seld);
  return value ? *value : 0;
}

inline OSStatus answerWith(ae::Descriptor& reply, ae::Descriptor value) {
  if (!reply.isNull()) (void)reply.putParamDesc(ae::keyDirectObject, std::move(value));
  return noErr;
}

// Answers the application's 'vers' as `version` does and hands every other event to `rest`
// (no answer when `rest` is empty).
inline RecordingPlayer::Responder answeringVersion(const std::string& version,
                                                   RecordingPlayer::Responder rest = {}) {
  const auto parsed = player::PlayerVersion::parse(version);
  auto vers = std::make_shared<ae::Descriptor>();
  if (parsed) *vers = parsed->versDescriptor();
  return [vers, rest](const ae::Descriptor& event, ae::Descriptor& reply) -> OSStatus {
    if (isPropertyRead(event, "vers")) return answerWith(reply, vers->duplicate());
    return rest ? rest(event, reply) : noErr;
  };
}

// The printed events that are not the version read.
inline std::vector<std::string> withoutVersionReads(const std::vector<std::string>& printed) {
  std::vector<std::string> out;
  for (const std::string& line : printed) {
    if (line.find("type('vers')") == std::string::npos) out.push_back(line);
  }
  return out;
}

// The lines the framework logged: an in-process reference player writes its own lines
// ("player: ...") to the same channel.
inline std::vector<std::string> frameworkLines(const LogCapture& log) {
  std::vector<std::string> out;
  for (const std::string& line : log.lines()) {
    if (line.rfind("player: ", 0) != 0) out.push_back(line);
  }
  return out;
}

// The names of playlists.
inline std::vector<std::string> namesOf(const std::vector<std::shared_ptr<CZPlaylist>>& list) {
  std::vector<std::string> names;
  for (const auto& playlist : list)
    names.push_back(playlist ? playlist->name().value_or("<no name>") : "<null>");
  return names;
}

inline std::vector<std::string> namesOf(const std::vector<std::shared_ptr<CZTrack>>& list) {
  std::vector<std::string> names;
  for (const auto& track : list)
    names.push_back(track ? track->name().value_or("<no name>") : "<null>");
  return names;
}

}  // namespace rvitunes::cadenza_testing
