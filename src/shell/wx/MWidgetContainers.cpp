#include "MWidgetContainers.h"

#include <pybind11/pybind11.h>
#include <wx/scrolwin.h>
#include <wx/wupdlock.h>

#include "analysis/MControlCores.h"
#include "data/MValues.h"
#include "engine/MMediator.h"
#include "engine/MRegistry.h"
#include "widgets/MControlWidgets.h"

namespace py = pybind11;

namespace quorvel {

namespace {

bool showsHeader(TAbstractProcessor& control) {
  TPinPtr settings = control.getInputPinByName("settings");
  py::object show = settings ? setting(settings, "showheader") : py::object(py::none());
  return show.is_none() || PyObject_IsTrue(show.ptr()) == 1;
}

std::optional<std::string> nameOf(TAbstractProcessor& control) {
  TPinPtr settings = control.getInputPinByName("settings");
  py::object name = settings ? setting(settings, "name") : py::object(py::none());
  if (py::isinstance<py::str>(name)) return name.cast<std::string>();
  return std::nullopt;
}

}  // namespace

// ---------------------------------------------------------------------------
// TFoldPanel

TFoldPanel::TFoldPanel(wxWindow* parent, const wxString& caption) : wxPanel(parent) {
  SetName(caption);
  m_Header = new wxCollapsibleHeaderCtrl(this, wxID_ANY, caption);
  m_Pane = new wxPanel(this);
  auto* sizer = new wxBoxSizer(wxVERTICAL);
  sizer->Add(m_Header, 0, wxEXPAND);
  sizer->Add(m_Pane, 0, wxEXPAND);
  SetSizer(sizer);
  m_Header->Bind(wxEVT_COLLAPSIBLEHEADER_CHANGED, [this](wxCommandEvent&) { collapse(m_Header->IsCollapsed()); });
}

void TFoldPanel::collapse(bool collapsed) {
  m_Header->SetCollapsed(collapsed);
  m_Pane->Show(!collapsed);
  // The page scrolls over what its groups take now.
  for (wxWindow* w = this; w; w = w->GetParent()) {
    w->Layout();
    if (auto* page = dynamic_cast<wxScrolledWindow*>(w)) {
      page->FitInside();
      break;
    }
  }
}

// ---------------------------------------------------------------------------
// TToolbarPanel

TToolbarPanel::TToolbarPanel(TSizerPanel* parent) : wxNotebook(parent, wxID_ANY) {
  parent->sizer->Insert(0, this, 1, wxEXPAND);
  // A notebook squeezed below the room its tabs need (a window just made,
  // a pane being folded) upsets the toolkit: it stands hidden until there
  // is room.
  auto roomy = [parent] {
    const wxSize room = parent->GetClientSize();
    return room.x >= 60 && room.y >= 60;
  };
  Show(roomy());
  parent->Bind(wxEVT_SIZE, [this, parent, roomy](wxSizeEvent& event) {
    event.Skip();
    if (roomy() == IsShown()) return;
    // Its size first: shown, it is allocated the size it has.
    if (roomy()) SetSize(parent->GetClientSize());
    Show(roomy());
    parent->Layout();
  });
  parent->Layout();
}

void TToolbarPanel::fill(const std::vector<TProcessorPtr>& controls, bool) {
  wxWindowUpdateLocker frozen(this);
  DeleteAllPages();
  for (const TControlTab& tab : layoutControls(controls)) {
    auto* page = new wxScrolledWindow(this);
    page->SetScrollRate(0, 10);
    auto* pageSizer = new wxBoxSizer(wxVERTICAL);
    page->SetSizer(pageSizer);
    for (const TControlGroup& group : tab.groups) {
      auto* fold = new TFoldPanel(page, wxText(group.name));
      wxWindow* inner = fold->pane();
      auto* sizer = new wxBoxSizer(wxVERTICAL);
      for (const TProcessorPtr& control : group.controls) {
        const auto name = nameOf(*control);
        if (showsHeader(*control) && name && !captionsItself(*control))
          sizer->Add(new wxStaticText(inner, wxID_ANY, wxText(*name)), 0, wxLEFT | wxTOP, 3);
        if (wxWindow* widget = createControlWidget(control, inner)) sizer->Add(widget, 0, wxEXPAND | wxLEFT | wxTOP, 3);
      }
      inner->SetSizer(sizer);
      pageSizer->Add(fold, 0, wxEXPAND | wxALL, 2);
      fold->collapse(tab.groups.size() > 1);
    }
    AddPage(page, wxText(tab.name));
    page->FitInside();
  }
  GetParent()->Layout();
}

// ---------------------------------------------------------------------------
// TFloatingPanel

TFloatingPanel::TFloatingPanel(wxWindow* parent, const TProcessorPtr& container)
    : wxPanel(parent, wxID_ANY, wxDefaultPosition, wxDefaultSize, wxRAISED_BORDER), m_Container(container) {
  SetBackgroundColour(wxColour(240, 240, 240));
  SetSizer(new wxBoxSizer(wxVERTICAL));
  SetMinSize(wxSize(10, 10));
  bindMouse(this);
  Bind(wxEVT_IDLE, [this](wxIdleEvent& e) {
    e.Skip();
    place();
  });
}

void TFloatingPanel::bindMouse(wxWindow* w) {
  w->Bind(wxEVT_LEFT_DOWN, [this, w](wxMouseEvent& e) { pressAt(w->ClientToScreen(e.GetPosition())); });
  w->Bind(wxEVT_MOTION, [this, w](wxMouseEvent& e) {
    if (e.LeftIsDown()) dragTo(w->ClientToScreen(e.GetPosition()));
  });
  w->Bind(wxEVT_LEFT_UP, [this](wxMouseEvent&) { release(); });
  w->Bind(wxEVT_RIGHT_DOWN, [this](wxMouseEvent&) { showMenu(); });
  w->Bind(wxEVT_MOUSE_CAPTURE_LOST, [this](wxMouseCaptureLostEvent&) { m_Grab.reset(); });
}

void TFloatingPanel::place() {
  if (!target || !GetParent()) return;
  const wxSize area = GetParent()->GetClientSize();
  const wxSize size = GetSize();
  wxPoint at = *target;
  if (at.x < 0) at.x = area.x - size.x + at.x;
  if (at.y < 0) at.y = area.y - size.y + at.y;
  if (GetPosition() != at) Move(at);
}

void TFloatingPanel::pressAt(const wxPoint& screen) {
  Raise();
  m_Grab = screen - GetScreenPosition();
  if (!HasCapture()) CaptureMouse();
}

void TFloatingPanel::dragTo(const wxPoint& screen) {
  if (!m_Grab) return;
  target.reset();
  Move(GetParent()->ScreenToClient(screen - *m_Grab));
}

void TFloatingPanel::release() {
  m_Grab.reset();
  if (HasCapture()) ReleaseMouse();
  Refresh();
}

void TFloatingPanel::toggleVisible() {
  auto p = m_Container.lock();
  if (!p) return;
  TPinPtr visible = p->getInputPinByName("visible");
  auto now = dataAs<TBooleanData>(visible);
  visible->setData(std::make_shared<TBooleanData>(!(now ? now->getValue() : true)));
  runFlowNow();
}

void TFloatingPanel::showMenu() {
  auto p = m_Container.lock();
  if (!p) return;
  auto now = dataAs<TBooleanData>(p->getInputPinByName("visible"));
  // The settings of the box, then Hide or Unhide.
  wxMenu menu;
  auto eventmap = std::make_shared<TEventMap>();
  addSettingsEntries(p->m_Box, &menu, *eventmap);
  const int id = wxWindow::NewControlId();
  menu.Append(id, now && !now->getValue() ? "Unhide" : "Hide");
  menu.Bind(wxEVT_MENU, [this, id, eventmap](wxCommandEvent& event) {
    if (event.GetId() == id)
      CallAfter([this] { toggleVisible(); });
    else
      eventmap->run(event.GetId());
  });
  PopupMenu(&menu);
}

void TFloatingPanel::initFill(bool empty, bool visible) {
  if (!empty && visible) return;
  auto p = m_Container.lock();
  std::string title = "<no title>";
  if (p) {
    py::object t = setting(p->getInputPinByName("settings"), "title");
    if (py::isinstance<py::str>(t)) title = t.cast<std::string>();
  }
  auto* label = new wxStaticText(this, wxID_ANY, wxText(title));
  bindMouse(label);
  label->Bind(wxEVT_LEFT_DCLICK, [this](wxMouseEvent&) { CallAfter([this] { toggleVisible(); }); });
  GetSizer()->Add(label, 0, wxLEFT | wxRIGHT, 2);
}

void TFloatingPanel::fill(const std::vector<TProcessorPtr>& controls, bool visible) {
  {
    wxWindowUpdateLocker frozen(this);
    if (HasCapture()) ReleaseMouse();
    m_Grab.reset();
    GetSizer()->Clear(true);
    DestroyChildren();
    initFill(controls.empty(), visible);
    if (visible)
      for (const TProcessorPtr& control : controls) {
        wxWindow* widget = createControlWidget(control, this);
        if (!widget) continue;
        auto* label = new wxStaticText(this, wxID_ANY, wxText(nameOf(*control).value_or("<no title>")));
        label->SetFont(label->GetFont().Bold());
        bindMouse(label);
        label->Bind(wxEVT_LEFT_DCLICK, [this](wxMouseEvent&) { CallAfter([this] { toggleVisible(); }); });
        GetSizer()->Add(label, 0, wxLEFT | wxRIGHT, 2);
        GetSizer()->Add(widget, 0, wxEXPAND | wxLEFT | wxRIGHT, 4);
      }
  }
  Raise();
  Layout();
  GetSizer()->SetSizeHints(this);
  wxSize size = GetBestSize();
  size.IncTo(wxSize(10, 10));
  SetSize(size);
  place();
  Refresh();
}

// ---------------------------------------------------------------------------
// TWidgetContainer

TControlContainer* TWidgetContainer::container() { return dynamic_cast<TControlContainer*>(panel.get()); }

void TWidgetContainer::fill() {
  TControlContainer* c = container();
  if (!c) return;
  std::vector<TProcessorPtr> controls;
  if (auto array = dataAs<TProcessorDataArray>(m_Controls))
    for (const auto& item : array->m_Items)
      if (auto data = std::dynamic_pointer_cast<TProcessorData>(item); data && data->getValue())
        controls.push_back(data->getValue());
  auto visible = dataAs<TBooleanData>(m_Visible);
  c->fill(controls, !visible || visible->getValue());
}

void TWidgetContainer::process_python() {
  auto* parent = windowAs<TSizerPanel>(m_GuiParent->getData());
  bool filled = false;
  if (m_GuiParent->hasChanged() && parent && !panel) {
    py::object type = setting(m_Settings, "type");
    const std::string kind = py::isinstance<py::str>(type) ? type.cast<std::string>() : "floating";
    if (kind == "toolbar")
      panel = new TToolbarPanel(parent);
    else if (kind == "floating")
      panel = new TFloatingPanel(parent, selfPtr());
    // Controls that came before the window show in it at once.
    if (panel && m_Controls->getData()) {
      fill();
      filled = true;
    }
  }
  if (panel) panel->Raise();
  if (m_Visible->hasChanged() && parent && !filled) {
    fill();
    filled = true;
  }
  if (m_Controls->hasChanged() && panel && !filled) fill();
  if (m_Settings->hasChanged() && parent)
    if (auto* floating = dynamic_cast<TFloatingPanel*>(panel.get())) {
      py::object position = setting(m_Settings, "position");
      wxPoint at(0, 0);
      try {
        if (!position.is_none()) at = wxPoint(position[py::int_(0)].cast<int>(), position[py::int_(1)].cast<int>());
      } catch (const std::exception&) {
        at = wxPoint(0, 0);
      }
      floating->target = at;
      floating->place();
    }
  resetPins({});
}

void registerWidgetContainers() { TProcessorRegistry::instance().add<TWidgetContainer>(); }

}  // namespace quorvel
