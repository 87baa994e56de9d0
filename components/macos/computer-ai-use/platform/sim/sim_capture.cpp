#include "platform/sim/sim_capture.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "common/unicode.h"
#include "imaging/png_file.h"

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

const StoredArray* childrenOf(const SimElement& e) {
  auto children = e.attributes.find("AXChildren");
  return children == e.attributes.end() ? nullptr : std::get_if<StoredArray>(&children->second.storage);
}

const std::string* nonEmptyText(const SimElement& e, const char* name) {
  const std::string* text = textAttribute(e, name);
  return text && !text->empty() ? text : nullptr;
}

// One element's frame in canvas pixels, and the scale it was drawn at.
struct Placed {
  double x, y, w, h, scale;
};

constexpr Color ink{28, 28, 30};
constexpr Color dimmedInk{150, 150, 150};
constexpr Color placeholderInk{160, 160, 165};
// Text is 13 points, the system's control size, smaller in frames too low for it.
constexpr double textPoints = 13, lineSpacingPoints = 18;

// How a text sits in its element: one line from the left, one line centred (shrunk
// down to 7 points to fit, as a button's title), or lines from the top.
enum class Layout { line, centred, lines };

// The text in `box`, clipped to it: one line centred vertically, or lines from the top.
// Without a font, each line is a grey bar as long as its text.
void drawText(Canvas& canvas, Font* font, const Placed& box, const std::string& text, Layout layout, Color color,
              double insetPoints) {
  const double s = box.scale, inset = insetPoints * s;
  imaging::PixelRect clip = imaging::enclosing(box.x, box.y, box.w, box.h).intersection(canvas.bounds());
  if (clip.empty()) return;
  double points = std::clamp(box.h / s - 4, 7.0, textPoints);
  int pixelSize = std::max(1, static_cast<int>(std::lround(points * s)));
  std::vector<std::string> lines;
  if (layout == Layout::lines) {
    for (size_t start = 0;;) {
      size_t end = text.find('\n', start);
      lines.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
      if (end == std::string::npos) break;
      start = end + 1;
    }
  } else {
    lines.push_back(text);
    if (layout == Layout::centred && font) {
      double room = box.w - 2 * inset;
      int width = font->width(text, pixelSize);
      if (width > room && room > 0) {
        pixelSize = std::max(static_cast<int>(std::lround(7 * s)), static_cast<int>(pixelSize * room / width));
      }
    }
  }
  double lineHeight = std::max(lineSpacingPoints * s, pixelSize * 1.2);
  // Lines start 6 points from the top, as in a text view; a single line is centred.
  double top = lines.size() == 1 || box.h < 2 * lineHeight ? box.y + (box.h - lineHeight) / 2
                                                           : box.y + 6 * s - (lineHeight - lineSpacingPoints * s) / 2;
  for (size_t i = 0; i < lines.size() && top < clip.bottom(); ++i, top += lineHeight) {
    if (i > 0 && top + lineHeight > box.y + box.h + 1) break;
    if (font) {
      int width = font->width(lines[i], pixelSize);
      double x = layout == Layout::centred ? std::max(box.x, box.x + (box.w - width) / 2) : box.x + inset;
      int ascent = font->ascent(pixelSize), descent = font->descent(pixelSize);
      int baseline = static_cast<int>(std::lround(top + (lineHeight - ascent - descent) / 2 + ascent));
      font->draw(canvas, static_cast<int>(std::lround(x)), baseline, lines[i], pixelSize, color, clip);
    } else {
      double length = std::min(box.w - 2 * inset, static_cast<double>(common::characterCount(lines[i])) * 7 * s);
      double x = layout == Layout::centred ? box.x + (box.w - length) / 2 : box.x + inset;
      canvas.fill(x, top + (lineHeight - 8 * s) / 2, length, 8 * s, Color{120, 120, 120});
    }
  }
}

bool isAny(const std::string& role, std::initializer_list<const char*> roles) {
  return std::any_of(roles.begin(), roles.end(), [&](const char* r) { return role == r; });
}

// Whether a window's title is shown by one of its children already (the title bar's text).
bool titleShownByChild(const SimDesktop& desktop, const SimElement& window, const std::string& title) {
  const StoredArray* children = childrenOf(window);
  if (!children) return false;
  for (const StoredValue& child : *children) {
    const auto* index = std::get_if<ElementIndex>(&child.storage);
    if (!index) continue;
    const SimElement& c = desktop.element(index->index);
    const std::string* role = textAttribute(c, "AXRole");
    const std::string* value = textAttribute(c, "AXValue");
    if (role && *role == "AXStaticText" && value && *value == title) return true;
  }
  return false;
}

// An element's text as a Mac shows it: a control's label on it, a field's value (its
// label as a grey placeholder when empty), a static text's value, a window's title in
// its title bar.
void drawElementText(const SimDesktop& desktop, const SimElement& e, const std::string& role, const Placed& box,
                     Canvas& canvas, Font* font) {
  const std::string* label = nonEmptyText(e, "AXTitle");
  if (!label) label = nonEmptyText(e, "AXDescription");
  const std::string* value = nonEmptyText(e, "AXValue");
  auto enabled = e.attributes.find("AXEnabled");
  const auto* enabledNumber = enabled == e.attributes.end() ? nullptr : std::get_if<platform::AXNumber>(&enabled->second.storage);
  Color color = enabledNumber && !enabledNumber->truthValue() ? dimmedInk : ink;
  const double s = box.scale;

  if (role == "AXWindow") {
    const std::string* title = textAttribute(e, "AXTitle");
    if (title && !title->empty() && !titleShownByChild(desktop, e, *title)) {
      drawText(canvas, font, {box.x, box.y, box.w, std::min(box.h, 28 * s), s}, *title, Layout::centred, color, 0);
    }
  } else if (isAny(role, {"AXTextField", "AXTextArea", "AXSearchField", "AXSecureTextField"})) {
    if (value) {
      drawText(canvas, font, box, *value, role == "AXTextArea" ? Layout::lines : Layout::line, color, 6);
    } else if (label && font) {
      drawText(canvas, font, box, *label, Layout::line, placeholderInk, 6);
    }
  } else if (isAny(role, {"AXCheckBox", "AXRadioButton"})) {
    double side = std::min(box.h, 14 * s), top = box.y + (box.h - side) / 2;
    canvas.outline(box.x + 2 * s, top, side, side, Color{110, 110, 110}, static_cast<int>(std::max(1.0, s)));
    auto v = e.attributes.find("AXValue");
    const auto* on = v == e.attributes.end() ? nullptr : std::get_if<platform::AXNumber>(&v->second.storage);
    if (on && on->truthValue()) canvas.fill(box.x + 5 * s, top + 3 * s, side - 6 * s, side - 6 * s, Color{40, 110, 220});
    if (label) drawText(canvas, font, {box.x + side + 6 * s, box.y, box.w - side - 6 * s, box.h, s}, *label, Layout::line, color, 0);
  } else if (isAny(role, {"AXPopUpButton", "AXComboBox"})) {
    if (const std::string* shown = value ? value : label) drawText(canvas, font, box, *shown, Layout::line, color, 8);
  } else if (isAny(role, {"AXButton", "AXMenuButton", "AXMenuBarItem", "AXMenuItem", "AXTab", "AXLink"})) {
    if (const std::string* shown = label ? label : value) drawText(canvas, font, box, *shown, Layout::centred, color, 2);
  } else if (role == "AXStaticText") {
    if (const std::string* shown = value ? value : label) drawText(canvas, font, box, *shown, Layout::lines, color, 2);
  } else if (!isAny(role, {"AXScrollBar", "AXSlider", "AXProgressIndicator", "AXValueIndicator", "AXSplitter"})) {
    // Anything else shows its text value; a leaf its label too (a container's label
    // names what its children show).
    if (value) {
      drawText(canvas, font, box, *value, Layout::lines, color, 4);
    } else if (label && !childrenOf(e)) {
      drawText(canvas, font, box, *label, Layout::centred, color, 2);
    }
  }
}

void drawTree(const SimDesktop& desktop, size_t root, const Rect& region, double scale, Canvas& canvas, Font* font) {
  std::unordered_set<size_t> seen;
  std::vector<size_t> stack{root};
  while (!stack.empty()) {
    size_t index = stack.back();
    stack.pop_back();
    if (!seen.insert(index).second) continue;
    const SimElement& e = desktop.element(index);
    if (!desktop.present(e)) continue;
    if (auto frame = frameOf(e)) {
      const std::string* roleText = textAttribute(e, "AXRole");
      const std::string role = roleText ? *roleText : "";
      Style style = styleFor(role, textAttribute(e, "AXSubrole"));
      Placed box{(frame->origin.x - region.origin.x) * scale, (frame->origin.y - region.origin.y) * scale,
                 frame->size.width * scale, frame->size.height * scale, scale};
      if (style.fill) canvas.fill(box.x, box.y, box.w, box.h, *style.fill);
      // Static text has no border; with a font its text stands by itself.
      if (role != "AXStaticText") {
        canvas.outline(box.x, box.y, box.w, box.h, style.line, static_cast<int>(std::max(1.0, scale)));
      } else if (!font) {
        canvas.fill(box.x + 2 * scale, box.y + box.h * 0.35, std::max(0.0, box.w - 4 * scale), box.h * 0.3,
                    Color{120, 120, 120});
      }
      bool onCanvas = box.x < canvas.width() && box.y < canvas.height() && box.x + box.w > 0 && box.y + box.h > 0;
      if (onCanvas && (font || isAny(role, {"AXTextArea", "AXTextField"}))) {
        if (font) {
          drawElementText(desktop, e, role, box, canvas, font);
        } else if (const std::string* value = textAttribute(e, "AXValue")) {
          drawText(canvas, nullptr, box, *value, Layout::lines, Color{70, 70, 70}, 6);
        }
      }
    }
    const StoredArray* list = childrenOf(e);
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
                                 size_t pixelHeight, Font* font) {
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
    if (auto root = axWindowFor(desktop, w)) drawTree(desktop, *root, region, scale, *canvas, font);
    return canvas;
  }
  return std::nullopt;
}

bool renderRegion(const SimDesktop& desktop, const Rect& region, const std::string& path, Font* font) {
  if (!(region.size.width > 0) || !(region.size.height > 0)) return false;
  std::optional<Canvas> canvas = canvasFor(desktop, region, desktop.screen().backingScale);
  if (!canvas) return false;
  const auto& windows = desktop.windows();
  for (auto it = windows.rbegin(); it != windows.rend(); ++it) {
    if (!it->onscreen || !intersects(it->bounds, region)) continue;
    if (auto root = axWindowFor(desktop, *it)) drawTree(desktop, *root, region, desktop.screen().backingScale, *canvas, font);
  }
  return imaging::writePNG(*canvas, path);
}

std::optional<platform::ProcessResult> runSimulatedTool(SimDesktop& desktop, const platform::ProcessRequest& request,
                                                        Font* font) {
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
    return exited(renderRegion(desktop, *region, out, font) ? 0 : 1);
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
