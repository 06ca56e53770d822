#include "testing/scratch_directory.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

namespace mirvane {
namespace testing {

ScratchDirectory::ScratchDirectory() {
  const char* base = std::getenv("TMPDIR");
  std::string name =
      std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/mirvane-test-XXXXXX";
  std::vector<char> buffer(name.begin(), name.end());
  buffer.push_back('\0');
  if (mkdtemp(buffer.data()) == nullptr) ADD_FAILURE() << "cannot make " << name;
  path_ = buffer.data();
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
}

}  // namespace testing
}  // namespace mirvane
