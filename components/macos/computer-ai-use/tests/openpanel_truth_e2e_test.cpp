// The Open panel commands never report a choice the panel did not make: end to end
// against simulated panels that resist the way real ones do (labels shared by two
// files, same-named folders elsewhere, long lists, panels that close or live in
// another process, late sheets and buttons, a host window that takes stray keys).
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "test_support.h"

using tavlin::testing::DesktopFixture;
using tavlin::testing::TempDir;
using tavlin::testing::ToolRun;
using tavlin::testing::writeText;

namespace {

const char* const hostText = "Dear reader, this document must stay as it is.";

// A folder tree (paths ending in "/" are folders) and "Editor" (pid 7) showing a panel
// sheet on `shown` with the given options.
struct Scene {
  Scene(const std::vector<std::string>& paths, const std::string& shown, const std::string& options,
        const std::string& displayNames = "") {
    namespace fs = std::filesystem;
    for (const std::string& p : paths) {
      if (p.ends_with("/")) {
        fs::create_directories(files.file(p));
      } else {
        fs::create_directories(fs::path(files.file(p)).parent_path());
        writeText(files.file(p), p);
      }
    }
    std::string names = tavlin::testing::replaceAll(displayNames, "ROOT", files.path());
    desktop = std::make_unique<DesktopFixture>(
        R"({"tavlinDesktop": 1, "displayNames": {)" + names + R"(},
        "apps": [{"pid": 7, "name": "Editor", "ui": {"role": "AXApplication", "children": [
          {"id": "doc", "role": "AXWindow", "title": "Untitled", "position": [0, 0], "size": [900, 700]}]},
         "openPanel": {"folder": ")" + files.file(shown) + R"(", "host": "doc", "hostTextArea": ")" + hostText +
        "\"" + options + "}}]}");
  }
  ToolRun choose(const std::string& path, const std::string& command = "choose-open-panel-path") {
    return desktop->run({command, "--app", "Editor", "--path", files.file(path)});
  }
  std::string events() const { return desktop->events(); }
  // The paths the panel recorded as chosen.
  std::vector<std::string> chosen() const {
    std::istringstream in(events());
    std::vector<std::string> out;
    for (std::string line; std::getline(in, line);) {
      size_t at = line.find("open-panel-chose path=");
      if (at == std::string::npos) continue;
      std::string path = line.substr(at + 22);
      if (path.size() > 1 && path.front() == '"') path = path.substr(1, path.size() - 2);
      out.push_back(path);
    }
    return out;
  }
  TempDir files;
  std::unique_ptr<DesktopFixture> desktop;
};

std::string strategyOf(const ToolRun& run) {
  size_t at = run.out.find("\"strategy\" : \"");
  if (at == std::string::npos) return "<none>";
  at += 14;
  return run.out.substr(at, run.out.find('"', at) - at);
}

// The result is either ok with exactly the path recorded, or an error with nothing
// recorded; the host's document is never touched.
void expectTruth(Scene& s, const ToolRun& run, const std::string& path, const std::string& what) {
  std::vector<std::string> chosen = s.chosen();
  if (run.status == 0) {
    EXPECT_EQ(chosen, std::vector<std::string>{s.files.file(path)}) << what << "\n" << s.events();
  } else {
    EXPECT_EQ(chosen, std::vector<std::string>{}) << what << ": " << run.err;
  }
  EXPECT_EQ(s.events().find("host-text-edited"), std::string::npos) << what << "\n" << s.events();
  for (const char* forbidden : {" activate", " hid ", " session ", "warp-cursor"}) {
    EXPECT_EQ(s.events().find(forbidden), std::string::npos) << what << ": " << forbidden;
  }
}

}  // namespace

TEST(OpenPanelTruth, APackageOnTheWayIsNeverOpened) {
  // Opening the package by double click confirmed the panel; the keys that followed
  // edited the host's document, and the command reported the file inside.
  Scene s({"F/Tool.app/Contents/Info.plist"}, "F", R"(, "withoutAXOpen": true)");
  ToolRun run = s.choose("F/Tool.app/Contents/Info.plist");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(strategyOf(run), "go-to-folder-sheet");
  expectTruth(s, run, "F/Tool.app/Contents/Info.plist", "package");
  EXPECT_EQ(s.events().find("clickState=2"), std::string::npos) << s.events();
}

TEST(OpenPanelTruth, APanelThatGoesAwayOrCannotHearKeysIsAnError) {
  struct Case {
    std::string options, target, message;
  };
  const std::vector<Case> cases = {
      // Dismissed by its user while the route walks down.
      {R"(, "closesAfter": 0.5)", "F/A/B/C/x.txt", "Native Open panel closed before the target was chosen"},
      // Drawn by another process: neither clicks nor keys posted to the host reach it
      // (outside the folder shown, the keys of the go-to-folder sheet are needed).
      {R"(, "outOfProcess": true)", "G/A/B/C/x.txt", "Native Open panel Go to Folder sheet did not open within 3.0s"},
  };
  for (const Case& c : cases) {
    Scene s({"F/A/B/C/x.txt", "G/A/B/C/x.txt"}, "F", c.options);
    ToolRun run = s.choose(c.target);
    EXPECT_EQ(run.status, 1) << c.options;
    EXPECT_EQ(run.err, c.message + "\n");
    expectTruth(s, run, c.target, c.options);
  }
  // Accessibility still reaches a panel of another process: the list's selection and
  // "AXOpen" walk it without a click or a key.
  Scene s({"F/A/B/C/x.txt"}, "F", R"(, "outOfProcess": true)");
  ToolRun run = s.choose("F/A/B/C/x.txt");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(strategyOf(run), "ax-hierarchy");
  expectTruth(s, run, "F/A/B/C/x.txt", "out of process");
}

TEST(OpenPanelTruth, AKnownURLDecidesOverALabel) {
  // Pairs that show one label: a hidden extension, a folder beside a file, and names
  // equal to the list's icon descriptions.
  const std::vector<std::string> tree = {"F/Report.pdf", "F/Report.txt", "F/Notes/", "F/Notes.txt", "F/Apple.txt",
                                         "F/document", "F/folder", "F/Zebra/"};
  const std::string names = R"("ROOT/F/Report.pdf": "Report", "ROOT/F/Report.txt": "Report",
                               "ROOT/F/Notes.txt": "Notes")";
  for (const char* view : {"list", "icon", "column"}) {
    for (const char* target : {"F/Report.txt", "F/Report.pdf", "F/Notes.txt", "F/Notes", "F/document", "F/folder"}) {
      Scene s(tree, "F", std::string(R"(, "chooses": "filesAndFolders", "view": ")") + view + "\"", names);
      ToolRun run = s.choose(target);
      EXPECT_EQ(run.status, 0) << view << " " << target << ": " << run.err;
      EXPECT_EQ(strategyOf(run), "ax-hierarchy") << view << " " << target;
      expectTruth(s, run, target, std::string(view) + " " + target);
    }
  }
}

TEST(OpenPanelTruth, ASameNamedFolderElsewhereIsNotTheAnchor) {
  for (const char* target : {"b/Documents/plan.md", "b/Documents"}) {
    Scene s({"a/Documents/plan.md", "b/Documents/plan.md"}, "a/Documents", R"(, "chooses": "filesAndFolders")");
    ToolRun run = s.choose(target);
    ASSERT_EQ(run.status, 0) << target << ": " << run.err;
    EXPECT_EQ(strategyOf(run), "go-to-folder-sheet") << target;
    expectTruth(s, run, target, target);
  }
}

TEST(OpenPanelTruth, ClicksStayInsideTheVisibleList) {
  std::vector<std::string> tree;
  for (int i = 0; i < 600; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "F/file-%03d.txt", i);
    tree.push_back(name);
  }
  struct Case {
    std::string view, strategy;
  };
  // List view scrolls the row into view; icon view lists items out of view as invalid
  // elements, so the go-to-folder sheet selects the file.
  for (const Case& c : std::vector<Case>{{"list", "ax-hierarchy"}, {"icon", "go-to-folder-sheet"}}) {
    Scene s(tree, "F", R"(, "view": ")" + c.view + "\"");
    ToolRun run = s.choose("F/file-589.txt");
    ASSERT_EQ(run.status, 0) << c.view << ": " << run.err;
    EXPECT_EQ(strategyOf(run), c.strategy) << c.view;
    expectTruth(s, run, "F/file-589.txt", c.view);
    // Every click lands inside the list's visible area (the panel's list: y 144 to 494).
    std::istringstream in(s.events());
    for (std::string line; std::getline(in, line);) {
      size_t at = line.find("left-mouse-down x=");
      if (at == std::string::npos) continue;
      double y = std::stod(line.substr(line.find(" y=", at) + 3));
      EXPECT_TRUE(y >= 144 && y < 494) << c.view << ": " << line;
    }
  }
}

TEST(OpenPanelTruth, AFolderIsSelectedBeforeItIsOpened) {
  Scene s({"F/A/B/x.txt", "F/A/other.txt"}, "F", "");
  ToolRun run = s.choose("F/A/B/x.txt");
  ASSERT_EQ(run.status, 0) << run.err;
  expectTruth(s, run, "F/A/B/x.txt", "select then open");
  // Between one opening and the next (and before the first) a selecting click.
  std::istringstream in(s.events());
  int clicks = 0, opens = 0;
  for (std::string line; std::getline(in, line);) {
    if (line.find("left-mouse-down") != std::string::npos) ++clicks;
    if (line.find("action=AXOpen") != std::string::npos) {
      EXPECT_GT(clicks, 0) << s.events();
      clicks = 0;
      ++opens;
    }
  }
  EXPECT_EQ(opens, 2);
}

TEST(OpenPanelTruth, NamesCompareInCanonicalForm) {
  // The panel shows the folder's name decomposed ("Cafe" and a combining acute); the
  // path spells it composed.
  Scene s({"F/Caf\xC3\xA9/x.txt"}, "F/Caf\xC3\xA9", R"(, "decomposedNames": true)");
  ToolRun run = s.choose("F/Caf\xC3\xA9/x.txt");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(strategyOf(run), "ax-hierarchy");
  expectTruth(s, run, "F/Caf\xC3\xA9/x.txt", "canonical");
}

TEST(OpenPanelTruth, TheSimulatedPanelResistsLikeTheRealOne) {
  struct Case {
    std::vector<std::string> tree;
    std::string shown, options, target, strategy;  // strategy "" : an error is expected
  };
  const std::vector<Case> cases = {
      // Go to Folder appears late and drops the keys sent before; Open re-enables late.
      {{"F/x.txt", "G/y.txt"}, "F", R"(, "goToDelay": 0.7, "openButtonLag": 0.5)", "G/y.txt", "go-to-folder-sheet"},
      // The panel appears late and lists its entries late.
      {{"F/A/x.txt"}, "F", R"(, "appearsAfter": 1.0, "entriesDelay": 0.6)", "F/A/x.txt", "ax-hierarchy"},
      // Column view: one list per column, the folder shown in the last.
      {{"F/A/B/x.txt", "F/A/y.txt"}, "F", R"(, "view": "column")", "F/A/B/x.txt", "ax-hierarchy"},
      // A panel titled with the application's prompt, found by its identifiers.
      {{"F/x.txt"}, "F", R"(, "title": "Import", "prompt": "Upload")", "F/x.txt", "ax-hierarchy"},
      // Two names that differ by case are one on a default Mac disk: the panel lists
      // and goes to "Notes.txt" only, which is not the file asked for here.
      {{"F/Notes.txt", "F/notes.txt"}, "F", R"(, "caseInsensitive": true)", "F/notes.txt", ""},
      {{"F/Notes.txt", "F/notes.txt"}, "F", R"(, "caseInsensitive": true)", "F/Notes.txt", "ax-hierarchy"},
  };
  for (const Case& c : cases) {
    Scene s(c.tree, c.shown, c.options);
    ToolRun run = s.choose(c.target);
    if (c.strategy.empty()) {
      EXPECT_EQ(run.status, 1) << c.options << " " << run.out;
    } else {
      EXPECT_EQ(run.status, 0) << c.options << ": " << run.err;
      EXPECT_EQ(strategyOf(run), c.strategy) << c.options;
    }
    expectTruth(s, run, c.target, c.options);
  }
}

TEST(OpenPanelTruth, ASymlinkedFolderIsShownWhereItLeads) {
  Scene s({"real/Data/x.txt", "F/"}, "F", "");
  std::filesystem::create_directory_symlink(s.files.file("real/Data"), s.files.file("F/Shortcut"));
  ToolRun run = s.choose("F/Shortcut/x.txt");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(strategyOf(run), "ax-hierarchy");
  // The panel records the file where the link leads, as the real one does.
  EXPECT_EQ(s.chosen(), std::vector<std::string>{s.files.file("real/Data/x.txt")});
  EXPECT_NE(s.events().find("open-panel-show folder=" + s.files.file("real/Data")), std::string::npos);
}

TEST(OpenPanelTruth, APanelClosedAtAnyMomentIsNeverAChoice) {
  // The user dismisses the panel at every moment of each route in turn: the command
  // either reports exactly what the panel recorded or fails, and no key reaches the
  // host's document (typing the go-to-folder path used to go on after the panel left).
  struct Route {
    std::string options, target, command;
  };
  const std::vector<Route> routes = {
      // A path inside a package: the go-to-folder sheet types it.
      {"", "F/Tool.app/Contents/Resources/Long Named Folder/Info.plist", "choose-open-panel-path"},
      // A folder in a panel that chooses files only: Open goes into it instead.
      {"", "F/A/B", "choose-open-panel-path"},
      {R"(, "chooses": "filesAndFolders")", "F/A/B", "choose-open-panel-path"},
      {R"(, "goToDelay": 0.4, "openButtonLag": 0.5)", "G/A/x.txt", "choose-open-panel-path"},
      {"", "F/A/Tool.app", "choose-open-panel-bundle"},
  };
  for (const Route& r : routes) {
    for (int tenths = 1; tenths <= 40; ++tenths) {
      std::string at = std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
      Scene s({"F/Tool.app/Contents/Resources/Long Named Folder/Info.plist", "F/A/B/x.txt", "F/A/Tool.app/Contents/",
               "G/A/x.txt"},
              "F", r.options + R"(, "closesAfter": )" + at);
      ToolRun run = s.desktop->run({r.command, "--app", "Editor", "--path", s.files.file(r.target)});
      std::string what = r.target + r.options + " closing at " + at;
      expectTruth(s, run, r.target, what);
      if (run.status != 0) {
        EXPECT_NE(run.err.find("Native Open panel"), std::string::npos) << what << ": " << run.err;
      }
    }
  }
}
