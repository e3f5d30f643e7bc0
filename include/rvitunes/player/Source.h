// The library source ('cSrc'): the one source of the reference player, container of every
// playlist.
#pragma once

#include <string>

#include "rvitunes/player/PlayerCodes.h"

namespace rvitunes::player {

struct Source {
  DatabaseId id = 0;  // the lowest positive ID no playlist or track uses
  std::string name = "Library";
  OSType kind = kSourceLibrary;  // 'pKnd'
};

}  // namespace rvitunes::player
