#include "rvitunes/player/LibraryWriteBack.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <sstream>
#include <thread>

#include "PlayerTestSupport.h"
#include "rvitunes/base/CapturingLogSink.h"
#include "rvitunes/player/Library.h"
#include "rvitunes/player/PlayerModel.h"
#include "rvitunes/plist/PropertyList.h"

namespace rvitunes::player {
namespace {

using namespace std::chrono_literals;
using testing::readWhole;

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

// Waits until `done` holds, for at most ten seconds.
template <class F>
bool eventually(F done) {
  for (int i = 0; i < 1000; ++i) {
    if (done()) return true;
    std::this_thread::sleep_for(10ms);
  }
  return done();
}

// The default file system with a hook at each step of an atomic replacement.
class HookedFileSystem : public FileSystem {
 public:
  enum class Step { kWrite, kRename, kAfterRename };
  std::function<Status(Step, int fd, std::string_view bytes)> hook;

  Result<std::string> readFile(const std::string& p, uint64_t max) override {
    return base().readFile(p, max);
  }
  bool fileExists(const std::string& p) override { return base().fileExists(p); }
  bool isDirectory(const std::string& p) override { return base().isDirectory(p); }
  std::optional<Date> modificationDate(const std::string& p) override {
    return base().modificationDate(p);
  }
  std::optional<uint32_t> permissions(const std::string& p) override {
    return base().permissions(p);
  }
  Result<TemporaryFile> createTemporary(const std::string& dir, const std::string& prefix,
                                        std::optional<uint32_t> mode) override {
    return base().createTemporary(dir, prefix, mode);
  }
  Status writeAll(int fd, std::string_view bytes) override {
    if (hook) {
      Status status = hook(Step::kWrite, fd, bytes);
      if (!status.ok()) return status;
    }
    return base().writeAll(fd, bytes);
  }
  Status syncFile(int fd) override { return base().syncFile(fd); }
  Status closeFile(int fd) override { return base().closeFile(fd); }
  Status rename(const std::string& from, const std::string& to) override {
    if (hook) {
      Status status = hook(Step::kRename, -1, {});
      if (!status.ok()) return status;
    }
    Status status = base().rename(from, to);
    if (hook && status.ok()) hook(Step::kAfterRename, -1, {});
    return status;
  }
  Status removeFile(const std::string& p) override { return base().removeFile(p); }
  Status syncDirectory(const std::string& d) override { return base().syncDirectory(d); }
  Status makeDirectories(const std::string& p, uint32_t mode) override {
    return base().makeDirectories(p, mode);
  }

 private:
  static FileSystem& base() { return FileSystem::defaultFileSystem(); }
};

class WriteBackTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = testing::copySampleLibrary(folder_);
    original_ = readWhole(path_);
  }
  PlayerOptions options(std::chrono::milliseconds delay = 50ms) {
    PlayerOptions options;
    options.writeBackDelay = delay;
    options.writeBackMaxDelay = 10s;
    options.fileSystem = &fs_;
    return options;
  }

  testing::ScratchFolder folder_;
  HookedFileSystem fs_;
  std::string path_;
  std::string original_;
};

TEST_F(WriteBackTest, UnchangedLibrarySerializesToTheSameBytes) {
  Library library;
  ASSERT_TRUE(library.load(path_).ok());
  Result<std::string> bytes = library.serialize();
  ASSERT_TRUE(bytes.ok());
  EXPECT_TRUE(*bytes == original_);
}

TEST_F(WriteBackTest, ChangeIsWrittenWithOnlyItsLinesDifferent) {
  PlayerModel model(options());
  ASSERT_TRUE(model.load(path_).ok());
  ASSERT_TRUE(model.library()
                  .setTrackProperty(2582, kPropName, ae::Descriptor::makeUnicodeText("Nueva & Co"))
                  .ok());
  ASSERT_TRUE(
      model.library().setTrackProperty(2582, kPropPlayedCount, ae::Descriptor::makeSInt32(7)).ok());
  ASSERT_TRUE(eventually([&] { return model.writeBack()->writeCount() >= 1; }));
  ASSERT_TRUE(model.writeBack()->lastStatus().ok());

  // The expected file: the old one with the name line replaced and the play count inserted
  // where the player writes it (before "Album Rating" in this record).
  std::vector<std::string> expected = linesOf(original_);
  auto record = std::find(expected.begin(), expected.end(),
                          "\t\t\t<key>Track ID</key><integer>2582</integer>");
  ASSERT_NE(record, expected.end());
  auto name = std::find(record, expected.end(), "\t\t\t<key>Name</key><string>Señorita</string>");
  ASSERT_NE(name, expected.end());
  *name = "\t\t\t<key>Name</key><string>Nueva &#38; Co</string>";
  auto rating =
      std::find(record, expected.end(), "\t\t\t<key>Album Rating</key><integer>60</integer>");
  ASSERT_NE(rating, expected.end());
  expected.insert(rating, "\t\t\t<key>Play Count</key><integer>7</integer>");
  EXPECT_TRUE(linesOf(readWhole(path_)) == expected);

  // A fresh load sees the change.
  Library reread;
  ASSERT_TRUE(reread.load(path_).ok());
  EXPECT_EQ(reread.trackById(2582)->name(), "Nueva & Co");
  EXPECT_EQ(reread.trackById(2582)->integer("Play Count"), 7);
}

TEST_F(WriteBackTest, BurstsCoalesceAndQuitFlushes) {
  std::atomic<int> writes{0};
  fs_.hook = [&](HookedFileSystem::Step step, int, std::string_view) {
    if (step == HookedFileSystem::Step::kRename) ++writes;
    return Status::success();
  };
  {
    PlayerModel model(options(300ms));
    ASSERT_TRUE(model.load(path_).ok());
    for (int i = 0; i < 20; ++i) {
      ASSERT_TRUE(model.library()
                      .setTrackProperty(2584, kPropPlayedCount, ae::Descriptor::makeSInt32(i))
                      .ok());
    }
    ASSERT_TRUE(eventually([&] { return writes.load() >= 1; }));
    std::this_thread::sleep_for(400ms);
    EXPECT_EQ(writes.load(), 1);

    // A change right before quitting is not lost.
    ASSERT_TRUE(model.library()
                    .setTrackProperty(2584, kPropName, ae::Descriptor::makeUnicodeText("Last"))
                    .ok());
    EXPECT_TRUE(model.quit().ok());
    EXPECT_EQ(writes.load(), 2);
  }
  Library reread;
  ASSERT_TRUE(reread.load(path_).ok());
  EXPECT_EQ(reread.trackById(2584)->name(), "Last");
  EXPECT_EQ(reread.trackById(2584)->integer("Play Count"), 19);
}

TEST_F(WriteBackTest, FailedWriteLeavesTheOldFileAndIsRetried) {
  std::atomic<bool> failing{true};
  fs_.hook = [&](HookedFileSystem::Step step, int fd, std::string_view bytes) {
    if (step == HookedFileSystem::Step::kWrite && failing) {
      // Half the bytes reach the temporary file, then the disk is full.
      FileSystem::defaultFileSystem().writeAll(fd, bytes.substr(0, bytes.size() / 2));
      return Status::error(dskFulErr, "disk full");
    }
    return Status::success();
  };
  Library library;
  ASSERT_TRUE(library.load(path_).ok());
  LibraryWriteBack writeBack(fs_, path_, [&] { return library.serialize(); }, {10ms, 10s});
  library.setChangeListener([&] { writeBack.markChanged(); });
  ASSERT_TRUE(
      library.setTrackProperty(2582, kPropName, ae::Descriptor::makeUnicodeText("Changed")).ok());
  auto log = std::make_shared<CapturingLogSink>();
  auto previous = setSystemLogSink(log);
  EXPECT_EQ(writeBack.flush().code(), dskFulErr);
  setSystemLogSink(previous);
  EXPECT_TRUE(log->contains("Unable to write the library file"));
  EXPECT_EQ(readWhole(path_), original_);
  EXPECT_TRUE(writeBack.pending());
  // No temporary is left beside the library.
  size_t entries = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
    ++entries;
  }
  EXPECT_EQ(entries, 1u);

  failing = false;
  EXPECT_TRUE(writeBack.flush().ok());
  EXPECT_FALSE(writeBack.pending());
  EXPECT_NE(readWhole(path_).find("<string>Changed</string>"), std::string::npos);
}

// A process killed at any step of a write leaves either the old file or the new one.
TEST_F(WriteBackTest, KillAtAnyMomentLeavesAWholeFile) {
  const HookedFileSystem::Step steps[] = {HookedFileSystem::Step::kWrite,
                                          HookedFileSystem::Step::kRename,
                                          HookedFileSystem::Step::kAfterRename};
  for (const HookedFileSystem::Step killAt : steps) {
    std::filesystem::remove(path_);
    testing::copySampleLibrary(folder_);
    std::string expectedNew;
    {
      Library library;
      ASSERT_TRUE(library.load(path_).ok());
      ASSERT_TRUE(
          library.setTrackProperty(2582, kPropName, ae::Descriptor::makeUnicodeText("K")).ok());
      expectedNew = *library.serialize();
    }
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      HookedFileSystem fs;
      fs.hook = [&](HookedFileSystem::Step step, int fd, std::string_view bytes) {
        if (step == killAt) {
          if (step == HookedFileSystem::Step::kWrite) {
            FileSystem::defaultFileSystem().writeAll(fd, bytes.substr(0, bytes.size() / 3));
          }
          ::_exit(0);
        }
        return Status::success();
      };
      Library library;
      if (!library.load(path_).ok()) ::_exit(2);
      LibraryWriteBack writeBack(fs, path_, [&] { return library.serialize(); });
      library.setChangeListener([&] { writeBack.markChanged(); });
      library.setTrackProperty(2582, kPropName, ae::Descriptor::makeUnicodeText("K"));
      writeBack.flush();
      ::_exit(3);  // not reached: every step above ends the process
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    const std::string now = readWhole(path_);
    if (killAt == HookedFileSystem::Step::kAfterRename) {
      EXPECT_TRUE(now == expectedNew);
    } else {
      EXPECT_TRUE(now == original_);
    }
    EXPECT_TRUE(plist::PropertyList::readFile(path_).ok());
  }
}

}  // namespace
}  // namespace rvitunes::player
