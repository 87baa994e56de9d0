#pragma once
// File-system helpers shared by the subsystems. None of them throws.
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace tavlin::common {

// Writes `contents` to a temporary file beside `path` and renames it into place, so a
// reader sees the old file or the new one, never a half-written one.
bool writeFileAtomically(const std::string& path, std::string_view contents, mode_t mode = 0600);
std::optional<std::string> readFile(const std::string& path);
// mkdir -p; true when the directory exists afterwards.
bool createDirectories(const std::string& path, mode_t mode = 0755);
bool isDirectory(const std::string& path);
bool exists(const std::string& path);
bool isExecutableFile(const std::string& path);

// Joins with exactly one "/" between the parts.
std::string appendPathComponent(const std::string& base, std::string_view component);
// The parent folder; "/" stays "/".
std::string deletingLastPathComponent(const std::string& path);
std::string lastPathComponent(const std::string& path);

// URL(fileURLWithPath:).standardizedFileURL.path: absolute against `currentDirectory`,
// "//" and trailing "/" collapsed, "." and ".." resolved (through the real path when
// ".." occurs and the path exists), and a "/private" prefix dropped when the shorter
// path exists.
std::string standardizedPath(const std::string& path, const std::string& currentDirectory);
std::string currentDirectory();

}  // namespace tavlin::common
