#include "menus/menu_bar.h"

#include <cmath>
#include <map>

#include "cli/tool_error.h"
#include "common/unicode.h"
#include "snapshot/ax_access.h"

namespace tavlin::menus {

namespace {

using platform::AXAttributeValue;

struct Key {
  std::string name;
  bool shifted = false;  // the key is reached with Shift (a "?" is Shift and "/")
};

// A character as press-key names its key on a US keyboard.
Key keyForCharacter(const std::string& character) {
  static const std::string plain = "=-]['\\;,/.`";
  // Shifted punctuation and digits, each above the key it shares.
  static const std::string shifted = "~_+{}|:\"<>?)!@#$%^&*(", unshifted = "`-=[]\\;',./0123456789";
  // The private-use characters AppKit gives function keys (NSUpArrowFunctionKey, ...).
  static const std::map<char32_t, std::string> functionKeys = {
      {0xF700, "up"},   {0xF701, "down"},     {0xF702, "left"},    {0xF703, "right"},
      {0xF729, "home"}, {0xF72B, "end"},      {0xF72C, "page_up"}, {0xF72D, "page_down"},
      {0xF728, "\u2326"}};  // forward delete, which press-key has no name for
  std::u16string units;
  for (const auto& scalar : common::scalarsUTF16(character)) units += scalar;
  if (units.size() == 1) {
    char16_t c = units[0];
    if (c >= 'A' && c <= 'Z') return {std::string(1, static_cast<char>(c - 'A' + 'a'))};
    if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) return {std::string(1, static_cast<char>(c))};
    if (c < 0x80 && plain.find(static_cast<char>(c)) != std::string::npos) return {std::string(1, static_cast<char>(c))};
    if (auto at = shifted.find(static_cast<char>(c)); c < 0x80 && at != std::string::npos) {
      return {std::string(1, unshifted[at]), true};
    }
    switch (c) {
      case '\r': return {"return"};
      case '\t': return {"tab"};
      case ' ': return {"space"};
      case 0x08:
      case 0x7F: return {"backspace"};
      case 0x1B: return {"escape"};
      case 0x03: return {"\u2324"};  // keypad Enter, which press-key's "enter" is not
      default: break;
    }
    if (c >= 0xF704 && c <= 0xF726) return {"f" + std::to_string(c - 0xF704 + 1)};
    if (auto it = functionKeys.find(c); it != functionKeys.end()) return {it->second};
  }
  return {character};
}

// kMenu...Glyph values of the keys menus draw as glyphs.
std::optional<Key> keyForGlyph(int64_t glyph) {
  static const std::map<int64_t, Key> glyphs = {
      {0x02, {"tab"}},       {0x03, {"tab", true}},  {0x04, {"\u2324"}},     {0x09, {"space"}},
      {0x0A, {"\u2326"}},    {0x0B, {"return"}},     {0x0C, {"return"}},     {0x0D, {"return"}},
      {0x17, {"backspace"}}, {0x1B, {"escape"}},     {0x1C, {"\u2327"}},     {0x62, {"page_up"}},
      {0x64, {"left"}},      {0x65, {"right"}},      {0x66, {"home"}},       {0x68, {"up"}},
      {0x69, {"end"}},       {0x6A, {"down"}},       {0x6B, {"page_down"}}, {0x87, {"f13"}},
      {0x88, {"f14"}},       {0x89, {"f15"}}};
  if (glyph >= 0x6F && glyph <= 0x7A) return Key{"f" + std::to_string(glyph - 0x6F + 1)};
  if (auto it = glyphs.find(glyph); it != glyphs.end()) return it->second;
  return std::nullopt;
}

// Only the keys without a character: a virtual key of 0 is also what an item without a
// shortcut may report, and it is the A key.
std::optional<Key> keyForVirtualKey(int64_t code) {
  static const std::map<int64_t, std::string> names = {
      {36, "return"}, {48, "tab"},   {49, "space"},      {51, "backspace"}, {53, "escape"}, {115, "home"},
      {116, "page_up"}, {119, "end"}, {121, "page_down"}, {123, "left"},     {124, "right"}, {125, "down"},
      {126, "up"},    {122, "f1"},   {120, "f2"},        {99, "f3"},        {118, "f4"},    {96, "f5"},
      {97, "f6"},     {98, "f7"},    {100, "f8"},        {101, "f9"},       {109, "f10"},   {103, "f11"},
      {111, "f12"}};
  if (auto it = names.find(code); it != names.end()) return Key{it->second};
  return std::nullopt;
}

std::optional<int64_t> integerOf(const platform::AXCopyResult& result) {
  if (result.error != platform::AXError::success || !result.value) return std::nullopt;
  const platform::AXNumber* n = result.value->number();
  if (!n) return std::nullopt;
  if (n->kind == platform::AXNumber::Kind::integer) return n->integer;
  double v = n->doubleValue();
  if (!std::isfinite(v) || v != std::trunc(v) || std::fabs(v) > 1e15) return std::nullopt;
  return static_cast<int64_t>(v);
}

std::optional<AXAttributeValue> valueOf(const platform::AXCopyResult& result) {
  if (result.error != platform::AXError::success) return std::nullopt;
  return result.value;
}

// A title for comparing leniently: case folded, composed, "..." as the ellipsis, and
// without the blanks around it, which a path cannot carry (it drops them).
std::string lenientTitle(const std::string& title) {
  std::string text = common::trimmed(title);
  for (size_t at = 0; (at = text.find("...", at)) != std::string::npos;) text.replace(at, 3, "\u2026");
  return common::lowercased(text);
}

constexpr const char* pathSeparator = " > ";

}  // namespace

std::optional<std::string> shortcutSpec(const ShortcutAttributes& a) {
  std::optional<Key> key;
  if (a.character && !a.character->empty()) {
    key = keyForCharacter(*a.character);
  } else if (a.glyph && *a.glyph != 0) {
    key = keyForGlyph(*a.glyph);
  }
  if (!key && a.virtualKey && !(a.character && !a.character->empty())) key = keyForVirtualKey(*a.virtualKey);
  if (!key) return std::nullopt;
  int64_t modifiers = a.modifiers.value_or(0);
  std::string spec;
  if (!(modifiers & menumodifier::noCommand)) spec += "cmd+";
  if (modifiers & menumodifier::control) spec += "ctrl+";
  if (modifiers & menumodifier::option) spec += "alt+";
  if ((modifiers & menumodifier::shift) || key->shifted) spec += "shift+";
  return spec + key->name;
}

std::vector<std::string> parseMenuPath(const std::string& path) {
  std::vector<std::string> titles;
  for (size_t start = 0;;) {
    size_t end = path.find(pathSeparator, start);
    titles.push_back(common::trimmed(path.substr(start, end == std::string::npos ? std::string::npos : end - start)));
    if (end == std::string::npos) break;
    start = end + std::string(pathSeparator).size();
  }
  if (titles.size() == 1 && titles[0].empty()) throw cli::ToolError("The menu path is empty");
  for (const std::string& title : titles) {
    if (title.empty()) throw cli::ToolError("The menu path \"" + path + "\" has an empty title");
  }
  if (titles.size() > static_cast<size_t>(maxMenuDepth)) {
    throw cli::ToolError("The menu path \"" + path + "\" names more than " + std::to_string(maxMenuDepth) +
                         " titles");
  }
  return titles;
}

std::string joinMenuPath(const std::vector<std::string>& titles) {
  std::string joined;
  for (const std::string& title : titles) joined += (joined.empty() ? "" : pathSeparator) + title;
  return joined;
}

TitleMatch matchMenuTitle(const std::vector<std::string>& titles, const std::string& wanted) {
  auto matching = [&](auto same) {
    std::vector<size_t> found;
    for (size_t i = 0; i < titles.size(); ++i) {
      if (same(titles[i])) found.push_back(i);
    }
    return found;
  };
  auto decide = [](std::vector<size_t> found, bool exact) -> std::optional<TitleMatch> {
    if (found.size() == 1) return TitleMatch{found[0], exact, {}};
    if (found.size() > 1) return TitleMatch{std::nullopt, false, std::move(found)};
    return std::nullopt;
  };
  const std::string exact = common::canonicalForm(wanted);
  if (auto m = decide(matching([&](const std::string& t) { return common::canonicalForm(t) == exact; }), true)) return *m;
  const std::string lenient = lenientTitle(wanted);
  if (auto m = decide(matching([&](const std::string& t) { return lenientTitle(t) == lenient; }), false)) return *m;
  return {};
}

std::string shownTitle(const std::string& title) {
  // A menu may hold a title of any length; a message stays a readable line.
  std::string shown = common::prefixCharacters(title, maxTitleInMessage);
  return shown.size() < title.size() ? shown + "\u2026" : shown;
}

std::string listedTitles(const std::vector<std::string>& titles) {
  std::string out;
  for (size_t i = 0; i < titles.size() && i < maxTitlesInMessage; ++i) out += (i ? ", " : "") + shownTitle(titles[i]);
  if (titles.size() > maxTitlesInMessage) {
    out += ", \u2026 and " + std::to_string(titles.size() - maxTitlesInMessage) + " more";
  }
  return out;
}

std::vector<MenuItem> MenuReader::menuBar(int32_t pid, const std::string& appName) {
  platform::AXCopyResult bar = ax_.copyAttributeValue(ax_.applicationElement(pid), menuBarAttribute);
  std::vector<platform::Element> found = snapshot::elementsOf(valueOf(bar));
  if (found.empty()) {
    std::string code = bar.error == platform::AXError::success
                           ? ""
                           : " (AXError " + std::to_string(static_cast<int32_t>(bar.error)) + ")";
    throw cli::ToolError(appName + " shows no menu bar to accessibility" + code);
  }
  return itemsOf(found.front());
}

std::vector<MenuItem> MenuReader::menu(const platform::Element& menu) { return itemsOf(menu); }

void MenuReader::readSubmenus(std::vector<MenuItem>& items, int depth) {
  if (depth <= 1) return;
  for (MenuItem& item : items) {
    if (truncated_) return;
    if (!item.submenu) continue;
    item.items = itemsOf(*item.submenu);
    item.itemsRead = true;
    readSubmenus(item.items, depth - 1);
  }
}

const std::vector<std::string>& menuItemAttributes() {
  // The order is the slots' in itemsOf.
  static const std::vector<std::string> attributes = {
      "AXRole", "AXTitle", "AXEnabled", "AXMenuItemMarkChar", "AXMenuItemCmdChar", "AXMenuItemCmdModifiers",
      "AXMenuItemCmdVirtualKey", "AXMenuItemCmdGlyph", "AXChildren"};
  return attributes;
}

std::vector<MenuItem> MenuReader::itemsOf(const platform::Element& holder) {
  const std::vector<std::string>& attributes = menuItemAttributes();
  std::vector<MenuItem> items;
  unread_ = 0;
  // Absent is an answer (a separator has no title); a failing read is not.
  auto failed = [](const platform::AXCopyResult& slot) {
    return slot.error != platform::AXError::success && slot.error != platform::AXError::noValue &&
           slot.error != platform::AXError::attributeUnsupported;
  };
  for (const platform::Element& child : snapshot::elementsOf(valueOf(ax_.copyAttributeValue(holder, "AXChildren")))) {
    if (read_ >= maxMenuItems) {
      truncated_ = true;
      break;
    }
    ++read_;
    std::vector<platform::AXCopyResult> slots;
    if (ax_.copyMultipleAttributeValues(child, attributes, slots) != platform::AXError::success ||
        slots.size() != attributes.size() || failed(slots[0]) || failed(slots[1])) {
      ++unread_;
      continue;
    }
    auto text = [&](size_t slot) { return snapshot::stringOf(valueOf(slots[slot])); };
    std::optional<std::string> role = text(0);
    if (role != "AXMenuItem" && role != "AXMenuBarItem") continue;
    MenuItem item;
    item.element = child;
    item.title = text(1).value_or("");
    if (item.title.empty()) continue;  // a separator, or nothing a path can name
    item.enabled = snapshot::boolOf(valueOf(slots[2]));
    std::optional<std::string> mark = text(3);
    item.checked = mark && !mark->empty();
    item.shortcut = shortcutSpec({text(4), integerOf(slots[5]), integerOf(slots[6]), integerOf(slots[7])});
    std::vector<platform::Element> children = snapshot::elementsOf(valueOf(slots[8]));
    // An item that draws a view of its own has children too; only an AXMenu is a submenu.
    if (!children.empty() && snapshot::axRole(ax_, children.front()) == "AXMenu") item.submenu = children.front();
    items.push_back(std::move(item));
  }
  return items;
}

}  // namespace tavlin::menus
