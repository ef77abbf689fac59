#include "core/hub/schedule_store.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "core/base/file_io.h"
#include "core/base/utf8.h"
#include "support/test_support.h"
#include "support/time_support.h"

namespace zorvane {

[[maybe_unused]] static void PrintTo(const ScheduleItem& item, std::ostream* out) {
  *out << encodeCompact(item.encode());
}

namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

constexpr seconds kGrace{7200};

using std::filesystem::exists;
using testing::at;
using testing::ScopedLogFile;

Calendar berlin() { return testing::zone("Europe/Berlin"); }

// A clock the test moves by hand.
struct ManualClock {
  SystemTime now;
  ScheduleStore::Clock function() {
    return [this] { return now; };
  }
};

ScheduleItem makeItem(const char* title, ScheduleSpec spec, std::optional<SystemTime> nextRun) {
  ScheduleItem item(UUID(), title, std::string("Prompt of ") + title, std::move(spec), true, false,
                    at("2026-01-01T00:00:00Z"), Calendar::utc());
  item.nextRun = nextRun;
  return item;
}

// A tick over a store with items of every kind: due ones run (at most `grace` late, exactly
// `grace` included), later ones are missed once and move on to their next future time, a
// `once` is disabled either way, and paused, event, cloud, unscheduled and future items
// are left alone. The result is in store order, as the items were before the tick.
TEST(ScheduleStore, TakeDueFollowsTheCatchUpRule) {
  testing::TempDir dir;
  std::string url = dir.file("schedules.json");
  SystemTime now = at("2026-05-04T12:00:00Z");  // a Monday, 14:00 in Berlin (CEST)
  ManualClock clock{now};
  ScheduleStore store(url, clock.function(), berlin());

  ScheduleItem every = makeItem("every", ScheduleSpec::every(30), now);
  ScheduleItem dailyMissed =
      makeItem("daily missed", ScheduleSpec::daily(9, 0), at("2026-05-01T07:00:00Z"));
  ScheduleItem onceMissed =
      makeItem("once missed", ScheduleSpec::once(now - hours(3)), now - hours(3));
  ScheduleItem onceLate =
      makeItem("once late", ScheduleSpec::once(now - minutes(119)), now - minutes(119));
  ScheduleItem graceExact = makeItem("grace exact", ScheduleSpec::every(60), now - kGrace);
  ScheduleItem graceOver =
      makeItem("grace over", ScheduleSpec::every(60), now - kGrace - seconds(1));
  graceOver.lastRun = at("2026-05-04T08:00:00Z");
  ScheduleItem paused = makeItem("paused", ScheduleSpec::every(30), now - hours(1));
  paused.enabled = false;
  ScheduleItem onEvent = makeItem("on event", ScheduleSpec::every(60), now - hours(1));
  onEvent.trigger = ScheduleTrigger::appOpens("Slack");
  ScheduleItem cloud = makeItem("cloud", ScheduleSpec::daily(9, 0), now - hours(1));
  cloud.cloudRoutineID = "trig_01";
  ScheduleItem unscheduled = makeItem("unscheduled", ScheduleSpec::daily(9, 0, {0}), std::nullopt);
  ScheduleItem future = makeItem("future", ScheduleSpec::every(30), now + hours(1));
  const std::vector<ScheduleItem> before = {every,      dailyMissed, onceMissed, onceLate,
                                            graceExact, graceOver,   paused,     onEvent,
                                            cloud,      unscheduled, future};
  for (const ScheduleItem& item : before) store.upsert(item);

  std::vector<ScheduleItem> due = store.takeDue(now, kGrace);
  EXPECT_EQ(due, (std::vector<ScheduleItem>{every, onceLate, graceExact}));

  const std::vector<ScheduleItem>& after = store.items();
  ASSERT_EQ(after.size(), before.size());
  const std::string missedDaily =
      "Missed May 1, 2026 at 9:00 AM (this computer was asleep or Zorvane wasn't running)";

  EXPECT_EQ(after[0].lastRun, now);
  EXPECT_EQ(after[0].nextRun, now + minutes(30)) << "an interval continues from this tick";

  EXPECT_EQ(after[1].lastRun, std::nullopt) << "a missed run is not a run";
  EXPECT_EQ(after[1].lastResult, missedDaily);
  EXPECT_EQ(
      after[1].history,
      (std::vector<ScheduleRun>{{at("2026-05-01T07:00:00Z"), std::nullopt, false, missedDaily}}))
      << "three days asleep: one miss";
  EXPECT_EQ(after[1].nextRun, at("2026-05-05T07:00:00Z")) << "the next 09:00 CEST from now";

  EXPECT_FALSE(after[2].enabled);
  EXPECT_EQ(after[2].nextRun, std::nullopt);
  EXPECT_EQ(after[2].lastResult,
            "Missed May 4, 2026 at 11:00 AM (this computer was asleep or Zorvane wasn't running)");

  EXPECT_FALSE(after[3].enabled) << "a one-shot is done after its run";
  EXPECT_EQ(after[3].lastRun, now);
  EXPECT_EQ(after[3].history, std::nullopt) << "the run's outcome comes through record";

  EXPECT_EQ(after[4].lastRun, now) << "exactly grace late still runs";

  EXPECT_EQ(after[5].lastRun, at("2026-05-04T08:00:00Z")) << "one second past grace is missed";
  EXPECT_EQ(after[5].lastResult,
            "Missed May 4, 2026 at 11:59 AM (this computer was asleep or "
            "Zorvane wasn't running)");
  EXPECT_EQ(after[5].nextRun, now + minutes(60));

  for (size_t index = 6; index < before.size(); ++index) {
    SCOPED_TRACE(before[index].title);
    EXPECT_EQ(after[index], before[index]);
  }

  // What was decided is on disk.
  EXPECT_EQ(ScheduleStore(url).items(), after);

  // Nothing is due a moment later, and a tick that finds nothing writes nothing.
  const ScheduleItem everyAfterTick = after[0];
  ASSERT_EQ(::unlink(url.c_str()), 0);
  EXPECT_TRUE(store.takeDue(now + seconds(1), kGrace).empty());
  EXPECT_FALSE(exists(url));
  EXPECT_EQ(store.takeDue(now + minutes(30), kGrace), (std::vector<ScheduleItem>{everyAfterTick}));
  EXPECT_TRUE(exists(url));
}

// record keeps the ten newest outcomes, cuts long texts by characters, defaults the
// start to now, leaves the clock fields alone, and ignores an item that is gone.
TEST(ScheduleStore, RecordKeepsTheNewestTenAndCutsLongResults) {
  testing::TempDir dir;
  std::string url = dir.file("schedules.json");
  ManualClock clock{at("2026-05-04T12:00:00.750Z")};
  ScheduleStore store(url, clock.function(), berlin());
  ScheduleItem item = makeItem("news", ScheduleSpec::every(30), at("2026-05-04T12:30:00Z"));
  item.lastRun = at("2026-05-04T12:00:00Z");
  store.upsert(item);

  for (int run = 0; run <= 10; ++run) {
    clock.now += minutes(1);
    store.record(item.id, "run " + std::to_string(run), run % 2 == 0);
  }
  const ScheduleItem& recorded = store.items().front();
  ASSERT_TRUE(recorded.history.has_value());
  ASSERT_EQ(recorded.history->size(), ScheduleItem::kHistoryLimit);
  EXPECT_EQ(recorded.history->back().result, "run 1") << "the eleventh pushed out the oldest";
  EXPECT_EQ(recorded.history->front(),
            (ScheduleRun{at("2026-05-04T12:11:00Z"), at("2026-05-04T12:11:00Z"), true, "run 10"}))
      << "started defaults to now, in whole seconds as stored";
  EXPECT_EQ(recorded.lastResult, "run 10");
  EXPECT_EQ(recorded.lastRun, item.lastRun);
  EXPECT_EQ(recorded.nextRun, item.nextRun);

  std::string long3000;
  for (int i = 0; i < 3000; ++i) long3000 += "\u00e9";
  store.record(item.id, long3000, false, at("2026-05-04T11:00:00Z"));
  const ScheduleItem& cut = store.items().front();
  EXPECT_EQ(utf8Length(*cut.lastResult), ScheduleItem::kLastResultLimit);
  EXPECT_EQ(utf8Length(cut.history->front().result), ScheduleRun::kResultLimit);
  EXPECT_EQ(cut.history->front().started, at("2026-05-04T11:00:00Z"));
  EXPECT_EQ(ScheduleStore(url).items(), store.items());

  // An item deleted while it ran: nothing changes, nothing is written.
  ASSERT_EQ(::unlink(url.c_str()), 0);
  std::vector<ScheduleItem> kept = store.items();
  store.record(UUID(), "late result", true);
  EXPECT_EQ(store.items(), kept);
  EXPECT_FALSE(exists(url));
}

// upsert replaces in place or appends; remove takes every item with the id and saves
// even when there was none; the file is the pretty, key-sorted array read back whole.
TEST(ScheduleStore, UpsertRemoveAndTheFileFormat) {
  testing::TempDir dir;
  std::string url = dir.file("data/schedules.json");
  ScheduleStore store(url);
  EXPECT_TRUE(store.items().empty()) << "no file yet";
  ScheduleItem inbox(*UUID::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"), "Inbox",
                     "Summarise my inbox", ScheduleSpec::daily(9, 0, {3, 2}), true, false,
                     at("2026-05-04T12:00:00Z"), berlin());
  EXPECT_EQ(inbox.nextRun, at("2026-05-05T07:00:00Z")) << "a new item's first time";
  store.upsert(inbox);
  std::string text = testing::readAll(url);
  EXPECT_EQ(text, encodePretty(*parseJSON(text))) << "pretty, keys sorted";
  EXPECT_EQ(*parseJSON(text), JSONValue::parse(R"([{"enabled":true,"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F",
      "nextRun":"2026-05-05T07:00:00Z","prompt":"Summarise my inbox","title":"Inbox","trusted":false,
      "spec":{"daily":{"hour":9,"minute":0,"weekdays":[2,3]}}}])"));

  // Every optional field set survives the file.
  ScheduleItem full =
      makeItem("full", ScheduleSpec::once(at("2026-10-25T12:00:00Z")), std::nullopt);
  full.trusted = true;
  full.lastRun = at("2026-05-01T10:00:00Z");
  full.lastResult = "Done";
  full.history = std::vector<ScheduleRun>{
      {at("2026-05-01T10:00:00Z"), at("2026-05-01T10:02:00Z"), true, "Done"},
      {at("2026-04-30T10:00:00Z"), std::nullopt, false, "Missed"}};
  full.agent = "codex";
  full.trigger = ScheduleTrigger::pageChanges("https://example.com", 60);
  full.cloudRoutineID = "trig_01";
  store.upsert(full);
  EXPECT_EQ(ScheduleStore(url).items(), (std::vector<ScheduleItem>{inbox, full}));
  EXPECT_EQ(full.whenText(berlin()), "page changes https://example.com every 1h");

  ScheduleItem renamed = inbox;
  renamed.title = "Morning inbox";
  store.upsert(renamed);
  EXPECT_EQ(store.items(), (std::vector<ScheduleItem>{renamed, full})) << "replaced in place";
  EXPECT_EQ(store.item(UUID()), nullptr);

  store.remove(renamed.id);
  EXPECT_EQ(store.items(), (std::vector<ScheduleItem>{full}));
  ASSERT_EQ(::unlink(url.c_str()), 0);
  store.remove(UUID());
  EXPECT_EQ(ScheduleStore(url).items(), (std::vector<ScheduleItem>{full}))
      << "saved though nothing was removed";

  // Two items with one id (a hand-edited file): remove takes both.
  ASSERT_TRUE(writeFileAtomically(url, ScheduleStore::encodeItems({full, inbox, full})));
  ScheduleStore twice(url);
  ASSERT_EQ(twice.items().size(), 3u);
  twice.remove(full.id);
  EXPECT_EQ(twice.items(), (std::vector<ScheduleItem>{inbox}));
}

// A file that doesn't decode, in part or at all, starts the store empty; it is moved
// aside with a log line that says why, and the next save can't overwrite it.
TEST(ScheduleStore, UndecodableFileIsKeptAside) {
  testing::TempDir dir;
  ScopedLogFile log(dir.file("zorvane.log"));
  ScheduleItem good = makeItem("good", ScheduleSpec::every(30), std::nullopt);
  JSONValue badItem = good.encode();
  badItem["spec"] = parseJSON(R"({"daily":{"hour":"9","minute":0,"weekdays":[]}})").value();
  JSONValue mixed = JSONValue::array({good.encode(), badItem});

  struct Case {
    const char* name;
    std::string content;
    std::string logged;
  };
  const Case cases[] = {
      {"a lone bracket", "[", "not valid JSON"},
      {"an object", "{}", "not a JSON array"},
      {"one bad item among good ones", encodePretty(mixed),
       "item 1: spec: daily.hour: expected a number, found string"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string url = dir.file(std::string(c.name) + ".json");
    ASSERT_TRUE(writeFileAtomically(url, c.content));
    ScheduleStore store(url);
    EXPECT_TRUE(store.items().empty());
    EXPECT_EQ(testing::readAll(url + ".corrupt"), c.content);
    EXPECT_NE(log.text().find(url + ": "), std::string::npos);
    EXPECT_NE(log.text().find(c.logged), std::string::npos) << log.text();

    store.upsert(good);
    EXPECT_EQ(ScheduleStore(url).items(), (std::vector<ScheduleItem>{good}));
    EXPECT_EQ(testing::readAll(url + ".corrupt"), c.content) << "the old file is still there";
  }
}

// Item records: optional fields may be missing or null; anything else wrong names the key.
TEST(ScheduleItem, DecodeNamesWhatIsWrong) {
  ScheduleItem item = makeItem("item", ScheduleSpec::every(30), at("2026-05-04T12:30:00Z"));
  JSONValue nulls = item.encode();
  for (const char* key :
       {"lastRun", "lastResult", "history", "agent", "trigger", "cloudRoutineID"}) {
    nulls[key] = nullptr;
  }
  nulls["futureField"] = "ignored";
  Expected<ScheduleItem> decoded = ScheduleItem::decode(nulls);
  ASSERT_TRUE(decoded) << decoded.error();
  EXPECT_EQ(*decoded, item);

  struct Bad {
    const char* key;
    JSONValue value;  // null: the key is removed
    const char* error;
  };
  const Bad bad[] = {
      {"id", "not-a-uuid", "id: not a UUID"},
      {"title", nullptr, "title: missing"},
      {"spec", JSONValue::object(), "spec: Invalid number of keys found, expected one."},
      {"enabled", "yes", "enabled: expected true or false, found string"},
      {"nextRun", "2026-05-04T12:30:00+02:00",
       "nextRun: expected a date like 2026-05-01T09:30:00Z"},
      {"history",
       parseJSON(
           R"([{"started":"2026-05-04T12:00:00Z","ok":true,"result":"x"},{"started":"2026-05-04T12:00:00Z","result":"x"}])")
           .value(),
       "history[1].ok: missing"},
      {"trigger", parseJSON(R"({"appOpens":{}})").value(), "trigger: appOpens.app: missing"},
  };
  for (const Bad& b : bad) {
    SCOPED_TRACE(b.error);
    JSONValue value = item.encode();
    if (b.value.is_null()) {
      value.erase(b.key);
    } else {
      value[b.key] = b.value;
    }
    Expected<ScheduleItem> result = ScheduleItem::decode(value);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error(), b.error);
  }
}

}  // namespace
}  // namespace zorvane
