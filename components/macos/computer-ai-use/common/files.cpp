#include "common/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <vector>

namespace tavlin::common {

bool writeFileAtomically(const std::string& path, std::string_view contents, mode_t mode) {
  std::string temporary = path + ".tmp-XXXXXX";
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

std::string currentDirectory() {
  char buf[PATH_MAX];
  if (::getcwd(buf, sizeof buf)) return buf;
  return "/";
}

namespace {

std::vector<std::string> components(const std::string& path) {
  std::vector<std::string> parts;
  size_t i = 0;
  while (i < path.size()) {
    size_t j = path.find('/', i);
    if (j == std::string::npos) j = path.size();
    if (j > i) parts.push_back(path.substr(i, j - i));
    i = j + 1;
  }
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
    if (result.starts_with(p) && (result.size() == p.size() || result[p.size()] == '/')) {
      std::string shorter = result.size() == p.size() ? "/" : result.substr(p.size());
      if (exists(shorter)) return shorter;
      break;
    }
  }
  return result;
}

}  // namespace tavlin::common
