// The flattened form. Writing computes every size first, then fills a buffer of exactly that
// size; reading walks the bytes with a cursor that checks each length against what is left.
#include "rvitunes/ae/Wire.h"

#include <bit>
#include <cstring>
#include <string>

namespace rvitunes::ae {

namespace {

constexpr uint32_t kHeaderMagic = fourCharCode("dle2");
constexpr uint32_t kLongFormBlock = 0x18;
constexpr uint32_t kEventVersion = 1;
// Bit 31 of a size field: the descriptor has the other shape than its type usually has (a
// record of a type that is normally simple, or bytes under a record type).
constexpr uint32_t kShapeFlag = 0x80000000u;
constexpr size_t kLongFormHeader = 24;  // after the size field
constexpr size_t kShortFormHeader = 8;
constexpr size_t kEventHeader = 28;

constexpr DescType kStandardRecordTypes[] = {
    typeAERecord,        typeObjectSpecifier, typeCompDescriptor,  typeLogicalDescriptor,
    typeRangeDescriptor, typeInsertionLoc,    typeWhoseDescriptor, typeWhoseRange};

bool isStandardRecordType(DescType type) {
  for (const DescType t : kStandardRecordTypes) {
    if (t == type) return true;
  }
  return false;
}

// How the data of a simple descriptor is swapped between host order and big-endian: `unit`
// bytes at a time when the data has `size` bytes (0: any multiple of the unit).
struct SwapRule {
  size_t unit;
  size_t size;
};

std::optional<SwapRule> swapRule(DescType type) {
  switch (type) {
    case typeSInt16:
    case typeUInt16:
      return SwapRule{2, 2};
    case typeSInt32:
    case typeUInt32:
    case typeIEEE32BitFloatingPoint:
    case typeKernelProcessID:
    case typeType:
    case typeEnumerated:
    case typeKeyword:
    case typeProperty:
    case typeApplSignature:
    case typeAbsoluteOrdinal:
      return SwapRule{4, 4};
    case typeSInt64:
    case typeUInt64:
    case typeIEEE64BitFloatingPoint:
    case typeLongDateTime:
      return SwapRule{8, 8};
    case typeProcessSerialNumber:
      return SwapRule{4, 8};
    case typeUnicodeText:
      return SwapRule{2, 0};
    default:
      return std::nullopt;
  }
}

// Copies `data` to `out`, turning host order into big-endian (or back: the same operation).
void copySwapped(DescType type, std::span<const uint8_t> data, uint8_t* out) {
  if (data.empty()) return;
  std::memcpy(out, data.data(), data.size());
  if constexpr (std::endian::native == std::endian::big) return;
  const std::optional<SwapRule> rule = swapRule(type);
  if (!rule || (rule->size != 0 && data.size() != rule->size)) return;
  const size_t whole = data.size() - data.size() % rule->unit;  // an odd last byte stays
  for (size_t i = 0; i < whole; i += rule->unit) {
    for (size_t a = i, b = i + rule->unit - 1; a < b; ++a, --b)
      std::swap(out[a], out[b]);
  }
}

// ---- Writing --------------------------------------------------------------------------------

size_t sizeOf(const Descriptor& desc, bool topLevel);

size_t itemsSize(const Descriptor& desc, bool keyed) {
  size_t total = 0;
  for (size_t i = 0; i < desc.itemCount(); ++i) {
    total += (keyed ? 4 : 0) + sizeOf(desc.itemAt(i), false);
  }
  return total;
}

size_t attributesSize(const Descriptor& event) {
  size_t total = 0;
  for (size_t i = 0; i < event.attributeCount(); ++i) {
    total += 4 + sizeOf(event.attributeAt(i), false);
  }
  return total;
}

bool usesLongForm(const Descriptor& desc, bool topLevel) {
  return topLevel && (desc.isList() || (desc.isRecord() && desc.type() == typeAERecord));
}

size_t sizeOf(const Descriptor& desc, bool topLevel) {
  switch (desc.kind()) {
    case DescKind::kSimple:
      return 8 + desc.dataSize() + (desc.dataSize() & 1);
    case DescKind::kList:
    case DescKind::kRecord:
      return 8 + (usesLongForm(desc, topLevel) ? kLongFormHeader : kShortFormHeader) +
             itemsSize(desc, desc.isRecord());
    case DescKind::kAppleEvent:
      return 8 + kEventHeader + attributesSize(desc) + itemsSize(desc, true);
  }
  return 0;
}

class Writer {
 public:
  explicit Writer(uint8_t* out) : out_(out) {}
  void u32(uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8)
      out_[pos_++] = static_cast<uint8_t>(v >> shift);
  }
  void u16(uint16_t v) {
    out_[pos_++] = static_cast<uint8_t>(v >> 8);
    out_[pos_++] = static_cast<uint8_t>(v);
  }
  void data(DescType type, std::span<const uint8_t> bytes) {
    copySwapped(type, bytes, out_ + pos_);
    pos_ += bytes.size();
    if (bytes.size() & 1) out_[pos_++] = 0;
  }
  size_t position() const { return pos_; }

 private:
  uint8_t* out_;
  size_t pos_ = 0;
};

void write(Writer& w, const Descriptor& desc, bool topLevel) {
  const size_t size = sizeOf(desc, topLevel) - 8;
  w.u32(desc.type());
  switch (desc.kind()) {
    case DescKind::kSimple:
      w.u32(static_cast<uint32_t>(desc.dataSize()) |
            (isStandardRecordType(desc.type()) ? kShapeFlag : 0));
      w.data(desc.type(), desc.data());
      return;
    case DescKind::kList:
    case DescKind::kRecord: {
      const bool keyed = desc.isRecord();
      const bool flagged = keyed && !isStandardRecordType(desc.type());
      w.u32(static_cast<uint32_t>(size) | (flagged ? kShapeFlag : 0));
      if (usesLongForm(desc, topLevel)) {
        w.u32(0);
        w.u32(0);
        w.u32(kLongFormBlock);
        w.u32(desc.type());
      }
      w.u32(static_cast<uint32_t>(desc.itemCount()));
      w.u32(0);
      for (size_t i = 0; i < desc.itemCount(); ++i) {
        if (keyed) w.u32(desc.keyAt(i));
        write(w, desc.itemAt(i), false);
      }
      return;
    }
    case DescKind::kAppleEvent:
      w.u32(static_cast<uint32_t>(size));
      w.u32(kEventVersion);
      w.u32(desc.eventClass());
      w.u32(desc.eventID());
      w.u16(static_cast<uint16_t>(desc.returnID()));
      w.u16(0);
      w.u32(static_cast<uint32_t>(desc.transactionID()));
      w.u32(static_cast<uint32_t>(desc.attributeCount()));
      w.u32(static_cast<uint32_t>(desc.itemCount()));
      for (size_t i = 0; i < desc.attributeCount(); ++i) {
        w.u32(desc.attributeKeyAt(i));
        write(w, desc.attributeAt(i), false);
      }
      for (size_t i = 0; i < desc.itemCount(); ++i) {
        w.u32(desc.keyAt(i));
        write(w, desc.itemAt(i), false);
      }
      return;
  }
}

// ---- Reading --------------------------------------------------------------------------------

class Reader {
 public:
  Reader(std::span<const uint8_t> bytes, const WireLimits& limits)
      : bytes_(bytes), limits_(limits) {}

  Result<Descriptor> readAll() {
    if (bytes_.size() > limits_.maxInputBytes) {
      return Status::error(memFullErr, "offset 0: input of " + std::to_string(bytes_.size()) +
                                           " bytes is over the limit");
    }
    uint32_t magic = 0, reserved = 0;
    if (!u32(&magic) || !u32(&reserved)) return error_;
    if (magic != kHeaderMagic) return corrupt(0, "not a flattened descriptor (no 'dle2')");
    if (reserved != 0) return corrupt(4, "non-zero header field");
    Descriptor result;
    bool odd = false;
    if (!readDesc(&result, true, 0, &odd)) return error_;
    if (odd && bytes_.size() - pos_ == 1) ++pos_;  // the pad of odd data at the very end
    if (pos_ != bytes_.size()) return corrupt(pos_, "bytes after the descriptor");
    return result;
  }

 private:
  size_t left() const { return bytes_.size() - pos_; }

  bool fail(OSStatus code, size_t offset, const std::string& reason) {
    error_ = Status::error(code, "offset " + std::to_string(offset) + ": " + reason);
    return false;
  }
  Status corrupt(size_t offset, const std::string& reason) {
    fail(errAECorruptData, offset, reason);
    return error_;
  }

  bool u32(uint32_t* v) {
    if (left() < 4) return fail(errAECorruptData, pos_, "truncated");
    *v = static_cast<uint32_t>(bytes_[pos_]) << 24 | static_cast<uint32_t>(bytes_[pos_ + 1]) << 16 |
         static_cast<uint32_t>(bytes_[pos_ + 2]) << 8 | bytes_[pos_ + 3];
    pos_ += 4;
    return true;
  }
  bool u16(uint16_t* v) {
    if (left() < 2) return fail(errAECorruptData, pos_, "truncated");
    *v = static_cast<uint16_t>(bytes_[pos_] << 8 | bytes_[pos_ + 1]);
    pos_ += 2;
    return true;
  }

  bool countItems(uint32_t count, size_t room, size_t minItemSize, size_t at) {
    if (count > room / minItemSize) {
      return fail(errAECorruptData, at,
                  "item count " + std::to_string(count) + " cannot fit in " + std::to_string(room) +
                      " bytes");
    }
    if (count > limits_.maxItems - items_) {
      return fail(memFullErr, at, "more items than the limit");
    }
    items_ += count;
    return true;
  }

  // One descriptor; *odd tells whether its data had an odd length (for the final pad).
  bool readDesc(Descriptor* out, bool topLevel, uint32_t depth, bool* odd) {
    const size_t start = pos_;
    if (depth >= limits_.maxDepth) return fail(memFullErr, start, "nesting deeper than the limit");
    uint32_t type = 0, sizeField = 0;
    if (!u32(&type) || !u32(&sizeField)) return false;
    const bool flagged = (sizeField & kShapeFlag) != 0;
    const size_t size = sizeField & ~kShapeFlag;
    if (size > left()) {
      return fail(errAECorruptData, start + 4,
                  "size " + std::to_string(size) + " runs past the end (" + std::to_string(left()) +
                      " bytes left)");
    }
    const size_t end = pos_ + size;
    *odd = false;

    if (type == typeAppleEvent) {
      if (flagged) return fail(errAECorruptData, start + 4, "an event cannot be simple data");
      return readEvent(out, end, depth) && finish(end, start);
    }
    const bool isList = type == typeAEList;
    const bool isRecord = type == typeAERecord || (isStandardRecordType(type) != flagged);
    if (!isList && !isRecord) {
      if (size > kMaxDescriptorDataSize) {
        return fail(memFullErr, start + 4, "data of " + std::to_string(size) + " bytes");
      }
      std::vector<uint8_t> data(size);
      copySwapped(type, bytes_.subspan(pos_, size), data.data());
      pos_ += size;
      *out = Descriptor::fromBytes(type, data);
      if (size & 1) {
        *odd = true;
        if (!topLevel) {
          if (left() < 1) return fail(errAECorruptData, pos_, "missing pad byte");
          ++pos_;
        }
      }
      return true;
    }
    if ((type == typeAEList || type == typeAERecord) && flagged) {
      return fail(errAECorruptData, start + 4, "a list or record cannot be simple data");
    }

    if (topLevel && (isList || type == typeAERecord)) {
      uint32_t zero1 = 0, zero2 = 0, block = 0, again = 0;
      if (!u32(&zero1) || !u32(&zero2) || !u32(&block) || !u32(&again)) return false;
      if (block != kLongFormBlock) return fail(errAECorruptData, pos_ - 8, "bad long-form block");
      if (again != type) return fail(errAECorruptData, pos_ - 4, "long-form type differs");
    }
    uint32_t count = 0, reserved = 0;
    if (!u32(&count) || !u32(&reserved)) return false;
    if (pos_ > end) return fail(errAECorruptData, start + 4, "size too small for its header");
    if (!countItems(count, end - pos_, isList ? 8 : 12, pos_ - 8)) return false;

    Descriptor container = isList ? Descriptor::makeList() : Descriptor::makeRecord(type);
    for (uint32_t i = 0; i < count; ++i) {
      AEKeyword key = 0;
      if (!isList && !u32(&key)) return false;
      const size_t itemStart = pos_;
      Descriptor item;
      bool itemOdd = false;
      if (!readDesc(&item, false, depth + 1, &itemOdd)) return false;
      if (pos_ > end) return fail(errAECorruptData, itemStart, "item runs past its container");
      const OSStatus status = isList ? container.putDesc(0, std::move(item))
                                     : container.putParamDesc(key, std::move(item));
      if (status != noErr) return fail(status, itemStart, "item cannot be stored");
    }
    *out = std::move(container);
    return finish(end, start);
  }

  bool readEvent(Descriptor* out, size_t end, uint32_t depth) {
    const size_t headerAt = pos_;
    uint32_t version = 0, eventClass = 0, eventID = 0, tran = 0, attrCount = 0, paramCount = 0;
    uint16_t returnID = 0, pad = 0;
    if (!u32(&version) || !u32(&eventClass) || !u32(&eventID) || !u16(&returnID) || !u16(&pad) ||
        !u32(&tran) || !u32(&attrCount) || !u32(&paramCount)) {
      return false;
    }
    if (version != kEventVersion) {
      return fail(errAECorruptData, headerAt, "unknown event layout " + std::to_string(version));
    }
    if (pos_ > end) return fail(errAECorruptData, headerAt, "size too small for an event");
    if (static_cast<uint64_t>(attrCount) + paramCount > (end - pos_) / 12) {
      return fail(errAECorruptData, pos_ - 8, "item counts cannot fit");
    }
    if (!countItems(attrCount + paramCount, end - pos_, 12, pos_ - 8)) return false;
    Descriptor event = Descriptor::makeAppleEvent(eventClass, eventID, Descriptor(), 0,
                                                  static_cast<int32_t>(tran));
    const auto rtid = static_cast<AEReturnID>(returnID);
    event.putAttributePtr(keyReturnIDAttr, typeSInt16, &rtid, sizeof rtid);
    for (uint32_t i = 0; i < attrCount + paramCount; ++i) {
      const size_t keyAt = pos_;
      AEKeyword key = 0;
      if (!u32(&key)) return false;
      Descriptor item;
      bool odd = false;
      if (!readDesc(&item, false, depth + 1, &odd)) return false;
      if (pos_ > end) return fail(errAECorruptData, keyAt, "item runs past its event");
      OSStatus status;
      if (i < attrCount) {
        if (key == keyEventClassAttr || key == keyEventIDAttr || key == keyReturnIDAttr ||
            key == keyTransactionIDAttr) {
          return fail(errAECorruptData, keyAt, "header field repeated as an attribute");
        }
        status = event.putAttributeDesc(key, item);
      } else {
        status = event.putParamDesc(key, std::move(item));
      }
      if (status != noErr) return fail(status, keyAt, "item cannot be stored");
    }
    *out = std::move(event);
    return true;
  }

  // The container's size must be exactly what its items used.
  bool finish(size_t end, size_t start) {
    if (pos_ != end) {
      return fail(errAECorruptData, start + 4,
                  "size says " + std::to_string(end - start - 8) + " bytes, items use " +
                      std::to_string(pos_ - start - 8));
    }
    return true;
  }

  std::span<const uint8_t> bytes_;
  WireLimits limits_;
  size_t pos_ = 0;
  uint32_t items_ = 0;
  Status error_;
};

}  // namespace

size_t flattenedSize(const Descriptor& desc) {
  return 8 + sizeOf(desc, true);
}

Result<std::vector<uint8_t>> flatten(const Descriptor& desc) {
  const size_t size = flattenedSize(desc);
  if (size > WireLimits().maxInputBytes) {
    return Status::error(
        memFullErr, "flattened descriptor of " + std::to_string(size) + " bytes is over the limit");
  }
  std::vector<uint8_t> out(size);
  (void)flattenInto(desc, out, nullptr);
  return out;
}

OSStatus flattenInto(const Descriptor& desc, std::span<uint8_t> buffer, size_t* written) {
  const size_t size = flattenedSize(desc);
  if (size > WireLimits().maxInputBytes) return memFullErr;
  if (buffer.size() < size) return errAEBufferTooSmall;
  Writer w(buffer.data());
  w.u32(kHeaderMagic);
  w.u32(0);
  write(w, desc, true);
  if (written) *written = w.position();
  return noErr;
}

Result<Descriptor> unflatten(std::span<const uint8_t> bytes, const WireLimits& limits) {
  Reader reader(bytes, limits);
  return reader.readAll();
}

}  // namespace rvitunes::ae
