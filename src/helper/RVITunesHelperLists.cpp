// RVITunesHelper's lists of display items, the raw views of the load and the track search.

#include <string>
#include <string_view>
#include <utility>

#include "rvitunes/base/Utf8.h"
#include "rvitunes/helper/RVITunesHelper.h"
#include "rvitunes/helper/RVITunesPlaylist.h"
#include "rvitunes/helper/RVITunesTrackItem.h"
#include "rvitunes/plist/Array.h"

namespace rvitunes {

namespace {

// Base letters of U+0100..U+017F (Latin Extended-A); '*' marks a letter without a base, whose
// small form is the code point with its low bit set.
constexpr std::string_view kLatinExtendedABase =
    "aaaaaaccccccccddddeeeeeeeeeegggggggghhhhiiiiiiiiii**jjkkkllllllllllnnnnnnn**oooooo**"
    "rrrrrrssssssssttttttuuuuuuuuuuuuwwyyyzzzzzzs";
static_assert(kLatinExtendedABase.size() == 0x80);

// The small, unaccented form of one code point, or 0 for a combining mark (dropped).
char32_t foldCodePoint(char32_t c) {
  if (c >= U'A' && c <= U'Z') return c + 0x20;
  if (c < 0xC0) return c;
  if (c <= 0xFF) {
    switch (c) {
      case 0xC6:
      case 0xE6:
        return 0xE6;  // æ
      case 0xD0:
      case 0xF0:
        return 0xF0;  // ð
      case 0xD7:
      case 0xF7:
      case 0xDF:
        return c;  // ×, ÷, ß
      case 0xD8:
      case 0xF8:
        return 0xF8;  // ø
      case 0xDE:
      case 0xFE:
        return 0xFE;  // þ
      case 0xC7:
      case 0xE7:
        return U'c';
      case 0xD1:
      case 0xF1:
        return U'n';
      case 0xDD:
      case 0xFD:
      case 0xFF:
        return U'y';
      default:
        break;
    }
    unsigned offset = static_cast<unsigned>(c) & 0x1F;  // the same in both cases
    if (offset <= 0x05) return U'a';
    if (offset <= 0x0B) return U'e';
    if (offset <= 0x0F) return U'i';
    if (offset <= 0x16) return U'o';
    return U'u';
  }
  if (c <= 0x17F) {
    char base = kLatinExtendedABase[c - 0x100];
    return base == '*' ? (c | 1) : static_cast<char32_t>(base);
  }
  if (c >= 0x300 && c <= 0x36F) return 0;                       // combining marks
  if (c >= 0x391 && c <= 0x3AB && c != 0x3A2) return c + 0x20;  // Greek capitals
  if (c >= 0x410 && c <= 0x42F) return c + 0x20;                // Cyrillic capitals
  if (c >= 0x400 && c <= 0x40F) return c + 0x50;
  return c;
}

// `text` in lower case with its diacritics removed, for the track search. Bytes that are not
// well-formed UTF-8 are kept as they are.
std::string foldForSearch(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    auto b = static_cast<unsigned char>(text[i]);
    size_t len = b < 0x80           ? 1
                 : (b >> 5) == 0x6  ? 2
                 : (b >> 4) == 0xE  ? 3
                 : (b >> 3) == 0x1E ? 4
                                    : 0;
    char32_t c = len == 1 ? b : len == 2 ? (b & 0x1F) : len == 3 ? (b & 0x0F) : (b & 0x07);
    bool ok = len != 0 && i + len <= text.size();
    for (size_t k = 1; ok && k < len; ++k) {
      auto cont = static_cast<unsigned char>(text[i + k]);
      if ((cont & 0xC0) != 0x80) ok = false;
      c = (c << 6) | (cont & 0x3F);
    }
    if (!ok) {
      out += text[i++];
      continue;
    }
    if (char32_t folded = foldCodePoint(c); folded != 0) appendUtf8(out, folded);
    i += len;
  }
  return out;
}

bool fieldContains(const plist::Dictionary& record, std::string_view key,
                   const std::string& needle) {
  const plist::Value* v = record.find(key);
  if (v == nullptr || !v->isString()) return false;
  return foldForSearch(v->stringView()).find(needle) != std::string::npos;
}

// The search shared by the two operations; `stringKeys` admits keys that are strings.
std::optional<std::vector<plist::Value>> searchTracks(const plist::Dictionary* tracks,
                                                      std::optional<std::string_view> text,
                                                      bool stringKeys) {
  if (!text || tracks == nullptr) return std::nullopt;
  std::string needle = foldForSearch(*text);
  if (needle.empty()) return std::nullopt;  // an empty needle is never found
  std::vector<plist::Value> found;
  for (const plist::Dictionary::Entry& entry : *tracks) {
    if (!entry.key.isNumber() && !(stringKeys && entry.key.isString())) continue;
    const plist::Dictionary* record = entry.value.asDictionary();
    if (record == nullptr) continue;
    if (fieldContains(*record, "Name", needle) || fieldContains(*record, "Artist", needle) ||
        fieldContains(*record, "Album", needle)) {
      found.push_back(entry.key);
    }
  }
  if (found.empty()) return std::nullopt;
  return found;
}

template <class MakeItem>
void refillTrackItems(RVITunesHelper::TrackItems& items, const plist::Value& tracks,
                      MakeItem make) {
  items.clear();
  auto take = [&](const plist::Value& value) {
    plist::Ref<plist::Dictionary> record = value.dictionaryRef();
    if (!record) return;
    const plist::Value* id = record->find("Track ID");
    if (id == nullptr || !id->isNumber()) return;
    int32_t key = id->intValue();
    if (std::shared_ptr<RVITunesTrackItem> item = make(record)) items[key] = std::move(item);
  };
  if (const plist::Dictionary* dict = tracks.asDictionary()) {
    for (const plist::Dictionary::Entry& entry : *dict)
      take(entry.value);
  } else if (const plist::Array* array = tracks.asArray()) {
    for (const plist::Value& value : *array)
      take(value);
  }
}

}  // namespace

void RVITunesHelper::updateiTunesTracksItem(const plist::Value& tracks) {
  if (tracks.isNil() || !itunesInfo_) return;
  refillTrackItems(tracksInfoDict_, tracks, &RVITunesTrackItem::itemWithTrackDictInfo);
}

void RVITunesHelper::updateTrackItemsFromRecords(const plist::Value& tracks) {
  if (tracks.isNil() || !itunesInfo_) return;
  refillTrackItems(tracksInfoDict_, tracks, &RVITunesTrackItem::initWithTrackDictInfo);
}

void RVITunesHelper::updateiTunesPlaylistsItem(const void* sender) {
  if (sender == nullptr || !itunesInfo_) return;
  std::optional<std::vector<plist::Value>> kept = itunesInfo_->playlistsWithFlags(showFlags_);
  if (!kept) return;
  playlistsArray_.clear();
  int32_t sort = 0;
  for (const plist::Value& value : *kept) {
    plist::Ref<plist::Dictionary> record = value.dictionaryRef();
    if (!record || !record->contains("Playlist ID")) continue;
    if (auto item = RVITunesPlaylist::itemWithPlaylistInfoSort(record, sort)) {
      playlistsArray_.push_back(std::move(item));
      ++sort;
    }
  }
  // The track items are left alone: the host refills them from itunesTracksInfo() itself.
}

bool RVITunesHelper::refreshTunesPlaylists(const void* /*sender*/) {
  return false;
}

plist::Ref<plist::Dictionary> RVITunesHelper::itunesLibraryInfo() const {
  return itunesInfo_ ? itunesInfo_->library() : nullptr;
}

std::optional<std::vector<plist::Value>> RVITunesHelper::itunesPlaylistsInfo() {
  if (!itunesInfo_) return std::nullopt;
  return itunesInfo_->playlistsWithFlags(showFlags_);
}

plist::Ref<plist::Dictionary> RVITunesHelper::itunesTracksInfo() const {
  plist::Ref<plist::Dictionary> library = itunesLibraryInfo();
  if (!library) return nullptr;
  const plist::Value* tracks = library->find("Tracks");
  return tracks != nullptr ? tracks->dictionaryRef() : nullptr;
}

std::optional<std::vector<plist::Value>> RVITunesHelper::searchForTrackNumbersByString(
    std::optional<std::string_view> text) const {
  return searchTracks(itunesTracksInfo().get(), text, /*stringKeys=*/false);
}

std::optional<std::vector<plist::Value>> RVITunesHelper::searchTrackKeysByString(
    std::optional<std::string_view> text) const {
  return searchTracks(itunesTracksInfo().get(), text, /*stringKeys=*/true);
}

std::optional<std::vector<std::shared_ptr<RVITunesTrackItem>>>
RVITunesHelper::tracksItemsForPlaylistID(int32_t playlistID) const {
  if (playlistID == 0) return std::nullopt;
  std::shared_ptr<RVITunesHelper> shared = sharediTunesHelper();
  std::shared_ptr<RVITunesPlaylist> playlist;
  for (const std::shared_ptr<RVITunesPlaylist>& item : shared->playlistsItems()) {
    if (item && item->playlistId() == playlistID) {
      playlist = item;
      break;
    }
  }
  if (!playlist || !playlist->tarcks()) return std::nullopt;
  const TrackItems& tracks = shared->tracksItems();
  std::vector<std::shared_ptr<RVITunesTrackItem>> found;
  for (const plist::Dictionary::Entry& entry : *playlist->tarcks()) {
    if (!entry.key.isNumber()) continue;
    auto it = tracks.find(entry.key.intValue());
    if (it != tracks.end() && it->second) found.push_back(it->second);
  }
  return found;
}

std::shared_ptr<RVITunesTrackItem> RVITunesHelper::trackItemForTrackID(int32_t trackID) const {
  if (trackID < 1) return nullptr;
  std::shared_ptr<RVITunesHelper> shared = sharediTunesHelper();
  const TrackItems& tracks = shared->tracksItems();
  auto it = tracks.find(trackID);
  return it != tracks.end() ? it->second : nullptr;
}

}  // namespace rvitunes
