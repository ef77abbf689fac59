#include "core/base/url.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace zorvane {

// Readable failure messages; internal linkage so other test files may define their own.
[[maybe_unused]] static void PrintTo(const URL& url, std::ostream* out) {
  *out << url.absoluteString();
}

namespace {

// File URLs keep only path-safe bytes and escape the rest as upper-case %XX; a relative
// path is resolved against the current directory.
TEST(URL, FileURLPercentEncodesUnsafeBytes) {
  struct Case {
    std::string path;
    bool isDirectory;
    std::string expected;
  };
  const Case cases[] = {
      {"/tmp/a b", true, "file:///tmp/a%20b/"},
      {"/tmp/x/", false, "file:///tmp/x/"},
      {"/", true, "file:///"},
      {"/keep-._~!$&'()*+,;=:@z", false, "file:///keep-._~!$&'()*+,;=:@z"},
      {"/a%b?c#d[e]\"", false, "file:///a%25b%3Fc%23d%5Be%5D%22"},
      {"/caf\xC3\xA9\n", false, "file:///caf%C3%A9%0A"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    URL url = URL::fileURL(c.path, c.isDirectory);
    EXPECT_EQ(url.absoluteString(), c.expected);
    EXPECT_TRUE(url.isFileURL());
    EXPECT_EQ(URL::parse(url.absoluteString()), url) << "a file URL must read back as itself";
  }
  EXPECT_EQ(URL::fileURL("sub/x.txt").path(),
            std::filesystem::current_path().string() + "/sub/x.txt");
}

// Parsing accepts absolute URLs of any scheme, including opaque ones, and refuses the rest.
TEST(URL, ParseAcceptsAbsoluteURLsOnly) {
  struct Case {
    std::string text;
    std::optional<std::string> scheme;  // absent: must be refused
    std::optional<std::string> host;
  };
  const Case cases[] = {
      {"about:blank", "about", std::nullopt},
      {"HTTPS://Example.COM/a?q#f", "https", "example.com"},
      {"example.com/path", std::nullopt, std::nullopt},
      {"", std::nullopt, std::nullopt},
      {"https://h/a b", std::nullopt, std::nullopt},
      {"https://", std::nullopt, std::nullopt},
      {"http://h:99999/", std::nullopt, std::nullopt},
      {std::string("https://h/\0x", 11), std::nullopt, std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    std::optional<URL> url = URL::parse(c.text);
    ASSERT_EQ(url.has_value(), c.scheme.has_value());
    if (!url) continue;
    EXPECT_EQ(url->absoluteString(), c.text);
    EXPECT_EQ(url->scheme(), *c.scheme);
    EXPECT_EQ(url->host(), c.host);
  }
}

// path() and lastPathComponent() decode escapes; path() drops a trailing "/" but the root's.
TEST(URL, PathComponentsAreDecoded) {
  struct Case {
    std::string url;
    std::string path;
    std::string last;
  };
  const Case cases[] = {
      {"file:///tmp/a%20b/", "/tmp/a b", "a b"},
      {"file:///", "/", ""},
      {"file://localhost/etc/hosts", "/etc/hosts", "hosts"},
      {"https://h/a/b%2Fc?q=1", "/a/b/c", "b/c"},
      {"file:///tmp/100%zz", "/tmp/100%zz", "100%zz"},
      {"about:blank", "blank", "blank"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.url);
    URL url = *URL::parse(c.url);
    EXPECT_EQ(url.path(), c.path);
    EXPECT_EQ(url.lastPathComponent(), c.last);
  }
}

// "." and ".." are resolved without climbing above the root, and "//" is folded; the
// rest of the URL is kept.
TEST(URL, StandardizedAndWithoutFragmentKeepTheRest) {
  const std::pair<std::string, std::string> cases[] = {
      {"file:///a/./b/../c", "file:///a/c"},    {"file:///a//b///c/", "file:///a/b/c/"},
      {"file:///../../x", "file:///x"},         {"file:///a/b/..", "file:///a/"},
      {"file:///a%20b/./c", "file:///a%20b/c"}, {"https://h/a/../b?q=1#f", "https://h/b?q=1#f"},
      {"about:blank", "about:blank"},
  };
  for (const auto& [input, expected] : cases) {
    SCOPED_TRACE(input);
    EXPECT_EQ(URL::parse(input)->standardized().absoluteString(), expected);
  }
  // Only the fragment goes; the query and any dots stay.
  EXPECT_EQ(URL::parse("https://h.org/./p?q=1#frag")->withoutFragment(), "https://h.org/./p?q=1");
  EXPECT_EQ(URL::parse("https://h.org/p")->withoutFragment(), "https://h.org/p");
  EXPECT_EQ(URL::parse("about:blank#top")->withoutFragment(), "about:blank");
}

// Removing the last component works on the encoded path and stops at the root.
TEST(URL, DeletesTheLastPathComponent) {
  EXPECT_EQ(URL::fileURL("/a/b.txt").deletingLastPathComponent().absoluteString(), "file:///a/");
  EXPECT_EQ(URL::fileURL("/").deletingLastPathComponent().absoluteString(), "file:///");
}

}  // namespace
}  // namespace zorvane
