// What the fuzz targets share: a private /tmp for code that works on the daemon's fixed paths, and
// a bounded debug log.
//
// EnterFuzzSandbox is for LLVMFuzzerInitialize (the process is still single-threaded then);
// TrimDebugLog for the end of each input. Nothing here is owned; the calling thread only.
#ifndef MIRVANE_FUZZ_FUZZ_SANDBOX_H
#define MIRVANE_FUZZ_FUZZ_SANDBOX_H

namespace mirvane {
namespace fuzz {

// Moves the process into a private user and mount namespace with a /tmp of its own (the paths
// named on the command line, and the working directory, stay visible), creates the debug log's
// directory there and sends standard output, where the daemon's log lines also go, to /dev/null
// (libFuzzer reports on standard error). Exits the process with a message when the machine allows
// no such namespace.
void EnterFuzzSandbox(int argc, char** argv);

// Empties the debug log, which the code under test appends to on every logged line.
void TrimDebugLog();

}  // namespace fuzz
}  // namespace mirvane

#endif  // MIRVANE_FUZZ_FUZZ_SANDBOX_H
