// Process entry of the workbench.
#include <pybind11/embed.h>

#include <iostream>

#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "app/MAppClasses.h"
#include "app/MMain.h"

namespace py = pybind11;
using namespace quorvel;

int main(int argc, char** argv) {
  if (argc < 1 || argv == nullptr) {
    std::cout << "CommandLineToArgvW failed\n";
    return 0;
  }
  const std::vector<std::string> args(argv, argv + argc);
  startInterpreter(args);

  int code = 0;
  std::shared_ptr<TLogger> logger;
  try {
    logger = std::make_shared<TLogger>("Quorvel.log");
    registerApplicationClasses();
    registerScriptModules();
    me.RELEASEMODE = true;
    me.PUBLICMODE = true;
    me.logger = logger;
    run(args);
  } catch (const TProcessExit& e) {
    code = e.code();
  } catch (py::error_already_set& e) {
    if (logger) logger->criticalerror("Python error while starting Quorvel");
    const TExceptionText info = describeException(std::current_exception());
    std::cout << info.text << "\n" << info.traceback << "\n";
    if (logger) {
      logger->criticalerror(info.text);
      logger->criticalerror(info.traceback);
    }
    code = 1;
  } catch (const std::exception& e) {
    if (logger) logger->criticalerror("C++ error while starting Quorvel");
    std::cout << e.what() << std::endl;
    code = 2;
  }
  stopInterpreter();
  return code;
}
