#include "runtime/key_tables.h"

#include "platform/events.h"

namespace tavlin::runtime {

KeyTables makeKeyTables() {
  KeyTables t;
  // US ANSI positions. "delete" is the backspace key and "enter" the main Return key,
  // on purpose; "+" has no entry because it separates the parts of a key combination.
  t.baseKeyCodes = {
      {"a", 0},         {"s", 1},          {"d", 2},       {"f", 3},        {"h", 4},       {"g", 5},
      {"z", 6},         {"x", 7},          {"c", 8},       {"v", 9},        {"b", 11},      {"q", 12},
      {"w", 13},        {"e", 14},         {"r", 15},      {"y", 16},       {"t", 17},      {"o", 31},
      {"u", 32},        {"i", 34},         {"p", 35},      {"l", 37},       {"j", 38},      {"k", 40},
      {"n", 45},        {"m", 46},         {"1", 18},      {"2", 19},       {"3", 20},      {"4", 21},
      {"6", 22},        {"5", 23},         {"9", 25},      {"7", 26},       {"8", 28},      {"0", 29},
      {"=", 24},        {"-", 27},         {"]", 30},      {"[", 33},       {"'", 39},      {";", 41},
      {"\\", 42},       {",", 43},         {"/", 44},      {".", 47},       {"`", 50},      {"return", 36},
      {"enter", 36},    {"tab", 48},       {"space", 49},  {"backspace", 51}, {"delete", 51}, {"escape", 53},
      {"esc", 53},      {"left", 123},     {"right", 124}, {"down", 125},   {"up", 126},    {"home", 115},
      {"end", 119},     {"page_up", 116},  {"pageup", 116}, {"page_down", 121}, {"pagedown", 121}, {"f1", 122},
      {"f2", 120},      {"f3", 99},        {"f4", 118},    {"f5", 96},      {"f6", 97},     {"f7", 98},
      {"f8", 100},      {"f9", 101},       {"f10", 109},   {"f11", 103},    {"f12", 111},
  };
  using namespace platform::eventflags;
  t.modifierFlags = {{"cmd", command},  {"command", command}, {"super", command},   {"meta", command}, {"ctrl", control},
                     {"control", control}, {"alt", alternate}, {"option", alternate}, {"shift", shift}};
  t.modifierKeyCodes = {{"cmd", 55},     {"command", 55}, {"super", 55},  {"meta", 55}, {"ctrl", 59},
                        {"control", 59}, {"alt", 58},     {"option", 58}, {"shift", 56}};
  return t;
}

}  // namespace tavlin::runtime
