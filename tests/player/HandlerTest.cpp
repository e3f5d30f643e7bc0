// The player's event handlers, driven with the very templates the framework and its scripts
// build, without a bus: replies, error numbers, and what each event does to the model.

#include "rvitunes/image/Pict.h"
#include "rvitunes/player/Handler.h"

#include <gtest/gtest.h>

#include "HandlerTestSupport.h"
#include "rvitunes/ae/FileReference.h"
#include "rvitunes/player/Specifier.h"

namespace rvitunes::player {
namespace {

using testing::errorNumber;
using testing::errorString;
using testing::hasResult;
using testing::integerResult;
using testing::kChillId;
using testing::kFocusId;
using testing::kLibraryId;
using testing::kMusicId;
using testing::playerEvent;
using testing::result;
using testing::specifierId;
using testing::specifierIds;
using testing::textResult;

constexpr ae::AEEventClass kHook = kPlayerSignature;

// Framework templates, with the object's own specifier in place of the final @.
constexpr const char* kPropertyTemplate =
    "'----':obj { form:prop, want:type(prop), seld:type(%s), from:@ }";
constexpr const char* kSetPropertyTemplate =
    "data:@, '----':obj { form:prop, want:type(prop), seld:type(%s), from:@ }";

std::string format(const char* pattern, const std::string& code) {
  std::string out = pattern;
  out.replace(out.find("%s"), 2, code);
  return out;
}

class HandlerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    PlayerOptions options;
    options.writeBack = false;
    model_ = std::make_shared<PlayerModel>(std::move(options));
    ASSERT_TRUE(model_->load(testing::writeTestLibrary(folder_)).ok());
    PlayerHandlers::Options handlerOptions;
    handlerOptions.onQuit = [this] { ++quits_; };
    handlers_ = std::make_shared<PlayerHandlers>(model_, handlerOptions);
  }

  // Handles `event` as a wait-for-reply send; checks that the answer and 'errn' agree.
  ae::Descriptor send(const ae::Descriptor& event) {
    ae::Descriptor reply = ae::makeReplyEvent(event);
    const OSStatus status = handlers_->handle(event, reply);
    EXPECT_EQ(status, errorNumber(reply));
    if (status != noErr) {
      EXPECT_FALSE(errorString(reply).empty());
    }
    return reply;
  }

  template <class... A>
  ae::Descriptor send(ae::AEEventClass eventClass, ae::AEEventID eventID, std::string_view params,
                      const A&... args) {
    return send(playerEvent(eventClass, eventID, params, args...));
  }

  // A property of `object` read with the framework's property template.
  ae::Descriptor get(const std::string& code, const ae::Descriptor& object = {}) {
    return send(ae::kAECoreSuite, ae::kAEGetData, format(kPropertyTemplate, code), object);
  }

  // Fire-and-forget, as the framework's setters send.
  OSStatus set(const std::string& code, const ae::Descriptor& value,
               const ae::Descriptor& object = {}) {
    ae::Descriptor noReply;
    return handlers_->handle(playerEvent(ae::kAECoreSuite, ae::kAESetData,
                                         format(kSetPropertyTemplate, code), value, object),
                             noReply);
  }

  ae::Descriptor specifier(const std::string& text) {
    ae::Descriptor out;
    EXPECT_EQ(ae::buildDesc(&out, nullptr, text), noErr) << text;
    return out;
  }

  ae::Descriptor track(DatabaseId id, DatabaseId playlist = kLibraryId) {
    return specifier(testing::trackSpecifier(id, playlist));
  }
  ae::Descriptor playlist(DatabaseId id) { return specifier(testing::playlistSpecifier(id)); }

  OSType stateCode() {
    auto code = ae::codeValue(result(get("pPlS")));
    return code ? *code : 0;
  }

  testing::ScratchFolder folder_;
  std::shared_ptr<PlayerModel> model_;
  std::shared_ptr<PlayerHandlers> handlers_;
  int quits_ = 0;
};

TEST_F(HandlerTest, ApplicationPropertiesReadAndWrite) {
  EXPECT_EQ(integerResult(get("pVol")), 100);
  EXPECT_EQ(set("pVol", ae::Descriptor::makeSInt32(35)), noErr);
  EXPECT_EQ(integerResult(get("pVol")), 35);
  EXPECT_EQ(set("pEQ ", ae::Descriptor::makeSInt32(1)), noErr);
  EXPECT_EQ(integerResult(get("pEQ ")), 1);
  EXPECT_EQ(textResult(get("pnam")), "iTunes");
  // The version as the framework reads it: a 'vers' record with the short version string.
  const ae::Descriptor version = get("vers");
  EXPECT_EQ(result(version).type(), ae::typeVersion);
  EXPECT_EQ(textResult(version), "7.7.1");
  EXPECT_EQ(stateCode(), kStateStopped);
  // Read-only properties refuse, with the player's error in the reply.
  ae::Descriptor refused =
      send(ae::kAECoreSuite, ae::kAESetData, format(kSetPropertyTemplate, "pPlS"),
           ae::Descriptor::makeEnum(kStatePlaying), ae::Descriptor());
  EXPECT_EQ(errorNumber(refused), errAEWriteDenied);
  // 'rtyp' asks for another type.
  ae::Descriptor asText = send(ae::kAECoreSuite, ae::kAEGetData,
                               "'----':obj { form:prop, want:type(prop), seld:type(pVol), "
                               "from:null() }, rtyp:type(TEXT)");
  EXPECT_EQ(result(asText).type(), ae::typeChar);
  EXPECT_EQ(textResult(asText), "35");
}

TEST_F(HandlerTest, TracksAndPlaylistsThroughTheFrameworkTemplates) {
  // The library playlist: element 1 of class cLiP.
  ae::Descriptor library =
      send(ae::kAECoreSuite, ae::kAEGetData,
           "'----':obj { form:indx, want:type(cLiP), seld:1, from:@ }", ae::Descriptor());
  ASSERT_TRUE(hasResult(library));
  ae::Descriptor libraryPlaylist = result(library).duplicate();
  EXPECT_EQ(specifierId(libraryPlaylist), kLibraryId);

  EXPECT_EQ(integerResult(send(ae::kAECoreSuite, ae::kAECountElements, "kocl:type(cTrk) , '----':@",
                               libraryPlaylist)),
            6);
  EXPECT_EQ(integerResult(send(ae::kAECoreSuite, ae::kAECountElements, "kocl:type(cPly) , '----':@",
                               ae::Descriptor())),
            6);
  EXPECT_EQ(integerResult(send(ae::kAECoreSuite, ae::kAECountElements, "kocl:type(cUsP) , '----':@",
                               ae::Descriptor())),
            5);

  ae::Descriptor second =
      send(ae::kAECoreSuite, ae::kAEGetData,
           "'----':obj { form:indx, want:type(cTrk), seld:2, from:@ }", libraryPlaylist);
  ae::Descriptor track102 = result(second).duplicate();
  EXPECT_EQ(specifierId(track102), 102);
  EXPECT_EQ(textResult(get("pnam", track102)), "Beta Blues");

  EXPECT_EQ(set("pnam", ae::Descriptor::makeUnicodeText("Beta Blues (live)"), track102), noErr);
  EXPECT_EQ(set("pYr ", ae::Descriptor::makeSInt32(1977), track102), noErr);
  EXPECT_EQ(set("pPlD", ae::Descriptor::makeLongDateTime(3'600'000'000), track102), noErr);
  EXPECT_EQ(textResult(get("pnam", track102)), "Beta Blues (live)");
  EXPECT_EQ(integerResult(get("pYr ", track102)), 1977);
  ae::Descriptor played = get("pPlD", track102);
  ASSERT_EQ(result(played).type(), ae::typeLongDateTime);
  int64_t seconds = 0;
  result(played).getData(&seconds, sizeof seconds);
  EXPECT_EQ(seconds, 3'600'000'000);

  // The location reads back as a file reference to the track's file.
  ae::Descriptor location = get("pLoc", track102);
  ASSERT_EQ(result(location).type(), ae::typeFSRef);
  auto path = ae::resolveFileReference(result(location).data());
  ASSERT_TRUE(path.ok());
  EXPECT_EQ(*path, testing::trackFile(folder_, testing::kTestTracks[1]));

  // Setting an element's property by index, and the read-only ones.
  ae::Descriptor noReply;
  EXPECT_EQ(
      handlers_->handle(playerEvent(ae::kAECoreSuite, ae::kAESetData,
                                    "data:@, '----':obj { form:prop, want:type(prop), "
                                    "seld:type(pCmt), from:obj { form:indx, "
                                    "want:type(cTrk), seld:3, from:@ }}",
                                    ae::Descriptor::makeUnicodeText("third"), playlist(kFocusId)),
                        noReply),
      noErr);
  EXPECT_EQ(textResult(get("pCmt", track(106, kFocusId))), "third");
  EXPECT_EQ(errorNumber(send(ae::kAECoreSuite, ae::kAESetData, format(kSetPropertyTemplate, "pDID"),
                             ae::Descriptor::makeSInt32(1), track102)),
            errAEWriteDenied);
  // Gone objects are errAENoSuchObject.
  EXPECT_EQ(errorNumber(get("pnam", track(101, kFocusId))), errAENoSuchObject);
  EXPECT_EQ(errorNumber(send(ae::kAECoreSuite, ae::kAEGetData,
                             "'----':obj { form:indx, want:type(cTrk), seld:7, from:@ }",
                             libraryPlaylist)),
            errAENoSuchObject);
}

TEST_F(HandlerTest, KeyedLookupsByDatabaseAndPersistentId) {
  const std::string anyOf =
      "'----':obj { form:indx, want:type(%s), seld:'abso'('any '), from:obj { form:test, "
      "want:type(%s), from:@, seld:cmpd{relo:=, 'obj1': obj{ form:prop, want:type(prop), "
      "seld:type(%s), from:exmn()}, obj2:%v}} }";
  const auto keyed = [&](const std::string& cls, const std::string& property,
                         const std::string& value) {
    std::string text = anyOf;
    for (const std::string* part : {&cls, &cls, &property}) {
      text.replace(text.find("%s"), 2, *part);
    }
    text.replace(text.find("%v"), 2, value);
    return text;
  };
  ae::Descriptor byDatabaseId =
      send(ae::kAECoreSuite, ae::kAEGetData, keyed("cTrk", "pDID", "104"), playlist(kLibraryId));
  EXPECT_EQ(specifierId(result(byDatabaseId)), 104);

  // 64-bit persistent IDs as 'comp', top bit set included.
  const auto byPid = [&](const std::string& cls, PersistentId pid, const ae::Descriptor& in) {
    const auto key = static_cast<int64_t>(pid);
    const ae::Descriptor comp = ae::Descriptor::makeSInt64(key);
    return send(ae::kAECoreSuite, ae::kAEGetData, keyed(cls, "pPID", "@"), in, comp);
  };
  EXPECT_EQ(specifierId(result(byPid("cTrk", testing::kTrack101Pid, playlist(kLibraryId)))), 101);
  EXPECT_EQ(specifierId(result(byPid("cPly", testing::kFocusPid, ae::Descriptor()))), kFocusId);
  EXPECT_EQ(errorNumber(byPid("cTrk", 0x1234, playlist(kLibraryId))), errAENoSuchObject);
  // Text keys do not match 'comp' IDs on this version.
  EXPECT_EQ(errorNumber(send(ae::kAECoreSuite, ae::kAEGetData,
                             keyed("cTrk", "pPID", "\"1000000000000104\""), playlist(kLibraryId))),
            errAENoSuchObject);
  // pPIS answers the text form.
  EXPECT_EQ(textResult(get("pPIS", track(101))), "F00000000000A101");
  EXPECT_EQ(integerResult(get("pPID", track(101))), static_cast<int64_t>(testing::kTrack101Pid));
}

TEST_F(HandlerTest, TransportCommandsDriveThePlaybackState) {
  const auto command = [&](const char(&id)[5]) {
    return send(kHook, fourCharCode(id), "'----':'null'()");
  };
  command("Play");
  EXPECT_EQ(stateCode(), kStatePlaying);
  EXPECT_EQ(specifierId(result(get("pTrk"))), 101);
  // The script's line: set player position to 0.
  EXPECT_EQ(errorNumber(send(ae::kAECoreSuite, ae::kAESetData,
                             "data:30, '----':obj { form:prop, want:type(prop), "
                             "seld:type(pPos), from:null() }")),
            noErr);
  EXPECT_NEAR(static_cast<double>(integerResult(get("pPos"))), 30.0, 1.0);
  command("Next");
  EXPECT_EQ(specifierId(result(get("pTrk"))), 102);
  command("Prev");
  EXPECT_EQ(specifierId(result(get("pTrk"))), 101);
  command("Paus");
  EXPECT_EQ(stateCode(), kStatePaused);
  command("PlPs");
  EXPECT_EQ(stateCode(), kStatePlaying);
  command("Fast");
  EXPECT_EQ(stateCode(), kStateFastForwarding);
  command("Resu");
  EXPECT_EQ(stateCode(), kStatePlaying);
  command("Rwnd");
  EXPECT_EQ(stateCode(), kStateRewinding);
  command("Back");
  command("Stop");
  EXPECT_EQ(stateCode(), kStateStopped);
  EXPECT_EQ(errorNumber(get("pTrk")), errAENoSuchObject);

  // A track of a playlist: the playlist becomes the current one.
  EXPECT_EQ(errorNumber(send(kHook, fourCharCode("Play"), "'----':@", track(104, kFocusId))),
            noErr);
  EXPECT_EQ(specifierId(result(get("pTrk"))), 104);
  ae::Descriptor current = send(ae::kAECoreSuite, ae::kAEGetData,
                                "'----':obj { form:prop, want:type(prop), seld:type(pPla), "
                                "from:null() }");
  EXPECT_EQ(specifierId(result(current)), kFocusId);
  // The script's line: play POSIX file "..." with once.
  const std::string path = folder_.write("new/once.mp3", "ID3");
  const std::string url = Url::fileUrlWithPath(path).string();
  EXPECT_EQ(errorNumber(send(kHook, fourCharCode("Play"), "'----':furl(@), POne:true()",
                             ae::BuildArg::bytes(url.data(), url.size()))),
            noErr);
  // The file is added first (a file without a known duration plays as an instant).
  ASSERT_NE(model_->library().trackByPath(path), nullptr);
  EXPECT_EQ(model_->library().trackByPath(path)->name(), "once");
  // The framework's playTrackWithPath: an alias to the file.
  auto alias = ae::makeAliasRecord(testing::trackFile(folder_, testing::kTestTracks[5]));
  ASSERT_TRUE(alias.ok());
  EXPECT_EQ(errorNumber(
                send(kHook, fourCharCode("Play"), "'----':alis(@@)", ae::BuildArg::handle(*alias))),
            noErr);
  EXPECT_EQ(specifierId(result(get("pTrk"))), 106);
  // A file that is not there, and something that cannot be played.
  const std::string gone = "file:///nonexistent/track.mp3";
  EXPECT_EQ(errorNumber(send(kHook, fourCharCode("Play"), "'----':furl(@)",
                             ae::BuildArg::bytes(gone.data(), gone.size()))),
            fnfErr);
  EXPECT_EQ(errorNumber(send(kHook, fourCharCode("Play"), "'----':42")), errAECantHandleClass);
}

TEST_F(HandlerTest, SearchAnswersTrackSpecifiersInThePlaylist) {
  const auto search = [&](const ae::Descriptor& in, const std::string& term,
                          const std::string& area) {
    const std::vector<uint8_t> utf16 = ae::utf8ToUtf16Host(term);
    const std::string params =
        area.empty() ? "'----':@, pTrm:'utxt'(@)" : "'----':@, pTrm:'utxt'(@), pAre:" + area;
    return send(kHook, fourCharCode("Srch"), params, in, ae::BuildArg::bytes(utf16));
  };
  ae::Descriptor ann = search(playlist(kLibraryId), "ann", "");
  EXPECT_EQ(specifierIds(result(ann)), (std::vector<int64_t>{101, 103}));
  EXPECT_EQ(specifierId(*result(ann).itemAt(0).findParam(ae::keyAEContainer)), kLibraryId);
  EXPECT_EQ(specifierIds(result(search(playlist(kFocusId), "delta", "kSrS"))),
            std::vector<int64_t>{104});
  EXPECT_EQ(specifierIds(result(search(playlist(kFocusId), "bach", "kSrR"))),
            std::vector<int64_t>{});
  EXPECT_EQ(specifierIds(result(search(playlist(kFocusId), "bach", "kSrC"))),
            std::vector<int64_t>{104});
  EXPECT_EQ(errorNumber(search(playlist(kFocusId), "x", "kXXX")), errAENotAnEnumMember);
  EXPECT_EQ(errorNumber(search(track(101), "x", "")), errAECantHandleClass);
  EXPECT_EQ(errorNumber(send(kHook, fourCharCode("Srch"), "'----':@", playlist(kFocusId))),
            errAEDescNotFound);
}

TEST_F(HandlerTest, AddAnswersTheTracksCreatedOrAlreadyThere) {
  const std::string path = folder_.write("new/added song.mp3", "ID3");
  auto alias = ae::makeAliasRecord(path);
  ASSERT_TRUE(alias.ok());
  ae::Descriptor added = send(kHook, fourCharCode("Add "), "'----':alis(@@), insh:(@)",
                              ae::BuildArg::handle(*alias), playlist(kFocusId));
  ASSERT_EQ(errorNumber(added), noErr) << errorString(added);
  ASSERT_EQ(result(added).itemCount(), 1u);
  const ae::Descriptor newTrack = result(added).itemAt(0).duplicate();
  EXPECT_EQ(specifierId(*newTrack.findParam(ae::keyAEContainer)), kFocusId);
  EXPECT_EQ(textResult(get("pnam", newTrack)), "added song");
  EXPECT_EQ(model_->library().tracks().size(), 7u);
  EXPECT_EQ(model_->library().playlistById(kFocusId)->trackIds().size(), 4u);

  // The same file again, as a list of file URLs, to the library: its existing track.
  ae::Descriptor again = send(kHook, fourCharCode("Add "), "'----':[furl(@)]",
                              ae::BuildArg::bytes(Url::fileUrlWithPath(path).string().data(),
                                                  Url::fileUrlWithPath(path).string().size()));
  EXPECT_EQ(specifierIds(result(again)), std::vector<int64_t>{specifierId(newTrack)});
  EXPECT_EQ(model_->library().tracks().size(), 7u);

  EXPECT_EQ(errorNumber(send(kHook, fourCharCode("Add "), "'----':alis(@@), insh:(@)",
                             ae::BuildArg::handle(*alias), playlist(kMusicId))),
            errAECantPutThatThere);
  const std::string gone = "file:///nonexistent/file.mp3";
  EXPECT_EQ(errorNumber(send(kHook, fourCharCode("Add "), "'----':furl(@)",
                             ae::BuildArg::bytes(gone.data(), gone.size()))),
            fnfErr);
}

TEST_F(HandlerTest, ArtworkIsReadSetAndDeletedByIndex) {
  const ae::Descriptor owner = track(101, kChillId);
  const auto count = [&] {
    return integerResult(
        send(ae::kAECoreSuite, ae::kAECountElements, "kocl:type(cArt) , '----':@", owner));
  };
  EXPECT_EQ(count(), 1);
  ae::Descriptor first = send(ae::kAECoreSuite, ae::kAEGetData,
                              "'----':obj { form:indx, want:type(cArt), seld:1, from:@ }", owner);
  // A JPEG cover is answered as a PICT, as the player's picture property always is.
  ae::Descriptor picture = get("pPCT", result(first));
  EXPECT_EQ(result(picture).type(), ae::typePict);
  Result<image::Image> decoded = image::decodePict(result(picture).data());
  ASSERT_TRUE(decoded.ok()) << decoded.status().toString();
  EXPECT_EQ(decoded->width(), 4u);

  // Setting the picture of artwork 2 adds it.
  const std::vector<uint8_t> pict(600, 0x11);
  ae::Descriptor noReply;
  EXPECT_EQ(handlers_->handle(playerEvent(ae::kAECoreSuite, ae::kAESetData,
                                          "data:@, '----':obj { form:prop, want:type(prop), "
                                          "seld:type(pPCT), from:obj { form:indx, "
                                          "want:type(cArt), seld:2, from:@ }}",
                                          ae::Descriptor::fromBytes(ae::typePict, pict), owner),
                              noReply),
            noErr);
  EXPECT_EQ(count(), 2);
  EXPECT_EQ(errorNumber(send(ae::kAECoreSuite, ae::kAESetData,
                             "data:@, '----':obj { form:prop, want:type(prop), seld:type(pPCT), "
                             "from:obj { form:indx, want:type(cArt), seld:4, from:@ }}",
                             ae::Descriptor::fromBytes(ae::typePict, pict), owner)),
            errAENoSuchObject);

  EXPECT_EQ(errorNumber(send(ae::kAECoreSuite, ae::kAEDelete,
                             "'----':obj { form:indx, want:type(cArt), seld:1, from:@ }", owner)),
            noErr);
  EXPECT_EQ(count(), 1);
  EXPECT_EQ(result(get("pPCT", specifier("obj { form:indx, want:type(cArt), seld:1, from:" +
                                         testing::trackSpecifier(101, kChillId) + " }")))
                .type(),
            ae::typePict);
  EXPECT_EQ(errorNumber(send(ae::kAECoreSuite, ae::kAEDelete,
                             "'----':obj { form:indx, want:type(cArt), seld:abso('all '), "
                             "from:@ }",
                             owner)),
            noErr);
  EXPECT_EQ(count(), 0);
  EXPECT_EQ(errorNumber(send(ae::kAECoreSuite, ae::kAEDelete, "'----':@", owner)),
            errAECantHandleClass);
}

TEST_F(HandlerTest, SelectionActivationQuitAndUnknownEvents) {
  ae::Descriptor selection = send(ae::kAECoreSuite, ae::kAEGetData,
                                  "'----':obj { form:prop, want:type(prop), seld:type(sele), "
                                  "from:'null'() }");
  EXPECT_EQ(specifierIds(result(selection)), std::vector<int64_t>{101});

  EXPECT_EQ(errorNumber(send(ae::kAEMiscStandards, ae::kAEActivate, "")), noErr);
  EXPECT_EQ(integerResult(get("pisf")), 1);
  EXPECT_EQ(errorNumber(send(ae::kCoreEventClass, ae::kAEOpenApplication, "")), noErr);

  ae::Descriptor unknown = send(kHook, fourCharCode("Conv"), "'----':@", track(101));
  EXPECT_EQ(errorNumber(unknown), errAEEventNotHandled);
  EXPECT_NE(errorString(unknown).find("hook/Conv"), std::string::npos);
  EXPECT_EQ(errorNumber(send(ae::kAECoreSuite, ae::kAEGetData, "")), errAEDescNotFound);
  EXPECT_EQ(errorNumber(send(ae::kAECoreSuite, ae::kAECountElements, "'----':null()")),
            errAEDescNotFound);

  EXPECT_FALSE(handlers_->quitRequested());
  EXPECT_EQ(errorNumber(send(ae::kCoreEventClass, ae::kAEQuitApplication, "")), noErr);
  EXPECT_TRUE(handlers_->quitRequested());
  EXPECT_EQ(quits_, 1);
}

TEST(HandlerTableTest, InstalledHandlersAnswerEveryRowAndRefuseTheRest) {
  testing::ScratchFolder folder;
  PlayerOptions options;
  options.writeBack = false;
  auto model = std::make_shared<PlayerModel>(std::move(options));
  ASSERT_TRUE(model->load(testing::writeTestLibrary(folder)).ok());
  auto handlers = std::make_shared<PlayerHandlers>(model, PlayerHandlers::Options{});
  ae::Application app(kPlayerSignature, "iTunes");
  PlayerHandlers::install(handlers, app);
  for (const HandledEvent& row : PlayerHandlers::table()) {
    ae::Descriptor event = playerEvent(row.eventClass, row.eventID, "");
    ae::Descriptor reply = ae::makeReplyEvent(event);
    // Every row is handled; those needing a direct object say so instead of -1708.
    EXPECT_NE(app.dispatch(event, reply), errAEEventNotHandled) << row.summary;
  }
  ae::Descriptor odd = playerEvent(fourCharCode("xxxx"), fourCharCode("yyyy"), "");
  ae::Descriptor reply = ae::makeReplyEvent(odd);
  EXPECT_EQ(app.dispatch(odd, reply), errAEEventNotHandled);
  EXPECT_FALSE(testing::errorString(reply).empty());
  PlayerHandlers::uninstall(app);
  reply = ae::makeReplyEvent(odd);
  EXPECT_EQ(app.dispatch(odd, reply), errAEEventNotHandled);
  EXPECT_TRUE(testing::errorString(reply).empty());
}

}  // namespace
}  // namespace rvitunes::player
