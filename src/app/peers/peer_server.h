// PeerServer: the application's end of the peer socket.
//
// One thread accepts connections; each connection is read on a thread of its own,
// decoded, and handed to `handler` on the main queue together with a completion. The
// completion may be called from any thread, however late, exactly once: it writes the
// reply and closes the connection (a reply to a client that has gone away has no
// effect). A request that can't be decoded is answered "Bad request" at once. If the
// handler drops the completion without calling it, the connection is closed unanswered.
//
// The socket file is made with mode 0600 in a folder the user owns. `stop()` (also run
// on destruction) closes the listening socket and ends the accept thread.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "core/base/expected.h"
#include "core/base/main_queue.h"
#include "core/mcp/peer_ipc.h"

namespace zorvane {

class PeerServer {
 public:
  using Completion = std::function<void(const PeerResponse&)>;
  using Handler = std::function<void(const PeerRequest&, Completion)>;

  explicit PeerServer(Handler handler, MainQueue& queue = MainQueue::main());
  ~PeerServer();
  PeerServer(const PeerServer&) = delete;
  PeerServer& operator=(const PeerServer&) = delete;

  // Listens at PeerIPC::socketPath(). A failure is logged and returned; the program runs
  // on without peers and clients are told the application isn't reachable.
  [[nodiscard]] Expected<void> start();
  void stop();

  int fd() const { return fd_; }
  const std::string& path() const { return path_; }

 private:
  void acceptLoop();

  struct Shared;
  std::shared_ptr<Shared> shared_;
  int fd_ = -1;
  std::string path_;
  std::thread acceptThread_;
};

}  // namespace zorvane
