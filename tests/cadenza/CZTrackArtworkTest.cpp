// CZTrack's artwork against the reference player: pictures set through the pasteboard come
// back pixel for pixel; the conversion's minimum size; deletion; and a read that meets a
// picture it cannot decode or an artwork it cannot reach.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CadenzaTestSupport.h"
#include "RecordingPlayer.h"
#include "TappedPlayer.h"
#include "cadenza/CZTrackArtwork.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/image/Pict.h"

namespace rvitunes {
namespace {

using cadenza_testing::built;
using cadenza_testing::LogCapture;
using cadenza_testing::RecordingPlayer;
using cadenza_testing::TappedPlayer;

constexpr OSType kArtwork = fourCharCode("cArt");
constexpr OSType kPicture = fourCharCode("pPCT");

std::shared_ptr<CZTrack> trackWithId(int id) {
  return std::make_shared<CZTrack>(
      built("obj { form:'ID  ', want:type(cTrk), seld:" + std::to_string(id) +
            ", from:obj { form:'ID  ', want:type(cPly), seld:400, from:'null'() } }"));
}

// A width × height picture with a different colour in every pixel; translucent when asked.
image::Image pattern(uint32_t width, uint32_t height, bool translucent = false) {
  image::Image img(width, height);
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      img.setPixel(x, y,
                   {static_cast<uint8_t>(x * 7), static_cast<uint8_t>(y * 11),
                    static_cast<uint8_t>((x + y) * 3),
                    static_cast<uint8_t>(translucent ? 64 + (x % 4) * 60 : 255)});
    }
  }
  return img;
}

// Restores the pasteboard conversion when the test ends.
class ConverterOverride {
 public:
  explicit ConverterOverride(cadenza::PictConverter converter)
      : previous_(cadenza::setPictConverterForTesting(std::move(converter))) {}
  ~ConverterOverride() { cadenza::setPictConverterForTesting(std::move(previous_)); }
  ConverterOverride(const ConverterOverride&) = delete;
  ConverterOverride& operator=(const ConverterOverride&) = delete;

 private:
  cadenza::PictConverter previous_;
};

class CZTrackArtworkTest : public ::testing::Test {
 protected:
  TappedPlayer player_{"7.7.1"};
  LogCapture log_;
  std::shared_ptr<CZTrack> bolero_ = trackWithId(cadenza_testing::kBoleroId);
};

TEST_F(CZTrackArtworkTest, PicturesSetFromPngComeBackPixelForPixel) {
  ASSERT_TRUE(bolero_->artwork().empty());
  auto png = pattern(37, 23).pngRepresentation();
  ASSERT_TRUE(png);
  Result<image::Image> fromPng = image::Image::fromData(std::span<const uint8_t>(*png));
  ASSERT_TRUE(fromPng);

  EXPECT_TRUE(bolero_->setArtworkAtIndex(&*fromPng, 0));  // one past the last: added
  std::vector<image::Image> back = bolero_->artwork();
  ASSERT_EQ(back.size(), 1u);
  EXPECT_EQ(back[0], *fromPng);

  // A list replaces from the front and appends; its alpha survives the trip too.
  const std::vector<image::Image> two = {pattern(16, 16, true), pattern(300, 2)};
  bolero_->setArtwork(two);
  back = bolero_->artwork();
  ASSERT_EQ(back.size(), 2u);
  EXPECT_EQ(back[0], two[0]);
  EXPECT_EQ(back[1], two[1]);

  // A shorter list leaves the artwork after it alone; an empty one does nothing.
  bolero_->setArtwork(std::vector<image::Image>{*fromPng});
  bolero_->setArtwork(std::vector<image::Image>{});
  back = bolero_->artwork();
  ASSERT_EQ(back.size(), 2u);
  EXPECT_EQ(back[0], *fromPng);
  EXPECT_EQ(back[1], two[1]);
  EXPECT_FALSE(log_.contains("Unable"));
}

TEST_F(CZTrackArtworkTest, DeletingOneOrAll) {
  bolero_->setArtwork(std::vector<image::Image>{pattern(20, 20), pattern(21, 21)});
  const size_t mark = player_.mark();
  EXPECT_FALSE(bolero_->setArtworkAtIndex(nullptr, 0));  // answers false though it deleted
  const std::vector<std::string> events = player_.eventsSince(mark);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_NE(events[0].find("'core'\\'delo'"), std::string::npos) << events[0];
  EXPECT_NE(events[0].find("'want':type('cArt'), 'seld':1,"), std::string::npos) << events[0];
  std::vector<image::Image> back = bolero_->artwork();
  ASSERT_EQ(back.size(), 1u);
  EXPECT_EQ(back[0], pattern(21, 21));

  bolero_->setArtwork(std::nullopt);
  EXPECT_TRUE(bolero_->artwork().empty());
}

TEST_F(CZTrackArtworkTest, AConversionOf511BytesFailsAnd512GoesOn) {
  const image::Image img = pattern(8, 8);
  size_t sizeToAnswer = 511;
  ConverterOverride fake([&](std::span<const uint8_t> tiff) {
    EXPECT_EQ(image::Image::fromData(tiff).value(), img);  // the image's TIFF came in
    return std::optional<std::vector<uint8_t>>(std::vector<uint8_t>(sizeToAnswer, 0x11));
  });
  size_t mark = player_.mark();
  EXPECT_FALSE(bolero_->setArtworkAtIndex(&img, 0));
  EXPECT_TRUE(log_.contains("Unable to convert to PICT"));
  EXPECT_TRUE(player_.eventsSince(mark).empty());

  sizeToAnswer = 512;
  mark = player_.mark();
  EXPECT_TRUE(bolero_->setArtworkAtIndex(&img, 0));  // sent; the player stores what it gets
  const std::vector<std::string> events = player_.eventsSince(mark);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_NE(events[0].find("'core'\\'setd'"), std::string::npos) << events[0];
  EXPECT_NE(events[0].find("'seld':type('pPCT')"), std::string::npos) << events[0];
  EXPECT_NE(events[0].find("'PICT'($11111111"), std::string::npos) << events[0];
}

TEST_F(CZTrackArtworkTest, NothingComingOutOfTheConversionOrAnEmptyImageFails) {
  {
    ConverterOverride none([](std::span<const uint8_t>) { return std::nullopt; });
    const image::Image img = pattern(8, 8);
    EXPECT_FALSE(bolero_->setArtworkAtIndex(&img, 0));
    EXPECT_TRUE(log_.contains("Unable to convert to PICT"));
  }
  // A tiny picture makes too small a PICT through the real pasteboard as well.
  const image::Image tiny = pattern(3, 3);
  auto tinyPict = image::encodePict(tiny);
  ASSERT_TRUE(tinyPict);
  ASSERT_LT(tinyPict->size(), 512u);
  EXPECT_FALSE(bolero_->setArtworkAtIndex(&tiny, 0));
  const image::Image empty;
  EXPECT_FALSE(bolero_->setArtworkAtIndex(&empty, 0));
  EXPECT_TRUE(log_.contains("Unable to convert NSImage to TIFF"));
  EXPECT_TRUE(bolero_->artwork().empty());
}

TEST_F(CZTrackArtworkTest, APictureThatDoesNotDecodeIsSkipped) {
  bolero_->setArtwork(std::vector<image::Image>{pattern(30, 30), pattern(31, 31), pattern(32, 32)});
  // Overwrite the second picture with bytes that are no picture at all.
  const std::vector<uint8_t> junk(600, 0xEE);
  ASSERT_TRUE(bolero_->setPropertyOfElementOfClassAtIndexWithValue(
      kPicture, kArtwork, 1, ae::Descriptor::fromBytes(ae::typePict, junk)));
  ASSERT_EQ(bolero_->getCountOfElementsOfClass(kArtwork), 3);
  std::vector<image::Image> back = bolero_->artwork();
  ASSERT_EQ(back.size(), 2u);
  EXPECT_EQ(back[0], pattern(30, 30));
  EXPECT_EQ(back[1], pattern(32, 32));
}

// A scripted player with three artworks that answers the second element request without a
// reference: the read stops there with what it has.
TEST(CZTrackArtworkScriptedTest, AMissingReferenceEndsTheReadWithWhatWasCollected) {
  cadenza_testing::CleanControllerState clean;
  LogCapture log;
  RecordingPlayer player;
  auto pict = image::encodePict(pattern(9, 9));
  ASSERT_TRUE(pict);
  const std::vector<uint8_t> picture = *pict;
  int elementReads = 0;
  player.respondWith([&](const ae::Descriptor& event, ae::Descriptor& reply) -> OSStatus {
    if (cadenza_testing::isCount(event)) {
      return cadenza_testing::answerWith(reply, ae::Descriptor::makeSInt32(3));
    }
    if (cadenza_testing::elementPosition(event) > 0) {
      if (++elementReads == 2) return noErr;  // a reply without '----'
      return cadenza_testing::answerWith(reply, built("obj { form:indx, want:type(cArt), seld:1, "
                                                      "from:'null'() }"));
    }
    return cadenza_testing::answerWith(reply, ae::Descriptor::fromBytes(ae::typePict, picture));
  });
  auto track = trackWithId(1);
  std::vector<image::Image> back = track->artwork();
  ASSERT_EQ(back.size(), 1u);
  EXPECT_EQ(back[0], pattern(9, 9));
  EXPECT_EQ(elementReads, 2);
  EXPECT_TRUE(log.contains("Failed to get reference to artwork: -1701"));
}

}  // namespace
}  // namespace rvitunes
