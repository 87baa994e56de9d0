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

}  // namespace

UpdaterFeed parseUpdaterFeed(std::string_view text) {
  if (common::checkJsonText(text, 64)) throw cli::ToolError("the feed is not valid JSON");
  cli::Json feed = cli::Json::parse(text, nullptr, false);
  if (feed.is_discarded()) throw cli::ToolError("the feed is not valid JSON");
  if (!feed.is_object()) throw cli::ToolError("the feed is not a JSON object");
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
  std::vector<std::string_view> a = versionRuns(candidate), b = versionRuns(current);
  for (size_t i = 0; i < a.size() && i < b.size(); ++i) {
    if (int c = compareRuns(a[i], b[i])) return c > 0;
  }
  return a.size() > b.size();
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
    auto value = [](const std::optional<std::string>& s) { return s ? cli::Json(*s).dump() : std::string("null"); };
    output.standardOutput(cli::Json(feed.version).dump() + "\n" + value(feed.url) + "\n" + value(feed.notes) + "\n" +
                          (isNewerVersion(feed.version, arguments[1]) ? "true" : "false") + "\n");
    return 0;
  } catch (const cli::ToolError& error) {
    output.standardError(common::escapingLineBreaks(error.description) + "\n");
    return 1;
  }
}

}  // namespace tavlin::statusitem
