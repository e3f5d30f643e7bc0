// The playlist cache: two trees of the player's playlists, read in one pass.
#include "rvitunes/cadenza/CZPlaylistCache.h"

#include <optional>
#include <utility>

#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/CZPlaylistEnumerator.h"

namespace rvitunes {

namespace {

constexpr OSType kOrdinary = fourCharCode("kSpN");
constexpr OSType kFolder = fourCharCode("kSpF");

// The shared cache. Filling it takes many requests; `building` is held from the moment the
// slot is found empty until the new cache is filled, so that other threads wait for a whole
// tree while the filling thread may ask for the shared cache again.
struct SharedCache {
  std::recursive_mutex building;
  std::mutex slotMutex;
  std::shared_ptr<CZPlaylistCache> instance;
};
SharedCache& sharedCache() {
  static SharedCache shared;
  return shared;
}

bool isSynthetic(int64_t persistentId) {
  return persistentId >= CZPlaylistCache::kRootId &&
         persistentId <= CZPlaylistCache::kPlaylistsGroupId;
}

bool isOrdinaryOrFolder(OSType kind) {
  return kind == kOrdinary || kind == kFolder;
}

// The group a special playlist goes under, or nullopt for a kind that is placed elsewhere.
std::optional<int64_t> groupOfSpecialKind(OSType kind) {
  switch (kind) {
    case fourCharCode("kSpA"):
    case fourCharCode("kSpI"):
    case fourCharCode("kSpP"):
    case fourCharCode("kSpT"):
    case fourCharCode("kSpV"):
    case fourCharCode("kSpZ"):
      return CZPlaylistCache::kLibraryGroupId;
    case fourCharCode("kSpM"):
      return CZPlaylistCache::kStoreGroupId;
    case fourCharCode("kSpS"):
      return CZPlaylistCache::kPlaylistsGroupId;
    default:
      return std::nullopt;
  }
}

// The persistent ID of the player parent of `playlist`; 0 when it has none.
int64_t playerParentId(CZPlaylist& playlist) {
  const std::shared_ptr<CZPlaylist> parent = playlist.parentPlaylist();
  return parent ? parent->persistentId() : 0;
}

}  // namespace

CZPlaylistCache::CZPlaylistCache() = default;

CZPlaylistCache::~CZPlaylistCache() = default;

std::shared_ptr<CZPlaylistCache> CZPlaylistCache::sharedInstance() {
  SharedCache& shared = sharedCache();
  std::lock_guard building(shared.building);
  std::shared_ptr<CZPlaylistCache> cache;
  {
    std::lock_guard slot(shared.slotMutex);
    if (shared.instance) return shared.instance;
    cache = std::make_shared<CZPlaylistCache>();
    shared.instance = cache;
  }
  cache->reload();
  return cache;
}

void CZPlaylistCache::releaseSharedInstance() {
  std::shared_ptr<CZPlaylistCache> dropped;
  SharedCache& shared = sharedCache();
  std::lock_guard slot(shared.slotMutex);
  dropped = std::move(shared.instance);
}

std::shared_ptr<CZPlaylist> CZPlaylistCache::playlistForPersistentId(int64_t persistentId) const {
  std::lock_guard lock(mutex_);
  const auto found = playlists_.find(persistentId);
  return found != playlists_.end() ? found->second : nullptr;
}

std::shared_ptr<CZPlaylist> CZPlaylistCache::userPlaylistForPersistentId(
    int64_t persistentId) const {
  std::lock_guard lock(mutex_);
  const auto found = userPlaylists_.find(persistentId);
  return found != userPlaylists_.end() ? found->second : nullptr;
}

std::vector<int64_t> CZPlaylistCache::persistentIds() const {
  std::lock_guard lock(mutex_);
  std::vector<int64_t> ids;
  for (const auto& entry : playlists_)
    ids.push_back(entry.first);
  return ids;
}

std::vector<int64_t> CZPlaylistCache::userPersistentIds() const {
  std::lock_guard lock(mutex_);
  std::vector<int64_t> ids;
  for (const auto& entry : userPlaylists_)
    ids.push_back(entry.first);
  return ids;
}

void CZPlaylistCache::addChildrenToEnumeratedPlaylists(const std::any&) {}

std::vector<std::shared_ptr<CZPlaylist>> CZPlaylistCache::valuesOf(const Tree& tree) const {
  std::lock_guard lock(mutex_);
  std::vector<std::shared_ptr<CZPlaylist>> values;
  values.reserve(tree.size());
  for (const auto& entry : tree)
    values.push_back(entry.second);
  return values;
}

void CZPlaylistCache::enter(Tree& tree, int64_t persistentId,
                            std::shared_ptr<CZPlaylist> playlist) {
  std::shared_ptr<CZPlaylist> replaced;
  std::lock_guard lock(mutex_);
  std::shared_ptr<CZPlaylist>& slot = tree[persistentId];
  replaced = std::exchange(slot, std::move(playlist));
}

void CZPlaylistCache::reload() {
  // 1. Both trees start empty (the old playlists are let go outside the lock).
  Tree oldPlaylists;
  Tree oldUserPlaylists;
  {
    std::lock_guard lock(mutex_);
    oldPlaylists.swap(playlists_);
    oldUserPlaylists.swap(userPlaylists_);
  }

  // 2. The synthetic top: the root and its three groups.
  for (int64_t id = kRootId; id <= kPlaylistsGroupId; ++id) {
    auto synthetic = std::make_shared<CZPlaylist>();
    synthetic->setPersistentId(id);
    synthetic->setParentPlaylistId(kRootId);
    enter(playlists_, id, std::move(synthetic));
  }

  // 3. Every playlist of the player, by persistent ID; a later one replaces an earlier one of
  // the same ID, the synthetic ones included.
  {
    CZPlaylistEnumerator all;
    while (std::shared_ptr<CZPlaylist> playlist = all.nextObject()) {
      const int64_t id = playlist->persistentId();
      enter(playlists_, id, std::move(playlist));
    }
  }

  // 4. Parents by special kind.
  for (const std::shared_ptr<CZPlaylist>& playlist : valuesOf(playlists_)) {
    if (isSynthetic(playlist->persistentId())) continue;
    const OSType kind = playlist->specialKind();
    if (isOrdinaryOrFolder(kind)) {
      const int64_t parent = playerParentId(*playlist);
      playlist->setParentPlaylistId(
          static_cast<uint64_t>(parent != 0 ? parent : kPlaylistsGroupId));
    } else if (const std::optional<int64_t> group = groupOfSpecialKind(kind)) {
      playlist->setParentPlaylistId(static_cast<uint64_t>(*group));
    }
  }

  // 5. Children of the whole tree. The name is asked on the way, as it always was.
  for (const std::shared_ptr<CZPlaylist>& playlist : valuesOf(playlists_)) {
    const int64_t id = playlist->persistentId();
    (void)playlist->name();
    if (id == kRootId) continue;
    const auto parentId = static_cast<int64_t>(playlist->parentPlaylistId());
    if (const std::shared_ptr<CZPlaylist> parent = playlistForPersistentId(parentId)) {
      parent->addChildPlaylistId(playlist->persistentIdNumber());
    }
  }

  // 6. The user tree's own root.
  enter(userPlaylists_, kRootId, std::make_shared<CZPlaylist>());

  // 7. The ordinary playlists and folders, as objects of their own.
  {
    CZPlaylistEnumerator all;
    while (std::shared_ptr<CZPlaylist> playlist = all.nextObject()) {
      if (!isOrdinaryOrFolder(playlist->specialKind())) continue;
      const int64_t id = playlist->persistentId();
      enter(userPlaylists_, id, std::move(playlist));
    }
  }

  // 8. Their parents: the player's, or the user root.
  for (const std::shared_ptr<CZPlaylist>& playlist : valuesOf(userPlaylists_)) {
    if (isSynthetic(playlist->persistentId())) continue;
    if (!isOrdinaryOrFolder(playlist->specialKind())) continue;
    playlist->setParentPlaylistId(static_cast<uint64_t>(playerParentId(*playlist)));
  }

  // 9. Children of the user tree.
  for (const std::shared_ptr<CZPlaylist>& playlist : valuesOf(userPlaylists_)) {
    const int64_t id = playlist->persistentId();
    (void)playlist->name();
    if (id == kRootId) continue;
    const auto parentId = static_cast<int64_t>(playlist->parentPlaylistId());
    if (const std::shared_ptr<CZPlaylist> parent = userPlaylistForPersistentId(parentId)) {
      parent->addChildPlaylistId(playlist->persistentIdNumber());
    }
  }
}

}  // namespace rvitunes
