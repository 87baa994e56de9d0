#pragma once
// The simulated Open panel: bound to a real folder on disk, it builds its own
// accessibility subtree the way the real panel does (a sheet on a document window or
// a window of its own; English or Simplified Chinese; list view rows or icon view
// items; sidebar, "where" pop-up, search field, Open/Choose and Cancel buttons) and
// reacts to pid-targeted clicks, "AXOpen", "AXPress", the go-to-folder keys and
// Return. Its state (folder, selection, go-to text, history, the chosen path) lives in
// the desktop file, so a sequence of commands sees one panel. Options make it as hard
// as the real one: a visible area that clips clicks, column view, a late panel, sheet
// and button, a panel in another process, names by case or decomposed, links resolved,
// and a host text area that shows any key that leaked out of the panel.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/events.h"
#include "platform/geometry.h"

namespace tavlin::sim {

struct SimOpenPanelConfig {
  int32_t pid = 0;
  std::string presentation = "sheet";  // "sheet" (on `host`) or "window"
  std::string hostId;                  // the document window's element id, for a sheet
  std::string language = "en";         // "en" or "zh"
  std::string view = "list";           // "list" or "icon"
  std::string chooses = "files";       // "files", "folders" or "filesAndFolders"
  std::string prompt;                  // the choose button's title; default Open / 打开
  platform::Rect frame{{100, 100}, {700, 450}};
  // Faults on demand.
  bool rowsRefuseSelection = false;  // clicks and actions never select
  bool withoutAXOpen = false;        // no element offers "AXOpen"
  bool neverCloses = false;          // confirming records nothing and the panel stays
  bool buttonStateLags = false;      // the choose button reads disabled; Return still confirms
  double entriesDelay = 0;           // a folder's entries appear this long after it is shown
  int64_t wrongTurns = 0;            // the first openings of a folder show another one instead
  // Harder, like the real panel.
  std::optional<std::string> hostTextArea;  // the host window's text, which takes stray keys
  bool outOfProcess = false;         // drawn by another process: input posted to the pid misses it
  double goToDelay = 0;              // Go to Folder appears this long after Cmd+Shift+G
  double openButtonLag = 0;          // the choose button re-enables this long after Go to Folder
  double appearsAfter = 0;           // the panel is shown from this time of the desktop's clock
  std::optional<double> closesAfter; // ... and dismissed (by its user) at this time
  std::string title;                 // the panel's own title, an application's prompt
  bool caseInsensitive = false;      // names that differ only by case are one name
  bool decomposedNames = false;      // names shown decomposed (NFD), as an HFS+ disk keeps them
};

struct SimOpenPanelState {
  std::string folder;
  std::optional<std::string> selection;
  std::optional<std::string> goTo;  // the go-to-folder field's text while its sheet is open
  std::vector<std::string> history;
  bool open = true;
  std::optional<std::string> chosen;
  int64_t shownAtMicros = 0;  // when the folder was shown (for entriesDelay)
  int64_t wrongTurnsTaken = 0;
  int64_t goToAtMicros = 0;     // when the Go to Folder sheet is (or was) shown
  int64_t enabledAtMicros = 0;  // the choose button is disabled until then
  double scroll = 0;            // how far the file list is scrolled, in points
  std::optional<std::string> hostText;  // the host text area's text (hostTextArea)
  bool hostTextSelected = false;
};

// One entry of the shown folder.
struct SimPanelEntry {
  std::string path;
  std::string name;
  std::string displayName;
  bool folder = false;  // a folder the panel opens (not a bundle)
  bool bundle = false;  // a package such as an .app bundle
};

}  // namespace tavlin::sim
