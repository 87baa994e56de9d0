#pragma once
// A hard time-out around an asynchronous system call whose completion may come on
// another thread, late, or never (ScreenCaptureKit's are known to hang). The waiting
// side and the completion meet only in a SingleCompletion: a lock and a completed flag,
// so the result is taken exactly once. Whichever comes second, the call's answer or
// the deadline, does nothing: a late answer is dropped on purpose.
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "platform/clock.h"

namespace tavlin::capture {

template <typename T>
class SingleCompletion {
 public:
  // True for the first completion only; later ones change nothing.
  bool succeed(T value) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (done_) return false;
    done_ = true;
    value_ = std::move(value);
    return true;
  }
  bool fail(std::string message) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (done_) return false;
    done_ = true;
    error_ = std::move(message);
    return true;
  }
  bool done() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return done_;
  }
  // The result, once done: the value, or throws ToolError with the failure.
  T take() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (error_) throw cli::ToolError(*error_);
    return std::move(*value_);
  }

 private:
  mutable std::mutex mutex_;
  bool done_ = false;
  std::optional<T> value_;
  std::optional<std::string> error_;
};

// Starts the operation, handing it the completion (which it may keep, and call from any
// thread, at any time), and waits at most `seconds` on the clock. Returns the value;
// throws the operation's failure, or ToolError "operation timed out after <seconds>s".
template <typename T>
T runWithHardTimeout(platform::Clock& clock, double seconds,
                     const std::function<void(std::shared_ptr<SingleCompletion<T>>)>& operation) {
  auto completion = std::make_shared<SingleCompletion<T>>();
  operation(completion);
  clock.waitUntil([&] { return completion->done(); }, seconds);
  completion->fail("operation timed out after " + cli::doubleDescription(seconds) + "s");
  return completion->take();
}

}  // namespace tavlin::capture
