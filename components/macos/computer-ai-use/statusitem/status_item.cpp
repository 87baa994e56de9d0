#include "statusitem/status_item.h"

#include "cli/tool_error.h"
#include "common/unicode.h"
#include "runtime/output.h"
#include "statusitem/status_item_services.h"

namespace tavlin::statusitem {

namespace {

constexpr double statusTimeout = 10.0;  // reading the automatic-updates switch
constexpr double checkTimeout = 120.0;  // a check may download a feed

// Whether automatic updates are on, as the updater reports it; absent when it cannot say.
std::optional<bool> automaticUpdates(const runtime::ProcessValues& values, platform::Platform& platform) {
  try {
    cli::Json status = tavlinUpdaterResult(platform, values.tavlinRootURL, "status", {}, statusTimeout);
    if (status.contains("automaticUpdates") && status["automaticUpdates"].is_boolean()) {
      return status["automaticUpdates"].get<bool>();
    }
  } catch (const cli::ToolError&) {
  }
  return std::nullopt;
}

}  // namespace

platform::StatusMenu tavlinStatusMenu(const runtime::ProcessValues& values, platform::Platform& platform) {
  platform::StatusMenu menu;
  menu.title = "Tavlin";
  std::string version = tavlinReleaseVersion(values.tavlinRootURL);
  std::optional<bool> automatic = automaticUpdates(values, platform);
  platform::StatusMenuItem about{"Tavlin " + version, false, false, false, false, nullptr};
  platform::StatusMenuItem separator{"", true, false, true, false, nullptr};
  platform::StatusMenuItem check{"Check for Updates\xE2\x80\xA6", true, false, false, false, [&values, &platform] {
                                   try {
                                     tavlinUpdaterResult(platform, values.tavlinRootURL, "check", {}, checkTimeout);
                                   } catch (const cli::ToolError&) {
                                     // The menu shows no error; the next check tries again.
                                   }
                                 }};
  platform::StatusMenuItem automaticItem{"Automatic Updates", automatic.has_value(), automatic.value_or(false), false,
                                         false, [&values, &platform, automatic] {
                                           try {
                                             tavlinUpdaterResult(platform, values.tavlinRootURL, "set-enabled",
                                                                 {automatic.value_or(false) ? "false" : "true"},
                                                                 statusTimeout);
                                           } catch (const cli::ToolError&) {
                                           }
                                         }};
  platform::StatusMenuItem quit{"Quit Tavlin", true, false, false, true, nullptr};
  menu.items = {about, separator, check, automaticItem, separator, quit};
  menu.refresh = [&values, &platform] { return tavlinStatusMenu(values, platform); };
  return menu;
}

int runTavlinStatusItem(const runtime::ProcessValues& values, platform::Platform& platform, bool showWindowOnLaunch) {
  platform.statusBar().prepare();
  try {
    acquireTavlinStatusItemLock(platform.workspace().homeDirectory());
  } catch (const cli::ToolError& error) {
    runtime::writeAll(2, common::escapingLineBreaks(error.description) + "\n");
    return 1;
  }
  platform.statusBar().run(tavlinStatusMenu(values, platform), showWindowOnLaunch);
  return 0;
}

int runTavlinStatusItemDiagnostic(const runtime::ProcessValues& values, platform::Platform& platform) {
  platform::StatusMenu menu = tavlinStatusMenu(values, platform);
  // The version (from RELEASE_BUILD.txt) and the install root are outside texts: escaped,
  // one line each.
  auto field = [](const std::string& value) { return common::escapingControlCharacters(value); };
  std::string text = "title: " + field(menu.title) + "\n";
  for (const auto& item : menu.items) {
    if (item.separator) {
      text += "item: -\n";
      continue;
    }
    text += "item: " + field(item.title);
    if (item.title == "Automatic Updates") text += item.enabled ? (item.checked ? " [on]" : " [off]") : " [unknown]";
    if (!item.enabled && item.title != "Automatic Updates") text += " (disabled)";
    text += "\n";
  }
  text += "install root: " + field(values.tavlinRootURL) + "\n";
  return runtime::writeAll(1, text) ? 0 : 1;
}

}  // namespace tavlin::statusitem
