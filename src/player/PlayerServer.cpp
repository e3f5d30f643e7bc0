#include "rvitunes/player/PlayerServer.h"

#include "rvitunes/base/Log.h"

namespace rvitunes::player {

struct PlayerServer::QuitLink {
  std::mutex mutex;
  PlayerServer* server = nullptr;
};

Result<std::unique_ptr<PlayerServer>> PlayerServer::startInProcess(const std::string& libraryPath,
                                                                   PlayerServerOptions options) {
  ae::EventManager& manager =
      options.eventManager != nullptr ? *options.eventManager : ae::EventManager::shared();
  auto server = std::make_unique<PlayerServer>(Private{}, std::move(options), manager);
  const PlayerServerOptions& opts = server->options_;

  PlayerOptions modelOptions;
  modelOptions.version = opts.version;
  modelOptions.writeBack = opts.writeBack;
  modelOptions.writeBackDelay = opts.writeBackDelay;
  modelOptions.writeBackMaxDelay = opts.writeBackMaxDelay;
  modelOptions.time = opts.time;
  server->model_ = std::make_shared<PlayerModel>(std::move(modelOptions));
  if (Status loaded = server->model_->load(libraryPath); !loaded.ok()) return loaded;

  PlayerHandlers::Options handlerOptions;
  handlerOptions.applicationName = opts.name;
  server->quitLink_ = std::make_shared<QuitLink>();
  server->quitLink_->server = server.get();
  handlerOptions.onQuit = [link = server->quitLink_] {
    std::lock_guard lock(link->mutex);
    if (link->server != nullptr) link->server->noteQuit();
  };
  server->handlers_ = std::make_shared<PlayerHandlers>(server->model_, std::move(handlerOptions));

  auto app = manager.registerApplication(kPlayerSignature, opts.name);
  if (!app) return app.status();
  server->application_ = std::move(app).value();
  PlayerHandlers::install(server->handlers_, *server->application_);
  if (opts.publish) {
    // From here on the destructor undoes the registration.
    if (Status published = manager.publish(kPlayerSignature); !published.ok()) return published;
    server->published_ = true;
  }
  if (opts.tickInterval.count() > 0) {
    server->ticker_ = std::thread(
        [raw = server.get(), interval = opts.tickInterval] { raw->tickLoop(interval); });
  }
  return server;
}

PlayerServer::PlayerServer(Private, PlayerServerOptions options, ae::EventManager& manager)
    : options_(std::move(options)), manager_(&manager) {}

PlayerServer::~PlayerServer() {
  if (quitLink_) {
    std::lock_guard lock(quitLink_->mutex);
    quitLink_->server = nullptr;
  }
  {
    std::lock_guard lock(stateMutex_);
    stopping_ = true;
  }
  stateChanged_.notify_all();
  if (ticker_.joinable()) ticker_.join();
  if (application_) {
    // Events that arrive from now on find no handler; one being handled finishes first.
    PlayerHandlers::uninstall(*application_);
    if (Status gone = manager_->unregisterApplication(kPlayerSignature); !gone.ok()) {
      SystemLog("player: unregistering failed: %s", gone.toString().c_str());
    }
  }
  if (handlers_) {
    handlers_->withModel([](PlayerModel& model) {
      if (Status written = model.quit(); !written.ok()) {
        SystemLog("player: writing the library failed: %s", written.toString().c_str());
      }
      return 0;
    });
  }
}

bool PlayerServer::quitRequested() const {
  std::lock_guard lock(stateMutex_);
  return quit_;
}

bool PlayerServer::waitForQuit(std::chrono::milliseconds timeout) const {
  std::unique_lock lock(stateMutex_);
  stateChanged_.wait_for(lock, timeout, [this] { return quit_; });
  return quit_;
}

void PlayerServer::noteQuit() {
  std::function<void()> callback;
  {
    std::lock_guard lock(stateMutex_);
    if (quit_ || stopping_) return;
    quit_ = true;
    callback = options_.onQuit;
  }
  stateChanged_.notify_all();
  if (callback) callback();
}

void PlayerServer::tickLoop(std::chrono::milliseconds interval) {
  std::unique_lock lock(stateMutex_);
  while (!stopping_) {
    stateChanged_.wait_for(lock, interval, [this] { return stopping_; });
    if (stopping_) break;
    lock.unlock();
    handlers_->withModel([](PlayerModel& model) {
      model.tick();
      return 0;
    });
    lock.lock();
  }
}

}  // namespace rvitunes::player
