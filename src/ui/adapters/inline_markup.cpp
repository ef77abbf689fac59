#include "ui/adapters/inline_markup.h"

#include <QTextDocumentFragment>

#include "core/agent/citations.h"

namespace zorvane {

namespace {

QString escaped(std::string_view text) { return QString::fromUtf8(text.data(), qsizetype(text.size())).toHtmlEscaped(); }

// A link is kept only for the schemes a click may open.
bool isSafeLink(std::string_view url) {
  return url.starts_with("https://") || url.starts_with("http://") || url.starts_with("mailto:");
}

// Inline Markdown of one stretch of text without citations.
QString markup(std::string_view text) {
  QString out;
  size_t i = 0, plainFrom = 0;
  auto flush = [&](size_t to) {
    if (to > plainFrom) out += escaped(text.substr(plainFrom, to - plainFrom));
  };
  while (i < text.size()) {
    char c = text[i];
    if (c == '`') {
      size_t close = text.find('`', i + 1);
      if (close != std::string_view::npos && close > i + 1) {
        flush(i);
        out += "<code>" + escaped(text.substr(i + 1, close - i - 1)) + "</code>";
        i = plainFrom = close + 1;
        continue;
      }
    } else if ((c == '*' || c == '_') && i + 1 < text.size() && text[i + 1] == c) {
      std::string_view mark = c == '*' ? "**" : "__";
      size_t close = text.find(mark, i + 2);
      if (close != std::string_view::npos && close > i + 2) {
        flush(i);
        out += "<b>" + markup(text.substr(i + 2, close - i - 2)) + "</b>";
        i = plainFrom = close + 2;
        continue;
      }
    } else if (c == '*' && i + 1 < text.size() && text[i + 1] != ' ') {
      size_t close = text.find('*', i + 1);
      if (close != std::string_view::npos && text[close - 1] != ' ') {
        flush(i);
        out += "<i>" + markup(text.substr(i + 1, close - i - 1)) + "</i>";
        i = plainFrom = close + 1;
        continue;
      }
    } else if (c == '[') {
      size_t closeText = text.find("](", i + 1);
      size_t closeURL = closeText == std::string_view::npos ? closeText : text.find(')', closeText + 2);
      if (closeURL != std::string_view::npos && text.substr(i + 1, closeText - i - 1).find('\n') == std::string_view::npos) {
        std::string_view label = text.substr(i + 1, closeText - i - 1);
        std::string_view url = text.substr(closeText + 2, closeURL - closeText - 2);
        flush(i);
        if (isSafeLink(url))
          out += "<a href=\"" + escaped(url) + "\">" + markup(label) + "</a>";
        else
          out += markup(label);
        i = plainFrom = closeURL + 1;
        continue;
      }
    }
    ++i;
  }
  flush(text.size());
  return out;
}

}  // namespace

QString inlineHtml(std::string_view text, double size) {
  ParsedCitations parsed = parseCitations(text);
  QString out = "<span style=\"white-space:pre-wrap\">";
  for (const Segment& segment : parsed.segments) {
    if (const auto* plain = segment.as<Segment::Text>()) {
      out += markup(plain->text);
    } else if (const auto* cite = segment.as<Segment::Cite>(); cite && cite->index < parsed.citations.size()) {
      std::string label = parsed.citations[cite->index].label();
      out += QString("<span style=\"color:rgba(255,255,255,0.6); font-size:%1px; font-weight:500\"> %2 </span>")
                 .arg(std::max(1.0, size - 2))
                 .arg(escaped(label));
    }
  }
  return out + "</span>";
}

QString plainText(std::string_view text) {
  // What the rich text shows, without its marks: what a reader should say.
  return QTextDocumentFragment::fromHtml(inlineHtml(text, 13)).toPlainText();
}

}  // namespace zorvane
