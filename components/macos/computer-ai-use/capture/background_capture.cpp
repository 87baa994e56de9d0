#include "capture/background_capture.h"

#include "cli/json_output.h"

namespace tavlin::capture {

int runBackgroundWindowCaptureHost(const std::vector<std::string>&) {
  cli::writeAll(2, "background-window-capture is not available yet\n");
  return 1;
}

}  // namespace tavlin::capture
