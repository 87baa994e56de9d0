#include "clicker/clicker.h"

#include "cli/json_output.h"

namespace tavlin::clicker {

int runClickerCompatibility(const std::vector<std::string>&) {
  cli::writeAll(2, "clicker is not available yet\n");
  return 1;
}

}  // namespace tavlin::clicker
