#pragma once
// Finding elements by what they are rather than by number: the one matcher that
// find-elements and wait-for share, and find-elements itself.
//
// find-elements walks the window as get-app-state does (the same selection, the same
// numbering) but neither captures it nor touches the state cache: the snapshot that
// index actions are checked against stays the one the agent took last.
#include <optional>
#include <string>

#include "cli/arguments.h"
#include "cli/json_output.h"
#include "runtime/command_context.h"
#include "snapshot/snapshot_model.h"

namespace tavlin::snapshot {

// Criteria that all have to hold; none at all matches every element.
struct ElementQuery {
  std::optional<std::string> role = std::nullopt;        // AXRole exactly (roles are case-sensitive)
  std::optional<std::string> text = std::nullopt;        // part of the title, value, description or identifier, ignoring case
  std::optional<std::string> identifier = std::nullopt;  // AXIdentifier exactly
  bool interactive = false;               // has an action or a settable value
};

bool matches(const ElementQuery& query, const ElementSnapshot& element);
// For messages: "an element with role AXButton and text "Save"", "an interactive element".
std::string describeQuery(const ElementQuery& query);

// --role, --text, --identifier and --interactive. Throws ToolError for a criterion
// given with an empty value ("--text must not be empty").
ElementQuery readElementQuery(const cli::Flags& flags);
// A text flag that must not be empty when it is given; absent when it is not given.
std::optional<std::string> nonEmptyFlag(const cli::Flags& flags, const cli::FlagNames& names);
// The window flags of get-app-state: --title-contains (and its aliases), --window-id.
std::optional<std::string> windowTitleFilter(const cli::Flags& flags);
std::optional<uint32_t> windowNumber(const cli::Flags& flags);
// Whether a walk described the window the flags name: the window-server number given,
// else a title containing the filter (ignoring case); true when neither is given. The
// walk falls back to another window when the named one is missing, and what that
// window holds says nothing about the named one.
bool walkedTheNamedWindow(const AppStateSnapshot& walked, const std::optional<std::string>& titleContains,
                          std::optional<uint32_t> windowID);

// The permission gate, then the application the query names; throws ToolError.
platform::RunningApplication queriedApp(runtime::CommandContext& context, const std::string& appQuery);

// The title, else the description, when not empty: the label the listing shows.
std::optional<std::string> elementLabel(const ElementSnapshot& element);
// The element as find-elements and wait-for print it: index, role, and where it has
// them label, value, identifier, frame and center (the frame's mid-point, for a frame
// of positive size: where a click goes).
cli::Json matchJSON(const ElementSnapshot& element);
// The window a walk described: title, window-server number (twice, as the action
// commands print multi-word keys) and frame, each where known.
cli::Json windowJSON(const WindowSnapshot& window);

// find-elements --app APP [--role R] [--text T] [--identifier I] [--interactive]
// [--title-contains T] [--window-id N]: prints {"app", "pid", "count", "elements",
// "window"} with the matching elements in index order.
void handleFindElements(runtime::CommandContext& context, const cli::Flags& flags);

}  // namespace tavlin::snapshot
