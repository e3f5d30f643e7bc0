// A small library with known IDs, event building with the framework's own templates, reply
// readers, and a player daemon run as a child process on a private bus directory: shared by
// the resolver, handler, end-to-end and load tests.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <vector>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "rvitunes/image/Image.h"
#include "PlayerTestSupport.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/BusDirectory.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/player/PlayerCodes.h"

extern char** environ;

namespace rvitunes::player::testing {

// ---- The library -----------------------------------------------------------------------------
//
//   Library (library playlist 200): tracks 101 ... 106
//   Music (special, 201): every track
//   Years (folder, 210)
//     Chill (211): 101, 103
//   Focus (220): 102, 104, 106
//   Empty (230): none
//
// Track 105 is a URL track; the others are files of the scratch folder. Track 101 has artwork
// (a cover picture beside the files).

inline constexpr DatabaseId kLibraryId = 200;
inline constexpr DatabaseId kMusicId = 201;
inline constexpr DatabaseId kYearsId = 210;
inline constexpr DatabaseId kChillId = 211;
inline constexpr DatabaseId kFocusId = 220;
inline constexpr DatabaseId kEmptyId = 230;

// Persistent IDs; 101's has the top bit set, so that it is negative as a signed 'comp'.
inline constexpr PersistentId kTrack101Pid = 0xF00000000000A101ULL;
inline constexpr PersistentId kTrack104Pid = 0x1000000000000104ULL;
inline constexpr PersistentId kChillPid = 0x00000000000C0211ULL;
inline constexpr PersistentId kFocusPid = 0xABCDEF0000000220ULL;

struct TestTrack {
  DatabaseId id;
  const char* pid;
  const char* name;
  const char* artist;
  const char* album;
  const char* composer;
  int year;
  int playCount;
  bool url;
};

inline constexpr TestTrack kTestTracks[] = {
    {101, "F00000000000A101", "Alpha Song", "Ann Arbor", "First", "Bach", 1999, 3, false},
    {102, "1000000000000102", "Beta Blues", "Bob", "First", "", 2001, 0, false},
    {103, "1000000000000103", "Gamma Ray", "ann arbor", "Second", "", 2003, 7, false},
    {104, "1000000000000104", "Delta Dawn", "Cleo", "Third", "Bach", 2004, 1, false},
    {105, "1000000000000105", "Epsilon Radio", "Dee", "", "", 2005, 0, true},
    {106, "1000000000000106", "Zeta", "Eve", "Second", "", 2006, 12, false},
};

inline std::string trackFile(const ScratchFolder& folder, const TestTrack& track) {
  return folder / ("music/" + std::to_string(track.id) + ".mp3");
}

// Writes the library and the files it names into `folder`; answers the library's path.
inline std::string writeTestLibrary(const ScratchFolder& folder) {
  const auto entry = [](const std::string& key, const std::string& type, const std::string& value) {
    return "<key>" + key + "</key><" + type + ">" + value + "</" + type + ">";
  };
  const auto text = [&](const std::string& key, const std::string& value) {
    return value.empty() ? std::string() : entry(key, "string", value);
  };
  const auto number = [&](const std::string& key, int64_t value) {
    return entry(key, "integer", std::to_string(value));
  };
  // A real (tiny) JPEG cover: the player converts it to a PICT when asked for the picture.
  const std::vector<uint8_t> jpeg =
      image::Image(4, 4, image::Rgba{200, 40, 40, 255}).jpegRepresentation().value();
  folder.write("music/cover.jpg", std::string(jpeg.begin(), jpeg.end()));
  std::string tracks;
  for (const TestTrack& t : kTestTracks) {
    const std::string location =
        t.url ? "http://radio.example/stream"
              : Url::fileUrlWithPath(folder.write("music/" + std::to_string(t.id) + ".mp3", "ID3"))
                    .string();
    tracks += "<key>" + std::to_string(t.id) + "</key><dict>" + number("Track ID", t.id) +
              text("Name", t.name) + text("Artist", t.artist) + text("Album", t.album) +
              text("Composer", t.composer) + number("Year", t.year) + number("Total Time", 200000) +
              (t.playCount ? number("Play Count", t.playCount) : "") +
              (t.id == 101 ? number("Artwork Count", 1) : "") + text("Persistent ID", t.pid) +
              text("Track Type", t.url ? "URL" : "File") + text("Location", location) + "</dict>\n";
  }
  struct TestPlaylist {
    DatabaseId id;
    const char* name;
    const char* pid;
    const char* extra;
    std::vector<int> items;
  };
  const std::vector<int> all = {101, 102, 103, 104, 105, 106};
  const TestPlaylist playlists[] = {
      {kLibraryId, "Library", "00000000000000C8", "<key>Master</key><true/>", all},
      {kMusicId, "Music", "00000000000000C9",
       "<key>Music</key><true/><key>Distinguished Kind</key><integer>4</integer>", all},
      {kYearsId, "Years", "00000000000000D2", "<key>Folder</key><true/>", {101, 103}},
      {kChillId,
       "Chill",
       "00000000000C0211",
       "<key>Parent Persistent ID</key><string>00000000000000D2</string>",
       {101, 103}},
      {kFocusId, "Focus", "ABCDEF0000000220", "", {102, 104, 106}},
      {kEmptyId, "Empty", "00000000000000E6", "", {}},
  };
  std::string lists;
  for (const TestPlaylist& p : playlists) {
    lists += "<dict>" + text("Name", p.name) + number("Playlist ID", p.id) +
             text("Playlist Persistent ID", p.pid) + p.extra + "<key>Playlist Items</key><array>";
    for (int id : p.items)
      lists += "<dict>" + number("Track ID", id) + "</dict>";
    lists += "</array></dict>\n";
  }
  return folder.write(
      "iTunes Music Library.xml",
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>" +
          number("Major Version", 1) + number("Minor Version", 1) + "<key>Tracks</key><dict>\n" +
          tracks + "</dict><key>Playlists</key><array>\n" + lists + "</array></dict>\n</plist>\n");
}

// ---- Events and replies ----------------------------------------------------------------------

// An event to the player built from `params` in the descriptor-building language.
template <class... A>
ae::Descriptor playerEvent(ae::AEEventClass eventClass, ae::AEEventID eventID,
                           std::string_view params, const A&... args) {
  const OSType signature = kPlayerSignature;
  const std::span<const uint8_t> address(reinterpret_cast<const uint8_t*>(&signature),
                                         sizeof signature);
  ae::Descriptor event;
  ae::BuildError error;
  const OSStatus built = ae::buildAppleEvent(eventClass, eventID, ae::typeApplSignature, address,
                                             ae::kAutoGenerateReturnID, ae::kAnyTransactionID,
                                             &event, &error, params, args...);
  if (built != noErr) {
    ADD_FAILURE() << "building \"" << params << "\" failed: " << built << " (syntax " << error.code
                  << " at " << error.position << ")";
  }
  return event;
}

inline ae::Descriptor getd(std::string_view params) {
  return playerEvent(ae::kAECoreSuite, ae::kAEGetData, params);
}

// The framework's property template with a literal container.
inline std::string propertyOf(std::string_view property, std::string_view container) {
  return "obj { form:prop, want:type(prop), seld:type(" + std::string(property) +
         "), from:" + std::string(container) + " }";
}

inline std::string trackSpecifier(DatabaseId track, DatabaseId playlist = kLibraryId) {
  return "obj { form:'ID  ', want:type(cTrk), seld:" + std::to_string(track) +
         ", from:obj { form:'ID  ', want:type(cPly), seld:" + std::to_string(playlist) +
         ", from:null() } }";
}

inline std::string playlistSpecifier(DatabaseId playlist) {
  return "obj { form:'ID  ', want:type(cPly), seld:" + std::to_string(playlist) + ", from:null() }";
}

// 'errn' of a reply, 0 when absent.
inline int32_t errorNumber(const ae::Descriptor& reply) {
  int32_t number = 0;
  reply.getParamPtr(ae::keyErrorNumber, ae::typeSInt32, nullptr, &number, sizeof number, nullptr);
  return number;
}

inline std::string errorString(const ae::Descriptor& reply) {
  ae::Descriptor text;
  if (reply.getParamDesc(ae::keyErrorString, ae::typeUTF8Text, &text) != noErr) return "";
  return std::string(text.data().begin(), text.data().end());
}

inline bool hasResult(const ae::Descriptor& reply) {
  return reply.findParam(ae::keyDirectObject) != nullptr;
}

inline const ae::Descriptor& result(const ae::Descriptor& reply) {
  const ae::Descriptor* direct = reply.findParam(ae::keyDirectObject);
  return direct != nullptr ? *direct : ae::nullDescriptor();
}

inline std::string textResult(const ae::Descriptor& reply) {
  auto text = ae::textValue(result(reply));
  return text ? *text : "<no text: " + fourCharString(result(reply).type()) + ">";
}

inline int64_t integerResult(const ae::Descriptor& reply) {
  auto value = ae::integerValue(result(reply));
  return value ? *value : INT64_MIN;
}

// The 'seld' of the outermost object specifier of `desc` as an integer (the ID of a track or
// playlist specifier), and its 'want'.
inline int64_t specifierId(const ae::Descriptor& desc) {
  const ae::Descriptor* seld = desc.findParam(ae::keyAEKeyData);
  if (seld == nullptr) return -1;
  auto value = ae::integerValue(*seld);
  return value ? *value : -1;
}

inline OSType specifierClass(const ae::Descriptor& desc) {
  const ae::Descriptor* want = desc.findParam(ae::keyAEDesiredClass);
  if (want == nullptr) return 0;
  auto code = ae::codeValue(*want);
  return code ? *code : 0;
}

// The IDs of a list of specifiers.
inline std::vector<int64_t> specifierIds(const ae::Descriptor& list) {
  std::vector<int64_t> ids;
  for (size_t i = 0; i < list.itemCount(); ++i)
    ids.push_back(specifierId(list.itemAt(i)));
  return ids;
}

// ---- The daemon as a child process -----------------------------------------------------------

#ifdef RVITUNES_PLAYER_DAEMON_PATH
inline std::string daemonPath() {
  return RVITUNES_PLAYER_DAEMON_PATH;
}
#else
// Beside the command-line tool in the build tree.
inline std::string daemonPath() {
  std::string cli = RVITUNES_CLI_PATH;
  const std::string tail = "apps/rvitunes/rvitunes";
  if (cli.size() >= tail.size() && cli.compare(cli.size() - tail.size(), tail.size(), tail) == 0) {
    cli.replace(cli.size() - tail.size(), tail.size(), "apps/rvitunes-player/rvitunes-player");
  }
  return cli;
}
#endif

// A process started with posix_spawn, with its stderr collected in a file. The destructor
// kills it (SIGKILL) if it still runs and always reaps it.
class ChildProcess {
 public:
  ChildProcess() = default;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess() {
    if (pid_ > 0 && !exited_) {
      ::kill(pid_, SIGKILL);
      reap(std::chrono::seconds(5));
    }
  }

  // Starts `argv[0]` with `argv` and the current environment plus `extraEnv` ("K=V"), its
  // stderr and stdout going to the named files.
  bool start(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv,
             const std::string& stderrPath, const std::string& stdoutPath = "/dev/null") {
    std::vector<std::string> env = extraEnv;
    for (char** e = environ; *e != nullptr; ++e) {
      const std::string entry = *e;
      const std::string key = entry.substr(0, entry.find('='));
      bool overridden = false;
      for (const std::string& extra : extraEnv) {
        if (extra.compare(0, key.size() + 1, key + "=") == 0) overridden = true;
      }
      if (!overridden) env.push_back(entry);
    }
    std::vector<char*> args;
    for (const std::string& a : argv)
      args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    std::vector<char*> envp;
    for (const std::string& e : env)
      envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 2, stderrPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    posix_spawn_file_actions_addopen(&actions, 1, stdoutPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    // The child starts with SIGINT and SIGTERM at their defaults and unblocked.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    const int spawned =
        posix_spawn(&pid_, args[0], &actions, &attributes, args.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (spawned != 0) pid_ = -1;
    return spawned == 0;
  }

  pid_t pid() const { return pid_; }
  bool running() {
    if (pid_ <= 0 || exited_) return false;
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
      exited_ = true;
      status_ = status;
    }
    return !exited_;
  }
  void signal(int number) {
    if (running()) ::kill(pid_, number);
  }
  // Waits up to `limit` for the process to end; answers its exit status, or nullopt (still
  // running, or killed by a signal).
  std::optional<int> reap(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (running() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (!exited_) return std::nullopt;
    if (WIFEXITED(status_)) return WEXITSTATUS(status_);
    return std::nullopt;
  }

 private:
  pid_t pid_ = -1;
  bool exited_ = false;
  int status_ = 0;
};

// A private bus directory: $XDG_RUNTIME_DIR for the children, the bus folder below it for this
// process's event managers.
struct PrivateBus {
  ScratchFolder runtime;
  std::string busPath() const { return runtime / "rvitunes"; }
  std::string environment() const { return "XDG_RUNTIME_DIR=" + runtime.path(); }
};

// A client of the private bus with its own event manager (and so its own connection).
class BusClient {
 public:
  explicit BusClient(const PrivateBus& bus) : manager_(ae::EventManager::Options{bus.busPath()}) {}

  // Sends `event` and waits for the reply, at most `ticks` (1/60 s); the delivery status goes
  // to *status. The reply is the null descriptor when delivery failed.
  ae::Descriptor request(const ae::Descriptor& event, OSStatus* status = nullptr,
                         long ticks = 300) {
    ae::Descriptor reply;
    const OSStatus sent =
        manager_.send(event, &reply, ae::kAEWaitReply | ae::kAENeverInteract, ticks);
    if (status != nullptr) *status = sent;
    return reply;
  }
  // Sends without waiting for a reply, as the framework's setters and commands do.
  OSStatus post(const ae::Descriptor& event) {
    return manager_.send(event, nullptr, ae::kAENoReply | ae::kAENeverInteract, 300);
  }
  ae::EventManager& manager() { return manager_; }

 private:
  ae::EventManager manager_;
};

// The daemon serving `library` on `bus`, started and waited for until it is registered.
class Daemon {
 public:
  Daemon(const PrivateBus& bus, const std::string& library, std::vector<std::string> extraArgs,
         const ScratchFolder& logFolder)
      : bus_(bus), logPath_(logFolder / "daemon.log") {
    std::vector<std::string> argv = {daemonPath(), "--library", library};
    argv.insert(argv.end(), extraArgs.begin(), extraArgs.end());
    started_ = process_.start(argv, {bus.environment()}, logPath_);
  }

  // True once the daemon's registration is live on the bus (waits up to `limit`).
  bool waitUntilRegistered(std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    if (!started_) return false;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline && process_.running()) {
      auto directory = ae::BusDirectory::open(bus_.busPath());
      if (directory && directory->find(kPlayerSignature)) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }

  ChildProcess& process() { return process_; }
  std::string log() const { return readWhole(logPath_); }

 private:
  const PrivateBus& bus_;
  std::string logPath_;
  ChildProcess process_;
  bool started_ = false;
};

}  // namespace rvitunes::player::testing
