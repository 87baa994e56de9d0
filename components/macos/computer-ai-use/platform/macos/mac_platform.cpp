#include "platform/macos/mac_platform.h"

#include "platform/macos/mac_accessibility.h"
#include "platform/macos/mac_clock.h"
#include "platform/macos/mac_events.h"
#include "platform/macos/mac_pasteboard.h"
#include "platform/macos/mac_screen_capture.h"
#include "platform/macos/mac_status_bar.h"
#include "platform/macos/mac_system_info.h"
#include "platform/macos/mac_window_list.h"
#include "platform/macos/mac_workspace.h"
#include "platform/posix_processes.h"

namespace tavlin::macos {
namespace {

class MacPlatform final : public platform::Platform {
 public:
  platform::Accessibility& accessibility() override { return accessibility_; }
  platform::Events& events() override { return events_; }
  platform::Workspace& workspace() override { return workspace_; }
  platform::WindowList& windowList() override { return windowList_; }
  platform::ScreenCapture& screenCapture() override { return capture_; }
  platform::Clock& clock() override { return clock_; }
  platform::Processes& processes() override { return processes_; }
  platform::StatusBar& statusBar() override { return statusBar_; }
  platform::Pasteboard& pasteboard() override { return pasteboard_; }
  platform::SystemInfo& systemInfo() override { return systemInfo_; }
  void commit() override {}

 private:
  MacAccessibility accessibility_;
  MacEvents events_;
  MacWorkspace workspace_;
  MacWindowList windowList_;
  MacScreenCapture capture_;
  MacClock clock_;
  platform::PosixProcesses processes_;
  MacStatusBar statusBar_;
  MacPasteboard pasteboard_;
  MacSystemInfo systemInfo_;
};

}  // namespace

std::unique_ptr<platform::Platform> makeMacPlatform() { return std::make_unique<MacPlatform>(); }

}  // namespace tavlin::macos
