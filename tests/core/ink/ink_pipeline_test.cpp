#include "core/ink/ink_pipeline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace zorvane {
namespace {

// What binning may skip is checked against unbinned images in ink_reference_test; here,
// the shape of the arrays the shader walks: one list per tile in row order, contiguous
// and ascending, nothing listed for shapes off the view.
TEST(InkPipeline, TileListsAreContiguousAndSorted) {
  GooScene scene;
  scene.blobs.push_back({{5, 5}, 2});
  auto tiny = InkPipeline::bin(scene, {10, 10}, 32);
  EXPECT_EQ(tiny.tilesX, 1);
  EXPECT_EQ(tiny.tilesY, 1);
  EXPECT_EQ(tiny.ranges, (std::vector<uint32_t>{0, 1}));
  EXPECT_EQ(tiny.indices, (std::vector<uint32_t>{0}));

  scene.blobs = {{{-500, -500}, 10}, {{5000, 50}, 10}};
  auto off = InkPipeline::bin(scene, {100, 100}, 32);
  EXPECT_EQ(off.tilesX, 4);
  EXPECT_EQ(off.prims.size(), 2u);
  EXPECT_TRUE(off.indices.empty());
  EXPECT_EQ(off.ranges, std::vector<uint32_t>(32, 0));

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
}

// The shader's clock wraps at 1000 s, so a float keeps milliseconds whatever the date.
TEST(InkPipeline, TimeWrapsToKeepItsPrecision) {
  EXPECT_FLOAT_EQ(inkTime(1700000123.25), 123.25f);
  EXPECT_FLOAT_EQ(inkTime(999.5), 999.5f);
  EXPECT_FLOAT_EQ(inkTime(2000), 0.0f);
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
  EXPECT_EQ(InkPipeline::bin(scene, {2000, 2000}, 32).tileSize, 32) << "a sane grid is left as asked";
}

}  // namespace
}  // namespace zorvane
