#include "rvitunes/image/Image.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstring>

#include "Codecs.h"
#include "rvitunes/base/FileSystem.h"
#include "rvitunes/image/IconFamily.h"
#include "rvitunes/image/Pict.h"

namespace rvitunes::image {
namespace {

constexpr uint64_t kMaxImageFileBytes = uint64_t{64} << 20;

bool isPictVersionAt(std::span<const uint8_t> data, size_t at) {
  if (data.size() >= at + 4 && data[at] == 0x00 && data[at + 1] == 0x11 && data[at + 2] == 0x02 &&
      data[at + 3] == 0xFF)
    return true;
  return data.size() >= at + 2 && data[at] == 0x11 && data[at + 1] == 0x01;
}

}  // namespace

namespace detail {

Status errorAt(size_t offset, const std::string& message, OSStatus code) {
  return Status::error(code, "offset " + std::to_string(offset) + ": " + message);
}

bool startsWith(std::span<const uint8_t> data, std::span<const uint8_t> signature) {
  return data.size() >= signature.size() &&
         std::equal(signature.begin(), signature.end(), data.begin());
}

}  // namespace detail

Status DecodeLimits::check(uint64_t width, uint64_t height, const std::string& what) const {
  const std::string size = std::to_string(width) + "x" + std::to_string(height);
  if (width == 0 || height == 0) return Status::error(paramErr, what + ": empty size " + size);
  if (width > maxDimension || height > maxDimension) {
    return Status::error(memFullErr, what + ": size " + size + " exceeds the limit of " +
                                         std::to_string(maxDimension) + " pixels a side");
  }
  if (width * height * 4 > maxPixelBytes) {
    return Status::error(memFullErr, what + ": size " + size + " needs more than the limit of " +
                                         std::to_string(maxPixelBytes) + " bytes");
  }
  return Status();
}

ImageFormat detectImageFormat(std::span<const uint8_t> data) {
  static constexpr uint8_t kJpeg[] = {0xFF, 0xD8, 0xFF};
  static constexpr uint8_t kTiffLittle[] = {'I', 'I', 42, 0};
  static constexpr uint8_t kTiffBig[] = {'M', 'M', 0, 42};
  static constexpr uint8_t kBigTiffLittle[] = {'I', 'I', 43, 0};
  static constexpr uint8_t kBigTiffBig[] = {'M', 'M', 0, 43};
  static constexpr uint8_t kIcns[] = {'i', 'c', 'n', 's'};
  using detail::startsWith;
  if (startsWith(data, detail::kPngSignature)) return ImageFormat::kPng;
  if (startsWith(data, kJpeg)) return ImageFormat::kJpeg;
  if (startsWith(data, kTiffLittle) || startsWith(data, kTiffBig) ||
      startsWith(data, kBigTiffLittle) || startsWith(data, kBigTiffBig))
    return ImageFormat::kTiff;
  if (startsWith(data, kIcns)) return ImageFormat::kIcns;
  if (isPictVersionAt(data, 10) || isPictVersionAt(data, 522)) return ImageFormat::kPict;
  return ImageFormat::kUnknown;
}

const char* imageFormatName(ImageFormat format) {
  switch (format) {
    case ImageFormat::kPng:
      return "PNG";
    case ImageFormat::kJpeg:
      return "JPEG";
    case ImageFormat::kTiff:
      return "TIFF";
    case ImageFormat::kPict:
      return "PICT";
    case ImageFormat::kIcns:
      return "ICNS";
    case ImageFormat::kUnknown:
      break;
  }
  return "unknown";
}

Image::Image(uint32_t width, uint32_t height, Rgba fill) : width_(width), height_(height) {
  assert(DecodeLimits().check(width, height, "Image").ok());
  pixels_.resize(size_t{width} * height * 4);
  for (size_t i = 0; i < pixels_.size(); i += 4) {
    pixels_[i] = fill.r;
    pixels_[i + 1] = fill.g;
    pixels_[i + 2] = fill.b;
    pixels_[i + 3] = fill.a;
  }
}

Result<Image> Image::create(uint32_t width, uint32_t height, std::vector<uint8_t> rgba,
                            const DecodeLimits& limits) {
  if (Status s = limits.check(width, height, "image"); !s.ok()) return s;
  if (rgba.size() != uint64_t{width} * height * 4) {
    return Status::error(paramErr, "image: " + std::to_string(rgba.size()) +
                                       " pixel bytes for a size of " + std::to_string(width) + "x" +
                                       std::to_string(height));
  }
  return Image(Adopt{}, width, height, std::move(rgba));
}

Result<Image> Image::fromData(std::span<const uint8_t> data, const DecodeLimits& limits) {
  switch (detectImageFormat(data)) {
    case ImageFormat::kPng:
      return detail::decodePng(data, limits);
    case ImageFormat::kJpeg:
      return detail::decodeJpeg(data, limits);
    case ImageFormat::kTiff:
      return detail::decodeTiff(data, limits);
    case ImageFormat::kPict:
      return decodePict(data, limits);
    case ImageFormat::kIcns: {
      auto family = IconFamily::read(data, limits);
      if (!family) return family.status();
      return family->largest();
    }
    case ImageFormat::kUnknown:
      break;
  }
  return Status::error(paramErr,
                       "offset 0: not an image format we read (PNG, JPEG, TIFF, PICT, ICNS)");
}

Result<Image> Image::fromData(std::string_view data, const DecodeLimits& limits) {
  return fromData(
      std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(data.data()), data.size()), limits);
}

Result<Image> Image::fromFile(const std::string& path, const DecodeLimits& limits) {
  auto bytes = FileSystem::defaultFileSystem().readFile(path, kMaxImageFileBytes);
  if (!bytes) return bytes.status();
  auto image = fromData(*bytes, limits);
  if (!image) {
    return Status::error(image.status().code(), path + ": " + image.status().message());
  }
  return image;
}

Rgba Image::pixel(uint32_t x, uint32_t y) const {
  assert(x < width_ && y < height_);
  const uint8_t* p = &pixels_[(size_t{y} * width_ + x) * 4];
  return {p[0], p[1], p[2], p[3]};
}

void Image::setPixel(uint32_t x, uint32_t y, Rgba value) {
  assert(x < width_ && y < height_);
  uint8_t* p = &pixels_[(size_t{y} * width_ + x) * 4];
  p[0] = value.r;
  p[1] = value.g;
  p[2] = value.b;
  p[3] = value.a;
}

bool Image::hasTransparency() const {
  for (size_t i = 3; i < pixels_.size(); i += 4) {
    if (pixels_[i] != 255) return true;
  }
  return false;
}

Image Image::resized(uint32_t width, uint32_t height) const {
  assert(!empty());
  Image out(width, height);
  // For each destination pixel, the source area it covers: [x0, x1) × [y0, y1) in source
  // pixel units. Colours are accumulated premultiplied and weighted by covered area.
  const double sx = static_cast<double>(width_) / width;
  const double sy = static_cast<double>(height_) / height;
  for (uint32_t dy = 0; dy < height; ++dy) {
    const double y0 = dy * sy;
    const double y1 = std::min<double>(height_, (dy + 1) * sy);
    for (uint32_t dx = 0; dx < width; ++dx) {
      const double x0 = dx * sx;
      const double x1 = std::min<double>(width_, (dx + 1) * sx);
      double r = 0, g = 0, b = 0, a = 0, area = 0;
      for (auto y = static_cast<uint32_t>(y0); y < height_ && y < y1; ++y) {
        const double wy = std::min<double>(y + 1, y1) - std::max<double>(y, y0);
        for (auto x = static_cast<uint32_t>(x0); x < width_ && x < x1; ++x) {
          const double w = wy * (std::min<double>(x + 1, x1) - std::max<double>(x, x0));
          if (w <= 0) continue;
          const uint8_t* p = &pixels_[(size_t{y} * width_ + x) * 4];
          const double pa = p[3] * w;
          r += p[0] * pa;
          g += p[1] * pa;
          b += p[2] * pa;
          a += pa;
          area += w;
        }
      }
      Rgba px;
      if (area > 0 && a > 0) {
        px.r = static_cast<uint8_t>(std::lround(std::clamp(r / a, 0.0, 255.0)));
        px.g = static_cast<uint8_t>(std::lround(std::clamp(g / a, 0.0, 255.0)));
        px.b = static_cast<uint8_t>(std::lround(std::clamp(b / a, 0.0, 255.0)));
        px.a = static_cast<uint8_t>(std::lround(std::clamp(a / area, 0.0, 255.0)));
      }
      out.setPixel(dx, dy, px);
    }
  }
  return out;
}

Result<std::vector<uint8_t>> Image::tiffRepresentation(bool deflate) const {
  if (empty()) return Status::error(paramErr, "TIFF: the image is empty");
  return detail::encodeTiff(*this, deflate);
}

Result<std::vector<uint8_t>> Image::pngRepresentation() const {
  if (empty()) return Status::error(paramErr, "PNG: the image is empty");
  return detail::encodePng(*this);
}

Result<std::vector<uint8_t>> Image::jpegRepresentation(int quality) const {
  if (empty()) return Status::error(paramErr, "JPEG: the image is empty");
  if (quality < 1 || quality > 100) {
    return Status::error(paramErr, "JPEG: quality " + std::to_string(quality) + " outside 1-100");
  }
  return detail::encodeJpeg(*this, quality);
}

}  // namespace rvitunes::image
