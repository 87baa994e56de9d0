#include "input/element_actions.h"

#include "apps/app_targeting.h"
#include "cli/json_output.h"
#include "cli/tool_error.h"
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
