// The view boxes of the library. A view box has ports named as BMain's
// output ports, through which autoconnect joins it to the dataset.
#include <pybind11/pybind11.h>

#include "engine/MLibrary.h"
#include "engine/MPython.h"
#include "engine/MRegistry.h"
#include "engine/MSources.h"
#include "shell/MShellCores.h"
#include "views/MViewCores.h"

namespace quorvel {

namespace {

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

  auto pickerSettings = addSource(lib, box, "TPythonDataSource", "selection picker settings",
                                  scriptValue("{'defaultkey': ['all nodes', 'all edges']}"), 300, 40);
  auto selection = addNamed(lib, box, "TArrayPicker", "selection picker", 200, 60);
  wire(box, selections, "out", selection, "array");
  wire(box, pickerSettings, "out", selection, "settings");

  auto iconSettings = addSource(lib, box, "TPythonDataSource", "icon picker settings",
                                scriptValue("{'allownone': True, 'defaultkey': [\"icon for 'type'\"]}"), 500, 40);
  auto iconPicker = addNamed(lib, box, "TArrayPicker", "icon picker", 400, 60);
  wire(box, icons, "out", iconPicker, "array");
  wire(box, iconSettings, "out", iconPicker, "settings");

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

}  // namespace

void registerViewCores() {
  static bool done = false;
  if (done) return;
  done = true;
  registerShellCores();
  TProcessorRegistry::instance().add<TListGuiProcessorCpp>();
  TLibraryRegistry::instance().add("BListView", buildListView);
}

}  // namespace quorvel
