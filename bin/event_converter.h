// Turns a frame's tracked objects and rule results into the objects of its event: the fifteen
// most confident, each with a snapshot id and an event class code.
//
// SnapshotIdCache owns the snapshot getter and remembers, per tracking id, the snapshot taken
// last and when, so that a track's picture is renewed at most about once a second.
// Threads: the pipeline thread only; nothing here is locked.
#ifndef MIRVANE_BIN_EVENT_CONVERTER_H
#define MIRVANE_BIN_EVENT_CONVERTER_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "bin/tracked_object.h"
#include "result_sender/event_object.h"
#include "result_sender/snapshot_getter_interface.h"
#include "tracking/steady_now.h"

namespace mirvane {

class SnapshotIdCache {
 public:
  // A snapshot older than this (strictly) is taken again.
  static constexpr std::chrono::nanoseconds kRefresh{1000000000};

  // now: the clock the snapshots' ages are measured on.
  SnapshotIdCache(std::unique_ptr<result_sender::ISnapshotGetter> getter,
                  dva::SteadyNow now = dva::RealSteadyNow());

  int32_t Get(int32_t tracking_id, const VENDOR_AI_BUF& frame, const TrackedObject& object);
  // Forgets the ids of the tracks that ended; unknown ids are ignored.
  void Remove(const std::vector<std::unordered_set<uint32_t>>& ended);
  size_t size() const { return entries_.size(); }

 private:
  struct Entry {
    int32_t snapshot_id;
    dva::SteadyTimePoint taken_at;
  };
  std::unique_ptr<result_sender::ISnapshotGetter> getter_;
  dva::SteadyNow now_;
  std::unordered_map<int32_t, Entry> entries_;
};

// Class id of the tracker (1..4) to the event's class code (0..3); others give 0 and a log line.
uint8_t ConvertClassId(int32_t class_id);

// pv_triggers and int_triggers have the shape of result.objects (one entry per object).
std::vector<EventObject> Convert(SnapshotIdCache& cache, const TrackResult& result,
                                 const std::vector<std::vector<bool>>& pv_triggers,
                                 const std::vector<std::vector<uint8_t>>& int_triggers,
                                 const VENDOR_AI_BUF& frame);

}  // namespace mirvane

#endif  // MIRVANE_BIN_EVENT_CONVERTER_H
