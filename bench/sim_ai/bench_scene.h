// Shared by the network benchmark and its fixed-length replay: a picture with eight objects, and
// a network started through the runtime on the fake device memory (no processing delay).
#ifndef MIRVANE_BENCH_SIM_AI_BENCH_SCENE_H
#define MIRVANE_BENCH_SIM_AI_BENCH_SCENE_H

#include <cstring>
#include <vector>

extern "C" {
#include "vendor_ai.h"
}

#include "fake_device_memory.h"
#include "model_file.h"
#include "reference_network.h"
#include "scene_drawing.h"

namespace mirvane {
namespace sim_ai_bench {

using sim::ai::Nv12Picture;
using sim_ai_test::Box;
using sim_ai_test::TestPicture;

inline TestPicture Scene(int shift) {
  TestPicture picture(3);
  for (int i = 0; i < 8; ++i) {
    const int x = 20 + 45 * i + shift, y = 40 + 35 * i;
    picture.Draw(Box{1 + i % 4, x, y, x + 30 + 5 * i, y + 50 + 4 * i});
  }
  return picture;
}

inline Nv12Picture View(TestPicture& p) {
  Nv12Picture v;
  v.y = p.data();
  v.uv = p.data() + 384 * 384;
  v.width = v.height = v.stride = 384;
  return v;
}

inline mirvane::sim::ai::ModelDescription Model() {
  mirvane::sim::ai::ModelDescription model = mirvane::sim::ai::DefaultModel();
  model.settings.delay_ms = 0;
  return model;
}

// Network 0 started on the default model, its buffers owned; stopped and closed on destruction.
class StartedNetwork {
 public:
  StartedNetwork() : model_(sim::ai::SerializeModel(Model())) {
    vendor_ai_init();
    VENDOR_AI_NET_CFG_MODEL cfg{sim_ai_test::PhysicalOf(model_.data()), 0,
                                static_cast<UINT32>(model_.size())};
    vendor_ai_net_set(0, VENDOR_AI_NET_PARAM_CFG_MODEL, &cfg);
    vendor_ai_net_open(0);
    VENDOR_AI_NET_CFG_WORKBUF wb{};
    vendor_ai_net_get(0, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &wb);
    work_.resize(wb.size);
    wb.pa = wb.va = sim_ai_test::PhysicalOf(work_.data());
    vendor_ai_net_set(0, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &wb);
    vendor_ai_net_start(0);
  }
  ~StartedNetwork() {
    vendor_ai_net_stop(0);
    vendor_ai_net_close(0);
    vendor_ai_uninit();
  }
  StartedNetwork(const StartedNetwork&) = delete;
  StartedNetwork& operator=(const StartedNetwork&) = delete;

  // Runs on current with previous as the previous picture.
  HD_RESULT Proc(TestPicture& current, TestPicture& previous) {
    VENDOR_AI_BUF cur = Input(current), prev = Input(previous);
    vendor_ai_net_set(0, static_cast<VENDOR_AI_NET_PARAM_ID>(0x90000000), &cur);
    vendor_ai_net_set(0, static_cast<VENDOR_AI_NET_PARAM_ID>(0x90000001), &prev);
    return vendor_ai_net_proc(0);
  }

 private:
  static VENDOR_AI_BUF Input(TestPicture& picture) {
    VENDOR_AI_BUF in;
    std::memset(&in, 0, sizeof(in));
    in.sign = VENDOR_AI_BUF_SIGN;
    in.pa = sim_ai_test::PhysicalOf(picture.data());
    in.size = 384 * 384 * 3 / 2;
    in.fmt = HD_VIDEO_PXLFMT_YUV420;
    in.width = in.height = in.line_ofs = 384;
    return in;
  }
  std::vector<uint8_t> model_;
  std::vector<uint8_t> work_;
};

}  // namespace sim_ai_bench
}  // namespace mirvane

#endif  // MIRVANE_BENCH_SIM_AI_BENCH_SCENE_H
