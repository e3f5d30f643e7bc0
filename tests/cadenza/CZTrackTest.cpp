// CZTrack against the reference player: every accessor reads its property and every setter
// writes it back; the version gates of the long description, lyrics and persistent IDs on both
// sides of each boundary; and, through a scripted player, the flag rules and the list rule of
// the constructor.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CadenzaTestSupport.h"
#include "RecordingPlayer.h"
#include "TappedPlayer.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/Printer.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/cadenza/Cadenza.h"

namespace rvitunes {
namespace {

using cadenza_testing::answeringVersion;
using cadenza_testing::answerWith;
using cadenza_testing::anyContains;
using cadenza_testing::built;
using cadenza_testing::CleanControllerState;
using cadenza_testing::frameworkLines;
using cadenza_testing::LogCapture;
using cadenza_testing::RecordingPlayer;
using cadenza_testing::TappedPlayer;
using Lines = std::vector<std::string>;

std::string trackSpecifier(int id) {
  return "obj { form:'ID  ', want:type(cTrk), seld:" + std::to_string(id) +
         ", from:obj { form:'ID  ', want:type(cPly), seld:400, from:'null'() } }";
}

std::shared_ptr<CZTrack> trackWithId(int id) {
  return std::make_shared<CZTrack>(built(trackSpecifier(id)));
}

Date utc(const char* text) {
  return Date::parseIso8601(text).value_or(Date());
}

// ---- The specifier ------------------------------------------------------------------------------

TEST(CZTrackDescriptorTest, AListReplyRefersToItsFirstItemAndAnEmptyListStays) {
  CZTrack fromList(built("[" + trackSpecifier(301) + ", " + trackSpecifier(302) + "]"));
  EXPECT_EQ(fromList.descriptor(), built(trackSpecifier(301)));
  EXPECT_EQ(fromList.targetApplCode(), fourCharCode("hook"));
  CZTrack fromEmpty(built("[]"));
  EXPECT_TRUE(fromEmpty.descriptor().isList());
  EXPECT_EQ(fromEmpty.descriptor().itemCount(), 0u);
  CZTrack plain(built(trackSpecifier(303)));
  EXPECT_EQ(plain.descriptor(), built(trackSpecifier(303)));
}

// ---- Every accessor against the reference player ------------------------------------------------

class CZTrackLiveTest : public ::testing::Test {
 protected:
  TappedPlayer player_{"7.7.1"};
  LogCapture log_;
  std::shared_ptr<CZTrack> aria_ = trackWithId(cadenza_testing::kAriaId);
};

TEST_F(CZTrackLiveTest, ReadsEveryProperty) {
  CZTrack& t = *aria_;
  EXPECT_EQ(t.name(), "Aria");
  EXPECT_EQ(t.album(), "Arias");
  EXPECT_EQ(t.artist(), "Ann");
  EXPECT_EQ(t.albumArtist(), "Various");
  EXPECT_EQ(t.category(), "Music");
  EXPECT_EQ(t.comment(), "note");
  EXPECT_EQ(t.composer(), "Bach");
  EXPECT_EQ(t.description(), "short");
  EXPECT_EQ(t.episodeId(), "E1");
  EXPECT_EQ(t.eq(), "Rock");
  EXPECT_EQ(t.genre(), "Baroque");
  EXPECT_EQ(t.grouping(), "Suites");
  EXPECT_EQ(t.kind(), "MPEG audio file");
  EXPECT_EQ(t.show(), "Show");
  EXPECT_EQ(t.time(), "3:20");
  EXPECT_EQ(t.longDescription(), "a long text");
  EXPECT_EQ(t.lyrics(), "la la");

  EXPECT_EQ(t.bitrate(), 192);
  EXPECT_EQ(t.bpm(), 120);
  EXPECT_EQ(t.bookmark(), 5);
  EXPECT_EQ(t.databaseId(), 301);
  EXPECT_EQ(t.discCount(), 2);
  EXPECT_EQ(t.discNumber(), 1);
  EXPECT_EQ(t.duration(), 200);
  EXPECT_EQ(t.episodeNumber(), 4);
  EXPECT_EQ(t.finish(), 150);
  EXPECT_EQ(t.playedCount(), 5);
  EXPECT_EQ(t.rating(), 80);
  EXPECT_EQ(t.sampleRate(), 44100);
  EXPECT_EQ(t.seasonNumber(), 2);
  EXPECT_EQ(t.size(), 123456);
  EXPECT_EQ(t.skippedCount(), 2);
  EXPECT_EQ(t.start(), 1);
  EXPECT_EQ(t.trackCount(), 12);
  EXPECT_EQ(t.trackNumber(), 3);
  EXPECT_EQ(t.volumeAdjustment(), -20);
  EXPECT_EQ(t.year(), 1999);

  EXPECT_TRUE(t.bookmarkable());
  EXPECT_TRUE(t.compilation());
  EXPECT_TRUE(t.enabled());
  EXPECT_TRUE(t.gapless());
  EXPECT_TRUE(t.podcast());
  EXPECT_FALSE(t.unplayed());

  EXPECT_EQ(t.dateAdded(), utc("2019-05-06T07:08:09Z"));
  EXPECT_EQ(t.modificationDate(), utc("2019-06-07T08:09:10Z"));
  EXPECT_EQ(t.playedDate(), utc("2020-01-02T03:04:05Z"));
  EXPECT_EQ(t.skippedDate(), utc("2021-02-03T04:05:06Z"));
  const auto location = t.location();
  ASSERT_TRUE(location.has_value());
  EXPECT_EQ(Url::parse(*location)->path(),
            player_.library().substr(0, player_.library().rfind('/')) + "/music/aria.mp3");

  EXPECT_EQ(t.persistentId(), cadenza_testing::kAriaPid);
  EXPECT_EQ(t.persistentIdAsString(), "F00000000000B301");
  EXPECT_EQ(frameworkLines(log_), Lines{});
}

TEST_F(CZTrackLiveTest, WritesEveryWritablePropertyBack) {
  using T = CZTrack;
  struct Text {
    std::optional<std::string> (T::*get)();
    void (T::*set)(std::string_view);
  };
  const Text texts[] = {{&T::name, &T::setName},
                        {&T::album, &T::setAlbum},
                        {&T::artist, &T::setArtist},
                        {&T::albumArtist, &T::setAlbumArtist},
                        {&T::category, &T::setCategory},
                        {&T::comment, &T::setComment},
                        {&T::composer, &T::setComposer},
                        {&T::description, &T::setDescription},
                        {&T::episodeId, &T::setEpisodeId},
                        {&T::eq, &T::setEq},
                        {&T::genre, &T::setGenre},
                        {&T::grouping, &T::setGrouping},
                        {&T::longDescription, &T::setLongDescription},
                        {&T::lyrics, &T::setLyrics}};
  struct Integer {
    int32_t (T::*get)();
    void (T::*set)(int32_t);
  };
  const Integer integers[] = {{&T::bpm, &T::setBpm},
                              {&T::bookmark, &T::setBookmark},
                              {&T::discCount, &T::setDiscCount},
                              {&T::discNumber, &T::setDiscNumber},
                              {&T::episodeNumber, &T::setEpisodeNumber},
                              {&T::finish, &T::setFinish},
                              {&T::playedCount, &T::setPlayedCount},
                              {&T::rating, &T::setRating},
                              {&T::seasonNumber, &T::setSeasonNumber},
                              {&T::skippedCount, &T::setSkippedCount},
                              {&T::start, &T::setStart},
                              {&T::trackCount, &T::setTrackCount},
                              {&T::trackNumber, &T::setTrackNumber},
                              {&T::volumeAdjustment, &T::setVolumeAdjustment},
                              {&T::year, &T::setYear}};
  struct Flag {
    bool (T::*get)();
    void (T::*set)(bool);
  };
  const Flag flags[] = {{&T::bookmarkable, &T::setBookmarkable},
                        {&T::compilation, &T::setCompilation},
                        {&T::enabled, &T::setEnabled},
                        {&T::gapless, &T::setGapless},
                        {&T::unplayed, &T::setUnplayed}};
  // Each setter writes its own property: distinct values, all written before any is read.
  const auto bolero = trackWithId(cadenza_testing::kBoleroId);
  T& t = *bolero;
  // (Range loops: GCC's bounds sanitizer misreads an indexed member-pointer call.)
  int32_t n = 0;
  for (const Text& p : texts)
    (t.*p.set)("text " + std::to_string(n++));
  for (const Integer& p : integers)
    (t.*p.set)(n++);
  n = 0;
  for (const Text& p : texts)
    EXPECT_EQ((t.*p.get)(), "text " + std::to_string(n++));
  for (const Integer& p : integers)
    EXPECT_EQ((t.*p.get)(), n++);
  for (bool value : {true, false}) {
    for (const Flag& flag : flags)
      (t.*flag.set)(value);
    for (const Flag& flag : flags)
      EXPECT_EQ((t.*flag.get)(), value);
  }
  t.setPlayedDate(utc("2022-03-04T05:06:07Z"));
  t.setSkippedDate(utc("2023-04-05T06:07:08Z"));
  EXPECT_EQ(t.playedDate(), utc("2022-03-04T05:06:07Z"));
  EXPECT_EQ(t.skippedDate(), utc("2023-04-05T06:07:08Z"));
  EXPECT_TRUE(frameworkLines(log_).empty());
}

TEST_F(CZTrackLiveTest, YearCarriesItsBlankAndVideoKindSendsNothing) {
  size_t mark = player_.mark();
  aria_->year();
  EXPECT_TRUE(anyContains(player_.eventsSince(mark), "type('pYr ')"));
  mark = player_.mark();
  EXPECT_EQ(aria_->videoKind(), 0u);
  aria_->setVideoKind(fourCharCode("kVdM"));
  EXPECT_EQ(player_.eventsSince(mark), Lines{});
}

TEST_F(CZTrackLiveTest, ReadOnlyPropertiesRefuseAndFailedReadsGivePresets) {
  // A track the player does not have: every read fails with the conversion's preset.
  const auto missing = trackWithId(999);
  EXPECT_EQ(missing->name(), std::nullopt);
  EXPECT_EQ(missing->year(), -1);
  EXPECT_EQ(missing->playedDate(), Date::fromLongDateTime(0));  // a reply without a date
  EXPECT_EQ(missing->location(), std::nullopt);
  // A failed read is -1, whose low byte counts as true for the flags and the whole for unplayed.
  EXPECT_TRUE(missing->podcast());
  EXPECT_TRUE(missing->unplayed());
}

// ---- Flags --------------------------------------------------------------------------------------

TEST(CZTrackFlagTest, OnlyTheLowByteCountsExceptForUnplayed) {
  CleanControllerState clean;
  RecordingPlayer player;
  CZTrack track(built(trackSpecifier(301)));
  for (int32_t value : {256, 0x1200}) {
    player.answer(ae::Descriptor::makeSInt32(value));
    EXPECT_FALSE(track.bookmarkable()) << value;
    EXPECT_FALSE(track.compilation()) << value;
    EXPECT_FALSE(track.enabled()) << value;
    EXPECT_FALSE(track.gapless()) << value;
    EXPECT_FALSE(track.podcast()) << value;
    EXPECT_TRUE(track.unplayed()) << value;
  }
  player.answer(ae::Descriptor::makeSInt32(0x101));
  EXPECT_TRUE(track.podcast());
  player.answer(ae::Descriptor::makeSInt32(0));
  EXPECT_FALSE(track.unplayed());
  // A flag is written as the integer 1 or 0.
  track.setGapless(true);
  EXPECT_NE(player.printed().back().find("'data':1,"), std::string::npos)
      << player.printed().back();
  track.setGapless(false);
  EXPECT_NE(player.printed().back().find("'data':0,"), std::string::npos)
      << player.printed().back();
}

// ---- Version gates ------------------------------------------------------------------------------

struct GateCase {
  const char* version;
  bool lyrics;          // 6.0.1 and later: read and write
  bool readLong;        // 6.0.2 and later
  const char* pidForm;  // "none", "integer" or "text" for persistentId
  const char* pidText;  // "none", "integer", "pPID text" or "pPIS" for persistentIdAsString
  // Whether that read gets text: 7.2.2 to 7.2.15 ask for 'pPID' as text of a player that
  // answers it as a number, so the answer there is nil. The boundaries are kept as they are.
  bool textArrives = true;
};

class CZTrackVersionTest : public ::testing::TestWithParam<GateCase> {};

TEST_P(CZTrackVersionTest, GatesDecideBeforeAnythingIsSent) {
  const GateCase c = GetParam();
  TappedPlayer player(c.version);
  LogCapture log;
  const auto aria = trackWithId(cadenza_testing::kAriaId);
  ASSERT_GT(Cadenza::sharedInstance()->versionNumber(), 0u);

  size_t mark = player.mark();
  EXPECT_EQ(aria->lyrics(), c.lyrics ? std::optional<std::string>("la la") : std::nullopt);
  aria->setLyrics("new words");
  EXPECT_EQ(player.eventsSince(mark).size(), c.lyrics ? 2u : 0u);

  mark = player.mark();
  EXPECT_EQ(aria->longDescription(),
            c.readLong ? std::optional<std::string>("a long text") : std::nullopt);
  EXPECT_EQ(player.eventsSince(mark).size(), c.readLong ? 1u : 0u);
  mark = player.mark();
  aria->setLongDescription("changed");
  const auto writes = player.eventsSince(mark);
  // The write needs only 6.0.1: on 6.0.1 it is sent though the read is not. That player has no
  // long description, so the write is refused there, unseen.
  EXPECT_EQ(writes.size(), c.lyrics ? 1u : 0u);
  if (c.lyrics) {
    EXPECT_TRUE(anyContains(writes, "type('pLds')"));
  }
  if (c.readLong) {
    EXPECT_EQ(aria->longDescription(), "changed");
  }

  const std::string pidForm = c.pidForm;
  mark = player.mark();
  const int64_t pid = aria->persistentId();
  auto events = player.eventsSince(mark);
  if (pidForm == "none") {
    EXPECT_EQ(pid, -1);
    EXPECT_TRUE(events.empty());
  } else {
    EXPECT_EQ(pid, cadenza_testing::kAriaPid);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_TRUE(anyContains(events, "type('pPID')"));
  }
  // Never cached.
  mark = player.mark();
  aria->persistentId();
  EXPECT_EQ(player.eventsSince(mark).size(), pidForm == "none" ? 0u : 1u);

  const std::string pidText = c.pidText;
  mark = player.mark();
  const auto text = aria->persistentIdAsString();
  events = player.eventsSince(mark);
  if (pidText == "none") {
    EXPECT_EQ(text, std::nullopt);
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(frameworkLines(log), (Lines{"persistentId Unsupported", "persistentId Unsupported",
                                          "persistentIdAsString Unsupported"}));
  } else {
    EXPECT_EQ(text, c.textArrives ? std::optional<std::string>("F00000000000B301") : std::nullopt);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_TRUE(anyContains(events, pidText == "pPIS" ? "type('pPIS')" : "type('pPID')"));
    EXPECT_TRUE(frameworkLines(log).empty());
  }

  // The added hexadecimal form follows persistentId() and so answers on every version with IDs.
  mark = player.mark();
  EXPECT_EQ(aria->persistentIdHexString(),
            pidForm == "none" ? std::nullopt : std::optional<std::string>("F00000000000B301"));
  EXPECT_EQ(player.eventsSince(mark).size(), pidForm == "none" ? 0u : 1u);
  EXPECT_EQ(frameworkLines(log).size(), pidForm == "none" ? 3u : 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Versions, CZTrackVersionTest,
    ::testing::Values(GateCase{"5.0", false, false, "none", "none"},
                      GateCase{"6.0", false, false, "integer", "integer"},
                      GateCase{"6.0.1", true, false, "integer", "integer"},
                      GateCase{"6.0.2", true, true, "integer", "integer"},
                      GateCase{"7.1.5", true, true, "integer", "integer"},
                      GateCase{"7.2", true, true, "text", "pPID text"},
                      GateCase{"7.2.1", true, true, "text", "pPID text"},
                      GateCase{"7.2.2", true, true, "integer", "pPID text", false},
                      GateCase{"7.2.15", true, true, "integer", "pPID text", false},
                      GateCase{"7.3", true, true, "integer", "pPIS"},
                      GateCase{"9.2.1", true, true, "integer", "pPIS"}),
    [](const auto& info) {
      std::string name = info.param.version;
      for (char& ch : name) {
        if (ch == '.') ch = '_';
      }
      return "v" + name;
    });

}  // namespace
}  // namespace rvitunes
