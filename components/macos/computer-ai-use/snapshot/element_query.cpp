#include "snapshot/element_query.h"

#include "apps/app_targeting.h"
#include "cli/tool_error.h"
#include "common/unicode.h"
#include "snapshot/ax_access.h"
#include "snapshot/get_app_state.h"
#include "snapshot/root_window.h"
#include "snapshot/snapshot_json.h"

namespace tavlin::snapshot {

namespace {

bool containsText(const std::optional<std::string>& field, const std::string& part) {
  return field && common::containsIgnoringCase(*field, part);
}

}  // namespace

bool matches(const ElementQuery& query, const ElementSnapshot& e) {
  if (query.role && e.role != *query.role) return false;
  if (query.identifier && e.identifier != query.identifier) return false;
  if (query.interactive && e.actions.empty() && !e.settable) return false;
  if (query.text && !containsText(e.title, *query.text) && !containsText(e.value, *query.text) &&
      !containsText(e.desc, *query.text) && !containsText(e.identifier, *query.text)) {
    return false;
  }
  return true;
}

std::string describeQuery(const ElementQuery& query) {
  std::vector<std::string> parts;
  if (query.role) parts.push_back("role " + *query.role);
  if (query.text) parts.push_back("text \"" + *query.text + "\"");
  if (query.identifier) parts.push_back("identifier " + *query.identifier);
  std::string text = query.interactive ? "an interactive element" : "an element";
  for (size_t i = 0; i < parts.size(); ++i) {
    text += (i == 0 ? " with " : i + 1 == parts.size() ? " and " : ", ") + parts[i];
  }
  return text;
}

std::optional<std::string> nonEmptyFlag(const cli::Flags& flags, const cli::FlagNames& names) {
  if (auto value = cli::flagValue(flags, names)) return value;
  for (std::string_view name : names) {
    if (flags.contains(name)) throw cli::ToolError(std::string(names.front()) + " must not be empty");
  }
  return std::nullopt;
}

ElementQuery readElementQuery(const cli::Flags& flags) {
  ElementQuery query;
  query.role = nonEmptyFlag(flags, {"--role"});
  query.text = nonEmptyFlag(flags, {"--text"});
  query.identifier = nonEmptyFlag(flags, {"--identifier"});
  query.interactive = cli::switchFlag(flags, {"--interactive"});
  return query;
}

std::optional<std::string> windowTitleFilter(const cli::Flags& flags) {
  return cli::flagValue(flags,
                        {"--title-contains", "--title_contains", "--window-title-contains", "--window_title_contains"});
}

std::optional<uint32_t> windowNumber(const cli::Flags& flags) { return cli::uint32Flag(flags, {"--window-id", "--window_id"}); }

std::optional<std::string> elementLabel(const ElementSnapshot& e) {
  if (e.title && !e.title->empty()) return e.title;
  if (e.desc && !e.desc->empty()) return e.desc;
  return std::nullopt;
}

cli::Json matchJSON(const ElementSnapshot& e) {
  cli::Json j = {{"index", e.index}, {"role", e.role}};
  if (auto label = elementLabel(e)) j["label"] = *label;
  if (e.value) j["value"] = *e.value;
  if (e.identifier) j["identifier"] = *e.identifier;
  if (e.frame) {
    j["frame"] = encode(*e.frame);
    if (e.frame->width > 0 && e.frame->height > 0) {
      j["center"] = {{"x", e.frame->x + e.frame->width / 2}, {"y", e.frame->y + e.frame->height / 2}};
    }
  }
  return j;
}

cli::Json windowJSON(const WindowSnapshot& window) {
  cli::Json j = cli::Json::object();
  if (window.title) j["title"] = *window.title;
  if (window.windowID) {
    j["windowID"] = *window.windowID;
    j["window_id"] = *window.windowID;
  }
  if (window.frame) j["frame"] = encode(*window.frame);
  return j;
}

bool walkedTheNamedWindow(const AppStateSnapshot& walked, const std::optional<std::string>& titleContains,
                          std::optional<uint32_t> windowID) {
  const std::optional<WindowSnapshot>& window = walked.window;
  if (windowID) return window && window->windowID == windowID;
  if (auto filter = cleanedWindowTitleFilter(titleContains)) {
    return window && common::containsIgnoringCase(window->title.value_or(""), *filter);
  }
  return true;
}

platform::RunningApplication queriedApp(runtime::CommandContext& context, const std::string& appQuery) {
  ensureAccessibilityTrusted(context.platform, context.values.programPath, true,
                             messagingTimeout(context.values.accessibilityTimeoutSetting));
  return apps::resolveApp(appQuery, context.platform.workspace(), context.values.exactNameFirstScore);
}

void handleFindElements(runtime::CommandContext& context, const cli::Flags& flags) {
  ElementQuery query = readElementQuery(flags);
  std::optional<std::string> titleContains = windowTitleFilter(flags);
  std::optional<uint32_t> windowID = windowNumber(flags);
  platform::RunningApplication app = queriedApp(context, cli::requiredFlag(flags, {"--app"}));
  CurrentState state = fetchCurrentState(context, app, titleContains, windowID, CacheUpdate::none);
  // Elements of the window that stood in for a missing one would be an answer to
  // another question.
  if (!walkedTheNamedWindow(state.snapshot, titleContains, windowID)) {
    throw cli::ToolError(state.snapshot.app + " has no window " +
                         (windowID ? "with the id " + std::to_string(*windowID)
                                   : "whose title contains \"" + *cleanedWindowTitleFilter(titleContains) + "\""));
  }

  cli::Json found = cli::Json::array();
  for (const ElementSnapshot& e : state.snapshot.elements) {
    if (matches(query, e)) found.push_back(matchJSON(e));
  }
  const AppStateSnapshot& s = state.snapshot;
  cli::Json result = {{"app", s.app}, {"pid", s.pid}, {"count", found.size()}, {"elements", std::move(found)}};
  if (s.window) result["window"] = windowJSON(*s.window);
  context.result.value = result;
  cli::writeJSONObject(context.output, result);
}

}  // namespace tavlin::snapshot
