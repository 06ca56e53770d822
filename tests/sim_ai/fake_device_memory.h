// Test fake of the platform's device memory for the network runtime's tests: physical addresses
// are host pointers, and hd_common_mem_mmap hands back the same pointer. It counts the live
// mappings so that tests can see every mapping released, and can be told to refuse mappings.
#ifndef MIRVANE_TESTS_SIM_AI_FAKE_DEVICE_MEMORY_H
#define MIRVANE_TESTS_SIM_AI_FAKE_DEVICE_MEMORY_H

#include <cstdint>

namespace mirvane {
namespace sim_ai_test {

// The physical address of host memory under the fake.
inline unsigned long PhysicalOf(const void* p) {
  return reinterpret_cast<uintptr_t>(p);
}

int LiveMappings();
void RefuseMappings(bool refuse);

}  // namespace sim_ai_test
}  // namespace mirvane

#endif  // MIRVANE_TESTS_SIM_AI_FAKE_DEVICE_MEMORY_H
