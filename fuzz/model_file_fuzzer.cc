// Fuzz target: the host model file, as the simulated network runtime parses it from device memory.
//
// Random bytes rarely carry a valid CRC-32, so the target writes the right checksum into the
// header (when the size field fits the input) unless the input's last byte is odd: both the
// checksum test and the chunk parser behind it get exercised. A model that parses must come out of
// SerializeModel and ParseModel again unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "model_file.h"

namespace {

using mirvane::sim::ai::kModelHeaderSize;
using mirvane::sim::ai::ModelCheck;
using mirvane::sim::ai::ModelDescription;

uint32_t LoadU32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
         static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

void StoreU32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<uint8_t> bytes(data, data + size);
  if (size >= kModelHeaderSize && (data[size - 1] & 1) == 0) {
    const uint32_t total = LoadU32(bytes.data() + 8);
    if (total >= kModelHeaderSize && total <= size) {
      StoreU32(bytes.data() + 12, mirvane::sim::ai::ModelChecksum(bytes.data() + kModelHeaderSize,
                                                                  total - kModelHeaderSize));
    }
  }
  // An exactly sized copy, so that AddressSanitizer sees any read past the region.
  ModelDescription model;
  const ModelCheck check = mirvane::sim::ai::ParseModel(bytes.data(), bytes.size(), &model);
  if (check.code == 0) {
    if (!check.reason.empty()) std::abort();
    const std::string described = mirvane::sim::ai::DescribeModel(model);
    const std::vector<uint8_t> again = mirvane::sim::ai::SerializeModel(model);
    ModelDescription reparsed;
    if (mirvane::sim::ai::ParseModel(again.data(), again.size(), &reparsed).code != 0 ||
        mirvane::sim::ai::DescribeModel(reparsed) != described) {
      std::abort();
    }
  } else if (check.reason.empty()) {
    std::abort();  // every refusal says why
  }
  return 0;
}
