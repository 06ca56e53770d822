#include "motion_network.h"

#include <opencv2/imgproc.hpp>
#include <opencv2/video/background_segm.hpp>

namespace mirvane {
namespace sim {
namespace ai {

namespace {

constexpr int kHistory = 200;  // runs the background remembers
constexpr double kVarianceThreshold = 16;
constexpr int kWarmUpRuns = 2;            // runs before the background means anything
constexpr float kMinBlobShare = 0.0003f;  // of the picture: smaller blobs are noise
constexpr float kMaxBlobShare = 0.25f;    // larger ones are a change of light, not an object
constexpr float kVehicleShare = 0.004f;   // a wide blob at least this large is a vehicle

}  // namespace

struct MotionNetwork::Subtractor {
  cv::Ptr<cv::BackgroundSubtractorMOG2> mog2 =
      cv::createBackgroundSubtractorMOG2(kHistory, kVarianceThreshold, true);
  cv::Mat bgr, mask, labels, stats, centroids;
  cv::Mat open = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3));
  cv::Mat close = cv::getStructuringElement(cv::MORPH_ELLIPSE, cv::Size(7, 7));
};

int ClassOfBlob(float w, float h, float picture_area) {
  if (h >= 0.8f * w) return dva::kClassPerson;
  return w * h >= kVehicleShare * picture_area ? dva::kClassVehicle : dva::kClassOther;
}

MotionNetwork::MotionNetwork(const ModelDescription& model)
    : score_(model.settings.score), encoder_(model), subtractor_(new Subtractor) {}

MotionNetwork::~MotionNetwork() = default;

void MotionNetwork::Run(const Nv12Picture& current, const Nv12Picture& /*previous*/) {
  Subtractor& s = *subtractor_;
  const cv::Mat y(current.height, current.width, CV_8UC1, const_cast<uint8_t*>(current.y),
                  static_cast<size_t>(current.stride));
  const cv::Mat uv(current.height / 2, current.width / 2, CV_8UC2, const_cast<uint8_t*>(current.uv),
                   static_cast<size_t>(current.stride));
  cv::cvtColorTwoPlane(y, uv, s.bgr, cv::COLOR_YUV2BGR_NV12);
  s.mog2->apply(s.bgr, s.mask);
  // Shadows are marked 127, the foreground 255.
  cv::threshold(s.mask, s.mask, 200, 255, cv::THRESH_BINARY);
  cv::morphologyEx(s.mask, s.mask, cv::MORPH_OPEN, s.open);
  cv::morphologyEx(s.mask, s.mask, cv::MORPH_CLOSE, s.close);

  std::vector<FoundObject> found;
  const float area = static_cast<float>(current.width) * static_cast<float>(current.height);
  if (runs_ >= kWarmUpRuns) {
    const int count =
        cv::connectedComponentsWithStats(s.mask, s.labels, s.stats, s.centroids, 8, CV_32S);
    for (int i = 1; i < count; ++i) {
      const float pixels = static_cast<float>(s.stats.at<int>(i, cv::CC_STAT_AREA));
      if (pixels < kMinBlobShare * area || pixels > kMaxBlobShare * area) continue;
      FoundObject o;
      o.x0 = static_cast<float>(s.stats.at<int>(i, cv::CC_STAT_LEFT));
      o.y0 = static_cast<float>(s.stats.at<int>(i, cv::CC_STAT_TOP));
      o.x1 = o.x0 + static_cast<float>(s.stats.at<int>(i, cv::CC_STAT_WIDTH));
      o.y1 = o.y0 + static_cast<float>(s.stats.at<int>(i, cv::CC_STAT_HEIGHT));
      o.class_id = ClassOfBlob(o.x1 - o.x0, o.y1 - o.y0, area);
      found.push_back(o);
    }
  }
  const std::vector<int> match = MatchPrevious(found, last_);
  std::vector<EncodedObject> encoded;
  for (size_t i = 0; i < found.size(); ++i) {
    EncodedObject e;
    e.box = found[i];
    e.score = score_;
    if (match[i] >= 0) {
      e.dx = last_[match[i]].cx() - found[i].cx();
      e.dy = last_[match[i]].cy() - found[i].cy();
    }
    encoded.push_back(e);
  }
  encoder_.EncodeObjects(std::move(encoded));
  last_ = std::move(found);
  ++runs_;
}

}  // namespace ai
}  // namespace sim
}  // namespace mirvane
