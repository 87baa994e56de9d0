#include "common/unicode.h"

#include <unicode/brkiter.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <cstdio>
#include <memory>

namespace tavlin::common {
namespace {

icu::UnicodeString unicode(const std::string& s) { return icu::UnicodeString::fromUTF8(s); }

std::string utf8(const icu::UnicodeString& s) {
  std::string out;
  s.toUTF8String(out);
  return out;
}

// Composed (NFC), so that canonically equivalent spellings compare equal.
std::string composed(const icu::UnicodeString& u) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status);
  if (U_SUCCESS(status)) {
    icu::UnicodeString normal = nfc->normalize(u, status);
    if (U_SUCCESS(status)) return utf8(normal);
  }
  return utf8(u);
}

bool isSpaceOrNewline(UChar32 c) { return u_isUWhiteSpace(c) || c == 0x85; }

// Calls `visit(end)` for each character boundary after the first; stops when it
// returns false.
template <typename Visit>
void forEachCharacterEnd(const icu::UnicodeString& text, Visit visit) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::BreakIterator> it(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  if (U_FAILURE(status)) {
    for (int32_t i = 0; i < text.length();) {
      i = text.moveIndex32(i, 1);
      if (!visit(i)) return;
    }
    return;
  }
  it->setText(text);
  for (int32_t p = it->next(); p != icu::BreakIterator::DONE; p = it->next()) {
    if (!visit(p)) return;
  }
}

}  // namespace

std::string lowercased(const std::string& text) {
  icu::UnicodeString u = unicode(text);
  u.toLower(icu::Locale::getRoot());
  return composed(u);
}

std::string canonicalForm(const std::string& text) { return composed(unicode(text)); }

bool containsIgnoringCase(const std::string& text, const std::string& part) {
  auto folded = [](const std::string& s) {
    icu::UnicodeString u = unicode(s);
    u.foldCase();
    return composed(u);
  };
  return folded(text).find(folded(part)) != std::string::npos;
}

std::string trimmed(const std::string& text) {
  icu::UnicodeString u = unicode(text);
  int32_t start = 0, end = u.length();
  while (start < end && isSpaceOrNewline(u.char32At(start))) start = u.moveIndex32(start, 1);
  while (end > start) {
    int32_t previous = u.moveIndex32(end, -1);
    if (!isSpaceOrNewline(u.char32At(previous))) break;
    end = previous;
  }
  return utf8(u.tempSubStringBetween(start, end));
}

int64_t characterCount(const std::string& text) {
  int64_t count = 0;
  forEachCharacterEnd(unicode(text), [&](int32_t) {
    ++count;
    return true;
  });
  return count;
}

std::vector<std::u16string> charactersUTF16(const std::string& text) {
  icu::UnicodeString u = unicode(text);
  std::vector<std::u16string> out;
  int32_t start = 0;
  forEachCharacterEnd(u, [&](int32_t end) {
    out.emplace_back(reinterpret_cast<const char16_t*>(u.getBuffer()) + start, static_cast<size_t>(end - start));
    start = end;
    return true;
  });
  return out;
}

std::vector<std::u16string> scalarsUTF16(const std::string& text) {
  icu::UnicodeString u = unicode(text);
  std::vector<std::u16string> out;
  for (int32_t i = 0; i < u.length();) {
    int32_t next = u.moveIndex32(i, 1);
    out.emplace_back(reinterpret_cast<const char16_t*>(u.getBuffer()) + i, static_cast<size_t>(next - i));
    i = next;
  }
  return out;
}

std::string prefixCharacters(const std::string& text, int64_t count) {
  if (count <= 0) return {};
  icu::UnicodeString u = unicode(text);
  int32_t cut = u.length();
  int64_t seen = 0;
  forEachCharacterEnd(u, [&](int32_t end) {
    if (++seen < count) return true;
    cut = end;
    return false;
  });
  return utf8(u.tempSubStringBetween(0, cut));
}

std::string repairingUTF8(std::string_view bytes) {
  static const char replacement[] = "\xEF\xBF\xBD";
  std::string out;
  out.reserve(bytes.size());
  size_t i = 0;
  const size_t n = bytes.size();
  auto at = [&](size_t k) { return static_cast<unsigned char>(bytes[k]); };
  while (i < n) {
    unsigned char lead = at(i);
    if (lead < 0x80) {
      out += static_cast<char>(lead);
      ++i;
      continue;
    }
    // The allowed range of the second byte depends on the lead (Unicode Table 3-7);
    // later bytes are 80..BF.
    size_t length = 0;
    unsigned char low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      if (lead == 0xE0) low = 0xA0;
      if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      if (lead == 0xF0) low = 0x90;
      if (lead == 0xF4) high = 0x8F;
    }
    if (length == 0) {
      out += replacement;
      ++i;
      continue;
    }
    size_t k = 1;
    for (; k < length && i + k < n; ++k) {
      unsigned char c = at(i + k);
      unsigned char lo = k == 1 ? low : 0x80, hi = k == 1 ? high : 0xBF;
      if (c < lo || c > hi) break;
    }
    if (k == length) {
      out.append(bytes.substr(i, length));
    } else {
      out += replacement;  // the maximal subpart: the lead and the valid bytes after it
    }
    i += k;
  }
  return out;
}

std::string escapingLineBreaks(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    switch (c) {
      case '\n': out += "\\n"; continue;
      case '\r': out += "\\r"; continue;
      case '\v': out += "\\u000b"; continue;
      case '\f': out += "\\u000c"; continue;
      default: break;
    }
    std::string_view rest = text.substr(i);
    if (rest.starts_with("\xC2\x85")) {
      out += "\\u0085";
      ++i;
    } else if (rest.starts_with("\xE2\x80\xA8") || rest.starts_with("\xE2\x80\xA9")) {
      out += rest[2] == '\xA8' ? "\\u2028" : "\\u2029";
      i += 2;
    } else {
      out += c;
    }
  }
  return out;
}

std::string escapingControlCharacters(std::string_view text, std::string_view alsoEscaped) {
  auto unicodeEscape = [](uint32_t scalar) {
    char buffer[8];
    std::snprintf(buffer, sizeof buffer, "\\u%04x", static_cast<unsigned>(scalar));
    return std::string(buffer);
  };
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    switch (c) {
      case '\\': out += "\\\\"; continue;
      case '\t': out += "\\t"; continue;
      case '\n': out += "\\n"; continue;
      case '\r': out += "\\r"; continue;
      default: break;
    }
    if (c < 0x20 || c == 0x7F || (c < 0x80 && alsoEscaped.find(static_cast<char>(c)) != std::string_view::npos)) {
      out += unicodeEscape(c);
    } else if (c == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
               static_cast<unsigned char>(text[i + 1]) <= 0x9F) {
      out += unicodeEscape(static_cast<unsigned char>(text[++i]));  // C1: U+0080 to U+009F
    } else if (text.substr(i).starts_with("\xE2\x80\xA8") || text.substr(i).starts_with("\xE2\x80\xA9")) {
      out += unicodeEscape(text[i + 2] == '\xA8' ? 0x2028 : 0x2029);
      i += 2;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

std::string utf8FromUTF16(const std::u16string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    uint32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;  // a lone surrogate cannot be written as UTF-8
    }
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

std::string escapingFieldMarkers(std::string_view text, std::initializer_list<std::string_view> markers) {
  std::string out = escapingControlCharacters(text);
  for (std::string_view marker : markers) {
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned char>(marker.front()));
    for (size_t at = 0; (at = out.find(marker, at)) != std::string::npos; at += marker.size() + 5) {
      out.replace(at, 1, escape);
    }
  }
  return out;
}

}  // namespace tavlin::common
