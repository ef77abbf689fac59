// The canonical goo scenes the GPU tests render, and the display check they share.
#pragma once

#include <string>
#include <vector>

#include "core/ink/goo_scene.h"

namespace zorvane::testing {

struct InkCase {
  std::string name;
  GooScene scene;
  Size size;
  double scale = 2;
  double time = 0;  // seconds since 1970
};

// Blobs, a tentacle, boxes with reveal/ring/hole/wobble, shadow and gloss on and off,
// a ripple in flight, at two scales.
std::vector<InkCase> canonicalInkScenes();

// Makes the process's application once (a QApplication, so that widgets work too) and
// tells QQuick to use OpenGL. False, with the reason in `why`, when there is no display
// to draw on.
bool ensureGuiApplication(std::string& why);

}  // namespace zorvane::testing
