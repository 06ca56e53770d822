// A fixed replay of the chain after inference, for instruction counts per stage:
//
//   chain_frames WARMUP FRAMES
//
// runs WARMUP frames (tracks born, rule statuses made, triggers due), then FRAMES frames inside
// MeasuredFrames, the function that scripts/chain-cost.sh has callgrind count; the stages are the
// Chain member functions it calls.
#include <cstdio>
#include <cstdlib>

#include "bench/chain/chain.h"

namespace {

// The sum of the payloads' object counts, so that nothing can be left out.
__attribute__((noinline)) unsigned long MeasuredFrames(mirvane::bench::Chain* chain, uint64_t first,
                                                       int frames) {
  unsigned long objects = 0;
  for (int f = 0; f < frames; ++f) objects += chain->RunFrame(first + static_cast<uint64_t>(f));
  return objects;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s WARMUP_FRAMES FRAMES\n", argv[0]);
    return 2;
  }
  const int warmup = std::atoi(argv[1]);
  const int frames = std::atoi(argv[2]);
  if (warmup < 0 || frames <= 0) {
    std::fprintf(stderr, "%s: frame counts must be positive\n", argv[0]);
    return 2;
  }
  mirvane::bench::Chain chain;
  for (int f = 0; f < warmup; ++f) chain.RunFrame(static_cast<uint64_t>(f));
  const unsigned long objects = MeasuredFrames(&chain, static_cast<uint64_t>(warmup), frames);
  std::printf("%d frames after %d, %lu objects reported\n", frames, warmup, objects);
  return 0;
}
