#include "cli/json_output.h"

#include <unicode/ucol.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <vector>

namespace tavlin::cli {
namespace {

// Root-locale collator with numeric ordering; tertiary strength gives the
// "case-insensitive, then forced" order that NSString's compare produces.
class KeyCollator {
 public:
  KeyCollator() {
    UErrorCode status = U_ZERO_ERROR;
    collator_ = ucol_open("", &status);
    if (U_FAILURE(status)) {
      collator_ = nullptr;
      return;
    }
    ucol_setAttribute(collator_, UCOL_NUMERIC_COLLATION, UCOL_ON, &status);
    ucol_setAttribute(collator_, UCOL_STRENGTH, UCOL_TERTIARY, &status);
  }
  ~KeyCollator() {
    if (collator_) ucol_close(collator_);
  }
  KeyCollator(const KeyCollator&) = delete;
  KeyCollator& operator=(const KeyCollator&) = delete;

  bool less(std::string_view a, std::string_view b) const {
    if (collator_) {
      UErrorCode status = U_ZERO_ERROR;
      UCollationResult r = ucol_strcollUTF8(collator_, a.data(), static_cast<int32_t>(a.size()), b.data(),
                                            static_cast<int32_t>(b.size()), &status);
      if (U_SUCCESS(status) && r != UCOL_EQUAL) return r == UCOL_LESS;
    }
    return a < b;  // a total order even for collation-equal keys
  }

 private:
  UCollator* collator_ = nullptr;
};

const KeyCollator& keyCollator() {
  static const KeyCollator collator;
  return collator;
}

void appendEscaped(std::string& out, std::string_view text, bool escapeSlashes) {
  out += '"';
  for (unsigned char c : text) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '/': out += escapeSlashes ? "\\/" : "/"; break;
      case '\b': out += "\\b"; break;
      case '\f': out += "\\f"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  out += '"';
}

// Swift's Double.description (shortest round-trip digits), minus a trailing ".0".
std::string swiftDescription(double value) {
  if (value == 0) return std::signbit(value) ? "-0" : "0";
  char digits[64];
  auto [end, ec] = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::scientific);
  (void)ec;
  std::string sci(digits, end);  // e.g. "-1.2345e+02"
  bool negative = sci[0] == '-';
  if (negative) sci.erase(0, 1);
  size_t e = sci.find('e');
  std::string mantissa = sci.substr(0, e);
  int exponent = std::stoi(sci.substr(e + 1));
  std::string significant;
  for (char c : mantissa)
    if (c != '.') significant += c;

  double magnitude = std::fabs(value);
  std::string out = negative ? "-" : "";
  if (magnitude >= 1e-4 && magnitude <= 9007199254740992.0) {
    int point = exponent + 1;  // digits before the decimal point
    if (point <= 0) {
      out += "0." + std::string(static_cast<size_t>(-point), '0') + significant;
    } else if (static_cast<size_t>(point) >= significant.size()) {
      out += significant + std::string(static_cast<size_t>(point) - significant.size(), '0');
    } else {
      out += significant.substr(0, static_cast<size_t>(point)) + "." + significant.substr(static_cast<size_t>(point));
    }
    return out;
  }
  out += significant.substr(0, 1);
  if (significant.size() > 1) out += "." + significant.substr(1);
  char exp[16];
  std::snprintf(exp, sizeof exp, "e%c%02d", exponent < 0 ? '-' : '+', std::abs(exponent));
  return out + exp;
}

std::string formatDouble(double value, JsonFlavor flavor) {
  if (!std::isfinite(value)) {
    throw std::runtime_error("The data couldn\xE2\x80\x99t be written because it isn\xE2\x80\x99t in the correct format.");
  }
  if (flavor == JsonFlavor::encoder) return swiftDescription(value);
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.17g", value);
  return buf;
}

class Printer {
 public:
  explicit Printer(JsonFlavor flavor) : flavor_(flavor) {}

  void print(const Json& value, int depth) {
    switch (value.type()) {
      case Json::value_t::null: out += "null"; break;
      case Json::value_t::boolean: out += value.get<bool>() ? "true" : "false"; break;
      case Json::value_t::number_integer: out += std::to_string(value.get<int64_t>()); break;
      case Json::value_t::number_unsigned: out += std::to_string(value.get<uint64_t>()); break;
      case Json::value_t::number_float: out += formatDouble(value.get<double>(), flavor_); break;
      case Json::value_t::string:
        appendEscaped(out, value.get_ref<const std::string&>(), flavor_ == JsonFlavor::serialization);
        break;
      case Json::value_t::array: {
        out += "[\n";
        bool first = true;
        for (const auto& element : value) {
          if (!first) out += ",\n";
          first = false;
          indent(depth + 1);
          print(element, depth + 1);
        }
        out += "\n";
        indent(depth);
        out += "]";
        break;
      }
      case Json::value_t::object: {
        std::vector<const std::string*> keys;
        keys.reserve(value.size());
        for (auto it = value.begin(); it != value.end(); ++it) keys.push_back(&it.key());
        const KeyCollator& collator = keyCollator();
        std::stable_sort(keys.begin(), keys.end(),
                         [&](const std::string* a, const std::string* b) { return collator.less(*a, *b); });
        out += "{\n";
        bool first = true;
        for (const std::string* key : keys) {
          if (!first) out += ",\n";
          first = false;
          indent(depth + 1);
          appendEscaped(out, *key, flavor_ == JsonFlavor::serialization);
          out += " : ";
          print(value.at(*key), depth + 1);
        }
        out += "\n";
        indent(depth);
        out += "}";
        break;
      }
      case Json::value_t::binary:
      case Json::value_t::discarded:
        throw std::runtime_error("The data couldn\xE2\x80\x99t be written because it isn\xE2\x80\x99t in the correct format.");
    }
  }

  std::string out;

 private:
  void indent(int depth) { out.append(static_cast<size_t>(depth) * 2, ' '); }
  JsonFlavor flavor_;
};

}  // namespace

std::string formatJSON(const Json& value, JsonFlavor flavor) {
  Printer printer(flavor);
  printer.print(value, 0);
  return std::move(printer.out);
}

bool foundationKeyLess(std::string_view a, std::string_view b) { return keyCollator().less(a, b); }

void writeJSON(runtime::Output& output, const Json& encodedRecord) {
  output.standardOutput(formatJSON(encodedRecord, JsonFlavor::encoder) + "\n");
}

void writeJSONObject(runtime::Output& output, const Json& object) {
  output.standardOutput(formatJSON(object, JsonFlavor::serialization) + "\n");
}

std::string iso8601(std::chrono::system_clock::time_point time) {
  auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  std::time_t t = std::chrono::system_clock::to_time_t(seconds);
  std::tm utc{};
  gmtime_r(&t, &utc);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return buf;
}

std::optional<std::chrono::system_clock::time_point> parseISO8601(std::string_view text) {
  // Exactly yyyy-MM-ddTHH:mm:ssZ, as the encoder writes it.
  if (text.size() != 20) return std::nullopt;
  static constexpr std::string_view shape = "dddd-dd-ddTdd:dd:ddZ";
  for (size_t i = 0; i < shape.size(); ++i) {
    if (shape[i] == 'd' ? (text[i] < '0' || text[i] > '9') : text[i] != shape[i]) return std::nullopt;
  }
  auto number = [&](size_t at, size_t length) {
    int v = 0;
    for (size_t i = at; i < at + length; ++i) v = v * 10 + (text[i] - '0');
    return v;
  };
  using namespace std::chrono;
  year_month_day date{year(number(0, 4)), month(static_cast<unsigned>(number(5, 2))),
                      day(static_cast<unsigned>(number(8, 2)))};
  int hh = number(11, 2), mm = number(14, 2), ss = number(17, 2);
  if (!date.ok() || hh > 23 || mm > 59 || ss > 60) return std::nullopt;
  // The clock counts nanoseconds in 64 bits: 1678 to 2262. A date outside is no date
  // this tool can hold (and converting it would overflow).
  if (date.year() < year(1678) || date.year() > year(2261)) return std::nullopt;
  return sys_days(date) + hours(hh) + minutes(mm) + seconds(ss);
}

std::string doubleDescription(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  std::string text = formatJSON(Json(value), JsonFlavor::encoder);
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  return text;
}

}  // namespace tavlin::cli
