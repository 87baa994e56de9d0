#include "cli/usage.h"

namespace tavlin::cli {

// The uneven indentation of the command lines is part of the text that agents
// already parse; keep it byte for byte.
const std::string_view usageText =
    "computer-ai-use \xE2\x80\x94 Tavlin's macOS computer-ai-use style entrypoint\n"
    "\n"
    "computer-ai-use list-apps | list_apps\n"
    "computer-ai-use activate-app | activate_app --app APP|pid:<PID>\n"
    "computer-ai-use get-app-state | get_app_state --app APP|pid:<PID> [--format plugin|json|plugin-json] "
    "[--title-contains TEXT | --window-title-contains TEXT] [--window-id ID]\n"
    "  computer-ai-use click --app APP [--element-index N | --element_index N | --x X --y Y] "
    "[--click-count N | --click_count N] [--mouse-button left|right|middle | --mouse_button left|right|middle]\n"
    "  computer-ai-use type-text | type_text --app APP --text TEXT\n"
    "  computer-ai-use press-key | press_key --app APP --key KEY\n"
    "  computer-ai-use set-value | set_value --app APP --element-index N | --element_index N --value TEXT "
    "[--title-contains TEXT | --window-title-contains TEXT] [--window-id ID]\n"
    "  computer-ai-use background-paste-clipboard | background_paste_clipboard --app APP --screen-x X | "
    "--screen_x X --screen-y Y | --screen_y Y [--title-contains TEXT | --window-title-contains TEXT] "
    "[--window-id ID] [--click-target true|false] [--restore-frontmost true|false]\n"
    "  computer-ai-use perform-secondary-action | perform_secondary_action --app APP --element-index N | "
    "--element_index N --action ACTION\n"
    "  computer-ai-use choose-open-panel-path | choose_open_panel_path --app APP --path /absolute/file "
    "[--timeout SECONDS]\n"
    "  computer-ai-use choose-open-panel-bundle | choose_open_panel_bundle --app APP --path /absolute/App.app "
    "[--timeout SECONDS]\n"
    "  computer-ai-use inspect-open-panel | inspect_open_panel --app APP [--timeout SECONDS]\n"
    "  computer-ai-use scroll --app APP --element-index N | --element_index N --direction up|down|left|right "
    "[--pages N]\n"
    "  computer-ai-use drag --app APP --from-x X | --from_x X --from-y Y | --from_y Y --to-x X | --to_x X "
    "--to-y Y | --to_y Y\n"
    "\n"
    "Notes:\n"
    "  - --app accepts an application name, bundle identifier, or exact pid:<PID> selector.\n"
    "  - x/y and drag coordinates are interpreted in the most recent get-app-state screenshot for the same app.\n"
    "  - Element indices are refreshed from the current AX tree, but are intended to come from get-app-state.\n"
    "  - get-app-state defaults to a plugin-style text block.\n"
    "  - use --format json for the raw structured snapshot.\n"
    "  - use --format plugin-json for a server-friendly envelope with app_state text plus screenshot/cache "
    "metadata.\n"
    "  - This is an additive interface; existing Tavlin tools remain unchanged.";

}  // namespace tavlin::cli
