// TetherMotion: when the ink card under the notch is out, and the timing of its coming
// and going, shared by the card's goo (TetherInk) and its content.
//
// `open()` lets the goo start growing at once and shows the content 0.2 s later, unless
// a close or another open came in between. `close(completion)` hides the content at
// once and runs `completion` when the goo has drawn back (0.26 s later), unless the card
// was opened again meanwhile; a second close while one is under way does nothing at all.
//
// `isOpen` is what the content follows (the view eases it in and out); `onChange` runs
// after each change of it. Lives on the main queue; the delayed steps hold it weakly,
// so it is owned through `make`.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "core/base/clock.h"
#include "core/base/main_queue.h"

namespace zorvane {

class TetherMotion : public std::enable_shared_from_this<TetherMotion> {
 public:
  static constexpr double kShowDelay = 0.2;     // from open to the content showing
  static constexpr double kCloseSeconds = 0.24;  // the goo's retreat

  // `queue` and `clock` must outlive the motion.
  static std::shared_ptr<TetherMotion> make(MainQueue& queue, const Clock& clock);

  void open();
  void close(std::function<void()> completion);

  [[nodiscard]] bool isOpen() const { return isOpen_; }
  // Seconds since 1970 of the last open (0 before the first).
  [[nodiscard]] double openedAt() const { return openedAt_; }
  // Seconds since 1970 of the close under way, if any.
  [[nodiscard]] std::optional<double> closedAt() const { return closedAt_; }

  std::function<void()> onChange;

 private:
  TetherMotion(MainQueue& queue, const Clock& clock) : queue_(queue), clock_(clock) {}
  void setOpen(bool open);

  MainQueue& queue_;
  const Clock& clock_;
  bool isOpen_ = false;
  double openedAt_ = 0;
  std::optional<double> closedAt_;
};

}  // namespace zorvane
