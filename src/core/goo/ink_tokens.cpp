#include "core/goo/ink_tokens.h"

#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace zorvane::Ink::Timing {

namespace {

std::atomic<double> factor{1.0};

double usable(double value) { return std::isfinite(value) && value > 0 ? value : 1.0; }

double parseValue(const std::string& text) {
  if (text.empty()) return 1.0;
  char* end = nullptr;
  errno = 0;
  double value = std::strtod(text.c_str(), &end);
  if (errno != 0 || end != text.c_str() + text.size()) return 1.0;
  return usable(value);
}

}  // namespace

double parseSlowMotion(const std::vector<std::string>& arguments) {
  for (size_t i = 1; i < arguments.size(); ++i)
    if (arguments[i] == "--slow") return i + 1 < arguments.size() ? parseValue(arguments[i + 1]) : 1.0;
  return 1.0;
}

double slowMotion() { return factor.load(std::memory_order_relaxed); }

void setSlowMotion(double value) { factor.store(usable(value), std::memory_order_relaxed); }

}  // namespace zorvane::Ink::Timing

namespace zorvane::Ink {

GooScene glossyScene(double blend) {
  GooScene scene;
  scene.blend = blend;
  scene.shadow = true;
  scene.gloss = true;
  scene.voidColor = Surface::voidColor;
  scene.sheen = 0.05f;
  return scene;
}

}  // namespace zorvane::Ink
