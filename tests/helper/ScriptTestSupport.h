// Test support for the script interpreter and RVITunesHelper's script and facade operations:
// a private bus directory for this program, a recording application, an executor that records
// the scripts it is given, the reference player in this process, and a clean controller.
#pragma once

#include <gtest/gtest.h>

#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "../player/HandlerTestSupport.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/ae/Printer.h"
#include "rvitunes/cadenza/CZPlaylistCache.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/helper/AppleScript.h"
#include "rvitunes/helper/RVITunesHelper.h"
#include "rvitunes/player/ManualTimeSource.h"
#include "rvitunes/player/PlayerServer.h"

namespace rvitunes::script_testing {

using player::testing::ScratchFolder;

// Points the event bus and the file-reference registry of this program at a private folder
// before anything uses them, so that no other program's applications are seen.
struct PrivateRuntime {
  PrivateRuntime() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "rvitunes-script.XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) return;
    path = pattern;
    ::setenv("XDG_RUNTIME_DIR", path.c_str(), 1);
    ::setenv("RVITUNES_FILEREF_DIR", (path + "/file-references").c_str(), 1);
  }
  ~PrivateRuntime() {
    std::error_code ignored;
    if (!path.empty()) std::filesystem::remove_all(path, ignored);
  }
  std::string path;
};
inline const PrivateRuntime kPrivateRuntime;

// An application registered with the shared event manager while the object lives. It keeps
// the printed form of every event it receives and answers through `respond` (nothing: noErr).
class RecordingApp {
 public:
  using Responder = std::function<OSStatus(const ae::Descriptor& event, ae::Descriptor& reply)>;

  RecordingApp(OSType signature, std::string name) : signature_(signature) {
    auto app = ae::EventManager::shared().registerApplication(signature, std::move(name));
    EXPECT_TRUE(app.ok()) << app.status().toString();
    if (!app.ok()) return;
    (*app)->installEventHandler(ae::typeWildCard, ae::typeWildCard,
                                [this](const ae::Descriptor& event, ae::Descriptor& reply) {
                                  Responder responder;
                                  {
                                    std::lock_guard lock(mutex_);
                                    events_.push_back(ae::printDesc(event));
                                    responder = responder_;
                                  }
                                  return responder ? responder(event, reply) : noErr;
                                });
  }
  ~RecordingApp() { (void)ae::EventManager::shared().unregisterApplication(signature_); }
  RecordingApp(const RecordingApp&) = delete;
  RecordingApp& operator=(const RecordingApp&) = delete;

  void respond(Responder responder) {
    std::lock_guard lock(mutex_);
    responder_ = std::move(responder);
  }
  std::vector<std::string> events() const {
    std::lock_guard lock(mutex_);
    return events_;
  }

 private:
  const OSType signature_;
  mutable std::mutex mutex_;
  Responder responder_;
  std::vector<std::string> events_;
};

// Installs an executor for the life of the object: it records each source and answers through
// `run` (by default: success with a null result). The built-in executor comes back afterwards.
class RecordingExecutor {
 public:
  using Run = std::function<std::shared_ptr<ae::Descriptor>(int call, AppleScriptError* error)>;

  explicit RecordingExecutor(Run run = {}) : state_(std::make_shared<State>()) {
    state_->run = std::move(run);
    previous_ = RVITunesHelper::setAppleScriptExecutor(
        [state = state_](const std::string& source, AppleScriptError* error) {
          int call = 0;
          {
            std::lock_guard lock(state->mutex);
            state->sources.push_back(source);
            state->times.push_back(std::chrono::steady_clock::now());
            call = static_cast<int>(state->sources.size());
          }
          if (state->run) return state->run(call, error);
          return std::make_shared<ae::Descriptor>();
        });
  }
  ~RecordingExecutor() { RVITunesHelper::setAppleScriptExecutor(std::move(previous_)); }
  RecordingExecutor(const RecordingExecutor&) = delete;
  RecordingExecutor& operator=(const RecordingExecutor&) = delete;

  std::vector<std::string> sources() const {
    std::lock_guard lock(state_->mutex);
    return state_->sources;
  }
  std::vector<std::chrono::steady_clock::time_point> times() const {
    std::lock_guard lock(state_->mutex);
    return state_->times;
  }

 private:
  struct State {
    std::mutex mutex;
    Run run;
    std::vector<std::string> sources;
    std::vector<std::chrono::steady_clock::time_point> times;
  };
  std::shared_ptr<State> state_;
  RVITunesHelper::AppleScriptExecutor previous_;
};

// A failed run, as an executor reports it.
inline std::shared_ptr<ae::Descriptor> failedRun(AppleScriptError* error) {
  if (error != nullptr) *error = AppleScriptError{procNotFound, "failed", "iTunes", 0, 0};
  return nullptr;
}

// Forgets the shared controller, its cache and the cached version now and at the end.
struct CleanController {
  CleanController() { reset(); }
  ~CleanController() { reset(); }
  CleanController(const CleanController&) = delete;
  CleanController& operator=(const CleanController&) = delete;
  static void reset() {
    Cadenza::unSharedInstance();
    CZPlaylistCache::releaseSharedInstance();
    Cadenza::resetCachedVersion();
  }
};

// The reference player in this process on the handler tests' library, its time moved by hand.
struct InProcessPlayer {
  explicit InProcessPlayer(bool writeBack = false) {
    library = player::testing::writeTestLibrary(folder);
    player::PlayerServerOptions options;
    options.time = time;
    options.writeBack = writeBack;
    options.tickInterval = std::chrono::milliseconds(0);
    auto started = player::PlayerServer::startInProcess(library, std::move(options));
    EXPECT_TRUE(started.ok()) << started.status().toString();
    if (started.ok()) server = std::move(*started);
  }
  std::string file(player::DatabaseId track) const {
    return folder / ("music/" + std::to_string(track) + ".mp3");
  }

  ScratchFolder folder;
  std::string library;
  std::shared_ptr<player::ManualTimeSource> time = std::make_shared<player::ManualTimeSource>();
  std::unique_ptr<player::PlayerServer> server;
};

}  // namespace rvitunes::script_testing
