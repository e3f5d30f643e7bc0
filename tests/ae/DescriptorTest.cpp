#include "rvitunes/ae/Descriptor.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "DescTestSupport.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/ae/Wire.h"

namespace rvitunes::ae {
namespace {

using testing::build;
using testing::bytesOf;
using testing::codeOf;
using testing::valueOf;

TEST(Descriptor, NullMoveAndDuplicate) {
  const Descriptor null;
  EXPECT_TRUE(null.isNull());
  EXPECT_EQ(null.dataSize(), 0u);
  int32_t count = 0;
  EXPECT_EQ(null.countItems(&count), errAENotAEDesc);

  Descriptor list = build("[1, \"a\", {k:[2]}]");
  Descriptor copy = list.duplicate();
  EXPECT_TRUE(copy == list);
  Descriptor moved = std::move(list);
  EXPECT_TRUE(list.isNull());  // NOLINT(bugprone-use-after-move): moved-from is null
  EXPECT_TRUE(moved == copy);
  // The copy is independent.
  ASSERT_EQ(copy.putDesc(1, Descriptor::makeSInt32(9)), noErr);
  EXPECT_FALSE(moved == copy);
  disposeDesc(&moved);
  EXPECT_TRUE(moved.isNull());
}

TEST(Descriptor, CreateChecksTypeAndSize) {
  Descriptor out = Descriptor::makeSInt32(1);
  EXPECT_EQ(Descriptor::create(typeAEList, nullptr, 0, &out), paramErr);
  EXPECT_TRUE(out.isNull());
  EXPECT_EQ(Descriptor::create(typeChar, nullptr, 3, &out), paramErr);
  EXPECT_EQ(Descriptor::create(typeChar, "x", kMaxDescriptorDataSize + 1, &out), memFullErr);
  ASSERT_EQ(Descriptor::create(typeChar, "abc", 3, &out), noErr);
  char buffer[2] = {};
  EXPECT_EQ(out.getData(buffer, sizeof buffer), noErr);
  EXPECT_EQ(std::string(buffer, 2), "ab");
  EXPECT_EQ(build("[]").getData(buffer, 2), errAEWrongDataType);
  EXPECT_EQ(out.setType(typeUTF8Text), noErr);
  EXPECT_EQ(out.setType(typeAERecord), paramErr);
}

TEST(Descriptor, ListItemsAreNumberedFromOne) {
  Descriptor list = Descriptor::makeList();
  ASSERT_EQ(list.putPtr(0, typeChar, "a", 1), noErr);            // 0 appends
  ASSERT_EQ(list.putDesc(2, Descriptor::makeSInt16(7)), noErr);  // count+1 appends
  EXPECT_EQ(list.putDesc(4, Descriptor()), errAEIllegalIndex);
  EXPECT_EQ(list.putDesc(-1, Descriptor()), errAEIllegalIndex);
  int32_t count = 0;
  ASSERT_EQ(list.countItems(&count), noErr);
  EXPECT_EQ(count, 2);

  Descriptor out;
  AEKeyword key = 0;
  ASSERT_EQ(list.getNthDesc(2, typeSInt32, &key, &out), noErr);  // coerced
  EXPECT_EQ(key, typeWildCard);
  EXPECT_EQ(out.type(), typeSInt32);
  EXPECT_EQ(list.getNthDesc(0, typeWildCard, nullptr, &out), errAEBadListItem);
  EXPECT_EQ(list.getNthDesc(3, typeWildCard, nullptr, &out), errAEBadListItem);
  EXPECT_EQ(list.getNthDesc(1, typeSInt32, nullptr, &out), errAECoercionFail);
  EXPECT_TRUE(out.isNull());

  int32_t value = 0;
  DescType actualType = 0;
  size_t actualSize = 0;
  ASSERT_EQ(list.getNthPtr(2, typeSInt32, nullptr, &actualType, &value, sizeof value, &actualSize),
            noErr);
  EXPECT_EQ(value, 7);
  EXPECT_EQ(actualType, typeSInt32);
  EXPECT_EQ(actualSize, 4u);

  ASSERT_EQ(list.putDesc(1, Descriptor::makeText("b")), noErr);  // replace
  EXPECT_EQ(bytesOf(list.itemAt(0)), "b");
  EXPECT_EQ(list.deleteItem(3), errAEBadListItem);
  ASSERT_EQ(list.deleteItem(1), noErr);
  EXPECT_EQ(list.itemCount(), 1u);
}

TEST(Descriptor, RecordsKeepKeyOrderAndReplaceInPlace) {
  Descriptor record = Descriptor::makeRecord();
  ASSERT_EQ(record.putParamDesc(fourCharCode("zzzz"), Descriptor::makeSInt32(1)), noErr);
  ASSERT_EQ(record.putParamPtr(fourCharCode("aaaa"), typeChar, "x", 1), noErr);
  ASSERT_EQ(record.putParamDesc(fourCharCode("zzzz"), Descriptor::makeSInt32(2)), noErr);
  ASSERT_EQ(record.itemCount(), 2u);
  EXPECT_EQ(record.keyAt(0), fourCharCode("zzzz"));
  EXPECT_EQ(valueOf<int32_t>(record.itemAt(0)), 2);
  // Appending by index is for lists only; replacing by index keeps the key.
  EXPECT_EQ(record.putDesc(0, Descriptor()), errAEWrongDataType);
  ASSERT_EQ(record.putDesc(2, Descriptor::makeText("y")), noErr);
  EXPECT_EQ(record.keyAt(1), fourCharCode("aaaa"));
  AEKeyword key = 0;
  Descriptor out;
  ASSERT_EQ(record.getNthDesc(1, typeWildCard, &key, &out), noErr);
  EXPECT_EQ(key, fourCharCode("zzzz"));

  EXPECT_EQ(record.deleteParam(fourCharCode("none")), errAEDescNotFound);
  ASSERT_EQ(record.deleteParam(fourCharCode("zzzz")), noErr);
  EXPECT_EQ(record.findParam(fourCharCode("zzzz")), nullptr);
  EXPECT_EQ(Descriptor::makeList().putParamDesc(keyDirectObject, Descriptor()), errAEWrongDataType);
}

TEST(Descriptor, ParamPtrCopiesAtMostMaxButReportsFullSize) {
  Descriptor reply = Descriptor::makeAppleEvent(kCoreEventClass, kAEAnswer, Descriptor(), 3, 0);
  ASSERT_EQ(reply.putParamDesc(keyDirectObject, Descriptor::makeText("abcdef")), noErr);
  char buffer[4] = {'-', '-', '-', '-'};
  DescType type = 0;
  size_t size = 0;
  ASSERT_EQ(reply.getParamPtr(keyDirectObject, typeChar, &type, buffer, 3, &size), noErr);
  EXPECT_EQ(std::string(buffer, 4), "abc-");
  EXPECT_EQ(size, 6u);
  ASSERT_EQ(reply.sizeOfParam(keyDirectObject, &type, &size), noErr);
  EXPECT_EQ(type, typeChar);
  EXPECT_EQ(size, 6u);

  int32_t number = 0;
  EXPECT_EQ(reply.getParamPtr(keyDirectObject, typeSInt32, nullptr, &number, 4, nullptr),
            errAECoercionFail);
  EXPECT_EQ(reply.getParamPtr(keyErrorNumber, typeSInt32, nullptr, &number, 4, nullptr),
            errAEDescNotFound);
  EXPECT_EQ(reply.sizeOfParam(keyErrorNumber, &type, &size), errAEDescNotFound);

  // A container parameter reports its flattened size and refuses a byte copy.
  const Descriptor list = build("[1, 2]");
  ASSERT_EQ(reply.putParamDesc(keyAEData, list), noErr);
  ASSERT_EQ(reply.sizeOfParam(keyAEData, &type, &size), noErr);
  EXPECT_EQ(type, typeAEList);
  EXPECT_EQ(size, flattenedSize(list));
  EXPECT_EQ(reply.getParamPtr(keyAEData, typeWildCard, nullptr, buffer, 4, nullptr),
            errAEWrongDataType);
}

TEST(Descriptor, EventFieldsAndAttributes) {
  const Descriptor target = Descriptor::makeCode(typeApplSignature, fourCharCode("hook"));
  Descriptor event = Descriptor::makeAppleEvent(kAECoreSuite, kAESetData, target, 12, 99);
  EXPECT_EQ(event.eventClass(), kAECoreSuite);
  EXPECT_EQ(event.eventID(), kAESetData);
  EXPECT_EQ(event.returnID(), 12);
  EXPECT_EQ(event.transactionID(), 99);
  EXPECT_TRUE(event.address() == target);

  Descriptor out;
  ASSERT_EQ(event.getAttributeDesc(keyEventClassAttr, typeWildCard, &out), noErr);
  EXPECT_EQ(out.type(), typeType);
  EXPECT_EQ(codeOf(out), kAECoreSuite);
  int16_t rtid = 0;
  ASSERT_EQ(event.getAttributePtr(keyReturnIDAttr, typeSInt16, nullptr, &rtid, 2, nullptr), noErr);
  EXPECT_EQ(rtid, 12);
  ASSERT_EQ(event.getAttributeDesc(keyTransactionIDAttr, typeChar, &out), noErr);
  EXPECT_EQ(bytesOf(out), "99");
  EXPECT_EQ(event.getAttributeDesc(keySubjectAttr, typeWildCard, &out), errAEDescNotFound);

  // Putting a field attribute changes the field.
  ASSERT_EQ(event.putAttributeDesc(keyEventIDAttr, Descriptor::makeText("getd")), noErr);
  EXPECT_EQ(event.eventID(), kAEGetData);
  const int32_t wide = 13;
  ASSERT_EQ(event.putAttributePtr(keyReturnIDAttr, typeSInt32, &wide, 4), noErr);
  EXPECT_EQ(event.returnID(), 13);
  EXPECT_EQ(event.putAttributeDesc(keyReturnIDAttr, Descriptor::makeSInt32(70000)),
            errAECoercionFail);
  // A field value of the right type but the wrong size is refused, not over-read.
  const uint8_t oneByte = 1;
  EXPECT_EQ(event.putAttributePtr(keyReturnIDAttr, typeSInt16, &oneByte, 1), errAECoercionFail);
  EXPECT_EQ(event.putAttributePtr(keyTransactionIDAttr, typeSInt32, &oneByte, 1),
            errAECoercionFail);
  EXPECT_EQ(event.putAttributePtr(keyEventClassAttr, typeType, &oneByte, 1), errAECoercionFail);
  EXPECT_EQ(event.deleteAttribute(keyEventClassAttr), paramErr);
  ASSERT_EQ(event.putAttributeDesc(enumConsidsAndIgnores, Descriptor::makeUInt32(0x10000)), noErr);
  ASSERT_EQ(event.attributeCount(), 2u);
  EXPECT_EQ(event.attributeKeyAt(0), keyAddressAttr);
  size_t size = 0;
  ASSERT_EQ(event.sizeOfAttribute(enumConsidsAndIgnores, nullptr, &size), noErr);
  EXPECT_EQ(size, 4u);
  ASSERT_EQ(event.deleteAttribute(enumConsidsAndIgnores), noErr);
  EXPECT_EQ(event.deleteAttribute(enumConsidsAndIgnores), errAEDescNotFound);

  EXPECT_EQ(target.getAttributeDesc(keyAddressAttr, typeWildCard, &out), errAENotAppleEvent);
  EXPECT_EQ(target.eventClass(), 0u);
  EXPECT_TRUE(target.address().isNull());
}

TEST(Descriptor, GeneratedReturnIDsAreDistinctAndPositive) {
  std::set<AEReturnID> seen;
  for (int i = 0; i < 100; ++i) {
    const Descriptor event = Descriptor::makeAppleEvent(kCoreEventClass, kAEOpenApplication,
                                                        Descriptor(), kAutoGenerateReturnID, 0);
    EXPECT_GT(event.returnID(), 0);
    seen.insert(event.returnID());
  }
  EXPECT_EQ(seen.size(), 100u);
}

TEST(Descriptor, EqualityLooksAtEverything) {
  EXPECT_TRUE(build("{a:1, b:2}") == build("{a:1, b:2}"));
  EXPECT_FALSE(build("{a:1, b:2}") == build("{b:2, a:1}"));  // order matters
  EXPECT_FALSE(build("{a:1}") == build("obj{a:1}"));         // record type
  EXPECT_FALSE(build("[1]") == build("[long(1)]"));          // item type
  EXPECT_FALSE(build("[]") == build("{}"));
  const Descriptor a = Descriptor::makeAppleEvent(kCoreEventClass, kAEAnswer, Descriptor(), 1, 0);
  const Descriptor b = Descriptor::makeAppleEvent(kCoreEventClass, kAEAnswer, Descriptor(), 2, 0);
  EXPECT_FALSE(a == b);
}

TEST(Descriptor, NestingIsBounded) {
  Descriptor deep = Descriptor::makeSInt32(0);
  for (uint32_t depth = 1; depth < kMaxDescriptorDepth; ++depth) {
    Descriptor record = Descriptor::makeRecord();
    ASSERT_EQ(record.putParamDesc(keyAEData, std::move(deep)), noErr);
    deep = std::move(record);
  }
  EXPECT_EQ(deep.depth(), kMaxDescriptorDepth);
  Descriptor list = Descriptor::makeList();
  EXPECT_EQ(list.putDesc(0, deep), memFullErr);
  Descriptor record = Descriptor::makeRecord();
  EXPECT_EQ(record.putParamDesc(keyDirectObject, deep), memFullErr);
  Descriptor wrapped;
  EXPECT_EQ(coerceDesc(deep, typeAEList, &wrapped), errAECoercionFail);
}

}  // namespace
}  // namespace rvitunes::ae
