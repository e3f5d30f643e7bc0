// rvitunes demo, run as a newcomer runs it, in a home, settings folder, bus folder and TMPDIR
// of the test's own, so that the test can see what the demo leaves behind there; and the sample
// layout and step report it is built from.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "DemoReport.h"
#include "DemoSample.h"
#include "ToolRunner.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"
#include "support/ScratchFolder.h"

namespace rvitunes {
namespace {

namespace fs = std::filesystem;
using plist::Value;
using testing::runTool;
using testing::ToolRun;
using testing::support::ScratchFolder;

const std::string kSampleFolder = std::string(RVITUNES_SOURCE_DIR) + "/examples/library";
const std::string kSample = kSampleFolder + "/iTunes Music Library.xml";

std::string readWhole(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Every file below `folder`, relative, with its bytes.
std::map<std::string, std::string> snapshot(const std::string& folder) {
  std::map<std::string, std::string> files;
  std::error_code error;
  for (const auto& entry : fs::recursive_directory_iterator(folder, error)) {
    const std::string relative = fs::relative(entry.path(), folder).string();
    if (!entry.is_regular_file()) {
      files[relative] = "(folder)";
      continue;
    }
    // The date too, so that a file written again with the same bytes still shows.
    struct stat info = {};
    ::stat(entry.path().c_str(), &info);
    files[relative] = readWhole(entry.path().string()) + "@" + std::to_string(info.st_mtim.tv_sec) +
                      "." + std::to_string(info.st_mtim.tv_nsec);
  }
  return files;
}

// Each line of `text` read as one JSON document (through Python's json module, which refuses
// anything else), as an array of trees; nil when a line is not JSON or holds a null.
Value jsonLines(const std::string& text, const ScratchFolder& folder) {
  const std::string in = folder.write("out.jsonl", text);
  const std::string out = folder / "out.plist";
  const std::string command =
      "python3 -c 'import json, plistlib, sys; "
      "plistlib.dump({\"lines\": [json.loads(l) for l in open(sys.argv[1])]}, "
      "open(sys.argv[2], \"wb\"))' '" +
      in + "' '" + out + "' 2>/dev/null";
  if (std::system(command.c_str()) != 0) return Value();
  plist::ParseResult parsed = plist::PropertyList::readFile(out);
  return parsed.ok() && parsed.root.isDictionary() ? parsed.root.asDictionary()->get("lines")
                                                   : Value();
}

// The tool runs with HOME, XDG_CONFIG_HOME, XDG_RUNTIME_DIR and TMPDIR in a folder of the test,
// holding a settings file of the user's that names a library file elsewhere.
class DemoCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(root_.path().empty());
    for (const char* name : {"HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR", "TMPDIR",
                             "RVITUNES_FILEREF_DIR", "RVITUNES_RESOURCE_DIR"}) {
      const char* value = std::getenv(name);
      saved_.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
    }
    fs::create_directories(root_ / "home");
    fs::create_directories(root_ / "tmp");
    fs::create_directories(root_ / "run");
    ::chmod((root_ / "run").c_str(), 0700);
    userLibrary_ = root_.write("home/Music/mine.xml", readWhole(kSample));
    settings_ = root_.write("config/rvitunes/rvitunes.plist",
                            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n"
                            "<dict>\n\t<key>iTunesLibraryXMLPath</key><string>" +
                                userLibrary_ + "</string>\n</dict>\n</plist>\n");
    ::setenv("HOME", (root_ / "home").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (root_ / "config").c_str(), 1);
    ::setenv("XDG_RUNTIME_DIR", (root_ / "run").c_str(), 1);
    ::setenv("TMPDIR", (root_ / "tmp").c_str(), 1);
    ::unsetenv("RVITUNES_FILEREF_DIR");
    ::unsetenv("RVITUNES_RESOURCE_DIR");
    before_ = snapshot(root_.path());
  }
  void TearDown() override {
    for (const auto& [name, value] : saved_) {
      if (value) {
        ::setenv(name.c_str(), value->c_str(), 1);
      } else {
        ::unsetenv(name.c_str());
      }
    }
  }
  // Whatever the run added to or changed in the test's folders.
  std::vector<std::string> leftovers() const {
    std::vector<std::string> changed;
    for (const auto& [path, bytes] : snapshot(root_.path())) {
      auto it = before_.find(path);
      if (it == before_.end() || it->second != bytes) changed.push_back(path);
    }
    return changed;
  }

  ScratchFolder root_{"rvitunes-demo-test"};
  std::string userLibrary_;
  std::string settings_;
  std::map<std::string, std::string> before_;
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

TEST_F(DemoCommand, EveryStepWorksOnTheSampleAndNothingIsLeftBehind) {
  const ToolRun run = runTool("demo");
  EXPECT_EQ(run.status, 0) << run.out;
  for (int step = 1; step <= 12; ++step) {
    char head[8];
    std::snprintf(head, sizeof head, "[%2d] ", step);
    EXPECT_NE(run.out.find(head), std::string::npos) << "step " << step << "\n" << run.out;
  }
  EXPECT_EQ(run.out.find("FAILED"), std::string::npos) << run.out;
  EXPECT_EQ(run.out.find("skipped"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("all 12 steps worked"), std::string::npos) << run.out;
  // The user's stored choice is reported, though the demo runs on the sample.
  EXPECT_NE(run.out.find("the framework would use " + userLibrary_), std::string::npos) << run.out;
  // The real parts of the sample came through: a song file, its cover, the write-back.
  EXPECT_NE(run.out.find("WAV audio file"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("artwork of track item 2596: 64x64 pixels"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("has Rating 80"), std::string::npos) << run.out;
  // Settings, bus folder, home and TMPDIR are as they were: the scratch folder is gone.
  EXPECT_EQ(leftovers(), std::vector<std::string>{});
}

TEST_F(DemoCommand, JsonGivesOneObjectPerStep) {
  const ToolRun run = runTool("demo --json");
  ASSERT_EQ(run.status, 0) << run.out;
  EXPECT_EQ(leftovers(), std::vector<std::string>{});
  ScratchFolder parsing("rvitunes-demo-json");
  const Value lines = jsonLines(run.out, parsing);
  ASSERT_NE(lines.asArray(), nullptr) << "not one JSON object per line:\n" << run.out;
  ASSERT_EQ(lines.asArray()->size(), 12u) << run.out;
  for (size_t i = 0; i < 12; ++i) {
    const plist::Dictionary* step = (*lines.asArray())[i].asDictionary();
    ASSERT_NE(step, nullptr);
    EXPECT_EQ(step->get("step").longLongValue(), static_cast<int64_t>(i + 1));
    EXPECT_TRUE(step->get("name").isString());
    EXPECT_TRUE(step->get("ok").boolValue()) << step->get("name").stringView();
    EXPECT_TRUE(step->get("ms").isNumber());
    EXPECT_GE(step->get("ms").doubleValue(), 0.0);
    EXPECT_NE(step->get("details").asDictionary(), nullptr);
  }
  // A few findings scripts would read.
  const plist::Dictionary& load =
      *(*lines.asArray())[1].asDictionary()->get("details").asDictionary();
  EXPECT_EQ(load.get("tracks").longLongValue(), 30);
  EXPECT_EQ(load.get("playlists").longLongValue(), 21);
  const plist::Dictionary& status =
      *(*lines.asArray())[7].asDictionary()->get("details").asDictionary();
  EXPECT_EQ(status.get("kind").stringView(), "WAV audio file");
  EXPECT_EQ(status.get("size").longLongValue(), status.get("fileBytes").longLongValue());
}

TEST_F(DemoCommand, FileIsLeftAsItWasAndTheRunWorks) {
  // A library in a folder whose name needs quoting and escaping, written by the player's writer.
  const std::string library =
      root_.write("home/Music/My Lib & Co/Bibliothèque.xml", readWhole(kSample));
  struct stat before = {};
  ASSERT_EQ(::stat(library.c_str(), &before), 0);
  before_ = snapshot(root_.path());

  const ToolRun run = runTool("demo --file '" + library + "'");
  EXPECT_EQ(run.status, 0) << run.out;
  EXPECT_NE(run.out.find("all 12 steps worked"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("private copy"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("your own file is unchanged"), std::string::npos) << run.out;

  struct stat after = {};
  ASSERT_EQ(::stat(library.c_str(), &after), 0);
  EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
  EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
  EXPECT_EQ(readWhole(library), readWhole(kSample));
  EXPECT_EQ(leftovers(), std::vector<std::string>{});
}

TEST_F(DemoCommand, MissingOrBrokenFileFailsAndSaysWhy) {
  ToolRun run = runTool("demo --file '" + (root_ / "nowhere.xml") + "'");
  EXPECT_EQ(run.status, 1) << run.out;
  EXPECT_NE(run.out.find("rvitunes demo: step 1 (find the library file) failed: --file: no such "
                         "file: " +
                         (root_ / "nowhere.xml")),
            std::string::npos)
      << run.out;
  EXPECT_NE(run.out.find("[12] change the library file .......... skipped"), std::string::npos)
      << run.out;

  const std::string broken = root_.write("broken.xml", "<?xml version=\"1.0\"?>\n<plist><dict>");
  run = runTool("demo --json --file '" + broken + "'");
  EXPECT_EQ(run.status, 1) << run.out;
  EXPECT_NE(run.out.find("rvitunes demo: step 2 (load the library file) failed: cannot read " +
                         broken + ": offset "),
            std::string::npos)
      << run.out;
  EXPECT_EQ(readWhole(broken), "<?xml version=\"1.0\"?>\n<plist><dict>");

  EXPECT_EQ(runTool("demo --file").status, 2);
  EXPECT_EQ(runTool("demo stray").status, 2);
  EXPECT_EQ(runTool("demo --frobnicate").status, 2);
  // Only the broken file written above is new.
  EXPECT_EQ(leftovers(), std::vector<std::string>{"broken.xml"});
}

TEST_F(DemoCommand, KeepSaysWhereTheScratchFolderIs) {
  const ToolRun run = runTool("demo --keep");
  ASSERT_EQ(run.status, 0) << run.out;
  const std::string marker = "the scratch folder is kept: ";
  const size_t at = run.out.find(marker);
  ASSERT_NE(at, std::string::npos) << run.out;
  std::string kept = run.out.substr(at + marker.size());
  kept = kept.substr(0, kept.find('\n'));
  EXPECT_EQ(fs::path(kept).parent_path(), fs::path(root_ / "tmp"));
  // The library the player wrote back, with the rating of step 12.
  const std::string library = kept + "/library/iTunes Music Library.xml";
  EXPECT_NE(readWhole(library).find("<key>Rating</key><integer>80</integer>"), std::string::npos);
  EXPECT_TRUE(fs::exists(kept + "/config/rvitunes/rvitunes.plist"));
  fs::remove_all(kept);
}

TEST_F(DemoCommand, AReaderThatGoesAwayOrAStopLeavesNothingBehind) {
  // `head` leaves after the first line; the demo goes on without its reader and cleans up.
  ToolRun run = runTool("demo | head -n 1");
  EXPECT_EQ(run.out.rfind("rvitunes demo: ", 0), 0u) << run.out;
  EXPECT_EQ(leftovers(), std::vector<std::string>{});

  // Stopped half-way: the scratch folder goes, then the demo ends by the signal it got.
  run = runTool("demo >/dev/null 2>&1 & sleep 0.3; kill -TERM $!; wait $!; echo status=$?");
  EXPECT_NE(run.out.find("status=143"), std::string::npos) << run.out;
  EXPECT_EQ(leftovers(), std::vector<std::string>{});
}

// ---- The sample and its layout -------------------------------------------------------------

// The committed sample as the demo lays it out: its locations moved onto the source tree.
Value sampleOnSourceTree() {
  Result<cli::RebasedLibrary> rebased =
      cli::rebaseMusicFolder(readWhole(kSample), kSampleFolder + "/iTunes Media");
  EXPECT_TRUE(rebased.ok()) << rebased.status().toString();
  if (!rebased) return Value();
  const std::string& bytes = rebased->bytes;
  return plist::PropertyList::read({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()})
      .root;
}

TEST(DemoSample, RealTracksDescribeTheirFilesAndHaveACover) {
  const Value library = sampleOnSourceTree();
  const plist::Dictionary* tracks = library.asDictionary()->get("Tracks").asDictionary();
  ASSERT_NE(tracks, nullptr);
  size_t real = 0;
  for (const auto& entry : *tracks) {
    const plist::Dictionary& track = *entry.value.asDictionary();
    const std::optional<std::string> path = Url::parse(track.get("Location").stringView())->path();
    ASSERT_TRUE(path.has_value());
    if (!fs::exists(*path)) continue;
    ++real;
    SCOPED_TRACE(*path);
    const std::string wav = readWhole(*path);
    ASSERT_GE(wav.size(), 44u);
    ASSERT_EQ(wav.substr(0, 4), "RIFF");
    auto le32 = [&](size_t at) {
      return static_cast<uint32_t>(static_cast<uint8_t>(wav[at])) |
             static_cast<uint32_t>(static_cast<uint8_t>(wav[at + 1])) << 8 |
             static_cast<uint32_t>(static_cast<uint8_t>(wav[at + 2])) << 16 |
             static_cast<uint32_t>(static_cast<uint8_t>(wav[at + 3])) << 24;
    };
    const uint32_t sampleRate = le32(24);
    const uint32_t byteRate = le32(28);
    const uint32_t dataBytes = le32(40);
    EXPECT_EQ(track.get("Kind").stringView(), "WAV audio file");
    EXPECT_EQ(track.get("Size").longLongValue(), static_cast<int64_t>(wav.size()));
    EXPECT_EQ(track.get("Sample Rate").longLongValue(), sampleRate);
    EXPECT_EQ(track.get("Bit Rate").longLongValue(), byteRate * 8 / 1000);
    EXPECT_EQ(track.get("Total Time").longLongValue(), int64_t{dataBytes} * 1000 / byteRate);
    EXPECT_LE(track.get("Total Time").longLongValue(), 2000);
    EXPECT_GT(track.get("Artwork Count").longLongValue(), 0);
    EXPECT_TRUE(fs::exists(fs::path(*path).parent_path() / "cover.png"));
  }
  EXPECT_GE(real, 3u);
  EXPECT_LE(real, 5u);
}

TEST(DemoSample, RebasingMovesOnlyLocationsBelowTheMusicFolder) {
  const std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
      "\t<key>Music Folder</key><string>file://localhost/Users/x/Music/</string>\n"
      "\t<key>Tracks</key>\n\t<dict>\n"
      "\t\t<key>1</key>\n\t\t<dict>\n\t\t\t<key>Location</key>"
      "<string>file://localhost/Users/x/Music/A%20B/S&#38;T.wav</string>\n\t\t</dict>\n"
      "\t\t<key>2</key>\n\t\t<dict>\n\t\t\t<key>Location</key>"
      "<string>file://localhost/Volumes/Other/song.mp3</string>\n\t\t</dict>\n"
      "\t\t<key>3</key>\n\t\t<dict>\n\t\t\t<key>Location</key>"
      "<string>http://radio.example/stream</string>\n\t\t</dict>\n"
      "\t\t<key>4</key>\n\t\t<dict>\n\t\t\t<key>Name</key><string>no file</string>\n\t\t</dict>\n"
      "\t</dict>\n</dict>\n</plist>\n";
  // A folder whose name has a blank, an ampersand and an accent.
  const std::string folder = "/tmp/demo & co/Médias";
  Result<cli::RebasedLibrary> rebased = cli::rebaseMusicFolder(xml, folder);
  ASSERT_TRUE(rebased.ok()) << rebased.status().toString();
  EXPECT_EQ(rebased->locationsMoved, 1u);
  EXPECT_EQ(rebased->oldMusicFolder, "file://localhost/Users/x/Music/");
  EXPECT_EQ(rebased->newMusicFolder.rfind("file://localhost/tmp/", 0), 0u);
  // The player's own entity style is kept.
  EXPECT_NE(rebased->bytes.find("&#38;"), std::string::npos);
  EXPECT_EQ(rebased->bytes.find("&amp;"), std::string::npos);

  const plist::ParseResult parsed = plist::PropertyList::read(
      {reinterpret_cast<const uint8_t*>(rebased->bytes.data()), rebased->bytes.size()});
  ASSERT_TRUE(parsed.ok()) << parsed.describe();
  const plist::Dictionary& root = *parsed.root.asDictionary();
  EXPECT_EQ(Url::parse(root.get("Music Folder").stringView())->path(), folder);
  const plist::Dictionary& tracks = *root.get("Tracks").asDictionary();
  auto location = [&](const char* key) {
    return std::string(tracks.get(key).asDictionary()->get("Location").stringView());
  };
  EXPECT_EQ(Url::parse(location("1"))->path(), folder + "/A B/S&T.wav");
  EXPECT_EQ(location("2"), "file://localhost/Volumes/Other/song.mp3");
  EXPECT_EQ(location("3"), "http://radio.example/stream");
  EXPECT_FALSE(tracks.get("4").asDictionary()->contains("Location"));
}

TEST(DemoSample, RebasingRefusesWhatItCannotPlace) {
  EXPECT_EQ(cli::rebaseMusicFolder("<plist><dict>", "/x").status().code(), ioErr);
  EXPECT_EQ(cli::rebaseMusicFolder("<plist><array/></plist>", "/x").status().code(), paramErr);
  EXPECT_EQ(cli::rebaseMusicFolder("<plist><dict><key>Tracks</key><dict/></dict></plist>", "/x")
                .status()
                .code(),
            paramErr);
}

TEST(DemoSample, LayoutWritesTheFilesAndDatesTheLibrary) {
  ScratchFolder folder("rvitunes-demo-layout");
  const std::string library = readWhole(kSample);
  const std::string song = "RIFF....WAVE";
  auto bytes = [](const std::string& text) {
    return std::span<const unsigned char>(reinterpret_cast<const unsigned char*>(text.data()),
                                          text.size());
  };
  const cli::EmbeddedFile files[] = {
      {"iTunes Media/Music/Artist/Album/01 Song.wav", bytes(song)},
      {"iTunes Music Library.xml", bytes(library)},
  };
  Result<cli::SampleLayout> layout = cli::layOutSample(files, folder.path());
  ASSERT_TRUE(layout.ok()) << layout.status().toString();
  EXPECT_EQ(layout->libraryPath, folder / "iTunes Music Library.xml");
  EXPECT_EQ(layout->mediaFiles, 1u);
  EXPECT_EQ(layout->locationsMoved, 30u);
  EXPECT_EQ(readWhole(folder / "iTunes Media/Music/Artist/Album/01 Song.wav"), song);
  // The library's "Date" (2019-07-22T07:45:07Z) is the file's date.
  struct stat info = {};
  ASSERT_EQ(::stat(layout->libraryPath.c_str(), &info), 0);
  EXPECT_EQ(info.st_mtim.tv_sec, 1563781507);

  const cli::EmbeddedFile climbing[] = {{"../escape.txt", bytes(song)},
                                        {"iTunes Music Library.xml", bytes(library)}};
  EXPECT_EQ(cli::layOutSample(climbing, folder.path()).status().code(), paramErr);
  EXPECT_FALSE(fs::exists(fs::path(folder.path()).parent_path() / "escape.txt"));
  const cli::EmbeddedFile noLibrary[] = {{"a.wav", bytes(song)}};
  EXPECT_EQ(cli::layOutSample(noLibrary, folder.path()).status().code(), paramErr);
}

// ---- The step report -----------------------------------------------------------------------

TEST(DemoReport, StepLinesLineUpAndJsonCarriesTheOutcome) {
  EXPECT_EQ(cli::DemoReport::stepPrefix(3, "load the library file").size(),
            cli::DemoReport::stepPrefix(12, "play a track").size());
  EXPECT_EQ(cli::DemoReport::formatDuration(4.14), "4.1 ms");
  EXPECT_EQ(cli::DemoReport::formatDuration(1520), "1.52 s");

  ScratchFolder folder("rvitunes-demo-report");
  cli::StepOutcome good;
  good.setSummary("a \"quoted\" name\twith a tab, é and 日本");
  good.detail("count", Value::integer(3));
  cli::StepOutcome bad = cli::StepOutcome::failed("it broke: \\ backslash");
  const cli::StepOutcome skipped = cli::StepOutcome::skipped("needs step 1");
  const std::string text = cli::DemoReport::jsonLine(1, "first", good, 1.26) + "\n" +
                           cli::DemoReport::jsonLine(2, "second", bad, 0) + "\n" +
                           cli::DemoReport::jsonLine(3, "third", skipped, 0) + "\n";
  const Value lines = jsonLines(text, folder);
  ASSERT_NE(lines.asArray(), nullptr) << text;
  const plist::Dictionary& first = *(*lines.asArray())[0].asDictionary();
  EXPECT_TRUE(first.get("ok").boolValue());
  EXPECT_DOUBLE_EQ(first.get("ms").doubleValue(), 1.3);
  EXPECT_EQ(first.get("summary").stringView(), good.summary());
  EXPECT_EQ(first.get("details").asDictionary()->get("count").longLongValue(), 3);
  EXPECT_FALSE(first.contains("error"));
  const plist::Dictionary& second = *(*lines.asArray())[1].asDictionary();
  EXPECT_FALSE(second.get("ok").boolValue());
  EXPECT_EQ(second.get("error").stringView(), "it broke: \\ backslash");
  EXPECT_FALSE(second.contains("skipped"));
  const plist::Dictionary& third = *(*lines.asArray())[2].asDictionary();
  EXPECT_FALSE(third.get("ok").boolValue());
  EXPECT_TRUE(third.get("skipped").boolValue());
}

}  // namespace
}  // namespace rvitunes
