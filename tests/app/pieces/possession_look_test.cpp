#include "app/pieces/possession_look.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>

namespace zorvane {
namespace {

constexpr double kBond = 1780315200.0;
constexpr double kFrame = 1.0 / 60;

// A target that stays where it is.
class StillAnchor final : public Anchor {
 public:
  StillAnchor(Rect frame, bool icon) : Anchor(std::nullopt, frame, true), icon_(icon) {}
  bool isIcon() const override { return icon_; }
  bool tick() override { return true; }
  std::string_view kindName() const override { return "StillAnchor"; }

 private:
  bool icon_;
};

// Draws a look frame by frame at 60 frames per second, as the overlay does.
struct Player {
  PossessionLook& look;
  int frame = 0;

  // Plays up to `e` seconds after the bond and returns that frame's scene.
  GooScene until(double e) {
    GooScene scene;
    do scene = look.scene(kBond + frame++ * kFrame);
    while (frame * kFrame <= e + 1e-9);
    return scene;
  }
};

const InkBox* flood(const GooScene& scene) {
  for (const InkBox& box : scene.boxes)
    if (!box.ring) return &box;
  return nullptr;
}

const InkBox* border(const GooScene& scene) {
  for (const InkBox& box : scene.boxes)
    if (box.ring) return &box;
  return nullptr;
}

int strandCapsules(const GooScene& scene) {
  return int(std::count_if(scene.capsules.begin(), scene.capsules.end(),
                           [](const GooCapsule& c) { return c.blend == 6 || c.blend == 2.5; }));
}

std::vector<GooCapsule> fringe(const GooScene& scene) {
  std::vector<GooCapsule> hairs;
  for (const GooCapsule& c : scene.capsules)
    if (c.blend == 0 && c.ra == 3.2) hairs.push_back(c);
  return hairs;
}

bool revealsAllOf(const InkBox& box, const Rect& rect) {
  if (!box.reveal) return true;
  for (Point corner : {rect.origin(), Point{rect.maxX(), rect.minY()}, Point{rect.minX(), rect.maxY()},
                       Point{rect.maxX(), rect.maxY()}})
    if ((corner - box.reveal->center).length() >= box.reveal->radius) return false;
  return true;
}

double totalLength(const std::vector<GooCapsule>& capsules) {
  double total = 0;
  for (const GooCapsule& c : capsules) total += (c.b - c.a).length();
  return total;
}

double minRadius(const std::vector<Strand>& strands) {
  double least = 1e9;
  for (const Strand& s : strands)
    if (!s.dead) least = std::min(least, *std::min_element(s.rad.begin(), s.rad.end()));
  return least;
}

// A window's bond: the flood grows out of the drop point, strands lunge to the edges,
// then a hole opens where it was dropped and eats the flood while the strands let go,
// and only the living border stays.
TEST(PossessionLook, WindowFloodRevealsFromTheDropThenLeavesOnlyTheBorder) {
  auto anchor = std::make_shared<StillAnchor>(Rect{300, 200, 400, 300}, false);
  PossessionLook look(anchor, {350, 260}, kBond, 7);
  Point start{94, 104};
  Rect cover = look.cover();
  Player player{look};

  GooScene early = player.until(0.1);
  const InkBox* growing = flood(early);
  ASSERT_TRUE(growing && growing->reveal);
  EXPECT_EQ(growing->reveal->center, start);
  EXPECT_LT(growing->reveal->radius, 10) << "the flood starts as a drop";
  EXPECT_FALSE(growing->hole);
  ASSERT_TRUE(border(early));
  EXPECT_EQ(*border(early)->ring, 5);
  ASSERT_EQ(early.blobs.size(), 1u);
  EXPECT_EQ(early.blobs[0].center, start);
  ASSERT_EQ(look.strands().size(), 7u);
  EXPECT_EQ(strandCapsules(early), 7 * Strand::kSegments) << "every strand has set out by 0.09 s";
  for (const Strand& s : look.strands()) {
    EXPECT_EQ(s.root, start);
    EXPECT_TRUE(cover.grownBy(0.01).contains(s.anchor)) << "a strand reaches for the cover's edge";
  }

  double earlyRadius = growing->reveal->radius;
  GooScene rising = player.until(0.3);
  ASSERT_TRUE(flood(rising));
  EXPECT_GT(flood(rising)->reveal->radius, earlyRadius);
  EXPECT_FALSE(revealsAllOf(*flood(rising), cover));

  GooScene full = player.until(0.5);
  ASSERT_TRUE(flood(full));
  EXPECT_TRUE(revealsAllOf(*flood(full), cover));
  EXPECT_FALSE(flood(full)->hole);

  GooScene eating = player.until(0.7);
  ASSERT_TRUE(flood(eating) && flood(eating)->hole);
  EXPECT_GT(*flood(eating)->hole, 0);

  GooScene settled = player.until(1.0);
  ASSERT_EQ(settled.boxes.size(), 1u) << "only the border is left";
  EXPECT_TRUE(settled.boxes[0].ring);
  EXPECT_TRUE(settled.blobs.empty());

  GooScene later = player.until(2.0);
  EXPECT_EQ(strandCapsules(later), 0);
  for (const Strand& s : look.strands()) EXPECT_TRUE(s.dead);
  ASSERT_EQ(later.boxes.size(), 1u);
  EXPECT_EQ(*later.boxes[0].ring, 5);
  look.mood = Mood::working;
  GooScene working = player.until(2.1);
  ASSERT_TRUE(border(working));
  EXPECT_EQ(*border(working)->ring, 7.5) << "a working piece's border is thicker";

  // Retired long after the bond: the border fades, and then nothing is drawn.
  look.retireStart = kBond + 2.1;
  look.ripple = kBond + 2.1;
  GooScene fading = player.until(2.3);
  ASSERT_TRUE(border(fading));
  EXPECT_LT(*border(fading)->ring, 7.5);
  ASSERT_TRUE(fading.ripple);
  EXPECT_EQ(fading.ripple->center, (Point{cover.x + cover.width / 2, cover.y + cover.height / 2}));
  GooScene gone = player.until(2.6);
  EXPECT_TRUE(gone.isEmpty());
  EXPECT_FALSE(gone.ripple);
}

// An icon keeps its dark cover for good; a fringe of hairs grows round it once the
// strands have let go. Retiring fades the fringe and runs the wipe.
TEST(PossessionLook, IconKeepsItsCoverAndGrowsAFringe) {
  auto anchor = std::make_shared<StillAnchor>(Rect{500, 400, 64, 64}, true);
  PossessionLook look(anchor, {530, 430}, kBond, 11);
  Rect cover = look.cover();
  EXPECT_EQ(cover, (Rect{40, 40, 72, 72}));
  Player player{look};

  GooScene early = player.until(0.4);
  EXPECT_TRUE(fringe(early).empty());
  EXPECT_FALSE(border(early)) << "an icon has no border";
  EXPECT_EQ(look.strands().size(), 5u);

  GooScene settled = player.until(3.0);
  const InkBox* coverBox = flood(settled);
  ASSERT_TRUE(coverBox);
  EXPECT_FALSE(coverBox->hole) << "an icon that doesn't retire keeps its flood";
  EXPECT_TRUE(revealsAllOf(*coverBox, cover));
  EXPECT_EQ(settled.blobs.size(), 1u);
  EXPECT_EQ(strandCapsules(settled), 0);
  std::vector<GooCapsule> hairs = fringe(settled);
  ASSERT_EQ(hairs.size(), 12u);
  for (const GooCapsule& hair : hairs) {
    EXPECT_TRUE(cover.contains(hair.a)) << "a hair is rooted inside the cover";
    EXPECT_FALSE(cover.contains(hair.b)) << "and points outwards";
  }

  look.retireStart = kBond + 3.0;
  GooScene wiping = player.until(3.2);
  ASSERT_TRUE(flood(wiping));
  EXPECT_TRUE(flood(wiping)->hole) << "retiring an icon runs the wipe";
  EXPECT_LT(totalLength(fringe(wiping)), totalLength(hairs)) << "the fringe fades";
  GooScene gone = player.until(4.1);
  EXPECT_TRUE(gone.isEmpty());
  EXPECT_EQ(gone.blend, 9);

  // A tall icon is covered only in its top square, with the knot at its top right.
  auto tall = std::make_shared<StillAnchor>(Rect{0, 0, 40, 80}, true);
  PossessionLook tallLook(tall, {10, 10}, kBond, 1);
  EXPECT_EQ(tallLook.cover(), (Rect{40, 40, 48, 48}));
  EXPECT_EQ(tallLook.knot(), (Point{42, -2}));
}

// Retiring a window's look before it has settled starts the wipe there and then.
TEST(PossessionLook, RetiringAWindowEarlyStartsTheWipeAtOnce) {
  auto anchor = std::make_shared<StillAnchor>(Rect{0, 0, 300, 200}, false);
  PossessionLook retired(anchor, {150, 100}, kBond, 5);
  PossessionLook kept(anchor, {150, 100}, kBond, 5);
  Player retiredPlayer{retired};
  Player keptPlayer{kept};
  retiredPlayer.until(0.2);
  keptPlayer.until(0.2);
  retired.retireStart = kBond + 0.2;

  GooScene wiping = retiredPlayer.until(0.3);
  GooScene growing = keptPlayer.until(0.3);
  ASSERT_TRUE(flood(wiping) && flood(growing));
  EXPECT_TRUE(flood(wiping)->hole);
  EXPECT_FALSE(flood(growing)->hole);
  EXPECT_TRUE(std::any_of(retired.strands().begin(), retired.strands().end(),
                          [](const Strand& s) { return s.state == Strand::State::recoil; }))
      << "the first strand lets go at once";
  EXPECT_TRUE(std::none_of(kept.strands().begin(), kept.strands().end(),
                           [](const Strand& s) { return s.state == Strand::State::recoil; }));

  GooScene gone = retiredPlayer.until(1.25);
  EXPECT_TRUE(gone.isEmpty());
  EXPECT_EQ(gone.blend, 9);
  EXPECT_FALSE(keptPlayer.until(1.25).isEmpty());
}

// Each strand keeps its volume: it thins as it stretches, within 0.8 and 6 points, and
// no point is ever thinner than 0.6; recoiling, it shortens from the root and dies once
// shorter than 6 points.
TEST(Strand, ThinsAsItStretchesAndDiesShort) {
  auto anchor = std::make_shared<StillAnchor>(Rect{0, 0, 500, 300}, false);
  PossessionLook look(anchor, {250, 150}, kBond, 9);
  Player player{look};
  // Each strand as it was on its first frame out.
  std::vector<std::optional<Strand>> early(7);
  double least = 1e9;
  while (player.frame * kFrame < 0.5) {
    player.until(player.frame * kFrame);
    for (size_t i = 0; i < look.strands().size(); ++i)
      if (!early[i] && look.strands()[i].state != Strand::State::waiting) early[i] = look.strands()[i];
    least = std::min(least, minRadius(look.strands()));
  }
  EXPECT_GE(least, 0.6);
  ASSERT_EQ(look.strands().size(), early.size());
  for (size_t i = 0; i < early.size(); ++i) {
    const Strand& now = look.strands()[i];
    ASSERT_TRUE(early[i]);
    ASSERT_EQ(now.state, Strand::State::held);
    EXPECT_GT(now.length, 2 * early[i]->length);
    EXPECT_LT(now.rad[6], early[i]->rad[6]) << "a strand thins as it stretches";
    EXPECT_LE(early[i]->rad[6], 6 * 1.01) << "and is never fatter than 6 points";
    EXPECT_NEAR(std::numbers::pi * now.rad[6] * now.rad[6] * now.length, now.volume, now.volume * 0.03)
        << "and keeps its volume";
  }

  // A long strand with hardly any goo stops thinning at 0.8.
  Strand starved = look.strands()[0];
  starved.volume = 1;
  for (int k = 0; k < 24; ++k) starved.step(1.0 / 240, kBond + k / 240.0);
  EXPECT_NEAR(starved.rad[6], 0.8, 0.01);
  EXPECT_GE(*std::min_element(starved.rad.begin(), starved.rad.end()), 0.6);

  // Recoiling, it shortens every step and dies before it is 6 points long.
  Strand recoiling = look.strands()[1];
  recoiling.state = Strand::State::recoil;
  double last = recoiling.length;
  int steps = 0;
  while (!recoiling.dead && steps < 1000) {
    recoiling.step(1.0 / 240, kBond + steps / 240.0);
    ++steps;
    if (recoiling.dead) break;
    EXPECT_LT(recoiling.length, last);
    EXPECT_GE(recoiling.length, 6 * 0.97);
    last = recoiling.length;
  }
  EXPECT_TRUE(recoiling.dead);
  EXPECT_LT(last, 8) << "it died as soon as it was too short";
}

}  // namespace
}  // namespace zorvane
