// The second half of each pipeline pass: both rules on the tracker's result, conversion into
// event objects with snapshots, and one event to the system daemon per processed frame.
//
// Owns: the people/vehicle and intrusion rules (replaced at every reload), the snapshot-id cache
// with its snapshot getter, and the event sender. Destruction runs cache, intrusion rule, then
// people/vehicle rule. Threads: the pipeline thread only.
#ifndef MIRVANE_BIN_RESULT_STAGE_H
#define MIRVANE_BIN_RESULT_STAGE_H

#include <cstdint>
#include <memory>

#include "bin/event_converter.h"
#include "bin/rule/intrusion.h"
#include "bin/rule/people_vehicle.h"
#include "bin/tracked_object.h"
#include "result_sender/event_sender.h"
#include "tracking/steady_now.h"

namespace mirvane {

class ResultStage {
 public:
  // now: the pipeline's clock, for the rules and the snapshot-id cache.
  ResultStage(std::unique_ptr<result_sender::ISnapshotGetter> getter, dva::SteadyNow now);
  ResultStage(const ResultStage&) = delete;
  ResultStage& operator=(const ResultStage&) = delete;

  // Rebuilds both rules from the parameter store, people/vehicle first.
  void Reload();
  // Applies the rules, converts and sends. Returns what the event carried.
  std::vector<EventObject> Process(const TrackResult& result, const VENDOR_AI_BUF& frame,
                                   uint64_t timestamp);

 private:
  dva::SteadyNow now_;
  std::unique_ptr<rule::PeopleVeichile> people_vehicle_;
  std::unique_ptr<rule::Intrusion> intrusion_;
  SnapshotIdCache cache_;
  result_sender::EventSender sender_;
};

}  // namespace mirvane

#endif  // MIRVANE_BIN_RESULT_STAGE_H
