#pragma once
// The Open panel commands: choose-open-panel-path, choose-open-panel-bundle and
// inspect-open-panel. They drive the standard Open panel of an application that stays
// in the background: accessibility reads and actions and input posted to its process
// only, never activation, session-wide events or pointer movement.
//
// How the accessibility routes work
// ---------------------------------
// Both routes start from the folder the panel shows and walk down to the target
// through the panel's own file list, one path component at a time. The "where" pop-up
// names the folder; a prefix of the target with that name is only a candidate anchor
// until the panel's contents confirm it (the location's URL, or the one folder that
// holds every listed entry's URL), so a same-named folder elsewhere is never taken for
// it. Entries are the file list's rows; a row's URL, where it has one, decides what it
// stands for, whatever its label says; a label counts only for a row without a URL and
// only when no other such row shows it. Paths compare in canonical form, and as one
// file when the file system says so (links, letter case, decomposed names). Each step:
//   1. find: poll (0.12 s) until the component's entry is listed, at most the 3.0 s
//      step cap;
//   2. select (nativeOpenPanelSelectContainingRow): a pid-targeted click at the
//      centre of the entry, only inside the list's visible area (brought there with
//      "AXScrollToVisible" first); when that is impossible or the selection does not
//      follow within the 2.0 s cap, the accessibility actions "AXPick" and "AXPress"
//      along the entry's ancestor chain; success is read back from the panel (every
//      selected row is the target), never assumed;
//   3. open, for a folder on the way, once it is selected (nativeOpenPanelOpenEntry):
//      "AXOpen" along the ancestor chain, else a pid-targeted double click inside the
//      visible list (the bundle route allows "AXOpen" only); then poll until the
//      panel's contents show that folder and the list has changed, at most the step
//      cap; 0.18 s settling pause after. A package is never opened on the way (the
//      panel would choose it): such a path is left to the go-to-folder sheet.
//   A step of the path route that ends in a wrong folder returns to the anchor
//   (nativeOpenPanelNavigateBackToAnchor: Cmd+[ to the process, one folder back per
//   press) and fails, so the fallback starts from a known place; the bundle route
//   leaves the panel as it stands.
// The target itself is selected, never opened: a folder or bundle is chosen by
// selecting it in its parent; a folder the panel already shows (confirmed as above,
// with nothing selected) needs nothing. choose-open-panel-path falls back to the
// go-to-folder sheet for any failure of its route: Cmd+Shift+G, a wait for the sheet's
// field to have focus (earlier keys are lost), Cmd+A, Delete, the path typed and read
// back (set through accessibility when typing was dropped), Return, and a wait until
// the panel holds the target. Before Open is pressed the panel must hold exactly the
// target; the Open button is waited for (it lags behind a selection), else Return.
//
// No key is sent to a process whose panel has gone (it would land in the application's
// document): the panel is checked before every key, and a panel that disappears before
// the target itself was selected is the error "Native Open panel closed before the
// target was chosen". Only a panel that closes after that took the choice.
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
