// Drawing the packed images into bitmaps with the window library, and
// turning them into textures of the current OpenGL context.
#pragma once

#include <wx/imaglist.h>

#include <GL/gl.h>
#include <wx/wx.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "render/core/MTexturePacker.h"

namespace quorvel {

class TImageBuilder : public TImageBuilderCpp {
 public:
  wxMemoryDC dc;
  std::map<int, wxBitmap> bitmaps;
  std::vector<wxImage> images;

  void createImagesInPython() override;
  size_t imageCount() const override { return images.size(); }
  const unsigned char* imageData(size_t index) const override { return images[index].GetData(); }

 protected:
  virtual void drawItem(int key) = 0;
  // The bitmap and the whole-pixel rectangle of a packed key, selected into
  // dc, with the place cleared.
  wxRect prepareItem(int key);
};

// Items are bitmaps: the icons.
class TBitmapImageBuilder : public TImageBuilder {
 public:
  std::map<int, wxBitmap> bitmapcache;
  void addBitmap(int key, const wxBitmap& bitmap);

 protected:
  void drawItem(int key) override;
};

// Items are texts, each under a key of its own.
class TTextImageBuilder : public TImageBuilder {
 public:
  TTextImageBuilder();
  // The key of the text, added when new.
  int addText(const std::string& text);

 protected:
  void drawItem(int key) override;

 private:
  static wxFont font();
  std::map<int, std::string> m_Texts;
  std::map<std::string, int> m_KeyOfText;
};

class TTextureBuilder {
 public:
  explicit TTextureBuilder(std::shared_ptr<TImageBuilderCpp> images) : m_Images(std::move(images)) {}
  ~TTextureBuilder();
  // Makes the textures again when the images changed, or the first time.
  bool updateIfNeeded();
  bool getKey2Location(int key, GLuint& texture, TBox& box) const;
  void debugRender();
  const std::map<unsigned, GLuint>& textures() const { return m_Textures; }

 private:
  std::map<unsigned, GLuint> m_Textures;
  bool m_NeedsUpdate = true;
  std::shared_ptr<TImageBuilderCpp> m_Images;
};

// The 16 by 16 icons of the program's image list, as list views show them;
// null before the main window has read them.
wxImageList* iconImageList();
void setIconImageList(wxImageList* list);

}  // namespace quorvel
