// rvitunes_icongen: draws the framework's forty playlist icons and writes them as icon
// families ("lumo-<name>.icns" and "lumo-<name>-dark.icns"), optionally with a contact sheet.
//
//   rvitunes_icongen OUTDIR [--sheet FILE.png] [--max-size 256|512]   (256 by default)
//
// Each size is drawn from the shapes, not scaled down from a larger one, so that the small
// sizes stay sharp.

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "Glyphs.h"
#include "Raster.h"
#include "rvitunes/image/IconFamily.h"

namespace {

using rvitunes::image::IconFamily;
using rvitunes::image::Image;
using rvitunes::image::Rgba;
namespace ig = rvitunes::icongen;

bool writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out);
}

// More samples for the small sizes, where every edge pixel shows.
int samplesFor(uint32_t size) {
  return size <= 32 ? 8 : 4;
}

// Light band with the normal icons over dark band with the dark ones; each cell shows the
// 128-pixel image and, below it, the 32- and 16-pixel images at their real size.
Image contactSheet(const std::vector<std::string_view>& names) {
  constexpr int kColumns = 10, kCellW = 160, kCellH = 184, kPad = 16;
  const int rows = static_cast<int>((names.size() + kColumns - 1) / kColumns);
  const int bandH = rows * kCellH + kPad;
  Image sheet(kColumns * kCellW + kPad, static_cast<uint32_t>(2 * bandH));
  const Rgba backgrounds[2] = {{0xF4, 0xF5, 0xF7, 0xFF}, {0x1E, 0x21, 0x26, 0xFF}};
  for (uint32_t y = 0; y < sheet.height(); ++y) {
    for (uint32_t x = 0; x < sheet.width(); ++x) {
      sheet.setPixel(x, y, backgrounds[y < static_cast<uint32_t>(bandH) ? 0 : 1]);
    }
  }
  for (int band = 0; band < 2; ++band) {
    for (size_t i = 0; i < names.size(); ++i) {
      const int x = kPad + static_cast<int>(i % kColumns) * kCellW;
      const int y = band * bandH + kPad + static_cast<int>(i / kColumns) * kCellH;
      const ig::Drawing drawing = ig::drawGlyph(names[i], band == 1);
      ig::composite(sheet, ig::render(drawing, 128, 4), x, y);
      ig::composite(sheet, ig::render(drawing, 32, 8), x + 24, y + 136);
      ig::composite(sheet, ig::render(drawing, 16, 8), x + 80, y + 144);
    }
  }
  return sheet;
}

}  // namespace

int main(int argc, char** argv) {
  std::string outDir, sheetPath;
  uint32_t maxSize = 256;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--sheet") == 0 && i + 1 < argc) {
      sheetPath = argv[++i];
    } else if (std::strcmp(argv[i], "--max-size") == 0 && i + 1 < argc) {
      maxSize = static_cast<uint32_t>(std::strtoul(argv[++i], nullptr, 10));
    } else if (argv[i][0] != '-' && outDir.empty()) {
      outDir = argv[i];
    } else {
      std::fprintf(stderr, "usage: rvitunes_icongen OUTDIR [--sheet FILE.png] [--max-size N]\n");
      return 2;
    }
  }
  if (outDir.empty()) {
    std::fprintf(stderr, "usage: rvitunes_icongen OUTDIR [--sheet FILE.png] [--max-size N]\n");
    return 2;
  }

  size_t total = 0;
  for (std::string_view name : ig::glyphNames()) {
    for (bool dark : {false, true}) {
      const ig::Drawing drawing = ig::drawGlyph(name, dark);
      std::vector<Image> images;
      for (uint32_t size : {16u, 32u, 128u, 256u, 512u}) {
        if (size <= maxSize) images.push_back(ig::render(drawing, size, samplesFor(size)));
      }
      auto bytes = IconFamily::write(images);
      const std::string path =
          outDir + "/lumo-" + std::string(name) + (dark ? "-dark" : "") + ".icns";
      if (!bytes) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), bytes.status().toString().c_str());
        return 1;
      }
      if (!writeFile(path, *bytes)) {
        std::fprintf(stderr, "%s: cannot write\n", path.c_str());
        return 1;
      }
      total += bytes->size();
      std::printf("%-40s %7zu bytes\n", path.c_str(), bytes->size());
    }
  }
  std::printf("total %zu bytes\n", total);

  if (!sheetPath.empty()) {
    auto png = contactSheet(ig::glyphNames()).pngRepresentation();
    if (!png || !writeFile(sheetPath, *png)) {
      std::fprintf(stderr, "%s: cannot write the contact sheet\n", sheetPath.c_str());
      return 1;
    }
  }
  return 0;
}
