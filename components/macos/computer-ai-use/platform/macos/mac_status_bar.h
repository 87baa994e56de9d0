#pragma once
// The status-bar port over AppKit: an NSStatusItem whose menu the core describes, an
// accessory (menu-bar only) application, and a small window about the app on launch.
#include "platform/status_bar.h"

namespace tavlin::macos {

class MacStatusBar final : public platform::StatusBar {
 public:
  void prepare() override;
  // Ends when the user quits or on SIGINT or SIGTERM.
  void run(const platform::StatusMenu& menu, bool showWindow) override;
};

}  // namespace tavlin::macos
