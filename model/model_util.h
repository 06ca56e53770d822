// Setting up the detection network: the table of its input and output path ids (with built-in
// defaults and an optional override file), loading the model file into device memory, and the
// runner that opens the network, gives it its work buffer and starts it.
//
// NetworkRunner owns the opened network and its started run (stopped, then closed, on
// destruction); the device memory it carves belongs to the arena. Threads: the pipeline thread.
#ifndef MIRVANE_MODEL_MODEL_UTIL_H
#define MIRVANE_MODEL_MODEL_UTIL_H

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>

#include "nvt/hd_module.h"

namespace mirvane {

constexpr const char* kModelIdConfigPath = "/tmp/workspace/model/model_id.config";
constexpr const char* kDefaultModelPath = "/etc/tolvern-ai/mirvane_model.bin";

struct ModelIds {
  std::string model_path = kDefaultModelPath;                   // kModelPath
  uint32_t current_img = 0x90000000;                            // kCurrentImgPath
  uint32_t pre_img = 0x90000001;                                // kPreImgPath
  uint32_t hm[3] = {0xa0000084, 0xa0000096, 0xa00000a7};        // kHm1Path..kHm3Path
  uint32_t reg[3] = {0xa000007e, 0xa0000094, 0xa00000a5};       // kReg1Path..kReg3Path
  uint32_t tracking[3] = {0xa0000081, 0xa0000095, 0xa00000a6};  // kTracking1Path..kTracking3Path
};

// The ids from kModelIdConfigPath ("key=hex value" lines), or the defaults when the file is
// missing, lacks an id or holds a value that is not a 32-bit hexadecimal number. Never fails.
ModelIds GetModelIds();
// The same from another file (tests).
ModelIds GetModelIds(const char* path);
// The same from the text of such a file, read to its end (the file versions open the file and
// parse it here).
ModelIds GetModelIds(std::istream& text);

// Size of the file in bytes, or 0xFFFFFFFF when it cannot be opened.
uint32_t GetModelSize(const std::string& path);

// Reads the whole file into destination, which holds capacity bytes. Returns 0, or -24 when the
// file cannot be opened; a short read or a file larger than capacity is logged and still 0 (the
// runtime's own model check decides then).
int LoadModel(const std::string& path, void* destination, uint32_t capacity);

class NetworkRunner {
 public:
  // Reads the ids, loads the model into arena memory, opens the network, hands it its work buffer
  // and starts it. Throws std::runtime_error on any failure.
  NetworkRunner(uint32_t proc_id, HdModule& arena);
  NetworkRunner(const NetworkRunner&) = delete;
  NetworkRunner& operator=(const NetworkRunner&) = delete;

  uint32_t proc_id() const { return proc_id_; }
  const ModelIds& ids() const { return ids_; }

 private:
  void InitVendorAiNetRunner(HdModule& arena);

  uint32_t proc_id_;
  ModelIds ids_;
  std::unique_ptr<VendorAiNet> net_;
  std::unique_ptr<VendorAiNetRunner> run_;
};

}  // namespace mirvane

#endif  // MIRVANE_MODEL_MODEL_UTIL_H
