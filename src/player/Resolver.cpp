#include "rvitunes/player/Resolver.h"

#include <algorithm>
#include <optional>

#include "ResolverCompare.h"
#include "rvitunes/player/PlayerModel.h"
#include "rvitunes/player/Specifier.h"

namespace rvitunes::player {

namespace {

// Containers nest this deep at most; deeper specifiers are refused rather than followed.
constexpr int kMaxDepth = 32;

using Kind = ObjectRef::Kind;

// The kind of object a class code names, for classes the player has elements of.
std::optional<Kind> kindOfClass(OSType classCode) {
  switch (classCode) {
    case kClassSource:
      return Kind::kSource;
    case kClassPlaylist:
    case kClassLibraryPlaylist:
    case kClassUserPlaylist:
    case kClassFolderPlaylist:
    case fourCharCode("cCDP"):
    case fourCharCode("cDvP"):
    case fourCharCode("cRTP"):
      return Kind::kPlaylist;
    case kClassTrack:
    case kClassFileTrack:
    case kClassUrlTrack:
    case fourCharCode("cShT"):
    case fourCharCode("cCDT"):
    case fourCharCode("cDvT"):
      return Kind::kTrack;
    case kClassArtwork:
      return Kind::kArtwork;
    default:
      return std::nullopt;
  }
}

// The kind of objects a property names when it is object-valued.
std::optional<Kind> kindOfObjectProperty(OSType property) {
  switch (property) {
    case kPropCurrentTrack:
    case kPropSelection:
      return Kind::kTrack;
    case kPropCurrentPlaylist:
    case kPropParent:
      return Kind::kPlaylist;
    default:
      return std::nullopt;
  }
}

Status noSuchObject(const ae::Descriptor& specifier) {
  return Status::error(errAENoSuchObject, "Can't get " + describeSpecifier(specifier) + ".");
}

Status noSuchObject(const std::string& what) {
  return Status::error(errAENoSuchObject, "Can't get " + what + ".");
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           const auto lower = [](char c) {
             return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
           };
           return lower(x) == lower(y);
         });
}

}  // namespace

Resolver::Resolver(PlayerModel& model, std::string applicationName)
    : model_(model),
      library_(model.library()),
      applicationName_(std::move(applicationName)),
      random_(std::random_device{}()) {}

// ---- The object model ---------------------------------------------------------------------

OSType Resolver::classOf(const ObjectRef& object) const {
  switch (object.kind) {
    case Kind::kApplication:
      return kClassApplication;
    case Kind::kSource:
      return kClassSource;
    case Kind::kPlaylist:
      if (const Playlist* playlist = library_.playlistById(object.playlist)) {
        return playlist->classCode();
      }
      return kClassPlaylist;
    case Kind::kTrack:
      if (const Track* track = library_.trackById(object.track)) return track->classCode();
      return kClassTrack;
    case Kind::kArtwork:
      return kClassArtwork;
  }
  return kClassItem;
}

std::vector<ObjectRef> Resolver::elements(const ObjectRef& container, OSType classCode) {
  std::vector<ObjectRef> out;
  switch (container.kind) {
    case Kind::kApplication:
    case Kind::kSource:
      if (classCode == kClassSource && container.kind == Kind::kApplication) {
        out.push_back(ObjectRef::source());
        break;
      }
      for (const auto& playlist : library_.playlists()) {
        if (playlist->isKindOf(classCode)) out.push_back(ObjectRef::playlistRef(playlist->id()));
      }
      break;
    case Kind::kPlaylist: {
      const Playlist* playlist = library_.playlistById(container.playlist);
      if (playlist == nullptr) break;
      for (const Track* track : library_.tracksOf(*playlist, kClassTrack)) {
        if (track->isKindOf(classCode)) {
          out.push_back(ObjectRef::trackRef(track->id(), playlist->id()));
        }
      }
      break;
    }
    case Kind::kTrack: {
      if (classCode != kClassArtwork && classCode != kClassItem) break;
      const Track* track = library_.trackById(container.track);
      if (track == nullptr) break;
      const size_t count = library_.artwork(*track).size();
      for (size_t i = 0; i < count; ++i) {
        out.push_back(
            ObjectRef::artworkRef(track->id(), container.playlist, static_cast<int32_t>(i)));
      }
      break;
    }
    case Kind::kArtwork:
      break;
  }
  return out;
}

std::string Resolver::nameOf(const ObjectRef& object) const {
  switch (object.kind) {
    case Kind::kApplication:
      return applicationName_;
    case Kind::kSource:
      return library_.source().name;
    case Kind::kPlaylist:
      if (const Playlist* playlist = library_.playlistById(object.playlist)) {
        return playlist->name();
      }
      return {};
    case Kind::kTrack:
      if (const Track* track = library_.trackById(object.track)) return track->name();
      return {};
    case Kind::kArtwork:
      return {};
  }
  return {};
}

ae::Descriptor Resolver::specifierFor(const ObjectRef& object) const {
  switch (object.kind) {
    case Kind::kApplication:
      return ae::Descriptor();
    case Kind::kSource:
      return makeUniqueIDSpecifier(kClassSource, library_.source().id, ae::Descriptor());
    case Kind::kPlaylist:
      return makeUniqueIDSpecifier(classOf(object), object.playlist,
                                   specifierFor(ObjectRef::source()));
    case Kind::kTrack: {
      const DatabaseId playlist =
          object.playlist != 0 ? object.playlist : library_.libraryPlaylist().id();
      return makeUniqueIDSpecifier(classOf(object), object.track,
                                   specifierFor(ObjectRef::playlistRef(playlist)));
    }
    case Kind::kArtwork:
      return makeIndexSpecifier(kClassArtwork, object.artwork + 1,
                                specifierFor(ObjectRef::trackRef(object.track, object.playlist)));
  }
  return ae::Descriptor();
}

// ---- Resolution -----------------------------------------------------------------------------

Result<Resolution> Resolver::resolve(const ae::Descriptor& specifier) {
  return resolveIn(specifier, nullptr, 0);
}

Result<Resolution> Resolver::resolveIn(const ae::Descriptor& specifier, const ObjectRef* examined,
                                       int depth) {
  if (depth > kMaxDepth) {
    return Status::error(errAENotAnObjSpec, "The object specifier is nested too deeply.");
  }
  if (specifier.isNull()) return Resolution{{Token{ObjectRef::application(), 0}}, false};
  if (specifier.type() == ae::typeObjectBeingExamined) {
    if (examined == nullptr) {
      return Status::error(errAENoSuchObject, "Can't get the examined object outside a test.");
    }
    return Resolution{{Token{*examined, 0}}, false};
  }
  auto parsed = readObjectSpecifier(specifier);
  if (!parsed) return parsed.status();

  auto container = resolveIn(*parsed->container, examined, depth + 1);
  if (!container) return container.status();

  // The objects the container names; a property such as the selection names several.
  std::vector<ObjectRef> containers;
  bool containerIsSet = container->multiple;
  for (const Token& token : container->tokens) {
    auto objects = objectsOf(token);
    if (!objects) return objects.status();
    if (token.property == kPropSelection) containerIsSet = true;
    containers.insert(containers.end(), objects->begin(), objects->end());
  }

  Resolution result;
  result.multiple = containerIsSet || containers.size() > 1;

  if (parsed->keyForm == ae::formPropertyID) {
    auto code = codeOf(*parsed->keyData);
    if (!code) {
      return Status::error(errAENotAnObjSpec, "The property of an object specifier is no code.");
    }
    for (const ObjectRef& object : containers)
      result.tokens.push_back(Token{object, *code});
    return result;
  }

  if (parsed->keyForm == ae::formRelativePosition) {
    auto direction = codeOf(*parsed->keyData);
    if (!direction || (*direction != ae::kAENext && *direction != ae::kAEPrevious)) {
      return Status::error(errAEBadKeyForm, "A relative position is 'next' or 'prev'.");
    }
    for (const ObjectRef& object : containers) {
      auto found = relative(object, parsed->desiredClass, *direction);
      if (!found) return noSuchObject(specifier);
      for (const ObjectRef& ref : *found)
        result.tokens.push_back(Token{ref, 0});
    }
    return result;
  }

  // A form applied to a set of objects of the requested kind picks from that set.
  const std::optional<Kind> wanted = kindOfClass(parsed->desiredClass);
  std::optional<Kind> containerKind;
  if (auto inner = readObjectSpecifier(*parsed->container); inner.ok()) {
    if (inner->keyForm == ae::formPropertyID) {
      if (auto code = codeOf(*inner->keyData)) containerKind = kindOfObjectProperty(*code);
    } else {
      containerKind = kindOfClass(inner->desiredClass);
    }
  }
  if (containerIsSet && wanted && containerKind == wanted) {
    std::vector<ObjectRef> candidates;
    for (const ObjectRef& object : containers) {
      if (object.kind != *wanted) continue;
      if (object.kind == Kind::kPlaylist) {
        const Playlist* playlist = library_.playlistById(object.playlist);
        if (playlist == nullptr || !playlist->isKindOf(parsed->desiredClass)) continue;
      } else if (object.kind == Kind::kTrack) {
        const Track* track = library_.trackById(object.track);
        if (track == nullptr || !track->isKindOf(parsed->desiredClass)) continue;
      }
      candidates.push_back(object);
    }
    bool multiple = false;
    auto picked = select(candidates, parsed->keyForm, *parsed->keyData, examined, &multiple, depth);
    if (!picked) {
      if (picked.status().code() == errAENoSuchObject) return noSuchObject(specifier);
      return picked.status();
    }
    result.multiple = multiple;
    for (const ObjectRef& ref : *picked)
      result.tokens.push_back(Token{ref, 0});
    return result;
  }

  for (const ObjectRef& object : containers) {
    const std::vector<ObjectRef> candidates = elements(object, parsed->desiredClass);
    bool multiple = false;
    auto picked = select(candidates, parsed->keyForm, *parsed->keyData, examined, &multiple, depth);
    if (!picked) {
      if (picked.status().code() == errAENoSuchObject) return noSuchObject(specifier);
      return picked.status();
    }
    result.multiple = result.multiple || multiple;
    for (const ObjectRef& ref : *picked)
      result.tokens.push_back(Token{ref, 0});
  }
  return result;
}

Result<std::vector<ObjectRef>> Resolver::select(const std::vector<ObjectRef>& candidates,
                                                OSType form, const ae::Descriptor& keyData,
                                                const ObjectRef* examined, bool* multiple,
                                                int depth) {
  const auto none = [] { return Status::error(errAENoSuchObject, "no such object"); };
  *multiple = false;
  switch (form) {
    case ae::formAbsolutePosition: {
      const size_t count = candidates.size();
      if (keyData.type() == ae::typeAbsoluteOrdinal) {
        const auto ordinal = codeOf(keyData);
        if (ordinal == ae::kAEAll) {
          *multiple = true;
          return candidates;
        }
        if (count == 0) return none();
        if (ordinal == ae::kAEFirst) return std::vector{candidates.front()};
        if (ordinal == ae::kAELast) return std::vector{candidates.back()};
        if (ordinal == ae::kAEMiddle) return std::vector{candidates[(count - 1) / 2]};
        if (ordinal == ae::kAEAny) {
          std::uniform_int_distribution<size_t> pick(0, count - 1);
          return std::vector{candidates[pick(random_)]};
        }
        return Status::error(errAEBadKeyForm,
                             "Unknown ordinal " + fourCharDisplay(ordinal.value_or(0)) + ".");
      }
      const auto index = integerOf(keyData);
      if (!index) return Status::error(errAECoercionFail, "An index must be an integer.");
      const auto signedCount = static_cast<int64_t>(count);
      if (*index > 0 && *index <= signedCount) {
        return std::vector{candidates[static_cast<size_t>(*index - 1)]};
      }
      if (*index < 0 && -*index <= signedCount) {
        return std::vector{candidates[static_cast<size_t>(signedCount + *index)]};
      }
      return none();
    }
    case ae::formUniqueID: {
      const auto id = integerOf(keyData);
      if (!id) return none();
      for (const ObjectRef& candidate : candidates) {
        DatabaseId candidateId = 0;
        switch (candidate.kind) {
          case Kind::kSource:
            candidateId = library_.source().id;
            break;
          case Kind::kPlaylist:
            candidateId = candidate.playlist;
            break;
          case Kind::kTrack:
            candidateId = candidate.track;
            break;
          default:
            continue;
        }
        if (candidateId == *id) return std::vector{candidate};
      }
      return none();
    }
    case ae::formName: {
      const auto name = textOf(keyData);
      if (!name) return none();
      for (const ObjectRef& candidate : candidates) {
        if (equalIgnoringCase(nameOf(candidate), *name)) return std::vector{candidate};
      }
      return none();
    }
    case ae::formTest: {
      *multiple = true;
      std::vector<ObjectRef> passed;
      for (const ObjectRef& candidate : candidates) {
        auto ok = test(keyData, candidate, depth + 1);
        if (!ok) return ok.status();
        if (*ok) passed.push_back(candidate);
      }
      return passed;
    }
    case ae::formRange: {
      *multiple = true;
      if (!keyData.isRecord()) {
        return Status::error(errAENotAnObjSpec, "A range needs a range record.");
      }
      const ae::Descriptor* start = keyData.findParam(ae::keyAERangeStart);
      const ae::Descriptor* stop = keyData.findParam(ae::keyAERangeStop);
      if (start == nullptr || stop == nullptr) {
        return Status::error(errAENotAnObjSpec, "A range needs a start and a stop.");
      }
      auto first = rangeBoundary(candidates, *start, examined, depth);
      if (!first) return first.status();
      auto last = rangeBoundary(candidates, *stop, examined, depth);
      if (!last) return last.status();
      if (*first > *last) {
        return Status::error(errAEImpossibleRange, "The range ends before it starts.");
      }
      return std::vector<ObjectRef>(candidates.begin() + static_cast<ptrdiff_t>(*first),
                                    candidates.begin() + static_cast<ptrdiff_t>(*last) + 1);
    }
    default:
      return Status::error(errAEBadKeyForm,
                           "The key form " + fourCharDisplay(form) + " is not supported.");
  }
}

Result<size_t> Resolver::rangeBoundary(const std::vector<ObjectRef>& candidates,
                                       const ae::Descriptor& boundary, const ObjectRef* examined,
                                       int depth) {
  const auto position = [&](const ObjectRef& object) -> Result<size_t> {
    auto it = std::find(candidates.begin(), candidates.end(), object);
    if (it == candidates.end()) {
      return Status::error(errAENoSuchObject, "The range boundary is not in the container.");
    }
    return static_cast<size_t>(it - candidates.begin());
  };
  // A boundary relative to the range's container ('ccnt', or no container at all).
  if (auto parsed = readObjectSpecifier(boundary); parsed.ok()) {
    if (parsed->container->type() != ae::typeCurrentContainer && !parsed->container->isNull()) {
      return Status::error(errAENotAnObjSpec, "A range boundary is relative to its container.");
    }
    bool multiple = false;
    auto picked = select(candidates, parsed->keyForm, *parsed->keyData, examined, &multiple, depth);
    if (!picked) return picked.status();
    if (multiple || picked->size() != 1) {
      return Status::error(errAENotAnObjSpec, "A range boundary names one object.");
    }
    return position(picked->front());
  }
  // A bare integer index.
  bool multiple = false;
  auto picked = select(candidates, ae::formAbsolutePosition, boundary, examined, &multiple, depth);
  if (!picked) return picked.status();
  return position(picked->front());
}

Result<std::vector<ObjectRef>> Resolver::relative(const ObjectRef& reference, OSType desiredClass,
                                                  OSType direction) {
  std::vector<ObjectRef> siblings;
  if (reference.kind == Kind::kPlaylist) {
    siblings = elements(ObjectRef::application(), desiredClass);
  } else if (reference.kind == Kind::kTrack) {
    const DatabaseId playlist =
        reference.playlist != 0 ? reference.playlist : library_.libraryPlaylist().id();
    siblings = elements(ObjectRef::playlistRef(playlist), desiredClass);
  } else if (reference.kind == Kind::kArtwork) {
    siblings = elements(ObjectRef::trackRef(reference.track, reference.playlist), desiredClass);
  }
  auto it = std::find(siblings.begin(), siblings.end(), reference);
  if (it == siblings.end()) return Status::error(errAENoSuchObject, "no such object");
  if (direction == ae::kAENext) {
    if (++it == siblings.end()) return Status::error(errAENoSuchObject, "no such object");
    return std::vector{*it};
  }
  if (it == siblings.begin()) return Status::error(errAENoSuchObject, "no such object");
  return std::vector{*--it};
}

// ---- Tests ----------------------------------------------------------------------------------

Result<ae::Descriptor> Resolver::operand(const ae::Descriptor& desc, const ObjectRef& element,
                                         int depth) {
  if (desc.type() == ae::typeObjectSpecifier || desc.type() == ae::typeObjectBeingExamined) {
    auto resolved = resolveIn(desc, &element, depth + 1);
    if (!resolved) return resolved.status();
    return value(*resolved);
  }
  return desc.duplicate();
}

Result<bool> Resolver::test(const ae::Descriptor& desc, const ObjectRef& element, int depth) {
  if (depth > kMaxDepth) {
    return Status::error(errAEBadTestKey, "The test is nested too deeply.");
  }
  if (desc.isRecord() && desc.type() == ae::typeCompDescriptor) {
    const ae::Descriptor* relation = desc.findParam(ae::keyAECompOperator);
    const ae::Descriptor* first = desc.findParam(ae::keyAEObject1);
    const ae::Descriptor* second = desc.findParam(ae::keyAEObject2);
    const auto op = relation != nullptr ? codeOf(*relation) : std::nullopt;
    if (!op || first == nullptr || second == nullptr) {
      return Status::error(errAEBadTestKey, "A comparison needs relo, obj1 and obj2.");
    }
    auto a = operand(*first, element, depth);
    auto b = operand(*second, element, depth);
    // An element that lacks the compared property simply does not match.
    if (!a) return a.status().code() == errAENoSuchObject ? Result<bool>(false) : a.status();
    if (!b) return b.status().code() == errAENoSuchObject ? Result<bool>(false) : b.status();
    return compareValues(*op, *a, *b);
  }
  if (desc.isRecord() && desc.type() == ae::typeLogicalDescriptor) {
    const ae::Descriptor* logic = desc.findParam(ae::keyAELogicalOperator);
    const ae::Descriptor* terms = desc.findParam(ae::keyAELogicalTerms);
    const auto op = logic != nullptr ? codeOf(*logic) : std::nullopt;
    if (!op || terms == nullptr || !terms->isList()) {
      return Status::error(errAEBadTestKey, "A logical test needs logc and a list of terms.");
    }
    const size_t count = terms->itemCount();
    if (*op == ae::kAENOT) {
      if (count != 1) {
        return Status::error(errAEWrongNumberArgs, "NOT takes exactly one term.");
      }
      auto term = test(terms->itemAt(0), element, depth + 1);
      if (!term) return term.status();
      return !*term;
    }
    if (*op != ae::kAEAND && *op != ae::kAEOR) {
      return Status::error(errAENoSuchLogical,
                           "Unknown logical operator " + fourCharDisplay(*op) + ".");
    }
    const bool isAnd = *op == ae::kAEAND;
    for (size_t i = 0; i < count; ++i) {
      auto term = test(terms->itemAt(i), element, depth + 1);
      if (!term) return term.status();
      if (*term != isAnd) return !isAnd;  // AND stops at the first false, OR at the first true
    }
    return isAnd;
  }
  return Status::error(errAEBadTestKey, "A test is a comparison or a logical record.");
}

// ---- Values ---------------------------------------------------------------------------------

Result<std::vector<ObjectRef>> Resolver::objectsOf(const Token& token) {
  if (!token.isProperty()) return std::vector{token.object};
  const ObjectRef& object = token.object;
  const DatabaseId libraryId = library_.libraryPlaylist().id();
  if (token.property == kPropContainer) {
    switch (object.kind) {
      case Kind::kApplication:
        break;
      case Kind::kSource:
        return std::vector{ObjectRef::application()};
      case Kind::kPlaylist:
        return std::vector{ObjectRef::source()};
      case Kind::kTrack:
        return std::vector{
            ObjectRef::playlistRef(object.playlist != 0 ? object.playlist : libraryId)};
      case Kind::kArtwork:
        return std::vector{ObjectRef::trackRef(object.track, object.playlist)};
    }
    return noSuchObject("container of application");
  }
  if (object.kind == Kind::kApplication) {
    switch (token.property) {
      case kPropCurrentTrack: {
        const auto track = model_.currentTrack();
        if (!track) return noSuchObject("current track");
        return std::vector{
            ObjectRef::trackRef(*track, model_.currentPlaylist().value_or(libraryId))};
      }
      case kPropCurrentPlaylist: {
        const auto playlist = model_.currentPlaylist();
        if (!playlist) return noSuchObject("current playlist");
        return std::vector{ObjectRef::playlistRef(*playlist)};
      }
      case kPropSelection: {
        std::vector<ObjectRef> tracks;
        for (const DatabaseId id : model_.selection()) {
          tracks.push_back(ObjectRef::trackRef(id, libraryId));
        }
        return tracks;
      }
      default:
        break;
    }
  }
  if (object.kind == Kind::kPlaylist && token.property == kPropParent) {
    const Playlist* playlist = library_.playlistById(object.playlist);
    const Playlist* parent = playlist != nullptr ? library_.parentOf(*playlist) : nullptr;
    if (parent == nullptr) {
      return noSuchObject("parent of " + describeSpecifier(specifierFor(object)));
    }
    return std::vector{ObjectRef::playlistRef(parent->id())};
  }
  return noSuchObject(fourCharString(token.property) + " of " +
                      describeSpecifier(specifierFor(object)) + " as an object");
}

Result<ae::Descriptor> Resolver::value(const Token& token) {
  const ObjectRef& object = token.object;
  if (!token.isProperty()) return specifierFor(object);
  const OSType code = token.property;

  // Object-valued properties are made here; the model answers the plain ones.
  const bool objectValued =
      code == kPropContainer || (object.kind == Kind::kPlaylist && code == kPropParent) ||
      (object.kind == Kind::kApplication &&
       (code == kPropCurrentTrack || code == kPropCurrentPlaylist || code == kPropSelection));
  if (objectValued) {
    auto objects = objectsOf(token);
    if (!objects) return objects.status();
    if (code == kPropSelection) {
      ae::Descriptor list = ae::Descriptor::makeList();
      for (const ObjectRef& ref : *objects)
        list.putDesc(0, specifierFor(ref));
      return list;
    }
    return specifierFor(objects->front());
  }
  if (code == kPropClass) return ae::Descriptor::makeType(classOf(object));

  switch (object.kind) {
    case Kind::kApplication:
      if (code == kPropName) return ae::Descriptor::makeUnicodeText(applicationName_);
      return model_.applicationProperty(code);
    case Kind::kSource:
      return library_.sourceProperty(code);
    case Kind::kPlaylist: {
      const Playlist* playlist = library_.playlistById(object.playlist);
      if (playlist == nullptr) return noSuchObject(specifierFor(object));
      return library_.playlistProperty(*playlist, code);
    }
    case Kind::kTrack: {
      const Track* track = library_.trackById(object.track);
      if (track == nullptr) return noSuchObject(specifierFor(object));
      const Playlist* container =
          object.playlist != 0 ? library_.playlistById(object.playlist) : nullptr;
      return library_.trackProperty(*track, code, container);
    }
    case Kind::kArtwork: {
      const Track* track = library_.trackById(object.track);
      if (track == nullptr) return noSuchObject(specifierFor(object));
      auto answer = library_.artworkProperty(*track, static_cast<size_t>(object.artwork), code);
      if (!answer && answer.status().code() == errAEIllegalIndex) {
        return noSuchObject(specifierFor(object));
      }
      return answer;
    }
  }
  return noSuchObject(specifierFor(object));
}

Result<ae::Descriptor> Resolver::value(const Resolution& resolution) {
  if (!resolution.multiple) {
    if (resolution.tokens.size() != 1) {
      return Status::error(errAENoSuchObject, "Can't get the object.");
    }
    return value(resolution.tokens.front());
  }
  ae::Descriptor list = ae::Descriptor::makeList();
  for (const Token& token : resolution.tokens) {
    auto item = value(token);
    if (!item) return item.status();
    if (OSStatus put = list.putDesc(0, std::move(item).value()); put != noErr) {
      return Status::error(put, "The answer is too large.");
    }
  }
  return list;
}

Status Resolver::setValue(const Token& token, const ae::Descriptor& newValue) {
  const ObjectRef& object = token.object;
  const auto denied = [&] {
    return Status::error(
        errAEWriteDenied,
        "Can't set " +
            describeSpecifier(token.isProperty()
                                  ? makePropertySpecifier(token.property, specifierFor(object))
                                  : specifierFor(object)) +
            ".");
  };
  if (!token.isProperty()) {
    // An artwork element stands for its picture: "set artwork 1 of t to <picture>".
    if (object.kind == Kind::kArtwork) {
      return library_.setArtworkProperty(object.track, static_cast<size_t>(object.artwork),
                                         kPropPicture, newValue);
    }
    return denied();
  }
  const OSType code = token.property;
  if (code == kPropContainer || code == kPropClass) return denied();
  switch (object.kind) {
    case Kind::kApplication: {
      if (code == kPropCurrentTrack || code == kPropCurrentPlaylist || code == kPropName) {
        return denied();
      }
      if (code == kPropSelection) {
        // The new selection: one track specifier or a list of them.
        std::vector<DatabaseId> tracks;
        const auto take = [&](const ae::Descriptor& item) -> Status {
          auto resolved = resolve(item);
          if (!resolved) return resolved.status();
          for (const Token& t : resolved->tokens) {
            auto objects = objectsOf(t);
            if (!objects) return objects.status();
            for (const ObjectRef& ref : *objects) {
              if (ref.kind != Kind::kTrack) {
                return Status::error(errAECantPutThatThere, "Only tracks can be selected.");
              }
              tracks.push_back(ref.track);
            }
          }
          return Status::success();
        };
        if (newValue.isList()) {
          for (size_t i = 0; i < newValue.itemCount(); ++i) {
            if (Status s = take(newValue.itemAt(i)); !s.ok()) return s;
          }
        } else if (Status s = take(newValue); !s.ok()) {
          return s;
        }
        return model_.setSelection(std::move(tracks));
      }
      return model_.setApplicationProperty(code, newValue);
    }
    case Kind::kSource: {
      auto current = library_.sourceProperty(code);
      if (!current) return current.status();
      return denied();
    }
    case Kind::kPlaylist:
      if (code == kPropParent) return denied();
      return library_.setPlaylistProperty(object.playlist, code, newValue);
    case Kind::kTrack:
      return library_.setTrackProperty(object.track, code, newValue);
    case Kind::kArtwork:
      return library_.setArtworkProperty(object.track, static_cast<size_t>(object.artwork), code,
                                         newValue);
  }
  return denied();
}

}  // namespace rvitunes::player
