// What is under the mouse, as text: the tooltip generators of the views,
// and the cores of the attribute inspector and the colour legend.
#pragma once

#include <cfloat>
#include <string>
#include <utility>
#include <vector>

#include "analysis/MSelection.h"
#include "data/MAttributes.h"
#include "data/MColorMap.h"
#include "data/MValues.h"
#include "engine/MFlowObjects.h"

namespace quorvel {

// One attribute summed up over a set of ids: how many have a value and how
// many not, and for a text attribute the count of each text, for any other
// the smallest and largest value.
struct TAttributeSummary {
  std::string key;
  bool isString = false;
  size_t hascount = 0;
  size_t hasnotcount = 0;
  std::vector<std::pair<std::string, size_t>> strings;  // no particular order
  float min = FLT_MAX;
  float max = -FLT_MAX;
};

// The summary of every attribute of `attributes`, in their order. Items
// that are no attribute are skipped. A "bool" column counts as numbers, a
// "variant" column as texts.
std::vector<TAttributeSummary> computeAggregation(const TDataArray& attributes, const TIdSet& selection);

// The tooltip text of a set of ids: empty for none; for one id at most five
// lines "key: value", a value of `aggattrs` (when given) taking precedence
// with "(aggregated)" behind it; for more a summary under "Brushing %i %ss".
std::string makeText(const std::string& nodeoredge, const TIdSet& selection, const TDataArray& attrs,
                     const TDataArray* aggattrs);

// What the two generators share: the attributes and ids in, the text out.
class TTooltipGeneratorBase : public TAbstractProcessor {
 public:
  TPinPtr m_Attributes, m_AggregatedAttributes, m_Selection, m_TextOut;
  std::vector<TAttributeSummary> computeAggregation() const;

 protected:
  // The pins in their order; the edge generator has no aggregated ones.
  void addPins(bool aggregated);
  // Makes the text when the inputs changed and have data.
  void generate(const char* word);
};

class TTooltipTextGeneratorCpp : public TTooltipGeneratorBase {
 public:
  QV_CLASS_NAME(TTooltipTextGeneratorCpp)
  void postCreate() override { addPins(true); }
  std::string getTypeName() override { return "tiptext gen"; }
};

class TTooltipTextGenerator : public TTooltipTextGeneratorCpp {
 public:
  QV_CLASS_NAME(TTooltipTextGenerator)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override { generate("node"); }
};

class TEdgeTooltipTextGeneratorCpp : public TTooltipGeneratorBase {
 public:
  QV_CLASS_NAME(TEdgeTooltipTextGeneratorCpp)
  void postCreate() override { addPins(false); }
  std::string getTypeName() override { return "edge tiptext gen"; }
};

class TEdgeTooltipTextGenerator : public TEdgeTooltipTextGeneratorCpp {
 public:
  QV_CLASS_NAME(TEdgeTooltipTextGenerator)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override { generate("edge"); }
};

// The lines of the attribute inspector for the first brushed id: each
// attribute's key and its text, or "<none>". No id gives no lines.
std::vector<std::pair<std::string, std::string>> inspectorLines(const TIdSet& brushed, const TDataArray& attributes);

// The attribute inspector: a panel of the window library lists what
// `inspectorLines` gives, and keeps the last list while nothing is brushed.
// It stands in a view's settings pane as a control of its own, or in a
// window given on `gui parent`.
class TAttributeInspectorViewProcessorCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TAttributeInspectorViewProcessorCpp)
  TPinPtr m_GuiParent, m_Brushed, m_Attributes, m_Settings;
  void postCreate() override;
  std::string getTypeName() override { return "attr inspector view"; }
};

// One line of the colour legend: the value as shown and its colour.
struct TLegendEntry {
  std::string text;
  TVector4 color;
};

// The legend of a colour map over an attribute: for a text attribute its
// distinct texts, for a number the ten fractions 0.0 to 0.9 of its span;
// at most 50 lines.
std::vector<TLegendEntry> legendEntries(const TAttributeData* colorAttr, const TFloatAttributeData* ordnorm,
                                        const TColorMapData* colormap);

class TColorMapInspectorCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TColorMapInspectorCpp)
  TPinPtr m_Selection, m_ColorAttr, m_ColorAttrOrdnorm, m_Colormap, m_Settings;
  void postCreate() override;
  std::string getTypeName() override { return "colormap inspec"; }
  std::vector<TLegendEntry> entries() const;
};

class TColorMapInspector : public TColorMapInspectorCpp, public TControl {
 public:
  QV_CLASS_NAME(TColorMapInspector)
  unsigned hookMask() override { return kHookProcess; }
  void process_python() override;
};

void registerInspectorCores();

}  // namespace quorvel
