#include "rvitunes/player/PlayerModel.h"

#include <algorithm>
#include <cmath>

#include "player/PropertyValues.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/player/PropertyTable.h"

namespace rvitunes::player {
namespace {

PlaybackClock::Repeat repeatOf(OSType mode) {
  if (mode == kRepeatOne) return PlaybackClock::Repeat::kOne;
  if (mode == kRepeatAll) return PlaybackClock::Repeat::kAll;
  return PlaybackClock::Repeat::kOff;
}

Status noSuchObject(const std::string& what) {
  return Status::error(errAENoSuchObject, "Can't get " + what + ".");
}

}  // namespace

PlayerModel::PlayerModel(PlayerOptions options)
    : options_(std::move(options)),
      library_(options_.version),
      clock_(options_.time ? options_.time : steadyTimeSource()) {}

PlayerModel::~PlayerModel() {
  quit();
}

Status PlayerModel::load(const std::string& path) {
  Status status = library_.load(path);
  if (!status.ok()) return status;
  afterLoad();
  startWriteBack();
  return Status::success();
}

Status PlayerModel::loadTree(plist::Value root, std::string path) {
  Status status = library_.loadTree(std::move(root), std::move(path));
  if (!status.ok()) return status;
  afterLoad();
  startWriteBack();
  return Status::success();
}

void PlayerModel::afterLoad() {
  const Playlist& library = library_.libraryPlaylist();
  selection_.clear();
  if (!library.trackIds().empty()) selection_.push_back(library.trackIds().front());
  queuePlaylist(library, 0);
}

void PlayerModel::startWriteBack() {
  if (!options_.writeBack || library_.path().empty()) return;
  FileSystem& fs = options_.fileSystem ? *options_.fileSystem : FileSystem::defaultFileSystem();
  LibraryWriteBack::Options timing;
  timing.delay = options_.writeBackDelay;
  timing.maxDelay = std::max(options_.writeBackMaxDelay, options_.writeBackDelay);
  writeBack_ = std::make_unique<LibraryWriteBack>(
      fs, library_.path(), [this] { return library_.serialize(); }, timing);
  library_.setChangeListener([this] {
    if (writeBack_) writeBack_->markChanged();
  });
}

std::vector<PlaybackClock::Entry> PlayerModel::queueFor(const Playlist& playlist) const {
  std::vector<PlaybackClock::Entry> entries;
  for (const Track* track : library_.tracksOf(playlist)) {
    const bool known = track->integer("Total Time").value_or(0) > 0;
    entries.push_back({track->id(), known ? track->durationSeconds() : kUnknownLengthSeconds});
  }
  return entries;
}

void PlayerModel::queuePlaylist(const Playlist& playlist, size_t index) {
  clock_.setRepeat(repeatOf(playlist.songRepeat()));
  clock_.setQueue(playlist.id(), queueFor(playlist), index);
  queued_ = playlist.trackIds();
}

// ---- Application properties ---------------------------------------------------------------

Result<ae::Descriptor> PlayerModel::applicationProperty(OSType code) {
  const PropertyInfo* info =
      PropertyTable::find(PropertyTable::applicationProperties(), code, version());
  if (!info) {
    return Status::error(errAENoSuchObject, "Can't get property " + fourCharDisplay(code) + ".");
  }
  switch (code) {
    case kPropClass:
      return ae::Descriptor::makeType(kClassApplication);
    case kPropName:
      return ae::Descriptor::makeUnicodeText(kPlayerName);
    case kPropVersion:
      return version().versDescriptor();
    case kPropPlayerPosition:
      return ae::Descriptor::makeSInt32(static_cast<int32_t>(std::floor(playerPosition())));
    case kPropPlayerState:
      return ae::Descriptor::makeEnum(playerState());
    case kPropSoundVolume:
      return ae::Descriptor::makeSInt32(volume_);
    case kPropEqEnabled:
      return ae::Descriptor::makeBoolean(eqEnabled_);
    case kPropFixedIndexing:
      return ae::Descriptor::makeBoolean(fixedIndexing_);
    case kPropFrontmost:
      return ae::Descriptor::makeBoolean(frontmost_);
    case kPropVisible:
      return ae::Descriptor::makeBoolean(visible_);
    case kPropMute:
      return ae::Descriptor::makeBoolean(mute_);
    default:
      return Status::error(errAECantSupplyType,
                           "Property " + fourCharDisplay(code) + " is an object reference.");
  }
}

Status PlayerModel::setApplicationProperty(OSType code, const ae::Descriptor& value) {
  const PropertyInfo* info =
      PropertyTable::find(PropertyTable::applicationProperties(), code, version());
  if (!info) {
    return Status::error(errAENoSuchObject, "Can't get property " + fourCharDisplay(code) + ".");
  }
  if (!info->writable()) {
    return Status::error(errAEWriteDenied,
                         "Can't set property " + fourCharDisplay(code) + ": it is read-only.");
  }
  if (code == kPropPlayerPosition) {
    Result<double> seconds = ae::doubleValue(value);
    if (!seconds || !std::isfinite(*seconds)) return coercionFailed(code);
    tick();
    clock_.setPosition(*seconds);
    return Status::success();
  }
  if (code == kPropSoundVolume) {
    Result<int64_t> volume = ae::integerValue(value);
    if (!volume) return coercionFailed(code);
    volume_ = static_cast<int32_t>(std::clamp<int64_t>(*volume, 0, 100));
    return Status::success();
  }
  Result<bool> flag = ae::boolValue(value);
  if (!flag) return coercionFailed(code);
  switch (code) {
    case kPropEqEnabled:
      eqEnabled_ = *flag;
      break;
    case kPropFixedIndexing:
      fixedIndexing_ = *flag;
      break;
    case kPropFrontmost:
      frontmost_ = *flag;
      break;
    case kPropVisible:
      visible_ = *flag;
      break;
    case kPropMute:
      mute_ = *flag;
      break;
    default:
      return Status::error(errAEWriteDenied, "Can't set property " + fourCharDisplay(code) + ".");
  }
  return Status::success();
}

void PlayerModel::activate() {
  frontmost_ = true;
  visible_ = true;
}

Status PlayerModel::setSelection(std::vector<DatabaseId> tracks) {
  for (const DatabaseId id : tracks) {
    if (!library_.trackById(id)) return noSuchObject("track id " + std::to_string(id));
  }
  selection_ = std::move(tracks);
  return Status::success();
}

// ---- Playback ----------------------------------------------------------------------------

void PlayerModel::tick() {
  for (const DatabaseId id : clock_.takeFinished())
    library_.notePlayed(id, Date::now());
  const std::optional<DatabaseId> playlistId = clock_.currentPlaylist();
  const Playlist* playlist = playlistId ? library_.playlistById(*playlistId) : nullptr;
  if (!playlist) return;
  clock_.setRepeat(repeatOf(playlist->songRepeat()));
  if (playlist->trackIds() != queued_) {
    clock_.updateQueue(queueFor(*playlist));
    queued_ = playlist->trackIds();
  }
}

OSType PlayerModel::playerState() {
  tick();
  return clock_.state();
}

double PlayerModel::playerPosition() {
  tick();
  return clock_.position();
}

std::optional<DatabaseId> PlayerModel::currentTrack() {
  tick();
  return clock_.currentTrack();
}

std::optional<DatabaseId> PlayerModel::currentPlaylist() {
  tick();
  return clock_.currentPlaylist();
}

void PlayerModel::play() {
  tick();
  clock_.play();
}

Status PlayerModel::playTrack(DatabaseId trackId, std::optional<DatabaseId> playlistId, bool once) {
  tick();
  if (!library_.trackById(trackId)) return noSuchObject("track id " + std::to_string(trackId));
  const Playlist* playlist = nullptr;
  if (playlistId) {
    playlist = library_.playlistById(*playlistId);
    if (!playlist) return noSuchObject("playlist id " + std::to_string(*playlistId));
  }
  auto positionIn = [&](const Playlist& list) -> std::optional<size_t> {
    const std::vector<const Track*> tracks = library_.tracksOf(list);
    for (size_t i = 0; i < tracks.size(); ++i) {
      if (tracks[i]->id() == trackId) return i;
    }
    return std::nullopt;
  };
  std::optional<size_t> index = playlist ? positionIn(*playlist) : std::nullopt;
  if (!index) {
    playlist = &library_.libraryPlaylist();
    index = positionIn(*playlist);
    if (!index) return noSuchObject("track id " + std::to_string(trackId));
  }
  queuePlaylist(*playlist, *index);
  clock_.playAt(*index, once);
  return Status::success();
}

Status PlayerModel::playPlaylist(DatabaseId playlistId) {
  tick();
  const Playlist* playlist = library_.playlistById(playlistId);
  if (!playlist) return noSuchObject("playlist id " + std::to_string(playlistId));
  queuePlaylist(*playlist, 0);
  clock_.playAt(0);
  return Status::success();
}

Result<DatabaseId> PlayerModel::playFile(const std::string& path, bool once) {
  Result<const Track*> track = library_.addFile(path);
  if (!track) return track.status();
  const DatabaseId id = (*track)->id();
  Status status = playTrack(id, std::nullopt, once);
  if (!status.ok()) return status;
  return id;
}

void PlayerModel::pause() {
  tick();
  clock_.pause();
}

void PlayerModel::playPause() {
  tick();
  clock_.playPause();
}

void PlayerModel::resume() {
  tick();
  clock_.resume();
}

void PlayerModel::stop() {
  tick();
  clock_.stop();
}

void PlayerModel::nextTrack() {
  tick();
  clock_.nextTrack();
}

void PlayerModel::previousTrack() {
  tick();
  clock_.previousTrack();
}

void PlayerModel::backTrack() {
  tick();
  clock_.backTrack();
}

void PlayerModel::fastForward() {
  tick();
  clock_.fastForward();
}

void PlayerModel::rewind() {
  tick();
  clock_.rewind();
}

// ---- Library changes ---------------------------------------------------------------------

Result<std::vector<DatabaseId>> PlayerModel::addFiles(const std::vector<std::string>& paths,
                                                      std::optional<DatabaseId> playlist) {
  std::vector<DatabaseId> added;
  Status firstError;
  for (const std::string& path : paths) {
    Result<std::vector<const Track*>> tracks = library_.addFiles(path);
    if (!tracks) {
      if (firstError.ok()) firstError = tracks.status();
      continue;
    }
    for (const Track* track : *tracks)
      added.push_back(track->id());
  }
  if (added.empty() && !firstError.ok()) return firstError;
  if (playlist) {
    for (const DatabaseId id : added) {
      Status status = library_.addTrackToPlaylist(id, *playlist);
      if (!status.ok()) return status;
    }
  }
  tick();
  return added;
}

Status PlayerModel::quit() {
  if (!writeBack_) return Status::success();
  Status status = writeBack_->flush();
  // A change that could not be written stays pending, and the write-back keeps retrying it:
  // quitting now would lose it.
  if (status.ok()) writeBack_->stop();
  return status;
}

}  // namespace rvitunes::player
