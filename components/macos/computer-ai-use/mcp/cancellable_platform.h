#pragma once
// The platform as a server's tool call sees it: every port forwards to the real one,
// but once the call is cancelled (the client's notifications/cancelled) its next wait,
// posted event, accessibility action, value change or clipboard write throws a
// ToolError instead of happening, so a cancelled call ends at its next poll and does
// nothing more. Waits outside the clock end too: a child process is ended, and the
// inner platform's own waits (a simulated desktop's lock) are interrupted.
#include <atomic>
#include <memory>

#include "platform/platform.h"

namespace tavlin::mcp {

inline constexpr const char* cancelledMessage = "The call was cancelled by the client.";

class CancellablePlatform final : public platform::Platform {
 public:
  explicit CancellablePlatform(platform::Platform& inner);
  ~CancellablePlatform() override;

  // Safe from any thread.
  void cancel() { cancelled_ = true; }
  void reset() { cancelled_ = false; }
  bool cancelled() const { return cancelled_; }
  // Throws the cancellation's ToolError when the call was cancelled.
  void check() const;

  platform::Accessibility& accessibility() override;
  platform::Events& events() override;
  platform::Workspace& workspace() override { return inner_.workspace(); }
  platform::WindowList& windowList() override { return inner_.windowList(); }
  platform::ScreenCapture& screenCapture() override { return inner_.screenCapture(); }
  platform::Clock& clock() override;
  platform::Processes& processes() override;
  platform::StatusBar& statusBar() override { return inner_.statusBar(); }
  platform::Pasteboard& pasteboard() override;
  // Reads that return at once: nothing to cancel.
  platform::SystemInfo& systemInfo() override { return inner_.systemInfo(); }
  void commit() override { inner_.commit(); }
  void checkpoint() override { inner_.checkpoint(); }
  // Chained: the inner platform's waits end when this one is cancelled or `interrupted` holds.
  void interruptWaitsWhen(std::function<bool()> interrupted) override;

 private:
  platform::Platform& inner_;
  std::atomic<bool> cancelled_{false};
  std::function<bool()> interrupted_;
  struct Ports;
  std::unique_ptr<Ports> ports_;
};

}  // namespace tavlin::mcp
