// The conventions every rvitunes command keeps: help on every level, results on standard
// output and messages on standard error, exit status 2 for wrong usage and 1 for failed work,
// and JSON that a strict reader accepts, whatever bytes the data holds.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "JsonCheck.h"
#include "ToolRunner.h"
#include "support/ScratchFolder.h"

namespace rvitunes::testing {
namespace {

// A private bus and home folder, so that no running player or stored choice takes part.
class CommandLineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(dir_.empty());
    std::filesystem::create_directories(dir_ + "/run");
    std::filesystem::create_directories(dir_ + "/home");
    for (const char* name : {"XDG_RUNTIME_DIR", "HOME", "XDG_CONFIG_HOME"}) {
      const char* value = getenv(name);
      saved_.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
    }
    setenv("XDG_RUNTIME_DIR", (dir_ + "/run").c_str(), 1);
    setenv("HOME", (dir_ + "/home").c_str(), 1);
    setenv("XDG_CONFIG_HOME", (dir_ + "/home/.config").c_str(), 1);
  }
  void TearDown() override {
    for (const auto& [name, value] : saved_) {
      if (value) {
        setenv(name.c_str(), value->c_str(), 1);
      } else {
        unsetenv(name.c_str());
      }
    }
  }
  std::string write(const std::string& name, const std::string& text) {
    const std::string path = dir_ + "/" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  support::ScratchFolder scratch_{"rvitunes-cli-conv"};
  const std::string& dir_ = scratch_.path();
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

TEST(JsonCheckTest, AcceptsOnlyStrictJson) {
  for (const char* good :
       {"{}", " [1, -0, 2.5e+3, true, false, null] ", "\"\\u00e9\\ud83c\\udfb5\"",
        "{\"a\": {\"b\": []}}", "\"caf\xC3\xA9\""}) {
    EXPECT_TRUE(parseJson(good).value) << good << ": " << parseJson(good).error;
  }
  for (const char* bad :
       {"", "[1,]", "{\"a\": 1,}", "[01]", "\"a\tb\"", "\"\xFF\"", "\"\xC3\"", "\"\\ud83c\"",
        "\"\\x41\"", "{\"a\": 1, \"a\": 2}", "{} {}", "[1] x", "nan", "'a'", "{a: 1}"}) {
    EXPECT_FALSE(parseJson(bad).value) << bad;
  }
  const Json decoded =
      *parseJson("{\"s\": \"\\u00e9\\ud83c\\udfb5\\n\", \"n\": -9223372036854775808}").value;
  EXPECT_EQ(decoded["s"].text, "\xC3\xA9\xF0\x9F\x8E\xB5\n");
  EXPECT_EQ(decoded["n"].integer(), INT64_MIN);
}

TEST_F(CommandLineTest, EveryLevelAnswersHelpOnStandardOutput) {
  for (const char* args : {"--help",
                           "-h",
                           "help",
                           "help library",
                           "plist --help",
                           "plist lint -h",
                           "library --help",
                           "library tracks --help",
                           "player --help",
                           "player serve --help",
                           "player ping --help",
                           "player tracks -h",
                           "player play --help",
                           "ae --help",
                           "ae print --help",
                           "event --help",
                           "script --help",
                           "apps --help",
                           "app --help",
                           "app show --help",
                           "icons --help"}) {
    SCOPED_TRACE(args);
    const ToolRun r = runToolSeparately(args);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind("usage: rvitunes", 0), 0u) << r.out.substr(0, 80);
    EXPECT_EQ(r.err, "");
  }
  ToolRun r = runToolSeparately("--version");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("rvitunes ", 0), 0u);
  EXPECT_EQ(r.out.find('\n'), r.out.size() - 1);
  // A control command's help is its own, with the options it takes.
  r = runToolSeparately("player search --help");
  EXPECT_NE(r.out.find("usage: rvitunes player search TEXT"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("--field"), std::string::npos);
  EXPECT_EQ(runToolSeparately("player next --help").out.find("--json"), std::string::npos);
  // serve names the library --file, as the other commands do.
  EXPECT_NE(runToolSeparately("player serve --help").out.find("serve --file FILE"),
            std::string::npos);
}

TEST_F(CommandLineTest, WrongUsageIsStatusTwoWithOneMessageOnStandardError) {
  for (const char* args : {"frobnicate",
                           "help frobnicate",
                           "plist",
                           "plist frob x",
                           "plist lint --bogus x",
                           "plist lint --format json x",
                           "library",
                           "library tracks",
                           "library playlists --interval 3",
                           "library stats --save x",
                           "library path --file x",
                           "library play 8 --file a --embedded b",
                           "player",
                           "player tracks",
                           "player volume 101",
                           "player status --file a --embedded b",
                           "player status --player-version 7.2",
                           "ae",
                           "ae print",
                           "event",
                           "event --list x",
                           "event --timeout soon core getd",
                           "script",
                           "apps extra",
                           "app",
                           "app bounce",
                           "icons extra",
                           "icons --save a --render b"}) {
    SCOPED_TRACE(args);
    const ToolRun r = runToolSeparately(args);
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err.rfind("rvitunes", 0), 0u) << r.err;
  }
  // Without a command the usage goes to standard error.
  ToolRun r = runToolSeparately("");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err.rfind("usage: rvitunes", 0), 0u);
  // The message names the command and where its usage is.
  r = runToolSeparately("library playlists --interval 3");
  EXPECT_EQ(r.err,
            "rvitunes library: --interval goes with watch only\n"
            "(rvitunes library --help shows the usage)\n");
}

TEST_F(CommandLineTest, FailedWorkIsStatusOneAndSaysWhatAndWhere) {
  const std::string missing = dir_ + "/missing.xml";
  const std::pair<std::string, std::string> cases[] = {
      {"plist lint '" + missing + "'", missing},
      {"library stats --file '" + missing + "'", missing},
      {"library play 8 --file '" + missing + "'", missing},
      {"player status --json", "no player is running"},
      {"player status --file '" + missing + "' --json", missing},
      {"ae print 'obj {'", "offset 5"},
      {"event --json core getd ''", "procNotFound"},
      {"script --json 'tell application \"iTunes\" to stop'", "procNotFound"},
      {"app hide", "\"iTunes\" is not running"},
  };
  for (const auto& [args, where] : cases) {
    SCOPED_TRACE(args);
    const ToolRun r = runToolSeparately(args);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find(where), std::string::npos) << r.err;
  }
}

TEST_F(CommandLineTest, JsonEscapesWhateverBytesTheDataHolds) {
  // A file name with quotes, a backslash, control characters, a byte that is not UTF-8 and
  // UTF-8 that is: its lint report must still be one valid document that gives the name back.
  const std::string name = "q\"b\\c\x01\x1f\t\xFF \xC3\xA9.plist";
  const std::string path = write(name, "<plist><array><integer>1</integer></array></plist>");
  const std::string broken = write("broken.plist", "<plist><dict><key>a</key></dict></plist>");
  const ToolRun r = runToolSeparately("plist lint --json '" + path + "' '" + broken + "'");
  EXPECT_EQ(r.status, 1);
  const JsonResult doc = parseJson(r.out);
  ASSERT_TRUE(doc.value) << doc.error << "\n" << r.out;
  ASSERT_EQ(doc.value->size(), 2u);
  const Json& first = (*doc.value)[0];
  EXPECT_EQ(first["file"].text, dir_ + "/q\"b\\c\x01\x1f\t\xEF\xBF\xBD \xC3\xA9.plist");
  EXPECT_TRUE(first["ok"].boolean);
  EXPECT_TRUE(first["error"].isNull());
  const Json& second = (*doc.value)[1];
  EXPECT_FALSE(second["ok"].boolean);
  EXPECT_EQ(second["error"]["offset"].integer(), 13);
  EXPECT_EQ(second["error"]["message"].text, "key without a value");
  // The error is told on standard error too.
  EXPECT_NE(r.err.find(broken + ": error at offset 13"), std::string::npos) << r.err;
}

TEST_F(CommandLineTest, NumbersAndDescriptorsAsJson) {
  const std::string numbers = write(
      "numbers.plist",
      "<plist><dict><key>max</key><integer>9223372036854775807</integer><key>min</key>"
      "<integer>-9223372036854775808</integer><key>real</key><real>0.1</real></dict></plist>");
  ToolRun r = runToolSeparately("plist print --json '" + numbers + "'");
  ASSERT_EQ(r.status, 0) << r.err;
  JsonResult doc = parseJson(r.out);
  ASSERT_TRUE(doc.value) << doc.error << "\n" << r.out;
  EXPECT_EQ((*doc.value)["max"].integer(), INT64_MAX);
  EXPECT_EQ((*doc.value)["min"].integer(), INT64_MIN);
  EXPECT_EQ((*doc.value)["real"].text, "0.1");

  r = runToolSeparately("ae print --json --wire \"'long'(5)\"");
  ASSERT_EQ(r.status, 0) << r.err;
  doc = parseJson(r.out);
  ASSERT_TRUE(doc.value) << doc.error;
  EXPECT_EQ((*doc.value)["descriptor"].text, "5");
  EXPECT_EQ((*doc.value)["type"].text, "long");
  EXPECT_EQ((*doc.value)["wire"].text.size() % 2, 0u);
  EXPECT_NE((*doc.value)["wire"].text.find("6C6F6E6700000004"), std::string::npos);
}

}  // namespace
}  // namespace rvitunes::testing
