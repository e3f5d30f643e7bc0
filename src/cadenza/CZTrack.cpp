// CZTrack: construction, and the accessors that do more than bind a code to a conversion
// (version gates, persistent IDs). The plain property bindings are in CZTrackProperties.cpp.
#include "rvitunes/cadenza/CZTrack.h"

#include <cstdio>
#include <utility>

#include "rvitunes/ae/AECodes.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/cadenza/LongLongValue.h"

namespace rvitunes {

namespace {

constexpr OSType kPropLongDescription = fourCharCode("pLds");
constexpr OSType kPropLyrics = fourCharCode("pLyr");
constexpr OSType kPropPersistentId = fourCharCode("pPID");
constexpr OSType kPropPersistentIdString = fourCharCode("pPIS");

constexpr uint32_t kVersion600 = 0x600;
constexpr uint32_t kVersion601 = 0x601;
constexpr uint32_t kVersion602 = 0x602;
constexpr uint32_t kVersion720 = 0x720;
constexpr uint32_t kVersion721 = 0x721;
constexpr uint32_t kVersion730 = 0x730;

// The first item of a list specifier when it can be read, else the descriptor itself.
ae::Descriptor firstOfList(ae::Descriptor&& descriptor) {
  if (descriptor.type() == ae::typeAEList) {
    ae::Descriptor first;
    if (descriptor.getNthDesc(1, ae::typeWildCard, nullptr, &first) == noErr) return first;
  }
  return std::move(descriptor);
}

std::string hexDigits(int64_t value) {
  char text[17];
  std::snprintf(text, sizeof text, "%016llX",
                static_cast<unsigned long long>(static_cast<uint64_t>(value)));
  return text;
}

}  // namespace

CZTrack::CZTrack(ae::Descriptor&& descriptor)
    : CZAppleEventObject(firstOfList(std::move(descriptor)), iTunesSignature) {}

CZTrack::~CZTrack() = default;

bool CZTrack::flag(OSType property) {
  // Only the low byte of the integer counts, as for a one-byte boolean.
  return static_cast<uint8_t>(getPropertyAsIntegerForDesc(property)) != 0;
}

std::optional<std::string> CZTrack::longDescription() {
  if (Cadenza::sharedInstance()->versionLessThan(kVersion602)) return std::nullopt;
  return getPropertyAsStringForDesc(kPropLongDescription);
}

void CZTrack::setLongDescription(std::string_view value) {
  if (Cadenza::sharedInstance()->versionLessThan(kVersion601)) return;
  setPropertyWithStringForDesc(value, kPropLongDescription);
}

std::optional<std::string> CZTrack::lyrics() {
  if (Cadenza::sharedInstance()->versionLessThan(kVersion601)) return std::nullopt;
  return getPropertyAsStringForDesc(kPropLyrics);
}

void CZTrack::setLyrics(std::string_view value) {
  if (Cadenza::sharedInstance()->versionLessThan(kVersion601)) return;
  setPropertyWithStringForDesc(value, kPropLyrics);
}

int64_t CZTrack::persistentId() {
  const auto controller = Cadenza::sharedInstance();
  if (controller->versionLessThan(kVersion600)) {
    NullLog("persistentId Unsupported");
    return -1;
  }
  if (!controller->versionLessThan(kVersion720) && !controller->versionGreaterThan(kVersion721)) {
    // These players answer the ID as hexadecimal text; a failed read parses as nothing, 0.
    const auto text = getPropertyAsStringForDesc(kPropPersistentId);
    return longlongValue("0x" + text.value_or(""));
  }
  return getPropertyAsLongIntegerForDesc(kPropPersistentId);
}

std::optional<std::string> CZTrack::persistentIdAsString() {
  const uint32_t version = Cadenza::sharedInstance()->versionNumber();
  if (version < kVersion600) {
    NullLog("persistentIdAsString Unsupported");
    return std::nullopt;
  }
  if (version < kVersion720) return hexDigits(getPropertyAsLongIntegerForDesc(kPropPersistentId));
  if (version < kVersion730) return getPropertyAsStringForDesc(kPropPersistentId);
  return getPropertyAsStringForDesc(kPropPersistentIdString);
}

std::optional<std::string> CZTrack::persistentIdHexString() {
  if (Cadenza::sharedInstance()->versionLessThan(kVersion600)) return std::nullopt;
  const int64_t value = persistentId();
  // All ones is what a failed read answers; the player gives no track that ID.
  if (value == -1) return std::nullopt;
  return hexDigits(value);
}

}  // namespace rvitunes
