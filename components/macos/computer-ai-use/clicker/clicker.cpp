#include "clicker/clicker.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <unordered_set>

#include "cli/arguments.h"
#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "common/unicode.h"
#include "input/event_synthesis.h"
#include "snapshot/ax_access.h"

namespace tavlin::clicker {

namespace {

using platform::Element;

constexpr int ok = 0, failed = 1, misuse = 2;
constexpr int axDepthLimit = 12;

struct Clicker {
  const runtime::ProcessValues& values;
  platform::Platform& platform;
  runtime::Output& output;

  void print(const std::string& line) { output.standardOutput(line + "\n"); }
  void eprint(const std::string& line) { output.standardError(line + "\n"); }
  int usage(const std::string& line) {
    eprint(line);
    return misuse;
  }

  bool isTrusted(bool prompt) { return platform.accessibility().isProcessTrusted(prompt); }
  bool requireTrusted() {
    if (isTrusted(false)) return true;
    eprint("Accessibility permission is required for Tavlin.app. Run: bin/clicker request");
    return false;
  }
  void report(bool trusted) {
    print(std::string("trusted: ") + (trusted ? "true" : "false"));
    print(std::string("trusted=") + (trusted ? "true" : "false") + " pid=" + std::to_string(::getpid()) +
          " bundle=" + common::escapingFieldMarkers(platform.workspace().mainBundlePath(), {" path="}) +
          " path=" + field(values.programPath));
  }
  // A value inside a printed line: it can neither end the line nor forge another one.
  static std::string field(const std::string& value) { return common::escapingControlCharacters(value); }
};

std::string number(double v) { return cli::formatJSON(cli::Json(v), cli::JsonFlavor::encoder); }

std::optional<double> parseCoordinate(const std::string& text) {
  auto v = cli::parseDouble(text);
  if (!v || !std::isfinite(*v)) return std::nullopt;
  return v;
}

std::optional<uint16_t> parseKeyCode(const std::string& text) {
  auto v = cli::parseInt64(text);
  if (!v || *v < 0 || *v > 0xFFFF) return std::nullopt;
  return static_cast<uint16_t>(*v);
}

// Down and up of one key with the given flags, at the HID tap.
bool postKeyCode(platform::Platform& p, uint16_t code, uint64_t flags) {
  auto down = p.events().createKeyboardEvent(code, true);
  auto up = p.events().createKeyboardEvent(code, false);
  if (!down || !up) return false;
  p.events().setFlags(*down, flags);
  p.events().setFlags(*up, flags);
  p.events().post(platform::EventTap::hid, *down);
  p.clock().sleep(0.03);
  p.events().post(platform::EventTap::hid, *up);
  return true;
}

struct AXOptions {
  std::optional<int32_t> pid;
  std::optional<std::string> role, title, contains;
};

// --pid PID [--role R] [--title T] [--contains C]; absent on anything else.
std::optional<AXOptions> parseAXOptions(const std::vector<std::string>& args) {
  AXOptions o;
  for (size_t i = 1; i < args.size(); i += 2) {
    if (i + 1 >= args.size()) return std::nullopt;
    const std::string& name = args[i];
    const std::string& value = args[i + 1];
    if (name == "--pid") {
      auto v = cli::parseInt64(value);
      if (!v || *v < 1 || *v > INT32_MAX) return std::nullopt;
      o.pid = static_cast<int32_t>(*v);
    } else if (name == "--role") {
      o.role = value;
    } else if (name == "--title") {
      o.title = value;
    } else if (name == "--contains") {
      o.contains = value;
    } else {
      return std::nullopt;
    }
  }
  if (!o.pid) return std::nullopt;
  return o;
}

struct AXTexts {
  std::string role;
  std::optional<std::string> title, description, help;
  std::optional<std::string> label() const {
    if (title) return title;
    if (description) return description;
    return help;
  }
};

}  // namespace

const std::vector<std::string>& clickerAttributes() {
  static const std::vector<std::string> names = {"AXRole", "AXTitle", "AXDescription", "AXHelp"};
  return names;
}

namespace {

// Absent when the element could not be read at all (gone, or its application does not
// answer): nothing is known of it, so it matches nothing.
std::optional<AXTexts> textsOf(platform::Accessibility& ax, const Element& e) {
  std::vector<platform::AXCopyResult> results;
  AXTexts t;
  if (ax.copyMultipleAttributeValues(e, clickerAttributes(), results) !=
          platform::AXError::success ||
      results.size() < 4) {
    return std::nullopt;
  }
  auto text = [&](size_t i) -> std::optional<std::string> {
    if (results[i].error != platform::AXError::success) return std::nullopt;
    return snapshot::stringOf(results[i].value);
  };
  t.role = text(0).value_or("");
  t.title = text(1);
  t.description = text(2);
  t.help = text(3);
  return t;
}

bool matches(const AXTexts& t, const AXOptions& o) {
  if (o.role && t.role != *o.role) return false;
  if (o.title && t.label() != o.title) return false;
  if (o.contains) {
    bool found = false;
    for (const auto& text : {t.title, t.description, t.help}) {
      found |= text && common::containsIgnoringCase(*text, *o.contains);
    }
    if (!found) return false;
  }
  return true;
}

struct AXMatch {
  Element element;
  AXTexts texts;
};

// Pre-order from the application element, at most 12 levels down, each element once.
// Throws ToolError when no running application has the pid or its application element
// cannot be read: an empty or phantom list would pass for an answer.
std::vector<AXMatch> axWalk(Clicker& c, const AXOptions& o) {
  std::vector<platform::RunningApplication> running = c.platform.workspace().runningApplications();
  if (std::none_of(running.begin(), running.end(),
                   [&](const auto& app) { return app.pid == *o.pid && !app.terminated; })) {
    throw cli::ToolError("no running application has pid " + std::to_string(*o.pid));
  }
  platform::Accessibility& ax = c.platform.accessibility();
  std::vector<AXMatch> out;
  std::unordered_set<uint64_t> visited;
  struct Pending {
    Element element;
    int depth;
  };
  std::vector<Pending> stack{{ax.applicationElement(*o.pid), 0}};
  while (!stack.empty()) {
    Pending next = std::move(stack.back());
    stack.pop_back();
    if (!visited.insert(ax.hash(next.element)).second) continue;
    std::optional<AXTexts> texts = textsOf(ax, next.element);
    if (!texts) {
      if (next.depth == 0) {
        throw cli::ToolError("the application with pid " + std::to_string(*o.pid) +
                             " does not answer accessibility requests");
      }
      continue;
    }
    if (matches(*texts, o)) out.push_back({next.element, *texts});
    if (next.depth >= axDepthLimit) continue;
    std::vector<Element> children = snapshot::axTraversalChildren(ax, next.element, c.values.traversalAttributes);
    for (auto it = children.rbegin(); it != children.rend(); ++it) stack.push_back({*it, next.depth + 1});
  }
  return out;
}

int commandClick(Clicker& c, const std::vector<std::string>& args) {
  const std::string line = "usage: click X Y [--button left|right|middle] [--double]";
  if (args.size() < 3) return c.usage(line);
  auto x = parseCoordinate(args[1]), y = parseCoordinate(args[2]);
  if (!x || !y) return c.usage(line);
  input::MouseButton button = input::MouseButton::left;
  int64_t clicks = 1;
  for (size_t i = 3; i < args.size(); ++i) {
    if (args[i] == "--double") {
      clicks = 2;
    } else if (args[i] == "--button" && i + 1 < args.size()) {
      auto parsed = input::mouseButton(args[++i]);
      if (!parsed) return c.usage(line);
      button = *parsed;
    } else {
      return c.usage(line);
    }
  }
  input::postMouseClick(c.platform, {*x, *y}, button, clicks);
  c.print("clicked " + number(*x) + "," + number(*y));
  return ok;
}

int commandMove(Clicker& c, const std::vector<std::string>& args) {
  if (args.size() != 3) return c.usage("usage: move X Y");
  auto x = parseCoordinate(args[1]), y = parseCoordinate(args[2]);
  if (!x || !y) return c.usage("usage: move X Y");
  input::requireScreenPoint({*x, *y});
  auto event = c.platform.events().createMouseEvent(platform::EventType::mouseMoved, {*x, *y},
                                                    platform::MouseButtonCode::left);
  if (!event) {
    c.eprint("move: failed to create event");
    return failed;
  }
  c.platform.events().post(platform::EventTap::hid, *event);
  c.print("moved to " + number(*x) + "," + number(*y));
  return ok;
}

int commandKey(Clicker& c, const std::vector<std::string>& args) {
  const std::string line = "usage: key KEYCODE   (e.g. 36=Return  48=Tab  53=Escape  49=Space)";
  if (args.size() != 2) return c.usage(line);
  auto code = parseKeyCode(args[1]);
  if (!code) return c.usage(line);
  if (!postKeyCode(c.platform, *code, 0)) {
    c.eprint("key: failed to create events");
    return failed;
  }
  c.print("key " + std::to_string(*code));
  return ok;
}

int commandHotkey(Clicker& c, const std::vector<std::string>& args) {
  const std::string line = "usage: hotkey KEYCODE [cmd] [shift] [opt] [ctrl]";
  if (args.size() < 2) return c.usage(line);
  auto code = parseKeyCode(args[1]);
  if (!code) return c.usage(line);
  uint64_t flags = 0;
  for (size_t i = 2; i < args.size(); ++i) {
    const std::string& word = args[i];
    if (word == "cmd") flags |= platform::eventflags::command;
    else if (word == "shift") flags |= platform::eventflags::shift;
    else if (word == "opt") flags |= platform::eventflags::alternate;
    else if (word == "ctrl") flags |= platform::eventflags::control;
    else return c.usage(line);
  }
  if (!postKeyCode(c.platform, *code, flags)) {
    c.eprint("key: failed to create events");
    return failed;
  }
  char hex[32];
  std::snprintf(hex, sizeof hex, "0x%llx", static_cast<unsigned long long>(flags));
  c.print("hotkey " + std::to_string(*code) + " flags=" + hex);
  return ok;
}

int commandType(Clicker& c, const std::vector<std::string>& args) {
  if (args.size() != 2) return c.usage("usage: type \"text\"");
  input::postUnicodeText(c.platform, args[1]);
  c.print("typed " + std::to_string(common::characterCount(args[1])) + " characters");
  return ok;
}

int commandWhere(Clicker& c) {
  platform::Point p = c.platform.events().pointerLocation();
  c.print(number(p.x) + "," + number(p.y));
  return ok;
}

std::string frameText(platform::Accessibility& ax, const Element& e) {
  auto frame = snapshot::axFrame(ax, e);
  if (!frame) return "()";
  return "(" + number(frame->origin.x) + "," + number(frame->origin.y) + "," + number(frame->size.width) + "," +
         number(frame->size.height) + ")";
}

int commandAXList(Clicker& c, const std::vector<std::string>& args) {
  auto o = parseAXOptions(args);
  if (!o) return c.usage("usage: ax-list --pid PID [--role AXButton] [--contains TEXT]");
  int index = 0;
  for (const AXMatch& m : axWalk(c, *o)) {
    // "]" is escaped in the role too, so that the prefix ends at the first "] title=", and
    // a label's own " frame=(" is escaped, so that the frame starts at the first one.
    c.print("[" + std::to_string(index++) + " " + common::escapingControlCharacters(m.texts.role, "]") +
            "] title=" + common::escapingFieldMarkers(m.texts.label().value_or(""), {" frame=("}) +
            " frame=" + frameText(c.platform.accessibility(), m.element));
  }
  return ok;
}

int commandAXPress(Clicker& c, const std::vector<std::string>& args) {
  auto o = parseAXOptions(args);
  if (!o) return c.usage("usage: ax-press --pid PID [--role AXButton] [--title TEXT] [--contains TEXT]");
  std::vector<AXMatch> found = axWalk(c, *o);
  if (found.empty()) {
    c.eprint("ax-press: no element matched");
    return failed;
  }
  platform::AXError result = c.platform.accessibility().performAction(found.front().element, "AXPress");
  if (result != platform::AXError::success) {
    c.eprint("ax-press: AXPress failed code=" + std::to_string(static_cast<int32_t>(result)));
    return failed;
  }
  c.print(common::escapingFieldMarkers(found.front().texts.role, {" title="}) + " title=" +
          Clicker::field(found.front().texts.label().value_or("")));
  return ok;
}

}  // namespace

std::string clickerUsageText() {
  return "Tavlin.app clicker compatibility dispatcher\n"
         "\n"
         "  clicker check\n"
         "  clicker request\n"
         "  clicker click X Y [--button left|right|middle] [--double]\n"
         "  clicker move X Y\n"
         "  clicker key KEYCODE\n"
         "  clicker hotkey KEYCODE [cmd] [shift] [opt] [ctrl]\n"
         "  clicker type \"text\"\n"
         "  clicker where\n"
         "  clicker ax-list --pid PID [--role AXButton] [--contains TEXT]\n"
         "  clicker ax-press --pid PID [--role ROLE] [--title TEXT] [--contains TEXT]";
}

int runClickerCompatibility(const runtime::ProcessValues& values, platform::Platform& platform,
                            runtime::Output& output, const std::vector<std::string>& args) {
  Clicker c{values, platform, output};
  const std::string word = args.empty() ? "help" : args[0];
  try {
    if (word == "help" || word == "--help") {
      c.print(clickerUsageText());
      return ok;
    }
    if (word == "check") {
      bool trusted = c.isTrusted(false);
      c.report(trusted);
      return trusted ? ok : failed;
    }
    if (word == "request") {
      c.isTrusted(true);
      auto deadline = platform.clock().now() + std::chrono::seconds(5);
      while (platform.clock().now() < deadline) platform.clock().runLoop(0.05);
      bool trusted = c.isTrusted(false);
      c.report(trusted);
      if (!trusted) {
        c.eprint("hint: open System Settings and enable Tavlin.app under Privacy & Security > Accessibility.");
      }
      return trusted ? ok : failed;
    }
    // These post events or read the accessibility tree: without permission that is
    // the answer, whatever the rest of the command line says.
    static const std::set<std::string> needTrust = {"click", "move", "key", "hotkey", "type", "ax-list", "ax-press"};
    if (needTrust.count(word) && !c.requireTrusted()) return failed;
    if (word == "click") return commandClick(c, args);
    if (word == "move") return commandMove(c, args);
    if (word == "key") return commandKey(c, args);
    if (word == "hotkey") return commandHotkey(c, args);
    if (word == "type") return commandType(c, args);
    if (word == "where") return commandWhere(c);
    if (word == "ax-list") return commandAXList(c, args);
    if (word == "ax-press") return commandAXPress(c, args);
    c.eprint(clickerUsageText());
    return misuse;
  } catch (const cli::ToolError& error) {
    c.eprint(word + ": " + common::escapingLineBreaks(error.description));
  } catch (const std::exception& error) {
    c.eprint(word + ": " + common::escapingLineBreaks(error.what()));
  }
  return failed;
}

}  // namespace tavlin::clicker
