#include "e2e/e2e_support.h"

#include <gtest/gtest.h>
#include <jansson.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "mirvane_sim.h"

namespace mirvane {
namespace e2e {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char* kIdealModel = "/tmp/mirvane-sim/ideal_model.bin";
constexpr const char* kModelIdFile = "/tmp/workspace/model/model_id.config";

void MakeDirs(const std::string& path) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    mkdir(path.substr(0, slash).c_str(), 0755);
  }
  mkdir(path.c_str(), 0755);
}

void WriteText(const std::string& path, const std::string& text) {
  MakeDirs(path.substr(0, path.rfind('/')));
  std::ofstream file(path, std::ios::trunc);
  file << text;
  ASSERT_TRUE(file.good()) << path;
}

json_t* ParseJson(const std::string& text) {
  json_error_t error;
  json_t* value = json_loads(text.c_str(), JSON_DECODE_ANY, &error);
  EXPECT_NE(value, nullptr) << error.text << " in " << text;
  return value;
}

ObjectRecord ParseObject(json_t* item) {
  ObjectRecord object;
  object.class_name = json_string_value(json_object_get(item, "class"));
  object.tracking_id = static_cast<int>(json_integer_value(json_object_get(item, "tracking_id")));
  object.snapshot_id = static_cast<int>(json_integer_value(json_object_get(item, "snapshot_id")));
  object.flags = static_cast<int>(json_integer_value(json_object_get(item, "flags")));
  object.region = json_is_true(json_object_get(item, "region"));
  object.fence = static_cast<int>(json_integer_value(json_object_get(item, "fence")));
  json_t* box = json_object_get(item, "box");
  for (size_t i = 0; i < 4; ++i) object.box[i] = json_number_value(json_array_get(box, i));
  return object;
}

}  // namespace

void WriteSimSettings(const std::string& scene, const std::string& pace,
                      const std::string& extra_members) {
  std::string text = "{\"video\": {\"scene\": \"" + scene + "\", \"pace\": \"" + pace +
                     "\", \"ground_truth\": \"" + kGroundTruth + "\"}";
  if (!extra_members.empty()) text += ", " + extra_members;
  WriteText("/tmp/mirvane-sim/sim.json", text + "}\n");
  mirvane_sim_reload_settings();
}

std::string WriteScene(const std::string& json) {
  WriteText(kSceneFile, json);
  return kSceneFile;
}

void UseIdealModel(const std::vector<std::string>& extra) {
  MakeDirs("/tmp/mirvane-sim");
  std::vector<std::string> argv = {MIRVANE_MODEL_TOOL_PATH, "write", "--ideal"};
  argv.insert(argv.end(), extra.begin(), extra.end());
  argv.push_back(kIdealModel);
  testing::Subprocess tool(argv);
  ASSERT_TRUE(tool.Wait(seconds(30)));
  ASSERT_EQ(tool.result().exit_code, 0) << tool.result().err;
  WriteText(kModelIdFile, std::string("kModelPath=") + kIdealModel +
                              "\nkCurrentImgPath=90000000\nkPreImgPath=90000001\n"
                              "kHm1Path=a0000084\nkHm2Path=a0000096\nkHm3Path=a00000a7\n"
                              "kReg1Path=a000007e\nkReg2Path=a0000094\nkReg3Path=a00000a5\n"
                              "kTracking1Path=a0000081\nkTracking2Path=a0000095\n"
                              "kTracking3Path=a00000a6\n");
}

void LoadSettings(const std::string& json) {
  json_t* object = ParseJson(json);
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(mirvane_param_load(object), 0);
  json_decref(object);
}

void SetSetting(const std::string& key, const std::string& json_value) {
  json_t* value = ParseJson(json_value);
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(mirvane_param_set(key.c_str(), value), 0);
  json_decref(value);
}

void LoadRules(const std::string& region, int dwell_seconds, const std::string& fence,
               int fence_directions) {
  char text[1024];
  std::snprintf(text, sizeof(text),
                "{\"Custom\": {\"Dva\": {"
                "\"Threshold\": {\"Detection\": 35, \"Tracking\": 60},"
                "\"ObjectDetection\": {\"DetectionRegion\": \"%s\", \"DetectionRegionType\": 0,"
                " \"MinPeopleTriggerTimeSeconds\": %d, \"MinVehicleTriggerTimeSeconds\": %d,"
                " \"MinTriggerObjectRatioPermille\": 0, \"ClassIdFilter\": 22},"
                "\"IntrusionDetection\": {\"FenceLine\": \"%s\", \"FenceIntersectType\": %d,"
                " \"MinTriggerObjectRatioPermille\": 0, \"ClassIdFilter\": 20}}}}",
                region.c_str(), dwell_seconds, dwell_seconds, fence.c_str(), fence_directions);
  LoadSettings(text);
}

Transcript ParseTranscript(const std::string& json_lines) {
  Transcript transcript;
  std::istringstream lines(json_lines);
  std::string line;
  while (std::getline(lines, line)) {
    json_t* record = json_loads(line.c_str(), 0, nullptr);
    if (record == nullptr) continue;  // a line still being written
    const std::string kind = json_string_value(json_object_get(record, "kind"));
    if (kind == "event") {
      EventRecord event;
      event.time = json_number_value(json_object_get(record, "time"));
      event.timestamp =
          static_cast<uint64_t>(json_integer_value(json_object_get(record, "timestamp")));
      event.count = static_cast<int>(json_integer_value(json_object_get(record, "count")));
      json_t* objects = json_object_get(record, "objects");
      for (size_t i = 0; i < json_array_size(objects); ++i) {
        event.objects.push_back(ParseObject(json_array_get(objects, i)));
      }
      transcript.events.push_back(std::move(event));
    } else if (kind == "note") {
      transcript.notes.push_back(
          {json_string_value(json_object_get(record, "note")), transcript.events.size()});
    } else if (kind == "heartbeat") {
      ++transcript.heartbeats;
    } else if (kind == "summary") {
      transcript.has_summary = true;
    }
    json_decref(record);
  }
  return transcript;
}

// The stand-in's command line; clears what an earlier run of the same program left behind.
std::vector<std::string> StandInCommand(int max_restarts) {
  MakeDirs("/tmp/log");
  unlink(kDaemonOutput);
  return {MIRVANE_SYSD_PATH, "--json",         "--restart-command",          MIRVANE_DAEMON_PATH,
          "--start",         "--max-restarts", std::to_string(max_restarts), "--daemon-output",
          kDaemonOutput};
}

StandInRun::StandInRun(int max_restarts) : process_(StandInCommand(max_restarts)) {}

bool StandInRun::WaitFor(bool (*condition)(const Transcript&), std::chrono::seconds timeout) const {
  return testing::WaitUntil([&] { return condition(Read()); }, timeout);
}

bool StandInRun::WaitForEvents(size_t count, std::chrono::seconds timeout) const {
  return testing::WaitUntil([&] { return Read().events.size() >= count; }, timeout);
}

bool StandInRun::WaitForEnd(std::chrono::seconds timeout) {
  return process_.Wait(timeout);
}

void StandInRun::Stop() const {
  process_.Signal(SIGTERM);
}

std::string DaemonOutput() {
  return testing::ReadFileOrEmpty(kDaemonOutput);
}

std::vector<std::string> DaemonLogLines(const std::string& text) {
  std::vector<std::string> found;
  std::istringstream lines(DaemonOutput());
  std::string line;
  while (std::getline(lines, line)) {
    if (line.find(text) != std::string::npos) found.push_back(line);
  }
  return found;
}

int CountNotes(const Transcript& transcript, const std::string& text) {
  return static_cast<int>(std::count_if(
      transcript.notes.begin(), transcript.notes.end(),
      [&](const NoteRecord& note) { return note.text.find(text) != std::string::npos; }));
}

const NoteRecord* FindNote(const Transcript& transcript, const std::string& text) {
  for (const NoteRecord& note : transcript.notes) {
    if (note.text.find(text) != std::string::npos) return &note;
  }
  return nullptr;
}

GroundTruth ReadGroundTruth(const std::string& path) {
  GroundTruth truth;
  std::istringstream lines(testing::ReadFileOrEmpty(path));
  std::string line;
  while (std::getline(lines, line)) {
    if (line.empty()) continue;
    if (line[0] == '#') {
      const size_t w = line.find("width=");
      const size_t h = line.find("height=");
      if (w != std::string::npos) truth.width = std::stoi(line.substr(w + 6));
      const size_t f = line.find("frames=");
      if (h != std::string::npos) truth.height = std::stoi(line.substr(h + 7));
      if (f != std::string::npos) truth.frame_count = std::stoll(line.substr(f + 7));
      continue;
    }
    unsigned long long count = 0, timestamp = 0, frame = 0;
    TruthBox box;
    if (std::sscanf(line.c_str(), "%llu,%llu,%llu,%d,%d,%lf,%lf,%lf,%lf", &count, &timestamp,
                    &frame, &box.object_id, &box.class_id, &box.x0, &box.y0, &box.x1,
                    &box.y1) == 9) {
      truth.frames[timestamp].push_back(box);
    }
  }
  return truth;
}

double Overlap(const ObjectRecord& object, const TruthBox& truth, int width, int height) {
  const double x0 = object.box[0] * width, y0 = object.box[1] * height;
  const double x1 = object.box[2] * width, y1 = object.box[3] * height;
  const double iw = std::min(x1, truth.x1) - std::max(x0, truth.x0);
  const double ih = std::min(y1, truth.y1) - std::max(y0, truth.y0);
  if (iw <= 0 || ih <= 0) return 0;
  const double inter = iw * ih;
  return inter / ((x1 - x0) * (y1 - y0) + (truth.x1 - truth.x0) * (truth.y1 - truth.y0) - inter);
}

}  // namespace e2e
}  // namespace mirvane
