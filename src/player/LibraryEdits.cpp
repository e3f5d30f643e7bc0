// Changes of the library beyond single properties: added files, playlist items, artwork; and
// the search over a playlist.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "player/PropertyValues.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/base/FileSystem.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/image/Image.h"
#include "rvitunes/image/Pict.h"
#include "rvitunes/player/Library.h"
#include "rvitunes/player/PersistentIdText.h"
#include "rvitunes/player/PropertyTable.h"
#include "rvitunes/plist/Array.h"

namespace rvitunes::player {
namespace {

namespace fs = std::filesystem;

// The "Kind" the player gives a file of each extension it plays.
struct MediaKind {
  std::string_view extension;
  std::string_view kind;
};
constexpr auto kMediaKinds = std::to_array<MediaKind>({
    {"mp3", "MPEG audio file"},
    {"m4a", "AAC audio file"},
    {"aac", "AAC audio file"},
    {"m4b", "AAC audio file"},
    {"m4p", "Protected AAC audio file"},
    {"aif", "AIFF audio file"},
    {"aiff", "AIFF audio file"},
    {"aifc", "AIFF audio file"},
    {"wav", "WAV audio file"},
    {"mp4", "MPEG-4 video file"},
    {"m4v", "MPEG-4 video file"},
    {"mov", "QuickTime movie file"},
});

std::string lowerAscii(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

std::optional<std::string_view> kindOfExtension(const fs::path& path) {
  std::string extension = lowerAscii(path.extension().string());
  if (!extension.empty()) extension.erase(0, 1);
  for (const MediaKind& media : kMediaKinds) {
    if (media.extension == extension) return media.kind;
  }
  return std::nullopt;
}

uint32_t readLittle32(const std::string& bytes, size_t at) {
  uint32_t value = 0;
  for (int i = 3; i >= 0; --i)
    value = value << 8 | static_cast<uint8_t>(bytes[at + i]);
  return value;
}

// What a WAV header tells: duration (ms), sample rate (Hz), bit rate (kbps).
struct WaveFacts {
  int64_t milliseconds = 0;
  int64_t sampleRate = 0;
  int64_t bitRate = 0;
};

std::optional<WaveFacts> readWaveFacts(const std::string& path, uint64_t fileSize) {
  // The header chunks lie at the start; 64 KiB is far more than any header needs.
  std::ifstream in(path, std::ios::binary);
  std::string data(64 * 1024, '\0');
  in.read(data.data(), static_cast<std::streamsize>(data.size()));
  data.resize(static_cast<size_t>(std::max<std::streamsize>(0, in.gcount())));
  if (data.size() < 12 || data.compare(0, 4, "RIFF") != 0 || data.compare(8, 4, "WAVE") != 0) {
    return std::nullopt;
  }
  WaveFacts facts;
  uint32_t byteRate = 0;
  size_t at = 12;
  while (at + 8 <= data.size()) {
    const std::string_view id(data.data() + at, 4);
    const uint32_t size = readLittle32(data, at + 4);
    if (id == "fmt " && size >= 16 && at + 8 + 16 <= data.size()) {
      facts.sampleRate = readLittle32(data, at + 12);
      byteRate = readLittle32(data, at + 16);
      facts.bitRate = static_cast<int64_t>(byteRate) * 8 / 1000;
    } else if (id == "data") {
      if (byteRate == 0) return std::nullopt;
      const uint64_t available = std::min<uint64_t>(size, fileSize - (at + 8));
      facts.milliseconds = static_cast<int64_t>(available * 1000 / byteRate);
      return facts;
    }
    at += 8 + size + (size & 1);
  }
  return std::nullopt;
}

// Lower case for matching: ASCII, Latin-1, Greek and Cyrillic capitals; other characters and
// malformed bytes are kept as they are.
std::string foldCase(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x80) {
      out.push_back(byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + 32) : text[i]);
      ++i;
      continue;
    }
    if ((byte & 0xE0) != 0xC0 || i + 1 >= text.size() ||
        (static_cast<unsigned char>(text[i + 1]) & 0xC0) != 0x80) {
      out.push_back(text[i]);
      ++i;
      continue;
    }
    uint32_t cp = (byte & 0x1Fu) << 6 | (static_cast<unsigned char>(text[i + 1]) & 0x3Fu);
    if ((cp >= 0xC0 && cp <= 0xDE && cp != 0xD7) || (cp >= 0x391 && cp <= 0x3AB) ||
        (cp >= 0x410 && cp <= 0x42F)) {
      cp += 0x20;
    } else if (cp >= 0x400 && cp <= 0x40F) {
      cp += 0x50;
    }
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    i += 2;
  }
  return out;
}

bool containsFolded(const std::string& haystack, const std::string& needle) {
  return foldCase(haystack).find(needle) != std::string::npos;
}

constexpr std::array<std::string_view, 6> kCoverNames = {"cover.jpg",  "folder.jpg", "cover.png",
                                                         "folder.png", "Folder.jpg", "Cover.jpg"};
constexpr uint64_t kMaxCoverBytes = uint64_t{32} << 20;

}  // namespace

// ---- Added files -------------------------------------------------------------------------

Result<const Track*> Library::addFile(const std::string& path) {
  if (!loaded_) return Status::error(paramErr, "No library is loaded");
  std::error_code error;
  const fs::path absolute = fs::absolute(path, error).lexically_normal();
  if (error || path.empty()) return Status::error(paramErr, "Not a file path: " + path);
  const std::string key = absolute.string();
  if (auto it = trackByPath_.find(key); it != trackByPath_.end()) return it->second;

  const fs::file_status status = fs::status(absolute, error);
  if (error || !fs::exists(status)) return Status::error(fnfErr, "No file at " + key);
  if (!fs::is_regular_file(status)) return Status::error(paramErr, "Not a file: " + key);
  const std::optional<std::string_view> kind = kindOfExtension(absolute);
  if (!kind) return Status::error(paramErr, "Not a media file the player plays: " + key);
  const uintmax_t size = fs::file_size(absolute, error);
  if (error) return Status::error(ioErr, "Unable to read the size of " + key);

  const DatabaseId id = newDatabaseId();
  const PersistentId pid = newPersistentId();
  const Date now = Date::fromUnixTime(std::floor(Date::now().unixTime()));
  const Date modified = FileSystem::defaultFileSystem().modificationDate(key).value_or(now);

  plist::Ref<plist::Dictionary> record = plist::Dictionary::create();
  record->set("Track ID", plist::Value::integer(id));
  record->set("Size", plist::Value::integer(static_cast<int64_t>(size)));
  std::optional<WaveFacts> wave;
  if (*kind == "WAV audio file") wave = readWaveFacts(key, size);
  if (wave) record->set("Total Time", plist::Value::integer(wave->milliseconds));
  record->set("Date Modified",
              plist::Value::date(Date::fromUnixTime(std::floor(modified.unixTime()))));
  record->set("Date Added", plist::Value::date(now));
  if (wave) {
    record->set("Bit Rate", plist::Value::integer(wave->bitRate));
    record->set("Sample Rate", plist::Value::integer(wave->sampleRate));
  }
  record->set("Persistent ID", plist::Value::string(formatPersistentId(pid)));
  record->set("Track Type", plist::Value::string("File"));
  record->set("Name", plist::Value::string(absolute.stem().string()));
  record->set("Kind", plist::Value::string(*kind));
  record->set("Location", plist::Value::string("file://localhost" + percentEncodePath(key)));

  {
    std::lock_guard lock(treeMutex_);
    plist::Dictionary& top = *root_.asDictionary();
    plist::Value* tracks = top.find("Tracks");
    if (!tracks || !tracks->isDictionary()) {
      // A file without "Tracks" gets it before "Playlists", where the player writes it.
      std::vector<plist::Dictionary::Entry> entries(top.begin(), top.end());
      auto at = std::find_if(entries.begin(), entries.end(), [](const auto& entry) {
        return entry.key.stringView() == "Playlists";
      });
      entries.insert(at, plist::Dictionary::Entry{plist::Value::string("Tracks"),
                                                  plist::Value::newDictionary()});
      top.adopt(std::move(entries));
      tracks = top.find("Tracks");
    }
    tracks->asDictionary()->set(std::to_string(id), plist::Value(record));
  }
  tracks_.push_back(std::make_unique<Track>(id, pid, record));
  Track* track = tracks_.back().get();
  trackById_[id] = track;
  trackByPid_[pid] = track;
  trackByPath_[key] = track;

  // Into the library playlist.
  Playlist& library = *playlists_[libraryIndex_];
  plist::Value* items = library.record_->find("Playlist Items");
  if (!items || !items->isArray()) {
    plist::Ref<plist::Array> all = plist::Array::create();
    for (const DatabaseId each : library.trackIds_) {
      plist::Ref<plist::Dictionary> item = plist::Dictionary::create();
      item->set("Track ID", plist::Value::integer(each));
      all->push_back(plist::Value(item));
    }
    writeKey(*library.record_, "Playlist Items", plist::Value(all));
    items = library.record_->find("Playlist Items");
  }
  plist::Ref<plist::Dictionary> item = plist::Dictionary::create();
  item->set("Track ID", plist::Value::integer(id));
  {
    std::lock_guard lock(treeMutex_);
    items->asArray()->push_back(plist::Value(item));
  }
  library.trackIds_.push_back(id);
  changed();
  return static_cast<const Track*>(track);
}

Result<std::vector<const Track*>> Library::addFiles(const std::string& path) {
  std::error_code error;
  if (!fs::is_directory(path, error)) {
    Result<const Track*> one = addFile(path);
    if (!one) return one.status();
    return std::vector<const Track*>{*one};
  }
  std::vector<fs::path> files;
  for (fs::recursive_directory_iterator
           it(path, fs::directory_options::skip_permission_denied, error),
       end;
       !error && it != end; it.increment(error)) {
    if (it->is_regular_file(error) && kindOfExtension(it->path())) files.push_back(it->path());
  }
  if (error) return Status::error(ioErr, "Unable to list " + path + ": " + error.message());
  std::sort(files.begin(), files.end());
  std::vector<const Track*> added;
  for (const fs::path& file : files) {
    if (Result<const Track*> one = addFile(file.string())) added.push_back(*one);
  }
  return added;
}

Status Library::addTrackToPlaylist(DatabaseId trackId, DatabaseId playlistId) {
  Playlist* playlist = mutablePlaylist(playlistId);
  if (!playlist || !trackById(trackId)) {
    return Status::error(errAENoSuchObject, "Can't get the track or the playlist.");
  }
  if (playlist->isSpecial() || playlist->isFolder() || playlist->isSmart()) {
    return Status::error(errAECantPutThatThere,
                         "Can't add tracks to playlist " + playlist->name() + ".");
  }
  plist::Ref<plist::Dictionary> item = plist::Dictionary::create();
  item->set("Track ID", plist::Value::integer(trackId));
  plist::Value* items = playlist->record_->find("Playlist Items");
  if (items && items->isArray()) {
    {
      std::lock_guard lock(treeMutex_);
      items->asArray()->push_back(plist::Value(item));
    }
    changed();
  } else {
    plist::Ref<plist::Array> list = plist::Array::create();
    list->push_back(plist::Value(item));
    writeKey(*playlist->record_, "Playlist Items", plist::Value(list));
  }
  playlist->trackIds_.push_back(trackId);
  return Status::success();
}

// ---- Search ------------------------------------------------------------------------------

Result<std::vector<const Track*>> Library::search(const Playlist& playlist, std::string_view term,
                                                  OSType area) const {
  static constexpr std::array<std::string_view, 5> kAll = {"Name", "Artist", "Album Artist",
                                                           "Album", "Composer"};
  static constexpr std::array<std::string_view, 6> kDisplayed = {
      "Name", "Artist", "Album Artist", "Album", "Composer", "Genre"};
  static constexpr std::array<std::string_view, 1> kSongs = {"Name"};
  static constexpr std::array<std::string_view, 2> kArtists = {"Artist", "Album Artist"};
  static constexpr std::array<std::string_view, 1> kAlbums = {"Album"};
  static constexpr std::array<std::string_view, 1> kComposers = {"Composer"};
  std::span<const std::string_view> fields;
  switch (area) {
    case 0:
    case kSearchAll:
    case kSearchAllLater:
      fields = kAll;
      break;
    case kSearchDisplayed:
      fields = kDisplayed;
      break;
    case kSearchSongs:
      fields = kSongs;
      break;
    case kSearchArtists:
      fields = kArtists;
      break;
    case kSearchAlbums:
      fields = kAlbums;
      break;
    case kSearchComposers:
      fields = kComposers;
      break;
    default:
      return Status::error(errAENotAnEnumMember, "Not a search area: " + fourCharDisplay(area));
  }
  std::vector<std::string> words;
  const std::string folded = foldCase(term);
  for (size_t at = 0; at < folded.size();) {
    const size_t start = folded.find_first_not_of(" \t\r\n", at);
    if (start == std::string::npos) break;
    const size_t end = std::min(folded.find_first_of(" \t\r\n", start), folded.size());
    words.push_back(folded.substr(start, end - start));
    at = end;
  }
  std::vector<const Track*> found;
  if (words.empty()) return found;
  std::vector<DatabaseId> seen;
  for (const Track* track : tracksOf(playlist)) {
    if (std::find(seen.begin(), seen.end(), track->id()) != seen.end()) continue;
    const bool matches = std::all_of(words.begin(), words.end(), [&](const std::string& word) {
      return std::any_of(fields.begin(), fields.end(), [&](std::string_view field) {
        return containsFolded(track->text(field), word);
      });
    });
    if (matches) {
      found.push_back(track);
      seen.push_back(track->id());
    }
  }
  return found;
}

// ---- Artwork -----------------------------------------------------------------------------

const std::vector<Artwork>& Library::artwork(const Track& track) const {
  if (track.artwork_) return *track.artwork_;
  std::vector<Artwork> loaded;
  const std::optional<std::string> location = track.locationPath();
  if (location && track.integer("Artwork Count").value_or(0) > 0) {
    const fs::path folder = fs::path(*location).parent_path();
    for (const std::string_view name : kCoverNames) {
      Result<std::string> bytes = FileSystem::defaultFileSystem().readFile(
          (folder / std::string(name)).string(), kMaxCoverBytes);
      if (!bytes) continue;
      Artwork art;
      art.data.assign(bytes->begin(), bytes->end());
      art.format = pictureFormatOf(art.data);
      loaded.push_back(std::move(art));
      break;
    }
  }
  track.artwork_ = std::move(loaded);
  return *track.artwork_;
}

Status Library::setArtwork(DatabaseId id, size_t index, Artwork art) {
  Track* track = mutableTrack(id);
  if (!track) return Status::error(errAENoSuchObject, "Can't get track id " + std::to_string(id));
  artwork(*track);
  std::vector<Artwork>& list = *track->artwork_;
  if (index > list.size()) {
    return Status::error(errAEIllegalIndex, "Can't get artwork " + std::to_string(index + 1));
  }
  if (index == list.size()) {
    list.push_back(std::move(art));
  } else {
    list[index] = std::move(art);
  }
  writeKey(*track->record_, "Artwork Count",
           plist::Value::integer(static_cast<int64_t>(list.size())));
  return Status::success();
}

Status Library::deleteArtwork(DatabaseId id, size_t index) {
  Track* track = mutableTrack(id);
  if (!track) return Status::error(errAENoSuchObject, "Can't get track id " + std::to_string(id));
  artwork(*track);
  std::vector<Artwork>& list = *track->artwork_;
  if (index >= list.size()) {
    return Status::error(errAEIllegalIndex, "Can't get artwork " + std::to_string(index + 1));
  }
  list.erase(list.begin() + static_cast<ptrdiff_t>(index));
  writeKey(
      *track->record_, "Artwork Count",
      list.empty() ? plist::Value() : plist::Value::integer(static_cast<int64_t>(list.size())));
  return Status::success();
}

Status Library::deleteAllArtwork(DatabaseId id) {
  Track* track = mutableTrack(id);
  if (!track) return Status::error(errAENoSuchObject, "Can't get track id " + std::to_string(id));
  track->artwork_ = std::vector<Artwork>();
  if (track->record_->contains("Artwork Count")) {
    writeKey(*track->record_, "Artwork Count", plist::Value());
  }
  return Status::success();
}

Result<ae::Descriptor> Library::artworkProperty(const Track& track, size_t index,
                                                OSType code) const {
  const PropertyInfo* info =
      PropertyTable::find(PropertyTable::artworkProperties(), code, version_);
  if (!info) return Status::error(errAENoSuchObject, "Can't get property " + fourCharDisplay(code));
  const std::vector<Artwork>& list = artwork(track);
  if (index >= list.size()) {
    return Status::error(errAEIllegalIndex, "Can't get artwork " + std::to_string(index + 1));
  }
  const Artwork& art = list[index];
  switch (code) {
    case kPropClass:
      return ae::Descriptor::makeType(kClassArtwork);
    case kPropIndex:
      return ae::Descriptor::makeSInt32(static_cast<int32_t>(index + 1));
    case kPropPicture: {
      // The picture property is a PICT, as the real player answers it; covers found beside a
      // track as JPEG or PNG are converted here. 'pRaw' keeps their original bytes.
      if (art.format == fourCharCode("PICT"))
        return ae::Descriptor::fromBytes(art.format, art.data);
      Result<image::Image> decoded =
          image::Image::fromData(std::span<const uint8_t>(art.data.data(), art.data.size()));
      if (!decoded)
        return Status::error(errAECantSupplyType,
                             "Can't make a picture: " + decoded.status().message());
      Result<std::vector<uint8_t>> pict = image::encodePict(*decoded);
      if (!pict)
        return Status::error(errAECantSupplyType,
                             "Can't make a picture: " + pict.status().message());
      return ae::Descriptor::fromBytes(fourCharCode("PICT"), *pict);
    }
    case kPropRawData:
      return ae::Descriptor::fromBytes(fourCharCode("tdta"), art.data);
    case kPropFormat:
      return ae::Descriptor::makeType(art.format);
    case kPropDescription:
      return ae::Descriptor::makeUnicodeText(art.description);
    case kPropKind:
      return ae::Descriptor::makeSInt32(art.kind);
    case kPropDownloaded:
      return ae::Descriptor::makeBoolean(art.downloaded);
    default:
      return Status::error(errAECantSupplyType,
                           "Property " + fourCharDisplay(code) + " is an object reference.");
  }
}

Status Library::setArtworkProperty(DatabaseId id, size_t index, OSType code,
                                   const ae::Descriptor& value) {
  const Track* track = trackById(id);
  if (!track) return Status::error(errAENoSuchObject, "Can't get track id " + std::to_string(id));
  const PropertyInfo* info =
      PropertyTable::find(PropertyTable::artworkProperties(), code, version_);
  if (!info) return Status::error(errAENoSuchObject, "Can't get property " + fourCharDisplay(code));
  if (!info->writable()) {
    return Status::error(errAEWriteDenied, "Can't set property " + fourCharDisplay(code));
  }
  const std::vector<Artwork>& list = artwork(*track);
  Artwork art = index < list.size() ? list[index] : Artwork();
  if (index > list.size() ||
      (index == list.size() && code != kPropPicture && code != kPropRawData)) {
    return Status::error(errAEIllegalIndex, "Can't get artwork " + std::to_string(index + 1));
  }
  switch (code) {
    case kPropPicture:
    case kPropRawData: {
      if (value.isContainer() || value.isNull()) return coercionFailed(code);
      art.data.assign(value.data().begin(), value.data().end());
      // A picture keeps the type it came with; raw bytes are recognised by their signature.
      art.format = code == kPropPicture && value.type() != fourCharCode("tdta")
                       ? value.type()
                       : pictureFormatOf(art.data);
      break;
    }
    case kPropDescription: {
      Result<std::string> text = ae::textValue(value);
      if (!text) return coercionFailed(code);
      art.description = *text;
      break;
    }
    case kPropKind: {
      Result<int32_t> kind = ae::int32Value(value);
      if (!kind) return coercionFailed(code);
      art.kind = *kind;
      break;
    }
    default:
      return Status::error(errAEWriteDenied, "Can't set property " + fourCharDisplay(code));
  }
  return setArtwork(id, index, std::move(art));
}

}  // namespace rvitunes::player
