// The pipeline thread: frame, model, tracker, rules and event, once per frame, with the settings
// reloaded whenever the configuration thread raises g_reload_config.
#include <exception>
#include <memory>

#include "bin/daemon_threads.h"
#include "bin/liveness.h"
#include "bin/obj_detect_tracker.h"
#include "bin/pipeline_clock.h"
#include "bin/process_flags.h"
#include "bin/result_stage.h"
#include "bin/threshold.h"
#include "common/log.h"
#include "common/sleep.h"
#include "image_reader/stream_reader.h"
#include "model/nano_track.h"
#include "nvt/hd_module.h"
#include "result_sender/snapshot_getter.h"

namespace mirvane {
namespace {

constexpr uint32_t kNetworkProcId = 0;
constexpr int kMaxReadRetries = 5;
constexpr long long kRetryPauseNs = 33000000;  // 33 ms
constexpr int kFrameLogPeriod = 30;

void DebugLog(const DetectionsPerClass& detections) {
  for (size_t i = 0; i < detections.size(); ++i) {
    for (const Detection& d : detections[i]) {
      MIRVANE_LOG(kLogDebug,
                  "Detection: Class: %u, Conf: %f, xmin, ymin, xmax, ymax: %f, %f, %f, %f, "
                  "tracking: %f, %f\n",
                  static_cast<unsigned>(i), static_cast<double>(d.score),
                  static_cast<double>(d.xmin), static_cast<double>(d.ymin),
                  static_cast<double>(d.xmax), static_cast<double>(d.ymax),
                  static_cast<double>(d.track_dx), static_cast<double>(d.track_dy));
    }
  }
}

}  // namespace

void RunModelPipeline() {
  try {
    // The clock of every age, dwell time and expiry below (see pipeline_clock.h).
    const dva::SteadyNow now = PipelineNow;
    Threshold thresholds;
    HdModule arena;
    image_reader::StreamReader reader;
    NanoTrack model(kNetworkProcId, thresholds.detection, arena);
    std::unique_ptr<dva::ObjDetectTracker> tracker;
    ResultStage results(std::make_unique<result_sender::SnapshotGetter>(arena), now);
    std::unique_ptr<image_reader::IReader::Image> image;

    int retries = 0;
    int frames = 0;
    while (g_running.load() != 0) {
      if (g_reload_config.load() != 0) {
        g_reload_config.store(0);  // first: a change during the reload reloads again
        thresholds.ReloadFromPgo();
        {
          auto fresh = std::make_unique<dva::ObjDetectTracker>(NanoTrack::kClassCount,
                                                               thresholds.tracking, now);
          tracker.swap(fresh);
        }
        results.Reload();
        MIRVANE_LOG(kLogInfo, "Reload config\n");
      }

      {
        std::unique_ptr<image_reader::IReader::Image> next = reader.Read();
        image.swap(next);  // the previous frame goes only now, after the read returned
      }
      if (!image) {
        MIRVANE_LOG(kLogInfo, "Cannot read more frame, has retry %d times\n", retries);
        if (++retries == kMaxReadRetries) {
          g_running.store(0);
          MIRVANE_LOG(kLogErr, "Got max error count, restart daemon\n");
          break;
        }
        SleepFully(kRetryPauseNs);
        MarkPipelineProgress();
        continue;
      }

      const VENDOR_AI_BUF buffer = image->buffer;
      const DetectionsPerClass detections = model.Run(buffer);
      if (IsLogLevelEnabled(kLogDebug)) DebugLog(detections);
      const TrackResult tracked =
          tracker->Update(detections, static_cast<int>(buffer.width),
                          static_cast<int>(buffer.height), image->timestamp);
      results.Process(tracked, buffer, image->timestamp);
      ++frames;
      if (frames % kFrameLogPeriod == 0) {
        MIRVANE_LOG(kLogDebug, "Already read %d frames\n", frames);
      }
      retries = 0;
      MarkPipelineProgress();
    }
    // Teardown: the image first, then (by reverse declaration) results, tracker, model, arena.
    image.reset();
  } catch (const std::exception& e) {
    MIRVANE_LOG(kLogErr, "%s\n", e.what());
    throw;
  }
}

}  // namespace mirvane
