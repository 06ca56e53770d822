// Rule accuracy: the triggers a scene expects (a true object triggering the region rule from
// some time on; a true object crossing the fence in a direction at some time) against the
// triggers the daemon reported.
//
// Reported triggers: for the region rule, each time a track's region flag turns on (its first
// flagged report, or the first after an unflagged one); for the fence, every report with a
// direction flag (the daemon flags a crossing in exactly one frame). A reported trigger belongs
// to the true object its track is matched with in that frame (the CLEAR correspondence), or,
// when unmatched then, to the object the track is matched with most often over the run.
//
// Each expectation takes the earliest unused trigger of its rule (and direction) that belongs
// to its object and falls within [time - early, time + late]; its delay is the trigger's time
// minus the expected time. Triggers no expectation takes are false.
//
// Expectation file (JSON; the same object may also sit under "expected_triggers" of a scene
// file; times in seconds into the scene, or "frame" for the scene's frame index):
//   {"region": {"early_seconds": 1, "late_seconds": 30,
//               "expect": [{"object": 1, "time": 9.5}, {"object": 2, "frame": 240}]},
//    "fence": {"expect": [{"object": 7, "direction": 1, "time": 16.2}]}}
// Pure code; any thread.
#ifndef MIRVANE_TOOLS_EVAL_RULES_H
#define MIRVANE_TOOLS_EVAL_RULES_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "clear_mot.h"
#include "run.h"

namespace mirvane {
namespace eval {

enum class RuleKind { kRegion, kFence };
const char* RuleName(RuleKind rule);  // "region", "fence"

struct ExpectedTrigger {
  RuleKind rule = RuleKind::kRegion;
  int64_t object = 0;
  int direction = 0;                                       // fence crossings: 1 or 2
  double time = std::numeric_limits<double>::quiet_NaN();  // seconds into the scene
  int64_t frame = -1;  // or the scene's frame index, when time is NaN
};

// How far before and after the expected time a trigger still counts.
struct TriggerWindow {
  double early_seconds = 0;
  double late_seconds = 0;
};

struct Expectations {
  std::vector<ExpectedTrigger> triggers;
  TriggerWindow region{1.0, std::numeric_limits<double>::infinity()};
  TriggerWindow fence{0.5, 2.0};
};

bool ParseExpectations(const std::string& text, Expectations* expectations, std::string* error);

constexpr int64_t kNoObject = std::numeric_limits<int64_t>::min();

struct ReportedTrigger {
  RuleKind rule = RuleKind::kRegion;
  int direction = 0;
  int64_t tracking_id = 0;
  size_t run_frame = 0;  // index into the run's frames
  uint64_t timestamp = 0;
  double time = 0;
  int64_t object = kNoObject;  // the true object it belongs to
};

std::vector<ReportedTrigger> CollectTriggers(
    const AlignedRun& run, const std::vector<FrameCorrespondence>& correspondence);

struct ExpectationOutcome {
  ExpectedTrigger expected;  // with its time resolved
  bool found = false;
  ReportedTrigger trigger;  // when found
  double delay_seconds = 0;
};

struct FalseTrigger {
  ReportedTrigger trigger;
  std::string reason;
};

struct RuleTally {
  int64_t expected = 0;
  int64_t found = 0;
  int64_t missed = 0;
  int64_t false_triggers = 0;
  double mean_delay = std::numeric_limits<double>::quiet_NaN();  // seconds, over found ones
  double max_delay = std::numeric_limits<double>::quiet_NaN();
};

struct RuleAccuracy {
  std::vector<ExpectationOutcome> outcomes;  // by expected time
  std::vector<FalseTrigger> false_triggers;  // by time
  RuleTally region;
  RuleTally fence;
};

// False with a reason when an expectation names a frame the run cannot place in time.
bool EvaluateRules(const AlignedRun& run, const std::vector<FrameCorrespondence>& correspondence,
                   const Expectations& expectations, RuleAccuracy* accuracy, std::string* error);

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_EVAL_RULES_H
