// One artwork element ('cArt') of a track: the picture bytes with their format code.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rvitunes/base/FourCharCode.h"

namespace rvitunes::player {

struct Artwork {
  // The picture's descriptor type: 'PICT', 'JPEG', 'PNG ', 'TIFF', 'GIFf'. The 'pPCT' property
  // answers the bytes under this type, 'pFmt' the type itself, 'pRaw' the bytes as 'tdta'.
  OSType format = 0;
  std::vector<uint8_t> data;
  std::string description;  // 'pDes'
  int32_t kind = 0;         // 'pKnd'
  bool downloaded = false;  // 'pDlA'

  friend bool operator==(const Artwork&, const Artwork&) = default;
};

}  // namespace rvitunes::player
