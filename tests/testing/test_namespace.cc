#include "testing/test_namespace.h"

#include <cstdio>
#include <string>

namespace mirvane {
namespace testing {

bool EnterTestNamespace(hostns::NamespaceOptions options) {
  options.keep_paths.push_back(MIRVANE_SOURCE_DIR);
  options.keep_paths.push_back(MIRVANE_BINARY_DIR);
  std::string error;
  if (hostns::EnterPrivateNamespace(options, &error)) return true;
  std::fprintf(stderr,
               "cannot run in a private namespace (%s); these tests need unprivileged user "
               "namespaces or root\n",
               error.c_str());
  return false;
}

}  // namespace testing
}  // namespace mirvane
