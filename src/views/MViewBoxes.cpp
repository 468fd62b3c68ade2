// The view boxes of the library. A view box has ports named as BMain's
// output ports, through which autoconnect joins it to the dataset.
#include <pybind11/pybind11.h>

#include "engine/MLibrary.h"
#include "engine/MPython.h"
#include "engine/MRegistry.h"
#include "engine/MSources.h"
#include "shell/MShellCores.h"
#include "views/MHebCore.h"
#include "views/MViewCores.h"

#include <map>

namespace quorvel {

namespace {

// The icons by the texts of "type", or none.
const char* const kIconPickerSettings = "{'allownone': True, 'defaultkey': [\"icon for 'type'\"]}";

// BListView: the ids of one selection of the dataset with all their
// attributes as a report list. Its ports take the node or the edge names
// when it is opened ("node attributes", ...).
void buildListView(TFlowManager& lib) {
  auto box = makeBox("BListView");
  lib.addBox(box);
  auto title = addInputPort(lib, box, "gui title", 0, 0);
  auto attributes = addInputPort(lib, box, "attributes", 100, 0);
  auto selections = addInputPort(lib, box, "selections", 200, 0);
  auto selectionB = addInputPort(lib, box, "selection b", 300, 0);
  auto icons = addInputPort(lib, box, "icon attributes", 400, 0);

  auto window = addNamed(lib, box, "TMdiChildCreator", "mdichild", 0, 40);
  wire(box, title, "out", window, "gui title");

  auto selection = addPicker(lib, box, "selection picker", selections, "out", nullptr,
                             "{'defaultkey': ['all nodes', 'all edges']}", 200, 60);
  auto iconPicker = addPicker(lib, box, "icon picker", icons, "out", nullptr, kIconPickerSettings, 400, 60);

  // The shown columns: the keys, by default all but the internal ones.
  auto keys = addSource(lib, box, "TStringListDataSource", "column keys", nullptr, 100, 40);
  auto columnSettings =
      addSource(lib, box, "TPythonDataSource", "column picker settings", scriptValue("{'defaultkeys': 'all'}"), 150, 40);
  auto columns = addNamed(lib, box, "TSubArrayPicker", "column picker", 100, 60);
  wire(box, attributes, "out", columns, "array");
  wire(box, keys, "out", columns, "keys");
  wire(box, columnSettings, "out", columns, "settings");

  auto sort = addSource(lib, box, "TPythonDataSource", "sort", nullptr, 600, 40);
  auto internal = addNamed(lib, box, "TIntegerSetDataSource", "internal selection", 700, 40);

  auto list = addNamed(lib, box, "TListGuiProcessor", "list view", 0, 100);
  wire(box, window, "out", list, "gui parent");
  wire(box, columns, "out", list, "attributes");
  wire(box, sort, "out", list, "sort");
  wire(box, selection, "out", list, "selection");
  wire(box, selectionB, "out", list, "selection b");
  wire(box, internal, "out", list, "internal selection");
  wire(box, iconPicker, "out", list, "icon attr");
  wire(box, keys, "out", list, "keys");
}

// BHebView: the radial view. Its ports take BMain's outputs by name; the
// text and colour attributes and the colour map are picked by keys that
// sources in the box hold.
void buildHebView(TFlowManager& lib) {
  auto box = makeBox("BHebView");
  lib.addBox(box);
  const char* ports[] = {"gui title",
                         "full hierarchy",
                         "collapsed hierarchy",
                         "agglft",
                         "collapsed attr",
                         "level attr",
                         "colormaps",
                         "node attributes",
                         "node attributes ordnorm",
                         "node icon attributes",
                         "edges",
                         "edge collapsed",
                         "edge colors",
                         "brushed nodes",
                         "brushed edges",
                         "node primary selection",
                         "node secondary selection",
                         "edge primary selection",
                         "incident edge selection"};
  std::map<std::string, TProcessorPtr> port;
  float x = 0;
  for (const char* name : ports) {
    port[name] = addInputPort(lib, box, name, x, 0);
    x += 100;
  }

  auto window = addNamed(lib, box, "TMdiChildCreator", "mdichild", 0, 40);
  wire(box, port["gui title"], "out", window, "gui title");
  auto canvasActions = addNamed(lib, box, "TGlCanvasActions", "glcanvas actions", 100, 40);

  // An attribute by key: the source holds the key, the settings the key
  // taken while the source is empty.
  auto picker = [&](const std::string& name, const TProcessorPtr& array, const TProcessorPtr& key,
                    const char* settings, float px) { return addPicker(lib, box, name, array, "out", key, settings, px, 80); };
  auto textKey = addSource(lib, box, "TStringDataSource", "node text attr source", nullptr, 200, 40);
  auto colorKey = addSource(lib, box, "TStringDataSource", "node color attr source", nullptr, 300, 40);
  auto mapKey = addSource(lib, box, "TStringDataSource", "node colormap source", nullptr, 400, 40);
  auto text = picker("node text attr picker", port["node attributes"], textKey, "{'defaultkey': 'name'}", 200);
  auto color = picker("node color attr picker", port["node attributes"], colorKey, "{'defaultkey': 'type'}", 300);
  auto colorOrd =
      picker("node color ordnorm picker", port["node attributes ordnorm"], colorKey, "{'defaultkey': 'type'}", 400);
  auto colormap = picker("node colormap picker", port["colormaps"], mapKey, "{'defaultkey': 'Types'}", 500);
  auto icon = picker("node icon picker", port["node icon attributes"], nullptr, kIconPickerSettings, 600);

  // What a listening process hears of this view; fed when the view gets
  // its filters.
  addNamed(lib, box, "THookProcessor", "node inclusion filter hook", 700, 40);
  addNamed(lib, box, "THookProcessor", "edge inclusion filter hook", 800, 40);
  addNamed(lib, box, "THookProcessor", "edge inspector on click hook", 900, 40);

  auto heb = addNamed(lib, box, "THebProcessor", "heb vis", 0, 120);
  wire(box, window, "out", heb, "gui parent");
  wire(box, text, "out", heb, "node text attr");
  wire(box, color, "out", heb, "node color attr");
  wire(box, colorOrd, "out", heb, "node color attr ordnorm");
  wire(box, icon, "out", heb, "node icon attr");
  wire(box, port["full hierarchy"], "out", heb, "hierarchy");
  wire(box, port["collapsed hierarchy"], "out", heb, "hierarchy collapsed");
  wire(box, port["level attr"], "out", heb, "level");
  wire(box, port["agglft"], "out", heb, "agglft");
  wire(box, port["collapsed attr"], "out", heb, "collapsed");
  wire(box, colormap, "out", heb, "node colormap");
  for (const char* name : {"brushed nodes", "brushed edges", "node primary selection", "node secondary selection",
                           "edge primary selection", "incident edge selection", "edge collapsed", "edge colors"})
    wire(box, port[name], "out", heb, name);
  wire(box, port["edges"], "out", heb, "edge data");
  wire(box, canvasActions, "actions", heb, "actions");
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
}

}  // namespace quorvel
