// The box BMain: the road of one dataset from its file name to what the
// views draw.
#pragma once

#include "engine/MFlowManager.h"

namespace quorvel {

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
                                  float x, float y);

// Builds BMain into a library network.
void buildMainBox(TFlowManager& lib);

// Enters BMain in the library registry.
void registerMainBox();

}  // namespace quorvel
