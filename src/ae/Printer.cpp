#include "rvitunes/ae/Printer.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <optional>

#include "rvitunes/ae/Coercion.h"
#include "rvitunes/base/Utf8.h"

namespace rvitunes::ae {

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

// A code between single quotes; a quote or backslash inside is preceded by a backslash.
void appendCode(std::string& out, OSType code) {
  out += '\'';
  for (int shift = 24; shift >= 0; shift -= 8) {
    const char c = static_cast<char>((code >> shift) & 0xFF);
    if (c == '\'' || c == '\\') out += '\\';
    out += c;
  }
  out += '\'';
}

void appendHex(std::string& out, std::span<const uint8_t> bytes) {
  out += '$';
  for (const uint8_t b : bytes) {
    out += kHexDigits[b >> 4];
    out += kHexDigits[b & 0xF];
  }
  out += '$';
}

// 'type'($HEX$): the bytes as they are, readable back whatever the type.
void appendTypedHex(std::string& out, const Descriptor& desc) {
  appendCode(out, desc.type());
  out += '(';
  appendHex(out, desc.data());
  out += ')';
}

template <class T>
T load(const Descriptor& desc) {
  T value;
  std::memcpy(&value, desc.data().data(), sizeof(T));
  return value;
}

// Text that can stand between double quotes: valid UTF-8, no '"', no control characters.
bool quotable(std::string_view text) {
  if (!isValidUtf8(text)) return false;
  for (const char c : text) {
    const auto b = static_cast<unsigned char>(c);
    if (b == '"' || b < 0x20 || b == 0x7F) return false;
  }
  return true;
}

void appendQuoted(std::string& out, std::string_view text) {
  out += '"';
  out += text;
  out += '"';
}

// 'type'(N): a number the builder makes from a 'long' literal by the numeric coercion.
void appendTypedInteger(std::string& out, DescType type, int64_t value) {
  appendCode(out, type);
  out += '(';
  out += std::to_string(value);
  out += ')';
}

bool fitsLong(int64_t v) {
  return v >= INT32_MIN && v <= INT32_MAX;
}

// A float whose value is a whole number in the 32-bit range (and not -0) prints as type(N).
bool wholeLong(double v) {
  return std::isfinite(v) && v == std::trunc(v) && v >= INT32_MIN && v <= INT32_MAX &&
         !(v == 0.0 && std::signbit(v));
}

void printSimple(std::string& out, const Descriptor& desc, PrintStyle style) {
  const DescType type = desc.type();
  const size_t size = desc.dataSize();
  if (type == typeNull && size == 0) {
    out += "null()";
    return;
  }
  if (size == 0) {
    appendCode(out, type);
    out += "()";
    return;
  }
  const std::string_view text(reinterpret_cast<const char*>(desc.data().data()), size);
  switch (type) {
    case typeSInt16:
      if (size == 2) {
        out += std::to_string(load<int16_t>(desc));
        return;
      }
      break;
    case typeSInt32:
      // Bare, as the platform prints it; a value that fits 16 bits reads back as 'shor'.
      if (size == 4) {
        out += std::to_string(load<int32_t>(desc));
        return;
      }
      break;
    case typeUInt16:
      if (size == 2) return appendTypedInteger(out, type, load<uint16_t>(desc));
      break;
    case typeUInt32:
      if (size == 4 && fitsLong(load<uint32_t>(desc))) {
        return appendTypedInteger(out, type, load<uint32_t>(desc));
      }
      break;
    case typeSInt64:
      if (size == 8 && fitsLong(load<int64_t>(desc))) {
        return appendTypedInteger(out, type, load<int64_t>(desc));
      }
      break;
    case typeUInt64:
      if (size == 8 && load<uint64_t>(desc) <= INT32_MAX) {
        return appendTypedInteger(out, type, static_cast<int64_t>(load<uint64_t>(desc)));
      }
      break;
    case typeIEEE64BitFloatingPoint:
      if (size == 8 && wholeLong(load<double>(desc))) {
        return appendTypedInteger(out, type, static_cast<int64_t>(load<double>(desc)));
      }
      break;
    case typeIEEE32BitFloatingPoint:
      if (size == 4 && wholeLong(load<float>(desc))) {
        return appendTypedInteger(out, type, static_cast<int64_t>(load<float>(desc)));
      }
      break;
    case typeBoolean:
      if (size == 1 && desc.data()[0] <= 1) {
        return appendTypedInteger(out, type, desc.data()[0]);
      }
      break;
    case typeEnumerated:
      if (size == 4) return appendCode(out, load<OSType>(desc));
      break;
    case typeType:
      if (size == 4) {
        out += "type(";
        appendCode(out, load<OSType>(desc));
        out += ')';
        return;
      }
      break;
    case typeKeyword:
    case typeProperty:
    case typeApplSignature:
    case typeAbsoluteOrdinal:
      if (size == 4) {
        appendCode(out, type);
        out += '(';
        appendCode(out, load<OSType>(desc));
        out += ')';
        return;
      }
      break;
    case typeChar:
      if (quotable(text)) return appendQuoted(out, text);
      break;
    case typeUTF8Text:
    case typeFileURL:
      if (quotable(text)) {
        appendCode(out, type);
        out += '(';
        appendQuoted(out, text);
        out += ')';
        return;
      }
      break;
    case typeUnicodeText:
    case typeUTF16ExternalRepresentation:
      if (style == PrintStyle::kDisplay) {
        Descriptor utf8;
        if (coerceDesc(desc, typeUTF8Text, &utf8) == noErr) {
          const std::string_view s(reinterpret_cast<const char*>(utf8.data().data()),
                                   utf8.dataSize());
          if (quotable(s)) {
            appendCode(out, type);
            out += '(';
            appendQuoted(out, s);
            out += ')';
            return;
          }
        }
      }
      break;
    default:
      break;
  }
  appendTypedHex(out, desc);
}

void print(std::string& out, const Descriptor& desc, PrintStyle style);

void printItems(std::string& out, const Descriptor& desc, PrintStyle style, bool keyed,
                const Descriptor* optionalKeys) {
  for (size_t i = 0; i < desc.itemCount(); ++i) {
    if (i > 0) out += ", ";
    if (keyed) {
      if (optionalKeys) {
        for (size_t k = 0; k < optionalKeys->itemCount(); ++k) {
          const Descriptor& key = optionalKeys->itemAt(k);
          if (key.dataSize() == 4 && load<OSType>(key) == desc.keyAt(i)) {
            out += '~';
            break;
          }
        }
      }
      appendCode(out, desc.keyAt(i));
      out += ':';
    }
    print(out, desc.itemAt(i), style);
  }
}

void printEvent(std::string& out, const Descriptor& event, PrintStyle style) {
  appendCode(out, event.eventClass());
  out += '\\';
  appendCode(out, event.eventID());
  out += '{';
  const Descriptor* optionalKeys = nullptr;
  for (size_t i = 0; i < event.attributeCount(); ++i) {
    if (event.attributeKeyAt(i) == keyOptionalKeywordAttr && event.attributeAt(i).isList()) {
      optionalKeys = &event.attributeAt(i);
    }
  }
  bool first = event.itemCount() == 0;
  if (!first) out += ' ';
  printItems(out, event, style, true, optionalKeys);
  for (size_t i = 0; i < event.attributeCount(); ++i) {
    const AEKeyword key = event.attributeKeyAt(i);
    if (key == keyAddressAttr || key == keyOptionalKeywordAttr) continue;
    out += first ? " " : ", ";
    first = false;
    out += '&';
    appendCode(out, key);
    out += ':';
    print(out, event.attributeAt(i), style);
  }
  out += first ? "}" : " }";
}

void print(std::string& out, const Descriptor& desc, PrintStyle style) {
  switch (desc.kind()) {
    case DescKind::kSimple:
      printSimple(out, desc, style);
      return;
    case DescKind::kList:
      if (desc.itemCount() == 0) {
        out += "[ ]";
        return;
      }
      out += "[ ";
      printItems(out, desc, style, false, nullptr);
      out += " ]";
      return;
    case DescKind::kRecord:
      if (desc.type() != typeAERecord) appendCode(out, desc.type());
      if (desc.itemCount() == 0) {
        out += "{ }";
        return;
      }
      out += "{ ";
      printItems(out, desc, style, true, nullptr);
      out += " }";
      return;
    case DescKind::kAppleEvent:
      printEvent(out, desc, style);
      return;
  }
}

}  // namespace

std::string printDesc(const Descriptor& desc, PrintStyle style) {
  std::string out;
  print(out, desc, style);
  return out;
}

}  // namespace rvitunes::ae
