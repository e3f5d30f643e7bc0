// The library index: playlists by show flags, track look-ups, and the merge of a newer load.

#include <charconv>
#include <climits>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "helper/FoundationText.h"
#include "rvitunes/helper/RVITunesIcons.h"
#include "rvitunes/helper/RVITunesInfo.h"
#include "rvitunes/plist/Array.h"

namespace rvitunes {

using plist::Array;
using plist::Dictionary;
using plist::Value;

namespace {

constexpr std::string_view kTracksKey = "Tracks";
constexpr std::string_view kPlaylistsKey = "Playlists";
constexpr std::string_view kPlaylistItemsKey = "Playlist Items";
constexpr std::string_view kTrackIdKey = "Track ID";
constexpr std::string_view kPersistentIdKey = "Playlist Persistent ID";

struct IconPair {
  const char* normal;
  const char* dark;
};

// The distinguished playlists, in the order they are tested: the first one a record is marked
// as decides, whether its flag is set or not.
struct DistinguishedKind {
  std::string_view key;
  uint32_t flag;
  IconPair icons;
};
constexpr DistinguishedKind kDistinguishedKinds[] = {
    {"Master", kShowLibraryPlaylist, {"Lumo_folder", "Lumo_folder_dark"}},
    {"Music", kShowMusic, {"Lumo_music", "Lumo_music_dark"}},
    {"Movies", kShowMovies, {"Lumo_movies", "Lumo_movies_dark"}},
    {"TV Shows", kShowTVShows, {"Lumo_tv_shows", "Lumo_tv_shows_dark"}},
    {"Audiobooks", kShowBooks, {"Lumo_books", "Lumo_books_dark"}},
    {"Books", kShowBooks, {"Lumo_books", "Lumo_books_dark"}},
    {"Podcasts", kShowPodcasts, {"Lumo_podcasts", "Lumo_podcasts_dark"}},
    {"Purchased Music", kShowPurchasedMusic, {"Lumo_purchased", "Lumo_purchased_dark"}},
};
constexpr IconPair kGeniusIcons{"Lumo_genius", "Lumo_genius_dark"};
constexpr IconPair kiTunesDJIcons{"Lumo_itunes_dj", "Lumo_itunes_dj_dark"};
constexpr IconPair kSmartIcons{"Lumo_smart_playlist", "Lumo_smart_playlist_dark"};
constexpr IconPair kPlainIcons{"Lumo_playlist", "Lumo_playlist_dark"};

// A key that is present, a number, and true.
bool isMarked(const Dictionary& record, std::string_view key) {
  const Value* v = record.find(key);
  return v != nullptr && v->isNumber() && v->boolValue();
}

// The truth value any object of the file answers: numbers and strings have one; anything else
// has none, and asking for it is an error that makes the whole index answer nothing.
bool truthOf(const Value& v) {
  if (v.isNumber()) return v.boolValue();
  if (v.isString()) return helper::textBoolValue(v.stringView());
  throw std::invalid_argument("a value of type " + std::string(plist::typeName(v.type())) +
                              " has no truth value");
}

// The icon pair a record is kept with under `flags`, or nullopt when it is not kept.
std::optional<IconPair> kindOf(const Dictionary& record, uint32_t flags) {
  // Only a playlist marked "Visible" is dropped; one without the key, or false, goes on.
  if (const Value* visible = record.find("Visible"); visible && !visible->isNil()) {
    if (truthOf(*visible)) return std::nullopt;
  }
  for (const DistinguishedKind& kind : kDistinguishedKinds) {
    if (isMarked(record, kind.key)) {
      if ((flags & kind.flag) == 0) return std::nullopt;
      return kind.icons;
    }
  }
  const bool all = flags == kShowAllPlaylists;
  if (isMarked(record, "All Items") &&
      ((flags & kShowSmartPlaylists) != 0 || (flags & kShowiTunesDJ) != 0 || all)) {
    const Value* name = record.find("Name");
    if (name != nullptr && name->isString()) {
      if (name->stringView() == "Genius" && all) return kGeniusIcons;
      if (name->stringView() == "iTunes DJ") return kiTunesDJIcons;
    }
  }
  if (const Value* smart = record.find("Smart Info"); smart != nullptr && smart->isData()) {
    if ((flags & kShowSmartPlaylists) == 0) return std::nullopt;
    return kSmartIcons;
  }
  if (all) return kPlainIcons;
  return std::nullopt;
}

// Writes the icon under `name` into `record`; an image the dictionary lacks leaves the key as
// it was.
void writeIcon(Dictionary& record, const char* key, const Dictionary* icons, const char* name) {
  if (icons == nullptr) return;
  const Value* image = icons->find(std::string_view(name));
  if (image == nullptr || image->isNil()) return;
  record.set(std::string_view(key), *image);
}

// The decimal text of a number as the platform's number class writes it, into `buffer`.
// Empty for non-numbers.
std::string_view decimalText(const Value& number, char (&buffer)[32], std::string& spill) {
  if (number.isInteger() || number.isBoolean()) {
    std::to_chars_result r =
        number.isUnsigned()
            ? std::to_chars(buffer, buffer + sizeof buffer, number.unsignedLongLongValue())
            : std::to_chars(buffer, buffer + sizeof buffer, number.longLongValue());
    return std::string_view(buffer, static_cast<size_t>(r.ptr - buffer));
  }
  if (number.isReal()) {
    spill = number.stringValue();
    return spill;
  }
  return {};
}

// A set of 32-bit integers in one open-addressed table of 32-bit slots: no allocation per
// element, and a table small enough to stay in the cache for a big library. INT32_MIN marks an
// empty slot and is itself kept aside.
class IntegerSet {
 public:
  explicit IntegerSet(size_t expected) { resize(expected * 2); }

  // Adds `v`; answers false when it was there already.
  bool insert(int32_t v) {
    if (v == kEmpty) return !std::exchange(hasEmptyValue_, true);
    if ((count_ + 1) * 2 > slots_.size()) {
      std::vector<int32_t> old = std::move(slots_);
      resize(old.size() * 2);
      for (int32_t x : old) {
        if (x != kEmpty) place(x);
      }
    }
    return place(v);
  }

 private:
  static constexpr int32_t kEmpty = INT32_MIN;

  void resize(size_t wanted) {
    size_t capacity = 16;
    while (capacity < wanted)
      capacity <<= 1;
    slots_.assign(capacity, kEmpty);
    mask_ = capacity - 1;
    count_ = 0;
  }
  static size_t slotOf(int32_t v) {
    uint64_t x = static_cast<uint64_t>(static_cast<uint32_t>(v)) * 0x9E3779B97F4A7C15ULL;
    return static_cast<size_t>(x ^ (x >> 32));
  }
  bool place(int32_t v) {
    for (size_t i = slotOf(v) & mask_;; i = (i + 1) & mask_) {
      if (slots_[i] == kEmpty) {
        slots_[i] = v;
        ++count_;
        return true;
      }
      if (slots_[i] == v) return false;
    }
  }

  std::vector<int32_t> slots_;
  size_t mask_ = 0;
  size_t count_ = 0;
  bool hasEmptyValue_ = false;
};

// Each key's text lives in a heap block of its own, so reading 100,000 keys one after the other
// waits on memory at every step; asking for a key a few places ahead keeps several reads in
// flight.
constexpr size_t kPrefetchDistance = 16;
void prefetchKey(const Dictionary& dictionary, size_t i) {
  if (i < dictionary.size()) __builtin_prefetch(dictionary.entryAt(i).key.blob());
}

// Identity of a playlist between two loads: its persistent identifier, compared the way the
// file's dictionary keys are (text by its bytes, numbers by value, text never equal to a
// number, anything else by content).
struct IdentifierHash {
  size_t operator()(const Value& v) const noexcept {
    // Containers hash by kind alone, so that equal contents meet in one bucket.
    if (v.isArray() || v.isDictionary() || v.isObject()) return static_cast<size_t>(v.type());
    return static_cast<size_t>(v.keyHash());
  }
};
struct IdentifierEqual {
  bool operator()(const Value& a, const Value& b) const noexcept { return a.keyEquals(b); }
};
using IdentifierSet = std::unordered_set<Value, IdentifierHash, IdentifierEqual>;

}  // namespace

std::optional<std::vector<Value>> RVITunesInfo::playlistsWithFlags(uint32_t flags) {
  if (!library_) return std::nullopt;
  const Value* playlists = library_->find(kPlaylistsKey);
  if (playlists == nullptr || !playlists->isArray() || playlists->asArray()->empty()) {
    return std::nullopt;
  }
  try {
    const plist::Ref<Dictionary> icons = RVITunesIcons();
    std::vector<Value> kept;
    for (const Value& element : *playlists->asArray()) {
      Dictionary* record = element.asDictionary();
      if (record == nullptr) continue;
      std::optional<IconPair> kind = kindOf(*record, flags);
      if (!kind) continue;
      writeIcon(*record, kPlaylistIconKey, icons.get(), kind->normal);
      writeIcon(*record, kPlaylistIconDarkKey, icons.get(), kind->dark);
      kept.push_back(element);
    }
    return kept;
  } catch (const std::exception&) {
    // A record the walk cannot read, or memory running out: no answer at all. Icons already
    // written into earlier records stay there.
    return std::nullopt;
  }
}

Value RVITunesInfo::trackForTracks(const Value& trackId) const {
  if (!trackId.isNumber() || !library_) return Value();
  char buffer[32];
  std::string spill;
  std::string_view key = decimalText(trackId, buffer, spill);
  const Value* tracks = library_->find(kTracksKey);
  if (tracks == nullptr || !tracks->isDictionary()) return Value();
  const Value* record = tracks->asDictionary()->find(key);
  return record != nullptr ? *record : Value();
}

std::optional<std::vector<Value>> RVITunesInfo::tracksForPlaylist(const Value& playlist) const {
  const Dictionary* record = playlist.asDictionary();
  if (record == nullptr) return std::nullopt;
  const Value* items = record->find(kPlaylistItemsKey);
  if (items == nullptr || !items->isArray() || items->asArray()->empty()) return std::nullopt;
  std::vector<Value> tracks;
  tracks.reserve(items->asArray()->size());
  for (const Value& item : *items->asArray()) {
    const Dictionary* entry = item.asDictionary();
    if (entry == nullptr) continue;
    const Value* trackId = entry->find(kTrackIdKey);
    if (trackId == nullptr) continue;
    Value track = trackForTracks(*trackId);
    if (!track.isNil()) tracks.push_back(std::move(track));
  }
  return tracks;
}

uint64_t RVITunesInfo::trackCountForPlaylist(const Value& playlist) const {
  const Dictionary* record = playlist.asDictionary();
  if (record == nullptr) return 0;
  const Value* items = record->find(kPlaylistItemsKey);
  if (items == nullptr) return 0;
  if (const Array* array = items->asArray()) return array->size();
  if (const Dictionary* dict = items->asDictionary()) return dict->size();
  return 0;
}

void RVITunesInfo::updateListLibrary(const std::shared_ptr<const RVITunesInfo>& newer) {
  if (!newer || !newer->library_ || !library_) return;

  // Tracks: a key is known when some key here has the same integer value ("0012" is "12").
  // The set grows with every addition, so two new keys of equal value add only the first.
  const Value oldTracksValue = library_->get(kTracksKey);
  const Value newTracksValue = newer->library_->get(kTracksKey);
  Dictionary* oldTracks = oldTracksValue.asDictionary();
  const Dictionary* newTracks = newTracksValue.asDictionary();
  if (oldTracks == nullptr || newTracks == nullptr) return;
  IntegerSet knownTracks(oldTracks->size() + newTracks->size() / 16 + 1);
  const size_t oldTrackCount = oldTracks->size();
  for (size_t i = 0; i < oldTrackCount; ++i) {
    prefetchKey(*oldTracks, i + kPrefetchDistance);
    knownTracks.insert(helper::keyIntValue(oldTracks->entryAt(i).key));
  }
  // By position, and copying the entry before adding it: both sides may be the same dictionary.
  const size_t newTrackCount = newTracks->size();
  for (size_t i = 0; i < newTrackCount; ++i) {
    prefetchKey(*newTracks, i + kPrefetchDistance);
    const Dictionary::Entry& entry = newTracks->entryAt(i);
    if (!knownTracks.insert(helper::keyIntValue(entry.key))) continue;
    Value key = entry.key;
    Value track = entry.value;
    oldTracks->set(std::move(key), std::move(track));
  }

  // Playlists: known by persistent identifier. A new record without one counts as known as
  // soon as there is any playlist record here at all, so it is never added to a non-empty list.
  const Value newListsValue = newer->library_->get(kPlaylistsKey);
  const Array* newLists = newListsValue.asArray();
  if (newLists == nullptr) return;
  const Value oldListsValue = library_->get(kPlaylistsKey);
  Array* oldLists = oldListsValue.asArray();
  if (oldLists == nullptr) return;
  IdentifierSet knownPlaylists;
  knownPlaylists.reserve(oldLists->size() + newLists->size() / 16 + 1);
  bool haveRecords = false;
  for (const Value& element : *oldLists) {
    const Dictionary* record = element.asDictionary();
    if (record == nullptr) continue;
    haveRecords = true;
    const Value* id = record->find(kPersistentIdKey);
    if (id != nullptr && !id->isNil()) knownPlaylists.insert(*id);
  }
  const size_t newListCount = newLists->size();
  for (size_t i = 0; i < newListCount; ++i) {
    Value element = (*newLists)[i];
    const Dictionary* record = element.asDictionary();
    if (record == nullptr) continue;
    const Value* found = record->find(kPersistentIdKey);
    const Value id = found != nullptr ? *found : Value();
    const bool known = id.isNil() ? haveRecords : knownPlaylists.count(id) != 0;
    if (known) continue;
    oldLists->push_back(std::move(element));
    haveRecords = true;
    if (!id.isNil()) knownPlaylists.insert(id);
  }
}

}  // namespace rvitunes
