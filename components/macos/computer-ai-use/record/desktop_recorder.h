#pragma once
// The desktop recorder ("__record-desktop", bin/tavlin-record): writes a desktop file
// (docs/desktop-format.md) from whatever desktop the platform seam talks to, so that a
// real application captured on a Mac can be replayed by the simulated desktop anywhere.
//
// What is recorded, all read through the seam:
// - the running applications, the frontmost one, the window-server list, the main
//   screen and the clock;
// - of the chosen application, every element reachable from its application element
//   through element-valued attributes, each read once with every attribute any command
//   of the tool reads (one batched round trip), its action names and whether AXValue is
//   settable. Values keep their kind; attributes the element lacks are left out; an
//   attribute that has no value is null; any other read error is written as an
//   injected error. Identity is CFEqual, so elements whose hashes collide stay
//   distinct and keep their shared hash; an element reachable twice (cycles included)
//   is declared once and referenced elsewhere.
// With a window chosen (--window-id, --title-contains, chosen as get-app-state chooses
// its root), the application's other windows are recorded without their contents.
//
// The file is laid out as the tree a person would write: each element declared inline
// under the first element whose AXChildren lists it, at most 128 levels deep; what
// the derivations of the format would not reproduce (a parent other than the
// declaring element, children lists that differ from the declarations) is written
// explicitly, so that replaying the file answers every read as the desktop did.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/platform.h"
#include "runtime/output.h"
#include "runtime/process_values.h"

namespace tavlin::record {

inline constexpr size_t defaultMaxElements = 100000;

struct RecordOptions {
  std::string app;
  std::optional<uint32_t> windowID;
  std::optional<std::string> titleContains;
  size_t maxElements = defaultMaxElements;
  // Every text value and title, identifiers, role descriptions and custom action names
  // become placeholders of the same length (docs/recording.md says what stays).
  bool redact = false;
};

struct Recording {
  nlohmann::ordered_json desktop;
  size_t elements = 0;
  bool truncated = false;  // the element limit left elements out
};

// Throws cli::ToolError as get-app-state does (permission, application not found).
Recording recordDesktop(const runtime::ProcessValues& values, platform::Platform& platform,
                        const RecordOptions& options);

// A same-length placeholder: each character (grapheme cluster) becomes "x", line
// breaks stay, so that lengths and line counts survive.
std::string redactedText(const std::string& text);
// An action name as --redact records it: a standard action ("AXPress", "AXShowMenu", …)
// as it is; a custom one with only its keys ("Name:", "Target:", "Selector:" at the
// start of a line) kept and everything else redacted as by redactedText.
std::string redactedActionName(const std::string& name);

// The file's text: indented, with short values (points, references) on one line.
std::string desktopText(const nlohmann::ordered_json& desktop);

std::string recorderUsageText();

// `arguments` are those after "__record-desktop". Writes the file (or standard
// output) and a one-line summary on standard error; returns the exit status.
int runDesktopRecorder(const runtime::ProcessValues& values, platform::Platform& platform, runtime::Output& output,
                       const std::vector<std::string>& arguments);

}  // namespace tavlin::record
