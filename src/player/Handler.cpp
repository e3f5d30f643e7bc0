#include "rvitunes/player/Handler.h"

#include <algorithm>
#include <map>

#include "rvitunes/ae/Coercion.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/player/Specifier.h"

namespace rvitunes::player {

namespace {

using Kind = ObjectRef::Kind;

constexpr ae::AEEventClass kPlayerSuite = kPlayerSignature;  // the player's own events: 'hook'
constexpr ae::AEKeyword keyPlayOnce = fourCharCode("POne");
constexpr ae::AEKeyword keySearchTerm = fourCharCode("pTrm");
constexpr ae::AEKeyword keySearchArea = fourCharCode("pAre");

constexpr HandledEvent kTable[] = {
    {ae::kAECoreSuite, ae::kAEGetData, "get a property or an element"},
    {ae::kAECoreSuite, ae::kAESetData, "set a property"},
    {ae::kAECoreSuite, ae::kAECountElements, "count elements"},
    {ae::kAECoreSuite, ae::kAEDelete, "delete artwork"},
    {kPlayerSuite, fourCharCode("Play"), "play; a track, a playlist or a file"},
    {kPlayerSuite, fourCharCode("Paus"), "pause"},
    {kPlayerSuite, fourCharCode("PlPs"), "play or pause"},
    {kPlayerSuite, fourCharCode("Next"), "next track"},
    {kPlayerSuite, fourCharCode("Prev"), "previous track"},
    {kPlayerSuite, fourCharCode("Back"), "back track"},
    {kPlayerSuite, fourCharCode("Fast"), "fast forward"},
    {kPlayerSuite, fourCharCode("Rwnd"), "rewind"},
    {kPlayerSuite, fourCharCode("Resu"), "resume"},
    {kPlayerSuite, fourCharCode("Stop"), "stop"},
    {kPlayerSuite, fourCharCode("Srch"), "search a playlist"},
    {kPlayerSuite, fourCharCode("Add "), "add files"},
    {ae::kCoreEventClass, ae::kAEQuitApplication, "quit"},
    {ae::kCoreEventClass, ae::kAEOpenApplication, "run"},
    {ae::kCoreEventClass, ae::kAEReopenApplication, "reopen"},
    {ae::kAEMiscStandards, ae::kAEActivate, "activate"},
};

Status missing(ae::AEKeyword key) {
  return Status::error(errAEDescNotFound, "The parameter " + fourCharDisplay(key) + " is missing.");
}

// The path of a file parameter: an alias, a file reference or a file URL (or a text holding a
// file URL or an absolute path).
Result<std::string> pathOf(const ae::Descriptor& desc) {
  std::optional<std::string> text;
  if (desc.type() == ae::typeChar || desc.type() == ae::typeUnicodeText ||
      desc.type() == ae::typeUTF8Text) {
    text = textOf(desc);
    if (text && text->starts_with("/")) return *text;
  } else {
    ae::Descriptor url;
    if (OSStatus coerced = ae::coerceDesc(desc, ae::typeFileURL, &url); coerced != noErr) {
      if (desc.type() == ae::typeAlias || desc.type() == ae::typeFSRef) {
        return Status::error(fnfErr, "The file cannot be found.");
      }
      return Status::error(errAECoercionFail, "The parameter is not a file.");
    }
    text = std::string(url.data().begin(), url.data().end());
  }
  if (!text) return Status::error(errAECoercionFail, "The parameter is not a file.");
  auto parsed = Url::parse(*text);
  if (!parsed || !parsed->isFileUrl()) {
    return Status::error(errAECoercionFail, "\"" + *text + "\" is not a file URL.");
  }
  auto path = parsed->path();
  if (!path) return Status::error(errAECoercionFail, "\"" + *text + "\" is not a file URL.");
  return *path;
}

bool isFileDescriptor(const ae::Descriptor& desc) {
  const ae::DescType type = desc.type();
  return type == ae::typeAlias || type == ae::typeFSRef || type == ae::typeFileURL ||
         type == fourCharCode("fss ") || type == ae::typeChar || type == ae::typeUnicodeText ||
         type == ae::typeUTF8Text;
}

}  // namespace

PlayerHandlers::PlayerHandlers(std::shared_ptr<PlayerModel> model, Options options)
    : model_(std::move(model)),
      options_(std::move(options)),
      resolver_(*model_, options_.applicationName) {}

std::span<const HandledEvent> PlayerHandlers::table() {
  return kTable;
}

void PlayerHandlers::install(const std::shared_ptr<PlayerHandlers>& handlers,
                             ae::Application& app) {
  auto handler = [handlers](const ae::Descriptor& event, ae::Descriptor& reply) {
    return handlers->handle(event, reply);
  };
  for (const HandledEvent& row : kTable) {
    app.installEventHandler(row.eventClass, row.eventID, handler);
  }
  app.installEventHandler(ae::typeWildCard, ae::typeWildCard, handler);
}

void PlayerHandlers::uninstall(ae::Application& app) {
  for (const HandledEvent& row : kTable)
    app.removeEventHandler(row.eventClass, row.eventID);
  app.removeEventHandler(ae::typeWildCard, ae::typeWildCard);
}

bool PlayerHandlers::quitRequested() const {
  std::lock_guard lock(mutex_);
  return quitRequested_;
}

OSStatus PlayerHandlers::handle(const ae::Descriptor& event, ae::Descriptor& reply) {
  std::lock_guard lock(mutex_);
  const OSStatus status = dispatch(event, reply);
  if (status != noErr) {
    NullLog("player: %s/%s answered %d", fourCharDisplay(event.eventClass()).c_str(),
            fourCharDisplay(event.eventID()).c_str(), static_cast<int>(status));
  }
  return status;
}

OSStatus PlayerHandlers::dispatch(const ae::Descriptor& event, ae::Descriptor& reply) {
  const ae::AEEventClass eventClass = event.eventClass();
  const ae::AEEventID eventID = event.eventID();
  if (eventClass == ae::kAECoreSuite) {
    switch (eventID) {
      case ae::kAEGetData:
        return getData(event, reply);
      case ae::kAESetData:
        return setData(event, reply);
      case ae::kAECountElements:
        return countElements(event, reply);
      case ae::kAEDelete:
        return deleteObjects(event, reply);
      default:
        break;
    }
  } else if (eventClass == kPlayerSuite) {
    switch (eventID) {
      case fourCharCode("Play"):
        return play(event, reply);
      case fourCharCode("Srch"):
        return search(event, reply);
      case fourCharCode("Add "):
        return add(event, reply);
      case fourCharCode("Paus"):
      case fourCharCode("PlPs"):
      case fourCharCode("Next"):
      case fourCharCode("Prev"):
      case fourCharCode("Back"):
      case fourCharCode("Fast"):
      case fourCharCode("Rwnd"):
      case fourCharCode("Resu"):
      case fourCharCode("Stop"):
        return transport(event, reply);
      default:
        break;
    }
  } else if (eventClass == ae::kCoreEventClass) {
    if (eventID == ae::kAEQuitApplication) return quit(event, reply);
    if (eventID == ae::kAEOpenApplication || eventID == ae::kAEReopenApplication) return noErr;
  } else if (eventClass == ae::kAEMiscStandards && eventID == ae::kAEActivate) {
    model_->activate();
    return noErr;
  }
  return fail(reply,
              Status::error(errAEEventNotHandled, "The player does not understand the event " +
                                                      fourCharString(eventClass) + "/" +
                                                      fourCharString(eventID) + "."));
}

OSStatus PlayerHandlers::fail(ae::Descriptor& reply, const Status& status) {
  if (reply.isAppleEvent()) {
    const int32_t number = status.code();
    reply.putParamPtr(ae::keyErrorNumber, ae::typeSInt32, &number, sizeof number);
    if (!status.message().empty()) {
      reply.putParamDesc(ae::keyErrorString, ae::Descriptor::makeUnicodeText(status.message()));
    }
  }
  return status.code();
}

void PlayerHandlers::answer(ae::Descriptor& reply, ae::Descriptor result) {
  if (reply.isAppleEvent()) reply.putParamDesc(ae::keyDirectObject, std::move(result));
}

// ---- core ---------------------------------------------------------------------------------

OSStatus PlayerHandlers::getData(const ae::Descriptor& event, ae::Descriptor& reply) {
  const ae::Descriptor* direct = event.findParam(ae::keyDirectObject);
  if (direct == nullptr) return fail(reply, missing(ae::keyDirectObject));
  auto resolved = resolver_.resolve(*direct);
  if (!resolved) return fail(reply, resolved.status());
  auto result = resolver_.value(*resolved);
  if (!result) return fail(reply, result.status());
  if (const ae::Descriptor* wanted = event.findParam(ae::keyAERequestedType)) {
    const auto type = codeOf(*wanted);
    if (type && *type != ae::typeWildCard && *type != result->type()) {
      ae::Descriptor coerced;
      if (ae::coerceDesc(*result, *type, &coerced) != noErr) {
        return fail(reply, Status::error(errAECantSupplyType, "Can't make the value into type " +
                                                                  fourCharDisplay(*type) + "."));
      }
      result = std::move(coerced);
    }
  }
  answer(reply, std::move(result).value());
  return noErr;
}

OSStatus PlayerHandlers::setData(const ae::Descriptor& event, ae::Descriptor& reply) {
  const ae::Descriptor* direct = event.findParam(ae::keyDirectObject);
  if (direct == nullptr) return fail(reply, missing(ae::keyDirectObject));
  const ae::Descriptor* data = event.findParam(ae::keyAEData);
  if (data == nullptr) return fail(reply, missing(ae::keyAEData));
  auto resolved = resolver_.resolve(*direct);
  if (!resolved) {
    // Setting the picture of the artwork just past the last one adds it, as the player does
    // for "set data of artwork 1 of t" on a track without artwork.
    if (resolved.status().code() == errAENoSuchObject) {
      auto property = readObjectSpecifier(*direct);
      if (property && property->keyForm == ae::formPropertyID) {
        const auto code = codeOf(*property->keyData);
        auto element = readObjectSpecifier(*property->container);
        if ((code == kPropPicture || code == kPropRawData) && element &&
            element->desiredClass == kClassArtwork &&
            element->keyForm == ae::formAbsolutePosition) {
          auto owner = resolver_.resolve(*element->container);
          const auto index = integerOf(*element->keyData);
          if (owner && !owner->multiple && owner->tokens.size() == 1 && index) {
            auto tracks = resolver_.objectsOf(owner->tokens.front());
            if (tracks && tracks->size() == 1 && tracks->front().kind == Kind::kTrack) {
              const DatabaseId track = tracks->front().track;
              const size_t count = resolver_.elements(tracks->front(), kClassArtwork).size();
              if (*index == static_cast<int64_t>(count) + 1) {
                Status added = model_->library().setArtworkProperty(track, count, *code, *data);
                return added.ok() ? noErr : fail(reply, added);
              }
            }
          }
        }
      }
    }
    return fail(reply, resolved.status());
  }
  for (const Token& token : resolved->tokens) {
    Status set = resolver_.setValue(token, *data);
    if (!set.ok()) return fail(reply, set);
  }
  return noErr;
}

OSStatus PlayerHandlers::countElements(const ae::Descriptor& event, ae::Descriptor& reply) {
  const ae::Descriptor* classParam = event.findParam(ae::keyAEObjectClass);
  if (classParam == nullptr) return fail(reply, missing(ae::keyAEObjectClass));
  const auto classCode = codeOf(*classParam);
  if (!classCode) {
    return fail(reply, Status::error(errAEWrongDataType, "kocl must name a class."));
  }
  const ae::Descriptor* direct = event.findParam(ae::keyDirectObject);
  auto resolved = resolver_.resolve(direct != nullptr ? *direct : ae::nullDescriptor());
  if (!resolved) return fail(reply, resolved.status());
  ae::Descriptor counts = ae::Descriptor::makeList();
  for (const Token& token : resolved->tokens) {
    auto containers = resolver_.objectsOf(token);
    if (!containers) return fail(reply, containers.status());
    for (const ObjectRef& container : *containers) {
      const auto count = static_cast<int32_t>(resolver_.elements(container, *classCode).size());
      counts.putDesc(0, ae::Descriptor::makeSInt32(count));
    }
  }
  if (!resolved->multiple && counts.itemCount() == 1) {
    ae::Descriptor single = counts.itemAt(0).duplicate();
    answer(reply, std::move(single));
  } else {
    answer(reply, std::move(counts));
  }
  return noErr;
}

OSStatus PlayerHandlers::deleteObjects(const ae::Descriptor& event, ae::Descriptor& reply) {
  const ae::Descriptor* direct = event.findParam(ae::keyDirectObject);
  if (direct == nullptr) return fail(reply, missing(ae::keyDirectObject));
  auto resolved = resolver_.resolve(*direct);
  if (!resolved) return fail(reply, resolved.status());
  // Artwork positions per track, deleted from the last one down so that none shifts.
  std::map<DatabaseId, std::vector<int32_t>> artwork;
  for (const Token& token : resolved->tokens) {
    if (token.isProperty() || token.object.kind != Kind::kArtwork) {
      return fail(reply,
                  Status::error(errAECantHandleClass, "Can't delete " + describeSpecifier(*direct) +
                                                          ": the player deletes artwork only."));
    }
    artwork[token.object.track].push_back(token.object.artwork);
  }
  Library& library = model_->library();
  for (auto& [track, positions] : artwork) {
    std::sort(positions.begin(), positions.end());
    positions.erase(std::unique(positions.begin(), positions.end()), positions.end());
    const Track* owner = library.trackById(track);
    Status deleted;
    if (owner != nullptr && positions.size() == library.artwork(*owner).size()) {
      deleted = library.deleteAllArtwork(track);
    } else {
      for (auto it = positions.rbegin(); it != positions.rend() && deleted.ok(); ++it) {
        deleted = library.deleteArtwork(track, static_cast<size_t>(*it));
      }
    }
    if (!deleted.ok()) return fail(reply, deleted);
  }
  return noErr;
}

// ---- hook ---------------------------------------------------------------------------------

OSStatus PlayerHandlers::transport(const ae::Descriptor& event, ae::Descriptor& /*reply*/) {
  PlayerModel& model = *model_;
  switch (event.eventID()) {
    case fourCharCode("Paus"):
      model.pause();
      break;
    case fourCharCode("PlPs"):
      model.playPause();
      break;
    case fourCharCode("Next"):
      model.nextTrack();
      break;
    case fourCharCode("Prev"):
      model.previousTrack();
      break;
    case fourCharCode("Back"):
      model.backTrack();
      break;
    case fourCharCode("Fast"):
      model.fastForward();
      break;
    case fourCharCode("Rwnd"):
      model.rewind();
      break;
    case fourCharCode("Resu"):
      model.resume();
      break;
    case fourCharCode("Stop"):
      model.stop();
      break;
    default:
      break;
  }
  return noErr;
}

OSStatus PlayerHandlers::play(const ae::Descriptor& event, ae::Descriptor& reply) {
  bool once = false;
  if (const ae::Descriptor* onceParam = event.findParam(keyPlayOnce)) {
    auto flag = ae::boolValue(*onceParam);
    if (!flag) return fail(reply, Status::error(errAECoercionFail, "POne must be a boolean."));
    once = *flag;
  }
  const ae::Descriptor* direct = event.findParam(ae::keyDirectObject);
  if (direct == nullptr || direct->isNull()) {
    model_->play();
    return noErr;
  }
  if (direct->type() == ae::typeObjectSpecifier) {
    auto resolved = resolver_.resolve(*direct);
    if (!resolved) return fail(reply, resolved.status());
    if (resolved->tokens.size() != 1) {
      return fail(reply, Status::error(errAENotASingleObject, "Play takes one track or playlist."));
    }
    auto objects = resolver_.objectsOf(resolved->tokens.front());
    if (!objects) return fail(reply, objects.status());
    if (objects->size() != 1) {
      return fail(reply, Status::error(errAENotASingleObject, "Play takes one track or playlist."));
    }
    const ObjectRef& object = objects->front();
    Status played;
    if (object.kind == Kind::kTrack) {
      played = model_->playTrack(
          object.track, object.playlist != 0 ? std::optional(object.playlist) : std::nullopt, once);
    } else if (object.kind == Kind::kPlaylist) {
      played = model_->playPlaylist(object.playlist);
    } else {
      played = Status::error(errAECantHandleClass, "Play takes a track, a playlist or a file.");
    }
    return played.ok() ? noErr : fail(reply, played);
  }
  if (!isFileDescriptor(*direct)) {
    return fail(reply,
                Status::error(errAECantHandleClass, "Play takes a track, a playlist or a file."));
  }
  auto path = pathOf(*direct);
  if (!path) return fail(reply, path.status());
  auto played = model_->playFile(*path, once);
  return played ? noErr : fail(reply, played.status());
}

OSStatus PlayerHandlers::search(const ae::Descriptor& event, ae::Descriptor& reply) {
  const ae::Descriptor* direct = event.findParam(ae::keyDirectObject);
  if (direct == nullptr) return fail(reply, missing(ae::keyDirectObject));
  const ae::Descriptor* termParam = event.findParam(keySearchTerm);
  if (termParam == nullptr) return fail(reply, missing(keySearchTerm));
  const auto term = textOf(*termParam);
  if (!term) return fail(reply, Status::error(errAECoercionFail, "pTrm must be a text."));
  OSType area = 0;
  if (const ae::Descriptor* areaParam = event.findParam(keySearchArea)) {
    const auto code = codeOf(*areaParam);
    if (!code) {
      return fail(reply, Status::error(errAENotAnEnumMember, "pAre must be a search area."));
    }
    area = *code;
  }
  auto resolved = resolver_.resolve(*direct);
  if (!resolved) return fail(reply, resolved.status());
  if (resolved->tokens.size() != 1) {
    return fail(reply, Status::error(errAENotASingleObject, "Search takes one playlist."));
  }
  auto objects = resolver_.objectsOf(resolved->tokens.front());
  if (!objects) return fail(reply, objects.status());
  if (objects->size() != 1 || objects->front().kind != Kind::kPlaylist) {
    return fail(reply, Status::error(errAECantHandleClass, "Search takes a playlist."));
  }
  Library& library = model_->library();
  const Playlist* playlist = library.playlistById(objects->front().playlist);
  if (playlist == nullptr) {
    return fail(reply, Status::error(errAENoSuchObject, "Can't get the playlist."));
  }
  auto found =
      area == 0 ? library.search(*playlist, *term) : library.search(*playlist, *term, area);
  if (!found) return fail(reply, found.status());
  ae::Descriptor list = ae::Descriptor::makeList();
  for (const Track* track : *found) {
    list.putDesc(0, resolver_.specifierFor(ObjectRef::trackRef(track->id(), playlist->id())));
  }
  answer(reply, std::move(list));
  return noErr;
}

OSStatus PlayerHandlers::add(const ae::Descriptor& event, ae::Descriptor& reply) {
  const ae::Descriptor* direct = event.findParam(ae::keyDirectObject);
  if (direct == nullptr) return fail(reply, missing(ae::keyDirectObject));
  std::vector<std::string> paths;
  const auto take = [&](const ae::Descriptor& item) -> Status {
    if (!isFileDescriptor(item)) {
      return Status::error(errAECantHandleClass, "Add takes files.");
    }
    auto path = pathOf(item);
    if (!path) return path.status();
    paths.push_back(std::move(path).value());
    return Status::success();
  };
  if (direct->isList()) {
    for (size_t i = 0; i < direct->itemCount(); ++i) {
      if (Status s = take(direct->itemAt(i)); !s.ok()) return fail(reply, s);
    }
  } else if (Status s = take(*direct); !s.ok()) {
    return fail(reply, s);
  }

  Library& library = model_->library();
  DatabaseId target = library.libraryPlaylist().id();
  if (const ae::Descriptor* location = event.findParam(ae::keyAEInsertHere)) {
    // A playlist, or an insertion location whose object is one.
    const ae::Descriptor* object = location;
    if (location->isRecord() && location->type() == ae::typeInsertionLoc) {
      object = location->findParam(ae::keyAEObject);
      if (object == nullptr) return fail(reply, missing(ae::keyAEObject));
    }
    auto resolved = resolver_.resolve(*object);
    if (!resolved) return fail(reply, resolved.status());
    auto objects = resolved->tokens.size() == 1
                       ? resolver_.objectsOf(resolved->tokens.front())
                       : Result<std::vector<ObjectRef>>(
                             Status::error(errAENotASingleObject, "Add to one playlist."));
    if (!objects) return fail(reply, objects.status());
    if (objects->size() != 1 || objects->front().kind != Kind::kPlaylist) {
      return fail(reply, Status::error(errAECantPutThatThere, "Tracks are added to a playlist."));
    }
    target = objects->front().playlist;
  }
  const bool intoLibrary = target == library.libraryPlaylist().id();
  auto added = model_->addFiles(paths, intoLibrary ? std::nullopt : std::optional(target));
  if (!added) return fail(reply, added.status());
  ae::Descriptor list = ae::Descriptor::makeList();
  for (const DatabaseId id : *added) {
    list.putDesc(0, resolver_.specifierFor(ObjectRef::trackRef(id, target)));
  }
  answer(reply, std::move(list));
  return noErr;
}

OSStatus PlayerHandlers::quit(const ae::Descriptor& /*event*/, ae::Descriptor& reply) {
  Status written = model_->quit();
  if (!written.ok()) {
    // Like a document that cannot be saved: the player stays up with the change in memory, and
    // a later quit (once the disk is writable again) ends it.
    SystemLog("player: writing the library on quit failed, not quitting: %s",
              written.toString().c_str());
    return fail(reply, written);
  }
  quitRequested_ = true;
  if (options_.onQuit) options_.onQuit();
  return noErr;
}

}  // namespace rvitunes::player
