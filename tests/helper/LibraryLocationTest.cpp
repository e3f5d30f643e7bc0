// Finding the library file (stored default, iApps list, default location, the user),
// remembering the choice, the two alerts, and the change test.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "rvitunes/base/FileSystem.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/helper/LibraryAlerts.h"
#include "rvitunes/helper/RVITunesHelper.h"
#include "rvitunes/platform/Dialogs.h"
#include "rvitunes/platform/NotificationCenter.h"
#include "rvitunes/platform/UserDefaults.h"
#include "rvitunes/plist/PropertyList.h"

namespace rvitunes {
namespace {

using namespace rvitunes::testing;
using platform::kAlertAlternateReturn;
using platform::kAlertDefaultReturn;
using Paths = std::vector<std::string>;

constexpr const char* kDefaultTail = "Music/iTunes/iTunes Music Library.xml";

// Each test has its own home and settings folders, scripted dialogs, and records the
// missing-library notifications.
class LibraryLocation : public ::testing::Test {
 protected:
  LibraryLocation()
      : home_("HOME", home_dir_.path()), config_("XDG_CONFIG_HOME", home_dir_ / ".c") {}
  void SetUp() override {
    platform::Dialogs::install(dialogs_);
    observer_ = platform::NotificationCenter::defaultCenter().addObserver(
        std::string(kLoadiTunesMusicLibraryErrorNotification),
        [this](const platform::Notification& n) { posted_.push_back(n.object.longLongValue()); });
  }
  void TearDown() override {
    platform::NotificationCenter::defaultCenter().removeObserver(observer_);
    platform::Dialogs::install(nullptr);
  }

  std::optional<std::string> stored() {
    return platform::UserDefaults::standardUserDefaults()->stringForKey(kiTunesLibraryXMLPathKey);
  }
  void store(const std::string& path) {
    platform::UserDefaults::standardUserDefaults()->setStringForKey(path, kiTunesLibraryXMLPathKey);
  }
  void writeRecentDatabases(plist::Value list) {
    std::string path = home_dir_.write("Library/Preferences/com.apple.iApps.plist");
    ASSERT_TRUE(plist::PropertyList::writeFile(path, dict({{"iTunesRecentDatabases", list}}),
                                               plist::OutputFormat::kBinary1)
                    .ok());
  }

  ScratchFolder home_dir_;
  ScopedEnv home_;
  ScopedEnv config_;
  std::shared_ptr<platform::ScriptedDialogs> dialogs_ =
      std::make_shared<platform::ScriptedDialogs>();
  platform::NotificationCenter::ObserverId observer_ = 0;
  std::vector<int64_t> posted_;
  RVITunesHelper helper_;
};

TEST_F(LibraryLocation, DefaultPathIsTheHomeFolderAndTheFixedTail) {
  EXPECT_EQ(helper_.defaultiTunesXmlPath(), home_dir_ / kDefaultTail);
  ScopedEnv slash("HOME", home_dir_.path() + "/");
  EXPECT_EQ(helper_.defaultiTunesXmlPath(), home_dir_ / kDefaultTail);
}

TEST_F(LibraryLocation, LookupOrderAndTheStoredChoice) {
  std::string listed = home_dir_.write("My Music/iTunes Library.xml");
  std::string fallback = home_dir_.write(kDefaultTail);
  writeRecentDatabases(array({
      str("not a URL"), num(7),                                    // skipped
      str(Url::fileUrlWithPath(home_dir_ / "gone.xml").string()),  // missing
      str("file://localhost" + percentEncodePath(listed)),         // used
  }));

  // A stored file that exists wins over everything.
  std::string mine = home_dir_.write("mine.xml");
  store(mine);
  EXPECT_EQ(helper_.playlistLibraryFilePath(), mine);
  // Once it is deleted, the first existing entry of the list is used and stored...
  std::filesystem::remove(mine);
  EXPECT_EQ(helper_.enumeratorPropertyList(), listed);
  EXPECT_EQ(helper_.playlistLibraryFilePath(), listed);
  EXPECT_EQ(stored(), listed);
  // ...and without an existing entry, the default location.
  std::filesystem::remove(listed);
  EXPECT_EQ(helper_.enumeratorPropertyList(), std::nullopt);
  EXPECT_EQ(helper_.playlistLibraryFilePath(), fallback);
  EXPECT_EQ(stored(), fallback);
  EXPECT_TRUE(dialogs_->alerts().empty());
}

TEST_F(LibraryLocation, NothingAnywhereAsksTheUser) {
  dialogs_->pushAlertAnswer(kAlertAlternateReturn);  // "Cancel"
  EXPECT_EQ(helper_.playlistLibraryFilePath(), std::nullopt);
  ASSERT_EQ(dialogs_->alerts().size(), 1u);
  platform::AlertRequest alert = dialogs_->alerts()[0];
  EXPECT_EQ(alert.messageText, "Load \"iTunes Music Library.xml\" Error");
  EXPECT_EQ(alert.informativeText,
            "Application need read information from iTunes Music library location for iTunes, "
            "this location can change in iTunes Preferences.");
  EXPECT_EQ(alert.defaultButton, "Locate File");
  EXPECT_EQ(alert.alternateButton, "Cancel");
  EXPECT_EQ(alert.otherButton, "");
  EXPECT_TRUE(dialogs_->panels().empty());

  dialogs_->pushAlertAnswer(kAlertDefaultReturn);  // "Locate File", then the panel is cancelled
  dialogs_->pushPanelAnswer(std::nullopt);
  EXPECT_EQ(helper_.playlistLibraryFilePath(), std::nullopt);
  ASSERT_EQ(dialogs_->panels().size(), 1u);
  platform::OpenPanelRequest panel = dialogs_->panels()[0];
  EXPECT_FALSE(panel.allowsMultipleSelection);
  EXPECT_FALSE(panel.canChooseDirectories);
  EXPECT_EQ(panel.allowedFileTypes, Paths{"xml"});

  std::string chosen = home_dir_.write("elsewhere.xml");  // a file picked in the panel is stored
  dialogs_->pushAlertAnswer(kAlertDefaultReturn);
  dialogs_->pushPanelAnswer(Paths{chosen, home_dir_ / "second.xml"});
  EXPECT_EQ(helper_.playlistLibraryFilePath(), chosen);
  EXPECT_EQ(stored(), chosen);

  std::filesystem::remove(chosen);  // a missing one is answered but not stored
  dialogs_->pushAlertAnswer(kAlertDefaultReturn);
  dialogs_->pushPanelAnswer(Paths{home_dir_ / "ghost.xml"});
  EXPECT_EQ(helper_.playlistLibraryFilePath(), home_dir_ / "ghost.xml");
  dialogs_->pushAlertAnswer(platform::kAlertOtherReturn);  // another button keeps the default
  EXPECT_EQ(helper_.playlistLibraryFilePath(), home_dir_ / kDefaultTail);
  EXPECT_EQ(stored(), chosen);
  EXPECT_EQ(posted_, (std::vector<int64_t>{0, 1, 1, 1, -1}));
}

TEST_F(LibraryLocation, SettingThePathNeedsAnExistingFile) {
  std::string first = home_dir_.write("first.xml");
  helper_.setPlaylistLibraryFilePath(first);
  helper_.setPlaylistLibraryFilePath(home_dir_ / "missing.xml");
  helper_.setPlaylistLibraryFilePath(std::nullopt);
  EXPECT_EQ(stored(), first);
}

TEST_F(LibraryLocation, ChangeTestComparesWithTheLastSeenDate) {
  std::string library = home_dir_.write(kDefaultTail);
  Date modified = *FileSystem::defaultFileSystem().modificationDate(library);
  EXPECT_TRUE(helper_.isiTunesLibraryFileUpdate());  // a fresh object holds the epoch
  helper_.setXmlInfodate(modified);
  EXPECT_FALSE(helper_.isiTunesLibraryFileUpdate());
  helper_.setXmlInfodate(Date::fromAbsoluteTime(modified.absoluteTime() - 1.0));
  EXPECT_TRUE(helper_.isiTunesLibraryFileUpdate());
  helper_.setXmlInfodate(std::nullopt);
  EXPECT_TRUE(helper_.isiTunesLibraryFileUpdate());
  EXPECT_TRUE(helper_.isLibraryFileUpdatedAtPath(home_dir_ / "none.xml"));  // nil date first

  helper_.setXmlInfodate(Date::fromUnixTime(5000.0));
  EXPECT_FALSE(helper_.isLibraryFileUpdatedAtPath(home_dir_ / "none.xml"));
  // The date of a symbolic link itself counts, not its target's.
  std::string link = home_dir_ / "link.xml";
  std::filesystem::create_symlink(library, link);
  timespec old[2] = {{1000, 0}, {1000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, link.c_str(), old, AT_SYMLINK_NOFOLLOW), 0);
  EXPECT_FALSE(helper_.isLibraryFileUpdatedAtPath(link));

  std::filesystem::remove(library);
  dialogs_->pushAlertAnswer(kAlertAlternateReturn);
  EXPECT_FALSE(helper_.isiTunesLibraryFileUpdate());
  EXPECT_EQ(dialogs_->alerts().size(), 1u);
}

TEST_F(LibraryLocation, TrackErrorAlertHasOneButtonAndPostsNothing) {
  dialogs_->pushAlertAnswer(kAlertDefaultReturn);
  EXPECT_EQ(ReadiTunesMusicLibraryTrackErrorAlertMessage(), kAlertDefaultReturn);
  platform::AlertRequest alert = dialogs_->alerts().at(0);
  EXPECT_EQ(alert.messageText, "No tracks for iTunes Music Library");
  EXPECT_EQ(alert.informativeText,
            "Read track info Error, maybe you hide library playlist in iTunes Preferences.");
  EXPECT_EQ(alert.defaultButton, "OK");
  EXPECT_EQ(alert.alternateButton + alert.otherButton, "");
  EXPECT_TRUE(posted_.empty());
}

TEST(SharedHelper, OneInstanceStartingEmpty) {
  std::vector<std::shared_ptr<RVITunesHelper>> seen(8);
  std::vector<std::thread> threads;
  for (auto& slot : seen)
    threads.emplace_back([&slot] { slot = RVITunesHelper::sharediTunesHelper(); });
  for (auto& t : threads)
    t.join();
  for (const auto& h : seen)
    EXPECT_EQ(h, seen[0]);
  EXPECT_EQ(seen[0]->xmlInfodate(), Date::fromUnixTime(0.0));
  EXPECT_EQ(seen[0]->showFlags(), 0u);
  EXPECT_TRUE(seen[0]->playlistsArray().empty() && seen[0]->tracksInfoDict().empty());
}

}  // namespace
}  // namespace rvitunes
