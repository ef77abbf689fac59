// Runs the real zorvane executable as a user would: with the given PATH, a temporary
// HOME (and TMPDIR, where the selftest keeps its session folder), none of the caller's
// XDG folders or stand-in scenario, and `extra` variables on top. Waits up to a minute.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace zorvane::testing {

struct ProcessRun {
  std::string out, err;
  int code = -1;
};

ProcessRun runZorvane(const std::vector<std::string>& args, const std::string& path,
                      const std::string& home,
                      const std::map<std::string, std::string>& extra = {});

// The stand-in agents' folder, for PATH.
std::string fixtureBin();

}  // namespace zorvane::testing
