#pragma once
// File-system helpers shared by the subsystems. None of them throws.
#include <optional>
#include <string>
#include <string_view>
#include <vector>
#include <sys/types.h>

namespace tavlin::common {

// Writes `contents` to a temporary file beside `path` ("<name>.tmp-XXXXXX", created
// exclusively under an unpredictable name, the name cut short where it would pass the
// file-name limit) and renames it into place, so a reader sees the old file or the new
// one, never a half-written one, and a link planted at either name is never followed.
// The new file gets `mode`; with `keepExistingMode`, the mode of the file it replaces,
// when there is one.
bool writeFileAtomically(const std::string& path, std::string_view contents, mode_t mode = 0600,
                         bool keepExistingMode = false);
// `mode` less the process's file-creation mask: what a plainly created file gets.
mode_t modeAfterUmask(mode_t mode = 0666);

// Why `path` must not be replaced by a file the user asked for (--out and the like):
// "is a directory", "is a symbolic link", "is not a regular file"; absent when it is a
// regular file or nothing is there. The mode of an existing regular file goes to
// `existingMode`.
std::optional<std::string> outputTargetProblem(const std::string& path, std::optional<mode_t>* existingMode = nullptr);

// For writers that can only be handed a path (an image library, a screenshot tool): a
// private folder (mode 0700, unpredictable name) made beside `path`, holding a file of
// the same name, so nothing another user planted can be followed or overwritten; the
// file is moved into place by commit(). Whatever is left is removed on destruction.
class StagedFile {
 public:
  explicit StagedFile(std::string path);
  ~StagedFile();
  StagedFile(const StagedFile&) = delete;
  StagedFile& operator=(const StagedFile&) = delete;

  // False (errno set) when the folder could not be made.
  bool ready() const { return !folder_.empty(); }
  // Where the writer writes.
  const std::string& stagedPath() const { return staged_; }
  // Gives the written file `mode` and renames it over the final path. False (errno set)
  // on failure, with the final path untouched.
  bool commit(mode_t mode);

 private:
  std::string path_, folder_, staged_;
};
// Removes temporary files that an interrupted writeFileAtomically left beside `path`.
// Only safe while no other writer of `path` runs (the caller holds its lock).
void removeStaleTemporaryFiles(const std::string& path);

std::optional<std::string> readFile(const std::string& path);

// A regular file read whole, refused when it is anything else (a FIFO, a device, a
// folder) or larger than `maxBytes`. On failure, `problem` says why in a few words
// ("not a regular file", "larger than 256 MiB", the system's error text).
// With LinkPolicy::refuse, a symbolic link at `path` itself is refused too.
enum class LinkPolicy { follow, refuse };
std::optional<std::string> readRegularFile(const std::string& path, size_t maxBytes, std::string& problem,
                                           LinkPolicy links = LinkPolicy::follow);
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
// A directory (not a link to one) owned by this user that no one else can write to.
bool isPrivateDirectory(const std::string& path);
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
