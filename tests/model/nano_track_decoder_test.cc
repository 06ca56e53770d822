#include "model/nano_track_decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include "model/nano_track_synthetic.h"

namespace mirvane {
namespace {

using testing_model::BinLogits;
using testing_model::MakeBlankOutputs;
using testing_model::OneHotLogits;
using testing_model::OwnedOutputs;
using testing_model::SetCell;
using testing_model::TwoBinLogits;

// Power-of-two grids keep box coordinates exact in single precision.
constexpr std::array<int, kNanoTrackScaleCount> kSmallGrids = {16, 8, 4};
constexpr float kThreshold = 0.35f;

using Sides = std::array<BinLogits, kRegressionSides>;

Sides OneHotSides(int left, int top, int right, int bottom) {
  return Sides{OneHotLogits(left), OneHotLogits(top), OneHotLogits(right), OneHotLogits(bottom)};
}

// A box of one cell's size whose top-left corner is the cell's centre: boxes of neighbouring cells
// touch without overlapping.
Sides UnitSides() {
  return OneHotSides(0, 0, 1, 1);
}

DetectionsPerClass DecodeWith(const OwnedOutputs& outputs, float threshold, int source_width = 384,
                              int source_height = 384) {
  const NanoTrackDecoderParams params(threshold);
  return Decode(params, outputs.Views(), source_width, source_height);
}

std::vector<float> Scores(const std::vector<Detection>& list) {
  std::vector<float> scores;
  for (const Detection& d : list) {
    scores.push_back(d.score);
  }
  return scores;
}

// The cell a UnitSides() detection of a 16-cell grid came from, on a square source.
std::pair<int, int> UnitCell(const Detection& d) {
  return {static_cast<int>(d.ymin * 16.0f - 0.5f), static_cast<int>(d.xmin * 16.0f - 0.5f)};
}

TEST(CandidateExtraction, LimitKeepsFirstCellsInRasterOrderNotBestScores) {
  OwnedOutputs outputs = MakeBlankOutputs(1, kSmallGrids);
  // Every cell of the 16x16 map qualifies, later cells with higher scores.
  for (int i = 0; i < 256; ++i) {
    SetCell(&outputs, 0, 0, i / 16, i % 16, 0.5f + 0.001f * static_cast<float>(i), UnitSides());
  }
  const DetectionsPerClass result = DecodeWith(outputs, kThreshold);
  ASSERT_EQ(result.size(), 1u);
  ASSERT_EQ(result[0].size(), kNanoTrackPerMapLimit);
  std::set<std::pair<int, int>> cells;
  for (const Detection& d : result[0]) {
    cells.insert(UnitCell(d));
  }
  std::set<std::pair<int, int>> first_cells;
  for (int i = 0; i < 128; ++i) {
    first_cells.insert({i / 16, i % 16});
  }
  EXPECT_EQ(cells, first_cells);
}

TEST(CandidateExtraction, LimitCountsEachClassAndScaleSeparately) {
  OwnedOutputs outputs = MakeBlankOutputs(2, {16, 16, 4});
  // Class 0: 100 cells on the top rows of scale 1 and 100 on the bottom rows of scale 2, so no box
  // of one scale meets a box of the other. Class 1: the whole of scale 1.
  for (int i = 0; i < 100; ++i) {
    SetCell(&outputs, 0, 0, i / 16, i % 16, 0.5f, UnitSides());
    SetCell(&outputs, 1, 0, 15 - i / 16, i % 16, 0.5f, UnitSides());
  }
  for (int i = 0; i < 256; ++i) {
    SetCell(&outputs, 0, 1, i / 16, i % 16, 0.5f, UnitSides());
  }
  const DetectionsPerClass result = DecodeWith(outputs, kThreshold);
  ASSERT_EQ(result.size(), 2u);
  EXPECT_EQ(result[0].size(), 200u);
  EXPECT_EQ(result[1].size(), kNanoTrackPerMapLimit);
}

TEST(CandidateExtraction, ScoreEqualToThresholdIsKeptAndJustBelowIsNot) {
  OwnedOutputs outputs = MakeBlankOutputs(1, kSmallGrids);
  SetCell(&outputs, 0, 0, 2, 2, kThreshold, UnitSides());
  SetCell(&outputs, 0, 0, 8, 8, std::nextafter(kThreshold, 0.0f), UnitSides());
  const DetectionsPerClass result = DecodeWith(outputs, kThreshold);
  ASSERT_EQ(result[0].size(), 1u);
  EXPECT_EQ(result[0][0].score, kThreshold);
  EXPECT_EQ(UnitCell(result[0][0]), std::make_pair(2, 2));
}

TEST(CandidateExtraction, ThresholdChangeTakesEffectAtNextDecode) {
  OwnedOutputs outputs = MakeBlankOutputs(1, kSmallGrids);
  SetCell(&outputs, 1, 0, 3, 3, 0.4f, UnitSides());
  float threshold = 0.5f;
  const NanoTrackDecoderParams params(threshold);
  EXPECT_TRUE(Decode(params, outputs.Views(), 384, 384)[0].empty());
  threshold = 0.3f;
  EXPECT_EQ(Decode(params, outputs.Views(), 384, 384)[0].size(), 1u);
}

TEST(CandidateExtraction, ZeroClassesGiveEmptyResult) {
  const OwnedOutputs outputs = MakeBlankOutputs(0, kSmallGrids);
  EXPECT_TRUE(DecodeWith(outputs, kThreshold).empty());
}

TEST(BoxDecoding, OneHotBinsGiveWholeCellDistancesFromCellCentre) {
  OwnedOutputs outputs = MakeBlankOutputs(1, kSmallGrids);
  SetCell(&outputs, 0, 0, 5, 4, 0.9f, OneHotSides(2, 1, 3, 4));
  const DetectionsPerClass result = DecodeWith(outputs, kThreshold);
  ASSERT_EQ(result[0].size(), 1u);
  const Detection& d = result[0][0];
  EXPECT_EQ(d.score, 0.9f);
  EXPECT_EQ(d.xmin, 2.5f / 16);
  EXPECT_EQ(d.ymin, 4.5f / 16);
  EXPECT_EQ(d.xmax, 7.5f / 16);
  EXPECT_EQ(d.ymax, 9.5f / 16);
}

TEST(BoxDecoding, SpreadBinsGiveExpectedDistance) {
  OwnedOutputs outputs = MakeBlankOutputs(1, kSmallGrids);
  BinLogits flat;
  flat.fill(100.0f);  // exp(100) overflows a float: only works with the maximum subtracted
  BinLogits quarter_three_quarters;
  quarter_three_quarters.fill(-1000.0f);
  quarter_three_quarters[2] = 0.0f;
  quarter_three_quarters[3] = std::log(3.0f);
  // On an 8-cell grid (scale 2), cell (row 4, col 4): centre 4.5.
  SetCell(&outputs, 1, 0, 4, 4, 0.9f, Sides{flat, quarter_three_quarters, OneHotLogits(0), flat});
  const DetectionsPerClass result = DecodeWith(outputs, kThreshold);
  ASSERT_EQ(result[0].size(), 1u);
  const Detection& d = result[0][0];
  EXPECT_FLOAT_EQ(d.xmin, (4.5f - 3.5f) / 8);
  EXPECT_FLOAT_EQ(d.ymin, (4.5f - 2.75f) / 8);
  EXPECT_FLOAT_EQ(d.xmax, 4.5f / 8);
  EXPECT_FLOAT_EQ(d.ymax, (4.5f + 3.5f) / 8);
}

TEST(BoxDecoding, BoxIsClampedToFrameOnItsOuterSidesOnly) {
  OwnedOutputs outputs = MakeBlankOutputs(1, kSmallGrids);
  SetCell(&outputs, 0, 0, 0, 0, 0.9f, OneHotSides(3, 2, 1, 1));
  SetCell(&outputs, 0, 0, 15, 15, 0.8f, OneHotSides(1, 1, 7, 7));
  const DetectionsPerClass result = DecodeWith(outputs, kThreshold);
  ASSERT_EQ(result[0].size(), 2u);
  EXPECT_EQ(result[0][0].xmin, 0.0f);
  EXPECT_EQ(result[0][0].ymin, 0.0f);
  EXPECT_EQ(result[0][0].xmax, 1.5f / 16);
  EXPECT_EQ(result[0][1].xmin, 14.5f / 16);
  EXPECT_EQ(result[0][1].xmax, 1.0f);
  EXPECT_EQ(result[0][1].ymax, 1.0f);
}

TEST(TrackingOffsets, AreNormalisedByInputSizeThenToSourceFrame) {
  OwnedOutputs outputs = MakeBlankOutputs(1, kSmallGrids);
  SetCell(&outputs, 2, 0, 1, 1, 0.9f, UnitSides(), 96.0f, -48.0f);
  const DetectionsPerClass square = DecodeWith(outputs, kThreshold);
  ASSERT_EQ(square[0].size(), 1u);
  EXPECT_EQ(square[0][0].track_dx, 0.25f);
  EXPECT_EQ(square[0][0].track_dy, -0.125f);
  // 1920x1080 fills 384x216 of the input: 96 input pixels are 480 source pixels of 1920, and -48
  // are -240 of 1080.
  const DetectionsPerClass wide = DecodeWith(outputs, kThreshold, 1920, 1080);
  ASSERT_EQ(wide[0].size(), 1u);
  EXPECT_FLOAT_EQ(wide[0][0].track_dx, 480.0f / 1920);
  EXPECT_FLOAT_EQ(wide[0][0].track_dy, -240.0f / 1080);
  const DetectionsPerClass tall = DecodeWith(outputs, kThreshold, 1080, 1920);
  ASSERT_EQ(tall[0].size(), 1u);
  EXPECT_FLOAT_EQ(tall[0][0].track_dx, 480.0f / 1080);
  EXPECT_FLOAT_EQ(tall[0][0].track_dy, -240.0f / 1920);
}

// Two boxes in row 8 of the 16-cell grid, 7 cells wide and 2 high, the second 3 cells to the right:
// they overlap by 4 of a 10-cell union, an IoU of exactly 0.4. Widening the second box's left side
// by 0.1 cell makes it 4.1 of 10.
void SetOverlappingPair(OwnedOutputs* outputs, float first_score, float second_score,
                        float second_left) {
  SetCell(outputs, 0, 0, 8, 4, first_score, OneHotSides(3, 1, 4, 1));
  SetCell(outputs, 0, 0, 8, 7, second_score,
          Sides{TwoBinLogits(second_left), OneHotLogits(1), OneHotLogits(4), OneHotLogits(1)});
}

TEST(Suppression, IouExactlyAtThresholdKeepsBoth) {
  OwnedOutputs outputs = MakeBlankOutputs(1, kSmallGrids);
  SetOverlappingPair(&outputs, 0.8f, 0.9f, 3.0f);
  const DetectionsPerClass result = DecodeWith(outputs, kThreshold);
  ASSERT_EQ(result[0].size(), 2u);
  EXPECT_EQ(SuppressionIou(result[0][0], result[0][1]), 0.4f);
}

TEST(Suppression, IouAboveThresholdDropsLowerScoreWhateverRasterOrder) {
  OwnedOutputs outputs = MakeBlankOutputs(1, kSmallGrids);
  SetOverlappingPair(&outputs, 0.8f, 0.9f, 3.1f);
  const DetectionsPerClass result = DecodeWith(outputs, kThreshold);
  ASSERT_EQ(result[0].size(), 1u);
  EXPECT_EQ(result[0][0].score, 0.9f);
  EXPECT_NEAR(result[0][0].xmin, 4.4f / 16, 1e-6f);
}

TEST(Suppression, ClassesNeverSuppressEachOther) {
  OwnedOutputs outputs = MakeBlankOutputs(2, kSmallGrids);
  SetCell(&outputs, 0, 0, 4, 4, 0.9f, OneHotSides(2, 2, 2, 2));
  SetCell(&outputs, 0, 1, 4, 4, 0.8f, OneHotSides(2, 2, 2, 2));
  const DetectionsPerClass result = DecodeWith(outputs, kThreshold);
  ASSERT_EQ(result.size(), 2u);
  EXPECT_EQ(Scores(result[0]), std::vector<float>{0.9f});
  EXPECT_EQ(Scores(result[1]), std::vector<float>{0.8f});
}

TEST(Suppression, ScalesOfOneClassSuppressEachOther) {
  OwnedOutputs outputs = MakeBlankOutputs(1, kSmallGrids);
  // 2.5..6.5 of 16 on scale 1 and 3..7 of 16 on scale 2.
  SetCell(&outputs, 0, 0, 4, 4, 0.7f, OneHotSides(2, 2, 2, 2));
  SetCell(&outputs, 1, 0, 2, 2, 0.8f, OneHotSides(1, 1, 1, 1));
  const DetectionsPerClass result = DecodeWith(outputs, kThreshold);
  EXPECT_EQ(Scores(result[0]), std::vector<float>{0.8f});
}

TEST(Suppression, DroppedBoxSuppressesNothingAndKeptAreInDescendingScore) {
  OwnedOutputs outputs = MakeBlankOutputs(1, kSmallGrids);
  // A chain in row 8, 7-cell boxes 2 cells apart: neighbours overlap by 5/9, ends by 3/11.
  SetCell(&outputs, 0, 0, 8, 2, 0.7f, OneHotSides(3, 1, 4, 1));
  SetCell(&outputs, 0, 0, 8, 4, 0.8f, OneHotSides(3, 1, 4, 1));
  SetCell(&outputs, 0, 0, 8, 6, 0.9f, OneHotSides(3, 1, 4, 1));
  // Apart from the chain.
  SetCell(&outputs, 0, 0, 1, 1, 0.75f, UnitSides());
  const DetectionsPerClass result = DecodeWith(outputs, kThreshold);
  EXPECT_EQ(Scores(result[0]), (std::vector<float>{0.9f, 0.75f, 0.7f}));
}

TEST(Suppression, BoxPastFrameEdgeCountsWithItsClampedExtent) {
  OwnedOutputs outputs = MakeBlankOutputs(1, kSmallGrids);
  // 14.5..22.5 of 16 clamped to 14.5..16, and 13.5..16.5 clamped to 13.5..16: they overlap by 1.5
  // of a 2.5-cell union once clamped (unclamped, by 1.5 of 9.5). One pair at the right edge, one
  // at the bottom.
  SetCell(&outputs, 0, 0, 8, 15, 0.9f, OneHotSides(1, 1, 7, 1));
  SetCell(&outputs, 0, 0, 8, 14, 0.8f, OneHotSides(1, 1, 2, 1));
  SetCell(&outputs, 0, 0, 15, 3, 0.7f, OneHotSides(1, 1, 1, 7));
  SetCell(&outputs, 0, 0, 14, 3, 0.6f, OneHotSides(1, 1, 1, 2));
  const DetectionsPerClass result = DecodeWith(outputs, kThreshold);
  EXPECT_EQ(Scores(result[0]), (std::vector<float>{0.9f, 0.7f}));
}

TEST(SuppressionIou, ClipsIntersectionToFrameButNotUnion) {
  // Identical boxes reaching half past the right edge: the intersection counts only the half
  // inside the frame, the union both whole boxes.
  const Detection box{0.9f, 0.5f, 0.0f, 1.5f, 1.0f, 0.0f, 0.0f};
  EXPECT_FLOAT_EQ(SuppressionIou(box, box), 0.5f / 1.5f);
  const Detection left{0.9f, -0.5f, 0.0f, 0.5f, 1.0f, 0.0f, 0.0f};
  EXPECT_FLOAT_EQ(SuppressionIou(left, left), 0.5f / 1.5f);
}

// Where a source row or column lands after the letterbox, in input-normalised units: the source
// is scaled by 384 over its longer side (relative to the square input) into the top-left corner.
float InputUnitsOfSource(float source_fraction, int source_extent, int other_extent) {
  const int longer = std::max(source_extent, other_extent);
  const float resized_extent = static_cast<float>(source_extent) * 384.0f / longer;
  return source_fraction * resized_extent / 384.0f;
}

// The detection with its axes exchanged.
Detection Transposed(const Detection& d) {
  return Detection{d.score, d.ymin, d.xmin, d.ymax, d.xmax, d.track_dy, d.track_dx};
}

TEST(Letterbox, KeepsTheAspectInsideTheSquareInput) {
  const LetterboxSize wide = Letterbox(1920, 1080, 384, 384);
  EXPECT_EQ(wide.width, 384u);
  EXPECT_EQ(wide.height, 216u);
  const LetterboxSize tall = Letterbox(1080, 1920, 384, 384);
  EXPECT_EQ(tall.width, 216u);
  EXPECT_EQ(tall.height, 384u);
  const LetterboxSize square = Letterbox(640, 640, 384, 384);
  EXPECT_EQ(square.width, 384u);
  EXPECT_EQ(square.height, 384u);
  for (const auto& source : {std::make_pair(4000u, 3u), std::make_pair(0u, 1080u)}) {
    try {
      Letterbox(source.first, source.second, 384, 384);
      ADD_FAILURE() << source.first << "x" << source.second;
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), "width or height <= 0 after resize");
    }
  }
}

// Two boxes, rows 4.5..8.5 and 6.5..10.5 of 16, decoded for a 1920x1080 source, whose picture ends
// at row 9 (216 of 384 input pixels); or, when tall, the same scene mirrored about the diagonal
// and decoded for a 1080x1920 source, returned mirrored back.
std::vector<Detection> DecodeLetterboxPair(bool tall) {
  OwnedOutputs outputs = MakeBlankOutputs(1, kSmallGrids);
  auto set = [&outputs, tall](int row, int col, float score) {
    if (tall) {
      SetCell(&outputs, 0, 0, col, row, score, OneHotSides(2, 1, 2, 1));
    } else {
      SetCell(&outputs, 0, 0, row, col, score, OneHotSides(1, 2, 1, 2));
    }
  };
  set(6, 3, 0.9f);
  set(8, 12, 0.8f);
  std::vector<Detection> result = tall ? DecodeWith(outputs, kThreshold, 1080, 1920)[0]
                                       : DecodeWith(outputs, kThreshold, 1920, 1080)[0];
  if (tall) {
    std::transform(result.begin(), result.end(), result.begin(), Transposed);
  }
  return result;
}

TEST(LetterboxUndo, ShorterSourceAxisIsStretchedAndCutAtFrameEdge) {
  for (bool tall : {false, true}) {
    SCOPED_TRACE(tall ? "1080x1920" : "1920x1080");
    const std::vector<Detection> result = DecodeLetterboxPair(tall);
    ASSERT_EQ(result.size(), 2u);
    const Detection& inside = result[0];
    EXPECT_EQ(inside.xmin, 2.5f / 16);
    EXPECT_EQ(inside.xmax, 4.5f / 16);
    EXPECT_NEAR(InputUnitsOfSource(inside.ymin, 1080, 1920), 4.5f / 16, 1e-6f);
    EXPECT_NEAR(InputUnitsOfSource(inside.ymax, 1080, 1920), 8.5f / 16, 1e-6f);
    const Detection& cut = result[1];
    EXPECT_NEAR(InputUnitsOfSource(cut.ymin, 1080, 1920), 6.5f / 16, 1e-6f);
    EXPECT_EQ(cut.ymax, 1.0f);
  }
}

TEST(LetterboxUndo, SquareSourceLeavesBoxesAsDecoded) {
  OwnedOutputs outputs = MakeBlankOutputs(1, kSmallGrids);
  SetCell(&outputs, 0, 0, 5, 4, 0.9f, OneHotSides(2, 1, 3, 4), 8.0f, 4.0f);
  const DetectionsPerClass input_scale = DecodeWith(outputs, kThreshold, 384, 384);
  const DetectionsPerClass square = DecodeWith(outputs, kThreshold, 720, 720);
  ASSERT_EQ(square[0].size(), 1u);
  EXPECT_EQ(std::memcmp(&square[0][0], &input_scale[0][0], sizeof(Detection)), 0);
}

// A realistic frame checked against a reference computed here in double precision: objects of a
// 1920x1080 source rendered as the network answers them (score blobs whose neighbour cells also
// pass the threshold, spread distance distributions), decoded to one detection per object.
struct GroundTruth {
  int class_index;
  int scale;
  float x1, y1, x2, y2;  // source pixels
  float score;
  float track_x, track_y;  // source pixels
};

// 1920x1080 is resized to 384x216: five source pixels per input pixel on both axes.
constexpr float kSourcePerInput = 5.0f;
constexpr float kSourceWidth = 1920.0f;
constexpr float kSourceHeight = 1080.0f;

double ReferenceDistance(const testing_model::OwnedTensor& regression, int side,
                         testing_model::Cell cell) {
  double logits[kRegressionBins];
  double max_logit = -HUGE_VAL;
  for (int j = 0; j < kRegressionBins; ++j) {
    logits[j] = regression.At(side * kRegressionBins + j, cell.row, cell.col);
    max_logit = std::max(max_logit, logits[j]);
  }
  double total = 0.0;
  double weighted = 0.0;
  for (int j = 0; j < kRegressionBins; ++j) {
    const double weight = std::exp(logits[j] - max_logit);
    total += weight;
    weighted += j * weight;
  }
  return weighted / total;
}

// The detection the network's answer at the object's centre cell stands for, in source units.
Detection ReferenceDetection(const OwnedOutputs& outputs, const testing_model::SyntheticObject& o) {
  const testing_model::Cell cell = testing_model::CentreCell(outputs, o);
  const testing_model::OwnedTensor& regression = outputs.regressions[static_cast<size_t>(o.scale)];
  const double stride = 384.0 / regression.width();  // input pixels per cell
  const double cx = cell.col + 0.5;
  const double cy = cell.row + 0.5;
  auto source_x = [&](double cells) { return cells * stride * kSourcePerInput / kSourceWidth; };
  auto source_y = [&](double cells) { return cells * stride * kSourcePerInput / kSourceHeight; };
  Detection d;
  d.score = o.score;
  d.xmin = static_cast<float>(source_x(cx - ReferenceDistance(regression, 0, cell)));
  d.ymin = static_cast<float>(source_y(cy - ReferenceDistance(regression, 1, cell)));
  d.xmax = static_cast<float>(source_x(cx + ReferenceDistance(regression, 2, cell)));
  d.ymax = static_cast<float>(source_y(cy + ReferenceDistance(regression, 3, cell)));
  d.track_dx = o.track_x * kSourcePerInput / kSourceWidth;
  d.track_dy = o.track_y * kSourcePerInput / kSourceHeight;
  return d;
}

void ExpectSameDetection(const Detection& actual, const Detection& expected, float tolerance) {
  EXPECT_EQ(actual.score, expected.score);
  EXPECT_NEAR(actual.xmin, expected.xmin, tolerance);
  EXPECT_NEAR(actual.ymin, expected.ymin, tolerance);
  EXPECT_NEAR(actual.xmax, expected.xmax, tolerance);
  EXPECT_NEAR(actual.ymax, expected.ymax, tolerance);
  EXPECT_NEAR(actual.track_dx, expected.track_dx, tolerance);
  EXPECT_NEAR(actual.track_dy, expected.track_dy, tolerance);
}

TEST(Decode, RealisticFrameMatchesReferenceAndGroundTruth) {
  const std::vector<GroundTruth> truths = {
      {0, 0, 200, 300, 400, 700, 0.9f, 20, -10}, {0, 1, 1200, 200, 1500, 900, 0.7f, -35, 5},
      {1, 2, 700, 500, 1300, 1000, 0.85f, 0, 0}, {1, 0, 1600, 100, 1800, 250, 0.6f, 50, 15},
      {2, 1, 100, 600, 500, 1000, 0.8f, -5, -5}, {3, 2, 1400, 500, 1900, 1050, 0.75f, 10, 30},
  };
  OwnedOutputs outputs = MakeBlankOutputs(4, {48, 24, 12});
  std::vector<std::vector<Detection>> expected(4);
  for (const GroundTruth& t : truths) {
    const testing_model::SyntheticObject object{t.class_index,
                                                t.scale,
                                                t.x1 / kSourcePerInput,
                                                t.y1 / kSourcePerInput,
                                                t.x2 / kSourcePerInput,
                                                t.y2 / kSourcePerInput,
                                                t.score,
                                                t.track_x / kSourcePerInput,
                                                t.track_y / kSourcePerInput};
    testing_model::RenderObject(&outputs, object);
    expected[static_cast<size_t>(t.class_index)].push_back(ReferenceDetection(outputs, object));
  }
  const DetectionsPerClass result = DecodeWith(outputs, kThreshold, 1920, 1080);
  ASSERT_EQ(result.size(), 4u);
  for (size_t c = 0; c < expected.size(); ++c) {
    std::sort(expected[c].begin(), expected[c].end(),
              [](const Detection& a, const Detection& b) { return a.score > b.score; });
    ASSERT_EQ(Scores(result[c]), Scores(expected[c])) << "class " << c;
    for (size_t n = 0; n < expected[c].size(); ++n) {
      ExpectSameDetection(result[c][n], expected[c][n], 1e-5f);
    }
  }
  // And the boxes are where the objects are, within a few source pixels.
  for (const GroundTruth& t : truths) {
    const std::vector<Detection>& list = result[static_cast<size_t>(t.class_index)];
    const auto found = std::find_if(list.begin(), list.end(),
                                    [&t](const Detection& d) { return d.score == t.score; });
    ASSERT_NE(found, list.end());
    EXPECT_NEAR(found->xmin * kSourceWidth, t.x1, 4.0f);
    EXPECT_NEAR(found->ymin * kSourceHeight, t.y1, 4.0f);
    EXPECT_NEAR(found->xmax * kSourceWidth, t.x2, 4.0f);
    EXPECT_NEAR(found->ymax * kSourceHeight, t.y2, 4.0f);
  }
}

}  // namespace
}  // namespace mirvane
