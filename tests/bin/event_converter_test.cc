// The event converter: which objects are reported, in which order, with which snapshot ids and
// class codes.
#include "bin/event_converter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/child_process.h"

namespace mirvane {
namespace {

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
      : cache(std::make_unique<CountingGetter>(&calls, first_id), [this] { return now_ns; }) {}
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
  const testing::ChildResult result = testing::RunInChild([] {
    if (ConvertClassId(1) != 0 || ConvertClassId(4) != 3) _exit(10);
    if (ConvertClassId(0) != 0 || ConvertClassId(5) != 0) _exit(11);
  });
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_NE(result.out.find("ConvertClassId: Unexpect class_id [0]\n"), std::string::npos);
  EXPECT_NE(result.out.find("ConvertClassId: Unexpect class_id [5]\n"), std::string::npos);
}

}  // namespace
}  // namespace mirvane
