/*
 * Base types of the camera's media platform API.
 *
 * The word types follow the platform's own definitions: UINT32 and INT32 are `long`, so they are
 * 4 bytes on the camera's 32-bit ARM and 8 bytes on a 64-bit host (where every UINT32 address
 * field can then carry a host pointer). Enumerations are forced to 4 bytes with a last member of
 * value 0x7fffffff.
 *
 * These headers may be included by C and by C++, inside or outside an extern "C" block.
 */
#ifndef MIRVANE_PLATFORM_HD_TYPE_H
#define MIRVANE_PLATFORM_HD_TYPE_H

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned long long UINT64;
typedef signed long long INT64;
typedef unsigned long UINT32;
typedef signed long INT32;
typedef unsigned short UINT16;
typedef signed short INT16;
typedef unsigned char UINT8;
typedef signed char INT8;
typedef unsigned int UINT;
typedef float FLOAT;
typedef double DOUBLE;
typedef char CHAR;
typedef unsigned int BOOL;
typedef void VOID;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

/* Four-character code: MAKEFOURCC('V','F','R','M') == 0x4D524656. */
#define MAKEFOURCC(a, b, c, d)                                                   \
  ((UINT32)(UINT8)(a) | ((UINT32)(UINT8)(b) << 8) | ((UINT32)(UINT8)(c) << 16) | \
   ((UINT32)(UINT8)(d) << 24))

typedef UINT32 HD_PATH_ID;

typedef struct _HD_DIM {
  UINT32 w;
  UINT32 h;
} HD_DIM;

typedef struct _HD_IRECT {
  INT32 x;
  INT32 y;
  INT32 w;
  INT32 h;
} HD_IRECT;

typedef struct _HD_BUFINFO {
  UINT32 phy_addr;
  UINT32 buf_size;
} HD_BUFINFO;

typedef enum _HD_RESULT {
  HD_OK = 0,
  HD_ERR_NOT_SUPPORT = -1,

  HD_ERR_NG = -10,
  HD_ERR_SYS = -11,
  HD_ERR_DRV = -12,
  HD_ERR_NOT_ALLOW = -13,
  HD_ERR_ABORT = -14,
  HD_ERR_TIMEDOUT = -15,
  HD_ERR_FAIL = -19,

  HD_ERR_INIT = -20,
  HD_ERR_UNINIT = -21,
  HD_ERR_STATE = -22,
  HD_ERR_TERM = -23,
  HD_ERR_NOT_OPEN = -24,
  HD_ERR_ALREADY_OPEN = -25,
  HD_ERR_NOT_START = -26,
  HD_ERR_ALREADY_START = -27,
  HD_ERR_NOT_BIND = -28,
  HD_ERR_ALREADY_BIND = -29,

  HD_ERR_UNIQUE = -30,
  HD_ERR_DEV = -31,
  HD_ERR_IO = -32,
  HD_ERR_PATH = -33,
  HD_ERR_PARAM = -34,
  HD_ERR_INV = -35,
  HD_ERR_LIMIT = -36,
  HD_ERR_NULL_PTR = -37,
  HD_ERR_NO_CONFIG = -38,
  HD_ERR_NO_DRV_CONFIG = -39,

  HD_ERR_RESOURCE = -40,
  HD_ERR_NOT_AVAIL = -41,
  HD_ERR_NOT_FOUND = -42,
  HD_ERR_EOL = -43,
  HD_ERR_IN_USE = -44,
  HD_ERR_NOT_USE = -45,
  HD_ERR_LOCKED = -46,
  HD_ERR_DELETED = -47,

  HD_ERR_HEAP = -50,
  HD_ERR_NOMEM = -51,
  HD_ERR_NOBUF = -52,
  HD_ERR_SIGN = -53,
  HD_ERR_BAD_DATA = -54,
  HD_ERR_OVERRUN = -55,
  HD_ERR_UNDERRUN = -56,

  HD_ERR_USER = -99,
  HD_RESULT_FORCE_4_BYTES = 0x7fffffff
} HD_RESULT;

/* Pixel formats (the platform's format words). */
typedef enum _HD_VIDEO_PXLFMT {
  HD_VIDEO_PXLFMT_NONE = 0,
  /* 8-bit luma only. */
  HD_VIDEO_PXLFMT_Y8 = 0x51080400,
  /* YUV 4:2:0 semi-planar: luma plane, then one plane of interleaved U,V at half size (NV12). */
  HD_VIDEO_PXLFMT_YUV420 = 0x520c0420,
  /* Fixed-point tensor formats of the network runtime: type 0x0f000000 (signed when odd),
   * bits 0x00ff0000, integer bits 0x0000ff00, fraction bits 0x000000ff. */
  HD_VIDEO_PXLFMT_AI_SINT8 = 0xa1080000,
  HD_VIDEO_PXLFMT_AI_UINT8 = 0xa2080000,
  HD_VIDEO_PXLFMT_AI_SINT16 = 0xa1100000,
  HD_VIDEO_PXLFMT_AI_UINT16 = 0xa2100000,
  HD_VIDEO_PXLFMT_AI_FLOAT32 = 0xa3200000,
  HD_VIDEO_PXLFMT_FORCE_4_BYTES = 0x7fffffff
} HD_VIDEO_PXLFMT;

#define HD_VIDEO_PXLFMT_TYPE_MASK 0x0f000000
#define HD_VIDEO_PXLFMT_BITS_MASK 0x00ff0000
#define HD_VIDEO_PXLFMT_INT_MASK 0x0000ff00
#define HD_VIDEO_PXLFMT_FRAC_MASK 0x000000ff

/* Memory controllers. */
typedef enum _HD_COMMON_MEM_DDR_ID {
  DDR_ID0 = 0,
  DDR_ID1 = 1,
  DDR_ID2 = 2,
  DDR_ID3 = 3,
  DDR_ID4 = 4,
  DDR_ID5 = 5,
  DDR_ID6 = 6,
  DDR_ID7 = 7,
  DDR_ID_FORCE_4_BYTES = 0x7fffffff
} HD_COMMON_MEM_DDR_ID;

/* A device-memory block; HD_COMMON_MEM_VB_INVALID_BLK when there is none. */
typedef INT32 HD_COMMON_MEM_VB_BLK;
#define HD_COMMON_MEM_VB_INVALID_BLK ((HD_COMMON_MEM_VB_BLK)-1)

/* Metadata chained to a frame or a bit-stream record (never used by the daemon). */
typedef struct _HD_METADATA HD_METADATA;

#define HD_VIDEO_FRAME_SIGN MAKEFOURCC('V', 'F', 'R', 'M')

/* One video frame in device memory (144 bytes on 32-bit ARM; offsets given for ARM). */
typedef struct _HD_VIDEO_FRAME {
  UINT32 sign;                 /* 0: 'VFRM' */
  HD_METADATA* p_next;         /* 4 */
  HD_COMMON_MEM_DDR_ID ddr_id; /* 8 */
  HD_VIDEO_PXLFMT pxlfmt;      /* 12 */
  HD_DIM dim;                  /* 16 */
  UINT64 count;                /* 24: frame count */
  UINT64 timestamp;            /* 32: microseconds */
  UINT32 pw[4];                /* 40: plane widths */
  UINT32 ph[4];                /* 56: plane heights */
  UINT32 loff[4];              /* 72: plane line offsets */
  UINT32 phy_addr[4];          /* 88: plane physical addresses */
  UINT32 poc_info;             /* 104 */
  UINT32 reserved[7];          /* 108 */
  HD_COMMON_MEM_VB_BLK blk;    /* 136 */
} HD_VIDEO_FRAME;

#ifdef __cplusplus
}
#endif

#endif /* MIRVANE_PLATFORM_HD_TYPE_H */
