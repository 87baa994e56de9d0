#include "capture/background_capture.h"

#include "runtime/output.h"

namespace tavlin::capture {

int runBackgroundWindowCaptureHost(const std::vector<std::string>&) {
  runtime::writeAll(2, "background-window-capture is not available yet\n");
  return 1;
}

}  // namespace tavlin::capture
