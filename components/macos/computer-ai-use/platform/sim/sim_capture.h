#pragma once
// Stand-ins for the system screenshot tool and the companion capture script: they
// draw the simulated desktop's elements (frames in colours by role, titles and values
// as text) into a real PNG whose pixel size is the captured size in points times the
// desktop's backing scale. Without a font, text is drawn as grey bars.
#include <string>

#include "imaging/canvas.h"
#include "imaging/text.h"
#include "platform/geometry.h"
#include "platform/processes.h"
#include "platform/sim/sim_desktop.h"

namespace tavlin::sim {

using imaging::Canvas;
using imaging::Color;
using imaging::Font;

// Draws one window-server window by itself, at `pixelWidth` × `pixelHeight` (0: the
// window's size at the backing scale). Absent when there is no such window or the
// image would be larger than the tools draw.
// `font` may be null (no text, bars instead).
std::optional<Canvas> drawWindow(const SimDesktop& desktop, uint32_t windowNumber, size_t pixelWidth,
                                 size_t pixelHeight, Font* font);
// Draws whatever is on screen in a rectangle, windows back to front.
bool renderRegion(const SimDesktop& desktop, const platform::Rect& region, const std::string& path, Font* font);

// Whether a process request is one of the simulated tools, and if so its result.
std::optional<platform::ProcessResult> runSimulatedTool(SimDesktop& desktop, const platform::ProcessRequest& request,
                                                        Font* font);

}  // namespace tavlin::sim
