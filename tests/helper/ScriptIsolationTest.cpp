// The script interpreter only ever sends events. Shell commands in every disguise are syntax
// errors at their offset; names and paths full of shell metacharacters, very long ones and ones
// holding NULs travel as event data to applications reached over the bus, and nothing runs or
// writes a file: a canary that every payload would create, through the shell or through the
// programs on PATH, never appears.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "ScriptTestSupport.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/ae/Printer.h"
#include "rvitunes/helper/AppleScript.h"
#include "support/ScratchFolder.h"

namespace rvitunes {
namespace {

namespace fs = std::filesystem;

// A folder holding the canary's place and programs named like the usual ones that would make
// it; PATH leads there first while the object lives.
class Canary {
 public:
  Canary() {
    EXPECT_FALSE(folder_.empty());
    path_ = folder_ + "/canary";
    const std::string bin = folder_ + "/bin";
    fs::create_directory(bin);
    for (const char* program :
         {"sh", "bash", "dash", "touch", "rm", "osascript", "open", "env", "xdg-open", "iTunes"}) {
      const std::string file = bin + "/" + program;
      std::ofstream(file) << "#!/bin/sh\necho \"$0 $*\" >> '" << path_ << "'\n";
      fs::permissions(file, fs::perms::owner_all);
    }
    const char* saved = std::getenv("PATH");
    savedPath_ = saved != nullptr ? saved : "";
    ::setenv("PATH", (bin + ":" + savedPath_).c_str(), 1);
  }
  ~Canary() { ::setenv("PATH", savedPath_.c_str(), 1); }
  Canary(const Canary&) = delete;
  Canary& operator=(const Canary&) = delete;

  // A shell command that makes the canary.
  std::string command() const { return "touch " + path_; }
  bool sang() const { return fs::exists(path_); }
  // Entries in the canary's folder: the programs only.
  size_t entries() const {
    size_t n = 0;
    for ([[maybe_unused]] const auto& entry : fs::recursive_directory_iterator(folder_))
      ++n;
    return n;
  }

 private:
  rvitunes::testing::support::ScratchFolder scratch_{"rvscript-canary"};
  const std::string& folder_ = scratch_.path();
  std::string path_;
  std::string savedPath_;
};

// No child process of ours is running or waiting to be reaped.
bool noChildren() {
  return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

// An application published on the bus by an event manager of its own, so that the script's
// manager (the shared one) can reach it only through its socket. Keeps every event it gets.
class BusApplication {
 public:
  BusApplication(OSType signature, const std::string& name) {
    auto app = manager_.registerApplication(signature, name);
    EXPECT_TRUE(app.ok()) << name << ": " << app.status().toString();
    if (!app.ok()) return;
    (*app)->installEventHandler(ae::typeWildCard, ae::typeWildCard,
                                [this](const ae::Descriptor& event, ae::Descriptor&) {
                                  std::lock_guard lock(mutex_);
                                  events_.push_back(event.duplicate());
                                  return noErr;
                                });
    const Status published = manager_.publish(signature);
    EXPECT_TRUE(published.ok()) << published.toString();
  }
  std::vector<ae::Descriptor> events() const {
    std::lock_guard lock(mutex_);
    std::vector<ae::Descriptor> copy;
    for (const auto& event : events_)
      copy.push_back(event.duplicate());
    return copy;
  }

 private:
  ae::EventManager manager_;
  mutable std::mutex mutex_;
  std::vector<ae::Descriptor> events_;
};

// A string literal of the script language holding `text`.
std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') out.push_back('\\');
    if (c == '\n') {
      out += "\\n";
      continue;
    }
    out.push_back(c);
  }
  return out + "\"";
}

// The text of a 'furl' as the receiver reads it.
std::string fileUrlOf(const ae::Descriptor& event) {
  const ae::Descriptor* url = event.findParam(ae::keyDirectObject);
  if (url == nullptr) return "<none>";
  return std::string(reinterpret_cast<const char*>(url->data().data()), url->dataSize());
}

TEST(ScriptIsolationTest, ShellCommandsInEveryDisguiseAreSyntaxErrorsAtTheirOffset) {
  Canary canary;
  script_testing::RecordingApp itunes(fourCharCode("hook"), "iTunes");
  const std::string touch = quoted(canary.command());
  const std::string tell = "tell application \"iTunes\" to ";
  const struct {
    std::string source;
    std::string offender;  // the text the error points at (its first occurrence)
  } cases[] = {
      {"do shell script " + touch, "do"},
      {tell + "do shell script " + touch, "do"},
      {"tell application \"iTunes\"\nstop\ndo shell script " + touch + "\nend tell\n", "do"},
      {"tell application \"System Events\" to do shell script " + touch, "do"},
      {"tell application \"Terminal\" to do script " + touch, "do"},
      {tell + "run script " + touch, "run"},
      {tell + "load script POSIX file \"/tmp/x.scpt\"", "load"},
      {tell + "open location \"file:///etc/passwd\"", "open"},
      {tell + "display dialog " + touch, "display"},
      {tell + "launch", "launch"},
      {"set x to do shell script " + touch, "set"},
      {"`" + canary.command() + "`", "`"},
      {"$(" + canary.command() + ")", "$"},
      {tell + "stop; " + canary.command(), ";"},
      {tell + "stop && " + canary.command(), "&"},
      {tell + "stop | sh", "|"},
      {tell + "stop\n-- " + canary.command(), "-"},
      {tell + "play POSIX file \"/tmp/a\" & (do shell script " + touch + ")", "&"},
      {tell + "play POSIX file \"/tmp/$(x)\\$(" + canary.command() + ")\"", "\\$"},
      {tell + "stop" + std::string(1, '\0') + "do shell script " + touch, std::string(1, '\0')},
      {"tell application \"iTunes\"" + std::string(1, '\0') + " to stop", std::string(1, '\0')},
  };
  for (const auto& c : cases) {
    AppleScript script(c.source);
    AppleScriptError error;
    EXPECT_FALSE(script.compile(&error)) << c.source;
    EXPECT_TRUE(error.number == errOSASyntaxError || error.number == errOSASyntaxTypeError)
        << error.number << " " << c.source;
    const size_t at = c.source.find(c.offender);
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(error.offset, at) << error.message << " in " << c.source;
    EXPECT_EQ(c.source.substr(error.offset, c.offender.size()), c.offender) << c.source;
    EXPECT_GT(error.length, 0u) << c.source;
    EXPECT_EQ(error.application, "");
    // Running it is compiling it again: still nothing is sent.
    EXPECT_EQ(script.executeAndReturnError(&error), nullptr) << c.source;
  }
  EXPECT_TRUE(itunes.events().empty());
  EXPECT_FALSE(canary.sang());
  EXPECT_TRUE(noChildren());
}

TEST(ScriptIsolationTest, MetacharactersInNamesAndPathsTravelOnlyAsEventData) {
  Canary canary;
  ASSERT_TRUE(noChildren());
  const std::string touch = canary.command();
  // Applications on the bus whose names a shell would take for commands.
  const std::vector<std::string> names = {
      "iTunes\"; " + touch + "; echo \"",
      "$(" + touch + ")",
      "`" + touch + "`",
      "a; " + touch,
      "x | sh",
      "a && " + touch + " &",
      "/bin/sh -c '" + touch + "'",
      "../../../../bin/sh",
      "iTunes' '; " + touch,
  };
  std::vector<std::unique_ptr<BusApplication>> apps;
  for (size_t i = 0; i < names.size(); ++i) {
    apps.push_back(
        std::make_unique<BusApplication>(fourCharCode("Ap00") + static_cast<OSType>(i), names[i]));
  }
  // Paths a shell would run, given to "play POSIX file".
  const std::vector<std::string> paths = {
      "/tmp/x; " + touch, "$(" + touch + ")",         "`" + touch + "`",         "/tmp/a|sh",
      "/tmp/a\n" + touch, "/tmp/'; " + touch + "; '", "relative/../../" + touch,
  };
  for (size_t i = 0; i < names.size(); ++i) {
    for (const std::string& path : paths) {
      const std::string source = "tell application " + quoted(names[i]) + "\nplay POSIX file " +
                                 quoted(path) + " with once\nstop\nend tell\n";
      AppleScript script(source);
      AppleScriptError error;
      ASSERT_NE(script.executeAndReturnError(&error), nullptr) << source << "\n" << error.message;
    }
    // Each statement reached its application, in order, as the events the language defines.
    const std::vector<ae::Descriptor> events = apps[i]->events();
    ASSERT_EQ(events.size(), 2 * paths.size()) << names[i];
    for (size_t k = 0; k < paths.size(); ++k) {
      const ae::Descriptor& play = events[2 * k];
      EXPECT_EQ(play.eventID(), fourCharCode("Play")) << names[i];
      const ae::Descriptor* url = play.findParam(ae::keyDirectObject);
      ASSERT_NE(url, nullptr);
      EXPECT_EQ(url->type(), ae::typeFileURL);
      EXPECT_EQ(fileUrlOf(play).rfind("file:///", 0), 0u) << fileUrlOf(play);
      EXPECT_EQ(events[2 * k + 1].eventID(), fourCharCode("Stop"));
    }
  }
  EXPECT_FALSE(canary.sang());
  EXPECT_EQ(canary.entries(), 11u);  // the bin folder and its ten programs
  EXPECT_TRUE(noChildren());
  for (const std::string& path : paths)
    EXPECT_FALSE(fs::exists(path)) << path;
}

TEST(ScriptIsolationTest, LongNamesNulsAndStrangersReachNothingButTheBus) {
  Canary canary;
  BusApplication player(fourCharCode("hook"), "iTunes");
  const auto run = [](const std::string& source, AppleScriptError* error) {
    AppleScript script(source);
    return script.executeAndReturnError(error);
  };

  // Names of applications that do not run, however they look: -600, nothing started.
  const std::string huge(100'000, 'n');
  const struct {
    std::string name;
  } strangers[] = {
      {huge},
      {std::string("iTunes\0; ") + canary.command()},
      {std::string("iTunes") + std::string(1, '\0')},
      {"sh"},
      {"/bin/sh"},
      {"osascript"},
      {canary.command()},
      {"iTunes "},
  };
  for (const auto& stranger : strangers) {
    AppleScriptError error;
    EXPECT_EQ(run("tell application " + quoted(stranger.name) + " to quit\n", &error), nullptr);
    EXPECT_EQ(error.number, procNotFound) << stranger.name.substr(0, 40);
    EXPECT_EQ(error.application, stranger.name);
  }
  // A record left by a process that died names no running application.
  auto bus = ae::EventManager::shared().busDirectory();
  ASSERT_TRUE(bus.ok());
  ASSERT_TRUE(bus->writeRecord({fourCharCode("gone"), "Gone", 999'999, ""}).ok());
  AppleScriptError error;
  EXPECT_EQ(run("tell application \"Gone\" to activate\n", &error), nullptr);
  EXPECT_EQ(error.number, procNotFound);

  // A path of a megabyte, and paths holding NULs, arrive as they were written.
  const std::string longPath = "/" + std::string(1 << 20, 'p');
  const std::string withNul =
      std::string("/tmp/a") + std::string(1, '\0') + "; " + canary.command();
  for (const std::string& path : {longPath, withNul}) {
    ASSERT_NE(run("tell application \"iTunes\" to play POSIX file " + quoted(path) + "\n", &error),
              nullptr)
        << error.message;
  }
  const std::vector<ae::Descriptor> events = player.events();
  ASSERT_EQ(events.size(), 2u);
  EXPECT_GT(fileUrlOf(events[0]).size(), size_t{1} << 20);
  EXPECT_EQ(fileUrlOf(events[1]).find('\0'), std::string::npos) << "a NUL is escaped in a URL";

  // A thousand statements run as a thousand events, each over the bus.
  std::string many = "tell application \"iTunes\"\n";
  for (int i = 0; i < 1000; ++i)
    many += "set player position to " + std::to_string(i) + "\n";
  ASSERT_NE(run(many + "end tell\n", &error), nullptr) << error.message;
  EXPECT_EQ(player.events().size(), 1002u);

  EXPECT_FALSE(canary.sang());
  EXPECT_TRUE(noChildren());
}

}  // namespace
}  // namespace rvitunes
