// The playlist icons: their names, and which pair a playlist record is shown with. The choice
// is the one a playlist item makes when it is created (assignPlaylistImage), kept here so that
// the item and anything else that shows playlists decide alike.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "rvitunes/helper/IconImage.h"
#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/Ref.h"

namespace rvitunes {

// The twenty icon base names, in the order the icon dictionary loads them ("books", "cd", ...
// "tv-shows").
std::span<const std::string_view> playlistIconBaseNames();

// The resource name of an icon file: "lumo-" + base, plus "-dark" for the dark variant.
std::string playlistIconResourceName(std::string_view base, bool dark);
// The icon dictionary's key: "Lumo_" + base with every '-' turned into '_', plus "_dark".
std::string playlistIconKey(std::string_view base, bool dark);

// The base name for `record`, by the first test that holds: "Master", "Music", "Movies",
// "TV Shows", "Audiobooks", "Books", "Podcasts", "Purchased Music" present as numbers (any
// value, false included) give folder, music, movies, tv-shows, books, books, podcasts,
// purchased; "Smart Info" present as data gives smart-playlist; "All Items" present as a
// number with "Name" exactly "Genius" or "iTunes DJ" gives genius or itunes-dj; anything else
// gives playlist. Only the types of the values are looked at, never the values.
std::string_view choosePlaylistIconBase(const plist::Dictionary& record);

// The icons assignPlaylistIcons set; null where it changed nothing.
struct AssignedPlaylistIcons {
  plist::Ref<IconImage> normal;
  plist::Ref<IconImage> dark;
};

// Looks up the pair chosen for `record` in `icons` (the icon dictionary) and writes each one
// that is an IconImage into the record: the normal one under "Playlist Icon", the dark one
// under "Playlist Icon Dark", independently of each other. A missing or non-image entry leaves
// its record key as it was. Does nothing when `icons` or `record` is null. The caller (a
// playlist item) keeps the answered images as its list images.
AssignedPlaylistIcons assignPlaylistIcons(const plist::Dictionary* icons,
                                          plist::Dictionary* record);

}  // namespace rvitunes
