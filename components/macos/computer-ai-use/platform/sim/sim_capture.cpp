#include "platform/sim/sim_capture.h"

#include <sys/stat.h>

#include <cmath>
#include <unordered_set>

#include "platform/sim/sim_png.h"

namespace tavlin::sim {

using platform::Rect;

namespace {

const std::string* textAttribute(const SimElement& e, const char* name) {
  auto it = e.attributes.find(name);
  return it == e.attributes.end() ? nullptr : std::get_if<std::string>(&it->second.storage);
}

std::optional<Rect> frameOf(const SimElement& e) {
  auto p = e.attributes.find("AXPosition");
  auto s = e.attributes.find("AXSize");
  if (p == e.attributes.end() || s == e.attributes.end()) return std::nullopt;
  const auto* point = std::get_if<platform::Point>(&p->second.storage);
  const auto* size = std::get_if<platform::Size>(&s->second.storage);
  if (!point || !size) return std::nullopt;
  return Rect{*point, *size};
}

struct Style {
  std::optional<Color> fill;
  Color line;
};

Style styleFor(const std::string& role, const std::string* subrole) {
  if (subrole && *subrole == "AXCloseButton") return {Color{255, 95, 87}, Color{224, 68, 62}};
  if (subrole && *subrole == "AXMinimizeButton") return {Color{254, 188, 46}, Color{222, 161, 35}};
  if (subrole && *subrole == "AXFullScreenButton") return {Color{40, 200, 64}, Color{29, 173, 43}};
  if (role == "AXWindow") return {Color{250, 250, 250}, Color{120, 120, 120}};
  if (role == "AXButton" || role == "AXMenuButton") return {Color{214, 228, 252}, Color{66, 110, 200}};
  if (role == "AXPopUpButton" || role == "AXComboBox") return {Color{220, 240, 220}, Color{60, 140, 70}};
  if (role == "AXCheckBox" || role == "AXRadioButton") return {Color{255, 244, 214}, Color{190, 140, 30}};
  if (role == "AXTextField" || role == "AXTextArea" || role == "AXSearchField") return {Color{255, 255, 255}, Color{60, 60, 60}};
  if (role == "AXStaticText") return {std::nullopt, Color{150, 150, 150}};
  if (role == "AXToolbar" || role == "AXMenuBar") return {Color{236, 236, 236}, Color{200, 200, 200}};
  if (role == "AXScrollBar") return {Color{215, 215, 215}, Color{170, 170, 170}};
  return {std::nullopt, Color{205, 205, 205}};
}

// The accessibility window that stands for a window-server window: same frame, else
// same title, else the application's first window.
std::optional<size_t> axWindowFor(const SimDesktop& desktop, const platform::WindowInfo& window) {
  std::optional<size_t> byTitle, first;
  const auto& elements = desktop.elements();
  for (size_t i = 0; i < elements.size(); ++i) {
    const SimElement& e = elements[i];
    const std::string* role = textAttribute(e, "AXRole");
    if (e.pid != window.ownerPID || !role || *role != "AXWindow" || !desktop.present(e)) continue;
    if (!first) first = i;
    if (auto frame = frameOf(e); frame && *frame == window.bounds) return i;
    const std::string* title = textAttribute(e, "AXTitle");
    if (!byTitle && title && window.name && *title == *window.name) byTitle = i;
  }
  return byTitle ? byTitle : first;
}

void drawTree(const SimDesktop& desktop, size_t root, const Rect& region, double scale, Canvas& canvas) {
  std::unordered_set<size_t> seen;
  std::vector<size_t> stack{root};
  while (!stack.empty()) {
    size_t index = stack.back();
    stack.pop_back();
    if (!seen.insert(index).second) continue;
    const SimElement& e = desktop.element(index);
    if (!desktop.present(e)) continue;
    if (auto frame = frameOf(e)) {
      const std::string* role = textAttribute(e, "AXRole");
      Style style = styleFor(role ? *role : "", textAttribute(e, "AXSubrole"));
      double x = (frame->origin.x - region.origin.x) * scale, y = (frame->origin.y - region.origin.y) * scale;
      double w = frame->size.width * scale, h = frame->size.height * scale;
      if (style.fill) canvas.fill(x, y, w, h, *style.fill);
      if (role && *role == "AXStaticText") {
        canvas.fill(x + 2 * scale, y + h * 0.35, std::max(0.0, w - 4 * scale), h * 0.3, Color{120, 120, 120});
      } else {
        canvas.outline(x, y, w, h, style.line, static_cast<int>(std::max(1.0, scale)));
      }
      // Text in fields and text areas: one grey bar per line, as long as the line.
      const std::string* value = textAttribute(e, "AXValue");
      if (value && role && (*role == "AXTextArea" || *role == "AXTextField")) {
        double lineHeight = 18 * scale, top = y + 6 * scale;
        size_t start = 0;
        for (; start <= value->size() && top + lineHeight <= y + h; top += lineHeight) {
          size_t end = value->find('\n', start);
          if (end == std::string::npos) end = value->size();
          double length = std::min(w - 12 * scale, static_cast<double>(end - start) * 7 * scale);
          canvas.fill(x + 6 * scale, top + 4 * scale, length, 8 * scale, Color{70, 70, 70});
          start = end + 1;
        }
      }
    }
    auto children = e.attributes.find("AXChildren");
    if (children == e.attributes.end()) continue;
    const auto* list = std::get_if<StoredArray>(&children->second.storage);
    if (!list) continue;
    for (auto it = list->rbegin(); it != list->rend(); ++it) {
      if (const auto* child = std::get_if<ElementIndex>(&it->storage)) stack.push_back(child->index);
    }
  }
}

// The tools draw at most the screen's area, and never more than a fixed budget of
// pixels, so a huge window or backing scale costs bounded memory and time: such a
// capture fails, as the real tools fail for what they cannot capture.
constexpr double maxCapturePixels = 64.0 * 1024 * 1024;

std::optional<Canvas> canvasFor(const SimDesktop& desktop, const Rect& region, double scale) {
  const SimScreen& screen = desktop.screen();
  double width = std::round(region.size.width * scale), height = std::round(region.size.height * scale);
  double screenPixels = screen.width * screen.height * screen.backingScale * screen.backingScale;
  if (!(width >= 1) || !(height >= 1) || width * height > std::min(screenPixels, maxCapturePixels)) {
    return std::nullopt;
  }
  return Canvas(static_cast<int>(width), static_cast<int>(height), Color{190, 196, 204});
}

bool intersects(const Rect& a, const Rect& b) {
  return a.origin.x < b.origin.x + b.size.width && b.origin.x < a.origin.x + a.size.width &&
         a.origin.y < b.origin.y + b.size.height && b.origin.y < a.origin.y + a.size.height;
}

std::string joined(const std::vector<std::string>& args) {
  std::string out;
  for (const auto& a : args) out += (out.empty() ? "" : " ") + a;
  return out;
}

platform::ProcessResult exited(int status) {
  platform::ProcessResult r;
  r.launched = true;
  r.exitStatus = status;
  return r;
}

}  // namespace

std::optional<Canvas> drawWindow(const SimDesktop& desktop, uint32_t windowNumber, size_t pixelWidth,
                                 size_t pixelHeight) {
  for (const platform::WindowInfo& w : desktop.windows()) {
    if (w.number != windowNumber) continue;
    double scale = desktop.screen().backingScale;
    Rect region = w.bounds;
    if (pixelWidth > 0 && pixelHeight > 0 && w.bounds.size.width > 0) {
      // The size asked for, drawn at the scale that makes the window fit it.
      scale = static_cast<double>(pixelWidth) / w.bounds.size.width;
      region.size = {static_cast<double>(pixelWidth) / scale, static_cast<double>(pixelHeight) / scale};
    }
    std::optional<Canvas> canvas = canvasFor(desktop, region, scale);
    if (!canvas) return std::nullopt;
    if (auto root = axWindowFor(desktop, w)) drawTree(desktop, *root, region, scale, *canvas);
    return canvas;
  }
  return std::nullopt;
}

bool renderRegion(const SimDesktop& desktop, const Rect& region, const std::string& path) {
  if (!(region.size.width > 0) || !(region.size.height > 0)) return false;
  std::optional<Canvas> canvas = canvasFor(desktop, region, desktop.screen().backingScale);
  if (!canvas) return false;
  const auto& windows = desktop.windows();
  for (auto it = windows.rbegin(); it != windows.rend(); ++it) {
    if (!it->onscreen || !intersects(it->bounds, region)) continue;
    if (auto root = axWindowFor(desktop, *it)) drawTree(desktop, *root, region, desktop.screen().backingScale, *canvas);
  }
  return writePNG(*canvas, path);
}

std::optional<platform::ProcessResult> runSimulatedTool(SimDesktop& desktop, const platform::ProcessRequest& request) {
  const auto& args = request.arguments;
  if (request.executable == "/usr/sbin/screencapture") {
    desktop.log("system", "run", {{"program", request.executable}, {"arguments", joined(args)}});
    // screencapture -x -R<x>,<y>,<w>,<h> <file>
    std::optional<Rect> region;
    std::string out;
    for (const auto& a : args) {
      double x, y, w, h;
      char tail;
      if (a.starts_with("-R") && std::sscanf(a.c_str() + 2, "%lf,%lf,%lf,%lf%c", &x, &y, &w, &h, &tail) == 4) {
        region = Rect{{x, y}, {w, h}};
      } else if (!a.starts_with("-")) {
        out = a;
      }
    }
    if (!desktop.capture().screenshotToolWorks || !region || out.empty()) return exited(1);
    return exited(renderRegion(desktop, *region, out) ? 0 : 1);
  }
  // The companion runs for real (the tool's own capture mode against this desktop),
  // unless the desktop says it cannot.
  if (request.executable == "/bin/zsh" && !args.empty() && args[0].ends_with("/bin/background-window-capture") &&
      !desktop.capture().companionWorks) {
    desktop.log("system", "run", {{"program", args[0]}, {"arguments", joined({args.begin() + 1, args.end()})}});
    return exited(1);
  }
  return std::nullopt;
}

}  // namespace tavlin::sim
