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
constexpr uint16_t keyReturn = 36, keyLeftBracket = 33;

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

// --timeout: seconds; absent, empty or not a number gives the default. A wait has a
// bound: a negative, infinite or larger time-out is refused rather than waited out.
double timeoutFlag(const cli::Flags& flags, double fallback) {
  auto text = cli::flagValue(flags, {"--timeout"});
  if (!text) return fallback;
  std::optional<double> seconds = cli::parseDouble(*text);
  if (!seconds || std::isnan(*seconds)) return fallback;
  if (*seconds < 0 || *seconds > maxOpenPanelTimeout) {
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

bool isSelected(PanelContext& c, const Element& e) { return truth(c.view.info(e).selected); }

// The candidates that are selected themselves or sit inside a selected row or item.
std::vector<NativeOpenPanelNode> selectedCandidates(PanelContext& c, const Element& panel) {
  std::optional<Element> list = nativeOpenPanelFileList(c, panel);
  if (!list) return {};
  std::vector<NativeOpenPanelNode> nodes = c.view.nodes(*list);
  std::unordered_map<uint64_t, bool> inherited;
  std::vector<NativeOpenPanelNode> out;
  std::vector<NativeOpenPanelNode> candidates = nativeOpenPanelFileListCandidates(c, panel);
  std::unordered_set<uint64_t> candidateHashes;
  for (const auto& n : candidates) candidateHashes.insert(c.view.hash(n.element));
  for (const auto& node : nodes) {
    uint64_t key = c.view.hash(node.element);
    bool selected = isSelected(c, node.element) || (node.parent && inherited[c.view.hash(*node.parent)]);
    inherited[key] = selected;
    if (selected && candidateHashes.count(key)) out.push_back(node);
  }
  return out;
}

bool entryIs(PanelContext& c, const Element& e, const std::string& targetPath) {
  std::string target = nativeOpenPanelStandardizedPath(targetPath);
  if (nativeOpenPanelURLPath(c, e) == target) return true;
  std::string name = common::lastPathComponent(target);
  if (c.view.info(e).filename == name) return true;
  std::string label = entryLabel(c, e);
  return !label.empty() && (label == name || label == nativeOpenPanelDisplayName(c, target));
}

// Selects the row or item that holds the entry: a click first, then actions; true when
// the panel reports the target selected within the cap.
bool nativeOpenPanelSelectContainingRow(PanelContext& c, const Element& panel, int32_t pid,
                                        const NativeOpenPanelNode& entry, const std::string& targetPath,
                                        double timeout) {
  auto selected = [&] { return nativeOpenPanelSelectedEntryMatches(c, panel, targetPath); };
  c.view.nextPoll();
  if (selected()) return true;
  try {
    nativeOpenPanelClickElement(c, pid, entry.element);
    waitForNativeOpenPanelCondition(c, timeout, selected);
    return true;
  } catch (const cli::ToolError&) {
    // No visible frame, or the click did not select: try the accessibility actions.
  }
  c.view.nextPoll();
  std::vector<Element> chain = nativeOpenPanelAncestorChain(c, entry);
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
    input::tapKeyToPid(c.platform, pid, keyLeftBracket, platform::eventflags::command, std::nullopt);
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
    nativeOpenPanelDoubleClickElement(c, pid, entry.element);
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

// Descends from the anchor through `folders` (each opened), returning the folder
// reached. A wrong turn returns to the anchor and rethrows.
std::string descend(PanelContext& c, const Element& panel, int32_t pid, const std::string& anchor,
                    const std::vector<std::string>& folders, bool actionsOnly, double timeout,
                    const std::string& noOpenPrefix) {
  double step = std::min(timeout, stepCap);
  std::string current = anchor;
  size_t depth = 0;
  try {
    for (const std::string& component : folders) {
      std::string child = common::appendPathComponent(current, component);
      NativeOpenPanelNode entry = findEntry(c, panel, child, component, step);
      nativeOpenPanelOpenEntry(c, panel, pid, entry, child, actionsOnly, step, noOpenPrefix);
      current = child;
      ++depth;
    }
  } catch (const cli::ToolError&) {
    c.view.nextPoll();
    if (!nativeOpenPanelCurrentFolderMatches(c, panel, current)) {
      try {
        nativeOpenPanelNavigateBackToAnchor(c, panel, pid, anchor, depth + 1, step);
      } catch (const cli::ToolError&) {
        // The caller's error says what went wrong first.
      }
    }
    throw;
  }
  return current;
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
  for (const auto& node : selectedCandidates(c, panel)) {
    if (entryIs(c, node.element, targetPath)) return true;
  }
  return false;
}

std::vector<std::string> nativeOpenPanelSelectedRowLabels(PanelContext& c, const Element& panel) {
  std::vector<std::string> labels;
  for (const auto& node : selectedCandidates(c, panel)) {
    std::string label = entryLabel(c, node.element);
    if (!label.empty() && std::find(labels.begin(), labels.end(), label) == labels.end()) labels.push_back(label);
  }
  return labels;
}

bool nativeOpenPanelCurrentFolderMatches(PanelContext& c, const Element& panel, const std::string& folderPath) {
  std::optional<std::string> location = nativeOpenPanelLocationValue(c, panel);
  if (!location || location->empty()) return false;
  std::string folder = nativeOpenPanelStandardizedPath(folderPath);
  return *location == common::lastPathComponent(folder) || *location == nativeOpenPanelDisplayName(c, folder);
}

std::string chooseNativeOpenPanelPathByAX(PanelContext& c, const Element& panel, int32_t pid, const std::string& path,
                                          bool isDirectory, double timeout) {
  c.view.nextPoll();
  std::optional<std::string> location = nativeOpenPanelLocationValue(c, panel);
  std::optional<std::string> anchor = nativeOpenPanelAnchorPath(c, path, isDirectory, location);
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
  if (components.empty()) return "ax-hierarchy";  // the panel shows the target folder
  std::vector<std::string> folders(components.begin(), components.end() - 1);
  std::string parent = descend(c, panel, pid, *anchor, folders, false, timeout, "");
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
  std::optional<std::string> anchor = nativeOpenPanelAnchorPath(c, parentPath, true, location);
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
  descend(c, panel, pid, *anchor, folders, true, timeout,
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
    // Any failure of the accessibility route is replaced by the go-to-folder sheet.
    navigateNativeOpenPanelToPath(c, pid, path);
    context.platform.clock().sleep(0.25);
    strategy = "go-to-folder-sheet";
  }

  view.nextPoll();
  if (std::optional<Element> current = findNativeOpenPanel(c, opened.appElement)) {
    std::optional<Element> button = findNativeOpenPanelButton(c, *current, c.titles.chooseButton);
    if (button && truth(view.info(*button).enabled)) {
      platform::AXError result = context.platform.accessibility().performAction(*button, "AXPress");
      if (result != platform::AXError::success) {
        throw cli::ToolError("Pressing Open panel choose button failed with code " +
                             std::to_string(static_cast<int32_t>(result)));
      }
    } else {
      input::postKeyEventToPid(context.platform, pid, keyReturn, 0, true, std::nullopt);
      context.platform.clock().sleep(0.02);
      input::postKeyEventToPid(context.platform, pid, keyReturn, 0, false, std::nullopt);
      context.platform.clock().sleep(0.12);
    }
    waitForNativeOpenPanelToClose(c, opened.appElement, 6.0);
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
  std::optional<Element> button = findNativeOpenPanelButton(c, panel, c.titles.chooseButton);
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
