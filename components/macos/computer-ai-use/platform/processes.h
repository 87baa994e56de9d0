#pragma once
// The processes port: run a program, optionally feed and collect its pipes, wait.
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
  std::optional<double> timeoutSeconds; // the child is killed when it runs longer
};

struct ProcessResult {
  bool launched = false;
  std::string launchError;  // why it did not launch
  bool timedOut = false;
  int exitStatus = -1;      // exit code, or 128 + signal number
  std::string standardOutput;
  std::string standardError;
};

class Processes {
 public:
  virtual ~Processes() = default;
  virtual ProcessResult run(const ProcessRequest& request) = 0;
};

}  // namespace tavlin::platform
