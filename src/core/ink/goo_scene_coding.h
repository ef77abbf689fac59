// GooScene as JSON, for rendering scenes from files and for attaching the scene of a
// frame to a bug report.
//
//   {"blobs": [{"center": [x, y], "radius": r}],
//    "capsules": [{"a": [x, y], "b": [x, y], "ra": r, "rb": r, "blend": k}],
//    "boxes": [{"rect": [x, y, w, h], "corner": r, "reveal": {"center": [x, y], "radius": r},
//               "ring": w, "hole": r, "wobble": w}],
//    "blend": k, "shadow": false, "gloss": false, "void": [r, g, b], "sheen": s,
//    "ripple": {"center": [x, y], "start": seconds}}
//
// Every key but a shape's geometry (center and radius, a/b/ra/rb, rect) is optional and
// takes the default of GooScene; a null value counts as absent.
#pragma once

#include "core/base/expected.h"
#include "core/base/json_value.h"
#include "core/ink/goo_scene.h"

namespace zorvane {

JSONValue encodeGooScene(const GooScene& scene);

// The scene, or a failure that names the key path at fault, such as
// "boxes[2].rect: expected 4 numbers".
Expected<GooScene> decodeGooScene(const JSONValue& json);

}  // namespace zorvane
