#include "run.h"

#include <map>

namespace mirvane {
namespace eval {
namespace {

template <typename T>
void KeepClass(const std::string& class_name, std::vector<T>* objects) {
  if (class_name.empty()) return;
  std::vector<T> kept;
  for (const T& object : *objects) {
    if (object.class_name == class_name) kept.push_back(object);
  }
  objects->swap(kept);
}

// Times for frames the truth does not list: from the closest earlier listed frame (or else the
// first later one) and the difference of the timestamps.
void FillUnlistedTimes(std::vector<RunFrame>* frames) {
  const RunFrame* anchor = nullptr;
  for (const RunFrame& frame : *frames) {
    if (frame.in_truth) {
      anchor = &frame;
      break;
    }
  }
  for (RunFrame& frame : *frames) {
    if (frame.in_truth) {
      anchor = &frame;
      continue;
    }
    if (anchor == nullptr) {  // no truth at all: the first frame starts the clock
      frame.time = static_cast<double>(frame.timestamp - frames->front().timestamp) / 1e6;
      continue;
    }
    frame.time =
        anchor->time +
        (static_cast<double>(frame.timestamp) - static_cast<double>(anchor->timestamp)) / 1e6;
  }
}

}  // namespace

AlignedRun AlignRun(const GroundTruth& truth, const EventLog& events, const RunOptions& options) {
  std::map<uint64_t, RunFrame> frames;
  for (const TruthFrame& t : truth.frames) {
    RunFrame& frame = frames[t.timestamp];
    frame.timestamp = t.timestamp;
    frame.frame = t.frame;
    frame.time = t.time;
    frame.in_truth = true;
    frame.truth.insert(frame.truth.end(), t.objects.begin(), t.objects.end());
  }
  AlignedRun run;
  run.truth_frames = truth.frames.size();
  run.fps = truth.fps;
  for (const ReportedFrame& r : events.frames) {
    RunFrame& frame = frames[r.timestamp];
    frame.timestamp = r.timestamp;
    if (frame.reported) continue;  // the same frame reported twice: the first one counts
    frame.reported = true;
    frame.reported_objects = r.objects;
    ++run.reported_frames;
    if (frame.in_truth) {
      ++run.matched_frames;
    } else if (truth.lists_empty_frames) {
      ++run.unknown_frames;
    }
  }
  for (auto& entry : frames) {
    KeepClass(options.class_name, &entry.second.truth);
    KeepClass(options.class_name, &entry.second.reported_objects);
    run.frames.push_back(std::move(entry.second));
  }
  FillUnlistedTimes(&run.frames);
  return run;
}

Sequence ToSequence(const AlignedRun& run) {
  Sequence sequence(run.frames.size());
  for (size_t f = 0; f < run.frames.size(); ++f) {
    for (const TruthObject& t : run.frames[f].truth) {
      sequence[f].truth.push_back({t.id, t.box});
    }
    for (const ReportedObject& r : run.frames[f].reported_objects) {
      sequence[f].hypotheses.push_back({r.tracking_id, r.box});
    }
  }
  return sequence;
}

}  // namespace eval
}  // namespace mirvane
