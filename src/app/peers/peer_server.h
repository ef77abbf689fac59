// PeerServer: the application's end of the peer socket.
//
// Who may talk to it: only processes of this user. The socket file is made 0600 in a
// folder only the user can enter, and each accepted connection's credentials
// (SO_PEERCRED) are checked again, so a socket reached some other way still turns away
// other users. The sender's process id travels with the request (`senderPID`), for the
// router to prove which piece is asking.
//
// What a sender can cost: a request is at most kPeerRequestLimit bytes and must arrive
// within kReadSeconds of the connection; a small fixed pool of threads reads requests
// (no thread per client), at most kMaxOpen connections are open at once (a request
// waiting for its answer holds one; the rest are answered "busy" at once), and when the
// process runs out of descriptors, accepting backs off instead of spinning.
//
// A decoded request is handed to `handler` on the main queue together with a
// completion. The completion may be called from any thread, however late, exactly once:
// it writes the reply and closes the connection (a reply to a client that has gone away
// has no effect). A request that can't be decoded is answered "Bad request" at once. If
// the handler drops the completion without calling it, the connection is closed
// unanswered. `stop()` (also run on destruction) ends the accept and reader threads.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/base/expected.h"
#include "core/base/main_queue.h"
#include "core/mcp/peer_ipc.h"

namespace zorvane {

class PeerServer {
 public:
  using Completion = std::function<void(const PeerResponse&)>;
  using Handler = std::function<void(const PeerRequest&, Completion)>;

  static constexpr int kReaders = 4;
  static constexpr int kMaxOpen = 64;
  static constexpr double kReadSeconds = 5;

  // `readSeconds`: how long a connection may take to send its request.
  explicit PeerServer(Handler handler, MainQueue& queue = MainQueue::main(), double readSeconds = kReadSeconds);
  ~PeerServer();
  PeerServer(const PeerServer&) = delete;
  PeerServer& operator=(const PeerServer&) = delete;

  // Listens at PeerIPC::socketPath(). A failure is logged and returned; the program runs
  // on without peers and clients are told the application isn't reachable.
  [[nodiscard]] Expected<void> start();
  void stop();

  int fd() const { return fd_; }

  // What the server's threads share; defined in the .cpp.
  struct Shared;
  const std::string& path() const { return path_; }

 private:
  void acceptLoop();

  std::shared_ptr<Shared> shared_;
  int fd_ = -1;
  std::string path_;
  std::thread acceptThread_;
  std::vector<std::thread> readers_;
  double readSeconds_;
};

}  // namespace zorvane
