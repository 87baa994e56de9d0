#pragma once
// type-text and press-key (session-wide keys to the activated application), set-value
// and perform-secondary-action (accessibility only: no activation, no synthetic input).
#include "cli/arguments.h"
#include "runtime/command_context.h"

namespace tavlin::input {

void handleTypeText(runtime::CommandContext& context, const cli::Flags& flags);
void handlePressKey(runtime::CommandContext& context, const cli::Flags& flags);
void handleSetValue(runtime::CommandContext& context, const cli::Flags& flags);
void handleSecondaryAction(runtime::CommandContext& context, const cli::Flags& flags);

}  // namespace tavlin::input
