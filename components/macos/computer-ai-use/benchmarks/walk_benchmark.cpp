// Walk cost on simulated windows of growing size: wall time per walk and, the figure
// that matters on a real desktop, accessibility round trips per element.
#include <benchmark/benchmark.h>

#include "benchmarks/big_list_desktop.h"
#include "platform/sim/sim_platform.h"
#include "snapshot/ax_access.h"

namespace {

using namespace tavlin;

const std::vector<std::string> traversal = {"AXChildren", "AXWindows", "AXMainWindow", "AXFocusedWindow",
                                            "AXChildrenInNavigationOrder"};


void BM_WalkWindow(benchmark::State& state) {
  const int elements = static_cast<int>(state.range(0));
  // The second argument: every n-th element has a value (1: nine in ten, the cells).
  sim::SimPlatform platform(
      sim::SimDesktop::fromJson(bench::bigListDesktop(elements, static_cast<int>(state.range(1))), "/unused", ""));
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
BENCHMARK(BM_WalkWindow)
    ->Args({1000, 1})
    ->Args({10000, 1})
    ->Args({1000, 5})  // a fifth of the elements with a value
    ->Args({10000, 5})
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
