// Setting up a whole-system run on the host simulation: the simulation's settings and scene, the
// ideal network's model file with the model id file pointing at it, and the daemon's rules in the
// parameter store. For test programs that run in a private namespace (their own /tmp).
#ifndef MIRVANE_TESTS_E2E_RUN_SETUP_H
#define MIRVANE_TESTS_E2E_RUN_SETUP_H

#include <string>
#include <vector>

#include "testing/daemon_files.h"

namespace mirvane {
namespace e2e {

constexpr char kGroundTruth[] = "/tmp/mirvane-sim/ground_truth.csv";
constexpr char kWholePicture[] = "0.0,0.0,1.0,0.0,1.0,1.0,0.0,1.0";
constexpr char kMiddleFence[] = "0.5,0.0,0.5,1.0";  // top to bottom: direction 1 is left to right

using testing::SetSetting;
using testing::WriteText;

struct RunSetup {
  std::string scene = "default";  // a shipped scene's name or a scene as JSON text
  std::string file;               // a video file played instead of the scene
  std::string video_extra;        // further members of the video settings (", \"fps\": 10")
  std::string clock = "virtual";  // or "real"
  std::string pace = "fast";      // or "realtime"
  bool ideal_model = true;        // else the network the build installs, imperfections and all
  bool loop = false;              // the scene starts again at its end
  std::string sim_extra;          // further members of the simulation's settings ("faults")
  std::vector<std::string> model_args;  // for mirvane-model, e.g. {"--delay-ms", "400"}
  std::string region = kWholePicture;
  int dwell_seconds = 1;  // for people and vehicles
  std::string fence = kMiddleFence;
  int fence_directions = 3;
};

// Writes the simulation's settings, the ideal model with the model id file pointing at it (unless
// the installed model is asked for), and the rules (detection threshold 35 %, tracking 60 %; region
// for people and vehicles, fence for people and vehicles).
void Prepare(const RunSetup& s);

}  // namespace e2e
}  // namespace mirvane

#endif  // MIRVANE_TESTS_E2E_RUN_SETUP_H
