// The private line between a tool server and the running application: a Unix-domain
// stream socket carrying one JSON request and one JSON reply per connection, each
// ended by a line feed. The socket file's mode (0600, in a folder only the user can
// enter) is the whole of its access control.
//
//   PeerRequest / PeerResponse  the two messages and their coding;
//   PeerIPC                     the socket path, the cycle-of-waiting check, the text a
//                               receiving agent reads;
//   PeerClient                  the blocking client of a tool server.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "core/base/expected.h"
#include "core/base/json_value.h"
#include "core/base/uuid.h"

namespace zorvane {

struct PeerRequest {
  enum class Op { list, ask, tell, listSchedules, createSchedule, deleteSchedule, approve };

  Op op = Op::list;
  UUID from;
  std::optional<std::string> to;
  std::optional<std::string> message;
  std::optional<std::string> when;
  // The process that sent the request, as the socket's credentials tell it; set by the
  // receiving server, never read from or written to the wire.
  std::optional<int32_t> senderPID;

  static std::string_view rawValue(Op op);
  static std::optional<Op> opFromRawValue(std::string_view text);

  // Compact JSON, keys op, from, to, message, when; absent fields left out.
  std::string encoded() const;
  // Fails on anything that isn't an object with a known op and a UUID `from`, or has a
  // present optional field that isn't text. Unknown keys are ignored.
  static Expected<PeerRequest> decode(std::string_view line);

  friend bool operator==(const PeerRequest&, const PeerRequest&) = default;
};

struct PeerResponse {
  bool ok = false;
  std::string text;

  std::string encoded() const;
  static Expected<PeerResponse> decode(std::string_view line);
  friend bool operator==(const PeerResponse&, const PeerResponse&) = default;
};

namespace PeerIPC {

// $ZORVANE_IPC_SOCK if set and not empty, else ipc.sock in the data folder.
std::string socketPath();

// The path as it goes into the socket address: cut to 103 bytes, as both ends do, so a
// long path still lets them meet.
std::string addressPath(const std::string& path);

// Whether `asker` asking `asked` would close a cycle of pieces waiting for each other;
// `waiting` maps a piece to the piece whose answer it waits for.
bool wouldDeadlock(const UUID& asker, const UUID& asked, const std::map<UUID, UUID>& waiting);

// The text put in front of an agent that receives a message from another piece.
std::string inbound(const std::string& from, const std::string& target, const std::string& message,
                    bool expectsReply);

}  // namespace PeerIPC

namespace PeerClient {

// Sends one request and waits up to `timeoutSeconds` for the reply. Throws MCPToolError
// with the text the agent should read when the application can't be reached or
// doesn't answer in time; a reply that can't be decoded throws its decoding failure.
PeerResponse send(const PeerRequest& request, double timeoutSeconds);

}  // namespace PeerClient

// The largest request the application reads (a message to another piece, a schedule's
// prompt, a tool's arguments for approval), and the largest reply a tool server reads
// (another piece's whole answer).
inline constexpr size_t kPeerRequestLimit = 1 << 20;
inline constexpr size_t kPeerReplyLimit = 16 << 20;

// Reads one message: chunks of up to 64 KiB until the data ends in a line feed, the
// peer closes, or the read fails (a receive time-out included). More than `limit`
// bytes without a line feed gives nothing: the rest is never buffered. Shared by both
// ends.
std::string readPeerMessage(int fd, size_t limit);

// Whether a connection to the Unix-domain stream socket at `path` is accepted now.
bool unixSocketAccepts(const std::string& path);

// Writes one message in a single write, ignoring the result; never raises SIGPIPE.
void writePeerMessage(int fd, std::string_view bytes);

}  // namespace zorvane
