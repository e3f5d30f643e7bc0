// Helpers shared by the image tests: a test pattern, a byte builder, files, peer programs.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>
#include <vector>

#include "rvitunes/image/Image.h"

namespace rvitunes::image::test {

using Bytes = std::vector<uint8_t>;

// Structure in every channel (gradients, stripes, every alpha level when `alpha`), so that plane
// mix-ups, row offsets and lost alpha all show.
inline Image pattern(uint32_t width, uint32_t height, bool alpha) {
  Image image(width, height);
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x)
      image.setPixel(x, y,
                     Rgba{static_cast<uint8_t>(x * 7 + y), static_cast<uint8_t>(y * 13 + x / 3),
                          static_cast<uint8_t>((x / 4) * 40 + y % 3),
                          static_cast<uint8_t>(alpha ? (x + 2 * y) * 9 : 255)});
  return image;
}

inline Image opaque(Image image) {
  auto px = image.mutablePixels();
  for (size_t i = 3; i < px.size(); i += 4)
    px[i] = 255;
  return image;
}

// The largest difference of any channel (alpha only when `withAlpha`); 256 for other sizes.
inline int maxDifference(const Image& a, const Image& b, bool withAlpha = true) {
  if (a.width() != b.width() || a.height() != b.height()) return 256;
  int worst = 0;
  for (size_t i = 0; i < a.pixels().size(); ++i)
    if (withAlpha || i % 4 != 3) worst = std::max(worst, std::abs(a.pixels()[i] - b.pixels()[i]));
  return worst;
}

// Big-endian byte builder for hand-made pictures and icon families.
class Builder {
 public:
  Builder& u8(unsigned v) { return bytes_.push_back(static_cast<uint8_t>(v)), *this; }
  Builder& u16(unsigned v) { return u8(v >> 8).u8(v); }
  Builder& u32(uint32_t v) { return u16(v >> 16).u16(v & 0xFFFF); }
  Builder& rect(int top, int left, int bottom, int right) {
    return u16(top).u16(left).u16(bottom).u16(right);  // int16 as its two's complement
  }
  Builder& text(const std::string& s) { return append(Bytes(s.begin(), s.end())); }
  Builder& append(std::span<const uint8_t> more) {
    return bytes_.insert(bytes_.end(), more.begin(), more.end()), *this;
  }
  Builder& zeros(size_t n) { return bytes_.insert(bytes_.end(), n, 0), *this; }
  Builder& align() { return bytes_.size() & 1 ? u8(0) : *this; }  // version-2 word alignment
  size_t size() const { return bytes_.size(); }
  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_;
};

inline Bytes readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeFile(const std::filesystem::path& path, std::span<const uint8_t> bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

inline std::filesystem::path corpus(const std::string& name) {
  return std::filesystem::path(RVITUNES_SOURCE_DIR) / "tests/corpus/image" / name;
}

// Decodes a file with Image::fromData; an empty image (and a test failure) when it fails.
inline Image decodeFile(const std::filesystem::path& path) {
  auto image = Image::fromData(std::span<const uint8_t>(readFile(path)));
  EXPECT_TRUE(image.ok()) << path << ": " << image.status().toString();
  return image.ok() ? std::move(image).value() : Image();
}

// A scratch directory, removed with the object.
class ScratchDir {
 public:
  ScratchDir() {
    std::string name = (std::filesystem::temp_directory_path() / "rvitunes-image.XXXXXX").string();
    if (mkdtemp(name.data())) path_ = name;
  }
  ~ScratchDir() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

inline bool havePeer(const std::string& program) {
  return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

// Runs a shell command; its exit status, with stdout and stderr in `output`.
inline int run(const std::string& command, std::string* output = nullptr) {
  FILE* pipe = popen(("( " + command + " ) 2>&1").c_str(), "r");
  if (!pipe) return -1;
  std::string text;
  char buffer[4096];
  for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
    text.append(buffer, n);
  const int status = pclose(pipe);
  if (output) *output = text;
  return status;
}

}  // namespace rvitunes::image::test
