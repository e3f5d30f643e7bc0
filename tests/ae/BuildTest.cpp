#include "rvitunes/ae/Build.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "DescTestSupport.h"
#include "rvitunes/ae/Coercion.h"

namespace rvitunes::ae {
namespace {

using testing::build;
using testing::bytesOf;
using testing::codeOf;
using testing::expectSpecifier;
using testing::item;
using testing::valueOf;

constexpr OSType kHook = fourCharCode("hook");

// Builds a get-data event to 'hook' the way the request layer does.
Descriptor buildEvent(std::string_view params, std::span<const BuildArg> args) {
  Descriptor event;
  BuildError err;
  const OSStatus status = buildAppleEvent(
      kAECoreSuite, kAEGetData, typeApplSignature, {reinterpret_cast<const uint8_t*>(&kHook), 4},
      kAutoGenerateReturnID, kAnyTransactionID, &event, &err, params, args);
  EXPECT_EQ(status, noErr) << params << ": error " << err.code << " at " << err.position;
  return event;
}

// ---- The request templates, with their codes filled in -----------------------------------------

TEST(BuildTemplates, CountElements) {
  const Descriptor container = build("obj { form:prop, want:type(prop), seld:type(pnam), from:()}");
  const BuildArg args[] = {container};
  const Descriptor event = buildEvent("kocl:type(cLiP) , '----':@", args);
  EXPECT_EQ(event.eventClass(), kAECoreSuite);
  EXPECT_EQ(event.eventID(), kAEGetData);
  EXPECT_EQ(event.address().type(), typeApplSignature);
  EXPECT_EQ(codeOf(event.address()), kHook);
  EXPECT_GT(event.returnID(), 0);
  EXPECT_EQ(event.transactionID(), 0);
  ASSERT_EQ(event.itemCount(), 2u);
  EXPECT_EQ(event.keyAt(0), keyAEObjectClass);
  EXPECT_EQ(event.itemAt(0).type(), typeType);
  EXPECT_EQ(codeOf(event.itemAt(0)), fourCharCode("cLiP"));
  EXPECT_EQ(event.keyAt(1), keyDirectObject);
  EXPECT_TRUE(event.itemAt(1) == container);
}

TEST(BuildTemplates, DeleteAllAndElementAtIndex) {
  const Descriptor from = Descriptor::makeSInt32(77);
  const BuildArg args[] = {from};
  const Descriptor all =
      buildEvent("'----':obj { form:indx, want:type(cTrk), seld:abso('all '), from:@ }", args);
  const Descriptor& specifier = item(all, "----");
  expectSpecifier(specifier, "cTrk", "indx");
  EXPECT_EQ(item(specifier, "seld").type(), typeAbsoluteOrdinal);
  EXPECT_EQ(codeOf(item(specifier, "seld")), kAEAll);
  EXPECT_TRUE(item(specifier, "from") == from);

  for (const auto& [text, index] : {std::pair{"1", 1}, std::pair{"-1", -1}}) {
    const Descriptor event = buildEvent(
        "'----':obj { form:indx, want:type(cLiP), seld:" + std::string(text) + ", from:@ }", args);
    const Descriptor& seld = item(item(event, "----"), "seld");
    EXPECT_EQ(seld.type(), typeSInt16);
    EXPECT_EQ(valueOf<int16_t>(seld), index);
  }
}

TEST(BuildTemplates, PropertyGetAndSet) {
  const Descriptor from;  // the application
  const Descriptor value = Descriptor::makeUnicodeText("New name");
  const BuildArg getArgs[] = {from};
  const Descriptor get =
      buildEvent("'----':obj { form:prop, want:type(prop), seld:type(pnam), from:@ }", getArgs);
  const Descriptor& specifier = item(get, "----");
  expectSpecifier(specifier, "prop", "prop");
  EXPECT_EQ(item(specifier, "seld").type(), typeType);
  EXPECT_EQ(codeOf(item(specifier, "seld")), fourCharCode("pnam"));
  EXPECT_TRUE(item(specifier, "from").isNull());
  // Record keys keep the order of the text.
  ASSERT_EQ(specifier.itemCount(), 4u);
  EXPECT_EQ(specifier.keyAt(0), keyAEKeyForm);
  EXPECT_EQ(specifier.keyAt(3), keyAEContainer);

  // A code with a trailing blank keeps it.
  const Descriptor eq =
      buildEvent("'----':obj { form:prop, want:type(prop), seld:type(pEQ ), from:@ }", getArgs);
  EXPECT_EQ(codeOf(item(item(eq, "----"), "seld")), fourCharCode("pEQ "));

  const BuildArg setArgs[] = {value, from};
  const Descriptor set = buildEvent(
      "data:@, '----':obj { form:prop, want:type(prop), seld:type(pnam), from:@ }", setArgs);
  EXPECT_EQ(set.keyAt(0), keyAEData);
  EXPECT_TRUE(item(set, "data") == value);
  EXPECT_TRUE(item(item(set, "----"), "from").isNull());
}

TEST(BuildTemplates, SetElementAndPropertyOfElement) {
  const Descriptor value = Descriptor::makeSInt32(5);
  const Descriptor from = Descriptor::makeEnum(fourCharCode("cont"));
  const BuildArg args[] = {value, from};
  const Descriptor element =
      buildEvent("data:@, '----':obj { form:indx, want:type(cTrk), seld:3, from:@ }", args);
  EXPECT_EQ(valueOf<int16_t>(item(item(element, "----"), "seld")), 3);

  const Descriptor nested = buildEvent(
      "data:@, '----':obj { form:prop, want:type(prop), seld:type(pRte), from:obj { form:indx, "
      "want:type(cTrk), seld:2, from:@ }}",
      args);
  const Descriptor& outer = item(nested, "----");
  expectSpecifier(outer, "prop", "prop");
  const Descriptor& inner = item(outer, "from");
  expectSpecifier(inner, "cTrk", "indx");
  EXPECT_EQ(valueOf<int16_t>(item(inner, "seld")), 2);
  EXPECT_TRUE(item(inner, "from") == from);
}

TEST(BuildTemplates, TestSpecifiersWithIntStringAndDescriptorValues) {
  const Descriptor from;
  const BuildArg args[] = {from};
  const char* kPrefix =
      "obj { form:test, want:type(cPly), from:@, seld:cmpd{relo:=, 'obj1': obj{ form:prop, "
      "want:type(prop), seld:type(pidx), from:exmn()}, obj2:";

  const Descriptor byInt = [&] {
    Descriptor out;
    EXPECT_EQ(buildDesc(&out, nullptr, std::string(kPrefix) + "70000}}", args), noErr);
    return out;
  }();
  expectSpecifier(byInt, "cPly", "test");
  const Descriptor& cmpd = item(byInt, "seld");
  EXPECT_EQ(cmpd.type(), typeCompDescriptor);
  EXPECT_EQ(item(cmpd, "relo").type(), typeEnumerated);
  EXPECT_EQ(codeOf(item(cmpd, "relo")), kAEEquals);
  const Descriptor& obj1 = item(cmpd, "obj1");
  expectSpecifier(obj1, "prop", "prop");
  EXPECT_EQ(item(obj1, "from").type(), typeObjectBeingExamined);
  EXPECT_EQ(item(obj1, "from").dataSize(), 0u);
  EXPECT_EQ(item(cmpd, "obj2").type(), typeSInt32);
  EXPECT_EQ(valueOf<int32_t>(item(cmpd, "obj2")), 70000);

  Descriptor byString;
  ASSERT_EQ(buildDesc(&byString, nullptr, std::string(kPrefix) + "\"Party Mix\"}}", args), noErr);
  const Descriptor& obj2 = item(item(byString, "seld"), "obj2");
  EXPECT_EQ(obj2.type(), typeChar);
  EXPECT_EQ(bytesOf(obj2), "Party Mix");
}

TEST(BuildTemplates, KeyedLookupWithTwoDescriptors) {
  // The persistent-ID lookup: the container and a 64-bit key.
  const Descriptor container = build("obj { form:indx, want:type(cLiP), seld:1, from:()}");
  Descriptor key;
  const int64_t persistentID = 0x0123456789ABCDEF;
  ASSERT_EQ(Descriptor::create(typeSInt64, &persistentID, 8, &key), noErr);
  const BuildArg args[] = {container, key};
  const Descriptor event = buildEvent(
      "'----':obj { form:indx, want:type(cPly), seld:'abso'('any '), from:obj { form:test, "
      "want:type(cPly), from:@, seld:cmpd{relo:=, 'obj1': obj{ form:prop, want:type(prop), "
      "seld:type(pPID), from:exmn()}, obj2:@}} }",
      args);
  const Descriptor& any = item(event, "----");
  expectSpecifier(any, "cPly", "indx");
  EXPECT_EQ(item(any, "seld").type(), typeAbsoluteOrdinal);
  EXPECT_EQ(codeOf(item(any, "seld")), kAEAny);
  const Descriptor& test = item(any, "from");
  expectSpecifier(test, "cPly", "test");
  EXPECT_TRUE(item(test, "from") == container);
  EXPECT_EQ(valueOf<int64_t>(item(item(test, "seld"), "obj2")), persistentID);
}

TEST(BuildTemplates, ValueTemplatesOfTheSetters) {
  Descriptor out;
  ASSERT_EQ(buildDesc(&out, nullptr, "long(@)", int32_t{-42}), noErr);
  EXPECT_EQ(out.type(), typeSInt32);
  EXPECT_EQ(valueOf<int32_t>(out), -42);

  const std::vector<uint8_t> utf16 = utf8ToUtf16Host("Zoë");
  ASSERT_EQ(buildDesc(&out, nullptr, "'utxt'(@)", BuildArg::bytes(utf16)), noErr);
  EXPECT_EQ(out.type(), typeUnicodeText);
  EXPECT_EQ(out.dataSize(), 6u);
  EXPECT_EQ(utf16HostToUtf8(out.data()), "Zoë");
  ASSERT_EQ(buildDesc(&out, nullptr, "'utxt'(@)", BuildArg::bytes(nullptr, 0)), noErr);
  EXPECT_EQ(out.dataSize(), 0u);

  const int64_t seconds = 3061152000 + 86400;
  ASSERT_EQ(buildDesc(&out, nullptr, "'ldt '(@)", BuildArg::bytes(&seconds, 8)), noErr);
  EXPECT_EQ(out.type(), typeLongDateTime);
  EXPECT_EQ(valueOf<int64_t>(out), seconds);

  const std::vector<uint8_t> alias = {1, 2, 3};
  Descriptor event =
      Descriptor::makeAppleEvent(kCoreEventClass, kAEOpenDocuments, Descriptor(), 7, 0);
  const BuildArg handle[] = {BuildArg::handle(alias)};
  ASSERT_EQ(buildParameters(&event, nullptr, "~kfil:alis(@@)", handle), noErr);
  EXPECT_EQ(item(event, "kfil").type(), typeAlias);
  EXPECT_EQ(item(event, "kfil").dataSize(), 3u);
  Descriptor optk;
  ASSERT_EQ(event.getAttributeDesc(keyOptionalKeywordAttr, typeAEList, &optk), noErr);
  ASSERT_EQ(optk.itemCount(), 1u);
  EXPECT_EQ(codeOf(optk.itemAt(0)), fourCharCode("kfil"));

  ASSERT_EQ(buildDesc(&out, nullptr, "[shor(@), bool(@), doub(@), sing(@), TEXT(@)]", 70, 2, 0.25,
                      1.5, BuildArg::text("hi")),
            noErr);
  EXPECT_EQ(valueOf<int16_t>(out.itemAt(0)), 70);
  EXPECT_EQ(valueOf<uint8_t>(out.itemAt(1)), 1);
  EXPECT_EQ(valueOf<double>(out.itemAt(2)), 0.25);
  EXPECT_EQ(valueOf<float>(out.itemAt(3)), 1.5f);
  EXPECT_EQ(bytesOf(out.itemAt(4)), "hi");
}

// ---- Literals ----------------------------------------------------------------------------------

TEST(BuildLiterals, IntegersCodesStringsAndHex) {
  // -32768 is a 'shor' (documented choice), 32768 and -32769 are 'long'.
  EXPECT_EQ(build("32767").type(), typeSInt16);
  EXPECT_EQ(build("-32768").type(), typeSInt16);
  EXPECT_EQ(valueOf<int16_t>(build("-32768")), -32768);
  EXPECT_EQ(build("32768").type(), typeSInt32);
  EXPECT_EQ(build("-32769").type(), typeSInt32);
  EXPECT_EQ(valueOf<int32_t>(build("-2147483648")), INT32_MIN);
  Descriptor out;
  BuildError err;
  EXPECT_EQ(buildDesc(&out, &err, "[1, 2147483648]"), errAECoercionFail);
  EXPECT_EQ(err.position, 4u);
  EXPECT_TRUE(out.isNull());

  // Bare and quoted codes are padded or cut to four bytes.
  EXPECT_EQ(codeOf(build("m")), fourCharCode("m   "));
  EXPECT_EQ(codeOf(build("longint")), fourCharCode("long"));
  EXPECT_EQ(codeOf(build(">=")), fourCharCode(">=  "));
  EXPECT_EQ(codeOf(build("'a,b'")), fourCharCode("a,b "));
  EXPECT_EQ(codeOf(build("'it\\'s'")), fourCharCode("it's"));
  EXPECT_EQ(codeOf(build("''")), fourCharCode("    "));
  EXPECT_EQ(codeOf(build("type(abcdef)")), fourCharCode("abcd"));

  EXPECT_EQ(bytesOf(build("\"two\nlines\"")), "two\nlines");
  const Descriptor hex = build("'cRGB'($ 00ff\n10 Ab $)");
  EXPECT_EQ(hex.type(), fourCharCode("cRGB"));
  EXPECT_EQ(bytesOf(hex), std::string("\x00\xff\x10\xab", 4));
  EXPECT_EQ(bytesOf(build("'utxt'(\"hi\")")), "hi");  // relabelled, not converted

  // Numeric coercion of a literal; codes into a non-numeric type are just bytes.
  EXPECT_EQ(valueOf<double>(build("doub(3)")), 3.0);
  EXPECT_EQ(valueOf<int64_t>(build("comp(-5)")), -5);
  EXPECT_EQ(buildDesc(&out, &err, "shor(40000)"), errAECoercionFail);
  EXPECT_EQ(buildDesc(&out, &err, "type(5)"), errAECoercionFail);
  EXPECT_EQ(codeOf(build("long(pnam)")), fourCharCode("pnam"));
}

TEST(BuildLiterals, EmptyForms) {
  EXPECT_TRUE(build("()").isNull());
  EXPECT_TRUE(build("null()").isNull());
  EXPECT_TRUE(build("'null'()").isNull());
  EXPECT_TRUE(build("( )").isNull());
  const Descriptor exmn = build("exmn()");
  EXPECT_EQ(exmn.type(), typeObjectBeingExamined);
  EXPECT_EQ(exmn.dataSize(), 0u);
  EXPECT_EQ(build("[]").itemCount(), 0u);
  EXPECT_TRUE(build("{}").isRecord());
  EXPECT_EQ(build("list[1]").itemCount(), 1u);
  EXPECT_EQ(build("logi{logc:AND, term:[]}").type(), typeLogicalDescriptor);
  EXPECT_EQ(build("rang{star:1, stop:2}").type(), typeRangeDescriptor);
  EXPECT_EQ(build("(\"x\")").type(), typeChar);
  EXPECT_EQ(build("(5)").type(), typeSInt16);
}

TEST(BuildLiterals, LegacyDelimiters) {
  // The old single-byte curly quotes and guillemets.
  const Descriptor text = build("\xD2hi\xD3");
  EXPECT_EQ(bytesOf(text), "hi");
  EXPECT_EQ(codeOf(build("\xD4----\xD5")), keyDirectObject);
  EXPECT_EQ(bytesOf(build("long(\xC7"
                          "01020304\xC8)")),
            "\x01\x02\x03\x04");
}

// ---- Errors ------------------------------------------------------------------------------------

struct SyntaxCase {
  const char* format;
  uint32_t code;
  uint32_t position;
};

TEST(BuildErrors, EachSyntaxErrorWithItsPosition) {
  const SyntaxCase cases[] = {
      {"[1, \x01]", aeBuildSyntaxBadToken, 4},
      {"", aeBuildSyntaxBadEOF, 0},
      {"[1,", aeBuildSyntaxBadEOF, 3},
      {"long(1", aeBuildSyntaxBadEOF, 6},
      {"{a:1", aeBuildSyntaxBadEOF, 4},
      {"1 2", aeBuildSyntaxNoEOF, 2},
      {"-x", aeBuildSyntaxBadNegative, 1},
      {"[-]", aeBuildSyntaxBadNegative, 2},
      {"'abc", aeBuildSyntaxMissingQuote, 4},
      {"long($0G$)", aeBuildSyntaxBadHex, 7},
      {"long($ABC$)", aeBuildSyntaxOddHex, 9},
      {"long($AB", aeBuildSyntaxNoCloseHex, 8},
      {"$AB$", aeBuildSyntaxUncoercedHex, 0},
      {"($AB$)", aeBuildSyntaxUncoercedHex, 1},
      {"\"abc", aeBuildSyntaxNoCloseString, 4},
      {")", aeBuildSyntaxBadDesc, 0},
      {"[1,]", aeBuildSyntaxBadDesc, 3},
      {"long(,)", aeBuildSyntaxBadData, 5},
      {"long([1])", aeBuildSyntaxBadData, 5},
      {"long(1 2)", aeBuildSyntaxNoCloseParen, 7},
      {"[1 2]", aeBuildSyntaxNoCloseBracket, 3},
      {"{a:1 b:2}", aeBuildSyntaxNoCloseBrace, 5},
      {"{1:2}", aeBuildSyntaxNoKey, 1},
      {"{a:1,}", aeBuildSyntaxNoKey, 5},
      {"{a 1}", aeBuildSyntaxNoColon, 3},
      {"reco[1]", aeBuildSyntaxCoercedList, 0},
      {"list{a:1}", aeBuildSyntaxCoercedList, 0},
      {"@@", aeBuildSyntaxUncoercedDoubleAt, 0},
      {"(@@)", aeBuildSyntaxUncoercedDoubleAt, 1},
  };
  for (const SyntaxCase& c : cases) {
    Descriptor out = Descriptor::makeSInt32(1);
    BuildError err;
    EXPECT_EQ(buildDesc(&out, &err, c.format), errAEBuildSyntaxError) << c.format;
    EXPECT_EQ(err.code, c.code) << c.format << " gave " << buildErrorName(err.code);
    EXPECT_EQ(err.position, c.position) << c.format;
    EXPECT_TRUE(out.isNull()) << c.format;
  }
  EXPECT_EQ(buildErrorName(aeBuildSyntaxNoCloseBrace), "aeBuildSyntaxNoCloseBrace");
  EXPECT_EQ(buildErrorName(20), "");
}

TEST(BuildErrors, ParameterListsAndTheDoubleQuoteInAValue) {
  const Descriptor from;
  const BuildArg args[] = {from};
  Descriptor event = Descriptor::makeSInt32(1);
  BuildError err;
  const uint8_t sign[] = {'k', 'o', 'o', 'h'};
  EXPECT_EQ(buildAppleEvent(kAECoreSuite, kAEGetData, typeApplSignature, sign, -1, 0, &event, &err,
                            "a:1 b:2", {}),
            errAEBuildSyntaxError);
  EXPECT_EQ(err.code, aeBuildSyntaxNoEOF);
  EXPECT_EQ(err.position, 4u);
  EXPECT_TRUE(event.isNull());
  EXPECT_EQ(buildAppleEvent(kAECoreSuite, kAEGetData, typeApplSignature, sign, -1, 0, &event, &err,
                            "a:1,", {}),
            errAEBuildSyntaxError);
  EXPECT_EQ(err.code, aeBuildSyntaxBadEOF);
  EXPECT_EQ(buildAppleEvent(kAECoreSuite, kAEGetData, typeApplSignature, sign, -1, 0, &event, &err,
                            "", {}),
            noErr);
  EXPECT_EQ(event.itemCount(), 0u);

  // A text value with a double quote ends early and the template no longer parses.
  const std::string format =
      "'----':obj { form:indx, want:type(cPly), seld:'abso'('any '), from:obj { form:test, "
      "want:type(cPly), from:@, seld:cmpd{relo:=, 'obj1': obj{ form:prop, want:type(prop), "
      "seld:type(pnam), from:exmn()}, obj2:\"a\"b\"}} }";
  EXPECT_EQ(buildAppleEvent(kAECoreSuite, kAEGetData, typeApplSignature, sign, -1, 0, &event, &err,
                            format, args),
            errAEBuildSyntaxError);
  EXPECT_EQ(err.code, aeBuildSyntaxNoCloseBrace);
  EXPECT_EQ(err.position, format.find("b\"}"));
  EXPECT_TRUE(event.isNull());
}

TEST(BuildErrors, ArgumentsThatDoNotMatchTheSlots) {
  Descriptor out;
  const Descriptor d = Descriptor::makeSInt32(1);
  EXPECT_EQ(buildDesc(&out, nullptr, "[@, @]", d), paramErr);     // too few
  EXPECT_EQ(buildDesc(&out, nullptr, "@", d, d), paramErr);       // too many
  EXPECT_EQ(buildDesc(&out, nullptr, "@", 5), paramErr);          // a value for @
  EXPECT_EQ(buildDesc(&out, nullptr, "long(@)", d), paramErr);    // a descriptor for long(@)
  EXPECT_EQ(buildDesc(&out, nullptr, "'utxt'(@)", 5), paramErr);  // bytes expected
  EXPECT_EQ(buildDesc(&out, nullptr, "@", static_cast<const Descriptor*>(nullptr)), paramErr);
  EXPECT_EQ(buildDesc(&out, nullptr, "shor(@)", 70000), errAECoercionFail);
  EXPECT_TRUE(out.isNull());
}

TEST(BuildErrors, NestingAndSizeBounds) {
  Descriptor out;
  BuildError err;
  EXPECT_EQ(buildDesc(&out, &err, std::string(64, '[') + std::string(64, ']')), noErr);
  EXPECT_EQ(out.depth(), 64u);
  EXPECT_EQ(buildDesc(&out, &err, std::string(65, '[') + std::string(65, ']')), memFullErr);
  EXPECT_EQ(err.position, 64u);
  // A deep argument cannot be nested further.
  Descriptor deep;
  ASSERT_EQ(buildDesc(&deep, nullptr, std::string(64, '[') + std::string(64, ']')), noErr);
  EXPECT_EQ(buildDesc(&out, &err, "[@]", deep), memFullErr);
  // A deep format does not exhaust the stack.
  EXPECT_EQ(buildDesc(&out, &err, std::string(100000, '[')), memFullErr);
  EXPECT_EQ(buildDesc(&out, &err, "{a:" + std::string(100000, '[')), memFullErr);
}

}  // namespace
}  // namespace rvitunes::ae
