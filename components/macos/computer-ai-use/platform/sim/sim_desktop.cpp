// The desktop model: its changes, the virtual clock, the event log and the write-back.
#include "platform/sim/sim_desktop.h"

#include "platform/desktop_file_format.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <algorithm>
#include <set>

#include "common/files.h"
#include "common/json_text.h"

namespace tavlin::sim {

using nlohmann::ordered_json;
using platform::AXError;
using platform::AXNumber;

namespace {

std::string quoteLogValue(const std::string& value) {
  bool plain = !value.empty();
  for (unsigned char c : value) {
    if (c <= 0x20 || c == '"' || c == '=' || c == '\\' || c == 0x7f) plain = false;
  }
  if (plain) return value;
  std::string out = "\"";
  for (unsigned char c : value) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20 || c == 0x7f) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out + "\"";
}

}  // namespace

std::string formatEventLine(int64_t elapsedMicros, const std::string& target, const std::string& kind,
                            const std::vector<EventField>& fields) {
  char time[32];
  std::snprintf(time, sizeof time, "%lld.%03lld", static_cast<long long>(elapsedMicros / 1000000),
                static_cast<long long>((elapsedMicros % 1000000 + 500) / 1000));
  // Rounding may carry into the seconds.
  if ((elapsedMicros % 1000000 + 500) / 1000 == 1000) {
    std::snprintf(time, sizeof time, "%lld.000", static_cast<long long>(elapsedMicros / 1000000 + 1));
  }
  std::string line = std::string(time) + " " + target + " " + kind;
  for (const EventField& f : fields) line += " " + f.name + "=" + quoteLogValue(f.value);
  return line;
}

SimDesktop::SimDesktop(SimDesktop&& other) noexcept { *this = std::move(other); }

SimDesktop& SimDesktop::operator=(SimDesktop&& other) noexcept {
  if (this == &other) return *this;
  if (lockDescriptor_ >= 0) ::close(lockDescriptor_);
  path_ = std::move(other.path_);
  eventLogPath_ = std::move(other.eventLogPath_);
  lockDescriptor_ = std::exchange(other.lockDescriptor_, -1);
  document_ = std::move(other.document_);
  dirty_ = other.dirty_;
  apps_ = std::move(other.apps_);
  elements_ = std::move(other.elements_);
  windows_ = std::move(other.windows_);
  windowPresence_ = std::move(other.windowPresence_);
  presenceChanges_ = std::move(other.presenceChanges_);
  screen_ = other.screen_;
  capture_ = other.capture_;
  eventFaults_ = other.eventFaults_;
  system_ = std::move(other.system_);
  trusted_ = other.trusted_;
  frontmostPid_ = other.frontmostPid_;
  pointer_ = other.pointer_;
  pendingActivation_ = other.pendingActivation_;
  messagingTimeout_ = other.messagingTimeout_;
  clockStart_ = other.clockStart_;
  elapsedMicros_ = other.elapsedMicros_;
  pendingLog_ = std::move(other.pendingLog_);
  roundTrips_ = other.roundTrips_;
  roundTripsBefore_ = other.roundTripsBefore_;
  panels_ = std::move(other.panels_);
  staticElements_ = other.staticElements_;
  displayNames_ = std::move(other.displayNames_);
  hashIndex_ = std::move(other.hashIndex_);
  ids_ = std::move(other.ids_);
  scheduled_ = std::move(other.scheduled_);
  fromFile_ = other.fromFile_;
  clipboard_ = std::move(other.clipboard_);
  selectedAll_ = std::move(other.selectedAll_);
  return *this;
}

SimDesktop::~SimDesktop() {
  if (lockDescriptor_ >= 0) ::close(lockDescriptor_);
}

SimApp* SimDesktop::app(int32_t pid) {
  for (SimApp& a : apps_) {
    if (a.info.pid == pid) return &a;
  }
  return nullptr;
}

void SimDesktop::setFrontmostPid(std::optional<int32_t> pid) {
  frontmostPid_ = pid;
  document_["frontmostPid"] = pid ? ordered_json(*pid) : ordered_json(nullptr);
  dirty_ = true;
}

void SimDesktop::setHidden(int32_t pid, bool hidden) {
  SimApp* a = app(pid);
  if (!a) return;
  a->info.hidden = hidden;
  documentNode(a->jsonPointer)["hidden"] = hidden;
  dirty_ = true;
}

void SimDesktop::setPointer(platform::Point point) {
  // The file must stay loadable: a point JSON cannot hold is not kept.
  if (!std::isfinite(point.x) || !std::isfinite(point.y)) return;
  pointer_ = point;
  document_["pointer"] = {point.x, point.y};
  dirty_ = true;
}

void SimDesktop::setElementAttribute(size_t index, const std::string& attribute, const std::string& text) {
  SimElement& e = elements_.at(index);
  e.attributes[attribute].storage = text;
  ordered_json& node = documentNode(e.jsonPointer);
  // Written where the file declares it: its shortcut key, else the attributes map.
  std::string shortcut;
  for (const auto& [key, name] : platform::elementAttributeShortcuts()) {
    if (name == attribute) shortcut = key;
  }
  bool inAttributes = node.contains("attributes") && node["attributes"].contains(attribute);
  if (!shortcut.empty() && !inAttributes) {
    node[shortcut] = text;
  } else {
    node["attributes"][attribute] = text;
  }
  dirty_ = true;
}

namespace {
ordered_json& nodeAt(ordered_json& node, const ordered_json::json_pointer& pointer) {
  if (pointer.empty()) return node;
  ordered_json& parent = nodeAt(node, pointer.parent_pointer());
  const std::string& token = pointer.back();
  return parent.is_array() ? parent.at(std::stoul(token)) : parent.at(token);
}
}  // namespace

ordered_json& SimDesktop::documentNode(const std::string& pointer) {
  return nodeAt(document_, ordered_json::json_pointer(pointer));
}

std::vector<platform::WindowInfo> SimDesktop::windows() const {
  std::vector<platform::WindowInfo> out;
  out.reserve(windows_.size());
  for (size_t i = 0; i < windows_.size(); ++i) {
    if (windowPresence_[i].contains(elapsedMicros_)) out.push_back(windows_[i]);
  }
  return out;
}

std::chrono::system_clock::time_point SimDesktop::now() const {
  return clockStart_ + std::chrono::microseconds(elapsedMicros_);
}

bool SimDesktop::requestActivation(int32_t pid) {
  SimApp* a = app(pid);
  if (!a || a->info.terminated || a->activation.mode == SimActivation::Mode::refuse) return false;
  switch (a->activation.mode) {
    case SimActivation::Mode::immediate:
      setFrontmostPid(pid);
      break;
    case SimActivation::Mode::delayed:
      pendingActivation_ = PendingActivation{pid, elapsedMicros_ + std::llround(a->activation.delaySeconds * 1e6)};
      document_["pendingActivation"] = {{"pid", pid}, {"at", static_cast<double>(pendingActivation_->atMicros) / 1e6}};
      dirty_ = true;
      advance(0);
      break;
    case SimActivation::Mode::never:
    case SimActivation::Mode::refuse:
      break;
  }
  return true;
}

int64_t SimDesktop::deadlineAfter(double seconds) const {
  if (!(seconds > 0)) return elapsedMicros_;
  double micros = static_cast<double>(elapsedMicros_) + seconds * 1e6;
  return micros > static_cast<double>(maxElapsedMicros) ? maxElapsedMicros + 1 : std::llround(micros);
}

std::optional<int64_t> SimDesktop::nextEventMicros() const {
  std::optional<int64_t> next;
  auto consider = [&](int64_t at) {
    if (!next || at < *next) next = at;
  };
  for (const Scheduled& s : scheduled_) consider(s.atMicros);
  if (pendingActivation_) consider(pendingActivation_->atMicros);
  // Something comes or goes then, which a wait may be waiting for.
  if (auto change = presenceChanges_.upper_bound(elapsedMicros_); change != presenceChanges_.end()) consider(*change);
  for (const PanelSlot& slot : panels_) {
    int64_t due = slot.state.shownAtMicros + std::llround(slot.config.entriesDelay * 1e6);
    if (slot.config.entriesDelay > 0 && due > elapsedMicros_) consider(due);
  }
  return next;
}

void SimDesktop::advance(double seconds) { advanceTo(deadlineAfter(seconds)); }

void SimDesktop::advanceTo(int64_t micros) {
  if (micros > maxElapsedMicros) {
    throw DesktopError("Simulated desktop " + path_ +
                       ": the virtual clock cannot run past 1000000000 seconds (clock.elapsed)");
  }
  if (micros > elapsedMicros_) {
    int64_t before = elapsedMicros_;
    elapsedMicros_ = micros;
    dirty_ = true;
    // A panel whose folder's entries were still to come shows them once their time is reached.
    for (const PanelSlot& slot : panels_) {
      if (panelChangesBetween(slot, before, elapsedMicros_)) {
        rebuildOpenPanels();
        break;
      }
    }
  }
  for (size_t i = 0; i < scheduled_.size();) {
    if (scheduled_[i].atMicros > elapsedMicros_) {
      ++i;
      continue;
    }
    std::function<void()> fire = std::move(scheduled_[i].fire);
    scheduled_.erase(scheduled_.begin() + static_cast<std::ptrdiff_t>(i));
    fire();
  }
  if (pendingActivation_ && pendingActivation_->atMicros <= elapsedMicros_) {
    int32_t pid = pendingActivation_->pid;
    pendingActivation_.reset();
    document_["pendingActivation"] = nullptr;
    setFrontmostPid(pid);
  }
}

void SimDesktop::schedule(double seconds, std::function<void()> fire) {
  scheduled_.push_back({elapsedMicros_ + std::llround(std::max(0.0, seconds) * 1e6), std::move(fire)});
}

void SimDesktop::log(const std::string& target, const std::string& kind, const std::vector<EventField>& fields) {
  pendingLog_.push_back(formatEventLine(elapsedMicros_, target, kind, fields));
}

void SimDesktop::commit() {
  if (roundTrips_ > 0) dirty_ = true;
  if (dirty_) {
    document_["clock"]["elapsed"] = static_cast<double>(elapsedMicros_) / 1e6;
    if (!document_["clock"].contains("start")) document_["clock"]["start"] = defaultDesktopClockStart;
    document_["stats"]["axRoundTrips"] = roundTripsTotal();
    // The file keeps the mode its owner gave it.
    std::string text = document_.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    // A desktop file that is a link stays one: the new state replaces the file it names.
    std::string target = path_;
    struct stat link;
    if (::lstat(path_.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
      if (char* resolved = ::realpath(path_.c_str(), nullptr)) {
        target = resolved;
        std::free(resolved);
      }
    }
    if (!common::writeFileAtomically(target, text, 0644, true)) {
      throw DesktopError("Simulated desktop " + path_ + ": cannot write the changed state back (" +
                         std::strerror(errno) + ")");
    }
    roundTripsBefore_ = roundTripsTotal();
    roundTrips_ = 0;
    dirty_ = false;
  }
  if (!pendingLog_.empty() && !eventLogPath_.empty()) {
    std::string text;
    for (const auto& line : pendingLog_) text += line + "\n";
    if (!common::appendWhole(eventLogPath_, text)) {
      throw DesktopError("Simulated desktop " + path_ + ": cannot append to the event log " + eventLogPath_ + " (" +
                         std::strerror(errno) + ")");
    }
    pendingLog_.clear();
  }
}

platform::AXURL simURL(const std::string& absoluteString) {
  platform::AXURL url{absoluteString, std::nullopt};
  if (auto path = common::fileURLPath(absoluteString)) {
    // CFURLCopyFileSystemPath: decoded, without the trailing "/" of a folder.
    std::string p = common::repairingUTF8(*path);
    while (p.size() > 1 && p.back() == '/') p.pop_back();
    url.fileSystemPath = p;
  }
  return url;
}

}  // namespace tavlin::sim
