// A running reference player: its model loaded from a library file, its handlers registered in
// an event manager under the signature 'hook' and a name ("iTunes" unless told otherwise), and
// optionally published on the local bus so that other processes reach it. The daemon, the
// command-line tool's embedded player, the demo and the tests all start it through here.
//
//   auto player = PlayerServer::startInProcess("/path/iTunes Music Library.xml", {});
//   if (!player) { ... player.status() ... }
//   // events sent to 'hook' through the event manager now reach it
//
// The handle is RAII: destroying it unregisters the application (an event being handled
// finishes first), stops the idle ticker and writes a pending library change.
//
// Threads: the handle's members are thread-safe. Events are handled one at a time.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "rvitunes/ae/EventManager.h"
#include "rvitunes/base/Result.h"
#include "rvitunes/player/Handler.h"
#include "rvitunes/player/PlayerModel.h"
#include "rvitunes/player/PlayerVersion.h"

namespace rvitunes::player {

struct PlayerServerOptions {
  PlayerVersion version;
  // The name the application registers under and answers for its 'pnam'.
  std::string name = kPlayerName;
  // Where to register; EventManager::shared() when null. Must outlive the server.
  ae::EventManager* eventManager = nullptr;
  // Also serve on the bus (a socket in the manager's bus directory). Fails with paramErr when
  // another live application holds 'hook' there.
  bool publish = false;
  // Library write-back (see PlayerOptions).
  bool writeBack = true;
  std::chrono::milliseconds writeBackDelay{500};
  std::chrono::milliseconds writeBackMaxDelay{5000};
  // Playback time; the steady clock when null.
  std::shared_ptr<TimeSource> time;
  // How often an idle player counts finished tracks as played; zero: never (only events do).
  std::chrono::milliseconds tickInterval{1000};
  // Called once after 'aevt'/'quit' was handled (on the handling thread). The server keeps
  // running until its owner destroys it.
  std::function<void()> onQuit;
};

class PlayerServer {
 public:
  // Loads `libraryPath` and registers the player. Errors: the model's load errors (ioErr for a
  // file that does not parse, fnfErr for a missing one), paramErr when 'hook' is already
  // registered in the manager or, with `publish`, live on the bus (the message names the
  // holder), and the bus directory's errors.
  static Result<std::unique_ptr<PlayerServer>> startInProcess(const std::string& libraryPath,
                                                              PlayerServerOptions options = {});

  PlayerServer(const PlayerServer&) = delete;
  PlayerServer& operator=(const PlayerServer&) = delete;
  ~PlayerServer();

  OSType signature() const { return kPlayerSignature; }
  const std::string& name() const { return options_.name; }
  const PlayerVersion& version() const { return options_.version; }
  bool published() const { return published_; }
  ae::EventManager& eventManager() const { return *manager_; }

  // True once 'aevt'/'quit' was handled.
  bool quitRequested() const;
  // Waits until 'aevt'/'quit' was handled or `timeout` passed; answers quitRequested().
  bool waitForQuit(std::chrono::milliseconds timeout) const;

  // Runs `f(model)` while no event is handled.
  template <class F>
  auto withModel(F&& f) {
    return handlers_->withModel(std::forward<F>(f));
  }

 private:
  struct Private {};

 public:
  PlayerServer(Private, PlayerServerOptions options, ae::EventManager& manager);

 private:
  // Connects the quit handler to this server until the destructor cuts the link, so that a
  // handler still running elsewhere never reaches a destroyed server.
  struct QuitLink;

  void tickLoop(std::chrono::milliseconds interval);
  void noteQuit();

  PlayerServerOptions options_;
  ae::EventManager* manager_;
  std::shared_ptr<PlayerModel> model_;
  std::shared_ptr<PlayerHandlers> handlers_;
  std::shared_ptr<ae::Application> application_;
  std::shared_ptr<QuitLink> quitLink_;
  bool published_ = false;

  mutable std::mutex stateMutex_;
  mutable std::condition_variable stateChanged_;
  bool quit_ = false;
  bool stopping_ = false;
  std::thread ticker_;
};

}  // namespace rvitunes::player
