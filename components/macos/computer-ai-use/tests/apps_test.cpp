#include <gtest/gtest.h>

#include "apps/app_targeting.h"
#include "cli/tool_error.h"
#include "platform/sim/sim_platform.h"
#include "test_support.h"

using namespace tavlin;
using tavlin::sim::SimDesktop;
using tavlin::sim::SimPlatform;

using tavlin::testing::toolErrorOf;

namespace {

constexpr int64_t exactScore = 1000000;

SimPlatform desktop(const std::string& apps, const std::string& extra = "") {
  std::string json = R"({"tavlinDesktop": 1, )" + extra + R"("apps": )" + apps + "}";
  return SimPlatform(SimDesktop::fromJson(nlohmann::ordered_json::parse(json), "/unused", ""));
}

platform::RunningApplication app(const char* name, const char* bundle, int32_t pid = 10) {
  platform::RunningApplication a;
  a.pid = pid;
  a.localizedName = name;
  a.bundleIdentifier = bundle;
  return a;
}

}  // namespace

TEST(ExactPID, Selectors) {
  const std::vector<std::pair<std::string, std::optional<int32_t>>> accepted = {
      {"Safari", std::nullopt}, {"pid", std::nullopt}, {"pi:12", std::nullopt},
      {"pid:42", 42},           {"PID:42", 42},        {"  pid:7\n", 7},
      {"Pid:2147483647", 2147483647},
  };
  for (const auto& [query, pid] : accepted) EXPECT_EQ(apps::exactPID(query), pid) << query;
  for (const char* bad : {"pid:", "pid:0", "pid:-3", "pid:abc", "pid:+5", "pid: 5", "pid:2147483648", "pid:1.0",
                          "pid:\xD9\xA1"}) {
    EXPECT_EQ(toolErrorOf([&] { apps::exactPID(bad); }),
              "--app pid:<PID> requires a positive decimal process identifier")
        << bad;
  }
}

TEST(ScoreAppMatch, WeightsAndTieBreaks) {
  auto safari = app("Safari", "com.apple.Safari");
  // exact name (1000000) + bundle contains (10000 + 1000 - 16) + name contains (9000 + 1000 - 6) + regular + shown
  EXPECT_EQ(apps::scoreAppMatch(safari, "SAFARI", std::nullopt, exactScore), 1000000 + 10984 + 9994 + 120);
  EXPECT_EQ(apps::scoreAppMatch(safari, "safari", 10, exactScore), 1000000 + 10984 + 9994 + 120 + 500);
  EXPECT_EQ(apps::scoreAppMatch(safari, "com.apple.safari", std::nullopt, exactScore), 1000000 + 10984 + 120);
  // Without a match the ordering points count for nothing: not a candidate.
  EXPECT_EQ(apps::scoreAppMatch(safari, "chrome", 10, exactScore), 0);
  auto hiddenAgent = safari;
  hiddenAgent.hidden = true;
  hiddenAgent.activationPolicy = platform::ActivationPolicy::accessory;
  EXPECT_EQ(apps::scoreAppMatch(hiddenAgent, "safari", std::nullopt, exactScore), 1000000 + 10984 + 9994);
  // Lengths count characters, not bytes.
  auto accented = app("Caf\xC3\xA9", "");
  EXPECT_EQ(apps::scoreAppMatch(accented, "caf", std::nullopt, exactScore), 9000 + 996 + 120);
}

TEST(ResolveApp, PicksTheBestCandidate) {
  SimPlatform p = desktop(R"([
    {"pid": 0, "name": "Mail Zero"},
    {"pid": 11, "name": "Mail Helper", "bundleIdentifier": "com.apple.mail.helper", "activationPolicy": "accessory"},
    {"pid": 12, "name": "Mail", "bundleIdentifier": "com.apple.mail"},
    {"pid": 13, "name": "Notes", "bundleIdentifier": "com.apple.Notes"},
    {"pid": 14, "name": "Noted", "bundleIdentifier": "org.noted"},
    {"pid": 15, "name": "Gone", "terminated": true},
    {"pid": 16, "name": "Twin", "bundleIdentifier": "b"},
    {"pid": 17, "name": "Twin", "bundleIdentifier": "a"},
    {"pid": 18, "name": "Sketch", "bundleIdentifier": "com.bohemian.sketch"},
    {"pid": 19, "name": "Bohemian Rhapsody Player", "bundleIdentifier": "x.y"}
  ])");
  auto resolve = [&](const std::string& q) { return apps::resolveApp(q, p.workspace(), exactScore).pid; };
  EXPECT_EQ(resolve("mail"), 12);         // exact name beats the helper's longer matches
  EXPECT_EQ(resolve("com.apple.mail"), 12);
  EXPECT_EQ(resolve("apple"), 12);       // bundle matches: the shorter identifier wins
  EXPECT_EQ(resolve("note"), 14);        // both match twice: the shorter strings win
  EXPECT_EQ(resolve("bohem"), 18);       // a bundle match beats a name-only match
  EXPECT_EQ(resolve("pid:14"), 14);
  EXPECT_EQ(resolve("Twin"), 16);        // equal scores and names: the platform's order stands
  EXPECT_EQ(toolErrorOf([&] { resolve("pid:15"); }), "No running application has pid 15");
  EXPECT_EQ(toolErrorOf([&] { resolve("pid:12345"); }), "No running application has pid 12345");
  // pid 0 is never a candidate, even as an exact match; the query then matches only
  // by containment elsewhere, or not at all.
  EXPECT_EQ(toolErrorOf([&] { resolve("Mail Zero"); }), "No running application matches Mail Zero");
  EXPECT_EQ(toolErrorOf([&] { resolve("Scribbbe-typo"); }), "No running application matches Scribbbe-typo");

  SimPlatform nothing = desktop(R"([{"pid": 3, "name": "Agent", "hidden": true, "activationPolicy": "accessory"}])");
  EXPECT_EQ(toolErrorOf([&] { apps::resolveApp("Mail", nothing.workspace(), exactScore); }),
            "No running application matches Mail");
  EXPECT_EQ(apps::resolveApp("agent", nothing.workspace(), exactScore).pid, 3);
}

TEST(ResolveApp, MalformedSelectorIsReportedBeforeAnyApplicationIsRead) {
  // No desktop at all: reading the applications would fail with the desktop's message.
  SimPlatform none(sim::SimSettings{});
  EXPECT_EQ(toolErrorOf([&] { apps::resolveApp("pid:x", none.workspace(), exactScore); }),
            "--app pid:<PID> requires a positive decimal process identifier");
}

TEST(ResolveApp, EqualScoresOrderNamesByCanonicalForm) {
  // "É" precomposed (U+00C9) and decomposed (E + U+0301) are one name to the platform:
  // they tie, and the platform's order stands. Byte order would put the decomposed
  // spelling ("E...") before "F" and the precomposed one after it.
  SimPlatform p = desktop(R"([
    {"pid": 21, "name": "Fx", "bundleIdentifier": "x.fx"},
    {"pid": 22, "name": "\u00c9x", "bundleIdentifier": "x.e1"},
    {"pid": 23, "name": "E\u0301x", "bundleIdentifier": "x.e2"}
  ])");
  // Scores tie: every name is two characters and every identifier four.
  EXPECT_EQ(apps::resolveApp("x", p.workspace(), exactScore).pid, 21);  // "Fx" < "Éx" in code points
  SimPlatform swapped = desktop(R"([
    {"pid": 23, "name": "E\u0301x", "bundleIdentifier": "x.e2"},
    {"pid": 22, "name": "\u00c9x", "bundleIdentifier": "x.e1"}
  ])");
  EXPECT_EQ(apps::resolveApp("x", swapped.workspace(), exactScore).pid, 23);
  SimPlatform original = desktop(R"([
    {"pid": 22, "name": "\u00c9x", "bundleIdentifier": "x.e1"},
    {"pid": 23, "name": "E\u0301x", "bundleIdentifier": "x.e2"}
  ])");
  EXPECT_EQ(apps::resolveApp("x", original.workspace(), exactScore).pid, 22);
}

TEST(ActivateApp, VerifiedAgainstTheFrontmostApplication) {
  struct Case {
    std::string behaviour;
    std::string frontmost;
    std::string expectedError;
    int64_t expectedMicros;
  };
  const std::vector<Case> cases = {
      {R"("activation": "immediate")", "1", "", 50000},
      {R"("activation": 0.3)", "1", "", 300000},
      {R"("activation": 2.5)", "1", "Exact application pid 2 did not become frontmost; observed pid 1", 2000000},
      {R"("activation": "never")", "null", "Exact application pid 2 did not become frontmost; observed pid none",
       2000000},
      {R"("activation": "refuse")", "1", "Activation request was rejected for exact application pid 2", 0},
      {R"("hidden": true, "unhideFails": true)", "1", "Could not unhide exact application pid 2", 0},
      {R"("terminated": true)", "1", "Cannot activate terminated application pid 2", 0},
  };
  for (const auto& c : cases) {
    SimPlatform p = desktop(R"([{"pid": 1, "name": "Front"}, {"pid": 2, "name": "Target", )" + c.behaviour + "}]",
                            R"("frontmostPid": )" + c.frontmost + ", ");
    platform::RunningApplication target = p.workspace().runningApplications()[1];
    EXPECT_EQ(toolErrorOf([&] { apps::activateApp(target, p); }), c.expectedError.empty() ? "<no error>" : c.expectedError)
        << c.behaviour;
    EXPECT_EQ(p.desktop().elapsedMicroseconds(), c.expectedMicros) << c.behaviour;
  }
}
