// The program as a process: options, exit codes and the log file.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

struct Result {
  int code;
  std::string out;
};

Result runProgram(const std::string& args) {
  const std::string cmd = std::string(QUORVEL_EXE) + " " + args + " 2>&1";
  Result r{-1, ""};
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return r;
  std::array<char, 4096> buf{};
  size_t n;
  while ((n = fread(buf.data(), 1, buf.size(), p)) > 0) r.out.append(buf.data(), n);
  const int status = pclose(p);
  r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

std::string readLog() {
  std::ifstream in("Quorvel.log");
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

}  // namespace

TEST(Program, QuitWithoutScriptEndsAtOnceWithZero) {
  const Result r = runProgram("-q");
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.out.find("Initializing UI"), std::string::npos);
  const std::string log = readLog();
  EXPECT_NE(log.find("Quorvel Workbench "), std::string::npos);
  EXPECT_EQ(log.find("Initializing UI..."), std::string::npos);
  EXPECT_EQ(runProgram("--quit").code, 0);
}

TEST(Program, BadOptionsPrintTheUsage) {
  Result r = runProgram("--nosuchoption");
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
  const Result r = runProgram("--help");
  EXPECT_EQ(r.code, 0);
  EXPECT_NE(r.out.find("Listen to <port number>"), std::string::npos);
  EXPECT_NE(r.out.find("Run script after starting."), std::string::npos);
  EXPECT_EQ(r.out.find("--showflow"), std::string::npos);
  EXPECT_EQ(r.out.find("--debug"), std::string::npos);
}

TEST(Program, StartLogsAndEachStartEmptiesTheLog) {
  Result r = runProgram("-s 1234 positional -d --showflow --hwnd 5 -i x");
  EXPECT_EQ(r.code, 0);
  std::string log = readLog();
  EXPECT_NE(log.find("Pyver: "), std::string::npos);
  EXPECT_NE(log.find("Executable mod. time: "), std::string::npos);
  EXPECT_NE(log.find("Initializing UI..."), std::string::npos);
  EXPECT_EQ(log.find("listening server"), std::string::npos) << "-s without -l starts nothing";
  runProgram("-q");
  log = readLog();
  EXPECT_EQ(log.find("Initializing UI..."), std::string::npos);
  r = runProgram("-l 5");
  EXPECT_NE(readLog().find("Critical error: Could not start listening server"), std::string::npos);
  EXPECT_EQ(r.code, 0);
}
