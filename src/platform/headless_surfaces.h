// HeadlessSurfaces: surfaces for a run mode with nothing on screen (the command-line
// self-test): panels keep their frame and visibility and draw nothing, and there is no
// screen, pointer or compositor.
#pragma once

#include "platform/surfaces.h"

namespace zorvane {

class HeadlessPanel final : public GooPanel {
 public:
  explicit HeadlessPanel(PanelOptions options) : options_(std::move(options)) {}
  const PanelOptions& options() const override { return options_; }
  Rect frame() const override { return frame_; }
  void setFrame(const Rect& frame) override { frame_ = frame; }
  bool isVisible() const override { return visible_; }
  void orderFront() override { visible_ = true; }
  void orderOut() override { visible_ = false; }
  void makeKey() override { visible_ = true; }
  void setClickThrough(bool clickThrough) override { options_.clickThrough = clickThrough; }
  void setInk(int, InkScene) override {}
  void setInkRate(int) override {}
  void setInkClip(std::optional<std::vector<Rect>>) override {}
  void setPointerHandlers(PointerHandlers) override {}

 private:
  PanelOptions options_;
  Rect frame_;
  bool visible_ = false;
};

class HeadlessSurfaces final : public Surfaces {
 public:
  std::unique_ptr<GooPanel> makePanel(const PanelOptions& options) override {
    return std::make_unique<HeadlessPanel>(options);
  }
  std::vector<ScreenInfo> screens() const override { return {}; }
  Point pointer() const override { return {}; }
  bool isComposited() const override { return false; }
};

}  // namespace zorvane
