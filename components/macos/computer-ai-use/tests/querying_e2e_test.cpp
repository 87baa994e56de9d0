// Querying end to end: find-elements, wait-for on virtual time with elements and windows
// that come and go, get-app-state --changes, and the MCP actions' observe.
#include <gtest/gtest.h>

#include <algorithm>

#include <nlohmann/json.hpp>

#include "common/files.h"
#include "platform/posix_processes.h"
#include "test_support.h"

using nlohmann::json;
using tavlin::testing::DesktopFixture;
using tavlin::testing::readText;
using tavlin::testing::replaceAll;
using tavlin::testing::ToolRun;

namespace {

const std::string exampleDesktop = std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json";

// Scribe's "Draft" window: a Cancel button gone at 1.1 s, a "Saving…" text there from
// 1.5 s to 4 s, and an "Export" window (with its window-server entry) from 3.2 s.
std::string timedDesktop(double elapsed = 0) {
  return R"({"tavlinDesktop": 1, "frontmostPid": 8, "clock": {"elapsed": )" + std::to_string(elapsed) + R"(},
  "apps": [{"pid": 7, "name": "Scribe", "ui": {"role": "AXApplication",
    "attributes": {"AXFocusedWindow": {"ref": "main"}, "AXMainWindow": {"ref": "main"}},
    "children": [
      {"id": "main", "role": "AXWindow", "title": "Draft", "position": [0, 30], "size": [400, 300], "children": [
        {"role": "AXButton", "title": "Save", "position": [10, 40], "size": [60, 20], "actions": ["AXPress"]},
        {"role": "AXButton", "title": "Cancel", "position": [80, 40], "size": [60, 20], "actions": ["AXPress"],
         "disappearsAt": 1.1},
        {"role": "AXTextField", "description": "Name", "value": "a", "position": [10, 80], "size": [200, 20],
         "settable": ["AXValue"]},
        {"role": "AXStaticText", "value": "Saving…", "position": [10, 110], "size": [100, 20],
         "appearsAt": 1.5, "disappearsAt": 4}]},
      {"role": "AXWindow", "title": "Export", "appearsAt": 3.2, "position": [500, 30], "size": [300, 200],
       "children": [{"role": "AXButton", "title": "Export", "identifier": "export", "position": [510, 40],
                     "size": [60, 20], "actions": ["AXPress"]}]}]}},
    {"pid": 8, "name": "Other", "ui": {"role": "AXApplication"}}],
  "windows": [{"number": 11, "pid": 7, "bounds": [0, 30, 400, 300], "name": "Draft"},
              {"number": 12, "pid": 7, "bounds": [500, 30, 300, 200], "name": "Export", "appearsAt": 3.2}]})";
}

json parsed(const ToolRun& run) { return json::parse(run.out); }

std::vector<int64_t> indicesOf(const json& elements) {
  std::vector<int64_t> out;
  for (const auto& e : elements) out.push_back(e["index"]);
  return out;
}

double clockOf(const DesktopFixture& d) { return json::parse(readText(d.path))["clock"]["elapsed"]; }

uint64_t roundTripsOf(const DesktopFixture& d) {
  json desktop = json::parse(readText(d.path));
  return desktop.contains("stats") ? desktop["stats"].value("axRoundTrips", uint64_t{0}) : 0;
}

// Event-log lines that reach the desktop: posted events, activation, actions, changes.
std::string actingLines(const std::string& log) {
  std::string out;
  for (const std::string kind : {" hid ", " session ", " activate", " unhide", " perform-action", " set-value",
                                 " warp-cursor", " pid:"}) {
    for (size_t at = log.find(kind); at != std::string::npos; at = log.find(kind, at + 1)) {
      out += log.substr(log.rfind('\n', at) + 1, log.find('\n', at) - log.rfind('\n', at)) ;
    }
  }
  return out;
}

// A session with the real binary's MCP server: each message one line in, the replies out.
std::vector<json> mcpSession(DesktopFixture& d, const std::vector<std::string>& calls) {
  std::string input =
      R"({"jsonrpc": "2.0", "id": 0, "method": "initialize", "params": {"protocolVersion": "2025-06-18"}})" "\n";
  for (size_t i = 0; i < calls.size(); ++i) {
    input += R"({"jsonrpc": "2.0", "id": )" + std::to_string(i + 1) +
             R"(, "method": "tools/call", "params": )" + calls[i] + "}\n";
  }
  tavlin::platform::ProcessRequest request;
  request.executable = TAVLIN_BINARY;
  request.arguments = {"__mcp"};
  request.standardInput = input;
  request.captureOutput = true;
  request.timeoutSeconds = 60;
  request.extraEnvironment = {{"TAVLIN_SIM_DESKTOP", d.path}, {"TAVLIN_SIM_EVENT_LOG", d.log},
                              {"HOME", d.dir.path()},       {"TAVLIN_INSTALL_ROOT", ""},
                              {"TAVLIN_EXECUTABLE", TAVLIN_BINARY}};
  tavlin::platform::ProcessResult result = tavlin::platform::PosixProcesses().run(request);
  std::vector<json> replies;
  size_t start = result.standardOutput.find('\n') + 1;  // after initialize's
  for (size_t end; (end = result.standardOutput.find('\n', start)) != std::string::npos; start = end + 1) {
    replies.push_back(json::parse(result.standardOutput.substr(start, end - start))["result"]);
  }
  return replies;
}

}  // namespace

TEST(FindElements, CriteriaOnTheExampleWindow) {
  DesktopFixture d(readText(exampleDesktop));
  struct Case {
    std::vector<std::string> criteria;
    std::vector<int64_t> indices;
  };
  const std::vector<Case> cases = {
      {{"--role", "AXButton"}, {1, 2, 3, 6, 7, 16}},
      {{"--text", "MEETING"}, {0, 4}},  // a window's title, a text's value
      {{"--role", "AXButton", "--text", "format."}, {6, 7}},
      {{"--interactive", "--identifier", "format.italic"}, {7}},
      {{}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args = {"find-elements", "--app", "Scribe"};
    args.insert(args.end(), c.criteria.begin(), c.criteria.end());
    ToolRun run = d.run(args);
    ASSERT_EQ(run.status, 0) << run.err;
    json result = parsed(run);
    EXPECT_EQ(indicesOf(result["elements"]), c.indices) << args[3];
    EXPECT_EQ(result["count"], c.indices.size());
  }
  ToolRun bold = d.run({"find-elements", "--app", "Scribe", "--identifier", "format.bold"});
  EXPECT_EQ(bold.out, R"({
  "app" : "Scribe",
  "count" : 1,
  "elements" : [
    {
      "center" : {
        "x" : 154,
        "y" : 128
      },
      "frame" : {
        "height" : 28,
        "width" : 28,
        "x" : 140,
        "y" : 114
      },
      "identifier" : "format.bold",
      "index" : 6,
      "label" : "Bold",
      "role" : "AXButton"
    }
  ],
  "pid" : 4242,
  "window" : {
    "frame" : {
      "height" : 640,
      "width" : 900,
      "x" : 120,
      "y" : 80
    },
    "title" : "Meeting notes.txt",
    "window_id" : 301,
    "windowID" : 301
  }
}
)");
  // A look only: no snapshot taken (the indices of the last get-app-state stay bound),
  // nothing activated or posted.
  EXPECT_FALSE(tavlin::common::exists(d.dir.file("Library/Caches/Tavlin/computer-ai-use-state")));
  EXPECT_EQ(actingLines(d.events()), "");
}

TEST(FindElements, TheWindowFlagsChooseTheWindowAndEmptyCriteriaAreRefused) {
  DesktopFixture d(timedDesktop(5));
  ToolRun export_ = d.run({"find-elements", "--app", "Scribe", "--title-contains", "export", "--role", "AXButton"});
  ASSERT_EQ(export_.status, 0) << export_.err;
  EXPECT_EQ(parsed(export_)["elements"][0]["label"], "Export");
  EXPECT_EQ(parsed(export_)["window"]["window_id"], 12);
  EXPECT_EQ(parsed(d.run({"find-elements", "--app", "Scribe", "--window-id", "11", "--text", "export"}))["count"], 0);
  // A named window that is not there is an error, not the elements of the window in front.
  for (const auto& [flags, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"--window-id", "999"}, "Scribe has no window with the id 999\n"},
           {{"--title-contains", " Invoice "}, "Scribe has no window whose title contains \"Invoice\"\n"}}) {
    std::vector<std::string> args = {"find-elements", "--app", "Scribe", "--role", "AXButton"};
    args.insert(args.end(), flags.begin(), flags.end());
    ToolRun run = d.run(args);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, message);
    EXPECT_EQ(run.out, "");
  }
  for (const char* flag : {"--text", "--role", "--identifier"}) {
    ToolRun run = d.run({"find-elements", "--app", "Scribe", flag, ""});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, std::string(flag) + " must not be empty\n");
  }
}

TEST(WaitFor, SucceedsAtTheFirstLookAfterTheThingCameOrWent) {
  struct Case {
    const char* what;
    double start;
    std::vector<std::string> args;
    double waited;   // as printed
    double clock;    // the desktop's clock after
    const char* key;  // what the result names
    const char* label;
  };
  const std::vector<Case> cases = {
      // Looks at 0.1, 0.35, ... 3.35: the first at or after 3.2 s.
      {"a window appearing late", 0.1, {"--window-title", "EXPORT"}, 3.25, 3.35, "window", "Export"},
      {"an element appearing late", 0, {"--text", "saving"}, 1.5, 1.5, "element", nullptr},
      {"an element of another window", 0, {"--title-contains", "Export", "--identifier", "export"}, 3.25, 3.25,
       "element", "Export"},
      // Not the focused window's button while the named window is still to come.
      {"a button of a window still to come", 0, {"--title-contains", "export", "--role", "AXButton"}, 3.25, 3.25,
       "element", "Export"},
      {"a button of a window numbered", 0, {"--window-id", "12", "--role", "AXButton"}, 3.25, 3.25, "element",
       "Export"},
      {"there already", 2, {"--role", "AXTextField"}, 0, 2, "element", "Name"},
      {"an element going", 0, {"--text", "Cancel", "--gone"}, 1.25, 1.25, "gone", nullptr},
      {"a window going", 3.5, {"--window-title", "Draft", "--gone", "--timeout", "1"}, 1, 4.5, nullptr, nullptr},
  };
  for (const Case& c : cases) {
    DesktopFixture d(timedDesktop(c.start));
    std::vector<std::string> args = {"wait-for", "--app", "Scribe"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    ToolRun run = d.run(args);
    if (!c.key) {
      // The window stays: a bounded failure.
      EXPECT_EQ(run.status, 1) << c.what;
      EXPECT_EQ(run.err, "Timed out after 1 s waiting for a window with a title containing \"Draft\" in Scribe to "
                         "disappear\n");
      EXPECT_DOUBLE_EQ(clockOf(d), c.clock) << c.what;
      continue;
    }
    ASSERT_EQ(run.status, 0) << c.what << ": " << run.err;
    json result = parsed(run);
    EXPECT_EQ(result["ok"], true);
    EXPECT_DOUBLE_EQ(result["waited"].get<double>(), c.waited) << c.what;
    EXPECT_DOUBLE_EQ(clockOf(d), c.clock) << c.what;
    ASSERT_TRUE(result.contains(c.key)) << c.what << run.out;
    if (c.label) {
      EXPECT_EQ(result[c.key]["label"], c.label) << c.what;
    }
    // Waiting activates nothing and posts nothing.
    EXPECT_EQ(actingLines(d.events()), "") << c.what;
  }
}

TEST(WaitFor, WhatNeverComesFailsAtItsBoundWithOneLine) {
  DesktopFixture d(timedDesktop());
  ToolRun never = d.run({"wait-for", "--app", "Scribe", "--role", "AXSheet", "--text", "Save", "--timeout", "2"});
  EXPECT_EQ(never.status, 1);
  EXPECT_EQ(never.out, "");
  EXPECT_EQ(never.err, "Timed out after 2 s waiting for an element with role AXSheet and text \"Save\" in Scribe\n");
  EXPECT_DOUBLE_EQ(clockOf(d), 2);
  // The default bound, and a bound of 0: one look.
  ToolRun defaulted = d.run({"wait-for", "--app", "Scribe", "--identifier", "nothing"});
  EXPECT_EQ(defaulted.err, "Timed out after 10 s waiting for an element with identifier nothing in Scribe\n");
  EXPECT_DOUBLE_EQ(clockOf(d), 12);
  EXPECT_EQ(d.run({"wait-for", "--app", "Scribe", "--text", "x", "--timeout", "-0"}).err,
            "Timed out after 0 s waiting for an element with text \"x\" in Scribe\n");
  EXPECT_DOUBLE_EQ(clockOf(d), 12);
  EXPECT_EQ(actingLines(d.events()), "");

  const std::vector<std::pair<std::vector<std::string>, std::string>> refused = {
      {{"--text", "a", "--timeout", "601"}, "--timeout must be a number of seconds from 0 to 600, not 601"},
      {{"--text", "a", "--timeout", "-1"}, "--timeout must be a number of seconds from 0 to 600, not -1"},
      {{"--text", "a", "--timeout", "5s"}, "--timeout must be a number of seconds from 0 to 600, not 5s"},
      {{"--gone"}, "wait-for needs one of --text, --role, --identifier or --window-title"},
      {{"--interactive"}, "wait-for needs one of --text, --role, --identifier or --window-title"},
      {{"--window-title", "a", "--role", "AXButton"},
       "--window-title cannot be combined with --text, --role, --identifier or --interactive"},
      {{"--window-title", ""}, "--window-title must not be empty"},
  };
  for (const auto& [args, message] : refused) {
    std::vector<std::string> all = {"wait-for", "--app", "Scribe"};
    all.insert(all.end(), args.begin(), args.end());
    ToolRun run = d.run(all);
    EXPECT_EQ(run.status, 1) << message;
    EXPECT_EQ(run.err, message + "\n");
  }
  EXPECT_DOUBLE_EQ(clockOf(d), 12);
}

// An application that quits mid-wait reads as an empty tree: that must not pass for
// "gone", nor leave the wait running to its bound.
TEST(WaitFor, AnApplicationThatStopsAnsweringIsNeverGone) {
  const std::vector<std::vector<std::string>> conditions = {
      {"--window-title", "Draft", "--gone"},
      {"--text", "Save", "--gone"},
      {"--role", "AXWindow", "--gone"},
      {"--text", "Nowhere"},
  };
  for (const auto& condition : conditions) {
    DesktopFixture d(replaceAll(timedDesktop(), R"("name": "Scribe",)", R"("name": "Scribe", "quitsAfterCalls": 40,)"));
    std::vector<std::string> args = {"wait-for", "--app", "Scribe", "--timeout", "5"};
    args.insert(args.end(), condition.begin(), condition.end());
    ToolRun run = d.run(args);
    EXPECT_EQ(run.status, 1) << condition[1] << run.out;
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find("Scribe stopped answering accessibility (it may have quit) while waiting for "),
              std::string::npos) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    // It fails when the application goes, not at the bound.
    EXPECT_LT(clockOf(d), 5) << condition[1];
    EXPECT_EQ(actingLines(d.events()), "");
  }
  // One that does not answer at all keeps the wait going to its bound, and says why.
  DesktopFixture silent(replaceAll(timedDesktop(), R"("name": "Scribe",)", R"("name": "Scribe", "responds": false,)"));
  ToolRun run = silent.run({"wait-for", "--app", "Scribe", "--window-title", "Draft", "--gone", "--timeout", "3"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "Timed out after 3 s waiting for a window with a title containing \"Draft\" in Scribe to disappear "
                     "(the last look could not read Scribe: AXError -25204)\n");
}

TEST(GetAppStateChanges, AddedRemovedAndChangedSinceThePreviousSnapshot) {
  DesktopFixture d(timedDesktop());
  ToolRun first = d.run({"get-app-state", "--app", "Scribe", "--changes"});
  ASSERT_EQ(first.status, 0) << first.err;
  EXPECT_TRUE(first.out.ends_with(
      "\n<changes>\nNo previous snapshot of this application to compare with.\n</changes>\n")) << first.out;
  // Time passes (Cancel goes, "Saving…" comes) and the field gets another value.
  ASSERT_EQ(d.run({"wait-for", "--app", "Scribe", "--text", "saving"}).status, 0);
  d.edit(R"("value": "a")", R"("value": "Ada")");
  ToolRun second = d.run({"get-app-state", "--app", "Scribe", "--changes"});
  ASSERT_EQ(second.status, 0) << second.err;
  std::string block = second.out.substr(second.out.find("\n<changes>\n") + 1);
  EXPECT_EQ(block,
            "<changes>\n"
            "Since the snapshot of 2026-01-01T00:00:00Z: 1 added, 1 removed, 1 changed.\n"
            "+ 3 AXStaticText at AXWindow[Draft] > AXStaticText[Saving…]\n"
            "- 2 AXButton \"Cancel\" at AXWindow[Draft] > AXButton[Cancel]\n"
            "~ 2 AXTextField \"Name\" at AXWindow[Draft] > AXTextField[Name]: value \"a\" -> \"Ada\"\n"
            "</changes>\n");
  // Without the flag, the output is the usual listing: everything before the block.
  ToolRun plain = d.run({"get-app-state", "--app", "Scribe"});
  EXPECT_EQ(second.out.substr(0, second.out.find("\n<changes>\n") + 1), plain.out);

  // One JSON document either way, with the changes as one more key.
  ASSERT_EQ(d.run({"wait-for", "--app", "Scribe", "--text", "saving", "--gone"}).status, 0);
  json asJson = parsed(d.run({"get-app-state", "--app", "Scribe", "--changes", "--format", "json"}));
  EXPECT_EQ(asJson["changes"], json::parse(R"({"since": "2026-01-01T00:00:01Z", "added": [], "changed": [],
      "removed": [{"index": 3, "path": "AXWindow[Draft] > AXStaticText[Saving…]", "role": "AXStaticText"}]})"))
      << asJson["changes"].dump();
  json envelope = parsed(d.run({"get-app-state", "--app", "Scribe", "--changes", "--format", "plugin-json"}));
  EXPECT_EQ(envelope["changes"]["removed"], json::array());
  EXPECT_TRUE(envelope.contains("app_state"));
}

TEST(GetAppStateChanges, CostNoAccessibilityRoundTrips) {
  // Two copies of the same desktop, each with a snapshot taken; one looks again with the
  // flag, the other without.
  DesktopFixture with(readText(exampleDesktop)), without(readText(exampleDesktop));
  for (auto* d : {&with, &without}) ASSERT_EQ(d->run({"get-app-state", "--app", "Scribe"}).status, 0);
  uint64_t before = roundTripsOf(with);
  ASSERT_EQ(before, roundTripsOf(without));
  ToolRun a = with.run({"get-app-state", "--app", "Scribe", "--changes"});
  ToolRun b = without.run({"get-app-state", "--app", "Scribe"});
  ASSERT_EQ(a.status, 0);
  ASSERT_EQ(b.status, 0);
  EXPECT_EQ(roundTripsOf(with), roundTripsOf(without));
  EXPECT_GT(roundTripsOf(with), before);
  EXPECT_NE(a.out.find("Since the snapshot of 2026-03-02T09:30:00Z: no changes.\n"), std::string::npos) << a.out;
}

TEST(McpQuerying, ToolsAndObservedActions) {
  DesktopFixture d(timedDesktop());
  std::vector<json> replies = mcpSession(
      d, {R"({"name": "press_key", "arguments": {"app": "Scribe", "key": "tab", "observe": true}})",
          R"({"name": "get_app_state", "arguments": {"app": "Scribe", "format": "json"}})",
          R"({"name": "set_value", "arguments": {"app": "Scribe", "element_index": 3, "value": "Ada", "observe": true}})",
          R"({"name": "wait_for", "arguments": {"app": "Scribe", "text": "Saving", "timeout": 5}})",
          R"({"name": "press_key", "arguments": {"app": "Scribe", "key": "tab", "observe": true}})",
          R"({"name": "find_elements", "arguments": {"app": "Scribe", "role": "AXButton", "interactive": true}})",
          R"({"name": "get_app_state", "arguments": {"app": "Scribe", "changes": true}})",
          R"({"name": "wait_for", "arguments": {"app": "Scribe", "text": "Save", "gone": true, "timeout": 0.5}})"});
  ASSERT_EQ(replies.size(), 8u);
  for (size_t i = 0; i + 1 < replies.size(); ++i) ASSERT_EQ(replies[i]["isError"], false) << i << replies[i].dump();
  // With no snapshot to compare with, an observed action says so.
  EXPECT_EQ(replies[0]["structuredContent"]["changes"], json::parse(R"({"since": null})"));
  // The action's own change, as the text block says too.
  const json& own = replies[2]["structuredContent"]["changes"];
  EXPECT_EQ(own["changed"], json::parse(R"([{"index": 3, "role": "AXTextField", "label": "Name",
      "path": "AXWindow[Draft] > AXTextField[Name]", "fields": {"value": {"from": "a", "to": "Ada"}}}])"));
  EXPECT_EQ(replies[2]["content"][1]["text"],
            "<changes>\nSince the snapshot of 2026-01-01T00:00:00Z: 0 added, 0 removed, 1 changed.\n"
            "~ 3 AXTextField \"Name\" at AXWindow[Draft] > AXTextField[Name]: value \"a\" -> \"Ada\"\n</changes>");
  EXPECT_EQ(json::parse(replies[2]["content"][0]["text"].get<std::string>()), replies[2]["structuredContent"]);
  EXPECT_EQ(replies[3]["structuredContent"]["element"]["value"], "Saving…");
  // Observations do not replace the snapshot: later ones still compare with it.
  const json& later = replies[4]["structuredContent"]["changes"];
  EXPECT_EQ(indicesOf(later["added"]), std::vector<int64_t>{3});
  EXPECT_EQ(indicesOf(later["removed"]), std::vector<int64_t>{2});
  EXPECT_EQ(later["changed"][0]["before"], json::parse(R"({"index": 3, "path": "AXWindow[Draft] > AXTextField[Name]"})"));
  EXPECT_EQ(indicesOf(replies[5]["structuredContent"]["elements"]), std::vector<int64_t>{1});
  EXPECT_EQ(replies[6]["structuredContent"]["changes"]["added"], later["added"]);
  EXPECT_EQ(replies[7]["isError"], true);
  EXPECT_EQ(replies[7]["content"][0]["text"],
            "Timed out after 0.5 s waiting for an element with text \"Save\" in Scribe to disappear");
}

TEST(McpQuerying, AnObservationThatCannotLookLeavesTheActionStanding) {
  DesktopFixture d(timedDesktop());
  ASSERT_EQ(d.run({"get-app-state", "--app", "Scribe"}).status, 0);
  // Accessibility is switched off for the tool after the snapshot.
  json desktop = json::parse(readText(d.path));
  desktop["apps"][0]["ui"]["errors"] = {{"AXRole", "apiDisabled"}};
  tavlin::testing::writeText(d.path, desktop.dump());
  std::vector<json> replies =
      mcpSession(d, {R"({"name": "press_key", "arguments": {"app": "Scribe", "key": "tab", "observe": true}})"});
  ASSERT_EQ(replies.size(), 1u);
  EXPECT_EQ(replies[0]["isError"], false);
  EXPECT_EQ(replies[0]["structuredContent"]["key"], "tab");
  EXPECT_EQ(replies[0]["structuredContent"]["changes"],
            json::parse(R"({"error": "Accessibility API is disabled for computer-ai-use"})"));
  EXPECT_EQ(replies[0]["content"][1]["text"],
            "Could not observe the changes: Accessibility API is disabled for computer-ai-use");
  EXPECT_NE(d.events().find("key-down"), std::string::npos);
}
