#pragma once
// wait-for: waits until an element or a window of an application is there (or, with
// --gone, no longer there), looking at the live tree: first at once, then every 0.25 s
// through the clock (virtual time on a simulated desktop), for at most --timeout
// seconds. Each look costs at most one walk of the window. It never activates the
// application and posts no event.
#include "cli/arguments.h"
#include "runtime/command_context.h"

namespace tavlin::snapshot {

inline constexpr double waitPollSeconds = 0.25;
inline constexpr double defaultWaitTimeout = 10;
inline constexpr double maxWaitTimeout = 600;

// wait-for --app APP (--text T | --role R | --identifier I (combined as wished) |
// --window-title T) [--gone] [--timeout S] [--title-contains T] [--window-id N].
// Prints {"ok", "app", "pid", "condition", "waited", and "element" or "window" with the
// match}, or with --gone {"ok", "app", "pid", "condition", "waited", "gone"}. Throws
// ToolError "Timed out after S s waiting for CONDITION in APP" at the deadline.
void handleWaitFor(runtime::CommandContext& context, const cli::Flags& flags);

}  // namespace tavlin::snapshot
