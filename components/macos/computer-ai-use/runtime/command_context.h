#pragma once
#include "platform/platform.h"
#include "runtime/output.h"
#include "runtime/process_values.h"

namespace tavlin::runtime {

// What a command handler works with: the start-up values, the platform and where its
// results go.
struct CommandContext {
  const ProcessValues& values;
  platform::Platform& platform;
  Output& output;
};

}  // namespace tavlin::runtime
