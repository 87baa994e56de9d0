#pragma once
// Resolving an --app query (name, bundle identifier or "pid:<PID>") to one running
// application, bringing it forward with verification, and the list-apps and
// activate-app commands.
#include <cstdint>
#include <optional>
#include <string>

#include "cli/arguments.h"
#include "runtime/command_context.h"
#include "platform/workspace.h"

namespace tavlin::apps {

// Absent when the query is not a "pid:" selector (any letter case, surrounding
// whitespace ignored); throws ToolError for a selector without a positive decimal id.
std::optional<int32_t> exactPID(const std::string& query);

int64_t scoreAppMatch(const platform::RunningApplication& app, const std::string& query,
                      std::optional<int32_t> frontmostPID, int64_t exactNameFirstScore);

platform::RunningApplication resolveApp(const std::string& query, platform::Workspace& workspace,
                                        int64_t exactNameFirstScore);

// Unhides, asks for activation and polls the run loop in 0.05 s steps for up to 2.0 s
// until the application is frontmost. Throws ToolError otherwise.
void activateApp(const platform::RunningApplication& app, platform::Platform& platform);

void handleListApps(runtime::CommandContext& context, const cli::Flags& flags);
void handleActivateApp(runtime::CommandContext& context, const cli::Flags& flags);

}  // namespace tavlin::apps
