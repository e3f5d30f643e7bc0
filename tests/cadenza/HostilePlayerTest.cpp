// The framework's player operations against a player that misbehaves on the bus. The reference
// player runs in a private event manager behind a stand-in on the real socket under 'hook'
// ("iTunes"), which forwards honestly until told to lie: broken frames, lying descriptors,
// replies of the wrong type or without a result, replies to other requests, silence, hang-ups.
// Each operation then answers what its contract gives for a failure, within its timeout; once
// the player behaves again every operation answers as before, and nothing is left open.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdio>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "CadenzaTestSupport.h"
#include "RecordingPlayer.h"
#include "ae/HostilePeer.h"
#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/CZPlaylistCache.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/image/Image.h"

namespace rvitunes {
namespace {

using namespace std::chrono_literals;
using namespace cadenza_testing;
using ae::hostile::Action;
using ae::hostile::Request;
namespace hostile = ae::hostile;

constexpr auto kHostileTimeout = 150ms;
constexpr auto kHonestTimeout = 20s;

// Sets the process-wide default timeout while it lives.
class DefaultTimeout {
 public:
  explicit DefaultTimeout(std::chrono::milliseconds timeout)
      : previous_(ae::EventManager::defaultTimeout()) {
    ae::EventManager::setDefaultTimeout(timeout);
  }
  ~DefaultTimeout() { ae::EventManager::setDefaultTimeout(previous_); }
  DefaultTimeout(const DefaultTimeout&) = delete;
  DefaultTimeout& operator=(const DefaultTimeout&) = delete;

 private:
  std::chrono::milliseconds previous_;
};

// The reference player on the tree library, in an event manager of its own, reached only
// through a stand-in registered on this program's bus directory.
class PlayerBehindPeer {
 public:
  PlayerBehindPeer() {
    player::PlayerServerOptions options;
    options.eventManager = &manager_;
    options.writeBack = false;
    options.tickInterval = std::chrono::milliseconds(0);
    auto server = player::PlayerServer::startInProcess(treeLibraryPath(), std::move(options));
    EXPECT_TRUE(server.ok()) << server.status().toString();
    if (server.ok()) server_ = std::move(*server);
    auto bus = ae::EventManager::shared().busDirectory();
    EXPECT_TRUE(bus.ok()) << bus.status().toString();
    if (bus.ok()) {
      peer_ = std::make_unique<hostile::Peer>(*bus, fourCharCode("hook"), "iTunes",
                                              [this](const Request& r) { return forward(r); });
    }
  }

  hostile::Peer& peer() { return *peer_; }

  // The player's own answer to `request`.
  Action forward(const Request& request) {
    if (!request.event) return hostile::silence();
    if (request.header.kind != ae::BusFrameKind::request) {
      (void)manager_.send(*request.event, nullptr, ae::kAENoReply, ae::kAEDefaultTimeout);
      return hostile::silence();
    }
    ae::Descriptor answer;
    if (manager_.send(*request.event, &answer, ae::kAEWaitReply, ae::kAEDefaultTimeout) != noErr) {
      return hostile::silence();
    }
    return hostile::reply(request, answer);
  }

  // The next `times` requests (all of them when not given) get `act`, but for the version read,
  // which is always answered honestly: every operation asks the version before it decides what
  // to send, and the controller keeps it once read.
  void sabotage(std::function<Action(const Request&)> act, size_t times = SIZE_MAX) {
    auto left = std::make_shared<std::atomic<size_t>>(times);
    peer_->misbehave([this, act = std::move(act), left](const Request& r) {
      if (r.event && isPropertyRead(*r.event, "vers")) return forward(r);
      size_t now = left->load();
      while (now != 0 && !left->compare_exchange_weak(now, now - 1)) {
      }
      return now == 0 ? forward(r) : act(r);
    });
  }

 private:
  ae::EventManager manager_;
  std::unique_ptr<player::PlayerServer> server_;
  std::unique_ptr<hostile::Peer> peer_;  // first to go: it calls into the player
};

// A reply to `request` whose '----' is `value`.
Action answerWith(const Request& request, ae::Descriptor value) {
  ae::Descriptor reply = hostile::replyEventFor(request);
  (void)reply.putParamDesc(ae::keyDirectObject, std::move(value));
  return hostile::reply(request, reply);
}

// A reply to `request` holding exactly the given raw parameters.
Action answerRaw(const Request& request, std::vector<std::pair<OSType, std::string>> params) {
  return hostile::replyPayload(request, hostile::rawReply(1, params));
}

// A reply cut after `keep` bytes of its frame.
Action cutShort(const Request& request, size_t keep, bool thenHangUp) {
  Action action = answerWith(request, ae::Descriptor::makeSInt32(7));
  action.bytes.resize(keep);
  action.hangUp = thenHangUp;
  action.breaksStream = true;
  return action;
}

Action announcing(const Request& request, uint32_t length) {
  Action action;
  action.bytes = hostile::frame(ae::BusFrameKind::reply, request.header.returnID, "", length);
  action.breaksStream = true;
  return action;
}

Action toAnotherRequest(const Request& request, bool thenHangUp) {
  Action action = answerWith(request, ae::Descriptor::makeSInt32(7));
  action.bytes = hostile::frame(ae::BusFrameKind::reply, request.header.returnID + 5000,
                                action.bytes.substr(ae::kBusFrameHeaderSize));
  action.hangUp = thenHangUp;
  return action;
}

// A list of the numbers `values`.
ae::Descriptor listOf(std::initializer_list<int32_t> values) {
  ae::Descriptor list = ae::Descriptor::makeList();
  for (const int32_t value : values)
    (void)list.putDesc(0, ae::Descriptor::makeSInt32(value));
  return list;
}

std::string stateText(OSType state) {
  if (state == 0xFFFFFFFFu) return "0xFFFFFFFF";
  return fourCharDisplay(state);
}

// ---- The operations
// ------------------------------------------------------------------------------

// What the operations work on, fetched from the honest player.
struct Subjects {
  std::shared_ptr<Cadenza> controller;
  std::shared_ptr<CZPlaylist> library;
  std::shared_ptr<CZPlaylist> classics;  // a playlist inside the folder Rock
  std::shared_ptr<CZTrack> track;        // Anthem, with one picture
  int32_t databaseId = 0;
};

struct Operation {
  const char* name;
  std::function<std::string(Subjects&)> observe;
  // What the contract answers when no reply arrives, and when a reply arrives without a value
  // the operation can use (no '----', or an error number).
  const char* undelivered;
  const char* unusable;
};

std::string trackText(const std::shared_ptr<CZTrack>& track) {
  return track ? "track " + track->name().value_or("(no name)") : "none";
}

const std::vector<Operation>& operations() {
  static const std::vector<Operation> all = {
      {"player state", [](Subjects& s) { return stateText(s.controller->playerState()); },
       "0xFFFFFFFF", "'kPSS'"},
      {"sound volume", [](Subjects& s) { return std::to_string(s.controller->soundVolume()); },
       "-1", "-1"},
      {"set sound volume",
       [](Subjects& s) {
         s.controller->setSoundVolume(35);
         return std::string("done");
       },
       "done", "done"},
      {"current track", [](Subjects& s) { return trackText(s.controller->currentTrack()); }, "none",
       "none"},
      {"playlist count", [](Subjects& s) { return std::to_string(s.controller->playlistCount()); },
       "-1", "-1"},
      {"playlists", [](Subjects& s) { return std::to_string(s.controller->playlists().size()); },
       "0", "0"},
      {"track name", [](Subjects& s) { return s.track->name().value_or("(no name)"); }, "(no name)",
       "(no name)"},
      {"track rating", [](Subjects& s) { return std::to_string(s.track->rating()); }, "-1", "-1"},
      {"track artwork",
       [](Subjects& s) { return std::to_string(s.track->artwork().size()) + " pictures"; },
       "0 pictures", "0 pictures"},
      {"playlist track count", [](Subjects& s) { return std::to_string(s.library->trackCount()); },
       "-1", "-1"},
      {"playlist tracks", [](Subjects& s) { return std::to_string(s.library->tracks().size()); },
       "0", "0"},
      {"playlist name", [](Subjects& s) { return s.library->name().value_or("(no name)"); },
       "(no name)", "(no name)"},
      {"track by database ID",
       [](Subjects& s) { return trackText(s.library->trackWithDatabaseId(s.databaseId)); }, "none",
       "none"},
      {"parent playlist",
       [](Subjects& s) {
         const auto parent = s.classics->parentPlaylist();
         return parent ? "playlist " + parent->name().value_or("(no name)") : "none";
       },
       "none", "none"},
      // Only the four synthetic playlists of the top remain.
      {"playlist cache",
       [](Subjects&) {
         CZPlaylistCache cache;
         cache.reload();
         return std::to_string(cache.persistentIds().size()) + " playlists";
       },
       "4 playlists", "4 playlists"},
  };
  return all;
}

const Operation& operation(std::string_view name) {
  for (const Operation& op : operations()) {
    if (op.name == name) return op;
  }
  ADD_FAILURE() << "no operation " << name;
  return operations().front();
}

// ---- The fixture
// -----------------------------------------------------------------------------------

class HostilePlayerFixture {
 protected:
  // Fetches the subjects, gives the track a picture, and notes every operation's honest answer
  // and the descriptors open.
  void prepare() {
    // Nothing of this process answers to 'hook': every event below goes through the socket.
    ASSERT_EQ(ae::EventManager::shared().application(fourCharCode("hook")), nullptr);
    Subjects& s = subjects_;
    s.controller = Cadenza::sharedInstance();
    ASSERT_EQ(s.controller->versionString(), "7.7.1");
    s.controller->play();
    s.library = s.controller->libraryPlaylist();
    ASSERT_NE(s.library, nullptr);
    for (const auto& track : s.library->tracks()) {
      if (track->name() == "Anthem") s.track = track;
    }
    ASSERT_NE(s.track, nullptr);
    s.databaseId = s.track->databaseId();
    s.classics = s.controller->playlistWithPersistentId(static_cast<uint64_t>(kClassicsPid));
    ASSERT_NE(s.classics, nullptr);
    image::Image picture(24, 24);
    for (uint32_t y = 0; y < 24; ++y) {
      for (uint32_t x = 0; x < 24; ++x)
        picture.setPixel(x, y,
                         {static_cast<uint8_t>(x * 10), static_cast<uint8_t>(y * 10), 90, 255});
    }
    ASSERT_TRUE(s.track->setArtworkAtIndex(&picture, 0));
    s.controller->setSoundVolume(35);
    s.track->setRating(60);
    for (const Operation& op : operations())
      honest_.push_back(op.observe(s));
    // The honest answers are worth comparing with: none of them is a failure's.
    for (size_t i = 0; i < operations().size(); ++i) {
      // A setter tells nothing either way.
      if (std::string_view(operations()[i].undelivered) == "done") continue;
      EXPECT_NE(honest_[i], operations()[i].undelivered) << operations()[i].name;
    }
    EXPECT_EQ(honest_[0], "'kPSP'");
    EXPECT_EQ(honest_[3], "track Anthem");
    EXPECT_EQ(honest_[13], "playlist Rock");
    descriptors_ = hostile::openDescriptorCount();
  }

  // The player behaves again: every operation answers as it did before, and the descriptors
  // open are those of before (one connection to the player, and the peer's end of it).
  void expectRecovered() {
    player_.peer().behave();
    std::vector<std::string> now;
    for (const Operation& op : operations())
      now.push_back(op.observe(subjects_));
    EXPECT_EQ(now, honest_);
    const auto until = std::chrono::steady_clock::now() + 2s;
    while (hostile::openDescriptorCount() != descriptors_ &&
           std::chrono::steady_clock::now() < until) {
      std::this_thread::sleep_for(5ms);
    }
    EXPECT_EQ(hostile::openDescriptorCount(), descriptors_);
    EXPECT_EQ(player_.peer().openConnectionCount(), 1u);
  }

  // Runs `op` against the lying player and checks its answer and that it kept to the timeout:
  // no operation sends more than five requests that wait.
  void expectAnswer(const Operation& op, const std::string& expected, const char* row) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(op.observe(subjects_), expected) << op.name << ", " << row;
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5 * kHostileTimeout + 3s)
        << op.name << ", " << row;
  }

  CleanControllerState clean_;
  DefaultTimeout honestTimeout_{kHonestTimeout};
  PlayerBehindPeer player_;
  Subjects subjects_;
  std::vector<std::string> honest_;
  size_t descriptors_ = 0;
};

// ---- Families ----------------------------------------------------------------------------------

struct HostileRow {
  const char* name;
  std::function<Action(const Request&)> act;
};

// Nothing usable arrives: the bytes lie, break off or never come.
const HostileRow kUndelivered[] = {
    {"FrameCutShortThenHangUp", [](const Request& r) { return cutShort(r, 30, true); }},
    {"FrameCutShortThenSilence", [](const Request& r) { return cutShort(r, 30, false); }},
    {"FrameLength2Pow31", [](const Request& r) { return announcing(r, 0x80000000u); }},
    {"FrameLength2Pow32Minus1", [](const Request& r) { return announcing(r, 0xFFFFFFFFu); }},
    {"FrameWithBadMagic",
     [](const Request& r) {
       Action action = answerWith(r, ae::Descriptor::makeSInt32(7));
       action.bytes[1] = '?';
       action.breaksStream = true;
       return action;
     }},
    {"DescriptorOverrunningItsEvent",
     [](const Request& r) {
       return answerRaw(r,
                        {{ae::keyDirectObject, hostile::rawDesc(ae::typeUnicodeText, "ab", 500)}});
     }},
    {"DescriptorLength2Pow31",
     [](const Request& r) {
       return answerRaw(
           r, {{ae::keyDirectObject, hostile::rawDesc(ae::typeUnicodeText, "ab", 0x80000000u)}});
     }},
    {"DescriptorLength2Pow32Minus1",
     [](const Request& r) {
       return answerRaw(
           r, {{ae::keyDirectObject, hostile::rawDesc(ae::typeUnicodeText, "ab", 0xFFFFFFFFu)}});
     }},
    {"ListsNestedTenThousandDeep",
     [](const Request& r) {
       return answerRaw(r, {{ae::keyDirectObject, hostile::nestedLists(10'000)}});
     }},
    {"ReplyThatIsNoEvent",
     [](const Request& r) {
       return hostile::replyPayload(r, hostile::flattened(ae::Descriptor::makeSInt32(7)));
     }},
    {"ReplyToAnotherRequestThenSilence",
     [](const Request& r) { return toAnotherRequest(r, false); }},
    {"ReplyToAnotherRequestThenHangUp", [](const Request& r) { return toAnotherRequest(r, true); }},
    {"NeverAnswering", [](const Request&) { return hostile::silence(); }},
    {"HangUpBeforeAnswering", [](const Request&) { return hostile::hangUp(); }},
};

// A reply arrives, but holds nothing the operation can use.
const HostileRow kUnusable[] = {
    {"EmptyReply", [](const Request& r) { return answerRaw(r, {}); }},
    {"RecordWithoutTheDirectParameter",
     [](const Request& r) {
       return answerRaw(r, {{fourCharCode("xtra"), hostile::rawLong(7)}});
     }},
    {"ErrorNumberWithoutResult",
     [](const Request& r) {
       return answerRaw(r, {{ae::keyErrorNumber, hostile::rawLong(-1728)}});
     }},
    {"ErrorNumberAsText",
     [](const Request& r) {
       return answerRaw(r, {{ae::keyErrorNumber, hostile::rawDesc(ae::typeUnicodeText, "boom")}});
     }},
    {"ErrorNumberAsAList",
     [](const Request& r) {
       return answerRaw(r, {{ae::keyErrorNumber,
                             hostile::rawList({hostile::rawLong(-1), hostile::rawLong(-2)})}});
     }},
    {"ErrorNumberAndTextWithoutResult",
     [](const Request& r) {
       return answerRaw(r, {{ae::keyErrorNumber, hostile::rawLong(-10000)},
                            {ae::keyErrorString, hostile::rawDesc(ae::typeChar, "refused")}});
     }},
};

class HostileDeliveryTest : public HostilePlayerFixture,
                            public ::testing::TestWithParam<HostileRow> {};
class HostileReplyTest : public HostilePlayerFixture,
                         public ::testing::TestWithParam<HostileRow> {};

TEST_P(HostileDeliveryTest, EveryOperationAnswersItsFailureAndTheFrameworkRecovers) {
  ASSERT_NO_FATAL_FAILURE(prepare());
  {
    DefaultTimeout hostileTimeout(kHostileTimeout);
    player_.sabotage(GetParam().act);
    for (const Operation& op : operations())
      expectAnswer(op, op.undelivered, GetParam().name);
  }
  expectRecovered();
}

TEST_P(HostileReplyTest, EveryOperationAnswersItsFailureAndTheFrameworkRecovers) {
  ASSERT_NO_FATAL_FAILURE(prepare());
  {
    DefaultTimeout hostileTimeout(kHostileTimeout);
    player_.sabotage(GetParam().act);
    for (const Operation& op : operations())
      expectAnswer(op, op.unusable, GetParam().name);
  }
  expectRecovered();
}

void PrintTo(const HostileRow& row, std::ostream* out) {
  *out << row.name;
}

std::string rowName(const ::testing::TestParamInfo<HostileRow>& info) {
  return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Rows, HostileDeliveryTest, ::testing::ValuesIn(kUndelivered), rowName);
INSTANTIATE_TEST_SUITE_P(Rows, HostileReplyTest, ::testing::ValuesIn(kUnusable), rowName);

// ---- Values of the wrong type
// ---------------------------------------------------------------------

using Script = std::function<Action(const Request&)>;

struct WrongTypeRow {
  const char* name;
  // A fresh script for each operation.
  std::function<Script()> script;
  // How many requests of each operation it gets (the first ones; the rest are answered
  // honestly): all of them, or only the one that fetches an object.
  size_t times;
  std::vector<std::pair<const char*, const char*>> expected;  // operation, answer
};

// Every request gets `value` as its '----'.
std::function<Script()> answering(std::function<ae::Descriptor()> value) {
  return [value] { return [value](const Request& r) { return answerWith(r, value()); }; };
}

// The first request (a count) gets INT32_MAX, every later one `then`.
std::function<Script()> countThen(Script then) {
  return [then] {
    auto counted = std::make_shared<std::atomic<bool>>(false);
    return Script([counted, then](const Request& r) {
      if (!counted->exchange(true)) return answerWith(r, ae::Descriptor::makeSInt32(INT32_MAX));
      return then(r);
    });
  };
}

const WrongTypeRow kWrongTypes[] = {
    {"ListWhereTextIsExpected",
     answering([] {
       return listOf({1, 2});
     }),
     SIZE_MAX,
     {{"track name", "(no name)"}, {"playlist name", "(no name)"}}},
    {"TextWhereANumberIsExpected",
     answering([] { return ae::Descriptor::makeUnicodeText("many"); }),
     SIZE_MAX,
     {{"sound volume", "-1"},
      {"track rating", "-1"},
      {"playlist count", "-1"},
      {"playlist track count", "-1"},
      {"playlist tracks", "0"},
      {"playlists", "0"},
      {"track artwork", "0 pictures"},
      {"playlist cache", "4 playlists"}}},
    {"TextWhereAnEnumerationIsExpected",
     answering([] { return ae::Descriptor::makeUnicodeText("playing"); }),
     SIZE_MAX,
     {{"player state", "'kPSS'"}}},
    // An object of the wrong kind is taken as it comes, as the player's answer is; the player
    // itself then refuses every question about it.
    {"TextWhereAnObjectIsExpected",
     answering([] { return ae::Descriptor::makeUnicodeText("x"); }),
     1,
     {{"current track", "track (no name)"},
      {"track by database ID", "track (no name)"},
      {"parent playlist", "playlist (no name)"}}},
    {"NumberWhereAnObjectIsExpected",
     answering([] { return ae::Descriptor::makeSInt32(3); }),
     1,
     {{"current track", "track (no name)"}, {"track by database ID", "track (no name)"}}},
    // A count no player has, then elements that cannot be had: the walks stop at the first,
    // having taken no memory on the count's word.
    {"CountOfIntMaxThenNoResult",
     countThen([](const Request& r) {
       return answerRaw(r, {{ae::keyErrorNumber, hostile::rawLong(-1728)}});
     }),
     SIZE_MAX,
     {{"playlist tracks", "0"}, {"track artwork", "0 pictures"}}},
    {"CountOfIntMaxThenHangUp",
     countThen([](const Request&) { return hostile::hangUp(); }),
     SIZE_MAX,
     {{"playlists", "0"}, {"playlist tracks", "0"}, {"track artwork", "0 pictures"}}},
};

void PrintTo(const WrongTypeRow& row, std::ostream* out) {
  *out << row.name;
}

class HostileTypeTest : public HostilePlayerFixture,
                        public ::testing::TestWithParam<WrongTypeRow> {};

TEST_P(HostileTypeTest, OperationsAnswerTheirFailureForValuesOfTheWrongType) {
  const WrongTypeRow& row = GetParam();
  ASSERT_NO_FATAL_FAILURE(prepare());
  {
    DefaultTimeout hostileTimeout(kHostileTimeout);
    for (const auto& [name, expected] : row.expected) {
      player_.sabotage(row.script(), row.times);
      expectAnswer(operation(name), expected, row.name);
    }
  }
  expectRecovered();
}

INSTANTIATE_TEST_SUITE_P(Rows, HostileTypeTest, ::testing::ValuesIn(kWrongTypes),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- The parent query's diagnostics
// ------------------------------------------------------------------

class HostileParentTest : public HostilePlayerFixture, public ::testing::Test {};

// Only "no such object" is an expected answer for the parent of a playlist; any other error,
// however it is written, is logged with the printed reply.
TEST_F(HostileParentTest, OnlyNoSuchObjectPassesSilently) {
  ASSERT_NO_FATAL_FAILURE(prepare());
  const struct {
    const char* what;
    std::string errn;
    bool logged;
  } cases[] = {
      {"no such object", hostile::rawLong(-1728), false},
      {"another error", hostile::rawLong(-1700), true},
      {"an error number as text", hostile::rawDesc(ae::typeUnicodeText, "boom"), true},
      {"an error number as a list", hostile::rawList({hostile::rawLong(-1728)}), true},
  };
  for (const auto& c : cases) {
    LogCapture log;
    {
      DefaultTimeout hostileTimeout(kHostileTimeout);
      player_.sabotage(
          [&c](const Request& r) {
            return answerRaw(r, {{ae::keyErrorNumber, c.errn}});
          },
          1);
      EXPECT_EQ(subjects_.classics->parentPlaylist(), nullptr) << c.what;
    }
    EXPECT_EQ(log.contains("ERROR in -[CZPlaylist parentplaylist] \"Classics\""), c.logged)
        << c.what;
  }
  expectRecovered();
}

}  // namespace
}  // namespace rvitunes
