#pragma once
// What changed in a window between two snapshots: the elements added, removed and
// changed (value, title, enabled, focused, frame), each named by its recorded path.
//
// Elements are matched as trees, not by path text alone, because a path carries the
// labels of the element and its ancestors: typing into an untitled field or renaming a
// window changes every path below it. Children of two matched elements are paired by
// their path label (the k-th "AXButton[OK]" with the k-th), then what is left between
// the same matched neighbours by role, in order; so an element whose own label changed
// in place is "changed", and a role that changed at a place is a removal and an
// addition. Two windows are the same when their window-server numbers are (when both
// snapshots know one). Nothing here reads the accessibility tree.
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "cli/arguments.h"
#include "cli/json_output.h"
#include "runtime/command_context.h"
#include "snapshot/snapshot_model.h"

namespace tavlin::snapshot {

struct FieldChange {
  std::string field;  // "value", "title", "enabled", "focused" or "frame"
  cli::Json from;     // null when it had none
  cli::Json to;       // null when it has none now
};

struct ElementChange {
  ElementSnapshot element;                 // as it is now; as it was, for a removal
  std::optional<ElementSnapshot> before;   // for a change: as it was
  std::vector<FieldChange> fields;         // for a change
};

struct SnapshotChanges {
  // When the snapshot compared with was taken; absent when there was none to compare with
  // (and then the lists are empty).
  std::optional<std::chrono::system_clock::time_point> since;
  std::vector<ElementChange> added;    // in index order
  std::vector<ElementChange> removed;  // in the previous snapshot's index order
  std::vector<ElementChange> changed;  // in index order
};

SnapshotChanges compareSnapshots(const std::optional<AppStateSnapshot>& before, const AppStateSnapshot& after);

// {"since", "added", "removed", "changed"}: each element with index, role, label (when
// it has one) and path; a change also with "fields" ({"value": {"from", "to"}}) and,
// when its index or path moved, "before" ({"index", "path"}). Without a previous
// snapshot: {"since": null} alone.
cli::Json changesJSON(const SnapshotChanges& changes);
// The "<changes>" block printed after the listing: a summary line, then one line per
// element: "+ INDEX ROLE "LABEL" at PATH", "- ..." (its index as it was), and
// "~ INDEX ROLE "LABEL" at PATH: value "a" -> "b"; focused false -> true".
std::string changesText(const SnapshotChanges& changes);

// The application's last snapshot in the state cache, or nothing when there is none
// that can be read or it is of another process.
std::optional<AppStateSnapshot> previousSnapshot(const runtime::ProcessValues& values,
                                                 const platform::RunningApplication& app);

// How long an observation lets the application settle after an action before it looks.
inline constexpr double observeSettleSeconds = 0.25;

// After an action on the application that `flags` names (--app, and the window flags):
// after the settle pause, walks the window of its last snapshot (or the window the flags
// name) without capturing it or touching the cache, and compares it with that snapshot,
// which so stays what index actions are checked against. Throws ToolError.
SnapshotChanges observeChanges(runtime::CommandContext& context, const cli::Flags& flags);

}  // namespace tavlin::snapshot
