// list-menus and press-menu end to end, on the example editor's menu bar and on small
// desktops made for one fault each.
#include <gtest/gtest.h>

#include <sstream>

#include "menus/menu_bar.h"
#include "test_support.h"

using tavlin::testing::DesktopFixture;
using tavlin::testing::readText;
using tavlin::testing::ToolRun;

namespace {

const std::string exampleDesktop = std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json";

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

// A menu bar with what the example lacks: titles that differ only by case, an item
// without AXPress, an item whose press fails, an empty menu, an application that does
// not answer.
const char* oddMenus = R"({"tavlinDesktop": 1, "frontmostPid": 9, "apps": [
  {"pid": 8, "name": "Odd", "ui": {"role": "AXApplication", "children": [{"role": "AXMenuBar", "children": [
    {"role": "AXMenuBarItem", "title": "Tools", "enabled": true, "children": [{"role": "AXMenu", "children": [
      {"role": "AXMenuItem", "title": "Sync Now", "enabled": true, "actions": ["AXPress"]},
      {"role": "AXMenuItem", "title": "SYNC NOW", "enabled": true, "actions": ["AXPress"]},
      {"role": "AXMenuItem", "title": "Label Only", "enabled": true},
      {"role": "AXMenuItem", "title": "Busy", "enabled": true, "actions": ["AXPress"],
       "actionErrors": {"AXPress": "cannotComplete"}},
      {"role": "AXMenuItem", "title": "Broken", "enabled": true, "actions": ["AXPress"],
       "actionErrors": {"AXPress": "failure"}},
      {"role": "AXMenuItem", "title": "Slider", "enabled": true, "children": [{"role": "AXSlider"}]}]}]},
    {"role": "AXMenuBarItem", "title": "Window", "enabled": true, "children": [{"role": "AXMenu"}]}]}]}},
  {"pid": 9, "name": "Front", "ui": {"role": "AXApplication"}},
  {"pid": 10, "name": "Silent", "responds": false, "ui": {"role": "AXApplication", "children": [{"role": "AXMenuBar"}]}}
]})";

}  // namespace

TEST(ListMenus, TheMenuBarOneMenuAndItsSubmenus) {
  DesktopFixture d(readText(exampleDesktop));
  ToolRun bar = d.run({"list-menus", "--app", "Scribe"});
  ASSERT_EQ(bar.status, 0) << bar.err;
  EXPECT_NE(bar.out.find("\"title\" : \"Format\""), std::string::npos);
  // Depth 1: the menus' own items are not read.
  EXPECT_EQ(bar.out.find("\"items\""), bar.out.rfind("\"items\""));

  ToolRun file = d.run({"list_menus", "--app", "Scribe", "--path", "file", "--depth", "2"});
  ASSERT_EQ(file.status, 0) << file.err;
  tavlin::testing::expectGolden("list-menus-file.json", file.out);

  // A submenu by its path; shortcuts in press-key's words, a checked item, one without a shortcut.
  ToolRun font = d.run({"list-menus", "--app", "Scribe", "--path", "Format > Font"});
  ASSERT_EQ(font.status, 0) << font.err;
  EXPECT_NE(font.out.find("\"path\" : \"Format > Font\""), std::string::npos) << font.out;
  EXPECT_NE(font.out.find("\"shortcut\" : \"cmd+shift+=\",\n      \"submenu\" : false,\n      \"title\" : \"Bigger\""),
            std::string::npos)
      << font.out;
  ToolRun format = d.run({"list-menus", "--app", "Scribe", "--path", "Format"});
  EXPECT_NE(format.out.find("\"checked\" : true,\n      \"enabled\" : true,\n      \"submenu\" : false,\n"
                            "      \"title\" : \"Wrap Lines\""),
            std::string::npos)
      << format.out;

  const std::vector<std::pair<std::vector<std::string>, std::string>> failures = {
      {{"list-menus", "--app", "Scribe", "--depth", "0"}, "--depth must be from 1 to 8, not 0"},
      {{"list-menus", "--app", "Scribe", "--depth", "9"}, "--depth must be from 1 to 8, not 9"},
      {{"list-menus", "--app", "Scribe", "--path", "File > Save"}, "File > Save is an item, not a menu"},
      {{"list-menus", "--app", "Scribe", "--path", "Format > Fonts"},
       "No \"Fonts\" in the menu Format. Available: Bold, Italic, Wrap Lines, Font, Text"},
      {{"list-menus", "--app", "Postbox"}, "Postbox shows no menu bar to accessibility (AXError -25205)"},
  };
  for (const auto& [args, err] : failures) {
    ToolRun r = d.run(args);
    EXPECT_EQ(r.status, 1) << err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, err + "\n");
  }
}

TEST(PressMenu, PressesThroughAccessibilityAndRefusesWhatItCannotPress) {
  DesktopFixture d(readText(exampleDesktop));
  ToolRun run = d.run({"press-menu", "--app", "Scribe", "--path", "file > save as..."});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "{\n  \"action\" : \"AXPress\",\n  \"app\" : \"Scribe\",\n  \"ok\" : true,\n"
                     "  \"path\" : \"File > Save As\u2026\",\n  \"title\" : \"Save As\u2026\"\n}\n");
  run = d.run({"press_menu", "--app", "Scribe", "--path", "File > Save"});
  ASSERT_EQ(run.status, 0) << run.err;
  std::vector<std::string> log = lines(d.events());
  ASSERT_EQ(log.size(), 2u) << d.events();
  EXPECT_TRUE(log[1].ends_with(" pid:4242 perform-action element=menu-save action=AXPress result=0")) << log[1];

  // Nothing is pressed when the path breaks, names a menu or a disabled item.
  const std::vector<std::pair<std::string, std::string>> refusals = {
      {"File > Exprt",
       "No \"Exprt\" in the menu File. Available: New, Open\u2026, Open Recent, Close, Save, Save As\u2026, Revert to "
       "Saved, Export as PDF\u2026, Print\u2026"},
      {"Format > Font > Huge", "No \"Huge\" in the menu Format > Font. Available: Show Fonts, Bigger, Smaller"},
      {"Fle", "No \"Fle\" in the menu bar of Scribe. Available: Apple, Scribe, File, Edit, Format"},
      {"File > Revert to Saved", "File > Revert to Saved is disabled; nothing was pressed"},
      {"Format > Text > Center", "Format > Text is disabled; nothing was pressed"},
      {"File > Open Recent",
       "File > Open Recent is a menu, not an item; name one of its items: Agenda.txt, Budget.txt, Clear Menu"},
      {"File > Save > As PDF", "File > Save is an item, not a menu: the path cannot go on to \"As PDF\""},
      {"", "Missing required flag --path"},
  };
  for (const auto& [path, err] : refusals) {
    ToolRun r = d.run({"press-menu", "--app", "Scribe", "--path", path});
    EXPECT_EQ(r.status, 1) << path;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, err + "\n");
  }
  EXPECT_EQ(lines(d.events()).size(), 2u) << d.events();
}

TEST(PressMenu, AmbiguousFailingAndSilentMenus) {
  DesktopFixture d(oddMenus);
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"--app", "Odd", "--path", "Tools > sync now"},
       "\"sync now\" names more than one item in the menu Tools: Sync Now, SYNC NOW. Name one exactly"},
      {{"--app", "Odd", "--path", "Tools > Label Only"}, "Tools > Label Only cannot be pressed: it offers no AXPress action"},
      {{"--app", "Odd", "--path", "Tools > Busy"},
       "AXPress on Tools > Busy failed with code -25204: the application did not answer in time, so the item may "
       "still have run (one that opens a dialog can keep the answer back)"},
      {{"--app", "Odd", "--path", "Tools > Broken"}, "AXPress on Tools > Broken failed with code -25200"},
      // A view drawn in a menu has children but no submenu.
      {{"--app", "Odd", "--path", "Tools > Slider > x"}, "Tools > Slider is an item, not a menu: the path cannot go on to \"x\""},
      {{"--app", "Odd", "--path", "Window > Minimize"},
       "No \"Minimize\" in the menu Window: it lists no items (some applications fill a menu only when it opens)"},
      {{"--app", "Silent", "--path", "File"}, "Silent shows no menu bar to accessibility (AXError -25204)"},
  };
  for (const auto& [args, err] : cases) {
    std::vector<std::string> command = {"press-menu"};
    command.insert(command.end(), args.begin(), args.end());
    ToolRun r = d.run(command);
    EXPECT_EQ(r.status, 1) << err;
    EXPECT_EQ(r.err, err + "\n");
  }
  ToolRun exact = d.run({"press-menu", "--app", "Odd", "--path", "Tools > SYNC NOW"});
  EXPECT_EQ(exact.status, 0) << exact.err;
}

TEST(MenusAndClipboard, NeverActivateNorPostEventsOfTheSession) {
  DesktopFixture d(readText(exampleDesktop));
  // Postbox in front: the commands work on Scribe behind it.
  d.edit("\"frontmostPid\": 4242", "\"frontmostPid\": 5150");
  const std::vector<std::vector<std::string>> commands = {
      {"list-menus", "--app", "Scribe", "--depth", "3"},
      {"press-menu", "--app", "Scribe", "--path", "Format > Wrap Lines"},
      {"press-menu", "--app", "Scribe", "--path", "File > Revert to Saved"},  // refused: still nothing else
      {"set-clipboard", "--text", "notes"},
      {"get-clipboard"},
  };
  for (const auto& command : commands) d.run(command);
  for (const std::string& line : lines(d.events())) {
    std::istringstream fields(line);
    std::string time, target, kind;
    fields >> time >> target >> kind;
    EXPECT_TRUE(target.starts_with("pid:") || target == "system") << line;  // never hid or session
    EXPECT_NE(kind, "activate") << line;
    EXPECT_NE(kind, "unhide") << line;
    EXPECT_TRUE(kind == "perform-action" || kind == "clipboard-set") << line;
  }
  EXPECT_NE(readText(d.path).find("\"frontmostPid\": 5150"), std::string::npos);
}

TEST(ListMenus, ARecordingReplaysTheMenusWithTheirShortcutsAndMarks) {
  DesktopFixture original(readText(exampleDesktop));
  ASSERT_EQ(original.run({"__record-desktop", "--app", "Scribe", "--out", original.dir.file("recording.json")}).status, 0);
  DesktopFixture replay(readText(original.dir.file("recording.json")));
  const std::vector<std::string> listing = {"list-menus", "--app", "Scribe", "--depth", "3"};
  ToolRun before = original.run(listing), after = replay.run(listing);
  ASSERT_EQ(before.status, 0) << before.err;
  EXPECT_EQ(after.err, "");
  EXPECT_EQ(after.out, before.out);
}

// An item not read (past the item bound, or whose title read failed) can hold the exact
// title: a lenient match read beside it must not be pressed in its place. A huge title
// is cut in messages.
TEST(PressMenu, AMenuNotReadWholeNamesNoItemByGuessAndHugeTitlesStayShort) {
  auto item = [](const std::string& title) {
    return R"({"role": "AXMenuItem", "title": ")" + title + R"(", "enabled": true, "actions": ["AXPress"]})";
  };
  std::string big = item("save");
  for (size_t i = 0; i < tavlin::menus::maxMenuItems; ++i) big += ", " + item("Filler " + std::to_string(i));
  big += ", " + item("Save");
  const std::string longTitle(5000, 'W');
  DesktopFixture d(R"({"tavlinDesktop": 1, "apps": [{"pid": 8, "name": "Odd", "ui": {"role": "AXApplication",
    "children": [{"role": "AXMenuBar", "children": [
      {"role": "AXMenuBarItem", "title": "Big", "enabled": true, "children": [{"role": "AXMenu", "children": [)" +
                   big + R"(]}]},
      {"role": "AXMenuBarItem", "title": "Long", "enabled": true, "children": [{"role": "AXMenu", "children": [)" +
                   item(longTitle) + R"(]}]},
      {"role": "AXMenuBarItem", "title": "Flaky", "enabled": true, "children": [{"role": "AXMenu", "children": [
        {"role": "AXMenuItem", "title": "Save", "errors": {"AXTitle": "cannotComplete"}, "actions": ["AXPress"]},
        )" + item("save") + ", " + item("Other") + R"(]}]}]}]}}]})");
  const std::string shown = std::string(tavlin::menus::maxTitleInMessage, 'W') + "\u2026";
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"press-menu", "--app", "Odd", "--path", "Big > Save"},
       "Which item \"Save\" names in the menu Big cannot be told: it holds more than the 2000 items a command reads"},
      {{"list-menus", "--app", "Odd", "--path", "Big > Save"},
       "Which item \"Save\" names in the menu Big cannot be told: it holds more than the 2000 items a command reads"},
      {{"press-menu", "--app", "Odd", "--path", "Flaky > Save"},
       "Which item \"Save\" names in the menu Flaky cannot be told: 1 item of it could not be read"},
      {{"press-menu", "--app", "Odd", "--path", "Flaky > Nothing"},
       "Which item \"Nothing\" names in the menu Flaky cannot be told: 1 item of it could not be read"},
      {{"press-menu", "--app", "Odd", "--path", "Long > Other"}, "No \"Other\" in the menu Long. Available: " + shown},
      {{"press-menu", "--app", "Odd", "--path", "Long > " + longTitle + " > x"},
       "Long > " + shown + " is an item, not a menu: the path cannot go on to \"x\""},
  };
  for (const auto& [args, err] : cases) {
    ToolRun r = d.run(args);
    EXPECT_EQ(r.status, 1) << err;
    EXPECT_EQ(r.err, err + "\n");
  }
  EXPECT_EQ(d.events().find("perform-action"), std::string::npos) << d.events();
  // The exact title still presses, and the result names it whole.
  ToolRun pressed = d.run({"press-menu", "--app", "Odd", "--path", "Long > " + longTitle});
  ASSERT_EQ(pressed.status, 0) << pressed.err;
  EXPECT_NE(pressed.out.find(longTitle), std::string::npos);
  // An exact title is still pressed beside an unread item.
  EXPECT_EQ(d.run({"press-menu", "--app", "Odd", "--path", "Flaky > Other"}).status, 0);
}
