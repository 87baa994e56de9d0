#pragma once
// NSPasteboard's general pasteboard behind a pure C++ header.
#include "platform/pasteboard.h"

namespace tavlin::macos {

class MacPasteboard final : public platform::Pasteboard {
 public:
  platform::PasteboardContents read() override;
  bool writeText(const std::string& text) override;
};

}  // namespace tavlin::macos
