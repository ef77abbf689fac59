// QtSurfaces: the application's panels as Qt Quick windows on X11, and the screens as
// QGuiApplication sees them, all in screen coordinates (X11 pixels, see Space).
//
// A QtPanel owns one QQuickWindow: frameless, transparent, above ordinary windows and
// left alone by the window manager (override-redirect: a reparenting manager would wrap
// it in a frame of its own that catches the pointer even where the panel lets it
// through). A click-through panel's window takes no input at all; a panel that does not
// accept the key never takes the focus. The window's title, which is also its
// accessible name, is the panel's name.
//
// Levels: the window manager does not stack override-redirect windows, so the panels
// keep their order themselves. `orderFront` raises the panel, then raises every shown
// panel of a higher level above it, lower levels first and, within a level, in the
// order they were last put in front. A panel with an empty frame is not shown until it
// gets one; while not shown its goo stops ticking.
//
// Without a composition manager a window's transparent pixels would show black: the
// panels are then painted in the panels' dark grey, and each click-through panel (the
// goo round a target, the drag layer, the resting notch) is cut (its X shape) to the
// tiles its goo covers in the last frame, so what lies below shows everywhere else.
//
// Content: an InkView filling the window, made on the first `setInk`; above it, once
// pointer handlers are set, an item that takes the left button and reports screen
// coordinates; every down gets its up, also when the grab is lost mid-drag. Handlers
// and the scene are called on the GUI thread and may destroy the panel: the window is
// deleted later, from the event loop.
//
// Everything here lives on the GUI thread, after the QGuiApplication is made.
#pragma once

#include <QObject>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QRect>

#include "platform/surfaces.h"
#include "ui/ink_frame_loop.h"

class QQuickWindow;
class QScreen;

namespace zorvane {

class InkView;
class PanelPointer;
struct PanelStack;

class QtPanel final : public GooPanel {
 public:
  QtPanel(const PanelOptions& options, std::shared_ptr<PanelStack> stack);
  ~QtPanel() override;
  QtPanel(const QtPanel&) = delete;
  QtPanel& operator=(const QtPanel&) = delete;

  const PanelOptions& options() const override { return options_; }
  Rect frame() const override { return frame_; }
  void setFrame(const Rect& frame) override;
  bool isVisible() const override { return visible_; }
  void orderFront() override;
  void orderOut() override;
  void makeKey() override;
  void setClickThrough(bool clickThrough) override;
  void setInk(int framesPerSecond, InkScene scene) override;
  void setInkRate(int framesPerSecond) override;
  void setInkClip(std::optional<std::vector<Rect>> rects) override;
  void setPointerHandlers(PointerHandlers handlers) override;

  // The panel's window, for the views that put items over the goo, and for tests.
  QQuickWindow* window() const { return window_; }
  InkView* inkView() const { return ink_; }
  // Whether transparent pixels show what lies below (see the class comment).
  void setComposited(bool composited);

 private:
  // Shows the window when the panel is visible and has a frame, hides it otherwise.
  void updateShown();
  // Asks for the keyboard focus now that the window shows.
  void takeKeys();
  void raiseHigherPanels();
  void frameHandedOff(const InkFrame& frame);
  void updateCut();

  PanelOptions options_;
  std::shared_ptr<PanelStack> stack_;
  QQuickWindow* window_;                // owned; deleted later (see the class comment)
  InkView* ink_ = nullptr;              // owned by the window's content item
  PanelPointer* pointer_ = nullptr;    // a child of the window
  std::optional<std::vector<Rect>> clip_;
  Rect frame_;
  bool visible_ = false;
  bool wantsKey_ = false;  // `makeKey` came before the window could show
  uint64_t frontOrder_ = 0;  // when it was last put in front; 0: never
  bool composited_ = true;
  std::vector<QRect> shape_;  // the goo's tiles in the last frame, without a compositor
};

class QtSurfaces final : public Surfaces {
 public:
  QtSurfaces();
  ~QtSurfaces() override;

  // Makes Qt Quick draw with OpenGL into windows with an alpha channel. Call before the
  // first QQuickWindow is made (the application's start does); the constructor calls it
  // as well.
  static void prepareGraphics();

  std::unique_ptr<GooPanel> makePanel(const PanelOptions& options) override;
  std::vector<ScreenInfo> screens() const override;
  Point pointer() const override;
  // As last seen: the compositor is looked for at the start and every two seconds.
  bool isComposited() const override { return composited_; }
  // Looks for the compositor now, and tells the panels when it came or went.
  void checkCompositor();

  // From now on every panel keeps the scene of its last frame, for dumpInk.
  void keepScenes();
  // Stops (or restarts) every panel's goo on its current frame, for writing out what is
  // on screen.
  void setInkFrozen(bool frozen);
  // Whether some panel's last frame has not reached the screen yet.
  bool isInkInFlight() const;
  // Writes the last frame of every shown panel with goo to `folder` as JSON: the scene
  // (the ink tool's format) with the panel's name, its frame in screen pixels, and the
  // size, scale and time the frame was drawn at (after keepScenes). Answers how many
  // were written.
  int dumpInk(const std::string& folder) const;

 private:
  void watchScreen(QScreen* screen);
  void screensChanged();

  std::shared_ptr<PanelStack> stack_;
  QObject context_;  // the receiver of the screens' signals
  bool composited_ = true;
  bool checkedCompositor_ = false;
};

}  // namespace zorvane
