#include <gtest/gtest.h>

#include "cli/tool_error.h"
#include "platform/sim/sim_platform.h"
#include "snapshot/ax_access.h"
#include "test_support.h"

using namespace tavlin;
using namespace tavlin::snapshot;
using tavlin::sim::SimDesktop;
using tavlin::sim::SimPlatform;

namespace {

const std::vector<std::string> traversal = {"AXChildren", "AXWindows", "AXMainWindow", "AXFocusedWindow",
                                            "AXChildrenInNavigationOrder"};

SimPlatform desktopWithTree(const std::string& ui, const std::string& appExtra = "") {
  std::string json = R"({"tavlinDesktop": 1, "apps": [{"pid": 7, "name": "T", )" + appExtra + R"("ui": )" + ui + "}]}";
  return SimPlatform(SimDesktop::fromJson(nlohmann::ordered_json::parse(json), "/unused", ""));
}

SimPlatform loadDesktop(const std::string& path) { return SimPlatform(SimDesktop::load(path, "")); }

// The window element with the given id.
platform::Element byId(SimPlatform& p, const std::string& id) {
  const auto& elements = p.desktop().elements();
  for (size_t i = 0; i < elements.size(); ++i) {
    if (elements[i].id == id) {
      // Reach it through a reference read so the handle is the port's own.
      platform::Element app = p.accessibility().applicationElement(elements[i].pid);
      std::vector<platform::Element> stack{app};
      while (!stack.empty()) {
        platform::Element e = stack.back();
        stack.pop_back();
        if (p.accessibility().hash(e) == elements[i].hash) return e;
        for (auto& c : axElements(p.accessibility(), e, "AXChildren")) stack.push_back(c);
      }
    }
  }
  throw std::runtime_error("no element " + id);
}

std::vector<std::string> summary(const std::vector<TraversedElement>& walk) {
  std::vector<std::string> out;
  for (const auto& t : walk) {
    const ElementSnapshot& s = t.snapshot;
    out.push_back(std::to_string(s.index) + " d" + std::to_string(s.depth) + " " + s.path +
                  (s.focused ? " *" : ""));
  }
  return out;
}

}  // namespace

TEST(Walk, PreOrderNumberingWithSharedChildrenCyclesAndCollisions) {
  SimPlatform p = desktopWithTree(R"({
    "role": "AXApplication",
    "attributes": {"AXFocusedUIElement": {"ref": "field"}},
    "children": [{
      "id": "win", "role": "AXWindow", "title": "Main",
      "attributes": {"AXFocusedWindow": {"ref": "win"},
                     "AXChildrenInNavigationOrder": [{"ref": "b"}, {"ref": "extra"}, {"ref": "a"}]},
      "children": [
        {"id": "a", "role": "AXGroup", "description": "A",
         "attributes": {"AXWindows": [{"ref": "win"}]},
         "children": [{"id": "field", "role": "AXTextField", "title": "", "description": "Name"}]},
        {"id": "b", "role": "AXButton", "title": "OK", "hash": 500},
        {"id": "twin", "role": "AXButton", "title": "Same hash as OK", "hash": 500,
         "children": [{"role": "AXStaticText", "value": "hidden by the collision"}]}
      ]},
      {"id": "extra", "role": "AXStaticText", "value": "only in navigation order"}
    ]})");
  auto& ax = p.accessibility();
  platform::Element app = ax.applicationElement(7);
  platform::Element focused = axElements(ax, app, "AXFocusedUIElement").at(0);
  auto walk = collectElements(ax, byId(p, "win"), focused, traversal);
  EXPECT_EQ(summary(walk), (std::vector<std::string>{
                               "0 d0 AXWindow[Main]",
                               "1 d1 AXWindow[Main] > AXGroup[A]",
                               "2 d2 AXWindow[Main] > AXGroup[A] > AXTextField[Name] *",
                               "3 d1 AXWindow[Main] > AXButton[OK]",
                               "4 d1 AXWindow[Main] > AXStaticText[only in navigation order]",
                           }));
  // A second walk of the unchanged window numbers it the same way.
  EXPECT_EQ(summary(collectElements(ax, byId(p, "win"), focused, traversal)), summary(walk));
  // Without a focused element nothing is focused.
  for (const auto& t : collectElements(ax, byId(p, "win"), std::nullopt, traversal)) EXPECT_FALSE(t.snapshot.focused);
}

TEST(Walk, FieldsFromTypedValuesAndFailingReads) {
  SimPlatform p = desktopWithTree(R"({
    "role": "AXApplication",
    "children": [{
      "id": "win", "role": "AXWindow", "subrole": "AXStandardWindow", "identifier": "main",
      "roleDescription": "standard window", "title": "W", "position": [10, 20.5], "size": [300, 200],
      "actions": ["AXRaise"], "enabled": true,
      "children": [
        {"role": "AXCheckBox", "title": "Wrap", "value": 1, "settable": ["AXValue"], "enabled": 0},
        {"role": "AXSlider", "value": 0.25, "position": [1, 2]},
        {"role": "AXTextArea", "value": "0123456789012345678901234567890123456789", "size": [5, 5]},
        {"role": "AXStaticText", "value": "e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301e\u0301xyz"},
        {"role": "AXButton", "title": "Broken", "errors": {"AXRole": "cannotComplete", "AXTitle": "apiDisabled"},
         "enabled": "yes", "value": {"point": [1, 1]}, "attributes": {"AXChildren": "not elements"}},
        {"title": "no role", "attributes": {"AXPosition": "top left"}, "size": [1, 1]}
      ]}]})");
  auto& ax = p.accessibility();
  auto walk = collectElements(ax, byId(p, "win"), std::nullopt, traversal);
  ASSERT_EQ(walk.size(), 7u);

  const ElementSnapshot& w = walk[0].snapshot;
  EXPECT_EQ(w.subrole, "AXStandardWindow");
  EXPECT_EQ(w.identifier, "main");
  EXPECT_EQ(w.roleDescription, "standard window");
  EXPECT_EQ(w.frame, (RectPayload{10, 20.5, 300, 200}));
  EXPECT_EQ(w.actions, std::vector<std::string>{"AXRaise"});
  EXPECT_EQ(w.enabled, true);
  EXPECT_FALSE(w.settable);
  EXPECT_EQ(w.desc, std::nullopt);
  EXPECT_EQ(w.value, std::nullopt);

  EXPECT_EQ(walk[1].snapshot.value, "1");
  EXPECT_TRUE(walk[1].snapshot.settable);
  EXPECT_EQ(walk[1].snapshot.enabled, false);
  EXPECT_EQ(walk[2].snapshot.value, "0.25");
  EXPECT_EQ(walk[2].snapshot.frame, std::nullopt);  // no size
  EXPECT_EQ(walk[3].snapshot.frame, std::nullopt);  // no position
  EXPECT_EQ(walk[3].snapshot.path, "AXWindow[W] > AXTextArea[01234567890123456789012345678901]");
  EXPECT_EQ(walk[3].snapshot.value->size(), 40u);  // the value itself is whole
  // 32 characters, not code points: each "e" + combining accent is one.
  EXPECT_EQ(walk[4].snapshot.path.substr(walk[4].snapshot.path.rfind('[') + 1).size(), 32u * 3 + 1);

  const ElementSnapshot& broken = walk[5].snapshot;
  EXPECT_EQ(broken.role, "");
  EXPECT_EQ(broken.title, std::nullopt);
  EXPECT_EQ(broken.enabled, std::nullopt);  // not a number
  EXPECT_EQ(broken.value, std::nullopt);    // neither text nor number
  EXPECT_EQ(broken.path, "AXWindow[W] > ");  // empty role, empty label
  EXPECT_EQ(walk[6].snapshot.frame, std::nullopt);  // position of the wrong kind
  EXPECT_EQ(walk[6].snapshot.actions, std::vector<std::string>{});
  EXPECT_EQ(walk[6].snapshot.path, "AXWindow[W] > [no role]");
}

TEST(Walk, RoundTripsPerElement) {
  // Three for an element that supports AXValue (the batch, its actions, the settable
  // question); two for one that does not, since it cannot be settable.
  SimPlatform p = loadDesktop(std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json");
  auto& ax = p.accessibility();
  platform::Element window = byId(p, "document");
  uint64_t before = p.desktop().roundTripsThisProcess();
  auto walk = collectElements(ax, window, std::nullopt, traversal);
  EXPECT_EQ(walk.size(), 17u);
  size_t withValue = 0;
  for (const auto& e : walk) withValue += e.snapshot.value.has_value();
  EXPECT_EQ(p.desktop().roundTripsThisProcess() - before, 2 * walk.size() + withValue);

}

TEST(Walk, RealWindowRecording) {
  SimPlatform p = loadDesktop(tavlin::testing::fixture("realworld/chats-window.json"));
  auto& ax = p.accessibility();
  auto walk = collectElements(ax, byId(p, "window"), std::nullopt, traversal);
  ASSERT_EQ(walk.size(), 99u);
  EXPECT_EQ(walk[0].snapshot.path, "AXWindow[Chats]");
  EXPECT_EQ(walk[0].snapshot.frame, (RectPayload{0, 38, 1728, 988}));
  int buttons = 0;
  for (const auto& t : walk) {
    buttons += t.snapshot.role == "AXButton";
    EXPECT_EQ(t.snapshot.index, &t - walk.data());
  }
  EXPECT_GT(buttons, 10);
  bool sawSend = false;
  for (const auto& t : walk) sawSend |= t.snapshot.path.ends_with("AXButton[Arrow Up Circle]");
  EXPECT_TRUE(sawSend);
}

TEST(Walk, DeepTreesDoNotExhaustTheStack) {
  // A chain of 5,000 groups, each the only child of the one before. (Each path holds
  // the whole chain above it, so deeper chains cost quadratic memory by definition.)
  std::string ui = R"({"role": "AXGroup", "attributes": {"AXChildren": [{"ref": "g0"}]}, "children": [)";
  for (int i = 0; i < 5000; ++i) {
    ui += std::string(i ? "," : "") + R"({"id": "g)" + std::to_string(i) + R"(", "role": "AXGroup")" +
          (i + 1 < 5000 ? R"(, "attributes": {"AXChildren": [{"ref": "g)" + std::to_string(i + 1) + R"("}]})" : "") +
          "}";
  }
  ui += "]}";
  SimPlatform p = desktopWithTree(ui);
  auto walk = collectElements(p.accessibility(), p.accessibility().applicationElement(7), std::nullopt, traversal);
  EXPECT_EQ(walk.size(), 5001u);
  EXPECT_EQ(walk.back().snapshot.depth, 5000);
}

TEST(Walk, AnApplicationThatDoesNotAnswerCostsBoundedTime) {
  SimPlatform p = desktopWithTree(R"({"role": "AXApplication", "children": [{"id": "w", "role": "AXWindow",
      "children": [{"role": "AXButton"}, {"role": "AXButton"}]}]})",
                                  R"("responds": false, )");
  auto& ax = p.accessibility();
  ax.setMessagingTimeout(ax.systemWideElement(), 0.5f);
  platform::Element app = ax.applicationElement(7);
  auto walk = collectElements(ax, app, std::nullopt, traversal);
  // Every read fails, so the walk sees one element with nothing in it: three calls,
  // each giving up after the time-out.
  ASSERT_EQ(walk.size(), 1u);
  EXPECT_EQ(walk[0].snapshot.role, "");
  EXPECT_EQ(p.desktop().elapsedMicroseconds(), 1500000);
}

TEST(AccessibilityGate, MessageNamesWhatToAdd) {
  SimPlatform p(SimDesktop::fromJson(nlohmann::ordered_json::parse(R"({"tavlinDesktop": 1, "accessibilityTrusted": false})"),
                                     "/unused", ""),
                sim::SimSettings{std::nullopt, std::nullopt, "/home/u", "/Applications/Tavlin.app/Contents/MacOS/Tavlin"});
  for (bool prompt : {true, false}) {
    try {
      ensureAccessibilityTrusted(p, "/usr/local/bin/tavlin", prompt, 2.0);
      FAIL();
    } catch (const cli::ToolError& e) {
      EXPECT_EQ(e.description,
                "Accessibility permission is required for computer-ai-use.\n"
                "Add this app in System Settings > Privacy & Security > Accessibility:\n"
                "/Applications/Tavlin.app");
    }
  }
  // Only the prompting check asks the user.
  EXPECT_EQ(p.desktop().pendingLogLines(), std::vector<std::string>{"0.000 system accessibility-prompt"});
}

TEST(AccessibilityGate, MessagingTimeoutSetting) {
  EXPECT_EQ(messagingTimeout(std::nullopt), 2.0);
  EXPECT_EQ(messagingTimeout(""), 2.0);
  EXPECT_EQ(messagingTimeout("0.25"), 0.25);
  for (const char* bad : {"0", "-1", "soon", "nan", "inf", "601"}) {
    EXPECT_THROW(messagingTimeout(std::string(bad)), cli::ToolError) << bad;
  }
  SimPlatform p(SimDesktop::fromJson(nlohmann::ordered_json::parse(R"({"tavlinDesktop": 1})"), "/unused", ""));
  ensureAccessibilityTrusted(p, "", true, 0.75);
  EXPECT_EQ(p.desktop().messagingTimeout(), 0.75);
}
