#include "ui/shell/space.h"

#include <QGuiApplication>
#include <QScreen>

#include <algorithm>

namespace zorvane {

Space::Space(std::vector<Screen> screens) : screens_(std::move(screens)) {}

Space Space::current() {
  std::vector<Screen> screens;
  for (QScreen* screen : QGuiApplication::screens()) {
    Screen entry = screenOf(screen);
    if (entry.isPrimary)
      screens.insert(screens.begin(), entry);
    else
      screens.push_back(entry);
  }
  return Space(std::move(screens));
}

Space::Screen Space::screenOf(const QScreen* screen) {
  // QScreen::geometry is the native geometry with its size divided by the ratio.
  QRect logical = screen->geometry();
  double ratio = screen->devicePixelRatio();
  return {{double(logical.x()), double(logical.y()), logical.width() * ratio, logical.height() * ratio}, ratio,
          screen == QGuiApplication::primaryScreen()};
}

Rect Space::logicalFrame(const Screen& screen) {
  return {screen.native.x, screen.native.y, screen.native.width / screen.ratio, screen.native.height / screen.ratio};
}

const Space::Screen* Space::screenAt(Point point, bool native) const {
  for (const Screen& screen : screens_)
    if ((native ? screen.native : logicalFrame(screen)).contains(point)) return &screen;
  auto primary = std::find_if(screens_.begin(), screens_.end(), [](const Screen& s) { return s.isPrimary; });
  if (primary != screens_.end()) return &*primary;
  return screens_.empty() ? nullptr : &screens_.front();
}

static Point center(const Rect& rect) { return {rect.x + rect.width / 2, rect.y + rect.height / 2}; }

Point Space::toLogical(Point native) const {
  const Screen* screen = screenAt(native, true);
  if (!screen) return native;
  Point origin = screen->native.origin();
  return origin + (native - origin) * (1 / screen->ratio);
}

Rect Space::toLogical(const Rect& native) const {
  const Screen* screen = screenAt(center(native), true);
  if (!screen) return native;
  Point origin = screen->native.origin();
  Point corner = origin + (native.origin() - origin) * (1 / screen->ratio);
  return {corner.x, corner.y, native.width / screen->ratio, native.height / screen->ratio};
}

Point Space::toNative(Point logical) const {
  const Screen* screen = screenAt(logical, false);
  if (!screen) return logical;
  Point origin = screen->native.origin();
  return origin + (logical - origin) * screen->ratio;
}

Rect Space::toNative(const Rect& logical) const {
  const Screen* screen = screenAt(center(logical), false);
  if (!screen) return logical;
  Point origin = screen->native.origin();
  Point corner = origin + (logical.origin() - origin) * screen->ratio;
  return {corner.x, corner.y, logical.width * screen->ratio, logical.height * screen->ratio};
}

}  // namespace zorvane
