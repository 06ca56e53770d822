// The tracker's association and the people and vehicle rule's box coverage, against
// straightforward versions written here from their definitions, on random scenes: the fast paths
// (the gate's search grid, pairs taken without sorting, the early end of the coverage count, whole
// rows at once) must give the very same answers, bit for bit, frame after frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "common/detection_region.h"
#include "common/geometry.h"
#include "testing/manual_clock.h"
#include "tracking/greedy_tracker.h"

namespace mirvane {
namespace {

using dva::Box;
using dva::Point;
using dva::Polygon;
using std::chrono::milliseconds;

constexpr float kThreshold = 0.6f;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

// The greedy association as defined: every pair costed into a matrix, the pairs of confident
// boxes then those of weak ones each sorted by cost (ties by track, then box), taken while both
// ends are free; stale unmatched tracks dropped; unmatched confident boxes born.
class StraightforwardTracker {
 public:
  StraightforwardTracker(uint32_t* next_id, float threshold)
      : next_id_(next_id), threshold_(threshold) {}

  std::vector<TrackedObject> Update(const std::vector<TrackedObject>& boxes,
                                    const std::vector<float>& scores, dva::SteadyTimePoint now) {
    std::vector<uint32_t> ids;
    for (const auto& entry : tracks_) ids.push_back(entry.first);
    const size_t track_count = ids.size();
    const size_t box_count = boxes.size();
    std::vector<float> cost(track_count * box_count);
    for (size_t t = 0; t < track_count; ++t) {
      for (size_t d = 0; d < box_count; ++d) {
        cost[t * box_count + d] = Cost(tracks_.at(ids[t]).record, boxes[d]);
      }
    }
    std::vector<size_t> confident;
    std::vector<size_t> weak;
    for (size_t k = 0; k < cost.size(); ++k) {
      if (!(cost[k] < 1e9f)) continue;  // never matched, not-a-number included
      (scores[k % box_count] > threshold_ ? confident : weak).push_back(k);
    }
    auto cheaper = [&cost](size_t a, size_t b) {
      return cost[a] != cost[b] ? cost[a] < cost[b] : a < b;
    };
    std::sort(confident.begin(), confident.end(), cheaper);
    std::sort(weak.begin(), weak.end(), cheaper);

    std::vector<bool> track_taken(track_count, false);
    std::vector<int> fate(box_count, 0);  // 0 unmatched, 1 continued, 2 born
    std::vector<uint32_t> box_ids(box_count, 0);
    for (const std::vector<size_t>* group : {&confident, &weak}) {
      for (size_t k : *group) {
        const size_t t = k / box_count;
        const size_t d = k % box_count;
        if (track_taken[t] || fate[d] != 0) continue;
        track_taken[t] = true;
        fate[d] = 1;
        Track& track = tracks_.at(ids[t]);
        track.record = boxes[d];
        track.last_seen = now;
        box_ids[d] = ids[t];
      }
    }
    removed_.clear();
    for (size_t t = 0; t < track_count; ++t) {
      if (track_taken[t]) continue;
      if (now - tracks_.at(ids[t]).last_seen > dva::kTrackExpiry) {
        tracks_.erase(ids[t]);
        removed_.insert(ids[t]);
      }
    }
    for (size_t d = 0; d < box_count; ++d) {
      if (fate[d] != 0 || !(scores[d] > threshold_)) continue;
      const uint32_t id = (*next_id_)++;
      fate[d] = 2;
      box_ids[d] = id;
      tracks_.emplace(id, Track{boxes[d], now});
    }
    std::vector<TrackedObject> out;
    for (int wanted : {1, 2}) {
      for (size_t d = 0; d < box_count; ++d) {
        if (fate[d] != wanted) continue;
        out.push_back(boxes[d]);
        out.back().tracking_id = box_ids[d];
      }
    }
    return out;
  }

  const std::unordered_set<uint32_t>& removed() const { return removed_; }

 private:
  struct Track {
    TrackedObject record;
    dva::SteadyTimePoint last_seen;
  };

  static float Cost(const TrackedObject& track, const TrackedObject& box) {
    const float dx =
        (track.xmin + track.xmax) * 0.5f - (box.offset_x + (box.xmin + box.xmax) * 0.5f);
    const float dy =
        (track.ymin + track.ymax) * 0.5f - (box.offset_y + (box.ymin + box.ymax) * 0.5f);
    const float dist = std::sqrt(dx * dx + dy * dy);
    const float dist2 = dist * dist;
    if ((track.xmax - track.xmin) * (track.ymax - track.ymin) < dist2) return 1e9f;
    if ((box.xmax - box.xmin) * (box.ymax - box.ymin) < dist2) return 1e9f;
    return dist2;
  }

  uint32_t* next_id_;
  float threshold_;
  std::unordered_map<uint32_t, Track> tracks_;
  std::unordered_set<uint32_t> removed_;
};

// Bit-for-bit equality of two records (not-a-number fields included).
bool SameRecord(const TrackedObject& a, const TrackedObject& b) {
  const float fa[] = {a.score, a.xmin, a.ymin, a.xmax, a.ymax, a.offset_x, a.offset_y};
  const float fb[] = {b.score, b.xmin, b.ymin, b.xmax, b.ymax, b.offset_x, b.offset_y};
  return std::memcmp(fa, fb, sizeof(fa)) == 0 && a.class_id == b.class_id && a.time == b.time &&
         a.tracking_id == b.tracking_id && a.reserved == b.reserved && a.age_ms == b.age_ms;
}

// Random frames of one class in pixels: objects that drift and are seen again (with the model's
// offset back to their last position), exact duplicates (equal costs), clusters where many pairs
// pass the gate, strays, and now and then a degenerate box (zero or negative size, not-a-number
// or infinite corners, a finite centre with an infinite or not-a-number area). Scores confident,
// weak, or exactly the threshold. Now and then a crowded frame (a few hundred boxes), or a frame
// whose boxes all have one centre height, or one centre x (a flat grid of the boxes).
class SceneMaker {
 public:
  explicit SceneMaker(uint32_t seed) : random_(seed) {}

  void Frame(std::vector<TrackedObject>* boxes, std::vector<float>* scores) {
    boxes->clear();
    scores->clear();
    const int layout = Uniform(0, 9);  // 7: crowded, 8: one centre height, 9: one centre x
    const int objects = layout == 7 ? Uniform(150, 300) : Uniform(0, 70);
    for (int n = 0; n < objects; ++n) {
      TrackedObject box;
      const int kind = Uniform(0, 19);
      const float cx = kind < 12 ? Real(0, 1920) : Real(900, 1000);  // some crowd one spot
      const float cy = kind < 12 ? Real(0, 1080) : Real(500, 560);
      const float w = Real(1, 300);
      const float h = Real(1, 300);
      box.xmin = cx - w / 2;
      box.xmax = cx + w / 2;
      box.ymin = cy - h / 2;
      box.ymax = cy + h / 2;
      box.offset_x = Real(-20, 20);
      box.offset_y = Real(-20, 20);
      if (kind == 18) {  // degenerate
        const float odd[] = {kNaN, kInf, -kInf, 0.0f};
        (Uniform(0, 1) ? box.xmax : box.ymin) = odd[Uniform(0, 3)];
        if (Uniform(0, 2) == 0) {  // centre x 0 and an infinite width: an infinite area
          box.xmin = -3e38f;
          box.xmax = 3e38f;
          box.ymin = cy - h / 2;
          box.ymax = cy + h / 2;
          if (Uniform(0, 1) == 0) box.ymin = box.ymax = cy;  // zero height: not a number
        }
      } else if (kind == 19) {
        box.xmax = box.xmin - Real(0, 5);  // zero or negative width
      }
      if (!boxes->empty() && Uniform(0, 9) == 0)
        box = (*boxes)[static_cast<size_t>(Uniform(0, static_cast<int>(boxes->size()) - 1))];
      box.class_id = 2;
      box.time = frame_;
      const float score_choices[] = {0.9f, kThreshold, 0.3f, Real(0, 1)};
      box.score = score_choices[Uniform(0, 3)];
      boxes->push_back(box);
      scores->push_back(box.score);
    }
    // Half of the objects of the frame before come back, moved a little.
    for (const TrackedObject& last : last_) {
      if (Uniform(0, 1) == 0) continue;
      TrackedObject box = last;
      const float dx = Real(-15, 15);
      const float dy = Real(-15, 15);
      box.xmin += dx;
      box.xmax += dx;
      box.ymin += dy;
      box.ymax += dy;
      // The model's offset back to the last position, off by up to the box's size.
      const float size = std::fabs(box.xmax - box.xmin) + std::fabs(box.ymax - box.ymin);
      box.offset_x = -dx + Real(-0.5f, 0.5f) * size;
      box.offset_y = -dy + Real(-0.5f, 0.5f) * size;
      box.time = frame_;
      boxes->push_back(box);
      scores->push_back(box.score);
    }
    // Squares on whole pixels that come back next frame moved by exactly their side, without
    // offset: a squared distance equal to the area, the gate's very edge.
    for (const TrackedObject& square : edge_) {
      TrackedObject box = square;
      const float side = box.xmax - box.xmin;
      box.xmin += side;
      box.xmax += side;
      box.time = frame_;
      boxes->push_back(box);
      scores->push_back(box.score);
    }
    edge_.clear();
    for (int n = Uniform(0, 3); n > 0; --n) {
      TrackedObject square;
      const float side = static_cast<float>(Uniform(1, 200));
      square.xmin = static_cast<float>(Uniform(0, 1700));
      square.ymin = static_cast<float>(Uniform(0, 900));
      square.xmax = square.xmin + side;
      square.ymax = square.ymin + side;
      square.class_id = 2;
      square.time = frame_;
      square.score = 0.9f;
      boxes->push_back(square);
      scores->push_back(square.score);
      edge_.push_back(square);
    }
    if (layout == 8 || layout == 9) {
      // Whole-pixel sizes about a whole-pixel centre: every centre is exactly the same.
      for (TrackedObject& box : *boxes) {
        float& low = layout == 8 ? box.ymin : box.xmin;
        float& high = layout == 8 ? box.ymax : box.xmax;
        float& offset = layout == 8 ? box.offset_y : box.offset_x;
        const float half = static_cast<float>(Uniform(1, 150));
        low = 540.0f - half;
        high = 540.0f + half;
        offset = 0.0f;
      }
    }
    last_ = *boxes;
    ++frame_;
  }

  milliseconds Step() { return milliseconds(Uniform(0, 9) == 0 ? Uniform(400, 700) : 40); }

 private:
  int Uniform(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }
  float Real(float low, float high) {
    return std::uniform_real_distribution<float>(low, high)(random_);
  }

  std::mt19937 random_;
  std::vector<TrackedObject> last_;
  std::vector<TrackedObject> edge_;
  uint64_t frame_ = 0;
};

TEST(GreedyTrackerEquivalence, MatchesTheStraightforwardAssociationOnRandomScenes) {
  for (uint32_t seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    testing::ManualClock clock;
    uint32_t fast_next = 0;
    uint32_t plain_next = 0;
    dva::GreedyTracker fast(&fast_next, kThreshold, clock.Source());
    StraightforwardTracker plain(&plain_next, kThreshold);
    SceneMaker scene(seed);
    std::vector<TrackedObject> boxes;
    std::vector<float> scores;
    for (int frame = 0; frame < 60; ++frame) {
      SCOPED_TRACE(frame);
      scene.Frame(&boxes, &scores);
      const std::vector<TrackedObject> got = fast.Update(boxes, scores);
      const std::vector<TrackedObject> want = plain.Update(boxes, scores, clock.Now());
      ASSERT_EQ(got.size(), want.size());
      for (size_t i = 0; i < got.size(); ++i) ASSERT_TRUE(SameRecord(got[i], want[i])) << i;
      ASSERT_EQ(fast.RemovedIds(), plain.removed());
      ASSERT_EQ(fast_next, plain_next);
      clock.Advance(scene.Step());
    }
  }
}

// The coverage as defined: all divisions x divisions samples counted, then the share compared.
bool StraightforwardCoverage(const Polygon& polygon, const Box& box, int divisions,
                             float min_ratio) {
  const float step_x = (box.xmax - box.xmin) / static_cast<float>(divisions);
  const float step_y = (box.ymax - box.ymin) / static_cast<float>(divisions);
  int count = 0;
  for (int row = 0; row < divisions; ++row) {
    for (int col = 0; col < divisions; ++col) {
      const Point p{box.xmin + (static_cast<float>(col) + 0.5f) * step_x,
                    box.ymin + (static_cast<float>(row) + 0.5f) * step_y};
      if (dva::PolygonContains(polygon, p)) ++count;
    }
  }
  const float n = static_cast<float>(divisions);
  return static_cast<float>(count) / n / n >= min_ratio;
}

TEST(PolygonCoversBoxEquivalence, MatchesCountingEverySampleOnRandomShapes) {
  std::mt19937 random(7);
  auto real = [&random](float low, float high) {
    return std::uniform_real_distribution<float>(low, high)(random);
  };
  auto pick = [&random](int count) {
    return std::uniform_int_distribution<int>(0, count - 1)(random);
  };
  const float ratios[] = {0.1f, 0.0f, 0.5f, 1.0f, 0.0101f, -1.0f, 2.0f, kNaN};
  const int divisions[] = {10, 10, 10, 4, 8, 1, 3, 0, -2};
  int covered = 0;
  for (int n = 0; n < 4000; ++n) {
    Polygon polygon;
    const int points = pick(12);  // none to eleven: empty, degenerate, self-crossing shapes
    if (pick(3) == 0) {
      // Axis-parallel edges on the sample positions of a whole-frame box of 4 or 8 divisions:
      // crossings equal to the first, the last or an inner sample.
      const float eighths[] = {0.0625f, 0.125f, 0.375f, 0.625f, 0.875f, 0.9375f, 0.5f};
      const float left = eighths[pick(7)];
      const float right = eighths[pick(7)];
      polygon = {{left, -0.5f}, {right, -0.5f}, {right, 1.5f}, {left, 1.5f}};
    } else {
      for (int k = 0; k < points; ++k) {
        polygon.push_back(Point{real(-0.2f, 1.2f), real(-0.2f, 1.2f)});
      }
    }
    Box box;
    if (pick(3) == 0) {
      box = pick(2) ? Box{0.0f, 0.0f, 1.0f, 1.0f} : Box{1.0f, 1.0f, 0.0f, 0.0f};
    } else {
      box.xmin = real(-0.2f, 1.0f);
      box.ymin = real(-0.2f, 1.0f);
      box.xmax = box.xmin + real(-0.1f, 0.8f);  // now and then inverted
      box.ymax = box.ymin + real(-0.1f, 0.8f);
      if (pick(50) == 0) box.xmax = pick(2) ? kNaN : kInf;
    }
    const int division = divisions[pick(9)];
    const float ratio = ratios[pick(8)];
    const bool want = StraightforwardCoverage(polygon, box, division, ratio);
    ASSERT_EQ(dva::PolygonCoversBox(polygon, box, division, ratio), want)
        << "case " << n << " points " << polygon.size() << " divisions " << division << " ratio "
        << ratio;
    for (int type : {dva::DetectionRegion::kInclusion, dva::DetectionRegion::kExclusion}) {
      const dva::DetectionRegion region(type, {polygon});
      ASSERT_EQ(region.AdmitsBox(box, division, ratio),
                type == dva::DetectionRegion::kInclusion ? want : !want);
    }
    covered += want ? 1 : 0;
  }
  // The scenes reach both answers often.
  EXPECT_GT(covered, 400);
  EXPECT_LT(covered, 3600);
}

}  // namespace
}  // namespace mirvane
