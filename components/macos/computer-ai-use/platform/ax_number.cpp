#include <cstdio>

#include "platform/accessibility.h"

namespace tavlin::platform {

std::string AXNumber::stringValue() const {
  switch (kind) {
    case Kind::integer: return std::to_string(integer);
    case Kind::boolean: return boolean ? "1" : "0";
    case Kind::real: {
      char buf[40];
      std::snprintf(buf, sizeof buf, "%0.16g", real);
      return buf;
    }
    case Kind::real32: {
      char buf[40];
      std::snprintf(buf, sizeof buf, "%0.7g", real);
      return buf;
    }
  }
  return {};
}

bool AXNumber::truthValue() const {
  switch (kind) {
    case Kind::integer: return integer != 0;
    case Kind::boolean: return boolean;
    case Kind::real:
    case Kind::real32: return real != 0;
  }
  return false;
}

double AXNumber::doubleValue() const {
  switch (kind) {
    case Kind::integer: return static_cast<double>(integer);
    case Kind::boolean: return boolean ? 1 : 0;
    case Kind::real:
    case Kind::real32: return real;
  }
  return 0;
}

}  // namespace tavlin::platform
