#include "mcp/cancellable_platform.h"

#include "cli/tool_error.h"

namespace tavlin::mcp {

namespace {

using namespace platform;

class GuardedClock final : public Clock {
 public:
  GuardedClock(const CancellablePlatform& owner, Clock& inner) : owner_(owner), inner_(inner) {}
  TimePoint now() override { return inner_.now(); }
  void sleep(double seconds) override {
    owner_.check();
    inner_.sleep(seconds);
    owner_.check();
  }
  void runLoop(double seconds) override {
    owner_.check();
    inner_.runLoop(seconds);
    owner_.check();
  }
  bool waitUntil(const std::function<bool()>& ready, double seconds) override {
    owner_.check();
    bool done = inner_.waitUntil([&] { return owner_.cancelled() || ready(); }, seconds);
    owner_.check();
    return done;
  }

 private:
  const CancellablePlatform& owner_;
  Clock& inner_;
};

class GuardedEvents final : public Events {
 public:
  GuardedEvents(const CancellablePlatform& owner, Events& inner) : owner_(owner), inner_(inner) {}
  std::optional<Event> createMouseEvent(EventType type, Point location, MouseButtonCode button) override {
    return inner_.createMouseEvent(type, location, button);
  }
  std::optional<Event> createKeyboardEvent(uint16_t keyCode, bool keyDown) override {
    return inner_.createKeyboardEvent(keyCode, keyDown);
  }
  std::optional<Event> createScrollWheelEvent(ScrollUnit unit, uint32_t wheelCount, int32_t wheel1, int32_t wheel2,
                                              int32_t wheel3) override {
    return inner_.createScrollWheelEvent(unit, wheelCount, wheel1, wheel2, wheel3);
  }
  void post(EventTap tap, const Event& event) override {
    owner_.check();
    inner_.post(tap, event);
  }
  void postToPid(int32_t pid, const Event& event) override {
    owner_.check();
    inner_.postToPid(pid, event);
  }
  bool warpMouseCursor(Point point) override {
    owner_.check();
    return inner_.warpMouseCursor(point);
  }
  Point pointerLocation() override { return inner_.pointerLocation(); }

 protected:
  // The inner port's setters keep its own event object in step.
  void applyClickState(Event& event, int64_t state) override { inner_.setClickState(event, state); }
  void applyFlags(Event& event, uint64_t flags) override { inner_.setFlags(event, flags); }
  void applyUnicodeString(Event& event, const std::u16string& text) override { inner_.setUnicodeString(event, text); }

 private:
  const CancellablePlatform& owner_;
  Events& inner_;
};

class GuardedAccessibility final : public Accessibility {
 public:
  GuardedAccessibility(const CancellablePlatform& owner, Accessibility& inner) : owner_(owner), inner_(inner) {}
  bool isProcessTrusted(bool prompt) override { return inner_.isProcessTrusted(prompt); }
  Element applicationElement(int32_t pid) override { return inner_.applicationElement(pid); }
  Element systemWideElement() override { return inner_.systemWideElement(); }
  AXCopyResult copyAttributeValue(const Element& element, const std::string& attribute) override {
    return inner_.copyAttributeValue(element, attribute);
  }
  AXError copyMultipleAttributeValues(const Element& element, const std::vector<std::string>& attributes,
                                      std::vector<AXCopyResult>& results) override {
    return inner_.copyMultipleAttributeValues(element, attributes, results);
  }
  AXCopyResult copyActionNames(const Element& element) override { return inner_.copyActionNames(element); }
  AXError isAttributeSettable(const Element& element, const std::string& attribute, bool& settable) override {
    return inner_.isAttributeSettable(element, attribute, settable);
  }
  AXError performAction(const Element& element, const std::string& action) override {
    owner_.check();
    return inner_.performAction(element, action);
  }
  AXError setAttributeValue(const Element& element, const std::string& attribute, const std::string& text) override {
    owner_.check();
    return inner_.setAttributeValue(element, attribute, text);
  }
  AXError setAttributeElements(const Element& element, const std::string& attribute,
                               const std::vector<Element>& elements) override {
    owner_.check();
    return inner_.setAttributeElements(element, attribute, elements);
  }
  uint64_t hash(const Element& element) override { return inner_.hash(element); }
  bool sameElement(const Element& a, const Element& b) override { return inner_.sameElement(a, b); }
  AXError setMessagingTimeout(const Element& element, float seconds) override {
    return inner_.setMessagingTimeout(element, seconds);
  }

 private:
  const CancellablePlatform& owner_;
  Accessibility& inner_;
};

class GuardedProcesses final : public Processes {
 public:
  GuardedProcesses(const CancellablePlatform& owner, Processes& inner) : owner_(owner), inner_(inner) {}
  ProcessResult run(const ProcessRequest& request) override {
    owner_.check();
    ProcessRequest guarded = request;
    guarded.abandonWhen = [&] { return owner_.cancelled() || (request.abandonWhen && request.abandonWhen()); };
    ProcessResult result = inner_.run(guarded);
    owner_.check();
    return result;
  }

 private:
  const CancellablePlatform& owner_;
  Processes& inner_;
};

class GuardedPasteboard final : public Pasteboard {
 public:
  GuardedPasteboard(const CancellablePlatform& owner, Pasteboard& inner) : owner_(owner), inner_(inner) {}
  PasteboardContents read() override { return inner_.read(); }
  bool writeText(const std::string& text) override {
    owner_.check();
    return inner_.writeText(text);
  }

 private:
  const CancellablePlatform& owner_;
  Pasteboard& inner_;
};

}  // namespace

// The guarded ports are made on first use: the inner platform may create its own
// lazily, and a call that never waits should not make it wake them.
struct CancellablePlatform::Ports {
  std::unique_ptr<GuardedClock> clock;
  std::unique_ptr<GuardedEvents> events;
  std::unique_ptr<GuardedAccessibility> accessibility;
  std::unique_ptr<GuardedProcesses> processes;
  std::unique_ptr<GuardedPasteboard> pasteboard;
};

CancellablePlatform::CancellablePlatform(platform::Platform& inner) : inner_(inner), ports_(std::make_unique<Ports>()) {
  interruptWaitsWhen({});
}
CancellablePlatform::~CancellablePlatform() { inner_.interruptWaitsWhen({}); }

void CancellablePlatform::interruptWaitsWhen(std::function<bool()> interrupted) {
  interrupted_ = std::move(interrupted);
  inner_.interruptWaitsWhen([this] { return cancelled_ || (interrupted_ && interrupted_()); });
}

platform::Processes& CancellablePlatform::processes() {
  if (!ports_->processes) ports_->processes = std::make_unique<GuardedProcesses>(*this, inner_.processes());
  return *ports_->processes;
}

platform::Pasteboard& CancellablePlatform::pasteboard() {
  if (!ports_->pasteboard) ports_->pasteboard = std::make_unique<GuardedPasteboard>(*this, inner_.pasteboard());
  return *ports_->pasteboard;
}

void CancellablePlatform::check() const {
  if (cancelled_) throw cli::ToolError(cancelledMessage);
}

platform::Clock& CancellablePlatform::clock() {
  if (!ports_->clock) ports_->clock = std::make_unique<GuardedClock>(*this, inner_.clock());
  return *ports_->clock;
}

platform::Events& CancellablePlatform::events() {
  if (!ports_->events) ports_->events = std::make_unique<GuardedEvents>(*this, inner_.events());
  return *ports_->events;
}

platform::Accessibility& CancellablePlatform::accessibility() {
  if (!ports_->accessibility) {
    ports_->accessibility = std::make_unique<GuardedAccessibility>(*this, inner_.accessibility());
  }
  return *ports_->accessibility;
}

}  // namespace tavlin::mcp
