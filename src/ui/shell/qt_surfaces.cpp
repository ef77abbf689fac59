#include "ui/shell/qt_surfaces.h"

#include <QColor>
#include <QCursor>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QQuickItem>
#include <QQuickWindow>
#include <QScreen>
#include <QRegion>
#include <QSurfaceFormat>
#include <QPointer>
#include <QTimer>
#include <xcb/xcb.h>

#include <algorithm>
#include <cmath>

#include "core/base/file_io.h"
#include "core/base/json_value.h"
#include "core/base/log.h"
#include "core/goo/ink_tokens.h"
#include "core/ink/goo_scene_coding.h"
#include "platform/compositor.h"
#include "ui/ink_view.h"
#include "ui/shell/space.h"

namespace zorvane {

// The live panels of one QtSurfaces, and the count of `orderFront` calls that orders
// them within a level.
struct PanelStack {
  std::vector<QtPanel*> panels;
  uint64_t fronts = 0;
  bool composited = true;
  bool keepsScenes = false;
};

// Takes the left button over the whole panel and reports the gesture in screen
// coordinates. `moved` sticks once the pointer went more than 4 points from the press.
// It watches the window's own events rather than being an item: Qt Quick drops an
// item's grab when the application loses focus (a window that opens elsewhere mid-pull),
// while the X server keeps sending the pointer to the window that was pressed until the
// button goes up. Every down gets its up: when the window is hidden mid-drag, the up
// comes where the pointer was last seen.
class PanelPointer final : public QObject {
 public:
  explicit PanelPointer(QWindow* window) : QObject(window) { window->installEventFilter(this); }

  void setHandlers(PointerHandlers handlers) {
    handlers_ = std::move(handlers);
    if (!handlers_.onDown && !handlers_.onDrag && !handlers_.onUp) pressed_ = false;
  }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    bool any = handlers_.onDown || handlers_.onDrag || handlers_.onUp;
    switch (event->type()) {
      case QEvent::MouseButtonPress:
      case QEvent::MouseButtonDblClick: {
        auto* mouse = static_cast<QMouseEvent*>(event);
        if (!any || mouse->button() != Qt::LeftButton) return any;
        if (event->type() == QEvent::MouseButtonDblClick || pressed_) return true;
        press_ = last_ = mouse->globalPosition();
        pressed_ = true;
        moved_ = false;
        // A copy: the handler may replace the handlers, or destroy the panel.
        if (auto onDown = handlers_.onDown) onDown(screenPoint(last_));
        return true;
      }
      case QEvent::MouseMove: {
        if (!pressed_) return any;
        last_ = static_cast<QMouseEvent*>(event)->globalPosition();
        QPointF travel = last_ - press_;
        moved_ = moved_ || std::hypot(travel.x(), travel.y()) > 4;
        if (auto onDrag = handlers_.onDrag) onDrag(screenPoint(last_));
        return true;
      }
      case QEvent::MouseButtonRelease: {
        auto* mouse = static_cast<QMouseEvent*>(event);
        if (!pressed_ || mouse->button() != Qt::LeftButton) return any;
        last_ = mouse->globalPosition();
        up();
        return true;
      }
      case QEvent::Hide:
        up();
        return false;
      default:
        return QObject::eventFilter(watched, event);
    }
  }

 private:
  void up() {
    if (!pressed_) return;
    pressed_ = false;
    if (auto onUp = handlers_.onUp) onUp(screenPoint(last_), moved_);
  }
  static Point screenPoint(QPointF global) { return Space::current().toNative(Point{global.x(), global.y()}); }

  PointerHandlers handlers_;
  QPointF press_, last_;
  bool pressed_ = false;
  bool moved_ = false;
};

// Keeps `item` the size of its parent.
static void fillParent(QQuickItem* item) {
  QQuickItem* parent = item->parentItem();
  auto resize = [item, parent] { item->setSize(parent->size()); };
  QObject::connect(parent, &QQuickItem::widthChanged, item, resize);
  QObject::connect(parent, &QQuickItem::heightChanged, item, resize);
  resize();
}

// Whole pixels, edges rounded, at least one pixel wide and high.
static QRect pixelRect(const Rect& rect) {
  int x0 = int(std::lround(rect.minX())), y0 = int(std::lround(rect.minY()));
  int x1 = int(std::lround(rect.maxX())), y1 = int(std::lround(rect.maxY()));
  return QRect(x0, y0, std::max(1, x1 - x0), std::max(1, y1 - y0));
}

static Rect toRect(const QRect& rect) {
  return {double(rect.x()), double(rect.y()), double(rect.width()), double(rect.height())};
}

// Asks for the keyboard focus when the window is pressed. The panels bypass the window
// manager, which gives the focus on a click only to windows it manages: without this,
// a click into a bubble's field after the user worked in another window would leave
// the keys going there.
class FocusOnPress final : public QObject {
 public:
  FocusOnPress(QWindow* window, std::function<void()> takeKeys)
      : QObject(window), takeKeys_(std::move(takeKeys)) {
    window->installEventFilter(this);
  }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    if (event->type() == QEvent::MouseButtonPress && !static_cast<QWindow*>(watched)->isActive()) takeKeys_();
    return false;
  }

 private:
  std::function<void()> takeKeys_;
};

// --- QtPanel ---------------------------------------------------------------------------

QtPanel::QtPanel(const PanelOptions& options, std::shared_ptr<PanelStack> stack)
    : options_(options), stack_(std::move(stack)), window_(new QQuickWindow) {
  Qt::WindowFlags flags = Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                          Qt::X11BypassWindowManagerHint;
  if (!options_.acceptsKey) flags |= Qt::WindowDoesNotAcceptFocus;
  if (options_.clickThrough) flags |= Qt::WindowTransparentForInput;
  window_->setFlags(flags);
  QSurfaceFormat format = QSurfaceFormat::defaultFormat();
  format.setAlphaBufferSize(8);
  window_->setFormat(format);
  window_->setColor(Qt::transparent);
  // Qt Quick names a window to the accessibility tree by its title.
  window_->setTitle(QString::fromStdString(options_.name));
  window_->setObjectName(window_->title());
  stack_->panels.push_back(this);
  if (!stack_->composited) setComposited(false);
  if (options_.acceptsKey) new FocusOnPress(window_, [this] { takeKeys(); });
}

QtPanel::~QtPanel() {
  std::erase(stack_->panels, this);
  // Nothing of the owner's is called from here on, even before the window is gone.
  if (ink_) {
    ink_->setScene({});
    ink_->setPaused(true);
  }
  if (pointer_) pointer_->setHandlers({});
  window_->hide();
  window_->deleteLater();  // this may run inside the window's own event delivery
}

void QtPanel::setFrame(const Rect& frame) {
  if (frame == frame_) return;
  frame_ = frame;
  if (!frame_.isEmpty()) window_->setGeometry(pixelRect(Space::current().toLogical(frame_)));
  updateShown();
}

void QtPanel::orderFront() {
  visible_ = true;
  frontOrder_ = ++stack_->fronts;
  updateShown();
  if (!window_->isVisible()) return;
  window_->raise();
  raiseHigherPanels();
}

void QtPanel::orderOut() {
  visible_ = false;
  wantsKey_ = false;
  updateShown();
}

void QtPanel::makeKey() {
  orderFront();
  if (!options_.acceptsKey) return;
  // The frame may come after this call; the keys are taken once the window shows.
  wantsKey_ = true;
  if (window_->isVisible()) takeKeys();
}

void QtPanel::takeKeys() {
  wantsKey_ = false;
  window_->requestActivate();
  // Qt gives the X server the time of the last event this program saw, and the server
  // ignores a focus request older than the last change of focus: a panel shown a while
  // after the user last touched Zorvane would not get the keys. The panel asks again
  // with the current time once the server has mapped it.
  auto tries = std::make_shared<int>(0);
  QPointer<QQuickWindow> window = window_;
  auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
  if (x11 && window_->isExposed()) {
    xcb_set_input_focus(x11->connection(), XCB_INPUT_FOCUS_PARENT, xcb_window_t(window_->winId()), XCB_CURRENT_TIME);
    xcb_flush(x11->connection());
    return;
  }
  auto* timer = new QTimer(window_);
  QObject::connect(timer, &QTimer::timeout, timer, [timer, tries, window] {
    if (window && window->isExposed()) {
      if (auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>()) {
        xcb_set_input_focus(x11->connection(), XCB_INPUT_FOCUS_PARENT, xcb_window_t(window->winId()),
                            XCB_CURRENT_TIME);
        xcb_flush(x11->connection());
      }
    } else if (++*tries < 50) {
      return;
    }
    timer->deleteLater();
  });
  timer->start(20);
}

void QtPanel::setClickThrough(bool clickThrough) {
  if (clickThrough == options_.clickThrough) return;
  options_.clickThrough = clickThrough;
  window_->setFlag(Qt::WindowTransparentForInput, clickThrough);
  updateCut();
}

void QtPanel::setInk(int framesPerSecond, InkScene scene) {
  if (!ink_) {
    ink_ = new InkView(window_->contentItem());
    fillParent(ink_);
    ink_->setClipRects(clip_);
    ink_->setPaused(!window_->isVisible());
    ink_->setKeepsScene(stack_->keepsScenes);
    ink_->onFrame = [this](const InkFrame& frame) { frameHandedOff(frame); };
  }
  ink_->setPreferredFramesPerSecond(framesPerSecond);
  ink_->setScene(std::move(scene));
}

void QtPanel::setInkRate(int framesPerSecond) {
  if (ink_ && ink_->preferredFramesPerSecond() != framesPerSecond) ink_->setPreferredFramesPerSecond(framesPerSecond);
}

void QtPanel::setInkClip(std::optional<std::vector<Rect>> rects) {
  clip_ = std::move(rects);
  shape_.clear();  // the window's cut is worked out again with the next frame
  if (ink_) ink_->setClipRects(clip_);
}

void QtPanel::setPointerHandlers(PointerHandlers handlers) {
  if (!pointer_) pointer_ = new PanelPointer(window_);
  pointer_->setHandlers(std::move(handlers));
}

void QtPanel::setComposited(bool composited) {
  if (composited == composited_) return;
  composited_ = composited;
  shape_.clear();
  if (composited) {
    window_->setColor(Qt::transparent);
    window_->setMask(QRegion());
    return;
  }
  const auto& grey = Ink::Surface::panelBackdrop;
  window_->setColor(QColor::fromRgbF(grey[0], grey[1], grey[2]));
  updateCut();
}

void QtPanel::updateCut() {
  if (composited_) return;
  shape_.clear();
  // A panel that takes the pointer keeps all of its area; one the pointer passes through
  // shows nothing until its goo has a frame.
  window_->setMask(options_.clickThrough ? QRegion(0, 0, 1, 1) : QRegion());
}

void QtPanel::frameHandedOff(const InkFrame& frame) {
  if (composited_ || !options_.clickThrough) return;
  // The tiles the frame colours, a row at a time, runs of neighbours merged.
  std::vector<QRect> shape;
  const InkPipeline::Binned& binned = frame.binned;
  if (frame.hasShapes()) {
    double tile = binned.tileSize;
    for (int row = 0; row < binned.tilesY; ++row) {
      int run = -1;
      for (int column = 0; column <= binned.tilesX; ++column) {
        size_t index = size_t(row) * binned.tilesX + column;
        bool covered = column < binned.tilesX && 2 * index + 1 < binned.ranges.size() && binned.ranges[2 * index + 1] > 0;
        if (covered && run < 0) run = column;
        if (covered || run < 0) continue;
        int x0 = int(std::floor(run * tile)), x1 = int(std::ceil(column * tile));
        int y0 = int(std::floor(row * tile)), y1 = int(std::ceil((row + 1) * tile));
        shape.emplace_back(x0, y0, x1 - x0, y1 - y0);
        run = -1;
      }
    }
  }
  if (shape == shape_) return;
  shape_ = shape;
  QRegion region;
  for (const QRect& rect : shape) region += rect;
  if (clip_) {
    QRegion clip;
    for (const Rect& rect : *clip_) clip += pixelRect(rect);
    region &= clip;
  }
  window_->setMask(region.isEmpty() ? QRegion(0, 0, 1, 1) : region);
}

void QtPanel::updateShown() {
  bool show = visible_ && !frame_.isEmpty();
  if (show != window_->isVisible()) window_->setVisible(show);
  if (ink_) ink_->setPaused(!show);
  if (show && wantsKey_) takeKeys();
}

void QtPanel::raiseHigherPanels() {
  std::vector<QtPanel*> higher;
  for (QtPanel* panel : stack_->panels)
    if (panel->options_.level > options_.level && panel->window_->isVisible()) higher.push_back(panel);
  std::sort(higher.begin(), higher.end(), [](const QtPanel* a, const QtPanel* b) {
    return std::pair(a->options_.level, a->frontOrder_) < std::pair(b->options_.level, b->frontOrder_);
  });
  for (QtPanel* panel : higher) panel->window_->raise();
}

// --- QtSurfaces ------------------------------------------------------------------------

QtSurfaces::QtSurfaces() : stack_(std::make_shared<PanelStack>()) {
  prepareGraphics();
  auto* app = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
  if (!app) return;
  QObject::connect(app, &QGuiApplication::screenAdded, &context_, [this](QScreen* screen) {
    watchScreen(screen);
    screensChanged();
  });
  QObject::connect(app, &QGuiApplication::screenRemoved, &context_, [this] { screensChanged(); });
  QObject::connect(app, &QGuiApplication::primaryScreenChanged, &context_, [this] { screensChanged(); });
  for (QScreen* screen : QGuiApplication::screens()) watchScreen(screen);
  checkCompositor();
  // A compositor may start or stop while the application runs; looking every two
  // seconds costs a round trip to the X server.
  auto* timer = new QTimer(&context_);
  QObject::connect(timer, &QTimer::timeout, &context_, [this] { checkCompositor(); });
  timer->start(2000);
}

QtSurfaces::~QtSurfaces() = default;

void QtSurfaces::checkCompositor() {
  bool now = compositorRunning();
  if (checkedCompositor_ && now == composited_) return;
  bool first = !checkedCompositor_;
  checkedCompositor_ = true;
  if (!first || !now) {
    Log::info(now ? "compositor running: the goo is drawn over what lies below again"
                  : "no compositor: the goo is drawn on an opaque backdrop (start one, such as xcompmgr or picom, "
                    "for transparency)");
  }
  composited_ = now;
  stack_->composited = now;
  for (QtPanel* panel : stack_->panels) panel->setComposited(now);
}

void QtSurfaces::keepScenes() {
  stack_->keepsScenes = true;
  for (QtPanel* panel : stack_->panels)
    if (panel->inkView()) panel->inkView()->setKeepsScene(true);
}

void QtSurfaces::setInkFrozen(bool frozen) {
  for (QtPanel* panel : stack_->panels) {
    InkView* ink = panel->inkView();
    if (!ink) continue;
    ink->setPaused(frozen || !panel->window()->isVisible());
  }
}

bool QtSurfaces::isInkInFlight() const {
  for (QtPanel* panel : stack_->panels)
    if (panel->inkView() && panel->inkView()->isInFlight()) return true;
  return false;
}

int QtSurfaces::dumpInk(const std::string& folder) const {
  int written = 0;
  for (size_t i = 0; i < stack_->panels.size(); ++i) {
    QtPanel* panel = stack_->panels[i];
    InkView* ink = panel->inkView();
    if (!ink || !panel->isVisible() || !panel->window()->isVisible()) continue;
    JSONValue json = encodeGooScene(ink->lastScene());
    Rect frame = panel->frame();
    json["panel"] = panel->options().name;
    json["frame"] = {frame.x, frame.y, frame.width, frame.height};
    json["size"] = {ink->width(), ink->height()};
    json["scale"] = ink->scale();
    json["time"] = ink->lastSceneTime();
    std::string name;
    for (char c : panel->options().name) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '-';
    std::string path = folder + "/" + std::to_string(i) + "-" + name + ".json";
    if (writeFileAtomically(path, json.dump(2))) ++written;
  }
  return written;
}

void QtSurfaces::prepareGraphics() {
  QQuickWindow::setGraphicsApi(QSGRendererInterface::OpenGL);
  QSurfaceFormat format = QSurfaceFormat::defaultFormat();
  if (format.alphaBufferSize() < 8) {
    format.setAlphaBufferSize(8);
    QSurfaceFormat::setDefaultFormat(format);
  }
}

void QtSurfaces::watchScreen(QScreen* screen) {
  QObject::connect(screen, &QScreen::geometryChanged, &context_, [this] { screensChanged(); });
  QObject::connect(screen, &QScreen::availableGeometryChanged, &context_, [this] { screensChanged(); });
}

void QtSurfaces::screensChanged() {
  if (onScreensChanged) onScreensChanged();
}

std::unique_ptr<GooPanel> QtSurfaces::makePanel(const PanelOptions& options) {
  return std::make_unique<QtPanel>(options, stack_);
}

std::vector<ScreenInfo> QtSurfaces::screens() const {
  std::vector<ScreenInfo> screens;
  for (QScreen* qtScreen : QGuiApplication::screens()) {
    Space::Screen screen = Space::screenOf(qtScreen);
    // The visible part lies inside the screen, so it converts on the screen's terms.
    ScreenInfo info{screen.native, Space({screen}).toNative(toRect(qtScreen->availableGeometry())), screen.isPrimary};
    if (info.isPrimary)
      screens.insert(screens.begin(), info);
    else
      screens.push_back(info);
  }
  return screens;
}

Point QtSurfaces::pointer() const {
  QPoint logical = QCursor::pos();
  return Space::current().toNative(Point{double(logical.x()), double(logical.y())});
}


}  // namespace zorvane
