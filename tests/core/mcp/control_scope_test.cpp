#include "core/mcp/control_scope.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/test_support.h"

namespace zorvane {
namespace {

ControlScope threeWindows() {
  ControlScope scope;
  scope.entries = {{"Notes — Shopping", "app window", 11, "com.apple.Notes", std::nullopt},
                   {"Docs", "browser tab", 12, "com.apple.Safari", std::string("https://a.example/")},
                   {"Invoice 12", "app window", 13, "org.gnome.Evince", std::nullopt}};
  return scope;
}

// Windows and tabs become entries in order; folders and files have no window.
TEST(ControlScope, MakesEntriesFromTargets) {
  UUID piece;
  ControlScope scope({Target::file(URL::fileURL("/tmp/a.txt")),
                      Target::browserTab(BrowserApp::chromium, 5, *URL::parse("https://x.example/p#f"), ""),
                      Target::window(9, 6, "org.gnome.Calculator", "Calculator", "Basic")},
                     piece);
  ASSERT_EQ(scope.entries.size(), 2u);
  EXPECT_EQ(scope.entries[0], (ControlScope::Entry{"x.example", "browser tab", 5, "org.chromium.Chromium",
                                                   std::string("https://x.example/p#f")}));
  EXPECT_EQ(scope.entries[1], (ControlScope::Entry{"Calculator — Basic", "app window", 6, "org.gnome.Calculator",
                                                   std::nullopt}));
  EXPECT_EQ(scope.pieceID, piece);
  EXPECT_TRUE(ControlScope({Target::file(URL::fileURL("/tmp/a.txt"))}, std::nullopt).entries.empty());
}

// The file keeps its key order, leaves absent fields out, is the user's alone (0600) and
// reads back equal; unknown keys are ignored.
TEST(ControlScope, SavesAndReadsTheFile) {
  testing::TempDir dir;
  ControlScope scope = threeWindows();
  scope.pieceID = UUID::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  scope.gate = true;
  scope.workDir = "/home/u/work";
  std::string path = dir.file("sessions/p/scope.json");
  scope.save(path);
  std::string text = testing::readAll(path);
  EXPECT_TRUE(text.starts_with(R"({"entries":[{"name":"Notes — Shopping","kind":"app window","windowID":11,"bundleID":"com.apple.Notes"},)"))
      << text;
  EXPECT_TRUE(text.ends_with(R"(],"pieceID":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","gate":true,"workDir":"/home/u/work"})")) << text;
  EXPECT_EQ(text.find("allWindows"), std::string::npos);
  EXPECT_EQ(ControlScope::read(path).value(), scope);
  struct stat info {};
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  auto extra = ControlScope::read(dir.write("extra.json", R"({"entries":[],"allWindows":true,"future":{"x":1}})"));
  EXPECT_EQ(extra.value().allWindows, true);
}

// A file that can't be read or decoded is no scope at all, and says why: the tool server
// must not take it for one that asks nothing. `load` still reads it as an empty scope.
TEST(ControlScope, ReadFailsOnEveryBrokenFile) {
  testing::TempDir dir;
  ::mkdir(dir.file("folder.json").c_str(), 0700);
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "No such file or directory"},
      {"<folder>", "Is a directory"},
      {"{\"entries\":[", "not valid JSON"},
      {"{\"entries\":[]} trailing", "not valid JSON"},
      {"[]", "expected an object"},
      {R"({"pieceID":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","gate":true})", "entries: expected an array"},
      {R"({"entries":[],"gate":"true"})", "gate: expected true or false"},
      {R"({"entries":[],"allWindows":1})", "allWindows: expected true or false"},
      {R"({"entries":[],"pieceID":"me"})", "pieceID: expected a UUID"},
      {R"({"entries":[],"workDir":null})", "workDir: expected text"},
      {R"({"entries":[{"name":"a","kind":"b","bundleID":"c","windowID":-1}]})", "entry: windowID must be a window number"},
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    const auto& [content, reason] = cases[i];
    SCOPED_TRACE(content);
    std::string path = content == "<folder>" ? dir.file("folder.json")
                       : content.empty()     ? dir.file("missing.json")
                                             : dir.write("scope-" + std::to_string(i) + ".json", content);
    auto scope = ControlScope::read(path);
    ASSERT_FALSE(scope);
    EXPECT_EQ(scope.error(), "scope file " + path + ": " + reason);
    EXPECT_EQ(ControlScope::load(path), ControlScope());
  }
}

// The window a tool's target argument names: by default, index, or name/bundle text.
TEST(ControlScope, ChoosesEntries) {
  ControlScope scope = threeWindows();
  struct Case {
    std::optional<std::string> target;
    std::optional<uint32_t> windowID;
  };
  const std::vector<Case> cases = {
      {std::nullopt, 11}, {"  \t", 11}, {"1", 12}, {" 2 ", 13}, {"+1", 12},
      {"12", 13},       // out of range, then found by name ("Invoice 12")
      {"-1", std::nullopt}, {"safari", 12}, {"NOTES", 11}, {"gnome", 13}, {"nothing", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.target.value_or("<absent>"));
    auto entry = scope.entry(c.target);
    ASSERT_EQ(entry.has_value(), c.windowID.has_value());
    if (entry) {
      EXPECT_EQ(entry->windowID, *c.windowID);
    }
  }
  EXPECT_FALSE(ControlScope().entry(std::string("0")));
  EXPECT_FALSE(ControlScope().entry(std::nullopt));
}

TEST(ControlScope, ListsEntries) {
  EXPECT_EQ(threeWindows().listing(),
            "0: Notes — Shopping [app window, com.apple.Notes]\n"
            "1: Docs [browser tab, com.apple.Safari, https://a.example/]\n"
            "2: Invoice 12 [app window, org.gnome.Evince]");
  EXPECT_EQ(ControlScope().listing(),
            "No windows attached. Ask the user to attach one (drag a tentacle to it, or use + in the chat).");
}

}  // namespace
}  // namespace zorvane
