#pragma once
// The names of press-key's key-combination language: 77 key names, and 9 modifier
// names with their event flags and left-hand key codes. Looked up lower-cased.
#include <cstdint>
#include <map>
#include <string>

namespace tavlin::runtime {

struct KeyTables {
  std::map<std::string, uint16_t> baseKeyCodes;
  std::map<std::string, uint64_t> modifierFlags;
  std::map<std::string, uint16_t> modifierKeyCodes;
};

KeyTables makeKeyTables();

}  // namespace tavlin::runtime
