// The greedy tracker of one class: births, continuation, the distance gate, the order in which
// confident and weak boxes are matched, and expiry on the steady clock.
#include "tracking/greedy_tracker.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "testing/manual_clock.h"

namespace mirvane {
namespace dva {
namespace {

using std::chrono::milliseconds;
using testing::ManualClock;
using Ids = std::vector<uint32_t>;
using IdSet = std::unordered_set<uint32_t>;

constexpr float kThreshold = 0.6f;
constexpr float kStrong = 0.9f;
constexpr float kWeak = 0.3f;

TrackedObject Rect(float xmin, float ymin, float xmax, float ymax, float score = 0) {
  return TrackedObject{score, xmin, ymin, xmax, ymax, 0, 0, 0, 0, 0, 0, 0};
}

// A square box of side `size` centred on (cx, cy), in pixels, without motion offset.
TrackedObject Square(float cx, float cy, float size, float score) {
  return Rect(cx - size / 2, cy - size / 2, cx + size / 2, cy + size / 2, score);
}

// A tracker with an id counter of its own and a clock moved by hand.
struct Rig {
  std::vector<TrackedObject> Frame(const std::vector<TrackedObject>& boxes) {
    std::vector<float> scores;
    for (const TrackedObject& box : boxes) scores.push_back(box.score);
    return tracker.Update(boxes, scores);
  }
  Ids FrameIds(const std::vector<TrackedObject>& boxes) {
    Ids ids;
    for (const TrackedObject& object : Frame(boxes)) ids.push_back(object.tracking_id);
    return ids;
  }

  uint32_t next_id = 0;
  ManualClock clock;
  GreedyTracker tracker{&next_id, kThreshold, clock.Source()};
};

// Frames of one track, id 0, of a 20 px box at (100, 100) seen 40 ms before: what comes out, as
// "id:xmin", continued tracks first, then births in box order; each is the input box unchanged
// but for its id.
TEST(GreedyTracker, ContinuesByDistanceConfidenceAndOffsetAndStartsOnlyConfidentBoxes) {
  TrackedObject moved_back = Square(130, 100, 20, kStrong);  // 900 > area 400 without offset
  moved_back.offset_x = -30;
  moved_back.reserved = 77;
  moved_back.age_ms = 12345;
  const struct {
    const char* name;
    std::vector<TrackedObject> boxes;
    const char* out;
  } cases[] = {
      {"moved back by its offset", {moved_back}, "0:120 offset -30 reserved 77 age 12345"},
      {"the same jump without offset", {Square(130, 100, 20, kStrong)}, "1:120"},
      {"weak box near", {Square(104, 100, 20, kWeak)}, "0:94"},
      {"box at the threshold near, weak", {Square(108, 100, 20, kThreshold)}, "0:98"},
      {"weak box far", {Square(400, 400, 20, kWeak)}, ""},
      {"box at the threshold far", {Square(400, 400, 20, kThreshold)}, ""},
      {"confident beats a nearer weak box",
       {Square(100, 100, 20, kWeak), Square(110, 100, 20, kStrong)},
       "0:100"},
      {"nearer confident continues",
       {Square(112, 100, 20, kStrong), Square(103, 100, 20, kStrong)},
       "0:93 1:102"},
      {"births in box order",
       {Square(300, 100, 20, kStrong), Square(500, 100, 20, 0.7f), Square(100, 100, 20, kStrong)},
       "0:90 1:290 2:490"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Rig rig;
    rig.Frame({Square(100, 100, 20, kStrong)});
    rig.clock.Advance(milliseconds(40));
    std::string out;
    size_t births = 0;
    for (const TrackedObject& o : rig.Frame(c.boxes)) {
      out += (out.empty() ? "" : " ") + std::to_string(o.tracking_id) + ":" +
             std::to_string(static_cast<int>(o.xmin));
      births += o.tracking_id != 0;
      if (o.reserved != 0) {  // the fields the tracker must copy through
        out += " offset " + std::to_string(static_cast<int>(o.offset_x)) + " reserved " +
               std::to_string(o.reserved) + " age " + std::to_string(o.age_ms);
      }
    }
    EXPECT_EQ(out, c.out);
    EXPECT_EQ(rig.next_id, 1 + births);
  }
}

TEST(GreedyTracker, UsesEachTrackAndEachBoxOnce) {
  Rig rig;
  rig.Frame({Square(100, 100, 40, kStrong), Square(120, 100, 40, kStrong)});
  // Both boxes are nearest to track 0; track 1 takes what is left.
  EXPECT_EQ(rig.FrameIds({Square(101, 100, 40, kStrong), Square(102, 100, 40, kStrong)}),
            (Ids{0, 1}));
  EXPECT_EQ(rig.next_id, 2u);
}

TEST(PairCost, IsTheSquaredCentreDistanceGatedAtTheSmallerArea) {
  TrackedObject moved = Rect(13, 14, 33, 34);  // centre (23, 24), moved back to (13, 10)
  moved.offset_x = -10;
  moved.offset_y = -14;
  const TrackedObject small = Rect(0, 0, 10, 10);  // area 100, centre (5, 5)
  const struct {
    TrackedObject track, box;
    float cost;
  } cases[] = {
      {Rect(0, 0, 20, 20), moved, 9.0f},
      {Rect(0, 0, 20, 20), Rect(0, 0, 20, 20), 0.0f},
      // 10 px apart, 100 = the smaller area: allowed, whichever box is the track.
      {small, Rect(-15, -25, 45, 35), 100.0f},
      {Rect(-15, -25, 45, 35), small, 100.0f},
      {small, Rect(-14.75f, -25, 45.25f, 35), kNoMatchCost},
      {Rect(-14.75f, -25, 45.25f, 35), small, kNoMatchCost},
      // dx 1, dy 6 against area 37: the root of 37 squared again rounds above 37.
      {Rect(0, 0, 37, 1), Rect(-30.5f, -43.5f, 69.5f, 56.5f), kNoMatchCost},
      // A zero-area box matches only on the same centre.
      {Rect(0, 0, 20, 20), Rect(10, 10, 10, 10), 0.0f},
      {Rect(0, 0, 20, 20), Rect(11, 10, 11, 10), kNoMatchCost},
  };
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    EXPECT_EQ(PairCost(cases[i].track, cases[i].box), cases[i].cost) << "case " << i;
  }
  const float cost = PairCost(Rect(0, 0, 38, 1), Rect(-30, -43.5f, 70, 56.5f));
  EXPECT_GT(cost, 37.0f);
  EXPECT_LT(cost, 37.001f);
}

TEST(GreedyTrackerExpiry, AnUnmatchedTrackIsKeptForHalfASecondAndDroppedOnceAfter) {
  Rig rig;
  rig.Frame({Square(100, 100, 20, kStrong), Square(300, 100, 20, kStrong)});
  rig.clock.Advance(milliseconds(400));
  EXPECT_TRUE(rig.Frame({}).empty());
  EXPECT_TRUE(rig.tracker.RemovedIds().empty());
  // Matched again after 0.4 s, which restarts its expiry; track 1 stays unmatched.
  EXPECT_EQ(rig.FrameIds({Square(100, 100, 20, kStrong)}), (Ids{0}));
  rig.clock.Advance(milliseconds(100));
  rig.Frame({});
  EXPECT_TRUE(rig.tracker.RemovedIds().empty());  // exactly 0.5 s
  rig.clock.Advance(std::chrono::nanoseconds(1));
  // Track 1 is stale and dropped by this update, track 0 (0.1 s old) is matched.
  EXPECT_EQ(rig.FrameIds({Square(100, 100, 20, kWeak)}), (Ids{0}));
  EXPECT_EQ(rig.tracker.RemovedIds(), (IdSet{1}));
  rig.clock.Advance(milliseconds(600));
  rig.Frame({});
  EXPECT_EQ(rig.tracker.RemovedIds(), (IdSet{0}));
  rig.Frame({});
  EXPECT_TRUE(rig.tracker.RemovedIds().empty());
  // Ids are not reused: a box at the old place starts a new track.
  EXPECT_EQ(rig.FrameIds({Square(100, 100, 20, kStrong)}), (Ids{2}));
}

TEST(Track, AgeIsTheWholeMillisecondsSinceTheFirstSightingAndExpiryFollowsTheLastOne) {
  ManualClock clock;
  GreedyTracker::Track track(7, clock.Now());
  TrackedObject record = Square(10, 10, 4, kStrong);
  record.tracking_id = 99;
  track.Update(record, clock.Now());
  EXPECT_EQ(track.Record().age_ms, 0);
  EXPECT_EQ(track.Record().tracking_id, 7u);
  clock.Advance(std::chrono::microseconds(1999));
  track.Update(Square(12, 10, 4, kStrong), clock.Now());
  EXPECT_EQ(track.Record().age_ms, 1);
  EXPECT_FALSE(track.IsExpired(clock.Now() + kTrackExpiry));
  EXPECT_TRUE(track.IsExpired(clock.Now() + kTrackExpiry + std::chrono::nanoseconds(1)));
}

}  // namespace
}  // namespace dva
}  // namespace mirvane
