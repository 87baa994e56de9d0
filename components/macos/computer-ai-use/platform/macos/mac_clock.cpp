#include "platform/macos/mac_clock.h"

#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace tavlin::macos {

platform::TimePoint MacClock::now() { return std::chrono::system_clock::now(); }

namespace {

// NSRunningApplication's properties, the workspace's list of applications and some
// completions change only while the main run loop turns: a wait on the main thread
// turns it instead of only sleeping.
bool onMainThread() { return CFRunLoopGetCurrent() == CFRunLoopGetMain(); }

constexpr double mainThreadSlice = 0.01;

}  // namespace

void turnMainRunLoopOnce() {
  if (onMainThread()) CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true);
}

void MacClock::sleep(double seconds) {
  if (!(seconds > 0)) return;
  if (!onMainThread()) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    return;
  }
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  for (;;) {
    double left = std::chrono::duration<double>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0) return;
    runLoop(std::min(left, mainThreadSlice));
  }
}

bool MacClock::waitUntil(const std::function<bool()>& ready, double seconds) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(std::max(0.0, seconds));
  bool main = onMainThread();
  while (!ready()) {
    double left = std::chrono::duration<double>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0) return ready();
    if (main) {
      runLoop(std::min(left, mainThreadSlice));
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
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
