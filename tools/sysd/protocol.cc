#include "protocol.h"

#include <cstring>

#include "sysapi.h"

namespace mirvane {
namespace sysd {
namespace {

std::string FieldText(const std::vector<uint8_t>& body, size_t offset, size_t size) {
  if (body.size() < offset + size) return std::string();
  const char* start = reinterpret_cast<const char*>(body.data() + offset);
  return std::string(start, strnlen(start, size));
}

}  // namespace

bool BoundOf(uint32_t cmd, BodyBound* bound) {
  switch (cmd) {
    case SYSAPI_CMD_EVENT:
      *bound = {SYSAPI_EVENT_PAYLOAD_SIZE, SYSAPI_EVENT_PAYLOAD_SIZE};
      break;
    case SYSAPI_CMD_WDG_ALIVE:
    case SYSAPI_CMD_WDG_RELEASE:
      *bound = {SYSAPI_WDG_BODY_SIZE, SYSAPI_WDG_BODY_SIZE};
      break;
    case SYSAPI_CMD_EVENT_REG:
      *bound = {SYSAPI_EVENT_REG_BODY_SIZE, SYSAPI_EVENT_REG_BODY_SIZE};
      break;
    case SYSAPI_CMD_BUZZER:
      *bound = {SYSAPI_BUZZER_BODY_SIZE, SYSAPI_BUZZER_BODY_SIZE};
      break;
    case SYSAPI_CMD_REBOOT:
    case SYSAPI_CMD_SETIME:
      *bound = {SYSAPI_TEXT_BODY_SIZE, SYSAPI_TEXT_BODY_SIZE};
      break;
    case SYSAPI_CMD_RESET_CONF:
      *bound = {SYSAPI_TEXT_BODY_SIZE, SYSAPI_MAX_BODY_SIZE};
      break;
    case SYSAPI_CMD_BACKUP_CONF:
    case SYSAPI_CMD_RESTORE_CONF:
      *bound = {1, 4096};
      break;
    case SYSAPI_CMD_RESTART_APP:
      *bound = {SYSAPI_RESTART_APP_BODY_SIZE, SYSAPI_RESTART_APP_BODY_SIZE};
      break;
    case SYSAPI_CMD_STORAGE:
      *bound = {SYSAPI_STORAGE_BODY_SIZE, SYSAPI_STORAGE_BODY_SIZE};
      break;
    case SYSAPI_CMD_LED:
    case SYSAPI_CMD_DOUT:
      *bound = {SYSAPI_LED_BODY_SIZE, SYSAPI_LED_BODY_SIZE};
      break;
    case SYSAPI_CMD_IRLED:
    case SYSAPI_CMD_ICR:
    case SYSAPI_CMD_LIGHTSENSOR:
    case SYSAPI_CMD_RESETBUTTON:
    case SYSAPI_CMD_RESET_ENV_SENSOR:
    case SYSAPI_CMD_UPNP_UPDATE:
      *bound = {SYSAPI_WORD_BODY_SIZE, SYSAPI_WORD_BODY_SIZE};
      break;
    case SYSAPI_CMD_UPNP_CUSTOM_INFO:
      *bound = {SYSAPI_UPNP_CUSTOM_INFO_BODY_SIZE, SYSAPI_UPNP_CUSTOM_INFO_BODY_SIZE};
      break;
    case SYSAPI_CMD_RUN_APP:
      *bound = {SYSAPI_RUN_APP_BODY_SIZE, SYSAPI_RUN_APP_BODY_SIZE};
      break;
    case SYSAPI_CMD_SNAPSHOT:
      *bound = {1, 64};
      break;
    default:
      return false;
  }
  return true;
}

bool StreamFramer::Feed(const uint8_t* data, size_t size, std::vector<Message>* out) {
  if (!error_.empty()) return false;
  buffer_.insert(buffer_.end(), data, data + size);
  size_t used = 0;
  while (buffer_.size() - used >= sizeof(cmd_hdr)) {
    cmd_hdr hdr;
    std::memcpy(&hdr, buffer_.data() + used, sizeof(hdr));  // a header may start unaligned
    BodyBound bound;
    if (hdr.sync != SYSTEMD_COMMAND_PACKET_SYNC_CODE) {
      error_ = "bad sync word 0x" + [&] {
        char hex[16];
        std::snprintf(hex, sizeof(hex), "%08x", static_cast<unsigned>(hdr.sync));
        return std::string(hex);
      }();
    } else if (!BoundOf(hdr.cmd, &bound)) {
      error_ = "unknown command " + std::to_string(hdr.cmd);
    } else if (hdr.len < bound.min || hdr.len > bound.max) {
      error_ = "length " + std::to_string(hdr.len) + " out of bounds for '" +
               static_cast<char>(hdr.cmd) + "' (" + std::to_string(bound.min) + ".." +
               std::to_string(bound.max) + ")";
    }
    if (!error_.empty()) {
      buffer_.clear();
      return false;
    }
    if (buffer_.size() - used - sizeof(hdr) < hdr.len) break;
    const uint8_t* body = buffer_.data() + used + sizeof(hdr);
    out->push_back(Message{hdr.cmd, std::vector<uint8_t>(body, body + hdr.len)});
    used += sizeof(hdr) + hdr.len;
  }
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(used));
  return true;
}

Heartbeat DecodeHeartbeat(uint32_t cmd, const std::vector<uint8_t>& body) {
  Heartbeat beat;
  beat.alive = cmd == SYSAPI_CMD_WDG_ALIVE;
  beat.name = FieldText(body, SYSAPI_WDG_NAME_OFFSET, SYSAPI_WDG_COMMAND_OFFSET);
  beat.restart_command =
      FieldText(body, SYSAPI_WDG_COMMAND_OFFSET, SYSAPI_WDG_BODY_SIZE - SYSAPI_WDG_COMMAND_OFFSET);
  return beat;
}

}  // namespace sysd
}  // namespace mirvane
