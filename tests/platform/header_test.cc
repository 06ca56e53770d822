// The platform headers are used from C++ as the camera's SDK headers are: inside extern "C" { }
// (they carry no guards there) and, harmlessly, outside it; C and C++ see the same records.
extern "C" {
#include "hdal.h"
#include "vendor_ai.h"
}
#include <gtest/gtest.h>

#include "hd_common.h"
#include "param_observer.h"
#include "pgo.h"

extern "C" int mirvane_platform_header_check_c(void);

namespace {

static_assert(static_cast<UINT32>(HD_VIDEO_PXLFMT_AI_SINT16) == 0xa1100000u, "");
static_assert((static_cast<UINT32>(HD_VIDEO_PXLFMT_AI_SINT16) & HD_VIDEO_PXLFMT_FRAC_MASK) == 0,
              "");
static_assert(static_cast<UINT32>(HD_VIDEO_PXLFMT_YUV420) == 0x520c0420u, "");

TEST(PlatformHeaders, CAndCxxAgreeAndPathIdsOutsideTheEnumCastWithoutLoss) {
  EXPECT_EQ(static_cast<size_t>(mirvane_platform_header_check_c()), sizeof(HD_GFX_SCALE));
  const UINT32 output0_of_layer132 = 0xA0000000u | (0u & 0xFFFu) << 16 | (132u & 0xFFFFu);
  const auto id = static_cast<VENDOR_AI_NET_PARAM_ID>(output0_of_layer132);
  EXPECT_EQ(static_cast<UINT32>(id), 0xa0000084u);
}

}  // namespace
