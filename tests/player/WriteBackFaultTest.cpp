// The player's write-back of its library file under disk faults: every fault of an atomic
// replacement, a kill at every call, a real read-only folder and a real full disk. The library
// file must stay readable and whole, the failure must be reported (status and system log), the
// change must stay in memory and pending, and the write must succeed once the fault passes.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "HandlerTestSupport.h"
#include "PlayerTestSupport.h"
#include "rvitunes/base/CapturingLogSink.h"
#include "rvitunes/player/Handler.h"
#include "rvitunes/player/Library.h"
#include "rvitunes/player/PlayerModel.h"
#include "support/DiskFaults.h"
#include "support/SystemLogCapture.h"

namespace rvitunes::player {
namespace {

using namespace std::chrono_literals;
using rvitunes::testing::support::atomicWriteFaults;
using rvitunes::testing::support::DiskFault;
using rvitunes::testing::support::dropPrivilegesAndProbe;
using rvitunes::testing::support::entriesOf;
using rvitunes::testing::support::expectedStatusFor;
using rvitunes::testing::support::FaultInjectingFileSystem;
using rvitunes::testing::support::fillDisk;
using rvitunes::testing::support::FsOp;
using rvitunes::testing::support::handOverToUnprivileged;
using rvitunes::testing::support::KillPoint;
using rvitunes::testing::support::killPoints;
using rvitunes::testing::support::mountPrivateTmpfs;
using rvitunes::testing::support::runInChild;
using testing::readWhole;

constexpr DatabaseId kTrack = 2582;
constexpr const char* kLibraryName = "iTunes Music Library.xml";

using rvitunes::testing::support::SystemLogCapture;

// A player whose write-back runs only when flushed (unless `delay` says otherwise).
std::unique_ptr<PlayerModel> startPlayer(const std::string& library, FileSystem* fs,
                                         std::chrono::milliseconds delay = 1h,
                                         std::chrono::milliseconds maxDelay = 1h) {
  PlayerOptions options;
  options.writeBackDelay = delay;
  options.writeBackMaxDelay = maxDelay;
  options.fileSystem = fs;
  auto model = std::make_unique<PlayerModel>(options);
  if (!model->load(library).ok()) return nullptr;
  return model;
}

// The change every scenario makes: a track's name, as a 'setd' event would.
Status renameTrack(PlayerModel& model, const std::string& name) {
  return model.library().setTrackProperty(kTrack, kPropName, ae::Descriptor::makeUnicodeText(name));
}

std::optional<std::string> trackNameOnDisk(const std::string& library) {
  Library reread;
  if (!reread.load(library).ok()) return std::nullopt;
  return reread.trackById(kTrack)->name();
}

// In a child process, EXPECT does not reach the parent: failures are collected as text.
class ChildChecks {
 public:
  void check(bool condition, const std::string& what) {
    if (!condition) failures_ += what + "; ";
  }
  std::string report() const { return failures_; }

 private:
  std::string failures_;
};

class WriteBackFaultTest : public ::testing::Test {
 protected:
  void SetUp() override {
    library_ = testing::copySampleLibrary(folder_);
    original_ = readWhole(library_);
  }
  void resetLibrary() {
    std::filesystem::remove_all(folder_.path());
    std::filesystem::create_directory(folder_.path());
    SetUp();
  }
  std::set<std::string> strays() const {
    std::set<std::string> names = entriesOf(folder_.path());
    names.erase(kLibraryName);
    return names;
  }

  testing::ScratchFolder folder_;
  std::string library_;
  std::string original_;
};

TEST_F(WriteBackFaultTest, EveryFaultKeepsTheLibraryFileAndTheWriteSucceedsLater) {
  SystemLogCapture log;
  for (const DiskFault& fault : atomicWriteFaults()) {
    SCOPED_TRACE(fault.describe());
    resetLibrary();
    log.sink->clear();
    FaultInjectingFileSystem fs(fault);
    auto model = startPlayer(library_, &fs);
    ASSERT_NE(model, nullptr);
    ASSERT_TRUE(renameTrack(*model, "Changed").ok());
    const Result<std::string> expected = model->library().serialize();
    ASSERT_TRUE(expected.ok());

    LibraryWriteBack& writeBack = *model->writeBack();
    const Status status = writeBack.flush();
    ASSERT_EQ(fs.injected(), 1);
    EXPECT_EQ(status.code(), expectedStatusFor(fault.error)) << status.toString();
    EXPECT_EQ(writeBack.lastStatus().code(), status.code());
    EXPECT_TRUE(log.sink->contains("Unable to write the library file"));
    EXPECT_EQ(writeBack.writeCount(), 0u);
    // Only the directory flush comes after the new file is in place.
    const bool replaced = fault.op == FsOp::kSyncDirectory;
    EXPECT_TRUE(readWhole(library_) == (replaced ? *expected : original_));
    EXPECT_TRUE(strays().empty()) << *strays().begin();
    // The change stays in memory and is still to be written.
    EXPECT_EQ(model->library().trackById(kTrack)->name(), "Changed");
    EXPECT_TRUE(writeBack.pending());

    const Status retried = writeBack.flush();
    ASSERT_TRUE(retried.ok()) << retried.toString();
    EXPECT_FALSE(writeBack.pending());
    EXPECT_TRUE(writeBack.lastStatus().ok());
    EXPECT_TRUE(readWhole(library_) == *expected);
    EXPECT_EQ(trackNameOnDisk(library_), "Changed");
    EXPECT_TRUE(strays().empty());
  }
}

TEST_F(WriteBackFaultTest, AFailedWriteIsRetriedWithoutBeingAsked) {
  SystemLogCapture log;
  FaultInjectingFileSystem fs(
      {FsOp::kWriteAll, ENOSPC, rvitunes::testing::support::ShortWrite::kHalf});
  auto model = startPlayer(library_, &fs, 10ms, 200ms);
  ASSERT_NE(model, nullptr);
  ASSERT_TRUE(renameTrack(*model, "Retried").ok());
  LibraryWriteBack& writeBack = *model->writeBack();
  for (int i = 0; i < 1000 && writeBack.writeCount() == 0; ++i)
    std::this_thread::sleep_for(10ms);
  EXPECT_EQ(writeBack.writeCount(), 1u);
  EXPECT_EQ(fs.injected(), 1);
  EXPECT_TRUE(log.sink->contains("Unable to write the library file"));
  EXPECT_TRUE(writeBack.lastStatus().ok());
  EXPECT_EQ(trackNameOnDisk(library_), "Retried");
  EXPECT_TRUE(strays().empty());
}

// Quitting while the library cannot be written would lose the change: the quit event answers
// the error and the player stays up; the next quit, once the disk is back, writes and ends it.
TEST_F(WriteBackFaultTest, QuitRefusesToLoseAChangeItCannotWrite) {
  SystemLogCapture log;
  FaultInjectingFileSystem fs({FsOp::kRename, ENOSPC});
  std::shared_ptr<PlayerModel> model = startPlayer(library_, &fs);
  ASSERT_NE(model, nullptr);
  ASSERT_TRUE(renameTrack(*model, "Kept").ok());
  int quits = 0;
  PlayerHandlers::Options options;
  options.onQuit = [&] { ++quits; };
  PlayerHandlers handlers(model, options);

  const ae::Descriptor quit = testing::playerEvent(ae::kCoreEventClass, ae::kAEQuitApplication, "");
  ae::Descriptor reply = ae::makeReplyEvent(quit);
  EXPECT_EQ(handlers.handle(quit, reply), expectedStatusFor(ENOSPC));
  EXPECT_FALSE(handlers.quitRequested());
  EXPECT_EQ(quits, 0);
  EXPECT_TRUE(log.sink->contains("not quitting"));
  EXPECT_TRUE(readWhole(library_) == original_);
  EXPECT_TRUE(model->writeBack()->pending());

  reply = ae::makeReplyEvent(quit);
  EXPECT_EQ(handlers.handle(quit, reply), noErr);
  EXPECT_TRUE(handlers.quitRequested());
  EXPECT_EQ(quits, 1);
  EXPECT_EQ(trackNameOnDisk(library_), "Kept");
}

TEST_F(WriteBackFaultTest, AKillAtEveryCallLeavesAWholeLibrary) {
  // The calls one write-back makes, and the bytes it writes.
  FaultInjectingFileSystem recorder;
  std::string changed;
  {
    auto model = startPlayer(library_, &recorder);
    ASSERT_NE(model, nullptr);
    ASSERT_TRUE(renameTrack(*model, "Killed").ok());
    ASSERT_TRUE(model->writeBack()->flush().ok());
    changed = readWhole(library_);
  }
  const std::vector<KillPoint> points = killPoints(recorder.calls());
  ASSERT_FALSE(points.empty()) << "the recorded write has no rename";

  for (const KillPoint& point : points) {
    SCOPED_TRACE(point.label);
    resetLibrary();
    {
      SystemLogCapture quiet;
      FaultInjectingFileSystem dying;
      dying.dieAtCall(point.call, point.torn);
      auto model = startPlayer(library_, &dying);
      ASSERT_NE(model, nullptr);
      ASSERT_TRUE(renameTrack(*model, "Killed").ok());
      (void)model->writeBack()->flush();
      ASSERT_TRUE(dying.dead());
    }  // nothing the dead player still tries reaches the disk

    // What the next start finds: the old file, or the new one once the rename was done.
    const bool renamed = point.afterRename;
    EXPECT_TRUE(readWhole(library_) == (renamed ? changed : original_));
    const std::set<std::string> left = strays();
    ASSERT_LE(left.size(), 1u);
    if (!left.empty()) {
      EXPECT_TRUE(left.begin()->starts_with(".iTunes Music Library.xml.")) << *left.begin();
      EXPECT_TRUE(changed.starts_with(readWhole(folder_ / *left.begin())));
    }

    // The next player loads it, ignores the leftover and writes its own change.
    auto next = startPlayer(library_, nullptr);
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(next->library().trackById(kTrack)->name(), renamed ? "Killed" : "Señorita");
    ASSERT_TRUE(next->library()
                    .setTrackProperty(kTrack, kPropPlayedCount, ae::Descriptor::makeSInt32(9))
                    .ok());
    ASSERT_TRUE(next->writeBack()->flush().ok());
    Library reread;
    ASSERT_TRUE(reread.load(library_).ok());
    EXPECT_EQ(reread.trackById(kTrack)->integer("Play Count"), 9);
    EXPECT_EQ(strays(), left);
  }
}

TEST_F(WriteBackFaultTest, ARealReadOnlyFolderKeepsTheLibraryUntilItIsWritable) {
  const std::string music = folder_ / "Music";
  std::filesystem::create_directory(music);
  const std::string library = music + "/" + kLibraryName;
  std::filesystem::rename(library_, library);
  const std::string handedOver = handOverToUnprivileged(folder_.path());
  if (!handedOver.empty()) GTEST_SKIP() << handedOver;

  const auto outcome = runInChild([&]() -> std::string {
    const std::string probe = dropPrivilegesAndProbe(music);
    if (!probe.empty()) return probe;
    ChildChecks c;
    SystemLogCapture log;
    c.check(::chmod(music.c_str(), 0500) == 0, "chmod 0500");
    auto model = startPlayer(library, nullptr);
    if (!model) return "the library did not load";
    c.check(renameTrack(*model, "Read-only").ok(), "rename");
    const Status refused = model->writeBack()->flush();
    c.check(refused.code() == wrPermErr, "the write answered " + refused.toString());
    c.check(log.sink->contains("Unable to write the library file"), "no log line");
    c.check(readWhole(library) == original_, "the file changed");
    c.check(entriesOf(music).size() == 1, "something was left in the folder");
    c.check(model->writeBack()->pending(), "the change is no longer pending");

    c.check(::chmod(music.c_str(), 0700) == 0, "chmod 0700");
    const Status retried = model->writeBack()->flush();
    c.check(retried.ok(), "the retry answered " + retried.toString());
    c.check(trackNameOnDisk(library) == "Read-only", "not written");
    return c.report();
  });
  if (outcome.skipped) GTEST_SKIP() << outcome.failure;
  EXPECT_EQ(outcome.failure, "");
}

// A folder the player may write but not list (0300): the new file goes in place and the write
// counts as done, instead of failing at the directory flush and writing again every few seconds.
TEST_F(WriteBackFaultTest, AWriteOnlyFolderTakesTheWriteOnce) {
  const std::string music = folder_ / "Music";
  std::filesystem::create_directory(music);
  const std::string library = music + "/" + kLibraryName;
  std::filesystem::rename(library_, library);
  const std::string handedOver = handOverToUnprivileged(folder_.path());
  if (!handedOver.empty()) GTEST_SKIP() << handedOver;

  const auto outcome = runInChild([&]() -> std::string {
    const std::string probe = dropPrivilegesAndProbe(music);
    if (!probe.empty()) return probe;
    ChildChecks c;
    auto model = startPlayer(library, nullptr);
    if (!model) return "the library did not load";
    c.check(::chmod(music.c_str(), 0300) == 0, "chmod 0300");
    c.check(renameTrack(*model, "Write-only").ok(), "rename");
    const Status written = model->writeBack()->flush();
    c.check(written.ok(), "the write answered " + written.toString());
    c.check(!model->writeBack()->pending(), "the change is still pending");
    c.check(::chmod(music.c_str(), 0700) == 0, "chmod 0700");
    c.check(trackNameOnDisk(library) == "Write-only", "not written");
    c.check(entriesOf(music).size() == 1, "something was left in the folder");
    return c.report();
  });
  if (outcome.skipped) GTEST_SKIP() << outcome.failure;
  EXPECT_EQ(outcome.failure, "");
}

TEST_F(WriteBackFaultTest, ARealFullDiskKeepsTheLibraryUntilThereIsRoom) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting a small tmpfs needs root";
  const std::string mountPoint = folder_ / "disk";
  std::filesystem::create_directory(mountPoint);
  const auto outcome = runInChild([&]() -> std::string {
    const std::string mounted = mountPrivateTmpfs(mountPoint, "256k");
    if (!mounted.empty()) return mounted;
    ChildChecks c;
    SystemLogCapture log;
    const std::string library = mountPoint + "/" + kLibraryName;
    const std::string filler = mountPoint + "/filler";
    c.check(writeFileAtomically(FileSystem::defaultFileSystem(), library, original_).ok(), "copy");
    const std::optional<size_t> filled = fillDisk(filler);
    if (!filled) return "SKIP: the tmpfs could not be filled";

    auto model = startPlayer(library, nullptr);
    if (!model) return "the library did not load";
    c.check(renameTrack(*model, "Full").ok(), "rename");
    for (int attempt = 0; attempt < 2; ++attempt) {
      const Status full = model->writeBack()->flush();
      c.check(full.code() == dskFulErr,
              "attempt " + std::to_string(attempt) + " answered " + full.toString());
      c.check(readWhole(library) == original_, "the file changed");
      c.check(entriesOf(mountPoint).size() == 2, "a temporary was left");
      c.check(model->writeBack()->pending(), "the change is no longer pending");
      // Room for part of the new file: the second attempt stops in the middle of its write.
      c.check(::truncate(filler.c_str(), static_cast<off_t>(*filled) - 16384) == 0, "truncate");
    }
    c.check(log.sink->contains("Unable to write the library file"), "no log line");
    c.check(::unlink(filler.c_str()) == 0, "unlink");
    const Status retried = model->writeBack()->flush();
    c.check(retried.ok(), "the retry answered " + retried.toString());
    c.check(trackNameOnDisk(library) == "Full", "not written");
    return c.report();
  });
  if (outcome.skipped) GTEST_SKIP() << outcome.failure;
  EXPECT_EQ(outcome.failure, "");
}

}  // namespace
}  // namespace rvitunes::player
