#include "rvitunes/ae/Coercion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "DescTestSupport.h"

namespace rvitunes::ae {
namespace {

using testing::build;
using testing::bytesOf;
using testing::codeOf;
using testing::valueOf;

Descriptor coerce(const Descriptor& in, DescType to) {
  Descriptor out;
  EXPECT_EQ(coerceDesc(in, to, &out), noErr) << printDesc(in) << " to " << fourCharDisplay(to);
  return out;
}

void expectFails(const Descriptor& in, DescType to) {
  Descriptor out = Descriptor::makeSInt32(1);
  EXPECT_EQ(coerceDesc(in, to, &out), errAECoercionFail)
      << printDesc(in) << " to " << fourCharDisplay(to);
  EXPECT_TRUE(out.isNull());
}

TEST(Coercion, NumbersAmongThemselvesWithRangeChecks) {
  EXPECT_EQ(valueOf<int32_t>(coerce(Descriptor::makeSInt16(-7), typeSInt32)), -7);
  EXPECT_EQ(valueOf<int16_t>(coerce(Descriptor::makeSInt32(32767), typeSInt16)), 32767);
  expectFails(Descriptor::makeSInt32(32768), typeSInt16);
  expectFails(Descriptor::makeSInt32(-1), typeUInt32);
  expectFails(Descriptor::makeSInt64(int64_t{1} << 40), typeSInt32);
  EXPECT_EQ(valueOf<uint32_t>(coerce(Descriptor::makeSInt64(4294967295), typeUInt32)), 4294967295u);
  EXPECT_EQ(valueOf<int64_t>(coerce(Descriptor::makeUInt32(4000000000u), typeSInt64)), 4000000000);
  // Floats round to nearest, ties to even; out of range and NaN fail.
  EXPECT_EQ(valueOf<int32_t>(coerce(Descriptor::makeFloat64(2.5), typeSInt32)), 2);
  EXPECT_EQ(valueOf<int32_t>(coerce(Descriptor::makeFloat64(-3.7), typeSInt32)), -4);
  expectFails(Descriptor::makeFloat64(3e9), typeSInt32);
  expectFails(Descriptor::makeFloat64(1e300), typeIEEE32BitFloatingPoint);
  expectFails(Descriptor::makeFloat64(std::nan("")), typeSInt64);
  expectFails(Descriptor::makeFloat64(1e20), typeUInt64);
  EXPECT_EQ(valueOf<float>(coerce(Descriptor::makeSInt32(3), typeIEEE32BitFloatingPoint)), 3.0f);
  EXPECT_EQ(valueOf<double>(coerce(Descriptor::makeFloat32(0.5f), typeIEEE64BitFloatingPoint)),
            0.5);
  // A number with the wrong data size is not a number.
  expectFails(Descriptor::fromBytes(typeSInt32, std::vector<uint8_t>{1, 2}), typeSInt16);
}

TEST(Coercion, NumbersAndText) {
  EXPECT_EQ(bytesOf(coerce(Descriptor::makeSInt32(-120), typeChar)), "-120");
  EXPECT_EQ(bytesOf(coerce(Descriptor::makeFloat64(0.1), typeUTF8Text)), "0.1");
  EXPECT_EQ(bytesOf(coerce(Descriptor::makeFloat32(0.1f), typeChar)), "0.1");
  EXPECT_EQ(*textValue(coerce(Descriptor::makeSInt64(INT64_MIN), typeUnicodeText)),
            "-9223372036854775808");
  EXPECT_EQ(valueOf<int32_t>(coerce(Descriptor::makeText(" 42 "), typeSInt32)), 42);
  EXPECT_EQ(
      valueOf<double>(coerce(Descriptor::makeUnicodeText("-1.5e3"), typeIEEE64BitFloatingPoint)),
      -1500.0);
  EXPECT_EQ(valueOf<int16_t>(coerce(Descriptor::makeText("7.0"), typeSInt16)), 7);
  for (const char* bad : {"", "abc", "12abc", "1 2", "inf", "nan", "-", "0x10", "+"}) {
    expectFails(Descriptor::makeText(bad), typeSInt32);
  }
  expectFails(Descriptor::makeText("99999999999999999999"), typeSInt64);
  expectFails(Descriptor::makeText("70000"), typeSInt16);
}

TEST(Coercion, TextEncodingsAndOddUtf16) {
  const Descriptor utxt = Descriptor::makeUnicodeText("Café 🎵");
  EXPECT_EQ(utxt.dataSize(), 14u);  // five units, a blank and a surrogate pair
  EXPECT_EQ(bytesOf(coerce(utxt, typeChar)), "Café 🎵");
  EXPECT_EQ(bytesOf(coerce(utxt, typeUTF8Text)), "Café 🎵");
  const Descriptor ut16 = coerce(utxt, typeUTF16ExternalRepresentation);
  EXPECT_EQ(ut16.data()[0], 0x00);  // big-endian 'C'
  EXPECT_EQ(ut16.data()[1], 'C');
  EXPECT_TRUE(coerce(ut16, typeUnicodeText) == utxt);
  EXPECT_TRUE(coerce(Descriptor::makeText("Café 🎵"), typeUnicodeText) == utxt);

  // A byte-order mark is honoured and dropped.
  const std::vector<uint8_t> bigWithMark = {0xFE, 0xFF, 0x00, 'A', 0x00, 'b'};
  EXPECT_EQ(bytesOf(coerce(Descriptor::fromBytes(typeUnicodeText, bigWithMark), typeChar)), "Ab");
  const std::vector<uint8_t> littleWithMark = {0xFF, 0xFE, 'A', 0x00};
  EXPECT_EQ(bytesOf(coerce(Descriptor::fromBytes(typeUnicodeText, littleWithMark), typeChar)), "A");

  // Odd sizes, lone surrogates and invalid UTF-8 fail.
  expectFails(Descriptor::fromBytes(typeUnicodeText, std::vector<uint8_t>{'A', 0, 'B'}), typeChar);
  expectFails(Descriptor::fromBytes(typeUnicodeText, std::vector<uint8_t>{0x00, 0xD8}), typeChar);
  expectFails(Descriptor::fromBytes(typeUnicodeText, std::vector<uint8_t>{0x00, 0xDC, 'A', 0}),
              typeChar);
  expectFails(Descriptor::makeText("\xC3"), typeUnicodeText);
  expectFails(Descriptor::makeText("\xED\xA0\x80"), typeUnicodeText);  // encoded surrogate
  expectFails(Descriptor::makeText("\xE0\x80\x80"), typeUnicodeText);  // overlong
  EXPECT_EQ(utf16HostToUtf8(std::vector<uint8_t>{'A', 0, 'B'}), std::nullopt);
  // The encoder replaces what it cannot read.
  EXPECT_EQ(utf16HostToUtf8(utf8ToUtf16Host("a\xFF")), "a\xEF\xBF\xBD");
}

TEST(Coercion, CodesBooleansAndVersions) {
  const Descriptor type = Descriptor::makeType(fourCharCode("pnam"));
  EXPECT_EQ(coerce(type, typeEnumerated).type(), typeEnumerated);
  EXPECT_EQ(codeOf(coerce(type, typeProperty)), fourCharCode("pnam"));
  EXPECT_EQ(bytesOf(coerce(type, typeChar)), "pnam");
  EXPECT_EQ(codeOf(coerce(Descriptor::makeUnicodeText("cTrk"), typeType)), fourCharCode("cTrk"));
  expectFails(Descriptor::makeText("abc"), typeType);
  expectFails(Descriptor::makeText("abcde"), typeEnumerated);
  expectFails(type, typeSInt32);

  for (const Descriptor& yes : {build("true()"), build("'true'"), build("1"), build("long(1)"),
                                Descriptor::makeBoolean(true)}) {
    EXPECT_EQ(*boolValue(yes), true) << printDesc(yes);
  }
  for (const Descriptor& no : {build("fals()"), build("fals"), build("0")}) {
    EXPECT_EQ(*boolValue(no), false) << printDesc(no);
  }
  expectFails(build("2"), typeBoolean);
  expectFails(build("'yes '"), typeBoolean);
  EXPECT_EQ(codeOf(coerce(Descriptor::makeBoolean(true), typeEnumerated)), typeTrue);
  EXPECT_EQ(valueOf<int16_t>(coerce(Descriptor::makeBoolean(true), typeSInt16)), 1);
  EXPECT_EQ(coerce(Descriptor::makeBoolean(false), typeFalse).dataSize(), 0u);
  expectFails(Descriptor::makeBoolean(false), typeTrue);

  // 'vers': NumVersion, region, then the short version string.
  const std::vector<uint8_t> vers = {0x07, 0x60, 0x80, 0x00, 0x00, 0x00, 5,   '7',
                                     '.',  '6',  '.',  '1',  3,    'x',  'y', 'z'};
  EXPECT_EQ(bytesOf(coerce(Descriptor::fromBytes(typeVersion, vers), typeChar)), "7.6.1");
  EXPECT_EQ(*textValue(Descriptor::fromBytes(typeVersion, vers)), "7.6.1");
  expectFails(Descriptor::fromBytes(typeVersion, std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 9, '1'}),
              typeUnicodeText);
}

TEST(Coercion, ListsRecordsAndWildcard) {
  const Descriptor one = build("[5]");
  EXPECT_EQ(valueOf<int32_t>(coerce(one, typeSInt32)), 5);
  expectFails(build("[5, 6]"), typeSInt32);
  expectFails(build("[]"), typeSInt32);
  const Descriptor wrapped = coerce(Descriptor::makeSInt32(9), typeAEList);
  ASSERT_EQ(wrapped.itemCount(), 1u);
  EXPECT_EQ(valueOf<int32_t>(wrapped.itemAt(0)), 9);

  const Descriptor specifier = build("obj{want:type(cTrk), form:indx, seld:1, from:()}");
  const Descriptor reco = coerce(specifier, typeAERecord);
  EXPECT_EQ(reco.type(), typeAERecord);
  EXPECT_EQ(reco.itemCount(), 4u);
  EXPECT_EQ(coerce(reco, typeObjectSpecifier).type(), typeObjectSpecifier);
  expectFails(specifier, typeSInt32);
  expectFails(Descriptor(), typeSInt32);

  EXPECT_TRUE(coerce(specifier, typeWildCard) == specifier);
  Descriptor event = Descriptor::makeAppleEvent(kCoreEventClass, kAEAnswer, Descriptor(), 1, 0);
  EXPECT_TRUE(coerce(event, typeWildCard) == event);
  expectFails(event, typeAERecord);
}

TEST(Coercion, TypedReadersReportTheCoercionError) {
  EXPECT_EQ(*integerValue(build("-12")), -12);
  EXPECT_EQ(*int32Value(build("\"77\"")), 77);
  EXPECT_EQ(*doubleValue(build("3")), 3.0);
  EXPECT_EQ(*codeValue(build("cTrk")), fourCharCode("cTrk"));
  EXPECT_EQ(*textValue(build("'utxt'($4100$)")), "A");
  EXPECT_EQ(int32Value(build("\"x\"")).status().code(), errAECoercionFail);
  EXPECT_EQ(codeValue(build("[]")).status().code(), errAECoercionFail);
}

}  // namespace
}  // namespace rvitunes::ae
