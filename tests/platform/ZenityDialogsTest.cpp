#include "rvitunes/platform/ZenityDialogs.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "PlatformTestSupport.h"

namespace rvitunes::platform {
namespace {

using testing::readText;
using testing::ScopedEnvironment;
using testing::TemporaryDirectory;
using testing::writeText;

using Arguments = std::vector<std::string>;

std::string systemPath() {
  const char* path = ::getenv("PATH");
  return path != nullptr ? path : "/usr/bin:/bin";
}

// A stand-in `zenity` first on $PATH: records its arguments (NUL-separated), prints a chosen
// output and exits with a chosen status.
class FakeZenity {
 public:
  FakeZenity() : path_("PATH", bin_.path() + ":" + systemPath()) {
    writeText(bin_.file("zenity"),
              "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\0' \"$a\"; done > '" + bin_.file("args") +
                  "'\ncat '" + bin_.file("output") + "'\nexit $(cat '" + bin_.file("status") +
                  "')\n");
    ::chmod(bin_.file("zenity").c_str(), 0755);
    answer(0);
  }
  void answer(int status, const std::string& output = "") {
    writeText(bin_.file("status"), std::to_string(status));
    writeText(bin_.file("output"), output);
  }
  Arguments arguments() const {
    Arguments result;
    const std::string text = readText(bin_.file("args"));
    for (size_t start = 0, end; (end = text.find('\0', start)) != std::string::npos;
         start = end + 1) {
      result.push_back(text.substr(start, end - start));
    }
    return result;
  }

 private:
  TemporaryDirectory bin_;
  ScopedEnvironment path_;
};

TEST(ZenityDialogsTest, AlertPassesTextsLiterallyAndMapsExitStatus) {
  FakeZenity zenity;
  ZenityDialogs dialogs;
  const AlertRequest request{"Replace <b>\"it\"</b> & more?", "--text=x", "Replace", "Keep",
                             "Show"};
  EXPECT_EQ(dialogs.runAlert(request), kAlertDefaultReturn);
  EXPECT_EQ(
      zenity.arguments(),
      (Arguments{"--question", "--no-markup", "--text=Replace <b>\"it\"</b> & more?\n\n--text=x",
                 "--ok-label=Replace", "--cancel-label=Keep", "--extra-button=Show"}));
  zenity.answer(1);
  EXPECT_EQ(dialogs.runAlert(request), kAlertAlternateReturn);
  zenity.answer(1, "Show\n");
  EXPECT_EQ(dialogs.runAlert(request), kAlertOtherReturn);
  zenity.answer(5);  // timed out
  EXPECT_EQ(dialogs.runAlert(request), kAlertAlternateReturn);

  zenity.answer(1);  // an information window closed: still the only button
  EXPECT_EQ(dialogs.runAlert({"Finished", "", "", "", ""}), kAlertDefaultReturn);
  EXPECT_EQ(zenity.arguments(),
            (Arguments{"--info", "--no-markup", "--text=Finished", "--ok-label=OK"}));
}

TEST(ZenityDialogsTest, PanelFiltersByKindAndChecksWhatComesBack) {
  FakeZenity zenity;
  TemporaryDirectory dir;
  for (const char* name : {"Library.XML", "Other.itl", "Notes.txt"})
    writeText(dir.file(name), "");
  ZenityDialogs dialogs;
  const OpenPanelRequest request{false, false, {"xml", "itl", "bad ext"}};
  zenity.answer(0, dir.file("Library.XML") + "\n");
  EXPECT_EQ(dialogs.runOpenPanel(request), Arguments{dir.file("Library.XML")});
  EXPECT_EQ(zenity.arguments(),
            (Arguments{"--file-selection", "--title=Open",
                       "--file-filter=xml, itl, bad ext | *.[xX][mM][lL] *.[iI][tT][lL]"}));
  zenity.answer(0, dir.file("Notes.txt") + "\n");  // typed past the filter
  EXPECT_EQ(dialogs.runOpenPanel(request), std::nullopt);
  zenity.answer(1);
  EXPECT_EQ(dialogs.runOpenPanel(request), std::nullopt);

  zenity.answer(
      0, dir.file("Library.XML") + "\n" + dir.file("gone") + "\n" + dir.file("Other.itl") + "\n");
  EXPECT_EQ(dialogs.runOpenPanel({true, false, {}}),
            (Arguments{dir.file("Library.XML"), dir.file("Other.itl")}));
  EXPECT_EQ(zenity.arguments(),
            (Arguments{"--file-selection", "--title=Open", "--multiple", "--separator=\n"}));
}

TEST(ZenityDialogsTest, AvailabilityNeedsADisplayAndTheProgram) {
  ScopedEnvironment wayland("WAYLAND_DISPLAY", std::nullopt);
  {
    ScopedEnvironment display("DISPLAY", ":42");
    ScopedEnvironment path("PATH", "/nonexistent");
    EXPECT_FALSE(ZenityDialogs::available());
    EXPECT_EQ(ZenityDialogs().runAlert({"m", "", "OK", "Cancel", ""}), kAlertAlternateReturn);
  }
  FakeZenity zenity;
  ScopedEnvironment display("DISPLAY", std::nullopt);
  EXPECT_FALSE(ZenityDialogs::available());
  ScopedEnvironment waylandSet("WAYLAND_DISPLAY", "wayland-0");
  EXPECT_TRUE(ZenityDialogs::available());
}

}  // namespace
}  // namespace rvitunes::platform
