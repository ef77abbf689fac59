#include "core/ink/ink_reference.h"

#include <algorithm>
#include <cmath>

namespace zorvane {

namespace {

// Just enough of GLSL's vectors, in 32-bit floats, to write the shader as it reads.
struct vec2 {
  float x, y;
};
struct vec3 {
  float x, y, z;
};

inline vec2 operator+(vec2 a, vec2 b) { return {a.x + b.x, a.y + b.y}; }
inline vec2 operator-(vec2 a, vec2 b) { return {a.x - b.x, a.y - b.y}; }
inline vec2 operator*(vec2 a, vec2 b) { return {a.x * b.x, a.y * b.y}; }
inline vec2 operator+(vec2 a, float s) { return {a.x + s, a.y + s}; }
inline vec2 operator-(vec2 a, float s) { return {a.x - s, a.y - s}; }
inline vec2 operator*(vec2 a, float s) { return {a.x * s, a.y * s}; }
inline vec2 operator*(float s, vec2 a) { return {s * a.x, s * a.y}; }
inline vec2 operator/(vec2 a, float s) { return {a.x / s, a.y / s}; }
inline vec3 operator+(vec3 a, vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline vec3 operator-(vec3 a, vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline vec3 operator*(vec3 a, float s) { return {a.x * s, a.y * s, a.z * s}; }
inline vec3 operator+(vec3 a, float s) { return {a.x + s, a.y + s, a.z + s}; }
inline vec3 operator-(vec3 a) { return {-a.x, -a.y, -a.z}; }

inline float fract(float x) { return x - floorf(x); }
inline vec2 fract(vec2 p) { return {fract(p.x), fract(p.y)}; }
inline vec2 floor(vec2 p) { return {floorf(p.x), floorf(p.y)}; }
inline vec2 abs(vec2 p) { return {fabsf(p.x), fabsf(p.y)}; }
inline vec2 max(vec2 p, float s) { return {std::max(p.x, s), std::max(p.y, s)}; }
inline float dot(vec2 a, vec2 b) { return a.x * b.x + a.y * b.y; }
inline float dot(vec3 a, vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline float length(vec2 p) { return sqrtf(dot(p, p)); }
inline float length(vec3 p) { return sqrtf(dot(p, p)); }
inline vec3 normalize(vec3 p) { return p * (1.0f / length(p)); }
inline float clamp(float x, float lo, float hi) { return std::min(std::max(x, lo), hi); }
inline float mix(float a, float b, float t) { return a * (1.0f - t) + b * t; }
// GLSL's definition, which also serves reversed edges (e0 > e1) as the shader uses them.
inline float smoothstep(float e0, float e1, float x) {
  float t = clamp((x - e0) / (e1 - e0), 0.0f, 1.0f);
  return t * t * (3.0f - 2.0f * t);
}
inline vec3 reflect(vec3 i, vec3 n) { return i - n * (2.0f * dot(n, i)); }
inline float sq(float x) { return x * x; }

float hash21(vec2 p) {
  p = fract(p * vec2{123.34f, 456.21f});
  p = p + dot(p, p + 45.32f);
  return fract(p.x * p.y);
}

float vnoise(vec2 p) {
  vec2 i = floor(p);
  vec2 f = fract(p);
  vec2 u = f * f * (vec2{3.0f, 3.0f} - f * 2.0f);
  float a = hash21(i);
  float b = hash21(i + vec2{1.0f, 0.0f});
  float c = hash21(i + vec2{0.0f, 1.0f});
  float d = hash21(i + vec2{1.0f, 1.0f});
  return mix(mix(a, b, u.x), mix(c, d, u.x), u.y) * 2.0f - 1.0f;
}

// Smooth minimum. A radius of 0 or less is the plain minimum (the formula would divide
// 0 by 0).
float smin(float a, float b, float k) {
  if (!(k > 0.0f)) return std::min(a, b);
  float h = std::max(k - fabsf(a - b), 0.0f) / k;
  return std::min(a, b) - h * h * k * 0.25f;
}

float smax(float a, float b, float k) { return -smin(-a, -b, k); }

float sdRoundBox(vec2 p, vec2 c, vec2 hs, float r) {
  r = std::min(r, std::min(hs.x, hs.y));
  vec2 q = abs(p - c) - hs + r;
  return length(max(q, 0.0f)) + std::min(std::max(q.x, q.y), 0.0f) - r;
}

float primDistance(const InkPrim& q, vec2 p, float t) {
  vec2 a{q.a[0], q.a[1]};
  if (q.b[3] < 0.5f) return length(p - a) - q.b[0];
  if (q.b[3] < 1.5f) {
    vec2 pa = p - a;
    vec2 ba = vec2{q.a[2], q.a[3]} - a;
    float h = clamp(dot(pa, ba) / std::max(dot(ba, ba), 0.0001f), 0.0f, 1.0f);
    return length(pa - ba * h) - mix(q.b[0], q.b[1], h);
  }
  float d = sdRoundBox(p, a, vec2{q.a[2], q.a[3]}, q.b[0]);
  float wob = q.c[3];
  float n = 0.0f;
  if (wob > 0.0f) {
    float ca = cosf(0.55f * t), sa = sinf(0.55f * t);
    n = (vnoise(p * 0.03f) * ca + vnoise(p * 0.03f + 17.0f) * sa +
         0.3f * (vnoise(p * 0.07f + 5.0f) * sa - vnoise(p * 0.07f + 31.0f) * ca)) *
        wob;
  }
  if (q.b[1] <= 0.0f && q.c[2] < 0.0f) d += 0.4f * n;
  if (q.b[1] > 0.0f) {
    float along = p.x + p.y;
    float wave = (sinf(0.045f * along) * sinf(1.1f * t) + 0.6f * sinf(0.083f * along + 1.3f) * sinf(0.75f * t + 1.0f) +
                  0.35f * sinf(0.021f * along + 4.0f) * sinf(0.5f * t + 2.0f)) *
                 std::max(wob, 1.0f);
    d += 0.25f * wave;
    d = smax(d, -(d + q.b[1] + wave), 4.0f);
  }
  vec2 c{q.c[0], q.c[1]};
  if (q.c[2] >= 0.0f) d = smax(d, length(p - c) - q.c[2] + n, 6.0f);
  if (q.b[2] > 0.0f) d = smax(d, -(length(p - c) - q.b[2] - 1.2f * n), 8.0f);
  return d;
}

float field(const InkPipeline::Binned& binned, const InkUniforms& u, uint32_t offset, uint32_t count, vec2 p) {
  float t = u.frame[3];
  float d = 100000.0f;
  for (uint32_t i = offset; i < offset + count; ++i) {
    const InkPrim& q = binned.prims[binned.indices[i]];
    float ki = (q.b[3] < 1.5f && q.c[0] > 0.0f) ? q.c[0] : u.params[0];
    d = smin(d, primDistance(q, p, t), ki);
  }
  return d;
}

float env(vec3 r) {
  float up = -r.y;
  float ax = fabsf(r.x);
  float soft = smoothstep(0.15f, 0.7f, up) * smoothstep(0.95f, 0.35f, ax);
  float strip = expf(-sq((r.x - 0.62f) * 8.0f)) * smoothstep(-0.3f, 0.4f, up);
  float floorw = smoothstep(0.15f, 0.85f, -up) * smoothstep(0.98f, 0.4f, ax);
  float barTop = expf(-sq((up - 0.62f) * 7.0f)) * smoothstep(0.9f, 0.3f, ax);
  float barLow = expf(-sq((-up - 0.5f) * 6.0f)) * smoothstep(0.95f, 0.25f, ax);
  return 0.72f * soft * 0.6f + 0.8f * strip * 0.3f + 0.42f * floorw * 0.3f + 0.85f * barTop * 0.35f +
         0.7f * barLow * 0.45f;
}

uint8_t toByte(float v) { return static_cast<uint8_t>(floorf(clamp(v, 0.0f, 1.0f) * 255.0f + 0.5f)); }

}  // namespace

namespace InkReference {

std::array<float, 4> shade(const InkPipeline::Binned& binned, const InkUniforms& u, float px, float py) {
  const float scale = u.frame[2];
  const float t = u.frame[3];
  const float tileSize = u.surface[3];
  vec2 p{px / scale, py / scale};

  // 1. The pixel's tile.
  float tilesX = ceilf(u.frame[0] / tileSize), tilesY = ceilf(u.frame[1] / tileSize);
  int tx = static_cast<int>(std::min(std::max(p.x, 0.0f) / tileSize, tilesX - 1.0f));
  int ty = static_cast<int>(std::min(std::max(p.y, 0.0f) / tileSize, tilesY - 1.0f));
  long tile = static_cast<long>(ty) * static_cast<long>(u.voidc[3]) + tx;
  if (tx < 0 || ty < 0 || tile < 0 || static_cast<size_t>(tile) * 2 + 1 >= binned.ranges.size()) return {0, 0, 0, 0};
  uint32_t offset = binned.ranges[tile * 2], count = binned.ranges[tile * 2 + 1];
  if (count == 0 || size_t(offset) + count > binned.indices.size()) return {0, 0, 0, 0};

  // 2. Coverage and 3. shadow.
  float d = field(binned, u, offset, count, p);
  float aa = 0.75f / scale;
  float a = clamp(0.5f - d / (2.0f * aa), 0.0f, 1.0f);
  float sh = u.params[2] * expf(-std::max(d, 0.0f) / 9.0f) * smoothstep(26.0f, 0.0f, d);
  if (a <= 0.0f) return {0, 0, 0, sh};

  // 4. The body colour, flat without gloss.
  vec3 col{u.voidc[0], u.voidc[1], u.voidc[2]};
  if (u.params[3] > 0.5f) {
    // 5. Gradient.
    const float e = 0.6f;
    vec2 g = vec2{field(binned, u, offset, count, p + vec2{e, 0.0f}) - d,
                  field(binned, u, offset, count, p + vec2{0.0f, e}) - d} /
             e;
    float gl = length(g);
    g = gl > 0.0001f ? g / gl : vec2{0.0f, 0.0f};
    // 6. Bead profile.
    float bevel = u.surface[0];
    float x = clamp(-d / bevel, 0.0f, 1.0f);
    float slope = (1.0f - x) / sqrtf(std::max(1.0f - (1.0f - x) * (1.0f - x), 0.02f));
    // 7. Undulation.
    vec2 und = vec2{vnoise(p * 0.006f + 0.12f * t), vnoise(p * 0.006f - 0.1f * t + 7.0f)} * 0.07f;
    vec2 nxy = g * std::min(slope, 6.0f) + und;
    // 8. Ripple.
    if (u.ripple[3] > 0.5f) {
      float age = t - u.ripple[2];
      if (age > 0.0f && age < 1.6f) {
        vec2 rv = p - vec2{u.ripple[0], u.ripple[1]};
        float r = length(rv);
        float w = sinf((r - 260.0f * age) * 0.16f) * expf(-2.4f * age) *
                  smoothstep(260.0f * age + 30.0f, 260.0f * age - 10.0f, r);
        if (r > 0.001f) nxy = nxy + (rv / r) * w * 0.9f;
      }
    }
    // 9. Normal, eye and reflection.
    vec3 n = normalize(vec3{nxy.x, nxy.y, 1.0f});
    vec2 fromCentre = (p - vec2{u.frame[0], u.frame[1]} * 0.5f) / 1100.0f;
    vec3 v = normalize(vec3{-fromCentre.x, -fromCentre.y, 1.0f});
    vec3 r = reflect(-v, n);
    // 10. Fresnel and the studio.
    float edge = std::max(1.0f - n.z, 0.0f);  // 0 facing the eye, 1 at grazing
    float fres = 0.04f + 0.96f * powf(edge, 5.0f);
    float spec = env(r) * u.surface[2] * (0.06f + 0.94f * fres);
    // 11. Highlight.
    vec3 L = normalize(vec3{-0.35f, -0.8f, 0.5f});
    float hi = powf(std::max(dot(n, normalize(L + v)), 0.0f), 140.0f) * 0.45f;
    // 12. Thin film.
    float hue = fract(0.55f * edge + 0.12f * vnoise(p * 0.03f + 0.1f * t) + 0.015f * t);
    vec3 film{0.5f + 0.5f * cosf(6.2831f * (hue + 0.0f)), 0.5f + 0.5f * cosf(6.2831f * (hue + 0.33f)),
              0.5f + 0.5f * cosf(6.2831f * (hue + 0.67f))};
    vec3 sheen = film * u.surface[1] * smoothstep(0.02f, 0.5f, edge);
    // 13. Rim.
    float rim = powf(edge, 2.5f) * 0.16f;
    // 14.
    col = col + spec + hi + sheen * 0.6f + 0.62f * rim;
  }
  // 15. Premultiplied.
  return {col.x * a, col.y * a, col.z * a, a + sh * (1.0f - a)};
}

InkImage render(const GooScene& scene, Size viewSize, double scale, double time, double tileSize) {
  InkImage image;
  if (!(scale > 0) || !(viewSize.width > 0) || !(viewSize.height > 0)) return image;
  InkPipeline::Binned binned = InkPipeline::bin(scene, viewSize, tileSize);
  InkUniforms u = InkPipeline::uniforms(scene, viewSize, scale, time, binned, tileSize);
  image.width = static_cast<int>(std::ceil(viewSize.width * scale));
  image.height = static_cast<int>(std::ceil(viewSize.height * scale));
  image.rgba.assign(static_cast<size_t>(image.width) * image.height * 4, 0);
  uint8_t* out = image.rgba.data();
  for (int iy = 0; iy < image.height; ++iy)
    for (int ix = 0; ix < image.width; ++ix, out += 4) {
      std::array<float, 4> c = shade(binned, u, float(ix) + 0.5f, float(iy) + 0.5f);
      for (int k = 0; k < 4; ++k) out[k] = toByte(c[k]);
    }
  return image;
}

}  // namespace InkReference

}  // namespace zorvane
