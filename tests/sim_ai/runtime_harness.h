// Drives the network runtime through its C API the way the daemon does (engine, init, options,
// model, open, work buffer, start; stop, close, uninit at the end), over the fake device memory.
#ifndef MIRVANE_TESTS_SIM_AI_RUNTIME_HARNESS_H
#define MIRVANE_TESTS_SIM_AI_RUNTIME_HARNESS_H

#include <cstdint>
#include <vector>

extern "C" {
#include "vendor_ai.h"
}

#include "model_file.h"
#include "reference_decoder.h"

namespace mirvane {
namespace sim_ai_test {

// The default model without imperfections: exact boxes, fixed scores, no delay.
sim::ai::ModelDescription IdealModel();

// A 384x384 YUV 4:2:0 input record for a picture in (fake) device memory.
VENDOR_AI_BUF InputRecord(uint8_t* picture);

// The runtime initialised and one network started on model. Owns the model's and the work
// buffer's memory; tears everything down in reverse order. ok() says whether set-up succeeded.
class RunningNetwork {
 public:
  explicit RunningNetwork(const sim::ai::ModelDescription& model = IdealModel(),
                          UINT32 proc_id = 0);
  ~RunningNetwork();
  RunningNetwork(const RunningNetwork&) = delete;
  RunningNetwork& operator=(const RunningNetwork&) = delete;

  bool ok() const { return ok_; }
  UINT32 proc_id() const { return proc_id_; }
  const std::vector<uint8_t>& work_buffer() const { return work_buffer_; }

  // Sets both inputs and runs the network.
  HD_RESULT Run(uint8_t* current, uint8_t* previous);
  // One output, converted to floats as the daemon does.
  Tensor Get(UINT32 path_id);
  // The nine outputs by the default ids, decoded with the reference decoder.
  std::vector<std::vector<Decoded>> Decode(float threshold);

 private:
  UINT32 proc_id_;
  std::vector<uint8_t> model_;
  std::vector<uint8_t> work_buffer_;
  bool ok_ = false;
  bool initialised_ = false, opened_ = false, started_ = false;
};

}  // namespace sim_ai_test
}  // namespace mirvane

#endif  // MIRVANE_TESTS_SIM_AI_RUNTIME_HARNESS_H
