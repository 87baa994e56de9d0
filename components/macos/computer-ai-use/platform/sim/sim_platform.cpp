#include "platform/sim/sim_platform.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <thread>

#include "common/files.h"
#include "common/unicode.h"
#include "platform/sim/sim_capture.h"
#include "imaging/png_file.h"

namespace tavlin::sim {

using namespace platform;

namespace {

// Element handles carry the desktop's element index and its hash.
struct SimElementImpl final : ElementImpl {
  SimElementImpl(size_t i, uint64_t h) : index(i), hash(h) {}
  mutable size_t index;  // refreshed when the element moved (a rebuilt Open panel)
  uint64_t hash;
};

const SimElementImpl* simElement(const Element& e) { return dynamic_cast<const SimElementImpl*>(e.impl()); }

std::string hex(uint64_t v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "0x%llx", static_cast<unsigned long long>(v));
  return buf;
}

std::string number(double v) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.15g", v);
  return buf;
}


const char* eventKind(EventType type) {
  switch (type) {
    case EventType::null: return "null";
    case EventType::leftMouseDown: return "left-mouse-down";
    case EventType::leftMouseUp: return "left-mouse-up";
    case EventType::rightMouseDown: return "right-mouse-down";
    case EventType::rightMouseUp: return "right-mouse-up";
    case EventType::mouseMoved: return "mouse-moved";
    case EventType::leftMouseDragged: return "left-mouse-dragged";
    case EventType::rightMouseDragged: return "right-mouse-dragged";
    case EventType::keyDown: return "key-down";
    case EventType::keyUp: return "key-up";
    case EventType::flagsChanged: return "flags-changed";
    case EventType::scrollWheel: return "scroll-wheel";
    case EventType::otherMouseDown: return "other-mouse-down";
    case EventType::otherMouseUp: return "other-mouse-up";
    case EventType::otherMouseDragged: return "other-mouse-dragged";
  }
  return "unknown";
}

bool isMouseEvent(EventType t) {
  switch (t) {
    case EventType::leftMouseDown:
    case EventType::leftMouseUp:
    case EventType::rightMouseDown:
    case EventType::rightMouseUp:
    case EventType::mouseMoved:
    case EventType::leftMouseDragged:
    case EventType::rightMouseDragged:
    case EventType::otherMouseDown:
    case EventType::otherMouseUp:
    case EventType::otherMouseDragged:
      return true;
    default:
      return false;
  }
}

std::vector<EventField> eventFields(const Event& e) {
  std::vector<EventField> f;
  if (isMouseEvent(e.type)) {
    f.push_back({"x", number(e.location.x)});
    f.push_back({"y", number(e.location.y)});
    f.push_back({"button", std::to_string(static_cast<uint32_t>(e.button))});
    if (e.clickState) f.push_back({"clickState", std::to_string(*e.clickState)});
  } else if (e.type == EventType::keyDown || e.type == EventType::keyUp || e.type == EventType::flagsChanged) {
    f.push_back({"keyCode", std::to_string(e.keyCode)});
    if (e.unicodeString) f.push_back({"text", common::utf8FromUTF16(*e.unicodeString)});
  } else if (e.type == EventType::scrollWheel) {
    f.push_back({"unit", e.scrollUnit == ScrollUnit::pixel ? "pixel" : "line"});
    f.push_back({"wheels", std::to_string(e.wheelCount)});
    f.push_back({"wheel1", std::to_string(e.wheel1)});
    f.push_back({"wheel2", std::to_string(e.wheel2)});
    if (e.wheelCount > 2) f.push_back({"wheel3", std::to_string(e.wheel3)});
  }
  if (e.flags) f.push_back({"flags", hex(*e.flags)});
  return f;
}

}  // namespace

// ---------------------------------------------------------------------------

class SimAccessibilityPort final : public Accessibility {
 public:
  explicit SimAccessibilityPort(SimPlatform& p) : p_(p) {}

  bool isProcessTrusted(bool prompt) override {
    SimDesktop& d = p_.desktop();
    if (prompt && !d.accessibilityTrusted()) d.log("system", "accessibility-prompt");
    return d.accessibilityTrusted();
  }

  Element applicationElement(int32_t pid) override {
    SimDesktop& d = p_.desktop();
    const SimApp* app = d.app(pid);
    if (app && app->uiElement) return handle(d, *app->uiElement);
    // Like AXUIElementCreateApplication, a handle is made for any pid; reads of an
    // application without a tree fail as an unreachable process would.
    return Element(std::make_shared<SimElementImpl>(SIZE_MAX, 0x8000000000000000ull | static_cast<uint32_t>(pid)));
  }

  Element systemWideElement() override {
    return Element(std::make_shared<SimElementImpl>(SIZE_MAX, systemWideHash));
  }

  AXCopyResult copyAttributeValue(const Element& element, const std::string& attribute) override {
    SimDesktop& d = p_.desktop();
    if (AXError error = answers(d, element); error != AXError::success) return {error, std::nullopt};
    return read(d, element, attribute);
  }

  AXError copyMultipleAttributeValues(const Element& element, const std::vector<std::string>& attributes,
                                      std::vector<AXCopyResult>& results) override {
    SimDesktop& d = p_.desktop();
    results.clear();
    if (AXError error = answers(d, element); error != AXError::success) return error;
    const SimElement* e = resolve(d, element);
    if (!e) return AXError::invalidUIElement;
    for (const auto& name : attributes) results.push_back(read(d, element, name));
    return AXError::success;
  }

  AXCopyResult copyActionNames(const Element& element) override {
    SimDesktop& d = p_.desktop();
    if (AXError error = answers(d, element); error != AXError::success) return {error, std::nullopt};
    const SimElement* e = resolve(d, element);
    if (!e) return {AXError::invalidUIElement, std::nullopt};
    AXArray names;
    for (const auto& a : e->actions) names.push_back({a});
    return {AXError::success, AXAttributeValue{std::move(names)}};
  }

  AXError isAttributeSettable(const Element& element, const std::string& attribute, bool& settable) override {
    SimDesktop& d = p_.desktop();
    settable = false;
    if (AXError error = answers(d, element); error != AXError::success) return error;
    const SimElement* e = resolve(d, element);
    if (!e) return AXError::invalidUIElement;
    for (const auto& s : e->settable) settable |= s == attribute;
    return AXError::success;
  }

  AXError performAction(const Element& element, const std::string& action) override {
    SimDesktop& d = p_.desktop();
    if (AXError error = answers(d, element); error != AXError::success) return error;
    const SimElement* e = resolve(d, element);
    if (!e) return AXError::invalidUIElement;
    bool supported = false;
    for (const auto& a : e->actions) supported |= a == action;
    if (!supported) return AXError::actionUnsupported;
    auto failure = e->actionErrors.find(action);
    AXError result = failure == e->actionErrors.end() ? AXError::success : failure->second;
    d.log(target(*e), "perform-action",
          {{"element", label(*e)}, {"action", action}, {"result", std::to_string(static_cast<int32_t>(result))}});
    if (result == AXError::success) d.openPanelAction(simElement(element)->index, action);
    return result;
  }

  AXError setAttributeValue(const Element& element, const std::string& attribute, const std::string& text) override {
    SimDesktop& d = p_.desktop();
    if (AXError error = answers(d, element); error != AXError::success) return error;
    const SimElement* e = resolve(d, element);
    if (!e) return AXError::invalidUIElement;
    bool settable = false;
    for (const auto& s : e->settable) settable |= s == attribute;
    if (!settable) return AXError::attributeUnsupported;
    d.log(target(*e), "set-value", {{"element", label(*e)}, {"attribute", attribute}, {"value", text}});
    d.setElementAttribute(simElement(element)->index, attribute, text);
    return AXError::success;
  }

  AXError setAttributeElements(const Element& element, const std::string& attribute,
                               const std::vector<Element>& elements) override {
    SimDesktop& d = p_.desktop();
    if (AXError error = answers(d, element); error != AXError::success) return error;
    const SimElement* e = resolve(d, element);
    if (!e) return AXError::invalidUIElement;
    std::vector<size_t> indices;
    for (const Element& item : elements) {
      const SimElement* resolved = resolve(d, item);
      if (!resolved) return AXError::illegalArgument;
      indices.push_back(simElement(item)->index);
    }
    d.log(target(*e), "set-elements", {{"element", label(*e)}, {"attribute", attribute},
                                       {"count", std::to_string(indices.size())}});
    // Only a simulated panel's file list takes its selection this way.
    return d.openPanelSetSelection(simElement(element)->index, attribute, indices) ? AXError::success
                                                                                  : AXError::attributeUnsupported;
  }

  uint64_t hash(const Element& element) override {
    const SimElementImpl* e = simElement(element);
    return e ? e->hash : 0;
  }

  bool sameElement(const Element& a, const Element& b) override {
    const SimElementImpl* left = simElement(a);
    const SimElementImpl* right = simElement(b);
    if (!left || !right) return left == right;
    const SimDesktop& d = p_.desktop();
    const SimElement* l = resolve(d, a);
    const SimElement* r = resolve(d, b);
    // Handles of elements without a tree (an application's that has none, the
    // system-wide one) are equal by what they were made for.
    if (!l || !r) return !l && !r && left->index == right->index && left->hash == right->hash;
    return l == r;
  }

  AXError setMessagingTimeout(const Element& element, float seconds) override {
    if (seconds < 0) return AXError::illegalArgument;
    const SimElementImpl* e = simElement(element);
    // Only the system-wide element's time-out (the global one) is simulated.
    if (e && e->hash == systemWideHash) p_.desktop().setMessagingTimeout(seconds);
    return AXError::success;
  }

 private:
  static constexpr uint64_t systemWideHash = 0x4000000000000000ull;

  // Counts the round trip; an application that does not answer costs the messaging
  // time-out of virtual time and fails the call.
  // success, or the error every call to a gone or silent application gets.
  static AXError answers(SimDesktop& d, const Element& element) {
    d.countRoundTrip();
    const SimElement* e = resolve(d, element);
    if (!e) return AXError::success;
    SimApp* app = d.app(e->pid);
    if (!app) return AXError::success;
    if (app->quitsAfterCalls) {
      if (*app->quitsAfterCalls == 0) return AXError::invalidUIElement;  // it has quit: its elements are gone
      --*app->quitsAfterCalls;
    }
    if (app->responds) return AXError::success;
    d.advance(d.messagingTimeout());
    return AXError::cannotComplete;
  }

  static Element handle(const SimDesktop& d, size_t index) {
    return Element(std::make_shared<SimElementImpl>(index, d.element(index).hash));
  }

  // The element a handle stands for: by index while the hash still matches, else the
  // element that now has its hash (an Open panel rebuilds its elements); none when the
  // element is gone.
  static const SimElement* resolve(const SimDesktop& d, const Element& element) {
    const SimElementImpl* e = simElement(element);
    if (!e) return nullptr;
    auto usable = [&d](size_t index) {
      const SimElement& found = d.element(index);
      return found.invalid || !d.present(found) ? nullptr : &found;
    };
    if (e->index < d.elements().size() && d.element(e->index).hash == e->hash) return usable(e->index);
    if (auto index = d.indexOfHash(e->hash)) {
      e->index = *index;
      return usable(*index);
    }
    return nullptr;
  }

  static std::string target(const SimElement& e) { return "pid:" + std::to_string(e.pid); }
  static std::string label(const SimElement& e) { return e.id.empty() ? hex(e.hash) : e.id; }

  static AXAttributeValue convert(const SimDesktop& d, const StoredValue& v) {
    return std::visit(
        [&](const auto& x) -> AXAttributeValue {
          using T = std::decay_t<decltype(x)>;
          if constexpr (std::is_same_v<T, ElementIndex>) {
            return {handle(d, x.index)};
          } else if constexpr (std::is_same_v<T, StoredArray>) {
            AXArray items;
            items.reserve(x.size());
            for (const auto& item : x) {
              // An element that is not there (yet, or any more) is not listed.
              const auto* listed = std::get_if<ElementIndex>(&item.storage);
              if (listed && !d.present(d.element(listed->index))) continue;
              items.push_back(convert(d, item));
            }
            return {std::move(items)};
          } else {
            return {x};
          }
        },
        v.storage);
  }

  static AXCopyResult read(const SimDesktop& d, const Element& element, const std::string& attribute) {
    const SimElement* e = resolve(d, element);
    if (!e) return {AXError::invalidUIElement, std::nullopt};
    if (auto err = e->readErrors.find(attribute); err != e->readErrors.end()) return {err->second, std::nullopt};
    auto it = e->attributes.find(attribute);
    if (it == e->attributes.end()) {
      // As the platform answers: an attribute the element has, without a value, differs
      // from one it does not have at all.
      return {e->emptyAttributes.count(attribute) ? AXError::noValue : AXError::attributeUnsupported, std::nullopt};
    }
    const auto* single = std::get_if<ElementIndex>(&it->second.storage);
    if (single && !d.present(d.element(single->index))) return {AXError::noValue, std::nullopt};
    return {AXError::success, convert(d, it->second)};
  }

  SimPlatform& p_;
};

class SimEventsPort final : public Events {
 public:
  explicit SimEventsPort(SimPlatform& p) : p_(p) {}

  std::optional<Event> createMouseEvent(EventType type, Point location, MouseButtonCode button) override {
    if (p_.desktop().eventFaults().mouse) return std::nullopt;
    Event e;
    e.type = type;
    e.location = location;
    e.button = button;
    return e;
  }
  std::optional<Event> createKeyboardEvent(uint16_t keyCode, bool keyDown) override {
    if (p_.desktop().eventFaults().keyboard) return std::nullopt;
    Event e;
    e.type = keyDown ? EventType::keyDown : EventType::keyUp;
    e.keyCode = keyCode;
    e.keyDown = keyDown;
    return e;
  }
  std::optional<Event> createScrollWheelEvent(ScrollUnit unit, uint32_t wheelCount, int32_t wheel1, int32_t wheel2,
                                              int32_t wheel3) override {
    if (p_.desktop().eventFaults().scroll) return std::nullopt;
    Event e;
    e.type = EventType::scrollWheel;
    e.scrollUnit = unit;
    e.wheelCount = wheelCount;
    e.wheel1 = wheel1;
    e.wheel2 = wheel2;
    e.wheel3 = wheel3;
    return e;
  }
  void post(EventTap tap, const Event& event) override {
    SimDesktop& d = p_.desktop();
    const char* target = tap == EventTap::hid ? "hid" : tap == EventTap::session ? "session" : "annotated-session";
    d.log(target, eventKind(event.type), eventFields(event));
    // Session-wide mouse events move the pointer, as on a real desktop.
    if (isMouseEvent(event.type)) d.setPointer(event.location);
  }
  void postToPid(int32_t pid, const Event& event) override {
    SimDesktop& d = p_.desktop();
    d.log("pid:" + std::to_string(pid), eventKind(event.type), eventFields(event));
    // Some applications come forward when a click reaches them, even a targeted one.
    const SimApp* app = d.app(pid);
    if (app && app->takesFocusOnClick && event.type == EventType::leftMouseDown && d.frontmostPid() != pid) {
      d.setFrontmostPid(pid);
    }
    d.openPanelInput(pid, event);
    d.clipboardInput(pid, event);
  }
  bool warpMouseCursor(Point point) override {
    SimDesktop& d = p_.desktop();
    d.log("system", "warp-cursor", {{"x", number(point.x)}, {"y", number(point.y)}});
    d.setPointer(point);
    return true;
  }
  Point pointerLocation() override { return p_.desktop().pointer(); }

 private:
  SimPlatform& p_;
};

class SimWorkspacePort final : public Workspace {
 public:
  explicit SimWorkspacePort(SimPlatform& p) : p_(p) {}

  // As the macOS adapter does: the run loop turns once before the workspace is read, so
  // that applications launched since this process started are there.
  std::vector<RunningApplication> runningApplications() override {
    p_.noteRunLoopTurned();
    std::vector<RunningApplication> out;
    for (const SimApp& a : p_.desktop().apps()) {
      if (listed(a)) out.push_back(a.info);
    }
    return out;
  }
  std::optional<RunningApplication> frontmostApplication() override {
    p_.noteRunLoopTurned();
    SimDesktop& d = p_.desktop();
    if (!d.frontmostPid()) return std::nullopt;
    const SimApp* a = d.app(*d.frontmostPid());
    if (!a || !listed(*a)) return std::nullopt;
    return a->info;
  }
  bool unhide(int32_t pid) override {
    SimDesktop& d = p_.desktop();
    SimApp* a = d.app(pid);
    d.log("pid:" + std::to_string(pid), "unhide");
    if (!a || a->info.terminated || a->unhideFails) return false;
    d.setHidden(pid, false);
    return true;
  }
  bool activate(int32_t pid, uint64_t options) override {
    SimDesktop& d = p_.desktop();
    d.log("pid:" + std::to_string(pid), "activate", {{"options", hex(options)}});
    return d.requestActivation(pid);
  }
  std::string displayName(const std::string& path) override { return p_.desktop().displayName(path); }
  bool listed(const SimApp& a) const { return !a.listedAfterRunLoopTurns || p_.runLoopTurned(); }
  std::optional<ScreenInfo> mainScreen() override {
    const SimScreen& s = p_.desktop().screen();
    return ScreenInfo{{s.width, s.height}, s.backingScale};
  }
  std::optional<std::string> userCachesDirectory() override {
    return common::appendPathComponent(homeDirectory(), "Library/Caches");
  }
  std::string homeDirectory() override { return p_.settings().homeDirectory; }
  std::string mainBundlePath() override {
    // An executable inside "X.app/Contents/MacOS/" belongs to the bundle X.app; any
    // other executable's bundle is the folder that holds it.
    const std::string& exe = p_.settings().executablePath;
    std::string folder = common::deletingLastPathComponent(exe);
    std::string contents = common::deletingLastPathComponent(folder);
    std::string bundle = common::deletingLastPathComponent(contents);
    if (common::lastPathComponent(folder) == "MacOS" && common::lastPathComponent(contents) == "Contents" &&
        bundle.ends_with(".app")) {
      return bundle;
    }
    return folder;
  }

 private:
  SimPlatform& p_;
};

class SimWindowListPort final : public WindowList {
 public:
  explicit SimWindowListPort(SimPlatform& p) : p_(p) {}

  std::optional<std::vector<WindowInfo>> copyWindowInfo(uint32_t options, uint32_t relativeToWindow) override {
    std::vector<WindowInfo> out;
    for (const WindowInfo& w : p_.desktop().windows()) {
      if ((options & windowlist::includingWindow) && w.number == relativeToWindow) {
        out.push_back(w);
        continue;
      }
      if ((options & windowlist::onScreenOnly) && !w.onscreen) continue;
      if ((options & windowlist::excludeDesktopElements) && w.layer < 0) continue;
      if (options & (windowlist::includingWindow | windowlist::onScreenAboveWindow | windowlist::onScreenBelowWindow)) {
        continue;  // relative listings are not simulated beyond the window itself
      }
      out.push_back(w);
    }
    return out;
  }

 private:
  SimPlatform& p_;
};

// An image the simulated ScreenCaptureKit drew.
struct SimImage final : CapturedImage {
  explicit SimImage(Canvas c) : canvas(std::move(c)) {}
  Canvas canvas;
};

// A window the simulated ScreenCaptureKit listed: what a capture of it is drawn from.
struct SimShareableWindow final : platform::ShareableWindowObject {
  explicit SimShareableWindow(uint32_t n) : number(n) {}
  uint32_t number;
};

// ScreenCaptureKit as the desktop says it answers: at once, never, late (the answer
// comes when the virtual clock reaches it), or refused for want of permission.
class SimScreenCapturePort final : public ScreenCapture {
 public:
  explicit SimScreenCapturePort(SimPlatform& p) : p_(p) {}

  void requestShareableWindows(bool excludeDesktopWindows, bool onScreenWindowsOnly,
                               ShareableWindowsCompletion done) override {
    SimDesktop& d = p_.desktop();
    p_.noteShareableContentRequest();
    d.log("system", "sck-shareable-content");
    std::vector<ShareableWindow> windows;
    for (const WindowInfo& w : d.windows()) {
      if (onScreenWindowsOnly && !w.onscreen) continue;
      if (excludeDesktopWindows && w.layer < 0) continue;
      ShareableWindow s;
      s.windowID = w.number;
      s.frame = w.bounds;
      s.title = w.name;
      s.windowLayer = w.layer;
      s.onScreen = w.onscreen;
      s.ownerPID = w.ownerPID;
      s.object = std::make_shared<const SimShareableWindow>(w.number);
      if (const SimApp* a = d.app(w.ownerPID)) {
        s.ownerBundleIdentifier = a->info.bundleIdentifier;
        s.ownerName = a->info.localizedName;
      }
      windows.push_back(std::move(s));
    }
    answer(d.capture().shareableContent, "sck-shareable-content",
           [done, windows]() mutable { done({}, std::move(windows)); },
           [done](CaptureStatus failed) { done(std::move(failed), {}); });
  }

  void requestWindowImage(const CaptureRequest& request, WindowImageCompletion done) override {
    SimDesktop& d = p_.desktop();
    auto fail = [done](CaptureStatus failed) { done(std::move(failed), nullptr); };
    // As on macOS, only a window object this port listed can be captured.
    const auto* window = dynamic_cast<const SimShareableWindow*>(request.window.get());
    if (!window) {
      fail({CaptureStatus::Kind::failed, "no shareable window to capture"});
      return;
    }
    d.log("system", "sck-capture",
          {{"window", std::to_string(window->number)},
           {"width", std::to_string(request.pixelWidth)},
           {"height", std::to_string(request.pixelHeight)}});
    const auto& gone = d.capture().vanishing;
    std::optional<Canvas> canvas;
    if (std::find(gone.begin(), gone.end(), window->number) == gone.end()) {
      canvas = drawWindow(d, window->number, request.pixelWidth, request.pixelHeight, p_.font());
    }
    if (!canvas) {
      if (d.capture().windowCapture.kind == SimAnswer::Kind::never) return;
      fail({CaptureStatus::Kind::failed,
            "The operation couldn\u2019t be completed. (com.apple.ScreenCaptureKit.SCStreamErrorDomain error -3815.)"});
      return;
    }
    auto image = std::make_shared<const SimImage>(std::move(*canvas));
    answer(d.capture().windowCapture, "sck-capture", [done, image] { done({}, image); }, fail);
  }

  CaptureStatus writePNG(const CapturedImage& image, const std::string& path) override {
    const auto* sim = dynamic_cast<const SimImage*>(&image);
    p_.desktop().log("system", "write-png",
                     {{"width", std::to_string(sim ? sim->canvas.width() : 0)},
                      {"height", std::to_string(sim ? sim->canvas.height() : 0)}});
    if (!sim || !imaging::writePNG(sim->canvas, path)) {
      return {CaptureStatus::Kind::failed, "failed to write png to " + path};
    }
    return {};
  }

  // "refused" stands for a user who has not granted Screen Recording, unless the
  // desktop gives the preflight's answer itself.
  bool screenRecordingAllowed() override {
    const SimDesktop& d = p_.desktop();
    if (d.capture().preflight) return *d.capture().preflight;
    return d.capture().shareableContent.kind != SimAnswer::Kind::refused &&
           d.capture().windowCapture.kind != SimAnswer::Kind::refused;
  }

  std::optional<PixelSize> imagePixelSize(const std::string& path) override {
    auto size = imaging::readPNGSize(path);
    if (!size) return std::nullopt;
    return PixelSize{size->first, size->second};
  }

 private:
  template <typename Succeed, typename Fail>
  void answer(const SimAnswer& how, const std::string& kind, Succeed succeed, Fail fail) {
    SimDesktop& d = p_.desktop();
    switch (how.kind) {
      case SimAnswer::Kind::atOnce:
        succeed();
        break;
      case SimAnswer::Kind::never:
        break;
      case SimAnswer::Kind::refused:
        fail({CaptureStatus::Kind::permissionDenied, "The user declined TCCs for application, window, display capture"});
        break;
      case SimAnswer::Kind::late:
        d.schedule(how.delaySeconds, [this, kind, succeed]() mutable {
          p_.desktop().log("system", kind + "-answered-late");
          succeed();
        });
        break;
    }
  }

  SimPlatform& p_;
};

// Real processes, except the screenshot tools, which the simulated desktop stands in for.
class SimProcessesPort final : public Processes {
 public:
  explicit SimProcessesPort(SimPlatform& p) : p_(p) {}
  ProcessResult run(const ProcessRequest& request) override {
    if (request.executable == "/usr/sbin/screencapture" || request.executable == "/bin/zsh") {
      if (auto result = runSimulatedTool(p_.desktop(), request, p_.font())) return *result;
    }
    if (request.executable == "/bin/zsh" && !request.arguments.empty()) {
      SimDesktop& d = p_.desktop();
      std::string joined;
      for (size_t i = 1; i < request.arguments.size(); ++i) joined += (i > 1 ? " " : "") + request.arguments[i];
      d.log("system", "run", {{"program", request.arguments[0]}, {"arguments", joined}});
    }
    // The child may use the same desktop: it gets the file, written back, and the lock;
    // this process reads the desktop again when it next needs it.
    p_.checkpoint();
    if (!request.whileWaiting) return real_.run(request);
    // The caller's run loop is the virtual clock, which the child may hold with the
    // desktop: the turns are counted while it runs, and the clock catches up after.
    ProcessRequest counted = request;
    int64_t turns = 0;
    counted.whileWaiting = [&turns] { ++turns; };
    ProcessResult result = real_.run(counted);
    if (p_.hasDesktop()) p_.desktop().advance(static_cast<double>(turns) * runLoopTurnSeconds);
    return result;
  }
  // How long the run loop turns between two looks at a child (the updater's step).
  static constexpr double runLoopTurnSeconds = 0.05;

 private:
  SimPlatform& p_;
  PosixProcesses real_;
};

class SimClockPort final : public Clock {
 public:
  explicit SimClockPort(SimPlatform& p) : p_(p) {}
  TimePoint now() override { return p_.desktop().now(); }
  void sleep(double seconds) override {
    p_.noteRunLoopTurned();
    p_.desktop().advance(seconds);
  }
  void runLoop(double seconds) override {
    p_.noteRunLoopTurned();
    p_.desktop().advance(seconds);
  }
  // Virtual time jumps from one due event to the next, so a long wait costs no more than a
  // short one. What nothing in virtual time can end (a signal, another thread) gets a
  // moment of real time before the deadline comes.
  bool waitUntil(const std::function<bool()>& ready, double seconds) override {
    p_.noteRunLoopTurned();
    int64_t deadline = p_.desktop().deadlineAfter(seconds);
    for (;;) {
      if (ready()) return true;
      SimDesktop& d = p_.desktop();
      if (d.elapsedMicroseconds() >= deadline) return false;
      std::optional<int64_t> next = d.nextEventMicros();
      if (next && *next < deadline) {
        d.advanceTo(*next);
        continue;
      }
      auto realEnd = std::chrono::steady_clock::now() +
                     std::chrono::microseconds(std::min<int64_t>(deadline - d.elapsedMicroseconds(), outsidePauseMicros));
      while (std::chrono::steady_clock::now() < realEnd) {
        if (ready()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
      if (ready()) return true;
      p_.desktop().advanceTo(deadline);
    }
  }
  // Bounds an endless watch to a few captures per real second.
  static constexpr int64_t outsidePauseMicros = 200'000;

 private:
  SimPlatform& p_;
};

// The desktop's clipboard; a desktop without one has an empty pasteboard.
class SimPasteboardPort final : public Pasteboard {
 public:
  explicit SimPasteboardPort(SimPlatform& p) : p_(p) {}
  PasteboardContents read() override {
    const auto& board = p_.desktop().clipboard();
    if (!board) return {};
    return {board->text, board->types, board->changeCount};
  }
  bool writeText(const std::string& text) override { return p_.desktop().writeClipboardText(text); }

 private:
  SimPlatform& p_;
};

// The desktop's answers; reading them is not an event.
class SimSystemInfoPort final : public SystemInfo {
 public:
  explicit SimSystemInfoPort(SimPlatform& p) : p_(p) {}
  CodeSignature codeSignature() override { return p_.desktop().system().codeSignature; }
  std::optional<std::string> operatingSystemVersion() override { return p_.desktop().system().version; }

 private:
  SimPlatform& p_;
};

struct SimPlatform::Ports {
  explicit Ports(SimPlatform& p)
      : accessibility(p),
        events(p),
        workspace(p),
        windowList(p),
        capture(p),
        clock(p),
        processes(p),
        pasteboard(p),
        systemInfo(p) {}
  SimAccessibilityPort accessibility;
  SimEventsPort events;
  SimWorkspacePort workspace;
  SimWindowListPort windowList;
  SimScreenCapturePort capture;
  SimClockPort clock;
  SimProcessesPort processes;
  HeadlessStatusBar statusBar;
  SimPasteboardPort pasteboard;
  SimSystemInfoPort systemInfo;
};

SimPlatform::SimPlatform(SimSettings settings)
    : settings_(std::move(settings)), ports_(std::make_unique<Ports>(*this)) {}

SimPlatform::SimPlatform(SimDesktop desktop, SimSettings settings)
    : settings_(std::move(settings)), desktop_(std::move(desktop)), ports_(std::make_unique<Ports>(*this)) {}

SimPlatform::~SimPlatform() = default;

Accessibility& SimPlatform::accessibility() { return ports_->accessibility; }
Events& SimPlatform::events() { return ports_->events; }
Workspace& SimPlatform::workspace() { return ports_->workspace; }
WindowList& SimPlatform::windowList() { return ports_->windowList; }
ScreenCapture& SimPlatform::screenCapture() { return ports_->capture; }
Clock& SimPlatform::clock() { return ports_->clock; }
Processes& SimPlatform::processes() { return ports_->processes; }
StatusBar& SimPlatform::statusBar() { return ports_->statusBar; }
Pasteboard& SimPlatform::pasteboard() { return ports_->pasteboard; }
SystemInfo& SimPlatform::systemInfo() { return ports_->systemInfo; }

SimDesktop& SimPlatform::desktop() {
  if (!desktop_) {
    if (!settings_.desktopPath || settings_.desktopPath->empty()) {
      throw DesktopError(
          "No simulated desktop: set TAVLIN_SIM_DESKTOP to a desktop file (see docs/desktop-format.md)");
    }
    std::string log = settings_.eventLogPath.value_or(*settings_.desktopPath + ".log");
    desktop_.emplace(SimDesktop::load(*settings_.desktopPath, log, settings_.lockWaitSeconds, interrupted_));
    desktop_->adoptScheduled(std::move(released_));
    released_.clear();
  }
  return *desktop_;
}

void SimPlatform::commit() {
  if (desktop_) desktop_->commit();
}

void SimPlatform::checkpoint() {
  if (!desktop_) return;
  desktop_->commit();
  // A desktop from a file is released (its lock with it) and read again when next used.
  if (desktop_->fromFile()) {
    released_ = desktop_->takeScheduled();
    desktop_.reset();
  }
}

imaging::Font* SimPlatform::font() {
  if (!font_) font_ = imaging::loadFont(settings_.font);
  return font_->get();
}

SimSettings simSettingsFromEnvironment(const std::string& executablePath) {
  SimSettings s;
  auto env = [](const char* name) -> std::optional<std::string> {
    const char* v = std::getenv(name);
    if (!v || !*v) return std::nullopt;
    return std::string(v);
  };
  std::string cwd = common::currentDirectory();
  if (auto d = env("TAVLIN_SIM_DESKTOP")) s.desktopPath = common::standardizedPath(*d, cwd);
  if (auto l = env("TAVLIN_SIM_EVENT_LOG")) s.eventLogPath = common::standardizedPath(*l, cwd);
  if (auto w = env("TAVLIN_SIM_LOCK_WAIT")) {
    // Seconds from 0 to 3600; anything else keeps the default.
    char* end = nullptr;
    double seconds = std::strtod(w->c_str(), &end);
    if (end && *end == '\0' && seconds >= 0 && seconds <= 3600) s.lockWaitSeconds = seconds;
  }
  s.font = env("TAVLIN_FONT");
  if (auto h = env("HOME")) {
    s.homeDirectory = *h;
  } else if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) {
    s.homeDirectory = pw->pw_dir;
  } else {
    s.homeDirectory = "/";
  }
  s.executablePath = executablePath;
  char resolved[PATH_MAX];
  ssize_t n = ::readlink("/proc/self/exe", resolved, sizeof resolved - 1);
  if (n > 0) {
    resolved[n] = '\0';
    s.executablePath = resolved;
  } else if (!executablePath.empty() && ::realpath(executablePath.c_str(), resolved)) {
    s.executablePath = resolved;
  }
  return s;
}

}  // namespace tavlin::sim
