#pragma once
// What get-app-state makes of the window screenshot after capturing it, from the PNG
// the capture wrote and the walk already done (no further accessibility call):
// - a smaller image for models (--max-dimension): the cached screenshot is replaced by
//   a copy whose longer side is at most N pixels, and the snapshot records that size,
//   so screenshot pixels keep mapping exactly to screen points;
// - an annotated copy (--annotate), `<stem>-<pid>.annotated.png` beside the screenshot,
//   with each element's frame outlined and its index drawn in a label.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "imaging/canvas.h"
#include "platform/platform.h"
#include "runtime/process_values.h"
#include "snapshot/snapshot_model.h"

namespace tavlin::snapshot {

// --max-dimension: pixels on the longer side, from a thumbnail a model can still read
// to the largest image any display gives.
inline constexpr int minMaxDimension = 64;
inline constexpr int maxMaxDimension = 16384;

struct ScreenshotOptions {
  bool annotate = false;
  std::optional<int> maxDimension;
};

// The text of --max-dimension as a bound; throws ToolError
// "--max-dimension must be an integer from 64 to 16384, not <text>".
int parseMaxDimension(const std::string& text);

std::string annotatedScreenshotFileURL(const runtime::ProcessValues& values, const platform::RunningApplication& app);

// Shrinks the snapshot's screenshot to `options.maxDimension` and writes the annotated
// copy, updating `screenshotSize` and `annotatedScreenshotPath`. A previous annotated
// file is removed first, whatever happens, so it never shows an older window. Never
// fails the command: a screenshot that cannot be shrunk is dropped (an image larger
// than asked would break the caller's limit), an annotation that cannot be made is
// left out.
void finishScreenshot(platform::Platform& platform, const runtime::ProcessValues& values,
                      const platform::RunningApplication& app, AppStateSnapshot& snapshot,
                      const ScreenshotOptions& options);

// Index labels, placed so that they do not hide each other where the image has room:
// each goes at a corner of its element's frame, inside or just outside, else further
// along its edges; smaller elements choose first, since they have fewer good places.
struct LabelTarget {
  int64_t index = 0;
  imaging::PixelRect frame;  // the element's frame in image pixels
};
struct PlacedLabel {
  int64_t index = 0;
  imaging::PixelRect label;
};
// `labelSize` gives each label's width and height. Labels lie inside `image`; the result
// is in the targets' order.
std::vector<PlacedLabel> placeLabels(const std::vector<LabelTarget>& targets,
                                     const std::function<std::pair<int, int>(int64_t)>& labelSize,
                                     const imaging::PixelRect& image);

// The colour of an element's outline and label: neighbours' indices differ in colour.
imaging::Color annotationColor(int64_t index);

// The elements whose frame meets the window, in image pixels (through the window frame
// and the image size); empty without a window frame or image size.
std::vector<LabelTarget> labelTargets(const AppStateSnapshot& snapshot);

}  // namespace tavlin::snapshot
