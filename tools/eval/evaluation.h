// A whole evaluation of one run: tracking metrics over the aligned frames and, when the scene
// states its expected triggers, rule accuracy; and its rendering as a readable table or JSON.
// Pure code; any thread.
#ifndef MIRVANE_TOOLS_EVAL_EVALUATION_H
#define MIRVANE_TOOLS_EVAL_EVALUATION_H

#include <string>

#include "clear_mot.h"
#include "events.h"
#include "hota.h"
#include "identity.h"
#include "rules.h"
#include "run.h"
#include "truth.h"

namespace mirvane {
namespace eval {

struct EvaluationOptions {
  double iou_threshold = 0.5;  // CLEAR MOT and identity matching
  std::string class_name;      // only this class; empty for all
};

struct Evaluation {
  EvaluationOptions options;
  size_t frames = 0;
  size_t truth_frames = 0;
  size_t reported_frames = 0;
  size_t matched_frames = 0;
  size_t unknown_frames = 0;
  ClearMot clear;
  IdentityScores identity;
  HotaScores hota;
  bool has_rules = false;
  RuleAccuracy rules;
};

// expectations may be null (no rule accuracy). False with a reason when the expectations
// cannot be placed on the run.
bool Evaluate(const GroundTruth& truth, const EventLog& events, const Expectations* expectations,
              const EvaluationOptions& options, Evaluation* evaluation, std::string* error);

std::string FormatText(const Evaluation& evaluation);
// One JSON object; undefined ratios are null.
std::string FormatJson(const Evaluation& evaluation);

}  // namespace eval
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_EVAL_EVALUATION_H
