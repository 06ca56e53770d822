/*
 * The network runtime's processor-side helpers: the CPU engine plug-in and the conversion of
 * fixed-point outputs to floats.
 */
#ifndef MIRVANE_PLATFORM_VENDOR_AI_CPU_H
#define MIRVANE_PLATFORM_VENDOR_AI_CPU_H

#include "hd_type.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The engine to plug in with vendor_ai_cfg_set(VENDOR_AI_CFG_PLUGIN_ENGINE, ...). */
void* vendor_ai_cpu1_get_engine(void);

/* Converts count fixed-point values of format in_fmt to floats:
 * out = in * 2^-fraction_bits * out_scale_ratio. Note the order: the scale comes before the count.
 * An unsupported format is reported but still answers HD_OK. */
HD_RESULT vendor_ai_cpu_util_fixed2float(VOID* p_in, HD_VIDEO_PXLFMT in_fmt, FLOAT* p_out,
                                         FLOAT out_scale_ratio, INT32 count);

#ifdef __cplusplus
}
#endif

#endif /* MIRVANE_PLATFORM_VENDOR_AI_CPU_H */
