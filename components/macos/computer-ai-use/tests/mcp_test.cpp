// The MCP server's protocol handling: every kind of bad message gets its JSON-RPC answer
// and the server goes on.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <thread>

#include "entry/agent_tool.h"
#include "mcp/mcp_server.h"
#include "platform/sim/sim_platform.h"
#include "test_support.h"

using namespace tavlin;
using cli::Json;

namespace {

const char* smallDesktop = R"({"tavlinDesktop": 1, "frontmostPid": 5,
    "apps": [{"pid": 5, "name": "P", "ui": {"role": "AXApplication", "children": [
      {"role": "AXWindow", "title": "W", "position": [0, 0], "size": [10, 10]}]}}]})";

struct Server {
  tavlin::testing::TempDir dir;  // where each call writes the desktop back and keeps its cache
  explicit Server(const std::string& desktop = smallDesktop)
      : platform(sim::SimDesktop::fromJson(nlohmann::ordered_json::parse(desktop), dir.file("desktop.json"),
                                           dir.file("events.log"))),
        server(values, platform, entry::dispatchAgentCommand) {
    values.traversalAttributes = {"AXChildren", "AXWindows", "AXMainWindow", "AXFocusedWindow",
                                  "AXChildrenInNavigationOrder"};
    values.exactNameFirstScore = 1000000;
    values.tavlinRootURL = TAVLIN_SOURCE_ROOT;
    values.cacheDirectoryURL = dir.file("cache");
    values.keyTables = runtime::makeKeyTables();
  }
  std::string events() { return tavlin::testing::readText(dir.file("events.log")); }
  std::optional<Json> send(const std::string& line) { return server.handleLine(line); }
  Json call(const std::string& name, const std::string& arguments) {
    return *send(R"({"jsonrpc": "2.0", "id": 7, "method": "tools/call", "params": {"name": ")" + name +
                 R"(", "arguments": )" + arguments + "}}");
  }

  runtime::ProcessValues values;
  sim::SimPlatform platform;
  mcp::McpServer server;
};

std::string errorOf(const std::optional<Json>& reply) {
  if (!reply) return "<no reply>";
  if (!reply->contains("error")) return "<no error>";
  return std::to_string((*reply)["error"]["code"].get<int>()) + " " + (*reply)["error"]["message"].get<std::string>();
}

}  // namespace

TEST(McpProtocol, BadMessagesGetTheirErrors) {
  Server s;
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"{not json", "-32700 Parse error"},
      {"[1, 2]", "-32600 Invalid Request: expected one JSON object"},
      {R"({"jsonrpc": "2.0", "id": {"x": 1}, "method": "ping"})",
       "-32600 Invalid Request: the id must be a string or an integer"},
      {R"({"jsonrpc": "1.0", "id": 1, "method": "ping"})", "-32600 Invalid Request"},
      {R"({"jsonrpc": "2.0", "id": 1})", "-32600 Invalid Request: no method"},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "resources/list"})", "-32601 Method not found: resources/list"},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "tools/call", "params": []})",
       "-32602 Invalid params: params must be an object"},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "tools/call", "params": {"name": "nope"}})",
       "-32602 Invalid params: Unknown tool: nope"},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "tools/call", "params": {"name": "click", "arguments": {"app": 5}}})",
       "-32602 Invalid params: argument \"app\" of tool click must be a string"},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "tools/call", "params": {"name": "click", "arguments": {"element_index": 1.5}}})",
       "-32602 Invalid params: argument \"element_index\" of tool click must be an integer"},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "tools/call", "params": {"name": "click", "arguments": {"colour": "red"}}})",
       "-32602 Invalid params: unknown argument \"colour\" for tool click (it takes: app, element_index, x, y, "
       "click_count, mouse_button, title_contains, window_id, observe)"},
      {std::string(100, '[') + std::string(100, ']'), "-32700 Parse error: nested deeper than 64 levels"},
      // Numbers: one no double holds is a parse error that says so; an id must be a whole one.
      {R"({"jsonrpc": "2.0", "id": 1e400, "method": "ping"})", "-32700 Parse error: the number 1e400 is too large"},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "ping", "params": {"x": -1e999}})",
       "-32700 Parse error: the number -1e999 is too large"},
      {R"({"jsonrpc": "2.0", "id": 1.5, "method": "ping"})", "-32600 Invalid Request: the id must be a string or an integer"},
      {R"({"jsonrpc": "2.0", "id": 18446744073709551616, "method": "ping"})",
       "-32600 Invalid Request: the id must be a string or an integer"},
      // Integer arguments: whole numbers a client carries exactly, within the parameter's bounds.
      {R"({"jsonrpc": "2.0", "id": 1, "method": "tools/call", "params": {"name": "click", "arguments": {"element_index": 9223372036854775808}}})",
       "-32602 Invalid params: argument \"element_index\" of tool click must be from 0 to 9007199254740991"},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "tools/call", "params": {"name": "click", "arguments": {"element_index": 9007199254740992}}})",
       "-32602 Invalid params: argument \"element_index\" of tool click must be from 0 to 9007199254740991"},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "tools/call", "params": {"name": "click", "arguments": {"element_index": -9223372036854775809}}})",
       "-32602 Invalid params: argument \"element_index\" of tool click must be from 0 to 9007199254740991"},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "tools/call", "params": {"name": "click", "arguments": {"element_index": 1e300}}})",
       "-32602 Invalid params: argument \"element_index\" of tool click must be from 0 to 9007199254740991"},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "tools/call", "params": {"name": "click", "arguments": {"window_id": 4294967296}}})",
       "-32602 Invalid params: argument \"window_id\" of tool click must be from 0 to 4294967295"},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "tools/call", "params": {"name": "click", "arguments": {"click_count": 2.5}}})",
       "-32602 Invalid params: argument \"click_count\" of tool click must be an integer"},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "tools/call", "params": {"name": "scroll", "arguments": {"pages": -0.5}}})",
       "-32602 Invalid params: argument \"pages\" of tool scroll must be an integer"},
      // A version of any other type is refused like a wrong one, never a fault.
      {R"({"jsonrpc": 2, "id": 1, "method": "ping"})", "-32600 Invalid Request"},
      {R"({"jsonrpc": null, "id": 1, "method": "ping"})", "-32600 Invalid Request"},
      {R"({"jsonrpc": ["2.0"], "id": 1, "method": "ping"})", "-32600 Invalid Request"},
      {R"({"jsonrpc": {"v": "2.0"}, "id": 1, "method": "tools/call"})", "-32600 Invalid Request"},
      {R"({"id": 1, "method": "ping"})", "-32600 Invalid Request"},
      {R"({"jsonrpc": "2.0", "id": 1, "method": 7})", "-32600 Invalid Request"},
      {R"({"jsonrpc": "2.0", "id": 1, "method": "tools/call", "params": {"name": 3}})",
       "-32602 Invalid params: a tool call needs a name"},
  };
  for (const auto& [line, expected] : cases) EXPECT_EQ(errorOf(s.send(line)), expected) << line;

  // Notifications and the client's own responses get no reply.
  EXPECT_EQ(s.send(R"({"jsonrpc": "2.0", "method": "notifications/initialized"})"), std::nullopt);
  EXPECT_EQ(s.send(R"({"jsonrpc": "2.0", "method": "tools/call", "params": {"name": "click"}})"), std::nullopt);
  EXPECT_EQ(s.send(R"({"jsonrpc": "2.0", "id": 3, "result": {}})"), std::nullopt);
  EXPECT_EQ(s.send("   "), std::nullopt);
  EXPECT_EQ(s.send(R"({"jsonrpc": "2.0", "id": "p", "method": "ping"})")->dump(),
            R"({"id":"p","jsonrpc":"2.0","result":{}})");
}

TEST(McpProtocol, VersionNegotiation) {
  Server s;
  auto version = [&](const std::string& asked) {
    Json reply = *s.send(R"({"jsonrpc": "2.0", "id": 1, "method": "initialize", "params": {"protocolVersion": ")" +
                         asked + R"(", "capabilities": {}, "clientInfo": {"name": "t", "version": "1"}}})");
    return reply["result"]["protocolVersion"].get<std::string>();
  };
  EXPECT_EQ(version("2025-06-18"), "2025-06-18");
  EXPECT_EQ(version("2025-11-25"), "2025-11-25");
  EXPECT_EQ(version("2024-11-05"), "2024-11-05");
  EXPECT_EQ(version("2099-01-01"), "2025-11-25");
  // Batches only for the version that has them.
  const std::string batch = R"([{"jsonrpc": "2.0", "id": 1, "method": "ping"}, {"jsonrpc": "2.0", "method": "notifications/initialized"}, 7])";
  EXPECT_EQ(errorOf(s.send(batch)), "-32600 Invalid Request: expected one JSON object");
  EXPECT_EQ(version("2025-03-26"), "2025-03-26");
  EXPECT_EQ(s.send(batch)->dump(),
            R"([{"id":1,"jsonrpc":"2.0","result":{}},{"error":{"code":-32600,"message":"Invalid Request: expected one JSON object"},"id":null,"jsonrpc":"2.0"}])");
  EXPECT_EQ(s.send(R"([{"jsonrpc": "2.0", "method": "notifications/initialized"}])"), std::nullopt);
  EXPECT_EQ(errorOf(s.send("[]")), "-32600 Invalid Request: expected one JSON object");
  Json reply = *s.send(R"({"jsonrpc": "2.0", "id": 1, "method": "initialize", "params": {}})");
  EXPECT_EQ(reply["result"]["serverInfo"]["version"], "0.1.0");
  EXPECT_EQ(reply["result"]["capabilities"]["tools"]["listChanged"], false);
}

TEST(McpProtocol, ToolCallsRunTheCommandsWithTheirMessages) {
  Server s;
  EXPECT_EQ(errorOf(s.call("type_text", R"({"app": "P"})")),
            "-32602 Invalid params: missing required argument \"text\" for tool type_text");
  Json apps = s.call("list_apps", "{}");
  EXPECT_EQ(apps["result"]["isError"], false);
  EXPECT_EQ(apps["result"]["structuredContent"]["apps"][0]["pid"], 5);
  Json activated = s.call("activate_app", R"({"app": "p"})");
  EXPECT_EQ(activated["result"]["structuredContent"], (Json{{"app", "P"}, {"ok", true}, {"pid", 5}}));
  // A null argument counts as absent; numbers and booleans become flag text.
  Json paste = s.call("background_paste_clipboard",
                      R"({"app": "P", "screen_x": 2.5, "screen_y": 1e0, "click_target": false, "window_id": null})");
  EXPECT_EQ(paste["result"]["isError"], false) << paste.dump();
  EXPECT_EQ(paste["result"]["structuredContent"]["clicked_target"], false);
}

TEST(McpProtocol, TheStreamSurvivesHugeLinesAndEndsAtEndOfInput) {
  tavlin::testing::TempDir dir;
  std::string in = dir.file("in"), out = dir.file("out");
  std::string huge = R"({"jsonrpc": "2.0", "id": 1, "method": "ping", "params": {"pad": ")" +
                     std::string(mcp::maxMessageBytes + 10, 'x') + "\"}}\n";
  tavlin::testing::writeText(in, huge + R"({"jsonrpc": "2.0", "id": 2, "method": "ping"})" + "\n" +
                             R"({"jsonrpc": "2.0", "id": 3, "method": "ping"})");  // no final newline
  Server s;
  int input = ::open(in.c_str(), O_RDONLY), output = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  EXPECT_EQ(mcp::runMcpServer(s.values, s.platform, entry::dispatchAgentCommand, input, output), 0);
  ::close(input);
  ::close(output);
  EXPECT_EQ(tavlin::testing::readText(out),
            "{\"error\":{\"code\":-32600,\"message\":\"Request too large (over 4 MiB)\"},\"id\":null,\"jsonrpc\":\"2.0\"}\n"
            "{\"id\":2,\"jsonrpc\":\"2.0\",\"result\":{}}\n"
            "{\"id\":3,\"jsonrpc\":\"2.0\",\"result\":{}}\n");
}

namespace {

// The example desktop with the Scribe window renamed.
std::string titledDesktop(const std::string& title) {
  return tavlin::testing::replaceAll(
      tavlin::testing::readText(std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json"),
      "\"Meeting notes.txt\"", Json(title).dump());
}

// The images a reply carries, as base64.
std::vector<std::string> imagesOf(const Json& reply) {
  std::vector<std::string> images;
  for (const Json& block : reply["result"]["content"]) {
    if (block["type"] == "image") images.push_back(block["data"].get<std::string>());
  }
  return images;
}

}  // namespace

namespace {

// Width and height from a PNG's header; zero for anything shorter.
std::pair<uint32_t, uint32_t> pngPixelSize(const std::string& png) {
  if (png.size() < 24) return {0, 0};
  auto word = [&](size_t at) {
    return (uint32_t(uint8_t(png[at])) << 24) | (uint32_t(uint8_t(png[at + 1])) << 16) |
           (uint32_t(uint8_t(png[at + 2])) << 8) | uint32_t(uint8_t(png[at + 3]));
  };
  return {word(16), word(20)};
}

}  // namespace

TEST(McpScreenshots, OnlyTheSnapshotsOwnImageIsSent) {
  // A PNG elsewhere that a crafted title names: it must never reach the client, in
  // whatever format the listing is asked for.
  tavlin::testing::TempDir other;
  std::string secret = other.file("secret.png");
  tavlin::testing::writeText(secret, std::string("\x89PNG\r\n\x1a\n", 8) + "private bytes");
  for (std::string lead : {"\n", "\r\n", "\nApp=x\n"}) {
    Server s(titledDesktop("Notes" + lead + "Screenshot: " + secret));
    for (const char* format : {"plugin", "plugin-json", "json"}) {
      Json reply = s.call("get_app_state", std::string(R"({"app": "Scribe", "format": ")") + format + "\"}");
      ASSERT_EQ(reply["result"]["isError"], false) << reply.dump();
      std::vector<std::string> images = imagesOf(reply);
      ASSERT_EQ(images.size(), 1u) << format;
      std::string own = tavlin::testing::readText(s.dir.file("cache/com.tavlin.example.scribe-4242.png"));
      EXPECT_EQ(images[0], mcp::base64(own)) << format;
      EXPECT_NE(images[0], mcp::base64(tavlin::testing::readText(secret))) << format;
    }
  }

  // The cache's own file, replaced after the command wrote it by a link or by something
  // that is not a PNG, is not sent either.
  Server s(titledDesktop("Notes"));
  std::string own = s.dir.file("cache/com.tavlin.example.scribe-4242.png");
  struct Swap {
    const char* name;
    std::function<void()> make;
  };
  std::vector<Swap> swaps = {
      {"link", [&] { std::filesystem::remove(own); std::filesystem::create_symlink(secret, own); }},
      {"not a png", [&] { tavlin::testing::writeText(own, "plain text"); }},
  };
  for (const Swap& swap : swaps) {
    mcp::Dispatcher swapping = [&](runtime::CommandContext& c, const std::string& command, const cli::Flags& flags) {
      entry::dispatchAgentCommand(c, command, flags);
      swap.make();
    };
    mcp::McpServer server(s.values, s.platform, swapping);
    Json reply = *server.handleLine(
        R"({"jsonrpc": "2.0", "id": 7, "method": "tools/call", "params": {"name": "get_app_state", "arguments": {"app": "Scribe"}}})");
    EXPECT_EQ(reply["result"]["isError"], false) << swap.name;
    EXPECT_TRUE(imagesOf(reply).empty()) << swap.name;
  }
}

TEST(McpScreenshots, TakenInProcessWithTheCompanionsFallbacks) {
  // The companion is installed, but the server runs its capture code itself: no shell, no
  // second process; ScreenCaptureKit first, the screenshot tool when it fails.
  struct Case {
    const char* name;
    std::string settings;
    bool screenshotToolRuns;
    std::optional<std::pair<uint32_t, uint32_t>> pixels;  // the PNG's size; absent: no image
  };
  const std::string refused = R"("screenCaptureKit": {"shareableContent": "refused", "capture": "refused"},)";
  const std::vector<Case> cases = {
      // The screenshot tool's Retina image comes scaled to the default max_dimension.
      {"ScreenCaptureKit answers", "", false, std::pair{900u, 640u}},
      {"ScreenCaptureKit never answers", R"("screenCaptureKit": {"capture": "never"},)", true, std::pair{1568u, 1115u}},
      {"ScreenCaptureKit refused", refused, true, std::pair{1568u, 1115u}},
      {"nothing works", refused + R"("capture": {"screencapture": "fails"},)", true, std::nullopt},
  };
  for (const Case& c : cases) {
    Server s(tavlin::testing::replaceAll(titledDesktop("Notes"), "\"tavlinDesktop\": 1,",
                                         "\"tavlinDesktop\": 1, " + c.settings));
    s.values.backgroundWindowCaptureScriptURL = std::string(TAVLIN_SOURCE_ROOT) + "/bin/background-window-capture";
    Json reply = s.call("get_app_state", R"({"app": "Scribe"})");
    ASSERT_EQ(reply["result"]["isError"], false) << c.name << reply.dump();
    std::string log = s.events();
    EXPECT_EQ(log.find("background-window-capture"), std::string::npos) << c.name << log;
    EXPECT_EQ(log.find("program=/usr/sbin/screencapture") != std::string::npos, c.screenshotToolRuns) << c.name << log;
    std::vector<std::string> images = imagesOf(reply);
    if (!c.pixels) {
      EXPECT_TRUE(images.empty()) << c.name;
      EXPECT_FALSE(std::filesystem::exists(s.dir.file("cache/com.tavlin.example.scribe-4242.png"))) << c.name;
      continue;
    }
    ASSERT_EQ(images.size(), 1u) << c.name;
    std::string png = tavlin::testing::readText(s.dir.file("cache/com.tavlin.example.scribe-4242.png"));
    EXPECT_EQ(images[0], mcp::base64(png)) << c.name;
    EXPECT_EQ(pngPixelSize(png), *c.pixels) << c.name;
  }
}

TEST(McpScreenshots, SizedForModelsAndAnnotatedOnRequest) {
  // The screenshot tool's capture: 1800 × 1280 pixels.
  const std::string retina = R"("screenCaptureKit": {"capture": "never"},)";
  struct Case {
    std::string arguments;
    std::pair<uint32_t, uint32_t> pixels;
    bool annotated;
  };
  const std::vector<Case> cases = {
      {R"({"app": "Scribe"})", {1568, 1115}, false},
      {R"({"app": "Scribe", "max_dimension": 0})", {1800, 1280}, false},
      {R"({"app": "Scribe", "max_dimension": 900, "annotate": true})", {900, 640}, true},
      {R"({"app": "Scribe", "annotate": false, "format": "json"})", {1568, 1115}, false},
  };
  for (const Case& c : cases) {
    Server s(tavlin::testing::replaceAll(titledDesktop("Notes"), "\"tavlinDesktop\": 1,", "\"tavlinDesktop\": 1, " + retina));
    s.values.backgroundWindowCaptureScriptURL = std::string(TAVLIN_SOURCE_ROOT) + "/bin/background-window-capture";
    Json reply = s.call("get_app_state", c.arguments);
    ASSERT_EQ(reply["result"]["isError"], false) << c.arguments << reply.dump();
    std::vector<std::string> images = imagesOf(reply);
    ASSERT_EQ(images.size(), 1u) << c.arguments;
    std::string annotated = s.dir.file("cache/com.tavlin.example.scribe-4242.annotated.png");
    std::string sent = c.annotated ? annotated : s.dir.file("cache/com.tavlin.example.scribe-4242.png");
    std::string png = tavlin::testing::readText(sent);
    EXPECT_EQ(images[0], mcp::base64(png)) << c.arguments;
    EXPECT_EQ(pngPixelSize(png), c.pixels) << c.arguments;
    const Json& structured = reply["result"]["structuredContent"];
    EXPECT_EQ(structured.contains("annotated_screenshot_path"), c.annotated) << c.arguments;
    EXPECT_EQ(std::filesystem::exists(annotated), c.annotated) << c.arguments;
  }

  Server s(titledDesktop("Notes"));
  const std::vector<std::pair<std::string, std::string>> refused = {
      {R"({"app": "Scribe", "max_dimension": 10})", "max_dimension must be an integer from 64 to 16384, not 10"},
      {R"({"app": "Scribe", "max_dimension": 20000})",
       "Invalid arguments: argument \"max_dimension\" of tool get_app_state must be from 0 to 16384"},
      {R"({"app": "Scribe", "annotate": "yes"})",
       "Invalid arguments: argument \"annotate\" of tool get_app_state must be a boolean"},
  };
  s.send(R"({"jsonrpc": "2.0", "id": 1, "method": "initialize", "params": {"protocolVersion": "2025-11-25"}})");
  for (const auto& [arguments, message] : refused) {
    Json reply = s.call("get_app_state", arguments);
    EXPECT_EQ(reply["result"]["isError"], true) << arguments;
    EXPECT_EQ(reply["result"]["content"][0]["text"], message) << arguments;
  }
}

namespace {

// A key printed twice, in camelCase and snake_case, anywhere in the value.
std::optional<std::string> doubledKey(const Json& value) {
  if (value.is_array()) {
    for (const Json& item : value) {
      if (auto key = doubledKey(item)) return key;
    }
  }
  if (!value.is_object()) return std::nullopt;
  for (auto it = value.begin(); it != value.end(); ++it) {
    std::string snake;
    for (char c : it.key()) snake += std::isupper(static_cast<unsigned char>(c)) ? std::string("_") + char(std::tolower(c)) : std::string(1, c);
    if (snake != it.key() && (value.contains(snake) || value.contains(tavlin::testing::replaceAll(snake, "_i_d", "_id")))) {
      return it.key();
    }
    if (auto key = doubledKey(it.value())) return key;
  }
  return std::nullopt;
}

}  // namespace

TEST(McpTools, HintsOutputSchemasAndStructuredResultsWithEachKeyOnce) {
  Server s(titledDesktop("Notes"));
  struct Hints {
    bool readOnly, destructive, idempotent;
  };
  const std::map<std::string, Hints> expected = {
      {"list_apps", {true, false, true}},          {"get_app_state", {true, false, true}},
      {"inspect_open_panel", {true, false, true}}, {"activate_app", {false, false, true}},
      {"click", {false, true, false}},             {"type_text", {false, true, false}},
      {"press_key", {false, true, false}},         {"drag", {false, true, false}},
      {"set_value", {false, true, true}},          {"background_paste_clipboard", {false, true, false}},
      {"perform_secondary_action", {false, true, false}}, {"choose_open_panel_path", {false, true, false}},
      {"choose_open_panel_bundle", {false, true, false}}, {"scroll", {false, false, false}},
      {"find_elements", {true, false, true}},      {"wait_for", {true, false, true}},
      {"list_menus", {true, false, true}},         {"press_menu", {false, true, false}},
      {"get_clipboard", {true, false, true}},      {"set_clipboard", {false, true, true}},
      {"doctor", {true, false, true}},
  };
  Json tools = (*s.send(R"({"jsonrpc": "2.0", "id": 1, "method": "tools/list"})"))["result"]["tools"];
  ASSERT_EQ(tools.size(), expected.size());
  for (const Json& tool : tools) {
    std::string name = tool["name"];
    ASSERT_TRUE(expected.contains(name)) << name;
    const Hints& h = expected.at(name);
    EXPECT_EQ(tool["annotations"]["readOnlyHint"], h.readOnly) << name;
    EXPECT_EQ(tool["annotations"]["destructiveHint"], h.destructive) << name;
    EXPECT_EQ(tool["annotations"]["idempotentHint"], h.idempotent) << name;
    EXPECT_EQ(tool["annotations"]["openWorldHint"], false) << name;
    EXPECT_EQ(tool["outputSchema"]["type"], "object") << name;
    // get_app_state's covers both its envelope (snake_case) and its raw snapshot (camelCase).
    if (name != "get_app_state") {
      EXPECT_FALSE(doubledKey(tool["outputSchema"]["properties"]).has_value()) << name;
    }
  }

  // Every result is structured, from the command's own value, with each key once; the
  // text block carries the same JSON, except the listing, which stays text.
  struct Call {
    const char* tool;
    const char* arguments;
    std::vector<std::string> keys;  // some keys the structured result has
  };
  const std::vector<Call> calls = {
      {"get_app_state", R"({"app": "Scribe"})", {"app_state", "window_id", "screenshot_path", "cache_path"}},
      {"get_app_state", R"({"app": "Scribe", "format": "plugin-json"})", {"app_state", "window_title"}},
      {"get_app_state", R"({"app": "Scribe", "format": "json"})", {"elements", "cachePath"}},
      {"list_apps", "{}", {"apps"}},
      {"click", R"({"app": "Scribe", "element_index": 6})", {"screen_point", "element_index", "element"}},
      {"click", R"({"app": "Scribe", "x": 10, "y": 10})", {"screen_point", "image_point"}},
      {"type_text", R"({"app": "Scribe", "text": "hi"})", {"typed_length"}},
      {"background_paste_clipboard", R"({"app": "Scribe", "screen_x": 400, "screen_y": 300})",
       {"screen_point", "frontmost_before", "window"}},
      {"list_menus", R"({"app": "Scribe", "path": "format", "depth": 2})", {"items", "path", "truncated"}},
      {"press_menu", R"({"app": "Scribe", "path": "File > Save"})", {"path", "title", "action"}},
      {"set_clipboard", R"({"text": "a/b"})", {"length", "change_count", "types"}},
      {"get_clipboard", "{}", {"text", "change_count", "types"}},
      {"doctor", "{}", {"ok", "checks"}},
  };
  for (const Call& c : calls) {
    Json result = s.call(c.tool, c.arguments)["result"];
    ASSERT_EQ(result["isError"], false) << c.tool << result.dump();
    const Json& structured = result["structuredContent"];
    ASSERT_TRUE(structured.is_object()) << c.tool << c.arguments;
    for (const auto& key : c.keys) EXPECT_TRUE(structured.contains(key)) << c.tool << " " << key;
    EXPECT_EQ(doubledKey(structured).value_or(""), "") << c.tool << c.arguments;
    std::string text = result["content"][0]["text"];
    if (text.starts_with("Computer AI Use state")) {
      EXPECT_EQ(structured["app_state"], text);
    } else {
      Json parsed = Json::parse(text);
      if (std::string(c.tool) == "list_apps") parsed = Json{{"apps", parsed}};
      EXPECT_EQ(parsed, structured) << c.tool;
    }
  }
}

namespace {

// Runs the server on pipes, so a test can talk to it while a call is in progress.
struct LiveServer {
  int toServer[2] = {-1, -1}, fromServer[2] = {-1, -1};
  Server s;
  std::thread thread;
  // On `platform` when given, else on the small desktop.
  explicit LiveServer(mcp::Dispatcher dispatch, platform::Platform* platform = nullptr) {
    EXPECT_EQ(::pipe(toServer), 0);
    EXPECT_EQ(::pipe(fromServer), 0);
    thread = std::thread([this, dispatch, platform] {
      mcp::runMcpServer(s.values, platform ? *platform : s.platform, dispatch, toServer[0], fromServer[1]);
      ::close(fromServer[1]);
    });
  }
  ~LiveServer() {
    if (toServer[1] >= 0) ::close(toServer[1]);
    thread.join();
    ::close(toServer[0]);
    ::close(fromServer[0]);
  }
  void send(const std::string& line) { ASSERT_TRUE(runtime::writeAll(toServer[1], line + "\n")); }
  void close() {
    ::close(toServer[1]);
    toServer[1] = -1;
  }
  // The next reply line.
  Json next() {
    std::string line;
    char c;
    while (::read(fromServer[0], &c, 1) == 1 && c != '\n') line += c;
    return Json::parse(line, nullptr, false);
  }
};

}  // namespace

TEST(McpCancellation, ACancelledCallEndsAtItsNextWaitAndPingsAreAnsweredMeanwhile) {
  std::atomic<bool> started{false};
  std::atomic<int> eventsAfterCancel{0};
  // A command that would wait for ever, one poll at a time.
  mcp::Dispatcher waiting = [&](runtime::CommandContext& c, const std::string&, const cli::Flags&) {
    started = true;
    for (;;) c.platform.clock().sleep(0.12);
  };
  {
    LiveServer live(waiting);
    live.send(R"({"jsonrpc": "2.0", "id": 41, "method": "tools/call", "params": {"name": "list_apps"}})");
    while (!started) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    live.send(R"({"jsonrpc": "2.0", "id": 42, "method": "ping"})");
    EXPECT_EQ(live.next().dump(), R"({"id":42,"jsonrpc":"2.0","result":{}})");
    // Another id is not this call; the right one ends it.
    live.send(R"({"jsonrpc": "2.0", "method": "notifications/cancelled", "params": {"requestId": 40}})");
    live.send(R"({"jsonrpc": "2.0", "method": "notifications/cancelled", "params": {"requestId": 41, "reason": "x"}})");
    Json ended = live.next();
    EXPECT_EQ(ended["id"], 41);
    EXPECT_EQ(ended["result"]["isError"], true);
    EXPECT_EQ(ended["result"]["content"][0]["text"], mcp::cancelledMessage);
    // The server goes on, and its next call is not cancelled.
    live.send(R"({"jsonrpc": "2.0", "id": 43, "method": "ping"})");
    EXPECT_EQ(live.next()["id"], 43);
  }

  // A call cancelled while it waits its turn never starts; once cancelled, a call posts
  // no further event.
  started = false;
  mcp::Dispatcher acting = [&](runtime::CommandContext& c, const std::string& command, const cli::Flags&) {
    if (command == "list-apps") {
      started = true;
      for (;;) c.platform.clock().sleep(0.12);
    }
    auto event = c.platform.events().createKeyboardEvent(0, true);
    c.platform.events().postToPid(5, *event);
    ++eventsAfterCancel;
  };
  LiveServer live(acting);
  live.send(R"({"jsonrpc": "2.0", "id": 1, "method": "tools/call", "params": {"name": "list_apps"}})");
  while (!started) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  live.send(R"({"jsonrpc": "2.0", "id": 2, "method": "tools/call", "params": {"name": "press_key", "arguments": {"app": "P", "key": "a"}}})");
  live.send(R"({"jsonrpc": "2.0", "method": "notifications/cancelled", "params": {"requestId": 2}})");
  live.send(R"({"jsonrpc": "2.0", "method": "notifications/cancelled", "params": {"requestId": 1}})");
  EXPECT_EQ(live.next()["id"], 1);
  Json second = live.next();
  EXPECT_EQ(second["id"], 2);
  EXPECT_EQ(second["result"]["content"][0]["text"], mcp::cancelledMessage);
  EXPECT_EQ(eventsAfterCancel, 0);
  live.close();
}

TEST(McpCancellation, WaitsOutsideTheClockEndToo) {
  // Another process holds the desktop's lock (the call would wait a minute for it), or the
  // call waits for a child process: cancelled, either ends at once.
  tavlin::testing::TempDir dir;
  sim::SimSettings settings;
  settings.desktopPath = dir.file("desktop.json");
  settings.homeDirectory = dir.path();
  settings.lockWaitSeconds = 60;
  tavlin::testing::writeText(*settings.desktopPath, smallDesktop);
  int holder = ::open((*settings.desktopPath + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(::flock(holder, LOCK_EX), 0);
  sim::SimPlatform platform(settings);
  std::atomic<bool> started{false};
  std::atomic<int> calls{0};
  mcp::Dispatcher waiting = [&](runtime::CommandContext& c, const std::string& command, const cli::Flags& flags) {
    started = true;
    if (calls++ == 0) return entry::dispatchAgentCommand(c, command, flags);
    platform::ProcessRequest sleeping;
    sleeping.executable = "/bin/sleep";
    sleeping.arguments = {"60"};
    sleeping.timeoutSeconds = 120;
    c.platform.processes().run(sleeping);
  };
  LiveServer live(waiting, &platform);
  for (const char* waitingFor : {"the lock", "a child"}) {
    started = false;
    live.send(R"({"jsonrpc": "2.0", "id": 44, "method": "tools/call", "params": {"name": "list_apps"}})");
    while (!started) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // well into its wait
    auto start = std::chrono::steady_clock::now();
    live.send(R"({"jsonrpc": "2.0", "method": "notifications/cancelled", "params": {"requestId": 44}})");
    Json ended = live.next();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << waitingFor;
    EXPECT_EQ(ended["result"]["content"][0]["text"], mcp::cancelledMessage) << waitingFor;
  }
  live.close();
  ::close(holder);
}

TEST(McpSnapshotBinding, IndicesMeanTheSnapshottedWindowAndResultsNameTheElement) {
  Server s(R"({"tavlinDesktop": 1, "frontmostPid": 5, "apps": [{"pid": 5, "name": "P", "ui": {
    "role": "AXApplication", "attributes": {"AXFocusedWindow": {"ref": "main"}, "AXMainWindow": {"ref": "main"}},
    "children": [
      {"id": "main", "role": "AXWindow", "title": "Main", "position": [0, 30], "size": [400, 300], "children": [
        {"role": "AXButton", "title": "Close main", "position": [10, 40], "size": [14, 14], "actions": ["AXPress"]}]},
      {"id": "second", "role": "AXWindow", "title": "Second", "position": [500, 30], "size": [400, 300], "children": [
        {"role": "AXButton", "title": "Close second", "position": [510, 40], "size": [14, 14], "actions": ["AXPress"]}]}]}}],
    "windows": [{"number": 11, "pid": 5, "bounds": [0, 30, 400, 300], "name": "Main"},
                {"number": 12, "pid": 5, "bounds": [500, 30, 400, 300], "name": "Second"}]})");
  // No snapshot yet: refused.
  Json none = s.call("perform_secondary_action", R"({"app": "P", "element_index": 1, "action": "AXPress"})");
  EXPECT_EQ(none["result"]["isError"], true);
  ASSERT_EQ(s.call("get_app_state", R"({"app": "P", "title_contains": "second"})")["result"]["isError"], false);
  Json pressed = s.call("perform_secondary_action", R"({"app": "P", "element_index": 1, "action": "AXPress"})");
  ASSERT_EQ(pressed["result"]["isError"], false) << pressed.dump();
  EXPECT_EQ(pressed["result"]["structuredContent"]["element"],
            (Json{{"index", 1}, {"role", "AXButton"}, {"label", "Close second"}}));
  Json clicked = s.call("click", R"({"app": "P", "element_index": 1})");
  EXPECT_EQ(clicked["result"]["structuredContent"]["element"]["label"], "Close second") << clicked.dump();
  // An index the snapshot never had.
  Json missing = s.call("click", R"({"app": "P", "element_index": 9})");
  EXPECT_EQ(missing["result"]["isError"], true);
  EXPECT_EQ(missing["result"]["content"][0]["text"],
            "Element index 9 was not in the last get_app_state snapshot. Call get_app_state again and use its indices.");
}

TEST(McpArguments, EveryMistakeIsCaughtBeforeTheCommandInTheToolsOwnWords) {
  Server s;
  ASSERT_TRUE(s.send(R"({"jsonrpc": "2.0", "id": 0, "method": "initialize", "params": {"protocolVersion": "2025-11-25"}})"));
  const std::vector<std::pair<std::pair<std::string, std::string>, std::string>> cases = {
      {{"press_key", R"({"app": "P", "key": "opt+s"})"}, "Unknown modifier \"opt\" in \"opt+s\". Modifiers: alt, cmd, command, control, ctrl, meta, option, shift, super."},
      {{"press_key", R"({"app": "P", "key": "ctl+s"})"}, "Unknown modifier \"ctl\""},
      {{"press_key", R"({"app": "P", "key": "hyper+q"})"}, "Unknown modifier \"hyper\""},
      {{"press_key", R"({"app": "P", "key": "cmd+foo"})"}, "Unsupported key \"foo\" in \"cmd+foo\". Keys: "},
      {{"press_key", R"({"app": "P", "key": "cmd+é"})"}, "Unsupported key \"é\""},
      {{"press_key", R"({"app": "P", "key": "+"})"}, "The key combination is empty."},
      {{"press_key", R"({"app": "P", "key": ""})"}, "argument \"key\" of tool press_key must not be empty"},
      {{"click", R"({"app": "P", "x": 1, "y": 1, "mouse_button": "Right"})"},
       "argument \"mouse_button\" of tool click must be one of: left, right, middle"},
      {{"click", R"({"app": "P", "element_index": -1})"}, "argument \"element_index\" of tool click must be from 0 to 9007199254740991"},
      {{"click", R"({"app": "P", "x": 1, "y": 1, "click_count": 101})"},
       "argument \"click_count\" of tool click must be from 1 to 100"},
      {{"click", R"({"app": "", "x": 1, "y": 1})"}, "argument \"app\" of tool click must not be empty"},
      {{"scroll", R"({"app": "P", "element_index": 1, "direction": "sideways"})"},
       "argument \"direction\" of tool scroll must be one of: up, down, left, right"},
      {{"choose_open_panel_path", R"({"app": "P", "path": "relative/file"})"},
       "argument \"path\" of tool choose_open_panel_path must be an absolute path (starting with / or ~)"},
      {{"inspect_open_panel", R"({"app": "P", "timeout": 1e6})"},
       "argument \"timeout\" of tool inspect_open_panel must be from 0 to 600"},
      {{"type_text", R"({"app": "P"})"}, "missing required argument \"text\" for tool type_text"},
  };
  for (const auto& [call, expected] : cases) {
    Json reply = s.call(call.first, call.second);
    ASSERT_TRUE(reply.contains("result")) << reply.dump();
    EXPECT_EQ(reply["result"]["isError"], true) << call.second;
    std::string text = reply["result"]["content"][0]["text"];
    EXPECT_TRUE(text.starts_with("Invalid arguments: ")) << text;
    EXPECT_NE(text.find(expected), std::string::npos) << text;
  }
  // Nothing reached the desktop: no key went down, no click was made.
  EXPECT_TRUE(s.platform.desktop().pendingLogLines().empty());

  // The commands' own messages speak argument names too.
  Json reply = s.call("click", R"({"app": "P"})");
  EXPECT_EQ(reply["result"]["isError"], true);
  EXPECT_EQ(reply["result"]["content"][0]["text"], "Missing required flag x");
  // The schema publishes the same bounds.
  Json tools = (*s.send(R"({"jsonrpc": "2.0", "id": 2, "method": "tools/list"})"))["result"]["tools"];
  for (const Json& tool : tools) {
    if (tool["name"] != "click") continue;
    EXPECT_EQ(tool["inputSchema"]["properties"]["click_count"]["maximum"], 100);
    EXPECT_EQ(tool["inputSchema"]["properties"]["element_index"]["minimum"], 0);
    EXPECT_EQ(tool["inputSchema"]["properties"]["app"]["minLength"], 1);
  }
}

TEST(McpProtocol, Base64) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {std::string("\xff\x00\x10", 3), "/wAQ"}};
  for (const auto& [bytes, text] : cases) EXPECT_EQ(mcp::base64(bytes), text);
}

TEST(McpTools, ADoctorThatFindsFaultsIsAnErrorThatStillCarriesItsReport) {
  Server s(R"({"tavlinDesktop": 1, "accessibilityTrusted": false, "systemVersion": "12.0"})");
  Json result = s.call("doctor", "{}")["result"];
  EXPECT_EQ(result["isError"], true) << result.dump();
  const Json& report = result["structuredContent"];
  EXPECT_EQ(report["ok"], false);
  ASSERT_EQ(report["checks"].size(), 6u);
  EXPECT_EQ(report["checks"][0]["name"], "accessibility");
  EXPECT_EQ(report["checks"][0]["status"], "failed");
  EXPECT_EQ(report["checks"][5]["status"], "failed");
  EXPECT_EQ(Json::parse(result["content"][0]["text"].get<std::string>()), report);
  EXPECT_EQ(result["content"][1]["text"], "Needed checks failed: accessibility, macos-version");
  // Nothing asked, nothing posted.
  EXPECT_FALSE(std::filesystem::exists(s.dir.file("events.log")));
}
