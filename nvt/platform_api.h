// The platform's C API as the daemon includes it. The camera SDK's headers carry no C++ guards,
// so they are included inside one extern "C" block here and nowhere else.
#ifndef MIRVANE_NVT_PLATFORM_API_H
#define MIRVANE_NVT_PLATFORM_API_H

extern "C" {
#include "hd_common.h"
#include "hd_gfx.h"
#include "hd_type.h"
#include "hd_videoenc.h"
#include "hd_videoproc.h"
#include "vendor_ai.h"
#include "vendor_ai_cpu.h"
#include "vendor_ai_net.h"
}

#endif  // MIRVANE_NVT_PLATFORM_API_H
