// Target: the thing a piece is bonded to: a folder, a file, a browser tab or an
// application window. A plain value, compared and hashed over its case and every
// payload field, so two windows that differ only in title are different targets.
//
// Everything here is derived from the value alone and never touches the desktop:
// labels, the two identity keys, the working directory an agent runs in, and the JSON
// form every store and message uses:
//
//   {"folder": {"_0": "file:///tmp/a%20b/"}}
//   {"browserTab": {"app": "com.apple.Safari", "windowID": 7, "url": "...", "title": ""}}
//
// `targetKey` is a target's exact identity. `looseKey` is the second chance for tabs and
// windows whose window number or URL does not survive a restart but whose title does.
//
// The file also classifies a screen hit (`classifyHit`) and holds the bundle
// identifiers that may never become targets.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>

#include "core/base/expected.h"
#include "core/base/json_value.h"
#include "core/base/url.h"
#include "core/targets/browser_app.h"

namespace zorvane {

// The window a control request acts on: its window-server number and the owning
// application's bundle identifier.
struct ControlWindow {
  uint32_t windowID = 0;
  std::string bundleID;

  friend bool operator==(const ControlWindow&, const ControlWindow&) = default;
};

class Target {
 public:
  struct Folder {
    URL url;
    friend bool operator==(const Folder&, const Folder&) = default;
  };
  struct File {
    URL url;
    friend bool operator==(const File&, const File&) = default;
  };
  struct BrowserTab {
    BrowserApp app;
    uint32_t windowID;
    URL url;
    std::string title;  // may be empty
    friend bool operator==(const BrowserTab&, const BrowserTab&) = default;
  };
  struct Window {
    int32_t pid;
    uint32_t windowID;
    std::string bundleID;
    std::string appName;
    std::string title;  // may be empty
    friend bool operator==(const Window&, const Window&) = default;
  };
  using Payload = std::variant<Folder, File, BrowserTab, Window>;

  enum class Kind { folder, file, browserTab, window };

  static Target folder(URL url);
  static Target file(URL url);
  static Target browserTab(BrowserApp app, uint32_t windowID, URL url, std::string title);
  static Target window(int32_t pid, uint32_t windowID, std::string bundleID, std::string appName,
                       std::string title);

  [[nodiscard]] const Payload& payload() const { return payload_; }
  [[nodiscard]] Kind kind() const { return static_cast<Kind>(payload_.index()); }

  // "folder", "file", "browser tab" or "app window".
  [[nodiscard]] std::string kindLabel() const;

  // Where the target is: a file-system path, a tab's URL, or
  // "<bundleID> pid <pid> window <windowID>".
  [[nodiscard]] std::string locator() const;

  // The name shown to the user: the last path component; a tab's title, else its host,
  // else its URL; an application's name, followed by " — <title>" when there is one.
  [[nodiscard]] std::string displayName() const;

  // The URL of a folder or file; absent for tabs and windows.
  [[nodiscard]] std::optional<URL> fileURL() const;

  // Where an agent bonded to the target runs: the folder itself, a file's parent
  // folder, else `scratchDirectory()`.
  [[nodiscard]] URL workingDirectory() const;

  // The window that control requests act on; absent for folders and files.
  [[nodiscard]] std::optional<ControlWindow> controlWindow() const;

  // The exact identity: "folder:<path>", "file:<path>" (standardised paths),
  // "tab:<url without fragment>", "window:<bundleID>:<windowID>".
  [[nodiscard]] std::string targetKey() const;

  // "tabtitle:<app>:<title>" or "window:<bundleID>:<title>"; absent for folders and
  // files and whenever the title is empty.
  [[nodiscard]] std::optional<std::string> looseKey() const;

  // The scratch folder for targets that have no folder of their own. Only computed
  // here; whoever runs an agent in it creates it.
  [[nodiscard]] static URL scratchDirectory();

  // A folder or file moved to `url`; tabs and windows come back unchanged.
  [[nodiscard]] Target renamed(const URL& url) const;

  // The JSON object with exactly one key, the case's name, holding the payload.
  [[nodiscard]] JSONValue encode() const;

  // Reads the form `encode` writes. Never throws: any other JSON is a failure whose
  // text names the offending key, e.g. "browserTab.windowID: expected a number".
  [[nodiscard]] static Expected<Target> decode(const JSONValue& value);

  friend bool operator==(const Target&, const Target&) = default;

 private:
  explicit Target(Payload payload) : payload_(std::move(payload)) {}
  Payload payload_;
};

// What a screen hit is before it is made into a target.
class HitKind {
 public:
  struct FinderItem {
    URL url;
    friend bool operator==(const FinderItem&, const FinderItem&) = default;
  };
  struct Browser {
    BrowserApp app;
    friend bool operator==(const Browser&, const Browser&) = default;
  };
  struct FinderWindowFolder {
    friend bool operator==(const FinderWindowFolder&, const FinderWindowFolder&) = default;
  };
  struct Window {
    friend bool operator==(const Window&, const Window&) = default;
  };
  using Value = std::variant<FinderItem, Browser, FinderWindowFolder, Window>;

  static HitKind finderItem(URL url) { return HitKind(FinderItem{std::move(url)}); }
  static HitKind browser(BrowserApp app) { return HitKind(Browser{app}); }
  static HitKind finderWindowFolder() { return HitKind(FinderWindowFolder{}); }
  static HitKind window() { return HitKind(Window{}); }

  [[nodiscard]] const Value& value() const { return value_; }

  friend bool operator==(const HitKind&, const HitKind&) = default;

 private:
  explicit HitKind(Value value) : value_(std::move(value)) {}
  Value value_;
};

using BundleIDSet = std::set<std::string, std::less<>>;

// System surfaces that are never targets (the dock, the notification centre, ...).
[[nodiscard]] const BundleIDSet& systemBundleIDs();

// Applications that hold secrets or system settings.
[[nodiscard]] const BundleIDSet& denylistedBundleIDs();

// False for an absent identifier; true when it is in `denylistedBundleIDs` or its
// lower-cased form contains "bank".
[[nodiscard]] bool isDenylisted(const std::optional<std::string>& bundleID);

// Classifies a hit on a window owned by `ownerPID`. The first rule that applies wins:
// our own window → nothing; a denylisted owner → nothing; a file URL from the
// accessibility element → finderItem; the file manager → finderWindowFolder; a system
// surface → nothing; a known browser → browser; anything else → window.
[[nodiscard]] std::optional<HitKind> classifyHit(int32_t ownerPID, int32_t ownPID,
                                                 const std::optional<std::string>& ownerBundleID,
                                                 const std::optional<URL>& axURL);

}  // namespace zorvane

template <>
struct std::hash<zorvane::Target> {
  size_t operator()(const zorvane::Target& target) const noexcept;
};
