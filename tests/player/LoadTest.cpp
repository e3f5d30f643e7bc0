// Several clients at once against the player daemon: four clients with their own connections
// send interleaved reads and writes for a bounded time while a fifth peer keeps connecting,
// sending a request or half of one, and hanging up without waiting. No reply may be lost and
// every client must see the model as its own writes left it.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <atomic>
#include <cstdio>

#include "HandlerTestSupport.h"
#include "rvitunes/ae/BusFrame.h"
#include "rvitunes/ae/Wire.h"

namespace rvitunes::player {
namespace {

using testing::errorNumber;
using testing::integerResult;
using testing::playerEvent;
using testing::textResult;

constexpr auto kRunFor = std::chrono::seconds(2);
constexpr int kClients = 4;

struct ClientStats {
  uint64_t requests = 0;
  uint64_t failures = 0;
  std::string firstFailure;
  double maxMilliseconds = 0;
  double totalMilliseconds = 0;
  std::string lastComment;
};

// Connects to `socketPath`, writes `bytes` and hangs up without reading anything.
bool connectWriteAndHangUp(const std::string& socketPath, const std::string& bytes) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", socketPath.c_str());
  bool ok = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  if (ok && !bytes.empty()) {
    ok = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
  }
  ::close(fd);
  return ok;
}

TEST(LoadTest, FourClientsLoseNoReplyWhileAPeerHangsUpMidRequest) {
  testing::ScratchFolder folder;
  testing::PrivateBus bus;
  const std::string library = testing::writeTestLibrary(folder);
  testing::Daemon daemon(bus, library, {}, folder);
  ASSERT_TRUE(daemon.waitUntilRegistered()) << daemon.log();
  auto directory = ae::BusDirectory::open(bus.busPath());
  ASSERT_TRUE(directory.ok());
  const std::string socketPath = directory->socketPath(kPlayerSignature);

  const auto deadline = std::chrono::steady_clock::now() + kRunFor;
  std::vector<ClientStats> stats(kClients);
  std::vector<std::thread> threads;
  for (int c = 0; c < kClients; ++c) {
    threads.emplace_back([&, c] {
      ClientStats& mine = stats[static_cast<size_t>(c)];
      testing::BusClient client(bus);
      const DatabaseId own = 101 + c;  // each client writes its own track
      const std::string track = testing::trackSpecifier(own);
      const auto check = [&](bool ok, const std::string& what) {
        if (!ok && mine.failures++ == 0) mine.firstFailure = what;
      };
      const auto timed = [&](const ae::Descriptor& event) {
        const auto started = std::chrono::steady_clock::now();
        OSStatus status = noErr;
        ae::Descriptor reply = client.request(event, &status);
        const double ms =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started)
                .count();
        ++mine.requests;
        mine.totalMilliseconds += ms;
        mine.maxMilliseconds = std::max(mine.maxMilliseconds, ms);
        check(status == noErr, "delivery " + std::to_string(status));
        check(errorNumber(reply) == noErr, "errn " + std::to_string(errorNumber(reply)));
        return reply;
      };
      for (int n = 0; std::chrono::steady_clock::now() < deadline; ++n) {
        const std::string comment = "client " + std::to_string(c) + " #" + std::to_string(n);
        ae::Descriptor set = playerEvent(ae::kAECoreSuite, ae::kAESetData,
                                         "data:@, '----':" + testing::propertyOf("pCmt", track),
                                         ae::Descriptor::makeUnicodeText(comment));
        // Half of the writes are sent without waiting, as the framework's setters send.
        if (n % 2 == 0) {
          check(client.post(set) == noErr, "post");
        } else {
          timed(set);
        }
        mine.lastComment = comment;
        check(textResult(timed(testing::getd("'----':" + testing::propertyOf("pCmt", track)))) ==
                  comment,
              "read back " + comment);
        check(integerResult(timed(playerEvent(
                  ae::kAECoreSuite, ae::kAECountElements,
                  "kocl:type(cTrk), '----':" + testing::playlistSpecifier(testing::kLibraryId)))) ==
                  6,
              "count");
        const ae::Descriptor keyed = timed(testing::getd(
            "'----':obj { form:indx, want:type(cTrk), seld:'abso'('any '), from:obj { "
            "form:test, want:type(cTrk), from:" +
            testing::playlistSpecifier(testing::kLibraryId) +
            ", seld:cmpd{relo:=, 'obj1': obj{ form:prop, want:type(prop), seld:type(pDID), "
            "from:exmn()}, obj2:" +
            std::to_string(own) + "}} }"));
        check(testing::specifierId(testing::result(keyed)) == own, "keyed look-up");
      }
    });
  }

  // The misbehaving peer: a whole request then gone, half a frame then gone, nothing then gone.
  uint64_t hangUps = 0;
  std::thread rogue([&] {
    auto flat = ae::flatten(testing::getd("'----':" + testing::propertyOf("pnam", "null()")));
    if (!flat.ok()) return;
    const std::string payload(flat->begin(), flat->end());
    ae::BusFrameHeader header;
    header.kind = ae::BusFrameKind::request;
    header.returnID = 7;
    const std::string frame = ae::encodeBusFrame(header, payload);
    while (std::chrono::steady_clock::now() < deadline) {
      hangUps += connectWriteAndHangUp(socketPath, frame);
      hangUps += connectWriteAndHangUp(socketPath, frame.substr(0, frame.size() / 2));
      hangUps += connectWriteAndHangUp(socketPath, "");
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  });
  for (std::thread& thread : threads)
    thread.join();
  rogue.join();

  uint64_t requests = 0;
  double maxMs = 0;
  double totalMs = 0;
  for (int c = 0; c < kClients; ++c) {
    const ClientStats& s = stats[static_cast<size_t>(c)];
    EXPECT_EQ(s.failures, 0u) << "client " << c << ": " << s.firstFailure;
    EXPECT_GT(s.requests, 20u) << "client " << c;
    requests += s.requests;
    maxMs = std::max(maxMs, s.maxMilliseconds);
    totalMs += s.totalMilliseconds;
  }
  EXPECT_GT(hangUps, 0u);
  const double seconds = std::chrono::duration<double>(kRunFor).count();
  std::printf(
      "[ load     ] %d clients, %llu requests in %.1f s (%.0f/s), mean %.3f ms, max %.3f "
      "ms, %llu hang-ups by the rogue peer\n",
      kClients, static_cast<unsigned long long>(requests), seconds, requests / seconds,
      requests ? totalMs / static_cast<double>(requests) : 0.0, maxMs,
      static_cast<unsigned long long>(hangUps));
  ::testing::Test::RecordProperty("requests", static_cast<int>(requests));

  // Afterwards the model holds each client's last write, and the daemon still serves.
  ASSERT_TRUE(daemon.process().running()) << daemon.log();
  testing::BusClient checker(bus);
  for (int c = 0; c < kClients; ++c) {
    ae::Descriptor reply = checker.request(
        testing::getd("'----':" + testing::propertyOf("pCmt", testing::trackSpecifier(101 + c))));
    EXPECT_EQ(textResult(reply), stats[static_cast<size_t>(c)].lastComment) << c;
  }
  daemon.process().signal(SIGTERM);
  EXPECT_EQ(daemon.process().reap(std::chrono::seconds(5)), std::optional<int>(0)) << daemon.log();
}

}  // namespace
}  // namespace rvitunes::player
