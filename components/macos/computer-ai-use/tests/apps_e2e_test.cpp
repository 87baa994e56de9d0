// list-apps and activate-app end to end against fixture desktops.
#include <gtest/gtest.h>

#include "test_support.h"

using tavlin::testing::readText;
using tavlin::testing::runTool;
using tavlin::testing::TempDir;
using tavlin::testing::ToolRun;
using tavlin::testing::writeText;

namespace {

using Desktop = tavlin::testing::DesktopFixture;

const char* threeApps = R"({"tavlinDesktop": 1, "frontmostPid": 30, "apps": [
  {"pid": 10, "name": "beta", "bundleIdentifier": "org.beta"},
  {"pid": 0, "name": "kernel task"},
  {"pid": 20, "bundleIdentifier": "org.nameless", "hidden": true, "activationPolicy": "prohibited"},
  {"pid": 30, "name": "Zulu", "bundleIdentifier": "org/zulu", "activationPolicy": "accessory"},
  {"pid": 40, "name": "Alpha", "activation": "never"}
]})";

}  // namespace

TEST(ListApps, FrontmostFirstThenByNameWithBothKeySpellings) {
  Desktop d(threeApps);
  ToolRun run = d.run({"list_apps"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.out, tavlin::testing::golden("list-apps.json"));
}

TEST(ActivateApp, SucceedsOrReportsWhatWasObserved) {
  Desktop d(threeApps);
  ToolRun run = d.run({"activate-app", "--app", "BETA"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "{\n  \"app\" : \"beta\",\n  \"ok\" : true,\n  \"pid\" : 10\n}\n");

  // The desktop remembers: beta is now in front, and the clock went on.
  run = d.run({"activate_app", "--app", "alpha"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "Exact application pid 40 did not become frontmost; observed pid 10\n");
  EXPECT_EQ(readText(d.log),
            "0.000 pid:10 activate options=0x1\n"
            "0.050 pid:40 activate options=0x1\n");

  run = d.run({"activate-app", "--app", "pid:20"});  // hidden: unhidden first
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "{\n  \"app\" : \"\",\n  \"ok\" : true,\n  \"pid\" : 20\n}\n");
  EXPECT_TRUE(readText(d.log).ends_with("2.050 pid:20 unhide\n2.050 pid:20 activate options=0x1\n"));
}

TEST(ActivateApp, QueryErrors) {
  Desktop d(threeApps);
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"activate-app"}, "Missing required flag --app\n"},
      {{"activate-app", "--app", "pid:x"}, "--app pid:<PID> requires a positive decimal process identifier\n"},
      {{"activate-app", "--app", "pid:99"}, "No running application has pid 99\n"},
  };
  for (const auto& [args, err] : cases) {
    ToolRun run = d.run(args);
    EXPECT_EQ(run.status, 1) << args.back();
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, err);
  }
}

TEST(ActivateApp, NothingMatches) {
  // Shown or regular applications always score, so only a desktop of hidden agents
  // leaves a query without a candidate.
  Desktop d(R"({"tavlinDesktop": 1, "apps": [{"pid": 3, "name": "Agent", "hidden": true,
                "activationPolicy": "accessory"}, {"pid": 0, "name": "Mail"}]})");
  ToolRun run = d.run({"activate-app", "--app", "Mail"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "No running application matches Mail\n");
}

TEST(SimulatedDesktop, UnusableDesktopIsOneErrorLine) {
  TempDir dir;
  std::string bad = dir.file("bad.json");
  writeText(bad, R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "ui": {"role": "AXApplication", "titel": "x"}}]})");
  const std::vector<std::pair<std::map<std::string, std::string>, std::string>> cases = {
      {{{"TAVLIN_SIM_DESKTOP", bad}}, "Simulated desktop " + bad + ": apps[0].ui: unknown key \"titel\"\n"},
      {{{"TAVLIN_SIM_DESKTOP", dir.file("missing.json")}},
       "Simulated desktop " + dir.file("missing.json") + ": cannot read the file (No such file or directory)\n"},
#if !defined(__APPLE__)  // on a Mac, no simulated desktop means the real one
      {{}, "No simulated desktop: set TAVLIN_SIM_DESKTOP to a desktop file (see docs/desktop-format.md)\n"},
#endif
  };
  for (const auto& [env, err] : cases) {
    auto withHome = env;
    withHome["HOME"] = dir.path();
    ToolRun run = runTool({"list-apps"}, withHome);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, err);
  }
  // The file is left as it was.
  EXPECT_EQ(readText(bad), R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "ui": {"role": "AXApplication", "titel": "x"}}]})");
}
