#include "bin/result_stage.h"

namespace mirvane {

ResultStage::ResultStage(std::unique_ptr<result_sender::ISnapshotGetter> getter, dva::SteadyNow now)
    : now_(std::move(now)), cache_(std::move(getter), now_) {}

void ResultStage::Reload() {
  {
    auto fresh = std::make_unique<rule::PeopleVeichile>(rule::PeopleVeichile::ReadFromPgo(), now_);
    people_vehicle_.swap(fresh);
  }
  {
    auto fresh = std::make_unique<rule::Intrusion>(rule::Intrusion::ReadFromPgo(), now_);
    intrusion_.swap(fresh);
  }
}

std::vector<EventObject> ResultStage::Process(const TrackResult& result, const VENDOR_AI_BUF& frame,
                                              uint64_t timestamp) {
  const std::vector<std::vector<bool>> pv = people_vehicle_->Apply(result);
  const std::vector<std::vector<uint8_t>> intrusion = intrusion_->Apply(result);
  std::vector<EventObject> events = Convert(cache_, result, pv, intrusion, frame);
  (void)sender_.Send(events, timestamp);  // failures are handled inside the system API
  return events;
}

}  // namespace mirvane
