// rvitunes player's control commands against the player daemon (`rvitunes player serve`) on a
// private bus directory, and against an embedded player of an older version: what each command
// prints, changes and answers, and the one-line reasons of its failures.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "JsonCheck.h"
#include "ToolRunner.h"

extern char** environ;

namespace rvitunes {
namespace {

using testing::Json;
using testing::parseJson;
using testing::runTool;
using testing::runToolSeparately;
using testing::ToolRun;

// The library: Aria (0xF00000000000B301, rated 80, in Chill), Bolero (0xB302, in focus),
// coda (0xABCDE, in Chill); Chill sits in the folder Years.
std::string writeLibrary(const std::string& dir) {
  const auto key = [](const std::string& k, const std::string& type, const std::string& v) {
    return "<key>" + k + "</key><" + type + ">" + v + "</" + type + ">";
  };
  const auto track = [&](const char* id, const char* name, const char* artist, const char* pid,
                         const std::string& extra) {
    return "<key>" + std::string(id) + "</key><dict>" + key("Track ID", "integer", id) +
           key("Name", "string", name) + key("Artist", "string", artist) +
           key("Total Time", "integer", "200000") + key("Persistent ID", "string", pid) +
           key("Track Type", "string", "File") +
           key("Location", "string", "file://localhost/nonexistent/" + std::string(id) + ".mp3") +
           extra + "</dict>\n";
  };
  const auto playlist = [&](const char* id, const char* name, const char* pid,
                            const std::string& extra, const std::vector<int>& items) {
    std::string out = "<dict>" + key("Name", "string", name) + key("Playlist ID", "integer", id) +
                      key("Playlist Persistent ID", "string", pid) + extra +
                      "<key>Playlist Items</key><array>";
    for (int item : items)
      out += "<dict>" + key("Track ID", "integer", std::to_string(item)) + "</dict>";
    return out + "</array></dict>\n";
  };
  const std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>" +
      key("Major Version", "integer", "1") + key("Minor Version", "integer", "1") +
      "<key>Tracks</key><dict>\n" +
      track("301", "Aria", "Ann", "F00000000000B301",
            key("Rating", "integer", "80") + key("Album", "string", "Arias")) +
      track("302", "Bolero", "Bo", "000000000000B302", "") +
      track("303", "coda", "Ann", "00000000000ABCDE", "") + "</dict><key>Playlists</key><array>\n" +
      playlist("400", "Library", "0000000000000100", "<key>Master</key><true/>", {301, 302, 303}) +
      playlist("410", "Years", "0000000000000200", "<key>Folder</key><true/>", {301, 303}) +
      playlist("411", "Chill", "ABCDEF0000000210",
               key("Parent Persistent ID", "string", "0000000000000200"), {301, 303}) +
      playlist("420", "focus", "0000000000000220", "", {302}) + "</array></dict>\n</plist>\n";
  const std::string path = dir + "/iTunes Music Library.xml";
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

class PlayerControlTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = std::filesystem::temp_directory_path() / "rvitunes-control.XXXXXX";
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
    std::filesystem::create_directories(dir_ + "/run");
    library_ = writeLibrary(dir_);
    std::ofstream(dir_ + "/new.mp3", std::ios::binary) << "ID3";
    // The tool and the daemon meet on this directory only.
    const char* previous = std::getenv("XDG_RUNTIME_DIR");
    if (previous != nullptr) previousRuntime_ = previous;
    ::setenv("XDG_RUNTIME_DIR", (dir_ + "/run").c_str(), 1);
  }

  void TearDown() override {
    stopDaemon();
    if (previousRuntime_) {
      ::setenv("XDG_RUNTIME_DIR", previousRuntime_->c_str(), 1);
    } else {
      ::unsetenv("XDG_RUNTIME_DIR");
    }
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }

  // Starts `rvitunes player serve` on the library and waits until it answers a ping.
  void startDaemon(const std::string& version = "7.7.1") {
    std::vector<std::string> argv = {RVITUNES_CLI_PATH, "player",           "serve", "--file",
                                     library_,          "--player-version", version};
    std::vector<char*> args;
    for (std::string& a : argv)
      args.push_back(a.data());
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const std::string log = dir_ + "/daemon.log";
    posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    const int spawned = posix_spawn(&daemon_, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ASSERT_EQ(spawned, 0);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
      if (runTool("player ping --timeout 1").status == 0) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    FAIL() << "the daemon did not answer";
  }

  void stopDaemon() {
    if (daemon_ <= 0) return;
    ::kill(daemon_, SIGTERM);
    int status = 0;
    ::waitpid(daemon_, &status, 0);
    daemon_ = -1;
  }

  ToolRun player(const std::string& args) { return runTool("player " + args); }

  std::string dir_;
  std::string library_;
  std::optional<std::string> previousRuntime_;
  pid_t daemon_ = -1;
};

TEST_F(PlayerControlTest, WithoutAPlayerEveryCommandSaysSoInOneLine) {
  for (const char* command : {"status", "play", "playlists", "track F00000000000B301"}) {
    const ToolRun r = player(command);
    EXPECT_EQ(r.status, 1) << command;
    const std::string name = std::string(command).substr(0, std::string(command).find(' '));
    EXPECT_EQ(r.out, "rvitunes player " + name +
                         ": no player is running (nothing answers to 'hook' on the event bus)\n");
  }
  // Usage is checked before the player is asked.
  EXPECT_EQ(player("volume 101").status, 2);
  EXPECT_EQ(player("frobnicate").status, 2);
  EXPECT_EQ(player("--player-version 7.2 status").status, 2);  // only with --file
}

TEST_F(PlayerControlTest, TransportVolumeEqualizerAndStatus) {
  startDaemon();
  ToolRun r = player("status");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("state: stopped\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("track: none\n"), std::string::npos) << r.out;

  ASSERT_EQ(player("play").status, 0);
  r = player("status --json");
  EXPECT_NE(r.out.find("\"state\": \"playing\", \"stateCode\": \"kPSP\""), std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("\"name\": \"Aria\""), std::string::npos) << r.out;
  for (const char* command : {"next", "previous", "back", "fast-forward", "rewind", "resume"}) {
    EXPECT_EQ(player(command).out, "") << command;
  }
  EXPECT_EQ(player("pause").status, 0);
  EXPECT_NE(player("status").out.find("state: paused\n"), std::string::npos);
  EXPECT_EQ(player("play-pause").status, 0);
  EXPECT_NE(player("status").out.find("state: playing\n"), std::string::npos);
  EXPECT_EQ(player("stop").status, 0);
  EXPECT_NE(player("status").out.find("state: stopped\n"), std::string::npos);

  EXPECT_EQ(player("volume 35").out, "volume: 35\n");
  EXPECT_EQ(player("volume --json").out, "{\"volume\": 35}\n");
  EXPECT_EQ(player("eq on").out, "equalizer: on\n");
  EXPECT_EQ(player("eq").out, "equalizer: on\n");
  EXPECT_EQ(player("eq off --json").out, "{\"equalizer\": false}\n");
  EXPECT_EQ(player("version").out, "version: 7.7.1\npacked: 0x771\n");

  EXPECT_EQ(player("play-file '" + dir_ + "/new.mp3'").status, 0);
  EXPECT_NE(player("status").out.find("track: new ["), std::string::npos);
  r = player("play-file '" + dir_ + "/missing.mp3'");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "rvitunes player play-file: no such file: " + dir_ + "/missing.mp3\n");
}

TEST_F(PlayerControlTest, PlaylistsTracksPropertiesSearchAndAdd) {
  startDaemon();
  ToolRun r = player("playlists");
  EXPECT_EQ(r.out,
            "iTunes\n"
            "  LIBRARY\n"
            "  PLAYLISTS\n"
            "    focus  0000000000000220\n"
            "    Library  0000000000000100\n"
            "    Years  0000000000000200\n"
            "      Chill  ABCDEF0000000210\n"
            "  STORE\n");
  r = player("playlists --user --json");
  EXPECT_NE(r.out.find("{\"name\": \"Chill\", \"persistentId\": \"ABCDEF0000000210\", "
                       "\"synthetic\": false, \"specialKind\": \"kSpN\", \"children\": []}"),
            std::string::npos)
      << r.out;

  EXPECT_EQ(player("tracks ABCDEF0000000210").out,
            "F00000000000B301\tAria\tAnn\tArias\t3:20\n00000000000ABCDE\tcoda\tAnn\t\t3:20\n");
  EXPECT_EQ(player("tracks library").out.size(), player("tracks 0x100").out.size());
  r = player("tracks 999");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "rvitunes player tracks: no playlist with persistent ID 999\n");
  EXPECT_EQ(player("tracks nothex").status, 2);

  r = player("track F00000000000B301");
  EXPECT_NE(r.out.find("persistentId: F00000000000B301\ndatabaseId: 301\nname: Aria\n"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("\nrating: 80\n"), std::string::npos);
  EXPECT_NE(r.out.find("\nplayedDate: (none)\n"), std::string::npos);
  r = player("track F00000000000B301 --json");
  EXPECT_NE(r.out.find("\"rating\": 80, "), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"playedDate\": null"), std::string::npos) << r.out;

  EXPECT_EQ(player("set F00000000000B301 rating 60").out, "rating: 60\n");
  EXPECT_EQ(player("set F00000000000B301 volumeAdjustment -20").out, "volumeAdjustment: -20\n");
  EXPECT_EQ(player("set F00000000000B301 name 'Aria da capo'").out, "name: Aria da capo\n");
  EXPECT_EQ(player("set F00000000000B301 compilation yes").out, "compilation: true\n");
  EXPECT_EQ(player("set F00000000000B301 playedDate 2024-05-06T07:08:09Z").out,
            "playedDate: 2024-05-06T07:08:09Z\n");
  r = player("set F00000000000B301 rating 120");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "rating: 60\nrvitunes player set: the player reports rating as 60\n");
  EXPECT_EQ(player("set F00000000000B301 kind x").status, 2);
  EXPECT_EQ(player("set F00000000000B301 rating loud").status, 2);
  EXPECT_EQ(player("set F00000000000B301 colour red").status, 2);
  r = player("set 1234 rating 1");
  EXPECT_EQ(r.out, "rvitunes player set: no track with persistent ID 1234\n");

  EXPECT_EQ(player("search ann --field artists").out,
            "F00000000000B301\tAria da capo\tAnn\tArias\t3:20\n"
            "00000000000ABCDE\tcoda\tAnn\t\t3:20\n");
  EXPECT_EQ(player("search bo --in 220").out, "000000000000B302\tBolero\tBo\t\t3:20\n");
  EXPECT_EQ(player("search zzz --json").out, "[]\n");
  // An empty answer says so on standard error; standard output stays empty for scripts.
  r = player("search zzz");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "rvitunes player search: no track matches \"zzz\"\n");
  EXPECT_EQ(runToolSeparately("player search zzz").out, "");

  r = player("add '" + dir_ + "/new.mp3' --to 220");
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("\tnew\t"), std::string::npos) << r.out;
  EXPECT_NE(player("tracks 220").out.find("\tnew\t"), std::string::npos);
  EXPECT_EQ(player("add '" + dir_ + "/missing.mp3'").status, 1);
  EXPECT_EQ(player("selection").status, 0);
}

// Every command that prints something prints one document with --json; a failure prints
// nothing on standard output.
TEST_F(PlayerControlTest, JsonOfEveryCommandIsOneValidDocument) {
  startDaemon();
  const auto json = [this](const std::string& args) {
    const ToolRun r = runToolSeparately("player " + args + " --json");
    EXPECT_EQ(r.status, 0) << args << ": " << r.err;
    EXPECT_EQ(r.err, "") << args;
    const auto doc = parseJson(r.out);
    EXPECT_TRUE(doc.value) << args << ": " << doc.error << "\n" << r.out;
    return doc.value.value_or(Json());
  };
  Json doc = json("ping");
  EXPECT_EQ(doc["name"].text, "iTunes");
  EXPECT_EQ(doc["version"].text, "7.7.1");
  EXPECT_TRUE(doc["roundTripMs"].isNumber());

  doc = json("status");
  EXPECT_EQ(doc.keys(), (std::vector<std::string>{"state", "stateCode", "position", "volume",
                                                  "equalizer", "track", "playlist"}));
  EXPECT_TRUE(doc["track"].isNull());
  EXPECT_EQ(json("version")["packed"].text, "0x771");
  EXPECT_EQ(json("volume 40")["volume"].integer(), 40);
  EXPECT_TRUE(json("eq on")["equalizer"].boolean);

  doc = json("playlists");
  EXPECT_EQ(doc["name"].text, "iTunes");
  EXPECT_TRUE(doc["children"].isArray());

  doc = json("tracks ABCDEF0000000210");
  ASSERT_EQ(doc.size(), 2u);
  EXPECT_EQ(doc[0]["persistentId"].text, "F00000000000B301");
  EXPECT_EQ(doc[0]["databaseId"].integer(), 301);
  EXPECT_EQ(doc[1]["persistentId"].text, "00000000000ABCDE");
  EXPECT_TRUE(doc[1]["album"].isNull() || doc[1]["album"].text.empty());

  doc = json("track F00000000000B301");
  EXPECT_EQ(doc["rating"].integer(), 80);
  EXPECT_TRUE(doc["playedDate"].isNull());
  EXPECT_TRUE(doc["compilation"].isBoolean());

  doc = json("set F00000000000B301 name 'tab\there \"quoted\" caf\xC3\xA9'");
  EXPECT_EQ(doc["name"].text, "tab\there \"quoted\" caf\xC3\xA9");
  EXPECT_EQ(json("set F00000000000B301 volumeAdjustment -20")["volumeAdjustment"].integer(), -20);

  EXPECT_EQ(json("search ann --field artists").size(), 2u);
  EXPECT_TRUE(json("selection").isArray());
  doc = json("add '" + dir_ + "/new.mp3'");
  ASSERT_EQ(doc.size(), 1u);
  EXPECT_EQ(doc[0]["persistentId"].text.size(), 16u);
  doc = json("artwork F00000000000B301");
  EXPECT_TRUE(doc.isArray());

  const ToolRun r = runToolSeparately("player track 1234 --json");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "rvitunes player track: no track with persistent ID 1234\n");
}

TEST_F(PlayerControlTest, EmbeddedPlayersOfOlderVersions) {
  // No daemon: --file starts the player in the tool itself (--embedded is its older name).
  const std::string embedded = " --file '" + library_ + "' --player-version ";
  EXPECT_EQ(player("version" + embedded + "5.0").out, "version: 5.0\npacked: 0x500\n");
  ToolRun r = player("tracks 220" + embedded + "5.0");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "rvitunes player tracks: the player (5.0) has no persistent IDs\n");
  // 6.0.0 cannot look playlists up by ID; the tree finds it.
  EXPECT_EQ(player("tracks 220" + embedded + "6.0").out, "000000000000B302\tBolero\tBo\t\t3:20\n");
  // 7.2.0 speaks of IDs as text.
  EXPECT_NE(player("track 00000000000ABCDE" + embedded + "7.2").out.find("name: coda\n"),
            std::string::npos);
  // IDs as text or not, JSON has them in one form.
  r = player("track 00000000000ABCDE --json --embedded '" + library_ + "' --player-version 7.2");
  EXPECT_NE(r.out.find("\"persistentId\": \"00000000000ABCDE\""), std::string::npos) << r.out;
  r = player("status --embedded '" + dir_ + "/none.xml'");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out.rfind("rvitunes player status: cannot start a player on \"", 0), 0u) << r.out;
}

}  // namespace
}  // namespace rvitunes
