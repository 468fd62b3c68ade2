// Test entry for the core: the interpreter starts once per process, with the
// modules registered and a logger in place, as in the program.
#include <gtest/gtest.h>

#include <filesystem>

#include "engine/MMediator.h"
#include "engine/MPython.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  // Every run starts in an empty scratch folder below the working folder.
  const std::filesystem::path scratch = std::filesystem::current_path() / "scratch";
  std::filesystem::remove_all(scratch);
  std::filesystem::create_directories(scratch);
  std::filesystem::current_path(scratch);
  quorvel::startInterpreter({"quorvel-tests"});
  quorvel::registerScriptModules();
  quorvel::me.logger = std::make_shared<quorvel::TLogger>("Quorvel.log");
  const int result = RUN_ALL_TESTS();
  quorvel::stopInterpreter();
  return result;
}
