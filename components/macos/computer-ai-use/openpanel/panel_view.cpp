#include "openpanel/panel_view.h"

#include <unordered_set>

#include "snapshot/ax_access.h"

namespace tavlin::openpanel {

using platform::AXAttributeValue;
using platform::AXError;
using platform::Element;

namespace {

enum Slot { role, subrole, title, description, identifier, filename, value, enabled, selected, url, position, size,
            parent, count };

}  // namespace

const std::vector<std::string>& panelViewAttributes() {
  static const std::vector<std::string> names = {"AXRole",     "AXSubrole", "AXTitle",   "AXDescription", "AXIdentifier",
                                                 "AXFilename", "AXValue",   "AXEnabled", "AXSelected",    "AXURL",
                                                 "AXPosition", "AXSize",    "AXParent"};
  return names;
}

PanelView::PanelView(platform::Accessibility& ax, const std::vector<std::string>& traversalAttributes, bool memoise)
    : ax_(ax), memoise_(memoise) {
  names_ = panelViewAttributes();
  traversalStart_ = names_.size();
  names_.insert(names_.end(), traversalAttributes.begin(), traversalAttributes.end());
}

const NodeInfo& PanelView::info(const Element& element) {
  uint64_t key = ax_.hash(element);
  if (memoise_) {
    if (auto it = infos_.find(key); it != infos_.end()) return it->second;
  }
  ++elementsRead_;
  std::vector<platform::AXCopyResult> results;
  std::vector<std::optional<AXAttributeValue>> v(names_.size());
  if (ax_.copyMultipleAttributeValues(element, names_, results) == AXError::success) {
    for (size_t i = 0; i < names_.size() && i < results.size(); ++i) {
      if (results[i].error == AXError::success) v[i] = std::move(results[i].value);
    }
  }
  NodeInfo n;
  n.hash = key;
  n.role = snapshot::stringOf(v[Slot::role]).value_or("");
  n.subrole = snapshot::stringOf(v[Slot::subrole]);
  n.title = snapshot::stringOf(v[Slot::title]);
  n.description = snapshot::stringOf(v[Slot::description]);
  n.identifier = snapshot::stringOf(v[Slot::identifier]);
  n.filename = snapshot::stringOf(v[Slot::filename]);
  n.valueString = snapshot::valueStringOf(v[Slot::value]);
  n.enabled = v[Slot::enabled];
  n.selected = v[Slot::selected];
  n.url = v[Slot::url];
  n.frame = snapshot::frameOf(v[Slot::position], v[Slot::size]);
  if (v[Slot::parent] && v[Slot::parent]->element()) n.parent = *v[Slot::parent]->element();
  std::unordered_set<uint64_t> seen;
  for (size_t i = traversalStart_; i < names_.size(); ++i) {
    for (Element& child : snapshot::elementsOf(v[i])) {
      if (seen.insert(ax_.hash(child)).second) n.children.push_back(std::move(child));
    }
  }
  if (!memoise_) return unmemoised_.emplace_back(std::move(n));  // earlier references stay valid
  return infos_.emplace(key, std::move(n)).first->second;
}

const std::vector<std::string>& PanelView::actions(const Element& element) {
  uint64_t key = ax_.hash(element);
  if (memoise_) {
    if (auto it = actions_.find(key); it != actions_.end()) return it->second;
  } else {
    return unmemoisedActions_.emplace_back(snapshot::axActions(ax_, element));
  }
  return actions_.emplace(key, snapshot::axActions(ax_, element)).first->second;
}

std::vector<NativeOpenPanelNode> PanelView::nodes(const Element& root) {
  std::vector<NativeOpenPanelNode> out;
  struct Frame {
    Element element;
    std::optional<Element> parent;
    size_t depth;
  };
  // The hashes on the path from the root to the element being entered.
  std::vector<uint64_t> path;
  std::vector<Frame> stack{{root, std::nullopt, 0}};
  while (!stack.empty()) {
    Frame next = std::move(stack.back());
    stack.pop_back();
    path.resize(next.depth);
    uint64_t key = ax_.hash(next.element);
    bool cycle = false;
    for (uint64_t ancestor : path) cycle |= ancestor == key;
    if (cycle) continue;
    out.push_back({next.element, next.parent});
    path.push_back(key);
    const NodeInfo& n = info(next.element);
    for (auto it = n.children.rbegin(); it != n.children.rend(); ++it) {
      stack.push_back({*it, next.element, next.depth + 1});
    }
  }
  return out;
}

void PanelView::nextPoll() {
  infos_.clear();
  actions_.clear();
  unmemoised_.clear();
  unmemoisedActions_.clear();
}

std::vector<Element> elementsOf(const std::vector<NativeOpenPanelNode>& nodes) {
  std::vector<Element> out;
  out.reserve(nodes.size());
  for (const auto& n : nodes) out.push_back(n.element);
  return out;
}

}  // namespace tavlin::openpanel
