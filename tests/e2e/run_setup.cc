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
  WriteText("/tmp/workspace/model/model_id.config", testing::ModelIdTable(model));
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
  const std::string source = s.file.empty() ? "\"scene\": \"" + scene : "\"file\": \"" + s.file;
  WriteText("/tmp/mirvane-sim/sim.json",
            "{\"clock\": \"" + s.clock + "\", \"video\": {" + source + "\", \"pace\": \"" + s.pace +
                "\", \"loop\": " + (s.loop ? "true" : "false") + ", \"ground_truth\": \"" +
                kGroundTruth + "\"" + s.video_extra + "}" + (s.sim_extra.empty() ? "" : ", ") +
                s.sim_extra + "}\n");
  mirvane_sim_reload_settings();

  if (s.ideal_model) WriteIdealModel(s.model_args);
  StoreRules(s);
}

}  // namespace e2e
}  // namespace mirvane
