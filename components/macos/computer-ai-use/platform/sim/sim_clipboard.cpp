// The simulated general pasteboard, and the text receivers that paste from it.
#include <cstdio>

#include "common/unicode.h"
#include "platform/pasteboard.h"
#include "platform/sim/sim_desktop.h"

namespace tavlin::sim {

namespace {

// The last UTF-8 character removed (Delete in a text area).
void dropLastCharacter(std::string& text) {
  if (text.empty()) return;
  size_t at = text.size() - 1;
  while (at > 0 && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) --at;
  text.resize(at);
}

std::string elementLabel(const SimElement& e) {
  if (!e.id.empty()) return e.id;
  char buf[32];
  std::snprintf(buf, sizeof buf, "0x%llx", static_cast<unsigned long long>(e.hash));
  return buf;
}

}  // namespace

bool editTextWithKey(std::string& text, bool& selected, const platform::Event& event,
                     const std::optional<std::string>& clipboardText) {
  using namespace platform::eventflags;
  if (event.type != platform::EventType::keyDown) return false;
  auto replaceSelection = [&](const std::string& typed) {
    text = selected ? typed : text + typed;
    selected = false;
  };
  uint64_t held = event.flags.value_or(0) & (command | control | alternate);
  if (held == command && event.keyCode == 0) {
    selected = true;
  } else if (held == command && event.keyCode == 9 && clipboardText) {
    replaceSelection(*clipboardText);
  } else if (held != 0) {
    return false;  // other shortcuts do nothing here
  } else if (event.keyCode == 51) {
    if (selected) text.clear();
    else dropLastCharacter(text);
    selected = false;
  } else if (event.keyCode == 36 || event.unicodeString) {
    replaceSelection(event.keyCode == 36 ? "\n" : common::utf8FromUTF16(*event.unicodeString));
  } else {
    return false;
  }
  return true;
}

bool SimDesktop::writeClipboardText(const std::string& text) {
  SimClipboard& board = clipboard_ ? *clipboard_ : clipboard_.emplace();
  if (board.writeFails) {
    log("system", "clipboard-refused", {{"length", std::to_string(common::characterCount(text))}});
    return false;
  }
  auto put = [&](const std::string& kind, const std::string& value) {
    board.text = value;
    board.types = {platform::plainTextPasteboardType};
    ++board.changeCount;
    log("system", kind, {{"text", value}, {"changeCount", std::to_string(board.changeCount)}});
  };
  put("clipboard-set", text);
  if (board.replacedAfterWrite) put("clipboard-replaced", *board.replacedAfterWrite);
  nlohmann::ordered_json& node = document_["clipboard"];
  node["text"] = *board.text;
  node["types"] = board.types;
  node["changeCount"] = board.changeCount;
  dirty_ = true;
  return true;
}

void SimDesktop::clipboardInput(int32_t pid, const platform::Event& event) {
  if (!clipboard_) return;
  for (const PanelSlot& slot : panels_) {
    if (slot.config.pid == pid) return;
  }
  const SimApp* a = app(pid);
  if (!a || !a->uiElement) return;
  const auto& appAttributes = elements_[*a->uiElement].attributes;
  auto focus = appAttributes.find("AXFocusedUIElement");
  if (focus == appAttributes.end()) return;
  const auto* target = std::get_if<ElementIndex>(&focus->second.storage);
  if (!target) return;
  const SimElement& e = elements_.at(target->index);
  bool settable = false;
  for (const auto& s : e.settable) settable |= s == "AXValue";
  auto value = e.attributes.find("AXValue");
  const std::string* current = value == e.attributes.end() ? nullptr : std::get_if<std::string>(&value->second.storage);
  // Only a text value is edited; a checkbox's number is no text receiver.
  if (!settable || (value != e.attributes.end() && !current)) return;
  const std::string before = current ? *current : "";
  std::string text = before;
  bool selected = selectedAll_.count(target->index) > 0;
  if (!editTextWithKey(text, selected, event, clipboard_->text)) return;
  if (selected) selectedAll_.insert(target->index);
  else selectedAll_.erase(target->index);
  if (text == before) return;
  log("pid:" + std::to_string(pid), "text-edited", {{"element", elementLabel(e)}, {"value", text}});
  setElementAttribute(target->index, "AXValue", text);
}

}  // namespace tavlin::sim
