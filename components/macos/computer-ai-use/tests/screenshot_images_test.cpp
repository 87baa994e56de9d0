// Shrunk and annotated screenshots: where index labels go, how frames map to image
// pixels, and what happens to an image that cannot be read.
#include <gtest/gtest.h>

#include <filesystem>

#include "common/files.h"
#include "imaging/png_file.h"
#include "platform/sim/sim_platform.h"
#include "snapshot/screenshot_images.h"
#include "test_support.h"

using namespace tavlin;
using imaging::PixelRect;
using snapshot::LabelTarget;

namespace {

// Labels 8 pixels a digit plus 4, 14 high, as a small font gives.
std::pair<int, int> labelSize(int64_t index) { return {static_cast<int>(std::to_string(index).size()) * 8 + 4, 14}; }

std::vector<PixelRect> labelsOf(const std::vector<LabelTarget>& targets, const PixelRect& image) {
  std::vector<PixelRect> out;
  for (const auto& placed : snapshot::placeLabels(targets, labelSize, image)) out.push_back(placed.label);
  return out;
}

}  // namespace

TEST(LabelPlacement, NestedElementsSharingACornerEachGetAFreeCorner) {
  // A window, its toolbar and a button, all with the same top-left corner.
  PixelRect image{0, 0, 400, 300};
  std::vector<LabelTarget> targets = {{0, {0, 0, 400, 300}}, {1, {0, 0, 400, 40}}, {2, {0, 0, 30, 30}}};
  EXPECT_EQ(labelsOf(targets, image), (std::vector<PixelRect>{
                                          {0, 286, 12, 14},  // the window: its bottom-left corner
                                          {388, 0, 12, 14},  // the toolbar: its top-right corner
                                          {0, 0, 12, 14},    // the button, smallest, chose first
                                      }));
}

TEST(LabelPlacement, OverlappingElementsLabelsDoNotHideEachOther) {
  struct Case {
    const char* name;
    std::vector<LabelTarget> targets;
  };
  std::vector<LabelTarget> row;  // small buttons side by side, narrower than their labels
  for (int i = 0; i < 10; ++i) row.push_back({100 + i, {20 + i * 13, 60, 12, 12}});
  std::vector<LabelTarget> list;  // a list whose rows are as high as a label
  for (int i = 0; i < 12; ++i) list.push_back({i, {10, 20 + i * 14, 200, 14}});
  const std::vector<Case> cases = {
      {"three elements with one frame", {{5, {100, 100, 80, 20}}, {6, {100, 100, 80, 20}}, {7, {100, 100, 80, 20}}}},
      {"a row of small buttons", row},
      {"list rows", list},
      {"a button and a text in it", {{3, {50, 50, 120, 30}}, {4, {56, 55, 60, 20}}}},
      {"at the image's corner", {{1, {380, 290, 30, 30}}, {2, {390, 295, 10, 5}}}},
  };
  PixelRect image{0, 0, 400, 300};
  for (const Case& c : cases) {
    std::vector<PixelRect> labels = labelsOf(c.targets, image);
    ASSERT_EQ(labels.size(), c.targets.size()) << c.name;
    for (size_t i = 0; i < labels.size(); ++i) {
      EXPECT_TRUE(image.contains(labels[i])) << c.name << " label " << i;
      // Beside its element: within two labels of its frame.
      const PixelRect& f = c.targets[i].frame;
      auto [w, h] = labelSize(c.targets[i].index);
      PixelRect near{f.x - 2 * w, f.y - 2 * h, f.width + 4 * w, f.height + 4 * h};
      EXPECT_TRUE(near.contains(labels[i])) << c.name << " label " << i;
      for (size_t j = 0; j < i; ++j) EXPECT_FALSE(labels[i].intersects(labels[j])) << c.name << " " << i << "/" << j;
    }
  }
}

TEST(LabelPlacement, WhenTheImageIsFullEveryElementStillGetsALabel) {
  std::vector<LabelTarget> crowd;
  for (int i = 0; i < 200; ++i) crowd.push_back({i, {0, 0, 20, 20}});
  PixelRect image{0, 0, 40, 40};
  std::vector<PixelRect> labels = labelsOf(crowd, image);
  ASSERT_EQ(labels.size(), 200u);
  for (const PixelRect& l : labels) EXPECT_TRUE(image.contains(l));
}

TEST(LabelTargets, FramesMapThroughTheWindowFrameAndTheImageSize) {
  snapshot::AppStateSnapshot s;
  s.window = snapshot::WindowSnapshot{std::nullopt, std::nullopt, snapshot::RectPayload{100, 50, 400, 300}};
  auto element = [](int64_t index, std::optional<snapshot::RectPayload> frame) {
    snapshot::ElementSnapshot e;
    e.index = index;
    e.frame = frame;
    return e;
  };
  s.elements = {element(0, snapshot::RectPayload{100, 50, 400, 300}),
                element(1, snapshot::RectPayload{150, 60, 20, 10}),
                element(2, std::nullopt),
                element(3, snapshot::RectPayload{600, 60, 20, 10}),   // beside the window
                element(4, snapshot::RectPayload{490, 340, 40, 40}),  // over its corner: clipped
                element(5, snapshot::RectPayload{150, 60, 0, 10})};   // no area
  auto frames = [&] {
    std::vector<std::pair<int64_t, PixelRect>> out;
    for (const auto& t : snapshot::labelTargets(s)) out.emplace_back(t.index, t.frame);
    return out;
  };
  using Frames = std::vector<std::pair<int64_t, PixelRect>>;
  EXPECT_EQ(frames(), Frames{}) << "no image size";
  s.screenshotSize = snapshot::SizePayload{800, 600};  // a Retina capture
  EXPECT_EQ(frames(), (Frames{{0, {0, 0, 800, 600}}, {1, {100, 20, 40, 20}}, {4, {780, 580, 20, 20}}}));
  s.screenshotSize = snapshot::SizePayload{200, 150};  // shrunk to half a pixel a point
  EXPECT_EQ(frames(), (Frames{{0, {0, 0, 200, 150}}, {1, {25, 5, 10, 5}}, {4, {195, 145, 5, 5}}}));
  s.window->frame.reset();
  EXPECT_EQ(frames(), Frames{}) << "no window frame";
}

TEST(FinishScreenshot, ShrinksAnnotatesAndNeverKeepsAnImageLargerThanAsked) {
  tavlin::testing::TempDir tmp;
  sim::SimPlatform platform(sim::SimDesktop::fromJson(nlohmann::ordered_json::parse(R"({"tavlinDesktop": 1})"),
                                                      tmp.file("desktop.json"), ""));
  runtime::ProcessValues values;
  values.cacheDirectoryURL = tmp.file("cache");
  values.fontSetting = "none";  // the built-in digits
  ASSERT_TRUE(common::createDirectories(values.cacheDirectoryURL, 0700));
  platform::RunningApplication app;
  app.pid = 7;
  app.localizedName = "Viewer";
  const std::string png = tmp.file("cache/viewer-7.png"), annotated = tmp.file("cache/viewer-7.annotated.png");
  ASSERT_EQ(snapshot::annotatedScreenshotFileURL(values, app), annotated);

  auto snapshotWith = [&](int64_t width, int64_t height) {
    snapshot::AppStateSnapshot s;
    s.screenshotPath = png;
    s.screenshotSize = snapshot::SizePayload{width, height};
    s.window = snapshot::WindowSnapshot{std::nullopt, std::nullopt, snapshot::RectPayload{0, 0, 200, 100}};
    snapshot::ElementSnapshot button;
    button.index = 0;
    button.frame = snapshot::RectPayload{10, 10, 50, 20};
    s.elements = {button};
    return s;
  };

  // A whole image: shrunk to fit, then annotated at the shrunk size.
  ASSERT_TRUE(imaging::writePNG(imaging::Canvas(400, 200, imaging::Color{250, 250, 250, 255}), png));
  snapshot::AppStateSnapshot s = snapshotWith(400, 200);
  snapshot::finishScreenshot(platform, values, app, s, {.annotate = true, .maxDimension = 100});
  EXPECT_EQ(s.screenshotSize, (snapshot::SizePayload{100, 50}));
  EXPECT_EQ(imaging::readPNGSize(png), std::make_pair(int64_t{100}, int64_t{50}));
  EXPECT_EQ(s.annotatedScreenshotPath, annotated);
  std::string problem;
  auto drawn = imaging::readPNG(annotated, problem);
  ASSERT_TRUE(drawn) << problem;
  EXPECT_EQ(drawn->width(), 100);
  EXPECT_NE(drawn->at(5, 5), (imaging::Color{250, 250, 250, 255})) << "the button's outline and label";
  EXPECT_EQ(std::filesystem::status(png).permissions() & std::filesystem::perms::all, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);

  // A damaged image: without --max-dimension it stays (as captured) and is not annotated,
  // and the previous annotated copy is gone; with it, it is dropped.
  tavlin::testing::writeText(png, "\x89PNG\r\n\x1a\n damaged");
  s = snapshotWith(400, 200);
  snapshot::finishScreenshot(platform, values, app, s, {.annotate = true, .maxDimension = std::nullopt});
  EXPECT_EQ(s.screenshotPath, png);
  EXPECT_EQ(s.annotatedScreenshotPath, std::nullopt);
  EXPECT_FALSE(common::exists(annotated));
  snapshot::finishScreenshot(platform, values, app, s, {.annotate = false, .maxDimension = 100});
  EXPECT_EQ(s.screenshotPath, std::nullopt);
  EXPECT_EQ(s.screenshotSize, std::nullopt);
  EXPECT_FALSE(common::exists(png));

  // An image whose size could not be read back may be any size: dropped too, rather
  // than kept and sent larger than asked.
  ASSERT_TRUE(imaging::writePNG(imaging::Canvas(400, 200, imaging::Color{250, 250, 250, 255}), png));
  s = snapshotWith(400, 200);
  s.screenshotSize.reset();
  snapshot::finishScreenshot(platform, values, app, s, {.annotate = true, .maxDimension = 100});
  EXPECT_EQ(s.screenshotPath, std::nullopt);
  EXPECT_FALSE(common::exists(png));
}

TEST(MaxDimension, BoundsAndTheirMessage) {
  for (const std::string good : {"64", "1568", "16384"}) EXPECT_EQ(std::to_string(snapshot::parseMaxDimension(good)), good);
  for (const std::string bad : {"63", "16385", "0", "-100", "1.5", "1e3", "big", "true", ""}) {
    EXPECT_EQ(tavlin::testing::toolErrorOf([&] { snapshot::parseMaxDimension(bad); }),
              "--max-dimension must be an integer from 64 to 16384, not " + bad)
        << bad;
  }
}
