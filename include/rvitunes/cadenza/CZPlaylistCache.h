// CZPlaylistCache: the player's flat list of playlists turned into two trees, kept keyed by
// persistent ID until the cache is dropped.
//
//   the whole tree                           the user tree
//   0 "iTunes"                               0 "iTunes" (a separate root object)
//     1 "LIBRARY"   special playlists          ordinary playlists and folders, under
//     2 "STORE"     purchased music             their folders or the root 0
//     3 "PLAYLISTS" ordinary playlists and
//                   folders at the top, party shuffle
//   and a playlist of a kind nobody placed sits under its player parent, or the root 0.
//
// The synthetic playlists 0 to 3 have no specifier; their IDs are fixed. The two trees hold
// different CZPlaylist objects for the same player playlist. Tree links live in the playlists:
// each knows its parent's ID (parentPlaylistId) and its children's IDs (childPlaylistIds),
// which a consumer looks up again in the same tree. Children are sorted by name when first
// asked for, not here.
//
// Special kinds and where reload places them:
//   'kSpN' ordinary, 'kSpF' folder      under the player's parent; at the top: 3
//   'kSpA' 'kSpI' 'kSpP' 'kSpT' 'kSpV' 'kSpZ'   1
//   'kSpM'                              2
//   'kSpS'                              3
//   anything else                       not placed: its parentPlaylistId asks the player
// Only 'kSpN' and 'kSpF' enter the user tree.
//
// Failures. Nothing throws; a request that fails leaves a playlist out or unlinked, and the
// look-ups answer nullptr for an ID that is not in the tree.
//
// Threads. sharedInstance is race-free: one thread makes and fills the shared cache, others
// asking meanwhile wait for it; the thread that fills it may ask for it again while filling
// (and sees the part built so far). The look-ups may run on any thread, also during a reload.
// The playlists handed out are the cache's own objects, shared with every other caller.
#pragma once

#include <any>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "rvitunes/base/FourCharCode.h"

namespace rvitunes {

class CZPlaylist;

class CZPlaylistCache {
 public:
  // The fixed IDs of the synthetic top of the whole tree (the user tree's root is also 0).
  static constexpr int64_t kRootId = 0;
  static constexpr int64_t kLibraryGroupId = 1;    // "LIBRARY"
  static constexpr int64_t kStoreGroupId = 2;      // "STORE"
  static constexpr int64_t kPlaylistsGroupId = 3;  // "PLAYLISTS"

  // Two empty trees; nothing is asked of the player until reload().
  CZPlaylistCache();
  ~CZPlaylistCache();
  CZPlaylistCache(const CZPlaylistCache&) = delete;
  CZPlaylistCache& operator=(const CZPlaylistCache&) = delete;

  // The shared cache: made and filled with reload() on first use, then kept until
  // releaseSharedInstance.
  static std::shared_ptr<CZPlaylistCache> sharedInstance();
  // Forgets the shared cache (holders keep theirs); nothing when there is none.
  static void releaseSharedInstance();

  // Empties both trees and reads them anew from the player (several requests per playlist).
  void reload();

  // The playlist of the whole tree, or of the user tree, under `persistentId`; nullptr when
  // there is none.
  std::shared_ptr<CZPlaylist> playlistForPersistentId(int64_t persistentId) const;
  std::shared_ptr<CZPlaylist> userPlaylistForPersistentId(int64_t persistentId) const;

  // The IDs each tree holds, in ascending order (signed).
  std::vector<int64_t> persistentIds() const;
  std::vector<int64_t> userPersistentIds() const;

  // Does nothing; kept for callers of the classic interface.
  void addChildrenToEnumeratedPlaylists(const std::any& playlists);

 private:
  using Tree = std::map<int64_t, std::shared_ptr<CZPlaylist>>;

  std::vector<std::shared_ptr<CZPlaylist>> valuesOf(const Tree& tree) const;
  void enter(Tree& tree, int64_t persistentId, std::shared_ptr<CZPlaylist> playlist);

  mutable std::mutex mutex_;  // guards both trees (never held while a request is sent)
  Tree playlists_;
  Tree userPlaylists_;
};

}  // namespace rvitunes
