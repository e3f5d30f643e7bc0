#include <gtest/gtest.h>

#include <cstring>

#include "PlayerTestSupport.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/ae/FileReference.h"
#include "rvitunes/player/Library.h"
#include "rvitunes/player/PropertyTable.h"

namespace rvitunes::player {
namespace {

using ae::Descriptor;

constexpr DatabaseId kSenorita = 2582;  // "Señorita", 259703 ms, compilation, 1 artwork
constexpr DatabaseId kPlayed = 2584;    // played 45 times

class TrackPropertiesTest : public ::testing::Test {
 protected:
  void load(const char* version) {
    library_ = std::make_unique<Library>(*PlayerVersion::parse(version));
    ASSERT_TRUE(library_->load(testing::sampleLibraryPath()).ok());
  }
  void SetUp() override { load("7.7.1"); }

  Descriptor get(DatabaseId id, const char (&code)[5]) {
    Result<Descriptor> value =
        library_->trackProperty(*library_->trackById(id), fourCharCode(code));
    EXPECT_TRUE(value.ok()) << code << ": " << value.status().toString();
    return value.ok() ? std::move(value).value() : Descriptor();
  }
  OSStatus getError(DatabaseId id, const char (&code)[5]) {
    return library_->trackProperty(*library_->trackById(id), fourCharCode(code)).status().code();
  }
  std::string text(DatabaseId id, const char (&code)[5]) {
    Descriptor value = get(id, code);
    EXPECT_EQ(value.type(), ae::typeUnicodeText) << code;
    return ae::textValue(value).value();
  }
  int64_t number(DatabaseId id, const char (&code)[5]) {
    return ae::integerValue(get(id, code)).value();
  }
  const plist::Dictionary& record(DatabaseId id) { return library_->trackById(id)->record(); }

  std::unique_ptr<Library> library_;
};

TEST_F(TrackPropertiesTest, ReadsMapFileKeysToThePlayersUnits) {
  EXPECT_EQ(text(kSenorita, "pnam"), "Señorita");
  EXPECT_EQ(text(kSenorita, "pArt"), "Kate Petrov");
  EXPECT_EQ(text(kSenorita, "pAlA"), "Various Artists");
  EXPECT_EQ(text(kSenorita, "pKnd"), "AAC audio file");
  EXPECT_EQ(text(kSenorita, "pTim"), "4:20");
  EXPECT_EQ(text(kSenorita, "pCmt"), "");  // absent text reads empty
  EXPECT_EQ(number(kSenorita, "pYr "), 1968);
  EXPECT_EQ(number(kSenorita, "pBRt"), 256);
  EXPECT_EQ(number(kSenorita, "pSRt"), 44100);
  EXPECT_EQ(number(kSenorita, "pSiz"), 8434550);
  EXPECT_EQ(number(kSenorita, "pTrC"), 9);
  EXPECT_EQ(number(kSenorita, "pDID"), kSenorita);
  EXPECT_EQ(number(kSenorita, "ID  "), kSenorita);
  EXPECT_EQ(number(kSenorita, "pPlC"), 0);
  EXPECT_EQ(number(kPlayed, "pPlC"), 45);

  Descriptor duration = get(kSenorita, "pDur");
  EXPECT_EQ(duration.type(), ae::typeIEEE64BitFloatingPoint);
  EXPECT_DOUBLE_EQ(ae::doubleValue(duration).value(), 259.703);
  EXPECT_DOUBLE_EQ(ae::doubleValue(get(kSenorita, "pStp")).value(), 259.703);
  EXPECT_DOUBLE_EQ(ae::doubleValue(get(kSenorita, "pStr")).value(), 0.0);

  EXPECT_EQ(ae::boolValue(get(kSenorita, "pAnt")).value(), true);  // compilation
  EXPECT_EQ(ae::boolValue(get(kSenorita, "enbl")).value(), true);  // not "Disabled"
  EXPECT_EQ(ae::boolValue(get(kSenorita, "pUnp")).value(), true);  // never played
  EXPECT_EQ(ae::boolValue(get(kPlayed, "pUnp")).value(), false);
  EXPECT_EQ(ae::codeValue(get(kSenorita, "pcls")).value(), kClassFileTrack);

  Descriptor added = get(kSenorita, "pAdd");
  ASSERT_EQ(added.type(), ae::typeLongDateTime);
  int64_t seconds = 0;
  std::memcpy(&seconds, added.data().data(), 8);
  EXPECT_EQ(Date::fromLongDateTime(seconds).iso8601(), "2017-02-11T21:49:15Z");
  // Never played: the played date is missing.
  EXPECT_EQ(ae::codeValue(get(kSenorita, "pPlD")).value(), ae::cMissingValue);
  // The sample's files do not exist here.
  EXPECT_EQ(ae::codeValue(get(kSenorita, "pLoc")).value(), ae::cMissingValue);
  EXPECT_EQ(getError(kSenorita, "pURL"), errAENoSuchObject);  // a file track has no address
  EXPECT_EQ(getError(kSenorita, "zzzz"), errAENoSuchObject);
  EXPECT_EQ(getError(kSenorita, "ctnr"), errAECantSupplyType);
}

TEST_F(TrackPropertiesTest, IndexIsThePositionInTheContainer) {
  const Track& track = *library_->trackById(2586);
  EXPECT_EQ(ae::integerValue(library_->trackProperty(track, kPropIndex).value()).value(), 3);
  const Playlist* purchased = library_->playlistById(2932);
  Result<Descriptor> outside = library_->trackProperty(track, kPropIndex, purchased);
  if (std::find(purchased->trackIds().begin(), purchased->trackIds().end(), 2586) ==
      purchased->trackIds().end()) {
    EXPECT_EQ(outside.status().code(), errAENoSuchObject);
  }
}

TEST_F(TrackPropertiesTest, PersistentIdFollowsTheVersion) {
  const PersistentId expected = 0x12BD4ACEFAECBD38u;
  // 7.7.1: 'comp', and 'pPIS' text.
  Descriptor id = get(kSenorita, "pPID");
  EXPECT_EQ(id.type(), ae::typeSInt64);
  EXPECT_EQ(static_cast<PersistentId>(ae::integerValue(id).value()), expected);
  EXPECT_EQ(text(kSenorita, "pPIS"), "12BD4ACEFAECBD38");

  load("7.2.1");  // text form, no 'pPIS'
  EXPECT_EQ(text(kSenorita, "pPID"), "12BD4ACEFAECBD38");
  EXPECT_EQ(getError(kSenorita, "pPIS"), errAENoSuchObject);

  load("7.2.2");
  EXPECT_EQ(get(kSenorita, "pPID").type(), ae::typeSInt64);
  EXPECT_EQ(getError(kSenorita, "pPIS"), errAENoSuchObject);

  load("6.0");
  EXPECT_EQ(get(kSenorita, "pPID").type(), ae::typeSInt64);

  load("5.0");  // no persistent IDs at all
  EXPECT_EQ(getError(kSenorita, "pPID"), errAENoSuchObject);
}

TEST_F(TrackPropertiesTest, VersionGatedPropertiesAndUnits) {
  load("6.0.1");
  EXPECT_EQ(text(kSenorita, "pLyr"), "");
  EXPECT_EQ(getError(kSenorita, "pLds"), errAENoSuchObject);
  EXPECT_EQ(getError(kSenorita, "pAlA"), errAENoSuchObject);  // new in 7.0
  // Before 7.0 times are whole seconds.
  Descriptor duration = get(kSenorita, "pDur");
  EXPECT_EQ(duration.type(), ae::typeSInt32);
  EXPECT_EQ(ae::integerValue(duration).value(), 260);
  EXPECT_EQ(
      library_->setTrackProperty(kSenorita, kPropLongDescription, Descriptor::makeUnicodeText("x"))
          .code(),
      errAENoSuchObject);
  load("6.0.2");
  EXPECT_EQ(text(kSenorita, "pLds"), "");
}

TEST_F(TrackPropertiesTest, WritesUpdateTheRecord) {
  int changes = 0;
  library_->setChangeListener([&] { ++changes; });
  ASSERT_TRUE(
      library_->setTrackProperty(kSenorita, kPropName, Descriptor::makeUnicodeText("Nueva")).ok());
  EXPECT_EQ(record(kSenorita).find("Name")->stringView(), "Nueva");
  EXPECT_EQ(text(kSenorita, "pnam"), "Nueva");

  ASSERT_TRUE(
      library_->setTrackProperty(kSenorita, kPropPlayedCount, Descriptor::makeSInt32(3)).ok());
  EXPECT_EQ(record(kSenorita).find("Play Count")->longLongValue(), 3);
  // A new key goes where the player writes it, not at the end.
  const plist::Dictionary& rec = record(kSenorita);
  size_t playCount = 0, name = 0;
  for (size_t i = 0; i < rec.size(); ++i) {
    if (rec.entryAt(i).key.stringView() == "Play Count") playCount = i;
    if (rec.entryAt(i).key.stringView() == "Name") name = i;
  }
  EXPECT_LT(playCount, name);
  EXPECT_EQ(rec.entryAt(rec.size() - 1).key.stringView(), "Location");

  // Integers arrive in whatever form a client sends; text coerces too.
  ASSERT_TRUE(
      library_->setTrackProperty(kSenorita, fourCharCode("pRte"), Descriptor::makeUnicodeText("80"))
          .ok());
  EXPECT_EQ(rec.find("Rating")->longLongValue(), 80);
  ASSERT_TRUE(
      library_->setTrackProperty(kSenorita, fourCharCode("pStr"), Descriptor::makeFloat64(1.5))
          .ok());
  EXPECT_EQ(rec.find("Start Time")->longLongValue(), 1500);

  // Flags: false leaves the key out; enabled is the inverse of "Disabled".
  ASSERT_TRUE(
      library_->setTrackProperty(kSenorita, fourCharCode("pAnt"), Descriptor::makeBoolean(false))
          .ok());
  EXPECT_FALSE(rec.contains("Compilation"));
  ASSERT_TRUE(
      library_->setTrackProperty(kSenorita, fourCharCode("enbl"), Descriptor::makeSInt32(0)).ok());
  EXPECT_TRUE(rec.find("Disabled")->boolValue());

  // A played date writes both the UTC date and the player's local "Play Date".
  const Date when = *Date::parseIso8601("2020-05-01T10:00:00Z");
  ASSERT_TRUE(library_
                  ->setTrackProperty(kSenorita, kPropPlayedDate,
                                     Descriptor::makeLongDateTime(when.longDateTime()))
                  .ok());
  EXPECT_EQ(rec.find("Play Date UTC")->dateValue(), when);
  EXPECT_TRUE(rec.contains("Play Date"));

  // Empty text removes an optional key.
  ASSERT_TRUE(
      library_->setTrackProperty(kSenorita, fourCharCode("pGen"), Descriptor::makeUnicodeText(""))
          .ok());
  EXPECT_FALSE(rec.contains("Genre"));
  EXPECT_GE(changes, 8);
}

TEST_F(TrackPropertiesTest, RefusesWhatThePlayerRefuses) {
  auto set = [&](const char(&code)[5], Descriptor value) {
    return library_->setTrackProperty(kSenorita, fourCharCode(code), value).code();
  };
  for (const char* code : {"pDur", "pBRt", "pSiz", "pKnd", "pDID", "pAdd", "asmo", "pTim", "pPID",
                           "pPIS", "ID  ", "pcls"}) {
    EXPECT_EQ(
        library_->setTrackProperty(kSenorita, *parseFourCharCode(code), Descriptor::makeSInt32(1))
            .code(),
        errAEWriteDenied)
        << code;
  }
  EXPECT_EQ(set("pRte", Descriptor::makeSInt32(101)), paramErr);
  EXPECT_EQ(set("pAdj", Descriptor::makeSInt32(-101)), paramErr);
  EXPECT_EQ(set("pPlC", Descriptor::makeUnicodeText("many")), errAECoercionFail);
  EXPECT_EQ(set("pPlD", Descriptor::makeUnicodeText("yesterday")), errAECoercionFail);
  EXPECT_EQ(set("zzzz", Descriptor::makeSInt32(1)), errAENoSuchObject);
  EXPECT_EQ(library_->setTrackProperty(99999, kPropName, Descriptor::makeUnicodeText("x")).code(),
            errAENoSuchObject);
  // Nothing of that reached the record.
  EXPECT_FALSE(record(kSenorita).contains("Rating"));
  EXPECT_EQ(record(kSenorita).find("Total Time")->longLongValue(), 259703);
}

TEST_F(TrackPropertiesTest, LocationIsAFileReferenceOfAnExistingFile) {
  testing::ScratchFolder folder;
  const std::string song = folder.write("Song One.mp3", "ID3");
  ASSERT_TRUE(library_->setTrackProperty(kSenorita, kPropLocation, ae::makeFileURLDesc(song)).ok());
  EXPECT_EQ(record(kSenorita).find("Location")->stringView(),
            "file://localhost" + folder.path() + "/Song%20One.mp3");
  Descriptor location = get(kSenorita, "pLoc");
  ASSERT_EQ(location.type(), ae::typeFSRef);
  Result<std::string> path = ae::resolveFileReference(location.data());
  ASSERT_TRUE(path.ok());
  EXPECT_EQ(*path, song);
  EXPECT_EQ(library_->trackByPath(song)->id(), kSenorita);
}

TEST_F(TrackPropertiesTest, PlaylistProperties) {
  const Playlist& years = *library_->playlistById(2942);
  const Playlist& night = *library_->playlistById(2954);
  auto get = [&](const Playlist& p, const char(&code)[5]) {
    return library_->playlistProperty(p, fourCharCode(code));
  };
  EXPECT_EQ(ae::codeValue(get(years, "pSpK").value()).value(), kSpecialFolder);
  EXPECT_EQ(ae::codeValue(get(years, "pcls").value()).value(), kClassFolderPlaylist);
  EXPECT_EQ(get(years, "pPlP").status().code(), errAENoSuchObject);    // top level
  EXPECT_EQ(get(night, "pPlP").status().code(), errAECantSupplyType);  // the resolver's part
  EXPECT_EQ(ae::textValue(get(night, "pnam").value()).value(), "Night");
  EXPECT_EQ(get(night, "pSiz").value().type(), ae::typeSInt64);
  EXPECT_GT(ae::integerValue(get(night, "pDur").value()).value(), 0);
  EXPECT_EQ(ae::boolValue(get(*library_->playlistById(2950), "pSmt").value()).value(), true);

  EXPECT_TRUE(
      library_->setPlaylistProperty(night.id(), kPropName, Descriptor::makeUnicodeText("Late"))
          .ok());
  EXPECT_EQ(night.record().find("Name")->stringView(), "Late");
  EXPECT_EQ(library_
                ->setPlaylistProperty(library_->libraryPlaylist().id(), kPropName,
                                      Descriptor::makeUnicodeText("Mine"))
                .code(),
            errAEWriteDenied);
  EXPECT_EQ(
      library_
          ->setPlaylistProperty(night.id(), kPropSpecialKind, Descriptor::makeEnum(kSpecialMusic))
          .code(),
      errAEWriteDenied);
  EXPECT_TRUE(
      library_->setPlaylistProperty(night.id(), kPropSongRepeat, Descriptor::makeEnum(kRepeatAll))
          .ok());
  EXPECT_EQ(night.songRepeat(), kRepeatAll);
}

TEST(PropertyTableTest, EveryClassHasItsTableAndNoCodeTwice) {
  for (OSType cls : {kClassApplication, kClassSource, kClassPlaylist, kClassTrack, kClassArtwork}) {
    const std::span<const PropertyInfo> table = PropertyTable::forClass(cls);
    ASSERT_FALSE(table.empty());
    for (size_t i = 0; i < table.size(); ++i) {
      for (size_t j = i + 1; j < table.size(); ++j) {
        EXPECT_NE(table[i].code, table[j].code) << fourCharDisplay(table[i].code);
      }
    }
  }
  EXPECT_TRUE(PropertyTable::forClass(fourCharCode("cwin")).empty());
  EXPECT_EQ(PropertyTable::find(PropertyTable::trackProperties(), kPropLyrics,
                                *PlayerVersion::parse("6.0.0")),
            nullptr);
}

}  // namespace
}  // namespace rvitunes::player
