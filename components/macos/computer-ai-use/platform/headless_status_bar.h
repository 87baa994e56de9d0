#pragma once
// The status bar where there is no menu bar (Linux, the simulated desktop): nothing is
// shown; the run holds the process until SIGINT or SIGTERM. Shared by both adapters'
// builds because it needs POSIX only.
#include "platform/status_bar.h"

namespace tavlin::platform {

class HeadlessStatusBar final : public StatusBar {
 public:
  void prepare() override;
  void run(const StatusMenu& menu, bool showWindow) override;
};

}  // namespace tavlin::platform
