#include "core/ink/ink_pipeline.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace zorvane {

namespace {

constexpr double kDefaultTile = 32;
// Bounds on one frame's arrays: 8 MB of ranges, 64 MB of indices.
constexpr size_t kMaxTiles = size_t(1) << 20;
constexpr uint64_t kMaxIndices = uint64_t(1) << 24;

// A positive finite number written alone in `text`, else nothing.
double positiveNumber(const char* text) {
  if (!text || !*text) return 0;
  char* end = nullptr;
  errno = 0;
  double value = std::strtod(text, &end);
  while (end && (*end == ' ' || *end == '\t' || *end == '\n')) ++end;
  if (errno != 0 || end == text || *end != '\0' || !std::isfinite(value) || value <= 0) return 0;
  return value;
}

// The tiles [first, last] of a grid of `count` that the span [lo, hi] touches, clamped
// to the grid; false when the span misses the grid (or is not a number).
bool tileSpan(double lo, double hi, double tile, int count, int& first, int& last) {
  double f = std::floor(lo / tile), l = std::floor(hi / tile);
  if (!(l >= 0) || !(f <= count - 1) || !(f <= l)) return false;
  first = f < 0 ? 0 : static_cast<int>(f);
  last = l > count - 1 ? count - 1 : static_cast<int>(l);
  return true;
}

struct Grid {
  double tile;
  int tilesX, tilesY;
  double pad;
  double blend;
};

// Where a box may reach, and the rules that drop tiles of its range.
struct BoxReach {
  int x0, x1, y0, y1;
  bool hasReveal = false;
  double cx = 0, cy = 0;
  double revealReach2 = 0;  // squared: tiles whose nearest point is farther are outside the circle
  bool hasHole = false;
  double holeReach2 = 0;  // squared: tiles whose farthest corner is nearer are in the clearing
  bool hasHollow = false;
  Rect hollow;                // tiles wholly inside lie in the hollow of the border...
  double mx = 0, my = 0;      // ...given the rounded corners: box middle,
  double straightX = 0, straightY = 0, cornerLeft = 0;  // straight half lengths and corner left
};

bool boxReach(const InkBox& box, const Grid& grid, BoxReach& reach) {
  double edge = box.wobble * 1.5 + 8;
  double margin = grid.pad + grid.blend;
  Rect grown = box.rect.grownBy(margin + edge);
  if (!tileSpan(grown.minX(), grown.maxX(), grid.tile, grid.tilesX, reach.x0, reach.x1)) return false;
  if (!tileSpan(grown.minY(), grown.maxY(), grid.tile, grid.tilesY, reach.y0, reach.y1)) return false;
  if (box.reveal) {
    reach.hasReveal = true;
    reach.cx = box.reveal->center.x;
    reach.cy = box.reveal->center.y;
    double r = margin + edge + std::max(box.reveal->radius, 0.0);
    reach.revealReach2 = r * r;
    double h = box.hole.value_or(0) > 0 ? *box.hole - edge - margin : 0;
    if (h > 0) {
      reach.hasHole = true;
      reach.holeReach2 = h * h;
    }
  }
  double ring = box.ring.value_or(0);
  if (ring > 0) {
    double depth = margin + ring + std::max(box.wobble, 1.0) * 2.5;
    Rect inner = box.rect.insetBy(depth, depth);
    if (!inner.isEmpty()) {
      reach.hasHollow = true;
      reach.hollow = inner;
      // Deep inside a rounded box the corners of the hollow are rounded too: with a
      // corner radius r above the depth, they keep a radius of r - depth.
      double hw = box.rect.width / 2, hh = box.rect.height / 2;
      double r = std::max(std::min({box.corner, hw, hh}), 0.0);
      reach.mx = box.rect.x + hw;
      reach.my = box.rect.y + hh;
      reach.cornerLeft = std::max(r - depth, 0.0);
      reach.straightX = hw - r;
      reach.straightY = hh - r;
    }
  }
  return true;
}

bool skipsTile(const BoxReach& reach, double tx0, double ty0, double tx1, double ty1) {
  if (reach.hasReveal) {
    double gx = std::max({tx0 - reach.cx, reach.cx - tx1, 0.0});
    double gy = std::max({ty0 - reach.cy, reach.cy - ty1, 0.0});
    if (gx * gx + gy * gy > reach.revealReach2) return true;
    if (reach.hasHole) {
      double fx = std::max(std::abs(tx0 - reach.cx), std::abs(tx1 - reach.cx));
      double fy = std::max(std::abs(ty0 - reach.cy), std::abs(ty1 - reach.cy));
      if (fx * fx + fy * fy < reach.holeReach2) return true;
    }
  }
  if (reach.hasHollow) {
    const Rect& in = reach.hollow;
    if (tx0 >= in.minX() && tx1 <= in.maxX() && ty0 >= in.minY() && ty1 <= in.maxY()) {
      if (reach.cornerLeft <= 0) return true;
      double fx = std::max(std::abs(tx0 - reach.mx), std::abs(tx1 - reach.mx)) - reach.straightX;
      double fy = std::max(std::abs(ty0 - reach.my), std::abs(ty1 - reach.my)) - reach.straightY;
      if (fx <= 0 || fy <= 0 || fx * fx + fy * fy <= reach.cornerLeft * reach.cornerLeft) return true;
    }
  }
  return false;
}

// Calls visit(tile, primitive) for every tile a primitive can reach, last primitive
// first, so that filling each tile's list from its end leaves it ascending.
//
// A primitive's reach is its shape grown by the pad and a blend radius. The field folds
// the primitives in order, d = smin(d, distance, k), so a primitive also shows through
// the blend of every primitive after it: a thin capsule (blend 2.5) next to a box
// blended at 10 changes the box's edge up to 10 points away. The radius used is
// therefore the largest of its own and of all later ones; binning must never change
// the image.
template <typename Visit>
void visitTiles(const GooScene& scene, const Grid& grid, Visit&& visit) {
  const uint32_t blobCount = static_cast<uint32_t>(scene.blobs.size());
  const uint32_t capsuleCount = static_cast<uint32_t>(scene.capsules.size());
  auto span = [&](uint32_t index, double x0, double y0, double x1, double y1) {
    int tx0, tx1, ty0, ty1;
    if (!tileSpan(x0, x1, grid.tile, grid.tilesX, tx0, tx1)) return;
    if (!tileSpan(y0, y1, grid.tile, grid.tilesY, ty0, ty1)) return;
    for (int ty = ty0; ty <= ty1; ++ty)
      for (int tx = tx0; tx <= tx1; ++tx) visit(static_cast<size_t>(ty) * grid.tilesX + tx, index);
  };

  for (size_t k = scene.boxes.size(); k-- > 0;) {
    BoxReach reach;
    if (!boxReach(scene.boxes[k], grid, reach)) continue;
    const uint32_t index = blobCount + capsuleCount + static_cast<uint32_t>(k);
    for (int ty = reach.y0; ty <= reach.y1; ++ty) {
      double ty0 = ty * grid.tile, ty1 = ty0 + grid.tile;
      for (int tx = reach.x0; tx <= reach.x1; ++tx) {
        double tx0 = tx * grid.tile;
        if (!skipsTile(reach, tx0, ty0, tx0 + grid.tile, ty1)) visit(static_cast<size_t>(ty) * grid.tilesX + tx, index);
      }
    }
  }
  double laterBlend = scene.boxes.empty() ? 0 : grid.blend;
  for (uint32_t k = capsuleCount; k-- > 0;) {
    const GooCapsule& capsule = scene.capsules[k];
    double own = capsule.blend > 0 ? capsule.blend : grid.blend;
    laterBlend = std::max(laterBlend, own);
    double reach = std::max(capsule.ra, capsule.rb) + grid.pad + laterBlend;
    span(blobCount + k, std::min(capsule.a.x, capsule.b.x) - reach, std::min(capsule.a.y, capsule.b.y) - reach,
         std::max(capsule.a.x, capsule.b.x) + reach, std::max(capsule.a.y, capsule.b.y) + reach);
  }
  laterBlend = std::max(laterBlend, grid.blend);
  for (uint32_t k = blobCount; k-- > 0;) {
    const Blob& blob = scene.blobs[k];
    double reach = blob.radius + grid.pad + laterBlend;
    span(k, blob.center.x - reach, blob.center.y - reach, blob.center.x + reach, blob.center.y + reach);
  }
}

InkPrim circlePrim(const Blob& blob) {
  return {{float(blob.center.x), float(blob.center.y), 0, 0}, {float(blob.radius), 0, 0, 0}, {0, 0, 0, 0}};
}

InkPrim capsulePrim(const GooCapsule& c) {
  return {{float(c.a.x), float(c.a.y), float(c.b.x), float(c.b.y)}, {float(c.ra), float(c.rb), 0, 1},
          {float(c.blend), 0, 0, 0}};
}

InkPrim boxPrim(const InkBox& box) {
  InkPrim prim{{float(box.rect.x + box.rect.width / 2), float(box.rect.y + box.rect.height / 2),
                float(box.rect.width / 2), float(box.rect.height / 2)},
               {float(box.corner), float(box.ring.value_or(0)), float(box.hole.value_or(0)), 2},
               {0, 0, -1, float(box.wobble)}};
  if (box.reveal) {
    prim.c[0] = float(box.reveal->center.x);
    prim.c[1] = float(box.reveal->center.y);
    prim.c[2] = float(std::max(box.reveal->radius, 0.0));
  }
  return prim;
}

double tileOrDefault(double tileSize) { return tileSize > 0 && std::isfinite(tileSize) ? tileSize : InkPipeline::tile(); }

int tileCount(double length, double tile) {
  double n = std::ceil(length / tile);
  if (!(n >= 1)) return 1;
  return n > 1e6 ? 1000000 : static_cast<int>(n);
}

}  // namespace

double InkPipeline::tile() {
  static const double size = [] {
    double value = positiveNumber(std::getenv("INK_TILE"));
    return value > 0 ? value : kDefaultTile;
  }();
  return size;
}

InkPipeline::Binned InkPipeline::bin(const GooScene& scene, Size viewSize, double tileSize) {
  Binned out;
  bin(scene, viewSize, tileSize, out);
  return out;
}

void InkPipeline::bin(const GooScene& scene, Size viewSize, double tileSize, Binned& out) {
  Grid grid;
  grid.tile = tileOrDefault(tileSize);
  // A grid far finer than the view needs (a tiny INK_TILE on a large view) is made
  // coarser: at most kMaxTiles tiles, and at most 65536 along a side.
  double width = std::max(viewSize.width, 1.0), height = std::max(viewSize.height, 1.0);
  if (std::isfinite(width * height)) {
    grid.tile = std::max({grid.tile, std::sqrt(width * height / double(kMaxTiles)),
                          std::max(width, height) / 65536.0});
  }
  grid.pad = scene.shadow ? 30 : 3;
  grid.blend = std::max(scene.blend, 0.0);  // 0 or less is a plain minimum in the shader

  out.prims.clear();
  out.prims.reserve(scene.blobs.size() + scene.capsules.size() + scene.boxes.size());
  for (const Blob& blob : scene.blobs) out.prims.push_back(circlePrim(blob));
  for (const GooCapsule& capsule : scene.capsules) out.prims.push_back(capsulePrim(capsule));
  for (const InkBox& box : scene.boxes) out.prims.push_back(boxPrim(box));

  // Count per tile, then turn the counts into offsets, then fill each tile's list from
  // its end, last primitive first, which leaves every list ascending and every offset
  // at the start of its list. No allocation once the buffers are large enough. Many
  // large shapes on small tiles could list more entries than is sane to upload: then
  // the tiles are made twice as large and counted again.
  uint32_t* ranges = nullptr;
  size_t tiles = 0;
  uint64_t total = 0;
  for (;;) {
    grid.tilesX = tileCount(viewSize.width, grid.tile);
    grid.tilesY = tileCount(viewSize.height, grid.tile);
    tiles = static_cast<size_t>(grid.tilesX) * grid.tilesY;
    out.ranges.assign(tiles * 2, 0);
    ranges = out.ranges.data();
    visitTiles(scene, grid, [ranges](size_t tile, uint32_t) { ++ranges[tile * 2 + 1]; });
    total = 0;
    for (size_t t = 0; t < tiles; ++t) total += ranges[t * 2 + 1];
    if (total <= kMaxIndices) break;
    grid.tile *= 2;
  }
  out.tilesX = grid.tilesX;
  out.tilesY = grid.tilesY;
  out.tileSize = grid.tile;
  uint32_t offset = 0;
  for (size_t t = 0; t < tiles; ++t) {
    offset += ranges[t * 2 + 1];
    ranges[t * 2] = offset;
  }
  out.indices.resize(total);
  uint32_t* indices = out.indices.data();
  visitTiles(scene, grid, [ranges, indices](size_t tile, uint32_t index) { indices[--ranges[tile * 2]] = index; });
}

InkUniforms InkPipeline::uniforms(const GooScene& scene, Size viewSize, double scale, double time, const Binned& binned,
                                  double tileSize) {
  InkUniforms u{};
  u.frame[0] = float(viewSize.width);
  u.frame[1] = float(viewSize.height);
  u.frame[2] = float(scale);
  u.frame[3] = inkTime(time);
  u.params[0] = float(scene.blend);
  u.params[1] = float(binned.prims.size());
  u.params[2] = scene.shadow ? 0.28f : 0.0f;
  u.params[3] = scene.gloss ? 1.0f : 0.0f;
  if (scene.ripple) {
    u.ripple[0] = float(scene.ripple->center.x);
    u.ripple[1] = float(scene.ripple->center.y);
    // The start on the shader's clock, counted back from now: a ripple that began just
    // before the clock wrapped at 1000 s keeps its true age.
    u.ripple[2] = u.frame[3] - float(time - scene.ripple->start);
    u.ripple[3] = 1;
  }
  u.surface[0] = 7.0f;
  u.surface[1] = scene.sheen;
  u.surface[2] = 0.75f;
  // The tiles the arrays were binned with, which may be coarser than asked for.
  u.surface[3] = float(binned.tileSize > 0 ? binned.tileSize : tileOrDefault(tileSize));
  u.voidc[0] = scene.voidColor[0];
  u.voidc[1] = scene.voidColor[1];
  u.voidc[2] = scene.voidColor[2];
  u.voidc[3] = float(binned.tilesX);
  return u;
}

float inkTime(double secondsSince1970) {
  if (!std::isfinite(secondsSince1970)) return 0;
  double t = secondsSince1970 - std::floor(secondsSince1970 / 1000) * 1000;
  return float(t >= 1000 ? 0 : t);
}

}  // namespace zorvane
