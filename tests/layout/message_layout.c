/* The system daemon's message header as it goes on the socket: three 32-bit words, 12 bytes with
 * no padding, on the camera's 32-bit ARM as on a 64-bit host. Holds when this file compiles. */
#include <assert.h>
#include <stddef.h>

#include "sysapi.h"

static_assert(sizeof(cmd_hdr) == 12 && offsetof(cmd_hdr, sync) == 0 &&
                  offsetof(cmd_hdr, cmd) == 4 && offsetof(cmd_hdr, len) == 8,
              "cmd_hdr layout");
static_assert(SYSAPI_EVENT_PAYLOAD_SIZE == 520, "event payload size");
