#include "capture/background_capture.h"

#include <signal.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "capture/hard_timeout.h"
#include "cli/arguments.h"
#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "common/files.h"
#include "common/unicode.h"
#include "runtime/output.h"

namespace tavlin::capture {

namespace {

using cli::ToolError;

std::string number(double v) { return cli::formatJSON(cli::Json(v), cli::JsonFlavor::encoder); }

std::string frameText(const platform::Rect& f) {
  return number(f.origin.x) + "," + number(f.origin.y) + "," + number(f.size.width) + "," + number(f.size.height);
}

std::string describe(const BWCWindowMatch& w) {
  return std::to_string(w.windowID) + " (pid=" + std::to_string(w.pid) + ", app=" + w.appName +
         ", title=" + w.title.value_or("<untitled>") + ")";
}

// Written at once, so a long watch shows what it does as it does it.
void debugLog(CaptureContext& c, const std::string& message) {
  if (c.debug) runtime::writeAll(2, "[background-window-capture debug] " + message + "\n");
}

// The frame rounded outward to whole points; absent when it is not a usable rectangle.
struct IntegralRect {
  int64_t x, y, width, height;
};
std::optional<IntegralRect> integral(const platform::Rect& f) {
  double x0 = std::floor(f.origin.x), y0 = std::floor(f.origin.y);
  double x1 = std::ceil(f.origin.x + f.size.width), y1 = std::ceil(f.origin.y + f.size.height);
  constexpr double limit = std::numeric_limits<int32_t>::max();
  for (double v : {x0, y0, x1, y1}) {
    if (!std::isfinite(v) || std::fabs(v) > limit) return std::nullopt;
  }
  return IntegralRect{static_cast<int64_t>(x0), static_cast<int64_t>(y0), static_cast<int64_t>(x1 - x0),
                      static_cast<int64_t>(y1 - y0)};
}

// Messages name the file the user asked for, never the staging file beside it.
std::string naming(std::string message, const common::StagedFile& staged, const std::string& path) {
  const std::string& aside = staged.stagedPath();
  for (size_t at = 0; !aside.empty() && (at = message.find(aside, at)) != std::string::npos; at += path.size()) {
    message.replace(at, aside.size(), path);
  }
  return message;
}

std::string writeFailure(const std::string& path, const std::string& why) {
  return "failed to write png to " + path + ": " + why;
}

// The output may be created or replace a regular file, nothing else (a device, a FIFO,
// a folder, a link). Gives the mode the new file gets: the old file's, or the umask's.
mode_t checkedOutput(const std::string& path) {
  std::optional<mode_t> existing;
  if (auto problem = common::outputTargetProblem(path, &existing)) throw ToolError(writeFailure(path, *problem));
  return existing ? *existing : common::modeAfterUmask(0666);
}

// A staging file for one capture: the image is written in a private folder beside the
// output and moved into place only when whole.
struct Staging {
  explicit Staging(const std::string& output) : path((checkedOutput(output), output)), file(output) {
    if (!file.ready()) throw ToolError(writeFailure(path, std::strerror(errno)));
  }
  const std::string& aside() const { return file.stagedPath(); }
  std::string named(const std::string& message) const { return naming(message, file, path); }
  void moveIntoPlace() {
    // Checked again: the name may have changed while the image was taken.
    if (!file.commit(checkedOutput(path))) throw ToolError(writeFailure(path, std::strerror(errno)));
  }
  std::string path;
  common::StagedFile file;
};

// Hands a ScreenCaptureKit answer to the waiting side. A refusal for want of the
// permission is noted for the whole command, even when it comes after the time-out.
template <typename T>
auto completing(CaptureContext& c, std::shared_ptr<SingleCompletion<T>> done) {
  return [done, declined = c.screenRecordingDeclined](platform::CaptureStatus status, T value) {
    if (status.kind == platform::CaptureStatus::Kind::permissionDenied) *declined = true;
    if (status.ok()) {
      done->succeed(std::move(value));
    } else {
      done->fail(status.description);
    }
  };
}

volatile std::sig_atomic_t stopRequested = 0;
extern "C" void requestStop(int) { stopRequested = 1; }

}  // namespace

std::string bwcUsageText(const std::string& exe) {
  return "Usage:\n"
         "  " + exe + " list [--pid PID] [--app NAME] [--title-contains TEXT] [--timeout SECONDS]\n"
         "  " + exe + " capture (--window-id ID | --pid PID | --app NAME) [--title-contains TEXT] --out FILE "
         "[--timeout SECONDS]\n"
         "  " + exe + " watch (--window-id ID | --pid PID | --app NAME) [--title-contains TEXT] --out FILE "
         "[--interval SECONDS] [--count N] [--archive-dir DIR] [--timeout SECONDS]\n"
         "\n"
         "Examples:\n"
         "  " + exe + " list --pid 33995\n"
         "  " + exe + " capture --pid 33995 --title-contains 123 --out /tmp/idea-123.png\n"
         "  " + exe + " watch --pid 33995 --title-contains 123 --out /tmp/idea-123-latest.png "
         "--archive-dir /tmp/idea-123-history --interval 2";
}

bool bwcIsHelpRequest(const std::vector<std::string>& arguments) {
  // Read as the parser reads: every option takes the next argument as its value, so
  // "--help" given as a value (a title, a file name) is that value, not a request.
  if (!arguments.empty() && arguments[0] == "--help") return true;
  for (size_t i = 1; i < arguments.size(); ++i) {
    if (arguments[i] == "--help") return true;
    if (arguments[i].starts_with("--")) ++i;
  }
  return false;
}

BWCOptions bwcParseOptions(const std::vector<std::string>& arguments) {
  if (arguments.empty()) throw ToolError("missing command: expected list, capture or watch");
  BWCOptions o;
  o.command = arguments[0];
  if (o.command != "list" && o.command != "capture" && o.command != "watch") {
    throw ToolError("unknown command: " + o.command);
  }
  for (size_t i = 1; i < arguments.size(); ++i) {
    const std::string& option = arguments[i];
    std::optional<std::string> value;
    if (i + 1 < arguments.size()) value = arguments[i + 1];
    auto take = [&](const char* message) -> std::string {
      if (!value) throw ToolError(message);
      ++i;
      return *value;
    };
    auto positive = [&](const char* message) {
      std::string text = take(message);
      auto v = cli::parseDouble(text);
      if (!v || !(*v > 0) || !std::isfinite(*v)) throw ToolError(message);
      return *v;
    };
    if (option == "--window-id") {
      auto v = cli::parseUInt32(take("--window-id requires an integer"));
      if (!v) throw ToolError("--window-id requires an integer");
      o.windowID = *v;
    } else if (option == "--pid") {
      auto v = cli::parseInt64(take("--pid requires an integer"));
      if (!v || *v < std::numeric_limits<int32_t>::min() || *v > std::numeric_limits<int32_t>::max()) {
        throw ToolError("--pid requires an integer");
      }
      o.pid = static_cast<int32_t>(*v);
    } else if (option == "--app") {
      o.appName = take("--app requires a value");
    } else if (option == "--title-contains") {
      o.titleContains = take("--title-contains requires a value");
    } else if (option == "--out") {
      o.outputPath = take("--out requires a value");
    } else if (option == "--archive-dir") {
      o.archiveDir = take("--archive-dir requires a value");
    } else if (option == "--interval") {
      o.interval = positive("--interval requires a positive number");
      if (o.interval > bwcMaxInterval) throw ToolError("--interval must be at most 86400 seconds");
    } else if (option == "--count") {
      auto v = cli::parseInt64(take("--count requires a positive integer"));
      if (!v || *v <= 0) throw ToolError("--count requires a positive integer");
      o.count = *v;
    } else if (option == "--timeout") {
      o.timeout = positive("--timeout requires a positive number");
      if (o.timeout > bwcMaxTimeout) throw ToolError("--timeout must be at most 600 seconds");
    } else {
      throw ToolError("unknown argument: " + option);
    }
  }
  return o;
}

bool bwcMatches(const BWCOptions& o, const BWCWindowMatch& w) {
  if (!(w.frame.size.width > 0) || !(w.frame.size.height > 0)) return false;
  if (o.windowID && *o.windowID != w.windowID) return false;
  if (o.pid && *o.pid != w.pid) return false;
  if (o.appName && common::lowercased(w.appName).find(common::lowercased(*o.appName)) == std::string::npos) {
    return false;
  }
  if (o.titleContains &&
      common::lowercased(w.title.value_or("")).find(common::lowercased(*o.titleContains)) == std::string::npos) {
    return false;
  }
  return true;
}

std::vector<BWCWindowMatch> bwcFindWindowsViaQuartz(CaptureContext& c, const BWCOptions& options) {
  std::vector<BWCWindowMatch> out;
  auto entries = c.platform.windowList().copyWindowInfo(platform::windowlist::all, 0);
  if (!entries) return out;
  for (const platform::WindowInfo& w : *entries) {
    if (w.number == 0) continue;
    BWCWindowMatch m{w.number, w.ownerPID, w.ownerName.value_or(""), w.name, w.bounds, nullptr};
    if (bwcMatches(options, m)) out.push_back(std::move(m));
  }
  return out;
}

std::vector<BWCWindowMatch> bwcFindWindows(CaptureContext& c, const BWCOptions& options) {
  using Windows = std::vector<platform::ShareableWindow>;
  try {
    platform::ScreenCapture& capture = c.platform.screenCapture();
    Windows windows = runWithHardTimeout<Windows>(
        c.platform.clock(), options.timeout, [&](std::shared_ptr<SingleCompletion<Windows>> done) {
          capture.requestShareableWindows(false, false, completing(c, done));
        });
    debugLog(c, "ScreenCaptureKit returned " + std::to_string(windows.size()) + " windows");
    std::vector<BWCWindowMatch> matches;
    for (const platform::ShareableWindow& w : windows) {
      BWCWindowMatch m{w.windowID, w.ownerPID.value_or(0), w.ownerName.value_or(""), w.title, w.frame, w.object};
      if (bwcMatches(options, m)) matches.push_back(std::move(m));
    }
    debugLog(c, "ScreenCaptureKit matched " + std::to_string(matches.size()) + " windows");
    if (!matches.empty()) return matches;
  } catch (const ToolError& error) {
    debugLog(c, "ScreenCaptureKit window enumeration failed: " + error.description);
  }
  std::vector<BWCWindowMatch> matches = bwcFindWindowsViaQuartz(c, options);
  debugLog(c, "Quartz fallback matched " + std::to_string(matches.size()) + " windows");
  return matches;
}

std::vector<std::string> bwcListWindows(CaptureContext& c, const BWCOptions& options) {
  std::vector<std::string> lines;
  for (const BWCWindowMatch& w : bwcFindWindows(c, options)) {
    // Names and titles are the applications' own texts: escaped, so that none can add a
    // field or a line.
    lines.push_back(std::to_string(w.windowID) + "\tpid=" + std::to_string(w.pid) +
                    "\tapp=" + common::escapingControlCharacters(w.appName) +
                    "\ttitle=" + common::escapingControlCharacters(w.title.value_or("<untitled>")) +
                    "\tframe=" + frameText(w.frame));
  }
  if (lines.empty()) throw ToolError("no matching windows found");
  return lines;
}

namespace {

BWCWindowMatch resolveTarget(CaptureContext& c, const BWCOptions& options) {
  std::vector<BWCWindowMatch> matches = bwcFindWindows(c, options);
  if (matches.empty()) throw ToolError("no matching windows found");
  if (matches.size() > 1) {
    std::string candidates;
    for (const auto& m : matches) candidates += (candidates.empty() ? "" : ", ") + describe(m);
    throw ToolError("multiple matching windows found: " + candidates +
                    ". Narrow the query with --window-id, --pid, --app, or --title-contains");
  }
  return matches.front();
}

}  // namespace

void bwcCaptureVisibleRegion(CaptureContext& c, const BWCWindowMatch& window, const std::string& path) {
  std::optional<IntegralRect> r = integral(window.frame);
  if (!r) throw ToolError("window " + std::to_string(window.windowID) + " has invalid frame " + frameText(window.frame));
  // Without the permission the tool "succeeds" with the wallpaper and the menu bar only.
  if (c.screenRecordingDeclined->load() || !c.platform.screenCapture().screenRecordingAllowed()) {
    throw ToolError("Screen Recording permission is not granted to Tavlin (System Settings > Privacy & Security > "
                    "Screen Recording)");
  }
  platform::ProcessRequest request;
  request.executable = "/usr/sbin/screencapture";
  request.arguments = {"-x",
                       "-R" + std::to_string(r->x) + "," + std::to_string(r->y) + "," + std::to_string(r->width) +
                           "," + std::to_string(r->height),
                       path};
  request.captureOutput = true;
  request.timeoutSeconds = 30;
  platform::ProcessResult result = c.platform.processes().run(request);
  if (!result.launched || result.timedOut || result.exitStatus != 0) {
    std::string error = common::trimmed(result.standardError);
    if (error.empty() && !result.launched) error = result.launchError;
    throw ToolError(error.empty() ? "unknown screencapture failure" : error);
  }
}

void bwcCapture(CaptureContext& c, const BWCWindowMatch& window, const std::string& path, double timeout) {
  bwcCapture(c, window, path, timeout, nullptr);
}

void bwcCapture(CaptureContext& c, const BWCWindowMatch& window, const std::string& path, double timeout,
                std::optional<std::string>* written) {
  Staging staging(path);
  auto finish = [&] {
    if (written) *written = common::readFile(staging.aside());
    staging.moveIntoPlace();
  };
  auto region = [&] {
    try {
      bwcCaptureVisibleRegion(c, window, staging.aside());
    } catch (const ToolError& error) {
      throw ToolError(staging.named(error.description));
    }
    finish();
  };
  if (!window.scWindow) {
    try {
      region();
    } catch (const ToolError& error) {
      throw ToolError("No ScreenCaptureKit window was available for window " + std::to_string(window.windowID) +
                      "; Quartz/screencapture fallback failed: " + error.description);
    }
    return;
  }
  std::string first;
  try {
    platform::CaptureRequest request;
    request.window = window.scWindow;
    request.showsCursor = false;
    if (auto r = integral(window.frame); r && r->width > 0 && r->height > 0) {
      request.pixelWidth = static_cast<size_t>(std::max<int64_t>(1, r->width));
      request.pixelHeight = static_cast<size_t>(std::max<int64_t>(1, r->height));
    }
    using Image = std::shared_ptr<const platform::CapturedImage>;
    platform::ScreenCapture& capture = c.platform.screenCapture();
    Image image = runWithHardTimeout<Image>(c.platform.clock(), timeout, [&](auto done) {
      capture.requestWindowImage(request, completing(c, done));
    });
    if (!image) throw ToolError("no image");
    platform::CaptureStatus status = capture.writePNG(*image, staging.aside());
    if (!status.ok()) throw ToolError(staging.named(status.description));
    finish();
    return;
  } catch (const ToolError& error) {
    first = error.description;
  }
  try {
    region();
  } catch (const ToolError& error) {
    throw ToolError("ScreenCaptureKit failed: " + first + "; fallback screencapture failed: " + error.description);
  }
}

namespace {

std::string capturedLine(const BWCWindowMatch& w, const std::string& path) {
  return "captured window " + std::to_string(w.windowID) + " (pid=" + std::to_string(w.pid) +
         ", app=" + common::escapingFieldMarkers(w.appName, {") to "}) + ") to " + common::escapingControlCharacters(path);
}

// A watch's line: shown at once when the host streams, kept for the caller otherwise.
void report(CaptureContext& c, BWCCommandOutput& output, bool error, const std::string& line) {
  if (c.emit) {
    c.emit(error, line);
  } else {
    (error ? output.stderrLines : output.stdoutLines).push_back(line);
  }
}

// Copies a capture into the archive folder; a failure is the archive's, not the capture's.
void archive(CaptureContext& c, BWCCommandOutput& output, const BWCWindowMatch& window, const std::string& folder,
             const std::optional<std::string>& bytes) {
  std::string name = "window-" + std::to_string(window.windowID) + "-" +
                     c.values.bwcTimestampFormatter.string(c.platform.clock().now()) + ".png";
  std::string archived = common::appendPathComponent(folder, name);
  std::string problem;
  if (!common::createDirectories(folder, 0755)) {
    problem = "could not create the archive folder " + folder + ": " +
              (common::exists(folder) ? std::string("not a directory") : std::strerror(errno));
  } else if (auto target = common::outputTargetProblem(archived)) {
    problem = "could not archive to " + archived + ": " + *target;
  } else if (!bytes || !common::writeFileAtomically(archived, *bytes, common::modeAfterUmask(0666))) {
    problem = "could not archive to " + archived + ": " + std::strerror(bytes ? errno : EIO);
  }
  if (problem.empty()) {
    report(c, output, false, "archived " + common::escapingControlCharacters(archived));
  } else {
    report(c, output, true, "watch archive failed: " + common::escapingControlCharacters(problem));
  }
}

BWCCommandOutput bwcWatch(CaptureContext& c, const BWCOptions& options) {
  BWCCommandOutput output;
  const std::string& path = *options.outputPath;
  checkedOutput(path);  // an output that can never be written ends the watch before it starts
  BWCWindowMatch window = resolveTarget(c, options);
  stopRequested = 0;
  struct sigaction action {}, oldInt {}, oldTerm {}, oldHup {};
  action.sa_handler = requestStop;
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGINT, &action, &oldInt);
  ::sigaction(SIGTERM, &action, &oldTerm);
  ::sigaction(SIGHUP, &action, &oldHup);
  int64_t captures = 0;
  for (int64_t n = 1; !stopRequested; ++n) {
    std::optional<std::string> bytes;
    bool captured = false;
    try {
      bwcCapture(c, window, path, options.timeout, options.archiveDir ? &bytes : nullptr);
      captured = true;
    } catch (const ToolError& error) {
      report(c, output, true, "watch capture failed: " + common::escapingControlCharacters(error.description));
    }
    if (captured) {
      ++captures;
      report(c, output, false, capturedLine(window, path));
      if (options.archiveDir) archive(c, output, window, *options.archiveDir, bytes);
    }
    // Lets other processes at a shared desktop between captures.
    c.platform.checkpoint();
    if (options.count && n >= *options.count) break;
    c.platform.clock().waitUntil([] { return stopRequested != 0; }, options.interval);
  }
  ::sigaction(SIGINT, &oldInt, nullptr);
  ::sigaction(SIGTERM, &oldTerm, nullptr);
  ::sigaction(SIGHUP, &oldHup, nullptr);
  report(c, output, false,
         "watch " + std::string(stopRequested ? "stopped" : "finished") + " after " + std::to_string(captures) +
             " captures");
  return output;
}

}  // namespace

BWCCommandOutput bwcExecuteCommand(CaptureContext& c, const std::vector<std::string>& arguments) {
  BWCOptions options = bwcParseOptions(arguments);
  BWCCommandOutput output;
  if (options.command == "list") {
    output.stdoutLines = bwcListWindows(c, options);
    return output;
  }
  if (!options.outputPath) {
    throw ToolError(options.command == "watch" ? "--out is required for watch" : "--out is required");
  }
  if (options.command == "watch") return bwcWatch(c, options);
  BWCWindowMatch window = resolveTarget(c, options);
  bwcCapture(c, window, *options.outputPath, options.timeout);
  output.stdoutLines.push_back(capturedLine(window, *options.outputPath));
  return output;
}

int runBackgroundWindowCaptureHost(const runtime::ProcessValues& values, platform::Platform& platform,
                                   const std::vector<std::string>& arguments) {
  const std::string exe = "background-window-capture";
  std::vector<std::string> rest(arguments.size() > 1 ? arguments.begin() + 1 : arguments.end(), arguments.end());
  if (bwcIsHelpRequest(rest)) {
    runtime::writeAll(1, bwcUsageText(exe) + "\n");
    return 0;
  }
  CaptureContext c{platform, values, std::getenv("TAVLIN_BWC_DEBUG") != nullptr};
  // A long watch shows each line as it happens.
  c.emit = [](bool error, const std::string& line) { runtime::writeAll(error ? 2 : 1, line + "\n"); };
  try {
    if (rest.empty()) {
      runtime::writeAll(2, bwcUsageText(exe) + "\n");
      return 1;
    }
    BWCCommandOutput output = bwcExecuteCommand(c, rest);
    std::string out, err;
    for (const auto& line : output.stdoutLines) out += line + "\n";
    for (const auto& line : output.stderrLines) err += line + "\n";
    runtime::writeAll(1, out);
    runtime::writeAll(2, err);
    return 0;
  } catch (const std::exception& error) {
    const auto* tool = dynamic_cast<const ToolError*>(&error);
    runtime::writeAll(2, "background-window-capture: " +
                             common::escapingLineBreaks(tool ? tool->description : error.what()) + "\n");
    return 1;
  }
}

int runImageSizeDiagnostic(platform::Platform& platform, runtime::Output& output,
                           const std::vector<std::string>& arguments) {
  if (arguments.size() != 1) {
    output.standardError("usage: __image-size PATH\n");
    return 1;
  }
  std::optional<platform::PixelSize> size = platform.screenCapture().imagePixelSize(arguments[0]);
  if (!size) {
    output.standardError(common::escapingLineBreaks("not an image with a pixel size: " + arguments[0]) + "\n");
    return 1;
  }
  output.standardOutput(std::to_string(size->width) + " " + std::to_string(size->height) + "\n");
  return 0;
}

}  // namespace tavlin::capture
