#include "core/hub/schedule.h"

#include <gtest/gtest.h>

#include "support/time_support.h"

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

using S = ScheduleSpec;
using T = ScheduleTrigger;

using testing::at;
using testing::zone;

// Every form of the grammar: its value, its canonical text, and that the canonical text
// parses back to the same value. Anything outside the grammar gives nothing.
TEST(ScheduleSpec, ParsesTheGrammarAndRoundTripsThroughText) {
  struct Case {
    const char* input;
    S expected;
    const char* text;
  };
  const Case cases[] = {
      {"  DAILY   9:5 ", S::daily(9, 5), "daily 09:05"},
      {"daily 23:59", S::daily(23, 59), "daily 23:59"},
      {"weekdays 09:30", S::daily(9, 30, {2, 3, 4, 5, 6}), "weekdays 09:30"},
      {"sat,sun 10:00", S::daily(10, 0, {1, 7}), "weekends 10:00"},
      {"fri,mon 09:00", S::daily(9, 0, {2, 6}), "mon,fri 09:00"},
      {"monster 08:00", S::daily(8, 0, {2}), "mon 08:00"},
      {"sun,,sat,sun 08:00", S::daily(8, 0, {1, 7}), "weekends 08:00"},
      {"Every 30M", S::every(30), "every 30m"},
      {"every 3m", S::every(5), "every 5m"},
      {"every 120m", S::every(120), "every 2h"},
      {"every 90m", S::every(90), "every 90m"},
      // The largest count of hours whose minutes fit in 64 bits.
      {"every 153722867280912930h", S::every(153722867280912930 * 60), "every 153722867280912930h"},
      // Read in Berlin. 25 October is its fall-back day: by 14:00 it is CET again (+1).
      {"once 2026-10-25 14:00", S::once(at("2026-10-25T13:00:00Z")), "once 2026-10-25 14:00"},
      // July is CEST (+2).
      {"ONCE 2026-7-4 9:05", S::once(at("2026-07-04T07:05:00Z")), "once 2026-07-04 09:05"},
      // Dates in the past parse; `next` is what tells they are gone.
      {"once 2001-01-01 00:00", S::once(at("2000-12-31T23:00:00Z")), "once 2001-01-01 00:00"},
      // 02:30 doesn't exist on Berlin's spring-forward night; it is 03:30 CEST, and that is
      // the canonical text.
      {"once 2026-03-29 02:30", S::once(at("2026-03-29T01:30:00Z")), "once 2026-03-29 03:30"},
  };
  Calendar berlin = zone("Europe/Berlin");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.input);
    std::optional<ScheduleSpec> parsed = ScheduleSpec::parse(c.input, berlin);
    ASSERT_TRUE(parsed.has_value());
    EXPECT_EQ(*parsed, c.expected);
    EXPECT_EQ(parsed->text(berlin), c.text);
    EXPECT_EQ(ScheduleSpec::parse(c.text, berlin), parsed);
  }
  // A `once` text names a wall-clock time in the zone it is read in.
  EXPECT_EQ(ScheduleSpec::parse("once 2026-10-25 14:00", zone("America/New_York")),
            S::once(at("2026-10-25T18:00:00Z")));

  const char* const bad[] = {
      // clang-format off
      "", "daily", "daily 09:30 extra", "daily\t09:30", "weekdays", "fri,mon",
      "every 0m", "every -5m", "every 5", "every 5s", "every 1.5h", "every 30 m",
      "every 153722867280912931h", "every 99999999999999999999m",
      "daily 24:00", "daily 12:60", "daily 09:00:00", "mon,funday 09:00", "mo 09:00",
      "once 2026-10-25", "once 2026-02-30 10:00", "once 2300-01-01 10:00", "once tomorrow 10:00",
      "once 2026-10-25 14:00 utc", "never 09:00", "app opens Slack",
      // clang-format on
  };
  for (const char* text : bad) {
    SCOPED_TRACE(text);
    EXPECT_EQ(ScheduleSpec::parse(text, berlin), std::nullopt);
  }
}

// The phrases an agent reads in its prompt.
TEST(ScheduleSpec, HumanTextReadsAsEnglish) {
  Calendar berlin = zone("Europe/Berlin");
  const std::pair<S, const char*> cases[] = {
      {S::daily(9, 30), "every day at 09:30"},
      {S::daily(9, 30, {2, 3, 4, 5, 6}), "every weekday (Mon\u2013Fri) at 09:30"},
      {S::daily(10, 0, {1, 7}), "every Sunday, Saturday at 10:00"},
      {S::every(60), "every 1 hour"},
      {S::every(120), "every 2 hours"},
      {S::every(90), "every 90 minutes"},
      {S::once(at("2026-10-25T13:00:00Z")), "once at Sunday, October 25, 2026 at 2:00 PM"},
      // A day set without a real weekday (only code can make one) never runs, and says so.
      {S::daily(9, 0, {0, 8}), "never"},
  };
  for (const auto& [spec, text] : cases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(spec.humanText(berlin), text);
  }
  EXPECT_EQ(S::daily(9, 0, {0, 8}).text(berlin), "never 09:00");
}

// `next` is the first allowed time strictly after `after`. Daily rules keep their
// wall-clock time across both daylight-saving changes and ignore the last run; `every`
// counts real minutes from the last run (else from now) and may lie in the past; `once`
// stays pending for a minute and never comes back after a run. Each case says why.
TEST(ScheduleSpec, NextFindsTheFirstAllowedTime) {
  struct Case {
    const char* zone;
    const char* why;
    S spec;
    const char* after;
    std::optional<SystemTime> lastRun;
    const char* expected;
  };
  const SystemTime noon = at("2026-05-01T12:00:00Z");
  const Case cases[] = {
      // Berlin is +2 (CEST) until 25 October 2026. 2026-10-19 is a Monday.
      {"Europe/Berlin", "at 08:59:59: today", S::daily(9, 0), "2026-10-19T06:59:59Z", std::nullopt,
       "2026-10-19T07:00:00Z"},
      {"Europe/Berlin", "at 09:00:00 exactly: tomorrow", S::daily(9, 0), "2026-10-19T07:00:00Z",
       std::nullopt, "2026-10-20T07:00:00Z"},
      {"Europe/Berlin", "a daily rule ignores lastRun", S::daily(9, 0), "2026-10-19T06:00:00Z",
       at("2026-10-19T05:00:00Z"), "2026-10-19T07:00:00Z"},
      {"Europe/Berlin", "weekdays, Friday evening: Monday", S::daily(9, 0, {2, 3, 4, 5, 6}),
       "2026-10-23T18:00:00Z", std::nullopt, "2026-10-26T08:00:00Z"},
      {"Europe/Berlin", "late evening: next day across the month end", S::daily(0, 15),
       "2026-10-31T22:30:00Z", std::nullopt, "2026-10-31T23:15:00Z"},
      {"Europe/Berlin", "no valid weekday: nothing", S::daily(9, 0, {0, 8}), "2026-10-19T12:00:00Z",
       std::nullopt, "nothing"},
      // Europe/Berlin: 29 March 2026 02:00 CET → 03:00 CEST; 25 October 2026 03:00 CEST → 02:00
      // CET.
      {"Europe/Berlin",
       "daily 02:30 on the spring-forward day: 02:30 doesn't exist; read as CET it is 01:30Z, "
       "shown as 03:30 CEST, the same 2.5 hours after midnight as any other day",
       S::daily(2, 30), "2026-03-28T23:00:00Z" /* 00:00 CET */, std::nullopt,
       "2026-03-29T01:30:00Z"},
      {"Europe/Berlin",
       "daily 09:00 across the change: 09:00 CEST = 07:00Z, 23 hours after 09:00 CET the day "
       "before",
       S::daily(9, 0), "2026-03-28T08:00:00Z" /* 09:00 CET */, std::nullopt,
       "2026-03-29T07:00:00Z"},
      {"Europe/Berlin", "daily 02:30 on the fall-back day: the first 02:30 (CEST, 00:30Z)",
       S::daily(2, 30), "2026-10-24T22:00:00Z" /* 00:00 CEST */, std::nullopt,
       "2026-10-25T00:30:00Z"},
      {"Europe/Berlin",
       "daily 02:30 after running at the first 02:30: not again at the second 02:30 (01:30Z) but "
       "the next day, 02:30 CET = 01:30Z on the 26th",
       S::daily(2, 30), "2026-10-25T00:30:00Z", std::nullopt, "2026-10-26T01:30:00Z"},
      {"Europe/Berlin",
       "every 30m across the autumn repeat: 02:45 CEST (00:45Z) → 02:15 CET (01:15Z), 30 real "
       "minutes",
       S::every(30), "2026-10-25T00:50:00Z", at("2026-10-25T00:45:00Z"), "2026-10-25T01:15:00Z"},
      // America/New_York: 1 November 2026 02:00 EDT → 01:00 EST.
      {"America/New_York",
       "daily 01:30 asked during the repeated hour (01:45 EST): tomorrow at 01:30 EST, never a "
       "second run today",
       S::daily(1, 30), "2026-11-01T06:45:00Z", std::nullopt, "2026-11-02T06:30:00Z"},
      // Intervals and one-shots.
      {"UTC", "every 30m, never run: from now", S::every(30), "2026-05-01T12:00:00Z", std::nullopt,
       "2026-05-01T12:30:00Z"},
      {"UTC", "every 30m, last run 3 hours ago: overdue", S::every(30), "2026-05-01T12:00:00Z",
       noon - std::chrono::hours(3), "2026-05-01T09:30:00Z"},
      {"UTC", "every 0m: never due, not due at every tick", S::every(0), "2026-05-01T12:00:00Z",
       noon, "nothing"},
      {"UTC", "an interval past the clock's range ends at the last second the store can write",
       S::every(INT64_MAX), "2026-05-01T12:00:00Z", std::nullopt, "2262-04-11T23:47:15Z"},
      {"UTC", "once, 59 s late: still pending", S::once(noon), "2026-05-01T12:00:59Z", std::nullopt,
       "2026-05-01T12:00:00Z"},
      {"UTC", "once, a minute late: gone", S::once(noon), "2026-05-01T12:01:00Z", std::nullopt,
       "nothing"},
      {"UTC", "once that has run", S::once(noon), "2026-05-01T11:00:00Z",
       noon - std::chrono::hours(2), "nothing"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.zone) + ": " + c.why);
    std::optional<SystemTime> next = c.spec.next(at(c.after), c.lastRun, zone(c.zone));
    EXPECT_EQ(next ? formatISO8601(*next) : "nothing", c.expected);
    if (next) {
      EXPECT_EQ(parseISO8601(formatISO8601(*next)), next) << "the store can write it";
    }
  }
}

// The JSON form: one case key holding labelled fields, `_0` for the once date, and
// failures that name what is wrong.
TEST(ScheduleSpec, CodesAsJSONWithOneCaseKey) {
  const std::pair<S, const char*> cases[] = {
      {S::daily(9, 30), R"({"daily":{"hour":9,"minute":30,"weekdays":[]}})"},
      {S::daily(18, 5, {6, 2}), R"({"daily":{"hour":18,"minute":5,"weekdays":[2,6]}})"},
      {S::every(90), R"({"every":{"minutes":90}})"},
      {S::once(at("2026-10-25T12:00:00Z")), R"({"once":{"_0":"2026-10-25T12:00:00Z"}})"},
  };
  for (const auto& [spec, json] : cases) {
    SCOPED_TRACE(json);
    EXPECT_EQ(encodeCompact(spec.encode()), json);
    Expected<ScheduleSpec> decoded = ScheduleSpec::decode(*parseJSON(json));
    ASSERT_TRUE(decoded) << decoded.error();
    EXPECT_EQ(*decoded, spec);
  }
  EXPECT_EQ(*ScheduleSpec::decode(*parseJSON(R"({"every":{"minutes":30.0},"note":"kept"})")),
            S::every(30))
      << "unknown keys are ignored, whole floats are whole numbers";
  // Values the grammar never makes but code can still read back, so one such item can't
  // make a whole store file unreadable.
  for (const S& odd : {S::daily(24, 60, {0, 8}), S::every(-5)}) {
    SCOPED_TRACE(encodeCompact(odd.encode()));
    EXPECT_EQ(ScheduleSpec::decode(odd.encode()).value(), odd);
  }

  const std::pair<const char*, const char*> bad[] = {
      {R"({"every":{"minutes":5},"once":{"_0":"2026-10-25T12:00:00Z"}})",
       "Invalid number of keys found, expected one."},
      {R"({"daily":[9,30]})", "daily: expected an object, found array"},
      {R"({"daily":{"hour":4294967296,"minute":0,"weekdays":[]}})",
       "daily.hour: expected -2147483648 to 2147483647"},
      {R"({"daily":{"hour":9,"minute":1.5,"weekdays":[]}})",
       "daily.minute: expected a whole number that fits in 64 bits"},
      {R"({"daily":{"hour":9,"minute":0}})", "daily.weekdays: missing"},
      {R"({"once":{"date":"2026-10-25T12:00:00Z"}})", "once._0: missing"},
      {R"({"once":{"_0":"2026-10-25 12:00"}})",
       "once._0: expected a date like 2026-05-01T09:30:00Z"},
  };
  for (const auto& [json, error] : bad) {
    SCOPED_TRACE(json);
    Expected<ScheduleSpec> decoded = ScheduleSpec::decode(*parseJSON(json));
    ASSERT_FALSE(decoded);
    EXPECT_EQ(decoded.error(), error);
  }
}

// Every trigger form, with payloads keeping their case, "~" expanded and written back,
// and the canonical text parsing back to the same trigger. Anything outside the grammar
// gives nothing; so do folders, globs and addresses that a watcher couldn't use.
TEST(ScheduleTrigger, ParsesTheGrammarAndRoundTripsThroughText) {
  testing::TempHome home;
  std::string h = Paths::home();
  struct Case {
    const char* input;
    T expected;
    const char* text;
  };
  const Case cases[] = {
      {"NEW FILE IN ~/Docs matching *.PDF", T::newFile(h + "/Docs", "*.PDF"),
       "new file in ~/Docs matching *.PDF"},
      {"\t new file in   /srv/in \t", T::newFile("/srv/in", "*"), "new file in /srv/in"},
      {"new file in /x matching a* matching b", T::newFile("/x", "a*"),
       "new file in /x matching a*"},
      {"new file in /Inbox MATCHING *.pdf", T::newFile("/Inbox MATCHING *.pdf", "*"),
       "new file in /Inbox MATCHING *.pdf"},
      {"App Opens   Visual Studio Code ", T::appOpens("Visual Studio Code"),
       "app opens Visual Studio Code"},
      {"page changes https://example.com/status", T::pageChanges("https://example.com/status", 30),
       "page changes https://example.com/status every 30m"},
      {"PAGE CHANGES https://Example.com/A?q=B EVERY 2H",
       T::pageChanges("https://Example.com/A?q=B", 120),
       "page changes https://Example.com/A?q=B every 2h"},
      {"page changes http://x.org every soon", T::pageChanges("http://x.org", 30),
       "page changes http://x.org every 30m"},
      // The last character is taken for the unit, so only the "1" is read: 1 minute, raised to 5.
      {"page changes http://x.org every 10", T::pageChanges("http://x.org", 5),
       "page changes http://x.org every 5m"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.input);
    std::optional<ScheduleTrigger> parsed = ScheduleTrigger::parse(c.input);
    ASSERT_TRUE(parsed.has_value());
    EXPECT_EQ(*parsed, c.expected);
    EXPECT_EQ(parsed->text(), c.text);
    EXPECT_EQ(ScheduleTrigger::parse(c.text), parsed);
  }

  const char* const bad[] = {
      // clang-format off
      "", "every 30m", "new file in", "new file in relative/dir", "new file in ~bob/Downloads",
      "new file in  matching *.pdf",
      // globs fnmatch would not read as written, and an empty one
      "new file in /x matching [abc", "new file in /x matching *.pdf\\", "new file in /x matching  matching y",
      "app opens \t ", "app closes Slack",
      // addresses that are not http(s) URLs with a host, and intervals past 64 bits
      "page changes ftp://x", "page changes HTTP://X", "page changes https://", "page changes https://a b.com",
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
  const std::tuple<const char*, const char*, bool> cases[] = {
      {"Report.PDF", "*.pdf", true},
      {".hidden", "*", true},
      {"notes.txt", "*.pdf", false},
      {"report-7.csv", "report-[0-9]*.csv", true},
      {"report-x.csv", "report-[0-9]*.csv", false},
      {"a.pdf.part", "*.pdf", false},
  };
  for (const auto& [name, glob, matches] : cases) {
    SCOPED_TRACE(std::string(name) + " ~ " + glob);
    EXPECT_EQ(ScheduleTrigger::matches(name, glob), matches);
  }
}

// The trigger's JSON form, and failures that name the field.
TEST(ScheduleTrigger, CodesAsJSONWithOneCaseKey) {
  const std::pair<T, const char*> cases[] = {
      {T::newFile("/home/u/Downloads", "*.pdf"),
       R"({"newFile":{"folder":"/home/u/Downloads","glob":"*.pdf"}})"},
      {T::appOpens("Slack"), R"({"appOpens":{"app":"Slack"}})"},
      {T::pageChanges("https://x.org", 120),
       R"({"pageChanges":{"minutes":120,"url":"https://x.org"}})"},
  };
  for (const auto& [trigger, json] : cases) {
    SCOPED_TRACE(json);
    EXPECT_EQ(encodeCompact(trigger.encode()), json);
    Expected<ScheduleTrigger> decoded = ScheduleTrigger::decode(*parseJSON(json));
    ASSERT_TRUE(decoded) << decoded.error();
    EXPECT_EQ(*decoded, trigger);
  }
  const std::pair<const char*, const char*> bad[] = {
      {R"({"daily":{"hour":9,"minute":0,"weekdays":[]}})",
       "Invalid number of keys found, expected one."},
      {R"({"newFile":{"folder":"/x"}})", "newFile.glob: missing"},
      {R"({"appOpens":{"app":7}})", "appOpens.app: expected a string, found number"},
      {R"(null)", "trigger: expected an object, found null"},
  };
  for (const auto& [json, error] : bad) {
    SCOPED_TRACE(json);
    Expected<ScheduleTrigger> decoded = ScheduleTrigger::decode(*parseJSON(json));
    ASSERT_FALSE(decoded);
    EXPECT_EQ(decoded.error(), error);
  }
}

}  // namespace
}  // namespace zorvane
