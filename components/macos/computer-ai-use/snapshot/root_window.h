#pragma once
// Choosing the window a snapshot describes: the accessibility element to walk and,
// where one matches, the window-server window whose number and bounds the screenshot
// needs. The two lists share no key, so they are matched by title and by frame.
// Selection never fails: it falls back to the focused, main or first window, and in
// the end to the application element itself.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace tavlin::snapshot {

struct QuartzWindowInfo {
  uint32_t windowID = 0;
  int32_t pid = 0;
  std::string ownerName;
  std::optional<std::string> title;
  platform::Rect frame;
  int64_t layer = 0;
  bool isOnscreen = false;
  friend bool operator==(const QuartzWindowInfo&, const QuartzWindowInfo&) = default;
};

struct SelectedRootWindow {
  platform::Element root;
  std::optional<QuartzWindowInfo> quartzWindow;
};

// The process's windows with a positive size, in the window server's order.
std::vector<QuartzWindowInfo> quartzWindows(platform::WindowList& windowList, int32_t pid);
// Trimmed; absent when absent or empty after trimming.
std::optional<std::string> cleanedWindowTitleFilter(const std::optional<std::string>& text);
// AXWindows, then AXFocusedWindow, then AXMainWindow, each window once (by hash).
std::vector<platform::Element> uniqueAXWindows(platform::Accessibility& ax, const platform::Element& app);
double rectDelta(const platform::Rect& a, const platform::Rect& b);
std::optional<platform::Element> bestAXWindowByFrame(platform::Accessibility& ax,
                                                     const std::vector<platform::Element>& windows,
                                                     const platform::Rect& preferredFrame);
std::optional<QuartzWindowInfo> matchQuartzWindow(const std::vector<QuartzWindowInfo>& windows,
                                                  const std::optional<std::string>& preferredTitle,
                                                  const std::optional<platform::Rect>& preferredFrame);
// The first of AXFocusedWindow, AXMainWindow, AXWindows.
std::optional<platform::Element> appRootWindow(platform::Accessibility& ax, const platform::Element& app);

SelectedRootWindow selectRootWindow(platform::Platform& platform, const platform::Element& app, int32_t pid,
                                    const std::optional<std::string>& titleContains,
                                    std::optional<uint32_t> windowID);

}  // namespace tavlin::snapshot
