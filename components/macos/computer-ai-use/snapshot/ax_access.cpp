#include "snapshot/ax_access.h"

#include <unordered_set>

#include "cli/arguments.h"
#include "cli/tool_error.h"
#include "common/unicode.h"

namespace tavlin::snapshot {

using platform::Accessibility;
using platform::AXAttributeValue;
using platform::AXCopyResult;
using platform::AXError;
using platform::Element;

namespace {

std::optional<AXAttributeValue> valueOf(AXCopyResult result) {
  if (result.error != AXError::success) return std::nullopt;
  return std::move(result.value);
}

// The attributes the walk reads in its one batched call per element, before the
// traversal attributes.
enum Slot { role, title, description, value, position, size, subrole, identifier, roleDescription, enabled, count };

// Reads many attributes in one round trip; every slot that failed reads as absent.
// `errors`, when given, receives each slot's AXError (all failure when the call failed).
std::vector<std::optional<AXAttributeValue>> readMany(Accessibility& ax, const Element& element,
                                                      const std::vector<std::string>& names,
                                                      std::vector<AXError>* errors = nullptr) {
  std::vector<AXCopyResult> results;
  std::vector<std::optional<AXAttributeValue>> values(names.size());
  if (errors) errors->assign(names.size(), AXError::failure);
  if (ax.copyMultipleAttributeValues(element, names, results) != AXError::success) return values;
  for (size_t i = 0; i < names.size() && i < results.size(); ++i) {
    if (errors) (*errors)[i] = results[i].error;
    values[i] = valueOf(std::move(results[i]));
  }
  return values;
}

std::vector<Element> uniqueChildren(Accessibility& ax, const std::vector<std::optional<AXAttributeValue>>& lists,
                                    size_t first) {
  std::vector<Element> children;
  std::unordered_set<uint64_t> seen;
  for (size_t i = first; i < lists.size(); ++i) {
    for (Element& child : elementsOf(lists[i])) {
      if (seen.insert(ax.hash(child)).second) children.push_back(std::move(child));
    }
  }
  return children;
}

std::vector<std::string> actionsOf(Accessibility& ax, const Element& element) {
  std::optional<AXAttributeValue> names = valueOf(ax.copyActionNames(element));
  std::vector<std::string> out;
  const platform::AXArray* array = names ? names->array() : nullptr;
  if (!array) return out;
  for (const AXAttributeValue& name : *array) {
    const std::string* text = name.text();
    if (!text) return {};  // not an array of text: no actions
    out.push_back(*text);
  }
  return out;
}

}  // namespace

const std::vector<std::string>& walkedAttributes() {
  static const std::vector<std::string> names = {"AXRole",  "AXTitle",      "AXDescription", "AXValue",
                                                 "AXPosition", "AXSize",    "AXSubrole",     "AXIdentifier",
                                                 "AXRoleDescription", "AXEnabled"};
  return names;
}

double messagingTimeout(const std::optional<std::string>& environmentValue) {
  if (!environmentValue || environmentValue->empty()) return defaultMessagingTimeout;
  std::optional<double> seconds = cli::parseDouble(*environmentValue);
  if (!seconds || !(*seconds > 0) || *seconds > 600) {
    throw cli::ToolError("TAVLIN_AX_TIMEOUT must be a number of seconds above 0 and at most 600, not " +
                         *environmentValue);
  }
  return *seconds;
}

void ensureAccessibilityTrusted(platform::Platform& platform, const std::string& programPath, bool prompt,
                                double timeout) {
  Accessibility& ax = platform.accessibility();
  if (!ax.isProcessTrusted(prompt)) {
    throw cli::ToolError::multiline(
        "Accessibility permission is required for computer-ai-use.\n"
        "Add this app in System Settings > Privacy & Security > Accessibility:\n" +
        permissionSubject(platform, programPath));
  }
  // Set on the system-wide element, the time-out applies to every application.
  ax.setMessagingTimeout(ax.systemWideElement(), static_cast<float>(timeout));
}

std::string permissionSubject(platform::Platform& platform, const std::string& programPath) {
  std::string name = platform.workspace().mainBundlePath();
  if (name.empty()) name = programPath;
  if (name.empty()) name = "Tavlin";
  return name;
}

std::optional<AXAttributeValue> axValue(Accessibility& ax, const Element& element, const std::string& attribute) {
  return valueOf(ax.copyAttributeValue(element, attribute));
}

std::optional<std::string> axString(Accessibility& ax, const Element& element, const std::string& attribute) {
  return stringOf(axValue(ax, element, attribute));
}

std::optional<bool> axBool(Accessibility& ax, const Element& element, const std::string& attribute) {
  return boolOf(axValue(ax, element, attribute));
}

std::vector<Element> axElements(Accessibility& ax, const Element& element, const std::string& attribute) {
  return elementsOf(axValue(ax, element, attribute));
}

std::string axRole(Accessibility& ax, const Element& element) {
  return axString(ax, element, "AXRole").value_or("");
}

std::optional<std::string> axTitle(Accessibility& ax, const Element& element) {
  return axString(ax, element, "AXTitle");
}

std::optional<std::string> axValueString(Accessibility& ax, const Element& element) {
  return valueStringOf(axValue(ax, element, "AXValue"));
}

std::vector<std::string> axActions(Accessibility& ax, const Element& element) { return actionsOf(ax, element); }

std::optional<platform::Rect> axFrame(Accessibility& ax, const Element& element) {
  auto values = readMany(ax, element, {"AXPosition", "AXSize"});
  return frameOf(values[0], values[1]);
}

std::vector<Element> axTraversalChildren(Accessibility& ax, const Element& element,
                                         const std::vector<std::string>& traversalAttributes) {
  return uniqueChildren(ax, readMany(ax, element, traversalAttributes), 0);
}

std::optional<std::string> stringOf(const std::optional<AXAttributeValue>& value) {
  if (!value || !value->text()) return std::nullopt;
  return *value->text();
}

std::optional<bool> boolOf(const std::optional<AXAttributeValue>& value) {
  if (!value || !value->number()) return std::nullopt;
  return value->number()->truthValue();
}

std::vector<Element> elementsOf(const std::optional<AXAttributeValue>& value) {
  std::vector<Element> out;
  if (!value) return out;
  if (const Element* single = value->element()) {
    out.push_back(*single);
  } else if (const platform::AXArray* array = value->array()) {
    for (const AXAttributeValue& item : *array) {
      const Element* e = item.element();
      if (!e) return {};  // an array of anything else is not an element list
      out.push_back(*e);
    }
  }
  return out;
}

std::optional<std::string> valueStringOf(const std::optional<AXAttributeValue>& value) {
  if (!value) return std::nullopt;
  if (const std::string* text = value->text()) return *text;
  if (const platform::AXNumber* number = value->number()) return number->stringValue();
  return std::nullopt;
}

std::optional<platform::Rect> frameOf(const std::optional<AXAttributeValue>& position,
                                      const std::optional<AXAttributeValue>& size) {
  if (!position || !size || !position->point() || !size->size()) return std::nullopt;
  return platform::Rect{*position->point(), *size->size()};
}

std::string snapshotPathLabel(const std::string& role, const std::optional<std::string>& title,
                              const std::optional<std::string>& desc, const std::optional<std::string>& value) {
  if (title && !title->empty()) return role + "[" + *title + "]";
  if (desc && !desc->empty()) return role + "[" + *desc + "]";
  if (value && !value->empty()) return role + "[" + common::prefixCharacters(*value, 32) + "]";
  return role;
}

std::vector<TraversedElement> collectElements(Accessibility& ax, const Element& root,
                                              const std::optional<Element>& focused,
                                              const std::vector<std::string>& traversalAttributes) {
  std::vector<std::string> names = walkedAttributes();
  names.insert(names.end(), traversalAttributes.begin(), traversalAttributes.end());
  std::optional<uint64_t> focusedHash;
  if (focused) focusedHash = ax.hash(*focused);

  struct Pending {
    Element element;
    int64_t depth;
    size_t parent;  // index into `out` of the parent, or npos for the root
  };
  constexpr size_t noParent = static_cast<size_t>(-1);
  std::vector<TraversedElement> out;
  std::unordered_set<uint64_t> visited;
  // An explicit stack: pre-order like a recursive walk, without a depth limit from
  // the call stack. Children are pushed in reverse so they pop in order.
  std::vector<Pending> stack{{root, 0, noParent}};
  while (!stack.empty()) {
    Pending next = std::move(stack.back());
    stack.pop_back();
    uint64_t hash = ax.hash(next.element);
    if (!visited.insert(hash).second) continue;

    std::vector<AXError> errors;
    std::vector<std::optional<AXAttributeValue>> v = readMany(ax, next.element, names, &errors);
    ElementSnapshot s;
    s.role = stringOf(v[Slot::role]).value_or("");
    s.title = stringOf(v[Slot::title]);
    s.desc = stringOf(v[Slot::description]);
    s.value = valueStringOf(v[Slot::value]);
    std::string label = snapshotPathLabel(s.role, s.title, s.desc, s.value);
    s.path = next.parent == noParent ? label : out[next.parent].snapshot.path + " > " + label;
    if (auto frame = frameOf(v[Slot::position], v[Slot::size])) {
      s.frame = RectPayload{frame->origin.x, frame->origin.y, frame->size.width, frame->size.height};
    }
    s.index = static_cast<int64_t>(out.size());
    s.subrole = stringOf(v[Slot::subrole]);
    s.identifier = stringOf(v[Slot::identifier]);
    s.roleDescription = stringOf(v[Slot::roleDescription]);
    s.actions = actionsOf(ax, next.element);
    s.enabled = boolOf(v[Slot::enabled]);
    bool settable = false;
    // An element that does not support AXValue cannot have it settable: the question is
    // asked only where the batched read left the answer open.
    if (errors[Slot::value] != AXError::attributeUnsupported) {
      s.settable = ax.isAttributeSettable(next.element, "AXValue", settable) == AXError::success && settable;
    }
    s.focused = focusedHash && *focusedHash == hash;
    s.depth = next.depth;

    std::vector<Element> children = uniqueChildren(ax, v, Slot::count);
    size_t self = out.size();
    out.push_back({next.element, std::move(s)});
    for (auto it = children.rbegin(); it != children.rend(); ++it) stack.push_back({*it, next.depth + 1, self});
  }
  return out;
}

}  // namespace tavlin::snapshot
