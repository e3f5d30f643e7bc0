// A small vector rasteriser for the framework's playlist icons: shapes given as signed distance
// functions on a 100 × 100 design grid (y down), painted or erased in layers and anti-aliased
// by supersampling each pixel.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <vector>

#include "rvitunes/image/Image.h"

namespace rvitunes::icongen {

struct Vec {
  double x = 0;
  double y = 0;
};

// A region of the design grid: `sdf` is negative inside, positive outside and roughly the
// distance to the edge in design units; the box bounds everything inside (it may be larger).
struct Shape {
  std::function<double(Vec)> sdf;
  double x0 = 0, y0 = 0, x1 = 100, y1 = 100;
};

// ---- primitives --------------------------------------------------------------------------
Shape circle(Vec c, double r);
// A circle's outline `width` wide, centred on radius r.
Shape ring(Vec c, double r, double width);
Shape roundedRect(double x0, double y0, double x1, double y1, double radius);
// A thick line from a to b with round caps.
Shape line(Vec a, Vec b, double width);
// Thick lines through consecutive points, joined round.
Shape polyline(std::initializer_list<Vec> points, double width);
// A closed polygon (any winding, no self-intersections).
Shape polygon(std::initializer_list<Vec> points);
// An ellipse with radii rx, ry turned by `degrees` (clockwise on screen).
Shape ellipse(Vec c, double rx, double ry, double degrees);
// A circular arc of radius r, `width` wide, with round caps, from `fromDegrees` clockwise to
// `toDegrees` (0° points right, 90° down).
Shape arc(Vec c, double r, double width, double fromDegrees, double toDegrees);

// ---- combinations ------------------------------------------------------------------------
// The outline of `s`, `width` wide, centred on its edge.
Shape stroke(Shape s, double width);
// `s` grown by `by` units (shrunk when negative); rounds convex corners.
Shape grow(Shape s, double by);
Shape unite(Shape a, Shape b);
Shape subtract(Shape a, Shape b);
// `s` turned by `degrees` clockwise about `pivot`.
Shape rotate(Shape s, Vec pivot, double degrees);

// ---- layers ------------------------------------------------------------------------------
enum class Paint { kFill, kErase };

struct Layer {
  Shape shape;
  image::Rgba colour;  // ignored when erasing
  Paint paint = Paint::kFill;
};

using Drawing = std::vector<Layer>;

// Renders `drawing` into a size × size image (transparent background), sampling each pixel
// `samples` × `samples` times.
image::Image render(const Drawing& drawing, uint32_t size, int samples);

// Draws `src` over `dst` with its top-left corner at (x, y); parts outside are clipped.
void composite(image::Image& dst, const image::Image& src, int x, int y);

}  // namespace rvitunes::icongen
