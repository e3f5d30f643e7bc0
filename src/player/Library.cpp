#include "rvitunes/player/Library.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <random>

#include "player/LibraryKeys.h"
#include "rvitunes/player/PersistentIdText.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/PropertyList.h"
#include "rvitunes/plist/XmlWriter.h"

namespace rvitunes::player {
namespace {

bool flagOf(const plist::Dictionary& record, std::string_view key) {
  const plist::Value* value = record.find(key);
  return value && value->boolValue();
}

std::optional<int64_t> integerOf(const plist::Dictionary& record, std::string_view key) {
  const plist::Value* value = record.find(key);
  if (!value || !value->isNumber()) return std::nullopt;
  return value->longLongValue();
}

std::optional<PersistentId> persistentIdOf(const plist::Dictionary& record, std::string_view key) {
  const plist::Value* value = record.find(key);
  if (!value || !value->isString()) return std::nullopt;
  return parsePersistentId(value->stringView());
}

// Special kinds named by a flag of the playlist record.
struct KindFlag {
  std::string_view key;
  OSType kind;
};
constexpr std::array<KindFlag, 10> kKindFlags = {{
    {"Music", kSpecialMusic},
    {"Movies", kSpecialMovies},
    {"TV Shows", kSpecialTvShows},
    {"Podcasts", kSpecialPodcasts},
    {"Audiobooks", kSpecialAudiobooks},
    {"Books", kSpecialAudiobooks},
    {"Purchased Music", kSpecialPurchasedMusic},
    {"Party Shuffle", kSpecialPartyShuffle},
    {"iTunes DJ", kSpecialPartyShuffle},
    {"Videos", kSpecialVideos},
}};

// "Distinguished Kind" numbers of the same playlists, for files that carry no flag.
OSType kindOfDistinguished(int64_t number) {
  switch (number) {
    case 2:
      return kSpecialMovies;
    case 3:
      return kSpecialTvShows;
    case 4:
      return kSpecialMusic;
    case 5:
      return kSpecialAudiobooks;
    case 10:
      return kSpecialPodcasts;
    case 19:
      return kSpecialPurchasedMusic;
    default:
      return kSpecialNone;
  }
}
constexpr int64_t kDistinguishedGenius = 26;

}  // namespace

Library::Library(PlayerVersion version) : version_(std::move(version)) {}

Library::~Library() = default;

Status Library::load(const std::string& path) {
  plist::ParseResult parsed = plist::PropertyList::readFile(path);
  if (!parsed.ok()) {
    return Status::error(ioErr,
                         "Unable to read the library file " + path + ": " + parsed.describe());
  }
  const plist::EntityStyle entities = parsed.entityStyle == plist::EntityStyle::kNone
                                          ? plist::EntityStyle::kNumeric
                                          : parsed.entityStyle;
  return loadTree(std::move(parsed.root), path, entities);
}

Status Library::loadTree(plist::Value root, std::string path, plist::EntityStyle entities) {
  if (loaded_) return Status::error(paramErr, "The library is already loaded");
  if (!root.isDictionary()) {
    return Status::error(paramErr, "The library file " + path + " does not hold a dictionary");
  }
  root_ = std::move(root);
  path_ = std::move(path);
  entities_ = entities == plist::EntityStyle::kNone ? plist::EntityStyle::kNumeric : entities;
  std::random_device seed;
  pidState_ = (static_cast<uint64_t>(seed()) << 32) ^ seed();
  buildModel();
  loaded_ = true;
  return Status::success();
}

void Library::buildModel() {
  plist::Dictionary& top = *root_.asDictionary();

  // Tracks, in the order of the "Tracks" dictionary.
  if (const plist::Value* tracks = top.find("Tracks"); tracks && tracks->isDictionary()) {
    for (const plist::Dictionary::Entry& entry : *tracks->asDictionary()) {
      if (!entry.value.isDictionary()) continue;
      const plist::Dictionary& record = *entry.value.asDictionary();
      const DatabaseId id =
          static_cast<DatabaseId>(integerOf(record, "Track ID").value_or(entry.key.intValue()));
      if (id <= 0 || trackById_.contains(id)) continue;
      maxId_ = std::max(maxId_, id);
      tracks_.push_back(std::make_unique<Track>(id, 0, entry.value.dictionaryRef()));
      trackById_[id] = tracks_.back().get();
    }
  }
  std::vector<plist::Ref<plist::Dictionary>> playlistRecords;
  plist::Value* playlistsValue = top.find("Playlists");
  if (playlistsValue && playlistsValue->isArray()) {
    for (const plist::Value& value : *playlistsValue->asArray()) {
      if (!value.isDictionary()) continue;
      playlistRecords.push_back(value.dictionaryRef());
      if (auto id = integerOf(*value.asDictionary(), "Playlist ID")) {
        maxId_ = std::max(maxId_, static_cast<DatabaseId>(*id));
      }
    }
  }

  // Persistent IDs, now that the taken ones can be avoided by new ones.
  for (const std::unique_ptr<Track>& track : tracks_) {
    if (auto pid = persistentIdOf(*track->record_, "Persistent ID");
        pid && !trackByPid_.contains(*pid)) {
      track->persistentId_ = *pid;
      trackByPid_[*pid] = track.get();
    }
  }
  for (const std::unique_ptr<Track>& track : tracks_) {
    if (!trackByPid_.contains(track->persistentId_) ||
        trackByPid_[track->persistentId_] != track.get()) {
      track->persistentId_ = newPersistentId();
      trackByPid_[track->persistentId_] = track.get();
    }
    if (auto path = track->locationPath()) {
      trackByPath_.emplace(std::filesystem::path(*path).lexically_normal().string(), track.get());
    }
  }

  // Playlists in file order; the library playlist is the first one marked "Master".
  std::optional<size_t> master;
  for (plist::Ref<plist::Dictionary>& record : playlistRecords) {
    std::optional<int64_t> id = integerOf(*record, "Playlist ID");
    DatabaseId databaseId = id ? static_cast<DatabaseId>(*id) : 0;
    if (databaseId <= 0 || playlistById_.contains(databaseId) || trackById_.contains(databaseId)) {
      databaseId = newDatabaseId();
    }
    std::optional<PersistentId> pid = persistentIdOf(*record, "Playlist Persistent ID");
    if (!pid || playlistByPid_.contains(*pid)) pid = newPersistentId();
    auto playlist = std::make_unique<Playlist>(databaseId, *pid, record);
    classifyPlaylist(*playlist);
    if (playlist->isLibrary()) {
      if (master) {
        playlist->classCode_ = kClassUserPlaylist;  // a second "Master" is an ordinary list
      } else {
        master = playlists_.size();
      }
    }
    playlistById_[databaseId] = playlists_.size();
    playlistByPid_[*pid] = playlists_.size();
    playlists_.push_back(std::move(playlist));
  }
  if (!master) {
    // A library without a library playlist gets one, holding every track.
    plist::Ref<plist::Dictionary> record = plist::Dictionary::create();
    const DatabaseId id = newDatabaseId();
    const PersistentId pid = newPersistentId();
    record->set("Master", plist::Value::boolean(true));
    record->set("Playlist ID", plist::Value::integer(id));
    record->set("Playlist Persistent ID", plist::Value::string(formatPersistentId(pid)));
    record->set("Visible", plist::Value::boolean(false));
    record->set("All Items", plist::Value::boolean(true));
    record->set("Name", plist::Value::string("Library"));
    plist::Ref<plist::Array> items = plist::Array::create();
    for (const std::unique_ptr<Track>& track : tracks_) {
      plist::Ref<plist::Dictionary> item = plist::Dictionary::create();
      item->set("Track ID", plist::Value::integer(track->id()));
      items->push_back(plist::Value(item));
    }
    record->set("Playlist Items", plist::Value(items));
    if (!playlistsValue || !playlistsValue->isArray()) {
      top.set("Playlists", plist::Value::newArray());
      playlistsValue = top.find("Playlists");
    }
    playlistsValue->asArray()->insert(0, plist::Value(record));
    auto playlist = std::make_unique<Playlist>(id, pid, record);
    classifyPlaylist(*playlist);
    playlists_.insert(playlists_.begin(), std::move(playlist));
    master = 0;
    playlistById_.clear();
    playlistByPid_.clear();
    for (size_t i = 0; i < playlists_.size(); ++i) {
      playlistById_[playlists_[i]->id_] = i;
      playlistByPid_[playlists_[i]->persistentId_] = i;
    }
  }
  libraryIndex_ = *master;

  // Items and the folder tree.
  for (const std::unique_ptr<Playlist>& playlist : playlists_) {
    const plist::Value* items = playlist->record_->find("Playlist Items");
    if (items && items->isArray()) {
      for (const plist::Value& item : *items->asArray()) {
        if (!item.isDictionary()) continue;
        const std::optional<int64_t> id = integerOf(*item.asDictionary(), "Track ID");
        if (id && trackById_.contains(static_cast<DatabaseId>(*id))) {
          playlist->trackIds_.push_back(static_cast<DatabaseId>(*id));
        }
      }
    } else if (playlist->isLibrary()) {
      for (const std::unique_ptr<Track>& track : tracks_) {
        playlist->trackIds_.push_back(track->id());
      }
    }
    playlist->parent_ = persistentIdOf(*playlist->record_, "Parent Persistent ID");
    if (playlist->parent_ && !playlistByPid_.contains(*playlist->parent_)) {
      playlist->parent_.reset();
    }
  }
  for (const std::unique_ptr<Playlist>& playlist : playlists_) {
    if (playlist->parent_) {
      playlists_[playlistByPid_.at(*playlist->parent_)]->children_.push_back(
          playlist->persistentId_);
    }
  }

  // The source takes the lowest ID nobody else has.
  DatabaseId sourceId = 1;
  while (trackById_.contains(sourceId) || playlistById_.contains(sourceId))
    ++sourceId;
  source_.id = sourceId;
  maxId_ = std::max(maxId_, sourceId);
}

void Library::classifyPlaylist(Playlist& playlist) const {
  const plist::Dictionary& record = *playlist.record_;
  playlist.genius_ = false;
  if (flagOf(record, "Master")) {
    playlist.classCode_ = kClassLibraryPlaylist;
    playlist.specialKind_ = kSpecialNone;
    return;
  }
  if (flagOf(record, "Folder")) {
    playlist.classCode_ = kClassFolderPlaylist;
    playlist.specialKind_ = kSpecialFolder;
    return;
  }
  playlist.classCode_ = kClassUserPlaylist;
  playlist.specialKind_ = kSpecialNone;
  for (const KindFlag& flag : kKindFlags) {
    if (flagOf(record, flag.key)) {
      playlist.specialKind_ = flag.kind;
      return;
    }
  }
  const int64_t distinguished = integerOf(record, "Distinguished Kind").value_or(0);
  if (distinguished == kDistinguishedGenius) {
    playlist.genius_ = true;
    if (version_.hasGeniusKind()) playlist.specialKind_ = kSpecialGenius;
    return;
  }
  playlist.specialKind_ = kindOfDistinguished(distinguished);
}

Result<std::string> Library::serialize() const {
  std::lock_guard lock(treeMutex_);
  if (!root_.isDictionary()) return Status::error(paramErr, "No library is loaded");
  return plist::XmlWriter::write(root_, entities_);
}

// ---- Look-ups ---------------------------------------------------------------------------

std::vector<const Playlist*> Library::playlistsOfClass(OSType classCode) const {
  std::vector<const Playlist*> out;
  for (const std::unique_ptr<Playlist>& playlist : playlists_) {
    if (playlist->isKindOf(classCode)) out.push_back(playlist.get());
  }
  return out;
}

const Playlist* Library::playlistById(DatabaseId id) const {
  auto it = playlistById_.find(id);
  return it == playlistById_.end() ? nullptr : playlists_[it->second].get();
}

const Playlist* Library::playlistByPersistentId(PersistentId id) const {
  auto it = playlistByPid_.find(id);
  return it == playlistByPid_.end() ? nullptr : playlists_[it->second].get();
}

const Playlist* Library::parentOf(const Playlist& playlist) const {
  return playlist.parent_ ? playlistByPersistentId(*playlist.parent_) : nullptr;
}

int32_t Library::indexOf(const Playlist& playlist) const {
  auto it = playlistById_.find(playlist.id());
  return it == playlistById_.end() ? 0 : static_cast<int32_t>(it->second + 1);
}

const Track* Library::trackById(DatabaseId id) const {
  auto it = trackById_.find(id);
  return it == trackById_.end() ? nullptr : it->second;
}

const Track* Library::trackByPersistentId(PersistentId id) const {
  auto it = trackByPid_.find(id);
  return it == trackByPid_.end() ? nullptr : it->second;
}

const Track* Library::trackByPath(const std::string& path) const {
  if (path.empty()) return nullptr;
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  if (error) return nullptr;
  auto it = trackByPath_.find(absolute.lexically_normal().string());
  return it == trackByPath_.end() ? nullptr : it->second;
}

std::vector<const Track*> Library::tracksOf(const Playlist& playlist, OSType classCode) const {
  std::vector<const Track*> out;
  out.reserve(playlist.trackIds().size());
  for (const DatabaseId id : playlist.trackIds()) {
    const Track* track = trackById(id);
    if (track && track->isKindOf(classCode)) out.push_back(track);
  }
  return out;
}

Track* Library::mutableTrack(DatabaseId id) {
  auto it = trackById_.find(id);
  return it == trackById_.end() ? nullptr : it->second;
}

Playlist* Library::mutablePlaylist(DatabaseId id) {
  auto it = playlistById_.find(id);
  return it == playlistById_.end() ? nullptr : playlists_[it->second].get();
}

DatabaseId Library::newDatabaseId() {
  return ++maxId_;
}

PersistentId Library::newPersistentId() {
  while (true) {
    // splitmix64: a fresh, well-spread value per step.
    uint64_t z = (pidState_ += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    z ^= z >> 31;
    if (z != 0 && !trackByPid_.contains(z) && !playlistByPid_.contains(z)) return z;
  }
}

// ---- Tree edits -------------------------------------------------------------------------

void Library::writeKey(plist::Dictionary& record, std::string_view key, plist::Value value) {
  {
    std::lock_guard lock(treeMutex_);
    if (value.isNil()) {
      record.remove(key);
    } else if (plist::Value* existing = record.find(key)) {
      *existing = std::move(value);
    } else {
      // A new key goes where the player writes it: before the first key that follows it in the
      // player's order. Keys the player does not order go last.
      const int rank = libraryKeyRank(key);
      size_t position = record.size();
      if (rank >= 0) {
        for (size_t i = 0; i < record.size(); ++i) {
          const int other = libraryKeyRank(record.entryAt(i).key.stringView());
          if (other > rank) {
            position = i;
            break;
          }
        }
      }
      if (position == record.size()) {
        record.set(key, std::move(value));
      } else {
        std::vector<plist::Dictionary::Entry> entries(record.begin(), record.end());
        entries.insert(entries.begin() + static_cast<ptrdiff_t>(position),
                       plist::Dictionary::Entry{plist::Value::string(key), std::move(value)});
        record.adopt(std::move(entries));
      }
    }
  }
  changed();
}

void Library::changed() {
  if (listener_) listener_();
}

}  // namespace rvitunes::player
