// FakeSurfaces: panels in memory, for controller tests. Every panel made stays listed in
// `panels` (by pointer, also after its owner dropped it: `alive` turns false), so a test
// can read frames, visibility and the ink scene, and press the pointer on a panel.
#pragma once

#include <memory>
#include <vector>

#include "platform/surfaces.h"

namespace zorvane {

class FakePanel final : public GooPanel {
 public:
  struct Record {
    PanelOptions options;
    Rect frame;
    bool visible = false;
    bool isKey = false;
    bool alive = true;
    int orderFrontCount = 0;
    int setFrameCount = 0;
    int framesPerSecond = 0;
    InkScene scene;
    std::optional<std::vector<Rect>> clip;
    PointerHandlers pointer;
  };

  explicit FakePanel(std::shared_ptr<Record> record) : record_(std::move(record)) {}
  ~FakePanel() override {
    record_->alive = false;
    record_->visible = false;
  }

  const PanelOptions& options() const override { return record_->options; }
  Rect frame() const override { return record_->frame; }
  void setFrame(const Rect& frame) override {
    record_->frame = frame;
    record_->setFrameCount++;
  }
  bool isVisible() const override { return record_->visible; }
  void orderFront() override {
    record_->visible = true;
    record_->orderFrontCount++;
  }
  void orderOut() override {
    record_->visible = false;
    record_->isKey = false;
  }
  void makeKey() override {
    record_->visible = true;
    record_->isKey = record_->options.acceptsKey;
  }
  void setClickThrough(bool clickThrough) override { record_->options.clickThrough = clickThrough; }
  void setInk(int framesPerSecond, InkScene scene) override {
    record_->framesPerSecond = framesPerSecond;
    record_->scene = std::move(scene);
  }
  void setInkRate(int framesPerSecond) override { record_->framesPerSecond = framesPerSecond; }
  void setInkClip(std::optional<std::vector<Rect>> rects) override { record_->clip = std::move(rects); }
  void setPointerHandlers(PointerHandlers handlers) override { record_->pointer = std::move(handlers); }

 private:
  std::shared_ptr<Record> record_;
};

class FakeSurfaces final : public Surfaces {
 public:
  std::vector<ScreenInfo> screenList{{{0, 0, 1920, 1080}, {0, 28, 1920, 1052}, true}};
  Point pointerAt;
  bool composited = true;
  std::vector<std::shared_ptr<FakePanel::Record>> panels;

  std::unique_ptr<GooPanel> makePanel(const PanelOptions& options) override {
    auto record = std::make_shared<FakePanel::Record>();
    record->options = options;
    panels.push_back(record);
    return std::make_unique<FakePanel>(record);
  }
  std::vector<ScreenInfo> screens() const override { return screenList; }
  Point pointer() const override { return pointerAt; }
  bool isComposited() const override { return composited; }

  // The live panels named `name`, oldest first.
  std::vector<std::shared_ptr<FakePanel::Record>> named(const std::string& name) const {
    std::vector<std::shared_ptr<FakePanel::Record>> found;
    for (const auto& panel : panels)
      if (panel->alive && panel->options.name == name) found.push_back(panel);
    return found;
  }
};

}  // namespace zorvane
