#include "Glyphs.h"

#include <cmath>
#include <functional>
#include <map>
#include <string>

namespace rvitunes::icongen {
namespace {

using image::Rgba;

// Ink and accents. The dark variant swaps the ink for a near-white and lifts every accent
// towards white, so that the shapes keep their contrast on a dark list.
struct Palette {
  Rgba ink;
  Rgba accent;
  Rgba alert;  // the badge of the expiring rentals
};

constexpr Rgba kInkLight{0x2B, 0x36, 0x45, 0xFF};
constexpr Rgba kInkDark{0xEE, 0xF1, 0xF5, 0xFF};
constexpr Rgba kAlert{0xE0, 0x3C, 0x31, 0xFF};

Rgba lighten(Rgba c, double amount) {
  auto up = [&](uint8_t v) { return static_cast<uint8_t>(std::lround(v + (255 - v) * amount)); };
  return {up(c.r), up(c.g), up(c.b), c.a};
}

Palette paletteFor(Rgba accent, bool dark) {
  if (!dark) return {kInkLight, accent, kAlert};
  return {kInkDark, lighten(accent, 0.28), lighten(kAlert, 0.2)};
}

Layer fill(Shape s, Rgba c) {
  return {std::move(s), c, Paint::kFill};
}
Layer erase(Shape s) {
  return {std::move(s), {}, Paint::kErase};
}

// ---- shared parts ------------------------------------------------------------------------

// The three lines of a list, the last one short to leave room for a badge at the lower right.
void listLines(Drawing& d, const Palette& p) {
  d.push_back(fill(line({14, 20}, {86, 20}, 10), p.ink));
  d.push_back(fill(line({14, 39}, {86, 39}, 10), p.ink));
  d.push_back(fill(line({14, 58}, {48, 58}, 10), p.ink));
}

// An atom: three orbits and a nucleus, centred on c with orbit radius r.
void atom(Drawing& d, Vec c, double r, double width, Rgba orbit, Rgba nucleus) {
  for (double angle : {0.0, 60.0, 120.0}) {
    d.push_back(fill(stroke(ellipse(c, r, r * 0.38, angle), width), orbit));
  }
  d.push_back(fill(circle(c, r * 0.24), nucleus));
}

// A ticket turned slightly, with a notch in each short side and a perforation.
void ticket(Drawing& d, const Palette& p) {
  const Vec c{50, 48};
  const double turn = -12;
  d.push_back(fill(rotate(roundedRect(8, 26, 92, 70, 6), c, turn), p.accent));
  d.push_back(erase(rotate(circle({8, 48}, 8), c, turn)));
  d.push_back(erase(rotate(circle({92, 48}, 8), c, turn)));
  for (double y : {31.0, 41.0, 51.0, 61.0}) {
    d.push_back(erase(rotate(line({66, y}, {66, y + 4}, 3.5), c, turn)));
  }
  d.push_back(erase(rotate(polygon({{28, 36}, {28, 60}, {48, 48}}), c, turn)));
}

// ---- the glyphs --------------------------------------------------------------------------

Drawing books(const Palette& p) {
  Drawing d;
  d.push_back(fill(roundedRect(12, 24, 30, 84, 3), p.accent));
  d.push_back(fill(roundedRect(34, 14, 52, 84, 3), p.ink));
  d.push_back(fill(rotate(roundedRect(56, 28, 72, 84, 3), {56, 84}, 18), p.ink));
  for (double y : {32.0, 74.0})
    d.push_back(erase(line({12, y}, {30, y}, 3)));
  for (double y : {23.0, 74.0})
    d.push_back(erase(line({34, y}, {52, y}, 3)));
  d.push_back(fill(line({8, 90}, {92, 90}, 6), p.ink));
  return d;
}

Drawing cd(const Palette& p) {
  Drawing d;
  d.push_back(fill(circle({50, 50}, 42), p.ink));
  d.push_back(fill(circle({50, 50}, 19), p.accent));
  d.push_back(erase(circle({50, 50}, 7)));
  d.push_back(erase(arc({50, 50}, 31, 3.5, 200, 250)));
  d.push_back(erase(arc({50, 50}, 31, 3.5, 20, 70)));
  return d;
}

Drawing downloads(const Palette& p) {
  Drawing d;
  d.push_back(fill(line({50, 10}, {50, 46}, 13), p.accent));
  d.push_back(fill(polygon({{25, 40}, {75, 40}, {50, 66}}), p.accent));
  d.push_back(fill(polyline({{13, 58}, {13, 87}, {87, 87}, {87, 58}}, 10), p.ink));
  return d;
}

Drawing folder(const Palette& p) {
  Drawing d;
  d.push_back(fill(unite(roundedRect(8, 22, 92, 84, 6), roundedRect(8, 14, 44, 32, 5)), p.ink));
  d.push_back(erase(line({10, 31}, {90, 31}, 3)));
  d.push_back(fill(roundedRect(8, 34, 92, 84, 6), p.accent));
  return d;
}

Drawing genius(const Palette& p) {
  Drawing d;
  atom(d, {50, 50}, 42, 7, p.ink, p.accent);
  return d;
}

Drawing geniusMixes(const Palette& p) {
  Drawing d;
  d.push_back(fill(roundedRect(10, 10, 47, 47, 7), p.accent));
  d.push_back(fill(roundedRect(53, 10, 90, 47, 7), p.ink));
  d.push_back(fill(roundedRect(10, 53, 47, 90, 7), p.ink));
  d.push_back(fill(roundedRect(53, 53, 90, 90, 7), p.ink));
  d.push_back(erase(ring({28.5, 28.5}, 10, 4)));
  d.push_back(erase(circle({28.5, 28.5}, 4)));
  return d;
}

Drawing geniusPlaylist(const Palette& p) {
  Drawing d;
  listLines(d, p);
  atom(d, {72, 72}, 22, 5, p.accent, p.accent);
  return d;
}

Drawing itunesDj(const Palette& p) {
  Drawing d;
  d.push_back(fill(circle({44, 56}, 36), p.ink));
  d.push_back(erase(ring({44, 56}, 26, 2.5)));
  d.push_back(fill(circle({44, 56}, 12), p.accent));
  d.push_back(erase(circle({44, 56}, 3)));
  d.push_back(erase(polyline({{86, 12}, {86, 50}, {72, 66}}, 14)));
  d.push_back(fill(polyline({{86, 12}, {86, 50}, {72, 66}}, 6), p.accent));
  d.push_back(fill(circle({86, 12}, 7), p.accent));
  d.push_back(fill(rotate(roundedRect(64, 62, 76, 72, 2), {70, 67}, 40), p.accent));
  return d;
}

Drawing itunesU(const Palette& p) {
  Drawing d;
  d.push_back(fill(roundedRect(26, 40, 74, 74, 10), p.accent));
  const Shape board = polygon({{50, 14}, {94, 34}, {50, 54}, {6, 34}});
  d.push_back(erase(grow(board, 4)));
  d.push_back(fill(board, p.ink));
  d.push_back(fill(line({84, 40}, {84, 66}, 4.5), p.ink));
  d.push_back(fill(circle({84, 70}, 6), p.ink));
  return d;
}

Drawing movies(const Palette& p) {
  Drawing d;
  d.push_back(fill(roundedRect(10, 42, 90, 88, 5), p.ink));
  d.push_back(erase(line({10, 56}, {90, 56}, 3)));
  for (double x : {22.0, 42.0, 62.0, 82.0}) {
    d.push_back(erase(polygon({{x, 45}, {x + 9, 45}, {x + 3, 53}, {x - 6, 53}})));
  }
  const Vec hinge{12, 38};
  d.push_back(fill(rotate(roundedRect(10, 24, 90, 38, 4), hinge, -14), p.accent));
  for (double x : {26.0, 46.0, 66.0}) {
    d.push_back(
        erase(rotate(polygon({{x, 24}, {x + 9, 24}, {x + 3, 38}, {x - 6, 38}}), hinge, -14)));
  }
  return d;
}

Drawing music(const Palette& p) {
  Drawing d;
  d.push_back(fill(ellipse({28, 76}, 13, 9.5, -22), p.accent));
  d.push_back(fill(ellipse({72, 68}, 13, 9.5, -22), p.accent));
  d.push_back(fill(line({38.5, 72}, {38.5, 22}, 7), p.accent));
  d.push_back(fill(line({82.5, 64}, {82.5, 14}, 7), p.accent));
  d.push_back(fill(polygon({{35, 14}, {86, 6}, {86, 22}, {35, 30}}), p.accent));
  return d;
}

Drawing playlist(const Palette& p) {
  Drawing d;
  listLines(d, p);
  d.push_back(fill(ellipse({68, 80}, 11, 8, -22), p.accent));
  d.push_back(fill(line({76.5, 77}, {76.5, 48}, 6), p.accent));
  d.push_back(fill(polyline({{76.5, 48}, {90, 58}, {90, 66}}, 6), p.accent));
  return d;
}

Drawing podcasts(const Palette& p) {
  Drawing d;
  const Vec c{50, 40};
  d.push_back(fill(circle(c, 10), p.accent));
  for (double r : {21.0, 35.0}) {
    d.push_back(fill(arc(c, r, 7, -45, 45), p.ink));
    d.push_back(fill(arc(c, r, 7, 135, 225), p.ink));
  }
  d.push_back(fill(grow(polygon({{46, 56}, {54, 56}, {58, 88}, {42, 88}}), 1.5), p.accent));
  return d;
}

Drawing purchased(const Palette& p) {
  Drawing d;
  d.push_back(fill(arc({50, 36}, 17, 7, 180, 360), p.ink));
  d.push_back(fill(line({33, 36}, {33, 44}, 7), p.ink));
  d.push_back(fill(line({67, 36}, {67, 44}, 7), p.ink));
  d.push_back(fill(grow(polygon({{20, 38}, {80, 38}, {85, 86}, {15, 86}}), 3), p.accent));
  d.push_back(erase(polyline({{36, 62}, {46, 72}, {66, 52}}, 6)));
  return d;
}

Drawing radio(const Palette& p) {
  Drawing d;
  d.push_back(fill(line({24, 34}, {70, 10}, 5), p.ink));
  d.push_back(fill(circle({70, 10}, 4.5), p.ink));
  d.push_back(fill(roundedRect(8, 32, 92, 88, 9), p.ink));
  d.push_back(erase(circle({34, 60}, 17)));
  d.push_back(fill(circle({34, 60}, 11), p.accent));
  d.push_back(erase(roundedRect(56, 44, 82, 56, 3)));
  d.push_back(fill(line({66, 44}, {66, 56}, 3), p.accent));
  d.push_back(erase(circle({69, 72}, 7)));
  return d;
}

Drawing rentals(const Palette& p) {
  Drawing d;
  ticket(d, p);
  return d;
}

Drawing rentalsExpiring(const Palette& p) {
  Drawing d;
  ticket(d, p);
  const Vec c{72, 72};
  d.push_back(erase(circle(c, 25)));
  d.push_back(fill(circle(c, 20), p.alert));
  d.push_back(erase(polyline({{c.x, c.y - 13}, c, {c.x + 10, c.y}}, 4.5)));
  return d;
}

Drawing ringtones(const Palette& p) {
  Drawing d;
  d.push_back(fill(circle({50, 14}, 5), p.accent));
  d.push_back(fill(unite(circle({50, 42}, 24), polygon({{26, 42}, {74, 42}, {84, 72}, {16, 72}})),
                   p.accent));
  d.push_back(fill(roundedRect(10, 68, 90, 79, 5), p.accent));
  d.push_back(fill(circle({50, 86}, 8), p.ink));
  d.push_back(fill(arc({50, 42}, 40, 5, -60, -20), p.ink));
  d.push_back(fill(arc({50, 42}, 40, 5, 200, 240), p.ink));
  return d;
}

Drawing smartPlaylist(const Palette& p) {
  Drawing d;
  listLines(d, p);
  const Vec c{72, 72};
  Shape gear = circle(c, 15);
  for (int i = 0; i < 8; ++i) {
    gear = unite(std::move(gear),
                 rotate(roundedRect(c.x - 4.5, c.y - 23, c.x + 4.5, c.y - 10, 1.5), c, i * 45.0));
  }
  d.push_back(fill(std::move(gear), p.accent));
  d.push_back(erase(circle(c, 6.5)));
  return d;
}

Drawing tvShows(const Palette& p) {
  Drawing d;
  d.push_back(fill(polyline({{34, 6}, {50, 18}, {66, 6}}, 4.5), p.ink));
  d.push_back(fill(roundedRect(6, 18, 94, 76, 8), p.ink));
  d.push_back(fill(roundedRect(14, 26, 86, 68, 4), p.accent));
  d.push_back(erase(polygon({{42, 35}, {42, 59}, {62, 47}})));
  d.push_back(fill(line({50, 76}, {50, 84}, 8), p.ink));
  d.push_back(fill(roundedRect(28, 82, 72, 90, 4), p.ink));
  return d;
}

struct GlyphEntry {
  Rgba accent;
  std::function<Drawing(const Palette&)> draw;
};

const std::map<std::string_view, GlyphEntry>& glyphs() {
  static const std::map<std::string_view, GlyphEntry> table = {
      {"books", {{0xE0, 0x7B, 0x1F, 0xFF}, books}},
      {"cd", {{0x2F, 0x8F, 0xD8, 0xFF}, cd}},
      {"downloads", {{0x25, 0xA5, 0x5A, 0xFF}, downloads}},
      {"folder", {{0x4F, 0x9F, 0xE0, 0xFF}, folder}},
      {"genius", {{0x8E, 0x4B, 0xC2, 0xFF}, genius}},
      {"genius-mixes", {{0x8E, 0x4B, 0xC2, 0xFF}, geniusMixes}},
      {"genius-playlist", {{0x8E, 0x4B, 0xC2, 0xFF}, geniusPlaylist}},
      {"itunes-dj", {{0xE0, 0x3F, 0x8C, 0xFF}, itunesDj}},
      {"itunes-u", {{0xE8, 0x95, 0x10, 0xFF}, itunesU}},
      {"movies", {{0xD0, 0x3B, 0x2E, 0xFF}, movies}},
      {"music", {{0x2C, 0x7F, 0xD6, 0xFF}, music}},
      {"playlist", {{0x2C, 0x7F, 0xD6, 0xFF}, playlist}},
      {"podcasts", {{0x9A, 0x52, 0xC8, 0xFF}, podcasts}},
      {"purchased", {{0x13, 0x9C, 0x82, 0xFF}, purchased}},
      {"radio", {{0xD8, 0x5A, 0x12, 0xFF}, radio}},
      {"rentals", {{0x23, 0xA0, 0x6E, 0xFF}, rentals}},
      {"rentals-expiring", {{0x23, 0xA0, 0x6E, 0xFF}, rentalsExpiring}},
      {"ringtones", {{0x16, 0xA9, 0xB0, 0xFF}, ringtones}},
      {"smart-playlist", {{0x3B, 0x8E, 0xA5, 0xFF}, smartPlaylist}},
      {"tv-shows", {{0x2A, 0x7C, 0xBF, 0xFF}, tvShows}},
  };
  return table;
}

}  // namespace

const std::vector<std::string_view>& glyphNames() {
  static const std::vector<std::string_view> names = {"books",
                                                      "cd",
                                                      "downloads",
                                                      "folder",
                                                      "genius",
                                                      "genius-mixes",
                                                      "genius-playlist",
                                                      "itunes-dj",
                                                      "itunes-u",
                                                      "movies",
                                                      "music",
                                                      "playlist",
                                                      "podcasts",
                                                      "purchased",
                                                      "radio",
                                                      "rentals",
                                                      "rentals-expiring",
                                                      "ringtones",
                                                      "smart-playlist",
                                                      "tv-shows"};
  return names;
}

Drawing drawGlyph(std::string_view name, bool dark) {
  auto it = glyphs().find(name);
  if (it == glyphs().end()) return {};
  return it->second.draw(paletteFor(it->second.accent, dark));
}

}  // namespace rvitunes::icongen
