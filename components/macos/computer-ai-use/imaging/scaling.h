#pragma once
// Shrinking an image to fit a size, by averaging the source pixels each target pixel
// covers (a box filter): every source pixel counts, so thin lines and small text fade
// rather than vanish, as they would when pixels are merely picked.
#include <cstdint>
#include <utility>

#include "imaging/canvas.h"

namespace tavlin::imaging {

// The size that keeps the aspect ratio with the longer side at most `maxDimension`
// (each side rounded, at least 1); the size itself when it is within already.
// Never larger than the size given.
std::pair<int, int> fittedSize(int width, int height, int maxDimension);

// The canvas at `width` × `height` (each at most the source's).
Canvas shrunk(const Canvas& source, int width, int height);

}  // namespace tavlin::imaging
