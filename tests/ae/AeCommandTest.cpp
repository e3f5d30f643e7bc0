// The `rvitunes ae` command, run as a user would.
#include <gtest/gtest.h>

#include "../cli/ToolRunner.h"

namespace rvitunes {
namespace {

using testing::runTool;

TEST(AeCommand, PrintsWhatItBuilt) {
  const auto run =
      runTool("ae print \"obj { form:prop, want:type(prop), seld:type(pnam), from:null() }\"");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            "'obj '{ 'form':'prop', 'want':type('prop'), 'seld':type('pnam'), 'from':null() }\n");

  const auto wire = runTool("ae print --wire -- -2");
  EXPECT_EQ(wire.status, 0);
  EXPECT_EQ(wire.out, "-2\n00000000  646C6532 00000000 73686F72 00000002\n00000010  FFFE\n");
  EXPECT_EQ(runTool("ae print --display \"'utxt'(\\$41004200\\$)\"").out, "'utxt'(\"AB\")\n");
}

TEST(AeCommand, BuildErrorsShowNameNumberAndCaret) {
  const auto run = runTool("ae print '{a:1 b:2}'");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out,
            "rvitunes ae: aeBuildSyntaxNoCloseBrace (15) at offset 5\n"
            "  {a:1 b:2}\n"
            "       ^\n");
  const auto range = runTool("ae print 'shor(40000)'");
  EXPECT_EQ(range.status, 1);
  EXPECT_NE(range.out.find("errAECoercionFail (-1700) at offset 5"), std::string::npos);
  const auto at = runTool("ae print '[@]'");
  EXPECT_EQ(at.status, 1);
  EXPECT_NE(at.out.find("paramErr (-50) at offset 1"), std::string::npos) << at.out;
}

TEST(AeCommand, Usage) {
  const auto help = runTool("ae --help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("usage: rvitunes ae print"), std::string::npos);
  EXPECT_EQ(runTool("ae").status, 2);
  EXPECT_EQ(runTool("ae show x").status, 2);
  EXPECT_EQ(runTool("ae print a b").status, 2);
  EXPECT_NE(runTool("--help").out.find("  ae "), std::string::npos);
}

}  // namespace
}  // namespace rvitunes
