#pragma once
// Background window capture: lists, captures and watches windows of other applications
// into PNG files without bringing them forward. ScreenCaptureKit first (every call under
// a hard time-out), the window-server list and the system screenshot tool as fallbacks.
// Reached through "__background-window-capture" and bin/background-window-capture, which
// get-app-state runs for its screenshots.
//
// Lines printed on success: "list" one line per window; "capture" one line naming the
// window and the file; "watch" one line per capture (and its archive copy), and a last
// line when it stops. A watch without --count runs until SIGINT or SIGTERM and then
// stops between captures, so its files are always whole (every PNG is written aside
// and moved into place).
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "runtime/output.h"
#include "runtime/process_values.h"

namespace tavlin::capture {

// The largest --timeout and --interval: a wait beyond them is a mistake, not a plan.
inline constexpr double bwcMaxTimeout = 600;
inline constexpr double bwcMaxInterval = 86400;

struct BWCOptions {
  std::string command;  // "list", "capture" or "watch"
  std::optional<uint32_t> windowID;
  std::optional<int32_t> pid;
  std::optional<std::string> appName;
  std::optional<std::string> titleContains;
  std::optional<std::string> outputPath;
  std::optional<std::string> archiveDir;
  double interval = 2.0;
  std::optional<int64_t> count;
  double timeout = 5.0;
};

struct BWCWindowMatch {
  uint32_t windowID = 0;
  int32_t pid = 0;
  std::string appName;
  std::optional<std::string> title;
  platform::Rect frame;
  // The ScreenCaptureKit window discovery found, carried into every capture of it
  // (absent when the window came from the window-server list).
  std::shared_ptr<const platform::ShareableWindowObject> scWindow;
};

struct BWCCommandOutput {
  std::vector<std::string> stdoutLines;
  std::vector<std::string> stderrLines;
};

std::string bwcUsageText(const std::string& executableName);
bool bwcIsHelpRequest(const std::vector<std::string>& arguments);
// `arguments` starts with the command word. Throws ToolError with the exact messages.
BWCOptions bwcParseOptions(const std::vector<std::string>& arguments);
bool bwcMatches(const BWCOptions& options, const BWCWindowMatch& window);

// Everything the commands use.
struct CaptureContext {
  platform::Platform& platform;
  const runtime::ProcessValues& values;
  bool debug = false;  // TAVLIN_BWC_DEBUG: discovery steps on standard error
  // When set, a watch hands each line over as it happens (error lines with true)
  // instead of keeping it in the command's output.
  std::function<void(bool error, const std::string& line)> emit = {};
  // Set when ScreenCaptureKit reports that the user declined Screen Recording: the
  // screenshot tool is then not run, whatever the preflight says (it would image only
  // the wallpaper). Shared with completions that may come after a time-out.
  std::shared_ptr<std::atomic<bool>> screenRecordingDeclined = std::make_shared<std::atomic<bool>>(false);
};

std::vector<BWCWindowMatch> bwcFindWindows(CaptureContext& c, const BWCOptions& options);
std::vector<BWCWindowMatch> bwcFindWindowsViaQuartz(CaptureContext& c, const BWCOptions& options);
std::vector<std::string> bwcListWindows(CaptureContext& c, const BWCOptions& options);
// Captures one window into `path`: the image is written in a private folder beside it
// and moved into place when whole. `path` may name a regular file (which keeps its
// mode) or nothing (a new file follows the umask); anything else is refused. Messages
// name `path`. With `written`, it also receives the image's bytes. Throws ToolError.
void bwcCapture(CaptureContext& c, const BWCWindowMatch& window, const std::string& path, double timeout);
void bwcCapture(CaptureContext& c, const BWCWindowMatch& window, const std::string& path, double timeout,
                std::optional<std::string>* written);
void bwcCaptureVisibleRegion(CaptureContext& c, const BWCWindowMatch& window, const std::string& path);
BWCCommandOutput bwcExecuteCommand(CaptureContext& c, const std::vector<std::string>& arguments);

// "__image-size PATH": the pixel size of an image file as the platform's image reader
// sees it ("WIDTH HEIGHT"), a check of that reader that needs no permission. Exit 1
// with one line when the file is not an image.
int runImageSizeDiagnostic(platform::Platform& platform, runtime::Output& output,
                           const std::vector<std::string>& arguments);

// The mode: `arguments` starts with "background-window-capture". Prints the command's
// lines and returns the exit status (1 with "background-window-capture: <message>").
int runBackgroundWindowCaptureHost(const runtime::ProcessValues& values, platform::Platform& platform,
                                   const std::vector<std::string>& arguments);

}  // namespace tavlin::capture
