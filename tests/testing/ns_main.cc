// main() of the test executables that touch the daemon's fixed paths: each such binary runs in a
// private mount namespace with a /tmp of its own, so that suites never see the machine's /tmp or
// each other's files, and may run side by side. (The other suites link testing/main.cc.)
#include <gtest/gtest.h>

#include <string>

#include "testing/test_namespace.h"

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  mirvane::hostns::NamespaceOptions options;
  // The daemon's model file, as the build writes it, at its place under /etc.
  options.etc_binds.emplace_back("tolvern-ai", std::string(MIRVANE_BINARY_DIR) + "/models");
  if (!mirvane::testing::EnterTestNamespace(options)) return 1;
  return RUN_ALL_TESTS();
}
