// Decoder cost per frame on synthetic network outputs. The runs with a fixed iteration count are
// for instruction counts:
//   valgrind --tool=callgrind --toggle-collect='mirvane::Decode(*' nano_track_decoder_bench
//     --benchmark_filter='DecodeBusyFrame/35/iterations'
// gives the instructions of that many decoded frames; with --toggle-collect='*DecodeThenTrack(*'
// and --benchmark_filter='DecodeAndTrackBusyFrame/35/iterations' those of the whole chain after
// inference.
#include <benchmark/benchmark.h>

#include "bin/obj_detect_tracker.h"
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

// What the pipeline does per frame after inference: decode the outputs, then track the boxes.
__attribute__((noinline)) size_t DecodeThenTrack(const NanoTrackDecoderParams& params,
                                                 const NanoTrackOutputs& outputs,
                                                 dva::ObjDetectTracker* tracker, uint64_t frame) {
  const DetectionsPerClass detections = Decode(params, outputs, kSourceWidth, kSourceHeight);
  const TrackResult result = tracker->Update(detections, kSourceWidth, kSourceHeight, frame);
  size_t objects = 0;
  for (const auto& list : result.objects) objects += list.size();
  return objects;
}

// The busy frame over and over, at the detection threshold of the argument and the default
// tracking threshold: after the first frame every box continues a track.
void BM_DecodeAndTrackBusyFrame(benchmark::State& state) {
  constexpr float kTrackingThreshold = 0.6f;
  const testing_model::SyntheticFrame frame = testing_model::MakeBusyFrame(50, 7);
  const NanoTrackOutputs outputs = frame.outputs.Views();
  const float threshold = static_cast<float>(state.range(0)) / 100.0f;  // the params refer to it
  const NanoTrackDecoderParams params(threshold);
  dva::ObjDetectTracker tracker(kNanoTrackClassCount, kTrackingThreshold);
  uint64_t index = 0;
  size_t objects = 0;
  for (auto _ : state) {
    objects = DecodeThenTrack(params, outputs, &tracker, ++index);
    benchmark::DoNotOptimize(objects);
  }
  state.counters["tracked"] = static_cast<double>(objects);
}
BENCHMARK(BM_DecodeAndTrackBusyFrame)->Arg(35);
BENCHMARK(BM_DecodeAndTrackBusyFrame)->Arg(35)->Iterations(kCountedIterations);

}  // namespace
}  // namespace mirvane

BENCHMARK_MAIN();
