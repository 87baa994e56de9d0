#pragma once
#include <string>
#include <vector>

namespace tavlin::capture {

// The background window capture host; `arguments` starts with
// "background-window-capture". Returns the exit status.
int runBackgroundWindowCaptureHost(const std::vector<std::string>& arguments);

}  // namespace tavlin::capture
