#include "e2e/run_setup.h"

#include <gtest/gtest.h>
#include <jansson.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <fstream>

#include "mirvane_sim.h"
#include "testing/child_process.h"

namespace mirvane {
namespace e2e {

using std::chrono::seconds;
using testing::Subprocess;

void WriteText(const std::string& path, const std::string& text) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    mkdir(path.substr(0, slash).c_str(), 0755);
  }
  std::ofstream file(path, std::ios::trunc);
  file << text;
  ASSERT_TRUE(file.good()) << path;
}

void SetSetting(const std::string& key, const std::string& json_value) {
  json_t* value = json_loads(json_value.c_str(), JSON_DECODE_ANY, nullptr);
  ASSERT_NE(value, nullptr) << json_value;
  EXPECT_EQ(mirvane_param_set(key.c_str(), value), 0);
  json_decref(value);
}

namespace {

// The ideal network's model file, with the model id file pointing at it.
void WriteIdealModel(const std::vector<std::string>& model_args) {
  const char* model = "/tmp/mirvane-sim/ideal_model.bin";
  std::vector<std::string> argv = {MIRVANE_MODEL_TOOL_PATH, "write", "--ideal"};
  argv.insert(argv.end(), model_args.begin(), model_args.end());
  argv.push_back(model);
  Subprocess tool(argv);
  ASSERT_TRUE(tool.Wait(seconds(30)));
  ASSERT_EQ(tool.result().exit_code, 0) << tool.result().err;
  WriteText("/tmp/workspace/model/model_id.config",
            std::string("kModelPath=") + model +
                "\nkCurrentImgPath=90000000\nkPreImgPath=90000001\nkHm1Path=a0000084\n"
                "kHm2Path=a0000096\nkHm3Path=a00000a7\nkReg1Path=a000007e\nkReg2Path=a0000094\n"
                "kReg3Path=a00000a5\nkTracking1Path=a0000081\nkTracking2Path=a0000095\n"
                "kTracking3Path=a00000a6\n");
}

// The rules of the setup, in the parameter store.
void StoreRules(const RunSetup& s) {
  char rules[1024];
  std::snprintf(rules, sizeof(rules),
                "{\"Threshold\": {\"Detection\": 35, \"Tracking\": 60},"
                "\"ObjectDetection\": {\"DetectionRegion\": \"%s\", \"DetectionRegionType\": 0,"
                " \"MinPeopleTriggerTimeSeconds\": %d, \"MinVehicleTriggerTimeSeconds\": %d,"
                " \"MinTriggerObjectRatioPermille\": 0, \"ClassIdFilter\": 22},"
                "\"IntrusionDetection\": {\"FenceLine\": \"%s\", \"FenceIntersectType\": %d,"
                " \"MinTriggerObjectRatioPermille\": 0, \"ClassIdFilter\": 22}}",
                s.region.c_str(), s.dwell_seconds, s.dwell_seconds, s.fence.c_str(),
                s.fence_directions);
  SetSetting("Custom.Dva", rules);
}

}  // namespace

void Prepare(const RunSetup& s) {
  std::string scene = s.scene;
  if (scene[0] == '{') {
    scene = "/tmp/mirvane-sim/scene.json";
    WriteText(scene, s.scene);
  }
  WriteText("/tmp/mirvane-sim/sim.json",
            "{\"clock\": \"" + s.clock + "\", \"video\": {\"scene\": \"" + scene +
                "\", \"pace\": \"" + s.pace + "\", \"loop\": " + (s.loop ? "true" : "false") +
                ", \"ground_truth\": \"" + kGroundTruth + "\"}" +
                (s.sim_extra.empty() ? "" : ", ") + s.sim_extra + "}\n");
  mirvane_sim_reload_settings();

  if (s.ideal_model) WriteIdealModel(s.model_args);
  StoreRules(s);
}

}  // namespace e2e
}  // namespace mirvane
