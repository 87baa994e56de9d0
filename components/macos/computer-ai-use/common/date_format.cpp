#include "common/date_format.h"

#include <ctime>

namespace tavlin::common {

std::string CompactTimestampFormatter::string(std::chrono::system_clock::time_point time) const {
  std::time_t t = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  localtime_r(&t, &local);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y%m%d-%H%M%S", &local);
  return buf;
}

}  // namespace tavlin::common
