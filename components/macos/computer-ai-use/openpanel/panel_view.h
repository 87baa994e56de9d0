#pragma once
// One poll's view of an application's accessibility tree, as the Open panel code reads
// it. Every element's attributes are read in one batched round trip the first time
// the element is asked about and kept for the rest of the poll, so that the several
// passes over the same nodes (panel search, signature, buttons, file list, location,
// candidates) cost one read per node. `nextPoll()` forgets everything: each poll sees
// the live tree afresh.
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/accessibility.h"

namespace tavlin::openpanel {

// What the Open panel code reads of one element. Text attributes are absent when
// missing or not text.
struct NodeInfo {
  uint64_t hash = 0;
  std::string role;
  std::optional<std::string> subrole, title, description, identifier, filename;
  std::optional<std::string> valueString;  // axValueString: text, or a number's stringValue
  std::optional<platform::AXAttributeValue> enabled, selected, url;
  std::optional<platform::Rect> frame;
  std::optional<platform::Element> parent;  // "AXParent"
  std::vector<platform::Element> children;  // traversal children, de-duplicated by hash
};

// An element of a collection with the element it was reached from.
struct NativeOpenPanelNode {
  platform::Element element;
  std::optional<platform::Element> parent;
};

// What the view reads of every element in its one batched call, before the traversal
// attributes (the order is the view's slots).
const std::vector<std::string>& panelViewAttributes();

class PanelView {
 public:
  // `memoise` false reads on every question, as a walk without the view would; it
  // exists to measure what the view saves (see benchmarks/).
  PanelView(platform::Accessibility& ax, const std::vector<std::string>& traversalAttributes, bool memoise = true);

  platform::Accessibility& accessibility() { return ax_; }
  const NodeInfo& info(const platform::Element& element);
  // AXUIElementCopyActionNames, memoised like the attributes.
  const std::vector<std::string>& actions(const platform::Element& element);
  uint64_t hash(const platform::Element& element) { return ax_.hash(element); }

  // Pre-order from `root` (itself first), once per path. An element that is its own
  // ancestor is not entered again, so a cyclic tree ends; an element reachable along
  // two paths is still listed once per path.
  std::vector<NativeOpenPanelNode> nodes(const platform::Element& root);

  void nextPoll();
  uint64_t elementsRead() const { return elementsRead_; }

 private:
  platform::Accessibility& ax_;
  std::vector<std::string> names_;
  size_t traversalStart_ = 0;
  std::unordered_map<uint64_t, NodeInfo> infos_;
  std::unordered_map<uint64_t, std::vector<std::string>> actions_;
  uint64_t elementsRead_ = 0;
  bool memoise_ = true;
  std::deque<NodeInfo> unmemoised_;
  std::deque<std::vector<std::string>> unmemoisedActions_;
};

// The node list's elements alone.
std::vector<platform::Element> elementsOf(const std::vector<NativeOpenPanelNode>& nodes);

}  // namespace tavlin::openpanel
