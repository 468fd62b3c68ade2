// The GUI test path: a frame with an OpenGL canvas under a virtual X server
// draws a known picture, reads pixels back and picks in selection mode.
#include <gtest/gtest.h>
#include <wx/glcanvas.h>
#include <wx/wx.h>

#include <GL/gl.h>

#include <chrono>

#include "engine/MMediator.h"
#include "render/wx/MCommonRenderer.h"

namespace {

void pumpUntil(const std::function<bool()>& done) {
  const auto start = std::chrono::steady_clock::now();
  while (!done() && std::chrono::steady_clock::now() - start < std::chrono::seconds(5)) {
    wxYield();
    wxMilliSleep(10);
  }
}

void projection() { glOrtho(0.0, 1.0, 0.0, 1.0, -1.0, 1.0); }

void quad(float x0, float y0, float x1, float y1) {
  glBegin(GL_QUADS);
  glVertex2f(x0, y0);
  glVertex2f(x1, y0);
  glVertex2f(x1, y1);
  glVertex2f(x0, y1);
  glEnd();
}

// Left half red with names 7, 42; right half green with name 9.
void scene() {
  glPushName(7);
  glPushName(42);
  glColor3f(1.0f, 0.0f, 0.0f);
  quad(0.0f, 0.0f, 0.5f, 1.0f);
  glPopName();
  glPopName();
  glPushName(9);
  glColor3f(0.0f, 1.0f, 0.0f);
  quad(0.5f, 0.0f, 1.0f, 0.5f);
  glPopName();
}

}  // namespace

TEST(GlSmoke, CanvasDrawsReadsBackAndPicks) {
  wxGLAttributes attrs;
  attrs.PlatformDefaults().RGBA().DoubleBuffer().Depth(16).EndList();
  ASSERT_TRUE(wxGLCanvas::IsDisplaySupported(attrs));

  auto* frame = new wxFrame(nullptr, wxID_ANY, "GL smoke", wxDefaultPosition, wxSize(240, 240));
  auto* canvas = new wxGLCanvas(frame, attrs, wxID_ANY, wxDefaultPosition, wxSize(200, 200));
  frame->Show();
  pumpUntil([&] { return canvas->IsShownOnScreen() && canvas->GetClientSize().x > 0; });
  ASSERT_TRUE(canvas->IsShownOnScreen());

  wxGLContext context(canvas);
  ASSERT_TRUE(context.IsOK());
  ASSERT_TRUE(canvas->SetCurrent(context));
  const wxSize size = canvas->GetClientSize();
  const int w = size.x;
  const int h = size.y;
  glViewport(0, 0, w, h);
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  projection();
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  glClearColor(0.0f, 0.0f, 1.0f, 1.0f);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  scene();
  glFinish();

  auto pixel = [&](int x, int y) {
    unsigned char rgba[4] = {0, 0, 0, 0};
    glReadBuffer(GL_BACK);
    glReadPixels(x, y, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
    return std::array<int, 3>{rgba[0], rgba[1], rgba[2]};
  };
  EXPECT_EQ(pixel(w / 4, h / 2), (std::array<int, 3>{255, 0, 0}));
  EXPECT_EQ(pixel(3 * w / 4, h / 4), (std::array<int, 3>{0, 255, 0}));
  EXPECT_EQ(pixel(3 * w / 4, 3 * h / 4), (std::array<int, 3>{0, 0, 255}));
  canvas->SwapBuffers();

  // Selection mode through the renderer's select buffer; the positions
  // given count y from the top of the window, as the mouse does.
  if (!quorvel::me.m_IconImageBuilder) quorvel::me.m_IconImageBuilder = std::make_shared<quorvel::TBitmapImageBuilder>();
  quorvel::TCommonRendererCpp renderer("smoke");
  auto pick = [&](int x, int y, int side) {
    renderer.enterSelectMode(x, h - y, side, side, false);
    projection();
    glMatrixMode(GL_MODELVIEW);
    scene();
    return renderer.exitSelectMode();
  };
  auto hits = pick(w / 4, h / 2, 4);
  ASSERT_EQ(hits.size(), 1u);
  EXPECT_EQ(hits[0], (std::vector<unsigned>{7, 42}));
  hits = pick(3 * w / 4, 3 * h / 4, 4);
  ASSERT_EQ(hits.size(), 1u);
  EXPECT_EQ(hits[0], (std::vector<unsigned>{9}));
  hits = pick(3 * w / 4, h / 4, 4);
  EXPECT_TRUE(hits.empty());
  // A rectangle across the border hits both.
  hits = pick(w / 2, 3 * h / 4, 20);
  EXPECT_EQ(hits.size(), 2u);

  frame->Destroy();
  wxYield();
}
