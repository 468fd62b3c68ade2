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
  auto filenameCheck = addNamed(lib, box, "THookProcessor", "dataset filename tap", 0, 20);
  wire(box, filenamePort, "dataset filename", filenameCheck, "in");
  wire(box, filenameHolder, "out", filenameCheck, "in");

  // The primary selections, shared by all views, and the hooks that tell a
  // listening process about them.
  auto nodeSelection = addNamed(lib, box, "TIntegerSetDataSource", "node primary selection", 400, 0);
  auto edgeSelection = addNamed(lib, box, "TIntegerSetDataSource", "edge primary selection", 500, 0);
  auto nodeHook = addNamed(lib, box, "THookProcessor", "node primary selection hook", 400, 40);
  auto edgeHook = addNamed(lib, box, "THookProcessor", "edge primary selection hook", 500, 40);
  wire(box, nodeSelection, "out", nodeHook, "in");
  wire(box, edgeSelection, "out", edgeHook, "in");
  auto nodePort = addPort(lib, box, "node primary selection", 400, 80);
  auto edgePort = addPort(lib, box, "edge primary selection", 500, 80);
  wire(box, nodeSelection, "out", nodePort, "node primary selection");
  wire(box, edgeSelection, "out", edgePort, "edge primary selection");
}

void registerMainBox() { TLibraryRegistry::instance().add("BMain", buildMainBox); }

}  // namespace quorvel
