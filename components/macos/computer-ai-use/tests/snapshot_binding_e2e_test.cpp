// Index actions bound to the snapshot the agent saw: on the command line with
// --verify-snapshot, always over MCP. A changed element or another window is refused
// before any event, activation or change; an unchanged one is acted on and named.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "test_support.h"

using tavlin::testing::DesktopFixture;
using tavlin::testing::readText;
using tavlin::testing::ToolRun;

namespace {

const std::string exampleDesktop = std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json";

// Application P with two windows, each with a close button and a field.
const char* twoWindows = R"({"tavlinDesktop": 1, "frontmostPid": 5, "apps": [{"pid": 5, "name": "P", "ui": {
    "role": "AXApplication", "attributes": {"AXFocusedWindow": {"ref": "main"}, "AXMainWindow": {"ref": "main"}},
    "children": [
      {"id": "main", "role": "AXWindow", "title": "Main", "position": [0, 30], "size": [400, 300], "children": [
        {"role": "AXButton", "subrole": "AXCloseButton", "position": [10, 40], "size": [14, 14], "actions": ["AXPress"]},
        {"role": "AXTextField", "title": "Name", "value": "a", "position": [50, 80], "size": [200, 20], "settable": ["AXValue"]}]},
      {"id": "second", "role": "AXWindow", "title": "Second", "position": [500, 30], "size": [400, 300], "children": [
        {"role": "AXButton", "subrole": "AXCloseButton", "position": [510, 40], "size": [14, 14], "actions": ["AXPress"]},
        {"role": "AXTextField", "title": "Name", "value": "b", "position": [550, 80], "size": [200, 20], "settable": ["AXValue"]}]}]}}],
  "windows": [{"number": 11, "pid": 5, "bounds": [0, 30, 400, 300], "name": "Main"},
              {"number": 12, "pid": 5, "bounds": [500, 30, 400, 300], "name": "Second"}]})";

// Lines of the event log that act: events, actions, value changes, activation.
std::string actions(const std::string& log) {
  std::string out;
  size_t start = 0;
  while (start < log.size()) {
    size_t end = log.find('\n', start);
    if (end == std::string::npos) end = log.size();
    std::string line = log.substr(start, end - start);
    if (line.find(" system ") == std::string::npos && line.find(" read ") == std::string::npos) out += line + "\n";
    start = end + 1;
  }
  return out;
}

// Puts `element` ahead of the element with this id in its children list.
bool insertBefore(nlohmann::ordered_json& node, const std::string& id, const nlohmann::ordered_json& element) {
  if (node.is_object()) {
    for (auto& [key, value] : node.items()) {
      if (key == "children" && value.is_array()) {
        for (size_t i = 0; i < value.size(); ++i) {
          if (value[i].is_object() && value[i].value("id", "") == id) {
            value.insert(value.begin() + static_cast<std::ptrdiff_t>(i), element);
            return true;
          }
        }
      }
      if (insertBefore(value, id, element)) return true;
    }
  } else if (node.is_array()) {
    for (auto& child : node) {
      if (insertBefore(child, id, element)) return true;
    }
  }
  return false;
}

}  // namespace

TEST(SnapshotBinding, AChangedElementIsRefusedBeforeAnything) {
  DesktopFixture d(readText(exampleDesktop));
  ASSERT_EQ(d.run({"get-app-state", "--app", "Scribe"}).status, 0);
  std::string before = d.events();
  // The application's UI changes: a button appears ahead of Bold.
  nlohmann::ordered_json desktop = nlohmann::ordered_json::parse(readText(d.path));
  ASSERT_TRUE(insertBefore(desktop, "bold", nlohmann::ordered_json::parse(R"({"role": "AXButton",
      "roleDescription": "button", "description": "Delete", "position": [100, 114], "size": [28, 28],
      "actions": ["AXPress"], "enabled": true})")));
  tavlin::testing::writeText(d.path, desktop.dump(2));
  const std::vector<std::vector<std::string>> cases = {
      {"click", "--app", "Scribe", "--element-index", "6", "--verify-snapshot"},
      {"perform-secondary-action", "--app", "Scribe", "--element-index", "6", "--action", "AXPress", "--verify-snapshot"},
      {"scroll", "--app", "Scribe", "--element-index", "6", "--direction", "down", "--verify-snapshot"},
      {"set-value", "--app", "Scribe", "--element-index", "6", "--value", "x", "--verify-snapshot"},
  };
  for (const auto& arguments : cases) {
    ToolRun run = d.run(arguments);
    EXPECT_EQ(run.status, 1) << arguments[0];
    EXPECT_EQ(run.err,
              "Refused: element 6 changed (it was AXButton \"Bold\" (identifier format.bold) at AXWindow[Meeting "
              "notes.txt] > AXToolbar > AXButton[Bold], now AXButton \"Delete\" at AXWindow[Meeting notes.txt] > "
              "AXToolbar > AXButton[Delete]). Call get_app_state again and use its indices.\n")
        << arguments[0];
  }
  EXPECT_EQ(actions(d.events().substr(before.size())), "") << d.events().substr(before.size());
  // Without the flag the command line keeps its behaviour: index 6 is whatever is there now.
  ToolRun plain = d.run({"perform-secondary-action", "--app", "Scribe", "--element-index", "6", "--action", "AXPress"});
  EXPECT_EQ(plain.status, 0) << plain.err;
  // After a new snapshot the index means the new element.
  ASSERT_EQ(d.run({"get-app-state", "--app", "Scribe"}).status, 0);
  EXPECT_EQ(d.run({"click", "--app", "Scribe", "--element-index", "7", "--verify-snapshot"}).status, 0);
  // No snapshot at all is refused too.
  ToolRun none = d.run({"click", "--app", "Postbox", "--element-index", "1", "--verify-snapshot"});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.err, "No get_app_state snapshot of Postbox to act on. Call get_app_state again and use its indices.\n");
}

TEST(SnapshotBinding, IndicesActInTheWindowThatWasSnapshotted) {
  DesktopFixture d(twoWindows);
  ASSERT_EQ(d.run({"get-app-state", "--app", "P", "--title-contains", "second"}).status, 0);
  ToolRun run = d.run({"set-value", "--app", "P", "--element-index", "2", "--value", "typed", "--verify-snapshot"});
  ASSERT_EQ(run.status, 0) << run.err;
  std::string state = d.run({"get-app-state", "--app", "P", "--title-contains", "second", "--format", "json"}).out;
  EXPECT_NE(state.find("\"value\" : \"typed\""), std::string::npos) << state;
  std::string main = d.run({"get-app-state", "--app", "P", "--format", "json"}).out;
  EXPECT_EQ(main.find("typed"), std::string::npos) << main;

  // The snapshotted window becomes another document, or closes: nothing is done in
  // the window there now.
  for (std::string change : {"renamed", "closed"}) {
    DesktopFixture w(twoWindows);
    ASSERT_EQ(w.run({"get-app-state", "--app", "P", "--title-contains", "second"}).status, 0);
    std::string text = readText(w.path);
    if (change == "renamed") {
      text = tavlin::testing::replaceAll(text, "\"Second\"", "\"Other\"");
    } else {
      nlohmann::ordered_json desktop = nlohmann::ordered_json::parse(text);
      desktop["windows"].erase(1);
      desktop["apps"][0]["ui"]["children"].erase(1);
      text = desktop.dump(2);
    }
    tavlin::testing::writeText(w.path, text);
    std::string before = w.events();
    run = w.run({"perform-secondary-action", "--app", "P", "--element-index", "1", "--action", "AXPress",
                 "--verify-snapshot"});
    EXPECT_EQ(run.status, 1) << change;
    EXPECT_NE(run.err.find(". Call get_app_state again and use its indices.\n"), std::string::npos) << run.err;
    EXPECT_EQ(actions(w.events().substr(before.size())), "") << change;
  }
}

