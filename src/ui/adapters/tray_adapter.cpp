#include "ui/adapters/tray_adapter.h"

#include <QPointer>

#include <algorithm>
#include <cmath>

namespace zorvane {

namespace {

QString dotName(TrayModel::LiveRow::Dot dot) {
  switch (dot) {
    case TrayModel::LiveRow::Dot::orange:
      return "orange";
    case TrayModel::LiveRow::Dot::blue:
      return "blue";
    case TrayModel::LiveRow::Dot::green:
      break;
  }
  return "green";
}

}  // namespace

// --- The live rows ---

int TrayLiveRows::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : int(rows_.size());
}

QVariant TrayLiveRows::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() < 0 || size_t(index.row()) >= rows_.size()) return {};
  const TrayModel::LiveRow& row = rows_[size_t(index.row())];
  switch (role) {
    case PieceNameRole:
      return QString::fromStdString(row.name);
    case CaptionRole:
      return QString::fromStdString(row.caption());
    case ImageRole:
      return QString::fromStdString(row.image());
    case DotRole:
      return dotName(row.dot());
    default:
      return {};
  }
}

QHash<int, QByteArray> TrayLiveRows::roleNames() const {
  return {{PieceNameRole, "pieceName"}, {CaptionRole, "caption"}, {ImageRole, "image"}, {DotRole, "dot"}};
}

void TrayLiveRows::update(const std::vector<TrayModel::LiveRow>& rows) {
  // Row by row from the top: a piece already here further down moves up to its place,
  // a new one is inserted; what is left below the new rows has gone.
  for (size_t i = 0; i < rows.size(); ++i) {
    const TrayModel::LiveRow& wanted = rows[i];
    auto found = std::find_if(rows_.begin() + qsizetype(i), rows_.end(),
                              [&wanted](const TrayModel::LiveRow& row) { return row.id == wanted.id; });
    int at = int(i);
    if (found == rows_.end()) {
      beginInsertRows(QModelIndex(), at, at);
      rows_.insert(rows_.begin() + at, wanted);
      endInsertRows();
      continue;
    }
    int from = int(found - rows_.begin());
    if (from != at) {
      beginMoveRows(QModelIndex(), from, from, QModelIndex(), at);
      std::rotate(rows_.begin() + at, rows_.begin() + from, rows_.begin() + from + 1);
      endMoveRows();
    }
    if (!(rows_[i] == wanted)) {
      rows_[i] = wanted;
      QModelIndex changed = index(at);
      Q_EMIT dataChanged(changed, changed);
    }
  }
  if (rows_.size() > rows.size()) {
    beginRemoveRows(QModelIndex(), int(rows.size()), int(rows_.size()) - 1);
    rows_.resize(rows.size());
    endRemoveRows();
  }
}

std::optional<UUID> TrayLiveRows::idAt(int row) const {
  if (row < 0 || size_t(row) >= rows_.size()) return std::nullopt;
  return rows_[size_t(row)].id;
}

// --- The adapter ---

TrayAdapter::TrayAdapter(std::weak_ptr<TrayController> tray, QObject* parent)
    : QObject(parent), tray_(std::move(tray)), live_(this) {
  if (auto t = tray_.lock()) {
    QPointer<TrayAdapter> self(this);
    t->model().onChange = [self] {
      if (self) self->refresh();
    };
    t->fittingSize = [self]() -> std::optional<Size> { return self ? self->contentSize_ : std::nullopt; };
  }
  refresh();
}

void TrayAdapter::refresh() {
  auto tray = tray_.lock();
  if (!tray) return;
  const TrayModel& model = tray->model();
  hasContent_ = model.hasContent();
  notchWidth_ = model.notchWidth;
  restoring_ = model.restoring;
  if (model.restore.empty()) {
    restoreHeading_.clear();
    restoreMore_.clear();
    restoreNames_.clear();
  } else {
    restoreHeading_ = QString::fromStdString(model.restoreHeading());
    restoreMore_ = QString::fromStdString(model.restoreMore().value_or(""));
    restoreNames_.clear();
    for (const std::string& name : model.restoreNames()) restoreNames_ << QString::fromStdString(name);
  }
  message_ = model.message ? std::optional<QString>(QString::fromStdString(*model.message)) : std::nullopt;
  live_.update(model.live);
  Q_EMIT changed();
}

void TrayAdapter::focusPiece(int row) {
  auto tray = tray_.lock();
  if (!tray) return;
  if (auto id = live_.idAt(row)) tray->focusPiece(*id);
}

void TrayAdapter::restoreAll() {
  if (auto tray = tray_.lock()) tray->restoreAll();
}

void TrayAdapter::dismissRestore() {
  if (auto tray = tray_.lock()) tray->dismissRestore();
}

void TrayAdapter::setContentSize(double width, double height) {
  Size size{std::ceil(width), std::ceil(height)};
  if (size.width <= 0 || size.height <= 0 || contentSize_ == size) return;
  contentSize_ = size;
  // While it shows, the panel follows at once rather than on the tray's next tick.
  if (auto tray = tray_.lock(); tray && tray->panel().isVisible()) tray->layout();
}

}  // namespace zorvane
