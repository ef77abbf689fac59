#include "ui/shell/status_item.h"

#include <QCursor>
#include <QIcon>
#include <QKeySequence>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QRadialGradient>
#include <QSystemTrayIcon>

#include "core/base/log.h"

namespace zorvane {

static const QString kName = QStringLiteral("Zorvane");

StatusMenu::StatusMenu(StatusMenuProvider provider, QWidget* parent)
    : QMenu(kName, parent), provider_(std::move(provider)) {
  setAccessibleName(kName);
  setToolTipsVisible(true);
  connect(this, &QMenu::aboutToShow, this, &StatusMenu::rebuild);
}

void StatusMenu::rebuild() {
  clear();
  if (!provider_) return;
  for (StatusMenuRow& row : provider_()) {
    if (row.kind == StatusMenuRow::Kind::separator) {
      addSeparator();
      continue;
    }
    QAction* action = addAction(QString::fromStdString(row.title));
    action->setEnabled(row.enabled);
    action->setToolTip(QString::fromStdString(row.tooltip));
    if (!row.shortcut.empty())
      action->setShortcut(QKeySequence(QStringLiteral("Ctrl+") + QString::fromStdString(row.shortcut)));
    if (row.action) connect(action, &QAction::triggered, this, [run = std::move(row.action)] { run(); });
  }
}

StatusItem::StatusItem(StatusMenuProvider provider) {
  if (!QSystemTrayIcon::isSystemTrayAvailable()) {
    Log::info("status item: the desktop has no status area (system tray); no icon is shown");
    return;
  }
  menu_ = std::make_unique<StatusMenu>(std::move(provider));
  tray_ = std::make_unique<QSystemTrayIcon>(icon());
  tray_->setToolTip(kName);
  tray_->setContextMenu(menu_.get());
  // A plain click opens the menu too, as a status item's does.
  QObject::connect(tray_.get(), &QSystemTrayIcon::activated, menu_.get(), [menu = menu_.get()](auto reason) {
    if (reason == QSystemTrayIcon::Trigger) menu->popup(QCursor::pos());
  });
  tray_->show();
}

StatusItem::~StatusItem() = default;

// A drop standing on its round end, point up: dark, lit from the upper left, with a
// faint rim so that it reads on dark panels too.
static QPixmap drawDrop(int size) {
  QPixmap pixmap(size, size);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  painter.setRenderHint(QPainter::Antialiasing);

  const double s = size;
  const double radius = s * 0.32;
  const QPointF centre(s * 0.5, s * 0.62);
  QPainterPath drop;
  drop.moveTo(s * 0.5, s * 0.06);
  drop.cubicTo(s * 0.60, s * 0.22, centre.x() + radius, centre.y() - radius * 0.55, centre.x() + radius, centre.y());
  drop.arcTo(QRectF(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius), 0, -180);
  drop.cubicTo(centre.x() - radius, centre.y() - radius * 0.55, s * 0.40, s * 0.22, s * 0.5, s * 0.06);
  drop.closeSubpath();

  QRadialGradient body(centre - QPointF(radius * 0.4, radius * 0.5), radius * 1.6);
  body.setColorAt(0, QColor(0x4a, 0x4a, 0x5c));
  body.setColorAt(1, QColor(0x12, 0x12, 0x18));
  painter.setPen(QPen(QColor(255, 255, 255, 70), std::max(1.0, s / 24)));
  painter.setBrush(body);
  painter.drawPath(drop);

  QRadialGradient gloss(centre - QPointF(radius * 0.4, radius * 0.45), radius * 0.45);
  gloss.setColorAt(0, QColor(255, 255, 255, 200));
  gloss.setColorAt(1, QColor(255, 255, 255, 0));
  painter.setPen(Qt::NoPen);
  painter.setBrush(gloss);
  painter.drawEllipse(centre - QPointF(radius * 0.4, radius * 0.45), radius * 0.45, radius * 0.32);
  return pixmap;
}

QIcon StatusItem::icon() {
  QIcon icon;
  for (int size : {16, 22, 24, 32, 48, 64, 128}) icon.addPixmap(drawDrop(size));
  return icon;
}

}  // namespace zorvane
