// Surfaces: the borderless panels the application draws on, and the screens they stand
// on. Controllers ask for a panel, place it in screen coordinates and give it content;
// they never hold a window handle, so the same controllers can run on separate
// top-level windows (X11: QtSurfaces in ui/) or on regions of one full-screen overlay,
// and headless in tests (FakeSurfaces in fake/).
//
// Screen coordinates are the desktop's own: the pixels of the X11 root window, origin at
// the top left, the same numbers the window service and the accessibility tree report.
// The realisation converts them to its toolkit's units (ui/shell/space.h).
//
//   auto overlay = surfaces.makePanel({.name = "goo overlay", .level = PanelLevel::overlay,
//                                      .clickThrough = true});
//   overlay->setInk(60, [this](double t, Size size) { return look.scene(t); });
//   overlay->setFrame(anchor.frame().grownBy(44));
//   overlay->orderFront();
//
// Everything here lives on the main queue; callbacks run there.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/geometry/geometry.h"
#include "core/ink/goo_scene.h"

namespace zorvane {

// Stacking order among the application's own panels: a higher level stands in front.
// All of them stand above ordinary windows.
namespace PanelLevel {
inline constexpr int overlay = 3;    // a piece's goo round its target; the tentacle layer
inline constexpr int handle = 4;     // a piece's knot
inline constexpr int bubble = 5;     // a piece's conversation
inline constexpr int notch = 8;      // the body at the top of the screen, its tray and hub
inline constexpr int drag = 9;       // the goo being pulled
inline constexpr int alert = 10;     // a question to the user
}  // namespace PanelLevel

struct PanelOptions {
  std::string name;            // what a screen reader and the window list call it
  int level = PanelLevel::overlay;
  bool clickThrough = false;   // pointer events pass to whatever lies below
  bool acceptsKey = false;     // may take the keyboard focus (the bubble)
};

// Pointer gestures on a panel that takes the pointer, in screen coordinates. `moved`
// tells whether the pointer travelled more than 4 points from where it went down.
struct PointerHandlers {
  std::function<void(Point)> onDown;
  std::function<void(Point)> onDrag;
  std::function<void(Point, bool moved)> onUp;
};

class GooPanel {
 public:
  using InkScene = std::function<GooScene(double wallSeconds, Size viewSize)>;

  virtual ~GooPanel() = default;

  [[nodiscard]] virtual const PanelOptions& options() const = 0;
  // Screen coordinates; empty until set.
  [[nodiscard]] virtual Rect frame() const = 0;
  virtual void setFrame(const Rect& frame) = 0;
  [[nodiscard]] virtual bool isVisible() const = 0;
  // Shows the panel in front of the panels of its level, without taking the focus.
  virtual void orderFront() = 0;
  virtual void orderOut() = 0;
  // Gives the panel the keyboard focus (panels that accept it); shows it first.
  virtual void makeKey() = 0;
  virtual void setClickThrough(bool clickThrough) = 0;

  // The panel's content is goo drawn by the ink renderer: `scene` is asked for each
  // frame, at up to `framesPerSecond`, with the time and the panel's size in points.
  virtual void setInk(int framesPerSecond, InkScene scene) = 0;
  // Changes how often the goo is asked for a frame, keeping the scene. A scene callback
  // may call it.
  virtual void setInkRate(int framesPerSecond) = 0;
  // Limits what the goo shows to these rectangles (points in the panel); nothing: all.
  virtual void setInkClip(std::optional<std::vector<Rect>> rects) = 0;
  virtual void setPointerHandlers(PointerHandlers handlers) = 0;
};

struct ScreenInfo {
  Rect frame;         // screen coordinates
  Rect visibleFrame;  // the part no panel of the desktop (a top bar, a dock) reserves
  bool isPrimary = false;
};

class Surfaces {
 public:
  virtual ~Surfaces() = default;

  [[nodiscard]] virtual std::unique_ptr<GooPanel> makePanel(const PanelOptions& options) = 0;
  // The screens, the primary first; empty when none is attached.
  [[nodiscard]] virtual std::vector<ScreenInfo> screens() const = 0;
  // Where the pointer is now.
  [[nodiscard]] virtual Point pointer() const = 0;
  // Whether a composition manager runs, so transparent pixels show what lies below.
  [[nodiscard]] virtual bool isComposited() const = 0;

  // Screens were added, removed or changed their size.
  std::function<void()> onScreensChanged;
};

// The screen that holds `point`, else the primary one; nothing without screens.
std::optional<ScreenInfo> screenContaining(const std::vector<ScreenInfo>& screens, Point point);

}  // namespace zorvane
