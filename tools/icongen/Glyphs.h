// The twenty playlist glyphs of the framework's icon set ("lumo"), each drawable in a normal
// variant (dark ink, for light backgrounds) and a dark variant (light ink, brighter accents,
// for dark backgrounds).
#pragma once

#include <string_view>
#include <vector>

#include "Raster.h"

namespace rvitunes::icongen {

// The base names, in the order the framework loads them.
const std::vector<std::string_view>& glyphNames();

// The drawing of `name` (one of glyphNames()); empty for an unknown name.
Drawing drawGlyph(std::string_view name, bool dark);

}  // namespace rvitunes::icongen
