// The detection model on the host simulation: the network runner's set-up from the model file,
// the letterbox, a failing inference step, the previous-frame input, and the round trip from
// rendered 1080p frames through the frame reader and the reference network back to the boxes of
// the scene's ground truth.
#include "model/nano_track.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/object_class.h"
#include "image_reader/stream_reader.h"
#include "model/model_on_sim.h"
#include "nvt/hd_module.h"
#include "sim_test_support.h"
#include "testing/checks_in_child.h"

namespace mirvane {
namespace {

using image_reader::IReader;
using image_reader::StreamReader;
using testing::ChildResult;
using testing::CountErrorLogLines;
using testing::RunChecksInChild;
using testing::UseSimSettings;
using testing_model::ReadGroundTruth;
using testing_model::TruthBox;
using testing_model::UseModelFile;

constexpr uint32_t kProcId = 0;
constexpr float kSourceWidth = 1920;
constexpr float kSourceHeight = 1080;
constexpr char kTruthPath[] = "/tmp/truth.csv";

std::string FastVideo(const std::string& faults = "[]") {
  return std::string(R"({"video": {"pace": "fast", "scene": "default", "ground_truth": ")") +
         kTruthPath + R"("}, "faults": )" + faults + "}";
}

struct PixelBox {
  float x0, y0, x1, y1;
};

PixelBox InSource(const Detection& d) {
  return {d.xmin * kSourceWidth, d.ymin * kSourceHeight, d.xmax * kSourceWidth,
          d.ymax * kSourceHeight};
}

PixelBox InSource(const TruthBox& b) {
  return {static_cast<float>(b.x0), static_cast<float>(b.y0), static_cast<float>(b.x1),
          static_cast<float>(b.y1)};
}

float Iou(const PixelBox& a, const PixelBox& b) {
  const float w = std::min(a.x1, b.x1) - std::max(a.x0, b.x0);
  const float h = std::min(a.y1, b.y1) - std::max(a.y0, b.y0);
  if (w <= 0 || h <= 0) return 0;
  const float area_a = (a.x1 - a.x0) * (a.y1 - a.y0);
  const float area_b = (b.x1 - b.x0) * (b.y1 - b.y0);
  return w * h / (area_a + area_b - w * h);
}

size_t CountDetections(const DetectionsPerClass& found) {
  size_t n = 0;
  for (const std::vector<Detection>& list : found) n += list.size();
  return n;
}

// Checks run in a child: the platform's bring-up and the device memory it takes last as long as
// the process.

// A model file that the runtime refuses still took its region, rounded up to 32 bytes; a missing
// or empty file stops the runner with its text and takes nothing.
TEST(NetworkRunner, TakesTheModelFileRegionRoundedUpAndStopsOnABadFile) {
  const ChildResult result = RunChecksInChild([] {
    std::ofstream("/tmp/big.bin", std::ios::binary) << std::string(1000001, 'm');
    std::ofstream("/tmp/empty.bin", std::ios::binary).flush();
    HdModule arena;
    const auto expect_refused = [&arena](const std::string& model, const std::string& text,
                                         uint32_t taken) {
      SCOPED_TRACE(model);
      UseModelFile(model);
      const uint32_t before = arena.remaining();
      try {
        NetworkRunner runner(kProcId, arena);
        ADD_FAILURE() << "the runner started";
      } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()).rfind(text, 0), 0u) << e.what();
      }
      EXPECT_EQ(before - arena.remaining(), taken);
    };
    expect_refused("/tmp/big.bin", "ERR: vendor_ai_net_open fail = ", 1000032);
    expect_refused("/tmp/no-such.bin", "ERR: load model fail: -24", 0);
    expect_refused("/tmp/empty.bin", "ERR: input model not exist: /tmp/empty.bin", 0);
  });
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
}

// The pictures the model is fed, read from the simulation's video output (1080p, default scene).
class Frames {
 public:
  explicit Frames(StreamReader* reader) : reader_(reader) {}
  // The frame with this index (frames before it are read and dropped).
  std::unique_ptr<IReader::Image> At(int index) {
    std::unique_ptr<IReader::Image> image;
    while (next_ <= index) {
      image = reader_->Read();
      ++next_;
    }
    return image;
  }

 private:
  StreamReader* reader_;
  int next_ = 0;
};

TEST(NanoTrack, AFailingInferenceGivesOneLogLineAndEmptyClassListsThenWorksAgain) {
  const ChildResult result = RunChecksInChild([] {
    UseSimSettings(FastVideo(R"([{"call": "vendor_ai_net_proc", "code": -10, "nth": 1,
                                  "count": 1}])"));
    // No model id file: the default ids and the build's model under /etc/tolvern-ai.
    std::remove(kModelIdConfigPath);
    HdModule arena;
    StreamReader reader;
    const float threshold = 0.5f;
    NanoTrack model(kProcId, threshold, arena);
    std::unique_ptr<IReader::Image> image = Frames(&reader).At(400);
    ASSERT_NE(image, nullptr);
    const DetectionsPerClass failed = model.Run(image->buffer);
    ASSERT_EQ(failed.size(), 4u);
    EXPECT_EQ(CountDetections(failed), 0u);
    const DetectionsPerClass next = model.Run(image->buffer);
    EXPECT_EQ(next.size(), 4u);
    EXPECT_GT(CountDetections(next), 3u);
  });
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
  EXPECT_EQ(CountErrorLogLines(result.out), 1) << result.out;
  EXPECT_NE(result.out.find("nano_track.cc:"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find(":Run: Proc fail: -10\n"), std::string::npos) << result.out;
}

constexpr float kTolerancePx = 5;  // one pixel of the network's input, in the source frame
constexpr int kMinSidePx = 20;     // smaller objects are below what the network resolves

// An object no other object of the frame touches, large enough to be found whole.
bool StandsAlone(const TruthBox& b, const std::vector<TruthBox>& frame) {
  if (b.x1 - b.x0 < kMinSidePx || b.y1 - b.y0 < kMinSidePx) return false;
  for (const TruthBox& o : frame) {
    if (&o != &b && o.x0 < b.x1 && b.x0 < o.x1 && o.y0 < b.y1 && b.y0 < o.y1) return false;
  }
  return true;
}

// The detection of the object's class that overlaps its box most, or null.
const Detection* Closest(const DetectionsPerClass& found, const TruthBox& b) {
  const Detection* best = nullptr;
  float best_iou = 0;
  for (const Detection& d : found[dva::ClassIndex(b.class_id)]) {
    const float iou = Iou(InSource(d), InSource(b));
    if (iou > best_iou) best_iou = iou, best = &d;
  }
  return best;
}

// Wholly inside the frame: its box is not cut by the frame's edge.
bool Inside(const TruthBox& b) {
  return b.x0 > 0 && b.y0 > 0 && b.x1 < kSourceWidth && b.y1 < kSourceHeight;
}

const TruthBox* FindObject(const std::vector<TruthBox>& frame, int object_id) {
  for (const TruthBox& b : frame) {
    if (b.object_id == object_id) return &b;
  }
  return nullptr;
}

// Every object standing alone comes back with its class and its box within a pixel of the
// network's input; every detection lies on objects of its class (touching objects of one class
// may come back as one box). With the previous frame's
// objects given, the offsets lead back to where each object was.
void ExpectFramesObjects(const DetectionsPerClass& found, const std::vector<TruthBox>& frame,
                         const std::vector<TruthBox>* previous) {
  ASSERT_EQ(found.size(), 4u);
  for (const TruthBox& b : frame) {
    if (!StandsAlone(b, frame)) continue;
    SCOPED_TRACE("object " + std::to_string(b.object_id) + " class " + std::to_string(b.class_id));
    const Detection* d = Closest(found, b);
    ASSERT_NE(d, nullptr);
    const PixelBox p = InSource(*d);
    EXPECT_NEAR(p.x0, b.x0, kTolerancePx);
    EXPECT_NEAR(p.y0, b.y0, kTolerancePx);
    EXPECT_NEAR(p.x1, b.x1, kTolerancePx);
    EXPECT_NEAR(p.y1, b.y1, kTolerancePx);
    const TruthBox* before = previous != nullptr ? FindObject(*previous, b.object_id) : nullptr;
    if (before != nullptr && StandsAlone(*before, *previous) && Inside(*before) && Inside(b)) {
      EXPECT_NEAR(d->track_dx * kSourceWidth, (before->x0 + before->x1 - b.x0 - b.x1) / 2.0f,
                  kTolerancePx);
      EXPECT_NEAR(d->track_dy * kSourceHeight, (before->y0 + before->y1 - b.y0 - b.y1) / 2.0f,
                  kTolerancePx);
    }
  }
  for (size_t c = 0; c < found.size(); ++c) {
    for (const Detection& d : found[c]) {
      const PixelBox p = InSource(d);
      float covered = 0;
      for (const TruthBox& b : frame) {
        if (b.class_id != static_cast<int>(c) + 1) continue;
        const PixelBox t = InSource(b);
        const float w = std::min(p.x1, t.x1) - std::max(p.x0, t.x0);
        const float h = std::min(p.y1, t.y1) - std::max(p.y0, t.y0);
        if (w > 0 && h > 0) covered += w * h / ((p.x1 - p.x0) * (p.y1 - p.y0));
      }
      EXPECT_GT(covered, 0.5f) << "class " << c + 1 << " at " << p.x0 << "," << p.y0 << "-" << p.x1
                               << "," << p.y1;
    }
  }
}

TEST(NanoTrack, FramesOfTheSceneDecodeToTheGroundTruth) {
  const ChildResult result = RunChecksInChild([] {
    UseSimSettings(FastVideo());
    UseModelFile(MIRVANE_IDEAL_MODEL_FILE);
    std::vector<std::pair<uint64_t, DetectionsPerClass>> runs;
    {
      HdModule arena;
      StreamReader reader;
      const float threshold = 0.5f;
      NanoTrack model(kProcId, threshold, arena);
      for (int i = 0; i < 500; ++i) {
        std::unique_ptr<IReader::Image> image = reader.Read();
        ASSERT_NE(image, nullptr);
        runs.emplace_back(image->timestamp, model.Run(image->buffer));
      }
    }
    const std::map<uint64_t, std::vector<TruthBox>> truth = ReadGroundTruth(kTruthPath);
    const std::vector<TruthBox> none;
    size_t objects = 0;
    const std::vector<TruthBox>* previous = nullptr;
    for (const auto& run : runs) {
      SCOPED_TRACE("frame at " + std::to_string(run.first) + " us");
      const auto frame = truth.find(run.first);
      const std::vector<TruthBox>& boxes = frame != truth.end() ? frame->second : none;
      ExpectFramesObjects(run.second, boxes, previous);
      objects += CountDetections(run.second);
      previous = &boxes;
    }
    EXPECT_GT(objects, 1500u) << "the scene's objects were found at all";
  });
  EXPECT_EQ(result.exit_code, 0) << result.out.substr(0, 20000) << result.err;
  EXPECT_EQ(CountErrorLogLines(result.out), 0);
}

TEST(NanoTrack, TheFirstFrameIsAlsoThePreviousOneAndThenEachFrameIsTheNextsPrevious) {
  const ChildResult result = RunChecksInChild([] {
    UseSimSettings(FastVideo());
    UseModelFile(MIRVANE_IDEAL_MODEL_FILE);
    DetectionsPerClass first, second, again;
    {
      HdModule arena;
      StreamReader reader;
      const float threshold = 0.5f;
      NanoTrack model(kProcId, threshold, arena);
      Frames frames(&reader);
      std::unique_ptr<IReader::Image> a = frames.At(400);
      std::unique_ptr<IReader::Image> b = frames.At(405);
      ASSERT_NE(a, nullptr);
      ASSERT_NE(b, nullptr);
      first = model.Run(a->buffer);
      second = model.Run(b->buffer);
      again = model.Run(b->buffer);
    }
    const std::map<uint64_t, std::vector<TruthBox>> truth = ReadGroundTruth(kTruthPath);
    const std::vector<TruthBox>& at_a = truth.at(1000000 + 400 * 40000);
    const std::vector<TruthBox>& at_b = truth.at(1000000 + 405 * 40000);
    // The first run compares the frame with itself: everything found, nothing moved.
    ExpectFramesObjects(first, at_a, &at_a);
    // The next one compares with the first: the moving objects lead back to where they were.
    ExpectFramesObjects(second, at_b, &at_a);
    float moved = 0;
    for (const auto& list : second) {
      for (const Detection& d : list) moved = std::max(moved, std::fabs(d.track_dx) * kSourceWidth);
    }
    EXPECT_GT(moved, 30.0f);
    // The same picture once more: now it is its own previous.
    ExpectFramesObjects(again, at_b, &at_b);
  });
  EXPECT_EQ(result.exit_code, 0) << result.out << result.err;
  EXPECT_EQ(CountErrorLogLines(result.out), 0);
}

}  // namespace
}  // namespace mirvane
