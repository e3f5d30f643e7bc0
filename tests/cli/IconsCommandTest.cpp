// rvitunes icons: the listing of the icon dictionary and the PNG previews.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "JsonCheck.h"
#include "ToolRunner.h"

namespace rvitunes::testing {
namespace {

const std::string kIcons = std::string(RVITUNES_SOURCE_DIR) + "/resources/icons";

// A private folder with a copy of the icons, less `leaveOut`; removed at the end.
class IconCopy {
 public:
  explicit IconCopy(const std::string& leaveOut) {
    std::string pattern = (std::filesystem::temp_directory_path() / "rvitunes-icons.XXXXXX");
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
    for (const auto& e : std::filesystem::directory_iterator(kIcons)) {
      if (e.path().filename() != leaveOut)
        std::filesystem::copy_file(e.path(), path_ / e.path().filename());
    }
  }
  ~IconCopy() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// Runs `rvitunes args` with RVITUNES_RESOURCE_DIR set to `folder`, or unset when it is empty.
ToolRun runIcons(const std::string& args, const std::string& folder = {}) {
  if (folder.empty()) {
    unsetenv("RVITUNES_RESOURCE_DIR");
  } else {
    setenv("RVITUNES_RESOURCE_DIR", folder.c_str(), 1);
  }
  ToolRun r = runTool(args);
  unsetenv("RVITUNES_RESOURCE_DIR");
  return r;
}

size_t countLines(const std::string& text, const std::string& start) {
  size_t n = 0, pos = 0;
  while ((pos = text.find("\n" + start, pos)) != std::string::npos)
    ++n, ++pos;
  return n;
}

TEST(IconsCommandTest, ListsTheFortyIconsInLoadOrder) {
  ToolRun r = runIcons("icons");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(countLines(r.out, "Lumo_"), 40u) << r.out;
  EXPECT_NE(r.out.find("resource folder: " + kIcons + "\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\nLumo_books_dark               256x256  " + kIcons +
                       "/lumo-books-dark.icns\nLumo_books "),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("\n40 icons\n"), std::string::npos);

  r = runIcons("icons --json");
  ASSERT_EQ(r.status, 0) << r.out;
  const JsonResult doc = parseJson(r.out);
  ASSERT_TRUE(doc.value) << doc.error << "\n" << r.out.substr(0, 300);
  EXPECT_EQ((*doc.value)["resourceFolder"].text, kIcons);
  const Json& icons = (*doc.value)["icons"];
  ASSERT_EQ(icons.size(), 40u);
  EXPECT_EQ(icons[0]["key"].text, "Lumo_books_dark");
  EXPECT_EQ(icons[0]["width"].integer(), 256);
  EXPECT_EQ(icons[0]["source"].text, kIcons + "/lumo-books-dark.icns");
  EXPECT_FALSE(icons[0].has("saved"));
}

TEST(IconsCommandTest, TheResourceFolderCanBeOverridden) {
  IconCopy withoutRadio("lumo-radio-dark.icns");
  ToolRun r = runIcons("icons", withoutRadio.path().string());
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(r.out.find("Lumo_radio_dark"), std::string::npos);
  EXPECT_NE(r.out.find("\n39 icons\n"), std::string::npos) << r.out;

  IconCopy withoutProbe("lumo-books.icns");
  r = runIcons("icons", withoutProbe.path().string());
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("no icons found"), std::string::npos) << r.out;
}

TEST(IconsCommandTest, RendersEveryIconAsPng) {
  IconCopy dir("none");  // used as an empty-enough scratch folder for the previews
  const std::filesystem::path out = dir.path() / "previews";
  std::filesystem::create_directory(out);
  ToolRun r = runIcons("icons --save '" + out.string() + "'");
  ASSERT_EQ(r.status, 0) << r.out;
  size_t pngs = 0;
  for (const auto& e : std::filesystem::directory_iterator(out)) {
    std::ifstream in(e.path(), std::ios::binary);
    char head[24] = {};
    in.read(head, sizeof head);
    // The PNG signature, then IHDR with a width of 256.
    EXPECT_EQ(std::string(head + 1, 3), "PNG") << e.path();
    EXPECT_EQ(static_cast<unsigned char>(head[18]), 1) << e.path();
    EXPECT_EQ(static_cast<unsigned char>(head[19]), 0) << e.path();
    ++pngs;
  }
  EXPECT_EQ(pngs, 40u);
  EXPECT_TRUE(std::filesystem::exists(out / "Lumo_smart_playlist_dark.png"));

  // --render is the older name of --save.
  std::filesystem::remove_all(out);
  std::filesystem::create_directory(out);
  r = runIcons("icons --json --render '" + out.string() + "'");
  ASSERT_EQ(r.status, 0) << r.out;
  const JsonResult doc = parseJson(r.out);
  ASSERT_TRUE(doc.value) << doc.error;
  EXPECT_EQ((*doc.value)["icons"][0]["saved"].text, (out / "Lumo_books_dark.png").string());
  EXPECT_TRUE(std::filesystem::exists(out / "Lumo_books_dark.png"));

  r = runIcons("icons --save '" + (dir.path() / "missing").string() + "'");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("cannot write"), std::string::npos);
  EXPECT_EQ(runIcons("icons extra").status, 2);
}

}  // namespace
}  // namespace rvitunes::testing
