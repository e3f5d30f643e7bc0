// CZAppleEventObject: typed access to one property of the object itself. Reads ask with
// getPropertyOfType and take the reply's direct result as one value type; writes wrap a plain
// value in a descriptor and send it with setPropertyWithValueOfType.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "rvitunes/ae/AECodes.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/ae/FileReference.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/base/Utf8.h"
#include "rvitunes/cadenza/CZAppleEventObject.h"

namespace rvitunes {

namespace {

using ae::Descriptor;
using ae::keyDirectObject;

// What an enumeration read answers when the reply holds no code: the player's "stopped" state.
constexpr OSType kEnumPreset = fourCharCode("kPSS");
constexpr OSType kEnumRequestFailed = 0xFFFFFFFF;

// The short version string of a version record starts after the 4-byte version, the 2-byte
// region code and its own length byte.
constexpr size_t kShortVersionOffset = 7;

// Text from bytes that must all be 7-bit ASCII; nullopt for any other byte.
std::optional<std::string> asciiText(std::span<const uint8_t> bytes) {
  if (std::any_of(bytes.begin(), bytes.end(), [](uint8_t b) { return b >= 0x80; })) {
    return std::nullopt;
  }
  return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

// Text from UTF-16 in big-endian order without a byte-order mark, as the reply's units read
// after their bytes were exchanged. A leading mark is dropped; one that says little-endian
// switches the rest to that order. An odd last byte is ignored; unpaired surrogates become
// U+FFFD.
std::string textFromBigEndianUnicode(std::span<const uint8_t> bytes) {
  const size_t units = bytes.size() / 2;
  bool bigEndian = true;
  size_t i = 0;
  auto unitAt = [&](size_t n) -> char16_t {
    const uint8_t a = bytes[2 * n];
    const uint8_t b = bytes[2 * n + 1];
    return static_cast<char16_t>(bigEndian ? (a << 8) | b : (b << 8) | a);
  };
  if (units > 0) {
    if (bytes[0] == 0xFE && bytes[1] == 0xFF) {
      i = 1;
    } else if (bytes[0] == 0xFF && bytes[1] == 0xFE) {
      bigEndian = false;
      i = 1;
    }
  }
  std::string out;
  out.reserve(units);
  for (; i < units; ++i) {
    const char16_t unit = unitAt(i);
    if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < units) {
      const char16_t low = unitAt(i + 1);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        appendUtf8(out, 0x10000 + ((static_cast<char32_t>(unit) - 0xD800) << 10) + (low - 0xDC00));
        ++i;
        continue;
      }
    }
    appendUtf8(out, unit >= 0xD800 && unit <= 0xDFFF ? char32_t{0xFFFD} : char32_t{unit});
  }
  return out;
}

// Exchanges the two bytes of every whole 16-bit unit of `bytes`.
void exchangeUnitBytes(std::span<uint8_t> bytes) {
  for (size_t i = 0; i + 1 < bytes.size(); i += 2)
    std::swap(bytes[i], bytes[i + 1]);
}

}  // namespace

OSType CZAppleEventObject::getPropertyAsEnumForDesc(OSType property) {
  const Reply reply = getPropertyOfType(property);
  if (!reply) return kEnumRequestFailed;
  OSType value = kEnumPreset;
  const OSStatus status = reply->getParamPtr(keyDirectObject, ae::typeEnumerated, nullptr, &value,
                                             sizeof value, nullptr);
  if (status != noErr) {
    NullLog("Error extracting parameters from reply: %d", status);
    return kEnumPreset;
  }
  return value;
}

int32_t CZAppleEventObject::getPropertyAsIntegerForDesc(OSType property) {
  const Reply reply = getPropertyOfType(property);
  if (!reply) return -1;
  int32_t value = -1;
  const OSStatus status =
      reply->getParamPtr(keyDirectObject, ae::typeSInt32, nullptr, &value, sizeof value, nullptr);
  if (status != noErr) {
    NullLog("Error extracting parameters from reply: %d", status);
    return -1;
  }
  return value;
}

int64_t CZAppleEventObject::getPropertyAsLongIntegerForDesc(OSType property) {
  const Reply reply = getPropertyOfType(property);
  if (!reply) return -1;
  int64_t value = -1;
  const OSStatus status =
      reply->getParamPtr(keyDirectObject, ae::typeSInt64, nullptr, &value, sizeof value, nullptr);
  if (status != noErr) {
    NullLog("Error extracting parameters from reply: %d", status);
    return -1;
  }
  return value;
}

std::optional<std::string> CZAppleEventObject::getPropertyAsStringForDesc(OSType property) {
  const Reply reply = getPropertyOfType(property);
  if (!reply) return std::nullopt;
  ae::DescType type = 0;
  size_t size = 0;
  OSStatus status = reply->sizeOfParam(keyDirectObject, &type, &size);
  if (status != noErr) {
    NullLog("Unable to find length of reply string: %d", status);
    return std::nullopt;
  }
  if (size > ae::kMaxDescriptorDataSize) {
    NullLog("No Memory Available");
    return std::nullopt;
  }
  std::vector<uint8_t> buffer(size + 1);
  size_t actual = 0;
  if (type == ae::typeChar) {
    status =
        reply->getParamPtr(keyDirectObject, ae::typeChar, nullptr, buffer.data(), size, &actual);
    if (status != noErr) {
      NullLog("Unable to get coerce type of reply: %d", status);
      return std::nullopt;
    }
    return asciiText(std::span(buffer.data(), std::min(actual, size)));
  }
  if (type == ae::typeUnicodeText || type == ae::typeVersion) {
    status = reply->getParamPtr(keyDirectObject, ae::typeUnicodeText, nullptr, buffer.data(), size,
                                &actual);
    if (status != noErr) {
      NullLog("Unable to get coerce type of reply: %d", status);
      return std::nullopt;
    }
    // The reply's units are in host order; exchanged, they read as big-endian UTF-16.
    const std::span<uint8_t> text(buffer.data(), std::min(actual, size));
    if (text.size() >= 2) exchangeUnitBytes(text);
    return textFromBigEndianUnicode(text);
  }
  return std::nullopt;
}

std::optional<std::string> CZAppleEventObject::getPropertyAsVersionForDesc(OSType /*property*/) {
  // The player has one version; whatever was asked for, its 'vers' property is read.
  const Reply reply = getPropertyOfType(ae::typeVersion);
  if (!reply) return std::nullopt;
  ae::DescType type = 0;
  size_t size = 0;
  OSStatus status = reply->sizeOfParam(keyDirectObject, &type, &size);
  if (status != noErr) {
    NullLog("Unable to find length of reply string: %d", status);
    return std::nullopt;
  }
  // A first read of at most 8 bytes tells the full size of the record as a version.
  uint8_t scratch[8] = {};
  size_t fullSize = 0;
  status = reply->getParamPtr(keyDirectObject, ae::typeVersion, nullptr, scratch, sizeof scratch,
                              &fullSize);
  if (status != noErr) {
    NullLog("Unable to get parameter of reply: %d", status);
    return std::nullopt;
  }
  if (fullSize > ae::kMaxDescriptorDataSize) {
    NullLog("No Memory Available");
    return std::nullopt;
  }
  std::vector<uint8_t> record(fullSize + 1);
  size_t actual = 0;
  status = reply->getParamPtr(keyDirectObject, ae::typeVersion, nullptr, record.data(), fullSize,
                              &actual);
  if (status != noErr) {
    NullLog("Unable to get coerce type of reply: %d", status);
    return std::nullopt;
  }
  const size_t end = std::min(actual, fullSize);
  if (end <= kShortVersionOffset) return std::string();
  const auto first = record.begin() + kShortVersionOffset;
  const auto last = std::find(first, record.begin() + static_cast<std::ptrdiff_t>(end), 0);
  return asciiText(std::span<const uint8_t>(&*first, static_cast<size_t>(last - first)));
}

std::optional<std::string> CZAppleEventObject::getPropertyAsPathURLForDesc(OSType property) {
  ae::FileReference reference;
  {
    const Reply reply = getPropertyOfType(property);
    if (!reply) return std::nullopt;
    const OSStatus status =
        reply->getParamPtr(keyDirectObject, ae::typeFSRef, nullptr, reference.bytes.data(),
                           reference.bytes.size(), nullptr);
    if (status != noErr) {
      // Goes on with an empty reference, which names no file.
      NullLog("Error extracting parameters from reply: %d", status);
      reference = ae::FileReference{};
    }
  }
  const auto path = ae::resolveFileReference(reference.bytes);
  if (!path) return std::nullopt;
  std::error_code ignored;
  const bool isDirectory = std::filesystem::is_directory(*path, ignored);
  return Url::fileUrlWithPath(*path, isDirectory).string();
}

std::optional<std::string> CZAppleEventObject::getPropertyAsPathForDesc(OSType property) {
  const auto text = getPropertyAsPathURLForDesc(property);
  if (!text) return std::nullopt;
  const auto url = Url::parse(*text);
  if (!url || !url->isFileUrl()) return std::nullopt;
  return url->path();
}

std::optional<Date> CZAppleEventObject::getPropertyAsDateForDesc(OSType property) {
  const Reply reply = getPropertyOfType(property);
  if (!reply) return std::nullopt;
  int64_t longDate = 0;
  const OSStatus status = reply->getParamPtr(keyDirectObject, ae::typeLongDateTime, nullptr,
                                             &longDate, sizeof longDate, nullptr);
  if (status != noErr) {
    // Goes on from the 1904 origin.
    NullLog("Error extracting parameters from reply: %d", status);
    longDate = 0;
  }
  // Every 64-bit long date-time has an absolute time, so this conversion cannot fail.
  return Date::fromAbsoluteTime(static_cast<double>(longDate) -
                                static_cast<double>(Date::kLongDateTimeToAbsolute));
}

bool CZAppleEventObject::setPropertyWithIntegerForDesc(int32_t value, OSType property) {
  Descriptor desc;
  const OSStatus status = ae::buildDesc(&desc, nullptr, "long(@)", value);
  if (status != noErr) {
    NullLog("Error constructing parameters for set command: %d", status);
    return false;
  }
  return setPropertyWithValueOfType(desc, property);
}

bool CZAppleEventObject::setPropertyWithLongIntegerForDesc(int64_t value, OSType property) {
  Descriptor desc;
  const OSStatus status = Descriptor::create(ae::typeSInt64, &value, sizeof value, &desc);
  if (status != noErr) {
    NullLog("Error constructing parameters for set command: %d", status);
    return false;
  }
  return setPropertyWithValueOfType(desc, property);
}

bool CZAppleEventObject::setPropertyWithStringForDesc(std::string_view value, OSType property) {
  const std::vector<uint8_t> unicode = ae::utf8ToUtf16Host(value);
  Descriptor desc;
  const OSStatus status = ae::buildDesc(&desc, nullptr, "'utxt'(@)", ae::BuildArg::bytes(unicode));
  if (status != noErr) {
    NullLog("Error constructing parameters for set command: %d", status);
    return false;
  }
  return setPropertyWithValueOfType(desc, property);
}

bool CZAppleEventObject::setPropertyWithDateForDesc(const Date& value, OSType property) {
  if (!std::isfinite(value.absoluteTime())) {
    NullLog("Error converting Date: %d", paramErr);
    return false;
  }
  const int64_t longDate = value.longDateTime();
  Descriptor desc;
  const OSStatus status =
      ae::buildDesc(&desc, nullptr, "'ldt '(@)", ae::BuildArg::bytes(&longDate, sizeof longDate));
  if (status != noErr) {
    NullLog("Error constructing parameters for set command: %d", status);
    return false;
  }
  return setPropertyWithValueOfType(desc, property);
}

}  // namespace rvitunes
