// The script interpreter: what compiles, the syntax errors (number, message, range) of what
// does not, the events each statement sends, and the errors of a run.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ScriptTestSupport.h"
#include "rvitunes/ae/Coercion.h"
#include "rvitunes/helper/AppleScript.h"

namespace rvitunes {
namespace {

using script_testing::RecordingApp;

constexpr OSType kRecorder = fourCharCode("Rec1");

struct Compiled {
  bool ok = false;
  size_t statements = 0;
  AppleScriptError error;
};

Compiled compile(const std::string& source) {
  AppleScript script(source);
  Compiled c;
  c.ok = script.compile(&c.error);
  c.statements = script.statementCount();
  return c;
}

TEST(AppleScriptCompileTest, AcceptsTheComposedScriptsAndTheirVariants) {
  const struct {
    const char* source;
    size_t statements;
  } cases[] = {
      // The framework's own scripts.
      {"tell application \"iTunes\"\nplay POSIX file \"/m/a b.mp3\" with once\n"
       "set player position to 0\nend tell\n",
       2},
      {"tell application \"iTunes\"\nstop\nend tell\n", 1},
      {"tell application \"Mail\" to activate\ntell application \"System Events\"\n"
       "set visible of process \"Mail\" to true\nend tell\n",
       2},
      {"tell application \"System Events\"  to tell process \"Mail\" to set visible to false\n", 1},
      {"tell application \"Mail\"\nquit\nend tell\n", 1},
      // Line ends, case, blanks, "end" alone, no final line end, an empty script.
      {"TELL Application \"iTunes\"\r\n\tStop\r\n\r\nEND\r\n", 1},
      {"tell application \"iTunes\"\rstop\rend tell", 1},
      {"", 0},
      {"\n  \n", 0},
      // Nesting, the block form of a process, the optional parts of play, numbers.
      {"tell application \"a\"\ntell application \"b\"\nstop\nend tell\nquit\nend tell\n", 2},
      {"tell application \"System Events\"\ntell process \"a\"\nset visible to true\nend tell\n"
       "end tell\n",
       1},
      {"tell application \"a\" to play\ntell application \"a\" to play without once\n", 2},
      {"tell application \"a\" to set player position to -12.5\n", 1},
      {"tell application \"a\" to play POSIX file \"q\\\"u\\\\o\\tte\"\n", 1},
      {"tell application \"System Events\" to tell application \"a\" to quit\n", 1},
  };
  for (const auto& c : cases) {
    const Compiled result = compile(c.source);
    EXPECT_TRUE(result.ok) << c.source << "\n" << result.error.message;
    EXPECT_EQ(result.statements, c.statements) << c.source;
  }
}

TEST(AppleScriptCompileTest, ReportsTheFirstSyntaxErrorWithNumberAndRange) {
  const std::string deep = [] {
    std::string s;
    for (int i = 0; i < 40; ++i)
      s += "tell application \"a\" to ";
    return s + "stop\n";
  }();
  const struct {
    std::string source;
    int32_t number;
    size_t offset;
    size_t length;
    const char* message;
  } cases[] = {
      {"stop\n", -2741, 0, 4, "Expected \"tell\" but found \"stop\"."},
      {"end tell\n", -2741, 0, 3, "Expected \"tell\" but found \"end\"."},
      {"tell application \"iTunes\"\nstop now\nend tell\n", -2740, 31, 3,
       "A \"now\" can't go after this \"stop\"."},
      {"tell application \"iTunes\"\nstop\n", -2741, 31, 0,
       "Expected \"end\" but found end of script."},
      {"tell application \"iTunes\" to pause\n", -2741, 29, 5,
       "Expected a command but found \"pause\"."},
      {"tell application \"iTunes\" stop\n", -2741, 26, 4,
       "Expected \"to\" or end of line but found \"stop\"."},
      {"tell application \"i\" to play POSIX file \"/a\" with twice\n", -2741, 50, 5,
       "Expected \"once\" but found \"twice\"."},
      {"tell application \"iTunes\n", -2741, 25, 0, "Expected \"\"\" but found end of script."},
      {"tell application \"a\\qb\" to quit\n", -2741, 19, 2,
       "Expected one of \\\" \\\\ \\n \\r \\t but found \"\\q\"."},
      {"tell application \"System Events\" to play\n", -2740, 36, 4,
       "A \"play\" can't go inside tell application \"System Events\"."},
      {"tell application \"System Events\" to tell process \"x\" to quit\n", -2740, 56, 4,
       "A \"quit\" can't go inside tell process \"x\"."},
      {"tell application \"i\" to tell process \"i\" to set visible to false\n", -2741, 29, 7,
       "Expected \"application\" but found \"process\"."},
      {"tell application \"System Events\" to tell process \"x\" to set visible to maybe\n", -2741,
       71, 5, "Expected \"true\" or \"false\" but found \"maybe\"."},
      {"tell application \"i\"\nset visible of process \"x\" to true\nend tell\n", -2741, 25, 7,
       "Expected \"player\" but found \"visible\"."},
      {"tell application \"i\" to set player position to \"0\"\n", -2741, 47, 3,
       "Expected number but found string."},
      {"tell application \"i\" to set player position to 0 {\n", -2740, 49, 1,
       "A \"{\" can't go after this number."},
      {"tell application \"i\" to stop \xC2\xAC\nstop\n", -2740, 29, 2,
       "A \"\xC2\xAC\" can't go after this \"stop\"."},
      {"tell application \"i\" to tell application \"j\"\nstop\nend tell\n", -2741, 44, 1,
       "Expected \"to\" but found end of line."},
      {deep, -2740, 32 * 24, 4, "The tell statements are nested too deeply."},
  };
  for (const auto& c : cases) {
    const Compiled result = compile(c.source);
    EXPECT_FALSE(result.ok) << c.source;
    EXPECT_EQ(result.error.number, c.number) << c.source;
    EXPECT_EQ(result.error.message, c.message) << c.source;
    EXPECT_EQ(result.error.offset, c.offset) << c.source;
    EXPECT_EQ(result.error.length, c.length) << c.source;
    EXPECT_EQ(result.error.application, "") << c.source;
  }
}

TEST(AppleScriptRunTest, ScriptThatDoesNotCompileSendsNothing) {
  RecordingApp app(kRecorder, "Rec");
  AppleScript script("tell application \"Rec\" to stop\ntell application \"Rec\" to pause\n");
  AppleScriptError error;
  EXPECT_EQ(script.executeAndReturnError(&error), nullptr);
  EXPECT_EQ(error.number, errOSASyntaxTypeError);
  EXPECT_TRUE(app.events().empty());
  EXPECT_FALSE(script.isCompiled());
}

TEST(AppleScriptRunTest, SendsEachStatementsEventInOrder) {
  RecordingApp app(kRecorder, "Rec");
  AppleScript script(
      "tell application \"Rec\"\n"
      "play POSIX file \"/m/a b.mp3\" with once\n"
      "play without once\n"
      "set player position to 0\n"
      "set player position to -2.0\n"
      "stop\n"
      "end tell\n"
      "tell application \"Rec\" to activate\n"
      "tell application \"System Events\"\n"
      "set visible of process \"Rec\" to true\n"
      "end tell\n"
      "tell application \"System Events\"  to tell process \"Rec\" to set visible to false\n"
      "tell application \"Rec\"\nquit\nend tell\n");
  AppleScriptError error;
  const auto result = script.executeAndReturnError(&error);
  ASSERT_NE(result, nullptr) << error.message;
  EXPECT_TRUE(result->isNull());
  const std::string position =
      "'----':'obj '{ 'form':'prop', 'want':type('prop'), 'seld':type('pPos'), 'from':null() }";
  const std::string visible =
      "'----':'obj '{ 'form':'prop', 'want':type('prop'), 'seld':type('pvis'), 'from':null() }";
  const std::vector<std::string> expected = {
      "'hook'\\'Play'{ '----':'furl'(\"file:///m/a%20b.mp3\"), 'POne':'true'(), "
      "&'subj':null(), &'csig':65536 }",
      "'hook'\\'Play'{ 'POne':'fals'(), &'subj':null(), &'csig':65536 }",
      "'core'\\'setd'{ " + position + ", 'data':0, &'csig':65536 }",
      "'core'\\'setd'{ " + position + ", 'data':'doub'(-2), &'csig':65536 }",
      "'hook'\\'Stop'{ &'subj':null(), &'csig':65536 }",
      "'misc'\\'actv'{}",
      "'core'\\'setd'{ " + visible + ", 'data':'true'(), &'csig':65536 }",
      "'core'\\'setd'{ " + visible + ", 'data':'fals'(), &'csig':65536 }",
      "'aevt'\\'quit'{ &'subj':null(), &'csig':65536 }",
  };
  EXPECT_EQ(app.events(), expected);
}

TEST(AppleScriptRunTest, ApplicationsAreFoundByExactNameThenIgnoringCase) {
  RecordingApp upper(fourCharCode("Rec1"), "Rec");
  RecordingApp lower(fourCharCode("Rec2"), "rec");
  AppleScriptError error;
  ASSERT_NE(AppleScript("tell application \"rec\" to stop").executeAndReturnError(&error), nullptr);
  EXPECT_EQ(lower.events().size(), 1u);
  EXPECT_TRUE(upper.events().empty());
  ASSERT_NE(AppleScript("tell application \"REC\" to stop").executeAndReturnError(&error), nullptr);
  EXPECT_EQ(upper.events().size(), 1u);
}

TEST(AppleScriptRunTest, ErrorsCarryNumberMessageApplicationAndStatementRange) {
  RecordingApp app(kRecorder, "Rec");
  AppleScriptError error;

  // Not running: the application is not launched.
  EXPECT_EQ(AppleScript("tell application \"Nobody\" to activate").executeAndReturnError(&error),
            nullptr);
  EXPECT_EQ(error.number, procNotFound);
  EXPECT_EQ(error.application, "Nobody");
  EXPECT_EQ(error.message, "Nobody got an error: Application isn't running.");
  EXPECT_EQ(error.offset, 29u);
  EXPECT_EQ(error.length, 8u);

  // System Events knows no such process.
  const std::string hide =
      "tell application \"System Events\"  to tell process \"Nobody\" to set visible to false\n";
  EXPECT_EQ(AppleScript(hide).executeAndReturnError(&error), nullptr);
  EXPECT_EQ(error.number, errAENoSuchObject);
  EXPECT_EQ(error.application, "System Events");
  EXPECT_EQ(error.message, "System Events got an error: Can't get process \"Nobody\".");
  EXPECT_EQ(hide.substr(error.offset, error.length), "set visible to false");

  // The application's own error, with and without its text; the run stops there.
  app.respond([](const ae::Descriptor& event, ae::Descriptor& reply) -> OSStatus {
    if (event.eventID() != ae::kAEQuitApplication) return noErr;
    if (!reply.isNull() && event.findParam(ae::keyDirectObject) == nullptr) {
      (void)reply.putParamDesc(ae::keyErrorString, ae::Descriptor::makeUnicodeText("Not now."));
    }
    return errAEEventNotHandled;
  });
  const std::string source = "tell application \"Rec\"\nstop\nquit\nactivate\nend tell\n";
  EXPECT_EQ(AppleScript(source).executeAndReturnError(&error), nullptr);
  EXPECT_EQ(error.number, errAEEventNotHandled);
  EXPECT_EQ(error.application, "Rec");
  EXPECT_EQ(error.message, "Rec got an error: Not now.");
  EXPECT_EQ(source.substr(error.offset, error.length), "quit");
  EXPECT_EQ(app.events().size(), 2u);  // stop and quit; activate never went

  app.respond([](const ae::Descriptor&, ae::Descriptor&) { return errAEEventNotHandled; });
  EXPECT_EQ(AppleScript("tell application \"Rec\" to play").executeAndReturnError(&error), nullptr);
  EXPECT_EQ(error.message, "Rec got an error: It doesn't understand the \"play\" message.");
}

TEST(AppleScriptRunTest, ResultIsTheLastRepliesDirectObject) {
  RecordingApp app(kRecorder, "Rec");
  app.respond([](const ae::Descriptor& event, ae::Descriptor& reply) {
    if (!reply.isNull() && event.eventID() == fourCharCode("Stop")) {
      (void)reply.putParamDesc(ae::keyDirectObject, ae::Descriptor::makeUnicodeText("stopped"));
    }
    return noErr;
  });
  AppleScriptError error;
  auto result = AppleScript("tell application \"Rec\"\nactivate\nstop\nend tell")
                    .executeAndReturnError(&error);
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(ae::textValue(*result).value(), "stopped");
  result = AppleScript("tell application \"Rec\"\nstop\nactivate\nend tell")
               .executeAndReturnError(&error);
  ASSERT_NE(result, nullptr);
  EXPECT_TRUE(result->isNull());
  // An empty script runs and answers nothing.
  result = AppleScript("").executeAndReturnError(nullptr);
  ASSERT_NE(result, nullptr);
  EXPECT_TRUE(result->isNull());
}

}  // namespace
}  // namespace rvitunes
