// rvitunes demo: the host's start-up and a tour of the player, step by step, on the sample
// library built into the tool or on the user's own library file.
//
// Everything the demo writes lives in a scratch folder of its own: the sample laid out with its
// media files, a private copy of a --file library for the player, the settings the framework
// stores, the event bus directory and the file-reference registry. The player runs in this
// process and is never published on the user's bus; the user's own settings are only read.

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "DemoReport.h"
#include "DemoSample.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/base/CapturingLogSink.h"
#include "rvitunes/base/Date.h"
#include "rvitunes/base/FileSystem.h"
#include "rvitunes/base/FourCharCode.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/cadenza/CZPlaylist.h"
#include "rvitunes/cadenza/CZPlaylistCache.h"
#include "rvitunes/cadenza/CZPlaylistEnumerator.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/cadenza/LongLongValue.h"
#include "rvitunes/helper/AppleScript.h"
#include "rvitunes/helper/FrameworkBundle.h"
#include "rvitunes/helper/IconImage.h"
#include "rvitunes/helper/RVITunesHelper.h"
#include "rvitunes/helper/RVITunesIcons.h"
#include "rvitunes/helper/RVITunesInfo.h"
#include "rvitunes/helper/RVITunesPlaylist.h"
#include "rvitunes/helper/RVITunesTrackItem.h"
#include "rvitunes/image/Image.h"
#include "rvitunes/platform/Dialogs.h"
#include "rvitunes/platform/SharedPreferences.h"
#include "rvitunes/platform/UserDefaults.h"
#include "rvitunes/player/LibraryWriteBack.h"
#include "rvitunes/player/PlayerModel.h"
#include "rvitunes/player/PlayerServer.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"

namespace rvitunes::cli {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kDemoUsage =
    "usage: rvitunes demo [--file PATH] [--json] [--keep]\n"
    "\n"
    "Walks a host application's start-up and a player session, step by step, on the sample\n"
    "library built into rvitunes (or on PATH): finding the library file, loading it, the\n"
    "playlist icons, the display items, then a reference player started in this process on the\n"
    "same library, binding, playing, status and artwork, search, the playlist tree, a stop\n"
    "through AppleScript, and a change that the player writes back to the library file.\n"
    "\n"
    "Your own settings are only read, and your event bus is not used. Everything the demo\n"
    "writes goes to a scratch folder that is removed at the end.\n"
    "\n"
    "options:\n"
    "  --file PATH   use this library file instead of the sample; the player works on a\n"
    "                private copy of it, so the file itself is never written\n"
    "  --json        one JSON object per step (step, name, ok, ms, summary, details; error\n"
    "                and skipped when it did not work), one per line\n"
    "  --keep        keep the scratch folder and say where it is\n"
    "  -h, --help    show this help\n"
    "\n"
    "exit status: 0 every step worked, 1 a step failed (the reason is on standard error),\n"
    "2 wrong usage.\n";

constexpr size_t kListedItems = 5;   // playlist items shown in step 4
constexpr size_t kTreeLines = 22;    // lines of the playlist tree shown in step 10
constexpr size_t kSearchShown = 3;   // search results named in step 9
constexpr size_t kSearchNamed = 20;  // search results named in its details
constexpr auto kWriteBackWait = std::chrono::seconds(10);
constexpr auto kPollInterval = std::chrono::milliseconds(20);
constexpr auto kEventTimeout = std::chrono::seconds(10);

// The host's own file-type images, which the framework never loads itself: a badge per name.
constexpr const char* kHostTypeImages[] = {"iTunes_mp3",    "iTunes_mpeg4", "iTunes_aac",
                                           "iTunes_aiff",   "iTunes_wav",   "iTunes_movie",
                                           "iTunes_generic"};

int usageError(const std::string& message) {
  std::fprintf(stderr, "rvitunes demo: %s\n(rvitunes demo --help shows the usage)\n",
               message.c_str());
  return kExitUsage;
}

// ---- Small helpers -----------------------------------------------------------------------

std::string inQuotes(std::string_view text) {
  return "\"" + std::string(text) + "\"";
}

std::string plural(size_t count, std::string_view one, std::string_view many) {
  return std::to_string(count) + " " + std::string(count == 1 ? one : many);
}

// "2019-07-22 07:45:07 UTC".
std::string dateText(const Date& date) {
  std::string text = date.iso8601();
  if (text.size() >= 20 && text[10] == 'T') {
    text[10] = ' ';
    text = text.substr(0, 19) + " UTC";
  }
  return text;
}

std::string stateName(OSType state) {
  switch (state) {
    case fourCharCode("kPSP"):
      return "playing";
    case fourCharCode("kPSS"):
      return "stopped";
    case fourCharCode("kPSp"):
      return "paused";
    case fourCharCode("kPSF"):
      return "fast forwarding";
    case fourCharCode("kPSR"):
      return "rewinding";
    case 0xFFFFFFFF:
      return "unknown (the request failed)";
    default:
      return "'" + fourCharString(state) + "'";
  }
}

std::optional<std::string> stringField(const plist::Dictionary& record, std::string_view key) {
  const plist::Value* value = record.find(key);
  if (value == nullptr || !value->isString()) return std::nullopt;
  return value->stringValue();
}

std::optional<int64_t> integerField(const plist::Dictionary& record, std::string_view key) {
  const plist::Value* value = record.find(key);
  if (value == nullptr || !value->isInteger()) return std::nullopt;
  return value->longLongValue();
}

size_t countOf(const plist::Dictionary& library, std::string_view key) {
  const plist::Value* value = library.find(key);
  if (value == nullptr) return 0;
  if (const plist::Dictionary* dict = value->asDictionary()) return dict->size();
  if (const plist::Array* array = value->asArray()) return array->size();
  return 0;
}

bool regularFile(const std::string& path) {
  std::error_code error;
  return fs::is_regular_file(path, error);
}

plist::Value text(std::string_view value) {
  return plist::Value::string(value);
}
plist::Value optionalText(const std::optional<std::string>& value) {
  return value ? plist::Value::string(*value) : plist::Value::string("");
}
plist::Value number(int64_t value) {
  return plist::Value::integer(value);
}

// The key under which RVITunesIcons holds `icon`, or "-".
std::string iconKeyOf(const plist::Ref<IconImage>& icon) {
  plist::Ref<plist::Dictionary> icons = RVITunesIcons();
  if (!icon || !icons) return "-";
  for (const auto& entry : *icons) {
    if (asIconImage(entry.value) == icon.get() && entry.key.isString()) {
      return entry.key.stringValue();
    }
  }
  return "-";
}

// A 16×16 rounded badge in a colour of its own for each name.
image::Image typeBadge(std::string_view name) {
  uint32_t hash = 2166136261u;
  for (char c : name)
    hash = (hash ^ static_cast<uint8_t>(c)) * 16777619u;
  const image::Rgba fill{static_cast<uint8_t>(60 + hash % 170),
                         static_cast<uint8_t>(60 + (hash >> 8) % 170),
                         static_cast<uint8_t>(60 + (hash >> 16) % 170), 255};
  image::Image badge(16, 16, fill);
  for (uint32_t corner : {0u, 15u}) {
    badge.setPixel(corner, 0, image::Rgba{});
    badge.setPixel(corner, 15, image::Rgba{});
  }
  return badge;
}

// The signal that asked the demo to stop (SIGINT, SIGTERM, SIGHUP), or 0.
volatile std::sig_atomic_t interruptedBy = 0;

extern "C" void noteInterrupt(int signal) {
  interruptedBy = signal;
}

// While it lives, an interrupt only sets interruptedBy, so that the demo can end its step, stop
// the player and remove its scratch folder; SIGPIPE is ignored, so that a reader that goes
// away (rvitunes demo | head) does not leave the scratch folder behind either.
class SignalGuard {
 public:
  SignalGuard() {
    struct sigaction action = {};
    action.sa_handler = noteInterrupt;
    sigemptyset(&action.sa_mask);
    for (size_t i = 0; i < std::size(kSignals); ++i) {
      ::sigaction(kSignals[i], &action, &previous_[i]);
    }
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    ::sigaction(SIGPIPE, &ignore, &previousPipe_);
  }
  ~SignalGuard() {
    for (size_t i = 0; i < std::size(kSignals); ++i) {
      ::sigaction(kSignals[i], &previous_[i], nullptr);
    }
    ::sigaction(SIGPIPE, &previousPipe_, nullptr);
  }
  SignalGuard(const SignalGuard&) = delete;
  SignalGuard& operator=(const SignalGuard&) = delete;

 private:
  static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
  struct sigaction previous_[std::size(kSignals)] = {};
  struct sigaction previousPipe_ = {};
};

// The scratch folder, removed with everything in it when the object goes, unless kept.
class ScratchFolder {
 public:
  ScratchFolder() = default;
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder() {
    if (path_.empty() || keep_) return;
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }

  // Makes $TMPDIR/rvitunes-demo.XXXXXX (or under /tmp); false when that fails.
  bool create() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp == '/' ? tmp : "/tmp") + "/rvitunes-demo.XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) return false;
    path_ = pattern;
    return true;
  }
  const std::string& path() const { return path_; }
  std::string sub(std::string_view name) const { return path_ + "/" + std::string(name); }
  void keep() { keep_ = true; }

 private:
  std::string path_;
  bool keep_ = false;
};

struct DemoOptions {
  std::optional<std::string> file;
  bool json = false;
  bool keep = false;
};

// The track the player part of the demo works with.
struct ChosenTrack {
  int32_t id = 0;
  int64_t persistentId = 0;
  std::string persistentIdText;
  plist::Ref<plist::Dictionary> record;
  std::optional<std::string> path;  // its file, from "Location"
  bool fileExists = false;
};

// ---- The demo ----------------------------------------------------------------------------

class Demo {
 public:
  Demo(DemoOptions options, DemoReport& report) : options_(std::move(options)), report_(report) {
    previousLog_ = setNullLogSink(log_);
  }
  ~Demo() {
    // The framework's shared objects refer to the player; forget them before it stops, and stop
    // it (writing any pending change) before the scratch folder goes.
    CZPlaylistCache::releaseSharedInstance();
    Cadenza::unSharedInstance();
    player_.reset();
    setNullLogSink(previousLog_);
  }
  Demo(const Demo&) = delete;
  Demo& operator=(const Demo&) = delete;

  int run();

 private:
  // The steps' names, in order; runStep(i) runs step i + 1.
  static constexpr const char* kSteps[] = {
      "find the library file",
      "load the library file",
      "fill the icon dictionary",
      "build the display items",
      "start the player",
      "bind a playlist item",
      "play a track",
      "player status and artwork",
      "search the player",
      "walk the playlist tree",
      "stop through AppleScript",
      "change the library file",
  };
  StepOutcome runStep(size_t index);

  StepOutcome findLibraryFile();
  StepOutcome loadLibrary();
  StepOutcome fillIcons();
  StepOutcome buildItems();
  StepOutcome startPlayer();
  StepOutcome bindPlaylist();
  StepOutcome playTrack();
  StepOutcome showStatus();
  StepOutcome searchPlayer();
  StepOutcome walkTree();
  StepOutcome stopByScript();
  StepOutcome changeLibrary();

  // The outcome of a step that cannot run because step `step` did not work.
  static StepOutcome needs(int step) {
    return StepOutcome::skipped("needs step " + std::to_string(step) + " (" + kSteps[step - 1] +
                                ")");
  }
  // The framework's last diagnostic since `mark` (the player's own lines left out), for reasons.
  std::string lastDiagnostic(size_t mark) const;
  size_t logMark() const { return log_->lines().size(); }
  void redirectSettings();
  std::optional<ChosenTrack> chooseTrack() const;
  std::shared_ptr<RVITunesPlaylist> choosePlaylistItem() const;

  DemoOptions options_;
  DemoReport& report_;
  ScratchFolder scratch_;
  std::shared_ptr<CapturingLogSink> log_ = std::make_shared<CapturingLogSink>();
  std::shared_ptr<LogSink> previousLog_;

  std::shared_ptr<RVITunesHelper> helper_;
  std::string libraryFile_;  // what the host loads: the laid-out sample, or --file
  std::optional<Date> userFileDate_;
  std::optional<uint64_t> userFileSize_;
  std::shared_ptr<RVITunesInfo> info_;
  std::optional<ChosenTrack> track_;
  std::shared_ptr<RVITunesTrackItem> trackItem_;
  std::string playerFile_;  // what the player loads and writes back
  std::unique_ptr<player::PlayerServer> player_;
  std::shared_ptr<RVITunesPlaylist> playlistItem_;
  std::shared_ptr<CZPlaylist> livePlaylist_;
  std::shared_ptr<CZTrack> liveTrack_;
};

StepOutcome Demo::runStep(size_t index) {
  switch (index) {
    case 0:
      return findLibraryFile();
    case 1:
      return loadLibrary();
    case 2:
      return fillIcons();
    case 3:
      return buildItems();
    case 4:
      return startPlayer();
    case 5:
      return bindPlaylist();
    case 6:
      return playTrack();
    case 7:
      return showStatus();
    case 8:
      return searchPlayer();
    case 9:
      return walkTree();
    case 10:
      return stopByScript();
    default:
      return changeLibrary();
  }
}

int Demo::run() {
  if (!scratch_.create()) {
    std::fprintf(stderr, "rvitunes demo: cannot make a scratch folder in %s\n",
                 std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp");
    return kExitFailure;
  }
  if (options_.keep) scratch_.keep();

  // Before anything reaches the event bus or makes a file reference: the demo's own bus and
  // registry, so that no application of the user's is seen and nothing of theirs is written.
  const std::string runtime = scratch_.sub("run");
  std::error_code error;
  fs::create_directories(runtime, error);
  fs::permissions(runtime, fs::perms::owner_all, error);
  ::setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
  ::setenv("RVITUNES_FILEREF_DIR", scratch_.sub("file-references").c_str(), 1);
  ae::EventManager::setDefaultTimeout(kEventTimeout);
  platform::Dialogs::install(std::make_shared<platform::NonInteractiveDialogs>());
  platform::UserDefaults::setStandardDomain("rvitunes");
  helper_ = RVITunesHelper::sharediTunesHelper();

  report_.note(std::string("rvitunes demo: a host's start-up and a player session on ") +
               (options_.file ? *options_.file : "the built-in sample library"));
  const auto started = Clock::now();
  for (size_t i = 0; i < std::size(kSteps) && interruptedBy == 0; ++i) {
    const auto before = Clock::now();
    const StepOutcome outcome = runStep(i);
    const double ms = std::chrono::duration<double, std::milli>(Clock::now() - before).count();
    report_.step(static_cast<int>(i + 1), kSteps[i], outcome, ms);
  }
  const double total = std::chrono::duration<double, std::milli>(Clock::now() - started).count();

  if (interruptedBy != 0) {
    std::fprintf(stderr, "rvitunes demo: interrupted after %d of %zu steps\n", report_.steps(),
                 std::size(kSteps));
  } else if (report_.failures() == 0) {
    report_.note("all " + std::to_string(report_.steps()) + " steps worked in " +
                 DemoReport::formatDuration(total));
  } else {
    report_.note(std::to_string(report_.failures()) + " of " + std::to_string(report_.steps()) +
                 " steps did not work (" + DemoReport::formatDuration(total) + ")");
  }
  if (options_.keep) {
    const std::string kept = "the scratch folder is kept: " + scratch_.path();
    if (report_.json() || interruptedBy != 0) {
      std::fprintf(stderr, "rvitunes demo: %s\n", kept.c_str());
    } else {
      report_.note(kept);
    }
  }
  if (interruptedBy != 0) return kExitFailure;
  return report_.failures() == 0 ? kExitOk : kExitFailure;
}

std::string Demo::lastDiagnostic(size_t mark) const {
  const std::vector<std::string> lines = log_->lines();
  for (size_t i = lines.size(); i > mark; --i) {
    if (lines[i - 1].rfind("player: ", 0) != 0) return lines[i - 1];
  }
  return "";
}

// From here on the framework keeps its settings in the scratch folder; the user's have been
// read and are not looked at again.
void Demo::redirectSettings() {
  ::setenv("XDG_CONFIG_HOME", scratch_.sub("config").c_str(), 1);
}

// ---- 1. find the library file --------------------------------------------------------------

StepOutcome Demo::findLibraryFile() {
  StepOutcome out;
  out.detail("scratch", text(scratch_.path()));
  std::optional<std::string> frameworkChoice;

  // The stored choice, read straight from the settings file: the framework's own reader would
  // set a damaged file aside, and the demo changes nothing of the user's.
  const std::string settings = platform::UserDefaults::standardUserDefaults()->path();
  plist::Ref<plist::Dictionary> found = plist::Dictionary::create();
  found->set("file", text(settings));
  std::string said;
  if (!regularFile(settings)) {
    said = "no settings file";
  } else {
    plist::ReadOptions limits;
    limits.maxInputBytes = platform::UserDefaults::kMaxFileBytes;
    plist::ParseResult parsed = plist::PropertyList::readFile(settings, limits);
    const plist::Dictionary* root = parsed.ok() ? parsed.root.asDictionary() : nullptr;
    std::optional<std::string> stored =
        root ? stringField(*root, kiTunesLibraryXMLPathKey) : std::nullopt;
    if (!parsed.ok()) {
      said = "the settings file does not read (" + parsed.describe() + ")";
    } else if (!stored) {
      said = "not set";
    } else {
      const bool exists = FileSystem::defaultFileSystem().fileExists(*stored);
      said = *stored + (exists ? "" : " (no such file)");
      found->set("value", text(*stored));
      found->set("exists", plist::Value::boolean(exists));
      if (exists) frameworkChoice = stored;
    }
  }
  out.addLine(std::string("user default ") + inQuotes(kiTunesLibraryXMLPathKey) + " (" + settings +
              "): " + said);
  found->set("found", text(said));
  out.detail("userDefault", plist::Value(found));

  // The iApps list of recent libraries, in the preferences of another application.
  plist::Value recent =
      platform::SharedPreferences::copyAppValue(kiTunesRecentDatabasesKey, kiAppsDomain);
  std::optional<std::string> fromList = helper_->enumeratorPropertyList();
  plist::Ref<plist::Dictionary> iApps = plist::Dictionary::create();
  std::string looked;
  for (const std::string& candidate : platform::SharedPreferences::candidatePaths(kiAppsDomain)) {
    looked += (looked.empty() ? "" : ", ") + candidate;
  }
  if (const plist::Array* list = recent.asArray()) {
    said = plural(list->size(), "entry", "entries") +
           (fromList ? ", the first existing file: " + *fromList : ", none of them exists");
    iApps->set("entries", number(static_cast<int64_t>(list->size())));
  } else {
    said = "no list (looked in " + looked + ")";
  }
  if (fromList) {
    iApps->set("value", text(*fromList));
    if (!frameworkChoice) frameworkChoice = fromList;
  }
  out.addLine(std::string("iApps list ") + inQuotes(kiTunesRecentDatabasesKey) + " of " +
              kiAppsDomain + ": " + said);
  iApps->set("found", text(said));
  out.detail("iApps", plist::Value(iApps));

  // The default location.
  const std::string defaultPath = helper_->defaultiTunesXmlPath();
  const bool defaultExists = FileSystem::defaultFileSystem().fileExists(defaultPath);
  out.addLine("default location " + defaultPath + ": " + (defaultExists ? "exists" : "no file"));
  plist::Ref<plist::Dictionary> location = plist::Dictionary::create();
  location->set("value", text(defaultPath));
  location->set("exists", plist::Value::boolean(defaultExists));
  out.detail("defaultLocation", plist::Value(location));
  if (!frameworkChoice && defaultExists) frameworkChoice = defaultPath;

  out.addLine("on this machine the framework would " +
              (frameworkChoice ? "use " + *frameworkChoice
                               : std::string("ask the user (an alert, then an open panel)")));
  out.detail("frameworkWouldUse", optionalText(frameworkChoice));
  redirectSettings();

  if (options_.file) {
    std::error_code error;
    const std::string path = fs::absolute(*options_.file, error).lexically_normal().string();
    out.detail("uses", text(path));
    if (!fs::exists(path, error)) {
      out.fail("--file: no such file: " + *options_.file);
      return out;
    }
    if (!regularFile(path)) {
      out.fail("--file: not a regular file: " + *options_.file);
      return out;
    }
    libraryFile_ = path;
    userFileDate_ = FileSystem::defaultFileSystem().modificationDate(path);
    userFileSize_ = fs::file_size(path, error);
    out.setSummary("your file " + path);
    out.addLine("the demo uses your file " + path + " (read only)");
  } else {
    const std::string folder = scratch_.sub("library");
    std::error_code error;
    fs::create_directories(folder, error);
    Result<SampleLayout> layout = layOutSample(embeddedSampleFiles(), folder);
    if (!layout) {
      out.fail("cannot lay out the sample in " + folder + ": " + layout.status().toString());
      return out;
    }
    libraryFile_ = layout->libraryPath;
    out.detail("uses", text(libraryFile_));
    out.detail("sampleMediaFiles", number(static_cast<int64_t>(layout->mediaFiles)));
    out.setSummary("the built-in sample, laid out in " + folder);
    out.addLine("the demo uses the built-in sample: " + libraryFile_);
    out.addLine("with " + plural(layout->mediaFiles, "media file", "media files") +
                " (songs and covers) under " + layout->mediaFolder + "; " +
                plural(layout->locationsMoved, "track location", "track locations") +
                " moved there");
  }

  // The demo's own settings, in the scratch folder, now name the file: the framework finds it
  // there from here on, exactly as it finds a stored choice.
  helper_->setPlaylistLibraryFilePath(libraryFile_);
  out.addLine("the demo keeps its own settings in " + scratch_.sub("config") +
              "; yours are not written");
  return out;
}

// ---- 2. load the library file --------------------------------------------------------------

StepOutcome Demo::loadLibrary() {
  if (libraryFile_.empty()) return needs(1);
  StepOutcome out;
  const std::optional<std::string> path = helper_->playlistLibraryFilePath();
  if (!path) return StepOutcome::failed("the framework found no library file");
  // The date is taken before reading, so that a change made during the read is seen next time.
  const std::optional<Date> date = FileSystem::defaultFileSystem().modificationDate(*path);
  auto info = std::make_shared<RVITunesInfo>(path);
  const RVITunesInfo::LoadResult& load = info->loadResult();
  out.detail("path", text(*path));
  if (!info->library()) {
    std::string reason = "cannot read " + *path;
    if (load.error) {
      reason += ": offset " + std::to_string(load.error->offset) + ": " + load.error->message;
    }
    out.fail(reason);
    return out;
  }
  helper_->setItunesInfo(info);
  helper_->setXmlInfodate(date);
  info_ = info;

  const plist::Dictionary& library = *info->library();
  const size_t tracks = countOf(library, "Tracks");
  const size_t playlists = countOf(library, "Playlists");
  out.setSummary(plural(tracks, "track", "tracks") + ", " +
                 plural(playlists, "playlist", "playlists"));
  out.addLine("RVITunesInfo read " + *path + " in " +
              DemoReport::formatDuration(load.seconds * 1000) + " (" +
              (load.format == plist::Format::kXml ? "XML" : "binary") + ", " +
              plural(load.warnings.size(), "defect", "defects") + " repaired)");
  if (date) {
    out.addLine("file date " + dateText(*date) + ", kept with setXmlInfodate for the change test");
    out.detail("fileDate", text(date->iso8601()));
  }
  if (auto version = stringField(library, "Application Version")) {
    out.addLine("written by iTunes " + *version);
  }
  out.detail("tracks", number(static_cast<int64_t>(tracks)));
  out.detail("playlists", number(static_cast<int64_t>(playlists)));
  out.detail("repairs", number(static_cast<int64_t>(load.warnings.size())));
  return out;
}

// ---- 3. fill the icon dictionary -------------------------------------------------------------

StepOutcome Demo::fillIcons() {
  StepOutcome out;
  const std::string folder = FrameworkBundle::resourceDirectory();
  plist::Ref<plist::Dictionary> icons = RVITunesInfo::playlistsDisplayIcons(this);
  const size_t loaded = icons ? icons->size() : 0;
  out.detail("folder", text(folder));
  out.detail("icons", number(static_cast<int64_t>(loaded)));
  if (loaded == 0) {
    out.fail("the framework found no playlist icons in " + folder);
    return out;
  }
  const IconImage* sample = asIconImage(icons->begin()->value);
  out.setSummary(plural(loaded, "icon", "icons") + " from " + folder);
  if (sample != nullptr && sample->image()) {
    out.addLine("RVITunesIcons holds " + icons->begin()->key.stringValue() + ", ... as " +
                std::to_string(sample->image()->width()) + "x" +
                std::to_string(sample->image()->height()) + " images read from .icns files");
  }

  // A host brings its own file-type images; the track items pick theirs from the same place.
  std::string added;
  for (const char* name : kHostTypeImages) {
    if (icons->contains(name)) continue;
    icons->set(name,
               IconImage::makeValue(std::make_shared<const image::Image>(typeBadge(name)), "host"));
    added += (added.empty() ? "" : ", ") + std::string(name);
  }
  if (!added.empty()) out.addLine("the host adds its own file-type images: " + added);
  return out;
}

// ---- 4. build the display items --------------------------------------------------------------

std::optional<ChosenTrack> Demo::chooseTrack() const {
  // The first track whose file is on this machine and has artwork; else the first with a file;
  // else the first track.
  plist::Ref<plist::Dictionary> tracks = helper_->itunesTracksInfo();
  if (!tracks) return std::nullopt;
  std::optional<ChosenTrack> best;
  int bestScore = -1;
  for (const auto& entry : *tracks) {
    plist::Ref<plist::Dictionary> record = entry.value.dictionaryRef();
    if (!record) continue;
    const std::optional<int64_t> id = integerField(*record, "Track ID");
    if (!id || *id <= 0 || *id > INT32_MAX) continue;
    ChosenTrack candidate;
    candidate.id = static_cast<int32_t>(*id);
    candidate.record = record;
    candidate.persistentIdText = stringField(*record, "Persistent ID").value_or("");
    candidate.persistentId = longlongValue(candidate.persistentIdText);
    if (auto location = stringField(*record, "Location")) {
      if (auto url = Url::parse(*location)) candidate.path = url->path();
    }
    candidate.fileExists = candidate.path && regularFile(*candidate.path);
    const int score =
        (candidate.fileExists ? 2 : 0) +
        (candidate.fileExists && integerField(*record, "Artwork Count").value_or(0) > 0 ? 1 : 0);
    if (score > bestScore) {
      best = std::move(candidate);
      bestScore = score;
    }
    if (score == 3) break;
  }
  return best;
}

std::shared_ptr<RVITunesPlaylist> Demo::choosePlaylistItem() const {
  // An ordinary playlist holding the track reads best; else any item holding it; else the first.
  auto holds = [&](const RVITunesPlaylist& item) {
    return track_ && item.tarcks() && item.tarcks()->find(plist::Value::integer(track_->id));
  };
  auto ordinary = [](const RVITunesPlaylist& item) {
    const plist::Ref<plist::Dictionary>& record = item.playlistInfo();
    if (!record) return false;
    for (const char* key : {"Master", "Folder", "Smart Info", "Distinguished Kind"}) {
      if (record->contains(key)) return false;
    }
    return true;
  };
  const RVITunesHelper::PlaylistItems& items = helper_->playlistsArray();
  for (const auto& item : items) {
    if (ordinary(*item) && holds(*item)) return item;
  }
  for (const auto& item : items) {
    if (holds(*item)) return item;
  }
  return items.empty() ? nullptr : items.front();
}

StepOutcome Demo::buildItems() {
  if (!info_) return needs(2);
  StepOutcome out;
  helper_->setShowFlags(kShowAllPlaylists);
  helper_->updateiTunesPlaylistsItem(this);
  helper_->updateTrackItemsFromRecords(plist::Value(helper_->itunesTracksInfo()));
  const RVITunesHelper::PlaylistItems& playlists = helper_->playlistsArray();
  const RVITunesHelper::TrackItems& tracks = helper_->tracksInfoDict();

  size_t withIcons = 0;
  plist::Ref<plist::Array> shown = plist::Array::create();
  for (size_t i = 0; i < playlists.size(); ++i) {
    const RVITunesPlaylist& item = *playlists[i];
    if (item.listImage()) ++withIcons;
    if (i >= kListedItems) continue;
    const size_t count = item.tarcks() ? item.tarcks()->size() : 0;
    const std::string icon = iconKeyOf(item.listImage());
    char line[160];
    std::snprintf(line, sizeof line, "%2d  %-22s %4zu tracks  icon %s", item.sortID(),
                  item.playlistName().value_or("-").c_str(), count, icon.c_str());
    out.addLine(line);
    plist::Ref<plist::Dictionary> entry = plist::Dictionary::create();
    entry->set("sort", number(item.sortID()));
    entry->set("playlistId", number(item.playlistId()));
    entry->set("name", optionalText(item.playlistName()));
    entry->set("tracks", number(static_cast<int64_t>(count)));
    entry->set("icon", text(icon));
    shown->push_back(plist::Value(entry));
  }
  if (playlists.size() > kListedItems) {
    out.addLine("... and " + std::to_string(playlists.size() - kListedItems) + " more");
  }

  size_t withTypeImage = 0;
  size_t filesHere = 0;
  for (const auto& [id, item] : tracks) {
    if (item->typeImage()) ++withTypeImage;
    if (item->filePath() && regularFile(*item->filePath())) ++filesHere;
  }
  out.setSummary(plural(playlists.size(), "playlist item", "playlist items") + ", " +
                 plural(tracks.size(), "track item", "track items"));
  out.addLine(std::to_string(withIcons) + " of " + std::to_string(playlists.size()) +
              " playlist items have an icon; " + std::to_string(withTypeImage) + " of " +
              std::to_string(tracks.size()) + " track items a file-type image; " +
              std::to_string(filesHere) + " track files are on this machine");
  out.detail("playlistItems", number(static_cast<int64_t>(playlists.size())));
  out.detail("trackItems", number(static_cast<int64_t>(tracks.size())));
  out.detail("playlistItemsWithIcon", number(static_cast<int64_t>(withIcons)));
  out.detail("trackFilesPresent", number(static_cast<int64_t>(filesHere)));
  out.detail("firstPlaylistItems", plist::Value(shown));

  track_ = chooseTrack();
  if (track_) trackItem_ = helper_->trackItemForTrackID(track_->id);
  if (!trackItem_) {
    out.fail("the library has no track to work with");
    return out;
  }
  const RVITunesTrackItem& item = *trackItem_;
  char facts[96];
  std::snprintf(facts, sizeof facts, "%.1f s", static_cast<double>(item.totalTime()) / 1000);
  out.addLine("the demo works with track item " + std::to_string(item.trackId()) + " " +
              inQuotes(item.trackName().value_or("?")) + " by " + item.artistName().value_or("?") +
              ": " + item.fileName().value_or("(no file)") + ", " + facts + ", type image " +
              iconKeyOf(item.typeImage()) + ", artwork count " +
              std::to_string(item.artworkCount()) +
              (track_->fileExists ? "" : " (its file is not on this machine)"));
  plist::Ref<plist::Dictionary> chosen = plist::Dictionary::create();
  chosen->set("trackId", number(item.trackId()));
  chosen->set("persistentId", text(track_->persistentIdText));
  chosen->set("name", optionalText(item.trackName()));
  chosen->set("artist", optionalText(item.artistName()));
  chosen->set("filePath", optionalText(item.filePath()));
  chosen->set("fileExists", plist::Value::boolean(track_->fileExists));
  chosen->set("typeImage", text(iconKeyOf(item.typeImage())));
  chosen->set("totalTime", number(item.totalTime()));
  chosen->set("artworkCount", number(item.artworkCount()));
  out.detail("track", plist::Value(chosen));
  return out;
}

// ---- 5. start the player ---------------------------------------------------------------------

StepOutcome Demo::startPlayer() {
  if (!info_) return needs(2);
  StepOutcome out;
  playerFile_ = libraryFile_;
  if (options_.file) {
    // The player writes its library back, so it gets a copy: the user's file stays as it is.
    const std::string folder = scratch_.sub("player");
    playerFile_ = folder + "/" + std::string(kSampleLibraryName);
    std::error_code error;
    fs::create_directories(folder, error);
    if (!error) fs::copy_file(libraryFile_, playerFile_, error);
    if (!error) {
      fs::last_write_time(playerFile_, fs::last_write_time(libraryFile_, error), error);
    }
    if (error) {
      out.fail("cannot copy " + libraryFile_ + " to " + playerFile_ + ": " + error.message());
      return out;
    }
    // The change test of step 12 follows the file the player writes.
    helper_->setPlaylistLibraryFilePath(playerFile_);
    out.addLine("your file is never written: the player works on a private copy, " + playerFile_);
  }

  player::PlayerServerOptions options;  // in this process only: publish stays off
  auto server = player::PlayerServer::startInProcess(playerFile_, std::move(options));
  if (!server) {
    out.fail("the player did not start on " + playerFile_ + ": " + server.status().toString());
    return out;
  }
  player_ = std::move(*server);

  const size_t mark = logMark();
  std::shared_ptr<Cadenza> controller = Cadenza::sharedInstance();
  const std::optional<std::string> version = controller->versionString();
  if (!version) {
    out.fail("the player does not answer: " + lastDiagnostic(mark));
    return out;
  }
  const int32_t playlists = controller->playlistCount();
  std::shared_ptr<CZPlaylist> library = controller->libraryPlaylist();
  const int32_t tracks = library ? library->trackCount() : -1;
  out.setSummary(player_->name() + " " + *version + " in this process: " +
                 plural(static_cast<size_t>(std::max(playlists, 0)), "playlist", "playlists") +
                 ", " + plural(static_cast<size_t>(std::max(tracks, 0)), "track", "tracks"));
  out.addLine("registered as '" + fourCharString(player_->signature()) + "' " +
              inQuotes(player_->name()) + " with this process's event manager, not on your bus");
  out.addLine("it writes changes back to " + playerFile_);
  out.detail("name", text(player_->name()));
  out.detail("version", text(*version));
  out.detail("playlists", number(playlists));
  out.detail("tracks", number(tracks));
  out.detail("libraryFile", text(playerFile_));
  if (playlists < 0 || tracks < 0) out.fail("the player did not tell its playlists and tracks");
  return out;
}

// ---- 6. bind a playlist item -----------------------------------------------------------------

StepOutcome Demo::bindPlaylist() {
  if (!player_) return needs(5);
  if (!trackItem_) return needs(4);
  StepOutcome out;
  playlistItem_ = choosePlaylistItem();
  if (!playlistItem_) return StepOutcome::failed("there is no playlist item to bind");
  RVITunesPlaylist& item = *playlistItem_;
  // The library file writes persistent IDs as hexadecimal text, which the item does not parse;
  // the host hands it the number.
  if (item.libPersistentId() == 0 && item.playlistInfo()) {
    if (auto pid = stringField(*item.playlistInfo(), "Playlist Persistent ID")) {
      item.setLibPersistentId(longlongValue(*pid));
    }
  }
  const std::string name = item.playlistName().value_or("?");
  char pid[24];
  std::snprintf(pid, sizeof pid, "%016llX",
                static_cast<unsigned long long>(item.libPersistentId()));
  out.detail("playlistId", number(item.playlistId()));
  out.detail("persistentId", text(pid));

  const size_t mark = logMark();
  livePlaylist_ = item.czPlaylist();
  if (!livePlaylist_) {
    out.fail("the player has no playlist with persistent ID " + std::string(pid) + " (" + name +
             ")" + (lastDiagnostic(mark).empty() ? "" : ": " + lastDiagnostic(mark)));
    return out;
  }
  const std::string liveName = livePlaylist_->name().value_or("?");
  const int32_t count = livePlaylist_->trackCount();
  out.setSummary("item " + inQuotes(name) + " -> live playlist " + inQuotes(liveName) + ", " +
                 plural(static_cast<size_t>(std::max(count, 0)), "track", "tracks"));
  out.addLine("playlist item " + std::to_string(item.playlistId()) +
              " found its CZPlaylist by "
              "persistent ID " +
              pid);
  out.detail("liveName", text(liveName));
  out.detail("liveTracks", number(count));

  liveTrack_ = item.tarckWithPersistentId(track_->persistentId);
  if (!liveTrack_) {
    out.fail("the live playlist " + inQuotes(liveName) + " has no track with persistent ID " +
             track_->persistentIdText);
    return out;
  }
  out.addLine("its track " + track_->persistentIdText + " is " +
              inQuotes(liveTrack_->name().value_or("?")) + " (database ID " +
              std::to_string(liveTrack_->databaseId()) + ")");
  return out;
}

// ---- 7. play a track -------------------------------------------------------------------------

StepOutcome Demo::playTrack() {
  if (!liveTrack_) return needs(6);
  StepOutcome out;
  std::shared_ptr<Cadenza> controller = Cadenza::sharedInstance();
  controller->playTrack(*liveTrack_);
  const OSType state = controller->playerState();
  const std::string name = liveTrack_->name().value_or("?");
  out.detail("state", text(stateName(state)));
  out.detail("track", text(name));
  if (state != fourCharCode("kPSP")) {
    out.fail("after Cadenza::playTrack the player is " + stateName(state));
    return out;
  }
  out.setSummary("playing " + inQuotes(name) + " from " +
                 inQuotes(livePlaylist_ ? livePlaylist_->name().value_or("?") : "?"));
  out.addLine("Cadenza::playTrack sent the live track's own specifier to the player");
  return out;
}

// ---- 8. player status and artwork ------------------------------------------------------------

StepOutcome Demo::showStatus() {
  if (!player_) return needs(5);
  StepOutcome out;
  std::shared_ptr<Cadenza> controller = Cadenza::sharedInstance();
  const OSType state = controller->playerState();
  const int32_t position = controller->playerPosition();
  const int32_t volume = controller->soundVolume();
  std::shared_ptr<CZTrack> current = controller->currentTrack();
  std::shared_ptr<CZPlaylist> playlist = controller->currentPlaylist();
  const std::string trackName = current ? current->name().value_or("?") : "none";
  const std::string playlistName = playlist ? playlist->name().value_or("?") : "none";
  out.setSummary(stateName(state) + " " + inQuotes(trackName) + " at " + std::to_string(position) +
                 " s, volume " + std::to_string(volume));
  out.addLine("current playlist " + inQuotes(playlistName) +
              (current ? ", artist " + current->artist().value_or("?") : ""));
  out.detail("state", text(stateName(state)));
  out.detail("position", number(position));
  out.detail("volume", number(volume));
  out.detail("track", text(trackName));
  out.detail("playlist", text(playlistName));
  if (state == 0xFFFFFFFF || volume < 0) out.fail("the player did not tell its status");

  if (liveTrack_) {
    // What the player says about the file, against the file itself.
    const std::optional<std::string> kind = liveTrack_->kind();
    const std::string time = liveTrack_->time().value_or("?");
    const int32_t size = liveTrack_->size();
    std::string line = "the track: " + kind.value_or("?") + ", " + time + ", " +
                       std::to_string(liveTrack_->sampleRate()) + " Hz, " +
                       std::to_string(liveTrack_->bitrate()) + " kbps, " + std::to_string(size) +
                       " bytes";
    if (track_ && track_->fileExists) {
      std::error_code error;
      const auto onDisk = fs::file_size(*track_->path, error);
      line += error ? "" : "; the file on disk has " + std::to_string(onDisk) + " bytes";
      out.detail("fileBytes", number(error ? -1 : static_cast<int64_t>(onDisk)));
    }
    out.addLine(line);
    out.detail("kind", optionalText(kind));
    out.detail("size", number(size));
  }

  if (trackItem_) {
    // The display item's artwork road: the live track's artwork under the process-wide lock.
    std::shared_ptr<const image::Image> artwork = trackItem_->metaImage();
    plist::Ref<plist::Dictionary> art = plist::Dictionary::create();
    if (artwork) {
      out.addLine("artwork of track item " + std::to_string(trackItem_->trackId()) + ": " +
                  std::to_string(artwork->width()) + "x" + std::to_string(artwork->height()) +
                  " pixels, sent by the player as a PICT picture and decoded by the framework");
      art->set("width", number(artwork->width()));
      art->set("height", number(artwork->height()));
      art->set("format", text("PICT"));
    } else if (trackItem_->artworkCount() > 0) {
      out.addLine("artwork of track item " + std::to_string(trackItem_->trackId()) +
                  ": the player has none (no cover picture beside the track's file)");
      // The sample ships a cover beside each of its songs, so there it must come.
      if (!options_.file) out.fail("the sample track's artwork did not come through");
    } else {
      out.addLine("artwork: the track's record counts none");
    }
    out.detail("artwork", plist::Value(art));
  }
  return out;
}

// ---- 9. search the player --------------------------------------------------------------------

StepOutcome Demo::searchPlayer() {
  if (!player_) return needs(5);
  StepOutcome out;
  std::string term = "a";
  if (track_) {
    for (const char* key : {"Album", "Artist", "Name"}) {
      if (auto value = stringField(*track_->record, key); value && !value->empty()) {
        term = *value;
        break;
      }
    }
  }
  std::shared_ptr<Cadenza> controller = Cadenza::sharedInstance();
  std::shared_ptr<CZPlaylist> library = controller->libraryPlaylist();
  if (!library) return StepOutcome::failed("the player has no library playlist");
  const CZTrackList found =
      controller->searchForStringInField(*library, term, fourCharCode("kSrA"));
  if (!found) return StepOutcome::failed("the player's search answered nothing");
  const size_t fromFile =
      helper_->searchTrackKeysByString(term).value_or(std::vector<plist::Value>{}).size();

  std::string names;
  plist::Ref<plist::Array> listed = plist::Array::create();
  // One request per name: a large library's answer is named only in part.
  for (size_t i = 0; i < found->size() && i < kSearchNamed; ++i) {
    const std::string name = (*found)[i]->name().value_or("?");
    listed->push_back(text(name));
    if (i < kSearchShown) names += (i == 0 ? "" : ", ") + inQuotes(name);
  }
  if (found->size() > kSearchShown) names += ", ...";
  out.setSummary(plural(found->size(), "track", "tracks") + " for " + inQuotes(term));
  out.addLine("Cadenza::searchForStringInField in the library playlist, all fields: " +
              (names.empty() ? std::string("nothing") : names));
  out.addLine("the same words in the library file (RVITunesHelper): " +
              plural(fromFile, "track", "tracks"));
  out.detail("term", text(term));
  out.detail("found", number(static_cast<int64_t>(found->size())));
  out.detail("foundInFile", number(static_cast<int64_t>(fromFile)));
  out.detail("names", plist::Value(listed));
  if (found->empty()) out.fail("the player found nothing for " + inQuotes(term));
  return out;
}

// ---- 10. walk the playlist tree --------------------------------------------------------------

StepOutcome Demo::walkTree() {
  if (!player_) return needs(5);
  StepOutcome out;
  std::shared_ptr<Cadenza> controller = Cadenza::sharedInstance();
  const int32_t enumerated = controller->playlistEnumerator()->count();
  std::shared_ptr<CZPlaylist> root = controller->rootPlaylist();
  std::shared_ptr<CZPlaylistCache> cache = CZPlaylistCache::sharedInstance();
  if (!root || !cache) return StepOutcome::failed("the playlist cache has no root");

  std::vector<std::string> lines;
  std::set<int64_t> seen;
  size_t nodes = 0;
  std::function<void(const std::shared_ptr<CZPlaylist>&, int64_t, int)> walk =
      [&](const std::shared_ptr<CZPlaylist>& playlist, int64_t id, int depth) {
        if (!seen.insert(id).second) return;  // a loop in the links ends here
        ++nodes;
        lines.push_back(std::string(static_cast<size_t>(depth) * 2, ' ') +
                        playlist->name().value_or("?"));
        for (int64_t child : playlist->childPlaylistIds()) {
          if (auto next = cache->playlistForPersistentId(child)) walk(next, child, depth + 1);
        }
      };
  walk(root, CZPlaylistCache::kRootId, 0);

  plist::Ref<plist::Array> tree = plist::Array::create();
  for (size_t i = 0; i < lines.size(); ++i) {
    tree->push_back(text(lines[i]));
    if (i < kTreeLines) out.addLine(lines[i]);
  }
  if (lines.size() > kTreeLines) {
    out.addLine("... and " + std::to_string(lines.size() - kTreeLines) + " more");
  }
  out.setSummary(plural(static_cast<size_t>(std::max(enumerated, 0)), "playlist", "playlists") +
                 " enumerated, a tree of " + std::to_string(nodes) + " rows");
  out.detail("enumerated", number(enumerated));
  out.detail("rows", number(static_cast<int64_t>(nodes)));
  out.detail("tree", plist::Value(tree));
  if (enumerated <= 0 || nodes <= 1) out.fail("the player's playlists did not come through");
  return out;
}

// ---- 11. stop through AppleScript ------------------------------------------------------------

StepOutcome Demo::stopByScript() {
  if (!player_) return needs(5);
  StepOutcome out;
  const std::string source = "tell application \"iTunes\" to stop";
  AppleScript script(source);
  AppleScriptError error;
  if (!script.compile(&error)) {
    return StepOutcome::failed("the script does not compile: " + error.message);
  }
  const std::optional<ApplicationInfo> app = RVITunesHelper::applicationInfoByName("iTunes");
  std::shared_ptr<ae::Descriptor> result = script.executeAndReturnError(&error);
  out.detail("script", text(source));
  out.detail("events", number(static_cast<int64_t>(script.statementCount())));
  if (!result) {
    out.fail("the script failed: " + error.message + " (" + std::to_string(error.number) + ")");
    return out;
  }
  const OSType state = Cadenza::sharedInstance()->playerState();
  out.setSummary("the player is " + stateName(state));
  out.addLine(source + ": compiled into " +
              plural(script.statementCount(), "Apple Event", "Apple Events") + ", sent to " +
              inQuotes("iTunes") +
              (app ? " (process " + std::to_string(app->processIdentifier) +
                         (app->inProcess ? ", this one)" : ")")
                   : std::string()));
  out.detail("state", text(stateName(state)));
  if (state != fourCharCode("kPSS")) out.fail("after the script the player is " + stateName(state));
  return out;
}

// ---- 12. change the library file -------------------------------------------------------------

StepOutcome Demo::changeLibrary() {
  if (!player_) return needs(5);
  if (!liveTrack_) return needs(6);
  StepOutcome out;
  // Whatever the player still has to write (a finished track counts as played) goes first, so
  // that the update seen below is the change made here.
  player_->withModel([](player::PlayerModel& model) {
    if (player::LibraryWriteBack* writer = model.writeBack()) (void)writer->flush();
  });
  FileSystem& disk = FileSystem::defaultFileSystem();
  const std::optional<Date> before = disk.modificationDate(playerFile_);
  helper_->setXmlInfodate(before);
  if (helper_->isiTunesLibraryFileUpdate()) {
    return StepOutcome::failed("the change test reports an update before anything changed");
  }

  const int32_t oldRating = liveTrack_->rating();
  const int32_t newRating = oldRating >= 100 ? 80 : std::max(0, oldRating / 20 + 1) * 20;
  const std::string name = liveTrack_->name().value_or("?");
  liveTrack_->setRating(newRating);
  const auto changed = Clock::now();
  bool seen = false;
  while (Clock::now() - changed < kWriteBackWait && interruptedBy == 0) {
    if (helper_->isiTunesLibraryFileUpdate()) {
      seen = true;
      break;
    }
    std::this_thread::sleep_for(kPollInterval);
  }
  const double waited = std::chrono::duration<double, std::milli>(Clock::now() - changed).count();
  out.detail("track", text(name));
  out.detail("ratingBefore", number(oldRating));
  out.detail("ratingAfter", number(newRating));
  out.detail("updateSeen", plist::Value::boolean(seen));
  out.detail("waitedMs", plist::Value::real(static_cast<double>(static_cast<int64_t>(waited))));
  out.addLine("CZTrack::setRating " + std::to_string(oldRating) + " -> " +
              std::to_string(newRating) + " on " + inQuotes(name));
  if (!seen && interruptedBy != 0) {
    out.fail("interrupted while waiting for the player to write the file back");
    return out;
  }
  if (!seen) {
    out.fail("the player did not write " + playerFile_ + " back within " +
             DemoReport::formatDuration(
                 std::chrono::duration<double, std::milli>(kWriteBackWait).count()));
    return out;
  }
  const std::optional<Date> after = disk.modificationDate(playerFile_);
  out.addLine("the player wrote " + playerFile_ +
              " back; isiTunesLibraryFileUpdate() said so after " +
              DemoReport::formatDuration(waited) + " (file date " +
              (after ? dateText(*after) : std::string("?")) + ")");

  // Read as a host would on the update, and look for the change.
  RVITunesInfo reread(playerFile_);
  const plist::Value record = reread.trackForTracks(number(track_->id));
  const plist::Dictionary* dict = record.asDictionary();
  const int64_t written = (dict ? integerField(*dict, "Rating") : std::nullopt).value_or(-1);
  out.detail("ratingInFile", number(written));
  if (written != newRating) {
    out.fail("the file written back does not hold the new rating");
    return out;
  }
  out.setSummary("rating " + std::to_string(newRating) + " written back, update seen after " +
                 DemoReport::formatDuration(waited));
  out.addLine("read again: track " + std::to_string(track_->id) + " has Rating " +
              std::to_string(written));
  if (options_.file) {
    std::error_code error;
    const bool same = disk.modificationDate(libraryFile_) == userFileDate_ &&
                      fs::file_size(libraryFile_, error) == userFileSize_;
    out.addLine(same ? "your own file is unchanged: " + libraryFile_
                     : "your own file has changed meanwhile (not by the demo): " + libraryFile_);
  }
  return out;
}

}  // namespace

int runDemo(const std::vector<std::string>& args) {
  CommandLine line({"--file"}, {"--json", "--keep", "--help", "-h"});
  if (!line.parse(args)) return usageError(line.error());
  if (line.has("--help") || line.has("-h")) {
    std::fputs(kDemoUsage, stdout);
    return kExitOk;
  }
  if (!line.operands().empty()) {
    return usageError("unexpected \"" + line.operands().front() + "\"");
  }
  DemoOptions options;
  options.file = line.value("--file");
  if (options.file && options.file->empty()) return usageError("--file needs a path");
  options.json = line.has("--json");
  options.keep = line.has("--keep");

  int status = kExitOk;
  {
    SignalGuard signals;
    DemoReport report(options.json, stdout, stderr);
    Demo demo(std::move(options), report);
    status = demo.run();
  }
  if (const int signal = interruptedBy; signal != 0) {
    // Cleaned up; now end the way the signal asked, so that the caller sees it.
    std::signal(signal, SIG_DFL);
    std::raise(signal);
  }
  return status;
}

}  // namespace rvitunes::cli
