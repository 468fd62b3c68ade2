// Registration of everything the core library holds: the engine and values,
// the dataset loaders, the analysis processors, the core classes of the views
// and the boxes of the library.
#pragma once

namespace quorvel {

// Calling it again does nothing.
void registerCoreClasses();

}  // namespace quorvel
