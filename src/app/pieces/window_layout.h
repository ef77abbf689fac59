// WindowLayout: makes room beside a target window for the chat panel that docks next to
// it. A window with enough free width on either side of it, within its screen's work
// area, is left alone; one without is moved to the work area's left edge and narrowed
// so the panel fits to its right. A full-screen window is first taken out of full screen
// and fitted once the window manager has put it back (kFullScreenExitDelay later).
//
//   WindowLayout layout(desktop.windows, queue, surfaces);
//   layout.makeRoom(anchor, 414, [weak] { if (auto self = weak.lock()) self->showBubble(); });
//
// Frames are the window service's: client areas in screen coordinates, top-left origin,
// the same as the screens' frames. A window that refuses to move simply stays; nothing
// here fails. Main queue only. The window service, the queue and the surfaces must
// outlive the layout; a fit still pending when the layout goes is dropped, completion and
// all.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "app/resolver/anchor.h"
#include "core/base/main_queue.h"
#include "platform/surfaces.h"
#include "platform/window_service.h"

namespace zorvane {

class WindowLayout {
 public:
  // How long the window manager gets to bring a window out of full screen.
  static constexpr double kFullScreenExitDelay = 1.1;

  WindowLayout(WindowService& windows, MainQueue& queue, const Surfaces& surfaces);

  // Makes room for a panel `panelWidth` wide beside the anchor's window, then calls
  // `completion` (once; at once, or after the full-screen delay). Without a window, or
  // when the window is gone, only `completion` runs. The anchor is held weakly across the
  // delay: if it is gone by then nothing is fitted, but `completion` still runs.
  void makeRoom(const std::shared_ptr<Anchor>& anchor, double panelWidth,
                std::function<void()> completion);

  // Refreshes the anchor, then, if the window has less than `need` free on both sides
  // within the work area of the screen under its middle (else the primary screen), puts
  // it at the work area's left edge + 8, no higher than 4 below its top, `need` + 16
  // narrower than the work area, and no taller than what is left above the work area's
  // bottom - 8. A width or height that comes out empty keeps the window's own.
  void fit(uint32_t windowID, Anchor& anchor, double need);

 private:
  WindowService& windows_;
  MainQueue& queue_;
  const Surfaces& surfaces_;
  // Pending delayed fits hold this weakly, so one that fires after the layout is gone
  // does nothing.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace zorvane
