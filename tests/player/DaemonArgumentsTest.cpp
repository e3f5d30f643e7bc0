// The daemon's command line: both spellings of the library option, and the refusals.

#include <gtest/gtest.h>

#include "rvitunes/player/Daemon.h"

namespace rvitunes::player {
namespace {

TEST(DaemonArgumentsTest, TakesTheLibraryUnderEitherSpelling) {
  for (const char* option : {"--file", "--library"}) {
    auto options = parseDaemonArguments({option, "/music/lib.xml", "--player-version", "7.2.1"});
    ASSERT_TRUE(options.ok()) << option;
    EXPECT_EQ(options->libraryPath, "/music/lib.xml");
    EXPECT_EQ(options->version.text(), "7.2.1");
  }
}

TEST(DaemonArgumentsTest, RefusesWrongUsageWithTheReason) {
  struct Case {
    std::vector<std::string> args;
    std::string reason;
  };
  const Case cases[] = {
      {{}, "--file FILE is required"},
      {{"--file"}, "--file needs a value"},
      {{"--file", "a.xml", "--player-version", "seven"}, "is not a version"},
      {{"--file", "a.xml", "--name", ""}, "non-empty name"},
      {{"--file", "a.xml", "--loud"}, "unknown argument"},
  };
  for (const Case& c : cases) {
    auto options = parseDaemonArguments(c.args);
    ASSERT_FALSE(options.ok());
    EXPECT_NE(options.status().toString().find(c.reason), std::string::npos)
        << options.status().toString();
  }
  // --help and --version need no library.
  EXPECT_TRUE(parseDaemonArguments({"--help"}).ok());
  EXPECT_TRUE(parseDaemonArguments({"--version"}).ok());
}

}  // namespace
}  // namespace rvitunes::player
