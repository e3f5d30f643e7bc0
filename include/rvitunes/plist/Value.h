// One node of a property-list tree.
//
// A Value is 16 bytes: a type tag and either an immediate (boolean, integer, real, date) or a
// reference to a shared heap part (string, data, array, dictionary, object). Strings and data
// are immutable and shared on copy. Arrays and dictionaries are mutable and shared by reference:
// a Value copied out of a tree still names the same container.
//
// Numbers follow the platform's number class: booleans, integers and reals all answer
// isNumber(), and the conversions below give the truth value, the 32-bit and 64-bit integer
// values and the decimal text as that class does.
//
// Thread safety: copying and destroying Values is safe from any thread (atomic counts); a
// container must not be changed while another thread reads it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "rvitunes/base/Date.h"
#include "rvitunes/plist/Ref.h"

namespace rvitunes::plist {

class Array;
class Dictionary;
class Object;

enum class Type : uint8_t {
  kNil,
  kBoolean,
  kInteger,
  kReal,
  kString,
  kDate,
  kData,
  kArray,
  kDictionary,
  kObject,
};

// The name used in XML for the type ("integer", "dict", ...); "nil" and "object" for the two
// kinds that XML cannot hold.
std::string_view typeName(Type type);

namespace detail {
struct Blob;  // immutable shared bytes of a string or a data value
}

class Value {
 public:
  // nil.
  Value() noexcept : type_(Type::kNil), unsigned_(false), u_{} {}
  Value(const Value& o) noexcept : type_(o.type_), unsigned_(o.unsigned_), u_(o.u_) {
    if (o.hasPayload()) retainPayload();
  }
  Value(Value&& o) noexcept : type_(o.type_), unsigned_(o.unsigned_), u_(o.u_) {
    o.type_ = Type::kNil;
  }
  Value& operator=(const Value& o) noexcept;
  Value& operator=(Value&& o) noexcept {
    if (this != &o) {
      if (hasPayload()) releasePayload();
      type_ = o.type_;
      unsigned_ = o.unsigned_;
      u_ = o.u_;
      o.type_ = Type::kNil;
    }
    return *this;
  }
  ~Value() {
    if (hasPayload()) releasePayload();
  }

  static Value boolean(bool b) noexcept;
  static Value integer(int64_t i) noexcept;
  // Values up to INT64_MAX are ordinary integers; larger ones are kept as unsigned integers.
  static Value unsignedInteger(uint64_t u) noexcept;
  static Value real(double d) noexcept;
  // `utf8` is copied.
  static Value string(std::string_view utf8);
  static Value date(Date d) noexcept;
  // The bytes are copied.
  static Value data(std::span<const uint8_t> bytes);
  static Value data(std::string_view bytes);
  // Shares the container or object; a null Ref gives nil.
  Value(Ref<Array> a) noexcept;       // NOLINT(google-explicit-constructor)
  Value(Ref<Dictionary> d) noexcept;  // NOLINT(google-explicit-constructor)
  Value(Ref<Object> o) noexcept;      // NOLINT(google-explicit-constructor)
  // A new empty array or dictionary.
  static Value newArray();
  static Value newDictionary();

  Type type() const noexcept { return type_; }
  bool isNil() const noexcept { return type_ == Type::kNil; }
  bool isBoolean() const noexcept { return type_ == Type::kBoolean; }
  bool isInteger() const noexcept { return type_ == Type::kInteger; }
  bool isReal() const noexcept { return type_ == Type::kReal; }
  bool isNumber() const noexcept {
    return type_ == Type::kBoolean || type_ == Type::kInteger || type_ == Type::kReal;
  }
  bool isString() const noexcept { return type_ == Type::kString; }
  bool isDate() const noexcept { return type_ == Type::kDate; }
  bool isData() const noexcept { return type_ == Type::kData; }
  bool isArray() const noexcept { return type_ == Type::kArray; }
  bool isDictionary() const noexcept { return type_ == Type::kDictionary; }
  bool isObject() const noexcept { return type_ == Type::kObject; }
  // An integer above INT64_MAX.
  bool isUnsigned() const noexcept { return type_ == Type::kInteger && unsigned_; }

  // Number conversions. Non-numbers answer false / 0 / 0.0.
  // Truth value: true for a true boolean, a non-zero integer, a non-zero (or NaN) real.
  bool boolValue() const noexcept;
  // The low 32 bits of the 64-bit value (integers wrap; reals truncate toward zero first and
  // saturate at the 64-bit range).
  int32_t intValue() const noexcept;
  int64_t longLongValue() const noexcept;
  uint64_t unsignedLongLongValue() const noexcept;
  double doubleValue() const noexcept;
  // Decimal text of a number ("1"/"0" for booleans, the exact integer, the shortest text that
  // reads back to the same real); the text itself for a string; "" for anything else.
  std::string stringValue() const;

  // The text of a string, empty for other types.
  std::string_view stringView() const noexcept;
  // The bytes of a data value, empty for other types.
  std::span<const uint8_t> dataView() const noexcept;
  // The date of a date value, the 2001 origin for other types.
  Date dateValue() const noexcept;

  // Non-owning views of the shared parts; null for other types.
  Array* asArray() const noexcept { return type_ == Type::kArray ? u_.array : nullptr; }
  Dictionary* asDictionary() const noexcept {
    return type_ == Type::kDictionary ? u_.dict : nullptr;
  }
  Object* asObject() const noexcept { return type_ == Type::kObject ? u_.object : nullptr; }
  // Owning references to the shared parts; null for other types.
  Ref<Array> arrayRef() const noexcept;
  Ref<Dictionary> dictionaryRef() const noexcept;
  Ref<Object> objectRef() const noexcept;

  // Deep, type-exact equality: same type and same contents (containers compared element by
  // element, objects by identity). Integers compare by value and signedness-aware range; reals
  // compare bitwise-equal or numerically equal; NaN equals NaN.
  friend bool operator==(const Value& a, const Value& b) noexcept;

  // Key semantics of the platform's dictionaries: strings equal by bytes, numbers equal by
  // numeric value (an integer 12 and a real 12.0 are the same key), strings never equal numbers.
  bool keyEquals(const Value& other) const noexcept;
  // A hash consistent with keyEquals.
  uint64_t keyHash() const noexcept;

  // The string's shared storage, for the reader's key interning; null for non-strings.
  const detail::Blob* blob() const noexcept {
    return (type_ == Type::kString || type_ == Type::kData) ? u_.blob : nullptr;
  }

 private:
  // Whether a shared heap part hangs off this value (strings, data, containers, objects).
  bool hasPayload() const noexcept {
    return type_ == Type::kString || type_ == Type::kData || type_ == Type::kArray ||
           type_ == Type::kDictionary || type_ == Type::kObject;
  }
  void retainPayload() const noexcept;
  void releasePayload() noexcept;

  Type type_;
  bool unsigned_;
  union Payload {
    bool b;
    int64_t i;
    uint64_t u;
    double d;
    detail::Blob* blob;
    Array* array;
    Dictionary* dict;
    Object* object;
  } u_;
};

// Hash of a string the way Value::keyHash hashes string keys.
uint64_t hashString(std::string_view s) noexcept;

}  // namespace rvitunes::plist
