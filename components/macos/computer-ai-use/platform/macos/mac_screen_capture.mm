#include "platform/macos/mac_screen_capture.h"

#import <ScreenCaptureKit/ScreenCaptureKit.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "platform/macos/cf_handle.h"
#include "platform/macos/cf_strings.h"
#include "platform/macos/ns_strings.h"

namespace tavlin::macos {
namespace {

using platform::CaptureStatus;

// A CGImage, kept until it is written.
struct MacCapturedImage final : platform::CapturedImage {
  explicit MacCapturedImage(CFHandle<CGImageRef> i) : image(std::move(i)) {}
  CFHandle<CGImageRef> image;
};

// The SCWindow discovery returned, held (strongly, under ARC) for the captures of it.
struct MacShareableWindow final : platform::ShareableWindowObject {
  explicit MacShareableWindow(SCWindow* w) : window(w) {}
  SCWindow* window;
};

CaptureStatus failure(NSError* _Nullable error, const char* fallback) {
  CaptureStatus status{CaptureStatus::Kind::failed,
                       error ? nsText(error.localizedDescription).value_or(fallback) : fallback};
  // The domain and code say what the description may not: no Screen Recording permission.
  if (@available(macOS 12.3, *)) {
    if (error && [error.domain isEqualToString:SCStreamErrorDomain] && error.code == SCStreamErrorUserDeclined) {
      status.kind = CaptureStatus::Kind::permissionDenied;
    }
  }
  return status;
}

CFHandle<CFURLRef> fileURL(const std::string& path) {
  return CFHandle<CFURLRef>::adopt(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const uint8_t*>(path.data()), static_cast<CFIndex>(path.size()), false));
}

platform::ShareableWindow convert(SCWindow* w) API_AVAILABLE(macos(12.3)) {
  platform::ShareableWindow s;
  s.windowID = w.windowID;
  CGRect f = w.frame;
  s.frame = {{f.origin.x, f.origin.y}, {f.size.width, f.size.height}};
  s.title = nsText(w.title);
  s.windowLayer = w.windowLayer;
  s.onScreen = w.onScreen;
  if (SCRunningApplication* app = w.owningApplication) {
    s.ownerPID = app.processID;
    s.ownerBundleIdentifier = nsText(app.bundleIdentifier);
    s.ownerName = nsText(app.applicationName);
  }
  s.object = std::make_shared<const MacShareableWindow>(w);
  return s;
}

}  // namespace

void MacScreenCapture::requestShareableWindows(bool excludeDesktopWindows, bool onScreenWindowsOnly,
                                               platform::ShareableWindowsCompletion done) {
  if (@available(macOS 12.3, *)) {
    auto callback = std::make_shared<platform::ShareableWindowsCompletion>(std::move(done));
    [SCShareableContent
        getShareableContentExcludingDesktopWindows:excludeDesktopWindows
                               onScreenWindowsOnly:onScreenWindowsOnly
                                 completionHandler:^(SCShareableContent* _Nullable content, NSError* _Nullable error) {
                                   if (!content) {
                                     (*callback)(failure(error, "no shareable content"), {});
                                     return;
                                   }
                                   std::vector<platform::ShareableWindow> windows;
                                   for (SCWindow* w in content.windows) windows.push_back(convert(w));
                                   (*callback)({}, std::move(windows));
                                 }];
  } else {
    done({CaptureStatus::Kind::failed, "ScreenCaptureKit needs macOS 12.3 or later"}, {});
  }
}

void MacScreenCapture::requestWindowImage(const platform::CaptureRequest& request,
                                          platform::WindowImageCompletion done) {
  if (@available(macOS 14.0, *)) {
    // The window object from discovery: the content filter is built from it, with no
    // second enumeration. One that has closed since fails in the screenshot manager.
    const auto* held = dynamic_cast<const MacShareableWindow*>(request.window.get());
    SCWindow* window = held ? held->window : nil;
    if (!window) {
      done({CaptureStatus::Kind::failed, "no shareable window to capture"}, nullptr);
      return;
    }
    SCContentFilter* filter = [[SCContentFilter alloc] initWithDesktopIndependentWindow:window];
    SCStreamConfiguration* configuration = [[SCStreamConfiguration alloc] init];
    configuration.showsCursor = request.showsCursor;
    // A frame that rounds to nothing would keep the configuration's own 1920x1080: the
    // window's own size in pixels instead.
    size_t width = request.pixelWidth, height = request.pixelHeight;
    if (width == 0 || height == 0) {
      width = static_cast<size_t>(std::max(1.0, std::ceil(window.frame.size.width)));
      height = static_cast<size_t>(std::max(1.0, std::ceil(window.frame.size.height)));
    }
    configuration.width = width;
    configuration.height = height;
    // The shadow is not part of the window: not fitted into its frame.
    configuration.ignoreShadowsSingleWindow = YES;
    auto callback = std::make_shared<platform::WindowImageCompletion>(std::move(done));
    [SCScreenshotManager captureImageWithFilter:filter
                                  configuration:configuration
                              completionHandler:^(CGImageRef _Nullable image, NSError* _Nullable failed) {
                                if (!image) {
                                  (*callback)(failure(failed, "no image"), nullptr);
                                  return;
                                }
                                (*callback)({}, std::make_shared<const MacCapturedImage>(
                                                    CFHandle<CGImageRef>::retain(image)));
                              }];
  } else {
    done({CaptureStatus::Kind::failed, "ScreenCaptureKit screenshots need macOS 14 or later"}, nullptr);
  }
}

platform::CaptureStatus MacScreenCapture::writePNG(const platform::CapturedImage& image, const std::string& path) {
  const auto* mac = dynamic_cast<const MacCapturedImage*>(&image);
  auto url = fileURL(path);
  auto png = cfString("public.png");
  auto destination = CFHandle<CGImageDestinationRef>::adopt(
      url && png ? CGImageDestinationCreateWithURL(url.get(), png.get(), 1, nullptr) : nullptr);
  if (!destination || !mac) return {CaptureStatus::Kind::failed, "failed to create image destination at " + path};
  CGImageDestinationAddImage(destination.get(), mac->image.get(), nullptr);
  if (!CGImageDestinationFinalize(destination.get())) {
    return {CaptureStatus::Kind::failed, "failed to write png to " + path};
  }
  return {};
}

bool MacScreenCapture::screenRecordingAllowed() { return CGPreflightScreenCaptureAccess(); }

std::optional<platform::PixelSize> MacScreenCapture::imagePixelSize(const std::string& path) {
  auto url = fileURL(path);
  if (!url) return std::nullopt;
  auto source = CFHandle<CGImageSourceRef>::adopt(CGImageSourceCreateWithURL(url.get(), nullptr));
  if (!source) return std::nullopt;
  auto properties = CFHandle<CFDictionaryRef>::adopt(CGImageSourceCopyPropertiesAtIndex(source.get(), 0, nullptr));
  if (!properties.hasType(CFDictionaryGetTypeID())) return std::nullopt;
  auto read = [&](CFStringRef key) -> std::optional<int64_t> {
    const void* value = CFDictionaryGetValue(properties.get(), key);
    int64_t n = 0;
    if (!value || CFGetTypeID(value) != CFNumberGetTypeID() ||
        !CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, &n)) {
      return std::nullopt;
    }
    return n;
  };
  auto width = read(kCGImagePropertyPixelWidth);
  auto height = read(kCGImagePropertyPixelHeight);
  if (!width || !height) return std::nullopt;
  return platform::PixelSize{*width, *height};
}

}  // namespace tavlin::macos
