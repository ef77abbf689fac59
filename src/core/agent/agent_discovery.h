// AgentDiscovery: where agent tools are looked for and how a hit is chosen. Pure: the
// file system comes in as callbacks, so every rule can be checked without a machine.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "core/agent/agent_kind.h"

namespace zorvane::AgentDiscovery {

// The entry names of a folder; empty if it can't be read.
using ListDirectory = std::function<std::vector<std::string>(const std::string& path)>;
// Whether a file can be run.
using IsExecutable = std::function<bool(const std::string& path)>;

// The flags a resident tool's --help must mention for it to be driveable.
const std::vector<std::string>& claudeRequiredFlags();

// The folders searched, most preferred first: the usual install folders, then every
// node version of the version managers, newest first.
std::vector<std::string> searchDirectories(const std::string& home, const ListDirectory& listDir);

// For each kind in order, the first <folder>/<name> that is executable, trying folders
// in order and, in each, the kind's names in order: folder order beats name order.
std::vector<InstalledAgent> discover(const std::vector<AgentKind>& kinds,
                                     const std::vector<std::string>& directories,
                                     const IsExecutable& isExecutable);

// The entries of `required`, in order, that `helpText` doesn't contain.
std::vector<std::string> missingFlags(std::string_view helpText,
                                      const std::vector<std::string>& required);

// Orders text so that runs of digits compare as numbers ("v9" < "v20"). Negative,
// zero or positive like strcmp.
int compareNumerically(std::string_view a, std::string_view b);

}  // namespace zorvane::AgentDiscovery
