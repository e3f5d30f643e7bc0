// Small helpers for the descriptor tests: reading nested items and values in one expression.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/ae/Printer.h"

namespace rvitunes::ae::testing {

// The item under `key`; the null descriptor (and a test failure) when it is missing.
inline const Descriptor& item(const Descriptor& desc, const char (&key)[5]) {
  const Descriptor* found = desc.findParam(fourCharCode(key));
  EXPECT_NE(found, nullptr) << "no item " << key << " in " << printDesc(desc);
  return found ? *found : nullDescriptor();
}

template <class T>
T valueOf(const Descriptor& desc) {
  T value{};
  EXPECT_EQ(desc.dataSize(), sizeof(T)) << printDesc(desc);
  if (desc.dataSize() == sizeof(T)) std::memcpy(&value, desc.data().data(), sizeof(T));
  return value;
}

inline OSType codeOf(const Descriptor& desc) {
  return valueOf<OSType>(desc);
}

inline std::string bytesOf(const Descriptor& desc) {
  return std::string(reinterpret_cast<const char*>(desc.data().data()), desc.dataSize());
}

// Builds `format` without arguments; a failure is reported with its code and position.
inline Descriptor build(std::string_view format) {
  Descriptor out;
  BuildError err;
  const OSStatus status = buildDesc(&out, &err, format);
  EXPECT_EQ(status, noErr) << format << ": error " << err.code << " at " << err.position;
  return out;
}

// An object specifier as the builder makes it: checks want/form and answers seld and from.
inline void expectSpecifier(const Descriptor& specifier, const char (&want)[5],
                            const char (&form)[5]) {
  EXPECT_EQ(specifier.type(), typeObjectSpecifier);
  EXPECT_TRUE(specifier.isRecord());
  EXPECT_EQ(item(specifier, "want").type(), typeType);
  EXPECT_EQ(codeOf(item(specifier, "want")), fourCharCode(want));
  EXPECT_EQ(item(specifier, "form").type(), typeEnumerated);
  EXPECT_EQ(codeOf(item(specifier, "form")), fourCharCode(form));
}

}  // namespace rvitunes::ae::testing
