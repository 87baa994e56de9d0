#include "common/json_text.h"

#include <cmath>
#include <cstdlib>
#include <string>

namespace tavlin::common {

JsonTextProblem placeOf(std::string_view text, size_t offset, std::string message) {
  JsonTextProblem problem;
  problem.message = std::move(message);
  offset = std::min(offset, text.size());
  for (size_t i = 0; i < offset; ++i) {
    if (text[i] == '\n') {
      ++problem.line;
      problem.column = 1;
    } else {
      ++problem.column;
    }
  }
  return problem;
}

std::optional<JsonTextProblem> checkJsonText(std::string_view text, size_t maxDepth) {
  size_t depth = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '"') {
      // Skip the string; escapes may hide a quote.
      for (++i; i < text.size() && text[i] != '"'; ++i) {
        if (text[i] == '\\') ++i;
      }
    } else if (c == '[' || c == '{') {
      if (++depth > maxDepth) {
        return placeOf(text, i, "nested deeper than " + std::to_string(maxDepth) + " levels");
      }
    } else if (c == ']' || c == '}') {
      if (depth > 0) --depth;
    } else if (c == '-' || (c >= '0' && c <= '9')) {
      size_t end = i;
      while (end < text.size() && (std::string_view("+-.eE0123456789").find(text[end]) != std::string_view::npos)) {
        ++end;
      }
      std::string token(text.substr(i, end - i));
      double value = std::strtod(token.c_str(), nullptr);
      if (std::isinf(value)) return placeOf(text, i, "the number " + token.substr(0, 40) + " is too large");
      i = end - 1;
    }
  }
  return std::nullopt;
}

}  // namespace tavlin::common
