#include "rvitunes/ae/FileReference.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "DescTestSupport.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/ae/Wire.h"

namespace rvitunes::ae {
namespace {

using testing::bytesOf;

// A scratch folder under /tmp (short, so that paths fit inline) with its own registry.
class FileReferenceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/rvae.XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    dir_ = pattern;
    if (const char* old = std::getenv("RVITUNES_FILEREF_DIR")) savedRegistry_ = old;
    ::setenv("RVITUNES_FILEREF_DIR", (dir_ + "/registry").c_str(), 1);
    clearFileReferenceCache();
  }
  void TearDown() override {
    if (savedRegistry_) {
      ::setenv("RVITUNES_FILEREF_DIR", savedRegistry_->c_str(), 1);
    } else {
      ::unsetenv("RVITUNES_FILEREF_DIR");
    }
    clearFileReferenceCache();
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }

  std::string write(const std::string& relative, const std::string& content = "x") {
    const std::string path = dir_ + "/" + relative;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << content;
    return path;
  }
  // A path far over the 44 bytes the reference holds itself.
  std::string longPath() {
    return write(std::string(60, 'd') + "/" + std::string(70, 'f') + " song.mp3");
  }

  std::string dir_;
  std::optional<std::string> savedRegistry_;
};

// Resolves in a child process that has forgotten everything this one remembers.
bool resolvesInAnotherProcess(const FileReference& ref, const std::string& expected) {
  const pid_t child = ::fork();
  if (child == 0) {
    clearFileReferenceCache();
    const Result<std::string> path = resolveFileReference(ref.bytes);
    ::_exit(path.ok() && *path == expected ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST_F(FileReferenceTest, ShortAndLongPathsResolveWhileTheFileExists) {
  for (const std::string& path : {write("a.mp3"), longPath()}) {
    SCOPED_TRACE(path);
    const Result<FileReference> ref = makeFileReference(path);
    ASSERT_TRUE(ref.ok()) << ref.status().toString();
    EXPECT_EQ(*resolveFileReference(ref->bytes), path);
    clearFileReferenceCache();  // a fresh decode, as another process would do
    EXPECT_EQ(*resolveFileReference(ref->bytes), path);
    EXPECT_TRUE(resolvesInAnotherProcess(*ref, path));

    // Through the wire and back.
    Descriptor list = Descriptor::makeList();
    ASSERT_EQ(list.putPtr(0, typeFSRef, ref->bytes.data(), kFileReferenceSize), noErr);
    const Result<Descriptor> back = unflatten(*flatten(list));
    ASSERT_TRUE(back.ok());
    EXPECT_EQ(*resolveFileReference(back->itemAt(0).data()), path);

    ASSERT_EQ(::unlink(path.c_str()), 0);
    EXPECT_EQ(resolveFileReference(ref->bytes).status().code(), fnfErr);
    EXPECT_FALSE(resolvesInAnotherProcess(*ref, path));
  }
  // The long path went to the registry, in a private folder.
  struct stat info {};
  ASSERT_EQ(::stat((dir_ + "/registry").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);
}

TEST_F(FileReferenceTest, AReplacedOrRenamedFileDoesNotResolve) {
  const std::string shortPath = write("song.mp3");
  const std::string longOne = longPath();
  const FileReference shortRef = *makeFileReference(shortPath);
  const FileReference longRef = *makeFileReference(longOne);
  // Same paths, new files.
  for (const std::string& path : {shortPath, longOne}) {
    ASSERT_EQ(::unlink(path.c_str()), 0);
    write(path.substr(dir_.size() + 1), "new");
  }
  EXPECT_EQ(resolveFileReference(shortRef.bytes).status().code(), fnfErr);
  EXPECT_EQ(resolveFileReference(longRef.bytes).status().code(), fnfErr);

  const std::string moved = write("moved-from.mp3");
  const FileReference movedRef = *makeFileReference(moved);
  ASSERT_EQ(::rename(moved.c_str(), (dir_ + "/moved-to.mp3").c_str()), 0);
  EXPECT_EQ(resolveFileReference(movedRef.bytes).status().code(), fnfErr);
}

TEST_F(FileReferenceTest, ATamperedRegistryEntryIsNotTrusted) {
  const std::string path = longPath();
  const std::string other = write("other.mp3");
  const FileReference ref = *makeFileReference(path);
  clearFileReferenceCache();
  for (const auto& entry : std::filesystem::directory_iterator(dir_ + "/registry")) {
    std::ofstream(entry.path()) << other;
  }
  EXPECT_EQ(resolveFileReference(ref.bytes).status().code(), fnfErr);
  std::filesystem::remove_all(dir_ + "/registry");
  EXPECT_EQ(resolveFileReference(ref.bytes).status().code(), fnfErr);
}

TEST_F(FileReferenceTest, RefusesMissingFilesAndForeignBytes) {
  EXPECT_EQ(makeFileReference(dir_ + "/missing").status().code(), fnfErr);
  EXPECT_EQ(makeAliasRecord(dir_ + "/missing").status().code(), fnfErr);
  EXPECT_EQ(makeFileReference("").status().code(), paramErr);
  EXPECT_EQ(makeFileReference(std::string("a\0b", 3)).status().code(), paramErr);

  FileReference junk;
  EXPECT_EQ(resolveFileReference(junk.bytes).status().code(), paramErr);
  FileReference ref = *makeFileReference(write("a"));
  EXPECT_EQ(resolveFileReference(std::span(ref.bytes).first(79)).status().code(), paramErr);
  ref.bytes[7] = 200;  // inline path length over the 44 bytes available
  EXPECT_EQ(resolveFileReference(ref.bytes).status().code(), paramErr);

  std::vector<uint8_t> alias = *makeAliasRecord(write("b"));
  alias.pop_back();
  EXPECT_EQ(resolveAliasRecord(alias).status().code(), paramErr);
  EXPECT_EQ(resolveAliasRecord(std::vector<uint8_t>(10, 0)).status().code(), paramErr);
}

TEST_F(FileReferenceTest, RelativePathsAndDirectories) {
  const std::string path = write("rel/x.mp3");
  const std::string cwd = std::filesystem::current_path();
  ASSERT_EQ(::chdir((dir_ + "/rel").c_str()), 0);
  const Result<FileReference> ref = makeFileReference("x.mp3");
  ASSERT_EQ(::chdir(cwd.c_str()), 0);
  ASSERT_TRUE(ref.ok());
  EXPECT_EQ(*resolveFileReference(ref->bytes), path);
  EXPECT_EQ(*resolveAliasRecord(*makeAliasRecord(dir_)), dir_);
}

TEST_F(FileReferenceTest, AliasRecordsAndTheFileCoercions) {
  const std::string path = write("My Song.mp3");
  const std::vector<uint8_t> alias = *makeAliasRecord(path);
  EXPECT_EQ(*resolveAliasRecord(alias), path);

  const Descriptor url = makeFileURLDesc(path);
  EXPECT_EQ(bytesOf(url), "file://" + dir_ + "/My%20Song.mp3");
  Descriptor fsrf, alis, back;
  ASSERT_EQ(coerceDesc(url, typeFSRef, &fsrf), noErr);
  EXPECT_EQ(fsrf.dataSize(), kFileReferenceSize);
  ASSERT_EQ(coerceDesc(fsrf, typeAlias, &alis), noErr);
  ASSERT_EQ(coerceDesc(alis, typeFileURL, &back), noErr);
  EXPECT_TRUE(back == url);
  ASSERT_EQ(coerceDesc(fsrf, typeUnicodeText, &back), noErr);
  EXPECT_EQ(*textValue(back), bytesOf(url));
  ASSERT_EQ(coerceDesc(Descriptor::makeText(bytesOf(url)), typeFileURL, &back), noErr);
  EXPECT_TRUE(back == url);

  EXPECT_EQ(coerceDesc(makeFileURLDesc(dir_ + "/none"), typeFSRef, &back), errAECoercionFail);
  EXPECT_EQ(coerceDesc(Descriptor::makeText("http://example.com/a"), typeFileURL, &back),
            errAECoercionFail);
  ASSERT_EQ(::unlink(path.c_str()), 0);
  EXPECT_EQ(resolveAliasRecord(alias).status().code(), fnfErr);
  EXPECT_EQ(coerceDesc(alis, typeFileURL, &back), errAECoercionFail);
  EXPECT_EQ(coerceDesc(fsrf, typeFileURL, &back), errAECoercionFail);
}

}  // namespace
}  // namespace rvitunes::ae
