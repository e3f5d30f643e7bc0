// rvitunes library path|playlists|tracks|items|stats|watch: the library file as the framework
// finds, indexes and watches it; track-items|search|play|artwork: the track display items made
// from it, and through them the live track in the player.

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <climits>
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
#include "JsonOut.h"
#include "ProgressBar.h"
#include "rvitunes/base/FileSystem.h"
#include "rvitunes/cadenza/CZPlaylistCache.h"
#include "rvitunes/cadenza/Cadenza.h"
#include "rvitunes/helper/IconImage.h"
#include "rvitunes/helper/RVITunesHelper.h"
#include "rvitunes/helper/RVITunesIcons.h"
#include "rvitunes/helper/RVITunesInfo.h"
#include "rvitunes/helper/RVITunesPlaylist.h"
#include "rvitunes/helper/RVITunesTrackItem.h"
#include "rvitunes/image/Image.h"
#include "rvitunes/platform/Dialogs.h"
#include "rvitunes/platform/UserDefaults.h"
#include "rvitunes/player/PlayerServer.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/JsonWriter.h"

namespace rvitunes::cli {

namespace {

constexpr const char* kLibraryUsage =
    "usage: rvitunes library <path|playlists|tracks|items|stats|watch|track-items|search|play|\n"
    "                         artwork> [options]\n"
    "\n"
    "  path                      print the library file in use: the stored choice while its\n"
    "                            file exists, else the first existing entry of the iApps list\n"
    "                            of recent libraries, else ~/Music/iTunes/iTunes Music\n"
    "                            Library.xml; when that is missing too, ask (see --dialogs).\n"
    "                            The file found is remembered for next time; --json also\n"
    "                            says where it came from (\"source\": user default, iApps\n"
    "                            list, default location or chosen by the user).\n"
    "  playlists [--flags MASK]  the playlists kept under the show flags MASK, in file order\n"
    "  tracks PLAYLIST_ID [--flags MASK]\n"
    "                            the tracks of the kept playlist with that Playlist ID\n"
    "  items [--flags MASK]      the playlist display items a host lists: position, IDs,\n"
    "                            name, true keys, track IDs and icon names\n"
    "  stats                     tracks, playlists, file size and load time\n"
    "  watch [--interval SECONDS]\n"
    "                            poll the file (default every 2 seconds); on a change load it\n"
    "                            again, merge it into what is loaded and print what was added.\n"
    "                            Ctrl-C ends it; the status is 1 when the last change could not\n"
    "                            be read. --json prints one object per line (\"event\": start,\n"
    "                            change, error or stop).\n"
    "  track-items PLAYLIST_ID   the display items of that playlist's tracks: IDs, names, the\n"
    "                            file's URL, path, name and type, the type image, time, video\n"
    "                            and artwork count\n"
    "  search TEXT               tracks whose name, artist or album contains TEXT, ignoring\n"
    "                            case and diacritics\n"
    "  play TRACK_ID             play the track with that ID in the running player (with\n"
    "                            --file F, in one started here on F)\n"
    "  artwork TRACK_ID [--save FILE]\n"
    "                            the track's first artwork from the player (as for play);\n"
    "                            --save writes it to FILE as PNG\n"
    "\n"
    "options:\n"
    "  --file F                  the library file F, instead of the one the framework finds;\n"
    "                            for play and artwork, a player is started inside the tool on F\n"
    "                            for the command (--embedded F is the older spelling)\n"
    "  --dialogs terminal|desktop|none\n"
    "                            how to ask for the file when none is found; by default\n"
    "                            terminal prompts on a terminal, desktop dialogs when a display\n"
    "                            is present, otherwise nothing is asked\n"
    "  --json                    one JSON document instead of text, for every subcommand\n"
    "                            (watch: one object per line)\n"
    "  -h, --help                show this help\n"
    "\n"
    "show flags (MASK, decimal or 0x-hex; default 0xFFFF):\n"
    "  0x1 library   0x2 music   0x4 audiobooks and books   0x8 movies   0x10 TV shows\n"
    "  0x20 iTunes DJ   0x40 podcasts   0x80 purchased   0x100 smart playlists and iTunes DJ\n"
    "  0xFFFF exactly: all of them plus Genius and every other playlist\n"
    "  Playlists marked \"Visible\" in the file are never listed.\n"
    "\n"
    "JSON: persistent IDs are strings of 16 hexadecimal digits (null when there is none),\n"
    "numbers are exact integers; tracks prints the track records of the file as they are.\n"
    "\n"
    "exit status: 0 success, 1 the library could not be read or the player refused, 2 wrong\n"
    "usage or no library file.\n";

int usageError(const std::string& message) {
  return reportUsageError("library", message);
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

// `path` itself takes no --file, so it is not offered there.
int noLibraryFile(bool offerFile = true) {
  std::fprintf(stderr,
               "rvitunes library: no library file: none is stored or listed by iTunes, there "
               "is none at %s, and none was chosen (try %s--dialogs terminal)\n",
               RVITunesHelper::sharediTunesHelper()->defaultiTunesXmlPath().c_str(),
               offerFile ? "--file F or " : "");
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

// A number or text of the file as JSON; null for none.
std::string json(const plist::Value& scalar) {
  if (scalar.isNil()) return "null";
  auto text = plist::JsonWriter::write(scalar, 0);
  return text.ok() ? *text : "null";
}

// A persistent ID as the file writes it (text), in the tool's one JSON form.
std::optional<std::string> hexIdText(const std::optional<std::string>& text) {
  return text ? std::optional<std::string>(normalisedHexId(*text)) : std::nullopt;
}

// A persistent ID the framework read as a number; 0 is none.
JsonOut& hexIdOrNull(JsonOut& out, int64_t id) {
  return id == 0 ? out.null() : out.hexId(static_cast<uint64_t>(id));
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
  JsonOut out;
  out.beginArray();
  for (size_t i = 0; i < kept.size(); ++i) {
    const plist::Dictionary& record = *kept[i].asDictionary();
    out.beginObject().integerField("position", static_cast<int64_t>(i));
    out.key("playlistId").raw(json(numberField(record, "Playlist ID")));
    out.field("name", stringField(record, "Name"));
    out.field("persistentId", hexIdText(stringField(record, "Playlist Persistent ID")));
    out.field("icon", iconName(icons.get(), record.get(kPlaylistIconKey)));
    out.field("darkIcon", iconName(icons.get(), record.get(kPlaylistIconDarkKey)));
    out.integerField("trackCount", static_cast<int64_t>(info.trackCountForPlaylist(kept[i])));
    out.endObject();
  }
  out.endArray().print();
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

// Where the framework's lookup found `path`, told by the same order it follows: the stored
// choice while its file exists, the iApps list, the default location, else the user's answer.
// `stored` and `fromList` are read before the lookup, which stores what it finds.
std::string pathSource(const std::string& path, const std::optional<std::string>& stored,
                       const std::optional<std::string>& fromList) {
  FileSystem& files = FileSystem::defaultFileSystem();
  if (stored && files.fileExists(*stored)) return "user default";
  if (fromList && *fromList == path) return "iApps list";
  if (!fromList && path == RVITunesHelper::sharediTunesHelper()->defaultiTunesXmlPath())
    return "default location";
  return "chosen by the user";
}

int showPath(bool asJson) {
  std::shared_ptr<RVITunesHelper> helper = RVITunesHelper::sharediTunesHelper();
  const std::optional<std::string> stored =
      platform::UserDefaults::standardUserDefaults()->stringForKey(kiTunesLibraryXMLPathKey);
  const std::optional<std::string> fromList = helper->enumeratorPropertyList();
  std::optional<std::string> found = helper->playlistLibraryFilePath();
  if (!found) return noLibraryFile(false);
  if (asJson) {
    JsonOut()
        .beginObject()
        .field("path", *found)
        .field("source", pathSource(*found, stored, fromList))
        .endObject()
        .print();
  } else {
    std::printf("%s\n", found->c_str());
  }
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
  if (cl.has("--json")) {
    JsonOut out;
    out.beginObject().field("file", *file);
    out.field("format", result.format == plist::Format::kBinary ? "binary" : "xml");
    out.key("fileSize").unsignedInteger(size).key("loadSeconds").real(result.seconds);
    out.integerField("tracks", static_cast<int64_t>(countOf(*info->library(), "Tracks")));
    out.integerField("playlists", static_cast<int64_t>(countOf(*info->library(), "Playlists")));
    out.integerField("repaired", static_cast<int64_t>(result.warnings.size()));
    out.endObject().print();
    return kExitOk;
  }
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

// --- items -----------------------------------------------------------------------------------

// The keys of an item's tarcks, in their order.
std::vector<plist::Value> trackIdsOf(const RVITunesPlaylist& item) {
  std::vector<plist::Value> ids;
  if (item.tarcks()) {
    for (const auto& entry : *item.tarcks())
      ids.push_back(entry.key);
  }
  return ids;
}

std::optional<std::string> itemIconName(const plist::Dictionary* icons,
                                        const plist::Ref<IconImage>& image) {
  return image ? iconName(icons, plist::Value(plist::Ref<plist::Object>(image))) : std::nullopt;
}

void printItemsJson(const RVITunesHelper::PlaylistItems& items) {
  plist::Ref<plist::Dictionary> icons = RVITunesIcons();
  JsonOut out;
  out.beginArray();
  for (const auto& entry : items) {
    const RVITunesPlaylist& item = *entry;
    out.beginObject().integerField("sortID", item.sortID());
    out.integerField("playlistId", item.playlistId());
    out.field("playlistName", item.playlistName());
    hexIdOrNull(out.key("libPersistentId"), item.libPersistentId());
    out.key("strTrueKeys").beginArray();
    for (const std::string& trueKey : item.strTrueKeys())
      out.string(trueKey);
    out.endArray().key("trackIds").beginArray();
    for (const plist::Value& id : trackIdsOf(item))
      out.raw(json(id));
    out.endArray();
    out.field("icon", itemIconName(icons.get(), item.listImage()));
    out.field("darkIcon", itemIconName(icons.get(), item.listDarkImage()));
    out.endObject();
  }
  out.endArray().print();
}

void printItemsTable(const RVITunesHelper::PlaylistItems& items) {
  plist::Ref<plist::Dictionary> icons = RVITunesIcons();
  std::printf("%5s  %11s  %7s  %-22s  %s\n", "sort", "playlist id", "tracks", "icon", "name");
  for (const auto& item : items) {
    std::printf("%5d  %11d  %7zu  %-22s  %s\n", item->sortID(), item->playlistId(),
                item->tarcks() ? item->tarcks()->size() : size_t{0},
                itemIconName(icons.get(), item->listImage()).value_or("-").c_str(),
                item->playlistName().value_or("-").c_str());
  }
  std::printf("%zu item%s\n", items.size(), items.size() == 1 ? "" : "s");
}

int listItems(const CommandLine& cl, uint32_t mask) {
  if (cl.operands().size() != 1) return usageError("items takes no operands");
  std::optional<std::string> file = libraryPath(cl);
  if (!file) return noLibraryFile();
  // The icons first, as a host does, so that the items find their pictures.
  RVITunesInfo::playlistsDisplayIcons();
  std::shared_ptr<RVITunesInfo> info = load(*file);
  if (!info) return kExitFailure;
  RVITunesHelper helper;
  helper.setItunesInfo(info);
  helper.setShowFlags(mask);
  helper.updateiTunesPlaylistsItem(&helper);
  if (cl.has("--json")) {
    printItemsJson(helper.playlistsItems());
  } else {
    printItemsTable(helper.playlistsItems());
  }
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

// The time of a watch event in JSON: UTC, ISO-8601 (the text lines show the local time of day).
std::string isoNow() {
  std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

// The watch's events: text lines, or one JSON object per line.
class WatchReport {
 public:
  explicit WatchReport(bool asJson) : asJson_(asJson) {}

  void started(const std::string& file, size_t tracks, size_t playlists) {
    if (!asJson_) {
      std::printf("%s watching %s: %zu tracks, %zu playlists\n", timeOfDay().c_str(), file.c_str(),
                  tracks, playlists);
      std::fflush(stdout);
      return;
    }
    JsonOut out;
    out.beginObject().field("event", "start").field("time", isoNow()).field("file", file);
    counts(out, tracks, playlists).endObject().print();
  }
  void changed(const std::string& file, size_t addedTracks, size_t addedPlaylists, size_t tracks,
               size_t playlists) {
    if (!asJson_) {
      std::printf(
          "%s %s changed: added %zu tracks, %zu playlists (now %zu tracks, %zu playlists)\n",
          timeOfDay().c_str(), file.c_str(), addedTracks, addedPlaylists, tracks, playlists);
      std::fflush(stdout);
      return;
    }
    JsonOut out;
    out.beginObject().field("event", "change").field("time", isoNow()).field("file", file);
    out.integerField("addedTracks", static_cast<int64_t>(addedTracks));
    out.integerField("addedPlaylists", static_cast<int64_t>(addedPlaylists));
    counts(out, tracks, playlists).endObject().print();
  }
  // The reason is on stderr already; the stream says that this change was not taken.
  void unreadable(const std::string& file) {
    if (!asJson_) return;
    JsonOut out;
    out.beginObject().field("event", "error").field("time", isoNow()).field("file", file);
    out.endObject().print();
  }
  void stopped() {
    if (!asJson_) {
      std::printf("%s stopped\n", timeOfDay().c_str());
      std::fflush(stdout);
      return;
    }
    JsonOut().beginObject().field("event", "stop").field("time", isoNow()).endObject().print();
  }

 private:
  static JsonOut& counts(JsonOut& out, size_t tracks, size_t playlists) {
    return out.integerField("tracks", static_cast<int64_t>(tracks))
        .integerField("playlists", static_cast<int64_t>(playlists));
  }
  bool asJson_;
};

int watchLibrary(const CommandLine& cl) {
  if (cl.operands().size() != 1) return usageError("watch takes no operands");
  double interval = 2.0;
  if (auto text = cl.value("--interval")) {
    char* end = nullptr;
    interval = std::strtod(text->c_str(), &end);
    if (text->empty() || *end != '\0' || !(interval > 0.0) || interval > 86400.0) {
      return usageError("--interval needs a number of seconds above 0 and at most 86400, not \"" +
                        *text + "\"");
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
  WatchReport report(cl.has("--json"));
  report.started(*file, countOf(*info->library(), "Tracks"),
                 countOf(*info->library(), "Playlists"));

  StopSignals signals;
  bool lastChangeUnreadable = false;
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
    lastChangeUnreadable = !newer;
    if (!newer) {
      // Told on stderr; tried again when the file next changes.
      report.unreadable(*current);
      continue;
    }
    const plist::Dictionary& library = *info->library();
    size_t tracksBefore = countOf(library, "Tracks");
    size_t playlistsBefore = countOf(library, "Playlists");
    info->updateListLibrary(newer);
    size_t tracksAfter = countOf(library, "Tracks");
    size_t playlistsAfter = countOf(library, "Playlists");
    report.changed(*current, tracksAfter - tracksBefore, playlistsAfter - playlistsBefore,
                   tracksAfter, playlistsAfter);
  }
  report.stopped();
  return lastChangeUnreadable ? kExitFailure : kExitOk;
}

// --- Display items: track-items, search, play, artwork ------------------------------------------

// The names of the file-type images, as the track items look them up.
constexpr const char* kFileTypeImageNames[] = {
    "iTunes_aac",      "iTunes_aacp",   "iTunes_aiff",   "iTunes_audible", "iTunes_cd",
    "iTunes_database", "iTunes_ipa",    "iTunes_ipg",    "iTunes_ipsw",    "iTunes_ite",
    "iTunes_itlp",     "iTunes_itms",   "iTunes_movie",  "iTunes_mp2",     "iTunes_mp3",
    "iTunes_mpeg4",    "iTunes_mpeg4p", "iTunes_mpg",    "iTunes_nvf",     "iTunes_playlist",
    "iTunes_ringtone", "iTunes_sd2",    "iTunes_visual", "iTunes_wav",     "iTunes_generic"};

// A 16×16 badge: a rounded square in a colour of its own for each name, with a light band.
image::Image fileTypeBadge(std::string_view name) {
  uint32_t hash = 2166136261u;
  for (char c : name)
    hash = (hash ^ static_cast<uint8_t>(c)) * 16777619u;
  const image::Rgba fill{static_cast<uint8_t>(64 + hash % 160),
                         static_cast<uint8_t>(64 + (hash >> 8) % 160),
                         static_cast<uint8_t>(64 + (hash >> 16) % 160), 255};
  image::Image badge(16, 16);
  for (uint32_t y = 0; y < 16; ++y) {
    for (uint32_t x = 0; x < 16; ++x) {
      const bool corner = (x == 0 || x == 15) && (y == 0 || y == 15);
      const bool band = y >= 6 && y <= 9 && x >= 2 && x <= 13;
      badge.setPixel(x, y,
                     corner ? image::Rgba{0, 0, 0, 0}
                     : band ? image::Rgba{250, 250, 250, 255}
                            : fill);
    }
  }
  return badge;
}

// As a host does: the playlist icons, then a badge under each file-type image name.
void fillIconsAsHost() {
  plist::Ref<plist::Dictionary> icons = RVITunesInfo::playlistsDisplayIcons();
  if (!icons) {
    icons = plist::Dictionary::create();
    setRVITunesIcons(icons);
  }
  for (const char* name : kFileTypeImageNames) {
    if (!icons->contains(name)) {
      icons->set(name, IconImage::makeValue(
                           std::make_shared<const image::Image>(fileTypeBadge(name)), name));
    }
  }
}

// The key under which RVITunesIcons holds `icon`; nullopt for null or an image not held there.
std::optional<std::string> iconKeyOf(const plist::Ref<IconImage>& icon) {
  plist::Ref<plist::Dictionary> icons = RVITunesIcons();
  if (!icon || !icons) return std::nullopt;
  for (const auto& entry : *icons) {
    if (asIconImage(entry.value) == icon.get() && entry.key.isString()) {
      return entry.key.stringValue();
    }
  }
  return std::nullopt;
}

std::optional<long long> wholeNumber(const std::string& text) {
  long long value = 0;
  auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || ptr != text.data() + text.size()) return std::nullopt;
  return value;
}

int listTrackItems(const CommandLine& cl) {
  if (cl.operands().size() != 2) return usageError("track-items takes exactly one PLAYLIST_ID");
  const auto wanted = wholeNumber(cl.operands()[1]);
  if (!wanted) {
    return usageError("PLAYLIST_ID must be a whole number, not '" + cl.operands()[1] + "'");
  }
  std::optional<std::string> file = libraryPath(cl);
  if (!file) return noLibraryFile();
  std::shared_ptr<RVITunesInfo> info = load(*file);
  if (!info) return kExitFailure;
  fillIconsAsHost();

  std::optional<plist::Value> playlist;
  for (const plist::Value& record :
       info->playlistsWithFlags(kShowAllPlaylists).value_or(std::vector<plist::Value>{})) {
    const plist::Dictionary* dict = record.asDictionary();
    if (dict == nullptr) continue;
    plist::Value id = numberField(*dict, "Playlist ID");
    if (id.isInteger() && !id.isUnsigned() && id.longLongValue() == *wanted) {
      playlist = record;
      break;
    }
  }
  if (!playlist) {
    std::fprintf(stderr, "rvitunes library: no playlist with Playlist ID %lld in %s\n", *wanted,
                 file->c_str());
    return kExitFailure;
  }
  std::vector<std::shared_ptr<RVITunesTrackItem>> items;
  for (const plist::Value& record :
       info->tracksForPlaylist(*playlist).value_or(std::vector<plist::Value>{})) {
    if (auto item = RVITunesTrackItem::initWithTrackDictInfo(record.dictionaryRef())) {
      items.push_back(std::move(item));
    }
  }
  const bool asJson = cl.has("--json");
  JsonOut out;
  out.beginArray();
  if (!asJson) {
    std::printf("%9s  %-6s  %-16s  %7s  %s\n", "track id", "type", "type image", "artwork",
                "name / artist / album / path");
  }
  for (size_t i = 0; i < items.size(); ++i) {
    const RVITunesTrackItem& item = *items[i];
    const std::optional<std::string> imageName = iconKeyOf(item.typeImage());
    if (!asJson) {
      std::printf("%9d  %-6s  %-16s  %7d  %s / %s / %s / %s\n", item.trackId(),
                  item.fileType().value_or("-").c_str(), imageName.value_or("-").c_str(),
                  item.artworkCount(), item.trackName().value_or("-").c_str(),
                  item.artistName().value_or("-").c_str(), item.albumName().value_or("-").c_str(),
                  item.filePath().value_or("-").c_str());
      continue;
    }
    out.beginObject().integerField("trackId", item.trackId());
    hexIdOrNull(out.key("persistentId"), item.persistentId());
    out.field("trackName", item.trackName()).field("artistName", item.artistName());
    out.field("albumName", item.albumName()).field("fileUrl", item.fileUrl());
    out.field("filePath", item.filePath()).field("fileName", item.fileName());
    out.field("fileType", item.fileType()).field("typeImage", imageName);
    out.integerField("totalTime", item.totalTime()).booleanField("hasVideo", item.hasVideo() != 0);
    out.integerField("artworkCount", item.artworkCount()).endObject();
  }
  if (asJson) {
    out.endArray().print();
  } else {
    std::printf("%zu track item%s\n", items.size(), items.size() == 1 ? "" : "s");
  }
  return kExitOk;
}

int searchTracks(const CommandLine& cl) {
  if (cl.operands().size() != 2) return usageError("search takes exactly one TEXT");
  std::optional<std::string> file = libraryPath(cl);
  if (!file) return noLibraryFile();
  std::shared_ptr<RVITunesInfo> info = load(*file);
  if (!info) return kExitFailure;
  RVITunesHelper helper;
  helper.setItunesInfo(info);
  const std::vector<plist::Value> keys =
      helper.searchTrackKeysByString(cl.operands()[1]).value_or(std::vector<plist::Value>{});
  plist::Ref<plist::Dictionary> tracks = helper.itunesTracksInfo();
  const bool asJson = cl.has("--json");
  JsonOut out;
  out.beginArray();
  for (size_t i = 0; i < keys.size(); ++i) {
    const plist::Value record = tracks ? tracks->get(keys[i]) : plist::Value();
    const plist::Dictionary* dict = record.asDictionary();
    const std::string id = keys[i].isString() ? keys[i].stringValue() : json(keys[i]);
    const std::optional<std::string> name =
        dict != nullptr ? stringField(*dict, "Name") : std::nullopt;
    if (asJson) {
      // The keys of the Tracks dictionary are the track IDs as text: numbers in JSON, unless
      // a file has something else there.
      out.beginObject().key("trackId");
      if (const auto number = wholeNumber(id)) {
        out.integer(*number);
      } else {
        out.string(id);
      }
      out.field("name", name).endObject();
    } else {
      std::printf("%9s  %s\n", id.c_str(), name.value_or("-").c_str());
    }
  }
  if (asJson) {
    out.endArray().print();
  } else {
    std::printf("%zu track%s\n", keys.size(), keys.size() == 1 ? "" : "s");
  }
  return kExitOk;
}

// The player: the one of --embedded started in this process for the command's lifetime, or the
// running one. The framework's shared objects are forgotten before the player stops.
class PlayerForCommand {
 public:
  PlayerForCommand() = default;
  ~PlayerForCommand() {
    CZPlaylistCache::releaseSharedInstance();
    Cadenza::unSharedInstance();
  }
  PlayerForCommand(const PlayerForCommand&) = delete;
  PlayerForCommand& operator=(const PlayerForCommand&) = delete;

  // False (after the reason) when the embedded player cannot start or no player answers.
  bool start(const std::optional<std::string>& library) {
    if (library) {
      auto server = player::PlayerServer::startInProcess(*library, player::PlayerServerOptions{});
      if (!server.ok()) {
        std::fprintf(stderr, "rvitunes library: cannot start a player on %s: %s\n",
                     library->c_str(), server.status().toString().c_str());
        return false;
      }
      embedded_ = std::move(*server);
    }
    if (Cadenza::sharedInstance()->versionString()) return true;
    std::fprintf(stderr, "rvitunes library: no player answers\n");
    return false;
  }

 private:
  std::unique_ptr<player::PlayerServer> embedded_;
};

// The item of TRACK_ID (operand 1) as the player side needs it; null after a usage message.
std::shared_ptr<RVITunesTrackItem> itemForTrackOperand(const CommandLine& cl) {
  const auto id = cl.operands().size() == 2 ? wholeNumber(cl.operands()[1]) : std::nullopt;
  if (!id || *id <= 0 || *id > INT32_MAX) return nullptr;
  auto item = std::make_shared<RVITunesTrackItem>();
  item->setTrackId(static_cast<int32_t>(*id));
  return item;
}

// The library file of a command that talks to the player: a player is started on it when given.
std::optional<std::string> embeddedLibrary(const CommandLine& cl) {
  if (auto file = cl.value("--file")) return file;
  return cl.value("--embedded");
}

int playTrackItem(const CommandLine& cl) {
  std::shared_ptr<RVITunesTrackItem> item = itemForTrackOperand(cl);
  if (!item) return usageError("play takes exactly one TRACK_ID, a positive whole number");
  PlayerForCommand player;
  if (!player.start(embeddedLibrary(cl))) return kExitFailure;
  if (!item->playCzTrack()) {
    std::fprintf(stderr, "rvitunes library: the player has no track with ID %d\n", item->trackId());
    return kExitFailure;
  }
  if (cl.has("--json")) {
    JsonOut()
        .beginObject()
        .integerField("trackId", item->trackId())
        .booleanField("playing", true)
        .endObject()
        .print();
  } else {
    std::printf("playing track %d\n", item->trackId());
  }
  return kExitOk;
}

bool writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::FILE* out = std::fopen(path.c_str(), "wb");
  if (out == nullptr) return false;
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), out) == bytes.size();
  return std::fclose(out) == 0 && written;
}

int showArtwork(const CommandLine& cl) {
  std::shared_ptr<RVITunesTrackItem> item = itemForTrackOperand(cl);
  if (!item) return usageError("artwork takes exactly one TRACK_ID, a positive whole number");
  PlayerForCommand player;
  if (!player.start(embeddedLibrary(cl))) return kExitFailure;
  std::shared_ptr<const image::Image> artwork = item->metaImage();
  if (!artwork) {
    std::fprintf(stderr, "rvitunes library: no artwork for track %d\n", item->trackId());
    return kExitFailure;
  }
  const std::optional<std::string> path = cl.value("--save");
  if (path) {
    auto png = artwork->pngRepresentation();
    if (!png.ok()) {
      std::fprintf(stderr, "rvitunes library: cannot encode the artwork of track %d as PNG: %s\n",
                   item->trackId(), png.status().toString().c_str());
      return kExitFailure;
    }
    if (!writeFile(*path, *png)) {
      std::fprintf(stderr, "rvitunes library: cannot write %s\n", path->c_str());
      return kExitFailure;
    }
  }
  if (cl.has("--json")) {
    JsonOut out;
    out.beginObject().integerField("trackId", item->trackId());
    out.integerField("width", artwork->width()).integerField("height", artwork->height());
    out.field("saved", path).endObject().print();
  } else {
    std::printf("track %d: artwork %ux%u\n", item->trackId(), artwork->width(), artwork->height());
  }
  return kExitOk;
}

}  // namespace

int runLibrary(const std::vector<std::string>& args) {
  CommandLine cl({"--file", "--flags", "--dialogs", "--interval", "--embedded", "--save"},
                 {"--json", "--help", "-h"});
  if (!cl.parse(args)) return usageError(cl.error());
  if (wantsHelp(cl)) return showUsage(kLibraryUsage);
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

  const bool talksToPlayer = sub == "play" || sub == "artwork";
  if (cl.has("--embedded") && !talksToPlayer) {
    return usageError("--embedded goes with play and artwork; the others read the file itself");
  }
  if (cl.has("--embedded") && cl.has("--file")) {
    return usageError("--embedded is the older name of --file; give one of them");
  }
  if (cl.has("--save") && sub != "artwork") return usageError("--save goes with artwork only");
  if (cl.has("--flags") && sub != "playlists" && sub != "tracks" && sub != "items") {
    return usageError("--flags goes with playlists, tracks and items only");
  }
  if (cl.has("--interval") && sub != "watch") return usageError("--interval goes with watch only");
  if (sub == "path") {
    if (cl.operands().size() != 1) return usageError("path takes no operands");
    if (cl.has("--file")) return usageError("path finds the file; it takes no --file");
    return showPath(cl.has("--json"));
  }
  if (sub == "playlists") return listPlaylists(cl, mask);
  if (sub == "tracks") return listTracks(cl, mask);
  if (sub == "items") return listItems(cl, mask);
  if (sub == "stats") return showStats(cl);
  if (sub == "watch") return watchLibrary(cl);
  if (sub == "track-items") return listTrackItems(cl);
  if (sub == "search") return searchTracks(cl);
  if (sub == "play") return playTrackItem(cl);
  if (sub == "artwork") return showArtwork(cl);
  return usageError("unknown subcommand '" + sub + "'");
}

}  // namespace rvitunes::cli
