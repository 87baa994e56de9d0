#include "snapshot/root_window.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "common/unicode.h"
#include "snapshot/ax_access.h"

namespace tavlin::snapshot {

using platform::Element;
using platform::Rect;

namespace {

std::string titleOf(Element const& window, platform::Accessibility& ax) {
  return axString(ax, window, "AXTitle").value_or("");
}

}  // namespace

std::vector<QuartzWindowInfo> quartzWindows(platform::WindowList& windowList, int32_t pid) {
  std::vector<QuartzWindowInfo> out;
  auto entries = windowList.copyWindowInfo(platform::windowlist::all, 0);
  if (!entries) return out;
  for (const platform::WindowInfo& w : *entries) {
    if (w.ownerPID != pid || w.number == 0) continue;
    if (!(w.bounds.size.width > 0) || !(w.bounds.size.height > 0)) continue;
    out.push_back({w.number, w.ownerPID, w.ownerName.value_or(""), w.name, w.bounds, w.layer, w.onscreen});
  }
  return out;
}

std::optional<std::string> cleanedWindowTitleFilter(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  std::string cleaned = common::trimmed(*text);
  if (cleaned.empty()) return std::nullopt;
  return cleaned;
}

std::vector<Element> uniqueAXWindows(platform::Accessibility& ax, const Element& app) {
  std::vector<Element> out;
  std::unordered_set<uint64_t> seen;
  for (const char* attribute : {"AXWindows", "AXFocusedWindow", "AXMainWindow"}) {
    for (Element& w : axElements(ax, app, attribute)) {
      if (seen.insert(ax.hash(w)).second) out.push_back(std::move(w));
    }
  }
  return out;
}

double rectDelta(const Rect& a, const Rect& b) {
  return std::fabs(a.origin.x - b.origin.x) + std::fabs(a.origin.y - b.origin.y) +
         std::fabs(a.size.width - b.size.width) + std::fabs(a.size.height - b.size.height);
}

std::optional<Element> bestAXWindowByFrame(platform::Accessibility& ax, const std::vector<Element>& windows,
                                           const Rect& preferredFrame) {
  std::optional<Element> best;
  double bestDelta = 0;
  for (const Element& w : windows) {
    auto frame = axFrame(ax, w);
    if (!frame || !(frame->size.width > 0) || !(frame->size.height > 0)) continue;
    double delta = rectDelta(*frame, preferredFrame);
    // Strictly smaller only: equal distances keep the first window, as a stable sort would.
    if (!best || delta < bestDelta) {
      best = w;
      bestDelta = delta;
    }
  }
  return best;
}

std::optional<QuartzWindowInfo> matchQuartzWindow(const std::vector<QuartzWindowInfo>& windows,
                                                  const std::optional<std::string>& preferredTitle,
                                                  const std::optional<Rect>& preferredFrame) {
  if (windows.empty()) return std::nullopt;
  if (auto title = cleanedWindowTitleFilter(preferredTitle)) {
    for (const auto& w : windows) {
      if (w.title.value_or("") == *title) return w;
    }
    for (const auto& w : windows) {
      if (common::containsIgnoringCase(w.title.value_or(""), *title)) return w;
    }
  }
  std::vector<QuartzWindowInfo> sorted = windows;
  if (preferredFrame) {
    std::stable_sort(sorted.begin(), sorted.end(), [&](const QuartzWindowInfo& a, const QuartzWindowInfo& b) {
      return rectDelta(a.frame, *preferredFrame) < rectDelta(b.frame, *preferredFrame);
    });
    return sorted.front();
  }
  std::stable_sort(sorted.begin(), sorted.end(), [](const QuartzWindowInfo& a, const QuartzWindowInfo& b) {
    if (a.layer != b.layer) return a.layer < b.layer;
    if (a.isOnscreen != b.isOnscreen) return a.isOnscreen;
    return a.windowID > b.windowID;
  });
  return sorted.front();
}

std::optional<Element> appRootWindow(platform::Accessibility& ax, const Element& app) {
  for (const char* attribute : {"AXFocusedWindow", "AXMainWindow", "AXWindows"}) {
    auto windows = axElements(ax, app, attribute);
    if (!windows.empty()) return windows.front();
  }
  return std::nullopt;
}

SelectedRootWindow selectRootWindow(platform::Platform& platform, const Element& app, int32_t pid,
                                    const std::optional<std::string>& titleContains,
                                    std::optional<uint32_t> windowID) {
  platform::Accessibility& ax = platform.accessibility();
  std::vector<Element> windows = uniqueAXWindows(ax, app);
  std::optional<std::string> filter = cleanedWindowTitleFilter(titleContains);
  std::vector<QuartzWindowInfo> serverWindows = quartzWindows(platform.windowList(), pid);

  std::optional<QuartzWindowInfo> serverMatch;
  if (windowID) {
    for (const auto& w : serverWindows) {
      if (w.windowID == *windowID) {
        serverMatch = w;
        break;
      }
    }
  }
  if (!serverMatch && filter) {
    for (const auto& w : serverWindows) {
      if (common::containsIgnoringCase(w.title.value_or(""), *filter)) {
        serverMatch = w;
        break;
      }
    }
  }

  if (filter) {
    for (const Element& w : windows) {
      std::string title = titleOf(w, ax);
      if (!common::containsIgnoringCase(title, *filter)) continue;
      if (serverMatch) return {w, serverMatch};
      return {w, matchQuartzWindow(serverWindows, title, axFrame(ax, w))};
    }
  }

  if (serverMatch) {
    std::optional<Element> found;
    if (auto t = cleanedWindowTitleFilter(serverMatch->title)) {
      for (const Element& w : windows) {
        if (titleOf(w, ax) == *t) {
          found = w;
          break;
        }
      }
      if (!found) {
        for (const Element& w : windows) {
          if (common::containsIgnoringCase(titleOf(w, ax), *t)) {
            found = w;
            break;
          }
        }
      }
    }
    if (!found) found = bestAXWindowByFrame(ax, windows, serverMatch->frame);
    if (found) return {*found, serverMatch};
  }

  if (auto root = appRootWindow(ax, app)) {
    return {*root, matchQuartzWindow(serverWindows, axString(ax, *root, "AXTitle"), axFrame(ax, *root))};
  }
  return {app, serverMatch};
}

}  // namespace tavlin::snapshot
