// Greedy frame-to-frame association of one class's boxes with its live tracks.
//
// Every track/box pair is scored by the squared distance between the track's last box centre and
// the new box's centre moved back by the model's own motion offset; a pair is allowed only while
// that distance is no greater than the smaller of the two box areas. Allowed pairs are taken
// cheapest first, confident boxes (score above the threshold) before weak ones. Weak boxes may
// continue a track but never start one. A track left unmatched for more than half a second on the
// steady clock is dropped at the next update.
#ifndef MIRVANE_TRACKING_GREEDY_TRACKER_H
#define MIRVANE_TRACKING_GREEDY_TRACKER_H

#include <chrono>
#include <cstdint>
#include <limits>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "bin/tracked_object.h"
#include "tracking/steady_now.h"

namespace mirvane {
namespace dva {

// How long a track may stay unmatched before an update drops it (strictly longer is stale).
constexpr std::chrono::nanoseconds kTrackExpiry{500000000};

// Cost of a pair that must never be matched.
constexpr float kNoMatchCost = 1e9f;

// Cost of pairing a track's last box with a new box, both in pixels: the squared centre distance
// (the new centre moved by its offset), or kNoMatchCost when it exceeds either box's area.
float PairCost(const TrackedObject& track_box, const TrackedObject& new_box);

namespace greedy_tracker_internal {

// A box reduced to what the pair cost reads: its centre (for a new box, moved back by its offset)
// and its area.
struct CostPoint {
  float cx;
  float cy;
  float area;
};

// One track/box pair that passes the gate, ordered by cost, then track, then box with one
// comparison of the first word in most cases: a cost is never negative (nor not-a-number), so the
// order of its bit pattern is that of its value.
struct Candidate {
  uint64_t cost_track;  // the cost's bits above the track's index in the frame's snapshot
  uint32_t box;         // index into the frame's boxes

  uint32_t track() const { return static_cast<uint32_t>(cost_track); }
};

}  // namespace greedy_tracker_internal

// Owns the live tracks of one class and the ids dropped by the latest Update. Shares (does not
// own) the id counter of the detection tracker it belongs to, which must outlive it. Not
// thread-safe: one thread (the pipeline thread) calls it.
class GreedyTracker {
 public:
  // One live track: its id, when it was first and last seen, and the latest record assigned to
  // it. A plain value, owned by the tracker's map.
  class Track {
   public:
    struct Corners {
      float xmin;
      float ymin;
      float xmax;
      float ymax;
    };

    // A track whose expiry follows the clock.
    Track(uint32_t id, SteadyTimePoint first_seen);
    // A track whose expiry test always answers `expired`, whatever the clock says.
    Track(uint32_t id, SteadyTimePoint first_seen, bool expired);

    // Stores record as the latest one, with tracking_id set to Id() and age_ms to the whole
    // milliseconds from the first sighting to now; now becomes the last sighting.
    void Update(const TrackedObject& record, SteadyTimePoint now);

    uint32_t Id() const { return id_; }
    Corners Box() const { return Corners{record_.xmin, record_.ymin, record_.xmax, record_.ymax}; }
    const TrackedObject& Record() const { return record_; }
    // True when now is strictly more than kTrackExpiry past the last sighting (or the fixed
    // answer, for a track built with one).
    bool IsExpired(SteadyTimePoint now) const;

   private:
    SteadyTimePoint first_seen_;
    uint32_t id_;
    SteadyTimePoint last_seen_;
    TrackedObject record_;
    bool expiry_fixed_ = false;
    bool expiry_value_ = false;
  };

  // next_id: the shared id counter, taken and incremented at every birth (wraps at 2^32).
  // score_threshold: boxes scoring strictly above it are confident; only they start tracks.
  // now: the steady-clock source for ages and expiry.
  GreedyTracker(uint32_t* next_id, float score_threshold, SteadyNow now = RealSteadyNow());
  virtual ~GreedyTracker() = default;
  GreedyTracker(const GreedyTracker&) = default;
  GreedyTracker& operator=(const GreedyTracker&) = default;
  GreedyTracker(GreedyTracker&&) = default;
  GreedyTracker& operator=(GreedyTracker&&) = default;

  // Associates this frame's boxes (pixel coordinates) with the live tracks, drops stale tracks
  // and starts tracks for the unmatched confident boxes. scores[d] is the score of boxes[d]; the
  // two lists must have one length (std::invalid_argument otherwise). Returns a copy of every
  // box that continued a track, in box order, then of every box that started one, in box order,
  // each with its tracking_id set; boxes that did neither are not returned.
  std::vector<TrackedObject> Update(const std::vector<TrackedObject>& boxes,
                                    const std::vector<float>& scores);

  // The ids that the latest Update dropped.
  std::unordered_set<uint32_t> RemovedIds() const { return removed_ids_; }

 protected:
  // Makes the track for a new id, first seen at the time of the update in progress (the clock is
  // read once per Update) and already updated once with record.
  virtual Track CreateTrack(uint32_t id, const TrackedObject& record);

  SteadyTimePoint Now() const { return now_(); }

 private:
  using CostPoint = greedy_tracker_internal::CostPoint;
  using Candidate = greedy_tracker_internal::Candidate;
  // What a track or a box of the frame has: no pair that passes the gate, one, several, or its
  // match (a box then continues the track). Plain bytes, so that clearing them is one memset.
  using Pairing = unsigned char;
  static constexpr Pairing kNone = 0;
  static constexpr Pairing kOne = 1;
  static constexpr Pairing kSeveral = 2;
  static constexpr Pairing kTaken = 3;
  // The rectangle that the frame's box points span (empty: the bounds the other way round).
  struct BoxSpan {
    float min_x = std::numeric_limits<float>::infinity();
    float max_x = -std::numeric_limits<float>::infinity();
    float min_y = std::numeric_limits<float>::infinity();
    float max_y = -std::numeric_limits<float>::infinity();
  };

  // Fills confident_ and weak_ with the pairs that pass the gate, and track_state_ and box_state_
  // with how many pairs each track and box has.
  void GatherCandidates(const std::vector<float>& scores, const BoxSpan& span);
  // Takes the pairs of one group, cheapest first, whose track and box are both still free.
  void MatchGroup(std::vector<Candidate>* group, const std::vector<TrackedObject>& boxes,
                  SteadyTimePoint now);
  // Continues the pair's track with its box.
  void Take(const Candidate& pair, const std::vector<TrackedObject>& boxes, SteadyTimePoint now);

  uint32_t* next_id_;
  float score_threshold_;
  SteadyNow now_;
  SteadyTimePoint update_time_{};  // the clock reading of the latest Update
  std::unordered_map<uint32_t, Track> tracks_;
  std::unordered_set<uint32_t> removed_ids_;

  // Per-frame working lists, kept between updates so that their storage is reused.
  std::vector<uint32_t> track_ids_;  // the snapshot: the live tracks, in map order
  std::vector<Track*> track_refs_;   // and where they are in the map
  std::vector<CostPoint> track_points_;
  std::vector<CostPoint> box_points_;
  std::vector<uint32_t> box_cells_;    // per box, its grid cell (the cell count for none)
  std::vector<uint32_t> cell_starts_;  // per grid cell, where its boxes start in grid_boxes_
  std::vector<uint32_t> cell_fill_;
  std::vector<uint32_t> grid_boxes_;    // the boxes with a finite centre, cell by cell
  std::vector<CostPoint> grid_points_;  // and their points, in the same order
  std::vector<Candidate> confident_;
  std::vector<Candidate> weak_;
  std::vector<Pairing> track_state_;  // per track, counting its pairs in both groups
  std::vector<Pairing> box_state_;    // per box, likewise
  std::vector<uint32_t> box_ids_;     // per box that continued or started a track, its id
  size_t continued_ = 0;              // the boxes that continued a track
  std::vector<uint32_t> born_;        // the boxes that started one, in box order
};

}  // namespace dva
}  // namespace mirvane

#endif  // MIRVANE_TRACKING_GREEDY_TRACKER_H
