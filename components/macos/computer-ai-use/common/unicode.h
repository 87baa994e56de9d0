#pragma once
// Text operations that must count and compare the way the platform's strings do:
// characters are extended grapheme clusters, lower-casing is Unicode's.
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace tavlin::common {

// Unicode lower case (root locale), composed (NFC) so that canonically equivalent
// spellings compare equal.
std::string lowercased(const std::string& text);
// The canonical composition (NFC). Comparing composed texts byte by byte is the
// platform's string order: canonically equivalent texts compare equal.
std::string canonicalForm(const std::string& text);
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
// UTF-16 code units as UTF-8; a lone surrogate becomes U+FFFD.
std::string utf8FromUTF16(const std::u16string& units);
// Valid UTF-8: each maximal ill-formed subsequence (Unicode's "maximal subpart")
// becomes U+FFFD, as the platform repairs its argument strings.
std::string repairingUTF8(std::string_view bytes);
// Line breaks (CR, LF, VT, FF, NEL, U+2028, U+2029) written as escapes ("\n", "\r",
// "\u2028", ...), so that a message that echoes a value stays one line.
std::string escapingLineBreaks(std::string_view text);
// A value printed as one field of a line-oriented format ("title=VALUE", tab-separated
// columns): backslash, tab, line breaks and every other control character (C0, DEL,
// C1, U+2028, U+2029) written as escapes ("\\" for a backslash, "\t", "\n", "\r",
// "\u001b", "\u2028"), and so is each ASCII character of `alsoEscaped` ("\u005d" for
// "]"). The value can then end neither its line nor its field, and reads back
// unambiguously. Expects valid UTF-8 (the tool's texts are).
std::string escapingControlCharacters(std::string_view text, std::string_view alsoEscaped = {});
// The same, for a value followed in its line by a field marker (" frame=(", ") to "): each
// occurrence of a marker inside the value has its first character escaped ("\u0020frame=("),
// so a reader finds the real marker at its first occurrence. A value without a marker,
// which is nearly every one, prints as it is.
std::string escapingFieldMarkers(std::string_view text, std::initializer_list<std::string_view> markers);
// The first `count` characters.
std::string prefixCharacters(const std::string& text, int64_t count);

}  // namespace tavlin::common
