#pragma once
// Reading other applications' accessibility elements: the permission gate, typed
// attribute readers that never fail (a missing attribute, an error or a value of the
// wrong kind reads as empty) and the numbered pre-order walk of a window.
//
// Element numbering is an external contract: agents name elements by the index a walk
// gives them, and a later walk of an unchanged window must give the same numbers.
// Identity is the element's hash alone, for de-duplication and for focus.
#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "snapshot/snapshot_model.h"

namespace tavlin::snapshot {

// Throws ToolError naming what the user must add in System Settings when the process
// is not trusted. `programPath` is argv[0], the name used when there is no bundle.
// On success, also sets the messaging time-out (seconds) that bounds every call to an
// application that does not answer.
void ensureAccessibilityTrusted(platform::Platform& platform, const std::string& programPath, bool prompt,
                                double messagingTimeout);
// What the user allows in System Settings: the main bundle's path, else `programPath`
// (argv[0]), else "Tavlin".
std::string permissionSubject(platform::Platform& platform, const std::string& programPath);

// The messaging time-out from TAVLIN_AX_TIMEOUT (seconds > 0), or the default.
// Throws ToolError for a value that is not a positive number.
inline constexpr double defaultMessagingTimeout = 2.0;
double messagingTimeout(const std::optional<std::string>& environmentValue);

// --- readers: one round trip each ---
std::optional<platform::AXAttributeValue> axValue(platform::Accessibility& ax, const platform::Element& element,
                                                  const std::string& attribute);
std::optional<std::string> axString(platform::Accessibility& ax, const platform::Element& element,
                                    const std::string& attribute);
std::optional<bool> axBool(platform::Accessibility& ax, const platform::Element& element,
                           const std::string& attribute);
std::vector<platform::Element> axElements(platform::Accessibility& ax, const platform::Element& element,
                                          const std::string& attribute);
std::string axRole(platform::Accessibility& ax, const platform::Element& element);
std::optional<std::string> axTitle(platform::Accessibility& ax, const platform::Element& element);
std::optional<std::string> axValueString(platform::Accessibility& ax, const platform::Element& element);
std::vector<std::string> axActions(platform::Accessibility& ax, const platform::Element& element);
std::optional<platform::Rect> axFrame(platform::Accessibility& ax, const platform::Element& element);
// Children in traversal order, de-duplicated by hash (one batched round trip).
std::vector<platform::Element> axTraversalChildren(platform::Accessibility& ax, const platform::Element& element,
                                                   const std::vector<std::string>& traversalAttributes);

// --- interpretations of a value already read ---
std::optional<std::string> stringOf(const std::optional<platform::AXAttributeValue>& value);
std::optional<bool> boolOf(const std::optional<platform::AXAttributeValue>& value);
// An array of elements; a single element as a one-element list; else empty.
std::vector<platform::Element> elementsOf(const std::optional<platform::AXAttributeValue>& value);
// Text as it is; a number as NSNumber's stringValue (a checkbox reads "0" or "1").
std::optional<std::string> valueStringOf(const std::optional<platform::AXAttributeValue>& value);
std::optional<platform::Rect> frameOf(const std::optional<platform::AXAttributeValue>& position,
                                      const std::optional<platform::AXAttributeValue>& size);

std::string snapshotPathLabel(const std::string& role, const std::optional<std::string>& title,
                              const std::optional<std::string>& desc, const std::optional<std::string>& value);

// The attributes the walk reads of every element in its one batched call, before the
// traversal attributes (the order is the walk's slots).
const std::vector<std::string>& walkedAttributes();

// The walk from `root` (depth 0): every element reachable through the traversal
// attributes, once each, in pre-order, numbered from 0. `focused` marks the element
// whose hash equals its hash. Costs three round trips per element.
std::vector<TraversedElement> collectElements(platform::Accessibility& ax, const platform::Element& root,
                                              const std::optional<platform::Element>& focused,
                                              const std::vector<std::string>& traversalAttributes);

}  // namespace tavlin::snapshot
