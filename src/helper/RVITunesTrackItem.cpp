// RVITunesTrackItem: creation from a track record or a live track, the live track and playing.
#include "rvitunes/helper/RVITunesTrackItem.h"

#include "rvitunes/base/Url.h"
#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/helper/RVITunesIcons.h"

namespace rvitunes {
namespace {

// The value under `key` when it is a number (integer, real or boolean), else null.
const plist::Value* numberFor(const plist::Dictionary& record, std::string_view key) {
  const plist::Value* value = record.find(key);
  return value != nullptr && value->isNumber() ? value : nullptr;
}

// The value under `key` when it is a string, else nullopt.
std::optional<std::string> stringFor(const plist::Dictionary& record, std::string_view key) {
  const plist::Value* value = record.find(key);
  if (value == nullptr || !value->isString()) return std::nullopt;
  return value->stringValue();
}

}  // namespace

RVITunesTrackItem::RVITunesTrackItem() : splitMusics_(plist::Array::create()) {}

std::shared_ptr<RVITunesTrackItem> RVITunesTrackItem::initWithTrackDictInfo(
    const plist::Ref<plist::Dictionary>& record) {
  if (!record) return nullptr;
  auto item = std::make_shared<RVITunesTrackItem>();
  item->trackInfo_ = record;
  const plist::Dictionary& dict = *record;

  if (const plist::Value* id = numberFor(dict, "Track ID")) item->trackId_ = id->intValue();
  if (item->trackId_ == 0) {
    item->trackInfo_ = nullptr;
    return nullptr;
  }
  // The library file writes "Persistent ID" as hexadecimal text; only a number is taken.
  if (const plist::Value* pid = numberFor(dict, "Persistent ID")) {
    item->persistentId_ = pid->longLongValue();
  }
  if (auto name = stringFor(dict, "Name")) item->setTrackName(std::move(name));
  if (auto artist = stringFor(dict, "Artist")) item->setArtistName(std::move(artist));
  // No fallback to the name here: a record without a usable "Album" keeps albumName nil.
  if (auto album = stringFor(dict, "Album")) item->setAlbumName(std::move(album));
  if (const plist::Value* time = numberFor(dict, "Total Time")) {
    item->totalTime_ = static_cast<int64_t>(time->intValue());
  }
  if (const plist::Value* video = numberFor(dict, "Has Video")) {
    item->hasVideo_ = video->boolValue() ? 1 : 0;
  }
  if (const plist::Value* count = numberFor(dict, "Artwork Count")) {
    item->artworkCount_ = count->intValue();
  }
  if (auto location = stringFor(dict, "Location")) {
    if (std::optional<Url> url = Url::parse(*location)) {
      item->setFileUrl(*location);
      item->setFilePath(url->path());
      item->setFileName(url->lastPathComponent());
      item->setFileType(url->pathExtension());
    }
  }
  if (plist::Ref<plist::Dictionary> icons = RVITunesIcons()) {
    if (item->fileType_) {
      item->assignFileTypeImage(item->fileType_);
    } else {
      item->typeImage_ = iconImageRef(icons->get("iTunes_generic"));
    }
  }
  return item;
}

std::shared_ptr<RVITunesTrackItem> RVITunesTrackItem::itemWithTrackDictInfo(
    const plist::Ref<plist::Dictionary>& /*record*/) {
  return nullptr;
}

std::shared_ptr<RVITunesTrackItem> RVITunesTrackItem::initWithCzTrackPointer(
    const std::shared_ptr<CZTrack>& track) {
  if (!track) return nullptr;
  auto item = std::make_shared<RVITunesTrackItem>();
  item->trackId_ = track->databaseId();
  item->persistentId_ = track->persistentId();
  item->setTrackName(track->name());
  item->setArtistName(track->artist());
  item->setAlbumName(track->album());
  if (!item->albumName_) item->albumName_ = item->trackName_;
  return item;
}

std::shared_ptr<RVITunesTrackItem> RVITunesTrackItem::itemWithCzTrackPointer(
    const std::shared_ptr<CZTrack>& track) {
  return initWithCzTrackPointer(track);
}

std::shared_ptr<CZTrack> RVITunesTrackItem::czTrackPtr() const {
  std::shared_ptr<Cadenza> cadenza = Cadenza::sharedInstance();
  if (!cadenza) return nullptr;
  for (const std::shared_ptr<CZPlaylist>& playlist : cadenza->playlists()) {
    if (!playlist) continue;
    if (std::shared_ptr<CZTrack> track = playlist->trackWithDatabaseId(trackId_)) return track;
  }
  return nullptr;
}

bool RVITunesTrackItem::playCzTrack() const {
  std::shared_ptr<CZTrack> track = czTrackPtr();
  if (!track) return false;
  if (std::shared_ptr<Cadenza> cadenza = Cadenza::sharedInstance()) cadenza->playTrack(*track);
  return true;
}

bool RVITunesTrackItem::playCzTrack(const std::optional<std::string>& path) const {
  if (!path) return false;
  if (!czTrackPtr()) return false;
  if (std::shared_ptr<Cadenza> cadenza = Cadenza::sharedInstance()) {
    cadenza->playTrackWithPath(*path);
  }
  return true;
}

void RVITunesTrackItem::stopCzTrack() const {
  if (std::shared_ptr<Cadenza> cadenza = Cadenza::sharedInstance()) cadenza->stop();
}

}  // namespace rvitunes
