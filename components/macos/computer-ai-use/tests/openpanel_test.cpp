// The Open panel's reading, path arithmetic and input primitives, on hand-built trees.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli/tool_error.h"
#include "common/files.h"
#include "openpanel/open_panel_commands.h"
#include "platform/sim/sim_platform.h"
#include "test_support.h"

using namespace tavlin;
using openpanel::PanelContext;
using openpanel::PanelView;
using tavlin::testing::TempDir;
using tavlin::testing::toolErrorOf;

namespace {

const runtime::OpenPanelTitleSets titles{{"打开", "Open"}, {"打开", "Open", "选择", "Choose"}, {"取消", "Cancel"}};
const std::vector<std::string> traversal = {"AXChildren", "AXWindows", "AXMainWindow", "AXFocusedWindow",
                                            "AXChildrenInNavigationOrder"};

// Application 5 with the given children; reads go through one view.
struct Tree {
  explicit Tree(const std::string& children, const std::string& top = "")
      : platform(sim::SimDesktop::fromJson(
            nlohmann::ordered_json::parse(R"({"tavlinDesktop": 1, )" + top +
                                          R"("apps": [{"pid": 5, "name": "P", "ui": {"id": "app", "role": "AXApplication",
                                          "children": [)" + children + "]}}]}"),
            "/unused", "")),
        view(platform.accessibility(), traversal),
        c{view, platform, titles} {}

  platform::Element app() { return platform.accessibility().applicationElement(5); }
  std::string idOf(const std::optional<platform::Element>& e) {
    if (!e) return "<none>";
    uint64_t hash = platform.accessibility().hash(*e);
    for (const auto& element : platform.desktop().elements()) {
      if (element.hash == hash) return element.id;
    }
    return "<unknown>";
  }
  std::optional<platform::Element> byId(const std::string& id) {
    for (const auto& e : view.nodes(app())) {
      if (idOf(e.element) == id) return e.element;
    }
    return std::nullopt;
  }

  sim::SimPlatform platform;
  PanelView view;
  PanelContext c;
};

const char* buttons = R"({"role": "AXButton", "title": "Cancel"}, {"role": "AXButton", "title": "Open"})";

}  // namespace

TEST(OpenPanelDetection, WhichWindowIsThePanel) {
  struct Case {
    std::string children;
    std::string expected;
  };
  const std::string search = R"({"role": "AXTextField", "subrole": "AXSearchField"})";
  const std::vector<Case> cases = {
      // A sheet titled Open inside a window titled Open: the sheet, found first from the end.
      {R"({"id": "w", "role": "AXWindow", "title": "Open", "children": [)" + std::string(buttons) + "," + search +
           R"(, {"id": "s", "role": "AXSheet", "title": "Open", "children": [)" + buttons + "," + search + "]}]}",
       "s"},
      // No Cancel button: not a panel.
      {R"({"id": "w", "role": "AXWindow", "title": "Open", "children": [{"role": "AXButton", "title": "Open"},)" +
           search + "]}",
       "<none>"},
      // Buttons and a list outline, no search field: a panel.
      {R"({"id": "w", "role": "AXWindow", "title": "Open", "children": [)" + std::string(buttons) +
           R"(, {"role": "AXOutline", "description": "list view"}]})",
       "w"},
      // Buttons alone without the identifier: not a panel.
      {R"({"id": "w", "role": "AXWindow", "title": "Open", "children": [)" + std::string(buttons) + "]}", "<none>"},
      // The identifier with both buttons is enough, whatever the title.
      {R"({"id": "w", "role": "AXWindow", "title": "Import", "identifier": "open-panel", "children": [)" +
           std::string(buttons) + "]}",
       "w"},
      // Chinese titles.
      {R"({"id": "w", "role": "AXWindow", "title": "打开", "children": [{"role": "AXButton", "title": "取消"},
          {"role": "AXButton", "title": "选择"}, {"role": "AXOutline", "description": "列表视图"}]})",
       "w"},
      // Any other language is never recognised.
      {R"({"id": "w", "role": "AXWindow", "title": "Öffnen", "children": [{"role": "AXButton", "title": "Abbrechen"},
          {"role": "AXButton", "title": "Öffnen"},)" + search + "]}",
       "<none>"},
  };
  for (const Case& c : cases) {
    Tree t(c.children);
    EXPECT_EQ(t.idOf(openpanel::findNativeOpenPanel(t.c, t.app())), c.expected) << c.children;
  }
}

TEST(OpenPanelDetection, WaitsAndTheirMessages) {
  Tree t(R"({"id": "w", "role": "AXWindow", "title": "Open", "children": [)" + std::string(buttons) +
         R"(, {"role": "AXOutline", "description": "list"}]})");
  // A timeout of 0 throws at once, even with the panel open.
  EXPECT_EQ(toolErrorOf([&] { openpanel::waitForNativeOpenPanel(t.c, t.app(), 0); }),
            "Native Open panel not found within 0.0s");
  EXPECT_EQ(t.platform.desktop().elapsedMicroseconds(), 0);
  EXPECT_EQ(toolErrorOf([&] { openpanel::waitForNativeOpenPanelToClose(t.c, t.app(), 0.5); }),
            "Native Open panel did not close within 0.5s");
  // Polls every 0.12 s up to the deadline: 0.0, 0.12, ... 0.48, then the deadline.
  EXPECT_EQ(t.platform.desktop().elapsedMicroseconds(), 600000);
  int calls = 0;
  EXPECT_EQ(toolErrorOf([&] { openpanel::waitForNativeOpenPanelCondition(t.c, 10, [&] { return ++calls == 3; }); }),
            "<no error>");
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(t.platform.desktop().elapsedMicroseconds(), 600000 + 240000);  // no sleep after the true one
  EXPECT_EQ(toolErrorOf([&] {
              openpanel::waitForNativeOpenPanelCondition(t.c, 10, []() -> bool { throw cli::ToolError("own"); });
            }),
            "own");
  const std::vector<std::pair<double, std::string>> texts = {{10, "10.0"}, {2.5, "2.5"}, {0, "0.0"}, {-1, "-1.0"},
                                                             {0.1, "0.1"}, {1e-7, "1e-07"}};
  for (const auto& [seconds, text] : texts) EXPECT_EQ(openpanel::timeoutText(seconds), text);
}

TEST(OpenPanelModel, FileListLocationCandidatesAndFingerprint) {
  struct Case {
    std::string children;
    std::string list;
    std::string candidates;  // ids, in order
    std::string fingerprint;
  };
  const std::vector<Case> cases = {
      // An icon view described in Chinese wins over a sidebar list before it.
      {R"({"role": "AXList", "description": "边栏", "children": [{"id": "side", "role": "AXStaticText", "value": "Desktop"}]},
          {"id": "icons", "role": "AXList", "description": "图标视图", "children": [
            {"id": "g", "role": "AXGroup", "children": [{"id": "i1", "role": "AXImage", "title": "A",
              "attributes": {"AXURL": {"url": "file:///tmp/A%20b/"}}}]},
            {"id": "i2", "role": "AXImage", "title": "B"}]})",
       "icons", "i1 i2", "/tmp/A b|B"},
      // Only sidebar lists: the outlines; the one identified ListView first.
      {R"({"role": "AXList", "description": "边栏"}, {"id": "o1", "role": "AXOutline", "description": "sidebar"},
          {"id": "o2", "role": "AXOutline", "identifier": "ListView", "children": [{"id": "r", "role": "AXRow", "children": [
            {"id": "t", "role": "AXTextField", "value": "Report"}, {"id": "im", "role": "AXImage", "description": "doc"}]}]})",
       "o2", "t im", "Report|doc"},
      // A sidebar list and no outline: no file list, no candidates, an empty fingerprint.
      {R"({"role": "AXList", "description": "边栏"})", "<none>", "", ""},
      // An outline of no particular description is taken over a Chinese sidebar.
      {R"({"role": "AXOutline", "description": "边栏"}, {"id": "plain", "role": "AXOutline"})", "plain", "", ""},
  };
  for (const Case& c : cases) {
    Tree t(R"({"id": "panel", "role": "AXSheet", "children": [)" + c.children + "]}");
    platform::Element panel = *t.byId("panel");
    EXPECT_EQ(t.idOf(openpanel::nativeOpenPanelFileList(t.c, panel)), c.list) << c.children;
    std::string ids;
    for (const auto& node : openpanel::nativeOpenPanelFileListCandidates(t.c, panel)) {
      ids += (ids.empty() ? "" : " ") + t.idOf(node.element);
    }
    EXPECT_EQ(ids, c.candidates) << c.children;
    EXPECT_EQ(openpanel::nativeOpenPanelFingerprint(t.c, panel), c.fingerprint) << c.children;
  }
  Tree located(R"({"id": "panel", "role": "AXSheet", "children": [{"role": "AXPopUpButton", "title": "Font", "value": "x"},
      {"role": "AXPopUpButton", "title": "位置", "value": "文稿"}]})");
  EXPECT_EQ(openpanel::nativeOpenPanelLocationValue(located.c, *located.byId("panel")), "文稿");
}

TEST(OpenPanelModel, EntryPathsInEveryForm) {
  using platform::AXAttributeValue;
  const std::vector<std::pair<AXAttributeValue, std::optional<std::string>>> cases = {
      {{platform::AXURL{"file:///tmp/a%20b/c/", std::nullopt}}, "/tmp/a b/c"},
      {{platform::AXURL{"file://localhost/tmp/x/../y", std::nullopt}}, "/tmp/y"},
      // The platform's own reading of the URL wins over the text's.
      {{platform::AXURL{"file:///.file/id=6571367.2", "/tmp/by id"}}, "/tmp/by id"},
      {{platform::AXURL{"https://example.com/a", std::nullopt}}, std::nullopt},
      {{std::string("file:///tmp//z/")}, "/tmp/z"},
      {{std::string("https://example.com/a")}, "https://example.com/a"},  // text that is not a file URL
      {{std::string("not a url")}, "not a url"},
      {{platform::AXNumber::ofInteger(3)}, std::nullopt},
  };
  for (const auto& [value, path] : cases) EXPECT_EQ(openpanel::urlPathOf(value), path);
}

TEST(OpenPanelAnchoring, PrefixesAnchorsAndComponents) {
  using V = std::vector<std::string>;
  EXPECT_EQ(openpanel::nativeOpenPanelPathPrefixes("/Users/a/b.txt", false), (V{"/Users", "/Users/a"}));
  EXPECT_EQ(openpanel::nativeOpenPanelPathPrefixes("/Users/a/b.txt", true), (V{"/Users", "/Users/a", "/Users/a/b.txt"}));
  EXPECT_EQ(openpanel::nativeOpenPanelPathPrefixes("/", true), V{});
  // Every prefix is a prefix of the target, even through the stripped system folders.
  EXPECT_EQ(openpanel::nativeOpenPanelPathPrefixes("/var/automount/t/x.txt", false),
            (V{"/var", "/var/automount", "/var/automount/t"}));
  EXPECT_EQ(openpanel::nativeOpenPanelRelativeComponents("/a/b", "/a/b/c/d"), (V{"c", "d"}));
  EXPECT_EQ(openpanel::nativeOpenPanelRelativeComponents("/a/b", "/a/b"), V{});
  EXPECT_EQ(openpanel::nativeOpenPanelRelativeComponents("/a/b", "/a/bc"), std::nullopt);

  Tree t("", R"("displayNames": {"/Users/me/Documents": "文稿"}, )");
  struct Case {
    std::string target;
    bool directory;
    std::optional<std::string> location;
    std::optional<std::string> anchor;
  };
  const std::vector<Case> cases = {
      {"/Users/me/Documents/a/b.txt", false, "a", "/Users/me/Documents/a"},
      {"/Users/me/Documents/b.txt", false, "文稿", "/Users/me/Documents"},  // through the display name
      {"/x/same/same/f.txt", false, "same", "/x/same/same"},                // the deepest wins
      {"/Users/me/a", true, "a", "/Users/me/a"},                            // a folder anchors on itself
      {"/Users/me/a", false, "a", std::nullopt},                            // a file never does
      {"/Users/me/f.txt", false, "Macintosh HD", std::nullopt},             // the root is never a prefix
      {"/Users/me/f.txt", false, std::nullopt, std::nullopt},
      {"/Users/me/f.txt", false, "", std::nullopt},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(openpanel::nativeOpenPanelAnchorPath(t.c, c.target, c.directory, c.location), c.anchor) << c.target;
  }
}

TEST(OpenPanelAnchoring, EntryLookupAndAncestorChain) {
  Tree t(R"({"id": "panel", "role": "AXSheet", "children": [{"id": "list", "role": "AXOutline", "identifier": "ListView",
      "children": [
        {"id": "byURL", "role": "AXTextField", "value": "Other", "attributes": {"AXURL": {"url": "file:///d/one.txt"}}},
        {"id": "byFilename", "role": "AXTextField", "attributes": {"AXFilename": "two.txt"}},
        {"id": "byDisplay", "role": "AXStaticText", "value": "Report"}]}]})",
         R"("displayNames": {"/d/Report.pdf": "Report"}, )");
  platform::Element panel = *t.byId("panel");
  auto find = [&](const std::string& path) {
    auto node = openpanel::nativeOpenPanelFindEntry(t.c, panel, path, common::lastPathComponent(path));
    return node ? t.idOf(node->element) : std::string("<none>");
  };
  EXPECT_EQ(find("/d/one.txt"), "byURL");
  EXPECT_EQ(find("/d/two.txt"), "byFilename");
  EXPECT_EQ(find("/d/Report.pdf"), "byDisplay");
  EXPECT_EQ(find("/d/missing.txt"), "<none>");

  // A chain deeper than 32 levels: the element, its recorded parent and 32 more.
  std::string deep = R"({"id": "leaf", "role": "AXTextField"})";
  for (int i = 0; i < 40; ++i) deep = R"({"role": "AXGroup", "children": [)" + deep + "]}";
  Tree d(deep);
  auto nodes = d.view.nodes(d.app());
  const auto& leaf = nodes.back();
  EXPECT_EQ(openpanel::nativeOpenPanelAncestorChain(d.c, leaf).size(), 34u);
}

TEST(OpenPanelAnchoring, AKnownURLDecidesAndASharedLabelNamesNothing) {
  Tree t(R"({"id": "panel", "role": "AXSheet", "children": [{"id": "list", "role": "AXOutline", "identifier": "ListView",
      "children": [
        {"id": "row", "role": "AXRow", "children": [
          {"id": "name", "role": "AXTextField", "value": "Apple", "attributes": {"AXURL": {"url": "file:///d/Apple.txt"}}},
          {"id": "icon", "role": "AXImage", "description": "document"}]},
        {"id": "twinA", "role": "AXStaticText", "value": "Twin"},
        {"id": "twinB", "role": "AXStaticText", "value": "Twin"},
        {"id": "plain", "role": "AXStaticText", "value": "Cafe\u0301"}]}]})");
  platform::Element panel = *t.byId("panel");
  auto find = [&](const std::string& path) {
    auto node = openpanel::nativeOpenPanelFindEntry(t.c, panel, path, common::lastPathComponent(path));
    return node ? t.idOf(node->element) : std::string("<none>");
  };
  EXPECT_EQ(find("/d/Apple.txt"), "name");
  EXPECT_EQ(find("/d/document"), "<none>");  // the icon's row names Apple.txt
  EXPECT_EQ(find("/d/Twin"), "<none>");      // two entries show it
  EXPECT_EQ(find("/d/Caf\u00e9"), "plain");  // canonically equal
  // The folder shown: the one parent of the entries' URLs.
  EXPECT_EQ(openpanel::nativeOpenPanelShownFolder(t.c, panel), std::optional<std::string>("/d"));
}

TEST(OpenPanelInput, Clicks) {
  Tree t(R"({"id": "b", "role": "AXButton", "position": [10, 20], "size": [40, 10]},
            {"id": "flat", "role": "AXButton", "position": [10, 20], "size": [0, 10]})");
  openpanel::nativeOpenPanelDoubleClickElement(t.c, 5, *t.byId("b"));
  const auto& lines = t.platform.desktop().pendingLogLines();
  EXPECT_EQ(lines[lines.size() - 4], "0.000 pid:5 left-mouse-down x=30 y=25 button=0 clickState=1");
  EXPECT_EQ(lines[lines.size() - 1], "0.150 pid:5 left-mouse-up x=30 y=25 button=0 clickState=2");
  EXPECT_EQ(toolErrorOf([&] { openpanel::nativeOpenPanelClickElement(t.c, 5, *t.byId("flat")); }),
            "Native Open panel click target has no visible frame");
}

TEST(OpenPanelDetection, NodesOncePerPathAndNeverRoundACycle) {
  // "shared" is reachable along two paths; "loop" lists its own ancestor "a" as a child.
  Tree t(R"({"id": "a", "role": "AXWindow", "children": [
      {"id": "b", "role": "AXGroup", "attributes": {"AXChildren": [{"ref": "shared"}, {"ref": "loop"}]}},
      {"id": "c", "role": "AXGroup", "attributes": {"AXChildren": [{"ref": "shared"}]}}]},
    {"id": "shared", "role": "AXButton"},
    {"id": "loop", "role": "AXGroup", "attributes": {"AXChildren": [{"ref": "a"}]}})");
  std::string order;
  for (const auto& node : t.view.nodes(*t.byId("a"))) order += t.idOf(node.element) + " ";
  EXPECT_EQ(order, "a b shared loop c shared ");
  // One read per element per poll, however often the passes ask.
  t.view.nextPoll();
  uint64_t before = t.platform.desktop().roundTripsThisProcess();
  for (int pass = 0; pass < 5; ++pass) t.view.nodes(*t.byId("a"));
  EXPECT_EQ(t.platform.desktop().roundTripsThisProcess() - before, 6u);  // app, a, b, c, shared, loop
}

TEST(OpenPanelAnchoring, AnAnchorThatDoesNotLeadToTheTargetIsNoRoute) {
  // "/private/var" stands for "/var" (which exists) while the target, which does not
  // exist, keeps its "/private": the anchor on "Do" is "/var/x/Do", not a folder above
  // the target. Found by fuzzing; the route used to report success without a step.
  Tree t(R"({"id": "panel", "role": "AXSheet", "children": [
      {"role": "AXPopUpButton", "identifier": "where popup", "value": "Do"}]})");
  platform::Element panel = *t.byId("panel");
  EXPECT_EQ(toolErrorOf([&] {
              openpanel::chooseNativeOpenPanelPathByAX(t.c, panel, 5, "/private/var/no-such-x/Do/f.txt", false, 1.0);
            }),
            "Native Open panel AX hierarchy could not anchor current folder: Do");
}
