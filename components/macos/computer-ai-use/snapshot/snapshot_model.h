#pragma once
// The snapshot records: what get-app-state produces and later commands read back.
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

// A live element with its snapshot; the handle keeps the element alive.
struct TraversedElement {
  platform::Element element;
  ElementSnapshot snapshot;
};

}  // namespace tavlin::snapshot
