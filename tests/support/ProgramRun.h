// Runs the program as a separate process and reads what it left behind.
#pragma once

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace quorvel::test {

struct ProgramResult {
  int code;  // -1 when it did not end normally
  std::string out;
};

// Standard output and error together.
inline ProgramResult runCommand(const std::string& command) {
  ProgramResult r{-1, ""};
  FILE* p = popen((command + " 2>&1").c_str(), "r");
  if (!p) return r;
  std::array<char, 4096> buf{};
  size_t n;
  while ((n = fread(buf.data(), 1, buf.size(), p)) > 0) r.out.append(buf.data(), n);
  const int status = pclose(p);
  r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

inline std::string readFile(const std::string& name) {
  std::ifstream in(name);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

}  // namespace quorvel::test
