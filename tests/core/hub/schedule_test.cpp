#include "core/hub/schedule.h"

#include <gtest/gtest.h>

#include "core/base/paths.h"
#include "support/test_support.h"

namespace zorvane {

[[maybe_unused]] static void PrintTo(const ScheduleSpec& spec, std::ostream* out) {
  *out << encodeCompact(spec.encode());
}
[[maybe_unused]] static void PrintTo(const ScheduleTrigger& trigger, std::ostream* out) {
  *out << encodeCompact(trigger.encode());
}

namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

SystemTime at(const char* text) {
  return *parseISO8601(text);
}

Calendar zone(const char* name) {
  std::optional<Calendar> calendar = Calendar::named(name);
  EXPECT_TRUE(calendar.has_value()) << name << " is not in the installed tzdata";
  return calendar.value_or(Calendar::utc());
}

std::string formatted(const std::optional<SystemTime>& time) {
  return time ? formatISO8601(*time) : "nothing";
}

// Every form of the grammar: its value, its canonical text, and that the canonical text
// parses back to the same value (text → value → text → value).
TEST(ScheduleSpec, ParsesEveryFormAndRoundTripsThroughText) {
  struct Case {
    const char* input;
    ScheduleSpec expected;
    const char* text;
  };
  const Case cases[] = {
      {"daily 09:30", ScheduleSpec::daily(9, 30), "daily 09:30"},
      {"  DAILY   9:5 ", ScheduleSpec::daily(9, 5), "daily 09:05"},
      {"daily 0:00", ScheduleSpec::daily(0, 0), "daily 00:00"},
      {"daily 23:59", ScheduleSpec::daily(23, 59), "daily 23:59"},
      {"weekdays 09:30", ScheduleSpec::daily(9, 30, {2, 3, 4, 5, 6}), "weekdays 09:30"},
      {"weekends 10:00", ScheduleSpec::daily(10, 0, {1, 7}), "weekends 10:00"},
      {"sat,sun 10:00", ScheduleSpec::daily(10, 0, {1, 7}), "weekends 10:00"},
      {"mon,tue,wed,thu,fri 07:00", ScheduleSpec::daily(7, 0, {2, 3, 4, 5, 6}), "weekdays 07:00"},
      {"mon,wed,fri 09:00", ScheduleSpec::daily(9, 0, {2, 4, 6}), "mon,wed,fri 09:00"},
      {"fri,mon 09:00", ScheduleSpec::daily(9, 0, {2, 6}), "mon,fri 09:00"},
      {"Monday,Wednesday 18:05", ScheduleSpec::daily(18, 5, {2, 4}), "mon,wed 18:05"},
      {"monster 08:00", ScheduleSpec::daily(8, 0, {2}), "mon 08:00"},
      {"sun,,sat,sun 08:00", ScheduleSpec::daily(8, 0, {1, 7}), "weekends 08:00"},
      {"every 30m", ScheduleSpec::every(30), "every 30m"},
      {"Every 30M", ScheduleSpec::every(30), "every 30m"},
      {"every 3m", ScheduleSpec::every(5), "every 5m"},
      {"every 1h", ScheduleSpec::every(60), "every 1h"},
      {"every 120m", ScheduleSpec::every(120), "every 2h"},
      {"every 90m", ScheduleSpec::every(90), "every 90m"},
      {"every +45m", ScheduleSpec::every(45), "every 45m"},
      {"every 9223372036854775807m", ScheduleSpec::every(INT64_MAX), "every 9223372036854775807m"},
      // The largest count of hours whose minutes fit in 64 bits.
      {"every 153722867280912930h", ScheduleSpec::every(153722867280912930 * 60),
       "every 153722867280912930h"},
      // Read in Berlin. 25 October is its fall-back day: by 14:00 it is CET again (+1).
      {"once 2026-10-25 14:00", ScheduleSpec::once(at("2026-10-25T13:00:00Z")),
       "once 2026-10-25 14:00"},
      // July is CEST (+2).
      {"ONCE 2026-7-4 9:05", ScheduleSpec::once(at("2026-07-04T07:05:00Z")),
       "once 2026-07-04 09:05"},
      // Dates in the past parse; `next` is what tells they are gone.
      {"once 2001-01-01 00:00", ScheduleSpec::once(at("2000-12-31T23:00:00Z")),
       "once 2001-01-01 00:00"},
      // 02:30 doesn't exist on Berlin's spring-forward night; it is 03:30 CEST, and that is
      // the canonical text.
      {"once 2026-03-29 02:30", ScheduleSpec::once(at("2026-03-29T01:30:00Z")),
       "once 2026-03-29 03:30"},
  };
  Calendar berlin = zone("Europe/Berlin");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.input);
    std::optional<ScheduleSpec> parsed = ScheduleSpec::parse(c.input, berlin);
    ASSERT_TRUE(parsed.has_value());
    EXPECT_EQ(*parsed, c.expected);
    std::string text = parsed->text(berlin);
    EXPECT_EQ(text, c.text);
    std::optional<ScheduleSpec> again = ScheduleSpec::parse(text, berlin);
    ASSERT_TRUE(again.has_value());
    EXPECT_EQ(*again, *parsed);
    EXPECT_EQ(again->text(berlin), text);
  }
  // A `once` text names a wall-clock time in the zone it is read in.
  EXPECT_EQ(ScheduleSpec::parse("once 2026-10-25 14:00", zone("America/New_York")),
            ScheduleSpec::once(at("2026-10-25T18:00:00Z")));
  EXPECT_EQ(ScheduleSpec::once(at("2026-10-25T18:00:00Z")).text(zone("America/New_York")),
            "once 2026-10-25 14:00");
}

// Anything outside the grammar gives nothing, whatever the reason.
TEST(ScheduleSpec, ParseRefusesTextOutsideTheGrammar) {
  const char* const bad[] = {
      // clang-format off
      "", "   ", "daily", "sun", "hello world", "daily 09:30 extra", "daily\t09:30",
      // every
      "every", "every 0m", "every -5m", "every m", "every 5", "every 5s", "every 30m now", "every 1.5h",
      "every 0h", "every 99999999999999999999h", "every 99999999999999999999m",
      "every 153722867280912931h", "every 30 m", "every thirtym",
      // times
      "daily 24:00", "daily 25:00", "daily 12:60", "daily -1:00", "daily 09", "daily 09:00:00",
      "daily 9h30", "weekdays", "weekends 7", "weekdays 09:30 10:30",
      // day lists
      "mon,funday 09:00", "mon,xyz 09:00", "mo 09:00", ",,, 09:00", "mon,,x 09:00", "fri,mon",
      // once
      "once 2026-10-25", "once 2026-10 14:00", "once 2026-10-25-1 14:00", "once 2026-02-30 10:00",
      "once 2026-13-01 10:00", "once 2026-00-10 10:00", "once 2026-10-25 24:00",
      "once 99999999999-01-01 10:00", "once 2300-01-01 10:00", "once tomorrow 10:00",
      "once 2026-10-25 14:00 utc",
      // triggers are not specs
      "new file in ~/Downloads", "app opens Slack",
      // clang-format on
  };
  Calendar berlin = zone("Europe/Berlin");
  for (const char* text : bad) {
    SCOPED_TRACE(text);
    EXPECT_EQ(ScheduleSpec::parse(text, berlin), std::nullopt);
  }
}

// The phrases an agent reads in its prompt.
TEST(ScheduleSpec, HumanTextReadsAsEnglish) {
  Calendar berlin = zone("Europe/Berlin");
  struct Case {
    ScheduleSpec spec;
    const char* text;
  };
  const Case cases[] = {
      {ScheduleSpec::daily(9, 30), "every day at 09:30"},
      {ScheduleSpec::daily(9, 30, {2, 3, 4, 5, 6}), "every weekday (Mon\u2013Fri) at 09:30"},
      {ScheduleSpec::daily(10, 0, {1, 7}), "every Sunday, Saturday at 10:00"},
      {ScheduleSpec::daily(18, 5, {4, 2}), "every Monday, Wednesday at 18:05"},
      {ScheduleSpec::every(60), "every 1 hour"},
      {ScheduleSpec::every(120), "every 2 hours"},
      {ScheduleSpec::every(90), "every 90 minutes"},
      {ScheduleSpec::every(5), "every 5 minutes"},
      {ScheduleSpec::once(at("2026-10-25T13:00:00Z")),
       "once at Sunday, October 25, 2026 at 2:00 PM"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(c.spec.humanText(berlin), c.text);
  }
  // A day set without a real weekday (only code can make one) never runs, and says so.
  EXPECT_EQ(ScheduleSpec::daily(9, 0, {0, 8}).text(berlin), "never 09:00");
  EXPECT_EQ(ScheduleSpec::daily(9, 0, {0, 8}).humanText(berlin), "never");
  EXPECT_EQ(ScheduleSpec::parse("never 09:00", berlin), std::nullopt);
}

// `next` for daily rules at the edges of a day and a week.
TEST(ScheduleSpec, NextFindsTheFirstAllowedTimeStrictlyAfter) {
  Calendar berlin = zone("Europe/Berlin");
  struct Case {
    const char* name;
    ScheduleSpec spec;
    const char* after;
    const char* expected;
  };
  // Berlin is +2 (CEST) until 25 October 2026. 2026-10-19 is a Monday.
  const Case cases[] = {
      {"at 09:00:00 exactly: tomorrow", ScheduleSpec::daily(9, 0), "2026-10-19T07:00:00Z",
       "2026-10-20T07:00:00Z"},
      {"at 08:59:59: today", ScheduleSpec::daily(9, 0), "2026-10-19T06:59:59Z",
       "2026-10-19T07:00:00Z"},
      {"Monday 09:00 on a Monday at 09:00: the eighth candidate", ScheduleSpec::daily(9, 0, {2}),
       "2026-10-19T07:00:00Z", "2026-10-26T08:00:00Z"},
      {"weekdays, Friday evening: Monday", ScheduleSpec::daily(9, 0, {2, 3, 4, 5, 6}),
       "2026-10-23T18:00:00Z", "2026-10-26T08:00:00Z"},
      {"weekends, Monday: Saturday", ScheduleSpec::daily(10, 0, {1, 7}), "2026-10-19T12:00:00Z",
       "2026-10-24T08:00:00Z"},
      {"late evening: next day across the month end", ScheduleSpec::daily(0, 15),
       "2026-10-31T22:30:00Z", "2026-10-31T23:15:00Z"},
      {"no valid weekday: nothing", ScheduleSpec::daily(9, 0, {0, 8}), "2026-10-19T12:00:00Z",
       "nothing"},
      {"an hour out of range: nothing", ScheduleSpec::daily(24, 0), "2026-10-19T12:00:00Z",
       "nothing"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(formatted(c.spec.next(at(c.after), std::nullopt, berlin)), c.expected);
  }
  // A daily rule doesn't look at lastRun.
  EXPECT_EQ(formatted(ScheduleSpec::daily(9, 0).next(at("2026-10-19T06:00:00Z"),
                                                     at("2026-10-19T05:00:00Z"), berlin)),
            "2026-10-19T07:00:00Z");
}

// `next` keeps the wall-clock time of daily rules across both daylight-saving changes in
// two zones, and keeps `every` to elapsed time. Each case says why its instant is right.
TEST(ScheduleSpec, NextIsRightAcrossDaylightSavingChanges) {
  struct Case {
    const char* zone;
    const char* why;
    ScheduleSpec spec;
    const char* after;
    std::optional<SystemTime> lastRun;
    const char* expected;
  };
  const Case cases[] = {
      // Europe/Berlin: 29 March 2026 02:00 CET → 03:00 CEST; 25 October 2026 03:00 CEST → 02:00
      // CET.
      {"Europe/Berlin",
       "daily 02:30 on the spring-forward day: 02:30 doesn't exist; read as CET it is 01:30Z, "
       "shown "
       "as 03:30 CEST, the same 2.5 hours after midnight as any other day",
       ScheduleSpec::daily(2, 30), "2026-03-28T23:00:00Z" /* 00:00 CET */, std::nullopt,
       "2026-03-29T01:30:00Z"},
      {"Europe/Berlin",
       "daily 02:30 after that run: the next day at 02:30 CEST (00:30Z), not 24 hours later",
       ScheduleSpec::daily(2, 30), "2026-03-29T01:30:00Z", std::nullopt, "2026-03-30T00:30:00Z"},
      {"Europe/Berlin",
       "daily 09:00 across the change: 09:00 CEST = 07:00Z, 23 hours after 09:00 CET the day "
       "before",
       ScheduleSpec::daily(9, 0), "2026-03-28T08:00:00Z" /* 09:00 CET */, std::nullopt,
       "2026-03-29T07:00:00Z"},
      {"Europe/Berlin", "daily 02:30 on the fall-back day: the first 02:30 (CEST, 00:30Z)",
       ScheduleSpec::daily(2, 30), "2026-10-24T22:00:00Z" /* 00:00 CEST */, std::nullopt,
       "2026-10-25T00:30:00Z"},
      {"Europe/Berlin",
       "daily 02:30 after running at the first 02:30: not again at the second 02:30 (01:30Z) but "
       "the next day, 02:30 CET = 01:30Z on the 26th",
       ScheduleSpec::daily(2, 30), "2026-10-25T00:30:00Z", std::nullopt, "2026-10-26T01:30:00Z"},
      {"Europe/Berlin",
       "every 30m across the spring gap: 30 real minutes, 01:45 CET (00:45Z) → 03:15 CEST (01:15Z)",
       ScheduleSpec::every(30), "2026-03-29T00:50:00Z", at("2026-03-29T00:45:00Z"),
       "2026-03-29T01:15:00Z"},
      {"Europe/Berlin",
       "every 30m across the autumn repeat: 02:45 CEST (00:45Z) → 02:15 CET (01:15Z), 30 real "
       "minutes",
       ScheduleSpec::every(30), "2026-10-25T00:50:00Z", at("2026-10-25T00:45:00Z"),
       "2026-10-25T01:15:00Z"},
      // America/New_York: 8 March 2026 02:00 EST → 03:00 EDT; 1 November 2026 02:00 EDT → 01:00
      // EST.
      {"America/New_York",
       "daily 02:30 on the spring-forward day: read as EST (-5) it is 07:30Z, shown as 03:30 EDT",
       ScheduleSpec::daily(2, 30), "2026-03-08T05:00:00Z" /* 00:00 EST */, std::nullopt,
       "2026-03-08T07:30:00Z"},
      {"America/New_York", "daily 02:30 after that run: 02:30 EDT on the 9th = 06:30Z",
       ScheduleSpec::daily(2, 30), "2026-03-08T07:30:00Z", std::nullopt, "2026-03-09T06:30:00Z"},
      {"America/New_York", "daily 01:30 on the fall-back day: the first 01:30 (EDT, 05:30Z)",
       ScheduleSpec::daily(1, 30), "2026-11-01T04:00:00Z" /* 00:00 EDT */, std::nullopt,
       "2026-11-01T05:30:00Z"},
      {"America/New_York",
       "daily 01:30 after running at the first 01:30: not at the second (06:30Z) but 01:30 EST on "
       "2 November = 06:30Z",
       ScheduleSpec::daily(1, 30), "2026-11-01T05:30:00Z", std::nullopt, "2026-11-02T06:30:00Z"},
      {"America/New_York",
       "daily 01:30 asked during the repeated hour (01:45 EST): tomorrow, never a second run today",
       ScheduleSpec::daily(1, 30), "2026-11-01T06:45:00Z", std::nullopt, "2026-11-02T06:30:00Z"},
      {"America/New_York",
       "every 30m across the spring gap: 01:45 EST (06:45Z) → 03:15 EDT (07:15Z)",
       ScheduleSpec::every(30), "2026-03-08T06:50:00Z", at("2026-03-08T06:45:00Z"),
       "2026-03-08T07:15:00Z"},
      {"America/New_York",
       "every 30m across the autumn repeat: 01:45 EDT (05:45Z) → 01:15 EST (06:15Z)",
       ScheduleSpec::every(30), "2026-11-01T05:50:00Z", at("2026-11-01T05:45:00Z"),
       "2026-11-01T06:15:00Z"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.zone) + ": " + c.why);
    EXPECT_EQ(formatted(c.spec.next(at(c.after), c.lastRun, zone(c.zone))), c.expected);
  }
  // What the user sees on the clock at those instants.
  Calendar berlin = zone("Europe/Berlin");
  EXPECT_EQ(berlin.minuteText(at("2026-03-29T01:15:00Z")), "2026-03-29 03:15");
  EXPECT_EQ(berlin.minuteText(at("2026-10-25T01:15:00Z")), "2026-10-25 02:15");
}

// `every` counts from the last run (else from now) and may lie in the past; `once` stays
// pending for a minute and never comes back after a run.
TEST(ScheduleSpec, NextForIntervalsAndOneShots) {
  Calendar utc = Calendar::utc();
  SystemTime now = at("2026-05-01T12:00:00Z");
  ScheduleSpec every30 = ScheduleSpec::every(30);
  EXPECT_EQ(every30.next(now, std::nullopt, utc), now + minutes(30));
  EXPECT_EQ(every30.next(now, now - hours(3), utc), now - minutes(150)) << "overdue";
  EXPECT_EQ(ScheduleSpec::every(0).next(now, now, utc), std::nullopt)
      << "never due, not due at every tick";

  ScheduleSpec once = ScheduleSpec::once(now);
  EXPECT_EQ(once.next(now - hours(1), std::nullopt, utc), now) << "ahead";
  EXPECT_EQ(once.next(now + seconds(59), std::nullopt, utc), now) << "59 s late: still pending";
  EXPECT_EQ(once.next(now + seconds(60), std::nullopt, utc), std::nullopt) << "a minute late: gone";
  EXPECT_EQ(once.next(now + hours(3), std::nullopt, utc), std::nullopt);
  EXPECT_EQ(once.next(now - hours(1), now - hours(2), utc), std::nullopt) << "it has run";

  // An interval past the clock's range ends at the last second the store can write.
  std::optional<SystemTime> far = ScheduleSpec::every(INT64_MAX).next(now, std::nullopt, utc);
  ASSERT_TRUE(far.has_value());
  EXPECT_EQ(formatISO8601(*far), "2262-04-11T23:47:15Z");
  EXPECT_EQ(parseISO8601(formatISO8601(*far)), far);
  EXPECT_EQ(
      formatISO8601(
          *ScheduleSpec::every(153722867280912930 * 60).next(SystemTime::min(), std::nullopt, utc)),
      "2262-04-11T23:47:15Z");
}

// The JSON form: one case key holding labelled fields, `_0` for the once date, and
// failures that name what is wrong.
TEST(ScheduleSpec, CodesAsJSONWithOneCaseKey) {
  struct Case {
    ScheduleSpec spec;
    const char* json;
  };
  const Case cases[] = {
      {ScheduleSpec::daily(9, 30), R"({"daily":{"hour":9,"minute":30,"weekdays":[]}})"},
      {ScheduleSpec::daily(18, 5, {6, 2}), R"({"daily":{"hour":18,"minute":5,"weekdays":[2,6]}})"},
      {ScheduleSpec::every(90), R"({"every":{"minutes":90}})"},
      {ScheduleSpec::once(at("2026-10-25T12:00:00Z")), R"({"once":{"_0":"2026-10-25T12:00:00Z"}})"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json);
    EXPECT_EQ(encodeCompact(c.spec.encode()), c.json);
    Expected<ScheduleSpec> decoded = ScheduleSpec::decode(*parseJSON(c.json));
    ASSERT_TRUE(decoded) << decoded.error();
    EXPECT_EQ(*decoded, c.spec);
  }
  EXPECT_EQ(*ScheduleSpec::decode(*parseJSON(R"({"every":{"minutes":30.0},"note":"kept"})")),
            ScheduleSpec::every(30))
      << "unknown keys are ignored, whole floats are whole numbers";
  EXPECT_EQ(
      *ScheduleSpec::decode(*parseJSON(R"({"daily":{"hour":9,"minute":0,"weekdays":[7,1,7]}})")),
      ScheduleSpec::daily(9, 0, {1, 7}));
  // Values the grammar never makes but code can still read back, so one such item can't
  // make a whole store file unreadable.
  for (const ScheduleSpec& odd :
       {ScheduleSpec::daily(24, 60, {0, 8}), ScheduleSpec::every(0), ScheduleSpec::every(-5)}) {
    SCOPED_TRACE(encodeCompact(odd.encode()));
    EXPECT_EQ(ScheduleSpec::decode(odd.encode()).value(), odd);
  }

  struct Bad {
    const char* json;
    const char* error;
  };
  const Bad bad[] = {
      {R"({})", "Invalid number of keys found, expected one."},
      {R"({"hourly":{}})", "Invalid number of keys found, expected one."},
      {R"({"every":{"minutes":5},"once":{"_0":"2026-10-25T12:00:00Z"}})",
       "Invalid number of keys found, expected one."},
      {R"("daily 09:30")", "spec: expected an object, found string"},
      {R"({"daily":[9,30]})", "daily: expected an object, found array"},
      {R"({"daily":{"hour":4294967296,"minute":0,"weekdays":[]}})",
       "daily.hour: expected -2147483648 to 2147483647"},
      {R"({"daily":{"hour":9,"minute":1.5,"weekdays":[]}})",
       "daily.minute: expected a whole number that fits in 64 bits"},
      {R"({"daily":{"hour":9,"minute":0}})", "daily.weekdays: missing"},
      {R"({"daily":{"hour":9,"minute":0,"weekdays":[2.5]}})",
       "daily.weekdays: expected whole numbers"},
      {R"({"daily":{"hour":9,"minute":0,"weekdays":["mon"]}})",
       "daily.weekdays: expected whole numbers"},
      {R"({"daily":{"hour":9,"minute":0,"weekdays":2}})",
       "daily.weekdays: expected an array, found number"},
      {R"({"daily":{"hour":"9","minute":0,"weekdays":[]}})",
       "daily.hour: expected a number, found string"},
      {R"({"every":{"minutes":1e30}})",
       "every.minutes: expected a whole number that fits in 64 bits"},
      {R"({"once":{"date":"2026-10-25T12:00:00Z"}})", "once._0: missing"},
      {R"({"once":{"_0":"2026-10-25 12:00"}})",
       "once._0: expected a date like 2026-05-01T09:30:00Z"},
  };
  for (const Bad& b : bad) {
    SCOPED_TRACE(b.json);
    Expected<ScheduleSpec> decoded = ScheduleSpec::decode(*parseJSON(b.json));
    ASSERT_FALSE(decoded);
    EXPECT_EQ(decoded.error(), b.error);
  }
}

// Every trigger form, with payloads keeping their case, "~" expanded and written back,
// and the canonical text parsing back to the same trigger.
TEST(ScheduleTrigger, ParsesEveryFormAndRoundTripsThroughText) {
  testing::TempHome home;
  std::string h = Paths::home();
  struct Case {
    const char* input;
    ScheduleTrigger expected;
    const char* text;
  };
  const Case cases[] = {
      {"new file in ~/Downloads", ScheduleTrigger::newFile(h + "/Downloads", "*"),
       "new file in ~/Downloads"},
      {"NEW FILE IN ~/Docs matching *.PDF", ScheduleTrigger::newFile(h + "/Docs", "*.PDF"),
       "new file in ~/Docs matching *.PDF"},
      {"\t new file in   /srv/in   matching  report-[0-9]*.csv \t",
       ScheduleTrigger::newFile("/srv/in", "report-[0-9]*.csv"),
       "new file in /srv/in matching report-[0-9]*.csv"},
      {"new file in ~", ScheduleTrigger::newFile(h, "*"), "new file in ~"},
      {"new file in /x matching a* matching b", ScheduleTrigger::newFile("/x", "a*"),
       "new file in /x matching a*"},
      {"new file in /x matching [[:digit:]]*", ScheduleTrigger::newFile("/x", "[[:digit:]]*"),
       "new file in /x matching [[:digit:]]*"},
      {"new file in /x matching []ab]", ScheduleTrigger::newFile("/x", "[]ab]"),
       "new file in /x matching []ab]"},
      {"new file in /Inbox MATCHING *.pdf", ScheduleTrigger::newFile("/Inbox MATCHING *.pdf", "*"),
       "new file in /Inbox MATCHING *.pdf"},
      {"app opens Slack", ScheduleTrigger::appOpens("Slack"), "app opens Slack"},
      {"App Opens   Visual Studio Code ", ScheduleTrigger::appOpens("Visual Studio Code"),
       "app opens Visual Studio Code"},
      {"page changes https://example.com/status",
       ScheduleTrigger::pageChanges("https://example.com/status", 30),
       "page changes https://example.com/status every 30m"},
      {"page changes https://example.com/status every 2h",
       ScheduleTrigger::pageChanges("https://example.com/status", 120),
       "page changes https://example.com/status every 2h"},
      {"page changes http://x.org/a every 10m", ScheduleTrigger::pageChanges("http://x.org/a", 10),
       "page changes http://x.org/a every 10m"},
      {"page changes http://x.org every 3m", ScheduleTrigger::pageChanges("http://x.org", 5),
       "page changes http://x.org every 5m"},
      {"page changes http://x.org every soon", ScheduleTrigger::pageChanges("http://x.org", 30),
       "page changes http://x.org every 30m"},
      // The last character is taken for the unit, so only the "1" is read: 1 minute, raised to 5.
      {"page changes http://x.org every 10", ScheduleTrigger::pageChanges("http://x.org", 5),
       "page changes http://x.org every 5m"},
      {"page changes http://x.org every 0h", ScheduleTrigger::pageChanges("http://x.org", 5),
       "page changes http://x.org every 5m"},
      {"PAGE CHANGES https://Example.com/A?q=B EVERY 15M",
       ScheduleTrigger::pageChanges("https://Example.com/A?q=B", 15),
       "page changes https://Example.com/A?q=B every 15m"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.input);
    std::optional<ScheduleTrigger> parsed = ScheduleTrigger::parse(c.input);
    ASSERT_TRUE(parsed.has_value());
    EXPECT_EQ(*parsed, c.expected);
    std::string text = parsed->text();
    EXPECT_EQ(text, c.text);
    EXPECT_EQ(ScheduleTrigger::parse(text), parsed);
  }
}

// Anything outside the grammar gives nothing; so do folders, globs and addresses that
// a watcher couldn't use.
TEST(ScheduleTrigger, ParseRefusesTextOutsideTheGrammar) {
  testing::TempHome home;
  const char* const bad[] = {
      // clang-format off
      "", "  ", "daily 09:30", "every 30m", "new file", "new file in", "new file in   ",
      "new file in relative/dir", "new file in ~bob/Downloads", "new file in  matching *.pdf",
      // globs fnmatch would not read as written, and an empty one
      "new file in /x matching [abc", "new file in /x matching *[!", "new file in /x matching [[:digit:]*",
      "new file in /x matching *.pdf\\", "new file in /x matching  matching y",
      "app opens", "app opens \t ", "app closes Slack",
      // addresses that are not http(s) URLs with a host, and intervals past 64 bits
      "page changes", "page changes ftp://x", "page changes HTTP://X", "page changes httpfoo",
      "page changes http:/x.org", "page changes https://", "page changes https://a b.com",
      "page changes  every 5m", "page changes file:///etc/passwd",
      "page changes https://x.org every 99999999999999999999h",
      "page changes https://x.org every 153722867280912931h",
      // clang-format on
  };
  for (const char* text : bad) {
    SCOPED_TRACE(text);
    EXPECT_EQ(ScheduleTrigger::parse(text), std::nullopt);
  }
}

// File names match a glob ignoring case, and "*" takes dot files too.
TEST(ScheduleTrigger, MatchesFileNamesIgnoringCase) {
  struct Case {
    const char* name;
    const char* glob;
    bool matches;
  };
  const Case cases[] = {
      {"Report.PDF", "*.pdf", true},
      {"report.pdf", "*.PDF", true},
      {".hidden", "*", true},
      {"notes.txt", "*.pdf", false},
      {"report-7.csv", "report-[0-9]*.csv", true},
      {"report-x.csv", "report-[0-9]*.csv", false},
      {"a.pdf.part", "*.pdf", false},
      {"", "*", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.name) + " ~ " + c.glob);
    EXPECT_EQ(ScheduleTrigger::matches(c.name, c.glob), c.matches);
  }
}

// The trigger's JSON form, and failures that name the field.
TEST(ScheduleTrigger, CodesAsJSONWithOneCaseKey) {
  struct Case {
    ScheduleTrigger trigger;
    const char* json;
  };
  const Case cases[] = {
      {ScheduleTrigger::newFile("/home/u/Downloads", "*.pdf"),
       R"({"newFile":{"folder":"/home/u/Downloads","glob":"*.pdf"}})"},
      {ScheduleTrigger::appOpens("Slack"), R"({"appOpens":{"app":"Slack"}})"},
      {ScheduleTrigger::pageChanges("https://x.org", 120),
       R"({"pageChanges":{"minutes":120,"url":"https://x.org"}})"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json);
    EXPECT_EQ(encodeCompact(c.trigger.encode()), c.json);
    Expected<ScheduleTrigger> decoded = ScheduleTrigger::decode(*parseJSON(c.json));
    ASSERT_TRUE(decoded) << decoded.error();
    EXPECT_EQ(*decoded, c.trigger);
  }
  struct Bad {
    const char* json;
    const char* error;
  };
  const Bad bad[] = {
      {R"({"daily":{"hour":9,"minute":0,"weekdays":[]}})",
       "Invalid number of keys found, expected one."},
      {R"({"appOpens":{"app":"A"},"newFile":{"folder":"/x","glob":"*"}})",
       "Invalid number of keys found, expected one."},
      {R"({"newFile":{"folder":"/x"}})", "newFile.glob: missing"},
      {R"({"appOpens":{"app":7}})", "appOpens.app: expected a string, found number"},
      {R"({"pageChanges":{"url":"https://x.org","minutes":"30"}})",
       "pageChanges.minutes: expected a number, found string"},
      {R"(null)", "trigger: expected an object, found null"},
  };
  for (const Bad& b : bad) {
    SCOPED_TRACE(b.json);
    Expected<ScheduleTrigger> decoded = ScheduleTrigger::decode(*parseJSON(b.json));
    ASSERT_FALSE(decoded);
    EXPECT_EQ(decoded.error(), b.error);
  }
}

}  // namespace
}  // namespace zorvane
