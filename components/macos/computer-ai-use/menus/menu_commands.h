#pragma once
// list-menus and press-menu: an application's menu bar, read and pressed through
// accessibility alone. Neither activates the application nor posts an event.
#include "cli/arguments.h"
#include "runtime/command_context.h"

namespace tavlin::menus {

// --app, optional --path (a menu to list instead of the menu bar) and --depth (levels
// of submenus, 1 to maxMenuDepth, default 1). Prints the items as JSON.
void handleListMenus(runtime::CommandContext& context, const cli::Flags& flags);
// --app and --path, which must end at an enabled item that is not a menu. Performs
// AXPress on it and prints the path pressed.
void handlePressMenu(runtime::CommandContext& context, const cli::Flags& flags);

}  // namespace tavlin::menus
