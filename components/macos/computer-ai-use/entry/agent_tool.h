#pragma once
#include "platform/platform.h"
#include "cli/arguments.h"
#include "runtime/command_context.h"
#include "runtime/output.h"
#include "runtime/process_values.h"

namespace tavlin::entry {

// Parses the agent command line, runs its handler, records its effects
// (Platform::commit) and only then writes its result to descriptor 1; any failure is
// one line on descriptor 2 (the single catch). Returns the exit status: 0 or 1. A
// command whose effect could not be recorded, or whose result could not be written,
// exits 1.
int runAgentTool(const runtime::ProcessValues& values, platform::Platform& platform);

// Runs the handler of one command word (either spelling) with its flags; throws
// ToolError (the whole usage text for an unknown word) like the handler does.
void dispatchAgentCommand(runtime::CommandContext& context, const std::string& command, const cli::Flags& flags);

// What every tool mode does last: records the effects (Platform::commit), then writes
// the collected output. A result whose effects could not be recorded is not shown and
// the status becomes 1; so does a result that cannot be written. Returns the status.
int recordAndDeliver(platform::Platform& platform, runtime::BufferedOutput& output, int status);

}  // namespace tavlin::entry
