// Host frames per second of the daemon's pipeline (reader, network, tracker, rules, snapshots,
// events) together with the simulation behind it (rendering, scaling, the reference network, JPEG
// encoding), on one core: the default scene with the demo's rules and the installed network, on
// virtual time at fast pace, as the scenario suite runs it. Events go to a minimal system daemon
// on a thread of its own, which ends the run after the scene's frames.
//
// The program pins itself to the core it starts on and runs in a private mount namespace with a
// /tmp of its own and the build's model file under /etc, like the test programs.
#include <benchmark/benchmark.h>
#include <jansson.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

#include "bin/daemon_threads.h"
#include "bin/process_flags.h"
#include "mirvane_sim.h"
#include "private_namespace.h"
#include "testing/system_peer.h"

namespace {

constexpr int kSceneFrames = 1000;  // the default scene: 40 s at 25 frames a second
constexpr uint32_t kEventCommand = '1';

bool WriteFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::trunc);
  file << text;
  return file.good();
}

// Settings for the simulation (looping, so that a run never meets the scene's end) and the demo's
// rules in the parameter store.
bool Prepare() {
  if (system("mkdir -p /tmp/mirvane-sim /tmp/log") != 0) return false;
  if (!WriteFile("/tmp/mirvane-sim/sim.json",
                 R"({"clock": "virtual", "video": {"scene": "default", "pace": "fast",)"
                 R"( "loop": true, "ground_truth": "none"}})")) {
    return false;
  }
  setenv("MIRVANE_SIM_SETTINGS", "/tmp/mirvane-sim/sim.json", 1);
  if (mirvane_sim_reload_settings() != 0) return false;
  json_t* rules = json_load_file(MIRVANE_SOURCE_DIR "/scripts/demo-settings.json", 0, nullptr);
  const bool loaded = rules != nullptr && mirvane_param_load(rules) == 0;
  json_decref(rules);
  return loaded;
}

// Processor time of the whole process (every thread), in seconds.
double ProcessCpuSeconds() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void BM_DaemonAndSimulationOnOneCore(benchmark::State& state) {
  if (!Prepare()) return state.SkipWithError("cannot prepare the simulation's files");
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  if (sched_setaffinity(0, sizeof(one), &one) != 0) return state.SkipWithError("cannot pin");
  int64_t frames = 0;
  double cpu_seconds = 0;
  for (auto _ : state) {
    mirvane::g_running.store(1);
    mirvane::g_reload_config.store(1);
    int events = 0;
    // Stops the pipeline once the scene's frames have been reported; the frame in progress is
    // still reported.
    mirvane::testing::SystemPeer peer("/tmp/ipc-system", [&events](const auto& message) {
      if (message.cmd == kEventCommand && ++events == kSceneFrames) mirvane::g_running.store(0);
      return std::string();
    });
    const auto start = std::chrono::steady_clock::now();
    const double cpu_start = ProcessCpuSeconds();
    mirvane::RunModelPipeline();
    cpu_seconds += ProcessCpuSeconds() - cpu_start;
    state.SetIterationTime(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    frames += kSceneFrames;
  }
  // Per second of the pinned core's wall time, and per second of processor time (which other load
  // on the machine does not inflate).
  state.counters["frames_per_s"] =
      benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
  state.counters["frames_per_cpu_s"] = static_cast<double>(frames) / cpu_seconds;
}
BENCHMARK(BM_DaemonAndSimulationOnOneCore)
    ->Unit(benchmark::kSecond)
    ->UseManualTime()
    ->Iterations(2);

}  // namespace

int main(int argc, char** argv) {
  mirvane::hostns::NamespaceOptions options;
  options.keep_paths = {MIRVANE_SOURCE_DIR, MIRVANE_BINARY_DIR};
  options.etc_binds.emplace_back("tolvern-ai", std::string(MIRVANE_BINARY_DIR) + "/models");
  std::string error;
  if (!mirvane::hostns::EnterPrivateNamespace(options, &error)) {
    std::fprintf(stderr, "pipeline_bench: cannot enter a private namespace: %s\n", error.c_str());
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
