#pragma once
// The pasteboard port: the general pasteboard (NSPasteboard generalPasteboard), the
// clipboard that copy and paste use.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tavlin::platform {

// NSPasteboardTypeString: plain text, the type the tool reads and writes.
inline constexpr const char* plainTextPasteboardType = "public.utf8-plain-text";

// The pasteboard as read at the moment of the call.
struct PasteboardContents {
  // The plain text, as UTF-8 (a lone surrogate reads as U+FFFD); absent when the
  // pasteboard holds no text.
  std::optional<std::string> text;
  // The types of its first item and the others', in the pasteboard's order.
  std::vector<std::string> types;
  // Grows with every change of owner, whoever makes it.
  int64_t changeCount = 0;
};

class Pasteboard {
 public:
  virtual ~Pasteboard() = default;
  virtual PasteboardContents read() = 0;
  // Clears the pasteboard and puts the text there as plain text (valid UTF-8). False
  // when the pasteboard refused it; nothing tells that it is still there afterwards,
  // which is the caller's to read back.
  virtual bool writeText(const std::string& text) = 0;
};

}  // namespace tavlin::platform
