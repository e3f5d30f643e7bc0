// The text form of persistent IDs: 16 upper-case hexadecimal digits, zero-padded, as the
// library file writes them ("Persistent ID", "Playlist Persistent ID") and as the player
// answers them as text.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "rvitunes/player/PlayerCodes.h"

namespace rvitunes::player {

// "00000000000ABCDE" for 0xABCDE.
std::string formatPersistentId(PersistentId id);
// The value of 1 to 16 hexadecimal digits (either case). nullopt for an empty text, any other
// character, or more than 16 digits.
std::optional<PersistentId> parsePersistentId(std::string_view text);

}  // namespace rvitunes::player
