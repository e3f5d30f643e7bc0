// rvitunes script, apps and app against the player daemon on a private bus.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <chrono>
#include <string>
#include <thread>

#include "../player/HandlerTestSupport.h"
#include "JsonCheck.h"
#include "ToolRunner.h"

namespace rvitunes {
namespace {

using player::testing::ChildProcess;
using player::testing::ScratchFolder;
using testing::parseJson;
using testing::runTool;
using testing::runToolSeparately;

const char* const kVisibleQuery =
    "event core getd \"'----':obj { form:prop, want:type(prop), seld:type(pvis), from:null() }\"";

// A private bus for the tool and the daemon this test starts.
class ScriptCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("XDG_RUNTIME_DIR", runtime_.path().c_str(), 1);
    ::setenv("RVITUNES_FILEREF_DIR", (runtime_ / "file-references").c_str(), 1);
  }

  // Starts the daemon on the handler tests' library; true once `rvitunes apps` lists it.
  bool startPlayer() {
    library_ = player::testing::writeTestLibrary(folder_);
    if (!daemon_.start({player::testing::daemonPath(), "--library", library_},
                       {"XDG_RUNTIME_DIR=" + runtime_.path()}, folder_ / "daemon.log")) {
      return false;
    }
    for (int i = 0; i < 250 && daemon_.running(); ++i) {
      if (runTool("apps").out.find("iTunes") != std::string::npos) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }

  ScratchFolder runtime_;
  ScratchFolder folder_;
  std::string library_;
  ChildProcess daemon_;
};

TEST_F(ScriptCommandTest, RunsScriptsAndReportsErrorsWithTheirNumbers) {
  auto r = runTool("script 'tell application \"iTunes\" to stop'");
  EXPECT_EQ(r.status, 1) << r.out;
  EXPECT_NE(r.out.find("error -600 (procNotFound) from \"iTunes\": iTunes got an error: "
                       "Application isn't running."),
            std::string::npos)
      << r.out;

  r = runTool("script 'tell application \"iTunes\"\n  stop now\nend tell'");
  EXPECT_EQ(r.status, 1) << r.out;
  EXPECT_NE(r.out.find("syntax error -2740 (errOSASyntaxError): A \"now\" can't go after this "
                       "\"stop\".\nat line 2, column 8:\n    stop now\n         ^^^\n"),
            std::string::npos)
      << r.out;
  EXPECT_EQ(runTool("script").status, 2);
  EXPECT_EQ(runTool("script --bogus x").status, 2);

  ASSERT_TRUE(startPlayer()) << player::testing::readWhole(folder_ / "daemon.log");
  r = runTool("script --back 'tell application \"iTunes\" to stop'");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(r.out, "null()\n");
  r = runTool("script --json 'tell application \"iTunes\" to stop'");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(r.out, "{\"result\": null}\n");

  // An event's reply as JSON, and the error a reply reports.
  const std::string volume =
      "event --json core getd \"'----':obj { form:prop, want:type(prop), seld:type(pVol), "
      "from:null() }\"";
  r = runToolSeparately(volume);
  EXPECT_EQ(r.status, 0) << r.err;
  auto doc = parseJson(r.out);
  ASSERT_TRUE(doc.value) << doc.error << "\n" << r.out;
  EXPECT_NE((*doc.value)["reply"].text.find("'----'"), std::string::npos) << r.out;
  EXPECT_EQ((*doc.value)["errorNumber"].integer(), 0);
  EXPECT_TRUE((*doc.value)["errorString"].isNull());
  r = runToolSeparately(
      "event --json core getd \"'----':obj { form:indx, want:type(cTrk), seld:999999, "
      "from:null() }\"");
  EXPECT_EQ(r.status, 1);
  doc = parseJson(r.out);
  ASSERT_TRUE(doc.value) << doc.error << "\n" << r.out;
  EXPECT_NE((*doc.value)["errorNumber"].integer().value_or(0), 0);
  EXPECT_NE(r.err.find("the application answered error"), std::string::npos) << r.err;
  r = runToolSeparately("event --json --no-reply hook Stop ''");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "{\"reply\": null, \"errorNumber\": 0, \"errorString\": null}\n");
  const std::string file = folder_.write("show.applescript",
                                         "tell application \"iTunes\" to activate\n"
                                         "tell application \"System Events\"\n"
                                         "set visible of process \"iTunes\" to false\n"
                                         "end tell\n");
  r = runTool("script - < '" + file + "'");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(r.out, "");
  EXPECT_NE(runTool(kVisibleQuery).out.find("'bool'(0)"), std::string::npos);

  // The script road of play-file: the track plays, from its start.
  const std::string track = folder_ / "music/104.mp3";
  r = runTool("player play-file '" + track + "' --script");
  EXPECT_EQ(r.status, 0) << r.out;
  r = runTool("player status");
  EXPECT_NE(r.out.find("state: playing"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Delta Dawn"), std::string::npos) << r.out;
  r = runTool("player play-file '" + (folder_ / "missing.mp3") + "' --script");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("no such file"), std::string::npos) << r.out;
}

TEST_F(ScriptCommandTest, ListsShowsHidesAndQuitsApplicationsByName) {
  EXPECT_EQ(runTool("app hide").status, 1);
  ASSERT_TRUE(startPlayer()) << player::testing::readWhole(folder_ / "daemon.log");
  const std::string pid = std::to_string(daemon_.pid());

  auto r = runTool("apps");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("iTunes  'hook'     " + pid + "\n"), std::string::npos) << r.out;
  r = runTool("apps --json");
  EXPECT_EQ(r.status, 0);
  const auto doc = parseJson(r.out);
  ASSERT_TRUE(doc.value) << doc.error << "\n" << r.out;
  ASSERT_EQ(doc.value->size(), 1u);
  EXPECT_EQ((*doc.value)[0]["NSApplicationProcessIdentifier"].integer(), daemon_.pid());
  EXPECT_EQ(runTool("event --list --json").out, r.out);  // one listing, two names
  EXPECT_NE(
      r.out.find("\"NSApplicationName\": \"iTunes\",\n    \"NSApplicationProcessIdentifier\": " +
                 pid + ",\n    \"RVApplicationSignature\": \"hook\""),
      std::string::npos)
      << r.out;

  EXPECT_EQ(runTool("app hide").status, 0);
  EXPECT_NE(runTool(kVisibleQuery).out.find("'bool'(0)"), std::string::npos);
  EXPECT_EQ(runTool("app show iTunes").status, 0);
  EXPECT_NE(runTool(kVisibleQuery).out.find("'bool'(1)"), std::string::npos);

  r = runTool("app quit itunes");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("\"itunes\" is not running"), std::string::npos) << r.out;
  EXPECT_EQ(runTool("app bounce").status, 2);
  EXPECT_EQ(runTool("app quit").status, 0);
  EXPECT_EQ(daemon_.reap(std::chrono::seconds(10)), std::optional<int>(0));
}

}  // namespace
}  // namespace rvitunes
