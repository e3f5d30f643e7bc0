// rvitunes library items, run as a separate process on the sample library; the JSON it prints
// is read with the strict reader and checked against the file read independently here.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "JsonCheck.h"
#include "ToolRunner.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"

namespace rvitunes {
namespace {

using plist::Value;
using testing::Json;

const std::string kSample =
    std::string(RVITUNES_SOURCE_DIR) + "/examples/library/iTunes Music Library.xml";

// `rvitunes library items --json ARGS` on the sample, with the source tree's icons: the whole
// output, which must be one JSON document, or null.
Json itemsJson(const std::string& args) {
  setenv("RVITUNES_RESOURCE_DIR", (std::string(RVITUNES_SOURCE_DIR) + "/resources/icons").c_str(),
         1);
  testing::ToolRun run =
      testing::runToolSeparately("library items --json " + args + " --file '" + kSample + "'");
  EXPECT_EQ(run.status, 0) << run.err;
  const testing::JsonResult doc = testing::parseJson(run.out);
  EXPECT_TRUE(doc.value) << doc.error << "\n" << run.out.substr(0, 300);
  return doc.value.value_or(Json());
}

std::vector<std::string> strings(const Json& array) {
  std::vector<std::string> out;
  for (const Json& v : array.items)
    out.push_back(v.text);
  return out;
}

TEST(LibraryItemsTest, JsonDescribesEveryPlaylistItemOfTheSample) {
  Json listed = itemsJson("");
  ASSERT_TRUE(listed.isArray());

  plist::ParseResult file = plist::PropertyList::readFile(kSample);
  ASSERT_TRUE(file.ok());
  const plist::Array& playlists = *file.root.asDictionary()->get("Playlists").asArray();
  ASSERT_EQ(listed.size(), playlists.size());  // nothing in the sample is hidden

  std::map<std::string, std::string> iconOf;  // name -> icon, for a few of each kind
  for (size_t i = 0; i < playlists.size(); ++i) {
    const plist::Dictionary& want = *playlists[i].asDictionary();
    const Json& got = listed[i];
    SCOPED_TRACE(std::string(want.get("Name").stringView()));
    EXPECT_EQ(got.size(), 8u);
    EXPECT_EQ(got["sortID"].integer(), static_cast<int64_t>(i));
    EXPECT_EQ(got["playlistId"].integer(), want.get("Playlist ID").longLongValue());
    EXPECT_EQ(got["playlistName"].text, want.get("Name").stringView());
    // The file writes the persistent ID as text, which the item does not read: none.
    EXPECT_TRUE(got.has("libPersistentId"));
    EXPECT_TRUE(got["libPersistentId"].isNull());

    std::vector<std::string> trueKeys = strings(got["strTrueKeys"]);
    std::vector<std::string> expectedTrue;
    for (const auto& entry : want) {
      if (entry.value.isNumber() && entry.value.boolValue())
        expectedTrue.emplace_back(entry.key.stringView());
    }
    EXPECT_EQ(trueKeys, expectedTrue);

    std::vector<int64_t> expectedIds;
    std::set<int64_t> seen;
    if (const plist::Array* items = want.get("Playlist Items").asArray()) {
      for (const Value& item : *items) {
        int64_t id = item.asDictionary()->get("Track ID").longLongValue();
        if (seen.insert(id).second) expectedIds.push_back(id);
      }
    }
    std::vector<int64_t> ids;
    for (const Json& v : got["trackIds"].items)
      ids.push_back(v.integer().value_or(-1));
    EXPECT_EQ(ids, expectedIds);

    std::string icon = got["icon"].text;
    EXPECT_EQ(got["darkIcon"].text, icon + "_dark");
    iconOf[std::string(want.get("Name").stringView())] = icon;
  }
  EXPECT_EQ(iconOf["Library"], "Lumo_folder");
  EXPECT_EQ(iconOf["Music"], "Lumo_music");
  EXPECT_EQ(iconOf["Genius"], "Lumo_genius");
  EXPECT_EQ(iconOf["Top 25 Most Played"], "Lumo_smart_playlist");
  EXPECT_EQ(iconOf["Bear"], "Lumo_playlist");
}

TEST(LibraryItemsTest, FlagsChooseTheItemsAndSortValuesStartAtZero) {
  Json listed = itemsJson("--flags 0x40");
  ASSERT_TRUE(listed.isArray());
  ASSERT_EQ(listed.size(), 1u);
  const Json& only = listed[0];
  EXPECT_EQ(only["playlistName"].text, "Podcasts");
  EXPECT_EQ(only["sortID"].integer(), 0);
  EXPECT_EQ(only["icon"].text, "Lumo_podcasts");
}

}  // namespace
}  // namespace rvitunes
