#include "input/element_actions.h"

#include "apps/app_targeting.h"
#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "common/unicode.h"
#include "snapshot/ax_access.h"
#include "snapshot/get_app_state.h"
#include "snapshot/state_cache.h"

namespace tavlin::input {

void ensureTrusted(runtime::CommandContext& context) {
  snapshot::ensureAccessibilityTrusted(context.platform, context.values.programPath, true,
                                       snapshot::messagingTimeout(context.values.accessibilityTimeoutSetting));
}

platform::RunningApplication openCommand(runtime::CommandContext& context, const cli::Flags& flags) {
  ensureTrusted(context);
  return apps::resolveApp(cli::requiredFlag(flags, {"--app"}), context.platform.workspace(),
                          context.values.exactNameFirstScore);
}

void withCurrentTraversedElement(runtime::CommandContext& context, const platform::RunningApplication& app,
                                 int64_t index, const std::optional<std::string>& titleContains,
                                 std::optional<uint32_t> windowID,
                                 const std::function<void(const snapshot::TraversedElement&)>& body) {
  snapshot::CurrentState state = snapshot::fetchCurrentState(context, app, titleContains, windowID);
  for (const snapshot::TraversedElement& element : state.elements) {
    if (element.snapshot.index == index) {
      body(element);
      return;
    }
  }
  throw cli::ToolError("Element index " + std::to_string(index) + " not found");
}

std::optional<std::string> titleContainsFlag(const cli::Flags& flags) {
  return cli::flagValue(flags, {"--title-contains", "--title_contains", "--window-title-contains"});
}

std::optional<uint32_t> windowIDFlag(const cli::Flags& flags) { return cli::uint32Flag(flags, {"--window-id", "--window_id"}); }

namespace {

const std::optional<std::string>& nonEmpty(const std::optional<std::string>& text) {
  static const std::optional<std::string> none;
  return text && !text->empty() ? text : none;
}

std::optional<std::string> labelOf(const snapshot::ElementSnapshot& e) {
  if (const auto& title = nonEmpty(e.title)) return title;
  return nonEmpty(e.desc);
}

// "AXButton "Bold" at PATH", for messages.
std::string described(const snapshot::ElementSnapshot& e) {
  std::string text = e.role.empty() ? "an element without a role" : e.role;
  if (auto label = labelOf(e)) text += " \"" + common::escapingLineBreaks(*label) + "\"";
  if (const auto& id = nonEmpty(e.identifier)) text += " (identifier " + common::escapingLineBreaks(*id) + ")";
  return text + " at " + common::escapingLineBreaks(e.path);
}

bool sameWhereEitherHasOne(const std::optional<std::string>& a, const std::optional<std::string>& b) {
  return nonEmpty(a).value_or("") == nonEmpty(b).value_or("");
}

}  // namespace

std::optional<std::string> snapshotChange(const snapshot::ElementSnapshot& recordedRoot,
                                          const snapshot::ElementSnapshot& recorded,
                                          const snapshot::ElementSnapshot& liveRoot,
                                          const snapshot::ElementSnapshot& live) {
  if (recordedRoot.role != liveRoot.role || recordedRoot.path != liveRoot.path ||
      !sameWhereEitherHasOne(recordedRoot.title, liveRoot.title)) {
    return "the window is not the one of the last get_app_state (it was " + described(recordedRoot) + ", now " +
           described(liveRoot) + ")";
  }
  if (recorded.role != live.role || recorded.path != live.path ||
      !sameWhereEitherHasOne(recorded.identifier, live.identifier) ||
      !sameWhereEitherHasOne(labelOf(recorded), labelOf(live))) {
    return "element " + std::to_string(recorded.index) + " changed (it was " + described(recorded) + ", now " +
           described(live) + ")";
  }
  return std::nullopt;
}

void withElementToActOn(runtime::CommandContext& context, const platform::RunningApplication& app,
                        const cli::Flags& flags, int64_t index, bool activate,
                        const std::optional<std::string>& titleContains, std::optional<uint32_t> windowID,
                        const std::function<void(const snapshot::TraversedElement&)>& body) {
  auto act = [&](const snapshot::TraversedElement& element) {
    context.result.actedOn = runtime::CommandResult::Element{element.snapshot.index, element.snapshot.role,
                                                             labelOf(element.snapshot)};
    body(element);
  };
  if (!cli::flagValue(flags, verifySnapshotFlags)) {
    if (activate) apps::activateApp(app, context.platform);
    withCurrentTraversedElement(context, app, index, titleContains, windowID, act);
    return;
  }
  const std::string again = ". Call get_app_state again and use its indices.";
  snapshot::AppStateSnapshot recorded;
  try {
    recorded = snapshot::loadCachedState(context.values, app);
  } catch (const cli::ToolError&) {
    throw cli::ToolError("No get_app_state snapshot of " + app.localizedName.value_or(std::to_string(app.pid)) +
                         " to act on" + again);
  }
  if (recorded.pid != app.pid || recorded.elements.empty()) {
    throw cli::ToolError("The last get_app_state snapshot is of another process or has no elements" + again);
  }
  // The window the agent saw, unless the flags name one.
  std::optional<std::string> title = titleContainsFlag(flags);
  std::optional<uint32_t> window = windowIDFlag(flags);
  if (!title && !window && recorded.window) {
    window = recorded.window->windowID;
    if (!window) title = recorded.window->title;
  }
  snapshot::CurrentState live =
      snapshot::fetchCurrentState(context, app, title, window, snapshot::CacheUpdate::none);
  const snapshot::ElementSnapshot* before = nullptr;
  for (const auto& e : recorded.elements) {
    if (e.index == index) before = &e;
  }
  const snapshot::TraversedElement* now = nullptr;
  for (const auto& e : live.elements) {
    if (e.snapshot.index == index) now = &e;
  }
  if (!before) {
    throw cli::ToolError("Element index " + std::to_string(index) + " was not in the last get_app_state snapshot" +
                         again);
  }
  if (!now) throw cli::ToolError("Element index " + std::to_string(index) + " is gone" + again);
  if (recorded.window && recorded.window->windowID && live.snapshot.window &&
      live.snapshot.window->windowID != recorded.window->windowID) {
    throw cli::ToolError("The window of the last get_app_state is gone or not the one chosen" + again);
  }
  if (auto change = snapshotChange(recorded.elements.front(), *before, live.elements.front().snapshot, now->snapshot)) {
    throw cli::ToolError("Refused: " + *change + again);
  }
  if (activate) apps::activateApp(app, context.platform);
  act(*now);
}

platform::Point elementCenter(const snapshot::TraversedElement& element) {
  const auto& frame = element.snapshot.frame;
  if (!frame || !(frame->width > 0) || !(frame->height > 0)) {
    throw cli::ToolError("Element " + std::to_string(element.snapshot.index) + " does not have a usable frame");
  }
  return {frame->x + frame->width / 2, frame->y + frame->height / 2};
}

platform::Point loadPointFromCachedScreenshot(runtime::CommandContext& context, const platform::RunningApplication& app,
                                              double x, double y) {
  snapshot::AppStateSnapshot cached = snapshot::loadCachedState(context.values, app);
  return snapshot::screenPoint(cached, cached.app, x, y);
}

void performAXAction(platform::Accessibility& ax, const platform::Element& element, const std::string& action) {
  std::vector<std::string> available = snapshot::axActions(ax, element);
  if (std::find(available.begin(), available.end(), action) == available.end()) {
    std::string names;
    for (const auto& a : available) names += (names.empty() ? "" : ", ") + a;
    throw cli::ToolError("Action " + action + " not supported. Available: " + names);
  }
  platform::AXError error = ax.performAction(element, action);
  if (error != platform::AXError::success) {
    throw cli::ToolError("AX action " + action + " failed with code " + std::to_string(static_cast<int32_t>(error)));
  }
}

void setAXValue(platform::Accessibility& ax, const platform::Element& element, const std::string& value) {
  platform::AXError error = ax.setAttributeValue(element, "AXValue", value);
  if (error != platform::AXError::success) {
    throw cli::ToolError("Setting AX value failed with code " + std::to_string(static_cast<int32_t>(error)));
  }
}

cli::Json pointJSON(platform::Point point) { return {{"x", point.x}, {"y", point.y}}; }

}  // namespace tavlin::input
