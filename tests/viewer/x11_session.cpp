#include "tests/viewer/x11_session.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <stb/stb_image_write.h>

#include <chrono>
#include <cstring>
#include <thread>

namespace {

// A window can vanish between a query and the next (the viewer ending, a failed start): its errors
// are the test's to see as empty answers, not a reason for Xlib to end the test process.
int ignoreXError(Display*, XErrorEvent*) { return 0; }

void sleepMs(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

bool hasTitle(Display* display, Window window, const std::string& title) {
  char* name = nullptr;
  if (XFetchName(display, window, &name) == 0 || name == nullptr) return false;
  const bool same = title == name;
  XFree(name);
  return same;
}

Window searchTree(Display* display, Window root, const std::string& title) {
  Window rootReturn = 0;
  Window parent = 0;
  Window* children = nullptr;
  unsigned int count = 0;
  if (XQueryTree(display, root, &rootReturn, &parent, &children, &count) == 0) return 0;
  Window found = 0;
  for (unsigned int i = 0; i < count && found == 0; ++i) {
    XWindowAttributes attributes;
    if (hasTitle(display, children[i], title) && XGetWindowAttributes(display, children[i], &attributes) &&
        attributes.map_state == IsViewable)
      found = children[i];
    else
      found = searchTree(display, children[i], title);
  }
  if (children != nullptr) XFree(children);
  return found;
}

}  // namespace

X11Session::X11Session() {
  display_ = XOpenDisplay(nullptr);
  if (display_ != nullptr) XSetErrorHandler(ignoreXError);
}

X11Session::~X11Session() {
  if (display_ != nullptr) XCloseDisplay(display_);
}

bool X11Session::findWindow(const std::string& title, double seconds) {
  const auto start = std::chrono::steady_clock::now();
  while (std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() < seconds) {
    window_ = searchTree(display_, DefaultRootWindow(display_), title);
    if (window_ != 0) return true;
    sleepMs(100);
  }
  return false;
}

WindowPixels X11Session::capture() {
  WindowPixels pixels;
  XWindowAttributes attributes;
  if (window_ == 0 || XGetWindowAttributes(display_, window_, &attributes) == 0) return pixels;
  XImage* image = XGetImage(display_, window_, 0, 0, static_cast<unsigned>(attributes.width),
                            static_cast<unsigned>(attributes.height), AllPlanes, ZPixmap);
  if (image == nullptr) return pixels;
  pixels.width = attributes.width;
  pixels.height = attributes.height;
  pixels.rgb.resize(static_cast<size_t>(pixels.width) * pixels.height * 3);
  for (int y = 0; y < pixels.height; ++y) {
    for (int x = 0; x < pixels.width; ++x) {
      const unsigned long value = XGetPixel(image, x, y);
      uint8_t* rgb = &pixels.rgb[(static_cast<size_t>(y) * pixels.width + x) * 3];
      rgb[0] = static_cast<uint8_t>((value & image->red_mask) >> __builtin_ctzl(image->red_mask));
      rgb[1] = static_cast<uint8_t>((value & image->green_mask) >> __builtin_ctzl(image->green_mask));
      rgb[2] = static_cast<uint8_t>((value & image->blue_mask) >> __builtin_ctzl(image->blue_mask));
    }
  }
  XDestroyImage(image);
  return pixels;
}

void X11Session::sendKey(const std::string& keysymName, bool down) {
  XTestFakeKeyEvent(display_, XKeysymToKeycode(display_, XStringToKeysym(keysymName.c_str())), down, CurrentTime);
  XFlush(display_);
}

void X11Session::holdKey(const std::string& keysymName, int milliseconds) {
  pressKey(keysymName);
  sleepMs(milliseconds);
  releaseKey(keysymName);
}

void X11Session::moveTo(int x, int y) {
  Window child = 0;
  int rootX = 0;
  int rootY = 0;
  XTranslateCoordinates(display_, window_, DefaultRootWindow(display_), x, y, &rootX, &rootY, &child);
  XTestFakeMotionEvent(display_, -1, rootX, rootY, CurrentTime);
  XFlush(display_);
}

void X11Session::sendButton(bool down) {
  XTestFakeButtonEvent(display_, 1, down, CurrentTime);
  XFlush(display_);
}

void X11Session::click(int x, int y, int holdMilliseconds) {
  moveTo(x, y);
  sleepMs(100);
  pressButton();
  sleepMs(holdMilliseconds);
  releaseButton();
}

void X11Session::requestClose() {
  XEvent event;
  std::memset(&event, 0, sizeof event);
  event.xclient.type = ClientMessage;
  event.xclient.window = window_;
  event.xclient.message_type = XInternAtom(display_, "WM_PROTOCOLS", False);
  event.xclient.format = 32;
  event.xclient.data.l[0] = static_cast<long>(XInternAtom(display_, "WM_DELETE_WINDOW", False));
  event.xclient.data.l[1] = CurrentTime;
  XSendEvent(display_, window_, False, NoEventMask, &event);
  XFlush(display_);
}

bool savePng(const WindowPixels& pixels, const std::string& path) {
  return stbi_write_png(path.c_str(), pixels.width, pixels.height, 3, pixels.rgb.data(), pixels.width * 3) != 0;
}
