/* The platform's records as the camera's SDK lays them out on its 32-bit ARM: sizes and offsets of
 * every field the daemon reads or writes, and the identifiers whose values travel in them. The
 * daemon copies these records by value and hands them to the platform, so a field that moves in
 * our headers (or a header that differs from the SDK's) must stop the ARM build here. On a 64-bit
 * host the words are wider by design; there only the host-side guarantees are checked.
 *
 * Nothing runs: the checks hold when this file compiles. */
#include <assert.h>
#include <stddef.h>

#include "hdal.h"
#include "vendor_ai.h"

#define CHECK_SIZE(type, size) static_assert(sizeof(type) == (size), "size of " #type)
#define CHECK_OFFSET(type, field, offset) \
  static_assert(offsetof(type, field) == (offset), "offset of " #type "." #field)

/* Every architecture. */
static_assert(sizeof(UINT32) == sizeof(void*), "a UINT32 address field holds a pointer");
CHECK_SIZE(HD_RESULT, 4);
CHECK_SIZE(HD_VIDEO_PXLFMT, 4);
CHECK_SIZE(HD_COMMON_MEM_DDR_ID, 4);
CHECK_SIZE(HD_COMMON_MEM_POOL_TYPE, 4);
CHECK_SIZE(HD_COMMON_MEM_MEM_TYPE, 4);
CHECK_SIZE(HD_GFX_SCALE_QUALITY, 4);
CHECK_SIZE(HD_VIDEOENC_PARAM_ID, 4);
CHECK_SIZE(VENDOR_AI_NET_PARAM_ID, 4);
CHECK_SIZE(VENDOR_AI_CFG_ID, 4);
CHECK_SIZE(UINT64, 8);
CHECK_SIZE(UINT16, 2);
CHECK_SIZE(UINT8, 1);
CHECK_SIZE(INT8, 1);
CHECK_SIZE(CHAR, 1);
CHECK_SIZE(UINT, 4);
CHECK_SIZE(BOOL, 4);
CHECK_SIZE(FLOAT, 4);
static_assert(HD_VIDEO_FRAME_SIGN == 0x4D524656u, "'VFRM'");
static_assert(HD_VIDEOENC_BS_SIGN == 0x4D545356u, "'VSTM'");
static_assert(VENDOR_AI_BUF_SIGN == 0x46554241u, "'ABUF'");
static_assert(HD_VIDEOENC_PARAM_BUFINFO == 3, "bit-stream buffer parameter");
static_assert(VENDOR_AI_NET_PARAM_CFG_MODEL == 1 && VENDOR_AI_NET_PARAM_CFG_JOB_OPT == 4 &&
                  VENDOR_AI_NET_PARAM_CFG_BUF_OPT == 5 && VENDOR_AI_NET_PARAM_CFG_WORKBUF == 41,
              "network parameter ids");
/* The scale request: two image records, then two rectangles and the quality, in this order. */
CHECK_OFFSET(HD_GFX_SCALE, src_img, 0);
CHECK_OFFSET(HD_GFX_SCALE, dst_img, sizeof(HD_GFX_IMG_BUF));
CHECK_OFFSET(HD_GFX_SCALE, src_region, 2 * sizeof(HD_GFX_IMG_BUF));
CHECK_OFFSET(HD_GFX_SCALE, dst_region, 2 * sizeof(HD_GFX_IMG_BUF) + sizeof(HD_IRECT));
CHECK_OFFSET(HD_GFX_SCALE, quality, 2 * sizeof(HD_GFX_IMG_BUF) + 2 * sizeof(HD_IRECT));

#if defined(__arm__)
/* The camera: 32-bit ARM (EABI: 8-byte aligned 64-bit words). */
CHECK_SIZE(UINT32, 4);
CHECK_SIZE(INT32, 4);
CHECK_SIZE(HD_PATH_ID, 4);
CHECK_SIZE(HD_COMMON_MEM_VB_BLK, 4);
CHECK_SIZE(HD_DIM, 8);
CHECK_SIZE(HD_IRECT, 16);
CHECK_SIZE(HD_BUFINFO, 8);
CHECK_OFFSET(HD_BUFINFO, buf_size, 4);

CHECK_SIZE(HD_VIDEO_FRAME, 144);
CHECK_OFFSET(HD_VIDEO_FRAME, sign, 0);
CHECK_OFFSET(HD_VIDEO_FRAME, p_next, 4);
CHECK_OFFSET(HD_VIDEO_FRAME, ddr_id, 8);
CHECK_OFFSET(HD_VIDEO_FRAME, pxlfmt, 12);
CHECK_OFFSET(HD_VIDEO_FRAME, dim, 16);
CHECK_OFFSET(HD_VIDEO_FRAME, count, 24);
CHECK_OFFSET(HD_VIDEO_FRAME, timestamp, 32);
CHECK_OFFSET(HD_VIDEO_FRAME, pw, 40);
CHECK_OFFSET(HD_VIDEO_FRAME, ph, 56);
CHECK_OFFSET(HD_VIDEO_FRAME, loff, 72);
CHECK_OFFSET(HD_VIDEO_FRAME, phy_addr, 88);
CHECK_OFFSET(HD_VIDEO_FRAME, poc_info, 104);
CHECK_OFFSET(HD_VIDEO_FRAME, reserved, 108);
CHECK_OFFSET(HD_VIDEO_FRAME, blk, 136);

CHECK_SIZE(HD_VIDEO_BS_DATA, 12);
CHECK_OFFSET(HD_VIDEO_BS_DATA, phy_addr, 4);
CHECK_OFFSET(HD_VIDEO_BS_DATA, size, 8);
CHECK_SIZE(HD_VIDEOENC_BS, 144);
CHECK_OFFSET(HD_VIDEOENC_BS, sign, 0);
CHECK_OFFSET(HD_VIDEOENC_BS, p_next, 4);
CHECK_OFFSET(HD_VIDEOENC_BS, vcodec_format, 8);
CHECK_OFFSET(HD_VIDEOENC_BS, pack_num, 12);
CHECK_OFFSET(HD_VIDEOENC_BS, timestamp, 16);
CHECK_OFFSET(HD_VIDEOENC_BS, frame_type, 24);
CHECK_OFFSET(HD_VIDEOENC_BS, svc_layer_type, 28);
CHECK_OFFSET(HD_VIDEOENC_BS, video_pack, 32);
CHECK_OFFSET(HD_VIDEOENC_BS, qp, 128);
CHECK_OFFSET(HD_VIDEOENC_BS, ddr_id, 132);
CHECK_OFFSET(HD_VIDEOENC_BS, blk, 136);
CHECK_OFFSET(HD_VIDEOENC_BS, motion_ratio, 140);
CHECK_SIZE(HD_VIDEOENC_BUFINFO, 8);

CHECK_SIZE(VENDOR_AI_BUF, 84);
CHECK_OFFSET(VENDOR_AI_BUF, sign, 0);
CHECK_OFFSET(VENDOR_AI_BUF, chunk_size, 4);
CHECK_OFFSET(VENDOR_AI_BUF, ddr_id, 8);
CHECK_OFFSET(VENDOR_AI_BUF, pa, 12);
CHECK_OFFSET(VENDOR_AI_BUF, va, 16);
CHECK_OFFSET(VENDOR_AI_BUF, size, 20);
CHECK_OFFSET(VENDOR_AI_BUF, fmt, 24);
CHECK_OFFSET(VENDOR_AI_BUF, width, 28);
CHECK_OFFSET(VENDOR_AI_BUF, height, 32);
CHECK_OFFSET(VENDOR_AI_BUF, channel, 36);
CHECK_OFFSET(VENDOR_AI_BUF, batch_num, 40);
CHECK_OFFSET(VENDOR_AI_BUF, time, 44);
CHECK_OFFSET(VENDOR_AI_BUF, reserve, 48);
CHECK_OFFSET(VENDOR_AI_BUF, scale_ratio, 48);
CHECK_OFFSET(VENDOR_AI_BUF, line_ofs, 52);
CHECK_OFFSET(VENDOR_AI_BUF, channel_ofs, 56);
CHECK_OFFSET(VENDOR_AI_BUF, batch_ofs, 60);
CHECK_OFFSET(VENDOR_AI_BUF, time_ofs, 64);
CHECK_OFFSET(VENDOR_AI_BUF, layout, 68);
CHECK_OFFSET(VENDOR_AI_BUF, name, 76);
CHECK_OFFSET(VENDOR_AI_BUF, op_name, 80);

CHECK_OFFSET(HD_GFX_IMG_BUF, dim, 0);
CHECK_OFFSET(HD_GFX_IMG_BUF, format, 8);
CHECK_OFFSET(HD_GFX_IMG_BUF, p_phy_addr, 12);
CHECK_OFFSET(HD_GFX_IMG_BUF, lineoffset, 24);
CHECK_OFFSET(HD_GFX_IMG_BUF, ddr_id, 36);

CHECK_SIZE(HD_COMMON_MEM_POOL_INFO, 24);
CHECK_OFFSET(HD_COMMON_MEM_POOL_INFO, type, 4);
CHECK_OFFSET(HD_COMMON_MEM_POOL_INFO, blk_size, 8);
CHECK_OFFSET(HD_COMMON_MEM_POOL_INFO, blk_cnt, 12);
CHECK_OFFSET(HD_COMMON_MEM_POOL_INFO, start_addr, 16);
CHECK_OFFSET(HD_COMMON_MEM_POOL_INFO, shared_pool, 20);
CHECK_SIZE(HD_COMMON_MEM_INIT_CONFIG, 128 * 24);
#elif defined(__LP64__)
/* A 64-bit host: the words are 8 bytes wide, the buffer record grows to 160. */
CHECK_SIZE(UINT32, 8);
CHECK_SIZE(VENDOR_AI_BUF, 160);
#endif
