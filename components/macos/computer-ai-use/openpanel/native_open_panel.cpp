#include "openpanel/native_open_panel.h"

#include <sys/stat.h>

#include <cstring>

#include <algorithm>
#include <cctype>
#include <unordered_map>
#include <unordered_set>

#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "common/files.h"
#include "common/unicode.h"
#include "input/event_synthesis.h"
#include "snapshot/ax_access.h"

namespace tavlin::openpanel {

using platform::AXAttributeValue;

namespace {

const std::string& orEmpty(const std::optional<std::string>& s) {
  static const std::string empty;
  return s ? *s : empty;
}

bool contains(const std::optional<std::string>& text, const char* part) {
  return text && text->find(part) != std::string::npos;
}

bool nonEmpty(const std::optional<std::string>& s) { return s && !s->empty(); }

bool inSet(const std::set<std::string>& set, const std::optional<std::string>& text) {
  return text && set.count(common::canonicalForm(*text)) > 0;
}

bool identified(const NodeInfo& n, const char* identifier) { return n.identifier && *n.identifier == identifier; }

// A list of column view: it sits (in its scroll area) inside the "ColumnView" browser;
// its rows name their entries with text fields, as list view does.
bool isColumn(PanelContext& c, const Element& list) {
  std::optional<Element> at = c.view.info(list).parent;
  for (int depth = 0; at && depth < 3; ++depth, at = c.view.info(*at).parent) {
    if (identified(c.view.info(*at), "ColumnView")) return true;
  }
  return false;
}

}  // namespace

// --- detection --------------------------------------------------------------

std::vector<Element> descendants(PanelContext& c, const Element& element) {
  return elementsOf(c.view.nodes(element));
}

std::string openPanelLabel(PanelContext& c, const Element& element) {
  const NodeInfo& n = c.view.info(element);
  if (nonEmpty(n.title)) return *n.title;
  if (nonEmpty(n.valueString)) return *n.valueString;
  return orEmpty(n.description);
}

bool subtreeHasNativeOpenPanelSignature(PanelContext& c, const Element& element) {
  bool cancel = false, choose = false, search = false, list = false, ownIdentifier = false;
  for (const Element& e : descendants(c, element)) {
    const NodeInfo& n = c.view.info(e);
    cancel |= n.role == "AXButton" && (inSet(c.titles.cancelButton, n.title) || identified(n, "CancelButton"));
    choose |= n.role == "AXButton" && (inSet(c.titles.chooseButton, n.title) || identified(n, "OKButton"));
    search |= n.role == "AXTextField" && n.subrole && *n.subrole == "AXSearchField";
    list |= n.role == "AXOutline" && (contains(n.description, "列表视图") || contains(n.description, "list"));
    ownIdentifier |= identified(n, "open-panel");
  }
  if (ownIdentifier) return cancel && choose;
  return cancel && choose && (search || list);
}

std::optional<Element> findNativeOpenPanel(PanelContext& c, const Element& appElement) {
  std::vector<Element> nodes = descendants(c, appElement);
  // From the end: a sheet is found before the window that holds it.
  for (auto it = nodes.rbegin(); it != nodes.rend(); ++it) {
    const NodeInfo& n = c.view.info(*it);
    if (n.role != "AXSheet" && n.role != "AXWindow") continue;
    if (!c.titles.panel.count(common::canonicalForm(openPanelLabel(c, *it))) && !identified(n, "open-panel")) continue;
    if (subtreeHasNativeOpenPanelSignature(c, *it)) return *it;
  }
  if (subtreeHasNativeOpenPanelSignature(c, appElement)) return appElement;
  return std::nullopt;
}

std::optional<Element> findNativeOpenPanelButton(PanelContext& c, const Element& panel,
                                                 const std::set<std::string>& titles) {
  for (const Element& e : descendants(c, panel)) {
    const NodeInfo& n = c.view.info(e);
    if (n.role == "AXButton" && inSet(titles, n.title)) return e;
  }
  return std::nullopt;
}

// --- waits ------------------------------------------------------------------

std::string timeoutText(double seconds) { return cli::doubleDescription(seconds); }

namespace {

// The shared loop: the clock is read for the start and again before each try, so a
// timeout of zero or less tries nothing.
template <typename Try>
bool pollUntil(PanelContext& c, double timeoutSeconds, double interval, Try attempt) {
  platform::Clock& clock = c.platform.clock();
  auto deadline = clock.now() + std::chrono::duration_cast<platform::TimePoint::duration>(
                                    std::chrono::duration<double>(std::max(0.0, std::min(timeoutSeconds, 1e6))));
  if (!(timeoutSeconds > 0)) deadline = clock.now();
  while (clock.now() < deadline) {
    c.view.nextPoll();
    if (attempt()) return true;
    clock.sleep(interval);
  }
  return false;
}

}  // namespace

Element waitForNativeOpenPanel(PanelContext& c, const Element& appElement, double timeoutSeconds) {
  std::optional<Element> found;
  if (pollUntil(c, timeoutSeconds, 0.12, [&] { return (found = findNativeOpenPanel(c, appElement)).has_value(); })) {
    return *found;
  }
  throw cli::ToolError("Native Open panel not found within " + timeoutText(timeoutSeconds) + "s");
}

void waitForNativeOpenPanelToClose(PanelContext& c, const Element& appElement, double timeoutSeconds,
                                   const std::function<void(const Element&)>& whileOpen) {
  auto closed = [&] {
    std::optional<Element> panel = findNativeOpenPanel(c, appElement);
    if (panel && whileOpen) whileOpen(*panel);
    return !panel;
  };
  if (pollUntil(c, timeoutSeconds, 0.12, closed)) return;
  throw cli::ToolError("Native Open panel did not close within " + timeoutText(timeoutSeconds) + "s");
}

void waitForNativeOpenPanelCondition(PanelContext& c, double timeoutSeconds, const std::function<bool()>& condition,
                                     double intervalSeconds) {
  if (pollUntil(c, timeoutSeconds, intervalSeconds, condition)) return;
  throw cli::ToolError("Native Open panel condition not reached within " + timeoutText(timeoutSeconds) + "s");
}

// --- model ------------------------------------------------------------------

std::vector<NativeOpenPanelNode> nativeOpenPanelNodes(PanelContext& c, const Element& element) {
  return c.view.nodes(element);
}

std::string nativeOpenPanelStandardizedPath(const std::string& path) {
  return common::standardizedPath(path, common::currentDirectory());
}

std::string nativeOpenPanelDisplayName(PanelContext& c, const std::string& path) {
  return c.platform.workspace().displayName(nativeOpenPanelStandardizedPath(path));
}

std::optional<std::string> urlPathOf(const AXAttributeValue& value) {
  const std::string* text = value.text();
  if (const platform::AXURL* url = value.url()) {
    // The platform's own reading of a file URL, where it gave one.
    if (url->fileSystemPath) return nativeOpenPanelStandardizedPath(*url->fileSystemPath);
    text = &url->absoluteString;
  }
  if (!text) return std::nullopt;
  if (auto path = common::fileURLPath(*text)) return nativeOpenPanelStandardizedPath(*path);
  // A URL value is always read as a file URL; text that is not one passes as it is.
  if (value.url()) return std::nullopt;
  return *text;
}

std::optional<std::string> nativeOpenPanelURLPath(PanelContext& c, const Element& element) {
  const NodeInfo& n = c.view.info(element);
  return n.url ? urlPathOf(*n.url) : std::nullopt;
}

std::optional<Element> nativeOpenPanelFileList(PanelContext& c, const Element& panel) {
  std::vector<Element> lists, outlines;
  std::optional<Element> lastColumn;
  std::unordered_set<uint64_t> inColumns;
  for (const auto& node : c.view.nodes(panel)) {
    const NodeInfo& n = c.view.info(node.element);
    if (n.role == "AXList") lists.push_back(node.element);
    if (n.role == "AXOutline") outlines.push_back(node.element);
    // Column view: one list per column; the last column lists the folder shown.
    bool column = identified(n, "ColumnView") || (node.parent && inColumns.count(c.view.hash(*node.parent)));
    if (!column) continue;
    inColumns.insert(n.hash);
    if (n.role == "AXList") lastColumn = node.element;
  }
  if (lastColumn) return lastColumn;
  for (const Element& e : lists) {
    const NodeInfo& n = c.view.info(e);
    if ((n.description && *n.description == "图标视图") ||
        (n.description && common::containsIgnoringCase(*n.description, "icon")) ||
        (n.identifier && *n.identifier == "IconView")) {
      return e;
    }
  }
  for (const Element& e : lists) {
    if (!contains(c.view.info(e).description, "边栏")) return e;
  }
  if (outlines.empty()) return std::nullopt;
  for (const Element& e : outlines) {
    if (c.view.info(e).identifier == std::optional<std::string>("ListView")) return e;
  }
  for (const Element& e : outlines) {
    if (contains(c.view.info(e).description, "列表视图")) return e;
  }
  for (const Element& e : outlines) {
    if (!contains(c.view.info(e).description, "边栏")) return e;
  }
  return outlines.front();
}

std::vector<NativeOpenPanelNode> nativeOpenPanelFileListCandidates(PanelContext& c, const Element& panel) {
  std::optional<Element> list = nativeOpenPanelFileList(c, panel);
  if (!list) return {};
  std::vector<NativeOpenPanelNode> nodes = c.view.nodes(*list);
  std::vector<NativeOpenPanelNode> out;
  if (c.view.info(*list).role == "AXList" && !isColumn(c, *list)) {
    for (const auto& node : nodes) {
      if (c.view.info(node.element).role == "AXImage") out.push_back(node);
    }
    if (!out.empty()) return out;
  }
  for (const auto& node : nodes) {
    const std::string& role = c.view.info(node.element).role;
    if (role == "AXTextField" || role == "AXStaticText" || role == "AXImage") out.push_back(node);
  }
  return out;
}

std::optional<std::string> nativeOpenPanelLocationValue(PanelContext& c, const Element& panel) {
  for (const Element& e : descendants(c, panel)) {
    const NodeInfo& n = c.view.info(e);
    if (n.role != "AXPopUpButton") continue;
    if (contains(n.title, "位置") || (n.identifier && *n.identifier == "where popup")) {
      return n.valueString ? n.valueString : n.title;
    }
  }
  return std::nullopt;
}

std::string entryLabel(PanelContext& c, const Element& element) {
  const NodeInfo& n = c.view.info(element);
  if (nonEmpty(n.title)) return *n.title;
  if (nonEmpty(n.valueString)) return *n.valueString;
  return orEmpty(n.description);
}

std::string nativeOpenPanelFingerprint(PanelContext& c, const Element& panel) {
  std::string out;
  for (const auto& node : nativeOpenPanelFileListCandidates(c, panel)) {
    std::string label = nativeOpenPanelURLPath(c, node.element).value_or(entryLabel(c, node.element));
    if (label.empty()) continue;
    if (!out.empty()) out += "|";
    out += label;
  }
  return out;
}

std::optional<Element> nativeOpenPanelChooseButton(PanelContext& c, const Element& panel) {
  if (auto button = findNativeOpenPanelButton(c, panel, c.titles.chooseButton)) return button;
  for (const Element& e : descendants(c, panel)) {
    const NodeInfo& n = c.view.info(e);
    if (n.role == "AXButton" && identified(n, "OKButton")) return e;
  }
  return std::nullopt;
}

bool nativeOpenPanelChooseButtonEnabled(PanelContext& c, const Element& panel) {
  std::optional<Element> button = nativeOpenPanelChooseButton(c, panel);
  if (!button) return false;
  const auto& enabled = c.view.info(*button).enabled;
  return enabled && enabled->number() && enabled->number()->truthValue();
}

// --- input ------------------------------------------------------------------

bool nativeOpenPanelPerformFirstAvailableAction(PanelContext& c, const std::vector<std::string>& actions,
                                                const std::vector<Element>& elements) {
  platform::Accessibility& ax = c.view.accessibility();
  for (const Element& e : elements) {
    std::vector<std::string> offered = snapshot::axActions(ax, e);
    for (const std::string& action : actions) {
      if (std::find(offered.begin(), offered.end(), action) == offered.end()) continue;
      if (ax.performAction(e, action) == platform::AXError::success) return true;
    }
  }
  return false;
}

namespace {

platform::Point visibleCentre(PanelContext& c, const Element& element) {
  std::optional<platform::Rect> frame = snapshot::axFrame(c.view.accessibility(), element);
  if (!frame || !(frame->size.width > 0) || !(frame->size.height > 0)) {
    throw cli::ToolError("Native Open panel click target has no visible frame");
  }
  return {frame->origin.x + frame->size.width / 2, frame->origin.y + frame->size.height / 2};
}

}  // namespace

void nativeOpenPanelClickElement(PanelContext& c, int32_t pid, const Element& element, int64_t clickState) {
  input::postMouseClickToPid(c.platform, pid, visibleCentre(c, element), clickState);
}

void nativeOpenPanelDoubleClickElement(PanelContext& c, int32_t pid, const Element& element) {
  input::postMouseClickToPid(c.platform, pid, visibleCentre(c, element), 1);
  c.platform.clock().sleep(0.07);
  // Read again: the first click may have moved the entry.
  input::postMouseClickToPid(c.platform, pid, visibleCentre(c, element), 2);
}

// --- anchoring and lookup ---------------------------------------------------


std::vector<std::string> nativeOpenPanelPathPrefixes(const std::string& path, bool includeTarget) {
  std::string target = nativeOpenPanelStandardizedPath(path);
  std::vector<std::string> parts = common::pathComponents(target);
  std::vector<std::string> out;
  if (parts.size() <= 1) return out;
  std::string accumulator = parts[0];
  for (size_t i = 1; i < parts.size(); ++i) {
    accumulator = nativeOpenPanelStandardizedPath(common::appendPathComponent(accumulator, parts[i]));
    if (accumulator == target && !includeTarget) continue;
    out.push_back(accumulator);
  }
  return out;
}

std::vector<std::string> nativeOpenPanelAnchorCandidates(PanelContext& c, const std::string& targetPath,
                                                         bool isDirectory, const std::optional<std::string>& location) {
  std::vector<std::string> out;
  if (!location || location->empty()) return out;
  std::string shown = common::lowercased(*location);
  std::vector<std::string> prefixes = nativeOpenPanelPathPrefixes(targetPath, isDirectory);
  for (auto it = prefixes.rbegin(); it != prefixes.rend(); ++it) {
    if (common::lowercased(common::lastPathComponent(*it)) == shown ||
        common::lowercased(nativeOpenPanelDisplayName(c, *it)) == shown) {
      out.push_back(*it);
    }
  }
  return out;
}

std::optional<std::string> nativeOpenPanelAnchorPath(PanelContext& c, const std::string& targetPath, bool isDirectory,
                                                     const std::optional<std::string>& location) {
  std::vector<std::string> candidates = nativeOpenPanelAnchorCandidates(c, targetPath, isDirectory, location);
  if (candidates.empty()) return std::nullopt;
  return candidates.front();
}

std::optional<std::vector<std::string>> nativeOpenPanelRelativeComponents(const std::string& anchor,
                                                                          const std::string& target) {
  std::vector<std::string> a = common::pathComponents(nativeOpenPanelStandardizedPath(anchor));
  std::vector<std::string> t = common::pathComponents(nativeOpenPanelStandardizedPath(target));
  if (t.size() < a.size() || !std::equal(a.begin(), a.end(), t.begin())) return std::nullopt;
  return std::vector<std::string>(t.begin() + static_cast<std::ptrdiff_t>(a.size()), t.end());
}

std::optional<NativeOpenPanelNode> nativeOpenPanelFindEntry(PanelContext& c, const Element& panel,
                                                            const std::string& childPath,
                                                            const std::string& componentName) {
  std::vector<NativeOpenPanelEntry> entries = nativeOpenPanelEntries(c, panel);
  std::string child = common::appendPathComponent(common::deletingLastPathComponent(childPath), componentName);
  for (size_t i = 0; i < entries.size(); ++i) {
    if (nativeOpenPanelEntryIs(c, entries, i, child)) return entries[i].node;
  }
  return std::nullopt;
}

// --- identity ---------------------------------------------------------------

bool namesEqual(const std::string& a, const std::string& b) {
  return a == b || common::canonicalForm(a) == common::canonicalForm(b);
}

bool sameFile(const std::string& a, const std::string& b) {
  std::string x = common::canonicalForm(nativeOpenPanelStandardizedPath(a));
  std::string y = common::canonicalForm(nativeOpenPanelStandardizedPath(b));
  if (x == y) return true;
  struct stat sa {}, sb {};
  if (::stat(a.c_str(), &sa) != 0 || ::stat(b.c_str(), &sb) != 0) return false;
  // A file with several hard links has several names the panel can record apart.
  if (!S_ISDIR(sa.st_mode) && sa.st_nlink > 1) return false;
  return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

bool isPackagePath(const std::string& path) {
  static const char* const extensions[] = {".app", ".bundle", ".framework", ".plugin", ".kext", ".pkg",
                                           ".mpkg", ".xpc",    ".appex",     ".rtfd",   ".photoslibrary"};
  std::string name = common::lowercased(common::lastPathComponent(path));
  bool packaged = false;
  for (const char* extension : extensions) packaged |= name.size() > std::strlen(extension) && name.ends_with(extension);
  return packaged && common::isDirectory(path);
}

std::vector<NativeOpenPanelEntry> nativeOpenPanelEntries(PanelContext& c, const Element& panel) {
  std::optional<Element> list = nativeOpenPanelFileList(c, panel);
  if (!list) return {};
  uint64_t listHash = c.view.hash(*list);
  // Each element's parent and whether it or an element above it (below the list) is
  // selected.
  std::unordered_map<uint64_t, uint64_t> parentOf;
  std::unordered_map<uint64_t, bool> selected;
  for (const auto& node : c.view.nodes(*list)) {
    uint64_t key = c.view.hash(node.element);
    uint64_t parent = node.parent ? c.view.hash(*node.parent) : 0;
    parentOf.emplace(key, parent);
    const auto& flag = c.view.info(node.element).selected;
    bool own = flag && flag->number() && flag->number()->truthValue();
    selected[key] = own || (parent != listHash && selected[parent]);
  }
  std::vector<NativeOpenPanelEntry> out;
  std::unordered_map<uint64_t, size_t> rowIndex;
  auto isName = [&](const Element& e) {
    const std::string& role = c.view.info(e).role;
    return role == "AXTextField" || role == "AXStaticText";
  };
  for (const auto& node : nativeOpenPanelFileListCandidates(c, panel)) {
    uint64_t row = c.view.hash(node.element);
    for (int guard = 0; guard < 64 && row != listHash; ++guard) {
      auto it = parentOf.find(row);
      if (it == parentOf.end() || it->second == listHash || it->second == 0) break;
      row = it->second;
    }
    std::optional<std::string> url = nativeOpenPanelURLPath(c, node.element);
    auto [at, added] = rowIndex.emplace(row, out.size());
    if (added) out.push_back({node, std::nullopt, "", std::nullopt, false});
    NativeOpenPanelEntry& entry = out[at->second];
    // The name element represents the row: the one with the URL, else a text.
    bool better = !added && ((url && !entry.path) || (!entry.path && isName(node.element) && !isName(entry.node.element)));
    if (added || better) {
      entry.node = node;
      entry.label = entryLabel(c, node.element);
      entry.filename = c.view.info(node.element).filename;
    }
    if (url && !entry.path) entry.path = url;
    entry.selected |= selected[c.view.hash(node.element)];
  }
  return out;
}

bool nativeOpenPanelEntryIs(PanelContext& c, const std::vector<NativeOpenPanelEntry>& entries, size_t index,
                            const std::string& path) {
  const NativeOpenPanelEntry& entry = entries[index];
  if (entry.path) return sameFile(*entry.path, path);
  std::string name = common::lastPathComponent(nativeOpenPanelStandardizedPath(path));
  std::string displayName = nativeOpenPanelDisplayName(c, path);
  auto shows = [&](const NativeOpenPanelEntry& e) {
    if (e.path) return false;
    if (e.filename && namesEqual(*e.filename, name)) return true;
    return !e.label.empty() && (namesEqual(e.label, name) || namesEqual(e.label, displayName));
  };
  if (!shows(entry)) return false;
  // A label shown by two entries names neither of them.
  for (size_t i = 0; i < entries.size(); ++i) {
    if (i != index && shows(entries[i])) return false;
  }
  return true;
}

std::optional<std::string> nativeOpenPanelShownFolder(PanelContext& c, const Element& panel) {
  for (const Element& e : descendants(c, panel)) {
    const NodeInfo& n = c.view.info(e);
    if (n.role == "AXPopUpButton" && (contains(n.title, "位置") || identified(n, "where popup"))) {
      if (auto url = nativeOpenPanelURLPath(c, e)) return url;
      break;
    }
  }
  std::optional<std::string> folder;
  for (const auto& entry : nativeOpenPanelEntries(c, panel)) {
    if (!entry.path) continue;
    std::string parent = common::canonicalForm(common::deletingLastPathComponent(*entry.path));
    if (folder && *folder != parent) return std::nullopt;
    folder = parent;
  }
  return folder;
}

std::vector<Element> nativeOpenPanelAncestorChain(PanelContext& c, const NativeOpenPanelNode& node) {
  std::vector<Element> chain{node.element};
  if (node.parent) chain.push_back(*node.parent);
  for (int i = 0; i < 32; ++i) {
    std::optional<Element> parent = c.view.info(chain.back()).parent;
    if (!parent) break;
    chain.push_back(*parent);
  }
  return chain;
}

}  // namespace tavlin::openpanel
