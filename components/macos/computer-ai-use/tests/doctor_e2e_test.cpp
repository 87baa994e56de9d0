// doctor end to end: each check failing in turn on the example desktop, the JSON form,
// and that a diagnosis changes nothing (no event, no file, no folder).
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <sstream>

#include "test_support.h"

using tavlin::testing::DesktopFixture;
using tavlin::testing::readText;
using tavlin::testing::replaceAll;
using tavlin::testing::runTool;
using tavlin::testing::TempDir;
using tavlin::testing::ToolRun;
using tavlin::testing::writeText;

namespace {

const std::string exampleDesktop = std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json";

// An install root of its own: every companion script, components/macos, a version.
struct InstallRoot {
  TempDir dir;
  InstallRoot() {
    std::filesystem::create_directories(dir.file("bin"));
    std::filesystem::create_directories(dir.file("components/macos"));
    for (const char* script : {"computer-ai-use", "background-window-capture", "clicker", "tavlin-updater",
                               "tavlin-mcp", "tavlin-record"}) {
      writeText(dir.file(std::string("bin/") + script), "#!/bin/sh\n");
      ::chmod(dir.file(std::string("bin/") + script).c_str(), 0755);
    }
    writeText(dir.file("RELEASE_BUILD.txt"), "version: 1.2.3\n");
  }
};

struct Machine {
  DesktopFixture desktop{readText(exampleDesktop)};
  InstallRoot root;
  std::map<std::string, std::string> environment{{"TAVLIN_INSTALL_ROOT", root.dir.path()}};

  std::string cache() const { return desktop.dir.file("Library/Caches/Tavlin/computer-ai-use-state"); }
  // Top-level keys added to the desktop file (the example's own trust setting goes, so
  // that a test may give it).
  void setDesktop(const std::string& keys) {
    desktop.edit("\"accessibilityTrusted\": true,", "");
    desktop.edit("\"tavlinDesktop\": 1,", "\"tavlinDesktop\": 1, " + keys + ",");
  }
  ToolRun doctor(std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.begin(), "doctor");
    ToolRun run = desktop.run(arguments, environment);
    run.out = normalized(run.out);
    return run;
  }
  // Temporary paths as placeholders.
  std::string normalized(std::string text) const {
    text = replaceAll(text, desktop.dir.path(), "<home>");
    text = replaceAll(text, root.dir.path(), "<root>");
    return replaceAll(text, TAVLIN_BUILD_DIR, "<bundle>");
  }
};

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

mode_t modeOf(const std::string& path) {
  struct stat st {};
  ::lstat(path.c_str(), &st);
  return st.st_mode & 07777;
}

}  // namespace

TEST(Doctor, EveryCheckPassesOnTheExampleDesktop) {
  Machine m;
  ToolRun run = m.doctor();
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  tavlin::testing::expectGolden("doctor.txt", run.out);
}

TEST(Doctor, EachCheckFailingInTurn) {
  struct Case {
    const char* what;
    std::function<bool(Machine&)> setUp;  // false: the case cannot be made here
    std::string line;                     // the report's line for the check at fault
    int status;
  };
  // A case made by top-level keys of the desktop file.
  auto keys = [](std::string json) {
    return [json](Machine& m) {
      m.setDesktop(json);
      return true;
    };
  };
  const std::string advice = "sign it with a stable identity (README, \"Signing, so that permissions stick\")";
  const std::string cache = "<home>/Library/Caches/Tavlin/computer-ai-use-state";
  const std::vector<Case> cases = {
      {"untrusted",
       keys("\"accessibilityTrusted\": false"),
       "FAILED   accessibility: not trusted: allow <bundle> in System Settings > Privacy & Security > Accessibility",
       1},
      {"no screen recording",
       keys(R"("screenCaptureKit": {"preflight": false})"),
       "warning  screen-recording: not allowed: get-app-state takes no screenshots; allow <bundle> in System "
       "Settings > Privacy & Security > Screen Recording",
       0},
      {"a companion script missing",
       [](Machine& m) { return std::filesystem::remove(m.root.dir.file("bin/tavlin-mcp")); },
       "FAILED   install-root: <root>: bin/tavlin-mcp is missing; install again (cmake --install) or set "
       "TAVLIN_INSTALL_ROOT to an install root",
       1},
      {"a companion script not executable",
       [](Machine& m) { return ::chmod(m.root.dir.file("bin/clicker").c_str(), 0644) == 0; },
       "FAILED   install-root: <root>: bin/clicker is not an executable file; install again (cmake --install) or "
       "set TAVLIN_INSTALL_ROOT to an install root",
       1},
      {"a folder where a script should be",
       [](Machine& m) {
         std::filesystem::remove(m.root.dir.file("bin/tavlin-record"));
         return std::filesystem::create_directory(m.root.dir.file("bin/tavlin-record"));
       },
       "FAILED   install-root: <root>: bin/tavlin-record is not an executable file; install again (cmake --install) "
       "or set TAVLIN_INSTALL_ROOT to an install root",
       1},
      {"no release file",
       [](Machine& m) { return std::filesystem::remove(m.root.dir.file("RELEASE_BUILD.txt")); },
       "warning  install-root: <root>: RELEASE_BUILD.txt cannot be read (No such file or directory): the menu and "
       "the updater take version 0.0.0-dev",
       0},
      {"a release file without a version",
       [](Machine& m) {
         writeText(m.root.dir.file("RELEASE_BUILD.txt"), "build: 7\n");
         return true;
       },
       "warning  install-root: <root>: RELEASE_BUILD.txt has no \"version: X.Y.Z\" line: the menu and the updater "
       "take version 0.0.0-dev",
       0},
      {"a cache folder that is a link",
       [](Machine& m) {
         std::filesystem::create_directories(m.desktop.dir.file("elsewhere"));
         std::filesystem::create_directories(m.desktop.dir.file("Library/Caches/Tavlin"));
         std::filesystem::create_directory_symlink(m.desktop.dir.file("elsewhere"), m.cache());
         return true;
       },
       "FAILED   cache-folder: " + cache + " is a symbolic link: get-app-state refuses it; remove it", 1},
      {"a file in the cache folder's place",
       [](Machine& m) {
         std::filesystem::create_directories(m.desktop.dir.file("Library/Caches/Tavlin"));
         writeText(m.cache(), "x");
         return true;
       },
       "FAILED   cache-folder: " + cache + " is not a folder: get-app-state cannot use it; remove it", 1},
      {"a file where a folder above it should be",
       [](Machine& m) {
         std::filesystem::create_directories(m.desktop.dir.file("Library"));
         writeText(m.desktop.dir.file("Library/Caches"), "x");
         return true;
       },
       "FAILED   cache-folder: " + cache + " cannot be made: <home>/Library/Caches is not a folder", 1},
      {"a cache folder of another user",
       [](Machine& m) {
         std::filesystem::create_directories(m.cache());
         return ::geteuid() == 0 && ::chown(m.cache().c_str(), 4242, 4242) == 0;
       },
       "FAILED   cache-folder: " + cache + " belongs to another user (uid 4242): get-app-state refuses it; remove it",
       1},
      {"a cache folder others can read",
       [](Machine& m) {
         std::filesystem::create_directories(m.cache());
         return ::chmod(m.cache().c_str(), 0755) == 0;
       },
       "warning  cache-folder: " + cache +
           " has mode 0755: get-app-state makes it 0700 (screenshots can show private content)",
       0},
      {"an ad hoc signature",
       keys(R"("codeSignature": {"kind": "adhoc", "identifier": "Tavlin-55d3"})"),
       "warning  code-signature: ad hoc signature (Tavlin-55d3): macOS forgets the Accessibility and Screen "
       "Recording permissions at every rebuild; " + advice,
       0},
      {"no signature",
       keys(R"("codeSignature": {"kind": "unsigned", "identifier": "x"})"),
       "warning  code-signature: not signed: macOS forgets the Accessibility and Screen Recording permissions at "
       "every rebuild; " + advice,
       0},
      {"a broken signature",
       keys(R"("codeSignature": {"kind": "invalid"})"),
       "warning  code-signature: the signature does not hold (OSStatus -67061): macOS may not apply the permissions "
       "granted to this app; " + advice,
       0},
      {"macOS older than the deployment target",
       keys(R"("systemVersion": "13.2.1")"),
       "FAILED   macos-version: macOS 13.2.1 is older than 13.3, the oldest this build runs on; update macOS", 1},
      {"a macOS version that cannot be read",
       keys(R"("systemVersion": null)"),
       "warning  macos-version: cannot read the macOS version; this build needs macOS 13.3 or later", 0},
  };
  for (const Case& c : cases) {
    Machine m;
    if (!c.setUp(m)) {
      std::cout << "[ SKIPPED  ] " << c.what << ": cannot be set up here\n";
      continue;
    }
    std::string desktopBefore = readText(m.desktop.path);
    mode_t cacheModeBefore = modeOf(m.cache());
    ToolRun run = m.doctor();
    EXPECT_EQ(run.status, c.status) << c.what;
    std::string name = c.line.substr(9, c.line.find(':') - 9);
    EXPECT_EQ(run.err, c.status ? "Needed checks failed: " + name + "\n" : "") << c.what;
    std::vector<std::string> lines = linesOf(run.out);
    ASSERT_EQ(lines.size(), 6u) << c.what << "\n" << run.out;
    for (const std::string& line : lines) {
      // The check at fault says what to do; every other one passes.
      if (line.substr(9).starts_with(name + ":")) {
        EXPECT_EQ(line, c.line) << c.what;
      } else {
        EXPECT_TRUE(line.starts_with("ok       ")) << c.what << ": " << line;
      }
    }
    // Looking changes nothing: no event (no activation, no prompt), the desktop file as
    // it was, the cache folder neither made nor tightened.
    EXPECT_EQ(m.desktop.events(), "") << c.what;
    EXPECT_EQ(readText(m.desktop.path), desktopBefore) << c.what;
    EXPECT_EQ(modeOf(m.cache()), cacheModeBefore) << c.what;
  }
}

TEST(Doctor, JsonReportsEveryCheckAndStillFailsForNeededOnes) {
  Machine m;
  m.setDesktop(R"("accessibilityTrusted": false, "codeSignature": {"kind": "adhoc", "identifier": "Tavlin"},
                  "systemVersion": "12.7", "screenCaptureKit": {"preflight": false})");
  std::filesystem::remove(m.root.dir.file("RELEASE_BUILD.txt"));
  m.environment["TAVLIN_INSTALL_ROOT"] = m.root.dir.file("not-a-root");
  ToolRun run = m.doctor({"--json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "Needed checks failed: accessibility, macos-version\n");
  // The passed-over TAVLIN_INSTALL_ROOT leaves the source checkout as the root.
  tavlin::testing::expectGolden("doctor-failing.json", replaceAll(run.out, TAVLIN_SOURCE_ROOT, "<source>"));
  EXPECT_EQ(m.desktop.events(), "");
  EXPECT_FALSE(std::filesystem::exists(m.desktop.dir.file("Library")));
}

TEST(Doctor, WithoutADesktopEveryCheckStillReports) {
  // The checks that ask the system cannot tell: the needed ones fail, the report is whole.
  InstallRoot root;
  TempDir home;
  ToolRun run = runTool({"doctor"}, {{"TAVLIN_INSTALL_ROOT", root.dir.path()}, {"HOME", home.path()}});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "Needed checks failed: accessibility, macos-version\n");
  std::string noDesktop = "cannot tell: No simulated desktop: set TAVLIN_SIM_DESKTOP to a desktop file (see "
                          "docs/desktop-format.md)";
  std::vector<std::string> lines = linesOf(run.out);
  ASSERT_EQ(lines.size(), 6u) << run.out;
  EXPECT_EQ(lines[0], "FAILED   accessibility: " + noDesktop);
  EXPECT_EQ(lines[1], "warning  screen-recording: " + noDesktop);
  EXPECT_TRUE(lines[2].starts_with("ok       install-root: ")) << lines[2];
  EXPECT_TRUE(lines[3].starts_with("ok       cache-folder: ")) << lines[3];
  EXPECT_EQ(lines[4], "warning  code-signature: " + noDesktop);
  EXPECT_EQ(lines[5], "FAILED   macos-version: " + noDesktop);
}
