#pragma once

namespace tavlin::statusitem {

// The resident menu-bar mode. Returns the exit status when it cannot run.
int runTavlinStatusItem(bool showWindowOnLaunch);
// Prints the status item's menu state; returns the exit status.
int runTavlinStatusItemDiagnostic();

}  // namespace tavlin::statusitem
