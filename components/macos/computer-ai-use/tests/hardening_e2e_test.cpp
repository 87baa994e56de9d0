// Hostile input and an unlucky machine, end to end through the binary: every case ends
// with a clear message and exit status 1, or with honest success, never a crash, a
// hang, a lie or a half-written file.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <optional>

#include "common/files.h"
#include "platform/posix_processes.h"
#include "test_support.h"

using tavlin::testing::DesktopFixture;
using tavlin::testing::readText;
using tavlin::testing::runTool;
using tavlin::testing::TempDir;
using tavlin::testing::ToolRun;
using tavlin::testing::writeText;

namespace {

const std::string exampleDesktop = std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json";

struct Desktop : DesktopFixture {
  explicit Desktop(const std::string& json = readText(exampleDesktop)) : DesktopFixture(json) {}

  // The binary run by /bin/sh, for redirections the process runner cannot make:
  // "$0" is the binary.
  ToolRun shell(const std::string& script) {
    tavlin::platform::ProcessRequest request;
    request.executable = "/bin/sh";
    request.arguments = {"-c", script, TAVLIN_BINARY};
    request.captureOutput = true;
    request.timeoutSeconds = 60;
    request.extraEnvironment = {{"TAVLIN_SIM_DESKTOP", path}, {"TAVLIN_SIM_EVENT_LOG", log}, {"HOME", dir.path()}};
    auto result = tavlin::platform::PosixProcesses().run(request);
    return {result.exitStatus, result.standardOutput, result.standardError};
  }
  std::string cache() const { return dir.file("Library/Caches/Tavlin/computer-ai-use-state"); }
};

mode_t modeOf(const std::string& path) {
  struct stat st {};
  ::stat(path.c_str(), &st);
  return st.st_mode & 07777;
}

// A desktop of one application "P" (pid 5, frontmost) with one window holding the
// given children; the window frame and screen may be replaced.
std::string oneWindow(const std::string& children, const std::string& window = R"("position": [0, 0], "size": [200, 100])",
                      const std::string& top = "") {
  return R"({"tavlinDesktop": 1, "frontmostPid": 5, )" + top + R"("apps": [{"pid": 5, "name": "P", "ui": {
      "role": "AXApplication", "attributes": {"AXFocusedWindow": {"ref": "w"}}, "children": [
        {"id": "w", "role": "AXWindow", "title": "W", )" + window + R"(, "children": [)" + children + "]}]}}]}";
}

}  // namespace

TEST(Hardening, ApplicationResolutionNeverFallsBackToTheFrontmostApplication) {
  Desktop d;
  ToolRun run = d.run({"type-text", "--app", "Scribbbe-typo", "--text", "oops"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "No running application matches Scribbbe-typo\n");
  EXPECT_EQ(d.events(), "");  // nothing typed anywhere

  // A malformed selector is reported even where no desktop could be read.
  run = runTool({"activate-app", "--app", "pid:x"}, {{"TAVLIN_SIM_DESKTOP", "/no/such/desktop.json"}});
  EXPECT_EQ(run.err, "--app pid:<PID> requires a positive decimal process identifier\n");
}

TEST(Hardening, ArgumentsThatAreNotUTF8AreRepaired) {
  Desktop d;
  ToolRun run = d.run({"set-value", "--app", "Scribe", "--element-index", "10", "--value", "bad\xff\xe2\x82utf8"});
  ASSERT_EQ(run.status, 0) << run.err;
  // One U+FFFD for the lone byte, one for the truncated sequence.
  EXPECT_NE(run.out.find("\"value\" : \"bad\xEF\xBF\xBD\xEF\xBF\xBDutf8\""), std::string::npos) << run.out;
  EXPECT_EQ(run.err, "");
  EXPECT_NE(readText(d.path).find("bad\xEF\xBF\xBD\xEF\xBF\xBDutf8"), std::string::npos);
  run = d.run({"list-apps", "--\xC0\xAF"});  // an overlong slash as a flag name is harmless
  EXPECT_EQ(run.status, 0) << run.err;
}

TEST(Hardening, MessagesStayOneLine) {
  Desktop d(R"({"tavlinDesktop": 1, "apps": [{"pid": 1, "ui": {"id": "a\nb", "children": [{"id": "a\nb"}]}}]})");
  ToolRun run = d.run({"list-apps"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "Simulated desktop " + d.path +
                         ": apps[0].ui.children[0].id: another element already has id \"a\\nb\"\n");
  run = d.run({"activate-app", "--app", "no\nsuch"});
  EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
}

TEST(Hardening, EffectsThatCannotBeRecordedFailTheCommand) {
  Desktop d;
  // The event log cannot be appended to: the value was set, but nothing may claim so.
  std::filesystem::create_directory(d.log);
  ToolRun run = d.run({"set-value", "--app", "Scribe", "--element-index", "10", "--value", "x"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "Simulated desktop " + d.path + ": cannot append to the event log " + d.log +
                         " (Is a directory)\n");
}

TEST(Hardening, OutputThatCannotBeWrittenIsAFailure) {
  Desktop d;
  ToolRun run = d.shell("\"$0\" list-apps >/dev/full");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "Could not write the result to standard output: No space left on device\n");

  // Closed standard streams: the tool's own files never take their place.
  for (const char* script : {"\"$0\" list-apps >&-", "\"$0\" list-apps >&- 2>&-", "\"$0\" activate-app 2>&-"}) {
    run = d.shell(script);
    EXPECT_EQ(readText(d.path + ".lock"), "") << script;
  }
  EXPECT_EQ(d.shell("\"$0\" list-apps <&- >&-").status, 0);
}

TEST(Hardening, IPCFilesAreNeverReachedThroughLinks) {
  TempDir dir;
  std::string ipc = dir.file("ipc");
  std::filesystem::create_directory(ipc);
  std::string victim = dir.file("victim");
  writeText(victim, "precious");
  std::filesystem::create_symlink(victim, ipc + "/stdout");
  std::filesystem::create_symlink(victim, ipc + "/pid");
  ToolRun run = runTool({"--tavlin-ipc", ipc, "help"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(readText(victim), "precious");
  EXPECT_EQ(readText(ipc + "/exit-code"), "0\n");
  EXPECT_FALSE(std::filesystem::is_symlink(ipc + "/pid"));  // replaced by a file of its own
}

TEST(Hardening, BoundedWork) {
  Desktop d;
  ToolRun run = d.run({"click", "--app", "Scribe", "--element-index", "6", "--click-count", "9223372036854775807"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "--click-count / --click_count must be at most 100\n");
  EXPECT_EQ(d.run({"click", "--app", "Scribe", "--element-index", "6", "--click-count", "100"}).status, 0);

  // Another process holds the desktop's lock: a bounded wait, then a clear failure.
  int fd = ::open((d.path + ".lock").c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(::flock(fd, LOCK_EX), 0);
  run = d.run({"list-apps"}, {{"TAVLIN_SIM_LOCK_WAIT", "0.2"}});
  ::close(fd);
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "Simulated desktop " + d.path + ": another process has held " + d.path +
                         ".lock for more than 0.2 s\n");
  EXPECT_EQ(d.run({"list-apps"}).status, 0);
}

TEST(Hardening, FilesThatAreNotRegularOrTooLargeAreRefused) {
  TempDir dir;
  std::string fifo = dir.file("fifo.json"), zero = dir.file("zero.json"), huge = dir.file("huge.json");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::filesystem::create_symlink("/dev/zero", zero);
  writeText(huge, "{}");
  std::filesystem::resize_file(huge, (size_t{256} << 20) + 1);  // sparse: costs no disk
  const std::vector<std::pair<std::string, std::string>> cases = {
      {fifo, "not a regular file"}, {zero, "not a regular file"}, {huge, "larger than 256 MiB"}};
  for (const auto& [path, problem] : cases) {
    ToolRun run = runTool({"list-apps"}, {{"TAVLIN_SIM_DESKTOP", path}, {"HOME", dir.path()}});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "Simulated desktop " + path + ": cannot read the file (" + problem + ")\n");
  }

  // The same for a state cache replaced by a FIFO.
  Desktop d;
  ASSERT_EQ(d.run({"get-app-state", "--app", "Scribe"}).status, 0);
  std::string cached = d.cache() + "/com.tavlin.example.scribe-4242.json";
  ::unlink(cached.c_str());
  ASSERT_EQ(::mkfifo(cached.c_str(), 0600), 0);
  ToolRun run = d.run({"click", "--app", "Scribe", "--x", "10", "--y", "10"});
  EXPECT_EQ(run.err, "Cannot read the cached state " + cached + " (not a regular file). Call get-app-state first.\n");
}

TEST(Hardening, DesktopFileLimitsNameThePlace) {
  const std::string deep = std::string(100000, '[') + std::string(100000, ']');
  const std::vector<std::pair<std::string, std::string>> cases = {
      {R"({"tavlinDesktop": 1, "apps": )" + deep + "}", "nested deeper than 2048 levels (line 1, column 2077)"},
      {"{\"tavlinDesktop\": 1,\n \"pointer\": [1e400, 0]}", "the number 1e400 is too large (line 2, column 14)"},
      {"{\"tavlinDesktop\": 1, \"description\": \"\xff\"}", "not valid JSON (line 1, column 38)"},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 99999999999999999999}]})", "apps[0].pid: expected an integer"},
      {R"({"tavlinDesktop": 1, "clock": {"start": "2263-01-01T00:00:00Z"}})",
       "clock.start: expected a time from 1970 to 2199"},
      {R"({"tavlinDesktop": 1, "clock": {"start": "1969-12-31T23:59:59Z"}})",
       "clock.start: expected a time from 1970 to 2199"},
      {R"({"tavlinDesktop": 1, "clock": {"elapsed": 1e12}})", "clock.elapsed: expected seconds from 0 to 1000000000"},
  };
  for (const auto& [json, message] : cases) {
    Desktop d(json);
    ToolRun run = d.run({"list-apps"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "Simulated desktop " + d.path + ": " + message + "\n");
  }
  // Attribute values nested as deep as the limit allows still load, in little memory.
  std::string values = std::string(2000, '[') + std::string(2000, ']');
  Desktop d(oneWindow(R"({"role": "AXGroup", "attributes": {"AXDeep": )" + values + "}}"));
  EXPECT_EQ(d.run({"list-apps"}).status, 0);
}

TEST(Hardening, PointsOffEveryScreenAreRefusedBeforeAnyEvent) {
  Desktop d(oneWindow(R"({"role": "AXButton", "position": [1.7e308, 0], "size": [1.7e308, 10]},
                         {"role": "AXButton", "position": [10, 10], "size": [20, 20]})"));
  ToolRun run = d.run({"click", "--app", "P", "--element-index", "1"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "Screen point inf,5 is not on any screen (coordinates are limited to 100000 points either way)\n");
  run = d.run({"scroll", "--app", "P", "--element-index", "1", "--direction", "down"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(d.events().find("mouse"), std::string::npos);
  EXPECT_EQ(d.events().find("warp"), std::string::npos);

  // A drag across the whole double range, through the cached screenshot.
  ASSERT_EQ(d.run({"get-app-state", "--app", "P"}).status, 0);
  run = d.run({"drag", "--app", "P", "--from-x", "-1e308", "--from-y", "1", "--to-x", "1e308", "--to-y", "1"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find(" is not on any screen "), std::string::npos) << run.err;
  EXPECT_EQ(d.events().find("dragged"), std::string::npos);
  run = d.run({"background-paste-clipboard", "--app", "P", "--screen-x", "1e300", "--screen-y", "1"});
  EXPECT_EQ(run.status, 1);
  // The desktop stays loadable after all of it.
  EXPECT_EQ(d.run({"click", "--app", "P", "--element-index", "2"}).status, 0);
}

TEST(Hardening, CapturesBeyondReasonNeverFailTheSnapshot) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      // A window far larger than the screen.
      {R"("position": [0, 0], "size": [100000, 100000])", R"("windows": [{"number": 9, "pid": 5, "bounds": [0, 0, 100000, 100000]}], )"},
      // An enormous backing scale, for the screenshot tool (the capture mode asks for
      // the window's size in points).
      {R"("position": [0, 0], "size": [200, 100])",
       R"("screen": {"backingScale": 1000}, "capture": {"companion": "fails"},
          "windows": [{"number": 9, "pid": 5, "bounds": [0, 0, 200, 100]}], )"},
      // A window beyond the range of the screenshot tool's integers.
      {R"("position": [1e19, 0], "size": [200, 100])",
       R"("capture": {"companion": "fails"}, "windows": [{"number": 9, "pid": 5, "bounds": [1e19, 0, 200, 100]}], )"},
  };
  for (const auto& [window, top] : cases) {
    Desktop d(oneWindow(R"({"role": "AXButton"})", window, top));
    ToolRun run = d.run({"get-app-state", "--app", "P", "--format", "json"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out.find("screenshot"), std::string::npos) << window;
    EXPECT_EQ(d.events().find("-R1"), std::string::npos) << d.events();
    EXPECT_FALSE(tavlin::common::exists(d.cache() + "/p-5.partial.png"));
  }
}

TEST(Hardening, FileModesAndLeftovers) {
  Desktop d;
  // A cache folder made too open by someone else's hand is tightened when the user owns it.
  std::filesystem::create_directories(d.cache());
  ::chmod(d.cache().c_str(), 0777);
  ::chmod(tavlin::common::deletingLastPathComponent(d.cache()).c_str(), 0777);
  // A read-only desktop file stays read-only; a write-back killed earlier left a temporary file.
  ::chmod(d.path.c_str(), 0444);
  writeText(d.path + ".tmp-AbC123", "half");
  writeText(d.path + ".tmp-keep", "not ours");
  ToolRun run = d.run({"get-app-state", "--app", "Scribe"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(modeOf(d.cache()), 0700u);
  EXPECT_EQ(modeOf(tavlin::common::deletingLastPathComponent(d.cache())), 0700u);
  EXPECT_EQ(modeOf(d.cache() + "/com.tavlin.example.scribe-4242.png"), 0600u);
  EXPECT_FALSE(tavlin::common::exists(d.cache() + "/com.tavlin.example.scribe-4242.partial.png"));
  EXPECT_EQ(modeOf(d.path), 0444u);
  EXPECT_FALSE(tavlin::common::exists(d.path + ".tmp-AbC123"));
  EXPECT_TRUE(tavlin::common::exists(d.path + ".tmp-keep"));
}

TEST(Hardening, AppendsAreWholeLinesOrNothing) {
  TempDir dir;
  std::string log = dir.file("log");
  writeText(log, "first\n");
  // A file-size limit makes the write stop midway, as a full disk would.
  struct sigaction ignore {}, previous {};
  ignore.sa_handler = SIG_IGN;
  ::sigaction(SIGXFSZ, &ignore, &previous);
  rlimit old{};
  ::getrlimit(RLIMIT_FSIZE, &old);
  rlimit small = old;
  small.rlim_cur = 10;
  ::setrlimit(RLIMIT_FSIZE, &small);
  bool ok = tavlin::common::appendWhole(log, "second line\n");
  ::setrlimit(RLIMIT_FSIZE, &old);
  ::sigaction(SIGXFSZ, &previous, nullptr);
  EXPECT_FALSE(ok);
  EXPECT_EQ(readText(log), "first\n");
  EXPECT_TRUE(tavlin::common::appendWhole(log, "second line\n"));
  EXPECT_EQ(readText(log), "first\nsecond line\n");
}

TEST(Hardening, AnApplicationThatQuitsMidWalk) {
  // After a few answers every element is gone: the walk lists what it reached, in
  // bounded time, and a later command finds the application's elements gone too.
  Desktop d(tavlin::testing::replaceAll(readText(exampleDesktop), "\"name\": \"Scribe\",",
                                        "\"name\": \"Scribe\", \"quitsAfterCalls\": 25,"));
  ToolRun run = d.run({"get-app-state", "--app", "Scribe", "--format", "json"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("\"role\" : \"\""), std::string::npos) << run.out;  // elements read after the quit
  run = d.run({"perform-secondary-action", "--app", "Scribe", "--element-index", "16", "--action", "AXPress"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "Element index 16 not found\n");
}

TEST(Hardening, AnUnwritableCacheFolderIsAClearError) {
  Desktop d;
  // A file where the cache folder's parent should be.
  std::filesystem::create_directories(d.dir.file("Library/Caches"));
  writeText(d.dir.file("Library/Caches/Tavlin"), "not a folder");
  ToolRun run = d.run({"get-app-state", "--app", "Scribe"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "Could not create the cache folder " + d.cache() + ": Not a directory\n");
  EXPECT_EQ(run.out, "");
}

TEST(Hardening, EveryWaitHasABound) {
  // The Open panel waits: a negative, infinite or larger time-out, or a number that is
  // not plain decimal, is refused before any wait; a word is the default, as an absent one.
  Desktop d;
  for (std::string timeout : {"-1", "-0.5", "inf", "-inf", "601", "1e6", "1e308", "nan", " 5", "0x10", "5s", "1e999"}) {
    for (const char* command : {"inspect-open-panel", "choose-open-panel-path", "choose-open-panel-bundle"}) {
      ToolRun run = d.run({command, "--app", "Scribe", "--path", "/tmp/x.app", "--timeout", timeout});
      EXPECT_EQ(run.status, 1) << command << " " << timeout;
      EXPECT_EQ(run.err, "--timeout must be a number of seconds from 0 to 600, not " + timeout + "\n");
    }
  }
  for (std::string timeout : {"soon", ""}) {
    ToolRun run = d.run({"inspect-open-panel", "--app", "Scribe", "--timeout", timeout});
    EXPECT_EQ(run.err, "Native Open panel not found within 1.0s\n") << timeout;
  }
  // The longest wait runs 5,000 polls of the whole application tree: a one-window
  // application keeps it short in real time on a loaded machine.
  Desktop small(R"({"tavlinDesktop": 1, "apps": [{"pid": 4242, "name": "Scribe",
                    "ui": {"role": "AXApplication", "children": [{"role": "AXWindow", "title": "Notes"}]}}]})");
  EXPECT_EQ(small.run({"inspect-open-panel", "--app", "Scribe", "--timeout", "600"}).err,
            "Native Open panel not found within 600.0s\n");
}

TEST(Hardening, OwnFilesAreWrittenWithoutFollowingLinks) {
  // Temporary names are unpredictable and made exclusively: links planted at any
  // name the old scheme used are left alone, and a name at the length limit still
  // gets its temporary file.
  TempDir dir;
  std::string victim = dir.file("victim");
  writeText(victim, "keep me");
  std::string target = dir.file("state.json");
  for (const char* name : {"state.json.tmp-000000", "state.json.tmp-XXXXXX", ".state.json.tmp"}) {
    std::filesystem::create_symlink(victim, dir.file(name));
  }
  EXPECT_TRUE(tavlin::common::writeFileAtomically(target, "new"));
  EXPECT_EQ(readText(victim), "keep me");
  EXPECT_EQ(readText(target), "new");
  std::string longest = dir.file(std::string(255, 'n'));
  EXPECT_TRUE(tavlin::common::writeFileAtomically(longest, "x"));
  std::string accented = dir.file(std::string(252, 'n') + "\xC3\xA9");  // 254 bytes, a two-byte character last
  EXPECT_TRUE(tavlin::common::writeFileAtomically(accented, "x"));
  size_t leftovers = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    leftovers += entry.path().filename().string().find(".tmp-") != std::string::npos &&
                 !std::filesystem::is_symlink(entry.path());
  }
  EXPECT_EQ(leftovers, 0u);

  // Staging for writers that take a path: the final name is a regular file or nothing.
  for (const auto& [make, problem] : std::vector<std::pair<std::function<void(const std::string&)>, std::string>>{
           {[](const std::string& p) { std::filesystem::create_directory(p); }, "is a directory"},
           {[](const std::string& p) { ::mkfifo(p.c_str(), 0600); }, "is not a regular file"},
           {[&](const std::string& p) { std::filesystem::create_symlink(victim, p); }, "is a symbolic link"}}) {
    std::string out = dir.file("out-" + std::to_string(problem.size()));
    make(out);
    EXPECT_EQ(tavlin::common::outputTargetProblem(out).value_or("none"), problem);
  }
  std::optional<mode_t> mode;
  writeText(dir.file("plain"), "x");
  ::chmod(dir.file("plain").c_str(), 0604);
  EXPECT_EQ(tavlin::common::outputTargetProblem(dir.file("plain"), &mode), std::nullopt);
  EXPECT_EQ(mode, std::optional<mode_t>(0604));
  EXPECT_EQ(tavlin::common::outputTargetProblem(dir.file("missing")), std::nullopt);
}
