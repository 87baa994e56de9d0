#include "mcp/mcp_server.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <condition_variable>
#include <map>
#include <thread>

#include "capture/background_capture.h"
#include "cli/tool_error.h"
#include "common/files.h"
#include "common/json_text.h"
#include "common/unicode.h"
#include "input/event_synthesis.h"
#include "menus/menu_bar.h"
#include "snapshot/screenshot_images.h"
#include "runtime/output.h"
#include "snapshot/element_changes.h"
#include "statusitem/status_item_services.h"

namespace tavlin::mcp {

namespace {

using cli::Json;

// JSON-RPC 2.0 error codes.
constexpr int parseError = -32700, invalidRequest = -32600, methodNotFound = -32601, invalidParams = -32602,
              internalError = -32603;
// The largest screenshot a reply carries.
constexpr size_t maxScreenshotBytes = size_t{64} << 20;

const std::vector<std::string> supportedVersions = {"2024-11-05", "2025-03-26", "2025-06-18", "2025-11-25"};
// The one version whose clients may send JSON-RPC batches (arrays of messages).
constexpr const char* batchVersion = "2025-03-26";

Json errorReply(const Json& id, int code, const std::string& message) {
  return {{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", message}}}};
}

Json resultReply(const Json& id, Json result) { return {{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(result)}}; }

struct InvalidParams : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// 2^53 - 1: the largest integer a JSON number carries exactly in every client.
constexpr double maxExactInteger = 9007199254740991.0;

ToolParameter withBounds(ToolParameter p, std::optional<double> minimum, std::optional<double> maximum) {
  p.minimum = minimum;
  p.maximum = maximum;
  return p;
}

ToolParameter nonEmpty(ToolParameter p) {
  p.minLength = 1;
  return p;
}

ToolParameter app() {
  return nonEmpty({"app", "--app", "string", "The application: its name, its bundle identifier, or pid:<PID>.", true, {}});
}

ToolParameter absolutePath(const char* description) {
  ToolParameter p{"path", "--path", "string", description, true, {}};
  p.pattern = "^[/~]";
  return nonEmpty(p);
}
ToolParameter elementIndex(bool required) {
  return withBounds({"element_index", "--element-index", "integer",
          "The element's index in the latest get_app_state listing of the window. The element must still be the "
          "one listed there (same role, place, identifier and title, same window); otherwise nothing is done and "
          "the result asks for a new get_app_state.",
          required, {}}, 0, maxExactInteger);
}
ToolParameter titleContains() {
  return {"title_contains", "--title-contains", "string",
          "Choose the window whose title contains this text (ignoring case).", false, {}};
}
ToolParameter windowID() {
  return withBounds({"window_id", "--window-id", "integer", "Choose the window with this window-server number.", false, {}},
                    0, 4294967295.0);
}
ToolParameter timeout(const char* fallback) {
  return withBounds({"timeout", "--timeout", "number",
                     std::string("Seconds to wait for the Open panel to appear (default ") + fallback + ", at most 600).",
                     false, {}},
                    0, 600);
}
ToolParameter menuPath(bool required, const char* description) {
  ToolParameter p{"path", "--path", "string", description, required, {}};
  return required ? nonEmpty(p) : p;
}
ToolParameter number(const char* name, const char* flag, const char* description) {
  return {name, flag, "number", description, true, {}};
}

std::string valueText(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "true" : "false";
  if (value.is_number_integer()) return value.dump();
  return cli::formatJSON(value, cli::JsonFlavor::encoder);
}

bool hasType(const Json& value, const std::string& type) {
  if (type == "string") return value.is_string();
  if (type == "boolean") return value.is_boolean();
  // 3.0 is an integer too; how large one may be is the bounds' matter.
  if (type == "integer") {
    return value.is_number_integer() || (value.is_number_float() && std::isfinite(value.get<double>()) &&
                                         value.get<double>() == std::trunc(value.get<double>()));
  }
  if (type == "number") return value.is_number();
  return false;
}

std::string typeName(const std::string& type) { return type == "integer" ? "an integer" : "a " + type; }

std::string boundText(double v) { return cli::formatJSON(Json(v), cli::JsonFlavor::encoder); }

// Why a value breaks the parameter's bounds; absent when it keeps them.
std::optional<std::string> boundsProblem(const ToolEntry& tool, const ToolParameter& p, const Json& value) {
  std::string subject = "argument \"" + p.name + "\" of tool " + tool.name;
  if (!p.allowed.empty() && value.is_string() &&
      std::find(p.allowed.begin(), p.allowed.end(), value.get<std::string>()) == p.allowed.end()) {
    std::string list;
    for (const auto& a : p.allowed) list += (list.empty() ? "" : ", ") + a;
    return subject + " must be one of: " + list;
  }
  if (value.is_number()) {
    double v = value.get<double>();
    // An integer beyond what every client and the command read exactly is out of bounds
    // whatever the parameter's own are.
    std::optional<double> minimum = p.minimum, maximum = p.maximum;
    if (p.type == "integer") {
      minimum = std::max(minimum.value_or(-maxExactInteger), -maxExactInteger);
      maximum = std::min(maximum.value_or(maxExactInteger), maxExactInteger);
    }
    if ((minimum && v < *minimum) || (maximum && v > *maximum)) {
      if (minimum && maximum) {
        return subject + " must be from " + boundText(*minimum) + " to " + boundText(*maximum);
      }
      return subject + (minimum ? " must be at least " + boundText(*minimum) : " must be at most " + boundText(*maximum));
    }
  }
  if (value.is_string()) {
    const std::string& text = value.get_ref<const std::string&>();
    if (p.minLength && static_cast<int>(common::characterCount(text)) < *p.minLength) return subject + " must not be empty";
    if (p.pattern && *p.pattern == "^[/~]" && !(text.starts_with("/") || text.starts_with("~"))) {
      return subject + " must be an absolute path (starting with / or ~)";
    }
  }
  return std::nullopt;
}

// The arguments as the command's flag dictionary; throws InvalidParams.
cli::Flags flagsFor(const ToolEntry& tool, const Json& arguments) {
  cli::Flags flags;
  if (!arguments.is_null() && !arguments.is_object()) throw InvalidParams("arguments must be an object");
  if (arguments.is_object()) {
    for (auto it = arguments.begin(); it != arguments.end(); ++it) {
      const ToolParameter* parameter = nullptr;
      for (const auto& p : tool.parameters) {
        if (p.name == it.key()) parameter = &p;
      }
      if (!parameter) {
        std::string known;
        for (const auto& p : tool.parameters) known += (known.empty() ? "" : ", ") + p.name;
        throw InvalidParams("unknown argument \"" + it.key() + "\" for tool " + tool.name +
                            (known.empty() ? " (it takes none)" : " (it takes: " + known + ")"));
      }
      if (it.value().is_null()) continue;
      if (!hasType(it.value(), parameter->type)) {
        throw InvalidParams("argument \"" + it.key() + "\" of tool " + tool.name + " must be " +
                            typeName(parameter->type));
      }
      if (auto problem = boundsProblem(tool, *parameter, it.value())) throw InvalidParams(*problem);
      std::string text = it.value().is_number_float() && parameter->type == "integer"
                             ? std::to_string(static_cast<int64_t>(it.value().get<double>()))
                             : valueText(it.value());
      flags[parameter->flag] = text;
    }
  }
  for (const auto& p : tool.parameters) {
    if (p.required && !flags.contains(p.flag)) {
      throw InvalidParams("missing required argument \"" + p.name + "\" for tool " + tool.name);
    }
  }
  return flags;
}

// A command's message in the tool's own words: its flags become argument names
// ("--click-count / --click_count" and "--click-count" both read "click_count").
std::string inArgumentNames(std::string message, const ToolEntry& tool) {
  for (const auto& p : tool.parameters) {
    std::string dashed = p.flag, underscored = p.flag;
    std::replace(underscored.begin() + 2, underscored.end(), '-', '_');
    for (const std::string& form : {dashed + " / " + underscored, underscored + " / " + dashed, dashed, underscored}) {
      for (size_t at = 0; (at = message.find(form, at)) != std::string::npos;) {
        size_t end = at + form.size();
        // Whole flags only: "--x" is not the start of "--x-offset".
        if (end < message.size() && (std::isalnum(static_cast<unsigned char>(message[end])) || message[end] == '-' ||
                                     message[end] == '_')) {
          at = end;
          continue;
        }
        message.replace(at, form.size(), p.name);
        at += p.name.size();
      }
    }
  }
  return message;
}

// The screenshot a get_app_state call itself wrote, read back only when it is still what
// the command left there: a PNG file of ours, inside the state cache, reached without
// following a link. Anything else is left out of the reply rather than sent.
std::optional<std::string> ownScreenshot(const runtime::ProcessValues& values, const std::string& path) {
  std::string folder = values.cacheDirectoryURL;
  if (folder.empty() || common::deletingLastPathComponent(path) != folder || !path.ends_with(".png")) {
    return std::nullopt;
  }
  std::string problem;
  auto bytes = common::readRegularFile(path, maxScreenshotBytes, problem, common::LinkPolicy::refuse);
  static constexpr std::string_view signature("\x89PNG\r\n\x1a\n", 8);
  if (!bytes || !std::string_view(*bytes).starts_with(signature)) return std::nullopt;
  return bytes;
}


// Action tools that can report what their action changed in the window.
const std::vector<std::string>& observingTools() {
  static const std::vector<std::string> names = {"click",    "scroll",    "drag",
                                                 "type_text", "press_key", "set_value",
                                                 "perform_secondary_action", "background_paste_clipboard"};
  return names;
}

bool observes(const std::string& tool) {
  return std::find(observingTools().begin(), observingTools().end(), tool) != observingTools().end();
}

// Images for a model come scaled down unless the call says otherwise; 0 is the full size.
void withDefaultMaxDimension(cli::Flags& flags) {
  auto given = flags.find("--max-dimension");
  if (given == flags.end()) {
    flags["--max-dimension"] = std::to_string(defaultMaxDimension);
  } else if (given->second == "0") {
    flags.erase(given);
  }
}

// What each tool promises a client: whether it only reads, may destroy (input that
// edits, presses or chooses), gives the same effect when repeated. Every tool works on
// this Mac's own applications, not an open world of outside services.
struct ToolHints {
  bool readOnly, destructive, idempotent;
};

ToolHints hintsFor(const std::string& tool) {
  if (tool == "find_elements" || tool == "wait_for") return {true, false, true};
  if (tool == "list_apps" || tool == "get_app_state" || tool == "inspect_open_panel" || tool == "doctor") {
    return {true, false, true};
  }
  if (tool == "activate_app") return {false, false, true};
  if (tool == "scroll") return {false, false, false};
  if (tool == "set_value") return {false, true, true};
  if (tool == "list_menus" || tool == "get_clipboard") return {true, false, true};
  if (tool == "set_clipboard") return {false, true, true};  // what the clipboard held is gone
  return {false, true, false};  // clicks, keys, text, drags, pastes, actions, Open panel choices
}

// The structured result of each tool, as JSON Schema (each key once, in snake_case).
const Json& outputSchemaFor(const std::string& tool) {
  static const std::map<std::string, Json> schemas = [] {
    Json integer = {{"type", "integer"}}, number = {{"type", "number"}}, string = {{"type", "string"}},
         boolean = {{"type", "boolean"}}, okTrue = {{"type", "boolean"}, {"const", true}};
    Json point = {{"type", "object"}, {"properties", {{"x", number}, {"y", number}}}, {"required", {"x", "y"}}};
    Json element = {{"type", "object"},
                    {"description", "The element acted on, as the snapshot listed it."},
                    {"properties", {{"index", integer}, {"role", string}, {"label", string}}},
                    {"required", {"index", "role"}}};
    auto object = [](Json properties, std::vector<std::string> required) {
      return Json{{"type", "object"}, {"properties", std::move(properties)}, {"required", std::move(required)}};
    };
    Json app = object({{"pid", integer}, {"name", string}, {"app", string}, {"bundle_identifier", string},
                       {"is_active", boolean}, {"is_hidden", boolean}, {"activation_policy", integer}},
                      {"pid", "name", "activation_policy"});
    Json window = object({{"window_id", integer},
                          {"frame", object({{"x", number}, {"y", number}, {"width", number}, {"height", number}},
                                           {"x", "y", "width", "height"})}},
                         {});
    Json chosen = object({{"ok", okTrue}, {"app", string}, {"path", string}, {"kind", string}, {"method", string},
                          {"strategy", string}, {"activated_app", boolean}, {"foreground_fallback", boolean}},
                         {"ok", "path", "kind"});
    std::map<std::string, Json> s;
    s["list_apps"] = object({{"apps", {{"type", "array"}, {"items", app}}}}, {"apps"});
    s["activate_app"] = object({{"ok", okTrue}, {"app", string}, {"pid", integer}}, {"ok", "app", "pid"});
    // plugin and plugin-json give the listing's envelope; json the snapshot itself.
    s["get_app_state"] = object({{"app", string},
                                 {"pid", integer},
                                 {"app_state", string},
                                 {"bundle_identifier", string},
                                 {"cache_path", string},
                                 {"screenshot_path", string},
                                 {"annotated_screenshot_path", string},
                                 {"focused_element_index", integer},
                                 {"window_id", integer},
                                 {"window_title", {{"type", {"string", "null"}}}},
                                 {"bundleIdentifier", string},
                                 {"cachePath", string},
                                 {"screenshotPath", string},
                                 {"annotatedScreenshotPath", string},
                                 {"elements", {{"type", "array"}, {"items", {{"type", "object"}}}}},
                                 {"window", {{"type", "object"}}}},
                                {"app", "pid"});
    s["click"] = object({{"ok", okTrue}, {"method", {{"type", "string"}, {"enum", {"ax", "mouse"}}}},
                         {"element_index", integer}, {"screen_point", point}, {"image_point", point},
                         {"element", element}},
                        {"ok", "method"});
    s["type_text"] = object({{"ok", okTrue}, {"app", string}, {"typed_length", integer}}, {"ok", "app", "typed_length"});
    s["press_key"] = object({{"ok", okTrue}, {"app", string}, {"key", string}}, {"ok", "app", "key"});
    s["set_value"] = object({{"ok", okTrue}, {"element_index", integer}, {"value", string}, {"element", element}},
                            {"ok", "element_index", "value"});
    s["perform_secondary_action"] = object(
        {{"ok", okTrue}, {"element_index", integer}, {"action", string}, {"element", element}},
        {"ok", "element_index", "action"});
    Json frontmost = {{"type", {"object", "null"}},
                      {"properties", {{"app", string}, {"bundle_identifier", string}, {"pid", integer}}}};
    s["background_paste_clipboard"] = object({{"method", string},
                                              {"activated_app", boolean},
                                              {"explicitly_activated_app", boolean},
                                              {"clicked_target", boolean},
                                              {"restore_frontmost", boolean},
                                              {"restored_frontmost", boolean},
                                              {"frontmost_before", frontmost},
                                              {"frontmost_after_click", frontmost},
                                              {"frontmost_during_input", frontmost},
                                              {"frontmost_after", frontmost},
                                              {"frontmost_changed_during_input", boolean},
                                              {"target_frontmost_after_click", boolean},
                                              {"target_frontmost_during_input", boolean},
                                              {"focus_policy", string},
                                              {"keyboard_delivery", string},
                                              {"screen_point", point},
                                              {"selected_existing", boolean},
                                              {"cleared_existing", boolean},
                                              {"window", window},
                                              {"screenshot_path", string}},
                                             {"method", "screen_point", "keyboard_delivery"});
    s["choose_open_panel_path"] = chosen;
    s["choose_open_panel_bundle"] = chosen;
    s["inspect_open_panel"] = object(
        {{"panel_node_count", integer}, {"nodes", {{"type", "array"}, {"items", {{"type", "object"}}}}}},
        {"panel_node_count", "nodes"});
    s["scroll"] = object({{"ok", okTrue}, {"element_index", integer}, {"direction", string}, {"pages", integer},
                          {"element", element}},
                         {"ok", "element_index", "direction", "pages"});
    s["drag"] = object({{"ok", okTrue}, {"from", point}, {"to", point}}, {"ok", "from", "to"});
    // Querying: the found elements, the waited-for match, and the change lists.
    Json frame = object({{"x", number}, {"y", number}, {"width", number}, {"height", number}},
                        {"x", "y", "width", "height"});
    Json found = object({{"index", integer}, {"role", string}, {"label", string}, {"value", string},
                         {"identifier", string}, {"frame", frame}, {"center", point}},
                        {"index", "role"});
    s["find_elements"] = object({{"app", string}, {"pid", integer}, {"count", integer},
                                 {"elements", {{"type", "array"}, {"items", found}}},
                                 {"window", object({{"title", string}, {"window_id", integer}, {"frame", frame}}, {})}},
                                {"app", "pid", "count", "elements"});
    Json windowFound = object({{"role", string}, {"label", string}, {"frame", frame}, {"center", point},
                               {"window_id", integer}},
                              {"role"});
    s["wait_for"] = object({{"ok", okTrue}, {"app", string}, {"pid", integer}, {"condition", string},
                            {"waited", number}, {"gone", boolean}, {"element", found}, {"window", windowFound}},
                           {"ok", "app", "pid", "condition", "waited"});
    Json listed = object({{"index", integer}, {"role", string}, {"label", string}, {"path", string}},
                         {"index", "role", "path"});
    Json changed = listed;
    changed["properties"]["before"] = object({{"index", integer}, {"path", string}}, {"index", "path"});
    changed["properties"]["fields"] = {{"type", "object"}};
    Json list = {{"type", "array"}, {"items", listed}};
    Json changes = {{"type", "object"},
                    {"description",
                     "What changed since the latest get_app_state; since is null when there was none to compare "
                     "with, and error says why changes could not be observed."},
                    {"properties",
                     {{"since", {{"type", {"string", "null"}}}},
                      {"added", list},
                      {"removed", list},
                      {"changed", {{"type", "array"}, {"items", changed}}},
                      {"error", string}}}};
    s["get_app_state"]["properties"]["changes"] = changes;
    for (const auto& tool : observingTools()) s[tool]["properties"]["changes"] = changes;
    Json menuItem = object({{"title", string},
                            {"enabled", boolean},
                            {"checked", boolean},
                            {"shortcut", string},
                            {"submenu", boolean},
                            {"items", {{"type", "array"}, {"items", {{"type", "object"}}}}}},
                           {"title", "checked", "submenu"});
    s["list_menus"] = object({{"app", string}, {"pid", integer}, {"path", string},
                              {"items", {{"type", "array"}, {"items", menuItem}}}, {"truncated", boolean}},
                             {"app", "pid", "items", "truncated"});
    s["press_menu"] = object({{"ok", okTrue}, {"app", string}, {"path", string}, {"title", string}, {"action", string}},
                             {"ok", "path", "title"});
    Json types = {{"type", "array"}, {"items", string}};
    s["get_clipboard"] = object({{"text", string}, {"types", types}, {"change_count", integer}}, {"types", "change_count"});
    s["set_clipboard"] = object({{"ok", okTrue}, {"length", integer}, {"types", types}, {"change_count", integer}},
                                {"ok", "length", "change_count"});
    Json check = object({{"name", string},
                         {"status", {{"type", "string"}, {"enum", {"ok", "warning", "failed"}}}},
                         {"detail", string}},
                        {"name", "status", "detail"});
    s["doctor"] = object({{"ok", boolean}, {"checks", {{"type", "array"}, {"items", check}}}}, {"ok", "checks"});
    return s;
  }();
  return schemas.at(tool);
}

// The command line prints some keys twice, in snake_case and camelCase; a structured
// result keeps the snake_case one only ("windowID" goes when "window_id" is there).
void dropCamelCaseTwins(Json& value) {
  auto folded = [](const std::string& key) {
    std::string out;
    for (char c : key) {
      if (c != '_') out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return out;
  };
  if (value.is_array()) {
    for (Json& item : value) dropCamelCaseTwins(item);
    return;
  }
  if (!value.is_object()) return;
  std::map<std::string, int> forms;
  for (auto it = value.begin(); it != value.end(); ++it) ++forms[folded(it.key())];
  std::vector<std::string> twins;
  for (auto it = value.begin(); it != value.end(); ++it) {
    bool camel = std::any_of(it.key().begin(), it.key().end(), [](char c) { return std::isupper(static_cast<unsigned char>(c)); });
    if (camel && forms[folded(it.key())] > 1) twins.push_back(it.key());
  }
  for (const auto& key : twins) value.erase(key);
  for (auto it = value.begin(); it != value.end(); ++it) dropCamelCaseTwins(it.value());
}

// --- querying: find_elements, wait_for, get_app_state's "changes" and the actions' "observe" ---

ToolParameter criterion(const char* name, const char* flag, const char* description) {
  return nonEmpty({name, flag, "string", description, false, {}});
}

std::vector<ToolEntry> withQueryTools(std::vector<ToolEntry> tools) {
  for (ToolEntry& tool : tools) {
    if (tool.name == "get_app_state") {
      tool.parameters.push_back({"changes", "--changes", "boolean",
                                 "Also list what changed since this application's previous get_app_state: elements "
                                 "added, removed and changed (value, title, enabled, focused, frame), by path.",
                                 false, {}});
    }
    if (observes(tool.name)) {
      tool.parameters.push_back({"observe", "--observe", "boolean",
                                 "After acting, look at the window again (without a new snapshot) and return what "
                                 "changed since the latest get_app_state, as \"changes\".",
                                 false, {}});
    }
  }
  const ToolParameter role = criterion("role", "--role", "The accessibility role, exactly (e.g. AXButton).");
  const ToolParameter text = criterion(
      "text", "--text", "Text contained in the title, value, description or identifier (ignoring case).");
  const ToolParameter identifier = criterion("identifier", "--identifier", "The accessibility identifier, exactly.");
  const ToolParameter interactive = {"interactive", "--interactive", "boolean",
                                     "Only elements with an action or a settable value.", false, {}};
  tools.push_back(
      {"find_elements", "find-elements", "Find elements of a window",
       "Walks a window of an application as get_app_state does and returns the elements that match every criterion "
       "given (none: all), with index, role, label, value, frame and center. It takes no snapshot: index actions "
       "stay bound to the latest get_app_state, so take one before acting on these indices if the window changed. "
       "Does not bring the application forward.",
       {app(), role, text, identifier, interactive, titleContains(), windowID()}});
  tools.push_back(
      {"wait_for", "wait-for", "Wait for an element or window",
       "Waits until an element (by text, role and/or identifier) or a window (by title) of an application is there, "
       "or with gone until it is not, looking every 0.25 s for at most timeout seconds; returns the match (index, "
       "role, label, frame) and the seconds waited, or an error naming what it waited for. Never brings the "
       "application forward or sends input.",
       {app(), text, role, identifier, interactive,
        criterion("window_title", "--window-title", "Part of a window's title (ignoring case), instead of element criteria."),
        {"gone", "--gone", "boolean", "Wait until nothing matches any more.", false, {}},
        withBounds({"timeout", "--timeout", "number", "Seconds to wait at most (default 10, at most 600).", false, {}},
                   0, 600),
        titleContains(), windowID()}});
  return tools;
}

}  // namespace

const std::vector<ToolEntry>& toolEntries() {
  static const std::vector<ToolEntry> tools = withQueryTools({
      {"list_apps", "list-apps", "List running applications",
       "Lists the running applications, the frontmost first, with pid, name, bundle identifier, whether each is "
       "active or hidden, and its activation policy (0 regular, 1 accessory, 2 prohibited). Use it to find the "
       "\"app\" value for the other tools.",
       {}},
      {"activate_app", "activate-app", "Bring an application to the front",
       "Activates an application with all its windows and checks that it became frontmost.", {app()}},
      {"get_app_state", "get-app-state", "Snapshot an application's window",
       "Takes a snapshot of one window of an application: a numbered list of its accessibility elements (role, "
       "title, value, frame, actions), and a screenshot of the window. Element numbers are what click, set_value, "
       "scroll and perform_secondary_action take; screenshot pixels are what click's x/y and drag take. Does not "
       "bring the application forward.",
       {app(),
        {"format", "--format", "string",
         "plugin (default): a text listing; json: the raw snapshot; plugin-json: the listing with cache metadata.",
         false, {"plugin", "json", "plugin-json"}},
        titleContains(), windowID(),
        {"annotate", "--annotate", "boolean",
         "Send a copy of the screenshot with every element's frame outlined and its index in a label, instead of "
         "the plain one (default false).",
         false, {}},
        withBounds({"max_dimension", "--max-dimension", "integer",
                    "The screenshot's longer side in pixels: 64 to 16384, or 0 for the full size. Default " +
                        std::to_string(defaultMaxDimension) +
                        ": a larger image is scaled down here, since clients and models would scale it themselves "
                        "and break its pixel coordinates. click's x/y and drag take pixels of the image sent.",
                    false, {}},
                   0, snapshot::maxMaxDimension)}},
      {"click", "click", "Click an element or a screenshot pixel",
       "Activates the application and clicks an element (by element_index) at its centre, or a pixel (x, y) of the "
       "latest get_app_state screenshot. An element without a frame is pressed through accessibility.",
       {app(), elementIndex(false),
        {"x", "--x", "number", "Pixel column in the latest screenshot (with y, instead of element_index).", false, {}},
        {"y", "--y", "number", "Pixel row in the latest screenshot.", false, {}},
        withBounds({"click_count", "--click-count", "integer", "Clicks in a row: 2 for a double click (at most 100).",
                    false, {}},
                   1, 100),
        {"mouse_button", "--mouse-button", "string", "The mouse button (default left).", false,
         {"left", "right", "middle"}},
        titleContains(), windowID()}},
      {"type_text", "type-text", "Type text",
       "Activates the application and types the text into its focused element, character by character.",
       {app(), {"text", "--text", "string", "The text to type.", true, {}}}},
      {"press_key", "press-key", "Press a key combination",
       "Activates the application and presses a key combination such as cmd+s, shift+tab, return or f5 (modifiers "
       "cmd, ctrl, alt/option, shift joined with +).",
       {app(), nonEmpty({"key", "--key", "string",
                         "The key combination, e.g. cmd+shift+4: modifiers cmd (command, super, meta), ctrl (control), "
                         "alt (option) and shift joined with +, then one key: a letter, digit or punctuation key, "
                         "return (enter), tab, space, backspace (delete), escape (esc), left, right, up, down, home, "
                         "end, page_up, page_down or f1 to f12 (without modifiers, any one character).",
                         true, {}})}},
      {"set_value", "set-value", "Set an element's value",
       "Sets the accessibility value of an element (a text field's text, a slider's value) without activating the "
       "application.",
       {app(), elementIndex(true), {"value", "--value", "string", "The new value.", true, {}}, titleContains(),
        windowID()}},
      {"background_paste_clipboard", "background-paste-clipboard", "Paste into a background window",
       "Clicks a screen point of an application's window and pastes the clipboard there with input sent to that "
       "application only, then returns the previously frontmost application to the front. The paste replaces the "
       "field's contents: what the field holds is selected and deleted first.",
       {app(), number("screen_x", "--screen-x", "Screen x in points."),
        number("screen_y", "--screen-y", "Screen y in points."), titleContains(), windowID(),
        {"click_target", "--click-target", "boolean", "Click the point first (default true).", false, {}},
        {"restore_frontmost", "--restore-frontmost", "boolean",
         "Bring the previously frontmost application back (default true).", false, {}}}},
      {"perform_secondary_action", "perform-secondary-action", "Perform an accessibility action",
       "Performs one of an element's accessibility actions (for example AXShowMenu, AXIncrement, AXPick), as listed "
       "by get_app_state.",
       {app(), elementIndex(true), nonEmpty({"action", "--action", "string", "The action's name.", true, {}}), titleContains(),
        windowID()}},
      {"choose_open_panel_path", "choose-open-panel-path", "Choose a file or folder in an Open panel",
       "Chooses a file or folder in the standard Open panel that the application shows, and confirms it, without "
       "bringing the application forward or moving the pointer.",
       {app(), absolutePath("The absolute path of the file or folder (~ is expanded)."),
        timeout("10")}},
      {"choose_open_panel_bundle", "choose-open-panel-bundle", "Choose an application bundle in an Open panel",
       "Selects an application bundle (a folder ending in .app) in the application's Open panel as one item, and "
       "presses Open.",
       {app(), absolutePath("The absolute path of the .app bundle (~ is expanded)."), timeout("10")}},
      {"inspect_open_panel", "inspect-open-panel", "Inspect an Open panel",
       "Lists the accessibility nodes of the Open panel that the application shows.", {app(), timeout("1")}},
      {"scroll", "scroll", "Scroll an element",
       "Activates the application, moves the pointer over an element and scrolls it by pages.",
       {app(), elementIndex(true),
        {"direction", "--direction", "string", "Which way to scroll.", true, {"up", "down", "left", "right"}},
        withBounds({"pages", "--pages", "integer", "How many pages (default 1).", false, {}}, 1, 3579139),
        titleContains(), windowID()}},
      {"drag", "drag", "Drag between screenshot pixels",
       "Activates the application and drags with the left button between two pixels of the latest get_app_state "
       "screenshot.",
       {app(), number("from_x", "--from-x", "Start pixel column."), number("from_y", "--from-y", "Start pixel row."),
        number("to_x", "--to-x", "End pixel column."), number("to_y", "--to-y", "End pixel row.")}},
      {"list_menus", "list-menus", "List an application's menus",
       "Lists the items of an application's menu bar, or of one menu given by path, with each item's title, whether "
       "it is enabled and checked, its keyboard shortcut (in press_key's words) and whether it opens a submenu. "
       "Reads through accessibility: the application is not activated and no menu opens.",
       {app(), menuPath(false, "A menu to list instead of the menu bar, e.g. \"File\" or \"File > Open Recent\"."),
        withBounds({"depth", "--depth", "integer", "Levels of submenus to include (default 1: the items alone).",
                    false, {}},
                   1, menus::maxMenuDepth)}},
      {"press_menu", "press-menu", "Press a menu item",
       "Presses a menu-bar item of an application by its path, such as \"File > Export…\", through accessibility, "
       "without activating the application or opening the menu. Titles match exactly first, then ignoring case "
       "(\"...\" for \"…\"). A disabled item is not pressed; a path that does not match says what that menu holds.",
       {app(), menuPath(true, "The item's path: menu titles joined by \" > \", from the menu bar down.")}},
      {"get_clipboard", "get-clipboard", "Read the clipboard",
       "Gives the clipboard's plain text (absent when it holds none), the types it holds and its change count.", {}},
      {"set_clipboard", "set-clipboard", "Set the clipboard",
       "Puts text on the clipboard as plain text and checks that it is there, so that background_paste_clipboard "
       "pastes exactly that. What the clipboard held before is replaced.",
       {nonEmpty({"text", "--text", "string", "The text (at most 1 MiB).", true, {}})}},
      {"doctor", "doctor", "Check that the tool can work here",
       "Checks what every other tool needs on this Mac: the Accessibility and Screen Recording permissions, the "
       "install root and its companion scripts, the state cache folder, the app's code signature (an ad hoc "
       "signature loses the permissions at every rebuild) and the macOS version. Each check is ok, warning or "
       "failed, with what to do; the call is an error when a needed check failed. Run it first when the other "
       "tools seem to do nothing.",
       {}},
  });
  return tools;
}

Json toolDescription(const ToolEntry& tool) {
  Json properties = Json::object();
  Json required = Json::array();
  for (const auto& p : tool.parameters) {
    Json property = {{"type", p.type}, {"description", p.description}};
    if (!p.allowed.empty()) property["enum"] = p.allowed;
    if (p.minimum) property["minimum"] = *p.minimum;
    if (p.maximum) property["maximum"] = *p.maximum;
    if (p.minLength) property["minLength"] = *p.minLength;
    if (p.pattern) property["pattern"] = *p.pattern;
    properties[p.name] = property;
    if (p.required) required.push_back(p.name);
  }
  Json schema = {{"type", "object"}, {"properties", properties}, {"additionalProperties", false}};
  if (!required.empty()) schema["required"] = required;
  ToolHints hints = hintsFor(tool.name);
  Json annotations = {{"title", tool.title},
                      {"readOnlyHint", hints.readOnly},
                      {"destructiveHint", hints.destructive},
                      {"idempotentHint", hints.idempotent},
                      {"openWorldHint", false}};
  return {{"name", tool.name},
          {"title", tool.title},
          {"description", tool.description},
          {"inputSchema", schema},
          {"outputSchema", outputSchemaFor(tool.name)},
          {"annotations", annotations}};
}

McpServer::McpServer(const runtime::ProcessValues& values, platform::Platform& platform, Dispatcher dispatch)
    : values_(values), platform_(platform), dispatch_(std::move(dispatch)) {}

std::optional<Json> McpServer::handleLine(const std::string& line) {
  try {
    return handleMessage(line);
  } catch (const std::exception& e) {
    // Nothing a client sends may end the server; a fault here is answered, not fatal.
    return errorReply(nullptr, internalError, std::string("Internal error: ") + e.what());
  }
}

namespace {

// The message as an object, when the line holds one within the limits.
std::optional<Json> parsedMessage(const std::string& line) {
  if (line.size() > maxMessageBytes || common::checkJsonText(line, 64)) return std::nullopt;
  Json message = Json::parse(line, nullptr, false);
  if (message.is_discarded() || !message.is_object()) return std::nullopt;
  return message;
}

bool isMethod(const Json& message, const char* method) {
  auto it = message.find("method");
  return it != message.end() && it->is_string() && it->get<std::string>() == method;
}

// A request id as comparable text; absent when it is not a valid id.
std::optional<std::string> idKey(const Json& id) {
  if (!id.is_string() && !id.is_number_integer()) return std::nullopt;
  return id.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

void McpServer::noteCancellation(const Json& message) {
  auto params = message.find("params");
  if (params == message.end() || !params->is_object() || !params->contains("requestId")) return;
  auto key = idKey((*params)["requestId"]);
  if (!key) return;
  std::lock_guard<std::mutex> lock(mutex_);
  if (current_ == key) {
    platform_.cancel();
    return;
  }
  // The request may still be waiting its turn; a few remembered ids are enough.
  cancelled_.push_back(*key);
  if (cancelled_.size() > 64) cancelled_.pop_front();
}

bool McpServer::handleDuringCall(const std::string& line, std::optional<Json>& reply) {
  reply.reset();
  std::optional<Json> message = parsedMessage(line);
  if (!message) return false;
  try {
    if (isMethod(*message, "notifications/cancelled") && !message->contains("id")) {
      noteCancellation(*message);
      return true;
    }
    // Only while a call runs: otherwise replies keep the order of their requests.
    bool busy;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      busy = current_.has_value();
    }
    if (busy && isMethod(*message, "ping") && message->contains("id") && idKey((*message)["id"]) &&
        (*message)["jsonrpc"] == "2.0") {
      reply = resultReply((*message)["id"], Json::object());
      return true;
    }
  } catch (const std::exception&) {
    // Left to the ordinary handling, which answers it.
  }
  return false;
}

std::optional<Json> McpServer::handleMessage(const std::string& line) {
  if (common::trimmed(line).empty()) return std::nullopt;
  if (line.size() > maxMessageBytes) return errorReply(nullptr, invalidRequest, "Request too large (over 4 MiB)");
  if (auto problem = common::checkJsonText(line, 64)) {
    return errorReply(nullptr, parseError, "Parse error: " + problem->message);
  }
  Json message = Json::parse(line, nullptr, false);
  if (message.is_discarded()) return errorReply(nullptr, parseError, "Parse error");
  if (message.is_array() && protocol_ == batchVersion && !message.empty()) {
    Json replies = Json::array();
    for (Json& element : message) {
      if (auto reply = handleObject(std::move(element))) replies.push_back(std::move(*reply));
    }
    if (replies.empty()) return std::nullopt;  // notifications only
    return replies;
  }
  return handleObject(std::move(message));
}

std::optional<Json> McpServer::handleObject(Json message) {
  if (!message.is_object()) return errorReply(nullptr, invalidRequest, "Invalid Request: expected one JSON object");
  bool hasId = message.contains("id");
  Json id = hasId ? message["id"] : Json(nullptr);
  if (hasId && !id.is_string() && !id.is_number_integer()) {
    return errorReply(nullptr, invalidRequest, "Invalid Request: the id must be a string or an integer");
  }
  if (!message.contains("method")) {
    // A response from the client (the server sends no requests), or nonsense.
    if (message.contains("result") || message.contains("error")) return std::nullopt;
    return errorReply(id, invalidRequest, "Invalid Request: no method");
  }
  const Json& version = message["jsonrpc"];
  if (!version.is_string() || version.get<std::string>() != "2.0" || !message["method"].is_string()) {
    return hasId ? std::optional<Json>(errorReply(id, invalidRequest, "Invalid Request")) : std::nullopt;
  }
  if (!hasId) {
    // Notifications (initialized, cancelled, ...) need no reply.
    if (isMethod(message, "notifications/cancelled")) noteCancellation(message);
    return std::nullopt;
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    current_ = idKey(id);
    platform_.reset();
    for (auto it = cancelled_.begin(); it != cancelled_.end(); ++it) {
      if (*it == current_) {
        cancelled_.erase(it);
        platform_.cancel();
        break;
      }
    }
  }
  struct EndOfRequest {
    McpServer& server;
    ~EndOfRequest() {
      std::lock_guard<std::mutex> lock(server.mutex_);
      server.current_.reset();
    }
  } end{*this};
  try {
    return resultReply(id, handleRequest(message));
  } catch (const InvalidParams& e) {
    return errorReply(id, invalidParams, std::string("Invalid params: ") + e.what());
  } catch (const std::out_of_range& e) {
    return errorReply(id, methodNotFound, e.what());
  } catch (const std::exception& e) {
    return errorReply(id, internalError, std::string("Internal error: ") + e.what());
  }
}

Json McpServer::handleRequest(const Json& message) {
  const std::string method = message["method"].get<std::string>();
  Json params = message.contains("params") ? message["params"] : Json::object();
  if (!params.is_object()) throw InvalidParams("params must be an object");
  if (method == "initialize") {
    std::string version = newestProtocolVersion;
    if (params.contains("protocolVersion") && params["protocolVersion"].is_string()) {
      std::string asked = params["protocolVersion"].get<std::string>();
      for (const auto& v : supportedVersions) {
        if (v == asked) version = asked;
      }
    }
    protocol_ = version;
    return {{"protocolVersion", version},
            {"capabilities", {{"tools", {{"listChanged", false}}}}},
            {"serverInfo",
             {{"name", "tavlin"},
              {"title", "Tavlin desktop automation"},
              {"version", statusitem::tavlinReleaseVersion(values_.tavlinRootURL)}}},
            {"instructions",
             "Observe an application with get_app_state (numbered elements and a screenshot), then act on it by "
             "element index or screenshot pixel."}};
  }
  if (method == "ping") return Json::object();
  if (method == "tools/list") {
    Json tools = Json::array();
    for (const auto& tool : toolEntries()) tools.push_back(toolDescription(tool));
    return {{"tools", tools}};
  }
  if (method == "tools/call") return callTool(params);
  throw std::out_of_range("Method not found: " + method);
}

Json McpServer::callTool(const Json& params) {
  if (!params.contains("name") || !params["name"].is_string()) throw InvalidParams("a tool call needs a name");
  std::string name = params["name"].get<std::string>();
  const ToolEntry* tool = nullptr;
  for (const auto& t : toolEntries()) {
    if (t.name == name) tool = &t;
  }
  if (!tool) throw InvalidParams("Unknown tool: " + name);
  auto toolError = [](const std::string& text) {
    return Json{{"content", {{{"type", "text"}, {"text", text}}}}, {"isError", true}};
  };
  cli::Flags flags;
  try {
    flags = flagsFor(*tool, params.contains("arguments") ? params["arguments"] : Json(nullptr));
    // The whole key combination is checked before any key goes down.
    if (tool->name == "press_key") {
      if (auto problem = input::keyComboProblem(values_.keyTables, flags.at("--key"))) throw InvalidParams(*problem);
    }
  } catch (const InvalidParams& e) {
    // Newer clients hand the message to the model, which can correct itself.
    if (protocol_ >= argumentErrorsAsResultsFrom) return toolError(std::string("Invalid arguments: ") + e.what());
    throw;
  }
  // Over MCP an index always means the element the agent saw.
  if (flags.contains("--element-index")) flags["--verify-snapshot"] = "true";
  // Observing is the server's part, after the command.
  bool observe = cli::switchFlag(flags, {"--observe"});
  flags.erase("--observe");
  // The report's text block carries its JSON, as every other tool's does.
  if (tool->name == "doctor") flags["--json"] = "true";
  if (tool->name == "get_app_state") withDefaultMaxDimension(flags);

  runtime::BufferedOutput output;
  runtime::CommandContext context{values_, platform_, output};
  context.captureWindow = [this](const runtime::WindowCaptureRequest& request) { return captureInProcess(request); };
  std::optional<std::string> error;
  try {
    platform_.check();  // cancelled before its turn came: nothing is done
    dispatch_(context, tool->command, flags);
  } catch (const cli::ToolError& e) {
    error = e.description;
  } catch (const std::exception& e) {
    error = e.what();
  }
  if (platform_.cancelled()) error = cancelledMessage;
  // What the action changed, against the snapshot the agent saw. The action is done
  // whatever happens here, so a failure to look is reported, not the call failed.
  std::optional<Json> changes;
  std::string changesText;
  if (observe && !error) {
    runtime::BufferedOutput ignored;
    runtime::CommandContext looking{values_, platform_, ignored};
    try {
      snapshot::SnapshotChanges observed = snapshot::observeChanges(looking, flags);
      changes = snapshot::changesJSON(observed);
      changesText = snapshot::changesText(observed);
    } catch (const std::exception& e) {
      changes = Json{{"error", e.what()}};
      changesText = std::string("Could not observe the changes: ") + e.what();
    }
  }
  // Recorded and let go within the call, as a separate process would.
  try {
    platform_.checkpoint();
  } catch (const std::exception& e) {
    if (!error) error = e.what();
  }
  if (error) {
    Json failed = toolError(inArgumentNames(*error, *tool));
    // A report that found faults is the answer itself, given with the error.
    if (context.result.valueStandsOnFailure && context.result.value && !platform_.cancelled()) {
      Json report = {{"type", "text"}, {"text", cli::formatJSON(*context.result.value, cli::JsonFlavor::encoder)}};
      failed["content"].insert(failed["content"].begin(), std::move(report));
      failed["structuredContent"] = *context.result.value;
    }
    return failed;
  }

  std::string text = output.out();
  if (!text.empty() && text.back() == '\n') text.pop_back();
  Json result = {{"content", {{{"type", "text"}, {"text", text}}}}, {"isError", false}};
  // The command's own value where it hands one over; else the JSON it printed (every
  // other command prints one JSON document).
  Json structured = context.result.value ? *context.result.value
                    : common::checkJsonText(text, 256) ? Json()
                                                       : Json::parse(text, nullptr, false);
  bool printedJson = text.starts_with("{") || text.starts_with("[");
  dropCamelCaseTwins(structured);
  if (structured.is_array()) structured = Json{{tool->name == "list_apps" ? "apps" : "result", structured}};
  if (structured.is_object()) {
    if (context.result.actedOn) {
      const auto& e = *context.result.actedOn;
      Json element = {{"index", e.index}, {"role", e.role}};
      if (e.label) element["label"] = *e.label;
      structured["element"] = element;
    }
    if (changes) structured["changes"] = *changes;
    result["structuredContent"] = structured;
    // The text block carries the same JSON (the listing stays the listing).
    if (printedJson) {
      const Json& shown = tool->name == "list_apps" ? structured["apps"] : structured;
      result["content"][0]["text"] = cli::formatJSON(shown, cli::JsonFlavor::encoder);
    }
  }
  if (changes) result["content"].push_back({{"type", "text"}, {"text", changesText}});
  if (context.result.screenshotPath) {
    if (auto png = ownScreenshot(values_, *context.result.screenshotPath)) {
      result["content"].push_back({{"type", "image"}, {"data", base64(*png)}, {"mimeType", "image/png"}});
    }
  }
  return result;
}

bool McpServer::captureInProcess(const runtime::WindowCaptureRequest& request) {
  // The companion's own command, run here: the same discovery, time-outs, fallbacks and
  // PNG, without starting a shell and a second process for every snapshot.
  std::vector<std::string> arguments = {"capture"};
  if (request.windowID) {
    arguments.insert(arguments.end(), {"--window-id", std::to_string(*request.windowID)});
  } else {
    arguments.insert(arguments.end(), {"--pid", std::to_string(request.pid)});
  }
  arguments.insert(arguments.end(), {"--out", request.path});
  capture::CaptureContext c{platform_, values_};
  try {
    capture::bwcExecuteCommand(c, arguments);
    return true;
  } catch (const std::exception&) {
    return false;  // as the companion's failure: the system screenshot tool is tried next
  }
}

int runMcpServer(const runtime::ProcessValues& values, platform::Platform& platform, Dispatcher dispatch, int input,
                 int output) {
  McpServer server(values, platform, std::move(dispatch));
  std::mutex writing;
  auto reply = [&](const std::optional<Json>& message) {
    if (!message) return;
    std::string text = message->dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    std::lock_guard<std::mutex> lock(writing);
    runtime::writeAll(output, text);
  };

  // The reader keeps reading while a call runs, so that a ping is answered and a
  // cancellation reaches the call; everything else waits its turn in `lines`.
  std::mutex queueMutex;
  std::condition_variable queued;
  std::deque<std::string> lines;
  bool ended = false;
  auto deliver = [&](std::string line) {
    std::optional<Json> answer;
    if (server.handleDuringCall(line, answer)) {
      reply(answer);
      return;
    }
    std::lock_guard<std::mutex> lock(queueMutex);
    lines.push_back(std::move(line));
    queued.notify_one();
  };
  std::thread reader([&] {
    std::string buffer;
    bool skipping = false;  // inside a line that is already too long
    std::vector<char> chunk(65536);
    for (;;) {
      ssize_t n = ::read(input, chunk.data(), chunk.size());
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      buffer.append(chunk.data(), static_cast<size_t>(n));
      size_t start = 0;
      for (size_t end; (end = buffer.find('\n', start)) != std::string::npos; start = end + 1) {
        if (skipping) {
          skipping = false;
          continue;
        }
        std::string line = buffer.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        deliver(std::move(line));
      }
      buffer.erase(0, start);
      if (buffer.size() > maxMessageBytes) {
        // Refused at once, and the rest of the line is skipped as it arrives.
        if (!skipping) reply(errorReply(nullptr, invalidRequest, "Request too large (over 4 MiB)"));
        skipping = true;
        buffer.clear();
      }
    }
    if (!skipping && !common::trimmed(buffer).empty()) deliver(std::move(buffer));
    std::lock_guard<std::mutex> lock(queueMutex);
    ended = true;
    queued.notify_one();
  });

  for (;;) {
    std::string line;
    {
      std::unique_lock<std::mutex> lock(queueMutex);
      queued.wait(lock, [&] { return ended || !lines.empty(); });
      if (lines.empty()) break;
      line = std::move(lines.front());
      lines.pop_front();
    }
    reply(server.handleLine(line));
  }
  reader.join();
  return 0;
}

std::string base64(std::string_view bytes) {
  static const char table[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    uint32_t v = (static_cast<uint8_t>(bytes[i]) << 16) | (static_cast<uint8_t>(bytes[i + 1]) << 8) |
                 static_cast<uint8_t>(bytes[i + 2]);
    out += table[v >> 18];
    out += table[(v >> 12) & 63];
    out += table[(v >> 6) & 63];
    out += table[v & 63];
  }
  if (i < bytes.size()) {
    uint32_t v = static_cast<uint8_t>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) v |= static_cast<uint8_t>(bytes[i + 1]) << 8;
    out += table[v >> 18];
    out += table[(v >> 12) & 63];
    out += i + 1 < bytes.size() ? table[(v >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

}  // namespace tavlin::mcp
