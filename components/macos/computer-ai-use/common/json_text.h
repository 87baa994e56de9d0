#pragma once
// A first pass over JSON text before the parser sees it, for the two limits the parser
// does not keep: how deeply arrays and objects nest (a parser and a tree as deep as
// the input cost stack and memory in proportion) and numbers too large for a double
// (which the parser reports without a place). Nothing else is checked here.
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tavlin::common {

struct JsonTextProblem {
  size_t line = 1;    // from 1
  size_t column = 1;  // from 1, in bytes
  std::string message;
};

std::optional<JsonTextProblem> checkJsonText(std::string_view text, size_t maxDepth);

// Line and column (from 1, column in bytes) of a byte offset.
JsonTextProblem placeOf(std::string_view text, size_t offset, std::string message);

}  // namespace tavlin::common
