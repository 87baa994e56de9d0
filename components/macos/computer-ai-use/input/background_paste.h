#pragma once
// background-paste-clipboard: pastes the clipboard into a text field of an
// application that is not made frontmost, with process-targeted click and keys, and
// hands the focus back to the application that had it.
#include "cli/arguments.h"
#include "runtime/command_context.h"

namespace tavlin::input {

void handleBackgroundPasteClipboard(runtime::CommandContext& context, const cli::Flags& flags);

}  // namespace tavlin::input
