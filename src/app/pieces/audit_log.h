// AuditLog: "audit.log" in the data folder, one JSON line for each approval the user
// decided: when, which piece, which tool, its class, what the user was shown, and the
// verdict. Appending never fails the caller: the verdict has already gone out, and a
// line that can't be written is logged and dropped.
#pragma once

#include <string>

#include "core/agent/action_policy.h"
#include "core/base/clock.h"
#include "core/base/uuid.h"

namespace zorvane::AuditLog {

// "audit.log" in Paths::dataDirectory().
std::string defaultPath();

// Appends {"ts", "pieceID", "tool", "class", "summary", "allowed"} and a line feed to
// the file at `path`, creating it (0600) and its folder when missing. `byTrust` marks an
// act that passed unasked because the user trusted the piece ("byTrust": true).
void append(const std::string& path, const SystemTime& when, const UUID& piece, const std::string& tool,
            ActionClass cls, const std::string& summary, bool allowed, bool byTrust = false);

}  // namespace zorvane::AuditLog
