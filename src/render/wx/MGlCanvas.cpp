#include "MGlCanvas.h"

#include <wx/aui/tabmdi.h>
#include <wx/clipbrd.h>

#include <chrono>
#include <cstdio>

#include "engine/MMediator.h"

namespace quorvel {

namespace {

bool firstcanvas = true;

const int kAttributes[] = {WX_GL_RGBA, WX_GL_DOUBLEBUFFER, WX_GL_DEPTH_SIZE, 16, 0};

bool endsWith(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

TGlCanvasBase::TGlCanvasBase(wxWindow* parent, std::shared_ptr<TCommonRenderer> renderer)
    : wxGLCanvas(parent, wxID_ANY, kAttributes, wxDefaultPosition, wxSize(400, 400), wxBORDER_NONE | wxWANTS_CHARS),
      commonrenderer(std::move(renderer)) {
  Bind(wxEVT_PAINT, &TGlCanvasBase::OnPaint, this);
  Bind(wxEVT_ERASE_BACKGROUND, &TGlCanvasBase::OnEraseBackground, this);
  Bind(wxEVT_SIZE, &TGlCanvasBase::OnSizeEvent, this);
  Bind(wxEVT_MOTION, [this](wxMouseEvent& e) { OnMouseMotion(e); });
  Bind(wxEVT_LEFT_UP, [this](wxMouseEvent& e) { OnMouseLeftUp(e); });
  Bind(wxEVT_RIGHT_UP, [this](wxMouseEvent& e) { OnMouseRightUp(e); });
  Bind(wxEVT_LEFT_DOWN, [this](wxMouseEvent& e) { OnMouseLeftDown(e); });
  Bind(wxEVT_LEFT_DCLICK, [this](wxMouseEvent& e) { OnLeftMouseDoubleClick(e); });
  Bind(wxEVT_LEAVE_WINDOW, [this](wxMouseEvent& e) { OnMouseLeave(e); });
  m_Context = new wxGLContext(this);
  commonrenderer->glcontext = m_Context;
  Show();
  if (parent) SetSize(parent->GetClientSize());
  size = GetClientSize();
  resetViewport();
}

TGlCanvasBase::~TGlCanvasBase() { delete m_Context; }

bool TGlCanvasBase::setCurrent() {
  // The context can only be made current on a window that the toolkit has
  // realised.
  if (!IsShownOnScreen()) return false;
  return SetCurrent(*m_Context);
}

void TGlCanvasBase::resetViewport() {
  viewportlx = 0;
  viewportly = 0;
  viewportrx = static_cast<float>(size.GetWidth());
  viewportry = static_cast<float>(size.GetHeight());
}

void TGlCanvasBase::refresh() {
  pendingrefresh = true;
  Refresh(false);
}

void TGlCanvasBase::OnPaint(wxPaintEvent&) {
  wxPaintDC dc(this);
  try {
    paintNow(true);
  } catch (const std::exception& e) {
    std::printf("%s\n", e.what());
  }
}

void TGlCanvasBase::paintNow(bool swap) {
  if (!setCurrent()) return;
  drawFrame();
  if (swap) SwapBuffers();
}

void TGlCanvasBase::drawFrame() {
  if (!initialized) {
    if (firstcanvas) {
      firstcanvas = false;
      auto text = [](GLenum e) {
        const char* s = reinterpret_cast<const char*>(glGetString(e));
        return std::string(s ? s : "");
      };
      logInfo("OpenGL: " + text(GL_VERSION) + " " + text(GL_RENDERER) + " " + text(GL_VENDOR));
    }
    OnInit();
    initialized = true;
  }
  glClearColor(1, 1, 1, 1);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
  glColor3f(0, 0, 0);
  try {
    OnSetMatrices();
    OnDraw();
  } catch (const std::exception& e) {
    std::printf("%s\n", e.what());
  }
  glFinish();
}

void TGlCanvasBase::OnSize(wxSizeEvent* event) {
  size = GetClientSize();
  resetViewport();
  Refresh(false);
  if (event) event->Skip();
}

void TGlCanvasBase::OnMouseMotion(wxMouseEvent& evt) {
  setCurrent();
  previousmouspos = mousepos;
  mousepos = evt.GetPosition();
  lastmousepos = evt.GetPosition();
  mouseposvector = TVector2(static_cast<float>(evt.GetX()), static_cast<float>(evt.GetY()));
}

void TGlCanvasBase::OnMouseLeave(wxMouseEvent& evt) {
  mousepos.reset();
  mouseposvector.reset();
  evt.Skip();
}

std::vector<std::vector<unsigned>> TGlCanvasBase::Pick() {
  if (!mousepos) return {};
  if (!setCurrent()) return {};
  pickcoord = *mousepos;
  commonrenderer->enterSelectMode(pickcoord.x, size.GetHeight() - pickcoord.y, 4, 4, false);
  glOrtho(viewportlx, viewportrx, viewportly, viewportry, -3, 3);
  picking = true;
  try {
    OnDraw();
  } catch (const std::exception& e) {
    std::printf("%s\n", e.what());
  }
  picking = false;
  return commonrenderer->exitSelectMode();
}

void TGlCanvasBase::saveImage(wxImage& image, const std::optional<std::string>& filename) {
  image = image.Mirror(false);
  wxBitmap bitmap(image);
  if (!filename) {
    if (wxTheClipboard->Open()) {
      wxTheClipboard->SetData(new wxBitmapDataObject(bitmap));
      wxTheClipboard->Close();
    }
    return;
  }
  const wxBitmapType type = endsWith(*filename, ".png") ? wxBITMAP_TYPE_PNG : wxBITMAP_TYPE_BMP;
  bool saved = false;
  {
    wxLogNull quiet;
    saved = bitmap.SaveFile(wxString::FromUTF8(*filename), type);
  }
  if (!saved) throw TFlowError(userMessage("Cannot save to '" + *filename + "'", {"popup"}));
}

bool TGlCanvasBase::prepareForPicture() {
  if (!IsShownOnScreen()) {
    for (wxWindow* w = GetParent(); w; w = w->GetParent()) {
      if (auto* child = dynamic_cast<wxAuiMDIChildFrame*>(w)) {
        child->Activate();
        break;
      }
    }
  }
  // The toolkit shows a window and lays it out in its own events.
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  int quiet = 0;
  wxSize last = GetClientSize();
  while (std::chrono::steady_clock::now() < until) {
    wxYield();
    const wxSize now = GetClientSize();
    quiet = IsShownOnScreen() && now == last && now.x > 0 && now.y > 0 ? quiet + 1 : 0;
    last = now;
    if (quiet >= 3) break;
    wxMilliSleep(5);
  }
  size = GetClientSize();
  resetViewport();
  return setCurrent();
}

namespace {
[[noreturn]] void cannotTakePicture(const std::optional<std::string>& filename) {
  throw TFlowError(userMessage(filename ? "Cannot save to '" + *filename + "'"
                                        : std::string("Cannot copy a picture of a view that is not shown"),
                               {"popup"}));
}
}  // namespace

void TGlCanvasBase::makeScreenshot(const std::optional<std::string>& filename) {
  if (!prepareForPicture()) cannotTakePicture(filename);
  drawFrame();
  const int w = size.GetWidth(), h = size.GetHeight();
  wxImage image(w, h);
  glReadBuffer(GL_BACK);
  commonrenderer->readPixels(static_cast<unsigned>(w), static_cast<unsigned>(h), image.GetData());
  Refresh(false);
  saveImage(image, filename);
}

void TGlCanvasBase::makeScreenshotLarge(const std::optional<std::string>& filename) {
  if (!prepareForPicture()) cannotTakePicture(filename);
  const int cw = size.GetWidth(), ch = size.GetHeight();
  const int viewwidth = cw / 2, viewheight = ch / 2;
  const int width = cw * 2, height = ch * 2;
  wxImage image(width, height);
  viewportlx = 0;
  viewportly = 0;
  unsigned offset = 0;
  glReadBuffer(GL_BACK);
  for (int row = 0; row < 2; ++row) {
    for (int col = 0; col < 2; ++col) {
      viewportrx = viewportlx + static_cast<float>(viewwidth);
      viewportry = viewportly + static_cast<float>(viewheight);
      drawFrame();
      commonrenderer->readPixelsStride(static_cast<unsigned>(cw), static_cast<unsigned>(ch), image.GetData(), offset,
                                       static_cast<unsigned>(width));
      viewportlx += static_cast<float>(viewwidth);
      offset += static_cast<unsigned>(width / 2);
    }
    viewportlx = 0;
    viewportly += static_cast<float>(viewheight);
    offset += static_cast<unsigned>((ch - 1) * width);
  }
  resetViewport();
  Refresh(false);
  saveImage(image, filename);
}

}  // namespace quorvel
