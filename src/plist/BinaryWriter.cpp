#include "rvitunes/plist/BinaryWriter.h"

#include <bit>
#include <cstring>
#include <limits>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "plist/TreePath.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"

namespace rvitunes::plist {

namespace {

// Trees nested deeper than this are refused rather than risk the stack; no reader accepts them
// with its default limits anyway.
constexpr size_t kMaxDepth = 1024;

// Identity of a scalar for sharing: its kind and its 64-bit image. Reals and dates compare by
// bits, so 0.0 and -0.0 stay distinct.
struct ScalarKey {
  uint8_t kind;
  uint64_t bits;
  bool operator==(const ScalarKey&) const = default;
};

struct ScalarKeyHash {
  size_t operator()(const ScalarKey& k) const noexcept {
    uint64_t h = (k.bits ^ (uint64_t{k.kind} << 56)) * 0x9E3779B97F4A7C15ULL;
    return static_cast<size_t>(h ^ (h >> 29));
  }
};

struct ViewHash {
  size_t operator()(std::string_view s) const noexcept {
    return static_cast<size_t>(hashString(s));
  }
};

// Bytes needed for `v` among the sizes readers expect of offsets and references: 1, 2, 4, 8.
unsigned sizeFor(uint64_t v) {
  if (v <= 0xFF) return 1;
  if (v <= 0xFFFF) return 2;
  if (v <= 0xFFFFFFFF) return 4;
  return 8;
}

// Decodes one UTF-8 sequence at s[i]; malformed bytes decode to U+FFFD one at a time.
uint32_t nextCodePoint(std::string_view s, size_t& i) {
  const auto c = static_cast<unsigned char>(s[i]);
  size_t n = 0;
  uint32_t cp = 0;
  uint32_t min = 0;
  if (c < 0x80) {
    ++i;
    return c;
  } else if ((c & 0xE0) == 0xC0) {
    n = 2, cp = c & 0x1F, min = 0x80;
  } else if ((c & 0xF0) == 0xE0) {
    n = 3, cp = c & 0x0F, min = 0x800;
  } else if ((c & 0xF8) == 0xF0) {
    n = 4, cp = c & 0x07, min = 0x10000;
  } else {
    ++i;
    return 0xFFFD;
  }
  if (s.size() - i < n) {
    ++i;
    return 0xFFFD;
  }
  for (size_t k = 1; k < n; ++k) {
    const auto b = static_cast<unsigned char>(s[i + k]);
    if ((b & 0xC0) != 0x80) {
      ++i;
      return 0xFFFD;
    }
    cp = (cp << 6) | (b & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
    ++i;
    return 0xFFFD;
  }
  i += n;
  return cp;
}

class Writer {
 public:
  Status flatten(const Value& v, TreePath& path);
  std::string encode();

 private:
  // One object of the file. Containers own a run of refs_: their items, or their keys followed
  // by their values.
  struct Object {
    Value value;
    size_t firstRef = 0;
  };

  Status share(const Value& v, ScalarKey key, uint64_t* index);
  Status shareBytes(const Value& v, bool isString, uint64_t* index);
  uint64_t add(const Value& v, size_t firstRef = 0) {
    objects_.push_back(Object{v, firstRef});
    return objects_.size() - 1;
  }
  Status flattenInto(const Value& v, size_t slot, TreePath& path);

  void putBig(uint64_t v, unsigned n) {
    for (unsigned i = n; i-- > 0;)
      out_.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
  }
  void putInteger(uint64_t v, bool negative);
  void putHeader(uint8_t kind, uint64_t count);
  void putString(std::string_view s);
  void putObject(const Object& o);

  std::vector<Object> objects_;
  std::vector<uint64_t> refs_;
  std::vector<const void*> open_;  // containers on the current path
  std::unordered_map<ScalarKey, uint64_t, ScalarKeyHash> scalars_;
  std::unordered_map<std::string_view, uint64_t, ViewHash> strings_;
  std::unordered_map<std::string_view, uint64_t, ViewHash> data_;
  unsigned refSize_ = 1;
  std::string out_;
};

Status Writer::share(const Value& v, ScalarKey key, uint64_t* index) {
  auto [it, inserted] = scalars_.try_emplace(key, objects_.size());
  if (inserted) add(v);
  *index = it->second;
  return Status();
}

Status Writer::shareBytes(const Value& v, bool isString, uint64_t* index) {
  auto& table = isString ? strings_ : data_;
  const std::string_view bytes =
      isString ? v.stringView()
               : std::string_view(reinterpret_cast<const char*>(v.dataView().data()),
                                  v.dataView().size());
  // The view points into the value's shared bytes, which objects_ keeps alive.
  auto [it, inserted] = table.try_emplace(bytes, objects_.size());
  if (inserted) add(v);
  *index = it->second;
  return Status();
}

Status Writer::flatten(const Value& root, TreePath& path) {
  refs_.push_back(0);
  return flattenInto(root, 0, path);
}

// Gives `v` an object number (sharing scalars seen before) and stores it in refs_[slot].
Status Writer::flattenInto(const Value& v, size_t slot, TreePath& path) {
  uint64_t index = 0;
  Status s;
  switch (v.type()) {
    case Type::kBoolean:
      s = share(v, ScalarKey{1, v.boolValue() ? 1u : 0u}, &index);
      break;
    case Type::kInteger:
      s = share(v,
                ScalarKey{static_cast<uint8_t>(v.isUnsigned() ? 3 : 2), v.unsignedLongLongValue()},
                &index);
      break;
    case Type::kReal:
      s = share(v, ScalarKey{4, std::bit_cast<uint64_t>(v.doubleValue())}, &index);
      break;
    case Type::kDate:
      s = share(v, ScalarKey{5, std::bit_cast<uint64_t>(v.dateValue().absoluteTime())}, &index);
      break;
    case Type::kString:
      s = shareBytes(v, true, &index);
      break;
    case Type::kData:
      s = shareBytes(v, false, &index);
      break;
    case Type::kArray:
    case Type::kDictionary: {
      const void* identity = v.isArray() ? static_cast<const void*>(v.asArray())
                                         : static_cast<const void*>(v.asDictionary());
      for (const void* o : open_) {
        if (o == identity) {
          return Status::error(
              paramErr, "a container that contains itself cannot be written, at " + path.text());
        }
      }
      if (open_.size() >= kMaxDepth) {
        return Status::error(paramErr, "nesting deeper than " + std::to_string(kMaxDepth) +
                                           " levels cannot be written, at " + path.text());
      }
      open_.push_back(identity);
      const size_t first = refs_.size();
      index = add(v, first);
      refs_[slot] = index;
      if (const Array* a = v.asArray()) {
        refs_.resize(first + a->size());
        for (size_t i = 0; i < a->size() && s.ok(); ++i) {
          path.pushIndex(i);
          s = flattenInto((*a)[i], first + i, path);
          path.pop();
        }
      } else {
        const Dictionary& d = *v.asDictionary();
        const size_t n = d.size();
        refs_.resize(first + 2 * n);
        for (size_t i = 0; i < n && s.ok(); ++i) {
          const Value& key = d.entryAt(i).key;
          if (!key.isString()) {
            return Status::error(paramErr, "a key that is not a string at " + path.text());
          }
          s = flattenInto(key, first + i, path);
        }
        for (size_t i = 0; i < n && s.ok(); ++i) {
          const Dictionary::Entry& e = d.entryAt(i);
          path.pushKey(e.key.stringView());
          s = flattenInto(e.value, first + n + i, path);
          path.pop();
        }
      }
      open_.pop_back();
      return s;
    }
    case Type::kNil:
    case Type::kObject:
      return Status::error(paramErr, std::string("a ") + std::string(typeName(v.type())) +
                                         " value cannot be written, at " + path.text());
  }
  refs_[slot] = index;
  return s;
}

void Writer::putInteger(uint64_t v, bool negative) {
  if (negative) {
    out_.push_back(0x13);
    putBig(v, 8);
  } else if (v > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
    // Above the signed range: 16 bytes, high half zero.
    out_.push_back(0x14);
    putBig(0, 8);
    putBig(v, 8);
  } else {
    const unsigned n = sizeFor(v);
    out_.push_back(static_cast<char>(0x10 | std::countr_zero(n)));
    putBig(v, n);
  }
}

// A marker with a count: in its low nibble when below 15, else 0xF and an integer object.
void Writer::putHeader(uint8_t kind, uint64_t count) {
  if (count < 15) {
    out_.push_back(static_cast<char>(kind | count));
  } else {
    out_.push_back(static_cast<char>(kind | 0x0F));
    putInteger(count, false);
  }
}

void Writer::putString(std::string_view s) {
  bool ascii = true;
  for (char c : s)
    ascii = ascii && (c & 0x80) == 0;
  if (ascii) {
    putHeader(0x50, s.size());
    out_.append(s);
    return;
  }
  std::vector<uint16_t> units;
  units.reserve(s.size());
  for (size_t i = 0; i < s.size();) {
    const uint32_t cp = nextCodePoint(s, i);
    if (cp >= 0x10000) {
      units.push_back(static_cast<uint16_t>(0xD800 + ((cp - 0x10000) >> 10)));
      units.push_back(static_cast<uint16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
    } else {
      units.push_back(static_cast<uint16_t>(cp));
    }
  }
  putHeader(0x60, units.size());
  for (uint16_t u : units)
    putBig(u, 2);
}

void Writer::putObject(const Object& o) {
  const Value& v = o.value;
  switch (v.type()) {
    case Type::kBoolean:
      out_.push_back(v.boolValue() ? 0x09 : 0x08);
      break;
    case Type::kInteger:
      putInteger(v.unsignedLongLongValue(), !v.isUnsigned() && v.longLongValue() < 0);
      break;
    case Type::kReal:
      out_.push_back(0x23);
      putBig(std::bit_cast<uint64_t>(v.doubleValue()), 8);
      break;
    case Type::kDate:
      out_.push_back(0x33);
      putBig(std::bit_cast<uint64_t>(v.dateValue().absoluteTime()), 8);
      break;
    case Type::kString:
      putString(v.stringView());
      break;
    case Type::kData: {
      const auto bytes = v.dataView();
      putHeader(0x40, bytes.size());
      out_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
      break;
    }
    case Type::kArray: {
      const size_t n = v.asArray()->size();
      putHeader(0xA0, n);
      for (size_t i = 0; i < n; ++i)
        putBig(refs_[o.firstRef + i], refSize_);
      break;
    }
    case Type::kDictionary: {
      const size_t n = v.asDictionary()->size();
      putHeader(0xD0, n);
      for (size_t i = 0; i < 2 * n; ++i)
        putBig(refs_[o.firstRef + i], refSize_);
      break;
    }
    case Type::kNil:
    case Type::kObject:
      break;  // refused while flattening
  }
}

std::string Writer::encode() {
  refSize_ = sizeFor(objects_.size() - 1);
  std::vector<uint64_t> offsets;
  offsets.reserve(objects_.size());
  out_.append("bplist00");
  for (const Object& o : objects_) {
    offsets.push_back(out_.size());
    putObject(o);
  }
  const uint64_t tableOffset = out_.size();
  const unsigned offsetSize = sizeFor(offsets.back());
  for (uint64_t off : offsets)
    putBig(off, offsetSize);
  out_.append(6, '\0');  // unused, sort version
  out_.push_back(static_cast<char>(offsetSize));
  out_.push_back(static_cast<char>(refSize_));
  putBig(objects_.size(), 8);
  putBig(refs_[0], 8);  // the top object
  putBig(tableOffset, 8);
  return std::move(out_);
}

}  // namespace

Result<std::string> BinaryWriter::write(const Value& root) {
  Writer w;
  TreePath path;
  if (Status s = w.flatten(root, path); !s.ok()) return s;
  return w.encode();
}

}  // namespace rvitunes::plist
