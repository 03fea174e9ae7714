// A test's hands and eyes on the X display: finds a window by title, reads its pixels, and sends
// key presses, drags and the close request as a user and a window manager would.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct WindowPixels {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> rgb;  // top row first
  const uint8_t* at(int x, int y) const { return &rgb[(static_cast<size_t>(y) * width + x) * 3]; }
};

class X11Session {
 public:
  X11Session();  // opens $DISPLAY; available() says whether that worked
  ~X11Session();
  X11Session(const X11Session&) = delete;
  X11Session& operator=(const X11Session&) = delete;

  bool available() const { return display_ != nullptr; }
  // Waits up to `seconds` for a mapped top-level window with this title.
  bool findWindow(const std::string& title, double seconds);
  WindowPixels capture();
  // Holds the key (an X keysym name such as "w" or "Up") for `milliseconds`.
  void holdKey(const std::string& keysymName, int milliseconds);
  void pressKey(const std::string& keysymName) { sendKey(keysymName, true); }
  void releaseKey(const std::string& keysymName) { sendKey(keysymName, false); }
  void moveTo(int x, int y);  // in the window's pixels
  void pressButton() { sendButton(true); }  // the left button
  void releaseButton() { sendButton(false); }
  void click(int x, int y, int holdMilliseconds);
  // The WM_DELETE_WINDOW client message that a window manager sends on a close request.
  void requestClose();

 private:
  void sendKey(const std::string& keysymName, bool down);
  void sendButton(bool down);

  struct _XDisplay* display_ = nullptr;
  unsigned long window_ = 0;
};

// Writes the pixels as a PNG, for the README's screenshot and for looking at a failure.
bool savePng(const WindowPixels& pixels, const std::string& path);
