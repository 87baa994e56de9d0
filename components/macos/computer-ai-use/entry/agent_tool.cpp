#include "entry/agent_tool.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cctype>
#include <functional>
#include <string_view>

#include "apps/app_targeting.h"
#include "cli/arguments.h"
#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "cli/usage.h"
#include "common/unicode.h"
#include "doctor/doctor.h"
#include "input/background_paste.h"
#include "input/clipboard_commands.h"
#include "input/keyboard_commands.h"
#include "input/pointer_commands.h"
#include "menus/menu_commands.h"
#include "openpanel/open_panel_commands.h"
#include "snapshot/app_state_format.h"
#include "snapshot/element_query.h"
#include "snapshot/get_app_state.h"
#include "snapshot/wait_for.h"

namespace tavlin::entry {
namespace {

using runtime::CommandContext;
using Handler = std::function<void(CommandContext&, const cli::Flags&)>;

struct Command {
  std::vector<std::string_view> words;
  Handler handler;
};

struct GetAppStateRequest {
  std::string appQuery;
  snapshot::AppStateFormat format;
  std::optional<std::string> titleContains;
  std::optional<uint32_t> windowID;
  bool changes = false;
  snapshot::ScreenshotOptions screenshot;
};

// The dispatcher reads get-app-state's flags itself, in this order, so that a bad
// format is reported before a missing --app.
GetAppStateRequest readGetAppStateFlags(const cli::Flags& flags) {
  std::string given = cli::stringFlag(flags, {"--format"}, "plugin");
  std::string lowered = given;
  std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  auto format = snapshot::appStateFormat(lowered);
  if (!format) throw cli::ToolError("Unsupported --format " + given + ". Expected plugin, json, or plugin-json.");
  GetAppStateRequest request{
      .appQuery = {}, .format = *format, .titleContains = {}, .windowID = {}, .changes = false, .screenshot = {}};
  request.titleContains = cli::flagValue(
      flags, {"--title-contains", "--title_contains", "--window-title-contains", "--window_title_contains"});
  request.windowID = cli::uint32Flag(flags, {"--window-id", "--window_id"});
  request.changes = cli::switchFlag(flags, {"--changes"});
  // A switch, as the other commands' switches: "--annotate false" (any case) is off.
  if (auto on = cli::flagValue(flags, {"--annotate"})) request.screenshot.annotate = common::lowercased(*on) != "false";
  if (auto n = cli::flagValue(flags, {"--max-dimension", "--max_dimension"})) {
    request.screenshot.maxDimension = snapshot::parseMaxDimension(*n);
  }
  request.appQuery = cli::requiredFlag(flags, {"--app"});
  return request;
}

const std::vector<Command>& commandTable() {
  static const std::vector<Command> table = {
      {{"list-apps", "list_apps"}, apps::handleListApps},
      {{"activate-app", "activate_app"}, apps::handleActivateApp},
      {{"get-app-state", "get_app_state"},
       [](CommandContext& context, const cli::Flags& flags) {
         GetAppStateRequest r = readGetAppStateFlags(flags);
         snapshot::handleGetAppState(context, r.appQuery, r.format, r.titleContains, r.windowID, r.changes,
                                     r.screenshot);
       }},
      {{"click"}, input::handleClick},
      {{"type-text", "type_text"}, input::handleTypeText},
      {{"press-key", "press_key"}, input::handlePressKey},
      {{"set-value", "set_value"}, input::handleSetValue},
      {{"background-paste-clipboard", "background_paste_clipboard"}, input::handleBackgroundPasteClipboard},
      {{"perform-secondary-action", "perform_secondary_action"}, input::handleSecondaryAction},
      {{"choose-open-panel-path", "choose_open_panel_path"}, openpanel::handleChooseOpenPanelPath},
      {{"choose-open-panel-bundle", "choose_open_panel_bundle"}, openpanel::handleChooseOpenPanelBundle},
      {{"inspect-open-panel", "inspect_open_panel"}, openpanel::handleInspectOpenPanel},
      {{"scroll"}, input::handleScroll},
      {{"drag"}, input::handleDrag},
      {{"find-elements", "find_elements"}, snapshot::handleFindElements},
      {{"wait-for", "wait_for"}, snapshot::handleWaitFor},
      {{"list-menus", "list_menus"}, menus::handleListMenus},
      {{"press-menu", "press_menu"}, menus::handlePressMenu},
      {{"get-clipboard", "get_clipboard"}, input::handleGetClipboard},
      {{"set-clipboard", "set_clipboard"}, input::handleSetClipboard},
      {{"doctor"}, doctor::handleDoctor},
      {{"-h", "--help", "help"},
       [](CommandContext& context, const cli::Flags&) {
         context.output.standardOutput(std::string(cli::usageText) + "\n");
       }},
  };
  return table;
}

}  // namespace

void dispatchAgentCommand(CommandContext& context, const std::string& word, const cli::Flags& flags) {
  for (const Command& command : commandTable()) {
    if (std::find(command.words.begin(), command.words.end(), word) != command.words.end()) {
      command.handler(context, flags);
      return;
    }
  }
  throw cli::ToolError::multiline(std::string(cli::usageText));
}

namespace {

// The handler's outcome: 0, or 1 with its one-line message on standard error.
int runCommand(CommandContext& context) {
  try {
    cli::ParsedCommand parsed = cli::parseArguments(context.values.tavlinArguments);
    dispatchAgentCommand(context, parsed.command, parsed.flags);
    return 0;
  } catch (const cli::ToolError& error) {
    std::string message = error.keepsLineBreaks ? error.description : common::escapingLineBreaks(error.description);
    context.output.standardError(message + "\n");
  } catch (const std::bad_alloc&) {
    context.output.standardError("Out of memory\n");
  } catch (const std::exception& error) {
    context.output.standardError(common::escapingLineBreaks(error.what()) + "\n");
  }
  return 1;
}

}  // namespace

int recordAndDeliver(platform::Platform& platform, runtime::BufferedOutput& output, int status) {
  // What the command did is recorded before its result is shown: a result for a change
  // that was not recorded would be a lie.
  try {
    platform.commit();
  } catch (const std::exception& error) {
    if (status == 0) {
      output.discardOutput();
      output.standardError(common::escapingLineBreaks(error.what()) + "\n");
      status = 1;
    }
  }
  if (!runtime::writeAll(1, output.out()) && status == 0) {
    output.standardError(std::string("Could not write the result to standard output: ") + std::strerror(errno) +
                         "\n");
    status = 1;
  }
  runtime::writeAll(2, output.err());
  return status;
}

int runAgentTool(const runtime::ProcessValues& values, platform::Platform& platform) {
  runtime::BufferedOutput output;
  CommandContext context{values, platform, output};
  return recordAndDeliver(platform, output, runCommand(context));
}

}  // namespace tavlin::entry
