// Loading a desktop file: the lock, the limits, and the validating reader that turns
// the document into the model (every error names the file and the place).
#include "platform/sim/sim_desktop.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>
#include <algorithm>
#include <set>

#include "common/files.h"
#include "common/json_text.h"
#include "platform/desktop_file_format.h"
#include "platform/pasteboard.h"

namespace tavlin::sim {

using nlohmann::ordered_json;
using platform::AXError;
using platform::AXNumber;
using platform::axErrorNames;
using platform::elementAttributeShortcuts;

namespace {

constexpr const char* defaultClockStart = defaultDesktopClockStart;
constexpr double maxElapsedSeconds = static_cast<double>(SimDesktop::maxElapsedMicros) / 1e6;

class Parser;
double boundedSeconds(const Parser& p, const ordered_json& j, const std::string& where);

// In seconds: the clock's own nanosecond count cannot hold every year this parses.
std::optional<std::chrono::sys_seconds> parseTimestamp(const std::string& text) {
  // yyyy-MM-ddTHH:mm:ssZ only, the form the tool itself prints.
  int y, mo, d, h, mi, s;
  char tail = 0;
  if (text.size() != 20 || std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c", &y, &mo, &d, &h, &mi, &s, &tail) != 7 ||
      tail != 'Z') {
    return std::nullopt;
  }
  using namespace std::chrono;
  year_month_day date{year(y), month(static_cast<unsigned>(mo)), day(static_cast<unsigned>(d))};
  if (!date.ok() || h > 23 || mi > 59 || s > 59) return std::nullopt;
  return sys_days(date) + hours(h) + minutes(mi) + seconds(s);
}

// Validating reader: every failure names the file and the place in it.
class Parser {
 public:
  Parser(const std::string& file) : file_(file) {}

  [[noreturn]] void fail(const std::string& where, const std::string& message) const {
    throw DesktopError("Simulated desktop " + file_ + ": " + (where.empty() ? "" : where + ": ") + message);
  }

  void allowKeys(const ordered_json& object, const std::string& where, std::initializer_list<const char*> keys) const {
    for (auto it = object.begin(); it != object.end(); ++it) {
      bool known = false;
      for (const char* k : keys) known |= it.key() == k;
      if (!known) fail(where, "unknown key \"" + it.key() + "\"");
    }
  }

  const ordered_json& object(const ordered_json& j, const std::string& where) const {
    if (!j.is_object()) fail(where, "expected an object");
    return j;
  }
  const ordered_json& array(const ordered_json& j, const std::string& where) const {
    if (!j.is_array()) fail(where, "expected an array");
    return j;
  }
  std::string string(const ordered_json& j, const std::string& where) const {
    if (!j.is_string()) fail(where, "expected a string");
    return j.get<std::string>();
  }
  bool boolean(const ordered_json& j, const std::string& where) const {
    if (!j.is_boolean()) fail(where, "expected true or false");
    return j.get<bool>();
  }
  double number(const ordered_json& j, const std::string& where) const {
    if (!j.is_number()) fail(where, "expected a number");
    double v = j.get<double>();
    if (!std::isfinite(v)) fail(where, "expected a finite number");
    return v;
  }
  int64_t integer(const ordered_json& j, const std::string& where, int64_t min, int64_t max) const {
    if (!j.is_number_integer()) fail(where, "expected an integer");
    if (j.is_number_unsigned() && j.get<uint64_t>() > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
      fail(where, "integer out of range");
    }
    int64_t v = j.get<int64_t>();
    if (v < min || v > max) fail(where, "expected an integer from " + std::to_string(min) + " to " + std::to_string(max));
    return v;
  }
  std::vector<double> numbers(const ordered_json& j, const std::string& where, size_t count, const char* shape) const {
    if (!j.is_array() || j.size() != count) fail(where, std::string("expected ") + shape);
    std::vector<double> out;
    for (size_t i = 0; i < count; ++i) {
      if (!j[i].is_number() || !std::isfinite(j[i].get<double>())) fail(where, std::string("expected ") + shape);
      out.push_back(j[i].get<double>());
    }
    return out;
  }
  std::vector<std::string> strings(const ordered_json& j, const std::string& where) const {
    array(j, where);
    std::vector<std::string> out;
    for (size_t i = 0; i < j.size(); ++i) out.push_back(string(j[i], where + "[" + std::to_string(i) + "]"));
    return out;
  }

 private:
  std::string file_;
};

double boundedSeconds(const Parser& p, const ordered_json& j, const std::string& where) {
  double seconds = p.number(j, where);
  if (!(seconds >= 0) || seconds > 2 * maxElapsedSeconds) p.fail(where, "expected seconds from 0 to 2000000000");
  return seconds;
}

// "appearsAt" / "disappearsAt" of an element or window: the span of the clock in which
// it exists.
SimPresence presenceOf(const Parser& p, const ordered_json& j, const std::string& where) {
  SimPresence span;
  if (auto it = j.find("appearsAt"); it != j.end()) {
    span.from = std::llround(boundedSeconds(p, *it, where + ".appearsAt") * 1e6);
  }
  if (auto it = j.find("disappearsAt"); it != j.end()) {
    span.until = std::llround(boundedSeconds(p, *it, where + ".disappearsAt") * 1e6);
    if (span.until <= span.from) p.fail(where + ".disappearsAt", "must be later than appearsAt");
  }
  return span;
}

struct NodeRecord {
  SimPresence presence;  // within its parent's
  const ordered_json* json = nullptr;
  std::string where;
  std::string pointer;
  int32_t pid = 0;
  std::vector<size_t> children;
  std::optional<size_t> parent;
  bool isApplication = false;
};

class DesktopBuilder {
 public:
  DesktopBuilder(const Parser& parser) : p_(parser) {}

  // Pass one: number every node in document order and learn the ids.
  // Inline nesting is bounded so that loading stays linear and shallow; deeper trees
  // can be built with references.
  static constexpr int maxNesting = 1000;

  size_t collect(const ordered_json& node, const std::string& where, const std::string& pointer, int32_t pid,
                 std::optional<size_t> parent, bool isApplication, int nesting = 0) {
    p_.object(node, where);
    if (nesting > maxNesting) {
      p_.fail(where, "elements nested deeper than " + std::to_string(maxNesting) +
                         " levels; use {\"ref\": ...} children for deeper trees");
    }
    size_t index = nodes_.size();
    SimPresence presence = presenceOf(p_, node, where);
    if (parent) {
      presence.from = std::max(presence.from, nodes_[*parent].presence.from);
      presence.until = std::min(presence.until, nodes_[*parent].presence.until);
    }
    nodes_.push_back({presence, &node, where, pointer, pid, {}, parent, isApplication});
    if (auto it = node.find("id"); it != node.end()) {
      std::string id = p_.string(*it, where + ".id");
      if (id.empty()) p_.fail(where + ".id", "must not be empty");
      if (!ids_.emplace(id, index).second) p_.fail(where + ".id", "another element already has id \"" + id + "\"");
    }
    if (auto it = node.find("children"); it != node.end()) {
      p_.array(*it, where + ".children");
      for (size_t i = 0; i < it->size(); ++i) {
        size_t child = collect((*it)[i], where + ".children[" + std::to_string(i) + "]",
                               pointer + "/children/" + std::to_string(i), pid, index, false, nesting + 1);
        nodes_[index].children.push_back(child);
      }
    }
    return index;
  }

  StoredValue value(const ordered_json& j, const std::string& where) const {
    StoredValue v;
    if (j.is_string()) {
      v.storage = j.get<std::string>();
    } else if (j.is_boolean()) {
      v.storage = AXNumber::ofBoolean(j.get<bool>());
    } else if (j.is_number_float()) {
      v.storage = AXNumber::ofReal(j.get<double>());
    } else if (j.is_number_integer()) {
      v.storage = AXNumber::ofInteger(p_.integer(j, where, std::numeric_limits<int64_t>::min(),
                                                 std::numeric_limits<int64_t>::max()));
    } else if (j.is_array()) {
      StoredArray items;
      for (size_t i = 0; i < j.size(); ++i) items.push_back(value(j[i], where + "[" + std::to_string(i) + "]"));
      v.storage = std::move(items);
    } else if (j.is_object() && j.size() == 1) {
      const std::string& kind = j.begin().key();
      const ordered_json& body = j.begin().value();
      std::string at = where + "." + kind;
      if (kind == "point") {
        auto n = p_.numbers(body, at, 2, "[x, y]");
        v.storage = platform::Point{n[0], n[1]};
      } else if (kind == "size") {
        auto n = p_.numbers(body, at, 2, "[width, height]");
        v.storage = platform::Size{n[0], n[1]};
      } else if (kind == "rect") {
        auto n = p_.numbers(body, at, 4, "[x, y, width, height]");
        v.storage = platform::Rect{{n[0], n[1]}, {n[2], n[3]}};
      } else if (kind == "url") {
        v.storage = simURL(p_.string(body, at));
      } else if (kind == "float32") {
        if (!body.is_number()) p_.fail(at, "expected a number");
        double real = body.get<double>();
        if (std::fabs(real) > std::numeric_limits<float>::max()) p_.fail(at, "out of the range of a 32-bit float");
        v.storage = AXNumber::ofReal32(static_cast<float>(real));
      } else if (kind == "other") {
        v.storage = platform::AXOther{p_.string(body, at)};
      } else if (kind == "ref") {
        std::string id = p_.string(body, at);
        auto it = ids_.find(id);
        if (it == ids_.end()) p_.fail(at, "no element has id \"" + id + "\"");
        v.storage = ElementIndex{it->second};
      } else {
        p_.fail(where, "unknown value kind \"" + kind + "\" (expected point, size, rect, url, ref, float32 or other)");
      }
    } else {
      p_.fail(where, "expected a text, number, boolean, array or {\"point\"|\"size\"|\"rect\"|\"url\"|\"ref\"|\"float32\"|\"other\": ...}");
    }
    return v;
  }

  AXError axError(const ordered_json& j, const std::string& where) const {
    if (j.is_string()) {
      auto it = axErrorNames().find(j.get<std::string>());
      if (it == axErrorNames().end()) p_.fail(where, "unknown AXError name \"" + j.get<std::string>() + "\"");
      return it->second;
    }
    int64_t code = p_.integer(j, where, -25214, -25200);
    return static_cast<AXError>(code);
  }

  // Pass two: the attributes of every node, with ids resolved.
  std::vector<SimElement> elements() const {
    std::vector<SimElement> out;
    out.reserve(nodes_.size());
    for (size_t index = 0; index < nodes_.size(); ++index) out.push_back(element(index));
    return out;
  }

  const std::map<std::string, size_t>& ids() const { return ids_; }

 private:
  SimElement element(size_t index) const {
    const NodeRecord& n = nodes_[index];
    const ordered_json& j = *n.json;
    p_.allowKeys(j, n.where,
                 {"id", "hash", "role", "subrole", "title", "description", "identifier", "roleDescription", "value",
                  "enabled", "focused", "position", "size", "actions", "settable", "attributes", "errors",
                  "actionErrors", "children", "appearsAt", "disappearsAt"});
    SimElement e;
    e.pid = n.pid;
    e.appearsAtMicros = n.presence.from;
    e.disappearsAtMicros = n.presence.until;
    e.jsonPointer = n.pointer;
    if (auto it = j.find("id"); it != j.end()) e.id = it->get<std::string>();
    // Derived hashes are stable for an unchanged file, which keeps numbering stable.
    e.hash = 0x10000 + index;
    if (auto it = j.find("hash"); it != j.end()) {
      if (!it->is_number_unsigned()) p_.fail(n.where + ".hash", "expected a non-negative integer");
      e.hash = it->get<uint64_t>();
    }
    for (const auto& [key, attribute] : elementAttributeShortcuts()) {
      auto it = j.find(key);
      if (it == j.end()) continue;
      std::string at = n.where + "." + key;
      if (key == "position") {
        auto v = p_.numbers(*it, at, 2, "[x, y]");
        e.attributes[attribute].storage = platform::Point{v[0], v[1]};
      } else if (key == "size") {
        auto v = p_.numbers(*it, at, 2, "[width, height]");
        e.attributes[attribute].storage = platform::Size{v[0], v[1]};
      } else if (it->is_null()) {
        e.emptyAttributes.insert(attribute);  // supported, without a value
      } else {
        e.attributes[attribute] = value(*it, at);
      }
    }
    if (auto it = j.find("attributes"); it != j.end()) {
      p_.object(*it, n.where + ".attributes");
      for (auto a = it->begin(); a != it->end(); ++a) {
        std::string at = n.where + ".attributes." + a.key();
        if (e.attributes.count(a.key()) || e.emptyAttributes.count(a.key())) {
          p_.fail(at, "given twice (also by its shortcut key)");
        }
        if (a.value().is_null()) {
          e.emptyAttributes.insert(a.key());
        } else {
          e.attributes[a.key()] = value(a.value(), at);
        }
      }
    }
    if (auto it = j.find("errors"); it != j.end()) {
      p_.object(*it, n.where + ".errors");
      for (auto a = it->begin(); a != it->end(); ++a) {
        e.readErrors[a.key()] = axError(a.value(), n.where + ".errors." + a.key());
      }
    }
    // An attribute the element gives itself, as a value, as null or as a read error,
    // is never derived.
    auto given = [&e](const std::string& name) {
      return e.attributes.count(name) || e.emptyAttributes.count(name) || e.readErrors.count(name);
    };
    if (!n.children.empty() || j.contains("children")) {
      if (!given("AXChildren")) {
        StoredArray children;
        for (size_t c : n.children) children.push_back({ElementIndex{c}});
        e.attributes["AXChildren"].storage = std::move(children);
      }
    }
    if (n.parent && !given("AXParent")) e.attributes["AXParent"].storage = ElementIndex{*n.parent};
    if (n.isApplication && !given("AXWindows")) {
      // As on macOS, an application lists its windows beside its other children.
      StoredArray windows;
      for (size_t c : n.children) {
        if (hasRole(c, "AXWindow")) windows.push_back({ElementIndex{c}});
      }
      e.attributes["AXWindows"].storage = std::move(windows);
    }
    if (n.isApplication && !given("AXMenuBar")) {
      // An application's menu bar is among its children; the attribute names it.
      for (size_t c : n.children) {
        if (!hasRole(c, "AXMenuBar")) continue;
        e.attributes["AXMenuBar"].storage = ElementIndex{c};
        break;
      }
    }
    if (auto it = j.find("actions"); it != j.end()) e.actions = p_.strings(*it, n.where + ".actions");
    if (auto it = j.find("settable"); it != j.end()) e.settable = p_.strings(*it, n.where + ".settable");
    if (auto it = j.find("actionErrors"); it != j.end()) {
      p_.object(*it, n.where + ".actionErrors");
      for (auto a = it->begin(); a != it->end(); ++a) {
        e.actionErrors[a.key()] = axError(a.value(), n.where + ".actionErrors." + a.key());
      }
    }
    return e;
  }

  bool hasRole(size_t node, const char* role) const {
    auto it = nodes_[node].json->find("role");
    return it != nodes_[node].json->end() && it->is_string() && it->get<std::string>() == role;
  }

  const Parser& p_;
  std::vector<NodeRecord> nodes_;
  std::map<std::string, size_t> ids_;
};

}  // namespace


namespace {

// Holds the desktop's lock, waiting a bounded (real) time for another holder; a caller
// that gives up (a cancelled call) ends the wait at its next look.
int acquireLock(const std::string& path, double waitSeconds, const std::function<bool()>& interrupted) {
  std::string lockPath = path + ".lock";
  int fd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  // A lock file that cannot be made (a read-only folder, no folder at all) leaves the
  // desktop unlocked; reading it then reports what is wrong, if anything.
  if (fd < 0) return -1;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(std::max(0.0, waitSeconds));
  for (;;) {
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return fd;
    if (errno != EWOULDBLOCK && errno != EINTR) {
      int error = errno;
      ::close(fd);
      throw DesktopError("Simulated desktop " + path + ": cannot lock " + lockPath + " (" + std::strerror(error) + ")");
    }
    if (interrupted && interrupted()) {
      ::close(fd);
      throw DesktopError("Simulated desktop " + path + ": the wait for " + lockPath + " was given up");
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      ::close(fd);
      char seconds[32];
      std::snprintf(seconds, sizeof seconds, "%g", waitSeconds);
      throw DesktopError("Simulated desktop " + path + ": another process has held " + lockPath + " for more than " +
                         seconds + " s");
    }
    ::usleep(10000);
  }
}

}  // namespace

SimDesktop SimDesktop::load(const std::string& path, const std::string& eventLogPath, double lockWaitSeconds,
                            const std::function<bool()>& interrupted) {
  SimDesktop desktop;
  desktop.path_ = path;
  desktop.eventLogPath_ = eventLogPath;
  desktop.lockDescriptor_ = acquireLock(path, lockWaitSeconds, interrupted);
  desktop.fromFile_ = true;
  // Under the lock no other command writes this desktop, so leftovers of a write-back
  // that was killed midway can go.
  common::removeStaleTemporaryFiles(path);
  std::string problem;
  auto text = common::readRegularFile(path, maxDesktopFileBytes, problem);
  if (!text) throw DesktopError("Simulated desktop " + path + ": cannot read the file (" + problem + ")");
  desktop.readText(*text);
  return desktop;
}

void SimDesktop::readText(const std::string& text) {
  auto placed = [&](const common::JsonTextProblem& at) {
    return DesktopError("Simulated desktop " + path_ + ": " + at.message + " (line " + std::to_string(at.line) +
                        ", column " + std::to_string(at.column) + ")");
  };
  if (auto problemAt = common::checkJsonText(text, maxDesktopJsonDepth)) throw placed(*problemAt);
  try {
    document_ = ordered_json::parse(text);
  } catch (const nlohmann::json::parse_error& e) {
    // The library's wording changes between versions; the place does not.
    throw placed(common::placeOf(text, e.byte > 0 ? e.byte - 1 : 0, "not valid JSON"));
  } catch (const nlohmann::json::exception& e) {
    throw DesktopError("Simulated desktop " + path_ + ": not valid JSON (" + e.what() + ")");
  }
  try {
    parse();
  } catch (const nlohmann::json::exception& e) {
    // The validating reader checks types before it reads; this is a last line.
    throw DesktopError("Simulated desktop " + path_ + ": " + e.what());
  }
}

namespace {

// "14", "14.5" or "13.3.1": up to three numbers of up to four digits.
bool isVersionText(const std::string& text) {
  size_t parts = 0;
  for (size_t start = 0;; ++parts) {
    size_t end = text.find('.', start);
    std::string part = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
    if (part.empty() || part.size() > 4 || part.find_first_not_of("0123456789") != std::string::npos) return false;
    if (end == std::string::npos) return parts < 3;
    start = end + 1;
  }
}

// The system port's answers: "codeSignature" and "systemVersion".
void parseSystem(const Parser& p, const ordered_json& root, SimSystem& system) {
  using Kind = platform::CodeSignature::Kind;
  if (auto it = root.find("codeSignature"); it != root.end()) {
    p.object(*it, "codeSignature");
    p.allowKeys(*it, "codeSignature", {"kind", "identifier", "teamIdentifier"});
    auto kind = it->find("kind");
    if (kind == it->end()) p.fail("codeSignature", "missing \"kind\"");
    static const std::map<std::string, Kind> kinds = {
        {"certificate", Kind::certificate}, {"adhoc", Kind::adhoc}, {"unsigned", Kind::notSigned},
        {"invalid", Kind::invalid}};
    auto found = kinds.find(kind->is_string() ? kind->get<std::string>() : "");
    if (found == kinds.end()) {
      p.fail("codeSignature.kind", "expected \"certificate\", \"adhoc\", \"unsigned\" or \"invalid\"");
    }
    platform::CodeSignature& s = system.codeSignature;
    s = {found->second, std::nullopt, std::nullopt, std::nullopt};
    if (auto v = it->find("identifier"); v != it->end()) s.identifier = p.string(*v, "codeSignature.identifier");
    if (auto v = it->find("teamIdentifier"); v != it->end()) {
      s.teamIdentifier = p.string(*v, "codeSignature.teamIdentifier");
    }
    // Unsigned code has no identifier, whatever the file says; a broken signature fails
    // its check with errSecCSSignatureFailed.
    if (s.kind == Kind::notSigned) {
      s.identifier.reset();
      s.teamIdentifier.reset();
    }
    if (s.kind == Kind::invalid) s.status = -67061;
  }
  if (auto it = root.find("systemVersion"); it != root.end()) {
    if (it->is_null()) {
      system.version.reset();
    } else {
      std::string version = p.string(*it, "systemVersion");
      if (!isVersionText(version)) p.fail("systemVersion", "expected a version like \"14.5\", or null");
      system.version = version;
    }
  }
}

}  // namespace

SimDesktop SimDesktop::fromText(const std::string& text, const std::string& path, const std::string& eventLogPath) {
  SimDesktop desktop;
  desktop.path_ = path;
  desktop.eventLogPath_ = eventLogPath;
  desktop.readText(text);
  return desktop;
}

SimDesktop SimDesktop::fromJson(ordered_json document, const std::string& path, const std::string& eventLogPath) {
  SimDesktop desktop;
  desktop.path_ = path;
  desktop.eventLogPath_ = eventLogPath;
  desktop.document_ = std::move(document);
  desktop.parse();
  return desktop;
}

void SimDesktop::parse() {
  Parser p(path_);
  const ordered_json& root = document_;
  p.object(root, "");
  p.allowKeys(root, "", {"tavlinDesktop", "description", "clock", "screen", "accessibilityTrusted", "frontmostPid",
                         "pointer", "apps", "windows", "stats", "pendingActivation", "capture", "screenCaptureKit",
                         "eventCreationFails", "displayNames", "clipboard", "codeSignature", "systemVersion"});
  auto version = root.find("tavlinDesktop");
  if (version == root.end()) p.fail("", "missing \"tavlinDesktop\": 1 (the format version)");
  if (!version->is_number_integer() || version->get<int64_t>() != 1) {
    p.fail("tavlinDesktop", "unsupported format version (this build reads version 1)");
  }
  if (auto it = root.find("description"); it != root.end()) p.string(*it, "description");

  std::string start = defaultClockStart;
  if (auto it = root.find("clock"); it != root.end()) {
    p.object(*it, "clock");
    p.allowKeys(*it, "clock", {"start", "elapsed"});
    if (auto s = it->find("start"); s != it->end()) start = p.string(*s, "clock.start");
    if (auto e = it->find("elapsed"); e != it->end()) {
      double seconds = p.number(*e, "clock.elapsed");
      if (!(seconds >= 0) || seconds > maxElapsedSeconds) {
        p.fail("clock.elapsed", "expected seconds from 0 to 1000000000");
      }
      elapsedMicros_ = std::llround(seconds * 1e6);
    }
  }
  auto parsedStart = parseTimestamp(start);
  if (!parsedStart) p.fail("clock.start", "expected a UTC time like \"2026-01-01T09:30:00Z\"");
  // The clock counts nanoseconds in 64 bits, which ends in 2262: start and elapsed
  // time together stay well inside that.
  if (*parsedStart < std::chrono::sys_days(std::chrono::year(1970) / 1 / 1) ||
      *parsedStart >= std::chrono::sys_days(std::chrono::year(2200) / 1 / 1)) {
    p.fail("clock.start", "expected a time from 1970 to 2199");
  }
  clockStart_ = std::chrono::time_point_cast<std::chrono::system_clock::duration>(*parsedStart);

  if (auto it = root.find("screen"); it != root.end()) {
    p.object(*it, "screen");
    p.allowKeys(*it, "screen", {"width", "height", "backingScale"});
    auto positive = [&](const char* key, double& field) {
      if (auto v = it->find(key); v != it->end()) {
        field = p.number(*v, std::string("screen.") + key);
        if (!(field > 0) || field > 1e6) p.fail(std::string("screen.") + key, "expected a positive number");
      }
    };
    positive("width", screen_.width);
    positive("height", screen_.height);
    positive("backingScale", screen_.backingScale);
  }
  if (auto it = root.find("capture"); it != root.end()) {
    p.object(*it, "capture");
    p.allowKeys(*it, "capture", {"companion", "screencapture"});
    auto works = [&](const char* key, bool& field) {
      if (auto v = it->find(key); v != it->end()) {
        std::string mode = v->is_string() ? v->get<std::string>() : "";
        if (mode != "works" && mode != "fails") p.fail(std::string("capture.") + key, "expected \"works\" or \"fails\"");
        field = mode == "works";
      }
    };
    works("companion", capture_.companionWorks);
    works("screencapture", capture_.screenshotToolWorks);
  }
  if (auto it = root.find("screenCaptureKit"); it != root.end()) {
    p.object(*it, "screenCaptureKit");
    p.allowKeys(*it, "screenCaptureKit", {"shareableContent", "capture", "preflight"});
    auto answer = [&](const char* key, SimAnswer& field) {
      auto v = it->find(key);
      if (v == it->end()) return;
      std::string at = std::string("screenCaptureKit.") + key;
      if (v->is_number()) {
        field = {SimAnswer::Kind::late, boundedSeconds(p, *v, at)};
        return;
      }
      std::string mode = v->is_string() ? v->get<std::string>() : "";
      if (mode == "answers") field.kind = SimAnswer::Kind::atOnce;
      else if (mode == "never") field.kind = SimAnswer::Kind::never;
      else if (mode == "refused") field.kind = SimAnswer::Kind::refused;
      else p.fail(at, "expected \"answers\", \"never\", \"refused\" or a delay in seconds");
    };
    answer("shareableContent", capture_.shareableContent);
    answer("capture", capture_.windowCapture);
    if (auto v = it->find("preflight"); v != it->end()) {
      capture_.preflight = p.boolean(*v, "screenCaptureKit.preflight");
    }
  }
  if (auto it = root.find("eventCreationFails"); it != root.end()) {
    for (const std::string& kind : p.strings(*it, "eventCreationFails")) {
      if (kind == "mouse") eventFaults_.mouse = true;
      else if (kind == "keyboard") eventFaults_.keyboard = true;
      else if (kind == "scroll") eventFaults_.scroll = true;
      else p.fail("eventCreationFails", "expected \"mouse\", \"keyboard\" or \"scroll\", not \"" + kind + "\"");
    }
  }
  if (auto it = root.find("clipboard"); it != root.end()) parseClipboard(*it);
  if (auto it = root.find("accessibilityTrusted"); it != root.end()) trusted_ = p.boolean(*it, "accessibilityTrusted");
  parseSystem(p, root, system_);
  if (auto it = root.find("pointer"); it != root.end()) {
    auto v = p.numbers(*it, "pointer", 2, "[x, y]");
    pointer_ = {v[0], v[1]};
  }
  if (auto it = root.find("stats"); it != root.end()) {
    p.object(*it, "stats");
    p.allowKeys(*it, "stats", {"axRoundTrips"});
    if (auto r = it->find("axRoundTrips"); r != it->end()) {
      roundTripsBefore_ = static_cast<uint64_t>(
          p.integer(*r, "stats.axRoundTrips", 0, std::numeric_limits<int64_t>::max()));
    }
  }

  DesktopBuilder builder(p);
  std::set<int32_t> pids;
  if (auto it = root.find("apps"); it != root.end()) {
    p.array(*it, "apps");
    for (size_t i = 0; i < it->size(); ++i) {
      std::string where = "apps[" + std::to_string(i) + "]";
      const ordered_json& a = p.object((*it)[i], where);
      p.allowKeys(a, where, {"pid", "name", "bundleIdentifier", "activationPolicy", "hidden", "terminated",
                             "activation", "unhideFails", "responds", "takesFocusOnClick", "quitsAfterCalls", "ui",
                             "openPanel", "listedAfterRunLoopTurns"});
      SimApp app;
      app.jsonPointer = "/apps/" + std::to_string(i);
      auto pid = a.find("pid");
      if (pid == a.end()) p.fail(where, "missing \"pid\"");
      app.info.pid = static_cast<int32_t>(
          p.integer(*pid, where + ".pid", std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
      if (!pids.insert(app.info.pid).second) {
        p.fail(where + ".pid", "another application already has pid " + std::to_string(app.info.pid));
      }
      if (auto v = a.find("name"); v != a.end()) app.info.localizedName = p.string(*v, where + ".name");
      if (auto v = a.find("bundleIdentifier"); v != a.end()) {
        app.info.bundleIdentifier = p.string(*v, where + ".bundleIdentifier");
      }
      if (auto v = a.find("activationPolicy"); v != a.end()) {
        std::string policy = p.string(*v, where + ".activationPolicy");
        if (policy == "regular") app.info.activationPolicy = platform::ActivationPolicy::regular;
        else if (policy == "accessory") app.info.activationPolicy = platform::ActivationPolicy::accessory;
        else if (policy == "prohibited") app.info.activationPolicy = platform::ActivationPolicy::prohibited;
        else p.fail(where + ".activationPolicy", "expected \"regular\", \"accessory\" or \"prohibited\"");
      }
      if (auto v = a.find("hidden"); v != a.end()) app.info.hidden = p.boolean(*v, where + ".hidden");
      if (auto v = a.find("terminated"); v != a.end()) app.info.terminated = p.boolean(*v, where + ".terminated");
      if (auto v = a.find("activation"); v != a.end()) {
        std::string at = where + ".activation";
        if (v->is_number()) {
          app.activation = {SimActivation::Mode::delayed, p.number(*v, at)};
          if (!(app.activation.delaySeconds >= 0) || app.activation.delaySeconds > 1e6) {
            p.fail(at, "expected a delay in seconds from 0 on");
          }
        } else {
          std::string mode = v->is_string() ? v->get<std::string>() : "";
          if (mode == "immediate") app.activation.mode = SimActivation::Mode::immediate;
          else if (mode == "never") app.activation.mode = SimActivation::Mode::never;
          else if (mode == "refuse") app.activation.mode = SimActivation::Mode::refuse;
          else p.fail(at, "expected \"immediate\", \"never\", \"refuse\" or a delay in seconds");
        }
      }
      if (auto v = a.find("unhideFails"); v != a.end()) app.unhideFails = p.boolean(*v, where + ".unhideFails");
      if (auto v = a.find("responds"); v != a.end()) app.responds = p.boolean(*v, where + ".responds");
      if (auto v = a.find("quitsAfterCalls"); v != a.end()) {
        app.quitsAfterCalls = static_cast<uint64_t>(p.integer(*v, where + ".quitsAfterCalls", 0, 1000000000));
      }
      if (auto v = a.find("listedAfterRunLoopTurns"); v != a.end()) {
        app.listedAfterRunLoopTurns = p.boolean(*v, where + ".listedAfterRunLoopTurns");
      }
      if (auto v = a.find("takesFocusOnClick"); v != a.end()) {
        app.takesFocusOnClick = p.boolean(*v, where + ".takesFocusOnClick");
      }
      if (auto v = a.find("ui"); v != a.end()) {
        app.uiElement = builder.collect(*v, where + ".ui", app.jsonPointer + "/ui", app.info.pid, std::nullopt, true);
      }
      apps_.push_back(std::move(app));
    }
  }
  elements_ = builder.elements();
  ids_ = builder.ids();
  auto notePresence = [this](const SimPresence& span) {
    if (span.from > 0) presenceChanges_.insert(span.from);
    if (span.until != SimPresence{}.until) presenceChanges_.insert(span.until);
  };
  for (const SimElement& e : elements_) notePresence({e.appearsAtMicros, e.disappearsAtMicros});
  if (auto it = root.find("displayNames"); it != root.end()) {
    p.object(*it, "displayNames");
    for (auto d = it->begin(); d != it->end(); ++d) displayNames_[d.key()] = p.string(d.value(), "displayNames." + d.key());
  }
  if (auto it = root.find("apps"); it != root.end()) {
    for (size_t i = 0; i < it->size(); ++i) {
      const ordered_json& a = (*it)[i];
      if (auto panel = a.find("openPanel"); panel != a.end()) {
        parseOpenPanel(*panel, "apps[" + std::to_string(i) + "].openPanel", "/apps/" + std::to_string(i) + "/openPanel",
                       apps_[i].info.pid, apps_[i].uiElement.value_or(SIZE_MAX));
      }
    }
  }
  staticElements_ = elements_.size();
  rebuildOpenPanels();

  if (auto it = root.find("frontmostPid"); it != root.end() && !it->is_null()) {
    int64_t pid = p.integer(*it, "frontmostPid", std::numeric_limits<int32_t>::min(),
                            std::numeric_limits<int32_t>::max());
    if (!pids.count(static_cast<int32_t>(pid))) p.fail("frontmostPid", "no application has pid " + std::to_string(pid));
    frontmostPid_ = static_cast<int32_t>(pid);
  }

  if (auto it = root.find("pendingActivation"); it != root.end() && !it->is_null()) {
    p.object(*it, "pendingActivation");
    p.allowKeys(*it, "pendingActivation", {"pid", "at"});
    auto pid = it->find("pid");
    auto at = it->find("at");
    if (pid == it->end() || at == it->end()) p.fail("pendingActivation", "expected {\"pid\": N, \"at\": seconds}");
    pendingActivation_ = PendingActivation{
        static_cast<int32_t>(p.integer(*pid, "pendingActivation.pid", std::numeric_limits<int32_t>::min(),
                                       std::numeric_limits<int32_t>::max())),
        std::llround(boundedSeconds(p, *at, "pendingActivation.at") * 1e6)};
  }

  if (auto it = root.find("windows"); it != root.end()) {
    p.array(*it, "windows");
    std::set<uint32_t> numbers;
    for (size_t i = 0; i < it->size(); ++i) {
      std::string where = "windows[" + std::to_string(i) + "]";
      const ordered_json& w = p.object((*it)[i], where);
      p.allowKeys(w, where, {"number", "pid", "layer", "bounds", "alpha", "ownerName", "name", "onscreen", "vanishes",
                             "appearsAt", "disappearsAt"});
      platform::WindowInfo info;
      auto number = w.find("number");
      if (number == w.end()) p.fail(where, "missing \"number\"");
      info.number = static_cast<uint32_t>(p.integer(*number, where + ".number", 1, 0xFFFFFFFF));
      if (!numbers.insert(info.number).second) {
        p.fail(where + ".number", "another window already has number " + std::to_string(info.number));
      }
      auto pid = w.find("pid");
      if (pid == w.end()) p.fail(where, "missing \"pid\"");
      info.ownerPID = static_cast<int32_t>(
          p.integer(*pid, where + ".pid", std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
      auto bounds = w.find("bounds");
      if (bounds == w.end()) p.fail(where, "missing \"bounds\"");
      auto b = p.numbers(*bounds, where + ".bounds", 4, "[x, y, width, height]");
      info.bounds = {{b[0], b[1]}, {b[2], b[3]}};
      if (auto v = w.find("layer"); v != w.end()) {
        info.layer = static_cast<int32_t>(p.integer(*v, where + ".layer", std::numeric_limits<int32_t>::min(),
                                                    std::numeric_limits<int32_t>::max()));
      }
      if (auto v = w.find("alpha"); v != w.end()) info.alpha = p.number(*v, where + ".alpha");
      // The owner's name defaults to the application's; null leaves it out, as the
      // window server sometimes does.
      if (auto v = w.find("ownerName"); v != w.end()) {
        if (!v->is_null()) info.ownerName = p.string(*v, where + ".ownerName");
      } else if (SimApp* owner = app(info.ownerPID)) {
        info.ownerName = owner->info.localizedName;
      }
      if (auto v = w.find("name"); v != w.end() && !v->is_null()) info.name = p.string(*v, where + ".name");
      info.onscreen = true;
      if (auto v = w.find("onscreen"); v != w.end()) info.onscreen = p.boolean(*v, where + ".onscreen");
      if (auto v = w.find("vanishes"); v != w.end() && p.boolean(*v, where + ".vanishes")) {
        capture_.vanishing.push_back(info.number);
      }
      windows_.push_back(info);
      windowPresence_.push_back(presenceOf(p, w, where));
      notePresence(windowPresence_.back());
    }
  }
}

}  // namespace tavlin::sim

namespace tavlin::sim {

void SimDesktop::parseClipboard(const ordered_json& json) {
  Parser p(path_);
  p.object(json, "clipboard");
  p.allowKeys(json, "clipboard", {"text", "types", "changeCount", "writeFails", "replacedAfterWrite"});
  SimClipboard& board = clipboard_.emplace();
  if (auto it = json.find("text"); it != json.end() && !it->is_null()) board.text = p.string(*it, "clipboard.text");
  if (auto it = json.find("types"); it != json.end()) {
    board.types = p.strings(*it, "clipboard.types");
  } else if (board.text) {
    board.types = {platform::plainTextPasteboardType};
  }
  if (board.text && std::find(board.types.begin(), board.types.end(), platform::plainTextPasteboardType) ==
                        board.types.end()) {
    p.fail("clipboard.types", std::string("a clipboard with text lists ") + platform::plainTextPasteboardType);
  }
  if (auto it = json.find("changeCount"); it != json.end()) {
    board.changeCount = p.integer(*it, "clipboard.changeCount", 0, std::numeric_limits<int64_t>::max() / 2);
  }
  if (auto it = json.find("writeFails"); it != json.end()) board.writeFails = p.boolean(*it, "clipboard.writeFails");
  if (auto it = json.find("replacedAfterWrite"); it != json.end()) {
    board.replacedAfterWrite = p.string(*it, "clipboard.replacedAfterWrite");
  }
}

void SimDesktop::parseOpenPanel(const ordered_json& json, const std::string& where, const std::string& pointer,
                                int32_t pid, size_t appIndex) {
  Parser p(path_);
  p.object(json, where);
  p.allowKeys(json, where, {"folder", "presentation", "host", "language", "view", "chooses", "prompt", "frame",
                            "rowsRefuseSelection", "withoutAXOpen", "neverCloses", "buttonStateLags",
                            "entriesDelay", "wrongTurns", "hostTextArea", "outOfProcess", "goToDelay",
                            "openButtonLag", "appearsAfter", "closesAfter", "title", "caseInsensitive", "decomposedNames", "state"});
  if (appIndex == SIZE_MAX) p.fail(where, "the application needs a \"ui\" tree to show a panel in");
  PanelSlot slot;
  slot.jsonPointer = pointer;
  SimOpenPanelConfig& c = slot.config;
  c.pid = pid;
  auto choice = [&](const char* key, std::string& field, std::initializer_list<const char*> allowed) {
    auto it = json.find(key);
    if (it == json.end()) return;
    field = p.string(*it, where + "." + key);
    for (const char* a : allowed) {
      if (field == a) return;
    }
    std::string list;
    for (const char* a : allowed) list += (list.empty() ? "\"" : ", \"") + std::string(a) + "\"";
    p.fail(where + "." + key, "expected one of " + list);
  };
  choice("presentation", c.presentation, {"sheet", "window"});
  choice("language", c.language, {"en", "zh"});
  choice("view", c.view, {"list", "icon", "column"});
  choice("chooses", c.chooses, {"files", "folders", "filesAndFolders"});
  if (auto it = json.find("prompt"); it != json.end()) c.prompt = p.string(*it, where + ".prompt");
  if (auto it = json.find("frame"); it != json.end()) {
    auto n = p.numbers(*it, where + ".frame", 4, "[x, y, width, height]");
    c.frame = {{n[0], n[1]}, {n[2], n[3]}};
  }
  auto flag = [&](const char* key, bool& field) {
    if (auto it = json.find(key); it != json.end()) field = p.boolean(*it, where + "." + key);
  };
  flag("rowsRefuseSelection", c.rowsRefuseSelection);
  flag("withoutAXOpen", c.withoutAXOpen);
  flag("neverCloses", c.neverCloses);
  flag("buttonStateLags", c.buttonStateLags);
  if (auto it = json.find("entriesDelay"); it != json.end()) c.entriesDelay = boundedSeconds(p, *it, where + ".entriesDelay");
  if (auto it = json.find("wrongTurns"); it != json.end()) c.wrongTurns = p.integer(*it, where + ".wrongTurns", 0, 1000);
  flag("outOfProcess", c.outOfProcess);
  flag("caseInsensitive", c.caseInsensitive);
  flag("decomposedNames", c.decomposedNames);
  if (auto it = json.find("hostTextArea"); it != json.end()) c.hostTextArea = p.string(*it, where + ".hostTextArea");
  if (auto it = json.find("title"); it != json.end()) c.title = p.string(*it, where + ".title");
  if (auto it = json.find("goToDelay"); it != json.end()) c.goToDelay = boundedSeconds(p, *it, where + ".goToDelay");
  if (auto it = json.find("openButtonLag"); it != json.end()) {
    c.openButtonLag = boundedSeconds(p, *it, where + ".openButtonLag");
  }
  if (auto it = json.find("appearsAfter"); it != json.end()) {
    c.appearsAfter = boundedSeconds(p, *it, where + ".appearsAfter");
  }
  if (auto it = json.find("closesAfter"); it != json.end()) c.closesAfter = boundedSeconds(p, *it, where + ".closesAfter");
  auto folder = json.find("folder");
  if (folder == json.end()) p.fail(where, "missing \"folder\" (the folder the panel shows)");
  slot.state.folder = p.string(*folder, where + ".folder");
  if (slot.state.folder.empty() || slot.state.folder.front() != '/') p.fail(where + ".folder", "expected an absolute path");
  if (c.presentation == "sheet") {
    auto host = json.find("host");
    if (host == json.end()) p.fail(where, "a sheet needs \"host\": the id of its window");
    c.hostId = p.string(*host, where + ".host");
    auto id = ids_.find(c.hostId);
    if (id == ids_.end()) p.fail(where + ".host", "no element has id \"" + c.hostId + "\"");
    slot.hostIndex = id->second;
  } else {
    slot.hostIndex = appIndex;
    if (c.hostTextArea) p.fail(where + ".hostTextArea", "a host text area needs a sheet on a window");
  }
  if (auto it = json.find("state"); it != json.end()) {
    // Written by the tool: where the panel is now.
    p.object(*it, where + ".state");
    p.allowKeys(*it, where + ".state",
                {"folder", "selection", "goTo", "history", "open", "chosen", "shownAt", "wrongTurnsTaken", "goToAt",
                 "enabledAt", "scroll", "hostText", "hostTextSelected"});
    SimOpenPanelState& s = slot.state;
    if (auto v = it->find("folder"); v != it->end()) s.folder = p.string(*v, where + ".state.folder");
    if (auto v = it->find("selection"); v != it->end() && !v->is_null()) s.selection = p.string(*v, where + ".state.selection");
    if (auto v = it->find("goTo"); v != it->end() && !v->is_null()) s.goTo = p.string(*v, where + ".state.goTo");
    if (auto v = it->find("history"); v != it->end()) s.history = p.strings(*v, where + ".state.history");
    if (auto v = it->find("open"); v != it->end()) s.open = p.boolean(*v, where + ".state.open");
    if (auto v = it->find("chosen"); v != it->end() && !v->is_null()) s.chosen = p.string(*v, where + ".state.chosen");
    if (auto v = it->find("wrongTurnsTaken"); v != it->end()) {
      s.wrongTurnsTaken = p.integer(*v, where + ".state.wrongTurnsTaken", 0, 1000);
    }
    if (auto v = it->find("goToAt"); v != it->end()) {
      s.goToAtMicros = std::llround(boundedSeconds(p, *v, where + ".state.goToAt") * 1e6);
    }
    if (auto v = it->find("enabledAt"); v != it->end()) {
      s.enabledAtMicros = std::llround(boundedSeconds(p, *v, where + ".state.enabledAt") * 1e6);
    }
    if (auto v = it->find("scroll"); v != it->end()) s.scroll = boundedSeconds(p, *v, where + ".state.scroll");
    if (auto v = it->find("hostText"); v != it->end()) s.hostText = p.string(*v, where + ".state.hostText");
    if (auto v = it->find("hostTextSelected"); v != it->end()) {
      s.hostTextSelected = p.boolean(*v, where + ".state.hostTextSelected");
    }
    if (auto v = it->find("shownAt"); v != it->end()) {
      s.shownAtMicros = std::llround(boundedSeconds(p, *v, where + ".state.shownAt") * 1e6);
    }
  }
  const SimElement& host = elements_.at(slot.hostIndex);
  if (auto it = host.attributes.find("AXChildren"); it != host.attributes.end()) {
    if (auto* list = std::get_if<StoredArray>(&it->second.storage)) slot.hostChildren = *list;
  }
  if (auto it = host.attributes.find("AXWindows"); it != host.attributes.end()) {
    if (auto* list = std::get_if<StoredArray>(&it->second.storage)) slot.hostWindows = *list;
  }
  panels_.push_back(std::move(slot));
}

}  // namespace tavlin::sim
