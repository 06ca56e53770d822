// Whole-system runs on the host simulation for the end-to-end tests: the simulation's settings and
// scene, the ideal model, the rules in the parameter store, and the system-daemon stand-in, which
// starts the daemon and prints what it receives as JSON lines that these helpers read back.
// Every test program runs in a private namespace with its own /tmp, so the fixed paths are safe.
#ifndef MIRVANE_TESTS_E2E_E2E_SUPPORT_H
#define MIRVANE_TESTS_E2E_E2E_SUPPORT_H

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "testing/child_process.h"

namespace mirvane {
namespace e2e {

constexpr const char* kDaemonOutput = "/tmp/log/mirvane.out";
constexpr const char* kGroundTruth = "/tmp/mirvane-sim/ground_truth.csv";
constexpr const char* kSceneFile = "/tmp/mirvane-sim/scene.json";

// The simulation's settings: the scene, "pace" ("fast" or "realtime") and further members of the
// top-level object (e.g. "\"faults\": [...]"), written to /tmp/mirvane-sim/sim.json with a
// ground-truth file.
void WriteSimSettings(const std::string& scene, const std::string& pace,
                      const std::string& extra_members = "");
// A scene file (format of platform/sim/scene.h) at kSceneFile; returns its path.
std::string WriteScene(const std::string& json);
// Writes the ideal network (exact boxes, no misses) and points the model id file at it; extra
// arguments go to mirvane-model (e.g. {"--delay-ms", "200"}).
void UseIdealModel(const std::vector<std::string>& extra = {});
// Loads members into the parameter store, as mirvane-param load does ({"Custom": {"Dva": ...}}).
void LoadSettings(const std::string& json);
// Sets one key of the parameter store to a JSON value.
void SetSetting(const std::string& key, const std::string& json_value);
// The rules for a run: a region (polygon text) and a fence line with its direction mask; the
// trigger times in seconds for people and vehicles. Detection threshold 35 %, tracking 60 %.
void LoadRules(const std::string& region, int dwell_seconds, const std::string& fence,
               int fence_directions);

struct ObjectRecord {
  std::string class_name;
  int tracking_id = 0;
  int snapshot_id = 0;
  int flags = 0;
  bool region = false;
  int fence = 0;  // the direction bits the stand-in decoded: 1, 2 or 3
  double box[4] = {0, 0, 0, 0};
};

struct EventRecord {
  double time = 0;  // when the stand-in received it (wall clock, seconds)
  uint64_t timestamp = 0;
  int count = 0;
  std::vector<ObjectRecord> objects;
};

// What the stand-in printed, read back from its JSON lines.
struct NoteRecord {
  std::string text;
  size_t events_before = 0;  // events printed ahead of the note
};

struct Transcript {
  std::vector<EventRecord> events;
  std::vector<NoteRecord> notes;
  int heartbeats = 0;
  bool has_summary = false;
};
Transcript ParseTranscript(const std::string& json_lines);

// The stand-in running the daemon: started at once with --json; restarts it at most max_restarts
// times and ends once the daemon ended after them.
class StandInRun {
 public:
  explicit StandInRun(int max_restarts = 0);
  StandInRun(const StandInRun&) = delete;
  StandInRun& operator=(const StandInRun&) = delete;

  Transcript Read() const { return ParseTranscript(process_.ReadOut()); }
  // Waits until the transcript meets condition; false on timeout.
  bool WaitFor(bool (*condition)(const Transcript&), std::chrono::seconds timeout) const;
  bool WaitForEvents(size_t count, std::chrono::seconds timeout) const;
  // Waits for the stand-in's own end (it stops after the last daemon run); false on timeout.
  bool WaitForEnd(std::chrono::seconds timeout);
  // Asks the stand-in to stop (it stops the daemon with SIGTERM first).
  void Stop() const;
  const testing::ChildResult& result() const { return process_.result(); }

 private:
  testing::Subprocess process_;
};

std::string DaemonOutput();
// The daemon's log lines that contain text, in order.
std::vector<std::string> DaemonLogLines(const std::string& text);
int CountNotes(const Transcript& transcript, const std::string& text);
// The first note that contains text, or nullptr.
const NoteRecord* FindNote(const Transcript& transcript, const std::string& text);

// Ground truth of the simulated video: per frame timestamp, the objects shown (pixel boxes).
struct TruthBox {
  int object_id = 0;
  int class_id = 0;
  double x0 = 0, y0 = 0, x1 = 0, y1 = 0;
};
struct GroundTruth {
  int width = 0;
  int height = 0;
  int64_t frame_count = 0;
  std::map<uint64_t, std::vector<TruthBox>> frames;
};
GroundTruth ReadGroundTruth(const std::string& path = kGroundTruth);

// Intersection over union of a normalised event box and a pixel box of the ground truth.
double Overlap(const ObjectRecord& object, const TruthBox& truth, int width, int height);

}  // namespace e2e
}  // namespace mirvane

#endif  // MIRVANE_TESTS_E2E_E2E_SUPPORT_H
