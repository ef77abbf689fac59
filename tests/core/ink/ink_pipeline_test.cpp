#include "core/ink/ink_pipeline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace zorvane {
namespace {

// The primitive indices binned into tile (tx, ty).
std::vector<uint32_t> tileList(const InkPipeline::Binned& binned, int tx, int ty) {
  size_t tile = size_t(ty) * binned.tilesX + tx;
  uint32_t offset = binned.ranges[tile * 2], count = binned.ranges[tile * 2 + 1];
  return {binned.indices.begin() + offset, binned.indices.begin() + offset + count};
}

bool tileHas(const InkPipeline::Binned& binned, int tx, int ty, uint32_t index) {
  auto list = tileList(binned, tx, ty);
  return std::find(list.begin(), list.end(), index) != list.end();
}

TEST(InkPipeline, PacksPrimitivesInSceneOrder) {
  GooScene scene;
  scene.boxes.push_back({{10, 20, 100, 40}, 8, InkBox::Reveal{{30, 40}, -5}, 3.0, 12.0, 2});
  scene.boxes.push_back({{0, 0, 10, 10}, 1, std::nullopt, std::nullopt, std::nullopt, 0.5});
  scene.capsules.push_back({{1, 2}, {3, 4}, 5, 6, 0});
  scene.blobs.push_back({{7, 8}, 9});
  auto binned = InkPipeline::bin(scene, {200, 100}, 32);
  ASSERT_EQ(binned.prims.size(), 4u);
  auto row = [](const float* v) { return std::vector<float>(v, v + 4); };
  using V = std::vector<float>;
  // Blobs first, then capsules, then boxes.
  EXPECT_EQ(row(binned.prims[0].a), (V{7, 8, 0, 0}));
  EXPECT_EQ(row(binned.prims[0].b), (V{9, 0, 0, 0}));
  EXPECT_EQ(row(binned.prims[1].a), (V{1, 2, 3, 4}));
  EXPECT_EQ(row(binned.prims[1].b), (V{5, 6, 0, 1}));
  EXPECT_EQ(row(binned.prims[1].c), (V{0, 0, 0, 0}));
  EXPECT_EQ(row(binned.prims[2].a), (V{60, 40, 50, 20}));
  EXPECT_EQ(row(binned.prims[2].b), (V{8, 3, 12, 2}));
  EXPECT_EQ(row(binned.prims[2].c), (V{30, 40, 0, 2})) << "a negative reveal radius is packed as 0";
  EXPECT_EQ(row(binned.prims[3].b), (V{1, 0, 0, 2}));
  EXPECT_EQ(row(binned.prims[3].c), (V{0, 0, -1, 0.5f})) << "no reveal: c.z is -1";
}

TEST(InkPipeline, GridAndFlattening) {
  GooScene scene;
  scene.blobs.push_back({{5, 5}, 2});
  auto tiny = InkPipeline::bin(scene, {10, 10}, 32);
  EXPECT_EQ(tiny.tilesX, 1);
  EXPECT_EQ(tiny.tilesY, 1);
  EXPECT_EQ(tiny.ranges, (std::vector<uint32_t>{0, 1}));
  EXPECT_EQ(tiny.indices, (std::vector<uint32_t>{0}));

  // A shape wholly off the view keeps its primitive but reaches no tile.
  scene.blobs = {{{-500, -500}, 10}, {{5000, 50}, 10}};
  auto off = InkPipeline::bin(scene, {100, 100}, 32);
  EXPECT_EQ(off.tilesX, 4);
  EXPECT_EQ(off.prims.size(), 2u);
  EXPECT_TRUE(off.indices.empty());
  EXPECT_EQ(off.ranges, std::vector<uint32_t>(32, 0));

  // Lists are contiguous, in row order, each ascending.
  scene.blobs = {{{40, 40}, 30}, {{70, 20}, 10}, {{20, 90}, 5}};
  scene.shadow = true;
  auto binned = InkPipeline::bin(scene, {130, 100}, 32);
  ASSERT_EQ(binned.ranges.size(), size_t(binned.tilesX * binned.tilesY * 2));
  uint32_t next = 0;
  for (size_t t = 0; t < binned.ranges.size() / 2; ++t) {
    EXPECT_EQ(binned.ranges[t * 2], next);
    next += binned.ranges[t * 2 + 1];
    EXPECT_TRUE(std::is_sorted(binned.indices.begin() + binned.ranges[t * 2], binned.indices.begin() + next));
  }
  EXPECT_EQ(next, binned.indices.size());

  // Binning in place again reuses the buffers.
  const uint32_t* indices = binned.indices.data();
  const uint32_t* ranges = binned.ranges.data();
  InkPipeline::bin(scene, {130, 100}, 32, binned);
  EXPECT_EQ(binned.indices.data(), indices);
  EXPECT_EQ(binned.ranges.data(), ranges);
  EXPECT_EQ(next, binned.indices.size());
}

TEST(InkPipeline, PadAndBlendWidenReach) {
  GooScene scene;
  scene.blobs.push_back({{100, 100}, 10});
  // Without shadow the pad is 3: 87..113 touches tiles 2 and 3 only.
  auto plain = InkPipeline::bin(scene, {320, 320}, 32);
  std::set<std::pair<int, int>> tiles;
  for (int ty = 0; ty < plain.tilesY; ++ty)
    for (int tx = 0; tx < plain.tilesX; ++tx)
      if (tileHas(plain, tx, ty, 0)) tiles.insert({tx, ty});
  EXPECT_EQ(tiles, (std::set<std::pair<int, int>>{{2, 2}, {3, 2}, {2, 3}, {3, 3}}));
  // With shadow the pad is 30: 60..140 touches tiles 1 to 4.
  scene.shadow = true;
  auto shadowed = InkPipeline::bin(scene, {320, 320}, 32);
  EXPECT_TRUE(tileHas(shadowed, 1, 1, 0));
  EXPECT_TRUE(tileHas(shadowed, 4, 4, 0));
  EXPECT_FALSE(tileHas(shadowed, 5, 4, 0));

  // A capsule with blend 0 takes the scene's blend; one with its own takes that.
  GooScene capsules;
  capsules.blend = 40;
  capsules.capsules.push_back({{100, 100}, {110, 100}, 5, 5, 0});  // reach 48: from x 52, tile 1
  capsules.capsules.push_back({{100, 100}, {110, 100}, 5, 5, 2});  // reach 10: from x 90, tile 2
  auto binned = InkPipeline::bin(capsules, {320, 320}, 32);
  EXPECT_TRUE(tileHas(binned, 1, 3, 0));
  EXPECT_FALSE(tileHas(binned, 1, 3, 1));
  EXPECT_TRUE(tileHas(binned, 2, 3, 1));
}

TEST(InkPipeline, BoxTileSkips) {
  Size view{640, 640};
  auto binBox = [&](const InkBox& box) {
    GooScene scene;
    scene.boxes.push_back(box);
    return InkPipeline::bin(scene, view, 32);
  };
  InkBox box{{0, 0, 640, 640}, 0, std::nullopt, std::nullopt, std::nullopt, 0};

  // A reveal of radius 0 still reaches the tiles around its centre, and no farther
  // than pad + blend + edge (3 + 0 + 8).
  box.reveal = InkBox::Reveal{{330, 330}, 0};
  auto reveal = binBox(box);
  EXPECT_TRUE(tileHas(reveal, 10, 10, 0));
  EXPECT_TRUE(tileHas(reveal, 9, 10, 0)) << "the tile ending 10 points left of the centre";
  EXPECT_FALSE(tileHas(reveal, 9, 9, 0)) << "its corner is 14 points away";
  EXPECT_FALSE(tileHas(reveal, 8, 10, 0));
  EXPECT_FALSE(tileHas(reveal, 0, 0, 0));
  // A negative radius counts as a reveal of radius 0.
  box.reveal->radius = -50;
  auto negative = binBox(box);
  EXPECT_EQ(negative.indices, reveal.indices);
  EXPECT_EQ(negative.ranges, reveal.ranges);

  // A hole clears the tiles wholly inside it, but only with a reveal.
  box.reveal = InkBox::Reveal{{320, 320}, 1000};
  box.hole = 200;
  auto holed = binBox(box);
  EXPECT_FALSE(tileHas(holed, 9, 9, 0));
  EXPECT_TRUE(tileHas(holed, 0, 0, 0));
  EXPECT_FALSE(tileHas(holed, 5, 9, 0));
  EXPECT_TRUE(tileHas(holed, 4, 9, 0)) << "its far corner is within the edge margin of the rim";
  box.reveal.reset();
  auto noReveal = binBox(box);
  EXPECT_EQ(noReveal.indices.size(), size_t(20 * 20)) << "a hole without a reveal bins as a plain box";

  // A ring skips the tiles in its hollow: depth 3 + 10 + 2.5 from each side.
  box.hole.reset();
  box.ring = 10;
  auto ring = binBox(box);
  EXPECT_TRUE(tileHas(ring, 0, 5, 0));
  EXPECT_TRUE(tileHas(ring, 19, 19, 0));
  EXPECT_FALSE(tileHas(ring, 1, 1, 0));
  EXPECT_FALSE(tileHas(ring, 18, 10, 0));
  EXPECT_EQ(ring.indices.size(), size_t(20 * 20 - 18 * 18));
  // With round corners the hollow is rounded too; its corner tiles stay.
  box.corner = 200;
  auto rounded = binBox(box);
  EXPECT_TRUE(tileHas(rounded, 1, 1, 0));
  EXPECT_FALSE(tileHas(rounded, 10, 1, 0));
}

TEST(InkPipeline, UniformsAndTime) {
  EXPECT_FLOAT_EQ(inkTime(1700000123.25), 123.25f);
  EXPECT_FLOAT_EQ(inkTime(999.5), 999.5f);
  EXPECT_FLOAT_EQ(inkTime(2000), 0.0f);

  GooScene scene;
  scene.blobs.push_back({{10, 10}, 5});
  scene.capsules.push_back({{10, 10}, {20, 20}, 5, 3, 0});
  scene.blend = 12;
  scene.shadow = true;
  scene.gloss = true;
  scene.sheen = 0.4f;
  scene.voidColor = {0.1f, 0.2f, 0.3f};
  scene.ripple = GooScene::Ripple{{50, 60}, 1700000120.5};
  auto binned = InkPipeline::bin(scene, {440, 200}, 32);
  InkUniforms u = InkPipeline::uniforms(scene, {440, 200}, 2, 1700000123.25, binned, 32);
  using V = std::vector<float>;
  auto row = [](const float* v) { return V(v, v + 4); };
  EXPECT_EQ(row(u.frame), (V{440, 200, 2, 123.25f}));
  EXPECT_EQ(row(u.params), (V{12, 2, 0.28f, 1}));
  EXPECT_EQ(row(u.ripple), (V{50, 60, 120.5f, 1}));
  EXPECT_EQ(row(u.surface), (V{7, 0.4f, 0.75f, 32}));
  EXPECT_EQ(row(u.voidc), (V{0.1f, 0.2f, 0.3f, 14}));

  scene.shadow = scene.gloss = false;
  scene.ripple.reset();
  u = InkPipeline::uniforms(scene, {440, 200}, 1, 0, binned, 16);
  EXPECT_EQ(row(u.params), (V{12, 2, 0, 0}));
  EXPECT_EQ(row(u.ripple), (V{0, 0, 0, 0}));
  EXPECT_EQ(u.surface[3], 32) << "the tiles the arrays were binned with, whatever is asked";
}

TEST(InkPipeline, SceneBounds) {
  GooScene scene;
  EXPECT_EQ(scene.bounds(), Rect{});
  scene.blobs.push_back({{100, 100}, 10});
  EXPECT_EQ(scene.bounds(), (Rect{90, 90, 20, 20}));
  scene.capsules.push_back({{120, 50}, {110, 60}, 2, 4, 0});  // the larger radius counts
  scene.boxes.push_back({{0, 80, 10, 10}, 0, std::nullopt, std::nullopt, std::nullopt, 3});
  EXPECT_EQ(scene.bounds(), (Rect{-3, 46, 127, 64}));
}

// Tiles far too fine for the scene (many large shapes, a tiny INK_TILE) would list
// billions of entries: the grid is made coarser instead, and the shader is told so.
TEST(InkPipeline, OverfullGridsAreMadeCoarser) {
  GooScene scene;
  for (int i = 0; i < 300; ++i) scene.blobs.push_back({{1000, 1000}, 1500});
  auto binned = InkPipeline::bin(scene, {2000, 2000}, 0.5);
  EXPECT_GT(binned.tileSize, 0.5);
  EXPECT_LE(binned.indices.size(), size_t(1) << 24);
  EXPECT_EQ(binned.tilesX, int(std::ceil(2000 / binned.tileSize)));
  EXPECT_EQ(binned.indices.size(), size_t(binned.tilesX) * binned.tilesY * 300) << "every tile lists every blob";
  InkUniforms u = InkPipeline::uniforms(scene, {2000, 2000}, 1, 0, binned, 0.5);
  EXPECT_EQ(u.surface[3], float(binned.tileSize));

  auto ordinary = InkPipeline::bin(scene, {2000, 2000}, 32);
  EXPECT_EQ(ordinary.tileSize, 32) << "a sane grid is left as asked";
}

}  // namespace
}  // namespace zorvane
