#include "imaging/png_file.h"

#include <fcntl.h>
#include <png.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

namespace tavlin::imaging {
namespace {

// libpng reports through these; the callers say what failed in their own words.
void silentError(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void silentWarning(png_structp, png_const_charp) {}

struct FileCloser {
  void operator()(FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<FILE, FileCloser>;

// A regular file opened for reading without following a link at `path`.
File openRegular(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return nullptr;
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return nullptr;
  }
  FILE* f = ::fdopen(fd, "rb");
  if (!f) ::close(fd);
  return File(f);
}

bool hasSignature(FILE* file) {
  unsigned char signature[8];
  return std::fread(signature, 1, 8, file) == 8 && png_sig_cmp(signature, 0, 8) == 0;
}

// Everything libpng touches after a longjmp lives here, outside the setjmp frame.
struct ReadState {
  png_structp png = nullptr;
  png_infop info = nullptr;
  std::optional<Canvas> canvas;
  std::vector<png_bytep> rows;
  ~ReadState() { png_destroy_read_struct(png ? &png : nullptr, info ? &info : nullptr, nullptr); }
};

}  // namespace

std::optional<Canvas> readPNG(const std::string& path, std::string& problem) {
  File file = openRegular(path);
  if (!file) {
    problem = "not a readable regular file";
    return std::nullopt;
  }
  if (!hasSignature(file.get())) {
    problem = "not a PNG";
    return std::nullopt;
  }
  ReadState s;
  s.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, silentError, silentWarning);
  s.info = s.png ? png_create_info_struct(s.png) : nullptr;
  if (!s.png || !s.info) {
    problem = "out of memory";
    return std::nullopt;
  }
  problem = "a damaged PNG";
  if (setjmp(png_jmpbuf(s.png)) != 0) return std::nullopt;
  png_init_io(s.png, file.get());
  png_set_sig_bytes(s.png, 8);
  png_set_user_limits(s.png, 1u << 16, 1u << 16);
  png_read_info(s.png, s.info);
  png_uint_32 width = png_get_image_width(s.png, s.info), height = png_get_image_height(s.png, s.info);
  if (static_cast<int64_t>(width) * static_cast<int64_t>(height) > maxCanvasPixels) {
    problem = "larger than " + std::to_string(maxCanvasPixels >> 20) + " Mi pixels";
    return std::nullopt;
  }
  // Whatever the file holds becomes 8-bit RGBA.
  int colorType = png_get_color_type(s.png, s.info);
  png_set_expand(s.png);  // palette to RGB, grey below 8 bits to 8, tRNS to alpha
  png_set_strip_16(s.png);
  if (colorType == PNG_COLOR_TYPE_GRAY || colorType == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(s.png);
  png_set_add_alpha(s.png, 0xff, PNG_FILLER_AFTER);  // no-op when there is alpha already
  png_set_interlace_handling(s.png);
  png_read_update_info(s.png, s.info);
  if (png_get_rowbytes(s.png, s.info) != static_cast<size_t>(width) * 4) return std::nullopt;
  s.canvas.emplace(static_cast<int>(width), static_cast<int>(height), Color{});
  s.rows.resize(height);
  for (png_uint_32 y = 0; y < height; ++y) {
    s.rows[y] = s.canvas->pixels().data() + static_cast<size_t>(y) * width * 4;
  }
  png_read_image(s.png, s.rows.data());
  png_read_end(s.png, nullptr);
  problem.clear();
  return std::move(s.canvas);
}

namespace {

struct WriteState {
  png_structp png = nullptr;
  png_infop info = nullptr;
  std::vector<uint8_t> row;
  ~WriteState() { png_destroy_write_struct(png ? &png : nullptr, info ? &info : nullptr); }
};

bool encode(const Canvas& canvas, FILE* file) {
  WriteState s;
  s.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, silentError, silentWarning);
  s.info = s.png ? png_create_info_struct(s.png) : nullptr;
  if (!s.png || !s.info) return false;
  const bool alpha = !canvas.opaque();
  const size_t width = static_cast<size_t>(canvas.width());
  s.row.resize(width * 3);
  if (setjmp(png_jmpbuf(s.png)) != 0) return false;
  png_init_io(s.png, file);
  png_set_IHDR(s.png, s.info, static_cast<png_uint_32>(canvas.width()), static_cast<png_uint_32>(canvas.height()), 8,
               alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  // The fastest settings: screenshots are written on every snapshot and read once, and
  // for screens (flat colours, text) row filters cost twice the time for larger files.
  png_set_filter(s.png, 0, PNG_FILTER_NONE);
  png_set_compression_level(s.png, 1);
  png_write_info(s.png, s.info);
  const uint8_t* data = canvas.pixels().data();
  for (int y = 0; y < canvas.height(); ++y) {
    const uint8_t* source = data + static_cast<size_t>(y) * width * 4;
    if (alpha) {
      png_write_row(s.png, source);
      continue;
    }
    for (size_t x = 0; x < width; ++x) {
      s.row[x * 3] = source[x * 4];
      s.row[x * 3 + 1] = source[x * 4 + 1];
      s.row[x * 3 + 2] = source[x * 4 + 2];
    }
    png_write_row(s.png, s.row.data());
  }
  png_write_end(s.png, nullptr);
  return true;
}

}  // namespace

bool writePNG(const Canvas& canvas, const std::string& path) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return false;
  bool ok = encode(canvas, file);
  ok = std::fclose(file) == 0 && ok;
  if (!ok) std::remove(path.c_str());
  return ok;
}

std::optional<std::pair<int64_t, int64_t>> readPNGSize(const std::string& path) {
  File file(std::fopen(path.c_str(), "rb"));
  if (!file || !hasSignature(file.get())) return std::nullopt;
  ReadState s;
  s.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, silentError, silentWarning);
  s.info = s.png ? png_create_info_struct(s.png) : nullptr;
  if (!s.png || !s.info) return std::nullopt;
  if (setjmp(png_jmpbuf(s.png)) != 0) return std::nullopt;
  png_init_io(s.png, file.get());
  png_set_sig_bytes(s.png, 8);
  png_read_info(s.png, s.info);
  return std::make_pair(static_cast<int64_t>(png_get_image_width(s.png, s.info)),
                        static_cast<int64_t>(png_get_image_height(s.png, s.info)));
}

}  // namespace tavlin::imaging
