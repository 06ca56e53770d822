/* The platform headers compile as C11 on their own, all together (their layouts are checked in
 * tests/layout). */
#include "hdal.h"
#include "param_observer.h"
#include "pgo.h"
#include "vendor_ai.h"

int mirvane_platform_header_check_c(void);
int mirvane_platform_header_check_c(void) {
  return (int)sizeof(HD_GFX_SCALE);
}
