#include "rvitunes/ae/Descriptor.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>

#include "rvitunes/ae/Coercion.h"
#include "rvitunes/ae/Wire.h"

namespace rvitunes::ae {

struct Descriptor::Container {
  struct Item {
    AEKeyword key;
    Descriptor value;
  };
  using Items = std::vector<Item>;

  Items items;       // list items (key '****'), record items, event parameters
  Items attributes;  // events only; 'addr' first
  AEEventClass eventClass = 0;
  AEEventID eventID = 0;
  AEReturnID returnID = 0;
  AETransactionID transactionID = 0;

  static Item* find(Items& items, AEKeyword key) {
    for (Item& item : items) {
      if (item.key == key) return &item;
    }
    return nullptr;
  }
  static const Item* find(const Items& items, AEKeyword key) {
    for (const Item& item : items) {
      if (item.key == key) return &item;
    }
    return nullptr;
  }
  // Replaces the value under `key` in place, or appends it.
  static void put(Items& items, AEKeyword key, Descriptor&& value) {
    if (Item* existing = find(items, key)) {
      existing->value = std::move(value);
    } else {
      items.push_back(Item{key, std::move(value)});
    }
  }
};

namespace {

bool isContainerType(DescType type) {
  return type == typeAEList || type == typeAERecord || type == typeAppleEvent;
}

template <class T>
Descriptor makeScalar(DescType type, T value) {
  uint8_t bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));
  return Descriptor::fromBytes(type, bytes);
}

AEReturnID nextReturnID() {
  static std::atomic<uint32_t> counter{0};
  return static_cast<AEReturnID>(counter.fetch_add(1, std::memory_order_relaxed) % 32767 + 1);
}

// Copies the bytes of `value` to the caller's buffer with the AEGet...Ptr contract.
OSStatus copyOut(const Descriptor& value, DescType* actualType, void* buffer, size_t maxSize,
                 size_t* actualSize) {
  if (value.isContainer()) return errAEWrongDataType;
  if (actualType) *actualType = value.type();
  if (actualSize) *actualSize = value.dataSize();
  const size_t n = std::min(maxSize, value.dataSize());
  if (n > 0 && buffer) std::memcpy(buffer, value.data().data(), n);
  return noErr;
}

OSStatus coerceTo(const Descriptor& value, DescType desiredType, Descriptor* out) {
  if (desiredType == typeWildCard || desiredType == value.type()) {
    *out = value.duplicate();
    return noErr;
  }
  return coerceDesc(value, desiredType, out);
}

}  // namespace

Descriptor::Descriptor(Descriptor&& other) noexcept
    : type_(other.type_),
      kind_(other.kind_),
      depth_(other.depth_),
      data_(std::move(other.data_)),
      container_(std::move(other.container_)) {
  other.type_ = typeNull;
  other.kind_ = DescKind::kSimple;
  other.depth_ = 1;
  other.data_.clear();
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    type_ = other.type_;
    kind_ = other.kind_;
    depth_ = other.depth_;
    data_ = std::move(other.data_);
    container_ = std::move(other.container_);
    other.type_ = typeNull;
    other.kind_ = DescKind::kSimple;
    other.depth_ = 1;
    other.data_.clear();
  }
  return *this;
}

Descriptor::Descriptor() noexcept = default;
Descriptor::~Descriptor() = default;

Descriptor Descriptor::duplicate() const {
  Descriptor copy;
  copy.type_ = type_;
  copy.kind_ = kind_;
  copy.depth_ = depth_;
  copy.data_ = data_;
  if (container_) {
    copy.container_ = std::make_unique<Container>();
    Container& c = *copy.container_;
    c.eventClass = container_->eventClass;
    c.eventID = container_->eventID;
    c.returnID = container_->returnID;
    c.transactionID = container_->transactionID;
    c.items.reserve(container_->items.size());
    for (const Container::Item& item : container_->items) {
      c.items.push_back(Container::Item{item.key, item.value.duplicate()});
    }
    c.attributes.reserve(container_->attributes.size());
    for (const Container::Item& item : container_->attributes) {
      c.attributes.push_back(Container::Item{item.key, item.value.duplicate()});
    }
  }
  return copy;
}

// ---- Construction ---------------------------------------------------------------------------

OSStatus Descriptor::create(DescType type, const void* data, size_t size, Descriptor* out) {
  *out = Descriptor();
  if (isContainerType(type) || (data == nullptr && size != 0)) return paramErr;
  if (size > kMaxDescriptorDataSize) return memFullErr;
  Descriptor result;
  result.type_ = type;
  const auto* bytes = static_cast<const uint8_t*>(data);
  if (size > 0) result.data_.assign(bytes, bytes + size);
  *out = std::move(result);
  return noErr;
}

Descriptor Descriptor::fromBytes(DescType type, std::span<const uint8_t> data) {
  Descriptor result;
  (void)create(type, data.data(), data.size(), &result);
  return result;
}

Descriptor Descriptor::makeList() {
  Descriptor result;
  result.type_ = typeAEList;
  result.kind_ = DescKind::kList;
  result.container_ = std::make_unique<Container>();
  return result;
}

Descriptor Descriptor::makeRecord(DescType type) {
  Descriptor result;
  result.type_ = (type == typeAEList || type == typeAppleEvent) ? typeAERecord : type;
  result.kind_ = DescKind::kRecord;
  result.container_ = std::make_unique<Container>();
  return result;
}

Descriptor Descriptor::makeAppleEvent(AEEventClass eventClass, AEEventID eventID,
                                      const Descriptor& target, AEReturnID returnID,
                                      AETransactionID transactionID) {
  Descriptor result;
  result.type_ = typeAppleEvent;
  result.kind_ = DescKind::kAppleEvent;
  result.container_ = std::make_unique<Container>();
  Container& c = *result.container_;
  c.eventClass = eventClass;
  c.eventID = eventID;
  c.returnID = returnID == kAutoGenerateReturnID ? nextReturnID() : returnID;
  c.transactionID = transactionID;
  if (target.depth() < kMaxDescriptorDepth) {
    c.attributes.push_back(Container::Item{keyAddressAttr, target.duplicate()});
    result.depth_ = target.depth() + 1;
  } else {
    c.attributes.push_back(Container::Item{keyAddressAttr, Descriptor()});
    result.depth_ = 2;
  }
  return result;
}

Descriptor Descriptor::makeSInt16(int16_t value) {
  return makeScalar(typeSInt16, value);
}
Descriptor Descriptor::makeSInt32(int32_t value) {
  return makeScalar(typeSInt32, value);
}
Descriptor Descriptor::makeSInt64(int64_t value) {
  return makeScalar(typeSInt64, value);
}
Descriptor Descriptor::makeUInt32(uint32_t value) {
  return makeScalar(typeUInt32, value);
}
Descriptor Descriptor::makeFloat32(float value) {
  return makeScalar(typeIEEE32BitFloatingPoint, value);
}
Descriptor Descriptor::makeFloat64(double value) {
  return makeScalar(typeIEEE64BitFloatingPoint, value);
}
Descriptor Descriptor::makeBoolean(bool value) {
  return makeScalar(typeBoolean, static_cast<uint8_t>(value ? 1 : 0));
}
Descriptor Descriptor::makeCode(DescType type, OSType code) {
  return makeScalar(type, code);
}
Descriptor Descriptor::makeText(std::string_view bytes) {
  return fromBytes(typeChar, {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
}
Descriptor Descriptor::makeUnicodeText(std::string_view utf8) {
  return fromBytes(typeUnicodeText, utf8ToUtf16Host(utf8));
}
Descriptor Descriptor::makeUtf8Text(std::string_view utf8) {
  return fromBytes(typeUTF8Text, {reinterpret_cast<const uint8_t*>(utf8.data()), utf8.size()});
}
Descriptor Descriptor::makeLongDateTime(int64_t seconds) {
  return makeScalar(typeLongDateTime, seconds);
}

// ---- Inspection -----------------------------------------------------------------------------

OSStatus Descriptor::getData(void* buffer, size_t maxSize) const {
  if (isContainer()) return errAEWrongDataType;
  const size_t n = std::min(maxSize, data_.size());
  if (n > 0 && buffer) std::memcpy(buffer, data_.data(), n);
  return noErr;
}

OSStatus Descriptor::setType(DescType type) {
  switch (kind_) {
    case DescKind::kSimple:
      if (isContainerType(type)) return paramErr;
      break;
    case DescKind::kRecord:
      if (type == typeAEList || type == typeAppleEvent) return paramErr;
      break;
    case DescKind::kList:
    case DescKind::kAppleEvent:
      return errAEWrongDataType;
  }
  type_ = type;
  return noErr;
}

bool operator==(const Descriptor& a, const Descriptor& b) {
  if (a.kind_ != b.kind_ || a.type_ != b.type_ || a.data_ != b.data_) return false;
  if (!a.container_ || !b.container_) return !a.container_ && !b.container_;
  using Items = Descriptor::Container::Items;
  const auto sameItems = [](const Items& x, const Items& y) {
    if (x.size() != y.size()) return false;
    for (size_t i = 0; i < x.size(); ++i) {
      if (x[i].key != y[i].key || !(x[i].value == y[i].value)) return false;
    }
    return true;
  };
  const Descriptor::Container& x = *a.container_;
  const Descriptor::Container& y = *b.container_;
  return x.eventClass == y.eventClass && x.eventID == y.eventID && x.returnID == y.returnID &&
         x.transactionID == y.transactionID && sameItems(x.items, y.items) &&
         sameItems(x.attributes, y.attributes);
}

OSStatus Descriptor::checkDepthFor(const Descriptor& item) const {
  return item.depth_ + 1 > kMaxDescriptorDepth ? memFullErr : noErr;
}

void Descriptor::noteDepthOf(const Descriptor& item) {
  depth_ = std::max(depth_, item.depth_ + 1);
}

// ---- Lists and records ----------------------------------------------------------------------

OSStatus Descriptor::countItems(int32_t* count) const {
  if (!isContainer()) return errAENotAEDesc;
  if (count) *count = static_cast<int32_t>(container_->items.size());
  return noErr;
}

OSStatus Descriptor::getNthDesc(int32_t index, DescType desiredType, AEKeyword* key,
                                Descriptor* out) const {
  *out = Descriptor();
  if (!isContainer()) return errAENotAEDesc;
  if (index < 1 || static_cast<size_t>(index) > container_->items.size()) return errAEBadListItem;
  const Container::Item& item = container_->items[static_cast<size_t>(index) - 1];
  const OSStatus status = coerceTo(item.value, desiredType, out);
  if (status == noErr && key) *key = item.key;
  return status;
}

OSStatus Descriptor::getNthPtr(int32_t index, DescType desiredType, AEKeyword* key,
                               DescType* actualType, void* buffer, size_t maxSize,
                               size_t* actualSize) const {
  Descriptor value;
  const OSStatus status = getNthDesc(index, desiredType, key, &value);
  if (status != noErr) return status;
  return copyOut(value, actualType, buffer, maxSize, actualSize);
}

OSStatus Descriptor::putDesc(int32_t index, const Descriptor& item) {
  if (!isContainer()) return errAENotAEDesc;
  if (const OSStatus depth = checkDepthFor(item); depth != noErr) return depth;
  return putDesc(index, item.duplicate());
}

OSStatus Descriptor::putDesc(int32_t index, Descriptor&& item) {
  if (!isContainer()) return errAENotAEDesc;
  if (const OSStatus depth = checkDepthFor(item); depth != noErr) return depth;
  Container::Items& items = container_->items;
  if (index < 0 || static_cast<size_t>(index) > items.size() + 1) return errAEIllegalIndex;
  if (index == 0 || static_cast<size_t>(index) == items.size() + 1) {
    if (kind_ != DescKind::kList) return errAEWrongDataType;
    noteDepthOf(item);
    items.push_back(Container::Item{typeWildCard, std::move(item)});
  } else {
    noteDepthOf(item);
    items[static_cast<size_t>(index) - 1].value = std::move(item);
  }
  return noErr;
}

OSStatus Descriptor::putPtr(int32_t index, DescType type, const void* data, size_t size) {
  Descriptor item;
  if (const OSStatus status = create(type, data, size, &item); status != noErr) return status;
  return putDesc(index, std::move(item));
}

OSStatus Descriptor::deleteItem(int32_t index) {
  if (!isContainer()) return errAENotAEDesc;
  Container::Items& items = container_->items;
  if (index < 1 || static_cast<size_t>(index) > items.size()) return errAEBadListItem;
  items.erase(items.begin() + (index - 1));
  return noErr;
}

size_t Descriptor::itemCount() const {
  return container_ ? container_->items.size() : 0;
}

AEKeyword Descriptor::keyAt(size_t i) const {
  return container_->items.at(i).key;
}

const Descriptor& Descriptor::itemAt(size_t i) const {
  return container_->items.at(i).value;
}

// ---- Keyed items ----------------------------------------------------------------------------

OSStatus Descriptor::putParamDesc(AEKeyword key, const Descriptor& item) {
  if (kind_ != DescKind::kRecord && kind_ != DescKind::kAppleEvent) return errAEWrongDataType;
  if (const OSStatus depth = checkDepthFor(item); depth != noErr) return depth;
  return putParamDesc(key, item.duplicate());
}

OSStatus Descriptor::putParamDesc(AEKeyword key, Descriptor&& item) {
  if (kind_ != DescKind::kRecord && kind_ != DescKind::kAppleEvent) return errAEWrongDataType;
  if (const OSStatus depth = checkDepthFor(item); depth != noErr) return depth;
  noteDepthOf(item);
  Container::put(container_->items, key, std::move(item));
  return noErr;
}

OSStatus Descriptor::putParamPtr(AEKeyword key, DescType type, const void* data, size_t size) {
  if (kind_ != DescKind::kRecord && kind_ != DescKind::kAppleEvent) return errAEWrongDataType;
  Descriptor item;
  if (const OSStatus status = create(type, data, size, &item); status != noErr) return status;
  return putParamDesc(key, std::move(item));
}

const Descriptor* Descriptor::findParam(AEKeyword key) const {
  if (kind_ != DescKind::kRecord && kind_ != DescKind::kAppleEvent) return nullptr;
  const Container::Item* item = Container::find(container_->items, key);
  return item ? &item->value : nullptr;
}

OSStatus Descriptor::getParamDesc(AEKeyword key, DescType desiredType, Descriptor* out) const {
  *out = Descriptor();
  if (kind_ != DescKind::kRecord && kind_ != DescKind::kAppleEvent) return errAEWrongDataType;
  const Descriptor* item = findParam(key);
  if (!item) return errAEDescNotFound;
  return coerceTo(*item, desiredType, out);
}

OSStatus Descriptor::getParamPtr(AEKeyword key, DescType desiredType, DescType* actualType,
                                 void* buffer, size_t maxSize, size_t* actualSize) const {
  Descriptor value;
  const OSStatus status = getParamDesc(key, desiredType, &value);
  if (status != noErr) return status;
  return copyOut(value, actualType, buffer, maxSize, actualSize);
}

OSStatus Descriptor::sizeOfParam(AEKeyword key, DescType* type, size_t* size) const {
  if (kind_ != DescKind::kRecord && kind_ != DescKind::kAppleEvent) return errAEWrongDataType;
  const Descriptor* item = findParam(key);
  if (!item) return errAEDescNotFound;
  if (type) *type = item->type();
  if (size) *size = item->isContainer() ? flattenedSize(*item) : item->dataSize();
  return noErr;
}

OSStatus Descriptor::deleteParam(AEKeyword key) {
  if (kind_ != DescKind::kRecord && kind_ != DescKind::kAppleEvent) return errAEWrongDataType;
  Container::Items& items = container_->items;
  const auto it = std::find_if(items.begin(), items.end(),
                               [key](const Container::Item& item) { return item.key == key; });
  if (it == items.end()) return errAEDescNotFound;
  items.erase(it);
  return noErr;
}

// ---- Apple events ---------------------------------------------------------------------------

OSStatus Descriptor::getAttributeDesc(AEKeyword key, DescType desiredType, Descriptor* out) const {
  *out = Descriptor();
  if (!isAppleEvent()) return errAENotAppleEvent;
  const Container& c = *container_;
  Descriptor field;
  switch (key) {
    case keyEventClassAttr:
      field = makeType(c.eventClass);
      break;
    case keyEventIDAttr:
      field = makeType(c.eventID);
      break;
    case keyReturnIDAttr:
      field = makeSInt16(c.returnID);
      break;
    case keyTransactionIDAttr:
      field = makeSInt32(c.transactionID);
      break;
    default: {
      const Container::Item* item = Container::find(c.attributes, key);
      if (!item) return errAEDescNotFound;
      return coerceTo(item->value, desiredType, out);
    }
  }
  return coerceTo(field, desiredType, out);
}

OSStatus Descriptor::getAttributePtr(AEKeyword key, DescType desiredType, DescType* actualType,
                                     void* buffer, size_t maxSize, size_t* actualSize) const {
  Descriptor value;
  const OSStatus status = getAttributeDesc(key, desiredType, &value);
  if (status != noErr) return status;
  return copyOut(value, actualType, buffer, maxSize, actualSize);
}

OSStatus Descriptor::sizeOfAttribute(AEKeyword key, DescType* type, size_t* size) const {
  Descriptor value;
  const OSStatus status = getAttributeDesc(key, typeWildCard, &value);
  if (status != noErr) return status;
  if (type) *type = value.type();
  if (size) *size = value.isContainer() ? flattenedSize(value) : value.dataSize();
  return noErr;
}

OSStatus Descriptor::putAttributeDesc(AEKeyword key, const Descriptor& value) {
  if (!isAppleEvent()) return errAENotAppleEvent;
  Container& c = *container_;
  Descriptor converted;
  switch (key) {
    case keyEventClassAttr:
    case keyEventIDAttr: {
      if (const OSStatus s = coerceTo(value, typeType, &converted); s != noErr) return s;
      if (converted.dataSize() != 4) return errAECoercionFail;
      OSType code;
      std::memcpy(&code, converted.data().data(), 4);
      (key == keyEventClassAttr ? c.eventClass : c.eventID) = code;
      return noErr;
    }
    case keyReturnIDAttr: {
      if (const OSStatus s = coerceTo(value, typeSInt16, &converted); s != noErr) return s;
      if (converted.dataSize() != sizeof(c.returnID)) return errAECoercionFail;
      std::memcpy(&c.returnID, converted.data().data(), sizeof(c.returnID));
      return noErr;
    }
    case keyTransactionIDAttr: {
      if (const OSStatus s = coerceTo(value, typeSInt32, &converted); s != noErr) return s;
      if (converted.dataSize() != sizeof(c.transactionID)) return errAECoercionFail;
      std::memcpy(&c.transactionID, converted.data().data(), sizeof(c.transactionID));
      return noErr;
    }
    default:
      if (const OSStatus depth = checkDepthFor(value); depth != noErr) return depth;
      noteDepthOf(value);
      Container::put(c.attributes, key, value.duplicate());
      return noErr;
  }
}

OSStatus Descriptor::putAttributePtr(AEKeyword key, DescType type, const void* data, size_t size) {
  if (!isAppleEvent()) return errAENotAppleEvent;
  Descriptor value;
  if (const OSStatus status = create(type, data, size, &value); status != noErr) return status;
  return putAttributeDesc(key, value);
}

OSStatus Descriptor::deleteAttribute(AEKeyword key) {
  if (!isAppleEvent()) return errAENotAppleEvent;
  if (key == keyEventClassAttr || key == keyEventIDAttr || key == keyReturnIDAttr ||
      key == keyTransactionIDAttr) {
    return paramErr;
  }
  Container::Items& attrs = container_->attributes;
  const auto it = std::find_if(attrs.begin(), attrs.end(),
                               [key](const Container::Item& item) { return item.key == key; });
  if (it == attrs.end()) return errAEDescNotFound;
  attrs.erase(it);
  return noErr;
}

AEEventClass Descriptor::eventClass() const {
  return isAppleEvent() ? container_->eventClass : 0;
}
AEEventID Descriptor::eventID() const {
  return isAppleEvent() ? container_->eventID : 0;
}
AEReturnID Descriptor::returnID() const {
  return isAppleEvent() ? container_->returnID : 0;
}
AETransactionID Descriptor::transactionID() const {
  return isAppleEvent() ? container_->transactionID : 0;
}

const Descriptor& Descriptor::address() const {
  if (!isAppleEvent()) return nullDescriptor();
  const Container::Item* item = Container::find(container_->attributes, keyAddressAttr);
  return item ? item->value : nullDescriptor();
}

size_t Descriptor::attributeCount() const {
  return isAppleEvent() ? container_->attributes.size() : 0;
}
AEKeyword Descriptor::attributeKeyAt(size_t i) const {
  return container_->attributes.at(i).key;
}
const Descriptor& Descriptor::attributeAt(size_t i) const {
  return container_->attributes.at(i).value;
}

const Descriptor& nullDescriptor() {
  static const Descriptor kNull;
  return kNull;
}

void disposeDesc(Descriptor* desc) {
  if (desc) *desc = Descriptor();
}

}  // namespace rvitunes::ae
