// get-app-state end to end: the real binary against fixture desktops.
#include <gtest/gtest.h>

#include <regex>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "common/files.h"
#include "test_support.h"

using tavlin::testing::expectGolden;
using tavlin::testing::readText;
using tavlin::testing::replaceAll;
using tavlin::testing::runTool;
using tavlin::testing::TempDir;
using tavlin::testing::ToolRun;
using tavlin::testing::writeText;

namespace {

const std::string exampleDesktop = std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json";

// Outputs with the temporary folder written as $TMP, so they compare as whole texts.
struct Desktop : tavlin::testing::DesktopFixture {
  using DesktopFixture::DesktopFixture;
  std::string cache = dir.file("Library/Caches/Tavlin/computer-ai-use-state");

  ToolRun run(const std::vector<std::string>& args, std::map<std::string, std::string> environment = {}) {
    ToolRun r = DesktopFixture::run(args, std::move(environment));
    r.out = replaceAll(replaceAll(r.out, dir.path(), "$TMP"), replaceAll(dir.path(), "/", "\\/"), "$TMP");
    return r;
  }
  std::string events() const { return replaceAll(DesktopFixture::events(), dir.path(), "$TMP"); }
};

// What the tool names as its bundle: Tavlin.app for a bundled build, else the folder
// of the executable.
std::string mainBundleOfBinary() {
  std::string binary = TAVLIN_BINARY;
  size_t app = binary.find(".app/Contents/MacOS/");
  if (app != std::string::npos) return binary.substr(0, app + 4);
  return tavlin::common::deletingLastPathComponent(binary);
}

std::string withCapture(const std::string& behaviour) {
  std::string json = readText(exampleDesktop);
  return replaceAll(json, "\"accessibilityTrusted\": true,", "\"accessibilityTrusted\": true, \"capture\": " + behaviour + ",");
}

}  // namespace

TEST(GetAppState, WholeOutputsInEveryFormat) {
  Desktop d(readText(exampleDesktop));
  ToolRun plugin = d.run({"get-app-state", "--app", "Scribe"});
  EXPECT_EQ(plugin.status, 0);
  EXPECT_EQ(plugin.err, "");
  expectGolden("get-app-state-plugin.txt", plugin.out);

  ToolRun json = d.run({"get-app-state", "--app", "scribe", "--format", "JSON"});
  EXPECT_EQ(json.status, 0);
  expectGolden("get-app-state.json", json.out);
  // The cache file holds the same document, without the printer's newline.
  EXPECT_EQ(replaceAll(readText(d.cache + "/com.tavlin.example.scribe-4242.json"), d.dir.path(), "$TMP") + "\n",
            json.out);

  ToolRun envelope = d.run({"get_app_state", "--app", "com.tavlin.example.Scribe", "--format", "plugin-json"});
  EXPECT_EQ(envelope.status, 0);
  expectGolden("get-app-state-envelope.json", envelope.out);
  EXPECT_EQ(d.run({"get-app-state", "--app", "Scribe", "--format", "plugin_json"}).out, envelope.out);
}

TEST(GetAppState, ScreenshotThroughTheCaptureModeIsARealPngOfTheWindow) {
  Desktop d(readText(exampleDesktop));
  ASSERT_EQ(d.run({"get-app-state", "--app", "Scribe"}).status, 0);
  // The companion ran the capture mode, which asked ScreenCaptureKit for the window at
  // its size in points.
  std::string events = d.events();
  EXPECT_NE(events.find("system run program=" + std::string(TAVLIN_SOURCE_ROOT) +
                        "/bin/background-window-capture arguments=\"capture --window-id 301 --out "),
            std::string::npos)
      << events;
  EXPECT_NE(events.find("0.000 system sck-capture window=301 width=900 height=640\n"
                        "0.000 system write-png width=900 height=640\n"),
            std::string::npos)
      << events;
  std::string png = readText(d.cache + "/com.tavlin.example.scribe-4242.png");
  ASSERT_GT(png.size(), 24u);
  EXPECT_EQ(png.substr(1, 3), "PNG");
  auto be32 = [&](size_t at) {
    return (static_cast<uint32_t>(static_cast<unsigned char>(png[at])) << 24) |
           (static_cast<uint32_t>(static_cast<unsigned char>(png[at + 1])) << 16) |
           (static_cast<uint32_t>(static_cast<unsigned char>(png[at + 2])) << 8) |
           static_cast<uint32_t>(static_cast<unsigned char>(png[at + 3]));
  };
  EXPECT_EQ(be32(16), 900u);
  EXPECT_EQ(be32(20), 640u);
  for (const char* name : {"", "/com.tavlin.example.scribe-4242.png", "/com.tavlin.example.scribe-4242.json"}) {
    struct stat st;
    ASSERT_EQ(::stat((d.cache + name).c_str(), &st), 0) << name;
    EXPECT_EQ(st.st_mode & 0777, std::string(name).empty() ? 0700u : 0600u) << name;
  }
}

TEST(GetAppState, WindowChoiceFollowsTheFlags) {
  Desktop d(R"({"tavlinDesktop": 1, "apps": [{"pid": 9, "name": "Docs", "ui": {"role": "AXApplication",
      "attributes": {"AXFocusedWindow": {"ref": "a"}},
      "children": [
        {"id": "a", "role": "AXWindow", "title": "Alpha", "position": [0, 30], "size": [400, 300]},
        {"id": "b", "role": "AXWindow", "title": "Beta", "position": [500, 30], "size": [400, 300]}]}}],
    "windows": [{"number": 11, "pid": 9, "bounds": [0, 30, 400, 300], "name": "Alpha"},
                {"number": 12, "pid": 9, "bounds": [500, 30, 400, 300], "name": "Beta"}]})");
  auto windowLine = [&](const std::vector<std::string>& flags) {
    std::vector<std::string> args = {"get-app-state", "--app", "Docs", "--format", "plugin-json"};
    args.insert(args.end(), flags.begin(), flags.end());
    ToolRun run = d.run(args);
    EXPECT_EQ(run.status, 0) << run.err;
    auto at = run.out.find("\"window_id\" : ");
    return run.out.substr(at, run.out.find('\n', at) - at);
  };
  EXPECT_EQ(windowLine({}), "\"window_id\" : 11,");
  EXPECT_EQ(windowLine({"--window-id", "12"}), "\"window_id\" : 12,");
  EXPECT_EQ(windowLine({"--window_id", "99"}), "\"window_id\" : 11,");
  EXPECT_EQ(windowLine({"--title-contains", "BET"}), "\"window_id\" : 12,");
  EXPECT_EQ(windowLine({"--window_title_contains", "beta", "--window-id", "11"}), "\"window_id\" : 11,");
}

TEST(GetAppState, CaptureFallbacksAndFailures) {
  {
    // The companion tool fails: the system tool captures the window's rectangle.
    Desktop d(withCapture(R"({"companion": "fails"})"));
    ToolRun run = d.run({"get-app-state", "--app", "Scribe"});
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("\nScreenshot: $TMP/Library/"), std::string::npos);
    // Into a private folder of its own in the cache, under the final name.
    EXPECT_TRUE(std::regex_search(d.events(), std::regex("0\\.000 system run program=/usr/sbin/screencapture "
                                                         "arguments=\"-x -R120,80,900,640 \\$TMP/Library/Caches/Tavlin/"
                                                         "computer-ai-use-state/\\.tavlin-[A-Za-z0-9]{6}/"
                                                         "com\\.tavlin\\.example\\.scribe-4242\\.png\"")))
        << d.events();
  }
  {
    // Both fail: the snapshot has no screenshot and the previous image is gone.
    Desktop d(readText(exampleDesktop));
    ASSERT_EQ(d.run({"get-app-state", "--app", "Scribe"}).status, 0);
    std::string png = d.cache + "/com.tavlin.example.scribe-4242.png";
    ASSERT_TRUE(tavlin::common::exists(png));
    d.edit("\"accessibilityTrusted\": true,",
           "\"accessibilityTrusted\": true, \"capture\": {\"companion\": \"fails\", \"screencapture\": \"fails\"},");
    ToolRun run = d.run({"get-app-state", "--app", "Scribe", "--format", "json"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out.find("screenshot"), std::string::npos);
    EXPECT_FALSE(tavlin::common::exists(png));
    run = d.run({"get-app-state", "--app", "Scribe"});
    EXPECT_EQ(run.out.find("Screenshot:"), std::string::npos);
  }
}

TEST(GetAppState, Failures) {
  const std::vector<std::tuple<std::string, std::vector<std::string>, std::string>> cases = {
      {R"({"tavlinDesktop": 1, "accessibilityTrusted": false})", {"get-app-state", "--app", "X"},
       "Accessibility permission is required for computer-ai-use.\nAdd this app in System Settings > Privacy & "
       "Security > Accessibility:\n" + mainBundleOfBinary()},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 3, "name": "Locked", "ui": {"role": "AXApplication",
          "errors": {"AXRole": "apiDisabled"}}}]})",
       {"get-app-state", "--app", "Locked"}, "Accessibility API is disabled for computer-ai-use"},
      {R"({"tavlinDesktop": 1, "apps": [{"pid": 3, "name": "A", "hidden": true, "activationPolicy": "accessory"}]})",
       {"get-app-state", "--app", "Zed"}, "No running application matches Zed"},
  };
  for (const auto& [desktop, args, err] : cases) {
    Desktop d(desktop);
    ToolRun run = d.run(args);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, err + "\n");
  }
}

TEST(GetAppState, UnansweringApplicationEndsInBoundedTime) {
  Desktop d(R"({"tavlinDesktop": 1, "apps": [{"pid": 3, "name": "Hung", "responds": false,
      "ui": {"role": "AXApplication", "children": [{"role": "AXWindow", "children": [{"role": "AXButton"}]}]}}]})");
  ToolRun run = d.run({"get-app-state", "--app", "Hung", "--format", "json"}, {{"TAVLIN_AX_TIMEOUT", "0.5"}});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("\"role\" : \"\""), std::string::npos);
  // Every call gives up after the time-out: 11 calls of 0.5 s (the probe, three window
  // lists, three fallbacks, focus, and three for the one element the walk can see,
  // whose title and frame serve the window record too).
  std::string state = readText(d.path);
  EXPECT_NE(state.find("\"elapsed\": 5.5"), std::string::npos) << state;

  run = d.run({"get-app-state", "--app", "Hung"}, {{"TAVLIN_AX_TIMEOUT", "soon"}});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "TAVLIN_AX_TIMEOUT must be a number of seconds above 0 and at most 600, not soon\n");
}

TEST(ImageSize, ReadsTheScreenshotsPixelSizeAndRefusesWhatIsNoImage) {
  Desktop d(readText(exampleDesktop));
  ToolRun json = d.run({"get-app-state", "--app", "Scribe", "--format", "json"});
  ASSERT_EQ(json.status, 0) << json.err;
  std::string path = replaceAll(nlohmann::json::parse(json.out)["screenshotPath"].get<std::string>(), "$TMP",
                                d.dir.path());
  ToolRun size = d.run({"__image-size", path});
  EXPECT_EQ(size.status, 0) << size.err;
  EXPECT_EQ(size.out, "900 640\n");
  ToolRun notImage = d.run({"__image-size", d.path});
  EXPECT_EQ(notImage.status, 1);
  EXPECT_EQ(notImage.err, "not an image with a pixel size: " + d.path + "\n");
  EXPECT_EQ(d.run({"__image-size"}).err, "usage: __image-size PATH\n");
}
