// The daemon's parts between the network and the event: the detection tracker (ids unique over
// all classes, pixel offsets, class ids, removed ids, the class-count check) and the event
// converter (which objects, in which order, snapshot ids, class codes).
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include "bin/event_converter.h"
#include "bin/obj_detect_tracker.h"
#include "common/object_class.h"
#include "testing/log_capture.h"
#include "testing/manual_clock.h"

namespace mirvane {
namespace {

using dva::ObjDetectTracker;
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
  using namespace dva;  // NOLINT: the class ids
  EXPECT_EQ(class_ids, (std::vector<int32_t>{kClassPerson, kClassVehicle, kClassOther,
                                             kClassVehicle2, kClassNone, kClassNone}));
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
  const testing::LogCapture log;
  ManualClock clock;
  ObjDetectTracker tracker(4, kThreshold, clock.Source());
  tracker.Update({{At(0.5f, 0.5f, 0.9f)}, {}, {}, {}}, kWidth, kHeight, 1);
  clock.Advance(milliseconds(40));
  const TrackResult result = tracker.Update({{At(0.5f, 0.5f, 0.9f)}}, kWidth, kHeight, 2);
  EXPECT_TRUE(result.objects.empty());
  EXPECT_TRUE(result.removed_ids.empty());
  EXPECT_EQ(log.Count("[Mirvane][Err] obj_detect_tracker.cc:"), 1) << log.Text();
  EXPECT_TRUE(log.Contains(":Update: Detection class num is not equal to trackers\n"))
      << log.Text();
  // Nothing changed: the track goes on under its id and the counter did not move.
  clock.Advance(milliseconds(400));
  const TrackResult next =
      tracker.Update({{At(0.5f, 0.5f, 0.9f)}, {At(0.2f, 0.2f, 0.9f)}, {}, {}}, kWidth, kHeight, 3);
  ASSERT_EQ(next.objects.size(), 4u);
  EXPECT_EQ(IdsOf(next.objects[0]), Ids{0});
  EXPECT_EQ(IdsOf(next.objects[1]), Ids{1});
}

// Hands out ids from first_id on and counts its calls.
class CountingGetter : public result_sender::ISnapshotGetter {
 public:
  CountingGetter(int* calls, int32_t first_id) : calls_(calls), next_(first_id) {}
  int32_t GetSnapshot(VENDOR_AI_BUF, float, float, float, float) override {
    ++*calls_;
    return next_++;
  }

 private:
  int* calls_;
  int32_t next_;
};

struct Harness {
  explicit Harness(int32_t first_id = 1)
      : cache(std::make_unique<CountingGetter>(&calls, first_id),
              [this] { return dva::SteadyTimePoint(std::chrono::nanoseconds(now_ns)); }) {}
  int calls = 0;
  int64_t now_ns = 0;
  SnapshotIdCache cache;

  // Converts a result in which no object is triggered.
  std::vector<EventObject> Plain(const TrackResult& result) {
    std::vector<std::vector<bool>> pv;
    std::vector<std::vector<uint8_t>> intrusion;
    for (const auto& group : result.objects) {
      pv.emplace_back(group.size(), false);
      intrusion.emplace_back(group.size(), 0);
    }
    return Convert(cache, result, pv, intrusion, VENDOR_AI_BUF{});
  }
};

TrackedObject Tracked(uint32_t id, int32_t class_id, float score) {
  TrackedObject o;
  o.tracking_id = id;
  o.class_id = class_id;
  o.score = score;
  o.xmin = 0.1f;
  o.ymin = 0.2f;
  o.xmax = 0.3f;
  o.ymax = 0.4f;
  return o;
}

TEST(EventConverter, MergesGroupsByConfidenceAndCarriesTriggers) {
  Harness h;
  TrackResult result;
  result.objects = {{Tracked(0, 1, 0.5f), Tracked(1, 1, 0.9f)}, {Tracked(2, 2, 0.7f)}};
  const std::vector<EventObject> events =
      Convert(h.cache, result, {{true, false}, {false}}, {{0, 3}, {1}}, VENDOR_AI_BUF{});
  ASSERT_EQ(events.size(), 3u);
  EXPECT_EQ(events[0].tracking_id, 1);
  EXPECT_EQ(events[0].int_trigger, 3);
  EXPECT_EQ(events[1].tracking_id, 2);
  EXPECT_EQ(events[1].class_code, 1);
  EXPECT_EQ(events[1].int_trigger, 1);
  EXPECT_EQ(events[2].tracking_id, 0);
  EXPECT_TRUE(events[2].pv_trigger);
  EXPECT_FLOAT_EQ(events[2].box[3], 0.4f);
  EXPECT_EQ(h.calls, 3) << "every reported object gets a snapshot";
}

TEST(EventConverter, KeepsTheFifteenMostConfident) {
  Harness h;
  TrackResult tracks;
  tracks.objects.resize(1);
  for (uint32_t k = 0; k < 16; ++k) tracks.objects[0].push_back(Tracked(k, 1, 0.1f + 0.05f * k));
  const std::vector<EventObject> events = h.Plain(tracks);
  ASSERT_EQ(events.size(), 15u);
  EXPECT_EQ(events.back().tracking_id, 1) << "id 0 was the least confident";
}

TEST(EventConverter, NoObjectsTakeNoSnapshotButEndedTracksAreForgotten) {
  Harness h;
  TrackResult first;
  first.objects = {{Tracked(7, 1, 0.5f)}};
  h.Plain(first);
  ASSERT_EQ(h.cache.size(), 1u);
  TrackResult empty;
  empty.objects = {{}};
  empty.removed_ids = {{7, 8}};
  EXPECT_TRUE(h.Plain(empty).empty());
  EXPECT_EQ(h.calls, 1);
  EXPECT_EQ(h.cache.size(), 0u);
}

TEST(SnapshotIdCache, KeepsASnapshotForASecondThenRenewsItReportingTheLowByte) {
  Harness h(300);
  TrackResult tracks;
  tracks.objects = {{Tracked(3, 1, 0.5f)}};
  for (const auto& step : {std::make_pair(0, 300), std::make_pair(500000000, 300),
                           std::make_pair(1000000000, 300), std::make_pair(1000000001, 301)}) {
    h.now_ns = step.first;  // exactly one second is not older
    EXPECT_EQ(h.Plain(tracks)[0].snapshot_id, step.second & 0xFF) << step.first;
  }
  EXPECT_EQ(h.calls, 2);
}

TEST(ConvertClassId, MapsOneToFourAndLogsTheRest) {
  const testing::LogCapture log;
  EXPECT_EQ(ConvertClassId(1), 0);
  EXPECT_EQ(ConvertClassId(4), 3);
  EXPECT_EQ(log.Text(), "");
  EXPECT_EQ(ConvertClassId(0), 0);
  EXPECT_EQ(ConvertClassId(5), 0);
  EXPECT_TRUE(log.Contains("ConvertClassId: Unexpect class_id [0]\n")) << log.Text();
  EXPECT_TRUE(log.Contains("ConvertClassId: Unexpect class_id [5]\n")) << log.Text();
}

}  // namespace
}  // namespace mirvane
