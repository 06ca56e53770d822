/*
 * Video-processing outputs: frames of the camera's image pipeline, pulled and released by the
 * consumer. A consumer must release every frame it pulls; the output has only a few buffers.
 */
#ifndef MIRVANE_PLATFORM_HD_VIDEOPROC_H
#define MIRVANE_PLATFORM_HD_VIDEOPROC_H

#include "hd_type.h"

#ifdef __cplusplus
extern "C" {
#endif

/* wait_ms: -1 waits without limit, 0 does not wait. */
HD_RESULT hd_videoproc_pull_out_buf(HD_PATH_ID path_id, HD_VIDEO_FRAME* p_video_frame,
                                    INT32 wait_ms);
HD_RESULT hd_videoproc_release_out_buf(HD_PATH_ID path_id, HD_VIDEO_FRAME* p_video_frame);

#ifdef __cplusplus
}
#endif

#endif /* MIRVANE_PLATFORM_HD_VIDEOPROC_H */
