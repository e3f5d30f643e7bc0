#include "rvitunes/platform/SharedPreferences.h"

#include <gtest/gtest.h>

#include "PlatformTestSupport.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"

namespace rvitunes::platform {
namespace {

using plist::OutputFormat;
using plist::Value;
using testing::ScopedEnvironment;
using testing::TemporaryDirectory;
using testing::writeText;

void writePreferences(const std::string& path, const char* key, Value value, OutputFormat format) {
  auto root = plist::Dictionary::create();
  root->set(key, std::move(value));
  writeText(path, plist::PropertyList::encode(Value(root), format).value());
}

class SharedPreferencesTest : public ::testing::Test {
 protected:
  Value lookUp(const char* key) { return SharedPreferences::copyAppValue(key, "com.apple.iApps"); }

  TemporaryDirectory home_;
  ScopedEnvironment homeVariable_{"HOME", home_.path()};
  ScopedEnvironment configVariable_{"XDG_CONFIG_HOME", std::nullopt};
  const std::string macPath_ = home_.file("Library/Preferences/com.apple.iApps.plist");
  const std::string xdgPath_ = home_.file(".config/rvitunes/com.apple.iApps.plist");
};

TEST_F(SharedPreferencesTest, TheMacFileComesFirstAndMissingKeysFallThrough) {
  EXPECT_EQ(SharedPreferences::candidatePaths("com.apple.iApps"),
            (std::vector<std::string>{macPath_, xdgPath_}));
  auto databases = plist::Array::create();
  databases->push_back(Value::string("file:///Users/me/Music/iTunes/iTunes%20Library.xml"));
  writePreferences(macPath_, "iTunesRecentDatabases", Value(databases), OutputFormat::kBinary1);
  writePreferences(xdgPath_, "iTunesRecentDatabases", Value::string("xdg"), OutputFormat::kXml1);
  EXPECT_EQ(lookUp("iTunesRecentDatabases"), Value(databases));

  writePreferences(xdgPath_, "OnlyHere", Value::integer(42), OutputFormat::kXml1);
  EXPECT_EQ(lookUp("OnlyHere"), Value::integer(42));
  EXPECT_TRUE(lookUp("Nowhere").isNil());
  EXPECT_TRUE(SharedPreferences::copyAppValue("OnlyHere", "com.example.absent").isNil());
  EXPECT_TRUE(SharedPreferences::copyAppValue("OnlyHere", "../rvitunes/com.apple.iApps").isNil());
}

TEST_F(SharedPreferencesTest, UnreadableFilesArePassedOver) {
  writePreferences(xdgPath_, "Key", Value::string("second"), OutputFormat::kXml1);
  for (const char* first : {"bplist00 truncated", "<plist><dict><key>Key</key>", "<array/>"}) {
    writeText(macPath_, first);
    EXPECT_EQ(lookUp("Key"), Value::string("second")) << first;
  }
  std::filesystem::remove(macPath_);
  std::filesystem::create_directory(macPath_);  // a folder where the file should be
  EXPECT_EQ(lookUp("Key"), Value::string("second"));
}

}  // namespace
}  // namespace rvitunes::platform
