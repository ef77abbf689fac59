// LineBuffer: turns a stream of byte chunks into complete lines.
//
// `append` takes a chunk; `takeLine` hands out each complete line (without its line
// feed) in order, and keeps an unfinished tail for the next chunk. A line longer than
// the cap is not kept whole: its bytes are dropped up to the next line feed and the
// line is reported by `takeLine` as an oversized marker, so one runaway line can't
// exhaust memory and the lines after it still come through.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace zorvane {

class LineBuffer {
 public:
  struct Line {
    std::string text;
    bool oversized = false;  // `text` is empty; the line was dropped for its length
  };

  explicit LineBuffer(size_t maxLineBytes = 256u << 20) : maxLineBytes_(maxLineBytes) {}

  void append(std::string_view chunk);
  std::optional<Line> takeLine();
  // Bytes after the last line feed.
  size_t pendingBytes() const { return buffer_.size() - start_; }

 private:
  std::string buffer_;
  size_t start_ = 0;       // first byte not yet handed out
  size_t scanned_ = 0;     // bytes after start_ already known to hold no line feed
  size_t maxLineBytes_;
  bool skipping_ = false;  // dropping an oversized line up to its line feed
};

}  // namespace zorvane
