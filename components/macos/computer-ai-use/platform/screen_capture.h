#pragma once
// The screen-capture port: ScreenCaptureKit's shareable windows and single-window
// screenshots, and PNG files through ImageIO. The two ScreenCaptureKit requests are
// asynchronous, as the system's are: their completion may come on another thread, late,
// or never. The core bounds every request with a hard time-out (capture/hard_timeout.h)
// and drops a completion that comes after it.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/geometry.h"

namespace tavlin::platform {

struct PixelSize {
  int64_t width = 0;
  int64_t height = 0;
};

// The window object itself (an SCWindow on macOS), held by the adapter. A capture is
// built from the object discovery returned, so capturing needs no second enumeration;
// a window that has gone since makes the capture fail, it is not looked up again.
class ShareableWindowObject {
 public:
  virtual ~ShareableWindowObject() = default;
};

// An SCWindow, in neutral values, with the object it came from.
struct ShareableWindow {
  uint32_t windowID = 0;
  Rect frame;
  std::optional<std::string> title;
  int64_t windowLayer = 0;
  bool onScreen = false;
  std::optional<int32_t> ownerPID;
  std::optional<std::string> ownerBundleIdentifier;
  std::optional<std::string> ownerName;
  std::shared_ptr<const ShareableWindowObject> object;  // never null from an adapter
};

// Success, or a failure with the system's description. permissionDenied: the user has not
// granted Screen Recording (ScreenCaptureKit's SCStreamErrorUserDeclined, -3801).
struct CaptureStatus {
  enum class Kind { ok, failed, timedOut, permissionDenied };
  Kind kind = Kind::ok;
  std::string description;
  bool ok() const { return kind == Kind::ok; }
};

// One single-window screenshot (SCContentFilter with a desktop-independent window,
// SCStreamConfiguration at this size) of a window requestShareableWindows returned.
struct CaptureRequest {
  std::shared_ptr<const ShareableWindowObject> window;
  size_t pixelWidth = 0;   // 0: the configuration keeps its own size
  size_t pixelHeight = 0;
  bool showsCursor = false;
};

// A captured image, held by the adapter (a CGImage on macOS) until it is written.
class CapturedImage {
 public:
  virtual ~CapturedImage() = default;
};

using ShareableWindowsCompletion = std::function<void(CaptureStatus, std::vector<ShareableWindow>)>;
using WindowImageCompletion = std::function<void(CaptureStatus, std::shared_ptr<const CapturedImage>)>;

class ScreenCapture {
 public:
  virtual ~ScreenCapture() = default;
  // SCShareableContent: every window, desktop windows and windows off screen included
  // when both switches are off. `done` is called at most once.
  virtual void requestShareableWindows(bool excludeDesktopWindows, bool onScreenWindowsOnly,
                                       ShareableWindowsCompletion done) = 0;
  // SCScreenshotManager's single-window capture of `request.window`, without asking for
  // the shareable content again. `done` is called at most once.
  virtual void requestWindowImage(const CaptureRequest& request, WindowImageCompletion done) = 0;
  // Writes the image as a PNG file (CGImageDestination). Failures: "failed to create
  // image destination at <path>", "failed to write png to <path>".
  virtual CaptureStatus writePNG(const CapturedImage& image, const std::string& path) = 0;
  // The pixel width and height of an image file's first frame (ImageIO's
  // kCGImagePropertyPixelWidth / Height); absent when the file cannot be read as an
  // image or lacks either property.
  virtual std::optional<PixelSize> imagePixelSize(const std::string& path) = 0;
  // Whether this process may record the screen (CGPreflightScreenCaptureAccess; it asks
  // the user nothing). Without it the screenshot tool still succeeds, with the wallpaper
  // and the menu bar only.
  virtual bool screenRecordingAllowed() = 0;
};

}  // namespace tavlin::platform
