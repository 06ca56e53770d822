/*
 * The neural-network runtime of the camera's SoC: global set-up here, networks in vendor_ai_net.h,
 * processor-side helpers in vendor_ai_cpu.h.
 *
 * Order: vendor_ai_cfg_set (engine, scheduler), vendor_ai_init, the networks' life cycles,
 * vendor_ai_uninit.
 */
#ifndef MIRVANE_PLATFORM_VENDOR_AI_H
#define MIRVANE_PLATFORM_VENDOR_AI_H

#include "hd_type.h"
#include "vendor_ai_cpu.h"
#include "vendor_ai_net.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum _VENDOR_AI_CFG_ID {
  VENDOR_AI_CFG_PLUGIN_ENGINE = 0, /* param: the engine, e.g. vendor_ai_cpu1_get_engine() */
  VENDOR_AI_CFG_PROC_SCHD = 1,     /* param: pointer to an unsigned scheduler mode */
  VENDOR_AI_CFG_ID_FORCE_4_BYTES = 0x7fffffff
} VENDOR_AI_CFG_ID;

HD_RESULT vendor_ai_cfg_set(VENDOR_AI_CFG_ID cfg_id, void* p_param);
HD_RESULT vendor_ai_init(VOID);
HD_RESULT vendor_ai_uninit(VOID);

#ifdef __cplusplus
}
#endif

#endif /* MIRVANE_PLATFORM_VENDOR_AI_H */
