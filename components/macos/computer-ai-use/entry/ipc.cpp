#include "entry/ipc.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/files.h"

namespace tavlin::entry {

namespace {
constexpr std::string_view ipcOption = "--tavlin-ipc";
}

TavlinStartup stripTavlinIPC(const std::vector<std::string>& rawArguments) {
  TavlinStartup startup;
  for (size_t i = 0; i < rawArguments.size(); ++i) {
    if (rawArguments[i] != ipcOption) {
      startup.arguments.push_back(rawArguments[i]);
      continue;
    }
    // The value is taken whatever it looks like, even "--something".
    if (i + 1 < rawArguments.size()) {
      startup.ipcDirectory = rawArguments[i + 1];
      ++i;
    }
  }
  return startup;
}

void redirectDescriptor(int descriptor, const std::string& path) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return;
  ::fchmod(fd, 0600);  // an older file may have been created more open
  ::dup2(fd, descriptor);
  ::close(fd);
}

TavlinStartup configureTavlinIPC(const std::vector<std::string>& rawArguments) {
  TavlinStartup startup = stripTavlinIPC(rawArguments);
  if (!startup.ipcDirectory) return startup;
  std::string directory = common::standardizedPath(*startup.ipcDirectory, common::currentDirectory());
  common::createDirectories(directory, 0700);
  redirectDescriptor(1, common::appendPathComponent(directory, "stdout"));
  redirectDescriptor(2, common::appendPathComponent(directory, "stderr"));
  common::writeFileAtomically(common::appendPathComponent(directory, "pid"), std::to_string(::getpid()) + "\n");
  startup.ipcDirectory = directory;
  return startup;
}

void writeIPCExitCode(const std::string& ipcDirectory, int status) {
  common::writeFileAtomically(common::appendPathComponent(ipcDirectory, "exit-code"), std::to_string(status) + "\n");
}

}  // namespace tavlin::entry
