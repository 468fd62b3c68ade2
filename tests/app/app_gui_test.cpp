// The program as a whole under a virtual X server: scripts given with -r,
// the state stored at closing, the log, and the exit codes.
#include <gtest/gtest.h>

#include "support/ProgramRun.h"
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "base/MDatabase.h"

namespace fs = std::filesystem;

namespace {

using quorvel::test::ProgramResult;

// Runs the program in a folder with what it reads at start.
ProgramResult runProgram(const std::string& args) {
  const fs::path bin = fs::path(QUORVEL_EXE).parent_path();
  for (const char* f : {"library", "logo.bmp", "Tarnwick.ico"})
    fs::copy_file(bin / f, f, fs::copy_options::overwrite_existing);
  fs::copy(bin / "icons", "icons", fs::copy_options::recursive | fs::copy_options::overwrite_existing);
  return quorvel::test::runCommand("QUORVEL_POPUPS=log timeout 120 " + std::string(QUORVEL_EXE) + " " + args);
}

std::string readLog() { return quorvel::test::readFile("Quorvel.log"); }

std::string script(const std::string& name, const std::string& lines) {
  std::ofstream(name) << lines;
  return name;
}

std::vector<std::string> boxesIn(const std::string& file) {
  quorvel::TDatabase db(file);
  std::vector<std::string> names;
  for (const auto& row : db.execute("SELECT name FROM boxes ORDER BY boxid")->fetchall())
    names.push_back(std::get<std::string>(row[0]));
  return names;
}

}  // namespace

TEST(ProgramWithWindow, AScriptOpensTheSampleAndItsListAndTheStateIsStored) {
  fs::copy_file(std::string(QUORVEL_SOURCE_DIR) + "/samples/orbit/orbit.db", "orbit.db",
                fs::copy_options::overwrite_existing);
  fs::remove("previousstate.qvperspective");
  const ProgramResult r = runProgram("-r " + script("open.qvscript",
                                             "# the sample and its node list\nensureOpen('orbit.db')\n"
                                             "openView('list on nodes')\nexit()\n"));
  EXPECT_EQ(r.code, 0) << r.out;
  EXPECT_EQ(boxesIn("previousstate.qvperspective"), (std::vector<std::string>{"BMain", "BListView"}));
  // A user who starts the program from a terminal sees nothing of the
  // toolkit's complaints there.
  EXPECT_EQ(r.out.find("CRITICAL"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("-WARNING"), std::string::npos) << r.out;
  const std::string log = readLog();
  EXPECT_NE(log.find("Initializing UI..."), std::string::npos);
  EXPECT_NE(log.find("Executing script 'open.qvscript'"), std::string::npos);
  EXPECT_NE(log.find("Loaded 'orbit.db'"), std::string::npos);
}

TEST(ProgramWithWindow, OptionsAndScriptsThatGoWrong) {
  // -q with -r opens the window and runs the script; -s without -l starts
  // no server.
  ProgramResult r = runProgram("-q -s 1234 positional -d --showflow --hwnd 5 -i x -r " +
                        script("quit.qvscript", "exit()\n"));
  EXPECT_EQ(r.code, 0) << r.out;
  EXPECT_EQ(readLog().find("listening server"), std::string::npos);

  // A script name that is not UTF-8, and a script that does not exist.
  const std::string latin1 = std::string("sk\xe9ipt") + ".qvscript";
  script(latin1, "exit()\n");
  r = runProgram("-r '" + latin1 + "'");
  EXPECT_EQ(r.code, 0) << r.out;
  EXPECT_NE(readLog().find("sk\\xe9ipt.qvscript"), std::string::npos) << "the name reaches the log as escapes";

  // A failing line is logged and the script goes on.
  r = runProgram("-r " + script("failing.qvscript", "runScript('missing.qvscript')\nnosuch()\nexit()\n"));
  EXPECT_EQ(r.code, 0) << r.out;
  const std::string log = readLog();
  EXPECT_NE(log.find("Error: Cannot find script 'missing.qvscript'"), std::string::npos);
  EXPECT_NE(log.find("Error: No such command"), std::string::npos);
}

TEST(ProgramWithWindow, AScriptOpensTheRadialViewAndWritesItsPictures) {
  fs::copy_file(std::string(QUORVEL_SOURCE_DIR) + "/samples/orbit/orbit.db", "orbit.db",
                fs::copy_options::overwrite_existing);
  fs::remove("radial.bmp");
  fs::remove("radial-large.png");
  const ProgramResult r = runProgram("-r " + script("radial.qvscript",
                                                    "ensureOpen('orbit.db')\nopenView('heb')\n"
                                                    "makeScreenshot('radial.bmp')\n"
                                                    "makeScreenshot('radial-large.png', True)\nexit()\n"));
  EXPECT_EQ(r.code, 0) << r.out;
  // Width and height from the headers of both files.
  auto bmpSize = [](const std::string& f) {
    std::ifstream in(f, std::ios::binary);
    char h[26] = {};
    in.read(h, 26);
    int32_t w = 0, ht = 0;
    std::memcpy(&w, h + 18, 4);
    std::memcpy(&ht, h + 22, 4);
    return std::make_pair(w, ht < 0 ? -ht : ht);
  };
  auto pngSize = [](const std::string& f) {
    std::ifstream in(f, std::ios::binary);
    unsigned char h[24] = {};
    in.read(reinterpret_cast<char*>(h), 24);
    auto be = [&](int at) { return (h[at] << 24) | (h[at + 1] << 16) | (h[at + 2] << 8) | h[at + 3]; };
    return std::make_pair(be(16), be(20));
  };
  const auto small = bmpSize("radial.bmp");
  const auto large = pngSize("radial-large.png");
  EXPECT_GT(small.first, 100);
  EXPECT_EQ(large, std::make_pair(small.first * 2, small.second * 2));
  EXPECT_NE(readLog().find("OpenGL: "), std::string::npos) << "the first canvas names the OpenGL in use";
}

TEST(ProgramWithWindow, AScriptNamesTheViewsByTheirTitlesAfterARestart) {
  fs::copy_file(std::string(QUORVEL_SOURCE_DIR) + "/samples/orbit/orbit.db", "orbit.db",
                fs::copy_options::overwrite_existing);
  ProgramResult r = runProgram("-r " + script("first.qvscript",
                                              "ensureOpen('orbit.db')\nopenView('heb', 'R')\n"
                                              "openView('treemap', 'T')\nselectViewByName('R')\n"
                                              "setNodeColorAttribute('language')\nexit()\n"));
  ASSERT_EQ(r.code, 0) << r.out;
  fs::copy_file("previousstate.qvperspective", "first.qvperspective", fs::copy_options::overwrite_existing);
  quorvel::TDatabase db("first.qvperspective");
  std::vector<std::string> titles;
  for (const auto& row :
       db.execute("SELECT internalvalue FROM processors WHERE idname='gui title text' ORDER BY procid")->fetchall())
    titles.push_back(std::get<std::string>(row[0]));
  ASSERT_EQ(titles.size(), 2u);
  EXPECT_NE(titles[0].find("'R'"), std::string::npos);
  EXPECT_NE(titles[1].find("'T'"), std::string::npos);

  r = runProgram("-r " + script("second.qvscript",
                                "openPerspective('first.qvperspective')\nselectViewByName('T')\n"
                                "makeScreenshot('t.png')\nselectViewByName('R')\nmakeScreenshot('r.png')\nexit()\n"));
  EXPECT_EQ(r.code, 0) << r.out;
  const std::string log = readLog();
  EXPECT_EQ(log.find("Could not find view"), std::string::npos) << log;
  EXPECT_TRUE(fs::exists("t.png") && fs::exists("r.png")) << log;
}

