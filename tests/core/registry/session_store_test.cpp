#include "core/registry/session_store.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "core/base/file_io.h"
#include "core/base/log.h"
#include "core/base/paths.h"
#include "support/test_support.h"
#include "support/time_support.h"

namespace zorvane {

void PrintTo(const SessionRecord& record, std::ostream* out) { *out << encodeCompact(record.encode()); }

namespace {

using testing::at;
using testing::folderEntries;

// Forks `count` real processes, each running `work(index)` and exiting with its result (a
// child that throws exits 100; one that hangs is ended by SIGALRM after 60 s). While any
// child runs, the parent calls `watch()` over and over; without one it just waits.
// Returns how each child ended: "exit <code>" or "signal <number>".
std::vector<std::string> runChildren(int count, const std::function<int(int)>& work,
                                     const std::function<void()>& watch = nullptr) {
  std::vector<pid_t> children;
  for (int index = 0; index < count; ++index) {
    pid_t pid = fork();
    if (pid == 0) {
      alarm(60);
      int code = 100;
      try {
        code = work(index);
      } catch (...) {
      }
      _exit(code);  // no exit handlers: they belong to the parent's test run
    }
    children.push_back(pid);
  }
  std::vector<std::string> endings(children.size());
  size_t running = children.size();
  for (size_t i = 0; i < children.size(); ++i) {
    if (children[i] > 0) continue;
    endings[i] = "fork failed";
    --running;
  }
  while (running > 0) {
    if (watch) watch();
    for (size_t i = 0; i < children.size(); ++i) {
      if (children[i] <= 0) continue;
      int status = 0;
      if (waitpid(children[i], &status, watch ? WNOHANG : 0) != children[i]) continue;
      endings[i] = WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                                     : "signal " + std::to_string(WTERMSIG(status));
      children[i] = 0;
      --running;
    }
  }
  return endings;
}

SessionRecord recordFor(const Target& target, std::string name, const char* updatedAt = "2026-05-01T09:30:00Z") {
  SessionRecord record;
  record.targetKey = target.targetKey();
  record.looseKey = target.looseKey();
  record.displayName = std::move(name);
  record.lastPrompt = "What is this?";
  record.lastAnswer = "A folder of reports.";
  record.updatedAt = at(updatedAt);
  record.turns = 1;
  return record;
}

Target editorWindow(uint32_t windowID, std::string title) {
  return Target::window(300, windowID, "org.gnome.TextEditor", "Text Editor", std::move(title));
}

Target docsTab(const char* url, std::string title) {
  return Target::browserTab(BrowserApp::chromium, 5, *URL::parse(url), std::move(title));
}

// An exact key wins over any loose one; among loose hits the newest, the first of equal
// times; empty titles and folders have no loose key.
TEST(SessionStore, PreviousFindsExactThenLooseKey) {
  testing::TempDir dir;
  SessionStore store(dir.file("sessions.json"));
  // Upserted oldest first, so r0 ends up first.
  store.upsert(recordFor(Target::folder(URL::fileURL("/home/u/report")), "r4"));
  store.upsert(recordFor(docsTab("https://b.example/", "Docs"), "r3", "2026-05-01T09:00:00Z"));
  store.upsert(recordFor(editorWindow(41, "Shopping"), "r2", "2026-05-01T11:00:00Z"));
  store.upsert(recordFor(docsTab("https://a.example/page", "Docs"), "r1", "2026-05-01T09:00:00Z"));
  store.upsert(recordFor(editorWindow(50, "Shopping"), "r0", "2026-05-01T10:00:00Z"));
  ASSERT_EQ(store.records().front().displayName, "r0");

  struct Case {
    std::string name;
    Target target;
    std::optional<std::string> found;
  };
  const std::vector<Case> cases = {
      {"exact window", editorWindow(41, "Shopping"), "r2"},
      {"exact window, retitled", editorWindow(41, "Other"), "r2"},
      {"exact beats a newer loose hit", editorWindow(50, "Shopping"), "r0"},
      {"reopened window: newest loose hit", editorWindow(77, "Shopping"), "r2"},
      {"reopened window without title", editorWindow(77, ""), std::nullopt},
      {"reopened window, other title", editorWindow(77, "Unknown"), std::nullopt},
      {"reloaded tab: equal times, first in order", docsTab("https://c.example/", "Docs"), "r1"},
      {"tab changed behind #", docsTab("https://a.example/page#part-2", "Renamed"), "r1"},
      {"folder", Target::folder(URL::fileURL("/home/u/report")), "r4"},
      {"file of the same path", Target::file(URL::fileURL("/home/u/report")), std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto previous = store.previous(c.target);
    ASSERT_EQ(previous.has_value(), c.found.has_value());
    if (previous) {
      EXPECT_EQ(previous->displayName, *c.found);
    }
  }
}

// A target has one record, a conversation has one record (it follows a renamed file),
// and the 201st record drops the oldest.
TEST(SessionStore, UpsertKeepsOneRecordPerTargetAndSessionUpToTheCap) {
  testing::TempDir dir;
  SessionStore store(dir.file("sessions.json"));
  Target oldPath = Target::file(URL::fileURL("/home/u/notes.txt"));
  Target newPath = Target::file(URL::fileURL("/home/u/archive/notes.txt"));

  SessionRecord first = recordFor(oldPath, "notes.txt");
  store.upsert(first);
  SessionRecord restarted = recordFor(oldPath, "notes.txt");
  store.upsert(restarted);
  ASSERT_EQ(store.records().size(), 1u);
  EXPECT_EQ(store.records()[0].sessionID, restarted.sessionID) << "a new conversation replaces the old one";

  SessionRecord moved = recordFor(newPath, "notes.txt");
  moved.sessionID = restarted.sessionID;
  moved.turns = 2;
  store.upsert(moved);
  ASSERT_EQ(store.records().size(), 1u);
  EXPECT_EQ(store.records()[0], moved);
  EXPECT_FALSE(store.previous(oldPath)) << "the record under the old path goes";

  std::vector<SessionRecord> added;
  for (int i = 0; i < 199; ++i) {
    added.push_back(recordFor(Target::folder(URL::fileURL("/data/" + std::to_string(i))), std::to_string(i)));
    store.upsert(added.back());
  }
  ASSERT_EQ(store.records().size(), 200u);
  EXPECT_EQ(store.records().back(), moved);

  SessionRecord newest = recordFor(Target::folder(URL::fileURL("/data/new")), "new");
  store.upsert(newest);
  ASSERT_EQ(store.records().size(), 200u) << "200 remain, not 201";
  EXPECT_EQ(store.records().front(), newest);
  EXPECT_EQ(store.records().back(), added.front());
  EXPECT_FALSE(store.previous(newPath));

  store.flush();
  EXPECT_EQ(SessionStore(store.url()).records(), store.records());
}

// The file is pretty-printed with sorted keys, whole-second UTC dates and upper-case ids,
// leaves absent fields out, and reads back equal. forget always rewrites the file.
TEST(SessionStore, WritesTheFileAndReadsItBack) {
  testing::TempHome home;
  EXPECT_EQ(SessionStore::defaultURL(), Paths::dataDirectory() + "/sessions.json");
  SessionStore store(SessionStore::defaultURL());
  SessionRecord full = recordFor(Target::folder(URL::fileURL("/home/u/report")), "report");
  full.sessionID = *UUID::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
  full.updatedAt = at("2026-05-01T09:30:00.750Z");
  full.turns = 3;
  full.agent = "claude";
  full.externalID = "sess-42";
  SessionRecord bare = recordFor(Target::file(URL::fileURL("/home/u/a.txt")), "a.txt", "2026-05-02T08:00:00Z");
  bare.sessionID = *UUID::parse("0A0B0C0D-0000-4000-8000-000000000001");
  store.upsert(full);
  store.upsert(bare);
  store.flush();

  std::string text = testing::readAll(store.url());
  EXPECT_EQ(text, encodePretty(*parseJSON(text))) << "pretty, keys sorted";
  JSONValue file = *parseJSON(text);
  ASSERT_EQ(file.size(), 2u);
  EXPECT_EQ(file[0].size(), 7u) << "absent fields are left out: " << file[0];
  EXPECT_EQ(file[1]["sessionID"], "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  EXPECT_EQ(file[1]["updatedAt"], "2026-05-01T09:30:00Z");
  EXPECT_EQ(file[1]["externalID"], "sess-42");

  full.updatedAt = at("2026-05-01T09:30:00Z");
  EXPECT_EQ(store.records(), (std::vector<SessionRecord>{bare, full})) << "kept to the second, as the file keeps it";
  EXPECT_EQ(SessionStore(store.url()).records(), store.records());

  ASSERT_EQ(::unlink(store.url().c_str()), 0);
  store.forget(UUID());
  store.flush();
  EXPECT_EQ(SessionStore(store.url()).records(), store.records()) << "forget of an unknown id rewrites the file";
  store.forget(full.sessionID);
  store.flush();
  EXPECT_EQ(SessionStore(store.url()).records(), std::vector<SessionRecord>{bare});
}

// What each kind of file decodes to. A file that doesn't decode loads empty, is kept
// whole beside the store as ".corrupt" and logged, and the next save leaves it alone.
TEST(SessionStore, DecodesAllOrNothingAndKeepsBadFilesAside) {
  testing::TempHome home;
  SessionRecord record = recordFor(editorWindow(41, "Shopping"), "Shopping");
  record.agent = "codex";
  JSONValue good = record.encode();
  auto with = [&](const std::function<void(JSONValue&)>& change) {
    JSONValue changed = good;
    change(changed);
    return "[" + encodeCompact(good) + "," + encodeCompact(changed) + "]";
  };

  struct Case {
    std::string name;
    std::string file;
    size_t records;  // what loads
  };
  const std::vector<Case> cases = {
      {"empty array", "[]", 0},
      {"all fields", with([](JSONValue&) {}), 2},
      {"without the optional keys",
       with([](JSONValue& v) {
         v.erase("looseKey");
         v.erase("agent");
         v.erase("externalID");
       }),
       2},
      {"null optionals", with([](JSONValue& v) { v["looseKey"] = nullptr; v["agent"] = nullptr; }), 2},
      {"unknown keys", with([](JSONValue& v) { v["future"] = {{"x", 1}}; }), 2},
      {"no turns", with([](JSONValue& v) { v.erase("turns"); }), 0},
      {"turns past 64 bits", with([](JSONValue& v) { v["turns"] = 9223372036854775808ull; }), 0},
      {"no targetKey", with([](JSONValue& v) { v.erase("targetKey"); }), 0},
      {"looseKey a number", with([](JSONValue& v) { v["looseKey"] = 5; }), 0},
      {"fractional seconds", with([](JSONValue& v) { v["updatedAt"] = "2026-05-01T09:30:00.250Z"; }), 0},
      {"element not an object", "[" + encodeCompact(good) + ",\"record\"]", 0},
      {"object, not array", encodeCompact(good), 0},
      {"cut short", "[" + encodeCompact(good).substr(0, 40), 0},
      {"invalid UTF-8", with([](JSONValue&) {}).replace(20, 1, "\xC3\x28"), 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::TempDir dir;
    std::string path = dir.write("sessions.json", c.file);
    SessionStore store(path);
    ASSERT_EQ(store.records().size(), c.records);
    if (c.records > 0) {
      EXPECT_EQ(store.records()[0], record);
      EXPECT_FALSE(std::filesystem::exists(path + ".corrupt"));
      continue;
    }
    if (c.file == "[]") continue;
    EXPECT_EQ(testing::readAll(path + ".corrupt"), c.file) << "the bad file is kept whole";
    store.upsert(record);
    store.flush();
    EXPECT_EQ(testing::readAll(path + ".corrupt"), c.file) << "a save must not touch the kept file";
    EXPECT_EQ(SessionStore(path).records(), std::vector<SessionRecord>{record});
  }
  {
    SCOPED_TRACE("unreadable: a folder in the file's place");
    testing::TempDir dir;
    std::string path = dir.file("sessions.json");
    std::filesystem::create_directories(path + "/inside");
    SessionStore store(path);
    EXPECT_TRUE(store.records().empty());
    EXPECT_TRUE(std::filesystem::is_directory(path + ".corrupt/inside"));
    store.upsert(record);
    store.flush();
    EXPECT_EQ(SessionStore(path).records(), std::vector<SessionRecord>{record});
  }
  Log::flush();
  std::string log = testing::readAll(Paths::logFile());
  EXPECT_NE(log.find("couldn't decode item 1: turns: missing; kept it as "), std::string::npos) << log;
  EXPECT_NE(log.find("item 1: updatedAt: expected a date like 2026-05-01T09:30:00Z"), std::string::npos) << log;
  EXPECT_NE(log.find("unreadable (Is a directory); kept it as "), std::string::npos) << log;
}

// A file longer than the cap (edited by hand, or from another version) keeps its first,
// newest records.
TEST(SessionStore, LoadsAtMostTheCap) {
  testing::TempDir dir;
  std::vector<SessionRecord> records;
  for (int i = 0; i < 250; ++i) {
    records.push_back(recordFor(Target::folder(URL::fileURL("/data/" + std::to_string(i))), std::to_string(i)));
  }
  std::string path = dir.write("sessions.json", SessionStore::encode(records));
  SessionStore store(path);
  records.resize(SessionStore::kCapacity);
  EXPECT_EQ(store.records(), records);
}

// A disk that fills up in the middle of a save leaves the old file whole and no stray
// temporary file, and the records in memory stand.
TEST(SessionStore, FullDiskLeavesTheOldFileWhole) {
  testing::TempDir dir;
  std::string path = dir.file("data/sessions.json");
  SessionRecord small = recordFor(Target::folder(URL::fileURL("/home/u/a")), "a");
  {
    SessionStore store(path);
    store.upsert(small);
  }
  std::string before = testing::readAll(path);
  ASSERT_FALSE(before.empty());

  // The child may write no file larger than 4 KB, as if the disk were full.
  auto endings = runChildren(1, [&](int) {
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{4096, 4096};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
    SessionStore store(path);
    SessionRecord big = recordFor(Target::folder(URL::fileURL("/home/u/b")), "b");
    big.lastAnswer = std::string(64 * 1024, 'x');
    store.upsert(big);
    store.flush();
    return store.records().size() == 2 && store.records()[0] == big ? 0 : 3;
  });
  EXPECT_EQ(endings, std::vector<std::string>{"exit 0"});
  EXPECT_EQ(testing::readAll(path), before);
  EXPECT_EQ(folderEntries(dir.file("data")), (std::vector<std::string>{"sessions.json", "sessions.json.lock"}));
}

// Two processes saving one store as fast as they can: every read in between sees one
// whole file, and the file ends as the last state of one of them.
TEST(SessionStore, ConcurrentSavesFromTwoProcessesLeaveOneWholeFile) {
  testing::TempDir dir;
  std::string path = dir.file("data/sessions.json");
  size_t reads = 0;
  std::vector<std::string> broken;
  auto endings = runChildren(
      2,
      [&](int index) {
        SessionStore store(path);
        for (int i = 0; i < 60; ++i) {
          std::string name = "p" + std::to_string(index) + "-" + std::to_string(i);
          store.upsert(recordFor(Target::folder(URL::fileURL("/data/" + name)), name));
          store.flush();
        }
        // What this process last wrote, for the parent to compare.
        return writeFileAtomically(dir.file("last-" + std::to_string(index)), SessionStore::encode(store.records()))
                   ? 0
                   : 4;
      },
      [&] {
        Expected<std::string> bytes = readFile(path);
        if (!bytes) return;  // not written yet
        ++reads;
        auto parsed = parseJSON(*bytes);
        if (!parsed || !SessionStore::decode(*parsed)) broken.push_back(*bytes);
      });
  EXPECT_EQ(endings, (std::vector<std::string>{"exit 0", "exit 0"}));
  EXPECT_GT(reads, 0u);
  EXPECT_TRUE(broken.empty()) << broken.size() << " torn reads, first: " << broken.front().substr(0, 300);
  EXPECT_FALSE(std::filesystem::exists(path + ".corrupt"));

  std::string last = testing::readAll(path);
  EXPECT_TRUE(last == testing::readAll(dir.file("last-0")) || last == testing::readAll(dir.file("last-1")));
  EXPECT_GE(SessionStore(path).records().size(), 60u) << "the last writer's own 60 records at least";
}

}  // namespace
}  // namespace zorvane
