#pragma once
// Text operations that must count and compare the way the platform's strings do:
// characters are extended grapheme clusters, lower-casing is Unicode's.
#include <cstdint>
#include <string>
#include <vector>

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
// The text's characters (extended grapheme clusters), each as UTF-16 code units.
std::vector<std::u16string> charactersUTF16(const std::string& text);
// The text's Unicode scalars, each as UTF-16 code units (two for a scalar beyond the BMP).
std::vector<std::u16string> scalarsUTF16(const std::string& text);
// The first `count` characters.
std::string prefixCharacters(const std::string& text, int64_t count);

}  // namespace tavlin::common
