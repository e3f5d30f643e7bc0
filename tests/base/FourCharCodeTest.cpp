#include "rvitunes/base/FourCharCode.h"

#include <gtest/gtest.h>

namespace rvitunes {
namespace {

static_assert(fourCharCode("hook") == 0x686F6F6B);
static_assert(fourCharCode("\xFF\x00\x01 ") == 0xFF000120);

TEST(FourCharCodeTest, ParsesAndPads) {
  EXPECT_EQ(parseFourCharCode("hook"), fourCharCode("hook"));
  EXPECT_EQ(parseFourCharCode("pEQ"), fourCharCode("pEQ "));
  EXPECT_EQ(parseFourCharCode("a"), fourCharCode("a   "));
  EXPECT_EQ(parseFourCharCode("\xA9nam"), 0xA96E616Du);  // high bytes are not sign-extended
  EXPECT_EQ(parseFourCharCode(std::string_view("\0\0\0\1", 4)), 1u);
  EXPECT_EQ(parseFourCharCode(""), std::nullopt);
  EXPECT_EQ(parseFourCharCode("hooks"), std::nullopt);
}

TEST(FourCharCodeTest, WritesBytesAndDisplayForms) {
  EXPECT_EQ(fourCharString(fourCharCode("pEQ ")), "pEQ ");
  EXPECT_EQ(fourCharString(1), std::string("\0\0\0\1", 4));
  EXPECT_EQ(fourCharDisplay(fourCharCode("hook")), "'hook'");
  EXPECT_EQ(fourCharDisplay(fourCharCode("pEQ ")), "'pEQ '");
  EXPECT_EQ(fourCharDisplay(1), "'\\x00\\x00\\x00\\x01'");
  EXPECT_EQ(fourCharDisplay(0xA96E616D), "'\\xA9nam'");
  EXPECT_EQ(fourCharDisplay(fourCharCode("a'\\\x7F")), "'a\\x27\\x5C\\x7F'");
  for (OSType code : {0u, 0x20202020u, 0x7F80FF00u, 0xFFFFFFFFu}) {
    EXPECT_EQ(parseFourCharCode(fourCharString(code)), code);
  }
}

}  // namespace
}  // namespace rvitunes
