/* The platform's records as the camera's SDK lays them out on its 32-bit ARM: the size of each
 * record, the offset of every field, and the identifiers whose values travel in them. The daemon
 * hands these records to the platform by value, so a field that moves must stop the ARM build
 * here. On a 64-bit host the words are wider by design. Nothing runs: the checks hold when this
 * file compiles, as C11 and as C++ (platform_layout_cxx.cc). One check per record: RECORD names
 * it, AT places each of its fields. */
#include <assert.h>
#include <stddef.h>

#include "hdal.h"
#include "param_observer.h"
#include "pgo.h"
#include "vendor_ai.h"

#define SIZE(type, size) (sizeof(type) == (size))
#define AT(field, offset) (offsetof(RECORD, field) == (offset))

/* Every architecture. */
static_assert(sizeof(UINT32) == sizeof(void*), "a UINT32 address field holds a pointer");
static_assert(SIZE(HD_RESULT, 4) && SIZE(HD_VIDEO_PXLFMT, 4) && SIZE(HD_COMMON_MEM_DDR_ID, 4) &&
                  SIZE(HD_COMMON_MEM_POOL_TYPE, 4) && SIZE(HD_COMMON_MEM_MEM_TYPE, 4) &&
                  SIZE(HD_GFX_SCALE_QUALITY, 4) && SIZE(HD_VIDEOENC_PARAM_ID, 4) &&
                  SIZE(VENDOR_AI_NET_PARAM_ID, 4) && SIZE(VENDOR_AI_CFG_ID, 4),
              "enums are 4 bytes");
static_assert(SIZE(UINT64, 8) && SIZE(UINT16, 2) && SIZE(UINT8, 1) && SIZE(INT8, 1) &&
                  SIZE(CHAR, 1) && SIZE(UINT, 4) && SIZE(BOOL, 4) && SIZE(FLOAT, 4),
              "fixed-size words");
static_assert(HD_VIDEO_FRAME_SIGN == 0x4D524656u && HD_VIDEOENC_BS_SIGN == 0x4D545356u &&
                  VENDOR_AI_BUF_SIGN == 0x46554241u && HD_COMMON_MEM_VB_INVALID_BLK == -1 &&
                  HD_VIDEOENC_PARAM_BUFINFO == 3 && VENDOR_AI_NET_PARAM_CFG_MODEL == 1 &&
                  VENDOR_AI_NET_PARAM_CFG_JOB_OPT == 4 && VENDOR_AI_NET_PARAM_CFG_BUF_OPT == 5 &&
                  VENDOR_AI_NET_PARAM_CFG_WORKBUF == 41,
              "signs 'VFRM', 'VSTM', 'ABUF', the invalid block, parameter ids");
static_assert((UINT32)HD_VIDEO_PXLFMT_YUV420 == 0x520c0420u &&
                  (UINT32)HD_VIDEO_PXLFMT_AI_SINT16 == 0xa1100000u &&
                  ((UINT32)HD_VIDEO_PXLFMT_AI_SINT16 & HD_VIDEO_PXLFMT_FRAC_MASK) == 0,
              "pixel format words");
#define RECORD HD_GFX_SCALE /* two image records, two rectangles, the quality, in this order */
static_assert(AT(src_img, 0) && AT(dst_img, sizeof(HD_GFX_IMG_BUF)) &&
                  AT(src_region, 2 * sizeof(HD_GFX_IMG_BUF)) &&
                  AT(dst_region, 2 * sizeof(HD_GFX_IMG_BUF) + sizeof(HD_IRECT)) &&
                  AT(quality, 2 * sizeof(HD_GFX_IMG_BUF) + 2 * sizeof(HD_IRECT)),
              "HD_GFX_SCALE");
#undef RECORD

#if defined(__arm__)
/* The camera: 32-bit ARM (EABI: 8-byte aligned 64-bit words). */
static_assert(SIZE(UINT32, 4) && SIZE(INT32, 4) && SIZE(HD_PATH_ID, 4) &&
                  SIZE(HD_COMMON_MEM_VB_BLK, 4) && SIZE(HD_DIM, 8) && SIZE(HD_IRECT, 16),
              "words and small records");
static_assert(SIZE(HD_BUFINFO, 8) && offsetof(HD_BUFINFO, buf_size) == 4 &&
                  SIZE(HD_VIDEO_BS_DATA, 12) && offsetof(HD_VIDEO_BS_DATA, phy_addr) == 4 &&
                  offsetof(HD_VIDEO_BS_DATA, size) == 8 && SIZE(HD_VIDEOENC_BUFINFO, 8),
              "buffer and bit-stream pack records");
#define RECORD HD_VIDEO_FRAME
static_assert(SIZE(RECORD, 144) && AT(sign, 0) && AT(p_next, 4) && AT(ddr_id, 8) &&
                  AT(pxlfmt, 12) && AT(dim, 16) && AT(count, 24) && AT(timestamp, 32) &&
                  AT(pw, 40) && AT(ph, 56) && AT(loff, 72) && AT(phy_addr, 88) &&
                  AT(poc_info, 104) && AT(reserved, 108) && AT(blk, 136),
              "HD_VIDEO_FRAME");
#undef RECORD
#define RECORD HD_VIDEOENC_BS
static_assert(SIZE(RECORD, 144) && AT(sign, 0) && AT(p_next, 4) && AT(vcodec_format, 8) &&
                  AT(pack_num, 12) && AT(timestamp, 16) && AT(frame_type, 24) &&
                  AT(svc_layer_type, 28) && AT(video_pack, 32) && AT(qp, 128) && AT(ddr_id, 132) &&
                  AT(blk, 136) && AT(motion_ratio, 140),
              "HD_VIDEOENC_BS");
#undef RECORD
#define RECORD VENDOR_AI_BUF
static_assert(SIZE(RECORD, 84) && AT(sign, 0) && AT(chunk_size, 4) && AT(ddr_id, 8) && AT(pa, 12) &&
                  AT(va, 16) && AT(size, 20) && AT(fmt, 24) && AT(width, 28) && AT(height, 32) &&
                  AT(channel, 36) && AT(batch_num, 40) && AT(time, 44) && AT(reserve, 48) &&
                  AT(scale_ratio, 48) && AT(line_ofs, 52) && AT(channel_ofs, 56) &&
                  AT(batch_ofs, 60) && AT(time_ofs, 64) && AT(layout, 68) && AT(name, 76) &&
                  AT(op_name, 80),
              "VENDOR_AI_BUF");
#undef RECORD
#define RECORD HD_GFX_IMG_BUF
static_assert(AT(dim, 0) && AT(format, 8) && AT(p_phy_addr, 12) && AT(lineoffset, 24) &&
                  AT(ddr_id, 36),
              "HD_GFX_IMG_BUF");
#undef RECORD
#define RECORD HD_COMMON_MEM_POOL_INFO
static_assert(SIZE(RECORD, 24) && AT(ddr_id, 0) && AT(type, 4) && AT(blk_size, 8) &&
                  AT(blk_cnt, 12) && AT(start_addr, 16) && AT(shared_pool, 20) &&
                  SIZE(HD_COMMON_MEM_INIT_CONFIG, 128 * 24),
              "HD_COMMON_MEM_POOL_INFO");
#undef RECORD
#elif defined(__LP64__)
/* A 64-bit host: the words are 8 bytes wide, the buffer record grows to 160. */
static_assert(SIZE(UINT32, 8) && SIZE(VENDOR_AI_BUF, 160), "64-bit words");
#endif
