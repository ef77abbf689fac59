// URL: a file URL or a web URL, kept as its absolute string.
//
// File URLs are made from absolute paths and percent-encode every byte outside the
// unreserved and path-safe characters, so "/tmp/a b" becomes "file:///tmp/a%20b". A
// directory URL ends in "/". Web URLs are parsed by libcurl's URL API (no hand
// parsing); their components are taken apart without resolving against a base.
//
// A URL is a plain value: copyable, comparable by its absolute string, hashable.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace zorvane {

class URL {
 public:
  // A file URL for an absolute path ("/a/b"). A relative path is made absolute
  // against the current directory first. `isDirectory` adds the trailing "/".
  static URL fileURL(std::string_view path, bool isDirectory = false);

  // Parses an absolute URL string ("file:///x", "https://h/p?q#f", "about:blank").
  // Absent when the text has no scheme or libcurl refuses it.
  static std::optional<URL> parse(std::string_view text);

  const std::string& absoluteString() const { return absolute_; }
  std::string scheme() const;  // lower case: "file", "https", "about"
  bool isFileURL() const;

  // The percent-decoded path. For a file URL this is the file-system path, without a
  // trailing "/" (except for the root "/").
  std::string path() const;

  // The same URL with "." and ".." path components resolved and repeated slashes folded.
  URL standardized() const;

  // The last component of the path ("" for the root), percent-decoded.
  std::string lastPathComponent() const;

  // The parent folder, as a directory URL ("file:///a/b.txt" → "file:///a/").
  URL deletingLastPathComponent() const;

  // A file URL with one more component; `isDirectory` adds the trailing "/".
  URL appendingPathComponent(std::string_view component, bool isDirectory = false) const;

  // The host of a web URL, lower case; absent when there is none.
  std::optional<std::string> host() const;

  // The URL with its fragment ("#...") removed. Absent if the URL can't be taken apart
  // into components, in which case callers keep the absolute string.
  std::optional<std::string> withoutFragment() const;

  friend bool operator==(const URL& a, const URL& b) { return a.absolute_ == b.absolute_; }

 private:
  explicit URL(std::string absolute) : absolute_(std::move(absolute)) {}
  std::string absolute_;
};

}  // namespace zorvane

template <>
struct std::hash<zorvane::URL> {
  size_t operator()(const zorvane::URL& url) const noexcept {
    return std::hash<std::string>()(url.absoluteString());
  }
};
