#pragma once
// The resident menu-bar mode: a status item whose menu shows the installed version and
// offers "Check for Updates…", automatic updates on or off, and Quit. Where there is no
// menu bar the mode runs headless and holds its lock until SIGINT or SIGTERM.
#include "platform/platform.h"
#include "runtime/process_values.h"

namespace tavlin::statusitem {

// The menu as it stands now (the updater is asked whether automatic updates are on).
platform::StatusMenu tavlinStatusMenu(const runtime::ProcessValues& values, platform::Platform& platform);

// Takes the single-instance lock and runs the item until it ends. Returns 0 when the run
// ended, 1 (after printing why on standard error) when the lock could not be taken.
int runTavlinStatusItem(const runtime::ProcessValues& values, platform::Platform& platform, bool showWindowOnLaunch);
// Prints the menu's state, one line per item (titles and the install root with their
// line breaks, tabs and control characters escaped); returns the exit status.
int runTavlinStatusItemDiagnostic(const runtime::ProcessValues& values, platform::Platform& platform);

}  // namespace tavlin::statusitem
