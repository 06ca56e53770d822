// The greedy tracker of one class: births, continuation, the distance gate, the order in which
// confident and weak boxes are matched, and expiry on the steady clock.
#include "tracking/greedy_tracker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "testing/manual_clock.h"

namespace mirvane {
namespace dva {
namespace {

using std::chrono::milliseconds;
using testing::ManualClock;

constexpr float kThreshold = 0.6f;
constexpr float kStrong = 0.9f;
constexpr float kWeak = 0.3f;

// A square box of side `size` centred on (cx, cy), in pixels, without motion offset.
TrackedObject Square(float cx, float cy, float size, float score) {
  TrackedObject box;
  box.score = score;
  box.xmin = cx - size / 2;
  box.xmax = cx + size / 2;
  box.ymin = cy - size / 2;
  box.ymax = cy + size / 2;
  return box;
}

TrackedObject Rect(float xmin, float ymin, float xmax, float ymax) {
  TrackedObject box;
  box.xmin = xmin;
  box.ymin = ymin;
  box.xmax = xmax;
  box.ymax = ymax;
  return box;
}

std::vector<float> ScoresOf(const std::vector<TrackedObject>& boxes) {
  std::vector<float> scores;
  for (const TrackedObject& box : boxes) scores.push_back(box.score);
  return scores;
}

std::vector<TrackedObject> Step(GreedyTracker* tracker, const std::vector<TrackedObject>& boxes) {
  return tracker->Update(boxes, ScoresOf(boxes));
}

std::vector<uint32_t> IdsOf(const std::vector<TrackedObject>& objects) {
  std::vector<uint32_t> ids;
  for (const TrackedObject& object : objects) ids.push_back(object.tracking_id);
  return ids;
}

using Ids = std::vector<uint32_t>;
using IdSet = std::unordered_set<uint32_t>;

// A tracker with an id counter of its own and a clock moved by hand.
struct Rig {
  explicit Rig(uint32_t first_id = 0) : next_id(first_id) {}
  Rig(const Rig&) = delete;
  Rig& operator=(const Rig&) = delete;

  std::vector<TrackedObject> Frame(const std::vector<TrackedObject>& boxes) {
    return Step(&tracker, boxes);
  }
  Ids FrameIds(const std::vector<TrackedObject>& boxes) { return IdsOf(Frame(boxes)); }

  uint32_t next_id;
  ManualClock clock;
  GreedyTracker tracker{&next_id, kThreshold, clock.Source()};
};

// A rig whose tracker holds one track, id 0, of a 20 px box at (100, 100), seen 40 ms ago.
void StartOneTrack(Rig* rig) {
  rig->Frame({Square(100, 100, 20, kStrong)});
  rig->clock.Advance(milliseconds(40));
}

TEST(GreedyTrackerBirth, ConfidentBoxesStartTracksInBoxOrderFromTheSharedCounter) {
  Rig rig(5);
  const std::vector<TrackedObject> boxes = {
      Square(100, 100, 20, kStrong), Square(300, 100, 20, 0.7f), Square(500, 100, 20, kStrong)};
  const std::vector<TrackedObject> out = rig.Frame(boxes);
  EXPECT_EQ(IdsOf(out), (Ids{5, 6, 7}));
  EXPECT_EQ(rig.next_id, 8u);
  ASSERT_EQ(out.size(), 3u);
  EXPECT_EQ(out[1].xmin, boxes[1].xmin);
}

TEST(GreedyTrackerBirth, BoxesAtOrBelowTheThresholdStartNothing) {
  Rig rig;
  EXPECT_TRUE(rig.Frame({Square(100, 100, 20, kThreshold), Square(300, 100, 20, kWeak)}).empty());
  EXPECT_EQ(rig.next_id, 0u);
  // Nothing was kept either: a confident box at the same place is a new track.
  EXPECT_EQ(rig.FrameIds({Square(100, 100, 20, kStrong)}), (Ids{0}));
}

TEST(GreedyTrackerMatch, ABoxMovedBackByItsOffsetContinuesTheTrack) {
  Rig rig;
  StartOneTrack(&rig);
  // 30 px away (900 > area 400), but the offset says it came from the track's place.
  TrackedObject moved = Square(130, 100, 20, kStrong);
  moved.offset_x = -30;
  moved.reserved = 77;
  moved.age_ms = 12345;
  const std::vector<TrackedObject> out = rig.Frame({moved});
  ASSERT_EQ(IdsOf(out), (Ids{0}));
  // The output is the input box, unchanged but for the id.
  EXPECT_EQ(out[0].xmin, moved.xmin);
  EXPECT_EQ(out[0].offset_x, moved.offset_x);
  EXPECT_EQ(out[0].reserved, 77u);
  EXPECT_EQ(out[0].age_ms, 12345);

  // The same jump without the offset is too far: a new track.
  rig.clock.Advance(milliseconds(40));
  EXPECT_EQ(rig.FrameIds({Square(160, 100, 20, kStrong)}), (Ids{1}));
}

TEST(GreedyTrackerMatch, AWeakBoxContinuesATrackButNeverStartsOne) {
  Rig rig;
  StartOneTrack(&rig);
  EXPECT_EQ(rig.FrameIds({Square(104, 100, 20, kWeak)}), (Ids{0}));
  rig.clock.Advance(milliseconds(40));
  // At exactly the threshold a box is weak as well.
  EXPECT_EQ(rig.FrameIds({Square(108, 100, 20, kThreshold)}), (Ids{0}));
  rig.clock.Advance(milliseconds(40));
  EXPECT_TRUE(rig.Frame({Square(400, 400, 20, kWeak)}).empty());
  EXPECT_EQ(rig.next_id, 1u);
}

TEST(GreedyTrackerMatch, AConfidentBoxWinsOverANearerWeakOne) {
  Rig rig;
  StartOneTrack(&rig);
  const TrackedObject weak_on_top = Square(100, 100, 20, kWeak);
  const TrackedObject strong_beside = Square(110, 100, 20, kStrong);
  const std::vector<TrackedObject> out = rig.Frame({weak_on_top, strong_beside});
  // The weak box found nothing left to continue and could not start a track.
  ASSERT_EQ(IdsOf(out), (Ids{0}));
  EXPECT_EQ(out[0].xmin, strong_beside.xmin);
}

TEST(GreedyTrackerMatch, AmongConfidentBoxesTheNearerContinuesAndTheOtherIsBorn) {
  Rig rig;
  StartOneTrack(&rig);
  const std::vector<TrackedObject> out =
      rig.Frame({Square(112, 100, 20, kStrong), Square(103, 100, 20, kStrong)});
  // Continued boxes come first, then births.
  ASSERT_EQ(IdsOf(out), (Ids{0, 1}));
  EXPECT_EQ(out[0].xmin, 93.0f);
}

TEST(GreedyTrackerMatch, EachTrackAndEachBoxIsUsedOnce) {
  Rig rig;
  rig.Frame({Square(100, 100, 40, kStrong), Square(120, 100, 40, kStrong)});
  rig.clock.Advance(milliseconds(40));
  // Both boxes are nearest to track 0; track 1 takes what is left.
  EXPECT_EQ(rig.FrameIds({Square(101, 100, 40, kStrong), Square(102, 100, 40, kStrong)}),
            (Ids{0, 1}));
  EXPECT_EQ(rig.next_id, 2u);
}

TEST(PairCost, IsTheSquaredCentreDistanceAfterTheOffset) {
  const TrackedObject track = Rect(0, 0, 20, 20);  // centre (10, 10)
  TrackedObject box = Rect(13, 14, 33, 34);        // centre (23, 24)
  box.offset_x = -10;                              // moved back to (13, 10)
  box.offset_y = -14;
  EXPECT_EQ(PairCost(track, box), 9.0f);
  EXPECT_EQ(PairCost(track, Rect(0, 0, 20, 20)), 0.0f);
}

TEST(PairCost, AllowsDistancesUpToTheSmallerAreaExactly) {
  const TrackedObject small = Rect(0, 0, 10, 10);  // area 100, centre (5, 5)
  // Centre 10 px to the right (distance squared 100 = the small box's area): allowed.
  EXPECT_EQ(PairCost(small, Rect(-15, -25, 45, 35)), 100.0f);
  EXPECT_EQ(PairCost(Rect(-15, -25, 45, 35), small), 100.0f);
  // A little further: refused, whichever box is the track.
  EXPECT_EQ(PairCost(small, Rect(-14.75f, -25, 45.25f, 35)), kNoMatchCost);
  EXPECT_EQ(PairCost(Rect(-14.75f, -25, 45.25f, 35), small), kNoMatchCost);
}

TEST(PairCost, GatesOnTheRootSquaredAgain) {
  // Track 37 x 1 (area 37), centre (18.5, 0.5); the new box's centre is (19.5, 6.5): dx 1, dy 6.
  // 1 + 36 is 37 exactly, but the root of 37 squared again rounds above 37 in single precision.
  const TrackedObject big = Rect(-30.5f, -43.5f, 69.5f, 56.5f);
  EXPECT_EQ(PairCost(Rect(0, 0, 37, 1), big), kNoMatchCost);
  const float cost = PairCost(Rect(0, 0, 38, 1), Rect(-30, -43.5f, 70, 56.5f));
  EXPECT_GT(cost, 37.0f);
  EXPECT_LT(cost, 37.001f);
}

TEST(PairCost, AZeroAreaBoxMatchesOnlyOnTheSameCentre) {
  const TrackedObject track = Rect(0, 0, 20, 20);
  EXPECT_EQ(PairCost(track, Rect(10, 10, 10, 10)), 0.0f);
  EXPECT_EQ(PairCost(track, Rect(11, 10, 11, 10)), kNoMatchCost);
}

TEST(GreedyTrackerExpiry, AnUnmatchedTrackIsKeptForHalfASecondAndDroppedAfter) {
  Rig rig;
  rig.Frame({Square(100, 100, 20, kStrong)});

  rig.clock.Advance(milliseconds(400));
  EXPECT_TRUE(rig.Frame({}).empty());
  EXPECT_TRUE(rig.tracker.RemovedIds().empty());
  // Matched again under its id after 0.4 s, which also restarts its expiry.
  rig.clock.Advance(milliseconds(1));
  EXPECT_EQ(rig.FrameIds({Square(100, 100, 20, kStrong)}), (Ids{0}));

  rig.clock.Advance(milliseconds(600));
  rig.Frame({});
  EXPECT_EQ(rig.tracker.RemovedIds(), (IdSet{0}));
  rig.Frame({});
  EXPECT_TRUE(rig.tracker.RemovedIds().empty());
  // The id is not reused: a box at the old place starts a new track.
  EXPECT_EQ(rig.FrameIds({Square(100, 100, 20, kStrong)}), (Ids{1}));
}

TEST(GreedyTrackerExpiry, ExactlyHalfASecondIsNotYetStale) {
  Rig rig;
  rig.Frame({Square(100, 100, 20, kStrong)});
  rig.clock.Advance(kTrackExpiry);
  rig.Frame({});
  EXPECT_TRUE(rig.tracker.RemovedIds().empty());
  rig.clock.Advance(std::chrono::nanoseconds(1));
  rig.Frame({});
  EXPECT_EQ(rig.tracker.RemovedIds(), (IdSet{0}));
}

TEST(GreedyTrackerExpiry, AStaleTrackIsDroppedOnlyByTheNextUpdate) {
  Rig rig;
  rig.Frame({Square(100, 100, 20, kStrong), Square(300, 100, 20, kStrong)});
  rig.clock.Advance(std::chrono::seconds(10));
  // Track 1 is matched after the long pause; track 0 is stale and dropped in the same call.
  EXPECT_EQ(rig.FrameIds({Square(300, 100, 20, kWeak)}), (Ids{1}));
  EXPECT_EQ(rig.tracker.RemovedIds(), (IdSet{0}));
}

// A tracker whose tracks never expire, through the track-making hook.
class KeepingTracker : public GreedyTracker {
 public:
  using GreedyTracker::GreedyTracker;

 protected:
  Track CreateTrack(uint32_t id, const TrackedObject& record) override {
    Track track(id, Now(), false);
    track.Update(record, Now());
    return track;
  }
};

TEST(GreedyTrackerExpiry, ATrackWithAFixedAnswerIgnoresTheClock) {
  uint32_t next_id = 0;
  ManualClock clock;
  KeepingTracker tracker(&next_id, kThreshold, clock.Source());
  Step(&tracker, {Square(100, 100, 20, kStrong)});
  clock.Advance(std::chrono::hours(1));
  Step(&tracker, {});
  EXPECT_TRUE(tracker.RemovedIds().empty());
  EXPECT_EQ(IdsOf(Step(&tracker, {Square(100, 100, 20, kWeak)})), (Ids{0}));
}

TEST(Track, AgeIsTheWholeMillisecondsSinceTheFirstSighting) {
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
  EXPECT_EQ(track.Box().xmin, 10.0f);
  EXPECT_EQ(track.Id(), 7u);
  EXPECT_FALSE(track.IsExpired(clock.Now() + kTrackExpiry));
  EXPECT_TRUE(track.IsExpired(clock.Now() + kTrackExpiry + std::chrono::nanoseconds(1)));
}

// Random scenes: objects in lanes far enough apart that no box can reach another lane, moving
// back and forth at their own speeds (slow enough to be found again after a gap), now and then
// weak or missing for a few frames. Every
// object must keep one id for the whole scene and no two objects may share one.
struct SceneObject {
  float x;
  float y;
  float size;
  float speed;
};

void CheckSceneKeepsIdentities(unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  constexpr int kObjects = 8;
  constexpr float kLane = 100.0f;
  constexpr float kWidth = 1280.0f;
  std::vector<SceneObject> objects;
  for (int i = 0; i < kObjects; ++i) {
    const float size = 30.0f + 30.0f * unit(random);
    objects.push_back(SceneObject{size + (kWidth - 2 * size) * unit(random), 50.0f + kLane * i,
                                  size, (unit(random) - 0.5f) * 0.3f * size});
  }

  uint32_t next_id = 0;
  ManualClock clock;
  GreedyTracker tracker(&next_id, kThreshold, clock.Source());
  std::map<int, uint32_t> id_of;
  std::vector<int> missing_frames(kObjects, 0);
  std::vector<bool> shown_last(kObjects, false);
  for (int frame = 0; frame < 300; ++frame) {
    std::vector<TrackedObject> boxes;
    std::vector<int> object_of_box;
    for (int i = 0; i < kObjects; ++i) {
      SceneObject& object = objects[i];
      const float before = object.x;
      object.x += object.speed;
      if (object.x < object.size || object.x > kWidth - object.size) {
        object.speed = -object.speed;
        object.x = before + object.speed;
      }
      // Gaps of five frames (0.2 s), each after at least one frame seen.
      if (shown_last[i] && unit(random) < 0.03f) missing_frames[i] = 5;
      shown_last[i] = missing_frames[i] == 0;
      if (missing_frames[i] > 0) {
        --missing_frames[i];
        continue;
      }
      const float score = frame > 0 && unit(random) < 0.2f ? kWeak : kStrong;
      TrackedObject box =
          Square(object.x, object.y + 4 * (unit(random) - 0.5f), object.size, score);
      box.offset_x = before - object.x + 2 * (unit(random) - 0.5f);
      boxes.push_back(box);
      object_of_box.push_back(i);
    }
    // The boxes of a frame arrive in no particular order.
    std::vector<size_t> order(boxes.size());
    for (size_t k = 0; k < order.size(); ++k) order[k] = k;
    std::shuffle(order.begin(), order.end(), random);
    std::vector<TrackedObject> shuffled;
    for (size_t k : order) shuffled.push_back(boxes[k]);

    for (const TrackedObject& out : Step(&tracker, shuffled)) {
      size_t k = 0;
      while (shuffled[k].xmin != out.xmin || shuffled[k].ymin != out.ymin) ++k;
      const int object = object_of_box[order[k]];
      auto known = id_of.emplace(object, out.tracking_id);
      ASSERT_EQ(known.first->second, out.tracking_id)
          << "seed " << seed << " frame " << frame << " object " << object;
    }
    EXPECT_TRUE(tracker.RemovedIds().empty()) << "seed " << seed << " frame " << frame;
    clock.Advance(milliseconds(40));
  }
  std::set<uint32_t> distinct;
  for (const auto& entry : id_of) distinct.insert(entry.second);
  EXPECT_EQ(id_of.size(), static_cast<size_t>(kObjects));
  EXPECT_EQ(distinct.size(), id_of.size()) << "seed " << seed;
}

TEST(GreedyTrackerScenes, MovingSeparateObjectsKeepOneIdEach) {
  for (unsigned seed : {1u, 7u, 42u, 1234u, 99991u}) CheckSceneKeepsIdentities(seed);
}

}  // namespace
}  // namespace dva
}  // namespace mirvane
