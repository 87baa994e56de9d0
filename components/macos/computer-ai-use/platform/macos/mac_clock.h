#pragma once
#include "platform/clock.h"

namespace tavlin::macos {

// On the main thread, lets the run loop handle what is already pending (the workspace's
// notifications), without waiting; elsewhere nothing.
void turnMainRunLoopOnce();

// Wall-clock time, real sleeps and the main run loop.
class MacClock final : public platform::Clock {
 public:
  platform::TimePoint now() override;
  void sleep(double seconds) override;
  void runLoop(double seconds) override;
  bool waitUntil(const std::function<bool()>& ready, double seconds) override;
};

}  // namespace tavlin::macos
