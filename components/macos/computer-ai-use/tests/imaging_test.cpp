// The image code shared by screenshots and the simulated desktop: PNG files of every
// kind a capture may write, shrinking, and text.
#include <gtest/gtest.h>
#include <png.h>

#include <filesystem>
#include <functional>

#include "imaging/png_file.h"
#include "imaging/scaling.h"
#include "imaging/text.h"
#include "test_support.h"

using namespace tavlin::imaging;
using tavlin::testing::TempDir;
using tavlin::testing::writeText;

namespace {

// A PNG written with libpng directly, in the given format, row by row from `row`.
void writeRawPNG(const std::string& path, int width, int height, int colorType, int bitDepth, bool interlaced,
                 const std::function<std::vector<uint8_t>(int)>& row,
                 const std::vector<png_color>& palette = {}, const std::vector<uint8_t>& paletteAlpha = {}) {
  FILE* file = std::fopen(path.c_str(), "wb");
  ASSERT_NE(file, nullptr);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, file);
  png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), bitDepth, colorType,
               interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (!palette.empty()) png_set_PLTE(png, info, palette.data(), static_cast<int>(palette.size()));
  if (!paletteAlpha.empty()) {
    png_set_tRNS(png, info, paletteAlpha.data(), static_cast<int>(paletteAlpha.size()), nullptr);
  }
  png_write_info(png, info);
  std::vector<std::vector<uint8_t>> rows;
  for (int y = 0; y < height; ++y) rows.push_back(row(y));
  std::vector<png_bytep> pointers;
  for (auto& r : rows) pointers.push_back(r.data());
  png_write_image(png, pointers.data());
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  std::fclose(file);
}

}  // namespace

TEST(PngFile, ReadsEveryFormatACaptureMayWriteAsRGBA) {
  // 3 × 2 images whose pixel (x, y) is known in each format; checked at (2, 1).
  struct Case {
    const char* name;
    int colorType, bitDepth;
    bool interlaced;
    std::function<std::vector<uint8_t>(int)> row;
    Color expected;
    std::vector<png_color> palette = {};
    std::vector<uint8_t> paletteAlpha = {};
  };
  const std::vector<Case> cases = {
      {"RGBA 8, as macOS writes", PNG_COLOR_TYPE_RGB_ALPHA, 8, false,
       [](int y) { return std::vector<uint8_t>{0, 0, 0, 255, 1, 2, 3, 255, 10, 20, uint8_t(30 + y), 128}; },
       {10, 20, 31, 128}},
      {"RGB 8", PNG_COLOR_TYPE_RGB, 8, false, [](int y) { return std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 7, 8, uint8_t(9 + y)}; },
       {7, 8, 10, 255}},
      {"RGB 16", PNG_COLOR_TYPE_RGB, 16, false,
       [](int) { return std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x12, 0x34, 0xAB, 0xCD, 0xFF, 0xFF}; },
       {0x12, 0xAB, 0xFF, 255}},
      {"grey 8", PNG_COLOR_TYPE_GRAY, 8, false, [](int) { return std::vector<uint8_t>{0, 0, 77}; }, {77, 77, 77, 255}},
      {"grey and alpha 8", PNG_COLOR_TYPE_GRAY_ALPHA, 8, false, [](int) { return std::vector<uint8_t>{0, 0, 0, 0, 200, 50}; },
       {200, 200, 200, 50}},
      {"grey 1 bit", PNG_COLOR_TYPE_GRAY, 1, false, [](int) { return std::vector<uint8_t>{0x20}; }, {255, 255, 255, 255}},
      {"palette with transparency", PNG_COLOR_TYPE_PALETTE, 8, false, [](int) { return std::vector<uint8_t>{0, 0, 1}; },
       {40, 50, 60, 100}, {{0, 0, 0}, {40, 50, 60}}, {255, 100}},
      {"interlaced RGBA", PNG_COLOR_TYPE_RGB_ALPHA, 8, true,
       [](int y) { return std::vector<uint8_t>{0, 0, 0, 255, 1, 2, 3, 255, 10, 20, uint8_t(30 + y), 128}; },
       {10, 20, 31, 128}},
  };
  TempDir tmp;
  for (const Case& c : cases) {
    std::string path = tmp.file("image.png");
    writeRawPNG(path, 3, 2, c.colorType, c.bitDepth, c.interlaced, c.row, c.palette, c.paletteAlpha);
    std::string problem;
    std::optional<Canvas> image = readPNG(path, problem);
    ASSERT_TRUE(image) << c.name << ": " << problem;
    EXPECT_EQ(image->width(), 3) << c.name;
    EXPECT_EQ(image->height(), 2) << c.name;
    Color got = image->at(2, 1);
    EXPECT_EQ(got, c.expected) << c.name << ": " << int(got.r) << "," << int(got.g) << "," << int(got.b) << ","
                               << int(got.a);
  }
}

TEST(PngFile, RoundTripKeepsAlphaOnlyWhereThereIsSome) {
  TempDir tmp;
  for (uint8_t alpha : {uint8_t{255}, uint8_t{90}}) {
    Canvas canvas(5, 4, Color{1, 2, 3, 255});
    canvas.fill(1, 1, 2, 2, Color{200, 100, 50, 255});
    canvas.pixels()[3] = alpha;
    ASSERT_TRUE(writePNG(canvas, tmp.file("out.png")));
    std::string problem;
    auto back = readPNG(tmp.file("out.png"), problem);
    ASSERT_TRUE(back) << problem;
    EXPECT_EQ(back->pixels(), canvas.pixels()) << int(alpha);
    // RGB (colour type 2) for opaque images, RGBA (6) otherwise.
    std::string bytes = tavlin::testing::readText(tmp.file("out.png"));
    EXPECT_EQ(bytes[25], alpha == 255 ? 2 : 6);
    EXPECT_EQ(readPNGSize(tmp.file("out.png")), std::make_pair(int64_t{5}, int64_t{4}));
  }
}

TEST(PngFile, RefusesWhatIsNoImageItMayRead) {
  TempDir tmp;
  writeText(tmp.file("text.png"), "not a png at all");
  Canvas small(4, 4, Color{});
  ASSERT_TRUE(writePNG(small, tmp.file("whole.png")));
  std::string whole = tavlin::testing::readText(tmp.file("whole.png"));
  writeText(tmp.file("cut.png"), whole.substr(0, whole.size() - 20));
  std::filesystem::create_symlink(tmp.file("whole.png"), tmp.file("link.png"));
  // One pixel more than the bound, in a file of a few kilobytes.
  writeRawPNG(tmp.file("huge.png"), 8193, 8193, PNG_COLOR_TYPE_GRAY, 1, false,
              [](int) { return std::vector<uint8_t>(1025, 0); });

  const std::vector<std::pair<std::string, std::string>> cases = {
      {"text.png", "not a PNG"},
      {"cut.png", "a damaged PNG"},
      {"link.png", "not a readable regular file"},
      {"missing.png", "not a readable regular file"},
      {"huge.png", "larger than 64 Mi pixels"},
  };
  for (const auto& [name, expected] : cases) {
    std::string problem;
    EXPECT_FALSE(readPNG(tmp.file(name), problem)) << name;
    EXPECT_EQ(problem, expected) << name;
  }
}

TEST(Scaling, FittedSizeKeepsTheAspectAndNeverEnlarges) {
  struct Case {
    int width, height, max;
    std::pair<int, int> expected;
  };
  const std::vector<Case> cases = {
      {1800, 1280, 1568, {1568, 1115}},  // a Retina capture for a model
      {1280, 1800, 1568, {1115, 1568}},
      {900, 640, 1568, {900, 640}},      // within already: untouched
      {1568, 20, 1568, {1568, 20}},
      {1569, 20, 1568, {1568, 20}},
      {100, 5000, 64, {1, 64}},          // a side never rounds to nothing
      {1, 1, 64, {1, 1}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(fittedSize(c.width, c.height, c.max), c.expected) << c.width << "x" << c.height << " to " << c.max;
  }
}

TEST(Scaling, EverySourcePixelCountsAndTransparencyLendsNoColour) {
  // Black and white columns average to grey; a thin line survives as a lighter line.
  Canvas stripes(4, 2, Color{255, 255, 255, 255});
  stripes.fill(0, 0, 1, 2, Color{0, 0, 0, 255});
  stripes.fill(2, 0, 1, 2, Color{0, 0, 0, 255});
  Canvas half = shrunk(stripes, 2, 1);
  EXPECT_EQ(half.at(0, 0), (Color{128, 128, 128, 255}));
  EXPECT_EQ(half.at(1, 0), (Color{128, 128, 128, 255}));

  // Three pixels into two: the middle one is split between both.
  Canvas three(3, 1, Color{0, 0, 0, 255});
  three.fill(1, 0, 1, 1, Color{255, 255, 255, 255});
  Canvas two = shrunk(three, 2, 1);
  EXPECT_EQ(two.at(0, 0), (Color{85, 85, 85, 255}));
  EXPECT_EQ(two.at(1, 0), (Color{85, 85, 85, 255}));

  // Five rows into two: a row split between both targets counts half in each.
  Canvas column(1, 5, Color{});
  for (int y = 0; y < 5; ++y) {
    uint8_t v = static_cast<uint8_t>(y * 50);
    column.fill(0, y, 1, 1, Color{v, v, v, 255});
  }
  Canvas rows = shrunk(column, 1, 2);
  EXPECT_EQ(rows.at(0, 0), (Color{40, 40, 40, 255}));     // (0 + 50 + 100 / 2) / 2.5
  EXPECT_EQ(rows.at(0, 1), (Color{160, 160, 160, 255}));  // (100 / 2 + 150 + 200) / 2.5

  // Transparent red next to opaque blue: blue, half covered (a window's rounded corner).
  Canvas corner(2, 1, Color{255, 0, 0, 0});
  corner.fill(1, 0, 1, 1, Color{0, 0, 255, 255});
  EXPECT_EQ(shrunk(corner, 1, 1).at(0, 0), (Color{0, 0, 255, 128}));
}

TEST(Text, DrawsInsideItsClipAndOnlyWithAFontThatLoads) {
  std::unique_ptr<Font> font = loadFont(std::nullopt);
  ASSERT_TRUE(font) << "no font of the search list loads: install fonts-dejavu-core (scripts/install-deps.sh)";
  EXPECT_FALSE(loadFont(std::string("none")));
  TempDir tmp;
  writeText(tmp.file("fake.ttf"), "not a font");
  EXPECT_FALSE(loadFont(tmp.file("fake.ttf")));

  EXPECT_GT(font->width("Save", 13), font->width("S", 13));
  EXPECT_GT(font->width("Save", 26), font->width("Save", 13));
  EXPECT_EQ(font->width("a\nb", 13), font->width("a b", 13));
  EXPECT_GT(font->width("\xE6\x97\xA5 \xFF bad", 13), 0);  // missing glyphs and bad UTF-8 still advance

  Canvas canvas(60, 30, Color{255, 255, 255, 255});
  PixelRect clip{10, 5, 30, 20};
  font->draw(canvas, 0, 20, "WWWWWWWW", 16, Color{0, 0, 0, 255}, clip);
  int inside = 0, outside = 0;
  for (int y = 0; y < canvas.height(); ++y) {
    for (int x = 0; x < canvas.width(); ++x) {
      bool inked = canvas.at(x, y) != Color{255, 255, 255, 255};
      bool inClip = x >= clip.x && x < clip.right() && y >= clip.y && y < clip.bottom();
      (inClip ? inside : outside) += inked;
    }
  }
  EXPECT_GT(inside, 50);
  EXPECT_EQ(outside, 0);
}
