// rvitunes library, run as a separate process with its own home folder; its output is checked
// against the library file read independently here (JSON through the strict reader).

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "JsonCheck.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"

namespace rvitunes {
namespace {

using plist::Value;
using testing::Json;
using Args = std::vector<std::string>;

const std::string kGenerator = std::string(RVITUNES_SOURCE_DIR) + "/../shared/bench/gen_library.py";

std::string slurp(const std::string& path) {
  std::stringstream ss;
  ss << std::ifstream(path, std::ios::binary).rdbuf();
  return ss.str();
}

Value readPlist(const std::string& path) {
  plist::ParseResult r = plist::PropertyList::readFile(path);
  EXPECT_TRUE(r.ok()) << path << ": " << r.describe();
  return r.root;
}

class LibraryCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = std::filesystem::temp_directory_path() / "rvitunes-cli.XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
    std::filesystem::create_directories(dir_ + "/home");
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  // Starts the tool with HOME in the scratch folder, no display, output into out/err.
  pid_t start(const Args& args) {
    pid_t pid = fork();
    if (pid == 0) {
      setenv("HOME", (dir_ + "/home").c_str(), 1);
      setenv("XDG_CONFIG_HOME", (dir_ + "/home/.config").c_str(), 1);
      unsetenv("DISPLAY");
      unsetenv("WAYLAND_DISPLAY");
      dup2(open("/dev/null", O_RDONLY), 0);
      dup2(open((dir_ + "/out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 1);
      dup2(open((dir_ + "/err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
      std::vector<char*> argv{const_cast<char*>(RVITUNES_CLI_PATH)};
      for (const auto& a : args)
        argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      execv(RVITUNES_CLI_PATH, argv.data());
      _exit(127);
    }
    return pid;
  }
  static int exitStatus(pid_t pid) {
    int raw = 0;
    waitpid(pid, &raw, 0);
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  }
  int run(const Args& args) { return exitStatus(start(args)); }
  std::string out() const { return slurp(dir_ + "/out"); }
  std::string err() const { return slurp(dir_ + "/err"); }
  bool waitForOutput(const std::string& text) {
    for (int i = 0; i < 3000 && out().find(text) == std::string::npos; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return out().find(text) != std::string::npos;
  }

  // The tool's output, which must be exactly one JSON document; null when it is not.
  Json jsonOutput() {
    const testing::JsonResult doc = testing::parseJson(out());
    EXPECT_TRUE(doc.value) << doc.error << "\n" << out().substr(0, 300);
    return doc.value.value_or(Json());
  }

  // 300 tracks and 40 playlists from the generator, with the Movies playlist marked visible.
  std::string generatedLibrary() {
    std::string path = dir_ + "/generated.xml";
    std::string command = "python3 " + kGenerator + " --tracks 300 --playlists 40 --out " + path;
    if (std::system(command.c_str()) != 0) return "";
    std::string text = slurp(path);
    const std::string movies = "<key>Distinguished Kind</key><integer>2</integer>\n";
    if (size_t at = text.find(movies); at != std::string::npos) {
      text.insert(at + movies.size(), "\t\t\t<key>Visible</key><true/>\n");
    }
    std::ofstream(path, std::ios::trunc) << text;
    return path;
  }

  std::string dir_;
};

#define REQUIRE_GENERATOR() \
  if (!std::filesystem::exists(kGenerator)) GTEST_SKIP() << kGenerator << " is absent"

TEST_F(LibraryCommand, PlaylistsJsonListsEveryPlaylistNotMarkedVisibleInFileOrder) {
  REQUIRE_GENERATOR();
  std::string library = generatedLibrary();
  ASSERT_EQ(run({"library", "playlists", "--flags", "0xFFFF", "--json", "--file", library}), 0)
      << err();
  Json listed = jsonOutput();
  ASSERT_TRUE(listed.isArray());

  std::vector<Value> expected;
  const Value playlists = readPlist(library).asDictionary()->get("Playlists");
  for (const Value& p : *playlists.asArray()) {
    if (!p.asDictionary()->get("Visible").boolValue()) expected.push_back(p);
  }
  ASSERT_EQ(expected.size(), 39u);  // Movies is hidden
  ASSERT_EQ(listed.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    const plist::Dictionary& want = *expected[i].asDictionary();
    const Json& got = listed[i];
    const plist::Array* items = want.get("Playlist Items").asArray();
    EXPECT_EQ(got.keys(),
              (std::vector<std::string>{"position", "playlistId", "name", "persistentId", "icon",
                                        "darkIcon", "trackCount"}));
    EXPECT_EQ(got["position"].integer(), static_cast<int64_t>(i));
    EXPECT_EQ(got["playlistId"].integer(), want.get("Playlist ID").longLongValue());
    EXPECT_EQ(got["name"].text, want.get("Name").stringView());
    EXPECT_EQ(got["persistentId"].text, want.get("Playlist Persistent ID").stringView());
    EXPECT_EQ(got["trackCount"].integer(), items ? static_cast<int64_t>(items->size()) : 0);
    EXPECT_TRUE(got["icon"].isNull());
    EXPECT_TRUE(got["darkIcon"].isNull());
  }

  ASSERT_EQ(run({"library", "playlists", "--json", "--flags", "2", "--file", library}), 0);
  EXPECT_EQ(jsonOutput()[0]["name"].text, "Music");
  ASSERT_EQ(run({"library", "playlists", "--json", "--flags", "0x8", "--file", library}), 0);
  EXPECT_EQ(out(), "[]\n");
  EXPECT_EQ(run({"library", "playlists", "--flags", "0x1FFFFFFFF", "--file", library}), 2);
}

TEST_F(LibraryCommand, TracksOfAPlaylistInItsOrder) {
  REQUIRE_GENERATOR();
  std::string library = generatedLibrary();
  Value root = readPlist(library);
  const plist::Dictionary& tracks = *root.asDictionary()->get("Tracks").asDictionary();
  const plist::Dictionary& music =
      *root.asDictionary()->get("Playlists").asArray()->at(1).asDictionary();
  ASSERT_EQ(music.get("Name").stringView(), "Music");

  ASSERT_EQ(run({"library", "tracks", music.get("Playlist ID").stringValue(), "--json", "--file",
                 library}),
            0)
      << err();
  Json listed = jsonOutput();
  const plist::Array& items = *music.get("Playlist Items").asArray();
  ASSERT_EQ(listed.size(), items.size());
  for (size_t i = 0; i < items.size(); ++i) {
    std::string id = items[i].asDictionary()->get("Track ID").stringValue();
    EXPECT_EQ(listed[i]["Name"].text, tracks.get(id).asDictionary()->get("Name").stringView());
    EXPECT_EQ(listed[i]["Track ID"].integer(), std::stoll(id));
  }
  EXPECT_EQ(run({"library", "tracks", "999999999", "--file", library}), 1);
  EXPECT_NE(err().find("999999999"), std::string::npos);
}

TEST_F(LibraryCommand, StatsAndUnreadableFiles) {
  REQUIRE_GENERATOR();
  std::string library = generatedLibrary();
  ASSERT_EQ(run({"library", "stats", "--file", library}), 0);
  EXPECT_NE(out().find("tracks:     300\n"), std::string::npos) << out();
  EXPECT_NE(out().find("playlists:  40\n"), std::string::npos) << out();
  ASSERT_EQ(run({"library", "stats", "--json", "--file", library}), 0);
  const Json stats = jsonOutput();
  EXPECT_EQ(stats["file"].text, library);
  EXPECT_EQ(stats["format"].text, "xml");
  EXPECT_EQ(stats["fileSize"].integer(), static_cast<int64_t>(std::filesystem::file_size(library)));
  EXPECT_EQ(stats["tracks"].integer(), 300);
  EXPECT_EQ(stats["playlists"].integer(), 40);
  EXPECT_TRUE(stats["loadSeconds"].isNumber());

  std::string broken = dir_ + "/broken.xml";
  std::ofstream(broken) << "<plist version=\"1.0\"><dict><key>Tracks</key><dict></plist>";
  EXPECT_EQ(run({"library", "stats", "--file", broken}), 1);
  EXPECT_NE(err().find("cannot load " + broken + ": error at offset "), std::string::npos) << err();
}

TEST_F(LibraryCommand, PathFindsTheDefaultLocationAndRemembersIt) {
  EXPECT_EQ(run({"library", "path", "--dialogs", "none"}), 2);
  EXPECT_NE(err().find("no library file"), std::string::npos) << err();
  EXPECT_EQ(run({"library", "path", "--dialogs", "sometimes"}), 2);

  std::string library = dir_ + "/home/Music/iTunes/iTunes Music Library.xml";
  std::filesystem::create_directories(std::filesystem::path(library).parent_path());
  std::ofstream(library) << "<plist version=\"1.0\"><dict/></plist>";
  ASSERT_EQ(run({"library", "path", "--dialogs", "none"}), 0) << err();
  EXPECT_EQ(out(), library + "\n");
  EXPECT_NE(slurp(dir_ + "/home/.config/rvitunes/rvitunes.plist").find(library), std::string::npos);
  // The first run stored the file, so the next one finds it there.
  ASSERT_EQ(run({"library", "path", "--json"}), 0) << err();
  EXPECT_EQ(jsonOutput()["path"].text, library);
  EXPECT_EQ(jsonOutput()["source"].text, "user default");
  std::filesystem::remove(dir_ + "/home/.config/rvitunes/rvitunes.plist");
  ASSERT_EQ(run({"library", "path", "--json"}), 0) << err();
  EXPECT_EQ(jsonOutput()["source"].text, "default location");

  std::string listed = dir_ + "/listed.xml";
  std::ofstream(listed) << "<plist version=\"1.0\"><dict/></plist>";
  std::filesystem::create_directories(dir_ + "/home/Library/Preferences");
  std::ofstream(dir_ + "/home/Library/Preferences/com.apple.iApps.plist")
      << "<plist version=\"1.0\"><dict><key>iTunesRecentDatabases</key><array><string>file://"
      << listed << "</string></array></dict></plist>";
  std::filesystem::remove(dir_ + "/home/.config/rvitunes/rvitunes.plist");
  ASSERT_EQ(run({"library", "path", "--json"}), 0) << err();
  EXPECT_EQ(jsonOutput()["path"].text, listed);
  EXPECT_EQ(jsonOutput()["source"].text, "iApps list");
}

// A library of `tracks` tracks and one playlist per persistent ID.
void writeSmallLibrary(const std::string& path, int tracks, const Args& pids, time_t mtime) {
  std::string xml = "<plist version=\"1.0\"><dict><key>Tracks</key><dict>";
  for (int i = 1; i <= tracks; ++i)
    xml += "<key>" + std::to_string(i) + "</key><dict/>";
  xml += "</dict><key>Playlists</key><array>";
  for (const auto& pid : pids)
    xml += "<dict><key>Playlist Persistent ID</key><string>" + pid + "</string></dict>";
  std::ofstream(path + ".new") << xml + "</array></dict></plist>";
  timespec times[2] = {{mtime, 0}, {mtime, 0}};
  utimensat(AT_FDCWD, (path + ".new").c_str(), times, 0);
  std::filesystem::rename(path + ".new", path);  // replaced at once, as the player does
}

TEST_F(LibraryCommand, WatchMergesChangesUntilInterrupted) {
  std::string library = dir_ + "/watched.xml";
  writeSmallLibrary(library, 3, {"A1"}, 1000000);
  pid_t watcher = start({"library", "watch", "--interval", "0.05", "--file", library});
  ASSERT_TRUE(waitForOutput("3 tracks, 1 playlists")) << out() << err();

  writeSmallLibrary(library, 5, {"A1", "B2"}, 2000000);
  ASSERT_TRUE(waitForOutput("added 2 tracks, 1 playlists (now 5 tracks, 2 playlists)")) << out();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));  // same date: no second merge
  kill(watcher, SIGINT);
  EXPECT_EQ(exitStatus(watcher), 0) << err();
  EXPECT_EQ(out().find("changed"), out().rfind("changed")) << out();
  EXPECT_NE(out().find("stopped"), std::string::npos);
}

TEST_F(LibraryCommand, WatchAsJsonLinesEndsInFailureWhenTheLastChangeWasUnreadable) {
  std::string library = dir_ + "/watched.xml";
  writeSmallLibrary(library, 2, {"A1"}, 1000000);
  pid_t watcher = start({"library", "watch", "--json", "--interval", "0.05", "--file", library});
  ASSERT_TRUE(waitForOutput("\"event\": \"start\"")) << out() << err();
  writeSmallLibrary(library, 4, {"A1"}, 2000000);
  ASSERT_TRUE(waitForOutput("\"event\": \"change\"")) << out();
  std::ofstream(library + ".new") << "<plist><dict><key>Tracks</key>";
  timespec times[2] = {{3000000, 0}, {3000000, 0}};
  utimensat(AT_FDCWD, (library + ".new").c_str(), times, 0);
  std::filesystem::rename(library + ".new", library);
  ASSERT_TRUE(waitForOutput("\"event\": \"error\"")) << out();
  kill(watcher, SIGINT);
  EXPECT_EQ(exitStatus(watcher), 1);
  EXPECT_NE(err().find("cannot load " + library), std::string::npos) << err();

  const auto lines = testing::parseJsonLines(out());
  ASSERT_EQ(lines.size(), 4u) << out();
  std::vector<std::string> events;
  for (const auto& line : lines) {
    ASSERT_TRUE(line.value) << line.error << "\n" << out();
    events.push_back((*line.value)["event"].text);
    EXPECT_EQ((*line.value)["time"].text.size(), 20u);  // 2024-05-06T07:08:09Z
  }
  EXPECT_EQ(events, (std::vector<std::string>{"start", "change", "error", "stop"}));
  EXPECT_EQ((*lines[0].value)["tracks"].integer(), 2);
  EXPECT_EQ((*lines[0].value)["file"].text, library);
  EXPECT_EQ((*lines[1].value)["addedTracks"].integer(), 2);
  EXPECT_EQ((*lines[1].value)["addedPlaylists"].integer(), 0);
  EXPECT_EQ((*lines[1].value)["tracks"].integer(), 4);
}

}  // namespace
}  // namespace rvitunes
