#include "rvitunes/base/FileSystem.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <vector>

#include "rvitunes/base/FileDescriptor.h"

namespace rvitunes {
namespace {

// A directory made with mkdtemp and removed with everything in it.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "rvitunes-fs-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data()) != nullptr ? pattern : "";
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  std::set<std::string> entries() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }

 private:
  std::string path_;
};

void writeText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

std::string readText(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// Passes every call to the real file system except the `failAt`-th step of an atomic write,
// which fails with `error` (a write first writes part of its bytes). Records the step names.
class FaultyFileSystem : public FileSystem {
 public:
  FaultyFileSystem(int failAt, int error) : failAt_(failAt), error_(error) {}

  std::vector<std::string> steps;

  Result<std::string> readFile(const std::string& path, uint64_t maxBytes) override {
    return real_.readFile(path, maxBytes);
  }
  bool fileExists(const std::string& path) override { return real_.fileExists(path); }
  bool isDirectory(const std::string& path) override { return real_.isDirectory(path); }
  std::optional<Date> modificationDate(const std::string& path) override {
    return real_.modificationDate(path);
  }
  std::optional<uint32_t> permissions(const std::string& path) override {
    return real_.permissions(path);
  }
  Result<TemporaryFile> createTemporary(const std::string& dir, const std::string& prefix,
                                        std::optional<uint32_t> mode) override {
    if (fails("createTemporary")) return injected();
    return real_.createTemporary(dir, prefix, mode);
  }
  Status writeAll(int fd, std::string_view bytes) override {
    if (fails("writeAll")) {
      (void)real_.writeAll(fd, bytes.substr(0, bytes.size() / 2));
      return injected();
    }
    return real_.writeAll(fd, bytes);
  }
  Status syncFile(int fd) override { return fails("syncFile") ? injected() : real_.syncFile(fd); }
  Status closeFile(int fd) override {
    const Status status = real_.closeFile(fd);  // released even when reported as failed
    return fails("closeFile") ? injected() : status;
  }
  Status rename(const std::string& from, const std::string& to) override {
    return fails("rename") ? injected() : real_.rename(from, to);
  }
  Status removeFile(const std::string& path) override { return real_.removeFile(path); }
  Status syncDirectory(const std::string& dir) override {
    return fails("syncDirectory") ? injected() : real_.syncDirectory(dir);
  }
  Status makeDirectories(const std::string& path, uint32_t mode) override {
    return real_.makeDirectories(path, mode);
  }

 private:
  bool fails(const char* step) {
    steps.push_back(step);
    return static_cast<int>(steps.size()) == failAt_;
  }
  Status injected() const {
    return Status::error(osStatusForErrno(error_), "injected " + steps.back());
  }

  FileSystem& real_ = FileSystem::defaultFileSystem();
  int failAt_;
  int error_;
};

TEST(FileSystemTest, AtomicWriteSurvivesAFailureAtEveryStep) {
  TemporaryDirectory dir;
  const std::string target = dir.file("Library.xml");
  // Flushing before the rename is what makes the write crash-safe; the order is the contract.
  const std::vector<std::string> kSteps = {"createTemporary", "writeAll", "syncFile",
                                           "closeFile",       "rename",   "syncDirectory"};
  for (size_t failAt = 1; failAt <= kSteps.size() + 1; ++failAt) {
    SCOPED_TRACE(failAt);
    writeText(target, "old content");
    FaultyFileSystem fs(static_cast<int>(failAt), ENOSPC);
    const Status status = writeFileAtomically(fs, target, "new content");
    std::vector<std::string> expectedSteps(kSteps.begin(),
                                           kSteps.begin() + std::min(failAt, kSteps.size()));
    // The temporary is closed whatever failed after it was created.
    if (failAt == 2 || failAt == 3) expectedSteps.push_back("closeFile");
    EXPECT_EQ(fs.steps, expectedSteps);
    EXPECT_EQ(dir.entries(), std::set<std::string>{"Library.xml"});  // no temporary left
    if (failAt > kSteps.size()) {
      EXPECT_TRUE(status.ok()) << status.toString();
      EXPECT_EQ(readText(target), "new content");
      continue;
    }
    const std::string& failedStep = kSteps[failAt - 1];
    EXPECT_EQ(status.code(), dskFulErr);
    EXPECT_NE(status.message().find("\"" + target + "\""), std::string::npos) << status.message();
    EXPECT_NE(status.message().find("injected " + failedStep), std::string::npos);
    // Only the directory flush comes after the new content is in place.
    EXPECT_EQ(readText(target), failedStep == "syncDirectory" ? "new content" : "old content");
  }
}

TEST(FileSystemTest, AtomicWriteKeepsPermissionsAndReportsRealErrors) {
  TemporaryDirectory dir;
  FileSystem& fs = FileSystem::defaultFileSystem();
  const std::string secret = dir.file("secret.xml");
  writeText(secret, "old");
  ASSERT_EQ(::chmod(secret.c_str(), 0600), 0);
  ASSERT_TRUE(writeFileAtomically(fs, secret, std::string("a\0b", 3)).ok());
  EXPECT_EQ(readText(secret), std::string("a\0b", 3));
  EXPECT_EQ(fs.permissions(secret), 0600u);

  const std::string missing = dir.file("no/such/dir/a.xml");
  const Status status = writeFileAtomically(fs, missing, "x");
  EXPECT_EQ(status.code(), fnfErr);
  EXPECT_NE(status.message().find(missing), std::string::npos) << status.message();
  EXPECT_EQ(writeFileAtomically(fs, dir.path() + "/", "x").code(), paramErr);
  EXPECT_EQ(dir.entries(), std::set<std::string>{"secret.xml"});
}

TEST(FileSystemTest, ReportsAFullDisk) {
  FileDescriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  if (!full.valid()) GTEST_SKIP() << "no /dev/full";
  const Status status = FileSystem::defaultFileSystem().writeAll(full.get(), "data");
  EXPECT_EQ(status.code(), dskFulErr);
  EXPECT_NE(status.message().find("No space left"), std::string::npos) << status.message();
  EXPECT_EQ(osStatusForErrno(EROFS), wrPermErr);
  EXPECT_EQ(osStatusForErrno(EISDIR), ioErr);
}

TEST(FileSystemTest, ReadsWithinTheLimit) {
  TemporaryDirectory dir;
  FileSystem& fs = FileSystem::defaultFileSystem();
  const std::string path = dir.file("data.bin");
  std::string content(200000, 'x');  // several read chunks
  content[1] = '\0';
  writeText(path, content);

  auto read = fs.readFile(path, content.size());
  ASSERT_TRUE(read.ok()) << read.status().toString();
  EXPECT_EQ(*read, content);
  EXPECT_EQ(fs.readFile(path, content.size() - 1).status().code(), memFullErr);

  const auto missing = fs.readFile(dir.file("missing"), 100);
  EXPECT_EQ(missing.status().code(), fnfErr);
  EXPECT_NE(missing.status().message().find(dir.file("missing")), std::string::npos);
  EXPECT_EQ(fs.readFile(dir.path(), 100).status().code(), ioErr);
  EXPECT_EQ(fs.readFile(path + std::string(1, '\0') + "x", 1 << 20).status().code(), fnfErr);
  // Files that report no size are bounded while reading.
  EXPECT_EQ(fs.readFile("/proc/self/status", 10).status().code(), memFullErr);
}

TEST(FileSystemTest, FollowsLinksExceptForTheModificationDate) {
  TemporaryDirectory dir;
  FileSystem& fs = FileSystem::defaultFileSystem();
  const std::string file = dir.file("song.mp3");
  const std::string link = dir.file("link.mp3");
  writeText(file, "x");
  ASSERT_EQ(::symlink("song.mp3", link.c_str()), 0);
  ASSERT_EQ(::symlink(dir.path().c_str(), dir.file("toDir").c_str()), 0);
  ASSERT_EQ(::symlink("nowhere", dir.file("dangling").c_str()), 0);

  EXPECT_TRUE(fs.fileExists(link));
  EXPECT_TRUE(fs.fileExists(dir.path()));
  EXPECT_FALSE(fs.fileExists(dir.file("dangling")));
  EXPECT_TRUE(fs.isDirectory(dir.file("toDir")));
  EXPECT_FALSE(fs.isDirectory(link));
  EXPECT_FALSE(fs.modificationDate(dir.file("missing")).has_value());
  EXPECT_TRUE(fs.modificationDate(dir.file("dangling")).has_value());

  const timespec fileTimes[2] = {{0, UTIME_OMIT}, {1000000000, 500000000}};
  const timespec linkTimes[2] = {{0, UTIME_OMIT}, {1200000000, 250000000}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), fileTimes, 0), 0);
  ASSERT_EQ(::utimensat(AT_FDCWD, link.c_str(), linkTimes, AT_SYMLINK_NOFOLLOW), 0);
  EXPECT_EQ(fs.modificationDate(file), Date::fromUnixTime(1000000000.5));
  EXPECT_EQ(fs.modificationDate(link), Date::fromUnixTime(1200000000.25));
}

TEST(FileSystemTest, MakesDirectoriesLikeMkdirP) {
  TemporaryDirectory dir;
  FileSystem& fs = FileSystem::defaultFileSystem();
  const std::string nested = dir.file("a/b//c/");
  ASSERT_TRUE(fs.makeDirectories(nested, 0755).ok());
  EXPECT_TRUE(fs.isDirectory(dir.file("a/b/c")));
  EXPECT_TRUE(fs.makeDirectories(nested, 0755).ok());

  writeText(dir.file("plain"), "x");
  const Status status = fs.makeDirectories(dir.file("plain/sub"), 0755);
  EXPECT_FALSE(status.ok());
  EXPECT_NE(status.message().find(dir.file("plain")), std::string::npos) << status.message();
}

TEST(FileSystemTest, FileDescriptorClosesWhatItOwns) {
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  {
    FileDescriptor reader(fds[0]);
    FileDescriptor writer(fds[1]);
    writer = std::move(reader);  // closes the write end
    char byte = 0;
    EXPECT_EQ(::read(writer.get(), &byte, 1), 0);  // end of file: no writer left
  }
  EXPECT_EQ(::fcntl(fds[0], F_GETFD), -1);
}

}  // namespace
}  // namespace rvitunes
