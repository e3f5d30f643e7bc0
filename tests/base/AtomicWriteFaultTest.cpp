// writeFileAtomically under every disk fault it can meet and under a kill at every call it
// makes: the file it replaces stays whole, the failure is reported, and the next write works.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>
#include <string>
#include <vector>

#include "rvitunes/base/FileSystem.h"
#include "support/DiskFaults.h"
#include "support/ScratchFolder.h"

namespace rvitunes {
namespace {

using testing::support::atomicWriteFaults;
using testing::support::DiskFault;
using testing::support::entriesOf;
using testing::support::expectedStatusFor;
using testing::support::FaultInjectingFileSystem;
using testing::support::FsOp;
using testing::support::KillPoint;
using testing::support::killPoints;
using testing::support::ScratchFolder;

std::string readText(const std::string& path) {
  auto bytes = FileSystem::defaultFileSystem().readFile(path, 1 << 20);
  return bytes ? *bytes : "<unreadable: " + bytes.status().toString() + ">";
}

// Large enough that half a write is a real fragment, with a NUL to catch text-only handling.
std::string newContent() {
  std::string content(10000, 'n');
  content[5000] = '\0';
  return content;
}

class AtomicWriteFaultTest : public ::testing::Test {
 protected:
  void SetUp() override {
    target_ = folder_.write("Library.xml", kOld);
    ASSERT_EQ(::chmod(target_.c_str(), 0640), 0);
  }
  void resetTarget() {
    std::filesystem::remove_all(folder_.path());
    std::filesystem::create_directory(folder_.path());
    SetUp();
  }
  // The names beside the target.
  std::set<std::string> strays() const {
    std::set<std::string> names = entriesOf(folder_.path());
    names.erase("Library.xml");
    return names;
  }

  static constexpr const char* kOld = "old content\n";
  ScratchFolder folder_{"rvitunes-atomic"};
  std::string target_;
};

TEST_F(AtomicWriteFaultTest, EveryFaultLeavesTheOldFileAndTheNextWriteSucceeds) {
  const std::string content = newContent();
  for (const DiskFault& fault : atomicWriteFaults()) {
    SCOPED_TRACE(fault.describe());
    resetTarget();
    FaultInjectingFileSystem fs(fault);
    const Status status = writeFileAtomically(fs, target_, content);
    ASSERT_EQ(fs.injected(), 1);
    EXPECT_EQ(status.code(), expectedStatusFor(fault.error)) << status.toString();
    EXPECT_NE(status.message().find("\"" + target_ + "\""), std::string::npos) << status.message();
    EXPECT_NE(status.message().find("injected"), std::string::npos) << status.message();
    // Only the directory flush comes after the new file is in place.
    const bool replaced = fault.op == FsOp::kSyncDirectory;
    EXPECT_TRUE(readText(target_) == (replaced ? content : std::string(kOld)));
    EXPECT_EQ(FileSystem::defaultFileSystem().permissions(target_), 0640u);
    EXPECT_TRUE(strays().empty()) << *strays().begin();

    // The fault has passed: the same call now goes through.
    const Status retried = writeFileAtomically(fs, target_, content);
    EXPECT_TRUE(retried.ok()) << retried.toString();
    EXPECT_TRUE(readText(target_) == content);
    EXPECT_EQ(FileSystem::defaultFileSystem().permissions(target_), 0640u);
    EXPECT_TRUE(strays().empty());
  }
}

TEST_F(AtomicWriteFaultTest, ATemporaryThatCannotBeRemovedIsReportedAsTheFirstFailure) {
  // A folder that turns read-only between the create and the rename: the temporary stays.
  FaultInjectingFileSystem fs;
  fs.addFault({FsOp::kRename, EROFS});
  fs.addFault({FsOp::kRemoveFile, EROFS});
  const Status status = writeFileAtomically(fs, target_, "new");
  EXPECT_EQ(status.code(), wrPermErr);
  EXPECT_NE(status.message().find("rename"), std::string::npos) << status.message();
  EXPECT_EQ(readText(target_), kOld);
  const std::set<std::string> left = strays();
  ASSERT_EQ(left.size(), 1u);
  EXPECT_TRUE(left.begin()->starts_with(".Library.xml.")) << *left.begin();

  ASSERT_TRUE(writeFileAtomically(fs, target_, "newer").ok());
  EXPECT_EQ(readText(target_), "newer");
  EXPECT_EQ(strays(), left);  // another writer's leftover is never touched
}

TEST_F(AtomicWriteFaultTest, AKillAtEveryCallLeavesTheOldOrTheNewFileWhole) {
  const std::string content = newContent();
  FaultInjectingFileSystem recorder;
  ASSERT_TRUE(writeFileAtomically(recorder, target_, content).ok());
  const std::vector<KillPoint> points = killPoints(recorder.calls());
  ASSERT_FALSE(points.empty()) << "the recorded write has no rename";

  for (const KillPoint& point : points) {
    SCOPED_TRACE(point.label);
    resetTarget();
    FaultInjectingFileSystem dying;
    dying.dieAtCall(point.call, point.torn);
    (void)writeFileAtomically(dying, target_, content);
    ASSERT_TRUE(dying.dead());

    // What a fresh process finds: the old file, or the new one once the rename was done.
    const bool renamed = point.afterRename;
    EXPECT_TRUE(readText(target_) == (renamed ? content : std::string(kOld)));
    const std::set<std::string> left = strays();
    ASSERT_LE(left.size(), 1u);
    std::string strayBytes;
    if (!left.empty()) {
      EXPECT_TRUE(left.begin()->starts_with(".Library.xml.")) << *left.begin();
      strayBytes = readText(folder_ / *left.begin());
      EXPECT_TRUE(content.starts_with(strayBytes));  // a prefix of what was being written
    }

    // The next writer ignores the leftover and replaces the file.
    ASSERT_TRUE(writeFileAtomically(FileSystem::defaultFileSystem(), target_, "next").ok());
    EXPECT_EQ(readText(target_), "next");
    EXPECT_EQ(strays(), left);
    if (!left.empty()) {
      EXPECT_TRUE(readText(folder_ / *left.begin()) == strayBytes);
    }
  }
}

}  // namespace
}  // namespace rvitunes
