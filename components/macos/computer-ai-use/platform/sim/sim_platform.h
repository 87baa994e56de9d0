#pragma once
// The seam's ports over a SimDesktop. The desktop is loaded on first use, so a command
// that needs no desktop (help, a parse error) runs without one.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "imaging/text.h"
#include "platform/platform.h"
#include "platform/headless_status_bar.h"
#include "platform/posix_processes.h"
#include "platform/sim/sim_desktop.h"

namespace tavlin::sim {

struct SimSettings {
  std::optional<std::string> desktopPath;   // TAVLIN_SIM_DESKTOP
  std::optional<std::string> eventLogPath;  // TAVLIN_SIM_EVENT_LOG; default "<desktop>.log"
  std::string homeDirectory;                // the simulated user's home
  std::string executablePath;               // for the main bundle path
  double lockWaitSeconds = defaultLockWaitSeconds;  // TAVLIN_SIM_LOCK_WAIT
  std::optional<std::string> font = std::nullopt;  // TAVLIN_FONT: the screenshots' font file
};

class SimPlatform final : public platform::Platform {
 public:
  explicit SimPlatform(SimSettings settings);
  // For tests: ports over an already-built desktop.
  explicit SimPlatform(SimDesktop desktop, SimSettings settings = {});
  ~SimPlatform() override;

  platform::Accessibility& accessibility() override;
  platform::Events& events() override;
  platform::Workspace& workspace() override;
  platform::WindowList& windowList() override;
  platform::ScreenCapture& screenCapture() override;
  platform::Clock& clock() override;
  platform::Processes& processes() override;
  platform::StatusBar& statusBar() override;
  platform::Pasteboard& pasteboard() override;
  platform::SystemInfo& systemInfo() override;
  void commit() override;
  void checkpoint() override;
  void interruptWaitsWhen(std::function<bool()> interrupted) override { interrupted_ = std::move(interrupted); }

  // The control face. Throws DesktopError when no desktop is set or it is invalid.
  SimDesktop& desktop();
  const SimSettings& settings() const { return settings_; }
  // Whether the main run loop has turned in this process (a wait on the clock, or the
  // workspace's own turn before it reads).
  void noteRunLoopTurned() { runLoopTurned_ = true; }
  bool runLoopTurned() const { return runLoopTurned_; }
  // How many times this process asked ScreenCaptureKit for its shareable content.
  void noteShareableContentRequest() { ++shareableContentRequests_; }
  uint64_t shareableContentRequests() const { return shareableContentRequests_; }
  // The font the simulated screenshots draw text with, loaded on first use; null when
  // none can be loaded (text is then drawn as bars).
  imaging::Font* font();
  // Whether a desktop is loaded or named (desktop() then does not fail for want of one).
  bool hasDesktop() const { return desktop_ || (settings_.desktopPath && !settings_.desktopPath->empty()); }

 private:
  struct Ports;
  SimSettings settings_;
  std::optional<SimDesktop> desktop_;
  bool runLoopTurned_ = false;
  std::function<bool()> interrupted_;  // ends the wait for the desktop's lock
  uint64_t shareableContentRequests_ = 0;
  std::vector<SimDesktop::Scheduled> released_;  // late answers still to come after a checkpoint
  std::unique_ptr<Ports> ports_;
  std::optional<std::unique_ptr<imaging::Font>> font_;
};

// The settings from the environment: TAVLIN_SIM_DESKTOP, TAVLIN_SIM_EVENT_LOG, HOME,
// TAVLIN_SIM_LOCK_WAIT, TAVLIN_FONT.
SimSettings simSettingsFromEnvironment(const std::string& executablePath);

}  // namespace tavlin::sim
