// The simulated Open panel's accessibility subtree and its reactions (see
// sim_open_panel.h). Elements are rebuilt from the panel's state after every change;
// an element keeps its hash while what it stands for is still shown, so handles read
// before a change still work, and handles of elements that went away read as invalid.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>

#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include "common/files.h"
#include "common/unicode.h"
#include "platform/sim/sim_desktop.h"

namespace tavlin::sim {

using nlohmann::ordered_json;
using platform::AXNumber;

namespace {

uint64_t stableHash(const std::string& key) {
  uint64_t h = 1469598103934665603ull;
  for (unsigned char c : key) {
    h ^= c;
    h *= 1099511628211ull;
  }
  // Apart from the derived hashes of file elements (small numbers).
  return (h & 0x0FFFFFFFFFFFFFFFull) | 0x1000000000000000ull;
}

StoredValue text(const std::string& s) { return {s}; }
StoredValue boolean(bool b) { return {AXNumber::ofBoolean(b)}; }

std::string fileURL(const std::string& path, bool folder) {
  std::string out = "file://";
  for (unsigned char c : path) {
    bool plain = std::isalnum(c) || std::string_view("/-._~").find(static_cast<char>(c)) != std::string_view::npos;
    if (plain) {
      out += static_cast<char>(c);
    } else {
      char buf[4];
      std::snprintf(buf, sizeof buf, "%%%02X", c);
      out += buf;
    }
  }
  if (folder && out.back() != '/') out += '/';
  return out;
}

struct Texts {
  const char* panelTitle;
  const char* open;
  const char* choose;
  const char* cancel;
  const char* listView;
  const char* iconView;
  const char* sidebar;
  const char* where;
};

const Texts& texts(const std::string& language) {
  static const Texts en{"Open", "Open", "Choose", "Cancel", "list view", "icon view", "sidebar", "Where"};
  static const Texts zh{"打开", "打开", "选择", "取消", "列表视图", "图标视图", "边栏", "位置"};
  return language == "zh" ? zh : en;
}

bool inside(const platform::Rect& r, platform::Point p) {
  return p.x >= r.origin.x && p.x < r.origin.x + r.size.width && p.y >= r.origin.y && p.y < r.origin.y + r.size.height;
}

// The decomposed form (NFD) in which an HFS+ disk stores names.
std::string decomposed(const std::string& text) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
  if (U_FAILURE(status)) return text;
  icu::UnicodeString out = nfd->normalize(icu::UnicodeString::fromUTF8(text), status);
  if (U_FAILURE(status)) return text;
  std::string utf8;
  out.toUTF8String(utf8);
  return utf8;
}

int64_t micros(double seconds) { return std::llround(seconds * 1e6); }

// Where the file list shows its entries: the scroll area's frame.
platform::Rect viewport(const SimOpenPanelConfig& c) {
  return {{c.frame.origin.x + 160, c.frame.origin.y + 44}, {530, 350}};
}

// An entry's place in the list's content (before scrolling), by its index.
platform::Rect contentFrame(const SimOpenPanelConfig& c, size_t i) {
  platform::Rect v = viewport(c);
  if (c.view == "icon") return {{v.origin.x + 100.0 * (i % 5), v.origin.y + 80.0 * (i / 5)}, {100, 80}};
  if (c.view == "column") return {{v.origin.x + 265, v.origin.y + 20.0 * i}, {265, 20}};
  return {{v.origin.x, v.origin.y + 20.0 * i}, {530, 20}};
}

}  // namespace

std::string SimDesktop::displayName(const std::string& path) const {
  if (auto it = displayNames_.find(path); it != displayNames_.end()) return it->second;
  std::string name = common::lastPathComponent(path);
  if (name.size() > 4 && name.ends_with(".app")) name.resize(name.size() - 4);
  return name;
}

std::optional<size_t> SimDesktop::indexOfHash(uint64_t hash) const {
  auto it = hashIndex_.find(hash);
  if (it == hashIndex_.end()) return std::nullopt;
  return it->second;
}

bool SimDesktop::panelShown(const PanelSlot& slot) const {
  const SimOpenPanelConfig& c = slot.config;
  if (!slot.state.open || elapsedMicros_ < micros(c.appearsAfter)) return false;
  return !c.closesAfter || elapsedMicros_ < micros(*c.closesAfter);
}

bool SimDesktop::panelChangesBetween(const PanelSlot& slot, int64_t before, int64_t after) const {
  const SimOpenPanelConfig& c = slot.config;
  std::vector<int64_t> due = {slot.state.enabledAtMicros, micros(c.appearsAfter)};
  if (c.entriesDelay > 0) due.push_back(slot.state.shownAtMicros + micros(c.entriesDelay));
  if (slot.state.goTo) due.push_back(slot.state.goToAtMicros);
  if (c.closesAfter) due.push_back(micros(*c.closesAfter));
  for (int64_t t : due) {
    if (before < t && t <= after) return true;
  }
  return false;
}

std::string SimDesktop::panelRealPath(const PanelSlot& slot, const std::string& path) const {
  std::string resolved = common::standardizedPath(path, "/");
  if (slot.config.caseInsensitive) {
    // Each component as the disk spells it, when only the letter case differs.
    std::string built = "/";
    for (const std::string& part : common::pathComponents(resolved)) {
      if (part == "/") continue;
      // The spelling the panel lists: the first in order of those that differ by case.
      std::vector<std::string> spellings;
      std::error_code error;
      for (const auto& item : std::filesystem::directory_iterator(built, error)) {
        std::string name = item.path().filename().string();
        if (common::lowercased(name) == common::lowercased(part)) spellings.push_back(name);
      }
      std::sort(spellings.begin(), spellings.end());
      built = common::appendPathComponent(built, spellings.empty() ? part : spellings.front());
    }
    resolved = built;
  }
  // The panel shows where a symbolic link leads.
  std::error_code error;
  std::filesystem::path real = std::filesystem::canonical(resolved, error);
  return error ? resolved : real.string();
}

std::vector<SimPanelEntry> SimDesktop::panelEntries(const PanelSlot& slot) const {
  std::vector<SimPanelEntry> out;
  if (elapsedMicros_ - slot.state.shownAtMicros < std::llround(slot.config.entriesDelay * 1e6)) return out;
  std::error_code error;
  std::set<std::string> seen;
  for (const auto& item : std::filesystem::directory_iterator(slot.state.folder, error)) {
    std::string name = item.path().filename().string();
    if (name.empty() || name.front() == '.') continue;

    SimPanelEntry e;
    e.path = common::appendPathComponent(slot.state.folder, name);
    e.name = name;
    e.displayName = displayName(e.path);
    if (slot.config.decomposedNames) e.displayName = decomposed(e.displayName);
    bool directory = common::isDirectory(e.path);
    e.bundle = directory && name.ends_with(".app");
    e.folder = directory && !e.bundle;
    out.push_back(std::move(e));
  }
  std::sort(out.begin(), out.end(), [](const SimPanelEntry& a, const SimPanelEntry& b) {
    std::string x = common::lowercased(a.displayName), y = common::lowercased(b.displayName);
    return x != y ? x < y : a.name < b.name;
  });
  if (slot.config.caseInsensitive) {
    // A default Mac disk holds one of two names that differ only by case.
    std::vector<SimPanelEntry> kept;
    for (auto& e : out) {
      if (seen.insert(common::lowercased(e.name)).second) kept.push_back(std::move(e));
    }
    out = std::move(kept);
  }
  return out;
}

bool SimDesktop::panelChooseEnabled(const PanelSlot& slot) const {
  if (slot.state.goTo) return false;  // disabled while Go to Folder is open
  if (elapsedMicros_ < slot.state.enabledAtMicros) return false;
  const std::string& chooses = slot.config.chooses;
  if (!slot.state.selection) return chooses != "files";  // a folder panel can choose the folder shown
  bool directory = common::isDirectory(*slot.state.selection) && !slot.state.selection->ends_with(".app");
  return directory ? chooses != "files" || true : chooses != "folders";
}

void SimDesktop::rebuildOpenPanels() {
  elements_.resize(staticElements_);
  hashIndex_.clear();
  for (size_t i = 0; i < elements_.size(); ++i) hashIndex_.emplace(elements_[i].hash, i);
  for (size_t p = 0; p < panels_.size(); ++p) {
    PanelSlot& slot = panels_[p];
    const SimOpenPanelConfig& c = slot.config;
    const Texts& t = texts(c.language);
    std::string base = "panel:" + std::to_string(c.pid) + ":";
    // Adds an element whose parent is `parent` (or none); returns its index.
    auto add = [&](std::optional<size_t> parent, const std::string& key, const std::string& role,
                   platform::Rect frame) {
      SimElement e;
      e.pid = c.pid;
      e.hash = stableHash(base + key);
      e.panel = static_cast<int>(p);
      e.attributes["AXRole"] = text(role);
      e.attributes["AXPosition"].storage = frame.origin;
      e.attributes["AXSize"].storage = frame.size;
      if (parent) {
        e.attributes["AXParent"].storage = ElementIndex{*parent};
        auto& children = elements_[*parent].attributes["AXChildren"];
        if (!std::holds_alternative<StoredArray>(children.storage)) children.storage = StoredArray{};
        std::get<StoredArray>(children.storage).push_back({ElementIndex{elements_.size()}});
      }
      elements_.push_back(std::move(e));
      hashIndex_[elements_.back().hash] = elements_.size() - 1;
      return elements_.size() - 1;
    };

    SimElement& host = elements_[slot.hostIndex];
    host.attributes["AXChildren"].storage = slot.hostChildren;
    if (c.presentation == "window") host.attributes["AXWindows"].storage = slot.hostWindows;
    if (c.hostTextArea) {
      platform::Rect hostFrame{{0, 0}, {0, 0}};
      if (auto pos = host.attributes.find("AXPosition"); pos != host.attributes.end()) {
        if (auto* point = std::get_if<platform::Point>(&pos->second.storage)) hostFrame.origin = *point;
      }
      size_t area = add(slot.hostIndex, "host-text", "AXTextArea", {{hostFrame.origin.x + 10, hostFrame.origin.y + 40}, {400, 300}});
      elements_[area].attributes["AXValue"] = text(slot.state.hostText.value_or(*c.hostTextArea));
      elements_[area].attributes["AXFocused"] = boolean(true);
    }
    if (!panelShown(slot)) continue;

    platform::Rect f = c.frame;
    double x = f.origin.x, y = f.origin.y;
    size_t panel = add(std::nullopt, "panel", c.presentation == "sheet" ? "AXSheet" : "AXWindow", f);
    elements_[panel].attributes["AXIdentifier"] = text("open-panel");
    if (c.presentation == "window") {
      elements_[panel].attributes["AXSubrole"] = text("AXDialog");
      elements_[panel].attributes["AXTitle"] = text(t.panelTitle);
    }
    if (!c.title.empty()) elements_[panel].attributes["AXTitle"] = text(c.title);
    elements_[panel].attributes["AXParent"].storage = ElementIndex{slot.hostIndex};
    auto& hostChildren = elements_[slot.hostIndex].attributes["AXChildren"];
    std::get<StoredArray>(hostChildren.storage).push_back({ElementIndex{panel}});
    if (c.presentation == "window") {
      auto& windows = elements_[slot.hostIndex].attributes["AXWindows"];
      if (!std::holds_alternative<StoredArray>(windows.storage)) windows.storage = StoredArray{};
      std::get<StoredArray>(windows.storage).push_back({ElementIndex{panel}});
    }

    size_t where = add(panel, "where", "AXPopUpButton", {{x + 250, y + 10}, {200, 24}});
    elements_[where].attributes["AXIdentifier"] = text("where popup");
    elements_[where].attributes["AXTitle"] = text(t.where);
    std::string whereName = displayName(slot.state.folder);
    elements_[where].attributes["AXValue"] = text(c.decomposedNames ? decomposed(whereName) : whereName);
    elements_[where].actions = {"AXPress", "AXShowMenu"};
    size_t search = add(panel, "search", "AXTextField", {{x + 500, y + 10}, {180, 24}});
    elements_[search].attributes["AXSubrole"] = text("AXSearchField");
    elements_[search].attributes["AXRoleDescription"] = text("search text field");

    size_t sidebar = add(panel, "sidebar", "AXOutline", {{x, y + 44}, {150, 350}});
    elements_[sidebar].attributes["AXDescription"] = text(t.sidebar);
    const char* places[] = {"Desktop", "Documents", "Downloads"};
    for (int i = 0; i < 3; ++i) {
      size_t row = add(sidebar, std::string("sidebar-row:") + places[i], "AXRow", {{x, y + 44 + 20.0 * i}, {150, 20}});
      size_t label = add(row, std::string("sidebar-label:") + places[i], "AXStaticText", {{x + 8, y + 44 + 20.0 * i}, {140, 20}});
      elements_[label].attributes["AXValue"] = text(places[i]);
    }

    std::vector<SimPanelEntry> entries = panelEntries(slot);
    bool iconView = c.view == "icon", columnView = c.view == "column";
    platform::Rect port = viewport(c);
    double contentHeight = entries.empty() ? 0 : contentFrame(c, entries.size() - 1).origin.y + 80 - port.origin.y;
    auto scrolled = [&](platform::Rect r) {
      r.origin.y -= slot.state.scroll;
      return r;
    };
    size_t list = 0;
    if (columnView) {
      // One list per column: the parent folder's (its row for the folder shown
      // selected), then the folder's own.
      size_t browser = add(panel, "browser", "AXBrowser", port);
      elements_[browser].attributes["AXIdentifier"] = text("ColumnView");
      std::string parent = common::deletingLastPathComponent(slot.state.folder);
      size_t parentArea = add(browser, "column-scroll:0", "AXScrollArea", {port.origin, {265, port.size.height}});
      size_t parentList = add(parentArea, "column:0", "AXList", {port.origin, {265, port.size.height}});
      size_t row = add(parentList, "column-row:" + slot.state.folder, "AXGroup", {port.origin, {265, 20}});
      elements_[row].attributes["AXSelected"] = boolean(true);
      size_t name = add(row, "column-name:" + slot.state.folder, "AXTextField", {port.origin, {265, 20}});
      elements_[name].attributes["AXValue"] = text(displayName(slot.state.folder));
      elements_[name].attributes["AXURL"].storage = simURL(fileURL(slot.state.folder, true));
      elements_[name].attributes["AXSelected"] = boolean(true);
      (void)parent;
      size_t area = add(browser, "column-scroll:1", "AXScrollArea", {{port.origin.x + 265, port.origin.y}, {265, port.size.height}});
      list = add(area, "list", "AXList", scrolled({{port.origin.x + 265, port.origin.y}, {265, std::max(port.size.height, contentHeight)}}));
    } else {
      size_t scroll = add(panel, "scroll", "AXScrollArea", port);
      list = add(scroll, "list", iconView ? "AXList" : "AXOutline",
                 scrolled({port.origin, {port.size.width, std::max(port.size.height, contentHeight)}}));
      elements_[list].attributes["AXDescription"] = text(iconView ? t.iconView : t.listView);
      elements_[list].attributes["AXIdentifier"] = text(iconView ? "IconView" : "ListView");
      if (iconView) elements_[list].attributes["AXSubrole"] = text("AXCollectionList");
    }
    elements_[list].panelRole = "list";
    elements_[list].settable = {iconView || columnView ? "AXSelectedChildren" : "AXSelectedRows"};
    StoredArray selectedItems;
    for (size_t i = 0; i < entries.size(); ++i) {
      const SimPanelEntry& entry = entries[i];
      bool selected = slot.state.selection == entry.path;
      std::string key = "entry:" + entry.path;
      platform::Rect itemFrame = scrolled(contentFrame(c, i));
      // An icon out of view is counted, but reads as an invalid element.
      bool outOfView = iconView && (itemFrame.origin.y + itemFrame.size.height <= port.origin.y ||
                                    itemFrame.origin.y >= port.origin.y + port.size.height);
      size_t item = add(list, key + ":row", iconView || columnView ? "AXGroup" : "AXRow", itemFrame);
      elements_[item].attributes["AXSelected"] = boolean(selected);
      elements_[item].panelRole = "row";
      elements_[item].panelPath = entry.path;
      elements_[item].actions = {"AXScrollToVisible"};
      elements_[item].invalid = outOfView;
      if (selected) selectedItems.push_back({ElementIndex{item}});
      size_t nameParent = item;
      if (!iconView && !columnView) {
        nameParent = add(item, key + ":cell", "AXCell", itemFrame);
      }
      // The name element: a text field in list and column view, the image in icon view.
      platform::Rect nameFrame = iconView ? platform::Rect{{itemFrame.origin.x + 26, itemFrame.origin.y + 8}, {48, 48}}
                                          : platform::Rect{{itemFrame.origin.x + 24, itemFrame.origin.y}, {columnView ? 230.0 : 300.0, 20}};
      if (columnView) {
        size_t icon = add(item, key + ":icon", "AXImage", {{itemFrame.origin.x + 4, itemFrame.origin.y + 2}, {16, 16}});
        elements_[icon].panelRole = "entry-icon";
        elements_[icon].panelPath = entry.path;
      }
      size_t name = add(nameParent, key, iconView ? "AXImage" : "AXTextField", nameFrame);
      SimElement& n = elements_[name];
      if (iconView) {
        n.attributes["AXTitle"] = text(entry.displayName);
      } else {
        n.attributes["AXValue"] = text(entry.displayName);
      }
      n.attributes["AXURL"].storage = simURL(fileURL(entry.path, entry.folder || entry.bundle));
      n.attributes["AXSelected"] = boolean(selected);
      n.attributes["AXEnabled"] = boolean(true);
      n.panelRole = "entry";
      n.panelPath = entry.path;
      n.invalid = outOfView;
      n.actions = {"AXShowMenu", "AXScrollToVisible"};
      if (columnView) n.actions.push_back("AXConfirm");
      if ((entry.folder || entry.bundle) && !c.withoutAXOpen) n.actions.insert(n.actions.begin(), "AXOpen");
      if (!iconView && !columnView) {
        size_t icon = add(item, key + ":icon", "AXImage", {{itemFrame.origin.x + 4, itemFrame.origin.y + 2}, {16, 16}});
        elements_[icon].attributes["AXDescription"] = text(entry.folder ? "folder" : "document");
        elements_[icon].panelRole = "entry-icon";
        elements_[icon].panelPath = entry.path;
      }
    }
    elements_[list].attributes[iconView || columnView ? "AXSelectedChildren" : "AXSelectedRows"].storage = selectedItems;

    size_t cancel = add(panel, "cancel", "AXButton", {{x + f.size.width - 200, y + f.size.height - 40}, {80, 28}});
    elements_[cancel].attributes["AXTitle"] = text(t.cancel);
    elements_[cancel].attributes["AXIdentifier"] = text("CancelButton");
    elements_[cancel].attributes["AXEnabled"] = boolean(true);
    elements_[cancel].actions = {"AXPress"};
    elements_[cancel].panelRole = "cancel";
    size_t choose = add(panel, "choose", "AXButton", {{x + f.size.width - 100, y + f.size.height - 40}, {80, 28}});
    std::string prompt = !c.prompt.empty() ? c.prompt : c.chooses == "folders" ? t.choose : t.open;
    elements_[choose].attributes["AXTitle"] = text(prompt);
    elements_[choose].attributes["AXIdentifier"] = text("OKButton");
    elements_[choose].attributes["AXEnabled"] = boolean(panelChooseEnabled(slot) && !c.buttonStateLags);
    elements_[choose].actions = {"AXPress"};
    elements_[choose].panelRole = "choose";

    if (slot.state.goTo && elapsedMicros_ >= slot.state.goToAtMicros) {
      size_t sheet = add(panel, "goto", "AXSheet", {{x + 150, y + 60}, {400, 120}});
      elements_[sheet].attributes["AXIdentifier"] = text("GoToWindow");
      size_t field = add(sheet, "goto-field", "AXTextField", {{x + 170, y + 80}, {360, 24}});
      elements_[field].attributes["AXIdentifier"] = text("PathTextField");
      elements_[field].attributes["AXValue"] = text(*slot.state.goTo);
      elements_[field].attributes["AXFocused"] = boolean(true);
    }
  }
}

void SimDesktop::savePanel(size_t panel) {
  const SimOpenPanelState& s = panels_[panel].state;
  ordered_json state = {{"folder", s.folder},
                        {"selection", s.selection ? ordered_json(*s.selection) : ordered_json(nullptr)},
                        {"goTo", s.goTo ? ordered_json(*s.goTo) : ordered_json(nullptr)},
                        {"history", s.history},
                        {"open", s.open},
                        {"chosen", s.chosen ? ordered_json(*s.chosen) : ordered_json(nullptr)},
                        {"shownAt", static_cast<double>(s.shownAtMicros) / 1e6}};
  if (s.wrongTurnsTaken > 0) state["wrongTurnsTaken"] = s.wrongTurnsTaken;
  if (s.goToAtMicros > 0) state["goToAt"] = static_cast<double>(s.goToAtMicros) / 1e6;
  if (s.enabledAtMicros > 0) state["enabledAt"] = static_cast<double>(s.enabledAtMicros) / 1e6;
  if (s.scroll > 0) state["scroll"] = s.scroll;
  if (s.hostText) state["hostText"] = *s.hostText;
  if (s.hostTextSelected) state["hostTextSelected"] = true;
  documentNode(panels_[panel].jsonPointer)["state"] = std::move(state);
  dirty_ = true;
  rebuildOpenPanels();
}

void SimDesktop::panelScrollTo(PanelSlot& slot, const std::string& path) const {
  std::vector<SimPanelEntry> entries = panelEntries(slot);
  for (size_t i = 0; i < entries.size(); ++i) {
    if (entries[i].path != path) continue;
    platform::Rect port = viewport(slot.config), item = contentFrame(slot.config, i);
    double top = item.origin.y - port.origin.y, bottom = top + item.size.height;
    if (top < slot.state.scroll) slot.state.scroll = top;
    if (bottom > slot.state.scroll + port.size.height) slot.state.scroll = bottom - port.size.height;
    return;
  }
}

void SimDesktop::panelShow(size_t panel, const std::string& folder, const std::optional<std::string>& selection,
                           bool remember) {
  SimOpenPanelState& s = panels_[panel].state;
  std::string shown = panelRealPath(panels_[panel], folder);
  if (remember && shown != s.folder) s.history.push_back(s.folder);
  s.folder = shown;
  s.scroll = 0;
  // A selection is shown: the list scrolls to it.
  if (selection) panelScrollTo(panels_[panel], *selection);
  s.selection = selection;
  s.shownAtMicros = elapsedMicros_;
  log("pid:" + std::to_string(panels_[panel].config.pid), "open-panel-show", {{"folder", shown}});
  savePanel(panel);
}

void SimDesktop::panelOpenFolder(size_t panel, const std::string& folder) {
  PanelSlot& slot = panels_[panel];
  if (slot.state.wrongTurnsTaken < slot.config.wrongTurns) {
    // A mis-hit: the first other folder listed opens instead.
    for (const SimPanelEntry& entry : panelEntries(slot)) {
      if (!entry.folder || entry.path == folder) continue;
      ++slot.state.wrongTurnsTaken;
      panelShow(panel, entry.path, std::nullopt);
      return;
    }
  }
  panelShow(panel, folder, std::nullopt);
}

void SimDesktop::panelConfirm(size_t panel) {
  PanelSlot& slot = panels_[panel];
  if (!panelChooseEnabled(slot)) return;
  std::string chosen = slot.state.selection.value_or(slot.state.folder);
  // A plain folder chosen in a panel that takes only files is opened instead.
  if (slot.state.selection && slot.config.chooses == "files" && common::isDirectory(chosen) &&
      !chosen.ends_with(".app")) {
    panelShow(panel, chosen, std::nullopt);
    return;
  }
  if (slot.config.neverCloses) return;
  slot.state.open = false;
  slot.state.chosen = chosen;
  log("pid:" + std::to_string(slot.config.pid), "open-panel-chose", {{"path", chosen}});
  savePanel(panel);
}

void SimDesktop::openPanelAction(size_t index, const std::string& action) {
  const SimElement& e = elements_.at(index);
  if (e.panel < 0) return;
  size_t panel = static_cast<size_t>(e.panel);
  PanelSlot& slot = panels_[panel];
  std::string role = e.panelRole, path = e.panelPath;
  if (role == "choose" && action == "AXPress") {
    panelConfirm(panel);
  } else if (role == "cancel" && action == "AXPress") {
    slot.state.open = false;
    log("pid:" + std::to_string(slot.config.pid), "open-panel-cancelled");
    savePanel(panel);
  } else if (role == "entry" && action == "AXOpen" && common::isDirectory(path)) {
    panelOpenFolder(panel, path);
  } else if ((role == "entry" || role == "row") && action == "AXScrollToVisible") {
    double before = slot.state.scroll;
    panelScrollTo(slot, path);
    if (slot.state.scroll != before) savePanel(panel);
  }
}

bool SimDesktop::openPanelSetSelection(size_t index, const std::string& attribute, const std::vector<size_t>& items) {
  const SimElement& list = elements_.at(index);
  if (list.panel < 0 || list.panelRole != "list") return false;
  bool supported = false;
  for (const auto& s : list.settable) supported |= s == attribute;
  if (!supported || items.size() > 1) return false;
  size_t panel = static_cast<size_t>(list.panel);
  PanelSlot& slot = panels_[panel];
  if (slot.config.rowsRefuseSelection) return true;  // accepted, and ignored
  std::optional<std::string> selection;
  if (!items.empty()) {
    const SimElement& item = elements_.at(items.front());
    if (item.panel != list.panel || item.panelRole != "row") return false;
    selection = item.panelPath;
  }
  if (selection != slot.state.selection) {
    slot.state.selection = selection;
    savePanel(panel);
  }
  return true;
}

void SimDesktop::openPanelInput(int32_t pid, const platform::Event& event) {
  for (size_t panel = 0; panel < panels_.size(); ++panel) {
    PanelSlot& slot = panels_[panel];
    if (slot.config.pid != pid) continue;
    // Input posted to the process reaches its focused window, not a panel that is not
    // there or is drawn by another process.
    if (!panelShown(slot) || slot.config.outOfProcess) {
      hostTextInput(panel, event);
      continue;
    }
    SimOpenPanelState& s = slot.state;
    using platform::EventType;
    uint64_t flags = event.flags.value_or(0);
    constexpr uint64_t modifiers = platform::eventflags::command | platform::eventflags::shift |
                                   platform::eventflags::control | platform::eventflags::alternate;
    if (event.type == EventType::leftMouseDown) {
      // Hit test: the topmost entry or button under the point.
      for (size_t i = elements_.size(); i-- > staticElements_;) {
        const SimElement& e = elements_[i];
        if (e.panel != static_cast<int>(panel) || e.panelRole.empty() || e.panelRole == "list" || e.invalid) continue;
        auto pos = e.attributes.find("AXPosition");
        auto size = e.attributes.find("AXSize");
        platform::Rect frame{std::get<platform::Point>(pos->second.storage), std::get<platform::Size>(size->second.storage)};
        if (!inside(frame, event.location)) continue;
        // Entries answer only where the list shows them.
        bool listed = e.panelRole == "row" || e.panelRole == "entry" || e.panelRole == "entry-icon";
        if (listed && !inside(viewport(slot.config), event.location)) continue;
        if (e.panelRole == "choose") {
          panelConfirm(panel);
        } else if (e.panelRole == "cancel") {
          openPanelAction(i, "AXPress");
        } else if (!slot.config.rowsRefuseSelection) {
          std::string path = e.panelPath;
          if (event.clickState.value_or(1) >= 2) {
            if (common::isDirectory(path) && !path.ends_with(".app")) {
              panelOpenFolder(panel, path);
            } else {
              s.selection = path;
              savePanel(panel);
              panelConfirm(panel);
            }
          } else if (s.selection != path) {
            s.selection = path;
            savePanel(panel);
          }
        }
        return;
      }
      return;
    }
    if (event.type != EventType::keyDown) return;
    uint64_t held = flags & modifiers;
    if (event.keyCode == 5 && held == (platform::eventflags::command | platform::eventflags::shift)) {
      s.goTo = "";
      s.goToAtMicros = elapsedMicros_ + micros(slot.config.goToDelay);
      savePanel(panel);
    } else if (s.goTo && elapsedMicros_ < s.goToAtMicros) {
      // Keys sent before the sheet's field has focus are lost.
    } else if (s.goTo) {
      if (event.keyCode == 0 && held == platform::eventflags::command) {
        // Select all: the next text replaces the field, as does Delete.
      } else if (event.keyCode == 51 && held == 0) {
        s.goTo = "";
        savePanel(panel);
      } else if (event.keyCode == 36 && held == 0) {
        std::string target = *s.goTo;
        if (target.starts_with("~")) target = common::appendPathComponent(std::getenv("HOME") ? std::getenv("HOME") : "/", target.substr(1));
        target = panelRealPath(slot, target);
        s.goTo.reset();
        s.enabledAtMicros = elapsedMicros_ + micros(slot.config.openButtonLag);
        if (common::isDirectory(target) && !target.ends_with(".app")) {
          panelShow(panel, common::standardizedPath(target, "/"), std::nullopt);
        } else if (common::exists(target)) {
          std::string file = common::standardizedPath(target, "/");
          panelShow(panel, common::deletingLastPathComponent(file), file);
        } else {
          savePanel(panel);
        }
      } else if (event.unicodeString && held == 0) {
        // The typist sends one scalar per event (two units beyond the BMP).
        *s.goTo += common::utf8FromUTF16(*event.unicodeString);
        savePanel(panel);
      }
    } else if (event.keyCode == 36 && held == 0) {
      panelConfirm(panel);
    } else if (event.keyCode == 33 && held == platform::eventflags::command && !s.history.empty()) {
      std::string back = s.history.back();
      s.history.pop_back();
      panelShow(panel, back, std::nullopt, false);
    }
    return;
  }
}

void SimDesktop::hostTextInput(size_t panel, const platform::Event& event) {
  PanelSlot& slot = panels_[panel];
  if (!slot.config.hostTextArea) return;
  SimOpenPanelState& s = slot.state;
  const std::string before = s.hostText.value_or(*slot.config.hostTextArea);
  std::string text = before;
  bool selected = s.hostTextSelected;
  if (!editTextWithKey(text, selected, event, clipboard_ ? clipboard_->text : std::nullopt)) return;
  if (text != before) {
    log("pid:" + std::to_string(slot.config.pid), "host-text-edited", {{"value", text}});
  }
  s.hostText = text;
  s.hostTextSelected = selected;
  savePanel(panel);
}

}  // namespace tavlin::sim
