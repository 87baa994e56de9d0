#include "apps/app_targeting.h"

#include <algorithm>
#include <chrono>

#include "cli/json_output.h"
#include "cli/tool_error.h"
#include "common/unicode.h"

namespace tavlin::apps {
namespace {

using common::characterCount;
using common::lowercased;
using common::trimmed;
using platform::RunningApplication;

const std::string& orEmpty(const std::optional<std::string>& s) {
  static const std::string empty;
  return s ? *s : empty;
}

// Applications in name order as the platform's strings compare: by canonical form, so
// that canonically equal names tie and keep the platform's order under a stable sort.
struct NameKey {
  explicit NameKey(const RunningApplication& app) : name(common::canonicalForm(orEmpty(app.localizedName))) {}
  std::string name;
};

}  // namespace

std::optional<int32_t> exactPID(const std::string& query) {
  std::string text = trimmed(query);
  std::string lower = lowercased(text);
  if (!lower.starts_with("pid:")) return std::nullopt;
  // The prefix is four ASCII characters in any case, so the id starts at byte 4.
  std::string digits = text.substr(4);
  bool allDigits = !digits.empty() && std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
  std::optional<int64_t> value = allDigits ? cli::parseInt64(digits) : std::nullopt;
  if (!value || *value <= 0 || *value > INT32_MAX) {
    throw cli::ToolError("--app pid:<PID> requires a positive decimal process identifier");
  }
  return static_cast<int32_t>(*value);
}

int64_t scoreAppMatch(const RunningApplication& app, const std::string& query, std::optional<int32_t> frontmostPID,
                      int64_t exactNameFirstScore) {
  std::string q = lowercased(query);
  std::string n = lowercased(orEmpty(app.localizedName));
  std::string b = lowercased(orEmpty(app.bundleIdentifier));
  bool inBundle = b.find(q) != std::string::npos;
  bool inName = n.find(q) != std::string::npos;
  // Only a match makes a candidate; the points below merely order the candidates.
  if (!inBundle && !inName) return 0;
  int64_t score = (q == b || q == n) ? exactNameFirstScore : 0;
  if (inBundle) score += 10000 + std::max<int64_t>(0, 1000 - characterCount(b));
  if (inName) score += 9000 + std::max<int64_t>(0, 1000 - characterCount(n));
  if (frontmostPID && *frontmostPID == app.pid) score += 500;
  if (app.activationPolicy == platform::ActivationPolicy::regular) score += 100;
  if (!app.hidden) score += 20;
  return score;
}

RunningApplication resolveApp(const std::string& query, platform::Workspace& workspace, int64_t exactNameFirstScore) {
  // A malformed selector is reported before any application is read.
  std::optional<int32_t> selector = exactPID(query);
  std::vector<RunningApplication> running = workspace.runningApplications();
  if (auto pid = selector) {
    for (const RunningApplication& app : running) {
      if (app.pid == *pid && !app.terminated) return app;
    }
    throw cli::ToolError("No running application has pid " + std::to_string(*pid));
  }
  std::optional<int32_t> frontmost;
  if (auto app = workspace.frontmostApplication()) frontmost = app->pid;

  struct Candidate {
    RunningApplication app;
    int64_t score;
    NameKey key;
  };
  std::vector<Candidate> candidates;
  for (const RunningApplication& app : running) {
    if (app.pid < 1) continue;
    int64_t score = scoreAppMatch(app, query, frontmost, exactNameFirstScore);
    if (score >= 1) candidates.push_back({app, score, NameKey(app)});
  }
  std::stable_sort(candidates.begin(), candidates.end(), [](const Candidate& a, const Candidate& b) {
    if (a.score != b.score) return a.score > b.score;
    return a.key.name < b.key.name;
  });
  if (candidates.empty()) throw cli::ToolError("No running application matches " + query);
  return candidates.front().app;
}

void activateApp(const RunningApplication& app, platform::Platform& platform) {
  std::string pid = std::to_string(app.pid);
  if (app.pid < 1 || app.terminated) throw cli::ToolError("Cannot activate terminated application pid " + pid);
  platform::Workspace& workspace = platform.workspace();
  if (app.hidden && !workspace.unhide(app.pid)) {
    throw cli::ToolError("Could not unhide exact application pid " + pid);
  }
  if (!workspace.activate(app.pid, platform::activation::allWindows)) {
    throw cli::ToolError("Activation request was rejected for exact application pid " + pid);
  }
  platform::Clock& clock = platform.clock();
  auto deadline = clock.now() + std::chrono::milliseconds(2000);
  std::optional<RunningApplication> front;
  do {
    clock.runLoop(0.05);
    front = workspace.frontmostApplication();
    if (front && front->pid == app.pid) return;
  } while (clock.now() < deadline);
  throw cli::ToolError("Exact application pid " + pid + " did not become frontmost; observed pid " +
                       (front ? std::to_string(front->pid) : "none"));
}

void handleListApps(runtime::CommandContext& context, const cli::Flags&) {
  platform::Workspace& workspace = context.platform.workspace();
  std::optional<int32_t> frontmost;
  if (auto app = workspace.frontmostApplication()) frontmost = app->pid;
  std::vector<std::pair<RunningApplication, NameKey>> apps;
  for (const RunningApplication& app : workspace.runningApplications()) {
    if (app.pid >= 1) apps.emplace_back(app, NameKey(app));
  }
  std::stable_sort(apps.begin(), apps.end(), [&](const auto& a, const auto& b) {
    bool aFront = frontmost && a.first.pid == *frontmost;
    bool bFront = frontmost && b.first.pid == *frontmost;
    if (aFront != bFront) return aFront;
    return a.second.name < b.second.name;
  });
  cli::Json list = cli::Json::array();
  for (const auto& [app, key] : apps) {
    bool active = frontmost && app.pid == *frontmost;
    int64_t policy = static_cast<int64_t>(app.activationPolicy);
    list.push_back({{"pid", app.pid},
                    {"app", orEmpty(app.localizedName)},
                    {"name", orEmpty(app.localizedName)},
                    {"bundleIdentifier", orEmpty(app.bundleIdentifier)},
                    {"bundle_identifier", orEmpty(app.bundleIdentifier)},
                    {"isActive", active},
                    {"is_active", active},
                    {"isHidden", app.hidden},
                    {"is_hidden", app.hidden},
                    {"activationPolicy", policy},
                    {"activation_policy", policy}});
  }
  cli::writeJSONObject(context.output, list);
}

void handleActivateApp(runtime::CommandContext& context, const cli::Flags& flags) {
  std::string query = cli::requiredFlag(flags, {"--app"});
  RunningApplication app = resolveApp(query, context.platform.workspace(), context.values.exactNameFirstScore);
  activateApp(app, context.platform);
  cli::writeJSONObject(context.output, {{"ok", true}, {"app", orEmpty(app.localizedName)}, {"pid", app.pid}});
}

}  // namespace tavlin::apps
