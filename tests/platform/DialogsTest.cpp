#include "rvitunes/platform/Dialogs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "PlatformTestSupport.h"
#include "rvitunes/platform/TerminalDialogs.h"
#include "rvitunes/platform/ZenityDialogs.h"

namespace rvitunes::platform {
namespace {

using testing::ScopedEnvironment;
using testing::TemporaryDirectory;

template <class T>
bool is(const std::shared_ptr<Dialogs>& dialogs) {
  return dynamic_cast<T*>(dialogs.get()) != nullptr;
}

// The kind automatic() picks with `fd` as standard input.
template <class T>
bool automaticIs(int fd) {
  const int saved = ::dup(STDIN_FILENO);
  ::dup2(fd, STDIN_FILENO);
  const bool result = is<T>(Dialogs::automatic());
  ::dup2(saved, STDIN_FILENO);
  ::close(saved);
  return result;
}

TEST(DialogsTest, ScriptedDialogsAnswerInOrderAndRecordEveryRequest) {
  ScriptedDialogs scripted;
  scripted.pushAlertAnswer(kAlertOtherReturn);
  scripted.pushPanelAnswer(std::vector<std::string>{"/a.xml"});
  ScriptedDialogs copy = scripted;  // shares queues and records
  EXPECT_EQ(copy.runAlert({"first", "", "OK", "Cancel", "More"}), kAlertOtherReturn);
  EXPECT_EQ(scripted.runAlert({"second", "", "OK", "Cancel", ""}), kAlertAlternateReturn);
  EXPECT_EQ(scripted.runAlert({"third", "", "OK", "", ""}), kAlertDefaultReturn);
  EXPECT_EQ(scripted.runOpenPanel({false, false, {"xml"}}), std::vector<std::string>{"/a.xml"});
  EXPECT_EQ(scripted.runOpenPanel({}), std::nullopt);
  ASSERT_EQ(scripted.alerts().size(), 3u);
  EXPECT_EQ(scripted.alerts()[2].messageText, "third");
  ASSERT_EQ(copy.panels().size(), 2u);
  EXPECT_EQ(copy.panels()[0].allowedFileTypes, std::vector<std::string>{"xml"});
}

TEST(DialogsTest, InstalledNamedAndAutomaticChoices) {
  auto scripted = std::make_shared<ScriptedDialogs>();
  Dialogs::install(scripted);
  EXPECT_EQ(Dialogs::current(), scripted);
  Dialogs::install(nullptr);
  EXPECT_NE(Dialogs::current(), scripted);
  EXPECT_TRUE(is<TerminalDialogs>(Dialogs::named("terminal")));
  EXPECT_TRUE(is<ZenityDialogs>(Dialogs::named("desktop")));
  EXPECT_TRUE(is<NonInteractiveDialogs>(Dialogs::named("none")));
  EXPECT_EQ(Dialogs::named("Terminal"), nullptr);

  TemporaryDirectory bin;
  testing::writeText(bin.file("zenity"), "#!/bin/sh\n");
  ::chmod(bin.file("zenity").c_str(), 0755);
  ScopedEnvironment path("PATH", bin.path());
  ScopedEnvironment wayland("WAYLAND_DISPLAY", std::nullopt);
  ScopedEnvironment display("DISPLAY", ":42");
  const int devNull = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  EXPECT_TRUE(automaticIs<ZenityDialogs>(devNull));
  {
    ScopedEnvironment noDisplay("DISPLAY", std::nullopt);
    EXPECT_TRUE(automaticIs<NonInteractiveDialogs>(devNull));
  }
  ::close(devNull);
  const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0) GTEST_SKIP() << "no pty";
  const int terminal = ::open(::ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
  EXPECT_TRUE(automaticIs<TerminalDialogs>(terminal));  // a terminal wins over a display
  ::close(terminal);
  ::close(master);
}

}  // namespace
}  // namespace rvitunes::platform
