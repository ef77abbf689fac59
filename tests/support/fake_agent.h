// FakeAgent: an in-memory agent session for controller tests. It records what it was
// sent and answered, and the test plays the agent's side with `emit...` calls, which
// reach the controller at once (tests run on the main queue).
//
// FakeAgents: the agent factory handed to controllers; keeps every request and session.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/agent/agent_factory.h"
#include "core/agent/agent_transport.h"

namespace zorvane::testing {

class FakeAgent final : public AgentTransport {
 public:
  bool running = false;
  bool terminated = false;
  std::vector<std::string> sent;
  std::vector<std::pair<PermissionRequest, bool>> responses;
  std::optional<std::string> external;

  bool isRunning() const override { return running; }
  std::optional<std::string> externalSessionID() const override { return external; }
  Expected<void> start() override {
    running = true;
    return ok();
  }
  void send(const std::string& text) override { sent.push_back(text); }
  void respond(const PermissionRequest& request, bool allow) override { responses.emplace_back(request, allow); }
  void terminate() override {
    running = false;
    terminated = true;
  }

  void emitEvent(AgentEvent event) { emit(std::move(event)); }
  void answer(const std::string& text) { emit({AgentEvent::Finished{Outcome::answer(text)}}); }
  void fail(const std::string& text) { emit({AgentEvent::Finished{Outcome::failure(text)}}); }
  void askPermission(const std::string& tool, JSONObject input, const std::string& id = "req-1") {
    emit({AgentEvent::Permission{PermissionRequest{id, tool, std::move(input), ""}}});
  }
  void exit(int code) {
    running = false;
    emit({AgentEvent::Exited{code, ""}});
  }
};

struct FakeAgents {
  std::vector<AgentFactory::Request> requests;
  std::vector<std::shared_ptr<FakeAgent>> made;
  std::optional<std::string> refuse;  // the next make fails with this text

  AgentFactory::Maker maker() {
    return [this](const AgentFactory::Request& request) -> Expected<std::shared_ptr<AgentTransport>> {
      requests.push_back(request);
      if (refuse) return Failure{*std::exchange(refuse, std::nullopt)};
      made.push_back(std::make_shared<FakeAgent>());
      return std::shared_ptr<AgentTransport>(made.back());
    };
  }
  FakeAgent& last() { return *made.back(); }
};

}  // namespace zorvane::testing
