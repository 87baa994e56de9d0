#pragma once
// The IPC pre-pass: "--tavlin-ipc DIR" lets a supervising process run the tool
// detached and collect what it printed and how it ended from files in DIR.
#include <optional>
#include <string>
#include <vector>

#include "runtime/process_values.h"

namespace tavlin::entry {

using runtime::TavlinStartup;

// Only the argument rewriting, no side effects.
TavlinStartup stripTavlinIPC(const std::vector<std::string>& rawArguments);

// stripTavlinIPC, then with a directory: create it, point descriptors 1 and 2 at its
// "stdout" and "stderr", write "pid". Every set-up failure is silent on purpose, so a
// supervisor that cannot be reached never changes the tool's behaviour.
TavlinStartup configureTavlinIPC(const std::vector<std::string>& rawArguments);

// Points `descriptor` at a new, empty file (0600); leaves it alone if that fails or
// if `path` is a symbolic link (a planted link must not redirect the tool's output).
void redirectDescriptor(int descriptor, const std::string& path);

// Opens /dev/null on each of descriptors 0, 1 and 2 that is closed.
void reserveStandardDescriptors();

// Records the exit status ("N\n") in the IPC directory; failures are ignored.
void writeIPCExitCode(const std::string& ipcDirectory, int status);

}  // namespace tavlin::entry
