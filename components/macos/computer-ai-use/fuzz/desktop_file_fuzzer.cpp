// The simulated desktop file: every text either loads or is refused with a DesktopError.
#include "fuzz/fuzz_support.h"
#include "platform/sim/sim_desktop.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tavlin;
  try {
    sim::SimDesktop desktop = sim::SimDesktop::fromText(fuzz::text(data, size), "/fuzz/desktop.json", "");
    (void)desktop.elements().size();
  } catch (const sim::DesktopError&) {
  }
  return 0;
}
