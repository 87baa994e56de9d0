#pragma once
// Runs child processes with posix_spawn and poll; shared by both adapters because the
// calls are the same on every POSIX system.
#include "platform/processes.h"

namespace tavlin::platform {

class PosixProcesses final : public Processes {
 public:
  ProcessResult run(const ProcessRequest& request) override;
};

}  // namespace tavlin::platform
