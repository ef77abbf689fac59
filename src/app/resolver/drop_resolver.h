// DropResolver: what lies under a point of the screen, as a Target with its Anchor.
// Runs when a piece is let go, a tentacle dropped, or a window picked.
//
// `resolve(at)`, in order:
//   1. the application windows on screen (layer 0), front to back, this process's own
//      left out, so a point over our own panels passes through them;
//   2. the first that holds the point decides; with none, the desktop (step 9);
//   3. its owner and the owner's bundle identifier;
//   4. a denylisted owner ends here with nothing, before the accessibility tree, a
//      browser or a file manager is asked anything;
//   5. the element at the point, and the first file URL on its way up (AX::fileURL);
//   6. classifyHit decides: a file manager's item becomes a `file` or `folder` with an
//      ElementAnchor on the item (64x64 at the point when it has no frame);
//   7. a browser: its front tab through BrowserScripting (the DevTools protocol); a
//      failure or a bad URL falls back to the window target;
//   8. a file manager's window without an item: the folder it shows (from its location
//      bar); a window that won't tell falls back to the window target; any other window
//      is a `window` target, named by its bundle identifier (else its executable's
//      name, else "unknown");
//   9. no window: a desktop window owned by a file manager whose element at the point is
//      an icon gives that file with an ElementAnchor without window; else nothing.
// Every failure of the desktop gives a smaller answer, never an error.
//
// Holds no state; on the main queue, blocking while the desktop answers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "app/resolver/anchor.h"
#include "core/geometry/geometry.h"
#include "core/targets/target.h"
#include "platform/desktop_services.h"

namespace zorvane {

class DropResolver {
 public:
  struct WindowInfo {
    uint32_t id = 0;
    int32_t pid = 0;
    Rect frame;
    int layer = 0;
    std::string title;
  };

  // `ownPID`: the process whose windows are never targets (this one by default).
  explicit DropResolver(DesktopServices& desktop, std::optional<int32_t> ownPID = std::nullopt);

  [[nodiscard]] std::optional<Resolved> resolve(Point at);

  // The window itself as a drop on it would see it, without a point inside its
  // content: a browser's window is its front tab (the window when that can't be read), a
  // file manager's window the folder it shows, any other window the app window. Nothing
  // for a window that is gone, off screen, not an application window, this process's
  // own, or of a denied application.
  [[nodiscard]] std::optional<Resolved> resolveWindow(uint32_t windowID);

  // The windows on screen, front to back, without the desktop's own.
  [[nodiscard]] std::vector<WindowInfo> onScreenWindows();

  // A `window` target for the window, with a WindowAnchor on it.
  [[nodiscard]] Resolved windowTarget(const WindowInfo& info, const std::string& bundle);

  // `folder` for a directory, else `file` (also when nothing is there).
  [[nodiscard]] static Target target(const URL& url);

  // The owner's bundle identifier; nothing when the desktop doesn't know one.
  [[nodiscard]] std::optional<std::string> bundleID(int32_t pid);

 private:
  std::optional<Resolved> resolveDesktop(Point at);
  std::optional<Resolved> browserTarget(const WindowInfo& window, BrowserApp app, const std::optional<std::string>& bundle);
  std::optional<std::string> folderOf(const WindowInfo& window, const std::shared_ptr<AccessibleElement>& element);

  DesktopServices& desktop_;
  int32_t ownPID_;
};

}  // namespace zorvane
