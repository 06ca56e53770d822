// One run of the reference network on a 384x384 picture with eight objects, the previous picture
// either the last current one (the daemon's steady state: its objects are reused) or another one;
// and one vendor_ai_net_proc with the default formats and no processing delay.
#include <benchmark/benchmark.h>

#include "bench_scene.h"

namespace {

using namespace mirvane::sim_ai_bench;

void BM_NetworkRunSteadyState(benchmark::State& state) {
  mirvane::sim::ai::ReferenceNetwork network(Model());
  TestPicture a = Scene(0), b = Scene(4);
  bool flip = false;
  for (auto _ : state) {
    // Alternating pictures, each coming back as the previous one of the next run.
    if (flip) {
      network.Run(View(a), View(b));
    } else {
      network.Run(View(b), View(a));
    }
    flip = !flip;
  }
}
BENCHMARK(BM_NetworkRunSteadyState)->Unit(benchmark::kMicrosecond);

void BM_NetworkRunUnknownPrevious(benchmark::State& state) {
  mirvane::sim::ai::ReferenceNetwork network(Model());
  TestPicture a = Scene(0), b = Scene(4);
  for (auto _ : state) network.Run(View(a), View(b));
}
BENCHMARK(BM_NetworkRunUnknownPrevious)->Unit(benchmark::kMicrosecond);

void BM_RuntimeProc(benchmark::State& state) {
  StartedNetwork net;
  TestPicture a = Scene(0), b = Scene(4);
  bool flip = false;
  for (auto _ : state) {
    if ((flip ? net.Proc(a, b) : net.Proc(b, a)) != HD_OK) state.SkipWithError("proc failed");
    flip = !flip;
  }
}
BENCHMARK(BM_RuntimeProc)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
