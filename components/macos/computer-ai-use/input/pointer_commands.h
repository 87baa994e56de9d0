#pragma once
// click, scroll and drag: session-wide pointer input on the activated application, at
// an element of a fresh walk or at a pixel of the last cached screenshot.
#include "cli/arguments.h"
#include "runtime/command_context.h"

namespace tavlin::input {

void handleClick(runtime::CommandContext& context, const cli::Flags& flags);
void handleScroll(runtime::CommandContext& context, const cli::Flags& flags);
void handleDrag(runtime::CommandContext& context, const cli::Flags& flags);

}  // namespace tavlin::input
