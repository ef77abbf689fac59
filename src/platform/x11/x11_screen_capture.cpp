#include "platform/x11/x11_screen_capture.h"

#include <X11/Xutil.h>
#include <X11/extensions/Xcomposite.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <set>
#include <thread>

#include "platform/x11/x11_display.h"

namespace zorvane {

namespace {

std::string hexID(unsigned long id) {
  char text[32];
  std::snprintf(text, sizeof text, "0x%lx", id);
  return text;
}

// One colour channel of a pixel value: where its mask lies and how wide it is.
struct Channel {
  int shift = 0, bits = 0;
  explicit Channel(unsigned long mask) {
    if (!mask) return;
    shift = std::countr_zero(mask);
    bits = std::popcount(mask);
  }
  uint8_t operator()(unsigned long pixel) const {
    if (bits == 0) return 0;
    unsigned long value = (pixel >> shift) & ((1ul << bits) - 1);
    if (bits >= 8) return static_cast<uint8_t>(value >> (bits - 8));
    return static_cast<uint8_t>(value * 255 / ((1ul << bits) - 1));  // widen 5/6-bit channels
  }
};

// Copies `image` into `out` at (left, top), converting to RGB with the visual's masks.
// Handles 32- and 24-bit pixels in either byte order, anything else through XGetPixel.
void copyToRGB(XImage* image, const Visual* visual, RGBImage& out, int left, int top) {
  unsigned long redMask = visual ? visual->red_mask : image->red_mask;
  unsigned long greenMask = visual ? visual->green_mask : image->green_mask;
  unsigned long blueMask = visual ? visual->blue_mask : image->blue_mask;
  if (!redMask && !greenMask && !blueMask) {
    redMask = 0xFF0000;
    greenMask = 0xFF00;
    blueMask = 0xFF;
  }
  Channel red(redMask), green(greenMask), blue(blueMask);
  const bool fastBGRX = image->bits_per_pixel == 32 && image->byte_order == LSBFirst && redMask == 0xFF0000 &&
                        greenMask == 0xFF00 && blueMask == 0xFF;
  const int bytesPerPixel = image->bits_per_pixel / 8;
  for (int y = 0; y < image->height; ++y) {
    const auto* row = reinterpret_cast<const uint8_t*>(image->data) + static_cast<size_t>(y) * image->bytes_per_line;
    uint8_t* target = out.pixels.data() + (static_cast<size_t>(top + y) * out.width + left) * 3;
    if (fastBGRX) {
      for (int x = 0; x < image->width; ++x, row += 4, target += 3) {
        target[0] = row[2];
        target[1] = row[1];
        target[2] = row[0];
      }
      continue;
    }
    for (int x = 0; x < image->width; ++x, target += 3) {
      unsigned long pixel = 0;
      if (bytesPerPixel == 4 || bytesPerPixel == 3) {
        const uint8_t* p = row + x * bytesPerPixel;
        for (int i = 0; i < bytesPerPixel; ++i) {
          int index = image->byte_order == LSBFirst ? bytesPerPixel - 1 - i : i;
          pixel = (pixel << 8) | p[index];
        }
      } else {
        pixel = XGetPixel(image, x, y);
      }
      target[0] = red(pixel);
      target[1] = green(pixel);
      target[2] = blue(pixel);
    }
  }
}

}  // namespace

struct X11ScreenCapture::Impl {
  std::shared_ptr<X11Display> display;
  Options options;
  std::optional<bool> compositeAvailable;
  std::set<Window> redirected;  // top-levels this object redirected

  Display* dpy() const { return display->display(); }

  bool hasComposite() {
    if (compositeAvailable) return *compositeAvailable;
    int event = 0, error = 0, major = 0, minor = 2;
    // NameWindowPixmap needs version 0.2.
    compositeAvailable = options.useComposite && XCompositeQueryExtension(dpy(), &event, &error) &&
                         XCompositeQueryVersion(dpy(), &major, &minor) && (major > 0 || minor >= 2);
    return *compositeAvailable;
  }

  static std::string describe(const X11Error& error) {
    return error.text.empty() ? "X error " + std::to_string(error.code) : error.text;
  }

  // Reads the client area from the top-level's off-screen pixmap.
  Expected<RGBImage> fromComposite(Window window, const XWindowAttributes& attributes) {
    const std::string name = "capture: window " + hexID(window);
    unsigned long mark = display->errorMark();
    Window top = display->topLevelOf(window);
    XWindowAttributes topAttributes{};
    int offsetX = 0, offsetY = 0;
    Window child = 0;
    if (!top || !XGetWindowAttributes(dpy(), top, &topAttributes) ||
        !XTranslateCoordinates(dpy(), window, top, 0, 0, &offsetX, &offsetY, &child)) {
      (void)display->errorSince(mark);
      return Failure{name + " is gone"};
    }
    Pixmap pixmap = 0;
    for (int attempt = 0; attempt < 2 && !pixmap; ++attempt) {
      if (!redirected.count(top)) {
        mark = display->errorMark();
        XCompositeRedirectWindow(dpy(), top, CompositeRedirectAutomatic);
        // BadAccess means a compositing manager redirects it already, which serves as well.
        (void)display->errorSince(mark);
        redirected.insert(top);
        std::this_thread::sleep_for(options.firstCaptureSettle);
      }
      mark = display->errorMark();
      pixmap = XCompositeNameWindowPixmap(dpy(), top);
      if (auto error = display->errorSince(mark)) {
        // Not redirected after all (an id reused by a new window): redirect it afresh.
        if (pixmap) XFreePixmap(dpy(), pixmap);
        pixmap = 0;
        redirected.erase(top);
        if (attempt == 1) return Failure{name + ": no off-screen pixmap (" + describe(*error) + ")"};
      }
    }

    // The client area within the frame, cut to the pixmap (a window can poke out of
    // its frame for a moment while the window manager catches up).
    int width = std::min(attributes.width, topAttributes.width - offsetX);
    int height = std::min(attributes.height, topAttributes.height - offsetY);
    if (offsetX < 0 || offsetY < 0 || width <= 0 || height <= 0) {
      XFreePixmap(dpy(), pixmap);
      return Failure{name + " lies outside its frame"};
    }
    mark = display->errorMark();
    XImage* image = XGetImage(dpy(), pixmap, offsetX, offsetY, width, height, AllPlanes, ZPixmap);
    auto error = display->errorSince(mark);
    XFreePixmap(dpy(), pixmap);
    if (!image) return Failure{name + ": reading the pixmap failed" + (error ? " (" + describe(*error) + ")" : "")};
    RGBImage rgb{attributes.width, attributes.height,
                 std::vector<uint8_t>(static_cast<size_t>(attributes.width) * attributes.height * 3, 0)};
    copyToRGB(image, topAttributes.visual, rgb, 0, 0);
    XDestroyImage(image);
    return rgb;
  }

  // Reads what the screen shows of the window; the rest stays black.
  Expected<RGBImage> fromScreen(Window window, const XWindowAttributes& attributes) {
    const std::string name = "capture: window " + hexID(window);
    unsigned long mark = display->errorMark();
    int rootX = 0, rootY = 0;
    Window child = 0;
    if (!XTranslateCoordinates(dpy(), window, display->root(), 0, 0, &rootX, &rootY, &child)) {
      (void)display->errorSince(mark);
      return Failure{name + " is gone"};
    }
    int left = std::max(0, -rootX), top = std::max(0, -rootY);
    int right = std::min(attributes.width, display->screenWidth() - rootX);
    int bottom = std::min(attributes.height, display->screenHeight() - rootY);
    if (right <= left || bottom <= top) return Failure{name + " is entirely off the screen"};
    XImage* image = XGetImage(dpy(), window, left, top, right - left, bottom - top, AllPlanes, ZPixmap);
    auto error = display->errorSince(mark);
    if (!image) return Failure{name + ": reading the screen failed" + (error ? " (" + describe(*error) + ")" : "")};
    RGBImage rgb{attributes.width, attributes.height,
                 std::vector<uint8_t>(static_cast<size_t>(attributes.width) * attributes.height * 3, 0)};
    copyToRGB(image, attributes.visual, rgb, left, top);
    XDestroyImage(image);
    return rgb;
  }
};

X11ScreenCapture::X11ScreenCapture(std::shared_ptr<X11Display> display)
    : X11ScreenCapture(std::move(display), Options{}) {}

X11ScreenCapture::X11ScreenCapture(std::shared_ptr<X11Display> display, Options options)
    : impl_(std::make_unique<Impl>(Impl{std::move(display), options})) {}

X11ScreenCapture::~X11ScreenCapture() {
  if (impl_->redirected.empty()) return;
  unsigned long mark = impl_->display->errorMark();
  for (Window top : impl_->redirected) XCompositeUnredirectWindow(impl_->dpy(), top, CompositeRedirectAutomatic);
  (void)impl_->display->errorSince(mark);  // windows closed since are no failure
}

Expected<RGBImage> X11ScreenCapture::capture(uint32_t windowID) {
  Impl& d = *impl_;
  const std::string name = "capture: window " + hexID(windowID);
  if (windowID == 0) return Failure{name + " is gone"};
  unsigned long mark = d.display->errorMark();
  XWindowAttributes attributes{};
  if (!XGetWindowAttributes(d.dpy(), windowID, &attributes)) {
    (void)d.display->errorSince(mark);
    return Failure{name + " is gone"};
  }
  if (attributes.map_state != IsViewable) return Failure{name + " is not mapped (minimised or hidden)"};
  if (attributes.width <= 0 || attributes.height <= 0) return Failure{name + " has no area"};
  if (d.hasComposite()) {
    auto image = d.fromComposite(windowID, attributes);
    if (image) return image;
    // A window that vanished is gone on the screen as well.
    if (image.error().ends_with(" is gone")) return image;
  }
  return d.fromScreen(windowID, attributes);
}

}  // namespace zorvane
