#include "platform/x11/x11_window_service.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <X11/extensions/XRes.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <map>
#include <sstream>

#include "core/base/utf8.h"
#include "platform/linux/process_start_time.h"
#include "platform/x11/x11_display.h"

namespace zorvane {

namespace {

// Window layers, ordered as the window server stacks them: 0 is an ordinary application
// window (normal, dialog, splash); below 0 lies under them, above 0 floats over them.
constexpr int kDesktopLayer = WindowInfo::desktopLayer;
constexpr int kBelowLayer = -1;
constexpr int kNormalLayer = 0;
constexpr int kFloatingLayer = 3;  // "keep above", utility panels, toolbars, torn-off menus
constexpr int kDockLayer = 20;
constexpr int kNotificationLayer = 25;
constexpr int kPopUpMenuLayer = 101;
constexpr int kTooltipLayer = 1000;

constexpr unsigned long kAllDesktops = 0xFFFFFFFF;

// EWMH client messages: what a _NET_WM_STATE request does, who sends it, and the
// gravity and present-field bits of _NET_MOVERESIZE_WINDOW.
constexpr long kStateRemove = 0;
constexpr long kSourcePager = 2;  // acts for the user, so the window manager doesn't second-guess it
constexpr long kStaticGravity = 10;
constexpr long kMoveResizeXYWidthHeight = (1 << 8) | (1 << 9) | (1 << 10) | (1 << 11);

std::string latin1ToUTF8(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (unsigned char c : text) {
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

}  // namespace

struct X11WindowService::Impl {
  std::shared_ptr<X11Display> display;
  ApplicationIdentity identity;
  bool xresChecked = false, xresUsable = false;
  std::map<int32_t, Window> windowOfPID;  // filled by windows(): one client window per process
  struct CachedApplication {
    unsigned long long startTime;
    ApplicationInfo info;
  };
  std::map<int32_t, CachedApplication> applications;

  // Atoms only the requests below need, interned on first use.
  Atom netMoveResizeWindow = 0, netWMStateFullscreen = 0, netWMStateMaximizedVert = 0, netWMStateMaximizedHorz = 0;

  Display* dpy() const { return display->display(); }
  const X11Atoms& atoms() const { return display->atoms(); }

  void internRequestAtoms() {
    if (netMoveResizeWindow) return;
    const char* names[] = {"_NET_MOVERESIZE_WINDOW", "_NET_WM_STATE_FULLSCREEN", "_NET_WM_STATE_MAXIMIZED_VERT",
                           "_NET_WM_STATE_MAXIMIZED_HORZ"};
    Atom found[4] = {};
    XInternAtoms(dpy(), const_cast<char**>(names), 4, False, found);
    netMoveResizeWindow = found[0];
    netWMStateFullscreen = found[1];
    netWMStateMaximizedVert = found[2];
    netWMStateMaximizedHorz = found[3];
  }

  bool exists(Window window) {
    XWindowAttributes attributes{};
    return XGetWindowAttributes(dpy(), window, &attributes) != 0;
  }

  std::vector<unsigned long> statesOf(Window window) {
    return display->cardinals(window, atoms().netWMState, XA_ATOM).value_or(std::vector<unsigned long>{});
  }

  // A client message about `window` to the window manager, as EWMH wants them sent.
  void sendToWindowManager(Window window, Atom type, std::initializer_list<long> data) {
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = window;
    event.xclient.message_type = type;
    event.xclient.format = 32;
    int i = 0;
    for (long value : data) event.xclient.data.l[i++] = value;
    XSendEvent(dpy(), display->root(), False, SubstructureRedirectMask | SubstructureNotifyMask, &event);
  }

  bool hasWindowManager() {
    auto check = display->cardinals(display->root(), atoms().netSupportingWMCheck, XA_WINDOW);
    return check && !check->empty() && (*check)[0] != 0;
  }

  std::optional<unsigned long> currentDesktop() {
    auto desktop = display->cardinals(display->root(), atoms().netCurrentDesktop, XA_CARDINAL);
    if (!desktop || desktop->empty()) return std::nullopt;
    return (*desktop)[0];
  }

  int32_t pidOf(Window window) {
    if (auto pid = display->cardinals(window, atoms().netWMPID, XA_CARDINAL); pid && !pid->empty())
      return static_cast<int32_t>((*pid)[0]);
    // Clients that don't set _NET_WM_PID (plain Xt programs): ask the server which
    // process owns the connection that made the window.
    if (!xresChecked) {
      xresChecked = true;
      int event = 0, error = 0, major = 0, minor = 0;
      xresUsable = XResQueryExtension(dpy(), &event, &error) && XResQueryVersion(dpy(), &major, &minor) &&
                   (major > 1 || (major == 1 && minor >= 2));
    }
    if (!xresUsable) return 0;
    XResClientIdSpec spec{window, XRES_CLIENT_ID_PID_MASK};
    long count = 0;
    XResClientIdValue* values = nullptr;
    int32_t pid = 0;
    if (XResQueryClientIds(dpy(), 1, &spec, &count, &values) == Success) {
      for (long i = 0; i < count && pid <= 0; ++i) pid = XResGetClientPid(&values[i]);
      XResClientIdsDestroy(count, values);
    }
    return pid > 0 ? pid : 0;
  }

  std::string titleOf(Window window) {
    if (auto name = display->bytes(window, atoms().netWMName, atoms().utf8String)) return *name;
    XTextProperty property{};
    if (!XGetTextProperty(dpy(), window, &property, atoms().wmName) || !property.value) return "";
    std::string title;
    if (property.encoding == XA_STRING) {
      title = latin1ToUTF8(std::string(reinterpret_cast<char*>(property.value), property.nitems));
    } else if (property.encoding == atoms().utf8String) {
      title.assign(reinterpret_cast<char*>(property.value), property.nitems);
    } else {
      char** list = nullptr;
      int count = 0;
      if (Xutf8TextPropertyToTextList(dpy(), &property, &list, &count) >= Success && list) {
        if (count > 0 && list[0]) title = list[0];
        XFreeStringList(list);
      }
    }
    XFree(property.value);
    return title;
  }

  static int layerFor(const std::vector<unsigned long>& types, const std::vector<unsigned long>& states,
                      const X11Atoms& a) {
    for (unsigned long type : types) {
      if (type == a.netWMWindowTypeNormal || type == a.netWMWindowTypeDialog || type == a.netWMWindowTypeSplash)
        break;  // ordinary windows: the states decide
      if (type == a.netWMWindowTypeDesktop) return kDesktopLayer;
      if (type == a.netWMWindowTypeDock) return kDockLayer;
      if (type == a.netWMWindowTypeToolbar || type == a.netWMWindowTypeUtility || type == a.netWMWindowTypeMenu)
        return kFloatingLayer;
      if (type == a.netWMWindowTypeDropdownMenu || type == a.netWMWindowTypePopupMenu ||
          type == a.netWMWindowTypeCombo)
        return kPopUpMenuLayer;
      if (type == a.netWMWindowTypeNotification) return kNotificationLayer;
      if (type == a.netWMWindowTypeTooltip || type == a.netWMWindowTypeDnd) return kTooltipLayer;
      // A type this table doesn't know: the next one in the list is its fallback.
    }
    for (unsigned long state : states) {
      if (state == a.netWMStateAbove) return kFloatingLayer;
      if (state == a.netWMStateBelow) return kBelowLayer;
    }
    return kNormalLayer;
  }

  // The window as it is now; nothing when it is gone. `desktop` is the current desktop
  // (nothing without a window manager that has desktops).
  std::optional<WindowInfo> describe(Window window, std::optional<unsigned long> desktop) {
    XWindowAttributes attributes{};
    if (!XGetWindowAttributes(dpy(), window, &attributes)) return std::nullopt;
    int rootX = 0, rootY = 0;
    Window child = 0;
    if (!XTranslateCoordinates(dpy(), window, display->root(), 0, 0, &rootX, &rootY, &child)) return std::nullopt;

    WindowInfo info;
    info.windowID = static_cast<uint32_t>(window);
    info.x = rootX;
    info.y = rootY;
    info.width = attributes.width;
    info.height = attributes.height;
    info.ownerPID = pidOf(window);
    info.title = repairUTF8(titleOf(window));  // clients can set any bytes

    std::vector<unsigned long> states = display->cardinals(window, atoms().netWMState, XA_ATOM).value_or(
        std::vector<unsigned long>{});
    std::vector<unsigned long> types = display->cardinals(window, atoms().netWMWindowType, XA_ATOM).value_or(
        std::vector<unsigned long>{});
    info.layer = layerFor(types, states, atoms());

    bool hidden = std::find(states.begin(), states.end(), atoms().netWMStateHidden) != states.end();
    bool sticky = std::find(states.begin(), states.end(), atoms().netWMStateSticky) != states.end();
    bool onThisDesktop = true;
    if (desktop && !sticky) {
      auto own = display->cardinals(window, atoms().netWMDesktop, XA_CARDINAL);
      if (own && !own->empty() && (*own)[0] != kAllDesktops) onThisDesktop = (*own)[0] == *desktop;
    }
    bool intersectsScreen = rootX < display->screenWidth() && rootY < display->screenHeight() &&
                            rootX + attributes.width > 0 && rootY + attributes.height > 0;
    info.onScreen = attributes.map_state == IsViewable && !hidden && onThisDesktop && intersectsScreen;
    return info;
  }

  std::vector<Window> rootChildrenBottomToTop() {
    Window root = 0, parent = 0, *children = nullptr;
    unsigned int count = 0;
    std::vector<Window> order;
    if (XQueryTree(dpy(), display->root(), &root, &parent, &children, &count) && children)
      order.assign(children, children + count);
    if (children) XFree(children);
    return order;
  }

  // The managed client windows, bottom to top.
  std::vector<Window> clientsBottomToTop() {
    const X11Atoms& a = atoms();
    if (auto stacking = display->cardinals(display->root(), a.netClientListStacking, XA_WINDOW))
      return {stacking->begin(), stacking->end()};

    std::vector<Window> rootOrder = rootChildrenBottomToTop();
    if (auto clients = display->cardinals(display->root(), a.netClientList, XA_WINDOW)) {
      // Some window managers (xfwm4) publish the stacking list only from the second
      // client on: order the clients by their frames' place among the root's children.
      std::vector<std::pair<size_t, Window>> ranked;
      for (unsigned long client : *clients) {
        Window top = display->topLevelOf(client);
        auto at = std::find(rootOrder.begin(), rootOrder.end(), top);
        ranked.push_back({static_cast<size_t>(at - rootOrder.begin()), client});
      }
      std::stable_sort(ranked.begin(), ranked.end(),
                       [](const auto& l, const auto& r) { return l.first < r.first; });
      std::vector<Window> order;
      for (const auto& [rank, client] : ranked) order.push_back(client);
      return order;
    }

    // No window manager: the application windows are the root's own children.
    std::vector<Window> order;
    for (Window window : rootOrder) {
      XWindowAttributes attributes{};
      if (!XGetWindowAttributes(dpy(), window, &attributes)) continue;
      if (attributes.override_redirect || attributes.map_state == IsUnmapped) continue;
      XClassHint hint{};
      if (!XGetClassHint(dpy(), window, &hint)) continue;
      XFree(hint.res_name);
      XFree(hint.res_class);
      order.push_back(window);
    }
    return order;
  }

  std::optional<WindowIdentity> identityOf(Window window) {
    XClassHint hint{};
    WindowIdentity identity;
    if (!XGetClassHint(dpy(), window, &hint)) return std::nullopt;
    if (hint.res_name) identity.resName = repairUTF8(hint.res_name);
    if (hint.res_class) identity.resClass = repairUTF8(hint.res_class);
    XFree(hint.res_name);
    XFree(hint.res_class);
    identity.gtkApplicationID =
        repairUTF8(display->bytes(window, atoms().gtkApplicationID, atoms().utf8String).value_or(""));
    return identity;
  }
};

X11WindowService::X11WindowService(std::shared_ptr<X11Display> display, ApplicationIdentity identity)
    : impl_(std::make_unique<Impl>(Impl{std::move(display), std::move(identity)})) {}

X11WindowService::~X11WindowService() = default;

std::vector<WindowInfo> X11WindowService::windows() {
  Impl& d = *impl_;
  std::optional<unsigned long> desktop = d.currentDesktop();
  std::vector<Window> clients = d.clientsBottomToTop();
  std::vector<WindowInfo> list;
  list.reserve(clients.size());
  d.windowOfPID.clear();
  for (auto it = clients.rbegin(); it != clients.rend(); ++it) {
    auto info = d.describe(*it, desktop);
    if (!info) continue;  // closed since the list was read
    if (info->ownerPID > 0) d.windowOfPID.emplace(info->ownerPID, *it);
    list.push_back(std::move(*info));
  }
  // A window that closed meanwhile is no failure. Every request here waited for its
  // reply, so its errors are in already: no sync needed to clear them.
  d.display->forgetErrors();
  return list;
}

std::optional<WindowInfo> X11WindowService::window(uint32_t windowID) {
  Impl& d = *impl_;
  if (windowID == 0) return std::nullopt;
  auto info = d.describe(windowID, d.currentDesktop());
  // A gone window answers with errors instead of values; all of them are in (every
  // request waited for its reply), and they are no later request's business.
  d.display->forgetErrors();
  return info;
}

std::optional<ApplicationInfo> X11WindowService::application(int32_t pid) {
  Impl& d = *impl_;
  if (pid <= 0) return std::nullopt;
  unsigned long long startTime = processStartTime(pid).value_or(0);
  if (startTime == 0) {  // no such process
    d.applications.erase(pid);
    return std::nullopt;
  }
  if (auto cached = d.applications.find(pid);
      cached != d.applications.end() && cached->second.startTime == startTime)
    return cached->second.info;

  std::optional<WindowIdentity> identity;
  if (auto known = d.windowOfPID.find(pid); known != d.windowOfPID.end() && d.pidOf(known->second) == pid)
    identity = d.identityOf(known->second);
  if (!identity) {
    for (Window client : d.clientsBottomToTop()) {
      if (d.pidOf(client) != pid) continue;
      identity = d.identityOf(client);
      if (identity) {
        d.windowOfPID[pid] = client;
        break;
      }
    }
  }
  d.display->forgetErrors();

  std::optional<ApplicationInfo> info =
      identity ? std::optional<ApplicationInfo>(d.identity.identify(*identity, pid)) : d.identity.identifyProcess(pid);
  if (info) d.applications[pid] = {startTime, *info};
  return info;
}

std::optional<uint32_t> X11WindowService::activeWindow() {
  Impl& d = *impl_;
  if (!d.hasWindowManager()) return std::nullopt;
  auto active = d.display->cardinals(d.display->root(), d.atoms().netActiveWindow, XA_WINDOW);
  if (!active || active->empty() || (*active)[0] == 0) return std::nullopt;
  return static_cast<uint32_t>((*active)[0]);
}

bool X11WindowService::activate(uint32_t windowID) {
  Impl& d = *impl_;
  if (windowID == 0) return false;
  Display* dpy = d.dpy();
  unsigned long mark = d.display->errorMark();
  XWindowAttributes attributes{};
  if (!XGetWindowAttributes(dpy, windowID, &attributes)) {
    (void)d.display->errorSince(mark);
    return false;
  }
  if (d.hasWindowManager()) {
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = windowID;
    event.xclient.message_type = d.atoms().netActiveWindow;
    event.xclient.format = 32;
    event.xclient.data.l[0] = 2;  // source indication: a pager, which acts for the user
    event.xclient.data.l[1] = CurrentTime;
    event.xclient.data.l[2] = 0;
    XSendEvent(dpy, d.display->root(), False, SubstructureRedirectMask | SubstructureNotifyMask, &event);
    XRaiseWindow(dpy, windowID);
  } else {
    XMapRaised(dpy, windowID);
    XSetInputFocus(dpy, windowID, RevertToParent, CurrentTime);
  }
  return !d.display->errorSince(mark);
}

std::optional<bool> X11WindowService::isFullScreen(uint32_t windowID) {
  Impl& d = *impl_;
  if (windowID == 0) return std::nullopt;
  d.internRequestAtoms();
  std::optional<bool> answer;
  if (d.exists(windowID)) {
    std::vector<unsigned long> states = d.statesOf(windowID);
    answer = std::find(states.begin(), states.end(), d.netWMStateFullscreen) != states.end();
  }
  // Every request waited for its reply: a gone window's errors are all in.
  d.display->forgetErrors();
  return answer;
}

bool X11WindowService::leaveFullScreen(uint32_t windowID) {
  Impl& d = *impl_;
  if (windowID == 0) return false;
  d.internRequestAtoms();
  unsigned long mark = d.display->errorMark();
  if (!d.exists(windowID) || !d.hasWindowManager()) {
    (void)d.display->errorSince(mark);
    return false;
  }
  d.sendToWindowManager(windowID, d.atoms().netWMState,
                        {kStateRemove, static_cast<long>(d.netWMStateFullscreen), 0, kSourcePager, 0});
  return !d.display->errorSince(mark);
}

bool X11WindowService::moveResize(uint32_t windowID, double x, double y, double width, double height) {
  Impl& d = *impl_;
  if (windowID == 0 || !std::isfinite(x) || !std::isfinite(y) || !std::isfinite(width) || !std::isfinite(height))
    return false;
  d.internRequestAtoms();
  long left = std::lround(x), top = std::lround(y);
  long w = std::max(1L, std::lround(width)), h = std::max(1L, std::lround(height));
  unsigned long mark = d.display->errorMark();
  if (!d.exists(windowID)) {
    (void)d.display->errorSince(mark);
    return false;
  }
  if (!d.hasWindowManager()) {
    XMoveResizeWindow(d.dpy(), windowID, static_cast<int>(left), static_cast<int>(top), static_cast<unsigned>(w),
                      static_cast<unsigned>(h));
    return !d.display->errorSince(mark);
  }
  std::vector<unsigned long> states = d.statesOf(windowID);
  auto has = [&states](Atom state) { return std::find(states.begin(), states.end(), state) != states.end(); };
  if (has(d.netWMStateMaximizedVert) || has(d.netWMStateMaximizedHorz))
    d.sendToWindowManager(windowID, d.atoms().netWMState,
                          {kStateRemove, static_cast<long>(d.netWMStateMaximizedVert),
                           static_cast<long>(d.netWMStateMaximizedHorz), kSourcePager, 0});
  d.sendToWindowManager(windowID, d.netMoveResizeWindow,
                        {kStaticGravity | kMoveResizeXYWidthHeight | (kSourcePager << 12), left, top, w, h});
  return !d.display->errorSince(mark);
}

}  // namespace zorvane
