#pragma once
// Where the tool is installed: the folder that holds bin/ and components/macos.
#include <optional>
#include <string>

namespace tavlin::entry {

// The marker executable under bin/ that identifies an install root.
inline constexpr const char* installRootMarker = "bin/computer-ai-use";

bool isTavlinInstallRoot(const std::string& candidate);

// TAVLIN_INSTALL_ROOT when it passes the test, else the first accepted folder at or
// above the main bundle (ten steps at most), else `buildRoot`. All standardised.
std::string findTavlinRoot(const std::optional<std::string>& environmentRoot, const std::string& mainBundlePath,
                           const std::string& buildRoot, const std::string& currentDirectory);

// The source tree this binary was built from.
std::string buildTimeRoot();

}  // namespace tavlin::entry
