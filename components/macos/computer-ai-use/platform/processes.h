#pragma once
// The processes port: run a program, optionally feed and collect its pipes, wait.
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tavlin::platform {

struct ProcessRequest {
  std::string executable;               // absolute path
  std::vector<std::string> arguments;   // without the program name
  std::optional<std::string> standardInput;  // absent: the null device
  bool captureOutput = false;           // else both streams go to the null device
  std::map<std::string, std::string> extraEnvironment;
  // When the child runs longer it is terminated (SIGTERM), and killed only if it has not
  // ended a few seconds later.
  std::optional<double> timeoutSeconds;
  // Called between short waits (about every 0.01 s) until the child has ended: a caller on
  // the main thread turns its run loop there, so that its menus and timers stay alive.
  std::function<void()> whileWaiting;
  // Asked between the same short waits: once it holds, the child is ended as at its
  // time-out (the caller gave up on it).
  std::function<bool()> abandonWhen;
};

struct ProcessResult {
  bool launched = false;
  std::string launchError;  // why it did not launch
  bool timedOut = false;    // or abandoned
  int exitStatus = -1;      // exit code, or 128 + signal number
  std::string standardOutput;
  std::string standardError;
};

// Waits for the child to exit, not for its pipes to close: a grandchild that keeps them
// open does not hold up the result, which is what the child wrote before it exited.
// The child starts with no signal blocked and the usual signals at their defaults.
class Processes {
 public:
  virtual ~Processes() = default;
  virtual ProcessResult run(const ProcessRequest& request) = 0;
};

}  // namespace tavlin::platform
