// The OpenGL services that one canvas keeps between frames: selection,
// named display lists, label and tooltip textures, cushions, icon atlas,
// and bitmap fonts.
#pragma once

#include <GL/gl.h>
#include <wx/glcanvas.h>
#include <wx/wx.h>

#include <array>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "render/core/MDrawSink.h"
#include "render/wx/MImageBuilder.h"
#include "render/core/MLabelCache.h"

namespace quorvel {

class TGlCanvasBase;

// Something that holds names of OpenGL objects of the context that was
// current when it was made; it deletes them only in that context.
class TGlObjectOwner {
 public:
  TGlObjectOwner();

 protected:
  bool isOwnContextCurrent() const;
  void adoptCurrentContext() { *this = TGlObjectOwner(); }

 private:
  void* m_Context;
};

class TCommonRendererCpp : public TLabelCache {
 public:
  explicit TCommonRendererCpp(std::string name);
  ~TCommonRendererCpp() override = default;

  std::shared_ptr<TTextureBuilder> m_IconTextureBuilder;
  std::string m_Name;

  void enterSelectMode(int x, int y, int width, int height, bool keepmode);
  // The hit records, each the list of its names; empty on overflow.
  std::vector<std::vector<unsigned>> exitSelectMode();
  // True when the list existed and ran; false when a new list is open for
  // compiling and the caller must draw and call endDisplayList.
  bool renderDisplayList(const std::string& name);
  void endDisplayList();
  // Forgets the lists whose names begin with the prefix. Their OpenGL
  // names are given back the next time a list is drawn, when this
  // renderer's context is current: a hidden canvas, whose context cannot
  // be made current, drops its lists all the same.
  void clearDisplayLists(const std::string& prefix);
  size_t displayListCount() const { return m_DisplayLists.size(); }
  // The OpenGL list of that name, 0 when there is none.
  GLuint displayList(const std::string& name) const {
    auto it = m_DisplayLists.find(name);
    return it == m_DisplayLists.end() ? 0 : it->second;
  }
  void generateTextures() { createTexturesInPython(); }
  void readPixels(unsigned width, unsigned height, unsigned char* buffer);
  void readPixelsStride(unsigned width, unsigned height, unsigned char* buffer, unsigned offset, unsigned stride);
  // Black text at a raster position in a 12 pixel bitmap font.
  void drawText(int x, int y, const std::string& text);

  virtual void createTexturesInPython() {}

 private:
  std::vector<GLuint> m_SelectBuffer;
  std::map<std::string, GLuint> m_DisplayLists;
  std::vector<GLuint> m_StaleLists;
  std::string m_CurrentList;
};

// Texts drawn with the toolkit into 512 by 512 bitmaps, uploaded as
// intensity textures.
class TLabelGenerator : public TGlObjectOwner {
 public:
  bool initialized = false;
  int w = TLabelPacker::kSize, h = TLabelPacker::kSize;
  wxBitmap bitmap;
  wxMemoryDC dc;
  TLabelPacker packer;
  std::vector<GLuint> m_LabelTextures;
  std::unordered_map<std::string, std::pair<GLuint, std::shared_ptr<TBox>>> name2id;
  std::vector<std::string> tobegenerated;

  ~TLabelGenerator();
  void init();
  void reset();
  void generate();
  static void buildTexture(const wxBitmap& bitmap, GLuint texture);

 private:
  void clearBitmap();
};

class TToolTipGenerator : public TGlObjectOwner {
 public:
  TToolTipGenerator();
  ~TToolTipGenerator();
  wxBitmap bitmap;
  wxMemoryDC dc;
  int w = 512, h = 512;
  GLuint texture = 0;
  int ex = 0, ey = 0;
  void setFontSize();
  void generate(const std::string& text);
  // The tip beside the mouse at pos (window pixels, y down), kept inside
  // the right edge of the canvas.
  void render(const wxPoint* pos, const TGlCanvasBase& canvas);
};

class TCommonRenderer : public TCommonRendererCpp {
 public:
  static constexpr bool sharedglcontext = false;
  explicit TCommonRenderer(std::string name) : TCommonRendererCpp(std::move(name)) {}

  TGlCanvasBase* canvas = nullptr;
  std::unique_ptr<TLabelGenerator> labelgenerator;
  std::unique_ptr<TToolTipGenerator> tooltip;
  bool cushionsinitialized = false;
  wxGLContext* glcontext = nullptr;

  void postCreate(TGlCanvasBase* canvas);
  void createTexturesInPython() override;
  void ensureCushionTexturesExist();
};

namespace wxGLBase {

// A bitmap font in 96 display lists (characters 32 to 127) with its
// metrics: advance widths, tallest glyph and descent, in pixels.
class GLText : public TGlObjectOwner {
 public:
  GLText(std::string facename, int height);
  ~GLText();
  void draw(float x, float y, const std::string& text);
  int textWidth(const std::string& text) const;
  int tallest() const { return m_Tallest; }
  int descent() const { return m_Descent; }
  int advance(char c) const;

 private:
  void build();
  GLuint m_Lists = 0;
  std::string m_FaceName;
  int m_Height;
  int m_Tallest = 1;
  int m_Descent = 0;
  std::array<int, 96> m_Widths{};
};

}  // namespace wxGLBase

// Sends the views' primitives to the current OpenGL context.
class TGlDrawSink : public TDrawSink {
 public:
  void begin(Primitive primitive) override;
  void end() override { glEnd(); }
  void vertex(float x, float y) override { glVertex2f(x, y); }
  void texCoord(float s, float t) override { glTexCoord2f(s, t); }
  void color(float r, float g, float b, float a) override { glColor4f(r, g, b, a); }
  void color3(float r, float g, float b) override { glColor3f(r, g, b); }
  void pushName(unsigned name) override { glPushName(name); }
  void loadName(unsigned name) override { glLoadName(name); }
  void popName() override { glPopName(); }
  void bindTexture(unsigned texture) override { glBindTexture(GL_TEXTURE_2D, texture); }
  void textureModulate() override { glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE); }
  void enable(State state, bool on) override;
  void blendFunc(BlendMode mode) override;
  void lineWidth(float width) override { glLineWidth(width); }
  void colorMask(bool on) override { glColorMask(on, on, on, on); }
  // From client arrays in one call.
  void coloredVertices(Primitive primitive, size_t count, const float* xy, const float* rgba) override;
};

}  // namespace quorvel
