#pragma once
#include <string>
#include <vector>

namespace tavlin::clicker {

// The older positional command set; `arguments` follow "__clicker". Returns the exit status.
int runClickerCompatibility(const std::vector<std::string>& arguments);

}  // namespace tavlin::clicker
