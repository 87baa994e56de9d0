#include "snapshot/screenshot_images.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <set>
#include <tuple>
#include <unordered_map>

#include "cli/arguments.h"
#include "cli/tool_error.h"
#include "common/files.h"
#include "imaging/png_file.h"
#include "imaging/scaling.h"
#include "imaging/text.h"
#include "snapshot/state_cache.h"

namespace tavlin::snapshot {

using imaging::Canvas;
using imaging::Color;
using imaging::PixelRect;

int parseMaxDimension(const std::string& text) {
  auto value = cli::parseInt64(text);
  if (!value || *value < minMaxDimension || *value > maxMaxDimension) {
    throw cli::ToolError("--max-dimension must be an integer from " + std::to_string(minMaxDimension) + " to " +
                         std::to_string(maxMaxDimension) + ", not " + text);
  }
  return static_cast<int>(*value);
}

std::string annotatedScreenshotFileURL(const runtime::ProcessValues& values, const platform::RunningApplication& app) {
  return common::appendPathComponent(values.cacheDirectoryURL,
                                     cacheStem(app) + "-" + std::to_string(app.pid) + ".annotated.png");
}

// ---- Label placement ----

namespace {

// Placed labels by the cells of a coarse grid they cover, so that a candidate is
// checked against its neighbours only: ten thousand labels stay cheap.
class LabelGrid {
 public:
  bool overlaps(const PixelRect& r) const {
    bool hit = false;
    forCells(r, [&](int64_t cell) {
      auto it = cells_.find(cell);
      if (it == cells_.end()) return;
      for (const PixelRect& placed : it->second) hit = hit || placed.intersects(r);
    });
    return hit;
  }
  void add(const PixelRect& r) {
    forCells(r, [&](int64_t cell) { cells_[cell].push_back(r); });
  }

 private:
  static constexpr int cellSize = 64;
  template <typename F>
  static void forCells(const PixelRect& r, F f) {
    auto cell = [](int v) { return static_cast<int64_t>(std::floor(static_cast<double>(v) / cellSize)); };
    for (int64_t y = cell(r.y); y <= cell(r.bottom() - 1); ++y) {
      for (int64_t x = cell(r.x); x <= cell(r.right() - 1); ++x) f((y << 32) ^ (x & 0xffffffff));
    }
  }
  std::unordered_map<int64_t, std::vector<PixelRect>> cells_;
};

// Moved the least distance that puts `r` inside `image` (its top-left corner when it is larger).
PixelRect keptInside(PixelRect r, const PixelRect& image) {
  r.x = std::max(image.x, std::min(r.x, image.right() - r.width));
  r.y = std::max(image.y, std::min(r.y, image.bottom() - r.height));
  return r;
}

// Places on a grid of half a label around a frame's top-left corner, nearest first:
// the same for every label of one size, so they are sorted once.
class NearbyPlaces {
 public:
  const std::vector<std::pair<int, int>>& offsets(int w, int h) {
    auto& list = bySize_[{w, h}];
    if (list.empty()) {
      const int across = std::max(1, w / 2), down = std::max(1, h / 2);
      std::vector<std::pair<int64_t, std::pair<int, int>>> sorted;
      for (int j = -4; j <= 4; ++j) {
        for (int k = -4; k <= 12; ++k) {
          int64_t dx = int64_t{k} * across, dy = int64_t{j} * down;
          sorted.push_back({dx * dx + dy * dy, {k * across, j * down}});
        }
      }
      std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
      for (const auto& entry : sorted) list.push_back(entry.second);
    }
    return list;
  }

 private:
  std::map<std::pair<int, int>, std::vector<std::pair<int, int>>> bySize_;
};

// Where a w × h label may go for `f`, best first: the corners, inside then just
// outside; then the nearby places. Every place lies within two labels of the frame, so
// a label reads as its element's.
std::vector<PixelRect> candidates(const PixelRect& f, int w, int h, NearbyPlaces& places) {
  std::vector<PixelRect> out = {
      {f.x, f.y, w, h},                       // inside top-left
      {f.x, f.y - h, w, h},                   // above top-left
      {f.right() - w, f.y, w, h},             // inside top-right
      {f.right() - w, f.y - h, w, h},         // above top-right
      {f.x, f.bottom() - h, w, h},            // inside bottom-left
      {f.x, f.bottom(), w, h},                // below bottom-left
      {f.right() - w, f.bottom() - h, w, h},  // inside bottom-right
      {f.right() - w, f.bottom(), w, h},      // below bottom-right
      {f.x - w, f.y, w, h},                   // left of top-left
      {f.right(), f.y, w, h},                 // right of top-right
  };
  PixelRect near{f.x - 2 * w, f.y - 2 * h, f.width + 4 * w, f.height + 4 * h};
  for (const auto& [dx, dy] : places.offsets(w, h)) {
    PixelRect r{f.x + dx, f.y + dy, w, h};
    if (near.contains(r)) out.push_back(r);
  }
  return out;
}

}  // namespace

std::vector<PlacedLabel> placeLabels(const std::vector<LabelTarget>& targets,
                                     const std::function<std::pair<int, int>(int64_t)>& labelSize,
                                     const PixelRect& image) {
  std::vector<size_t> order(targets.size());
  std::iota(order.begin(), order.end(), 0);
  auto area = [&](size_t i) { return int64_t{targets[i].frame.width} * targets[i].frame.height; };
  std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return area(a) < area(b); });

  std::vector<PlacedLabel> placed(targets.size());
  LabelGrid grid;
  NearbyPlaces places;
  // Elements stacked on one spot (a long list drawn over itself) look for the same
  // places. Labels only ever take places, so once every place for a frame and label
  // size is taken it stays so: the next such element goes straight to the first place.
  std::set<std::tuple<int, int, int, int, int, int>> full;
  for (size_t i : order) {
    auto [w, h] = labelSize(targets[i].index);
    const PixelRect& f = targets[i].frame;
    auto key = std::make_tuple(f.x, f.y, f.width, f.height, w, h);
    std::optional<PixelRect> chosen;
    if (!full.contains(key)) {
      for (const PixelRect& candidate : candidates(f, w, h, places)) {
        PixelRect r = keptInside(candidate, image);
        if (!grid.overlaps(r)) {
          chosen = r;
          break;
        }
      }
    }
    // Nowhere free: the first place, over another label, rather than none at all. It
    // is not recorded, since that place was taken already; the grid then holds only
    // labels that do not overlap, a bounded number a cell.
    if (chosen) {
      grid.add(*chosen);
    } else {
      full.insert(key);
    }
    placed[i] = {targets[i].index, chosen ? *chosen : keptInside({f.x, f.y, w, h}, image)};
  }
  return placed;
}

std::vector<LabelTarget> labelTargets(const AppStateSnapshot& s) {
  std::vector<LabelTarget> out;
  if (!s.screenshotSize || !s.window || !s.window->frame) return out;
  const RectPayload& window = *s.window->frame;
  const SizePayload& size = *s.screenshotSize;
  if (!(window.width > 0) || !(window.height > 0) || size.width < 1 || size.height < 1) return out;
  double sx = static_cast<double>(size.width) / window.width, sy = static_cast<double>(size.height) / window.height;
  PixelRect image{0, 0, static_cast<int>(std::min<int64_t>(size.width, 1 << 29)),
                  static_cast<int>(std::min<int64_t>(size.height, 1 << 29))};
  for (const ElementSnapshot& e : s.elements) {
    if (!e.frame) continue;
    PixelRect r = imaging::enclosing((e.frame->x - window.x) * sx, (e.frame->y - window.y) * sy, e.frame->width * sx,
                                     e.frame->height * sy);
    if (!r.intersects(image)) continue;
    out.push_back({e.index, r.intersection(image)});
  }
  return out;
}

// ---- Drawing ----

namespace {

// Colours far apart, so that neighbouring outlines tell apart; each label in its
// element's colour.
constexpr Color palette[] = {{230, 25, 75},  {0, 120, 200}, {40, 160, 60},  {235, 110, 20},
                             {145, 30, 180}, {0, 140, 140}, {200, 30, 170}, {110, 80, 20}};

}  // namespace

Color annotationColor(int64_t index) { return palette[static_cast<size_t>(index) % std::size(palette)]; }

namespace {

Color inkOn(Color c) {
  int luminance = (c.r * 299 + c.g * 587 + c.b * 114) / 1000;
  return luminance > 150 ? Color{0, 0, 0} : Color{255, 255, 255};
}

// How labels are lettered: the font's digits, else the built-in ones.
class Lettering {
 public:
  Lettering(imaging::Font* font, double pixelsPerPoint) : font_(font) {
    // 12 points of text scaled as the image is, and never below what stays legible.
    pixelSize_ = std::clamp(static_cast<int>(std::lround(12 * pixelsPerPoint)), 11, 28);
    scale_ = std::max(1, static_cast<int>(std::lround(pixelSize_ / 9.0)));
    pad_ = std::max(2, pixelSize_ / 6);
    if (font_) {
      digitHeight_ = font_->inkAbove("0123456789", pixelSize_);
      if (digitHeight_ <= 0) font_ = nullptr;
    }
    if (!font_) digitHeight_ = imaging::builtInDigitsHeight(scale_);
  }

  std::pair<int, int> size(const std::string& text) const {
    int width = font_ ? font_->width(text, pixelSize_) : imaging::builtInDigitsWidth(text, scale_);
    return {width + 2 * pad_, digitHeight_ + 2 * pad_};
  }

  void draw(Canvas& canvas, const PixelRect& box, const std::string& text, Color fill) const {
    canvas.fill(box, fill);
    Color ink = inkOn(fill);
    if (font_) {
      font_->draw(canvas, box.x + pad_, box.y + pad_ + digitHeight_, text, pixelSize_, ink, box);
    } else {
      imaging::drawBuiltInDigits(canvas, box.x + pad_, box.y + pad_, text, scale_, ink);
    }
  }

 private:
  imaging::Font* font_;
  int pixelSize_ = 12, scale_ = 1, pad_ = 2, digitHeight_ = 0;
};

void annotate(Canvas& canvas, const AppStateSnapshot& s, imaging::Font* font) {
  std::vector<LabelTarget> targets = labelTargets(s);
  double pixelsPerPoint = static_cast<double>(s.screenshotSize->width) / s.window->frame->width;
  int thickness = std::max(1, static_cast<int>(std::lround(pixelsPerPoint)));
  Lettering lettering(font, pixelsPerPoint);
  // Outlines first, parents before children, then every label above them all.
  for (const LabelTarget& t : targets) {
    canvas.outline(t.frame.x, t.frame.y, t.frame.width, t.frame.height, annotationColor(t.index), thickness);
  }
  std::vector<PlacedLabel> labels = placeLabels(
      targets, [&](int64_t index) { return lettering.size(std::to_string(index)); }, canvas.bounds());
  for (const PlacedLabel& l : labels) lettering.draw(canvas, l.label, std::to_string(l.index), annotationColor(l.index));
}

// Writes `canvas` over `path` through a private staging folder; true when it is in place.
bool replaceWith(const Canvas& canvas, const std::string& path) {
  common::StagedFile staged(path);
  return staged.ready() && imaging::writePNG(canvas, staged.stagedPath()) && staged.commit(0600);
}

}  // namespace

void finishScreenshot(platform::Platform& platform, const runtime::ProcessValues& values,
                      const platform::RunningApplication& app, AppStateSnapshot& s, const ScreenshotOptions& options) {
  std::string annotatedPath = annotatedScreenshotFileURL(values, app);
  ::unlink(annotatedPath.c_str());
  s.annotatedScreenshotPath.reset();
  if (!s.screenshotPath) return;
  const std::string path = *s.screenshotPath;
  std::optional<Canvas> image;  // decoded at most once for both steps
  std::string problem;
  auto dropScreenshot = [&] {
    ::unlink(path.c_str());
    s.screenshotPath.reset();
    s.screenshotSize.reset();
  };

  // An image of unknown size cannot be told to be within the bound, nor mapped.
  if (options.maxDimension && !s.screenshotSize) return dropScreenshot();
  if (options.maxDimension) {
    auto [width, height] = imaging::fittedSize(static_cast<int>(std::min<int64_t>(s.screenshotSize->width, 1 << 30)),
                                               static_cast<int>(std::min<int64_t>(s.screenshotSize->height, 1 << 30)),
                                               *options.maxDimension);
    if (width != s.screenshotSize->width || height != s.screenshotSize->height) {
      image = imaging::readPNG(path, problem);
      std::optional<SizePayload> written;
      if (image) {
        image = imaging::shrunk(*image, width, height);
        if (replaceWith(*image, path)) written = readImageSize(platform, path);
      }
      if (!written || written->width != width || written->height != height) return dropScreenshot();
      s.screenshotSize = written;
    }
  }

  if (options.annotate && !labelTargets(s).empty()) {
    if (!image) image = imaging::readPNG(path, problem);
    if (!image || image->width() != s.screenshotSize->width || image->height() != s.screenshotSize->height) return;
    std::unique_ptr<imaging::Font> font = imaging::loadFont(values.fontSetting);
    annotate(*image, s, font.get());
    if (replaceWith(*image, annotatedPath)) s.annotatedScreenshotPath = annotatedPath;
  }
}

}  // namespace tavlin::snapshot
