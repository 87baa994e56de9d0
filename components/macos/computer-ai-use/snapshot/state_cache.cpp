#include "snapshot/state_cache.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "common/files.h"
#include "common/json_text.h"
#include "common/unicode.h"
#include "snapshot/snapshot_json.h"

namespace tavlin::snapshot {

std::string sanitizeName(const std::string& name) {
  std::string lower = common::lowercased(name);
  std::string out;
  bool inRun = false;
  for (char c : lower) {
    bool kept = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
    if (kept) {
      out += c;
      inRun = false;
    } else if (!inRun) {
      out += '-';
      inRun = true;
    }
  }
  return out;
}

std::string cacheStem(const platform::RunningApplication& app) {
  if (app.bundleIdentifier) return sanitizeName(*app.bundleIdentifier);
  if (app.localizedName) return sanitizeName(*app.localizedName);
  return sanitizeName("app");
}

void ensureCacheDirectory(const std::string& cacheDirectory) {
  // Intermediate folders (Tavlin/) are user-only too.
  if (!common::createPrivateDirectories(cacheDirectory, common::deletingLastPathComponent(cacheDirectory), 0700)) {
    throw cli::ToolError("Could not create the cache folder " + cacheDirectory + ": " + std::strerror(errno));
  }
  if (!common::isPrivateDirectory(cacheDirectory)) {
    throw cli::ToolError("The cache folder " + cacheDirectory +
                         " belongs to another user or others can write to it; remove it and try again");
  }
}

namespace {

std::string cacheFile(const runtime::ProcessValues& values, const platform::RunningApplication& app,
                      const char* extension) {
  return common::appendPathComponent(values.cacheDirectoryURL,
                                     cacheStem(app) + "-" + std::to_string(app.pid) + extension);
}

bool succeeded(const platform::ProcessResult& result, const std::string& path) {
  return result.launched && !result.timedOut && result.exitStatus == 0 && common::exists(path);
}

// Screen coordinates as the screenshot tool's integers; absent when out of its range.
std::optional<std::string> integerText(double v) {
  double t = std::trunc(v);
  if (!std::isfinite(t) || t < std::numeric_limits<int32_t>::min() || t > std::numeric_limits<int32_t>::max()) {
    return std::nullopt;
  }
  return std::to_string(static_cast<int32_t>(t));
}

// Runs the tools in turn until one leaves an image at `aside`.
bool captureTo(platform::Platform& platform, const runtime::ProcessValues& values,
               const platform::RunningApplication& app, const std::optional<QuartzWindowInfo>& windowInfo,
               const std::optional<platform::Rect>& fallbackFrame, const std::string& aside,
               const runtime::WindowCapturer& capturer) {
  if (capturer) {
    runtime::WindowCaptureRequest request{std::nullopt, app.pid, aside};
    if (windowInfo) request.windowID = windowInfo->windowID;
    if (capturer(request) && common::exists(aside)) return true;
    ::unlink(aside.c_str());
  } else if (common::exists(values.backgroundWindowCaptureScriptURL)) {
    platform::ProcessRequest request;
    request.executable = "/bin/zsh";
    request.arguments = {values.backgroundWindowCaptureScriptURL, "capture"};
    if (windowInfo) {
      request.arguments.insert(request.arguments.end(), {"--window-id", std::to_string(windowInfo->windowID)});
    } else {
      request.arguments.insert(request.arguments.end(), {"--pid", std::to_string(app.pid)});
    }
    request.arguments.insert(request.arguments.end(), {"--out", aside});
    request.captureOutput = true;
    request.timeoutSeconds = captureToolTimeout;
    if (succeeded(platform.processes().run(request), aside)) return true;
    ::unlink(aside.c_str());
  }

  std::optional<platform::Rect> rect = fallbackFrame;
  if (!rect && windowInfo) rect = windowInfo->frame;
  if (!rect) return false;
  auto x = integerText(rect->origin.x), y = integerText(rect->origin.y);
  auto w = integerText(rect->size.width), h = integerText(rect->size.height);
  if (!x || !y || !w || !h) return false;
  platform::ProcessRequest request;
  request.executable = "/usr/sbin/screencapture";
  request.arguments = {"-x", "-R" + *x + "," + *y + "," + *w + "," + *h, aside};
  request.captureOutput = true;
  request.timeoutSeconds = captureToolTimeout;
  return succeeded(platform.processes().run(request), aside);
}

}  // namespace

std::string cacheFileURL(const runtime::ProcessValues& values, const platform::RunningApplication& app) {
  ensureCacheDirectory(values.cacheDirectoryURL);
  return cacheFile(values, app, ".json");
}

std::string screenshotFileURL(const runtime::ProcessValues& values, const platform::RunningApplication& app) {
  return cacheFile(values, app, ".png");
}

std::optional<SizePayload> readImageSize(platform::Platform& platform, const std::string& path) {
  auto size = platform.screenCapture().imagePixelSize(path);
  if (!size) return std::nullopt;
  return SizePayload{size->width, size->height};
}

std::optional<CapturedImage> captureWindowImage(platform::Platform& platform, const runtime::ProcessValues& values,
                                                const platform::RunningApplication& app,
                                                const std::optional<QuartzWindowInfo>& windowInfo,
                                                const std::optional<platform::Rect>& fallbackFrame,
                                                const runtime::WindowCapturer& capturer) {
  std::string path = screenshotFileURL(values, app);
  try {
    if (!common::createPrivateDirectories(values.cacheDirectoryURL,
                                          common::deletingLastPathComponent(values.cacheDirectoryURL), 0700) ||
        !common::isPrivateDirectory(values.cacheDirectoryURL)) {
      return std::nullopt;
    }
    ::unlink(path.c_str());  // a failed capture must not leave the previous image behind
    // Made in a private folder of its own, with the final name: the tools choose the
    // format by the extension, and nothing planted beside the cache can be followed.
    common::StagedFile staged(path);
    if (staged.ready() &&
        captureTo(platform, values, app, windowInfo, fallbackFrame, staged.stagedPath(), capturer) && staged.commit(0600)) {
      return CapturedImage{path, readImageSize(platform, path)};
    }
  } catch (const std::exception&) {
    // A capture that fails in any way leaves the snapshot without a screenshot.
  }
  return std::nullopt;
}

void writeCachedState(const AppStateSnapshot& snapshot) {
  std::string text = cli::formatJSON(encode(snapshot), cli::JsonFlavor::encoder);
  if (!common::writeFileAtomically(snapshot.cachePath, text, 0600)) {
    throw cli::ToolError("Could not write the cached state " + snapshot.cachePath + ": " + std::strerror(errno));
  }
}

AppStateSnapshot loadCachedState(const runtime::ProcessValues& values, const platform::RunningApplication& app) {
  std::string path = cacheFile(values, app, ".json");
  std::string problem;
  auto text = common::readRegularFile(path, maxCachedStateBytes, problem);
  if (!text) {
    throw cli::ToolError("Cannot read the cached state " + path + " (" + problem + "). Call get-app-state first.");
  }
  return parseCachedState(*text, path);
}

AppStateSnapshot parseCachedState(const std::string& text, const std::string& path) {
  cli::Json document;
  try {
    if (common::checkJsonText(text, maxCachedStateJsonDepth)) throw std::invalid_argument("limits");
    document = cli::Json::parse(text);
  } catch (const std::exception&) {
    throw cli::ToolError("The cached state " + path + " is not valid JSON. Call get-app-state again.");
  }
  try {
    return decodeAppStateSnapshot(document);
  } catch (const DecodingError& e) {
    throw cli::ToolError("The cached state " + path + " is not a snapshot (" + e.what() +
                         "). Call get-app-state again.");
  } catch (const nlohmann::json::exception& e) {
    throw cli::ToolError("The cached state " + path + " is not a snapshot (" + e.what() +
                         "). Call get-app-state again.");
  }
}

platform::Point screenPoint(const AppStateSnapshot& cached, const std::string& appName, double x, double y) {
  const auto& size = cached.screenshotSize;
  if (!size || size->width < 1 || size->height <= 0 || !cached.window || !cached.window->frame) {
    throw cli::ToolError("No cached screenshot/window mapping for " + appName + ". Call get-app-state first.");
  }
  const RectPayload& f = *cached.window->frame;
  return {f.x + (x / static_cast<double>(size->width)) * f.width,
          f.y + (y / static_cast<double>(size->height)) * f.height};
}

}  // namespace tavlin::snapshot
