// Fuzz target: the model id file ("key=hex value" lines, and "kModelPath=<path>"), parsed from its
// text as GetModelIds parses the file. It never fails: whatever the text, the ids are either all
// read from it or all the defaults, and the model path is the default or a "kModelPath" value.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "fuzz_sandbox.h"
#include "model/model_util.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  mirvane::fuzz::EnterFuzzSandbox(*argc, *argv);  // the parser logs to the debug log
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::istringstream in(text);
  const mirvane::ModelIds ids = mirvane::GetModelIds(in);
  const mirvane::ModelIds defaults;
  if (ids.model_path != defaults.model_path &&
      text.find("kModelPath=" + ids.model_path) == std::string::npos) {
    std::abort();  // a model path that the text does not hold
  }
  mirvane::fuzz::TrimDebugLog();
  return 0;
}
