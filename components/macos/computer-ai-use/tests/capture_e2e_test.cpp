// Background window capture end to end: the mode's command line, discovery with its
// fallbacks, the hard time-out, watch and its stop on a signal.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

#include "capture/background_capture.h"
#include "capture/hard_timeout.h"
#include "common/files.h"
#include "platform/sim/sim_platform.h"
#include "test_support.h"

extern char** environ;

using tavlin::testing::DesktopFixture;
using tavlin::testing::readText;
using tavlin::testing::runTool;
using tavlin::testing::ToolRun;

namespace {

const std::string exampleDesktop = std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json";

// The example desktop with extra top-level keys.
struct CaptureDesktop : DesktopFixture {
  explicit CaptureDesktop(const std::string& extra = "")
      : DesktopFixture(tavlin::testing::replaceAll(readText(exampleDesktop), "\"tavlinDesktop\": 1,",
                                                    "\"tavlinDesktop\": 1, " + extra)) {}
  ToolRun capture(std::vector<std::string> arguments, std::map<std::string, std::string> environment = {}) {
    arguments.insert(arguments.begin(), "__background-window-capture");
    return run(arguments, std::move(environment));
  }
  std::string out(const std::string& name) const { return dir.file(name); }
};

bool wholePNG(const std::string& path) {
  std::string bytes = readText(path);
  return bytes.size() > 20 && bytes.substr(1, 3) == "PNG" && bytes.substr(bytes.size() - 8, 4) == "IEND";
}

size_t count(const std::string& text, const std::string& part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

}  // namespace

TEST(BackgroundCapture, OptionMessages) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"list", "--window-id", "x"}, "--window-id requires an integer"},
      {{"list", "--window-id", "-1"}, "--window-id requires an integer"},
      {{"list", "--pid", "2147483648"}, "--pid requires an integer"},
      {{"list", "--pid"}, "--pid requires an integer"},
      {{"list", "--app"}, "--app requires a value"},
      {{"list", "--title-contains"}, "--title-contains requires a value"},
      {{"capture", "--out"}, "--out requires a value"},
      {{"watch", "--archive-dir"}, "--archive-dir requires a value"},
      {{"watch", "--interval", "0"}, "--interval requires a positive number"},
      {{"watch", "--count", "0"}, "--count requires a positive integer"},
      {{"watch", "--count", "1.5"}, "--count requires a positive integer"},
      {{"list", "--timeout", "-1"}, "--timeout requires a positive number"},
      {{"list", "--timeout", "nan"}, "--timeout requires a positive number"},
      // Plain decimal numbers only.
      {{"capture", "--pid", "1", "--timeout", "0x10"}, "--timeout requires a positive number"},
      {{"watch", "--interval", "2s"}, "--interval requires a positive number"},
      {{"list", "--verbose"}, "unknown argument: --verbose"},
      {{"snap"}, "unknown command: snap"},
      // Checked before any window is searched: no desktop is needed.
      {{"capture", "--pid", "1", "--timeout", "0.5"}, "--out is required"},
      {{"watch", "--pid", "1"}, "--out is required for watch"},
  };
  for (const auto& [arguments, message] : cases) {
    std::vector<std::string> args = arguments;
    args.insert(args.begin(), "__background-window-capture");
    ToolRun run = runTool(args);
    EXPECT_EQ(run.status, 1) << message;
    EXPECT_EQ(run.err, "background-window-capture: " + message + "\n");
    EXPECT_EQ(run.out, "");
  }
  // Bounds on waits: a mistake, not a plan.
  for (const auto& [arguments, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"list", "--timeout", "601"}, "--timeout must be at most 600 seconds"},
           {{"list", "--timeout", "inf"}, "--timeout requires a positive number"},
           {{"watch", "--interval", "1e300"}, "--interval must be at most 86400 seconds"}}) {
    std::vector<std::string> args = arguments;
    args.insert(args.begin(), "__background-window-capture");
    EXPECT_EQ(runTool(args).err, "background-window-capture: " + message + "\n");
  }
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"--help"}, {"list", "--help"}, {"capture", "--pid", "1", "--help"}}) {
    std::vector<std::string> args = arguments;
    args.insert(args.begin(), "__background-window-capture");
    ToolRun help = runTool(args);
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.substr(0, 7), "Usage:\n");
    EXPECT_NE(help.out.find("\nExamples:\n  background-window-capture list --pid 33995\n"), std::string::npos);
  }
}

TEST(BackgroundCapture, OnlyDoubleDashHelpAsksForTheUsage) {
  // "help" and "-h" are ordinary values (a title, a file name), and an option's value is
  // whatever follows it, "--help" included.
  CaptureDesktop d;
  d.edit("\"name\": \"Meeting notes.txt\"", "\"name\": \"help -h --help\"");
  for (std::string title : {"help", "-h", "--help"}) {
    ToolRun run = d.capture({"list", "--title-contains", title});
    EXPECT_EQ(run.status, 0) << title << run.err;
    EXPECT_TRUE(run.out.starts_with("301\tpid=4242\t")) << title << run.out;
  }
  ToolRun run = d.capture({"capture", "--pid", "4242", "--out", d.out("help")});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(wholePNG(d.out("help")));
  EXPECT_EQ(d.capture({"help"}).err, "background-window-capture: unknown command: help\n");
}

TEST(BackgroundCapture, TheOutputIsARegularFileOrNothing) {
  CaptureDesktop d;
  std::string victim = d.out("victim.txt");
  tavlin::testing::writeText(victim, "keep me");
  struct Case {
    std::string name;
    std::function<void(const std::string&)> make;
    std::string problem;
  };
  const std::vector<Case> cases = {
      {"folder", [](const std::string& p) { std::filesystem::create_directory(p); }, "is a directory"},
      {"fifo", [](const std::string& p) { ::mkfifo(p.c_str(), 0600); }, "is not a regular file"},
      {"link", [&](const std::string& p) { std::filesystem::create_symlink(victim, p); }, "is a symbolic link"},
      {"dangling link", [&](const std::string& p) { std::filesystem::create_symlink(d.out("nowhere"), p); },
       "is a symbolic link"},
  };
  for (const Case& c : cases) {
    for (const char* command : {"capture", "watch"}) {
      std::string out = d.out(c.name + "-" + command + ".png");
      c.make(out);
      std::vector<std::string> arguments = {command, "--pid", "4242", "--out", out};
      if (std::string(command) == "watch") arguments.insert(arguments.end(), {"--count", "1"});
      ToolRun run = d.capture(arguments);
      EXPECT_EQ(run.status, 1) << c.name << " " << command;
      EXPECT_EQ(run.err, "background-window-capture: failed to write png to " + out + ": " + c.problem + "\n");
      EXPECT_EQ(run.out, "");
    }
  }
  EXPECT_EQ(readText(victim), "keep me");
  EXPECT_FALSE(tavlin::common::exists(d.out("nowhere")));
  for (const auto& entry : std::filesystem::directory_iterator(d.dir.path())) {
    EXPECT_FALSE(entry.path().filename().string().starts_with(".tavlin-")) << entry.path();
  }
}

TEST(BackgroundCapture, NoLinkBesideTheOutputIsEverFollowed) {
  // Another user of a shared folder plants links at every name a writer might use for
  // its temporary file; the victim's files stay as they are.
  CaptureDesktop d;
  std::string victim = d.out("victim.txt");
  tavlin::testing::writeText(victim, "keep me");
  std::string folder = d.out("shared");
  std::filesystem::create_directory(folder);
  std::string out = folder + "/shot.png", history = folder + "/history";
  pid_t next = ::getpid();
  for (pid_t pid = next; pid < next + 400; ++pid) {
    for (const std::string& name : {".shot.png.tmp-" + std::to_string(pid) + ".png", "shot.png.tmp-" + std::to_string(pid)}) {
      std::filesystem::create_symlink(victim, folder + "/" + name);
    }
  }
  ToolRun run = d.capture({"watch", "--pid", "4242", "--out", out, "--archive-dir", history, "--count", "2",
                           "--interval", "1"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(readText(victim), "keep me");
  EXPECT_TRUE(wholePNG(out));
  EXPECT_FALSE(std::filesystem::is_symlink(out));
}

TEST(BackgroundCapture, ModesNamesAndArchiveFailures) {
  CaptureDesktop d;
  mode_t before = ::umask(027);
  // A new file follows the umask; a replaced one keeps its mode.
  ASSERT_EQ(d.capture({"capture", "--pid", "4242", "--out", d.out("new.png")}).status, 0);
  EXPECT_EQ(std::filesystem::status(d.out("new.png")).permissions(),
            std::filesystem::perms(0640));
  tavlin::testing::writeText(d.out("old.png"), "x");
  ::chmod(d.out("old.png").c_str(), 0604);
  ASSERT_EQ(d.capture({"capture", "--pid", "4242", "--out", d.out("old.png")}).status, 0);
  EXPECT_EQ(std::filesystem::status(d.out("old.png")).permissions(), std::filesystem::perms(0604));
  EXPECT_TRUE(wholePNG(d.out("old.png")));
  // Archive copies follow the umask too.
  ASSERT_EQ(d.capture({"watch", "--pid", "4242", "--out", d.out("w.png"), "--archive-dir", d.out("h"), "--count",
                       "1"}).status,
            0);
  for (const auto& entry : std::filesystem::directory_iterator(d.out("h"))) {
    EXPECT_EQ(entry.status().permissions(), std::filesystem::perms(0640));
  }
  ::umask(before);

  // The longest valid file name works: nothing longer is made beside it.
  std::string longName = d.out(std::string(251, 'n') + ".png");
  ToolRun run = d.capture({"capture", "--pid", "4242", "--out", longName});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(wholePNG(longName));

  // An archive that cannot be written is the archive's failure: the capture stands. A
  // file where the folder should be, and a folder that cannot be made.
  tavlin::testing::writeText(d.out("not-a-folder"), "x");
  for (const auto& [folder, why] : std::vector<std::pair<std::string, std::string>>{
           {d.out("not-a-folder"), "not a directory"}, {d.out("not-a-folder/history"), "Not a directory"}}) {
    run = d.capture({"watch", "--pid", "4242", "--out", d.out("w2.png"), "--archive-dir", folder, "--count", "1"});
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("captured window 301 (pid=4242, app=Scribe) to " + d.out("w2.png") + "\n"),
              std::string::npos)
        << run.out;
    EXPECT_EQ(run.err, "watch archive failed: could not create the archive folder " + folder + ": " + why + "\n");
    EXPECT_EQ(count(run.err, "watch capture failed"), 0u);
  }
}

TEST(BackgroundCapture, ListAndCapture) {
  CaptureDesktop d;
  ToolRun run = d.capture({"list", "--app", "scri"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "301\tpid=4242\tapp=Scribe\ttitle=Meeting notes.txt\tframe=120,80,900,640\n");
  EXPECT_EQ(d.capture({"list", "--title-contains", "nothing like it"}).err,
            "background-window-capture: no matching windows found\n");

  run = d.capture({"capture", "--app", "s", "--out", d.out("x.png")});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("background-window-capture: multiple matching windows found: 301 (pid=4242, app=Scribe, "
                         "title=Meeting notes.txt), 302 (pid=5150, app=Postbox, title=Inbox (3 messages))"),
            std::string::npos)
      << run.err;
  EXPECT_NE(run.err.find(". Narrow the query with --window-id, --pid, --app, or --title-contains\n"), std::string::npos);

  run = d.capture({"capture", "--pid", "4242", "--out", d.out("shot.png")});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "captured window 301 (pid=4242, app=Scribe) to " + d.out("shot.png") + "\n");
  EXPECT_TRUE(wholePNG(d.out("shot.png")));
  EXPECT_NE(d.events().find("system sck-capture window=301 width=900 height=640"), std::string::npos);
}

TEST(BackgroundCapture, FallbacksAndTheHardTimeOut) {
  struct Case {
    std::string extra;
    std::vector<std::string> debugLines;  // expected among the debug output
    bool screenshotTool;                  // the region capture ran
  };
  const std::vector<Case> cases = {
      {R"("screenCaptureKit": {"shareableContent": "never"},)",
       {"ScreenCaptureKit window enumeration failed: operation timed out after 0.5s",
        "Quartz fallback matched 1 windows"},
       true},
      {R"("screenCaptureKit": {"capture": "never"},)",
       {"ScreenCaptureKit returned 3 windows", "ScreenCaptureKit matched 1 windows"},
       true},
      {R"("screenCaptureKit": {"capture": 30},)", {"ScreenCaptureKit matched 1 windows"}, true},
      {"", {"ScreenCaptureKit matched 1 windows"}, false},
  };
  for (const Case& c : cases) {
    CaptureDesktop d(c.extra);
    ToolRun run = d.capture({"capture", "--pid", "4242", "--out", d.out("shot.png"), "--timeout", "0.5"},
                            {{"TAVLIN_BWC_DEBUG", "1"}});
    ASSERT_EQ(run.status, 0) << c.extra << run.err;
    EXPECT_TRUE(wholePNG(d.out("shot.png"))) << c.extra;
    for (const std::string& line : c.debugLines) {
      EXPECT_NE(run.err.find("[background-window-capture debug] " + line + "\n"), std::string::npos)
          << c.extra << "\n" << run.err;
    }
    EXPECT_EQ(d.events().find("program=/usr/sbin/screencapture") != std::string::npos, c.screenshotTool)
        << c.extra << "\n" << d.events();
  }

  // Without Screen Recording permission the screenshot tool would image the wallpaper: it
  // is not run, and the failure names the permission. ScreenCaptureKit's refusal counts
  // even when the preflight's answer is stale.
  for (const char* refused : {R"("screenCaptureKit": {"shareableContent": "refused"},)",
                              R"("screenCaptureKit": {"capture": "refused"},)",
                              R"("screenCaptureKit": {"shareableContent": "refused", "preflight": true},)",
                              R"("screenCaptureKit": {"capture": "refused", "preflight": true},)",
                              R"("screenCaptureKit": {"preflight": false, "capture": "never"},)"}) {
    CaptureDesktop d(refused);
    ToolRun run = d.capture({"capture", "--pid", "4242", "--out", d.out("shot.png")});
    EXPECT_EQ(run.status, 1) << refused;
    EXPECT_NE(run.err.find(" failed: Screen Recording permission is not granted to Tavlin (System Settings > "
                           "Privacy & Security > Screen Recording)\n"),
              std::string::npos)
        << refused << "\n" << run.err;
    EXPECT_EQ(d.events().find("program=/usr/sbin/screencapture"), std::string::npos) << d.events();
    EXPECT_FALSE(tavlin::common::exists(d.out("shot.png")));
  }

  // A window that disappears between discovery and capture, and a screenshot tool that
  // fails too: both errors are reported.
  CaptureDesktop gone(R"("capture": {"screencapture": "fails"},)");
  gone.edit("\"number\": 301,", "\"number\": 301, \"vanishes\": true,");
  ToolRun run = gone.capture({"capture", "--window-id", "301", "--out", gone.out("shot.png")});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err,
            "background-window-capture: ScreenCaptureKit failed: The operation couldn\xE2\x80\x99t be completed. "
            "(com.apple.ScreenCaptureKit.SCStreamErrorDomain error -3815.); fallback screencapture failed: unknown "
            "screencapture failure\n");
  EXPECT_FALSE(tavlin::common::exists(gone.out("shot.png")));
}

TEST(BackgroundCapture, ALateAnswerChangesNothing) {
  // In process: the deadline completes first; the answer that comes afterwards is dropped.
  tavlin::sim::SimPlatform p(tavlin::sim::SimDesktop::fromJson(
      nlohmann::ordered_json::parse(R"({"tavlinDesktop": 1})"), "/unused", ""));
  std::shared_ptr<tavlin::capture::SingleCompletion<int>> kept;
  std::string error;
  try {
    tavlin::capture::runWithHardTimeout<int>(p.clock(), 1.0, [&](auto completion) {
      kept = completion;
      p.desktop().schedule(1.5, [completion] { completion->succeed(42); });
    });
  } catch (const tavlin::cli::ToolError& e) {
    error = e.description;
  }
  EXPECT_EQ(error, "operation timed out after 1.0s");
  p.desktop().advance(1.0);  // the late answer fires now
  EXPECT_FALSE(kept->succeed(7));
  EXPECT_EQ(tavlin::testing::toolErrorOf([&] { kept->take(); }), "operation timed out after 1.0s");

  // End to end: a watch whose captures answer after their time-out: no image of
  // theirs is ever written; the screenshot tool's are.
  CaptureDesktop d(R"("screenCaptureKit": {"capture": 1.5},)");
  ToolRun run = d.capture({"watch", "--pid", "4242", "--out", d.out("latest.png"), "--archive-dir", d.out("history"),
                           "--interval", "2", "--count", "2", "--timeout", "1"});
  ASSERT_EQ(run.status, 0) << run.err;
  std::string events = d.events();
  // The first capture's answer comes during the interval; the last one's would come
  // after the watch has ended.
  EXPECT_EQ(count(events, "sck-capture-answered-late"), 1u) << events;
  EXPECT_EQ(count(events, "write-png"), 0u) << events;
  EXPECT_EQ(count(events, "program=/usr/sbin/screencapture"), 2u) << events;
  EXPECT_TRUE(wholePNG(d.out("latest.png")));
}

TEST(BackgroundCapture, WatchArchivesEachCapture) {
  CaptureDesktop d;
  ToolRun run = d.capture({"watch", "--window-id", "301", "--out", d.out("latest.png"), "--archive-dir",
                           d.out("history"), "--interval", "2", "--count", "3"});
  ASSERT_EQ(run.status, 0) << run.err;
  std::vector<std::string> archived;
  for (const auto& entry : std::filesystem::directory_iterator(d.out("history"))) {
    archived.push_back(entry.path().filename().string());
    EXPECT_TRUE(wholePNG(entry.path().string())) << entry.path();
  }
  std::sort(archived.begin(), archived.end());
  ASSERT_EQ(archived.size(), 3u);
  // Named by the (virtual) time of each capture, two seconds apart.
  EXPECT_TRUE(archived[0].starts_with("window-301-")) << archived[0];
  EXPECT_NE(archived[0], archived[1]);
  EXPECT_EQ(count(run.out, "captured window 301"), 3u);
  EXPECT_NE(run.out.find("watch finished after 3 captures\n"), std::string::npos) << run.out;
}

TEST(BackgroundCapture, AWatchAsksForTheWindowsOnceAndCapturesTheWindowFound) {
  // Every tick captures the window object discovery returned: ScreenCaptureKit is asked
  // for its windows once per watch, not again inside each capture's time-out. A window
  // that has gone since is not looked up again either: its captures fall back.
  for (bool vanishes : {false, true}) {
    tavlin::testing::TempDir dir;
    std::string text = readText(exampleDesktop);
    if (vanishes) text = tavlin::testing::replaceAll(text, "\"number\": 301,", "\"number\": 301, \"vanishes\": true,");
    tavlin::sim::SimPlatform p(tavlin::sim::SimDesktop::fromText(text, dir.file("desktop.json"), ""));
    tavlin::runtime::ProcessValues values;
    tavlin::capture::CaptureContext c{p, values};
    auto output = tavlin::capture::bwcExecuteCommand(
        c, {"watch", "--window-id", "301", "--out", dir.file("latest.png"), "--interval", "2", "--count", "5"});
    std::string events;
    for (const std::string& line : p.desktop().pendingLogLines()) events += line + "\n";
    EXPECT_EQ(p.shareableContentRequests(), 1u) << events;
    EXPECT_EQ(count(events, "sck-shareable-content"), 1u) << events;
    EXPECT_EQ(count(events, "sck-capture window=301 "), 5u) << events;
    EXPECT_EQ(count(events, "program=/usr/sbin/screencapture"), vanishes ? 5u : 0u) << events;
    EXPECT_EQ(output.stdoutLines.size(), 6u);
    EXPECT_EQ(output.stderrLines.size(), 0u);
    EXPECT_TRUE(wholePNG(dir.file("latest.png")));
  }
}

TEST(BackgroundCapture, WatchStopsCleanlyOnASignal) {
  for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
    CaptureDesktop d;
    std::string out = d.out("latest.png"), history = d.out("history"), log = d.out("watch.out");
    std::vector<std::string> env = {"TAVLIN_SIM_DESKTOP=" + d.path, "TAVLIN_SIM_EVENT_LOG=" + d.log,
                                    "HOME=" + d.dir.path(), "PATH=/usr/bin:/bin"};
    std::vector<std::string> args = {TAVLIN_BINARY, "__background-window-capture", "watch", "--window-id", "301",
                                     "--out", out, "--archive-dir", history, "--interval", "1"};
    std::vector<char*> argv, envp;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    for (auto& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = 0;
    ASSERT_EQ(posix_spawn(&pid, TAVLIN_BINARY, &actions, nullptr, argv.data(), envp.data()), 0);
    posix_spawn_file_actions_destroy(&actions);
    // Until a few captures are archived.
    for (int i = 0; i < 400 && (!std::filesystem::exists(history) ||
                                std::distance(std::filesystem::directory_iterator(history),
                                              std::filesystem::directory_iterator()) < 3);
         ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    // Each line shows as it happens, not when the watch ends.
    EXPECT_NE(readText(log).find("captured window 301"), std::string::npos) << readText(log);
    ::kill(pid, signal);
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_NE(readText(log).find("watch stopped after "), std::string::npos) << readText(log);
    size_t archived = 0;
    for (const auto& entry : std::filesystem::directory_iterator(history)) {
      ++archived;
      EXPECT_TRUE(wholePNG(entry.path().string())) << entry.path();
    }
    EXPECT_GE(archived, 3u);
    EXPECT_TRUE(wholePNG(out));
    // Nothing half-written is left beside the output or in the archive.
    for (const auto& entry : std::filesystem::directory_iterator(d.dir.path())) {
      EXPECT_EQ(entry.path().filename().string().find(".tmp-"), std::string::npos) << entry.path();
      EXPECT_FALSE(entry.path().filename().string().starts_with(".tavlin-")) << entry.path();
    }
  }
}
