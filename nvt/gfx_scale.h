// The scaler's request record (HD_GFX_SCALE) for taking a rectangle of a camera frame into a
// picture of the daemon's own in device memory: the network's input and the snapshot crop.
//
// Pure code; any thread.
#ifndef MIRVANE_NVT_GFX_SCALE_H
#define MIRVANE_NVT_GFX_SCALE_H

#include <cstdint>

#include "nvt/platform_api.h"

namespace mirvane {

// A request that scales src_region of frame into dst_region of a picture of dst_width x dst_height
// in format dst_format at physical address dst_pa: lines dst_width bytes long, its chroma plane
// right after the luma plane. The frame's chroma plane address is the caller's: the network's
// input and the snapshot find it each their own way. Quality is the scaler's default (0); every
// field not named here is 0.
HD_GFX_SCALE GfxScaleRequest(const VENDOR_AI_BUF& frame, uint32_t frame_chroma_pa,
                             HD_VIDEO_PXLFMT dst_format, uint32_t dst_pa, uint32_t dst_width,
                             uint32_t dst_height, const HD_IRECT& src_region,
                             const HD_IRECT& dst_region);

}  // namespace mirvane

#endif  // MIRVANE_NVT_GFX_SCALE_H
