#include "core/mcp/peer_ipc.h"

#include <errno.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <set>

#include "core/base/paths.h"
#include "core/mcp/tool_spec.h"

namespace zorvane {

namespace {
struct OpName {
  PeerRequest::Op op;
  std::string_view name;
};
constexpr OpName kOps[] = {
    {PeerRequest::Op::list, "list"},
    {PeerRequest::Op::ask, "ask"},
    {PeerRequest::Op::tell, "tell"},
    {PeerRequest::Op::listSchedules, "listSchedules"},
    {PeerRequest::Op::createSchedule, "createSchedule"},
    {PeerRequest::Op::deleteSchedule, "deleteSchedule"},
    {PeerRequest::Op::approve, "approve"},
};
}  // namespace

std::string_view PeerRequest::rawValue(Op op) {
  for (const auto& entry : kOps) {
    if (entry.op == op) return entry.name;
  }
  return "list";
}

std::optional<PeerRequest::Op> PeerRequest::opFromRawValue(std::string_view text) {
  for (const auto& entry : kOps) {
    if (entry.name == text) return entry.op;
  }
  return std::nullopt;
}

std::string PeerRequest::encoded() const {
  nlohmann::ordered_json json;
  json["op"] = rawValue(op);
  json["from"] = from.uuidString();
  if (to) json["to"] = *to;
  if (message) json["message"] = *message;
  if (when) json["when"] = *when;
  return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

Expected<PeerRequest> PeerRequest::decode(std::string_view line) {
  auto parsed = parseJSON(line);
  if (!parsed || !parsed->is_object()) return Failure{"peer request: not a JSON object"};
  auto opText = stringValue(subscript(*parsed, "op"));
  if (!opText) return Failure{"peer request: op: missing"};
  auto op = opFromRawValue(*opText);
  if (!op) return Failure{"peer request: op: unknown \"" + *opText + "\""};
  auto fromText = stringValue(subscript(*parsed, "from"));
  auto from = fromText ? UUID::parse(*fromText) : std::nullopt;
  if (!from) return Failure{"peer request: from: expected a UUID"};
  PeerRequest request{*op, *from, std::nullopt, std::nullopt, std::nullopt};
  for (auto [key, field] : {std::pair{"to", &request.to}, std::pair{"message", &request.message},
                            std::pair{"when", &request.when}}) {
    const JSONValue* value = subscript(*parsed, key);
    if (value == nullptr) continue;
    if (!value->is_string()) return Failure{std::string("peer request: ") + key + ": expected text"};
    *field = value->get<std::string>();
  }
  return request;
}

std::string PeerResponse::encoded() const {
  nlohmann::ordered_json json;
  json["ok"] = ok;
  json["text"] = text;
  return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

Expected<PeerResponse> PeerResponse::decode(std::string_view line) {
  auto parsed = parseJSON(line);
  if (!parsed || !parsed->is_object()) return Failure{"peer response: not a JSON object"};
  auto ok = boolValue(subscript(*parsed, "ok"));
  auto text = stringValue(subscript(*parsed, "text"));
  if (!ok || !text) return Failure{"peer response: expected ok and text"};
  return PeerResponse{*ok, *text};
}

namespace PeerIPC {

std::string socketPath() {
  const char* override = getenv("ZORVANE_IPC_SOCK");
  if (override != nullptr && override[0] != '\0') return override;
  return Paths::dataDirectory() + "/ipc.sock";
}

std::string addressPath(const std::string& path) { return path.substr(0, 103); }

bool wouldDeadlock(const UUID& asker, const UUID& asked, const std::map<UUID, UUID>& waiting) {
  std::set<UUID> visited;
  UUID current = asked;
  for (;;) {
    if (visited.count(current)) return false;
    if (current == asker) return true;
    visited.insert(current);
    auto next = waiting.find(current);
    if (next == waiting.end()) return false;
    current = next->second;
  }
}

std::string inbound(const std::string& from, const std::string& target, const std::string& message,
                    bool expectsReply) {
  return "[Message from another Zorvane agent: \"" + from + "\" (bonded to " + target + ")]\n" + message + "\n\n" +
         (expectsReply ? "Do what it asks using your own target and tools, then reply. Your final answer is sent "
                         "back to that agent."
                       : "No reply is expected; act on it if relevant.");
}

}  // namespace PeerIPC

std::string readPeerMessage(int fd, size_t limit) {
  std::string buffer;
  std::string chunk(65536, '\0');
  for (;;) {
    ssize_t n = ::recv(fd, chunk.data(), chunk.size(), 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    if (buffer.size() + static_cast<size_t>(n) > limit) return "";
    buffer.append(chunk.data(), static_cast<size_t>(n));
    if (buffer.back() == '\n') break;
  }
  return buffer;
}

bool unixSocketAccepts(const std::string& path) {
  sockaddr_un address{};
  if (path.size() >= sizeof address.sun_path) return false;
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, path.size());
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  bool connected = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  ::close(fd);
  return connected;
}

void writePeerMessage(int fd, std::string_view bytes) {
  // MSG_NOSIGNAL: a client that went away must not end this process with SIGPIPE.
  while (!bytes.empty()) {
    ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
}

namespace PeerClient {

PeerResponse send(const PeerRequest& request, double timeoutSeconds) {
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) throw MCPToolError("Couldn't open a socket to Zorvane.");
  struct Closer {
    int fd;
    ~Closer() { ::close(fd); }
  } closer{fd};

  timeval timeout{};
  timeout.tv_sec = timeoutSeconds > 0 ? static_cast<time_t>(timeoutSeconds) : 0;
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);

  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string path = PeerIPC::addressPath(PeerIPC::socketPath());
  path.copy(address.sun_path, path.size());
  if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    throw MCPToolError("Zorvane isn't reachable (is the app running?).");
  }
  writePeerMessage(fd, request.encoded() + "\n");
  std::string reply = readPeerMessage(fd, kPeerReplyLimit);
  if (reply.empty()) {
    long minutes = static_cast<long>(timeoutSeconds / 60);
    throw MCPToolError("No reply from the other piece (timed out after " + std::to_string(minutes) + " min).");
  }
  auto response = PeerResponse::decode(reply);
  if (!response) throw MCPToolError(response.error());
  return *response;
}

}  // namespace PeerClient

}  // namespace zorvane
