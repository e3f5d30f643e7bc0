// CZPlaylist: one playlist inside the running player. It keeps the object specifier the player
// handed out for it and asks the player afresh each time a question is put to it; only the
// persistent ID (on 7.2.0 and 7.2.1, where the player answers it as text) and the parent's
// persistent ID are remembered.
//
// The playlist cache also makes four synthetic playlists without a specifier, the fixed top of
// the tree, with the persistent IDs 0 ("iTunes", the root), 1 ("LIBRARY"), 2 ("STORE") and
// 3 ("PLAYLISTS"). They are made with the default constructor and given their IDs through
// setPersistentId / setParentPlaylistId; their names are answered without asking the player.
//
// Ownership: create playlists with std::make_shared (every playlist the framework hands out is
// owned that way); trackEnumerator() and tracks() hand the enumerator a shared reference to
// this object. Objects answered by operations are new and belong to the caller.
//
// Versions: the operations that depend on the player's version ask the controller
// (Cadenza::sharedInstance()) and decide before anything is sent. Persistent IDs exist from 6.0;
// on 7.2.0 and 7.2.1 ("the 7.2 range") the player answers them as 16 hexadecimal digits, on all
// other versions as a 64-bit integer.
//
// Failures are answers, never exceptions: nullptr, nullopt, 0, -1 or false as each operation
// says, with one line to NullLog where noted.
//
// Thread safety: the cached IDs and the child list are guarded, so concurrent calls on one
// object are safe; each request blocks its caller until the player answers.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/FourCharCode.h"
#include "rvitunes/cadenza/CZAppleEventObject.h"

namespace rvitunes {

class CZTrack;
class CZTrackEnumerator;

class CZPlaylist : public CZAppleEventObject, public std::enable_shared_from_this<CZPlaylist> {
 public:
  // The value of a persistent ID that is not known yet (all ones).
  static constexpr int64_t kUnknownPersistentId = -1;
  static constexpr uint64_t kUnknownParentPlaylistId = ~uint64_t{0};

  // A synthetic playlist: no specifier (the null descriptor), events to 'hook', persistent ID
  // and parent ID both 0.
  CZPlaylist();
  // A playlist of the player. Takes over `descriptor` (a specifier the player returned); both
  // IDs start unknown (all ones).
  explicit CZPlaylist(ae::Descriptor&& descriptor);
  ~CZPlaylist() override;

  // ---- Properties --------------------------------------------------------------------------

  // Persistent IDs 0 to 3 give the synthetic names "iTunes", "LIBRARY", "STORE" and
  // "PLAYLISTS" (through the name localizer, see below) without asking for the name; every
  // other playlist reads 'pnam'. persistentId() is asked for each comparison, so a playlist of
  // the player may send one event for the ID and one for the name. nullopt when the read fails.
  std::optional<std::string> name();
  // 'pSpK' as an enumeration ('kSpN' ordinary, 'kSpF' folder, 'kSpZ' music ...); 0xFFFFFFFF
  // when the request failed, 'kPSS' when the reply holds no code.
  OSType specialKind();
  // The number of tracks ('cTrk' elements); -1 when the request failed.
  int32_t trackCount();

  // ---- Persistent IDs ----------------------------------------------------------------------

  // The cached value when it is known. Otherwise: below 6.0 logs "persistentId Unsupported"
  // and answers -1 (nothing cached); in the 7.2 range reads 'pPID' as text, answers its
  // hexadecimal value and caches it; on every other version reads 'pPID' as a 64-bit integer
  // and does NOT cache it (each call sends an event). A failed text read caches and answers 0
  // (hexadecimal text of nothing); a failed integer read answers -1.
  int64_t persistentId();
  // Stores `value` as the cached ID (all ones makes it unknown again).
  void setPersistentId(int64_t value);
  // persistentId() as a number (the key under which the cache files this playlist).
  int64_t persistentIdNumber() { return persistentId(); }
  // Below 6.0: "persistentIdAsString Unsupported" and nullopt. In the 7.2 range: 'pPID' as the
  // player's text, unchanged. Otherwise 'pPID' as an integer written as 16 upper-case
  // hexadecimal digits (a failed read gives "FFFFFFFFFFFFFFFF").
  std::optional<std::string> persistentIdAsString();

  // ---- The tree ----------------------------------------------------------------------------

  // The playlist that contains this one ('pPlP'), as a new object; nullptr when the request
  // failed or the reply holds no object. An error other than -1728 (no such object: a
  // top-level playlist) logs
  //   ERROR in -[CZPlaylist parentplaylist] "<name>" -- replyEvent: <printed reply>
  //   (AEGetParamPtr result <status>)
  // (one line), where <name> is name() and <status> the result of reading 'errn'.
  std::shared_ptr<CZPlaylist> parentPlaylist();
  // The cached parent ID when known; otherwise the persistentId() of parentPlaylist() (0 when
  // there is none, so a top-level playlist hangs under the synthetic root), cached.
  uint64_t parentPlaylistId();
  void setParentPlaylistId(uint64_t value);
  // The IDs added with addChildPlaylistId, sorted by comparePlaylistName (case-insensitive
  // names from the shared playlist cache) when they were not sorted since the last add; a copy.
  // Empty when none were added.
  std::vector<int64_t> childPlaylistIds();
  // Appends `persistentId` to the children (duplicates kept) and marks them unsorted.
  void addChildPlaylistId(int64_t persistentId);

  // ---- Tracks ------------------------------------------------------------------------------

  // A new enumerator over this playlist's tracks (its count fixed now).
  std::shared_ptr<CZTrackEnumerator> trackEnumerator();
  // Every track, walked with a fresh trackEnumerator(); a walk stops at the first track that
  // cannot be fetched.
  std::vector<std::shared_ptr<CZTrack>> tracks();
  // The track whose database ID ('pDID') is `databaseId`; nullptr when the request failed or
  // the reply holds no object ("Error extracting from reply event: %d").
  std::shared_ptr<CZTrack> trackWithDatabaseId(int32_t databaseId);
  // The track whose 'pPID' is `persistentId`: compared as 16 hexadecimal digits in the 7.2
  // range, as a 64-bit integer elsewhere; nullptr below 6.0 (nothing sent, nothing logged) and
  // as trackWithDatabaseId on failure.
  std::shared_ptr<CZTrack> trackWithPersistentId(int64_t persistentId);
  // The same with the ID as hexadecimal text: passed unchanged in the 7.2 range, read with
  // longlongValue elsewhere.
  std::shared_ptr<CZTrack> trackWithPersistentIdString(std::string_view persistentId);

  // ---- Not implemented ---------------------------------------------------------------------

  // Both write "WARNING: not yet implemented" to the system log and answer false.
  bool isSpecialKind();
  bool isCached();

  // ---- Names of the synthetic playlists ----------------------------------------------------

  // Translates the keys "iTunes", "LIBRARY", "STORE" and "PLAYLISTS" into the host's language.
  // Answers the text to show; nullopt (or no localizer) means the key itself.
  using NameLocalizer = std::function<std::optional<std::string>(std::string_view key)>;
  // Installs the host's localizer for every playlist and answers the previous one; an empty
  // function restores the keys. Thread-safe.
  static NameLocalizer setNameLocalizer(NameLocalizer localizer);

 private:
  std::shared_ptr<CZTrack> trackFromReply(Reply reply);

  std::atomic<int64_t> persistentId_;
  std::atomic<uint64_t> parentPlaylistId_;
  std::mutex childrenMutex_;
  std::vector<int64_t> childPlaylistIds_;
  bool areChildrenSorted_ = false;
  // Counts the adds, so that a sort that ran without the lock does not undo a later add.
  uint64_t childrenGeneration_ = 0;
};

}  // namespace rvitunes
