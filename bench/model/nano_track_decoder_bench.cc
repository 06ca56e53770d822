// Decoder cost per frame on synthetic network outputs. The runs with a fixed iteration count are
// for instruction counts:
//   valgrind --tool=callgrind --toggle-collect='mirvane::Decode(*' nano_track_decoder_bench
//     --benchmark_filter='BusyFrame/35/iterations'
// gives the instructions of that many decoded frames.
#include <benchmark/benchmark.h>

#include "model/nano_track_decoder.h"
#include "model/nano_track_synthetic.h"

namespace mirvane {
namespace {

constexpr int kSourceWidth = 1920;
constexpr int kSourceHeight = 1080;
constexpr benchmark::IterationCount kCountedIterations = 100;

// 50 objects over the three scales of a 48/24/12-cell, 4-class output, at the default detection
// threshold and at a typical configured one.
void BM_DecodeBusyFrame(benchmark::State& state) {
  const testing_model::SyntheticFrame frame = testing_model::MakeBusyFrame(50, 7);
  const NanoTrackOutputs outputs = frame.outputs.Views();
  const float threshold = static_cast<float>(state.range(0)) / 100.0f;
  const NanoTrackDecoderParams params(threshold);
  std::size_t detections = 0;
  for (auto _ : state) {
    const DetectionsPerClass result = Decode(params, outputs, kSourceWidth, kSourceHeight);
    detections = 0;
    for (const auto& list : result) {
      detections += list.size();
    }
    benchmark::DoNotOptimize(result.data());
  }
  state.counters["detections"] = static_cast<double>(detections);
}
BENCHMARK(BM_DecodeBusyFrame)->Arg(20)->Arg(35);
BENCHMARK(BM_DecodeBusyFrame)->Arg(20)->Arg(35)->Iterations(kCountedIterations);

// Worst case: every cell of every map passes, so each class list holds 3 x 128 candidates.
void BM_DecodeEveryCellPasses(benchmark::State& state) {
  const testing_model::SyntheticFrame frame = testing_model::MakeBusyFrame(50, 7);
  const NanoTrackOutputs outputs = frame.outputs.Views();
  const float threshold = 0.0f;
  const NanoTrackDecoderParams params(threshold);
  for (auto _ : state) {
    const DetectionsPerClass result = Decode(params, outputs, kSourceWidth, kSourceHeight);
    benchmark::DoNotOptimize(result.data());
  }
}
BENCHMARK(BM_DecodeEveryCellPasses);
BENCHMARK(BM_DecodeEveryCellPasses)->Iterations(kCountedIterations);

}  // namespace
}  // namespace mirvane

BENCHMARK_MAIN();
