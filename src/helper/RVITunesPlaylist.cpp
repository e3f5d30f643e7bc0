#include "rvitunes/helper/RVITunesPlaylist.h"

#include <exception>
#include <utility>

#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/helper/PlaylistIconChoice.h"
#include "rvitunes/helper/RVITunesIcons.h"
#include "rvitunes/plist/Array.h"

namespace rvitunes {

RVITunesPlaylist::RVITunesPlaylist() : tarcks_(plist::Dictionary::create()) {}

RVITunesPlaylist::~RVITunesPlaylist() = default;

std::shared_ptr<RVITunesPlaylist> RVITunesPlaylist::initWithPlaylistInfoSort(
    plist::Ref<plist::Dictionary> record, int32_t sort) {
  if (!record) return nullptr;
  auto item = std::make_shared<RVITunesPlaylist>();
  item->sortID_ = sort;
  item->playlistInfo_ = record;
  const plist::Dictionary& info = *record;

  if (const plist::Value* id = info.find("Playlist ID"); id != nullptr && id->isNumber()) {
    item->playlistId_ = id->intValue();
  }
  if (const plist::Value* pid = info.find("Playlist Persistent ID");
      pid != nullptr && pid->isNumber()) {
    item->libPersistentId_ = pid->longLongValue();
  }
  if (const plist::Value* name = info.find("Name"); name != nullptr && name->isString()) {
    item->setPlaylistName(std::string(name->stringView()));
  }

  // Every key with a true number, integers such as "Playlist ID" among them. Only running out
  // of memory can interrupt the walk; the keys found so far are kept and the item is still made.
  try {
    for (const plist::Dictionary::Entry& entry : info) {
      if (!entry.key.isString() || !entry.value.isNumber() || !entry.value.boolValue()) continue;
      item->strTrueKeys_.emplace_back(entry.key.stringView());
    }
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): partial keys are kept
  }

  if (const plist::Value* items = info.find("Playlist Items"); items != nullptr) {
    if (const plist::Array* list = items->asArray()) {
      for (const plist::Value& element : *list) {
        const plist::Dictionary* entry = element.asDictionary();
        if (entry == nullptr) continue;
        const plist::Value* trackId = entry->find("Track ID");
        if (trackId == nullptr || !trackId->isNumber()) continue;
        if (item->tarcks_->find(*trackId) != nullptr) continue;  // first occurrence wins
        item->tarcks_->set(*trackId, plist::Value::string(kTarcksEntryValue));
      }
    }
  }

  item->assignPlaylistImage(record.get());
  return item;
}

std::shared_ptr<RVITunesPlaylist> RVITunesPlaylist::itemWithPlaylistInfoSort(
    plist::Ref<plist::Dictionary> record, int32_t sort) {
  return initWithPlaylistInfoSort(std::move(record), sort);
}

void RVITunesPlaylist::assignPlaylistImage(plist::Dictionary* record) {
  plist::Ref<plist::Dictionary> icons = RVITunesIcons();
  if (!icons || record == nullptr) return;
  AssignedPlaylistIcons assigned = assignPlaylistIcons(icons.get(), record);
  if (assigned.normal) listImage_ = std::move(assigned.normal);
  if (assigned.dark) listDarkImage_ = std::move(assigned.dark);
}

bool RVITunesPlaylist::updateTracksListInfo() {
  return false;
}

std::shared_ptr<CZPlaylist> RVITunesPlaylist::czPlaylist() {
  std::shared_ptr<CZPlaylist> live =
      Cadenza::sharedInstance()->playlistWithPersistentId(static_cast<uint64_t>(libPersistentId_));
  if (!live) return nullptr;
  czPlaylist_ = live;
  return live;
}

std::optional<std::vector<std::shared_ptr<CZTrack>>> RVITunesPlaylist::czTracks() {
  std::shared_ptr<CZPlaylist> live = czPlaylist();
  if (!live) return std::nullopt;
  return live->tracks();
}

std::shared_ptr<CZTrack> RVITunesPlaylist::tarckWithPersistentId(int64_t persistentId) {
  std::shared_ptr<CZPlaylist> live = czPlaylist();
  if (!live) return nullptr;
  return live->trackWithPersistentId(persistentId);
}

}  // namespace rvitunes
