#include "tracking/greedy_tracker.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

namespace mirvane {
namespace dva {
namespace {

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

// One axis of the grid that buckets a frame's boxes: cells equal intervals from the smallest to
// the largest coordinate (one cell when they cannot be split). CellOf never decreases as its
// argument grows, and clamps to the first and last cell.
struct GridAxis {
  GridAxis(float low, float high, int wanted_cells) {
    const float inverse_width = static_cast<float>(wanted_cells) / (high - low);
    if (wanted_cells > 1 && inverse_width > 0.0f && std::isfinite(inverse_width)) {
      origin = low;
      cells = wanted_cells;
      scale = inverse_width;
      last = static_cast<float>(wanted_cells - 1);
    }
  }

  int CellOf(float v) const {
    // A not-a-number t (an infinite v on a one-cell axis) ends in the first cell, as any t would.
    // (Each clamp is one maximum or minimum instruction in this form.)
    float t = (v - origin) * scale;
    t = t > 0.0f ? t : 0.0f;
    t = t < last ? t : last;
    return static_cast<int>(t);
  }

  float origin = 0.0f;
  float scale = 0.0f;
  float last = 0.0f;  // the last cell's index
  int cells = 1;
};

// The columns and rows of a grid of about one box per cell, with cells about square over the
// rectangle that the boxes span (a line of cells when the rectangle is flat or not finite on one
// side; one cell when on both).
void GridShape(float min_x, float max_x, float min_y, float max_y, size_t boxes, int* columns,
               int* rows) {
  const double width = static_cast<double>(max_x) - static_cast<double>(min_x);
  const double height = static_cast<double>(max_y) - static_cast<double>(min_y);
  const bool wide = width > 0.0 && std::isfinite(width);
  const bool tall = height > 0.0 && std::isfinite(height);
  const double count = static_cast<double>(boxes);
  double along_x = 1.0;
  double along_y = 1.0;
  if (wide && tall) {
    const double aspect = width / height;
    along_x = std::ceil(std::sqrt(count * aspect));
    along_y = std::ceil(std::sqrt(count / aspect));
  } else if (wide) {
    along_x = count;
  } else if (tall) {
    along_y = count;
  }
  // At most one column (row) per box: the cells stay within about twice the boxes.
  *columns = static_cast<int>(std::min(std::max(along_x, 1.0), count));
  *rows = static_cast<int>(std::min(std::max(along_y, 1.0), count));
}

// Whether both coordinates are finite (neither infinite nor not-a-number): x - x is 0 exactly then.
bool FiniteCentre(float cx, float cy) {
  return cx - cx == 0.0f && cy - cy == 0.0f;
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

void GreedyTracker::GatherCandidates(const std::vector<float>& scores, const BoxSpan& span) {
  const size_t track_count = track_points_.size();
  const size_t box_count = box_points_.size();
  confident_.clear();
  weak_.clear();
  track_state_.assign(track_count, kNone);
  box_state_.assign(box_count, kNone);
  // The loops below read through plain pointers: the states are bytes, and a store of a byte may
  // alias anything in memory, the vectors' own pointers included.
  const CostPoint* const track_points = track_points_.data();
  Pairing* const track_state = track_state_.data();
  Pairing* const box_state = box_state_.data();
  const float* const box_scores = scores.data();
  const float threshold = score_threshold_;
  // Costs the pair of track t and box d (whose point is box) and keeps it when it passes the gate.
  auto consider = [&](size_t t, size_t d, const CostPoint& box) {
    const float cost = Cost(track_points[t], box);
    if (!(cost < kNoMatchCost)) return;  // also keeps not-a-number costs out of the sort
    // Here 0 <= cost < kNoMatchCost: the cost is a square, rounded, of a non-negative root.
    const Candidate candidate = MakeCandidate(cost, t, d);
    (box_scores[d] > threshold ? confident_ : weak_).push_back(candidate);
    track_state[t] = track_state[t] == kNone ? kOne : kSeveral;
    box_state[d] = box_state[d] == kNone ? kOne : kSeveral;
  };

  if (track_count == 0 || box_count == 0) return;
  // Only boxes whose centre lies within reach of a track's centre can pass its gate (dx and dy
  // below are those of the cost). A few boxes are all looked at, by every track.
  constexpr size_t kFewBoxes = 16;
  if (box_count <= kFewBoxes) {
    const CostPoint* const box_points = box_points_.data();
    for (size_t t = 0; t < track_count; ++t) {
      const CostPoint track = track_points[t];
      const float reach = GateReach(track);
      const bool reach_usable = std::isfinite(reach);
      for (size_t d = 0; d < box_count; ++d) {
        const CostPoint& box = box_points[d];
        if (reach_usable &&
            (std::fabs(track.cx - box.cx) > reach || std::fabs(track.cy - box.cy) > reach)) {
          continue;
        }
        consider(t, d, box);
      }
    }
    return;
  }
  // More boxes are bucketed once into a grid of about one box per cell over the rectangle they
  // span, and each track looks only at the cells that its reach overlaps, costing the boxes within
  // reach. A pair whose box or track has a centre that is not finite never passes the gate (its
  // cost is infinite or not a number), so such boxes stay out of the grid and such tracks look at
  // none.
  int wanted_columns = 1;
  int wanted_rows = 1;
  GridShape(span.min_x, span.max_x, span.min_y, span.max_y, box_count, &wanted_columns,
            &wanted_rows);
  const GridAxis x_axis(span.min_x, span.max_x, wanted_columns);
  const GridAxis y_axis(span.min_y, span.max_y, wanted_rows);
  const size_t columns = static_cast<size_t>(x_axis.cells);
  const size_t cells = columns * static_cast<size_t>(y_axis.cells);
  cell_starts_.assign(cells + 1, 0);
  box_cells_.resize(box_count);
  for (size_t d = 0; d < box_count; ++d) {
    const CostPoint& box = box_points_[d];
    if (!FiniteCentre(box.cx, box.cy)) {
      box_cells_[d] = static_cast<uint32_t>(cells);  // in no cell
      continue;
    }
    const size_t cell = static_cast<size_t>(y_axis.CellOf(box.cy)) * columns +
                        static_cast<size_t>(x_axis.CellOf(box.cx));
    box_cells_[d] = static_cast<uint32_t>(cell);
    ++cell_starts_[cell + 1];
  }
  for (size_t c = 0; c < cells; ++c) cell_starts_[c + 1] += cell_starts_[c];
  cell_fill_.assign(cell_starts_.begin(), cell_starts_.end() - 1);
  grid_boxes_.resize(cell_starts_[cells]);
  grid_points_.resize(cell_starts_[cells]);
  for (size_t d = 0; d < box_count; ++d) {
    const uint32_t cell = box_cells_[d];
    if (cell >= cells) continue;
    const uint32_t k = cell_fill_[cell]++;
    grid_boxes_[k] = static_cast<uint32_t>(d);
    grid_points_[k] = box_points_[d];
  }

  const uint32_t* const starts = cell_starts_.data();
  const uint32_t* const grid_boxes = grid_boxes_.data();
  const CostPoint* const grid_points = grid_points_.data();
  const uint32_t grid_size = starts[cells];
  for (size_t t = 0; t < track_count; ++t) {
    const CostPoint track = track_points[t];
    const float reach = GateReach(track);
    if (!std::isfinite(reach)) {
      // An area that is infinite, negative or not a number: every box is costed.
      if (!FiniteCentre(track.cx, track.cy)) continue;
      for (uint32_t k = 0; k < grid_size; ++k) consider(t, grid_boxes[k], grid_points[k]);
      continue;
    }
    const float low_x = track.cx - reach;
    const float high_x = track.cx + reach;
    const float low_y = track.cy - reach;
    const float high_y = track.cy + reach;
    // A box within the bounds lies in a cell within the bounds' cells: CellOf keeps the order.
    // Row by row, the boxes of the cells from the first column to the last are one run.
    const size_t first_column = static_cast<size_t>(x_axis.CellOf(low_x));
    const size_t run_cells = static_cast<size_t>(x_axis.CellOf(high_x)) + 1 - first_column;
    const size_t last_run = static_cast<size_t>(y_axis.CellOf(high_y)) * columns + first_column;
    for (size_t run = static_cast<size_t>(y_axis.CellOf(low_y)) * columns + first_column;
         run <= last_run; run += columns) {
      const uint32_t end = starts[run + run_cells];
      for (uint32_t k = starts[run]; k < end; ++k) {
        const CostPoint& box = grid_points[k];
        if (box.cx < low_x || high_x < box.cx || box.cy < low_y || high_y < box.cy) continue;
        consider(t, grid_boxes[k], box);
      }
    }
  }
}

void GreedyTracker::MatchGroup(std::vector<Candidate>* group,
                               const std::vector<TrackedObject>& boxes, SteadyTimePoint now) {
  // A pair whose track and box are in no other pair (of either group) is taken at once: the walk
  // would take it wherever the sort put it, and it stands in no other pair's way. Only the rest is
  // sorted; in a steady scene that is few pairs, if any. Such pairs are looked for only while the
  // frame has at most two pairs per track: in a crowd there are few, and the search would cost
  // more than it saves.
  if (confident_.size() + weak_.size() <= 2 * track_state_.size()) {
    size_t kept = 0;
    for (const Candidate& pair : *group) {
      if (track_state_[pair.track()] == kOne && box_state_[pair.box] == kOne) {
        Take(pair, boxes, now);
      } else {
        (*group)[kept++] = pair;
      }
    }
    group->resize(kept);
  }
  std::sort(group->begin(), group->end(),
            [](const Candidate& a, const Candidate& b) { return CheaperFirst(a, b); });
  for (const Candidate& pair : *group) {
    if (track_state_[pair.track()] != kTaken && box_state_[pair.box] != kTaken) {
      Take(pair, boxes, now);
    }
  }
}

void GreedyTracker::Take(const Candidate& pair, const std::vector<TrackedObject>& boxes,
                         SteadyTimePoint now) {
  track_state_[pair.track()] = kTaken;
  box_state_[pair.box] = kTaken;
  ++continued_;
  // The snapshot's tracks are all in the map until the stale ones are dropped, after matching.
  Track* track = track_refs_[pair.track()];
  track->Update(boxes[pair.box], now);
  box_ids_[pair.box] = track_ids_[pair.track()];
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
  const size_t track_count = tracks_.size();
  track_ids_.resize(track_count);
  track_refs_.resize(track_count);
  track_points_.resize(track_count);
  size_t t = 0;
  for (auto& entry : tracks_) {
    track_ids_[t] = entry.first;
    track_refs_[t] = &entry.second;
    track_points_[t] = TrackPoint(entry.second.Record());
    ++t;
  }

  // The boxes' points, and the rectangle their centres span (not-a-number coordinates are passed
  // over; an infinite one leaves a single grid cell on its axis).
  box_points_.resize(box_count);
  BoxSpan span;
  for (size_t d = 0; d < box_count; ++d) {
    const CostPoint box = MovedBackPoint(boxes[d]);
    box_points_[d] = box;
    span.min_x = box.cx < span.min_x ? box.cx : span.min_x;
    span.max_x = box.cx > span.max_x ? box.cx : span.max_x;
    span.min_y = box.cy < span.min_y ? box.cy : span.min_y;
    span.max_y = box.cy > span.max_y ? box.cy : span.max_y;
  }

  // Pairs with confident boxes, then pairs with weak ones, each group taken cheapest first; pairs
  // that can never match are left out here rather than skipped later.
  GatherCandidates(scores, span);

  box_ids_.resize(box_count);  // read only for boxes that continue or start a track
  continued_ = 0;
  MatchGroup(&confident_, boxes, now);
  MatchGroup(&weak_, boxes, now);

  // In a steady scene every track continues and every box continues one: then no track can be
  // stale and no box is born, and the walks below are skipped.
  removed_ids_.clear();
  for (t = 0; t < track_count && continued_ < track_count; ++t) {
    if (track_state_[t] == kTaken) continue;
    const uint32_t id = track_ids_[t];
    if (track_refs_[t]->IsExpired(now)) {
      tracks_.erase(id);
      removed_ids_.insert(id);
    }
  }

  born_.clear();
  for (size_t d = 0; d < box_count && continued_ < box_count; ++d) {
    if (box_state_[d] == kTaken || !(scores[d] > score_threshold_)) continue;
    const uint32_t id = (*next_id_)++;
    born_.push_back(static_cast<uint32_t>(d));
    box_ids_[d] = id;
    tracks_.emplace(id, CreateTrack(id, boxes[d]));  // an id already present keeps its track
  }

  std::vector<TrackedObject> out;
  out.reserve(continued_ + born_.size());
  for (size_t d = 0; d < box_count; ++d) {
    if (box_state_[d] != kTaken) continue;
    out.push_back(boxes[d]);
    out.back().tracking_id = box_ids_[d];
  }
  for (uint32_t d : born_) {
    out.push_back(boxes[d]);
    out.back().tracking_id = box_ids_[d];
  }
  return out;
}

}  // namespace dva
}  // namespace mirvane
