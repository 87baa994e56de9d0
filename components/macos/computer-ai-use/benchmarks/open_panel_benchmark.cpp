// Accessibility round trips of the Open panel code on a simulated panel whose folders
// each show 500 entries: per poll, and for one whole choose of a file three folders
// below the shown one, with the per-poll memoisation of PanelView and without it.
// Round trips, not seconds, are what a real panel (drawn by another process) charges.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>

#include "cli/tool_error.h"
#include "common/files.h"
#include "openpanel/open_panel_commands.h"
#include "platform/sim/sim_platform.h"

namespace {

using namespace tavlin;

constexpr int entriesPerFolder = 500;

// root/{d1, 499 files}, d1/{d2, 499 files}, d2/{d3, 499 files}, d3/{target.txt, 499 files}
std::string makeTree(const std::string& base) {
  std::string folder = base + "/root";
  const char* next[] = {"d1", "d2", "d3", "target.txt"};
  for (int level = 0; level < 4; ++level) {
    std::filesystem::create_directories(folder);
    for (int i = 0; i < entriesPerFolder - 1; ++i) {
      char name[32];
      std::snprintf(name, sizeof name, "file-%03d.txt", i);
      common::writeFileAtomically(folder + "/" + name, "x");
    }
    std::string child = folder + "/" + next[level];
    if (level < 3) {
      folder = child;
    } else {
      common::writeFileAtomically(child, "target");
    }
  }
  return base + "/root/d1/d2/d3/target.txt";
}

sim::SimDesktop desktop(const std::string& base) {
  auto json = nlohmann::ordered_json::parse(R"({"tavlinDesktop": 1, "apps": [{"pid": 7, "name": "Editor",
      "ui": {"role": "AXApplication", "children": [{"id": "doc", "role": "AXWindow", "title": "Untitled",
        "position": [0, 0], "size": [900, 700]}]},
      "openPanel": {"folder": ")" + base + R"(/root", "host": "doc"}}]})");
  return sim::SimDesktop::fromJson(json, base + "/desk.json", "");
}

runtime::ProcessValues values() {
  runtime::ProcessValues v;
  v.traversalAttributes = {"AXChildren", "AXWindows", "AXMainWindow", "AXFocusedWindow",
                           "AXChildrenInNavigationOrder"};
  v.openPanelTitles = {{"打开", "Open"}, {"打开", "Open", "选择", "Choose"}, {"取消", "Cancel"}};
  return v;
}

struct Figures {
  uint64_t detectionPoll = 0;
  uint64_t lookupPoll = 0;
  uint64_t wholeChoose = 0;
  int polls = 0;
  double seconds = 0;
};

Figures measure(const std::string& base, const std::string& target, bool memoise) {
  Figures f;
  runtime::ProcessValues v = values();
  {
    sim::SimPlatform platform(desktop(base));
    openpanel::PanelView view(platform.accessibility(), v.traversalAttributes, memoise);
    openpanel::PanelContext c{view, platform, v.openPanelTitles};
    platform::Element app = platform.accessibility().applicationElement(7);
    auto trips = [&] { return platform.desktop().roundTripsThisProcess(); };
    uint64_t start = trips();
    std::optional<platform::Element> panel = openpanel::findNativeOpenPanel(c, app);
    f.detectionPoll = trips() - start;
    view.nextPoll();
    start = trips();
    openpanel::nativeOpenPanelFindEntry(c, *panel, base + "/root/d1", "d1");
    f.lookupPoll = trips() - start;
  }
  sim::SimPlatform platform(desktop(base));
  openpanel::PanelView view(platform.accessibility(), v.traversalAttributes, memoise);
  openpanel::PanelContext c{view, platform, v.openPanelTitles};
  platform::Element app = platform.accessibility().applicationElement(7);
  auto wallStart = std::chrono::steady_clock::now();
  int64_t virtualStart = platform.desktop().elapsedMicroseconds();
  uint64_t start = platform.desktop().roundTripsThisProcess();
  // The command's own steps: wait, route, confirm, wait for the panel to close.
  platform::Element panel = openpanel::waitForNativeOpenPanel(c, app, 10.0);
  std::string strategy = openpanel::chooseNativeOpenPanelPathByAX(c, panel, 7, target, false, 10.0);
  view.nextPoll();
  auto button = openpanel::findNativeOpenPanelButton(c, panel, v.openPanelTitles.chooseButton);
  platform.accessibility().performAction(*button, "AXPress");
  openpanel::waitForNativeOpenPanelToClose(c, app, 6.0);
  f.wholeChoose = platform.desktop().roundTripsThisProcess() - start;
  f.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();
  f.polls = static_cast<int>((platform.desktop().elapsedMicroseconds() - virtualStart) / 120000);
  if (strategy != "ax-hierarchy") std::fprintf(stderr, "unexpected strategy %s\n", strategy.c_str());
  return f;
}

}  // namespace

int main() {
  std::string base = (std::filesystem::temp_directory_path() / "tavlin-open-panel-bench").string();
  std::filesystem::remove_all(base);
  std::string target = makeTree(base);
  try {
    std::printf("Open panel with %d entries per folder; choose a file three folders deep\n", entriesPerFolder);
    std::printf("%-22s %16s %16s %22s %10s\n", "", "detection poll", "lookup poll", "whole choose (trips)", "wall s");
    for (bool memoise : {false, true}) {
      Figures f = measure(base, target, memoise);
      std::printf("%-22s %16llu %16llu %22llu %10.3f\n", memoise ? "memoised per poll" : "read on every pass",
                  static_cast<unsigned long long>(f.detectionPoll), static_cast<unsigned long long>(f.lookupPoll),
                  static_cast<unsigned long long>(f.wholeChoose), f.seconds);
    }
  } catch (const cli::ToolError& e) {
    std::fprintf(stderr, "%s\n", e.description.c_str());
    return 1;
  }
  std::filesystem::remove_all(base);
  return 0;
}
