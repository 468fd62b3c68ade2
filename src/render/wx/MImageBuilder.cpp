#include "MImageBuilder.h"

#include <GL/glu.h>

namespace quorvel {

void TImageBuilder::createImagesInPython() {
  pack();
  bitmaps.clear();
  for (unsigned i = 0; i < getBitmapCount(); ++i) {
    wxImage blank(TexturePacker::kSize, TexturePacker::kSize, true);
    bitmaps[static_cast<int>(i)] = wxBitmap(blank, 24);
  }
  for (int key : m_Keys) drawItem(key);
  dc.SelectObject(wxNullBitmap);
  images.clear();
  for (unsigned i = 0; i < getBitmapCount(); ++i) images.push_back(bitmaps[static_cast<int>(i)].ConvertToImage());
}

wxRect TImageBuilder::prepareItem(int key) {
  const auto [index, box] = getKey2BitmapLocation(key);
  dc.SelectObject(bitmaps[index]);
  // A memory DC takes its settings once it has a bitmap.
  dc.SetTextForeground(*wxWHITE);
  dc.SetTextBackground(*wxGREEN);
  dc.SetBrush(*wxTRANSPARENT_BRUSH);
  dc.SetPen(*wxWHITE_PEN);
  const wxRect rect(static_cast<int>(box.tl.x), static_cast<int>(box.tl.y), static_cast<int>(box.getWidth()),
                    static_cast<int>(box.getHeight()));
  dc.DrawRectangle(rect);
  return rect;
}

void TBitmapImageBuilder::addBitmap(int key, const wxBitmap& bitmap) {
  if (m_Keys.count(key)) return;
  bitmapcache[key] = bitmap;
  addRectangle(key, bitmap.GetWidth(), bitmap.GetHeight());
}

void TBitmapImageBuilder::drawItem(int key) {
  auto it = bitmapcache.find(key);
  if (it == bitmapcache.end() || !it->second.IsOk()) throw std::runtime_error("Bitmap not found in cache");
  const wxRect rect = prepareItem(key);
  dc.DrawBitmap(it->second, rect.x, rect.y, false);
}

TTextImageBuilder::TTextImageBuilder() = default;

wxFont TTextImageBuilder::font() {
  return wxFont(18, wxFONTFAMILY_SWISS, wxFONTSTYLE_NORMAL, wxFONTWEIGHT_NORMAL, false, "Arial");
}

int TTextImageBuilder::addText(const std::string& text) {
  auto it = m_KeyOfText.find(text);
  if (it != m_KeyOfText.end()) return it->second;
  const int key = static_cast<int>(m_Texts.size());
  m_Texts[key] = text;
  m_KeyOfText[text] = key;
  wxBitmap scratch(8, 8);
  wxMemoryDC measure(scratch);
  measure.SetFont(font());
  const wxSize size = measure.GetTextExtent(wxString::FromUTF8(text));
  addRectangle(key, std::min(size.x, TexturePacker::kSize), std::min(size.y, TexturePacker::kSize));
  return key;
}

void TTextImageBuilder::drawItem(int key) {
  const wxRect rect = prepareItem(key);
  dc.SetFont(font());
  dc.DrawText(wxString::FromUTF8(m_Texts[key]), rect.x, rect.y);
}

// ---------------------------------------------------------------------------

TTextureBuilder::~TTextureBuilder() = default;

bool TTextureBuilder::updateIfNeeded() {
  if (m_Images->isDirty()) {
    m_Images->createImagesInPython();
    m_Images->setDirty(false);
    m_NeedsUpdate = true;
  }
  if (!m_NeedsUpdate) return false;
  for (const auto& [index, name] : m_Textures) glDeleteTextures(1, &name);
  m_Textures.clear();
  const int size = TexturePacker::kSize;
  std::vector<unsigned char> rgba(static_cast<size_t>(size) * size * 4);
  for (size_t i = 0; i < m_Images->imageCount(); ++i) {
    glEnable(GL_TEXTURE_2D);
    GLuint name = 0;
    glGenTextures(1, &name);
    glBindTexture(GL_TEXTURE_2D, name);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
    const unsigned char* rgb = m_Images->imageData(i);
    for (size_t p = 0; p < static_cast<size_t>(size) * size; ++p) {
      rgba[4 * p] = rgb[3 * p];
      rgba[4 * p + 1] = rgb[3 * p + 1];
      rgba[4 * p + 2] = rgb[3 * p + 2];
      rgba[4 * p + 3] = iconAlpha(rgb[3 * p], rgb[3 * p + 1], rgb[3 * p + 2]);
    }
    gluBuild2DMipmaps(GL_TEXTURE_2D, GL_RGBA, size, size, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
    m_Textures[static_cast<unsigned>(i)] = name;
  }
  glDisable(GL_TEXTURE_2D);
  m_NeedsUpdate = false;
  return true;
}

bool TTextureBuilder::getKey2Location(int key, GLuint& texture, TBox& box) const {
  int bitmap = 0;
  if (!m_Images->findLocation(key, bitmap, box)) return false;
  auto it = m_Textures.find(static_cast<unsigned>(bitmap));
  if (it == m_Textures.end()) return false;
  texture = it->second;
  const float s = 1.0f / 512.0f;
  box = TBox(box.tl.x * s, box.tl.y * s, box.br.x * s, box.br.y * s);
  return true;
}

void TTextureBuilder::debugRender() {
  auto it = m_Textures.find(0);
  if (it == m_Textures.end()) return;
  glEnable(GL_TEXTURE_2D);
  glBindTexture(GL_TEXTURE_2D, it->second);
  glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);
  glColor4f(1, 1, 1, 1);
  glBegin(GL_QUADS);
  glTexCoord2f(0, 1);
  glVertex2f(0, 0);
  glTexCoord2f(0, 0);
  glVertex2f(0, 200);
  glTexCoord2f(1, 0);
  glVertex2f(200, 200);
  glTexCoord2f(1, 1);
  glVertex2f(200, 0);
  glEnd();
  glDisable(GL_TEXTURE_2D);
}

namespace {
wxImageList* g_IconImageList = nullptr;
}

wxImageList* iconImageList() { return g_IconImageList; }
void setIconImageList(wxImageList* list) { g_IconImageList = list; }

}  // namespace quorvel
