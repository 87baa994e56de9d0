// The Open panel commands end to end against the simulated panel, bound to a real
// folder tree made per test.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "common/files.h"
#include "test_support.h"

using tavlin::testing::DesktopFixture;
using tavlin::testing::TempDir;
using tavlin::testing::ToolRun;
using tavlin::testing::writeText;

namespace {

struct PanelKind {
  std::string presentation, language, view;
};

// A folder tree and a desktop whose "Editor" (pid 7) shows an Open panel on it.
struct PanelDesktop {
  explicit PanelDesktop(const PanelKind& kind, const std::string& extra = "", const std::string& top = "") {
    namespace fs = std::filesystem;
    for (const char* folder : {"root/Alpha Dir/b/\xC3\xA7", "root/Apps/Tool.app/Contents", "root/Direct.app",
                               "elsewhere/Far.app"}) {
      fs::create_directories(files.file(folder));
    }
    writeText(files.file("root/Alpha Dir/b/\xC3\xA7/Report.pdf"), "pdf");
    writeText(files.file("root/top.txt"), "top");
    writeText(files.file("elsewhere/x.txt"), "x");
    writeText(files.file("root/Plain.app"), "not a bundle");
    std::string json = R"({"tavlinDesktop": 1, "frontmostPid": 9, )" + top + R"(
      "displayNames": {")" + files.file("root/Alpha Dir/b/\xC3\xA7/Report.pdf") + R"(": "Report"},
      "apps": [{"pid": 9, "name": "Finder"},
        {"pid": 7, "name": "Editor", "ui": {"role": "AXApplication", "children": [
          {"id": "doc", "role": "AXWindow", "title": "Untitled", "position": [0, 0], "size": [900, 700]}]},
         "openPanel": {"folder": ")" + files.file("root") + R"(", "host": "doc", "presentation": ")" + kind.presentation +
                       R"(", "language": ")" + kind.language + R"(", "view": ")" + kind.view + "\"" + extra + "}}]}";
    desktop = std::make_unique<DesktopFixture>(json);
  }
  ToolRun run(std::vector<std::string> arguments) { return desktop->run(arguments); }
  std::string events() const { return desktop->events(); }
  // The lines of the event log that are not input or actions.
  std::string panelEvents() const {
    std::istringstream in(events());
    std::string line, out;
    while (std::getline(in, line)) {
      if (line.find(" open-panel-") != std::string::npos) out += line.substr(line.find(' ') + 1) + "\n";
    }
    return out;
  }
  TempDir files;
  std::unique_ptr<DesktopFixture> desktop;
};

std::string field(const std::string& json, const std::string& key) {
  size_t at = json.find("\"" + key + "\" : ");
  if (at == std::string::npos) return "<none>";
  size_t start = at + key.size() + 5;
  return json.substr(start, json.find('\n', start) - start);
}

const std::vector<PanelKind> everyKind = {
    {"sheet", "en", "list"}, {"sheet", "en", "icon"}, {"sheet", "zh", "list"}, {"sheet", "zh", "icon"},
    {"window", "en", "list"}, {"window", "en", "icon"}, {"window", "zh", "list"}, {"window", "zh", "icon"},
};

std::string describe(const PanelKind& k) { return k.presentation + "/" + k.language + "/" + k.view; }

}  // namespace

TEST(OpenPanel, ChoosesInEveryKindOfPanel) {
  struct Case {
    std::string path;  // below the test's folder
    std::string extra;
    std::string command = "choose-open-panel-path";
    std::string kind, strategy;
  };
  const std::vector<Case> cases = {
      // Three folders below the shown one, with spaces, non-ASCII and a hidden extension.
      {"root/Alpha Dir/b/\xC3\xA7/Report.pdf", "", "choose-open-panel-path", "\"file\",", "\"ax-hierarchy\""},
      // Outside every anchor: the go-to-folder sheet.
      {"elsewhere/x.txt", "", "choose-open-panel-path", "\"file\",", "\"go-to-folder-sheet\""},
      {"root/Alpha Dir/b", R"(, "chooses": "filesAndFolders")", "choose-open-panel-path", "\"directory\",",
       "\"ax-hierarchy\""},
      {"root/Apps/Tool.app", "", "choose-open-panel-bundle", "\"application-bundle\",", "\"ax-bundle-selection\""},
  };
  for (const PanelKind& kind : everyKind) {
    for (const Case& c : cases) {
      PanelDesktop d(kind, c.extra);
      std::string path = d.files.file(c.path);
      ToolRun run = d.run({c.command, "--app", "Editor", "--path", path});
      ASSERT_EQ(run.status, 0) << describe(kind) << " " << c.path << ": " << run.err;
      EXPECT_EQ(field(run.out, "kind"), c.kind) << describe(kind);
      EXPECT_EQ(field(run.out, "strategy"), c.strategy) << describe(kind) << " " << c.path;
      EXPECT_EQ(field(run.out, "activatedApp"), "false,");
      // The panel recorded exactly the requested path.
      std::string panel = d.panelEvents();
      std::string chose = panel.substr(panel.rfind("open-panel-chose"));
      EXPECT_NE(chose.find(path), std::string::npos) << describe(kind) << "\n" << panel;
      // Never activated, never session-wide input, never the pointer.
      std::string events = d.events();
      for (const char* forbidden : {" activate", " hid ", " session ", "warp-cursor", " unhide"}) {
        EXPECT_EQ(events.find(forbidden), std::string::npos) << forbidden << "\n" << events;
      }
      // A bundle is selected, never opened.
      if (c.command == "choose-open-panel-bundle") {
        EXPECT_EQ(panel.find("folder=" + path), std::string::npos) << panel;
      }
    }
  }
}

TEST(OpenPanel, MessagesAndTimeOuts) {
  PanelKind kind{"sheet", "en", "list"};
  struct Case {
    std::vector<std::string> args;
    std::string extra;
    std::string message;
    std::string top = "";
  };
  PanelDesktop probe(kind);
  const std::string root = probe.files.path();
  const std::vector<Case> cases = {
      {{"choose-open-panel-path", "--app", "Editor", "--path", "/no/such/file"}, "", "Path does not exist: /no/such/file"},
      {{"choose-open-panel-path", "--app", "Editor"}, "", "Missing required flag --path"},
      {{"choose-open-panel-path", "--app", "Editor", "--path", "/", "--timeout", "0"}, "",
       "Native Open panel not found within 0.0s"},
      {{"inspect-open-panel", "--app", "Finder"}, "", "Native Open panel not found within 1.0s"},
      {{"inspect-open-panel", "--app", "Finder", "--timeout", "2.5"}, "", "Native Open panel not found within 2.5s"},
      {{"choose-open-panel-bundle", "--app", "Editor", "--path", "ROOT/root/Plain.app"}, "",
       "Application bundle does not exist as a directory: ROOT/root/Plain.app"},
      {{"choose-open-panel-bundle", "--app", "Editor", "--path", "ROOT/root/Apps"}, "",
       "Application bundle path must end in .app: ROOT/root/Apps"},
      {{"choose-open-panel-bundle", "--app", "Editor", "--path", "ROOT/root/Apps/Tool.app"},
       R"(, "withoutAXOpen": true)",
       "Native Open panel entry cannot open bundle parent without AXOpen: ROOT/root/Apps"},
      {{"choose-open-panel-bundle", "--app", "Editor", "--path", "ROOT/elsewhere/Tool.app"}, "",
       "Application bundle does not exist as a directory: ROOT/elsewhere/Tool.app"},
      {{"choose-open-panel-path", "--app", "Editor", "--path", "ROOT/root/top.txt"}, R"(, "neverCloses": true)",
       "Native Open panel did not close within 6.0s"},
      {{"choose-open-panel-bundle", "--app", "Editor", "--path", "ROOT/elsewhere/Far.app"}, "",
       "Native Open panel AX hierarchy could not anchor bundle parent: root"},
      {{"choose-open-panel-bundle", "--app", "Editor", "--path", "ROOT/root/Apps/Tool.app"},
       R"(, "rowsRefuseSelection": true)", "Native Open panel could not select folder on the way: ROOT/root/Apps"},
      {{"choose-open-panel-bundle", "--app", "Editor", "--path", "ROOT/root/Direct.app"},
       R"(, "rowsRefuseSelection": true)",
       "Native Open panel could not select application bundle through AX: ROOT/root/Direct.app"},
      {{"choose-open-panel-bundle", "--app", "Editor", "--path", "ROOT/root/Apps/Tool.app"}, R"(, "chooses": "folders")",
       "Native Open panel did not enable Open after selecting application bundle: ROOT/root/Apps/Tool.app"},
      // Nothing listed: nothing confirms which "root" the panel shows.
      {{"choose-open-panel-bundle", "--app", "Editor", "--path", "ROOT/root/Direct.app"}, R"(, "entriesDelay": 10)",
       "Native Open panel AX hierarchy could not anchor bundle parent: root"},
      {{"choose-open-panel-path", "--app", "Editor", "--path", "ROOT/elsewhere/x.txt"}, "",
       "Could not create pid-targeted key event", R"("eventCreationFails": ["keyboard"], )"},
  };
  for (const Case& c : cases) {
    PanelDesktop d(kind, c.extra, c.top);
    std::vector<std::string> args;
    for (const auto& a : c.args) args.push_back(tavlin::testing::replaceAll(a, "ROOT", d.files.path()));
    ToolRun run = d.run(args);
    EXPECT_EQ(run.status, 1) << c.message;
    EXPECT_EQ(run.err, tavlin::testing::replaceAll(c.message, "ROOT", d.files.path()) + "\n");
    EXPECT_EQ(run.out, "");
  }
  (void)root;
}

TEST(OpenPanel, FaultsEndInBoundedTimeOrTheFallback) {
  PanelKind kind{"sheet", "en", "list"};
  // Rows that refuse selection: the route gives up within its caps and the go-to-folder
  // sheet selects the file instead.
  PanelDesktop refusing(kind, R"(, "rowsRefuseSelection": true)");
  ToolRun run = refusing.run({"choose-open-panel-path", "--app", "Editor", "--path",
                              refusing.files.file("root/top.txt")});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(field(run.out, "strategy"), "\"go-to-folder-sheet\"");

  // Without "AXOpen" the path route opens folders with a pid-targeted double click.
  PanelDesktop noOpen(kind, R"(, "withoutAXOpen": true)");
  run = noOpen.run({"choose-open-panel-path", "--app", "Editor", "--path",
                    noOpen.files.file("root/Alpha Dir/b/\xC3\xA7/Report.pdf")});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(field(run.out, "strategy"), "\"ax-hierarchy\"");
  std::string events = noOpen.events();
  size_t doubleClicks = 0;
  for (size_t at = 0; (at = events.find("left-mouse-down", at)) != std::string::npos; ++at) {
    doubleClicks += events.compare(events.find('\n', at) - 12, 12, "clickState=2") == 0;
  }
  EXPECT_EQ(doubleClicks, 3u) << events;  // one per folder on the way
  EXPECT_EQ(events.find("AXOpen"), std::string::npos);

  // A choose button that reads disabled: Return, posted to the process, confirms.
  PanelDesktop lagging(kind, R"(, "buttonStateLags": true)");
  run = lagging.run({"choose-open-panel-path", "--app", "Editor", "--path", lagging.files.file("root/top.txt")});
  ASSERT_EQ(run.status, 0) << run.err;
  std::string log = lagging.events();
  size_t ret = log.find("pid:7 key-down keyCode=36 flags=0x0");
  ASSERT_NE(ret, std::string::npos) << log;
  EXPECT_NE(log.find("open-panel-chose path=" + lagging.files.file("root/top.txt"), ret), std::string::npos) << log;
  EXPECT_EQ(log.find("AXPress"), std::string::npos);

  // Entries that appear late are waited for.
  PanelDesktop slow(kind, R"(, "entriesDelay": 1.0)");
  run = slow.run({"choose-open-panel-path", "--app", "Editor", "--path", slow.files.file("root/top.txt")});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(field(run.out, "strategy"), "\"ax-hierarchy\"");
}

TEST(OpenPanel, AWrongTurnGoesBackToTheAnchor) {
  PanelKind kind{"sheet", "en", "list"};
  // The first folder opened shows another one: the path route steps back with Cmd+[ to
  // the folder it started from, and the go-to-folder sheet reaches the file.
  PanelDesktop path(kind, R"(, "wrongTurns": 1)");
  std::string report = path.files.file("root/Alpha Dir/b/\xC3\xA7/Report.pdf");
  ToolRun run = path.run({"choose-open-panel-path", "--app", "Editor", "--path", report});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(field(run.out, "strategy"), "\"go-to-folder-sheet\"");
  EXPECT_EQ(path.panelEvents(), "pid:7 open-panel-show folder=" + path.files.file("root/Apps") + "\n" +
                                    "pid:7 open-panel-show folder=" + path.files.file("root") + "\n" +
                                    "pid:7 open-panel-show folder=\"" + path.files.file("root/Alpha Dir/b/\xC3\xA7") +
                                    "\"\n" + "pid:7 open-panel-chose path=\"" + report + "\"\n");
  EXPECT_NE(path.events().find("pid:7 key-down keyCode=33 flags=0x100000"), std::string::npos) << path.events();

  // The bundle route has no fallback: it fails with its own error and leaves the panel
  // where the wrong turn took it, without a key.
  PanelDesktop bundle(kind, R"(, "wrongTurns": 1)");
  run = bundle.run({"choose-open-panel-bundle", "--app", "Editor", "--path", bundle.files.file("root/Apps/Tool.app")});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(bundle.panelEvents(), "pid:7 open-panel-show folder=\"" + bundle.files.file("root/Alpha Dir") + "\"\n");
  EXPECT_EQ(bundle.events().find("key-down"), std::string::npos) << bundle.events();
}

TEST(OpenPanel, CyclicAndUnresponsiveTreesEndInBoundedTime) {
  // A tree whose window lists its application as a child: the walk must end.
  DesktopFixture cyclic(R"({"tavlinDesktop": 1, "apps": [{"pid": 3, "name": "Loop", "ui": {"id": "app",
      "role": "AXApplication", "children": [{"role": "AXWindow", "title": "Open", "attributes": {
        "AXChildrenInNavigationOrder": [{"ref": "app"}]}, "children": [
          {"role": "AXButton", "title": "Cancel"}, {"role": "AXButton", "title": "Open"},
          {"role": "AXGroup", "attributes": {"AXChildren": [{"ref": "app"}]}}]}]}}]})");
  ToolRun run = cyclic.run({"inspect-open-panel", "--app", "Loop"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "Native Open panel not found within 1.0s\n");

  DesktopFixture silent(R"({"tavlinDesktop": 1, "apps": [{"pid": 3, "name": "Hung", "responds": false,
      "ui": {"role": "AXApplication", "children": [{"role": "AXWindow", "title": "Open"}]}}]})");
  run = silent.run({"choose-open-panel-path", "--app", "Hung", "--path", "/", "--timeout", "3"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "Native Open panel not found within 3.0s\n");
}
