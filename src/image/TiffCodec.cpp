// TIFF through libtiff, on memory buffers (TIFFClientOpenExt with our read, write and seek
// procedures). Errors and warnings go to per-handle handlers that record the text: nothing is
// printed and nothing jumps.
#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

#include "Codecs.h"

namespace rvitunes::image::detail {
namespace {

// The stream libtiff reads from or writes to, and the first error it reported.
struct TiffStream {
  std::span<const uint8_t> input;          // reading
  std::vector<uint8_t>* output = nullptr;  // writing
  uint64_t position = 0;
  std::string error;

  uint64_t size() const { return output ? output->size() : input.size(); }
};

tmsize_t readProc(thandle_t handle, void* buffer, tmsize_t size) {
  auto* s = static_cast<TiffStream*>(handle);
  if (size < 0 || s->output) return -1;
  if (s->position >= s->input.size()) return 0;
  const uint64_t n = std::min<uint64_t>(static_cast<uint64_t>(size), s->input.size() - s->position);
  std::memcpy(buffer, s->input.data() + s->position, n);
  s->position += n;
  return static_cast<tmsize_t>(n);
}

// Output is bounded by what the encoder writes for an image of at most DecodeLimits' size.
constexpr uint64_t kMaxTiffOutput = uint64_t{1} << 31;

tmsize_t writeProc(thandle_t handle, void* buffer, tmsize_t size) {
  auto* s = static_cast<TiffStream*>(handle);
  if (size < 0 || !s->output) return -1;
  const uint64_t end = s->position + static_cast<uint64_t>(size);
  if (end > kMaxTiffOutput) return -1;
  if (end > s->output->size()) s->output->resize(end);
  std::memcpy(s->output->data() + s->position, buffer, static_cast<size_t>(size));
  s->position = end;
  return size;
}

toff_t seekProc(thandle_t handle, toff_t offset, int whence) {
  auto* s = static_cast<TiffStream*>(handle);
  uint64_t base = 0;
  if (whence == SEEK_CUR) base = s->position;
  if (whence == SEEK_END) base = s->size();
  const uint64_t to = base + offset;
  if (to < base || to > kMaxTiffOutput) return static_cast<toff_t>(-1);
  s->position = to;
  return to;
}

int closeProc(thandle_t) {
  return 0;
}
toff_t sizeProc(thandle_t handle) {
  return static_cast<TiffStream*>(handle)->size();
}
int mapProc(thandle_t, void**, toff_t*) {
  return 0;
}
void unmapProc(thandle_t, void*, toff_t) {}

int onTiffError(TIFF*, void* user, const char* module, const char* format, va_list args) {
  auto* s = static_cast<TiffStream*>(user);
  if (s->error.empty()) {
    char text[512];
    std::vsnprintf(text, sizeof text, format, args);
    s->error = module && *module ? std::string(module) + ": " + text : text;
  }
  return 1;
}

int onTiffWarning(TIFF*, void*, const char*, const char*, va_list) {
  return 1;
}

struct TiffCloser {
  void operator()(TIFF* tif) const { TIFFClose(tif); }
};
using TiffHandle = std::unique_ptr<TIFF, TiffCloser>;

struct OptionsDeleter {
  void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};

TiffHandle open(TiffStream& stream, const char* mode, uint64_t maxAllocation) {
  std::unique_ptr<TIFFOpenOptions, OptionsDeleter> options(TIFFOpenOptionsAlloc());
  if (!options) return nullptr;
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), static_cast<tmsize_t>(maxAllocation));
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), onTiffError, &stream);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), onTiffWarning, &stream);
  return TiffHandle(TIFFClientOpenExt("memory", mode, &stream, readProc, writeProc, seekProc,
                                      closeProc, sizeProc, mapProc, unmapProc, options.get()));
}

Status tiffError(const TiffStream& stream, const char* step) {
  return Status::error(paramErr, std::string("TIFF: ") + step + ": " +
                                     (stream.error.empty() ? "failed" : stream.error));
}

uint8_t unpremultiply(uint8_t c, uint8_t a) {
  if (a == 0 || a == 255) return c;
  return static_cast<uint8_t>(std::min(255u, (c * 255u + a / 2u) / a));
}

// The common layouts, read strip by strip: 8-bit, interleaved, greyscale or RGB with an optional
// alpha sample, stored top-down in strips. Anything else goes through TIFFReadRGBAImage.
struct Layout {
  uint16_t samples = 0;
  bool grey = false;
  bool whiteIsZero = false;
  int alphaSample = -1;  // index of the alpha sample, -1 for none
  bool premultiplied = false;
};

// More samples than this (a TIFF may declare 65535) go the general way, which refuses them.
constexpr uint16_t kMaxSimpleSamples = 8;

bool simpleLayout(TIFF* tif, Layout& layout) {
  uint16_t bits = 0, samples = 0, photometric = 0, planar = 0, orientation = 0, format = 0;
  TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &bits);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &samples);
  TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planar);
  TIFFGetFieldDefaulted(tif, TIFFTAG_ORIENTATION, &orientation);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &format);
  if (!TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric)) return false;
  if (bits != 8 || planar != PLANARCONFIG_CONTIG || orientation != ORIENTATION_TOPLEFT ||
      format != SAMPLEFORMAT_UINT || TIFFIsTiled(tif))
    return false;
  uint16_t extraCount = 0;
  uint16_t* extraTypes = nullptr;
  TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &extraCount, &extraTypes);
  layout.samples = samples;
  if (photometric == PHOTOMETRIC_RGB) {
    if (samples < 3) return false;
  } else if (photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE) {
    layout.grey = true;
    layout.whiteIsZero = photometric == PHOTOMETRIC_MINISWHITE;
  } else {
    return false;
  }
  const int colour = layout.grey ? 1 : 3;
  if (samples < colour || samples > kMaxSimpleSamples) return false;
  if (samples > colour && extraCount > 0 && extraTypes) {
    if (extraTypes[0] == EXTRASAMPLE_ASSOCALPHA || extraTypes[0] == EXTRASAMPLE_UNASSALPHA) {
      layout.alphaSample = colour;
      layout.premultiplied = extraTypes[0] == EXTRASAMPLE_ASSOCALPHA;
    }
  }
  return true;
}

Status readSimple(TIFF* tif, TiffStream& stream, const Layout& layout, uint32_t width,
                  uint32_t height, std::vector<uint8_t>& pixels) {
  const uint64_t lineBytes = uint64_t{width} * layout.samples;
  if (static_cast<uint64_t>(TIFFScanlineSize64(tif)) < lineBytes) {
    return Status::error(paramErr, "TIFF: scanline size does not match the image width");
  }
  uint32_t rowsPerStrip = 0;
  TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
  rowsPerStrip = std::clamp<uint32_t>(rowsPerStrip, 1, height);
  const uint64_t stripBytes = lineBytes * rowsPerStrip;
  std::vector<uint8_t> strip(stripBytes);
  for (uint32_t top = 0; top < height; top += rowsPerStrip) {
    const uint32_t rows = std::min(rowsPerStrip, height - top);
    const tmsize_t want = static_cast<tmsize_t>(lineBytes * rows);
    const tmsize_t got =
        TIFFReadEncodedStrip(tif, TIFFComputeStrip(tif, top, 0), strip.data(), want);
    if (got < want) return tiffError(stream, ("strip at row " + std::to_string(top)).c_str());
    for (uint32_t r = 0; r < rows; ++r) {
      const uint8_t* in = &strip[r * lineBytes];
      uint8_t* out = &pixels[(size_t{top} + r) * width * 4];
      for (uint32_t x = 0; x < width; ++x, in += layout.samples, out += 4) {
        const uint8_t a = layout.alphaSample >= 0 ? in[layout.alphaSample] : 255;
        if (layout.grey) {
          const uint8_t v = layout.whiteIsZero ? static_cast<uint8_t>(255 - in[0]) : in[0];
          out[0] = out[1] = out[2] = v;
        } else {
          out[0] = in[0], out[1] = in[1], out[2] = in[2];
        }
        if (layout.premultiplied) {
          for (int c = 0; c < 3; ++c)
            out[c] = unpremultiply(out[c], a);
        }
        out[3] = a;
      }
    }
  }
  return Status();
}

Status readGeneral(TIFF* tif, TiffStream& stream, uint32_t width, uint32_t height,
                   std::vector<uint8_t>& pixels) {
  char reason[1024] = {};
  if (!TIFFRGBAImageOK(tif, reason)) {
    return Status::error(paramErr, std::string("TIFF: unsupported layout: ") + reason);
  }
  std::vector<uint32_t> raster(size_t{width} * height);
  if (!TIFFReadRGBAImageOriented(tif, width, height, raster.data(), ORIENTATION_TOPLEFT, 0)) {
    return tiffError(stream, "data");
  }
  // libtiff premultiplies unassociated alpha on the way; undo it so that alpha stays straight.
  uint16_t extraCount = 0;
  uint16_t* extraTypes = nullptr;
  TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &extraCount, &extraTypes);
  const bool premultiplied =
      extraCount > 0 && extraTypes &&
      (extraTypes[0] == EXTRASAMPLE_UNASSALPHA || extraTypes[0] == EXTRASAMPLE_ASSOCALPHA);
  for (size_t i = 0; i < raster.size(); ++i) {
    const uint32_t v = raster[i];
    const auto a = static_cast<uint8_t>(TIFFGetA(v));
    uint8_t* out = &pixels[i * 4];
    out[0] = static_cast<uint8_t>(TIFFGetR(v));
    out[1] = static_cast<uint8_t>(TIFFGetG(v));
    out[2] = static_cast<uint8_t>(TIFFGetB(v));
    if (premultiplied) {
      for (int c = 0; c < 3; ++c)
        out[c] = unpremultiply(out[c], a);
    }
    out[3] = a;
  }
  return Status();
}

}  // namespace

Result<Image> decodeTiff(std::span<const uint8_t> data, const DecodeLimits& limits) {
  TiffStream stream;
  stream.input = data;
  // One strip or tile may hold the whole image at up to 16 bytes a pixel.
  TiffHandle tif = open(stream, "rm", limits.maxPixelBytes * 4 + (uint64_t{1} << 20));
  if (!tif) return tiffError(stream, "header");
  uint32_t width = 0, height = 0;
  if (!TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &width) ||
      !TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &height)) {
    return tiffError(stream, "size");
  }
  if (Status s = limits.check(width, height, "TIFF"); !s.ok()) return s;
  std::vector<uint8_t> pixels(size_t{width} * height * 4);
  Layout layout;
  Status status = simpleLayout(tif.get(), layout)
                      ? readSimple(tif.get(), stream, layout, width, height, pixels)
                      : readGeneral(tif.get(), stream, width, height, pixels);
  if (!status.ok()) return status;
  return Image::create(width, height, std::move(pixels), limits);
}

Result<std::vector<uint8_t>> encodeTiff(const Image& image, bool deflate) {
  std::vector<uint8_t> out;
  TiffStream stream;
  stream.output = &out;
  TiffHandle tif = open(stream, "w", kMaxTiffOutput);
  if (!tif) return tiffError(stream, "open");
  TIFF* t = tif.get();
  const uint16_t extra[] = {EXTRASAMPLE_UNASSALPHA};
  const bool fieldsSet =
      TIFFSetField(t, TIFFTAG_IMAGEWIDTH, image.width()) &&
      TIFFSetField(t, TIFFTAG_IMAGELENGTH, image.height()) &&
      TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8) && TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 4) &&
      TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB) &&
      TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
      TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, extra) &&
      TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
      TIFFSetField(t, TIFFTAG_COMPRESSION,
                   deflate ? COMPRESSION_ADOBE_DEFLATE : COMPRESSION_NONE) &&
      TIFFSetField(t, TIFFTAG_XRESOLUTION, 72.0) && TIFFSetField(t, TIFFTAG_YRESOLUTION, 72.0) &&
      TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH) &&
      TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
  if (!fieldsSet) return tiffError(stream, "fields");
  std::vector<uint8_t> row(size_t{image.width()} * 4);
  const auto pixels = image.pixels();
  for (uint32_t y = 0; y < image.height(); ++y) {
    std::copy_n(pixels.begin() + static_cast<ptrdiff_t>(row.size() * y), row.size(), row.begin());
    if (TIFFWriteScanline(t, row.data(), y, 0) < 0) return tiffError(stream, "data");
  }
  if (!TIFFFlush(t)) return tiffError(stream, "flush");
  tif.reset();
  if (!stream.error.empty()) return tiffError(stream, "close");
  return out;
}

}  // namespace rvitunes::image::detail
