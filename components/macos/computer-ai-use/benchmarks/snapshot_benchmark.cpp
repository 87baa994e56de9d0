// get-app-state end to end on simulated windows of 1,000, 10,000 and 50,000 elements:
// wall time, peak memory and accessibility round trips per element of the real binary.
// A list-apps run on the same desktop gives the cost of loading the simulated desktop
// itself, which a real Mac does not pay. Then the recorder on the same desktops: wall
// time, the recording's size and round trips per element. Last, what --changes,
// --annotate and --max-dimension add to a get-app-state of the example desktop and of a
// 10,000-element window: they work from the walk already done, so they must add no round
// trip.
//
// usage: tavlin_snapshot_benchmark PATH-TO-Tavlin [sizes...]
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>

#include "big_list_desktop.h"

namespace {

using nlohmann::ordered_json;


struct Run {
  double seconds = 0;
  double cpuSeconds = 0;  // user and system, the companion capture's included
  long peakKiB = 0;
  int status = -1;
};

Run run(const std::string& binary, const std::vector<std::string>& args, const std::string& desktop,
        const std::string& home, bool quiet = false) {
  auto start = std::chrono::steady_clock::now();
  pid_t child = fork();
  if (child == 0) {
    setenv("TAVLIN_SIM_DESKTOP", desktop.c_str(), 1);
    setenv("TAVLIN_SIM_EVENT_LOG", (home + "/events.log").c_str(), 1);
    setenv("HOME", home.c_str(), 1);
    setenv("TAVLIN_EXECUTABLE", binary.c_str(), 1);  // the companion capture runs this build, as on a Mac
    int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    if (quiet) dup2(null, 2);
    std::vector<char*> argv{const_cast<char*>(binary.c_str())};
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(binary.c_str(), argv.data());
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  Run r;
  r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  r.peakKiB = usage.ru_maxrss;  // KiB on Linux
  auto secondsOf = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
  r.cpuSeconds = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

uint64_t roundTrips(const std::string& desktop) {
  std::ifstream in(desktop);
  ordered_json d = ordered_json::parse(in);
  if (!d.contains("stats")) return 0;
  return d["stats"].value("axRoundTrips", uint64_t{0});
}

// What --changes adds to a get-app-state of the application on `desktop` (which already
// has a snapshot): runs with and without the flag taken in turn, median wall time and
// round trips of each.
struct ChangesCost {
  double plainSeconds = 0, changesSeconds = 0;
  uint64_t plainTrips = 0, changesTrips = 0;
};

ChangesCost changesCost(const std::string& binary, const std::string& app, const std::string& desktop,
                        const std::string& home, int rounds) {
  std::vector<double> plain, changes;
  ChangesCost cost;
  for (int i = 0; i < rounds; ++i) {
    for (bool flag : {false, true}) {
      std::vector<std::string> args = {"get-app-state", "--app", app};
      if (flag) args.push_back("--changes");
      uint64_t before = roundTrips(desktop);
      Run r = run(binary, args, desktop, home);
      if (r.status != 0) return {};
      (flag ? changes : plain).push_back(r.seconds);
      (flag ? cost.changesTrips : cost.plainTrips) = roundTrips(desktop) - before;
    }
  }
  auto median = [](std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
  };
  cost.plainSeconds = median(plain);
  cost.changesSeconds = median(changes);
  return cost;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s PATH-TO-Tavlin [sizes...]\n", argv[0]);
    return 1;
  }
  std::string binary = argv[1];
  std::vector<int> sizes;
  for (int i = 2; i < argc; ++i) sizes.push_back(std::atoi(argv[i]));
  if (sizes.empty()) sizes = {1000, 10000, 50000};

  char dirTemplate[] = "/tmp/tavlin-bench-XXXXXX";
  std::string dir = mkdtemp(dirTemplate);
  std::printf("%10s %12s %12s %14s %14s %12s\n", "elements", "snapshot s", "peak MiB", "load-only s",
              "load-only MiB", "trips/elem");
  for (int n : sizes) {
    std::string desktop = dir + "/desktop-" + std::to_string(n) + ".json";
    std::ofstream(desktop) << tavlin::bench::bigListDesktop(n).dump();
    Run load = run(binary, {"list-apps"}, desktop, dir);
    uint64_t before = roundTrips(desktop);
    Run snap = run(binary, {"get-app-state", "--app", "Lister", "--format", "json"}, desktop, dir);
    if (snap.status != 0 || load.status != 0) {
      std::fprintf(stderr, "run failed for %d elements\n", n);
      return 1;
    }
    double perElement = static_cast<double>(roundTrips(desktop) - before) / n;
    std::printf("%10d %12.3f %12.1f %14.3f %14.1f %12.2f\n", n, snap.seconds, snap.peakKiB / 1024.0, load.seconds,
                load.peakKiB / 1024.0, perElement);
  }
  std::printf("\n%10s %12s %14s %12s\n", "elements", "record s", "file KiB", "trips/elem");
  for (int n : sizes) {
    std::string desktop = dir + "/desktop-" + std::to_string(n) + ".json";
    std::string recording = dir + "/recording-" + std::to_string(n) + ".json";
    uint64_t before = roundTrips(desktop);
    Run rec = run(binary, {"__record-desktop", "--app", "Lister", "--out", recording}, desktop, dir, true);
    std::ifstream file(recording, std::ios::binary | std::ios::ate);
    if (rec.status != 0 || !file) {
      std::fprintf(stderr, "recording failed for %d elements\n", n);
      return 1;
    }
    double perElement = static_cast<double>(roundTrips(desktop) - before) / n;
    std::printf("%10d %12.3f %14.1f %12.2f\n", n, rec.seconds, static_cast<double>(file.tellg()) / 1024.0,
                perElement);
  }
  std::string example = dir + "/example.json";
  {
    std::ifstream in(std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json");
    std::ofstream(example) << in.rdbuf();
  }
  std::printf("\nget-app-state --changes against get-app-state (medians of 5 runs each, in turn)\n");
  std::printf("%22s %12s %12s %14s %14s\n", "desktop", "plain s", "changes s", "plain trips", "changes trips");
  std::string big = dir + "/desktop-10000.json";
  std::ofstream(big) << tavlin::bench::bigListDesktop(10000).dump();
  for (const auto& [name, app, desktop] : {std::tuple<std::string, std::string, std::string>{"example (17)", "Scribe", example},
                                           {"big list (10000)", "Lister", big}}) {
    run(binary, {"get-app-state", "--app", app}, desktop, dir);  // the previous snapshot
    ChangesCost c = changesCost(binary, app, desktop, dir, 5);
    std::printf("%22s %12.3f %12.3f %14llu %14llu\n", name.c_str(), c.plainSeconds, c.changesSeconds,
                static_cast<unsigned long long>(c.plainTrips), static_cast<unsigned long long>(c.changesTrips));
  }

  // The flags' cost: the medians of nine runs each (wall and processor time; the
  // machine may be shared), and the round trips of one.
  struct Flags {
    const char* name;
    std::vector<std::string> args;
  };
  const std::vector<Flags> flagSets = {{"(none)", {}},
                                       {"--annotate", {"--annotate"}},
                                       {"--max-dimension 512", {"--max-dimension", "512"}},
                                       {"both", {"--annotate", "--max-dimension", "512"}}};
  struct Subject {
    const char* name;
    std::string desktop, app;
  };
  std::printf("\n%-22s %-22s %12s %12s %12s\n", "desktop", "flags", "snapshot s", "cpu s", "round trips");
  for (const Subject& subject : {Subject{"example (17 elements)", example, "Scribe"},
                                 Subject{"10,000 elements", big, "Lister"}}) {
    for (const Flags& f : flagSets) {
      std::vector<std::string> args = {"get-app-state", "--app", subject.app};
      args.insert(args.end(), f.args.begin(), f.args.end());
      std::vector<double> seconds, cpu;
      uint64_t trips = 0;
      for (int i = 0; i < 9; ++i) {
        uint64_t before = roundTrips(subject.desktop);
        Run r = run(binary, args, subject.desktop, dir);
        if (r.status != 0) {
          std::fprintf(stderr, "get-app-state %s failed on %s\n", f.name, subject.name);
          return 1;
        }
        trips = roundTrips(subject.desktop) - before;
        seconds.push_back(r.seconds);
        cpu.push_back(r.cpuSeconds);
      }
      std::sort(seconds.begin(), seconds.end());
      std::sort(cpu.begin(), cpu.end());
      std::printf("%-22s %-22s %12.3f %12.3f %12llu\n", subject.name, f.name, seconds[4], cpu[4],
                  static_cast<unsigned long long>(trips));
    }
  }
  std::string cleanup = "rm -rf '" + dir + "'";
  return std::system(cleanup.c_str()) == 0 ? 0 : 1;
}
