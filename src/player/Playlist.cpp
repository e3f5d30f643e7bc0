#include "rvitunes/player/Playlist.h"

namespace rvitunes::player {

Playlist::Playlist(DatabaseId id, PersistentId persistentId, plist::Ref<plist::Dictionary> record)
    : id_(id), persistentId_(persistentId), record_(std::move(record)) {}

bool Playlist::isKindOf(OSType classCode) const {
  if (classCode == classCode_ || classCode == kClassPlaylist || classCode == kClassItem) {
    return true;
  }
  return classCode == kClassUserPlaylist && classCode_ == kClassFolderPlaylist;
}

bool Playlist::isSmart() const {
  return record_->contains("Smart Info");
}

bool Playlist::isVisible() const {
  const plist::Value* value = record_->find("Visible");
  return !value || value->boolValue();
}

bool Playlist::isSpecial() const {
  return isLibrary() || (specialKind_ != kSpecialNone && specialKind_ != kSpecialFolder) || genius_;
}

std::string Playlist::name() const {
  const plist::Value* value = record_->find("Name");
  return value && value->isString() ? std::string(value->stringView()) : std::string();
}

}  // namespace rvitunes::player
