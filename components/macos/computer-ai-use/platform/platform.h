#pragma once
// The platform seam: one object that hands out the ports, and the factory that picks
// the desktop to talk to. Nothing outside platform/ knows which one it got.
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/accessibility.h"
#include "platform/clock.h"
#include "platform/events.h"
#include "platform/pasteboard.h"
#include "platform/processes.h"
#include "platform/screen_capture.h"
#include "platform/status_bar.h"
#include "platform/system_info.h"
#include "platform/window_list.h"
#include "platform/workspace.h"

namespace tavlin::platform {

class Platform {
 public:
  virtual ~Platform() = default;
  virtual Accessibility& accessibility() = 0;
  virtual Events& events() = 0;
  virtual Workspace& workspace() = 0;
  virtual WindowList& windowList() = 0;
  virtual ScreenCapture& screenCapture() = 0;
  virtual Clock& clock() = 0;
  virtual Processes& processes() = 0;
  virtual StatusBar& statusBar() = 0;
  virtual Pasteboard& pasteboard() = 0;
  virtual SystemInfo& systemInfo() = 0;
  // Records what changed (a simulated desktop writes its state back and appends its
  // event log). Called as a command ends, on every path; calling it again with
  // nothing new does nothing. Throws std::exception with a one-line message when the
  // change could not be recorded, so that the command does not report success.
  virtual void commit() = 0;
  // commit(), and let other processes at what this one shares with them until it is
  // next used (a simulated desktop releases its lock and is read again afterwards).
  // Called before running a child process that may use the same desktop, and between
  // the captures of a long watch.
  virtual void checkpoint() { commit(); }
  // A wait that cannot go through the clock (a simulated desktop waiting for another
  // process's lock on it) asks `interrupted` between its short pauses and ends with an
  // error once it holds. Empty: such waits run their course.
  virtual void interruptWaitsWhen(std::function<bool()> interrupted) { (void)interrupted; }
};

// The simulated desktop when TAVLIN_SIM_DESKTOP is set (or on a system without a real
// adapter), otherwise the real one. `executablePath` is this program's own path.
std::unique_ptr<Platform> makePlatform(const std::string& executablePath);

}  // namespace tavlin::platform
