// The result stage on its own: rules from the (empty) parameter store, a snapshot getter that
// only counts, and events sent to a test system daemon.
#include "bin/result_stage.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <vector>

#include "bin/common_daemon_component.h"
#include "sysapi.h"
#include "testing/child_process.h"
#include "testing/system_peer.h"

namespace mirvane {
namespace {

using std::chrono::seconds;
using testing::PeerMessage;
using testing::SystemPeer;
using testing::WaitUntil;

class CountingGetter : public result_sender::ISnapshotGetter {
 public:
  explicit CountingGetter(int* calls) : calls_(calls) {}
  int32_t GetSnapshot(VENDOR_AI_BUF, float, float, float, float) override { return ++*calls_; }

 private:
  int* calls_;
};

// One test system daemon for the whole program: the event socket is process-wide, and an event
// sent after its peer went away is lost (the next one reconnects).
SystemPeer& Peer() {
  static SystemPeer* const peer = new SystemPeer(kSystemSocketPath);
  return *peer;
}

// The event payloads the peer has received so far.
std::vector<PeerMessage> Events() {
  std::vector<PeerMessage> events;
  for (const PeerMessage& m : Peer().Messages()) {
    if (m.cmd == SYSAPI_CMD_EVENT) events.push_back(m);
  }
  return events;
}

bool WaitForEvents(size_t count) {
  return WaitUntil([&] { return Events().size() >= count; }, seconds(5));
}

TrackResult EmptyResult() {
  TrackResult result;
  result.objects.resize(4);
  result.removed_ids.resize(4);
  return result;
}

template <typename T>
T Field(const PeerMessage& message, size_t offset) {
  T value;
  std::memcpy(&value, message.body.data() + offset, sizeof(value));
  return value;
}

TEST(ResultStage, SendsAnEventWithNoObjectsForAnEmptyFrame) {
  ASSERT_TRUE(Peer().listening());
  const size_t before = Events().size();
  int snapshots = 0;
  ResultStage stage(std::make_unique<CountingGetter>(&snapshots));
  stage.Reload();
  VENDOR_AI_BUF frame;
  std::memset(&frame, 0, sizeof(frame));
  frame.width = 1920;
  frame.height = 1080;
  const uint64_t timestamp = 0x8000000123456789ull;

  EXPECT_TRUE(stage.Process(EmptyResult(), frame, timestamp).empty());
  ASSERT_TRUE(WaitForEvents(before + 1));
  const PeerMessage event = Events().back();
  ASSERT_EQ(event.body.size(), 520u);
  EXPECT_EQ(Field<uint32_t>(event, 0), 129u);
  EXPECT_EQ(Field<uint64_t>(event, 8), timestamp);
  EXPECT_EQ(Field<uint32_t>(event, 16), 0u);
  EXPECT_EQ(snapshots, 0);
}

TEST(ResultStage, SendsOneEventPerFrameWithTheFramesObjects) {
  ASSERT_TRUE(Peer().listening());
  const size_t before = Events().size();
  int snapshots = 0;
  ResultStage stage(std::make_unique<CountingGetter>(&snapshots));
  stage.Reload();
  VENDOR_AI_BUF frame;
  std::memset(&frame, 0, sizeof(frame));
  frame.width = 1920;
  frame.height = 1080;
  TrackResult result = EmptyResult();
  TrackedObject person;
  person.score = 0.9f;
  person.xmin = 0.1f;
  person.ymin = 0.1f;
  person.xmax = 0.2f;
  person.ymax = 0.4f;
  person.class_id = 1;
  person.tracking_id = 7;
  result.objects[0].push_back(person);

  for (int i = 0; i < 3; ++i) stage.Process(result, frame, 1000 + i);
  stage.Process(EmptyResult(), frame, 2000);
  ASSERT_TRUE(WaitForEvents(before + 4));
  const std::vector<PeerMessage> events = Events();
  std::vector<uint32_t> counts;
  for (size_t i = before; i < events.size(); ++i) counts.push_back(Field<uint32_t>(events[i], 16));
  EXPECT_EQ(counts, (std::vector<uint32_t>{1, 1, 1, 0}));
  EXPECT_EQ(snapshots, 1) << "one snapshot per track within a second";
}

}  // namespace
}  // namespace mirvane
