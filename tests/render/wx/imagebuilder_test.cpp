// Icons drawn into the atlas bitmaps and uploaded as textures of a canvas's
// context: places in texture coordinates, and black left out.
#include <gtest/gtest.h>
#include <wx/glcanvas.h>
#include <wx/wx.h>

#include <GL/gl.h>

#include "render/wx/MImageBuilder.h"
#include "support/GuiTestHelpers.h"

using namespace quorvel;

namespace {

wxBitmap square(int size, const wxColour& fill, const wxColour& centre) {
  wxImage img(size, size);
  img.SetRGB(wxRect(0, 0, size, size), fill.Red(), fill.Green(), fill.Blue());
  img.SetRGB(wxRect(size / 4, size / 4, size / 2, size / 2), centre.Red(), centre.Green(), centre.Blue());
  return wxBitmap(img);
}

}  // namespace

TEST(ImageBuilder, IconsBecomeOneTextureWithTheirPlacesAndBlackLeftOut) {
  auto images = std::make_shared<TBitmapImageBuilder>();
  images->addBitmap(1, square(16, *wxRED, *wxBLACK));
  images->addBitmap(2, square(32, *wxGREEN, *wxGREEN));
  images->addBitmap(2, square(8, *wxBLUE, *wxBLUE));  // the same key keeps the first

  wxGLAttributes attrs;
  attrs.PlatformDefaults().RGBA().DoubleBuffer().Depth(16).EndList();
  auto* frame = new wxFrame(nullptr, wxID_ANY, "atlas", wxDefaultPosition, wxSize(260, 260));
  auto* canvas = new wxGLCanvas(frame, attrs, wxID_ANY, wxDefaultPosition, wxSize(220, 220));
  frame->Show();
  test::pumpUntil([&] { return canvas->IsShownOnScreen() && canvas->GetClientSize().x > 0; });
  wxGLContext context(canvas);
  ASSERT_TRUE(canvas->SetCurrent(context));

  TTextureBuilder textures(images);
  EXPECT_TRUE(textures.updateIfNeeded()) << "the first call makes the textures";
  EXPECT_FALSE(textures.updateIfNeeded());
  ASSERT_EQ(textures.textures().size(), 1u);
  ASSERT_EQ(images->imageCount(), 1u);

  GLuint name = 0;
  TBox box;
  ASSERT_TRUE(textures.getKey2Location(2, name, box));
  EXPECT_FLOAT_EQ(box.getWidth(), 32.0f / 512.0f) << "the first size, in texture coordinates";
  EXPECT_EQ(name, textures.textures().at(0));
  // The bitmap holds the icon at its place.
  int bitmap = 0;
  TBox pixels;
  ASSERT_TRUE(images->findLocation(1, bitmap, pixels));
  const unsigned char* rgb = images->imageData(0);
  auto at = [&](float x, float y) {
    const size_t p = (static_cast<size_t>(y) * 512 + static_cast<size_t>(x)) * 3;
    return std::array<int, 3>{rgb[p], rgb[p + 1], rgb[p + 2]};
  };
  EXPECT_EQ(at(pixels.tl.x + 1, pixels.tl.y + 1), (std::array<int, 3>{255, 0, 0}));
  EXPECT_EQ(at(pixels.tl.x + 8, pixels.tl.y + 8), (std::array<int, 3>{0, 0, 0}));

  // Drawn on white, the black centre of icon 1 lets the white through.
  const wxSize size = canvas->GetClientSize();
  glViewport(0, 0, size.x, size.y);
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glOrtho(0, size.x, 0, size.y, -1, 1);
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  glClearColor(1, 1, 1, 1);
  glClear(GL_COLOR_BUFFER_BIT);
  glEnable(GL_TEXTURE_2D);
  glEnable(GL_BLEND);
  glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
  glBindTexture(GL_TEXTURE_2D, name);
  glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
  ASSERT_TRUE(textures.getKey2Location(1, name, box));
  // Icon 1 magnified to 160 by 160 pixels, texture rows from the top.
  glBegin(GL_QUADS);
  glTexCoord2f(box.tl.x, box.br.y);
  glVertex2f(20, 20);
  glTexCoord2f(box.br.x, box.br.y);
  glVertex2f(180, 20);
  glTexCoord2f(box.br.x, box.tl.y);
  glVertex2f(180, 180);
  glTexCoord2f(box.tl.x, box.tl.y);
  glVertex2f(20, 180);
  glEnd();
  glDisable(GL_BLEND);
  glDisable(GL_TEXTURE_2D);
  glFinish();
  auto pixel = [](int x, int y) {
    unsigned char c[4] = {0, 0, 0, 0};
    glReadBuffer(GL_BACK);
    glReadPixels(x, y, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, c);
    return std::array<int, 3>{c[0], c[1], c[2]};
  };
  const auto edge = pixel(30, 30);
  EXPECT_GT(edge[0], 200);
  EXPECT_LT(edge[1], 60) << "the red border of the icon";
  const auto centre = pixel(100, 100);
  EXPECT_GT(centre[1], 200) << "white through the black centre";
  EXPECT_GT(centre[2], 200);
  frame->Destroy();
  wxYield();
}
