#include "platform/headless_status_bar.h"

#include <signal.h>

namespace tavlin::platform {

void HeadlessStatusBar::prepare() {
  // Blocked from the start, so that a stop request that comes early waits for the run
  // instead of ending the process by the signal.
  sigset_t stop = statusBarStopSignals();
  pthread_sigmask(SIG_BLOCK, &stop, nullptr);
}

void HeadlessStatusBar::run(const StatusMenu&, bool) {
  sigset_t stop = statusBarStopSignals();
  pthread_sigmask(SIG_BLOCK, &stop, nullptr);
  int received = 0;
  while (sigwait(&stop, &received) != 0) {
  }
}

}  // namespace tavlin::platform
