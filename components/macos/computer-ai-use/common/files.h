#pragma once
// File-system helpers shared by the subsystems. None of them throws.
#include <optional>
#include <string>
#include <string_view>
#include <vector>
#include <sys/types.h>

namespace tavlin::common {

// Writes `contents` to a temporary file beside `path` ("<path>.tmp-XXXXXX") and renames
// it into place, so a reader sees the old file or the new one, never a half-written
// one. The new file gets `mode`; with `keepExistingMode`, the mode of the file it
// replaces, when there is one.
bool writeFileAtomically(const std::string& path, std::string_view contents, mode_t mode = 0600,
                         bool keepExistingMode = false);
// Removes temporary files that an interrupted writeFileAtomically left beside `path`.
// Only safe while no other writer of `path` runs (the caller holds its lock).
void removeStaleTemporaryFiles(const std::string& path);

std::optional<std::string> readFile(const std::string& path);

// A regular file read whole, refused when it is anything else (a FIFO, a device, a
// folder) or larger than `maxBytes`. On failure, `problem` says why in a few words
// ("not a regular file", "larger than 256 MiB", the system's error text).
std::optional<std::string> readRegularFile(const std::string& path, size_t maxBytes, std::string& problem);
// "256 MiB", "1.5 KiB", "12 bytes": sizes in messages.
std::string byteCountText(size_t bytes);

// Appends `text` whole or not at all: a write that fails midway is cut back, so the
// file never ends in a partial line. False (errno set) on failure.
bool appendWhole(const std::string& path, std::string_view text, mode_t mode = 0600);

// mkdir -p; true when the directory exists afterwards. New folders get `mode`.
bool createDirectories(const std::string& path, mode_t mode = 0755);
// createDirectories, then each folder from `privateFrom` down to `path` that the user
// owns is tightened to `mode`; folders owned by others are left as they are.
bool createPrivateDirectories(const std::string& path, const std::string& privateFrom, mode_t mode = 0700);
bool isDirectory(const std::string& path);
bool exists(const std::string& path);
bool isExecutableFile(const std::string& path);

// Joins with exactly one "/" between the parts.
std::string appendPathComponent(const std::string& base, std::string_view component);
// The parent folder; "/" stays "/".
std::string deletingLastPathComponent(const std::string& path);
std::string lastPathComponent(const std::string& path);

// The platform's pathComponents: "/" first for an absolute path, then each name.
std::vector<std::string> pathComponents(const std::string& path);

// URL(fileURLWithPath:).standardizedFileURL.path: absolute against `currentDirectory`,
// "//" and trailing "/" collapsed, "." and ".." resolved (through the real path when
// ".." occurs and the path exists), and a "/private" prefix dropped when the shorter
// path exists.
std::string standardizedPath(const std::string& path, const std::string& currentDirectory);
std::string currentDirectory();

// The percent-decoded path of a "file:" URL (empty host or "localhost"), as URL(string:)
// reads it, with any trailing "/" kept; absent for any other URL.
std::optional<std::string> fileURLPath(const std::string& url);

}  // namespace tavlin::common
