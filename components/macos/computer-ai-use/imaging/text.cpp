#include "imaging/text.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <unicode/utf8.h>

#include <algorithm>
#include <climits>
#include <unordered_map>

namespace tavlin::imaging {

namespace {

struct Glyph {
  int left = 0, top = 0, width = 0, rows = 0, advance = 0;
  std::vector<uint8_t> coverage;  // width × rows, 0 to 255
};

// Rendered glyphs are kept, since labels repeat the same few characters many times;
// the cache is emptied when it grows past this many.
constexpr size_t maxCachedGlyphs = 4096;

// The code points of one line of UTF-8 text (ICU's decoder: a malformed sequence is
// U+FFFD); line breaks and tabs are blanks.
std::u32string codePoints(std::string_view text) {
  std::u32string out;
  out.reserve(text.size());
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  int32_t length = static_cast<int32_t>(std::min<size_t>(text.size(), INT32_MAX));
  for (int32_t i = 0; i < length;) {
    UChar32 c;
    U8_NEXT(bytes, i, length, c);
    if (c < 0) c = 0xFFFD;
    if (c == '\n' || c == '\t' || c == '\r') c = ' ';
    out.push_back(static_cast<char32_t>(c));
  }
  return out;
}

}  // namespace

struct Font::Face {
  FT_Library library = nullptr;
  FT_Face face = nullptr;
  int size = 0;  // the pixel size set on `face`
  std::unordered_map<uint64_t, Glyph> glyphs;

  ~Face() {
    if (face) FT_Done_Face(face);
    if (library) FT_Done_FreeType(library);
  }

  bool setSize(int pixelSize) {
    pixelSize = std::clamp(pixelSize, 1, 512);
    if (size == pixelSize) return true;
    if (FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(pixelSize)) != 0) return false;
    size = pixelSize;
    return true;
  }

  const Glyph* glyph(char32_t c, int pixelSize) {
    pixelSize = std::clamp(pixelSize, 1, 512);
    uint64_t key = (static_cast<uint64_t>(pixelSize) << 32) | static_cast<uint64_t>(c);
    if (auto it = glyphs.find(key); it != glyphs.end()) return &it->second;
    if (!setSize(pixelSize)) return nullptr;
    Glyph g;
    if (FT_Load_Char(face, c, FT_LOAD_RENDER | FT_LOAD_TARGET_NORMAL) == 0) {
      FT_GlyphSlot slot = face->glyph;
      const FT_Bitmap& bitmap = slot->bitmap;
      g.left = slot->bitmap_left;
      g.top = slot->bitmap_top;
      g.advance = static_cast<int>(slot->advance.x >> 6);
      if (bitmap.pixel_mode == FT_PIXEL_MODE_GRAY) {
        g.width = static_cast<int>(bitmap.width);
        g.rows = static_cast<int>(bitmap.rows);
        g.coverage.resize(static_cast<size_t>(g.width) * static_cast<size_t>(g.rows));
        for (int y = 0; y < g.rows; ++y) {
          const unsigned char* source = bitmap.buffer + static_cast<ptrdiff_t>(y) * bitmap.pitch;
          std::copy(source, source + g.width, g.coverage.begin() + static_cast<ptrdiff_t>(y) * g.width);
        }
      }
    }
    if (glyphs.size() >= maxCachedGlyphs) glyphs.clear();
    return &glyphs.emplace(key, std::move(g)).first->second;
  }
};

Font::Font(std::unique_ptr<Face> face) : face_(std::move(face)) {}
Font::~Font() = default;

std::unique_ptr<Font> Font::load(const std::string& path) {
  auto face = std::make_unique<Face>();
  if (FT_Init_FreeType(&face->library) != 0) return nullptr;
  if (FT_New_Face(face->library, path.c_str(), 0, &face->face) != 0) return nullptr;
  // Only scalable outlines: a bitmap-only face cannot be drawn at every size.
  if (!FT_IS_SCALABLE(face->face) || !face->setSize(12)) return nullptr;
  return std::unique_ptr<Font>(new Font(std::move(face)));
}

int Font::ascent(int pixelSize) {
  if (!face_->setSize(pixelSize)) return pixelSize;
  return static_cast<int>((face_->face->size->metrics.ascender + 63) >> 6);
}

int Font::descent(int pixelSize) {
  if (!face_->setSize(pixelSize)) return 0;
  return static_cast<int>((-face_->face->size->metrics.descender + 63) >> 6);
}

int Font::width(std::string_view text, int pixelSize) {
  int total = 0;
  for (char32_t c : codePoints(text)) {
    if (const Glyph* g = face_->glyph(c, pixelSize)) total += g->advance;
  }
  return total;
}

int Font::inkAbove(std::string_view text, int pixelSize) {
  int top = 0;
  for (char32_t c : codePoints(text)) {
    if (const Glyph* g = face_->glyph(c, pixelSize); g && g->rows > 0) top = std::max(top, g->top);
  }
  return top;
}

void Font::draw(Canvas& canvas, int x, int baseline, std::string_view text, int pixelSize, Color color,
                const PixelRect& clip) {
  int right = std::min(clip.right(), canvas.width()), bottom = std::min(clip.bottom(), canvas.height());
  int left = std::max(clip.x, 0), top = std::max(clip.y, 0);
  for (char32_t c : codePoints(text)) {
    if (x >= right) break;
    const Glyph* g = face_->glyph(c, pixelSize);
    if (!g) continue;
    for (int row = 0; row < g->rows; ++row) {
      int py = baseline - g->top + row;
      if (py < top || py >= bottom) continue;
      for (int col = 0; col < g->width; ++col) {
        int px = x + g->left + col;
        if (px < left || px >= right) continue;
        canvas.blend(px, py, color, g->coverage[static_cast<size_t>(row) * static_cast<size_t>(g->width) + static_cast<size_t>(col)]);
      }
    }
    x += g->advance;
  }
}

const std::vector<std::string>& fontSearchList() {
  static const std::vector<std::string> list = {
      "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
      "/System/Library/Fonts/Helvetica.ttc",
      "/System/Library/Fonts/Supplemental/Arial.ttf",
      "/Library/Fonts/Arial.ttf",
  };
  return list;
}

std::unique_ptr<Font> loadFont(const std::optional<std::string>& chosen) {
  if (chosen) return Font::load(*chosen);
  for (const std::string& path : fontSearchList()) {
    if (auto font = Font::load(path)) return font;
  }
  return nullptr;
}

namespace {

// 0-9, five columns by seven rows, the top row first, the leftmost column the high bit.
constexpr uint8_t digitRows[10][7] = {
    {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E},  // 0
    {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E},  // 1
    {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F},  // 2
    {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E},  // 3
    {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02},  // 4
    {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E},  // 5
    {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E},  // 6
    {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08},  // 7
    {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E},  // 8
    {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C},  // 9
};

bool isDigit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

int builtInDigitsWidth(std::string_view digits, int scale) {
  int count = static_cast<int>(std::count_if(digits.begin(), digits.end(), isDigit));
  return count == 0 ? 0 : (count * 6 - 1) * scale;  // one blank column between digits
}

void drawBuiltInDigits(Canvas& canvas, int x, int top, std::string_view digits, int scale, Color color) {
  for (char c : digits) {
    if (!isDigit(c)) continue;
    const uint8_t* rows = digitRows[c - '0'];
    for (int row = 0; row < 7; ++row) {
      for (int col = 0; col < 5; ++col) {
        if (rows[row] & (0x10 >> col)) canvas.fill(x + col * scale, top + row * scale, scale, scale, color);
      }
    }
    x += 6 * scale;
  }
}

}  // namespace tavlin::imaging
