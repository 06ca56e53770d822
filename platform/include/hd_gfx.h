/*
 * The graphics engine: hardware scaling of pictures in device memory.
 */
#ifndef MIRVANE_PLATFORM_HD_GFX_H
#define MIRVANE_PLATFORM_HD_GFX_H

#include "hd_type.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum _HD_GFX_SCALE_QUALITY {
  HD_GFX_SCALE_QUALITY_NULL = 0,
  HD_GFX_SCALE_QUALITY_BICUBIC = 1,
  HD_GFX_SCALE_QUALITY_BILINEAR = 2,
  HD_GFX_SCALE_QUALITY_NEAREST = 3,
  HD_GFX_SCALE_QUALITY_INTEGRATION = 4,
  HD_GFX_SCALE_QUALITY_FORCE_4_BYTES = 0x7fffffff
} HD_GFX_SCALE_QUALITY;

/* A picture in device memory: up to three planes given by physical address and line offset. */
typedef struct _HD_GFX_IMG_BUF {
  HD_DIM dim;
  HD_VIDEO_PXLFMT format;
  UINT32 p_phy_addr[3];
  UINT32 lineoffset[3];
  UINT8 ddr_id;
  UINT32 palette[16];
} HD_GFX_IMG_BUF;

/* Scales src_region of src_img into dst_region of dst_img; pixels of dst_img outside
 * dst_region are left as they are. */
typedef struct _HD_GFX_SCALE {
  HD_GFX_IMG_BUF src_img;
  HD_GFX_IMG_BUF dst_img;
  HD_IRECT src_region;
  HD_IRECT dst_region;
  HD_GFX_SCALE_QUALITY quality;
} HD_GFX_SCALE;

HD_RESULT hd_gfx_init(VOID);
HD_RESULT hd_gfx_uninit(VOID);
HD_RESULT hd_gfx_scale(HD_GFX_SCALE* p_param);

#ifdef __cplusplus
}
#endif

#endif /* MIRVANE_PLATFORM_HD_GFX_H */
