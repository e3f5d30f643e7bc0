#include "rvitunes/player/Daemon.h"

#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <memory>

#include "rvitunes/ae/EventManager.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/player/PlayerServer.h"

// Set by the build from the project's version.
#ifndef RVITUNES_VERSION
#define RVITUNES_VERSION "unknown"
#endif

namespace rvitunes::player {

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// The debug channel on stderr, for --verbose.
class StderrSink final : public LogSink {
 public:
  void write(std::string_view line) override {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
  }
};

// Blocks SIGINT and SIGTERM in the calling thread for its lifetime, restoring the old mask.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigemptyset(&set_);
    sigaddset(&set_, SIGINT);
    sigaddset(&set_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set_, &previous_);
  }
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

  // Waits up to `milliseconds` for one of the signals; answers it, or 0.
  int wait(long milliseconds) const {
    timespec timeout{milliseconds / 1000, (milliseconds % 1000) * 1'000'000};
    const int signal = sigtimedwait(&set_, nullptr, &timeout);
    return signal > 0 ? signal : 0;
  }

 private:
  sigset_t set_{};
  sigset_t previous_{};
};

}  // namespace

Result<DaemonOptions> parseDaemonArguments(const std::vector<std::string>& args) {
  DaemonOptions options;
  bool haveLibrary = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    const auto valueOf = [&](const char* option) -> Result<std::string> {
      if (i + 1 >= args.size()) {
        return Status::error(paramErr, std::string(option) + " needs a value");
      }
      return args[++i];
    };
    if (arg == "-h" || arg == "--help") {
      options.help = true;
    } else if (arg == "--version") {
      options.showVersion = true;
    } else if (arg == "--verbose" || arg == "-v") {
      options.verbose = true;
    } else if (arg == "--file" || arg == "--library") {
      auto value = valueOf(arg.c_str());
      if (!value) return value.status();
      options.libraryPath = *value;
      haveLibrary = true;
    } else if (arg == "--player-version") {
      auto value = valueOf("--player-version");
      if (!value) return value.status();
      auto version = PlayerVersion::parse(*value);
      if (!version) {
        return Status::error(paramErr,
                             "--player-version \"" + *value + "\" is not a version such as 7.2.1");
      }
      options.version = *version;
    } else if (arg == "--name") {
      auto value = valueOf("--name");
      if (!value) return value.status();
      if (value->empty()) return Status::error(paramErr, "--name needs a non-empty name");
      options.name = *value;
    } else {
      return Status::error(paramErr, "unknown argument \"" + arg + "\"");
    }
  }
  if (!haveLibrary && !options.help && !options.showVersion) {
    return Status::error(paramErr, "--file FILE is required");
  }
  return options;
}

std::string daemonUsage(std::string_view program) {
  const std::string name(program);
  return "usage: " + name +
         " --file FILE [--player-version V] [--name NAME] [--verbose]\n"
         "       " +
         name +
         " --help | --version\n"
         "\n"
         "Serves the reference player on the local event bus under the signature 'hook'.\n"
         "\n"
         "  --file FILE           the iTunes library file to load (and write back);\n"
         "                        --library FILE is the same\n"
         "  --player-version V    the player version to pretend to be (default " +
         std::string(PlayerVersion::kDefaultText) +
         ");\n"
         "                        it decides the forms of persistent IDs and the properties\n"
         "  --name NAME           the application name on the bus (default iTunes)\n"
         "  -v, --verbose         also log the debug channel to stderr\n"
         "  -h, --help            show this help\n"
         "  --version             show the program's version\n"
         "\n"
         "Stops on the quit event, SIGINT or SIGTERM, writing a pending library change first.\n"
         "\n"
         "exit status: 0 after a clean stop, 1 the player could not start (unreadable library,\n"
         "'hook' taken, bus directory unusable), 2 wrong usage.\n";
}

int runDaemon(const std::vector<std::string>& args, std::string_view program) {
  const std::string name(program);
  auto parsed = parseDaemonArguments(args);
  if (!parsed) {
    std::fprintf(stderr, "%s: %s\n\n%s", name.c_str(), parsed.status().message().c_str(),
                 daemonUsage(program).c_str());
    return kExitUsage;
  }
  const DaemonOptions& options = *parsed;
  if (options.help) {
    std::fputs(daemonUsage(program).c_str(), stdout);
    return kExitOk;
  }
  if (options.showVersion) {
    std::printf("%s %s\n", name.c_str(), RVITUNES_VERSION);
    return kExitOk;
  }
  if (options.verbose) setNullLogSink(std::make_shared<StderrSink>());

  // Before any thread starts, so that every thread inherits the mask and the signals come
  // only to the wait below.
  BlockedSignals signals;
  ae::EventManager& manager = ae::EventManager::shared();

  auto directory = manager.busDirectory();
  if (!directory) {
    SystemLog("%s: the bus directory cannot be used: %s", name.c_str(),
              directory.status().toString().c_str());
    return kExitFailure;
  }
  if (auto other = directory->find(kPlayerSignature)) {
    SystemLog(
        "%s: a player is already running under 'hook' (\"%s\", pid %d); not starting a "
        "second one",
        name.c_str(), other->name.c_str(), static_cast<int>(other->pid));
    return kExitFailure;
  }

  PlayerServerOptions serverOptions;
  serverOptions.version = options.version;
  serverOptions.name = options.name;
  serverOptions.eventManager = &manager;
  serverOptions.publish = true;
  auto server = PlayerServer::startInProcess(options.libraryPath, serverOptions);
  if (!server) {
    const Status& why = server.status();
    if (why.code() == paramErr && why.message().find("already registered") != std::string::npos) {
      SystemLog("%s: a player is already running under 'hook': %s; not starting a second one",
                name.c_str(), why.message().c_str());
    } else {
      SystemLog("%s: cannot start the player on \"%s\": %s", name.c_str(),
                options.libraryPath.c_str(), why.toString().c_str());
    }
    return kExitFailure;
  }
  SystemLog("%s: serving \"%s\" as 'hook' \"%s\", version %s, on %s", name.c_str(),
            options.libraryPath.c_str(), options.name.c_str(), options.version.text().c_str(),
            directory->path().c_str());

  int signal = 0;
  while (!(*server)->quitRequested()) {
    signal = signals.wait(100);
    if (signal != 0) break;
  }
  if (signal != 0) {
    SystemLog("%s: %s received; stopping", name.c_str(), signal == SIGINT ? "SIGINT" : "SIGTERM");
  } else {
    SystemLog("%s: quit event received; stopping", name.c_str());
  }
  server->reset();  // unregisters and writes a pending library change
  SystemLog("%s: stopped", name.c_str());
  return kExitOk;
}

}  // namespace rvitunes::player
