#include "MMainBox.h"


#include "data/MValues.h"
#include "engine/MLibrary.h"
#include "engine/MPython.h"
#include "data/MDataSources.h"

namespace quorvel {

namespace {

// A source holding a value of its own; the library file stores the value.
TDataPtr text(const std::string& s) { return std::make_shared<TStringData>(s); }

// An output port of BMain for the views, fed from one output pin.
void exposeAs(TFlowManager& lib, const TBoxPtr& box, const TProcessorPtr& from, const std::string& pin,
              const std::string& port, float x, float y) {
  wire(box, from, pin, addPort(lib, box, port, x, y), port);
}

}  // namespace

// The processors run in the order of their places from top to bottom, so a
// change travels down BMain in as few passes as possible.
void buildMainBox(TFlowManager& lib) {
  auto box = makeBox("BMain");
  lib.addBox(box);

  // The file name comes in at the top through the port. The processor of
  // that key name sits on the port's net and so holds the name of the open
  // dataset, which is what commands read.
  auto filenamePort = addPort(lib, box, "dataset filename", 0, 0);
  auto filenameHolder = addNamed(lib, box, "TStringDataSource", "dataset filename", 100, 0);
  auto loader = addNamed(lib, box, "TDatasetLoader", "dataset loader", 0, 40);
  wire(box, filenamePort, "dataset filename", loader, "in");
  wire(box, filenameHolder, "out", loader, "in");
  // Where the sources of an imported tree stand, for the code view.
  auto sourceRoot = addNamed(lib, box, "TSourceRootProcessor", "source root", 200, 40);
  wire(box, filenamePort, "dataset filename", sourceRoot, "in");
  wire(box, filenameHolder, "out", sourceRoot, "in");
  exposeAs(lib, box, sourceRoot, "out", "source root", 200, 80);
  auto colormaps = addNamed(lib, box, "TColorMapLoader", "colormap loader", 600, 40);
  auto icons = addNamed(lib, box, "TIconLoader", "icon loader", 700, 40);
  exposeAs(lib, box, loader, "hierarchies", "hierarchies", 0, 80);
  exposeAs(lib, box, loader, "edges", "edges", 300, 80);
  exposeAs(lib, box, loader, "node selections", "node selections", 400, 80);
  exposeAs(lib, box, loader, "edge selections", "edge selections", 500, 80);
  exposeAs(lib, box, colormaps, "output", "colormaps", 600, 80);
  exposeAs(lib, box, icons, "output", "icons", 700, 80);

  // The primary selections, shared by all views, and the hooks that tell a
  // listening process about them.
  auto nodePrimary = addNamed(lib, box, "TIntegerSetDataSource", "node primary selection", 800, 0);
  auto edgePrimary = addNamed(lib, box, "TIntegerSetDataSource", "edge primary selection", 900, 0);
  wire(box, nodePrimary, "out", addNamed(lib, box, "THookProcessor", "node primary selection hook", 800, 40), "in");
  wire(box, edgePrimary, "out", addNamed(lib, box, "THookProcessor", "edge primary selection hook", 900, 40), "in");
  // The selections carry their names, which menus show.
  for (const auto& [source, name] : {std::pair{nodePrimary, "node primary selection"},
                                     std::pair{edgePrimary, "edge primary selection"}}) {
    auto setter = addNamed(lib, box, "TKeyNameSetter", std::string(name) + " name", source == nodePrimary ? 800 : 900, 60);
    wire(box, source, "out", setter, "data");
    wire(box, addSource(lib, box, "TStringDataSource", std::string(name) + " name text", text(name),
                        source == nodePrimary ? 850 : 950, 40),
         "out", setter, "keyname");
  }
  exposeAs(lib, box, nodePrimary, "out", "node primary selection", 800, 80);
  exposeAs(lib, box, edgePrimary, "out", "edge primary selection", 900, 80);

  // What is under the mouse, shared by all views: node ids, and the pairs
  // of visible nodes of hovered edges. The pair set has no stored form; the
  // first view that hovers puts one on the port's net.
  auto brushedNodes = addNamed(lib, box, "TIntegerSetDataSource", "brushed nodes", 1000, 0);
  exposeAs(lib, box, brushedNodes, "out", "brushed nodes", 1000, 80);
  addPort(lib, box, "brushed edges", 1100, 80);

  // One hierarchy of the dataset, the first unless a key says otherwise.
  auto hierarchyKey = addSource(lib, box, "TStringDataSource", "hierarchy key", nullptr, 100, 100);
  auto hierarchy = addPicker(lib, box, "hierarchy picker", loader, "hierarchies", hierarchyKey,
                             "{'defaultkey': 'hierarchy 1'}", 0, 120);
  exposeAs(lib, box, hierarchy, "out", "full hierarchy", 0, 140);

  // Levels and the first collapsed state.
  auto levels = addNamed(lib, box, "THierarchyLevelExtractor", "level attr", 0, 160);
  wire(box, hierarchy, "out", levels, "hierarchy");
  exposeAs(lib, box, levels, "out", "level attr", 0, 180);
  auto collapseSettings = addSource(lib, box, "TPythonDataSource", "collapse settings",
                                     scriptValue("{'expandlevel': 'auto', 'budget': 1000}"), 200, 180);
  auto initializer = addNamed(lib, box, "TCollapsedStateInitializer", "collapsed state initializer", 0, 200);
  wire(box, hierarchy, "out", initializer, "hierarchy");
  wire(box, levels, "out", initializer, "level attr");
  wire(box, collapseSettings, "out", initializer, "settings");

  // The collapsed state lives in "collapsed attr". The initializer, the
  // undo memory, the collapse processor and the port all stand on its net,
  // so an edit from any view reaches them all.
  auto collapsedAttr = addNamed(lib, box, "TBoolAttributeDataSource", "collapsed attr", 100, 220);
  auto collapser = addNamed(lib, box, "TCollapseProcessor", "collapser", 0, 240);
  wire(box, hierarchy, "out", collapser, "full hierarchy");
  wire(box, initializer, "hierarchy out", collapser, "hierarchy");
  wire(box, initializer, "out", collapser, "boolattribute");
  wire(box, collapsedAttr, "out", collapser, "boolattribute");
  auto undo = addNamed(lib, box, "TStackStore", "collapse undo", 200, 240);
  wire(box, collapsedAttr, "out", undo, "in");
  // The views' undo actions find the memory through this port.
  exposeAs(lib, box, undo, "dummy", "collapse stack", 200, 260);
  exposeAs(lib, box, collapsedAttr, "out", "collapsed attr", 100, 260);
  exposeAs(lib, box, collapser, "collapsed hierarchy out", "collapsed hierarchy", 0, 280);
  exposeAs(lib, box, collapser, "agglft out", "agglft", 100, 280);
  exposeAs(lib, box, collapser, "max level", "max level", 200, 280);
  exposeAs(lib, box, collapser, "collapsed max level", "collapsed max level", 300, 280);

  // What the views show: all nodes and edges, through the inclusion
  // filters, which let everything pass until a filter is set.
  auto inclusion = [&](const char* kind, const char* all, const char* selections, const TProcessorPtr& attributes,
                       const char* attributesPin, float x) {
    const std::string k(kind);
    auto picker = addPicker(lib, box, k + " selection picker", loader, selections, nullptr,
                            ("{'defaultkey': '" + std::string(all) + "'}").c_str(), x, 300);
    auto filterValue = addSource(lib, box, "TPythonDataSource", k + " inclusion filter value", nullptr, x + 100, 300);
    auto filterSettings =
        addSource(lib, box, "TPythonDataSource", k + " inclusion filter settings", scriptValue("{'filterdefault': 1}"),
                  x + 200, 300);
    auto filter = addNamed(lib, box, "TSelector1", k == "node" ? "Node inclusion filter" : "Edge inclusion filter",
                           x, 320);
    wire(box, picker, "out", filter, "selection");
    wire(box, attributes, attributesPin, filter, "attributes");
    wire(box, filterValue, "out", filter, "filter");
    wire(box, filterSettings, "out", filter, "settings");
    exposeAs(lib, box, picker, "out", "all " + k + "s", x + 200, 320);
    exposeAs(lib, box, filter, "output", k + " selection", x, 340);
    return std::make_pair(picker, filter);
  };
  auto [nodePicker, nodeFilter] = inclusion("node", "all nodes", "node selections", loader, "node attributes", 400);
  auto [edgePicker, edgeFilter] = inclusion("edge", "all edges", "edge selections", loader, "edge attributes", 700);

  // Derived columns: degrees and ids for nodes, end captions and ids for
  // edges, after the columns of the dataset.
  auto fan = addNamed(lib, box, "TFanAttributeProcessor", "fan attributes", 400, 360);
  wire(box, nodePicker, "out", fan, "node selection");
  wire(box, edgeFilter, "output", fan, "edge selection");
  wire(box, loader, "edges", fan, "edge data");
  auto nodeIds = addNamed(lib, box, "TIdAttributeProcessor", "node id attribute", 500, 360);
  wire(box, nodePicker, "out", nodeIds, "selection");
  auto nodeAttributes = addNamed(lib, box, "TAttributeArrayCreator", "node attribute array", 400, 380);
  wire(box, loader, "node attributes", nodeAttributes, "in1");
  wire(box, fan, "fan out", nodeAttributes, "in2");
  wire(box, fan, "fan in", nodeAttributes, "in3");
  wire(box, nodeIds, "out", nodeAttributes, "in4");
  exposeAs(lib, box, nodeAttributes, "out", "node attributes", 400, 400);

  auto caption =
      addPicker(lib, box, "caption picker", loader, "node attributes", nullptr, "{'defaultkey': 'name'}", 700, 360);
  auto fromTo = addNamed(lib, box, "TFromToAttributeCreator", "edge end captions", 700, 370);
  wire(box, caption, "out", fromTo, "caption attr");
  wire(box, loader, "edges", fromTo, "edge data");
  auto edgeIds = addNamed(lib, box, "TIdAttributeProcessor", "edge id attribute", 800, 370);
  wire(box, edgePicker, "out", edgeIds, "selection");
  auto edgeAttributes = addNamed(lib, box, "TAttributeArrayCreator", "edge attribute array", 700, 380);
  wire(box, loader, "edge attributes", edgeAttributes, "in1");
  wire(box, fromTo, "from out", edgeAttributes, "in2");
  wire(box, fromTo, "to out", edgeAttributes, "in3");
  wire(box, edgeIds, "out", edgeAttributes, "in4");
  exposeAs(lib, box, edgeAttributes, "out", "edge attributes", 700, 400);

  // Icons by the texts of the columns: the name of an icon in a text
  // column gives that row its icon.
  auto nodeIcons = addNamed(lib, box, "TIconAttributeCreator", "node icon attributes", 1000, 400);
  wire(box, icons, "output", nodeIcons, "icons");
  wire(box, nodeAttributes, "out", nodeIcons, "attributes");
  exposeAs(lib, box, nodeIcons, "output", "node icon attributes", 1000, 420);
  auto edgeIcons = addNamed(lib, box, "TIconAttributeCreator", "edge icon attributes", 1100, 400);
  wire(box, icons, "output", edgeIcons, "icons");
  wire(box, edgeAttributes, "out", edgeIcons, "attributes");
  exposeAs(lib, box, edgeIcons, "output", "edge icon attributes", 1100, 420);

  // The numeric forms of all columns.
  auto nodeOrd = addNamed(lib, box, "TAttributeArrayNormalizerProcessor", "node attributes ordnorm", 400, 420);
  wire(box, nodeAttributes, "out", nodeOrd, "in");
  exposeAs(lib, box, nodeOrd, "out", "node attributes ordnorm", 400, 440);
  auto edgeOrd = addNamed(lib, box, "TAttributeArrayNormalizerProcessor", "edge attributes ordnorm", 700, 420);
  wire(box, edgeAttributes, "out", edgeOrd, "in");
  exposeAs(lib, box, edgeOrd, "out", "edge attributes ordnorm", 700, 440);

  // Edges are folded and coloured by each view that draws them, through its
  // own filters; BMain hands on the edges and their columns.

  // The neighbours of the primary selection, or of the hovered nodes while
  // nothing is selected.
  auto focus = addNamed(lib, box, "TSetOr", "selection or hover", 800, 600);
  wire(box, nodePrimary, "out", focus, "in1");
  wire(box, brushedNodes, "out", focus, "in2");
  auto direction = addSource(lib, box, "TStringDataSource", "secondary selection direction", text("both"), 900, 600);
  auto secondary = addNamed(lib, box, "TSecondarySelectionComputer", "secondary selection", 800, 620);
  wire(box, focus, "out", secondary, "node primary selection");
  wire(box, edgeFilter, "output", secondary, "edge selection");
  wire(box, loader, "edges", secondary, "edge data");
  wire(box, direction, "out", secondary, "direction");
  wire(box, hierarchy, "out", secondary, "full hierarchy");
  wire(box, collapsedAttr, "out", secondary, "boolattribute");
  exposeAs(lib, box, secondary, "node secondary selection", "node secondary selection", 800, 640);
  exposeAs(lib, box, secondary, "incident edge selection", "incident edge selection", 900, 640);
}

void registerMainBox() { TLibraryRegistry::instance().add("BMain", buildMainBox); }

}  // namespace quorvel
