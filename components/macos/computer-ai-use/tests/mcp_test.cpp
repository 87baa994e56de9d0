// The MCP server's protocol handling: every kind of bad message gets its JSON-RPC answer
// and the server goes on.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include "entry/agent_tool.h"
#include "mcp/mcp_server.h"
#include "platform/sim/sim_platform.h"
#include "test_support.h"

using namespace tavlin;
using cli::Json;

namespace {

struct Server {
  tavlin::testing::TempDir dir;  // where each call writes the desktop back
  Server()
      : platform(sim::SimDesktop::fromJson(nlohmann::ordered_json::parse(R"({"tavlinDesktop": 1, "frontmostPid": 5,
          "apps": [{"pid": 5, "name": "P", "ui": {"role": "AXApplication", "children": [
            {"role": "AXWindow", "title": "W", "position": [0, 0], "size": [10, 10]}]}}]})"),
                                           dir.file("desktop.json"), "")),
        server(values, platform, entry::dispatchAgentCommand) {
    values.traversalAttributes = {"AXChildren", "AXWindows", "AXMainWindow", "AXFocusedWindow",
                                  "AXChildrenInNavigationOrder"};
    values.exactNameFirstScore = 1000000;
    values.tavlinRootURL = TAVLIN_SOURCE_ROOT;
    values.cacheDirectoryURL = dir.file("cache");
  }
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
       "-32602 Invalid params: unknown argument \"colour\" for tool click"},
      {std::string(100, '[') + std::string(100, ']'), "-32700 Parse error: nested too deeply"},
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
  EXPECT_EQ(version("2024-11-05"), "2025-11-25");
  Json reply = *s.send(R"({"jsonrpc": "2.0", "id": 1, "method": "initialize", "params": {}})");
  EXPECT_EQ(reply["result"]["serverInfo"]["version"], "0.1.0");
  EXPECT_EQ(reply["result"]["capabilities"]["tools"]["listChanged"], false);
}

TEST(McpProtocol, ToolCallsRunTheCommandsWithTheirMessages) {
  Server s;
  Json missing = s.call("type_text", R"({"app": "P"})");
  EXPECT_EQ(missing["result"]["isError"], true);
  EXPECT_EQ(missing["result"]["content"][0]["text"], "Missing required flag --text");
  EXPECT_EQ(s.call("activate_app", "{}")["result"]["content"][0]["text"], "Missing required flag --app");
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

TEST(McpProtocol, Base64) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {std::string("\xff\x00\x10", 3), "/wAQ"}};
  for (const auto& [bytes, text] : cases) EXPECT_EQ(mcp::base64(bytes), text);
}
