#include "statusitem/status_item.h"

#include "runtime/output.h"

namespace tavlin::statusitem {

int runTavlinStatusItem(bool) {
  runtime::writeAll(2, "The menu-bar status item is not available yet\n");
  return 1;
}

int runTavlinStatusItemDiagnostic() {
  runtime::writeAll(2, "The menu-bar status item diagnostic is not available yet\n");
  return 1;
}

}  // namespace tavlin::statusitem
