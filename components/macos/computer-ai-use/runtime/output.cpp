#include "runtime/output.h"

#include <unistd.h>

#include <cerrno>

namespace tavlin::runtime {

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = ::write(descriptor, bytes.data(), bytes.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (n == 0) {
      errno = EIO;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

}  // namespace tavlin::runtime
