#include "rvitunes/base/OSStatus.h"

#include <gtest/gtest.h>

namespace rvitunes {
namespace {

TEST(OSStatusTest, NamesKnownNumbersOnly) {
  EXPECT_EQ(osStatusName(noErr), "noErr");
  EXPECT_EQ(osStatusName(-1728), "errAENoSuchObject");
  EXPECT_EQ(osStatusName(errAETimeout), "errAETimeout");
  EXPECT_EQ(osStatusName(-10024), "errAECantPutThatThere");
  EXPECT_EQ(osStatusName(-1), "");
  EXPECT_EQ(osStatusName(-1722), "");  // a gap in the Apple Event Manager range
}

}  // namespace
}  // namespace rvitunes
