#include "core/ink/goo_scene.h"

#include <algorithm>

namespace zorvane {

Rect GooScene::bounds() const {
  bool any = false;
  Rect all;
  auto add = [&](Rect r) {
    all = any ? unite(all, r) : r;
    any = true;
  };
  for (const Blob& blob : blobs)
    add({blob.center.x - blob.radius, blob.center.y - blob.radius, 2 * blob.radius, 2 * blob.radius});
  for (const GooCapsule& capsule : capsules) {
    double r = std::max(capsule.ra, capsule.rb);
    double x0 = std::min(capsule.a.x, capsule.b.x), x1 = std::max(capsule.a.x, capsule.b.x);
    double y0 = std::min(capsule.a.y, capsule.b.y), y1 = std::max(capsule.a.y, capsule.b.y);
    add(Rect{x0, y0, x1 - x0, y1 - y0}.grownBy(r));
  }
  for (const InkBox& box : boxes) add(box.rect.grownBy(box.wobble));
  return all;
}

}  // namespace zorvane
