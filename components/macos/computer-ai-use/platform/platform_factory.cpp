// The one place that decides which desktop the tool talks to.
#include <cstdlib>

#include "platform/platform.h"
#include "platform/sim/sim_platform.h"
#if defined(__APPLE__)
#include "platform/macos/mac_platform.h"
#endif

namespace tavlin::platform {

std::unique_ptr<Platform> makePlatform(const std::string& executablePath) {
#if defined(__APPLE__)
  const char* simulated = std::getenv("TAVLIN_SIM_DESKTOP");
  if (!simulated || !*simulated) return macos::makeMacPlatform();
#endif
  return std::make_unique<sim::SimPlatform>(sim::simSettingsFromEnvironment(executablePath));
}

}  // namespace tavlin::platform
