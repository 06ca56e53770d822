#include "evaluation.h"

namespace mirvane {
namespace eval {

bool Evaluate(const GroundTruth& truth, const EventLog& events, const Expectations* expectations,
              const EvaluationOptions& options, Evaluation* evaluation, std::string* error) {
  *evaluation = Evaluation();
  evaluation->options = options;
  RunOptions run_options;
  run_options.class_name = options.class_name;
  const AlignedRun run = AlignRun(truth, events, run_options);
  evaluation->frames = run.frames.size();
  evaluation->truth_frames = run.truth_frames;
  evaluation->reported_frames = run.reported_frames;
  evaluation->matched_frames = run.matched_frames;
  evaluation->unknown_frames = run.unknown_frames;

  const Sequence sequence = ToSequence(run);
  const std::vector<FrameCorrespondence> correspondence =
      MatchFrames(sequence, options.iou_threshold);
  evaluation->clear = ComputeClearMot(sequence, correspondence);
  evaluation->identity = ComputeIdentity(sequence, options.iou_threshold);
  evaluation->hota = ComputeHota(sequence);
  if (expectations == nullptr) return true;
  evaluation->has_rules = true;
  return EvaluateRules(run, correspondence, *expectations, &evaluation->rules, error);
}

}  // namespace eval
}  // namespace mirvane
