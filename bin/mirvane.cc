// The mirvane daemon: its entry point and the bodies of its two worker threads, the configuration
// thread and the pipeline thread. It takes no command line and reads no environment; it is started
// and restarted by the system daemon through its init script.
//
// Built twice: into the daemon program, and (with MIRVANE_WITHOUT_MAIN) into the mirvane_daemon
// library through which tests and benchmarks drive the threads' bodies.
#include <ev.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "bin/common_daemon_component.h"
#include "bin/daemon_threads.h"
#include "bin/instance_lock.h"
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
#include "nvt/hd_wrapper.h"
#include "result_sender/snapshot_getter.h"
#include "param_observer.h"
#include "pgo.h"

// ---- The configuration thread ----
// An event loop that watches "Custom.Dva" in the parameter store and raises g_reload_config on
// every change notice. It reads no setting itself; the pipeline thread reloads everything on its
// own thread.

namespace mirvane {
namespace {

constexpr const char* kWatchedKey = "Custom.Dva";
constexpr double kStopCheckPeriodS = 1.0;
constexpr long long kStopCheckNs = 1000000000LL;

// The thread's event-loop state; one configuration thread per process.
struct ev_loop* g_config_loop = nullptr;
ev_io g_config_io;

void OnConfigChanged(int status, const char*, json_t*, void*) {
  if (status == 0) g_reload_config.store(1);
}

void OnConfigIo(struct ev_loop*, ev_io* watcher, int) {
  auto* observer = static_cast<param_observer_t*>(watcher->data);
  (void)param_observer_process(observer, watcher->fd, OnConfigChanged, nullptr);
}

void OnStopTimer(struct ev_loop* loop, ev_timer*, int) {
  if (g_running.load() == 0) ev_break(loop, EVBREAK_ALL);
}

}  // namespace

void RunConfigObserver() {
  g_config_loop = ev_loop_new(EVFLAG_NOENV | EVBACKEND_EPOLL);
  if (g_config_loop == nullptr) {
    // Without a loop no change is ever noticed: the settings of the first reload stay.
    MIRVANE_LOG(kLogErr, "ev_loop_new fail, settings changes are not watched\n");
    while (g_running.load() != 0) SleepFully(kStopCheckNs);
    return;
  }
  param_observer_t* observer = param_observer_new(g_config_loop);
  pgo_t* pgo = pgo_new();
  pgo_push_key(pgo, kWatchedKey);
  param_observer_register_pgo(observer, pgo);
  pgo_free(pgo);

  const int fd = param_observer_get_handle(observer);
  ev_io_init(&g_config_io, OnConfigIo, fd, EV_READ);
  g_config_io.data = observer;
  if (fd >= 0) ev_io_start(g_config_loop, &g_config_io);  // a missing handle never fires
  ev_timer stop_timer;
  ev_timer_init(&stop_timer, OnStopTimer, kStopCheckPeriodS, kStopCheckPeriodS);
  ev_timer_start(g_config_loop, &stop_timer);

  ev_run(g_config_loop, 0);

  if (fd >= 0) close(fd);
  ev_io_stop(g_config_loop, &g_config_io);
  ev_loop_destroy(g_config_loop);
  g_config_loop = nullptr;
  // The observer is not released: the process is ending.
}

}  // namespace mirvane

// ---- The pipeline thread ----
// Frame, model, tracker, rules and event, once per frame, with the settings reloaded whenever the
// configuration thread raises g_reload_config.

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

// ---- The entry point ----

#ifndef MIRVANE_WITHOUT_MAIN

char app_name[] = "mirvane";

namespace {

constexpr const char* kRestartCommand = "/etc/rc.d/init.d/mirvane restart &";
// How long a stopping process waits for the pipeline thread: a thread stuck in a platform call
// must not keep a stopped daemon (and its lock) alive. With the final heartbeat's bounded send
// after it, the process is gone within 15 s of the stop signal.
constexpr int kStopGraceSeconds = 10;
constexpr std::chrono::milliseconds kStopPollPeriod{100};

// Waits for the pipeline thread's end. False when g_running has been clear for kStopGraceSeconds
// and the thread still has not ended. (Signal handlers cannot wake a waiter, so the flag is
// polled.)
bool AwaitPipeline(const std::future<void>& ended) {
  int64_t stop_seen_ns = 0;
  while (ended.wait_for(kStopPollPeriod) != std::future_status::ready) {
    if (mirvane::g_running.load() != 0) continue;
    const int64_t now = mirvane::MonotonicNowNs();
    if (stop_seen_ns == 0) stop_seen_ns = now;
    if (now - stop_seen_ns >= kStopGraceSeconds * 1000000000LL) return false;
  }
  return true;
}

}  // namespace

int main() {
  // Standard output is read by whatever runs the daemon: hand it over line by line.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const mirvane::InstanceLock lock(mirvane::kInstanceLockPath);
  if (lock.state() == mirvane::InstanceLock::State::kHeldByAnother) {
    MIRVANE_LOG(mirvane::kLogErr, "Another mirvane is running (%s is locked), exiting\n",
                mirvane::kInstanceLockPath);
    return 1;
  }
  if (lock.state() == mirvane::InstanceLock::State::kFailed) {
    MIRVANE_LOG(mirvane::kLogErr, "Cannot lock %s (%s), exiting\n", mirvane::kInstanceLockPath,
                std::strerror(lock.error()));
    return 1;
  }
  try {
    std::optional<mirvane::CommonDaemonComponent> component;
    component.emplace(std::string(app_name), std::string(kRestartCommand));
    std::thread config_thread(mirvane::RunConfigObserver);
    std::promise<void> pipeline_ended;
    std::future<void> ended = pipeline_ended.get_future();
    // An exception out of the pipeline still ends the process through the runtime's termination.
    std::thread pipeline_thread([&pipeline_ended] {
      mirvane::RunModelPipeline();
      pipeline_ended.set_value();
    });
    if (!AwaitPipeline(ended)) {
      MIRVANE_LOG(mirvane::kLogErr, "Pipeline did not stop within %d s, exiting without it\n",
                  kStopGraceSeconds);
      pipeline_thread.detach();
      config_thread.join();
      component.reset();  // the final heartbeat
      mirvane::ReleaseOwnedBlockAtExit();
      std::fflush(stdout);
      // No destructors or exit handlers: the pipeline thread may still be inside them.
      _exit(0);
    }
    pipeline_thread.join();
    config_thread.join();
  } catch (const std::exception& e) {
    MIRVANE_LOG(mirvane::kLogErr, "%s\n", e.what());
    throw;
  }
  return 0;
}

#endif  // MIRVANE_WITHOUT_MAIN
