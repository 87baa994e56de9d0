#pragma once
// Text in images: a font file drawn through FreeType (left to right, one line at a time,
// no shaping: enough for labels, titles and values), and a small built-in face of
// digits for when no font file can be loaded.
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "imaging/canvas.h"

namespace tavlin::imaging {

class Font {
 public:
  // The first face of the file; absent when FreeType cannot use it.
  static std::unique_ptr<Font> load(const std::string& path);
  ~Font();
  Font(const Font&) = delete;
  Font& operator=(const Font&) = delete;

  // Pixels above and below the baseline of a line at `pixelSize` (1 to 512).
  int ascent(int pixelSize);
  int descent(int pixelSize);
  // The advance of one line of UTF-8 text (line breaks and tabs count as blanks).
  int width(std::string_view text, int pixelSize);
  // How far the text's tallest glyph reaches above the baseline (a label of digits is
  // lettered by this rather than by the font's ascent, which leaves room for accents).
  int inkAbove(std::string_view text, int pixelSize);
  // Draws one line starting at `x` with its baseline at `baseline`, anti-aliased,
  // nothing outside `clip`. Characters the font lacks show as its missing-glyph box.
  void draw(Canvas& canvas, int x, int baseline, std::string_view text, int pixelSize, Color color,
            const PixelRect& clip);

 private:
  struct Face;
  explicit Font(std::unique_ptr<Face> face);
  std::unique_ptr<Face> face_;
};

// Where fonts are looked for, in order: DejaVu Sans (Debian's fonts-dejavu-core), then
// the system fonts every Mac has.
const std::vector<std::string>& fontSearchList();
// The font to draw with: the file `chosen` names (TAVLIN_FONT) when given, and then no
// other (so "none" or a bad path turns text off); else the first of the search list
// that loads. Absent when there is none.
std::unique_ptr<Font> loadFont(const std::optional<std::string>& chosen);

// The built-in digits (a 5 × 7 pixel design, each pixel drawn as `scale` × `scale`):
// index labels stay legible without any font file. Characters other than 0-9 are skipped.
int builtInDigitsWidth(std::string_view digits, int scale);
inline int builtInDigitsHeight(int scale) { return 7 * scale; }
void drawBuiltInDigits(Canvas& canvas, int x, int top, std::string_view digits, int scale, Color color);

}  // namespace tavlin::imaging
