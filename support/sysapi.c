#define _GNU_SOURCE
#include "sysapi.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include "pdebug.h"

/* Every send uses MSG_NOSIGNAL: a system daemon that went away must show up as a failed send (and
 * a reconnect on the next call), never as a SIGPIPE that would end the calling process. The daemon
 * therefore needs no process-wide SIGPIPE disposition, and none is set here behind its back. */
#define SYSAPI_SEND_FLAGS MSG_NOSIGNAL

/* Time-out of a send, and of a connect to a listener whose queue is full: a system daemon that
 * accepts but stops reading costs one event (the connection is then reopened), never a pipeline
 * or a watchdog blocked for good. */
#define SYSAPI_SEND_TIMEOUT_S 2

/* recv_all's socket time-outs. */
#define SYSAPI_RECV_TIMEOUT_S 10

/* Kept sockets, one per command; -1 while not connected. */
static int g_eventcb_socket = -1;
static int g_wdg_socket = -1;
static int g_event_wrapper_socket = -1;
static int g_buzzer_socket = -1;
static int g_reboot_socket = -1;
static int g_backup_conf_socket = -1;
static int g_reset_conf_socket = -1;
static int g_restart_app_socket = -1;
static int g_led_socket = -1;
static int g_dout_socket = -1;
static int g_irled_socket = -1;
static int g_icr_socket = -1;
static int g_lightsensor_socket = -1;
static int g_resetbutton_socket = -1;
static int g_reset_env_socket = -1;
static int g_upnp_update_socket = -1;
static int g_upnp_info_socket = -1;
static int g_run_app_socket = -1;

static int ConnectUnix(const char* path) {
  if (path == NULL) return -1;
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  const struct timeval send_timeout = {SYSAPI_SEND_TIMEOUT_S, 0};
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &send_timeout, sizeof(send_timeout));
  struct sockaddr_un addr;
  memset(&addr, 0, sizeof(addr));
  addr.sun_family = AF_UNIX;
  snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path);
  if (connect(fd, (struct sockaddr*)&addr, sizeof(addr)) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

static void ResetSocket(int* fd) {
  if (*fd >= 0) close(*fd);
  *fd = -1;
}

static int SendAll(int fd, const void* data, size_t len) {
  return send(fd, data, len, SYSAPI_SEND_FLAGS) == (ssize_t)len;
}

/* Header, body and an optional trailing part (counted in the header's length). 0, -3 or -4. */
static int SendMessage(int fd, uint32_t cmd, const void* body, uint32_t len, const void* extra,
                       uint32_t extra_len) {
  const cmd_hdr hdr = {SYSTEMD_COMMAND_PACKET_SYNC_CODE, cmd, len + extra_len};
  if (!SendAll(fd, &hdr, sizeof(hdr))) return -3;
  if (len > 0 && !SendAll(fd, body, len)) return -4;
  if (extra_len > 0 && !SendAll(fd, extra, extra_len)) return -4;
  return 0;
}

/* A command on a kept socket: connect when needed, send, reset the socket after a failure. */
static int KeptCommand(int* fd, const char* path, uint32_t cmd, const void* body, uint32_t len,
                       const void* extra, uint32_t extra_len) {
  if (*fd < 0) {
    *fd = ConnectUnix(path);
    if (*fd < 0) return -1;
  }
  const int rc = SendMessage(*fd, cmd, body, len, extra, extra_len);
  if (rc != 0) ResetSocket(fd);
  return rc;
}

/* Copies text with its terminator into a zeroed field; false when it does not fit. */
static int PutText(char* field, size_t size, const char* text) {
  if (text == NULL) return 0;
  const size_t n = strlen(text);
  if (n >= size) return 0;
  memcpy(field, text, n + 1);
  return 1;
}

static void PutWord(unsigned char* body, size_t offset, uint32_t value) {
  memcpy(body + offset, &value, sizeof(value));
}

/* ---- The daemon's two commands ---- */

static void ReportEventFailure(const void* payload, int fd) {
  uint32_t type = 0;
  memcpy(&type, payload, sizeof(type));
  if (mod_log_init() == 0 && g_logshm[0] != 0) {
    mod_log_print(app_name, LOG_CRIT, LOG_USER, "[%s:%d] sysapi failed, type=0x%x, socket=%d",
                  MOD_LOG_BASENAME, __LINE__, type, fd);
  } else {
    mod_log_print(app_name, LOG_CRIT, LOG_USER, "sysapi failed, type=0x%x, socket=%d", type, fd);
  }
  MOD_LOG_DEBUG("sysapi failed, type=0x%x, socket=%d\n", type, fd);
}

int sysapi_eventcb(const char* path, const void* payload) {
  if (payload == NULL) return -7;
  if (g_eventcb_socket < 0) {
    g_eventcb_socket = ConnectUnix(path);
    if (g_eventcb_socket < 0) return -1;
  }
  const cmd_hdr hdr = {SYSTEMD_COMMAND_PACKET_SYNC_CODE, SYSAPI_CMD_EVENT,
                       SYSAPI_EVENT_PAYLOAD_SIZE};
  int rc = 0;
  if (!SendAll(g_eventcb_socket, &hdr, sizeof(hdr))) {
    perror("sysapi failed to send ev header");
    rc = -1;
  } else if (!SendAll(g_eventcb_socket, payload, SYSAPI_EVENT_PAYLOAD_SIZE)) {
    perror("sysapi failed to send ev");
    rc = -2;
  }
  if (rc != 0) {
    ReportEventFailure(payload, g_eventcb_socket);
    ResetSocket(&g_eventcb_socket);
    return rc;
  }
  return (int)SYSAPI_EVENT_PAYLOAD_SIZE;
}

int sysapi_wdg_update(const char* path, const char* name, const char* restart_command, int alive) {
  if (name == NULL || restart_command == NULL) return -7;
  if (g_wdg_socket < 0) {
    g_wdg_socket = ConnectUnix(path);
    if (g_wdg_socket < 0) return -1;
  }
  const cmd_hdr hdr = {SYSTEMD_COMMAND_PACKET_SYNC_CODE,
                       (uint32_t)(alive ? SYSAPI_CMD_WDG_ALIVE : SYSAPI_CMD_WDG_RELEASE),
                       SYSAPI_WDG_BODY_SIZE};
  if (!SendAll(g_wdg_socket, &hdr, sizeof(hdr))) {
    ResetSocket(&g_wdg_socket);
    return -3;
  }
  /* Each name is cut to its 64-byte field (terminator included) rather than run into the other;
   * the body is zeroed so that no stack bytes leave the process. */
  char body[SYSAPI_WDG_BODY_SIZE];
  memset(body, 0, sizeof(body));
  snprintf(body + SYSAPI_WDG_NAME_OFFSET, SYSAPI_WDG_COMMAND_OFFSET, "%s", name);
  snprintf(body + SYSAPI_WDG_COMMAND_OFFSET, SYSAPI_WDG_BODY_SIZE - SYSAPI_WDG_COMMAND_OFFSET, "%s",
           restart_command);
  if (!SendAll(g_wdg_socket, body, sizeof(body))) {
    ResetSocket(&g_wdg_socket);
    return -4;
  }
  return 0;
}

/* ---- Receiving ---- */

int recv_all(int fd, void* buffer, size_t len) {
  const struct timeval timeout = {SYSAPI_RECV_TIMEOUT_S, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout));
  size_t got = 0;
  while (got < len) {
    /* A closed peer returns 0 without setting errno: cleared first, it reads as a failure. */
    errno = 0;
    const ssize_t n = recv(fd, (char*)buffer + got, len - got, MSG_WAITALL);
    if (n > 0) {
      got += (size_t)n;
      continue;
    }
    if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) continue;
    perror("recv_all");
    return -1;
  }
  return (int)got;
}

int sysapi_eventreg_ex(const char* path, uint32_t flags) {
  const int fd = ConnectUnix(path);
  if (fd < 0) return -1;
  unsigned char body[SYSAPI_EVENT_REG_BODY_SIZE];
  memset(body, 0, sizeof(body));
  PutWord(body, 0, flags);
  const int rc = SendMessage(fd, SYSAPI_CMD_EVENT_REG, body, sizeof(body), NULL, 0);
  if (rc != 0) {
    close(fd);
    return rc;
  }
  MOD_LOG_DEBUG("sysapi_eventreg_ex() fd=%d, flags=%04x\n", fd, flags);
  return fd;
}

int sysapi_eventreg(const char* path) {
  const int fd = ConnectUnix(path);
  if (fd < 0) return -1;
  unsigned char body[SYSAPI_EVENT_REG_BODY_SIZE];
  memset(body, 0, sizeof(body));
  const int rc = SendMessage(fd, SYSAPI_CMD_EVENT_REG, body, sizeof(body), NULL, 0);
  if (rc != 0) {
    close(fd);
    return rc;
  }
  MOD_LOG_DEBUG("sysapi_eventreg() fd=%d\n", fd);
  return fd;
}

static int IsKnownCommand(uint32_t cmd) {
  static const char kCommands[] = "1WwEBQbCKATYLODFXZVPINS";
  return cmd != 0 && cmd < 128 && strchr(kCommands, (int)cmd) != NULL;
}

int sysapi_event_process(int fd, sysapi_event_callback callback, void* user) {
  cmd_hdr hdr;
  const int n = recv_all(fd, &hdr, sizeof(hdr));
  if (n != (int)sizeof(hdr)) {
    MOD_LOG_DEBUG("failed to recv header. (recv_len = %d, sizeof(cmd_hdr) = %d)\n", n,
                  (int)sizeof(hdr));
    return -1;
  }
  if (hdr.sync != SYSTEMD_COMMAND_PACKET_SYNC_CODE) {
    MOD_LOG_DEBUG("illegal header (cmd_hdr.sync = %d, SYSTEMD_COMMAND_PACKET_SYNC_CODE == %d)\n",
                  (int)hdr.sync, (int)SYSTEMD_COMMAND_PACKET_SYNC_CODE);
    return -8;
  }
  if (!IsKnownCommand(hdr.cmd)) {
    MOD_LOG_DEBUG("illegal cmd (cmd_hdr.cmd = %c)\n", (int)(hdr.cmd & 0xFF));
    return -8;
  }
  if (hdr.len > SYSAPI_MAX_BODY_SIZE) {
    MOD_LOG_DEBUG("content len error\n");
    return -5;
  }
  unsigned char* body = malloc(hdr.len > 0 ? hdr.len : 1);
  if (body == NULL) return -6;
  if (hdr.len > 0 && recv_all(fd, body, hdr.len) != (int)hdr.len) {
    MOD_LOG_DEBUG("failed to event data. (recv_len = %d, cmd_hdr.len = %d)\n", -1, (int)hdr.len);
    free(body);
    return -6;
  }
  int rc = 0;
  if (hdr.cmd == SYSAPI_CMD_EVENT) {
    if (callback != NULL) callback(hdr.cmd, body, hdr.len, user);
    rc = (int)hdr.len;
  } else if (hdr.cmd == SYSAPI_CMD_EVENT_REG) {
    int32_t status = -1;
    if (hdr.len >= sizeof(status)) memcpy(&status, body, sizeof(status));
    if (status == 0) {
      MOD_LOG_DEBUG("event registed\n");
    } else {
      MOD_LOG_DEBUG("event failed registed\n");
    }
  } else {
    MOD_LOG_DEBUG("this command need to synchronize %x\n", hdr.cmd);
  }
  free(body);
  return rc;
}

/* ---- Request/reply commands ---- */

/* Sends on a fresh socket and reads a reply with the same command letter. With exact set the
 * reply must be exactly reply_size bytes long, else at most reply_size. Returns the content length
 * or -2, -3, -4, -5, -6, -8; the socket is always closed. */
static int Request(const char* path, uint32_t cmd, const void* body, uint32_t len, void* reply,
                   uint32_t reply_size, int exact) {
  const int fd = ConnectUnix(path);
  if (fd < 0) return -2;
  int rc = SendMessage(fd, cmd, body, len, NULL, 0);
  cmd_hdr hdr;
  if (rc == 0) {
    const ssize_t n = recv(fd, &hdr, sizeof(hdr), MSG_WAITALL);
    if (n != (ssize_t)sizeof(hdr) || hdr.sync != SYSTEMD_COMMAND_PACKET_SYNC_CODE ||
        hdr.cmd != cmd) {
      MOD_LOG_DEBUG("header error\n");
      rc = -8;
    } else if (exact ? hdr.len != reply_size : hdr.len > reply_size) {
      MOD_LOG_DEBUG("content len error\n");
      rc = -5;
    } else if (hdr.len > 0 && recv_all(fd, reply, hdr.len) != (int)hdr.len) {
      MOD_LOG_DEBUG("failed to recv replied content\n");
      rc = -6;
    } else {
      rc = (int)hdr.len;
    }
  }
  close(fd);
  return rc;
}

static int StorageRequest(const char* path, uint32_t sub, const char* device, void* reply,
                          uint32_t reply_size) {
  unsigned char body[SYSAPI_STORAGE_BODY_SIZE];
  memset(body, 0, sizeof(body));
  PutWord(body, 0, sub);
  if (device != NULL && !PutText((char*)body + 4, SYSAPI_STORAGE_DEVICE_SIZE, device)) return -7;
  const int rc = Request(path, SYSAPI_CMD_STORAGE, body, sizeof(body), reply, reply_size, 1);
  return rc < 0 ? rc : 0;
}

static int StorageStatus(const char* path, uint32_t sub, const char* device) {
  int32_t status = 0;
  const int rc = StorageRequest(path, sub, device, &status, sizeof(status));
  if (rc < 0) return rc;
  return status < 0 ? -6 : status;
}

int sysapi_storage_format(const char* path, const char* device) {
  return StorageStatus(path, SYSAPI_STORAGE_FORMAT, device);
}

int sysapi_storage_mount(const char* path, const char* device) {
  return StorageStatus(path, SYSAPI_STORAGE_MOUNT, device);
}

int sysapi_storage_umount(const char* path, const char* device) {
  return StorageStatus(path, SYSAPI_STORAGE_UMOUNT, device);
}

int sysapi_storage_short_info(const char* path, const char* device, sysapi_storage_info* info) {
  if (info == NULL) return -7;
  return StorageRequest(path, SYSAPI_STORAGE_SHORT_INFO, device, info, sizeof(*info));
}

int sysapi_storage_list(const char* path, char names[SYSAPI_STORAGE_LIST_REPLY_SIZE]) {
  if (names == NULL) return -7;
  const int rc =
      StorageRequest(path, SYSAPI_STORAGE_LIST, NULL, names, SYSAPI_STORAGE_LIST_REPLY_SIZE);
  if (rc < 0) return rc;
  names[SYSAPI_STORAGE_LIST_REPLY_SIZE - 1] = '\0';
  int count = 0;
  for (size_t i = 0; i < SYSAPI_STORAGE_LIST_REPLY_SIZE; i += SYSAPI_STORAGE_DEVICE_SIZE) {
    if (names[i] != '\0') ++count;
  }
  return count;
}

int sysapi_restore_conf(const char* path, const char* conf_path, char* json, size_t json_size) {
  if (conf_path == NULL || json == NULL || json_size < 2 || strlen(conf_path) >= 4096) return -7;
  const uint32_t room =
      json_size - 1 > SYSAPI_MAX_BODY_SIZE ? SYSAPI_MAX_BODY_SIZE : (uint32_t)(json_size - 1);
  const int rc = Request(path, SYSAPI_CMD_RESTORE_CONF, conf_path, (uint32_t)strlen(conf_path) + 1,
                         json, room, 0);
  if (rc == -6) MOD_LOG_DEBUG("failed to recv replied json\n");
  if (rc < 0) return rc;
  json[rc] = '\0';
  if (rc == 0 || strlen(json) != (size_t)rc) {
    MOD_LOG_DEBUG("content error\n");
    return -6;
  }
  return rc;
}

int sysapi_setime(const char* path, int64_t seconds) {
  char body[SYSAPI_TEXT_BODY_SIZE];
  memset(body, 0, sizeof(body));
  snprintf(body, sizeof(body), "%lld", (long long)seconds);
  const int fd = ConnectUnix(path);
  if (fd < 0) return -2;
  const int rc = SendMessage(fd, SYSAPI_CMD_SETIME, body, sizeof(body), NULL, 0);
  close(fd);
  return rc;
}

/* ---- Device commands ---- */

static int TextCommand(int* fd, const char* path, uint32_t cmd, size_t size, const char* text) {
  char body[SYSAPI_UPNP_CUSTOM_INFO_BODY_SIZE];
  memset(body, 0, size);
  if (!PutText(body, size, text)) return -7;
  return KeptCommand(fd, path, cmd, body, (uint32_t)size, NULL, 0);
}

static int WordsCommand(int* fd, const char* path, uint32_t cmd, const int32_t* words,
                        size_t count) {
  unsigned char body[SYSAPI_BUZZER_BODY_SIZE];
  for (size_t i = 0; i < count; ++i) PutWord(body, 4 * i, (uint32_t)words[i]);
  return KeptCommand(fd, path, cmd, body, (uint32_t)(4 * count), NULL, 0);
}

int sysapi_buzzer(const char* path, int32_t tone, int32_t count, int32_t interval_ms,
                  int32_t duration_ms) {
  const int32_t words[4] = {tone, count, interval_ms, duration_ms < 1 ? 250 : duration_ms};
  MOD_LOG_DEBUG("%d beeps\n", count);
  return WordsCommand(&g_buzzer_socket, path, SYSAPI_CMD_BUZZER, words, 4);
}

int sysapi_reboot(const char* path, const char* reason) {
  return TextCommand(&g_reboot_socket, path, SYSAPI_CMD_REBOOT, SYSAPI_TEXT_BODY_SIZE,
                     reason != NULL ? reason : "");
}

int sysapi_backup_conf(const char* path, const char* conf_path) {
  if (conf_path == NULL || strlen(conf_path) >= SYSAPI_MAX_BODY_SIZE) return -7;
  const int rc = KeptCommand(&g_backup_conf_socket, path, SYSAPI_CMD_BACKUP_CONF, conf_path,
                             (uint32_t)strlen(conf_path) + 1, NULL, 0);
  MOD_LOG_DEBUG("ret=%d\n", rc);
  return rc;
}

int sysapi_reset_conf(const char* path, const char* reason, const char* keep_json) {
  char body[SYSAPI_TEXT_BODY_SIZE];
  memset(body, 0, sizeof(body));
  if (!PutText(body, sizeof(body), reason != NULL ? reason : "")) return -7;
  const char* keep = keep_json != NULL ? keep_json : "";
  const size_t keep_len = strlen(keep) + 1;
  if (keep_len > SYSAPI_MAX_BODY_SIZE - sizeof(body)) return -7;
  mod_log_print(app_name, LOG_NOTICE, LOG_USER, "keep_json=\"%s\"", keep);
  return KeptCommand(&g_reset_conf_socket, path, SYSAPI_CMD_RESET_CONF, body, sizeof(body), keep,
                     (uint32_t)keep_len);
}

int sysapi_restart_app(const char* path, const char* app) {
  return TextCommand(&g_restart_app_socket, path, SYSAPI_CMD_RESTART_APP,
                     SYSAPI_RESTART_APP_BODY_SIZE, app);
}

int sysapi_led_event(const char* path, int32_t led, int32_t mode, int32_t period_ms) {
  const int32_t words[3] = {led, mode, period_ms};
  return WordsCommand(&g_led_socket, path, SYSAPI_CMD_LED, words, 3);
}

int sysapi_dout_event(const char* path, int32_t port, int32_t level, int32_t period_ms) {
  const int32_t words[3] = {port, level, period_ms};
  return WordsCommand(&g_dout_socket, path, SYSAPI_CMD_DOUT, words, 3);
}

int sysapi_irled_event(const char* path, int32_t on) {
  return WordsCommand(&g_irled_socket, path, SYSAPI_CMD_IRLED, &on, 1);
}

int sysapi_icr_event(const char* path, int32_t day) {
  return WordsCommand(&g_icr_socket, path, SYSAPI_CMD_ICR, &day, 1);
}

int sysapi_lightsensor_event(const char* path, int32_t level) {
  return WordsCommand(&g_lightsensor_socket, path, SYSAPI_CMD_LIGHTSENSOR, &level, 1);
}

int sysapi_resetbutton_event(const char* path, int32_t pressed) {
  return WordsCommand(&g_resetbutton_socket, path, SYSAPI_CMD_RESETBUTTON, &pressed, 1);
}

int sysapi_reset_env_Sensor(const char* path, int32_t value) {
  return WordsCommand(&g_reset_env_socket, path, SYSAPI_CMD_RESET_ENV_SENSOR, &value, 1);
}

int sysapi_upnp_update(const char* path, int32_t value) {
  return WordsCommand(&g_upnp_update_socket, path, SYSAPI_CMD_UPNP_UPDATE, &value, 1);
}

int sysapi_upnp_set_custom_info(const char* path, const char* info) {
  return TextCommand(&g_upnp_info_socket, path, SYSAPI_CMD_UPNP_CUSTOM_INFO,
                     SYSAPI_UPNP_CUSTOM_INFO_BODY_SIZE, info);
}

int sysapi_run_app(const char* path, const char* command_line) {
  return TextCommand(&g_run_app_socket, path, SYSAPI_CMD_RUN_APP, SYSAPI_RUN_APP_BODY_SIZE,
                     command_line);
}

/* ---- Event wrappers ---- */

static int SendSmallEvent(const char* path, uint32_t type, int32_t value) {
  unsigned char body[SYSAPI_EVENT_PAYLOAD_SIZE];
  memset(body, 0, sizeof(body));
  PutWord(body, 0, type);
  PutWord(body, 4, (uint32_t)value);
  const int rc =
      KeptCommand(&g_event_wrapper_socket, path, SYSAPI_CMD_EVENT, body, sizeof(body), NULL, 0);
  return rc == 0 ? (int)sizeof(body) : rc;
}

int sysapi_button_event(const char* path, int32_t value) {
  return SendSmallEvent(path, SYSAPI_EVENT_BUTTON, value);
}

int sysapi_fw_upgrade_event(const char* path, int32_t value) {
  return SendSmallEvent(path, SYSAPI_EVENT_FW_UPGRADE, value);
}

int sysapi_cloud_prepare_event(const char* path, int32_t value) {
  return SendSmallEvent(path, SYSAPI_EVENT_CLOUD_PREPARE, value);
}

int sysapi_nightmode_event(const char* path, int32_t value) {
  return SendSmallEvent(path, SYSAPI_EVENT_NIGHTMODE, value);
}

int sysapi_storage_event(const char* path, int32_t value) {
  return SendSmallEvent(path, SYSAPI_EVENT_STORAGE, value);
}

int sysapi_video_update_event(const char* path, int32_t value) {
  return SendSmallEvent(path, SYSAPI_EVENT_VIDEO_UPDATE, value);
}

/* ---- Snapshots ---- */

static int SnapshotRequest(const char* path, const char* request, void* jpeg, size_t jpeg_size) {
  if (jpeg == NULL || jpeg_size == 0) return -7;
  const uint32_t room =
      jpeg_size > SYSAPI_MAX_BODY_SIZE * 16 ? SYSAPI_MAX_BODY_SIZE * 16 : (uint32_t)jpeg_size;
  return Request(path, SYSAPI_CMD_SNAPSHOT, request, (uint32_t)strlen(request) + 1, jpeg, room, 0);
}

int sysapi_snapshot(const char* path, int channel, int width, int height, int quality, void* jpeg,
                    size_t jpeg_size) {
  char request[64];
  snprintf(request, sizeof(request), "%d@%dx%d@%d", channel, width, height, quality);
  return SnapshotRequest(path, request, jpeg, jpeg_size);
}

int sysapi_snapshot_profile(const char* path, int channel, int profile, int quality, void* jpeg,
                            size_t jpeg_size) {
  char request[64];
  snprintf(request, sizeof(request), "%d@%d@%d", channel, profile, quality);
  return SnapshotRequest(path, request, jpeg, jpeg_size);
}
