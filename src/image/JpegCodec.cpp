// JPEG through libjpeg(-turbo). The library reports fatal errors by calling error_exit, which
// must not return; ours longjmps back to the one function that called setjmp. To keep that
// jump well-defined, everything that changes while the library runs lives in a heap-allocated
// state object, and the jumping function holds no object with a destructor.
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>

// jpeglib.h needs size_t and FILE declared before it.
#include <jpeglib.h>

#include "Codecs.h"

namespace rvitunes::image::detail {
namespace {

// Progressive files can carry thousands of tiny scans, each a full pass over the image.
constexpr int kMaxJpegScans = 500;

struct JpegErrorManager {
  jpeg_error_mgr manager;  // first, so that the library's pointer converts back to ours
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX] = {};
};

[[noreturn]] void onJpegError(j_common_ptr info) {
  auto* errors = reinterpret_cast<JpegErrorManager*>(info->err);
  errors->manager.format_message(info, errors->message);
  std::longjmp(errors->jump, 1);
}

// Warnings (corrupt but readable data) are counted, never printed.
void onJpegMessage(j_common_ptr info, int level) {
  if (level < 0) ++info->err->num_warnings;
}

void onJpegProgress(j_common_ptr info) {
  if (!info->is_decompressor) return;
  auto* decompress = reinterpret_cast<j_decompress_ptr>(info);
  if (decompress->input_scan_number > kMaxJpegScans) {
    auto* errors = reinterpret_cast<JpegErrorManager*>(info->err);
    std::snprintf(errors->message, sizeof errors->message, "more than %d scans", kMaxJpegScans);
    std::longjmp(errors->jump, 1);
  }
}

void installErrorHandlers(JpegErrorManager& errors) {
  jpeg_std_error(&errors.manager);
  errors.manager.error_exit = onJpegError;
  errors.manager.emit_message = onJpegMessage;
}

struct DecodeState {
  jpeg_decompress_struct info{};
  JpegErrorManager errors;
  jpeg_progress_mgr progress{};
  bool created = false;
  Status refused;  // set when we stop on our own account (a size limit)
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint8_t> pixels;
  std::vector<uint8_t> row;

  DecodeState() = default;
  DecodeState(const DecodeState&) = delete;
  DecodeState& operator=(const DecodeState&) = delete;
  ~DecodeState() {
    if (created) jpeg_destroy_decompress(&info);
  }
};

// Runs the decoder into `s`. False on failure: s.refused or s.errors.message says why.
bool runDecode(DecodeState& s, std::span<const uint8_t> data, const DecodeLimits& limits) {
  installErrorHandlers(s.errors);
  s.info.err = &s.errors.manager;
  if (setjmp(s.errors.jump)) return false;
  jpeg_create_decompress(&s.info);
  s.created = true;
  s.progress.progress_monitor = onJpegProgress;
  s.info.progress = &s.progress;
  jpeg_mem_src(&s.info, data.data(), static_cast<unsigned long>(data.size()));
  jpeg_read_header(&s.info, TRUE);
  s.refused = limits.check(s.info.image_width, s.info.image_height, "JPEG");
  if (!s.refused.ok()) return false;
  const bool cmyk = s.info.jpeg_color_space == JCS_CMYK || s.info.jpeg_color_space == JCS_YCCK;
  s.info.out_color_space = cmyk ? JCS_CMYK : JCS_EXT_RGBA;
  // The library's own working memory is bounded too (coefficient buffers of progressive files).
  s.info.mem->max_memory_to_use = static_cast<long>(limits.maxPixelBytes * 2);
  jpeg_start_decompress(&s.info);
  s.width = s.info.output_width;
  s.height = s.info.output_height;
  s.pixels.resize(size_t{s.width} * s.height * 4);
  s.row.resize(size_t{s.width} * 4);
  while (s.info.output_scanline < s.info.output_height) {
    const size_t y = s.info.output_scanline;
    uint8_t* out = &s.pixels[y * s.width * 4];
    JSAMPROW rows[1] = {cmyk ? s.row.data() : out};
    if (jpeg_read_scanlines(&s.info, rows, 1) != 1) {
      std::snprintf(s.errors.message, sizeof s.errors.message, "no data at row %zu", y);
      return false;
    }
    if (!cmyk) continue;
    // Adobe writes CMYK inverted (0 = full ink); others write it plain.
    const bool inverted = s.info.saw_Adobe_marker;
    for (size_t x = 0; x < s.width; ++x) {
      unsigned c = s.row[x * 4], m = s.row[x * 4 + 1], yl = s.row[x * 4 + 2], k = s.row[x * 4 + 3];
      if (!inverted) c = 255 - c, m = 255 - m, yl = 255 - yl, k = 255 - k;
      out[x * 4] = static_cast<uint8_t>(c * k / 255);
      out[x * 4 + 1] = static_cast<uint8_t>(m * k / 255);
      out[x * 4 + 2] = static_cast<uint8_t>(yl * k / 255);
      out[x * 4 + 3] = 255;
    }
  }
  jpeg_finish_decompress(&s.info);
  return true;
}

struct EncodeState {
  jpeg_compress_struct info{};
  JpegErrorManager errors;
  bool created = false;
  unsigned char* buffer = nullptr;  // malloc'ed by the library's memory destination
  unsigned long size = 0;
  std::vector<uint8_t> row;

  EncodeState() = default;
  EncodeState(const EncodeState&) = delete;
  EncodeState& operator=(const EncodeState&) = delete;
  ~EncodeState() {
    if (created) jpeg_destroy_compress(&info);
    std::free(buffer);
  }
};

bool runEncode(EncodeState& s, const Image& image, int quality) {
  installErrorHandlers(s.errors);
  s.info.err = &s.errors.manager;
  if (setjmp(s.errors.jump)) return false;
  jpeg_create_compress(&s.info);
  s.created = true;
  jpeg_mem_dest(&s.info, &s.buffer, &s.size);
  s.info.image_width = image.width();
  s.info.image_height = image.height();
  s.info.input_components = 3;
  s.info.in_color_space = JCS_RGB;
  jpeg_set_defaults(&s.info);
  jpeg_set_quality(&s.info, quality, TRUE);
  jpeg_start_compress(&s.info, TRUE);
  s.row.resize(size_t{image.width()} * 3);
  const auto pixels = image.pixels();
  while (s.info.next_scanline < s.info.image_height) {
    const size_t y = s.info.next_scanline;
    for (size_t x = 0; x < image.width(); ++x) {
      const size_t from = (y * image.width() + x) * 4;
      s.row[x * 3] = pixels[from];
      s.row[x * 3 + 1] = pixels[from + 1];
      s.row[x * 3 + 2] = pixels[from + 2];
    }
    JSAMPROW rows[1] = {s.row.data()};
    jpeg_write_scanlines(&s.info, rows, 1);
  }
  jpeg_finish_compress(&s.info);
  return true;
}

}  // namespace

Result<Image> decodeJpeg(std::span<const uint8_t> data, const DecodeLimits& limits) {
  auto state = std::make_unique<DecodeState>();
  if (!runDecode(*state, data, limits)) {
    if (!state->refused.ok()) return state->refused;
    return Status::error(paramErr, std::string("JPEG: ") + state->errors.message);
  }
  return Image::create(state->width, state->height, std::move(state->pixels), limits);
}

Result<std::vector<uint8_t>> encodeJpeg(const Image& image, int quality) {
  auto state = std::make_unique<EncodeState>();
  if (!runEncode(*state, image, quality)) {
    return Status::error(paramErr, std::string("JPEG: ") + state->errors.message);
  }
  return std::vector<uint8_t>(state->buffer, state->buffer + state->size);
}

}  // namespace rvitunes::image::detail
