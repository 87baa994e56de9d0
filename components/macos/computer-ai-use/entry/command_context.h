#pragma once
#include "cli/arguments.h"
#include "entry/process_values.h"
#include "platform/platform.h"

namespace tavlin::entry {

// What a command handler works with: the start-up values and the platform.
struct CommandContext {
  const ProcessValues& values;
  platform::Platform& platform;
};

}  // namespace tavlin::entry
