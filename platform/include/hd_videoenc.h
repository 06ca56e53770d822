/*
 * Video encoders, as the daemon uses the JPEG one: a picture in device memory is pushed in, the
 * encoded bit stream is pulled out as packs inside the encoder's bit-stream buffer and released.
 */
#ifndef MIRVANE_PLATFORM_HD_VIDEOENC_H
#define MIRVANE_PLATFORM_HD_VIDEOENC_H

#include "hd_type.h"

#ifdef __cplusplus
extern "C" {
#endif

#define HD_VIDEOENC_BS_SIGN MAKEFOURCC('V', 'S', 'T', 'M')

typedef enum _HD_VIDEO_CODEC {
  HD_CODEC_TYPE_JPEG = 0,
  HD_CODEC_TYPE_H264 = 1,
  HD_CODEC_TYPE_H265 = 2,
  HD_CODEC_TYPE_RAW = 3,
  HD_VIDEO_CODEC_FORCE_4_BYTES = 0x7fffffff
} HD_VIDEO_CODEC;

/* One pack of a bit stream: its bytes lie at phy_addr inside the encoder's bit-stream buffer. */
typedef struct _HD_VIDEO_BS_DATA {
  UINT32 pack_type;
  UINT32 phy_addr;
  UINT32 size;
} HD_VIDEO_BS_DATA;

/* An encoded bit stream (144 bytes on 32-bit ARM). */
typedef struct _HD_VIDEOENC_BS {
  UINT32 sign; /* 'VSTM' */
  HD_METADATA* p_next;
  HD_VIDEO_CODEC vcodec_format;
  UINT32 pack_num;
  UINT64 timestamp;
  UINT32 frame_type;
  UINT32 svc_layer_type;
  HD_VIDEO_BS_DATA video_pack[4];
  UINT32 psnr_info[3]; /* quality, block and rate statistics of the encoder */
  UINT32 blk_info[5];
  UINT32 rate_info[4];
  UINT32 qp;
  HD_COMMON_MEM_DDR_ID ddr_id;
  HD_COMMON_MEM_VB_BLK blk;
  UINT32 motion_ratio;
} HD_VIDEOENC_BS;

typedef enum _HD_VIDEOENC_PARAM_ID {
  HD_VIDEOENC_PARAM_BUFINFO = 3, /* HD_VIDEOENC_BUFINFO: the bit-stream buffer */
  HD_VIDEOENC_PARAM_ID_FORCE_4_BYTES = 0x7fffffff
} HD_VIDEOENC_PARAM_ID;

/* The encoder's bit-stream buffer, to be mapped by the caller. */
typedef struct _HD_VIDEOENC_BUFINFO {
  HD_BUFINFO buf_info;
} HD_VIDEOENC_BUFINFO;

/* wait_ms: -1 waits without limit, 0 does not wait. user_out may be NULL. */
HD_RESULT hd_videoenc_push_in_buf(HD_PATH_ID path_id, HD_VIDEO_FRAME* p_in_video_frame,
                                  HD_VIDEOENC_BS* p_user_out_video_bitstream, INT32 wait_ms);
HD_RESULT hd_videoenc_pull_out_buf(HD_PATH_ID path_id, HD_VIDEOENC_BS* p_video_bitstream,
                                   INT32 wait_ms);
HD_RESULT hd_videoenc_release_out_buf(HD_PATH_ID path_id, HD_VIDEOENC_BS* p_video_bitstream);
HD_RESULT hd_videoenc_get(HD_PATH_ID path_id, HD_VIDEOENC_PARAM_ID id, VOID* p_param);

#ifdef __cplusplus
}
#endif

#endif /* MIRVANE_PLATFORM_HD_VIDEOENC_H */
