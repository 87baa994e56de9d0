#include "cli/arguments.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "cli/tool_error.h"
#include "cli/usage.h"

namespace tavlin::cli {
namespace {

bool isFlagToken(std::string_view token) { return token.starts_with("--"); }

std::string joined(const FlagNames& names, std::string_view separator) {
  std::string out;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i) out += separator;
    out += names[i];
  }
  return out;
}

[[noreturn]] void throwMissing(const FlagNames& names) {
  throw ToolError("Missing required flag " + joined(names, " or "));
}

// Optional sign, then one or more ASCII digits, nothing else. Returns the magnitude
// (saturating past 2^64) and whether a minus sign was seen.
struct Decimal {
  bool negative = false;
  bool overflow = false;
  uint64_t magnitude = 0;
};

std::optional<Decimal> parseDecimal(std::string_view text) {
  Decimal d;
  size_t i = 0;
  if (!text.empty() && (text[0] == '+' || text[0] == '-')) {
    d.negative = text[0] == '-';
    i = 1;
  }
  if (i == text.size()) return std::nullopt;
  for (; i < text.size(); ++i) {
    char c = text[i];
    if (c < '0' || c > '9') return std::nullopt;
    uint64_t digit = static_cast<uint64_t>(c - '0');
    if (d.magnitude > (std::numeric_limits<uint64_t>::max() - digit) / 10) {
      d.overflow = true;
    } else {
      d.magnitude = d.magnitude * 10 + digit;
    }
  }
  return d;
}

}  // namespace

std::optional<int64_t> parseInt64(std::string_view text) {
  auto d = parseDecimal(text);
  if (!d || d->overflow) return std::nullopt;
  constexpr uint64_t maxPositive = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  if (!d->negative) {
    if (d->magnitude > maxPositive) return std::nullopt;
    return static_cast<int64_t>(d->magnitude);
  }
  if (d->magnitude > maxPositive + 1) return std::nullopt;
  if (d->magnitude == maxPositive + 1) return std::numeric_limits<int64_t>::min();
  return -static_cast<int64_t>(d->magnitude);
}

std::optional<uint32_t> parseUInt32(std::string_view text) {
  auto d = parseDecimal(text);
  if (!d || d->overflow) return std::nullopt;
  if (d->negative) {
    if (d->magnitude == 0) return 0u;  // "-0" is zero, as the platform's parser has it
    return std::nullopt;
  }
  if (d->magnitude > std::numeric_limits<uint32_t>::max()) return std::nullopt;
  return static_cast<uint32_t>(d->magnitude);
}

std::optional<double> parseDouble(std::string_view text) {
  // A plain decimal number only: optional sign, digits with an optional point, an
  // optional exponent. strtod alone would also take leading blanks, hexadecimal,
  // "inf" and "nan", which no one means as a coordinate or a number of seconds.
  size_t i = 0, digits = 0;
  auto skipDigits = [&] {
    size_t start = i;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') ++i;
    return i - start;
  };
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  digits += skipDigits();
  if (i < text.size() && text[i] == '.') {
    ++i;
    digits += skipDigits();
  }
  if (digits == 0) return std::nullopt;
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
    if (skipDigits() == 0) return std::nullopt;
  }
  if (i != text.size()) return std::nullopt;
  std::string copy(text);
  return std::strtod(copy.c_str(), nullptr);  // the C locale's point; overflow gives infinity
}

bool startsLikeANumber(std::string_view text) {
  std::string copy(text.substr(0, 64));
  char* end = nullptr;
  std::strtod(copy.c_str(), &end);
  return end != copy.c_str();
}

ParsedCommand parseArguments(const std::vector<std::string>& arguments) {
  if (arguments.empty()) throw ToolError::multiline(std::string(usageText));
  ParsedCommand parsed;
  parsed.command = arguments[0];
  for (size_t i = 1; i < arguments.size(); ++i) {
    const std::string& token = arguments[i];
    if (!isFlagToken(token)) throw ToolError("Unexpected argument " + token);
    if (i + 1 < arguments.size() && !isFlagToken(arguments[i + 1])) {
      parsed.flags[token] = arguments[i + 1];
      ++i;
    } else {
      parsed.flags[token] = "true";
    }
  }
  return parsed;
}

std::optional<std::string> flagValue(const Flags& flags, const FlagNames& names) {
  for (std::string_view name : names) {
    auto it = flags.find(name);
    if (it != flags.end() && !it->second.empty()) return it->second;
  }
  return std::nullopt;
}

std::string stringFlag(const Flags& flags, const FlagNames& names, std::string_view fallback) {
  auto value = flagValue(flags, names);
  return value ? *value : std::string(fallback);
}

std::string requiredFlag(const Flags& flags, const FlagNames& names) {
  auto value = flagValue(flags, names);
  if (!value) throwMissing(names);
  return *value;
}

std::optional<uint32_t> uint32Flag(const Flags& flags, const FlagNames& names) {
  auto value = flagValue(flags, names);
  if (!value) return std::nullopt;
  auto parsed = parseUInt32(*value);
  if (!parsed) throw ToolError(joined(names, " / ") + " expects an unsigned integer");
  return parsed;
}

int64_t intFlag(const Flags& flags, const FlagNames& names, std::optional<int64_t> fallback) {
  auto value = flagValue(flags, names);
  if (!value) {
    if (fallback) return *fallback;
    throwMissing(names);
  }
  auto parsed = parseInt64(*value);
  if (!parsed) throw ToolError(joined(names, " / ") + " expects an integer");
  return *parsed;
}

double doubleFlag(const Flags& flags, const FlagNames& names) {
  auto value = flagValue(flags, names);
  if (!value) throwMissing(names);
  auto parsed = parseDouble(*value);
  // "inf" and "nan" parse, but no coordinate, page count or time-out means them, and
  // they would reach the events and the JSON printers.
  if (!parsed || !std::isfinite(*parsed)) throw ToolError(joined(names, " / ") + " expects a number");
  return *parsed;
}

bool switchFlag(const Flags& flags, const FlagNames& names) {
  auto value = flagValue(flags, names);
  if (!value) return false;
  std::string lowered = *value;
  for (char& c : lowered) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return lowered != "false";
}

}  // namespace tavlin::cli
