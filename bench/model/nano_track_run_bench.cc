// One whole NanoTrack::Run on the host simulation, as the pipeline calls it once a frame: the
// 1080p frame letterboxed into the 384x384 input by the scaler, both inputs set, the reference
// network run through the runtime (the model without imperfections, so without its simulated
// accelerator time), the nine outputs fetched, converted to floats and decoded.
//
// The frame is frame 400 of the default scene (seven objects). The program enters a private
// namespace with a /tmp of its own first, so that the block-id file, the model id file and the
// simulation's state never touch the machine's /tmp.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "image_reader/stream_reader.h"
#include "mirvane_sim.h"
#include "model/model_on_sim.h"
#include "model/nano_track.h"
#include "nvt/hd_module.h"
#include "private_namespace.h"

namespace mirvane {
namespace {

// The platform up, the model built and one frame held, for the whole program.
struct Setup {
  Setup() : model(0, threshold, arena) {
    for (int i = 0; i <= 400; ++i) image = reader.Read();
  }
  float threshold = 0.5f;
  HdModule arena;
  image_reader::StreamReader reader;
  NanoTrack model;
  std::unique_ptr<image_reader::IReader::Image> image;
};

Setup* g_setup = nullptr;

void BM_NanoTrackRun1080p(benchmark::State& state) {
  if (g_setup == nullptr || !g_setup->image) {
    state.SkipWithError("no frame");
    return;
  }
  size_t found = 0;
  for (auto _ : state) {
    DetectionsPerClass detections = g_setup->model.Run(g_setup->image->buffer);
    found = 0;
    for (const auto& list : detections) found += list.size();
    benchmark::DoNotOptimize(detections);
  }
  state.counters["objects"] = static_cast<double>(found);
}
BENCHMARK(BM_NanoTrackRun1080p)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace mirvane

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  mirvane::hostns::NamespaceOptions options;
  options.keep_paths = {MIRVANE_BINARY_DIR};
  std::string error;
  if (!mirvane::hostns::EnterPrivateNamespace(options, &error)) {
    std::fprintf(stderr, "cannot enter a private namespace: %s\n", error.c_str());
    return 1;
  }
  std::ofstream("/tmp/sim.json") << R"({"video": {"pace": "fast", "loop": true}})";
  setenv("MIRVANE_SIM_SETTINGS", "/tmp/sim.json", 1);
  mirvane_sim_reload_settings();
  mirvane::testing_model::UseModelFile(MIRVANE_IDEAL_MODEL_FILE);
  {
    mirvane::Setup setup;
    mirvane::g_setup = &setup;
    benchmark::RunSpecifiedBenchmarks();
    mirvane::g_setup = nullptr;
  }
  benchmark::Shutdown();
  return 0;
}
