// The status item's services (release version, updater runner, single-instance lock),
// the updater script, and an installed app.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>
#include <tuple>

#include "cli/tool_error.h"
#include "common/files.h"
#include "platform/posix_processes.h"
#include "platform/sim/sim_platform.h"
#include "statusitem/status_item_services.h"
#include "statusitem/updater_feed.h"
#include "test_support.h"

using tavlin::testing::readText;
using tavlin::testing::runTool;
using tavlin::testing::TempDir;
using tavlin::testing::toolErrorOf;
using tavlin::testing::ToolRun;
using tavlin::testing::writeText;

extern char** environ;

namespace {

void writeScript(const std::string& path, const std::string& body) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  writeText(path, "#!/bin/sh\n" + body);
  ::chmod(path.c_str(), 0755);
}

// A process of the binary under test in the background, with its own home.
pid_t spawnTool(const std::vector<std::string>& arguments, const std::string& home) {
  std::vector<std::string> args = {TAVLIN_BINARY};
  args.insert(args.end(), arguments.begin(), arguments.end());
  std::vector<std::string> env = {"HOME=" + home, "PATH=/usr/bin:/bin"};
  std::vector<char*> argv, envp;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  for (auto& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawn(&pid, TAVLIN_BINARY, nullptr, nullptr, argv.data(), envp.data()) != 0) return -1;
  return pid;
}

// "/bin/sh -c LINE" in the background.
pid_t spawnCommand(const std::string& line) {
  std::vector<std::string> args = {"/bin/sh", "-c", line};
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, argv.data(), environ) != 0) return -1;
  return pid;
}

// Whether another process holds the status item's lock (waiting for it a while).
bool lockHeldSoon(const std::string& path) {
  for (int i = 0; i < 400; ++i) {
    int fd = ::open(path.c_str(), O_RDWR);
    if (fd >= 0) {
      bool held = ::lockf(fd, F_TEST, 0) != 0;
      ::close(fd);
      if (held) return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(25));
  }
  return false;
}

}  // namespace

TEST(StatusItem, ReleaseVersion) {
  const std::vector<std::pair<std::optional<std::string>, std::string>> cases = {
      {"version: 1.2.3\n", "1.2.3"},
      {"Version: 1.2.3", "1.2.3"},
      {"\n\nname: tavlin\nVERSION:   4.5  \n", "4.5"},
      {"version:\nversion: 2.0\n", "2.0"},
      {"0.1.0\n", "0.0.0-dev"},
      {"", "0.0.0-dev"},
      {std::nullopt, "0.0.0-dev"},
      // Lines end at any of the three line ends.
      {"name: tavlin\rversion: 1.0\r", "1.0"},
      {"name: tavlin\r\nVersion: 2.1\r\n", "2.1"},
      {"version:\r\nversion: 3.0\r\n", "3.0"},
      // A file that is not UTF-8 is unreadable.
      {"version: 1.0\xff\n", "0.0.0-dev"},
      {"\xc3(\nversion: 1.0\n", "0.0.0-dev"},
  };
  for (const auto& [text, version] : cases) {
    TempDir root;
    if (text) writeText(root.file("RELEASE_BUILD.txt"), *text);
    EXPECT_EQ(tavlin::statusitem::tavlinReleaseVersion(root.path()), version) << text.value_or("<none>");
  }
  // The repository's own file is in the form the reader expects.
  EXPECT_EQ(tavlin::statusitem::tavlinReleaseVersion(TAVLIN_SOURCE_ROOT), "0.1.0");
}

TEST(StatusItem, UpdaterRunner) {
  tavlin::sim::SimPlatform platform{tavlin::sim::SimSettings{}};
  struct Case {
    std::string script;
    std::string command;
    std::string expected;  // the object, or the error message
  };
  const std::vector<Case> cases = {
      {"echo 'checking the feed'\necho '{\"note\": 1'\necho '{\"ok\": true, \"n\": 2}'\necho 'done'\n", "check",
       R"({"n":2,"ok":true})"},
      {"echo '{\"error\": \"feed unreachable\"}'\nexit 1\n", "check", R"({"error":"feed unreachable"})"},
      {"echo '{\"ok\": false}'\necho boom >&2\nexit 3\n", "check", "updater exited with status 3: boom"},
      {"echo 'no json here'\n", "status", "tavlin-updater returned no structured result"},
      {"echo 'no json here'\necho 'feed unreachable' >&2\nexit 2\n", "check",
       "updater exited with status 2: feed unreachable"},
      // A helper left running with the output pipe does not make the updater late.
      {"(sleep 5) &\necho '{\"ok\": true}'\n", "check", R"({"ok":true})"},
      {"sleep 30\n", "status", "tavlin-updater timed out"},
      // The arguments as the runner passes them, and the install root in the environment.
      {"printf '{\"args\": \"%s\", \"root\": \"%s\"}\\n' \"$*\" \"$TAVLIN_INSTALL_ROOT\"\n", "check", "ARGS"},
      {"printf '{\"args\": \"%s\"}\\n' \"$*\"\n", "set-enabled", R"({"args":"set-enabled --json off"})"},
  };
  for (const Case& c : cases) {
    TempDir root;
    writeText(root.file("RELEASE_BUILD.txt"), "version: 9.8.7\n");
    writeScript(root.file("bin/tavlin-updater"), c.script);
    std::vector<std::string> extra = c.command == "set-enabled" ? std::vector<std::string>{"off"}
                                                                : std::vector<std::string>{};
    std::string got;
    try {
      got = tavlin::statusitem::tavlinUpdaterResult(platform, root.path(), c.command, extra, 1.0).dump();
    } catch (const tavlin::cli::ToolError& e) {
      got = e.description;
    }
    std::string expected = c.expected;
    if (expected == "ARGS") {
      expected = R"({"args":"check --json --platform macos --install-root )" + root.path() +
                 R"( --current-version 9.8.7","root":")" + root.path() + "\"}";
    }
    EXPECT_EQ(got, expected) << c.script;
  }
  TempDir empty;
  EXPECT_EQ(toolErrorOf([&] { tavlin::statusitem::tavlinUpdaterResult(platform, empty.path(), "status", {}, 1); }),
            "tavlin-updater is missing or not executable: " + empty.file("bin/tavlin-updater"));
}

TEST(StatusItem, UpdaterRunnerEndsItsUpdaterGracefully) {
  tavlin::sim::SimPlatform platform{tavlin::sim::SimSettings{}};
  TempDir root;
  writeText(root.file("RELEASE_BUILD.txt"), "version: 1.0.0\n");
  // A late updater is terminated, so its TERM trap cleans up after it.
  writeScript(root.file("bin/tavlin-updater"),
              "trap 'echo cleaned > \"$TAVLIN_INSTALL_ROOT/trap\"; exit 1' TERM\nwhile :; do sleep 0.05; done\n");
  EXPECT_EQ(toolErrorOf([&] { tavlin::statusitem::tavlinUpdaterResult(platform, root.path(), "check", {}, 0.3); }),
            "tavlin-updater timed out");
  EXPECT_EQ(readText(root.file("trap")), "cleaned\n");

  // The status item blocks SIGINT and SIGTERM for itself; its updater does not inherit that.
  writeScript(root.file("bin/tavlin-updater"), "kill -TERM $$\nsleep 1\necho '{\"survived\": true}'\n");
  sigset_t blocked, before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGINT);
  sigaddset(&blocked, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
  std::string got = toolErrorOf([&] { tavlin::statusitem::tavlinUpdaterResult(platform, root.path(), "check", {}, 5); });
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(got, "updater exited with status 143");
}

TEST(StatusItem, UpdaterRunnerKeepsTheRunLoopTurning) {
  tavlin::sim::SimPlatform platform(tavlin::sim::SimDesktop::fromJson(
      nlohmann::ordered_json::parse(R"({"tavlinDesktop": 1, "apps": []})"), "/unused", ""));
  TempDir root;
  writeText(root.file("RELEASE_BUILD.txt"), "version: 1.0.0\n");
  writeScript(root.file("bin/tavlin-updater"), "sleep 0.3\necho '{\"ok\": true}'\n");
  EXPECT_EQ(tavlin::statusitem::tavlinUpdaterResult(platform, root.path(), "check", {}, 5).dump(), R"({"ok":true})");
  // The run loop turned in steps of 0.05 s while the caller waited.
  int64_t turned = platform.desktop().elapsedMicroseconds();
  EXPECT_GE(turned, 300'000);
  EXPECT_EQ(turned % 50'000, 0);

  // Also where the process port is used directly: the hook runs often while the child runs.
  tavlin::platform::PosixProcesses processes;
  tavlin::platform::ProcessRequest request;
  request.executable = "/bin/sh";
  request.arguments = {"-c", "sleep 0.3"};
  std::vector<std::chrono::steady_clock::time_point> turns;
  request.whileWaiting = [&] { turns.push_back(std::chrono::steady_clock::now()); };
  EXPECT_EQ(processes.run(request).exitStatus, 0);
  ASSERT_GE(turns.size(), 6u);
  for (size_t i = 1; i < turns.size(); ++i) EXPECT_LT(turns[i] - turns[i - 1], std::chrono::milliseconds(100));
}

TEST(StatusItem, BundleNamesTheDeploymentTargetAsItsMinimumSystem) {
  // The app refuses to launch below LSMinimumSystemVersion; it must not promise less than
  // the deployment target it is built for.
  std::string plist = readText(std::string(TAVLIN_SOURCE_ROOT) + "/components/macos/computer-ai-use/Info.plist.in");
  size_t key = plist.find("<key>LSMinimumSystemVersion</key>");
  ASSERT_NE(key, std::string::npos);
  size_t start = plist.find("<string>", key) + 8;
  std::string value = plist.substr(start, plist.find("</string>", start) - start);
  EXPECT_EQ(value, "${CMAKE_OSX_DEPLOYMENT_TARGET}");
}

namespace {

// The shells the updater must work under: /bin/sh (what the runner uses), dash, bash
// and zsh, each where installed.
std::vector<std::string> updaterShells() {
  std::vector<std::string> shells = {"/bin/sh"};
  for (const char* shell : {"/bin/dash", "/bin/bash", "/bin/zsh", "/usr/bin/zsh"}) {
    if (tavlin::common::isExecutableFile(shell)) shells.push_back(shell);
  }
  return shells;
}

struct Updater {
  std::string shell;
  TempDir home;
  std::string feed = home.file("feed.json");
  std::string settings = home.file("Library/Application Support/Tavlin/updater.json");

  // `environment` replaces the defaults (a value "<unset>" removes the variable).
  tavlin::platform::ProcessResult run(std::vector<std::string> args, std::map<std::string, std::string> environment = {},
                                      double timeout = 30) {
    args.insert(args.begin(), std::string(TAVLIN_SOURCE_ROOT) + "/bin/tavlin-updater");
    tavlin::platform::ProcessRequest request;
    request.executable = shell;
    request.captureOutput = true;
    request.timeoutSeconds = timeout;
    std::map<std::string, std::string> env = {
        {"HOME", home.path()}, {"TAVLIN_UPDATE_FEED", feed}, {"TAVLIN_EXECUTABLE", TAVLIN_BINARY}};
    for (const auto& [name, value] : environment) env[name] = value;
    for (const auto& [name, value] : env) {
      if (value != "<unset>") request.extraEnvironment[name] = value;
    }
    if (env["HOME"] == "<unset>") {
      args.insert(args.begin(), {"-u", "HOME", shell});
      request.executable = "/usr/bin/env";
    }
    request.arguments = args;
    return tavlin::platform::PosixProcesses().run(request);
  }
};

// The last line, which must be one JSON object.
nlohmann::json lastObject(const std::string& out) {
  std::string text = out;
  if (!text.empty() && text.back() == '\n') text.pop_back();
  std::string last = text.substr(text.rfind('\n') == std::string::npos ? 0 : text.rfind('\n') + 1);
  nlohmann::json j = nlohmann::json::parse(last, nullptr, false);
  return j.is_object() ? j : nlohmann::json("<not one JSON object: " + out + ">");
}

}  // namespace

TEST(StatusItem, UpdaterScript) {
  for (const std::string& shell : updaterShells()) {
    Updater u;
    u.shell = shell;
    writeText(u.feed, "{\n  \"version\": \"0.2.0\",\n  \"url\": \"https://example.invalid/Tavlin-0.2.0.zip\"\n}\n");
    auto result = u.run({"status", "--json", "--platform", "macos", "--current-version", "0.1.0"});
    EXPECT_EQ(result.exitStatus, 0) << shell;
    EXPECT_EQ(result.standardOutput,
              "{\"ok\":true,\"command\":\"status\",\"platform\":\"macos\",\"currentVersion\":\"0.1.0\","
              "\"automaticUpdates\":true}\n")
        << shell;
    result = u.run({"check", "--json", "--current-version", "0.1.0"});
    EXPECT_EQ(result.standardOutput,
              "checking " + u.feed +
                  "\n{\"ok\":true,\"command\":\"check\",\"currentVersion\":\"0.1.0\",\"availableVersion\":\"0.2.0\","
                  "\"updateAvailable\":true,\"url\":\"https://example.invalid/Tavlin-0.2.0.zip\",\"notes\":null,"
                  "\"automaticUpdates\":true}\n")
        << shell;
    result = u.run({"check", "--json", "--current-version", "0.10.0"});
    EXPECT_EQ(lastObject(result.standardOutput)["updateAvailable"], false) << shell;
    result = u.run({"set-enabled", "--json", "off"});
    EXPECT_EQ(result.standardOutput, "{\"ok\":true,\"command\":\"set-enabled\",\"automaticUpdates\":false}\n");
    EXPECT_EQ(lastObject(u.run({"status", "--json"}).standardOutput)["automaticUpdates"], false) << shell;
    result = u.run({"set-enabled", "--json", "maybe"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.standardOutput,
              "{\"ok\":false,\"command\":\"set-enabled\",\"error\":\"set-enabled takes on or off\"}\n");
  }
}

// Every way to break the command line, the environment, the setting or the feed ends
// in one JSON object with an "error", exit status 1, quickly, and nothing written
// outside the settings file.
TEST(StatusItem, UpdaterScriptFaultsEndInOneJSONError) {
  for (const std::string& shell : updaterShells()) {
    Updater u;
    u.shell = shell;
    auto expectError = [&](const tavlin::platform::ProcessResult& result, const std::string& error,
                           const std::string& what) {
      EXPECT_FALSE(result.timedOut) << shell << " " << what;
      EXPECT_EQ(result.exitStatus, 1) << shell << " " << what;
      EXPECT_EQ(lastObject(result.standardOutput).value("error", "<no error>"), error) << shell << " " << what;
    };
    // Options without their values, unknown options and arguments.
    for (const char* option : {"--install-root", "--platform", "--current-version"}) {
      expectError(u.run({"status", option}, {}, 5), std::string(option) + " requires a value", option);
      expectError(u.run({"check", "--json", option}, {}, 5), std::string(option) + " requires a value", option);
    }
    expectError(u.run({"status", "--bogus"}), "unknown option: --bogus", "--bogus");
    expectError(u.run({"status", "extra"}), "unexpected argument: extra", "extra");
    expectError(u.run({"set-enabled"}), "set-enabled takes on or off", "no value");
    expectError(u.run({"frobnicate"}), "unknown command: frobnicate (expected status, check or set-enabled)", "cmd");

    // Values that are not UTF-8 or hold control characters still make one JSON line.
    auto odd = lastObject(u.run({"status", "--platform", "mac\xffos\n", "--current-version", "\xC3\xA9"}).standardOutput);
    EXPECT_EQ(odd.value("platform", "<none>") + " " + odd.value("currentVersion", "<none>"), "macos \xC3\xA9") << shell;

    // No usable HOME: an error, never a folder of someone else's choosing. (zsh fills
    // in an unset HOME from the user database itself, so only an empty one is tried.)
    if (shell.find("zsh") == std::string::npos) {
      expectError(u.run({"set-enabled", "off"}, {{"HOME", "<unset>"}}),
                  "HOME is not set: the updater keeps its setting in the home folder", "no HOME");
    }
    expectError(u.run({"status"}, {{"HOME", ""}}), "HOME is not set: the updater keeps its setting in the home folder",
                "empty HOME");
    expectError(u.run({"set-enabled", "off"}, {{"HOME", "relative"}}), "HOME is not an absolute path: relative",
                "relative HOME");

    // A folder (or a link to one) at updater.json: refused, reading and writing.
    std::filesystem::create_directories(u.settings);
    for (const char* command : {"status", "set-enabled"}) {
      std::vector<std::string> args = {command};
      if (std::string(command) == "set-enabled") args.push_back("on");
      expectError(u.run(args), u.settings + " is not a regular file", command);
    }
    EXPECT_TRUE(std::filesystem::is_empty(u.settings));
    std::filesystem::remove(u.settings);
    TempDir elsewhere;
    std::filesystem::create_directory_symlink(elsewhere.path(), u.settings);
    expectError(u.run({"set-enabled", "on"}), u.settings + " is not a regular file", "link to a folder");
    EXPECT_TRUE(std::filesystem::is_empty(elsewhere.path()));
    std::filesystem::remove(u.settings);

    // Links planted at the old temporary name and at the file itself are replaced,
    // never written through.
    writeText(elsewhere.file("victim"), "precious\n");
    std::filesystem::create_symlink(elsewhere.file("victim"), u.settings + ".tmp");
    std::filesystem::create_symlink(elsewhere.file("victim"), u.settings);
    auto stored = u.run({"set-enabled", "off"});
    EXPECT_EQ(stored.exitStatus, 0) << shell << stored.standardOutput;
    EXPECT_EQ(readText(elsewhere.file("victim")), "precious\n") << shell;
    EXPECT_FALSE(std::filesystem::is_symlink(u.settings)) << shell;
    EXPECT_EQ(readText(u.settings), "{\"automaticUpdates\":false}\n");
    std::filesystem::remove(u.settings + ".tmp");
    size_t files = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(elsewhere.path())) ++files;
    EXPECT_EQ(files, 1u);

    // Feeds that are not a small regular file are refused at once: a FIFO, a device,
    // a huge file (sparse, so the test stays small on disk).
    std::string fifo = u.home.file("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::string huge = u.home.file("huge.json");
    writeText(huge, "");
    std::filesystem::resize_file(huge, 200u << 20);
    const std::vector<std::pair<std::string, std::string>> feeds = {
        {fifo, "could not read the feed " + fifo + " (not a regular file)"},
        {"/dev/zero", "could not read the feed /dev/zero (not a regular file)"},
        {huge, "could not read the feed " + huge + " (larger than 1 MiB)"},
        {"http://example.invalid/feed.json",
         "the feed must be an https address or a local file: http://example.invalid/feed.json"},
        {"", "no release feed: set TAVLIN_UPDATE_FEED"},
    };
    for (const auto& [feed, error] : feeds) {
      expectError(u.run({"check"}, {{"TAVLIN_UPDATE_FEED", feed}}, 10), error, feed);
    }
    // A feed reader that dies without a word, and a signal mid-way: still one JSON line.
    writeText(u.feed, "{\"version\": \"1.0\"}");
    std::string reader = u.home.file("silent-reader");
    writeScript(reader, "exit 3\n");
    expectError(u.run({"check"}, {{"TAVLIN_EXECUTABLE", reader}}), "the feed reader " + reader + " failed", "silent");
    writeScript(reader, "sleep 1\n");
    std::string out = u.home.file("signalled.out");
    std::string line = "HOME='" + u.home.path() + "' TAVLIN_UPDATE_FEED='" + u.feed + "' TAVLIN_EXECUTABLE='" + reader +
                       "' exec " + shell + " " + TAVLIN_SOURCE_ROOT + "/bin/tavlin-updater check >'" + out + "'";
    pid_t updater = spawnCommand(line);
    ASSERT_GT(updater, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    ::kill(updater, SIGTERM);
    int status = 0;
    ASSERT_EQ(::waitpid(updater, &status, 0), updater);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << shell;
    EXPECT_EQ(lastObject(readText(out)).value("error", "<no error>"), "the updater was interrupted") << shell;

    // A feed name that would forge a progress line stays one line.
    auto forged = u.run({"check"}, {{"TAVLIN_UPDATE_FEED", u.home.file("a\n{\"ok\":true}\tb")}});
    EXPECT_EQ(forged.standardOutput.find("checking " + u.home.file("a\\n{\"ok\":true}\\tb") + "\n{\"ok\":false,"), 0u)
        << forged.standardOutput;
  }
}

// The feed is read by a JSON parser: only top-level keys count, escapes are decoded,
// and the url must be https or a local file.
TEST(StatusItem, UpdaterFeedIsParsedAsJSON) {
  struct Case {
    std::string feed;
    std::string expected;  // the check's availableVersion/url/notes, or its error
  };
  const std::vector<Case> cases = {
      {R"({"release": {"version": "9.9.9"}, "version": "0.2.0"})", R"("0.2.0" null null)"},
      {R"({"version": "0.2.0", "url": "https://h.invalid/a\"b.zip", "notes": "say \"hi\"\nnext"})",
       R"("0.2.0" "https://h.invalid/a\"b.zip" "say \"hi\"\nnext")"},
      {R"({"version": "0.2.0", "url": "file:///Volumes/Updates/Tavlin.zip"})",
       R"("0.2.0" "file:///Volumes/Updates/Tavlin.zip" null)"},
      {R"({"version": "0.2.0", "url": "/Volumes/Updates/Tavlin.zip"})", R"("0.2.0" "/Volumes/Updates/Tavlin.zip" null)"},
      {R"({"version": "0.2.0", "url": "http://h.invalid/x.zip"})",
       "the feed's url is neither an https address nor a local file: http://h.invalid/x.zip"},
      {R"({"version": "0.2.0", "url": "ftp://h.invalid/x"})",
       "the feed's url is neither an https address nor a local file: ftp://h.invalid/x"},
      {R"({"version": "0.2.0", "url": "Tavlin.zip"})",
       "the feed's url is neither an https address nor a local file: Tavlin.zip"},
      {R"({"version": "0.2.0", "url": "https://h.invalid/a b"})",
       "the feed's url is neither an https address nor a local file: https://h.invalid/a b"},
      {R"({"version": "0.2.0", "url": 7})", "the feed's \"url\" is not a string"},
      {R"({"version": 2})", "the feed's \"version\" is not a string"},
      {R"({"url": "https://h.invalid/x"})", "the feed names no version"},
      {R"({"version": ""})", "the feed names no version"},
      {R"({"version": "1.0\nok"})", "the feed's version is not a version: 1.0\\nok"},
      {R"(["version", "0.2.0"])", "the feed is not a JSON object"},
      {R"("version": "0.2.0")", "the feed is not valid JSON"},
      {std::string(100, '[') + std::string(100, ']'), "the feed is not valid JSON"},
      {"{\"version\": \"0.2.0\xff\"}", "the feed is not valid JSON"},
      // A key twice: parsers disagree on which one counts, so neither does.
      {R"({"version": "0.2.0", "url": "/a.zip", "version": "9.9.9"})", "the feed names \"version\" twice"},
      {R"({"url": "https://h.invalid/a", "version": "0.2.0", "url": "/b.zip"})", "the feed names \"url\" twice"},
      {R"({"release": {"v": 1, "v": 2}, "version": "0.2.0"})", R"("0.2.0" null null)"},
  };
  for (const std::string& shell : {std::string("/bin/sh")}) {
    Updater u;
    u.shell = shell;
    for (const Case& c : cases) {
      writeText(u.feed, c.feed);
      auto result = u.run({"check", "--current-version", "0.1.0"});
      nlohmann::json j = lastObject(result.standardOutput);
      std::string got = j.contains("error")
                            ? j["error"].get<std::string>()
                            : j["availableVersion"].dump() + " " + j["url"].dump() + " " + j["notes"].dump();
      EXPECT_EQ(got, c.expected) << c.feed;
    }
    // NEL, U+2028 and U+2029 from the feed or the installed version are escaped: the
    // result stays one line for readers that break lines at them too.
    writeText(u.feed, "{\"version\": \"0.2.0\", \"notes\": \"a\xC2\x85" "b\xE2\x80\xA8" "c\xE2\x80\xA9" "d\"}");
    auto result = u.run({"check", "--current-version", "0.1.0\xE2\x80\xA8x"});
    EXPECT_EQ(lastObject(result.standardOutput)["notes"], "a\u0085b\u2028c\u2029d");
    for (const char* lineBreak : {"\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"}) {
      EXPECT_EQ(result.standardOutput.find(lineBreak), std::string::npos) << result.standardOutput;
    }
    EXPECT_NE(result.standardOutput.find(R"("currentVersion":"0.1.0\u2028x")"), std::string::npos);
  }
}

TEST(StatusItem, UpdaterVersionOrder) {
  using tavlin::statusitem::isNewerVersion;
  const std::vector<std::tuple<std::string, std::string, bool>> cases = {
      {"0.2.0", "0.1.0", true},     {"0.10.0", "0.9.9", true},  {"0.9.9", "0.10.0", false},
      {"1.0.0", "1.0.0", false},    {"1.0.1", "1.0", true},     {"1.0", "1.0.1", false},
      {"2", "", true},              {"", "1", false},
      // Pre-releases come before their release; build metadata is ignored.
      {"1.0.0-beta", "1.0.0", false}, {"1.0.0", "1.0.0-beta", true}, {"1.0.0+build.7", "1.0.0", false},
      {"1.0.0-beta+b", "1.0.0-beta", false}, {"1.0.0-beta.11", "1.0.0-beta.2", true},
      {"1.0.0-beta.2", "1.0.0-beta.11", false}, {"1.0.0-alpha.1", "1.0.0-alpha", true},
      {"1.0.0-rc.1", "1.0.0-beta", true}, {"1.0.0-1", "1.0.0-alpha", false}, {"1.1.0-beta", "1.0.0", true},
      {"0.1.0", "0.0.0-dev", true},
      {"007", "7", false},          {"99999999999999999999999", "9999999999999999999999", true},
      {"1.0b", "1.0a", true},
  };
  for (const auto& [candidate, current, newer] : cases) {
    EXPECT_EQ(isNewerVersion(candidate, current), newer) << candidate << " vs " << current;
  }
}

TEST(StatusItem, OneInstanceAtATimeEvenAfterACrash) {
  TempDir home;
  pid_t first = spawnTool({"__menu-bar"}, home.path());
  ASSERT_GT(first, 0);
  std::string lock = home.file("Library/Application Support/Tavlin/runtime/status-item.lock");
  ASSERT_TRUE(lockHeldSoon(lock));
  ToolRun second = runTool({"__menu-bar"}, {{"HOME", home.path()}});
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.err, "Tavlin status item is already running\n");
  ::kill(first, SIGKILL);
  int status = 0;
  ::waitpid(first, &status, 0);

  // After a crash the lock is free: a new item starts and ends cleanly on SIGTERM,
  // without an exit-code file.
  std::string ipc = home.file("ipc");
  pid_t third = spawnTool({"__menu-bar", "--tavlin-ipc", ipc}, home.path());
  ASSERT_GT(third, 0);
  ASSERT_TRUE(lockHeldSoon(lock));
  ::kill(third, SIGTERM);
  ASSERT_EQ(::waitpid(third, &status, 0), third);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_TRUE(tavlin::common::exists(ipc + "/pid"));
  EXPECT_FALSE(tavlin::common::exists(ipc + "/exit-code"));
}

TEST(StatusItem, InstalledAppWorksFromItsInstallRoot) {
  TempDir prefix;
  tavlin::platform::ProcessRequest install;
  install.executable = "/usr/bin/env";
  install.arguments = {"cmake", "--install", TAVLIN_BUILD_DIR, "--prefix", prefix.path()};
  install.captureOutput = true;
  install.timeoutSeconds = 120;
  auto installed = tavlin::platform::PosixProcesses().run(install);
  ASSERT_EQ(installed.exitStatus, 0) << installed.standardError;
  for (const char* script : {"computer-ai-use", "background-window-capture", "clicker", "tavlin-updater"}) {
    EXPECT_TRUE(tavlin::common::isExecutableFile(prefix.file(std::string("bin/") + script))) << script;
  }
  tavlin::testing::DesktopFixture d(readText(std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json"));
  auto runInstalled = [&](const std::string& script, std::vector<std::string> args) {
    tavlin::platform::ProcessRequest request;
    request.executable = prefix.file("bin/" + script);
    request.arguments = std::move(args);
    request.captureOutput = true;
    request.timeoutSeconds = 60;
    // The scripts find the installed executable by themselves.
    request.extraEnvironment = {{"TAVLIN_SIM_DESKTOP", d.path}, {"TAVLIN_SIM_EVENT_LOG", d.log},
                                {"HOME", d.dir.path()},        {"TAVLIN_EXECUTABLE", ""},
                                {"TAVLIN_INSTALL_ROOT", ""}};
    return tavlin::platform::PosixProcesses().run(request);
  };
  auto apps = runInstalled("computer-ai-use", {"list-apps"});
  EXPECT_EQ(apps.exitStatus, 0) << apps.standardError;
  EXPECT_NE(apps.standardOutput.find("\"Scribe\""), std::string::npos);
  auto state = runInstalled("computer-ai-use", {"get-app-state", "--app", "Scribe"});
  EXPECT_EQ(state.exitStatus, 0) << state.standardError;
  EXPECT_NE(state.standardOutput.find("Screenshot: "), std::string::npos) << state.standardOutput;
  EXPECT_NE(d.events().find(prefix.file("bin/background-window-capture")), std::string::npos) << d.events();
  EXPECT_EQ(runInstalled("background-window-capture", {"list", "--pid", "4242"}).exitStatus, 0);
  EXPECT_EQ(runInstalled("clicker", {"where"}).exitStatus, 0);
  auto diagnose = runInstalled("computer-ai-use", {"__menu-bar-diagnose"});
  EXPECT_NE(diagnose.standardOutput.find("item: Tavlin 0.1.0 (disabled)\n"), std::string::npos)
      << diagnose.standardOutput;
  EXPECT_NE(diagnose.standardOutput.find("install root: " + prefix.path() + "\n"), std::string::npos)
      << diagnose.standardOutput;
}
