// CZPlaylist: names, persistent IDs, the parent link, the child list and the track look-ups.
#include "rvitunes/cadenza/CZPlaylist.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "rvitunes/ae/AECodes.h"
#include "rvitunes/ae/Printer.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/base/OSStatus.h"
#include "rvitunes/cadenza/CZPlaylistNameSorting.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/cadenza/CZTrackEnumerator.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/cadenza/LongLongValue.h"

namespace rvitunes {

namespace {

constexpr OSType kPropName = fourCharCode("pnam");
constexpr OSType kPropSpecialKind = fourCharCode("pSpK");
constexpr OSType kPropParentPlaylist = fourCharCode("pPlP");
constexpr OSType kPropDatabaseId = fourCharCode("pDID");
constexpr OSType kPropPersistentId = fourCharCode("pPID");
constexpr OSType kClassTrack = fourCharCode("cTrk");

constexpr uint32_t kVersion600 = 0x600;
constexpr uint32_t kVersion720 = 0x720;
constexpr uint32_t kVersion721 = 0x721;

// The player's answer for an object that does not exist: a top-level playlist has no parent.
constexpr int32_t kNoSuchObject = errAENoSuchObject;

// The names of the synthetic playlists, by persistent ID.
constexpr std::array<const char*, 4> kSyntheticNames = {"iTunes", "LIBRARY", "STORE", "PLAYLISTS"};

std::mutex& localizerMutex() {
  static std::mutex mutex;
  return mutex;
}

CZPlaylist::NameLocalizer& localizerSlot() {
  static CZPlaylist::NameLocalizer localizer;
  return localizer;
}

std::string localizedName(std::string_view key) {
  CZPlaylist::NameLocalizer localizer;
  {
    std::lock_guard lock(localizerMutex());
    localizer = localizerSlot();
  }
  if (localizer) {
    if (auto text = localizer(key)) return *text;
  }
  return std::string(key);
}

// 7.2.0 and 7.2.1 speak of persistent IDs as hexadecimal text.
bool persistentIdsAreText(Cadenza& controller) {
  return !controller.versionLessThan(kVersion720) && !controller.versionGreaterThan(kVersion721);
}

std::string hexDigits(int64_t value) {
  char text[17];
  std::snprintf(text, sizeof text, "%016llX",
                static_cast<unsigned long long>(static_cast<uint64_t>(value)));
  return text;
}

}  // namespace

CZPlaylist::CZPlaylist() : persistentId_(0), parentPlaylistId_(0) {}

CZPlaylist::CZPlaylist(ae::Descriptor&& descriptor)
    : CZAppleEventObject(std::move(descriptor), iTunesSignature),
      persistentId_(kUnknownPersistentId),
      parentPlaylistId_(kUnknownParentPlaylistId) {}

CZPlaylist::~CZPlaylist() = default;

CZPlaylist::NameLocalizer CZPlaylist::setNameLocalizer(NameLocalizer localizer) {
  std::lock_guard lock(localizerMutex());
  return std::exchange(localizerSlot(), std::move(localizer));
}

std::optional<std::string> CZPlaylist::name() {
  // The ID is asked again for each comparison, as a playlist of the player may not have it
  // cached.
  for (int64_t id = 0; id < static_cast<int64_t>(kSyntheticNames.size()); ++id) {
    if (persistentId() == id) return localizedName(kSyntheticNames[static_cast<size_t>(id)]);
  }
  return getPropertyAsStringForDesc(kPropName);
}

OSType CZPlaylist::specialKind() {
  return getPropertyAsEnumForDesc(kPropSpecialKind);
}

int32_t CZPlaylist::trackCount() {
  return getCountOfElementsOfClass(kClassTrack);
}

int64_t CZPlaylist::persistentId() {
  const int64_t cached = persistentId_.load();
  if (cached != kUnknownPersistentId) return cached;
  const auto controller = Cadenza::sharedInstance();
  if (controller->versionLessThan(kVersion600)) {
    NullLog("persistentId Unsupported");
    return kUnknownPersistentId;
  }
  if (persistentIdsAreText(*controller)) {
    // Only this form is remembered; a failed read parses as nothing, 0, and is kept too.
    const auto text = getPropertyAsStringForDesc(kPropPersistentId);
    const int64_t value = longlongValue("0x" + text.value_or(""));
    persistentId_.store(value);
    return value;
  }
  return getPropertyAsLongIntegerForDesc(kPropPersistentId);
}

void CZPlaylist::setPersistentId(int64_t value) {
  persistentId_.store(value);
}

std::optional<std::string> CZPlaylist::persistentIdAsString() {
  const auto controller = Cadenza::sharedInstance();
  if (controller->versionLessThan(kVersion600)) {
    NullLog("persistentIdAsString Unsupported");
    return std::nullopt;
  }
  if (persistentIdsAreText(*controller)) return getPropertyAsStringForDesc(kPropPersistentId);
  return hexDigits(getPropertyAsLongIntegerForDesc(kPropPersistentId));
}

std::shared_ptr<CZPlaylist> CZPlaylist::parentPlaylist() {
  const Reply reply = getPropertyOfType(kPropParentPlaylist);
  if (!reply) return nullptr;
  ae::Descriptor parent;
  if (reply->getParamDesc(ae::keyDirectObject, ae::typeWildCard, &parent) == noErr) {
    return std::make_shared<CZPlaylist>(std::move(parent));
  }
  int32_t error = -1;
  const OSStatus status = reply->getParamPtr(ae::keyErrorNumber, ae::typeWildCard, nullptr, &error,
                                             sizeof error, nullptr);
  if (error != kNoSuchObject) {
    const std::string printed = ae::printDesc(*reply);
    const std::string playlistName = name().value_or("(null)");
    NullLog(
        "ERROR in -[CZPlaylist parentplaylist] \"%s\" -- replyEvent: %s (AEGetParamPtr result %d)",
        playlistName.c_str(), printed.c_str(), static_cast<int>(status));
  }
  return nullptr;
}

uint64_t CZPlaylist::parentPlaylistId() {
  const uint64_t cached = parentPlaylistId_.load();
  if (cached != kUnknownParentPlaylistId) return cached;
  const auto parent = parentPlaylist();
  const uint64_t value = parent ? static_cast<uint64_t>(parent->persistentId()) : 0;
  parentPlaylistId_.store(value);
  return value;
}

void CZPlaylist::setParentPlaylistId(uint64_t value) {
  parentPlaylistId_.store(value);
}

std::vector<int64_t> CZPlaylist::childPlaylistIds() {
  std::vector<int64_t> ids;
  uint64_t generation = 0;
  {
    std::lock_guard lock(childrenMutex_);
    if (areChildrenSorted_) return childPlaylistIds_;
    ids = childPlaylistIds_;
    generation = childrenGeneration_;
  }
  // The comparison asks the player for names, so it runs without the lock. A stable merge sort
  // stays within bounds even when the names change between two comparisons.
  std::stable_sort(ids.begin(), ids.end(),
                   [](int64_t a, int64_t b) { return comparePlaylistName(a, b) < 0; });
  std::lock_guard lock(childrenMutex_);
  if (childrenGeneration_ == generation) {
    childPlaylistIds_ = ids;
    areChildrenSorted_ = true;
  }
  return ids;
}

void CZPlaylist::addChildPlaylistId(int64_t persistentId) {
  std::lock_guard lock(childrenMutex_);
  childPlaylistIds_.push_back(persistentId);
  areChildrenSorted_ = false;
  ++childrenGeneration_;
}

std::shared_ptr<CZTrackEnumerator> CZPlaylist::trackEnumerator() {
  std::shared_ptr<CZPlaylist> self = weak_from_this().lock();
  if (!self) {
    // Not owned by a shared_ptr: the enumerator walks a twin with the same specifier and IDs.
    self = std::make_shared<CZPlaylist>(refDescriptor_.duplicate());
    self->setPersistentId(persistentId_.load());
    self->setParentPlaylistId(parentPlaylistId_.load());
  }
  return std::make_shared<CZTrackEnumerator>(std::move(self));
}

std::vector<std::shared_ptr<CZTrack>> CZPlaylist::tracks() {
  return trackEnumerator()->allObjects();
}

std::shared_ptr<CZTrack> CZPlaylist::trackFromReply(Reply reply) {
  // A request that failed is read like an empty reply, so that its failure shows here too.
  const ae::Descriptor& source = reply ? *reply : ae::nullDescriptor();
  ae::Descriptor track;
  const OSStatus status = source.getParamDesc(ae::keyDirectObject, ae::typeWildCard, &track);
  if (status != noErr) {
    NullLog("Error extracting from reply event: %d", static_cast<int>(status));
    return nullptr;
  }
  return std::make_shared<CZTrack>(std::move(track));
}

std::shared_ptr<CZTrack> CZPlaylist::trackWithDatabaseId(int32_t databaseId) {
  return trackFromReply(
      getElementOfClassByKeyWithIntValue(kClassTrack, kPropDatabaseId, databaseId));
}

std::shared_ptr<CZTrack> CZPlaylist::trackWithPersistentId(int64_t persistentId) {
  const auto controller = Cadenza::sharedInstance();
  if (controller->versionLessThan(kVersion600)) return nullptr;
  if (persistentIdsAreText(*controller)) {
    return trackFromReply(getElementOfClassByKeyWithStringValue(kClassTrack, kPropPersistentId,
                                                                hexDigits(persistentId)));
  }
  return trackFromReply(
      getElementOfClassByKeyWithLongIntValue(kClassTrack, kPropPersistentId, persistentId));
}

std::shared_ptr<CZTrack> CZPlaylist::trackWithPersistentIdString(std::string_view persistentId) {
  const auto controller = Cadenza::sharedInstance();
  if (controller->versionLessThan(kVersion600)) return nullptr;
  if (persistentIdsAreText(*controller)) {
    return trackFromReply(
        getElementOfClassByKeyWithStringValue(kClassTrack, kPropPersistentId, persistentId));
  }
  return trackFromReply(getElementOfClassByKeyWithLongIntValue(kClassTrack, kPropPersistentId,
                                                               longlongValue(persistentId)));
}

bool CZPlaylist::isSpecialKind() {
  SystemLog("WARNING: not yet implemented");
  return false;
}

bool CZPlaylist::isCached() {
  SystemLog("WARNING: not yet implemented");
  return false;
}

}  // namespace rvitunes
