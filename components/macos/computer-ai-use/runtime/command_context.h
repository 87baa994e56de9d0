#pragma once
#include <optional>
#include <string>

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
};

// What a command handler works with: the start-up values, the platform and where its
// results go.
struct CommandContext {
  const ProcessValues& values;
  platform::Platform& platform;
  Output& output;
  CommandResult result = {};
};

}  // namespace tavlin::runtime
