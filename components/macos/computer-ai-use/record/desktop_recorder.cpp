#include "record/desktop_recorder.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <unordered_map>

#include "apps/app_targeting.h"
#include "cli/json_output.h"
#include "clicker/clicker.h"
#include "cli/tool_error.h"
#include "common/unicode.h"
#include "menus/menu_bar.h"
#include "openpanel/panel_view.h"
#include "platform/desktop_file_format.h"
#include "snapshot/ax_access.h"
#include "snapshot/root_window.h"

namespace tavlin::record {

using nlohmann::ordered_json;
using platform::AXAttributeValue;
using platform::AXCopyResult;
using platform::AXError;
using platform::Element;

namespace {

// Elements nest inline this deep at most (the loader allows 1000, but reads deep
// nesting slowly); deeper ones are declared under the application element.
constexpr size_t maxDeclarationDepth = 128;
// Hashes the loader derives for elements the file gives none: 0x10000 + position.
constexpr uint64_t derivedHashBase = 0x10000;

// Every attribute any command reads from an element: the walk's and its traversal
// attributes, the Open panel view's, the clicker's, the menus', and the focused
// element and selections that other commands ask for.
std::vector<std::string> recordedAttributes(const std::vector<std::string>& traversal) {
  std::vector<std::string> names;
  auto add = [&names](const std::vector<std::string>& more) {
    for (const std::string& name : more) {
      if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
  };
  add(snapshot::walkedAttributes());
  add(traversal);
  add(openpanel::panelViewAttributes());
  add(clicker::clickerAttributes());
  add({"AXFocusedUIElement", "AXSelectedChildren"});
  add(menus::menuItemAttributes());
  add({menus::menuBarAttribute});
  return names;
}

// Texts that name structure rather than content, kept by --redact: the roles and
// subroles the system defines (AXRoleConstants.h, and those WebKit and AppKit report).
// Any other role or subrole, like identifiers and role descriptions, may be a page's
// own text (an ARIA role is copied through), so it is redacted.
bool structuralText(const std::string& attribute, const platform::AXAttributeValue& value) {
  static const std::set<std::string> roles = {
      "AXApplication", "AXSystemWide", "AXWindow", "AXSheet", "AXDrawer", "AXGrowArea", "AXImage", "AXUnknown",
      "AXButton", "AXRadioButton", "AXCheckBox", "AXPopUpButton", "AXMenuButton", "AXTabGroup", "AXTable",
      "AXColumn", "AXRow", "AXOutline", "AXBrowser", "AXScrollArea", "AXScrollBar", "AXRadioGroup", "AXList",
      "AXGroup", "AXValueIndicator", "AXComboBox", "AXSlider", "AXIncrementor", "AXBusyIndicator",
      "AXProgressIndicator", "AXRelevanceIndicator", "AXToolbar", "AXDisclosureTriangle", "AXTextField",
      "AXTextArea", "AXStaticText", "AXHeading", "AXMenuBar", "AXMenuBarItem", "AXMenu", "AXMenuItem",
      "AXSplitGroup", "AXSplitter", "AXColorWell", "AXTimeField", "AXDateField", "AXHelpTag", "AXMatte",
      "AXDockItem", "AXRuler", "AXRulerMarker", "AXGrid", "AXLevelIndicator", "AXCell", "AXLayoutArea",
      "AXLayoutItem", "AXHandle", "AXPopover", "AXLink", "AXWebArea", "AXOpaqueProviderGroup", "AXPage",
      "AXImageMap", "AXListMarker", "AXMathRow", "AXDateTimeArea"};
  static const std::set<std::string> subroles = {
      "AXCloseButton", "AXMinimizeButton", "AXZoomButton", "AXToolbarButton", "AXFullScreenButton",
      "AXSecureTextField", "AXTableRow", "AXOutlineRow", "AXUnknown", "AXStandardWindow", "AXDialog",
      "AXSystemDialog", "AXFloatingWindow", "AXSystemFloatingWindow", "AXDecorative", "AXIncrementArrow",
      "AXDecrementArrow", "AXIncrementPage", "AXDecrementPage", "AXSortButton", "AXSearchField", "AXTimeline",
      "AXRatingIndicator", "AXContentList", "AXDefinitionList", "AXDescriptionList", "AXToggle", "AXSwitch",
      "AXApplicationDockItem", "AXDocumentDockItem", "AXFolderDockItem", "AXMinimizedWindowDockItem",
      "AXURLDockItem", "AXDockExtraDockItem", "AXTrashDockItem", "AXSeparatorDockItem",
      "AXProcessSwitcherList", "AXTabButton", "AXTextAttachment", "AXTextLink", "AXLandmarkBanner",
      "AXLandmarkComplementary", "AXLandmarkContentInfo", "AXLandmarkMain", "AXLandmarkNavigation",
      "AXLandmarkRegion", "AXLandmarkSearch", "AXLandmarkForm", "AXApplicationAlert", "AXApplicationAlertDialog",
      "AXApplicationDialog", "AXApplicationGroup", "AXApplicationLog", "AXApplicationMarquee",
      "AXApplicationStatus", "AXApplicationTimer", "AXDocument", "AXDocumentArticle", "AXDocumentMath",
      "AXDocumentNote", "AXUserInterfaceTooltip", "AXTabPanel", "AXWebApplication", "AXEmptyGroup",
      "AXCodeStyleGroup", "AXDeleteStyleGroup", "AXInsertStyleGroup", "AXSubscriptStyleGroup",
      "AXSuperscriptStyleGroup", "AXMathFraction", "AXMathRoot", "AXMathSquareRoot", "AXFileUploadButton",
      "AXSectionListMarker", "AXSummary", "AXDetails", "AXTerm", "AXDescription", "AXMeter"};
  const std::string* text = value.text();
  if (!text) return false;
  if (attribute == "AXRole") return roles.count(*text) != 0;
  if (attribute == "AXSubrole") return subroles.count(*text) != 0;
  return false;
}

// The action names the system defines (AXActionConstants.h, NSAccessibility's actions,
// and the scroll and open actions of standard views), kept by --redact.
bool standardActionName(const std::string& name) {
  static const std::set<std::string> names = {
      "AXPress",          "AXIncrement",       "AXDecrement",         "AXConfirm",          "AXCancel",
      "AXPick",           "AXRaise",           "AXShowMenu",          "AXShowAlternateUI",  "AXShowDefaultUI",
      "AXDelete",         "AXOpen",            "AXScrollToVisible",   "AXScrollLeftByPage", "AXScrollRightByPage",
      "AXScrollUpByPage", "AXScrollDownByPage", "AXZoomWindow"};
  return names.count(name) != 0;
}

// The shortcut keys, in the order a person would write them.
const std::vector<std::pair<std::string, std::string>>& shortcutOrder() {
  static const std::vector<std::pair<std::string, std::string>> order = [] {
    std::vector<std::pair<std::string, std::string>> out;
    for (const char* key : {"role", "subrole", "title", "description", "identifier", "roleDescription", "value",
                            "enabled", "focused", "position", "size"}) {
      out.emplace_back(key, platform::elementAttributeShortcuts().at(key));
    }
    return out;
  }();
  return order;
}

// The shortcut key of each attribute that has one.
const std::map<std::string, std::string>& shortcutKeys() {
  static const std::map<std::string, std::string> keys = [] {
    std::map<std::string, std::string> out;
    for (const auto& [key, attribute] : shortcutOrder()) out[attribute] = key;
    return out;
  }();
  return keys;
}

std::string errorText(AXError error) {
  // The file knows Apple's codes by name; anything else reads as a plain failure.
  return platform::axErrorName(error).value_or("failure");
}

struct Node {
  Element handle;
  uint64_t hash = 0;
  AXError callError = AXError::success;  // the batched read as a whole
  std::vector<AXCopyResult> slots;
  std::vector<std::string> actions;
  bool settable = false;
};

class Recorder {
 public:
  Recorder(platform::Accessibility& ax, std::vector<std::string> names, const RecordOptions& options)
      : ax_(ax), names_(std::move(names)), options_(options) {
    for (size_t i = 0; i < names_.size(); ++i) slotOf_[names_[i]] = i;
  }

  // The element's node, reading it on first sight; absent past the element limit.
  std::optional<size_t> add(const Element& element, bool& added) {
    added = false;
    if (auto known = find(element)) return known;
    if (nodes_.size() >= options_.maxElements) {
      truncated_ = true;
      return std::nullopt;
    }
    Node node;
    node.handle = element;
    node.hash = ax_.hash(element);
    read(node);
    byHash_.emplace(node.hash, nodes_.size());
    nodes_.push_back(std::move(node));
    added = true;
    return nodes_.size() - 1;
  }

  std::optional<size_t> find(const Element& element) {
    auto [first, last] = byHash_.equal_range(ax_.hash(element));
    for (auto it = first; it != last; ++it) {
      if (ax_.sameElement(nodes_[it->second].handle, element)) return it->second;
    }
    return std::nullopt;
  }

  // Depth first from `start`, in attribute order, so that numbering follows the tree.
  void expandFrom(size_t start) {
    std::vector<size_t> stack{start};
    while (!stack.empty()) {
      size_t next = stack.back();
      stack.pop_back();
      std::vector<size_t> found = discover(next);
      stack.insert(stack.end(), found.rbegin(), found.rend());
    }
  }

  // Adds the elements `index` refers to; returns those that are new.
  std::vector<size_t> discover(size_t index) {
    std::vector<Element> referenced;
    if (nodes_[index].callError == AXError::success) {
      for (const AXCopyResult& slot : nodes_[index].slots) {
        if (slot.error == AXError::success && slot.value) collectElements(*slot.value, referenced);
      }
    }
    std::vector<size_t> fresh;
    for (const Element& e : referenced) {
      bool added = false;
      if (auto i = add(e, added); i && added) fresh.push_back(*i);
    }
    return fresh;
  }

  const std::vector<Node>& nodes() const { return nodes_; }
  bool truncated() const { return truncated_; }
  const std::vector<std::string>& names() const { return names_; }

 private:
  static void collectElements(const AXAttributeValue& value, std::vector<Element>& out) {
    if (const Element* e = value.element()) {
      out.push_back(*e);
    } else if (const platform::AXArray* array = value.array()) {
      for (const AXAttributeValue& item : *array) collectElements(item, out);
    }
  }

  void read(Node& node) {
    node.callError = ax_.copyMultipleAttributeValues(node.handle, names_, node.slots);
    if (node.callError != AXError::success) node.slots.clear();
    node.slots.resize(names_.size(), AXCopyResult{node.callError, std::nullopt});
    AXCopyResult actions = ax_.copyActionNames(node.handle);
    const platform::AXArray* array =
        actions.error == AXError::success && actions.value ? actions.value->array() : nullptr;
    if (array) {
      for (const AXAttributeValue& name : *array) {
        if (!name.text()) {
          node.actions.clear();
          break;
        }
        node.actions.push_back(*name.text());
      }
    }
    // As the walk asks it: not where the element does not support AXValue at all.
    if (node.slots[slotOf_.at("AXValue")].error != AXError::attributeUnsupported) {
      bool settable = false;
      node.settable = ax_.isAttributeSettable(node.handle, "AXValue", settable) == AXError::success && settable;
    }
  }

  platform::Accessibility& ax_;
  std::vector<std::string> names_;
  std::map<std::string, size_t> slotOf_;
  const RecordOptions& options_;
  std::vector<Node> nodes_;
  std::unordered_multimap<uint64_t, size_t> byHash_;
  bool truncated_ = false;
};

// Turns the recorded graph into the element tree of a desktop file.
class Writer {
 public:
  Writer(Recorder& recorder, const RecordOptions& options) : r_(recorder), options_(options) {
    const std::vector<Node>& nodes = r_.nodes();
    declarer_.assign(nodes.size(), std::nullopt);
    declared_.assign(nodes.size(), {});
    for (size_t i = 0; i < r_.names().size(); ++i) slotOf_[r_.names()[i]] = i;
    childLists_.reserve(r_.nodes().size());
    for (size_t i = 0; i < r_.nodes().size(); ++i) childLists_.push_back(readChildList(i));
    layOut();
    numberPositions();
    chooseHashes();
  }

  ordered_json applicationElement() {
    referenced_.assign(r_.nodes().size(), false);
    std::vector<ordered_json> bodies(r_.nodes().size());
    for (size_t i = 0; i < bodies.size(); ++i) bodies[i] = body(i);
    // Children before parents, so each is moved into its parent whole.
    for (auto it = order_.rbegin(); it != order_.rend(); ++it) {
      size_t i = *it;
      ordered_json element = ordered_json::object();
      if (referenced_[i]) element["id"] = idOf(i);
      for (auto& [key, value] : bodies[i].items()) element[key] = std::move(value);
      if (childrenKey_.count(i)) {
        ordered_json children = ordered_json::array();
        for (size_t c : declared_[i]) children.push_back(std::move(bodies[c]));
        element["children"] = std::move(children);
      }
      bodies[i] = std::move(element);
    }
    return std::move(bodies[0]);
  }

 private:
  // The recorded elements an AXChildren value lists, when it is a list of elements
  // (those left unrecorded are left out, as everywhere in the file).
  std::optional<std::vector<size_t>> readChildList(size_t i) {
    const AXCopyResult& slot = r_.nodes()[i].slots[slotOf_.at("AXChildren")];
    if (slot.error != AXError::success || !slot.value || !slot.value->array()) return std::nullopt;
    std::vector<size_t> out;
    for (const AXAttributeValue& item : *slot.value->array()) {
      const Element* e = item.element();
      if (!e) return std::nullopt;
      if (auto index = r_.find(*e)) out.push_back(*index);
    }
    return out;
  }

  // Each element under the first element whose children list it; what no list reaches
  // (or lies too deep) under the application element.
  void layOut() {
    std::vector<bool> placed(r_.nodes().size(), false);
    placed[0] = true;
    auto declareFrom = [&](size_t start, size_t depth) {
      std::vector<std::pair<size_t, size_t>> stack{{start, depth}};
      while (!stack.empty()) {
        auto [i, d] = stack.back();
        stack.pop_back();
        if (d + 1 > maxDeclarationDepth) continue;
        std::vector<size_t> fresh;
        if (const auto& children = childLists_[i]) {
          for (size_t c : *children) {
            if (placed[c]) continue;
            placed[c] = true;
            declarer_[c] = i;
            declared_[i].push_back(c);
            fresh.push_back(c);
          }
        }
        for (auto it = fresh.rbegin(); it != fresh.rend(); ++it) stack.push_back({*it, d + 1});
      }
    };
    declareFrom(0, 0);
    for (size_t i = 1; i < placed.size(); ++i) {
      if (placed[i]) continue;
      placed[i] = true;
      declarer_[i] = 0;
      declared_[0].push_back(i);
      declareFrom(i, 1);
    }
  }

  // Positions in the file's pre-order, which the loader numbers elements by.
  void numberPositions() {
    position_.assign(r_.nodes().size(), 0);
    std::vector<size_t> stack{0};
    while (!stack.empty()) {
      size_t i = stack.back();
      stack.pop_back();
      position_[i] = order_.size();
      order_.push_back(i);
      stack.insert(stack.end(), declared_[i].rbegin(), declared_[i].rend());
    }
  }

  // Hashes are written where two elements share one, and where the hash the loader
  // would derive would meet a written one.
  void chooseHashes() {
    const std::vector<Node>& nodes = r_.nodes();
    std::unordered_map<uint64_t, size_t> counts;
    for (const Node& n : nodes) ++counts[n.hash];
    explicitHash_.assign(nodes.size(), false);
    std::set<uint64_t> written;
    for (size_t i = 0; i < nodes.size(); ++i) {
      if (counts[nodes[i].hash] > 1) {
        explicitHash_[i] = true;
        written.insert(nodes[i].hash);
      }
    }
    for (bool changed = true; changed;) {
      changed = false;
      for (size_t i = 0; i < nodes.size(); ++i) {
        if (explicitHash_[i] || !written.count(derivedHashBase + position_[i])) continue;
        explicitHash_[i] = true;
        written.insert(nodes[i].hash);
        changed = true;
      }
    }
  }

  std::string idOf(size_t i) const { return "e" + std::to_string(position_[i]); }

  ordered_json reference(size_t i) {
    referenced_[i] = true;
    return {{"ref", idOf(i)}};
  }

  std::string text(const std::string& value, bool redactable) const {
    return options_.redact && redactable ? redactedText(value) : value;
  }

  // A URL keeps its scheme and separators when redacted.
  std::string urlText(const std::string& url) const {
    if (!options_.redact) return url;
    size_t start = url.find("://");
    start = start == std::string::npos ? 0 : start + 3;
    std::string out = url.substr(0, start);
    std::string part;
    for (size_t i = start; i <= url.size(); ++i) {
      if (i == url.size() || url[i] == '/') {
        out += redactedText(part);
        if (i < url.size()) out += '/';
        part.clear();
      } else {
        part += url[i];
      }
    }
    return out;
  }

  // Absent for an element that was not recorded (past the element limit).
  std::optional<ordered_json> value(const AXAttributeValue& v, bool redactable) {
    if (const std::string* s = v.text()) return ordered_json(text(*s, redactable));
    if (const platform::AXNumber* n = v.number()) {
      switch (n->kind) {
        case platform::AXNumber::Kind::integer: return ordered_json(n->integer);
        case platform::AXNumber::Kind::boolean: return ordered_json(n->boolean);
        case platform::AXNumber::Kind::real:
          // JSON has no infinities; such a number keeps only its type.
          if (!std::isfinite(n->real)) return ordered_json{{"other", "CFNumber"}};
          return ordered_json(n->real);
        case platform::AXNumber::Kind::real32:
          if (!std::isfinite(n->real)) return ordered_json{{"other", "CFNumber"}};
          return ordered_json{{"float32", n->real}};
      }
    }
    if (const platform::Point* p = v.point()) return ordered_json{{"point", {p->x, p->y}}};
    if (const platform::Size* s = v.size()) return ordered_json{{"size", {s->width, s->height}}};
    if (const platform::Rect* r = v.rect()) {
      return ordered_json{{"rect", {r->origin.x, r->origin.y, r->size.width, r->size.height}}};
    }
    if (const platform::AXURL* u = v.url()) return ordered_json{{"url", urlText(u->absoluteString)}};
    if (const Element* e = v.element()) {
      auto index = r_.find(*e);
      if (!index) return std::nullopt;
      return reference(*index);
    }
    if (const platform::AXArray* items = v.array()) {
      ordered_json out = ordered_json::array();
      for (const AXAttributeValue& item : *items) {
        if (auto converted = value(item, redactable)) out.push_back(std::move(*converted));
      }
      return out;
    }
    return ordered_json{{"other", std::get<platform::AXOther>(v.storage).typeName}};
  }

  ordered_json body(size_t i) {
    const Node& node = r_.nodes()[i];
    std::map<std::string, ordered_json> shortcuts;
    ordered_json attributes = ordered_json::object();
    ordered_json errors = ordered_json::object();
    auto put = [&](const std::string& attribute, ordered_json v) {
      auto shortcut = shortcutKeys().find(attribute);
      std::string key = shortcut == shortcutKeys().end() ? "" : shortcut->second;
      bool geometry = key == "position" || key == "size";
      if (geometry) {
        // The geometry shortcuts hold a point or a size as a bare pair.
        const char* kind = key == "position" ? "point" : "size";
        if (v.is_object() && v.contains(kind)) {
          shortcuts[key] = v[kind];
          return;
        }
        attributes[attribute] = std::move(v);
        return;
      }
      if (!key.empty()) shortcuts[key] = std::move(v);
      else attributes[attribute] = std::move(v);
    };
    // Attributes the loader derives when the element does not give them.
    bool hasDeclarer = declarer_[i].has_value();
    bool declaresChildren = !declared_[i].empty();
    bool childrenKey = false;
    for (size_t s = 0; s < r_.names().size(); ++s) {
      const std::string& name = r_.names()[s];
      const AXCopyResult& slot = node.slots[s];
      bool derivable = (name == "AXChildren" && declaresChildren) || (name == "AXParent" && hasDeclarer) ||
                       (name == "AXWindows" && i == 0);
      if (slot.error == AXError::success && slot.value) {
        if (name == "AXChildren" && childLists_[i] == declared_[i]) {
          childrenKey = true;  // the declarations are the list
          continue;
        }
        if (name == "AXParent" && hasDeclarer && slot.value->element() &&
            r_.find(*slot.value->element()) == declarer_[i]) {
          continue;  // the declaring element is the parent
        }
        if (auto v = value(*slot.value, !structuralText(name, *slot.value))) {
          put(name, std::move(*v));
        } else if (derivable) {
          errors[name] = errorText(AXError::attributeUnsupported);
        }
      } else if (slot.error == AXError::noValue || slot.error == AXError::success) {
        put(name, nullptr);
      } else if (slot.error == AXError::attributeUnsupported) {
        if (derivable) errors[name] = errorText(slot.error);
      } else {
        errors[name] = errorText(slot.error);
      }
    }
    if (declaresChildren) childrenKey = true;
    if (childrenKey) childrenKey_.insert(i);

    ordered_json out = ordered_json::object();
    if (explicitHash_[i]) out["hash"] = node.hash;
    for (const auto& [key, attribute] : shortcutOrder()) {
      if (auto it = shortcuts.find(key); it != shortcuts.end()) out[key] = std::move(it->second);
    }
    if (!attributes.empty()) out["attributes"] = std::move(attributes);
    if (!node.actions.empty()) {
      ordered_json actions = ordered_json::array();
      for (const std::string& action : node.actions) {
        actions.push_back(options_.redact ? redactedActionName(action) : action);
      }
      out["actions"] = std::move(actions);
    }
    if (node.settable) out["settable"] = {"AXValue"};
    if (!errors.empty()) out["errors"] = std::move(errors);
    return out;
  }

  Recorder& r_;
  const RecordOptions& options_;
  std::map<std::string, size_t> slotOf_;
  std::vector<std::optional<size_t>> declarer_;
  std::vector<std::vector<size_t>> declared_;
  std::vector<std::optional<std::vector<size_t>>> childLists_;  // AXChildren as recorded elements
  std::vector<size_t> order_;
  std::vector<size_t> position_;
  std::vector<bool> explicitHash_;
  std::vector<bool> referenced_;
  std::set<size_t> childrenKey_;
};

ordered_json clockOf(platform::TimePoint now) {
  using namespace std::chrono;
  auto whole = floor<seconds>(now);
  double fraction = duration<double>(now - whole).count();
  ordered_json clock = {{"start", cli::iso8601(whole)}};
  clock["elapsed"] = fraction;
  return clock;
}

ordered_json windowsOf(platform::Platform& platform, const std::vector<platform::RunningApplication>& apps,
                       bool redact) {
  ordered_json out = ordered_json::array();
  auto windows = platform.windowList().copyWindowInfo(platform::windowlist::all, 0);
  if (!windows) return out;
  std::map<int32_t, std::optional<std::string>> owners;
  for (const auto& a : apps) owners.emplace(a.pid, a.localizedName);
  for (const platform::WindowInfo& w : *windows) {
    if (w.number == 0) continue;  // the file numbers windows from 1
    ordered_json j = {{"number", w.number},
                      {"pid", w.ownerPID},
                      {"bounds", {w.bounds.origin.x, w.bounds.origin.y, w.bounds.size.width, w.bounds.size.height}}};
    if (w.layer != 0) j["layer"] = w.layer;
    if (w.alpha != 1) j["alpha"] = w.alpha;
    std::optional<std::string> owner;
    if (auto it = owners.find(w.ownerPID); it != owners.end()) owner = it->second;
    // Written only when it is not the recorded application's name (which is kept): then it
    // names another process, or a window's own owner text, and is redacted like one.
    if (w.ownerName != owner) {
      j["ownerName"] = !w.ownerName ? ordered_json(nullptr) : ordered_json(redact ? redactedText(*w.ownerName) : *w.ownerName);
    }
    if (w.name) j["name"] = redact ? redactedText(*w.name) : *w.name;
    if (!w.onscreen) j["onscreen"] = false;
    out.push_back(std::move(j));
  }
  return out;
}

const char* policyName(platform::ActivationPolicy policy) {
  switch (policy) {
    case platform::ActivationPolicy::regular: return "regular";
    case platform::ActivationPolicy::accessory: return "accessory";
    case platform::ActivationPolicy::prohibited: return "prohibited";
  }
  return "regular";
}

}  // namespace

std::string redactedText(const std::string& text) {
  std::string out;
  for (const std::u16string& character : common::charactersUTF16(text)) {
    bool lineBreak = character == u"\n" || character == u"\r" || character == u"\r\n" || character == u"\u2028" ||
                     character == u"\u2029";
    out += lineBreak ? common::utf8FromUTF16(character) : "x";
  }
  return out;
}

std::string redactedActionName(const std::string& name) {
  if (standardActionName(name)) return name;
  // A custom action reads "Name:TEXT\nTarget:0x…\nSelector:…": the keys stay, every
  // value and every other line is redacted.
  std::string out;
  for (size_t start = 0;;) {
    size_t end = name.find('\n', start);
    std::string line = name.substr(start, end == std::string::npos ? std::string::npos : end - start);
    for (const char* key : {"Name:", "Target:", "Selector:"}) {
      if (line.starts_with(key)) {
        out += key;
        line.erase(0, std::string_view(key).size());
        break;
      }
    }
    out += redactedText(line);
    if (end == std::string::npos) return out;
    out += '\n';
    start = end + 1;
  }
}

Recording recordDesktop(const runtime::ProcessValues& values, platform::Platform& platform,
                        const RecordOptions& options) {
  // The clock first: a replay starts at the moment the recording began.
  platform::TimePoint now = platform.clock().now();
  snapshot::ensureAccessibilityTrusted(platform, values.programPath, true,
                                       snapshot::messagingTimeout(values.accessibilityTimeoutSetting));
  platform::Workspace& workspace = platform.workspace();
  platform::RunningApplication app = apps::resolveApp(options.app, workspace, values.exactNameFirstScore);
  std::vector<platform::RunningApplication> running = workspace.runningApplications();

  platform::Accessibility& ax = platform.accessibility();
  Recorder recorder(ax, recordedAttributes(values.traversalAttributes), options);
  platform::Element appElement = ax.applicationElement(app.pid);
  bool added = false;
  recorder.add(appElement, added);
  if (options.windowID || options.titleContains) {
    // The window get-app-state would walk, in full; the application's other elements
    // only as themselves.
    snapshot::SelectedRootWindow selected =
        snapshot::selectRootWindow(platform, appElement, app.pid, options.titleContains, options.windowID);
    if (auto root = recorder.add(selected.root, added)) recorder.expandFrom(*root);
    recorder.discover(0);
  } else {
    recorder.expandFrom(0);
  }

  Recording recording;
  recording.elements = recorder.nodes().size();
  recording.truncated = recorder.truncated();
  const Node& appNode = recorder.nodes()[0];

  ordered_json desktop = ordered_json::object();
  desktop["tavlinDesktop"] = platform::desktopFormatVersion;
  std::string name = app.localizedName.value_or(app.bundleIdentifier.value_or(std::to_string(app.pid)));
  std::string description = "Recorded by tavlin-record: " + name + " (pid " + std::to_string(app.pid) + "), " +
                            std::to_string(recording.elements) + " elements";
  if (options.windowID || options.titleContains) description += " of one window";
  if (options.redact) description += ", texts redacted";
  if (recording.truncated) {
    description += "; truncated at " + std::to_string(options.maxElements) +
                   " elements (--max-elements): the elements beyond are left out";
  }
  desktop["description"] = description;
  desktop["clock"] = clockOf(now);
  if (auto screen = workspace.mainScreen()) {
    desktop["screen"] = {{"width", screen->size.width},
                         {"height", screen->size.height},
                         {"backingScale", screen->backingScale}};
  }
  if (auto front = workspace.frontmostApplication()) {
    bool listed = std::any_of(running.begin(), running.end(), [&](const auto& a) { return a.pid == front->pid; });
    if (listed) desktop["frontmostPid"] = front->pid;
  }
  ordered_json appsJson = ordered_json::array();
  for (const platform::RunningApplication& a : running) {
    ordered_json j = {{"pid", a.pid}};
    if (a.localizedName) j["name"] = *a.localizedName;
    if (a.bundleIdentifier) j["bundleIdentifier"] = *a.bundleIdentifier;
    if (a.activationPolicy != platform::ActivationPolicy::regular) j["activationPolicy"] = policyName(a.activationPolicy);
    if (a.hidden) j["hidden"] = true;
    if (a.terminated) j["terminated"] = true;
    if (a.pid == app.pid) {
      // An application that never answered is recorded as one; one whose element is
      // not valid (it has gone) has no tree.
      if (appNode.callError == AXError::cannotComplete) {
        // Its application element stays, so that every call to it waits and fails.
        j["responds"] = false;
        j["ui"] = ordered_json::object();
      } else if (appNode.callError != AXError::invalidUIElement) {
        Writer writer(recorder, options);
        j["ui"] = writer.applicationElement();
      }
    }
    appsJson.push_back(std::move(j));
  }
  desktop["apps"] = std::move(appsJson);
  desktop["windows"] = windowsOf(platform, running, options.redact);
  recording.desktop = std::move(desktop);
  return recording;
}

}  // namespace tavlin::record
