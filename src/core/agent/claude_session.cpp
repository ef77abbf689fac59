#include "core/agent/claude_session.h"

#include "core/agent/session_launch.h"
#include "core/base/file_io.h"
#include "core/base/log.h"
#include "core/base/utf8.h"

namespace zorvane {

static constexpr size_t kStderrTailCharacters = 2048;

std::shared_ptr<ClaudeSession> ClaudeSession::create(const std::string& executable,
                                                     std::vector<std::string> arguments,
                                                     const std::string& workingDirectory,
                                                     MainQueue& queue) {
  return std::shared_ptr<ClaudeSession>(
      new ClaudeSession(executable, std::move(arguments), workingDirectory, queue));
}

Environment ClaudeSession::childEnvironment(const std::string& executable, Environment base) {
  Environment env = agentEnvironment(executable, std::move(base));
  if (!env.contains("MCP_TOOL_TIMEOUT")) env.set("MCP_TOOL_TIMEOUT", "900000");
  return env;
}

ClaudeSession::ClaudeSession(const std::string& executable, std::vector<std::string> arguments,
                             const std::string& workingDirectory, MainQueue& queue)
    : workingDirectory_(workingDirectory) {
  ChildProcess::Options options;
  options.executable = executable;
  options.arguments = std::move(arguments);
  options.workingDirectory = workingDirectory;
  options.environment = childEnvironment(executable, Environment::current());
  process_ = ChildProcess::create(std::move(options), queue);
}

bool ClaudeSession::isRunning() const { return process_->isRunning(); }

Expected<void> ClaudeSession::start() {
  if (auto made = createDirectories(workingDirectory_); !made) {
    return Failure{"Couldn't create the working folder " + workingDirectory_ + ": " + made.error()};
  }
  std::weak_ptr<ClaudeSession> weak = weak_from_this();
  process_->onStdout = [weak](std::string chunk) {
    if (auto self = weak.lock()) self->handleOutput(std::move(chunk));
  };
  process_->onStderr = [weak](std::string chunk) {
    auto self = weak.lock();
    if (!self) return;
    self->stderrTail_ = utf8Suffix(self->stderrTail_ + repairUTF8(chunk), kStderrTailCharacters);
  };
  process_->onExit = [weak](int code) {
    if (auto self = weak.lock()) self->handleExit(code);
  };
  return process_->start();
}

void ClaudeSession::send(const std::string& text) {
  isBusy_ = true;
  turn_ = StreamAccumulator{};
  std::string line = SessionLaunch::userMessage(text);
  if (process_->isRunning()) process_->write(line);  // a failed write is the exit's to report
}

void ClaudeSession::respond(const PermissionRequest& request, bool allow) {
  if (process_->isRunning()) process_->write(request.response(allow));
}

void ClaudeSession::terminate() { process_->terminate(); }

void ClaudeSession::handleOutput(std::string chunk) {
  if (outputClosed_) return;
  buffer_.append(chunk);
  while (auto line = buffer_.takeLine()) {
    if (line->oversized) {
      Log::info("agent output: dropped a line over the length limit");
      continue;
    }
    if (line->text.empty()) continue;
    handleLine(line->text);
    // A handler may have ended the session (and this object's last owner) in between.
    if (outputClosed_) return;
  }
}

void ClaudeSession::handleLine(const std::string& line) {
  // The callback may drop the last owner of the session; stay alive until done.
  auto keepAlive = shared_from_this();
  emit({AgentEvent::Raw{repairUTF8(line)}});
  if (auto request = PermissionRequest::decode(line)) {
    emit({AgentEvent::Permission{std::move(*request)}});
    return;
  }
  for (StreamEvent& event : StreamEvent::decode(line)) {
    turn_.feed(event);
    bool isResult = event.as<StreamEvent::Result>() != nullptr;
    emit({AgentEvent::Stream{std::move(event)}});
    if (isResult && isBusy_) {
      isBusy_ = false;
      emit({AgentEvent::Finished{turn_.finish(0, stderrTail_)}});
    }
  }
}

void ClaudeSession::handleExit(int code) {
  auto keepAlive = shared_from_this();
  outputClosed_ = true;  // bytes after the last line feed are dropped
  if (isBusy_) {
    isBusy_ = false;
    emit({AgentEvent::Finished{turn_.finish(code, stderrTail_)}});
  }
  emit({AgentEvent::Exited{code, stderrTail_}});
}

}  // namespace zorvane
