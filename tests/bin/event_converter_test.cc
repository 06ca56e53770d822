// The event converter: which objects are reported, in which order, with which snapshot ids and
// class codes.
#include "bin/event_converter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/child_process.h"

namespace mirvane {
namespace {

using testing::ChildResult;
using testing::RunInChild;

// Hands out ids 1, 2, 3... (or from a chosen start) and counts its calls.
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
      : cache(std::make_unique<CountingGetter>(&calls, first_id), [this] { return now_ns; }) {}
  int calls = 0;
  int64_t now_ns = 0;
  SnapshotIdCache cache;
  VENDOR_AI_BUF frame = {};
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

// A result with the given groups and, for each object, no trigger.
std::vector<EventObject> ConvertPlain(Harness& h, const TrackResult& result) {
  std::vector<std::vector<bool>> pv;
  std::vector<std::vector<uint8_t>> intrusion;
  for (const auto& group : result.objects) {
    pv.emplace_back(group.size(), false);
    intrusion.emplace_back(group.size(), 0);
  }
  return Convert(h.cache, result, pv, intrusion, h.frame);
}

TEST(EventConverter, MergesGroupsByConfidenceAndCarriesTriggers) {
  Harness h;
  TrackResult result;
  result.objects = {{Tracked(0, 1, 0.5f), Tracked(1, 1, 0.9f)}, {Tracked(2, 2, 0.7f)}};
  const std::vector<EventObject> events =
      Convert(h.cache, result, {{true, false}, {false}}, {{0, 3}, {1}}, h.frame);
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

TEST(EventConverter, NoObjectsTakeNoSnapshotButEndedTracksAreForgotten) {
  Harness h;
  TrackResult first;
  first.objects = {{Tracked(7, 1, 0.5f)}};
  ConvertPlain(h, first);
  ASSERT_EQ(h.cache.size(), 1u);
  TrackResult empty;
  empty.objects = {{}};
  empty.removed_ids = {{7, 8}};
  EXPECT_TRUE(ConvertPlain(h, empty).empty());
  EXPECT_EQ(h.calls, 1);
  EXPECT_EQ(h.cache.size(), 0u);
}

TEST(EventConverter, KeepsTheFifteenMostConfident) {
  ChildResult result = RunInChild([] {
    for (int n : {15, 16}) {
      Harness h;
      TrackResult tracks;
      tracks.objects.resize(1);
      for (int k = 0; k < n; ++k) {
        tracks.objects[0].push_back(Tracked(static_cast<uint32_t>(k), 1, 0.1f + 0.05f * k));
      }
      const std::vector<EventObject> events = ConvertPlain(h, tracks);
      if (events.size() != 15u) _exit(10);
      if (n == 16 && events.back().tracking_id != 1) _exit(11);  // id 0 was the least confident
    }
  });
  EXPECT_EQ(result.exit_code, 0);
  // The cut is logged at the debug level only, which is off without the debug switch.
  EXPECT_EQ(result.out.find("over max"), std::string::npos);
}

TEST(SnapshotIdCache, KeepsASnapshotForASecondThenRenewsIt) {
  Harness h;
  TrackResult tracks;
  tracks.objects = {{Tracked(3, 1, 0.5f)}};
  EXPECT_EQ(ConvertPlain(h, tracks)[0].snapshot_id, 1);
  h.now_ns = 500000000;
  EXPECT_EQ(ConvertPlain(h, tracks)[0].snapshot_id, 1);
  h.now_ns = 1000000000;
  EXPECT_EQ(ConvertPlain(h, tracks)[0].snapshot_id, 1) << "exactly one second is not older";
  h.now_ns = 1000000001;
  EXPECT_EQ(ConvertPlain(h, tracks)[0].snapshot_id, 2);
  EXPECT_EQ(h.calls, 2);
}

TEST(SnapshotIdCache, ReportsIdsAbove255ByTheirLowByte) {
  Harness h(300);
  TrackResult tracks;
  tracks.objects = {{Tracked(3, 1, 0.5f)}};
  EXPECT_EQ(ConvertPlain(h, tracks)[0].snapshot_id, 300 & 0xFF);
}

TEST(ConvertClassId, MapsOneToFourAndLogsTheRest) {
  ChildResult result = RunInChild([] {
    if (ConvertClassId(1) != 0 || ConvertClassId(4) != 3) _exit(10);
    if (ConvertClassId(0) != 0 || ConvertClassId(5) != 0) _exit(11);
  });
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_NE(result.out.find("ConvertClassId: Unexpect class_id [0]\n"), std::string::npos);
  EXPECT_NE(result.out.find("ConvertClassId: Unexpect class_id [5]\n"), std::string::npos);
}

}  // namespace
}  // namespace mirvane
