// The player daemon run from the build tree on a private bus directory, driven over its socket
// with the framework's templates: properties, walks, look-ups in each version's identifier
// form, search, add, the selection, parents, write-back, stopping, and the command line.

#include <gtest/gtest.h>

#include <filesystem>

#include "HandlerTestSupport.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/ae/FileReference.h"
#include "rvitunes/player/PlayerServer.h"

namespace rvitunes::player {
namespace {

using testing::BusClient;
using testing::Daemon;
using testing::errorNumber;
using testing::integerResult;
using testing::kChillId;
using testing::kFocusId;
using testing::kLibraryId;
using testing::kYearsId;
using testing::playerEvent;
using testing::result;
using testing::specifierId;
using testing::specifierIds;
using testing::textResult;

constexpr const char* kProperty =
    "'----':obj { form:prop, want:type(prop), seld:type(%s), from:@ }";

std::string property(const std::string& code) {
  std::string text = kProperty;
  return text.replace(text.find("%s"), 2, code);
}

class EndToEndTest : public ::testing::Test {
 protected:
  void SetUp() override { library_ = testing::writeTestLibrary(folder_); }

  // Starts the daemon with `args` and waits for its registration.
  void startDaemon(std::vector<std::string> args = {}) {
    daemon_ = std::make_unique<Daemon>(bus_, library_, std::move(args), folder_);
    ASSERT_TRUE(daemon_->waitUntilRegistered()) << daemon_->log();
    client_ = std::make_unique<BusClient>(bus_);
  }

  template <class... A>
  ae::Descriptor ask(ae::AEEventClass eventClass, ae::AEEventID eventID, std::string_view params,
                     const A&... args) {
    OSStatus status = noErr;
    ae::Descriptor reply =
        client_->request(playerEvent(eventClass, eventID, params, args...), &status);
    EXPECT_EQ(status, noErr) << params;
    return reply;
  }

  ae::Descriptor get(const std::string& code, const ae::Descriptor& object = {}) {
    return ask(ae::kAECoreSuite, ae::kAEGetData, property(code), object);
  }

  ae::Descriptor specifier(const std::string& text) {
    ae::Descriptor out;
    EXPECT_EQ(ae::buildDesc(&out, nullptr, text), noErr) << text;
    return out;
  }

  testing::ScratchFolder folder_;
  testing::PrivateBus bus_;
  std::string library_;
  std::unique_ptr<Daemon> daemon_;
  std::unique_ptr<BusClient> client_;
};

TEST_F(EndToEndTest, ReadsWritesCountsAndWalksOverTheBus) {
  startDaemon();
  // Application properties; a set sent without waiting, as the framework sends it.
  EXPECT_EQ(textResult(get("pnam")), "iTunes");
  ASSERT_EQ(client_->post(playerEvent(ae::kAECoreSuite, ae::kAESetData,
                                      "data:@, '----':obj { form:prop, want:type(prop), "
                                      "seld:type(pVol), from:@ }",
                                      ae::Descriptor::makeSInt32(40), ae::Descriptor())),
            noErr);
  EXPECT_EQ(integerResult(get("pVol")), 40);  // requests of one client are answered in order

  // Walk the playlists as the enumerator does: count, then each element by index.
  const int64_t count = integerResult(
      ask(ae::kAECoreSuite, ae::kAECountElements, "kocl:type(cPly) , '----':@", ae::Descriptor()));
  ASSERT_EQ(count, 6);
  std::vector<std::string> names;
  for (int i = 1; i <= count; ++i) {
    ae::Descriptor element =
        ask(ae::kAECoreSuite, ae::kAEGetData,
            "'----':obj { form:indx, want:type(cPly), seld:" + std::to_string(i) + ", from:@ }",
            ae::Descriptor());
    names.push_back(textResult(get("pnam", result(element))));
  }
  EXPECT_EQ(names,
            (std::vector<std::string>{"Library", "Music", "Years", "Chill", "Focus", "Empty"}));

  // Walk a playlist's tracks and write one of them.
  const ae::Descriptor focus = specifier(testing::playlistSpecifier(kFocusId));
  const int64_t tracks = integerResult(
      ask(ae::kAECoreSuite, ae::kAECountElements, "kocl:type(cTrk) , '----':@", focus));
  ASSERT_EQ(tracks, 3);
  std::vector<int64_t> ids;
  for (int i = 1; i <= tracks; ++i) {
    ae::Descriptor element = ask(
        ae::kAECoreSuite, ae::kAEGetData,
        "'----':obj { form:indx, want:type(cTrk), seld:" + std::to_string(i) + ", from:@ }", focus);
    ids.push_back(integerResult(get("pDID", result(element))));
  }
  EXPECT_EQ(ids, (std::vector<int64_t>{102, 104, 106}));
  const ae::Descriptor track = specifier(testing::trackSpecifier(104, kFocusId));
  ASSERT_EQ(client_->post(playerEvent(ae::kAECoreSuite, ae::kAESetData,
                                      "data:@, '----':obj { form:prop, want:type(prop), "
                                      "seld:type(pRte), from:@ }",
                                      ae::Descriptor::makeSInt32(80), track)),
            noErr);
  EXPECT_EQ(integerResult(get("pRte", track)), 80);
  EXPECT_EQ(textResult(get("pAlb", track)), "Third");

  // Parents: a folder's child names its folder; a top-level playlist answers -1728.
  EXPECT_EQ(specifierId(result(get("pPlP", specifier(testing::playlistSpecifier(kChillId))))),
            kYearsId);
  ae::Descriptor top = get("pPlP", focus);
  EXPECT_EQ(errorNumber(top), errAENoSuchObject);
  EXPECT_FALSE(testing::hasResult(top));

  // Search, add, selection.
  const std::vector<uint8_t> term = ae::utf8ToUtf16Host("ann");
  ae::Descriptor found =
      ask(fourCharCode("hook"), fourCharCode("Srch"), "'----':@, pTrm:'utxt'(@), pAre:kSrR",
          specifier(testing::playlistSpecifier(kLibraryId)), ae::BuildArg::bytes(term));
  EXPECT_EQ(specifierIds(result(found)), (std::vector<int64_t>{101, 103}));
  const std::string file = folder_.write("new/over the bus.mp3", "ID3");
  auto alias = ae::makeAliasRecord(file);
  ASSERT_TRUE(alias.ok());
  ae::Descriptor added = ask(fourCharCode("hook"), fourCharCode("Add "),
                             "'----':alis(@@), insh:(@)", ae::BuildArg::handle(*alias), focus);
  ASSERT_EQ(result(added).itemCount(), 1u);
  EXPECT_EQ(textResult(get("pnam", result(added).itemAt(0))), "over the bus");
  EXPECT_EQ(integerResult(
                ask(ae::kAECoreSuite, ae::kAECountElements, "kocl:type(cTrk) , '----':@", focus)),
            4);
  ae::Descriptor selection = ask(ae::kAECoreSuite, ae::kAEGetData,
                                 "'----':obj { form:prop, want:type(prop), seld:type(sele), "
                                 "from:'null'() }");
  EXPECT_EQ(specifierIds(result(selection)), std::vector<int64_t>{101});
}

struct VersionCase {
  const char* version;
  bool hasPid;
  bool pidAsText;
  bool hasPis;
  bool hasLongDescription;
};

class EndToEndVersionTest : public EndToEndTest,
                            public ::testing::WithParamInterface<VersionCase> {};

TEST_P(EndToEndVersionTest, PersistentIdsAndPropertiesFollowThePlayerVersion) {
  const VersionCase& c = GetParam();
  startDaemon({"--player-version", c.version});
  EXPECT_EQ(textResult(get("vers")), c.version);
  const ae::Descriptor track = specifier(testing::trackSpecifier(104));
  ae::Descriptor pid = get("pPID", track);
  ae::Descriptor pis = get("pPIS", track);
  EXPECT_EQ(errorNumber(get("pLds", track)) == noErr, c.hasLongDescription);
  EXPECT_EQ(errorNumber(pis) == noErr, c.hasPis);
  if (c.hasPis) {
    EXPECT_EQ(textResult(pis), "1000000000000104");
  }
  if (!c.hasPid) {
    EXPECT_EQ(errorNumber(pid), errAENoSuchObject);
  } else if (c.pidAsText) {
    EXPECT_EQ(result(pid).type(), ae::typeUnicodeText);
    EXPECT_EQ(textResult(pid), "1000000000000104");
  } else {
    EXPECT_EQ(result(pid).type(), ae::typeComp);
    EXPECT_EQ(integerResult(pid), static_cast<int64_t>(testing::kTrack104Pid));
  }

  // The framework's look-ups: the text form on 7.2.0 and 7.2.1, the 64-bit form elsewhere.
  const std::string test =
      "obj { form:test, want:type(%c), from:@, seld:cmpd{relo:=, 'obj1': obj{ form:prop, "
      "want:type(prop), seld:type(pPID), from:exmn()}, obj2:%v}}";
  const auto lookup = [&](const std::string& cls, const ae::Descriptor& in, PersistentId id) {
    std::string inner = test;
    inner.replace(inner.find("%c"), 2, cls);
    const std::string params =
        "'----':obj { form:indx, want:type(" + cls + "), seld:'abso'('any '), from:" + inner + " }";
    if (c.pidAsText) {
      char hex[17];
      std::snprintf(hex, sizeof hex, "%016llX", static_cast<unsigned long long>(id));
      std::string text = params;
      text.replace(text.find("%v"), 2, "\"" + std::string(hex) + "\"");
      return ask(ae::kAECoreSuite, ae::kAEGetData, text, in);
    }
    std::string text = params;
    text.replace(text.find("%v"), 2, "@");
    return ask(ae::kAECoreSuite, ae::kAEGetData, text, in,
               ae::Descriptor::makeSInt64(static_cast<int64_t>(id)));
  };
  ae::Descriptor playlist = lookup("cPly", ae::Descriptor(), testing::kFocusPid);
  ae::Descriptor found =
      lookup("cTrk", specifier(testing::playlistSpecifier(kLibraryId)), testing::kTrack101Pid);
  if (c.hasPid) {
    EXPECT_EQ(specifierId(result(playlist)), kFocusId);
    EXPECT_EQ(specifierId(result(found)), 101);
  } else {
    EXPECT_EQ(errorNumber(playlist), errAENoSuchObject);
    EXPECT_EQ(errorNumber(found), errAENoSuchObject);
  }
}

INSTANTIATE_TEST_SUITE_P(Versions, EndToEndVersionTest,
                         ::testing::Values(VersionCase{"5.0", false, false, false, false},
                                           VersionCase{"6.0.2", true, false, false, true},
                                           VersionCase{"7.2.1", true, true, false, true},
                                           VersionCase{"7.7.1", true, false, true, true}),
                         [](const auto& info) {
                           std::string name = info.param.version;
                           for (char& ch : name) {
                             if (ch == '.') ch = '_';
                           }
                           return "v" + name;
                         });

TEST_F(EndToEndTest, PropertySetOverTheBusReachesTheLibraryFile) {
  startDaemon();
  ASSERT_EQ(client_->post(playerEvent(ae::kAECoreSuite, ae::kAESetData,
                                      "data:'utxt'(@), '----':obj { form:prop, want:type(prop), "
                                      "seld:type(pnam), from:@ }",
                                      ae::BuildArg::bytes(ae::utf8ToUtf16Host("Written Back")),
                                      specifier(testing::trackSpecifier(106)))),
            noErr);
  // Written a moment (0.5 s) after the change; a bounded wait.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  bool written = false;
  while (!written && std::chrono::steady_clock::now() < deadline) {
    written = testing::readWhole(library_).find("Written Back") != std::string::npos;
    if (!written) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  EXPECT_TRUE(written);
  // The quit event stops the daemon cleanly.
  ask(ae::kCoreEventClass, ae::kAEQuitApplication, "");
  EXPECT_EQ(daemon_->process().reap(std::chrono::seconds(5)), std::optional<int>(0))
      << daemon_->log();
}

TEST_F(EndToEndTest, SignalsStopTheDaemonAfterItsPendingWrite) {
  for (int signal : {SIGTERM, SIGINT}) {
    startDaemon();
    const std::string name = "Before signal " + std::to_string(signal);
    ASSERT_EQ(client_->post(playerEvent(ae::kAECoreSuite, ae::kAESetData,
                                        "data:@, '----':obj { form:prop, want:type(prop), "
                                        "seld:type(pnam), from:@ }",
                                        ae::Descriptor::makeUnicodeText(name),
                                        specifier(testing::playlistSpecifier(kFocusId)))),
              noErr);
    // Answered in order: once this reply is in, the set has been handled.
    EXPECT_EQ(textResult(get("pnam", specifier(testing::playlistSpecifier(kFocusId)))), name);
    daemon_->process().signal(signal);
    EXPECT_EQ(daemon_->process().reap(std::chrono::seconds(5)), std::optional<int>(0))
        << daemon_->log();
    EXPECT_NE(testing::readWhole(library_).find(name), std::string::npos) << signal;
    auto directory = ae::BusDirectory::open(bus_.busPath());
    ASSERT_TRUE(directory.ok());
    EXPECT_FALSE(directory->find(kPlayerSignature).has_value());
    client_.reset();
  }
}

TEST_F(EndToEndTest, RefusesASecondInstanceAndBadArguments) {
  startDaemon();
  testing::ScratchFolder secondLog;
  Daemon second(bus_, library_, {}, secondLog);
  const std::optional<int> status = second.process().reap(std::chrono::seconds(10));
  EXPECT_EQ(status, std::optional<int>(1));
  EXPECT_NE(second.log().find("already running"), std::string::npos) << second.log();
  // The first one still answers.
  EXPECT_EQ(textResult(get("pnam")), "iTunes");

  testing::ChildProcess usage;
  ASSERT_TRUE(usage.start({testing::daemonPath(), "--player-version", "x.y"}, {bus_.environment()},
                          folder_ / "usage.log"));
  EXPECT_EQ(usage.reap(std::chrono::seconds(5)), std::optional<int>(2));
  testing::ChildProcess missing;
  ASSERT_TRUE(
      missing.start({testing::daemonPath(), "--library", folder_ / "none.xml", "--name", "Other"},
                    {"XDG_RUNTIME_DIR=" + folder_.path()}, folder_ / "missing.log"));
  EXPECT_EQ(missing.reap(std::chrono::seconds(5)), std::optional<int>(1));
  EXPECT_NE(testing::readWhole(folder_ / "missing.log").find("none.xml"), std::string::npos);
}

TEST_F(EndToEndTest, CommandLinePingsThePlayerAndServesIt) {
  const auto run = [&](std::vector<std::string> args, std::string* out, std::string* err) {
    testing::ChildProcess cli;
    args.insert(args.begin(), RVITUNES_CLI_PATH);
    EXPECT_TRUE(cli.start(args, {bus_.environment()}, folder_ / "cli.err", folder_ / "cli.out"));
    const std::optional<int> status = cli.reap(std::chrono::seconds(10));
    *out = testing::readWhole(folder_ / "cli.out");
    *err = testing::readWhole(folder_ / "cli.err");
    return status;
  };
  std::string out;
  std::string err;
  EXPECT_EQ(run({"player", "ping"}, &out, &err), std::optional<int>(1));
  EXPECT_NE(err.find("-600"), std::string::npos) << err;

  // `rvitunes player serve` is the daemon.
  testing::ChildProcess serve;
  ASSERT_TRUE(serve.start({RVITUNES_CLI_PATH, "player", "serve", "--library", library_,
                           "--player-version", "7.2.1", "--name", "Jukebox"},
                          {bus_.environment()}, folder_ / "serve.log"));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  bool registered = false;
  while (!registered && serve.running() && std::chrono::steady_clock::now() < deadline) {
    auto directory = ae::BusDirectory::open(bus_.busPath());
    registered = directory.ok() && directory->find(kPlayerSignature).has_value();
    if (!registered) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ASSERT_TRUE(registered) << testing::readWhole(folder_ / "serve.log");
  EXPECT_EQ(run({"player", "ping"}, &out, &err), std::optional<int>(0)) << err;
  EXPECT_NE(out.find("name: Jukebox"), std::string::npos) << out;
  EXPECT_NE(out.find("version: 7.2.1"), std::string::npos) << out;
  EXPECT_NE(out.find("round trip:"), std::string::npos) << out;
  serve.signal(SIGTERM);
  EXPECT_EQ(serve.reap(std::chrono::seconds(5)), std::optional<int>(0));
}

// ---- The same player started in this process -----------------------------------------------

TEST(InProcessPlayerTest, HandleRegistersServesAndUnregisters) {
  testing::ScratchFolder folder;
  testing::PrivateBus bus;
  const std::string library = testing::writeTestLibrary(folder);
  ae::EventManager manager(ae::EventManager::Options{bus.busPath()});
  int quits = 0;
  PlayerServerOptions options;
  options.eventManager = &manager;
  options.publish = true;
  options.name = "Embedded";
  options.writeBackDelay = std::chrono::seconds(30);  // nothing is written on its own
  options.onQuit = [&] { ++quits; };
  auto server = PlayerServer::startInProcess(library, options);
  ASSERT_TRUE(server.ok()) << server.status().toString();
  EXPECT_TRUE((*server)->published());

  // In this process, straight to the handlers, and from another connection over the bus.
  ae::Descriptor reply;
  ASSERT_EQ(manager.send(testing::getd("'----':" + testing::propertyOf("pnam", "null()")), &reply,
                         ae::kAEWaitReply, 300),
            noErr);
  EXPECT_EQ(textResult(reply), "Embedded");
  BusClient client(bus);
  EXPECT_EQ(integerResult(
                client.request(testing::getd("'----':" + testing::propertyOf("pVol", "null()")))),
            100);
  auto running = client.manager().runningApplications();
  ASSERT_FALSE(running.empty());
  EXPECT_EQ(running.front().name, "Embedded");

  // One player per signature and manager.
  PlayerServerOptions again = options;
  again.publish = false;
  auto second = PlayerServer::startInProcess(library, again);
  EXPECT_EQ(second.status().code(), paramErr);
  EXPECT_EQ(PlayerServer::startInProcess(folder / "missing.xml", again).ok(), false);

  // Quit is reported once; the player serves until its handle goes, and a change still
  // pending then is written.
  OSStatus status = noErr;
  client.request(playerEvent(ae::kCoreEventClass, ae::kAEQuitApplication, ""), &status);
  EXPECT_EQ(status, noErr);
  EXPECT_TRUE((*server)->waitForQuit(std::chrono::seconds(2)));
  EXPECT_EQ(quits, 1);
  ASSERT_EQ(client.post(playerEvent(
                ae::kAECoreSuite, ae::kAESetData,
                "data:@, '----':" + testing::propertyOf("pnam", testing::trackSpecifier(103)),
                ae::Descriptor::makeUnicodeText("Pending Name"))),
            noErr);
  EXPECT_EQ(textResult(client.request(testing::getd(
                "'----':" + testing::propertyOf("pnam", testing::trackSpecifier(103))))),
            "Pending Name");
  EXPECT_EQ(testing::readWhole(library).find("Pending Name"), std::string::npos);
  server->reset();
  EXPECT_NE(testing::readWhole(library).find("Pending Name"), std::string::npos);
  EXPECT_EQ(manager.application(kPlayerSignature), nullptr);
  client.request(testing::getd("'----':" + testing::propertyOf("pVol", "null()")), &status);
  EXPECT_EQ(status, procNotFound);
}

}  // namespace
}  // namespace rvitunes::player
