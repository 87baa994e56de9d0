#pragma once
// The MCP server mode ("__mcp", bin/tavlin-mcp): every agent command as a tool of the
// Model Context Protocol, over standard input and output (JSON-RPC 2.0, one message
// per line; protocol versions 2024-11-05, 2025-03-26 (with JSON-RPC batches),
// 2025-06-18 and 2025-11-25).
//
// A tool call runs the same handler as the command line, with its arguments mapped
// onto the flag dictionary, so behaviour and messages are the same. Results are also
// structured (each key once) to each tool's output schema, and tools carry hints
// (read-only, destructive, idempotent). get_app_state's screenshot is taken in this
// process with the companion's capture code rather than by starting the companion. The call's output
// goes into its result, never to standard output, which carries protocol messages only.
// Each call starts from fresh state and ends by recording what it changed and letting
// go of it (a simulated desktop is written back and unlocked), as a separate command
// process would. Argument types are checked against the tool's schema (a wrong type or
// an unknown argument is a JSON-RPC "invalid params" error); a missing required
// argument reaches the command, which reports it as it always does. A failed command
// is a tool result with "isError" true and the command's message.
//
// Limits: a message line is at most 4 MiB (a longer one is refused and skipped); JSON
// nesting at most 64 levels. End of input ends the server with status 0 once the
// messages already read are answered.
//
// Messages are read while a call runs: "ping" is answered at once, and
// "notifications/cancelled" naming the call in progress ends it at its next wait,
// event or accessibility action with an error result; every other message is handled
// in turn after it.
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "cli/arguments.h"
#include "cli/json_output.h"
#include "mcp/cancellable_platform.h"
#include "platform/platform.h"
#include "runtime/command_context.h"

namespace tavlin::mcp {

inline constexpr size_t maxMessageBytes = size_t{4} << 20;
inline constexpr const char* newestProtocolVersion = "2025-11-25";
// get_app_state's screenshot size when the call gives no max_dimension: the longer side
// in pixels that clients' image limits and models' own downscaling leave untouched.
inline constexpr int defaultMaxDimension = 1568;

// Protocol versions from which a wrong or missing tool argument is a tool result with
// "isError" (a message the model can act on) rather than a JSON-RPC error.
inline constexpr const char* argumentErrorsAsResultsFrom = "2025-11-25";

// Runs one agent command (the entry's dispatch table).
using Dispatcher = std::function<void(runtime::CommandContext&, const std::string& command, const cli::Flags&)>;

struct ToolParameter {
  std::string name;  // the property name in the tool's arguments
  std::string flag;  // the command-line flag it becomes
  std::string type;  // JSON Schema type: "string", "integer", "number", "boolean"
  std::string description;
  bool required = false;
  std::vector<std::string> allowed;  // a fixed set of values, when the command has one
  // Bounds the command enforces, checked before it runs and published in the schema.
  std::optional<double> minimum = std::nullopt, maximum = std::nullopt;
  std::optional<int> minLength = std::nullopt;
  std::optional<std::string> pattern = std::nullopt;  // ECMA-262, as JSON Schema has it
};

struct ToolEntry {
  std::string name;     // snake_case
  std::string command;  // the command word
  std::string title;
  std::string description;
  std::vector<ToolParameter> parameters;
};

const std::vector<ToolEntry>& toolEntries();
// The tool's entry in "tools/list": name, title, description and input schema.
cli::Json toolDescription(const ToolEntry& tool);

class McpServer {
 public:
  McpServer(const runtime::ProcessValues& values, platform::Platform& platform, Dispatcher dispatch);
  // The reply to one message line; absent for a notification (or a response). Never
  // throws: whatever a message holds, the server goes on.
  std::optional<cli::Json> handleLine(const std::string& line);
  // For the reader while another message is being handled (safe from another thread):
  // a cancellation is noted (and cancels the call in progress when it names it) and a
  // ping is answered at once. True when the line was dealt with; `reply` then holds
  // the answer, if any.
  bool handleDuringCall(const std::string& line, std::optional<cli::Json>& reply);

 private:
  std::optional<cli::Json> handleMessage(const std::string& line);
  std::optional<cli::Json> handleObject(cli::Json message);
  cli::Json handleRequest(const cli::Json& message);
  cli::Json callTool(const cli::Json& params);
  // Records a notifications/cancelled; cancels the call in progress when it is the one.
  void noteCancellation(const cli::Json& message);
  // get_app_state's window screenshot, taken by the companion's capture code in this process.
  bool captureInProcess(const runtime::WindowCaptureRequest& request);

  const runtime::ProcessValues& values_;
  CancellablePlatform platform_;
  Dispatcher dispatch_;
  std::string protocol_;  // the version agreed at initialize

  std::mutex mutex_;                  // guards the two below
  std::optional<std::string> current_;  // the id (as JSON text) of the request being handled
  std::deque<std::string> cancelled_;   // ids cancelled before their request was handled
};

// Reads messages from `input` until its end, writes replies to `output`. Returns 0.
int runMcpServer(const runtime::ProcessValues& values, platform::Platform& platform, Dispatcher dispatch,
                 int input = 0, int output = 1);

// Standard base64 of bytes (image content).
std::string base64(std::string_view bytes);

}  // namespace tavlin::mcp
