// The application's start: run() and run2().
#pragma once

#include <string>
#include <vector>

namespace quorvel {

// Runs the application; what run2 raises is printed and logged, and run
// returns normally. A request to end the process (TProcessExit) passes.
void run(const std::vector<std::string>& args);
void run2(const std::vector<std::string>& args);

}  // namespace quorvel
