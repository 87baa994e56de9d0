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
// `whileOpen` looks at the panel on each poll that still finds it, and throws to stop.
void waitForNativeOpenPanelToClose(PanelContext& c, const Element& appElement, double timeoutSeconds,
                                   const std::function<void(const Element&)>& whileOpen = {});
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
// Every prefix whose name or display name is the location name (canonically equal,
// ignoring case), deepest first: candidates only, until the shown folder confirms one.
std::vector<std::string> nativeOpenPanelAnchorCandidates(PanelContext& c, const std::string& targetPath,
                                                         bool isDirectory,
                                                         const std::optional<std::string>& currentLocationValue);

// --- identity ---
// Names and titles compare in canonical form (NFC), as the platform's strings do.
bool namesEqual(const std::string& a, const std::string& b);
// Whether two paths name one file: equal standardised canonical forms, or (both
// existing) the same device and inode, which sees through symbolic links, a
// case-insensitive disk and a decomposed name on disk.
bool sameFile(const std::string& a, const std::string& b);
// A folder the panel shows as one item (an application or other bundle): never opened
// on the way to a target.
bool isPackagePath(const std::string& path);

// One row or item of the file list: the element that names it and what it stands for.
struct NativeOpenPanelEntry {
  NativeOpenPanelNode node;           // the name element (else the row's first candidate)
  std::optional<std::string> path;    // the first "AXURL" among the row's candidates
  std::string label;                  // the name element's label
  std::optional<std::string> filename;
  bool selected = false;              // the row, or an element of it, is selected
};
// The file list's entries, one per row (in column view, of the last column).
std::vector<NativeOpenPanelEntry> nativeOpenPanelEntries(PanelContext& c, const Element& panel);
// Whether an entry stands for the path: a known URL decides; a label counts only for an
// entry without one, and only when no other such entry shows the same label.
bool nativeOpenPanelEntryIs(PanelContext& c, const std::vector<NativeOpenPanelEntry>& entries, size_t index,
                            const std::string& path);
// The folder the panel shows, read from its contents: the location's "AXURL", else the
// one parent of every listed entry's URL; absent when they do not tell.
std::optional<std::string> nativeOpenPanelShownFolder(PanelContext& c, const Element& panel);
// The choose button: by title, or by the standard identifier "OKButton" that a panel
// with an application's own prompt still carries.
std::optional<Element> nativeOpenPanelChooseButton(PanelContext& c, const Element& panel);

}  // namespace tavlin::openpanel
