#include <gtest/gtest.h>
#include <sys/stat.h>

#include "common/files.h"
#include "entry/install_root.h"
#include "entry/ipc.h"
#include "entry/modes.h"
#include "test_support.h"

using namespace tavlin;
using tavlin::testing::TempDir;

TEST(IPCPrePass, StripsTheOptionAndKeepsTheLastCompleteOne) {
  struct Case {
    std::vector<std::string> raw;
    std::vector<std::string> arguments;
    std::optional<std::string> directory;
  };
  const std::vector<Case> cases = {
      {{"list-apps"}, {"list-apps"}, std::nullopt},
      {{"--tavlin-ipc", "/d", "list-apps"}, {"list-apps"}, "/d"},
      {{"list-apps", "--tavlin-ipc"}, {"list-apps"}, std::nullopt},
      {{"--tavlin-ipc", "/a", "help", "--tavlin-ipc", "/b"}, {"help"}, "/b"},
      {{"--tavlin-ipc", "/a", "help", "--tavlin-ipc"}, {"help"}, "/a"},
      {{"--tavlin-ipc", "--app", "help"}, {"help"}, "--app"},
      {{"help", "--tavlin-ipc=/x"}, {"help", "--tavlin-ipc=/x"}, std::nullopt},
      {{"--tavlin-ipc"}, {}, std::nullopt},
  };
  for (const auto& c : cases) {
    entry::TavlinStartup s = entry::stripTavlinIPC(c.raw);
    EXPECT_EQ(s.arguments, c.arguments);
    EXPECT_EQ(s.ipcDirectory, c.directory);
  }
}

TEST(ModeSelection, FirstArgumentChoosesTheMode) {
  using entry::Mode;
  const std::vector<std::pair<std::vector<std::string>, Mode>> cases = {
      {{}, Mode::statusItemWithWindow},
      {{"-psn_0_12345"}, Mode::statusItemWithWindow},
      {{"__menu-bar"}, Mode::statusItemWithoutWindow},
      {{"__menu-bar-diagnose"}, Mode::statusItemDiagnostic},
      {{"__background-window-capture", "list"}, Mode::backgroundWindowCapture},
      {{"__clicker", "where"}, Mode::clicker},
      {{"list-apps"}, Mode::agentTool},
      {{"__MENU-BAR"}, Mode::agentTool},
      {{"help", "__clicker"}, Mode::agentTool},
  };
  for (const auto& [args, mode] : cases) EXPECT_EQ(entry::selectMode(args), mode) << (args.empty() ? "" : args[0]);
}

TEST(StandardizedPath, LikeFoundation) {
  TempDir tmp;
  common::createDirectories(tmp.file("a/b"));
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"/usr//lib/", "/usr/lib"},
      {"/usr/./lib/.", "/usr/lib"},
      {"/", "/"},
      {"relative/x", "/cwd/relative/x"},
      {"", "/cwd"},
      {"~/x", "/cwd/~/x"},
      {"/no/such/../place", "/no/place"},
      {"/private/no-such-thing", "/private/no-such-thing"},
      // A prefix alone is not shortened to the root (found by fuzzing the anchoring).
      {"/var/automount", "/var/automount"},
      {"/private", "/private"},
  };
  for (const auto& [in, out] : cases) EXPECT_EQ(common::standardizedPath(in, "/cwd"), out) << in;
  // With ".." in an existing path the real path is used.
  EXPECT_EQ(common::standardizedPath(tmp.file("a/b/.."), "/"), common::standardizedPath(tmp.file("a"), "/"));
}

namespace {

void makeInstallRoot(const std::string& root) {
  common::createDirectories(root + "/bin");
  common::createDirectories(root + "/components/macos");
  tavlin::testing::writeText(root + "/bin/computer-ai-use", "#!/bin/sh\n");
  ::chmod((root + "/bin/computer-ai-use").c_str(), 0755);
}

}  // namespace

TEST(InstallRoot, EnvironmentThenBundleWalkThenBuildRoot) {
  TempDir tmp;
  std::string root = tmp.file("install");
  makeInstallRoot(root);
  std::string bundle = root + "/components/macos/Tavlin.app";
  common::createDirectories(bundle + "/Contents/MacOS");
  std::string other = tmp.file("other");
  common::createDirectories(other);

  EXPECT_TRUE(entry::isTavlinInstallRoot(root));
  EXPECT_FALSE(entry::isTavlinInstallRoot(other));
  // Accepted environment root wins, even over the bundle walk.
  EXPECT_EQ(entry::findTavlinRoot(root + "/", other, "/build", "/"), root);
  // A rejected one is ignored and the walk starts at the bundle.
  EXPECT_EQ(entry::findTavlinRoot(other, bundle, "/build", "/"), root);
  EXPECT_EQ(entry::findTavlinRoot(std::string(), bundle + "/Contents/MacOS", "/build", "/"), root);
  // Nothing found: the build root.
  EXPECT_EQ(entry::findTavlinRoot(std::nullopt, other, "/build/./tree", "/"), "/build/tree");

  // The marker must be executable.
  ::chmod((root + "/bin/computer-ai-use").c_str(), 0644);
  EXPECT_FALSE(entry::isTavlinInstallRoot(root));
}

TEST(InstallRoot, WalkStopsAfterTenSteps) {
  TempDir tmp;
  makeInstallRoot(tmp.path());
  std::string deep = tmp.path();
  for (int i = 0; i < 10; ++i) deep += "/d" + std::to_string(i);
  common::createDirectories(deep);
  // Ten candidates: deep (d9) up to d0; the root itself would be the eleventh.
  EXPECT_EQ(entry::findTavlinRoot(std::nullopt, deep, "/fallback", "/"), "/fallback");
  EXPECT_EQ(entry::findTavlinRoot(std::nullopt, common::deletingLastPathComponent(deep), "/fallback", "/"),
            common::standardizedPath(tmp.path(), "/"));
}

TEST(AtomicWrite, ReplacesWholeFileWithPrivateMode) {
  TempDir tmp;
  std::string path = tmp.file("f");
  tavlin::testing::writeText(path, "old contents that are longer");
  ASSERT_TRUE(common::writeFileAtomically(path, "new"));
  EXPECT_EQ(tavlin::testing::readText(path), "new");
  struct stat st;
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  EXPECT_FALSE(common::writeFileAtomically(tmp.file("missing/f"), "x"));
}
