// Cadenza: searching, adding files, the selection, the playlist tree and listings, and the
// look-ups by persistent ID.
#include <cinttypes>
#include <cstdio>
#include <utility>

#include "CadenzaEvents.h"
#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/CZPlaylistCache.h"
#include "rvitunes/cadenza/CZPlaylistEnumerator.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/cadenza/CZUserPlaylistEnum.h"
#include "rvitunes/cadenza/Cadenza.h"

namespace rvitunes {

namespace cadenza_detail {

std::optional<std::vector<std::shared_ptr<CZTrack>>> tracksOfReply(const ae::Descriptor& reply) {
  ae::Descriptor list;
  if (const OSStatus status = reply.getParamDesc(ae::keyDirectObject, ae::typeAEList, &list);
      status != noErr) {
    NullLog("Error extracting from reply event: %d", status);
    return std::nullopt;
  }
  return tracksOfList(list);
}

std::optional<std::vector<std::shared_ptr<CZTrack>>> sendForTrackList(const ae::Descriptor& event) {
  const std::optional<ae::Descriptor> reply = sendReadEvent(event);
  if (!reply) return std::nullopt;
  return tracksOfReply(*reply);
}

}  // namespace cadenza_detail

using namespace cadenza_detail;

namespace {

constexpr OSType kPlayerSuite = fourCharCode("hook");
constexpr OSType kPlaylistClass = fourCharCode("cPly");
constexpr OSType kPersistentIdProperty = fourCharCode("pPID");

}  // namespace

CZTrackList Cadenza::searchForStringInField(const CZAppleEventObject& playlist,
                                            std::string_view text, OSType field) {
  std::string params = "'----':@, pTrm:'utxt'(@)";
  if (field != 0) params += ", pAre:" + stringForOSType(field);
  // The search text travels as UTF-16 in host order, without a byte-order mark.
  const ae::Descriptor unicode = ae::Descriptor::makeUnicodeText(text);
  ae::Descriptor event;
  const OSStatus status =
      buildPlayerEvent(kPlayerSuite, fourCharCode("Srch"), params,
                       {playlist.descriptor(), ae::BuildArg::bytes(unicode.data())}, &event);
  if (status != noErr) {
    NullLog("Error creating Apple Event: %d", status);
    return std::nullopt;
  }
  return sendForTrackList(event);
}

CZTrackList Cadenza::addTrackToPlaylist(const Url& location, const CZAppleEventObject* playlist) {
  ae::Descriptor event;
  OSStatus status = noErr;
  {
    // Not checked: a file that cannot be referenced travels as an empty alias, which the
    // player refuses.
    const std::vector<uint8_t> alias =
        newAliasHandleWithPath(location.path().value_or("")).value_or(std::vector<uint8_t>());
    // Without a playlist the template holds a bare @@, which the builder refuses.
    const std::string_view params = playlist != nullptr ? "'----':alis(@@), insh:(@)" : "'----':@@";
    status = buildPlayerEvent(kPlayerSuite, fourCharCode("Add "), params,
                              {ae::BuildArg::handle(alias),
                               playlist != nullptr ? playlist->descriptor() : ae::nullDescriptor()},
                              &event);
  }
  if (status != noErr) {
    NullLog("Error creating Apple Event: %d", status);
    return std::nullopt;
  }
  return sendForTrackList(event);
}

CZTrackList Cadenza::addTrackToLibrary(const Url& location) {
  const std::optional<std::vector<uint8_t>> alias =
      newAliasHandleWithPath(location.path().value_or(""));
  if (!alias) {
    NullLog("Unable to resolve path to alias");
    return std::nullopt;
  }
  ae::Descriptor event;
  const OSStatus status = buildPlayerEvent(kPlayerSuite, fourCharCode("Add "), "'----':alis(@@)",
                                           {ae::BuildArg::handle(*alias)}, &event);
  if (status != noErr) {
    NullLog("Error creating Apple Event: %d", status);
    return std::nullopt;
  }
  return sendForTrackList(event);
}

CZTrackList Cadenza::selectedTracks() {
  ae::Descriptor event;
  const OSStatus status = buildPlayerEvent(
      ae::kAECoreSuite, ae::kAEGetData,
      "'----':obj { form:prop, want:type(prop), seld:type(sele), from:'null'() }", {}, &event);
  if (status != noErr) {
    NullLog("Error creating Apple Event: %d", status);
    return std::nullopt;
  }
  return sendForTrackList(event);
}

// ---- The playlist tree and listings -------------------------------------------------------------

std::shared_ptr<CZPlaylist> Cadenza::rootPlaylist() {
  return CZPlaylistCache::sharedInstance()->playlistForPersistentId(CZPlaylistCache::kRootId);
}

std::shared_ptr<CZPlaylist> Cadenza::rootUserPlaylist() {
  return CZPlaylistCache::sharedInstance()->userPlaylistForPersistentId(CZPlaylistCache::kRootId);
}

std::shared_ptr<CZPlaylist> Cadenza::reloadRootPlaylist() {
  CZPlaylistCache::releaseSharedInstance();
  return CZPlaylistCache::sharedInstance()->playlistForPersistentId(CZPlaylistCache::kRootId);
}

int32_t Cadenza::playlistCount() {
  return getCountOfElementsOfClass(kPlaylistClass);
}

std::vector<std::shared_ptr<CZPlaylist>> Cadenza::playlists() {
  return playlistEnumerator()->allObjects();
}

std::shared_ptr<CZPlaylistEnumerator> Cadenza::playlistEnumerator() {
  return std::make_shared<CZPlaylistEnumerator>();
}

int32_t Cadenza::userPlaylistCount() {
  return static_cast<int32_t>(userPlaylists().size());
}

std::vector<std::shared_ptr<CZPlaylist>> Cadenza::userPlaylists() {
  return userPlaylistEnumerator()->allObjects();
}

std::shared_ptr<CZUserPlaylistEnumerator> Cadenza::userPlaylistEnumerator() {
  return std::make_shared<CZUserPlaylistEnumerator>();
}

// ---- Look-ups by persistent ID ------------------------------------------------------------------

std::shared_ptr<CZPlaylist> Cadenza::playlistWithPersistentId(uint64_t persistentId) {
  if (!versionGreaterThan(kVersion6_0_0)) return nullptr;
  Reply reply;
  if (!versionGreaterThan(kVersion7_2_1) && !versionLessThan(kVersion7_2_0)) {
    // 7.2.0 and 7.2.1 know persistent IDs only as text.
    char text[17];
    std::snprintf(text, sizeof text, "%016" PRIX64, persistentId);
    reply = getElementOfClassByKeyWithStringValue(kPlaylistClass, kPersistentIdProperty, text);
  } else {
    reply = getElementOfClassByKeyWithLongIntValue(kPlaylistClass, kPersistentIdProperty,
                                                   static_cast<int64_t>(persistentId));
  }
  // A request that failed is read like an empty reply, so its failure is logged here too.
  std::optional<ae::Descriptor> playlist = directObject(reply ? *reply : ae::nullDescriptor());
  if (!playlist) return nullptr;
  return std::make_shared<CZPlaylist>(std::move(*playlist));
}

std::shared_ptr<CZTrack> Cadenza::trackWithPersistentId(uint64_t persistentId) {
  const std::shared_ptr<CZPlaylist> library = libraryPlaylist();
  if (!library) return nullptr;
  return library->trackWithPersistentId(static_cast<int64_t>(persistentId));
}

std::shared_ptr<CZTrack> Cadenza::trackWithPersistentIdString(std::string_view persistentId) {
  const std::shared_ptr<CZPlaylist> library = libraryPlaylist();
  if (!library) return nullptr;
  return library->trackWithPersistentIdString(persistentId);
}

}  // namespace rvitunes
