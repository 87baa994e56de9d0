// The clicker command set end to end, through bin/clicker and "__clicker".
#include <gtest/gtest.h>

#include <sstream>

#include "clicker/clicker.h"
#include "test_support.h"

using tavlin::testing::DesktopFixture;
using tavlin::testing::readText;
using tavlin::testing::ToolRun;

namespace {

const std::string exampleDesktop = std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json";

struct ClickerDesktop : DesktopFixture {
  explicit ClickerDesktop(const std::string& json = readText(exampleDesktop)) : DesktopFixture(json) {}
  ToolRun clicker(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "__clicker");
    return run(arguments);
  }
  // The log without its times.
  std::vector<std::string> eventLines() const {
    std::vector<std::string> lines;
    std::istringstream in(events());
    std::string line;
    while (std::getline(in, line)) lines.push_back(line);
    return lines;
  }
};

}  // namespace

TEST(Clicker, UsageAndPerCommandUsageLines) {
  ClickerDesktop d;
  for (const std::vector<std::string>& args : {std::vector<std::string>{}, {"help"}, {"--help"}}) {
    ToolRun run = d.clicker(args);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, tavlin::clicker::clickerUsageText() + "\n");
  }
  ToolRun unknown = d.clicker({"Click"});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_EQ(unknown.err, tavlin::clicker::clickerUsageText() + "\n");
  EXPECT_EQ(tavlin::clicker::clickerUsageText().substr(0, 60),
            "Tavlin.app clicker compatibility dispatcher\n\n  clicker check");

  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"click", "10"}, "usage: click X Y [--button left|right|middle] [--double]"},
      {{"click", "10", "y"}, "usage: click X Y [--button left|right|middle] [--double]"},
      {{"click", "1", "2", "--button", "wheel"}, "usage: click X Y [--button left|right|middle] [--double]"},
      {{"key"}, "usage: key KEYCODE   (e.g. 36=Return  48=Tab  53=Escape  49=Space)"},
      {{"key", "70000"}, "usage: key KEYCODE   (e.g. 36=Return  48=Tab  53=Escape  49=Space)"},
      {{"hotkey", "1", "hyper"}, "usage: hotkey KEYCODE [cmd] [shift] [opt] [ctrl]"},
      {{"type"}, "usage: type \"text\""},
      {{"ax-list", "--role", "AXButton"}, "usage: ax-list --pid PID [--role AXButton] [--contains TEXT]"},
      {{"ax-list", "--pid", "1", "--title"}, "usage: ax-list --pid PID [--role AXButton] [--contains TEXT]"},
      {{"ax-list", "--pid", "0"}, "usage: ax-list --pid PID [--role AXButton] [--contains TEXT]"},
      {{"ax-press", "--pid"}, "usage: ax-press --pid PID [--role AXButton] [--title TEXT] [--contains TEXT]"},
  };
  for (const auto& [args, line] : cases) {
    ToolRun run = d.clicker(args);
    EXPECT_EQ(run.status, 2) << line;
    EXPECT_EQ(run.err, line + "\n");
    EXPECT_EQ(run.out, "");
  }
  EXPECT_EQ(d.events(), "");
}

TEST(Clicker, TrustReportsAndTheTrustFailure) {
  ClickerDesktop d(tavlin::testing::replaceAll(readText(exampleDesktop), "\"accessibilityTrusted\": true",
                                               "\"accessibilityTrusted\": false"));
  // The permission comes first, even before a command line that does not fit.
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"click", "1", "2"}, {"move", "1", "2"}, {"key", "36"}, {"hotkey", "1", "cmd"}, {"type", "x"},
           {"ax-list", "--pid", "4242"}, {"ax-press", "--pid", "4242"}, {"click"}, {"move", "x", "y"},
           {"key", "70000"}, {"hotkey", "1", "hyper"}, {"type"}, {"ax-list", "--role"}, {"ax-press"}}) {
    ToolRun run = d.clicker(args);
    EXPECT_EQ(run.status, 1) << args[0];
    EXPECT_EQ(run.err, "Accessibility permission is required for Tavlin.app. Run: bin/clicker request\n");
  }
  ToolRun check = d.clicker({"check"});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.out.substr(0, 16), "trusted: false\nt");
  EXPECT_NE(check.out.find("trusted=false pid="), std::string::npos);
  EXPECT_NE(check.out.find(" bundle="), std::string::npos);
  EXPECT_NE(check.out.find(" path="), std::string::npos);

  ToolRun request = d.clicker({"request"});
  EXPECT_EQ(request.status, 1);
  EXPECT_EQ(request.err,
            "hint: open System Settings and enable Tavlin.app under Privacy & Security > Accessibility.\n");
  // The permission prompt, then five seconds of run loop.
  EXPECT_EQ(d.eventLines(), (std::vector<std::string>{"0.000 system accessibility-prompt"}));
  EXPECT_NE(readText(d.path).find("\"elapsed\": 5.0"), std::string::npos);
}

TEST(Clicker, PointerAndKeyCommandsPostSessionWideEvents) {
  ClickerDesktop d;
  const std::vector<std::pair<std::vector<std::string>, std::string>> commands = {
      {{"click", "10", "20.5", "--button", "right", "--double"}, "clicked 10,20.5\n"},
      {{"move", "30", "40"}, "moved to 30,40\n"},
      {{"key", "36"}, "key 36\n"},
      {{"hotkey", "1", "cmd", "shift", "opt", "ctrl"}, "hotkey 1 flags=0x1e0000\n"},
      {{"type", "hé"}, "typed 2 characters\n"},
      {{"where"}, "30,40\n"},
  };
  for (const auto& [args, out] : commands) {
    ToolRun run = d.clicker(args);
    EXPECT_EQ(run.status, 0) << args[0] << run.err;
    EXPECT_EQ(run.out, out);
  }
  EXPECT_EQ(d.eventLines(), (std::vector<std::string>{
                                "0.000 hid right-mouse-down x=10 y=20.5 button=1 clickState=1",
                                "0.030 hid right-mouse-up x=10 y=20.5 button=1 clickState=1",
                                "0.090 hid right-mouse-down x=10 y=20.5 button=1 clickState=2",
                                "0.120 hid right-mouse-up x=10 y=20.5 button=1 clickState=2",
                                "0.120 hid mouse-moved x=30 y=40 button=0",
                                "0.120 hid key-down keyCode=36 flags=0x0",
                                "0.150 hid key-up keyCode=36 flags=0x0",
                                "0.150 hid key-down keyCode=1 flags=0x1e0000",
                                "0.180 hid key-up keyCode=1 flags=0x1e0000",
                                "0.180 hid key-down keyCode=0 text=h",
                                "0.180 hid key-up keyCode=0 text=h",
                                "0.190 hid key-down keyCode=0 text=\xC3\xA9",
                                "0.190 hid key-up keyCode=0 text=\xC3\xA9",
                            }));
}

TEST(Clicker, AccessibilityListAndPress) {
  // Buttons at every depth from 2 to 15, and one button reachable along two paths.
  std::string tree = R"({"role": "AXButton", "title": "B15"})";
  for (int depth = 14; depth >= 2; --depth) {
    tree = R"({"role": "AXGroup", "children": [{"role": "AXButton", "title": "B)" + std::to_string(depth) + R"("}, )" +
           tree + "]}";
  }
  ClickerDesktop d(R"({"tavlinDesktop": 1, "apps": [{"pid": 7, "name": "Deep", "ui": {"role": "AXApplication",
      "children": [{"role": "AXWindow", "title": "W", "children": [
        {"id": "twice", "role": "AXButton", "description": "Shared", "position": [1, 2], "size": [3, 4],
         "actionErrors": {"AXPress": "cannotComplete"}, "actions": ["AXPress"]},
        {"role": "AXGroup", "attributes": {"AXChildren": [{"ref": "twice"}]}},
        )" + tree + R"(]}]}}]})");
  ToolRun run = d.clicker({"ax-list", "--pid", "7", "--role", "AXButton"});
  ASSERT_EQ(run.status, 0) << run.err;
  std::string expected = "[0 AXButton] title=Shared frame=(1,2,3,4)\n";
  // The window is at depth 1; B2 sits in a group at depth 2, so at depth 3; the walk
  // stops at depth 12 (B11).
  for (int n = 2; n <= 11; ++n) {
    expected += "[" + std::to_string(n - 1) + " AXButton] title=B" + std::to_string(n) + " frame=()\n";
  }
  EXPECT_EQ(run.out, expected);

  EXPECT_EQ(d.clicker({"ax-list", "--pid", "7", "--contains", "b1"}).out,
            "[0 AXButton] title=B10 frame=()\n[1 AXButton] title=B11 frame=()\n");
  // ax-list takes --title as ax-press does.
  EXPECT_EQ(d.clicker({"ax-list", "--pid", "7", "--title", "B3"}).out, "[0 AXButton] title=B3 frame=()\n");
  // B3 is matched, but offers no AXPress.
  run = d.clicker({"ax-press", "--pid", "7", "--title", "B3"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "ax-press: AXPress failed code=-25206\n");
  run = d.clicker({"ax-press", "--pid", "7", "--title", "Nothing"});
  EXPECT_EQ(run.err, "ax-press: no element matched\n");
  run = d.clicker({"ax-press", "--pid", "7", "--contains", "shared"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "ax-press: AXPress failed code=-25204\n");
}

TEST(Clicker, AProcessThatIsNotThereIsAnError) {
  // No application has the pid, it has quit, or its element cannot be read: never a
  // phantom element and success.
  ClickerDesktop d(R"({"tavlinDesktop": 1, "apps": [
      {"pid": 7, "name": "Gone", "terminated": true, "ui": {"role": "AXApplication"}},
      {"pid": 8, "name": "Silent", "responds": false, "ui": {"role": "AXApplication"}},
      {"pid": 9, "name": "Treeless"}]})");
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"99999", "no running application has pid 99999"},
      {"7", "no running application has pid 7"},
      {"8", "the application with pid 8 does not answer accessibility requests"},
      {"9", "the application with pid 9 does not answer accessibility requests"},
  };
  for (const auto& [pid, message] : cases) {
    for (const char* command : {"ax-list", "ax-press"}) {
      ToolRun run = d.clicker({command, "--pid", pid});
      EXPECT_EQ(run.status, 1) << command << " " << pid;
      EXPECT_EQ(run.out, "");
      EXPECT_EQ(run.err, std::string(command) + ": " + message + "\n");
    }
  }
}
