#pragma once
// The release feed that bin/tavlin-updater checks: a JSON object whose top-level
// "version", "url" and "notes" keys describe the newest release. The updater is a shell
// script; it reads the feed through the executable's hidden "__updater-feed" mode, so
// that the feed is parsed by a JSON parser under a size bound, not by text patterns.
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/output.h"

namespace tavlin::statusitem {

// A feed larger than this is refused unread (a release feed is a few hundred bytes).
inline constexpr size_t maxUpdaterFeedBytes = 1 << 20;

struct UpdaterFeed {
  std::string version;
  std::optional<std::string> url;
  std::optional<std::string> notes;
};

// Only the top-level keys count; others are ignored, and a key given twice is refused
// (parsers disagree on which one counts). "version" is required: a
// non-empty string of at most 256 bytes without spaces or control characters. "url" and "notes"
// are optional strings; the url must be acceptable (isAcceptedDownloadURL). Throws
// ToolError with one line saying what is wrong.
UpdaterFeed parseUpdaterFeed(std::string_view text);

// An https address ("https://" and a host, no spaces or control characters) or a local
// file (an absolute path, or a "file:" URL of one). Everything else (http, ftp, other
// schemes, relative paths) is refused: an update is fetched only over https or from
// this machine.
bool isAcceptedDownloadURL(const std::string& url);

// Whether `candidate` is a later version than `current`, by semantic versioning's
// precedence: build metadata (from "+") is ignored; the part before the first "-" is
// compared as runs of digits (by numeric value) and runs of other characters (byte by
// byte), from the left, a version that is a prefix of the other being the earlier one
// and an empty one earlier than any; with equal parts, a pre-release (after the "-")
// is earlier than the release ("1.2.0-beta" < "1.2.0"), and two pre-releases compare
// by their dot-separated identifiers.
bool isNewerVersion(const std::string& candidate, const std::string& current);

// "__updater-feed FILE CURRENT_VERSION": reads FILE (a regular file of at most
// maxUpdaterFeedBytes; a FIFO or a device is refused without waiting) and prints four
// lines: the version and the url and notes as JSON values (a string, or null when
// absent; NEL, U+2028 and U+2029 escaped, so each stays one line for every reader), then "true" or "false" for whether the version is newer than
// CURRENT_VERSION. On failure prints one line on standard error and returns 1.
int runUpdaterFeedReader(runtime::Output& output, const std::vector<std::string>& arguments);

}  // namespace tavlin::statusitem
