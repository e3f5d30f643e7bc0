#include "rvitunes/ae/Printer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "DescTestSupport.h"
#include "rvitunes/ae/Coercion.h"

namespace rvitunes::ae {
namespace {

using testing::build;

// print, then build the text again: the same descriptor.
void expectRoundTrip(const Descriptor& desc) {
  const std::string text = printDesc(desc);
  Descriptor again;
  BuildError err;
  ASSERT_EQ(buildDesc(&again, &err, text), noErr)
      << text << ": error " << err.code << " at " << err.position;
  EXPECT_TRUE(again == desc) << text << " read back as " << printDesc(again);
}

TEST(Printer, ModernStyle) {
  EXPECT_EQ(printDesc(build("obj { form:prop, want:type(prop), seld:type(pnam), from:null() }")),
            "'obj '{ 'form':'prop', 'want':type('prop'), 'seld':type('pnam'), 'from':null() }");
  EXPECT_EQ(printDesc(build("[\"Mac OS X\", 'null'(), 44, 70000, long(2), exmn()]")),
            "[ \"Mac OS X\", null(), 44, 70000, 2, 'exmn'() ]");
  EXPECT_EQ(printDesc(build("{}")), "{ }");
  EXPECT_EQ(printDesc(build("[]")), "[ ]");
  EXPECT_EQ(printDesc(build("{'it\\'s':sign(hook)}")), "{ 'it\\'s':'sign'('hook') }");
  EXPECT_EQ(printDesc(build("'utxt'($41004200$)")), "'utxt'($41004200$)");
  EXPECT_EQ(printDesc(build("'utxt'($41004200$)"), PrintStyle::kDisplay), "'utxt'(\"AB\")");
  EXPECT_EQ(printDesc(build("\"say \"")), "\"say \"");
  EXPECT_EQ(printDesc(build("TEXT($22$)")), "'TEXT'($22$)");  // a '"' inside
  EXPECT_EQ(printDesc(build("doub(3)")), "'doub'(3)");
  EXPECT_EQ(printDesc(Descriptor::makeBoolean(true)), "'bool'(1)");
}

TEST(Printer, EventsShowParametersOptionalKeysAndExtraAttributes) {
  const uint8_t sign[] = {'k', 'o', 'o', 'h'};
  Descriptor event;
  const Descriptor from;
  const BuildArg args[] = {from};
  ASSERT_EQ(
      buildAppleEvent(kAECoreSuite, kAEGetData, typeApplSignature, sign, 5, 0, &event, nullptr,
                      "'----':obj{form:prop, want:type(prop), seld:type(pnam), "
                      "from:@}, ~rtyp:type(utxt)",
                      args),
      noErr);
  ASSERT_EQ(event.putAttributeDesc(enumConsidsAndIgnores, Descriptor::makeSInt32(65536)), noErr);
  EXPECT_EQ(printDesc(event),
            "'core'\\'getd'{ '----':'obj '{ 'form':'prop', 'want':type('prop'), "
            "'seld':type('pnam'), 'from':null() }, ~'rtyp':type('utxt'), &'csig':65536 }");
  const Descriptor bare =
      Descriptor::makeAppleEvent(kCoreEventClass, kAEOpenApplication, Descriptor(), 1, 0);
  EXPECT_EQ(printDesc(bare), "'aevt'\\'oapp'{}");
}

TEST(Printer, EveryPlainDescriptorReadsBack) {
  const char* formats[] = {
      "null()",
      "'true'()",
      "0",
      "-32768",
      "32767",
      "-32769",
      "2147483647",
      "ushr(65535)",
      "magn(7)",
      "magn($FFFFFFFF$)",
      "comp(-9)",
      "comp($0000000000000080$)",
      "ucom(3)",
      "'bool'(0)",
      "bool($07$)",
      "doub(-2)",
      "sing(3)",
      "doub($9A9999999999B93F$)",
      "'doub'($0000000000000080$)",
      "prop",
      "'>=  '",
      "type('a\\'b')",
      "keyw(kfil)",
      "prop(pnam)",
      "sign(hook)",
      "abso('all ')",
      "\"\"",
      "\"utf-8 ✓\"",
      "TEXT($0A$)",
      "TEXT($FF$)",
      "'utf8'(\"Zoë\")",
      "furl(\"file:///tmp/a%20b\")",
      "'utxt'($3D00$)",
      "'ldt '($0000000000000000$)",
      "kpid($01000000$)",
      "'a b'($$)",
      "[1, [2, [3, []]], {a:{b:obj{}}}]",
      "obj { form:test, want:type(cPly), from:null(), seld:cmpd{relo:=, 'obj1': obj{ "
      "form:prop, want:type(prop), seld:type(pidx), from:exmn()}, obj2:\"x\"}}",
      "logi{logc:'OR  ', term:[cmpd{relo:<, obj1:1, obj2:2}, cmpd{relo:'>=  ', obj1:3, "
      "obj2:4}]}",
      "insl{kobj:obj{}, kpos:end}",
      "'cRGB'{red:1}",
      "'null'{}",
  };
  for (const char* format : formats) {
    SCOPED_TRACE(format);
    expectRoundTrip(build(format));
  }
  // Values made in code rather than parsed.
  expectRoundTrip(Descriptor::makeFloat64(0.1));
  expectRoundTrip(Descriptor::makeFloat64(-0.0));
  expectRoundTrip(Descriptor::makeFloat64(std::numeric_limits<double>::quiet_NaN()));
  expectRoundTrip(Descriptor::makeFloat32(1e30f));
  expectRoundTrip(Descriptor::makeSInt64(INT64_MIN));
  expectRoundTrip(Descriptor::makeUnicodeText("Ünïcödé"));
  expectRoundTrip(Descriptor::makeLongDateTime(3700000000));
  expectRoundTrip(Descriptor::makeCode(typeType, 0x00000001));
  expectRoundTrip(Descriptor::fromBytes(typeSInt32, std::vector<uint8_t>{1, 2, 3}));
}

TEST(Printer, SmallLongsReadBackAsShortsOfTheSameValue) {
  const Descriptor small = build("{n:long(-5)}");
  const std::string text = printDesc(small);
  EXPECT_EQ(text, "{ 'n   ':-5 }");
  const Descriptor again = build(text);
  EXPECT_EQ(again.itemAt(0).type(), typeSInt16);
  EXPECT_EQ(*int32Value(again.itemAt(0)), -5);
  EXPECT_EQ(printDesc(again), text);
}

}  // namespace
}  // namespace rvitunes::ae
