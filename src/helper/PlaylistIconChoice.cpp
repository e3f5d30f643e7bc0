#include "rvitunes/helper/PlaylistIconChoice.h"

#include <array>

#include "rvitunes/helper/RVITunesInfo.h"

namespace rvitunes {
namespace {

constexpr std::array<std::string_view, 20> kBaseNames = {"books",
                                                         "cd",
                                                         "downloads",
                                                         "folder",
                                                         "genius",
                                                         "genius-mixes",
                                                         "genius-playlist",
                                                         "itunes-dj",
                                                         "itunes-u",
                                                         "movies",
                                                         "music",
                                                         "playlist",
                                                         "podcasts",
                                                         "purchased",
                                                         "radio",
                                                         "rentals",
                                                         "rentals-expiring",
                                                         "ringtones",
                                                         "smart-playlist",
                                                         "tv-shows"};

// The marks tested first, in order: present as a number (whatever its value) decides.
struct Mark {
  std::string_view key;
  std::string_view base;
};
constexpr Mark kNumberMarks[] = {
    {"Master", "folder"},     {"Music", "music"},
    {"Movies", "movies"},     {"TV Shows", "tv-shows"},
    {"Audiobooks", "books"},  {"Books", "books"},
    {"Podcasts", "podcasts"}, {"Purchased Music", "purchased"},
};

bool isNumberAt(const plist::Dictionary& record, std::string_view key) {
  const plist::Value* v = record.find(key);
  return v != nullptr && v->isNumber();
}

// The entry under `key` when it is one of our images; `record` gets it under `recordKey`.
plist::Ref<IconImage> assignOne(const plist::Dictionary& icons, const std::string& key,
                                plist::Dictionary& record, std::string_view recordKey) {
  const plist::Value* entry = icons.find(std::string_view(key));
  if (entry == nullptr) return nullptr;
  plist::Ref<IconImage> image = iconImageRef(*entry);
  if (image) record.set(recordKey, *entry);
  return image;
}

}  // namespace

std::span<const std::string_view> playlistIconBaseNames() {
  return kBaseNames;
}

std::string playlistIconResourceName(std::string_view base, bool dark) {
  std::string name = "lumo-" + std::string(base);
  if (dark) name += "-dark";
  return name;
}

std::string playlistIconKey(std::string_view base, bool dark) {
  std::string key = "Lumo_" + std::string(base);
  for (char& c : key) {
    if (c == '-') c = '_';
  }
  if (dark) key += "_dark";
  return key;
}

std::string_view choosePlaylistIconBase(const plist::Dictionary& record) {
  for (const Mark& mark : kNumberMarks) {
    if (isNumberAt(record, mark.key)) return mark.base;
  }
  if (const plist::Value* smart = record.find("Smart Info"); smart && smart->isData()) {
    return "smart-playlist";
  }
  if (isNumberAt(record, "All Items")) {
    if (const plist::Value* name = record.find("Name"); name && name->isString()) {
      if (name->stringView() == "Genius") return "genius";
      if (name->stringView() == "iTunes DJ") return "itunes-dj";
    }
  }
  return "playlist";
}

AssignedPlaylistIcons assignPlaylistIcons(const plist::Dictionary* icons,
                                          plist::Dictionary* record) {
  AssignedPlaylistIcons assigned;
  if (icons == nullptr || record == nullptr) return assigned;
  const std::string_view base = choosePlaylistIconBase(*record);
  assigned.normal = assignOne(*icons, playlistIconKey(base, false), *record, kPlaylistIconKey);
  assigned.dark = assignOne(*icons, playlistIconKey(base, true), *record, kPlaylistIconDarkKey);
  return assigned;
}

}  // namespace rvitunes
