#pragma once
// type-text and press-key (session-wide keys to the activated application), set-value
// and perform-secondary-action (accessibility only: no activation, no synthetic input).
#include "entry/command_context.h"

namespace tavlin::input {

void handleTypeText(entry::CommandContext& context, const cli::Flags& flags);
void handlePressKey(entry::CommandContext& context, const cli::Flags& flags);
void handleSetValue(entry::CommandContext& context, const cli::Flags& flags);
void handleSecondaryAction(entry::CommandContext& context, const cli::Flags& flags);

}  // namespace tavlin::input
