#include "MMainBox.h"

#include "engine/MLibrary.h"

namespace quorvel {

void buildMainBox(TFlowManager& lib) {
  auto box = makeBox("BMain");
  lib.addBox(box);

  // The file name comes in at the top through the port; everything below
  // runs after it. The processor of that key name sits on the port's net and
  // so holds the name of the open dataset, which is what commands read.
  auto filenamePort = addPort(lib, box, "dataset filename", 0, 0);
  auto filenameHolder = addNamed(lib, box, "TStringDataSource", "dataset filename", 100, 0);
  auto loader = addNamed(lib, box, "TDatasetLoader", "dataset loader", 0, 40);
  wire(box, filenamePort, "dataset filename", loader, "in");
  wire(box, filenameHolder, "out", loader, "in");

  // What the loader reads, on output ports that views connect to by name.
  float x = 0;
  for (const char* name :
       {"hierarchies", "node attributes", "edge attributes", "edges", "node selections", "edge selections"}) {
    auto port = addPort(lib, box, name, x, 80);
    wire(box, loader, name, port, name);
    x += 100;
  }
  auto colormaps = addNamed(lib, box, "TColorMapLoader", "colormap loader", 600, 40);
  wire(box, colormaps, "output", addPort(lib, box, "colormaps", 600, 80), "colormaps");
  auto icons = addNamed(lib, box, "TIconLoader", "icon loader", 700, 40);
  wire(box, icons, "output", addPort(lib, box, "icons", 700, 80), "icons");

  // The primary selections, shared by all views, and the hooks that tell a
  // listening process about them.
  auto nodeSelection = addNamed(lib, box, "TIntegerSetDataSource", "node primary selection", 800, 0);
  auto edgeSelection = addNamed(lib, box, "TIntegerSetDataSource", "edge primary selection", 900, 0);
  auto nodeHook = addNamed(lib, box, "THookProcessor", "node primary selection hook", 800, 40);
  auto edgeHook = addNamed(lib, box, "THookProcessor", "edge primary selection hook", 900, 40);
  wire(box, nodeSelection, "out", nodeHook, "in");
  wire(box, edgeSelection, "out", edgeHook, "in");
  auto nodePort = addPort(lib, box, "node primary selection", 800, 80);
  auto edgePort = addPort(lib, box, "edge primary selection", 900, 80);
  wire(box, nodeSelection, "out", nodePort, "node primary selection");
  wire(box, edgeSelection, "out", edgePort, "edge primary selection");
}

void registerMainBox() { TLibraryRegistry::instance().add("BMain", buildMainBox); }

}  // namespace quorvel
