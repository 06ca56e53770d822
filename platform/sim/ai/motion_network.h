// The motion detector: a network for real footage that finds what moves rather than what it looks
// like. Background subtraction (OpenCV's MOG2, shadows left out) on the current input picture,
// the foreground cleaned up and split into connected blobs, each blob a box whose class follows
// its shape and size: tall is a person, wide and large a vehicle, anything else other. Each box's
// motion offset points back to the matching blob of the previous run. The boxes are written into
// the nine output tensors by the reference network's encoding, with the model's score as heat.
//
// The background model learns from every run, so the detector expects the pictures of one camera
// in order; the first runs, while it has seen too little, find nothing. Owns the background model
// and its scratch pictures; one thread at a time. Built only with OpenCV.
#ifndef MIRVANE_PLATFORM_SIM_AI_MOTION_NETWORK_H
#define MIRVANE_PLATFORM_SIM_AI_MOTION_NETWORK_H

#include <memory>
#include <vector>

#include "host_network.h"
#include "reference_network.h"

namespace mirvane {
namespace sim {
namespace ai {

class MotionNetwork : public HostNetwork {
 public:
  // model must have passed ParseModel.
  explicit MotionNetwork(const ModelDescription& model);
  ~MotionNetwork() override;
  MotionNetwork(const MotionNetwork&) = delete;
  MotionNetwork& operator=(const MotionNetwork&) = delete;

  void Run(const Nv12Picture& current, const Nv12Picture& previous) override;
  const std::vector<float>& output(size_t i) const override { return encoder_.output(i); }
  // What the last run found and encoded.
  const std::vector<EncodedObject>& encoded() const { return encoder_.encoded(); }

 private:
  struct Subtractor;
  float score_;
  ReferenceNetwork encoder_;
  std::unique_ptr<Subtractor> subtractor_;
  std::vector<FoundObject> last_;
  uint64_t runs_ = 0;
};

// The class of a blob of w x h pixels in a picture of the given area: 1 person, 2 vehicle, 3 other.
int ClassOfBlob(float w, float h, float picture_area);

}  // namespace ai
}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_AI_MOTION_NETWORK_H
