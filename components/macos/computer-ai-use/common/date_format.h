#pragma once
#include <chrono>
#include <string>

namespace tavlin::common {

// A fixed "yyyyMMdd-HHmmss" formatter in the local time zone (file-name timestamps).
struct CompactTimestampFormatter {
  std::string dateFormat = "yyyyMMdd-HHmmss";
  std::string string(std::chrono::system_clock::time_point time) const;
};

}  // namespace tavlin::common
