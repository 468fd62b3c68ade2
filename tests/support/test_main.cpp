// Test entry for the core: the interpreter starts once per process, with the
// modules registered and a logger in place, as in the program.
#include <gtest/gtest.h>

#include "engine/MMediator.h"
#include "engine/MPython.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  quorvel::startInterpreter({"quorvel-tests"});
  quorvel::registerScriptModules();
  quorvel::me.logger = std::make_shared<quorvel::TLogger>("Quorvel.log");
  const int result = RUN_ALL_TESTS();
  quorvel::stopInterpreter();
  return result;
}
