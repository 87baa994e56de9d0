#pragma once
#include "entry/command_context.h"

namespace tavlin::entry {

// Parses the agent command line, runs its handler and reports any failure on
// standard error (the single catch). Returns the exit status: 0 or 1.
int runAgentTool(CommandContext& context);

}  // namespace tavlin::entry
