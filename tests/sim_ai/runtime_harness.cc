#include "runtime_harness.h"

#include <cstring>

#include "fake_device_memory.h"
#include "scene_drawing.h"

namespace mirvane {
namespace sim_ai_test {

using sim::ai::ModelDescription;

ModelDescription IdealModel() {
  ModelDescription model = sim::ai::DefaultModel();
  model.settings = sim::ai::IdealSettings();
  return model;
}

VENDOR_AI_BUF InputRecord(uint8_t* picture) {
  VENDOR_AI_BUF buf;
  std::memset(&buf, 0, sizeof(buf));
  buf.sign = VENDOR_AI_BUF_SIGN;
  buf.pa = PhysicalOf(picture);
  buf.va = PhysicalOf(picture);
  buf.size = kPictureBytes;
  buf.fmt = HD_VIDEO_PXLFMT_YUV420;
  buf.width = 384;
  buf.height = 384;
  buf.line_ofs = 384;
  return buf;
}

RunningNetwork::RunningNetwork(const ModelDescription& model, UINT32 proc_id)
    : proc_id_(proc_id), model_(sim::ai::SerializeModel(model)) {
  vendor_ai_cfg_set(VENDOR_AI_CFG_PLUGIN_ENGINE, vendor_ai_cpu1_get_engine());
  UINT32 scheduler = 0;
  vendor_ai_cfg_set(VENDOR_AI_CFG_PROC_SCHD, &scheduler);
  // Another network may have initialised the runtime already.
  const HD_RESULT init = vendor_ai_init();
  if (init != HD_OK && init != HD_ERR_INIT) return;
  initialised_ = init == HD_OK;
  VENDOR_AI_NET_CFG_BUF_OPT buf_opt{VENDOR_AI_NET_BUF_OPT_NONE, DDR_ID0};
  VENDOR_AI_NET_CFG_JOB_OPT job_opt{VENDOR_AI_NET_JOB_OPT_LINEAR_O1, 0, 255};
  VENDOR_AI_NET_CFG_MODEL cfg{PhysicalOf(model_.data()), PhysicalOf(model_.data()),
                              static_cast<UINT32>(model_.size())};
  vendor_ai_net_set(proc_id, VENDOR_AI_NET_PARAM_CFG_BUF_OPT, &buf_opt);
  vendor_ai_net_set(proc_id, VENDOR_AI_NET_PARAM_CFG_JOB_OPT, &job_opt);
  if (vendor_ai_net_set(proc_id, VENDOR_AI_NET_PARAM_CFG_MODEL, &cfg) != HD_OK) return;
  if (vendor_ai_net_open(proc_id) != HD_OK) return;
  opened_ = true;
  VENDOR_AI_NET_CFG_WORKBUF wb{0, 0, 0};
  if (vendor_ai_net_get(proc_id, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &wb) != HD_OK) return;
  work_buffer_.assign((wb.size + 31) / 32 * 32, 0);
  wb.pa = wb.va = PhysicalOf(work_buffer_.data());
  wb.size = static_cast<UINT32>(work_buffer_.size());
  if (vendor_ai_net_set(proc_id, VENDOR_AI_NET_PARAM_CFG_WORKBUF, &wb) != HD_OK) return;
  if (vendor_ai_net_start(proc_id) != HD_OK) return;
  started_ = true;
  ok_ = true;
}

RunningNetwork::~RunningNetwork() {
  if (started_) vendor_ai_net_stop(proc_id_);
  if (opened_) vendor_ai_net_close(proc_id_);
  if (initialised_) vendor_ai_uninit();
}

HD_RESULT RunningNetwork::Run(uint8_t* current, uint8_t* previous) {
  VENDOR_AI_BUF cur = InputRecord(current), prev = InputRecord(previous);
  HD_RESULT r = vendor_ai_net_set(proc_id_, static_cast<VENDOR_AI_NET_PARAM_ID>(0x90000000), &cur);
  if (r != HD_OK) return r;
  r = vendor_ai_net_set(proc_id_, static_cast<VENDOR_AI_NET_PARAM_ID>(0x90000001), &prev);
  if (r != HD_OK) return r;
  return vendor_ai_net_proc(proc_id_);
}

Tensor RunningNetwork::Get(UINT32 path_id) {
  VENDOR_AI_BUF out;
  std::memset(&out, 0, sizeof(out));
  Tensor t;
  if (vendor_ai_net_get(proc_id_, static_cast<VENDOR_AI_NET_PARAM_ID>(path_id), &out) != HD_OK) {
    return t;
  }
  t.height = static_cast<int>(out.height);
  t.width = static_cast<int>(out.width);
  t.channels = static_cast<int>(out.channel);
  t.data.resize(static_cast<size_t>(t.height) * t.width * t.channels);
  vendor_ai_cpu_util_fixed2float(reinterpret_cast<void*>(out.va), out.fmt, t.data.data(),
                                 out.scale_ratio, static_cast<INT32>(t.data.size()));
  return t;
}

std::vector<std::vector<Decoded>> RunningNetwork::Decode(float threshold) {
  const UINT32 hm[3] = {0xa0000084, 0xa0000096, 0xa00000a7};
  const UINT32 reg[3] = {0xa000007e, 0xa0000094, 0xa00000a5};
  const UINT32 trk[3] = {0xa0000081, 0xa0000095, 0xa00000a6};
  Tensor heatmaps[3], regressions[3], trackings[3];
  for (int s = 0; s < 3; ++s) {
    heatmaps[s] = Get(hm[s]);
    regressions[s] = Get(reg[s]);
    trackings[s] = Get(trk[s]);
  }
  return DecodeReference(heatmaps, regressions, trackings, threshold, 384, 384);
}

}  // namespace sim_ai_test
}  // namespace mirvane
