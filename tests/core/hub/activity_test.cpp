#include "core/hub/activity.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <thread>

#include "core/base/paths.h"
#include "core/base/run_loop.h"
#include "core/hub/activity_log.h"
#include "support/test_support.h"

namespace zorvane {

void PrintTo(const ActivityEvent& event, std::ostream* out) {
  *out << encodeCompact(event.encode());
}

namespace {

using Kind = ActivityEvent::Kind;

ActivityEvent storedEvent(const char* id, const char* date, Kind kind, std::string text,
                          std::optional<bool> ok) {
  return ActivityEvent(*UUID::parse(id), *parseISO8601(date), kind, "Schedule · Backup",
                       std::move(text), ok);
}

// The file is one compact line, newest first; `ok` is left out when absent; it reads back
// equal, new events too (they are dated in whole seconds). The 501st event drops the oldest.
TEST(ActivityStore, KeepsTheNewest500InACompactFile) {
  testing::TempHome home;
  EXPECT_EQ(ActivityStore::defaultURL(), Paths::dataDirectory() + "/activity.json");
  ActivityStore store(ActivityStore::defaultURL());
  ActivityEvent ran = storedEvent("E621E1F8-C36C-495A-93FC-0C247A3E6E5F", "2026-05-01T09:30:00Z",
                                  Kind::schedule, "Finished", true);
  ActivityEvent fired = storedEvent("0A0B0C0D-0000-4000-8000-000000000001", "2026-05-01T09:31:00Z",
                                    Kind::trigger, "A file changed", std::nullopt);
  store.add(ran);
  store.add(fired);
  store.flush();
  EXPECT_EQ(
      testing::readAll(store.url()),
      R"([{"actor":"Schedule · Backup","date":"2026-05-01T09:31:00Z","id":"0A0B0C0D-0000-4000-8000-000000000001",)"
      R"("kind":"trigger","text":"A file changed"},{"actor":"Schedule · Backup","date":"2026-05-01T09:30:00Z",)"
      R"("id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","kind":"schedule","ok":true,"text":"Finished"}])");
  EXPECT_EQ(ActivityStore(store.url()).events(), (std::vector<ActivityEvent>{fired, ran}));

  for (int i = 0; i < 498; ++i) store.add(ActivityEvent(Kind::message, "a → b", std::to_string(i)));
  ASSERT_EQ(store.events().size(), 500u);
  EXPECT_EQ(store.events().back(), ran);
  ActivityEvent newest(Kind::reply, "b → a", "newest", false);
  store.add(newest);
  ASSERT_EQ(store.events().size(), 500u);
  EXPECT_EQ(store.events().front(), newest);
  EXPECT_EQ(store.events().back(), fired) << "the oldest went";
  store.flush();
  EXPECT_EQ(ActivityStore(store.url()).events(), store.events());
  EXPECT_EQ(testing::readAll(store.url()).find('\n'), std::string::npos);
}

// What each kind of file decodes to; a file that doesn't decode loads empty and is kept
// aside whole.
TEST(ActivityStore, DecodesAllOrNothingAndKeepsBadFilesAside) {
  testing::TempHome home;
  ActivityEvent event = storedEvent("E621E1F8-C36C-495A-93FC-0C247A3E6E5F", "2026-05-01T09:30:00Z",
                                    Kind::approval, "Allowed: run a command", true);
  JSONValue good = event.encode();
  struct Case {
    std::string name;
    std::function<void(JSONValue&)> change;
    bool loads;
  };
  const std::vector<Case> cases = {
      {"as written", [](JSONValue&) {}, true},
      {"without ok", [](JSONValue& v) { v.erase("ok"); }, true},
      {"unknown keys", [](JSONValue& v) { v["source"] = "phone"; }, true},
      {"unknown kind", [](JSONValue& v) { v["kind"] = "note"; }, false},
      {"kind in capitals", [](JSONValue& v) { v["kind"] = "Approval"; }, false},
      {"ok as text", [](JSONValue& v) { v["ok"] = "true"; }, false},
      {"bad id", [](JSONValue& v) { v["id"] = "E621E1F8-C36C-495A-93FC-0C247A3E6E5"; }, false},
      {"date in local form", [](JSONValue& v) { v["date"] = "2026-05-01T09:30:00"; }, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::TempDir dir;
    JSONValue changed = good;
    c.change(changed);
    std::string text = "[" + encodeCompact(changed) + "," + encodeCompact(good) + "]";
    std::string path = dir.write("activity.json", text);
    ActivityStore store(path);
    if (c.loads) {
      ASSERT_EQ(store.events().size(), 2u);
      EXPECT_EQ(store.events()[1], event);
      EXPECT_FALSE(std::filesystem::exists(path + ".corrupt"));
      continue;
    }
    EXPECT_TRUE(store.events().empty());
    EXPECT_EQ(testing::readAll(path + ".corrupt"), text);
    store.add(event);
    store.flush();
    EXPECT_EQ(testing::readAll(path + ".corrupt"), text)
        << "the next add must not touch the kept file";
    EXPECT_EQ(ActivityStore(path).events(), std::vector<ActivityEvent>{event});
  }
  EXPECT_EQ(
      ActivityStore::decode(
          JSONValue::parse(R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F",)"
                           R"("date":"2026-05-01T09:30:00Z","kind":"note","actor":"","text":""}])"))
          .error(),
      "item 0: kind: unknown kind \"note\"");
}

// On the main queue an event is stored at once; from another thread the add returns
// before the event is stored, and events arrive in the order they were posted.
TEST(ActivityLog, StoresOnTheMainQueueInPostOrder) {
  testing::TempDir dir;
  RunLoop loop;
  std::shared_ptr<ActivityLog> log = ActivityLog::make(dir.file("activity.json"), loop);
  int changes = 0;
  log->onChange = [&] { ++changes; };

  bool ranOnQueue = false;
  loop.post([&] {
    log->add(ActivityEvent(Kind::piece, "report", "Bonded (Claude Code)"));
    ranOnQueue = log->events().size() == 1;
  });
  loop.runUntilIdle();
  EXPECT_TRUE(ranOnQueue) << "an add on the main queue is stored before it returns";
  EXPECT_EQ(changes, 1);

  std::thread writer([&] {
    for (int i = 0; i < 3; ++i) log->add(ActivityEvent(Kind::message, "a → b", std::to_string(i)));
  });
  writer.join();
  EXPECT_EQ(log->events().size(), 1u) << "adds from another thread wait for the main queue";
  loop.runUntilIdle();
  ASSERT_EQ(log->events().size(), 4u);
  EXPECT_EQ(log->events()[0].text + log->events()[1].text + log->events()[2].text, "210");
  EXPECT_EQ(changes, 4);

  std::thread late([&] { log->add(ActivityEvent(Kind::skill, "Tidy", "Saved")); });
  late.join();
  log.reset();
  EXPECT_EQ(loop.runUntilIdle(), 1u) << "a post that outlives the log runs and does nothing";
}

}  // namespace
}  // namespace zorvane
