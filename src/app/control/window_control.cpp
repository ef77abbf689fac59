#include "app/control/window_control.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <limits>

#include "core/base/base64.h"
#include "core/base/utf8.h"
#include "platform/image_codec.h"
#include "platform/platform_words.h"

namespace zorvane {

static constexpr double kScreenshotBound = 1568;
static constexpr size_t kTreeLineLimit = 600;
static constexpr size_t kLabelCharacters = 80;
static constexpr size_t kValueCharacters = 120;
static constexpr int64_t kDefaultTreeDepth = 25;
static constexpr int64_t kDefaultPageCharacters = 40000;
static constexpr int kJPEGQuality = 80;

// Bringing a window forward: the settling pause after asking, then how often and how
// long its arrival in front is looked for.
static constexpr int kSettleMicroseconds = 150000;
static constexpr int kFrontPollMicroseconds = 50000;
static constexpr int kFrontWaitMicroseconds = 1000000;

static const char* const kWindowGone = "The bonded window is gone (closed?). Ask the user to drop the piece again.";

static std::string notOnScreenText() {
  return "The bonded window isn't on screen right now (minimized, or " + std::string(PlatformWords::otherDesktop) +
         "). Ask the user to bring it back, then retry.";
}

WindowControl::WindowControl(uint32_t windowID, std::string bundleID, std::optional<int32_t> pidHint,
                             DesktopServices& desktop, Input::Sleeper sleeper)
    : windowID(windowID),
      bundleID(std::move(bundleID)),
      pidHint(pidHint),
      desktop_(desktop),
      sleep_(sleeper),
      input_(desktop.input, std::move(sleeper)) {}

const std::set<std::string>& WindowControl::actionable() {
  static const std::set<std::string> roles = {
      "AXButton",    "AXTextField",  "AXTextArea", "AXLink",         "AXCheckBox", "AXRadioButton",
      "AXPopUpButton", "AXMenuItem", "AXMenuButton", "AXComboBox",   "AXTab",      "AXSlider",
      "AXSearchField", "AXCell",     "AXRow",      "AXDisclosureTriangle", "AXIncrementor"};
  return roles;
}

// --- Arguments -------------------------------------------------------------------------

// A number argument: a JSON number as it is, a string parsed whole as a number, else 0.
static double numberArgument(const JSONObject& args, const std::string& key) {
  auto it = args.find(key);
  if (it == args.end()) return 0;
  if (it->second.is_number()) return it->second.get<double>();
  if (it->second.is_string()) {
    const std::string& text = it->second.get_ref<const std::string&>();
    if (text.empty()) return 0;
    char* end = nullptr;
    double value = std::strtod(text.c_str(), &end);
    if (end == text.c_str() + text.size() && std::isfinite(value)) return value;
  }
  return 0;
}

static std::string textArgument(const JSONObject& args, const std::string& key) {
  auto it = args.find(key);
  if (it == args.end() || !it->second.is_string()) return "";
  return it->second.get<std::string>();
}

// An integer argument that must be a JSON number; anything else takes the default.
// Values beyond 64 bits are held at the ends of the range.
static int64_t countArgument(const JSONObject& args, const std::string& key, int64_t fallback) {
  auto it = args.find(key);
  if (it == args.end() || !it->second.is_number()) return fallback;
  if (it->second.is_number_integer()) {
    if (it->second.is_number_unsigned())
      return it->second.get<uint64_t>() > uint64_t(std::numeric_limits<int64_t>::max())
                 ? std::numeric_limits<int64_t>::max()
                 : int64_t(it->second.get<uint64_t>());
    return it->second.get<int64_t>();
  }
  double value = it->second.get<double>();
  if (std::isnan(value)) return fallback;
  if (value >= 9.2e18) return std::numeric_limits<int64_t>::max();
  if (value <= -9.2e18) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(value);
}

// A coordinate cut to a whole number, as the result texts print them.
static std::string whole(double value) {
  if (std::isnan(value)) return "0";
  char text[64];
  if (std::fabs(value) < 9.2e18) {
    std::snprintf(text, sizeof text, "%lld", static_cast<long long>(value));
  } else {
    std::snprintf(text, sizeof text, "%.0f", std::trunc(value));
  }
  return text;
}

// A point as the agent gave it: whole numbers as such, fractions kept (so that -0.5 isn't
// shown as the valid 0).
static std::string pointText(Point p) {
  auto number = [](double value) {
    if (!std::isfinite(value) || value == std::trunc(value)) return whole(value);
    char text[64];
    std::snprintf(text, sizeof text, "%.10g", value);
    return std::string(text);
  };
  return number(p.x) + "," + number(p.y);
}

// Line breaks become blanks, so each element, title or value keeps to its line.
static std::string oneLine(std::string text) {
  for (char& c : text)
    if (c == '\n' || c == '\r') c = ' ';
  return text;
}

// --- Reading the window ----------------------------------------------------------------

WindowControl::Info WindowControl::info() {
  auto window = desktop_.windows.window(windowID);
  if (!window) throw MCPToolError(kWindowGone);
  return {Rect{window->x, window->y, window->width, window->height}, window->ownerPID, window->title,
          window->onScreen};
}

std::vector<MCPContent> WindowControl::screenshot() {
  Info window = info();
  if (!window.onScreen) throw MCPToolError(notOnScreenText());
  auto captured = desktop_.capture.capture(windowID);
  if (!captured || captured->width <= 0 || captured->height <= 0)
    throw MCPToolError(std::string(PlatformWords::screenshotFailed));

  // One image pixel per window point, the long side bounded.
  double width = window.frame.width, height = window.frame.height;
  double longest = std::max(width, height);
  if (longest > kScreenshotBound) {
    width *= kScreenshotBound / longest;
    height *= kScreenshotBound / longest;
  }
  int imageWidth = static_cast<int>(width), imageHeight = static_cast<int>(height);
  auto scaled = ImageCodec::scale(*captured, imageWidth, imageHeight);
  if (!scaled) throw MCPToolError("Couldn't scale screenshot.");
  auto jpeg = ImageCodec::encodeJPEG(*scaled, kJPEGQuality);
  if (!jpeg) throw MCPToolError("Couldn't encode screenshot.");

  std::string note = "Window " + whole(window.frame.width) + "x" + whole(window.frame.height) + " points.";
  double scale = imageWidth / window.frame.width;
  if (scale < 1.0) {
    char sentence[160];
    std::snprintf(sentence, sizeof sentence,
                  " Image is scaled by %.3f; divide image coordinates by that before clicking.", scale);
    note += sentence;
  }
  return {MCPContent::image(base64Encode(*jpeg), "image/jpeg"), MCPContent::text(note)};
}

std::shared_ptr<AccessibleElement> WindowControl::axWindow(const Info& window) {
  if (!desktop_.accessibility.trusted()) throw MCPToolError(std::string(PlatformWords::accessibilityMissing));
  auto windows = desktop_.accessibility.windows(window.pid);
  if (windows.empty())
    throw MCPToolError("Couldn't read this app's windows through " + std::string(PlatformWords::accessibilityName) +
                       ".");
  if (windows.size() == 1) return windows.front();
  std::shared_ptr<AccessibleElement> best;
  double bestScore = std::numeric_limits<double>::infinity();
  for (auto& candidate : windows) {
    double score = std::numeric_limits<double>::infinity();
    if (auto frame = candidate->frame()) {
      score = std::fabs(frame->x - window.frame.x) + std::fabs(frame->y - window.frame.y) +
              std::fabs(frame->width - window.frame.width) + std::fabs(frame->height - window.frame.height);
    }
    if (!best || score < bestScore) {
      best = candidate;
      bestScore = score;
    }
  }
  return best;
}

namespace {

struct TreeWalk {
  const Rect& windowFrame;
  int64_t maxDepth;
  std::vector<std::string>& lines;
  size_t printed = 0;

  void walk(const std::shared_ptr<AccessibleElement>& element, const std::string& ref, int64_t depth) {
    if (printed >= kTreeLineLimit || depth > maxDepth) return;
    std::string role = element->role();
    if (role.empty()) role = "?";
    std::string label = element->title();
    if (label.empty()) label = element->description();
    if (label.empty()) label = element->help();
    std::string value = element->value().value_or("");

    if (!label.empty() || !value.empty() || WindowControl::actionable().count(role)) {
      std::string line(static_cast<size_t>(std::min<int64_t>(depth, 12)), ' ');
      line += "[" + ref + "] " + role;
      if (!label.empty()) line += " \"" + oneLine(utf8Prefix(label, kLabelCharacters)) + "\"";
      if (!value.empty()) line += " value=\"" + oneLine(utf8Prefix(value, kValueCharacters)) + "\"";
      if (auto frame = element->frame()) {
        line += " @" + whole(frame->x - windowFrame.x) + "," + whole(frame->y - windowFrame.y) + " " +
                whole(frame->width) + "x" + whole(frame->height);
      }
      lines.push_back(std::move(line));
      ++printed;
    }
    auto children = element->children();
    if (!children) return;
    for (size_t i = 0; i < children->size(); ++i) walk((*children)[i], ref + "." + std::to_string(i), depth + 1);
  }
};

}  // namespace

std::string WindowControl::uiTree(int64_t maxDepth) {
  Info window = info();
  auto root = axWindow(window);
  std::vector<std::string> lines;
  lines.push_back("window \"" + oneLine(window.title) + "\" " + whole(window.frame.width) + "x" + whole(window.frame.height) +
                  "; frames are window-relative points");
  TreeWalk walk{window.frame, maxDepth, lines};
  walk.walk(root, "0", 0);
  if (walk.printed >= kTreeLineLimit) lines.push_back("\u2026 truncated; use max_depth or a screenshot");
  std::string text;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (i) text += '\n';
    text += lines[i];
  }
  return text;
}

std::shared_ptr<AccessibleElement> WindowControl::element(const std::string& ref) {
  Info window = info();
  auto current = axWindow(window);
  std::vector<long long> path;
  size_t start = 0;
  while (start <= ref.size()) {
    size_t dot = ref.find('.', start);
    std::string part = ref.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
    if (!part.empty()) {
      char* end = nullptr;
      errno = 0;
      long long n = std::strtoll(part.c_str(), &end, 10);
      bool integer = end == part.c_str() + part.size() && (std::isdigit(static_cast<unsigned char>(part.back())));
      // A number too large for 64 bits is still a number: one that no child has.
      if (integer) path.push_back(errno == ERANGE ? std::numeric_limits<long long>::max() : n);
    }
    if (dot == std::string::npos) break;
    start = dot + 1;
  }
  if (path.empty() || path.front() != 0) throw MCPToolError("Refs start with 0 (from read_ui_tree).");
  for (size_t i = 1; i < path.size(); ++i) {
    auto children = current->children();
    if (!children || path[i] < 0 || static_cast<unsigned long long>(path[i]) >= children->size())
      throw MCPToolError("Ref " + ref + " is stale; call read_ui_tree again.");
    current = (*children)[static_cast<size_t>(path[i])];
  }
  return current;
}

// --- Browsers --------------------------------------------------------------------------

BrowserWindow WindowControl::browserWindow(BrowserApp browser) {
  Info window = info();
  return browserWindowFrom(desktop_.windows, windowID, window.pid, browser, window.frame, window.title);
}

std::string WindowControl::js(BrowserApp browser, const std::string& code) {
  BrowserWindow window = browserWindow(browser);
  // A browser whose pages can't be scripted at all says how to make them so; that text
  // goes to the agent as it is.
  if (auto tab = desktop_.browsers.frontTab(window); !tab) throw MCPToolError(tab.error());
  auto result = desktop_.browsers.evaluate(window, code);
  if (!result) throw MCPToolError("JavaScript failed: " + result.error());
  return *result;
}

// --- Driving ---------------------------------------------------------------------------

bool WindowControl::bringForward() {
  info();
  if (!desktop_.accessibility.trusted()) throw MCPToolError(std::string(PlatformWords::accessibilityMissing));
  bool activated = desktop_.windows.activate(windowID);
  sleep_(kSettleMicroseconds);
  return activated;
}

WindowControl::PointView WindowControl::pointView(Point at) {
  for (const WindowInfo& window : desktop_.windows.windows()) {
    if (window.windowID == windowID) return window.onScreen ? PointView::shows : PointView::hidden;
    if (window.onScreen && Rect{window.x, window.y, window.width, window.height}.contains(at))
      return PointView::covered;
  }
  return PointView::hidden;
}

// Keys go to the window with the keyboard focus, whichever that is. The window service
// says which windows are in front, not which has the focus; a window manager that
// activates a window gives it the focus and raises it above the others of its layer.
// So the window counts as active when the desktop took the request and no window of its
// layer or a lower one is in front of it. Windows of higher layers (panels, docks,
// notifications, windows kept above) stay in front whatever is active and are passed
// over.
bool WindowControl::readsAsFront() {
  // The window manager's word on which window has the keyboard, where it gives one;
  // else the stacking: nothing of the normal layers in front of the window.
  if (auto active = desktop_.windows.activeWindow()) return *active == windowID;
  std::vector<WindowInfo> windows = desktop_.windows.windows();
  auto self = std::find_if(windows.begin(), windows.end(), [&](const WindowInfo& w) { return w.windowID == windowID; });
  if (self == windows.end() || !self->onScreen) return false;
  return std::none_of(windows.begin(), self, [&](const WindowInfo& w) { return w.onScreen && w.layer <= self->layer; });
}

void WindowControl::requireActiveForKeys() {
  if (!bringForward()) {
    throw MCPToolError("The desktop refused to activate the window, so no keys were sent. Ask the user to bring it "
                       "forward, then retry.");
  }
  for (int waited = 0; !readsAsFront(); waited += kFrontPollMicroseconds) {
    if (waited >= kFrontWaitMicroseconds) {
      throw MCPToolError("The window didn't become the active one (another window stayed in front of it), so no "
                         "keys were sent. Ask the user to bring it forward, then retry.");
    }
    sleep_(kFrontPollMicroseconds);
  }
}

Point WindowControl::screenPoint(Point inWindow, const Info& window, const std::string& done) {
  const std::string point = pointText(inWindow);
  if (!(inWindow.x >= 0 && inWindow.x < window.frame.width && inWindow.y >= 0 && inWindow.y < window.frame.height)) {
    const std::string width = whole(window.frame.width), height = whole(window.frame.height);
    throw MCPToolError("Point " + point + " lies outside the window, which is " + width + "x" + height +
                       " points: x and y are window points, 0 <= x < " + width + " and 0 <= y < " + height +
                       ". Nothing was " + done + ".");
  }
  Point at{window.frame.x + inWindow.x, window.frame.y + inWindow.y};
  // The pointer can't leave the screen: a point past its top or left edge would land at
  // the edge, on whatever is there.
  if (at.x < 0 || at.y < 0) {
    throw MCPToolError("Point " + point + " of the window lies off the screen. Nothing was " + done +
                       ". Ask the user to move the window fully onto the screen.");
  }
  return at;
}

std::vector<MCPContent> WindowControl::call(const std::string& tool, const JSONObject& args,
                                            std::optional<BrowserApp> browser) {
  auto requireBrowser = [&]() -> BrowserApp {
    if (!browser) throw MCPToolError("Not a browser window.");
    return *browser;
  };

  if (tool == "get_target_info") {
    Info window = info();
    std::string text = "app: " + bundleID + "\npid: " + std::to_string(window.pid) + "\nwindow: " +
                       std::to_string(windowID) + " \"" + oneLine(window.title) + "\"\nframe (points, top-left screen coords): " +
                       whole(window.frame.x) + "," + whole(window.frame.y) + " " + whole(window.frame.width) + "x" +
                       whole(window.frame.height) + "\non screen: " + (window.onScreen ? "true" : "false");
    if (browser) {
      if (auto tab = desktop_.browsers.frontTab(browserWindow(*browser)); tab && !tab->empty()) {
        std::string answer = *tab;
        if (auto newline = answer.find('\n'); newline != std::string::npos)
          answer.replace(newline, 1, " \u2014 ");
        text += "\nfront tab: " + answer;
      }
    }
    return {MCPContent::text(text)};
  }
  if (tool == "screenshot") return screenshot();
  if (tool == "read_ui_tree") return {MCPContent::text(uiTree(countArgument(args, "max_depth", kDefaultTreeDepth)))};
  if (tool == "press") {
    auto target = element(textArgument(args, "ref"));
    if (int code = target->press(); code != 0)
      throw MCPToolError("AXPress failed (" + std::to_string(code) + "); try click instead.");
    return {MCPContent::text("pressed")};
  }
  if (tool == "set_value") {
    auto target = element(textArgument(args, "ref"));
    (void)target->setFocused(true);
    if (int code = target->setValue(textArgument(args, "value")); code != 0)
      throw MCPToolError("Setting the value failed (" + std::to_string(code) + "); try click + type_text.");
    return {MCPContent::text("value set")};
  }
  if (tool == "click") {
    // Bringing forward may restore or move the window: the point is checked against the
    // frame before (nothing is raised for a point outside it) and placed after.
    Point inWindow{numberArgument(args, "x"), numberArgument(args, "y")};
    (void)screenPoint(inWindow, info(), "clicked");
    // A refused activation is no reason to stop: what counts is that the point shows
    // this window, looked at below.
    (void)bringForward();
    Point at;
    for (int waited = 0;; waited += kFrontPollMicroseconds) {
      at = screenPoint(inWindow, info(), "clicked");
      PointView view = pointView(at);
      if (view == PointView::shows) break;
      if (view == PointView::hidden && waited >= kFrontWaitMicroseconds) throw MCPToolError(notOnScreenText());
      if (waited >= kFrontWaitMicroseconds) {
        throw MCPToolError("Another window stays in front of this one at point " + pointText(inWindow) +
                           ", so nothing was clicked. Pick a point it doesn't cover, or ask the "
                           "user to move it away.");
      }
      sleep_(kFrontPollMicroseconds);
    }
    auto isDouble = args.find("double");
    input_.click(at, textArgument(args, "button") == "right",
                 isDouble != args.end() && isDouble->second.is_boolean() && isDouble->second.get<bool>());
    return {MCPContent::text("clicked at " + whole(at.x) + "," + whole(at.y) + " (screen)")};
  }
  if (tool == "type_text") {
    requireActiveForKeys();
    // Long text takes a while: the user may switch windows meanwhile, and the rest must
    // not follow the focus.
    input_.type(textArgument(args, "text"), [this] { return readsAsFront(); });
    return {MCPContent::text("typed")};
  }
  if (tool == "press_key") {
    requireActiveForKeys();
    std::vector<std::string> modifiers;
    if (auto it = args.find("modifiers"); it != args.end() && it->second.is_array()) {
      for (const JSONValue& item : it->second)
        if (item.is_string()) modifiers.push_back(item.get<std::string>());
    }
    std::string key = textArgument(args, "key");
    input_.key(key, modifiers);
    return {MCPContent::text("pressed " + key)};
  }
  if (tool == "scroll") {
    // The wheel goes to the window under the pointer. Scrolling doesn't bring the window
    // forward, so a point another window covers is refused rather than scrolled there.
    Info window = info();
    Point inWindow{args.count("x") ? numberArgument(args, "x") : window.frame.width / 2,
                   args.count("y") ? numberArgument(args, "y") : window.frame.height / 2};
    Point at = screenPoint(inWindow, window, "scrolled");
    switch (pointView(at)) {
      case PointView::shows:
        break;
      case PointView::hidden:
        throw MCPToolError(notOnScreenText());
      case PointView::covered:
        throw MCPToolError("Another window covers this one at point " + pointText(inWindow) +
                           ", so nothing was scrolled. Click into this window to bring it forward, or pick a point "
                           "it doesn't cover.");
    }
    input_.scroll(at, numberArgument(args, "dx"), numberArgument(args, "dy"));
    return {MCPContent::text("scrolled")};
  }
  if (tool == "browser_read_page") {
    BrowserApp app = requireBrowser();
    int64_t limit = std::max<int64_t>(countArgument(args, "max_chars", kDefaultPageCharacters), 0);
    std::string page =
        js(app, "document.title + '\\n' + location.href + '\\n\\n' + document.body.innerText");
    return {MCPContent::text(utf8Prefix(page, static_cast<size_t>(limit)))};
  }
  if (tool == "browser_eval") {
    BrowserApp app = requireBrowser();
    return {MCPContent::text(js(app, textArgument(args, "js")))};
  }
  if (tool == "browser_navigate") {
    BrowserApp app = requireBrowser();
    std::string url = textArgument(args, "url");
    if (auto done = desktop_.browsers.navigate(browserWindow(app), url); !done)
      throw MCPToolError("Navigate failed: " + done.error());
    return {MCPContent::text("navigating to " + url)};
  }
  throw MCPToolError("Unknown tool " + tool);
}

}  // namespace zorvane
