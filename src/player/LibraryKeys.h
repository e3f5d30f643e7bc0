// Where the player writes each key of a track or playlist record: the order in which the
// library file lists them. A key added to a record goes before the first key of higher rank,
// so that a changed file differs from the old one only by the lines that changed.
#pragma once

#include <string_view>

namespace rvitunes::player {

// The key's position in the player's order, or -1 for a key the player does not write.
int libraryKeyRank(std::string_view key);

}  // namespace rvitunes::player
