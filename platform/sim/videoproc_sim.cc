// The video-processing output of the host simulation: a simulated sensor renders NV12 frames from
// its frame source into a few frame buffers in device memory; the consumer pulls and releases
// them. A frame that is never released keeps its buffer, so a consumer that holds them all starves
// (pull then waits or times out), as on the camera. Paced in real time (frames due at the frame
// rate; a slow consumer misses frames) or as fast as the consumer pulls. When the source has ended
// every pull fails with the end code of the settings. One process at a time runs the output.
#include <fcntl.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "device_memory.h"
#include "fault_injector.h"
#include "frame_source.h"
#include "hd_videoproc.h"
#include "mirvane_sim.h"
#include "platform_state.h"
#include "sim_clock.h"
#include "sim_control.h"
#include "sim_settings.h"

namespace mirvane {
namespace sim {
namespace {

constexpr int32_t kVideoBlockBase = 0x7f0000;  // ids of the frame buffers (not pool blocks)

std::atomic<int64_t> g_latest_frame_us{0};  // timestamp of the latest frame handed out

int64_t MonotonicMicros() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

// Owns the frame buffers' reservation, the frame source, the ground-truth file and the lock that
// makes this process the output's only user. One instance per process; thread-safe.
class VideoOutput {
 public:
  static VideoOutput& Instance() {
    static VideoOutput* instance = new VideoOutput();
    return *instance;
  }

  int Pull(HD_PATH_ID path, HD_VIDEO_FRAME* frame, INT32 wait_ms);
  int Release(HD_PATH_ID path, const HD_VIDEO_FRAME* frame);
  // Back to the state before the first pull; false while the consumer holds frames.
  bool Stop();

 private:
  enum class BufferState { kFree, kRendering, kHeld };
  struct Buffer {
    uint32_t pa;
    uint8_t* view;
    BufferState state;
  };

  int StartLocked();
  void WriteTruth(uint64_t count, uint64_t timestamp, int64_t index);
  // When frame seq of the endless sequence is presented, in microseconds after frame 0.
  int64_t OffsetOf(int64_t seq) const;
  // Waits (releasing the lock) until woken or until the deadline; false when it has passed.
  bool WaitLocked(std::unique_lock<std::mutex>& lock, int64_t deadline_us);

  std::mutex mutex_;
  std::condition_variable freed_;
  bool started_ = false;
  VideoSetting setting_;
  std::unique_ptr<FrameSource> source_;
  std::vector<Buffer> buffers_;
  uint32_t stride_ = 0;
  int64_t interval_us_ = 40000;
  int64_t next_seq_ = 0;   // position in the frame sequence of the next frame to capture
  int64_t start_us_ = -1;  // when frame 0 was due (real-time pace)
  FILE* truth_ = nullptr;
  int lock_fd_ = -1;
  std::vector<GroundTruthBox> boxes_;
};

bool VideoOutput::Stop() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!started_) return true;
  for (const Buffer& b : buffers_) {
    if (b.state != BufferState::kFree) return false;
  }
  if (truth_ != nullptr) std::fclose(truth_);
  truth_ = nullptr;
  close(lock_fd_);
  lock_fd_ = -1;
  source_.reset();
  buffers_.clear();
  next_seq_ = 0;
  start_us_ = -1;
  started_ = false;
  return true;
}

int VideoOutput::StartLocked() {
  std::shared_ptr<const Settings> settings = CurrentSettings();
  const int lock_fd =
      open((settings->state_dir + "/video.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (lock_fd < 0) return HD_ERR_SYS;
  if (flock(lock_fd, LOCK_EX | LOCK_NB) != 0) {
    close(lock_fd);
    SimWarn("the video output is in use by another process");
    return HD_ERR_IN_USE;
  }
  setting_ = settings->video;
  std::string error;
  source_ =
      setting_.file.empty()
          ? MakeFrameSource(setting_.scene, setting_.width, setting_.height, setting_.fps, &error)
          : MakeVideoFileSource(setting_.file, setting_.width, setting_.height, &error);
  if (!source_) {
    SimWarn("video source: %s", error.c_str());
    close(lock_fd);
    return HD_ERR_NO_CONFIG;
  }
  stride_ = setting_.width;
  const uint32_t frame_bytes = stride_ * setting_.height * 3 / 2;
  const uint32_t slot = (frame_bytes + kPageSize - 1) / kPageSize * kPageSize;
  DeviceMemory& memory = DeviceMemory::Instance();
  if (static_cast<uint64_t>(slot) * setting_.buffers > kVideoWindow ||
      !memory.Reserve(Window::kVideo, slot * setting_.buffers)) {
    SimWarn("frame buffers of %ux%u do not fit the video window", setting_.width, setting_.height);
    close(lock_fd);
    return HD_ERR_NOMEM;
  }
  for (uint32_t i = 0; i < setting_.buffers; ++i) {
    const uint32_t pa = kVideoBase + i * slot;
    buffers_.push_back(Buffer{pa, memory.View(pa, frame_bytes), BufferState::kFree});
  }
  if (source_->FrameRate() > 0.0) setting_.fps = source_->FrameRate();  // a file's own rate
  interval_us_ = static_cast<int64_t>(1e6 / setting_.fps + 0.5);
  std::string truth_path = setting_.ground_truth;
  if (truth_path.empty()) truth_path = settings->state_dir + "/ground_truth.csv";
  if (truth_path != "none") {
    truth_ = std::fopen(truth_path.c_str(), "we");
    if (truth_ == nullptr) {
      SimWarn("cannot write the ground truth to %s", truth_path.c_str());
    } else {
      std::fprintf(truth_, "# %s width=%u height=%u fps=%g frames=%" PRId64 "\n",
                   source_->Describe().c_str(), setting_.width, setting_.height, setting_.fps,
                   source_->FrameCount());
      std::fprintf(truth_, "count,timestamp_us,frame,object_id,class_id,x0,y0,x1,y1\n");
      std::fflush(truth_);
    }
  }
  lock_fd_ = lock_fd;  // held until Stop, or the end of the process
  started_ = true;
  return HD_OK;
}

void VideoOutput::WriteTruth(uint64_t count, uint64_t timestamp, int64_t index) {
  if (truth_ == nullptr) return;
  for (const GroundTruthBox& b : boxes_) {
    std::fprintf(truth_, "%" PRIu64 ",%" PRIu64 ",%" PRId64 ",%d,%d,%d,%d,%d,%d\n", count,
                 timestamp, index, b.object_id, b.class_id, b.x0, b.y0, b.x1, b.y1);
  }
  std::fflush(truth_);
}

int64_t VideoOutput::OffsetOf(int64_t seq) const {
  const int64_t count = source_->FrameCount();
  const int64_t at = source_->PresentationMicros(seq % count);
  if (at < 0) return seq * interval_us_;
  return seq / count * count * interval_us_ + at;  // a loop lasts count intervals
}

bool VideoOutput::WaitLocked(std::unique_lock<std::mutex>& lock, int64_t deadline_us) {
  if (deadline_us < 0) {
    freed_.wait(lock);
    return true;
  }
  const int64_t now = MonotonicMicros();
  if (now >= deadline_us) return false;
  freed_.wait_for(lock, std::chrono::microseconds(deadline_us - now));
  return true;
}

int VideoOutput::Pull(HD_PATH_ID path, HD_VIDEO_FRAME* frame, INT32 wait_ms) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (!started_) {
    if (int r = StartLocked()) return r;
  }
  if (path != setting_.path) return HD_ERR_PATH;
  const int64_t deadline =
      wait_ms < 0 ? -1 : MonotonicMicros() + static_cast<int64_t>(wait_ms) * 1000;
  for (;;) {
    int64_t seq = next_seq_;
    if (setting_.pace == Pace::kRealTime) {
      const int64_t now = MonotonicMicros();
      if (start_us_ < 0) start_us_ = now;
      seq = std::max(seq, (now - start_us_) / interval_us_);  // frames missed while late
    }
    if (!setting_.loop && seq >= source_->FrameCount()) return setting_.end_code;
    Buffer* buffer = nullptr;
    for (Buffer& b : buffers_) {
      if (b.state == BufferState::kFree) {
        buffer = &b;
        break;
      }
    }
    if (buffer == nullptr) {  // starved: every buffer is held by the consumer
      if (!WaitLocked(lock, deadline)) return HD_ERR_TIMEDOUT;
      continue;
    }
    int64_t timestamp = 1000000 + OffsetOf(seq);
    if (setting_.pace == Pace::kRealTime) {
      timestamp = start_us_ + OffsetOf(seq);
      const int64_t now = MonotonicMicros();
      if (timestamp > now) {  // the next frame is not captured yet
        if (deadline >= 0 && deadline < timestamp) {
          if (deadline > now) {
            lock.unlock();
            std::this_thread::sleep_for(std::chrono::microseconds(deadline - now));
            lock.lock();
          }
          return HD_ERR_TIMEDOUT;
        }
        lock.unlock();
        std::this_thread::sleep_for(std::chrono::microseconds(timestamp - now));
        lock.lock();
        continue;  // another thread may have taken the buffer meanwhile
      }
    }
    const int64_t index = setting_.loop ? seq % source_->FrameCount() : seq;
    next_seq_ = seq + 1;
    buffer->state = BufferState::kRendering;
    lock.unlock();
    const uint32_t height = setting_.height;
    Nv12Image picture{buffer->view, buffer->view + static_cast<size_t>(stride_) * height,
                      setting_.width, height, stride_};
    source_->Render(index, picture, &boxes_);
    lock.lock();
    if (index >= source_->FrameCount()) {  // the source found out that it ends earlier
      buffer->state = BufferState::kFree;
      next_seq_ = seq;
      continue;
    }
    buffer->state = BufferState::kHeld;
    const uint64_t count = static_cast<uint64_t>(seq) + 1;
    WriteTruth(count, static_cast<uint64_t>(timestamp), index);
    g_latest_frame_us.store(timestamp, std::memory_order_relaxed);

    *frame = HD_VIDEO_FRAME();
    frame->sign = HD_VIDEO_FRAME_SIGN;
    frame->ddr_id = DDR_ID0;
    frame->pxlfmt = HD_VIDEO_PXLFMT_YUV420;
    frame->dim.w = setting_.width;
    frame->dim.h = height;
    frame->count = count;
    frame->timestamp = static_cast<UINT64>(timestamp);
    frame->pw[0] = setting_.width;
    frame->ph[0] = height;
    frame->pw[1] = setting_.width / 2;
    frame->ph[1] = height / 2;
    frame->loff[0] = stride_;
    frame->loff[1] = stride_;
    frame->phy_addr[0] = buffer->pa;
    frame->phy_addr[1] = buffer->pa + stride_ * height;
    frame->blk = kVideoBlockBase + static_cast<int32_t>(buffer - buffers_.data());
    return HD_OK;
  }
}

int VideoOutput::Release(HD_PATH_ID path, const HD_VIDEO_FRAME* frame) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!started_) return HD_ERR_NOT_START;
  if (path != setting_.path) return HD_ERR_PATH;
  if (frame->sign != HD_VIDEO_FRAME_SIGN) return HD_ERR_SIGN;
  for (Buffer& b : buffers_) {
    if (b.pa == frame->phy_addr[0] && b.state == BufferState::kHeld) {
      b.state = BufferState::kFree;
      freed_.notify_all();
      return HD_OK;
    }
  }
  return HD_ERR_PARAM;  // not a frame this output handed out, or released already
}

}  // namespace

int64_t LatestFrameMicros() {
  return g_latest_frame_us.load(std::memory_order_relaxed);
}

bool StopVideoOutput() {
  return VideoOutput::Instance().Stop();
}

}  // namespace sim
}  // namespace mirvane

extern "C" {

// Here rather than with the other control calls: the network runtime reaches it through a weak
// reference, which does not pull a member out of the static library, and a program that pulls
// frames pulls this one.
int mirvane_sim_fast_pace(void) {
  return mirvane::sim::CurrentSettings()->video.pace == mirvane::sim::Pace::kFast ? 1 : 0;
}

HD_RESULT hd_videoproc_pull_out_buf(HD_PATH_ID path_id, HD_VIDEO_FRAME* p_video_frame,
                                    INT32 wait_ms) {
  if (int code = mirvane::sim::FaultCode("hd_videoproc_pull_out_buf")) {
    return static_cast<HD_RESULT>(code);
  }
  if (!mirvane::sim::CommonReady()) return HD_ERR_UNINIT;
  if (p_video_frame == nullptr) return HD_ERR_NULL_PTR;
  return static_cast<HD_RESULT>(
      mirvane::sim::VideoOutput::Instance().Pull(path_id, p_video_frame, wait_ms));
}

HD_RESULT hd_videoproc_release_out_buf(HD_PATH_ID path_id, HD_VIDEO_FRAME* p_video_frame) {
  if (int code = mirvane::sim::FaultCode("hd_videoproc_release_out_buf")) {
    return static_cast<HD_RESULT>(code);
  }
  if (!mirvane::sim::CommonReady()) return HD_ERR_UNINIT;
  if (p_video_frame == nullptr) return HD_ERR_NULL_PTR;
  return static_cast<HD_RESULT>(
      mirvane::sim::VideoOutput::Instance().Release(path_id, p_video_frame));
}

}  // extern "C"
