// Anchor: where a target stands on the screen, from frame to frame, for as long as its
// piece lives. `tick()` refreshes the frame and whether the target can be seen; false
// means the target is gone and the piece ends.
//
//   WindowAnchor   a window: its frame, asked of the window service for that one window
//                  (never the list), so a tick costs a handful of round trips.
//   ElementAnchor  an icon shown by an accessibility element (a file in a folder window
//                  or on the desktop): the element's frame, and, when it lies in a
//                  window, that window's life. A desktop icon has no window and never
//                  ends by itself; it hides while its element has no frame.
//   HiddenAnchor   a target with nothing on screen: always hidden, never ends.
//
// `Resolved` pairs a target with its anchor, as drop resolution and restoration answer.
// Anchors are used on the main queue only; the window service they keep a reference to
// must outlive them.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "core/geometry/geometry.h"
#include "core/targets/target.h"
#include "platform/accessibility.h"
#include "platform/window_service.h"

namespace zorvane {

class Anchor {
 public:
  virtual ~Anchor() = default;
  // Screen points, top-left origin.
  [[nodiscard]] Rect frame() const { return frame_; }
  [[nodiscard]] std::optional<uint32_t> windowID() const { return windowID_; }
  [[nodiscard]] virtual bool isOnScreen() const { return isOnScreen_; }
  [[nodiscard]] virtual bool isIcon() const = 0;
  virtual bool tick() = 0;
  // "WindowAnchor", "ElementAnchor" or "HiddenAnchor".
  [[nodiscard]] virtual std::string_view kindName() const = 0;

 protected:
  Anchor(std::optional<uint32_t> windowID, Rect frame, bool isOnScreen)
      : frame_(frame), windowID_(windowID), isOnScreen_(isOnScreen) {}
  Rect frame_;
  std::optional<uint32_t> windowID_;
  bool isOnScreen_;
};

class WindowAnchor final : public Anchor {
 public:
  WindowAnchor(WindowService& windows, std::optional<uint32_t> windowID, Rect frame, bool isOnScreen,
               bool isIcon = false)
      : Anchor(windowID, frame, isOnScreen), windows_(windows), isIcon_(isIcon) {}
  bool isIcon() const override { return isIcon_; }
  // False when there is no window number or the window is gone.
  bool tick() override;
  std::string_view kindName() const override { return "WindowAnchor"; }

 private:
  WindowService& windows_;
  bool isIcon_;
};

class ElementAnchor final : public Anchor {
 public:
  ElementAnchor(WindowService& windows, std::shared_ptr<AccessibleElement> element, std::optional<uint32_t> windowID,
                Rect frame, bool isOnScreen, bool isIcon = true)
      : Anchor(windowID, frame, isOnScreen), windows_(windows), element_(std::move(element)), isIcon_(isIcon) {}
  bool isIcon() const override { return isIcon_; }
  // The element's frame (width 0 or none: hidden); with a window, false once the window
  // is gone, and hidden while it is.
  bool tick() override;
  std::string_view kindName() const override { return "ElementAnchor"; }
  const std::shared_ptr<AccessibleElement>& element() const { return element_; }

 private:
  WindowService& windows_;
  std::shared_ptr<AccessibleElement> element_;
  bool isIcon_;
};

class HiddenAnchor final : public Anchor {
 public:
  explicit HiddenAnchor(Rect frame, std::optional<uint32_t> windowID = std::nullopt)
      : Anchor(windowID, frame, false) {}
  bool isOnScreen() const override { return false; }
  bool isIcon() const override { return true; }
  bool tick() override { return true; }
  std::string_view kindName() const override { return "HiddenAnchor"; }
};

struct Resolved {
  Target target;
  std::shared_ptr<Anchor> anchor;
};

}  // namespace zorvane
