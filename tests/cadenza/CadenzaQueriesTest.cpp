// The controller's library queries: the walk of a reply that lists tracks, search, adding
// files, the selection, and the look-ups by persistent ID on each side of their version gates.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "CadenzaTestSupport.h"
#include "cadenza/CadenzaEvents.h"
#include "rvitunes/cadenza/CZPlaylistEnumerator.h"
#include "rvitunes/cadenza/CZTrackEnumerator.h"

namespace rvitunes {
namespace {

using cadenza_testing::answeringVersion;
using cadenza_testing::answerWith;
using cadenza_testing::built;
using cadenza_testing::CleanControllerState;
using cadenza_testing::directOf;
using cadenza_testing::frameworkLines;
using cadenza_testing::item;
using cadenza_testing::LogCapture;
using cadenza_testing::namesOf;
using cadenza_testing::RecordingPlayer;
using cadenza_testing::ScratchDirectory;
using cadenza_testing::startTreePlayer;
using cadenza_testing::valueOf;
using cadenza_testing::withoutVersionReads;

constexpr const char* kTrackSpecifier =
    "obj { form:'ID  ', want:type(cFlT), seld:1001, from:null() }";

// ---- The walk of a list reply -------------------------------------------------------------------

// A list that cannot be counted, or whose item `brokenItem` cannot be read.
struct FaultyList {
  int32_t count = 0;
  OSStatus countStatus = noErr;
  int32_t brokenItem = 0;

  OSStatus countItems(int32_t* out) const {
    *out = count;
    return countStatus;
  }
  OSStatus getNthDesc(int32_t index, ae::DescType, ae::AEKeyword*, ae::Descriptor* out) const {
    if (index == brokenItem) return errAECoercionFail;
    *out = built("obj { form:'ID  ', want:type(cFlT), seld:" + std::to_string(1000 + index) +
                 ", from:null() }");
    return noErr;
  }
};

TEST(ReplyListTest, AWalkThatBreaksOffKeepsTheTracksBeforeTheBreak) {
  LogCapture log;
  const auto partial = cadenza_detail::tracksOfList(FaultyList{4, noErr, 3});
  ASSERT_TRUE(partial.has_value());
  ASSERT_EQ(partial->size(), 2u);
  EXPECT_EQ(ae::printDesc((*partial)[1]->descriptor()),
            "'obj '{ 'form':'ID  ', 'want':type('cFlT'), 'seld':1002, 'from':null() }");
  EXPECT_EQ(frameworkLines(log), std::vector<std::string>{"Error rextracting from List: -1700"});

  EXPECT_EQ(cadenza_detail::tracksOfList(FaultyList{4, errAENotAEDesc, 0}), std::nullopt);
  EXPECT_EQ(frameworkLines(log).back(), "Unable to access Reply List: -1704");

  // Nothing listed is an empty answer, not a failed one.
  const auto none = cadenza_detail::tracksOfList(FaultyList{0, noErr, 0});
  ASSERT_TRUE(none.has_value());
  EXPECT_TRUE(none->empty());
}

TEST(ReplyListTest, AReplyWithoutAResultIsNoAnswerAndASingleResultIsAListOfOne) {
  LogCapture log;
  ae::Descriptor reply = ae::Descriptor::makeRecord();
  EXPECT_EQ(cadenza_detail::tracksOfReply(reply), std::nullopt);
  EXPECT_EQ(frameworkLines(log),
            std::vector<std::string>{"Error extracting from reply event: -1701"});

  ASSERT_EQ(reply.putParamDesc(ae::keyDirectObject, built(kTrackSpecifier)), noErr);
  const auto one = cadenza_detail::tracksOfReply(reply);
  ASSERT_TRUE(one.has_value());
  EXPECT_EQ(one->size(), 1u);
}

// ---- Searching, adding, the selection (recorded) --------------------------------------------

class QueriesRecordedTest : public ::testing::Test {
 protected:
  QueriesRecordedTest() { player_.answer(built(std::string("[") + kTrackSpecifier + "]")); }
  CleanControllerState clean_;
  LogCapture log_;
  RecordingPlayer player_;
  Cadenza controller_;
  CZPlaylist playlist_{built("obj { form:'ID  ', want:type(cUsP), seld:2011, from:null() }")};
};

TEST_F(QueriesRecordedTest, SearchNamesItsAreaOnlyWhenGivenOne) {
  const auto all = controller_.searchForStringInField(playlist_, "Ünïcode ✓", 0);
  ASSERT_TRUE(all.has_value());
  EXPECT_EQ(all->size(), 1u);
  EXPECT_TRUE(player_.lastWantedReply());
  ae::Descriptor event = player_.last();
  EXPECT_EQ(event.eventClass(), fourCharCode("hook"));
  EXPECT_EQ(event.eventID(), fourCharCode("Srch"));
  EXPECT_EQ(event.findParam(fourCharCode("pAre")), nullptr);
  EXPECT_EQ(directOf(event), playlist_.descriptor());
  const ae::Descriptor& term = item(event, "pTrm");
  EXPECT_EQ(term.type(), ae::typeUnicodeText);
  EXPECT_EQ(term, ae::Descriptor::makeUnicodeText("Ünïcode ✓"));

  ASSERT_TRUE(controller_.searchForStringInField(playlist_, "Ada", fourCharCode("kSrR")));
  event = player_.last();
  EXPECT_EQ(ae::printDesc(item(event, "pAre")), "'kSrR'");
  EXPECT_TRUE(frameworkLines(log_).empty());
}

TEST_F(QueriesRecordedTest, AddingWithoutAPlaylistCannotBeBuiltAndTheLibraryFormCan) {
  ScratchDirectory folder;
  const std::string path = folder.path() + "/new.mp3";
  std::ofstream(path) << "ID3";
  const Url location = Url::fileUrlWithPath(path);

  EXPECT_EQ(controller_.addTrackToPlaylist(location, nullptr), std::nullopt);
  EXPECT_EQ(player_.count(), 0u);
  EXPECT_EQ(frameworkLines(log_), std::vector<std::string>{"Error creating Apple Event: -1740"});

  ASSERT_TRUE(controller_.addTrackToPlaylist(location, &playlist_));
  ae::Descriptor event = player_.last();
  EXPECT_EQ(event.eventID(), fourCharCode("Add "));
  EXPECT_EQ(item(event, "----").type(), fourCharCode("alis"));
  EXPECT_EQ(item(event, "insh"), playlist_.descriptor());

  ASSERT_TRUE(controller_.addTrackToLibrary(location));
  event = player_.last();
  EXPECT_EQ(item(event, "----").type(), fourCharCode("alis"));
  EXPECT_EQ(event.findParam(fourCharCode("insh")), nullptr);

  // The library form checks the file first; the playlist form sends an empty alias.
  EXPECT_EQ(controller_.addTrackToLibrary(Url::fileUrlWithPath("/nonexistent.mp3")), std::nullopt);
  EXPECT_EQ(frameworkLines(log_).back(), "Unable to resolve path to alias");
  const size_t sent = player_.count();
  ASSERT_TRUE(controller_.addTrackToPlaylist(Url::fileUrlWithPath("/nonexistent.mp3"), &playlist_));
  EXPECT_EQ(player_.count(), sent + 1);
  EXPECT_EQ(item(player_.last(), "----").dataSize(), 0u);
}

TEST_F(QueriesRecordedTest, SelectionIsTheApplicationsProperty) {
  const auto selected = controller_.selectedTracks();
  ASSERT_TRUE(selected.has_value());
  EXPECT_EQ(selected->size(), 1u);
  EXPECT_EQ(player_.printed().back(),
            "'core'\\'getd'{ '----':'obj '{ 'form':'prop', 'want':type('prop'), "
            "'seld':type('sele'), 'from':null() } }");
  player_.fail(-1728);
  EXPECT_EQ(controller_.selectedTracks(), std::nullopt);
  EXPECT_EQ(frameworkLines(log_),
            std::vector<std::string>{"Error extracting from reply event: -1701"});
}

// ---- Against the reference player ---------------------------------------------------------------

class QueriesPlayerTest : public ::testing::Test {
 protected:
  CleanControllerState clean_;
  LogCapture log_;
  std::unique_ptr<player::PlayerServer> player_ = startTreePlayer("7.7.1");
  std::shared_ptr<Cadenza> controller_ = Cadenza::sharedInstance();
};

TEST_F(QueriesPlayerTest, SearchFindsByAreaAndAnswersEmptyForNoMatch) {
  const auto library = controller_->libraryPlaylist();
  ASSERT_NE(library, nullptr);
  const auto byArtist = controller_->searchForStringInField(*library, "ada", fourCharCode("kSrR"));
  ASSERT_TRUE(byArtist.has_value());
  EXPECT_EQ(namesOf(*byArtist), (std::vector<std::string>{"Anthem", "Canon"}));
  const auto anywhere = controller_->searchForStringInField(*library, "dusk", 0);
  ASSERT_TRUE(anywhere.has_value());
  EXPECT_EQ(namesOf(*anywhere), (std::vector<std::string>{"Canon", "Dirge"}));
  const auto bySong = controller_->searchForStringInField(*library, "ada", fourCharCode("kSrS"));
  ASSERT_TRUE(bySong.has_value());
  EXPECT_TRUE(bySong->empty());
  EXPECT_TRUE(frameworkLines(log_).empty());
}

TEST_F(QueriesPlayerTest, AddedFilesBecomeTracksOfThePlaylistOrTheLibrary) {
  ScratchDirectory folder;
  const std::string first = folder.path() + "/First Light.mp3";
  const std::string second = folder.path() + "/Second Wind.m4a";
  std::ofstream(first) << "ID3";
  std::ofstream(second) << "....ftypM4A ";
  auto alpha = controller_->playlistWithPersistentId(cadenza_testing::kAlphaPid);
  ASSERT_NE(alpha, nullptr);
  ASSERT_EQ(alpha->trackCount(), 0);

  const auto added = controller_->addTrackToPlaylist(Url::fileUrlWithPath(first), alpha.get());
  ASSERT_TRUE(added.has_value());
  EXPECT_EQ(namesOf(*added), std::vector<std::string>{"First Light"});
  EXPECT_EQ(alpha->trackCount(), 1);
  // A file already in the library answers its track.
  const auto again = controller_->addTrackToPlaylist(Url::fileUrlWithPath(first), alpha.get());
  ASSERT_TRUE(again.has_value());
  EXPECT_EQ(namesOf(*again), std::vector<std::string>{"First Light"});

  const auto toLibrary = controller_->addTrackToLibrary(Url::fileUrlWithPath(second));
  ASSERT_TRUE(toLibrary.has_value());
  EXPECT_EQ(namesOf(*toLibrary), std::vector<std::string>{"Second Wind"});
  EXPECT_EQ(controller_->libraryPlaylist()->trackCount(), 6);
  EXPECT_TRUE(frameworkLines(log_).empty());
}

TEST_F(QueriesPlayerTest, SelectedTracksFollowThePlayersSelection) {
  const auto initial = controller_->selectedTracks();
  ASSERT_TRUE(initial.has_value());
  EXPECT_EQ(namesOf(*initial), std::vector<std::string>{"Anthem"});
  player_->withModel([](player::PlayerModel& model) { (void)model.setSelection({1003, 1004}); });
  const auto two = controller_->selectedTracks();
  ASSERT_TRUE(two.has_value());
  EXPECT_EQ(namesOf(*two), (std::vector<std::string>{"Canon", "Dirge"}));
  player_->withModel([](player::PlayerModel& model) { (void)model.setSelection({}); });
  const auto none = controller_->selectedTracks();
  ASSERT_TRUE(none.has_value());
  EXPECT_TRUE(none->empty());
}

TEST_F(QueriesPlayerTest, CountsAndListingsOfPlaylists) {
  EXPECT_EQ(controller_->playlistCount(), 16);
  EXPECT_EQ(controller_->playlists().size(), 16u);
  EXPECT_EQ(controller_->playlistEnumerator()->count(), 16);
  // Ordinary playlists only: no folder, no special playlist, no library playlist (not a
  // user playlist); Genius counts as ordinary before 8.0.
  EXPECT_EQ(namesOf(controller_->userPlaylists()),
            (std::vector<std::string>{"Genius", "Classics", "Cuts", "Zebra", "alpha"}));
  EXPECT_EQ(controller_->userPlaylistCount(), 5);
}

TEST_F(QueriesPlayerTest, TracksByPersistentIdGoThroughTheLibraryPlaylist) {
  const auto canon =
      controller_->trackWithPersistentId(static_cast<uint64_t>(cadenza_testing::kCanonPid));
  ASSERT_NE(canon, nullptr);
  EXPECT_EQ(canon->name(), "Canon");
  const auto anthem = controller_->trackWithPersistentIdString("000000000000A001");
  ASSERT_NE(anthem, nullptr);
  EXPECT_EQ(anthem->name(), "Anthem");
  EXPECT_EQ(controller_->trackWithPersistentIdString("00000000DEADBEEF"), nullptr);
  EXPECT_EQ(frameworkLines(log_),
            std::vector<std::string>{"Error extracting from reply event: -1701"});
}

// ---- Persistent-ID look-ups on each side of the version gates ----------------------------------

// The reference player finds a playlist by persistent ID only in the form its version uses, so
// finding it shows the form was chosen right; a recording player shows the form itself.
TEST(PlaylistLookupVersionTest, EachVersionGetsTheFormItUnderstands) {
  enum class Form { kNone, kInteger, kText };
  struct Case {
    const char* version;
    Form form;
  };
  const Case cases[] = {
      {"5.0.2", Form::kNone},    {"6.0", Form::kNone},      {"6.0.1", Form::kInteger},
      {"6.0.2", Form::kInteger}, {"7.1.5", Form::kInteger}, {"7.2", Form::kText},
      {"7.2.1", Form::kText},    {"7.2.2", Form::kInteger}, {"7.3", Form::kInteger},
      {"9.2.1", Form::kInteger},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.version);
    {
      CleanControllerState clean;
      LogCapture log;
      auto player = startTreePlayer(c.version);
      ASSERT_NE(player, nullptr);
      const auto controller = Cadenza::sharedInstance();
      for (int64_t pid : {cadenza_testing::kClassicsPid, cadenza_testing::kZebraPid}) {
        const auto found = controller->playlistWithPersistentId(static_cast<uint64_t>(pid));
        if (c.form == Form::kNone) {
          EXPECT_EQ(found, nullptr);
        } else {
          ASSERT_NE(found, nullptr);
          EXPECT_EQ(found->name(), pid == cadenza_testing::kClassicsPid ? "Classics" : "Zebra");
        }
      }
      EXPECT_EQ(controller->playlistWithPersistentId(0x12345), nullptr);
      EXPECT_EQ(frameworkLines(log).size(), c.form == Form::kNone ? 0u : 1u);
    }
    {
      CleanControllerState clean;
      RecordingPlayer recorder;
      recorder.respondWith(answeringVersion(c.version));
      (void)Cadenza::sharedInstance()->playlistWithPersistentId(
          static_cast<uint64_t>(cadenza_testing::kClassicsPid));
      const auto sent = withoutVersionReads(recorder.printed());
      if (c.form == Form::kNone) {
        EXPECT_TRUE(sent.empty());
        continue;
      }
      ASSERT_EQ(sent.size(), 1u);
      const ae::Descriptor event = recorder.last();
      const ae::Descriptor& key = item(item(item(item(event, "----"), "from"), "seld"), "obj2");
      if (c.form == Form::kText) {
        EXPECT_EQ(ae::printDesc(key), "\"00000000000ABCDE\"");
      } else {
        EXPECT_EQ(key.type(), ae::typeSInt64);
        EXPECT_EQ(valueOf<int64_t>(key), cadenza_testing::kClassicsPid);
      }
      EXPECT_NE(sent[0].find("want':type('cPly')"), std::string::npos);
      EXPECT_NE(sent[0].find("type('pPID')"), std::string::npos);
    }
  }
}

TEST(PlaylistLookupVersionTest, AFailedRequestIsStillReadAsAReply) {
  CleanControllerState clean;
  LogCapture log;
  const auto controller = Cadenza::sharedInstance();
  {
    RecordingPlayer recorder;
    recorder.respondWith(answeringVersion("7.3"));
    ASSERT_EQ(controller->versionNumber(), 0x730u);
  }
  // The player is gone: the request fails, and reading its missing reply fails too.
  EXPECT_EQ(controller->playlistWithPersistentId(1), nullptr);
  EXPECT_EQ(frameworkLines(log),
            (std::vector<std::string>{"Error sending Apple Event: -600",
                                      "Error extracting from reply event: -1703"}));
}

}  // namespace
}  // namespace rvitunes
