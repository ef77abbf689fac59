// FakeAccessibility: an in-memory element tree for tests. Tests build FakeElement trees
// and hang them under a process id; press and setValue record what happened and answer
// with the codes a test chooses. `add` sets the child's parent; a window's folder is
// `folderPath` of the nearest element that has one, as a file manager's location bar
// gives it for the whole window.
#pragma once

#include <map>

#include "platform/accessibility.h"

namespace zorvane {

class FakeElement final : public AccessibleElement, public std::enable_shared_from_this<FakeElement> {
 public:
  std::string roleText, titleText, descriptionText, helpText;
  std::optional<std::string> valueText;
  std::optional<Rect> frameRect;
  std::optional<std::string> urlText, folderPath;
  std::vector<std::shared_ptr<FakeElement>> kids;
  std::weak_ptr<FakeElement> up;
  int frameReads = 0;  // how often frame() was asked
  bool childrenReadable = true;
  int pressCode = 0, setValueCode = 0, raiseCode = 0;
  int presses = 0, raises = 0;
  bool focused = false;

  static std::shared_ptr<FakeElement> make(std::string role, std::string title = "",
                                           std::optional<Rect> frame = std::nullopt) {
    auto element = std::make_shared<FakeElement>();
    element->roleText = std::move(role);
    element->titleText = std::move(title);
    element->frameRect = frame;
    return element;
  }
  std::shared_ptr<FakeElement> add(std::shared_ptr<FakeElement> child) {
    kids.push_back(child);
    child->up = weak_from_this();
    return child;
  }

  std::string role() override { return roleText; }
  std::string title() override { return titleText; }
  std::string description() override { return descriptionText; }
  std::string help() override { return helpText; }
  std::optional<std::string> value() override { return valueText; }
  std::optional<Rect> frame() override {
    ++frameReads;
    return frameRect;
  }
  std::optional<std::vector<std::shared_ptr<AccessibleElement>>> children() override {
    if (!childrenReadable) return std::nullopt;
    return std::vector<std::shared_ptr<AccessibleElement>>(kids.begin(), kids.end());
  }
  std::shared_ptr<AccessibleElement> parent() override { return up.lock(); }
  std::optional<std::string> url() override { return urlText; }
  std::optional<std::string> folder() override {
    for (auto* element = this; element;) {
      if (element->folderPath) return element->folderPath;
      auto next = element->up.lock();
      element = next.get();
    }
    return std::nullopt;
  }
  int press() override {
    ++presses;
    return pressCode;
  }
  int setFocused(bool value) override {
    focused = value;
    return 0;
  }
  int setValue(const std::string& value) override {
    if (setValueCode == 0) valueText = value;
    return setValueCode;
  }
  int raise() override {
    ++raises;
    return raiseCode;
  }
};

class FakeAccessibility final : public AccessibilityService {
 public:
  bool isTrusted = true;
  std::map<int32_t, std::vector<std::shared_ptr<FakeElement>>> windowsByPID;
  // When set, what elementAt answers for any point (a toolkit's answer that the frames
  // don't explain, such as an element without a frame).
  std::shared_ptr<FakeElement> elementAtAnswer;
  int elementAtCalls = 0;

  bool trusted() override { return isTrusted; }
  std::vector<std::shared_ptr<AccessibleElement>> windows(int32_t pid) override {
    auto it = windowsByPID.find(pid);
    if (it == windowsByPID.end()) return {};
    return {it->second.begin(), it->second.end()};
  }
  // The deepest element whose frame holds the point, children searched last to first.
  std::shared_ptr<AccessibleElement> elementAt(int32_t pid, Point at) override {
    ++elementAtCalls;
    if (elementAtAnswer) return elementAtAnswer;
    std::shared_ptr<AccessibleElement> found;
    for (auto& window : windows(pid)) {
      if (auto hit = deepest(window, at)) found = hit;
      if (found) break;
    }
    return found;
  }

 private:
  static std::shared_ptr<AccessibleElement> deepest(const std::shared_ptr<AccessibleElement>& element, Point at) {
    auto frame = element->frame();
    if (!frame || !frame->contains(at)) return nullptr;
    if (auto kids = element->children()) {
      for (auto it = kids->rbegin(); it != kids->rend(); ++it)
        if (auto hit = deepest(*it, at)) return hit;
    }
    return element;
  }
};

}  // namespace zorvane
