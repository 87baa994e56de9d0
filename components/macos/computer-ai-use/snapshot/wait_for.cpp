#include "snapshot/wait_for.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "common/unicode.h"
#include "snapshot/ax_access.h"
#include "snapshot/element_query.h"
#include "snapshot/get_app_state.h"
#include "snapshot/root_window.h"

namespace tavlin::snapshot {

namespace {

// A wait is bounded, so a time-out that is not a plain number of seconds within the
// bound is refused rather than guessed at.
double timeoutFlag(const cli::Flags& flags) {
  auto text = cli::flagValue(flags, {"--timeout"});
  if (!text) return defaultWaitTimeout;
  std::optional<double> seconds = cli::parseDouble(*text);
  if (!seconds || !(*seconds >= 0) || *seconds > maxWaitTimeout) {
    throw cli::ToolError("--timeout must be a number of seconds from 0 to 600, not " + *text);
  }
  return *seconds + 0.0;  // -0 is 0, and says so in the time-out line
}

std::string secondsText(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", seconds);
  return text;
}

std::string appName(const platform::RunningApplication& app) {
  if (app.localizedName) return *app.localizedName;
  if (app.bundleIdentifier) return *app.bundleIdentifier;
  return std::to_string(app.pid);
}

// The first of the application's windows whose title contains `title` (ignoring case):
// role, title as label, frame and centre, and the window-server number where one matches.
std::optional<cli::Json> matchingWindow(runtime::CommandContext& context, const platform::RunningApplication& app,
                                        const std::string& title) {
  platform::Accessibility& ax = context.platform.accessibility();
  for (const platform::Element& window : uniqueAXWindows(ax, ax.applicationElement(app.pid))) {
    std::optional<std::string> windowTitle = axTitle(ax, window);
    if (!windowTitle || !common::containsIgnoringCase(*windowTitle, title)) continue;
    ElementSnapshot found;
    found.role = axRole(ax, window);
    found.title = windowTitle;
    std::optional<platform::Rect> frame = axFrame(ax, window);
    if (frame) found.frame = RectPayload{frame->origin.x, frame->origin.y, frame->size.width, frame->size.height};
    cli::Json match = matchJSON(found);
    match.erase("index");  // a window is not an element of a walk of some window
    auto server = matchQuartzWindow(quartzWindows(context.platform.windowList(), app.pid), windowTitle, frame);
    if (server) {
      match["windowID"] = server->windowID;
      match["window_id"] = server->windowID;
    }
    return match;
  }
  return std::nullopt;
}

}  // namespace

void handleWaitFor(runtime::CommandContext& context, const cli::Flags& flags) {
  ElementQuery query = readElementQuery(flags);
  std::optional<std::string> windowTitle = nonEmptyFlag(flags, {"--window-title", "--window_title"});
  bool elementCriteria = query.role || query.text || query.identifier;
  if (windowTitle && (elementCriteria || query.interactive)) {
    throw cli::ToolError("--window-title cannot be combined with --text, --role, --identifier or --interactive");
  }
  if (!windowTitle && !elementCriteria) {
    throw cli::ToolError("wait-for needs one of --text, --role, --identifier or --window-title");
  }
  bool gone = cli::switchFlag(flags, {"--gone"});
  double timeout = timeoutFlag(flags);
  std::optional<std::string> titleContains = windowTitleFilter(flags);
  std::optional<uint32_t> windowID = windowNumber(flags);
  platform::RunningApplication app = queriedApp(context, cli::requiredFlag(flags, {"--app"}));

  std::string condition = windowTitle ? "a window with a title containing \"" + *windowTitle + "\"" : describeQuery(query);
  // One look: the first match now, if any.
  auto look = [&]() -> std::optional<cli::Json> {
    if (windowTitle) return matchingWindow(context, app, *windowTitle);
    CurrentState state = fetchCurrentState(context, app, titleContains, windowID, CacheUpdate::none);
    // The named window is not there (yet): nothing of it is found.
    if (!walkedTheNamedWindow(state.snapshot, titleContains, windowID)) return std::nullopt;
    for (const ElementSnapshot& e : state.snapshot.elements) {
      if (matches(query, e)) return matchJSON(e);
    }
    return std::nullopt;
  };

  platform::Clock& clock = context.platform.clock();
  const platform::TimePoint start = clock.now();
  // Time spent sleeping counts too, so a wall clock set back cannot stretch the wait.
  double slept = 0;
  auto waited = [&] { return std::max(slept, std::chrono::duration<double>(clock.now() - start).count()); };
  platform::Accessibility& ax = context.platform.accessibility();
  // Finding nothing proves nothing when the application no longer answers: a quit or a
  // failing accessibility reads as an empty tree, never as "gone".
  std::optional<platform::AXError> unanswered;
  for (;;) {
    std::optional<cli::Json> match = look();
    unanswered.reset();
    if (!match) {
      platform::AXError error = ax.copyAttributeValue(ax.applicationElement(app.pid), "AXRole").error;
      if (error == platform::AXError::invalidUIElement) {
        throw cli::ToolError(appName(app) + " stopped answering accessibility (it may have quit) while waiting for " +
                             condition + (gone ? " to disappear" : "") + "; whether it is there cannot be told");
      }
      if (error != platform::AXError::success) unanswered = error;
    }
    if (match.has_value() != gone && !unanswered) {
      cli::Json result = {{"ok", true},
                          {"app", appName(app)},
                          {"pid", app.pid},
                          {"condition", condition},
                          {"waited", std::round(waited() * 1000) / 1000}};
      if (gone) result["gone"] = true;
      else result[windowTitle ? "window" : "element"] = *match;
      context.result.value = result;
      cli::writeJSONObject(context.output, result);
      return;
    }
    double remaining = timeout - waited();
    if (remaining <= 0) {
      std::string last = unanswered ? " (the last look could not read " + appName(app) + ": AXError " +
                                          std::to_string(static_cast<int32_t>(*unanswered)) + ")"
                                    : "";
      throw cli::ToolError("Timed out after " + secondsText(timeout) + " s waiting for " + condition + " in " +
                           appName(app) + (gone ? " to disappear" : "") + last);
    }
    double pause = std::min(waitPollSeconds, remaining);
    clock.sleep(pause);
    slept += pause;
  }
}

}  // namespace tavlin::snapshot
