// RVITunesIcons: the process-wide dictionary of playlist icons, icon name ("Lumo_music",
// "Lumo_music_dark", ...) to image object. Null until the host fills it; the library index
// reads it when it annotates the playlists it keeps.
#pragma once

#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/Ref.h"

namespace rvitunes {

// The dictionary as it stands now (shared, not copied), or null. Thread-safe.
plist::Ref<plist::Dictionary> RVITunesIcons();

// Replaces the dictionary; null empties the slot again. Thread-safe.
void setRVITunesIcons(plist::Ref<plist::Dictionary> icons);

}  // namespace rvitunes
