#include "core/agent/turn_session.h"

#include "core/agent/turn_decoder.h"
#include "core/base/log.h"
#include "core/base/utf8.h"

namespace zorvane {

static constexpr size_t kStderrTailCharacters = 2048;

std::shared_ptr<TurnSession> TurnSession::create(AgentKind kind, std::string executable,
                                                 std::string workingDirectory,
                                                 std::optional<std::string> resumeID,
                                                 Arguments arguments, MainQueue& queue) {
  return std::shared_ptr<TurnSession>(new TurnSession(std::move(kind), std::move(executable),
                                                      std::move(workingDirectory), std::move(resumeID),
                                                      std::move(arguments), queue));
}

TurnSession::TurnSession(AgentKind kind, std::string executable, std::string workingDirectory,
                         std::optional<std::string> resumeID, Arguments arguments, MainQueue& queue)
    : kind_(std::move(kind)),
      executable_(std::move(executable)),
      workingDirectory_(std::move(workingDirectory)),
      arguments_(std::move(arguments)),
      queue_(queue),
      externalSessionID_(std::move(resumeID)) {}

Expected<void> TurnSession::start() {
  isRunning_ = true;
  return ok();
}

void TurnSession::terminate() {
  isRunning_ = false;
  if (process_) process_->terminate();  // the turn then ends through finishTurn
}

void TurnSession::send(const std::string& prompt) {
  lastText_.reset();
  lastError_.reset();
  stderrTail_.clear();
  buffer_ = LineBuffer();

  ChildProcess::Options options;
  options.executable = executable_;
  options.arguments = arguments_(prompt, externalSessionID_);
  options.workingDirectory = workingDirectory_;
  options.environment = agentEnvironment(executable_, Environment::current());
  options.stdinFromNullDevice = true;  // an open pipe makes some tools wait for end of input
  auto child = ChildProcess::create(std::move(options), queue_);

  std::weak_ptr<TurnSession> weak = weak_from_this();
  child->onStdout = [weak](std::string chunk) {
    if (auto self = weak.lock()) self->ingest(chunk);
  };
  child->onStderr = [weak](std::string chunk) {
    if (auto self = weak.lock()) {
      self->stderrTail_ = utf8Suffix(self->stderrTail_ + repairUTF8(chunk), kStderrTailCharacters);
    }
  };
  child->onExit = [weak](int status) {
    if (auto self = weak.lock()) self->finishTurn(status);
  };
  if (auto started = child->start(); !started) {
    // The child's own text is "Couldn't start <path>: <reason>"; the user reads the agent's name.
    std::string reason = started.error().substr(started.error().find(": ") + 2);
    emit({AgentEvent::Finished{Outcome::failure("Couldn't start " + kind_.displayName + ": " + reason)}});
    return;
  }
  process_ = std::move(child);
}

void TurnSession::ingest(std::string_view bytes) {
  auto keepAlive = shared_from_this();
  buffer_.append(bytes);
  while (auto line = buffer_.takeLine()) {
    if (line->oversized) {
      Log::info("agent output: dropped a line over the length limit");
      continue;
    }
    if (line->text.empty()) continue;
    emit({AgentEvent::Raw{repairUTF8(line->text)}});
    TurnDecoder::Line decoded = TurnDecoder::decode(kind_, line->text);
    if (decoded.sessionID) externalSessionID_ = decoded.sessionID;
    if (decoded.finalText) lastText_ = decoded.finalText;
    if (decoded.error) lastError_ = decoded.error;
    for (StreamEvent& event : decoded.events) emit({AgentEvent::Stream{std::move(event)}});
  }
}

void TurnSession::finishTurn(int status) {
  auto keepAlive = shared_from_this();
  ingest("\n");  // decode a last line that had no line feed
  process_.reset();
  if (lastText_ && (status == 0 || !lastError_)) {
    emit({AgentEvent::Finished{Outcome::answer(*lastText_)}});
    return;
  }
  std::string message = lastError_ ? *lastError_ : trimmed(stderrTail_);
  if (message.empty()) message = kind_.displayName + " exited with code " + std::to_string(status);
  emit({AgentEvent::Finished{Outcome::failure(message)}});
}

}  // namespace zorvane
