// The TIFF-to-PICT conversion behind CZTrack::setArtworkAtIndex, replaceable for tests.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace rvitunes::cadenza {

// TIFF bytes in, PICT bytes out (nullopt when nothing came out).
using PictConverter =
    std::function<std::optional<std::vector<uint8_t>>(std::span<const uint8_t> tiff)>;

// The conversion the framework uses: the named pasteboard "Cadenza", created for the
// conversion and released globally right after it.
std::optional<std::vector<uint8_t>> convertTiffToPictThroughPasteboard(
    std::span<const uint8_t> tiff);

// Replaces the conversion for the whole process (tests only); an empty function restores the
// pasteboard. Answers the previous one (empty for the pasteboard). Not to be called while
// artwork is being set on another thread.
PictConverter setPictConverterForTesting(PictConverter converter);

}  // namespace rvitunes::cadenza
