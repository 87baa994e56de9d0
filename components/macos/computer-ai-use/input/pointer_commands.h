#pragma once
// click, scroll and drag: session-wide pointer input on the activated application, at
// an element of a fresh walk or at a pixel of the last cached screenshot.
#include "entry/command_context.h"

namespace tavlin::input {

void handleClick(entry::CommandContext& context, const cli::Flags& flags);
void handleScroll(entry::CommandContext& context, const cli::Flags& flags);
void handleDrag(entry::CommandContext& context, const cli::Flags& flags);

}  // namespace tavlin::input
