#include "SoakLibrary.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string_view>

#include "rvitunes/base/FileSystem.h"
#include "rvitunes/base/OSStatus.h"
#include "rvitunes/base/Url.h"
#include "rvitunes/plist/Array.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"

namespace rvitunes::soak {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kLibraryFileName = "iTunes Music Library.xml";
constexpr std::string_view kCoverName = "cover.png";
constexpr int kTracksPerAlbum = 10;

constexpr std::array<std::string_view, 24> kWords = {
    "Amber",   "Harbor", "Velvet", "Signal",  "Paper", "Lantern", "Orbit", "Cedar",
    "Morning", "Static", "Copper", "Island",  "Echo",  "Meadow",  "River", "Night",
    "Glass",   "Summer", "Violet", "Thunder", "Dust",  "Silver",  "North", "Garden"};

std::string hex16(uint64_t value) {
  char text[17];
  std::snprintf(text, sizeof text, "%016llX", static_cast<unsigned long long>(value));
  return text;
}

// The words of a title drawn from kWords.
std::string title(std::mt19937_64& random, int words) {
  std::string out;
  for (int i = 0; i < words; ++i) {
    if (i > 0) out += ' ';
    out += kWords[random() % kWords.size()];
  }
  return out;
}

// An opaque picture that differs for every album: a gradient in the album's colours.
image::Image coverPicture(int album) {
  const uint32_t width = 24 + static_cast<uint32_t>(album % 5) * 8;
  const uint32_t height = 20 + static_cast<uint32_t>(album % 3) * 10;
  image::Image picture(width, height);
  const auto base = static_cast<uint8_t>(album * 37);
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      picture.setPixel(x, y,
                       {base, static_cast<uint8_t>(x * 9 + static_cast<uint32_t>(album)),
                        static_cast<uint8_t>(y * 11), 255});
    }
  }
  return picture;
}

plist::Value text(std::string_view value) {
  return plist::Value::string(value);
}

plist::Value number(int64_t value) {
  return plist::Value::integer(value);
}

plist::Value itemsOf(const std::vector<int32_t>& ids) {
  plist::Ref<plist::Array> items = plist::Array::create();
  for (int32_t id : ids) {
    plist::Ref<plist::Dictionary> item = plist::Dictionary::create();
    item->set("Track ID", number(id));
    items->push_back(item);
  }
  return items;
}

std::string asciiLower(std::string_view in) {
  std::string out(in);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

std::optional<int64_t> hexId(const plist::Dictionary& record, std::string_view key) {
  const plist::Value* value = record.find(key);
  if (value == nullptr || !value->isString() || value->stringView().empty()) return std::nullopt;
  uint64_t parsed = 0;
  for (char c : value->stringView()) {
    int digit = -1;
    if (c >= '0' && c <= '9') digit = c - '0';
    if (c >= 'A' && c <= 'F') digit = c - 'A' + 10;
    if (c >= 'a' && c <= 'f') digit = c - 'a' + 10;
    if (digit < 0) return std::nullopt;
    parsed = parsed << 4 | static_cast<uint64_t>(digit);
  }
  return static_cast<int64_t>(parsed);
}

std::string stringOf(const plist::Dictionary& record, std::string_view key) {
  const plist::Value* value = record.find(key);
  return value != nullptr && value->isString() ? std::string(value->stringView()) : std::string();
}

int64_t integerOf(const plist::Dictionary& record, std::string_view key) {
  const plist::Value* value = record.find(key);
  return value != nullptr && value->isInteger() ? value->longLongValue() : 0;
}

bool flagOf(const plist::Dictionary& record, std::string_view key) {
  const plist::Value* value = record.find(key);
  return value != nullptr && value->isBoolean() && value->boolValue();
}

// Flags by which the player gives a playlist a special kind.
constexpr std::array<std::string_view, 10> kSpecialFlags = {
    "Music", "Movies",          "TV Shows",      "Podcasts",  "Audiobooks",
    "Books", "Purchased Music", "Party Shuffle", "iTunes DJ", "Videos"};

}  // namespace

Result<std::string> generateLibrary(const std::string& folder, const GeneratorOptions& options) {
  if (options.tracks < 1 || options.playlists < 5) {
    return Status::error(paramErr, "the generator needs at least 1 track and 5 playlists");
  }
  std::mt19937_64 random(options.seed);
  std::error_code error;
  const fs::path music = fs::path(folder) / "music";
  fs::create_directories(music, error);
  if (error)
    return Status::error(ioErr, "cannot create " + music.string() + ": " + error.message());

  plist::Ref<plist::Dictionary> tracks = plist::Dictionary::create();
  std::vector<int32_t> allIds;
  const int albums = (options.tracks + kTracksPerAlbum - 1) / kTracksPerAlbum;
  for (int album = 0; album < albums; ++album) {
    const std::string artist = title(random, 2);
    const std::string albumName = title(random, 2) + " " + std::to_string(album);
    const fs::path albumFolder = music / ("album" + std::to_string(album));
    fs::create_directories(albumFolder, error);
    if (error) return Status::error(ioErr, "cannot create " + albumFolder.string());
    const int artworkKind = album % 3;  // 0: a cover; 1: none claimed; 2: claimed, missing
    if (artworkKind == 0) {
      Result<std::vector<uint8_t>> png = coverPicture(album).pngRepresentation();
      if (!png) return png.status();
      const std::string bytes(png->begin(), png->end());
      if (Status written = writeFileAtomically(FileSystem::defaultFileSystem(),
                                               (albumFolder / kCoverName).string(), bytes);
          !written.ok()) {
        return written;
      }
    }
    for (int n = 0; n < kTracksPerAlbum; ++n) {
      const int index = album * kTracksPerAlbum + n;
      if (index >= options.tracks) break;
      const int32_t id = 1000 + index * 2;
      char token[16];
      std::snprintf(token, sizeof token, "t%05d", index);
      plist::Ref<plist::Dictionary> track = plist::Dictionary::create();
      track->set("Track ID", number(id));
      track->set("Name", text(title(random, 1 + static_cast<int>(random() % 3)) + " " + token));
      track->set("Artist", text(artist));
      track->set("Album", text(albumName));
      track->set("Genre", text(kWords[static_cast<size_t>(album) % kWords.size()]));
      track->set("Kind", text("MPEG audio file"));
      track->set("Size", number(3'000'000 + static_cast<int64_t>(random() % 5'000'000)));
      track->set("Total Time", number(120'000 + static_cast<int64_t>(random() % 240'000)));
      track->set("Track Number", number(n + 1));
      track->set("Rating", number(static_cast<int64_t>(random() % 6) * 20));
      track->set("Play Count", number(static_cast<int64_t>(random() % 50)));
      if (artworkKind != 1) track->set("Artwork Count", number(1));
      track->set("Persistent ID", text(hex16(0x50AC000000000000ULL + random() % 0xFFFFFFFFFFULL)));
      track->set("Track Type", text("File"));
      const fs::path file = albumFolder / (std::string(token) + ".mp3");
      track->set("Location", text("file://localhost" + percentEncodePath(file.string())));
      tracks->set(std::to_string(id), track);
      allIds.push_back(id);
    }
  }

  // The library, the Music playlist, then folders and ordinary playlists: every fifth one a
  // folder, the others inside the latest folder or at the top, by turns.
  plist::Ref<plist::Array> playlists = plist::Array::create();
  int32_t playlistId = 100'000;
  uint64_t playlistPid = 0x50AC100000000000ULL;
  const auto addPlaylist = [&](std::string_view name, const std::vector<int32_t>& ids) {
    plist::Ref<plist::Dictionary> record = plist::Dictionary::create();
    record->set("Name", text(name));
    record->set("Playlist ID", number(playlistId++));
    record->set("Playlist Persistent ID", text(hex16(++playlistPid)));
    record->set("Playlist Items", itemsOf(ids));
    playlists->push_back(record);
    return record;
  };
  plist::Ref<plist::Dictionary> master = addPlaylist("Library", allIds);
  master->set("Master", plist::Value::boolean(true));
  master->set("Visible", plist::Value::boolean(false));
  addPlaylist("Music", allIds)->set("Music", plist::Value::boolean(true));
  std::optional<uint64_t> currentFolder;
  for (int p = 2; p < options.playlists; ++p) {
    const std::string name = title(random, 2) + " " + std::to_string(p);
    if (p % 5 == 2) {
      plist::Ref<plist::Dictionary> record = addPlaylist(name, {});
      record->set("Folder", plist::Value::boolean(true));
      currentFolder = playlistPid;
      continue;
    }
    std::vector<int32_t> ids;
    const size_t size = 5 + random() % 60;
    for (size_t i = 0; i < size; ++i)
      ids.push_back(allIds[random() % allIds.size()]);
    plist::Ref<plist::Dictionary> record = addPlaylist(name, ids);
    if (currentFolder && p % 2 == 0) {
      record->set("Parent Persistent ID", text(hex16(*currentFolder)));
    }
  }

  plist::Ref<plist::Dictionary> root = plist::Dictionary::create();
  root->set("Major Version", number(1));
  root->set("Minor Version", number(1));
  root->set("Application Version", text("7.7.1"));
  root->set("Library Persistent ID", text(hex16(0x50AC5EED00000000ULL + options.seed)));
  root->set("Music Folder", text("file://localhost" + percentEncodePath(music.string()) + "/"));
  root->set("Tracks", tracks);
  root->set("Playlists", playlists);
  const std::string path = (fs::path(folder) / kLibraryFileName).string();
  if (Status written = plist::PropertyList::writeFile(path, root, plist::OutputFormat::kXml1);
      !written.ok()) {
    return written;
  }
  return path;
}

const ExpectedTrack* ExpectedLibrary::track(int32_t id) const {
  const auto found = trackIndexById.find(id);
  return found == trackIndexById.end() ? nullptr : &tracks[found->second];
}

const ExpectedPlaylist* ExpectedLibrary::master() const {
  for (const ExpectedPlaylist& playlist : playlists) {
    if (playlist.master) return &playlist;
  }
  return nullptr;
}

Result<ExpectedLibrary> readExpectedLibrary(const std::string& path) {
  plist::ParseResult parsed = plist::PropertyList::readFile(path);
  if (!parsed.ok()) return Status::error(ioErr, path + ": " + parsed.describe());
  const plist::Dictionary* top = parsed.root.asDictionary();
  if (top == nullptr) return Status::error(paramErr, path + " does not hold a dictionary");

  ExpectedLibrary library;
  // Covers are shared by the tracks of an album, so each file is decoded once.
  std::map<std::string, std::shared_ptr<const image::Image>> covers;
  if (const plist::Value* tracks = top->find("Tracks"); tracks && tracks->isDictionary()) {
    for (const plist::Dictionary::Entry& entry : *tracks->asDictionary()) {
      const plist::Dictionary* record = entry.value.asDictionary();
      if (record == nullptr) continue;
      ExpectedTrack track;
      track.id = static_cast<int32_t>(integerOf(*record, "Track ID"));
      track.persistentId = hexId(*record, "Persistent ID").value_or(0);
      track.name = stringOf(*record, "Name");
      track.artist = stringOf(*record, "Artist");
      track.album = stringOf(*record, "Album");
      track.rating = static_cast<int32_t>(integerOf(*record, "Rating"));
      track.playCount = static_cast<int32_t>(integerOf(*record, "Play Count"));
      track.artworkCount = static_cast<int32_t>(integerOf(*record, "Artwork Count"));
      if (track.id == 0 || track.persistentId == 0) continue;
      library.asciiNames = library.asciiNames && std::all_of(track.name.begin(), track.name.end(),
                                                             [](char c) { return c > 0; });
      const std::optional<Url> location = Url::parse(stringOf(*record, "Location"));
      const std::optional<std::string> file =
          location && location->isFileUrl() ? location->path() : std::nullopt;
      if (track.artworkCount > 0 && file) {
        const std::string cover = (fs::path(*file).parent_path() / kCoverName).string();
        auto [slot, added] = covers.try_emplace(cover);
        if (added) {
          if (Result<image::Image> decoded = image::Image::fromFile(cover)) {
            slot->second = std::make_shared<const image::Image>(std::move(*decoded));
          }
        }
        track.cover = slot->second;
      }
      library.trackIndexById[track.id] = library.tracks.size();
      library.tracks.push_back(std::move(track));
    }
  }
  if (const plist::Value* playlists = top->find("Playlists"); playlists && playlists->isArray()) {
    for (const plist::Value& value : *playlists->asArray()) {
      const plist::Dictionary* record = value.asDictionary();
      if (record == nullptr) continue;
      ExpectedPlaylist playlist;
      const std::optional<int64_t> pid = hexId(*record, "Playlist Persistent ID");
      if (!pid) continue;
      playlist.persistentId = *pid;
      playlist.parentPersistentId = hexId(*record, "Parent Persistent ID").value_or(0);
      playlist.name = stringOf(*record, "Name");
      playlist.master = flagOf(*record, "Master");
      playlist.folder = flagOf(*record, "Folder");
      playlist.special = playlist.master || record->contains("Distinguished Kind") ||
                         std::any_of(kSpecialFlags.begin(), kSpecialFlags.end(),
                                     [&](std::string_view key) { return flagOf(*record, key); });
      if (const plist::Value* items = record->find("Playlist Items"); items && items->isArray()) {
        for (const plist::Value& item : *items->asArray()) {
          if (const plist::Dictionary* entry = item.asDictionary()) {
            const auto id = static_cast<int32_t>(integerOf(*entry, "Track ID"));
            if (library.track(id) != nullptr) playlist.trackIds.push_back(id);
          }
        }
      }
      library.playlists.push_back(std::move(playlist));
    }
  }
  if (library.tracks.empty() || library.master() == nullptr) {
    return Status::error(paramErr, path + " holds no tracks or no library playlist");
  }
  return library;
}

std::vector<std::string> asciiSearchWords(const std::string& text) {
  std::vector<std::string> words;
  const std::string folded = asciiLower(text);
  for (size_t at = 0; at < folded.size();) {
    const size_t start = folded.find_first_not_of(" \t\r\n", at);
    if (start == std::string::npos) break;
    const size_t end = std::min(folded.find_first_of(" \t\r\n", start), folded.size());
    words.push_back(folded.substr(start, end - start));
    at = end;
  }
  return words;
}

bool nameMatchesWords(const std::string& name, const std::vector<std::string>& words) {
  const std::string folded = asciiLower(name);
  return std::all_of(words.begin(), words.end(), [&](const std::string& word) {
    return folded.find(word) != std::string::npos;
  });
}

}  // namespace rvitunes::soak
