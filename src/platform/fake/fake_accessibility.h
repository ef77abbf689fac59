// FakeAccessibility: an in-memory element tree for tests. Tests build FakeElement trees
// and hang them under a process id; press and setValue record what happened and answer
// with the codes a test chooses.
#pragma once

#include <map>

#include "platform/accessibility.h"

namespace zorvane {

class FakeElement final : public AccessibleElement, public std::enable_shared_from_this<FakeElement> {
 public:
  std::string roleText, titleText, descriptionText, helpText;
  std::optional<std::string> valueText;
  std::optional<Rect> frameRect;
  std::vector<std::shared_ptr<FakeElement>> kids;
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
    return child;
  }

  std::string role() override { return roleText; }
  std::string title() override { return titleText; }
  std::string description() override { return descriptionText; }
  std::string help() override { return helpText; }
  std::optional<std::string> value() override { return valueText; }
  std::optional<Rect> frame() override { return frameRect; }
  std::optional<std::vector<std::shared_ptr<AccessibleElement>>> children() override {
    if (!childrenReadable) return std::nullopt;
    return std::vector<std::shared_ptr<AccessibleElement>>(kids.begin(), kids.end());
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

  bool trusted() override { return isTrusted; }
  std::vector<std::shared_ptr<AccessibleElement>> windows(int32_t pid) override {
    auto it = windowsByPID.find(pid);
    if (it == windowsByPID.end()) return {};
    return {it->second.begin(), it->second.end()};
  }
  // The deepest element whose frame holds the point, children searched last to first.
  std::shared_ptr<AccessibleElement> elementAt(int32_t pid, Point at) override {
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
