#pragma once
// Small RGB canvas and PNG files for the simulated screenshot tools (libpng).
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tavlin::sim {

struct Color {
  uint8_t r, g, b;
};

class Canvas {
 public:
  Canvas(int width, int height, Color background);
  int width() const { return width_; }
  int height() const { return height_; }
  // Rectangles in pixels, clipped to the canvas.
  void fill(double x, double y, double w, double h, Color color);
  void outline(double x, double y, double w, double h, Color color, int thickness = 1);
  const std::vector<uint8_t>& pixels() const { return pixels_; }

 private:
  int width_;
  int height_;
  std::vector<uint8_t> pixels_;  // RGB rows
};

// Writes the canvas as an 8-bit RGB PNG; false on failure.
bool writePNG(const Canvas& canvas, const std::string& path);
// Width and height from a PNG's header; absent for anything that is not a PNG.
std::optional<std::pair<int64_t, int64_t>> readPNGSize(const std::string& path);

}  // namespace tavlin::sim
