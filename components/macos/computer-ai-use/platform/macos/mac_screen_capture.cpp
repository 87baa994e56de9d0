#include "platform/macos/mac_screen_capture.h"

#include <ImageIO/ImageIO.h>

#include "platform/macos/cf_handle.h"

namespace tavlin::macos {

platform::CaptureStatus MacScreenCapture::shareableWindows(bool, bool, double,
                                                           std::vector<platform::ShareableWindow>& windows) {
  windows.clear();
  return {platform::CaptureStatus::Kind::failed, "ScreenCaptureKit capture is not available yet in this build"};
}

platform::CaptureStatus MacScreenCapture::captureWindow(const platform::CaptureRequest&) {
  return {platform::CaptureStatus::Kind::failed, "ScreenCaptureKit capture is not available yet in this build"};
}

std::optional<platform::PixelSize> MacScreenCapture::imagePixelSize(const std::string& path) {
  auto url = CFHandle<CFURLRef>::adopt(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const uint8_t*>(path.data()), static_cast<CFIndex>(path.size()), false));
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
