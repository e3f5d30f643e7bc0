#include "rvitunes/image/Pasteboard.h"

#include <gtest/gtest.h>

#include "ImageTestSupport.h"
#include "rvitunes/image/Pict.h"

namespace rvitunes::image {
namespace {

using test::Bytes;
using test::pattern;
using Types = std::vector<std::string>;

TEST(PasteboardTest, NamedPasteboardsAreSharedUntilReleased) {
  auto first = Pasteboard::withName("PasteboardTest.shared");
  EXPECT_EQ(Pasteboard::withName("PasteboardTest.shared"), first);
  first->declareTypes({"TIFF"});
  first->releaseGlobally();
  EXPECT_TRUE(first->types().empty());
  auto fresh = Pasteboard::withName("PasteboardTest.shared");
  EXPECT_NE(fresh, first);
  first->releaseGlobally();  // the stale object must not unregister the new one
  EXPECT_EQ(Pasteboard::withName("PasteboardTest.shared"), fresh);
  fresh->releaseGlobally();
}

TEST(PasteboardTest, DeclaredTypesGateTheData) {
  auto board = Pasteboard::withName("PasteboardTest.types");
  const int64_t count = board->declareTypes({"TIFF", "public.text", "TIFF"});
  EXPECT_EQ(board->types(), (Types{"TIFF", "public.text"}));
  EXPECT_FALSE(board->setData(Bytes{1}, "PNG"));
  EXPECT_TRUE(board->setData(Bytes{'h', 'i'}, "public.text"));
  EXPECT_EQ(board->dataForType("public.text"), (Bytes{'h', 'i'}));
  EXPECT_EQ(board->dataForType("TIFF"), std::nullopt);  // declared, never set
  EXPECT_EQ(board->dataForType("PICT"), std::nullopt);  // no TIFF to convert
  EXPECT_EQ(board->declareTypes({}), count + 1);
  EXPECT_EQ(board->dataForType("public.text"), std::nullopt);
  board->releaseGlobally();
}

TEST(PasteboardTest, ConvertsTiffToPictOnDemand) {
  // The artwork path: TIFF in, a bare picture out that decodes to the same pixels.
  auto board = Pasteboard::withName("Cadenza");
  board->declareTypes({Pasteboard::kTypeTIFF});
  ASSERT_TRUE(board->setData(*pattern(70, 40, true).tiffRepresentation(), "TIFF"));
  EXPECT_EQ(board->types(), (Types{"TIFF", "PICT"}));
  const auto pict = board->dataForType(Pasteboard::kTypePICT);
  ASSERT_TRUE(pict.has_value());
  EXPECT_EQ(*pict, *encodePict(pattern(70, 40, true)));
  // New TIFF data replaces the converted picture; unreadable TIFF gives none.
  board->setData(*pattern(8, 8, false).tiffRepresentation(), "TIFF");
  EXPECT_EQ(*decodePict(*board->dataForType("PICT")), pattern(8, 8, false));
  board->setData(Bytes{'I', 'I', 42, 0, 1, 2}, "TIFF");
  EXPECT_EQ(board->types(), (Types{"TIFF", "PICT"}));
  EXPECT_EQ(board->dataForType("PICT"), std::nullopt);
  board->releaseGlobally();
}

}  // namespace
}  // namespace rvitunes::image
