// main() of the test executables that touch the daemon's fixed paths: every test binary runs in a
// private mount namespace with a /tmp of its own, so that suites never see the machine's /tmp or
// each other's files, and may run side by side.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "private_namespace.h"

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  mirvane::hostns::NamespaceOptions options;
  options.keep_paths = {MIRVANE_SOURCE_DIR, MIRVANE_BINARY_DIR};
  // The daemon's model file, as the build writes it, at its place under /etc.
  options.etc_binds.emplace_back("tolvern-ai", std::string(MIRVANE_BINARY_DIR) + "/models");
  std::string error;
  if (!mirvane::hostns::EnterPrivateNamespace(options, &error)) {
    std::fprintf(stderr,
                 "cannot run in a private namespace (%s); these tests need unprivileged user "
                 "namespaces or root\n",
                 error.c_str());
    return 1;
  }
  return RUN_ALL_TESTS();
}
