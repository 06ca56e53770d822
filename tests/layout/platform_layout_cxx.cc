// The platform's record checks as C++ sees the records: the daemon is C++ and includes the platform
// headers inside extern "C" { }, as it does the camera's SDK headers, which carry no guards there.
extern "C" {
#include "platform_layout.c"
}

static_assert(static_cast<UINT32>(static_cast<VENDOR_AI_NET_PARAM_ID>(0xa0000084u)) == 0xa0000084u,
              "an output's path id passes through the parameter enum");
