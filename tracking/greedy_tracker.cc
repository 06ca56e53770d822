#include "tracking/greedy_tracker.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace mirvane {
namespace dva {
namespace {

// A box reduced to what the pair cost reads: its (possibly offset-moved) centre and its area.
struct CostPoint {
  float cx;
  float cy;
  float area;
};

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

// One allowed track/box pair of the frame.
struct Candidate {
  float cost;
  uint32_t track;  // index into the frame's snapshot of the tracks
  uint32_t box;    // index into the frame's boxes
};

// Cheapest first; equal costs in pair order, so that a frame's outcome does not depend on the
// sort's internals.
bool CheaperFirst(const Candidate& a, const Candidate& b) {
  if (a.cost != b.cost) return a.cost < b.cost;
  if (a.track != b.track) return a.track < b.track;
  return a.box < b.box;
}

enum class BoxFate : unsigned char { kUnmatched, kContinued, kBorn };

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
  const SteadyTimePoint now = Now();
  Track track(id, now);
  track.Update(record, now);
  return track;
}

std::vector<TrackedObject> GreedyTracker::Update(const std::vector<TrackedObject>& boxes,
                                                 const std::vector<float>& scores) {
  if (boxes.size() != scores.size()) {
    throw std::invalid_argument("GreedyTracker::Update: boxes and scores differ in length");
  }
  const size_t box_count = boxes.size();

  // Snapshot of the live tracks: their ids and the points their costs are measured from.
  std::vector<uint32_t> track_ids;
  std::vector<CostPoint> track_points;
  track_ids.reserve(tracks_.size());
  track_points.reserve(tracks_.size());
  for (const auto& entry : tracks_) {
    track_ids.push_back(entry.first);
    track_points.push_back(TrackPoint(entry.second.Record()));
  }
  const size_t track_count = track_ids.size();

  std::vector<CostPoint> box_points;
  box_points.reserve(box_count);
  for (const TrackedObject& box : boxes) box_points.push_back(MovedBackPoint(box));

  // Pairs with confident boxes, then pairs with weak ones; pairs that can never match are left
  // out here rather than skipped later.
  std::vector<Candidate> confident;
  std::vector<Candidate> weak;
  for (size_t t = 0; t < track_count; ++t) {
    for (size_t d = 0; d < box_count; ++d) {
      const float cost = Cost(track_points[t], box_points[d]);
      if (!(cost < kNoMatchCost)) continue;  // also keeps not-a-number costs out of the sort
      const Candidate candidate{cost, static_cast<uint32_t>(t), static_cast<uint32_t>(d)};
      (scores[d] > score_threshold_ ? confident : weak).push_back(candidate);
    }
  }
  std::sort(confident.begin(), confident.end(), CheaperFirst);
  std::sort(weak.begin(), weak.end(), CheaperFirst);

  std::vector<bool> track_taken(track_count, false);
  std::vector<BoxFate> fate(box_count, BoxFate::kUnmatched);
  std::vector<uint32_t> box_ids(box_count, 0);
  const size_t most_pairs = std::min(track_count, box_count);
  size_t pairs = 0;
  for (const std::vector<Candidate>* group : {&confident, &weak}) {
    for (const Candidate& candidate : *group) {
      if (pairs == most_pairs) break;
      if (track_taken[candidate.track] || fate[candidate.box] != BoxFate::kUnmatched) continue;
      track_taken[candidate.track] = true;
      fate[candidate.box] = BoxFate::kContinued;
      ++pairs;
      const uint32_t id = track_ids[candidate.track];
      const TrackedObject& box = boxes[candidate.box];
      auto found = tracks_.find(id);
      if (found != tracks_.end()) {
        found->second.Update(box, Now());
      } else {
        tracks_.emplace(id, CreateTrack(id, box));
      }
      box_ids[candidate.box] = id;
    }
  }

  removed_ids_.clear();
  for (size_t t = 0; t < track_count; ++t) {
    if (track_taken[t]) continue;
    const uint32_t id = track_ids[t];
    if (tracks_.at(id).IsExpired(Now())) {
      tracks_.erase(id);
      removed_ids_.insert(id);
    }
  }

  for (size_t d = 0; d < box_count; ++d) {
    if (fate[d] != BoxFate::kUnmatched || !(scores[d] > score_threshold_)) continue;
    const uint32_t id = (*next_id_)++;
    fate[d] = BoxFate::kBorn;
    box_ids[d] = id;
    tracks_.emplace(id, CreateTrack(id, boxes[d]));  // an id already present keeps its track
  }

  std::vector<TrackedObject> out;
  out.reserve(box_count);
  for (BoxFate wanted : {BoxFate::kContinued, BoxFate::kBorn}) {
    for (size_t d = 0; d < box_count; ++d) {
      if (fate[d] != wanted) continue;
      out.push_back(boxes[d]);
      out.back().tracking_id = box_ids[d];
    }
  }
  return out;
}

}  // namespace dva
}  // namespace mirvane
