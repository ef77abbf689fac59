// ScheduleSpec and ScheduleTrigger: the "when" of a schedule, and the small text grammar
// in which a user, an agent or the schedule editor writes it.
//
// A ScheduleSpec is clock-driven:
//   daily 09:30            every day at 09:30 (also "9:30")
//   weekdays 09:30         Monday to Friday      weekends 10:00   Saturday and Sunday
//   mon,wed,fri 18:05      those days ("monday", "Mon" and "monster" all mean Monday)
//   every 30m | every 2h   a fixed interval from the last run (at least 5 minutes)
//   once 2026-10-25 14:00  one run, at that wall-clock time in the calendar's zone
// A ScheduleTrigger is event-driven:
//   new file in ~/Downloads matching *.pdf   (no "matching": any name)
//   app opens Slack
//   page changes https://example.com/status every 30m   (no "every": 30 minutes)
//
// Parsing is total: any text outside the grammar gives nothing, never an exception, and
// the caller words the refusal. A caller that takes both kinds tries the trigger first.
// `text` is the canonical form: parsing it gives back an equal value for every value
// that `parse` produced. Both types are plain values, compared over every field.
//
// JSON: an object with exactly one key, the case's name, holding the payload's fields:
//   {"daily": {"hour": 9, "minute": 30, "weekdays": [2, 4]}}
//   {"every": {"minutes": 30}}      {"once": {"_0": "2026-10-25T13:00:00Z"}}
//   {"newFile": {"folder": "/home/u/Downloads", "glob": "*"}}
//   {"appOpens": {"app": "Slack"}}  {"pageChanges": {"url": "https://...", "minutes": 30}}
// Decoding never throws; unknown keys beside the case key are ignored.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>

#include "core/base/calendar.h"
#include "core/base/expected.h"
#include "core/base/iso8601.h"
#include "core/base/json_value.h"

namespace zorvane {

class ScheduleSpec {
 public:
  // Weekday numbers are the calendar's, Sunday first: 1 Sunday ... 7 Saturday.
  struct Daily {
    int hour = 0;            // 0-23
    int minute = 0;          // 0-59
    std::set<int> weekdays;  // empty: every day
    friend bool operator==(const Daily&, const Daily&) = default;
  };
  struct Every {
    int64_t minutes = 0;  // at least 5 when it comes from parse
    friend bool operator==(const Every&, const Every&) = default;
  };
  struct Once {
    SystemTime date;
    friend bool operator==(const Once&, const Once&) = default;
  };
  using Payload = std::variant<Daily, Every, Once>;
  enum class Kind { daily, every, once };

  static ScheduleSpec daily(int hour, int minute, std::set<int> weekdays = {});
  static ScheduleSpec every(int64_t minutes);
  static ScheduleSpec once(SystemTime date);

  // "sun" 1, "mon" 2, "tue" 3, "wed" 4, "thu" 5, "fri" 6, "sat" 7.
  [[nodiscard]] static const std::map<std::string, int, std::less<>>& dayNames();
  // What "weekdays" ({2, 3, 4, 5, 6}) and "weekends" ({1, 7}) stand for.
  [[nodiscard]] static const std::set<int>& workWeek();
  [[nodiscard]] static const std::set<int>& weekend();

  // Reads the grammar above, ignoring case and repeated blanks (only the blank
  // separates words). `calendar` turns a `once` date into an instant; a date in the
  // past parses (its `next` is nothing), an impossible one (February 30th) does not.
  [[nodiscard]] static std::optional<ScheduleSpec> parse(std::string_view text,
                                                         const Calendar& calendar);

  // The canonical text: "daily 09:30", "weekdays 09:30", "weekends 10:00",
  // "mon,wed 18:05" (days ascending, Sunday first), "every 2h" (whole hours),
  // "every 90m", "once 2026-10-25 14:00" (in the calendar's zone). A daily whose set
  // holds no weekday from 1 to 7 never runs and reads "never 09:30", which doesn't parse.
  [[nodiscard]] std::string text(const Calendar& calendar = Calendar::current()) const;

  // An English phrase for prompts: "every day at 09:30", "every weekday (Mon–Fri) at
  // 09:30", "every Monday, Wednesday at 18:05", "every 2 hours", "every 90 minutes",
  // "once at Sunday, October 25, 2026 at 2:00 PM".
  [[nodiscard]] std::string humanText(const Calendar& calendar = Calendar::current()) const;

  // The next instant the rule is due.
  //   once:  its date, while it is later than `after` minus 60 seconds and there was no
  //          `lastRun`; else nothing.
  //   every: `lastRun` (else `after`) plus the interval; may lie in the past. An interval
  //          past the clock's range gives the clock's last whole second; one of less
  //          than a minute (never parsed, only made in code) gives nothing.
  //   daily: the first of today and the next seven days, at the wall-clock time, that is
  //          strictly later than `after` and on an allowed weekday; nothing if none is.
  //          Days are counted on the calendar, so the wall-clock time holds across a
  //          daylight-saving change (gaps and repeats resolve as Calendar::instant says).
  //          An hour or minute out of range, or a set with no weekday 1-7, gives nothing.
  [[nodiscard]] std::optional<SystemTime> next(SystemTime after, std::optional<SystemTime> lastRun,
                                               const Calendar& calendar) const;

  [[nodiscard]] JSONValue encode() const;
  // Fails with "Invalid number of keys found, expected one." unless exactly one case key
  // is present, and otherwise names the field: "daily.hour: expected a number, found
  // string". Every value `encode` writes reads back, even one outside the grammar.
  [[nodiscard]] static Expected<ScheduleSpec> decode(const JSONValue& value);

  [[nodiscard]] const Payload& payload() const { return payload_; }
  [[nodiscard]] Kind kind() const { return static_cast<Kind>(payload_.index()); }

  friend bool operator==(const ScheduleSpec&, const ScheduleSpec&) = default;

 private:
  explicit ScheduleSpec(Payload payload) : payload_(std::move(payload)) {}
  Payload payload_;
};

class ScheduleTrigger {
 public:
  struct NewFile {
    std::string folder;  // absolute, "~" already expanded
    std::string glob;    // a shell pattern; "*" when none was given
    friend bool operator==(const NewFile&, const NewFile&) = default;
  };
  struct AppOpens {
    std::string app;  // as typed, case kept
    friend bool operator==(const AppOpens&, const AppOpens&) = default;
  };
  struct PageChanges {
    std::string url;      // http:// or https://
    int64_t minutes = 0;  // how often the page is fetched
    friend bool operator==(const PageChanges&, const PageChanges&) = default;
  };
  using Payload = std::variant<NewFile, AppOpens, PageChanges>;
  enum class Kind { newFile, appOpens, pageChanges };

  static ScheduleTrigger newFile(std::string folder, std::string glob = "*");
  static ScheduleTrigger appOpens(std::string app);
  static ScheduleTrigger pageChanges(std::string url, int64_t minutes = 30);

  // Reads the grammar above. The keywords ignore case; the payloads keep theirs, and
  // " matching " must be written in lower case. Gives nothing for a folder that isn't
  // absolute after "~" is expanded, an empty or malformed glob (an unclosed "[", a
  // trailing "\"), an empty app name, and an address that isn't an http:// or https://
  // URL with a host. A page interval is read like "every": "2h" is 120 minutes, "10m" 10,
  // fewer than 5 minutes are raised to 5, and an unreadable one is 30.
  [[nodiscard]] static std::optional<ScheduleTrigger> parse(std::string_view text);

  // "new file in ~/Docs matching *.pdf" (the home folder written as "~", no " matching "
  // part for "*"), "app opens Slack", "page changes https://x.org every 2h".
  [[nodiscard]] std::string text() const;

  // Whether a file name matches the glob, ignoring case; "*" matches dot files too.
  [[nodiscard]] static bool matches(std::string_view name, std::string_view glob);

  [[nodiscard]] JSONValue encode() const;
  // As ScheduleSpec::decode, with the cases newFile, appOpens and pageChanges.
  [[nodiscard]] static Expected<ScheduleTrigger> decode(const JSONValue& value);

  [[nodiscard]] const Payload& payload() const { return payload_; }
  [[nodiscard]] Kind kind() const { return static_cast<Kind>(payload_.index()); }

  friend bool operator==(const ScheduleTrigger&, const ScheduleTrigger&) = default;

 private:
  explicit ScheduleTrigger(Payload payload) : payload_(std::move(payload)) {}
  Payload payload_;
};

}  // namespace zorvane
