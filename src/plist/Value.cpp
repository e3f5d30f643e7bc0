#include "rvitunes/plist/Value.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>

#include "plist/Blob.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/Object.h"

namespace rvitunes::plist {

namespace detail {

Blob* Blob::create(const void* p, size_t n) {
  void* mem = ::operator new(sizeof(Blob) + n);
  Blob* b = new (mem) Blob();
  b->size = n;
  if (n) std::memcpy(b->bytes(), p, n);
  return b;
}

void Blob::release() noexcept {
  if (refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    this->~Blob();
    ::operator delete(this);
  }
}

uint64_t Blob::cachedHash() const noexcept {
  uint64_t h = hash.load(std::memory_order_relaxed);
  if (h == 0) {
    h = hashString(view());
    hash.store(h, std::memory_order_relaxed);
  }
  return h;
}

}  // namespace detail

namespace {

inline uint64_t mix64(uint64_t k) noexcept {
  k ^= k >> 33;
  k *= 0xff51afd7ed558ccdULL;
  k ^= k >> 33;
  k *= 0xc4ceb9fe1a85ec53ULL;
  k ^= k >> 33;
  return k;
}

// Integral reals that fit in 64 bits hash like the integer, so 12 and 12.0 meet as keys.
uint64_t numberHash(const Value& v) noexcept {
  if (v.isReal()) {
    double d = v.doubleValue();
    if (d == std::trunc(d) && d >= -9.2233720368547758e18 && d < 9.2233720368547758e18) {
      return mix64(static_cast<uint64_t>(static_cast<int64_t>(d)));
    }
    if (d == std::trunc(d) && d >= 0 && d < 1.8446744073709552e19) {
      return mix64(static_cast<uint64_t>(d));
    }
    uint64_t bits;
    std::memcpy(&bits, &d, sizeof bits);
    return mix64(bits ^ 0x5bd1e995ULL);
  }
  return mix64(v.unsignedLongLongValue());
}

// Numeric comparison across booleans, signed and unsigned integers and reals.
bool numbersEqual(const Value& a, const Value& b) noexcept {
  if (a.isReal() || b.isReal()) {
    if (a.isReal() && b.isReal()) return a.doubleValue() == b.doubleValue();
    const Value& r = a.isReal() ? a : b;
    const Value& i = a.isReal() ? b : a;
    double d = r.doubleValue();
    if (d != std::trunc(d)) return false;
    if (i.isUnsigned())
      return d >= 0 && d < 1.8446744073709552e19 &&
             static_cast<uint64_t>(d) == i.unsignedLongLongValue();
    if (d < -9.2233720368547758e18 || d >= 9.2233720368547758e18) return false;
    return static_cast<int64_t>(d) == i.longLongValue();
  }
  // Both integral (booleans count as 0 and 1).
  if (a.isUnsigned() != b.isUnsigned()) {
    // One above INT64_MAX, the other within the signed range: never equal.
    return false;
  }
  return a.unsignedLongLongValue() == b.unsignedLongLongValue();
}

}  // namespace

uint64_t hashString(std::string_view s) noexcept {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(s.data());
  size_t n = s.size();
  uint64_t h = 0x9E3779B97F4A7C15ULL ^ (n * 0x100000001B3ULL);
  while (n >= 8) {
    uint64_t k;
    std::memcpy(&k, p, 8);
    h = (h ^ mix64(k)) * 0x9E3779B97F4A7C15ULL;
    p += 8;
    n -= 8;
  }
  uint64_t k = 0;
  for (size_t i = 0; i < n; ++i)
    k |= static_cast<uint64_t>(p[i]) << (8 * i);
  h ^= mix64(k + n);
  h = mix64(h);
  return h ? h : 1;  // 0 marks "not computed" in the blob cache
}

std::string_view typeName(Type type) {
  switch (type) {
    case Type::kNil:
      return "nil";
    case Type::kBoolean:
      return "boolean";
    case Type::kInteger:
      return "integer";
    case Type::kReal:
      return "real";
    case Type::kString:
      return "string";
    case Type::kDate:
      return "date";
    case Type::kData:
      return "data";
    case Type::kArray:
      return "array";
    case Type::kDictionary:
      return "dict";
    case Type::kObject:
      return "object";
  }
  return "unknown";
}

void Value::retainPayload() const noexcept {
  switch (type_) {
    case Type::kString:
    case Type::kData:
      u_.blob->retain();
      break;
    case Type::kArray:
      u_.array->retain();
      break;
    case Type::kDictionary:
      u_.dict->retain();
      break;
    case Type::kObject:
      u_.object->retain();
      break;
    default:
      break;
  }
}

void Value::releasePayload() noexcept {
  switch (type_) {
    case Type::kString:
    case Type::kData:
      u_.blob->release();
      break;
    case Type::kArray:
      u_.array->release();
      break;
    case Type::kDictionary:
      u_.dict->release();
      break;
    case Type::kObject:
      u_.object->release();
      break;
    default:
      break;
  }
}

Value& Value::operator=(const Value& o) noexcept {
  if (this != &o) {
    o.retainPayload();
    releasePayload();
    type_ = o.type_;
    unsigned_ = o.unsigned_;
    u_ = o.u_;
  }
  return *this;
}

Value Value::boolean(bool b) noexcept {
  Value v;
  v.type_ = Type::kBoolean;
  v.u_.b = b;
  return v;
}

Value Value::integer(int64_t i) noexcept {
  Value v;
  v.type_ = Type::kInteger;
  v.u_.i = i;
  return v;
}

Value Value::unsignedInteger(uint64_t u) noexcept {
  Value v;
  v.type_ = Type::kInteger;
  v.u_.u = u;
  v.unsigned_ = u > static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  return v;
}

Value Value::real(double d) noexcept {
  Value v;
  v.type_ = Type::kReal;
  v.u_.d = d;
  return v;
}

Value Value::string(std::string_view utf8) {
  Value v;
  v.u_.blob = detail::Blob::create(utf8.data(), utf8.size());
  v.type_ = Type::kString;
  return v;
}

Value Value::date(Date d) noexcept {
  Value v;
  v.type_ = Type::kDate;
  v.u_.d = d.absoluteTime();
  return v;
}

Value Value::data(std::span<const uint8_t> bytes) {
  Value v;
  v.u_.blob = detail::Blob::create(bytes.data(), bytes.size());
  v.type_ = Type::kData;
  return v;
}

Value Value::data(std::string_view bytes) {
  return data(
      std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
}

Value::Value(Ref<Array> a) noexcept : Value() {
  if (a) {
    type_ = Type::kArray;
    u_.array = a.get();
    a->retain();
  }
}

Value::Value(Ref<Dictionary> d) noexcept : Value() {
  if (d) {
    type_ = Type::kDictionary;
    u_.dict = d.get();
    d->retain();
  }
}

Value::Value(Ref<Object> o) noexcept : Value() {
  if (o) {
    type_ = Type::kObject;
    u_.object = o.get();
    o->retain();
  }
}

Value Value::newArray() {
  return Value(Array::create());
}
Value Value::newDictionary() {
  return Value(Dictionary::create());
}

bool Value::boolValue() const noexcept {
  switch (type_) {
    case Type::kBoolean:
      return u_.b;
    case Type::kInteger:
      return u_.u != 0;
    case Type::kReal:
      return u_.d != 0.0;  // NaN compares unequal to 0, so it is true
    default:
      return false;
  }
}

int64_t Value::longLongValue() const noexcept {
  switch (type_) {
    case Type::kBoolean:
      return u_.b ? 1 : 0;
    case Type::kInteger:
      return u_.i;
    case Type::kReal: {
      double d = u_.d;
      if (std::isnan(d)) return 0;
      if (d >= 9.2233720368547758e18) return std::numeric_limits<int64_t>::max();
      if (d <= -9.2233720368547758e18) return std::numeric_limits<int64_t>::min();
      return static_cast<int64_t>(d);
    }
    default:
      return 0;
  }
}

int32_t Value::intValue() const noexcept {
  return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(longLongValue())));
}

uint64_t Value::unsignedLongLongValue() const noexcept {
  switch (type_) {
    case Type::kBoolean:
      return u_.b ? 1 : 0;
    case Type::kInteger:
      return u_.u;
    case Type::kReal: {
      double d = u_.d;
      if (std::isnan(d)) return 0;
      if (d < 0) return static_cast<uint64_t>(longLongValue());
      if (d >= 1.8446744073709552e19) return std::numeric_limits<uint64_t>::max();
      return static_cast<uint64_t>(d);
    }
    default:
      return 0;
  }
}

double Value::doubleValue() const noexcept {
  switch (type_) {
    case Type::kBoolean:
      return u_.b ? 1.0 : 0.0;
    case Type::kInteger:
      return unsigned_ ? static_cast<double>(u_.u) : static_cast<double>(u_.i);
    case Type::kReal:
      return u_.d;
    default:
      return 0.0;
  }
}

std::string Value::stringValue() const {
  char buf[64];
  switch (type_) {
    case Type::kBoolean:
      return u_.b ? "1" : "0";
    case Type::kInteger: {
      auto r = unsigned_ ? std::to_chars(buf, buf + sizeof buf, u_.u)
                         : std::to_chars(buf, buf + sizeof buf, u_.i);
      return std::string(buf, r.ptr);
    }
    case Type::kReal: {
      if (std::isnan(u_.d)) return "nan";
      if (std::isinf(u_.d)) return u_.d > 0 ? "inf" : "-inf";
      auto r = std::to_chars(buf, buf + sizeof buf, u_.d);
      return std::string(buf, r.ptr);
    }
    case Type::kString:
      return std::string(u_.blob->view());
    default:
      return std::string();
  }
}

std::string_view Value::stringView() const noexcept {
  return type_ == Type::kString ? u_.blob->view() : std::string_view();
}

std::span<const uint8_t> Value::dataView() const noexcept {
  if (type_ != Type::kData) return {};
  return {reinterpret_cast<const uint8_t*>(u_.blob->bytes()), u_.blob->size};
}

Date Value::dateValue() const noexcept {
  return type_ == Type::kDate ? Date::fromAbsoluteTime(u_.d) : Date();
}

Ref<Array> Value::arrayRef() const noexcept {
  return Ref<Array>(asArray());
}
Ref<Dictionary> Value::dictionaryRef() const noexcept {
  return Ref<Dictionary>(asDictionary());
}
Ref<Object> Value::objectRef() const noexcept {
  return Ref<Object>(asObject());
}

bool operator==(const Value& a, const Value& b) noexcept {
  if (a.type_ != b.type_) return false;
  switch (a.type_) {
    case Type::kNil:
      return true;
    case Type::kBoolean:
      return a.u_.b == b.u_.b;
    case Type::kInteger:
      return a.u_.u == b.u_.u && a.unsigned_ == b.unsigned_;
    case Type::kReal:
    case Type::kDate:
      return a.u_.d == b.u_.d || (std::isnan(a.u_.d) && std::isnan(b.u_.d));
    case Type::kString:
    case Type::kData:
      return a.u_.blob == b.u_.blob || a.u_.blob->view() == b.u_.blob->view();
    case Type::kArray: {
      if (a.u_.array == b.u_.array) return true;
      const Array& x = *a.u_.array;
      const Array& y = *b.u_.array;
      if (x.size() != y.size()) return false;
      for (size_t i = 0; i < x.size(); ++i) {
        if (!(x[i] == y[i])) return false;
      }
      return true;
    }
    case Type::kDictionary: {
      if (a.u_.dict == b.u_.dict) return true;
      const Dictionary& x = *a.u_.dict;
      const Dictionary& y = *b.u_.dict;
      if (x.size() != y.size()) return false;
      for (const auto& e : x) {
        const Value* other = y.find(e.key);
        if (!other || !(*other == e.value)) return false;
      }
      return true;
    }
    case Type::kObject:
      return a.u_.object == b.u_.object;
  }
  return false;
}

bool Value::keyEquals(const Value& other) const noexcept {
  if (isString() || other.isString()) {
    return isString() && other.isString() &&
           (u_.blob == other.u_.blob || u_.blob->view() == other.u_.blob->view());
  }
  if (isNumber() && other.isNumber()) return numbersEqual(*this, other);
  return *this == other;
}

uint64_t Value::keyHash() const noexcept {
  switch (type_) {
    case Type::kString:
      return u_.blob->cachedHash();
    case Type::kBoolean:
    case Type::kInteger:
    case Type::kReal:
      return numberHash(*this);
    case Type::kData:
      return u_.blob->cachedHash() ^ 0xda7aULL;
    case Type::kDate:
      return mix64(static_cast<uint64_t>(static_cast<int64_t>(u_.d))) ^ 0xda7eULL;
    default:
      return mix64(reinterpret_cast<uintptr_t>(u_.array)) ^ static_cast<uint64_t>(type_);
  }
}

}  // namespace rvitunes::plist
