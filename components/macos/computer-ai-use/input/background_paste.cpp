#include "input/background_paste.h"

#include "apps/app_targeting.h"
#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "input/element_actions.h"
#include "input/event_synthesis.h"
#include "platform/events.h"
#include "snapshot/get_app_state.h"

namespace tavlin::input {

namespace {

using platform::RunningApplication;

// A switch is off only for "false" in any case; anything else, "no" and "0"
// included, leaves it on.
bool switchOn(const cli::Flags& flags, const cli::FlagNames& names) {
  std::string value = cli::stringFlag(flags, names, "true");
  for (char& c : value) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return value != "false";
}

cli::Json describe(const std::optional<RunningApplication>& app) {
  if (!app) return nullptr;
  cli::Json j = {{"app", app->localizedName.value_or("")}, {"pid", app->pid}};
  if (app->bundleIdentifier) {
    j["bundleIdentifier"] = *app->bundleIdentifier;
    j["bundle_identifier"] = *app->bundleIdentifier;
  }
  return j;
}

std::string number(double v) {
  cli::Json j = v;
  return cli::formatJSON(j, cli::JsonFlavor::encoder);
}

bool isPid(const std::optional<RunningApplication>& app, int32_t pid) { return app && app->pid == pid; }

void both(cli::Json& object, const char* camel, const char* snake, const cli::Json& value) {
  object[camel] = value;
  object[snake] = value;
}

constexpr uint16_t keyA = 0, keyV = 9, keyBackspace = 51;

}  // namespace

void handleBackgroundPasteClipboard(runtime::CommandContext& context, const cli::Flags& flags) {
  platform::Platform& platform = context.platform;
  ensureTrusted(context);
  platform::Workspace& workspace = platform.workspace();
  std::optional<RunningApplication> before = workspace.frontmostApplication();
  RunningApplication target = apps::resolveApp(cli::requiredFlag(flags, {"--app"}), workspace,
                                               context.values.exactNameFirstScore);

  platform::Point point{cli::doubleFlag(flags, {"--screen-x", "--screen_x"}),
                        cli::doubleFlag(flags, {"--screen-y", "--screen_y"})};
  auto title = cli::flagValue(flags, {"--title-contains", "--title_contains", "--window-title-contains"});
  auto windowID = cli::uint32Flag(flags, {"--window-id", "--window_id"});
  bool clickTarget = switchOn(flags, {"--click-target", "--click_target"});
  bool restoreFrontmost = switchOn(flags, {"--restore-frontmost", "--restore_frontmost"});
  bool selectExisting = switchOn(flags, {"--select-existing", "--select_existing"});
  bool clearExisting = switchOn(flags, {"--clear-existing", "--clear_existing"});

  snapshot::CurrentState state = snapshot::fetchCurrentState(context, target, title, windowID);
  const auto& window = state.snapshot.window;
  if (window && window->frame) {
    // A 2-point margin forgives a point on the window's edge.
    const auto& f = *window->frame;
    bool inside = point.x >= f.x - 2 && point.x < f.x + f.width + 2 && point.y >= f.y - 2 &&
                  point.y < f.y + f.height + 2;
    if (!inside) {
      throw cli::ToolError("screen point " + number(point.x) + "," + number(point.y) +
                           " is outside the selected window frame");
    }
  }

  platform::Clock& clock = platform.clock();
  std::optional<RunningApplication> afterClick;
  if (clickTarget) {
    postMouseClickToPid(platform, target.pid, point, 1);
    clock.sleep(0.18);  // lets the target focus the field
    afterClick = workspace.frontmostApplication();
  }
  auto keyPair = [&](uint16_t code, uint64_t flags, double after) {
    postKeyEventToPid(platform, target.pid, code, flags, true, std::nullopt);
    clock.sleep(0.02);
    postKeyEventToPid(platform, target.pid, code, flags, false, std::nullopt);
    clock.sleep(after);
  };
  if (selectExisting) keyPair(keyA, platform::eventflags::command, 0.08);
  if (clearExisting) keyPair(keyBackspace, 0, 0.12);
  keyPair(keyV, platform::eventflags::command, 0.35);  // the paste gets the longest time to land
  std::optional<RunningApplication> duringInput = workspace.frontmostApplication();

  std::optional<RunningApplication> after = duringInput;
  bool restored = false;
  bool activated = false;
  if (restoreFrontmost && before && before->pid != target.pid) {
    if (!duringInput || duringInput->pid != before->pid) {
      workspace.activate(before->pid, 0);
      activated = true;
      clock.sleep(0.12);
      after = workspace.frontmostApplication();
      restored = isPid(after, before->pid);
    }
  }

  cli::Json result = {{"method", "pid-targeted-cg-event"}};
  both(result, "activatedApp", "activated_app", activated);
  both(result, "explicitlyActivatedApp", "explicitly_activated_app", activated);
  both(result, "clickedTarget", "clicked_target", clickTarget);
  both(result, "restoreFrontmost", "restore_frontmost", restoreFrontmost);
  both(result, "restoredFrontmost", "restored_frontmost", restored);
  both(result, "frontmostBefore", "frontmost_before", describe(before));
  both(result, "frontmostAfterClick", "frontmost_after_click", describe(afterClick));
  both(result, "frontmostDuringInput", "frontmost_during_input", describe(duringInput));
  both(result, "frontmostAfter", "frontmost_after", describe(after));
  both(result, "frontmostChangedDuringInput", "frontmost_changed_during_input",
       (before ? std::optional<int32_t>(before->pid) : std::nullopt) !=
           (duringInput ? std::optional<int32_t>(duringInput->pid) : std::nullopt));
  both(result, "targetFrontmostAfterClick", "target_frontmost_after_click", isPid(afterClick, target.pid));
  both(result, "targetFrontmostDuringInput", "target_frontmost_during_input", isPid(duringInput, target.pid));
  both(result, "focusPolicy", "focus_policy",
       "pid-targeted events may briefly focus the target text receiver; restore-frontmost returns to the previous "
       "app when requested");
  both(result, "keyboardDelivery", "keyboard_delivery", "sent");
  both(result, "screenPoint", "screen_point", pointJSON(point));
  both(result, "selectedExisting", "selected_existing", selectExisting);
  both(result, "clearedExisting", "cleared_existing", clearExisting);
  cli::Json windowJSON = cli::Json::object();
  if (window && window->windowID) {
    windowJSON["windowID"] = *window->windowID;
    windowJSON["window_id"] = *window->windowID;
  }
  if (window && window->frame) {
    const auto& f = *window->frame;
    windowJSON["frame"] = {{"x", f.x}, {"y", f.y}, {"width", f.width}, {"height", f.height}};
  }
  result["window"] = windowJSON;
  if (state.snapshot.screenshotPath) {
    both(result, "screenshotPath", "screenshot_path", *state.snapshot.screenshotPath);
  }
  cli::writeJSONObject(context.output, result);
}

}  // namespace tavlin::input
