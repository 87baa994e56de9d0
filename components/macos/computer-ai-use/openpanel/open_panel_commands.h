#pragma once
// The Open panel commands: choose-open-panel-path, choose-open-panel-bundle and
// inspect-open-panel. They drive the standard Open panel of an application that stays
// in the background: accessibility reads and actions and input posted to its process
// only, never activation, session-wide events or pointer movement.
//
// How the accessibility routes work
// ---------------------------------
// Both routes start from the folder the panel shows (its "where" pop-up names it) and
// walk down to the target through the panel's own file list, one path component at a
// time. Each step:
//   1. find: poll (0.12 s) until the component's entry is listed (by URL, file name,
//      or the name or display name its label shows), at most the 3.0 s step cap;
//   2. select (nativeOpenPanelSelectContainingRow): a pid-targeted click at the
//      centre of the entry's frame, the way a person selects; when the selection does
//      not follow within the 2.0 s cap, the accessibility actions "AXPick" and
//      "AXPress" along the entry's ancestor chain; success is read back from the
//      panel (nativeOpenPanelSelectedEntryMatches: a selected row or item whose URL,
//      file name, name or display name is the target), never assumed;
//   3. open, for a folder on the way (nativeOpenPanelOpenEntry): "AXOpen" along the
//      ancestor chain, else a pid-targeted double click (the bundle route allows
//      "AXOpen" only); then poll until the location names the folder and the list
//      has changed (fingerprints), at most the step cap; 0.18 s settling pause after.
//   A step that ends in a wrong folder (the location names neither the expected
//   folder nor its parent) returns to the anchor (nativeOpenPanelNavigateBackToAnchor:
//   Cmd+[ to the process, one folder back per press, checked by the location each
//   time) and fails, so the caller's fallback starts from a known place.
// The target itself is selected, never opened: a folder or bundle is chosen by
// selecting it in its parent. When the panel already shows the target folder there is
// nothing to select. choose-open-panel-path falls back to the go-to-folder sheet for
// any failure of its route; the bundle route has no fallback.
//
// Every poll reads each element once (PanelView); the waits' time-outs and messages
// are those of native_open_panel.h.
#include "cli/arguments.h"
#include "openpanel/native_open_panel.h"
#include "runtime/command_context.h"

namespace tavlin::openpanel {

// The route of choose-open-panel-path: returns "ax-hierarchy"; throws ToolError.
std::string chooseNativeOpenPanelPathByAX(PanelContext& c, const Element& panel, int32_t pid, const std::string& path,
                                          bool isDirectory, double timeout);
// The route of choose-open-panel-bundle: returns "ax-bundle-selection"; throws ToolError.
std::string chooseNativeOpenPanelBundleByAX(PanelContext& c, const Element& panel, int32_t pid,
                                            const std::string& path, double timeout);

bool nativeOpenPanelSelectedEntryMatches(PanelContext& c, const Element& panel, const std::string& targetPath);
bool nativeOpenPanelCurrentFolderMatches(PanelContext& c, const Element& panel, const std::string& folderPath);
std::vector<std::string> nativeOpenPanelSelectedRowLabels(PanelContext& c, const Element& panel);

void handleChooseOpenPanelPath(runtime::CommandContext& context, const cli::Flags& flags);
void handleChooseOpenPanelBundle(runtime::CommandContext& context, const cli::Flags& flags);
void handleInspectOpenPanel(runtime::CommandContext& context, const cli::Flags& flags);

}  // namespace tavlin::openpanel
