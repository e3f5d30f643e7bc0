// The descriptor-building language: descriptors and events from format text such as
//   "'----':obj { form:prop, want:type(prop), seld:type(pnam), from:@ }"
// with typed arguments in place of C varargs. The full grammar, its numbering of errors and
// our choices are in docs/formats/descriptors.md. Short version:
//   123, -5        'shor' when in -32768...32767, else 'long' (literals beyond 32 bits fail
//                  with errAECoercionFail)
//   foo, 'a b'     'enum' with the code padded with blanks / cut to four bytes
//   "text"         'TEXT' with the bytes as written (no escapes: a '"' ends the text)
//   [a, b]  {k:v}  lists and records; xxxx{k:v} a record of type xxxx; () is null
//   xxxx(v)        v relabelled as xxxx: xxxx(123) numeric coercion, xxxx(code) the code,
//                  xxxx("s") the bytes of s unchanged, xxxx($0A0B$) the bytes, xxxx() no bytes
//   @              the next argument: a descriptor (copied)
//   xxxx(@)        'long', 'shor', 'bool': a 32-bit value; 'sing', 'doub': a double;
//                  'TEXT': a text; any other type: raw bytes (size and pointer)
//   xxxx(@@)       a handle's bytes; a bare @@ is error 19
//   ~key:value     in event parameters: an optional parameter (its key is added to 'optk')
//
// Thread-safe: the functions hold no state. Arguments are only read during the call.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "rvitunes/ae/Descriptor.h"

namespace rvitunes::ae {

// The platform's numbering of syntax errors (BuildError::code).
enum AEBuildErrorCode : uint32_t {
  aeBuildSyntaxNoErr = 0,
  aeBuildSyntaxBadToken = 1,
  aeBuildSyntaxBadEOF = 2,
  aeBuildSyntaxNoEOF = 3,
  aeBuildSyntaxBadNegative = 4,
  aeBuildSyntaxMissingQuote = 5,
  aeBuildSyntaxBadHex = 6,
  aeBuildSyntaxOddHex = 7,
  aeBuildSyntaxNoCloseHex = 8,
  aeBuildSyntaxUncoercedHex = 9,
  aeBuildSyntaxNoCloseString = 10,
  aeBuildSyntaxBadDesc = 11,
  aeBuildSyntaxBadData = 12,
  aeBuildSyntaxNoCloseParen = 13,
  aeBuildSyntaxNoCloseBracket = 14,
  aeBuildSyntaxNoCloseBrace = 15,
  aeBuildSyntaxNoKey = 16,
  aeBuildSyntaxNoColon = 17,
  aeBuildSyntaxCoercedList = 18,
  aeBuildSyntaxUncoercedDoubleAt = 19,
};

// Where and why building stopped. `code` is an AEBuildErrorCode for syntax errors
// (errAEBuildSyntaxError) and aeBuildSyntaxNoErr for the other failures; `position` is the
// character offset in the format text where the problem was noticed (also set for the other
// failures).
struct BuildError {
  uint32_t code = aeBuildSyntaxNoErr;
  uint32_t position = 0;
};

// "aeBuildSyntaxNoCloseBrace" for 15; "" for an unknown code.
std::string_view buildErrorName(uint32_t code);

// One substitution argument. Trivially copyable view: the pointed-to data must outlive the
// build call.
class BuildArg {
 public:
  enum class Kind : uint8_t { kDescriptor, kBytes, kInt32, kDouble, kText, kHandle };

  // For @: a descriptor, copied into the result. A null pointer fails the build (paramErr).
  BuildArg(const Descriptor* desc) : kind_(Kind::kDescriptor), desc_(desc) {}   // NOLINT
  BuildArg(const Descriptor& desc) : kind_(Kind::kDescriptor), desc_(&desc) {}  // NOLINT
  // For long(@), shor(@), bool(@) (and, converted, sing(@), doub(@)).
  BuildArg(int32_t value) : kind_(Kind::kInt32), int_(value) {}  // NOLINT
  // For sing(@), doub(@).
  BuildArg(double value) : kind_(Kind::kDouble), double_(value) {}  // NOLINT

  static BuildArg descriptor(const Descriptor* desc) { return BuildArg(desc); }
  static BuildArg int32(int32_t value) { return BuildArg(value); }
  static BuildArg real(double value) { return BuildArg(value); }
  // For xxxx(@): `size` bytes at `data` (the platform's count-then-pointer pair).
  static BuildArg bytes(const void* data, size_t size) {
    return BuildArg(Kind::kBytes, static_cast<const uint8_t*>(data), size);
  }
  static BuildArg bytes(std::span<const uint8_t> data) { return bytes(data.data(), data.size()); }
  // For TEXT(@): the text's bytes, without a terminator.
  static BuildArg text(std::string_view text) {
    return BuildArg(Kind::kText, reinterpret_cast<const uint8_t*>(text.data()), text.size());
  }
  // For xxxx(@@) and alis(@@): the bytes a handle holds.
  static BuildArg handle(std::span<const uint8_t> data) {
    return BuildArg(Kind::kHandle, data.data(), data.size());
  }

  Kind kind() const { return kind_; }
  const Descriptor* desc() const { return desc_; }
  int32_t int32Value() const { return int_; }
  double doubleValue() const { return double_; }
  std::span<const uint8_t> byteSpan() const { return {bytes_, size_}; }

 private:
  BuildArg(Kind kind, const uint8_t* data, size_t size) : kind_(kind), bytes_(data), size_(size) {}

  Kind kind_;
  const Descriptor* desc_ = nullptr;
  int32_t int_ = 0;
  double double_ = 0.0;
  const uint8_t* bytes_ = nullptr;
  size_t size_ = 0;
};

// Builds one descriptor from `format` (AEBuildDesc). Returns noErr; errAEBuildSyntaxError with
// *err telling the syntax error; errAECoercionFail for a failed numeric coercion; paramErr when
// the arguments do not match the @ slots (too few, too many, or of the wrong kind); memFullErr
// for data over kMaxDescriptorDataSize or nesting over kMaxDescriptorDepth. On failure *out is
// the null descriptor. `err` may be null; `out` must not be.
OSStatus buildDesc(Descriptor* out, BuildError* err, std::string_view format,
                   std::span<const BuildArg> args);

// Builds an Apple event (AEBuildAppleEvent): the address descriptor is (`addressType`,
// `address`), the event gets class, ID, return ID (kAutoGenerateReturnID allowed) and
// transaction ID, then the parameters of `paramsFormat` (empty: none). Results as buildDesc.
OSStatus buildAppleEvent(AEEventClass eventClass, AEEventID eventID, DescType addressType,
                         std::span<const uint8_t> address, AEReturnID returnID,
                         AETransactionID transactionID, Descriptor* out, BuildError* err,
                         std::string_view paramsFormat, std::span<const BuildArg> args);

// Adds the parameters of `paramsFormat` to an existing event (AEBuildParameters). The event is
// unchanged on failure. errAENotAppleEvent when `event` is not an event.
OSStatus buildParameters(Descriptor* event, BuildError* err, std::string_view paramsFormat,
                         std::span<const BuildArg> args);

// Variadic forms: each argument is a BuildArg or converts to one (a Descriptor, a pointer to
// one, an int32_t, a double).
template <class... A>
requires(std::convertible_to<const A&, BuildArg>&&...) OSStatus
    buildDesc(Descriptor* out, BuildError* err, std::string_view format, const A&... args) {
  if constexpr (sizeof...(A) == 0) {
    return buildDesc(out, err, format, std::span<const BuildArg>());
  } else {
    const BuildArg list[] = {BuildArg(args)...};
    return buildDesc(out, err, format, std::span<const BuildArg>(list));
  }
}

template <class... A>
requires(std::convertible_to<const A&, BuildArg>&&...) OSStatus
    buildAppleEvent(AEEventClass eventClass, AEEventID eventID, DescType addressType,
                    std::span<const uint8_t> address, AEReturnID returnID,
                    AETransactionID transactionID, Descriptor* out, BuildError* err,
                    std::string_view paramsFormat, const A&... args) {
  if constexpr (sizeof...(A) == 0) {
    return buildAppleEvent(eventClass, eventID, addressType, address, returnID, transactionID, out,
                           err, paramsFormat, std::span<const BuildArg>());
  } else {
    const BuildArg list[] = {BuildArg(args)...};
    return buildAppleEvent(eventClass, eventID, addressType, address, returnID, transactionID, out,
                           err, paramsFormat, std::span<const BuildArg>(list));
  }
}

}  // namespace rvitunes::ae
