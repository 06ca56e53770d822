// The reference network seen through the runtime: pictures drawn like the scene renderer's,
// outputs converted as the daemon converts them and decoded by an independent decoder.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "fake_device_memory.h"
#include "reference_decoder.h"
#include "runtime_harness.h"
#include "scene_drawing.h"

namespace mirvane {
namespace sim_ai_test {
namespace {

constexpr float kThreshold = 0.3f;

struct Expected {
  Box box;
  int scale;             // 0, 1, 2 for strides 8, 16, 32
  float dx = 0, dy = 0;  // back to the previous picture, input pixels
};

// The one detection of the box's class that overlaps the box most, or null.
const Decoded* Nearest(const std::vector<std::vector<Decoded>>& found, const Box& box) {
  const Decoded* best = nullptr;
  float best_distance = 1e9f;
  for (const Decoded& d : found[box.class_id - 1]) {
    const float distance = std::fabs(d.xmin * 384 - box.x0) + std::fabs(d.ymin * 384 - box.y0) +
                           std::fabs(d.xmax * 384 - box.x1) + std::fabs(d.ymax * 384 - box.y1);
    if (distance < best_distance) best_distance = distance, best = &d;
  }
  return best;
}

size_t Count(const std::vector<std::vector<Decoded>>& found) {
  size_t n = 0;
  for (const auto& list : found) n += list.size();
  return n;
}

// Each expected object comes back once, on its scale, with its box and displacement within a
// pixel, and nothing else is found.
void ExpectFound(const std::vector<std::vector<Decoded>>& found,
                 const std::vector<Expected>& expected) {
  EXPECT_EQ(Count(found), expected.size());
  for (const Expected& e : expected) {
    const Box& b = e.box;
    SCOPED_TRACE("class " + std::to_string(b.class_id) + " box " + std::to_string(b.x0) + "," +
                 std::to_string(b.y0) + "-" + std::to_string(b.x1) + "," + std::to_string(b.y1));
    const Decoded* d = Nearest(found, b);
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(d->scale, e.scale);
    const int stride = 8 << e.scale;
    EXPECT_EQ(d->col, static_cast<int>((b.x0 + b.x1) / 2.0f / stride));
    EXPECT_EQ(d->row, static_cast<int>((b.y0 + b.y1) / 2.0f / stride));
    EXPECT_NEAR(d->xmin * 384, b.x0, 1.0f);
    EXPECT_NEAR(d->ymin * 384, b.y0, 1.0f);
    EXPECT_NEAR(d->xmax * 384, b.x1, 1.0f);
    EXPECT_NEAR(d->ymax * 384, b.y1, 1.0f);
    EXPECT_NEAR(d->dx * 384, e.dx, 1.0f);
    EXPECT_NEAR(d->dy * 384, e.dy, 1.0f);
  }
}

std::vector<std::vector<Decoded>> RunOn(TestPicture& current, TestPicture& previous,
                                        RunningNetwork& net, float threshold = kThreshold) {
  EXPECT_EQ(net.Run(current.data(), previous.data()), HD_OK);
  return net.Decode(threshold);
}

TEST(ReferenceNetwork, FindsEachClassOnTheScaleThatFitsItsSize) {
  RunningNetwork net;
  ASSERT_TRUE(net.ok());
  const std::vector<Expected> expected = {
      {{1, 20, 30, 44, 90}, 0},      // person, 24x60: stride 8
      {{2, 150, 40, 270, 100}, 1},   // vehicle, 120x60: stride 16
      {{3, 60, 200, 90, 230}, 0},    // other, 30x30
      {{4, 100, 236, 370, 376}, 2},  // second vehicle kind, 270x140: stride 32
  };
  TestPicture picture;
  for (const Expected& e : expected) picture.Draw(e.box);
  ExpectFound(RunOn(picture, picture, net), expected);
}

TEST(ReferenceNetwork, PeakSitsAtTheCentreCellWithLowerNeighboursAndNothingElsewhere) {
  RunningNetwork net;
  ASSERT_TRUE(net.ok());
  TestPicture picture;
  picture.Draw({2, 100, 100, 240, 160});  // centre (170, 130): scale 1, row 8, column 10
  ASSERT_EQ(net.Run(picture.data(), picture.data()), HD_OK);
  const Tensor hm[3] = {net.Get(0xa0000084), net.Get(0xa0000096), net.Get(0xa00000a7)};
  ASSERT_EQ(hm[1].width, 24);
  const float peak = hm[1].at(1, 8, 10);
  EXPECT_NEAR(peak, 0.85f, 0.01f);
  EXPECT_GT(hm[1].at(1, 8, 11), 0.0f);
  EXPECT_LT(hm[1].at(1, 8, 11), peak);
  EXPECT_LT(hm[1].at(1, 9, 10), peak);
  for (int s = 0; s < 3; ++s) {
    for (int k = 0; k < 4; ++k) {
      for (int y = 0; y < hm[s].height; ++y) {
        for (int x = 0; x < hm[s].width; ++x) {
          const bool near_peak = s == 1 && k == 1 && std::abs(y - 8) <= 1 && std::abs(x - 10) <= 1;
          if (!near_peak) {
            ASSERT_EQ(hm[s].at(k, y, x), 0.0f) << s << " " << k << " " << y << " " << x;
          }
        }
      }
    }
  }
}

TEST(ReferenceNetwork, ReportsHowFarEachObjectMovedSinceThePreviousPicture) {
  RunningNetwork net;
  ASSERT_TRUE(net.ok());
  TestPicture previous, current;
  previous.Draw({1, 40, 40, 64, 100});
  previous.Draw({2, 200, 200, 300, 250});
  current.Draw({1, 46, 36, 70, 96});      // moved right 6, up 4
  current.Draw({2, 180, 210, 280, 260});  // moved left 20, down 10
  current.Draw({3, 300, 40, 340, 80});    // just appeared
  ExpectFound(RunOn(current, previous, net), {{{1, 46, 36, 70, 96}, 0, -6, 4},
                                              {{2, 180, 210, 280, 260}, 0, 20, -10},
                                              {{3, 300, 40, 340, 80}, 0, 0, 0}});
}

TEST(ReferenceNetwork, TellsTouchingObjectsOfOneClassApartByTheirBorders) {
  RunningNetwork net;
  ASSERT_TRUE(net.ok());
  TestPicture picture;
  picture.Draw({1, 40, 40, 70, 120});
  picture.Draw({1, 70, 50, 96, 126});  // side by side
  picture.Draw({2, 200, 200, 300, 260});
  picture.Draw({2, 260, 240, 360, 300});  // over the first one's corner
  ExpectFound(RunOn(picture, picture, net), {{{1, 40, 40, 70, 120}, 0},
                                             {{1, 70, 50, 96, 126}, 0},
                                             {{2, 200, 200, 300, 260}, 0},
                                             {{2, 260, 240, 360, 300}, 0}});
}

TEST(ReferenceNetwork, KeepsBoxesOfObjectsPartlyHiddenOrCutByTheFrame) {
  RunningNetwork net;
  ASSERT_TRUE(net.ok());
  TestPicture picture;
  picture.Draw({1, 100, 100, 140, 200});  // a person behind a vehicle's corner
  picture.Draw({2, 120, 170, 220, 220});
  picture.Draw({3, -20, 300, 40, 340});  // cut by the left edge
  picture.Draw({4, 330, 0, 400, 30});    // cut by the top right corner
  ExpectFound(RunOn(picture, picture, net), {{{1, 100, 100, 140, 200}, 0},
                                             {{2, 120, 170, 220, 220}, 0},
                                             {{3, 0, 300, 40, 340}, 0},
                                             {{4, 330, 0, 384, 30}, 0}});
}

TEST(ReferenceNetwork, PlacesOddEdgesWithinAPixel) {
  RunningNetwork net;
  ASSERT_TRUE(net.ok());
  TestPicture picture;
  picture.Draw({1, 51, 33, 77, 99});
  picture.Draw({3, 201, 151, 263, 187});
  ExpectFound(RunOn(picture, picture, net),
              {{{1, 51, 33, 77, 99}, 0}, {{3, 201, 151, 263, 187}, 0}});
}

TEST(ReferenceNetwork, IgnoresTheLetterboxPaddingAndFindsNothingInAnEmptyPicture) {
  RunningNetwork net;
  ASSERT_TRUE(net.ok());
  TestPicture empty(5);
  empty.PadBelow(216);
  EXPECT_EQ(Count(RunOn(empty, empty, net, 0.01f)), 0u);
  TestPicture picture(5);
  picture.Draw({2, 10, 150, 90, 214});
  picture.PadBelow(216);
  ExpectFound(RunOn(picture, picture, net), {{{2, 10, 150, 90, 214}, 0}});
}

TEST(ReferenceNetwork, FindsObjectsOfAFullHdFrameLetterboxedIntoTheInput) {
  RunningNetwork net;
  ASSERT_TRUE(net.ok());
  TestPicture frame(9, 1920, 1080);
  const Box drawn[] = {{1, 200, 300, 330, 640},
                       {2, 700, 500, 1240, 800},
                       {3, 1500, 100, 1660, 260},
                       {4, 1400, 700, 1900, 1000},
                       {1, 100, 800, 160, 960}};
  for (const Box& b : drawn) frame.Draw(b);
  TestPicture input = frame.Letterboxed();
  ASSERT_EQ(net.Run(input.data(), input.data()), HD_OK);
  const auto found = net.Decode(kThreshold);
  EXPECT_EQ(Count(found), 5u);
  // Scaled by 1/5 and blurred by the scaler, still within a pixel of the input.
  for (const Box& b : drawn) {
    const Box in{b.class_id, b.x0 / 5, b.y0 / 5, b.x1 / 5, b.y1 / 5};
    const Decoded* d = Nearest(found, in);
    ASSERT_NE(d, nullptr);
    EXPECT_NEAR(d->xmin * 384, in.x0, 1.0f);
    EXPECT_NEAR(d->ymin * 384, in.y0, 1.0f);
    EXPECT_NEAR(d->xmax * 384, in.x1, 1.0f);
    EXPECT_NEAR(d->ymax * 384, in.y1, 1.0f);
  }
}

sim::ai::ModelDescription ImperfectModel(uint64_t seed) {
  sim::ai::ModelDescription model = IdealModel();
  model.settings.seed = seed;
  model.settings.score_jitter = 0.1f;
  model.settings.miss_rate = 0.2f;
  model.settings.false_rate = 0.5f;
  model.settings.box_jitter = 2.0f;
  return model;
}

std::vector<std::vector<std::vector<Decoded>>> RunSeveral(const sim::ai::ModelDescription& model,
                                                          TestPicture& picture, int runs) {
  RunningNetwork net(model);
  std::vector<std::vector<std::vector<Decoded>>> all;
  for (int i = 0; i < runs && net.ok(); ++i) all.push_back(RunOn(picture, picture, net, 0.01f));
  return all;
}

bool Same(const std::vector<std::vector<std::vector<Decoded>>>& a,
          const std::vector<std::vector<std::vector<Decoded>>>& b) {
  if (a.size() != b.size()) return false;
  for (size_t run = 0; run < a.size(); ++run) {
    for (size_t c = 0; c < a[run].size(); ++c) {
      if (a[run][c].size() != b[run][c].size()) return false;
      for (size_t i = 0; i < a[run][c].size(); ++i) {
        const Decoded &p = a[run][c][i], &q = b[run][c][i];
        if (p.score != q.score || p.xmin != q.xmin || p.ymin != q.ymin || p.xmax != q.xmax ||
            p.ymax != q.ymax) {
          return false;
        }
      }
    }
  }
  return true;
}

TEST(ReferenceNetwork, ImperfectionsRepeatForTheSameSeedAndDifferForAnother) {
  TestPicture picture;
  for (int i = 0; i < 6; ++i) picture.Draw({1 + i % 4, 20 + 60 * i, 40, 50 + 60 * i, 100});
  const auto first = RunSeveral(ImperfectModel(7), picture, 20);
  const auto again = RunSeveral(ImperfectModel(7), picture, 20);
  const auto other = RunSeveral(ImperfectModel(8), picture, 20);
  ASSERT_EQ(first.size(), 20u);
  EXPECT_TRUE(Same(first, again));
  EXPECT_FALSE(Same(first, other));
}

TEST(ReferenceNetwork, ImperfectionsStayWithinTheirSettings) {
  TestPicture picture;
  const Box box{1, 100, 100, 130, 180};
  picture.Draw(box);
  sim::ai::ModelDescription model = ImperfectModel(3);
  model.settings.false_rate = 0.0f;
  RunningNetwork net(model);
  ASSERT_TRUE(net.ok());
  int missed = 0;
  for (int run = 0; run < 100; ++run) {
    const auto found = RunOn(picture, picture, net, 0.5f);
    if (found[0].empty()) {
      ++missed;
      continue;
    }
    const Decoded& d = found[0][0];
    EXPECT_GE(d.score, 0.75f - 0.01f);
    EXPECT_LE(d.score, 0.95f + 0.01f);
    EXPECT_NEAR(d.xmin * 384, box.x0, 3.0f);
    EXPECT_NEAR(d.ymax * 384, box.y1, 3.0f);
  }
  EXPECT_GT(missed, 5);  // 20 % of 100 runs, give or take
  EXPECT_LT(missed, 40);

  model.settings.miss_rate = 1.0f;
  model.settings.false_rate = 3.0f;
  RunningNetwork fooled(model, 1);
  ASSERT_TRUE(fooled.ok());
  size_t false_detections = 0;
  for (int run = 0; run < 10; ++run)
    false_detections += Count(RunOn(picture, picture, fooled, 0.5f));
  EXPECT_LE(false_detections, 30u);  // three a run, fewer when two of one class overlap
  EXPECT_GE(false_detections, 25u);
}

}  // namespace
}  // namespace sim_ai_test
}  // namespace mirvane
