#pragma once
// The vocabulary of the desktop file (docs/desktop-format.md), shared by the simulated
// desktop that reads it and the recorder that writes one from any desktop.
#include <map>
#include <optional>
#include <string>

#include "platform/accessibility.h"

namespace tavlin::platform {

inline constexpr int desktopFormatVersion = 1;

// Element keys that stand for one accessibility attribute each ("title": "AXTitle").
const std::map<std::string, std::string>& elementAttributeShortcuts();
// AXError codes by the names the file gives them ("cannotComplete").
const std::map<std::string, AXError>& axErrorNames();
// The name of a code, absent for a code Apple does not define.
std::optional<std::string> axErrorName(AXError error);

}  // namespace tavlin::platform
