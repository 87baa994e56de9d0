#include "statusitem/status_item_services.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>

#include "cli/tool_error.h"
#include "common/files.h"
#include "common/json_text.h"
#include "common/unicode.h"

namespace tavlin::statusitem {

void acquireTavlinStatusItemLock(const std::string& homeDirectory) {
  std::string runtimeFolder = common::appendPathComponent(homeDirectory, "Library/Application Support/Tavlin/runtime");
  if (!common::createDirectories(runtimeFolder, 0700)) {
    throw cli::ToolError("could not create " + runtimeFolder + ": " + std::strerror(errno));
  }
  std::string path = common::appendPathComponent(runtimeFolder, "status-item.lock");
  int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) throw cli::ToolError("could not open status-item lock: " + path);
  if (::lockf(fd, F_TLOCK, 0) != 0) {
    ::close(fd);
    throw cli::ToolError("Tavlin status item is already running");
  }
  // Left open on purpose: the lock lasts as long as the process.
}

std::string tavlinReleaseVersion(const std::string& installRoot) {
  std::string problem;
  auto text = common::readRegularFile(common::appendPathComponent(installRoot, "RELEASE_BUILD.txt"), 1 << 20, problem);
  // A file that is not UTF-8 is unreadable as text, not a version to repair.
  if (!text || common::repairingUTF8(*text) != *text) return "0.0.0-dev";
  return releaseVersionFromText(*text);
}

std::string releaseVersionFromText(const std::string& text) {
  // Lines end at "\n", "\r" or "\r\n", as a file saved on any system has them.
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find_first_of("\r\n", start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    start = end + 1;
    if (line.empty() || !common::lowercased(line).starts_with("version:")) continue;
    std::string version = common::trimmed(line.substr(line.find(':') + 1));
    if (!version.empty()) return version;
  }
  return "0.0.0-dev";
}

cli::Json tavlinUpdaterResult(platform::Platform& platform, const std::string& installRoot,
                              const std::string& command, const std::vector<std::string>& arguments,
                              double timeout) {
  std::string updater = common::appendPathComponent(installRoot, "bin/tavlin-updater");
  if (!common::isExecutableFile(updater)) {
    throw cli::ToolError("tavlin-updater is missing or not executable: " + updater);
  }
  platform::ProcessRequest request;
  request.executable = "/bin/sh";
  request.arguments = {updater, command, "--json"};
  if (command != "set-enabled") {
    request.arguments.insert(request.arguments.end(), {"--platform", "macos", "--install-root", installRoot,
                                                       "--current-version", tavlinReleaseVersion(installRoot)});
  }
  request.arguments.insert(request.arguments.end(), arguments.begin(), arguments.end());
  request.captureOutput = true;
  request.extraEnvironment["TAVLIN_INSTALL_ROOT"] = installRoot;
  request.timeoutSeconds = timeout;
  // The caller (a menu action) blocks, but its menu and timers stay alive.
  request.whileWaiting = [&platform] { platform.clock().runLoop(0.05); };
  platform::ProcessResult result = platform.processes().run(request);
  if (!result.launched) throw cli::ToolError("could not start tavlin-updater: " + result.launchError);
  if (result.timedOut) throw cli::ToolError("tavlin-updater timed out");

  std::optional<cli::Json> object = updaterResultFromOutput(result.standardOutput);
  if (object && (result.exitStatus == 0 || object->contains("error"))) return *object;
  if (result.exitStatus != 0) {
    std::string standardError = common::trimmed(result.standardError);
    throw cli::ToolError("updater exited with status " + std::to_string(result.exitStatus) +
                         (standardError.empty() ? "" : ": " + standardError));
  }
  throw cli::ToolError("tavlin-updater returned no structured result");
}

std::optional<cli::Json> updaterResultFromOutput(const std::string& output) {
  // The result is the last line that is a JSON object; progress lines come before it.
  std::vector<std::string> lines;
  std::istringstream out(output);
  for (std::string line; std::getline(out, line);) {
    if (!common::trimmed(line).empty()) lines.push_back(line);
  }
  for (auto it = lines.rbegin(); it != lines.rend(); ++it) {
    if (common::checkJsonText(*it, 64)) continue;  // far deeper than any result
    cli::Json object = cli::Json::parse(*it, nullptr, false);
    if (!object.is_discarded() && object.is_object()) return object;
  }
  return std::nullopt;
}

}  // namespace tavlin::statusitem
