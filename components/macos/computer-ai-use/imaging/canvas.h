#pragma once
// An RGBA image in memory (8 bits a channel, straight alpha, rows top to bottom) and
// the few drawing operations the screenshots need. Shared by the snapshot (scaled and
// annotated screenshots) and the simulated desktop (its drawn windows).
#include <cstdint>
#include <vector>

namespace tavlin::imaging {

struct Color {
  uint8_t r = 0, g = 0, b = 0, a = 255;
  friend bool operator==(const Color&, const Color&) = default;
};

// A rectangle in whole pixels; empty when either side is 0 or less.
struct PixelRect {
  int x = 0, y = 0, width = 0, height = 0;
  bool empty() const { return width <= 0 || height <= 0; }
  int right() const { return x + width; }
  int bottom() const { return y + height; }
  bool intersects(const PixelRect& o) const {
    return !empty() && !o.empty() && x < o.right() && o.x < right() && y < o.bottom() && o.y < bottom();
  }
  bool contains(const PixelRect& o) const { return o.x >= x && o.y >= y && o.right() <= right() && o.bottom() <= bottom(); }
  PixelRect intersection(const PixelRect& o) const;
  friend bool operator==(const PixelRect&, const PixelRect&) = default;
};

// The whole pixels a rectangle touches, clamped to ±2^29 so that no frame overflows an int.
PixelRect enclosing(double x, double y, double width, double height);

class Canvas {
 public:
  Canvas() = default;
  // At least 1 × 1; the caller bounds the size (see maxCanvasPixels).
  Canvas(int width, int height, Color background);
  int width() const { return width_; }
  int height() const { return height_; }
  PixelRect bounds() const { return {0, 0, width_, height_}; }

  Color at(int x, int y) const;
  // Draws `color` over the pixel with its alpha times `coverage` (0 to 255).
  void blend(int x, int y, Color color, int coverage = 255);

  // Rectangles in pixels (fractions rounded), clipped to the canvas. Colours with alpha
  // are blended over what is there.
  void fill(double x, double y, double w, double h, Color color);
  void fill(const PixelRect& r, Color color) { fill(r.x, r.y, r.width, r.height, color); }
  void outline(double x, double y, double w, double h, Color color, int thickness = 1);

  // Every pixel fully opaque: written without an alpha channel.
  bool opaque() const;
  const std::vector<uint8_t>& pixels() const { return pixels_; }  // RGBA rows
  std::vector<uint8_t>& pixels() { return pixels_; }

 private:
  int width_ = 0;
  int height_ = 0;
  std::vector<uint8_t> pixels_;
};

// The most pixels any canvas here holds (256 MiB of RGBA): a window as large as a 6K
// display is about 20 Mi pixels, so every real screenshot fits.
inline constexpr int64_t maxCanvasPixels = int64_t{64} << 20;

}  // namespace tavlin::imaging
