#include "rvitunes/platform/TerminalDialogs.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>

#include "PlatformTestSupport.h"

namespace rvitunes::platform {
namespace {

using testing::ScopedEnvironment;
using testing::TemporaryDirectory;
using testing::writeText;

// Runs `ask` with `typed` (then end of input) in a pipe as the answers; answers the prompts.
std::string converse(const std::string& typed, const std::function<void(TerminalDialogs&)>& ask) {
  int input[2];
  int output[2];
  if (::pipe(input) != 0 || ::pipe(output) != 0) ADD_FAILURE() << "no pipes";
  EXPECT_EQ(::write(input[1], typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
  ::close(input[1]);
  FILE* in = ::fdopen(input[0], "r");
  FILE* out = ::fdopen(output[1], "w");
  TerminalDialogs dialogs(in, out);
  ask(dialogs);
  std::fclose(in);
  std::fclose(out);
  std::string printed;
  char buffer[4096];
  for (ssize_t n; (n = ::read(output[0], buffer, sizeof buffer)) > 0;)
    printed.append(buffer, n);
  ::close(output[0]);
  return printed;
}

const AlertRequest kSave{"Save changes?", "Edits are lost otherwise.", "Save", "Don't Save",
                         "Cancel"};

TEST(TerminalDialogsTest, AlertAnswersTheChosenButton) {
  const AlertRequest onlyDefault{"Done.", "", "OK", "", ""};
  const AlertRequest noAlternate{"Done.", "", "OK", "", "More"};
  const struct {
    const char* typed;
    const AlertRequest& request;
    int expected;
  } cases[] = {
      {"1\n", kSave, kAlertDefaultReturn},
      {"2\n", kSave, kAlertAlternateReturn},
      {" 3 \r\n", kSave, kAlertOtherReturn},
      {"\n", kSave, kAlertDefaultReturn},              // Return takes the default
      {"don't save\n", kSave, kAlertAlternateReturn},  // a title in any case
      {"", kSave, kAlertAlternateReturn},              // end of input: the cautious answer
      {"", onlyDefault, kAlertDefaultReturn},
      {"2\n", noAlternate, kAlertOtherReturn},
      {"7\nsave it\n0\n3\n", kSave, kAlertOtherReturn},   // three refusals, then valid
      {"x\nx\nx\nx\n1\n", kSave, kAlertAlternateReturn},  // a fourth refusal ends it
  };
  for (const auto& c : cases) {
    int answer = 99;
    converse(c.typed, [&](TerminalDialogs& d) { answer = d.runAlert(c.request); });
    EXPECT_EQ(answer, c.expected) << c.typed;
  }
  EXPECT_EQ(converse("maybe\n2\n", [](TerminalDialogs& d) { d.runAlert(kSave); }),
            "\nSave changes?\nEdits are lost otherwise.\n"
            "  1) Save\n  2) Don't Save\n  3) Cancel\n"
            "Choose 1-3 [1]: "
            "Please answer with a number from 1 to 3, or press Return for \"Save\".\n"
            "Choose 1-3 [1]: ");
}

class TerminalPanelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"Library.xml", "Notes.txt", "SHOUT.XML"})
      writeText(dir_.file(name), "");
    std::filesystem::create_directory(dir_.file("Folder.xml"));
  }
  // The panel's answer to the typed lines; what it printed goes to `printed_`.
  std::optional<std::vector<std::string>> choose(const std::string& typed,
                                                 const OpenPanelRequest& request) {
    std::optional<std::vector<std::string>> answer;
    printed_ = converse(typed, [&](TerminalDialogs& d) { answer = d.runOpenPanel(request); });
    return answer;
  }
  std::optional<std::vector<std::string>> only(const std::string& name) {
    return std::vector<std::string>{dir_.file(name)};
  }
  std::string line(const std::string& name) { return dir_.file(name) + "\n"; }

  TemporaryDirectory dir_;
  std::string printed_;
  const OpenPanelRequest xml_{false, false, {"xml", ".itl"}};
};

TEST_F(TerminalPanelTest, AcceptsOnlyExistingFilesOfTheAllowedKinds) {
  EXPECT_EQ(choose(line("Notes.txt") + line("Library.xml"), xml_), only("Library.xml"));
  EXPECT_NE(printed_.find("is not one of the allowed kinds (xml, itl)"), std::string::npos);
  EXPECT_EQ(choose(line("SHOUT.XML"), xml_), only("SHOUT.XML"));
  EXPECT_EQ(choose(line("Notes.txt"), {}), only("Notes.txt"));  // no types: any file
  EXPECT_EQ(choose(line("Folder.xml"), xml_), std::nullopt);
  EXPECT_NE(printed_.find("is a folder; choose a file."), std::string::npos) << printed_;
  EXPECT_EQ(choose(line("Folder.xml"), {false, true, {"xml"}}), only("Folder.xml"));
  EXPECT_EQ(choose(line("missing.xml"), xml_), std::nullopt);
  EXPECT_NE(printed_.find("There is no file at"), std::string::npos) << printed_;

  ScopedEnvironment home("HOME", dir_.path());
  EXPECT_EQ(choose("~/Library.xml\n", xml_), only("Library.xml"));
}

TEST_F(TerminalPanelTest, CancelsOnEmptyLineEndOfInputOrTooManyRefusals) {
  EXPECT_EQ(choose("\n" + line("Library.xml"), xml_), std::nullopt);
  EXPECT_EQ(choose("", xml_), std::nullopt);
  const std::string wrong = line("Notes.txt");
  EXPECT_EQ(choose(wrong + wrong + wrong + line("Library.xml"), xml_), only("Library.xml"));
  EXPECT_EQ(choose(wrong + wrong + wrong + wrong + line("Library.xml"), xml_), std::nullopt);
  EXPECT_NE(printed_.find("No file chosen after 4 attempts."), std::string::npos) << printed_;
}

}  // namespace
}  // namespace rvitunes::platform
