// Walk cost on simulated windows of growing size: wall time per walk and, the figure
// that matters on a real desktop, accessibility round trips per element.
#include <benchmark/benchmark.h>

#include "platform/sim/sim_platform.h"
#include "snapshot/ax_access.h"

namespace {

using namespace tavlin;

const std::vector<std::string> traversal = {"AXChildren", "AXWindows", "AXMainWindow", "AXFocusedWindow",
                                            "AXChildrenInNavigationOrder"};

// A window holding a table: rows of cells, like a long list in a real application.
nlohmann::ordered_json windowDesktop(int elements) {
  using nlohmann::ordered_json;
  const int cellsPerRow = 9;
  ordered_json rows = ordered_json::array();
  int made = 2;  // the application and the window
  for (int r = 0; made < elements; ++r) {
    ordered_json cells = ordered_json::array();
    ++made;
    for (int c = 0; c < cellsPerRow && made < elements; ++c, ++made) {
      cells.push_back({{"role", "AXStaticText"},
                       {"value", "Row " + std::to_string(r) + " cell " + std::to_string(c)},
                       {"position", {10 + c * 80, 40 + r * 20}},
                       {"size", {80, 20}},
                       {"enabled", true}});
    }
    rows.push_back({{"role", "AXRow"}, {"actions", {"AXShowMenu"}}, {"children", cells}});
  }
  ordered_json window = {{"id", "window"}, {"role", "AXWindow"}, {"title", "Big list"},
                         {"position", {0, 25}}, {"size", {800, 600}}, {"children", rows}};
  return {{"tavlinDesktop", 1},
          {"apps", {{{"pid", 10}, {"name", "Lister"}, {"ui", {{"role", "AXApplication"}, {"children", {window}}}}}}}};
}

void BM_WalkWindow(benchmark::State& state) {
  const int elements = static_cast<int>(state.range(0));
  sim::SimPlatform platform(sim::SimDesktop::fromJson(windowDesktop(elements), "/unused", ""));
  platform::Accessibility& ax = platform.accessibility();
  platform::Element window = snapshot::axElements(ax, ax.applicationElement(10), "AXWindows").at(0);
  size_t walked = 0;
  uint64_t before = platform.desktop().roundTripsThisProcess();
  for (auto _ : state) {
    auto walk = snapshot::collectElements(ax, window, std::nullopt, traversal);
    walked = walk.size();
    benchmark::DoNotOptimize(walk);
  }
  double trips = static_cast<double>(platform.desktop().roundTripsThisProcess() - before);
  state.counters["elements"] = static_cast<double>(walked);
  state.counters["roundTripsPerElement"] =
      trips / static_cast<double>(walked) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_WalkWindow)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
