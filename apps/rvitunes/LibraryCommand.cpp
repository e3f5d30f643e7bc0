// rvitunes library path|playlists|tracks|stats|watch: the library file as the framework finds,
// indexes and watches it.

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "ProgressBar.h"
#include "rvitunes/base/FileSystem.h"
#include "rvitunes/helper/RVITunesHelper.h"
#include "rvitunes/helper/RVITunesIcons.h"
#include "rvitunes/helper/RVITunesInfo.h"
#include "rvitunes/platform/Dialogs.h"
#include "rvitunes/platform/UserDefaults.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/JsonWriter.h"

namespace rvitunes::cli {

namespace {

constexpr const char* kLibraryUsage =
    "usage: rvitunes library <path|playlists|tracks|stats|watch> [options]\n"
    "\n"
    "  path                      print the library file in use: the stored choice while its\n"
    "                            file exists, else the first existing entry of the iApps list\n"
    "                            of recent libraries, else ~/Music/iTunes/iTunes Music\n"
    "                            Library.xml; when that is missing too, ask (see --dialogs).\n"
    "                            The file found is remembered for next time.\n"
    "  playlists [--flags MASK] [--json]\n"
    "                            the playlists kept under the show flags MASK, in file order\n"
    "  tracks PLAYLIST_ID [--flags MASK] [--json]\n"
    "                            the tracks of the kept playlist with that Playlist ID\n"
    "  stats                     tracks, playlists, file size and load time\n"
    "  watch [--interval SECONDS]\n"
    "                            poll the file (default every 2 seconds); on a change load it\n"
    "                            again, merge it into what is loaded and print what was added.\n"
    "                            Ctrl-C ends it.\n"
    "\n"
    "options:\n"
    "  --file F                  use the library file F instead of looking for one\n"
    "  --dialogs terminal|desktop|none\n"
    "                            how to ask for the file when none is found; by default\n"
    "                            terminal prompts on a terminal, desktop dialogs when a display\n"
    "                            is present, otherwise nothing is asked\n"
    "  --json                    one JSON array instead of a table\n"
    "\n"
    "show flags (MASK, decimal or 0x-hex; default 0xFFFF):\n"
    "  0x1 library   0x2 music   0x4 audiobooks and books   0x8 movies   0x10 TV shows\n"
    "  0x20 iTunes DJ   0x40 podcasts   0x80 purchased   0x100 smart playlists and iTunes DJ\n"
    "  0xFFFF exactly: all of them plus Genius and every other playlist\n"
    "  Playlists marked \"Visible\" in the file are never listed.\n"
    "\n"
    "exit status: 0 success, 1 the library could not be read, 2 wrong usage or no library\n"
    "file.\n";

int usageError(const std::string& message) {
  std::fprintf(stderr, "rvitunes library: %s\n\n%s", message.c_str(), kLibraryUsage);
  return kExitUsage;
}

uint64_t fileSize(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
}

std::optional<uint32_t> parseMask(const std::string& text) {
  const char* begin = text.data();
  const char* end = begin + text.size();
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    begin += 2;
    base = 16;
  }
  uint32_t mask = 0;
  auto [ptr, ec] = std::from_chars(begin, end, mask, base);
  if (ec != std::errc() || ptr != end || begin == end) return std::nullopt;
  return mask;
}

// The library file to work on: --file, else the one the framework chooses (which may ask).
std::optional<std::string> libraryPath(const CommandLine& cl) {
  if (auto file = cl.value("--file")) return file;
  return RVITunesHelper::sharediTunesHelper()->playlistLibraryFilePath();
}

int noLibraryFile() {
  std::fprintf(stderr,
               "rvitunes library: no library file: none is stored or listed by iTunes, there "
               "is none at %s, and none was chosen (try --file F or --dialogs terminal)\n",
               RVITunesHelper::sharediTunesHelper()->defaultiTunesXmlPath().c_str());
  return kExitUsage;
}

// Loads `path` with a progress bar; prints the reason and answers null when it cannot.
std::shared_ptr<RVITunesInfo> load(const std::string& path) {
  ProgressBar bar("reading " + path, fileSize(path));
  plist::ReadOptions options;
  options.progress = [&bar](uint64_t done, uint64_t) { bar.update(done); };
  auto info = std::make_shared<RVITunesInfo>(path, options);
  if (!info->library()) {
    const auto& error = info->loadResult().error;
    std::fprintf(stderr, "rvitunes library: cannot load %s: error at offset %llu: %s\n",
                 path.c_str(), static_cast<unsigned long long>(error ? error->offset : 0),
                 error ? error->message.c_str() : "unknown reason");
    return nullptr;
  }
  return info;
}

size_t countOf(const plist::Dictionary& library, std::string_view key) {
  const plist::Value* v = library.find(key);
  if (v == nullptr) return 0;
  if (const plist::Array* a = v->asArray()) return a->size();
  if (const plist::Dictionary* d = v->asDictionary()) return d->size();
  return 0;
}

// --- JSON and table output -------------------------------------------------------------------

std::string json(const plist::Value& scalar) {
  if (scalar.isNil()) return "null";
  auto text = plist::JsonWriter::write(scalar, 0);
  return text.ok() ? *text : "null";
}

std::string jsonString(const std::optional<std::string>& s) {
  return s ? json(plist::Value::string(*s)) : "null";
}

// The name under which `image` stands in the icon dictionary, if it does.
std::optional<std::string> iconName(const plist::Dictionary* icons, const plist::Value& image) {
  if (icons == nullptr || image.isNil()) return std::nullopt;
  for (const auto& entry : *icons) {
    if (entry.key.isString() && entry.value == image) return std::string(entry.key.stringView());
  }
  return std::nullopt;
}

std::optional<std::string> stringField(const plist::Dictionary& record, std::string_view key) {
  const plist::Value* v = record.find(key);
  if (v == nullptr || !v->isString()) return std::nullopt;
  return std::string(v->stringView());
}

plist::Value numberField(const plist::Dictionary& record, std::string_view key) {
  const plist::Value* v = record.find(key);
  return v != nullptr && v->isNumber() ? *v : plist::Value();
}

void printPlaylistsJson(RVITunesInfo& info, const std::vector<plist::Value>& kept) {
  plist::Ref<plist::Dictionary> icons = RVITunesIcons();
  std::string out = "[";
  for (size_t i = 0; i < kept.size(); ++i) {
    const plist::Dictionary& record = *kept[i].asDictionary();
    out += i == 0 ? "\n  {" : ",\n  {";
    out += "\"position\": " + std::to_string(i);
    out += ", \"playlistId\": " + json(numberField(record, "Playlist ID"));
    out += ", \"name\": " + jsonString(stringField(record, "Name"));
    out += ", \"persistentId\": " + jsonString(stringField(record, "Playlist Persistent ID"));
    out += ", \"icon\": " + jsonString(iconName(icons.get(), record.get(kPlaylistIconKey)));
    out += ", \"darkIcon\": " + jsonString(iconName(icons.get(), record.get(kPlaylistIconDarkKey)));
    out += ", \"trackCount\": " + std::to_string(info.trackCountForPlaylist(kept[i]));
    out += "}";
  }
  out += kept.empty() ? "]\n" : "\n]\n";
  std::fwrite(out.data(), 1, out.size(), stdout);
}

void printPlaylistsTable(RVITunesInfo& info, const std::vector<plist::Value>& kept) {
  std::printf("%5s  %11s  %7s  %-16s  %s\n", "pos", "playlist id", "tracks", "persistent id",
              "name");
  for (size_t i = 0; i < kept.size(); ++i) {
    const plist::Dictionary& record = *kept[i].asDictionary();
    plist::Value id = numberField(record, "Playlist ID");
    std::printf("%5zu  %11s  %7llu  %-16s  %s\n", i, id.isNil() ? "-" : id.stringValue().c_str(),
                static_cast<unsigned long long>(info.trackCountForPlaylist(kept[i])),
                stringField(record, "Playlist Persistent ID").value_or("-").c_str(),
                stringField(record, "Name").value_or("-").c_str());
  }
  std::printf("%zu playlist%s\n", kept.size(), kept.size() == 1 ? "" : "s");
}

std::string duration(const plist::Value& milliseconds) {
  if (!milliseconds.isNumber()) return "-";
  long long seconds = milliseconds.longLongValue() / 1000;
  char text[32];
  std::snprintf(text, sizeof text, "%lld:%02lld", seconds / 60, seconds % 60);
  return text;
}

void printTracksTable(const std::vector<plist::Value>& tracks) {
  std::printf("%9s  %7s  %s\n", "track id", "time", "name / artist / album");
  for (const plist::Value& track : tracks) {
    const plist::Dictionary* record = track.asDictionary();
    if (record == nullptr) continue;
    plist::Value id = numberField(*record, "Track ID");
    std::printf("%9s  %7s  %s / %s / %s\n", id.isNil() ? "-" : id.stringValue().c_str(),
                duration(record->get("Total Time")).c_str(),
                stringField(*record, "Name").value_or("-").c_str(),
                stringField(*record, "Artist").value_or("-").c_str(),
                stringField(*record, "Album").value_or("-").c_str());
  }
  std::printf("%zu track%s\n", tracks.size(), tracks.size() == 1 ? "" : "s");
}

// --- subcommands -------------------------------------------------------------------------------

int showPath() {
  std::optional<std::string> found =
      RVITunesHelper::sharediTunesHelper()->playlistLibraryFilePath();
  if (!found) return noLibraryFile();
  std::printf("%s\n", found->c_str());
  return kExitOk;
}

int listPlaylists(const CommandLine& cl, uint32_t mask) {
  if (cl.operands().size() != 1) return usageError("playlists takes no operands");
  std::optional<std::string> file = libraryPath(cl);
  if (!file) return noLibraryFile();
  std::shared_ptr<RVITunesInfo> info = load(*file);
  if (!info) return kExitFailure;
  std::vector<plist::Value> kept =
      info->playlistsWithFlags(mask).value_or(std::vector<plist::Value>{});
  if (cl.has("--json")) {
    printPlaylistsJson(*info, kept);
  } else {
    printPlaylistsTable(*info, kept);
  }
  return kExitOk;
}

int listTracks(const CommandLine& cl, uint32_t mask) {
  if (cl.operands().size() != 2) return usageError("tracks takes exactly one PLAYLIST_ID");
  const std::string& idText = cl.operands()[1];
  long long wanted = 0;
  auto [ptr, ec] = std::from_chars(idText.data(), idText.data() + idText.size(), wanted);
  if (ec != std::errc() || ptr != idText.data() + idText.size()) {
    return usageError("PLAYLIST_ID must be a whole number, not '" + idText + "'");
  }
  std::optional<std::string> file = libraryPath(cl);
  if (!file) return noLibraryFile();
  std::shared_ptr<RVITunesInfo> info = load(*file);
  if (!info) return kExitFailure;

  std::optional<plist::Value> playlist;
  for (const plist::Value& record :
       info->playlistsWithFlags(mask).value_or(std::vector<plist::Value>{})) {
    plist::Value id = numberField(*record.asDictionary(), "Playlist ID");
    if (id.isInteger() && !id.isUnsigned() && id.longLongValue() == wanted) {
      playlist = record;
      break;
    }
  }
  if (!playlist) {
    std::fprintf(stderr,
                 "rvitunes library: no playlist with Playlist ID %lld is kept under the "
                 "show flags 0x%X in %s\n",
                 wanted, mask, file->c_str());
    return kExitFailure;
  }
  std::vector<plist::Value> found =
      info->tracksForPlaylist(*playlist).value_or(std::vector<plist::Value>{});
  if (!cl.has("--json")) {
    printTracksTable(found);
    return kExitOk;
  }
  auto text = plist::JsonWriter::write(plist::Value(plist::Array::create(found)), 2);
  if (!text.ok()) {
    std::fprintf(stderr, "rvitunes library: cannot write the tracks as JSON: %s\n",
                 text.status().message().c_str());
    return kExitFailure;
  }
  std::fwrite(text->data(), 1, text->size(), stdout);
  if (text->empty() || text->back() != '\n') std::fputc('\n', stdout);
  return kExitOk;
}

int showStats(const CommandLine& cl) {
  if (cl.operands().size() != 1) return usageError("stats takes no operands");
  std::optional<std::string> file = libraryPath(cl);
  if (!file) return noLibraryFile();
  std::shared_ptr<RVITunesInfo> info = load(*file);
  if (!info) return kExitFailure;
  const RVITunesInfo::LoadResult& result = info->loadResult();
  uint64_t size = fileSize(*file);
  std::printf("file:       %s\n", file->c_str());
  std::printf("format:     %s\n", result.format == plist::Format::kBinary ? "binary" : "XML");
  std::printf("file size:  %llu bytes (%.1f MiB)\n", static_cast<unsigned long long>(size),
              static_cast<double>(size) / (1024.0 * 1024.0));
  std::printf("load time:  %.3f s\n", result.seconds);
  std::printf("tracks:     %zu\n", countOf(*info->library(), "Tracks"));
  std::printf("playlists:  %zu\n", countOf(*info->library(), "Playlists"));
  std::printf("repaired:   %zu defect%s\n", result.warnings.size(),
              result.warnings.size() == 1 ? "" : "s");
  return kExitOk;
}

// --- watch -------------------------------------------------------------------------------------

volatile std::sig_atomic_t stopRequested = 0;

extern "C" void requestStop(int) {
  stopRequested = 1;
}

// Installs the stop handler for SIGINT and SIGTERM for the life of the object.
class StopSignals {
 public:
  StopSignals() {
    stopRequested = 0;
    struct sigaction action = {};
    action.sa_handler = requestStop;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no SA_RESTART: a pending sleep ends at once
    sigaction(SIGINT, &action, &previousInt_);
    sigaction(SIGTERM, &action, &previousTerm_);
  }
  ~StopSignals() {
    sigaction(SIGINT, &previousInt_, nullptr);
    sigaction(SIGTERM, &previousTerm_, nullptr);
  }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

 private:
  struct sigaction previousInt_ = {};
  struct sigaction previousTerm_ = {};
};

// Sleeps `seconds` in short steps, returning early once a stop was requested.
void sleepUnlessStopped(double seconds) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point until = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                     std::chrono::duration<double>(seconds));
  while (!stopRequested) {
    Clock::duration left = until - Clock::now();
    if (left <= Clock::duration::zero()) return;
    Clock::duration step = std::min<Clock::duration>(left, std::chrono::milliseconds(100));
    auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(step).count();
    timespec ts{static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
    nanosleep(&ts, nullptr);
  }
}

std::string timeOfDay() {
  std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[16];
  std::strftime(text, sizeof text, "%H:%M:%S", &local);
  return text;
}

int watchLibrary(const CommandLine& cl) {
  if (cl.operands().size() != 1) return usageError("watch takes no operands");
  double interval = 2.0;
  if (auto text = cl.value("--interval")) {
    char* end = nullptr;
    interval = std::strtod(text->c_str(), &end);
    if (text->empty() || *end != '\0' || !(interval > 0.0) || interval > 86400.0) {
      return usageError("--interval needs a number of seconds above 0 and at most 86400");
    }
  }
  std::optional<std::string> fixed = cl.value("--file");
  std::shared_ptr<RVITunesHelper> helper = RVITunesHelper::sharediTunesHelper();
  std::optional<std::string> file = fixed ? fixed : helper->playlistLibraryFilePath();
  if (!file) return noLibraryFile();

  FileSystem& fs = FileSystem::defaultFileSystem();
  // The date is taken before reading, so that a change made during the read is seen next time.
  std::optional<Date> date = fs.modificationDate(*file);
  std::shared_ptr<RVITunesInfo> info = load(*file);
  if (!info) return kExitFailure;
  helper->setItunesInfo(info);
  if (date) helper->setXmlInfodate(date);
  std::printf("%s watching %s: %zu tracks, %zu playlists\n", timeOfDay().c_str(), file->c_str(),
              countOf(*info->library(), "Tracks"), countOf(*info->library(), "Playlists"));
  std::fflush(stdout);

  StopSignals signals;
  while (!stopRequested) {
    sleepUnlessStopped(interval);
    if (stopRequested) break;
    bool changed =
        fixed ? helper->isLibraryFileUpdatedAtPath(*fixed) : helper->isiTunesLibraryFileUpdate();
    if (!changed || stopRequested) continue;
    std::optional<std::string> current = fixed ? fixed : helper->playlistLibraryFilePath();
    if (!current) continue;
    std::optional<Date> newDate = fs.modificationDate(*current);
    std::shared_ptr<RVITunesInfo> newer = load(*current);
    if (newDate) helper->setXmlInfodate(newDate);
    if (!newer) continue;  // told on stderr; tried again when the file next changes
    const plist::Dictionary& library = *info->library();
    size_t tracksBefore = countOf(library, "Tracks");
    size_t playlistsBefore = countOf(library, "Playlists");
    info->updateListLibrary(newer);
    size_t tracksAfter = countOf(library, "Tracks");
    size_t playlistsAfter = countOf(library, "Playlists");
    std::printf("%s %s changed: added %zu tracks, %zu playlists (now %zu tracks, %zu playlists)\n",
                timeOfDay().c_str(), current->c_str(), tracksAfter - tracksBefore,
                playlistsAfter - playlistsBefore, tracksAfter, playlistsAfter);
    std::fflush(stdout);
  }
  std::printf("%s stopped\n", timeOfDay().c_str());
  std::fflush(stdout);
  return kExitOk;
}

}  // namespace

int runLibrary(const std::vector<std::string>& args) {
  CommandLine cl({"--file", "--flags", "--dialogs", "--interval"}, {"--json", "--help", "-h"});
  if (!cl.parse(args)) return usageError(cl.error());
  if (cl.has("--help") || cl.has("-h")) {
    std::fputs(kLibraryUsage, stdout);
    return kExitOk;
  }
  if (cl.operands().empty()) return usageError("missing subcommand");
  const std::string& sub = cl.operands()[0];

  if (auto name = cl.value("--dialogs")) {
    std::shared_ptr<platform::Dialogs> dialogs = platform::Dialogs::named(*name);
    if (!dialogs) return usageError("unknown --dialogs '" + *name + "' (terminal, desktop, none)");
    platform::Dialogs::install(std::move(dialogs));
  }
  platform::UserDefaults::setStandardDomain("rvitunes");

  uint32_t mask = kShowAllPlaylists;
  if (auto text = cl.value("--flags")) {
    std::optional<uint32_t> parsed = parseMask(*text);
    if (!parsed)
      return usageError("--flags needs a 32-bit mask, decimal or 0x-hex, not '" + *text + "'");
    mask = *parsed;
  }

  if (sub == "path") {
    if (cl.operands().size() != 1) return usageError("path takes no operands");
    return showPath();
  }
  if (sub == "playlists") return listPlaylists(cl, mask);
  if (sub == "tracks") return listTracks(cl, mask);
  if (sub == "stats") return showStats(cl);
  if (sub == "watch") return watchLibrary(cl);
  return usageError("unknown subcommand '" + sub + "'");
}

}  // namespace rvitunes::cli
