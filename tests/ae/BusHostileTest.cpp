// The event manager against applications that misbehave on the bus. A stand-in player under
// 'hook' on a private bus directory lies about its frames and descriptors, answers another
// request, answers nothing or hangs up; each send answers its delivery error in time, refuses
// lengths before reserving memory for them, and the next send to an honest player works with
// nothing left open. Also the other way round: hostile senders against a published application.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <new>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "ae/HostilePeer.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/ae/Printer.h"

// ---- Allocation probe --------------------------------------------------------------------------
// The largest single allocation while a probe runs, so that a test can tell a length refused
// before allocating from one refused after. Under AddressSanitizer its allocator reports every
// allocation to a hook; elsewhere the plain forms of operator new are replaced (the array and
// aligned forms keep the library's, which are built on these).

namespace {

std::atomic<bool> probing{false};
std::atomic<size_t> largestProbed{0};

void noteAllocation(size_t size) {
  if (!probing.load(std::memory_order_relaxed)) return;
  size_t seen = largestProbed.load(std::memory_order_relaxed);
  while (size > seen && !largestProbed.compare_exchange_weak(seen, size)) {
  }
}

}  // namespace

#if defined(__SANITIZE_ADDRESS__)

extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*,
                                                                          size_t),
                                                         void (*onFree)(const volatile void*));

namespace {

// Installed while the program starts, before any thread runs.
const int kAllocationHooks = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, size_t size) { noteAllocation(size); }, [](const volatile void*) {});

}  // namespace

#else

namespace {

void* allocate(std::size_t size) {
  noteAllocation(size);
  for (;;) {
    if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
    const std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) return nullptr;
    handler();
  }
}

}  // namespace

// These deallocate what the replacements above allocated, with the matching free.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
  if (void* p = allocate(size)) return p;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return allocate(size);
  } catch (...) {
    return nullptr;
  }
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
  std::free(p);
}
#pragma GCC diagnostic pop

#endif

namespace rvitunes::ae {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using hostile::Action;
using hostile::openBus;
using hostile::Request;

constexpr OSType kPlayer = fourCharCode("hook");
constexpr OSType kDirectObject = keyDirectObject;
// 150 ms, for the cases that must end in a timeout.
constexpr long kShortTicks = 9;
// 30 s, for the cases that must end long before it.
constexpr long kLongTicks = 1800;

// Records the largest allocation made while it lives.
class AllocationProbe {
 public:
  AllocationProbe() {
    largestProbed.store(0);
    probing.store(true);
  }
  ~AllocationProbe() { probing.store(false); }
  AllocationProbe(const AllocationProbe&) = delete;
  AllocationProbe& operator=(const AllocationProbe&) = delete;
  size_t largest() const { return largestProbed.load(); }
};

// Keeps the compiler from dropping an allocation nobody reads.
void* volatile lastProbeAllocation = nullptr;

// The probe itself sees what is allocated, or every check below would pass for nothing.
TEST(AllocationProbeTest, SeesALargeAllocation) {
  AllocationProbe probe;
  lastProbeAllocation = ::operator new (size_t{3} << 20);
  ::operator delete(lastProbeAllocation);
  EXPECT_GE(probe.largest(), size_t{3} << 20);
}

// What the honest player answers to any request wanting a reply: '----' "fine".
Action answerFine(const Request& request) {
  if (request.header.kind != BusFrameKind::request) return hostile::silence();
  Descriptor reply = hostile::replyEventFor(request);
  (void)reply.putParamDesc(kDirectObject, Descriptor::makeUnicodeText("fine"));
  return hostile::reply(request, reply);
}

// The reply's '----' as UTF-8 text ("" when it has none).
std::string resultText(const Descriptor& reply) {
  Descriptor text;
  if (reply.getParamDesc(kDirectObject, typeUTF8Text, &text) != noErr) return "";
  return std::string(reinterpret_cast<const char*>(text.data().data()), text.dataSize());
}

Descriptor volumeRequest() {
  Descriptor event = Descriptor::makeAppleEvent(kAECoreSuite, kAEGetData,
                                                Descriptor::makeCode(typeApplSignature, kPlayer),
                                                kAutoGenerateReturnID, kAnyTransactionID);
  (void)event.putParamDesc(kDirectObject, Descriptor::makeType(fourCharCode("pVol")));
  return event;
}

// Waits up to two seconds for `done`.
bool eventually(const std::function<bool()>& done) {
  const auto until = Clock::now() + 2s;
  while (!done()) {
    if (Clock::now() > until) return false;
    std::this_thread::sleep_for(5ms);
  }
  return true;
}

// A flattened reply whose parameter count field says `count`.
std::string replyCountingParams(uint32_t count) {
  std::string payload = hostile::rawReply(1, {});
  payload.replace(payload.size() - 4, 4, hostile::be32(count));
  return payload;
}

// ---- A player that lies
// --------------------------------------------------------------------------

struct HostileCase {
  const char* name;
  std::function<Action(const Request&)> act;
  // What the send answers.
  OSStatus expected;
  // Lengths announced here must be refused before anything is reserved for them.
  bool checkAllocations = false;
};

// A reply that the peer stops writing after `keep` bytes.
Action cutShort(const Request& request, size_t keep, bool thenHangUp) {
  std::string bytes = hostile::frame(BusFrameKind::reply, request.header.returnID,
                                     hostile::rawReply(1, {{kDirectObject, hostile::rawLong(7)}}));
  bytes.resize(keep);
  Action action = thenHangUp ? hostile::hangUp(bytes) : Action{bytes, false, true};
  action.breaksStream = true;
  return action;
}

// A frame header announcing `length` payload bytes, and a few of them.
Action announcing(const Request& request, uint32_t length) {
  Action action{hostile::frame(BusFrameKind::reply, request.header.returnID, "dle2", length), false,
                true};
  return action;
}

Action payload(const Request& request, const std::string& bytes) {
  return hostile::replyPayload(request, bytes);
}

Action otherReturnID(const Request& request, int32_t returnID, bool thenHangUp) {
  Descriptor reply = hostile::replyEventFor(request);
  (void)reply.putParamDesc(kDirectObject, Descriptor::makeUnicodeText("not yours"));
  Action action = hostile::reply(request, reply);
  action.bytes = hostile::frame(BusFrameKind::reply, returnID, hostile::flattened(reply));
  action.hangUp = thenHangUp;
  return action;
}

const HostileCase kHostileCases[] = {
    // Frames that lie or break off: the connection is closed, the send answers -609.
    {"FrameCutInItsHeaderThenHangUp", [](const Request& r) { return cutShort(r, 10, true); },
     connectionInvalid},
    {"FrameCutInItsPayloadThenHangUp", [](const Request& r) { return cutShort(r, 40, true); },
     connectionInvalid},
    {"FrameLength2Pow31", [](const Request& r) { return announcing(r, 0x80000000u); },
     connectionInvalid, true},
    {"FrameLength2Pow32Minus1", [](const Request& r) { return announcing(r, 0xFFFFFFFFu); },
     connectionInvalid, true},
    {"FrameLengthOneOverTheLimit",
     [](const Request& r) { return announcing(r, kBusMaxPayloadSize + 1); }, connectionInvalid,
     true},
    {"FrameWithBadMagic",
     [](const Request& r) {
       Action action = hostile::replyPayload(r, hostile::rawReply(1, {}));
       action.bytes[0] = 'X';
       action.breaksStream = true;
       return action;
     },
     connectionInvalid},
    {"RequestFrameInsteadOfAReply",
     [](const Request& r) {
       Action action{
           hostile::frame(BusFrameKind::request, r.header.returnID, hostile::rawReply(1, {})),
           false, true};
       return action;
     },
     connectionInvalid},
    {"FrameOfUnknownKind",
     [](const Request& r) {
       Action action{hostile::frame(static_cast<BusFrameKind>(4), r.header.returnID, ""), false,
                     true};
       return action;
     },
     connectionInvalid},
    // Frames that stop and wait: nothing more comes, the send times out.
    {"FrameCutInItsPayloadThenSilence", [](const Request& r) { return cutShort(r, 40, false); },
     errAETimeout},
    {"FrameLengthAtTheLimitThenSilence",
     [](const Request& r) { return announcing(r, kBusMaxPayloadSize); }, errAETimeout, true},
    // Well-framed payloads that do not read as a reply: -1702, the connection stays usable.
    {"PayloadThatIsNoDescriptor",
     [](const Request& r) { return payload(r, "not a flattened descriptor"); }, errAECorruptData},
    {"DescriptorOverrunningItsEvent",
     [](const Request& r) {
       return payload(r, hostile::rawReply(
                             1, {{kDirectObject, hostile::rawDesc(typeUnicodeText, "ab", 1000)}}));
     },
     errAECorruptData},
    {"DescriptorLength2Pow31",
     [](const Request& r) {
       return payload(
           r, hostile::rawReply(
                  1, {{kDirectObject, hostile::rawDesc(typeUnicodeText, "ab", 0x80000000u)}}));
     },
     errAECorruptData, true},
    {"DescriptorLength2Pow32Minus1",
     [](const Request& r) {
       return payload(
           r, hostile::rawReply(
                  1, {{kDirectObject, hostile::rawDesc(typeUnicodeText, "ab", 0xFFFFFFFFu)}}));
     },
     errAECorruptData, true},
    {"EventLength2Pow32Minus1",
     [](const Request& r) { return payload(r, hostile::rawReply(1, {}, 0xFFFFFFFFu)); },
     errAECorruptData, true},
    {"ParameterCount2Pow31",
     [](const Request& r) { return payload(r, replyCountingParams(0x80000000u)); },
     errAECorruptData, true},
    {"ListCount2Pow32Minus1",
     [](const Request& r) {
       std::string list = hostile::rawList({});
       list.replace(8, 4, hostile::be32(0xFFFFFFFFu));
       return payload(r, hostile::rawReply(1, {{kDirectObject, list}}));
     },
     errAECorruptData, true},
    {"ListsNestedTenThousandDeep",
     [](const Request& r) {
       return payload(r, hostile::rawReply(1, {{kDirectObject, hostile::nestedLists(10'000)}}));
     },
     errAECorruptData},
    {"ReplyThatIsNoEvent",
     [](const Request& r) { return payload(r, hostile::flattened(Descriptor::makeList())); },
     errAECorruptData},
    // Replies to some other request: dropped, so this one waits for its own.
    {"ReplyToAnotherRequestThenSilence",
     [](const Request& r) { return otherReturnID(r, r.header.returnID + 1000, false); },
     errAETimeout},
    {"ReplyWithReturnIDZeroThenSilence",
     [](const Request& r) { return otherReturnID(r, 0, false); }, errAETimeout},
    {"ReplyToAnotherRequestThenHangUp",
     [](const Request& r) { return otherReturnID(r, r.header.returnID - 1, true); },
     connectionInvalid},
    // Nothing at all.
    {"NeverAnswering", [](const Request&) { return hostile::silence(); }, errAETimeout},
    {"HangUpBeforeAnswering", [](const Request&) { return hostile::hangUp(); }, connectionInvalid},
};

void PrintTo(const HostileCase& c, std::ostream* out) {
  *out << c.name;
}

class HostilePlayerBusTest : public ::testing::TestWithParam<HostileCase> {
 protected:
  hostile::ScratchBus scratch_;
  BusDirectory bus_ = openBus(scratch_.path());
  EventManager manager_{EventManager::Options{scratch_.path()}};
  hostile::Peer peer_{bus_, kPlayer, "iTunes", answerFine};

  // Asks for the volume with `ticks` as timeout; *reply receives the answer.
  OSStatus ask(long ticks, Descriptor* reply = nullptr) {
    Descriptor ignored;
    return manager_.send(volumeRequest(), reply != nullptr ? reply : &ignored,
                         kAEWaitReply | kAENeverInteract, ticks);
  }

  // The honest player is reached and answers "fine".
  void expectHonestAnswer() {
    Descriptor reply;
    ASSERT_EQ(ask(kLongTicks, &reply), noErr);
    EXPECT_EQ(resultText(reply), "fine") << printDesc(reply);
  }
};

TEST_P(HostilePlayerBusTest, SendAnswersItsErrorInTimeAndTheNextSendWorks) {
  const HostileCase& c = GetParam();
  expectHonestAnswer();
  const size_t descriptors = hostile::openDescriptorCount();

  peer_.misbehave(c.act);
  const long ticks = c.expected == errAETimeout ? kShortTicks : kLongTicks;
  Descriptor reply;
  const auto start = Clock::now();
  OSStatus sent;
  size_t largest = 0;
  {
    AllocationProbe probe;
    sent = ask(ticks, &reply);
    largest = probe.largest();
  }
  const auto took = Clock::now() - start;
  EXPECT_EQ(sent, c.expected) << osStatusName(sent);
  EXPECT_TRUE(reply.isNull()) << printDesc(reply);
  if (c.expected == errAETimeout) {
    EXPECT_GE(took, 140ms);
    EXPECT_LT(took, 3s);
  } else {
    // Answered as soon as the peer acted, not when the timeout ran out.
    EXPECT_LT(took, 10s);
  }
  if (c.checkAllocations) {
    EXPECT_LT(largest, size_t{1} << 20) << "bytes in one allocation";
  }

  // The same player, honest again (connections it broke are gone, as after a restart).
  peer_.behave();
  expectHonestAnswer();
  expectHonestAnswer();
  // The sender keeps one connection and nothing else: the peer sees every other one closed.
  EXPECT_TRUE(eventually([&] { return peer_.openConnectionCount() == 1; }))
      << peer_.openConnectionCount() << " connections open at the peer";
  EXPECT_TRUE(eventually([&] { return hostile::openDescriptorCount() == descriptors; }))
      << hostile::openDescriptorCount() << " descriptors open, " << descriptors << " before";
}

INSTANTIATE_TEST_SUITE_P(Cases, HostilePlayerBusTest, ::testing::ValuesIn(kHostileCases),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- Replies that are well formed but odd ------------------------------------------------------

TEST(OddReplyTest, StrayDuplicateAndQueuedRepliesDoNotConfuseTheSender) {
  hostile::ScratchBus scratch;
  const BusDirectory bus = openBus(scratch.path());
  EventManager manager(EventManager::Options{scratch.path()});
  hostile::Peer peer(bus, kPlayer, "iTunes", answerFine);
  const auto ask = [&](Descriptor* reply) {
    return manager.send(volumeRequest(), reply, kAEWaitReply, kLongTicks);
  };
  Descriptor reply;
  ASSERT_EQ(ask(&reply), noErr);

  // Every answer twice, and a reply nobody asked for in front: the first of the right ID wins.
  int stray = 0;
  peer.misbehave([&](const Request& r) {
    Action answer = answerFine(r);
    Descriptor odd = hostile::replyEventFor(r);
    (void)odd.putParamDesc(kDirectObject, Descriptor::makeUnicodeText("stray"));
    answer.bytes = hostile::frame(BusFrameKind::reply, 77'000 + ++stray, hostile::flattened(odd)) +
                   answer.bytes + answer.bytes;
    return answer;
  });
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(ask(&reply), noErr);
    EXPECT_EQ(resultText(reply), "fine") << printDesc(reply);
  }

  // Replies without a result are replies: the send succeeds, the caller reads 'errn'.
  peer.misbehave([](const Request& r) {
    return hostile::replyPayload(
        r, hostile::rawReply(1, {{keyErrorNumber, hostile::rawDesc(typeUnicodeText, "oops")}}));
  });
  ASSERT_EQ(ask(&reply), noErr);
  EXPECT_EQ(reply.findParam(kDirectObject), nullptr);
  int32_t number = 0;
  EXPECT_NE(reply.getParamPtr(keyErrorNumber, typeSInt32, nullptr, &number, sizeof number, nullptr),
            noErr);

  // A queued reply that cannot come still reaches the handler, with the delivery error.
  std::mutex queuedMutex;
  std::vector<int32_t> queued;
  manager.setQueuedReplyHandler([&](Descriptor answer) {
    int32_t error = 0;
    (void)answer.getParamPtr(keyErrorNumber, typeSInt32, nullptr, &error, sizeof error, nullptr);
    std::lock_guard lock(queuedMutex);
    queued.push_back(error);
  });
  peer.misbehave([](const Request&) { return hostile::hangUp(); });
  EXPECT_EQ(manager.send(volumeRequest(), nullptr, kAEQueueReply, kLongTicks), noErr);
  EXPECT_TRUE(eventually([&] {
    std::lock_guard lock(queuedMutex);
    return !queued.empty();
  }));
  {
    std::lock_guard lock(queuedMutex);
    EXPECT_EQ(queued, std::vector<int32_t>{connectionInvalid});
  }
  peer.behave();
  ASSERT_EQ(ask(&reply), noErr);
}

// ---- The nesting bound, at its edge -------------------------------------------------------------

// The deepest descriptor the wire takes has kMaxDescriptorDepth levels, the event itself being
// the outermost: a reply whose '----' holds 62 nested lists and a number inside is read, one
// level more is refused, over the socket as in memory.
TEST(OddReplyTest, NestingIsReadUpToTheBoundAndRefusedOneLevelOver) {
  const auto nestedReply = [](size_t lists) {
    std::string inner = hostile::rawLong(5);
    for (size_t i = 0; i < lists; ++i)
      inner = hostile::rawList({inner});
    return hostile::rawReply(1, {{kDirectObject, inner}});
  };
  const size_t atTheBound = kMaxDescriptorDepth - 2;
  const auto readDepth = [](const std::string& payload) -> Result<Descriptor> {
    return unflatten(std::span(reinterpret_cast<const uint8_t*>(payload.data()), payload.size()));
  };
  auto accepted = readDepth(nestedReply(atTheBound));
  ASSERT_TRUE(accepted.ok()) << accepted.status().toString();
  EXPECT_EQ(accepted->depth(), kMaxDescriptorDepth);
  auto refused = readDepth(nestedReply(atTheBound + 1));
  ASSERT_FALSE(refused.ok());
  EXPECT_EQ(refused.status().code(), memFullErr);

  hostile::ScratchBus scratch;
  const BusDirectory bus = openBus(scratch.path());
  EventManager manager(EventManager::Options{scratch.path()});
  hostile::Peer peer(bus, kPlayer, "iTunes", answerFine);
  for (const size_t lists : {atTheBound, atTheBound + 1}) {
    peer.misbehave([&](const Request& r) { return hostile::replyPayload(r, nestedReply(lists)); });
    Descriptor reply;
    const OSStatus sent = manager.send(volumeRequest(), &reply, kAEWaitReply, kLongTicks);
    EXPECT_EQ(sent, lists == atTheBound ? noErr : errAECorruptData) << lists;
    EXPECT_EQ(reply.isNull(), lists != atTheBound);
  }
}

// ---- Hostile senders against a published application -------------------------------------------

// A raw client connected to `path`.
FileDescriptor connectRaw(const std::string& path) {
  FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  EXPECT_EQ(::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  timeval wait{5, 0};
  ::setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
  return fd;
}

// The next frame on `fd`, or nullopt when the peer closed the connection (or nothing came in
// five seconds).
std::optional<BusFrameReader::Frame> readFrame(int fd, BusFrameReader& reader) {
  char buffer[4096];
  for (;;) {
    if (auto frame = reader.next()) return frame;
    const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
    if (n <= 0 || !reader.feed(std::string_view(buffer, static_cast<size_t>(n))).ok()) {
      return std::nullopt;
    }
  }
}

TEST(HostileSenderTest, UnreadableRequestsAreAnsweredWithAnErrorAndTheServerGoesOn) {
  hostile::ScratchBus scratch;
  EventManager manager(EventManager::Options{scratch.path()});
  auto app = manager.registerApplication(fourCharCode("echo"), "Echo");
  ASSERT_TRUE(app.ok());
  (*app)->installEventHandler(typeWildCard, typeWildCard, [](const Descriptor&, Descriptor& reply) {
    if (!reply.isNull()) (void)reply.putParamDesc(kDirectObject, Descriptor::makeSInt32(42));
    return noErr;
  });
  ASSERT_EQ(manager.publish(fourCharCode("echo")).code(), noErr);
  const std::string path = openBus(scratch.path()).socketPath(fourCharCode("echo"));

  Descriptor request = volumeRequest();
  const std::string good = hostile::flattened(request);
  const struct {
    const char* what;
    std::string payload;
    OSStatus expected;
  } cases[] = {
      {"lists nested ten thousand deep",
       hostile::rawReply(1, {{kDirectObject, hostile::nestedLists(10'000)}}), errAECorruptData},
      {"a descriptor overrunning its event",
       hostile::rawReply(1, {{kDirectObject, hostile::rawDesc(typeUnicodeText, "ab", 1000)}}),
       errAECorruptData},
      {"a descriptor length of 2^32-1",
       hostile::rawReply(1, {{kDirectObject, hostile::rawDesc(typeChar, "x", 0xFFFFFFFFu)}}),
       errAECorruptData},
      {"a parameter count of 2^31", replyCountingParams(0x80000000u), errAECorruptData},
      {"bytes that are no descriptor", "hello", errAECorruptData},
      {"a list instead of an event", hostile::flattened(Descriptor::makeList()),
       errAENotAppleEvent},
  };
  FileDescriptor peer = connectRaw(path);
  BusFrameReader reader;
  int32_t returnID = 0;
  for (const auto& c : cases) {
    AllocationProbe probe;
    returnID += 3;
    const std::string bytes =
        hostile::frame(BusFrameKind::requestNoReply, returnID - 2, c.payload) +
        hostile::frame(BusFrameKind::request, returnID - 1, c.payload) +
        hostile::frame(BusFrameKind::request, returnID, good);
    ASSERT_EQ(::send(peer.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
    // The request without a reply gets none; the bad one an error; the good one its answer, on
    // the same connection.
    auto refused = readFrame(peer.get(), reader);
    ASSERT_TRUE(refused.has_value()) << c.what;
    EXPECT_EQ(refused->header.returnID, returnID - 1) << c.what;
    auto answer = unflatten(std::span(reinterpret_cast<const uint8_t*>(refused->payload.data()),
                                      refused->payload.size()));
    ASSERT_TRUE(answer.ok()) << c.what;
    int32_t number = 0;
    EXPECT_EQ(
        answer->getParamPtr(keyErrorNumber, typeSInt32, nullptr, &number, sizeof number, nullptr),
        noErr)
        << c.what;
    EXPECT_EQ(number, c.expected) << c.what << ": " << printDesc(*answer);
    auto fine = readFrame(peer.get(), reader);
    ASSERT_TRUE(fine.has_value()) << c.what;
    EXPECT_EQ(fine->header.returnID, returnID) << c.what;
    EXPECT_LT(probe.largest(), size_t{1} << 20) << c.what;
  }

  // Announcing 2^31 or 2^32-1 bytes closes that connection before anything is reserved; the
  // application serves everyone else on.
  for (const uint32_t length : {0x80000000u, 0xFFFFFFFFu}) {
    AllocationProbe probe;
    FileDescriptor liar = connectRaw(path);
    const std::string header = hostile::frame(BusFrameKind::request, 1, "", length);
    ASSERT_EQ(::send(liar.get(), header.data(), header.size(), MSG_NOSIGNAL), 24);
    BusFrameReader liarReader;
    EXPECT_FALSE(readFrame(liar.get(), liarReader).has_value()) << length;
    EXPECT_LT(probe.largest(), size_t{1} << 20) << length;
    Descriptor reply;
    Descriptor event = volumeRequest();
    (void)event.putAttributeDesc(keyAddressAttr,
                                 Descriptor::makeCode(typeApplSignature, fourCharCode("echo")));
    EventManager other(EventManager::Options{scratch.path()});
    ASSERT_EQ(other.send(event, &reply, kAEWaitReply, kLongTicks), noErr);
    EXPECT_NE(reply.findParam(kDirectObject), nullptr);
  }
}

}  // namespace
}  // namespace rvitunes::ae
