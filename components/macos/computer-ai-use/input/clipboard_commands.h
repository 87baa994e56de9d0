#pragma once
// get-clipboard and set-clipboard: the general pasteboard's plain text, read and
// written, so that background-paste-clipboard pastes exactly what the agent means to.
// Neither touches an application, its windows or the pointer.
#include <cstddef>

#include "cli/arguments.h"
#include "runtime/command_context.h"

namespace tavlin::input {

// The most text either command moves, in UTF-8 bytes.
inline constexpr size_t maxClipboardBytes = size_t{1} << 20;

// Prints the text (absent when the clipboard holds none), the types and the change count.
void handleGetClipboard(runtime::CommandContext& context, const cli::Flags& flags);
// --text: puts it on the clipboard as plain text, reads it back and fails unless the
// clipboard then holds exactly that text.
void handleSetClipboard(runtime::CommandContext& context, const cli::Flags& flags);

}  // namespace tavlin::input
