// The recorder's command line and the text of the file it writes.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "cli/arguments.h"
#include "cli/tool_error.h"
#include "common/files.h"
#include "common/unicode.h"
#include "record/desktop_recorder.h"

namespace tavlin::record {

using nlohmann::ordered_json;

namespace {

bool scalar(const ordered_json& j) { return !j.is_structured(); }
// A scalar, or a one-key object of a scalar ({"ref": "e1"}).
bool small(const ordered_json& j) { return scalar(j) || (j.is_object() && j.size() == 1 && scalar(j.begin().value())); }
bool flat(const ordered_json& j) {
  if (scalar(j)) return true;
  if (j.is_array()) return std::all_of(j.begin(), j.end(), scalar) || (j.size() <= 8 && std::all_of(j.begin(), j.end(), small));
  return j.size() == 1 && (small(j) || (j.begin().value().is_array() && std::all_of(j.begin().value().begin(),
                                                                                     j.begin().value().end(), scalar)));
}

std::string scalarText(const ordered_json& j) {
  return j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// Indented like a hand-written desktop file: points, sizes, references and lists of
// names stay on one line.
void layOutJson(const ordered_json& j, std::string& out, size_t indent) {
  if (scalar(j)) {
    out += scalarText(j);
    return;
  }
  if (j.empty()) {
    out += j.is_array() ? "[]" : "{}";
    return;
  }
  if (flat(j)) {
    if (j.is_array()) {
      out += "[";
      for (size_t i = 0; i < j.size(); ++i) {
        out += i ? ", " : "";
        layOutJson(j[i], out, indent);
      }
      out += "]";
    } else {
      out += "{" + scalarText(ordered_json(j.begin().key())) + ": ";
      layOutJson(j.begin().value(), out, indent);
      out += "}";
    }
    return;
  }
  std::string inner(indent + 2, ' ');
  out += j.is_array() ? "[\n" : "{\n";
  bool first = true;
  for (auto it = j.begin(); it != j.end(); ++it) {
    out += first ? "" : ",\n";
    first = false;
    out += inner;
    if (j.is_object()) out += scalarText(ordered_json(it.key())) + ": ";
    layOutJson(it.value(), out, indent + 2);
  }
  out += "\n" + std::string(indent, ' ') + (j.is_array() ? "]" : "}");
}

[[noreturn]] void usageError(const std::string& message) {
  throw cli::ToolError::multiline("tavlin-record: " + common::escapingLineBreaks(message) + "\n" +
                                  recorderUsageText());
}

}  // namespace

std::string desktopText(const nlohmann::ordered_json& desktop) {
  std::string out;
  layOutJson(desktop, out, 0);
  return out + "\n";
}

std::string recorderUsageText() {
  return "Usage: tavlin-record --app APP [--window-id ID] [--title-contains TEXT] [--out FILE] "
         "[--max-elements N] [--redact]\n"
         "Writes a desktop file of APP and the desktop around it (docs/recording.md).\n"
         "  --out FILE          write to FILE (mode 0600) instead of standard output\n"
         "  --max-elements N    stop after N elements (default " +
         std::to_string(defaultMaxElements) +
         ")\n"
         "  --redact            replace texts (titles, values, identifiers, custom action names) with placeholders\n";
}

int runDesktopRecorder(const runtime::ProcessValues& values, platform::Platform& platform, runtime::Output& output,
                       const std::vector<std::string>& arguments) {
  try {
    RecordOptions options;
    std::optional<std::string> out;
    bool haveApp = false;
    for (size_t i = 0; i < arguments.size(); ++i) {
      const std::string& a = arguments[i];
      if (a == "help" || a == "-h" || a == "--help") {
        output.standardOutput(recorderUsageText());
        return 0;
      }
      if (a == "--redact") {
        options.redact = true;
        continue;
      }
      if (a != "--app" && a != "--window-id" && a != "--title-contains" && a != "--out" && a != "--max-elements") {
        usageError("unknown option " + a);
      }
      if (i + 1 >= arguments.size()) usageError(a + " needs a value");
      const std::string& v = arguments[++i];
      if (a == "--app") {
        options.app = v;
        haveApp = true;
      } else if (a == "--window-id") {
        auto id = cli::parseUInt32(v);
        if (!id) usageError("--window-id must be a window number, not " + v);
        options.windowID = *id;
      } else if (a == "--title-contains") {
        options.titleContains = v;
      } else if (a == "--out") {
        if (v.empty()) usageError("--out needs a file name");
        out = v;
      } else {
        auto n = cli::parseInt64(v);
        if (!n || *n < 1 || *n > 10000000) usageError("--max-elements must be from 1 to 10000000, not " + v);
        options.maxElements = static_cast<size_t>(*n);
      }
    }
    if (!haveApp) usageError("--app is required");
    // Checked before recording, so a long recording is not lost at the end.
    if (out) {
      if (auto problem = common::outputTargetProblem(*out)) {
        throw cli::ToolError("tavlin-record: cannot write " + *out + " (" + *problem + ")");
      }
    }
    Recording recording = recordDesktop(values, platform, options);
    std::string text = desktopText(recording.desktop);
    std::string summary =
        "Recorded " + std::to_string(recording.elements) + " elements of " +
        common::escapingFieldMarkers(options.app, {" to ", " (truncated"});
    if (recording.truncated) summary += " (truncated at --max-elements " + std::to_string(options.maxElements) + ")";
    if (out) {
      // What the platform keeps of this run is written first and let go: a write-back at exit
      // would otherwise replace a recording made over the very file it keeps that in.
      platform.checkpoint();
      if (!common::writeFileAtomically(*out, text, 0600)) {
        throw cli::ToolError("tavlin-record: cannot write " + *out + " (" + std::strerror(errno) + ")");
      }
      output.standardError(summary + " to " + common::escapingControlCharacters(*out) + "\n");
    } else {
      output.standardOutput(text);
      output.standardError(summary + "\n");
    }
    return 0;
  } catch (const cli::ToolError& error) {
    std::string message = error.keepsLineBreaks ? error.description : common::escapingLineBreaks(error.description);
    if (!message.ends_with("\n")) message += "\n";
    output.standardError(message);
  } catch (const std::bad_alloc&) {
    output.standardError("Out of memory\n");
  } catch (const std::exception& error) {
    output.standardError(common::escapingLineBreaks(error.what()) + "\n");
  }
  return 1;
}

}  // namespace tavlin::record
