// MarkdownModel: an answer's Markdown as a list of blocks (heading, paragraph, bullets,
// numbered, table, code, quote, rule) for a list view that picks one delegate a kind.
// Inline text comes as rich text (see inline_markup.h), each block also as plain text for
// the screen reader. Setting a new text changes only the blocks that differ: a streamed
// answer that grows at its end re-lays out its last block, not the whole answer.
//
// Main thread (it is a Qt model).
#pragma once

#include <QAbstractListModel>
#include <QtQml/qqmlregistration.h>

#include <string>
#include <vector>

#include "core/agent/markdown_blocks.h"

namespace zorvane {

class MarkdownModel final : public QAbstractListModel {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the adapters")

 public:
  // The roles, named as the delegates' required properties.
  enum Role {
    KindRole = Qt::UserRole + 1,  // kind: "heading", "paragraph", "bullets", "numbered", "table", "code", "quote", "rule"
    HtmlRole,                     // html: a heading's, paragraph's or quote's inline text
    PlainRole,                    // plain: the whole block as a reader says it
    LevelRole,                    // level: a heading's level, 1 to 6
    ItemsRole,                    // items: the entries of a list, as rich text
    CodeRole,                     // code: a code block's text, unchanged
    CellsRole,                    // cells: a table's cells row by row, header first, padded to `columns`
    ColumnsRole,                  // columns: a table's widest row
  };

  explicit MarkdownModel(QObject* parent) : QAbstractListModel(parent) {}

  // The text to show and the body size in points (citation labels are drawn 2 smaller).
  // The same text and size again change nothing and cost a comparison; returns whether
  // anything changed.
  bool setMarkdown(std::string_view text, double size);
  [[nodiscard]] const std::vector<MDBlock>& blocks() const { return blocks_; }

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QHash<int, QByteArray> roleNames() const override;

 private:
  std::vector<MDBlock> blocks_;
  std::string text_;
  double size_ = 13;
};

}  // namespace zorvane
