#include "core/targets/target.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace zorvane {

// Readable failure messages; internal linkage so other test files may define their own.
[[maybe_unused]] static void PrintTo(const URL& url, std::ostream* out) {
  *out << url.absoluteString();
}
[[maybe_unused]] static void PrintTo(const Target& target, std::ostream* out) {
  *out << encodeCompact(target.encode());
}
[[maybe_unused]] static void PrintTo(const HitKind& hit, std::ostream* out) {
  static const char* const names[] = {"finderItem", "browser", "finderWindowFolder", "window"};
  *out << names[hit.value().index()];
  if (const auto* item = std::get_if<HitKind::FinderItem>(&hit.value())) {
    *out << "(" << item->url.absoluteString() << ")";
  }
  if (const auto* browser = std::get_if<HitKind::Browser>(&hit.value())) {
    *out << "(" << rawValue(browser->app) << ")";
  }
}

namespace {

URL web(const std::string& text) {
  return *URL::parse(text);
}

Target safariTab(const std::string& url, const std::string& title) {
  return Target::browserTab(BrowserApp::safari, 7, web(url), title);
}

// Labels, locators, display names (with their fallbacks) and the exact and loose keys a
// piece's conversation is found by.
TEST(Target, DescribesAndKeysEachCase) {
  struct Case {
    Target target;
    std::string kindLabel, locator, displayName, targetKey;
    std::optional<std::string> looseKey;
  };
  const Case cases[] = {
      {Target::folder(URL::fileURL("/tmp/a b", true)), "folder", "/tmp/a b", "a b", "folder:/tmp/a b",
       std::nullopt},
      {Target::folder(*URL::parse("file:///tmp/a/./b/../c/")), "folder", "/tmp/a/./b/../c", "c", "folder:/tmp/a/c",
       std::nullopt},
      {Target::file(*URL::parse("file:///tmp//a/c")), "file", "/tmp//a/c", "c", "file:/tmp/a/c", std::nullopt},
      {safariTab("https://h.org/p?q=1#part", "Docs"), "browser tab", "https://h.org/p?q=1#part", "Docs",
       "tab:https://h.org/p?q=1", "tabtitle:com.apple.Safari:Docs"},
      {safariTab("https://Example.com/p", ""), "browser tab", "https://Example.com/p", "example.com",
       "tab:https://Example.com/p", std::nullopt},
      {safariTab("about:blank", ""), "browser tab", "about:blank", "about:blank", "tab:about:blank", std::nullopt},
      {Target::window(42, 7, "org.example.Editor", "Editor", "todo.txt"), "app window",
       "org.example.Editor pid 42 window 7", "Editor \u2014 todo.txt", "window:org.example.Editor:7",
       "window:org.example.Editor:todo.txt"},
      {Target::window(42, 4294967295u, "org.example.Editor", "Editor", ""), "app window",
       "org.example.Editor pid 42 window 4294967295", "Editor", "window:org.example.Editor:4294967295",
       std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(encodeCompact(c.target.encode()));
    EXPECT_EQ(c.target.kindLabel(), c.kindLabel);
    EXPECT_EQ(c.target.locator(), c.locator);
    EXPECT_EQ(c.target.displayName(), c.displayName);
    EXPECT_EQ(c.target.targetKey(), c.targetKey);
    EXPECT_EQ(c.target.looseKey(), c.looseKey);
  }
}

// Folders and files work where they are, tabs and windows in the scratch folder; only tabs
// and windows have a window to drive; renaming moves only folders and files.
TEST(Target, WorkingDirectoryControlWindowAndRenaming) {
  testing::TempHome home;
  URL scratch = Target::scratchDirectory();
  EXPECT_EQ(scratch.path(), home.path() + "/.local/share/zorvane/scratch");
  URL folder = URL::fileURL("/tmp/project", true);
  Target tab = safariTab("https://h.org/", "t"), window = Target::window(1, 2, "org.x", "X", "");
  EXPECT_EQ(Target::folder(folder).workingDirectory(), folder);
  EXPECT_EQ(Target::file(URL::fileURL("/tmp/project/a.txt")).workingDirectory(), folder);
  EXPECT_EQ(tab.workingDirectory(), scratch);
  EXPECT_EQ(window.workingDirectory(), scratch);
  EXPECT_EQ(tab.fileURL(), std::nullopt);
  EXPECT_EQ(Target::folder(folder).controlWindow(), std::nullopt);
  EXPECT_EQ(tab.controlWindow(), (ControlWindow{7, "com.apple.Safari"}));
  EXPECT_EQ(window.controlWindow(), (ControlWindow{2, "org.x"}));

  URL moved = URL::fileURL("/tmp/moved", true);
  EXPECT_EQ(Target::folder(URL::fileURL("/tmp/old", true)).renamed(moved), Target::folder(moved));
  EXPECT_EQ(Target::file(URL::fileURL("/tmp/old")).renamed(moved), Target::file(moved));
  EXPECT_EQ(window.renamed(moved), window);
  EXPECT_EQ(tab.renamed(moved), tab);
}

// The coded form has one key per case and reads back to the same value.
TEST(TargetCoding, RoundTripsEveryCase) {
  const std::pair<Target, std::string> cases[] = {
      {Target::folder(URL::fileURL("/tmp/a b", true)), R"({"folder":{"_0":"file:///tmp/a%20b/"}})"},
      {Target::file(URL::fileURL("/tmp/x.md")), R"({"file":{"_0":"file:///tmp/x.md"}})"},
      {Target::browserTab(BrowserApp::vivaldi, 4294967295u, web("https://h.org/#a"), "T"),
       R"({"browserTab":{"app":"com.vivaldi.Vivaldi","title":"T","url":"https://h.org/#a",)"
       R"("windowID":4294967295}})"},
      {Target::window(-2147483647 - 1, 0, "org.x", "X", ""),
       R"({"window":{"appName":"X","bundleID":"org.x","pid":-2147483648,"title":"",)"
       R"("windowID":0}})"},
  };
  for (const auto& [target, coded] : cases) {
    SCOPED_TRACE(coded);
    EXPECT_EQ(encodeCompact(target.encode()), coded);
    Expected<Target> decoded = Target::decode(*parseJSON(coded));
    ASSERT_TRUE(decoded) << decoded.error();
    EXPECT_EQ(*decoded, target);
  }
  // Lenient where it costs nothing: whole numbers written as 7.0 and unknown extra keys.
  EXPECT_EQ(Target::decode(*parseJSON(R"({"note":1,"window":{"pid":3.0,"windowID":7,"bundleID":"b",)"
                                      R"("appName":"n","title":"","extra":true}})")).value(),
            Target::window(3, 7, "b", "n", ""));
}

// Each malformed input fails with a text naming what is wrong and where.
TEST(TargetCoding, RejectsMalformedInputWithItsReason) {
  const std::string range32 = "expected a whole number from 0 to 4294967295";
  const std::pair<std::string, std::string> cases[] = {
      {R"({})", "Invalid number of keys found, expected one."},
      {R"({"other":{}})", "Invalid number of keys found, expected one."},
      {R"({"folder":{"_0":"file:///a"},"file":{"_0":"file:///b"}})",
       "Invalid number of keys found, expected one."},
      {R"([])", "target: expected an object, found array"},
      {R"({"folder":"file:///a"})", "folder: expected an object, found string"},
      {R"({"folder":{}})", "folder._0: missing"},
      {R"({"file":{"_0":5}})", "file._0: expected a string"},
      {R"({"file":{"_0":"no scheme here"}})", "file._0: not a valid absolute URL"},
      {R"({"browserTab":{"app":"org.mozilla.firefox","windowID":1,"url":"https://a/","title":""}})",
       "browserTab.app: unknown browser \"org.mozilla.firefox\""},
      {R"({"browserTab":{"app":"com.apple.Safari","windowID":"7","url":"https://a/","title":""}})",
       "browserTab.windowID: expected a number"},
      {R"({"browserTab":{"app":"com.apple.Safari","windowID":-1,"url":"https://a/","title":""}})",
       "browserTab.windowID: " + range32},
      {R"({"browserTab":{"app":"com.apple.Safari","windowID":4294967296,"url":"https://a/","title":""}})",
       "browserTab.windowID: " + range32},
      {R"({"browserTab":{"app":"com.apple.Safari","windowID":1.5,"url":"https://a/","title":""}})",
       "browserTab.windowID: " + range32},
      {R"({"browserTab":{"app":"com.apple.Safari","windowID":1,"url":"https://a/"}})",
       "browserTab.title: missing"},
      {R"({"window":{"pid":2147483648,"windowID":1,"bundleID":"b","appName":"n","title":""}})",
       "window.pid: expected a whole number from -2147483648 to 2147483647"},
      {R"({"window":{"pid":1,"windowID":1,"bundleID":null,"appName":"n","title":""}})",
       "window.bundleID: expected a string"},
  };
  for (const auto& [input, expected] : cases) {
    SCOPED_TRACE(input);
    Expected<Target> decoded = Target::decode(*parseJSON(input));
    ASSERT_FALSE(decoded);
    EXPECT_EQ(decoded.error(), expected);
  }
}

// Whatever value sits under a payload key, decoding returns instead of throwing.
TEST(TargetCoding, DecodingIsTotal) {
  const JSONValue oddValues[] = {nullptr,
                                 true,
                                 -1,
                                 1e300,
                                 -0.0,
                                 "x",
                                 JSONValue::array({1}),
                                 JSONValue::object(),
                                 18446744073709551615ull};
  const Target samples[] = {Target::folder(URL::fileURL("/a", true)),
                            safariTab("https://h.org/", "t"), Target::window(1, 2, "b", "n", "t")};
  for (const Target& sample : samples) {
    JSONValue coded = sample.encode();
    auto& payload = coded.begin().value();
    for (const auto& [key, original] : payload.items()) {
      for (const JSONValue& odd : oddValues) {
        JSONValue mutated = coded;
        mutated.begin().value()[key] = odd;
        SCOPED_TRACE(encodeCompact(mutated));
        Expected<Target> decoded = Target::decode(mutated);
        if (decoded) continue;
        EXPECT_NE(decoded.error().find("." + key + ": "), std::string::npos) << decoded.error();
      }
    }
  }
}

// The first matching rule decides what a hit is.
TEST(ClassifyHit, AppliesRulesInOrder) {
  const URL file = URL::fileURL("/tmp/x.txt");
  const URL page = web("https://h.org/");
  struct Case {
    std::string name;
    int32_t ownerPID;
    std::optional<std::string> bundleID;
    std::optional<URL> axURL;
    std::optional<HitKind> expected;
  };
  const Case cases[] = {
      {"own window", 100, "com.google.Chrome", file, std::nullopt},
      {"bank in any case", 1, "com.MyBaNk.app", std::nullopt, std::nullopt},
      {"bank beats a file URL", 1, "com.mybank", file, std::nullopt},
      {"denylisted", 1, "com.bitwarden.desktop", file, std::nullopt},
      {"file manager with item", 1, "com.apple.finder", file, HitKind::finderItem(file)},
      {"file manager without item", 1, "com.apple.finder", std::nullopt,
       HitKind::finderWindowFolder()},
      {"web URL is not an item", 1, "com.apple.finder", page, HitKind::finderWindowFolder()},
      {"file URL beats the browser", 1, "com.google.Chrome", file, HitKind::finderItem(file)},
      {"browser", 1, "com.google.Chrome", page, HitKind::browser(BrowserApp::chrome)},
      {"system surface", 1, "com.apple.dock", std::nullopt, std::nullopt},
      {"file URL beats the system list", 1, "com.apple.dock", file, HitKind::finderItem(file)},
      {"raw values are case-sensitive", 1, "com.apple.safari", std::nullopt, HitKind::window()},
      {"other application", 1, "org.example.Editor", page, HitKind::window()},
      {"no bundle identifier", 1, std::nullopt, std::nullopt, HitKind::window()},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(classifyHit(c.ownerPID, 100, c.bundleID, c.axURL), c.expected);
  }
}

// The denylist matches whole identifiers exactly and "bank" anywhere in any case.
TEST(ClassifyHit, DenylistMatchesIdentifiersAndBank) {
  EXPECT_FALSE(isDenylisted(std::nullopt));
  EXPECT_TRUE(isDenylisted("com.apple.Passwords"));
  EXPECT_FALSE(isDenylisted("com.apple.passwords"));
  EXPECT_TRUE(isDenylisted("BANKING"));
  EXPECT_FALSE(isDenylisted("com.example.ban-k"));
}

}  // namespace
}  // namespace zorvane
