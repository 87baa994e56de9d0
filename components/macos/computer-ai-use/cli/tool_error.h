#pragma once
// The one error type of the agent tool. `description` is the complete message the
// user sees; the entry's single catch prints it on standard error and exits 1.
#include <exception>
#include <string>

namespace tavlin::cli {

struct ToolError : std::exception {
  std::string description;
  // Messages are one line: the entry escapes line breaks that an echoed value brings
  // in, except in the few messages written as several lines on purpose.
  bool keepsLineBreaks = false;

  explicit ToolError(std::string message) : description(std::move(message)) {}
  static ToolError multiline(std::string message) {
    ToolError error(std::move(message));
    error.keepsLineBreaks = true;
    return error;
  }
  const char* what() const noexcept override { return description.c_str(); }
};

}  // namespace tavlin::cli
