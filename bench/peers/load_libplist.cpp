// Peer: libplist's XML reader on the whole file (read into memory first, as it requires).
#include <plist/plist.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: load_libplist FILE\n");
    return 2;
  }
  std::ifstream in(argv[1], std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "%s: cannot open\n", argv[1]);
    return 1;
  }
  const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  if (text.size() > std::numeric_limits<uint32_t>::max()) {
    std::fprintf(stderr, "%s: too large for libplist\n", argv[1]);
    return 1;
  }

  plist_t root = nullptr;
  plist_from_xml(text.data(), static_cast<uint32_t>(text.size()), &root);
  if (!root) {
    std::fprintf(stderr, "%s: libplist could not parse it\n", argv[1]);
    return 1;
  }
  const uint32_t entries = plist_get_node_type(root) == PLIST_DICT ? plist_dict_get_size(root) : 0;
  std::printf("%u\n", entries);
  // Stop the clock at a loaded tree: every reader is timed to the same point, and none pays
  // for taking its tree apart again.
  std::fflush(stdout);
  std::_Exit(0);
}
