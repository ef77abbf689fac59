#include "core/base/line_buffer.h"

namespace zorvane {

void LineBuffer::append(std::string_view chunk) {
  // Compact once the consumed prefix dominates, so appends stay amortised linear.
  if (start_ > 0 && start_ >= buffer_.size() / 2) {
    buffer_.erase(0, start_);
    start_ = 0;
  }
  buffer_.append(chunk);
}

std::optional<LineBuffer::Line> LineBuffer::takeLine() {
  for (;;) {
    size_t newline = buffer_.find('\n', start_ + scanned_);
    if (newline == std::string::npos) {
      scanned_ = buffer_.size() - start_;
      if (!skipping_ && scanned_ > maxLineBytes_) skipping_ = true;
      if (skipping_) {
        // Keep nothing of a line already known to be too long.
        buffer_.clear();
        start_ = 0;
        scanned_ = 0;
      }
      return std::nullopt;
    }
    size_t length = newline - start_;
    size_t begin = start_;
    start_ = newline + 1;
    scanned_ = 0;
    if (skipping_ || length > maxLineBytes_) {
      skipping_ = false;
      return Line{{}, true};
    }
    return Line{buffer_.substr(begin, length), false};
  }
}

}  // namespace zorvane
