#include "rules.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <unordered_map>

#include "json_input.h"

namespace mirvane {
namespace eval {
namespace {

bool ReadWindow(const json_t* section, TriggerWindow* window, std::string* error) {
  for (const auto& field : {std::make_pair("early_seconds", &window->early_seconds),
                            std::make_pair("late_seconds", &window->late_seconds)}) {
    if (json_object_get(section, field.first) == nullptr) continue;
    if (!NumberField(section, field.first, field.second) || *field.second < 0) {
      *error = std::string("\"") + field.first + "\" is not a non-negative number";
      return false;
    }
  }
  return true;
}

bool ReadExpectation(const json_t* item, RuleKind rule, ExpectedTrigger* expected,
                     std::string* error) {
  expected->rule = rule;
  if (!IntegerField(item, "object", &expected->object)) {
    *error = "an expectation without an integer \"object\"";
    return false;
  }
  const std::string which = "the expectation for object " + std::to_string(expected->object);
  const bool has_time = NumberField(item, "time", &expected->time);
  const bool has_frame = IntegerField(item, "frame", &expected->frame);
  if (has_time == has_frame) {
    *error = which + " needs either a \"time\" or a \"frame\"";
    return false;
  }
  if (rule == RuleKind::kFence) {
    int64_t direction = 0;
    if (!IntegerField(item, "direction", &direction) || (direction != 1 && direction != 2)) {
      *error = which + " needs a \"direction\" of 1 or 2";
      return false;
    }
    expected->direction = static_cast<int>(direction);
  }
  return true;
}

// The run frame of the scene's frame index, or the index over the rate; NaN when neither.
double TimeOfFrame(const AlignedRun& run, int64_t frame) {
  for (const RunFrame& f : run.frames) {
    if (f.in_truth && f.frame == frame) return f.time;
  }
  if (run.fps > 0) return static_cast<double>(frame) / run.fps;
  return std::numeric_limits<double>::quiet_NaN();
}

// For each track, the true object it is matched with in most frames (the first such on ties).
std::unordered_map<int64_t, int64_t> UsualObjects(
    const AlignedRun& run, const std::vector<FrameCorrespondence>& correspondence) {
  std::map<std::pair<int64_t, int64_t>, int64_t> counts;  // (track, object) -> frames
  for (size_t f = 0; f < run.frames.size() && f < correspondence.size(); ++f) {
    for (const FrameMatch& m : correspondence[f].matches) {
      ++counts[{run.frames[f].reported_objects[m.hypothesis].tracking_id,
                run.frames[f].truth[m.truth].id}];
    }
  }
  std::unordered_map<int64_t, int64_t> usual;
  std::unordered_map<int64_t, int64_t> best;
  for (const auto& entry : counts) {
    const int64_t track = entry.first.first;
    if (entry.second > best[track]) {
      best[track] = entry.second;
      usual[track] = entry.first.second;
    }
  }
  return usual;
}

// The true object matched with reported object `index` of frame f, else the track's usual one.
int64_t OwnerOf(const AlignedRun& run, const std::vector<FrameCorrespondence>& correspondence,
                const std::unordered_map<int64_t, int64_t>& usual, size_t f, size_t index) {
  if (f < correspondence.size()) {
    for (const FrameMatch& m : correspondence[f].matches) {
      if (m.hypothesis == index) return run.frames[f].truth[m.truth].id;
    }
  }
  const auto found = usual.find(run.frames[f].reported_objects[index].tracking_id);
  return found == usual.end() ? kNoObject : found->second;
}

bool SameKind(const ExpectedTrigger& expected, const ReportedTrigger& trigger) {
  return expected.rule == trigger.rule && expected.object == trigger.object &&
         (expected.rule == RuleKind::kRegion || expected.direction == trigger.direction);
}

void Tally(const std::vector<ExpectationOutcome>& outcomes,
           const std::vector<FalseTrigger>& false_triggers, RuleKind rule, RuleTally* tally) {
  double delay_sum = 0;
  for (const ExpectationOutcome& outcome : outcomes) {
    if (outcome.expected.rule != rule) continue;
    ++tally->expected;
    if (!outcome.found) {
      ++tally->missed;
      continue;
    }
    ++tally->found;
    delay_sum += outcome.delay_seconds;
    tally->max_delay = tally->found == 1 ? outcome.delay_seconds
                                         : std::max(tally->max_delay, outcome.delay_seconds);
  }
  if (tally->found > 0) tally->mean_delay = delay_sum / static_cast<double>(tally->found);
  for (const FalseTrigger& f : false_triggers) tally->false_triggers += f.trigger.rule == rule;
}

std::string WhyFalse(const ReportedTrigger& trigger, const std::vector<ExpectationOutcome>& all) {
  if (trigger.object == kNoObject) return "no true object there";
  bool expected = false;
  for (const ExpectationOutcome& outcome : all) {
    if (!SameKind(outcome.expected, trigger)) continue;
    expected = true;
    if (outcome.found && outcome.trigger.time <= trigger.time) return "repeated";
  }
  if (!expected) return "object " + std::to_string(trigger.object) + " has no such expectation";
  return "outside the expected window";
}

}  // namespace

const char* RuleName(RuleKind rule) {
  return rule == RuleKind::kRegion ? "region" : "fence";
}

bool ParseExpectations(const std::string& text, Expectations* expectations, std::string* error) {
  *expectations = Expectations();
  const JsonRef json = ParseJson(text, error);
  if (json == nullptr) return false;
  const json_t* root = json.get();
  if (json_is_object(json_object_get(root, "expected_triggers"))) {
    root = json_object_get(root, "expected_triggers");
  }
  if (!json_is_object(root)) {
    *error = "the expectations are not a JSON object";
    return false;
  }
  for (RuleKind rule : {RuleKind::kRegion, RuleKind::kFence}) {
    const json_t* section = json_object_get(root, RuleName(rule));
    if (section == nullptr) continue;
    TriggerWindow* window =
        rule == RuleKind::kRegion ? &expectations->region : &expectations->fence;
    const json_t* expect = json_object_get(section, "expect");
    std::string problem;
    if (!json_is_object(section) || !json_is_array(expect)) {
      problem = "not an object with an \"expect\" array";
    } else if (ReadWindow(section, window, &problem)) {
      for (size_t i = 0; i < json_array_size(expect); ++i) {
        ExpectedTrigger expected;
        if (!ReadExpectation(json_array_get(expect, i), rule, &expected, &problem)) break;
        expectations->triggers.push_back(expected);
      }
    }
    if (!problem.empty()) {
      *error = std::string("\"") + RuleName(rule) + "\": " + problem;
      return false;
    }
  }
  return true;
}

std::vector<ReportedTrigger> CollectTriggers(
    const AlignedRun& run, const std::vector<FrameCorrespondence>& correspondence) {
  const std::unordered_map<int64_t, int64_t> usual = UsualObjects(run, correspondence);
  std::unordered_map<int64_t, bool> region_on;  // track -> flagged in its latest report
  std::vector<ReportedTrigger> triggers;
  for (size_t f = 0; f < run.frames.size(); ++f) {
    const RunFrame& frame = run.frames[f];
    for (size_t i = 0; i < frame.reported_objects.size(); ++i) {
      const ReportedObject& object = frame.reported_objects[i];
      ReportedTrigger trigger;
      trigger.tracking_id = object.tracking_id;
      trigger.run_frame = f;
      trigger.timestamp = frame.timestamp;
      trigger.time = frame.time;
      bool& was_on = region_on[object.tracking_id];
      if (object.region() && !was_on) {
        trigger.rule = RuleKind::kRegion;
        trigger.object = OwnerOf(run, correspondence, usual, f, i);
        triggers.push_back(trigger);
      }
      was_on = object.region();
      for (int direction : {1, 2}) {
        if (!object.fence(direction)) continue;
        trigger.rule = RuleKind::kFence;
        trigger.direction = direction;
        trigger.object = OwnerOf(run, correspondence, usual, f, i);
        triggers.push_back(trigger);
      }
    }
  }
  return triggers;
}

bool EvaluateRules(const AlignedRun& run, const std::vector<FrameCorrespondence>& correspondence,
                   const Expectations& expectations, RuleAccuracy* accuracy, std::string* error) {
  *accuracy = RuleAccuracy();
  for (ExpectedTrigger expected : expectations.triggers) {
    if (std::isnan(expected.time)) expected.time = TimeOfFrame(run, expected.frame);
    if (std::isnan(expected.time)) {
      *error = std::string("the ") + RuleName(expected.rule) + " expectation for object " +
               std::to_string(expected.object) + " names frame " + std::to_string(expected.frame) +
               ", which the ground truth does not list";
      return false;
    }
    ExpectationOutcome outcome;
    outcome.expected = expected;
    accuracy->outcomes.push_back(outcome);
  }
  std::stable_sort(accuracy->outcomes.begin(), accuracy->outcomes.end(),
                   [](const ExpectationOutcome& a, const ExpectationOutcome& b) {
                     return a.expected.time < b.expected.time;
                   });

  const std::vector<ReportedTrigger> triggers = CollectTriggers(run, correspondence);
  std::vector<char> taken(triggers.size(), 0);
  for (ExpectationOutcome& outcome : accuracy->outcomes) {
    const ExpectedTrigger& expected = outcome.expected;
    const TriggerWindow& window =
        expected.rule == RuleKind::kRegion ? expectations.region : expectations.fence;
    for (size_t k = 0; k < triggers.size(); ++k) {  // in time order: the earliest fitting one
      const ReportedTrigger& trigger = triggers[k];
      if (taken[k] || !SameKind(expected, trigger)) continue;
      if (trigger.time < expected.time - window.early_seconds ||
          trigger.time > expected.time + window.late_seconds) {
        continue;
      }
      taken[k] = 1;
      outcome.found = true;
      outcome.trigger = trigger;
      outcome.delay_seconds = trigger.time - expected.time;
      break;
    }
  }
  for (size_t k = 0; k < triggers.size(); ++k) {
    if (!taken[k])
      accuracy->false_triggers.push_back({triggers[k], WhyFalse(triggers[k], accuracy->outcomes)});
  }
  Tally(accuracy->outcomes, accuracy->false_triggers, RuleKind::kRegion, &accuracy->region);
  Tally(accuracy->outcomes, accuracy->false_triggers, RuleKind::kFence, &accuracy->fence);
  return true;
}

}  // namespace eval
}  // namespace mirvane
