#pragma once
// PNG files through libpng: any PNG read into a canvas, canvases written as 8-bit RGB
// (RGBA when any pixel is not opaque).
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "imaging/canvas.h"

namespace tavlin::imaging {

// Reads any PNG (1 to 16 bits, grey, palette, with or without alpha, interlaced) of at
// most maxCanvasPixels pixels. A link at `path` is not followed. Absent for anything
// else; `problem` then says why in a few words.
std::optional<Canvas> readPNG(const std::string& path, std::string& problem);

// Writes the canvas to `path` (created or truncated); false on failure, with nothing
// left at `path`. Callers write into a private staging folder and move the file into place.
bool writePNG(const Canvas& canvas, const std::string& path);

// Width and height from a PNG's header; absent for anything that is not a PNG.
std::optional<std::pair<int64_t, int64_t>> readPNGSize(const std::string& path);

}  // namespace tavlin::imaging
