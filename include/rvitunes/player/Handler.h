// The event handlers of the reference player: every event the framework, its AppleScript lines
// and the command-line tool send to the player, answered on the player's model.
//
//   core/getd  '----' specifier [, rtyp type]     '----' the value, or a list for a set
//   core/setd  '----' specifier, data value       nothing
//   core/cnte  '----' container, kocl class       '----' 'long' (a list of them for a set)
//   core/delo  '----' artwork specifier           nothing
//   hook/Play  [ '----' track, playlist, file (alis, fsrf, furl) ] [, POne bool]
//   hook/Paus PlPs Next Prev Back Fast Rwnd Resu Stop    (a '----' of null() is ignored)
//   hook/Srch  '----' playlist, pTrm text [, pAre search area]   '----' list of tracks
//   hook/Add   '----' file or list of files [, insh playlist]     '----' list of tracks
//   aevt/quit  writes a pending library change, then asks the owner to stop; when the write
//              fails it answers the error and does not stop, so the change is not lost
//   aevt/oapp, aevt/rapp  nothing to do (the player is running)
//   misc/actv  frontmost and visible
// Anything else answers errAEEventNotHandled (-1708).
//
// Replies put the result under '----'. A failure puts its number under 'errn' ('long') and a
// message under 'errs' ('utxt'), and the handler answers the number (see ae::EventHandler).
// A missing required parameter is errAEDescNotFound (-1701); a direct object of the wrong kind
// for a command (a search in a track) errAECantHandleClass (-10010); a file that cannot be
// found fnfErr (-43). The resolver's and the model's numbers pass through unchanged.
//
// Threads: handle() may be called from any thread; calls are serialised by the handlers' own
// lock, which also guards the model for anyone else who takes it (withModel).
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>

#include "rvitunes/ae/Application.h"
#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/player/PlayerModel.h"
#include "rvitunes/player/Resolver.h"

namespace rvitunes::player {

// One row of the handler table.
struct HandledEvent {
  ae::AEEventClass eventClass;
  ae::AEEventID eventID;
  std::string_view summary;
};

class PlayerHandlers {
 public:
  struct Options {
    // The application's name, answered for its 'pnam'.
    std::string applicationName = kPlayerName;
    // Called after 'aevt'/'quit' was handled (on the thread that handled it, the handlers'
    // lock held): the owner stops the player.
    std::function<void()> onQuit;
  };

  // The handlers share the model: it lives as long as the handlers or anyone else holding it.
  PlayerHandlers(std::shared_ptr<PlayerModel> model, Options options);
  PlayerHandlers(const PlayerHandlers&) = delete;
  PlayerHandlers& operator=(const PlayerHandlers&) = delete;

  // The events answered, in table order.
  static std::span<const HandledEvent> table();

  // Installs a handler for every row of table(), and one for every other event, on `app`. The
  // installed handlers keep `handlers` alive.
  static void install(const std::shared_ptr<PlayerHandlers>& handlers, ae::Application& app);
  // Removes what install() put on `app`.
  static void uninstall(ae::Application& app);

  // Handles one event as the installed handlers do. `reply` is the reply event, or the null
  // descriptor when no reply is wanted.
  OSStatus handle(const ae::Descriptor& event, ae::Descriptor& reply);

  // Runs `f(model)` under the handlers' lock.
  template <class F>
  auto withModel(F&& f) {
    std::lock_guard lock(mutex_);
    return std::forward<F>(f)(*model_);
  }

  bool quitRequested() const;

 private:
  OSStatus dispatch(const ae::Descriptor& event, ae::Descriptor& reply);
  OSStatus getData(const ae::Descriptor& event, ae::Descriptor& reply);
  OSStatus setData(const ae::Descriptor& event, ae::Descriptor& reply);
  OSStatus countElements(const ae::Descriptor& event, ae::Descriptor& reply);
  OSStatus deleteObjects(const ae::Descriptor& event, ae::Descriptor& reply);
  OSStatus play(const ae::Descriptor& event, ae::Descriptor& reply);
  OSStatus search(const ae::Descriptor& event, ae::Descriptor& reply);
  OSStatus add(const ae::Descriptor& event, ae::Descriptor& reply);
  OSStatus quit(const ae::Descriptor& event, ae::Descriptor& reply);
  OSStatus transport(const ae::Descriptor& event, ae::Descriptor& reply);

  // Puts 'errn' and 'errs' into a reply that wants them and answers the number.
  static OSStatus fail(ae::Descriptor& reply, const Status& status);
  static void answer(ae::Descriptor& reply, ae::Descriptor result);

  std::shared_ptr<PlayerModel> model_;
  Options options_;
  Resolver resolver_;
  mutable std::mutex mutex_;
  bool quitRequested_ = false;
};

}  // namespace rvitunes::player
