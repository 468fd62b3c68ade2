#include "support/XInput.h"

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

namespace quorvel::test {

namespace {
Display* display(void* d) { return static_cast<Display*>(d); }
}  // namespace

TXInput::TXInput() : m_Display(XOpenDisplay(nullptr)) {
  int event = 0, error = 0, major = 0, minor = 0;
  m_Ok = m_Display && XTestQueryExtension(display(m_Display), &event, &error, &major, &minor);
}

TXInput::~TXInput() {
  if (m_Display) XCloseDisplay(display(m_Display));
}

void TXInput::move(wxPoint p) {
  XTestFakeMotionEvent(display(m_Display), -1, p.x, p.y, CurrentTime);
  XFlush(display(m_Display));
}

void TXInput::button(unsigned which, bool down) {
  XTestFakeButtonEvent(display(m_Display), which, down ? True : False, CurrentTime);
  XFlush(display(m_Display));
}

void TXInput::click(wxPoint p, unsigned which) {
  move(p);
  pump(0.03);
  button(which, true);
  pump(0.02);
  button(which, false);
}

void TXInput::key(const char* name, bool shift, bool control) {
  Display* d = display(m_Display);
  const KeyCode code = XKeysymToKeycode(d, XStringToKeysym(name));
  const KeyCode shiftCode = XKeysymToKeycode(d, XK_Shift_L);
  const KeyCode controlCode = XKeysymToKeycode(d, XK_Control_L);
  if (shift) XTestFakeKeyEvent(d, shiftCode, True, CurrentTime);
  if (control) XTestFakeKeyEvent(d, controlCode, True, CurrentTime);
  XTestFakeKeyEvent(d, code, True, CurrentTime);
  XTestFakeKeyEvent(d, code, False, CurrentTime);
  if (control) XTestFakeKeyEvent(d, controlCode, False, CurrentTime);
  if (shift) XTestFakeKeyEvent(d, shiftCode, False, CurrentTime);
  XFlush(d);
}

unsigned long TXInput::windowAt(wxPoint p) {
  Display* d = display(m_Display);
  Window root = DefaultRootWindow(d), at = root, child = 0;
  int x = p.x, y = p.y, cx = 0, cy = 0;
  while (XTranslateCoordinates(d, root, at, p.x, p.y, &cx, &cy, &child) && child) {
    at = child;
    x = cx;
    y = cy;
  }
  (void)x;
  (void)y;
  return at;
}

}  // namespace quorvel::test
