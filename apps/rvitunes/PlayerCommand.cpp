// rvitunes player: runs the reference player (the same code as the rvitunes-player daemon),
// checks that one answers on the event bus, and controls the running player through the
// framework's own classes (Cadenza, CZPlaylistCache, CZPlaylist, CZTrack), as a host would.

#include <cctype>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "JsonOut.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/base/Date.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/CZPlaylistCache.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/cadenza/LongLongValue.h"
#include "rvitunes/helper/RVITunesHelper.h"
#include "rvitunes/player/Daemon.h"
#include "rvitunes/player/PlayerCodes.h"
#include "rvitunes/player/PlayerServer.h"
#include "rvitunes/player/PlayerVersion.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes::cli {

namespace {

constexpr const char* kPlayerUsage =
    "usage: rvitunes player serve --file FILE [--player-version V] [--name NAME] [--verbose]\n"
    "       rvitunes player ping [--timeout SECONDS] [--json]\n"
    "       rvitunes player COMMAND [ARGS] [--json] [--file FILE [--player-version V]]\n"
    "                               [--timeout SECONDS] [--verbose]\n"
    "\n"
    "  serve   run the reference player on the event bus under 'hook' until it is told to\n"
    "          quit (the quit event, SIGINT, SIGTERM); the same as rvitunes-player\n"
    "  ping    ask the running player for its name and version and show the round trip\n"
    "\n"
    "control commands ('rvitunes player COMMAND --help' shows one of them):\n"
    "  status                       state, position, volume, equalizer, current track and "
    "playlist\n"
    "  play | pause | play-pause | next | previous | back | stop | resume | fast-forward | rewind\n"
    "  play-file PATH [--script]    play a file (--script: once, through the framework's script)\n"
    "  volume [N]                   show the volume, or set it (0 to 100)\n"
    "  eq [on|off]                  show whether the equalizer is on, or switch it\n"
    "  version                      the player's version\n"
    "  playlists [--user]           the playlist tree (--user: folders and ordinary playlists)\n"
    "  tracks PLAYLIST              the tracks of a playlist\n"
    "  track PID                    every property of a track\n"
    "  set PID PROPERTY VALUE       change a property of a track (names as 'track' shows them)\n"
    "  search TEXT [--in PLAYLIST] [--field FIELD]\n"
    "                               tracks matching TEXT (in the library unless --in); FIELD is\n"
    "                               all, artists, albums, composers, songs, visible or a code\n"
    "  add FILE [--to PLAYLIST]     add a file to the library, or to a playlist\n"
    "  selection                    the tracks selected in the player\n"
    "  artwork PID [--save DIR]     a track's artwork: size of each picture (--save: as\n"
    "                               DIR/PID-N.png)\n"
    "  artwork PID --set IMAGE [--index N]\n"
    "                               make the picture in IMAGE artwork N (default 0; N = the\n"
    "                               count adds one)\n"
    "  artwork PID --delete [--index N]\n"
    "                               delete artwork N, or all of it\n"
    "\n"
    "  PID and PLAYLIST are persistent IDs in hexadecimal (as the listings show them);\n"
    "  PLAYLIST may also be \"library\".\n"
    "  Track lists (tracks, search, add, selection) print a line per track: persistent ID,\n"
    "  name, artist, album and time, separated by tabs.\n"
    "\n"
    "options:\n"
    "  --json             one JSON document instead of text, for every command that prints\n"
    "                     something; persistent IDs as strings of 16 hexadecimal digits\n"
    "  --file FILE        start a player in this process on the library FILE instead of\n"
    "                     talking to the running one (changes are written back to FILE);\n"
    "                     --embedded FILE is the older spelling. With serve: the library to\n"
    "                     serve (--library FILE, the daemon's spelling, is the same)\n"
    "  --player-version V the version that player pretends to be (default 7.7.1)\n"
    "  --timeout SECONDS  how long to wait for each answer (default 10; ping: 5)\n"
    "  --verbose          show the framework's diagnostic lines on standard error\n"
    "  -h, --help         show this help\n"
    "\n"
    "exit status: 0 success, 1 the player did not start, is not running, did not answer or\n"
    "refused, 2 wrong usage.\n";

constexpr const char* kPingUsage =
    "usage: rvitunes player ping [--timeout SECONDS] [--json]\n"
    "\n"
    "Asks the running player for its name and version and shows the round trip.\n"
    "\n"
    "  --timeout SECONDS  how long to wait for each answer (default 5)\n"
    "  --json             one object {\"name\", \"version\", \"roundTripMs\", \"firstRequestMs\"}\n"
    "  -h, --help         show this help\n"
    "\n"
    "exit status: 0 a player answered, 1 none did, 2 wrong usage.\n";

// The options every control command takes, for its own --help.
constexpr const char* kControlOptions =
    "  --file FILE        start a player in this process on the library FILE instead of\n"
    "                     talking to the running one (--embedded FILE is the same)\n"
    "  --player-version V the version that player pretends to be (default 7.7.1)\n"
    "  --timeout SECONDS  how long to wait for each answer (default 10)\n"
    "  --verbose          show the framework's diagnostic lines on standard error\n"
    "  -h, --help         show this help\n"
    "\n"
    "exit status: 0 success, 1 the player did not start, is not running, did not answer or\n"
    "refused, 2 wrong usage.\n";

int usageError(const std::string& message) {
  return reportUsageError("player", message);
}

std::string statusText(OSStatus status) {
  const std::string_view name = osStatusName(status);
  return std::string(name.empty() ? "error" : name) + " (" + std::to_string(status) + ")";
}

// ---- ping -------------------------------------------------------------------------------------

struct Answer {
  OSStatus status = noErr;
  ae::Descriptor value;
  std::string message;
  double milliseconds = 0;
};

// Asks the player for one property of the application.
Answer askApplicationProperty(OSType property, long timeoutTicks) {
  Answer answer;
  ae::Descriptor event;
  const OSType signature = player::kPlayerSignature;
  const std::span<const uint8_t> address(reinterpret_cast<const uint8_t*>(&signature),
                                         sizeof signature);
  const std::string params = "'----':obj { form:prop, want:type(prop), seld:type(" +
                             fourCharString(property) + "), from:null() }";
  answer.status = ae::buildAppleEvent(ae::kAECoreSuite, ae::kAEGetData, ae::typeApplSignature,
                                      address, ae::kAutoGenerateReturnID, ae::kAnyTransactionID,
                                      &event, nullptr, params);
  if (answer.status != noErr) return answer;
  ae::Descriptor reply;
  const auto started = std::chrono::steady_clock::now();
  answer.status = ae::EventManager::shared().send(
      event, &reply, ae::kAEWaitReply | ae::kAENeverInteract, timeoutTicks);
  answer.milliseconds =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();
  if (answer.status != noErr) return answer;
  int32_t error = noErr;
  if (reply.getParamPtr(ae::keyErrorNumber, ae::typeSInt32, nullptr, &error, sizeof error,
                        nullptr) == noErr &&
      error != noErr) {
    answer.status = error;
    ae::Descriptor text;
    if (reply.getParamDesc(ae::keyErrorString, ae::typeUTF8Text, &text) == noErr) {
      answer.message.assign(reinterpret_cast<const char*>(text.data().data()), text.dataSize());
    }
    return answer;
  }
  answer.status = reply.getParamDesc(ae::keyDirectObject, ae::typeWildCard, &answer.value);
  return answer;
}

std::optional<double> parseSeconds(const std::string& text) {
  char* end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  if (end == text.c_str() || *end != '\0' || !(seconds > 0) || seconds > 86400) return std::nullopt;
  return seconds;
}

int ping(const std::vector<std::string>& args) {
  CommandLine line({"--timeout"}, {"--json", "--help", "-h"});
  if (!line.parse(args)) return usageError(line.error());
  if (wantsHelp(line)) return showUsage(kPingUsage);
  if (!line.operands().empty()) return usageError("ping takes no operands");
  double seconds = 5;
  if (auto value = line.value("--timeout")) {
    const auto parsed = parseSeconds(*value);
    if (!parsed) return usageError("--timeout needs a number of seconds, not \"" + *value + "\"");
    seconds = *parsed;
  }
  const long ticks = static_cast<long>(seconds * 60 + 0.5);

  const Answer name = askApplicationProperty(player::kPropName, ticks);
  if (name.status != noErr) {
    if (name.status == procNotFound) {
      std::fprintf(stderr, "rvitunes player ping: no player answers on the bus: %s\n",
                   statusText(name.status).c_str());
    } else {
      std::fprintf(stderr, "rvitunes player ping: the player did not answer: %s%s%s\n",
                   statusText(name.status).c_str(), name.message.empty() ? "" : ": ",
                   name.message.c_str());
    }
    return kExitFailure;
  }
  const Answer version = askApplicationProperty(player::kPropVersion, ticks);
  if (version.status != noErr) {
    std::fprintf(stderr, "rvitunes player ping: the player did not tell its version: %s%s%s\n",
                 statusText(version.status).c_str(), version.message.empty() ? "" : ": ",
                 version.message.c_str());
    return kExitFailure;
  }
  auto nameText = ae::textValue(name.value);
  auto versionText = ae::textValue(version.value);
  if (line.has("--json")) {
    JsonOut out;
    const auto known = [](const Result<std::string>& text) {
      return text ? std::optional<std::string>(*text) : std::nullopt;
    };
    out.beginObject().field("name", known(nameText)).field("version", known(versionText));
    out.key("roundTripMs").real(version.milliseconds);
    out.key("firstRequestMs").real(name.milliseconds).endObject().print();
    return kExitOk;
  }
  std::printf("name: %s\n", nameText ? nameText->c_str() : "?");
  std::printf("version: %s\n", versionText ? versionText->c_str() : "?");
  std::printf("round trip: %.3f ms (first request %.3f ms)\n", version.milliseconds,
              name.milliseconds);
  return kExitOk;
}

// ---- Output helpers ---------------------------------------------------------------------------

// A persistent ID the framework gives as text, in the tool's one JSON form.
std::optional<std::string> hexIdText(const std::optional<std::string>& text) {
  return text ? std::optional<std::string>(normalisedHexId(*text)) : std::nullopt;
}

std::string hexId(int64_t id) {
  char text[17];
  std::snprintf(text, sizeof text, "%016llX",
                static_cast<unsigned long long>(static_cast<uint64_t>(id)));
  return text;
}

std::string clock(int64_t seconds) {
  if (seconds < 0) return "?";
  char text[32];
  if (seconds >= 3600) {
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", static_cast<long long>(seconds / 3600),
                  static_cast<long long>(seconds / 60 % 60), static_cast<long long>(seconds % 60));
  } else {
    std::snprintf(text, sizeof text, "%lld:%02lld", static_cast<long long>(seconds / 60),
                  static_cast<long long>(seconds % 60));
  }
  return text;
}

std::string stateName(OSType state) {
  switch (state) {
    case fourCharCode("kPSP"):
      return "playing";
    case fourCharCode("kPSp"):
      return "paused";
    case fourCharCode("kPSS"):
      return "stopped";
    case fourCharCode("kPSF"):
      return "fast-forwarding";
    case fourCharCode("kPSR"):
      return "rewinding";
    case 0xFFFFFFFF:
      return "unknown";
    default:
      return fourCharString(state);
  }
}

// ---- The session: log, embedded player, connection --------------------------------------------

// Keeps the framework's diagnostic lines so that a failure can be explained in one line, and
// shows them on stderr with --verbose.
class DiagnosticSink final : public LogSink {
 public:
  explicit DiagnosticSink(bool echo) : echo_(echo) {}
  void write(std::string_view line) override {
    if (echo_) std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
    std::lock_guard lock(mutex_);
    lines_.emplace_back(line);
  }
  size_t count() const {
    std::lock_guard lock(mutex_);
    return lines_.size();
  }
  // The lines since `mark` that the framework wrote (the embedded player's own are left out).
  std::vector<std::string> since(size_t mark) const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> out;
    for (size_t i = mark; i < lines_.size(); ++i) {
      if (lines_[i].rfind("player: ", 0) != 0) out.push_back(lines_[i]);
    }
    return out;
  }

 private:
  const bool echo_;
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

// A delivery error number in a line such as "Error sending Apple Event: -600".
std::optional<OSStatus> sendError(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    const size_t colon = line.rfind(": ");
    if (line.find("Error sending") == 0 && colon != std::string::npos) {
      return static_cast<OSStatus>(std::strtol(line.c_str() + colon + 2, nullptr, 10));
    }
  }
  return std::nullopt;
}

std::string reasonFrom(const std::vector<std::string>& lines) {
  if (const auto status = sendError(lines)) {
    switch (*status) {
      case procNotFound:
        return "no player is running (nothing answers to 'hook' on the event bus)";
      case connectionInvalid:
        return "the player went away before it answered";
      case errAETimeout:
        return "the player did not answer in time";
      default:
        return "the player could not be reached: " + statusText(*status);
    }
  }
  return lines.empty() ? "the player did not answer" : "the player did not answer: " + lines.back();
}

class Session {
 public:
  Session(std::string command, bool verbose)
      : command_(std::move(command)), sink_(std::make_shared<DiagnosticSink>(verbose)) {
    previous_ = setNullLogSink(sink_);
  }
  ~Session() {
    // The framework's shared objects refer to the player; forget them before it stops.
    CZPlaylistCache::releaseSharedInstance();
    Cadenza::unSharedInstance();
    embedded_.reset();
    setNullLogSink(previous_);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Starts the player of --embedded; false (after the reason) when it cannot start.
  bool startEmbedded(const std::string& library, const player::PlayerVersion& version) {
    player::PlayerServerOptions options;
    options.version = version;
    auto server = player::PlayerServer::startInProcess(library, std::move(options));
    if (!server.ok()) {
      fail("cannot start a player on \"" + library + "\": " + server.status().toString());
      return false;
    }
    embedded_ = std::move(*server);
    return true;
  }

  // Asks the player for its version, the first request of every command; false (after the
  // reason) when no player answers.
  bool connect() {
    const size_t mark = sink_->count();
    if (Cadenza::sharedInstance()->versionString()) return true;
    fail(reasonFrom(sink_->since(mark)));
    return false;
  }

  size_t mark() const { return sink_->count(); }
  std::vector<std::string> linesSince(size_t mark) const { return sink_->since(mark); }

  // Writes "rvitunes player COMMAND: text" to stderr, after what stdout holds so far: a failure's
  // reason, or a remark that is not a failure, such as an empty answer, which would otherwise
  // print nothing at all.
  void remark(const std::string& text) const {
    std::fflush(stdout);
    std::fprintf(stderr, "rvitunes player %s: %s\n", command_.c_str(), text.c_str());
  }
  // Writes the reason as remark() does; answers the failure status.
  int fail(const std::string& reason) const {
    remark(reason);
    return kExitFailure;
  }
  // Fails with the framework's last diagnostic when something was logged since `mark`.
  std::optional<int> failIfLogged(size_t mark, const std::string& what) const {
    const auto lines = sink_->since(mark);
    if (lines.empty()) return std::nullopt;
    return fail(what + ": " + lines.back());
  }

 private:
  std::string command_;
  std::shared_ptr<DiagnosticSink> sink_;
  std::shared_ptr<LogSink> previous_;
  std::unique_ptr<player::PlayerServer> embedded_;
};

// ---- Identifiers ------------------------------------------------------------------------------

// 1 to 16 hexadecimal digits, optionally after "0x".
std::optional<int64_t> parsePersistentId(std::string_view text) {
  if (text.size() > 2 && (text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X")) {
    text.remove_prefix(2);
  }
  if (text.empty() || text.size() > 16) return std::nullopt;
  for (char c : text) {
    if (!std::isxdigit(static_cast<unsigned char>(c))) return std::nullopt;
  }
  return longlongValue(text);
}

std::string noPersistentIds(Cadenza& controller) {
  return "the player (" + controller.versionString().value_or("?") + ") has no persistent IDs";
}

// The playlist `text` names: "library", or a persistent ID looked up in the player (in the
// playlist tree on 6.0.0, which cannot look playlists up by ID). `text` was checked before the
// player was asked.
std::shared_ptr<CZPlaylist> findPlaylist(Session& session, const std::string& text, int* status) {
  const auto controller = Cadenza::sharedInstance();
  if (text == "library") {
    auto library = controller->libraryPlaylist();
    if (!library) *status = session.fail("the player has no library playlist");
    return library;
  }
  const int64_t pid = parsePersistentId(text).value_or(0);
  std::shared_ptr<CZPlaylist> playlist;
  if (controller->versionGreaterThan(Cadenza::kVersion6_0_0)) {
    playlist = controller->playlistWithPersistentId(static_cast<uint64_t>(pid));
  } else if (controller->versionLessThan(Cadenza::kVersion6_0_0)) {
    *status = session.fail(noPersistentIds(*controller));
    return nullptr;
  } else {
    playlist = CZPlaylistCache::sharedInstance()->playlistForPersistentId(pid);
    if (playlist && playlist->descriptor().isNull()) {
      *status = session.fail(text + " is a group of the playlist tree, not a player's playlist");
      return nullptr;
    }
  }
  if (!playlist) *status = session.fail("no playlist with persistent ID " + text);
  return playlist;
}

std::shared_ptr<CZTrack> findTrack(Session& session, const std::string& text, int* status) {
  const auto controller = Cadenza::sharedInstance();
  if (controller->versionLessThan(Cadenza::kVersion6_0_0)) {
    *status = session.fail(noPersistentIds(*controller));
    return nullptr;
  }
  const int64_t pid = parsePersistentId(text).value_or(0);
  auto track = controller->trackWithPersistentId(static_cast<uint64_t>(pid));
  if (!track) *status = session.fail("no track with persistent ID " + text);
  return track;
}

// ---- Tracks -----------------------------------------------------------------------------------

std::string trackLine(CZTrack& track) {
  return track.persistentIdHexString().value_or("?") + "\t" + track.name().value_or("") + "\t" +
         track.artist().value_or("") + "\t" + track.album().value_or("") + "\t" +
         track.time().value_or("");
}

void trackJson(JsonOut& out, CZTrack& track) {
  out.beginObject().field("persistentId", hexIdText(track.persistentIdHexString()));
  out.integerField("databaseId", track.databaseId()).field("name", track.name());
  out.field("artist", track.artist()).field("album", track.album()).field("time", track.time());
  out.endObject();
}

int printTracks(const std::vector<std::shared_ptr<CZTrack>>& tracks, bool json) {
  if (json) {
    JsonOut out;
    out.beginArray();
    for (const auto& track : tracks)
      trackJson(out, *track);
    out.endArray().print();
  } else {
    for (const auto& track : tracks)
      std::printf("%s\n", trackLine(*track).c_str());
  }
  return kExitOk;
}

// One property of a track as the tool shows and changes it.
struct Shown {
  std::optional<std::string> text;  // nullopt: no value
  std::string json;
};

struct TrackProperty {
  const char* name;
  std::function<Shown(CZTrack&)> get;
  // Writes the value of the text, which `accepts` approved. Both empty for read-only properties.
  std::function<void(CZTrack&, const std::string&)> set;
  std::function<bool(const std::string&)> accepts;
};

Shown shownText(const std::optional<std::string>& value) {
  return {value, value ? jsonQuote(*value) : "null"};
}

Shown shownNumber(int64_t value) {
  return {std::to_string(value), std::to_string(value)};
}

Shown shownFlag(bool value) {
  return {value ? "true" : "false", value ? "true" : "false"};
}

// The player answers "missing value" for a date it does not have, which reads as the 1904
// origin: shown as no value.
Shown shownDate(const std::optional<Date>& value) {
  if (!value || *value == Date::fromLongDateTime(0)) return {std::nullopt, "null"};
  const std::string text = value->iso8601();
  return {text, jsonQuote(text)};
}

std::optional<int32_t> parseInteger(const std::string& text) {
  char* end = nullptr;
  errno = 0;
  const long long value = std::strtoll(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || errno != 0 || value < INT32_MIN || value > INT32_MAX) {
    return std::nullopt;
  }
  return static_cast<int32_t>(value);
}

std::optional<bool> parseFlag(const std::string& text) {
  if (text == "true" || text == "yes" || text == "on" || text == "1") return true;
  if (text == "false" || text == "no" || text == "off" || text == "0") return false;
  return std::nullopt;
}

std::optional<Date> parseDate(const std::string& text) {
  if (text == "now") return Date::fromUnixTime(std::floor(Date::now().unixTime()));
  return Date::parseIso8601(text);
}

using TextGetter = std::optional<std::string> (CZTrack::*)();
using TextSetter = void (CZTrack::*)(std::string_view);
using IntegerGetter = int32_t (CZTrack::*)();
using IntegerSetter = void (CZTrack::*)(int32_t);
using FlagGetter = bool (CZTrack::*)();
using FlagSetter = void (CZTrack::*)(bool);
using DateGetter = std::optional<Date> (CZTrack::*)();
using DateSetter = void (CZTrack::*)(const Date&);

TrackProperty textProperty(const char* name, TextGetter get, TextSetter set = nullptr) {
  TrackProperty p{name, [get](CZTrack& t) { return shownText((t.*get)()); }, {}, {}};
  if (set) {
    p.set = [set](CZTrack& t, const std::string& value) { (t.*set)(value); };
    p.accepts = [](const std::string&) { return true; };
  }
  return p;
}

TrackProperty integerProperty(const char* name, IntegerGetter get, IntegerSetter set = nullptr) {
  TrackProperty p{name, [get](CZTrack& t) { return shownNumber((t.*get)()); }, {}, {}};
  if (set) {
    p.set = [set](CZTrack& t, const std::string& text) {
      if (const auto value = parseInteger(text)) (t.*set)(*value);
    };
    p.accepts = [](const std::string& text) { return parseInteger(text).has_value(); };
  }
  return p;
}

TrackProperty flagProperty(const char* name, FlagGetter get, FlagSetter set = nullptr) {
  TrackProperty p{name, [get](CZTrack& t) { return shownFlag((t.*get)()); }, {}, {}};
  if (set) {
    p.set = [set](CZTrack& t, const std::string& text) {
      if (const auto value = parseFlag(text)) (t.*set)(*value);
    };
    p.accepts = [](const std::string& text) { return parseFlag(text).has_value(); };
  }
  return p;
}

TrackProperty dateProperty(const char* name, DateGetter get, DateSetter set = nullptr) {
  TrackProperty p{name, [get](CZTrack& t) { return shownDate((t.*get)()); }, {}, {}};
  if (set) {
    p.set = [set](CZTrack& t, const std::string& text) {
      if (const auto value = parseDate(text)) (t.*set)(*value);
    };
    p.accepts = [](const std::string& text) { return parseDate(text).has_value(); };
  }
  return p;
}

// Every property of a track, in the order 'track' shows them.
const std::vector<TrackProperty>& trackProperties() {
  static const std::vector<TrackProperty> properties = {
      textProperty("persistentId", &CZTrack::persistentIdHexString),
      integerProperty("databaseId", &CZTrack::databaseId),
      textProperty("name", &CZTrack::name, &CZTrack::setName),
      textProperty("artist", &CZTrack::artist, &CZTrack::setArtist),
      textProperty("albumArtist", &CZTrack::albumArtist, &CZTrack::setAlbumArtist),
      textProperty("album", &CZTrack::album, &CZTrack::setAlbum),
      textProperty("composer", &CZTrack::composer, &CZTrack::setComposer),
      textProperty("genre", &CZTrack::genre, &CZTrack::setGenre),
      textProperty("grouping", &CZTrack::grouping, &CZTrack::setGrouping),
      textProperty("category", &CZTrack::category, &CZTrack::setCategory),
      textProperty("comment", &CZTrack::comment, &CZTrack::setComment),
      textProperty("description", &CZTrack::description, &CZTrack::setDescription),
      textProperty("longDescription", &CZTrack::longDescription, &CZTrack::setLongDescription),
      textProperty("lyrics", &CZTrack::lyrics, &CZTrack::setLyrics),
      textProperty("kind", &CZTrack::kind),
      textProperty("eq", &CZTrack::eq, &CZTrack::setEq),
      textProperty("show", &CZTrack::show),
      textProperty("episodeId", &CZTrack::episodeId, &CZTrack::setEpisodeId),
      integerProperty("episodeNumber", &CZTrack::episodeNumber, &CZTrack::setEpisodeNumber),
      integerProperty("seasonNumber", &CZTrack::seasonNumber, &CZTrack::setSeasonNumber),
      integerProperty("year", &CZTrack::year, &CZTrack::setYear),
      integerProperty("trackNumber", &CZTrack::trackNumber, &CZTrack::setTrackNumber),
      integerProperty("trackCount", &CZTrack::trackCount, &CZTrack::setTrackCount),
      integerProperty("discNumber", &CZTrack::discNumber, &CZTrack::setDiscNumber),
      integerProperty("discCount", &CZTrack::discCount, &CZTrack::setDiscCount),
      textProperty("time", &CZTrack::time),
      integerProperty("duration", &CZTrack::duration),
      integerProperty("start", &CZTrack::start, &CZTrack::setStart),
      integerProperty("finish", &CZTrack::finish, &CZTrack::setFinish),
      integerProperty("bookmark", &CZTrack::bookmark, &CZTrack::setBookmark),
      flagProperty("bookmarkable", &CZTrack::bookmarkable, &CZTrack::setBookmarkable),
      integerProperty("bpm", &CZTrack::bpm, &CZTrack::setBpm),
      integerProperty("bitrate", &CZTrack::bitrate),
      integerProperty("sampleRate", &CZTrack::sampleRate),
      integerProperty("size", &CZTrack::size),
      integerProperty("rating", &CZTrack::rating, &CZTrack::setRating),
      integerProperty("volumeAdjustment", &CZTrack::volumeAdjustment,
                      &CZTrack::setVolumeAdjustment),
      integerProperty("playedCount", &CZTrack::playedCount, &CZTrack::setPlayedCount),
      dateProperty("playedDate", &CZTrack::playedDate, &CZTrack::setPlayedDate),
      integerProperty("skippedCount", &CZTrack::skippedCount, &CZTrack::setSkippedCount),
      dateProperty("skippedDate", &CZTrack::skippedDate, &CZTrack::setSkippedDate),
      flagProperty("unplayed", &CZTrack::unplayed, &CZTrack::setUnplayed),
      flagProperty("enabled", &CZTrack::enabled, &CZTrack::setEnabled),
      flagProperty("compilation", &CZTrack::compilation, &CZTrack::setCompilation),
      flagProperty("gapless", &CZTrack::gapless, &CZTrack::setGapless),
      flagProperty("podcast", &CZTrack::podcast),
      dateProperty("dateAdded", &CZTrack::dateAdded),
      dateProperty("modificationDate", &CZTrack::modificationDate),
      textProperty("location", &CZTrack::location),
  };
  return properties;
}

const TrackProperty* trackProperty(std::string_view name) {
  for (const TrackProperty& p : trackProperties()) {
    if (name == p.name) return &p;
  }
  return nullptr;
}

// ---- Playlists --------------------------------------------------------------------------------

struct TreeWalk {
  std::shared_ptr<CZPlaylistCache> cache;
  bool user = false;
  std::set<int64_t> seen;  // a player that reports a loop of parents is cut off

  std::shared_ptr<CZPlaylist> lookup(int64_t id) const {
    return user ? cache->userPlaylistForPersistentId(id) : cache->playlistForPersistentId(id);
  }
};

void printTree(TreeWalk& walk, CZPlaylist& playlist, int depth) {
  const int64_t id = playlist.persistentId();
  const bool synthetic = playlist.descriptor().isNull();
  std::printf("%*s%s%s\n", depth * 2, "", playlist.name().value_or("?").c_str(),
              synthetic ? "" : ("  " + hexId(id)).c_str());
  if (!walk.seen.insert(id).second) return;
  for (int64_t child : playlist.childPlaylistIds()) {
    if (auto next = walk.lookup(child)) printTree(walk, *next, depth + 1);
  }
}

void treeJson(JsonOut& out, TreeWalk& walk, CZPlaylist& playlist) {
  const int64_t id = playlist.persistentId();
  const bool synthetic = playlist.descriptor().isNull();
  out.beginObject().field("name", playlist.name()).field("persistentId", hexId(id));
  out.booleanField("synthetic", synthetic);
  if (!synthetic) out.field("specialKind", fourCharString(playlist.specialKind()));
  out.key("children").beginArray();
  if (walk.seen.insert(id).second) {
    for (int64_t child : playlist.childPlaylistIds()) {
      if (auto next = walk.lookup(child)) treeJson(out, walk, *next);
    }
  }
  out.endArray().endObject();
}

// ---- The control commands ---------------------------------------------------------------------

struct Control {
  Session& session;
  CommandLine& line;
  std::vector<std::string> operands;
  bool json = false;

  std::shared_ptr<Cadenza> controller() const { return Cadenza::sharedInstance(); }
};

int showStatus(Control& c) {
  const auto controller = c.controller();
  const OSType state = controller->playerState();
  const int32_t position = controller->playerPosition();
  const int32_t volume = controller->soundVolume();
  const bool eq = controller->eqEnabled();
  const auto track = controller->currentTrack();
  const auto playlist = controller->currentPlaylist();
  if (c.json) {
    JsonOut out;
    out.beginObject().field("state", stateName(state)).field("stateCode", fourCharString(state));
    out.integerField("position", position).integerField("volume", volume);
    out.booleanField("equalizer", eq).key("track");
    if (track) {
      trackJson(out, *track);
    } else {
      out.null();
    }
    out.key("playlist");
    if (playlist) {
      out.beginObject().field("name", playlist->name());
      out.field("persistentId", hexIdText(playlist->persistentIdAsString())).endObject();
    } else {
      out.null();
    }
    out.endObject().print();
    return kExitOk;
  }
  std::printf("state: %s\n", stateName(state).c_str());
  std::printf("position: %s\n", clock(position).c_str());
  std::printf("volume: %d\n", volume);
  std::printf("equalizer: %s\n", eq ? "on" : "off");
  if (track) {
    std::string shown;
    for (const auto& part : {track->name(), track->artist(), track->album()}) {
      if (!part || part->empty()) continue;
      shown += (shown.empty() ? "" : " - ") + *part;
    }
    std::printf("track: %s [%s]\n", shown.c_str(),
                track->persistentIdHexString().value_or("?").c_str());
  } else {
    std::printf("track: none\n");
  }
  if (playlist) {
    std::printf("playlist: %s [%s]\n", playlist->name().value_or("").c_str(),
                playlist->persistentIdAsString().value_or("?").c_str());
  } else {
    std::printf("playlist: none\n");
  }
  return kExitOk;
}

int transport(Control& c, void (Cadenza::*command)()) {
  const size_t mark = c.session.mark();
  (c.controller().get()->*command)();
  if (auto failed = c.session.failIfLogged(mark, "the command was not sent")) return *failed;
  return kExitOk;
}

int playFile(Control& c) {
  if (c.line.has("--script")) {
    // The script road: RVITunesHelper's play-once script, run with its retries.
    std::error_code error;
    const std::string path = std::filesystem::absolute(c.operands[0], error).string();
    if (error || !std::filesystem::exists(path, error)) {
      return c.session.fail("no such file: " + c.operands[0]);
    }
    if (RVITunesHelper::startPlayTracksByAppleScriptFlag(path) != 0) {
      return c.session.fail("the script did not play " + path + " (51 runs failed)");
    }
    return kExitOk;
  }
  const size_t mark = c.session.mark();
  c.controller()->playTrackWithPath(c.operands[0]);
  const auto lines = c.session.linesSince(mark);
  if (!lines.empty()) {
    if (lines.back() == "Unable to resolve path to alias") {
      return c.session.fail("no such file: " + c.operands[0]);
    }
    return c.session.fail("the command was not sent: " + lines.back());
  }
  return kExitOk;
}

int volume(Control& c) {
  const auto controller = c.controller();
  if (!c.operands.empty()) {
    controller->setSoundVolume(*parseInteger(c.operands[0]));
  }
  const int32_t now = controller->soundVolume();
  if (now < 0) return c.session.fail("the player did not tell its volume");
  if (c.json) {
    JsonOut().beginObject().integerField("volume", now).endObject().print();
  } else {
    std::printf("volume: %d\n", now);
  }
  return kExitOk;
}

int equalizer(Control& c) {
  const auto controller = c.controller();
  if (!c.operands.empty()) {
    controller->setEqEnable(*parseFlag(c.operands[0]));
  }
  const bool on = controller->eqEnabled();
  if (c.json) {
    JsonOut().beginObject().booleanField("equalizer", on).endObject().print();
  } else {
    std::printf("equalizer: %s\n", on ? "on" : "off");
  }
  return kExitOk;
}

int version(Control& c) {
  const auto controller = c.controller();
  const std::string text = controller->versionString().value_or("?");
  char packed[16];
  std::snprintf(packed, sizeof packed, "0x%X", controller->versionNumber());
  if (c.json) {
    JsonOut().beginObject().field("version", text).field("packed", packed).endObject().print();
  } else {
    std::printf("version: %s\npacked: %s\n", text.c_str(), packed);
  }
  return kExitOk;
}

int playlists(Control& c) {
  TreeWalk walk{CZPlaylistCache::sharedInstance(), c.line.has("--user"), {}};
  const auto root = walk.lookup(CZPlaylistCache::kRootId);
  if (!root) return c.session.fail("the playlist tree has no root");
  if (c.json) {
    JsonOut out;
    treeJson(out, walk, *root);
    out.print();
  } else {
    printTree(walk, *root, 0);
  }
  return kExitOk;
}

int tracks(Control& c) {
  int status = kExitOk;
  const auto playlist = findPlaylist(c.session, c.operands[0], &status);
  if (!playlist) return status;
  const auto listed = playlist->tracks();
  if (listed.empty() && !c.json) c.session.remark("the playlist has no tracks");
  return printTracks(listed, c.json);
}

int track(Control& c) {
  int status = kExitOk;
  const auto found = findTrack(c.session, c.operands[0], &status);
  if (!found) return status;
  if (c.json) {
    JsonOut out;
    out.beginObject();
    for (const TrackProperty& p : trackProperties())
      out.key(p.name).raw(p.get(*found).json);
    out.endObject().print();
  } else {
    for (const TrackProperty& p : trackProperties()) {
      const Shown shown = p.get(*found);
      std::printf("%s: %s\n", p.name, shown.text ? shown.text->c_str() : "(none)");
    }
  }
  return kExitOk;
}

// Whether the value read back is the one `text` asked for, in any of the forms it may take.
bool reportsValue(const Shown& now, const std::string& text) {
  if (!now.text) return false;
  if (*now.text == text || text == "now") return true;
  const auto number = parseInteger(text);
  const auto flag = parseFlag(text);
  const auto date = parseDate(text);
  return (number && *now.text == std::to_string(*number)) ||
         (flag && *now.text == (*flag ? "true" : "false")) ||
         (date && *now.text == date->iso8601());
}

int setProperty(Control& c) {
  const std::string& name = c.operands[1];
  const std::string& text = c.operands[2];
  const TrackProperty* property = trackProperty(name);
  int status = kExitOk;
  const auto found = findTrack(c.session, c.operands[0], &status);
  if (!found) return status;
  const size_t mark = c.session.mark();
  property->set(*found, text);
  if (auto failed = c.session.failIfLogged(mark, "the change was not sent")) return *failed;
  // The player may refuse a change without saying so: read it back.
  const Shown now = property->get(*found);
  const std::string shown = now.text.value_or("(none)");
  if (c.json) {
    JsonOut().beginObject().key(name).raw(now.json).endObject().print();
  } else {
    std::printf("%s: %s\n", name.c_str(), shown.c_str());
  }
  if (!reportsValue(now, text)) {
    return c.session.fail("the player reports " + name + " as " + shown);
  }
  return kExitOk;
}

// The code of four characters as they are.
OSType codeOf(std::string_view text) {
  OSType code = 0;
  for (char ch : text)
    code = code << 8 | static_cast<uint8_t>(ch);
  return code;
}

std::optional<OSType> searchField(const std::string& text) {
  static const std::pair<std::string_view, std::string_view> kFields[] = {
      {"all", "kSrA"},       {"artists", "kSrR"}, {"albums", "kSrL"},
      {"composers", "kSrC"}, {"songs", "kSrS"},   {"visible", "kSrV"},
  };
  for (const auto& [word, code] : kFields) {
    if (text == word) return codeOf(code);
  }
  if (text.size() == 4) return codeOf(text);
  return std::nullopt;
}

int search(Control& c) {
  const OSType field = searchField(c.line.value("--field").value_or("")).value_or(0);
  int status = kExitOk;
  const auto playlist = findPlaylist(c.session, c.line.value("--in").value_or("library"), &status);
  if (!playlist) return status;
  const size_t mark = c.session.mark();
  const auto found = c.controller()->searchForStringInField(*playlist, c.operands[0], field);
  if (!found) {
    const auto lines = c.session.linesSince(mark);
    return c.session.fail(lines.empty() ? "the search failed"
                                        : "the search failed: " + lines.back());
  }
  if (found->empty() && !c.json) c.session.remark("no track matches \"" + c.operands[0] + "\"");
  return printTracks(*found, c.json);
}

int add(Control& c) {
  std::error_code error;
  const auto absolute = std::filesystem::absolute(c.operands[0], error);
  if (error || !std::filesystem::is_regular_file(absolute, error)) {
    return c.session.fail("no such file: " + c.operands[0]);
  }
  const Url location = Url::fileUrlWithPath(absolute.string());
  int status = kExitOk;
  std::shared_ptr<CZPlaylist> playlist;
  if (auto to = c.line.value("--to")) {
    playlist = findPlaylist(c.session, *to, &status);
    if (!playlist) return status;
  }
  const size_t mark = c.session.mark();
  const auto added = playlist ? c.controller()->addTrackToPlaylist(location, playlist.get())
                              : c.controller()->addTrackToLibrary(location);
  if (!added || added->empty()) {
    const auto lines = c.session.linesSince(mark);
    return c.session.fail(lines.empty() ? "the player added nothing"
                                        : "the player added nothing: " + lines.back());
  }
  return printTracks(*added, c.json);
}

int selection(Control& c) {
  const size_t mark = c.session.mark();
  const auto selected = c.controller()->selectedTracks();
  if (!selected) {
    const auto lines = c.session.linesSince(mark);
    return c.session.fail(lines.empty() ? "the player did not tell its selection"
                                        : "the player did not tell its selection: " + lines.back());
  }
  if (selected->empty() && !c.json) c.session.remark("nothing is selected");
  return printTracks(*selected, c.json);
}

// ---- Checks made before the player is asked ---------------------------------------------------

using Check = std::function<int(const std::vector<std::string>& operands, const CommandLine&)>;

int checkPersistentId(const std::string& text) {
  if (parsePersistentId(text)) return kExitOk;
  return usageError("\"" + text + "\" is not a persistent ID (1 to 16 hexadecimal digits)");
}

int checkPlaylist(const std::string& text) {
  return text == "library" ? kExitOk : checkPersistentId(text);
}

int checkVolume(const std::vector<std::string>& operands, const CommandLine&) {
  if (operands.empty()) return kExitOk;
  const auto value = parseInteger(operands[0]);
  if (value && *value >= 0 && *value <= 100) return kExitOk;
  return usageError("the volume is a number from 0 to 100, not \"" + operands[0] + "\"");
}

int checkEqualizer(const std::vector<std::string>& operands, const CommandLine&) {
  if (operands.empty() || parseFlag(operands[0])) return kExitOk;
  return usageError("eq takes on or off, not \"" + operands[0] + "\"");
}

int checkSet(const std::vector<std::string>& operands, const CommandLine&) {
  if (const int status = checkPersistentId(operands[0])) return status;
  const TrackProperty* property = trackProperty(operands[1]);
  if (property == nullptr) return usageError("no track property \"" + operands[1] + "\"");
  if (!property->set) return usageError(operands[1] + " is read-only");
  if (!property->accepts(operands[2])) {
    return usageError("\"" + operands[2] + "\" is no value of " + operands[1]);
  }
  return kExitOk;
}

int checkSearch(const std::vector<std::string>&, const CommandLine& line) {
  if (auto in = line.value("--in")) {
    if (const int status = checkPlaylist(*in)) return status;
  }
  if (auto field = line.value("--field"); field && !searchField(*field)) {
    return usageError(
        "--field takes all, artists, albums, composers, songs, visible or a "
        "four-character code, not \"" +
        *field + "\"");
  }
  return kExitOk;
}

// ---- Artwork ----------------------------------------------------------------------------------
// rvitunes player artwork PID [--save DIR] | --set IMAGE [--index N] | --delete [--index N]

int checkArtwork(const std::vector<std::string>& operands, const CommandLine& line) {
  if (const int status = checkPersistentId(operands[0])) return status;
  const bool set = line.has("--set"), del = line.has("--delete");
  if (set && del) return usageError("artwork takes --set or --delete, not both");
  if (line.has("--save") && (set || del))
    return usageError("--save lists; it does not go with --set or --delete");
  if (auto index = line.value("--index")) {
    if (!set && !del) return usageError("--index needs --set or --delete");
    const auto value = parseInteger(*index);
    if (!value || *value < 0)
      return usageError("--index is a position from 0, not \"" + *index + "\"");
  }
  return kExitOk;
}

bool writeBytes(const std::string& path, std::span<const uint8_t> bytes) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  return std::fclose(file) == 0 && written;
}

int listArtwork(Control& c, CZTrack& track) {
  const size_t mark = c.session.mark();
  const std::vector<image::Image> images = track.artwork();
  const auto save = c.line.value("--save");
  JsonOut out;
  out.beginArray();
  for (size_t i = 0; i < images.size(); ++i) {
    std::string shown =
        std::to_string(images[i].width()) + "x" + std::to_string(images[i].height());
    std::optional<std::string> path;
    if (save) {
      path = *save + "/" + c.operands[0] + "-" + std::to_string(i) + ".png";
      auto png = images[i].pngRepresentation();
      if (!png || !writeBytes(*path, *png)) return c.session.fail("cannot write " + *path);
      shown += "\t" + *path;
    }
    if (c.json) {
      out.beginObject().integerField("index", static_cast<int64_t>(i));
      out.integerField("width", images[i].width()).integerField("height", images[i].height());
      out.field("saved", path).endObject();
    } else {
      std::printf("%zu\t%s\n", i, shown.c_str());
    }
  }
  // The read stops at the first artwork it cannot reach and says why.
  if (auto failed = c.session.failIfLogged(mark, "the artwork could not be read to the end")) {
    return *failed;
  }
  if (c.json) {
    out.endArray().print();
  } else {
    std::printf("%zu artwork%s\n", images.size(), images.size() == 1 ? "" : "s");
  }
  return kExitOk;
}

int artworkCommand(Control& c) {
  int status = kExitOk;
  const auto found = findTrack(c.session, c.operands[0], &status);
  if (!found) return status;
  const int32_t index = parseInteger(c.line.value("--index").value_or("0")).value_or(0);
  if (auto file = c.line.value("--set")) {
    Result<image::Image> picture = image::Image::fromFile(*file);
    if (!picture)
      return c.session.fail("cannot read " + *file + ": " + picture.status().toString());
    const size_t mark = c.session.mark();
    if (!found->setArtworkAtIndex(&*picture, index)) {
      if (auto failed = c.session.failIfLogged(mark, "the picture was not sent")) return *failed;
      return c.session.fail("the picture was not sent");
    }
    // The player may refuse it without saying so: read it back.
    const std::vector<image::Image> now = found->artwork();
    if (now.size() <= static_cast<size_t>(index) ||
        !(now[static_cast<size_t>(index)] == *picture)) {
      return c.session.fail("the player does not show the picture as artwork " +
                            std::to_string(index));
    }
    if (c.json) {
      JsonOut out;
      out.beginObject().integerField("index", index).integerField("width", picture->width());
      out.integerField("height", picture->height()).endObject().print();
    } else {
      std::printf("artwork %d set (%ux%u)\n", index, picture->width(), picture->height());
    }
    return kExitOk;
  }
  if (c.line.has("--delete")) {
    if (c.line.value("--index")) {
      found->setArtworkAtIndex(nullptr, index);
    } else {
      found->setArtwork(std::nullopt);
    }
    const int32_t left = found->getCountOfElementsOfClass(fourCharCode("cArt"));
    if (left < 0) return c.session.fail("the player did not tell what artwork is left");
    if (c.json) {
      JsonOut().beginObject().integerField("left", left).endObject().print();
    } else {
      std::printf("%d artwork%s left\n", left, left == 1 ? "" : "s");
    }
    return kExitOk;
  }
  return listArtwork(c, *found);
}

struct ControlCommand {
  const char* name;
  std::function<int(Control&)> run;
  size_t leastOperands = 0;
  size_t mostOperands = 0;
  const char* operandNames = "";
  Check check = {};
  std::set<std::string> valued = {};  // options of its own besides the common ones
  std::set<std::string> flags = {};
  const char* synopsis = "";  // operands and own options, for its --help
  const char* summary = "";   // what it does and prints
};

ControlCommand transportCommand(const char* name, void (Cadenza::*command)(), const char* summary) {
  return {.name = name,
          .run = [command](Control& c) { return transport(c, command); },
          .summary = summary};
}

int checkPlaylistOperand(const std::vector<std::string>& operands, const CommandLine&) {
  return checkPlaylist(operands[0]);
}

int checkTrackOperand(const std::vector<std::string>& operands, const CommandLine&) {
  return checkPersistentId(operands[0]);
}

int checkAdd(const std::vector<std::string>&, const CommandLine& line) {
  auto to = line.value("--to");
  return to ? checkPlaylist(*to) : kExitOk;
}

const std::vector<ControlCommand>& controlCommands() {
  static const std::vector<ControlCommand> commands = {
      {.name = "status",
       .run = showStatus,
       .flags = {"--json"},
       .synopsis = "[--json]",
       .summary = "The player's state, position, volume, equalizer, current track and playlist."},
      transportCommand("play", &Cadenza::play, "Starts playing."),
      transportCommand("pause", &Cadenza::pause, "Pauses."),
      transportCommand("play-pause", &Cadenza::playPause,
                       "Plays when paused, pauses when playing."),
      transportCommand("next", &Cadenza::nextTrack, "Goes to the next track."),
      transportCommand("previous", &Cadenza::previousTrack, "Goes to the previous track."),
      transportCommand("back", &Cadenza::backTrack,
                       "Goes to the start of the track, or to the previous one when at its "
                       "start."),
      transportCommand("stop", &Cadenza::stop, "Stops."),
      transportCommand("resume", &Cadenza::resume,
                       "Resumes normal play after fast-forward or "
                       "rewind."),
      transportCommand("fast-forward", &Cadenza::fastForward, "Fast-forwards."),
      transportCommand("rewind", &Cadenza::rewind, "Rewinds."),
      {.name = "play-file",
       .run = playFile,
       .leastOperands = 1,
       .mostOperands = 1,
       .operandNames = "PATH",
       .flags = {"--script"},
       .synopsis = "PATH [--script]",
       .summary = "Plays the file PATH; with --script once, through the framework's script "
                  "(with its retries). Prints nothing."},
      {.name = "volume",
       .run = volume,
       .mostOperands = 1,
       .check = checkVolume,
       .flags = {"--json"},
       .synopsis = "[N] [--json]",
       .summary = "Sets the volume to N (0 to 100) when given, then shows it."},
      {.name = "eq",
       .run = equalizer,
       .mostOperands = 1,
       .check = checkEqualizer,
       .flags = {"--json"},
       .synopsis = "[on|off] [--json]",
       .summary = "Switches the equalizer when asked, then shows whether it is on."},
      {.name = "version",
       .run = version,
       .flags = {"--json"},
       .synopsis = "[--json]",
       .summary = "The player's version and its packed number."},
      {.name = "playlists",
       .run = playlists,
       .flags = {"--json", "--user"},
       .synopsis = "[--user] [--json]",
       .summary = "The playlist tree, indented; --user: the tree of folders and ordinary "
                  "playlists."},
      {.name = "tracks",
       .run = tracks,
       .leastOperands = 1,
       .mostOperands = 1,
       .operandNames = "PLAYLIST",
       .check = checkPlaylistOperand,
       .flags = {"--json"},
       .synopsis = "PLAYLIST [--json]",
       .summary = "The tracks of a playlist (a persistent ID, or \"library\")."},
      {.name = "track",
       .run = track,
       .leastOperands = 1,
       .mostOperands = 1,
       .operandNames = "PID",
       .check = checkTrackOperand,
       .flags = {"--json"},
       .synopsis = "PID [--json]",
       .summary = "Every property of the track with that persistent ID."},
      {.name = "set",
       .run = setProperty,
       .leastOperands = 3,
       .mostOperands = 3,
       .operandNames = "PID PROPERTY VALUE",
       .check = checkSet,
       .flags = {"--json"},
       .synopsis = "PID PROPERTY VALUE [--json]",
       .summary = "Changes a property of a track (names as 'track' shows them), then shows the "
                  "value the player reports; status 1 when it is not the one asked for."},
      {.name = "search",
       .run = search,
       .leastOperands = 1,
       .mostOperands = 1,
       .operandNames = "TEXT",
       .check = checkSearch,
       .valued = {"--in", "--field"},
       .flags = {"--json"},
       .synopsis = "TEXT [--in PLAYLIST] [--field FIELD] [--json]",
       .summary = "The tracks matching TEXT, in the library unless --in; FIELD is all, artists, "
                  "albums, composers, songs, visible or a four-character code."},
      {.name = "add",
       .run = add,
       .leastOperands = 1,
       .mostOperands = 1,
       .operandNames = "FILE",
       .check = checkAdd,
       .valued = {"--to"},
       .flags = {"--json"},
       .synopsis = "FILE [--to PLAYLIST] [--json]",
       .summary = "Adds a file to the library, or to a playlist, and shows the tracks made."},
      {.name = "selection",
       .run = selection,
       .flags = {"--json"},
       .synopsis = "[--json]",
       .summary = "The tracks selected in the player."},
      {.name = "artwork",
       .run = artworkCommand,
       .leastOperands = 1,
       .mostOperands = 1,
       .operandNames = "PID",
       .check = checkArtwork,
       .valued = {"--save", "--set", "--index"},
       .flags = {"--delete", "--json"},
       .synopsis = "PID [--save DIR] | --set IMAGE [--index N] | --delete [--index N]\n"
                   "                        [--json]",
       .summary = "A track's artwork: the size of each picture (--save: also written as\n"
                  "DIR/PID-N.png); --set makes the picture in IMAGE artwork N (default 0; N =\n"
                  "the count adds one); --delete deletes artwork N, or all of it."},
  };
  return commands;
}

// The help of one control command: its synopsis, what it does, the common options.
std::string controlUsage(const ControlCommand& command) {
  std::string usage = std::string("usage: rvitunes player ") + command.name;
  if (*command.synopsis != '\0') usage += std::string(" ") + command.synopsis;
  usage +=
      "\n                        [--file FILE [--player-version V]] [--timeout SECONDS]"
      " [--verbose]\n\n";
  usage += std::string(command.summary) + "\n\n";
  if (command.flags.count("--json")) {
    usage +=
        "  --json             one JSON document instead of text; persistent IDs as strings\n"
        "                     of 16 hexadecimal digits\n";
  }
  return usage + kControlOptions;
}

// A negative number ("-20") is an operand, not an option: it is marked before the command
// line is read and unmarked after.
constexpr char kNumberMark = '\x1f';

std::vector<std::string> markNegativeNumbers(std::vector<std::string> args) {
  for (std::string& arg : args) {
    if (arg.size() >= 2 && arg[0] == '-' && std::isdigit(static_cast<unsigned char>(arg[1]))) {
      arg.insert(arg.begin(), kNumberMark);
    }
  }
  return args;
}

int runControl(const ControlCommand& command, const std::vector<std::string>& args) {
  std::set<std::string> valued = {"--file", "--embedded", "--player-version", "--timeout"};
  std::set<std::string> flags = {"--verbose", "--help", "-h"};
  valued.insert(command.valued.begin(), command.valued.end());
  flags.insert(command.flags.begin(), command.flags.end());
  CommandLine line(valued, flags);
  const std::string where = std::string("player ") + command.name;
  if (!line.parse(markNegativeNumbers(args))) return reportUsageError(where, line.error());
  if (wantsHelp(line)) return showUsage(controlUsage(command));
  if (line.has("--file") && line.has("--embedded")) {
    return reportUsageError(where, "--embedded is the older name of --file; give one of them");
  }
  const std::optional<std::string> library =
      line.has("--file") ? line.value("--file") : line.value("--embedded");
  std::vector<std::string> operands = line.operands();
  for (std::string& operand : operands) {
    if (!operand.empty() && operand[0] == kNumberMark) operand.erase(0, 1);
  }
  if (operands.size() < command.leastOperands) {
    return usageError(std::string(command.name) + " needs " + command.operandNames);
  }
  if (operands.size() > command.mostOperands) {
    return usageError(std::string(command.name) + " does not take \"" +
                      operands[command.mostOperands] + "\"");
  }
  if (command.check) {
    if (const int status = command.check(operands, line)) return status;
  }

  double seconds = 10;
  if (auto value = line.value("--timeout")) {
    const auto parsed = parseSeconds(*value);
    if (!parsed) return usageError("--timeout needs a number of seconds, not \"" + *value + "\"");
    seconds = *parsed;
  }
  player::PlayerVersion emulated;
  if (auto value = line.value("--player-version")) {
    if (!library) return usageError("--player-version needs --file");
    const auto parsed = player::PlayerVersion::parse(*value);
    if (!parsed) return usageError("\"" + *value + "\" is not a version such as 7.2.1");
    emulated = *parsed;
  }
  ae::EventManager::setDefaultTimeout(
      std::chrono::milliseconds(static_cast<long long>(seconds * 1000)));

  Session session(command.name, line.has("--verbose"));
  if (library && !session.startEmbedded(*library, emulated)) return kExitFailure;
  if (!session.connect()) return kExitFailure;
  Control control{session, line, std::move(operands), line.has("--json")};
  return command.run(control);
}

// The daemon under the tool's own names: --file for the library, as everywhere in the tool,
// besides the daemon's --library.
int serve(std::vector<std::string> args) {
  bool help = false;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "-h" || args[i] == "--help") help = true;
    if (args[i] == "--file") {
      args[i] = "--library";
      ++i;
    } else if (args[i].rfind("--file=", 0) == 0 || args[i].rfind("--library=", 0) == 0) {
      // The daemon reads "--library FILE" only.
      const std::string value = args[i].substr(args[i].find('=') + 1);
      args[i] = "--library";
      args.insert(args.begin() + static_cast<std::ptrdiff_t>(i) + 1, value);
      ++i;
    } else if (args[i] == "--library" || args[i] == "--player-version" || args[i] == "--name") {
      ++i;  // its value is not an option, whatever it looks like
    }
  }
  if (!help) return player::runDaemon(args, "rvitunes player serve");
  // The daemon's usage with the tool's name for the file: the option list keeps its columns
  // and names the daemon's spelling as well; the usage line loses the padding again.
  std::string usage = player::daemonUsage("rvitunes player serve");
  for (size_t at = usage.find("--library FILE"); at != std::string::npos;
       at = usage.find("--library FILE", at)) {
    usage.replace(at, 14, "--file FILE   ");
  }
  if (const size_t line = usage.find("\n  --file FILE"); line != std::string::npos) {
    const size_t end = usage.find('\n', line + 1);
    usage.insert(end + 1, "  --library FILE        the same (the spelling of rvitunes-player)\n");
  }
  if (const size_t first = usage.find("--file FILE   "); first != std::string::npos) {
    usage.replace(first, 14, "--file FILE");
  }
  return showUsage(usage);
}

}  // namespace

int runPlayer(const std::vector<std::string>& args) {
  if (args.empty()) return usageError("a subcommand is needed: serve, ping or a control command");
  const std::string& sub = args[0];
  std::vector<std::string> rest(args.begin() + 1, args.end());
  if (sub == "-h" || sub == "--help" || sub == "help") return showUsage(kPlayerUsage);
  if (sub == "serve") return serve(rest);
  if (sub == "ping") return ping(rest);
  for (const ControlCommand& command : controlCommands()) {
    if (sub == command.name) return runControl(command, rest);
  }
  return usageError("unknown subcommand \"" + sub + "\"");
}

}  // namespace rvitunes::cli
