#include "app/pieces/possession_look.h"

#include <algorithm>
#include <cmath>

#include "core/goo/ink_tokens.h"
#include "core/goo/shapes.h"

namespace zorvane {

PossessionLook::PossessionLook(std::shared_ptr<Anchor> anchor, Point dropPoint, double bondTime)
    : anchor_(std::move(anchor)), bondTime_(bondTime) {
  Rect frame = anchor_->frame();
  dropOffset_ = {dropPoint.x - frame.minX(), dropPoint.y - frame.minY()};
}

Rect PossessionLook::cover() const {
  Rect frame = anchor_->frame();
  double w = frame.width, h = frame.height;
  Rect base{kMargin, kMargin, w, h};
  if (!anchor_->isIcon()) return base.grownBy(1);
  if (w > 2 * h) return {base.x - 3, base.y - 2, w + 6, h + 4};
  if (h > 1.12 * w) return Rect{kMargin, kMargin, w, w}.grownBy(4);
  return base.grownBy(4);
}

double PossessionLook::corner() const {
  if (!anchor_->isIcon()) return 12;
  Rect c = cover();
  double smaller = std::min(c.width, c.height);
  return c.width > 2 * c.height ? smaller * 0.5 : smaller * 0.26;
}

Point PossessionLook::knot() const {
  Rect c = cover();
  double e = anchor_->isIcon() ? 2 : 4;
  Rect frame = anchor_->frame();
  return {c.maxX() - e + frame.minX() - kMargin, c.minY() + e + frame.minY() - kMargin};
}

GooScene PossessionLook::scene(double t) const {
  GooScene scene = Ink::glossyScene(6);
  Rect c = cover();
  if (c.isEmpty()) return scene;

  // Grows in over the first moments, melts away when retired.
  double presence = std::clamp((t - bondTime_) / 0.35, 0.0, 1.0);
  if (retireStart) presence = std::min(presence, std::clamp(1 - (t - *retireStart) / kRetireSeconds, 0.0, 1.0));
  if (presence <= 0) return scene;

  MoodParams params = Shapes::moodParams(mood, t);
  InkBox box;
  box.rect = c;
  box.corner = corner();
  box.wobble = 0.6 + params.ripple * 2;
  if (!anchor_->isIcon()) {
    box.ring = 2.5 + params.thorn;
  }
  if (presence < 1) {
    // A reveal circle from the drop point grows over the cover, and shrinks on retire.
    Point centre{dropOffset_.x + kMargin, dropOffset_.y + kMargin};
    double reach = std::hypot(std::max(std::abs(centre.x - c.minX()), std::abs(centre.x - c.maxX())),
                              std::max(std::abs(centre.y - c.minY()), std::abs(centre.y - c.maxY())));
    box.reveal = InkBox::Reveal{centre, reach * presence};
  }
  scene.boxes.push_back(box);
  if (ripple && t - *ripple < 1.5) scene.ripple = GooScene::Ripple{{c.maxX() - 4, c.minY() + 4}, *ripple};
  return scene;
}

}  // namespace zorvane
