#pragma once
// The status-bar port: the menu-bar item of the resident mode. The core builds the
// menu (what it says and does); the adapter shows it (NSStatusItem on macOS) and runs
// until the user quits, or, where there is no menu bar, runs headless until the
// process is asked to stop (SIGINT or SIGTERM).
#include <signal.h>

#include <functional>
#include <string>
#include <vector>

namespace tavlin::platform {

struct StatusMenuItem {
  std::string title;
  bool enabled = true;
  bool checked = false;
  bool separator = false;
  bool quits = false;              // ends the run
  std::function<void()> action;    // runs on the main thread when chosen
};

struct StatusMenu {
  std::string title;               // the item's text in the menu bar
  std::vector<StatusMenuItem> items;
  // Asked again each time the menu opens, so that it shows the current state.
  std::function<StatusMenu()> refresh;
};

// The signals that end a run: SIGINT and SIGTERM.
inline sigset_t statusBarStopSignals() {
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGINT);
  sigaddset(&stop, SIGTERM);
  return stop;
}

class StatusBar {
 public:
  virtual ~StatusBar() = default;
  // Called first thing in the mode, before anything that a stop request could interrupt
  // (a headless run starts holding SIGINT and SIGTERM for itself here).
  virtual void prepare() {}
  // Shows the item (and, with `showWindow`, a small window about it) and runs until the
  // user quits or the process is asked to stop. Returns when the run ends.
  virtual void run(const StatusMenu& menu, bool showWindow) = 0;
};

}  // namespace tavlin::platform
