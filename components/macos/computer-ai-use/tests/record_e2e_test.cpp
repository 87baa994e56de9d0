// The desktop recorder end to end: a recording replays as the desktop it was taken
// from, and a recording of a recording is the recording.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "record/desktop_recorder.h"
#include "test_support.h"

using tavlin::testing::readText;
using tavlin::testing::replaceAll;
using tavlin::testing::runTool;
using tavlin::testing::TempDir;
using tavlin::testing::ToolRun;
using tavlin::testing::writeText;

namespace {

// Cycles, an element listed by two parents, two elements sharing a hash, failing and
// empty reads, every value kind, a parent that is not the declaring element, and a
// second window.
const char* trickyDesktop = R"({
  "tavlinDesktop": 1,
  "clock": {"start": "2026-05-01T08:00:00Z", "elapsed": 12.25},
  "screen": {"width": 1280, "height": 800, "backingScale": 1},
  "frontmostPid": 7,
  "apps": [
    {"pid": 7, "name": "Finder", "bundleIdentifier": "com.apple.finder"},
    {"pid": 900, "name": "Tricky", "bundleIdentifier": "com.example.Tricky", "activationPolicy": "regular",
     "ui": {"role": "AXApplication", "title": "Tricky",
            "attributes": {"AXFocusedUIElement": {"ref": "field"}, "AXFocusedWindow": {"ref": "w1"}},
            "children": [
              {"id": "w1", "role": "AXWindow", "title": "First", "position": [0, 25], "size": [400, 300],
               "children": [
                 {"id": "g1", "role": "AXGroup", "description": "left pane",
                  "children": [
                    {"id": "shared", "role": "AXButton", "title": "Shared", "actions": ["AXPress", "AXShowMenu",
                                 "Name:Reply to Alice\nTarget:0x600003\nSelector:replyTo:", "Archive thread 42"],
                     "position": [10, 40], "size": [80, 20]},
                    {"id": "field", "role": "AXTextField", "value": "hello\nworld", "settable": ["AXValue"],
                     "attributes": {"AXSelected": false, "AXURL": {"url": "file:///tmp/a%20b.txt"}, "AXHelp": null}},
                    {"role": "AXStaticText", "value": 0.5},
                    {"role": "AXStaticText", "value": 7, "identifier": "count", "roleDescription": "unread from Bob"},
                    {"role": "AXCheckBox", "value": true, "enabled": false},
                    {"role": "AXGroup", "title": "Failing", "errors": {"AXDescription": "cannotComplete", "AXChildren": -25200}},
                    {"role": "AXImage", "title": "Left", "hash": 77},
                    {"role": "AXUnknown", "value": {"other": "CFData"}, "attributes": {"AXFilename": ["a", "b"]},
                     "title": null},
                    {"role": "AXValueIndicator", "value": {"rect": [1, 2, 3, 4]}},
                    {"role": "AXSlider", "value": {"float32": 0.7}},
                    {"role": "Carol's inbox", "subrole": "DavesFolder"},
                    {"role": "AXGroup", "subrole": "AXLandmarkMain"}
                  ]},
                 {"id": "g2", "role": "AXGroup", "description": "right pane",
                  "attributes": {"AXChildren": [{"ref": "shared"}, {"ref": "g1"}, {"ref": "right"}]},
                  "children": [ {"id": "right", "role": "AXImage", "title": "Right", "hash": 77} ]},
                 {"role": "AXButton", "title": "Orphaned", "errors": {"AXParent": "attributeUnsupported"}}
               ]},
              {"role": "AXWindow", "title": "Second", "position": [500, 25], "size": [300, 200],
               "children": [ {"role": "AXButton", "title": "Only in second", "actions": ["AXPress"]} ]}
            ]}}
  ],
  "windows": [
    {"number": 31, "pid": 900, "bounds": [0, 25, 400, 300], "name": "First"},
    {"number": 32, "pid": 900, "bounds": [500, 25, 300, 200], "name": "Second", "alpha": 0.5},
    {"number": 1, "pid": 7, "bounds": [0, 0, 1280, 800], "layer": -2147483624, "ownerName": null, "onscreen": false},
    {"number": 2, "pid": 7, "bounds": [0, 0, 10, 10], "ownerName": "Eve's helper"}
  ]
})";

// A chain deeper than the file's inline nesting allows, built with references: each
// level declared beside the others and listing the next as its only child.
std::string deepDesktop(int depth) {
  std::string levels;
  for (int level = 0; level < depth; ++level) {
    levels += std::string(level ? ", " : "") + R"({"id": "l)" + std::to_string(level) +
              R"(", "role": "AXGroup", "title": "level )" + std::to_string(level) + R"(", "attributes": {"AXChildren": [)" +
              (level + 1 < depth ? R"({"ref": "l)" + std::to_string(level + 1) + R"("})" : "") + "]}}";
  }
  return R"({"tavlinDesktop": 1, "apps": [{"pid": 5, "name": "Deep", "ui": {"role": "AXApplication", "children": [
           {"role": "AXWindow", "title": "Deep", "position": [0, 0], "size": [100, 100],
            "attributes": {"AXChildren": [{"ref": "l0"}]}, "children": [)" +
         levels + "]}]}}], \"windows\": [{\"number\": 3, \"pid\": 5, \"bounds\": [0, 0, 100, 100]}]}";
}

struct Replay {
  TempDir dir;
  std::string log = dir.file("events.log");

  ToolRun on(const std::string& desktop, const std::vector<std::string>& arguments) {
    return runTool(arguments, {{"TAVLIN_SIM_DESKTOP", dir.file(desktop)},
                               {"TAVLIN_SIM_EVENT_LOG", log},
                               {"HOME", dir.path()}});
  }
  // Records from a copy, so the source keeps its text.
  ToolRun record(const std::string& source, const std::string& app, const std::string& out,
                 std::vector<std::string> options = {}) {
    writeText(dir.file("source.json"), readText(dir.file(source)));
    std::vector<std::string> args = {"__record-desktop", "--app", app, "--out", dir.file(out)};
    args.insert(args.end(), options.begin(), options.end());
    return on("source.json", args);
  }
};

struct RoundTripCase {
  const char* name;
  std::string desktop;
  std::string app;
  std::vector<std::string> selection;  // window options for both the recording and the snapshot
};

std::vector<RoundTripCase> roundTripCases() {
  std::string panel = replaceAll(readText(std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/open-panel.json"),
                                 "@EXAMPLES@", std::string(TAVLIN_SOURCE_ROOT) + "/examples");
  return {
      {"example", readText(std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json"), "Scribe", {}},
      {"real window", readText(tavlin::testing::fixture("realworld/chats-window.json")), "AI Chat", {}},
      {"tricky", trickyDesktop, "Tricky", {}},
      {"tricky, second window", trickyDesktop, "Tricky", {"--title-contains", "Second"}},
      {"tricky, window by number", trickyDesktop, "Tricky", {"--window-id", "31"}},
      {"open panel", panel, "Postbox", {}},
      {"deep chain", deepDesktop(300), "Deep", {}},
  };
}

class RoundTrip : public ::testing::TestWithParam<size_t> {};

TEST_P(RoundTrip, ReplaysAsTheOriginalAndRecordsAsItself) {
  {
    const RoundTripCase c = roundTripCases().at(GetParam());
    SCOPED_TRACE(c.name);
    Replay r;
    writeText(r.dir.file("original.json"), c.desktop);
    ToolRun recorded = r.record("original.json", c.app, "recording.json", c.selection);
    ASSERT_EQ(recorded.status, 0) << recorded.err;
    EXPECT_EQ(recorded.out, "");
    std::string recording = readText(r.dir.file("recording.json"));

    for (const char* format : {"plugin", "json", "plugin-json"}) {
      SCOPED_TRACE(format);
      std::vector<std::string> args = {"get-app-state", "--app", c.app, "--format", format};
      args.insert(args.end(), c.selection.begin(), c.selection.end());
      // Each snapshot from a fresh copy: a snapshot writes its desktop back.
      writeText(r.dir.file("a.json"), c.desktop);
      writeText(r.dir.file("b.json"), recording);
      ToolRun original = r.on("a.json", args);
      ToolRun replayed = r.on("b.json", args);
      EXPECT_EQ(original.status, 0) << original.err;
      EXPECT_EQ(replayed.err, original.err);
      EXPECT_EQ(replayed.out, original.out);
    }

    ToolRun again = r.record("recording.json", c.app, "again.json", c.selection);
    ASSERT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(readText(r.dir.file("again.json")), recording);
  }
}

INSTANTIATE_TEST_SUITE_P(DesktopRecorder, RoundTrip, ::testing::Range<size_t>(0, roundTripCases().size()));

TEST(DesktopRecorder, KeepsWhatTheWalkCannotSee) {
  Replay r;
  writeText(r.dir.file("original.json"), trickyDesktop);
  ASSERT_EQ(r.record("original.json", "Tricky", "recording.json").status, 0);
  nlohmann::ordered_json file = nlohmann::ordered_json::parse(readText(r.dir.file("recording.json")));
  std::string text = file.dump();
  // Both elements of the shared hash, each once; the shared button declared once.
  EXPECT_NE(text.find(R"("title":"Left")"), std::string::npos);
  EXPECT_NE(text.find(R"("title":"Right")"), std::string::npos);
  size_t hashes = 0;
  for (size_t at = text.find(R"("hash":77)"); at != std::string::npos; at = text.find(R"("hash":77)", at + 1)) ++hashes;
  EXPECT_EQ(hashes, 2u);
  EXPECT_EQ(text.find(R"("title":"Shared")"), text.rfind(R"("title":"Shared")"));
  // Reads that failed stay failures; empty ones stay empty.
  EXPECT_NE(text.find(R"("errors":{"AXDescription":"cannotComplete","AXChildren":"failure"})"), std::string::npos);
  EXPECT_NE(text.find(R"("errors":{"AXParent":"attributeUnsupported"})"), std::string::npos);
  EXPECT_NE(text.find(R"("AXHelp":null)"), std::string::npos);
  EXPECT_NE(text.find(R"("title":null)"), std::string::npos);
  // Value kinds.
  EXPECT_NE(text.find(R"("value":0.5)"), std::string::npos);
  EXPECT_NE(text.find(R"("value":{"rect":[1.0,2.0,3.0,4.0]})"), std::string::npos);
  EXPECT_NE(text.find(R"("AXURL":{"url":"file:///tmp/a%20b.txt"})"), std::string::npos);
  EXPECT_NE(text.find(R"("value":{"other":"CFData"})"), std::string::npos);
  EXPECT_NE(text.find(R"("value":{"float32":0.699999988079071})"), std::string::npos);
  // ... and prints as the platform prints a 32-bit real.
  ToolRun replay = r.on("recording.json", {"get-app-state", "--app", "Tricky"});
  EXPECT_NE(replay.out.find("Value: 0.7\n"), std::string::npos) << replay.out;
  // The desktop around the application.
  EXPECT_EQ(file["clock"], nlohmann::ordered_json::parse(R"({"start": "2026-05-01T08:00:12Z", "elapsed": 0.25})"));
  EXPECT_EQ(file["screen"]["width"], 1280);
  EXPECT_EQ(file["frontmostPid"], 7);
  EXPECT_EQ(file["windows"][2]["ownerName"], nullptr);
  EXPECT_EQ(file["windows"][1]["alpha"], 0.5);
  EXPECT_FALSE(file["apps"][0].contains("ui"));
  struct stat st{};
  ASSERT_EQ(stat(r.dir.file("recording.json").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);  // it may hold what the user typed
}

TEST(DesktopRecorder, AnApplicationThatDoesNotAnswerIsRecordedAsOne) {
  Replay r;
  std::string silent = replaceAll(trickyDesktop, R"("activationPolicy": "regular",)",
                                  R"("activationPolicy": "regular", "responds": false,)");
  writeText(r.dir.file("original.json"), silent);
  ToolRun run = r.record("original.json", "Tricky", "recording.json");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.err.find("Recorded 1 elements of Tricky"), std::string::npos) << run.err;
  auto file = nlohmann::json::parse(readText(r.dir.file("recording.json")));
  EXPECT_EQ(file["apps"][1]["responds"], false);
  EXPECT_EQ(file["apps"][1]["ui"], nlohmann::json::object());
  writeText(r.dir.file("a.json"), silent);
  ToolRun original = r.on("a.json", {"get-app-state", "--app", "Tricky", "--format", "json"});
  ToolRun replayed = r.on("recording.json", {"get-app-state", "--app", "Tricky", "--format", "json"});
  EXPECT_EQ(replayed.status, original.status);
  EXPECT_EQ(replayed.out, original.out);
  EXPECT_EQ(replayed.err, original.err);
}

TEST(DesktopRecorder, OneWindowKeepsTheOthersWithoutTheirContents) {
  Replay r;
  writeText(r.dir.file("original.json"), trickyDesktop);
  ASSERT_EQ(r.record("original.json", "Tricky", "recording.json", {"--title-contains", "First"}).status, 0);
  std::string text = readText(r.dir.file("recording.json"));
  EXPECT_NE(text.find("\"Second\""), std::string::npos);
  EXPECT_EQ(text.find("Only in second"), std::string::npos);
  EXPECT_NE(text.find("of one window"), std::string::npos);
}

TEST(DesktopRecorder, RedactionKeepsStructureAndLengths) {
  Replay r;
  writeText(r.dir.file("original.json"), trickyDesktop);
  ASSERT_EQ(r.record("original.json", "Tricky", "redacted.json", {"--redact"}).status, 0);
  std::string text = readText(r.dir.file("redacted.json"));
  // Identifiers, role descriptions and custom action names carry web content's texts.
  // Roles and subroles outside the system's set, and window owners other than the
  // recorded applications, likewise.
  for (const char* secret : {"hello", "Shared", "left pane", "First", "a%20b", "count", "Bob", "Alice", "0x600003",
                             "replyTo", "Archive", "Carol", "Dave", "Eve"}) {
    EXPECT_EQ(text.find(secret), std::string::npos) << secret;
  }
  EXPECT_NE(text.find(R"("value": "xxxxx\nxxxxx")"), std::string::npos);
  EXPECT_NE(text.find(R"({"url": "file:///xxx/xxxxxxxxx"})"), std::string::npos);
  EXPECT_NE(text.find(R"("identifier": "xxxxx")"), std::string::npos);
  EXPECT_NE(text.find(R"("roleDescription": "xxxxxxxxxxxxxxx")"), std::string::npos);
  EXPECT_NE(text.find("\"role\": \"xxxxxxxxxxxxx\",\n" + std::string(20, ' ') + "\"subrole\": \"xxxxxxxxxxx\""),
            std::string::npos);
  EXPECT_NE(text.find(R"("subrole": "AXLandmarkMain")"), std::string::npos);
  EXPECT_NE(text.find(R"("ownerName": "xxxxxxxxxxxx")"), std::string::npos);
  // Standard actions stay; a custom one keeps its keys and lengths.
  EXPECT_NE(text.find(R"(["AXPress", "AXShowMenu", "Name:xxxxxxxxxxxxxx\nTarget:xxxxxxxx\nSelector:xxxxxxxx", )"
                      R"("xxxxxxxxxxxxxxxxx"])"),
            std::string::npos)
      << text;

  // The same elements, roles and frames.
  writeText(r.dir.file("a.json"), trickyDesktop);
  ToolRun original = r.on("a.json", {"get-app-state", "--app", "Tricky", "--format", "json"});
  ToolRun redacted = r.on("redacted.json", {"get-app-state", "--app", "Tricky", "--format", "json"});
  ASSERT_EQ(redacted.status, 0) << redacted.err;
  auto a = nlohmann::json::parse(original.out)["elements"];
  auto b = nlohmann::json::parse(redacted.out)["elements"];
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i) {
    EXPECT_EQ(a[i]["role"] == "Carol's inbox" ? "xxxxxxxxxxxxx" : a[i]["role"], b[i]["role"]);
    EXPECT_EQ(a[i]["frame"], b[i]["frame"]);
  }
}

TEST(RedactedText, SameCharacterCountAndLineBreaks) {
  struct Case {
    const char* in;
    const char* out;
  } cases[] = {
      {"", ""},
      {"abc", "xxx"},
      {"e\xCC\x81t\xC3\xA9", "xxx"},            // a combining accent is one character
      {"\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD!", "xx"},  // an emoji with its skin tone
      {"a\r\nb\nc", "x\r\nx\nx"},
      {"\xE2\x80\xA8z", "\xE2\x80\xA8x"},
  };
  for (const Case& c : cases) EXPECT_EQ(tavlin::record::redactedText(c.in), c.out) << c.in;
  const std::vector<std::pair<std::string, std::string>> actions = {
      {"AXPress", "AXPress"},
      {"AXScrollToVisible", "AXScrollToVisible"},
      {"AXSecret", "xxxxxxxx"},
      {"Name:Ünïcode\nTarget:0x1\nSelector:open:", "Name:xxxxxxx\nTarget:xxx\nSelector:xxxxx"},
      {"Label:x\nName:", "xxxxxxx\nName:"},
  };
  for (const auto& [in, out] : actions) EXPECT_EQ(tavlin::record::redactedActionName(in), out) << in;
}

TEST(DesktopRecorder, ElementLimitTruncatesAndSaysSo) {
  Replay r;
  writeText(r.dir.file("original.json"), trickyDesktop);
  ToolRun run = r.record("original.json", "Tricky", "small.json", {"--max-elements", "4"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.err.find("Recorded 4 elements of Tricky (truncated at --max-elements 4)"), std::string::npos);
  auto file = nlohmann::json::parse(readText(r.dir.file("small.json")));
  EXPECT_NE(file["description"].get<std::string>().find("truncated at 4 elements"), std::string::npos);
  ToolRun replay = r.on("small.json", {"get-app-state", "--app", "Tricky"});
  EXPECT_EQ(replay.status, 0) << replay.err;
}

TEST(DesktopRecorder, ARecordingOverTheLiveDesktopIsWhatTheFileHolds) {
  Replay r;
  writeText(r.dir.file("live.json"), trickyDesktop);
  ToolRun run = r.on("live.json", {"__record-desktop", "--app", "Tricky", "--out", r.dir.file("live.json")});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err.rfind("Recorded ", 0), 0u) << run.err;
  // The recording, not the desktop's own state written back over it at exit.
  auto written = nlohmann::ordered_json::parse(readText(r.dir.file("live.json")));
  EXPECT_EQ(written.value("description", "").rfind("Recorded by tavlin-record: Tricky", 0), 0u) << written.dump();
}

TEST(DesktopRecorder, BadInputIsOneClearError) {
  Replay r;
  writeText(r.dir.file("original.json"), trickyDesktop);
  struct Case {
    std::vector<std::string> args;
    std::string message;
  } cases[] = {
      {{}, "tavlin-record: --app is required\nUsage: tavlin-record --app APP"},
      {{"--app"}, "tavlin-record: --app needs a value\n"},
      {{"--app", "Tricky", "--bogus"}, "tavlin-record: unknown option --bogus\n"},
      {{"--app", "Tricky", "--max-elements", "0"}, "tavlin-record: --max-elements must be from 1 to 10000000, not 0\n"},
      {{"--app", "Tricky", "--window-id", "x\ny"}, "tavlin-record: --window-id must be a window number, not x\\ny\n"},
      {{"--app", "Nothing"}, "No running application matches Nothing\n"},
      {{"--app", "Tricky", "--out", r.dir.file("missing/folder/out.json")}, "tavlin-record: cannot write "},
      // Only a regular file or nothing is replaced.
      {{"--app", "Tricky", "--out", r.dir.path()}, "tavlin-record: cannot write " + r.dir.path() + " (is a directory)\n"},
      {{"--app", "Tricky", "--out", r.dir.file("fifo")}, "tavlin-record: cannot write " + r.dir.file("fifo") +
                                                          " (is not a regular file)\n"},
  };
  ::mkfifo(r.dir.file("fifo").c_str(), 0600);
  for (const Case& c : cases) {
    std::vector<std::string> args = {"__record-desktop"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    ToolRun run = r.on("original.json", args);
    EXPECT_EQ(run.status, 1) << c.message;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err.rfind(c.message, 0), 0u) << run.err;
  }
  ToolRun help = r.on("original.json", {"__record-desktop", "--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out, tavlin::record::recorderUsageText());
}

}  // namespace
