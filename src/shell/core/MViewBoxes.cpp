// The view boxes of the library. A view box has ports named as BMain's
// output ports, through which autoconnect joins it to the dataset.
#include <pybind11/pybind11.h>

#include "analysis/MMainBox.h"
#include "engine/MLibrary.h"
#include "engine/MPython.h"
#include "engine/MRegistry.h"
#include "data/MDataSources.h"
#include "shell/core/MShellCores.h"
#include "views/core/MHebCore.h"
#include "views/core/MTableLensCore.h"
#include "views/core/MTreemapCore.h"
#include "views/core/MTreeViewCore.h"
#include "views/core/MViewCores.h"
#include "data/MValues.h"

#include <map>

namespace quorvel {

namespace {

// The colours of folded edges: an edge attribute picked by key, its numeric
// form, its span as a range control, and a colour map picked by key and
// stretched over that range. The key sources ("edge color attr source",
// "edge colormap source") hold what the user chose; the pickers carry the
// control settings given, so a box with a settings pane shows them there.
struct TEdgeColorChain {
  TProcessorPtr attr, ord, rescaler, colors;
};
TEdgeColorChain addEdgeColorChain(TFlowManager& lib, const TBoxPtr& box, const TProcessorPtr& edgeAttributes,
                                  const std::string& attributesPin, const TProcessorPtr& colormaps,
                                  const std::string& colormapsPin, const TProcessorPtr& edgeCollapsed,
                                  const std::string& colorsName, const char* attrControl, const char* mapControl,
                                  float x, float y) {
  TEdgeColorChain chain;
  auto colorKey = addSource(lib, box, "TStringDataSource", "edge color attr source", nullptr, x + 200, y - 60);
  chain.attr = addPicker(lib, box, "edge color attr picker", edgeAttributes, attributesPin, colorKey, attrControl,
                         x + 200, y - 40);
  chain.ord = addNamed(lib, box, "TAttributeNormalizerProcessor", "edge color ordnorm", x + 200, y - 20);
  wire(box, chain.attr, "out", chain.ord, "in");
  auto span = addNamed(lib, box, "TGetCount", "edge color range", x + 200, y);
  wire(box, chain.ord, "out", span, "in");
  // The range control is a tool of its own in no pane; the map's picker
  // stands for the colouring there.
  auto rangeControl = addNamed(lib, box, "TFloatRangeControl", "edge color range control", x + 200, y + 20);
  wire(box, span, "min", rangeControl, "min");
  wire(box, span, "max", rangeControl, "max");
  wire(box, addSource(lib, box, "TPythonDataSource", "edge color range settings", scriptValue("{'group': None}"),
                      x + 300, y),
       "out", rangeControl, "settings");
  auto mapKey = addSource(lib, box, "TStringDataSource", "edge colormap source", nullptr, x + 400, y - 40);
  auto mapPicker = addPicker(lib, box, "edge colormap picker", colormaps, colormapsPin, mapKey, mapControl, x + 400,
                             y - 20);
  chain.rescaler = addNamed(lib, box, "TColormapRescaler", "edge colormap rescaler", x + 400, y + 40);
  wire(box, mapPicker, "out", chain.rescaler, "colormap");
  wire(box, rangeControl, "normalized", chain.rescaler, "range");
  auto aggregation = addSource(lib, box, "TStringDataSource", "edge color aggregation",
                               std::make_shared<TStringData>("max"), x + 500, y + 40);
  chain.colors = addNamed(lib, box, "TEdgeColorProcessor", colorsName, x, y + 60);
  wire(box, edgeCollapsed, "out", chain.colors, "edge collapsed");
  wire(box, chain.attr, "out", chain.colors, "edge colorattr");
  wire(box, chain.ord, "out", chain.colors, "edge colorattr ord");
  wire(box, chain.rescaler, "out", chain.colors, "edge colormap");
  wire(box, aggregation, "out", chain.colors, "aggregation");
  return chain;
}


// The icons by the texts of "type", or none.
const char* const kIconPickerSettings =
    "{'allownone': True, 'defaultkey': [\"icon for 'type'\"], 'name': 'Icon attribute', 'group': 'Node labels', "
    "'order': 2}";

// The shown columns of an id view: a key list (by default all but the
// internal keys) and the picker that takes those columns from `attributes`.
struct TColumns {
  TProcessorPtr keys, picker;
};
TColumns addColumns(TFlowManager& lib, const TBoxPtr& box, const TProcessorPtr& attributes,
                    const char* settings = "{'defaultkeys': 'all', 'name': 'Columns...', 'group': 'Settings'}") {
  auto keys = addSource(lib, box, "TStringListDataSource", "column keys", nullptr, 100, 40);
  auto columnSettings = addSource(lib, box, "TPythonDataSource", "column picker settings", scriptValue(settings), 150, 40);
  auto columns = addNamed(lib, box, "TSubArrayPicker", "column picker", 100, 60);
  wire(box, attributes, "out", columns, "array");
  wire(box, keys, "out", columns, "keys");
  wire(box, columnSettings, "out", columns, "settings");
  return {keys, columns};
}

// The header commands of an id view: sorting by the clicked column, and
// removing or configuring columns.
void addHeaderActions(TFlowManager& lib, const TBoxPtr& box, const TProcessorPtr& view, const TColumns& columns,
                      const TProcessorPtr& sort) {
  auto header = addNamed(lib, box, "TListHeaderActions", "list header actions", 700, 80);
  wire(box, view, "on column right click", header, "column index");
  wire(box, columns.picker, "out", header, "attributes");
  wire(box, sort, "out", header, "sort");
  wire(box, columns.keys, "out", header, "keys");
  wire(box, header, "actions", view, "header actions");
}

// Moving the rows marked in a view into the shared selection and out.
TProcessorPtr addInternalSelectionActions(TFlowManager& lib, const TBoxPtr& box, const TProcessorPtr& internal,
                                          const TProcessorPtr& selectionB) {
  auto actions = addNamed(lib, box, "TInternalSelectionActions", "internal sel actions", 600, 80);
  wire(box, internal, "out", actions, "internal selection");
  wire(box, selectionB, "out", actions, "selection b");
  return actions;
}

// A view's window split in two: the view at the left, and at the right a
// pane of the controls of its box, in tabs of folding groups. The pane's
// width (from the right edge) and whether it is folded (a double click on
// the sash) are values of the box, and so stored with the perspective.
// Gives the processor whose "out1" is the view's panel.
TProcessorPtr addSettingsPane(TFlowManager& lib, const TBoxPtr& box, const TProcessorPtr& window) {
  auto split = addNamed(lib, box, "TSplitWindowProcessor", "pane split", 0, 60);
  wire(box, window, "out", split, "in");
  wire(box, addSource(lib, box, "TIntDataSource", "settings pane width", std::make_shared<TIntegerData>(-240), 0, 20), "out",
       split, "sash position");
  wire(box,
       addSource(lib, box, "TBooleanDataSource", "settings pane collapse state", std::make_shared<TBooleanData>(false), 50, 20),
       "out", split, "sash collapse state");
  wire(box,
       addSource(lib, box, "TBooleanDataSource", "settings pane collapse direction", std::make_shared<TBooleanData>(true), 100,
                 20),
       "out", split, "sash collapse direction");
  auto gatherer = addNamed(lib, box, "TControlGatherer", "controls", 100, 60);
  auto pane = addNamed(lib, box, "TWidgetContainer", "settings pane", 150, 60);
  wire(box, split, "out2", pane, "gui parent");
  wire(box, gatherer, "out", pane, "controls");
  wire(box, addSource(lib, box, "TPythonDataSource", "settings pane settings", scriptValue("{'type': 'toolbar'}"), 150,
                      20),
       "out", pane, "settings");
  return split;
}

// A value the pane edits: held by a source of the box (the key name is the
// control's name) that feeds the view's pin, and a control of it under
// settings that place it in the pane. Gives the control.
TProcessorPtr addHeldControl(TFlowManager& lib, const TBoxPtr& box, const TProcessorPtr& view, const std::string& pin,
                             const std::string& name, const std::string& group, int order, const char* source,
                             const char* controlClass, const TDataPtr& value, float x) {
  auto held = addSource(lib, box, source, name, value, x, 300);
  auto control = addNamed(lib, box, controlClass, name + " control", x, 340);
  wire(box, held, "out", control, "in");
  wire(box, held, "out", view, pin);
  const std::string settings = "{'name': '" + name + "', 'group': '" + group + "', 'order': " + std::to_string(order) + "}";
  wire(box, addSource(lib, box, "TPythonDataSource", name + " settings", scriptValue(settings.c_str()), x + 40, 320),
       "out", control, "settings");
  return control;
}

// A number the pane's slider edits, with its bounds held by sources too.
void addNumberControl(TFlowManager& lib, const TBoxPtr& box, const TProcessorPtr& view, const std::string& pin,
                      const std::string& name, const std::string& group, int order, bool integer, double value,
                      double min, double max, float x) {
  const char* source = integer ? "TIntDataSource" : "TFloatDataSource";
  auto make = [&](double v) -> TDataPtr {
    if (integer) return std::make_shared<TIntegerData>(static_cast<int32_t>(v));
    return std::make_shared<TFloatData>(static_cast<float>(v));
  };
  auto control = addHeldControl(lib, box, view, pin, name, group, order, source,
                                integer ? "TIntegerControl" : "TFloatControl", make(value), x);
  wire(box, addSource(lib, box, source, name + " min", make(min), x, 320), "out", control, "min");
  wire(box, addSource(lib, box, source, name + " max", make(max), x + 20, 320), "out", control, "max");
}

// BListView: the ids of one selection of the dataset with all their
// attributes as a report list. Its ports take the node or the edge names
// when it is opened ("node attributes", ...).
void buildListView(TFlowManager& lib) {
  auto box = makeBox("BListView");
  lib.addBox(box);
  auto title = addTitlePort(lib, box, defaultGuiTitle(box->m_Type), 0, 0);
  auto attributes = addInputPort(lib, box, "attributes", 100, 0);
  auto selections = addInputPort(lib, box, "selections", 200, 0);
  auto selectionB = addInputPort(lib, box, "selection b", 300, 0);
  auto icons = addInputPort(lib, box, "icon attributes", 400, 0);

  auto window = addNamed(lib, box, "TMdiChildCreator", "mdichild", 0, 40);
  wire(box, title, "out", window, "gui title");

  auto selection = addPicker(lib, box, "selection picker", selections, "out", nullptr,
                             "{'defaultkey': ['all nodes', 'all edges'], 'name': 'Rows', 'group': 'Settings'}", 200, 60);
  auto iconPicker = addPicker(lib, box, "icon picker", icons, "out", nullptr, kIconPickerSettings, 400, 60);

  const TColumns columns = addColumns(lib, box, attributes);
  auto sort = addSource(lib, box, "TPythonDataSource", "sort", nullptr, 600, 40);
  auto internal = addNamed(lib, box, "TIntegerSetDataSource", "internal selection", 700, 40);

  auto list = addNamed(lib, box, "TListGuiProcessor", "list view", 0, 100);
  wire(box, addSettingsPane(lib, box, window), "out1", list, "gui parent");
  wire(box, columns.picker, "out", list, "attributes");
  wire(box, sort, "out", list, "sort");
  wire(box, selection, "out", list, "selection");
  wire(box, selectionB, "out", list, "selection b");
  wire(box, internal, "out", list, "internal selection");
  wire(box, iconPicker, "out", list, "icon attr");
  wire(box, columns.keys, "out", list, "keys");

  // Rows: deselecting, and moving the marked rows into the shared
  // selection; headers: sorting and columns.
  auto nodeSelection = addInputPort(lib, box, "node primary selection", 500, 0);
  auto edgeSelection = addInputPort(lib, box, "edge primary selection", 600, 0);
  auto common = addNamed(lib, box, "TCommonNodeEdgeActions", "common n/e actions", 500, 80);
  wire(box, nodeSelection, "out", common, "node user selection");
  wire(box, edgeSelection, "out", common, "edge user selection");
  auto merger = addNamed(lib, box, "TActionMerger", "row actions", 500, 100);
  wire(box, addInternalSelectionActions(lib, box, internal, selectionB), "actions", merger, "in1");
  wire(box, common, "actions", merger, "in2");
  wire(box, merger, "out", list, "actions");
  addHeaderActions(lib, box, list, columns, sort);
}

// The ports of a view box, by BMain's names, in one row.
std::map<std::string, TProcessorPtr> addPorts(TFlowManager& lib, const TBoxPtr& box,
                                               std::initializer_list<const char*> names) {
  std::map<std::string, TProcessorPtr> port;
  float x = 0;
  for (const char* name : names) {
    port[name] = std::string(name) == "gui title" ? addTitlePort(lib, box, defaultGuiTitle(box->m_Type), x, 0)
                                                  : addInputPort(lib, box, name, x, 0);
    x += 100;
  }
  return port;
}

struct TViewHierarchy {
  TProcessorPtr pruned, collapser;
};

// A view's own hierarchy: the nodes of `shown` less its hidden nodes, with
// their ancestors, folded by the shared collapsed state.
TViewHierarchy addViewHierarchy(TFlowManager& lib, const TBoxPtr& box, std::map<std::string, TProcessorPtr>& port,
                                const TProcessorPtr& shownFrom, const char* shownPin) {
  auto hidden = addSource(lib, box, "TIntegerSetDataSource", "hidden nodes", std::make_shared<TIntegerSetData>(), 300,
                          80);
  auto shown = addNamed(lib, box, "TSetSubtract", "shown nodes", 200, 100);
  wire(box, shownFrom, shownPin, shown, "in1");
  wire(box, hidden, "out", shown, "in2");
  auto pruned = addNamed(lib, box, "TTreePruner", "filtered hierarchy", 200, 120);
  wire(box, port["full hierarchy"], "out", pruned, "hierarchy");
  wire(box, shown, "out", pruned, "selection");
  auto collapser = addNamed(lib, box, "TCollapseProcessor", "view collapser", 200, 140);
  wire(box, port["full hierarchy"], "out", collapser, "full hierarchy");
  wire(box, pruned, "hierarchy", collapser, "hierarchy");
  wire(box, port["collapsed attr"], "out", collapser, "boolattribute");
  return {pruned, collapser};
}

// The folding and undo commands of a node view, with the screenshots,
// joined for its menus and keys. Folding works on the selection, or on the
// node under the mouse while nothing is selected.
// A view without hover names its own second source of active nodes.
TProcessorPtr addNodeViewActions(TFlowManager& lib, const TBoxPtr& box, std::map<std::string, TProcessorPtr>& port,
                                 const TViewHierarchy& h, const TProcessorPtr& activeToo = nullptr) {
  auto active = addNamed(lib, box, "TSetOr", "active nodes", 100, 220);
  wire(box, port["node primary selection"], "out", active, "in1");
  wire(box, activeToo ? activeToo : port["brushed nodes"], "out", active, "in2");
  auto canvasActions = addNamed(lib, box, "TGlCanvasActions", "glcanvas actions", 0, 220);
  auto hierarchyActions = addNamed(lib, box, "THierarchyActions", "hierarchy actions", 100, 240);
  wire(box, active, "out", hierarchyActions, "active nodes");
  wire(box, port["node primary selection"], "out", hierarchyActions, "node user selection");
  wire(box, port["full hierarchy"], "out", hierarchyActions, "full hierarchy");
  wire(box, h.pruned, "hierarchy", hierarchyActions, "filtered hierarchy");
  wire(box, h.collapser, "collapsed hierarchy out", hierarchyActions, "collapsed hierarchy");
  wire(box, port["collapsed attr"], "out", hierarchyActions, "collapsed attr");
  wire(box, port["level attr"], "out", hierarchyActions, "level attr");
  auto viewActions = addNamed(lib, box, "TNodeEdgeActionsForView", "n/e actions for view", 200, 240);
  wire(box, port["node primary selection"], "out", viewActions, "node user selection");
  wire(box, port["edge primary selection"], "out", viewActions, "edge user selection");
  wire(box, port["edges"], "out", viewActions, "edge data");
  wire(box, port["collapse stack"], "out", viewActions, "collapse stack");
  auto merger = addNamed(lib, box, "TActionMerger", "view actions", 100, 260);
  wire(box, canvasActions, "actions", merger, "in1");
  wire(box, hierarchyActions, "actions", merger, "in2");
  wire(box, viewActions, "actions", merger, "in3");
  return merger;
}

// The text and colour attributes of a node view and its colour map, picked
// by keys that sources in the box hold (the settings give the key taken
// while a source is empty), wired to the view's pins of the same names.
void addNodeAttributePickers(TFlowManager& lib, const TBoxPtr& box, std::map<std::string, TProcessorPtr>& port,
                             const TProcessorPtr& view) {
  auto picker = [&](const std::string& name, const TProcessorPtr& array, const TProcessorPtr& key,
                    const char* settings, float px) { return addPicker(lib, box, name, array, "out", key, settings, px, 200); };
  auto textKey = addSource(lib, box, "TStringDataSource", "node text attr source", nullptr, 200, 180);
  auto colorKey = addSource(lib, box, "TStringDataSource", "node color attr source", nullptr, 300, 180);
  auto mapKey = addSource(lib, box, "TStringDataSource", "node colormap source", nullptr, 400, 180);
  wire(box,
       picker("node text attr picker", port["node attributes"], textKey,
              "{'defaultkey': 'name', 'name': 'Label attribute', 'group': 'Node labels', 'order': 1}", 200),
       "out", view, "node text attr");
  wire(box,
       picker("node color attr picker", port["node attributes"], colorKey,
              "{'defaultkey': 'type', 'name': 'Color attribute', 'group': 'Node colors', 'order': 1}", 300),
       "out", view, "node color attr");
  // The same key on the normalised columns: no control of its own.
  wire(box,
       picker("node color ordnorm picker", port["node attributes ordnorm"], colorKey,
              "{'defaultkey': 'type', 'group': None}", 400),
       "out", view, "node color attr ordnorm");
  wire(box,
       picker("node colormap picker", port["colormaps"], mapKey,
              "{'defaultkey': 'Types', 'name': 'Color map', 'group': 'Node colors', 'order': 2}", 500),
       "out", view, "node colormap");
}

// A strip over the values of the colour attribute: the nodes whose value
// lies between its bounds pass `narrowing` (a TSelector2 made before, so
// that the view's hierarchy could take its output). An attribute that is
// no number has no bounds, and everything passes.
void addColorRange(TFlowManager& lib, const TBoxPtr& box, const TProcessorPtr& narrowing, const TProcessorPtr& from,
                   const char* fromPin) {
  auto colorAttr = box->getProcessorByName("node color attr picker");
  auto span = addNamed(lib, box, "TGetCount", "color attr span", 700, 180);
  wire(box, colorAttr, "out", span, "in");
  auto range = addNamed(lib, box, "TFloatRangeControl", "color range", 700, 200);
  wire(box, span, "min", range, "min");
  wire(box, span, "max", range, "max");
  wire(box, box->getProcessorByName("node colormap picker"), "out", range, "colormap");
  wire(box, addSource(lib, box, "TPythonDataSource", "color range settings",
                      scriptValue("{'name': 'Color range', 'group': 'Node colors', 'order': 3, "
                                  "'colormaprescale': False}"),
                      750, 180),
       "out", range, "settings");
  wire(box, addSource(lib, box, "TFloatPairDataSource", "color range value", nullptr, 650, 180), "out", range, "in");
  wire(box, from, fromPin, narrowing, "selection");
  wire(box, colorAttr, "out", narrowing, "attribute");
  wire(box, range, "normalized", narrowing, "range");
}

// A selection of the ids of a port by a filter dictionary held in a source
// ("<prefix> value" or as named), under settings that let everything pass
// while no filter is set.
struct TAttributeFilter {
  TProcessorPtr selector, value;
};
TAttributeFilter addAttributeFilter(TFlowManager& lib, const TBoxPtr& box, std::map<std::string, TProcessorPtr>& port,
                                    const std::string& name, const std::string& valueName,
                                    const std::string& settingsName, const TDataPtr& filter, const char* ids,
                                    const char* attributes, float x, float y, const std::string& control = "None") {
  // `control`: the settings' name and group, or None for no control.
  const std::string text = "{'filterdefault': 1, " +
                           (control == "None" ? std::string("'group': None") : control) + "}";
  auto value = addSource(lib, box, "TPythonDataSource", valueName, filter, x, y);
  auto settings = addSource(lib, box, "TPythonDataSource", settingsName, scriptValue(text.c_str()), x + 50, y);
  auto selector = addNamed(lib, box, "TSelector1", name, x, y + 20);
  wire(box, port[ids], "out", selector, "selection");
  wire(box, port[attributes], "out", selector, "attributes");
  wire(box, value, "out", selector, "filter");
  wire(box, settings, "out", selector, "settings");
  return {selector, value};
}

// The node or edge inclusion filter of a view: a filter button in its pane
// ("Node filter", "Edge filter") whose value a listening process hears.
TProcessorPtr addInclusionFilter(TFlowManager& lib, const TBoxPtr& box, std::map<std::string, TProcessorPtr>& port,
                                 const std::string& kind, float x) {
  const bool node = kind == "node";
  const std::string control = "'name': '" + std::string(node ? "Node filter" : "Edge filter") +
                              "', 'group': 'Misc filters', 'helpstring': 'Which " + kind + "s the view shows'";
  auto f = addAttributeFilter(lib, box, port, node ? "Node inclusion filter" : "Edge inclusion filter",
                              kind + " inclusion filter value", kind + " inclusion filter settings", nullptr,
                              node ? "all nodes" : "all edges", node ? "node attributes" : "edge attributes", x, 40,
                              control);
  wire(box, f.value, "out", addNamed(lib, box, "THookProcessor", kind + " inclusion filter hook", x + 50, 80), "in");
  return f.selector;
}

// The attribute inspector at the top of a view's pane: every attribute of
// the hovered id.
void addAttributeInspector(TFlowManager& lib, const TBoxPtr& box, const TProcessorPtr& brushed,
                           const TProcessorPtr& attributes) {
  auto inspector = addNamed(lib, box, "TAttributeInspectorViewProcessor", "attribute inspector", 900, 300);
  wire(box, brushed, "out", inspector, "brushed");
  wire(box, attributes, "out", inspector, "attributes");
  wire(box, addSource(lib, box, "TPythonDataSource", "attribute inspector settings",
                      scriptValue("{'name': 'Attributes', 'group': 'Inspector', 'order': 1}"), 950, 280),
       "out", inspector, "settings");
}

// What a node view tells about what is under the mouse: the tooltip texts
// of the hovered nodes (folded ones with the colour attribute summed up
// from below, marked "(aggregated)") and, with `hoveredEdges`, of the
// hovered edges; the attribute inspector at the top of the pane and the
// legend of the colour map beside the colour pickers.
void addInspectors(TFlowManager& lib, const TBoxPtr& box, std::map<std::string, TProcessorPtr>& port,
                   const TProcessorPtr& view, const TProcessorPtr& hoveredEdges) {
  auto colorAttr = box->getProcessorByName("node color attr picker");
  auto aggregator = addNamed(lib, box, "TAttributeAggregator", "aggregated color attr", 800, 210);
  wire(box, colorAttr, "out", aggregator, "in");
  wire(box, port["full hierarchy"], "out", aggregator, "hierarchy");
  wire(box, addSource(lib, box, "TStringDataSource", "aggregation function", std::make_shared<TStringData>("sum"),
                      850, 180),
       "out", aggregator, "aggregation function");
  auto aggregated = addNamed(lib, box, "TArrayCreator", "aggregated attributes", 800, 220);
  wire(box, aggregator, "out", aggregated, "in1");
  auto nodeTip = addNamed(lib, box, "TTooltipTextGenerator", "node tooltip", 800, 240);
  wire(box, port["node attributes"], "out", nodeTip, "attributes");
  wire(box, aggregated, "out", nodeTip, "aggregated attributes");
  wire(box, port["brushed nodes"], "out", nodeTip, "selection");
  wire(box, nodeTip, "text out", view, "node tooltip text");
  if (hoveredEdges) {
    auto edgeTip = addNamed(lib, box, "TEdgeTooltipTextGenerator", "edge tooltip", 900, 240);
    wire(box, port["edge attributes"], "out", edgeTip, "attributes");
    wire(box, hoveredEdges, "out", edgeTip, "selection");
    wire(box, edgeTip, "text out", view, "edge tooltip text");
  }
  addAttributeInspector(lib, box, port["brushed nodes"], port["node attributes"]);
  auto legend = addNamed(lib, box, "TColorMapInspector", "color legend", 1000, 300);
  wire(box, port["all nodes"], "out", legend, "selection");
  wire(box, colorAttr, "out", legend, "color attr");
  wire(box, box->getProcessorByName("node color ordnorm picker"), "out", legend, "color attr ordnorm");
  wire(box, box->getProcessorByName("node colormap picker"), "out", legend, "colormap");
  wire(box, addSource(lib, box, "TPythonDataSource", "color legend settings",
                      scriptValue("{'name': 'Legend', 'group': 'Node colors', 'order': 4}"), 1050, 280),
       "out", legend, "settings");
}

// BCodeView: the source text of the primary selection, its files found
// under the dataset's source root.
void buildCodeView(TFlowManager& lib) {
  auto box = makeBox("BCodeView");
  lib.addBox(box);
  auto port = addPorts(lib, box, {"gui title", "all nodes", "node primary selection", "node attributes", "source root"});
  auto window = addNamed(lib, box, "TMdiChildCreator", "mdichild", 0, 40);
  wire(box, port["gui title"], "out", window, "gui title");
  auto code = addNamed(lib, box, "TCodeTextControl", "code view", 0, 100);
  wire(box, window, "out", code, "gui parent");
  wire(box, port["all nodes"], "out", code, "node selection");
  wire(box, port["node primary selection"], "out", code, "node user selection");
  wire(box, port["node attributes"], "out", code, "attributes");
  wire(box, port["source root"], "out", code, "base path");
}

// BHebView: the radial view. Its ports take BMain's outputs by name; the
// text and colour attributes and the colour map are picked by keys that
// sources in the box hold. The view filters and hides on its own: its
// inclusion filters and hidden nodes make its hierarchy, which it folds with
// the shared collapsed state, and its own folded edges and their colours.
void buildHebView(TFlowManager& lib) {
  auto box = makeBox("BHebView");
  lib.addBox(box);
  auto port = addPorts(lib, box,
                       {"gui title", "full hierarchy", "level attr", "collapsed attr", "collapse stack", "colormaps",
                        "all nodes", "all edges", "node attributes", "node attributes ordnorm", "node icon attributes",
                        "edge attributes", "edges",
                        "brushed nodes", "brushed edges", "node primary selection", "node secondary selection",
                        "edge primary selection", "incident edge selection"});

  auto window = addNamed(lib, box, "TMdiChildCreator", "mdichild", 0, 40);
  wire(box, port["gui title"], "out", window, "gui title");

  // The view's own hierarchy: what passes the node filter and is not hidden.
  auto nodeFilter = addInclusionFilter(lib, box, port, "node", 200);
  auto edgeFilter = addInclusionFilter(lib, box, port, "edge", 400);
  auto colorRange = addNamed(lib, box, "TSelector2", "color range filter", 200, 90);
  // The edge last clicked, -1 until one is: what a listening process hears
  // as OnEdgeClick.
  auto clickedEdge =
      addSource(lib, box, "TIntDataSource", "clicked edge", std::make_shared<TIntegerData>(-1), 650, 60);
  wire(box, clickedEdge, "out", addNamed(lib, box, "THookProcessor", "edge inspector on click hook", 600, 80), "in");
  const TViewHierarchy tree = addViewHierarchy(lib, box, port, colorRange, "output");
  const TProcessorPtr& collapser = tree.collapser;

  // Its edges, folded onto what it shows, and their colours.
  auto edgeCollapser = addNamed(lib, box, "TEdgeCollapsedProcessor", "view edge collapser", 400, 140);
  wire(box, port["full hierarchy"], "out", edgeCollapser, "hierarchy");
  wire(box, collapser, "agglft out", edgeCollapser, "agglft");
  wire(box, port["edges"], "out", edgeCollapser, "edges");
  wire(box, edgeFilter, "output", edgeCollapser, "edge selection");
  // The edges' colour attribute and map are the view's own, picked in its
  // pane, the map stretched over the attribute's values.
  const TProcessorPtr edgeColors =
      addEdgeColorChain(lib, box, port["edge attributes"], "out", port["colormaps"], "out", edgeCollapser,
                        "view edge colors", "{'name': 'Edge color attribute', 'group': 'Edge colors', 'order': 1}",
                        "{'defaultkey': 'Rainbow', 'name': 'Edge color map', 'group': 'Edge colors', 'order': 2}",
                        400, 160)
          .colors;
  // A hovered edge stands out like the edges of the selection.
  auto hovered = addNamed(lib, box, "TLftPairsToEids", "hovered edges", 600, 140);
  wire(box, port["brushed edges"], "out", hovered, "lft pairs");
  wire(box, edgeCollapser, "out", hovered, "edge collapsed");
  auto shownEdges = addNamed(lib, box, "TSetOr", "highlighted edges", 600, 160);
  wire(box, hovered, "out", shownEdges, "in1");
  wire(box, port["incident edge selection"], "out", shownEdges, "in2");

  auto heb = addNamed(lib, box, "THebProcessor", "heb vis", 0, 260);
  wire(box, addSettingsPane(lib, box, window), "out1", heb, "gui parent");
  addNumberControl(lib, box, heb, "settings.non-leaf height", "Ring height", "Visual layout", 1, false, 0.1, 0.02, 0.3,
                   0);
  addNumberControl(lib, box, heb, "settings.gap size", "Gap size", "Visual layout", 2, false, 0.001, 0.0, 0.02, 100);
  addNumberControl(lib, box, heb, "settings.gaps at level", "Gaps at level", "Visual layout", 3, true, 2, 0, 10, 200);
  addNumberControl(lib, box, heb, "settings.spline linearization", "Bundling (straightness)", "Edge bundling", 1, false,
                   0.05, 0.0, 1.0, 300);
  addNumberControl(lib, box, heb, "settings.edge opacity", "Edge opacity", "Edge bundling", 2, false, 0.8, 0.05, 1.0,
                   400);
  addNumberControl(lib, box, heb, "settings.self-loop size", "Self-loop size", "Edge bundling", 3, false, 0.2, 0.0, 1.0,
                   500);
  // Beyond the budget of drawn records the edges fade with their number.
  addNumberControl(lib, box, heb, "settings.edge budget", "Edge budget", "Edge bundling", 4, true, 1500, 100, 5000,
                   600);
  addHeldControl(lib, box, heb, "settings.edge fade", "Fade dense edges", "Edge bundling", 5, "TBooleanDataSource",
                 "TBooleanControl", std::make_shared<TBooleanData>(true), 700);
  addNodeAttributePickers(lib, box, port, heb);
  addColorRange(lib, box, colorRange, nodeFilter, "output");
  addInspectors(lib, box, port, heb, hovered);
  wire(box, addPicker(lib, box, "node icon picker", port["node icon attributes"], "out", nullptr, kIconPickerSettings, 600,
                      200),
       "out", heb, "node icon attr");
  wire(box, port["full hierarchy"], "out", heb, "hierarchy");
  wire(box, collapser, "collapsed hierarchy out", heb, "hierarchy collapsed");
  wire(box, port["level attr"], "out", heb, "level");
  wire(box, collapser, "agglft out", heb, "agglft");
  wire(box, port["collapsed attr"], "out", heb, "collapsed");
  for (const char* name : {"brushed nodes", "brushed edges", "node primary selection", "node secondary selection",
                           "edge primary selection"})
    wire(box, port[name], "out", heb, name);
  wire(box, shownEdges, "out", heb, "incident edge selection");
  wire(box, clickedEdge, "out", heb, "clicked edge");
  wire(box, edgeCollapser, "out", heb, "edge collapsed");
  wire(box, edgeColors, "output", heb, "edge colors");
  wire(box, port["edges"], "out", heb, "edge data");

  // The commands of its menus and keys.
  auto merger = addNodeViewActions(lib, box, port, tree);
  wire(box, merger, "out", heb, "actions");
  wire(box, merger, "out", window, "actions");
}

// BTreemapView: the hierarchy as nested tiles. Folders are the groups with
// the large labels, files the groups with the thin borders; what lies
// within a file is flattened into tiles. Every leaf has the same area until
// an area attribute is picked.
void buildTreemapView(TFlowManager& lib) {
  auto box = makeBox("BTreemapView");
  lib.addBox(box);
  auto port = addPorts(lib, box,
                       {"gui title", "full hierarchy", "level attr", "collapsed attr", "collapse stack", "colormaps",
                        "all nodes", "node attributes", "node attributes ordnorm", "edges", "brushed nodes",
                        "node primary selection", "node secondary selection", "edge primary selection"});
  auto window = addNamed(lib, box, "TMdiChildCreator", "mdichild", 0, 40);
  wire(box, port["gui title"], "out", window, "gui title");
  auto nodeFilter = addInclusionFilter(lib, box, port, "node", 200);
  auto colorRange = addNamed(lib, box, "TSelector2", "color range filter", 200, 90);
  const TViewHierarchy tree = addViewHierarchy(lib, box, port, colorRange, "output");

  auto groups = [&](const std::string& name, const std::string& type, float gx) {
    const std::string filter =
        "{'attributes': {'type': {'checked': True, 'values': {'" + type + "': True}}}, 'pass': 2, 'key_op': 'and'}";
    return addAttributeFilter(lib, box, port, name, name + " filter", name + " settings",
                              scriptValue(filter.c_str()), "all nodes", "node attributes", gx, 160)
        .selector;
  };
  auto folders = groups("folder groups", "folder", 400);
  auto files = groups("file groups", "file", 500);
  auto border = addSource(lib, box, "TIntegerSetDataSource", "low level border", std::make_shared<TIntegerSetData>(),
                          600, 160);

  // Area and order: a size where the dataset has one ("lines", else
  // "bytes"), else none: every leaf of area 1, the largest first.
  auto areaKey = addSource(lib, box, "TStringDataSource", "node area attr source", nullptr, 500, 200);
  auto orderKey = addSource(lib, box, "TStringDataSource", "node order attr source", nullptr, 600, 200);
  auto area = addPicker(lib, box, "node area attr picker", port["node attributes ordnorm"], "out", areaKey,
                        "{'allownone': True, 'defaultkey': ['lines', 'bytes'], 'name': 'Area attribute', "
                        "'group': 'Node sizes', 'order': 1}",
                        600, 220);
  auto order = addPicker(lib, box, "node order attr picker", port["node attributes ordnorm"], "out", orderKey,
                         "{'allownone': True, 'defaultkey': ['lines', 'bytes'], 'name': 'Order attribute', "
                         "'group': 'Node sizes', 'order': 2}",
                         700, 220);

  auto treemap = addNamed(lib, box, "TTreemapProcessor", "treemap vis", 0, 280);
  wire(box, addSettingsPane(lib, box, window), "out1", treemap, "gui parent");
  addNodeAttributePickers(lib, box, port, treemap);
  addColorRange(lib, box, colorRange, nodeFilter, "output");
  addInspectors(lib, box, port, treemap, nullptr);
  wire(box, area, "out", treemap, "node area attr ordnorm");
  wire(box, order, "out", treemap, "node order attr ordnorm");
  wire(box, folders, "output", treemap, "flatten");
  wire(box, files, "output", treemap, "flatten2");
  wire(box, border, "out", treemap, "low level border");
  wire(box, port["full hierarchy"], "out", treemap, "hierarchy");
  wire(box, tree.collapser, "collapsed hierarchy out", treemap, "hierarchy collapsed");
  wire(box, tree.collapser, "agglft out", treemap, "agglft");
  wire(box, port["level attr"], "out", treemap, "level");
  wire(box, port["collapsed attr"], "out", treemap, "collapsed");
  for (const char* name : {"brushed nodes", "node primary selection", "node secondary selection"})
    wire(box, port[name], "out", treemap, name);
  auto merger = addNodeViewActions(lib, box, port, tree);
  wire(box, merger, "out", treemap, "actions");
  wire(box, merger, "out", window, "actions");
}

// BTableLens: a table lens on the ids of one selection with the columns
// picked from its attributes. Its ports take the node or the edge names
// when it is opened ("node attributes", ...).
void buildTableLens(TFlowManager& lib) {
  auto box = makeBox("BTableLens");
  lib.addBox(box);
  auto port = addPorts(lib, box, {"gui title", "attributes", "selections", "primary selection", "brushed", "colormaps"});
  auto window = addNamed(lib, box, "TMdiChildCreator", "mdichild", 0, 40);
  wire(box, port["gui title"], "out", window, "gui title");

  auto selection = addPicker(lib, box, "selection picker", port["selections"], "out", nullptr,
                             "{'defaultkey': ['all nodes', 'all edges'], 'name': 'Rows', 'group': 'Settings'}", 200, 60);
  // The bars of number columns first: sizes and counts are what a table
  // lens is read for.
  const TColumns columns = addColumns(
      lib, box, port["attributes"],
      "{'defaultkeys': 'all', 'numericfirst': True, 'name': 'Columns...', 'group': 'Settings'}");
  auto normalizer = addNamed(lib, box, "TAttributeArrayNormalizerProcessor", "columns ordnorm", 100, 80);
  wire(box, columns.picker, "out", normalizer, "in");
  auto mapKey = addSource(lib, box, "TStringDataSource", "colormap source", nullptr, 500, 40);
  auto colormap = addPicker(lib, box, "colormap picker", port["colormaps"], "out", mapKey,
                            "{'defaultkey': 'Rainbow', 'name': 'Color map', 'group': 'Visual colors'}", 500, 60);
  auto sort = addSource(lib, box, "TPythonDataSource", "sort", scriptValue("[(None, True)]"), 600, 40);
  auto internal = addSource(lib, box, "TIntegerSetDataSource", "internal selection",
                            std::make_shared<TIntegerSetData>(), 700, 40);
  auto widths = addSource(lib, box, "TFloatDataArraySource", "column widths", std::make_shared<TFloatDataArray>(),
                          800, 40);
  // At 0 the rows fill the page: the zoom never goes below that fit.
  auto zoom = addSource(lib, box, "TFloatDataSource", "zoom", std::make_shared<TFloatData>(0.0f), 900, 40);

  auto table = addNamed(lib, box, "TTableLensProcessor", "table lens", 0, 120);
  wire(box, addSettingsPane(lib, box, window), "out1", table, "gui parent");
  wire(box, columns.picker, "out", table, "attributes");
  wire(box, normalizer, "out", table, "attributes ordnorm");
  wire(box, sort, "out", table, "sort");
  wire(box, selection, "out", table, "selection");
  wire(box, colormap, "out", table, "colormap");
  wire(box, port["brushed"], "out", table, "brushed");
  addAttributeInspector(lib, box, port["brushed"], port["attributes"]);
  wire(box, port["primary selection"], "out", table, "selection b");
  wire(box, internal, "out", table, "internal selection");
  wire(box, columns.keys, "out", table, "keys");
  wire(box, widths, "out", table, "column widths");
  wire(box, zoom, "out", table, "setting.zoom");

  // Rows: moving the marked rows into the shared selection; headers:
  // sorting and columns.
  auto canvasActions = addNamed(lib, box, "TGlCanvasActions", "glcanvas actions", 500, 80);
  auto merger = addNamed(lib, box, "TActionMerger", "row actions", 600, 100);
  wire(box, addInternalSelectionActions(lib, box, internal, port["primary selection"]), "actions", merger, "in1");
  wire(box, canvasActions, "actions", merger, "in2");
  wire(box, merger, "out", table, "actions");
  wire(box, merger, "out", window, "actions");
  addHeaderActions(lib, box, table, columns, sort);
}

// BTreeView: the view's hierarchy as an indented list. Its marked lines
// are what its folding commands act on, with the primary selection.
void buildTreeView(TFlowManager& lib) {
  auto box = makeBox("BTreeView");
  lib.addBox(box);
  auto port = addPorts(lib, box,
                       {"gui title", "full hierarchy", "level attr", "collapsed attr", "collapse stack", "all nodes",
                        "node attributes", "node icon attributes", "edges", "brushed nodes", "node primary selection",
                        "edge primary selection"});
  auto window = addNamed(lib, box, "TMdiChildCreator", "mdichild", 0, 40);
  wire(box, port["gui title"], "out", window, "gui title");
  const TViewHierarchy tree =
      addViewHierarchy(lib, box, port, addInclusionFilter(lib, box, port, "node", 200), "output");
  auto internal = addSource(lib, box, "TIntegerSetDataSource", "internal selection",
                            std::make_shared<TIntegerSetData>(), 700, 40);

  auto view = addNamed(lib, box, "TTreeViewProcessor", "treeview", 0, 280);
  wire(box, addSettingsPane(lib, box, window), "out1", view, "gui parent");
  wire(box, tree.collapser, "collapsed hierarchy out", view, "collapsed hierarchy");
  wire(box, port["full hierarchy"], "out", view, "hierarchy");
  wire(box, tree.collapser, "agglft out", view, "agglft");
  wire(box, port["collapsed attr"], "out", view, "collapsed");
  wire(box, port["level attr"], "out", view, "level");
  auto textKey = addSource(lib, box, "TStringDataSource", "node text attr source", nullptr, 200, 180);
  wire(box, addPicker(lib, box, "node text attr picker", port["node attributes"], "out", textKey,
                      "{'defaultkey': 'name', 'name': 'Label attribute', 'group': 'Node labels', 'order': 1}", 200,
                      200),
       "out", view, "node text attr");
  wire(box, addPicker(lib, box, "node icon picker", port["node icon attributes"], "out", nullptr, kIconPickerSettings,
                      600, 200),
       "out", view, "icon attr");
  wire(box, port["node primary selection"], "out", view, "selection b");
  wire(box, internal, "out", view, "internal selection");

  auto viewActions = addNodeViewActions(lib, box, port, tree, internal);
  auto merger = addNamed(lib, box, "TActionMerger", "tree actions", 300, 280);
  wire(box, addInternalSelectionActions(lib, box, internal, port["node primary selection"]), "actions", merger,
       "in1");
  wire(box, viewActions, "out", merger, "in2");
  wire(box, merger, "out", view, "actions");
  wire(box, merger, "out", window, "actions");
}

}  // namespace

void registerViewCores() {
  static bool done = false;
  if (done) return;
  done = true;
  registerShellCores();
  TProcessorRegistry::instance().add<TListGuiProcessorCpp>();
  TLibraryRegistry::instance().add("BListView", buildListView);
  registerHebCore();
  TLibraryRegistry::instance().add("BHebView", buildHebView);
  registerTreemapCore();
  TLibraryRegistry::instance().add("BTreemapView", buildTreemapView);
  registerTableLensCore();
  TLibraryRegistry::instance().add("BTableLens", buildTableLens);
  registerTreeViewCore();
  TLibraryRegistry::instance().add("BTreeView", buildTreeView);
  TLibraryRegistry::instance().add("BCodeView", buildCodeView);
}

}  // namespace quorvel
