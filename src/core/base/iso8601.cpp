#include "core/base/iso8601.h"

#include <cstdio>

namespace zorvane {

namespace chr = std::chrono;

std::string formatISO8601(SystemTime time) {
  // Whole seconds first, so the calendar arithmetic below stays in 64-bit seconds
  // and cannot overflow at the ends of the clock's range.
  auto seconds = chr::floor<chr::seconds>(time);
  auto days = chr::floor<chr::days>(seconds);
  chr::year_month_day date{days};
  chr::hh_mm_ss<chr::seconds> clock{seconds - days};

  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return text;
}

namespace {

// Reads fixed-width fields left to right; any mismatch makes the whole parse fail.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  bool atEnd() const { return pos_ == text_.size(); }
  bool peek(char c) const { return pos_ < text_.size() && text_[pos_] == c; }

  bool expect(char c) {
    if (!peek(c)) return false;
    ++pos_;
    return true;
  }

  // Exactly `width` decimal digits.
  bool number(size_t width, int& value) {
    if (text_.size() - pos_ < width) return false;
    value = 0;
    for (size_t i = 0; i < width; ++i) {
      char c = text_[pos_ + i];
      if (c < '0' || c > '9') return false;
      value = value * 10 + (c - '0');
    }
    pos_ += width;
    return true;
  }

  // One or more digits after a decimal point, as a fraction of a second. Digits past
  // the nanosecond are read and dropped.
  bool fraction(chr::nanoseconds& value) {
    size_t start = pos_;
    int64_t nanos = 0;
    int64_t scale = 100'000'000;
    while (pos_ < text_.size() && text_[pos_] >= '0' && text_[pos_] <= '9') {
      nanos += (text_[pos_] - '0') * scale;
      scale /= 10;
      ++pos_;
    }
    value = chr::nanoseconds{nanos};
    return pos_ > start;
  }

 private:
  std::string_view text_;
  size_t pos_ = 0;
};

}  // namespace

std::optional<SystemTime> parseISO8601(std::string_view text) {
  Reader reader(text);
  int year, month, day, hour, minute, second;
  bool shaped = reader.number(4, year) && reader.expect('-') && reader.number(2, month) &&
                reader.expect('-') && reader.number(2, day) && reader.expect('T') &&
                reader.number(2, hour) && reader.expect(':') && reader.number(2, minute) &&
                reader.expect(':') && reader.number(2, second);
  if (!shaped) return std::nullopt;

  chr::nanoseconds fraction{0};
  if (reader.expect('.') && !reader.fraction(fraction)) return std::nullopt;

  chr::seconds offset{0};
  if (!reader.expect('Z')) {
    int sign = reader.peek('-') ? -1 : 1;
    if (!reader.expect('+') && !reader.expect('-')) return std::nullopt;
    int offsetHours, offsetMinutes;
    if (!reader.number(2, offsetHours) || !reader.expect(':') || !reader.number(2, offsetMinutes)) {
      return std::nullopt;
    }
    if (offsetHours > 23 || offsetMinutes > 59) return std::nullopt;
    offset = sign * (chr::hours{offsetHours} + chr::minutes{offsetMinutes});
  }
  if (!reader.atEnd()) return std::nullopt;

  chr::year_month_day date{chr::year{year}, chr::month{static_cast<unsigned>(month)},
                           chr::day{static_cast<unsigned>(day)}};
  if (!date.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;

  // "+02:00" means local time is two hours ahead of UTC, so UTC is local minus offset.
  chr::sys_seconds utc =
      chr::sys_days{date} + chr::hours{hour} + chr::minutes{minute} + chr::seconds{second} - offset;
  // The clock counts in nanoseconds and reaches only a few centuries either side of 1970.
  auto earliest = chr::ceil<chr::seconds>(SystemTime::min());
  auto latest = chr::floor<chr::seconds>(SystemTime::max()) - chr::seconds{1};
  if (utc < earliest || utc > latest) return std::nullopt;
  return chr::time_point_cast<SystemTime::duration>(utc) +
         chr::duration_cast<SystemTime::duration>(fraction);
}

}  // namespace zorvane
