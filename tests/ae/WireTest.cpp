#include "rvitunes/ae/Wire.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "DescTestSupport.h"
#include "rvitunes/ae/Coercion.h"

namespace rvitunes::ae {
namespace {

using testing::build;
using testing::valueOf;

// Bytes from readable text: 'abcd' is four characters, other words are hex digits.
std::vector<uint8_t> wire(std::string_view text) {
  std::vector<uint8_t> out;
  size_t i = 0;
  while (i < text.size()) {
    if (text[i] == ' ') {
      ++i;
    } else if (text[i] == '\'') {
      out.insert(out.end(), text.begin() + i + 1, text.begin() + i + 5);
      i += 6;
    } else {
      out.push_back(static_cast<uint8_t>(std::stoi(std::string(text.substr(i, 2)), nullptr, 16)));
      i += 2;
    }
  }
  return out;
}

std::vector<uint8_t> flat(const Descriptor& desc) {
  Result<std::vector<uint8_t>> bytes = flatten(desc);
  EXPECT_TRUE(bytes.ok()) << bytes.status().toString();
  return bytes.ok() ? *bytes : std::vector<uint8_t>();
}

Descriptor readBack(const std::vector<uint8_t>& bytes) {
  Result<Descriptor> desc = unflatten(bytes);
  EXPECT_TRUE(desc.ok()) << desc.status().toString();
  return desc.ok() ? std::move(desc).value() : Descriptor();
}

// unflatten fails with `code` and a message naming `offset`.
void expectRejected(const std::vector<uint8_t>& bytes, OSStatus code, size_t offset,
                    const WireLimits& limits = {}) {
  const Result<Descriptor> desc = unflatten(bytes, limits);
  ASSERT_FALSE(desc.ok());
  EXPECT_EQ(desc.status().code(), code) << desc.status().message();
  EXPECT_EQ(desc.status().message().rfind("offset " + std::to_string(offset) + ":", 0), 0u)
      << desc.status().message();
}

TEST(Wire, PlatformExamplesByteForByte) {
  const auto null = wire("'dle2' 00000000 'null' 00000000");
  EXPECT_EQ(flat(Descriptor()), null);
  EXPECT_TRUE(readBack(null).isNull());

  const auto josh = wire("'dle2' 00000000 'type' 00000004 'Josh'");
  EXPECT_EQ(flat(build("type(Josh)")), josh);
  EXPECT_TRUE(readBack(josh) == build("type(Josh)"));

  const auto list = wire(
      "'dle2' 00000000 'list' 0000002E 00000000 00000000 00000018 'list' 00000002 00000000 "
      "'TEXT' 00000001 2F00 'type' 00000004 'Test'");
  EXPECT_EQ(flat(build("[\"/\", type(Test)]")), list);
  EXPECT_TRUE(readBack(list) == build("[\"/\", type(Test)]"));

  const auto record = wire(
      "'dle2' 00000000 'reco' 00000036 00000000 00000000 00000018 'reco' 00000002 00000000 "
      "'foo ' 'TEXT' 00000001 2F00 'bar ' 'type' 00000004 'Test'");
  EXPECT_EQ(flat(build("{foo:\"/\", bar:type(Test)}")), record);
  EXPECT_TRUE(readBack(record) == build("{foo:\"/\", bar:type(Test)}"));
}

TEST(Wire, NestedContainersUseTheShortForm) {
  const Descriptor text = build("obj{want:type(cwin), form:indx, seld:[1], from:()}");
  EXPECT_EQ(flat(text), wire("'dle2' 00000000 'obj ' 00000052 00000004 00000000 "
                             "'want' 'type' 00000004 'cwin' 'form' 'enum' 00000004 'indx' "
                             "'seld' 'list' 00000012 00000001 00000000 'shor' 00000002 0001 "
                             "'from' 'null' 00000000"));
  EXPECT_TRUE(readBack(flat(text)) == text);
}

TEST(Wire, ScalarsAreBigEndianOnTheWire) {
  EXPECT_EQ(flat(Descriptor::makeSInt32(0x01020304)),
            wire("'dle2' 00000000 'long' 00000004 01020304"));
  EXPECT_EQ(flat(Descriptor::makeSInt16(-2)), wire("'dle2' 00000000 'shor' 00000002 FFFE"));
  EXPECT_EQ(flat(Descriptor::makeFloat64(1.0)),
            wire("'dle2' 00000000 'doub' 00000008 3FF0000000000000"));
  EXPECT_EQ(flat(Descriptor::makeLongDateTime(0x0102)),
            wire("'dle2' 00000000 'ldt ' 00000008 0000000000000102"));
  EXPECT_EQ(flat(Descriptor::makeUnicodeText("Hi")),
            wire("'dle2' 00000000 'utxt' 00000004 00480069"));
  // An odd utxt keeps its last byte; unknown types and text travel as they are.
  EXPECT_EQ(flat(Descriptor::fromBytes(typeUnicodeText, std::vector<uint8_t>{'A', 0, 'B'})),
            wire("'dle2' 00000000 'utxt' 00000003 0041 4200"));
  EXPECT_EQ(flat(build("'cRGB'($0102$)")), wire("'dle2' 00000000 'cRGB' 00000002 0102"));
  // A number of the wrong size is not swapped.
  EXPECT_EQ(flat(build("long($010203$)")), wire("'dle2' 00000000 'long' 00000003 01020300"));

  // Empty data of a swapped type (found by fuzzing: an empty copy must not touch the buffer).
  EXPECT_EQ(flat(build("[long(), 'utxt'()]")),
            wire("'dle2' 00000000 'list' 00000028 00000000 00000000 00000018 'list' 00000002 "
                 "00000000 'long' 00000000 'utxt' 00000000"));
  EXPECT_TRUE(readBack(wire("'dle2' 00000000 'utxt' 00000000")) == build("'utxt'()"));

  for (const char* format : {"[long(1), comp(-2), sing(3), doub(4), ushr(5), magn(6)]",
                             "[kpid($01000000$), 'psn '($0100000002000000$), enum(abcd)]",
                             "'utxt'($410042$)", "\"odd\""}) {
    const Descriptor desc = build(format);
    EXPECT_TRUE(readBack(flat(desc)) == desc) << format;
  }
}

TEST(Wire, UnusualShapesAreMarked) {
  // A record of an application type and bytes under a record type both survive.
  const Descriptor custom = build("'cRGB'{red:1}");
  const auto bytes = flat(custom);
  EXPECT_EQ(bytes[12] & 0x80, 0x80);
  EXPECT_TRUE(readBack(bytes) == custom);
  const Descriptor rawObj = build("'obj '($00$)");
  EXPECT_TRUE(readBack(flat(rawObj)) == rawObj);
  EXPECT_TRUE(readBack(flat(build("[obj($0102$), cmpd{}]"))) == build("[obj($0102$), cmpd{}]"));
}

TEST(Wire, EventsRoundTripWithEveryField) {
  const uint8_t sign[] = {'k', 'o', 'o', 'h'};
  Descriptor event;
  const Descriptor from;
  const BuildArg args[] = {from};
  ASSERT_EQ(
      buildAppleEvent(kAECoreSuite, kAEGetData, typeApplSignature, sign, -7, 1234, &event, nullptr,
                      "'----':obj{form:prop, want:type(prop), seld:type(pnam), "
                      "from:@}, ~rtyp:type(utxt)",
                      args),
      noErr);
  ASSERT_EQ(event.putAttributeDesc(enumConsidsAndIgnores, Descriptor::makeSInt32(65536)), noErr);
  const auto bytes = flat(event);
  EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 8, bytes.begin() + 12), wire("'aevt'"));
  EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 16, bytes.begin() + 44),
            wire("00000001 'core' 'getd' FFF9 0000 000004D2 00000003 00000002"));
  const Descriptor back = readBack(bytes);
  EXPECT_TRUE(back == event) << printDesc(back);
  EXPECT_EQ(back.returnID(), -7);
  EXPECT_EQ(back.transactionID(), 1234);
  EXPECT_EQ(testing::codeOf(back.address()), fourCharCode("hook"));

  // Events nest inside lists.
  Descriptor list = Descriptor::makeList();
  ASSERT_EQ(list.putDesc(0, event), noErr);
  ASSERT_EQ(list.putDesc(0, Descriptor::makeText("x")), noErr);
  EXPECT_TRUE(readBack(flat(list)) == list);

  // A return ID of -1 stays -1 rather than being generated anew.
  Descriptor minusOne = Descriptor::makeAppleEvent(kCoreEventClass, kAEAnswer, Descriptor(), 1, 0);
  const int16_t rtid = -1;
  ASSERT_EQ(minusOne.putAttributePtr(keyReturnIDAttr, typeSInt16, &rtid, 2), noErr);
  EXPECT_EQ(readBack(flat(minusOne)).returnID(), -1);
}

TEST(Wire, FlattenIntoChecksTheBuffer) {
  const Descriptor desc = build("[1, \"two\"]");
  std::vector<uint8_t> buffer(flattenedSize(desc) - 1, 0xAA);
  size_t written = 0;
  EXPECT_EQ(flattenInto(desc, buffer, &written), errAEBufferTooSmall);
  EXPECT_EQ(buffer[0], 0xAA);
  buffer.push_back(0xAA);
  ASSERT_EQ(flattenInto(desc, buffer, &written), noErr);
  EXPECT_EQ(written, buffer.size());
  EXPECT_EQ(buffer, flat(desc));
}

// The fuzzing seeds were written by an independent encoder from docs/formats/descriptors.md:
// each reads, and flattens back to the very same bytes.
TEST(Wire, SeedsWrittenFromTheLayoutDocumentReadBack) {
  const std::filesystem::path dir =
      std::filesystem::path(RVITUNES_SOURCE_DIR) / "fuzz/corpus/ae_wire";
  size_t checked = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    std::ifstream in(entry.path(), std::ios::binary);
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                     std::istreambuf_iterator<char>());
    const Result<Descriptor> desc = unflatten(bytes);
    if (entry.path().filename() == "truncated.bin") {
      EXPECT_FALSE(desc.ok());
      continue;
    }
    ASSERT_TRUE(desc.ok()) << entry.path() << ": " << desc.status().toString();
    EXPECT_EQ(flat(*desc), bytes) << entry.path();
    ++checked;
  }
  EXPECT_GE(checked, 12u);
}

TEST(WireHostile, EveryTruncationFailsCleanly) {
  const Descriptor desc = build(
      "{a:[1, \"xyz\", obj{form:prop, want:type(prop), seld:type(pnam), from:()}], b:'cRGB'{}}");
  const auto bytes = flat(desc);
  for (size_t n = 0; n < bytes.size(); ++n) {
    const Result<Descriptor> cut = unflatten(std::span(bytes.data(), n));
    ASSERT_FALSE(cut.ok()) << n;
    EXPECT_EQ(cut.status().code(), errAECorruptData) << n;
  }
  EXPECT_TRUE(unflatten(bytes).ok());
}

TEST(WireHostile, LengthsCountsAndHeadersAreChecked) {
  expectRejected(wire("'dle3' 00000000 'null' 00000000"), errAECorruptData, 0);
  expectRejected(wire("'dle2' 00000001 'null' 00000000"), errAECorruptData, 4);
  // Data length past the end.
  expectRejected(wire("'dle2' 00000000 'TEXT' 00000010 41"), errAECorruptData, 12);
  expectRejected(wire("'dle2' 00000000 'TEXT' 7FFFFFFF 41"), errAECorruptData, 12);
  // Bytes after the descriptor.
  expectRejected(wire("'dle2' 00000000 'null' 00000000 00"), errAECorruptData, 16);
  // A count that cannot fit in the bytes given, before anything is allocated for it.
  expectRejected(wire("'dle2' 00000000 'list' 00000018 00000000 00000000 00000018 'list' "
                      "FFFFFFFF 00000000"),
                 errAECorruptData, 32);
  // The long-form block and repeated type.
  expectRejected(wire("'dle2' 00000000 'list' 00000018 00000000 00000000 00000019 'list' "
                      "00000000 00000000"),
                 errAECorruptData, 24);
  expectRejected(wire("'dle2' 00000000 'list' 00000018 00000000 00000000 00000018 'reco' "
                      "00000000 00000000"),
                 errAECorruptData, 28);
  // A container whose size disagrees with its items.
  expectRejected(wire("'dle2' 00000000 'list' 00000024 00000000 00000000 00000018 'list' "
                      "00000001 00000000 'null' 00000000 00000000"),
                 errAECorruptData, 12);
  // A nested item without its pad byte, and one running past its container.
  expectRejected(wire("'dle2' 00000000 'obj ' 00000015 00000001 00000000 'seld' 'TEXT' "
                      "00000001 41"),
                 errAECorruptData, 37);
  expectRejected(wire("'dle2' 00000000 'obj ' 00000014 00000001 00000000 'seld' 'TEXT' "
                      "00000004 41424344 'more'"),
                 errAECorruptData, 28);
  // Events: unknown layout, header fields as attributes, impossible counts.
  expectRejected(wire("'dle2' 00000000 'aevt' 0000001C 00000002 'core' 'getd' 0001 0000 "
                      "00000000 00000000 00000000"),
                 errAECorruptData, 16);
  expectRejected(wire("'dle2' 00000000 'aevt' 0000002C 00000001 'core' 'getd' 0001 0000 "
                      "00000000 00000001 00000000 'evcl' 'type' 00000004 'xxxx'"),
                 errAECorruptData, 44);
  expectRejected(wire("'dle2' 00000000 'aevt' 0000001C 00000001 'core' 'getd' 0001 0000 "
                      "00000000 FFFFFFFF FFFFFFFF"),
                 errAECorruptData, 36);
  // Lists and records cannot claim to be simple data.
  expectRejected(wire("'dle2' 00000000 'list' 80000000"), errAECorruptData, 12);
}

TEST(WireHostile, LimitsOnSizeDepthAndItems) {
  // 65 nested short-form lists inside a record: the 64th level is refused.
  const auto appendU32 = [](std::vector<uint8_t>& out, uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8)
      out.push_back(static_cast<uint8_t>(v >> shift));
  };
  std::vector<uint8_t> nested = wire("'list' 00000008 00000000 00000000");
  for (int level = 1; level < 65; ++level) {
    std::vector<uint8_t> outer = wire("'list'");
    appendU32(outer, static_cast<uint32_t>(8 + nested.size()));
    appendU32(outer, 1);
    appendU32(outer, 0);
    outer.insert(outer.end(), nested.begin(), nested.end());
    nested = std::move(outer);
  }
  std::vector<uint8_t> deep = wire("'dle2' 00000000 'reco'");
  appendU32(deep, static_cast<uint32_t>(24 + 4 + nested.size()));
  const auto header = wire("00000000 00000000 00000018 'reco' 00000001 00000000 'key '");
  deep.insert(deep.end(), header.begin(), header.end());
  deep.insert(deep.end(), nested.begin(), nested.end());
  expectRejected(deep, memFullErr, 44 + 16 * 63);

  WireLimits small;
  small.maxInputBytes = 15;
  expectRejected(wire("'dle2' 00000000 'null' 00000000"), memFullErr, 0, small);
  small = WireLimits();
  small.maxItems = 1;
  expectRejected(flat(build("[1, 2]")), memFullErr, 32, small);
  expectRejected(wire("'dle2' 00000000 'TEXT' 04000001"), errAECorruptData, 12);
}

}  // namespace
}  // namespace rvitunes::ae
