#include "input/clipboard_commands.h"

#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "common/unicode.h"

namespace tavlin::input {

namespace {

std::string tooLarge(const std::string& what, size_t bytes) {
  return what + " is larger than 1 MiB (" + std::to_string(bytes) + " bytes); the clipboard commands move at most " +
         std::to_string(maxClipboardBytes) + " bytes of text";
}

void changeCount(cli::Json& object, int64_t count) {
  object["changeCount"] = count;
  object["change_count"] = count;
}

}  // namespace

void handleGetClipboard(runtime::CommandContext& context, const cli::Flags&) {
  platform::PasteboardContents contents = context.platform.pasteboard().read();
  if (contents.text && contents.text->size() > maxClipboardBytes) {
    throw cli::ToolError(tooLarge("The clipboard's text", contents.text->size()));
  }
  cli::Json result = {{"types", contents.types}};
  changeCount(result, contents.changeCount);
  if (contents.text) result["text"] = *contents.text;
  cli::writeJSON(context.output, result);
}

void handleSetClipboard(runtime::CommandContext& context, const cli::Flags& flags) {
  std::string text = cli::requiredFlag(flags, {"--text"});
  if (text.size() > maxClipboardBytes) throw cli::ToolError(tooLarge("--text", text.size()));
  // The command line repairs its arguments already; a caller in this process may not have.
  if (common::repairingUTF8(text) != text) throw cli::ToolError("--text is not valid UTF-8");
  platform::Pasteboard& board = context.platform.pasteboard();
  if (!board.writeText(text)) throw cli::ToolError("The clipboard refused the text");
  platform::PasteboardContents now = board.read();
  if (now.text != text) {
    throw cli::ToolError("The clipboard does not hold the text after it was written (another application may have "
                         "replaced it); a paste now would not paste it");
  }
  cli::Json result = {{"ok", true}, {"length", common::characterCount(text)}, {"types", now.types}};
  changeCount(result, now.changeCount);
  cli::writeJSONObject(context.output, result);
}

}  // namespace tavlin::input
