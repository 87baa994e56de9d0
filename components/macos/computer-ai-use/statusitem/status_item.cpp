#include "statusitem/status_item.h"

#include "cli/json_output.h"

namespace tavlin::statusitem {

int runTavlinStatusItem(bool) {
  cli::writeAll(2, "The menu-bar status item is not available yet\n");
  return 1;
}

int runTavlinStatusItemDiagnostic() {
  cli::writeAll(2, "The menu-bar status item diagnostic is not available yet\n");
  return 1;
}

}  // namespace tavlin::statusitem
