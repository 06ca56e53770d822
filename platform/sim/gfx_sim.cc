// hd_gfx_scale of the host simulation: the scaler reads and writes pictures in device memory by
// physical address and scales with libyuv. It checks the request as the hardware does: formats
// (NV12 4:2:0 or 8-bit luma, the same on both sides), dimensions, line offsets, planes inside
// device memory, rectangles inside both pictures, and even destination offsets for 4:2:0. A source
// rectangle at an odd offset is taken from the chroma sample pair that holds it (or refused, with
// the setting gfx.odd_source_offsets = "reject").
#include <libyuv/rotate.h>
#include <libyuv/scale.h>
#include <libyuv/scale_uv.h>

#include <vector>

#include "device_memory.h"
#include "fault_injector.h"
#include "hd_gfx.h"
#include "platform_state.h"
#include "sim_settings.h"
#include "word_range.h"

namespace mirvane {
namespace sim {
namespace {

constexpr UINT32 kMaxSide = 8192;

// The planes of one picture as the simulation sees them.
struct Planes {
  uint8_t* y = nullptr;
  uint8_t* uv = nullptr;
  int y_stride = 0;
  int uv_stride = 0;
};

bool Nv12Format(HD_VIDEO_PXLFMT f) {
  return f == HD_VIDEO_PXLFMT_YUV420;
}

int CheckImage(const HD_GFX_IMG_BUF& img, Planes* planes) {
  const UINT32 w = img.dim.w, h = img.dim.h;
  if (w == 0 || h == 0 || w > kMaxSide || h > kMaxSide) return HD_ERR_PARAM;
  const bool nv12 = Nv12Format(img.format);
  if (nv12 && (w % 2 != 0 || h % 2 != 0)) return HD_ERR_PARAM;
  if (img.lineoffset[0] < w || img.lineoffset[0] > 4 * kMaxSide) return HD_ERR_PARAM;
  const uint32_t luma_bytes = static_cast<uint32_t>(img.lineoffset[0] * (h - 1) + w);
  planes->y = DeviceMemory::Instance().View(static_cast<uint32_t>(img.p_phy_addr[0]), luma_bytes);
  planes->y_stride = static_cast<int>(img.lineoffset[0]);
  if (planes->y == nullptr || !FitsU32(img.p_phy_addr[0])) return HD_ERR_PARAM;
  if (!nv12) return HD_OK;
  if (img.lineoffset[1] < w || img.lineoffset[1] > 4 * kMaxSide) return HD_ERR_PARAM;
  const uint32_t chroma_bytes = static_cast<uint32_t>(img.lineoffset[1] * (h / 2 - 1) + w);
  planes->uv =
      DeviceMemory::Instance().View(static_cast<uint32_t>(img.p_phy_addr[1]), chroma_bytes);
  planes->uv_stride = static_cast<int>(img.lineoffset[1]);
  if (planes->uv == nullptr || !FitsU32(img.p_phy_addr[1])) return HD_ERR_PARAM;
  return HD_OK;
}

bool Inside(const HD_IRECT& r, const HD_DIM& dim) {
  return r.x >= 0 && r.y >= 0 && r.w > 0 && r.h > 0 &&
         static_cast<UINT64>(r.x) + static_cast<UINT64>(r.w) <= dim.w &&
         static_cast<UINT64>(r.y) + static_cast<UINT64>(r.h) <= dim.h;
}

// The chroma samples covering luma columns or rows [start, start + size).
void ChromaSpan(long start, long size, int* c_start, int* c_size) {
  *c_start = static_cast<int>(start / 2);
  *c_size = static_cast<int>((start + size + 1) / 2 - start / 2);
}

// Bilinear luma scaling with the same bytes on every host architecture. libyuv's horizontal filter
// rounds differently on ARM and on x86 (each build matches its own vector code); its vertical
// filter does not. So both passes are vertical: the rows are scaled, the plane is transposed, the
// former columns are scaled as rows, and the result is transposed back.
//
// The intermediate planes are kept per thread and only grow: a fresh megabyte every frame cost
// hundreds of page faults per frame.
void ScaleLumaBilinear(const uint8_t* src, int src_stride, int sw, int sh, uint8_t* dst,
                       int dst_stride, int dw, int dh) {
  thread_local std::vector<uint8_t> rows, turned, scaled;
  rows.resize(static_cast<size_t>(sw) * dh);  // sw wide, dh high
  libyuv::ScalePlane(src, src_stride, sw, sh, rows.data(), sw, sw, dh, libyuv::kFilterBilinear);
  turned.resize(rows.size());  // dh wide, sw high
  libyuv::TransposePlane(rows.data(), sw, turned.data(), dh, sw, dh);
  scaled.resize(static_cast<size_t>(dh) * dw);  // dh wide, dw high
  libyuv::ScalePlane(turned.data(), dh, dh, sw, scaled.data(), dh, dh, dw, libyuv::kFilterBilinear);
  libyuv::TransposePlane(scaled.data(), dh, dst, dst_stride, dh, dw);
}

libyuv::FilterMode Filter(HD_GFX_SCALE_QUALITY quality) {
  switch (quality) {
    case HD_GFX_SCALE_QUALITY_NEAREST:
      return libyuv::kFilterNone;
    case HD_GFX_SCALE_QUALITY_BICUBIC:
    case HD_GFX_SCALE_QUALITY_INTEGRATION:
      return libyuv::kFilterBox;
    default:
      return libyuv::kFilterBilinear;
  }
}

}  // namespace
}  // namespace sim
}  // namespace mirvane

extern "C" HD_RESULT hd_gfx_scale(HD_GFX_SCALE* p_param) {
  using namespace mirvane::sim;
  if (int code = FaultCode("hd_gfx_scale")) return static_cast<HD_RESULT>(code);
  if (!GfxReady()) return HD_ERR_UNINIT;
  if (p_param == nullptr) return HD_ERR_NULL_PTR;
  const HD_GFX_SCALE& p = *p_param;
  const HD_VIDEO_PXLFMT format = p.src_img.format;
  if (format != p.dst_img.format ||
      (format != HD_VIDEO_PXLFMT_YUV420 && format != HD_VIDEO_PXLFMT_Y8)) {
    return HD_ERR_NOT_SUPPORT;
  }
  if (static_cast<unsigned>(p.quality) > HD_GFX_SCALE_QUALITY_INTEGRATION) return HD_ERR_PARAM;
  Planes src, dst;
  if (int r = CheckImage(p.src_img, &src)) return static_cast<HD_RESULT>(r);
  if (int r = CheckImage(p.dst_img, &dst)) return static_cast<HD_RESULT>(r);
  const HD_IRECT& sr = p.src_region;
  const HD_IRECT& dr = p.dst_region;
  if (!Inside(sr, p.src_img.dim) || !Inside(dr, p.dst_img.dim)) return HD_ERR_PARAM;
  const bool nv12 = format == HD_VIDEO_PXLFMT_YUV420;
  if (nv12 && (dr.x % 2 != 0 || dr.y % 2 != 0)) return HD_ERR_PARAM;
  if (nv12 && (sr.x % 2 != 0 || sr.y % 2 != 0) && CurrentSettings()->reject_odd_source_offsets) {
    return HD_ERR_PARAM;
  }
  const libyuv::FilterMode filter = Filter(p.quality);
  const uint8_t* src_y = src.y + sr.y * src.y_stride + sr.x;
  uint8_t* dst_y = dst.y + dr.y * dst.y_stride + dr.x;
  if (filter == libyuv::kFilterBilinear) {
    ScaleLumaBilinear(src_y, src.y_stride, static_cast<int>(sr.w), static_cast<int>(sr.h), dst_y,
                      dst.y_stride, static_cast<int>(dr.w), static_cast<int>(dr.h));
  } else {
    libyuv::ScalePlane(src_y, src.y_stride, static_cast<int>(sr.w), static_cast<int>(sr.h), dst_y,
                       dst.y_stride, static_cast<int>(dr.w), static_cast<int>(dr.h), filter);
  }
  if (!nv12) return HD_OK;
  int sx, sw, sy, sh, dx, dw, dy, dh;
  ChromaSpan(sr.x, sr.w, &sx, &sw);
  ChromaSpan(sr.y, sr.h, &sy, &sh);
  ChromaSpan(dr.x, dr.w, &dx, &dw);
  ChromaSpan(dr.y, dr.h, &dy, &dh);
  const int r = libyuv::UVScale(src.uv + sy * src.uv_stride + 2 * sx, src.uv_stride, sw, sh,
                                dst.uv + dy * dst.uv_stride + 2 * dx, dst.uv_stride, dw, dh,
                                filter == libyuv::kFilterBox ? libyuv::kFilterBilinear : filter);
  return r == 0 ? HD_OK : HD_ERR_PARAM;
}
