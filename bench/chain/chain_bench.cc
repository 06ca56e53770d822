// Per-frame cost of the whole chain after inference: the nine outputs in the runtime's
// fixed-point formats in, the event payload out (see chain.h for the scene). Per-stage
// instruction counts: scripts/chain-cost.sh.
#include <benchmark/benchmark.h>

#include "bench/chain/chain.h"

namespace mirvane {
namespace bench {
namespace {

void BM_ChainAfterInference(benchmark::State& state) {
  Chain chain;
  uint64_t index = 0;
  for (; index < 4 * kChainPeriod; ++index) chain.RunFrame(index);  // tracks and triggers settle
  for (auto _ : state) benchmark::DoNotOptimize(chain.RunFrame(index++));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ChainAfterInference);

}  // namespace
}  // namespace bench
}  // namespace mirvane

BENCHMARK_MAIN();
