// zorvane-probe: asks the desktop what a drop at a point would bond to, or where a
// stored target is found again, and prints the answer.
//
//   zorvane-probe resolve X,Y
//   zorvane-probe restore '{"file": {"_0": "file:///tmp/a.txt"}}'
//   zorvane-probe element X,Y
//   zorvane-probe tree PID
//
// An answer is printed as the target's JSON, its targetKey, and the anchor's kind,
// frame, window number and on-screen flag, one per line; when nothing is found, one
// line says so. `element` prints the accessibility element of the topmost window at the
// point, as the accessibility bus tells it: role, title and value, one per line. `tree`
// prints every element of the process's windows, one a line, indented by depth, its
// fields separated by tabs: role, title, description, value and frame (x,y,w,h).
// Exit status: 0 with an answer, 1 with none, 2 for bad arguments or no display. A restore waits for its answer on a run loop, at most 30 seconds.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "app/resolver/drop_resolver.h"
#include "app/resolver/restorer.h"
#include "core/base/json_value.h"
#include "core/base/run_loop.h"
#include "platform/desktop.h"
#include "platform/linux/file_manager_bus.h"

namespace zorvane {
namespace {

constexpr double kRestoreLimitSeconds = 30;

int usage() {
  std::fprintf(stderr,
               "usage: zorvane-probe resolve X,Y\n"
               "       zorvane-probe restore '<target JSON>'\n"
               "       zorvane-probe element X,Y\n"
               "       zorvane-probe tree PID\n");
  return 2;
}

std::string number(double value) {
  char text[64];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

int print(const std::optional<Resolved>& resolved, const std::string& nothing) {
  if (!resolved) {
    std::printf("%s\n", nothing.c_str());
    return 1;
  }
  const Anchor& anchor = *resolved->anchor;
  Rect frame = anchor.frame();
  std::printf("target: %s\n", resolved->target.encode().dump().c_str());
  std::printf("targetKey: %s\n", resolved->target.targetKey().c_str());
  std::printf("anchor: %s\n", std::string(anchor.kindName()).c_str());
  std::printf("frame: %s,%s %sx%s\n", number(frame.x).c_str(), number(frame.y).c_str(), number(frame.width).c_str(),
              number(frame.height).c_str());
  std::printf("windowID: %s\n", anchor.windowID() ? std::to_string(*anchor.windowID()).c_str() : "none");
  std::printf("onScreen: %s\n", anchor.isOnScreen() ? "true" : "false");
  return 0;
}

std::optional<Point> parsePoint(const std::string& text) {
  size_t comma = text.find(',');
  if (comma == std::string::npos) return std::nullopt;
  char* end = nullptr;
  std::string xs = text.substr(0, comma), ys = text.substr(comma + 1);
  double x = std::strtod(xs.c_str(), &end);
  if (xs.empty() || *end) return std::nullopt;
  double y = std::strtod(ys.c_str(), &end);
  if (ys.empty() || *end) return std::nullopt;
  return Point{x, y};
}

// One line an element: its fields without tabs or line feeds, so a line stays a record.
void printTree(AccessibleElement& element, int depth, int count) {
  if (depth > 40 || count > 5000) return;
  auto flat = [](std::string text) {
    for (char& c : text)
      if (c == '\t' || c == '\n' || c == '\r') c = ' ';
    return text;
  };
  std::string frame;
  if (auto f = element.frame())
    frame = number(f->x) + "," + number(f->y) + "," + number(f->width) + "," + number(f->height);
  std::printf("%s%s\t%s\t%s\t%s\t%s\n", std::string(size_t(depth) * 2, ' ').c_str(), flat(element.role()).c_str(),
              flat(element.title()).c_str(), flat(element.description()).c_str(),
              flat(element.value().value_or("")).c_str(), frame.c_str());
  if (auto children = element.children())
    for (const auto& child : *children) printTree(*child, depth + 1, count + 1);
}

int run(int argc, char** argv) {
  if (argc != 3) return usage();
  std::string mode = argv[1];
  if (mode != "resolve" && mode != "restore" && mode != "element" && mode != "tree") return usage();
  if (!std::getenv("DISPLAY")) {
    std::fprintf(stderr, "zorvane-probe: no X display ($DISPLAY is not set)\n");
    return 2;
  }
  std::unique_ptr<Desktop> desktop = Desktop::open();
  DesktopServices& services = desktop->services();

  if (mode == "tree") {
    char* end = nullptr;
    long pid = std::strtol(argv[2], &end, 10);
    if (end == argv[2] || *end != '\0' || pid <= 0) {
      std::fprintf(stderr, "zorvane-probe: expected a process id, not '%s'\n", argv[2]);
      return 2;
    }
    auto windows = services.accessibility.windows(int32_t(pid));
    for (const auto& window : windows) printTree(*window, 0, 0);
    return windows.empty() ? 1 : 0;
  }

  if (mode == "resolve" || mode == "element") {
    std::optional<Point> point = parsePoint(argv[2]);
    if (!point) {
      std::fprintf(stderr, "zorvane-probe: expected a point as X,Y, not '%s'\n", argv[2]);
      return 2;
    }
    DropResolver resolver(services);
    if (mode == "element") {
      for (const DropResolver::WindowInfo& window : resolver.onScreenWindows()) {
        if (!window.frame.contains(*point)) continue;
        auto element = services.accessibility.elementAt(window.pid, *point);
        if (!element) break;
        std::printf("role: %s\ntitle: %s\nvalue: %s\n", element->role().c_str(), element->title().c_str(),
                    element->value().value_or("").c_str());
        return 0;
      }
      std::printf("no element at %s\n", argv[2]);
      return 1;
    }
    return print(resolver.resolve(*point), "nothing at " + std::string(argv[2]));
  }

  JSONValue json = JSONValue::parse(argv[2], nullptr, false);
  if (json.is_discarded()) {
    std::fprintf(stderr, "zorvane-probe: the target is not valid JSON\n");
    return 2;
  }
  Expected<Target> target = Target::decode(json);
  if (!target) {
    std::fprintf(stderr, "zorvane-probe: not a target: %s\n", target.error().c_str());
    return 2;
  }
  RunLoop queue;
  MainQueue::setMain(&queue);
  FileManagerBus fileManager(queue);
  Restorer restorer(services, fileManager, queue);
  std::optional<std::optional<Resolved>> answer;
  restorer.resolve(*target, [&](std::optional<Resolved> resolved) { answer = std::move(resolved); });
  if (!queue.runUntil([&] { return answer.has_value(); }, kRestoreLimitSeconds)) {
    std::printf("no answer within %g seconds\n", kRestoreLimitSeconds);
    return 1;
  }
  return print(*answer, "not found: " + target->targetKey());
}

}  // namespace
}  // namespace zorvane

int main(int argc, char** argv) { return zorvane::run(argc, argv); }
