#include "player/PropertyValues.h"

#include <cmath>
#include <cstring>

#include "rvitunes/ae/Coercion.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/player/PersistentIdText.h"

namespace rvitunes::player {

ae::Descriptor makeIntegerValue(int64_t value) {
  if (value >= INT32_MIN && value <= INT32_MAX) {
    return ae::Descriptor::makeSInt32(static_cast<int32_t>(value));
  }
  return ae::Descriptor::makeSInt64(value);
}

ae::Descriptor persistentIdValue(PersistentId id, const PlayerVersion& version) {
  if (version.persistentIdAsText()) return ae::Descriptor::makeUnicodeText(formatPersistentId(id));
  return ae::Descriptor::makeSInt64(static_cast<int64_t>(id));
}

ae::Descriptor secondsValue(double seconds, const PlayerVersion& version) {
  if (version.hasSevenProperties()) return ae::Descriptor::makeFloat64(seconds);
  return makeIntegerValue(std::llround(seconds));
}

Status coercionFailed(OSType code) {
  return Status::error(errAECoercionFail,
                       "Can't make the value into the type of " + fourCharDisplay(code) + ".");
}

Result<Date> dateOf(const ae::Descriptor& value) {
  if (value.type() != ae::typeLongDateTime || value.dataSize() != sizeof(int64_t)) {
    return Status::error(errAECoercionFail, "Can't make the value into a date.");
  }
  int64_t seconds = 0;
  std::memcpy(&seconds, value.data().data(), sizeof seconds);
  return Date::fromLongDateTime(seconds);
}

Result<std::string> filePathOf(const ae::Descriptor& value) {
  ae::Descriptor url;
  if (ae::coerceDesc(value, ae::typeFileURL, &url) != noErr) {
    return Status::error(errAECoercionFail, "Can't make the value into a file.");
  }
  const std::string text(url.data().begin(), url.data().end());
  const std::optional<Url> parsed = Url::parse(text);
  std::optional<std::string> path;
  if (parsed && parsed->isFileUrl()) path = parsed->path();
  if (!path || path->empty() || (*path)[0] != '/') {
    return Status::error(errAECoercionFail, "Can't make the value into a file.");
  }
  return *path;
}

OSType pictureFormatOf(std::span<const uint8_t> bytes) {
  auto startsWith = [&](std::initializer_list<uint8_t> magic) {
    return bytes.size() >= magic.size() && std::equal(magic.begin(), magic.end(), bytes.begin());
  };
  if (startsWith({0xFF, 0xD8, 0xFF})) return ae::typeJPEG;
  if (startsWith({0x89, 'P', 'N', 'G'})) return fourCharCode("PNG ");
  if (startsWith({'G', 'I', 'F', '8'})) return fourCharCode("GIFf");
  if (startsWith({'I', 'I', 42, 0}) || startsWith({'M', 'M', 0, 42})) return ae::typeTIFF;
  return ae::typePict;
}

}  // namespace rvitunes::player
