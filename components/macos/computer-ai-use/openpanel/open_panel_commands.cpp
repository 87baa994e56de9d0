#include "openpanel/open_panel_commands.h"

#include <pwd.h>

#include <unordered_map>
#include <unordered_set>

#include <algorithm>
#include <cmath>

#include "apps/app_targeting.h"
#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "common/files.h"
#include "common/unicode.h"
#include "input/event_synthesis.h"
#include "snapshot/ax_access.h"

namespace tavlin::openpanel {

namespace {

constexpr double stepCap = 3.0;       // finding an entry, opening a folder
constexpr double selectionCap = 2.0;  // a selection taking effect
constexpr double settlePause = 0.18;  // after the panel moves to another folder
constexpr double maxOpenPanelTimeout = 600;
constexpr uint16_t keyA = 0, keyG = 5, keyDelete = 51, keyReturn = 36, keyLeftBracket = 33;

bool truth(const std::optional<platform::AXAttributeValue>& v) { return v && v->number() && v->number()->truthValue(); }

// stringByExpandingTildeInPath: "~" and "~/..." are the user's home, "~name/..." that
// user's; anything else is unchanged.
std::string expandingTilde(const std::string& path, const std::string& home) {
  if (path.empty() || path.front() != '~') return path;
  size_t slash = path.find('/');
  std::string user = path.substr(1, slash == std::string::npos ? std::string::npos : slash - 1);
  std::string rest = slash == std::string::npos ? "" : path.substr(slash);
  std::string base = home;
  if (!user.empty()) {
    const passwd* pw = ::getpwnam(user.c_str());
    if (!pw || !pw->pw_dir) return path;
    base = pw->pw_dir;
  }
  std::string out = base + rest;
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

// --timeout: seconds; absent, empty or a word gives the default. A wait has a bound: a
// negative, infinite or larger time-out is refused rather than waited out, and so is a
// number that is not plain decimal (" 5", "0x10", "nan", "5s") rather than guessed at.
double timeoutFlag(const cli::Flags& flags, double fallback) {
  auto text = cli::flagValue(flags, {"--timeout"});
  if (!text) return fallback;
  std::optional<double> seconds = cli::parseDouble(*text);
  if (!seconds && !cli::startsLikeANumber(*text)) return fallback;
  if (!seconds || *seconds < 0 || *seconds > maxOpenPanelTimeout) {
    throw cli::ToolError("--timeout must be a number of seconds from 0 to 600, not " + common::escapingLineBreaks(*text));
  }
  return *seconds;
}

struct Opened {
  platform::RunningApplication app;
  Element appElement;
};

Opened openPanelCommand(runtime::CommandContext& context, const cli::Flags& flags) {
  snapshot::ensureAccessibilityTrusted(context.platform, context.values.programPath, true,
                                       snapshot::messagingTimeout(context.values.accessibilityTimeoutSetting));
  platform::RunningApplication app = apps::resolveApp(cli::requiredFlag(flags, {"--app"}),
                                                      context.platform.workspace(), context.values.exactNameFirstScore);
  return {app, context.platform.accessibility().applicationElement(app.pid)};
}

const char* const closedEarly = "Native Open panel closed before the target was chosen";

// Whether the panel is still shown: its element still reads as a panel. Checked before
// every key sent, so that no key reaches a process whose panel has gone (it would land
// in the application's own window).
void requirePanel(PanelContext& c, const Element& panel) {
  c.view.nextPoll();
  const std::string& role = c.view.info(panel).role;
  if ((role != "AXSheet" && role != "AXWindow" && role != "AXApplication") ||
      !subtreeHasNativeOpenPanelSignature(c, panel)) {
    throw cli::ToolError(closedEarly);
  }
}

void keyToPanel(PanelContext& c, const Element& panel, int32_t pid, uint16_t code, uint64_t flags, double afterUp) {
  requirePanel(c, panel);
  input::postKeyEventToPid(c.platform, pid, code, flags, true, std::nullopt);
  c.platform.clock().sleep(0.02);
  input::postKeyEventToPid(c.platform, pid, code, flags, false, std::nullopt);
  c.platform.clock().sleep(afterUp);
}

// The part of the screen where the file list shows its entries: the list's frame,
// clipped by the scroll area that holds it.
std::optional<platform::Rect> visibleListArea(PanelContext& c, const Element& panel, const Element& entry) {
  std::optional<Element> list = nativeOpenPanelFileList(c, panel);
  if (!list) return std::nullopt;
  std::optional<platform::Rect> area = c.view.info(*list).frame;
  if (!area) return std::nullopt;
  // In column view the entry's own column (a list in a scroll area) clips it.
  std::optional<Element> at = c.view.info(entry).parent;
  for (int guard = 0; at && guard < 8; ++guard, at = c.view.info(*at).parent) {
    const NodeInfo& n = c.view.info(*at);
    if (n.role != "AXScrollArea" || !n.frame) continue;
    double left = std::max(area->origin.x, n.frame->origin.x), top = std::max(area->origin.y, n.frame->origin.y);
    double right = std::min(area->origin.x + area->size.width, n.frame->origin.x + n.frame->size.width);
    double bottom = std::min(area->origin.y + area->size.height, n.frame->origin.y + n.frame->size.height);
    area = platform::Rect{{left, top}, {std::max(0.0, right - left), std::max(0.0, bottom - top)}};
    break;
  }
  return area;
}

// The centre of the entry when it lies inside the list's visible area; a click
// anywhere else would hit another element or nothing.
std::optional<platform::Point> clickablePoint(PanelContext& c, const Element& panel, const Element& entry) {
  std::optional<platform::Rect> frame = c.view.info(entry).frame;
  std::optional<platform::Rect> area = visibleListArea(c, panel, entry);
  if (!frame || !area || !(frame->size.width > 0) || !(frame->size.height > 0)) return std::nullopt;
  platform::Point p{frame->origin.x + frame->size.width / 2, frame->origin.y + frame->size.height / 2};
  bool inside = p.x >= area->origin.x && p.x < area->origin.x + area->size.width && p.y >= area->origin.y &&
                p.y < area->origin.y + area->size.height;
  if (!inside) return std::nullopt;
  return p;
}

// Brings the entry into view ("AXScrollToVisible" along its chain) when it is not.
std::optional<platform::Point> pointInView(PanelContext& c, const Element& panel, const NativeOpenPanelNode& entry) {
  if (auto p = clickablePoint(c, panel, entry.element)) return p;
  if (!nativeOpenPanelPerformFirstAvailableAction(c, {"AXScrollToVisible"}, nativeOpenPanelAncestorChain(c, entry))) {
    return std::nullopt;
  }
  c.view.nextPoll();
  return clickablePoint(c, panel, entry.element);
}

// Whether the panel would choose exactly the path now: every selected entry is it, or
// (a folder) nothing is selected and the folder shown is it.
// Whether every selected entry is the path; absent when nothing is selected.
std::optional<bool> selectionIs(PanelContext& c, const Element& panel, const std::string& path) {
  std::vector<NativeOpenPanelEntry> entries = nativeOpenPanelEntries(c, panel);
  std::optional<bool> out;
  for (size_t i = 0; i < entries.size(); ++i) {
    if (!entries[i].selected) continue;
    if (!nativeOpenPanelEntryIs(c, entries, i, path)) return false;
    out = true;
  }
  return out;
}

bool nativeOpenPanelTargetChosen(PanelContext& c, const Element& panel, const std::string& path, bool isDirectory) {
  if (std::optional<bool> selected = selectionIs(c, panel, path)) return *selected;
  if (!isDirectory) return false;
  std::optional<std::string> shown = nativeOpenPanelShownFolder(c, panel);
  return shown && sameFile(*shown, path);
}

// Selects the row or item that holds the entry: a click inside the list's visible
// area first, then actions; true when the panel reports the target selected within the
// cap.
bool nativeOpenPanelSelectContainingRow(PanelContext& c, const Element& panel, int32_t pid,
                                        const NativeOpenPanelNode& entry, const std::string& targetPath,
                                        double timeout) {
  auto selected = [&] { return nativeOpenPanelSelectedEntryMatches(c, panel, targetPath); };
  // Read on the poll that found the entry.
  if (selected()) return true;
  if (std::optional<platform::Point> at = pointInView(c, panel, entry)) {
    input::postMouseClickToPid(c.platform, pid, *at, 1);
    try {
      waitForNativeOpenPanelCondition(c, timeout, selected);
      return true;
    } catch (const cli::ToolError&) {
      // The click did not select: try the accessibility actions.
    }
  }
  c.view.nextPoll();
  std::vector<Element> chain = nativeOpenPanelAncestorChain(c, entry);
  // The list's selection, given the row that holds the entry.
  if (std::optional<Element> list = nativeOpenPanelFileList(c, panel)) {
    uint64_t listHash = c.view.hash(*list);
    for (size_t i = 0; i + 1 < chain.size(); ++i) {
      if (c.view.hash(chain[i + 1]) != listHash) continue;
      const char* attribute = c.view.info(*list).role == "AXOutline" ? "AXSelectedRows" : "AXSelectedChildren";
      if (c.view.accessibility().setAttributeElements(*list, attribute, {chain[i]}) == platform::AXError::success) {
        try {
          waitForNativeOpenPanelCondition(c, timeout, selected);
          return true;
        } catch (const cli::ToolError&) {
          // Accepted but ignored: the actions next.
        }
      }
      break;
    }
  }
  c.view.nextPoll();
  if (!nativeOpenPanelPerformFirstAvailableAction(c, {"AXPick", "AXPress"}, chain)) return false;
  try {
    waitForNativeOpenPanelCondition(c, timeout, selected);
    return true;
  } catch (const cli::ToolError&) {
    return false;
  }
}

// Cmd+[ to the process until the panel shows the anchor again; throws when it does not.
void nativeOpenPanelNavigateBackToAnchor(PanelContext& c, const Element& panel, int32_t pid,
                                         const std::string& anchor, size_t maxSteps, double timeout) {
  for (size_t step = 0; step <= maxSteps; ++step) {
    c.view.nextPoll();
    if (nativeOpenPanelCurrentFolderMatches(c, panel, anchor)) return;
    if (step == maxSteps) break;
    keyToPanel(c, panel, pid, keyLeftBracket, platform::eventflags::command, 0);
    try {
      waitForNativeOpenPanelCondition(c, timeout, [&] {
        return nativeOpenPanelCurrentFolderMatches(c, panel, anchor);
      });
      return;
    } catch (const cli::ToolError&) {
      // One more step back.
    }
  }
  throw cli::ToolError("Native Open panel could not return to " + anchor);
}

// Opens a folder entry and waits until the panel shows it.
void nativeOpenPanelOpenEntry(PanelContext& c, const Element& panel, int32_t pid, const NativeOpenPanelNode& entry,
                              const std::string& targetPath, bool actionsOnly, double timeout,
                              const std::string& errorPrefix) {
  std::string before = nativeOpenPanelFingerprint(c, panel);
  std::vector<Element> chain = nativeOpenPanelAncestorChain(c, entry);
  bool opened = false;
  bool offered = false;
  for (const Element& e : chain) {
    const auto& actions = c.view.actions(e);
    offered |= std::find(actions.begin(), actions.end(), "AXOpen") != actions.end();
  }
  if (offered) opened = nativeOpenPanelPerformFirstAvailableAction(c, {"AXOpen"}, chain);
  if (!opened) {
    if (actionsOnly) {
      throw cli::ToolError(errorPrefix + nativeOpenPanelStandardizedPath(targetPath));
    }
    // A double click, each half inside the visible list (the first may move the entry).
    std::optional<platform::Point> first = pointInView(c, panel, entry);
    if (!first) throw cli::ToolError("Native Open panel entry is not in view: " + targetPath);
    input::postMouseClickToPid(c.platform, pid, *first, 1);
    c.platform.clock().sleep(0.07);
    c.view.nextPoll();
    std::optional<platform::Point> second = clickablePoint(c, panel, entry.element);
    if (!second) throw cli::ToolError("Native Open panel entry is not in view: " + targetPath);
    input::postMouseClickToPid(c.platform, pid, *second, 2);
  }
  waitForNativeOpenPanelCondition(c, timeout, [&] {
    return nativeOpenPanelCurrentFolderMatches(c, panel, targetPath) && nativeOpenPanelFingerprint(c, panel) != before;
  });
  c.platform.clock().sleep(settlePause);
}

// Finds a component's entry, polling until it is listed.
NativeOpenPanelNode findEntry(PanelContext& c, const Element& panel, const std::string& childPath,
                              const std::string& component, double timeout) {
  std::optional<NativeOpenPanelNode> entry;
  waitForNativeOpenPanelCondition(c, timeout, [&] {
    entry = nativeOpenPanelFindEntry(c, panel, childPath, component);
    return entry.has_value();
  });
  return *entry;
}

// Descends from the anchor through `folders`, each selected and then opened, returning
// the folder reached. A package is never opened. With `recover`, a wrong turn returns
// to the anchor before the error passes on (the bundle route leaves the panel as it
// stands).
std::string descend(PanelContext& c, const Element& panel, int32_t pid, const std::string& anchor,
                    const std::vector<std::string>& folders, bool actionsOnly, bool recover, double timeout,
                    const std::string& noOpenPrefix) {
  double step = std::min(timeout, stepCap);
  std::string current = anchor;
  for (const std::string& component : folders) {
    if (isPackagePath(common::appendPathComponent(current, component))) {
      throw cli::ToolError("Native Open panel will not open a package on the way: " +
                           common::appendPathComponent(current, component));
    }
    current = common::appendPathComponent(current, component);
  }
  current = anchor;
  size_t depth = 0;
  try {
    for (const std::string& component : folders) {
      std::string child = common::appendPathComponent(current, component);
      NativeOpenPanelNode entry = findEntry(c, panel, child, component, step);
      if (!nativeOpenPanelSelectContainingRow(c, panel, pid, entry, child, std::min(timeout, selectionCap))) {
        throw cli::ToolError("Native Open panel could not select folder on the way: " + child);
      }
      nativeOpenPanelOpenEntry(c, panel, pid, entry, child, actionsOnly, step, noOpenPrefix);
      current = child;
      ++depth;
    }
  } catch (const cli::ToolError&) {
    if (!recover) throw;
    c.view.nextPoll();
    if (!nativeOpenPanelCurrentFolderMatches(c, panel, current)) {
      try {
        nativeOpenPanelNavigateBackToAnchor(c, panel, pid, anchor, depth + 1, step);
      } catch (const cli::ToolError&) {
        // The caller's error says what went wrong first (or that the panel went away).
      }
    }
    throw;
  }
  return current;
}

// The deepest prefix of the target that the location names and that the panel's
// contents confirm it shows.
std::optional<std::string> confirmedAnchor(PanelContext& c, const Element& panel, const std::string& target,
                                           bool isDirectory, const std::optional<std::string>& location,
                                           double timeout) {
  std::vector<std::string> candidates = nativeOpenPanelAnchorCandidates(c, target, isDirectory, location);
  if (candidates.empty()) return std::nullopt;
  // The contents may be listed a moment after the location.
  std::optional<std::string> shown = nativeOpenPanelShownFolder(c, panel);
  if (!shown) try {
    waitForNativeOpenPanelCondition(c, std::min(timeout, stepCap), [&] {
      return (shown = nativeOpenPanelShownFolder(c, panel)).has_value();
    });
  } catch (const cli::ToolError&) {
    return std::nullopt;
  }
  for (const std::string& candidate : candidates) {
    if (sameFile(candidate, *shown)) return candidate;
  }
  return std::nullopt;
}

// The Go to Folder sheet's path field, when the sheet is shown.
std::optional<Element> goToField(PanelContext& c, const Element& panel) {
  std::optional<Element> any;
  std::unordered_set<uint64_t> inSheet;
  uint64_t panelHash = c.view.hash(panel);
  for (const auto& node : c.view.nodes(panel)) {
    const NodeInfo& n = c.view.info(node.element);
    uint64_t key = c.view.hash(node.element);
    bool sheet = key != panelHash && (n.role == "AXSheet" || n.role == "AXWindow");
    if (sheet || (node.parent && inSheet.count(c.view.hash(*node.parent)))) inSheet.insert(key);
    if (n.role != "AXTextField") continue;
    if (n.identifier && *n.identifier == "PathTextField") return node.element;
    if (!any && inSheet.count(key) && n.subrole != std::optional<std::string>("AXSearchField")) any = node.element;
  }
  return any;
}

// Keys after Cmd+Shift+G are meant for the sheet's field: before each one the field
// must still answer and not say it lost focus. A panel that went away meanwhile would
// pass them on to the document behind it.
void requireGoToField(PanelContext& c, const Element& panel, const Element& field) {
  platform::AXCopyResult focus = c.view.accessibility().copyAttributeValue(field, "AXFocused");
  bool answers = focus.error == platform::AXError::success || focus.error == platform::AXError::noValue ||
                 focus.error == platform::AXError::attributeUnsupported;
  bool unfocused = focus.error == platform::AXError::success && focus.value && focus.value->number() &&
                   !focus.value->number()->truthValue();
  if (answers && !unfocused) return;
  requirePanel(c, panel);
  throw cli::ToolError("Native Open panel Go to Folder sheet closed before the path was entered");
}

void keyToField(PanelContext& c, const Element& panel, const Element& field, int32_t pid, uint16_t code,
                uint64_t flags, double afterUp) {
  requireGoToField(c, panel, field);
  input::postKeyEventToPid(c.platform, pid, code, flags, true, std::nullopt);
  c.platform.clock().sleep(0.02);
  input::postKeyEventToPid(c.platform, pid, code, flags, false, std::nullopt);
  c.platform.clock().sleep(afterUp);
}

// The go-to-folder sheet, checked at every step: the panel is there before each key,
// the keys wait until the sheet's field has focus (keys sent earlier are lost), the
// field must hold the path (set through accessibility when typing was dropped) before
// Return, and the panel must then show the target.
void goToFolder(PanelContext& c, const Element& panel, int32_t pid, const std::string& path, bool isDirectory,
                double timeout) {
  using namespace platform::eventflags;
  double step = std::min(timeout, stepCap);
  keyToPanel(c, panel, pid, keyG, command | shift, 0.18);
  std::optional<Element> field;
  platform::Accessibility& ax = c.view.accessibility();
  try {
    waitForNativeOpenPanelCondition(c, step, [&] {
      field = goToField(c, panel);
      if (!field) return false;
      platform::AXCopyResult focus = ax.copyAttributeValue(*field, "AXFocused");
      // Only a field that says it lacks focus is waited for.
      return focus.error != platform::AXError::success || !focus.value || !focus.value->number() ||
             focus.value->number()->truthValue();
    });
  } catch (const cli::ToolError&) {
    requirePanel(c, panel);
    throw cli::ToolError("Native Open panel Go to Folder sheet did not open within " + timeoutText(step) + "s");
  }
  keyToField(c, panel, *field, pid, keyA, command, 0.04);
  keyToField(c, panel, *field, pid, keyDelete, 0, 0.04);
  input::typeUnicodeTextToPid(c.platform, pid, path, [&] { requireGoToField(c, panel, *field); });
  auto holdsPath = [&] {
    c.view.nextPoll();
    std::optional<Element> now = goToField(c, panel);
    if (!now) return false;
    field = now;
    const auto& value = c.view.info(*now).valueString;
    return value && namesEqual(*value, path);
  };
  if (!holdsPath()) {
    bool settable = false;
    if (field && ax.isAttributeSettable(*field, "AXValue", settable) == platform::AXError::success && settable) {
      ax.setAttributeValue(*field, "AXValue", path);
    }
    if (!holdsPath()) {
      requirePanel(c, panel);
      throw cli::ToolError("Native Open panel Go to Folder field did not take the path: " + path);
    }
  }
  keyToField(c, panel, *field, pid, keyReturn, 0, 0.35);
  c.platform.clock().sleep(0.25);
  try {
    waitForNativeOpenPanelCondition(c, step, [&] { return nativeOpenPanelTargetChosen(c, panel, path, isDirectory); });
  } catch (const cli::ToolError&) {
    requirePanel(c, panel);
    throw cli::ToolError("Native Open panel Go to Folder did not reach " + path);
  }
}

// Confirms the choice: the Open button once it is enabled (it lags behind a
// selection), else Return; then waits for the panel to close.
void confirmChoice(PanelContext& c, const Element& appElement, const Element& panel, int32_t pid,
                   const std::string& path, bool isDirectory, const std::string& errorPrefix) {
  // Before anything is pressed, the panel must still hold exactly the target (read on
  // the poll that found it).
  if (!nativeOpenPanelTargetChosen(c, panel, path, isDirectory)) {
    throw cli::ToolError("Native Open panel selection is no longer " + path);
  }
  std::optional<std::string> shownBefore = nativeOpenPanelShownFolder(c, panel);
  std::optional<Element> button = nativeOpenPanelChooseButton(c, panel);
  if (!button || !truth(c.view.info(*button).enabled)) {
    try {
      waitForNativeOpenPanelCondition(c, selectionCap, [&] {
        button = nativeOpenPanelChooseButton(c, panel);
        return button && truth(c.view.info(*button).enabled);
      });
    } catch (const cli::ToolError&) {
      button.reset();
    }
  }
  if (button) {
    platform::AXError result = c.view.accessibility().performAction(*button, "AXPress");
    if (result != platform::AXError::success) {
      throw cli::ToolError(errorPrefix + std::to_string(static_cast<int32_t>(result)));
    }
  } else {
    keyToPanel(c, panel, pid, keyReturn, 0, 0.12);
  }
  // Only a close that follows the press is the choice. A panel that answered it by
  // showing another folder (a folder in a panel that opens folders rather than choosing
  // them) did not choose, and its closing later would be someone else's doing.
  waitForNativeOpenPanelToClose(c, appElement, 6.0, [&](const Element& now) {
    std::optional<std::string> shown = nativeOpenPanelShownFolder(c, now);
    if (shown && (!shownBefore || !sameFile(*shown, *shownBefore))) {
      throw cli::ToolError("Native Open panel opened the folder instead of choosing it (it may accept files only): " +
                           path);
    }
  });
}

void writeChooseResult(runtime::CommandContext& context, const platform::RunningApplication& app,
                       const std::string& path, const std::string& kind, const std::string& strategy,
                       bool foregroundFallbackKeys) {
  cli::Json result = {{"ok", true},
                      {"app", app.localizedName.value_or("")},
                      {"path", path},
                      {"kind", kind},
                      {"method", "native-open-panel"},
                      {"strategy", strategy},
                      {"activatedApp", false},
                      {"activated_app", false}};
  if (foregroundFallbackKeys) {
    result["foregroundFallback"] = false;
    result["foreground_fallback"] = false;
  }
  cli::writeJSONObject(context.output, result);
}

}  // namespace

bool nativeOpenPanelSelectedEntryMatches(PanelContext& c, const Element& panel, const std::string& targetPath) {
  return selectionIs(c, panel, targetPath).value_or(false);
}

std::vector<std::string> nativeOpenPanelSelectedRowLabels(PanelContext& c, const Element& panel) {
  std::vector<std::string> labels;
  for (const auto& entry : nativeOpenPanelEntries(c, panel)) {
    if (!entry.selected || entry.label.empty()) continue;
    if (std::find(labels.begin(), labels.end(), entry.label) == labels.end()) labels.push_back(entry.label);
  }
  return labels;
}

bool nativeOpenPanelCurrentFolderMatches(PanelContext& c, const Element& panel, const std::string& folderPath) {
  std::optional<std::string> shown = nativeOpenPanelShownFolder(c, panel);
  return shown && sameFile(*shown, folderPath);
}

std::string chooseNativeOpenPanelPathByAX(PanelContext& c, const Element& panel, int32_t pid, const std::string& path,
                                          bool isDirectory, double timeout) {
  c.view.nextPoll();
  std::optional<std::string> location = nativeOpenPanelLocationValue(c, panel);
  // The location names a folder; only the panel's contents say which one.
  std::optional<std::string> anchor = confirmedAnchor(c, panel, path, isDirectory, location, timeout);
  if (!anchor) {
    throw cli::ToolError("Native Open panel AX hierarchy could not anchor current folder: " +
                         (location ? *location : std::string("<unknown>")));
  }
  // The anchor and the target are standardised apart, and through the file system, so
  // the anchor may fail to lead to the target (a prefix that exists while the target
  // does not): no route then, rather than a false success.
  std::optional<std::vector<std::string>> relative = nativeOpenPanelRelativeComponents(*anchor, path);
  if (!relative) {
    throw cli::ToolError("Native Open panel AX hierarchy could not anchor current folder: " + *location);
  }
  std::vector<std::string> components = std::move(*relative);
  if (components.empty()) {
    // The panel shows the target folder: chosen as it stands, unless something in it
    // is selected.
    if (!nativeOpenPanelTargetChosen(c, panel, path, true)) {
      throw cli::ToolError("Native Open panel has a selection inside " + path);
    }
    return "ax-hierarchy";
  }
  std::vector<std::string> folders(components.begin(), components.end() - 1);
  std::string parent = descend(c, panel, pid, *anchor, folders, false, true, timeout, "");
  std::string target = common::appendPathComponent(parent, components.back());
  NativeOpenPanelNode entry = findEntry(c, panel, target, components.back(), std::min(timeout, stepCap));
  if (!nativeOpenPanelSelectContainingRow(c, panel, pid, entry, target, std::min(timeout, selectionCap))) {
    throw cli::ToolError("Native Open panel could not select " + target);
  }
  return "ax-hierarchy";
}

std::string chooseNativeOpenPanelBundleByAX(PanelContext& c, const Element& panel, int32_t pid,
                                            const std::string& path, double timeout) {
  if (path.size() < 4 || path.compare(path.size() - 4, 4, ".app") != 0) {
    throw cli::ToolError("Application bundle path must end in .app: " + path);
  }
  if (!common::isDirectory(path)) throw cli::ToolError("Application bundle does not exist as a directory: " + path);
  c.view.nextPoll();
  std::string parentPath = common::deletingLastPathComponent(nativeOpenPanelStandardizedPath(path));
  std::optional<std::string> location = nativeOpenPanelLocationValue(c, panel);
  std::optional<std::string> anchor = confirmedAnchor(c, panel, parentPath, true, location, timeout);
  if (!anchor) {
    throw cli::ToolError("Native Open panel AX hierarchy could not anchor bundle parent: " +
                         (location ? *location : std::string("<unknown>")));
  }
  std::optional<std::vector<std::string>> relative = nativeOpenPanelRelativeComponents(*anchor, parentPath);
  if (!relative) {
    throw cli::ToolError("Native Open panel AX hierarchy could not anchor bundle parent: " + *location);
  }
  std::vector<std::string> folders = std::move(*relative);
  double step = std::min(timeout, stepCap);
  descend(c, panel, pid, *anchor, folders, true, false, timeout,
          "Native Open panel entry cannot open bundle parent without AXOpen: ");
  std::string bundle = nativeOpenPanelStandardizedPath(path);
  std::string name = common::lastPathComponent(bundle);
  std::optional<NativeOpenPanelNode> entry;
  try {
    entry = findEntry(c, panel, bundle, name, step);
  } catch (const cli::ToolError&) {
    throw cli::ToolError("Native Open panel cannot see application bundle entry: " + path);
  }
  double select = std::min(timeout, selectionCap);
  if (!nativeOpenPanelSelectContainingRow(c, panel, pid, *entry, bundle, select)) {
    throw cli::ToolError("Native Open panel could not select application bundle through AX: " + path);
  }
  try {
    waitForNativeOpenPanelCondition(c, select, [&] {
      return nativeOpenPanelSelectedEntryMatches(c, panel, bundle) && nativeOpenPanelChooseButtonEnabled(c, panel);
    });
  } catch (const cli::ToolError&) {
    throw cli::ToolError("Native Open panel did not enable Open after selecting application bundle: " + path);
  }
  return "ax-bundle-selection";
}

void handleChooseOpenPanelPath(runtime::CommandContext& context, const cli::Flags& flags) {
  Opened opened = openPanelCommand(context, flags);
  std::string path =
      expandingTilde(cli::requiredFlag(flags, {"--path"}), context.platform.workspace().homeDirectory());
  double timeout = timeoutFlag(flags, 10.0);
  if (!common::exists(path)) throw cli::ToolError("Path does not exist: " + path);
  bool isDirectory = common::isDirectory(path);

  PanelView view(context.platform.accessibility(), context.values.traversalAttributes);
  PanelContext c{view, context.platform, context.values.openPanelTitles};
  int32_t pid = opened.app.pid;
  Element panel = waitForNativeOpenPanel(c, opened.appElement, timeout);
  std::string strategy;
  try {
    strategy = chooseNativeOpenPanelPathByAX(c, panel, pid, path, isDirectory, timeout);
  } catch (const cli::ToolError&) {
    // Any failure of the accessibility route is replaced by the go-to-folder sheet, as
    // long as the panel is still there to take its keys.
    goToFolder(c, panel, pid, path, isDirectory, timeout);
    strategy = "go-to-folder-sheet";
  }

  // Both routes end with the target itself selected (or shown): a panel that has gone
  // since took that choice.
  view.nextPoll();
  if (std::optional<Element> current = findNativeOpenPanel(c, opened.appElement)) {
    confirmChoice(c, opened.appElement, *current, pid, path, isDirectory,
                  "Pressing Open panel choose button failed with code ");
  }
  writeChooseResult(context, opened.app, path, isDirectory ? "directory" : "file", strategy, false);
}

void handleChooseOpenPanelBundle(runtime::CommandContext& context, const cli::Flags& flags) {
  Opened opened = openPanelCommand(context, flags);
  std::string path =
      expandingTilde(cli::requiredFlag(flags, {"--path"}), context.platform.workspace().homeDirectory());
  double timeout = timeoutFlag(flags, 10.0);
  PanelView view(context.platform.accessibility(), context.values.traversalAttributes);
  PanelContext c{view, context.platform, context.values.openPanelTitles};
  Element panel = waitForNativeOpenPanel(c, opened.appElement, timeout);
  std::string strategy = chooseNativeOpenPanelBundleByAX(c, panel, opened.app.pid, path, timeout);
  view.nextPoll();
  std::optional<Element> button = nativeOpenPanelChooseButton(c, panel);
  if (!button || !truth(view.info(*button).enabled)) {
    throw cli::ToolError("Native Open panel Open button is not enabled for application bundle: " + path);
  }
  platform::AXError result = context.platform.accessibility().performAction(*button, "AXPress");
  if (result != platform::AXError::success) {
    throw cli::ToolError("Pressing Open for application bundle failed with code " +
                         std::to_string(static_cast<int32_t>(result)));
  }
  waitForNativeOpenPanelToClose(c, opened.appElement, 6.0);
  writeChooseResult(context, opened.app, path, "application-bundle", strategy, true);
}

void handleInspectOpenPanel(runtime::CommandContext& context, const cli::Flags& flags) {
  Opened opened = openPanelCommand(context, flags);
  double timeout = timeoutFlag(flags, 1.0);
  PanelView view(context.platform.accessibility(), context.values.traversalAttributes);
  PanelContext c{view, context.platform, context.values.openPanelTitles};
  Element panel = waitForNativeOpenPanel(c, opened.appElement, timeout);
  view.nextPoll();
  platform::Accessibility& ax = context.platform.accessibility();
  cli::Json nodes = cli::Json::array();
  int64_t index = 0;
  // Absent attributes are left out of a node's object.
  for (const Element& e : descendants(c, panel)) {
    const NodeInfo& n = view.info(e);
    cli::Json node = {{"index", index++}, {"role", n.role}};
    auto text = [&](const char* key, const std::optional<std::string>& v) {
      if (v) node[key] = *v;
    };
    text("subrole", n.subrole);
    text("title", n.title);
    text("desc", n.description);
    text("value", n.valueString);
    text("identifier", n.identifier);
    if (n.enabled && n.enabled->number()) node["enabled"] = n.enabled->number()->truthValue();
    if (n.selected && n.selected->number()) node["selected"] = n.selected->number()->truthValue();
    std::vector<Element> selectedChildren = snapshot::axElements(ax, e, "AXSelectedChildren");
    if (!selectedChildren.empty()) {
      cli::Json labels = cli::Json::array();
      for (const Element& s : selectedChildren) {
        const NodeInfo& sn = view.info(s);
        labels.push_back(sn.identifier ? *sn.identifier
                         : sn.title     ? *sn.title
                         : sn.valueString ? *sn.valueString
                                          : sn.description.value_or(""));
      }
      node["selectedChildren"] = labels;
    }
    if (auto url = nativeOpenPanelURLPath(c, e)) node["urlPath"] = *url;
    node["actions"] = view.actions(e);
    if (n.frame) {
      node["frame"] = {{"x", n.frame->origin.x},
                       {"y", n.frame->origin.y},
                       {"width", n.frame->size.width},
                       {"height", n.frame->size.height}};
    }
    nodes.push_back(std::move(node));
  }
  cli::writeJSONObject(context.output, {{"panelNodeCount", index}, {"panel_node_count", index}, {"nodes", nodes}});
}

}  // namespace tavlin::openpanel
