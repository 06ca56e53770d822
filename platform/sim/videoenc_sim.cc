// The JPEG encoder of the host simulation. A picture in device memory (NV12 4:2:0 or 8-bit luma)
// pushed in is encoded with libjpeg-turbo into the encoder's bit-stream buffer, at the next free
// place of that ring (so packs rarely start at the buffer's start); pull hands out one pack whose
// physical address lies inside the buffer that hd_videoenc_get(HD_VIDEOENC_PARAM_BUFINFO)
// reports; release frees it. The encoder holds one bit stream at a time: a push while the previous
// one is not yet released is refused with HD_ERR_NOBUF, a pull with nothing encoded waits.
#include <libyuv/planar_functions.h>
#include <turbojpeg.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <vector>

#include "device_memory.h"
#include "fault_injector.h"
#include "hd_videoenc.h"
#include "platform_state.h"
#include "sim_control.h"
#include "sim_settings.h"
#include "word_range.h"

namespace mirvane {
namespace sim {
namespace {

constexpr uint32_t kPackAlign = 64;
constexpr UINT32 kMaxSide = 8192;

// Owns the bit-stream buffer's reservation, the TurboJPEG handle and the bit stream in flight.
// One instance per process; thread-safe.
class JpegEncoder {
 public:
  static JpegEncoder& Instance() {
    static JpegEncoder* instance = new JpegEncoder();
    return *instance;
  }

  int Push(HD_PATH_ID path, const HD_VIDEO_FRAME& in);
  int Pull(HD_PATH_ID path, HD_VIDEOENC_BS* bs, INT32 wait_ms);
  int Release(HD_PATH_ID path, const HD_VIDEOENC_BS& bs);
  int BufferInfo(HD_PATH_ID path, HD_VIDEOENC_BUFINFO* info);
  bool Stop();

 private:
  enum class State { kIdle, kEncoded, kPulled };

  int StartLocked();
  int EncodeLocked(const HD_VIDEO_FRAME& in, const uint8_t* y, const uint8_t* uv);

  std::mutex mutex_;
  std::condition_variable encoded_;
  bool started_ = false;
  EncoderSetting setting_;
  uint32_t buffer_pa_ = 0;
  uint8_t* buffer_ = nullptr;
  tjhandle tj_ = nullptr;
  uint32_t cursor_ = 0;  // where the next bit stream goes in the ring
  State state_ = State::kIdle;
  uint32_t pack_offset_ = 0;
  uint32_t pack_size_ = 0;
  UINT64 timestamp_ = 0;
  std::vector<uint8_t> u_, v_;  // TurboJPEG takes separate chroma planes
};

int JpegEncoder::StartLocked() {
  setting_ = CurrentSettings()->encoder;
  DeviceMemory& memory = DeviceMemory::Instance();
  if (!memory.Reserve(Window::kEncoder, setting_.buffer_size)) return HD_ERR_NOMEM;
  buffer_pa_ = kEncoderBase;
  buffer_ = memory.View(buffer_pa_, setting_.buffer_size);
  if (tj_ == nullptr) tj_ = tjInitCompress();
  if (buffer_ == nullptr || tj_ == nullptr) return HD_ERR_SYS;
  started_ = true;
  return HD_OK;
}

bool JpegEncoder::Stop() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (state_ != State::kIdle) return false;
  started_ = false;
  cursor_ = 0;
  return true;
}

int JpegEncoder::EncodeLocked(const HD_VIDEO_FRAME& in, const uint8_t* y, const uint8_t* uv) {
  const int w = static_cast<int>(in.dim.w), h = static_cast<int>(in.dim.h);
  const unsigned char* planes[3] = {y, nullptr, nullptr};
  int strides[3] = {static_cast<int>(in.loff[0]), 0, 0};
  int subsampling = TJSAMP_GRAY;
  if (uv != nullptr) {
    const int cw = w / 2, ch = h / 2;
    u_.resize(static_cast<size_t>(cw) * ch);
    v_.resize(u_.size());
    libyuv::SplitUVPlane(uv, static_cast<int>(in.loff[1]), u_.data(), cw, v_.data(), cw, cw, ch);
    planes[1] = u_.data();
    planes[2] = v_.data();
    strides[1] = strides[2] = cw;
    subsampling = TJSAMP_420;
  }
  unsigned char* out = nullptr;
  unsigned long out_size = 0;
  // The accurate integer transform gives the same bytes on every platform.
  if (tjCompressFromYUVPlanes(tj_, planes, w, strides, h, subsampling, &out, &out_size,
                              setting_.quality, TJFLAG_ACCURATEDCT) != 0) {
    tjFree(out);
    return HD_ERR_FAIL;
  }
  const uint32_t size = static_cast<uint32_t>(out_size);
  if (size > setting_.buffer_size) {
    tjFree(out);
    return HD_ERR_NOBUF;
  }
  if (cursor_ + size > setting_.buffer_size) cursor_ = 0;  // wrap round the ring
  std::memcpy(buffer_ + cursor_, out, size);
  tjFree(out);
  pack_offset_ = cursor_;
  pack_size_ = size;
  cursor_ = (cursor_ + size + kPackAlign - 1) / kPackAlign * kPackAlign;
  if (cursor_ >= setting_.buffer_size) cursor_ = 0;
  timestamp_ = in.timestamp;
  return HD_OK;
}

int JpegEncoder::Push(HD_PATH_ID path, const HD_VIDEO_FRAME& in) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!started_) {
    if (int r = StartLocked()) return r;
  }
  if (path != setting_.path) return HD_ERR_PATH;
  if (in.sign != HD_VIDEO_FRAME_SIGN) return HD_ERR_SIGN;
  if (in.pxlfmt != HD_VIDEO_PXLFMT_YUV420 && in.pxlfmt != HD_VIDEO_PXLFMT_Y8) {
    return HD_ERR_NOT_SUPPORT;
  }
  const bool nv12 = in.pxlfmt == HD_VIDEO_PXLFMT_YUV420;
  const UINT32 w = in.dim.w, h = in.dim.h;
  if (w == 0 || h == 0 || w > kMaxSide || h > kMaxSide || (nv12 && (w % 2 || h % 2))) {
    return HD_ERR_PARAM;
  }
  if (in.loff[0] < w || (nv12 && in.loff[1] < w) || in.loff[0] > 4 * kMaxSide ||
      in.loff[1] > 4 * kMaxSide || !FitsU32(in.phy_addr[0]) || !FitsU32(in.phy_addr[1])) {
    return HD_ERR_PARAM;
  }
  DeviceMemory& memory = DeviceMemory::Instance();
  const uint8_t* y = memory.View(static_cast<uint32_t>(in.phy_addr[0]),
                                 static_cast<uint32_t>(in.loff[0] * (h - 1) + w));
  const uint8_t* uv = nv12 ? memory.View(static_cast<uint32_t>(in.phy_addr[1]),
                                         static_cast<uint32_t>(in.loff[1] * (h / 2 - 1) + w))
                           : nullptr;
  if (y == nullptr || (nv12 && uv == nullptr)) return HD_ERR_PARAM;
  if (state_ != State::kIdle) return HD_ERR_NOBUF;  // the last bit stream is not released yet
  if (int r = EncodeLocked(in, y, uv)) return r;
  state_ = State::kEncoded;
  encoded_.notify_all();
  return HD_OK;
}

int JpegEncoder::Pull(HD_PATH_ID path, HD_VIDEOENC_BS* bs, INT32 wait_ms) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (!started_) {
    if (int r = StartLocked()) return r;
  }
  if (path != setting_.path) return HD_ERR_PATH;
  auto ready = [this] { return state_ == State::kEncoded; };
  if (wait_ms < 0) {
    encoded_.wait(lock, ready);
  } else if (!encoded_.wait_for(lock, std::chrono::milliseconds(wait_ms), ready)) {
    return HD_ERR_TIMEDOUT;
  }
  *bs = HD_VIDEOENC_BS();
  bs->sign = HD_VIDEOENC_BS_SIGN;
  bs->vcodec_format = HD_CODEC_TYPE_JPEG;
  bs->pack_num = 1;
  bs->timestamp = timestamp_;
  bs->video_pack[0].phy_addr = buffer_pa_ + pack_offset_;
  bs->video_pack[0].size = pack_size_;
  bs->ddr_id = DDR_ID0;
  bs->blk = HD_COMMON_MEM_VB_INVALID_BLK;
  state_ = State::kPulled;
  return HD_OK;
}

int JpegEncoder::Release(HD_PATH_ID path, const HD_VIDEOENC_BS& bs) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!started_) return HD_ERR_NOT_START;
  if (path != setting_.path) return HD_ERR_PATH;
  if (bs.sign != HD_VIDEOENC_BS_SIGN) return HD_ERR_SIGN;
  if (state_ != State::kPulled || bs.video_pack[0].phy_addr != buffer_pa_ + pack_offset_) {
    return HD_ERR_PARAM;
  }
  state_ = State::kIdle;
  return HD_OK;
}

int JpegEncoder::BufferInfo(HD_PATH_ID path, HD_VIDEOENC_BUFINFO* info) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!started_) {
    if (int r = StartLocked()) return r;
  }
  if (path != setting_.path) return HD_ERR_PATH;
  info->buf_info.phy_addr = buffer_pa_;
  info->buf_info.buf_size = setting_.buffer_size;
  return HD_OK;
}

}  // namespace

bool StopEncoder() {
  return JpegEncoder::Instance().Stop();
}

}  // namespace sim
}  // namespace mirvane

using mirvane::sim::FaultCode;
using mirvane::sim::JpegEncoder;

extern "C" {

HD_RESULT hd_videoenc_push_in_buf(HD_PATH_ID path_id, HD_VIDEO_FRAME* p_in_video_frame,
                                  HD_VIDEOENC_BS* p_user_out_video_bitstream, INT32 wait_ms) {
  (void)wait_ms;  // encoding is done within the call
  if (int code = FaultCode("hd_videoenc_push_in_buf")) return static_cast<HD_RESULT>(code);
  if (!mirvane::sim::CommonReady()) return HD_ERR_UNINIT;
  if (p_in_video_frame == nullptr) return HD_ERR_NULL_PTR;
  if (p_user_out_video_bitstream != nullptr) return HD_ERR_NOT_SUPPORT;  // no user buffers here
  return static_cast<HD_RESULT>(JpegEncoder::Instance().Push(path_id, *p_in_video_frame));
}

HD_RESULT hd_videoenc_pull_out_buf(HD_PATH_ID path_id, HD_VIDEOENC_BS* p_video_bitstream,
                                   INT32 wait_ms) {
  if (int code = FaultCode("hd_videoenc_pull_out_buf")) return static_cast<HD_RESULT>(code);
  if (!mirvane::sim::CommonReady()) return HD_ERR_UNINIT;
  if (p_video_bitstream == nullptr) return HD_ERR_NULL_PTR;
  return static_cast<HD_RESULT>(JpegEncoder::Instance().Pull(path_id, p_video_bitstream, wait_ms));
}

HD_RESULT hd_videoenc_release_out_buf(HD_PATH_ID path_id, HD_VIDEOENC_BS* p_video_bitstream) {
  if (int code = FaultCode("hd_videoenc_release_out_buf")) return static_cast<HD_RESULT>(code);
  if (!mirvane::sim::CommonReady()) return HD_ERR_UNINIT;
  if (p_video_bitstream == nullptr) return HD_ERR_NULL_PTR;
  return static_cast<HD_RESULT>(JpegEncoder::Instance().Release(path_id, *p_video_bitstream));
}

HD_RESULT hd_videoenc_get(HD_PATH_ID path_id, HD_VIDEOENC_PARAM_ID id, VOID* p_param) {
  if (int code = FaultCode("hd_videoenc_get")) return static_cast<HD_RESULT>(code);
  if (!mirvane::sim::CommonReady()) return HD_ERR_UNINIT;
  if (p_param == nullptr) return HD_ERR_NULL_PTR;
  if (id != HD_VIDEOENC_PARAM_BUFINFO) return HD_ERR_NOT_SUPPORT;
  return static_cast<HD_RESULT>(
      JpegEncoder::Instance().BufferInfo(path_id, static_cast<HD_VIDEOENC_BUFINFO*>(p_param)));
}

}  // extern "C"
