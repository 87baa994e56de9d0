#include "entry/ipc.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

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

void reserveStandardDescriptors() {
  for (int descriptor = 0; descriptor <= 2; ++descriptor) {
    if (::fcntl(descriptor, F_GETFD) != -1 || errno != EBADF) continue;
    // open() takes the lowest free descriptor, which is this one.
    int fd = ::open("/dev/null", O_RDWR);
    if (fd >= 0 && fd != descriptor) ::close(fd);
  }
}

void redirectDescriptor(int descriptor, const std::string& path) {
  // Non-blocking so that a FIFO planted there cannot stall the start; only a regular
  // file is taken.
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  if (fd < 0) return;
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return;
  }
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
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
  // Written aside and renamed into place, so a link planted as "pid" is replaced, not
  // followed.
  common::writeFileAtomically(common::appendPathComponent(directory, "pid"), std::to_string(::getpid()) + "\n");
  startup.ipcDirectory = directory;
  return startup;
}

void writeIPCExitCode(const std::string& ipcDirectory, int status) {
  common::writeFileAtomically(common::appendPathComponent(ipcDirectory, "exit-code"), std::to_string(status) + "\n");
}

}  // namespace tavlin::entry
