#pragma once
// The agent command line: a command word followed by "--flag [value]" pairs, and the
// alias-aware typed readers that every command uses. Readers throw ToolError with the
// exact user-facing messages.
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavlin::cli {

// Flag token exactly as typed (with its "--") to its value; a lone flag holds "true".
using Flags = std::map<std::string, std::string, std::less<>>;
// Alias spellings of one flag, tried in list order.
using FlagNames = std::vector<std::string_view>;

struct ParsedCommand {
  std::string command;
  Flags flags;
};

// `arguments` excludes the program path and the IPC option. Throws ToolError with the
// whole usage text for an empty list, and "Unexpected argument X" for a bare word.
ParsedCommand parseArguments(const std::vector<std::string>& arguments);

// First name in list order that is present with a non-empty value.
std::optional<std::string> flagValue(const Flags& flags, const FlagNames& names);
std::string stringFlag(const Flags& flags, const FlagNames& names, std::string_view fallback);
std::string requiredFlag(const Flags& flags, const FlagNames& names);
// Absent when no alias has a value; "-0" reads as 0.
std::optional<uint32_t> uint32Flag(const Flags& flags, const FlagNames& names);
// Signed 64-bit; an absent value gives `fallback`, or the missing-flag error without one.
int64_t intFlag(const Flags& flags, const FlagNames& names, std::optional<int64_t> fallback);
// Required; a plain decimal number (parseDouble), and finite.
double doubleFlag(const Flags& flags, const FlagNames& names);
// A switch, off unless given: on alone or with any value but "false" (in any case).
bool switchFlag(const Flags& flags, const FlagNames& names);

// Number grammar shared by the readers, exposed for the other positional parsers.
std::optional<int64_t> parseInt64(std::string_view text);
std::optional<uint32_t> parseUInt32(std::string_view text);
// Plain decimal only ("1.5", "-2", "+3e2", ".5"): no blanks, hexadecimal, "inf" or "nan".
// Too large a number reads as infinity, for the caller's bounds to refuse.
std::optional<double> parseDouble(std::string_view text);
// Whether strtod would read a number from the start of `text` (after blanks), so that a
// text it does not take as plain decimal is a malformed number rather than a word.
bool startsLikeANumber(std::string_view text);

}  // namespace tavlin::cli
