// Settings under disk faults: every fault of an atomic replacement, a kill at every call, a real
// read-only folder and a real full disk. The settings already saved must stay readable and
// whole, the failing change must be reported and leave memory as it was, and the same change
// must go through once the fault has passed.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "PlatformTestSupport.h"
#include "rvitunes/platform/UserDefaults.h"
#include "rvitunes/plist/PropertyList.h"
#include "support/DiskFaults.h"

namespace rvitunes::platform {
namespace {

using plist::Value;
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
using testing::readText;
using testing::TemporaryDirectory;

constexpr const char* kDomain = "com.example.host";
constexpr const char* kPathKey = "iTunesLibraryXMLPath";
constexpr const char* kOldPath = "/home/u/Music/iTunes/iTunes Music Library.xml";
constexpr const char* kNewPath = "/media/music/iTunes/iTunes Music Library.xml";

// Saves the settings every scenario starts from; answers the file's bytes. The file is dated
// in the past, so that an instance trusts what it read instead of reading a fresh file again:
// memory must then be right by itself.
std::string saveInitialSettings(const std::string& folder) {
  UserDefaults defaults(kDomain, folder);
  EXPECT_TRUE(defaults.setStringForKey(kOldPath, kPathKey).ok());
  EXPECT_TRUE(defaults.setObjectForKey(Value::integer(3), "WindowCount").ok());
  const struct timespec past[2] = {{1600000000, 0}, {1600000000, 0}};
  EXPECT_EQ(::utimensat(AT_FDCWD, defaults.path().c_str(), past, 0), 0);
  return readText(defaults.path());
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

TEST(UserDefaultsFaultTest, EveryFaultKeepsTheSettingsAndTheSameChangeWorksLater) {
  std::vector<DiskFault> faults = atomicWriteFaults();
  for (int error : {EACCES, EROFS, ENOSPC, EDQUOT})  // making a missing settings folder
    faults.push_back({FsOp::kMakeDirectories, error});

  for (const DiskFault& fault : faults) {
    SCOPED_TRACE(fault.describe());
    TemporaryDirectory dir;
    const std::string folder = dir.file("rvitunes");
    const bool fresh = fault.op == FsOp::kMakeDirectories;
    const std::string before = fresh ? "" : saveInitialSettings(folder);

    FaultInjectingFileSystem fs(fault);
    UserDefaults defaults(kDomain, folder, fs);
    const Status status = defaults.setStringForKey(kNewPath, kPathKey);
    ASSERT_EQ(fs.injected(), 1);
    EXPECT_EQ(status.code(), expectedStatusFor(fault.error)) << status.toString();

    // A failed directory flush comes after the new file is in place; memory follows the disk.
    const bool replaced = fault.op == FsOp::kSyncDirectory;
    const std::optional<std::string> expected =
        replaced ? kNewPath : (fresh ? std::nullopt : std::optional<std::string>(kOldPath));
    EXPECT_EQ(defaults.stringForKey(kPathKey), expected);
    EXPECT_EQ(UserDefaults(kDomain, folder).stringForKey(kPathKey), expected);
    if (fresh) {
      EXPECT_FALSE(std::filesystem::exists(folder));
    } else {
      if (!replaced) {
        EXPECT_EQ(readText(defaults.path()), before);
      }
      EXPECT_EQ(entriesOf(folder), std::set<std::string>{"com.example.host.plist"});
      EXPECT_EQ(defaults.objectForKey("WindowCount"), Value::integer(3));
    }
    EXPECT_EQ(defaults.lastLoadProblem(), std::nullopt);

    // The fault has passed: the same change goes through and keeps the other keys.
    const Status retried = defaults.setStringForKey(kNewPath, kPathKey);
    ASSERT_TRUE(retried.ok()) << retried.toString();
    UserDefaults reader(kDomain, folder);
    EXPECT_EQ(reader.stringForKey(kPathKey), kNewPath);
    if (!fresh) {
      EXPECT_EQ(reader.objectForKey("WindowCount"), Value::integer(3));
    }
    EXPECT_EQ(entriesOf(folder), std::set<std::string>{"com.example.host.plist"});
  }
}

TEST(UserDefaultsFaultTest, AFailedRemovalKeepsTheKey) {
  TemporaryDirectory dir;
  const std::string before = saveInitialSettings(dir.path());
  FaultInjectingFileSystem fs({FsOp::kRename, EROFS});
  UserDefaults defaults(kDomain, dir.path(), fs);
  EXPECT_EQ(defaults.removeObjectForKey(kPathKey).code(), wrPermErr);
  EXPECT_EQ(defaults.stringForKey(kPathKey), kOldPath);
  EXPECT_EQ(readText(defaults.path()), before);
  ASSERT_TRUE(defaults.removeObjectForKey(kPathKey).ok());
  EXPECT_EQ(UserDefaults(kDomain, dir.path()).stringForKey(kPathKey), std::nullopt);
}

TEST(UserDefaultsFaultTest, AKillAtEveryCallLeavesSettingsThatReadCleanly) {
  TemporaryDirectory dir;
  const std::string folder = dir.file("rvitunes");
  const std::string file = folder + "/com.example.host.plist";
  const std::string before = saveInitialSettings(folder);
  // A long value, so that a torn temporary is a real fragment of a settings file.
  const std::string longPath = std::string(kNewPath) + std::string(4000, 'x');
  FaultInjectingFileSystem recorder;
  ASSERT_TRUE(UserDefaults(kDomain, folder, recorder).setStringForKey(longPath, kPathKey).ok());
  const std::string after = readText(file);
  const std::vector<KillPoint> points = killPoints(recorder.calls());
  ASSERT_FALSE(points.empty()) << "the recorded write has no rename";

  for (const KillPoint& point : points) {
    SCOPED_TRACE(point.label);
    std::filesystem::remove_all(folder);
    ASSERT_EQ(saveInitialSettings(folder), before);
    {
      FaultInjectingFileSystem dying;
      dying.dieAtCall(point.call, point.torn);
      (void)UserDefaults(kDomain, folder, dying).setStringForKey(longPath, kPathKey);
      ASSERT_TRUE(dying.dead());
    }

    // A new process reads whole settings: the old ones, or the new ones once renamed.
    const bool renamed = point.afterRename;
    EXPECT_EQ(readText(file), renamed ? after : before);
    UserDefaults reader(kDomain, folder);
    EXPECT_EQ(reader.stringForKey(kPathKey), renamed ? longPath : kOldPath);
    EXPECT_EQ(reader.objectForKey("WindowCount"), Value::integer(3));
    EXPECT_EQ(reader.lastLoadProblem(), std::nullopt);
    std::set<std::string> left = entriesOf(folder);
    left.erase("com.example.host.plist");
    ASSERT_LE(left.size(), 1u);
    if (!left.empty()) {
      EXPECT_TRUE(left.begin()->starts_with(".com.example.host.plist."));
    }

    // Its next change goes through beside the leftover, which is ignored.
    ASSERT_TRUE(reader.setObjectForKey(Value::integer(4), "WindowCount").ok());
    UserDefaults later(kDomain, folder);
    EXPECT_EQ(later.objectForKey("WindowCount"), Value::integer(4));
    EXPECT_EQ(later.stringForKey(kPathKey), renamed ? longPath : kOldPath);
    std::set<std::string> leftAfter = entriesOf(folder);
    leftAfter.erase("com.example.host.plist");
    EXPECT_EQ(leftAfter, left);
  }
}

TEST(UserDefaultsFaultTest, ARealReadOnlyFolderRefusesChangesUntilItIsWritable) {
  TemporaryDirectory dir;
  const std::string folder = dir.file("rvitunes");
  const std::string before = saveInitialSettings(folder);
  const std::string handedOver = handOverToUnprivileged(dir.path());
  if (!handedOver.empty()) GTEST_SKIP() << handedOver;

  const auto outcome = runInChild([&]() -> std::string {
    const std::string probe = dropPrivilegesAndProbe(folder);
    if (!probe.empty()) return probe;
    ChildChecks c;
    c.check(::chmod(folder.c_str(), 0500) == 0, "chmod 0500");
    UserDefaults defaults(kDomain, folder);
    const Status refused = defaults.setStringForKey(kNewPath, kPathKey);
    c.check(refused.code() == wrPermErr, "the change answered " + refused.toString());
    c.check(defaults.stringForKey(kPathKey) == kOldPath, "memory changed");
    c.check(readText(defaults.path()) == before, "the file changed");
    c.check(entriesOf(folder).size() == 1, "something was left in the folder");
    // A settings folder that would have to be made inside it.
    UserDefaults nested(kDomain, folder + "/nested");
    c.check(nested.setStringForKey(kNewPath, kPathKey).code() == wrPermErr, "nested change");
    c.check(!std::filesystem::exists(folder + "/nested"), "the nested folder was made");

    c.check(::chmod(folder.c_str(), 0700) == 0, "chmod 0700");
    const Status retried = defaults.setStringForKey(kNewPath, kPathKey);
    c.check(retried.ok(), "the retry answered " + retried.toString());
    c.check(UserDefaults(kDomain, folder).stringForKey(kPathKey) == kNewPath, "not saved");
    c.check(defaults.path() == folder + "/com.example.host.plist", "path");
    c.check(::access(defaults.path().c_str(), R_OK) == 0, "unreadable");
    return c.report();
  });
  if (outcome.skipped) GTEST_SKIP() << outcome.failure;
  EXPECT_EQ(outcome.failure, "");
}

TEST(UserDefaultsFaultTest, ARealFullDiskRefusesChangesUntilThereIsRoom) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting a small tmpfs needs root";
  TemporaryDirectory dir;
  const auto outcome = runInChild([&]() -> std::string {
    const std::string mounted = mountPrivateTmpfs(dir.path(), "64k");
    if (!mounted.empty()) return mounted;
    ChildChecks c;
    const std::string folder = dir.file("rvitunes");
    const std::string filler = dir.file("filler");
    const std::string before = saveInitialSettings(folder);
    const std::optional<size_t> filled = fillDisk(filler);
    if (!filled) return "SKIP: the tmpfs could not be filled";

    UserDefaults defaults(kDomain, folder);
    const std::string large = std::string(kNewPath) + std::string(20000, 'y');
    for (int attempt = 0; attempt < 2; ++attempt) {
      const Status full = defaults.setStringForKey(large, kPathKey);
      c.check(full.code() == dskFulErr,
              "attempt " + std::to_string(attempt) + " answered " + full.toString());
      c.check(defaults.stringForKey(kPathKey) == kOldPath, "memory changed");
      c.check(readText(defaults.path()) == before, "the file changed");
      c.check(entriesOf(folder).size() == 1, "a temporary was left");
      // Room for part of the new file: the second attempt stops in the middle of its write.
      c.check(::truncate(filler.c_str(), static_cast<off_t>(*filled) - 8192) == 0, "truncate");
    }
    c.check(::unlink(filler.c_str()) == 0, "unlink");
    const Status retried = defaults.setStringForKey(large, kPathKey);
    c.check(retried.ok(), "the retry answered " + retried.toString());
    c.check(UserDefaults(kDomain, folder).stringForKey(kPathKey) == large, "not saved");
    return c.report();
  });
  if (outcome.skipped) GTEST_SKIP() << outcome.failure;
  EXPECT_EQ(outcome.failure, "");
}

}  // namespace
}  // namespace rvitunes::platform
