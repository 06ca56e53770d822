// What the host simulation costs per 1080p frame of the default scene, step by step as the daemon
// drives it: the sensor renders a frame (pull and release), the scaler letterboxes it into the
// network's 384x384 input, and one object's 160x90 snapshot is scaled and JPEG-encoded. Runs with
// its own state directory under /tmp, removed at the end.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "hdal.h"
#include "mirvane_sim.h"

namespace {

constexpr HD_PATH_ID kVideoPath = 0x24000107;
constexpr HD_PATH_ID kEncoderPath = 0x25000000;

// The platform up, the CNN block taken and mapped, and the simulation's files in a fresh
// directory. One per benchmark run.
class Bench {
 public:
  Bench() {
    char dir_template[] = "/tmp/mirvane-sim-bench-XXXXXX";
    dir_ = mkdtemp(dir_template);
    const std::string settings = dir_ + "/sim.json";
    FILE* f = std::fopen(settings.c_str(), "w");
    std::fprintf(f, R"({"state_dir": "%s", "video": {"pace": "fast", "loop": true}})",
                 dir_.c_str());
    std::fclose(f);
    setenv("MIRVANE_SIM_SETTINGS", settings.c_str(), 1);
    mirvane_sim_reload_settings();
    hd_common_init(2);
    hd_gfx_init();
    hd_common_mem_init(nullptr);
    blk_ = hd_common_mem_get_block(HD_COMMON_MEM_CNN_POOL, 32u << 20, DDR_ID0);
    pa_ = hd_common_mem_blk2pa(blk_);
  }
  ~Bench() {
    hd_common_mem_release_block(blk_);
    hd_common_mem_uninit();
    hd_gfx_uninit();
    hd_common_uninit();
    const std::string rm = "rm -rf '" + dir_ + "'";
    if (std::system(rm.c_str()) != 0) std::fprintf(stderr, "left %s behind\n", dir_.c_str());
  }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  bool ok() const { return pa_ != 0; }
  UINT32 input_pa() const { return pa_; }
  UINT32 snapshot_pa() const { return pa_ + (1u << 20); }

 private:
  std::string dir_;
  HD_COMMON_MEM_VB_BLK blk_ = HD_COMMON_MEM_VB_INVALID_BLK;
  UINT32 pa_ = 0;
};

HD_GFX_IMG_BUF Image(UINT32 pa, UINT32 w, UINT32 h) {
  HD_GFX_IMG_BUF img = {};
  img.dim = {w, h};
  img.format = HD_VIDEO_PXLFMT_YUV420;
  img.p_phy_addr[0] = pa;
  img.p_phy_addr[1] = pa + w * h;
  img.lineoffset[0] = img.lineoffset[1] = w;
  return img;
}

bool Letterbox(const HD_VIDEO_FRAME& frame, const Bench& bench) {
  HD_GFX_SCALE request = {};
  request.src_img = Image(frame.phy_addr[0], frame.dim.w, frame.dim.h);
  request.dst_img = Image(bench.input_pa(), 384, 384);
  request.src_region = {0, 0, static_cast<INT32>(frame.dim.w), static_cast<INT32>(frame.dim.h)};
  request.dst_region = {0, 0, 384, 216};
  return hd_gfx_scale(&request) == HD_OK;
}

bool Snapshot(const HD_VIDEO_FRAME& frame, const Bench& bench) {
  HD_GFX_SCALE request = {};
  request.src_img = Image(frame.phy_addr[0], frame.dim.w, frame.dim.h);
  request.dst_img = Image(bench.snapshot_pa(), 160, 90);
  request.src_region = {900, 400, 356, 200};
  request.dst_region = {0, 0, 160, 90};
  if (hd_gfx_scale(&request) != HD_OK) return false;
  HD_VIDEO_FRAME picture = {};
  picture.sign = HD_VIDEO_FRAME_SIGN;
  picture.pxlfmt = HD_VIDEO_PXLFMT_YUV420;
  picture.dim = {160, 90};
  picture.phy_addr[0] = bench.snapshot_pa();
  picture.phy_addr[1] = bench.snapshot_pa() + 160 * 90;
  picture.loff[0] = picture.loff[1] = 160;
  HD_VIDEOENC_BS bs;
  return hd_videoenc_push_in_buf(kEncoderPath, &picture, nullptr, 0) == HD_OK &&
         hd_videoenc_pull_out_buf(kEncoderPath, &bs, -1) == HD_OK &&
         hd_videoenc_release_out_buf(kEncoderPath, &bs) == HD_OK;
}

enum Steps { kRender = 1, kScale = 2, kJpeg = 4 };

void RunFrames(benchmark::State& state, int steps) {
  Bench bench;
  if (!bench.ok()) return state.SkipWithError("no device memory block");
  HD_VIDEO_FRAME frame;
  // Frames taken once and reused when rendering is not measured.
  if (!(steps & kRender) && hd_videoproc_pull_out_buf(kVideoPath, &frame, -1) != HD_OK) {
    return state.SkipWithError("no frame");
  }
  for (auto _ : state) {
    if ((steps & kRender) && hd_videoproc_pull_out_buf(kVideoPath, &frame, -1) != HD_OK) {
      return state.SkipWithError("pull failed");
    }
    if ((steps & kScale) && !Letterbox(frame, bench)) return state.SkipWithError("scale failed");
    if ((steps & kJpeg) && !Snapshot(frame, bench)) return state.SkipWithError("snapshot failed");
    if (steps & kRender) hd_videoproc_release_out_buf(kVideoPath, &frame);
  }
  if (!(steps & kRender)) hd_videoproc_release_out_buf(kVideoPath, &frame);
  state.counters["frames_per_s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_Render1080p(benchmark::State& state) {
  RunFrames(state, kRender);
}
void BM_LetterboxTo384(benchmark::State& state) {
  RunFrames(state, kScale);
}
void BM_Snapshot160x90Jpeg(benchmark::State& state) {
  RunFrames(state, kJpeg);
}
void BM_WholeFrame(benchmark::State& state) {
  RunFrames(state, kRender | kScale | kJpeg);
}

BENCHMARK(BM_Render1080p)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LetterboxTo384)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Snapshot160x90Jpeg)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WholeFrame)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
