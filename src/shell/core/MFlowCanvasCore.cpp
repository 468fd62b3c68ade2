#include "MFlowCanvasCore.h"

#include <algorithm>

#include "engine/MMediator.h"
#include "engine/MRegistry.h"
#include "engine/MSources.h"

namespace quorvel {

namespace {

void rect(TDrawSink& sink, TDrawSink::Primitive primitive, float x0, float y0, float x1, float y1) {
  sink.begin(primitive);
  sink.vertex(x0, y0);
  sink.vertex(x1, y0);
  sink.vertex(x1, y1);
  sink.vertex(x0, y1);
  sink.end();
}

// The outline of a pin by the first of its flags that is set.
void pinOutlineColor(TDrawSink& sink, const TAbstractPin& pin) {
  if (pin.m_DataReplaced) sink.color3(1.0f, 0.0f, 0.0f);
  else if (pin.m_DataFullUpdate) sink.color3(0.8f, 0.4f, 0.8f);
  else if (pin.m_DataHasChanged) sink.color3(0.0f, 1.0f, 0.0f);
  else sink.color3(0.0f, 0.0f, 0.0f);
}

std::string boolText(bool b) { return b ? "True" : "False"; }


}  // namespace

std::pair<float, float> TFlowCanvasCpp::getPinPosition(const TAbstractProcessor& proc, const TAbstractPin& pin,
                                                       bool center) const {
  const auto at = [&](const std::vector<TPinPtr>& pins) -> long {
    for (size_t i = 0; i < pins.size(); ++i)
      if (pins[i].get() == &pin) return static_cast<long>(i);
    return -1;
  };
  float x = 0.0f;
  float y = 0.0f;
  if (const long i = at(proc.m_InputPins); i >= 0) {
    x = proc.m_Area.tl.x + static_cast<float>(i) * m_PinWidth;
    y = proc.m_Area.tl.y - m_PinHeight;
  } else if (const long o = at(proc.m_OutputPins); o >= 0) {
    x = proc.m_Area.tl.x + static_cast<float>(o) * m_PinWidth;
    y = proc.m_Area.tl.y + proc.m_Area.getHeight();
  } else {
    return {0.0f, 0.0f};
  }
  if (center) {
    x += m_PinWidth / 2.0f;
    y += m_PinHeight / 2.0f;
  }
  return {x, y};
}

bool TFlowCanvasCpp::emphasized(const TFlowObject* obj) const {
  return obj && (obj == m_ActiveFlowObject.get() || obj == m_ClickPossibleFlowObject.get());
}

void TFlowCanvasCpp::outlinedRect(TDrawSink& sink, const TBox& area, float lineWidth) {
  rect(sink, TDrawSink::Quads, area.tl.x, area.tl.y, area.br.x, area.br.y);
  sink.color3(0.0f, 0.0f, 0.0f);
  sink.lineWidth(lineWidth);
  rect(sink, TDrawSink::LineLoop, area.tl.x, area.tl.y, area.br.x, area.br.y);
  sink.lineWidth(1.0f);
}

void TFlowCanvasCpp::drawBox(TDrawSink& sink, TAbstractBox& box) {
  if (box.m_Parent) {
    sink.loadName(box.m_Id);
    sink.color3(0.9f, 0.9f, 0.9f);
    outlinedRect(sink, box.m_Area, emphasized(&box) ? 2.0f : 1.0f);
    if (!m_Picking) drawText(box.m_Area.tl.x + 2.0f, box.m_Area.br.y - 2.0f, box.getTypeName());
  }
  sink.pushName(0);
  for (const auto& proc : std::vector<TProcessorPtr>(box.m_Processors)) drawProcessor(sink, *proc);
  sink.popName();
  for (const auto& child : std::vector<TBoxPtr>(box.m_Children)) drawBox(sink, *child);
}

void TFlowCanvasCpp::drawProcessor(TDrawSink& sink, TAbstractProcessor& proc) {
  sink.loadName(proc.m_Id);
  if (proc.hasError()) sink.color3(1.0f, 0.2f, 0.2f);
  else sink.color3(0.8f, 0.8f, 0.8f);
  const bool selected = m_SelectedProcessors.count(std::static_pointer_cast<TAbstractProcessor>(proc.shared_from_this()));
  outlinedRect(sink, proc.m_Area, emphasized(&proc) || selected ? 2.0f : 1.0f);
  if (!m_Picking) drawText(proc.m_Area.tl.x + 2.0f, proc.m_Area.br.y - 4.0f, proc.getTypeName());

  for (const auto* pins : {&proc.m_InputPins, &proc.m_OutputPins}) {
    for (const auto& pin : *pins) {
      sink.loadName(pin->m_Id);
      const auto [x, y] = getPinPosition(proc, *pin, false);
      sink.color3(0.8f, 0.8f, 0.8f);
      rect(sink, TDrawSink::Quads, x, y, x + m_PinWidth, y + m_PinHeight);
      pinOutlineColor(sink, *pin);
      sink.lineWidth(emphasized(pin.get()) ? 2.0f : 1.0f);
      rect(sink, TDrawSink::LineLoop, x, y, x + m_PinWidth, y + m_PinHeight);
      sink.lineWidth(1.0f);
    }
  }
  sink.color3(0.0f, 0.0f, 0.0f);
  for (const auto* pins : {&proc.m_InputPins, &proc.m_OutputPins}) {
    for (const auto& pin : *pins) {
      for (const auto& connector : pin->m_Connectors) {
        TAbstractPin* out = connector->m_OutputPin;
        TAbstractPin* in = connector->m_InputPin;
        if (!out || !in || !out->m_Processor || !in->m_Processor) continue;
        sink.loadName(connector->m_Id);
        const auto [x0, y0] = getPinPosition(*out->m_Processor, *out, true);
        const auto [x1, y1] = getPinPosition(*in->m_Processor, *in, true);
        sink.begin(TDrawSink::Lines);
        sink.vertex(x0, y0);
        sink.vertex(x1, y1);
        sink.end();
      }
    }
  }
}

int getTextLength(const std::string& text) {
  // Every glyph of the font, 32 to 255, is 8 pixels wide; it has no others.
  int width = 0;
  for (char c : text)
    if (static_cast<unsigned char>(c) >= 32) width += 8;
  return width;
}

std::shared_ptr<TFlowObject> hoveredObject(const std::vector<std::shared_ptr<TFlowObject>>& underMouse) {
  for (auto it = underMouse.rbegin(); it != underMouse.rend(); ++it)
    if (std::dynamic_pointer_cast<TAbstractPin>(*it)) return *it;
  return underMouse.empty() ? nullptr : underMouse.back();
}

std::string flowTooltip(TFlowObject& obj) {
  if (auto* proc = dynamic_cast<TAbstractProcessor*>(&obj)) {
    std::string text = "Name: " + proc->getTypeName() + "\n" + proc->getClassName() + "(" +
                       std::to_string(proc->m_Id) + ")";
    if (proc->hasError()) text += "\nError: " + proc->getError();
    return text;
  }
  if (auto* connector = dynamic_cast<TAbstractConnector*>(&obj)) {
    std::string text = "Connector:\n";
    TAbstractPin* out = connector->m_OutputPin;
    TAbstractPin* in = connector->m_InputPin;
    if (!out || !out->m_Data) return text + "no data";
    const TDataPtr& data = out->m_Data;
    return text + out->m_Name + "->" + (in ? in->m_Name : std::string()) + "\ntype: " + data->getClassName() +
           "\n#rows changed: " + std::to_string(data->getChangedRowCount()) + "\ndata: " + data->toString() + "\n";
  }
  if (auto* pin = dynamic_cast<TAbstractPin*>(&obj)) {
    std::string text = "pin '" + pin->m_Name + "' (" + (pin->isInputPin() ? "in" : "out") + ") (" +
                       std::to_string(pin->m_Id) + "):" + pin->getAcceptedType() + " \n";
    if (!pin->m_Data) return text + "no data";
    const TDataPtr& data = pin->m_Data;
    return text + "type: " + data->getClassName() + " (id: " + std::to_string(data->m_DataId) +
           ", haschanged: " + boolText(data->m_HasChanged) + ") \n#rows changed: " +
           std::to_string(data->getChangedRowCount()) + "\nkeyname: " + data->getKeyName() + "\ndata: " + data->toString();
  }
  return obj.toString();
}

std::vector<TFlowClassMenu> flowClassMenus() {
  static const std::vector<TFlowClassMenu> kMenus = {
      {"", {"TAbstractIdentityProcessor"}},
      {"Loaders", {"TDatabaseLoader", "TDatasetLoader", "TIconLoader", "TIconAttributeCreator", "TColorMapLoader"}},
      {"Data sources",
       {"TStringDataSource", "TStringListDataSource", "TIntDataSource", "TFloatDataSource", "TBooleanDataSource",
        "TFloatPairDataSource", "TPythonDataSource", "TBoolAttributeDataSource", "TIntegerSetDataSource",
        "TStringDataArraySource"}},
      {"Utilities",
       {"TArrayPicker", "TSubArrayPicker", "TKeyNameSetter", "TControlGatherer", "TInputPrintProcessor", "TGetCount",
        "TIntegerPairSetUnion", "TAttributeUnion", "TAssignWhenInput1IsNotNone", "TIntegerMinusOne", "TIntegerPlusOne",
        "TArrayCreator", "TActionMerger", "TSetIntersection", "TSetSubtract", "TSetOr", "TIdentityOrNull",
        "TAddAndClamp", "TInvert", "TFromToAttributeCreator", "THookProcessor", "TStackStore"}},
      {"Processors",
       {"TFilterProcessor", "TExclusionFilterProcessor", "TTreePruner", "TTooltipTextGenerator",
        "TEdgeTooltipTextGenerator", "TCollapseProcessor", "TAttributeNormalizerProcessor",
        "TAttributeArrayNormalizerProcessor", "TEdgeCollapsedProcessor", "TEdgeColorProcessor",
        "THierarchyLevelExtractor", "TColormapRescaler", "TLftPairsToEids", "TEidsToLftPairs", "TAttributeAggregator",
        "TFanAttributeProcessor", "TIdAttributeProcessor", "TSecondarySelectionComputer", "TLevelEqualizer",
        "TCollapsedStateInitializer"}},
      {"Gui components",
       {"TIntegerControl", "TFloatControl", "TBooleanControl", "TInvokeControl", "TFloatRangeControl", "TSelector1",
        "TSelector2", "TWidgetContainer", "TColorMapInspector", "TMdiChildCreator", "TSplitWindowProcessor"}},
      {"Actions",
       {"THierarchyActions", "TGlCanvasActions", "TCommonNodeEdgeActions", "TNodeEdgeActionsForView",
        "TInternalSelectionActions", "TListHeaderActions"}},
      {"Visualization components",
       {"THebProcessor", "TTreemapProcessor", "TTreeViewProcessor", "TListGuiProcessor", "TTableLensProcessor",
        "TAttributeInspectorViewProcessor", "TCodeTextControl"}},
  };
  static std::set<std::string> said;
  const auto& registry = TProcessorRegistry::instance();
  std::vector<TFlowClassMenu> menus;
  for (const auto& menu : kMenus) {
    TFlowClassMenu kept{menu.title, {}};
    for (const auto& name : menu.classes) {
      if (registry.find(name)) kept.classes.push_back(name);
      else if (said.insert(name).second) logInfo("Flow canvas: this build has no class '" + name + "'");
    }
    menus.push_back(std::move(kept));
  }
  return menus;
}

std::vector<std::string> flowContextMenu(TFlowObject* obj, bool processorsSelected) {
  auto* box = dynamic_cast<TAbstractBox*>(obj);
  if (!obj || box) {
    if (processorsSelected) return {"Group"};
    return {"New box", "Rename box", "Ungroup", "Reset camera"};
  }
  if (auto* proc = dynamic_cast<TAbstractProcessor*>(obj)) {
    if (proc->isIdentity()) return {"Rename input", "Rename output", "Change keyname"};
    if (proc->isDataSource()) return {"Set value", "Change keyname"};
    return {"Change keyname", "Show settings frame", "Activate", "Replace by"};
  }
  if (dynamic_cast<TAbstractPin*>(obj)) return {"View data"};
  return {};
}

TProcessorPtr addProcessorAt(TAbstractBox& box, const std::string& classname, float x, float y) {
  auto manager = std::dynamic_pointer_cast<TFlowManager>(box.getFlowManager());
  if (!manager) throw TFlowError("The box is in no network");
  TProcessorPtr proc = manager->constructProcessor(classname);
  if (!proc) throw TFlowError("Cannot construct processor '" + classname + "'");
  proc->m_Area = TBox(0.0f, 0.0f, static_cast<float>(getTextLength(proc->getTypeName()) + 2), 20.0f);
  proc->m_Area.moveTo(TVector2(x, y));
  box.addProcessor(proc);
  return proc;
}

TProcessorPtr replaceProcessor(const TProcessorPtr& old, const std::string& classname) {
  if (!old->m_Box) throw TFlowError("replaceProcessor: the processor is in no box");
  TBoxPtr box = old->m_Box;
  TProcessorPtr fresh = addProcessorAt(*box, classname, old->m_Area.tl.x, old->m_Area.tl.y);
  // The connectors of each old pin again, on the new pin of its name.
  for (const auto& pin : std::vector<TPinPtr>(old->m_InputPins)) {
    TPinPtr now = fresh->getInputPinByName(pin->m_Name);
    if (!now) continue;
    for (const auto& c : std::vector<TConnectorPtr>(pin->m_Connectors))
      if (TPinPtr out = c->getOutputPin()) box->createConnection(out, now);
  }
  for (const auto& pin : std::vector<TPinPtr>(old->m_OutputPins)) {
    TPinPtr now = fresh->getOutputPinByName(pin->m_Name);
    if (!now) continue;
    for (const auto& c : std::vector<TConnectorPtr>(pin->m_Connectors))
      if (TPinPtr in = c->getInputPin()) box->createConnection(now, in);
  }
  old->destroy();
  return fresh;
}

TBoxPtr groupProcessors(TAbstractBox& box, const std::set<TProcessorPtr>& processors, float x, float y) {
  auto group = makeBox("noname box");
  group->m_Area.moveTo(TVector2(x, y));
  box.addBox(group);
  for (const auto& proc : processors)
    if (proc && !proc->m_Destroyed) proc->reparent(group);
  box.getFlowManager()->computeSize();
  return group;
}

void ungroupBox(const TBoxPtr& box) {
  TBoxPtr parent = box->getParent();
  if (!parent || parent == box) throw TFlowError("parentbox == box");
  for (const auto& proc : std::vector<TProcessorPtr>(box->m_Processors)) proc->reparent(parent);
  box->destroy();
}

bool deleteFlowObject(const std::shared_ptr<TFlowObject>& obj) {
  if (!obj || std::dynamic_pointer_cast<TCppFlowManager>(obj)) return false;
  if (auto pin = std::dynamic_pointer_cast<TAbstractPin>(obj)) {
    for (const auto& c : std::vector<TConnectorPtr>(pin->m_Connectors)) c->destroy();
    return true;
  }
  obj->destroy();
  return true;
}

void setSourceValue(TAbstractProcessor& source, const std::string& text) {
  auto* s = dynamic_cast<TAbstractDataSource*>(&source);
  if (!s) throw TFlowError("'" + source.getTypeName() + "' holds no value of its own");
  s->ensureDataExists();
  TDataPtr data = s->getData();
  if (!data) throw TFlowError("'" + source.getTypeName() + "' has no value to set");
  // Read as a new value first: a text that is no form of the type leaves
  // the value as it was.
  if (TDataRegistry::instance().isKnown(data->getClassName())) makeData(data->getClassName(), text);
  data->unstringify(text);
  data->setHasChanged();
  s->setData(data);
}

std::string viewPinData(const TAbstractPin& pin) { return pin.m_Data ? pin.m_Data->toString() : "none"; }

}  // namespace quorvel
