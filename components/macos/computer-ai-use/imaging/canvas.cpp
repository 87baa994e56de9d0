#include "imaging/canvas.h"

#include <algorithm>
#include <cmath>

namespace tavlin::imaging {

PixelRect PixelRect::intersection(const PixelRect& o) const {
  int left = std::max(x, o.x), top = std::max(y, o.y);
  int r = std::min(right(), o.right()), b = std::min(bottom(), o.bottom());
  if (r <= left || b <= top) return {left, top, 0, 0};
  return {left, top, r - left, b - top};
}

PixelRect enclosing(double x, double y, double width, double height) {
  if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(width) || !std::isfinite(height)) return {};
  constexpr double limit = 1 << 29;
  auto clamp = [&](double v) { return static_cast<int>(std::clamp(v, -limit, limit)); };
  int left = clamp(std::floor(x)), top = clamp(std::floor(y));
  int right = clamp(std::ceil(x + width)), bottom = clamp(std::ceil(y + height));
  return {left, top, std::max(0, right - left), std::max(0, bottom - top)};
}

Canvas::Canvas(int width, int height, Color background)
    : width_(std::max(width, 1)), height_(std::max(height, 1)),
      pixels_(static_cast<size_t>(width_) * static_cast<size_t>(height_) * 4) {
  for (size_t i = 0; i < pixels_.size(); i += 4) {
    pixels_[i] = background.r;
    pixels_[i + 1] = background.g;
    pixels_[i + 2] = background.b;
    pixels_[i + 3] = background.a;
  }
}

Color Canvas::at(int x, int y) const {
  if (x < 0 || y < 0 || x >= width_ || y >= height_) return {0, 0, 0, 0};
  const uint8_t* p = pixels_.data() + (static_cast<size_t>(y) * static_cast<size_t>(width_) + static_cast<size_t>(x)) * 4;
  return {p[0], p[1], p[2], p[3]};
}

void Canvas::blend(int x, int y, Color color, int coverage) {
  if (x < 0 || y < 0 || x >= width_ || y >= height_ || coverage <= 0) return;
  uint8_t* p = pixels_.data() + (static_cast<size_t>(y) * static_cast<size_t>(width_) + static_cast<size_t>(x)) * 4;
  int alpha = color.a * std::min(coverage, 255) / 255;
  if (alpha >= 255) {
    p[0] = color.r;
    p[1] = color.g;
    p[2] = color.b;
    p[3] = 255;
    return;
  }
  // "Source over" with straight alpha.
  int below = p[3] * (255 - alpha) / 255;
  int out = alpha + below;
  if (out == 0) return;
  auto mix = [&](uint8_t src, uint8_t dst) {
    return static_cast<uint8_t>((src * alpha + dst * below + out / 2) / out);
  };
  p[0] = mix(color.r, p[0]);
  p[1] = mix(color.g, p[1]);
  p[2] = mix(color.b, p[2]);
  p[3] = static_cast<uint8_t>(out);
}

void Canvas::fill(double x, double y, double w, double h, Color color) {
  if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(w) || !std::isfinite(h)) return;
  // Clamped while still a double: a frame far off the canvas must not overflow an int.
  auto clamped = [](double v, int high) { return static_cast<int>(std::round(std::clamp(v, 0.0, double(high)))); };
  int x0 = clamped(x, width_), y0 = clamped(y, height_);
  int x1 = clamped(x + w, width_), y1 = clamped(y + h, height_);
  for (int row = y0; row < y1; ++row) {
    if (color.a == 255) {
      uint8_t* p = pixels_.data() + (static_cast<size_t>(row) * static_cast<size_t>(width_) + static_cast<size_t>(x0)) * 4;
      for (int col = x0; col < x1; ++col, p += 4) {
        p[0] = color.r;
        p[1] = color.g;
        p[2] = color.b;
        p[3] = 255;
      }
    } else {
      for (int col = x0; col < x1; ++col) blend(col, row, color);
    }
  }
}

void Canvas::outline(double x, double y, double w, double h, Color color, int thickness) {
  double t = std::min<double>(thickness, std::min(w, h) / 2);
  if (!(t > 0)) return;
  fill(x, y, w, t, color);
  fill(x, y + h - t, w, t, color);
  fill(x, y + t, t, h - 2 * t, color);
  fill(x + w - t, y + t, t, h - 2 * t, color);
}

bool Canvas::opaque() const {
  for (size_t i = 3; i < pixels_.size(); i += 4) {
    if (pixels_[i] != 255) return false;
  }
  return true;
}

}  // namespace tavlin::imaging
