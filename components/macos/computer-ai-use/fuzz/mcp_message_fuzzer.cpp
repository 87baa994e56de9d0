// The MCP server's message handler: any bytes, one message per line, against a small
// simulated desktop with the real commands behind the tools. No message may end the
// server, and every reply is one well-formed JSON-RPC response.
#include <cstdlib>
#include <stdexcept>

#include <unistd.h>

#include "entry/agent_tool.h"
#include "entry/process_values.h"
#include "fuzz/fuzz_support.h"
#include "mcp/mcp_server.h"
#include "platform/sim/sim_platform.h"

namespace {

const char* desktop = R"({"tavlinDesktop": 1, "frontmostPid": 5,
  "capture": {"companion": "fails", "screencapture": "fails"}, "apps": [
  {"pid": 5, "name": "P", "bundleIdentifier": "com.example.p", "ui": {"role": "AXApplication",
    "attributes": {"AXFocusedWindow": {"ref": "w"}}, "children": [
      {"id": "w", "role": "AXWindow", "title": "W", "position": [0, 0], "size": [200, 100], "children": [
        {"role": "AXButton", "title": "OK", "position": [10, 10], "size": [40, 20], "actions": ["AXPress"]},
        {"role": "AXTextField", "value": "x", "position": [60, 10], "size": [80, 20], "settable": ["AXValue"]}]}]}}],
  "windows": [{"number": 11, "pid": 5, "bounds": [0, 0, 200, 100], "name": "W"}]})";

const std::string& scratch() {
  static const std::string folder = [] {
    char name[] = "/tmp/tavlin-mcp-fuzz-XXXXXX";
    if (!::mkdtemp(name)) std::abort();
    return std::string(name);
  }();
  return folder;
}

void require(bool condition) {
  if (!condition) std::abort();
}

void requireResponse(const tavlin::cli::Json& reply) {
  require(reply.is_object() && reply.contains("jsonrpc") && reply["jsonrpc"] == "2.0" && reply.contains("id"));
  require(reply.contains("result") != reply.contains("error"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tavlin;
  static const nlohmann::ordered_json document = nlohmann::ordered_json::parse(desktop);
  // A fresh desktop for every input, so a run does not depend on the ones before it.
  sim::SimPlatform platform(sim::SimDesktop::fromJson(document, scratch() + "/desktop.json", ""));
  static const runtime::ProcessValues values = [&] {
    runtime::ProcessValues v = entry::makeProcessValues({}, platform.workspace(), {std::nullopt, std::nullopt, "f"});
    v.cacheDirectoryURL = scratch() + "/cache";
    v.backgroundWindowCaptureScriptURL.clear();
    return v;
  }();
  // The real commands, with the Open panel's waits kept short: a long wait is many
  // polls of the same tree, which finds nothing new and would slow every run.
  mcp::McpServer server(values, platform, [](runtime::CommandContext& c, const std::string& command, cli::Flags flags) {
    if (auto t = flags.find("--timeout"); t != flags.end()) {
      if (auto seconds = cli::parseDouble(t->second); seconds && *seconds > 2) t->second = "2";
    }
    entry::dispatchAgentCommand(c, command, flags);
  });

  std::string input = fuzz::text(data, size);
  size_t start = 0;
  while (start <= input.size()) {
    size_t end = input.find('\n', start);
    if (end == std::string::npos) end = input.size();
    std::optional<cli::Json> reply = server.handleLine(input.substr(start, end - start));
    if (reply) {
      if (reply->is_array()) {  // a batch's replies, never empty
        require(!reply->empty());
        for (const cli::Json& one : *reply) requireResponse(one);
      } else {
        requireResponse(*reply);
      }
      (void)reply->dump(-1, ' ', false, cli::Json::error_handler_t::replace);
    }
    start = end + 1;
  }
  return 0;
}
