// Test entry for the window library, under a virtual X server.
#include <gtest/gtest.h>

#include "support/GuiTestSetup.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  // A failed toolkit assertion fails the test that caused it.
  if (!quorvel::test::setUpGuiTests("quorvel-gui-tests", [](const std::string& text) { ADD_FAILURE() << text; }))
    return 1;
  const int result = RUN_ALL_TESTS();
  quorvel::test::tearDownGuiTests();
  return result;
}
