#pragma once
// The snapshot records: what get-app-state produces and later commands read back.
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/accessibility.h"

namespace tavlin::snapshot {

// A rectangle in screen points, top-left origin.
struct RectPayload {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  friend bool operator==(const RectPayload&, const RectPayload&) = default;
};

// One accessibility element of a snapshot, as the walk records it.
struct ElementSnapshot {
  int64_t index = 0;
  std::string role;
  std::optional<std::string> subrole;
  std::optional<std::string> title;
  std::optional<std::string> desc;
  std::optional<std::string> value;
  std::optional<std::string> identifier;
  std::optional<std::string> roleDescription;
  std::optional<RectPayload> frame;
  int64_t depth = 0;
  std::string path;
  std::vector<std::string> actions;
  std::optional<bool> enabled;
  bool settable = false;
  bool focused = false;
  friend bool operator==(const ElementSnapshot&, const ElementSnapshot&) = default;
};

// The pixel size of a screenshot.
struct SizePayload {
  int64_t width = 0;
  int64_t height = 0;
  friend bool operator==(const SizePayload&, const SizePayload&) = default;
};

// The window a snapshot describes.
struct WindowSnapshot {
  std::optional<uint32_t> windowID;  // window-server number, when one was matched
  std::optional<std::string> title;
  std::optional<RectPayload> frame;
  friend bool operator==(const WindowSnapshot&, const WindowSnapshot&) = default;
};

// The state of one application window at one moment.
struct AppStateSnapshot {
  std::string app;  // localized name, else bundle identifier, else the pid in decimal
  std::optional<std::string> bundleIdentifier;
  int32_t pid = 0;
  std::chrono::system_clock::time_point generatedAt;
  std::optional<std::string> screenshotPath;
  std::optional<SizePayload> screenshotSize;
  // The screenshot with the elements' frames and indices drawn on it (--annotate).
  std::optional<std::string> annotatedScreenshotPath;
  // The --max-dimension the screenshot was kept within; later snapshots that the element
  // commands take keep it too.
  std::optional<int64_t> screenshotMaxDimension;
  std::optional<WindowSnapshot> window;
  std::optional<int64_t> focusedElementIndex;
  std::vector<ElementSnapshot> elements;
  std::string cachePath;
  friend bool operator==(const AppStateSnapshot&, const AppStateSnapshot&) = default;
};

// A live element with its snapshot; the handle keeps the element alive.
struct TraversedElement {
  platform::Element element;
  ElementSnapshot snapshot;
};

}  // namespace tavlin::snapshot
