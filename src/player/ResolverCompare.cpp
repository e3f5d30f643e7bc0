#include "ResolverCompare.h"

#include <cmath>
#include <cstring>
#include <optional>
#include <string>

#include "rvitunes/ae/Coercion.h"
#include "rvitunes/player/Specifier.h"

namespace rvitunes::player {

namespace {

enum class ValueKind { kInteger, kReal, kDate, kText, kBoolean, kCode, kList, kOther };

ValueKind kindOf(const ae::Descriptor& desc) {
  if (desc.isList()) return ValueKind::kList;
  switch (desc.type()) {
    case ae::typeSInt16:
    case ae::typeUInt16:
    case ae::typeSInt32:
    case ae::typeUInt32:
    case ae::typeSInt64:
    case ae::typeUInt64:
      return ValueKind::kInteger;
    case ae::typeIEEE32BitFloatingPoint:
    case ae::typeIEEE64BitFloatingPoint:
      return ValueKind::kReal;
    case ae::typeLongDateTime:
      return ValueKind::kDate;
    case ae::typeChar:
    case ae::typeUnicodeText:
    case ae::typeUTF8Text:
    case ae::typeUTF16ExternalRepresentation:
      return ValueKind::kText;
    case ae::typeBoolean:
    case ae::typeTrue:
    case ae::typeFalse:
      return ValueKind::kBoolean;
    case ae::typeEnumerated:
    case ae::typeType:
    case ae::typeKeyword:
    case ae::typeProperty:
      return ValueKind::kCode;
    default:
      return ValueKind::kOther;
  }
}

bool isOrdering(OSType op) {
  return op == ae::kAEEquals || op == ae::kAEGreaterThan || op == ae::kAEGreaterThanEquals ||
         op == ae::kAELessThan || op == ae::kAELessThanEquals;
}

template <class T>
bool order(OSType op, const T& a, const T& b) {
  if (op == ae::kAEEquals) return a == b;
  if (op == ae::kAEGreaterThan) return a > b;
  if (op == ae::kAEGreaterThanEquals) return a >= b;
  if (op == ae::kAELessThan) return a < b;
  return a <= b;  // kAELessThanEquals
}

std::string foldCase(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

std::optional<double> realOf(const ae::Descriptor& desc) {
  if (desc.isContainer()) return std::nullopt;
  auto value = ae::doubleValue(desc);
  if (!value) return std::nullopt;
  return *value;
}

std::optional<bool> booleanOf(const ae::Descriptor& desc) {
  if (desc.isContainer()) return std::nullopt;
  auto value = ae::boolValue(desc);
  if (!value) return std::nullopt;
  return *value;
}

std::optional<int64_t> dateOf(const ae::Descriptor& desc) {
  if (desc.type() == ae::typeLongDateTime && desc.dataSize() == sizeof(int64_t)) {
    int64_t seconds;
    std::memcpy(&seconds, desc.data().data(), sizeof seconds);
    return seconds;
  }
  return integerOf(desc);
}

bool compareText(OSType op, const std::string& a, const std::string& b) {
  const std::string x = foldCase(a);
  const std::string y = foldCase(b);
  if (op == ae::kAEBeginsWith) return x.starts_with(y);
  if (op == ae::kAEEndsWith) return x.ends_with(y);
  if (op == ae::kAEContains) return x.find(y) != std::string::npos;
  return order(op, x, y);
}

}  // namespace

Result<bool> compareValues(OSType op, const ae::Descriptor& a, const ae::Descriptor& b) {
  const bool textual = op == ae::kAEBeginsWith || op == ae::kAEEndsWith || op == ae::kAEContains;
  if (!isOrdering(op) && !textual) {
    return Status::error(errAENoSuchLogical, "unknown comparison operator " + fourCharDisplay(op));
  }
  switch (kindOf(a)) {
    case ValueKind::kList: {
      const size_t count = a.itemCount();
      if (op == ae::kAEContains) {
        for (size_t i = 0; i < count; ++i) {
          auto equal = compareValues(ae::kAEEquals, a.itemAt(i), b);
          if (equal.ok() && *equal) return true;
        }
        return false;
      }
      if (op != ae::kAEEquals || !b.isList() || b.itemCount() != count) return false;
      for (size_t i = 0; i < count; ++i) {
        auto equal = compareValues(ae::kAEEquals, a.itemAt(i), b.itemAt(i));
        if (!equal.ok() || !*equal) return false;
      }
      return true;
    }
    case ValueKind::kInteger: {
      if (textual) break;
      const auto x = integerOf(a);
      if (!x) return false;
      if (kindOf(b) != ValueKind::kReal) {
        if (const auto y = integerOf(b)) return order(op, *x, *y);
      }
      if (const auto y = realOf(b)) return order(op, static_cast<double>(*x), *y);
      return false;
    }
    case ValueKind::kReal: {
      if (textual) return false;
      const auto x = realOf(a);
      const auto y = realOf(b);
      if (!x || !y || std::isnan(*x) || std::isnan(*y)) return false;
      return order(op, *x, *y);
    }
    case ValueKind::kDate: {
      if (textual) return false;
      const auto x = dateOf(a);
      const auto y = dateOf(b);
      if (!x || !y) return false;
      return order(op, *x, *y);
    }
    case ValueKind::kText:
      break;
    case ValueKind::kBoolean: {
      if (op != ae::kAEEquals) return false;
      const auto x = booleanOf(a);
      const auto y = booleanOf(b);
      return x && y && *x == *y;
    }
    case ValueKind::kCode: {
      if (op != ae::kAEEquals) return false;
      const auto x = codeOf(a);
      const auto y = codeOf(b);
      return x && y && *x == *y;
    }
    case ValueKind::kOther:
      if (op != ae::kAEEquals) return false;
      return a == b;
  }
  // Texts, and numbers under a text operator: compare as text.
  const auto x = textOf(a);
  const auto y = textOf(b);
  if (!x || !y) return false;
  return compareText(op, *x, *y);
}

}  // namespace rvitunes::player
