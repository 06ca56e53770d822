// What the visual report shows of one run of the daemon on a scene: the rules' region and fence,
// the frames picked at a sampling rate with the truth and the reported objects, the snapshot
// gallery by tracking id, the trigger timeline per rule and the evaluation. Building it is pure
// (the frame pictures and snapshot files are named here, written elsewhere). Plain values; any
// thread.
#ifndef MIRVANE_TOOLS_REPORT_RUN_REPORT_H
#define MIRVANE_TOOLS_REPORT_RUN_REPORT_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "common/geometry.h"
#include "evaluation.h"

namespace mirvane {
namespace report {

// The rules as the daemon reads them from its settings (normalised coordinates).
struct RuleOverlay {
  std::vector<dva::Polygon> region;
  int region_type = 0;  // 0 inclusion, 1 exclusion
  std::vector<dva::Point> fence;
  int fence_directions = 0;  // bit 1 left to right, bit 2 right to left
};

// Reads "Custom.Dva.ObjectDetection" and "Custom.Dva.IntrusionDetection" from the settings file
// the parameter store is loaded from ({"Custom": {"Dva": {...}}}). The rule values may be
// objects or strings holding JSON, as in the store. False with a reason on malformed input.
bool ParseRuleOverlay(const std::string& text, RuleOverlay* overlay, std::string* error);

struct SampledFrame {
  size_t run_frame = 0;  // index into the aligned run's frames
  int64_t scene_frame = 0;
  double time = 0;
  std::string image;  // file name of the picture, relative to the page
};

// A stretch of reported frames in which one track kept one trigger flag; a single flagged frame
// (a fence crossing) gives a stretch of one frame.
struct TriggerSpan {
  int64_t tracking_id = 0;
  double from = 0;
  double to = 0;  // time of the last flagged frame
};

struct TimelineRow {
  std::string rule;  // "region", "fence direction 1", "fence direction 2"
  int flag = 0;
  std::vector<TriggerSpan> spans;  // by tracking id, then time
};

struct GalleryTrack {
  int64_t tracking_id = 0;
  std::string class_name;
  std::vector<std::string> images;  // relative to the page, oldest first
};

struct RunReport {
  std::string name;
  std::string scene;
  int width = 0;  // of the sampled pictures
  int height = 0;
  double duration = 0;  // seconds, the last frame's time
  RuleOverlay rules;
  eval::AlignedRun run;
  eval::Evaluation evaluation;
  std::vector<SampledFrame> frames;
  std::vector<TimelineRow> timeline;
  std::vector<GalleryTrack> gallery;
};

// The reported frames at most one per 1/rate seconds of scene time (the first reported frame of
// each period); every reported frame when rate is 0 or less. Scene frame indices come from the
// truth, or from the time and fps when the truth does not list the frame.
std::vector<SampledFrame> SampleFrames(const eval::AlignedRun& run, double rate);

// Spans of each trigger flag per tracking id. Frames in which the track was not reported do not
// break a span; a reported frame without the flag does.
std::vector<TimelineRow> BuildTimeline(const eval::AlignedRun& run);

// Snapshot files named "<tracking id>-<timestamp us>.jpg" (as the system-daemon stand-in keeps
// them) grouped by tracking id and ordered by time; other names are left out. Class names come
// from the run's reported objects.
std::vector<GalleryTrack> BuildGallery(const eval::AlignedRun& run,
                                       const std::vector<std::string>& snapshot_files,
                                       const std::string& directory);

}  // namespace report
}  // namespace mirvane

#endif  // MIRVANE_TOOLS_REPORT_RUN_REPORT_H
