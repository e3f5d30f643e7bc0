// The library-backed codecs behind Image, and helpers our own codecs share. Internal to the
// image layer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "rvitunes/base/Result.h"
#include "rvitunes/image/Image.h"

namespace rvitunes::image::detail {

// PNG through libpng's simplified interface (no longjmp reaches our frames).
Result<Image> decodePng(std::span<const uint8_t> data, const DecodeLimits& limits);
Result<std::vector<uint8_t>> encodePng(const Image& image);

// JPEG through libjpeg(-turbo). Greyscale, YCbCr, RGB, CMYK and YCCK inputs; opaque output.
Result<Image> decodeJpeg(std::span<const uint8_t> data, const DecodeLimits& limits);
Result<std::vector<uint8_t>> encodeJpeg(const Image& image, int quality);

// TIFF through libtiff, reading and writing in memory. The first page only.
Result<Image> decodeTiff(std::span<const uint8_t> data, const DecodeLimits& limits);
Result<std::vector<uint8_t>> encodeTiff(const Image& image, bool deflate);

// "offset N: message", paramErr or the given code.
Status errorAt(size_t offset, const std::string& message, OSStatus code = paramErr);

// True when `data` starts with `signature`.
bool startsWith(std::span<const uint8_t> data, std::span<const uint8_t> signature);

inline constexpr uint8_t kPngSignature[] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};

}  // namespace rvitunes::image::detail
