#include "player/LibraryKeys.h"

#include <array>

namespace rvitunes::player {
namespace {

// Numbers, dates and flags first, then texts, then the location; playlist records end with
// their items.
constexpr auto kOrder = std::to_array<std::string_view>({
    "Track ID",
    "Size",
    "Total Time",
    "Start Time",
    "Stop Time",
    "Disc Number",
    "Disc Count",
    "Track Number",
    "Track Count",
    "Year",
    "BPM",
    "Date Modified",
    "Date Added",
    "Bit Rate",
    "Sample Rate",
    "Volume Adjustment",
    "Part Of Gapless Album",
    "Play Count",
    "Play Date",
    "Play Date UTC",
    "Skip Count",
    "Skip Date",
    "Release Date",
    "Normalization",
    "Rating",
    "Album Rating",
    "Album Rating Computed",
    "Loved",
    "Compilation",
    "Artwork Count",
    "Season",
    "Episode Order",
    "Bookmark",
    "Bookmarkable",
    "Persistent ID",
    "Disabled",
    "Track Type",
    "Podcast",
    "Unplayed",
    "Has Video",
    "HD",
    "Video Width",
    "Video Height",
    "Movie",
    "TV Show",
    "Music Video",
    "Purchased",
    "Explicit",
    "File Folder Count",
    "Library Folder Count",
    "Name",
    "Artist",
    "Album Artist",
    "Composer",
    "Album",
    "Grouping",
    "Genre",
    "Kind",
    "Equalizer",
    "Comments",
    "Description",
    "Long Description",
    "Category",
    "Series",
    "Episode",
    "Sort Album",
    "Sort Album Artist",
    "Sort Artist",
    "Sort Composer",
    "Sort Name",
    "Sort Series",
    "Content Rating",
    "Lyrics",
    "Location",
    "Playlist Items",
});

}  // namespace

int libraryKeyRank(std::string_view key) {
  for (size_t i = 0; i < kOrder.size(); ++i) {
    if (kOrder[i] == key) return static_cast<int>(i);
  }
  return -1;
}

}  // namespace rvitunes::player
