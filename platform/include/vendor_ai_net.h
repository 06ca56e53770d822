/*
 * The neural-network runtime: networks ("processes") given a model and a work buffer in device
 * memory, their inputs and outputs addressed by path ids.
 *
 * Life cycle of one network: set its options (parameters 4 and 5) and model (parameter 1), open,
 * hand over the work buffer (parameter 41, asked for with vendor_ai_net_get first), start, then
 * set the inputs, proc and get the outputs as often as needed; stop, close. Calls out of order
 * fail with HD_ERR_STATE, HD_ERR_NOT_OPEN or HD_ERR_NOT_START.
 *
 * Input and output path ids, passed as param_id, lie outside the named parameter ids:
 *   input  0x90000000 | (in  & 0xFFF) << 16 | (layer & 0xFFFF)
 *   output 0xA0000000 | (out & 0xFFF) << 16 | (layer & 0xFFFF)
 * (0xa0000084 is output 0 of layer 132). Cast them to VENDOR_AI_NET_PARAM_ID at the call.
 */
#ifndef MIRVANE_PLATFORM_VENDOR_AI_NET_H
#define MIRVANE_PLATFORM_VENDOR_AI_NET_H

#include "hd_type.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VENDOR_AI_BUF_SIGN MAKEFOURCC('A', 'B', 'U', 'F')

/* A tensor or picture buffer in device memory (84 bytes on 32-bit ARM, 160 on x86-64). */
typedef struct _VENDOR_AI_BUF {
  UINT32 sign;                 /* 0: 'ABUF' */
  UINT32 chunk_size;           /* 4: sizeof(VENDOR_AI_BUF) - 8 */
  HD_COMMON_MEM_DDR_ID ddr_id; /* 8 */
  UINT32 pa;                   /* 12 */
  UINT32 va;                   /* 16 */
  UINT32 size;                 /* 20 */
  HD_VIDEO_PXLFMT fmt;         /* 24 */
  UINT32 width;                /* 28 */
  UINT32 height;               /* 32 */
  UINT32 channel;              /* 36 */
  UINT32 batch_num;            /* 40 */
  UINT32 time;                 /* 44 */
  union {                      /* 48 */
    UINT32 reserve;
    FLOAT scale_ratio;
  };
  UINT32 line_ofs;    /* 52 */
  UINT32 channel_ofs; /* 56 */
  UINT32 batch_ofs;   /* 60 */
  UINT32 time_ofs;    /* 64 */
  CHAR layout[8];     /* 68 */
  CHAR* name;         /* 76 */
  CHAR* op_name;      /* 80 */
} VENDOR_AI_BUF;

typedef enum _VENDOR_AI_NET_PARAM_ID {
  VENDOR_AI_NET_PARAM_STATE = 0,
  VENDOR_AI_NET_PARAM_CFG_MODEL = 1,   /* VENDOR_AI_NET_CFG_MODEL */
  VENDOR_AI_NET_PARAM_CFG_JOB_OPT = 4, /* VENDOR_AI_NET_CFG_JOB_OPT */
  VENDOR_AI_NET_PARAM_CFG_BUF_OPT = 5, /* VENDOR_AI_NET_CFG_BUF_OPT */
  VENDOR_AI_NET_PARAM_INFO = 20,
  VENDOR_AI_NET_PARAM_IN_PATH_LIST = 21,
  VENDOR_AI_NET_PARAM_OUT_PATH_LIST = 22,
  VENDOR_AI_NET_PARAM_CFG_WORKBUF = 41, /* VENDOR_AI_NET_CFG_WORKBUF */
  VENDOR_AI_NET_PARAM_ID_FORCE_4_BYTES = 0x7fffffff
} VENDOR_AI_NET_PARAM_ID;

/* The model file loaded into device memory. */
typedef struct _VENDOR_AI_NET_CFG_MODEL {
  UINT32 pa;
  UINT32 va;
  UINT32 size;
} VENDOR_AI_NET_CFG_MODEL;

typedef enum _VENDOR_AI_NET_JOB_OPT {
  VENDOR_AI_NET_JOB_OPT_LINEAR_O1 = 1,
  VENDOR_AI_NET_JOB_OPT_FORCE_4_BYTES = 0x7fffffff
} VENDOR_AI_NET_JOB_OPT;

typedef struct _VENDOR_AI_NET_CFG_JOB_OPT {
  VENDOR_AI_NET_JOB_OPT method;
  INT32 wait_ms;
  UINT32 schd_parm; /* 0xFF: all cores */
} VENDOR_AI_NET_CFG_JOB_OPT;

typedef enum _VENDOR_AI_NET_BUF_OPT {
  VENDOR_AI_NET_BUF_OPT_NONE = -1,
  VENDOR_AI_NET_BUF_OPT_FORCE_4_BYTES = 0x7fffffff
} VENDOR_AI_NET_BUF_OPT;

typedef struct _VENDOR_AI_NET_CFG_BUF_OPT {
  VENDOR_AI_NET_BUF_OPT method;
  HD_COMMON_MEM_DDR_ID ddr_id;
} VENDOR_AI_NET_CFG_BUF_OPT;

/* The network's work buffer: its size is asked for with vendor_ai_net_get, the buffer handed
 * over with vendor_ai_net_set. */
typedef struct _VENDOR_AI_NET_CFG_WORKBUF {
  UINT32 pa;
  UINT32 va;
  UINT32 size;
} VENDOR_AI_NET_CFG_WORKBUF;

HD_RESULT vendor_ai_net_set(UINT32 proc_id, VENDOR_AI_NET_PARAM_ID param_id, void* p_param);
HD_RESULT vendor_ai_net_get(UINT32 proc_id, VENDOR_AI_NET_PARAM_ID param_id, void* p_param);
HD_RESULT vendor_ai_net_open(UINT32 proc_id);
HD_RESULT vendor_ai_net_close(UINT32 proc_id);
HD_RESULT vendor_ai_net_start(UINT32 proc_id);
HD_RESULT vendor_ai_net_stop(UINT32 proc_id);
HD_RESULT vendor_ai_net_proc(UINT32 proc_id);

#ifdef __cplusplus
}
#endif

#endif /* MIRVANE_PLATFORM_VENDOR_AI_NET_H */
