#pragma once
#include <string_view>

namespace tavlin::cli {

// The agent tool's usage text, without a final newline (the printer adds one).
extern const std::string_view usageText;

}  // namespace tavlin::cli
