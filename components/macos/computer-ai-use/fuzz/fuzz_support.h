#pragma once
// Helpers shared by the fuzz targets.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tavlin::fuzz {

inline std::string text(const uint8_t* data, size_t size) { return std::string(reinterpret_cast<const char*>(data), size); }

// The input as an argument list: NUL bytes separate the arguments.
inline std::vector<std::string> arguments(const uint8_t* data, size_t size) {
  std::vector<std::string> out(1);
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == 0) {
      out.emplace_back();
    } else {
      out.back() += static_cast<char>(data[i]);
    }
  }
  return out;
}

}  // namespace tavlin::fuzz
