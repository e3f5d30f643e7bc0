// CZRootUserPlaylist: a kind of playlist reserved for the root of the user-playlist tree. It
// adds and changes nothing; the cache's user root is in fact a plain CZPlaylist, and nothing in
// the framework makes one of these. Kept so that hosts naming the type still compile.
#pragma once

#include "rvitunes/cadenza/CZPlaylist.h"

namespace rvitunes {

class CZRootUserPlaylist : public CZPlaylist {
 public:
  using CZPlaylist::CZPlaylist;
};

}  // namespace rvitunes
