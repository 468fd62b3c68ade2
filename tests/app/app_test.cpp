// The program as a process: options, exit codes and the log file.
#include <gtest/gtest.h>

#include "support/ProgramRun.h"
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

using quorvel::test::ProgramResult;

// The program as started on a machine without a display.
ProgramResult runProgram(const std::string& args) {
  return quorvel::test::runCommand("env -u DISPLAY -u WAYLAND_DISPLAY " + std::string(QUORVEL_EXE) + " " + args);
}

std::string readLog() { return quorvel::test::readFile("Quorvel.log"); }

}  // namespace

TEST(Program, QuitWithoutScriptEndsAtOnceWithZero) {
  const ProgramResult r = runProgram("-q");
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.out.find("Initializing UI"), std::string::npos);
  const std::string log = readLog();
  EXPECT_NE(log.find("Quorvel Workbench "), std::string::npos);
  EXPECT_EQ(log.find("Initializing UI..."), std::string::npos);
  EXPECT_EQ(runProgram("--quit").code, 0);
}

TEST(Program, BadOptionsPrintTheUsage) {
  ProgramResult r = runProgram("--nosuchoption");
  EXPECT_EQ(r.code, 2);
  EXPECT_NE(r.out.find("Usage: quorvel [options]"), std::string::npos);
  EXPECT_NE(r.out.find("no such option: --nosuchoption"), std::string::npos);
  for (const char* bad : {"-l notanumber", "-l 99999999999", "-s -99999999999"}) {
    r = runProgram(bad);
    EXPECT_EQ(r.code, 2) << bad;
    EXPECT_NE(r.out.find("invalid integer value"), std::string::npos) << bad;
  }
}

TEST(Program, HelpHidesTheHiddenFlags) {
  const ProgramResult r = runProgram("--help");
  EXPECT_EQ(r.code, 0);
  EXPECT_NE(r.out.find("Listen to <port number>"), std::string::npos);
  EXPECT_NE(r.out.find("Run script after starting."), std::string::npos);
  EXPECT_EQ(r.out.find("--showflow"), std::string::npos);
  EXPECT_EQ(r.out.find("--debug"), std::string::npos);
}

TEST(Program, WithoutADisplayOneClearLineAndExitOne) {
  const ProgramResult r = runProgram("-s 1234 positional -d --showflow --hwnd 5 -i x");
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.out.find("needs a display"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("xvfb-run"), std::string::npos);
  EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 1) << r.out;
  const std::string log = readLog();
  EXPECT_NE(log.find("Pyver: "), std::string::npos);
  EXPECT_NE(log.find("Executable mod. time: "), std::string::npos);
  // A second start empties the log of the first.
  runProgram("-q");
  EXPECT_EQ(readLog().find("needs a display"), std::string::npos);
  EXPECT_EQ(readLog().find("No display"), std::string::npos);
}
