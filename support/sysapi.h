/*
 * Client side of the camera system daemon's command protocol over UNIX stream sockets.
 *
 * Every message starts with a 12-byte little-endian header (cmd_hdr) followed by `len` body bytes.
 * The daemon itself uses sysapi_eventcb (one event payload per processed frame) and
 * sysapi_wdg_update (the watchdog heartbeat); the rest of the system daemon's command set is here
 * for other callers.
 *
 * Connections: most commands keep one process-wide socket each, connected on first use and closed
 * and reset after a failed send, so that the next call reconnects. The request/reply commands (the
 * storage family, sysapi_restore_conf) and sysapi_setime open a fresh socket per call and always
 * close it.
 *
 * Return values: 0 or a positive count on success, else a small negative code:
 *   -1 connect of a kept socket failed (or, for sysapi_eventcb, the header send failed)
 *   -2 connect of a per-call socket failed (for sysapi_eventcb: the body send failed)
 *   -3 header send failed            -4 body send failed
 *   -5 reply length is not the one expected (the content is not read)
 *   -6 reply content short           -7 bad argument (null pointer, oversized text, small buffer)
 *   -8 reply header has a wrong sync word or command letter
 * Nothing here throws, and a peer that vanished never raises SIGPIPE in the caller.
 *
 * Threads: the kept sockets are unguarded globals; call each command from one thread at a time.
 */
#ifndef MIRVANE_SUPPORT_SYSAPI_H
#define MIRVANE_SUPPORT_SYSAPI_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SYSTEMD_COMMAND_PACKET_SYNC_CODE 0xFFFFFFFFu
#define SYSAPI_SYSTEM_SOCKET "/tmp/ipc-system"
#define SYSAPI_SNAPSHOT_SOCKET "/tmp/ipc-snapshot"

/* Command letters. */
#define SYSAPI_CMD_EVENT '1'
#define SYSAPI_CMD_WDG_ALIVE 'W'
#define SYSAPI_CMD_WDG_RELEASE 'w'
#define SYSAPI_CMD_EVENT_REG 'E'
#define SYSAPI_CMD_BUZZER 'B'
#define SYSAPI_CMD_REBOOT 'Q'
#define SYSAPI_CMD_BACKUP_CONF 'b'
#define SYSAPI_CMD_RESET_CONF 'C'
#define SYSAPI_CMD_RESTORE_CONF 'K'
#define SYSAPI_CMD_RESTART_APP 'A'
#define SYSAPI_CMD_SETIME 'T'
#define SYSAPI_CMD_STORAGE 'Y'
#define SYSAPI_CMD_LED 'L'
#define SYSAPI_CMD_DOUT 'O'
#define SYSAPI_CMD_IRLED 'D'
#define SYSAPI_CMD_ICR 'F'
#define SYSAPI_CMD_LIGHTSENSOR 'X'
#define SYSAPI_CMD_RESETBUTTON 'Z'
#define SYSAPI_CMD_RESET_ENV_SENSOR 'V'
#define SYSAPI_CMD_UPNP_UPDATE 'P'
#define SYSAPI_CMD_UPNP_CUSTOM_INFO 'I'
#define SYSAPI_CMD_RUN_APP 'N'
#define SYSAPI_CMD_SNAPSHOT 'S'

/* Body sizes. */
#define SYSAPI_EVENT_PAYLOAD_SIZE 520u
#define SYSAPI_WDG_BODY_SIZE 128u
#define SYSAPI_WDG_NAME_OFFSET 0u
#define SYSAPI_WDG_COMMAND_OFFSET 64u
#define SYSAPI_EVENT_REG_BODY_SIZE 528u
#define SYSAPI_BUZZER_BODY_SIZE 16u
#define SYSAPI_TEXT_BODY_SIZE 196u /* reboot, reset_conf (fixed part), setime */
#define SYSAPI_RESTART_APP_BODY_SIZE 68u
#define SYSAPI_STORAGE_BODY_SIZE 20u
#define SYSAPI_LED_BODY_SIZE 12u
#define SYSAPI_WORD_BODY_SIZE 4u
#define SYSAPI_UPNP_CUSTOM_INFO_BODY_SIZE 4096u
#define SYSAPI_RUN_APP_BODY_SIZE 256u
/* Largest body any command carries; receivers refuse anything longer. */
#define SYSAPI_MAX_BODY_SIZE 65536u

/* Event types of the event payload's first word. */
#define SYSAPI_EVENT_OBJECT_DETECTION 129u
#define SYSAPI_EVENT_BUTTON 1u
#define SYSAPI_EVENT_FW_UPGRADE 2u
#define SYSAPI_EVENT_CLOUD_PREPARE 3u
#define SYSAPI_EVENT_NIGHTMODE 4u
#define SYSAPI_EVENT_STORAGE 5u
#define SYSAPI_EVENT_VIDEO_UPDATE 6u

/* Storage sub-commands (first word of the storage body) and their reply content sizes. */
enum {
  SYSAPI_STORAGE_LIST = 1,       /* reply: SYSAPI_STORAGE_LIST_REPLY_SIZE bytes of names */
  SYSAPI_STORAGE_SHORT_INFO = 2, /* reply: sysapi_storage_info */
  SYSAPI_STORAGE_MOUNT = 3,      /* reply: one int32 status */
  SYSAPI_STORAGE_UMOUNT = 4,     /* reply: one int32 status */
  SYSAPI_STORAGE_FORMAT = 5,     /* reply: one int32 status */
};
#define SYSAPI_STORAGE_DEVICE_SIZE 16u
#define SYSAPI_STORAGE_LIST_REPLY_SIZE 128u /* eight NUL-padded 16-byte device names */

typedef struct cmd_hdr {
  uint32_t sync; /* SYSTEMD_COMMAND_PACKET_SYNC_CODE */
  uint32_t cmd;  /* command letter */
  uint32_t len;  /* body bytes that follow */
} cmd_hdr;

typedef struct sysapi_storage_info {
  int32_t state; /* 0 absent, 1 present, 2 mounted */
  uint32_t total_mib;
  uint32_t free_mib;
  uint32_t flags;
} sysapi_storage_info;

/* ---- The daemon's two commands ---- */

/* Sends one 520-byte event payload under '1'. Returns 520, or -1 (connect or header send failed)
 * or -2 (body send failed); failures are also reported to syslog and, while current_dbg_level >= 0,
 * on standard error. */
int sysapi_eventcb(const char* path, const void* payload);

/* Sends the watchdog heartbeat: 'W' when alive is nonzero, else 'w', with a 128-byte body holding
 * name at offset 0 and restart_command at offset 64 (each cut to fit its field). Returns 0, or -1
 * (connect), -3 (header), -4 (body). */
int sysapi_wdg_update(const char* path, const char* name, const char* restart_command, int alive);

/* ---- Receiving ---- */

/* Sets 10-s receive and send time-outs on fd, then reads exactly len bytes, retrying on EINTR and
 * on every time-out (EAGAIN) without limit: a peer that stays connected and silent holds the
 * caller. Returns len, or -1 (after perror("recv_all")) when the peer closed or another error
 * occurred. The daemon itself never calls it: its event and heartbeat commands expect no reply. */
int recv_all(int fd, void* buffer, size_t len);

/* Registers for events: connects a new socket to path, sends 'E' with a 528-byte body carrying
 * flags, and returns the socket for sysapi_event_process (or -1, -3, -4). */
int sysapi_eventreg(const char* path);
int sysapi_eventreg_ex(const char* path, uint32_t flags);

/* Called with each event body received on a registered socket. */
typedef void (*sysapi_event_callback)(uint32_t cmd, const void* body, uint32_t len, void* user);

/* Reads one message from a registered socket. An event ('1') goes to callback and returns its body
 * length; a registration answer ('E', a 4-byte status) returns 0; any other known command is
 * skipped and returns 0. Errors: -1 short header, -8 bad sync or unknown command, -5 a length over
 * SYSAPI_MAX_BODY_SIZE, -6 short body. */
int sysapi_event_process(int fd, sysapi_event_callback callback, void* user);

/* ---- Request/reply commands (fresh socket per call) ---- */

/* Each sends 'Y' with {sub-command, device name} and expects a 'Y' reply of the sub-command's
 * size. Status commands return the peer's non-negative status word. */
int sysapi_storage_format(const char* path, const char* device);
int sysapi_storage_mount(const char* path, const char* device);
int sysapi_storage_umount(const char* path, const char* device);
int sysapi_storage_short_info(const char* path, const char* device, sysapi_storage_info* info);
/* Fills names (SYSAPI_STORAGE_LIST_REPLY_SIZE bytes); returns the number of devices. */
int sysapi_storage_list(const char* path, char names[SYSAPI_STORAGE_LIST_REPLY_SIZE]);

/* Sends a configuration path under 'K' and reads the JSON reply into json (NUL-terminated);
 * returns its length. -5 also when the reply does not fit json_size. */
int sysapi_restore_conf(const char* path, const char* conf_path, char* json, size_t json_size);

/* Sets the system time (seconds since the epoch, as text in a 196-byte body); no reply. */
int sysapi_setime(const char* path, int64_t seconds);

/* ---- Device commands (kept socket per command, no reply) ---- */
int sysapi_buzzer(const char* path, int32_t tone, int32_t count, int32_t interval_ms,
                  int32_t duration_ms);
int sysapi_reboot(const char* path, const char* reason);
int sysapi_backup_conf(const char* path, const char* conf_path);
int sysapi_reset_conf(const char* path, const char* reason, const char* keep_json);
int sysapi_restart_app(const char* path, const char* app);
int sysapi_led_event(const char* path, int32_t led, int32_t mode, int32_t period_ms);
int sysapi_dout_event(const char* path, int32_t port, int32_t level, int32_t period_ms);
int sysapi_irled_event(const char* path, int32_t on);
int sysapi_icr_event(const char* path, int32_t day);
int sysapi_lightsensor_event(const char* path, int32_t level);
int sysapi_resetbutton_event(const char* path, int32_t pressed);
int sysapi_reset_env_Sensor(const char* path, int32_t value);
int sysapi_upnp_update(const char* path, int32_t value);
int sysapi_upnp_set_custom_info(const char* path, const char* info);
int sysapi_run_app(const char* path, const char* command_line);

/* ---- Event wrappers: a 520-byte event body {type, value} sent like sysapi_eventcb ---- */
int sysapi_button_event(const char* path, int32_t value);
int sysapi_fw_upgrade_event(const char* path, int32_t value);
int sysapi_cloud_prepare_event(const char* path, int32_t value);
int sysapi_nightmode_event(const char* path, int32_t value);
int sysapi_storage_event(const char* path, int32_t value);
int sysapi_video_update_event(const char* path, int32_t value);

/* ---- Snapshots over their own socket ("/tmp/ipc-snapshot") ---- */

/* Asks for a JPEG of a channel: the request text "channel@WxH@quality" (or, for a profile,
 * "channel@profile@quality") goes out under 'S'; the reply 'S' carries the JPEG, which is copied
 * into jpeg. Returns its size, -5 when it does not fit jpeg_size. */
int sysapi_snapshot(const char* path, int channel, int width, int height, int quality, void* jpeg,
                    size_t jpeg_size);
int sysapi_snapshot_profile(const char* path, int channel, int profile, int quality, void* jpeg,
                            size_t jpeg_size);

#ifdef __cplusplus
}
#endif

#endif /* MIRVANE_SUPPORT_SYSAPI_H */
