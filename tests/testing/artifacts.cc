#include "testing/artifacts.h"

#include <sys/stat.h>

#include <cerrno>
#include <fstream>

namespace mirvane {
namespace testing {

bool SaveArtifact(const std::string& name, const std::string& bytes) {
  const std::string path = std::string(MIRVANE_BINARY_DIR) + "/artifacts/" + name;
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    if (mkdir(path.substr(0, slash).c_str(), 0755) != 0 && errno != EEXIST) return false;
  }
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(out);
}

}  // namespace testing
}  // namespace mirvane
