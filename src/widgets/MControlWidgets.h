// The widgets of the controls: what a user edits a control's value with.
// Each widget registers itself as a panel of its control, which updates it
// on every pass until its window goes.
#pragma once

#include <wx/checklst.h>
#include <wx/radiobox.h>
#include <wx/slider.h>
#include <wx/wx.h>

#include <memory>
#include <optional>

#include "analysis/MControlCores.h"
#include "analysis/MSelection.h"
#include "widgets/MGui.h"

namespace quorvel {

// Makes `window` a panel of a control, which `update` refreshes on every
// pass until the window goes.
void addPanel(TAbstractProcessor& control, wxWindow* window, std::function<void()> update);

// Makes a widget for a control, or null for a processor that is no control.
wxWindow* createControlWidget(const TProcessorPtr& control, wxWindow* parent);

// A frame at the mouse with the widgets of every control of the box and the
// boxes below it, breadth first, each under its name.
wxFrame* constructAllSettingsPanel(const TBoxPtr& box);
// What a view's context menu offers for its box: "Configure %s" for each
// processor with a settings dialog, and "All settings".
void addSettingsEntries(const TBoxPtr& box, wxMenu* menu, TEventMap& eventmap);

// A slider and a text field; integer mode while min and max are integers,
// else a slider of 0 to 1000 steps over the range.
class TSliderControlPanel : public wxPanel {
 public:
  TSliderControlPanel(wxWindow* parent, const TProcessorPtr& control);
  void update();
  wxSlider* slider;
  wxTextCtrl* text;
  bool integerMode = true;
  // What moving the slider to a position does.
  void slideTo(int position);
  // What Enter in the text field does.
  void enter(const wxString& text);

 private:
  std::weak_ptr<TAbstractProcessor> m_Control;
  TNumberControl* control() const;
};

// The range strip: the colour map between the bounds, the bounds as lines.
class TFloatRangePanel : public wxPanel {
 public:
  TFloatRangePanel(wxWindow* parent, const std::shared_ptr<TFloatRangeControl>& control);
  // Colour map, value, min and max all there.
  bool valid() const;
  void leftDown(int x);
  void rightUp(int x);
  void doubleClick();

 private:
  std::weak_ptr<TFloatRangeControl> m_Control;
  void OnPaint(wxPaintEvent& event);
};

// The filter dialog's panel: what passes, the attributes and their values.
class TNominalFilterPanel : public wxPanel {
 public:
  TNominalFilterPanel(wxWindow* parent, const TDataArray* attributes, const pybind11::handle& filter);
  TNominalFilterModel model;
  wxRadioBox* radio;
  wxCheckListBox* attributeList;
  wxCheckListBox* valueList;
  wxChoice* keyOp;
  // The attribute whose values the right list shows.
  std::optional<std::string> shownAttribute;
  void selectAttribute(int row);
  void checkAttribute(int row, bool checked);
  void checkValue(int row, bool checked);
  void setPass(int pass);

 private:
  std::vector<pybind11::object> m_Values;
};

// The button of a filter: its caption counts what passes; a press opens the
// dialog.
class TFilterPanel : public wxPanel {
 public:
  TFilterPanel(wxWindow* parent, const std::shared_ptr<TSelector1>& selector);
  void update();
  wxButton* button;
  // The dialog; with a function, that function plays the user and gives
  // wxID_OK or wxID_CANCEL in place of the modal loop.
  void openDialog(const std::function<int(TNominalFilterPanel&)>& user = nullptr);

 private:
  std::weak_ptr<TSelector1> m_Selector;
};

}  // namespace quorvel
