// main() of the test executables that run in the machine's own environment: the daemon's log
// lines go to standard output only, so that no test writes the machine's /tmp/log/debug.log.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "common/log_sink.h"

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  mirvane::SetLogSink([](unsigned, const std::string& line) { std::fputs(line.c_str(), stdout); });
  return RUN_ALL_TESTS();
}
