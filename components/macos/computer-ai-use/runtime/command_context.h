#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "platform/platform.h"
#include "runtime/output.h"
#include "runtime/process_values.h"

namespace tavlin::runtime {

// What a command hands its caller besides the text it prints: values a server mode
// reads directly, so nothing is ever parsed back out of printed text (where a window
// title or a file name could forge it).
struct CommandResult {
  // The screenshot this command itself wrote into the state cache.
  std::optional<std::string> screenshotPath;
  // The element an index action acted on.
  struct Element {
    int64_t index = 0;
    std::string role;
    std::optional<std::string> label;
  };
  std::optional<Element> actedOn;
  // The result as a value, for a command whose printed form is not that JSON (a
  // server mode gives it as structured content).
  std::optional<nlohmann::json> value;
  // The value stands even when the command then fails (a diagnosis that found faults):
  // a server mode gives it with the error instead of the message alone.
  bool valueStandsOnFailure = false;
};

// One window screenshot to take: the window by its number when known, else the
// application's window by pid, written as a PNG to `path`.
struct WindowCaptureRequest {
  std::optional<uint32_t> windowID;
  int32_t pid = 0;
  std::string path;
};
// Takes it in the caller's own process; true when a whole image is at `path`.
using WindowCapturer = std::function<bool(const WindowCaptureRequest&)>;

// What a command handler works with: the start-up values, the platform and where its
// results go.
struct CommandContext {
  const ProcessValues& values;
  platform::Platform& platform;
  Output& output;
  CommandResult result = {};
  // A long-lived caller (the MCP server) captures in process instead of starting the
  // companion capture tool for every snapshot; the command line leaves it empty.
  WindowCapturer captureWindow = {};
};

}  // namespace tavlin::runtime
