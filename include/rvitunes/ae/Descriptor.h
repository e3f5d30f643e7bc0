// Descriptor: the value every Apple Event is made of. A descriptor is one of
//   - simple: a type code and bytes (numbers in host byte order, 4-character codes of the types
//     'type', 'enum', 'keyw', 'prop', 'sign', 'abso' as a host-order 32-bit value, 'utxt' as
//     UTF-16 in host order); the null descriptor is type 'null' without bytes;
//   - a list ('list') of descriptors;
//   - a record: keyed descriptors in insertion order, of type 'reco' or any other record type
//     ('obj ', 'cmpd', 'logi', 'rang', 'insl', ...);
//   - an Apple event ('aevt'): class, ID, return ID, transaction ID, attributes (the target
//     address under 'addr' among them) and parameters, both keyed and in insertion order.
//
// Operations keep the platform's contracts and error numbers (the platform's function is named
// beside each). Failures leave the output descriptors null and the receiver unchanged.
// Ownership: a Descriptor owns its bytes and items; it is move-only, duplicate() makes a deep
// copy. Thread safety: const members may run concurrently; any mutation needs exclusive access.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "rvitunes/ae/AECodes.h"
#include "rvitunes/base/OSStatus.h"

namespace rvitunes::ae {

// Largest data of one simple descriptor; a bigger one is refused with memFullErr.
inline constexpr size_t kMaxDescriptorDataSize = size_t{64} << 20;
// Deepest nesting of lists, records and events (a simple descriptor has depth 1, a list of
// simple descriptors depth 2). Inserting an item that would go deeper fails with memFullErr.
inline constexpr uint32_t kMaxDescriptorDepth = 64;

enum class DescKind : uint8_t { kSimple, kList, kRecord, kAppleEvent };

class Descriptor {
 public:
  // The null descriptor.
  Descriptor() noexcept;
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor();

  // A deep, independent copy.
  Descriptor duplicate() const;

  // ---- Construction -------------------------------------------------------------------------

  // A simple descriptor holding a copy of `data` (AECreateDesc). memFullErr when `size` is over
  // kMaxDescriptorDataSize; paramErr for a null `data` with a non-zero size and for the types
  // 'list', 'reco' and 'aevt' (use makeList / makeRecord / makeAppleEvent). *out is set to the
  // result, or to null on failure; `out` must not be null.
  static OSStatus create(DescType type, const void* data, size_t size, Descriptor* out);
  // As create(), for callers that cannot fail on a correct type: bytes over the size bound or a
  // container type give the null descriptor.
  static Descriptor fromBytes(DescType type, std::span<const uint8_t> data);

  static Descriptor makeList();
  // An empty record of `type` ('reco' by default; 'obj ', 'cmpd', ... for typed records).
  static Descriptor makeRecord(DescType type = typeAERecord);
  // An Apple event (AECreateAppleEvent). `target` becomes the 'addr' attribute (copied).
  // kAutoGenerateReturnID gives a return ID unique within the process (1...32767, wrapping).
  static Descriptor makeAppleEvent(AEEventClass eventClass, AEEventID eventID,
                                   const Descriptor& target, AEReturnID returnID,
                                   AETransactionID transactionID);

  // Simple values. Numbers in host order; codes as a host-order 32-bit value.
  static Descriptor makeSInt16(int16_t value);
  static Descriptor makeSInt32(int32_t value);
  static Descriptor makeSInt64(int64_t value);
  static Descriptor makeUInt32(uint32_t value);
  static Descriptor makeFloat32(float value);
  static Descriptor makeFloat64(double value);
  static Descriptor makeBoolean(bool value);  // 'bool', one byte 0 or 1
  // A 4-character code of `type` ('type', 'enum', 'keyw', 'prop', 'sign', 'abso', ...).
  static Descriptor makeCode(DescType type, OSType code);
  static Descriptor makeType(OSType code) { return makeCode(typeType, code); }
  static Descriptor makeEnum(OSType code) { return makeCode(typeEnumerated, code); }
  // 'TEXT' holding `bytes` as given.
  static Descriptor makeText(std::string_view bytes);
  // 'utxt' holding `utf8` as UTF-16 in host order, without a byte-order mark. Invalid UTF-8
  // sequences become U+FFFD.
  static Descriptor makeUnicodeText(std::string_view utf8);
  // 'utf8' holding `utf8` as given.
  static Descriptor makeUtf8Text(std::string_view utf8);
  // 'ldt ': seconds since 1904-01-01 00:00:00.
  static Descriptor makeLongDateTime(int64_t seconds);

  // ---- Inspection ---------------------------------------------------------------------------

  DescType type() const { return type_; }
  DescKind kind() const { return kind_; }
  bool isNull() const { return kind_ == DescKind::kSimple && type_ == typeNull; }
  bool isList() const { return kind_ == DescKind::kList; }
  // Records of any record type; an Apple event is not a record here.
  bool isRecord() const { return kind_ == DescKind::kRecord; }
  bool isAppleEvent() const { return kind_ == DescKind::kAppleEvent; }
  // Lists, records and events hold items; simple descriptors hold bytes.
  bool isContainer() const { return kind_ != DescKind::kSimple; }

  // The bytes of a simple descriptor (empty for containers) (AEGetDescData).
  std::span<const uint8_t> data() const { return {data_.data(), data_.size()}; }
  size_t dataSize() const { return data_.size(); }  // AEGetDescDataSize
  // Copies at most `maxSize` bytes into `buffer` (AEGetDescData). errAEWrongDataType for a
  // container.
  OSStatus getData(void* buffer, size_t maxSize) const;
  // Nesting depth: 1 for a simple descriptor, 1 + the deepest item for containers (an upper
  // bound after deletions).
  uint32_t depth() const { return depth_; }

  // Replaces the type code of a simple descriptor or a record, keeping the bytes or items.
  // A record may only take a record type other than 'list' and 'aevt'; a simple descriptor any
  // type but 'list', 'reco' and 'aevt'. paramErr otherwise, errAEWrongDataType for lists and
  // events.
  OSStatus setType(DescType type);

  // Deep equality: kind, type, bytes, items with their keys in order, event fields and
  // attributes.
  friend bool operator==(const Descriptor& a, const Descriptor& b);

  // ---- Lists and records (items numbered from 1) -------------------------------------------
  // On an Apple event these address its parameters, as on the platform.

  // Number of items (AECountItems). errAENotAEDesc for a simple descriptor.
  OSStatus countItems(int32_t* count) const;
  // Item `index` coerced to `desiredType` ('****': as it is) (AEGetNthDesc). `key` (may be
  // null) receives the item's keyword, '****' for list items. errAENotAEDesc for a simple
  // descriptor, errAEBadListItem for an index out of 1...count, errAECoercionFail.
  OSStatus getNthDesc(int32_t index, DescType desiredType, AEKeyword* key, Descriptor* out) const;
  // Item `index` coerced to `desiredType`, its bytes copied into `buffer` (AEGetNthPtr). At most
  // `maxSize` bytes are copied; *actualSize receives the full size. `key`, `actualType`,
  // `actualSize` may be null. errAEWrongDataType when the item is itself a container.
  OSStatus getNthPtr(int32_t index, DescType desiredType, AEKeyword* key, DescType* actualType,
                     void* buffer, size_t maxSize, size_t* actualSize) const;
  // Stores `item` at `index` (AEPutDesc): replaces an existing item, appends for 0 or count+1;
  // errAEIllegalIndex otherwise. On a record the replaced item keeps its key; appending to a
  // record is errAEWrongDataType (records take keyed puts). memFullErr when too deep.
  OSStatus putDesc(int32_t index, const Descriptor& item);
  OSStatus putDesc(int32_t index, Descriptor&& item);
  OSStatus putPtr(int32_t index, DescType type, const void* data, size_t size);  // AEPutPtr
  // Removes item `index` (AEDeleteItem). errAEBadListItem out of range.
  OSStatus deleteItem(int32_t index);

  // Direct read access for walking a container: item `i` counted from 0, i < itemCount().
  size_t itemCount() const;
  AEKeyword keyAt(size_t i) const;  // '****' for list items
  const Descriptor& itemAt(size_t i) const;

  // ---- Keyed items: records and event parameters --------------------------------------------

  // Adds or replaces the item under `key`; a replaced item keeps its position (AEPutParamDesc,
  // AEPutKeyDesc). errAEWrongDataType on a simple descriptor or a list.
  OSStatus putParamDesc(AEKeyword key, const Descriptor& item);
  OSStatus putParamDesc(AEKeyword key, Descriptor&& item);
  OSStatus putParamPtr(AEKeyword key, DescType type, const void* data, size_t size);
  // The item under `key` coerced to `desiredType` (AEGetParamDesc). errAEDescNotFound when
  // absent, errAECoercionFail when the coercion fails, errAEWrongDataType on a simple
  // descriptor or a list.
  OSStatus getParamDesc(AEKeyword key, DescType desiredType, Descriptor* out) const;
  // As getParamDesc, copying at most `maxSize` bytes of the result into `buffer` and reporting
  // the full size in *actualSize (AEGetParamPtr). `actualType` and `actualSize` may be null.
  OSStatus getParamPtr(AEKeyword key, DescType desiredType, DescType* actualType, void* buffer,
                       size_t maxSize, size_t* actualSize) const;
  // Type and data size of the item under `key`, without coercion (AESizeOfParam). The size of a
  // container item is its flattened size.
  OSStatus sizeOfParam(AEKeyword key, DescType* type, size_t* size) const;
  // errAEDescNotFound when absent (AEDeleteParam).
  OSStatus deleteParam(AEKeyword key);
  // The item under `key`, or nullptr. Borrowed; valid until the receiver changes.
  const Descriptor* findParam(AEKeyword key) const;

  // ---- Apple events -------------------------------------------------------------------------
  // Attribute operations answer errAENotAppleEvent on anything but an event. The class, ID,
  // return ID and transaction ID read as attributes 'evcl', 'evid' ('type'), 'rtid' ('shor')
  // and 'tran' ('long'); putting those attributes changes the event's fields (the value is
  // coerced to the field's type, errAECoercionFail otherwise).

  OSStatus getAttributeDesc(AEKeyword key, DescType desiredType, Descriptor* out) const;
  OSStatus getAttributePtr(AEKeyword key, DescType desiredType, DescType* actualType, void* buffer,
                           size_t maxSize, size_t* actualSize) const;
  OSStatus sizeOfAttribute(AEKeyword key, DescType* type, size_t* size) const;
  OSStatus putAttributeDesc(AEKeyword key, const Descriptor& value);
  OSStatus putAttributePtr(AEKeyword key, DescType type, const void* data, size_t size);
  OSStatus deleteAttribute(AEKeyword key);

  // Fields of an event; 0 / the null descriptor on anything else.
  AEEventClass eventClass() const;
  AEEventID eventID() const;
  AEReturnID returnID() const;
  AETransactionID transactionID() const;
  // The 'addr' attribute (the null descriptor when absent or not an event). Borrowed.
  const Descriptor& address() const;

  // The stored attributes other than the four fields above, in insertion order ('addr' first).
  size_t attributeCount() const;
  AEKeyword attributeKeyAt(size_t i) const;
  const Descriptor& attributeAt(size_t i) const;

 private:
  struct Container;

  OSStatus checkDepthFor(const Descriptor& item) const;
  void noteDepthOf(const Descriptor& item);

  DescType type_ = typeNull;
  DescKind kind_ = DescKind::kSimple;
  uint32_t depth_ = 1;
  std::vector<uint8_t> data_;
  std::unique_ptr<Container> container_;  // lists, records and events only
};

// A null descriptor, for borrowed returns.
const Descriptor& nullDescriptor();

// Resets `*desc` to the null descriptor, releasing what it held (AEDisposeDesc). A null pointer
// is ignored.
void disposeDesc(Descriptor* desc);

}  // namespace rvitunes::ae
