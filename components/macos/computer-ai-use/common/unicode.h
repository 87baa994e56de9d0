#pragma once
// Text operations that must count and compare the way the platform's strings do:
// characters are extended grapheme clusters, lower-casing is Unicode's.
#include <cstdint>
#include <string>

namespace tavlin::common {

// Unicode lower case (root locale), composed (NFC) so that canonically equivalent
// spellings compare equal.
std::string lowercased(const std::string& text);
// Without Unicode white space and newlines at both ends.
std::string trimmed(const std::string& text);
int64_t characterCount(const std::string& text);
// Whether `text` contains `part` ignoring case (Unicode case folding, composed forms).
// An empty `part` is contained in any text.
bool containsIgnoringCase(const std::string& text, const std::string& part);
// The first `count` characters.
std::string prefixCharacters(const std::string& text, int64_t count);

}  // namespace tavlin::common
