#include "ui/ink_shader_source.h"

namespace zorvane::InkShaderSource {

static std::string header(Dialect dialect) {
  if (dialect == Dialect::gles300)
    return "#version 300 es\n"
           "precision highp float;\n"
           "precision highp int;\n"
           "precision highp sampler2D;\n"
           "precision highp usampler2D;\n";
  return "#version 330 core\n";
}

std::string vertex(Dialect dialect) {
  // One triangle over the whole target: (0,0), (2,0), (0,2) mapped to clip space.
  return header(dialect) + R"GLSL(
void main() {
  vec2 p = vec2(float((gl_VertexID << 1) & 2), float(gl_VertexID & 2));
  gl_Position = vec4(p * 2.0 - 1.0, 0.0, 1.0);
}
)GLSL";
}

std::string fragment(Dialect dialect) {
  return header(dialect) + R"GLSL(
uniform sampler2D uPrims;
uniform usampler2D uRanges;
uniform usampler2D uIndices;
uniform vec3 uTarget;  // GL x of the view's left edge, GL y of its top edge, -1 (or 1: rows run down)

layout(std140) uniform InkBlock {
  vec4 frame;    // view width, view height, scale, time
  vec4 params;   // blend, primitive count, shadow strength, gloss
  vec4 ripple;   // centre x, y, start time, 1 with a ripple
  vec4 surface;  // bevel, sheen, environment strength, tile size
  vec4 voidc;    // body colour, tilesX
};

out vec4 fragColor;

ivec2 texelAt(uint i) { return ivec2(int(i & 1023u), int(i >> 10u)); }

// smoothstep written out: GLSL leaves edge0 >= edge1 undefined, and the shading
// uses falling edges.
float sstep(float e0, float e1, float x) {
  float t = clamp((x - e0) / (e1 - e0), 0.0, 1.0);
  return t * t * (3.0 - 2.0 * t);
}

float hash21(vec2 p) {
  p = fract(p * vec2(123.34, 456.21));
  p += dot(p, p + 45.32);
  return fract(p.x * p.y);
}

float vnoise(vec2 p) {
  vec2 i = floor(p);
  vec2 f = fract(p);
  vec2 u = f * f * (3.0 - 2.0 * f);
  float h00 = hash21(i);
  float h10 = hash21(i + vec2(1.0, 0.0));
  float h01 = hash21(i + vec2(0.0, 1.0));
  float h11 = hash21(i + vec2(1.0, 1.0));
  return mix(mix(h00, h10, u.x), mix(h01, h11, u.x), u.y) * 2.0 - 1.0;
}

float smin(float a, float b, float k) {
  if (k <= 0.0) return min(a, b);
  float h = max(k - abs(a - b), 0.0) / k;
  return min(a, b) - h * h * k * 0.25;
}

float smax(float a, float b, float k) { return -smin(-a, -b, k); }

float sdRoundBox(vec2 p, vec2 c, vec2 hs, float r) {
  r = min(r, min(hs.x, hs.y));
  vec2 q = abs(p - c) - hs + r;
  return length(max(q, 0.0)) + min(max(q.x, q.y), 0.0) - r;
}

// Distance of primitive `index` at `p`; `k` receives its smooth-union radius.
float primitive(uint index, vec2 p, float t, out float k) {
  uint base = index * 3u;
  vec4 a = texelFetch(uPrims, texelAt(base), 0);
  vec4 b = texelFetch(uPrims, texelAt(base + 1u), 0);
  vec4 c = texelFetch(uPrims, texelAt(base + 2u), 0);
  k = params.x;
  if (b.w < 0.5) {
    if (c.x > 0.0) k = c.x;
    return length(p - a.xy) - b.x;
  }
  if (b.w < 1.5) {
    if (c.x > 0.0) k = c.x;
    vec2 pa = p - a.xy;
    vec2 ba = a.zw - a.xy;
    float h = clamp(dot(pa, ba) / max(dot(ba, ba), 0.0001), 0.0, 1.0);
    return length(pa - ba * h) - mix(b.x, b.y, h);
  }
  float d = sdRoundBox(p, a.xy, a.zw, b.x);
  float wob = c.w;
  float n = 0.0;
  if (wob > 0.0) {
    float ca = cos(0.55 * t);
    float sa = sin(0.55 * t);
    n = (vnoise(0.03 * p) * ca + vnoise(0.03 * p + 17.0) * sa +
         0.3 * (vnoise(0.07 * p + 5.0) * sa - vnoise(0.07 * p + 31.0) * ca)) * wob;
  }
  if (b.y <= 0.0 && c.z < 0.0) d += 0.4 * n;
  if (b.y > 0.0) {
    float along = p.x + p.y;
    float wave = (sin(0.045 * along) * sin(1.1 * t) +
                  0.6 * sin(0.083 * along + 1.3) * sin(0.75 * t + 1.0) +
                  0.35 * sin(0.021 * along + 4.0) * sin(0.5 * t + 2.0)) * max(wob, 1.0);
    d += 0.25 * wave;
    d = smax(d, -(d + b.y + wave), 4.0);
  }
  if (c.z >= 0.0) d = smax(d, length(p - c.xy) - c.z + n, 6.0);
  if (b.z > 0.0) d = smax(d, -(length(p - c.xy) - b.z - 1.2 * n), 8.0);
  return d;
}

float field(vec2 p, uint offset, uint count, float t) {
  float d = 100000.0;
  for (uint i = 0u; i < count; ++i) {
    uint index = texelFetch(uIndices, texelAt(offset + i), 0).r;
    float k;
    float di = primitive(index, p, t, k);
    d = smin(d, di, k);
  }
  return d;
}

// A dark studio: softbox overhead, strip light on the right, bounce from below and
// two thin bars, in neutral grey.
float env(vec3 r) {
  float up = -r.y;
  float soft = sstep(0.15, 0.7, up) * sstep(0.95, 0.35, abs(r.x));
  float e = (r.x - 0.62) * 8.0;
  float strip = exp(-(e * e)) * sstep(-0.3, 0.4, up);
  float floorw = sstep(0.15, 0.85, -up) * sstep(0.98, 0.4, abs(r.x));
  float bt = (up - 0.62) * 7.0;
  float barTop = exp(-(bt * bt)) * sstep(0.9, 0.3, abs(r.x));
  float bl = (-up - 0.5) * 6.0;
  float barLow = exp(-(bl * bl)) * sstep(0.95, 0.25, abs(r.x));
  return 0.72 * soft * 0.6 + 0.8 * strip * 0.3 + 0.42 * floorw * 0.3 + 0.85 * barTop * 0.35 +
         0.7 * barLow * 0.45;
}

void main() {
  float scale = frame.z;
  float t = frame.w;
  vec2 device = vec2(gl_FragCoord.x - uTarget.x, uTarget.z * (gl_FragCoord.y - uTarget.y));
  vec2 p = device / scale;

  vec2 tiles = ceil(frame.xy / surface.w);
  vec2 tcf = min(max(p, 0.0) / surface.w, tiles - 1.0);
  uint tileIndex = uint(tcf.y) * uint(voidc.w) + uint(tcf.x);
  uvec2 range = texelFetch(uRanges, texelAt(tileIndex), 0).rg;
  if (range.y == 0u) {
    fragColor = vec4(0.0);
    return;
  }

  float d = field(p, range.x, range.y, t);
  float aa = 0.75 / scale;
  float a = clamp(0.5 - d / (2.0 * aa), 0.0, 1.0);
  float sh = params.z * exp(-max(d, 0.0) / 9.0) * sstep(26.0, 0.0, d);
  if (a <= 0.0) {
    fragColor = vec4(0.0, 0.0, 0.0, sh);
    return;
  }

  vec3 col = voidc.rgb;
  if (params.w > 0.5) {
    float e = 0.6;
    vec2 g = vec2(field(p + vec2(e, 0.0), range.x, range.y, t) - d,
                  field(p + vec2(0.0, e), range.x, range.y, t) - d) / e;
    g = length(g) > 0.0001 ? normalize(g) : vec2(0.0);

    float bevel = surface.x;
    float x = clamp(-d / bevel, 0.0, 1.0);
    float slope = (1.0 - x) / sqrt(max(1.0 - (1.0 - x) * (1.0 - x), 0.02));
    vec2 und = vec2(vnoise(0.006 * p + 0.12 * t), vnoise(0.006 * p - 0.1 * t + 7.0)) * 0.07;
    vec2 nxy = g * min(slope, 6.0) + und;

    if (ripple.w > 0.5) {
      float age = t - ripple.z;
      if (age > 0.0 && age < 1.6) {
        vec2 rv = p - ripple.xy;
        float rl = length(rv);
        float w = sin((rl - 260.0 * age) * 0.16) * exp(-2.4 * age) *
                  sstep(260.0 * age + 30.0, 260.0 * age - 10.0, rl);
        if (rl > 0.001) nxy += (rv / rl) * w * 0.9;
      }
    }

    vec3 n = normalize(vec3(nxy, 1.0));
    vec2 fromCentre = (p - frame.xy * 0.5) / 1100.0;
    vec3 v = normalize(vec3(-fromCentre, 1.0));
    vec3 r = reflect(-v, n);

    float edge = max(1.0 - n.z, 0.0);
    float edge2 = edge * edge;
    float fres = 0.04 + 0.96 * edge2 * edge2 * edge;
    float specular = env(r) * surface.z * (0.06 + 0.94 * fres);

    vec3 L = normalize(vec3(-0.35, -0.8, 0.5));
    float hi = pow(max(dot(n, normalize(L + v)), 0.0), 140.0) * 0.45;

    float hue = fract(0.55 * edge + 0.12 * vnoise(0.03 * p + 0.1 * t) + 0.015 * t);
    vec3 film = 0.5 + 0.5 * cos(6.2831 * (hue + vec3(0.0, 0.33, 0.67)));
    vec3 sheen = film * surface.y * sstep(0.02, 0.5, edge);

    float rim = pow(edge, 2.5) * 0.16;

    col = col + specular + hi + 0.6 * sheen + 0.62 * rim;
  }

  fragColor = vec4(col * a, a + sh * (1.0 - a));
}
)GLSL";
}

}  // namespace zorvane::InkShaderSource
