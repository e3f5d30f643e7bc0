// Property values of the source, playlists, tracks and artwork as the player answers them, and
// the setters that write them back into the library tree.
#include <cmath>
#include <ctime>

#include "player/PropertyValues.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/ae/FileReference.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/player/Library.h"
#include "rvitunes/player/PersistentIdText.h"
#include "rvitunes/player/PropertyTable.h"

namespace rvitunes::player {
namespace {

using ae::Descriptor;

Status noSuchProperty(OSType code) {
  return Status::error(errAENoSuchObject, "Can't get property " + fourCharDisplay(code) + ".");
}

Status objectValued(OSType code) {
  return Status::error(errAECantSupplyType,
                       "Property " + fourCharDisplay(code) + " is an object reference.");
}

Status readOnly(OSType code) {
  return Status::error(errAEWriteDenied,
                       "Can't set property " + fourCharDisplay(code) + ": it is read-only.");
}

// "m:ss", or "h:mm:ss" from an hour on, of whole seconds.
std::string clockText(int64_t seconds) {
  if (seconds < 0) seconds = 0;
  char buffer[32];
  if (seconds >= 3600) {
    std::snprintf(buffer, sizeof buffer, "%lld:%02lld:%02lld",
                  static_cast<long long>(seconds / 3600), static_cast<long long>(seconds / 60 % 60),
                  static_cast<long long>(seconds % 60));
  } else {
    std::snprintf(buffer, sizeof buffer, "%lld:%02lld", static_cast<long long>(seconds / 60),
                  static_cast<long long>(seconds % 60));
  }
  return buffer;
}

// The local-time seconds since 1904 the file's "Play Date" holds.
int64_t localLongDateTime(Date date) {
  const int64_t utc = date.longDateTime();
  const std::time_t unix = static_cast<std::time_t>(std::floor(date.unixTime()));
  std::tm local{};
  if (!localtime_r(&unix, &local)) return utc;
  return utc + local.tm_gmtoff;
}

}  // namespace

// ---- Source ------------------------------------------------------------------------------

Result<Descriptor> Library::sourceProperty(OSType code) const {
  const PropertyInfo* info = PropertyTable::find(PropertyTable::sourceProperties(), code, version_);
  if (!info) return noSuchProperty(code);
  const plist::Dictionary& top = *root_.asDictionary();
  switch (code) {
    case kPropClass:
      return Descriptor::makeType(kClassSource);
    case kPropId:
      return Descriptor::makeSInt32(source_.id);
    case kPropIndex:
      return Descriptor::makeSInt32(1);
    case kPropName:
      return Descriptor::makeUnicodeText(source_.name);
    case kPropKind:
      return Descriptor::makeEnum(source_.kind);
    case kPropCapacity:
    case kPropFreeSpace:
      return Descriptor::makeSInt64(0);
    case kPropPersistentId:
    case kPropPersistentIdText: {
      const plist::Value* text = top.find("Library Persistent ID");
      const PersistentId pid =
          text && text->isString() ? parsePersistentId(text->stringView()).value_or(0) : 0;
      return code == kPropPersistentId ? persistentIdValue(pid, version_)
                                       : Descriptor::makeUnicodeText(formatPersistentId(pid));
    }
    default:
      return objectValued(code);
  }
}

// ---- Tracks ------------------------------------------------------------------------------

Result<Descriptor> Library::trackProperty(const Track& track, OSType code,
                                          const Playlist* container) const {
  const PropertyInfo* info = PropertyTable::find(PropertyTable::trackProperties(), code, version_);
  if (!info) return noSuchProperty(code);
  const bool fileTrack = track.classCode() == kClassFileTrack;
  switch (code) {
    case kPropClass:
      return Descriptor::makeType(track.classCode());
    case kPropId:
    case kPropDatabaseId:
      return Descriptor::makeSInt32(track.id());
    case kPropIndex: {
      const Playlist& in = container ? *container : libraryPlaylist();
      const std::vector<DatabaseId>& ids = in.trackIds();
      for (size_t i = 0; i < ids.size(); ++i) {
        if (ids[i] == track.id()) return Descriptor::makeSInt32(static_cast<int32_t>(i + 1));
      }
      return noSuchProperty(code);
    }
    case kPropPersistentId:
      return persistentIdValue(track.persistentId(), version_);
    case kPropPersistentIdText:
      return Descriptor::makeUnicodeText(formatPersistentId(track.persistentId()));
    case kPropDuration:
      return secondsValue(track.durationSeconds(), version_);
    case kPropTime:
      return Descriptor::makeUnicodeText(clockText(std::llround(track.durationSeconds())));
    case fourCharCode("pStr"):
      return secondsValue(static_cast<double>(track.integer("Start Time").value_or(0)) / 1000.0,
                          version_);
    case fourCharCode("pStp"):
      return secondsValue(
          static_cast<double>(
              track.integer("Stop Time").value_or(track.integer("Total Time").value_or(0))) /
              1000.0,
          version_);
    case fourCharCode("pBkt"):
      return secondsValue(static_cast<double>(track.integer("Bookmark").value_or(0)) / 1000.0,
                          version_);
    case fourCharCode("enbl"):
      return Descriptor::makeBoolean(!track.flag("Disabled"));
    case fourCharCode("pUnp"): {
      const plist::Value* unplayed = track.record().find("Unplayed");
      return Descriptor::makeBoolean(unplayed ? unplayed->boolValue()
                                              : track.integer("Play Count").value_or(0) == 0);
    }
    case fourCharCode("pVdK"): {
      OSType kind = kVideoNone;
      if (track.flag("Movie")) kind = kVideoMovie;
      if (track.flag("TV Show")) kind = kVideoTvShow;
      if (track.flag("Music Video")) kind = kVideoMusicVideo;
      return Descriptor::makeEnum(kind);
    }
    case kPropLocation: {
      if (!fileTrack) return noSuchProperty(code);
      const std::optional<std::string> path = track.locationPath();
      if (!path) return Descriptor::makeType(ae::cMissingValue);
      Result<Descriptor> reference = ae::makeFileReferenceDesc(*path);
      if (!reference) return Descriptor::makeType(ae::cMissingValue);
      return std::move(reference).value();
    }
    case kPropAddress:
      if (fileTrack) return noSuchProperty(code);
      return Descriptor::makeUnicodeText(track.text("Location"));
    default:
      break;
  }
  switch (info->type) {
    case ValueType::kText:
      return Descriptor::makeUnicodeText(track.text(info->fileKey));
    case ValueType::kInteger:
      return makeIntegerValue(track.integer(info->fileKey).value_or(0));
    case ValueType::kBoolean:
      return Descriptor::makeBoolean(track.flag(info->fileKey));
    case ValueType::kDate: {
      const std::optional<Date> date = track.date(info->fileKey);
      if (!date) return Descriptor::makeType(ae::cMissingValue);
      return Descriptor::makeLongDateTime(date->longDateTime());
    }
    default:
      return objectValued(code);
  }
}

Status Library::setTrackProperty(DatabaseId id, OSType code, const Descriptor& value) {
  Track* track = mutableTrack(id);
  if (!track) return Status::error(errAENoSuchObject, "Can't get track id " + std::to_string(id));
  const PropertyInfo* info = PropertyTable::find(PropertyTable::trackProperties(), code, version_);
  if (!info) return noSuchProperty(code);
  if (!info->writable()) return readOnly(code);
  const bool fileTrack = track->classCode() == kClassFileTrack;
  plist::Dictionary& record = *track->record_;
  const std::string key(info->fileKey);

  switch (code) {
    case kPropLocation: {
      if (!fileTrack) return noSuchProperty(code);
      Result<std::string> path = filePathOf(value);
      if (!path) return path.status();
      if (auto old = track->locationPath()) trackByPath_.erase(*old);
      writeKey(record, key, plist::Value::string("file://localhost" + percentEncodePath(*path)));
      trackByPath_[*path] = track;
      return Status::success();
    }
    case kPropAddress: {
      if (fileTrack) return noSuchProperty(code);
      Result<std::string> text = ae::textValue(value);
      if (!text) return coercionFailed(code);
      writeKey(record, key, plist::Value::string(*text));
      return Status::success();
    }
    case fourCharCode("enbl"): {
      Result<bool> enabled = ae::boolValue(value);
      if (!enabled) return coercionFailed(code);
      writeKey(record, key, *enabled ? plist::Value() : plist::Value::boolean(true));
      return Status::success();
    }
    case fourCharCode("pVdK"): {
      Result<OSType> kind = ae::codeValue(value);
      if (!kind) return coercionFailed(code);
      const char* flag = nullptr;
      if (*kind == kVideoMovie) {
        flag = "Movie";
      } else if (*kind == kVideoTvShow) {
        flag = "TV Show";
      } else if (*kind == kVideoMusicVideo) {
        flag = "Music Video";
      } else if (*kind != kVideoNone) {
        return Status::error(errAENotAnEnumMember, "Not a video kind: " + fourCharDisplay(*kind));
      }
      for (const char* each : {"Movie", "TV Show", "Music Video"}) {
        const bool wanted = flag && std::string_view(flag) == each;
        if (wanted != track->flag(each)) {
          writeKey(record, each, wanted ? plist::Value::boolean(true) : plist::Value());
        }
      }
      return Status::success();
    }
    default:
      break;
  }

  switch (info->type) {
    case ValueType::kText: {
      Result<std::string> text = ae::textValue(value);
      if (!text) return coercionFailed(code);
      // The player drops empty texts from the file; a name stays even when empty.
      writeKey(record, key,
               text->empty() && code != kPropName ? plist::Value() : plist::Value::string(*text));
      return Status::success();
    }
    case ValueType::kInteger: {
      Result<int64_t> number = ae::integerValue(value);
      if (!number) return coercionFailed(code);
      const bool isRating = code == fourCharCode("pRte") || code == fourCharCode("pAlR");
      if (isRating && (*number < 0 || *number > 100)) {
        return Status::error(paramErr, "A rating lies from 0 to 100.");
      }
      if (code == fourCharCode("pAdj") && (*number < -100 || *number > 100)) {
        return Status::error(paramErr, "A volume adjustment lies from -100 to 100.");
      }
      if (*number < INT32_MIN || *number > INT32_MAX) {
        return Status::error(paramErr, "The value does not fit the property.");
      }
      writeKey(record, key, plist::Value::integer(*number));
      if (code == fourCharCode("pAlR") && record.contains("Album Rating Computed")) {
        writeKey(record, "Album Rating Computed", plist::Value());
      }
      return Status::success();
    }
    case ValueType::kBoolean: {
      Result<bool> flag = ae::boolValue(value);
      if (!flag) return coercionFailed(code);
      // Flags are written when true and left out when false, except "Unplayed", whose absence
      // means "never played".
      plist::Value stored = plist::Value::boolean(*flag);
      if (!*flag && code != fourCharCode("pUnp")) stored = plist::Value();
      writeKey(record, key, std::move(stored));
      return Status::success();
    }
    case ValueType::kSeconds: {
      Result<double> seconds = ae::doubleValue(value);
      if (!seconds || !std::isfinite(*seconds)) return coercionFailed(code);
      if (*seconds < 0) return Status::error(paramErr, "A time cannot be negative.");
      writeKey(record, key, plist::Value::integer(std::llround(*seconds * 1000.0)));
      return Status::success();
    }
    case ValueType::kDate: {
      Result<Date> date = dateOf(value);
      if (!date) return date.status();
      if (code == kPropPlayedDate) {
        writeKey(record, "Play Date", plist::Value::integer(localLongDateTime(*date)));
      }
      writeKey(record, key, plist::Value::date(*date));
      return Status::success();
    }
    default:
      return readOnly(code);
  }
}

Status Library::notePlayed(DatabaseId id, Date when) {
  Track* track = mutableTrack(id);
  if (!track) return Status::error(errAENoSuchObject, "Can't get track id " + std::to_string(id));
  plist::Dictionary& record = *track->record_;
  writeKey(record, "Play Count",
           plist::Value::integer(track->integer("Play Count").value_or(0) + 1));
  writeKey(record, "Play Date", plist::Value::integer(localLongDateTime(when)));
  writeKey(record, "Play Date UTC", plist::Value::date(when));
  if (record.contains("Unplayed")) writeKey(record, "Unplayed", plist::Value::boolean(false));
  return Status::success();
}

// ---- Playlists ---------------------------------------------------------------------------

Result<Descriptor> Library::playlistProperty(const Playlist& playlist, OSType code) const {
  const PropertyInfo* info =
      PropertyTable::find(PropertyTable::playlistProperties(), code, version_);
  if (!info) return noSuchProperty(code);
  switch (code) {
    case kPropClass:
      return Descriptor::makeType(playlist.classCode());
    case kPropId:
      return Descriptor::makeSInt32(playlist.id());
    case kPropIndex:
      return Descriptor::makeSInt32(indexOf(playlist));
    case kPropName:
      return Descriptor::makeUnicodeText(playlist.name());
    case kPropPersistentId:
      return persistentIdValue(playlist.persistentId(), version_);
    case kPropPersistentIdText:
      return Descriptor::makeUnicodeText(formatPersistentId(playlist.persistentId()));
    case kPropDuration:
    case kPropTime:
    case kPropSize: {
      int64_t milliseconds = 0;
      int64_t bytes = 0;
      for (const DatabaseId id : playlist.trackIds()) {
        if (const Track* track = trackById(id)) {
          milliseconds += track->integer("Total Time").value_or(0);
          bytes += track->integer("Size").value_or(0);
        }
      }
      if (code == kPropSize) return Descriptor::makeSInt64(bytes);
      const int64_t seconds = (milliseconds + 500) / 1000;
      if (code == kPropTime) return Descriptor::makeUnicodeText(clockText(seconds));
      return makeIntegerValue(seconds);
    }
    case kPropParent:
      // A playlist at the top level has no parent: the player answers "no such object".
      if (!parentOf(playlist)) {
        return Status::error(errAENoSuchObject, "Can't get parent of playlist.");
      }
      return objectValued(code);
    case kPropShuffle:
      return Descriptor::makeBoolean(playlist.shuffle());
    case kPropSongRepeat:
      return Descriptor::makeEnum(playlist.songRepeat());
    case kPropSpecialKind:
      return Descriptor::makeEnum(playlist.specialKind());
    case kPropVisible:
      return Descriptor::makeBoolean(playlist.isVisible());
    case kPropShared:
      return Descriptor::makeBoolean(playlist.shared());
    case kPropSmart:
      return Descriptor::makeBoolean(playlist.isSmart());
    default:
      return objectValued(code);
  }
}

Status Library::setPlaylistProperty(DatabaseId id, OSType code, const Descriptor& value) {
  Playlist* playlist = mutablePlaylist(id);
  if (!playlist) {
    return Status::error(errAENoSuchObject, "Can't get playlist id " + std::to_string(id));
  }
  const PropertyInfo* info =
      PropertyTable::find(PropertyTable::playlistProperties(), code, version_);
  if (!info) return noSuchProperty(code);
  if (!info->writable()) return readOnly(code);
  switch (code) {
    case kPropName: {
      if (playlist->isSpecial()) return readOnly(code);
      Result<std::string> text = ae::textValue(value);
      if (!text) return coercionFailed(code);
      writeKey(*playlist->record_, "Name", plist::Value::string(*text));
      return Status::success();
    }
    case kPropShuffle:
    case kPropShared: {
      Result<bool> flag = ae::boolValue(value);
      if (!flag) return coercionFailed(code);
      (code == kPropShuffle ? playlist->shuffle_ : playlist->shared_) = *flag;
      return Status::success();
    }
    case kPropSongRepeat: {
      Result<OSType> mode = ae::codeValue(value);
      if (!mode) return coercionFailed(code);
      if (*mode == fourCharCode("kAll")) *mode = kRepeatAll;
      if (*mode != kRepeatOff && *mode != kRepeatOne && *mode != kRepeatAll) {
        return Status::error(errAENotAnEnumMember, "Not a repeat mode: " + fourCharDisplay(*mode));
      }
      playlist->repeat_ = *mode;
      return Status::success();
    }
    default:
      return readOnly(code);
  }
}

}  // namespace rvitunes::player
