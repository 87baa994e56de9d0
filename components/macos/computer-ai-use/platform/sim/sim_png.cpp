#include "platform/sim/sim_png.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tavlin::sim {
namespace {

// libpng reports through these; a simulated tool stays quiet and just fails.
void silentError(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void silentWarning(png_structp, png_const_charp) {}

}  // namespace

Canvas::Canvas(int width, int height, Color background)
    : width_(std::max(width, 1)), height_(std::max(height, 1)),
      pixels_(static_cast<size_t>(width_) * static_cast<size_t>(height_) * 3) {
  for (size_t i = 0; i < pixels_.size(); i += 3) {
    pixels_[i] = background.r;
    pixels_[i + 1] = background.g;
    pixels_[i + 2] = background.b;
  }
}

void Canvas::fill(double x, double y, double w, double h, Color color) {
  if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(w) || !std::isfinite(h)) return;
  // Clamped while still a double: a frame far off the canvas must not overflow an int.
  auto clamped = [](double v, int high) { return static_cast<int>(std::round(std::clamp(v, 0.0, double(high)))); };
  int x0 = clamped(x, width_), y0 = clamped(y, height_);
  int x1 = clamped(x + w, width_), y1 = clamped(y + h, height_);
  for (int row = y0; row < y1; ++row) {
    uint8_t* p = pixels_.data() + (static_cast<size_t>(row) * static_cast<size_t>(width_) + static_cast<size_t>(x0)) * 3;
    for (int col = x0; col < x1; ++col, p += 3) {
      p[0] = color.r;
      p[1] = color.g;
      p[2] = color.b;
    }
  }
}

void Canvas::outline(double x, double y, double w, double h, Color color, int thickness) {
  double t = thickness;
  fill(x, y, w, t, color);
  fill(x, y + h - t, w, t, color);
  fill(x, y, t, h, color);
  fill(x + w - t, y, t, h, color);
}

bool writePNG(const Canvas& canvas, const std::string& path) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return false;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, silentError, silentWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  bool ok = false;
  if (png && info && setjmp(png_jmpbuf(png)) == 0) {
    png_init_io(png, file);
    png_set_IHDR(png, info, static_cast<png_uint_32>(canvas.width()), static_cast<png_uint_32>(canvas.height()), 8,
                 PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    // Flat colour blocks compress well without row filters at the fastest level; the
    // simulated screenshots stay cheap, as the platform's own encoder is on a Mac.
    png_set_filter(png, 0, PNG_FILTER_NONE);
    png_set_compression_level(png, 1);
    png_write_info(png, info);
    const uint8_t* data = canvas.pixels().data();
    for (int row = 0; row < canvas.height(); ++row) {
      png_write_row(png, data + static_cast<size_t>(row) * static_cast<size_t>(canvas.width()) * 3);
    }
    png_write_end(png, nullptr);
    ok = true;
  }
  png_destroy_write_struct(png ? &png : nullptr, info ? &info : nullptr);
  ok = std::fclose(file) == 0 && ok;
  if (!ok) std::remove(path.c_str());
  return ok;
}

std::optional<std::pair<int64_t, int64_t>> readPNGSize(const std::string& path) {
  FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return std::nullopt;
  unsigned char signature[8];
  if (std::fread(signature, 1, 8, file) != 8 || png_sig_cmp(signature, 0, 8) != 0) {
    std::fclose(file);
    return std::nullopt;
  }
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, silentError, silentWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  std::optional<std::pair<int64_t, int64_t>> size;
  if (png && info && setjmp(png_jmpbuf(png)) == 0) {
    png_init_io(png, file);
    png_set_sig_bytes(png, 8);
    png_read_info(png, info);
    size = std::make_pair(static_cast<int64_t>(png_get_image_width(png, info)),
                          static_cast<int64_t>(png_get_image_height(png, info)));
  }
  png_destroy_read_struct(png ? &png : nullptr, info ? &info : nullptr, nullptr);
  std::fclose(file);
  return size;
}

}  // namespace tavlin::sim
