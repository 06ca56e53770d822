// The two score thresholds the daemon works with, read from the parameter store as integer
// percents at every settings reload. The defaults hold only until the first reload.
// Threads: the pipeline thread only (the model reads `detection` by reference on every frame).
#ifndef MIRVANE_BIN_THRESHOLD_H
#define MIRVANE_BIN_THRESHOLD_H

namespace mirvane {

constexpr const char* kDetectionThresholdKey = "Custom.Dva.Threshold.Detection";
constexpr const char* kTrackingThresholdKey = "Custom.Dva.Threshold.Tracking";

struct Threshold {
  float detection = 0.2f;  // minimum score of a decoded detection
  float tracking = 0.6f;   // score a box needs to start a track

  // Re-reads both values; a missing or non-integer value reads as 0.
  void ReloadFromPgo();
};

}  // namespace mirvane

#endif  // MIRVANE_BIN_THRESHOLD_H
