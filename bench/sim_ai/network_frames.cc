// A fixed replay for instruction counts: 20 procs through the runtime, alternating two pictures
// as the daemon does. Run under valgrind --tool=callgrind and divide by 20 (minus the set-up,
// measured with an argument of 0 procs).
#include <cstdio>
#include <cstdlib>

#include "bench_scene.h"

int main(int argc, char** argv) {
  using namespace mirvane::sim_ai_bench;
  const int procs = argc > 1 ? std::atoi(argv[1]) : 20;
  TestPicture a = Scene(0), b = Scene(4);
  StartedNetwork net;
  int failed = 0;
  for (int i = 0; i < procs; ++i) failed += (i % 2 ? net.Proc(a, b) : net.Proc(b, a)) != HD_OK;
  std::printf("%d procs, %d failed\n", procs, failed);
  return failed == 0 ? 0 : 1;
}
