#include <gtest/gtest.h>

#include "cli/tool_error.h"
#include "input/event_synthesis.h"
#include "platform/sim/sim_platform.h"

using namespace tavlin;
using namespace tavlin::input;
using namespace tavlin::runtime;
using tavlin::sim::SimDesktop;
using tavlin::sim::SimPlatform;

namespace {

SimPlatform emptyDesktop() {
  return SimPlatform(SimDesktop::fromJson(nlohmann::ordered_json::parse(R"({"tavlinDesktop": 1})"), "/unused", ""));
}

const std::string flag = "\xF0\x9F\x87\xB3\xF0\x9F\x87\xB4";  // a flag: two regional-indicator scalars

}  // namespace

TEST(EventSynthesis, TheTwoTypistsDiffer) {
  SimPlatform session = emptyDesktop();
  postUnicodeText(session, flag + "a");
  EXPECT_EQ(session.desktop().pendingLogLines(), (std::vector<std::string>{
                                                     "0.000 hid key-down keyCode=0 text=" + flag,
                                                     "0.000 hid key-up keyCode=0 text=" + flag,
                                                     "0.010 hid key-down keyCode=0 text=a",
                                                     "0.010 hid key-up keyCode=0 text=a",
                                                 }));
  SimPlatform targeted = emptyDesktop();
  typeUnicodeTextToPid(targeted, 7, flag);
  EXPECT_EQ(targeted.desktop().pendingLogLines(), (std::vector<std::string>{
                                                      "0.000 pid:7 key-down keyCode=0 text=\xF0\x9F\x87\xB3 flags=0x0",
                                                      "0.020 pid:7 key-up keyCode=0 text=\xF0\x9F\x87\xB3 flags=0x0",
                                                      "0.030 pid:7 key-down keyCode=0 text=\xF0\x9F\x87\xB4 flags=0x0",
                                                      "0.050 pid:7 key-up keyCode=0 text=\xF0\x9F\x87\xB4 flags=0x0",
                                                  }));
  EXPECT_EQ(targeted.desktop().elapsedMicroseconds(), 60000);
  SimPlatform nothing = emptyDesktop();
  typeUnicodeTextToPid(nothing, 7, "");
  postUnicodeText(nothing, "");
  EXPECT_TRUE(nothing.desktop().pendingLogLines().empty());
}

TEST(EventSynthesis, TargetedKeysAndClicks) {
  SimPlatform p = emptyDesktop();
  tapKeyToPid(p, 7, 36, platform::eventflags::command, std::string(""));
  tapKeyToPid(p, 7, 9, 0, std::nullopt, 0.2);
  postMouseClickToPid(p, 7, {10.5, 20}, 2);
  EXPECT_EQ(p.desktop().pendingLogLines(), (std::vector<std::string>{
                                               "0.000 pid:7 key-down keyCode=36 text=\"\" flags=0x100000",
                                               "0.020 pid:7 key-up keyCode=36 text=\"\" flags=0x100000",
                                               "0.070 pid:7 key-down keyCode=9 flags=0x0",
                                               "0.090 pid:7 key-up keyCode=9 flags=0x0",
                                               "0.290 pid:7 left-mouse-down x=10.5 y=20 button=0 clickState=2",
                                               "0.330 pid:7 left-mouse-up x=10.5 y=20 button=0 clickState=2",
                                           }));
}

TEST(EventSynthesis, ClicksAndDragsPerButton) {
  SimPlatform p = emptyDesktop();
  postMouseClick(p, {1, 2}, MouseButton::middle, -3);
  postMouseClick(p, {1, 2}, MouseButton::right, 3);
  postDrag(p, {5, 5}, {5, 5}, MouseButton::left);
  std::vector<std::string> lines = p.desktop().pendingLogLines();
  ASSERT_EQ(lines.size(), 2u + 6 + 16);
  EXPECT_EQ(lines[0], "0.000 hid other-mouse-down x=1 y=2 button=2 clickState=1");
  EXPECT_EQ(lines[1], "0.030 hid other-mouse-up x=1 y=2 button=2 clickState=1");
  EXPECT_EQ(lines[2], "0.030 hid right-mouse-down x=1 y=2 button=1 clickState=1");
  EXPECT_EQ(lines[7], "0.240 hid right-mouse-up x=1 y=2 button=1 clickState=3");
  EXPECT_EQ(lines[8], "0.240 hid left-mouse-down x=5 y=5 button=0");
  for (size_t i = 9; i < 23; ++i) EXPECT_EQ(lines[i].substr(6), "hid left-mouse-dragged x=5 y=5 button=0") << i;
  EXPECT_EQ(lines[23], "0.448 hid left-mouse-up x=5 y=5 button=0");
  EXPECT_EQ(p.desktop().pointer(), (platform::Point{5, 5}));
}

TEST(EventSynthesis, KeyNames) {
  KeyTables tables = makeKeyTables();
  EXPECT_EQ(tables.baseKeyCodes.size(), 77u);
  EXPECT_EQ(tables.modifierFlags.size(), 9u);
  EXPECT_EQ(tables.modifierKeyCodes.size(), 9u);
  const std::vector<std::pair<std::string, std::optional<uint16_t>>> names = {
      {"Return", 36}, {"ENTER", 36}, {"delete", 51}, {"F5", 96},     {"PageUp", 116}, {"Page_Down", 121},
      {"ESC", 53},    {"`", 50},     {"\\", 42},     {"+", std::nullopt}, {"f13", std::nullopt}, {"A", 0},
      // Unicode lower-casing: the Kelvin sign is "k", and a dotted capital I is not "i".
      {"\u212A", 40}, {"\u212Aey", std::nullopt}, {"\u0130", std::nullopt}, {"\u212A\u212A", std::nullopt},
  };
  for (const auto& [name, code] : names) EXPECT_EQ(keyCode(tables, name), code) << name;
}
