#include "ink_test_scenes.h"

#include <QApplication>
#include <QQuickWindow>

#include <cstdlib>
#include <memory>

#include "core/goo/shapes.h"

namespace zorvane::testing {

static constexpr double kNow = 1700000123.25;  // away from a wrap of the shader's modulo-1000 clock

std::vector<InkCase> canonicalInkScenes() {
  std::vector<InkCase> cases;

  GooScene blobs;
  blobs.blobs = {{{110, 100}, 48}, {{190, 92}, 34}, {{258, 112}, 22}};
  blobs.capsules = {{{300, 110}, {390, 62}, 13, 5, 0}};
  blobs.blend = 18;
  blobs.shadow = true;
  blobs.gloss = true;
  blobs.sheen = 0.35f;
  cases.push_back({"blobs", blobs, {440, 200}, 2, kNow});

  GooScene tentacle;
  tentacle.blobs = {{{60, 110}, 34}};
  tentacle.capsules = Shapes::tentacle({80, 105}, {400, 50}, 0.25, {0.2, 0.55}, 0.15);
  tentacle.blend = 10;
  tentacle.shadow = true;
  tentacle.gloss = true;
  tentacle.sheen = 0.3f;
  cases.push_back({"tentacle", tentacle, {440, 200}, 2, kNow});

  GooScene boxes;
  InkBox revealing{{20, 20, 180, 90}, 18, InkBox::Reveal{{60, 50}, 110}, std::nullopt, std::nullopt, 3};
  InkBox ring{{230, 20, 190, 110}, 22, std::nullopt, 6.0, std::nullopt, 2};
  InkBox holed{{20, 125, 160, 60}, 14, InkBox::Reveal{{100, 155}, 300}, std::nullopt, 22.0, 4};
  InkBox plain{{250, 150, 150, 36}, 12, std::nullopt, std::nullopt, std::nullopt, 5};
  boxes.boxes = {revealing, ring, holed, plain};
  boxes.blend = 8;
  boxes.shadow = true;
  boxes.gloss = true;
  boxes.sheen = 0.2f;
  cases.push_back({"boxes", boxes, {440, 200}, 2, kNow});

  GooScene flat = blobs;  // gloss and shadow off, a coloured body, at scale 1
  flat.gloss = false;
  flat.shadow = false;
  flat.voidColor = {0.55f, 0.12f, 0.3f};
  cases.push_back({"flat", flat, {440, 200}, 1, kNow});

  GooScene unshadowed = tentacle;  // gloss without a shadow, odd size
  unshadowed.shadow = false;
  cases.push_back({"gloss-no-shadow", unshadowed, {431.5, 197.25}, 2, kNow});

  GooScene ripple = blobs;
  ripple.blobs.push_back({{330, 120}, 40});
  ripple.ripple = GooScene::Ripple{{150, 95}, kNow - 0.3};
  cases.push_back({"ripple", ripple, {440, 200}, 2, kNow});

  return cases;
}

bool ensureGuiApplication(std::string& why) {
  if (QGuiApplication::instance()) return true;
  if (!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY")) {
    why = "no display (DISPLAY is not set): run under scripts/headless-desktop.sh or xvfb-run";
    return false;
  }
  QQuickWindow::setGraphicsApi(QSGRendererInterface::OpenGL);
  static int argc = 1;
  static char name[] = "zorvane_ui_tests";
  static char* argv[] = {name, nullptr};
  static auto* app = new QApplication(argc, argv);  // lives as long as the process
  (void)app;
  return true;
}

}  // namespace zorvane::testing
