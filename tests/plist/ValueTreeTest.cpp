// The value tree: number conversions, sharing, dictionary order and lookup.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes::plist {
namespace {

TEST(ValueNumbers, TruthValueFollowsTheNumberNotTheType) {
  EXPECT_TRUE(Value::boolean(true).boolValue());
  EXPECT_FALSE(Value::boolean(false).boolValue());
  EXPECT_TRUE(Value::integer(42).boolValue());
  EXPECT_TRUE(Value::integer(-1).boolValue());
  EXPECT_FALSE(Value::integer(0).boolValue());
  EXPECT_TRUE(Value::unsignedInteger(std::numeric_limits<uint64_t>::max()).boolValue());
  EXPECT_TRUE(Value::real(0.5).boolValue());
  EXPECT_FALSE(Value::real(0.0).boolValue());
  EXPECT_FALSE(Value::string("1").boolValue());  // only numbers have a truth value here
  EXPECT_FALSE(Value().boolValue());
  EXPECT_TRUE(Value::boolean(false).isNumber());
}

TEST(ValueNumbers, IntValueWrapsToThirtyTwoBits) {
  EXPECT_EQ(Value::integer(0x100000005LL).intValue(), 5);
  EXPECT_EQ(Value::integer(0xFFFFFFFFLL).intValue(), -1);
  EXPECT_EQ(Value::integer(-7).intValue(), -7);
  EXPECT_EQ(Value::integer(0x80000000LL).intValue(), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(Value::real(-3.9).intValue(), -3);
  EXPECT_EQ(Value::real(1e300).longLongValue(), std::numeric_limits<int64_t>::max());
  EXPECT_EQ(Value::real(std::nan("")).longLongValue(), 0);
  EXPECT_EQ(Value::boolean(true).intValue(), 1);
}

TEST(ValueNumbers, UnsignedRangeIsKept) {
  Value big = Value::unsignedInteger(18446744073709551615ULL);
  EXPECT_TRUE(big.isUnsigned());
  EXPECT_EQ(big.unsignedLongLongValue(), 18446744073709551615ULL);
  EXPECT_EQ(big.stringValue(), "18446744073709551615");
  EXPECT_FALSE(Value::unsignedInteger(5).isUnsigned());
  EXPECT_EQ(Value::unsignedInteger(5), Value::integer(5));
  EXPECT_FALSE(big == Value::integer(-1));  // same bits, different numbers
}

TEST(ValueNumbers, DecimalText) {
  EXPECT_EQ(Value::integer(std::numeric_limits<int64_t>::min()).stringValue(),
            "-9223372036854775808");
  EXPECT_EQ(Value::boolean(true).stringValue(), "1");
  EXPECT_EQ(Value::real(0.1).stringValue(), "0.1");
  EXPECT_EQ(Value::real(-INFINITY).stringValue(), "-inf");
  EXPECT_EQ(Value::string("abc").stringValue(), "abc");
  EXPECT_EQ(Value::newArray().stringValue(), "");
}

TEST(ValueSharing, ContainersAreSharedNotCopied) {
  Value record = Value::newDictionary();
  Value alias = record;  // a second holder
  Value list = Value::newArray();
  list.asArray()->push_back(record);
  alias.asDictionary()->set("Playlist Icon", Value::string("x"));
  EXPECT_EQ(record.asDictionary()->get("Playlist Icon").stringView(), "x");
  EXPECT_EQ((*list.asArray())[0].asDictionary(), record.asDictionary());
  EXPECT_EQ(record.asDictionary()->useCount(), 3u);
  list = Value();
  alias = Value();
  EXPECT_EQ(record.asDictionary()->useCount(), 1u);
}

TEST(ValueSharing, DeepEqualityIsTypeExact) {
  Value a = Value::newArray();
  a.asArray()->push_back(Value::integer(1));
  Value b = Value::newArray();
  b.asArray()->push_back(Value::integer(1));
  EXPECT_EQ(a, b);
  b.asArray()->push_back(Value::string("x"));
  EXPECT_NE(a, b);
  EXPECT_NE(Value::integer(1), Value::boolean(true));
  EXPECT_NE(Value::integer(1), Value::real(1.0));
  EXPECT_EQ(Value::real(NAN), Value::real(NAN));
}

TEST(DictionaryOrder, KeepsInsertionOrderThroughReplaceAndRemove) {
  auto d = Dictionary::create();
  for (int i = 0; i < 20; ++i)
    d->set("k" + std::to_string(i), Value::integer(i));
  d->set("k3", Value::string("replaced"));
  EXPECT_EQ(d->entryAt(3).key.stringView(), "k3");
  EXPECT_EQ(d->entryAt(3).value.stringView(), "replaced");
  EXPECT_TRUE(d->remove("k0"));
  EXPECT_FALSE(d->remove("k0"));
  EXPECT_EQ(d->size(), 19u);
  EXPECT_EQ(d->entryAt(0).key.stringView(), "k1");
  for (int i = 1; i < 20; ++i) {
    ASSERT_NE(d->find("k" + std::to_string(i)), nullptr) << i;
  }
  EXPECT_EQ(d->find("k0"), nullptr);
}

TEST(DictionaryOrder, LookupWorksAcrossTheIndexThreshold) {
  auto d = Dictionary::create();
  for (int n = 0; n < 300; ++n) {
    d->set(std::to_string(n), Value::integer(n));
    for (int i = 0; i <= n; i += 7) {
      const Value* v = d->find(std::to_string(i));
      ASSERT_NE(v, nullptr) << "size " << n + 1 << " key " << i;
      ASSERT_EQ(v->longLongValue(), i);
    }
    ASSERT_EQ(d->find("missing"), nullptr);
  }
}

TEST(DictionaryKeys, NumbersAndStringsAreDistinctKeys) {
  auto d = Dictionary::create();
  d->set(Value::integer(12), Value::string("number"));
  d->set(Value::string("12"), Value::string("text"));
  EXPECT_EQ(d->size(), 2u);
  EXPECT_EQ(d->get(Value::integer(12)).stringView(), "number");
  EXPECT_EQ(d->get(Value::real(12.0)).stringView(), "number");  // numeric key equality
  EXPECT_EQ(d->get(Value::boolean(true)).stringView(), "");
  EXPECT_EQ(d->get("12").stringView(), "text");
}

TEST(DictionaryKeys, AdoptMergesDuplicatesKeepingFirstPositionAndLastValue) {
  for (int size : {3, 40}) {  // both below and above the index threshold
    std::vector<Dictionary::Entry> entries;
    for (int i = 0; i < size; ++i) {
      entries.push_back({Value::string("k" + std::to_string(i)), Value::integer(i)});
    }
    entries.push_back({Value::string("k1"), Value::string("late")});
    auto d = Dictionary::create();
    EXPECT_EQ(d->adopt(std::move(entries)), 1u);
    EXPECT_EQ(d->size(), static_cast<size_t>(size));
    EXPECT_EQ(d->entryAt(1).value.stringView(), "late");
    EXPECT_EQ(d->entryAt(static_cast<size_t>(size) - 1).key.stringView(),
              "k" + std::to_string(size - 1));
    EXPECT_EQ(d->get("k1").stringView(), "late");
  }
}

}  // namespace
}  // namespace rvitunes::plist
