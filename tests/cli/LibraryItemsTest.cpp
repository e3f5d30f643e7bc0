// rvitunes library items, run as a separate process on the sample library; the JSON it prints
// is read through Python's json module and checked against the file read independently here.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ToolRunner.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"

namespace rvitunes {
namespace {

using plist::Value;

const std::string kSample =
    std::string(RVITUNES_SOURCE_DIR) + "/examples/library/iTunes Music Library.xml";

// `rvitunes library items --json ARGS` on the sample, with the source tree's icons; the whole
// output read as one JSON document (through Python's json module, which refuses anything
// else) into a value tree, or nil. A null anywhere fails the conversion.
Value itemsJson(const std::string& args) {
  setenv("RVITUNES_RESOURCE_DIR", (std::string(RVITUNES_SOURCE_DIR) + "/resources/icons").c_str(),
         1);
  testing::ToolRun run =
      testing::runTool("library items --json " + args + " --file '" + kSample + "'");
  EXPECT_EQ(run.status, 0) << run.out.substr(0, 300);
  char folder[] = "/tmp/rvitunes-items.XXXXXX";
  if (mkdtemp(folder) == nullptr) return Value();
  const std::string dir = folder;
  if (FILE* f = std::fopen((dir + "/out.json").c_str(), "wb")) {
    std::fwrite(run.out.data(), 1, run.out.size(), f);
    std::fclose(f);
  }
  const std::string command =
      "python3 -c 'import json, plistlib, sys; "
      "plistlib.dump({\"doc\": json.load(open(sys.argv[1]))}, open(sys.argv[2], \"wb\"))' " +
      dir + "/out.json " + dir + "/out.plist";
  EXPECT_EQ(std::system(command.c_str()), 0) << run.out.substr(0, 300);
  plist::ParseResult r = plist::PropertyList::readFile(dir + "/out.plist");
  std::filesystem::remove_all(dir);
  return r.ok() && r.root.isDictionary() ? r.root.asDictionary()->get("doc") : Value();
}

std::vector<std::string> strings(const Value& array) {
  std::vector<std::string> out;
  if (const plist::Array* a = array.asArray()) {
    for (const Value& v : *a)
      out.emplace_back(v.stringView());
  }
  return out;
}

TEST(LibraryItemsTest, JsonDescribesEveryPlaylistItemOfTheSample) {
  Value listed = itemsJson("");
  ASSERT_TRUE(listed.isArray());

  plist::ParseResult file = plist::PropertyList::readFile(kSample);
  ASSERT_TRUE(file.ok());
  const plist::Array& playlists = *file.root.asDictionary()->get("Playlists").asArray();
  ASSERT_EQ(listed.asArray()->size(), playlists.size());  // nothing in the sample is hidden

  std::map<std::string, std::string> iconOf;  // name -> icon, for a few of each kind
  for (size_t i = 0; i < playlists.size(); ++i) {
    const plist::Dictionary& want = *playlists[i].asDictionary();
    const plist::Dictionary& got = *listed.asArray()->at(i).asDictionary();
    SCOPED_TRACE(std::string(want.get("Name").stringView()));
    EXPECT_EQ(got.size(), 8u);
    EXPECT_EQ(got.get("sortID").longLongValue(), static_cast<int64_t>(i));
    EXPECT_EQ(got.get("playlistId").longLongValue(), want.get("Playlist ID").longLongValue());
    EXPECT_EQ(got.get("playlistName").stringView(), want.get("Name").stringView());
    // The file writes the persistent ID as text, which the item does not read.
    EXPECT_EQ(got.get("libPersistentId").longLongValue(), 0);

    std::vector<std::string> trueKeys = strings(got.get("strTrueKeys"));
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
    for (const Value& v : *got.get("trackIds").asArray())
      ids.push_back(v.longLongValue());
    EXPECT_EQ(ids, expectedIds);

    std::string icon(got.get("icon").stringView());
    EXPECT_EQ(std::string(got.get("darkIcon").stringView()), icon + "_dark");
    iconOf[std::string(want.get("Name").stringView())] = icon;
  }
  EXPECT_EQ(iconOf["Library"], "Lumo_folder");
  EXPECT_EQ(iconOf["Music"], "Lumo_music");
  EXPECT_EQ(iconOf["Genius"], "Lumo_genius");
  EXPECT_EQ(iconOf["Top 25 Most Played"], "Lumo_smart_playlist");
  EXPECT_EQ(iconOf["Bear"], "Lumo_playlist");
}

TEST(LibraryItemsTest, FlagsChooseTheItemsAndSortValuesStartAtZero) {
  Value listed = itemsJson("--flags 0x40");
  ASSERT_TRUE(listed.isArray());
  ASSERT_EQ(listed.asArray()->size(), 1u);
  const plist::Dictionary& only = *listed.asArray()->at(0).asDictionary();
  EXPECT_EQ(only.get("playlistName").stringView(), "Podcasts");
  EXPECT_EQ(only.get("sortID").longLongValue(), 0);
  EXPECT_EQ(only.get("icon").stringView(), "Lumo_podcasts");
}

}  // namespace
}  // namespace rvitunes
