#pragma once
// The status item's three services: a single-instance lock, the installed release
// version, and the updater runner (bin/tavlin-updater with a time limit and a JSON
// result).
#include <optional>
#include <string>
#include <vector>

#include "cli/json_output.h"
#include "platform/platform.h"

namespace tavlin::statusitem {

// <home>/Library/Application Support/Tavlin/runtime/status-item.lock, locked (lockf's
// test-and-lock) for the rest of the process: the descriptor is never closed, so the
// system releases the lock when the process ends, however it ends. Throws ToolError
// "Tavlin status item is already running" when another process holds it.
void acquireTavlinStatusItemLock(const std::string& homeDirectory);

// The "version:" line of <root>/RELEASE_BUILD.txt (the key in any letter case), else
// "0.0.0-dev".
std::string tavlinReleaseVersion(const std::string& installRoot);

// The version a RELEASE_BUILD.txt text names, as tavlinReleaseVersion reads it.
std::string releaseVersionFromText(const std::string& text);
// The last line of an updater's output that is a JSON object.
std::optional<cli::Json> updaterResultFromOutput(const std::string& output);

// Runs "/bin/sh <root>/bin/tavlin-updater COMMAND --json [--platform macos
// --install-root ROOT --current-version V] ARGS..." with TAVLIN_INSTALL_ROOT set, for
// at most `timeout` seconds, and returns the last JSON object line of its output.
// Throws ToolError: "tavlin-updater is missing or not executable: <path>",
// "tavlin-updater timed out", "tavlin-updater returned no structured result", or
// "updater exited with status N: <standard error>" (a failure without an "error" key).
cli::Json tavlinUpdaterResult(platform::Platform& platform, const std::string& installRoot,
                              const std::string& command, const std::vector<std::string>& arguments,
                              double timeout);

}  // namespace tavlin::statusitem
