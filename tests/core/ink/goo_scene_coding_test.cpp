#include "core/ink/goo_scene_coding.h"

#include <gtest/gtest.h>

namespace zorvane {
namespace {

TEST(InkSceneCoding, RoundTripsEveryField) {
  GooScene scene;
  scene.blobs.push_back({{1.5, 2}, 3});
  scene.capsules.push_back({{4, 5}, {6, 7}, 8, 9, 2.5});
  scene.boxes.push_back({{10, 11, 12, 13}, 14, InkBox::Reveal{{15, 16}, -1}, 18.0, 19.0, 20});
  scene.boxes.push_back({{0, 0, 1, 1}, 0, std::nullopt, std::nullopt, std::nullopt, 0});
  scene.blend = 21;
  scene.shadow = true;
  scene.gloss = true;
  scene.voidColor = {0.25f, 0.5f, 0.75f};
  scene.sheen = 0.125f;
  scene.ripple = GooScene::Ripple{{22, 23}, 1700000000.5};

  auto decoded = decodeGooScene(*parseJSON(encodeCompact(encodeGooScene(scene))));
  ASSERT_TRUE(decoded) << decoded.error();
  EXPECT_EQ(encodeGooScene(*decoded), encodeGooScene(scene));
  EXPECT_EQ(decoded->boxes[0].reveal->radius, -1);
  EXPECT_FALSE(decoded->boxes[1].reveal || decoded->boxes[1].ring || decoded->boxes[1].hole);
  EXPECT_EQ(decoded->ripple->start, 1700000000.5);
  EXPECT_EQ(decoded->voidColor, scene.voidColor);
}

TEST(InkSceneCoding, DefaultsForMissingKeys) {
  auto decoded = decodeGooScene(*parseJSON(R"({"blobs": [{"center": [1, 2], "radius": 3}],
      "boxes": [{"rect": [0, 0, 10, 10], "reveal": null}]})"));
  ASSERT_TRUE(decoded) << decoded.error();
  EXPECT_EQ(decoded->blobs.size(), 1u);
  EXPECT_TRUE(decoded->capsules.empty());
  EXPECT_EQ(decoded->boxes[0].corner, 0);
  EXPECT_FALSE(decoded->boxes[0].reveal);
  EXPECT_EQ(decoded->blend, 0);
  EXPECT_FALSE(decoded->shadow || decoded->gloss || decoded->ripple);
  EXPECT_EQ(decoded->voidColor, (std::array<float, 3>{0.01f, 0.01f, 0.014f}));
  EXPECT_TRUE(decodeGooScene(JSONValue::object()));
}

TEST(InkSceneCoding, FailuresNameTheKeyPath) {
  auto failure = [](const char* text) { return decodeGooScene(*parseJSON(text)).error(); };
  EXPECT_EQ(failure(R"([1])"), "scene: expected an object");
  EXPECT_EQ(failure(R"({"boxes": [{"rect": [0,0,1,1]}, {"rect": [0,0,1,1]}, {"rect": [1, 2, 3]}]})"),
            "boxes[2].rect: expected 4 numbers");
  EXPECT_EQ(failure(R"({"blobs": [{"center": [1, 2]}]})"), "blobs[0].radius: missing");
  EXPECT_EQ(failure(R"({"blobs": {"center": [1, 2]}})"), "blobs: expected a list");
  EXPECT_EQ(failure(R"({"capsules": [3]})"), "capsules[0]: expected an object");
  EXPECT_EQ(failure(R"({"capsules": [{"a": [0, 0], "b": [1, "1"], "ra": 1, "rb": 1}]})"),
            "capsules[0].b: expected 2 numbers");
  EXPECT_EQ(failure(R"({"boxes": [{"rect": [0,0,1,1], "reveal": {"center": [0, 0], "radius": true}}]})"),
            "boxes[0].reveal.radius: expected a number");
  EXPECT_EQ(failure(R"({"boxes": [{"rect": [0,0,1,1], "ring": "wide"}]})"), "boxes[0].ring: expected a number");
  EXPECT_EQ(failure(R"({"shadow": 1})"), "shadow: expected true or false");
  EXPECT_EQ(failure(R"({"void": [0, 0]})"), "void: expected 3 numbers");
  EXPECT_EQ(failure(R"({"ripple": {"center": [0, 0]}})"), "ripple.start: missing");
}

}  // namespace
}  // namespace zorvane
