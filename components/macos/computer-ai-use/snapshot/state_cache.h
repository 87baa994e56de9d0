#pragma once
// The per-application state cache: the last snapshot's JSON and its window
// screenshot, so that commands given screenshot pixels can map them to the screen.
// The folders (Tavlin/ and its state folder) are made user-only (0700), and tightened
// to that when the user owns them; the files are 0600: screenshots can show private
// content. A cache file is a regular file of at most 256 MiB.
#include <optional>
#include <string>

#include "runtime/command_context.h"
#include "runtime/process_values.h"
#include "platform/platform.h"
#include "snapshot/root_window.h"
#include "snapshot/snapshot_model.h"

namespace tavlin::snapshot {

// Lower-cased, with every run of characters outside [a-z0-9._-] replaced by "-".
std::string sanitizeName(const std::string& name);
// `sanitizeName` of the bundle identifier, else of the name, else of "app".
std::string cacheStem(const platform::RunningApplication& app);

// Throws ToolError when the folder cannot be made.
void ensureCacheDirectory(const std::string& cacheDirectory);
std::string cacheFileURL(const runtime::ProcessValues& values, const platform::RunningApplication& app);
std::string screenshotFileURL(const runtime::ProcessValues& values, const platform::RunningApplication& app);

inline constexpr size_t maxCachedStateBytes = size_t{256} << 20;
inline constexpr size_t maxCachedStateJsonDepth = 64;

// How long one run of a screenshot tool may take before it counts as failed.
inline constexpr double captureToolTimeout = 30.0;

struct CapturedImage {
  std::string path;
  std::optional<SizePayload> size;
};

// Captures the window into the screenshot file: through `capturer` when given (the
// companion's capture code in this process), else the companion capture tool when it is
// installed; then the system screenshot tool over the window's rectangle.
// The image is written aside (0600) and moved into place only when it is whole.
// Never fails the command: any failure gives nothing (and no stale file is left).
std::optional<CapturedImage> captureWindowImage(platform::Platform& platform, const runtime::ProcessValues& values,
                                                const platform::RunningApplication& app,
                                                const std::optional<QuartzWindowInfo>& windowInfo,
                                                const std::optional<platform::Rect>& fallbackFrame,
                                                const runtime::WindowCapturer& capturer = {});

std::optional<SizePayload> readImageSize(platform::Platform& platform, const std::string& path);

// Writes the snapshot as the cache file (atomically, 0600). Throws ToolError.
void writeCachedState(const AppStateSnapshot& snapshot);

// The last snapshot of this process. Throws ToolError naming the file and what is
// wrong when it is missing, unreadable, not JSON or not a snapshot.
AppStateSnapshot loadCachedState(const runtime::ProcessValues& values, const platform::RunningApplication& app);

// The same, from the file's text (`path` names it in messages).
AppStateSnapshot parseCachedState(const std::string& text, const std::string& path);

// Screenshot pixels to screen points through the cached window frame and image size.
// Throws ToolError "No cached screenshot/window mapping for <app>. Call get-app-state first."
platform::Point screenPoint(const AppStateSnapshot& cached, const std::string& appName, double x, double y);

}  // namespace tavlin::snapshot
