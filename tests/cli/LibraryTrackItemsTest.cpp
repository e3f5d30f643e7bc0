// rvitunes library track-items, search, play and artwork, run as a separate process on a small
// library written here, with its own home folder; play and artwork against a player started
// inside the tool (--embedded).
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ToolRunner.h"

namespace rvitunes {
namespace {

using testing::runTool;

std::string key(const char* name, const char* type, const std::string& value) {
  return std::string("<key>") + name + "</key><" + type + ">" + value + "</" + type + ">";
}

class LibraryTrackItems : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = "/tmp/di-cli-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
    for (const char* name : {"HOME", "XDG_RUNTIME_DIR"}) {
      const char* value = ::getenv(name);
      saved_.emplace_back(name,
                          value != nullptr ? std::optional<std::string>(value) : std::nullopt);
    }
    ::setenv("HOME", dir_.c_str(), 1);
    ::setenv("XDG_RUNTIME_DIR", dir_.c_str(), 1);
    library_ = dir_ + "/library.xml";
    const std::string tracks =
        "<key>7</key><dict>" + key("Track ID", "integer", "7") +
        key("Name", "string", "Caf\xC3\xA9 \xC3\x89t\xC3\xA9") + key("Artist", "string", "Ann") +
        key("Album", "string", "Summer") + key("Total Time", "integer", "-5") +
        key("Artwork Count", "integer", "1") + key("Persistent ID", "string", "00000000000000A7") +
        key("Location", "string", "file://localhost/Music/My%20Song.MP3") + "</dict>" +
        "<key>8</key><dict>" + key("Track ID", "integer", "8") + key("Name", "string", "Readme") +
        "<key>Has Video</key><true/>" + key("Location", "string", "file://localhost/Music/Readme") +
        "</dict>" + "<key>9</key><dict>" + key("Track ID", "integer", "9") +
        key("Name", "string", "Other") + key("Album", "string", "cafe society") +
        key("Location", "string", "file://localhost/Music/o.m4a") + "</dict>";
    const std::string items = "<key>Playlist Items</key><array><dict>" +
                              key("Track ID", "integer", "7") + "</dict><dict>" +
                              key("Track ID", "integer", "8") + "</dict></array>";
    std::ofstream(library_)
        << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
        << key("Major Version", "integer", "1") << key("Minor Version", "integer", "1")
        << "<key>Tracks</key><dict>" << tracks << "</dict><key>Playlists</key><array><dict>"
        << key("Name", "string", "Library") << key("Playlist ID", "integer", "40")
        << key("Playlist Persistent ID", "string", "0000000000000100") << "<key>Master</key><true/>"
        << items << "</dict></array></dict></plist>\n";
  }
  void TearDown() override {
    for (const auto& [name, value] : saved_) {
      if (value) {
        ::setenv(name.c_str(), value->c_str(), 1);
      } else {
        ::unsetenv(name.c_str());
      }
    }
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }
  std::string dir_;
  std::string library_;
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

TEST_F(LibraryTrackItems, ItemsOfAPlaylistAsJson) {
  const auto run = runTool("library track-items 40 --json --file '" + library_ + "'");
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_NE(run.out.find("\"trackId\": 7, \"persistentId\": 0,"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("\"filePath\": \"/Music/My Song.MP3\", \"fileName\": \"My Song.MP3\", "
                         "\"fileType\": \"MP3\", \"typeImage\": \"iTunes_mp3\", \"totalTime\": -5"),
            std::string::npos)
      << run.out;
  EXPECT_NE(run.out.find("\"fileType\": \"\", \"typeImage\": \"iTunes_generic\", "
                         "\"totalTime\": 0, \"hasVideo\": 1"),
            std::string::npos)
      << run.out;
  EXPECT_EQ(run.out.find("\"trackId\": 9"), std::string::npos);  // not in the playlist

  EXPECT_EQ(runTool("library track-items 41 --file '" + library_ + "'").status, 1);
  EXPECT_EQ(runTool("library track-items x --file '" + library_ + "'").status, 2);
}

TEST_F(LibraryTrackItems, SearchIgnoresCaseAndDiacritics) {
  const auto run = runTool("library search CAFE --file '" + library_ + "'");
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_NE(run.out.find("7  Caf"), std::string::npos) << run.out;    // the name
  EXPECT_NE(run.out.find("9  Other"), std::string::npos) << run.out;  // the album
  EXPECT_NE(run.out.find("2 tracks"), std::string::npos) << run.out;
  EXPECT_NE(runTool("library search zzz --file '" + library_ + "'").out.find("0 tracks"),
            std::string::npos);
}

TEST_F(LibraryTrackItems, PlayAndArtworkThroughTheItem) {
  auto run = runTool("library play 8 --embedded '" + library_ + "'");
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_NE(run.out.find("playing track 8"), std::string::npos) << run.out;
  run = runTool("library play 99 --embedded '" + library_ + "'");
  EXPECT_EQ(run.status, 1) << run.out;
  EXPECT_NE(run.out.find("no track with ID 99"), std::string::npos) << run.out;
  run = runTool("library artwork 7 --embedded '" + library_ + "'");
  EXPECT_EQ(run.status, 1) << run.out;
  EXPECT_NE(run.out.find("no artwork for track 7"), std::string::npos) << run.out;
  EXPECT_EQ(runTool("library play --embedded '" + library_ + "'").status, 2);
}

}  // namespace
}  // namespace rvitunes
