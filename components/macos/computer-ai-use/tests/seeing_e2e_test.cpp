// What an agent sees, end to end: screenshots shrunk for models with pixel clicks that
// still land, numbered (annotated) screenshots, and simulated screens with real text.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>

#include <nlohmann/json.hpp>

#include "common/files.h"
#include "imaging/png_file.h"
#include "imaging/text.h"
#include "snapshot/screenshot_images.h"
#include "test_support.h"

using nlohmann::json;
using tavlin::imaging::Canvas;
using tavlin::imaging::Color;
using tavlin::testing::readText;
using tavlin::testing::replaceAll;
using tavlin::testing::ToolRun;

namespace {

const std::string exampleDesktop = std::string(TAVLIN_SOURCE_ROOT) + "/examples/desktops/text-editor.json";

struct Desktop : tavlin::testing::DesktopFixture {
  explicit Desktop(const std::string& json = readText(exampleDesktop)) : DesktopFixture(json) {}
  std::string cache = dir.file("Library/Caches/Tavlin/computer-ai-use-state");
  std::string png = cache + "/com.tavlin.example.scribe-4242.png";
  std::string annotated = cache + "/com.tavlin.example.scribe-4242.annotated.png";

  json state(std::vector<std::string> flags, std::map<std::string, std::string> environment = {}) {
    std::vector<std::string> args = {"get-app-state", "--app", "Scribe", "--format", "json"};
    args.insert(args.end(), flags.begin(), flags.end());
    ToolRun run = DesktopFixture::run(args, std::move(environment));
    EXPECT_EQ(run.status, 0) << run.err;
    return json::parse(run.out, nullptr, false);
  }
};

// The example desktop with its companion capture failing: the screenshot tool then
// images the window at the backing scale, 1800 × 1280 pixels, as a Retina Mac does.
std::string retinaDesktop() {
  return replaceAll(readText(exampleDesktop), "\"accessibilityTrusted\": true,",
                    "\"accessibilityTrusted\": true, \"capture\": {\"companion\": \"fails\"},");
}

Canvas decoded(const std::string& path) {
  std::string problem;
  auto image = tavlin::imaging::readPNG(path, problem);
  EXPECT_TRUE(image) << path << ": " << problem;
  return image ? *image : Canvas(1, 1, Color{});
}

// An element's frame from a snapshot, in that snapshot's image pixels.
struct PixelFrame {
  double x, y, width, height;
};
PixelFrame inImage(const json& snapshot, int64_t index) {
  const json& window = snapshot["window"]["frame"];
  const json& element = snapshot["elements"][index]["frame"];
  double sx = snapshot["screenshotSize"]["width"].get<double>() / window["width"].get<double>();
  double sy = snapshot["screenshotSize"]["height"].get<double>() / window["height"].get<double>();
  return {(element["x"].get<double>() - window["x"].get<double>()) * sx,
          (element["y"].get<double>() - window["y"].get<double>()) * sy, element["width"].get<double>() * sx,
          element["height"].get<double>() * sy};
}

bool within(const json& point, const json& frame) {
  double x = point["x"], y = point["y"];
  return x >= frame["x"].get<double>() && x <= frame["x"].get<double>() + frame["width"].get<double>() &&
         y >= frame["y"].get<double>() && y <= frame["y"].get<double>() + frame["height"].get<double>();
}

}  // namespace

TEST(MaxDimension, ShrinksTheCachedScreenshotAndPixelClicksStillLandOnTheirElement) {
  struct Case {
    std::string flag;
    int64_t width, height;
  };
  const std::vector<Case> cases = {
      {"700", 700, 498},
      {"1568", 1568, 1115},  // the MCP server's default
      {"64", 64, 46},
  };
  for (const Case& c : cases) {
    Desktop d(retinaDesktop());
    json snapshot = d.state({"--max-dimension", c.flag});
    EXPECT_EQ(snapshot["screenshotSize"], (json{{"width", c.width}, {"height", c.height}})) << c.flag;
    EXPECT_EQ(tavlin::imaging::readPNGSize(d.png), std::make_pair(c.width, c.height)) << c.flag;
    // The cache records the same size, so the next command maps with it.
    EXPECT_EQ(json::parse(readText(d.cache + "/com.tavlin.example.scribe-4242.json"))["screenshotSize"],
              snapshot["screenshotSize"]);

    // The agent aims at the Bold button (6) and drags from Italic (7) to the text (12)
    // by their centres in the image it was given.
    PixelFrame bold = inImage(snapshot, 6), italic = inImage(snapshot, 7), text = inImage(snapshot, 12);
    auto centre = [](const PixelFrame& f, bool y) { return std::to_string(y ? f.y + f.height / 2 : f.x + f.width / 2); };
    ToolRun click = d.run({"click", "--app", "Scribe", "--x", centre(bold, false), "--y", centre(bold, true)});
    ASSERT_EQ(click.status, 0) << click.err;
    json clicked = json::parse(click.out)["screen_point"];
    EXPECT_TRUE(within(clicked, snapshot["elements"][6]["frame"])) << c.flag << " " << clicked;
    // Within one image pixel of the button's own centre (154, 128).
    double pixel = 900.0 / static_cast<double>(c.width);
    EXPECT_LE(std::abs(clicked["x"].get<double>() - 154), pixel) << c.flag;
    EXPECT_LE(std::abs(clicked["y"].get<double>() - 128), pixel) << c.flag;

    ToolRun drag = d.run({"drag", "--app", "Scribe", "--from-x", centre(italic, false), "--from-y", centre(italic, true),
                          "--to-x", centre(text, false), "--to-y", centre(text, true)});
    ASSERT_EQ(drag.status, 0) << drag.err;
    json dragged = json::parse(drag.out);
    EXPECT_TRUE(within(dragged["from"], snapshot["elements"][7]["frame"])) << c.flag << dragged;
    EXPECT_TRUE(within(dragged["to"], snapshot["elements"][12]["frame"])) << c.flag << dragged;
  }
}

TEST(MaxDimension, ElementCommandsKeepTheBoundSoTheImageHeldStillMaps) {
  // An element command's own snapshot replaces the cached screenshot; it keeps the
  // bound, so pixels of the image from get-app-state keep their meaning, until a
  // get-app-state without the flag asks for the full size again.
  Desktop d(retinaDesktop());
  json snapshot = d.state({"--max-dimension", "700"});
  EXPECT_EQ(snapshot["screenshotMaxDimension"], 700);
  ASSERT_EQ(d.run({"click", "--app", "Scribe", "--element-index", "6"}).status, 0);
  json cached = json::parse(readText(d.cache + "/com.tavlin.example.scribe-4242.json"));
  EXPECT_EQ(cached["screenshotSize"], snapshot["screenshotSize"]);
  PixelFrame italic = inImage(snapshot, 7);
  ToolRun click = d.run({"click", "--app", "Scribe", "--x", std::to_string(italic.x + italic.width / 2), "--y",
                         std::to_string(italic.y + italic.height / 2)});
  ASSERT_EQ(click.status, 0) << click.err;
  EXPECT_TRUE(within(json::parse(click.out)["screen_point"], snapshot["elements"][7]["frame"])) << click.out;

  EXPECT_EQ(d.state({})["screenshotSize"], (json{{"width", 1800}, {"height", 1280}}));
  ASSERT_EQ(d.run({"click", "--app", "Scribe", "--element-index", "6"}).status, 0);
  EXPECT_EQ(tavlin::imaging::readPNGSize(d.png), std::make_pair(int64_t{1800}, int64_t{1280}));
}

TEST(MaxDimension, AnImageWithinTheBoundIsLeftAsCaptured) {
  Desktop d(retinaDesktop());
  d.state({});
  std::string plain = readText(d.png);
  json snapshot = d.state({"--max_dimension", "1800"});
  EXPECT_EQ(snapshot["screenshotSize"], (json{{"width", 1800}, {"height", 1280}}));
  EXPECT_EQ(readText(d.png), plain);
}

TEST(MaxDimension, ValuesOutsideTheBoundAreRefusedBeforeAnything) {
  Desktop d;
  for (const std::string value : {"63", "16385", "1e3", "wide"}) {
    ToolRun run = d.run({"get-app-state", "--app", "Scribe", "--max-dimension", value});
    EXPECT_EQ(run.status, 1) << value;
    EXPECT_EQ(run.out, "") << value;
    EXPECT_EQ(run.err, "--max-dimension must be an integer from 64 to 16384, not " + value + "\n");
  }
  ToolRun bare = d.run({"get-app-state", "--app", "Scribe", "--max-dimension"});
  EXPECT_EQ(bare.err, "--max-dimension must be an integer from 64 to 16384, not true\n");
  EXPECT_FALSE(tavlin::common::exists(d.png)) << "refused before any capture";
}

TEST(Annotate, WritesANumberedCopyAndNamesItOnOneExtraLine) {
  Desktop d(retinaDesktop());
  ToolRun plain = d.run({"get-app-state", "--app", "Scribe"});
  ToolRun run = d.run({"get-app-state", "--app", "Scribe", "--annotate", "--max-dimension", "1000"});
  ASSERT_EQ(run.status, 0) << run.err;
  // The default text with one line after the screenshot's.
  std::string screenshotLine = "Screenshot: " + d.png + "\n";
  EXPECT_EQ(run.out, replaceAll(plain.out, screenshotLine, screenshotLine + "Annotated screenshot: " + d.annotated + "\n"));
  struct stat st;
  ASSERT_EQ(::stat(d.annotated.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  // The shrunk screenshot with every element's frame outlined where it is in the image.
  json snapshot = d.state({"--annotate", "--max-dimension", "1000"});
  EXPECT_EQ(snapshot["annotatedScreenshotPath"], d.annotated);
  Canvas shot = decoded(d.png), numbered = decoded(d.annotated);
  ASSERT_EQ(numbered.width(), shot.width());
  ASSERT_EQ(numbered.height(), shot.height());
  EXPECT_EQ(shot.width(), 1000);
  for (size_t i = 0; i < snapshot["elements"].size(); ++i) {
    PixelFrame f = inImage(snapshot, static_cast<int64_t>(i));
    int x = static_cast<int>(std::floor(f.x + f.width / 2)), y = static_cast<int>(std::ceil(f.y + f.height) - 1);
    y = std::min(y, numbered.height() - 1);
    // Another element's outline or label may lie over it, so any element's colour will do.
    bool outlined = false;
    for (int64_t j = 0; j < 8; ++j) outlined = outlined || numbered.at(x, y) == tavlin::snapshot::annotationColor(j);
    EXPECT_TRUE(outlined) << "bottom edge of " << i;
    EXPECT_NE(shot.at(x, y), numbered.at(x, y)) << "bottom edge of " << i;
  }

  ToolRun envelope = d.run({"get-app-state", "--app", "Scribe", "--annotate", "--format", "plugin-json"});
  EXPECT_EQ(json::parse(envelope.out)["annotated_screenshot_path"], d.annotated);

  // A later snapshot without the flag, or whose capture fails, leaves no stale copy.
  ToolRun without = d.run({"get-app-state", "--app", "Scribe", "--annotate", "false"});
  EXPECT_EQ(without.out, plain.out);
  EXPECT_FALSE(tavlin::common::exists(d.annotated));
  d.run({"get-app-state", "--app", "Scribe", "--annotate"});
  ASSERT_TRUE(tavlin::common::exists(d.annotated));
  d.edit("\"companion\": \"fails\"", "\"companion\": \"fails\", \"screencapture\": \"fails\"");
  ToolRun failed = d.run({"get-app-state", "--app", "Scribe", "--annotate"});
  EXPECT_EQ(failed.status, 0);
  EXPECT_EQ(failed.out.find("creenshot"), std::string::npos) << failed.out;
  EXPECT_FALSE(tavlin::common::exists(d.annotated));
}

TEST(Annotate, LabelsOfOverlappingElementsDoNotHideEachOther) {
  // Three buttons with one frame, a text inside them and a toolbar around them, all
  // in the window's top-left region; drawn with the built-in digits.
  Desktop d(R"({"tavlinDesktop": 1, "accessibilityTrusted": true, "frontmostPid": 4242,
    "apps": [{"pid": 4242, "name": "Scribe", "bundleIdentifier": "com.tavlin.example.Scribe", "ui": {
      "role": "AXApplication", "children": [{"role": "AXWindow", "title": "Stack", "position": [0, 30],
        "size": [300, 200], "children": [
          {"role": "AXToolbar", "position": [0, 30], "size": [300, 40], "children": [
            {"role": "AXButton", "title": "A", "position": [10, 35], "size": [60, 30]},
            {"role": "AXButton", "title": "B", "position": [10, 35], "size": [60, 30]},
            {"role": "AXButton", "title": "C", "position": [10, 35], "size": [60, 30]},
            {"role": "AXStaticText", "value": "t", "position": [14, 38], "size": [30, 20]}]}]}]}}],
    "windows": [{"number": 9, "pid": 4242, "bounds": [0, 30, 300, 200], "name": "Stack"}]})");
  json snapshot = d.state({"--annotate"}, {{"TAVLIN_FONT", "none"}});
  ASSERT_EQ(snapshot["elements"].size(), 6u);
  Canvas image = decoded(d.annotated);
  ASSERT_EQ(image.width(), 300);

  // Each label: a box of its element's colour, 9 × 11 pixels (one built-in digit with
  // its margins), whose margins are whole: no other label lies over it. An outline is
  // one pixel wide and cannot pass for one.
  auto labelOf = [&](int64_t index) -> std::optional<tavlin::imaging::PixelRect> {
    Color colour = tavlin::snapshot::annotationColor(index);
    const int w = 9, h = 11;
    auto solidRow = [&](int x, int y) {
      for (int i = 0; i < w; ++i) {
        if (image.at(x + i, y) != colour) return false;
      }
      return true;
    };
    for (int y = 0; y + h <= image.height(); ++y) {
      for (int x = 0; x + w <= image.width(); ++x) {
        if (solidRow(x, y) && solidRow(x, y + 1) && solidRow(x, y + h - 2) && solidRow(x, y + h - 1)) {
          return tavlin::imaging::PixelRect{x, y, w, h};
        }
      }
    }
    return std::nullopt;
  };
  std::vector<tavlin::imaging::PixelRect> boxes;
  for (int64_t index = 0; index < 6; ++index) {
    auto box = labelOf(index);
    ASSERT_TRUE(box) << "no whole label for " << index;
    boxes.push_back(*box);
    // Beside its element.
    PixelFrame f = inImage(snapshot, index);
    EXPECT_TRUE(box->x + box->width >= f.x && box->x <= f.x + f.width && box->y + box->height >= f.y &&
                box->y <= f.y + f.height + box->height)
        << index;
  }
  for (size_t i = 0; i < boxes.size(); ++i) {
    for (size_t j = 0; j < i; ++j) EXPECT_FALSE(boxes[i].intersects(boxes[j])) << i << " and " << j;
  }
}

TEST(SimulatedScreens, DrawTitlesAndValuesAsTextAFontCanShow) {
  Desktop d(R"({"tavlinDesktop": 1, "accessibilityTrusted": true, "frontmostPid": 4242,
    "apps": [{"pid": 4242, "name": "Scribe", "bundleIdentifier": "com.tavlin.example.Scribe", "ui": {
      "role": "AXApplication", "children": [{"role": "AXWindow", "title": "Form", "position": [0, 30],
        "size": [300, 200], "children": [
          {"role": "AXButton", "title": "Save", "position": [20, 60], "size": [100, 30]},
          {"role": "AXButton", "title": "Later", "enabled": false, "position": [140, 60], "size": [100, 30]},
          {"role": "AXTextField", "value": "", "description": "Search", "position": [20, 120], "size": [200, 24]}]}]}}],
    "windows": [{"number": 9, "pid": 4242, "bounds": [0, 30, 300, 200], "name": "Form"}]})");
  auto font = tavlin::imaging::loadFont(std::nullopt);
  ASSERT_TRUE(font) << "no font of the search list loads: install fonts-dejavu-core (scripts/install-deps.sh)";

  // The ink inside an element: its bounding box and its darkest pixel.
  struct Ink {
    int left, right, count;
    int darkest;
  };
  auto inkIn = [](const Canvas& image, int x0, int y0, int x1, int y1) {
    Ink ink{x1, x0, 0, 255};
    for (int y = y0 + 2; y < y1 - 2; ++y) {  // inside the outline
      for (int x = x0 + 2; x < x1 - 2; ++x) {
        Color c = image.at(x, y);
        int level = std::max({c.r, c.g, c.b});
        if (level > 200) continue;
        ink = {std::min(ink.left, x), std::max(ink.right, x), ink.count + 1, std::min(ink.darkest, level)};
      }
    }
    return ink;
  };
  // 300 × 200 points at one pixel a point (the companion's capture).
  ASSERT_EQ(d.state({})["screenshotSize"], (json{{"width", 300}, {"height", 200}}));
  Canvas image = decoded(d.png);
  Ink save = inkIn(image, 20, 30, 120, 60), later = inkIn(image, 140, 30, 240, 60), field = inkIn(image, 20, 90, 220, 114);
  // "Save" whole, centred, at the 13-point size; "Later" greyed; the empty field's placeholder grey.
  EXPECT_NEAR(save.right - save.left + 1, font->width("Save", 13), 3);
  EXPECT_NEAR((save.left + save.right) / 2.0, 70, 3);
  EXPECT_LT(save.darkest, 60);
  EXPECT_GT(later.count, 20);
  EXPECT_GT(later.darkest, 120);
  EXPECT_GT(field.count, 20);
  EXPECT_GT(field.darkest, 120);

  // Without a font: no text, as before (a button shows none, a field's value is a bar).
  d.state({}, {{"TAVLIN_FONT", "none"}});
  Canvas bare = decoded(d.png);
  EXPECT_EQ(inkIn(bare, 20, 30, 120, 60).count, 0);
  EXPECT_EQ(inkIn(bare, 20, 90, 220, 114).count, 0);
}
