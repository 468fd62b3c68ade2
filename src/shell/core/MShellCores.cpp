#include "MShellCores.h"

#include <pybind11/pybind11.h>

#include <algorithm>
#include <map>

#include "analysis/MControlCores.h"
#include "data/MValues.h"
#include "engine/MRegistry.h"
#include "shell/core/MActionCores.h"

namespace quorvel {

void TMdiChildCreatorCpp::postCreate() {
  m_GuiTitle = addInputPin<TStringData>("gui title");
  m_Actions = addInputPin<TPythonData>("actions");
  m_Out = addOutputPin<TPythonData>("out");
}

void TSplitWindowProcessorCpp::postCreate() {
  m_In = addInputPin<TPythonData>("in");
  m_SashPosition = addInputPin<TIntegerData>("sash position");
  m_SashCollapseState = addInputPin<TBooleanData>("sash collapse state");
  m_SashCollapseDirection = addInputPin<TBooleanData>("sash collapse direction");
  m_Out1 = addOutputPin<TPythonData>("out1");
  m_Out2 = addOutputPin<TPythonData>("out2");
}

void TGlCanvasActionsCpp::postCreate() {
  m_Invoke = addInputPin<TAbstractData>("invoke");
  m_Actions = addOutputPin<TPythonData>("actions");
}

void TWidgetContainerCpp::postCreate() {
  m_GuiParent = addInputPin<TPythonData>("gui parent");
  m_Controls = addInputPin<TProcessorDataArray>("controls");
  m_Visible = addInputPin<TBooleanData>("visible");
  m_Settings = addInputPin<TPythonData>("settings");
}

void TValidFilePicker::postCreate() {
  m_In = addInputPin<TStringData>("in");
  m_Out = addOutputPin<TStringData>("out");
}

std::optional<std::string> groupSortKey(const std::optional<std::string>& name) {
  if (!name) return std::nullopt;
  static const std::pair<const char*, const char*> kOrder[] = {
      {"Node", "A"}, {"Edge", "B"}, {"Visual", "V"}, {"Settings", "S"}, {"Misc", "Z"}};
  for (const auto& [prefix, key] : kOrder)
    if (name->rfind(prefix, 0) == 0) return key + *name;
  return std::nullopt;
}

bool captionsItself(TAbstractProcessor& control) {
  return dynamic_cast<TSubArrayPicker*>(&control) || dynamic_cast<TSelector1*>(&control) ||
         dynamic_cast<TInvokeControl*>(&control);
}

std::vector<TControlTab> layoutControls(const std::vector<TProcessorPtr>& controls) {
  namespace py = pybind11;
  std::map<std::string, std::map<std::string, std::vector<std::pair<double, TProcessorPtr>>>> tabs;
  for (const auto& control : controls) {
    TPinPtr settings = control ? control->getInputPinByName("settings") : nullptr;
    if (!settings) continue;
    std::string group = "Settings";
    if (auto s = std::dynamic_pointer_cast<TPythonData>(settings->getData());
        s && s->getValue() && py::isinstance<py::dict>(py::handle(s->getValue().get()))) {
      py::dict d = py::reinterpret_borrow<py::dict>(py::handle(s->getValue().get()));
      if (d.contains("group")) {
        py::object g = d["group"];
        if (g.is_none()) continue;
        if (py::isinstance<py::str>(g)) group = g.cast<std::string>();
      }
    }
    py::object order = setting(settings, "order");
    const double rank = py::isinstance<py::int_>(order) || py::isinstance<py::float_>(order) ? order.cast<double>() : 0;
    const size_t point = group.find('.');
    const std::string tab = point == std::string::npos ? "Tools" : group.substr(0, point);
    const std::string name = point == std::string::npos ? group : group.substr(point + 1);
    tabs[tab][name].emplace_back(rank, control);
  }
  std::vector<TControlTab> out;
  for (auto& [tabName, groups] : tabs) {
    TControlTab tab{tabName, {}};
    for (auto& [groupName, members] : groups) {
      std::stable_sort(members.begin(), members.end(),
                       [](const auto& a, const auto& b) { return a.first < b.first; });
      TControlGroup group{groupName, {}};
      for (auto& m : members) group.controls.push_back(m.second);
      tab.groups.push_back(std::move(group));
    }
    std::stable_sort(tab.groups.begin(), tab.groups.end(), [](const TControlGroup& a, const TControlGroup& b) {
      return groupSortKey(a.name) < groupSortKey(b.name);
    });
    out.push_back(std::move(tab));
  }
  return out;
}

void registerShellCores() {
  registerActionCores();
  auto& reg = TProcessorRegistry::instance();
  reg.add<TMdiChildCreatorCpp>();
  reg.add<TSplitWindowProcessorCpp>();
  reg.add<TGlCanvasActionsCpp>();
  reg.add<TWidgetContainerCpp>();
  reg.add<TValidFilePicker>();
}

}  // namespace quorvel
