#pragma once
// The one error type of the agent tool. `description` is the complete message the
// user sees; the entry's single catch prints it on standard error and exits 1.
#include <exception>
#include <string>

namespace tavlin::cli {

struct ToolError : std::exception {
  std::string description;

  explicit ToolError(std::string message) : description(std::move(message)) {}
  const char* what() const noexcept override { return description.c_str(); }
};

}  // namespace tavlin::cli
