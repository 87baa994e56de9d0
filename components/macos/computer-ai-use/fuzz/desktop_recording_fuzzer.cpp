// The recorder on any desktop that loads: its recording loads, gives the same walk as
// the desktop it was taken from, and records as itself.
#include <cstdlib>

#include "fuzz/fuzz_support.h"
#include "platform/sim/sim_platform.h"
#include "record/desktop_recorder.h"
#include "snapshot/ax_access.h"
#include "snapshot/get_app_state.h"

namespace {

using namespace tavlin;

const std::vector<std::string> traversal = {"AXChildren", "AXWindows", "AXMainWindow", "AXFocusedWindow",
                                            "AXChildrenInNavigationOrder"};

runtime::ProcessValues processValues() {
  runtime::ProcessValues values;
  values.traversalAttributes = traversal;
  values.exactNameFirstScore = 1000000;
  values.programPath = "fuzz";
  return values;
}

// What get-app-state would print of the walk from the application element.
std::string walkText(sim::SimPlatform& platform, int32_t pid) {
  platform::Accessibility& ax = platform.accessibility();
  std::string text;
  for (const auto& e : snapshot::collectElements(ax, ax.applicationElement(pid), std::nullopt, traversal)) {
    text += snapshot::describeElement(e.snapshot) + " | " + e.snapshot.path + "\n";
  }
  return text;
}

std::string recordingOf(sim::SimPlatform& platform, int32_t pid) {
  record::RecordOptions options;
  options.app = "pid:" + std::to_string(pid);
  return record::desktopText(record::recordDesktop(processValues(), platform, options).desktop);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 64 * 1024) return 0;
  std::string text = fuzz::text(data, size);
  std::optional<int32_t> pid;
  try {
    sim::SimDesktop probe = sim::SimDesktop::fromText(text, "/fuzz/desktop.json", "");
    // Applications that quit after some calls answer differently on every pass, and a
    // panel reads a real folder: neither replays exactly by design.
    for (const sim::SimApp& app : probe.apps()) {
      if (app.quitsAfterCalls) return 0;
    }
    if (auto apps = probe.document().find("apps"); apps != probe.document().end()) {
      for (const auto& app : *apps) {
        if (app.contains("openPanel")) return 0;
      }
    }
    for (const sim::SimApp& app : probe.apps()) {
      if (app.uiElement && !app.info.terminated && app.info.pid > 0) {
        pid = app.info.pid;
        break;
      }
    }
  } catch (const std::exception&) {
    return 0;
  }
  if (!pid) return 0;

  sim::SimPlatform original(sim::SimDesktop::fromText(text, "/fuzz/desktop.json", ""));
  std::string recording;
  try {
    recording = recordingOf(original, *pid);
  } catch (const std::exception&) {
    return 0;  // refused as get-app-state would refuse it (the application not found)
  }
  sim::SimPlatform fresh(sim::SimDesktop::fromText(text, "/fuzz/desktop.json", ""));
  // A recording that does not load, walks differently or records differently is a fault.
  sim::SimPlatform replay(sim::SimDesktop::fromText(recording, "/fuzz/recording.json", ""));
  if (walkText(fresh, *pid) != walkText(replay, *pid)) std::abort();
  if (recordingOf(replay, *pid) != recording) std::abort();
  return 0;
}
