#pragma once
// The tool's two JSON printers. Their bytes must match what Foundation prints on macOS:
//  - writeJSON: JSONEncoder with pretty printing, sorted keys, slashes unescaped,
//    ISO 8601 dates (records encode dates with `iso8601` before printing);
//  - writeJSONObject: JSONSerialization with pretty printing and sorted keys (slashes
//    escaped, doubles with 17 significant digits).
// Both write one document and a newline to the command's standard output.
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "runtime/output.h"

namespace tavlin::cli {

using Json = nlohmann::json;

enum class JsonFlavor {
  encoder,        // JSONEncoder
  serialization,  // JSONSerialization
};

// The document as Foundation would print it, without a trailing newline. Throws
// std::runtime_error for a value Foundation refuses (NaN or infinity).
std::string formatJSON(const Json& value, JsonFlavor flavor);

void writeJSON(runtime::Output& output, const Json& encodedRecord);
void writeJSONObject(runtime::Output& output, const Json& object);

// A Double as Swift's `description` writes it: the shortest digits that read back,
// always with a fraction or an exponent ("10.0", "2.5", "1e-07").
std::string doubleDescription(double value);

// Foundation's sorted-keys order: NSString comparison with numeric, case-insensitive
// and forced ordering in the root locale (not byte order: "a_b" sorts before "aB").
bool foundationKeyLess(std::string_view a, std::string_view b);

// "yyyy-MM-ddTHH:mm:ssZ" in UTC, sub-second time dropped.
std::string iso8601(std::chrono::system_clock::time_point time);
// The inverse, for decoding; absent for any other form.
std::optional<std::chrono::system_clock::time_point> parseISO8601(std::string_view text);

}  // namespace tavlin::cli
