#include "rvitunes/player/PlayerVersion.h"

#include <gtest/gtest.h>

#include "rvitunes/ae/Coercion.h"

namespace rvitunes::player {
namespace {

PlayerVersion v(const char* text) {
  std::optional<PlayerVersion> parsed = PlayerVersion::parse(text);
  EXPECT_TRUE(parsed.has_value()) << text;
  return parsed.value_or(PlayerVersion());
}

TEST(PlayerVersionTest, PacksAsClientsDo) {
  EXPECT_EQ(v("7.2.1").packed(), 0x721u);
  EXPECT_EQ(v("7.2").packed(), 0x720u);
  EXPECT_EQ(v("6.0").packed(), 0x600u);
  EXPECT_EQ(v("8.0.1.5").packed(), 0x801u);  // a fourth component is ignored
  EXPECT_EQ(v("8.0.1.5").text(), "8.0.1.5");
  EXPECT_EQ(v("7.10").packed(), 0x7A0u);  // components from 16 up would overlap
  EXPECT_EQ(PlayerVersion().text(), "7.7.1");
  EXPECT_EQ(PlayerVersion::fromPacked(0x721).text(), "7.2.1");
}

TEST(PlayerVersionTest, RefusesMalformedText) {
  for (const char* text : {"", "7.", ".7", "7..1", "seven", "7.2b", "7.-1", "256", " 7.2"}) {
    EXPECT_FALSE(PlayerVersion::parse(text).has_value()) << text;
  }
}

// One row per boundary of the version table: what each version offers.
TEST(PlayerVersionTest, PredicatesAcrossTheBoundaries) {
  struct Row {
    const char* version;
    bool ids, idText, ppis, lyrics, plds, seven;
  };
  const Row rows[] = {
      {"5.0", false, false, false, false, false, false},
      {"5.0.9", false, false, false, false, false, false},
      {"6.0.0", true, false, false, false, false, false},
      {"6.0.1", true, false, false, true, false, false},
      {"6.0.2", true, false, false, true, true, false},
      {"7.0", true, false, false, true, true, true},
      {"7.1.9", true, false, false, true, true, true},
      {"7.2.0", true, true, false, true, true, true},
      {"7.2.1", true, true, false, true, true, true},
      {"7.2.2", true, false, false, true, true, true},
      {"7.3.0", true, false, true, true, true, true},
      {"7.7.1", true, false, true, true, true, true},
  };
  for (const Row& row : rows) {
    const PlayerVersion version = v(row.version);
    SCOPED_TRACE(row.version);
    EXPECT_EQ(version.hasPersistentIds(), row.ids);
    EXPECT_EQ(version.persistentIdAsText(), row.idText);
    EXPECT_EQ(version.hasPPIS(), row.ppis);
    EXPECT_EQ(version.hasLyrics(), row.lyrics);
    EXPECT_EQ(version.hasPLds(), row.plds);
    EXPECT_EQ(version.hasSevenProperties(), row.seven);
  }
}

TEST(PlayerVersionTest, VersRecordCarriesTheShortVersion) {
  const std::vector<uint8_t> record = v("7.2.1").versRecord();
  ASSERT_GE(record.size(), 13u);
  EXPECT_EQ(record[0], 0x07);  // BCD major
  EXPECT_EQ(record[1], 0x21);  // minor and bug-fix digits
  EXPECT_EQ(record[2], 0x80);  // final
  EXPECT_EQ(record[6], 5);     // length of "7.2.1"
  // A reader that takes the text from byte 7 to the first zero byte sees the version alone.
  const std::string text(reinterpret_cast<const char*>(record.data()) + 7);
  EXPECT_EQ(text, "7.2.1");

  Result<std::string> coerced = ae::textValue(v("7.7.1").versDescriptor());
  ASSERT_TRUE(coerced.ok()) << coerced.status().toString();
  EXPECT_EQ(*coerced, "7.7.1");
  EXPECT_EQ(v("12.9.5").versRecord()[0], 0x12);
}

}  // namespace
}  // namespace rvitunes::player
