#pragma once
// The screen-capture port: image sizes through ImageIO. Window capture through
// ScreenCaptureKit arrives with the background capture mode.
#include "platform/screen_capture.h"

namespace tavlin::macos {

class MacScreenCapture final : public platform::ScreenCapture {
 public:
  platform::CaptureStatus shareableWindows(bool excludeDesktopWindows, bool onScreenWindowsOnly, double timeoutSeconds,
                                           std::vector<platform::ShareableWindow>& windows) override;
  platform::CaptureStatus captureWindow(const platform::CaptureRequest& request) override;
  std::optional<platform::PixelSize> imagePixelSize(const std::string& path) override;
};

}  // namespace tavlin::macos
