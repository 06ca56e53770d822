/* The platform headers compile as C11 on their own, all together, and give the record layouts of
 * the camera's 32-bit ARM there. */
#include <assert.h>
#include <limits.h>
#include <stddef.h>

#include "hdal.h"
#include "param_observer.h"
#include "pgo.h"
#include "vendor_ai.h"

static_assert(sizeof(HD_RESULT) == 4, "enums are 4 bytes");
static_assert(sizeof(HD_VIDEO_PXLFMT) == 4, "enums are 4 bytes");
static_assert(sizeof(HD_COMMON_MEM_POOL_TYPE) == 4, "enums are 4 bytes");
static_assert(sizeof(UINT32) == sizeof(long), "UINT32 is a long");
static_assert(HD_COMMON_MEM_VB_INVALID_BLK == -1, "invalid block");
static_assert(HD_VIDEO_FRAME_SIGN == 0x4D524656, "VFRM");
static_assert(HD_VIDEOENC_BS_SIGN == 0x4D545356, "VSTM");
static_assert(VENDOR_AI_BUF_SIGN == 0x46554241, "ABUF");

#if ULONG_MAX == 0xffffffffUL
static_assert(sizeof(HD_VIDEO_FRAME) == 144, "frame record");
static_assert(offsetof(HD_VIDEO_FRAME, count) == 24, "frame count");
static_assert(offsetof(HD_VIDEO_FRAME, timestamp) == 32, "frame timestamp");
static_assert(offsetof(HD_VIDEO_FRAME, pw) == 40, "plane widths");
static_assert(offsetof(HD_VIDEO_FRAME, ph) == 56, "plane heights");
static_assert(offsetof(HD_VIDEO_FRAME, loff) == 72, "line offsets");
static_assert(offsetof(HD_VIDEO_FRAME, phy_addr) == 88, "plane addresses");
static_assert(offsetof(HD_VIDEO_FRAME, poc_info) == 104, "poc");
static_assert(offsetof(HD_VIDEO_FRAME, blk) == 136, "block");
static_assert(sizeof(HD_VIDEOENC_BS) == 144, "bit-stream record");
static_assert(offsetof(HD_VIDEOENC_BS, timestamp) == 16, "bit-stream timestamp");
static_assert(offsetof(HD_VIDEOENC_BS, video_pack) == 32, "packs");
static_assert(offsetof(HD_VIDEOENC_BS, qp) == 128, "qp");
static_assert(offsetof(HD_VIDEOENC_BS, motion_ratio) == 140, "motion ratio");
static_assert(sizeof(VENDOR_AI_BUF) == 84, "buffer record");
static_assert(offsetof(VENDOR_AI_BUF, scale_ratio) == 48, "scale ratio");
static_assert(offsetof(VENDOR_AI_BUF, layout) == 68, "layout");
static_assert(offsetof(VENDOR_AI_BUF, op_name) == 80, "op name");
#elif ULONG_MAX == 0xffffffffffffffffUL
static_assert(sizeof(VENDOR_AI_BUF) == 160, "buffer record on a 64-bit host");
#endif

int mirvane_platform_header_check_c(void);
int mirvane_platform_header_check_c(void) { return (int)sizeof(HD_GFX_SCALE); }
