// The detection tracker: per-class tracking with ids unique over all classes, the conversion
// between normalised and pixel coordinates, class ids, removed ids and the class-count check.
#include "bin/obj_detect_tracker.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "testing/child_process.h"
#include "testing/manual_clock.h"

namespace mirvane {
namespace dva {
namespace {

using std::chrono::milliseconds;
using testing::ManualClock;

constexpr float kThreshold = 0.6f;
constexpr int kWidth = 640;
constexpr int kHeight = 360;

// A square detection of normalised side 0.0625 centred on (cx, cy), without motion offset.
Detection At(float cx, float cy, float score) {
  return Detection{score, cx - 0.03125f, cy - 0.03125f, cx + 0.03125f, cy + 0.03125f, 0, 0};
}

std::vector<uint32_t> IdsOf(const std::vector<TrackedObject>& objects) {
  std::vector<uint32_t> ids;
  for (const TrackedObject& object : objects) ids.push_back(object.tracking_id);
  return ids;
}

using Ids = std::vector<uint32_t>;
using IdSet = std::unordered_set<uint32_t>;

TEST(ObjDetectTracker, IdsAreSharedOverClassesInClassThenBoxOrderAndClassesTrackApart) {
  ManualClock clock;
  ObjDetectTracker tracker(4, kThreshold, clock.Source());
  const TrackResult result = tracker.Update({{At(0.25f, 0.5f, 0.9f), At(0.75f, 0.5f, 0.9f)},
                                             {At(0.25f, 0.5f, 0.9f)},
                                             {},
                                             {At(0.5f, 0.5f, 0.3f), At(0.5f, 0.25f, 0.7f)}},
                                            kWidth, kHeight, 1);
  ASSERT_EQ(result.objects.size(), 4u);
  EXPECT_EQ(IdsOf(result.objects[0]), (Ids{0, 1}));
  EXPECT_EQ(IdsOf(result.objects[1]), (Ids{2}));
  EXPECT_TRUE(result.objects[2].empty());
  EXPECT_EQ(IdsOf(result.objects[3]), (Ids{3}));
  // The same place in another class is another object.
  clock.Advance(milliseconds(40));
  EXPECT_EQ(
      IdsOf(tracker.Update({{}, {}, {At(0.25f, 0.5f, 0.9f)}, {}}, kWidth, kHeight, 2).objects[2]),
      (Ids{4}));

  // Each detection tracker has its own counter, starting at 0.
  ObjDetectTracker fresh(4, kThreshold, clock.Source());
  EXPECT_EQ(
      IdsOf(fresh.Update({{}, {At(0.5f, 0.5f, 0.9f)}, {}, {}}, kWidth, kHeight, 1).objects[1]),
      (Ids{0}));
}

TEST(ObjDetectTracker, OffsetsAreScaledToPixelsPerAxis) {
  ManualClock clock;
  ObjDetectTracker tracker(1, kThreshold, clock.Source());
  tracker.Update({{At(0.25f, 0.25f, 0.9f)}}, kWidth, kHeight, 1);
  clock.Advance(milliseconds(40));
  // Moved by 0.1 of the width and 0.1 of the height: 64 x 36 px, far more than the box's 40 x
  // 22.5 px. The offset brings it back only if each axis is scaled by its own size.
  Detection moved = At(0.35f, 0.35f, 0.9f);
  moved.track_dx = -0.1f;
  moved.track_dy = -0.1f;
  EXPECT_EQ(IdsOf(tracker.Update({{moved}}, kWidth, kHeight, 2).objects[0]), (Ids{0}));
}

TEST(ObjDetectTracker, ListsBeyondTheFourthGetClassIdZero) {
  ManualClock clock;
  ObjDetectTracker tracker(6, kThreshold, clock.Source());
  DetectionsPerClass detections(6, {At(0.5f, 0.5f, 0.9f)});
  const TrackResult result = tracker.Update(detections, kWidth, kHeight, 1);
  ASSERT_EQ(result.objects.size(), 6u);
  std::vector<int32_t> class_ids;
  for (const auto& list : result.objects) {
    ASSERT_EQ(list.size(), 1u);
    class_ids.push_back(list[0].class_id);
  }
  EXPECT_EQ(class_ids, (std::vector<int32_t>{1, 2, 3, 4, 0, 0}));
}

TEST(ObjDetectTracker, EmptyFramesStillAgeAndDropTracks) {
  ManualClock clock;
  ObjDetectTracker tracker(4, kThreshold, clock.Source());
  tracker.Update({{}, {At(0.25f, 0.5f, 0.9f)}, {At(0.75f, 0.5f, 0.9f)}, {}}, kWidth, kHeight, 1);

  clock.Advance(milliseconds(400));
  TrackResult result = tracker.Update({{}, {}, {}, {}}, kWidth, kHeight, 2);
  ASSERT_EQ(result.removed_ids.size(), 4u);
  for (const IdSet& removed : result.removed_ids) EXPECT_TRUE(removed.empty());

  clock.Advance(milliseconds(200));
  result = tracker.Update({{}, {}, {At(0.75f, 0.5f, 0.9f)}, {}}, kWidth, kHeight, 3);
  EXPECT_EQ(result.removed_ids, (std::vector<IdSet>{{}, {0}, {}, {}}));
  EXPECT_EQ(IdsOf(result.objects[2]), (Ids{1}));

  result = tracker.Update({{}, {}, {}, {}}, kWidth, kHeight, 4);
  EXPECT_EQ(result.removed_ids, (std::vector<IdSet>{{}, {}, {}, {}}));
}

TEST(ObjDetectTracker, AClassCountMismatchIsLoggedAndGivesAnEmptyResult) {
  const testing::ChildResult child = testing::RunInChild([] {
    ManualClock clock;
    ObjDetectTracker tracker(4, kThreshold, clock.Source());
    tracker.Update({{At(0.5f, 0.5f, 0.9f)}, {}, {}, {}}, kWidth, kHeight, 1);
    clock.Advance(milliseconds(40));
    const TrackResult result = tracker.Update({{At(0.5f, 0.5f, 0.9f)}}, kWidth, kHeight, 2);
    if (!result.objects.empty() || !result.removed_ids.empty()) _exit(10);
    // Nothing changed: the track goes on under its id and the counter did not move.
    clock.Advance(milliseconds(400));
    const TrackResult next = tracker.Update(
        {{At(0.5f, 0.5f, 0.9f)}, {At(0.2f, 0.2f, 0.9f)}, {}, {}}, kWidth, kHeight, 3);
    if (IdsOf(next.objects[0]) != Ids{0} || IdsOf(next.objects[1]) != Ids{1}) _exit(11);
  });
  EXPECT_EQ(child.exit_code, 0);
  EXPECT_NE(child.out.find("[Mirvane][Err] obj_detect_tracker.cc:"), std::string::npos)
      << child.out;
  EXPECT_NE(child.out.find(":Update: Detection class num is not equal to trackers\n"),
            std::string::npos)
      << child.out;
}

}  // namespace
}  // namespace dva
}  // namespace mirvane
