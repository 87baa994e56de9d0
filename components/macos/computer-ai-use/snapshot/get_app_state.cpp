#include "snapshot/get_app_state.h"

#include "apps/app_targeting.h"
#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "common/unicode.h"
#include "snapshot/ax_access.h"
#include "snapshot/element_changes.h"
#include "snapshot/root_window.h"
#include "snapshot/snapshot_json.h"
#include "snapshot/state_cache.h"

namespace tavlin::snapshot {

namespace {

RectPayload payload(const platform::Rect& r) { return {r.origin.x, r.origin.y, r.size.width, r.size.height}; }

const std::optional<std::string>& nonEmpty(const std::optional<std::string>& text) {
  static const std::optional<std::string> none;
  return text && !text->empty() ? text : none;
}

// The bound the last snapshot was asked to keep its screenshot within, if any.
std::optional<int> lastMaxDimension(const runtime::ProcessValues& values, const platform::RunningApplication& app) {
  try {
    auto bound = loadCachedState(values, app).screenshotMaxDimension;
    if (bound && *bound >= minMaxDimension && *bound <= maxMaxDimension) return static_cast<int>(*bound);
  } catch (const cli::ToolError&) {
    // No snapshot yet, or not one this version reads: the full size.
  }
  return std::nullopt;
}

}  // namespace

std::string listingText(const std::string& text, int64_t keep) {
  std::string flat;
  flat.reserve(text.size());
  for (char c : text) {
    if (c == '\n') flat += "\\n";
    else flat += c;
  }
  return shortValue(flat, keep);
}

std::string shortValue(const std::string& text, int64_t maxLength) {
  if (common::characterCount(text) <= maxLength) return text;
  return common::prefixCharacters(text, maxLength) + "\xE2\x80\xA6";
}

std::string elementName(const ElementSnapshot& e) {
  if (const auto& d = nonEmpty(e.roleDescription)) return listingText(*d, 48);
  if (const auto& s = nonEmpty(e.subrole)) return listingText(*s, 48);
  if (!e.role.empty()) return listingText(e.role, 48);
  return "element";
}

std::string describeElement(const ElementSnapshot& e) {
  std::string line(static_cast<size_t>(e.depth + 1), '\t');
  line += std::to_string(e.index) + " " + elementName(e);
  if (e.settable) line += " (settable)";
  const auto& label = nonEmpty(e.title) ? e.title : nonEmpty(e.desc);
  if (label) line += " " + listingText(*label, 80);

  std::vector<std::string> details;
  if (const auto& id = nonEmpty(e.identifier)) details.push_back("ID: " + listingText(*id, 60));
  if (const auto& value = nonEmpty(e.value)) details.push_back("Value: " + listingText(*value, 120));
  if (e.enabled && !*e.enabled) details.push_back("disabled");
  if (!e.actions.empty()) {
    std::string actions;
    for (const auto& a : e.actions) actions += (actions.empty() ? "" : ", ") + a;
    details.push_back("Secondary Actions: " + actions);
  }
  for (size_t i = 0; i < details.size(); ++i) line += (i == 0 ? ", " : ", ") + details[i];
  return line;
}

std::string pluginText(const AppStateSnapshot& s) {
  std::vector<std::string> lines = {"Computer AI Use state", "<app_state>"};
  lines.push_back("App=" + s.bundleIdentifier.value_or(s.app) + " (pid " + std::to_string(s.pid) + ")");
  if (!s.window) {
    lines.push_back("Window: <unknown>, App: " + s.app + ".");
  } else {
    lines.push_back("Window: \"" + s.window->title.value_or("<untitled>") + "\", App: " + s.app + ".");
  }
  for (const ElementSnapshot& e : s.elements) lines.push_back(describeElement(e));
  if (s.focusedElementIndex) {
    for (const ElementSnapshot& e : s.elements) {
      if (e.index == *s.focusedElementIndex) {
        lines.push_back("The focused UI element is " + std::to_string(e.index) + " " + elementName(e) + ".");
        break;
      }
    }
  }
  lines.push_back("</app_state>");
  if (s.screenshotPath) lines.push_back("Screenshot: " + *s.screenshotPath);
  if (s.annotatedScreenshotPath) lines.push_back("Annotated screenshot: " + *s.annotatedScreenshotPath);
  lines.push_back("Cache: " + s.cachePath);
  std::string text;
  for (size_t i = 0; i < lines.size(); ++i) text += (i ? "\n" : "") + lines[i];
  return text;
}

CurrentState fetchCurrentState(runtime::CommandContext& context, const platform::RunningApplication& app,
                               const std::optional<std::string>& titleContains, std::optional<uint32_t> windowID,
                               CacheUpdate cache, const std::optional<ScreenshotOptions>& screenshot) {
  platform::Platform& platform = context.platform;
  platform::Accessibility& ax = platform.accessibility();
  platform::Element appElement = ax.applicationElement(app.pid);
  if (ax.copyAttributeValue(appElement, "AXRole").error == platform::AXError::apiDisabled) {
    throw cli::ToolError("Accessibility API is disabled for computer-ai-use");
  }

  SelectedRootWindow selected = selectRootWindow(platform, appElement, app.pid, titleContains, windowID);
  std::vector<platform::Element> focusedList = axElements(ax, appElement, "AXFocusedUIElement");
  std::optional<platform::Element> focused;
  if (!focusedList.empty()) focused = focusedList.front();

  CurrentState state;
  state.elements = collectElements(ax, selected.root, focused, context.values.traversalAttributes);
  // The walk starts at the root and read its title and frame already.
  const ElementSnapshot& root = state.elements.front().snapshot;
  std::optional<std::string> title = root.title;
  if (!title && selected.quartzWindow) title = selected.quartzWindow->title;
  std::optional<platform::Rect> frame;
  if (root.frame) frame = platform::Rect{{root.frame->x, root.frame->y}, {root.frame->width, root.frame->height}};
  if (!frame && selected.quartzWindow) frame = selected.quartzWindow->frame;
  std::optional<CapturedImage> image;
  if (cache == CacheUpdate::write) {
    image = captureWindowImage(platform, context.values, app, selected.quartzWindow, frame, context.captureWindow);
  }

  AppStateSnapshot& s = state.snapshot;
  s.app = app.localizedName ? *app.localizedName
          : app.bundleIdentifier ? *app.bundleIdentifier
                                 : std::to_string(app.pid);
  s.bundleIdentifier = app.bundleIdentifier;
  s.pid = app.pid;
  s.generatedAt = platform.clock().now();
  if (image) {
    s.screenshotPath = image->path;
    s.screenshotSize = image->size;
  }
  // A window record is kept whenever something is known about the window.
  WindowSnapshot window;
  if (selected.quartzWindow) window.windowID = selected.quartzWindow->windowID;
  window.title = title;
  if (frame) window.frame = payload(*frame);
  if (window.windowID || window.title || window.frame) s.window = window;
  s.elements.reserve(state.elements.size());
  for (const TraversedElement& t : state.elements) {
    if (t.snapshot.focused && !s.focusedElementIndex) s.focusedElementIndex = t.snapshot.index;
    s.elements.push_back(t.snapshot);
  }
  if (cache == CacheUpdate::write) {
    ScreenshotOptions options = screenshot ? *screenshot : ScreenshotOptions{false, lastMaxDimension(context.values, app)};
    finishScreenshot(platform, context.values, app, s, options);
    s.screenshotMaxDimension = options.maxDimension;
    s.cachePath = cacheFileURL(context.values, app);
    writeCachedState(s);
  }
  return state;
}

cli::Json pluginEnvelope(const AppStateSnapshot& s) {
  cli::Json envelope = {{"app_state", pluginText(s)}, {"app", s.app}, {"pid", s.pid}, {"cache_path", s.cachePath}};
  if (s.bundleIdentifier) envelope["bundle_identifier"] = *s.bundleIdentifier;
  if (s.screenshotPath) envelope["screenshot_path"] = *s.screenshotPath;
  if (s.annotatedScreenshotPath) envelope["annotated_screenshot_path"] = *s.annotatedScreenshotPath;
  if (s.focusedElementIndex) envelope["focused_element_index"] = *s.focusedElementIndex;
  if (s.window && s.window->windowID) envelope["window_id"] = *s.window->windowID;
  if (s.window) envelope["window_title"] = s.window->title ? cli::Json(*s.window->title) : cli::Json(nullptr);
  return envelope;
}

void handleGetAppState(runtime::CommandContext& context, const std::string& appQuery, AppStateFormat format,
                       const std::optional<std::string>& titleContains, std::optional<uint32_t> windowID,
                       bool changes, const ScreenshotOptions& screenshot) {
  ensureAccessibilityTrusted(context.platform, context.values.programPath, true,
                             messagingTimeout(context.values.accessibilityTimeoutSetting));
  platform::RunningApplication app =
      apps::resolveApp(appQuery, context.platform.workspace(), context.values.exactNameFirstScore);
  // Read before the new snapshot replaces it; the comparison uses the walk done anyway.
  std::optional<AppStateSnapshot> previous;
  if (changes) previous = previousSnapshot(context.values, app);
  CurrentState state = fetchCurrentState(context, app, titleContains, windowID, CacheUpdate::write, screenshot);
  const AppStateSnapshot& s = state.snapshot;
  std::optional<SnapshotChanges> diff;
  if (changes) diff = compareSnapshots(previous, s);
  // A server sends the annotated image when there is one: the agent asked to see it.
  context.result.screenshotPath = s.annotatedScreenshotPath ? s.annotatedScreenshotPath : s.screenshotPath;
  switch (format) {
    case AppStateFormat::plugin:
      context.output.standardOutput(pluginText(s) + (diff ? "\n" + changesText(*diff) : "") + "\n");
      // The listing with its metadata, as the plugin-json envelope holds it.
      context.result.value = pluginEnvelope(s);
      if (diff) (*context.result.value)["changes"] = changesJSON(*diff);
      break;
    case AppStateFormat::json:
      context.result.value = encode(s);
      if (diff) (*context.result.value)["changes"] = changesJSON(*diff);
      cli::writeJSON(context.output, *context.result.value);
      break;
    case AppStateFormat::pluginJson:
    case AppStateFormat::pluginJSON:
      context.result.value = pluginEnvelope(s);
      if (diff) (*context.result.value)["changes"] = changesJSON(*diff);
      cli::writeJSONObject(context.output, *context.result.value);
      break;
  }
}

}  // namespace tavlin::snapshot
