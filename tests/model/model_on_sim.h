// The detection model on the host simulation, for tests and benchmarks: pointing the daemon's
// model id file at another model, and the scene's ground truth as the simulation writes it.
#ifndef MIRVANE_TESTS_MODEL_MODEL_ON_SIM_H
#define MIRVANE_TESTS_MODEL_MODEL_ON_SIM_H

#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "model/model_util.h"

namespace mirvane {
namespace testing_model {

// Writes kModelIdConfigPath with the default path ids and kModelPath=model_path.
inline void UseModelFile(const std::string& model_path) {
  mkdir("/tmp/workspace", 0755);
  mkdir("/tmp/workspace/model", 0755);
  const ModelIds ids;
  char text[512];
  std::snprintf(text, sizeof(text),
                "kModelPath=%s\nkCurrentImgPath=%x\nkPreImgPath=%x\n"
                "kHm1Path=%x\nkHm2Path=%x\nkHm3Path=%x\nkReg1Path=%x\nkReg2Path=%x\nkReg3Path=%x\n"
                "kTracking1Path=%x\nkTracking2Path=%x\nkTracking3Path=%x\n",
                model_path.c_str(), ids.current_img, ids.pre_img, ids.hm[0], ids.hm[1], ids.hm[2],
                ids.reg[0], ids.reg[1], ids.reg[2], ids.tracking[0], ids.tracking[1],
                ids.tracking[2]);
  std::ofstream(kModelIdConfigPath, std::ios::trunc) << text;
}

// One object of one delivered frame: pixel box, right and bottom edges exclusive.
struct TruthBox {
  int object_id = 0;
  int class_id = 0;  // one of dva::kClassIds
  int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
};

// The simulation's ground-truth file by frame timestamp (microseconds).
inline std::map<uint64_t, std::vector<TruthBox>> ReadGroundTruth(const std::string& path) {
  std::map<uint64_t, std::vector<TruthBox>> frames;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    unsigned long long count, timestamp;
    long long index;
    TruthBox b;
    if (std::sscanf(line.c_str(), "%llu,%llu,%lld,%d,%d,%d,%d,%d,%d", &count, &timestamp, &index,
                    &b.object_id, &b.class_id, &b.x0, &b.y0, &b.x1, &b.y1) == 9) {
      frames[timestamp].push_back(b);
    }
  }
  return frames;
}

}  // namespace testing_model
}  // namespace mirvane

#endif  // MIRVANE_TESTS_MODEL_MODEL_ON_SIM_H
