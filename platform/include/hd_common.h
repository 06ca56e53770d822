/*
 * Media platform start-up and device memory: pools of blocks in the camera's DDR, their physical
 * addresses, mappings into the process and cache maintenance.
 */
#ifndef MIRVANE_PLATFORM_HD_COMMON_H
#define MIRVANE_PLATFORM_HD_COMMON_H

#include "hd_type.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum _HD_COMMON_MEM_POOL_TYPE {
  HD_COMMON_MEM_COMMON_POOL = 1,
  HD_COMMON_MEM_USER_POOL_BEGIN = 100,
  HD_COMMON_MEM_GFX_POOL = 104,
  HD_COMMON_MEM_CNN_POOL = 106,
  HD_COMMON_MEM_USER_DEFINIED_POOL = 113,
  HD_COMMON_MEM_POOL_TYPE_FORCE_4_BYTES = 0x7fffffff
} HD_COMMON_MEM_POOL_TYPE;

typedef enum _HD_COMMON_MEM_MEM_TYPE {
  HD_COMMON_MEM_MEM_TYPE_CACHE = 0,
  HD_COMMON_MEM_MEM_TYPE_NONCACHE = 1,
  HD_COMMON_MEM_MEM_TYPE_FORCE_4_BYTES = 0x7fffffff
} HD_COMMON_MEM_MEM_TYPE;

typedef struct _HD_COMMON_MEM_POOL_INFO {
  HD_COMMON_MEM_DDR_ID ddr_id;
  HD_COMMON_MEM_POOL_TYPE type;
  UINT32 blk_size;
  UINT32 blk_cnt;
  UINT32 start_addr;
  HD_COMMON_MEM_POOL_TYPE shared_pool[1];
} HD_COMMON_MEM_POOL_INFO;

/* Pool layout for hd_common_mem_init; entries with a zero type or count are unused. */
typedef struct _HD_COMMON_MEM_INIT_CONFIG {
  HD_COMMON_MEM_POOL_INFO pool_info[128];
} HD_COMMON_MEM_INIT_CONFIG;

HD_RESULT hd_common_init(UINT32 sys_config_type);
HD_RESULT hd_common_sysconfig(UINT32 type1, UINT32 type2, UINT32 type1_mask, UINT32 type2_mask);
HD_RESULT hd_common_uninit(void);

/* A null configuration keeps the pools the system has set up. */
HD_RESULT hd_common_mem_init(HD_COMMON_MEM_INIT_CONFIG* p_mem_config);
HD_RESULT hd_common_mem_uninit(void);

/* Returns HD_COMMON_MEM_VB_INVALID_BLK when no block of the pool is free or the request is bad. */
HD_COMMON_MEM_VB_BLK hd_common_mem_get_block(HD_COMMON_MEM_POOL_TYPE pool_type, UINT32 blk_size,
                                             HD_COMMON_MEM_DDR_ID ddr);
HD_RESULT hd_common_mem_release_block(HD_COMMON_MEM_VB_BLK blk);
/* Physical address of a taken block, 0 on failure. */
UINT32 hd_common_mem_blk2pa(HD_COMMON_MEM_VB_BLK blk);

/* Maps size bytes of device memory at phy_addr; NULL on failure. */
void* hd_common_mem_mmap(HD_COMMON_MEM_MEM_TYPE mem_type, UINT32 phy_addr, UINT32 size);
HD_RESULT hd_common_mem_munmap(void* virt_addr, unsigned int size);
HD_RESULT hd_common_mem_flush_cache(void* virt_addr, unsigned int size);

#ifdef __cplusplus
}
#endif

#endif /* MIRVANE_PLATFORM_HD_COMMON_H */
