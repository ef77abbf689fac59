// The processor's half of the ink renderer: packs a scene into 48-byte primitives, bins
// them into screen tiles and fills the 80-byte uniform block. The GPU (src/ui) and the
// CPU reference (ink_reference.h) read exactly these arrays.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/ink/goo_scene.h"

namespace zorvane {

struct InkPrim {
  float a[4];
  float b[4];  // b[3] is the type: 0 circle, 1 capsule, 2 box
  float c[4];
};
static_assert(sizeof(InkPrim) == 48 && offsetof(InkPrim, b) == 16 && offsetof(InkPrim, c) == 32);

// The uniform block, five vec4 in std140 order.
struct InkUniforms {
  float frame[4];    // view width, view height, scale, time
  float params[4];   // blend, number of primitives, shadow strength, gloss
  float ripple[4];   // centre x, y, start time, 1 when there is a ripple
  float surface[4];  // bevel, sheen, environment strength, tile size
  float voidc[4];    // body colour, tilesX
};
static_assert(sizeof(InkUniforms) == 80);

class InkPipeline {
 public:
  struct Binned {
    std::vector<InkPrim> prims;     // blobs, then capsules, then boxes, in scene order
    std::vector<uint32_t> ranges;   // per tile, row by row: offset, count
    std::vector<uint32_t> indices;  // primitive indices
    int tilesX = 1;
    int tilesY = 1;
    double tileSize = 0;  // the tile size used, in points
  };

  // Tile size in points: $INK_TILE when it is a positive number, else 32. Read once.
  static double tile();
  // Packs the scene and lists in each tile the primitives that can colour one of its
  // pixels: those within the pad (30 points with shadow, else 3) plus a blend radius of
  // the tile, less the tiles a box's reveal, hole or hollow ring leaves empty. Lists are
  // ascending, so the field folds primitives in scene order in every tile.
  // `tileSize` defaults to tile(); tests and benchmarks pass their own.
  static Binned bin(const GooScene& scene, Size viewSize, double tileSize = 0);
  // Fills `out` in place, so callers can reuse its buffers from frame to frame.
  static void bin(const GooScene& scene, Size viewSize, double tileSize, Binned& out);
  // `time` is seconds since 1970; it and the ripple's start go in modulo 1000.
  static InkUniforms uniforms(const GooScene& scene, Size viewSize, double scale, double time, const Binned& binned,
                              double tileSize = 0);
};

// Times as the shader sees them: seconds since 1970 modulo 1000, so they keep their
// precision as 32-bit floats.
float inkTime(double secondsSince1970);

}  // namespace zorvane
