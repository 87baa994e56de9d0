// Walk cost on simulated windows of growing size: wall time per walk and, the figure
// that matters on a real desktop, accessibility round trips per element. Then what
// get-app-state's --annotate and --max-dimension cost on such a window's Retina
// screenshot, from the walk already done.
#include <benchmark/benchmark.h>

#include <filesystem>

#include "benchmarks/big_list_desktop.h"
#include "imaging/png_file.h"
#include "platform/sim/sim_capture.h"
#include "platform/sim/sim_platform.h"
#include "snapshot/ax_access.h"
#include "snapshot/screenshot_images.h"

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

// The second argument: 1 annotates, 2 shrinks to 1568 pixels, 3 does both.
void BM_FinishScreenshot(benchmark::State& state) {
  const int elements = static_cast<int>(state.range(0));
  const bool annotate = state.range(1) & 1, shrink = state.range(1) & 2;
  sim::SimPlatform platform(sim::SimDesktop::fromJson(bench::bigListDesktop(elements), "/unused", ""));
  platform::Accessibility& ax = platform.accessibility();
  platform::Element window = snapshot::axElements(ax, ax.applicationElement(10), "AXWindows").at(0);

  std::filesystem::path dir = std::filesystem::temp_directory_path() / "tavlin-screenshot-benchmark";
  std::filesystem::create_directories(dir);
  runtime::ProcessValues values;
  values.cacheDirectoryURL = dir.string();
  platform::RunningApplication app;
  app.pid = 10;
  app.localizedName = "Lister";
  std::string captured = (dir / "captured.png").string(), png = (dir / "lister-10.png").string();
  // The window at two pixels a point, as a Retina Mac captures it: 1600 × 1200.
  auto canvas = sim::drawWindow(platform.desktop(), 5, 1600, 1200, platform.font());
  imaging::writePNG(*canvas, captured);

  snapshot::AppStateSnapshot s;
  for (const auto& t : snapshot::collectElements(ax, window, std::nullopt, traversal)) s.elements.push_back(t.snapshot);
  s.window = snapshot::WindowSnapshot{5, std::string("Big list"), snapshot::RectPayload{0, 25, 800, 600}};
  uint64_t before = platform.desktop().roundTripsThisProcess();
  for (auto _ : state) {
    state.PauseTiming();
    std::filesystem::copy_file(captured, png, std::filesystem::copy_options::overwrite_existing);
    s.screenshotPath = png;
    s.screenshotSize = snapshot::SizePayload{1600, 1200};
    state.ResumeTiming();
    snapshot::ScreenshotOptions options{annotate, shrink ? std::optional<int>(1568) : std::nullopt};
    snapshot::finishScreenshot(platform, values, app, s, options);
  }
  state.counters["elements"] = static_cast<double>(s.elements.size());
  state.counters["roundTrips"] = static_cast<double>(platform.desktop().roundTripsThisProcess() - before);
  std::filesystem::remove_all(dir);
}
BENCHMARK(BM_FinishScreenshot)
    ->Args({17, 1})
    ->Args({17, 2})
    ->Args({17, 3})
    ->Args({10000, 1})
    ->Args({10000, 2})
    ->Args({10000, 3})
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
