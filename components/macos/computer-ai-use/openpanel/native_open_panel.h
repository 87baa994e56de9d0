#pragma once
// The standard Open panel of another application, through accessibility alone:
// detection and the three timed waits, the reading of its file list, location and
// buttons, the path arithmetic that anchors a target on the folder it shows, entry
// lookup, and the input primitives (pid-targeted clicks and keys, accessibility
// actions). Reads never fail: what cannot be read is absent. Every read goes through a
// PanelView, so one poll reads each element once.
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "openpanel/panel_view.h"
#include "platform/platform.h"
#include "runtime/process_values.h"

namespace tavlin::openpanel {

using platform::Element;

// What the primitives need: the view, the platform (clock, events, workspace), the
// title sets.
struct PanelContext {
  PanelView& view;
  platform::Platform& platform;
  const runtime::OpenPanelTitleSets& titles;
};

// --- detection (every call reads the live tree; see PanelView) ---
std::vector<Element> descendants(PanelContext& c, const Element& element);
std::string openPanelLabel(PanelContext& c, const Element& element);
bool subtreeHasNativeOpenPanelSignature(PanelContext& c, const Element& element);
std::optional<Element> findNativeOpenPanel(PanelContext& c, const Element& appElement);
std::optional<Element> findNativeOpenPanelButton(PanelContext& c, const Element& panel,
                                                 const std::set<std::string>& titles);

// --- timed waits: poll every `interval` (0.12 s) until the deadline; a timeout of 0
// or less throws at once. Messages: "Native Open panel not found within 10.0s", "...
// did not close within ...", "... condition not reached within ...".
std::string timeoutText(double seconds);
Element waitForNativeOpenPanel(PanelContext& c, const Element& appElement, double timeoutSeconds);
void waitForNativeOpenPanelToClose(PanelContext& c, const Element& appElement, double timeoutSeconds);
// The condition's own error passes out unchanged.
void waitForNativeOpenPanelCondition(PanelContext& c, double timeoutSeconds, const std::function<bool()>& condition,
                                     double intervalSeconds = 0.12);

// --- model ---
std::vector<NativeOpenPanelNode> nativeOpenPanelNodes(PanelContext& c, const Element& element);
// URL(fileURLWithPath:).standardizedFileURL.path
std::string nativeOpenPanelStandardizedPath(const std::string& path);
std::string nativeOpenPanelDisplayName(PanelContext& c, const std::string& path);
std::optional<std::string> nativeOpenPanelURLPath(PanelContext& c, const Element& element);
// The path a URL attribute value names, as nativeOpenPanelURLPath reads it.
std::optional<std::string> urlPathOf(const platform::AXAttributeValue& value);
std::optional<Element> nativeOpenPanelFileList(PanelContext& c, const Element& panel);
std::vector<NativeOpenPanelNode> nativeOpenPanelFileListCandidates(PanelContext& c, const Element& panel);
std::optional<std::string> nativeOpenPanelLocationValue(PanelContext& c, const Element& panel);
std::string nativeOpenPanelFingerprint(PanelContext& c, const Element& panel);
bool nativeOpenPanelChooseButtonEnabled(PanelContext& c, const Element& panel);
// The label entry lookup compares: title, else value, else description, else empty.
std::string entryLabel(PanelContext& c, const Element& element);

// --- input ---
// Cmd+Shift+G, Cmd+A, Delete, the path typed, Return, to the process, with the
// sequence's own pauses. Throws "Could not create pid-targeted key event".
void navigateNativeOpenPanelToPath(PanelContext& c, int32_t pid, const std::string& path);
bool nativeOpenPanelPerformFirstAvailableAction(PanelContext& c, const std::vector<std::string>& actions,
                                                const std::vector<Element>& elements);
// Throws "Native Open panel click target has no visible frame".
void nativeOpenPanelClickElement(PanelContext& c, int32_t pid, const Element& element, int64_t clickState = 1);
void nativeOpenPanelDoubleClickElement(PanelContext& c, int32_t pid, const Element& element);

// --- anchoring and lookup ---
std::vector<std::string> nativeOpenPanelPathPrefixes(const std::string& path, bool includeTarget);
std::optional<std::string> nativeOpenPanelAnchorPath(PanelContext& c, const std::string& targetPath, bool isDirectory,
                                                     const std::optional<std::string>& currentLocationValue);
std::optional<std::vector<std::string>> nativeOpenPanelRelativeComponents(const std::string& anchor,
                                                                          const std::string& target);
std::optional<NativeOpenPanelNode> nativeOpenPanelFindEntry(PanelContext& c, const Element& panel,
                                                            const std::string& childPath,
                                                            const std::string& componentName);
std::vector<Element> nativeOpenPanelAncestorChain(PanelContext& c, const NativeOpenPanelNode& node);

}  // namespace tavlin::openpanel
