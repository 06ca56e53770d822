/*
 * Client side of the camera system daemon's command protocol over UNIX stream sockets.
 *
 * Every message starts with a 12-byte little-endian header (cmd_hdr). The daemon itself uses
 * sysapi_eventcb (one event payload per processed frame) and sysapi_wdg_update (the watchdog
 * heartbeat). Each command keeps its own process-wide socket, connected on first use and
 * reconnected after a failed send; functions return 0 or a positive count, or a small negative
 * code, and never raise a signal or throw.
 *
 * Threads: each command's socket is unguarded; call one command from one thread at a time.
 */
#ifndef MIRVANE_SUPPORT_SYSAPI_H
#define MIRVANE_SUPPORT_SYSAPI_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SYSTEMD_COMMAND_PACKET_SYNC_CODE 0xFFFFFFFFu
#define SYSAPI_SYSTEM_SOCKET "/tmp/ipc-system"

/* Command letters. */
#define SYSAPI_CMD_EVENT '1'
#define SYSAPI_CMD_WDG_ALIVE 'W'
#define SYSAPI_CMD_WDG_RELEASE 'w'

/* Body sizes. */
#define SYSAPI_EVENT_PAYLOAD_SIZE 520u
#define SYSAPI_WDG_BODY_SIZE 128u
#define SYSAPI_WDG_NAME_OFFSET 0u
#define SYSAPI_WDG_COMMAND_OFFSET 64u

typedef struct cmd_hdr {
  uint32_t sync; /* SYSTEMD_COMMAND_PACKET_SYNC_CODE */
  uint32_t cmd;  /* command letter */
  uint32_t len;  /* body bytes that follow */
} cmd_hdr;

/* Sends one 520-byte event payload under command '1'. Returns 520, or -1 (connect or header send
 * failed) or -2 (body send failed). */
int sysapi_eventcb(const char* path, const void* payload);

/* Sends the watchdog heartbeat: 'W' when alive is nonzero, else 'w', with a 128-byte body holding
 * name at offset 0 and restart_command at offset 64. Returns 0, or -1 (connect), -3 (header),
 * -4 (body). */
int sysapi_wdg_update(const char* path, const char* name, const char* restart_command, int alive);

#ifdef __cplusplus
}
#endif

#endif /* MIRVANE_SUPPORT_SYSAPI_H */
