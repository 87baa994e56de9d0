// Menu shortcuts, paths and title matching, and the bounded reader over a simulated menu bar.
#include <gtest/gtest.h>

#include "menus/menu_bar.h"
#include "platform/sim/sim_platform.h"
#include "test_support.h"

using namespace tavlin;
using menus::MenuItem;
using menus::ShortcutAttributes;
using tavlin::testing::toolErrorOf;

TEST(MenuShortcuts, InPressKeyWords) {
  using menus::menumodifier::control;
  using menus::menumodifier::noCommand;
  using menus::menumodifier::option;
  using menus::menumodifier::shift;
  const std::vector<std::pair<ShortcutAttributes, std::optional<std::string>>> cases = {
      {{"S", 0, {}, {}}, "cmd+s"},
      {{"S", shift, {}, {}}, "cmd+shift+s"},
      {{"s", {}, {}, {}}, "cmd+s"},  // no modifiers read: Command alone
      {{"1", option | control, {}, {}}, "cmd+ctrl+alt+1"},
      {{"F", control | noCommand, {}, {}}, "ctrl+f"},
      // Shifted punctuation is Shift and the key under it; "+" cannot be a key token.
      {{"?", 0, {}, {}}, "cmd+shift+/"},
      {{"+", 0, {}, {}}, "cmd+shift+="},
      {{"{", shift, {}, {}}, "cmd+shift+["},
      {{"|", 0, {}, {}}, "cmd+shift+\\"},
      {{")", 0, {}, {}}, "cmd+shift+0"},
      {{",", 0, {}, {}}, "cmd+,"},
      // Control characters and AppKit's function-key characters.
      {{"\r", 0, {}, {}}, "cmd+return"},
      {{"\x7f", 0, {}, {}}, "cmd+backspace"},
      {{"\uF700", option, {}, {}}, "cmd+alt+up"},
      {{"\uF706", noCommand, {}, {}}, "f3"},
      {{"\x03", 0, {}, {}}, "cmd+\u2324"},  // keypad Enter: press-key has no name for it
      {{"\u00e9", 0, {}, {}}, "cmd+\u00e9"},
      // Glyphs when there is no character.
      {{"", option, {}, 0x68}, "cmd+alt+up"},
      {{{}, noCommand, {}, 0x73}, "f5"},
      {{{}, 0, {}, 0x17}, "cmd+backspace"},
      {{{}, 0, {}, 0x03}, "cmd+shift+tab"},
      {{{}, 0, {}, 0x67}, std::nullopt},  // the help glyph: no key to name
      // Virtual keys only for keys without a character; 0 is also "no shortcut".
      {{{}, 0, 36, {}}, "cmd+return"},
      {{{}, 0, 0, 0}, std::nullopt},
      {{"", 0, 0, {}}, std::nullopt},
      {{{}, {}, {}, {}}, std::nullopt},
  };
  for (const auto& [attributes, expected] : cases) {
    EXPECT_EQ(menus::shortcutSpec(attributes), expected)
        << attributes.character.value_or("<none>") << " " << attributes.modifiers.value_or(-1) << " "
        << attributes.glyph.value_or(-1);
  }
}

TEST(MenuPaths, TitlesBetweenSeparatorsWithClearErrors) {
  using Titles = std::vector<std::string>;
  const std::vector<std::pair<std::string, Titles>> good = {
      {"File", {"File"}},
      {"File > Export\u2026", {"File", "Export\u2026"}},
      {"  File  >  Open Recent >a.txt ", {"File", "Open Recent >a.txt"}},  // only " > " separates
      {"File>Export", {"File>Export"}},
      {"1 > 2 > 3 > 4 > 5 > 6 > 7 > 8", {"1", "2", "3", "4", "5", "6", "7", "8"}},
  };
  for (const auto& [path, titles] : good) EXPECT_EQ(menus::parseMenuPath(path), titles) << path;
  const std::vector<std::pair<std::string, std::string>> bad = {
      {"", "The menu path is empty"},
      {"   ", "The menu path is empty"},
      {"File >  > X", "The menu path \"File >  > X\" has an empty title"},
      {" > X", "The menu path \" > X\" has an empty title"},
      {"1 > 2 > 3 > 4 > 5 > 6 > 7 > 8 > 9", "The menu path \"1 > 2 > 3 > 4 > 5 > 6 > 7 > 8 > 9\" names more than 8 titles"},
  };
  // No structured binding here: older clang cannot capture one in a lambda.
  for (const auto& c : bad) EXPECT_EQ(toolErrorOf([&] { menus::parseMenuPath(c.first); }), c.second);
}

TEST(MenuTitles, ExactFirstThenIgnoringCaseAndEllipsis) {
  struct Case {
    std::vector<std::string> titles;
    std::string wanted;
    std::optional<size_t> index;
    std::vector<size_t> ambiguous;
  };
  const std::vector<Case> cases = {
      {{"Open\u2026", "OPEN\u2026"}, "OPEN\u2026", 1, {}},        // an exact title wins over a lenient one
      {{"Open\u2026", "OPEN\u2026"}, "open...", std::nullopt, {0, 1}},
      {{"Save", "Save As\u2026"}, "save as...", 1, {}},
      {{"Save As..."}, "save as\u2026", 0, {}},                   // "..." in the title too
      {{"\u00c9dition"}, "\u00e9DITION", 0, {}},                  // Unicode case
      {{"\u00c9dition"}, "E\u0301dition", 0, {}},                 // decomposed is the same title
      {{"Print", "Print"}, "Print", std::nullopt, {0, 1}},
      {{"Save"}, "Sav", std::nullopt, {}},
      {{"Format ", "Edit"}, "Format", 0, {}},                   // a blank the path cannot carry
      {{"Format ", "Format"}, "Format", 1, {}},
      {{}, "Save", std::nullopt, {}},
  };
  for (const Case& c : cases) {
    menus::TitleMatch m = menus::matchMenuTitle(c.titles, c.wanted);
    EXPECT_EQ(m.index, c.index) << c.wanted;
    EXPECT_EQ(m.ambiguous, c.ambiguous) << c.wanted;
  }
  std::vector<std::string> many;
  for (int i = 0; i < 45; ++i) many.push_back("T" + std::to_string(i));
  std::string listed = menus::listedTitles(many);
  EXPECT_TRUE(listed.starts_with("T0, T1, ")) << listed;
  EXPECT_TRUE(listed.ends_with(", T39, \u2026 and 5 more")) << listed;
}

namespace {

// An application whose one menu holds `count` items, the first holding the menu itself
// again (a cycle).
sim::SimPlatform bigMenu(int count) {
  std::string items = R"({"id": "loop", "role": "AXMenuItem", "title": "Again",
      "attributes": {"AXChildren": [{"ref": "menu"}]}})";
  for (int i = 1; i < count; ++i) items += R"(, {"role": "AXMenuItem", "title": "Item )" + std::to_string(i) + "\"}";
  std::string json = R"({"tavlinDesktop": 1, "apps": [{"pid": 3, "name": "Big", "ui": {"role": "AXApplication",
      "children": [{"role": "AXMenuBar", "children": [{"role": "AXMenuBarItem", "title": "Items",
        "children": [{"id": "menu", "role": "AXMenu", "children": [)" + items + "]}]}]}]}}]}";
  return sim::SimPlatform(sim::SimDesktop::fromJson(nlohmann::ordered_json::parse(json), "/unused", ""));
}

}  // namespace

TEST(MenuReader, ReadsAreBoundedEvenForHugeAndCyclicMenus) {
  {
    sim::SimPlatform p = bigMenu(10);
    menus::MenuReader reader(p.accessibility());
    std::vector<MenuItem> bar = reader.menuBar(3, "Big");
    ASSERT_EQ(bar.size(), 1u);
    reader.readSubmenus(bar, menus::maxMenuDepth);
    // The cycle is followed only as deep as asked: Items > Again > Again > ... eight levels in all.
    const MenuItem* level = &bar[0];
    int depth = 1;
    while (level->itemsRead) {
      ASSERT_EQ(level->items.size(), 10u);
      level = &level->items[0];
      ++depth;
    }
    EXPECT_EQ(depth, menus::maxMenuDepth);
    EXPECT_FALSE(reader.truncated());
  }
  {
    sim::SimPlatform p = bigMenu(3000);
    menus::MenuReader reader(p.accessibility());
    std::vector<MenuItem> bar = reader.menuBar(3, "Big");
    std::vector<MenuItem> items = reader.menu(*bar[0].submenu);
    EXPECT_EQ(items.size(), menus::maxMenuItems - 1);  // the menu bar's item counts too
    EXPECT_TRUE(reader.truncated());
    // One batched read per item, one per menu and one per submenu's role.
    EXPECT_LE(p.desktop().roundTripsThisProcess(), menus::maxMenuItems + 5);
  }
}
