#include "platform/macos/mac_platform.h"

#include <stdexcept>

#include "platform/macos/mac_accessibility.h"
#include "platform/macos/mac_clock.h"
#include "platform/macos/mac_screen_capture.h"
#include "platform/macos/mac_window_list.h"
#include "platform/macos/mac_workspace.h"
#include "platform/posix_processes.h"

namespace tavlin::macos {
namespace {

[[noreturn]] void notYet(const char* service) {
  throw std::runtime_error(std::string(service) + " is not available yet in the macOS build");
}

// Services whose adapters have not landed yet say so instead of pretending.
class PendingEvents final : public platform::Events {
 public:
  std::optional<platform::Event> createMouseEvent(platform::EventType, platform::Point,
                                                  platform::MouseButtonCode) override {
    notYet("Event synthesis");
  }
  std::optional<platform::Event> createKeyboardEvent(uint16_t, bool) override { notYet("Event synthesis"); }
  std::optional<platform::Event> createScrollWheelEvent(platform::ScrollUnit, uint32_t, int32_t, int32_t,
                                                        int32_t) override {
    notYet("Event synthesis");
  }
  void post(platform::EventTap, const platform::Event&) override { notYet("Event synthesis"); }
  void postToPid(int32_t, const platform::Event&) override { notYet("Event synthesis"); }
  bool warpMouseCursor(platform::Point) override { notYet("Event synthesis"); }
  platform::Point pointerLocation() override { notYet("Event synthesis"); }
};

class MacPlatform final : public platform::Platform {
 public:
  platform::Accessibility& accessibility() override { return accessibility_; }
  platform::Events& events() override { return events_; }
  platform::Workspace& workspace() override { return workspace_; }
  platform::WindowList& windowList() override { return windowList_; }
  platform::ScreenCapture& screenCapture() override { return capture_; }
  platform::Clock& clock() override { return clock_; }
  platform::Processes& processes() override { return processes_; }
  void commit() noexcept override {}

 private:
  MacAccessibility accessibility_;
  PendingEvents events_;
  MacWorkspace workspace_;
  MacWindowList windowList_;
  MacScreenCapture capture_;
  MacClock clock_;
  platform::PosixProcesses processes_;
};

}  // namespace

std::unique_ptr<platform::Platform> makeMacPlatform() { return std::make_unique<MacPlatform>(); }

}  // namespace tavlin::macos
