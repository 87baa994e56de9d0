#include "clicker/clicker.h"

#include "runtime/output.h"

namespace tavlin::clicker {

int runClickerCompatibility(const std::vector<std::string>&) {
  runtime::writeAll(2, "clicker is not available yet\n");
  return 1;
}

}  // namespace tavlin::clicker
