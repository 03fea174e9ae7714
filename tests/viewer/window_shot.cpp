// Saves a window's pixels as a PNG and, on request, asks it to close, as a window manager would:
//   zvrs_window_shot TITLE OUTPUT.png [--close]
// Used to make the README's picture of the viewer under Xvfb.
#include <cstdio>
#include <cstring>
#include <string>

#include "tests/viewer/x11_session.h"

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s TITLE OUTPUT.png [--close]\n", argv[0]);
    return 2;
  }
  X11Session session;
  if (!session.available()) {
    std::fprintf(stderr, "no X display: set DISPLAY, or run under xvfb-run\n");
    return 1;
  }
  if (!session.findWindow(argv[1], 60.0)) {
    std::fprintf(stderr, "no window titled \"%s\" appeared within a minute\n", argv[1]);
    return 1;
  }
  if (!savePng(session.capture(), argv[2])) {
    std::fprintf(stderr, "%s could not be written\n", argv[2]);
    return 1;
  }
  if (argc > 3 && std::strcmp(argv[3], "--close") == 0) session.requestClose();
  return 0;
}
