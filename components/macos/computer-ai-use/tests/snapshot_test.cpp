#include <gtest/gtest.h>

#include "cli/tool_error.h"
#include "platform/sim/sim_platform.h"
#include "snapshot/ax_access.h"
#include "snapshot/get_app_state.h"
#include "snapshot/root_window.h"
#include "snapshot/snapshot_json.h"
#include "snapshot/state_cache.h"
#include "test_support.h"

using namespace tavlin;
using namespace tavlin::snapshot;
using tavlin::sim::SimDesktop;
using tavlin::sim::SimPlatform;

using tavlin::testing::toolErrorOf;

namespace {

std::string repeat(const std::string& s, int n) {
  std::string out;
  for (int i = 0; i < n; ++i) out += s;
  return out;
}

ElementSnapshot element(int64_t index, int64_t depth, std::string role) {
  ElementSnapshot e;
  e.index = index;
  e.depth = depth;
  e.role = std::move(role);
  return e;
}

}  // namespace

TEST(DescribeElement, PartsCutsAndEscapes) {
  const std::string ellipsis = "\xE2\x80\xA6";
  struct Case {
    std::function<void(ElementSnapshot&)> setup;
    std::string line;
  };
  const std::vector<Case> cases = {
      {[](ElementSnapshot&) {}, "\t\t3 AXButton"},
      {[](ElementSnapshot& e) { e.role = ""; }, "\t\t3 element"},
      {[](ElementSnapshot& e) { e.subrole = "AXCloseButton"; }, "\t\t3 AXCloseButton"},
      {[](ElementSnapshot& e) {
         e.subrole = "AXCloseButton";
         e.roleDescription = "";
       },
       "\t\t3 AXCloseButton"},
      {[](ElementSnapshot& e) { e.roleDescription = "close\nbutton"; }, "\t\t3 close\\nbutton"},
      {[](ElementSnapshot& e) { e.roleDescription = repeat("r", 48); }, "\t\t3 " + repeat("r", 48)},
      {[](ElementSnapshot& e) { e.roleDescription = repeat("r", 49); }, "\t\t3 " + repeat("r", 48) + ellipsis},
      {[](ElementSnapshot& e) { e.title = repeat("t", 80); }, "\t\t3 AXButton " + repeat("t", 80)},
      {[](ElementSnapshot& e) { e.title = repeat("t", 81); }, "\t\t3 AXButton " + repeat("t", 80) + ellipsis},
      {[](ElementSnapshot& e) {
         e.title = "";
         e.desc = "Line 1\nLine 2";
       },
       "\t\t3 AXButton Line 1\\nLine 2"},
      {[](ElementSnapshot& e) { e.settable = true; }, "\t\t3 AXButton (settable)"},
      {[](ElementSnapshot& e) { e.identifier = repeat("i", 61); }, "\t\t3 AXButton, ID: " + repeat("i", 60) + ellipsis},
      {[](ElementSnapshot& e) { e.value = repeat("v", 120); }, "\t\t3 AXButton, Value: " + repeat("v", 120)},
      {[](ElementSnapshot& e) { e.value = repeat("\xC3\xA9", 121); },
       "\t\t3 AXButton, Value: " + repeat("\xC3\xA9", 120) + ellipsis},
      {[](ElementSnapshot& e) { e.value = ""; }, "\t\t3 AXButton"},
      {[](ElementSnapshot& e) { e.enabled = true; }, "\t\t3 AXButton"},
      {[](ElementSnapshot& e) { e.enabled = false; }, "\t\t3 AXButton, disabled"},
      {[](ElementSnapshot& e) {
         e.settable = true;
         e.title = "OK";
         e.identifier = "ok";
         e.value = "1";
         e.enabled = false;
         e.actions = {"AXPress", "AXShowMenu"};
       },
       "\t\t3 AXButton (settable) OK, ID: ok, Value: 1, disabled, Secondary Actions: AXPress, AXShowMenu"},
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    ElementSnapshot e = element(3, 1, "AXButton");
    cases[i].setup(e);
    EXPECT_EQ(describeElement(e), cases[i].line) << "case " << i;
  }
}

TEST(PluginText, WindowLinesFocusAndScreenshot) {
  AppStateSnapshot s;
  s.app = "Notes";
  s.pid = 42;
  s.cachePath = "/c/notes-42.json";
  s.elements = {element(0, 0, "AXWindow"), element(1, 1, "AXButton")};
  EXPECT_EQ(pluginText(s),
            "Computer AI Use state\n<app_state>\nApp=Notes (pid 42)\nWindow: <unknown>, App: Notes.\n"
            "\t0 AXWindow\n\t\t1 AXButton\n</app_state>\nCache: /c/notes-42.json");
  s.bundleIdentifier = "com.example.notes";
  s.window = WindowSnapshot{};
  s.focusedElementIndex = 1;
  s.screenshotPath = "/c/notes-42.png";
  EXPECT_EQ(pluginText(s),
            "Computer AI Use state\n<app_state>\nApp=com.example.notes (pid 42)\nWindow: \"<untitled>\", App: Notes.\n"
            "\t0 AXWindow\n\t\t1 AXButton\nThe focused UI element is 1 AXButton.\n</app_state>\n"
            "Screenshot: /c/notes-42.png\nCache: /c/notes-42.json");
  s.focusedElementIndex = 7;  // not in the list: no focused line
  EXPECT_EQ(pluginText(s).find("focused"), std::string::npos);
}

TEST(SnapshotJson, EncodesSortedWithOptionalsLeftOutAndDecodesBack) {
  AppStateSnapshot s;
  s.app = "Notes";
  s.pid = 42;
  s.generatedAt = std::chrono::sys_days(std::chrono::year(2026) / 3 / 2) + std::chrono::hours(9);
  s.cachePath = "/c/notes-42.json";
  ElementSnapshot e = element(0, 0, "AXWindow");
  e.frame = RectPayload{10.5, 20, 300, 200};
  s.elements = {e};
  EXPECT_EQ(cli::formatJSON(encode(s), cli::JsonFlavor::encoder),
            "{\n  \"app\" : \"Notes\",\n  \"cachePath\" : \"/c/notes-42.json\",\n  \"elements\" : [\n    {\n"
            "      \"actions\" : [\n\n      ],\n      \"depth\" : 0,\n      \"focused\" : false,\n"
            "      \"frame\" : {\n        \"height\" : 200,\n        \"width\" : 300,\n        \"x\" : 10.5,\n"
            "        \"y\" : 20\n      },\n      \"index\" : 0,\n      \"path\" : \"\",\n      \"role\" : \"AXWindow\",\n"
            "      \"settable\" : false\n    }\n  ],\n  \"generatedAt\" : \"2026-03-02T09:00:00Z\",\n  \"pid\" : 42\n}");
  EXPECT_EQ(decodeAppStateSnapshot(encode(s)), s);

  s.bundleIdentifier = "b";
  s.screenshotPath = "/c/x.png";
  s.screenshotSize = SizePayload{600, 400};
  s.window = WindowSnapshot{7, "T", RectPayload{1, 2, 3, 4}};
  s.focusedElementIndex = 0;
  s.elements[0].enabled = false;
  s.elements[0].actions = {"AXRaise"};
  EXPECT_EQ(decodeAppStateSnapshot(cli::Json::parse(cli::formatJSON(encode(s), cli::JsonFlavor::encoder))), s);

  cli::Json doc = encode(s);
  doc.erase("window");
  EXPECT_EQ(decodeAppStateSnapshot(doc).window, std::nullopt);
  const std::vector<std::pair<std::function<void(cli::Json&)>, std::string>> broken = {
      {[](cli::Json& j) { j.erase("cachePath"); }, "missing key \"cachePath\""},
      {[](cli::Json& j) { j.erase("elements"); }, "missing key \"elements\""},
      {[](cli::Json& j) { j["elements"][0].erase("settable"); }, "elements[0]: missing key \"settable\""},
      {[](cli::Json& j) { j["elements"][0]["depth"] = "deep"; }, "elements[0].depth: expected an integer"},
      {[](cli::Json& j) { j["generatedAt"] = "yesterday"; }, "generatedAt: expected an ISO 8601 date, not \"yesterday\""},
      {[](cli::Json& j) { j["window"]["frame"].erase("x"); }, "window.frame: missing key \"x\""},
      {[](cli::Json& j) { j = cli::Json::array(); }, "expected an object"},
  };
  for (const auto& [damage, message] : broken) {
    cli::Json d = encode(s);
    damage(d);
    try {
      decodeAppStateSnapshot(d);
      ADD_FAILURE() << message;
    } catch (const DecodingError& e) {
      EXPECT_EQ(std::string(e.what()), message);
    }
  }
}

TEST(StateCache, NamesAndPixelMapping) {
  const std::vector<std::pair<std::string, std::string>> names = {
      {"com.apple.TextEdit", "com.apple.textedit"}, {"Text Edit", "text-edit"}, {"", ""},
      {"a  /\\ b", "a-b"},                          {"Caf\xC3\xA9 Bar", "caf-bar"}, {"x_y-z.1", "x_y-z.1"},
  };
  for (const auto& [in, out] : names) EXPECT_EQ(sanitizeName(in), out) << in;
  platform::RunningApplication nameless;
  nameless.pid = 4242;
  EXPECT_EQ(cacheStem(nameless), "app");

  AppStateSnapshot s;
  s.app = "Notes";
  s.screenshotSize = SizePayload{1800, 1280};
  s.window = WindowSnapshot{std::nullopt, std::nullopt, RectPayload{120, 80, 900, 640}};
  platform::Point p = screenPoint(s, "Notes", 900, 640);
  EXPECT_DOUBLE_EQ(p.x, 570);
  EXPECT_DOUBLE_EQ(p.y, 400);
  const std::string message = "No cached screenshot/window mapping for Notes. Call get-app-state first.";
  AppStateSnapshot noSize = s;
  noSize.screenshotSize.reset();
  AppStateSnapshot zeroWidth = s;
  zeroWidth.screenshotSize = SizePayload{0, 10};
  AppStateSnapshot noFrame = s;
  noFrame.window->frame.reset();
  for (const AppStateSnapshot& bad : {noSize, zeroWidth, noFrame}) {
    EXPECT_EQ(toolErrorOf([&] { screenPoint(bad, "Notes", 1, 1); }), message);
  }
}

namespace {

struct SelectionCase {
  std::string name;
  std::optional<std::string> title;
  std::optional<uint32_t> windowID;
  std::string expectedRootTitle;            // "" for the application element
  std::optional<uint32_t> expectedWindow;   // the matched window-server window
};

}  // namespace

TEST(RootWindow, PreferenceOrder) {
  SimPlatform p(SimDesktop::fromJson(nlohmann::ordered_json::parse(R"({
    "tavlinDesktop": 1,
    "apps": [
      {"pid": 7, "name": "Writer", "ui": {"role": "AXApplication",
        "attributes": {"AXFocusedWindow": {"ref": "r2"}},
        "children": [
          {"id": "r1", "role": "AXWindow", "title": "Report", "position": [0, 0], "size": [500, 400]},
          {"id": "r2", "role": "AXWindow", "title": "Report 2", "position": [50, 50], "size": [500, 400]},
          {"id": "pal", "role": "AXWindow", "title": "", "position": [900, 10], "size": [200, 300]}
        ]}},
      {"pid": 8, "name": "Other", "ui": {"role": "AXApplication"}}
    ],
    "windows": [
      {"number": 40, "pid": 7, "bounds": [50, 50, 500, 400], "name": "Report 2"},
      {"number": 41, "pid": 7, "bounds": [0, 0, 500, 400], "name": "Report"},
      {"number": 42, "pid": 7, "bounds": [900, 10, 200, 300], "layer": 3},
      {"number": 43, "pid": 7, "bounds": [0, 0, 0, 400], "name": "Zero width"},
      {"number": 50, "pid": 8, "bounds": [0, 0, 100, 100], "name": "Report"}
    ]})"),
                                     "/unused", ""));
  const std::vector<SelectionCase> cases = {
      {"no hints: focused window, matched by exact title", std::nullopt, std::nullopt, "Report 2", 40},
      {"window id", std::nullopt, 41, "Report", 41},
      {"window id of a palette: matched by frame", std::nullopt, 42, "", 42},
      {"window id of another process is ignored", std::nullopt, 50, "Report 2", 40},
      {"zero-width window is never a candidate", std::nullopt, 43, "Report 2", 40},
      {"title filter, first in AXWindows order", std::string("report"), std::nullopt, "Report", 40},
      {"title filter with window id: id wins on the server side", std::string(" report 2 "), 41, "Report 2", 41},
      {"blank filter counts as none", std::string("  \n"), std::nullopt, "Report 2", 40},
      {"filter matching nothing", std::string("Invoice"), std::nullopt, "Report 2", 40},
  };
  auto& ax = p.accessibility();
  platform::Element app = ax.applicationElement(7);
  for (const auto& c : cases) {
    SelectedRootWindow s = selectRootWindow(p, app, 7, c.title, c.windowID);
    std::string rootTitle = ax.hash(s.root) == ax.hash(app) ? "<app>" : axString(ax, s.root, "AXTitle").value_or("");
    EXPECT_EQ(rootTitle, c.expectedRootTitle) << c.name;
    EXPECT_EQ(s.quartzWindow ? std::optional<uint32_t>(s.quartzWindow->windowID) : std::nullopt, c.expectedWindow)
        << c.name;
  }
  // "report" is contained in both window-server titles; the exact title wins.
  auto windows = quartzWindows(p.windowList(), 7);
  EXPECT_EQ(windows.size(), 3u);
  EXPECT_EQ(matchQuartzWindow(windows, std::string("Report"), std::nullopt)->windowID, 41u);
  EXPECT_EQ(matchQuartzWindow(windows, std::string("REPORT"), std::nullopt)->windowID, 40u);

  // An application without accessibility windows is walked from itself.
  platform::Element other = ax.applicationElement(8);
  SelectedRootWindow s = selectRootWindow(p, other, 8, std::nullopt, std::nullopt);
  EXPECT_EQ(ax.hash(s.root), ax.hash(other));
  EXPECT_EQ(s.quartzWindow, std::nullopt);
  s = selectRootWindow(p, other, 8, std::string("Rep"), std::nullopt);
  EXPECT_EQ(s.quartzWindow->windowID, 50u);  // matched on the window-server side only
}

TEST(RootWindow, ServerOrderWithoutTitleOrFrame) {
  auto window = [](uint32_t id, int64_t layer, bool onscreen) {
    QuartzWindowInfo w;
    w.windowID = id;
    w.layer = layer;
    w.isOnscreen = onscreen;
    return w;
  };
  EXPECT_EQ(matchQuartzWindow({window(90, 0, false), window(40, 0, true)}, std::nullopt, std::nullopt)->windowID, 40u);
  EXPECT_EQ(matchQuartzWindow({window(40, 0, true), window(90, 0, true)}, std::nullopt, std::nullopt)->windowID, 90u);
  EXPECT_EQ(matchQuartzWindow({window(90, 8, true), window(40, 0, false)}, std::nullopt, std::nullopt)->windowID, 40u);
  EXPECT_EQ(matchQuartzWindow({}, std::nullopt, std::nullopt), std::nullopt);
}

TEST(StateCache, CachedStateRoundTripAndClearErrors) {
  tavlin::testing::TempDir tmp;
  runtime::ProcessValues values;
  values.cacheDirectoryURL = tmp.file("cache");
  platform::RunningApplication app;
  app.pid = 42;
  app.localizedName = "Text Edit";
  std::string path = cacheFileURL(values, app);
  EXPECT_EQ(path, tmp.file("cache/text-edit-42.json"));

  const std::string missing = "Cannot read the cached state " + path +
                              " (No such file or directory). Call get-app-state first.";
  EXPECT_EQ(toolErrorOf([&] { loadCachedState(values, app); }), missing);

  AppStateSnapshot s;
  s.app = "Text Edit";
  s.pid = 42;
  s.cachePath = path;
  s.elements = {element(0, 0, "AXWindow")};
  writeCachedState(s);
  EXPECT_EQ(loadCachedState(values, app), s);

  std::string whole = tavlin::testing::readText(path);
  const std::vector<std::pair<std::string, std::string>> damaged = {
      {whole.substr(0, whole.size() / 2), "The cached state " + path + " is not valid JSON. Call get-app-state again."},
      {"", "The cached state " + path + " is not valid JSON. Call get-app-state again."},
      {"{\"app\": \"Text Edit\"}",
       "The cached state " + path + " is not a snapshot (missing key \"pid\"). Call get-app-state again."},
  };
  for (const auto& [text, message] : damaged) {
    tavlin::testing::writeText(path, text);
    EXPECT_EQ(toolErrorOf([&] { loadCachedState(values, app); }), message);
  }
}
