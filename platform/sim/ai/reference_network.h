// The reference detection network: from the current and the previous 384x384 picture it writes
// the nine output tensors of a three-scale detector with motion offsets, the way a trained
// network of that kind would.
//
// Scales 0, 1, 2 have grids of 48, 24 and 12 cells (strides 8, 16, 32); element (channel k, row y,
// column x) of a tensor is at k*H*W + y*W + x.
//   heatmap     4 channels (class ids 1..4): the object's score at the cell holding its centre,
//               on the finest scale whose centre cell reaches all four sides within 7 cells;
//               lower values on the neighbouring cells, zero elsewhere.
//   regression  32 channels, side-major (left, top, right, bottom) by 8 bins: logits whose softmax
//               expectation is the side's distance from the cell centre in cells (0..7), solved
//               for the output's own fixed-point format so that it survives quantisation.
//   tracking    2 channels: the displacement in input pixels from the object's centre back to its
//               centre in the previous picture (0 for an object that just appeared).
// Imperfections (score jitter, missed and false detections, box jitter) come from the model's
// settings and a generator seeded from the settings' seed and the run number: the same model
// and the same pictures give the same outputs.
//
// Owns its output tensors (floats, holding exactly representable values of each output's format)
// and the objects of the last current picture. One thread at a time.
#ifndef MIRVANE_PLATFORM_SIM_AI_REFERENCE_NETWORK_H
#define MIRVANE_PLATFORM_SIM_AI_REFERENCE_NETWORK_H

#include <cstdint>
#include <vector>

#include "fixed_point.h"
#include "host_network.h"
#include "model_file.h"
#include "object_finder.h"

namespace mirvane {
namespace sim {
namespace ai {

// One detection as the network encodes it: class id, box in input pixels, score, and the
// displacement back to the previous picture.
struct EncodedObject {
  FoundObject box;
  float score = 0;
  float dx = 0, dy = 0;
};

class ReferenceNetwork : public HostNetwork {
 public:
  // model must have passed ParseModel.
  explicit ReferenceNetwork(const ModelDescription& model);
  ReferenceNetwork(const ReferenceNetwork&) = delete;
  ReferenceNetwork& operator=(const ReferenceNetwork&) = delete;

  // One run; the outputs hold its tensors until the next run.
  void Run(const Nv12Picture& current, const Nv12Picture& previous) override;
  // Writes the tensors of objects found elsewhere (another detector), as a run would, without
  // imperfections; they then stand as what the last run encoded.
  void EncodeObjects(std::vector<EncodedObject> objects);

  const std::vector<float>& output(size_t i) const override { return outputs_[i]; }
  // What the last run encoded, after its imperfections.
  const std::vector<EncodedObject>& encoded() const { return encoded_; }
  uint64_t runs() const { return runs_; }

 private:
  struct Slot {
    int heatmap = -1, regression = -1, tracking = -1;  // output indices
    int grid = 0;
    float stride = 0;
  };
  const std::vector<FoundObject>& ObjectsOf(const Nv12Picture& previous);
  void ApplyImperfections(std::vector<EncodedObject>* objects);
  void Encode(const EncodedObject& object);
  void SolveLogits(float distance, const OutputPath& format, float logits[8]) const;

  ModelDescription model_;
  std::vector<FixedFormat> formats_;
  Slot slots_[3];
  std::vector<std::vector<float>> outputs_;
  std::vector<std::vector<float>> owner_heat_;  // per scale: heat of the object owning each cell
  ObjectFinder finder_;
  uint64_t runs_ = 0;
  // The last current picture and its objects, reused when it comes back as the previous one.
  std::vector<uint8_t> last_picture_;
  std::vector<FoundObject> last_objects_;
  std::vector<FoundObject> previous_objects_;
  std::vector<EncodedObject> encoded_;
};

}  // namespace ai
}  // namespace sim
}  // namespace mirvane

#endif  // MIRVANE_PLATFORM_SIM_AI_REFERENCE_NETWORK_H
