/* The system daemon's message header as it goes on the socket: three little-endian 32-bit words,
 * 12 bytes with no padding, the same on the camera's 32-bit ARM as on a 64-bit host. Nothing runs:
 * the checks hold when this file compiles. */
#include <assert.h>
#include <stddef.h>

#include "sysapi.h"

static_assert(sizeof(cmd_hdr) == 12, "cmd_hdr is 12 bytes");
static_assert(offsetof(cmd_hdr, sync) == 0, "cmd_hdr.sync at 0");
static_assert(offsetof(cmd_hdr, cmd) == 4, "cmd_hdr.cmd at 4");
static_assert(offsetof(cmd_hdr, len) == 8, "cmd_hdr.len at 8");
static_assert(SYSAPI_EVENT_PAYLOAD_SIZE == 520, "event payload size");
