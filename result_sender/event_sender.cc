#include "result_sender/event_sender.h"

#include "result_sender/ipc_eventcb_converter.h"
#include "sysapi.h"

namespace mirvane {
namespace result_sender {

static_assert(kEventPayloadSize == SYSAPI_EVENT_PAYLOAD_SIZE, "the system API sends 520 bytes");
static_assert(kEventRecordOffset + kEventRecordSize * kEventMaxNum <= kEventPayloadSize,
              "a full event fits the payload");

int EventSender::Send(const std::vector<EventObject>& objects, uint64_t timestamp) {
  uint8_t payload[kEventPayloadSize];
  Convert(kEventMaxNum, objects, timestamp, payload);
  // Failures are reported inside the system API; the event is lost, the next one reconnects.
  return sysapi_eventcb(SYSAPI_SYSTEM_SOCKET, payload);
}

}  // namespace result_sender
}  // namespace mirvane
