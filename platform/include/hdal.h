/*
 * The whole media platform API in one include.
 */
#ifndef MIRVANE_PLATFORM_HDAL_H
#define MIRVANE_PLATFORM_HDAL_H

#include "hd_type.h"
#include "hd_common.h"
#include "hd_gfx.h"
#include "hd_videoenc.h"
#include "hd_videoproc.h"

#endif /* MIRVANE_PLATFORM_HDAL_H */
