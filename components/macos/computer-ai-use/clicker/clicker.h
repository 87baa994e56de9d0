#pragma once
// The clicker compatibility dispatcher: an older positional command set kept so that
// scripts written for it keep working ("__clicker", bin/clicker).
//
// Choices where the command set leaves them open, as a script author would expect:
// - Exit statuses: 0 success; 1 a failure (no accessibility permission, an event that
//   could not be created, no element matched, AXPress refused, "check" or "request"
//   finding the permission missing); 2 a command line that does not fit (its usage
//   line on standard error, or the whole usage for an unknown command).
// - "help", "--help" and no command at all print the usage on standard output, exit 0.
// - "check" and "request" print "trusted: true|false", then one line
//   "trusted=… pid=… bundle=… path=…"; without permission "request" adds the hint on
//   standard error.
// - The commands that post events or read the accessibility tree check the permission
//   first: without it they fail with the permission message even when the rest of the
//   command line does not fit.
// - "ax-list" lines read "[N ROLE] title=LABEL frame=(x,y,w,h)", N counting matches
//   from 0; no match prints nothing and exits 0. "ax-list" takes "--title" as
//   "ax-press" does. A pid that no running application has, or an application whose
//   element cannot be read, is a failure ("no running application has pid N").
// - Every text printed inside a line (roles, labels, paths) has its backslashes, tabs,
//   line breaks and other control characters escaped ("\n", "\t", "\u001b"), and a
//   role its "]" too, so that no element can forge a line or end the prefix early.
// - "--title" is compared for equality with the label; "--contains" is a case-
//   insensitive containment test on each of AXTitle, AXDescription and AXHelp.
// - Pointer and key commands are session-wide events at the HID tap with the pauses of
//   the event primitives (a click's 0.03 s between down and up, 0.06 s between the two
//   clicks of "--double").
#include <string>
#include <vector>

#include "platform/platform.h"
#include "runtime/output.h"
#include "runtime/process_values.h"

namespace tavlin::clicker {

std::string clickerUsageText();

// What the element commands read of each element, in one batched call.
const std::vector<std::string>& clickerAttributes();

// `arguments` are those after "__clicker". Writes its lines to `output`; returns the
// exit status.
int runClickerCompatibility(const runtime::ProcessValues& values, platform::Platform& platform,
                            runtime::Output& output, const std::vector<std::string>& arguments);

}  // namespace tavlin::clicker
