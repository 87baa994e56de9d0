#include "menus/menu_commands.h"

#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "input/element_actions.h"
#include "menus/menu_bar.h"

namespace tavlin::menus {

namespace {

const cli::FlagNames pathFlag = {"--path"};

std::vector<std::string> titlesOf(const std::vector<MenuItem>& items) {
  std::vector<std::string> titles;
  for (const MenuItem& item : items) titles.push_back(item.title);
  return titles;
}

std::string appName(const platform::RunningApplication& app) {
  return app.localizedName.value_or("pid " + std::to_string(app.pid));
}

// A path as messages show it: each title cut to its bound.
std::string shownPath(const std::vector<std::string>& titles) {
  std::vector<std::string> shown;
  for (const std::string& title : titles) shown.push_back(shownTitle(title));
  return joinMenuPath(shown);
}

std::string disabledMessage(const std::vector<std::string>& matched) {
  return shownPath(matched) + " is disabled; nothing was pressed";
}

// The item a path names, followed from the menu bar, and the titles it matched. Where
// the path breaks, the message lists what that level holds. When pressing, a disabled
// menu on the way stops it too.
struct Found {
  MenuItem item;
  std::vector<std::string> titles;
};

Found follow(MenuReader& reader, const platform::RunningApplication& app, const std::vector<std::string>& path,
             bool pressing) {
  std::vector<MenuItem> level = reader.menuBar(app.pid, appName(app));
  std::vector<std::string> matched;
  for (size_t i = 0;; ++i) {
    std::vector<std::string> titles = titlesOf(level);
    std::string where = matched.empty() ? "the menu bar of " + appName(app) : "the menu " + shownPath(matched);
    const std::string wanted = shownTitle(path[i]);
    // Past the item bound an exact match may lie unread, and a lenient or single one
    // read before it would then name the wrong item.
    if (reader.truncated()) {
      throw cli::ToolError("Which item \"" + wanted + "\" names in " + where + " cannot be told: it holds more than the " +
                           std::to_string(maxMenuItems) + " items a command reads");
    }
    TitleMatch match = matchMenuTitle(titles, path[i]);
    // An item that could not be read may be the exact title, or one like the match.
    if (size_t unread = reader.unreadInLastMenu(); unread > 0 && !match.exact) {
      throw cli::ToolError("Which item \"" + wanted + "\" names in " + where + " cannot be told: " +
                           std::to_string(unread) + (unread == 1 ? " item" : " items") +
                           " of it could not be read");
    }
    if (!match.index && !match.ambiguous.empty()) {
      std::vector<std::string> candidates;
      for (size_t at : match.ambiguous) candidates.push_back(titles[at]);
      throw cli::ToolError("\"" + wanted + "\" names more than one item in " + where + ": " +
                           listedTitles(candidates) + ". Name one exactly");
    }
    if (!match.index && titles.empty()) {
      throw cli::ToolError("No \"" + wanted + "\" in " + where +
                           ": it lists no items (some applications fill a menu only when it opens)");
    }
    if (!match.index) {
      throw cli::ToolError("No \"" + wanted + "\" in " + where + ". Available: " + listedTitles(titles));
    }
    MenuItem item = std::move(level[*match.index]);
    matched.push_back(item.title);
    if (pressing && item.enabled == false) throw cli::ToolError(disabledMessage(matched));
    if (i + 1 == path.size()) return {std::move(item), std::move(matched)};
    if (!item.submenu) {
      throw cli::ToolError(shownPath(matched) + " is an item, not a menu: the path cannot go on to \"" +
                           shownTitle(path[i + 1]) + "\"");
    }
    level = reader.menu(*item.submenu);
  }
}

cli::Json itemsJSON(const std::vector<MenuItem>& items) {
  cli::Json list = cli::Json::array();
  for (const MenuItem& item : items) {
    cli::Json j = {{"title", item.title}, {"checked", item.checked}, {"submenu", item.submenu.has_value()}};
    if (item.enabled) j["enabled"] = *item.enabled;
    if (item.shortcut) j["shortcut"] = *item.shortcut;
    if (item.itemsRead) j["items"] = itemsJSON(item.items);
    list.push_back(std::move(j));
  }
  return list;
}

}  // namespace

void handleListMenus(runtime::CommandContext& context, const cli::Flags& flags) {
  platform::RunningApplication app = input::openCommand(context, flags);
  std::optional<std::string> pathText = cli::flagValue(flags, pathFlag);
  std::optional<std::vector<std::string>> path;
  if (pathText) path = parseMenuPath(*pathText);
  int64_t depth = cli::intFlag(flags, {"--depth"}, 1);
  if (depth < 1 || depth > maxMenuDepth) {
    throw cli::ToolError("--depth must be from 1 to " + std::to_string(maxMenuDepth) + ", not " +
                         std::to_string(depth));
  }
  MenuReader reader(context.platform.accessibility());
  std::vector<MenuItem> items;
  cli::Json result = {{"app", app.localizedName.value_or("")}, {"pid", app.pid}};
  if (path) {
    Found found = follow(reader, app, *path, false);
    if (!found.item.submenu) throw cli::ToolError(shownPath(found.titles) + " is an item, not a menu");
    items = reader.menu(*found.item.submenu);
    result["path"] = joinMenuPath(found.titles);
  } else {
    items = reader.menuBar(app.pid, appName(app));
  }
  reader.readSubmenus(items, static_cast<int>(depth));
  result["items"] = itemsJSON(items);
  result["truncated"] = reader.truncated();
  cli::writeJSON(context.output, result);
}

void handlePressMenu(runtime::CommandContext& context, const cli::Flags& flags) {
  platform::RunningApplication app = input::openCommand(context, flags);
  std::vector<std::string> path = parseMenuPath(cli::requiredFlag(flags, pathFlag));
  platform::Accessibility& ax = context.platform.accessibility();
  MenuReader reader(ax);
  Found found = follow(reader, app, path, true);
  std::string named = shownPath(found.titles);
  if (found.item.submenu) {
    throw cli::ToolError(named + " is a menu, not an item; name one of its items: " +
                         listedTitles(titlesOf(reader.menu(*found.item.submenu))));
  }
  switch (platform::AXError error = ax.performAction(found.item.element, "AXPress")) {
    case platform::AXError::success:
      break;
    case platform::AXError::actionUnsupported:
      throw cli::ToolError(named + " cannot be pressed: it offers no AXPress action");
    case platform::AXError::cannotComplete:
      // An item that opens a modal dialog can hold the answer back until the time-out.
      throw cli::ToolError("AXPress on " + named + " failed with code -25204: the application did not answer in " +
                           "time, so the item may still have run (one that opens a dialog can keep the answer back)");
    default:
      throw cli::ToolError("AXPress on " + named + " failed with code " + std::to_string(static_cast<int32_t>(error)));
  }
  cli::writeJSONObject(context.output, {{"ok", true},
                                        {"app", app.localizedName.value_or("")},
                                        {"path", joinMenuPath(found.titles)},
                                        {"title", found.item.title},
                                        {"action", "AXPress"}});
}

}  // namespace tavlin::menus
