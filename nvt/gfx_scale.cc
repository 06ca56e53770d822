#include "nvt/gfx_scale.h"

#include <cstring>

namespace mirvane {

HD_GFX_SCALE GfxScaleRequest(const VENDOR_AI_BUF& frame, uint32_t frame_chroma_pa,
                             HD_VIDEO_PXLFMT dst_format, uint32_t dst_pa, uint32_t dst_width,
                             uint32_t dst_height, const HD_IRECT& src_region,
                             const HD_IRECT& dst_region) {
  HD_GFX_SCALE request;
  std::memset(&request, 0, sizeof(request));
  request.src_img.dim.w = frame.width;
  request.src_img.dim.h = frame.height;
  request.src_img.format = frame.fmt;
  request.src_img.p_phy_addr[0] = frame.pa;
  request.src_img.p_phy_addr[1] = frame_chroma_pa;
  request.src_img.lineoffset[0] = frame.line_ofs;
  request.src_img.lineoffset[1] = frame.line_ofs;
  request.dst_img.dim.w = dst_width;
  request.dst_img.dim.h = dst_height;
  request.dst_img.format = dst_format;
  request.dst_img.p_phy_addr[0] = dst_pa;
  request.dst_img.p_phy_addr[1] = dst_pa + dst_width * dst_height;
  request.dst_img.lineoffset[0] = dst_width;
  request.dst_img.lineoffset[1] = dst_width;
  request.src_region = src_region;
  request.dst_region = dst_region;
  return request;
}

}  // namespace mirvane
