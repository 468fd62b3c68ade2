// Builds the box library from code and stores it as a flow file.
//   quorvel-mklibrary <output file>
#include <iostream>

#include "engine/MFlowManager.h"
#include "engine/MLibrary.h"
#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "engine/MRegistry.h"

using namespace quorvel;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: quorvel-mklibrary <output file>\n";
    return 2;
  }
  int code = 0;
  startInterpreter({argv[0]});
  try {
    registerScriptModules();
    auto lib = makeFlowManager(false);
    buildLibrary(*lib);
    lib->store(lib->m_Children, argv[1]);
    lib->release();
  } catch (const std::exception& e) {
    std::cerr << "quorvel-mklibrary: " << e.what() << "\n";
    code = 1;
  }
  stopInterpreter();
  return code;
}
