// ControlScope: the small JSON file through which the application tells one agent's
// tool server what it may touch: the windows in reach (index 0 the bonded one), the
// piece it belongs to, and two switches. The application writes it atomically; the tool
// server reads it anew at every tool call, so a change applies on the next call.
//
// The tool server reads the file with `read`, which fails on a file that is missing,
// unreadable, not JSON, or whose fields are missing or of the wrong type. The scope is
// what decides whether a change needs the user's approval, so a scope that can't be read
// must never count as one that asks nothing: the tool server then refuses every tool
// that changes something. `load` is the lenient form for the application's writers,
// which carry fields over from the file they replace: a file it can't read is an empty
// scope. `save` never reports: a failed save leaves the old file whole. The file is
// 0600: it is the agent's leash, for the user alone.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/base/json_value.h"
#include "core/base/uuid.h"
#include "core/targets/target.h"

namespace zorvane {

struct ControlScope {
  struct Entry {
    std::string name;      // what the agent reads: the target's display name
    std::string kind;      // a free label: "browser tab", "app window", ...
    uint32_t windowID = 0;
    std::string bundleID;  // a browser's raw value makes the entry a browser
    std::optional<std::string> url;

    friend bool operator==(const Entry&, const Entry&) = default;
  };

  std::vector<Entry> entries;
  std::optional<UUID> pieceID;
  std::optional<bool> allWindows;  // true: every window of the desktop is in reach
  std::optional<bool> gate;        // true: the tool server asks the user before gated tools
  std::optional<std::string> workDir;  // where run_command runs

  ControlScope() = default;
  // Entries for the targets that have a window (tabs and windows), in order.
  ControlScope(const std::vector<Target>& targets, std::optional<UUID> pieceID);

  // The scope in the file, or why there is none: "scope file <path>: <reason>".
  static Expected<ControlScope> read(const std::string& path);
  // The scope in the file, or an empty scope when `read` fails. Never use it to decide
  // what an agent may do.
  static ControlScope load(const std::string& path);
  void save(const std::string& path) const;

  // Compact JSON, keys in the order of the fields above, absent fields left out.
  std::string encoded() const;
  // Fails when `entries` is missing or any present field has the wrong type.
  static Expected<ControlScope> decode(const JSONValue& value);

  // The entry a tool's `target` argument names: the first for none or blank text; an
  // in-range index; else the first whose name or bundle id contains the text, ignoring case.
  std::optional<Entry> entry(const std::optional<std::string>& target) const;

  // What list_targets shows: one line per entry, or how to attach one.
  std::string listing() const;

  friend bool operator==(const ControlScope&, const ControlScope&) = default;
};

}  // namespace zorvane
