#pragma once
// An application's menu bar as accessibility shows it, read without opening a menu or
// activating the application: the application element's "AXMenuBar", its
// "AXMenuBarItem"s, each holding one "AXMenu" of "AXMenuItem"s, where an item that
// holds an "AXMenu" of its own is a submenu. Items without a title (separators) are
// left out, here and in matching.
//
// Every read is one round trip per item (a batched read of its attributes) and one per
// menu (its children), and a command reads at most `maxMenuItems` items, so a huge or
// cyclic menu costs bounded time.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/accessibility.h"

namespace tavlin::menus {

// The deepest a listing goes (--depth) and the most titles a path names.
inline constexpr int maxMenuDepth = 8;
// The most items one command reads.
inline constexpr size_t maxMenuItems = 2000;
// The most titles a message lists.
inline constexpr size_t maxTitlesInMessage = 40;

// AXMenuItemCmdModifiers bits; 0 is Command alone.
namespace menumodifier {
inline constexpr int64_t shift = 1 << 0;
inline constexpr int64_t option = 1 << 1;
inline constexpr int64_t control = 1 << 2;
inline constexpr int64_t noCommand = 1 << 3;
}  // namespace menumodifier

// What an item says about its keyboard shortcut.
struct ShortcutAttributes {
  std::optional<std::string> character;  // AXMenuItemCmdChar
  std::optional<int64_t> modifiers;      // AXMenuItemCmdModifiers
  std::optional<int64_t> virtualKey;     // AXMenuItemCmdVirtualKey
  std::optional<int64_t> glyph;          // AXMenuItemCmdGlyph
};

// The shortcut in press-key's words ("cmd+shift+s", "cmd+shift+/" for Command-?,
// "f5", "cmd+left"); absent when the item has none. A key press-key has no name for is
// written as its character, which press-key cannot press with modifiers.
std::optional<std::string> shortcutSpec(const ShortcutAttributes& attributes);

struct MenuItem {
  platform::Element element;
  std::string title;
  std::optional<bool> enabled;  // absent when it could not be read
  bool checked = false;         // any mark (AXMenuItemMarkChar)
  std::optional<std::string> shortcut;
  std::optional<platform::Element> submenu;  // the AXMenu it holds
  std::vector<MenuItem> items;               // the submenu's items, once read
  bool itemsRead = false;
};

// A path of titles, "File > Export…": the separator is " > ", blanks around each title
// are dropped. A title that itself holds " > " cannot be named. Throws ToolError for an
// empty path or title, or more than maxMenuDepth titles.
std::vector<std::string> parseMenuPath(const std::string& path);
std::string joinMenuPath(const std::vector<std::string>& titles);

// Which of `titles` a wanted title names: the exact title, else the one that equals it
// ignoring case (Unicode's, composed forms) and blanks around it, with "..." read as
// "…" either way. More than one exact match, or several lenient ones, is ambiguous.
struct TitleMatch {
  std::optional<size_t> index;
  bool exact = false;             // the index names the one exact title
  std::vector<size_t> ambiguous;  // when it is ambiguous, the candidates
};
TitleMatch matchMenuTitle(const std::vector<std::string>& titles, const std::string& wanted);

// The most characters of one title or path a message shows; the rest is cut at "…".
inline constexpr int64_t maxTitleInMessage = 100;
// A title or path as a message shows it: at most maxTitleInMessage characters.
std::string shownTitle(const std::string& title);

// "A, B, C", at most maxTitlesInMessage of them ("…, and 12 more"), each shown.
std::string listedTitles(const std::vector<std::string>& titles);

// The attributes read of each item, in one batched call (a recording keeps them), and
// the application's attribute that names its menu bar.
const std::vector<std::string>& menuItemAttributes();
inline constexpr const char* menuBarAttribute = "AXMenuBar";

class MenuReader {
 public:
  explicit MenuReader(platform::Accessibility& ax) : ax_(ax) {}
  // The menu bar's items. Throws ToolError naming `appName` when the application has
  // no menu bar accessibility can read.
  std::vector<MenuItem> menuBar(int32_t pid, const std::string& appName);
  // One menu's items (an item's submenu).
  std::vector<MenuItem> menu(const platform::Element& menu);
  // Reads the submenus of `items` down to `depth` levels in all (1: none).
  void readSubmenus(std::vector<MenuItem>& items, int depth);
  // Whether the item bound cut a read short (what was read is kept).
  bool truncated() const { return truncated_; }
  // How many items of the menu read last were left out because their role or title
  // could not be read (any of them could be the one a path names).
  size_t unreadInLastMenu() const { return unread_; }

 private:
  std::vector<MenuItem> itemsOf(const platform::Element& holder);
  platform::Accessibility& ax_;
  size_t read_ = 0;
  bool truncated_ = false;
  size_t unread_ = 0;
};

}  // namespace tavlin::menus
