#include "ui/adapters/markdown_model.h"

#include <algorithm>

#include "ui/adapters/inline_markup.h"

namespace zorvane {

namespace {

QString kindOf(const MDBlock& block) {
  static const char* names[] = {"heading", "paragraph", "bullets", "numbered", "table", "code", "quote", "rule"};
  return names[block.value.index()];
}

QString joinedPlain(const std::vector<std::string>& parts, const char* separator) {
  QStringList out;
  for (const std::string& part : parts) out << plainText(part);
  return out.join(separator);
}

}  // namespace

bool MarkdownModel::setMarkdown(std::string_view text, double size) {
  if (text == text_ && size == size_) return false;
  text_ = text;
  std::vector<MDBlock> next = MarkdownBlocks::parse(text);
  if (size != size_) {
    size_ = size;
    beginResetModel();
    blocks_ = std::move(next);
    endResetModel();
    return true;
  }
  size_t same = 0;
  while (same < blocks_.size() && same < next.size() && blocks_[same] == next[same]) ++same;
  size_t changed = std::min(blocks_.size(), next.size());
  for (size_t i = same; i < changed; ++i) {
    blocks_[i] = next[i];
    QModelIndex at = index(int(i));
    Q_EMIT dataChanged(at, at);
  }
  if (next.size() < blocks_.size()) {
    beginRemoveRows({}, int(next.size()), int(blocks_.size()) - 1);
    blocks_.erase(blocks_.begin() + long(next.size()), blocks_.end());
    endRemoveRows();
  } else if (next.size() > blocks_.size()) {
    beginInsertRows({}, int(blocks_.size()), int(next.size()) - 1);
    blocks_.insert(blocks_.end(), next.begin() + long(blocks_.size()), next.end());
    endInsertRows();
  }
  return true;
}

int MarkdownModel::rowCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : int(blocks_.size()); }

QVariant MarkdownModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= int(blocks_.size())) return {};
  const MDBlock& block = blocks_[size_t(index.row())];
  switch (role) {
    case KindRole:
      return kindOf(block);
    case LevelRole:
      if (const auto* heading = block.as<MDBlock::Heading>()) return heading->level;
      return 0;
    case HtmlRole:
      if (const auto* heading = block.as<MDBlock::Heading>()) return inlineHtml(heading->text, size_);
      if (const auto* paragraph = block.as<MDBlock::Paragraph>()) return inlineHtml(paragraph->text, size_);
      if (const auto* quote = block.as<MDBlock::Quote>()) return inlineHtml(quote->text, size_);
      return QString();
    case ItemsRole: {
      QStringList items;
      const std::vector<std::string>* list = nullptr;
      if (const auto* bullets = block.as<MDBlock::Bullets>()) list = &bullets->items;
      if (const auto* numbered = block.as<MDBlock::Numbered>()) list = &numbered->items;
      if (list)
        for (const std::string& item : *list) items << inlineHtml(item, size_);
      return items;
    }
    case CodeRole:
      if (const auto* code = block.as<MDBlock::Code>()) return QString::fromStdString(code->text);
      return QString();
    case ColumnsRole:
    case CellsRole: {
      const auto* table = block.as<MDBlock::Table>();
      if (!table) return role == ColumnsRole ? QVariant(0) : QVariant(QStringList());
      size_t columns = table->header.size();
      for (const auto& row : table->rows) columns = std::max(columns, row.size());
      if (role == ColumnsRole) return int(columns);
      QStringList cells;
      auto add = [&](const std::vector<std::string>& row) {
        for (size_t c = 0; c < columns; ++c) cells << (c < row.size() ? inlineHtml(row[c], size_) : QString());
      };
      add(table->header);
      for (const auto& row : table->rows) add(row);
      return cells;
    }
    case PlainRole:
      if (const auto* heading = block.as<MDBlock::Heading>()) return plainText(heading->text);
      if (const auto* paragraph = block.as<MDBlock::Paragraph>()) return plainText(paragraph->text);
      if (const auto* quote = block.as<MDBlock::Quote>()) return plainText(quote->text);
      if (const auto* bullets = block.as<MDBlock::Bullets>()) return joinedPlain(bullets->items, "\n");
      if (const auto* numbered = block.as<MDBlock::Numbered>()) return joinedPlain(numbered->items, "\n");
      if (const auto* code = block.as<MDBlock::Code>()) return QString::fromStdString(code->text);
      if (const auto* table = block.as<MDBlock::Table>()) {
        QStringList lines{joinedPlain(table->header, ", ")};
        for (const auto& row : table->rows) lines << joinedPlain(row, ", ");
        return lines.join("\n");
      }
      return QString();
  }
  return {};
}

QHash<int, QByteArray> MarkdownModel::roleNames() const {
  return {{KindRole, "kind"},   {HtmlRole, "html"},   {PlainRole, "plain"}, {LevelRole, "level"},
          {ItemsRole, "items"}, {CodeRole, "code"},   {CellsRole, "cells"}, {ColumnsRole, "columns"}};
}

}  // namespace zorvane
