#include "common/files.h"

#include <cctype>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dirent.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <climits>
#include <cstdlib>
#include <vector>

namespace tavlin::common {

namespace {

// The longest file name the folder takes; 255 bytes where it cannot be asked.
size_t nameLimit(const std::string& folder) {
  long limit = ::pathconf(folder.c_str(), _PC_NAME_MAX);
  return limit > 0 ? static_cast<size_t>(limit) : 255;
}

// `name` cut to at most `bytes` bytes, at a character boundary: some file systems
// refuse names that are not valid UTF-8.
std::string cutName(const std::string& name, size_t bytes) {
  if (name.size() <= bytes) return name;
  size_t end = bytes;
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;
  return name.substr(0, end);
}

// "<name>.tmp-", shortened so that six more characters still make a valid name.
std::string temporaryPrefix(const std::string& path) {
  std::string folder = deletingLastPathComponent(path);
  const std::string suffix = ".tmp-";
  size_t limit = nameLimit(folder);
  size_t room = limit > suffix.size() + 6 ? limit - suffix.size() - 6 : 1;
  return appendPathComponent(folder, cutName(lastPathComponent(path), room) + suffix);
}

}  // namespace

mode_t modeAfterUmask(mode_t mode) {
  mode_t mask = ::umask(0);
  ::umask(mask);
  return mode & ~mask;
}

std::optional<std::string> outputTargetProblem(const std::string& path, std::optional<mode_t>* existingMode) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) {
    if (errno == ENOENT) return std::nullopt;
    return std::string(std::strerror(errno));
  }
  if (S_ISDIR(st.st_mode)) return std::string("is a directory");
  if (S_ISLNK(st.st_mode)) return std::string("is a symbolic link");
  if (!S_ISREG(st.st_mode)) return std::string("is not a regular file");
  if (existingMode) *existingMode = st.st_mode & 07777;
  return std::nullopt;
}

StagedFile::StagedFile(std::string path) : path_(std::move(path)) {
  std::string pattern = appendPathComponent(deletingLastPathComponent(path_), ".tavlin-XXXXXX");
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  if (::mkdtemp(name.data())) {
    folder_ = name.data();
    staged_ = appendPathComponent(folder_, lastPathComponent(path_));
  }
}

StagedFile::~StagedFile() {
  if (folder_.empty()) return;
  int saved = errno;
  ::unlink(staged_.c_str());
  ::rmdir(folder_.c_str());
  errno = saved;
}

bool StagedFile::commit(mode_t mode) {
  if (folder_.empty()) return false;
  struct stat st;
  // Only what the writer left: a regular file, not a link it might have made.
  if (::lstat(staged_.c_str(), &st) != 0) return false;
  if (!S_ISREG(st.st_mode)) {
    errno = EINVAL;
    return false;
  }
  if (::chmod(staged_.c_str(), mode) != 0) return false;
  return ::rename(staged_.c_str(), path_.c_str()) == 0;
}

bool writeFileAtomically(const std::string& path, std::string_view contents, mode_t mode, bool keepExistingMode) {
  if (keepExistingMode) {
    struct stat existing;
    if (::stat(path.c_str(), &existing) == 0 && S_ISREG(existing.st_mode)) mode = existing.st_mode & 07777;
  }
  std::string temporary = temporaryPrefix(path) + "XXXXXX";
  std::vector<char> name(temporary.begin(), temporary.end());
  name.push_back('\0');
  int fd = ::mkstemp(name.data());
  if (fd < 0) return false;
  bool ok = ::fchmod(fd, mode) == 0;
  const char* data = contents.data();
  size_t left = contents.size();
  while (ok && left > 0) {
    ssize_t n = ::write(fd, data, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      ok = false;
      break;
    }
    data += n;
    left -= static_cast<size_t>(n);
  }
  ok = ::close(fd) == 0 && ok;
  if (ok) ok = ::rename(name.data(), path.c_str()) == 0;
  if (!ok) ::unlink(name.data());
  return ok;
}

void removeStaleTemporaryFiles(const std::string& path) {
  std::string folder = deletingLastPathComponent(path);
  std::string prefix = lastPathComponent(temporaryPrefix(path));
  DIR* dir = ::opendir(folder.c_str());
  if (!dir) return;
  std::vector<std::string> stale;
  while (const dirent* entry = ::readdir(dir)) {
    std::string_view name(entry->d_name);
    // mkstemp's six characters after the prefix, nothing else.
    if (name.size() == prefix.size() + 6 && name.starts_with(prefix)) stale.emplace_back(name);
  }
  ::closedir(dir);
  for (const std::string& name : stale) {
    std::string file = appendPathComponent(folder, name);
    struct stat st;
    if (::lstat(file.c_str(), &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == ::geteuid()) ::unlink(file.c_str());
  }
}

std::string byteCountText(size_t bytes) {
  const char* units[] = {"KiB", "MiB", "GiB"};
  if (bytes < 1024) return std::to_string(bytes) + " bytes";
  double value = static_cast<double>(bytes);
  int unit = -1;
  while (value >= 1024 && unit < 2) {
    value /= 1024;
    ++unit;
  }
  char buf[32];
  std::snprintf(buf, sizeof buf, value == std::floor(value) ? "%.0f %s" : "%.1f %s", value, units[unit]);
  return buf;
}

std::optional<std::string> readRegularFile(const std::string& path, size_t maxBytes, std::string& problem,
                                           LinkPolicy links) {
  // Non-blocking: opening a FIFO for reading must not wait for a writer.
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | (links == LinkPolicy::refuse ? O_NOFOLLOW : 0));
  if (fd < 0) {
    problem = std::strerror(errno);
    return std::nullopt;
  }
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    problem = "not a regular file";
    return std::nullopt;
  }
  auto tooLarge = [&] {
    ::close(fd);
    problem = "larger than " + byteCountText(maxBytes);
    return std::nullopt;
  };
  if (static_cast<uint64_t>(st.st_size) > maxBytes) return tooLarge();
  std::string out;
  out.reserve(static_cast<size_t>(st.st_size));
  char buf[65536];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0) {
      if (errno == EINTR) continue;
      problem = std::strerror(errno);
      ::close(fd);
      return std::nullopt;
    }
    if (n == 0) break;
    out.append(buf, static_cast<size_t>(n));
    if (out.size() > maxBytes) return tooLarge();  // it grew while being read
  }
  ::close(fd);
  return out;
}

bool appendWhole(const std::string& path, std::string_view text, mode_t mode) {
  int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, mode);
  if (fd < 0) return false;
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    errno = EINVAL;
    return false;
  }
  off_t before = st.st_size;
  size_t done = 0;
  bool ok = true;
  while (done < text.size()) {
    ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = EIO;
      ok = false;
      break;
    }
    done += static_cast<size_t>(n);
  }
  int saved = errno;
  if (!ok && ::ftruncate(fd, before) != 0) {
    // Nothing more can be done; the caller reports the failure.
  }
  if (::close(fd) != 0 && ok) {
    ok = false;
    saved = errno;
  }
  errno = saved;
  return ok;
}

std::optional<std::string> readFile(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string out;
  char buf[65536];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0) {
      if (errno == EINTR) continue;
      ::close(fd);
      return std::nullopt;
    }
    if (n == 0) break;
    out.append(buf, static_cast<size_t>(n));
  }
  ::close(fd);
  return out;
}

bool isDirectory(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isPrivateDirectory(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::geteuid() &&
         (st.st_mode & 022) == 0;
}

bool exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

bool isExecutableFile(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

bool createDirectories(const std::string& path, mode_t mode) {
  if (path.empty()) return false;
  if (isDirectory(path)) return true;
  std::string parent = deletingLastPathComponent(path);
  if (parent != path && !isDirectory(parent)) createDirectories(parent, mode);
  if (::mkdir(path.c_str(), mode) == 0) return true;
  return isDirectory(path);
}

bool createPrivateDirectories(const std::string& path, const std::string& privateFrom, mode_t mode) {
  if (!createDirectories(path, mode)) return false;
  for (std::string folder = path;; folder = deletingLastPathComponent(folder)) {
    struct stat st;
    if (::stat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::geteuid() &&
        (st.st_mode & 07777) != mode) {
      ::chmod(folder.c_str(), mode);
    }
    if (folder == privateFrom || folder == "/" || folder.size() <= privateFrom.size()) break;
  }
  return true;
}

std::string appendPathComponent(const std::string& base, std::string_view component) {
  std::string out = base;
  while (!component.empty() && component.front() == '/') component.remove_prefix(1);
  if (out.empty() || out.back() != '/') out += '/';
  out += component;
  return out;
}

std::string deletingLastPathComponent(const std::string& path) {
  std::string p = path;
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  size_t slash = p.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return p.substr(0, slash);
}

std::string lastPathComponent(const std::string& path) {
  std::string p = path;
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  size_t slash = p.rfind('/');
  return slash == std::string::npos || p == "/" ? p : p.substr(slash + 1);
}

std::vector<std::string> pathComponents(const std::string& path) {
  std::vector<std::string> parts;
  if (!path.empty() && path.front() == '/') parts.push_back("/");
  size_t i = 0;
  while (i < path.size()) {
    size_t j = path.find('/', i);
    if (j == std::string::npos) j = path.size();
    if (j > i) parts.push_back(path.substr(i, j - i));
    i = j + 1;
  }
  return parts;
}

std::string currentDirectory() {
  char buf[PATH_MAX];
  if (::getcwd(buf, sizeof buf)) return buf;
  return "/";
}

namespace {

// The names alone, without the leading "/".
std::vector<std::string> components(const std::string& path) {
  std::vector<std::string> parts = pathComponents(path);
  if (!parts.empty() && parts.front() == "/") parts.erase(parts.begin());
  return parts;
}

std::string joinAbsolute(const std::vector<std::string>& parts) {
  if (parts.empty()) return "/";
  std::string out;
  for (const auto& part : parts) out += "/" + part;
  return out;
}

}  // namespace

std::string standardizedPath(const std::string& path, const std::string& currentDirectory) {
  std::string absolute = path.empty() ? currentDirectory
                         : path.front() == '/' ? path
                                               : appendPathComponent(currentDirectory, path);
  std::vector<std::string> parts = components(absolute);
  bool hasParentReference = false;
  for (const auto& part : parts) hasParentReference |= part == "..";

  std::string result;
  char resolved[PATH_MAX];
  if (hasParentReference && ::realpath(joinAbsolute(parts).c_str(), resolved)) {
    result = resolved;
  } else {
    std::vector<std::string> kept;
    for (const auto& part : parts) {
      if (part == ".") continue;
      if (part == "..") {
        if (!kept.empty()) kept.pop_back();
        continue;
      }
      kept.push_back(part);
    }
    result = joinAbsolute(kept);
  }
  for (const char* prefix : {"/private/var/automount", "/var/automount", "/private"}) {
    std::string_view p(prefix);
    // Only a prefix with something after it: "/private" alone stays as it is.
    if (result.size() > p.size() && result.starts_with(p) && result[p.size()] == '/') {
      std::string shorter = result.substr(p.size());
      if (exists(shorter)) return shorter;
      break;
    }
  }
  return result;
}

namespace {

std::string percentDecoded(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() + 0 && std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
        std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
      out += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

}  // namespace

std::optional<std::string> fileURLPath(const std::string& text) {
  std::string lower = text.substr(0, 7);
  for (char& ch : lower) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
  if (lower != "file://") return std::nullopt;
  std::string rest = text.substr(7);
  size_t slash = rest.find('/');
  if (slash == std::string::npos) return std::nullopt;
  std::string host = rest.substr(0, slash);
  if (!host.empty() && host != "localhost") return std::nullopt;
  std::string path = rest.substr(slash);
  if (size_t q = path.find_first_of("?#"); q != std::string::npos) path.resize(q);
  return percentDecoded(path);
}

}  // namespace tavlin::common
