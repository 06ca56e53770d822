// Sends each processed frame's objects to the system daemon as one event payload.
//
// EventSender holds no state; the connection is the system API's process-wide event socket.
// Threads: the pipeline thread only.
#ifndef MIRVANE_RESULT_SENDER_EVENT_SENDER_H
#define MIRVANE_RESULT_SENDER_EVENT_SENDER_H

#include <cstdint>
#include <vector>

#include "result_sender/event_object.h"

namespace mirvane {
namespace result_sender {

class ISender {
 public:
  virtual ~ISender() = default;
  // Returns the payload bytes sent, or the system API's negative code.
  virtual int Send(const std::vector<EventObject>& objects, uint64_t timestamp) = 0;
};

class EventSender : public ISender {
 public:
  int Send(const std::vector<EventObject>& objects, uint64_t timestamp) override;
};

}  // namespace result_sender
}  // namespace mirvane

#endif  // MIRVANE_RESULT_SENDER_EVENT_SENDER_H
