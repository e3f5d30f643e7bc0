// The floor of any XML reader: read the whole file into memory and find every '<' in it.
// Prints the count so that the scan cannot be optimised away.
#include <cstdio>
#include <cstring>
#include <memory>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: scan_floor FILE\n");
    return 2;
  }
  std::FILE* f = std::fopen(argv[1], "rb");
  if (!f) {
    std::perror(argv[1]);
    return 1;
  }
  std::fseek(f, 0, SEEK_END);
  const long size = std::ftell(f);
  std::fseek(f, 0, SEEK_SET);
  if (size < 0) {
    std::perror(argv[1]);
    return 1;
  }
  auto buffer = std::make_unique_for_overwrite<char[]>(static_cast<size_t>(size));
  const size_t got = std::fread(buffer.get(), 1, static_cast<size_t>(size), f);
  std::fclose(f);
  if (got != static_cast<size_t>(size)) {
    std::fprintf(stderr, "%s: short read\n", argv[1]);
    return 1;
  }

  size_t tags = 0;
  const char* p = buffer.get();
  const char* end = p + got;
  while ((p = static_cast<const char*>(std::memchr(p, '<', static_cast<size_t>(end - p))))) {
    ++tags;
    ++p;
  }
  std::printf("%zu\n", tags);
  return 0;
}
