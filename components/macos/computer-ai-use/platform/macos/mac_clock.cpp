#include "platform/macos/mac_clock.h"

#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace tavlin::macos {

platform::TimePoint MacClock::now() { return std::chrono::system_clock::now(); }

void MacClock::sleep(double seconds) {
  if (seconds > 0) std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

bool MacClock::waitUntil(const std::function<bool()>& ready, double seconds) {
  // Completions of the system's asynchronous calls arrive on its own queues, not on
  // this thread's run loop: polling is enough.
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(std::max(0.0, seconds));
  while (!ready()) {
    if (std::chrono::steady_clock::now() >= deadline) return ready();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

void MacClock::runLoop(double seconds) {
  auto start = std::chrono::steady_clock::now();
  CFRunLoopRunResult result = CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, false);
  // A run loop with no sources returns at once; keep the step's length anyway so
  // that polls keep their pace instead of spinning.
  if (result == kCFRunLoopRunFinished) {
    auto left = std::chrono::duration<double>(seconds) - (std::chrono::steady_clock::now() - start);
    if (left.count() > 0) std::this_thread::sleep_for(left);
  }
}

}  // namespace tavlin::macos
