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
#include "rvitunes/plist/JsonWriter.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes::cli {

namespace {

constexpr const char* kPlayerUsage =
    "usage: rvitunes player serve --library FILE [--player-version V] [--name NAME] [--verbose]\n"
    "       rvitunes player ping [--timeout SECONDS]\n"
    "       rvitunes player COMMAND [ARGS] [--json] [--embedded FILE [--player-version V]]\n"
    "                               [--timeout SECONDS] [--verbose]\n"
    "\n"
    "  serve   run the reference player on the event bus under 'hook' until it is told to\n"
    "          quit (the quit event, SIGINT, SIGTERM); the same as rvitunes-player\n"
    "  ping    ask the running player for its name and version and show the round trip\n"
    "\n"
    "control commands:\n"
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
    "\n"
    "  --json             one JSON document instead of text (status, version, playlists,\n"
    "                     tracks, track, search, add, selection, volume, eq)\n"
    "  --embedded FILE    start a player in this process on the library FILE instead of\n"
    "                     talking to the running one (changes are written back to FILE)\n"
    "  --player-version V the version the embedded player pretends to be (default 7.7.1)\n"
    "  --timeout SECONDS  how long to wait for each answer (default 10; ping: 5)\n"
    "  --verbose          show the framework's diagnostic lines on standard error\n"
    "\n"
    "exit status: 0 success, 1 the player did not start, is not running, did not answer or\n"
    "refused, 2 wrong usage.\n";

int usageError(const std::string& message) {
  std::fflush(stdout);
  std::fprintf(stderr, "rvitunes player: %s\n(rvitunes player --help shows the usage)\n",
               message.c_str());
  return kExitUsage;
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
  CommandLine line({"--timeout"}, {"--help", "-h"});
  if (!line.parse(args)) return usageError(line.error());
  if (line.has("--help") || line.has("-h")) {
    std::fputs(kPlayerUsage, stdout);
    return kExitOk;
  }
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
  std::printf("name: %s\n", nameText ? nameText->c_str() : "?");
  std::printf("version: %s\n", versionText ? versionText->c_str() : "?");
  std::printf("round trip: %.3f ms (first request %.3f ms)\n", version.milliseconds,
              name.milliseconds);
  return kExitOk;
}

// ---- Output helpers ---------------------------------------------------------------------------

std::string jsonString(std::string_view text) {
  auto written = plist::JsonWriter::write(plist::Value::string(text), 0);
  return written.ok() ? *written : "\"\"";
}

std::string jsonOptional(const std::optional<std::string>& text) {
  return text ? jsonString(*text) : "null";
}

// One JSON object written field by field, in order.
class JsonObject {
 public:
  JsonObject& raw(std::string_view key, std::string_view json) {
    text_ += text_.empty() ? "{" : ", ";
    text_ += jsonString(key) + ": " + std::string(json);
    return *this;
  }
  JsonObject& text(std::string_view key, const std::optional<std::string>& value) {
    return raw(key, jsonOptional(value));
  }
  JsonObject& number(std::string_view key, int64_t value) {
    return raw(key, std::to_string(value));
  }
  JsonObject& flag(std::string_view key, bool value) { return raw(key, value ? "true" : "false"); }
  std::string str() const { return text_.empty() ? "{}" : text_ + "}"; }

 private:
  std::string text_;
};

std::string jsonArray(const std::vector<std::string>& items) {
  std::string out = "[";
  for (size_t i = 0; i < items.size(); ++i) {
    out += (i == 0 ? "\n  " : ",\n  ") + items[i];
  }
  return out + (items.empty() ? "]" : "\n]");
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

  // Writes "rvitunes player COMMAND: reason" to stderr; answers the failure status.
  int fail(const std::string& reason) const {
    std::fflush(stdout);
    std::fprintf(stderr, "rvitunes player %s: %s\n", command_.c_str(), reason.c_str());
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

std::string trackJson(CZTrack& track) {
  return JsonObject()
      .text("persistentId", track.persistentIdHexString())
      .number("databaseId", track.databaseId())
      .text("name", track.name())
      .text("artist", track.artist())
      .text("album", track.album())
      .text("time", track.time())
      .str();
}

int printTracks(const std::vector<std::shared_ptr<CZTrack>>& tracks, bool json) {
  if (json) {
    std::vector<std::string> items;
    for (const auto& track : tracks)
      items.push_back(trackJson(*track));
    std::printf("%s\n", jsonArray(items).c_str());
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
  return {value, jsonOptional(value)};
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
  return {text, jsonString(text)};
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

std::string treeJson(TreeWalk& walk, CZPlaylist& playlist, int depth) {
  const int64_t id = playlist.persistentId();
  const bool synthetic = playlist.descriptor().isNull();
  JsonObject object;
  object.text("name", playlist.name()).text("persistentId", hexId(id)).flag("synthetic", synthetic);
  if (!synthetic) object.text("specialKind", fourCharString(playlist.specialKind()));
  std::string children = "[";
  if (walk.seen.insert(id).second) {
    bool first = true;
    for (int64_t child : playlist.childPlaylistIds()) {
      auto next = walk.lookup(child);
      if (!next) continue;
      children += (first ? "" : ", ") + treeJson(walk, *next, depth + 1);
      first = false;
    }
  }
  object.raw("children", children + "]");
  return object.str();
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
    JsonObject out;
    out.text("state", stateName(state))
        .text("stateCode", fourCharString(state))
        .number("position", position)
        .number("volume", volume)
        .flag("equalizer", eq)
        .raw("track", track ? trackJson(*track) : "null")
        .raw("playlist", playlist ? JsonObject()
                                        .text("name", playlist->name())
                                        .text("persistentId", playlist->persistentIdAsString())
                                        .str()
                                  : "null");
    std::printf("%s\n", out.str().c_str());
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
    std::printf("%s\n", JsonObject().number("volume", now).str().c_str());
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
    std::printf("%s\n", JsonObject().flag("equalizer", on).str().c_str());
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
    std::printf("%s\n", JsonObject().text("version", text).text("packed", packed).str().c_str());
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
    std::printf("%s\n", treeJson(walk, *root, 0).c_str());
  } else {
    printTree(walk, *root, 0);
  }
  return kExitOk;
}

int tracks(Control& c) {
  int status = kExitOk;
  const auto playlist = findPlaylist(c.session, c.operands[0], &status);
  if (!playlist) return status;
  return printTracks(playlist->tracks(), c.json);
}

int track(Control& c) {
  int status = kExitOk;
  const auto found = findTrack(c.session, c.operands[0], &status);
  if (!found) return status;
  if (c.json) {
    JsonObject out;
    for (const TrackProperty& p : trackProperties())
      out.raw(p.name, p.get(*found).json);
    std::printf("%s\n", out.str().c_str());
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
  std::printf("%s: %s\n", name.c_str(), shown.c_str());
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
  for (size_t i = 0; i < images.size(); ++i) {
    std::string shown =
        std::to_string(images[i].width()) + "x" + std::to_string(images[i].height());
    if (save) {
      const std::string path = *save + "/" + c.operands[0] + "-" + std::to_string(i) + ".png";
      auto png = images[i].pngRepresentation();
      if (!png || !writeBytes(path, *png)) return c.session.fail("cannot write " + path);
      shown += "\t" + path;
    }
    std::printf("%zu\t%s\n", i, shown.c_str());
  }
  // The read stops at the first artwork it cannot reach and says why.
  if (auto failed = c.session.failIfLogged(mark, "the artwork could not be read to the end")) {
    return *failed;
  }
  std::printf("%zu artwork%s\n", images.size(), images.size() == 1 ? "" : "s");
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
    std::printf("artwork %d set (%ux%u)\n", index, picture->width(), picture->height());
    return kExitOk;
  }
  if (c.line.has("--delete")) {
    if (c.line.value("--index")) {
      found->setArtworkAtIndex(nullptr, index);
    } else {
      found->setArtwork(std::nullopt);
    }
    const int32_t left = found->getCountOfElementsOfClass(fourCharCode("cArt"));
    std::printf("%d artwork%s left\n", left, left == 1 ? "" : "s");
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
  Check check;
  std::set<std::string> valued;  // options of its own besides the common ones
  std::set<std::string> flags;
};

ControlCommand transportCommand(const char* name, void (Cadenza::*command)()) {
  return {name, [command](Control& c) { return transport(c, command); }, 0, 0, "", {}, {}, {}};
}

const std::vector<ControlCommand>& controlCommands() {
  static const std::vector<ControlCommand> commands = {
      {"status", showStatus, 0, 0, "", {}, {}, {"--json"}},
      transportCommand("play", &Cadenza::play),
      transportCommand("pause", &Cadenza::pause),
      transportCommand("play-pause", &Cadenza::playPause),
      transportCommand("next", &Cadenza::nextTrack),
      transportCommand("previous", &Cadenza::previousTrack),
      transportCommand("back", &Cadenza::backTrack),
      transportCommand("stop", &Cadenza::stop),
      transportCommand("resume", &Cadenza::resume),
      transportCommand("fast-forward", &Cadenza::fastForward),
      transportCommand("rewind", &Cadenza::rewind),
      {"play-file", playFile, 1, 1, "PATH", {}, {}, {"--script"}},
      {"volume", volume, 0, 1, "", checkVolume, {}, {"--json"}},
      {"eq", equalizer, 0, 1, "", checkEqualizer, {}, {"--json"}},
      {"version", version, 0, 0, "", {}, {}, {"--json"}},
      {"playlists", playlists, 0, 0, "", {}, {}, {"--json", "--user"}},
      {"tracks",
       tracks,
       1,
       1,
       "PLAYLIST",
       [](const auto& operands, const CommandLine&) { return checkPlaylist(operands[0]); },
       {},
       {"--json"}},
      {"track",
       track,
       1,
       1,
       "PID",
       [](const auto& operands, const CommandLine&) { return checkPersistentId(operands[0]); },
       {},
       {"--json"}},
      {"set", setProperty, 3, 3, "PID PROPERTY VALUE", checkSet, {}, {}},
      {"search", search, 1, 1, "TEXT", checkSearch, {"--in", "--field"}, {"--json"}},
      {"add",
       add,
       1,
       1,
       "FILE",
       [](const auto&, const CommandLine& line) {
         auto to = line.value("--to");
         return to ? checkPlaylist(*to) : kExitOk;
       },
       {"--to"},
       {"--json"}},
      {"selection", selection, 0, 0, "", {}, {}, {"--json"}},
      {"artwork",
       artworkCommand,
       1,
       1,
       "PID",
       checkArtwork,
       {"--save", "--set", "--index"},
       {"--delete"}},
  };
  return commands;
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
  std::set<std::string> valued = {"--embedded", "--player-version", "--timeout"};
  std::set<std::string> flags = {"--verbose", "--help", "-h"};
  valued.insert(command.valued.begin(), command.valued.end());
  flags.insert(command.flags.begin(), command.flags.end());
  CommandLine line(valued, flags);
  if (!line.parse(markNegativeNumbers(args))) return usageError(line.error());
  if (line.has("--help") || line.has("-h")) {
    std::fputs(kPlayerUsage, stdout);
    return kExitOk;
  }
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
    if (!line.has("--embedded")) return usageError("--player-version needs --embedded");
    const auto parsed = player::PlayerVersion::parse(*value);
    if (!parsed) return usageError("\"" + *value + "\" is not a version such as 7.2.1");
    emulated = *parsed;
  }
  ae::EventManager::setDefaultTimeout(
      std::chrono::milliseconds(static_cast<long long>(seconds * 1000)));

  Session session(command.name, line.has("--verbose"));
  if (auto library = line.value("--embedded")) {
    if (!session.startEmbedded(*library, emulated)) return kExitFailure;
  }
  if (!session.connect()) return kExitFailure;
  Control control{session, line, std::move(operands), line.has("--json")};
  return command.run(control);
}

}  // namespace

int runPlayer(const std::vector<std::string>& args) {
  if (args.empty()) return usageError("a subcommand is needed: serve, ping or a control command");
  const std::string& sub = args[0];
  std::vector<std::string> rest(args.begin() + 1, args.end());
  if (sub == "-h" || sub == "--help" || sub == "help") {
    std::fputs(kPlayerUsage, stdout);
    return kExitOk;
  }
  if (sub == "serve") return player::runDaemon(rest, "rvitunes player serve");
  if (sub == "ping") return ping(rest);
  for (const ControlCommand& command : controlCommands()) {
    if (sub == command.name) return runControl(command, rest);
  }
  return usageError("unknown subcommand \"" + sub + "\"");
}

}  // namespace rvitunes::cli
