// Tracking through the whole chain on the default scene: rendered frames, the network, decoding,
// the tracker and the event, compared with the scene's ground truth.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <set>
#include <string>

#include "e2e/e2e_support.h"

namespace mirvane {
namespace e2e {
namespace {

using std::chrono::seconds;

constexpr double kSameObject = 0.5;  // overlap at which an event box shows a truth object

struct Match {
  std::set<int> tracking_ids;
  int frames = 0;
  std::string history;  // "frame:id" where the id changes
};

bool Intersect(const TruthBox& a, const TruthBox& b) {
  return a.x0 < b.x1 && b.x0 < a.x1 && a.y0 < b.y1 && b.y0 < a.y1;
}

// An object is in plain view when no other object of the frame overlaps it: while two objects
// overlap, the network may see one box for both, which shows neither of them.
bool InPlainView(const TruthBox& box, const std::vector<TruthBox>& frame) {
  for (const TruthBox& other : frame) {
    if (other.object_id != box.object_id && Intersect(box, other)) return false;
  }
  return true;
}

// For each ground-truth object, the tracking ids of the event objects that show it while it is
// in plain view.
std::map<int, Match> MatchTracks(const Transcript& transcript, const GroundTruth& truth) {
  std::map<int, Match> matches;
  for (const EventRecord& event : transcript.events) {
    const auto frame = truth.frames.find(event.timestamp);
    if (frame == truth.frames.end()) continue;
    for (const ObjectRecord& object : event.objects) {
      const TruthBox* best = nullptr;
      double best_overlap = kSameObject;
      for (const TruthBox& box : frame->second) {
        if (!InPlainView(box, frame->second)) continue;
        const double overlap = Overlap(object, box, truth.width, truth.height);
        if (overlap >= best_overlap) {
          best = &box;
          best_overlap = overlap;
        }
      }
      if (best == nullptr) continue;
      Match& match = matches[best->object_id];
      if (match.tracking_ids.insert(object.tracking_id).second) {
        match.history +=
            " " + std::to_string(event.timestamp) + ":" + std::to_string(object.tracking_id);
      }
      ++match.frames;
    }
  }
  return matches;
}

// The scene's two people who walk through each other (objects 4 and 5) keep their ids on both
// sides of the crossing.
TEST(TrackingOnTheDefaultScene, EachObjectKeepsOneTrackingIdForItsWholeVisibleLife) {
  WriteSimSettings("default", "fast");
  UseIdealModel();
  LoadRules("0.55,0.45,0.95,0.45,0.95,1.0,0.55,1.0", 3, "0.5,0.0,0.5,1.0", 3);
  StandInRun run;
  ASSERT_TRUE(run.WaitForEnd(seconds(150))) << DaemonOutput();

  const Transcript transcript = run.Read();
  const GroundTruth truth = ReadGroundTruth();
  ASSERT_EQ(truth.width, 1920);
  ASSERT_EQ(truth.height, 1080);
  EXPECT_EQ(static_cast<int64_t>(transcript.events.size()), truth.frame_count)
      << "one event per frame";
  const std::map<int, Match> matches = MatchTracks(transcript, truth);
  EXPECT_EQ(matches.size(), 9u) << "every object of the scene is seen";
  for (const auto& entry : matches) {
    EXPECT_EQ(entry.second.tracking_ids.size(), 1u)
        << "object " << entry.first << " was seen under " << entry.second.tracking_ids.size()
        << " tracking ids in " << entry.second.frames << " frames (timestamp:id"
        << entry.second.history << ")";
    EXPECT_GT(entry.second.frames, 50) << "object " << entry.first;
  }
  std::set<int> ids;
  for (const auto& entry : matches)
    ids.insert(entry.second.tracking_ids.begin(), entry.second.tracking_ids.end());
  EXPECT_EQ(ids.size(), matches.size()) << "no two objects share a tracking id";
}

}  // namespace
}  // namespace e2e
}  // namespace mirvane
