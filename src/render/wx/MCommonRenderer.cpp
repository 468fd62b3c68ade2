#include "MCommonRenderer.h"

#include <GL/freeglut.h>
#include <GL/glu.h>
#include <GL/glx.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "engine/MMediator.h"
#include "render/core/MCushions.h"
#include "render/wx/MGlCanvas.h"

#ifndef GL_TEXTURE_MAX_ANISOTROPY_EXT
#define GL_TEXTURE_MAX_ANISOTROPY_EXT 0x84FE
#define GL_MAX_TEXTURE_MAX_ANISOTROPY_EXT 0x84FF
#endif

namespace quorvel {

namespace {

std::shared_ptr<TImageBuilderCpp> iconImages() {
  return std::static_pointer_cast<TBitmapImageBuilder>(me.m_IconImageBuilder);
}

bool hasExtension(const char* name) {
  const char* all = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
  return all && std::strstr(all, name) != nullptr;
}

// Bytes of a bitmap's pixels, red, green, blue, rows from the top.
wxImage pixelsOf(wxMemoryDC& dc, wxBitmap& bitmap) {
  dc.SelectObject(wxNullBitmap);
  wxImage image = bitmap.ConvertToImage();
  dc.SelectObject(bitmap);
  return image;
}

}  // namespace

// Names of textures and lists belong to the context that made them. An
// object that goes while another canvas's context is current must leave
// them alone: deleting them there would delete that canvas's objects of the
// same numbers. They go with their own context.
bool TGlObjectOwner::isOwnContextCurrent() const {
  return m_Context != nullptr && glXGetCurrentContext() == static_cast<GLXContext>(m_Context);
}

TGlObjectOwner::TGlObjectOwner() : m_Context(glXGetCurrentContext()) {}

// ---------------------------------------------------------------------------

TCommonRendererCpp::TCommonRendererCpp(std::string name) : m_Name(std::move(name)) {
  if (auto images = iconImages()) m_IconTextureBuilder = std::make_shared<TTextureBuilder>(images);
  if (!m_IconTextureBuilder) throw std::runtime_error("!m_IconTextureBuilder");
  m_SelectBuffer.resize(10000);
}

void TCommonRendererCpp::enterSelectMode(int x, int y, int width, int height, bool keepmode) {
  glSelectBuffer(static_cast<GLsizei>(m_SelectBuffer.size()), m_SelectBuffer.data());
  if (!keepmode) glRenderMode(GL_SELECT);
  glInitNames();
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  GLint viewport[4];
  glGetIntegerv(GL_VIEWPORT, viewport);
  gluPickMatrix(x, y, width, height, viewport);
}

std::vector<std::vector<unsigned>> TCommonRendererCpp::exitSelectMode() {
  const GLint count = glRenderMode(GL_RENDER);
  std::vector<std::vector<unsigned>> hits;
  size_t pos = 0;
  for (GLint i = 0; i < count && pos < m_SelectBuffer.size(); ++i) {
    const GLuint names = m_SelectBuffer[pos];
    if (pos + 3 + names > m_SelectBuffer.size()) break;
    hits.emplace_back(m_SelectBuffer.begin() + static_cast<long>(pos + 3),
                      m_SelectBuffer.begin() + static_cast<long>(pos + 3 + names));
    pos += 3 + names;
  }
  return hits;
}

bool TCommonRendererCpp::renderDisplayList(const std::string& name) {
  for (GLuint stale : m_StaleLists) glDeleteLists(stale, 1);
  m_StaleLists.clear();
  auto it = m_DisplayLists.find(name);
  if (it != m_DisplayLists.end()) {
    glCallList(it->second);
    return true;
  }
  const GLuint list = glGenLists(1);
  m_DisplayLists[name] = list;
  glNewList(list, GL_COMPILE_AND_EXECUTE);
  m_CurrentList = name;
  return false;
}

void TCommonRendererCpp::endDisplayList() { glEndList(); }

void TCommonRendererCpp::clearDisplayLists(const std::string& prefix) {
  for (auto it = m_DisplayLists.begin(); it != m_DisplayLists.end();) {
    if (it->first.compare(0, prefix.size(), prefix) == 0) {
      m_StaleLists.push_back(it->second);
      it = m_DisplayLists.erase(it);
    } else {
      ++it;
    }
  }
}

void TCommonRendererCpp::readPixels(unsigned width, unsigned height, unsigned char* buffer) {
  glPixelStorei(GL_PACK_ALIGNMENT, 1);
  glReadPixels(0, 0, static_cast<GLsizei>(width), static_cast<GLsizei>(height), GL_RGB, GL_UNSIGNED_BYTE, buffer);
}

void TCommonRendererCpp::readPixelsStride(unsigned width, unsigned height, unsigned char* buffer, unsigned offset,
                                          unsigned stride) {
  glPixelStorei(GL_PACK_ALIGNMENT, 1);
  for (unsigned r = 0; r < height; ++r)
    glReadPixels(0, static_cast<GLint>(r), static_cast<GLsizei>(width), 1, GL_RGB, GL_UNSIGNED_BYTE,
                 buffer + 3 * (static_cast<size_t>(offset) + static_cast<size_t>(r) * stride));
}

void TCommonRendererCpp::drawText(int x, int y, const std::string& text) {
  static bool glutReady = false;
  if (!glutReady) {
    int argc = 1;
    char name[] = "quorvel";
    char* argv[] = {name, nullptr};
    glutInit(&argc, argv);
    glutReady = true;
  }
  glColor3f(0, 0, 0);
  glRasterPos2i(x, y);
  for (unsigned char c : text) glutBitmapCharacter(GLUT_BITMAP_HELVETICA_12, c);
}

// ---------------------------------------------------------------------------

TLabelGenerator::~TLabelGenerator() {
  if (!m_LabelTextures.empty() && isOwnContextCurrent()) glDeleteTextures(static_cast<GLsizei>(m_LabelTextures.size()), m_LabelTextures.data());
}

void TLabelGenerator::init() {
  adoptCurrentContext();
  bitmap = wxBitmap(w, h, 24);
  dc.SelectObject(bitmap);
  reset();
  clearBitmap();
  m_LabelTextures.assign(TLabelPacker::kTextures, 0);
  glGenTextures(TLabelPacker::kTextures, m_LabelTextures.data());
  name2id.clear();
  initialized = true;
}

void TLabelGenerator::reset() {
  dc.SetTextForeground(*wxWHITE);
  dc.SetTextBackground(*wxGREEN);
  dc.SetBrush(*wxBLACK_BRUSH);
  dc.SetPen(*wxBLACK_PEN);
  dc.SetFont(wxFont(24, wxFONTFAMILY_SWISS, wxFONTSTYLE_NORMAL, wxFONTWEIGHT_NORMAL, false, "Arial"));
  packer.reset();
}

void TLabelGenerator::clearBitmap() { dc.DrawRectangle(0, 0, w, h); }

void TLabelGenerator::buildTexture(const wxBitmap& bmp, GLuint texture) {
  wxImage image = bmp.ConvertToImage();
  glBindTexture(GL_TEXTURE_2D, texture);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
  if (hasExtension("GL_EXT_texture_filter_anisotropic")) {
    GLfloat most = 0;
    glGetFloatv(GL_MAX_TEXTURE_MAX_ANISOTROPY_EXT, &most);
    glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MAX_ANISOTROPY_EXT, std::max(most, 4.0f));
  }
  glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
  gluBuild2DMipmaps(GL_TEXTURE_2D, GL_INTENSITY, image.GetWidth(), image.GetHeight(), GL_RGB, GL_UNSIGNED_BYTE,
                    image.GetData());
}

void TLabelGenerator::generate() {
  if (!initialized) init();
  const int toowideBefore = packer.toowide;
  auto upload = [this](int index) {
    dc.SelectObject(wxNullBitmap);
    buildTexture(bitmap, m_LabelTextures[static_cast<size_t>(index)]);
    dc.SelectObject(bitmap);
  };
  // Whatever was drawn into the present texture goes up also when the
  // textures run out, so that every label already placed shows.
  bool drawn = false;
  try {
    for (const std::string& text : tobegenerated) {
      if (name2id.count(text)) continue;
      wxCoord ex = 0, ey = 0, descent = 0;
      const wxString label = wxString::FromUTF8(text);
      dc.GetTextExtent(label, &ex, &ey, &descent);
      const TLabelPacker::TPlace place = packer.place(ex, ey, descent);
      if (place.flush) {
        if (drawn) upload(place.flushTexture);
        clearBitmap();
      }
      dc.DrawText(label, place.x, place.y);
      drawn = true;
      const GLuint texture = m_LabelTextures[static_cast<size_t>(place.texture)];
      if (texture == 0) throw std::runtime_error("labeltexture == 0, curtex=" + std::to_string(packer.curtex));
      name2id[text] = {texture, std::make_shared<TBox>(place.box)};
    }
  } catch (...) {
    if (drawn) upload(packer.curtex);
    throw;
  }
  if (drawn) upload(packer.curtex);
  if (packer.toowide > toowideBefore)
    std::printf("Warning: %d captions were too wide and were cut.\n", packer.toowide - toowideBefore);
}

// ---------------------------------------------------------------------------

TToolTipGenerator::TToolTipGenerator() : bitmap(512, 512, 24) {
  dc.SelectObject(bitmap);
  dc.SetTextForeground(*wxWHITE);
  dc.SetTextBackground(*wxWHITE);
  dc.SetBrush(*wxBLACK_BRUSH);
  dc.SetPen(*wxBLACK_PEN);
  glGenTextures(1, &texture);
  setFontSize();
}

TToolTipGenerator::~TToolTipGenerator() {
  if (texture && isOwnContextCurrent()) glDeleteTextures(1, &texture);
}

void TToolTipGenerator::setFontSize() {
  dc.SetFont(wxFont(8, wxFONTFAMILY_SWISS, wxFONTSTYLE_NORMAL, wxFONTWEIGHT_NORMAL, false, "Arial"));
}

void TToolTipGenerator::generate(const std::string& text) {
  std::string cut = text;
  while (!cut.empty() && (cut.back() == ' ' || cut.back() == '\n' || cut.back() == '\r')) cut.pop_back();
  const wxString label = wxString::FromUTF8(cut);
  wxCoord tw = 0, th = 0;
  dc.GetMultiLineTextExtent(label, &tw, &th);
  ex = std::min(tw, 512);
  ey = std::min(th, 512);
  dc.DrawRectangle(0, 0, w, h);
  dc.DrawLabel(label, wxRect(0, 0, 512, 512));
  wxImage image = pixelsOf(dc, bitmap);
  glBindTexture(GL_TEXTURE_2D, texture);
  glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
  glTexImage2D(GL_TEXTURE_2D, 0, GL_LUMINANCE, 512, 512, 0, GL_RGB, GL_UNSIGNED_BYTE, image.GetData());
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
}

void TToolTipGenerator::render(const wxPoint* pos, const TGlCanvasBase& canvas) {
  if (!pos) return;
  float x = static_cast<float>(pos->x + 12);
  const float y = static_cast<float>(pos->y + 21);
  const float excess = x + static_cast<float>(ex) - static_cast<float>(canvas.size.GetWidth());
  if (excess > 0) x -= excess;
  glEnable(GL_TEXTURE_2D);
  glBindTexture(GL_TEXTURE_2D, texture);
  glColor4f(1, 1, 1, 0.8f);
  glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
  glEnable(GL_BLEND);
  glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
  const float s = static_cast<float>(ex) / 512.0f, t = static_cast<float>(ey) / 512.0f;
  glBegin(GL_QUADS);
  glTexCoord2f(0, 0);
  glVertex2f(x, y);
  glTexCoord2f(s, 0);
  glVertex2f(x + static_cast<float>(ex), y);
  glTexCoord2f(s, t);
  glVertex2f(x + static_cast<float>(ex), y + static_cast<float>(ey));
  glTexCoord2f(0, t);
  glVertex2f(x, y + static_cast<float>(ey));
  glEnd();
  glDisable(GL_BLEND);
  glDisable(GL_TEXTURE_2D);
}

// ---------------------------------------------------------------------------

void TCommonRenderer::postCreate(TGlCanvasBase* c) {
  canvas = c;
  canvas->setCurrent();
  labelgenerator = std::make_unique<TLabelGenerator>();
  tooltip = std::make_unique<TToolTipGenerator>();
  cushionsinitialized = false;
}

void TCommonRenderer::createTexturesInPython() {
  labelgenerator->tobegenerated = m_LabelTextureCacheQueue;
  auto cleanup = [this] {
    for (const std::string& text : m_LabelTextureCacheQueue) {
      auto it = labelgenerator->name2id.find(text);
      if (it != labelgenerator->name2id.end()) insertIntoLabelCache(text, it->second.first, it->second.second);
    }
    m_LabelTextureCacheQueue.clear();
  };
  try {
    labelgenerator->generate();
  } catch (...) {
    cleanup();
    throw;
  }
  cleanup();
}

void TCommonRenderer::ensureCushionTexturesExist() {
  if (cushionsinitialized) return;
  cushionsinitialized = true;
  glEnable(GL_TEXTURE_2D);
  for (int i = 0; i < 8; ++i) {
    GLuint name = 0;
    glGenTextures(1, &name);
    m_CushionTextures.push_back(name);
  }
  auto upload = [](GLuint texture, const std::vector<float>& texels) {
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_LUMINANCE_ALPHA, kCushionTexels, kCushionTexels, 0, GL_LUMINANCE_ALPHA, GL_FLOAT,
                 texels.data());
  };
  upload(m_CushionTextures[0], parabolicCushionTexels());
  upload(m_CushionTextures[1], doubleArray(createCircularCushion(kCushionTexels)));
  glDisable(GL_TEXTURE_2D);
}

// ---------------------------------------------------------------------------

namespace wxGLBase {

GLText::GLText(std::string facename, int height) : m_FaceName(std::move(facename)), m_Height(height) {
  m_Lists = glGenLists(96);
  build();
}

GLText::~GLText() {
  if (m_Lists && isOwnContextCurrent()) glDeleteLists(m_Lists, 96);
}

void GLText::build() {
  if (m_Height < 2) {
    m_Tallest = 1;
    m_Descent = 0;
    m_Widths.fill(1);
    return;
  }
  adoptCurrentContext();
  wxFont font = m_FaceName.empty()
                    ? wxSystemSettings::GetFont(wxSYS_DEFAULT_GUI_FONT)
                    : wxFont(wxSize(0, m_Height), wxFONTFAMILY_SWISS, wxFONTSTYLE_NORMAL, wxFONTWEIGHT_NORMAL, false,
                             wxString::FromUTF8(m_FaceName));
  wxBitmap bitmap(4 * m_Height + 8, 2 * m_Height + 4, 24);
  wxMemoryDC dc(bitmap);
  dc.SetFont(font);
  dc.SetBackground(*wxBLACK_BRUSH);
  dc.SetTextForeground(*wxWHITE);
  wxCoord w = 0, h = 0, descent = 0;
  dc.GetTextExtent("M", &w, &h, &descent);
  m_Descent = descent;
  m_Tallest = 1;
  glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
  for (int c = 32; c < 128; ++c) {
    const wxString ch(static_cast<wxChar>(c));
    dc.GetTextExtent(ch, &w, &h, &descent);
    m_Widths[static_cast<size_t>(c - 32)] = w;
    dc.Clear();
    dc.DrawText(ch, 0, 0);
    dc.SelectObject(wxNullBitmap);
    const wxImage image = bitmap.ConvertToImage();
    dc.SelectObject(bitmap);
    const int gw = std::max(1, std::min(w, image.GetWidth()));
    const int gh = std::min(h, image.GetHeight());
    // One bit a pixel, rows from the bottom, as glBitmap takes them.
    const int rowbytes = (gw + 7) / 8;
    std::vector<GLubyte> bits(static_cast<size_t>(rowbytes * std::max(gh, 1)), 0);
    int top = gh, bottom = -1;
    for (int y = 0; y < gh; ++y)
      for (int x = 0; x < gw; ++x)
        if (image.GetRed(x, y) > 127) {
          bits[static_cast<size_t>((gh - 1 - y) * rowbytes + x / 8)] |= static_cast<GLubyte>(0x80 >> (x % 8));
          top = std::min(top, y);
          bottom = std::max(bottom, y);
        }
    if (bottom >= top) m_Tallest = std::max(m_Tallest, bottom - top + 1);
    glNewList(m_Lists + static_cast<GLuint>(c - 32), GL_COMPILE);
    glBitmap(gw, gh, 0, static_cast<float>(descent), static_cast<float>(w), 0, bits.data());
    glEndList();
  }
}

void GLText::draw(float x, float y, const std::string& text) {
  // Drawn in another context than the one it was made in: the lists are
  // made anew there, under names of that context.
  if (m_Height >= 2 && !isOwnContextCurrent()) {
    m_Lists = glGenLists(96);
    build();
  }
  glRasterPos2f(x, y);
  glPushAttrib(GL_LIST_BIT);
  glListBase(m_Lists - 32);
  glCallLists(static_cast<GLsizei>(text.size()), GL_UNSIGNED_BYTE, text.data());
  glPopAttrib();
}

int GLText::advance(char c) const {
  const auto u = static_cast<unsigned char>(c);
  if (u < 32 || u > 127) return m_Widths['M' - 32];
  return m_Widths[u - 32];
}

int GLText::textWidth(const std::string& text) const {
  int sum = 0;
  for (char c : text) sum += advance(c);
  return sum;
}

}  // namespace wxGLBase

// ---------------------------------------------------------------------------

namespace {

GLenum glMode(TDrawSink::Primitive primitive) {
  static const GLenum modes[] = {GL_QUAD_STRIP, GL_LINE_LOOP,  GL_LINE_STRIP,     GL_LINES,
                                 GL_QUADS,      GL_TRIANGLES, GL_TRIANGLE_STRIP, GL_POLYGON};
  return modes[primitive];
}

}  // namespace

void TGlDrawSink::begin(Primitive primitive) { glBegin(glMode(primitive)); }

void TGlDrawSink::coloredVertices(Primitive primitive, size_t count, const float* xy, const float* rgba) {
  if (count == 0) {
    glBegin(glMode(primitive));
    glEnd();
    return;
  }
  glEnableClientState(GL_VERTEX_ARRAY);
  glEnableClientState(GL_COLOR_ARRAY);
  glVertexPointer(2, GL_FLOAT, 0, xy);
  glColorPointer(4, GL_FLOAT, 0, rgba);
  glDrawArrays(glMode(primitive), 0, static_cast<GLsizei>(count));
  glDisableClientState(GL_COLOR_ARRAY);
  glDisableClientState(GL_VERTEX_ARRAY);
  // The colour array leaves the current colour undefined.
  glColor4fv(rgba + 4 * (count - 1));
}

void TGlDrawSink::enable(State state, bool on) {
  static const GLenum caps[] = {GL_TEXTURE_2D, GL_BLEND, GL_DEPTH_TEST, GL_LINE_SMOOTH, GL_LIGHTING};
  if (on)
    glEnable(caps[state]);
  else
    glDisable(caps[state]);
}

void TGlDrawSink::blendFunc(BlendMode mode) {
  switch (mode) {
    case SrcAlphaOneMinusSrcAlpha: glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA); break;
    case OneOne: glBlendFunc(GL_ONE, GL_ONE); break;
    case ZeroSrcColor: glBlendFunc(GL_ZERO, GL_SRC_COLOR); break;
  }
}

}  // namespace quorvel
