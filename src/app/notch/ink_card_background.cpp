#include "app/notch/ink_card_background.h"

#include "core/goo/ink_tokens.h"

namespace zorvane {

GooScene inkCardScene(Size size, double corner, double inset) {
  GooScene scene = Ink::glossyScene(12);
  Rect card = Rect{0, 0, size.width, size.height}.insetBy(inset, inset);
  if (card.width <= 4 || card.height <= 4) return scene;
  InkBox box;
  box.rect = card;
  box.corner = corner;
  box.wobble = 0.6;
  scene.boxes.push_back(box);
  return scene;
}

}  // namespace zorvane
