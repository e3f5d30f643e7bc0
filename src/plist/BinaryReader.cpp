#include "rvitunes/plist/BinaryReader.h"
#include "rvitunes/base/Utf8.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>
#include <vector>

#include "plist/StringInterner.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"

namespace rvitunes::plist {

namespace {

constexpr char kMagic[8] = {'b', 'p', 'l', 'i', 's', 't', '0', '0'};
constexpr uint64_t kHeaderSize = 8;
constexpr uint64_t kTrailerSize = 32;

// A file may name one container from several places (a writer that shares equal containers);
// each reference is read as a copy. To keep a small file from unfolding into a huge tree, the
// values made may exceed the object count only by this factor (plus a fixed allowance).
constexpr uint64_t kExpansionFactor = 16;
constexpr uint64_t kExpansionAllowance = 4096;

// How many values are made between two calls of the progress callback.
constexpr uint64_t kProgressStep = uint64_t{1} << 16;

std::string hex(uint64_t v) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string s = "0x";
  bool started = false;
  for (int shift = 60; shift >= 0; shift -= 4) {
    unsigned d = (v >> shift) & 0xF;
    if (d || started || shift < 8) {
      s.push_back(kDigits[d]);
      started = true;
    }
  }
  return s;
}

class Parser {
 public:
  Parser(std::span<const uint8_t> bytes, const ReadOptions& options)
      : p_(bytes.data()), size_(bytes.size()), options_(options) {}

  ParseResult run();

 private:
  // Big-endian unsigned integer of `n` (1-8) bytes at `pos`; the caller has checked the range.
  uint64_t be(uint64_t pos, unsigned n) const noexcept {
    uint64_t v = 0;
    for (unsigned i = 0; i < n; ++i)
      v = (v << 8) | p_[pos + i];
    return v;
  }

  bool fail(uint64_t at, std::string message) {
    if (!error_) error_ = Diagnostic{at, std::move(message)};
    return false;
  }
  void warn(uint64_t at, std::string message) {
    if (result_.warnings.size() < options_.maxWarnings) {
      result_.warnings.push_back(Diagnostic{at, std::move(message)});
    } else {
      ++droppedWarnings_;
    }
  }

  bool readTrailer();
  bool objectOffset(uint64_t ref, uint64_t refAt, uint64_t* offset);
  bool readInteger(uint64_t pos, Value* out, uint64_t* next);
  bool readLength(uint64_t offset, uint8_t marker, uint64_t* length, uint64_t* next);
  bool readAsciiString(uint64_t offset, uint64_t pos, uint64_t length, Value* out);
  bool readUtf16String(uint64_t pos, uint64_t units, Value* out);
  bool readObject(uint64_t ref, uint64_t refAt, uint32_t depth, Value* out);
  bool readArray(uint64_t ref, uint64_t offset, uint8_t marker, uint32_t depth, Value* out);
  bool readDictionary(uint64_t ref, uint64_t offset, uint8_t marker, uint32_t depth, Value* out);
  bool enterContainer(uint64_t ref, uint64_t offset, uint32_t depth);
  bool countValue(uint64_t at);

  const uint8_t* p_;
  uint64_t size_;
  const ReadOptions& options_;
  ParseResult result_;
  std::optional<Diagnostic> error_;
  size_t droppedWarnings_ = 0;

  // From the trailer.
  unsigned offsetSize_ = 0;
  unsigned refSize_ = 0;
  uint64_t objectCount_ = 0;
  uint64_t topObject_ = 0;
  uint64_t tableOffset_ = 0;

  std::vector<uint8_t> open_;  // 1 while the container object is being read
  uint64_t made_ = 0;          // values made so far
  uint64_t budget_ = 0;        // most values the file may unfold into
  StringInterner interner_;
};

bool Parser::readTrailer() {
  const uint64_t t = size_ - kTrailerSize;
  offsetSize_ = p_[t + 6];
  refSize_ = p_[t + 7];
  objectCount_ = be(t + 8, 8);
  topObject_ = be(t + 16, 8);
  tableOffset_ = be(t + 24, 8);

  if (offsetSize_ < 1 || offsetSize_ > 8) {
    return fail(t + 6, "offset size " + std::to_string(offsetSize_) + " is not between 1 and 8");
  }
  if (refSize_ < 1 || refSize_ > 8) {
    return fail(t + 7,
                "object reference size " + std::to_string(refSize_) + " is not between 1 and 8");
  }
  if (objectCount_ == 0) return fail(t + 8, "the trailer declares no objects");
  if (objectCount_ > options_.maxObjects) {
    return fail(t + 8, std::to_string(objectCount_) + " objects exceed the limit of " +
                           std::to_string(options_.maxObjects));
  }
  if (tableOffset_ <= kHeaderSize) {
    return fail(t + 24, "offset table at " + std::to_string(tableOffset_) +
                            " leaves no room for objects after the header");
  }
  if (tableOffset_ > t) {
    return fail(t + 24, "offset table at " + std::to_string(tableOffset_) +
                            " lies outside the file (trailer at " + std::to_string(t) + ")");
  }
  // Every object takes at least one byte, every table entry offsetSize_ bytes.
  if (objectCount_ > tableOffset_ - kHeaderSize) {
    return fail(t + 8, std::to_string(objectCount_) + " objects cannot fit in " +
                           std::to_string(tableOffset_ - kHeaderSize) + " bytes of object data");
  }
  if (objectCount_ > (t - tableOffset_) / offsetSize_) {
    return fail(t + 8, "offset table of " + std::to_string(objectCount_) + " entries of " +
                           std::to_string(offsetSize_) + " bytes does not fit between " +
                           std::to_string(tableOffset_) + " and the trailer");
  }
  if (refSize_ < 8 && objectCount_ - 1 > (uint64_t{1} << (8 * refSize_)) - 1) {
    return fail(t + 7, "references of " + std::to_string(refSize_) + " bytes cannot name " +
                           std::to_string(objectCount_) + " objects");
  }
  if (topObject_ >= objectCount_) {
    return fail(t + 16, "top object " + std::to_string(topObject_) + " is out of range (" +
                            std::to_string(objectCount_) + " objects)");
  }
  return true;
}

bool Parser::objectOffset(uint64_t ref, uint64_t refAt, uint64_t* offset) {
  if (ref >= objectCount_) {
    return fail(refAt, "object reference " + std::to_string(ref) + " is out of range (" +
                           std::to_string(objectCount_) + " objects)");
  }
  const uint64_t entry = tableOffset_ + ref * offsetSize_;
  const uint64_t off = be(entry, offsetSize_);
  if (off < kHeaderSize || off >= tableOffset_) {
    return fail(entry, "object " + std::to_string(ref) + " has offset " + std::to_string(off) +
                           " outside the object area [8, " + std::to_string(tableOffset_) + ")");
  }
  *offset = off;
  return true;
}

// An integer object at `pos`: 1, 2 and 4 bytes unsigned, 8 bytes signed, 16 bytes when the value
// fits in 64 bits (high half zero, or all ones over a negative low half).
bool Parser::readInteger(uint64_t pos, Value* out, uint64_t* next) {
  const uint8_t marker = p_[pos];
  const unsigned power = marker & 0x0F;
  if (power > 4) {
    return fail(pos, "integer marker " + hex(marker) + " names an unsupported size");
  }
  const uint64_t n = uint64_t{1} << power;
  if (n > tableOffset_ - pos - 1) {
    return fail(pos, "integer of " + std::to_string(n) + " bytes runs past the object area");
  }
  if (n < 8) {
    *out = Value::integer(static_cast<int64_t>(be(pos + 1, static_cast<unsigned>(n))));
  } else if (n == 8) {
    *out = Value::integer(static_cast<int64_t>(be(pos + 1, 8)));
  } else {
    const uint64_t high = be(pos + 1, 8);
    const uint64_t low = be(pos + 9, 8);
    if (high == 0) {
      *out = Value::unsignedInteger(low);
    } else if (high == ~uint64_t{0} && (low >> 63) != 0) {
      *out = Value::integer(static_cast<int64_t>(low));
    } else {
      return fail(pos, "16-byte integer does not fit in 64 bits");
    }
  }
  *next = pos + 1 + n;
  return true;
}

// The element count of the object at `offset`: its low nibble, or an integer object after the
// marker when the nibble is 0xF. *next is where the object's contents begin.
bool Parser::readLength(uint64_t offset, uint8_t marker, uint64_t* length, uint64_t* next) {
  if ((marker & 0x0F) != 0x0F) {
    *length = marker & 0x0F;
    *next = offset + 1;
    return true;
  }
  const uint64_t pos = offset + 1;
  if (pos >= tableOffset_) return fail(offset, "length runs past the object area");
  if ((p_[pos] & 0xF0) != 0x10) {
    return fail(pos, "length of object at " + std::to_string(offset) +
                         " is not an integer (marker " + hex(p_[pos]) + ")");
  }
  Value n;
  if (!readInteger(pos, &n, next)) return false;
  if (!n.isUnsigned() && n.longLongValue() < 0) {
    return fail(pos, "negative length " + std::to_string(n.longLongValue()));
  }
  *length = n.unsignedLongLongValue();
  return true;
}

bool Parser::readAsciiString(uint64_t offset, uint64_t pos, uint64_t length, Value* out) {
  std::string_view text(reinterpret_cast<const char*>(p_ + pos), length);
  if (std::none_of(text.begin(), text.end(), [](char c) { return (c & 0x80) != 0; })) {
    *out = interner_.make(text);
    return true;
  }
  std::string fixed;
  fixed.reserve(length + 16);
  for (char c : text) {
    if (c & 0x80) {
      appendUtf8(fixed, 0xFFFD);
    } else {
      fixed.push_back(c);
    }
  }
  warn(offset, "bytes above 0x7F in an ASCII string replaced by U+FFFD");
  *out = interner_.make(fixed);
  return true;
}

bool Parser::readUtf16String(uint64_t pos, uint64_t units, Value* out) {
  std::string text;
  text.reserve(units + units / 2);
  for (uint64_t i = 0; i < units; ++i) {
    const uint64_t at = pos + 2 * i;
    uint32_t u = static_cast<uint32_t>(be(at, 2));
    if (u >= 0xD800 && u <= 0xDBFF && i + 1 < units) {
      const uint32_t low = static_cast<uint32_t>(be(at + 2, 2));
      if (low >= 0xDC00 && low <= 0xDFFF) {
        appendUtf8(text, 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
        ++i;
        continue;
      }
    }
    if (u >= 0xD800 && u <= 0xDFFF) {
      warn(at, "lone surrogate " + hex(u) + " in a UTF-16 string replaced by U+FFFD");
      u = 0xFFFD;
    }
    appendUtf8(text, u);
  }
  *out = interner_.make(text);
  return true;
}

bool Parser::countValue(uint64_t at) {
  if (++made_ > budget_) {
    return fail(at, "shared objects unfold into more than " + std::to_string(budget_) + " values");
  }
  if (options_.progress && made_ % kProgressStep == 0) {
    // Objects are spread over the file, so the share of the objects read stands for the bytes.
    const uint64_t done = std::min(made_, objectCount_);
    options_.progress(
        static_cast<uint64_t>(static_cast<double>(done) / static_cast<double>(objectCount_) *
                              static_cast<double>(size_)),
        size_);
  }
  return true;
}

bool Parser::enterContainer(uint64_t ref, uint64_t offset, uint32_t depth) {
  if (depth >= options_.maxDepth) {
    return fail(offset, "nesting deeper than " + std::to_string(options_.maxDepth));
  }
  if (open_[ref]) return fail(offset, "object " + std::to_string(ref) + " contains itself");
  open_[ref] = 1;
  return true;
}

bool Parser::readArray(uint64_t ref, uint64_t offset, uint8_t marker, uint32_t depth, Value* out) {
  uint64_t count = 0;
  uint64_t pos = 0;
  if (!readLength(offset, marker, &count, &pos)) return false;
  if (count > (tableOffset_ - pos) / refSize_) {
    return fail(offset,
                "array of " + std::to_string(count) + " references runs past the object area");
  }
  if (!enterContainer(ref, offset, depth)) return false;
  std::vector<Value> items;
  items.reserve(count);
  for (uint64_t i = 0; i < count; ++i) {
    const uint64_t at = pos + i * refSize_;
    items.emplace_back();
    if (!readObject(be(at, refSize_), at, depth + 1, &items.back())) return false;
  }
  open_[ref] = 0;
  *out = Value(Array::create(std::move(items)));
  return true;
}

bool Parser::readDictionary(uint64_t ref, uint64_t offset, uint8_t marker, uint32_t depth,
                            Value* out) {
  uint64_t count = 0;
  uint64_t pos = 0;
  if (!readLength(offset, marker, &count, &pos)) return false;
  if (count > (tableOffset_ - pos) / refSize_ / 2) {
    return fail(offset,
                "dictionary of " + std::to_string(count) + " entries runs past the object area");
  }
  if (!enterContainer(ref, offset, depth)) return false;
  std::vector<Dictionary::Entry> entries(count);
  const uint64_t values = pos + count * refSize_;
  for (uint64_t i = 0; i < count; ++i) {
    const uint64_t keyAt = pos + i * refSize_;
    const uint64_t keyRef = be(keyAt, refSize_);
    Value& key = entries[i].key;
    if (!readObject(keyRef, keyAt, depth + 1, &key)) return false;
    if (!key.isString()) {
      uint64_t keyOffset = 0;
      objectOffset(keyRef, keyAt, &keyOffset);
      return fail(keyOffset, "dictionary key (object " + std::to_string(keyRef) + ") is of type " +
                                 std::string(typeName(key.type())) + ", not a string");
    }
    const uint64_t valueAt = values + i * refSize_;
    if (!readObject(be(valueAt, refSize_), valueAt, depth + 1, &entries[i].value)) return false;
  }
  open_[ref] = 0;
  Ref<Dictionary> dict = Dictionary::create();
  if (const size_t merged = dict->adopt(std::move(entries)); merged > 0) {
    warn(offset, std::to_string(merged) + " duplicate key" + (merged == 1 ? "" : "s") +
                     " in a dictionary; the last value kept");
  }
  *out = Value(std::move(dict));
  return true;
}

bool Parser::readObject(uint64_t ref, uint64_t refAt, uint32_t depth, Value* out) {
  uint64_t offset = 0;
  if (!objectOffset(ref, refAt, &offset)) return false;
  if (!countValue(offset)) return false;
  const uint8_t marker = p_[offset];
  const uint64_t left = tableOffset_ - offset - 1;  // bytes after the marker
  switch (marker >> 4) {
    case 0x0:
      if (marker == 0x08 || marker == 0x09) {
        *out = Value::boolean(marker == 0x09);
        return true;
      }
      if (marker == 0x00) return fail(offset, "null objects are not supported");
      if (marker == 0x0F) return fail(offset, "fill byte where an object was expected");
      break;
    case 0x1: {
      uint64_t next = 0;
      return readInteger(offset, out, &next);
    }
    case 0x2: {
      if (marker == 0x22) {
        if (left < 4) return fail(offset, "real of 4 bytes runs past the object area");
        const float f = std::bit_cast<float>(static_cast<uint32_t>(be(offset + 1, 4)));
        *out = Value::real(static_cast<double>(f));
        return true;
      }
      if (marker == 0x23) {
        if (left < 8) return fail(offset, "real of 8 bytes runs past the object area");
        *out = Value::real(std::bit_cast<double>(be(offset + 1, 8)));
        return true;
      }
      return fail(offset, "real marker " + hex(marker) + " names an unsupported size");
    }
    case 0x3:
      if (marker != 0x33) break;
      if (left < 8) return fail(offset, "date runs past the object area");
      *out = Value::date(Date::fromAbsoluteTime(std::bit_cast<double>(be(offset + 1, 8))));
      return true;
    case 0x4:
    case 0x5:
    case 0x6: {
      uint64_t length = 0;
      uint64_t pos = 0;
      if (!readLength(offset, marker, &length, &pos)) return false;
      const uint64_t room = tableOffset_ - pos;
      const bool utf16 = (marker >> 4) == 0x6;
      if (utf16 ? length > room / 2 : length > room) {
        return fail(offset, std::string(marker >> 4 == 0x4 ? "data" : "string") + " of " +
                                std::to_string(length) + (utf16 ? " UTF-16 units" : " bytes") +
                                " runs past the object area");
      }
      if (marker >> 4 == 0x4) {
        *out = Value::data(std::span<const uint8_t>(p_ + pos, length));
        return true;
      }
      return utf16 ? readUtf16String(pos, length, out) : readAsciiString(offset, pos, length, out);
    }
    case 0x8: {
      // A keyed-archive reference (UID); kept as its unsigned number.
      const unsigned n = (marker & 0x0F) + 1u;
      if (left < n)
        return fail(offset, "UID of " + std::to_string(n) + " bytes runs past the object area");
      for (unsigned i = 0; i + 8 < n; ++i) {
        if (p_[offset + 1 + i] != 0) return fail(offset, "UID does not fit in 64 bits");
      }
      const unsigned low = std::min(n, 8u);
      *out = Value::unsignedInteger(be(offset + 1 + (n - low), low));
      return true;
    }
    case 0xA:
    case 0xC:
      return readArray(ref, offset, marker, depth, out);
    case 0xD:
      return readDictionary(ref, offset, marker, depth, out);
    default:
      break;
  }
  return fail(offset, "unknown object marker " + hex(marker));
}

ParseResult Parser::run() {
  result_.format = Format::kBinary;
  if (size_ > options_.maxInputBytes) {
    fail(0, "input of " + std::to_string(size_) + " bytes exceeds the limit of " +
                std::to_string(options_.maxInputBytes));
  } else if (size_ < kHeaderSize || std::memcmp(p_, kMagic, kHeaderSize) != 0) {
    fail(0, "not a binary property list: no \"bplist00\" header");
  } else if (size_ < kHeaderSize + kTrailerSize + 2) {
    fail(size_, "input of " + std::to_string(size_) + " bytes is too short for a trailer");
  } else if (readTrailer()) {
    open_.assign(objectCount_, 0);
    budget_ = objectCount_ * kExpansionFactor + kExpansionAllowance;
    Value root;
    if (readObject(topObject_, size_ - kTrailerSize + 16, 0, &root)) result_.root = std::move(root);
  }
  if (droppedWarnings_ > 0) {
    result_.warnings.push_back(
        Diagnostic{size_, std::to_string(droppedWarnings_) + " more warnings not shown"});
  }
  if (error_) {
    result_.error = std::move(error_);
    result_.root = Value();
    return std::move(result_);
  }
  if (options_.progress) options_.progress(size_, size_);
  return std::move(result_);
}

}  // namespace

bool BinaryReader::looksBinary(std::span<const uint8_t> bytes) noexcept {
  return bytes.size() >= kHeaderSize && std::memcmp(bytes.data(), kMagic, kHeaderSize) == 0;
}

ParseResult BinaryReader::read(std::span<const uint8_t> bytes, const ReadOptions& options) {
  Parser parser(bytes, options);
  return parser.run();
}

}  // namespace rvitunes::plist
