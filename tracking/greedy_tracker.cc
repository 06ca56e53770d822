#include "tracking/greedy_tracker.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace mirvane {
namespace dva {
namespace {

using greedy_tracker_internal::BoxX;
using greedy_tracker_internal::Candidate;
using greedy_tracker_internal::CostPoint;

float Area(const TrackedObject& box) {
  return (box.xmax - box.xmin) * (box.ymax - box.ymin);
}

// A track is compared by its last box's own centre.
CostPoint TrackPoint(const TrackedObject& box) {
  return CostPoint{(box.xmin + box.xmax) * 0.5f, (box.ymin + box.ymax) * 0.5f, Area(box)};
}

// A new box is compared by its centre moved back by the model's offset to where it was in the
// previous frame.
CostPoint MovedBackPoint(const TrackedObject& box) {
  return CostPoint{box.offset_x + (box.xmin + box.xmax) * 0.5f,
                   box.offset_y + (box.ymin + box.ymax) * 0.5f, Area(box)};
}

float Cost(const CostPoint& track, const CostPoint& box) {
  const float dx = track.cx - box.cx;
  const float dy = track.cy - box.cy;
  // The root is taken and squared again on purpose: the rounding of the gate depends on it.
  const float dist = std::sqrt(dx * dx + dy * dy);
  const float dist2 = dist * dist;
  if (track.area < dist2) return kNoMatchCost;
  if (box.area < dist2) return kNoMatchCost;
  return dist2;
}

// Cheapest first; equal costs in pair order (track, then box), so that a frame's outcome does not
// depend on the sort's internals or on the order in which the pairs were found.
bool CheaperFirst(const Candidate& a, const Candidate& b) {
  if (a.cost_track != b.cost_track) return a.cost_track < b.cost_track;
  return a.box < b.box;
}

Candidate MakeCandidate(float cost, size_t track, size_t box) {
  uint32_t cost_bits;
  std::memcpy(&cost_bits, &cost, sizeof(cost_bits));
  return Candidate{(uint64_t{cost_bits} << 32) | static_cast<uint32_t>(track),
                   static_cast<uint32_t>(box)};
}

// How far along x, and along y, a box centre may lie from a track centre and still pass the
// gate: the gate needs the squared distance within the track's area, so each coordinate distance
// within its root. The margin (relative, to the centre's magnitude, and absolute) covers every
// rounding of the cost and of the search bounds, so that the search never misses a pair the gate
// would pass; the exact cost decides the pairs found. Not finite (a negative, infinite or
// not-a-number area or centre) when the search cannot be used.
float GateReach(const CostPoint& track) {
  return std::sqrt(track.area) * 1.01f + (std::fabs(track.cx) + std::fabs(track.cy)) * 1e-5f +
         1e-15f;
}

}  // namespace

float PairCost(const TrackedObject& track_box, const TrackedObject& new_box) {
  return Cost(TrackPoint(track_box), MovedBackPoint(new_box));
}

GreedyTracker::Track::Track(uint32_t id, SteadyTimePoint first_seen)
    : first_seen_(first_seen), id_(id), last_seen_(first_seen) {}

GreedyTracker::Track::Track(uint32_t id, SteadyTimePoint first_seen, bool expired)
    : first_seen_(first_seen),
      id_(id),
      last_seen_(first_seen),
      expiry_fixed_(true),
      expiry_value_(expired) {}

void GreedyTracker::Track::Update(const TrackedObject& record, SteadyTimePoint now) {
  last_seen_ = now;
  record_ = record;
  record_.tracking_id = id_;
  record_.age_ms =
      std::chrono::duration_cast<std::chrono::milliseconds>(last_seen_ - first_seen_).count();
}

bool GreedyTracker::Track::IsExpired(SteadyTimePoint now) const {
  if (expiry_fixed_) return expiry_value_;
  return now - last_seen_ > kTrackExpiry;
}

GreedyTracker::GreedyTracker(uint32_t* next_id, float score_threshold, SteadyNow now)
    : next_id_(next_id), score_threshold_(score_threshold), now_(std::move(now)) {}

GreedyTracker::Track GreedyTracker::CreateTrack(uint32_t id, const TrackedObject& record) {
  Track track(id, update_time_);
  track.Update(record, update_time_);
  return track;
}

void GreedyTracker::GatherCandidates(const std::vector<float>& scores) {
  const size_t track_count = track_points_.size();
  const size_t box_count = box_points_.size();
  confident_.clear();
  weak_.clear();
  auto consider = [&](size_t t, size_t d) {
    const float cost = Cost(track_points_[t], box_points_[d]);
    if (!(cost < kNoMatchCost)) return;  // also keeps not-a-number costs out of the sort
    // Here 0 <= cost < kNoMatchCost: the cost is a square, rounded, of a non-negative root.
    const Candidate candidate = MakeCandidate(cost, t, d);
    (scores[d] > score_threshold_ ? confident_ : weak_).push_back(candidate);
  };

  // Only boxes whose centre lies within reach of a track's centre can pass its gate: the boxes are
  // sorted by centre x once, and each track costs only those within its reach along x and y.
  boxes_by_x_.clear();
  unsorted_boxes_.clear();
  for (size_t d = 0; d < box_count; ++d) {
    const float cx = box_points_[d].cx;
    if (std::isfinite(cx)) {
      boxes_by_x_.push_back(BoxX{cx, static_cast<uint32_t>(d)});
    } else {
      unsorted_boxes_.push_back(static_cast<uint32_t>(d));
    }
  }
  std::sort(boxes_by_x_.begin(), boxes_by_x_.end(),
            [](const BoxX& a, const BoxX& b) { return a.cx < b.cx; });

  for (size_t t = 0; t < track_count; ++t) {
    const CostPoint& track = track_points_[t];
    const float reach = GateReach(track);
    if (!std::isfinite(reach)) {
      for (size_t d = 0; d < box_count; ++d) consider(t, d);
      continue;
    }
    const float low = track.cx - reach;
    const float high = track.cx + reach;
    auto it = std::lower_bound(boxes_by_x_.begin(), boxes_by_x_.end(), low,
                               [](const BoxX& box, float x) { return box.cx < x; });
    // The reach bounds the y distance of a passing pair just as well: a cheap test before the
    // exact cost.
    const float low_y = track.cy - reach;
    const float high_y = track.cy + reach;
    for (; it != boxes_by_x_.end() && !(high < it->cx); ++it) {
      const float cy = box_points_[it->box].cy;
      if (cy < low_y || high_y < cy) continue;
      consider(t, it->box);
    }
    for (uint32_t d : unsorted_boxes_) consider(t, d);
  }
  auto cheaper_first = [](const Candidate& a, const Candidate& b) { return CheaperFirst(a, b); };
  std::sort(confident_.begin(), confident_.end(), cheaper_first);
  std::sort(weak_.begin(), weak_.end(), cheaper_first);
}

std::vector<TrackedObject> GreedyTracker::Update(const std::vector<TrackedObject>& boxes,
                                                 const std::vector<float>& scores) {
  if (boxes.size() != scores.size()) {
    throw std::invalid_argument("GreedyTracker::Update: boxes and scores differ in length");
  }
  const size_t box_count = boxes.size();
  const SteadyTimePoint now = Now();  // one clock reading for the whole frame
  update_time_ = now;

  // Snapshot of the live tracks: their ids and the points their costs are measured from.
  track_ids_.clear();
  track_points_.clear();
  for (const auto& entry : tracks_) {
    track_ids_.push_back(entry.first);
    track_points_.push_back(TrackPoint(entry.second.Record()));
  }
  const size_t track_count = track_ids_.size();

  box_points_.clear();
  for (const TrackedObject& box : boxes) box_points_.push_back(MovedBackPoint(box));

  // Pairs with confident boxes, then pairs with weak ones; pairs that can never match are left
  // out here rather than skipped later.
  GatherCandidates(scores);

  track_taken_.assign(track_count, 0);
  fate_.assign(box_count, BoxFate::kUnmatched);
  box_ids_.assign(box_count, 0);
  const size_t most_pairs = std::min(track_count, box_count);
  size_t pairs = 0;
  for (const std::vector<Candidate>* group : {&confident_, &weak_}) {
    for (const Candidate& candidate : *group) {
      if (pairs == most_pairs) break;
      if (track_taken_[candidate.track()] || fate_[candidate.box] != BoxFate::kUnmatched) continue;
      track_taken_[candidate.track()] = 1;
      fate_[candidate.box] = BoxFate::kContinued;
      ++pairs;
      const uint32_t id = track_ids_[candidate.track()];
      const TrackedObject& box = boxes[candidate.box];
      auto found = tracks_.find(id);
      if (found != tracks_.end()) {
        found->second.Update(box, now);
      } else {
        tracks_.emplace(id, CreateTrack(id, box));
      }
      box_ids_[candidate.box] = id;
    }
  }

  removed_ids_.clear();
  for (size_t t = 0; t < track_count; ++t) {
    if (track_taken_[t]) continue;
    const uint32_t id = track_ids_[t];
    if (tracks_.at(id).IsExpired(now)) {
      tracks_.erase(id);
      removed_ids_.insert(id);
    }
  }

  for (size_t d = 0; d < box_count; ++d) {
    if (fate_[d] != BoxFate::kUnmatched || !(scores[d] > score_threshold_)) continue;
    const uint32_t id = (*next_id_)++;
    fate_[d] = BoxFate::kBorn;
    box_ids_[d] = id;
    tracks_.emplace(id, CreateTrack(id, boxes[d]));  // an id already present keeps its track
  }

  std::vector<TrackedObject> out;
  out.reserve(box_count);
  for (BoxFate wanted : {BoxFate::kContinued, BoxFate::kBorn}) {
    for (size_t d = 0; d < box_count; ++d) {
      if (fate_[d] != wanted) continue;
      out.push_back(boxes[d]);
      out.back().tracking_id = box_ids_[d];
    }
  }
  return out;
}

}  // namespace dva
}  // namespace mirvane
