#pragma once
// `doctor`: what stands between an agent and a working tool on this machine, one check
// per line (or one JSON object with --json). It only looks: it prompts for nothing,
// creates and changes no file or folder, posts no event and activates nothing.
//
// Checks, in order: accessibility, screen-recording, install-root, cache-folder,
// code-signature, macos-version. A check is ok, warning or failed; only the needed ones
// (accessibility, install-root, cache-folder, macos-version) can fail, the others warn.
// Any failure makes the command exit 1 after printing the whole report, with one line on
// standard error naming the failed checks.
#include <optional>
#include <string>
#include <vector>

#include "cli/arguments.h"
#include "cli/json_output.h"
#include "platform/system_info.h"
#include "runtime/command_context.h"

namespace tavlin::doctor {

enum class Status { ok, warning, failed };

struct Check {
  std::string name;
  Status status = Status::ok;
  std::string detail;  // one line: what was found and, unless ok, what to do
};

// The companion scripts an install root holds under bin/.
inline constexpr const char* companionScripts[] = {"computer-ai-use", "background-window-capture", "clicker",
                                                   "tavlin-updater",  "tavlin-mcp",                "tavlin-record"};

// The oldest macOS this build runs on (CMake's deployment target).
const char* deploymentTarget();

// "14.5" -> {14, 5, 0}; absent for anything but one to three dot-separated numbers.
std::optional<std::vector<int>> parseVersion(const std::string& text);

// The checks that need no platform, each on its own (for tests and the report).
Check installRootCheck(const runtime::ProcessValues& values);
Check cacheFolderCheck(const std::string& cacheDirectory);
Check codeSignatureCheck(const platform::CodeSignature& signature);
Check macOSVersionCheck(const std::optional<std::string>& version, const std::string& target);

// Every check, in order.
std::vector<Check> runChecks(platform::Platform& platform, const runtime::ProcessValues& values);

// The text form: one line per check, "<status padded to 9> <name>: <detail>".
std::string reportText(const std::vector<Check>& checks);
// The JSON form: {"ok": ..., "checks": [{"name", "status", "detail"}, ...]}.
cli::Json reportJson(const std::vector<Check>& checks);

// doctor [--json]
void handleDoctor(runtime::CommandContext& context, const cli::Flags& flags);

}  // namespace tavlin::doctor
