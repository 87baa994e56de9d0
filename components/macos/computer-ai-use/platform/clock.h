#pragma once
// The clock port. Every pause, poll and deadline of the tool goes through it, so the
// simulated desktop can run them on virtual time.
#include <chrono>
#include <functional>

namespace tavlin::platform {

using TimePoint = std::chrono::system_clock::time_point;

class Clock {
 public:
  virtual ~Clock() = default;
  virtual TimePoint now() = 0;
  // Blocks the main thread.
  virtual void sleep(double seconds) = 0;
  // Runs the main run loop for up to `seconds`, delivering the system's notifications.
  virtual void runLoop(double seconds) = 0;
  // Waits until `ready` holds (asked every few milliseconds; it may be made true by
  // another thread) or `seconds` have passed. True when it became ready.
  virtual bool waitUntil(const std::function<bool()>& ready, double seconds) = 0;
};

}  // namespace tavlin::platform
