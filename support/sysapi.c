#define _GNU_SOURCE
#include "sysapi.h"

#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/* Sends are made with MSG_NOSIGNAL: a system daemon that went away must show up as a failed send
 * (and a reconnect on the next call), never as a SIGPIPE that would end the calling process. */
#define SYSAPI_SEND_FLAGS MSG_NOSIGNAL

static int g_eventcb_socket = -1;
static int g_wdg_socket = -1;

static int ConnectUnix(const char* path) {
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
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

int sysapi_eventcb(const char* path, const void* payload) {
  if (g_eventcb_socket < 0) {
    g_eventcb_socket = ConnectUnix(path);
    if (g_eventcb_socket < 0) return -1;
  }
  cmd_hdr hdr = {SYSTEMD_COMMAND_PACKET_SYNC_CODE, SYSAPI_CMD_EVENT, SYSAPI_EVENT_PAYLOAD_SIZE};
  if (send(g_eventcb_socket, &hdr, sizeof(hdr), SYSAPI_SEND_FLAGS) != (ssize_t)sizeof(hdr)) {
    perror("sysapi failed to send ev header");
    ResetSocket(&g_eventcb_socket);
    return -1;
  }
  if (send(g_eventcb_socket, payload, SYSAPI_EVENT_PAYLOAD_SIZE, SYSAPI_SEND_FLAGS) !=
      (ssize_t)SYSAPI_EVENT_PAYLOAD_SIZE) {
    perror("sysapi failed to send ev");
    ResetSocket(&g_eventcb_socket);
    return -2;
  }
  return (int)SYSAPI_EVENT_PAYLOAD_SIZE;
}

int sysapi_wdg_update(const char* path, const char* name, const char* restart_command, int alive) {
  if (g_wdg_socket < 0) {
    g_wdg_socket = ConnectUnix(path);
    if (g_wdg_socket < 0) return -1;
  }
  cmd_hdr hdr = {SYSTEMD_COMMAND_PACKET_SYNC_CODE,
                 (uint32_t)(alive ? SYSAPI_CMD_WDG_ALIVE : SYSAPI_CMD_WDG_RELEASE),
                 SYSAPI_WDG_BODY_SIZE};
  if (send(g_wdg_socket, &hdr, sizeof(hdr), SYSAPI_SEND_FLAGS) != (ssize_t)sizeof(hdr)) {
    ResetSocket(&g_wdg_socket);
    return -3;
  }
  char body[SYSAPI_WDG_BODY_SIZE];
  memset(body, 0, sizeof(body));
  snprintf(body + SYSAPI_WDG_NAME_OFFSET, SYSAPI_WDG_COMMAND_OFFSET, "%s", name);
  snprintf(body + SYSAPI_WDG_COMMAND_OFFSET, SYSAPI_WDG_BODY_SIZE - SYSAPI_WDG_COMMAND_OFFSET, "%s",
           restart_command);
  if (send(g_wdg_socket, body, sizeof(body), SYSAPI_SEND_FLAGS) != (ssize_t)sizeof(body)) {
    ResetSocket(&g_wdg_socket);
    return -4;
  }
  return 0;
}
