#include "statusitem/updater_feed.h"

#include <algorithm>

#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "common/files.h"
#include "common/json_text.h"
#include "common/unicode.h"

namespace tavlin::statusitem {

namespace {

constexpr size_t maxVersionBytes = 256;

bool hasControlOrSpace(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) {
    auto u = static_cast<unsigned char>(c);
    return u <= 0x20 || u == 0x7F;
  });
}

std::optional<std::string> optionalString(const cli::Json& feed, const char* key) {
  auto it = feed.find(key);
  if (it == feed.end() || it->is_null()) return std::nullopt;
  if (!it->is_string()) throw cli::ToolError(std::string("the feed's \"") + key + "\" is not a string");
  return it->get<std::string>();
}

// Digit runs and other runs, alternating, from the left.
std::vector<std::string_view> versionRuns(std::string_view v) {
  std::vector<std::string_view> runs;
  size_t start = 0;
  auto digit = [](char c) { return c >= '0' && c <= '9'; };
  for (size_t i = 1; i <= v.size(); ++i) {
    if (i == v.size() || digit(v[i]) != digit(v[start])) {
      runs.push_back(v.substr(start, i - start));
      start = i;
    }
  }
  return runs;
}

int compareRuns(std::string_view a, std::string_view b) {
  bool numeric = !a.empty() && a[0] >= '0' && a[0] <= '9' && !b.empty() && b[0] >= '0' && b[0] <= '9';
  if (numeric) {
    // By value, whatever the length: leading zeros dropped, then the longer is larger.
    a.remove_prefix(std::min(a.find_first_not_of('0'), a.size()));
    b.remove_prefix(std::min(b.find_first_not_of('0'), b.size()));
    if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
  }
  int c = a.compare(b);
  return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

int compareVersionRuns(std::string_view a, std::string_view b) {
  std::vector<std::string_view> x = versionRuns(a), y = versionRuns(b);
  for (size_t i = 0; i < x.size() && i < y.size(); ++i) {
    if (int c = compareRuns(x[i], y[i])) return c;
  }
  return x.size() == y.size() ? 0 : (x.size() < y.size() ? -1 : 1);
}

// Pre-release identifiers, dot-separated: numeric ones by value and below any other,
// others byte by byte; when one list is a prefix of the other, the shorter is lower.
int comparePreRelease(std::string_view a, std::string_view b) {
  auto numeric = [](std::string_view s) {
    return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
  };
  for (;;) {
    std::string_view x = a.substr(0, a.find('.')), y = b.substr(0, b.find('.'));
    int c = numeric(x) && numeric(y) ? compareRuns(x, y)
            : numeric(x)             ? -1
            : numeric(y)             ? 1
                                     : compareRuns(x, y);
    if (c) return c;
    bool moreA = x.size() < a.size(), moreB = y.size() < b.size();
    if (!moreA || !moreB) return moreA == moreB ? 0 : (moreA ? 1 : -1);
    a.remove_prefix(x.size() + 1);
    b.remove_prefix(y.size() + 1);
  }
}

// Line breaks that some readers honour inside a line (NEL, U+2028, U+2029) as JSON
// escapes; they occur only inside the dump's strings, where the escape means the same.
std::string oneLineJson(const cli::Json& value) {
  std::string text = value.dump(), out;
  for (size_t i = 0; i < text.size(); ++i) {
    std::string_view rest = std::string_view(text).substr(i);
    if (rest.starts_with("\xC2\x85")) {
      out += "\\u0085";
      i += 1;
    } else if (rest.starts_with("\xE2\x80\xA8") || rest.starts_with("\xE2\x80\xA9")) {
      out += rest[2] == '\xA8' ? "\\u2028" : "\\u2029";
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

}  // namespace

UpdaterFeed parseUpdaterFeed(std::string_view text) {
  if (common::checkJsonText(text, 64)) throw cli::ToolError("the feed is not valid JSON");
  // A key given twice at the top would be read as its last value by this parser and its
  // first by others: such a feed is refused rather than read either way.
  std::vector<std::string> keys;
  std::optional<std::string> twice;
  cli::Json::parser_callback_t noteKeys = [&](int depth, cli::Json::parse_event_t event, cli::Json& parsed) {
    if (event == cli::Json::parse_event_t::key && depth == 1 && parsed.is_string()) {
      const std::string& key = parsed.get_ref<const std::string&>();
      if (std::find(keys.begin(), keys.end(), key) != keys.end()) {
        if (!twice) twice = key;
      } else {
        keys.push_back(key);
      }
    }
    return true;
  };
  cli::Json feed = cli::Json::parse(text, noteKeys, false);
  if (feed.is_discarded()) throw cli::ToolError("the feed is not valid JSON");
  if (!feed.is_object()) throw cli::ToolError("the feed is not a JSON object");
  if (twice) throw cli::ToolError("the feed names \"" + common::escapingControlCharacters(*twice) + "\" twice");
  UpdaterFeed out;
  std::optional<std::string> version = optionalString(feed, "version");
  if (!version || version->empty()) throw cli::ToolError("the feed names no version");
  if (version->size() > maxVersionBytes || hasControlOrSpace(*version)) {
    throw cli::ToolError("the feed's version is not a version: " + common::escapingControlCharacters(*version));
  }
  out.version = *version;
  out.url = optionalString(feed, "url");
  if (out.url && !isAcceptedDownloadURL(*out.url)) {
    throw cli::ToolError("the feed's url is neither an https address nor a local file: " +
                         common::escapingControlCharacters(*out.url));
  }
  out.notes = optionalString(feed, "notes");
  return out;
}

bool isAcceptedDownloadURL(const std::string& url) {
  if (hasControlOrSpace(url)) return false;
  if (url.starts_with("/")) return true;
  std::string lower = common::lowercased(url);
  if (lower.starts_with("https://")) {
    std::string_view host(url);
    host.remove_prefix(8);
    return !host.empty() && host[0] != '/';
  }
  if (lower.starts_with("file:")) {
    std::optional<std::string> path = common::fileURLPath(url);
    return path && path->starts_with("/");
  }
  return false;
}

bool isNewerVersion(const std::string& candidate, const std::string& current) {
  // Semantic versioning's precedence: build metadata ("+...") is ignored, and a
  // pre-release ("-...") comes before the release it leads to.
  auto split = [](std::string_view v) {
    v = v.substr(0, v.find('+'));
    size_t dash = v.find('-');
    return std::pair(v.substr(0, dash), dash == std::string_view::npos ? std::optional<std::string_view>()
                                                                       : std::optional(v.substr(dash + 1)));
  };
  auto [coreA, preA] = split(candidate);
  auto [coreB, preB] = split(current);
  if (int c = compareVersionRuns(coreA, coreB)) return c > 0;
  if (!preA || !preB) return !preA && preB;
  return comparePreRelease(*preA, *preB) > 0;
}

int runUpdaterFeedReader(runtime::Output& output, const std::vector<std::string>& arguments) {
  if (arguments.size() != 2) {
    output.standardError("usage: __updater-feed FILE CURRENT_VERSION\n");
    return 1;
  }
  const std::string& path = arguments[0];
  try {
    std::string problem;
    std::optional<std::string> text = common::readRegularFile(path, maxUpdaterFeedBytes, problem);
    if (!text) throw cli::ToolError("could not read the feed " + path + " (" + problem + ")");
    UpdaterFeed feed = parseUpdaterFeed(*text);
    auto value = [](const std::optional<std::string>& s) { return s ? oneLineJson(cli::Json(*s)) : std::string("null"); };
    output.standardOutput(oneLineJson(cli::Json(feed.version)) + "\n" + value(feed.url) + "\n" + value(feed.notes) + "\n" +
                          (isNewerVersion(feed.version, arguments[1]) ? "true" : "false") + "\n");
    return 0;
  } catch (const cli::ToolError& error) {
    output.standardError(common::escapingLineBreaks(error.description) + "\n");
    return 1;
  }
}

}  // namespace tavlin::statusitem
