// The image type of the system (the platform's NSImage): a bitmap of 8-bit RGBA pixels, made
// from encoded data (PNG, JPEG, TIFF, PICT, ICNS) and turned back into PNG, TIFF or JPEG bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "rvitunes/base/Result.h"

namespace rvitunes::image {

// One pixel: straight (not premultiplied) alpha, 255 = opaque.
struct Rgba {
  uint8_t r = 0;
  uint8_t g = 0;
  uint8_t b = 0;
  uint8_t a = 0;
  friend bool operator==(const Rgba&, const Rgba&) = default;
};

// Bounds every decoder checks before it allocates a bitmap: each side at most `maxDimension`
// and width × height × 4 at most `maxPixelBytes`. The defaults allow 16384 × 4096 or
// 8192 × 8192; fuzzers and callers that read untrusted data may lower them.
struct DecodeLimits {
  uint32_t maxDimension = 16384;
  uint64_t maxPixelBytes = uint64_t{256} << 20;

  // Status for a width × height bitmap: success, or memFullErr naming the bound it breaks.
  // `what` starts the message ("PNG", "offset 20: PICT frame").
  Status check(uint64_t width, uint64_t height, const std::string& what) const;
};

// The formats Image::fromData tells apart by their leading bytes.
enum class ImageFormat { kUnknown, kPng, kJpeg, kTiff, kPict, kIcns };

// The format of `data`: PNG, JPEG, TIFF (classic and BigTIFF, either byte order) and ICNS by
// their signatures; PICT by a version opcode at offset 10 (a picture) or 522 (a PICT file with
// its 512-byte header). kUnknown otherwise.
ImageFormat detectImageFormat(std::span<const uint8_t> data);

// "PNG", "JPEG", "TIFF", "PICT", "ICNS" or "unknown".
const char* imageFormatName(ImageFormat format);

// A width × height bitmap, rows top to bottom, each pixel R, G, B, A (straight alpha). A value
// type: copies copy the pixels (a 1024 × 1024 image is 4 MB; pass by reference or move), and a
// default-constructed image is empty (0 × 0). Wrap it in std::shared_ptr<const Image> where a
// shared, reference-counted image is wanted. Thread-compatible.
//
// Failures are Status values: memFullErr for sizes over the DecodeLimits or the encoders'
// bounds, eofErr for data that ends early, paramErr for data that is malformed or uses a
// feature the decoder does not support (the message says which). Our own decoders (PICT, ICNS)
// begin their messages with "offset N: " for the byte where the problem was found; the
// library-backed ones (PNG, JPEG, TIFF) pass on the library's own text after the format name.
class Image {
 public:
  Image() = default;
  // A width × height image with every pixel `fill` (transparent black by default). Both sides
  // must be non-zero and within DecodeLimits' defaults (asserted): use create() for sizes that
  // come from outside.
  Image(uint32_t width, uint32_t height, Rgba fill = {});

  // An image that adopts `rgba` (width × height × 4 bytes). paramErr when the size of `rgba`
  // does not match or a side is zero; memFullErr beyond `limits`.
  static Result<Image> create(uint32_t width, uint32_t height, std::vector<uint8_t> rgba,
                              const DecodeLimits& limits = {});

  // Decodes encoded image data, choosing the decoder by detectImageFormat (NSImage's
  // initWithData:). An ICNS icon family answers its largest image. The data is only read;
  // nothing is kept from it.
  static Result<Image> fromData(std::span<const uint8_t> data, const DecodeLimits& limits = {});
  // As fromData, for the bytes of a string.
  static Result<Image> fromData(std::string_view data, const DecodeLimits& limits = {});
  // Reads the file at `path` (at most 64 MB) through the default file system and decodes it.
  // The file system's Status when it cannot be read.
  static Result<Image> fromFile(const std::string& path, const DecodeLimits& limits = {});

  uint32_t width() const { return width_; }
  uint32_t height() const { return height_; }
  bool empty() const { return width_ == 0 || height_ == 0; }

  // The pixel bytes, width × height × 4, row after row without padding.
  std::span<const uint8_t> pixels() const { return pixels_; }
  std::span<uint8_t> mutablePixels() { return pixels_; }
  // Pixel (x, y), x < width and y < height (asserted).
  Rgba pixel(uint32_t x, uint32_t y) const;
  void setPixel(uint32_t x, uint32_t y, Rgba value);

  // True when some pixel's alpha is below 255.
  bool hasTransparency() const;

  // The image scaled to width × height (each non-zero) by averaging the covered source area in
  // premultiplied space, so that transparent pixels do not darken the edges. Meant for making
  // the small sizes of an icon from a large drawing; upscaling repeats pixels.
  Image resized(uint32_t width, uint32_t height) const;

  // TIFF bytes: one 8-bit RGBA page with unassociated (straight) alpha, uncompressed, or
  // deflate-compressed when `deflate` is true. paramErr for an empty image.
  Result<std::vector<uint8_t>> tiffRepresentation(bool deflate = false) const;
  // PNG bytes: 8-bit RGBA, non-interlaced. paramErr for an empty image.
  Result<std::vector<uint8_t>> pngRepresentation() const;
  // Baseline JPEG bytes at `quality` (1-100); the alpha channel is dropped (colour kept as is,
  // not composited over a background). paramErr for an empty image or a quality out of range.
  Result<std::vector<uint8_t>> jpegRepresentation(int quality = 90) const;

  friend bool operator==(const Image&, const Image&) = default;

 private:
  struct Adopt {};
  Image(Adopt, uint32_t width, uint32_t height, std::vector<uint8_t> rgba)
      : width_(width), height_(height), pixels_(std::move(rgba)) {}

  uint32_t width_ = 0;
  uint32_t height_ = 0;
  std::vector<uint8_t> pixels_;
};

}  // namespace rvitunes::image
