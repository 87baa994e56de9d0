// The command frame end to end: the real binary as a process.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "common/files.h"
#include "test_support.h"

using tavlin::testing::readText;
using tavlin::testing::runTool;
using tavlin::testing::TempDir;
using tavlin::testing::ToolRun;

namespace {

const std::string& usageText() {
  static const std::string text = tavlin::testing::golden("usage.txt");
  return text;
}

}  // namespace

TEST(AgentCommandLine, HelpPrintsTheUsageOnStandardOutput) {
  ASSERT_EQ(usageText().size(), 2414u);  // bytes: 25 lines, the printer's newline included
  for (const char* word : {"help", "-h", "--help"}) {
    ToolRun run = runTool({word});
    EXPECT_EQ(run.status, 0) << word;
    EXPECT_EQ(run.out, usageText()) << word;
    EXPECT_EQ(run.err, "");
  }
}

TEST(AgentCommandLine, FailuresPrintOneMessageOnStandardErrorAndExit1) {
  struct Case {
    std::vector<std::string> args;
    std::string err;
  };
  const std::vector<Case> cases = {
      {{"Click"}, usageText()},
      {{"list-app"}, usageText()},
      {{"get-app-state", "--format", "xml"},
       "Unsupported --format xml. Expected plugin, json, or plugin-json.\n"},
      {{"get-app-state", "--format", "XML", "--app", "Scribe"},
       "Unsupported --format XML. Expected plugin, json, or plugin-json.\n"},
      {{"get_app_state", "Safari"}, "Unexpected argument Safari\n"},
      {{"get-app-state", "--format", "json"}, "Missing required flag --app\n"},
      {{"get-app-state", "--app", ""}, "Missing required flag --app\n"},
      {{"get-app-state", "--window_id", "-5", "--app", "X"}, "--window-id / --window_id expects an unsigned integer\n"},
      {{"get-app-state", "--window-id", "4294967296"}, "--window-id / --window_id expects an unsigned integer\n"},
      {{"click", "--app", "X", "-12"}, "Unexpected argument -12\n"},
      {{"choose-open-panel-path", "--app", "X"}, "No simulated desktop: set TAVLIN_SIM_DESKTOP to a desktop file (see docs/desktop-format.md)\n"},
      {{"__clicker", "where"}, "where: No simulated desktop: set TAVLIN_SIM_DESKTOP to a desktop file (see docs/desktop-format.md)\n"},
  };
  for (const auto& c : cases) {
    ToolRun run = runTool(c.args);
    EXPECT_EQ(run.status, 1) << c.args[0];
    EXPECT_EQ(run.out, "") << c.args[0];
    EXPECT_EQ(run.err, c.err) << c.args[0];
  }
}

TEST(AgentCommandLine, FormatIsReadCaseInsensitively) {
  // Accepted formats get past flag reading to resolving the application.
  tavlin::testing::DesktopFixture d(R"({"tavlinDesktop": 1})");
  for (const char* format : {"JSON", "Plugin", "plugin-json", "plugin_json"}) {
    ToolRun run = d.run({"get-app-state", "--format", format, "--app", "Scribe"});
    EXPECT_EQ(run.err, "No running application matches Scribe\n") << format;
  }
}

TEST(IPCDirectory, CollectsOutputPidAndExitCode) {
  TempDir tmp;
  std::string dir = tmp.file("ipc/nested");
  ToolRun run = runTool({"--tavlin-ipc", dir, "help"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(readText(dir + "/stdout"), usageText());
  EXPECT_EQ(readText(dir + "/stderr"), "");
  EXPECT_EQ(readText(dir + "/exit-code"), "0\n");
  std::string pid = readText(dir + "/pid");
  ASSERT_FALSE(pid.empty());
  EXPECT_EQ(pid.back(), '\n');
  EXPECT_GT(std::stol(pid), 0);
  for (const char* name : {"stdout", "stderr", "pid", "exit-code"}) {
    struct stat st;
    ASSERT_EQ(::stat((dir + "/" + name).c_str(), &st), 0) << name;
    EXPECT_EQ(st.st_mode & 0777, 0600u) << name;
  }

  // A failure in the same folder replaces every file.
  run = runTool({"get-app-state", "--tavlin-ipc", dir, "--format", "xml"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(readText(dir + "/stdout"), "");
  EXPECT_EQ(readText(dir + "/stderr"), "Unsupported --format xml. Expected plugin, json, or plugin-json.\n");
  EXPECT_EQ(readText(dir + "/exit-code"), "1\n");
}

TEST(IPCDirectory, TrailingOptionIsDroppedAndUnreachableFolderIsIgnored) {
  ToolRun run = runTool({"help", "--tavlin-ipc"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, usageText());

  // A folder that cannot be made changes nothing about the tool's behaviour.
  run = runTool({"--tavlin-ipc", "/proc/no-such-place/ipc", "help"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, usageText());
  EXPECT_EQ(run.err, "");
}
