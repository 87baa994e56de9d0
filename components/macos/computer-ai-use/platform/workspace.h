#pragma once
// The workspace port: running applications (NSWorkspace / NSRunningApplication) and
// the few user folders the tool needs.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/geometry.h"

namespace tavlin::platform {

// NSApplicationActivationPolicy values.
enum class ActivationPolicy : int64_t { regular = 0, accessory = 1, prohibited = 2 };

// NSApplicationActivationOptions bits.
namespace activation {
inline constexpr uint64_t allWindows = 1u << 0;
inline constexpr uint64_t ignoringOtherApps = 1u << 1;
}  // namespace activation

// A running application as read at the moment of the call.
struct RunningApplication {
  int32_t pid = 0;
  std::optional<std::string> localizedName;
  std::optional<std::string> bundleIdentifier;
  ActivationPolicy activationPolicy = ActivationPolicy::regular;
  bool hidden = false;
  bool terminated = false;
};

// The main screen (the one with the menu bar, at the origin of screen points).
struct ScreenInfo {
  Size size;                // in points
  double backingScale = 1;  // pixels per point
};

class Workspace {
 public:
  virtual ~Workspace() = default;

  // In the platform's order.
  virtual std::vector<RunningApplication> runningApplications() = 0;
  virtual std::optional<RunningApplication> frontmostApplication() = 0;
  // False when the application refused or is gone.
  virtual bool unhide(int32_t pid) = 0;
  virtual bool activate(int32_t pid, uint64_t options) = 0;
  // NSFileManager displayNameAtPath:.
  virtual std::string displayName(const std::string& path) = 0;
  // NSScreen's first screen; absent without a window server session.
  virtual std::optional<ScreenInfo> mainScreen() = 0;
  // The first user-domain caches folder, absent if the system names none.
  virtual std::optional<std::string> userCachesDirectory() = 0;
  virtual std::string homeDirectory() = 0;
  // The main bundle's path; for a bare executable, the folder that holds it.
  virtual std::string mainBundlePath() = 0;
};

}  // namespace tavlin::platform
