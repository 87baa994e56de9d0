#pragma once
#include <memory>

#include "platform/platform.h"

namespace tavlin::macos {

// The real desktop: the ports over Apple's frameworks.
std::unique_ptr<platform::Platform> makeMacPlatform();

}  // namespace tavlin::macos
