#include "core/learn/demo_check.h"

#include "core/base/file_io.h"
#include "core/learn/demonstration.h"

namespace zorvane {

static RawEvent leftClick(double x, double y, std::string role, std::string label,
                          std::string context, double at) {
  return {RawEvent::Click{
      x, y, false,
      ElementInfo{std::move(role), std::move(label), std::nullopt, {std::move(context)}},
      std::nullopt, at}};
}

static RawEvent typed(std::string text, double at, std::vector<std::string> modifiers = {}) {
  return {RawEvent::Key{std::move(text), std::nullopt, std::move(modifiers), false, at}};
}

std::vector<RawEvent> DemoCheck::events() {
  std::vector<RawEvent> events = {
      leftClick(160, 90, "AXTextField", "Search or start new chat", "Chats", 0),
      typed("M", 0.5, {"shift"}),
      typed("o", 0.6),
      typed("m", 0.7),
      leftClick(170, 160, "AXCell", "Mom", "Search results", 2.0),
      leftClick(600, 700, "AXTextArea", "Type a message", "Mom", 3.0),
      typed("R", 3.5, {"shift"}),
  };
  const char* letters[] = {"e", "a", "c", "h", "e", "d"};
  for (int i = 0; i < 6; ++i) events.push_back(typed(letters[i], 3.6 + 0.1 * i));
  events.push_back({RawEvent::Key{std::nullopt, "return", {}, false, 5.0}});
  return events;
}

std::optional<std::string> DemoCheck::prompt(std::string_view selftestPrompt) {
  if (!selftestPrompt.starts_with(kPrefix)) return std::nullopt;
  std::string folder(selftestPrompt.substr(kPrefix.size()));
  (void)createDirectories(folder);
  return Demonstration::compilePrompt({
      .name = "Send WhatsApp message",
      .slug = "send-whatsapp-message-test",
      .purpose = "",
      .app = "WhatsApp",
      .bundleID = "net.whatsapp.WhatsApp",
      .skillDir = folder,
      .steps = Demonstration::compile(events()),
  });
}

}  // namespace zorvane
