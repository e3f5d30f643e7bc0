// Our reader on the same file, through the entry point a host uses.
#include <cstdio>
#include <cstdlib>

#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/PropertyList.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: load_ours FILE\n");
    return 2;
  }
  const rvitunes::plist::ParseResult result = rvitunes::plist::PropertyList::readFile(argv[1]);
  if (!result.ok()) {
    std::fprintf(stderr, "%s: %s\n", argv[1], result.describe().c_str());
    return 1;
  }
  const rvitunes::plist::Dictionary* root = result.root.asDictionary();
  std::printf("%zu\n", root ? root->size() : size_t{0});
  // Stop the clock at a loaded tree: every reader is timed to the same point, and none pays
  // for taking its tree apart again.
  std::fflush(stdout);
  std::_Exit(0);
}
