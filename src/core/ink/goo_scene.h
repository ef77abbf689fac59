// What one frame of goo shows, in view points with the origin at the top left.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "core/geometry/geometry.h"
#include "core/goo/blob.h"

namespace zorvane {

// A rounded panel that can grow out of a point, be hollow, and have a living edge.
struct InkBox {
  struct Reveal {
    Point center;
    double radius = 0;
  };
  Rect rect;
  double corner = 0;
  std::optional<Reveal> reveal;  // only the part inside this circle is shown
  std::optional<double> ring;    // hollow, with a border this wide
  std::optional<double> hole;    // a circle of this radius around reveal.center is cleared
  double wobble = 0;             // amplitude of the liquid edge
};

struct GooScene {
  struct Ripple {
    Point center;
    double start = 0;  // seconds since 1970
  };
  std::vector<Blob> blobs;
  std::vector<GooCapsule> capsules;
  std::vector<InkBox> boxes;
  double blend = 0;
  bool shadow = false;
  bool gloss = false;
  std::array<float, 3> voidColor{0.01f, 0.01f, 0.014f};  // the body colour
  float sheen = 0;
  std::optional<Ripple> ripple;

  bool isEmpty() const { return blobs.empty() && capsules.empty() && boxes.empty(); }
  // The union of every shape's bounding box (boxes grown by their wobble); an empty
  // rectangle at the origin for an empty scene.
  Rect bounds() const;
};

}  // namespace zorvane
