// What keeps other users off the event bus, and the bounds of what the bus accepts: the bus
// directory refused in every unsafe state, sockets and records of mode 0600 whatever the umask,
// peers of another user refused by the server and listeners of another user by the client
// (with a real second uid where the tests run as root, and with a stand-in credential
// everywhere), registration records that are not plainly ours ignored, and every size bound
// taken exactly at its limit and refused one past it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "ae/HostilePeer.h"
#include "rvitunes/ae/BusConnection.h"
#include "rvitunes/ae/BusServer.h"
#include "rvitunes/ae/EventManager.h"

namespace rvitunes::ae {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using hostile::openBus;

constexpr OSType kEcho = fourCharCode("echo");
constexpr uid_t kNobody = 65534;

BusServer::RequestHandler echoHandler(std::atomic<int>* handled = nullptr) {
  return [handled](const BusFrameHeader&, std::string payload) -> std::optional<std::string> {
    if (handled != nullptr) ++*handled;
    return payload;
  };
}

BusFrameHeader request(int32_t returnID) {
  BusFrameHeader header;
  header.kind = BusFrameKind::request;
  header.returnID = returnID;
  return header;
}

// An event for `signature` on the bus.
Descriptor eventFor(OSType signature) {
  return Descriptor::makeAppleEvent(kAECoreSuite, kAEGetData,
                                    Descriptor::makeCode(typeApplSignature, signature),
                                    kAutoGenerateReturnID, kAnyTransactionID);
}

// An application under `signature` that answers '----' 42, published through its own manager.
class PublishedApp {
 public:
  PublishedApp(const std::string& busPath, OSType signature) : manager_({busPath}) {
    auto app = manager_.registerApplication(signature, "Published");
    EXPECT_TRUE(app.ok());
    if (!app.ok()) return;
    (*app)->installEventHandler(
        typeWildCard, typeWildCard, [this](const Descriptor&, Descriptor& r) {
          ++handled_;
          if (!r.isNull()) (void)r.putParamDesc(keyDirectObject, Descriptor::makeSInt32(42));
          return noErr;
        });
    published_ = manager_.publish(signature);
  }
  const Status& published() const { return published_; }
  int handled() const { return handled_.load(); }

 private:
  EventManager manager_;
  std::atomic<int> handled_{0};
  Status published_;
};

OSStatus sendTo(const std::string& busPath, OSType signature, long ticks = 600) {
  EventManager sender({busPath});
  Descriptor reply;
  return sender.send(eventFor(signature), &reply, kAEWaitReply, ticks);
}

size_t entriesIn(const std::string& dir) {
  size_t n = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(dir))
    ++n;
  return n;
}

// A forked child, killed and reaped at the latest when the object goes, so that a failed
// assertion never leaves it running.
class ChildProcess {
 public:
  explicit ChildProcess(pid_t pid) : pid_(pid) {}
  ~ChildProcess() { stop(); }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Waits (at most five seconds) for the child to end; its exit status, or -1.
  int wait() {
    for (int i = 0; i < 500 && pid_ > 0; ++i) {
      int status = 0;
      if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      }
      std::this_thread::sleep_for(10ms);
    }
    stop();
    return -1;
  }
  void stop() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  pid_t pid_;
};

// ---- The bus directory
// ---------------------------------------------------------------------------

TEST(BusIsolationDirectoryTest, EveryUnsafeStateIsRefusedAndNothingInsideIsTouched) {
  hostile::ScratchBus scratch;
  const std::string target = scratch.path() + "/real";
  ASSERT_TRUE(BusDirectory::open(target).ok());
  std::ofstream(target + "/keep") << "x";

  struct Case {
    const char* what;
    std::function<std::string()> make;  // answers the path to try
    const char* reason;
  };
  int n = 0;
  const auto fresh = [&] { return scratch.path() + "/case" + std::to_string(++n); };
  const auto withMode = [&](mode_t mode) {
    return [&, mode] {
      const std::string path = fresh();
      EXPECT_EQ(::mkdir(path.c_str(), 0700), 0);
      EXPECT_EQ(::chmod(path.c_str(), mode), 0);
      return path;
    };
  };
  const std::vector<Case> cases = {
      {"a symbolic link to a good directory",
       [&] {
         const std::string path = fresh();
         EXPECT_EQ(::symlink(target.c_str(), path.c_str()), 0);
         return path;
       },
       "symbolic link"},
      {"a dangling symbolic link",
       [&] {
         const std::string path = fresh();
         EXPECT_EQ(::symlink((scratch.path() + "/nowhere").c_str(), path.c_str()), 0);
         return path;
       },
       "symbolic link"},
      {"a regular file",
       [&] {
         const std::string path = fresh();
         std::ofstream(path) << "x";
         return path;
       },
       "not a directory"},
      {"group read", withMode(0740), "mode 0740"},
      {"group search", withMode(0710), "mode 0710"},
      {"group write", withMode(0720), "mode 0720"},
      {"other search", withMode(0701), "mode 0701"},
      {"other read", withMode(0704), "mode 0704"},
      {"world writable and sticky", withMode(01777), "mode 1777"},
      {"the usual 0755", withMode(0755), "mode 0755"},
  };
  for (const Case& c : cases) {
    const std::string path = c.make();
    auto opened = BusDirectory::open(path);
    ASSERT_FALSE(opened.ok()) << c.what;
    EXPECT_EQ(opened.status().code(), wrPermErr) << c.what;
    EXPECT_NE(opened.status().message().find(c.reason), std::string::npos)
        << c.what << ": " << opened.status().message();
    // Neither side of the bus uses it: nothing registers and nothing is sent.
    EventManager manager({path});
    auto app = manager.registerApplication(kEcho, "Echo");
    ASSERT_TRUE(app.ok());
    EXPECT_EQ(manager.publish(kEcho).code(), wrPermErr) << c.what;
    EXPECT_EQ(sendTo(path, fourCharCode("hook")), wrPermErr) << c.what;
    EXPECT_EQ(manager.runningApplications().size(), 1u) << c.what;  // itself, in this process
  }
  // Nothing was created in the directory a link pointed at.
  EXPECT_EQ(entriesIn(target), 1u);

  // 0700 is accepted, whatever the other mode bits say.
  for (const mode_t mode : {0700, 02700}) {
    const std::string path = withMode(mode)();
    EXPECT_TRUE(BusDirectory::open(path).ok()) << std::oct << mode;
  }
}

TEST(BusIsolationDirectoryTest, ADirectoryChangedBehindTheBusIsNoLongerTrusted) {
  hostile::ScratchBus scratch;
  const std::string path = scratch.path() + "/bus";
  PublishedApp app(path, kEcho);
  ASSERT_TRUE(app.published().ok()) << app.published().toString();
  ASSERT_EQ(sendTo(path, kEcho), noErr);

  // Moved away and replaced by a link to where it went: every new sender refuses it.
  const std::string moved = scratch.path() + "/moved";
  ASSERT_EQ(::rename(path.c_str(), moved.c_str()), 0);
  ASSERT_EQ(::symlink(moved.c_str(), path.c_str()), 0);
  EXPECT_EQ(sendTo(path, kEcho), wrPermErr);
  EventManager lister({path});
  EXPECT_TRUE(lister.runningApplications().empty());
  ASSERT_EQ(::unlink(path.c_str()), 0);
  ASSERT_EQ(::rename(moved.c_str(), path.c_str()), 0);

  // Opened to the group: refused until it is private again.
  ASSERT_EQ(::chmod(path.c_str(), 0750), 0);
  EXPECT_EQ(sendTo(path, kEcho), wrPermErr);
  ASSERT_EQ(::chmod(path.c_str(), 0700), 0);
  EXPECT_EQ(sendTo(path, kEcho), noErr);
  EXPECT_EQ(app.handled(), 2);

  if (::geteuid() != 0) GTEST_SKIP() << "giving the directory away needs root";
  ASSERT_EQ(::chown(path.c_str(), kNobody, kNobody), 0);
  EXPECT_EQ(sendTo(path, kEcho), wrPermErr);
  auto foreign = BusDirectory::open(path);
  ASSERT_FALSE(foreign.ok());
  EXPECT_NE(foreign.status().message().find("uid 65534"), std::string::npos);
  PublishedApp second(path, fourCharCode("two "));
  EXPECT_EQ(second.published().code(), wrPermErr);
  ASSERT_EQ(::chown(path.c_str(), ::geteuid(), ::getegid()), 0);
  EXPECT_EQ(app.handled(), 2);
}

TEST(BusIsolationDirectoryTest, SocketsAndRecordsAreOwnerOnlyWhateverTheUmask) {
  hostile::ScratchBus scratch;
  const mode_t previous = ::umask(0);
  {
    const BusDirectory bus = openBus(scratch.path() + "/bus");
    auto server = BusServer::start(bus, kEcho, "Echo", echoHandler());
    ::umask(previous);
    ASSERT_TRUE(server.ok()) << server.status().toString();
    struct stat info {};
    ASSERT_EQ(::lstat(bus.path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0700u);
    ASSERT_EQ(::lstat(bus.socketPath(kEcho).c_str(), &info), 0);
    EXPECT_TRUE(S_ISSOCK(info.st_mode));
    EXPECT_EQ(info.st_mode & 07777, 0600u);
    ASSERT_EQ(::lstat(bus.recordPath(kEcho).c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600u);
    // Nothing else: no temporary left behind.
    EXPECT_EQ(entriesIn(bus.path()), 2u);
  }
  ::umask(previous);
}

// ---- Peers of another user
// -----------------------------------------------------------------------

// True for the server's end of a connection (its local address is the socket's path).
bool isAcceptedEnd(int fd) {
  sockaddr_un address{};
  socklen_t length = sizeof address;
  if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) return false;
  return length > sizeof(sa_family_t) && address.sun_path[0] != '\0';
}

// Stand-in credentials: the server sees a client of another user, or the client a server of
// another user, or nobody can be told; everyone else is ourselves.
std::optional<uid_t> foreignClient(int fd) {
  return isAcceptedEnd(fd) ? std::optional<uid_t>(kNobody) : std::optional(::geteuid());
}
std::optional<uid_t> foreignServer(int fd) {
  return isAcceptedEnd(fd) ? std::optional(::geteuid()) : std::optional<uid_t>(kNobody);
}
std::optional<uid_t> unknownCredentials(int) {
  return std::nullopt;
}
std::optional<uid_t> ourselves(int) {
  return ::geteuid();
}

// Installs a stand-in credential reader while it lives.
class CredentialOverride {
 public:
  explicit CredentialOverride(BusPeerUidReader reader)
      : previous_(setBusPeerUidReaderForTesting(reader)) {}
  ~CredentialOverride() { setBusPeerUidReaderForTesting(previous_); }
  CredentialOverride(const CredentialOverride&) = delete;
  CredentialOverride& operator=(const CredentialOverride&) = delete;

 private:
  BusPeerUidReader previous_;
};

TEST(BusIsolationPeerTest, StandInCredentialsOfAnotherUserAreRefusedByBothEnds) {
  hostile::ScratchBus scratch;
  const BusDirectory bus = openBus(scratch.path());
  std::atomic<int> handled{0};
  auto server = BusServer::start(bus, kEcho, "Echo", echoHandler(&handled));
  ASSERT_TRUE(server.ok());
  const std::string path = bus.socketPath(kEcho);
  const struct {
    const char* what;
    BusPeerUidReader reader;
    OSStatus connect;  // what BusConnection::connect answers
    OSStatus send;     // what a send through the event manager answers
    uint64_t refusedByServer;
  } cases[] = {
      {"a client of another user", foreignClient, noErr, connectionInvalid, 1},
      {"a server of another user", foreignServer, procNotFound, procNotFound, 0},
      {"credentials that cannot be read", unknownCredentials, procNotFound, procNotFound, 1},
      {"our own user through the stand-in", ourselves, noErr, noErr, 0},
  };
  uint64_t refusedBefore = 0;
  for (const auto& c : cases) {
    CredentialOverride override(c.reader);
    auto connection = BusConnection::connect(path, Clock::now() + 5s);
    EXPECT_EQ(connection.status().code(), c.connect) << c.what;
    if (connection.ok()) {
      auto answer = (*connection)->request(request(1), "hello", Clock::now() + 5s);
      EXPECT_EQ(answer.status().code(), c.send) << c.what;
    }
    // The listing counts as running only what can be told to be ours.
    EXPECT_EQ(bus.find(kEcho).has_value(), c.connect == noErr) << c.what;
    const int handledBefore = handled.load();
    EXPECT_EQ(sendTo(scratch.path(), kEcho), c.send) << c.what;
    // A refused peer gets nothing handled; our own user is served.
    EXPECT_EQ(handled.load() - handledBefore, c.send == noErr ? 1 : 0) << c.what;
    // The server counts each connection it refused: the raw one and the event manager's (which
    // may try twice when its request could not be written at all).
    const auto until = Clock::now() + 2s;
    while ((*server)->refusedPeerCount() - refusedBefore < 2 * c.refusedByServer &&
           Clock::now() < until) {
      std::this_thread::sleep_for(5ms);
    }
    const uint64_t refused = (*server)->refusedPeerCount();
    if (c.refusedByServer != 0) {
      EXPECT_GE(refused - refusedBefore, 2u) << c.what;
    } else {
      EXPECT_EQ(refused, refusedBefore) << c.what;
    }
    refusedBefore = refused;
  }
  EXPECT_EQ(sendTo(scratch.path(), kEcho), noErr);
}

TEST(BusIsolationPeerTest, ARealSecondUserIsRefusedByTheServerAndItsListenerByTheClient) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  hostile::ScratchBus scratch;
  const std::string busPath = scratch.path() + "/bus";
  PublishedApp app(busPath, kEcho);
  ASSERT_TRUE(app.published().ok());
  const std::string socketPath = openBus(busPath).socketPath(kEcho);
  // Open the fences that keep other users out, so that the check on the connection itself is
  // what is tested.
  ASSERT_EQ(::chmod(scratch.path().c_str(), 0711), 0);
  ASSERT_EQ(::chmod(busPath.c_str(), 0711), 0);
  ASSERT_EQ(::chmod(socketPath.c_str(), 0666), 0);
  Descriptor event = eventFor(kEcho);
  const std::string frame = hostile::frame(BusFrameKind::request, 1, hostile::flattened(event));

  // A client of uid 65534 connects and sends a proper request: it is closed without an answer.
  EXPECT_EQ(hostile::sendAsAnotherUser(kNobody, socketPath, frame), 0);
  EXPECT_EQ(app.handled(), 0);
  ASSERT_EQ(::chmod(busPath.c_str(), 0700), 0);
  EXPECT_EQ(sendTo(busPath, kEcho), noErr);
  EXPECT_EQ(app.handled(), 1);

  // A listener of uid 65534, in a folder it may write, and a link to it planted in our bus
  // directory under 'hook' with a record of ours: the client refuses it before sending
  // anything, and the listing does not count it as running.
  const std::string foreignDir = scratch.path() + "/foreign";
  ASSERT_EQ(::mkdir(foreignDir.c_str(), 0700), 0);
  ASSERT_EQ(::chown(foreignDir.c_str(), kNobody, kNobody), 0);
  const std::string foreignSocket = foreignDir + "/player.sock";
  int ready[2];
  int heard[2];
  ASSERT_EQ(::pipe(ready), 0);
  ASSERT_EQ(::pipe(heard), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(ready[0]);
    ::close(heard[0]);
    if (::syscall(SYS_setresgid, kNobody, kNobody, kNobody) != 0 ||
        ::syscall(SYS_setresuid, kNobody, kNobody, kNobody) != 0) {
      ::_exit(3);
    }
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, foreignSocket.data(), foreignSocket.size());
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::chmod(foreignSocket.c_str(), 0666) != 0 || ::listen(fd, 16) != 0) {
      ::_exit(4);
    }
    (void)!::write(ready[1], "r", 1);
    // Takes every connection and tells the parent of any byte that comes; ends when killed.
    char buffer[256];
    for (;;) {
      const int peer = ::accept(fd, nullptr, nullptr);
      if (peer < 0) ::_exit(5);
      while (::recv(peer, buffer, sizeof buffer, 0) > 0)
        (void)!::write(heard[1], "b", 1);
      ::close(peer);
    }
  }
  ASSERT_GT(child, 0);
  ChildProcess listener(child);
  ::close(ready[1]);
  ::close(heard[1]);
  char byte = 0;
  ASSERT_EQ(::read(ready[0], &byte, 1), 1);
  ::close(ready[0]);

  auto refused = BusConnection::connect(foreignSocket, Clock::now() + 5s);
  ASSERT_FALSE(refused.ok());
  EXPECT_EQ(refused.status().code(), procNotFound);
  EXPECT_NE(refused.status().message().find("another user"), std::string::npos);
  const BusDirectory bus = openBus(busPath);
  const OSType hook = fourCharCode("hook");
  ASSERT_EQ(::symlink(foreignSocket.c_str(), bus.socketPath(hook).c_str()), 0);
  ASSERT_TRUE(bus.writeRecord({hook, "iTunes", 4242, ""}).ok());
  EXPECT_FALSE(busSocketHasListener(bus.socketPath(hook)));
  EXPECT_FALSE(bus.find(hook).has_value());
  EventManager lister({busPath});
  for (const RunningApplication& running : lister.runningApplications())
    EXPECT_NE(running.signature, hook) << running.name;
  EXPECT_EQ(sendTo(busPath, hook), procNotFound);
  // What is not a socket of ours is not taken away either: the place stays blocked.
  EXPECT_EQ(BusServer::start(bus, hook, "iTunes", echoHandler()).status().code(), paramErr);
  struct stat info {};
  EXPECT_EQ(::lstat(bus.socketPath(hook).c_str(), &info), 0);
  EXPECT_TRUE(S_ISLNK(info.st_mode));
  listener.stop();
  // Connections reached the listener, but not one byte.
  ::fcntl(heard[0], F_SETFL, O_NONBLOCK);
  EXPECT_LE(::read(heard[0], &byte, 1), 0);
  ::close(heard[0]);
  ASSERT_EQ(::chmod(scratch.path().c_str(), 0700), 0);
}

// ---- Registration records ---------------------------------------------------------------------

TEST(BusIsolationRecordTest, RecordsThatAreNotPlainlyOursAreIgnored) {
  hostile::ScratchBus scratch;
  const BusDirectory bus = openBus(scratch.path() + "/bus");
  auto server = BusServer::start(bus, kEcho, "Echo", echoHandler());
  ASSERT_TRUE(server.ok());
  ASSERT_TRUE(bus.find(kEcho).has_value());
  const std::string record = bus.recordPath(kEcho);
  const std::string elsewhere = scratch.path() + "/record";
  std::filesystem::copy_file(record, elsewhere);
  EventManager lister({bus.path()});
  const auto listed = [&] {
    size_t n = 0;
    for (const RunningApplication& app : lister.runningApplications())
      n += app.signature == kEcho ? 1 : 0;
    return n;
  };
  ASSERT_EQ(listed(), 1u);

  struct Case {
    const char* what;
    std::function<bool()> plant;  // false when this machine cannot make the case
  };
  const std::vector<Case> cases = {
      {"a symbolic link to a good record",
       [&] {
         return ::unlink(record.c_str()) == 0 && ::symlink(elsewhere.c_str(), record.c_str()) == 0;
       }},
      {"a named pipe",
       [&] { return ::unlink(record.c_str()) == 0 && ::mkfifo(record.c_str(), 0600) == 0; }},
      {"a directory",
       [&] { return ::unlink(record.c_str()) == 0 && ::mkdir(record.c_str(), 0700) == 0; }},
      {"a good record of another user",
       [&] {
         if (::geteuid() != 0) return false;
         std::filesystem::copy_file(elsewhere, record,
                                    std::filesystem::copy_options::overwrite_existing);
         return ::chown(record.c_str(), kNobody, kNobody) == 0;
       }},
  };
  for (const Case& c : cases) {
    std::error_code ignored;
    std::filesystem::remove_all(record, ignored);
    std::filesystem::copy_file(elsewhere, record);
    if (!c.plant()) {
      std::cout << "skipped: " << c.what << "\n";
      continue;
    }
    EXPECT_FALSE(bus.readRecord(kEcho).ok()) << c.what;
    EXPECT_FALSE(bus.find(kEcho).has_value()) << c.what;
    EXPECT_TRUE(bus.applications().empty()) << c.what;
    EXPECT_EQ(listed(), 0u) << c.what;
  }
  std::error_code ignored;
  std::filesystem::remove_all(record, ignored);
  std::filesystem::copy_file(elsewhere, record);
  EXPECT_EQ(listed(), 1u);
}

// ---- Bounds ------------------------------------------------------------------------------------

TEST(BusBoundsTest, FramePayloadsUpTo64MiBAreTakenAndOneByteMoreIsRefused) {
  BusFrameHeader header = request(1);
  header.payloadLength = kBusMaxPayloadSize;
  EXPECT_TRUE(decodeBusFrameHeader(encodeBusFrameHeader(header)).ok());
  header.payloadLength = kBusMaxPayloadSize + 1;
  EXPECT_EQ(decodeBusFrameHeader(encodeBusFrameHeader(header)).status().code(), memFullErr);

  // The same edges over a socket, with a bound small enough to fill. A server takes a request
  // of exactly its bound and drops the peer that sends one byte more.
  hostile::ScratchBus scratch;
  const BusDirectory bus = openBus(scratch.path());
  constexpr uint32_t kBound = 4096;
  BusServer::Options options;
  options.maxPayload = kBound;
  auto server = BusServer::start(bus, kEcho, "Echo", echoHandler(), options);
  ASSERT_TRUE(server.ok());
  auto client = BusConnection::connect(bus.socketPath(kEcho), Clock::now() + 5s);
  ASSERT_TRUE(client.ok());
  auto atTheBound = (*client)->request(request(1), std::string(kBound, 'a'), Clock::now() + 5s);
  ASSERT_TRUE(atTheBound.ok()) << atTheBound.status().toString();
  EXPECT_EQ(atTheBound->size(), kBound);
  EXPECT_EQ((*client)
                ->request(request(2), std::string(kBound + 1, 'a'), Clock::now() + 5s)
                .status()
                .code(),
            connectionInvalid);
  EXPECT_EQ((*server)->droppedConnectionCount(), 1u);

  // A client takes a reply of exactly its bound and closes the connection that brings one byte
  // more; what it would send over its bound it refuses before writing anything.
  auto sized = BusServer::start(
      bus, fourCharCode("size"), "Sized",
      [](const BusFrameHeader&, std::string payload) -> std::optional<std::string> {
        size_t size = 0;
        std::from_chars(payload.data(), payload.data() + payload.size(), size);
        return std::string(std::min<size_t>(size, 1u << 20), 'r');
      });
  ASSERT_TRUE(sized.ok());
  const std::string sizedPath = bus.socketPath(fourCharCode("size"));
  auto small = BusConnection::connect(sizedPath, Clock::now() + 5s, kBound);
  ASSERT_TRUE(small.ok());
  auto reply = (*small)->request(request(1), std::to_string(kBound), Clock::now() + 5s);
  ASSERT_TRUE(reply.ok()) << reply.status().toString();
  EXPECT_EQ(reply->size(), kBound);
  EXPECT_EQ(
      (*small)->request(request(2), std::to_string(kBound + 1), Clock::now() + 5s).status().code(),
      connectionInvalid);
  EXPECT_FALSE((*small)->alive());
  auto fresh = BusConnection::connect(sizedPath, Clock::now() + 5s, kBound);
  ASSERT_TRUE(fresh.ok());
  EXPECT_EQ((*fresh)
                ->request(request(1), std::string(kBound + 1, '9'), Clock::now() + 5s)
                .status()
                .code(),
            memFullErr);
  EXPECT_TRUE((*fresh)->alive());
  auto after = (*fresh)->request(request(2), "12", Clock::now() + 5s);
  ASSERT_TRUE(after.ok()) << after.status().toString();
  EXPECT_EQ(*after, std::string(12, 'r'));
}

TEST(BusBoundsTest, AServerTakes128PeersAndClosesTheNext) {
  hostile::ScratchBus scratch;
  const BusDirectory bus = openBus(scratch.path());
  auto server = BusServer::start(bus, kEcho, "Echo", echoHandler());
  ASSERT_TRUE(server.ok());
  std::vector<std::shared_ptr<BusConnection>> peers;
  for (int i = 0; i < 128; ++i) {
    auto peer = BusConnection::connect(bus.socketPath(kEcho), Clock::now() + 5s);
    ASSERT_TRUE(peer.ok()) << i;
    // Each is accepted and served before the next comes.
    ASSERT_TRUE((*peer)->request(request(1), "x", Clock::now() + 10s).ok()) << i;
    peers.push_back(std::move(peer).value());
  }
  EXPECT_EQ((*server)->connectionCount(), 128u);
  auto extra = BusConnection::connect(bus.socketPath(kEcho), Clock::now() + 5s);
  ASSERT_TRUE(extra.ok());
  EXPECT_EQ((*extra)->request(request(1), "x", Clock::now() + 10s).status().code(),
            connectionInvalid);
  EXPECT_EQ((*server)->refusedPeerCount(), 1u);
  // One leaves, and a newcomer is served again.
  peers.pop_back();
  const auto until = Clock::now() + 5s;
  while ((*server)->connectionCount() == 128 && Clock::now() < until)
    std::this_thread::sleep_for(10ms);
  auto newcomer = BusConnection::connect(bus.socketPath(kEcho), Clock::now() + 5s);
  ASSERT_TRUE(newcomer.ok());
  EXPECT_TRUE((*newcomer)->request(request(1), "x", Clock::now() + 10s).ok());
}

TEST(BusBoundsTest, APeerThatLetsRepliesPileUpIsDropped) {
  hostile::ScratchBus scratch;
  const BusDirectory bus = openBus(scratch.path());
  BusServer::Options options;
  options.maxPayload = 1024;  // replies may pile up to twice a frame of this size
  auto server = BusServer::start(bus, kEcho, "Echo", echoHandler(), options);
  ASSERT_TRUE(server.ok());
  FileDescriptor raw(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = bus.socketPath(kEcho);
  std::memcpy(address.sun_path, path.data(), path.size());
  ASSERT_EQ(::connect(raw.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  timeval wait{5, 0};
  ::setsockopt(raw.get(), SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait);
  const std::string frame = hostile::frame(BusFrameKind::request, 1, std::string(1000, 'r'));
  // Requests, never a read: the kernel's buffers fill first, then the server's own.
  for (size_t sent = 0; sent < (size_t{64} << 20); sent += frame.size()) {
    if (::send(raw.get(), frame.data(), frame.size(), MSG_NOSIGNAL) <= 0) break;
    if ((*server)->droppedConnectionCount() != 0) break;
  }
  const auto until = Clock::now() + 5s;
  while ((*server)->droppedConnectionCount() == 0 && Clock::now() < until)
    std::this_thread::sleep_for(10ms);
  EXPECT_EQ((*server)->droppedConnectionCount(), 1u);
  auto other = BusConnection::connect(path, Clock::now() + 5s);
  ASSERT_TRUE(other.ok());
  EXPECT_TRUE((*other)->request(request(1), "still here", Clock::now() + 5s).ok());
}

TEST(BusBoundsTest, NamesRecordsAndDirectoryPathsAtTheirLimits) {
  hostile::ScratchBus scratch;
  const BusDirectory bus = openBus(scratch.path() + "/bus");

  // Names: 255 bytes, not 256.
  BusRegistration registration{kEcho, std::string(BusDirectory::kMaxNameLength, 'n'), 42, ""};
  EXPECT_TRUE(bus.writeRecord(registration).ok());
  EXPECT_EQ(bus.readRecord(kEcho)->name.size(), 255u);
  registration.name.push_back('n');
  EXPECT_EQ(bus.writeRecord(registration).code(), paramErr);
  EventManager manager({bus.path()});
  EXPECT_TRUE(manager.registerApplication(fourCharCode("n255"), std::string(255, 'x')).ok());
  EXPECT_EQ(
      manager.registerApplication(fourCharCode("n256"), std::string(256, 'x')).status().code(),
      paramErr);

  // Records: 4,096 bytes, not 4,097 (an unknown key pads the record to size).
  const std::string head = "rvitunes-bus-registration 1\nsignature 6563686f\nname Echo\npid 7\n";
  for (const size_t size : {size_t{4096}, size_t{4097}}) {
    const std::string pad = "x " + std::string(size - head.size() - 3, 'p') + "\n";
    std::ofstream(bus.recordPath(kEcho), std::ios::trunc | std::ios::binary) << head << pad;
    ASSERT_EQ(std::filesystem::file_size(bus.recordPath(kEcho)), size);
    auto read = bus.readRecord(kEcho);
    EXPECT_EQ(read.ok(), size == 4096) << size << " " << read.status().toString();
  }

  // Directory paths: 70 bytes, not 71, so that every entry's name still fits a socket address.
  for (const size_t length : {size_t{70}, size_t{71}}) {
    const std::string path =
        scratch.path() + "/" + std::string(length - scratch.path().size() - 1, 'd');
    ASSERT_EQ(path.size(), length);
    auto opened = BusDirectory::open(path);
    EXPECT_EQ(opened.ok(), length == 70) << length << " " << opened.status().toString();
    if (length == 71) {
      EXPECT_EQ(opened.status().code(), paramErr);
    }
  }
  const std::string longest =
      scratch.path() + "/" + std::string(70 - scratch.path().size() - 1, 'd');
  auto server = BusServer::start(openBus(longest), 0xFFFFFFFFu, "Longest", echoHandler());
  ASSERT_TRUE(server.ok()) << server.status().toString();
  EXPECT_EQ(sendTo(longest, 0xFFFFFFFFu), noErr);
}

}  // namespace
}  // namespace rvitunes::ae
