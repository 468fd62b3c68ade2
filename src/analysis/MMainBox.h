// The box BMain: the road of one dataset from its file name to what the
// views draw.
#pragma once

#include "engine/MFlowManager.h"

namespace quorvel {

// Builds BMain into a library network.
void buildMainBox(TFlowManager& lib);

// Enters BMain in the library registry.
void registerMainBox();

}  // namespace quorvel
