#include "core/registry/piece_snapshots.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "core/base/paths.h"
#include "support/test_support.h"

namespace zorvane {

void PrintTo(const PieceSnapshot& snapshot, std::ostream* out) { *out << encodeCompact(snapshot.encode()); }

namespace {

PieceSnapshot snapshot(Target target, const char* sessionID, std::string name) {
  return {std::move(target), *UUID::parse(sessionID), std::move(name), *parseISO8601("2026-05-01T09:30:00Z")};
}

// The file is pretty-printed with sorted keys, inside the target too; it reads back equal,
// and a save replaces the whole file.
TEST(PieceSnapshots, SavesAndLoadsTheWholeList) {
  testing::TempHome home;
  EXPECT_EQ(PieceSnapshots::defaultURL(), Paths::dataDirectory() + "/live-pieces.json");
  PieceSnapshots snapshots(PieceSnapshots::defaultURL());
  EXPECT_TRUE(snapshots.load().empty()) << "no file, no pieces";

  std::vector<PieceSnapshot> pieces = {
      snapshot(Target::window(300, 41, "org.gnome.TextEditor", "Text Editor", "Shopping"),
               "E621E1F8-C36C-495A-93FC-0C247A3E6E5F", "Text Editor — Shopping"),
      snapshot(Target::folder(URL::fileURL("/home/u/report")), "0A0B0C0D-0000-4000-8000-000000000001", "report"),
  };
  snapshots.save(pieces);
  std::string text = testing::readAll(snapshots.url());
  EXPECT_EQ(text, encodePretty(*parseJSON(text))) << "pretty, keys sorted";
  EXPECT_NE(text.find(R"("target": {
      "window": {
        "appName": "Text Editor",)"), std::string::npos) << text;
  EXPECT_EQ(snapshots.load(), pieces);

  snapshots.save({pieces[1]});
  EXPECT_EQ(snapshots.load(), std::vector<PieceSnapshot>{pieces[1]});
  snapshots.save({});
  EXPECT_TRUE(snapshots.load().empty());
  EXPECT_EQ(testing::readAll(snapshots.url()), "[]");
}

// One snapshot that doesn't decode gives no pieces at all, and the file is kept aside.
TEST(PieceSnapshots, BadFilesLoadEmptyAndAreKeptAside) {
  testing::TempHome home;
  JSONValue good = snapshot(Target::file(URL::fileURL("/home/u/a.txt")), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F", "a.txt")
                       .encode();
  struct Case {
    std::string name;
    std::function<void(JSONValue&)> change;
    bool loads;
  };
  const std::vector<Case> cases = {
      {"as written", [](JSONValue&) {}, true},
      {"unknown keys", [](JSONValue& v) { v["pieceID"] = "x"; v["target"]["extra"] = 1; }, true},
      {"no target", [](JSONValue& v) { v.erase("target"); }, false},
      {"target of two cases", [](JSONValue& v) { v["target"]["folder"] = {{"_0", "file:///a"}}; }, false},
      {"target URL not absolute", [](JSONValue& v) { v["target"]["file"]["_0"] = "a.txt"; }, false},
      {"tab without url",
       [](JSONValue& v) { v["target"] = {{"browserTab", {{"app", "org.chromium.Chromium"}, {"windowID", 1}, {"title", ""}}}}; },
       false},
      {"no displayName", [](JSONValue& v) { v.erase("displayName"); }, false},
      {"savedAt with fraction", [](JSONValue& v) { v["savedAt"] = "2026-05-01T09:30:00.5Z"; }, false},
      {"sessionID a number", [](JSONValue& v) { v["sessionID"] = 7; }, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::TempDir dir;
    JSONValue changed = good;
    c.change(changed);
    std::string text = "[" + encodeCompact(good) + "," + encodeCompact(changed) + "]";
    PieceSnapshots snapshots(dir.write("live-pieces.json", text));
    auto loaded = snapshots.load();
    EXPECT_EQ(loaded.size(), c.loads ? 2u : 0u);
    EXPECT_EQ(std::filesystem::exists(snapshots.url() + ".corrupt"), !c.loads);
    if (c.loads) continue;
    EXPECT_EQ(testing::readAll(snapshots.url() + ".corrupt"), text);
    EXPECT_FALSE(std::filesystem::exists(snapshots.url()));
  }
}

}  // namespace
}  // namespace zorvane
