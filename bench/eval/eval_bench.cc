// Cost of scoring a run: one minute at 25 frames a second with 15 people walking across the
// picture, tracked with jittered boxes, a missed box now and then and an identity change every
// few hundred frames. Each benchmark scores the whole sequence; items are frames.
#include <benchmark/benchmark.h>

#include <random>

#include "clear_mot.h"
#include "hota.h"
#include "identity.h"

namespace mirvane {
namespace eval {
namespace {

constexpr int kFrames = 1500;
constexpr int kObjects = 15;

Sequence Scene() {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> jitter(-0.01, 0.01);
  std::bernoulli_distribution missed(0.1);
  std::bernoulli_distribution new_track(0.003);
  std::vector<int64_t> track(kObjects);
  int64_t next_track = 0;
  for (int64_t& t : track) t = next_track++;
  Sequence sequence(kFrames);
  for (int f = 0; f < kFrames; ++f) {
    for (int k = 0; k < kObjects; ++k) {
      const double x = 0.06 * k + 0.0005 * f;
      const double y = 0.1 + 0.05 * (k % 10);
      const Box box{x, y, x + 0.05, y + 0.15};
      sequence[f].truth.push_back({k, box});
      if (missed(random)) continue;
      if (new_track(random)) track[k] = next_track++;
      sequence[f].hypotheses.push_back(
          {track[k], Box{box.xmin + jitter(random), box.ymin + jitter(random),
                         box.xmax + jitter(random), box.ymax + jitter(random)}});
    }
  }
  return sequence;
}

void BM_ClearMot(benchmark::State& state) {
  const Sequence sequence = Scene();
  for (auto _ : state) benchmark::DoNotOptimize(ComputeClearMot(sequence, 0.5));
  state.SetItemsProcessed(state.iterations() * kFrames);
}
BENCHMARK(BM_ClearMot)->Unit(benchmark::kMillisecond);

void BM_Identity(benchmark::State& state) {
  const Sequence sequence = Scene();
  for (auto _ : state) benchmark::DoNotOptimize(ComputeIdentity(sequence, 0.5));
  state.SetItemsProcessed(state.iterations() * kFrames);
}
BENCHMARK(BM_Identity)->Unit(benchmark::kMillisecond);

void BM_Hota(benchmark::State& state) {
  const Sequence sequence = Scene();
  for (auto _ : state) benchmark::DoNotOptimize(ComputeHota(sequence));
  state.SetItemsProcessed(state.iterations() * kFrames);
}
BENCHMARK(BM_Hota)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace eval
}  // namespace mirvane

BENCHMARK_MAIN();
