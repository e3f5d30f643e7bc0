// The rvitunes tool's plist commands, run as a user runs them.

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include "JsonCheck.h"
#include "ToolRunner.h"

#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"

namespace rvitunes {
namespace {

using testing::JsonResult;
using testing::parseJson;
using testing::runTool;
using testing::ToolRun;

class PlistCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/rvitunes-cli-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
  }
  void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }
  std::string write(const std::string& name, const std::string& text) {
    std::string path = dir_ + "/" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  std::string read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
  }
  std::string dir_;
  const std::string sample_ =
      std::string(RVITUNES_SOURCE_DIR) + "/examples/library/iTunes Music Library.xml";
};

TEST_F(PlistCommand, LintReportsOkErrorsWithOffsetAndRepairs) {
  std::string good =
      write("good.plist", "<plist><dict><key>a</key><integer>1</integer></dict></plist>");
  std::string bad = write("bad.plist", "<plist><dict><key>a</key></dict></plist>");
  std::string repaired = write("repaired.plist", "<plist><string>a\x01</string></plist>");
  ToolRun r = runTool("plist lint '" + good + "' '" + bad + "' '" + repaired + "'");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find(good + ": OK"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find(bad + ": error at offset 13: key without a value"), std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find(repaired + ": warning at offset 16"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find(repaired + ": OK"), std::string::npos) << r.out;
  EXPECT_EQ(runTool("plist lint '" + good + "'").status, 0);
  EXPECT_EQ(runTool("plist lint '" + dir_ + "/missing.plist'").status, 1);
}

TEST_F(PlistCommand, ConvertRoundTripsTheSampleThroughEveryFormat) {
  std::string bin = dir_ + "/lib.bplist";
  std::string json = dir_ + "/lib.json";
  std::string back = dir_ + "/lib.xml";
  ASSERT_EQ(runTool("plist convert --format binary1 -o '" + bin + "' '" + sample_ + "'").status, 0);
  ASSERT_EQ(runTool("plist convert --format=json -o '" + json + "' '" + bin + "'").status, 0);
  ASSERT_EQ(runTool("plist convert --format xml1 -o '" + back + "' '" + bin + "'").status, 0);
  EXPECT_EQ(read(back), read(sample_));  // binary loses nothing the XML held
  std::string text = read(json);
  EXPECT_EQ(text.front(), '{');
  EXPECT_NE(text.find("\"Tracks\": {"), std::string::npos);
  // The JSON of the whole sample, and print --json, are documents a strict reader accepts.
  const JsonResult doc = parseJson(text);
  ASSERT_TRUE(doc.value) << doc.error;
  EXPECT_EQ((*doc.value)["Tracks"].size(), 30u);
  EXPECT_EQ(runTool("plist print --json '" + bin + "'").out, text);
}

TEST_F(PlistCommand, ConvertWithoutOutputReplacesTheFileAndStdoutWorks) {
  std::string path = write("in.plist", "<plist><array><integer>7</integer></array></plist>");
  ASSERT_EQ(runTool("plist convert --format binary1 '" + path + "'").status, 0);
  EXPECT_EQ(read(path).substr(0, 8), "bplist00");
  ToolRun r = runTool("plist convert --format json --output - '" + path + "'");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("7"), std::string::npos);
}

TEST_F(PlistCommand, BadInputLosesNothing) {
  const std::string broken = "<plist><dict><key>a</key><integer>1</integer>";
  std::string path = write("broken.plist", broken);
  std::string out = dir_ + "/out.plist";
  write("out.plist", "keep me");
  ToolRun r = runTool("plist convert --format xml1 -o '" + out + "' '" + path + "'");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("error at offset"), std::string::npos) << r.out;
  EXPECT_EQ(read(out), "keep me");
  EXPECT_EQ(read(path), broken);
}

TEST_F(PlistCommand, PrintShowsTheTree) {
  ToolRun r = runTool("plist print '" + sample_ + "'");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("\"Tracks\""), std::string::npos);
  EXPECT_NE(r.out.find("\"Playlists\""), std::string::npos);
}

TEST_F(PlistCommand, UsageErrorsExitTwoAndHelpExitsZero) {
  EXPECT_EQ(runTool("").status, 2);
  EXPECT_EQ(runTool("frobnicate").status, 2);
  EXPECT_EQ(runTool("plist").status, 2);
  EXPECT_EQ(runTool("plist lint").status, 2);
  EXPECT_EQ(runTool("plist convert -o x").status, 2);
  EXPECT_EQ(runTool("plist convert --format yaml x").status, 2);
  EXPECT_EQ(runTool("plist lint --bogus x").status, 2);
  ToolRun help = runTool("plist --help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("usage: rvitunes plist"), std::string::npos);
  EXPECT_EQ(runTool("--help").status, 0);
}

}  // namespace
}  // namespace rvitunes
