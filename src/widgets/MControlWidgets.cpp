#include "MControlWidgets.h"

#include <pybind11/functional.h>
#include <pybind11/pybind11.h>
#include <wx/dcbuffer.h>

#include <cmath>
#include <cstdlib>

#include "data/MColorMap.h"
#include "engine/MMediator.h"
#include "widgets/MGui.h"
#include "widgets/MInspectorWidgets.h"

namespace py = pybind11;

namespace quorvel {

namespace {

// A control's panel: alive while its window is, updated by a function.
class TWindowPanel : public TProcessorPanel {
 public:
  TWindowPanel(wxWindow* window, std::function<void()> update) : m_Window(window), m_Update(std::move(update)) {}
  bool alive() const override { return m_Window.get() != nullptr; }
  void update() override {
    if (alive()) m_Update();
  }

 private:
  wxWeakRef<wxWindow> m_Window;
  std::function<void()> m_Update;
};

}  // namespace

void addPanel(TAbstractProcessor& control, wxWindow* window, std::function<void()> update) {
  if (auto* c = dynamic_cast<TControl*>(&control)) c->panels.push_back(std::make_shared<TWindowPanel>(window, update));
}

namespace {

std::string nameOr(TAbstractProcessor& control, const std::string& fallback) { return controlName(control, fallback); }

// The pins a widget changed are picked up by the flow.
void changed() { runFlowNow(); }

// ---------------------------------------------------------------------------

class TCheckBoxPanel : public wxPanel {
 public:
  TCheckBoxPanel(wxWindow* parent, const std::shared_ptr<TBooleanControl>& control)
      : wxPanel(parent), m_Control(control) {
    box = new wxCheckBox(this, wxID_ANY, "");
    auto* sizer = new wxBoxSizer(wxHORIZONTAL);
    sizer->Add(box, 1, wxEXPAND);
    SetSizer(sizer);
    box->Bind(wxEVT_CHECKBOX, [this](wxCommandEvent& e) {
      if (auto c = m_Control.lock()) {
        c->m_In->setData(std::make_shared<TBooleanData>(e.IsChecked()));
        changed();
      }
    });
    update();
  }
  void update() {
    auto c = m_Control.lock();
    auto value = c ? dataAs<TBooleanData>(c->m_In) : nullptr;
    box->SetValue(value && value->getValue());
  }
  wxCheckBox* box;

 private:
  std::weak_ptr<TBooleanControl> m_Control;
};

class TArrayPickerChoice : public wxChoice {
 public:
  TArrayPickerChoice(wxWindow* parent, const std::shared_ptr<TArrayPicker>& picker)
      : wxChoice(parent, wxID_ANY), m_Picker(picker) {
    Bind(wxEVT_CHOICE, [this](wxCommandEvent&) { choose(GetSelection()); });
    refill();
  }
  // The key names in array order, "<none>" first where allowed; attributes
  // of other types than `attrtypes` names are left out.
  void refill() {
    auto p = m_Picker.lock();
    m_Keys.clear();
    Clear();
    if (!p) return;
    m_AllowNone = !setting(p->m_Settings, "allownone").is_none() &&
                  PyObject_IsTrue(setting(p->m_Settings, "allownone").ptr()) == 1;
    std::vector<std::string> types;
    py::object wanted = setting(p->m_Settings, "attrtypes");
    if (!wanted.is_none() && py::isinstance<py::iterable>(wanted) && !py::isinstance<py::str>(wanted))
      for (auto t : wanted)
        if (py::isinstance<py::str>(t)) types.push_back(t.cast<std::string>());
    if (m_AllowNone) Append("<none>");
    if (auto array = dataAs<TDataArray>(p->m_Array))
      for (const auto& item : array->m_Items) {
        if (!item) continue;
        if (auto attr = std::dynamic_pointer_cast<TAttributeData>(item); attr && !types.empty() &&
            std::find(types.begin(), types.end(), attr->getAttributeType()) == types.end())
          continue;
        m_Keys.push_back(item->getKeyName());
        Append(wxText(item->getKeyName()));
      }
    select();
  }
  void select() {
    auto p = m_Picker.lock();
    auto key = p ? dataAs<TStringData>(p->m_Key) : nullptr;
    const int offset = m_AllowNone ? 1 : 0;
    if (!key) {
      SetSelection(m_AllowNone ? 0 : wxNOT_FOUND);
      return;
    }
    auto at = std::find(m_Keys.begin(), m_Keys.end(), key->getValue());
    SetSelection(at == m_Keys.end() ? wxNOT_FOUND : offset + static_cast<int>(at - m_Keys.begin()));
  }
  void choose(int row) {
    auto p = m_Picker.lock();
    if (!p || row < 0) return;
    const int offset = m_AllowNone ? 1 : 0;
    if (row < offset)
      p->m_Key->setData(nullptr);
    else if (static_cast<size_t>(row - offset) < m_Keys.size())
      p->m_Key->setData(std::make_shared<TStringData>(m_Keys[static_cast<size_t>(row - offset)]));
    changed();
  }

 private:
  std::weak_ptr<TArrayPicker> m_Picker;
  std::vector<std::string> m_Keys;
  bool m_AllowNone = false;
};

}  // namespace

// ---------------------------------------------------------------------------
// TSliderControlPanel

TSliderControlPanel::TSliderControlPanel(wxWindow* parent, const TProcessorPtr& control)
    : wxPanel(parent), m_Control(control) {
  // 80 pixels wide at least; as high as the slider with its ticks needs.
  SetMinSize(wxSize(80, -1));
  slider = new wxSlider(this, wxID_ANY, 0, 0, 1, wxDefaultPosition, wxDefaultSize, wxSL_HORIZONTAL | wxSL_AUTOTICKS);
  text = new wxTextCtrl(this, wxID_ANY, "", wxDefaultPosition, wxSize(30, -1), wxTE_PROCESS_ENTER);
  text->SetMinSize(wxSize(30, -1));
  // Room for the ticks below the bar, which the toolkit draws outside a
  // smaller slider.
  slider->SetMinSize(wxSize(50, std::max(slider->GetBestSize().y, 36)));
  auto* sizer = new wxBoxSizer(wxHORIZONTAL);
  sizer->Add(slider, 1, wxEXPAND);
  sizer->Add(text, 0, wxALIGN_CENTER_VERTICAL);
  SetSizer(sizer);
  slider->Bind(wxEVT_SLIDER, [this](wxCommandEvent&) { slideTo(slider->GetValue()); });
  text->Bind(wxEVT_TEXT_ENTER, [this](wxCommandEvent&) { enter(text->GetValue()); });
  update();
}

TNumberControl* TSliderControlPanel::control() const {
  auto p = m_Control.lock();
  return p ? dynamic_cast<TNumberControl*>(p.get()) : nullptr;
}

void TSliderControlPanel::update() {
  auto p = m_Control.lock();
  TNumberControl* c = control();
  if (!p || !c) return;
  const auto lo = TNumberControl::numberOn(p->getInputPinByName("min"));
  const auto hi = TNumberControl::numberOn(p->getInputPinByName("max"));
  const auto value = TNumberControl::numberOn(p->getInputPinByName("in"));
  integerMode = true;
  if (lo && hi && value) {
    if (c->isInteger()) {
      // A mark for each whole number, or about twenty over a wide range:
      // the toolkit draws every mark, and thousands make each change slow.
      const int from = static_cast<int>(*lo), to = static_cast<int>(std::max(*lo, *hi));
      if (slider->GetMin() != from || slider->GetMax() != to) {
        slider->SetRange(from, to);
        slider->SetTickFreq(std::max(1, (to - from + 19) / 20));
      }
      if (slider->GetValue() != static_cast<int>(*value)) slider->SetValue(static_cast<int>(*value));
    } else {
      integerMode = false;
      if (slider->GetMin() != 0 || slider->GetMax() != 1000) {
        slider->SetRange(0, 1000);
        slider->SetTickFreq(100);
      }
      const double span = *hi - *lo;
      const int at = span > 0.001 ? static_cast<int>(std::clamp(1000.0 * (*value - *lo) / span, 0.0, 1000.0)) : 0;
      slider->SetValue(at);
    }
  }
  if (value) {
    const wxString shown = c->isInteger() ? wxString::Format("%d", static_cast<int>(*value))
                                          : wxString::FromCDouble(static_cast<float>(*value));
    if (text->GetValue() != shown) text->ChangeValue(shown);
  }
}

void TSliderControlPanel::slideTo(int position) {
  auto p = m_Control.lock();
  TNumberControl* c = control();
  if (!p || !c) return;
  if (integerMode) {
    c->setInPlace(position);
  } else {
    const auto lo = TNumberControl::numberOn(p->getInputPinByName("min"));
    const auto hi = TNumberControl::numberOn(p->getInputPinByName("max"));
    const auto old = TNumberControl::numberOn(p->getInputPinByName("in"));
    if (!lo || !hi) return;
    const double v = *lo + position * (*hi - *lo) / 1000.0;
    const double converted = c->isInteger() ? std::trunc(v) : static_cast<float>(v);
    if (old && *old == converted) return;
    c->setInPlace(converted);
  }
  changed();
}

void TSliderControlPanel::enter(const wxString& entered) {
  auto p = m_Control.lock();
  TNumberControl* c = control();
  if (!p || !c) return;
  const std::string t = stdText(entered);
  char* end = nullptr;
  errno = 0;
  if (c->isInteger()) {
    const long v = std::strtol(t.c_str(), &end, 10);
    if (t.empty() || *end != '\0' || errno == ERANGE || v < INT32_MIN || v > INT32_MAX) {
      logError("Not an integer: '" + t + "'");
      update();
      return;
    }
    p->getInputPinByName("in")->setData(c->makeValue(static_cast<double>(v)));
  } else {
    const double v = std::strtod(t.c_str(), &end);
    // Out of range ("1e999") or no number at all: nothing changes.
    if (t.empty() || *end != '\0' || !std::isfinite(v)) {
      logError("Not a number: '" + t + "'");
      update();
      return;
    }
    p->getInputPinByName("in")->setData(c->makeValue(v));
  }
  changed();
}

// ---------------------------------------------------------------------------
// TFloatRangePanel

TFloatRangePanel::TFloatRangePanel(wxWindow* parent, const std::shared_ptr<TFloatRangeControl>& control)
    : wxPanel(parent, wxID_ANY, wxDefaultPosition, wxSize(100, 20), wxFULL_REPAINT_ON_RESIZE), m_Control(control) {
  SetMinSize(wxSize(100, 20));
  SetBackgroundStyle(wxBG_STYLE_PAINT);
  SetToolTip("Select lower bound by left-click, upper bound by right-click. Reset range by double clicking.");
  Bind(wxEVT_PAINT, &TFloatRangePanel::OnPaint, this);
  Bind(wxEVT_LEFT_DOWN, [this](wxMouseEvent& e) { leftDown(e.GetX()); });
  Bind(wxEVT_RIGHT_UP, [this](wxMouseEvent& e) { rightUp(e.GetX()); });
  Bind(wxEVT_LEFT_DCLICK, [this](wxMouseEvent&) { doubleClick(); });
}

bool TFloatRangePanel::valid() const {
  auto c = m_Control.lock();
  return c && c->m_Colormap->getData() && dataAs<TFloatPairData>(c->m_In) && dataAs<TFloatData>(c->m_Min) &&
         dataAs<TFloatData>(c->m_Max);
}

void TFloatRangePanel::leftDown(int x) {
  auto c = m_Control.lock();
  if (!valid()) return;
  c->setLower(TFloatRangeControl::valueAt(x, GetClientSize().x, dataAs<TFloatData>(c->m_Min)->getValue(),
                                          dataAs<TFloatData>(c->m_Max)->getValue()));
  changed();
}

void TFloatRangePanel::rightUp(int x) {
  auto c = m_Control.lock();
  if (!valid()) return;
  c->setUpper(TFloatRangeControl::valueAt(x, GetClientSize().x, dataAs<TFloatData>(c->m_Min)->getValue(),
                                          dataAs<TFloatData>(c->m_Max)->getValue()));
  changed();
}

void TFloatRangePanel::doubleClick() {
  auto c = m_Control.lock();
  if (!valid()) return;
  c->resetRange();
  changed();
}

void TFloatRangePanel::OnPaint(wxPaintEvent&) {
  wxAutoBufferedPaintDC dc(this);
  const wxSize size = GetClientSize();
  dc.SetBackground(*wxBLACK_BRUSH);
  dc.Clear();
  dc.SetFont(wxFont(8, wxFONTFAMILY_SWISS, wxFONTSTYLE_NORMAL, wxFONTWEIGHT_NORMAL, false, "Arial"));
  dc.SetTextForeground(*wxWHITE);
  if (!valid()) {
    dc.DrawText("n/a", 2, 4);
    return;
  }
  auto c = m_Control.lock();
  const float lo = dataAs<TFloatData>(c->m_Min)->getValue();
  const float hi = dataAs<TFloatData>(c->m_Max)->getValue();
  auto value = dataAs<TFloatPairData>(c->m_In);
  auto map = dataAs<TColorMapData>(c->m_Colormap);
  const int w = size.x;
  auto colour = [&](float f) {
    TVector4 v;
    map->getColor(f, v);
    auto byte = [](float x) { return static_cast<unsigned char>(std::clamp(x, 0.0f, 1.0f) * 255.0f); };
    return wxColour(byte(v.x), byte(v.y), byte(v.z));
  };
  float s = 0.0f, e = 1.0f;
  py::object rescale = setting(c->m_Settings, "colormaprescale");
  if (!rescale.is_none() && PyObject_IsTrue(rescale.ptr()) == 1 && hi > lo) {
    s = std::clamp((value->getFirst() - lo) / (hi - lo), 0.0f, 1.0f);
    e = std::clamp((value->getSecond() - lo) / (hi - lo), 0.0f, 1.0f);
  }
  const int xs = static_cast<int>(s * w);
  const int xe = static_cast<int>(e * w);
  dc.SetPen(*wxTRANSPARENT_PEN);
  dc.SetBrush(wxBrush(colour(0.0f)));
  dc.DrawRectangle(0, 0, xs, size.y);
  for (int i = 0; i < 20; ++i) {
    const int x0 = xs + (xe - xs) * i / 20;
    const int x1 = xs + (xe - xs) * (i + 1) / 20;
    dc.SetBrush(wxBrush(colour(static_cast<float>(i) / 20.0f)));
    dc.DrawRectangle(x0, 0, std::max(1, x1 - x0), size.y);
  }
  dc.SetBrush(wxBrush(colour(1.0f)));
  dc.DrawRectangle(xe, 0, w - xe, size.y);
  const int xl = TFloatRangeControl::xOf(value->getFirst(), w, lo, hi);
  const int xu = TFloatRangeControl::xOf(value->getSecond(), w, lo, hi);
  dc.SetPen(wxPen(wxColour(255, 0, 255)));
  dc.DrawLine(xl, 0, xl, size.y);
  dc.DrawLine(xu, 0, xu, size.y);
  const wxString lower = wxString::Format("%.2f", value->getFirst());
  const wxString upper = wxString::Format("%.2f", value->getSecond());
  const wxSize lt = dc.GetTextExtent(lower);
  const wxSize ut = dc.GetTextExtent(upper);
  dc.DrawText(lower, xl - 1 - lt.x >= 0 ? xl - 1 - lt.x : xl + 1, 0);
  dc.DrawText(upper, xu + 1 + ut.x <= w ? xu + 1 : xu - 1 - ut.x, size.y - ut.y);
}

// ---------------------------------------------------------------------------
// The filter dialog

TNominalFilterPanel::TNominalFilterPanel(wxWindow* parent, const TDataArray* attributes, const py::handle& filter)
    : wxPanel(parent), model(attributes, filter) {
  const wxString choices[] = {"None", "All", "Choice"};
  radio = new wxRadioBox(this, wxID_ANY, "Select", wxDefaultPosition, wxDefaultSize, 3, choices, 1,
                         wxRA_SPECIFY_ROWS);
  auto* left = new wxPanel(this);
  auto* leftSizer = new wxBoxSizer(wxVERTICAL);
  leftSizer->Add(new wxStaticText(left, wxID_ANY, "Attributes:"));
  attributeList = new wxCheckListBox(left, wxID_ANY);
  leftSizer->Add(attributeList, 1, wxEXPAND);
  const wxString ops[] = {"and", "or"};
  keyOp = new wxChoice(left, wxID_ANY, wxDefaultPosition, wxDefaultSize, 2, ops);
  leftSizer->Add(keyOp, 0, wxEXPAND);
  left->SetSizer(leftSizer);
  auto* right = new wxPanel(this);
  auto* rightSizer = new wxBoxSizer(wxVERTICAL);
  rightSizer->Add(new wxStaticText(right, wxID_ANY, "Values:"));
  valueList = new wxCheckListBox(right, wxID_ANY);
  rightSizer->Add(valueList, 1, wxEXPAND);
  right->SetSizer(rightSizer);
  auto* lists = new wxBoxSizer(wxHORIZONTAL);
  lists->Add(left, 1, wxEXPAND | wxALL, 5);
  lists->Add(right, 1, wxEXPAND | wxALL, 5);
  auto* sizer = new wxBoxSizer(wxVERTICAL);
  sizer->Add(radio, 0, wxEXPAND);
  sizer->Add(lists, 1, wxEXPAND);
  SetSizer(sizer);

  for (const auto& key : model.keys) attributeList->Append(wxText(key));
  for (size_t i = 0; i < model.keys.size(); ++i)
    attributeList->Check(static_cast<unsigned>(i), model.attributeChecked(model.keys[i]));
  keyOp->SetStringSelection(wxText(py::str(model.filter["key_op"]).cast<std::string>()));
  attributeList->Bind(wxEVT_LISTBOX, [this](wxCommandEvent& e) { selectAttribute(e.GetSelection()); });
  attributeList->Bind(wxEVT_CHECKLISTBOX, [this](wxCommandEvent& e) {
    checkAttribute(e.GetSelection(), attributeList->IsChecked(static_cast<unsigned>(e.GetSelection())));
  });
  valueList->Bind(wxEVT_CHECKLISTBOX, [this](wxCommandEvent& e) {
    checkValue(e.GetSelection(), valueList->IsChecked(static_cast<unsigned>(e.GetSelection())));
  });
  keyOp->Bind(wxEVT_CHOICE, [this](wxCommandEvent&) { model.setKeyOp(stdText(keyOp->GetStringSelection())); });
  radio->Bind(wxEVT_RADIOBOX, [this](wxCommandEvent& e) { setPass(e.GetSelection()); });
  // The dialog opens in the state of the filter; a filter without `pass`
  // takes the first position.
  setPass(std::clamp(model.pass(), 0, 2));
}

void TNominalFilterPanel::setPass(int pass) {
  model.setPass(pass);
  if (radio->GetSelection() != pass) radio->SetSelection(pass);
  attributeList->Enable(pass == 2);
  valueList->Enable(pass == 2);
}

void TNominalFilterPanel::selectAttribute(int row) {
  if (row < 0 || static_cast<size_t>(row) >= model.keys.size()) return;
  if (attributeList->GetSelection() != row) attributeList->SetSelection(row);
  shownAttribute = model.keys[static_cast<size_t>(row)];
  m_Values = model.values(*shownAttribute);
  valueList->Clear();
  for (size_t i = 0; i < m_Values.size(); ++i) {
    valueList->Append(wxText(py::str(m_Values[i]).cast<std::string>()));
    valueList->Check(static_cast<unsigned>(i), model.valueChecked(*shownAttribute, m_Values[i]));
  }
}

void TNominalFilterPanel::checkAttribute(int row, bool checked) {
  if (row < 0 || static_cast<size_t>(row) >= model.keys.size()) return;
  model.setAttributeChecked(model.keys[static_cast<size_t>(row)], checked);
  if (attributeList->IsChecked(static_cast<unsigned>(row)) != checked)
    attributeList->Check(static_cast<unsigned>(row), checked);
  if (checked) selectAttribute(row);
}

void TNominalFilterPanel::checkValue(int row, bool checked) {
  if (!shownAttribute || row < 0 || static_cast<size_t>(row) >= m_Values.size()) return;
  valueList->SetSelection(row);
  if (valueList->IsChecked(static_cast<unsigned>(row)) != checked) valueList->Check(static_cast<unsigned>(row), checked);
  model.setValueChecked(*shownAttribute, m_Values[static_cast<size_t>(row)], checked);
}

TFilterPanel::TFilterPanel(wxWindow* parent, const std::shared_ptr<TSelector1>& selector)
    : wxPanel(parent), m_Selector(selector) {
  button = new wxButton(this, wxID_ANY, "", wxDefaultPosition, wxSize(200, 20));
  auto* sizer = new wxBoxSizer(wxHORIZONTAL);
  sizer->Add(button, 1, wxEXPAND);
  SetSizer(sizer);
  button->Bind(wxEVT_BUTTON, [this](wxCommandEvent&) { openDialog(); });
  update();
}

void TFilterPanel::update() {
  auto s = m_Selector.lock();
  if (!s) return;
  wxString caption = wxText(nameOr(*s, "<no caption>"));
  if (auto selection = dataAs<TIntegerSetData>(s->m_Selection)) {
    auto output = dataAs<TIntegerSetData>(s->m_Output);
    const size_t passing = output ? output->getCount() : selection->getCount();
    caption += wxString::Format(" (%i / %i)", static_cast<int>(passing), static_cast<int>(selection->getCount()));
  }
  if (button->GetLabel() != caption) button->SetLabel(caption);
  py::object help = setting(s->m_Settings, "helpstring");
  button->SetToolTip(py::isinstance<py::str>(help) ? wxText(help.cast<std::string>()) : wxString());
}

void TFilterPanel::openDialog(const std::function<int(TNominalFilterPanel&)>& user) {
  auto s = m_Selector.lock();
  if (!s) return;
  auto filter = dataAs<TPythonData>(s->m_Filter);
  py::handle value = filter && filter->getValue() ? py::handle(filter->getValue().get()) : py::handle(Py_None);
  wxDialog dialog(wxGetTopLevelParent(this), wxID_ANY, wxText(nameOr(*s, s->getTypeName())), wxDefaultPosition,
                  wxSize(400, 400), wxDEFAULT_DIALOG_STYLE | wxRESIZE_BORDER);
  auto* panel = new TNominalFilterPanel(&dialog, dataAs<TDataArray>(s->m_Attributes).get(), value);
  auto* sizer = new wxBoxSizer(wxVERTICAL);
  sizer->Add(panel, 1, wxEXPAND);
  auto* buttons = new wxBoxSizer(wxHORIZONTAL);
  buttons->Add(new wxButton(&dialog, wxID_OK, "Ok"));
  buttons->Add(new wxButton(&dialog, wxID_CANCEL, "Cancel"));
  sizer->Add(buttons, 0, wxALIGN_RIGHT | wxALL, 5);
  dialog.SetSizer(sizer);
  const int answer = user ? user(*panel) : dialog.ShowModal();
  if (answer != wxID_OK) return;
  s->m_Filter->setData(std::make_shared<TPythonData>(TPyRef::borrow(panel->model.filter.ptr())));
  changed();
}

// ---------------------------------------------------------------------------

wxFrame* constructAllSettingsPanel(const TBoxPtr& box) {
  auto* frame = new wxFrame(mainWindow(), wxID_ANY, "All settings", wxGetMousePosition());
  auto* panel = new wxPanel(frame);
  auto* sizer = new wxBoxSizer(wxVERTICAL);
  std::vector<TAbstractBox*> queue{box.get()};
  for (size_t i = 0; i < queue.size(); ++i) {
    for (const auto& processor : queue[i]->m_Processors) {
      if (!dynamic_cast<TControl*>(processor.get())) continue;
      sizer->Add(new wxStaticText(panel, wxID_ANY, wxText(nameOr(*processor, "<no name>"))));
      if (wxWindow* widget = createControlWidget(processor, panel)) sizer->Add(widget, 0, wxEXPAND);
      sizer->AddSpacer(3);
    }
    for (const auto& child : queue[i]->m_Children)
      if (child) queue.push_back(child.get());
  }
  panel->SetSizer(sizer);
  sizer->Fit(panel);
  frame->SetClientSize(panel->GetSize());
  frame->Show();
  return frame;
}

void addSettingsEntries(const TBoxPtr& box, wxMenu* menu, TEventMap& eventmap) {
  if (!box) return;
  std::weak_ptr<TAbstractBox> weak = box;
  if (menu->GetMenuItemCount() > 0) menu->AppendSeparator();
  for (const auto& processor : box->m_Processors) {
    if (!dynamic_cast<TSettingsFrameOwner*>(processor.get())) continue;
    std::weak_ptr<TAbstractProcessor> owner = processor;
    const int id = eventmap.add(py::cpp_function([owner] {
                                  if (auto p = owner.lock())
                                    dynamic_cast<TSettingsFrameOwner*>(p.get())->constructSettingsFrame(mainWindow());
                                }),
                                py::tuple());
    menu->Append(id, wxText("Configure " + nameOr(*processor, processor->getTypeName())));
  }
  const int id = eventmap.add(py::cpp_function([weak] {
                                if (auto b = weak.lock()) constructAllSettingsPanel(b);
                              }),
                              py::tuple());
  menu->Append(id, "All settings");
}

wxWindow* createControlWidget(const TProcessorPtr& control, wxWindow* parent) {
  if (!control || !parent) return nullptr;
  TAbstractProcessor& p = *control;
  // The widget, as a panel of the control that `update` refreshes.
  auto panel = [&p](auto* w, auto update) -> wxWindow* {
    addPanel(p, w, [w, update] { update(w); });
    return w;
  };
  auto noUpdate = [](wxWindow*) {};
  auto button = [&](const std::string& fallback, std::function<void()> press) {
    auto* w = new wxButton(parent, wxID_ANY, wxText(nameOr(p, fallback)));
    w->Bind(wxEVT_BUTTON, [press](wxCommandEvent&) { press(); });
    return panel(w, noUpdate);
  };
  if (wxWindow* inspector = createInspectorWidget(control, parent)) return inspector;
  if (dynamic_cast<TNumberControl*>(&p))
    return panel(new TSliderControlPanel(parent, control), [](TSliderControlPanel* w) { w->update(); });
  if (auto c = std::dynamic_pointer_cast<TBooleanControl>(control))
    return panel(new TCheckBoxPanel(parent, c), [](TCheckBoxPanel* w) { w->update(); });
  if (auto c = std::dynamic_pointer_cast<TFloatRangeControl>(control))
    return panel(new TFloatRangePanel(parent, c), [](TFloatRangePanel* w) { w->Refresh(); });
  if (auto c = std::dynamic_pointer_cast<TArrayPicker>(control))
    return panel(new TArrayPickerChoice(parent, c), [](TArrayPickerChoice* w) { w->refill(); });
  if (auto c = std::dynamic_pointer_cast<TSelector1>(control))
    return panel(new TFilterPanel(parent, c), [](TFilterPanel* w) { w->update(); });
  if (auto c = std::dynamic_pointer_cast<TInvokeControl>(control)) {
    std::weak_ptr<TInvokeControl> weak = c;
    return button("<no caption>", [weak] {
      if (auto invoker = weak.lock()) {
        invoker->invoke();
        changed();
      }
    });
  }
  if (auto c = std::dynamic_pointer_cast<TSubArrayPicker>(control)) {
    std::weak_ptr<TSubArrayPicker> weak = c;
    return button("", [weak, parent] {
      if (auto picker = weak.lock()) picker->constructSettingsFrame(wxGetTopLevelParent(parent));
    });
  }
  return nullptr;
}

}  // namespace quorvel
