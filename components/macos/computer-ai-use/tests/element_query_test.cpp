// The element matcher of find-elements and wait-for, and the comparison of two
// snapshots behind get-app-state --changes and the actions' observe.
#include <gtest/gtest.h>

#include "snapshot/ax_access.h"
#include "snapshot/element_changes.h"
#include "snapshot/element_query.h"

using namespace tavlin::snapshot;
using tavlin::cli::Json;

namespace {

ElementSnapshot element(std::string role, std::optional<std::string> title = {}, std::optional<std::string> value = {}) {
  ElementSnapshot e;
  e.role = std::move(role);
  e.title = std::move(title);
  e.value = std::move(value);
  return e;
}

// A snapshot from (depth, element) pairs in walk order, with indices and paths as the
// walk gives them, of a window titled as its first element and numbered `window` by
// the window server (none: not in the window list).
AppStateSnapshot snapshotOf(std::vector<std::pair<int64_t, ElementSnapshot>> items, std::optional<uint32_t> window = 1) {
  AppStateSnapshot s;
  s.app = "P";
  s.pid = 5;
  s.window = WindowSnapshot{window, items.empty() ? std::nullopt : items.front().second.title, std::nullopt};
  std::vector<std::string> chain;
  for (auto& [depth, e] : items) {
    e.depth = depth;
    e.index = static_cast<int64_t>(s.elements.size());
    chain.resize(static_cast<size_t>(depth));
    chain.push_back(snapshotPathLabel(e.role, e.title, e.desc, e.value));
    e.path.clear();
    for (const auto& label : chain) e.path += (e.path.empty() ? "" : " > ") + label;
    s.elements.push_back(e);
  }
  return s;
}

std::vector<int64_t> indices(const std::vector<ElementChange>& changes) {
  std::vector<int64_t> out;
  for (const auto& c : changes) out.push_back(c.element.index);
  return out;
}

std::string fieldsOf(const ElementChange& change) {
  std::string out;
  for (const auto& f : change.fields) out += (out.empty() ? "" : ",") + f.field;
  return out;
}

}  // namespace

TEST(ElementQuery, CriteriaAllHold) {
  ElementSnapshot save = element("AXButton", "Save");
  save.actions = {"AXPress"};
  save.identifier = "toolbar.save";
  ElementSnapshot field = element("AXTextField", std::nullopt, "Grüße an ALLE");
  field.desc = "Greeting";
  field.settable = true;
  ElementSnapshot label = element("AXStaticText", std::nullopt, "Saved");

  struct Case {
    const char* what;
    ElementQuery query;
    std::vector<bool> expected;  // save, field, label
  };
  const std::vector<Case> cases = {
      {"nothing asked: all", {}, {true, true, true}},
      {"role exactly", {.role = "AXButton"}, {true, false, false}},
      {"roles are case-sensitive", {.role = "axbutton"}, {false, false, false}},
      {"text in the title, ignoring case", {.text = "SAVE"}, {true, false, true}},
      {"text in the value, with Unicode case folding (ß is ss)", {.text = "GRÜSSE an"}, {false, true, false}},
      {"text in the description", {.text = "greet"}, {false, true, false}},
      {"text in the identifier", {.text = "toolbar."}, {true, false, false}},
      {"identifier exactly", {.identifier = "toolbar.save"}, {true, false, false}},
      {"identifier is not a part", {.identifier = "toolbar"}, {false, false, false}},
      {"interactive: actions or a settable value", {.interactive = true}, {true, true, false}},
      {"criteria combine", {.role = "AXStaticText", .text = "save"}, {false, false, true}},
      {"combined, one fails", {.role = "AXButton", .text = "saved"}, {false, false, false}},
  };
  for (const Case& c : cases) {
    std::vector<bool> got = {matches(c.query, save), matches(c.query, field), matches(c.query, label)};
    EXPECT_EQ(got, c.expected) << c.what;
  }
}

TEST(SnapshotChanges, ElementsAreMatchedAsTrees) {
  ElementSnapshot area = element("AXTextArea", std::nullopt, "Hello");
  area.focused = true;
  auto base = [&] {
    return std::vector<std::pair<int64_t, ElementSnapshot>>{
        {0, element("AXWindow", "Doc")},  {1, element("AXButton", "Bold")}, {1, element("AXButton")},
        {1, element("AXButton")},         {1, area},                        {2, element("AXStaticText", "Inner")},
        {1, element("AXGroup", "Status")}, {2, element("AXStaticText", std::nullopt, "4 lines")}};
  };
  const AppStateSnapshot before = snapshotOf(base());

  struct Case {
    const char* what;
    std::function<void(std::vector<std::pair<int64_t, ElementSnapshot>>&)> edit;
    std::optional<uint32_t> window = 1;
    std::vector<int64_t> added, removed, changed;
    std::string fields;  // of the first change
  };
  const std::vector<Case> cases = {
      {"nothing changed", [](auto&) {}, 1, {}, {}, {}, ""},
      // Typing into an untitled field changes its path; it is still the same field.
      {"a value that labels its element", [](auto& e) { e[4].second.value = "Hello world"; }, 1, {}, {}, {4}, "value"},
      {"the window renamed, same window", [](auto& e) { e[0].second.title = "Doc — Edited"; }, 1, {}, {}, {0}, "title"},
      {"another window", [](auto&) {}, 2, {0, 1, 2, 3, 4, 5, 6, 7}, {0, 1, 2, 3, 4, 5, 6, 7}, {}, ""},
      // The window closed and the walk fell back on another, which the window server
      // does not list: not the same window renamed.
      {"another window, without a number", [](auto& e) { e[0].second.title = "Draft"; }, std::nullopt,
       {0, 1, 2, 3, 4, 5, 6, 7}, {0, 1, 2, 3, 4, 5, 6, 7}, {}, ""},
      {"the window left the window list (minimised), its title kept", [](auto&) {}, std::nullopt, {}, {}, {}, ""},
      {"a button inserted among unlabelled ones",
       [](auto& e) { e.insert(e.begin() + 2, {1, element("AXButton")}); }, 1, {4}, {}, {}, ""},
      {"a subtree removed", [](auto& e) { e.erase(e.begin() + 6, e.end()); }, 1, {}, {6, 7}, {}, ""},
      {"a role changed in place", [](auto& e) { e[1].second.role = "AXCheckBox"; }, 1, {1}, {1}, {}, ""},
      {"focus, enablement and place",
       [](auto& e) {
         e[4].second.focused = false;
         e[1].second.enabled = false;
         e[1].second.frame = RectPayload{1, 2, 3, 4};
       },
       1, {}, {}, {1, 4}, "enabled,frame"},
      {"a label changed in place", [](auto& e) { e[1].second.title = "Heavy"; }, 1, {}, {}, {1}, "title"},
      // An icon button is known by its description alone (Play becoming Pause).
      {"a description changed in place", [](auto& e) { e[1].second.desc = "Bold (on)"; }, 1, {}, {}, {1}, "desc"},
  };
  for (const Case& c : cases) {
    auto items = base();
    c.edit(items);
    SnapshotChanges changes = compareSnapshots(before, snapshotOf(items, c.window));
    ASSERT_TRUE(changes.since) << c.what;
    EXPECT_EQ(indices(changes.added), c.added) << c.what;
    EXPECT_EQ(indices(changes.removed), c.removed) << c.what;
    EXPECT_EQ(indices(changes.changed), c.changed) << c.what;
    if (!changes.changed.empty()) {
      EXPECT_EQ(fieldsOf(changes.changed.front()), c.fields) << c.what;
    }
  }
  EXPECT_FALSE(compareSnapshots(std::nullopt, before).since);
}

TEST(SnapshotChanges, PrintedAsABlockAndAsJSON) {
  AppStateSnapshot before = snapshotOf({{0, element("AXWindow", "Doc")},
                                        {1, element("AXButton", "Bold")},
                                        {1, element("AXTextArea", std::nullopt, "Hi\nthere")}});
  AppStateSnapshot after = snapshotOf({{0, element("AXWindow", "Doc")},
                                       {1, element("AXButton", "Delete")},
                                       {1, element("AXButton", "Bold")},
                                       {1, element("AXTextArea", std::nullopt, "Hi\nall")}});
  after.elements[1].frame = RectPayload{1, 2, 3.5, 4};
  SnapshotChanges changes = compareSnapshots(before, after);
  EXPECT_EQ(changesText(changes),
            "<changes>\n"
            "Since the snapshot of 1970-01-01T00:00:00Z: 1 added, 0 removed, 1 changed.\n"
            "+ 1 AXButton \"Delete\" at AXWindow[Doc] > AXButton[Delete]\n"
            "~ 3 AXTextArea at AXWindow[Doc] > AXTextArea[Hi\\nall]: value \"Hi\\nthere\" -> \"Hi\\nall\"\n"
            "</changes>");
  EXPECT_EQ(changesJSON(changes), Json::parse(R"({"since": "1970-01-01T00:00:00Z",
      "added": [{"index": 1, "role": "AXButton", "label": "Delete", "path": "AXWindow[Doc] > AXButton[Delete]"}],
      "removed": [],
      "changed": [{"index": 3, "role": "AXTextArea", "path": "AXWindow[Doc] > AXTextArea[Hi\nall]",
                   "before": {"index": 2, "path": "AXWindow[Doc] > AXTextArea[Hi\nthere]"},
                   "fields": {"value": {"from": "Hi\nthere", "to": "Hi\nall"}}}]})"));
  EXPECT_EQ(changesText(compareSnapshots(before, before)),
            "<changes>\nSince the snapshot of 1970-01-01T00:00:00Z: no changes.\n</changes>");
  EXPECT_EQ(changesText(compareSnapshots(std::nullopt, before)),
            "<changes>\nNo previous snapshot of this application to compare with.\n</changes>");
  EXPECT_EQ(changesJSON(compareSnapshots(std::nullopt, before)), Json::parse(R"({"since": null})"));
}
