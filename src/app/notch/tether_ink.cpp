#include "app/notch/tether_ink.h"

#include <algorithm>
#include <cmath>

#include "core/goo/ink_tokens.h"

namespace zorvane {

namespace {

// How far the stem (`stem`), the card (`card`) and the ears (`ears`) are out, 0 to 1;
// the card overshoots a little as it springs open.
struct Extent {
  double stem = 1;
  double card = 1;
  double ears = 1;
};

Extent extentAt(double t, const TetherMotion* motion) {
  if (!motion) return {};
  Extent extent;
  if (!motion->closedAt()) {
    double a = t - motion->openedAt();
    double b = std::max(a - 0.1, 0.0);
    extent.stem = std::min(a / 0.14, 1.0);
    extent.card = b == 0 ? 0 : std::min(1 - std::exp(-8 * b) * std::cos(10 * b), 1.04);
    extent.ears = std::clamp((b - 0.12) / 0.2, 0.0, 1.0);
    return extent;
  }
  double c = std::min((t - *motion->closedAt()) / TetherMotion::kCloseSeconds, 1.0);
  extent.card = std::max(1 - 1.15 * c * c, 0.0);
  extent.stem = std::max(1 - std::max(c - 0.45, 0.0) / 0.55, 0.0);
  extent.ears = std::max(1 - 3 * c, 0.0);
  return extent;
}

// One ear: from beside the stem at `from`, through a bend at (mx, ym), to its tip.
void addEar(GooScene& scene, Point from, double tipX, double mx, double y, double ym) {
  scene.capsules.push_back({from, {mx, ym}, 2.6, 1.6, 3});
  scene.capsules.push_back({{mx, ym}, {tipX, y}, 1.6, 3.2, 3});
}

}  // namespace

GooScene TetherInk::scene(double t, Size size, double corner, bool compact, const TetherMotion* motion) {
  GooScene scene = Ink::glossyScene(10);
  scene.shadow = false;

  double top = compact ? 12 : 20;
  double s = compact ? 7 : 10;
  double knob = compact ? 9 : 15;
  double cx = size.width / 2;
  double cardHeight = size.height - top;
  if (cardHeight <= 8) return scene;

  Extent extent = extentAt(t, motion);

  if (extent.stem > 0.02) {
    double end = (top + 14) * extent.stem - 8;
    double sway = cx + std::sin(t * 0.9) * 1.1;
    double mid = (end + 8) * 0.5 - 8;
    scene.capsules.push_back({{cx, -8}, {sway, mid}, s, s * 0.62, 0});
    scene.capsules.push_back({{sway, mid}, {cx, end}, s * 0.62, knob, 0});
    if (extent.card <= 0.01) scene.blobs.push_back({{cx, end}, knob});
  }

  if (extent.card > 0.01) {
    double W = std::max(size.width * std::min(extent.card, 1.04), 2 * knob);
    double H = std::max(cardHeight * std::min(extent.card * 1.12, 1.0), 2 * knob);
    InkBox card;
    card.rect = {cx - W / 2, top, W, H};
    card.corner = std::min({corner, H / 2, W / 2});
    card.wobble = std::max(1 - extent.card, 0.0) * 2 + 0.6;
    scene.boxes.push_back(card);
  }

  if (!compact && extent.ears > 0.01) {
    double y = (top + 10) * extent.ears - 6;
    double ym = (y - 6) * 0.5 + 2;
    double wl = std::sin(t * 1.3) * 3;
    double leftTip = cx - 64 + wl;
    addEar(scene, {cx - 38, -6}, leftTip, wl * 0.6 + (cx - 38 + leftTip) / 2 - 3, y, ym);
    double wr = std::sin(t * 1.3 + 2.1) * 3;
    double rightTip = cx + 64 + wr;
    addEar(scene, {cx + 38, -6}, rightTip, wr * 0.6 + (cx + 38 + rightTip) / 2 + 3, y, ym);
  }
  return scene;
}

}  // namespace zorvane
