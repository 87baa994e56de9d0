// The action commands end to end: timelines read from the simulated desktop's event log.
#include <gtest/gtest.h>

#include <sstream>

#include "common/files.h"
#include "test_support.h"

using tavlin::testing::readText;
using tavlin::testing::replaceAll;
using tavlin::testing::runTool;
using tavlin::testing::TempDir;
using tavlin::testing::ToolRun;
using tavlin::testing::writeText;

namespace {

const std::string exampleDesktop = std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json";

struct Desktop : tavlin::testing::DesktopFixture {
  explicit Desktop(const std::string& json = readText(exampleDesktop)) : DesktopFixture(json) {}

  // The log lines written since the last call. Element commands take a fresh
  // snapshot, screenshot included; its capture lines are left out unless asked for.
  std::vector<std::string> newEvents(bool withCaptures = false) {
    std::vector<std::string> lines;
    std::istringstream in(events());
    std::string line;
    size_t n = 0;
    for (; std::getline(in, line); ++n) {
      if (n < seen_) continue;
      bool capture = line.find(" system run ") != std::string::npos || line.find(" system sck-") != std::string::npos ||
                     line.find(" system write-png ") != std::string::npos;
      if (withCaptures || !capture) lines.push_back(line);
    }
    seen_ = n;
    return lines;
  }

 private:
  size_t seen_ = 0;
};

}  // namespace

TEST(Click, DoubleClickTimelineAtTheElementCentre) {
  Desktop d;
  ToolRun run = d.run({"click", "--app", "Scribe", "--element-index", "6", "--click_count", "2"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out,
            "{\n  \"element_index\" : 6,\n  \"elementIndex\" : 6,\n  \"method\" : \"mouse\",\n  \"ok\" : true,\n"
            "  \"screen_point\" : {\n    \"x\" : 154,\n    \"y\" : 128\n  },\n  \"screenPoint\" : {\n    \"x\" : 154,\n"
            "    \"y\" : 128\n  }\n}\n");
  EXPECT_EQ(d.newEvents(), (std::vector<std::string>{
                               "0.000 pid:4242 activate options=0x1",
                               "0.050 hid left-mouse-down x=154 y=128 button=0 clickState=1",
                               "0.080 hid left-mouse-up x=154 y=128 button=0 clickState=1",
                               "0.140 hid left-mouse-down x=154 y=128 button=0 clickState=2",
                               "0.170 hid left-mouse-up x=154 y=128 button=0 clickState=2",
                           }));
}

TEST(Click, AccessibilityPressOnlyForFramelessElements) {
  Desktop d(R"({"tavlinDesktop": 1, "frontmostPid": 5, "apps": [{"pid": 5, "name": "P", "ui": {"role": "AXApplication",
      "attributes": {"AXFocusedWindow": {"ref": "w"}}, "children": [{"id": "w", "role": "AXWindow", "title": "W",
      "position": [0, 0], "size": [100, 100], "children": [
        {"id": "framed", "role": "AXButton", "position": [10, 10], "size": [20, 10], "actions": ["AXPress"]},
        {"id": "ghost", "role": "AXButton", "actions": ["AXPress"]},
        {"id": "stuck", "role": "AXButton", "actions": ["AXPress"], "actionErrors": {"AXPress": "cannotComplete"}},
        {"id": "plain", "role": "AXStaticText"}]}]}}]})");
  ToolRun run = d.run({"click", "--app", "P", "--element-index", "1"});
  EXPECT_EQ(run.out, "{\n  \"element_index\" : 1,\n  \"elementIndex\" : 1,\n  \"method\" : \"mouse\",\n  \"ok\" : true,\n"
                     "  \"screen_point\" : {\n    \"x\" : 20,\n    \"y\" : 15\n  },\n  \"screenPoint\" : {\n    \"x\" : 20,\n"
                     "    \"y\" : 15\n  }\n}\n");
  d.newEvents();
  run = d.run({"click", "--app", "P", "--element_index", "2"});
  EXPECT_EQ(run.out, "{\n  \"element_index\" : 2,\n  \"elementIndex\" : 2,\n  \"method\" : \"ax\",\n  \"ok\" : true\n}\n");
  std::string last = d.newEvents().back();
  EXPECT_EQ(last.substr(last.find(' ')), " pid:5 perform-action element=ghost action=AXPress result=0");

  const std::vector<std::pair<std::vector<std::string>, std::string>> failures = {
      {{"click", "--app", "P", "--element-index", "2", "--click-count", "2"}, "Element 2 does not have a usable frame"},
      {{"click", "--app", "P", "--element-index", "2", "--mouse-button", "right"},
       "Element 2 does not have a usable frame"},
      {{"click", "--app", "P", "--element-index", "3"}, "AX action AXPress failed with code -25204"},
      {{"click", "--app", "P", "--element-index", "4"}, "Element 4 does not have a usable frame"},
      {{"click", "--app", "P", "--element-index", "9"}, "Element index 9 not found"},
      {{"click", "--app", "P", "--element-index", "x"}, "--element-index / --element-index expects an integer"},
      {{"click", "--app", "P", "--element-index", "", "--element_index", ""}, "Missing required flag --x"},
  };
  for (const auto& [args, err] : failures) {
    ToolRun r = d.run(args);
    EXPECT_EQ(r.status, 1) << err;
    EXPECT_EQ(r.out, "") << err;
    EXPECT_EQ(r.err, replaceAll(err, "--element-index / --element-index", "--element-index / --element_index") + "\n");
  }
}

TEST(Click, PixelOfTheCachedScreenshot) {
  Desktop d;
  ToolRun none = d.run({"click", "--app", "Scribe", "--x", "5", "--y", "5"});
  EXPECT_EQ(none.err, "Cannot read the cached state " + d.dir.path() +
                          "/Library/Caches/Tavlin/computer-ai-use-state/com.tavlin.example.scribe-4242.json (No such "
                          "file or directory). Call get-app-state first.\n");
  ASSERT_EQ(d.run({"get-app-state", "--app", "Scribe"}).status, 0);
  d.newEvents();
  // The screenshot has the window's size in points (900 by 640): its centre.
  ToolRun run = d.run({"click", "--app", "Scribe", "--x", "450", "--y", "320", "--mouse_button", "Right"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "{\n  \"image_point\" : {\n    \"x\" : 450,\n    \"y\" : 320\n  },\n  \"imagePoint\" : {\n"
                     "    \"x\" : 450,\n    \"y\" : 320\n  },\n  \"method\" : \"mouse\",\n  \"ok\" : true,\n"
                     "  \"screen_point\" : {\n    \"x\" : 570,\n    \"y\" : 400\n  },\n  \"screenPoint\" : {\n"
                     "    \"x\" : 570,\n    \"y\" : 400\n  }\n}\n");
  // "Right" is not a button name: a left click.
  // (The failed click above had already activated Scribe, at 0.000 to 0.050.)
  EXPECT_EQ(d.newEvents()[1], "0.100 hid left-mouse-down x=570 y=400 button=0 clickState=1");
}

TEST(PressKey, ModifierTimelineAndFailures) {
  Desktop d;
  ToolRun run = d.run({"press-key", "--app", "Scribe", "--key", "Cmd + Shift + 4"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "{\n  \"app\" : \"Scribe\",\n  \"key\" : \"Cmd + Shift + 4\",\n  \"ok\" : true\n}\n");
  EXPECT_EQ(d.newEvents(), (std::vector<std::string>{
                               "0.000 pid:4242 activate options=0x1",
                               "0.050 hid key-down keyCode=55 flags=0x120000",
                               "0.060 hid key-down keyCode=56 flags=0x120000",
                               "0.070 hid key-down keyCode=21 flags=0x120000",
                               "0.100 hid key-up keyCode=21 flags=0x120000",
                               "0.100 hid key-up keyCode=56 flags=0x120000",
                               "0.110 hid key-up keyCode=55 flags=0x120000",
                           }));

  // A bad key after a modifier leaves the modifier down: no key-ups at all.
  run = d.run({"press-key", "--app", "Scribe", "--key", "cmd+\xC3\xA9"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "Unsupported key token \xC3\xA9\n");
  EXPECT_EQ(d.newEvents(), (std::vector<std::string>{"0.120 pid:4242 activate options=0x1",
                                                     "0.170 hid key-down keyCode=55 flags=0x100000"}));

  struct Case {
    std::string keys;
    std::vector<std::string> events;  // after the activation
    std::string err;
  };
  const std::vector<Case> cases = {
      {"\xC3\xA9", {"key-down keyCode=0 text=\xC3\xA9", "key-up keyCode=0 text=\xC3\xA9"}, ""},
      {"hyper+a", {"key-down keyCode=0 flags=0x0", "key-up keyCode=0 flags=0x0"}, ""},
      {"ctrl + c", {"key-down keyCode=59 flags=0x40000", "key-down keyCode=8 flags=0x40000",
                    "key-up keyCode=8 flags=0x40000", "key-up keyCode=59 flags=0x40000"}, ""},
      {"PageUp", {"key-down keyCode=116 flags=0x0", "key-up keyCode=116 flags=0x0"}, ""},
      {"cmd++", {}, "Unsupported key token cmd"},
      {" + ", {}, "Key spec is empty"},
  };
  for (const auto& c : cases) {
    ToolRun r = d.run({"press-key", "--app", "Scribe", "--key", c.keys});
    EXPECT_EQ(r.status, c.err.empty() ? 0 : 1) << c.keys;
    EXPECT_EQ(r.err, c.err.empty() ? "" : c.err + "\n") << c.keys;
    std::vector<std::string> events;
    for (const auto& line : d.newEvents()) {
      if (line.find(" hid ") != std::string::npos) events.push_back(line.substr(line.find(" hid ") + 5));
    }
    EXPECT_EQ(events, c.events) << c.keys;
  }
}

TEST(TypeText, ByCharacterAtTheHidTap) {
  Desktop d;
  const std::string flag = "\xF0\x9F\x87\xB3\xF0\x9F\x87\xB4";  // regional indicators N and O
  ToolRun run = d.run({"type-text", "--app", "Scribe", "--text", "e\xCC\x81" + flag});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "{\n  \"app\" : \"Scribe\",\n  \"ok\" : true,\n  \"typed_length\" : 2,\n  \"typedLength\" : 2\n}\n");
  EXPECT_EQ(d.newEvents(), (std::vector<std::string>{
                               "0.000 pid:4242 activate options=0x1",
                               "0.050 hid key-down keyCode=0 text=e\xCC\x81",
                               "0.050 hid key-up keyCode=0 text=e\xCC\x81",
                               "0.060 hid key-down keyCode=0 text=" + flag,
                               "0.060 hid key-up keyCode=0 text=" + flag,
                           }));
  run = d.run({"type-text", "--app", "Scribe", "--text", ""});
  EXPECT_EQ(run.err, "Missing required flag --text\n");
  EXPECT_TRUE(d.newEvents().empty());  // not even activated
}

TEST(Scroll, OneWheelEventPerCommand) {
  struct Case {
    std::vector<std::string> flags;
    std::string wheel;
    std::string pages;
  };
  const std::vector<Case> cases = {
      {{"--direction", "down"}, "wheel1=-600 wheel2=0", "1"},
      {{"--direction", "up", "--pages", "3"}, "wheel1=1800 wheel2=0", "3"},
      {{"--direction", "left", "--pages", "-2"}, "wheel1=0 wheel2=600", "-2"},
      {{"--direction", "right", "--pages", "0"}, "wheel1=0 wheel2=-600", "0"},
  };
  for (const auto& c : cases) {
    Desktop d;
    std::vector<std::string> args = {"scroll", "--app", "Scribe", "--element-index", "12"};
    args.insert(args.end(), c.flags.begin(), c.flags.end());
    ToolRun run = d.run(args);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("\"pages\" : " + c.pages + "\n"), std::string::npos) << run.out;
    EXPECT_EQ(d.newEvents(), (std::vector<std::string>{
                                 "0.000 pid:4242 activate options=0x1",
                                 "0.050 system warp-cursor x=562.5 y=422",
                                 "0.100 hid scroll-wheel unit=pixel wheels=2 " + c.wheel,
                             }));
  }
  Desktop d;
  EXPECT_EQ(d.run({"scroll", "--app", "Scribe", "--element-index", "12", "--direction", "Down"}).err,
            "Unsupported scroll direction Down\n");
  EXPECT_EQ(d.run({"scroll", "--app", "Scribe", "--element-index", "12", "--direction", "up", "--pages", "9999999"}).err,
            "--pages 9999999 is too large for one scroll event\n");
  EXPECT_TRUE(d.newEvents().empty());  // direction and pages are checked before activation
}

TEST(Drag, FourteenMovesBetweenCachedPixels) {
  Desktop d;
  ASSERT_EQ(d.run({"get-app-state", "--app", "Scribe"}).status, 0);
  d.newEvents();
  ToolRun run = d.run({"drag", "--app", "Scribe", "--from-x", "0", "--from_y", "0", "--to-x", "1400", "--to_y", "0"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "{\n  \"from\" : {\n    \"x\" : 120,\n    \"y\" : 80\n  },\n  \"ok\" : true,\n  \"to\" : {\n"
                     "    \"x\" : 1520,\n    \"y\" : 80\n  }\n}\n");
  std::vector<std::string> events = d.newEvents();
  ASSERT_EQ(events.size(), 1u + 1 + 14 + 1);
  EXPECT_EQ(events[1], "0.050 hid left-mouse-down x=120 y=80 button=0");
  EXPECT_EQ(events[2], "0.090 hid left-mouse-dragged x=220 y=80 button=0");
  EXPECT_EQ(events[15], "0.246 hid left-mouse-dragged x=1520 y=80 button=0");
  EXPECT_EQ(events[16], "0.258 hid left-mouse-up x=1520 y=80 button=0");
}

TEST(ValueAndActionCommands, ChangeTheElementWithoutActivating) {
  Desktop d;
  ToolRun run = d.run({"set-value", "--app", "Scribe", "--element-index", "10", "--value", "budget",
                       "--title-contains", "", "--window-title-contains", "Meeting"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "{\n  \"element_index\" : 10,\n  \"elementIndex\" : 10,\n  \"ok\" : true,\n  \"value\" : \"budget\"\n}\n");
  EXPECT_EQ(d.newEvents(), (std::vector<std::string>{
                               "0.000 pid:4242 set-value element=search attribute=AXValue value=budget"}));
  // The desktop remembers the new value.
  EXPECT_NE(d.run({"get-app-state", "--app", "Scribe"}).out.find("Find, Value: budget"), std::string::npos);

  run = d.run({"perform-secondary-action", "--app", "Scribe", "--element_index", "8", "--action", "AXShowMenu"});
  EXPECT_EQ(run.out,
            "{\n  \"action\" : \"AXShowMenu\",\n  \"element_index\" : 8,\n  \"elementIndex\" : 8,\n  \"ok\" : true\n}\n");

  const std::vector<std::pair<std::vector<std::string>, std::string>> failures = {
      {{"perform-secondary-action", "--app", "Scribe", "--element-index", "8", "--action", "axpress"},
       "Action axpress not supported. Available: AXPress, AXShowMenu"},
      {{"perform-secondary-action", "--app", "Scribe", "--element-index", "5", "--action", "AXPress"},
       "Action AXPress not supported. Available: "},
      {{"set-value", "--app", "Scribe", "--element-index", "15", "--value", "x"},
       "Setting AX value failed with code -25205"},
      {{"set-value", "--app", "Scribe", "--element-index", "15", "--value", ""}, "Missing required flag --value"},
      {{"set-value", "--app", "Scribe", "--element-index", "99", "--value", "x"}, "Element index 99 not found"},
  };
  for (const auto& [args, err] : failures) {
    ToolRun r = d.run(args);
    EXPECT_EQ(r.status, 1) << err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, err + "\n");
  }
}

TEST(BackgroundPaste, MarginTimelineAndRestore) {
  Desktop d;
  // Postbox is in the background; its window is at 300,200 of 1000 by 700.
  ToolRun run = d.run({"background-paste-clipboard", "--app", "Postbox", "--screen-x", "299", "--screen_y", "250",
                       "--restore-frontmost", "TRUE"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(d.newEvents(), (std::vector<std::string>{
                               "0.000 pid:5150 left-mouse-down x=299 y=250 button=0 clickState=1",
                               "0.040 pid:5150 left-mouse-up x=299 y=250 button=0 clickState=1",
                               "0.220 pid:5150 key-down keyCode=0 flags=0x100000",
                               "0.240 pid:5150 key-up keyCode=0 flags=0x100000",
                               "0.320 pid:5150 key-down keyCode=51 flags=0x0",
                               "0.340 pid:5150 key-up keyCode=51 flags=0x0",
                               "0.460 pid:5150 key-down keyCode=9 flags=0x100000",
                               "0.480 pid:5150 key-up keyCode=9 flags=0x100000",
                           }));
  tavlin::testing::expectGolden("background-paste.json",
                                replaceAll(run.out, replaceAll(d.dir.path(), "/", "\\/"), "$TMP"));

  run = d.run({"background-paste-clipboard", "--app", "Postbox", "--screen-x", "297", "--screen-y", "250"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "screen point 297,250 is outside the selected window frame\n");
  EXPECT_EQ(d.newEvents(), std::vector<std::string>{});  // nothing clicked or typed

  // A target that takes the focus when clicked: the previous application comes back.
  d.edit("\"name\": \"Postbox\",", "\"name\": \"Postbox\", \"takesFocusOnClick\": true,");
  run = d.run({"background-paste-clipboard", "--app", "Postbox", "--screen-x", "310.5", "--screen-y", "250",
               "--select-existing", "False", "--clear_existing", "no"});
  EXPECT_EQ(run.status, 0) << run.err;
  std::vector<std::string> events = d.newEvents();
  ASSERT_GE(events.size(), 2u);
  EXPECT_EQ(events.back(), "1.560 pid:4242 activate options=0x0");
  for (const char* expected : {"\"restoredFrontmost\" : true", "\"restored_frontmost\" : true",
                               "\"selectedExisting\" : false", "\"clearedExisting\" : true",
                               "\"targetFrontmostAfterClick\" : true", "\"frontmostChangedDuringInput\" : true",
                               "\"activatedApp\" : true"}) {
    EXPECT_NE(run.out.find(expected), std::string::npos) << expected << "\n" << run.out;
  }
}

TEST(EventCreation, FailuresAreReported) {
  const std::vector<std::tuple<std::string, std::vector<std::string>, std::string>> cases = {
      {"mouse", {"click", "--app", "Scribe", "--element-index", "6"}, "Could not create mouse events"},
      {"keyboard", {"press-key", "--app", "Scribe", "--key", "cmd+s"}, "Could not create key events for cmd+s"},
      {"keyboard", {"type-text", "--app", "Scribe", "--text", "hi"}, "Could not create keyboard event"},
      {"scroll", {"scroll", "--app", "Scribe", "--element-index", "12", "--direction", "up"},
       "Could not create scroll event"},
      {"mouse", {"background-paste-clipboard", "--app", "Postbox", "--screen-x", "400", "--screen-y", "400"},
       "Could not create pid-targeted mouse events"},
      {"keyboard", {"background-paste-clipboard", "--app", "Postbox", "--screen-x", "400", "--screen-y", "400"},
       "Could not create pid-targeted key event"},
  };
  for (const auto& [kind, args, err] : cases) {
    Desktop d;
    d.edit("\"accessibilityTrusted\": true,", "\"accessibilityTrusted\": true, \"eventCreationFails\": [\"" + kind + "\"],");
    ToolRun run = d.run(args);
    EXPECT_EQ(run.status, 1) << err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, err + "\n");
  }
}
