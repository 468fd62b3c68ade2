#include "MFlowCanvas.h"

#include <GL/freeglut.h>
#include <wx/menu.h>
#include <wx/msgdlg.h>
#include <wx/textdlg.h>

#include <map>

#include "engine/MActionInterfaces.h"
#include "engine/MMediator.h"
#include "engine/MRegistry.h"
#include "engine/MSources.h"
#include "render/wx/MCommonRenderer.h"
#include "widgets/MControlWidgets.h"
#include "widgets/MGui.h"

namespace quorvel {

namespace {

// The 8 by 13 font's line height.
constexpr float kLine = 13.0f;

bool isBox(const std::shared_ptr<TFlowObject>& obj) { return std::dynamic_pointer_cast<TAbstractBox>(obj) != nullptr; }

// A box moves with all that is in it.
void moveBox(TAbstractBox& box, const TVector2& v) {
  box.m_Area.move(v);
  for (const auto& p : box.m_Processors) p->m_Area.move(v);
  for (const auto& c : box.m_Children) moveBox(*c, v);
}

}  // namespace

TFlowCanvas::TFlowCanvas(wxWindow* parent, std::shared_ptr<TCommonRenderer> renderer,
                         std::function<std::shared_ptr<TFlowManager>()> network)
    : TGlCanvasBase(parent, std::move(renderer)), flowmgr(std::move(network)), processors(flowClassMenus()) {
  Bind(wxEVT_KEY_DOWN, &TFlowCanvas::OnKey, this);
  Bind(wxEVT_MIDDLE_DOWN, [this](wxMouseEvent& e) {
    previousmouspos = e.GetPosition();
    e.Skip();
  });
}

TFlowCanvas::~TFlowCanvas() {
  if (m_PickList && setCurrent()) glDeleteLists(m_PickList, 1);
}

bool TFlowCanvas::pickListValid() const {
  return m_PickList && m_PickEpoch == TFlowEpoch::now() && m_PickEdits == m_Edits && m_PickCamera.x == camerapos.x &&
         m_PickCamera.y == camerapos.y && m_PickSize == size;
}

void TFlowCanvas::OnSetMatrices() {
  glViewport(0, 0, size.GetWidth(), size.GetHeight());
  glMatrixMode(GL_PROJECTION);
  glLoadIdentity();
  glOrtho(viewportlx, viewportrx, viewportly, viewportry, -3, 3);
}

TVector2 TFlowCanvas::toPicture(const wxPoint& at) const {
  return TVector2(static_cast<float>(at.x) - camerapos.x, static_cast<float>(at.y) - camerapos.y);
}

void TFlowCanvas::drawText(float x, float y, const std::string& text) {
  // The bitmap fonts want the library set up, once in the process.
  static const bool glutReady = [] {
    if (glutGet(GLUT_INIT_STATE)) return true;
    int argc = 1;
    char name[] = "quorvel";
    char* argv[] = {name, nullptr};
    glutInit(&argc, argv);
    return true;
  }();
  (void)glutReady;
  glRasterPos2f(x, y);
  for (unsigned char c : text) glutBitmapCharacter(GLUT_BITMAP_8_BY_13, c);
}

void TFlowCanvas::OnDraw() {
  if (picking && !m_CompilingPickList && pickListValid()) {
    glCallList(m_PickList);
    return;
  }
  auto mgr = flowmgr ? flowmgr() : nullptr;
  glMatrixMode(GL_MODELVIEW);
  glLoadIdentity();
  // y runs down from the top, as the mouse's does.
  glTranslatef(0.0f, static_cast<float>(size.GetHeight()), 0.0f);
  glScalef(1.0f, -1.0f, 1.0f);
  m_Picking = picking;
  TGlDrawSink sink;
  sink.pushName(0);
  glPushMatrix();
  glTranslatef(camerapos.x, camerapos.y, 0.0f);
  glColor3f(1.0f, 0.0f, 0.0f);
  glBegin(GL_LINES);
  glVertex2f(0.0f, 0.0f);
  glVertex2f(100.0f, 0.0f);
  glVertex2f(0.0f, 0.0f);
  glVertex2f(0.0f, 100.0f);
  glEnd();
  if (mgr) drawBox(sink, *mgr);
  if (startdraggingcorner && stopdraggingcorner) {
    glColor3f(0.0f, 0.0f, 0.0f);
    glBegin(GL_LINE_LOOP);
    glVertex2f(startdraggingcorner->x, startdraggingcorner->y);
    glVertex2f(stopdraggingcorner->x, startdraggingcorner->y);
    glVertex2f(stopdraggingcorner->x, stopdraggingcorner->y);
    glVertex2f(startdraggingcorner->x, stopdraggingcorner->y);
    glEnd();
  }
  glPopMatrix();
  sink.popName();
  if (picking) return;
  pendingrefresh = false;
  if (!mousepos) return;
  // Beside the picture: the line of a connection being drawn, and the
  // tooltip.
  const float mx = static_cast<float>(mousepos->x);
  const float my = static_cast<float>(mousepos->y);
  if (auto pin = std::dynamic_pointer_cast<TAbstractPin>(m_ActiveFlowObject); pin && pin->m_Processor) {
    const auto [x, y] = getPinPosition(*pin->m_Processor, *pin, true);
    glColor3f(0.0f, 0.0f, 0.0f);
    glBegin(GL_LINES);
    glVertex2f(x + camerapos.x, y + camerapos.y);
    glVertex2f(mx, my);
    glEnd();
  }
  if (hoveringflowobject && !hoveringflowobject->m_Destroyed) {
    std::vector<std::string> lines;
    size_t start = 0;
    const std::string text = flowTooltip(*hoveringflowobject);
    while (start <= text.size()) {
      const size_t end = text.find('\n', start);
      lines.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
      if (end == std::string::npos) break;
      start = end + 1;
    }
    int width = 0;
    for (const auto& l : lines) width = std::max(width, getTextLength(l));
    const float x = mx + 16.0f;
    const float y = my + 16.0f;
    glColor3f(1.0f, 1.0f, 0.85f);
    glRectf(x - 2.0f, y - 2.0f, x + static_cast<float>(width) + 4.0f, y + kLine * static_cast<float>(lines.size()) + 4.0f);
    glColor3f(0.0f, 0.0f, 0.0f);
    for (size_t i = 0; i < lines.size(); ++i) drawText(x, y + kLine * static_cast<float>(i + 1) - 2.0f, lines[i]);
  }
}

std::vector<std::shared_ptr<TFlowObject>> TFlowCanvas::objectsAt(const wxPoint& at) {
  auto mgr = flowmgr ? flowmgr() : nullptr;
  if (!mgr) return {};
  // A pick needs the window's own viewport, also before its first paint.
  if (size != GetClientSize()) {
    size = GetClientSize();
    viewportlx = viewportly = 0.0f;
    viewportrx = static_cast<float>(size.GetWidth());
    viewportry = static_cast<float>(size.GetHeight());
  }
  if (!setCurrent()) return {};
  glViewport(0, 0, size.GetWidth(), size.GetHeight());
  if (!pickListValid()) {
    if (!m_PickList) m_PickList = glGenLists(1);
    m_CompilingPickList = picking = true;
    glNewList(m_PickList, GL_COMPILE);
    OnDraw();
    glEndList();
    m_CompilingPickList = picking = false;
    m_PickEpoch = TFlowEpoch::now();
    m_PickEdits = m_Edits;
    m_PickCamera = camerapos;
    m_PickSize = size;
  }
  const auto saved = mousepos;
  mousepos = at;
  const auto hits = Pick();
  mousepos = saved;
  std::vector<std::shared_ptr<TFlowObject>> out;
  for (const auto& names : hits) {
    if (names.empty() || names.back() == 0) continue;
    if (auto obj = mgr->getFlowObject(names.back())) out.push_back(obj);
  }
  return out;
}

void TFlowCanvas::hover(const wxPoint& at) {
  hoveringflowobject = hoveredObject(objectsAt(at));
  auto activePin = std::dynamic_pointer_cast<TAbstractPin>(m_ActiveFlowObject);
  if (!activePin) {
    m_ClickPossibleFlowObject = hoveringflowobject;
  } else {
    auto pin = std::dynamic_pointer_cast<TAbstractPin>(hoveringflowobject);
    m_ClickPossibleFlowObject = pin && canConnect(*activePin, *pin) ? hoveringflowobject : nullptr;
  }
}

void TFlowCanvas::OnMouseMotion(wxMouseEvent& evt) {
  const std::optional<wxPoint> before = mousepos;
  TGlCanvasBase::OnMouseMotion(evt);
  if (pendingrefresh) return;
  const wxPoint at = evt.GetPosition();
  const wxPoint step = before ? at - *before : wxPoint(0, 0);
  if (evt.MiddleIsDown() || (evt.ControlDown() && evt.Dragging())) {
    camerapos.x += static_cast<float>(step.x);
    camerapos.y += static_cast<float>(step.y);
  } else if (evt.LeftIsDown() && evt.ShiftDown() && startdraggingcorner) {
    stopdraggingcorner = toPicture(at);
  } else if (evt.LeftIsDown() && draggingflowobject && !draggingflowobject->m_Destroyed) {
    const TVector2 v(static_cast<float>(step.x), static_cast<float>(step.y));
    if (auto proc = std::dynamic_pointer_cast<TAbstractProcessor>(draggingflowobject)) proc->m_Area.move(v);
    if (auto box = std::dynamic_pointer_cast<TAbstractBox>(draggingflowobject)) moveBox(*box, v);
    if (auto mgr = flowmgr ? flowmgr() : nullptr) mgr->computeSize();
    ++m_Edits;
  } else {
    hover(at);
  }
  refresh();
}

void TFlowCanvas::OnMouseLeftDown(wxMouseEvent& evt) {
  SetFocus();
  m_LeftDown = evt.GetPosition();
  if (evt.ShiftDown()) {
    startdraggingcorner = toPicture(evt.GetPosition());
    stopdraggingcorner = startdraggingcorner;
    return;
  }
  clickAt(evt.GetPosition());
  refresh();
}

void TFlowCanvas::clickAt(const wxPoint& at) {
  auto obj = hoveredObject(objectsAt(at));
  auto pin = std::dynamic_pointer_cast<TAbstractPin>(obj);
  auto active = std::dynamic_pointer_cast<TAbstractPin>(m_ActiveFlowObject);
  draggingflowobject.reset();
  if (pin && !active) {
    m_ActiveFlowObject = pin;
    return;
  }
  if (pin && active) {
    if (pin != active && pin->isInputPin() != active->isInputPin() && pin->m_Processor && pin->m_Processor->m_Box) {
      const TPinPtr out = pin->isInputPin() ? active : pin;
      const TPinPtr in = pin->isInputPin() ? pin : active;
      pin->m_Processor->m_Box->createConnection(out, in);
      // The value flows on the next pass.
      if (out->m_Data) out->markReplaced();
    }
    m_ActiveFlowObject.reset();
    return;
  }
  m_ActiveFlowObject.reset();
  if (std::dynamic_pointer_cast<TAbstractProcessor>(obj) || (isBox(obj) && !std::dynamic_pointer_cast<TCppFlowManager>(obj)))
    draggingflowobject = obj;
}

void TFlowCanvas::OnMouseLeftUp(wxMouseEvent& evt) {
  if (startdraggingcorner && stopdraggingcorner) {
    if (auto mgr = flowmgr ? flowmgr() : nullptr) {
      const TVector2 a = *startdraggingcorner;
      const TVector2 b = *stopdraggingcorner;
      const auto inside = mgr->findProcessorsInRange(TVector2(std::min(a.x, b.x), std::min(a.y, b.y)),
                                                     TVector2(std::max(a.x, b.x), std::max(a.y, b.y)));
      m_SelectedProcessors = std::set<TProcessorPtr>(inside.begin(), inside.end());
    }
  }
  startdraggingcorner.reset();
  stopdraggingcorner.reset();
  draggingflowobject.reset();
  m_LeftDown.reset();
  refresh();
  evt.Skip();
}

void TFlowCanvas::OnLeftMouseDoubleClick(wxMouseEvent& evt) {
  m_SelectedProcessors.clear();
  refresh();
  evt.Skip();
}

std::optional<std::string> TFlowCanvas::askText(const std::string& prompt, const std::string& value) {
  wxTextEntryDialog dialog(this, wxString::FromUTF8(prompt), wxString::FromUTF8(prompt), wxString::FromUTF8(value));
  if (dialog.ShowModal() != wxID_OK) return std::nullopt;
  return std::string(dialog.GetValue().utf8_str());
}

void TFlowCanvas::OnMouseRightUp(wxMouseEvent& evt) {
  auto obj = hoveredObject(objectsAt(evt.GetPosition()));
  showContextMenu(obj, evt.GetPosition());
}

void TFlowCanvas::showContextMenu(const std::shared_ptr<TFlowObject>& under, const wxPoint& at) {
  auto mgr = flowmgr ? flowmgr() : nullptr;
  if (!mgr) return;
  std::shared_ptr<TFlowObject> obj = under ? under : mgr;
  const TVector2 where = toPicture(at);
  wxMenu menu;
  std::map<int, std::function<void()>> actions;
  int next = wxID_HIGHEST + 1;
  auto entry = [&](wxMenu& m, const std::string& text, std::function<void()> action) {
    m.Append(next, wxString::FromUTF8(text));
    actions[next++] = std::move(action);
  };
  auto classTree = [&](wxMenu& m, const std::function<void(const std::string&)>& pick) {
    for (const auto& group : processors) {
      wxMenu* target = &m;
      if (!group.title.empty()) {
        target = new wxMenu;
        m.AppendSubMenu(target, wxString::FromUTF8(group.title));
      }
      for (const auto& name : group.classes) entry(*target, name, [pick, name] { pick(name); });
    }
  };
  auto box = std::dynamic_pointer_cast<TAbstractBox>(obj);
  auto proc = std::dynamic_pointer_cast<TAbstractProcessor>(obj);
  auto pin = std::dynamic_pointer_cast<TAbstractPin>(obj);
  for (const std::string& item : flowContextMenu(obj.get(), !m_SelectedProcessors.empty())) {
    if (item == "Group") {
      entry(menu, item, [this, box, where] {
        groupProcessors(*box, m_SelectedProcessors, where.x, where.y);
        m_SelectedProcessors.clear();
      });
    } else if (item == "New box") {
      entry(menu, item, [box, where] {
        auto fresh = makeBox("noname box");
        fresh->m_Area.moveTo(where);
        box->addBox(fresh);
      });
    } else if (item == "Rename box") {
      entry(menu, item, [this, box] {
        if (auto name = askText("Enter name", box->m_Type)) box->m_Type = *name;
      });
    } else if (item == "Ungroup") {
      entry(menu, item, [box] { ungroupBox(box); });
    } else if (item == "Reset camera") {
      entry(menu, item, [this] { camerapos = TVector2(0.0f, 0.0f); });
      menu.AppendSeparator();
      classTree(menu, [box, where](const std::string& name) { addProcessorAt(*box, name, where.x, where.y); });
      menu.AppendSeparator();
      entry(menu, "All settings", [box] { constructAllSettingsPanel(box); });
    } else if (item == "Rename input" || item == "Rename output") {
      entry(menu, item, [this, proc, item] {
        TPinPtr p = item == "Rename input" ? proc->getOnlyInputPin() : proc->getOnlyOutputPin();
        if (auto name = askText("Enter name", p->m_Name)) {
          if (item == "Rename input") {
            proc->m_InputPinsByName.erase(p->m_Name);
            proc->m_InputPinsByName[*name] = p;
          }
          p->m_Name = *name;
        }
      });
    } else if (item == "Change keyname") {
      entry(menu, item, [this, proc] {
        if (auto name = askText("Enter key name", proc->m_KeyName)) proc->m_KeyName = *name;
      });
    } else if (item == "Set value") {
      entry(menu, item, [this, proc] {
        auto* source = dynamic_cast<TAbstractDataSource*>(proc.get());
        TDataPtr data = source ? source->getData() : nullptr;
        if (auto text = askText("Enter value", data ? data->stringify() : "")) setSourceValue(*proc, *text);
      });
    } else if (item == "View data") {
      entry(menu, item, [this, pin] { wxMessageBox(wxString::FromUTF8(viewPinData(*pin)), "View data", wxOK, this); });
    } else if (item == "Show settings frame") {
      entry(menu, item, [proc] {
        if (auto* owner = dynamic_cast<TSettingsFrameOwner*>(proc.get())) owner->constructSettingsFrame(nullptr);
        else logInfo("Flow canvas: '" + proc->getTypeName() + "' has no settings frame");
      });
    } else if (item == "Activate") {
      entry(menu, item, [mgr, proc] { mgr->activateProcessor(proc); });
    } else if (item == "Replace by") {
      auto* sub = new wxMenu;
      classTree(*sub, [proc](const std::string& name) { replaceProcessor(proc, name); });
      menu.AppendSubMenu(sub, "Replace by");
    }
  }
  menu.Bind(wxEVT_MENU, [&](wxCommandEvent& e) {
    auto it = actions.find(e.GetId());
    if (it == actions.end()) return;
    try {
      it->second();
    } catch (const std::exception& ex) {
      logError(std::string("Flow canvas: ") + ex.what());
    }
  });
  PopupMenu(&menu, at);
  mgr->computeSize();
  ++m_Edits;
  refresh();
}

void TFlowCanvas::OnKey(wxKeyEvent& evt) {
  keyAt(evt.GetKeyCode(), evt.ControlDown(), mousepos.value_or(lastmousepos));
}

void TFlowCanvas::keyAt(int key, bool control, const wxPoint& at) {
  auto mgr = flowmgr ? flowmgr() : nullptr;
  if (!mgr) return;
  auto under = hoveredObject(objectsAt(at));
  std::shared_ptr<TFlowObject> obj = under ? under : mgr;
  try {
    if (control && key == 'C') {
      mgr->copy(obj);
    } else if (control && key == 'V') {
      const TVector2 p = toPicture(at);
      if (!mgr->paste(obj, p)) logInfo("Flow canvas: the clipboard holds no network to paste");
    } else if (key == 'D') {
      if (auto box = std::dynamic_pointer_cast<TAbstractBox>(obj);
          box && !std::dynamic_pointer_cast<TCppFlowManager>(obj)) {
        const wxString question =
            wxString::Format("Are you sure you want to delete '%s'", wxString::FromUTF8(box->getTypeName()));
        if (wxMessageBox(question, "Delete", wxYES_NO, this) != wxYES) return;
      }
      if (deleteFlowObject(obj) && obj == hoveringflowobject) hoveringflowobject.reset();
    } else if (key == 'R') {
      if (auto pin = std::dynamic_pointer_cast<TAbstractPin>(obj)) pin->setData(nullptr);
    } else if (key == 'T') {
      if (auto pin = std::dynamic_pointer_cast<TAbstractPin>(obj)) pin->markReplaced();
    } else if (key == 'Y') {
      mgr->stage1();
    } else if (key == 'U') {
      mgr->stage2();
    } else if (key == 'I') {
      for (int i = 0; i < 10; ++i) {
        mgr->stage1();
        mgr->stage2();
      }
    }
  } catch (const std::exception& e) {
    logError(std::string("Flow canvas: ") + e.what());
  }
  mgr->computeSize();
  ++m_Edits;
  refresh();
}

void openFlowCanvases(wxWindow* mainframe) {
  (void)mainframe;
  TGuiMgr* gui = guiMgr();
  if (!gui) return;
  for (const auto& [title, network] :
       {std::pair<std::string, std::function<std::shared_ptr<TFlowManager>()>>{"Flow lib", [] { return me.flowlib; }},
        {"Flow layout", [] { return me.flowlayout; }}}) {
    auto renderer = std::make_shared<TCommonRenderer>(title + " common renderer");
    gui->constructMdiWindow(title, [&](wxWindow* parent) {
      auto* canvas = new TFlowCanvas(parent, renderer, network);
      renderer->postCreate(canvas);
      return canvas;
    });
  }
}

}  // namespace quorvel
