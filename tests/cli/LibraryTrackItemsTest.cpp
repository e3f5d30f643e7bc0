// rvitunes library track-items, search, play and artwork, run as a separate process on a small
// library written here, with its own home folder; play and artwork against a player started
// inside the tool (--file, or its older name --embedded).
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "JsonCheck.h"
#include "ToolRunner.h"

namespace rvitunes {
namespace {

using testing::Json;
using testing::parseJson;
using testing::runTool;
using testing::runToolSeparately;

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
  const auto run = runToolSeparately("library track-items 40 --json --file '" + library_ + "'");
  ASSERT_EQ(run.status, 0) << run.err;
  const auto doc = parseJson(run.out);
  ASSERT_TRUE(doc.value) << doc.error << "\n" << run.out;
  const Json& items = *doc.value;
  ASSERT_EQ(items.size(), 2u);  // 9 is not in the playlist
  const Json& cafe = items[0];
  EXPECT_EQ(cafe.keys(),
            (std::vector<std::string>{"trackId", "persistentId", "trackName", "artistName",
                                      "albumName", "fileUrl", "filePath", "fileName", "fileType",
                                      "typeImage", "totalTime", "hasVideo", "artworkCount"}));
  EXPECT_EQ(cafe["trackId"].integer(), 7);
  EXPECT_TRUE(cafe["persistentId"].isNull());  // the item reads no text IDs
  EXPECT_EQ(cafe["trackName"].text, "Caf\xC3\xA9 \xC3\x89t\xC3\xA9");
  EXPECT_EQ(cafe["filePath"].text, "/Music/My Song.MP3");
  EXPECT_EQ(cafe["fileName"].text, "My Song.MP3");
  EXPECT_EQ(cafe["fileType"].text, "MP3");
  EXPECT_EQ(cafe["typeImage"].text, "iTunes_mp3");
  EXPECT_EQ(cafe["totalTime"].integer(), -5);
  EXPECT_FALSE(cafe["hasVideo"].boolean);
  EXPECT_EQ(cafe["artworkCount"].integer(), 1);
  const Json& readme = items[1];
  EXPECT_EQ(readme["fileType"].text, "");
  EXPECT_EQ(readme["typeImage"].text, "iTunes_generic");
  EXPECT_EQ(readme["totalTime"].integer(), 0);
  EXPECT_TRUE(readme["hasVideo"].isBoolean() && readme["hasVideo"].boolean);
  EXPECT_TRUE(readme["albumName"].isNull());

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

  const auto json = runToolSeparately("library search CAFE --json --file '" + library_ + "'");
  ASSERT_EQ(json.status, 0) << json.err;
  const auto doc = parseJson(json.out);
  ASSERT_TRUE(doc.value) << doc.error << "\n" << json.out;
  ASSERT_EQ(doc.value->size(), 2u);
  EXPECT_EQ((*doc.value)[0]["trackId"].integer(), 7);
  EXPECT_EQ((*doc.value)[0]["name"].text, "Caf\xC3\xA9 \xC3\x89t\xC3\xA9");
  EXPECT_EQ((*doc.value)[1]["trackId"].integer(), 9);
  EXPECT_EQ(runToolSeparately("library search zzz --json --file '" + library_ + "'").out, "[]\n");
}

TEST_F(LibraryTrackItems, PlayAndArtworkThroughTheItem) {
  auto run = runTool("library play 8 --file '" + library_ + "'");
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_NE(run.out.find("playing track 8"), std::string::npos) << run.out;
  run = runToolSeparately("library play 8 --json --embedded '" + library_ + "'");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "{\"trackId\": 8, \"playing\": true}\n");
  run = runToolSeparately("library play 99 --file '" + library_ + "'");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_NE(run.err.find("no track with ID 99"), std::string::npos) << run.err;
  run = runToolSeparately("library artwork 7 --json --file '" + library_ + "'");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_NE(run.err.find("no artwork for track 7"), std::string::npos) << run.err;
  EXPECT_EQ(runTool("library play --file '" + library_ + "'").status, 2);
}

}  // namespace
}  // namespace rvitunes
