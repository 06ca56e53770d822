#include "testing/daemon_files.h"

#include <gtest/gtest.h>
#include <jansson.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "mirvane_sim.h"

namespace mirvane {
namespace testing {

void WriteText(const std::string& path, const std::string& text) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    mkdir(path.substr(0, slash).c_str(), 0755);
  }
  std::ofstream file(path, std::ios::trunc);
  file << text;
  EXPECT_TRUE(file.good()) << path;
}

void SetSetting(const std::string& key, const std::string& json_value) {
  json_t* value = json_loads(json_value.c_str(), JSON_DECODE_ANY, nullptr);
  ASSERT_NE(value, nullptr) << json_value;
  EXPECT_EQ(mirvane_param_set(key.c_str(), value), 0) << key;
  json_decref(value);
}

std::string ModelIdTable(const std::string& model_path) {
  return "kModelPath=" + model_path +
         "\nkCurrentImgPath=90000000\nkPreImgPath=90000001\nkHm1Path=a0000084\n"
         "kHm2Path=a0000096\nkHm3Path=a00000a7\nkReg1Path=a000007e\nkReg2Path=a0000094\n"
         "kReg3Path=a00000a5\nkTracking1Path=a0000081\nkTracking2Path=a0000095\n"
         "kTracking3Path=a00000a6\n";
}

std::vector<std::string> LinesContaining(const std::string& text, const std::string& part) {
  std::vector<std::string> found;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.find(part) != std::string::npos) found.push_back(line);
  }
  return found;
}

}  // namespace testing
}  // namespace mirvane
