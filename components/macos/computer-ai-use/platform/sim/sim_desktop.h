#pragma once
// The simulated desktop: a desktop file loaded into a model that the sim ports read and
// change, plus the control face that tests and benchmarks use (clock, event log,
// round-trip counter). The file format is documented in docs/desktop-format.md and the
// event log in docs/event-log.md.
#include <chrono>
#include <functional>
#include <cstdint>
#include <map>
#include <set>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "common/unicode.h"
#include "platform/accessibility.h"
#include "platform/events.h"
#include "platform/sim/sim_open_panel.h"
#include "platform/geometry.h"
#include "platform/system_info.h"
#include "platform/window_list.h"
#include "platform/workspace.h"

namespace tavlin::sim {

// A desktop file that cannot be read or does not hold a valid desktop. The message
// names the file and, where it can, the place in it ("apps[0].pid: ...").
// The message is one line: line breaks in echoed values are escaped.
struct DesktopError : std::runtime_error {
  explicit DesktopError(const std::string& message) : std::runtime_error(common::escapingLineBreaks(message)) {}
};

// Limits of a desktop file, documented in docs/desktop-format.md.
inline constexpr size_t maxDesktopFileBytes = size_t{256} << 20;
inline constexpr size_t maxDesktopJsonDepth = 2048;
// How long a command waits for another process's lock on the same desktop.
inline constexpr double defaultLockWaitSeconds = 10.0;

// An attribute value as the desktop stores it: like the seam's value, but elements
// are indices into the desktop's element table.
struct StoredValue;
using StoredArray = std::vector<StoredValue>;
struct ElementIndex {
  size_t index = 0;
};
struct StoredValue {
  std::variant<platform::AXOther, std::string, platform::AXNumber, platform::Point, platform::Size,
               platform::Rect, platform::AXURL, ElementIndex, StoredArray>
      storage;
};

struct SimElement {
  std::string id;          // empty when the file gave none
  int32_t pid = 0;         // owning application
  uint64_t hash = 0;       // CFHash; explicit in the file or derived from the position
  std::string jsonPointer; // where the node sits in the file, for write-back
  std::map<std::string, StoredValue> attributes;
  // Attributes the element supports but that have no value (null in the file): they read
  // as kAXErrorNoValue; any other missing attribute is unsupported.
  std::set<std::string> emptyAttributes;
  std::map<std::string, platform::AXError> readErrors;    // injected failures per attribute
  std::map<std::string, platform::AXError> actionErrors;  // actions that fail with this code
  std::vector<std::string> actions;
  std::vector<std::string> settable;
  // Elements of a simulated Open panel: which panel, what the element stands for
  // ("entry", "row", "choose", "cancel"), and the entry's path.
  int panel = -1;
  std::string panelRole;
  std::string panelPath;
  bool invalid = false;  // listed, but every call on it fails (an icon scrolled out of view)
  // The element exists only from `appearsAtMicros` until before `disappearsAtMicros` of
  // the desktop's clock (its parent's span included): outside it, it is not listed and
  // calls on it fail as on a destroyed element.
  int64_t appearsAtMicros = 0;
  int64_t disappearsAtMicros = INT64_MAX;
};

// A span of the desktop's clock in which something exists: [from, until).
struct SimPresence {
  int64_t from = 0;
  int64_t until = INT64_MAX;
  bool contains(int64_t micros) const { return micros >= from && micros < until; }
};

// How an application answers a request to activate it.
struct SimActivation {
  enum class Mode { immediate, delayed, never, refuse };
  Mode mode = Mode::immediate;
  double delaySeconds = 0;  // for `delayed`
};

struct SimApp {
  platform::RunningApplication info;
  SimActivation activation;
  bool unhideFails = false;
  bool responds = true;            // false: every accessibility call times out
  std::optional<uint64_t> quitsAfterCalls;  // the application quits after this many calls
  bool takesFocusOnClick = false;  // a click posted to it makes it frontmost
  // Launched after this process started: the workspace lists it once the main run loop
  // has turned in this process, as NSWorkspace does.
  bool listedAfterRunLoopTurns = false;
  std::optional<size_t> uiElement;  // the application element, when the file has a tree
  std::string jsonPointer;
};

struct SimScreen {
  double width = 1440;
  double height = 900;
  double backingScale = 2;
};

// Which kinds of synthetic event cannot be created.
struct SimEventFaults {
  bool mouse = false;
  bool keyboard = false;
  bool scroll = false;
};

// How one simulated ScreenCaptureKit request answers.
struct SimAnswer {
  enum class Kind { atOnce, never, refused, late };
  Kind kind = Kind::atOnce;
  double delaySeconds = 0;  // for `late`: after this much virtual time
};

// Which simulated capture tools succeed, and how ScreenCaptureKit answers.
struct SimCaptureBehaviour {
  bool companionWorks = true;       // bin/background-window-capture can run
  bool screenshotToolWorks = true;  // /usr/sbin/screencapture
  SimAnswer shareableContent;       // SCShareableContent
  SimAnswer windowCapture;          // SCScreenshotManager
  std::vector<uint32_t> vanishing;  // windows listed but gone when captured
  // What the permission preflight answers; absent: allowed unless a request is refused.
  std::optional<bool> preflight;
};

// The general pasteboard, when the desktop has one ("clipboard").
struct SimClipboard {
  std::optional<std::string> text;  // plain text; absent when the clipboard holds none
  std::vector<std::string> types;
  int64_t changeCount = 0;
  bool writeFails = false;  // the pasteboard refuses every write
  // Another application (a clipboard manager) puts this text there right after each write.
  std::optional<std::string> replacedAfterWrite;
};

// The keys a simulated text receiver takes: Cmd+A selects all; Delete (key 51) deletes
// the selection or the last character; typed text and Return replace the selection or
// append; with a clipboard text, Cmd+V pastes it the same way. False for any other key
// (nothing changed).
bool editTextWithKey(std::string& text, bool& selected, const platform::Event& event,
                     const std::optional<std::string>& clipboardText);

// What the system port answers: this executable's signature and the macOS version
// (absent: it cannot be read).
struct SimSystem {
  platform::CodeSignature codeSignature = {platform::CodeSignature::Kind::certificate, "com.tavlin.Tavlin",
                                           std::nullopt, std::nullopt};
  std::optional<std::string> version = "14.5";
};

struct EventField {
  std::string name;
  std::string value;
};

class SimDesktop {
 public:
  // Reads and validates the file; holds a lock beside it (`<path>.lock`) until
  // destroyed so that concurrent commands take turns, waiting at most `lockWaitSeconds`
  // (real time) for another holder, and no longer once `interrupted` holds (asked every
  // few milliseconds). Throws DesktopError.
  static SimDesktop load(const std::string& path, const std::string& eventLogPath,
                         double lockWaitSeconds = defaultLockWaitSeconds,
                         const std::function<bool()>& interrupted = {});
  // A desktop from the text of a desktop file, with load()'s checks and messages (for
  // tests and fuzzing); `path` names it in messages and is where commit() writes it.
  static SimDesktop fromText(const std::string& text, const std::string& path, const std::string& eventLogPath);
  // For tests: a desktop from a document; `path` is where commit() writes it.
  static SimDesktop fromJson(nlohmann::ordered_json document, const std::string& path,
                             const std::string& eventLogPath);

  SimDesktop(SimDesktop&&) noexcept;
  SimDesktop& operator=(SimDesktop&&) noexcept;
  ~SimDesktop();

  // --- model ---
  const std::vector<SimApp>& apps() const { return apps_; }
  SimApp* app(int32_t pid);
  const std::vector<SimElement>& elements() const { return elements_; }
  const SimElement& element(size_t index) const { return elements_.at(index); }
  // The window-server list as it is at the desktop's time (entries with `appearsAt` or
  // `disappearsAt` come and go).
  std::vector<platform::WindowInfo> windows() const;
  // Whether the element exists at the desktop's time.
  bool present(const SimElement& e) const {
    return elapsedMicros_ >= e.appearsAtMicros && elapsedMicros_ < e.disappearsAtMicros;
  }
  const SimScreen& screen() const { return screen_; }
  bool accessibilityTrusted() const { return trusted_; }
  std::optional<int32_t> frontmostPid() const { return frontmostPid_; }
  platform::Point pointer() const { return pointer_; }
  const SimCaptureBehaviour& capture() const { return capture_; }
  const SimEventFaults& eventFaults() const { return eventFaults_; }
  const SimSystem& system() const { return system_; }

  // --- changes (each is written back on commit) ---
  void setFrontmostPid(std::optional<int32_t> pid);
  void setHidden(int32_t pid, bool hidden);
  void setPointer(platform::Point point);
  // Sets a text attribute of an element, in the model and in the file.
  void setElementAttribute(size_t index, const std::string& attribute, const std::string& text);
  // Applies the application's activation behaviour; false when it refuses. A delayed
  // activation takes effect when the clock passes its time, also in a later command.
  bool requestActivation(int32_t pid);

  // --- simulated Open panels (sim_open_panel.cpp) ---
  // Performs a panel's reaction to an action on one of its elements.
  void openPanelAction(size_t index, const std::string& action);
  // A pid-targeted event reaching an application with a panel.
  void openPanelInput(int32_t pid, const platform::Event& event);
  // A panel's list given its selected rows or items; false for any other element.
  bool openPanelSetSelection(size_t index, const std::string& attribute, const std::vector<size_t>& items);
  // The name the panel (and the file manager) shows for a path: "displayNames" of the
  // file, else the name with an ".app" extension hidden.
  std::string displayName(const std::string& path) const;
  // The element that now has this hash (a panel rebuilds its elements as it changes).
  std::optional<size_t> indexOfHash(uint64_t hash) const;

  // --- the clipboard (sim_clipboard.cpp) ---
  const std::optional<SimClipboard>& clipboard() const { return clipboard_; }
  // Puts the text there as plain text, in the model and the file; false when the
  // desktop says the pasteboard refuses (nothing changes then).
  bool writeClipboardText(const std::string& text);
  // With a clipboard, the focused element of an application (its application element's
  // AXFocusedUIElement, when AXValue is settable) takes the keys posted to its process,
  // as editTextWithKey says; an application with an Open panel keeps the panel's own
  // handling. A selection lasts while this process runs.
  void clipboardInput(int32_t pid, const platform::Event& event);

  // --- clock ---
  std::chrono::system_clock::time_point clockStart() const { return clockStart_; }
  std::chrono::system_clock::time_point now() const;
  int64_t elapsedMicroseconds() const { return elapsedMicros_; }
  // The longest the virtual clock runs: a file past it does not load, so the clock never
  // goes there. Advancing past it throws DesktopError.
  static constexpr int64_t maxElapsedMicros = 1'000'000'000'000'000;  // 1e9 s
  void advance(double seconds);
  void advanceTo(int64_t micros);
  // The time `seconds` from now, or maxElapsedMicros + 1 when that is past the clock's end.
  int64_t deadlineAfter(double seconds) const;
  // The earliest time something is due (a late answer, an activation, a panel's entries).
  std::optional<int64_t> nextEventMicros() const;

  // --- event log ---
  // One line: virtual time, target, kind, fields. Appended to the log file on commit.
  void log(const std::string& target, const std::string& kind, const std::vector<EventField>& fields = {});
  const std::vector<std::string>& pendingLogLines() const { return pendingLog_; }

  // --- accessibility messaging time-out (global, as set on the system-wide element) ---
  double messagingTimeout() const { return messagingTimeout_; }
  void setMessagingTimeout(double seconds) { messagingTimeout_ = seconds > 0 ? seconds : defaultMessagingTimeout; }
  static constexpr double defaultMessagingTimeout = 6.0;  // the system's own default

  // --- accessibility round trips ---
  void countRoundTrip() { ++roundTrips_; }
  uint64_t roundTripsThisProcess() const { return roundTrips_; }
  uint64_t roundTripsTotal() const { return roundTripsBefore_ + roundTrips_; }

  // Runs `fire` once the virtual clock has advanced `seconds` further (a late answer of
  // an asynchronous call). Only within this process.
  void schedule(double seconds, std::function<void()> fire);
  struct Scheduled {
    int64_t atMicros;
    std::function<void()> fire;
  };
  // What is still to fire, handed from a released desktop to the one read again.
  std::vector<Scheduled> takeScheduled() { return std::move(scheduled_); }
  void adoptScheduled(std::vector<Scheduled> scheduled) { scheduled_ = std::move(scheduled); }
  // Whether the desktop came from a file (and so can be released and read again).
  bool fromFile() const { return fromFile_; }

  // Writes the changed state back atomically and appends the pending log lines.
  // Throws DesktopError when the file cannot be written.
  void commit();

  const std::string& path() const { return path_; }
  const nlohmann::ordered_json& document() const { return document_; }

 private:
  SimDesktop() = default;
  void parse();
  void readText(const std::string& text);

  struct PanelSlot {
    SimOpenPanelConfig config;
    SimOpenPanelState state;
    std::string jsonPointer;
    size_t hostIndex = 0;          // the window (sheet) or application element (window)
    StoredArray hostChildren;      // the host's own AXChildren
    StoredArray hostWindows;       // the application's own AXWindows (window presentation)
  };
  void parseClipboard(const nlohmann::ordered_json& json);
  void parseOpenPanel(const nlohmann::ordered_json& json, const std::string& where, const std::string& pointer,
                      int32_t pid, size_t appIndex);
  void rebuildOpenPanels();
  // The node of the file at `pointer` (one the load recorded), found token by token: indexing
  // with a json_pointer makes nlohmann 3.11 instantiate a deprecated string-pointer comparison.
  nlohmann::ordered_json& documentNode(const std::string& pointer);
  void savePanel(size_t panel);
  std::vector<SimPanelEntry> panelEntries(const PanelSlot& slot) const;
  void panelShow(size_t panel, const std::string& folder, const std::optional<std::string>& selection,
                 bool remember = true);
  void panelConfirm(size_t panel);
  // Opening a folder entry: shows it, or another folder while wrong turns are due.
  void panelOpenFolder(size_t panel, const std::string& folder);
  bool panelChooseEnabled(const PanelSlot& slot) const;
  // Whether the panel is on screen at the desktop's time (appearsAfter, closesAfter).
  bool panelShown(const PanelSlot& slot) const;
  // Whether something the panel shows changes between the two times.
  bool panelChangesBetween(const PanelSlot& slot, int64_t before, int64_t after) const;
  // A key that no panel takes: the host text area's, when there is one.
  void hostTextInput(size_t panel, const platform::Event& event);
  // The real path of a folder the panel shows, its letter case as on disk.
  std::string panelRealPath(const PanelSlot& slot, const std::string& path) const;
  // Scrolls the file list just enough to show the entry.
  void panelScrollTo(PanelSlot& slot, const std::string& path) const;
  std::vector<PanelSlot> panels_;
  size_t staticElements_ = 0;
  std::map<std::string, std::string> displayNames_;
  std::map<uint64_t, size_t> hashIndex_;
  std::map<std::string, size_t> ids_;
  std::vector<Scheduled> scheduled_;
  bool fromFile_ = false;
  std::string path_;
  std::string eventLogPath_;
  int lockDescriptor_ = -1;
  nlohmann::ordered_json document_;
  bool dirty_ = false;

  std::optional<SimClipboard> clipboard_;
  std::set<size_t> selectedAll_;  // focused elements whose text is selected (Cmd+A)

  std::vector<SimApp> apps_;
  std::vector<SimElement> elements_;
  std::vector<platform::WindowInfo> windows_;
  std::vector<SimPresence> windowPresence_;  // beside windows_
  std::set<int64_t> presenceChanges_;        // when an element or window comes or goes
  SimScreen screen_;
  SimCaptureBehaviour capture_;
  SimEventFaults eventFaults_;
  SimSystem system_;
  bool trusted_ = true;
  std::optional<int32_t> frontmostPid_;
  platform::Point pointer_;
  struct PendingActivation {
    int32_t pid;
    int64_t atMicros;
  };
  std::optional<PendingActivation> pendingActivation_;
  std::chrono::system_clock::time_point clockStart_;
  int64_t elapsedMicros_ = 0;
  std::vector<std::string> pendingLog_;
  double messagingTimeout_ = defaultMessagingTimeout;
  uint64_t roundTrips_ = 0;
  uint64_t roundTripsBefore_ = 0;
};

// The clock's start when the file names none.
inline constexpr const char* defaultDesktopClockStart = "2026-01-01T00:00:00Z";

// A URL value as the platform hands it out: for a file URL, also its file-system path.
platform::AXURL simURL(const std::string& absoluteString);

// Formats one event-log line (exposed for tests of the format itself).
std::string formatEventLine(int64_t elapsedMicros, const std::string& target, const std::string& kind,
                            const std::vector<EventField>& fields);

}  // namespace tavlin::sim
