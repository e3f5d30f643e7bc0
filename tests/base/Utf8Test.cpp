#include "rvitunes/base/Utf8.h"

#include <gtest/gtest.h>

namespace rvitunes {
namespace {

TEST(Utf8Test, AcceptsShortestFormsUpToU10FFFF) {
  for (std::string_view text :
       {std::string_view(""), std::string_view("a\0b", 3), std::string_view("\xC2\x80"),
        std::string_view("\xE0\xA0\x80"), std::string_view("\xED\x9F\xBF"),
        std::string_view("\xEE\x80\x80"), std::string_view("\xF0\x90\x80\x80"),
        std::string_view("\xF4\x8F\xBF\xBF")}) {
    EXPECT_TRUE(isValidUtf8(text)) << testing::PrintToString(text);
  }
  // Lone continuation, overlong forms, a surrogate, past U+10FFFF, truncated sequences.
  for (std::string_view text : {"\x80", "\xC0\xAF", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80",
                                "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF",
                                "\xC3", "\xE2\x82", "\xC3\x28", "ok\xE2\x82\x41"}) {
    EXPECT_FALSE(isValidUtf8(text)) << testing::PrintToString(text);
  }
}

}  // namespace
}  // namespace rvitunes
