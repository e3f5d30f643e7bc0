#include "Raster.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace rvitunes::icongen {
namespace {

constexpr double kDegree = std::numbers::pi / 180.0;

double length(double x, double y) {
  return std::hypot(x, y);
}

// Distance from p to the segment a-b.
double segmentDistance(Vec p, Vec a, Vec b) {
  const double ex = b.x - a.x, ey = b.y - a.y;
  const double wx = p.x - a.x, wy = p.y - a.y;
  const double ee = ex * ex + ey * ey;
  const double t = ee > 0 ? std::clamp((wx * ex + wy * ey) / ee, 0.0, 1.0) : 0.0;
  return length(wx - ex * t, wy - ey * t);
}

Shape boxOf(std::function<double(Vec)> sdf, std::initializer_list<Vec> points, double margin) {
  Shape s{std::move(sdf), 1e9, 1e9, -1e9, -1e9};
  for (Vec p : points) {
    s.x0 = std::min(s.x0, p.x - margin);
    s.y0 = std::min(s.y0, p.y - margin);
    s.x1 = std::max(s.x1, p.x + margin);
    s.y1 = std::max(s.y1, p.y + margin);
  }
  return s;
}

}  // namespace

Shape circle(Vec c, double r) {
  return {[=](Vec p) { return length(p.x - c.x, p.y - c.y) - r; }, c.x - r, c.y - r, c.x + r,
          c.y + r};
}

Shape ring(Vec c, double r, double width) {
  return stroke(circle(c, r), width);
}

Shape roundedRect(double x0, double y0, double x1, double y1, double radius) {
  const double cx = (x0 + x1) / 2, cy = (y0 + y1) / 2;
  const double hx = (x1 - x0) / 2 - radius, hy = (y1 - y0) / 2 - radius;
  return {[=](Vec p) {
            const double qx = std::abs(p.x - cx) - hx, qy = std::abs(p.y - cy) - hy;
            return length(std::max(qx, 0.0), std::max(qy, 0.0)) + std::min(std::max(qx, qy), 0.0) -
                   radius;
          },
          x0, y0, x1, y1};
}

Shape line(Vec a, Vec b, double width) {
  const double h = width / 2;
  return boxOf([=](Vec p) { return segmentDistance(p, a, b) - h; }, {a, b}, h);
}

Shape polyline(std::initializer_list<Vec> points, double width) {
  std::vector<Vec> v(points);
  const double h = width / 2;
  return boxOf(
      [v, h](Vec p) {
        double d = 1e9;
        for (size_t i = 1; i < v.size(); ++i)
          d = std::min(d, segmentDistance(p, v[i - 1], v[i]));
        return d - h;
      },
      points, h);
}

Shape polygon(std::initializer_list<Vec> points) {
  std::vector<Vec> v(points);
  return boxOf(
      [v](Vec p) {
        // Distance to the nearest edge, negated inside (crossings of a ray to the right).
        double d = 1e18;
        bool inside = false;
        for (size_t i = 0, j = v.size() - 1; i < v.size(); j = i++) {
          const double s = segmentDistance(p, v[i], v[j]);
          d = std::min(d, s * s);
          if ((v[i].y > p.y) != (v[j].y > p.y) &&
              p.x < (v[j].x - v[i].x) * (p.y - v[i].y) / (v[j].y - v[i].y) + v[i].x) {
            inside = !inside;
          }
        }
        return inside ? -std::sqrt(d) : std::sqrt(d);
      },
      points, 0);
}

Shape ellipse(Vec c, double rx, double ry, double degrees) {
  const double cs = std::cos(degrees * kDegree), sn = std::sin(degrees * kDegree);
  const double r = std::max(rx, ry);
  return {[=](Vec p) {
            // Into the ellipse's own frame, then the usual first-order distance estimate.
            const double dx = p.x - c.x, dy = p.y - c.y;
            const double lx = dx * cs + dy * sn, ly = -dx * sn + dy * cs;
            const double k0 = length(lx / rx, ly / ry);
            const double k1 = length(lx / (rx * rx), ly / (ry * ry));
            if (k1 <= 1e-12) return -std::min(rx, ry);
            return k0 * (k0 - 1.0) / k1;
          },
          c.x - r, c.y - r, c.x + r, c.y + r};
}

Shape arc(Vec c, double r, double width, double fromDegrees, double toDegrees) {
  double sweep = std::fmod(toDegrees - fromDegrees + 720.0, 360.0);
  if (sweep == 0 && toDegrees != fromDegrees) sweep = 360.0;
  const Vec a{c.x + r * std::cos(fromDegrees * kDegree), c.y + r * std::sin(fromDegrees * kDegree)};
  const Vec b{c.x + r * std::cos(toDegrees * kDegree), c.y + r * std::sin(toDegrees * kDegree)};
  const double h = width / 2;
  const double reach = r + h;
  return {[=](Vec p) {
            const double dx = p.x - c.x, dy = p.y - c.y;
            const double angle = std::atan2(dy, dx) / kDegree;
            const double rel = std::fmod(angle - fromDegrees + 720.0, 360.0);
            if (rel <= sweep) return std::abs(length(dx, dy) - r) - h;
            return std::min(length(p.x - a.x, p.y - a.y), length(p.x - b.x, p.y - b.y)) - h;
          },
          c.x - reach, c.y - reach, c.x + reach, c.y + reach};
}

Shape stroke(Shape s, double width) {
  const double h = width / 2;
  return {[f = std::move(s.sdf), h](Vec p) { return std::abs(f(p)) - h; }, s.x0 - h, s.y0 - h,
          s.x1 + h, s.y1 + h};
}

Shape grow(Shape s, double by) {
  const double m = std::max(by, 0.0);
  return {[f = std::move(s.sdf), by](Vec p) { return f(p) - by; }, s.x0 - m, s.y0 - m, s.x1 + m,
          s.y1 + m};
}

Shape unite(Shape a, Shape b) {
  return {[f = std::move(a.sdf), g = std::move(b.sdf)](Vec p) { return std::min(f(p), g(p)); },
          std::min(a.x0, b.x0), std::min(a.y0, b.y0), std::max(a.x1, b.x1), std::max(a.y1, b.y1)};
}

Shape subtract(Shape a, Shape b) {
  return {[f = std::move(a.sdf), g = std::move(b.sdf)](Vec p) { return std::max(f(p), -g(p)); },
          a.x0, a.y0, a.x1, a.y1};
}

Shape rotate(Shape s, Vec pivot, double degrees) {
  const double cs = std::cos(degrees * kDegree), sn = std::sin(degrees * kDegree);
  // The box of the turned box: turn its corners.
  double x0 = 1e9, y0 = 1e9, x1 = -1e9, y1 = -1e9;
  for (Vec corner : {Vec{s.x0, s.y0}, Vec{s.x1, s.y0}, Vec{s.x0, s.y1}, Vec{s.x1, s.y1}}) {
    const double dx = corner.x - pivot.x, dy = corner.y - pivot.y;
    const double x = pivot.x + dx * cs - dy * sn, y = pivot.y + dx * sn + dy * cs;
    x0 = std::min(x0, x), y0 = std::min(y0, y), x1 = std::max(x1, x), y1 = std::max(y1, y);
  }
  return {[f = std::move(s.sdf), pivot, cs, sn](Vec p) {
            const double dx = p.x - pivot.x, dy = p.y - pivot.y;
            return f({pivot.x + dx * cs + dy * sn, pivot.y - dx * sn + dy * cs});
          },
          x0, y0, x1, y1};
}

image::Image render(const Drawing& drawing, uint32_t size, int samples) {
  // Premultiplied floating-point canvas, so that layers blend without rounding on the way.
  std::vector<float> canvas(size_t{size} * size * 4, 0.0f);
  const double unitsPerPixel = 100.0 / size;
  // Beyond this distance from a pixel's centre an edge cannot cross the pixel (with room for
  // the estimates some shapes use).
  const double reach = unitsPerPixel * 1.5;
  const double step = 1.0 / samples;
  const double weight = 1.0 / (samples * samples);

  for (const Layer& layer : drawing) {
    const Shape& s = layer.shape;
    const int px0 = std::max(0, static_cast<int>(std::floor(s.x0 / unitsPerPixel)) - 1);
    const int py0 = std::max(0, static_cast<int>(std::floor(s.y0 / unitsPerPixel)) - 1);
    const int px1 = std::min<int>(size, static_cast<int>(std::ceil(s.x1 / unitsPerPixel)) + 1);
    const int py1 = std::min<int>(size, static_cast<int>(std::ceil(s.y1 / unitsPerPixel)) + 1);
    const float r = layer.colour.r / 255.0f, g = layer.colour.g / 255.0f,
                b = layer.colour.b / 255.0f, a = layer.colour.a / 255.0f;
    for (int py = py0; py < py1; ++py) {
      for (int px = px0; px < px1; ++px) {
        const double centre = s.sdf({(px + 0.5) * unitsPerPixel, (py + 0.5) * unitsPerPixel});
        double coverage;
        if (centre > reach) {
          continue;
        } else if (centre < -reach) {
          coverage = 1.0;
        } else {
          int inside = 0;
          for (int sy = 0; sy < samples; ++sy) {
            for (int sx = 0; sx < samples; ++sx) {
              const Vec p{(px + (sx + 0.5) * step) * unitsPerPixel,
                          (py + (sy + 0.5) * step) * unitsPerPixel};
              if (s.sdf(p) <= 0) ++inside;
            }
          }
          if (inside == 0) continue;
          coverage = inside * weight;
        }
        float* d = &canvas[(size_t{static_cast<uint32_t>(py)} * size + px) * 4];
        const float c = static_cast<float>(coverage);
        if (layer.paint == Paint::kErase) {
          for (int k = 0; k < 4; ++k)
            d[k] *= 1.0f - c;
        } else {
          const float sa = a * c;
          d[0] = r * sa + d[0] * (1.0f - sa);
          d[1] = g * sa + d[1] * (1.0f - sa);
          d[2] = b * sa + d[2] * (1.0f - sa);
          d[3] = sa + d[3] * (1.0f - sa);
        }
      }
    }
  }

  image::Image out(size, size);
  std::span<uint8_t> pixels = out.mutablePixels();
  for (size_t i = 0; i < canvas.size(); i += 4) {
    const float alpha = canvas[i + 3];
    if (alpha <= 0.0f) continue;
    auto channel = [&](float premultiplied) {
      return static_cast<uint8_t>(std::lround(std::clamp(premultiplied / alpha, 0.0f, 1.0f) * 255));
    };
    pixels[i] = channel(canvas[i]);
    pixels[i + 1] = channel(canvas[i + 1]);
    pixels[i + 2] = channel(canvas[i + 2]);
    pixels[i + 3] = static_cast<uint8_t>(std::lround(std::clamp(alpha, 0.0f, 1.0f) * 255));
  }
  return out;
}

void composite(image::Image& dst, const image::Image& src, int x, int y) {
  for (uint32_t sy = 0; sy < src.height(); ++sy) {
    const int64_t dy = int64_t{y} + sy;
    if (dy < 0 || dy >= dst.height()) continue;
    for (uint32_t sx = 0; sx < src.width(); ++sx) {
      const int64_t dx = int64_t{x} + sx;
      if (dx < 0 || dx >= dst.width()) continue;
      const image::Rgba s = src.pixel(sx, sy);
      if (s.a == 0) continue;
      const image::Rgba d = dst.pixel(static_cast<uint32_t>(dx), static_cast<uint32_t>(dy));
      const double sa = s.a / 255.0, da = d.a / 255.0;
      const double oa = sa + da * (1 - sa);
      auto mix = [&](uint8_t sc, uint8_t dc) {
        return static_cast<uint8_t>(std::lround((sc * sa + dc * da * (1 - sa)) / oa));
      };
      dst.setPixel(static_cast<uint32_t>(dx), static_cast<uint32_t>(dy),
                   {mix(s.r, d.r), mix(s.g, d.g), mix(s.b, d.b),
                    static_cast<uint8_t>(std::lround(oa * 255))});
    }
  }
}

}  // namespace rvitunes::icongen
