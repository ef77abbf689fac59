// TrayAdapter: the tray under the goo before Qt Quick. It reads TrayModel after every
// change and publishes it as typed properties, the live pieces as a list model that says
// which rows came, went, moved or changed; the view's rows and buttons call the tray's
// actions through it one to one. The view reports the size its content wants, which the
// tray's layout takes as its fitting size.
//
// Main thread. It holds the tray weakly: once the tray is gone, actions do nothing.
#pragma once

#include <QAbstractListModel>
#include <QObject>
#include <QStringList>
#include <QtQml/qqmlregistration.h>

#include <memory>
#include <optional>
#include <vector>

#include "app/notch/tray_controller.h"

namespace zorvane {

// The rows under "ON SCREEN", one a live piece, keyed by the piece's id: a refresh
// inserts, removes, moves or changes only the rows that differ.
class TrayLiveRows final : public QAbstractListModel {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("the tray adapter's rows")

 public:
  // Named like the row delegate's required properties.
  enum Role {
    PieceNameRole = Qt::UserRole + 1,  // pieceName: the piece's name
    CaptionRole,                       // caption: "needs you", "working" or ""
    ImageRole,                         // image: the kind's image ("folder", "doc", "globe", "macwindow")
    DotRole,                           // dot: "orange", "green" or "blue"
  };

  explicit TrayLiveRows(QObject* parent) : QAbstractListModel(parent) {}

  int rowCount(const QModelIndex& parent = QModelIndex()) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QHash<int, QByteArray> roleNames() const override;

  // Brings the rows to `rows`, saying what changed.
  void update(const std::vector<TrayModel::LiveRow>& rows);
  // The piece of a row; nothing for a row that isn't there.
  [[nodiscard]] std::optional<UUID> idAt(int row) const;

 private:
  std::vector<TrayModel::LiveRow> rows_;
};

class TrayAdapter final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made for the tray by the card views")

  // The pill without content
  Q_PROPERTY(bool hasContent READ hasContent NOTIFY changed FINAL)
  Q_PROPERTY(QString emptyImage READ emptyImage CONSTANT FINAL)
  Q_PROPERTY(QString emptyText READ emptyText CONSTANT FINAL)
  Q_PROPERTY(double notchWidth READ notchWidth NOTIFY changed FINAL)
  // Live pieces
  Q_PROPERTY(bool showsLive READ showsLive NOTIFY changed FINAL)
  Q_PROPERTY(QString liveHeading READ liveHeading CONSTANT FINAL)
  Q_PROPERTY(zorvane::TrayLiveRows* live READ live CONSTANT FINAL)
  // The offer to restore
  Q_PROPERTY(bool showsRestore READ showsRestore NOTIFY changed FINAL)
  Q_PROPERTY(QString restoreImage READ restoreImage CONSTANT FINAL)
  Q_PROPERTY(QString restoreHeading READ restoreHeading NOTIFY changed FINAL)
  Q_PROPERTY(QStringList restoreNames READ restoreNames NOTIFY changed FINAL)
  Q_PROPERTY(QString restoreMore READ restoreMore NOTIFY changed FINAL)
  Q_PROPERTY(QString dismissTitle READ dismissTitle CONSTANT FINAL)
  Q_PROPERTY(QString restoreTitle READ restoreTitle CONSTANT FINAL)
  Q_PROPERTY(bool restoring READ restoring NOTIFY changed FINAL)
  // The message
  Q_PROPERTY(bool showsMessage READ showsMessage NOTIFY changed FINAL)
  Q_PROPERTY(QString message READ message NOTIFY changed FINAL)

 public:
  // Reads the tray's model at once and after each of its changes, and answers the tray's
  // fitting size from then on.
  explicit TrayAdapter(std::weak_ptr<TrayController> tray, QObject* parent = nullptr);

  bool hasContent() const { return hasContent_; }
  static QString emptyImage() { return q(TrayModel::emptyImage); }
  static QString emptyText() { return q(TrayModel::emptyText); }
  double notchWidth() const { return notchWidth_; }
  bool showsLive() const { return live_.rowCount() > 0; }
  static QString liveHeading() { return q(TrayModel::liveHeading); }
  TrayLiveRows* live() { return &live_; }
  bool showsRestore() const { return !restoreHeading_.isEmpty(); }
  static QString restoreImage() { return q(TrayModel::restoreImage); }
  QString restoreHeading() const { return restoreHeading_; }
  QStringList restoreNames() const { return restoreNames_; }
  QString restoreMore() const { return restoreMore_; }
  static QString dismissTitle() { return q(TrayModel::dismissTitle); }
  static QString restoreTitle() { return q(TrayModel::restoreTitle); }
  bool restoring() const { return restoring_; }
  bool showsMessage() const { return message_.has_value(); }
  QString message() const { return message_.value_or(QString()); }

  // --- Actions ---
  // A click or Return on a live row.
  Q_INVOKABLE void focusPiece(int row);
  Q_INVOKABLE void restoreAll();
  Q_INVOKABLE void dismissRestore();
  // The view's content asks for this size, in points; the panel follows while it shows.
  Q_INVOKABLE void setContentSize(double width, double height);

  // Reads the tray's model again (after each of its changes).
  void refresh();
  // What the view last asked for; nothing before it did.
  [[nodiscard]] std::optional<Size> contentSize() const { return contentSize_; }

 Q_SIGNALS:
  void changed();

 private:
  static QString q(std::string_view text) { return QString::fromUtf8(text.data(), qsizetype(text.size())); }

  std::weak_ptr<TrayController> tray_;
  TrayLiveRows live_;
  bool hasContent_ = false;
  bool restoring_ = false;
  double notchWidth_ = 0;
  QString restoreHeading_, restoreMore_;
  QStringList restoreNames_;
  std::optional<QString> message_;
  std::optional<Size> contentSize_;
};

}  // namespace zorvane
