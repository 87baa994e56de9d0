#include "input/pointer_commands.h"

#include <limits>

#include "apps/app_targeting.h"
#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "input/element_actions.h"
#include "input/event_synthesis.h"

namespace tavlin::input {

namespace {

const cli::FlagNames elementIndexFlags = {"--element-index", "--element_index"};

}  // namespace

void handleClick(runtime::CommandContext& context, const cli::Flags& flags) {
  platform::RunningApplication app = openCommand(context, flags);
  bool byIndex = cli::flagValue(flags, elementIndexFlags).has_value();
  // A checked index activates only once the element is confirmed.
  bool activateAfterCheck = byIndex && cli::flagValue(flags, verifySnapshotFlags);
  if (!activateAfterCheck) apps::activateApp(app, context.platform);
  int64_t clickCount = cli::intFlag(flags, {"--click-count", "--click_count"}, 1);
  // Checked before anything happens: an unbounded count would post for ever.
  if (clickCount > maxClickCount) {
    throw cli::ToolError("--click-count / --click_count must be at most " + std::to_string(maxClickCount));
  }
  // An unknown button name means the left button, without complaint.
  MouseButton button =
      mouseButton(cli::stringFlag(flags, {"--mouse-button", "--mouse_button"}, "left")).value_or(MouseButton::left);

  if (byIndex) {
    int64_t index = cli::intFlag(flags, elementIndexFlags, std::nullopt);
    withElementToActOn(context, app, flags, index, activateAfterCheck, std::nullopt, std::nullopt,
                       [&](const auto& element) {
      const auto& s = element.snapshot;
      bool pressable = std::find(s.actions.begin(), s.actions.end(), "AXPress") != s.actions.end();
      // The pointer is the normal path; the accessibility press is only for an
      // element that cannot be located on screen at all.
      if (button == MouseButton::left && clickCount == 1 && !s.frame && pressable) {
        performAXAction(context.platform.accessibility(), element.element, "AXPress");
        cli::writeJSONObject(context.output, {{"ok", true}, {"method", "ax"}, {"elementIndex", index}, {"element_index", index}});
        return;
      }
      platform::Point point = elementCenter(element);
      postMouseClick(context.platform, point, button, clickCount);
      cli::writeJSONObject(context.output, {{"ok", true},
                            {"method", "mouse"},
                            {"elementIndex", index},
                            {"element_index", index},
                            {"screenPoint", pointJSON(point)},
                            {"screen_point", pointJSON(point)}});
    });
    return;
  }

  double x = cli::doubleFlag(flags, {"--x"});
  double y = cli::doubleFlag(flags, {"--y"});
  platform::Point point = loadPointFromCachedScreenshot(context, app, x, y);
  postMouseClick(context.platform, point, button, clickCount);
  platform::Point image{x, y};
  cli::writeJSONObject(context.output, {{"ok", true},
                        {"method", "mouse"},
                        {"screenPoint", pointJSON(point)},
                        {"screen_point", pointJSON(point)},
                        {"imagePoint", pointJSON(image)},
                        {"image_point", pointJSON(image)}});
}

void handleScroll(runtime::CommandContext& context, const cli::Flags& flags) {
  platform::RunningApplication app = openCommand(context, flags);
  int64_t index = cli::intFlag(flags, elementIndexFlags, std::nullopt);
  std::string direction = cli::requiredFlag(flags, {"--direction"});
  if (direction != "up" && direction != "down" && direction != "left" && direction != "right") {
    throw cli::ToolError("Unsupported scroll direction " + direction);
  }
  int64_t pages = cli::intFlag(flags, {"--pages"}, 1);
  // One wheel event carries the whole amount, which must fit its 32-bit field.
  if (pages > std::numeric_limits<int32_t>::max() / 600) {
    throw cli::ToolError("--pages " + std::to_string(pages) + " is too large for one scroll event");
  }
  withElementToActOn(context, app, flags, index, true, std::nullopt, std::nullopt, [&](const auto& element) {
    platform::Point point = elementCenter(element);
    requireScreenPoint(point);
    context.platform.events().warpMouseCursor(point);
    context.platform.clock().sleep(0.05);
    int32_t amount = static_cast<int32_t>(600 * std::max<int64_t>(pages, 1));
    int32_t vertical = direction == "up" ? amount : direction == "down" ? -amount : 0;
    int32_t horizontal = direction == "left" ? amount : direction == "right" ? -amount : 0;
    auto event = context.platform.events().createScrollWheelEvent(platform::ScrollUnit::pixel, 2, vertical,
                                                                   horizontal, 0);
    if (!event) throw cli::ToolError("Could not create scroll event");
    context.platform.events().post(platform::EventTap::hid, *event);
    cli::writeJSONObject(context.output, {{"ok", true},
                          {"elementIndex", index},
                          {"element_index", index},
                          {"direction", direction},
                          {"pages", pages}});
  });
}

void handleDrag(runtime::CommandContext& context, const cli::Flags& flags) {
  platform::RunningApplication app = openCommand(context, flags);
  apps::activateApp(app, context.platform);
  double fromX = cli::doubleFlag(flags, {"--from-x", "--from_x"});
  double fromY = cli::doubleFlag(flags, {"--from-y", "--from_y"});
  double toX = cli::doubleFlag(flags, {"--to-x", "--to_x"});
  double toY = cli::doubleFlag(flags, {"--to-y", "--to_y"});
  platform::Point from = loadPointFromCachedScreenshot(context, app, fromX, fromY);
  platform::Point to = loadPointFromCachedScreenshot(context, app, toX, toY);
  postDrag(context.platform, from, to, MouseButton::left);
  cli::writeJSONObject(context.output, {{"ok", true}, {"from", pointJSON(from)}, {"to", pointJSON(to)}});
}

}  // namespace tavlin::input
