// PNG through libpng's simplified interface: it reports failures in png_image::message instead
// of jumping out, so no longjmp ever crosses our frames.
#include <png.h>

#include <memory>

#include "Codecs.h"

namespace rvitunes::image::detail {
namespace {

// Frees what libpng holds for a png_image on every path (safe after libpng freed it itself).
struct PngImageGuard {
  png_image image{};
  PngImageGuard() { image.version = PNG_IMAGE_VERSION; }
  ~PngImageGuard() { png_image_free(&image); }
  PngImageGuard(const PngImageGuard&) = delete;
  PngImageGuard& operator=(const PngImageGuard&) = delete;
};

Status pngError(const png_image& image, const char* step) {
  return Status::error(
      paramErr, std::string("PNG: ") + step + ": " + (image.message[0] ? image.message : "failed"));
}

}  // namespace

Result<Image> decodePng(std::span<const uint8_t> data, const DecodeLimits& limits) {
  PngImageGuard guard;
  png_image& image = guard.image;
  if (!png_image_begin_read_from_memory(&image, data.data(), data.size())) {
    return pngError(image, "header");
  }
  if (Status s = limits.check(image.width, image.height, "PNG"); !s.ok()) return s;
  image.format = PNG_FORMAT_RGBA;
  std::vector<uint8_t> pixels(PNG_IMAGE_SIZE(image));
  if (!png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr)) {
    return pngError(image, "data");
  }
  return Image::create(image.width, image.height, std::move(pixels), limits);
}

Result<std::vector<uint8_t>> encodePng(const Image& source) {
  PngImageGuard guard;
  png_image& image = guard.image;
  image.width = source.width();
  image.height = source.height();
  image.format = PNG_FORMAT_RGBA;
  png_alloc_size_t size = 0;
  // The first call measures, the second writes into a buffer of that size.
  if (!png_image_write_get_memory_size(image, size, 0, source.pixels().data(), 0, nullptr)) {
    return pngError(image, "encode");
  }
  std::vector<uint8_t> out(size);
  if (!png_image_write_to_memory(&image, out.data(), &size, 0, source.pixels().data(), 0,
                                 nullptr)) {
    return pngError(image, "encode");
  }
  out.resize(size);
  return out;
}

}  // namespace rvitunes::image::detail
