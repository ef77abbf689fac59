#include "core/base/url.h"

#include "core/base/curl_library.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <vector>

namespace zorvane {

namespace {

struct CurlURLDeleter {
  void operator()(CURLU* handle) const { CurlLibrary::get()->urlCleanup(handle); }
};
using CurlURL = std::unique_ptr<CURLU, CurlURLDeleter>;

// The parts of an opaque URL ("about:blank", "mailto:a@b"): a scheme followed by
// something other than "/". libcurl's parser wants slashes after the scheme, so these
// are split here on the two delimiters RFC 3986 gives them. They have no hierarchy:
// the path operations return them unchanged.
struct OpaqueParts {
  std::string_view scheme;
  std::string_view path;            // up to "?" or "#"
  std::string_view beforeFragment;  // everything up to "#"
};

}  // namespace

// Flags for every URL handed to libcurl: any scheme, and the path exactly as written
// ("." and ".." are resolved only by standardized()).
static constexpr unsigned int kParseFlags = CURLU_NON_SUPPORT_SCHEME | CURLU_PATH_AS_IS;

static bool isAlpha(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
static bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

static std::string lowercased(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

// The bytes a file URL's path keeps as they are: unreserved characters, the
// sub-delimiters, ":", "@" and the "/" between components.
static bool isPathSafe(unsigned char c) {
  if (isAlpha(static_cast<char>(c)) || isDigit(static_cast<char>(c))) return true;
  static constexpr std::string_view kSafe = "-._~!$&'()*+,;=:@/";
  return kSafe.find(static_cast<char>(c)) != std::string_view::npos;
}

static std::string percentEncoded(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string result;
  result.reserve(text.size());
  for (unsigned char c : text) {
    if (isPathSafe(c)) {
      result.push_back(static_cast<char>(c));
      continue;
    }
    result.push_back('%');
    result.push_back(kHex[c >> 4]);
    result.push_back(kHex[c & 0x0F]);
  }
  return result;
}

static int hexValue(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Decodes "%XX" escapes; a "%" not followed by two hex digits stays as it is.
static std::string percentDecoded(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      int high = hexValue(text[i + 1]);
      int low = hexValue(text[i + 2]);
      if (high >= 0 && low >= 0) {
        result.push_back(static_cast<char>(high * 16 + low));
        i += 2;
        continue;
      }
    }
    result.push_back(text[i]);
  }
  return result;
}

// The scheme of `text` if it starts with one (RFC 3986: ALPHA *( ALPHA / DIGIT / "+" /
// "-" / "." ) followed by ":").
static std::optional<std::string_view> leadingScheme(std::string_view text) {
  size_t colon = text.find(':');
  if (colon == std::string_view::npos || colon == 0 || !isAlpha(text[0])) return std::nullopt;
  for (size_t i = 1; i < colon; ++i) {
    char c = text[i];
    if (!isAlpha(c) && !isDigit(c) && c != '+' && c != '-' && c != '.') return std::nullopt;
  }
  return text.substr(0, colon);
}

// The parts of `text` when it is an opaque URL, absent when it is hierarchical (a "/"
// follows the scheme) or not a URL at all. White space and control bytes are refused,
// as libcurl refuses them in hierarchical URLs.
static std::optional<OpaqueParts> opaqueParts(std::string_view text) {
  std::optional<std::string_view> scheme = leadingScheme(text);
  if (!scheme) return std::nullopt;
  std::string_view rest = text.substr(scheme->size() + 1);
  if (!rest.empty() && rest.front() == '/') return std::nullopt;
  for (unsigned char c : rest) {
    if (c <= 0x20 || c == 0x7F) return std::nullopt;
  }
  OpaqueParts parts;
  parts.scheme = *scheme;
  size_t hash = rest.find('#');
  parts.beforeFragment = text.substr(0, scheme->size() + 1 + std::min(hash, rest.size()));
  parts.path = rest.substr(0, std::min(rest.find_first_of("?#"), rest.size()));
  return parts;
}

// A libcurl handle holding `text`, or null when libcurl refuses it.
static CurlURL curlHandle(const std::string& text) {
  const CurlLibrary* curl = CurlLibrary::get();
  if (curl == nullptr) return nullptr;
  CurlURL handle(curl->url());
  if (!handle) return nullptr;
  if (curl->urlSet(handle.get(), CURLUPART_URL, text.c_str(), kParseFlags) != CURLUE_OK) {
    return nullptr;
  }
  return handle;
}

static std::optional<std::string> curlPart(CURLU* handle, CURLUPart part) {
  const CurlLibrary* curl = CurlLibrary::get();
  char* value = nullptr;
  if (curl->urlGet(handle, part, &value, 0) != CURLUE_OK || value == nullptr) {
    curl->free(value);
    return std::nullopt;
  }
  std::string result(value);
  curl->free(value);
  return result;
}

// The still-encoded path of a hierarchical URL; "/" when libcurl has none.
static std::string rawPath(CURLU* handle) {
  return curlPart(handle, CURLUPART_PATH).value_or("/");
}

// `text` with its path replaced by `path` (already encoded), rendered by libcurl;
// absent when libcurl refuses either.
static std::optional<std::string> replacingPath(const std::string& text, const std::string& path) {
  CurlURL handle = curlHandle(text);
  if (!handle) return std::nullopt;
  if (CurlLibrary::get()->urlSet(handle.get(), CURLUPART_PATH, path.c_str(), kParseFlags) != CURLUE_OK) {
    return std::nullopt;
  }
  return curlPart(handle.get(), CURLUPART_URL);
}

// RFC 3986 dot-segment removal plus folding of empty segments, on an encoded absolute
// path. ".." never climbs above the root. A path that ended in a directory ("/", "."
// or "..") keeps its trailing "/".
static std::string standardizedPath(std::string_view path) {
  std::vector<std::string_view> segments;
  bool endsInDirectory = path.empty() || path.back() == '/';
  size_t start = 0;
  while (start <= path.size()) {
    size_t slash = path.find('/', start);
    if (slash == std::string_view::npos) slash = path.size();
    std::string_view segment = path.substr(start, slash - start);
    bool last = slash == path.size();
    if (segment == "..") {
      if (!segments.empty()) segments.pop_back();
      if (last) endsInDirectory = true;
    } else if (segment == ".") {
      if (last) endsInDirectory = true;
    } else if (!segment.empty()) {
      segments.push_back(segment);
    }
    start = slash + 1;
  }
  std::string result;
  for (std::string_view segment : segments) {
    result += '/';
    result += segment;
  }
  if (result.empty() || endsInDirectory) result += '/';
  return result;
}

// An encoded path without its trailing "/"s, keeping the root as "/".
static std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

static std::string currentDirectory() {
  std::vector<char> buffer(4096);
  while (getcwd(buffer.data(), buffer.size()) == nullptr) {
    if (errno != ERANGE || buffer.size() > (1u << 20)) return "/";
    buffer.resize(buffer.size() * 2);
  }
  return buffer.data();
}

URL URL::fileURL(std::string_view path, bool isDirectory) {
  std::string absolute;
  if (path.empty()) {
    absolute = currentDirectory();
    isDirectory = true;
  } else if (path.front() == '/') {
    absolute = path;
  } else {
    absolute = currentDirectory();
    if (absolute.back() != '/') absolute += '/';
    absolute += path;
  }
  if (isDirectory && absolute.back() != '/') absolute += '/';
  return URL("file://" + percentEncoded(absolute));
}

std::optional<URL> URL::parse(std::string_view text) {
  if (!leadingScheme(text)) return std::nullopt;
  // libcurl reads a C string and would stop at an embedded NUL.
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  if (opaqueParts(text)) return URL(std::string(text));
  if (!curlHandle(std::string(text))) return std::nullopt;
  return URL(std::string(text));
}

std::string URL::scheme() const {
  if (std::optional<OpaqueParts> opaque = opaqueParts(absolute_)) return lowercased(opaque->scheme);
  std::optional<std::string_view> scheme = leadingScheme(absolute_);
  return scheme ? lowercased(*scheme) : std::string();
}

bool URL::isFileURL() const {
  return scheme() == "file";
}

std::string URL::path() const {
  if (std::optional<OpaqueParts> opaque = opaqueParts(absolute_)) {
    return percentDecoded(opaque->path);
  }
  CurlURL handle = curlHandle(absolute_);
  if (!handle) return std::string();
  return percentDecoded(withoutTrailingSlashes(rawPath(handle.get())));
}

URL URL::standardized() const {
  if (opaqueParts(absolute_)) return *this;
  CurlURL handle = curlHandle(absolute_);
  if (!handle) return *this;
  std::optional<std::string> result =
      replacingPath(absolute_, standardizedPath(rawPath(handle.get())));
  return result ? URL(std::move(*result)) : *this;
}

std::string URL::lastPathComponent() const {
  if (std::optional<OpaqueParts> opaque = opaqueParts(absolute_)) {
    return percentDecoded(opaque->path);
  }
  CurlURL handle = curlHandle(absolute_);
  if (!handle) return std::string();
  std::string path = rawPath(handle.get());
  std::string_view trimmed = withoutTrailingSlashes(path);
  return percentDecoded(trimmed.substr(trimmed.rfind('/') + 1));
}

URL URL::deletingLastPathComponent() const {
  if (opaqueParts(absolute_)) return *this;
  CurlURL handle = curlHandle(absolute_);
  if (!handle) return *this;
  std::string path = rawPath(handle.get());
  std::string_view trimmed = withoutTrailingSlashes(path);
  std::string parent(trimmed.substr(0, trimmed.rfind('/') + 1));
  if (parent.empty()) parent = "/";
  std::optional<std::string> result = replacingPath(absolute_, parent);
  return result ? URL(std::move(*result)) : *this;
}

URL URL::appendingPathComponent(std::string_view component, bool isDirectory) const {
  if (opaqueParts(absolute_)) return *this;
  CurlURL handle = curlHandle(absolute_);
  if (!handle) return *this;
  while (!component.empty() && component.front() == '/') component.remove_prefix(1);
  std::string path = rawPath(handle.get());
  if (path.empty() || path.back() != '/') path += '/';
  path += percentEncoded(component);
  if (isDirectory && path.back() != '/') path += '/';
  std::optional<std::string> result = replacingPath(absolute_, path);
  return result ? URL(std::move(*result)) : *this;
}

std::optional<std::string> URL::host() const {
  if (opaqueParts(absolute_)) return std::nullopt;
  CurlURL handle = curlHandle(absolute_);
  if (!handle) return std::nullopt;
  std::optional<std::string> host = curlPart(handle.get(), CURLUPART_HOST);
  if (!host || host->empty()) return std::nullopt;
  return lowercased(*host);
}

std::optional<std::string> URL::withoutFragment() const {
  if (std::optional<OpaqueParts> opaque = opaqueParts(absolute_)) {
    return std::string(opaque->beforeFragment);
  }
  CurlURL handle = curlHandle(absolute_);
  if (!handle) return std::nullopt;
  if (CurlLibrary::get()->urlSet(handle.get(), CURLUPART_FRAGMENT, nullptr, 0) != CURLUE_OK) return std::nullopt;
  std::optional<std::string> result = curlPart(handle.get(), CURLUPART_URL);
  if (!result || result->empty()) return std::nullopt;
  return result;
}

}  // namespace zorvane
