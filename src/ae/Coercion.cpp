#include "rvitunes/ae/Coercion.h"
#include "rvitunes/base/Utf8.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "rvitunes/ae/FileReference.h"
#include "rvitunes/base/Url.h"

namespace rvitunes::ae {

namespace {

__extension__ typedef __int128 Int128;

constexpr DescType kRecordTypes[] = {typeAERecord,          typeObjectSpecifier, typeCompDescriptor,
                                     typeLogicalDescriptor, typeRangeDescriptor, typeInsertionLoc,
                                     typeWhoseDescriptor,   typeWhoseRange};
constexpr DescType kCodeTypes[] = {typeEnumerated, typeType, typeKeyword, typeProperty};
constexpr DescType kTextTypes[] = {typeChar, typeUTF8Text, typeUnicodeText,
                                   typeUTF16ExternalRepresentation};

template <size_t N>
bool isOneOf(DescType type, const DescType (&set)[N]) {
  for (const DescType t : set) {
    if (t == type) return true;
  }
  return false;
}

bool isTextType(DescType type) {
  return isOneOf(type, kTextTypes);
}
bool isCodeType(DescType type) {
  return isOneOf(type, kCodeTypes);
}

// ---- Unicode --------------------------------------------------------------------------------

// Decodes UTF-8 into code points. Invalid sequences fail, or with `lenient` become U+FFFD.
bool decodeUtf8(std::string_view text, bool lenient, std::u32string* out) {
  out->clear();
  out->reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    const auto b0 = static_cast<unsigned char>(text[i]);
    char32_t cp = 0;
    size_t len = 0;
    if (b0 < 0x80) {
      cp = b0;
      len = 1;
    } else if (b0 >= 0xC2 && b0 <= 0xDF) {
      cp = b0 & 0x1F;
      len = 2;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
      cp = b0 & 0x0F;
      len = 3;
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
      cp = b0 & 0x07;
      len = 4;
    }
    bool valid = len > 0 && i + len <= text.size();
    for (size_t k = 1; valid && k < len; ++k) {
      const auto b = static_cast<unsigned char>(text[i + k]);
      if ((b & 0xC0) != 0x80) valid = false;
      cp = (cp << 6) | (b & 0x3F);
    }
    if (valid) {
      // Shortest form only, no surrogates, nothing above U+10FFFF.
      if ((len == 3 && cp < 0x800) || (len == 4 && (cp < 0x10000 || cp > 0x10FFFF)) ||
          (cp >= 0xD800 && cp <= 0xDFFF)) {
        valid = false;
      }
    }
    if (!valid) {
      if (!lenient) return false;
      out->push_back(0xFFFD);
      ++i;
      continue;
    }
    out->push_back(cp);
    i += len;
  }
  return true;
}

std::string encodeUtf8(const std::u32string& cps) {
  std::string out;
  out.reserve(cps.size());
  for (const char32_t cp : cps)
    appendUtf8(out, cp);
  return out;
}

std::vector<uint8_t> encodeUtf16(const std::u32string& cps, bool bigEndian) {
  std::vector<uint8_t> out;
  out.reserve(cps.size() * 2);
  const auto unit = [&](uint16_t u) {
    const uint8_t hi = static_cast<uint8_t>(u >> 8);
    const uint8_t lo = static_cast<uint8_t>(u & 0xFF);
    if (bigEndian) {
      out.push_back(hi);
      out.push_back(lo);
    } else {
      out.push_back(lo);
      out.push_back(hi);
    }
  };
  for (const char32_t cp : cps) {
    if (cp >= 0x10000) {
      const char32_t v = cp - 0x10000;
      unit(static_cast<uint16_t>(0xD800 + (v >> 10)));
      unit(static_cast<uint16_t>(0xDC00 + (v & 0x3FF)));
    } else {
      unit(static_cast<uint16_t>(cp));
    }
  }
  return out;
}

// Decodes UTF-16 in the given order; a leading byte-order mark overrides it and is dropped.
std::optional<std::string> decodeUtf16(std::span<const uint8_t> bytes, bool bigEndian) {
  if (bytes.size() % 2 != 0) return std::nullopt;
  size_t i = 0;
  if (bytes.size() >= 2) {
    if (bytes[0] == 0xFE && bytes[1] == 0xFF) {
      bigEndian = true;
      i = 2;
    } else if (bytes[0] == 0xFF && bytes[1] == 0xFE) {
      bigEndian = false;
      i = 2;
    }
  }
  const auto unitAt = [&](size_t k) {
    return bigEndian ? static_cast<uint16_t>(bytes[k] << 8 | bytes[k + 1])
                     : static_cast<uint16_t>(bytes[k + 1] << 8 | bytes[k]);
  };
  std::u32string cps;
  cps.reserve(bytes.size() / 2);
  for (; i < bytes.size(); i += 2) {
    const uint16_t u = unitAt(i);
    if (u >= 0xD800 && u <= 0xDBFF) {
      if (i + 4 > bytes.size()) return std::nullopt;
      const uint16_t low = unitAt(i + 2);
      if (low < 0xDC00 || low > 0xDFFF) return std::nullopt;
      cps.push_back(0x10000 + ((static_cast<char32_t>(u) - 0xD800) << 10) + (low - 0xDC00));
      i += 2;
    } else if (u >= 0xDC00 && u <= 0xDFFF) {
      return std::nullopt;
    } else {
      cps.push_back(u);
    }
  }
  return encodeUtf8(cps);
}

constexpr bool kHostBigEndian = std::endian::native == std::endian::big;

std::string_view asChars(std::span<const uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// The text of a text descriptor as UTF-8; nullopt when it is not valid text.
std::optional<std::string> textOf(const Descriptor& desc) {
  const DescType type = desc.type();
  if (type == typeChar || type == typeUTF8Text) {
    std::u32string cps;
    if (!decodeUtf8(asChars(desc.data()), false, &cps)) return std::nullopt;
    return std::string(asChars(desc.data()));
  }
  if (type == typeUnicodeText) return decodeUtf16(desc.data(), kHostBigEndian);
  if (type == typeUTF16ExternalRepresentation) return decodeUtf16(desc.data(), true);
  return std::nullopt;
}

OSStatus makeTextDesc(DescType type, std::string_view utf8, Descriptor* out) {
  std::u32string cps;
  if (!decodeUtf8(utf8, false, &cps)) return errAECoercionFail;
  if (type == typeChar || type == typeUTF8Text) {
    return Descriptor::create(type, utf8.data(), utf8.size(), out);
  }
  const std::vector<uint8_t> bytes =
      encodeUtf16(cps, type == typeUTF16ExternalRepresentation || kHostBigEndian);
  return Descriptor::create(type, bytes.data(), bytes.size(), out);
}

// ---- Numbers --------------------------------------------------------------------------------

struct Number {
  bool real = false;
  Int128 integer = 0;
  double value = 0.0;
};

struct NumericType {
  DescType type;
  size_t size;
  bool real;
  Int128 min;
  Int128 max;
};

constexpr Int128 kUInt64Max = static_cast<Int128>(std::numeric_limits<uint64_t>::max());

constexpr NumericType kNumericTypes[] = {
    {typeSInt16, 2, false, INT16_MIN, INT16_MAX}, {typeUInt16, 2, false, 0, UINT16_MAX},
    {typeSInt32, 4, false, INT32_MIN, INT32_MAX}, {typeUInt32, 4, false, 0, UINT32_MAX},
    {typeSInt64, 8, false, INT64_MIN, INT64_MAX}, {typeUInt64, 8, false, 0, kUInt64Max},
    {typeIEEE32BitFloatingPoint, 4, true, 0, 0},  {typeIEEE64BitFloatingPoint, 8, true, 0, 0},
};

const NumericType* numericType(DescType type) {
  for (const NumericType& t : kNumericTypes) {
    if (t.type == type) return &t;
  }
  return nullptr;
}

template <class T>
T load(std::span<const uint8_t> bytes) {
  T value;
  std::memcpy(&value, bytes.data(), sizeof(T));
  return value;
}

std::optional<Number> numberOf(const Descriptor& desc) {
  const NumericType* t = numericType(desc.type());
  if (!t || desc.dataSize() != t->size) return std::nullopt;
  const std::span<const uint8_t> d = desc.data();
  Number n;
  switch (desc.type()) {
    case typeSInt16:
      n.integer = load<int16_t>(d);
      break;
    case typeUInt16:
      n.integer = load<uint16_t>(d);
      break;
    case typeSInt32:
      n.integer = load<int32_t>(d);
      break;
    case typeUInt32:
      n.integer = load<uint32_t>(d);
      break;
    case typeSInt64:
      n.integer = load<int64_t>(d);
      break;
    case typeUInt64:
      n.integer = load<uint64_t>(d);
      break;
    case typeIEEE32BitFloatingPoint:
      n.real = true;
      n.value = load<float>(d);
      break;
    default:
      n.real = true;
      n.value = load<double>(d);
      break;
  }
  return n;
}

template <class T>
OSStatus storeScalar(DescType type, T value, Descriptor* out) {
  return Descriptor::create(type, &value, sizeof value, out);
}

OSStatus makeNumber(const Number& n, DescType toType, Descriptor* out) {
  const NumericType* t = numericType(toType);
  if (!t) return errAECoercionFail;
  if (t->real) {
    const double v = n.real ? n.value : static_cast<double>(n.integer);
    if (toType == typeIEEE64BitFloatingPoint) return storeScalar(toType, v, out);
    if (std::isfinite(v) && std::fabs(v) > std::numeric_limits<float>::max()) {
      return errAECoercionFail;
    }
    return storeScalar(toType, static_cast<float>(v), out);
  }
  Int128 v = n.integer;
  if (n.real) {
    if (!std::isfinite(n.value)) return errAECoercionFail;
    const double r = std::nearbyint(n.value);
    // Every target fits in (-2^64, 2^64); check before converting.
    if (r <= -18446744073709551616.0 || r >= 18446744073709551616.0) return errAECoercionFail;
    v = static_cast<Int128>(r);
  }
  if (v < t->min || v > t->max) return errAECoercionFail;
  switch (toType) {
    case typeSInt16:
      return storeScalar(toType, static_cast<int16_t>(v), out);
    case typeUInt16:
      return storeScalar(toType, static_cast<uint16_t>(v), out);
    case typeSInt32:
      return storeScalar(toType, static_cast<int32_t>(v), out);
    case typeUInt32:
      return storeScalar(toType, static_cast<uint32_t>(v), out);
    case typeSInt64:
      return storeScalar(toType, static_cast<int64_t>(v), out);
    default:
      return storeScalar(toType, static_cast<uint64_t>(v), out);
  }
}

std::string numberText(const Number& n, DescType fromType) {
  char buffer[64];
  std::to_chars_result r;
  if (!n.real) {
    // Int128 has no to_chars; every source value fits in 64 bits.
    if (n.integer < 0) {
      r = std::to_chars(buffer, buffer + sizeof buffer, static_cast<int64_t>(n.integer));
    } else {
      r = std::to_chars(buffer, buffer + sizeof buffer, static_cast<uint64_t>(n.integer));
    }
  } else if (fromType == typeIEEE32BitFloatingPoint) {
    r = std::to_chars(buffer, buffer + sizeof buffer, static_cast<float>(n.value));
  } else {
    r = std::to_chars(buffer, buffer + sizeof buffer, n.value);
  }
  return std::string(buffer, r.ptr);
}

// A decimal number filling all of `text` but for spaces around it.
std::optional<Number> parseNumber(std::string_view text) {
  while (!text.empty() && text.front() == ' ')
    text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ')
    text.remove_suffix(1);
  if (text.empty() || text.size() > 400) return std::nullopt;
  std::string_view digits = text;
  bool negative = false;
  if (digits.front() == '-' || digits.front() == '+') {
    negative = digits.front() == '-';
    digits.remove_prefix(1);
  }
  if (digits.empty()) return std::nullopt;
  bool integral = true;
  for (const char c : digits) {
    if (c < '0' || c > '9') {
      if (c != '.' && c != 'e' && c != 'E' && c != '-' && c != '+') return std::nullopt;
      integral = false;
    }
  }
  Number n;
  if (integral && digits.size() <= 30) {
    for (const char c : digits)
      n.integer = n.integer * 10 + (c - '0');
    if (negative) n.integer = -n.integer;
    return n;
  }
  if (!(digits.front() >= '0' && digits.front() <= '9') && digits.front() != '.') {
    return std::nullopt;
  }
  double value = 0.0;
  const auto r = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (r.ec != std::errc() || r.ptr != digits.data() + digits.size()) return std::nullopt;
  n.real = true;
  n.value = negative ? -value : value;
  return n;
}

// ---- Booleans and codes ---------------------------------------------------------------------

std::optional<bool> boolOf(const Descriptor& desc) {
  switch (desc.type()) {
    case typeBoolean:
      if (desc.dataSize() != 1) return std::nullopt;
      return desc.data()[0] != 0;
    case typeTrue:
      return true;
    case typeFalse:
      return false;
    case typeEnumerated:
      if (desc.dataSize() != 4) return std::nullopt;
      if (load<OSType>(desc.data()) == typeTrue) return true;
      if (load<OSType>(desc.data()) == typeFalse) return false;
      return std::nullopt;
    default:
      if (const auto n = numberOf(desc); n && !n->real && (n->integer == 0 || n->integer == 1)) {
        return n->integer == 1;
      }
      return std::nullopt;
  }
}

OSStatus makeBool(bool value, DescType toType, Descriptor* out) {
  switch (toType) {
    case typeBoolean:
      return storeScalar(toType, static_cast<uint8_t>(value ? 1 : 0), out);
    case typeTrue:
    case typeFalse:
      if (value != (toType == typeTrue)) return errAECoercionFail;
      return Descriptor::create(toType, nullptr, 0, out);
    case typeEnumerated:
      return storeScalar(toType, value ? typeTrue : typeFalse, out);
    default: {
      Number n;
      n.integer = value ? 1 : 0;
      return numericType(toType) ? makeNumber(n, toType, out) : errAECoercionFail;
    }
  }
}

bool isBoolType(DescType type) {
  return type == typeBoolean || type == typeTrue || type == typeFalse;
}

// ---- Files ----------------------------------------------------------------------------------

std::optional<std::string> filePathOf(const Descriptor& desc) {
  if (desc.type() == typeFileURL) {
    const std::optional<Url> url = Url::parse(asChars(desc.data()));
    if (!url || !url->isFileUrl()) return std::nullopt;
    return url->path();
  }
  if (desc.type() == typeFSRef) {
    Result<std::string> path = resolveFileReference(desc.data());
    if (!path.ok()) return std::nullopt;
    return std::move(path).value();
  }
  if (desc.type() == typeAlias) {
    Result<std::string> path = resolveAliasRecord(desc.data());
    if (!path.ok()) return std::nullopt;
    return std::move(path).value();
  }
  return std::nullopt;
}

bool isFileType(DescType type) {
  return type == typeFileURL || type == typeFSRef || type == typeAlias;
}

OSStatus coerceFile(const Descriptor& in, DescType toType, Descriptor* out) {
  const std::optional<std::string> path = filePathOf(in);
  if (!path) return errAECoercionFail;
  if (toType == typeFileURL || isTextType(toType)) {
    const Descriptor url = makeFileURLDesc(*path);
    if (toType == typeFileURL) {
      *out = url.duplicate();
      return noErr;
    }
    return makeTextDesc(toType, asChars(url.data()), out);
  }
  Result<Descriptor> made =
      toType == typeFSRef
          ? makeFileReferenceDesc(*path)
          : (toType == typeAlias
                 ? makeAliasDesc(*path)
                 : Result<Descriptor>(Status::error(errAECoercionFail, "not a file type")));
  if (!made.ok()) return errAECoercionFail;
  *out = std::move(made).value();
  return noErr;
}

OSStatus coerceSimple(const Descriptor& in, DescType toType, Descriptor* out) {
  const DescType from = in.type();

  if (isFileType(from) && (isFileType(toType) || isTextType(toType))) {
    return coerceFile(in, toType, out);
  }
  if (isTextType(from) && toType == typeFileURL) {
    const std::optional<std::string> text = textOf(in);
    if (!text) return errAECoercionFail;
    const std::optional<Url> url = Url::parse(*text);
    if (!url || !url->isFileUrl()) return errAECoercionFail;
    return Descriptor::create(typeFileURL, text->data(), text->size(), out);
  }

  if (isBoolType(from) || (toType == typeBoolean || toType == typeTrue || toType == typeFalse)) {
    const std::optional<bool> value = boolOf(in);
    if (value) return makeBool(*value, toType, out);
    if (isBoolType(from)) return errAECoercionFail;
  }
  if (from == typeEnumerated && toType != typeEnumerated && isBoolType(toType)) {
    return errAECoercionFail;
  }

  if (numericType(from)) {
    const std::optional<Number> n = numberOf(in);
    if (!n) return errAECoercionFail;
    if (numericType(toType)) return makeNumber(*n, toType, out);
    if (isTextType(toType)) return makeTextDesc(toType, numberText(*n, from), out);
    return errAECoercionFail;
  }

  if (isCodeType(from)) {
    if (in.dataSize() != 4) return errAECoercionFail;
    const OSType code = load<OSType>(in.data());
    if (isCodeType(toType)) return storeScalar(toType, code, out);
    if (isTextType(toType)) return makeTextDesc(toType, fourCharString(code), out);
    return errAECoercionFail;
  }

  if (isTextType(from)) {
    const std::optional<std::string> text = textOf(in);
    if (!text) return errAECoercionFail;
    if (isTextType(toType)) return makeTextDesc(toType, *text, out);
    if (numericType(toType)) {
      const std::optional<Number> n = parseNumber(*text);
      return n ? makeNumber(*n, toType, out) : errAECoercionFail;
    }
    if (isCodeType(toType)) {
      if (text->size() != 4) return errAECoercionFail;
      const std::optional<OSType> code = parseFourCharCode(*text);
      return code ? storeScalar(toType, *code, out) : errAECoercionFail;
    }
    return errAECoercionFail;
  }

  if (from == typeVersion && isTextType(toType)) {
    const std::span<const uint8_t> d = in.data();
    if (d.size() < 7) return errAECoercionFail;
    const size_t length = d[6];
    if (7 + length > d.size()) return errAECoercionFail;
    return makeTextDesc(toType, asChars(d.subspan(7, length)), out);
  }
  return errAECoercionFail;
}

}  // namespace

OSStatus coerceDesc(const Descriptor& in, DescType toType, Descriptor* out) {
  *out = Descriptor();
  if (toType == typeWildCard || toType == in.type()) {
    *out = in.duplicate();
    return noErr;
  }
  if (toType == typeAEList) {
    if (in.depth() + 1 > kMaxDescriptorDepth) return errAECoercionFail;
    Descriptor list = Descriptor::makeList();
    if (list.putDesc(0, in) != noErr) return errAECoercionFail;
    *out = std::move(list);
    return noErr;
  }
  if (in.isList()) {
    if (in.itemCount() != 1) return errAECoercionFail;
    return coerceDesc(in.itemAt(0), toType, out);
  }
  if (in.isRecord()) {
    if (!isOneOf(toType, kRecordTypes)) return errAECoercionFail;
    Descriptor copy = in.duplicate();
    if (copy.setType(toType) != noErr) return errAECoercionFail;
    *out = std::move(copy);
    return noErr;
  }
  if (in.isAppleEvent()) return errAECoercionFail;
  const OSStatus status = coerceSimple(in, toType, out);
  if (status != noErr) *out = Descriptor();
  return status;
}

OSStatus coercePtr(DescType type, const void* data, size_t size, DescType toType, Descriptor* out) {
  Descriptor in;
  if (const OSStatus status = Descriptor::create(type, data, size, &in); status != noErr) {
    *out = Descriptor();
    return status;
  }
  return coerceDesc(in, toType, out);
}

namespace {
template <class T>
Result<T> scalarValue(const Descriptor& desc, DescType type, const char* what) {
  Descriptor converted;
  const OSStatus status = coerceDesc(desc, type, &converted);
  if (status != noErr || converted.dataSize() != sizeof(T)) {
    return Status::error(
        status == noErr ? errAECoercionFail : status,
        std::string("cannot read ") + fourCharDisplay(desc.type()) + " as " + what);
  }
  return load<T>(converted.data());
}
}  // namespace

Result<int64_t> integerValue(const Descriptor& desc) {
  return scalarValue<int64_t>(desc, typeSInt64, "a 64-bit integer");
}
Result<int32_t> int32Value(const Descriptor& desc) {
  return scalarValue<int32_t>(desc, typeSInt32, "a 32-bit integer");
}
Result<double> doubleValue(const Descriptor& desc) {
  return scalarValue<double>(desc, typeIEEE64BitFloatingPoint, "a number");
}
Result<bool> boolValue(const Descriptor& desc) {
  Result<uint8_t> byte = scalarValue<uint8_t>(desc, typeBoolean, "a boolean");
  if (!byte.ok()) return byte.status();
  return *byte != 0;
}
Result<OSType> codeValue(const Descriptor& desc) {
  return scalarValue<OSType>(desc, typeType, "a code");
}
Result<std::string> textValue(const Descriptor& desc) {
  Descriptor converted;
  const OSStatus status = coerceDesc(desc, typeUTF8Text, &converted);
  if (status != noErr) {
    return Status::error(status, "cannot read " + fourCharDisplay(desc.type()) + " as text");
  }
  return std::string(asChars(converted.data()));
}

std::vector<uint8_t> utf8ToUtf16Host(std::string_view utf8) {
  std::u32string cps;
  decodeUtf8(utf8, true, &cps);
  return encodeUtf16(cps, kHostBigEndian);
}

std::optional<std::string> utf16HostToUtf8(std::span<const uint8_t> bytes) {
  return decodeUtf16(bytes, kHostBigEndian);
}

}  // namespace rvitunes::ae
