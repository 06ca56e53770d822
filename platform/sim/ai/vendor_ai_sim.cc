// The host network runtime behind vendor_ai.h, vendor_ai_net.h and vendor_ai_cpu.h.
//
// Runtime state: one process-wide instance (never destroyed: the platform has no tear-down hook)
// with its engine settings and up to kMaxNetworks networks, each guarded by the runtime's mutex;
// any thread may call. Device memory is reached only through hd_common_mem_mmap/munmap by
// physical address; the virtual addresses in the caller's records are passed back untouched.
//
// Per network:
//   closed   options (parameters 4, 5) and model (parameter 1) may be set; open reads and checks
//            the model file (refusing a foreign, truncated, corrupt or unsupported one)
//   open     the work buffer's size is asked for and the buffer handed over (parameter 41); inputs
//            may be set; start needs the work buffer
//   started  inputs set, proc runs the network on them and writes every output into the work
//            buffer, outputs read as buffer records there; stop goes back to open
// close from open releases the work buffer's mapping and the network. Out-of-order calls answer
// HD_ERR_UNINIT (runtime not initialised), HD_ERR_NOT_OPEN, HD_ERR_NOT_START, HD_ERR_STATE,
// HD_ERR_ALREADY_OPEN, HD_ERR_ALREADY_START or HD_ERR_NO_CONFIG (something not set yet).
#include <time.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

extern "C" {
#include "hd_common.h"
#include "vendor_ai.h"
}

#include "fixed_point.h"
#include "model_file.h"
#include "host_network.h"

namespace mirvane {
namespace sim {
namespace ai {
namespace {

constexpr UINT32 kMaxNetworks = 16;
constexpr size_t kOutputAlign = 64;
constexpr int kEngineToken = 1;

// A device-memory mapping by physical address; unmapped on destruction.
class DeviceMapping {
 public:
  DeviceMapping(UINT32 pa, UINT32 size)
      : size_(size),
        data_(static_cast<uint8_t*>(hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE_CACHE, pa, size))) {}
  ~DeviceMapping() {
    if (data_ != nullptr && hd_common_mem_munmap(data_, static_cast<unsigned>(size_)) != HD_OK) {
      std::fprintf(stderr, "vendor_ai: hd_common_mem_munmap failed\n");
    }
  }
  DeviceMapping(const DeviceMapping&) = delete;
  DeviceMapping& operator=(const DeviceMapping&) = delete;
  uint8_t* data() const { return data_; }
  UINT32 size() const { return size_; }

 private:
  UINT32 size_;
  uint8_t* data_;
};

enum class NetState { kClosed, kOpen, kStarted };

struct Network {
  NetState state = NetState::kClosed;
  bool has_model = false;
  VENDOR_AI_NET_CFG_MODEL model_cfg{};
  VENDOR_AI_NET_CFG_JOB_OPT job_opt{};
  VENDOR_AI_NET_CFG_BUF_OPT buf_opt{};
  // While open:
  ModelDescription model;
  std::unique_ptr<HostNetwork> network;
  std::vector<size_t> output_offsets;
  std::vector<FixedFormat> output_formats;
  size_t workbuf_size = 0;
  VENDOR_AI_NET_CFG_WORKBUF workbuf{};
  std::unique_ptr<DeviceMapping> workbuf_map;
  VENDOR_AI_BUF inputs[2]{};
  bool input_set[2] = {false, false};

  void Close() {
    network.reset();
    workbuf_map.reset();
    model = ModelDescription{};
    output_offsets.clear();
    output_formats.clear();
    workbuf = VENDOR_AI_NET_CFG_WORKBUF{};
    input_set[0] = input_set[1] = false;
    state = NetState::kClosed;
  }
};

struct Runtime {
  std::mutex mutex;
  bool initialised = false;
  void* engine = nullptr;
  UINT32 scheduler = 0;
  Network networks[kMaxNetworks];
};

Runtime& Instance() {
  static Runtime* runtime = new Runtime;
  return *runtime;
}

// Path ids lie outside the parameter enumeration's range: read the word's bits without loading
// it as the enumeration.
UINT32 ParamBits(const VENDOR_AI_NET_PARAM_ID* param_id) {
  uint32_t bits = 0;
  static_assert(sizeof(*param_id) == sizeof(bits), "enumerations are 4 bytes");
  std::memcpy(&bits, param_id, sizeof(bits));
  return bits;
}

bool IsInputPath(UINT32 id) {
  return (id & 0xf0000000u) == 0x90000000u;
}
bool IsOutputPath(UINT32 id) {
  return (id & 0xf0000000u) == 0xa0000000u;
}
bool IsKnownParam(UINT32 id) {
  return id == 0 || id == 1 || id == 4 || id == 5 || (id >= 20 && id <= 22) || id == 41;
}

// Checks the runtime and the process id; on success *net is the network.
HD_RESULT Lookup(Runtime& rt, UINT32 proc_id, Network** net) {
  if (!rt.initialised) return HD_ERR_UNINIT;
  if (proc_id >= kMaxNetworks) return HD_ERR_PARAM;
  *net = &rt.networks[proc_id];
  return HD_OK;
}

// Runs f(network) under the runtime's lock once the runtime and the process id check out.
template <typename F>
HD_RESULT WithNetwork(UINT32 proc_id, F f) {
  Runtime& rt = Instance();
  std::lock_guard<std::mutex> lock(rt.mutex);
  Network* net = nullptr;
  if (HD_RESULT r = Lookup(rt, proc_id, &net)) return r;
  return f(*net);
}

HD_RESULT RequireOpen(const Network& net) {
  return net.state == NetState::kClosed ? HD_ERR_NOT_OPEN : HD_OK;
}

HD_RESULT RequireStarted(const Network& net) {
  if (net.state == NetState::kClosed) return HD_ERR_NOT_OPEN;
  return net.state == NetState::kOpen ? HD_ERR_NOT_START : HD_OK;
}

HD_RESULT OpenNetwork(Network& net) {
  if (net.state != NetState::kClosed) return HD_ERR_ALREADY_OPEN;
  if (!net.has_model) return HD_ERR_NO_CONFIG;
  ModelDescription model;
  {
    DeviceMapping map(net.model_cfg.pa, net.model_cfg.size);
    if (map.data() == nullptr) {
      std::fprintf(stderr, "vendor_ai: cannot map the model at 0x%08lx (%lu bytes)\n",
                   net.model_cfg.pa, net.model_cfg.size);
      return HD_ERR_SYS;
    }
    const ModelCheck check = ParseModel(map.data(), map.size(), &model);
    if (check.code != 0) {
      std::fprintf(stderr, "vendor_ai: model refused (%d): %s\n", check.code, check.reason.c_str());
      return static_cast<HD_RESULT>(check.code);
    }
  }
  size_t offset = 0;
  for (const OutputPath& out : model.outputs) {
    FixedFormat format;
    DecodeFixedFormat(out.format, &format);
    net.output_formats.push_back(format);
    net.output_offsets.push_back(offset);
    const size_t bytes =
        static_cast<size_t>(out.width) * out.height * out.channels * format.bytes();
    offset += (bytes + kOutputAlign - 1) / kOutputAlign * kOutputAlign;
  }
  std::string error;
  net.network = MakeHostNetwork(model, &error);
  if (!net.network) {
    std::fprintf(stderr, "vendor_ai: model refused (%d): %s\n", HD_ERR_NOT_SUPPORT, error.c_str());
    net.output_formats.clear();
    net.output_offsets.clear();
    return HD_ERR_NOT_SUPPORT;
  }
  net.workbuf_size = offset;
  net.model = std::move(model);
  net.state = NetState::kOpen;
  return HD_OK;
}

HD_RESULT SetWorkBuffer(Network& net, const VENDOR_AI_NET_CFG_WORKBUF& record) {
  if (HD_RESULT r = RequireOpen(net)) return r;
  if (net.state == NetState::kStarted) return HD_ERR_STATE;
  if (record.pa == 0) return HD_ERR_PARAM;
  if (record.size < net.workbuf_size) return HD_ERR_NOBUF;
  std::unique_ptr<DeviceMapping> map(new DeviceMapping(record.pa, record.size));
  if (map->data() == nullptr) return HD_ERR_SYS;
  net.workbuf_map = std::move(map);
  net.workbuf = record;
  return HD_OK;
}

int InputIndex(const Network& net, UINT32 path_id) {
  for (size_t i = 0; i < net.model.inputs.size() && i < 2; ++i) {
    if (net.model.inputs[i].path_id == path_id) return static_cast<int>(i);
  }
  return -1;
}

HD_RESULT SetInput(Network& net, UINT32 path_id, const VENDOR_AI_BUF& buf) {
  if (HD_RESULT r = RequireOpen(net)) return r;
  const int index = InputIndex(net, path_id);
  if (index < 0) return HD_ERR_PATH;
  const InputPath& spec = net.model.inputs[index];
  if (buf.sign != VENDOR_AI_BUF_SIGN) return HD_ERR_SIGN;
  if (static_cast<UINT32>(buf.fmt) != spec.format) return HD_ERR_NOT_SUPPORT;
  if (buf.width != spec.width || buf.height != spec.height || buf.pa == 0) return HD_ERR_PARAM;
  const UINT32 line = buf.line_ofs == 0 ? buf.width : buf.line_ofs;
  if (line < buf.width) return HD_ERR_PARAM;
  if (buf.size < line * buf.height * 3 / 2) return HD_ERR_NOBUF;
  net.inputs[index] = buf;
  net.inputs[index].line_ofs = line;
  net.input_set[index] = true;
  return HD_OK;
}

HD_RESULT GetOutput(const Network& net, UINT32 path_id, VENDOR_AI_BUF* buf) {
  if (HD_RESULT r = RequireStarted(net)) return r;
  for (size_t i = 0; i < net.model.outputs.size(); ++i) {
    const OutputPath& out = net.model.outputs[i];
    if (out.path_id != path_id) continue;
    const UINT32 element = static_cast<UINT32>(net.output_formats[i].bytes());
    const UINT32 offset = static_cast<UINT32>(net.output_offsets[i]);
    std::memset(buf, 0, sizeof(*buf));
    buf->sign = VENDOR_AI_BUF_SIGN;
    buf->chunk_size = sizeof(VENDOR_AI_BUF) - 8;
    buf->ddr_id = DDR_ID0;
    buf->pa = net.workbuf.pa + offset;
    buf->va = net.workbuf.va != 0 ? net.workbuf.va + offset : 0;
    buf->size = out.width * out.height * out.channels * element;
    buf->fmt = static_cast<HD_VIDEO_PXLFMT>(out.format);
    buf->width = out.width;
    buf->height = out.height;
    buf->channel = out.channels;
    buf->batch_num = 1;
    buf->scale_ratio = out.scale_ratio;
    buf->line_ofs = out.width * element;
    buf->channel_ofs = out.width * out.height * element;
    buf->batch_ofs = buf->channel_ofs * out.channels;
    std::memcpy(buf->layout, "NCHW", 5);
    return HD_OK;
  }
  return HD_ERR_PATH;
}

Nv12Picture PictureOf(const VENDOR_AI_BUF& buf, const DeviceMapping& map) {
  Nv12Picture p;
  p.y = map.data();
  p.uv = map.data() + static_cast<size_t>(buf.line_ofs) * buf.height;
  p.width = static_cast<int>(buf.width);
  p.height = static_cast<int>(buf.height);
  p.stride = static_cast<int>(buf.line_ofs);
  return p;
}

HD_RESULT Proc(Network& net) {
  if (HD_RESULT r = RequireStarted(net)) return r;
  if (!net.input_set[0] || !net.input_set[1]) return HD_ERR_NO_CONFIG;
  const VENDOR_AI_BUF& cur = net.inputs[0];
  const VENDOR_AI_BUF& prev = net.inputs[1];
  DeviceMapping cur_map(cur.pa, cur.line_ofs * cur.height * 3 / 2);
  DeviceMapping prev_map(prev.pa, prev.line_ofs * prev.height * 3 / 2);
  if (cur_map.data() == nullptr || prev_map.data() == nullptr) return HD_ERR_SYS;
  net.network->Run(PictureOf(cur, cur_map), PictureOf(prev, prev_map));
  uint8_t* base = net.workbuf_map->data();
  for (size_t i = 0; i < net.model.outputs.size(); ++i) {
    const std::vector<float>& tensor = net.network->output(i);
    QuantizeFixed(tensor.data(), tensor.size(), net.output_formats[i],
                  net.model.outputs[i].scale_ratio, base + net.output_offsets[i]);
  }
  return hd_common_mem_flush_cache(base, static_cast<unsigned>(net.workbuf_size));
}

void SleepMs(uint32_t ms) {
  timespec left{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace
}  // namespace ai
}  // namespace sim
}  // namespace mirvane

using mirvane::sim::ai::Instance;
using mirvane::sim::ai::NetState;
using mirvane::sim::ai::Network;
using mirvane::sim::ai::Runtime;

extern "C" {

// Fault injection of the platform simulation, when it is linked in (the runtime's own tests run
// without it): the injected code for this call, or 0.
int mirvane_sim_fault(const char* call) __attribute__((weak));

static int InjectedFault(const char* call) {
  return mirvane_sim_fault != nullptr ? mirvane_sim_fault(call) : 0;
}

// The platform simulation's pace, when it is linked in: at fast pace no run time is simulated.
int mirvane_sim_fast_pace(void) __attribute__((weak));

static bool FastPace() {
  return mirvane_sim_fast_pace != nullptr && mirvane_sim_fast_pace() != 0;
}

void* vendor_ai_cpu1_get_engine(void) {
  return const_cast<int*>(&mirvane::sim::ai::kEngineToken);
}

HD_RESULT vendor_ai_cfg_set(VENDOR_AI_CFG_ID cfg_id, void* p_param) {
  Runtime& rt = Instance();
  std::lock_guard<std::mutex> lock(rt.mutex);
  if (rt.initialised) return HD_ERR_STATE;
  if (p_param == nullptr) return HD_ERR_NULL_PTR;
  switch (cfg_id) {
    case VENDOR_AI_CFG_PLUGIN_ENGINE:
      rt.engine = p_param;
      return HD_OK;
    case VENDOR_AI_CFG_PROC_SCHD:
      rt.scheduler = *static_cast<UINT32*>(p_param);
      return HD_OK;
    default:
      return HD_ERR_NOT_SUPPORT;
  }
}

HD_RESULT vendor_ai_init(VOID) {
  Runtime& rt = Instance();
  std::lock_guard<std::mutex> lock(rt.mutex);
  if (rt.initialised) return HD_ERR_INIT;
  rt.initialised = true;
  return HD_OK;
}

HD_RESULT vendor_ai_uninit(VOID) {
  Runtime& rt = Instance();
  std::lock_guard<std::mutex> lock(rt.mutex);
  if (!rt.initialised) return HD_ERR_UNINIT;
  for (const Network& net : rt.networks) {
    if (net.state != NetState::kClosed) return HD_ERR_STATE;
  }
  for (Network& net : rt.networks) net = Network{};
  rt.initialised = false;
  rt.engine = nullptr;
  rt.scheduler = 0;
  return HD_OK;
}

HD_RESULT vendor_ai_net_set(UINT32 proc_id, VENDOR_AI_NET_PARAM_ID param_id, void* p_param) {
  using namespace mirvane::sim::ai;
  const UINT32 id = ParamBits(&param_id);
  return WithNetwork(proc_id, [id, p_param](Network& net) {
    if (p_param == nullptr) return HD_ERR_NULL_PTR;
    if (IsInputPath(id)) return SetInput(net, id, *static_cast<const VENDOR_AI_BUF*>(p_param));
    if (IsOutputPath(id)) return HD_ERR_PATH;
    const bool option = id == VENDOR_AI_NET_PARAM_CFG_MODEL ||
                        id == VENDOR_AI_NET_PARAM_CFG_JOB_OPT ||
                        id == VENDOR_AI_NET_PARAM_CFG_BUF_OPT;
    if (option && net.state != NetState::kClosed) return HD_ERR_STATE;
    switch (id) {
      case VENDOR_AI_NET_PARAM_CFG_MODEL: {
        const auto& cfg = *static_cast<const VENDOR_AI_NET_CFG_MODEL*>(p_param);
        if (cfg.pa == 0 || cfg.size == 0) return HD_ERR_PARAM;
        net.model_cfg = cfg;
        net.has_model = true;
        return HD_OK;
      }
      case VENDOR_AI_NET_PARAM_CFG_JOB_OPT: {
        const auto& opt = *static_cast<const VENDOR_AI_NET_CFG_JOB_OPT*>(p_param);
        if (opt.method != VENDOR_AI_NET_JOB_OPT_LINEAR_O1) return HD_ERR_NOT_SUPPORT;
        net.job_opt = opt;
        return HD_OK;
      }
      case VENDOR_AI_NET_PARAM_CFG_BUF_OPT: {
        const auto& opt = *static_cast<const VENDOR_AI_NET_CFG_BUF_OPT*>(p_param);
        if (opt.method != VENDOR_AI_NET_BUF_OPT_NONE) return HD_ERR_NOT_SUPPORT;
        net.buf_opt = opt;
        return HD_OK;
      }
      case VENDOR_AI_NET_PARAM_CFG_WORKBUF:
        return SetWorkBuffer(net, *static_cast<const VENDOR_AI_NET_CFG_WORKBUF*>(p_param));
      default:
        return IsKnownParam(id) ? HD_ERR_NOT_SUPPORT : HD_ERR_PARAM;
    }
  });
}

HD_RESULT vendor_ai_net_get(UINT32 proc_id, VENDOR_AI_NET_PARAM_ID param_id, void* p_param) {
  using namespace mirvane::sim::ai;
  const UINT32 id = ParamBits(&param_id);
  return WithNetwork(proc_id, [id, p_param](Network& net) {
    if (p_param == nullptr) return HD_ERR_NULL_PTR;
    if (IsOutputPath(id)) return GetOutput(net, id, static_cast<VENDOR_AI_BUF*>(p_param));
    if (IsInputPath(id)) return HD_ERR_PATH;
    if (id != VENDOR_AI_NET_PARAM_CFG_WORKBUF) {
      return IsKnownParam(id) ? HD_ERR_NOT_SUPPORT : HD_ERR_PARAM;
    }
    if (HD_RESULT r = RequireOpen(net)) return r;
    auto* record = static_cast<VENDOR_AI_NET_CFG_WORKBUF*>(p_param);
    *record = net.workbuf;
    record->size = static_cast<UINT32>(net.workbuf_size);
    return HD_OK;
  });
}

HD_RESULT vendor_ai_net_open(UINT32 proc_id) {
  return mirvane::sim::ai::WithNetwork(proc_id, mirvane::sim::ai::OpenNetwork);
}

HD_RESULT vendor_ai_net_close(UINT32 proc_id) {
  return mirvane::sim::ai::WithNetwork(proc_id, [](Network& net) {
    if (net.state == NetState::kClosed) return HD_ERR_NOT_OPEN;
    if (net.state == NetState::kStarted) return HD_ERR_STATE;
    net.Close();
    return HD_OK;
  });
}

HD_RESULT vendor_ai_net_start(UINT32 proc_id) {
  return mirvane::sim::ai::WithNetwork(proc_id, [](Network& net) {
    if (net.state == NetState::kClosed) return HD_ERR_NOT_OPEN;
    if (net.state == NetState::kStarted) return HD_ERR_ALREADY_START;
    if (!net.workbuf_map) return HD_ERR_NO_CONFIG;
    net.state = NetState::kStarted;
    return HD_OK;
  });
}

HD_RESULT vendor_ai_net_stop(UINT32 proc_id) {
  return mirvane::sim::ai::WithNetwork(proc_id, [](Network& net) {
    if (HD_RESULT r = mirvane::sim::ai::RequireStarted(net)) return r;
    net.state = NetState::kOpen;
    return HD_OK;
  });
}

HD_RESULT vendor_ai_net_proc(UINT32 proc_id) {
  if (const int fault = InjectedFault("vendor_ai_net_proc")) return static_cast<HD_RESULT>(fault);
  uint32_t delay_ms = 0;
  const HD_RESULT result = mirvane::sim::ai::WithNetwork(proc_id, [&delay_ms](Network& net) {
    const HD_RESULT r = mirvane::sim::ai::Proc(net);
    if (r == HD_OK) delay_ms = net.model.settings.delay_ms;
    return r;
  });
  // The accelerator's run time, spent without holding the runtime (none at fast pace).
  if (delay_ms > 0 && !FastPace()) mirvane::sim::ai::SleepMs(delay_ms);
  return result;
}

HD_RESULT vendor_ai_cpu_util_fixed2float(VOID* p_in, HD_VIDEO_PXLFMT in_fmt, FLOAT* p_out,
                                         FLOAT out_scale_ratio, INT32 count) {
  using namespace mirvane::sim::ai;
  if (p_in == nullptr || p_out == nullptr) return HD_ERR_NULL_PTR;
  if (count < 0) return HD_ERR_PARAM;
  FixedFormat format;
  if (!DecodeFixedFormat(static_cast<UINT32>(in_fmt), &format)) {
    // Like the camera's runtime: reported, and still HD_OK.
    std::fprintf(stderr, "vendor_ai: fixed2float: format 0x%08x not supported\n",
                 static_cast<unsigned>(in_fmt));
    return HD_OK;
  }
  FixedToFloat(p_in, static_cast<size_t>(count), format, out_scale_ratio, p_out);
  return HD_OK;
}

}  // extern "C"
