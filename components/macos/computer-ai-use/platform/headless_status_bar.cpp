#include "platform/headless_status_bar.h"

#include <signal.h>

namespace tavlin::platform {

namespace {

sigset_t stopSignals() {
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGINT);
  sigaddset(&stop, SIGTERM);
  return stop;
}

}  // namespace

void HeadlessStatusBar::prepare() {
  // Blocked from the start, so that a stop request that comes early waits for the run
  // instead of ending the process by the signal.
  sigset_t stop = stopSignals();
  pthread_sigmask(SIG_BLOCK, &stop, nullptr);
}

void HeadlessStatusBar::run(const StatusMenu&, bool) {
  sigset_t stop = stopSignals();
  pthread_sigmask(SIG_BLOCK, &stop, nullptr);
  int received = 0;
  while (sigwait(&stop, &received) != 0) {
  }
}

}  // namespace tavlin::platform
