#include "rvitunes/platform/UserDefaults.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cmath>

#include "PlatformTestSupport.h"
#include "rvitunes/base/CapturingLogSink.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "support/SystemLogCapture.h"

namespace rvitunes::platform {
namespace {

using plist::Value;
using testing::readText;
using testing::ScopedEnvironment;
using testing::TemporaryDirectory;
using testing::writeText;

// The real file system, except that the step named `failAt` fails with `error` (a failing
// write first writes half its bytes, as a full disk does). Counts reads; can freeze stamps.
class FaultyFileSystem : public FileSystem {
 public:
  explicit FaultyFileSystem(std::string failAt = "", int error = EIO)
      : failAt_(std::move(failAt)), error_(error) {}
  std::atomic<int> reads{0};
  std::optional<Date> frozenStamp;  // answered for every existing file: a clock that never ticks

  Result<std::string> readFile(const std::string& path, uint64_t max) override {
    ++reads;
    return fails("readFile") ? Result<std::string>(injected()) : real_.readFile(path, max);
  }
  bool fileExists(const std::string& path) override { return real_.fileExists(path); }
  bool isDirectory(const std::string& path) override { return real_.isDirectory(path); }
  std::optional<Date> modificationDate(const std::string& path) override {
    return frozenStamp && real_.fileExists(path) ? frozenStamp : real_.modificationDate(path);
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
    if (!fails("writeAll")) return real_.writeAll(fd, bytes);
    (void)real_.writeAll(fd, bytes.substr(0, bytes.size() / 2));
    return injected();
  }
  Status syncFile(int fd) override { return fails("syncFile") ? injected() : real_.syncFile(fd); }
  Status closeFile(int fd) override { return real_.closeFile(fd); }
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

 protected:
  FileSystem& real_ = FileSystem::defaultFileSystem();

 private:
  bool fails(const char* step) { return failAt_ == step; }
  Status injected() const {
    return Status::error(osStatusForErrno(error_), "injected failure of " + failAt_);
  }
  std::string failAt_;
  int error_;
};

// A writer that dies halfway through writing its temporary file, like a killed process.
class DyingFileSystem : public FaultyFileSystem {
 public:
  Status writeAll(int fd, std::string_view bytes) override {
    (void)real_.writeAll(fd, bytes.substr(0, bytes.size() / 2));
    ::_exit(0);
  }
};

using rvitunes::testing::support::SystemLogCapture;

TEST(UserDefaultsTest, ValuesRoundTripBetweenInstancesOfOneDomain) {
  TemporaryDirectory dir;
  const std::string folder = dir.file("config/rvitunes");  // made by the first write
  UserDefaults writer("com.example.host", folder);
  UserDefaults reader("com.example.host", folder);
  EXPECT_TRUE(reader.objectForKey("Name").isNil());  // loaded before the file exists

  auto recent = plist::Array::create();
  recent->push_back(Value::data(std::string_view("\0\xFF", 2)));
  auto window = plist::Dictionary::create();
  window->set("When", Value::date(Date::fromUnixTime(1700000000)));
  recent->push_back(Value(window));
  ASSERT_TRUE(writer.setStringForKey("Sm\xC3\xB6rg\xC3\xA5sbord & <b>", "Name").ok());
  ASSERT_TRUE(writer.setObjectForKey(Value::real(0.25), "Volume").ok());
  ASSERT_TRUE(writer.setObjectForKey(Value(recent), "Recent").ok());
  window->set("When", Value::integer(1));  // a change after the set is not stored

  EXPECT_EQ(std::filesystem::status(folder).permissions(), std::filesystem::perms::owner_all);
  EXPECT_TRUE(readText(writer.path()).starts_with("<?xml"));
  EXPECT_EQ(reader.stringForKey("Name"), "Sm\xC3\xB6rg\xC3\xA5sbord & <b>");
  EXPECT_EQ(reader.objectForKey("Volume"), Value::real(0.25));
  Value answered = reader.objectForKey("Recent");
  EXPECT_EQ(answered.asArray()->at(1).asDictionary()->get("When"),
            Value::date(Date::fromUnixTime(1700000000)));
  answered.asArray()->clear();  // the caller's copy only
  EXPECT_EQ(reader.objectForKey("Recent").asArray()->size(), 2u);

  // Each instance's change keeps the other's keys.
  ASSERT_TRUE(reader.setStringForKey("second", "Other").ok());
  ASSERT_TRUE(writer.removeObjectForKey("Volume").ok());
  EXPECT_TRUE(reader.objectForKey("Volume").isNil());
  EXPECT_EQ(UserDefaults("com.example.host", folder).stringForKey("Other"), "second");
  EXPECT_EQ(reader.lastLoadProblem(), std::nullopt);
}

TEST(UserDefaultsTest, ReadsAgainOnlyWhenTheFileMayHaveChanged) {
  TemporaryDirectory dir;
  ASSERT_TRUE(UserDefaults("stamps", dir.path()).setStringForKey("one", "Key").ok());
  const std::string file = dir.file("stamps.plist");
  const struct timespec old[2] = {{1600000000, 0}, {1600000000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), old, 0), 0);

  FaultyFileSystem counting;
  UserDefaults defaults("stamps", dir.path(), counting);
  EXPECT_EQ(defaults.stringForKey("Key"), "one");
  EXPECT_EQ(defaults.stringForKey("Key"), "one");
  EXPECT_EQ(counting.reads, 1);
  ASSERT_TRUE(UserDefaults("stamps", dir.path()).setStringForKey("two", "Key").ok());
  EXPECT_EQ(defaults.stringForKey("Key"), "two");
  ASSERT_EQ(::unlink(file.c_str()), 0);
  EXPECT_TRUE(defaults.objectForKey("Key").isNil());

  // Two writes inside one tick of the file-system clock share a time; a fresh one is not trusted.
  FaultyFileSystem coarse;
  coarse.frozenStamp = Date::now();
  UserDefaults watcher("stamps", dir.path(), coarse);
  ASSERT_TRUE(watcher.setStringForKey("three", "Key").ok());
  ASSERT_TRUE(UserDefaults("stamps", dir.path()).setStringForKey("four", "Key").ok());
  EXPECT_EQ(watcher.stringForKey("Key"), "four");
}

TEST(UserDefaultsTest, AFailedWriteLeavesFileAndMemoryAsTheyWere) {
  struct Case {
    const char* step;
    int error;
    OSStatus expected;
  };
  for (const Case& c :
       {Case{"createTemporary", EACCES, wrPermErr}, Case{"writeAll", ENOSPC, dskFulErr},
        Case{"syncFile", EIO, ioErr}, Case{"rename", EROFS, wrPermErr}}) {
    SCOPED_TRACE(c.step);
    TemporaryDirectory dir;
    ASSERT_TRUE(UserDefaults("faults", dir.path()).setStringForKey("old", "Key").ok());
    const std::string before = readText(dir.file("faults.plist"));
    FaultyFileSystem faulty(c.step, c.error);
    UserDefaults defaults("faults", dir.path(), faulty);
    const Status status = defaults.setStringForKey("new", "Key");
    EXPECT_EQ(status.code(), c.expected) << status.toString();
    EXPECT_EQ(defaults.stringForKey("Key"), "old");
    EXPECT_EQ(UserDefaults("faults", dir.path()).stringForKey("Key"), "old");
    EXPECT_EQ(readText(dir.file("faults.plist")), before);
    EXPECT_EQ(dir.entries(), std::set<std::string>{"faults.plist"});  // no temporary left
  }
  TemporaryDirectory dir;
  UserDefaults defaults("faults", dir.path());
  ASSERT_TRUE(defaults.setStringForKey("old", "Key").ok());
  auto holey = plist::Array::create();
  holey->push_back(Value());  // the format has no nil
  EXPECT_EQ(defaults.setObjectForKey(Value(holey), "Key").code(), paramErr);
  EXPECT_EQ(defaults.stringForKey("Key"), "old");
  // After a failed directory flush the new file is in place; memory follows the disk.
  FaultyFileSystem late("syncDirectory");
  UserDefaults flushed("faults", dir.path(), late);
  EXPECT_EQ(flushed.setStringForKey("new", "Key").code(), ioErr);
  EXPECT_EQ(flushed.stringForKey("Key"), "new");
}

TEST(UserDefaultsTest, AWriterKilledMidWriteLeavesThePreviousFileReadable) {
  TemporaryDirectory dir;
  ASSERT_TRUE(UserDefaults("crash", dir.path()).setStringForKey("old", "Key").ok());
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    DyingFileSystem dying;
    (void)UserDefaults("crash", dir.path(), dying).setStringForKey(std::string(9999, 'x'), "Key");
    ::_exit(1);  // not reached
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  const std::set<std::string> names = dir.entries();  // the half-written temporary is left
  ASSERT_EQ(names.size(), 2u);
  EXPECT_TRUE(names.begin()->starts_with(".crash.plist.")) << *names.begin();

  UserDefaults next("crash", dir.path());
  EXPECT_EQ(next.stringForKey("Key"), "old");
  EXPECT_EQ(next.lastLoadProblem(), std::nullopt);
  ASSERT_TRUE(next.setStringForKey("newer", "Key").ok());
  EXPECT_EQ(UserDefaults("crash", dir.path()).stringForKey("Key"), "newer");
}

TEST(UserDefaultsTest, ACorruptFileIsSetAsideReportedAndNeverOverwritten) {
  SystemLogCapture log;
  for (const std::string& content : {std::string("<plist><dict><key>Key</key>"),
                                     std::string("<plist><array><true/></array></plist>")}) {
    TemporaryDirectory dir;
    const std::string file = dir.file("broken.plist");
    writeText(file, content);
    // Copies from this second and the next are kept; the new one takes a free name.
    const auto now = static_cast<long long>(std::floor(Date::now().unixTime()));
    for (long long second : {now, now + 1}) {
      writeText(file + ".corrupt-" + std::to_string(second), "earlier");
    }
    std::set<std::string> earlier = dir.entries();

    UserDefaults defaults("broken", dir.path());
    EXPECT_TRUE(defaults.objectForKey("Key").isNil());
    const std::optional<std::string> problem = defaults.lastLoadProblem();
    ASSERT_TRUE(problem.has_value());
    EXPECT_TRUE(log.sink->contains(*problem));
    std::set<std::string> added;
    for (const std::string& name : dir.entries()) {
      if (!earlier.contains(name)) added.insert(name);
    }
    ASSERT_EQ(added.size(), 1u);
    const std::string aside = dir.file(*added.begin());
    EXPECT_TRUE(aside.starts_with(file + ".corrupt-")) << aside;
    EXPECT_NE(problem->find(aside), std::string::npos) << *problem;
    EXPECT_EQ(readText(aside), content);
    earlier.erase("broken.plist");
    for (const std::string& name : earlier)
      EXPECT_EQ(readText(dir.file(name)), "earlier");
    ASSERT_TRUE(defaults.setStringForKey("fresh", "Key").ok());
    EXPECT_EQ(UserDefaults("broken", dir.path()).stringForKey("Key"), "fresh");
    EXPECT_EQ(readText(aside), content);
  }
}

TEST(UserDefaultsTest, AFileThatCannotBeSetAsideOrReadIsNotReplaced) {
  SystemLogCapture log;
  for (const char* step : {"rename", "readFile"}) {
    SCOPED_TRACE(step);
    TemporaryDirectory dir;
    writeText(dir.file("stuck.plist"), "not a plist");
    FaultyFileSystem faulty(step, EACCES);
    UserDefaults defaults("stuck", dir.path(), faulty);
    EXPECT_TRUE(defaults.objectForKey("Key").isNil());
    EXPECT_TRUE(defaults.lastLoadProblem().has_value());
    EXPECT_EQ(defaults.setStringForKey("value", "Key").code(), wrPermErr);
    EXPECT_EQ(readText(dir.file("stuck.plist")), "not a plist");
    EXPECT_EQ(dir.entries(), std::set<std::string>{"stuck.plist"});
  }
}

TEST(UserDefaultsTest, StandardInstanceFollowsDomainAndEnvironment) {
  TemporaryDirectory home;
  TemporaryDirectory config;
  ScopedEnvironment homeVariable("HOME", home.path());
  ScopedEnvironment configVariable("XDG_CONFIG_HOME", config.path());
  UserDefaults::setStandardDomain("com.example.standard");
  const auto standard = UserDefaults::standardUserDefaults();
  EXPECT_EQ(standard, UserDefaults::standardUserDefaults());
  EXPECT_EQ(standard->path(), config.path() + "/rvitunes/com.example.standard.plist");
  {
    ScopedEnvironment relative("XDG_CONFIG_HOME", "relative/config");  // ignored
    EXPECT_EQ(UserDefaults::standardUserDefaults()->path(),
              home.path() + "/.config/rvitunes/com.example.standard.plist");
  }
  UserDefaults::setStandardDomain("../escape");
  const auto refused = UserDefaults::standardUserDefaults();
  EXPECT_EQ(refused->setStringForKey("v", "Key").code(), paramErr);
  UserDefaults::setStandardDomain("");
  EXPECT_EQ(UserDefaults::standardUserDefaults()->domain(), "platform_tests");
  EXPECT_EQ(home.entries(), std::set<std::string>{});
  EXPECT_EQ(config.entries(), std::set<std::string>{});
}

}  // namespace
}  // namespace rvitunes::platform
