// Hexadecimal identifier text, and the case-insensitive order of playlist names.
#include <gtest/gtest.h>

#include <string>

#include "rvitunes/cadenza/CZPlaylistNameSorting.h"
#include "rvitunes/cadenza/LongLongValue.h"

namespace rvitunes {
namespace {

TEST(LongLongValueTest, ReadsHexadecimalAsTheCLibraryDoes) {
  EXPECT_EQ(longlongValue("0x1F"), 31);
  EXPECT_EQ(longlongValue("1f"), 31);
  EXPECT_EQ(longlongValue("0X1f"), 31);
  EXPECT_EQ(longlongValue("  \t1f"), 31);  // leading blanks
  EXPECT_EQ(longlongValue("1fz9"), 31);    // stops at the first non-digit
  EXPECT_EQ(longlongValue("zz"), 0);
  EXPECT_EQ(longlongValue(""), 0);
  EXPECT_EQ(longlongValue("0x"), 0);
  EXPECT_EQ(longlongValue("-1"), -1);  // strtoull negates
  EXPECT_EQ(longlongValue("00000000000ABCDE"), 703710);
  EXPECT_EQ(longlongValue(std::string("1F\0"
                                      "FF",
                                      5)),
            31);  // a zero byte ends the text
}

TEST(LongLongValueTest, FullWidthIdentifiersWrapToSignedAndOverflowSaturates) {
  EXPECT_EQ(longlongValue("F00000000000A003"), static_cast<int64_t>(0xF00000000000A003ULL));
  EXPECT_LT(longlongValue("F00000000000A003"), 0);
  EXPECT_EQ(longlongValue("FFFFFFFFFFFFFFFF"), -1);
  EXPECT_EQ(longlongValue("1FFFFFFFFFFFFFFFF"), -1);  // 17 digits: all ones
  EXPECT_EQ(longlongValue("7FFFFFFFFFFFFFFF"), INT64_MAX);
}

TEST(CompareCaseInsensitiveTest, FoldsLettersOfTheCommonAlphabets) {
  EXPECT_EQ(compareCaseInsensitive("alpha", "ALPHA"), 0);
  EXPECT_EQ(compareCaseInsensitive("alpha", "Library"), -1);
  EXPECT_EQ(compareCaseInsensitive("Zebra", "alpha"), 1);
  EXPECT_EQ(compareCaseInsensitive("LIBRARY", "PLAYLISTS"), -1);
  EXPECT_EQ(compareCaseInsensitive("PLAYLISTS", "STORE"), -1);
  EXPECT_EQ(compareCaseInsensitive("Rock", "Rock and Roll"), -1);  // a prefix sorts first
  EXPECT_EQ(compareCaseInsensitive("", ""), 0);
  EXPECT_EQ(compareCaseInsensitive("\xC3\x89t\xC3\xA9", "\xC3\xA9T\xC3\x89"), 0);  // Été / éTÉ
  EXPECT_EQ(compareCaseInsensitive("\xD0\x9C\xD0\xB8\xD1\x80", "\xD0\xBC\xD0\x98\xD0\xA0"),
            0);  // Мир / мИР
  EXPECT_EQ(compareCaseInsensitive("\xC5\x81\xC3\xB3"
                                   "d\xC5\xBA",
                                   "\xC5\x82\xC3\x93\x44\xC5\xB9"),
            0);                                           // Łódź / łÓDŹ
  EXPECT_EQ(compareCaseInsensitive("\xC3\xA9", "z"), 1);  // beyond ASCII sorts after it
}

}  // namespace
}  // namespace rvitunes
