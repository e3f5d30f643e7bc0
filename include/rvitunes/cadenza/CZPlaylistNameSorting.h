// The order of a playlist's children: by the names of the playlists the shared playlist cache
// holds under two persistent IDs.
#pragma once

#include <cstdint>

namespace rvitunes {

// Compares the names of the playlists of the shared cache's whole tree under `persistentId`
// and `other`, ignoring letter case: -1 when the first sorts before the second, 0 when they
// are equal, 1 when it sorts after. A missing playlist (or name) on the first side compares
// equal to anything; one missing only on the second side sorts before it (answers 1). Because
// of that the relation is not a strict weak ordering once a playlist is missing: sort with
// std::stable_sort (a merge, which stays in bounds whatever the comparison answers), not
// std::sort. Builds the shared cache when there is none. Thread-safe.
int comparePlaylistName(int64_t persistentId, int64_t other);

// The letter-case-insensitive comparison used above, on UTF-8 text: code points are compared
// after simple case folding (ASCII, Latin-1, Latin Extended-A, Greek and Cyrillic letters);
// invalid bytes compare as themselves. -1, 0 or 1.
int compareCaseInsensitive(const char* a, const char* b);

}  // namespace rvitunes
