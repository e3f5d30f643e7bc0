// The event bus below the event manager: framing, the bus directory, the server's run loop and
// the shared client connection, with payloads as plain bytes.
#include <dirent.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ae/HostilePeer.h"
#include "rvitunes/ae/BusConnection.h"
#include "rvitunes/ae/BusDirectory.h"
#include "rvitunes/ae/BusFrame.h"
#include "rvitunes/ae/BusServer.h"
#include "rvitunes/base/FileDescriptor.h"

namespace rvitunes::ae {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr OSType kEcho = fourCharCode("echo");

// A private scratch directory (mode 0700) removed with its content.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string pattern = "/tmp/rvbus-XXXXXX";
    path_ = ::mkdtemp(pattern.data()) != nullptr ? pattern : "";
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

size_t entriesIn(const char* dir) {
  size_t n = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(dir))
    ++n;
  return n;
}

BusDirectory openBus(const std::string& path) {
  auto bus = BusDirectory::open(path);
  EXPECT_TRUE(bus.ok()) << bus.status().toString();
  return *bus;
}

BusFrameHeader requestHeader(int32_t returnID, BusFrameKind kind = BusFrameKind::request) {
  BusFrameHeader header;
  header.kind = kind;
  header.returnID = returnID;
  return header;
}

// Answers "echo:<payload>"; payloads starting with "sleep" are answered after 300 ms.
BusServer::RequestHandler echoHandler() {
  return [](const BusFrameHeader&, std::string payload) -> std::optional<std::string> {
    if (payload.rfind("sleep", 0) == 0) std::this_thread::sleep_for(300ms);
    return "echo:" + payload;
  };
}

BusConnection::Deadline in(std::chrono::milliseconds wait) {
  return Clock::now() + wait;
}

// A raw client socket connected to `path` (no framing of its own).
FileDescriptor rawConnect(const std::string& path) {
  FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  EXPECT_EQ(::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  return fd;
}

void rawWrite(int fd, std::string_view bytes) {
  ASSERT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(bytes.size()));
}

// True when the peer closes `fd` within two seconds (whatever it sent first is skipped).
bool closedByPeer(int fd) {
  const auto until = Clock::now() + 2s;
  char buffer[256];
  while (Clock::now() < until) {
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, 100) <= 0) continue;
    const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
    if (n <= 0) return true;
  }
  return false;
}

// ---- Framing ---------------------------------------------------------------------------------

TEST(BusFrameTest, HeaderIsBigEndianAndReadsBack) {
  BusFrameHeader header;
  header.kind = BusFrameKind::request;
  header.flags = 0x13;
  header.returnID = -2;
  header.transactionID = 0x01020304;
  header.payloadLength = 5;
  const std::string bytes = encodeBusFrameHeader(header);
  EXPECT_EQ(bytes, std::string("RVAE\x00\x01\x01\x00"
                               "\x00\x00\x00\x13"
                               "\xFF\xFF\xFF\xFE"
                               "\x01\x02\x03\x04"
                               "\x00\x00\x00\x05",
                               24));
  auto decoded = decodeBusFrameHeader(bytes);
  ASSERT_TRUE(decoded.ok());
  EXPECT_EQ(decoded->kind, BusFrameKind::request);
  EXPECT_EQ(decoded->flags, 0x13u);
  EXPECT_EQ(decoded->returnID, -2);
  EXPECT_EQ(decoded->transactionID, 0x01020304);
  EXPECT_EQ(decoded->payloadLength, 5u);
}

TEST(BusFrameTest, MalformedHeadersNameTheFieldAndOffset) {
  const std::string good = encodeBusFrameHeader(requestHeader(7));
  struct Case {
    size_t offset;
    char value;
    OSStatus code;
    const char* where;
  };
  for (const Case& c :
       {Case{0, 'X', errAECorruptData, "offset 0"}, Case{5, 2, errAECorruptData, "offset 4"},
        Case{6, 0, errAECorruptData, "offset 6"}, Case{6, 4, errAECorruptData, "offset 6"},
        Case{7, 1, errAECorruptData, "offset 7"}, Case{20, 0x05, memFullErr, "offset 20"}}) {
    std::string bad = good;
    bad[c.offset] = c.value;
    auto decoded = decodeBusFrameHeader(bad);
    ASSERT_FALSE(decoded.ok()) << c.offset;
    EXPECT_EQ(decoded.status().code(), c.code) << c.offset;
    EXPECT_NE(decoded.status().message().find(c.where), std::string::npos)
        << decoded.status().message();
  }
  EXPECT_FALSE(decodeBusFrameHeader(good.substr(0, 23)).ok());
}

TEST(BusFrameTest, ReaderReassemblesFramesSplitAnywhere) {
  const std::string stream = encodeBusFrame(requestHeader(1), "first") +
                             encodeBusFrame(requestHeader(2, BusFrameKind::requestNoReply), "") +
                             encodeBusFrame(requestHeader(3), std::string(3000, 'x'));
  BusFrameReader reader;
  std::vector<BusFrameReader::Frame> frames;
  for (char byte : stream) {
    ASSERT_TRUE(reader.feed(std::string_view(&byte, 1)).ok());
    while (auto frame = reader.next())
      frames.push_back(std::move(*frame));
  }
  ASSERT_EQ(frames.size(), 3u);
  EXPECT_EQ(frames[0].payload, "first");
  EXPECT_EQ(frames[1].header.kind, BusFrameKind::requestNoReply);
  EXPECT_EQ(frames[1].payload, "");
  EXPECT_EQ(frames[2].header.returnID, 3);
  EXPECT_EQ(frames[2].payload.size(), 3000u);
  EXPECT_FALSE(reader.midFrame());
  ASSERT_TRUE(reader.feed(stream.substr(0, 20)).ok());
  EXPECT_FALSE(reader.next());
  EXPECT_TRUE(reader.midFrame());

  // A header announcing more than the limit fails before any payload arrives, for good.
  BusFrameReader small(16);
  EXPECT_EQ(
      small.feed(encodeBusFrameHeader(BusFrameHeader{BusFrameKind::request, 0, 1, 0, 17})).code(),
      memFullErr);
  EXPECT_EQ(small.feed(encodeBusFrame(requestHeader(2), "ok")).code(), memFullErr);
  EXPECT_FALSE(small.next());
}

// ---- The bus directory -----------------------------------------------------------------------

TEST(BusDirectoryTest, CreatesAPrivateDirectoryAndRefusesUnsafeOnes) {
  ScratchDirectory scratch;
  const std::string path = scratch.path() + "/bus";
  const mode_t previous = ::umask(0);
  auto created = BusDirectory::open(path);
  ::umask(previous);
  ASSERT_TRUE(created.ok()) << created.status().toString();
  struct stat info {};
  ASSERT_EQ(::lstat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0700u);

  ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
  EXPECT_EQ(created->verify().code(), wrPermErr);
  auto reopened = BusDirectory::open(path);
  ASSERT_FALSE(reopened.ok());
  EXPECT_NE(reopened.status().message().find("0755"), std::string::npos);
  ASSERT_EQ(::chmod(path.c_str(), 0700), 0);
  EXPECT_TRUE(created->verify().ok());

  const std::string link = scratch.path() + "/link";
  ASSERT_EQ(::symlink(path.c_str(), link.c_str()), 0);
  EXPECT_EQ(BusDirectory::open(link).status().code(), wrPermErr);
  const std::string file = scratch.path() + "/file";
  std::ofstream(file) << "x";
  EXPECT_EQ(BusDirectory::open(file).status().code(), wrPermErr);
  EXPECT_EQ(BusDirectory::open("relative/bus").status().code(), paramErr);
  EXPECT_EQ(BusDirectory::open("/" + std::string(200, 'd')).status().code(), paramErr);

  if (::geteuid() != 0) GTEST_SKIP() << "changing the owner needs root";
  ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
  auto foreign = BusDirectory::open(path);
  ASSERT_FALSE(foreign.ok());
  EXPECT_EQ(foreign.status().code(), wrPermErr);
  EXPECT_NE(foreign.status().message().find("uid 65534"), std::string::npos);
  EXPECT_EQ(BusServer::start(*created, kEcho, "Echo", echoHandler()).status().code(), wrPermErr);
}

TEST(BusDirectoryTest, DefaultPathFollowsAnAbsoluteXdgRuntimeDir) {
  const char* saved = std::getenv("XDG_RUNTIME_DIR");
  const std::string restore = saved ? saved : "";
  const std::string fallback = "/tmp/rvitunes-" + std::to_string(::geteuid());
  ::setenv("XDG_RUNTIME_DIR", "/run/user/42/", 1);
  EXPECT_EQ(BusDirectory::defaultPath(), "/run/user/42/rvitunes");
  ::setenv("XDG_RUNTIME_DIR", "run/user/42", 1);
  EXPECT_EQ(BusDirectory::defaultPath(), fallback);
  ::unsetenv("XDG_RUNTIME_DIR");
  EXPECT_EQ(BusDirectory::defaultPath(), fallback);
  if (saved) ::setenv("XDG_RUNTIME_DIR", restore.c_str(), 1);
}

TEST(BusDirectoryTest, RecordsReadBackAndDamagedOnesAreRefused) {
  ScratchDirectory scratch;
  const BusDirectory bus = openBus(scratch.path());
  BusRegistration registration{fourCharCode("hook"), "iTunes", 4242, ""};
  ASSERT_TRUE(bus.writeRecord(registration).ok());
  struct stat info {};
  ASSERT_EQ(::stat(bus.recordPath(registration.signature).c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600u);
  auto read = bus.readRecord(registration.signature);
  ASSERT_TRUE(read.ok()) << read.status().toString();
  EXPECT_EQ(read->name, "iTunes");
  EXPECT_EQ(read->pid, 4242);
  EXPECT_EQ(read->socketPath, scratch.path() + "/686f6f6b.sock");

  for (const char* name : {"", "two\nlines", "tab\there"}) {
    registration.name = name;
    EXPECT_EQ(bus.writeRecord(registration).code(), paramErr) << name;
  }
  const std::string path = bus.recordPath(registration.signature);
  const std::string head = "rvitunes-bus-registration 1\nsignature ";
  for (const std::string& text : {std::string("something else 1\n"),
                                  head + "68656c6f\nname x\npid 1\n",  // another signature
                                  head + "686f6f6b\nname x\npid -3\n",
                                  head + "686f6f6b\nname x\n",  // no pid
                                  head + "686f6f6b\nname " + std::string(5000, 'n') + "\n"}) {
    std::ofstream(path, std::ios::trunc) << text;
    EXPECT_EQ(bus.readRecord(registration.signature).status().code(), errAECorruptData)
        << text.substr(0, 60);
  }
  EXPECT_EQ(bus.readRecord(fourCharCode("none")).status().code(), fnfErr);
}

// ---- The server ------------------------------------------------------------------------------

TEST(BusServerTest, AnswersOneClientInOrderAndSkipsNoReplyFrames) {
  ScratchDirectory scratch;
  const BusDirectory bus = openBus(scratch.path());
  std::mutex seenMutex;
  std::vector<std::string> seen;
  auto server = BusServer::start(
      bus, kEcho, "Echo",
      [&](const BusFrameHeader&, std::string payload) -> std::optional<std::string> {
        std::lock_guard lock(seenMutex);
        seen.push_back(payload);
        return "echo:" + payload;
      });
  ASSERT_TRUE(server.ok()) << server.status().toString();

  // Three frames in one write: the replies come back in the same order.
  FileDescriptor raw = rawConnect(bus.socketPath(kEcho));
  rawWrite(raw.get(), encodeBusFrame(requestHeader(11), "a") +
                          encodeBusFrame(requestHeader(12, BusFrameKind::requestNoReply), "b") +
                          encodeBusFrame(requestHeader(13), "c"));
  BusFrameReader reader;
  std::vector<BusFrameReader::Frame> replies;
  char buffer[512];
  while (replies.size() < 2) {
    pollfd p{raw.get(), POLLIN, 0};
    ASSERT_GT(::poll(&p, 1, 2000), 0);
    const ssize_t n = ::recv(raw.get(), buffer, sizeof buffer, 0);
    ASSERT_GT(n, 0);
    ASSERT_TRUE(reader.feed(std::string_view(buffer, static_cast<size_t>(n))).ok());
    while (auto frame = reader.next())
      replies.push_back(std::move(*frame));
  }
  ASSERT_EQ(replies.size(), 2u);
  EXPECT_EQ(replies[0].header.kind, BusFrameKind::reply);
  EXPECT_EQ(replies[0].header.returnID, 11);
  EXPECT_EQ(replies[0].payload, "echo:a");
  EXPECT_EQ(replies[1].header.returnID, 13);
  EXPECT_EQ(replies[1].payload, "echo:c");
  std::lock_guard lock(seenMutex);
  EXPECT_EQ(seen, (std::vector<std::string>{"a", "b", "c"}));
}

TEST(BusServerTest, IsListedWhileRunningAndLeavesNothingBehind) {
  ScratchDirectory scratch;
  const BusDirectory bus = openBus(scratch.path());
  {
    auto server = BusServer::start(bus, fourCharCode("hook"), "iTunes", echoHandler());
    ASSERT_TRUE(server.ok()) << server.status().toString();
    struct stat info {};
    ASSERT_EQ(::lstat(bus.socketPath(fourCharCode("hook")).c_str(), &info), 0);
    EXPECT_TRUE(S_ISSOCK(info.st_mode));
    EXPECT_EQ(info.st_mode & 07777, 0600u);
    const auto apps = bus.applications();
    ASSERT_EQ(apps.size(), 1u);
    EXPECT_EQ(apps[0].name, "iTunes");
    EXPECT_EQ(apps[0].signature, fourCharCode("hook"));
    EXPECT_EQ(apps[0].pid, ::getpid());
    EXPECT_TRUE(bus.findByPid(::getpid()).has_value());
  }
  EXPECT_TRUE(bus.applications().empty());
  EXPECT_EQ(entriesIn(scratch.path().c_str()), 0u);
}

TEST(BusServerTest, ReplacesAStaleSocketButNeverALiveOne) {
  ScratchDirectory scratch;
  const BusDirectory bus = openBus(scratch.path());
  const std::string socketPath = bus.socketPath(kEcho);
  {
    // What a crashed server leaves: a bound socket file with nobody listening, and its record.
    FileDescriptor dead(::socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socketPath.data(), socketPath.size());
    ASSERT_EQ(::bind(dead.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_TRUE(bus.writeRecord({kEcho, "Ghost", 999999, ""}).ok());
  }
  EXPECT_FALSE(bus.find(kEcho).has_value());
  EXPECT_EQ(BusConnection::connect(socketPath).status().code(), procNotFound);

  auto server = BusServer::start(bus, kEcho, "Echo", echoHandler());
  ASSERT_TRUE(server.ok()) << server.status().toString();
  auto found = bus.find(kEcho);
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->name, "Echo");
  EXPECT_EQ(found->pid, ::getpid());

  auto second = BusServer::start(bus, kEcho, "Impostor", echoHandler());
  ASSERT_FALSE(second.ok());
  EXPECT_EQ(second.status().code(), paramErr);
  EXPECT_NE(second.status().message().find("\"Echo\""), std::string::npos);
  auto client = BusConnection::connect(socketPath);
  ASSERT_TRUE(client.ok());
  EXPECT_EQ(*(*client)->request(requestHeader(1), "x", in(2s)), "echo:x");

  std::ofstream(bus.socketPath(fourCharCode("file"))) << "not a socket";
  EXPECT_EQ(BusServer::start(bus, fourCharCode("file"), "File", echoHandler()).status().code(),
            paramErr);
}

TEST(BusServerTest, DropsMalformedPeersWithoutHarmingTheOthers) {
  ScratchDirectory scratch;
  const BusDirectory bus = openBus(scratch.path());
  auto server = BusServer::start(bus, kEcho, "Echo", echoHandler());
  ASSERT_TRUE(server.ok());
  auto good = BusConnection::connect(bus.socketPath(kEcho));
  ASSERT_TRUE(good.ok());
  ASSERT_EQ(*(*good)->request(requestHeader(1), "before", in(2s)), "echo:before");

  // A peer stuck in the middle of a frame must not hold up anyone.
  FileDescriptor stuck = rawConnect(bus.socketPath(kEcho));
  rawWrite(stuck.get(), encodeBusFrame(requestHeader(2), "half a frame").substr(0, 30));

  std::string badMagic = encodeBusFrame(requestHeader(3), "x");
  badMagic[0] = 'Z';
  BusFrameHeader huge = requestHeader(4);
  huge.payloadLength = 0xFFFFFFF0u;
  std::string truncated = encodeBusFrame(requestHeader(5), "cut short").substr(0, 28);
  BusFrameHeader reply = requestHeader(6, BusFrameKind::reply);
  const std::vector<std::pair<std::string, bool>> garbage = {
      {badMagic, false},
      {encodeBusFrameHeader(huge), false},
      {truncated, true},  // then the peer ends its stream
      {encodeBusFrame(reply, "a reply where a request belongs"), false},
      {std::string(24, '\0'), false}};
  for (const auto& [bytes, endStream] : garbage) {
    FileDescriptor peer = rawConnect(bus.socketPath(kEcho));
    rawWrite(peer.get(), bytes);
    if (endStream) ::shutdown(peer.get(), SHUT_WR);
    EXPECT_TRUE(closedByPeer(peer.get()));
    EXPECT_EQ(*(*good)->request(requestHeader(7), "after", in(2s)), "echo:after");
  }
  EXPECT_EQ((*server)->droppedConnectionCount(), garbage.size());
  // The stuck peer is still connected and can finish its frame.
  rawWrite(stuck.get(), encodeBusFrame(requestHeader(2), "half a frame").substr(30));
  BusFrameReader reader;
  char buffer[128];
  pollfd p{stuck.get(), POLLIN, 0};
  ASSERT_GT(::poll(&p, 1, 2000), 0);
  const ssize_t n = ::recv(stuck.get(), buffer, sizeof buffer, 0);
  ASSERT_GT(n, 0);
  ASSERT_TRUE(reader.feed(std::string_view(buffer, static_cast<size_t>(n))).ok());
  auto frame = reader.next();
  ASSERT_TRUE(frame.has_value());
  EXPECT_EQ(frame->payload, "echo:half a frame");
}

TEST(BusServerTest, RefusesPeersOfAnotherUser) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  ScratchDirectory scratch;
  const BusDirectory bus = openBus(scratch.path());
  auto server = BusServer::start(bus, kEcho, "Echo", echoHandler());
  ASSERT_TRUE(server.ok());
  // Open the fences that normally keep other users out, so the server's own check is tested.
  ASSERT_EQ(::chmod(scratch.path().c_str(), 0711), 0);
  ASSERT_EQ(::chmod(bus.socketPath(kEcho).c_str(), 0666), 0);
  const std::string path = bus.socketPath(kEcho);
  const std::string frame = encodeBusFrame(requestHeader(1), "hello");
  EXPECT_EQ(hostile::sendAsAnotherUser(65534, path, frame), 0);
  EXPECT_EQ((*server)->refusedPeerCount(), 1u);
  ASSERT_EQ(::chmod(scratch.path().c_str(), 0700), 0);
}

// ---- The client connection -------------------------------------------------------------------

TEST(BusConnectionTest, LargePayloadsCrossInBothDirections) {
  ScratchDirectory scratch;
  const BusDirectory bus = openBus(scratch.path());
  auto server = BusServer::start(bus, kEcho, "Echo", echoHandler());
  ASSERT_TRUE(server.ok());
  auto client = BusConnection::connect(bus.socketPath(kEcho));
  ASSERT_TRUE(client.ok());
  std::string payload(8 << 20, '\0');
  for (size_t i = 0; i < payload.size(); ++i)
    payload[i] = static_cast<char>(i * 7 + (i >> 12));
  auto reply = (*client)->request(requestHeader(1), payload, in(10s));
  ASSERT_TRUE(reply.ok()) << reply.status().toString();
  EXPECT_TRUE(*reply == "echo:" + payload);
  EXPECT_EQ(*(*client)->request(requestHeader(2), "small", in(2s)), "echo:small");
}

TEST(BusConnectionTest, TimesOutAndDiscardsTheLateReply) {
  ScratchDirectory scratch;
  const BusDirectory bus = openBus(scratch.path());
  auto server = BusServer::start(bus, kEcho, "Echo", echoHandler());
  ASSERT_TRUE(server.ok());
  auto client = BusConnection::connect(bus.socketPath(kEcho));
  ASSERT_TRUE(client.ok());
  const auto start = Clock::now();
  auto slow = (*client)->request(requestHeader(1), "sleep", in(50ms));
  EXPECT_LT(Clock::now() - start, 250ms);
  ASSERT_FALSE(slow.ok());
  EXPECT_EQ(slow.status().code(), errAETimeout);
  // The late "echo:sleep" arrives first and must not be taken for this one's reply.
  EXPECT_EQ(*(*client)->request(requestHeader(2), "next", in(2s)), "echo:next");
  EXPECT_TRUE((*client)->alive());
}

}  // namespace
}  // namespace rvitunes::ae
