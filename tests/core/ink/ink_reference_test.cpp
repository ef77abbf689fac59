#include "core/ink/ink_reference.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <numeric>

#include "core/goo/shapes.h"

namespace zorvane {
namespace {

constexpr double kNow = 1700000000.7;

GooScene blobScene(bool shadow, bool gloss) {
  GooScene scene;
  scene.blobs.push_back({{100, 100}, 40});
  scene.blend = 10;
  scene.shadow = shadow;
  scene.gloss = gloss;
  return scene;
}

std::array<float, 4> shadeAt(const GooScene& scene, Size view, double scale, float x, float y) {
  auto binned = InkPipeline::bin(scene, view, 32);
  auto u = InkPipeline::uniforms(scene, view, scale, kNow, binned, 32);
  return InkReference::shade(binned, u, x, y);
}

// Every kind of shape and every option at once, in a view of several tiles.
GooScene busyScene(bool shadow) {
  GooScene scene;
  scene.blobs.push_back({{160, 0}, 60});
  scene.blobs.push_back({{40, 150}, 12});
  scene.capsules = Shapes::tentacle({160, 40}, {280, 170}, 0.8, {0.3, 0.75}, 0.1);
  scene.boxes.push_back({{20, 20, 120, 90}, 14, InkBox::Reveal{{80, 60}, 50}, std::nullopt, 15.0, 3});
  scene.boxes.push_back({{180, 100, 120, 90}, 40, std::nullopt, 6.0, std::nullopt, 2});
  scene.boxes.push_back({{10, 170, 60, 25}, 6, std::nullopt, std::nullopt, std::nullopt, 1.5});
  scene.blend = 10;
  scene.shadow = shadow;
  scene.gloss = true;
  scene.sheen = 0.5f;
  scene.ripple = GooScene::Ripple{{160, 80}, kNow - 0.3};
  return scene;
}

// The view drawn with every primitive evaluated for every pixel: what binning must
// never change.
InkImage renderUnbinned(const GooScene& scene, Size view, double scale, double tile) {
  auto binned = InkPipeline::bin(scene, view, tile);
  auto u = InkPipeline::uniforms(scene, view, scale, kNow, binned, tile);
  uint32_t n = uint32_t(binned.prims.size());
  binned.indices.resize(n);
  std::iota(binned.indices.begin(), binned.indices.end(), 0u);
  for (size_t t = 0; t < binned.ranges.size(); t += 2) binned.ranges[t] = 0, binned.ranges[t + 1] = n;
  InkImage image;
  image.width = int(std::ceil(view.width * scale));
  image.height = int(std::ceil(view.height * scale));
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x) {
      auto c = InkReference::shade(binned, u, x + 0.5f, y + 0.5f);
      for (float v : c) image.rgba.push_back(uint8_t(std::floor(std::clamp(v, 0.0f, 1.0f) * 255 + 0.5f)));
    }
  return image;
}

TEST(InkReference, BodyCoverageAndEmptyTiles) {
  Size view{200, 200};
  // Inside the body: fully covered, flat body colour without gloss.
  auto inside = shadeAt(blobScene(false, false), view, 1, 100.5f, 100.5f);
  EXPECT_EQ(inside, (std::array<float, 4>{0.01f, 0.01f, 0.014f, 1}));
  // Far away in a tile with no shapes: exactly nothing.
  EXPECT_EQ(shadeAt(blobScene(true, true), view, 1, 5.5f, 5.5f), (std::array<float, 4>{0, 0, 0, 0}));

  // Just outside the edge: shadow, black, or nothing at all without shadow.
  auto shadow = shadeAt(blobScene(true, false), view, 1, 141.5f, 100.5f);
  EXPECT_EQ(shadow[0] + shadow[1] + shadow[2], 0);
  EXPECT_GT(shadow[3], 0.2f);
  EXPECT_LE(shadow[3], 0.28f);
  EXPECT_EQ(shadeAt(blobScene(false, false), view, 1, 141.5f, 100.5f)[3], 0);
  // Device pixels are points times the scale: at scale 2 the same point is pixel 283.
  EXPECT_EQ(shadeAt(blobScene(true, false), view, 2, 283.0f, 201.0f)[3], shadow[3]);

  auto flat = InkReference::render(blobScene(false, false), view, 1, kNow);
  ASSERT_EQ(flat.width, 200);
  ASSERT_EQ(flat.rgba.size(), 200u * 200 * 4);
  const uint8_t* centre = &flat.rgba[(100 * 200 + 100) * 4];
  EXPECT_EQ(std::vector<uint8_t>(centre, centre + 4), (std::vector<uint8_t>{3, 3, 4, 255}));
  EXPECT_EQ(flat.rgba[0], 0);

  auto odd = InkReference::render(blobScene(false, false), {100.2, 50.1}, 2, kNow);
  EXPECT_EQ(odd.width, 201);
  EXPECT_EQ(odd.height, 101);
}

TEST(InkReference, GlossLightsTheEdgesAndStaysPremultiplied) {
  Size view{320, 200};
  auto maxColour = [](const InkImage& image) {
    int best = 0;
    for (size_t i = 0; i < image.rgba.size(); i += 4) best = std::max({best, int(image.rgba[i]), int(image.rgba[i + 1])});
    return best;
  };
  GooScene scene = busyScene(true);
  auto glossy = InkReference::render(scene, view, 1, kNow);
  scene.gloss = false;
  auto flat = InkReference::render(scene, view, 1, kNow);
  EXPECT_LE(maxColour(flat), 4);
  EXPECT_GE(maxColour(glossy), 60) << "edges catch the studio lights";
  for (size_t i = 0; i < glossy.rgba.size(); i += 4)
    for (int k = 0; k < 3; ++k) ASSERT_LE(glossy.rgba[i + k], glossy.rgba[i + 3]) << "pixel " << i / 4;
}

// Binning skips tiles a shape can't reach: the reach of shadow, blend and wobble, a
// reveal's circle (of radius 0 or less too), a clearing hole, a border's hollow with
// round corners, a capsule's own blend. The image must not change by a single byte.
TEST(InkReference, TileSkipsNeverChangeTheImage) {
  Size view{320, 200};
  std::vector<GooScene> scenes = {busyScene(false), busyScene(true)};
  InkBox whole{{0, 0, 320, 200}, 0, std::nullopt, std::nullopt, std::nullopt, 0};
  for (double radius : {0.0, -50.0}) {
    GooScene dot;
    dot.boxes.push_back(whole);
    dot.boxes[0].reveal = InkBox::Reveal{{165, 100}, radius};
    scenes.push_back(dot);
  }
  GooScene holed;
  holed.boxes.push_back(whole);
  holed.boxes[0].reveal = InkBox::Reveal{{160, 100}, 1000};
  holed.boxes[0].hole = 90;
  scenes.push_back(holed);
  holed.boxes[0].reveal.reset();  // a hole without a reveal is a plain box
  scenes.push_back(holed);
  GooScene ring;
  ring.boxes.push_back(whole);
  ring.boxes[0].ring = 10;
  ring.boxes[0].corner = 90;
  ring.shadow = true;
  scenes.push_back(ring);
  GooScene capsules;
  capsules.blend = 40;
  capsules.capsules.push_back({{100, 100}, {110, 100}, 5, 5, 0});
  capsules.capsules.push_back({{200, 100}, {210, 100}, 5, 5, 2});
  scenes.push_back(capsules);
  for (size_t s = 0; s < scenes.size(); ++s)
    for (double tile : {32.0, 13.0}) {
      SCOPED_TRACE("scene " + std::to_string(s) + ", tile " + std::to_string(tile));
      InkImage binned = InkReference::render(scenes[s], view, 1, kNow, tile);
      InkImage full = renderUnbinned(scenes[s], view, 1, tile);
      ASSERT_EQ(binned.rgba.size(), full.rgba.size());
      int differing = 0, worst = 0;
      for (size_t i = 0; i < full.rgba.size(); ++i)
        if (binned.rgba[i] != full.rgba[i]) ++differing, worst = std::max(worst, std::abs(binned.rgba[i] - full.rgba[i]));
      EXPECT_EQ(differing, 0) << "worst difference " << worst;
    }
}

TEST(InkReference, CapsuleBlendRule) {
  // Two round shapes 10 points apart melt with the scene's blend of 30 unless the
  // capsule brings its own, smaller one.
  GooScene scene;
  scene.blend = 30;
  scene.blobs.push_back({{100, 100}, 20});
  scene.capsules.push_back({{150, 100}, {150, 100}, 20, 20, 0});
  EXPECT_EQ(shadeAt(scene, {300, 200}, 1, 125.0f, 100.0f)[3], 1);
  scene.capsules[0].blend = 2;
  EXPECT_EQ(shadeAt(scene, {300, 200}, 1, 125.0f, 100.0f)[3], 0);
}

}  // namespace
}  // namespace zorvane
